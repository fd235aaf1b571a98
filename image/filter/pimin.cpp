/*
 * Minimum filter of one-channel 8-bit images: the smallest value of each
 * window.  The driver is the one the maximum filter uses (piminmax.h).
 */
#include "tier.h"

#include "piminmax.h"

namespace LUMI_NS {
namespace {

struct MinOp {
    static __m128i vec(__m128i a, __m128i b) { return _mm_min_epu8(a, b); }
    static Lum8u one(Lum8u a, Lum8u b) { return a < b ? a : b; }
};

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMin_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                   int32_t dstStep, LumiSize roiSize,
                                                   LumiSize maskSize, LumiPoint anchor)
{
    return LUMI_NS::extreme_public<LUMI_NS::MinOp>(pSrc, srcStep, pDst, dstStep, roiSize, maskSize,
                                                   anchor);
}
