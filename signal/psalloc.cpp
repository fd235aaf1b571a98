/*
 * Vector allocation members of a tier.  The element count becomes a byte
 * count in 32 bits, as lumMalloc takes it, so a product that overflows is
 * cut to its low half; a count or result below 1 gives null.
 */
#include "tier.h"

namespace LUMI_NS {
namespace {

template <typename T>
T *alloc_elements(int32_t len)
{
    if (len < 1)
        return nullptr;
    const int32_t bytes = (int32_t)((uint32_t)len * (uint32_t)sizeof(T));
    return (T *)lumMalloc(bytes);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER Lum8u *LUMI_T(lumsMalloc_8u)(int32_t len) { return LUMI_NS::alloc_elements<Lum8u>(len); }
LUMI_MEMBER Lum16u *LUMI_T(lumsMalloc_16u)(int32_t len) { return LUMI_NS::alloc_elements<Lum16u>(len); }
LUMI_MEMBER Lum32s *LUMI_T(lumsMalloc_32s)(int32_t len) { return LUMI_NS::alloc_elements<Lum32s>(len); }
LUMI_MEMBER Lum32f *LUMI_T(lumsMalloc_32f)(int32_t len) { return LUMI_NS::alloc_elements<Lum32f>(len); }
LUMI_MEMBER void LUMI_T(lumsFree)(void *ptr) { lumFree(ptr); }
