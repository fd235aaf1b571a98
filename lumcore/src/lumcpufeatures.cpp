/*
 * The feature word and the enabled-feature mask.
 *
 * The word is built once per process from CPUID leaf 1 (plus XGETBV for the
 * OS side of AVX and leaf 0x20000001 on family 0xB) and cached; the mask is
 * what the selection ladder leaves enabled for the chosen tier.
 *
 * Threads: both are written without a lock, always with the value they
 * already hold (threads that race to fill the cache compute the same word).
 * Every access is atomic so that this is no data race; the valid flag is
 * stored after the word with release order and read with acquire order, so
 * a thread that sees the flag also sees the word.  On x86-64 these are the
 * plain moves they were.
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
    if (__atomic_load_n(&ownFeaturesAreValid, __ATOMIC_ACQUIRE)) {
        *pWord = __atomic_load_n(&ownFeatures, __ATOMIC_RELAXED);
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
    __atomic_store_n(&ownFeatures, word, __ATOMIC_RELAXED);
    __atomic_store_n(&ownFeaturesAreValid, 1, __ATOMIC_RELEASE);
    *pWord = word;
    return 1;
}

void ownSetFeatureMask(Lum64u mask)
{
    __atomic_store_n(&ownFeaturesMask, mask, __ATOMIC_RELAXED);
}

int ownGetFeature(Lum64u bits)
{
    return (__atomic_load_n(&ownFeaturesMask, __ATOMIC_RELAXED) & bits) == bits ? 1 : 0;
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
    return __atomic_load_n(&ownFeaturesMask, __ATOMIC_RELAXED);
}

LUMI_API LumStatus lumSetCpuFeaturesMask(Lum64u mask)
{
    ownSetFeatureMask(mask);
    return lumStsNoErr;
}
}
