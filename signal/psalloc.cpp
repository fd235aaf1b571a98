/*
 * Vector allocation members of a tier.  The element count becomes a byte
 * count for lumMalloc, which takes a signed 32-bit size.  A count below 1
 * gives null, and so does a byte count that does not fit in 32 bits: cut to
 * its low half it would promise far more than the block holds.
 */
#include "tier.h"

#include "checks.h"

namespace LUMI_NS {
namespace {

template <typename T>
T *alloc_elements(int32_t len)
{
    if (!len_positive(len))
        return nullptr;
    return (T *)lumMalloc(alloc_count((int64_t)len * (int64_t)sizeof(T)));
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER Lum8u *LUMI_T(lumsMalloc_8u)(int32_t len) { return LUMI_NS::alloc_elements<Lum8u>(len); }
LUMI_MEMBER Lum16u *LUMI_T(lumsMalloc_16u)(int32_t len) { return LUMI_NS::alloc_elements<Lum16u>(len); }
LUMI_MEMBER Lum32s *LUMI_T(lumsMalloc_32s)(int32_t len) { return LUMI_NS::alloc_elements<Lum32s>(len); }
LUMI_MEMBER Lum32f *LUMI_T(lumsMalloc_32f)(int32_t len) { return LUMI_NS::alloc_elements<Lum32f>(len); }
LUMI_MEMBER void LUMI_T(lumsFree)(void *ptr) { lumFree(ptr); }
