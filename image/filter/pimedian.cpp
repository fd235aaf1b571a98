/*
 * Median filter of 8-bit images, one or three channels: each output value is
 * the exact median of a rectangular window of odd sides over the same
 * channel.  There is no border: pSrc is the pixel under the first output
 * pixel, and the window of output (x, y) has its top-left cell at source
 * column x - anchor.x and row y - anchor.y.
 *
 * After the checks the source pointer moves to the window's centre, so no
 * kernel sees the anchor again, and the window picks the path:
 *   3x3, 5x5, 7x7     compare-exchange networks on squares (pimedian_net),
 *                     7x7 from a footprint row of 10 bytes on
 *   3x1, 5x1          the Horiz entries (line networks, neighbours one pixel apart)
 *   1x3, 1x5          the Vert entries (line networks, neighbours one row apart)
 *   1x1               a plain copy
 *   width 1, taller   single-column engine: partial bubble sort of the column
 *   anything else     histogram engine: a running 256-bin histogram per row
 * Every path gives the same value, the exact median; tiers differ in speed
 * only.  The only allocation is the single-column engine's array.
 *
 * Checks: pointers, size, steps, mask (positive and odd), anchor.  After
 * them, a mask of more than 2^31 - 1 cells is refused as a bad mask (the
 * histogram's rank is a 32-bit count), and a footprint whose row of bytes or
 * row count passes 2^31 - 1 as a bad size.  Offsets between rows are
 * pointer-width, so a step above 2^30 reaches the fifth row of a line window.
 */
#include "tier.h"

#include <string.h>

#include "checks.h"
#include "pimedian.h"

