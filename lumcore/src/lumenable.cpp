/*
 * The AVX gate.  It starts open and no call closes it, so lumIsCpuEnabled(70)
 * answers 1 in practice; both calls are kept for hosts that use them.
 * The gate is read and written with relaxed atomic accesses, since hosts may
 * open it while other threads run the selection.
 */
#include "lumcore_internal.h"

namespace {
const int32_t kAvxCode = 70;
}

extern "C" {
int32_t is_avx_cpu_enabled = 1;

LUMI_API int lumIsCpuEnabled(int32_t code)
{
    const int32_t open = __atomic_load_n(&is_avx_cpu_enabled, __ATOMIC_RELAXED);
    return (code == kAvxCode && open == 0) ? 0 : 1;
}

LUMI_API LumStatus lumEnableCpu(int32_t code)
{
    if (code == kAvxCode)
        __atomic_store_n(&is_avx_cpu_enabled, 1, __ATOMIC_RELAXED);
    return lumStsNoErr;
}
}
