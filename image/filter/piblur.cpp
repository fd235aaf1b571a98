/*
 * Box filter of 8-bit images, one or three channels, out of place and in
 * place: each output pixel is the mean of a maskSize window whose cell
 * `anchor` lies over it.  There is no border: pSrc is the pixel under the
 * first output pixel and the caller supplies the footprint, roi + mask - 1
 * pixels each way, starting anchor.y rows above and anchor.x pixels left.
 *
 * Engines, chosen by form and mask (N = mask width * height):
 *   C1R   N > 8100: float column sums | 3x3 | 7x7 | 5x5 | generic integer
 *   C3R   N > 8100: float | 3x3 | 5x5 | generic integer (7x7 included)
 *   C1IR  mask as tall as the region: whole copy, then generic or float
 *         out of place | 3x3 and 5x5: 16-bit column sums | generic | float
 *   C3IR  whole copy | N > 8100: float | 3x3 | generic
 * The engines round the mean differently, on purpose, and each keeps its
 * own rule (S is the window sum of one channel):
 *   3x3 (both forms, in place too)   (S * 29128) >> 18, truncating
 *   5x5 out of place                 (S * 20971 + 0x40000) >> 19, to nearest
 *   7x7 one channel                  (S * 10700 + 0x40000) >> 19, to nearest
 *   3x3 / 5x5 in place, C1           (S * 7282) >> 16 / (S * 2622) >> 16, truncating
 *   generic, one channel             (S * mul + half) >> shift, to nearest
 *   generic, three channels          (S * mul) >> shift, truncating
 *   float                            trunc(S * (1.0f / N) + 9.0e-6f)
 * The in-place engines compute into a ring of anchor.y + 1 rows and store
 * each row once the source rows under it have been read (piblur.h).
 * All tiers give the same results.
 *
 * Checks: pointers, steps, size, mask, anchor, in that order.  After them,
 * two limits of our own keep every count in 32 bits: a mask of more than
 * 2^31 - 1 cells is refused as a bad mask, and a footprint whose row of
 * bytes or whose row count passes 2^31 - 1 as a bad size.  Working memory
 * is sized in 64 bits, and a block beyond a 32-bit byte count fails as an
 * allocation would (lumStsMemAllocErr); cut to 32 bits it would be smaller
 * than what the engine then writes.  Every engine releases what it holds
 * when a later allocation fails, the 3x3 in-place engine's ring rows too.
 */
#include "tier.h"

#include <string.h>

#include "checks.h"
#include "piblur.h"

