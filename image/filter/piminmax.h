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
 * output row adds the next one.  A 1x1 mask is a plain copy and takes no
 * memory.  Windows up to 5x5 skip the ring's rows altogether: one pass over
 * the source makes two output rows at a time, columns first and then across
 * in registers (piminmax_small.h).  The block is still taken for them, so a
 * call fails for want of memory alike whatever its mask.  Larger windows take
 * the fastest form of the passes the window allows:
 *   row pass     up to 6 wide, a loop over the taps; 7 or more, spans that
 *                double (pairs, 4, 8 ...) in a scratch row, so the work per
 *                byte grows with log2 of the width;
 *   column pass  up to 9 tall, two outputs at a time over a ring of h + 1
 *                rows, sharing their h - 1 middle rows (for windows up to 6
 *                wide the two new rows' row pass stays in registers); taller,
 *                blocks of h rows: an output is the extreme of its block's
 *                suffix and a running head of the next block, about three
 *                row operations per output whatever the height.
 * The extra ring row and the scratch row share the ring's one block; when
 * the total would not fit a 31-bit count the plain passes (taps across, the
 * ring's rows down) run instead.  Loops go 16 bytes at a time, then 8, then
 * single bytes, with unaligned loads that never leave the footprint or the
 * block.  All tiers run this SSE2 code (the small windows' byte shifts
 * aside) and agree.
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

#include "checks.h"
#include "piminmax_small.h"

namespace LUMI_NS {

inline LumStatus check_minmax(const void *pSrc, int32_t srcStep, const void *pDst,
                              int32_t dstStep, LumiSize roi, LumiSize mask, LumiPoint anchor)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!mask_positive(mask))
        return lumStsMaskSizeErr;
    if (!anchor_inside(anchor, mask))
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

/* Column pass: the extreme of `height` ring rows into a destination row. */
template <typename Op>
void ownlumiFilterExtreme_8u_Col(const Lum8u *ring, intptr_t ringStride, Lum8u *dst,
                                 int32_t bytes, int32_t height)
{
    extreme_taps<Op>(ring, height, ringStride, dst, bytes);
}

/* Wide windows: the extreme of `taps` neighbours by doubling spans in `tmp`
 * (at least bytes + (taps - 1) * stride bytes): pairs from the source, then
 * spans of 4, 8 ... while they stay within the window, each from two spans
 * of the level below, computed in place front to back (a position reads only
 * itself and positions after it).  The last step joins the two spans that
 * start at either end of the window.  Work per byte grows with log2(taps). */
template <typename Op>
void row_doubling(const Lum8u *src, Lum8u *tmp, Lum8u *out, int32_t bytes, int32_t taps,
                  int32_t stride)
{
    const int64_t full = (int64_t)bytes + (int64_t)(taps - 1) * stride;
    extreme_taps<Op>(src, 2, stride, tmp, (int32_t)(full - stride));
    int64_t span = 2;
    for (; span * 2 < taps; span *= 2)
        extreme_taps<Op>(tmp, 2, span * stride, tmp, (int32_t)(full - (2 * span - 1) * stride));
    extreme_taps<Op>(tmp, 2, (taps - span) * stride, out, bytes);
}

/* Rows taller than a few: blocks of `h` footprint rows.  Output y's window
 * is the tail of the block holding row y (its suffix extreme, Suf) and the
 * head of the next block up to row y + h - 1 (a running extreme, Pre, that
 * grows by one row per output).  At each block start the ring holds exactly
 * the block's rows, and their suffixes replace them in place; every later
 * output writes its new row over the suffix the previous output used.
 * About three row operations per output whatever the height. */
template <typename Op, int W>
void pre_and_out_block(const Lum8u *row, Lum8u *pre, const Lum8u *suf, Lum8u *dst, intptr_t i,
                       bool first)
{
    __m128i a = W == 16 ? load_bytes16(row + i) : load_bytes8(row + i);
    if (!first)
        a = Op::vec(a, W == 16 ? load_bytes16(pre + i) : load_bytes8(pre + i));
    const __m128i b = Op::vec(a, W == 16 ? load_bytes16(suf + i) : load_bytes8(suf + i));
    if (W == 16) {
        _mm_storeu_si128((__m128i *)(pre + i), a);
        _mm_storeu_si128((__m128i *)(dst + i), b);
    } else {
        _mm_storel_epi64((__m128i *)(pre + i), a);
        _mm_storel_epi64((__m128i *)(dst + i), b);
    }
}

/* pre = row (first) or the extreme of pre and row; dst = extreme of pre and suf. */
template <typename Op>
void pre_and_out(const Lum8u *row, Lum8u *pre, const Lum8u *suf, Lum8u *dst, int32_t len,
                 bool first)
{
    int32_t i = 0;
    for (; i + 16 <= len; i += 16)
        pre_and_out_block<Op, 16>(row, pre, suf, dst, i, first);
    if (i + 8 <= len) {
        pre_and_out_block<Op, 8>(row, pre, suf, dst, i, first);
        i += 8;
    }
    for (; i < len; ++i) {
        const Lum8u a = first ? row[i] : Op::one(row[i], pre[i]);
        pre[i] = a;
        dst[i] = Op::one(a, suf[i]);
    }
}

/* out = extreme of rows a and b; out may be a. */
template <typename Op>
void join_rows(const Lum8u *a, const Lum8u *b, Lum8u *out, int32_t len)
{
    pre_and_out<Op>(a, out, b, out, len, true);
}

/* Pair of outputs from h + 1 rows (rows[0] .. rows[h]): the h - 1 middle
 * rows are shared, each output adds its own end row. */
template <typename Op, int H, int W>
void pair_block(const Lum8u *const *rows, intptr_t i, Lum8u *d0, Lum8u *d1)
{
    __m128i c = W == 16 ? load_bytes16(rows[1] + i) : load_bytes8(rows[1] + i);
    for (int k = 2; k < H; ++k)
        c = Op::vec(c, W == 16 ? load_bytes16(rows[k] + i) : load_bytes8(rows[k] + i));
    const __m128i a = Op::vec(c, W == 16 ? load_bytes16(rows[0] + i) : load_bytes8(rows[0] + i));
    const __m128i b = Op::vec(c, W == 16 ? load_bytes16(rows[H] + i) : load_bytes8(rows[H] + i));
    if (W == 16) {
        _mm_storeu_si128((__m128i *)(d0 + i), a);
        _mm_storeu_si128((__m128i *)(d1 + i), b);
    } else {
        _mm_storel_epi64((__m128i *)(d0 + i), a);
        _mm_storel_epi64((__m128i *)(d1 + i), b);
    }
}

template <typename Op, int H>
void col_pair(const Lum8u *const *rows, Lum8u *d0, Lum8u *d1, int32_t len)
{
    int32_t i = 0;
    for (; i + 16 <= len; i += 16)
        pair_block<Op, H, 16>(rows, i, d0, d1);
    if (i + 8 <= len) {
        pair_block<Op, H, 8>(rows, i, d0, d1);
        i += 8;
    }
    for (; i < len; ++i) {
        Lum8u c = rows[1][i];
        for (int k = 2; k < H; ++k)
            c = Op::one(c, rows[k][i]);
        d0[i] = Op::one(c, rows[0][i]);
        d1[i] = Op::one(c, rows[H][i]);
    }
}

const int kPairMaxHeight = 9;

template <typename Op>
void col_pair_any(int32_t h, const Lum8u *const *rows, Lum8u *d0, Lum8u *d1, int32_t len)
{
    typedef void (*Fn)(const Lum8u *const *, Lum8u *, Lum8u *, int32_t);
    static const Fn fixed[kPairMaxHeight + 1] = {
        nullptr,           nullptr,           col_pair<Op, 2>, col_pair<Op, 3>, col_pair<Op, 4>,
        col_pair<Op, 5>, col_pair<Op, 6>, col_pair<Op, 7>, col_pair<Op, 8>, col_pair<Op, 9>};
    fixed[h](rows, d0, d1, len);
}

/* What a call works with: the ring, and when the block has room for them an
 * extra row (a ring slot or the running extreme) and the doubling row. */
struct ExtremeWork {
    Lum8u *ring;
    intptr_t padded;
    Lum8u *extra;   /* null: the plain passes */
    Lum8u *doubled; /* null: the row pass scans every tap */
};

template <typename Op>
void row_pass(const ExtremeWork &wk, const Lum8u *src, Lum8u *out, int32_t bytes, int32_t taps,
              int32_t stride)
{
    if (wk.doubled)
        row_doubling<Op>(src, wk.doubled, out, bytes, taps, stride);
    else
        extreme_taps<Op>(src, taps, stride, out, bytes);
}

template <int V>
__m128i load_v(const Lum8u *p)
{
    return V == 16 ? load_bytes16(p) : V == 8 ? load_bytes8(p) : _mm_cvtsi32_si128(*p);
}

template <int V>
void store_v(Lum8u *p, __m128i v)
{
    if (V == 16)
        _mm_storeu_si128((__m128i *)p, v);
    else if (V == 8)
        _mm_storel_epi64((__m128i *)p, v);
    else
        *p = (Lum8u)_mm_cvtsi128_si32(v);
}

/* Narrow windows, two outputs in one sweep: the row pass of the two new
 * source rows stays in registers for the column pass; only the ring's older
 * rows are read back.  rows[0 .. h] are the ring rows of footprint rows
 * y .. y + h, the last two to be filled here. */
template <typename Op, int W, int V>
void fused_pair_block(const Lum8u *s0, const Lum8u *s1, intptr_t stride, Lum8u *const *rows,
                      int32_t h, intptr_t i, Lum8u *d0, Lum8u *d1)
{
    const __m128i n0 = taps_vec<Op, W, load_v<V>>(s0 + i, W, stride);
    const __m128i n1 = taps_vec<Op, W, load_v<V>>(s1 + i, W, stride);
    store_v<V>(rows[h - 1] + i, n0);
    store_v<V>(rows[h] + i, n1);
    __m128i c = n0;
    for (int32_t k = 1; k + 1 < h; ++k)
        c = Op::vec(c, load_v<V>(rows[k] + i));
    store_v<V>(d0 + i, Op::vec(c, load_v<V>(rows[0] + i)));
    store_v<V>(d1 + i, Op::vec(c, n1));
}

template <typename Op, int W>
void fused_pair(const Lum8u *s0, const Lum8u *s1, intptr_t stride, Lum8u *const *ringRows,
                int32_t h, Lum8u *d0, Lum8u *d1, int32_t len)
{
    /* A local copy: the byte stores could otherwise alias the caller's
     * pointers and force them to be read again at every block. */
    Lum8u *rows[kPairMaxHeight + 1];
    for (int32_t k = 0; k <= h; ++k)
        rows[k] = ringRows[k];
    int32_t i = 0;
    for (; i + 16 <= len; i += 16)
        fused_pair_block<Op, W, 16>(s0, s1, stride, rows, h, i, d0, d1);
    if (i + 8 <= len) {
        fused_pair_block<Op, W, 8>(s0, s1, stride, rows, h, i, d0, d1);
        i += 8;
    }
    for (; i < len; ++i)
        fused_pair_block<Op, W, 1>(s0, s1, stride, rows, h, i, d0, d1);
}

const int kFusedMaxWidth = 6;

template <typename Op>
void fused_pair_any(int32_t taps, const Lum8u *s0, const Lum8u *s1, intptr_t stride,
                    Lum8u *const *rows, int32_t h, Lum8u *d0, Lum8u *d1, int32_t len)
{
    typedef void (*Fn)(const Lum8u *, const Lum8u *, intptr_t, Lum8u *const *, int32_t, Lum8u *,
                       Lum8u *, int32_t);
    static const Fn fixed[kFusedMaxWidth + 1] = {
        nullptr,           fused_pair<Op, 1>, fused_pair<Op, 2>, fused_pair<Op, 3>,
        fused_pair<Op, 4>, fused_pair<Op, 5>, fused_pair<Op, 6>};
    fixed[taps](s0, s1, stride, rows, h, d0, d1, len);
}

/* Heights up to kPairMaxHeight: a ring of h + 1 rows (the extra row the
 * last), two outputs at a time. */
template <typename Op>
void drive_pairs(const ExtremeWork &wk, const Lum8u *top, intptr_t srcStep, Lum8u *pDst,
                 intptr_t dstStep, LumiSize roi, int32_t h, int32_t bytes, int32_t taps,
                 int32_t stride)
{
    Lum8u *slot[kPairMaxHeight + 1];
    for (int32_t k = 0; k < h; ++k)
        slot[k] = wk.ring + k * wk.padded;
    slot[h] = wk.extra;
    const int32_t n = h + 1;
    for (int32_t k = 0; k + 1 < h; ++k)
        row_pass<Op>(wk, top + k * srcStep, slot[k], bytes, taps, stride);
    int32_t y = 0;
    const Lum8u *rows[kPairMaxHeight + 1];
    const bool fused = !wk.doubled && taps <= kFusedMaxWidth;
    for (; y + 2 <= roi.height; y += 2) {
        if (fused) {
            Lum8u *ordered[kPairMaxHeight + 1];
            for (int32_t k = 0; k <= h; ++k)
                ordered[k] = slot[(y + k) % n];
            fused_pair_any<Op>(taps, top + (y + h - 1) * srcStep, top + (y + h) * srcStep,
                               stride, ordered, h, pDst + y * dstStep, pDst + (y + 1) * dstStep,
                               bytes);
            continue;
        }
        for (int32_t k = y + h - 1; k <= y + h; ++k)
            row_pass<Op>(wk, top + k * srcStep, slot[k % n], bytes, taps, stride);
        for (int32_t k = 0; k <= h; ++k)
            rows[k] = slot[(y + k) % n];
        col_pair_any<Op>(h, rows, pDst + y * dstStep, pDst + (y + 1) * dstStep, bytes);
    }
    if (y < roi.height) {
        const int32_t k = y + h - 1;
        row_pass<Op>(wk, top + k * srcStep, slot[k % n], bytes, taps, stride);
        Lum8u *d = pDst + y * dstStep;
        /* The window's rows folded into the destination one at a time. */
        join_rows<Op>(slot[y % n], slot[(y + 1) % n], d, bytes);
        for (int32_t j = 2; j < h; ++j)
            join_rows<Op>(d, slot[(y + j) % n], d, bytes);
    }
}

/* Taller windows: the block scheme above, the extra row holding Pre. */
template <typename Op>
void drive_blocks(const ExtremeWork &wk, const Lum8u *top, intptr_t srcStep, Lum8u *pDst,
                  intptr_t dstStep, LumiSize roi, int32_t h, int32_t bytes, int32_t taps,
                  int32_t stride)
{
    Lum8u *const ring = wk.ring;
    const intptr_t pad = wk.padded;
    for (int32_t k = 0; k + 1 < h; ++k)
        row_pass<Op>(wk, top + k * srcStep, ring + k * pad, bytes, taps, stride);
    int32_t phase = 0; /* y mod h */
    for (int32_t y = 0; y < roi.height; ++y) {
        const int32_t k = y + h - 1;
        const intptr_t newSlot = phase == 0 ? h - 1 : phase - 1; /* k mod h */
        row_pass<Op>(wk, top + k * srcStep, ring + newSlot * pad, bytes, taps, stride);
        Lum8u *d = pDst + y * dstStep;
        if (phase == 0) {
            /* Rows y .. y + h - 1 sit in slots 0 .. h - 1 in order. */
            for (intptr_t s = h - 2; s >= 1; --s)
                join_rows<Op>(ring + s * pad, ring + (s + 1) * pad, ring + s * pad, bytes);
            join_rows<Op>(ring, ring + pad, d, bytes);
        } else {
            const Lum8u *suf = ring + phase * pad;
            pre_and_out<Op>(ring + newSlot * pad, wk.extra, suf, d, bytes, phase == 1);
        }
        phase = phase + 1 == h ? 0 : phase + 1;
    }
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
    const int32_t h = mask.height, taps = mask.width;
    /* The faster passes need an extra row and, for wide windows, the doubling
     * row; they share the ring's block when the total still fits. */
    const bool fastRows = taps >= 7;
    const bool fastCols = h >= 2 && roi.height >= 2;
    const int64_t full = bytes + (int64_t)(taps - 1) * channels;
    const int64_t extraBytes = (fastCols ? padded : 0) + (fastRows ? ((full + 31) & ~31) : 0);
    const int64_t ringBytes = padded * h;
    const bool useExtra = extraBytes > 0 && ringBytes + extraBytes <= INT32_MAX;
    Lum8u *ring =
        LUMI_T(lumsMalloc_8u)((int32_t)(useExtra ? ringBytes + extraBytes : ringBytes));
    if (!ring)
        return lumStsMemAllocErr;
    const Lum8u *top = pSrc - (intptr_t)anchor.y * srcStep - (intptr_t)anchor.x * channels;
    ExtremeWork wk = {ring, (intptr_t)padded, nullptr, nullptr};
    if (useExtra) {
        Lum8u *more = ring + ringBytes;
        if (fastCols) {
            wk.extra = more;
            more += padded;
        }
        if (fastRows)
            wk.doubled = more;
    }
    if (channels == 1 && taps <= kSmallMax && h <= kSmallMax) {
        small_window_any<Op>(top, srcStep, pDst, dstStep, roi, mask);
    } else if (wk.extra && h <= kPairMaxHeight) {
        drive_pairs<Op>(wk, top, srcStep, pDst, dstStep, roi, h, (int32_t)bytes, taps, channels);
    } else if (wk.extra) {
        drive_blocks<Op>(wk, top, srcStep, pDst, dstStep, roi, h, (int32_t)bytes, taps,
                         channels);
    } else {
        for (int32_t k = 0; k + 1 < h; ++k)
            row_pass<Op>(wk, top + (intptr_t)k * srcStep, ring + k * padded, (int32_t)bytes, taps,
                         channels);
        int32_t slot = h - 1;
        for (int32_t y = 0; y < roi.height; ++y) {
            row_pass<Op>(wk, top + (intptr_t)(y + h - 1) * srcStep, ring + slot * padded,
                         (int32_t)bytes, taps, channels);
            ownlumiFilterExtreme_8u_Col<Op>(ring, (intptr_t)padded, pDst + (intptr_t)y * dstStep,
                                            (int32_t)bytes, h);
            slot = slot + 1 == h ? 0 : slot + 1;
        }
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
