/*
 * The feature word and the enabled-feature mask.
 *
 * The word is built once per process from CPUID leaf 1 (plus XGETBV for the
 * OS side of AVX and leaf 0x20000001 on family 0xB) and cached; the mask is
 * what the selection ladder leaves enabled for the chosen tier.
 */
#include "lumcore_internal.h"

#include <string.h>

extern "C" {
Lum64u ownFeatures = 0;
int32_t ownFeaturesAreValid = 0;
Lum64u ownFeaturesMask = 7;
}

namespace {

struct FeatureBit {
    int reg;      /* 2 = ECX, 3 = EDX of leaf 1 */
    int srcBit;
    Lum64u mask;
};

/* Leaf 1 bits, in mask-bit order; bits 9 and 12 are filled separately. */
const FeatureBit kLeaf1Bits[] = {
    {3, 23, LUM_CPU_MMX},   {3, 25, LUM_CPU_SSE},    {3, 26, LUM_CPU_SSE2},
    {2, 0, LUM_CPU_SSE3},   {2, 9, LUM_CPU_SSSE3},   {2, 22, LUM_CPU_MOVBE},
    {2, 19, LUM_CPU_SSE41}, {2, 20, LUM_CPU_SSE42},  {2, 28, LUM_CPU_AVX},
    {2, 25, LUM_CPU_AES},   {2, 1, LUM_CPU_CLMUL},   {2, 30, LUM_CPU_RDRAND},
    {2, 29, LUM_CPU_F16C},
};

const Lum64u kCpuProbeWord = 0x65626f7270757063ull; /* "cpuprobe", little-endian */

} // namespace

extern "C" {

int ownGetMaskFeatures(Lum64u *pWord)
{
    if (ownFeaturesAreValid) {
        *pWord = ownFeatures;
        return 1;
    }
    if (!lum_has_cpuid())
        return 0;
    uint32_t r[4];
    ownCpuid(1, 0, r);
    Lum64u word = 0;
    for (const FeatureBit &f : kLeaf1Bits)
        if ((r[f.reg] >> f.srcBit) & 1u)
            word |= f.mask;
    const uint32_t osxsave_avx = 0x18000000u;
    if ((r[2] & osxsave_avx) == osxsave_avx && lum_is_avx_extension())
        word |= LUM_CPU_AVX_OS;
    if (((r[0] >> 8) & 0xfu) == 0xbu) {
        uint32_t e[4];
        ownCpuid(0x20000001u, 0, e);
        if ((e[3] >> 1) & 1u)
            word |= LUM_CPU_EXT_0B;
    }
    ownFeatures = word;
    ownFeaturesAreValid = 1;
    *pWord = word;
    return 1;
}

void ownSetFeatureMask(Lum64u mask)
{
    ownFeaturesMask = mask;
}

int ownGetFeature(Lum64u bits)
{
    return (ownFeaturesMask & bits) == bits ? 1 : 0;
}

LUMI_API LumStatus lumGetCpuFeatures(Lum64u *pFeatures, Lum32u *pRegs)
{
    Lum64u word;
    if (!ownGetMaskFeatures(&word))
        return lumStsCpuNotSupportedErr;
    if (!pFeatures)
        return lumStsNullPtrErr;
    const Lum64u previous = *pFeatures;
    *pFeatures = word;
    if (!pRegs)
        return lumStsNoErr;
    uint32_t r[4];
    if (previous == kCpuProbeWord)
        ownCpuid(pRegs[0], pRegs[2], r);
    else
        ownCpuid(1, 0, r);
    memcpy(pRegs, r, sizeof r);
    return lumStsNoErr;
}

LUMI_API Lum64u lumGetEnabledCpuFeatures(void)
{
    return ownFeaturesMask;
}

LUMI_API LumStatus lumSetCpuFeaturesMask(Lum64u mask)
{
    ownSetFeatureMask(mask);
    return lumStsNoErr;
}
}
