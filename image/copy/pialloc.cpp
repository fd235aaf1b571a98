/*
 * Image allocation members of a tier.  Rows are padded to a multiple of 32
 * bytes; the step is stored before the allocation, so a failed allocation
 * still reports it.  The image is not cleared.
 *
 * Sizes are bounded by what a 32-bit step and a 32-bit byte count can say:
 * a step that does not fit in 32 bits is reported as 0 with null, and an
 * image of more than 2^31 - 1 bytes gives null with its step set, as any
 * failed allocation does.  Cut to 32 bits either would promise more than the
 * block holds.
 */
#include "tier.h"

#include "checks.h"

namespace LUMI_NS {
namespace {

Lum8u *alloc_image(int32_t width, int32_t height, int32_t *pStep, int64_t channels)
{
    if (!pStep)
        return nullptr;
    const int64_t step = (channels * width + 31) & ~(int64_t)31;
    if (width < 1 || height < 1 || !fits_32(step)) {
        *pStep = 0;
        return nullptr;
    }
    *pStep = (int32_t)step;
    return (Lum8u *)lumMalloc(alloc_count(step * height));
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
