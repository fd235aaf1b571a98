/*
 * Image allocation members of a tier.  Rows are padded to a multiple of 32
 * bytes; the step is stored before the allocation, so a failed allocation
 * still reports it.  The image is not cleared.
 */
#include "tier.h"

namespace LUMI_NS {
namespace {

Lum8u *alloc_image(int32_t width, int32_t height, int32_t *pStep, int64_t channels)
{
    if (!pStep)
        return nullptr;
    if (width < 1 || height < 1) {
        *pStep = 0;
        return nullptr;
    }
    const int64_t step = (channels * width + 31) & ~(int64_t)31;
    *pStep = (int32_t)step;
    const int32_t bytes = (int32_t)((uint32_t)step * (uint32_t)height);
    return (Lum8u *)lumMalloc(bytes);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER Lum8u *LUMI_T(lumiMalloc_8u_C1)(int32_t width, int32_t height, int32_t *pStep)
{
    return LUMI_NS::alloc_image(width, height, pStep, 1);
}

LUMI_MEMBER Lum8u *LUMI_T(lumiMalloc_8u_C3)(int32_t width, int32_t height, int32_t *pStep)
{
    return LUMI_NS::alloc_image(width, height, pStep, 3);
}

LUMI_MEMBER void LUMI_T(lumiFree)(void *ptr) { lumFree(ptr); }
