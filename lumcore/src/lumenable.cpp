/*
 * The AVX gate.  It starts open and no call closes it, so lumIsCpuEnabled(70)
 * answers 1 in practice; both calls are kept for hosts that use them.
 */
#include "lumcore_internal.h"

namespace {
const int32_t kAvxCode = 70;
}

extern "C" {
int32_t is_avx_cpu_enabled = 1;

LUMI_API int lumIsCpuEnabled(int32_t code)
{
    return (code == kAvxCode && is_avx_cpu_enabled == 0) ? 0 : 1;
}

LUMI_API LumStatus lumEnableCpu(int32_t code)
{
    if (code == kAvxCode)
        is_avx_cpu_enabled = 1;
    return lumStsNoErr;
}
}
