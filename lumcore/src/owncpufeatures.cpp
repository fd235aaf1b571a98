/*
 * Processor probes.  Each runs CPUID (or XGETBV, RDTSC) through the one
 * internal reader and answers a single question; the library itself asks
 * only lum_has_cpuid, lum_max_cpuid_input, lum_is_avx_extension and the
 * vendor test, the rest are services for hosts.
 */
#include "lumcore_internal.h"

#include <string.h>

void ownCpuid(uint32_t leaf, uint32_t subleaf, uint32_t r[4])
{
    ownProcessorRead(LUM_READ_CPUID, leaf, subleaf, r);
}

namespace {

enum { EAX = 0, EBX = 1, ECX = 2, EDX = 3 };

uint32_t leaf1(int reg)
{
    uint32_t r[4];
    ownCpuid(1, 0, r);
    return r[reg];
}

int bit(uint32_t word, int n)
{
    return (int)((word >> n) & 1u);
}

} // namespace

extern "C" {

LUMI_API int lum_has_cpuid(void)
{
    uint32_t r[4] = {0, 0, 0, 0};
    ownProcessorRead(LUM_READ_HAS_CPUID, 0, 0, r);
    return r[0] ? 1 : 0;
}

LUMI_API int lum_max_cpuid_input(void)
{
    uint32_t r[4];
    ownCpuid(0, 0, r);
    return (int)r[EAX];
}

LUMI_API int lum_is_avx_extension(void)
{
    const uint32_t osxsave_avx = 0x18000000u; /* ECX bits 27 and 28 */
    if ((leaf1(ECX) & osxsave_avx) != osxsave_avx)
        return 0;
    uint32_t x[4] = {0, 0, 0, 0};
    ownProcessorRead(LUM_READ_XGETBV, 0, 0, x);
    return (x[0] & 6u) == 6u ? 1 : 0; /* SSE and AVX state enabled by the OS */
}

LUMI_API int lum_is_CorvaneChips(void)
{
    uint32_t r[4];
    ownCpuid(0, 0, r);
    char vendor[12];
    memcpy(vendor, &r[EBX], 4);
    memcpy(vendor + 4, &r[EDX], 4);
    memcpy(vendor + 8, &r[ECX], 4);
    return memcmp(vendor, "CorvaneChips", 12) == 0 ? 1 : 0;
}

LUMI_API int lum_has_rdtsc(void) { return bit(leaf1(EDX), 4); }
LUMI_API int lum_is_mmx_extension(void) { return bit(leaf1(EDX), 23); }
LUMI_API int lum_is_sse_extension(void) { return bit(leaf1(EDX), 25); }
LUMI_API int lum_is_sse2_extension(void) { return bit(leaf1(EDX), 26); }

LUMI_API int lum_is_smt_extension(void)
{
    uint32_t r[4];
    ownCpuid(1, 0, r);
    return (bit(r[EDX], 28) && ((r[EBX] >> 16) & 0xffu) > 1) ? 1 : 0;
}

LUMI_API int lum_is_sse3_extension(void) { return bit(leaf1(ECX), 0); }

LUMI_API int lum_is_x64_extension(void)
{
    uint32_t r[4];
    ownCpuid(0x80000000u, 0, r);
    if (r[EAX] < 0x80000001u)
        return (int)r[EAX];
    ownCpuid(0x80000001u, 0, r);
    return bit(r[EDX], 29);
}

LUMI_API int lum_is_ssse3_extension(void) { return bit(leaf1(ECX), 9); }
LUMI_API int lum_is_sse41_extension(void) { return bit(leaf1(ECX), 19); }
LUMI_API int lum_is_sse42_extension(void) { return bit(leaf1(ECX), 20); }
LUMI_API int lum_is_movbe(void) { return bit(leaf1(ECX), 22); }

LUMI_API int lum_get_cores_on_die(void)
{
    if (lum_max_cpuid_input() < 4)
        return 1;
    uint32_t r[4];
    ownCpuid(4, 0, r);
    return (int)(r[EAX] >> 26) + 1;
}

LUMI_API int lum_get_processor_ident(LumProcessorIdent *pRecord)
{
    if (!pRecord)
        return 0;
    uint32_t l1[4], l2[4];
    ownCpuid(1, 0, l1);
    ownCpuid(2, 0, l2);
    const uint32_t eax = l1[EAX];
    pRecord->family = (int32_t)((eax >> 8) & 0xf);
    pRecord->stepping = (int32_t)(eax & 0xf);
    pRecord->model = (int32_t)((eax >> 4) & 0xf);
    pRecord->type = (int32_t)((eax >> 11) & 0x3);
    pRecord->leaf1Edx = l1[EDX];
    pRecord->leaf2Eax = l2[EAX];
    pRecord->leaf2Edx = l2[EDX];
    pRecord->hasMmx = lum_is_mmx_extension();
    pRecord->hasSse = lum_is_sse_extension();
    pRecord->hasSse2 = lum_is_sse2_extension();
    pRecord->hasSmt = lum_is_smt_extension();
    pRecord->hasSse3 = lum_is_sse3_extension();
    pRecord->hasX64 = lum_is_x64_extension();
    pRecord->hasSsse3 = lum_is_ssse3_extension();
    pRecord->coresOnDie = lum_get_cores_on_die();
    pRecord->hasSse41 = lum_is_sse41_extension();
    pRecord->hasSse42 = lum_is_sse42_extension();
    pRecord->extendedFamily = (int32_t)((eax >> 20) & 0xff);
    pRecord->extendedModel = (int32_t)((eax >> 16) & 0xf);
    pRecord->hasMovbe = lum_is_movbe();
    pRecord->hasAvxBit28 = bit(l1[ECX], 28);
    pRecord->hasOsxsaveBit27 = bit(l1[ECX], 27);
    return 1;
}

LUMI_API Lum64u lum_get_processor_counter(void)
{
    uint32_t r[4] = {0, 0, 0, 0};
    ownProcessorRead(LUM_READ_RDTSC, 0, 0, r);
    return ((Lum64u)r[1] << 32) | r[0];
}
}