namespace LUMI_NS {

void get_shift_int(LumiSize mask, uint32_t *mul, int *shift)
{
    if (mask.width + mask.height == 3) {
        *mul = 4096;
        *shift = 13;
        return;
    }
    const float r = 1.0f / (float)(mask.width * mask.height);
    if (r == 1.0f) {
        *mul = 4096;
        *shift = 12;
        return;
    }
    uint32_t v = (uint32_t)(int32_t)((double)r * 4294967295.0);
    int k = 0;
    for (int i = 0; i < 24 && !(v & 0x80000000u); ++i) {
        v <<= 1;
        ++k;
    }
    *mul = (v >> 20) + 1;
    *shift = k + 12;
}

bool take_ring(Ring *ring, int32_t R, int64_t slot)
{
    ring->rows = LUMI_T(lumsMalloc_8u)(alloc_count(R * slot));
    ring->table = nullptr;
    if (!ring->rows)
        return false;
    ring->table = (Lum8u **)LUMI_T(lumsMalloc_8u)(alloc_count(R * (int64_t)sizeof(Lum8u *)));
    if (!ring->table) {
        LUMI_T(lumsFree)(ring->rows);
        return false;
    }
    for (int32_t i = 0; i < R; ++i)
        ring->table[i] = ring->rows + (intptr_t)i * slot;
    return true;
}

void free_ring(const Ring &ring)
{
    LUMI_T(lumsFree)(ring.table);
    LUMI_T(lumsFree)(ring.rows);
}

namespace {

/* Checks of every form, in this order; in place, both sides are pSrcDst. */
LumStatus check(const void *pSrc, int32_t srcStep, const void *pDst, int32_t dstStep,
                LumiSize roi, LumiSize mask, LumiPoint anchor, int channels)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (!mask_positive(mask))
        return lumStsMaskSizeErr;
    if (!anchor_inside(anchor, mask))
        return lumStsAnchorErr;
    /* What the engines' 32-bit counts can hold. */
    if (!cells_fit(mask))
        return lumStsMaskSizeErr;
    if (!footprint_fits(roi, mask, channels))
        return lumStsSizeErr;
    return lumStsNoErr;
}

bool is_mask(LumiSize m, int32_t w, int32_t h) { return m.width == w && m.height == h; }

const Lum8u *footprint(const Lum8u *p, int32_t step, LumiPoint anchor, int channels)
{
    return p - (intptr_t)anchor.y * step - (intptr_t)anchor.x * channels;
}

LumStatus box_out_of_place(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                           LumiSize roi, LumiSize mask, LumiPoint anchor, int channels)
{
    const LumStatus st = check(pSrc, srcStep, pDst, dstStep, roi, mask, anchor, channels);
    if (st != lumStsNoErr)
        return st;
    const BoxJob j = {footprint(pSrc, srcStep, anchor, channels), srcStep, pDst, dstStep,
                      roi, mask, channels};
    if (!integer_sums(mask))
        return ownBlurFloat_8u(j);
    if (is_mask(mask, 3, 3))
        return ownBlur_8u_33(j);
    if (channels == 1 && is_mask(mask, 7, 7))
        return ownBlur_8u_77_C1R(j);
    if (is_mask(mask, 5, 5))
        return ownBlur_8u_55(j);
    return ownBlur_8u(j);
}

/* A mask at least as tall as the region leaves no row to delay through a
 * ring: the footprint is copied and filtered out of place from the copy. */
LumStatus whole_copy(Lum8u *pSrcDst, int32_t step, LumiSize roi, LumiSize mask, LumiPoint anchor,
                     int channels)
{
    const LumiSize fp = {roi.width + mask.width - 1, roi.height + mask.height - 1};
    int32_t copyStep = 0;
    Lum8u *copy = channels == 1 ? LUMI_T(lumiMalloc_8u_C1)(fp.width, fp.height, &copyStep)
                                : LUMI_T(lumiMalloc_8u_C3)(fp.width, fp.height, &copyStep);
    if (!copy)
        return lumStsMemAllocErr;
    const Lum8u *first = footprint(pSrcDst, step, anchor, channels);
    LumStatus st = channels == 1 ? LUMI_T(lumiCopy_8u_C1R)(first, step, copy, copyStep, fp)
                                 : LUMI_T(lumiCopy_8u_C3R)(first, step, copy, copyStep, fp);
    if (st == lumStsNoErr) {
        const BoxJob j = {copy, copyStep, pSrcDst, step, roi, mask, channels};
        st = integer_sums(mask) ? ownBlur_8u(j) : ownBlurFloat_8u(j);
    }
    LUMI_T(lumiFree)(copy);
    return st;
}

LumStatus box_in_place(Lum8u *pSrcDst, int32_t step, LumiSize roi, LumiSize mask,
                       LumiPoint anchor, int channels)
{
    const LumStatus st = check(pSrcDst, step, pSrcDst, step, roi, mask, anchor, channels);
    if (st != lumStsNoErr)
        return st;
    if (mask.height >= roi.height)
        return whole_copy(pSrcDst, step, roi, mask, anchor, channels);
    const BoxInPlace p = {{footprint(pSrcDst, step, anchor, channels), step, pSrcDst, step, roi,
                           mask, channels},
                          anchor};
    if (channels == 1) {
        if (integer_sums(mask) && (is_mask(mask, 3, 3) || is_mask(mask, 5, 5)))
            return ownBlur_8u_55_C1IR(p);
        return integer_sums(mask) ? ownBlur_8u_I(p) : ownBlurFloat_8u_I(p);
    }
    if (!integer_sums(mask))
        return ownBlurFloat_8u_I(p);
    if (is_mask(mask, 3, 3))
        return ownBlur_8u_33_I(p);
    return ownBlur_8u_I(p);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBox_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                   int32_t dstStep, LumiSize roiSize,
                                                   LumiSize maskSize, LumiPoint anchor)
{
    return LUMI_NS::box_out_of_place(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBox_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                   int32_t dstStep, LumiSize roiSize,
                                                   LumiSize maskSize, LumiPoint anchor)
{
    return LUMI_NS::box_out_of_place(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor, 3);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBox_8u_C1IR)(Lum8u *pSrcDst, int32_t srcDstStep,
                                                    LumiSize roiSize, LumiSize maskSize,
                                                    LumiPoint anchor)
{
    return LUMI_NS::box_in_place(pSrcDst, srcDstStep, roiSize, maskSize, anchor, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBox_8u_C3IR)(Lum8u *pSrcDst, int32_t srcDstStep,
                                                    LumiSize roiSize, LumiSize maskSize,
                                                    LumiPoint anchor)
{
    return LUMI_NS::box_in_place(pSrcDst, srcDstStep, roiSize, maskSize, anchor, 3);
}