namespace LUMI_NS {
namespace {

/* Checks of every entry, public and line: pointers, size, then steps (the
 * size ahead of the steps, unlike the box filter). */
LumStatus check_common(const void *pSrc, int32_t srcStep, const void *pDst, int32_t dstStep,
                       LumiSize roi)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    return lumStsNoErr;
}

/* The line entries: `a` and `b` are the two masks the entry takes. */
LumStatus line_entry(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                     LumiSize roi, LumiMaskSize mask, LumiMaskSize three, LumiMaskSize five,
                     int channels, bool vertical)
{
    const LumStatus st = check_common(pSrc, srcStep, pDst, dstStep, roi);
    if (st != lumStsNoErr)
        return st;
    if (mask != three && mask != five)
        return lumStsMaskSizeErr;
    const int32_t taps = mask == three ? 3 : 5;
    if (!footprint_fits(roi, vertical ? LumiSize{1, taps} : LumiSize{taps, 1}, channels))
        return lumStsSizeErr;
    const intptr_t stride = vertical ? srcStep : channels;
    median_line_rows(pSrc, srcStep, pDst, dstStep, roi.width * channels, roi.height, taps,
                     stride);
    return lumStsNoErr;
}

/* Histogram engine over one channel: one running histogram per row, moved a
 * pixel at a time, with the median kept as the smallest value that has at
 * least `rank` window cells at or below it.  `hist` is clean on entry and on
 * return. */
void histogram_channel(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                       LumiSize roi, LumiSize mask, int c, uint32_t hist[256])
{
    const int32_t rank = ((mask.width * mask.height) >> 1) + 1;
    for (int32_t y = 0; y < roi.height; ++y) {
        const Lum8u *top = pSrc + (intptr_t)y * srcStep;
        Lum8u *dst = pDst + (intptr_t)y * dstStep;
        for (int32_t r = 0; r < mask.height; ++r) {
            const Lum8u *p = top + (intptr_t)r * srcStep;
            for (int32_t i = 0; i < mask.width; ++i)
                ++hist[p[i * c]];
        }
        int32_t med = 0;
        int32_t cum = (int32_t)hist[0];
        while (cum < rank)
            cum += (int32_t)hist[++med];
        for (int32_t x = 0; x + 1 < roi.width; ++x) {
            dst[x * c] = (Lum8u)med;
            const Lum8u *p = top + (intptr_t)x * c;
            const intptr_t enter = (intptr_t)mask.width * c;
            for (int32_t r = 0; r < mask.height; ++r, p += srcStep) {
                const int32_t out = p[0];
                const int32_t in = p[enter];
                --hist[out];
                ++hist[in];
                cum += (int32_t)(in <= med) - (int32_t)(out <= med);
            }
            if (cum < rank) {
                while (cum < rank)
                    cum += (int32_t)hist[++med];
            } else {
                do {
                    cum -= (int32_t)hist[med];
                    --med;
                } while (cum >= rank);
                ++med;
                cum += (int32_t)hist[med];
            }
        }
        dst[(intptr_t)(roi.width - 1) * c] = (Lum8u)med;
        /* Clear only what the last window counted. */
        const Lum8u *last = top + (intptr_t)(roi.width - 1) * c;
        for (int32_t r = 0; r < mask.height; ++r) {
            const Lum8u *p = last + (intptr_t)r * srcStep;
            for (int32_t i = 0; i < mask.width; ++i)
                hist[p[i * c]] = 0;
        }
    }
}

/* Single-column engine: bubble passes move the largest cells to the top
 * until the middle cell is settled. */
void column_channel(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                    LumiSize roi, int32_t n, int c, Lum32s *cells)
{
    const int32_t h = n >> 1;
    for (int32_t y = 0; y < roi.height; ++y) {
        const Lum8u *top = pSrc + (intptr_t)y * srcStep;
        Lum8u *dst = pDst + (intptr_t)y * dstStep;
        for (int32_t x = 0; x < roi.width; ++x) {
            const Lum8u *p = top + (intptr_t)x * c;
            for (int32_t j = 0; j < n; ++j)
                cells[j] = p[(intptr_t)j * srcStep];
            for (int32_t l = n - 1; l >= h; --l)
                for (int32_t j = 0; j < l; ++j)
                    if (cells[j] > cells[j + 1]) {
                        const Lum32s t = cells[j];
                        cells[j] = cells[j + 1];
                        cells[j + 1] = t;
                    }
            dst[x * c] = (Lum8u)cells[h];
        }
    }
}

/* The general engine from the footprint's first pixel, a channel at a time. */
LumStatus ownlumiFilterMedianCom_8u(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                         LumiSize roi, LumiSize mask, int channels, int excludeLast)
{
    const int used = excludeLast ? channels - 1 : channels;
    if (mask.width == 1) {
        Lum32s *cells = LUMI_T(lumsMalloc_32s)(mask.height);
        if (!cells)
            return lumStsMemAllocErr;
        for (int ch = 0; ch < used; ++ch)
            column_channel(pSrc + ch, srcStep, pDst + ch, dstStep, roi, mask.height, channels,
                           cells);
        LUMI_T(lumsFree)(cells);
        return lumStsNoErr;
    }
    uint32_t hist[256];
    memset(hist, 0, sizeof hist);
    for (int ch = 0; ch < used; ++ch)
        histogram_channel(pSrc + ch, srcStep, pDst + ch, dstStep, roi, mask, channels, hist);
    return lumStsNoErr;
}

LumStatus median_public(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                        LumiSize roi, LumiSize mask, LumiPoint anchor, int channels)
{
    LumStatus st = check_common(pSrc, srcStep, pDst, dstStep, roi);
    if (st != lumStsNoErr)
        return st;
    if (!mask_positive(mask) || !mask_odd(mask))
        return lumStsMaskSizeErr;
    if (!anchor_inside(anchor, mask))
        return lumStsAnchorErr;
    /* What the engines' 32-bit counts can hold. */
    if (!cells_fit(mask))
        return lumStsMaskSizeErr;
    if (!footprint_fits(roi, mask, channels))
        return lumStsSizeErr;

    const int32_t hw = mask.width >> 1, hh = mask.height >> 1;
    const Lum8u *centre =
        pSrc + (intptr_t)(hw - anchor.x) * channels + (intptr_t)(hh - anchor.y) * srcStep;
    const bool c1 = channels == 1;
    /* The selectors' code for windows of up to 7 by 7; 0 for larger ones
     * (whose sides would overflow the code). */
    int32_t shape = mask.width <= 7 && mask.height <= 7 ? mask.width * 10 + mask.height : 0;
    /* On a footprint row below 10 bytes (one channel, below 4 pixels) the
     * 7x7 network sorts byte by byte for very few windows, and the
     * histogram measured faster. */
    if (shape == kMedianSquare7 && roi.width < 10 / channels - 6)
        shape = 0;
    switch (shape) {
    case lumMaskSize3x3:
    case lumMaskSize5x5:
    case kMedianSquare7:
        if (c1)
            ownlumiFilterMedianSqr_8u_C1R(centre, srcStep, pDst, dstStep, roi,
                                          (LumiMaskSize)shape);
        else
            ownlumiFilterMedianSqr_8u_C3R(centre, srcStep, pDst, dstStep, roi,
                                          (LumiMaskSize)shape);
        return lumStsNoErr;
    case lumMaskSize3x1:
    case lumMaskSize5x1:
        return c1 ? LUMI_T(lumiFilterMedianHoriz_8u_C1R)(centre, srcStep, pDst, dstStep, roi,
                                                         (LumiMaskSize)shape)
                  : LUMI_T(lumiFilterMedianHoriz_8u_C3R)(centre, srcStep, pDst, dstStep, roi,
                                                         (LumiMaskSize)shape);
    case lumMaskSize1x3:
    case lumMaskSize1x5:
        return c1 ? LUMI_T(lumiFilterMedianVert_8u_C1R)(centre, srcStep, pDst, dstStep, roi,
                                                        (LumiMaskSize)shape)
                  : LUMI_T(lumiFilterMedianVert_8u_C3R)(centre, srcStep, pDst, dstStep, roi,
                                                        (LumiMaskSize)shape);
    case 11:
        return c1 ? LUMI_T(lumiCopy_8u_C1R)(centre, srcStep, pDst, dstStep, roi)
                  : LUMI_T(lumiCopy_8u_C3R)(centre, srcStep, pDst, dstStep, roi);
    default:
        break;
    }
    const Lum8u *first = centre - (intptr_t)hw * channels - (intptr_t)hh * srcStep;
    return ownlumiFilterMedianCom_8u(first, srcStep, pDst, dstStep, roi, mask, channels, 0);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedian_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                      Lum8u *pDst, int32_t dstStep,
                                                      LumiSize dstRoiSize, LumiSize maskSize,
                                                      LumiPoint anchor)
{
    return LUMI_NS::median_public(pSrc, srcStep, pDst, dstStep, dstRoiSize, maskSize, anchor, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedian_8u_C3R)(const Lum8u *pSrc, int32_t srcStep,
                                                      Lum8u *pDst, int32_t dstStep,
                                                      LumiSize dstRoiSize, LumiSize maskSize,
                                                      LumiPoint anchor)
{
    return LUMI_NS::median_public(pSrc, srcStep, pDst, dstStep, dstRoiSize, maskSize, anchor, 3);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedianHoriz_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                           Lum8u *pDst, int32_t dstStep,
                                                           LumiSize dstRoiSize, LumiMaskSize mask)
{
    return LUMI_NS::line_entry(pSrc, srcStep, pDst, dstStep, dstRoiSize, mask, lumMaskSize3x1,
                               lumMaskSize5x1, 1, false);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedianHoriz_8u_C3R)(const Lum8u *pSrc, int32_t srcStep,
                                                           Lum8u *pDst, int32_t dstStep,
                                                           LumiSize dstRoiSize, LumiMaskSize mask)
{
    return LUMI_NS::line_entry(pSrc, srcStep, pDst, dstStep, dstRoiSize, mask, lumMaskSize3x1,
                               lumMaskSize5x1, 3, false);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedianVert_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                          Lum8u *pDst, int32_t dstStep,
                                                          LumiSize dstRoiSize, LumiMaskSize mask)
{
    return LUMI_NS::line_entry(pSrc, srcStep, pDst, dstStep, dstRoiSize, mask, lumMaskSize1x3,
                               lumMaskSize1x5, 1, true);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedianVert_8u_C3R)(const Lum8u *pSrc, int32_t srcStep,
                                                          Lum8u *pDst, int32_t dstStep,
                                                          LumiSize dstRoiSize, LumiMaskSize mask)
{
    return LUMI_NS::line_entry(pSrc, srcStep, pDst, dstStep, dstRoiSize, mask, lumMaskSize1x3,
                               lumMaskSize1x5, 3, true);
}
