/*
 * The one place where the library reads the processor: CPUID, XGETBV and
 * RDTSC.  The shipped library executes the instructions.  The test library is
 * built from this same file with LUMI_SIMULATED_CPU, which adds a hook that,
 * when set, answers every read; that is how the tests simulate processors of
 * any vendor, feature set and cache layout.  The shipped library has no hook.
 */
#ifdef LUMI_SIMULATED_CPU
#define LUMI_SIMULATED_CPU_API
#endif
#include "lumcore_internal.h"

#include <cpuid.h>

#ifdef LUMI_SIMULATED_CPU
LumProcessorReadHook ownProcessorReadHook = nullptr;
#endif

void ownProcessorRead(int op, uint32_t leaf, uint32_t subleaf, uint32_t r[4])
{
#ifdef LUMI_SIMULATED_CPU
    if (ownProcessorReadHook) {
        ownProcessorReadHook(op, leaf, subleaf, r);
        return;
    }
#endif
    switch (op) {
    case LUM_READ_HAS_CPUID:
        r[0] = 1; /* every x86-64 processor has CPUID */
        break;
    case LUM_READ_CPUID:
        __cpuid_count(leaf, subleaf, r[0], r[1], r[2], r[3]);
        break;
    case LUM_READ_XGETBV: {
        uint32_t lo, hi;
        __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(leaf));
        r[0] = lo;
        r[1] = hi;
        break;
    }
    case LUM_READ_RDTSC: {
        uint32_t lo, hi;
        __asm__ volatile("rdtsc" : "=a"(lo), "=d"(hi));
        r[0] = lo;
        r[1] = hi;
        break;
    }
    default:
        break;
    }
}
