/*
 * Minimum and maximum filters of one-channel 8-bit images: each output pixel
 * is the smallest or the largest value of a maskSize window whose cell
 * `anchor` lies over it (the window of output (x, y) starts at source column
 * x - anchor.x, row y - anchor.y).  There is no border: the caller supplies
 * the footprint, roi + mask - 1 pixels each way.
 *
 * One program serves both filters; only the byte operation differs (Op:
 * MinOp in pimin.cpp, MaxOp in pimax.cpp).  Both extremes are separable, so
 * the driver works in two passes:
 *   row pass     the extreme of maskSize.width neighbours (channels bytes
 *                apart) of one source row, into one row of a ring of
 *                maskSize.height rows, each rounded up to 32 bytes;
 *   column pass  the extreme of the ring's rows, which are exactly the
 *                window's rows in some order, into the destination row.
 * The ring starts with the first maskSize.height - 1 footprint rows; every
 * output row adds the next one over the oldest.  A 1x1 mask is a plain copy
 * and takes no memory; a window one pixel wide makes the row pass a copy,
 * one row tall the column pass.  Both passes are one loop over taps
 * (extreme_taps): 32 bytes at a time, then 16 and 8, then single bytes, with
 * unaligned loads that never leave the footprint or the ring row.  All tiers
 * run this SSE2 code and agree.
 *
 * Failures: the checks (null, size, step, mask, anchor) and then a ring that
 * cannot be counted in 31 bits: a row whose padded length does not fit is a
 * size error, a ring of too many such rows a mask error.  A failed allocation
 * returns lumStsMemAllocErr with nothing written.
 */
#ifndef LUMI_PIMINMAX_H
#define LUMI_PIMINMAX_H

#include "tier.h"

#include <emmintrin.h>

namespace LUMI_NS {

inline LumStatus check_minmax(const void *pSrc, int32_t srcStep, const void *pDst,
                              int32_t dstStep, LumiSize roi, LumiSize mask, LumiPoint anchor)
{
    if (!pSrc || !pDst)
        return lumStsNullPtrErr;
    if (roi.width < 1 || roi.height < 1)
        return lumStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return lumStsStepErr;
    if (mask.width < 1 || mask.height < 1)
        return lumStsMaskSizeErr;
    if (anchor.x < 0 || anchor.y < 0 || anchor.x >= mask.width || anchor.y >= mask.height)
        return lumStsAnchorErr;
    return lumStsNoErr;
}

inline __m128i load_bytes16(const Lum8u *p) { return _mm_loadu_si128((const __m128i *)p); }
inline __m128i load_bytes8(const Lum8u *p) { return _mm_loadl_epi64((const __m128i *)p); }

/* Extreme of `taps` vectors `stride` bytes apart from p (Load: 16 or 8
 * bytes).  T > 0 fixes the tap count at compile time, so the loop unrolls. */
template <typename Op, int T, __m128i (*Load)(const Lum8u *)>
__m128i taps_vec(const Lum8u *p, int32_t taps, intptr_t stride)
{
    const int32_t n = T > 0 ? T : taps;
    __m128i v = Load(p);
    for (int32_t t = 1; t < n; ++t)
        v = Op::vec(v, Load(p + t * stride));
    return v;
}

template <typename Op>
Lum8u taps1(const Lum8u *p, int32_t taps, intptr_t stride)
{
    Lum8u v = p[0];
    for (int32_t t = 1; t < taps; ++t)
        v = Op::one(v, p[t * stride]);
    return v;
}

template <typename Op, int T>
void extreme_taps_n(const Lum8u *in, int32_t taps, intptr_t stride, Lum8u *out, int32_t len)
{
    int32_t i = 0;
    for (; i + 32 <= len; i += 32) {
        _mm_storeu_si128((__m128i *)(out + i),
                         taps_vec<Op, T, load_bytes16>(in + i, taps, stride));
        _mm_storeu_si128((__m128i *)(out + i + 16),
                         taps_vec<Op, T, load_bytes16>(in + i + 16, taps, stride));
    }
    if (i + 16 <= len) {
        _mm_storeu_si128((__m128i *)(out + i), taps_vec<Op, T, load_bytes16>(in + i, taps, stride));
        i += 16;
    }
    if (i + 8 <= len) {
        _mm_storel_epi64((__m128i *)(out + i), taps_vec<Op, T, load_bytes8>(in + i, taps, stride));
        i += 8;
    }
    for (; i < len; ++i)
        out[i] = taps1<Op>(in + i, taps, stride);
}

/* out[i] = extreme of in[i + t * stride] over `taps` taps, for i in [0, len).
 * Shared by both passes: across a row (stride: the channel count) and down
 * the ring (stride: the ring's row length).  Up to 16 taps the count is a
 * constant of the loop. */
template <typename Op>
void extreme_taps(const Lum8u *in, int32_t taps, intptr_t stride, Lum8u *out, int32_t len)
{
    typedef void (*Fn)(const Lum8u *, int32_t, intptr_t, Lum8u *, int32_t);
    static const Fn fixed[17] = {
        extreme_taps_n<Op, 0>,  extreme_taps_n<Op, 1>,  extreme_taps_n<Op, 2>,
        extreme_taps_n<Op, 3>,  extreme_taps_n<Op, 4>,  extreme_taps_n<Op, 5>,
        extreme_taps_n<Op, 6>,  extreme_taps_n<Op, 7>,  extreme_taps_n<Op, 8>,
        extreme_taps_n<Op, 9>,  extreme_taps_n<Op, 10>, extreme_taps_n<Op, 11>,
        extreme_taps_n<Op, 12>, extreme_taps_n<Op, 13>, extreme_taps_n<Op, 14>,
        extreme_taps_n<Op, 15>, extreme_taps_n<Op, 16>};
    fixed[taps <= 16 ? taps : 0](in, taps, stride, out, len);
}

/* Row pass: one source row into one ring row. */
template <typename Op>
void ownlumiFilterExtreme_8u_Row(const Lum8u *src, Lum8u *ringRow, int32_t bytes,
                                 int32_t windowBytes, int32_t stride)
{
    extreme_taps<Op>(src, windowBytes / stride, stride, ringRow, bytes);
}

/* Column pass: the extreme of `height` ring rows into a destination row. */
template <typename Op>
void ownlumiFilterExtreme_8u_Col(const Lum8u *ring, intptr_t ringStride, Lum8u *dst,
                                 int32_t bytes, int32_t height)
{
    extreme_taps<Op>(ring, height, ringStride, dst, bytes);
}

template <typename Op>
LumStatus ownlumiFilterExtreme_8u(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                  int32_t dstStep, LumiSize roi, LumiSize mask, LumiPoint anchor,
                                  int channels)
{
    const int64_t bytes = (int64_t)roi.width * channels;
    const int64_t padded = (bytes + 31) & ~(int64_t)31;
    if (padded > INT32_MAX)
        return lumStsSizeErr;
    if (padded * mask.height > INT32_MAX)
        return lumStsMaskSizeErr;
    Lum8u *ring = LUMI_T(lumsMalloc_8u)((int32_t)(padded * mask.height));
    if (!ring)
        return lumStsMemAllocErr;
    const Lum8u *top = pSrc - (intptr_t)anchor.y * srcStep - (intptr_t)anchor.x * channels;
    const int32_t h = mask.height, windowBytes = mask.width * channels;
    for (int32_t k = 0; k + 1 < h; ++k)
        ownlumiFilterExtreme_8u_Row<Op>(top + (intptr_t)k * srcStep, ring + k * padded,
                                        (int32_t)bytes, windowBytes, channels);
    int32_t slot = h - 1;
    for (int32_t y = 0; y < roi.height; ++y) {
        ownlumiFilterExtreme_8u_Row<Op>(top + (intptr_t)(y + h - 1) * srcStep,
                                        ring + slot * padded, (int32_t)bytes, windowBytes,
                                        channels);
        ownlumiFilterExtreme_8u_Col<Op>(ring, (intptr_t)padded, pDst + (intptr_t)y * dstStep,
                                        (int32_t)bytes, h);
        slot = slot + 1 == h ? 0 : slot + 1;
    }
    _mm_sfence();
    LUMI_T(lumsFree)(ring);
    return lumStsNoErr;
}

/* The public form of either filter. */
template <typename Op>
LumStatus extreme_public(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                         LumiSize roi, LumiSize mask, LumiPoint anchor)
{
    const LumStatus st = check_minmax(pSrc, srcStep, pDst, dstStep, roi, mask, anchor);
    if (st != lumStsNoErr)
        return st;
    if (mask.width == 1 && mask.height == 1)
        return LUMI_T(lumiCopy_8u_C1R)(pSrc, srcStep, pDst, dstStep, roi);
    return ownlumiFilterExtreme_8u<Op>(pSrc, srcStep, pDst, dstStep, roi, mask, anchor, 1);
}

} // namespace LUMI_NS

#endif
