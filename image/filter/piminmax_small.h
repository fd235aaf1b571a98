/*
 * Small windows of the minimum and maximum filters (up to kSmallMax pixels
 * each way, one channel): one pass over the source with no intermediate rows.
 *
 * Each sweep makes a pair of output rows (y, y + 1) from the h + 1 source
 * rows y .. y + h, 16 pixels at a time:
 *   columns  the extreme of source rows y + 1 .. y + h - 1, shared by both
 *            outputs, then that with row y for the first and with row y + h
 *            for the second (a single output row takes its h rows alone);
 *   across   from the column results of three consecutive blocks held in
 *            registers (cur, next, after next), with byte shifts joining
 *            neighbouring blocks:
 *              m2(x) = extreme of x, x + 1   (cur joined with next, by 1)
 *              m4(x) = m2(x), m2(x + 2)      (m2 of cur and of next, by 2)
 *              m5(x) = m4(x), col(x + 4)     (cur joined with next, by 4)
 *            Widths 1 to 3 stop earlier (col, m2, m2 with col(x + 2)).
 *            m2 of the block after is made once and carried, so a 5-wide
 *            window costs three shifts and three byte operations per block.
 * One store per 16 output pixels.  The sweep reads 32 columns ahead of the
 * block it writes; it runs while that stays inside the footprint.  The last
 * (at most 47) footprint columns take the column step into two small stack
 * rows with slack after them, the same sweep runs over those, and the
 * remaining outputs are copied out: nothing is read outside the footprint
 * and nothing written outside the region.
 *
 * The byte shifts across two registers are one instruction from SSSE3 on
 * and three below (pibytes.h); all tiers agree.
 */
#ifndef LUMI_PIMINMAX_SMALL_H
#define LUMI_PIMINMAX_SMALL_H

#include "tier.h"

#include <emmintrin.h>
#include <string.h>

#include "pibytes.h"

namespace LUMI_NS {

const int kSmallMax = 5;

/* Column extremes of the source rows r[0 .. H + N - 2] at byte x for N output
 * rows (1 or 2); a pair shares the extreme of its H - 1 middle rows. */
template <typename Op, int H, int N>
struct SourceColumns {
    const Lum8u *r[kSmallMax + 1];

    void load(intptr_t x, __m128i *v) const
    {
        if (N == 2 && H >= 2) {
            __m128i c = _mm_loadu_si128((const __m128i *)(r[1] + x));
            for (int k = 2; k < H; ++k)
                c = Op::vec(c, _mm_loadu_si128((const __m128i *)(r[k] + x)));
            v[0] = Op::vec(c, _mm_loadu_si128((const __m128i *)(r[0] + x)));
            v[1] = Op::vec(c, _mm_loadu_si128((const __m128i *)(r[H] + x)));
            return;
        }
        for (int o = 0; o < N; ++o) {
            v[o] = _mm_loadu_si128((const __m128i *)(r[o] + x));
            for (int k = 1; k < H; ++k)
                v[o] = Op::vec(v[o], _mm_loadu_si128((const __m128i *)(r[o + k] + x)));
        }
    }

    Lum8u one(intptr_t x, int o) const
    {
        Lum8u v = r[o][x];
        for (int k = 1; k < H; ++k)
            v = Op::one(v, r[o + k][x]);
        return v;
    }
};

/* Column results already made, one stack row per output. */
template <int N>
struct MadeColumns {
    const Lum8u *t[2];

    void load(intptr_t x, __m128i *v) const
    {
        for (int o = 0; o < N; ++o)
            v[o] = _mm_loadu_si128((const __m128i *)(t[o] + x));
    }
};

/* The window's extreme across W columns for the 16 pixels of cur. */
template <typename Op, int W>
inline __m128i across(__m128i cur, __m128i next, __m128i m2cur, __m128i m2next)
{
    if (W == 1)
        return cur;
    if (W == 2)
        return m2cur;
    if (W == 3)
        return Op::vec(m2cur, bytes_from<2>(next, cur));
    const __m128i m4 = Op::vec(m2cur, bytes_from<2>(m2next, m2cur));
    return W == 4 ? m4 : Op::vec(m4, bytes_from<4>(next, cur));
}

template <typename Op>
inline __m128i pairs_of(__m128i cur, __m128i next)
{
    return Op::vec(cur, bytes_from<1>(next, cur));
}

/* `blocks` blocks of 16 outputs into d[0 .. N - 1], reading columns 0 to
 * blocks * 16 + 31 of cols (blocks >= 1). */
template <typename Op, int W, int N, typename Cols>
void sweep(const Cols &cols, Lum8u *const *d, intptr_t blocks)
{
    __m128i cur[N], next[N], after[N], m2cur[N];
    cols.load(0, cur);
    cols.load(16, next);
    for (int o = 0; o < N; ++o)
        m2cur[o] = pairs_of<Op>(cur[o], next[o]);
    for (intptr_t b = 0; b < blocks; ++b) {
        cols.load(b * 16 + 32, after);
        for (int o = 0; o < N; ++o) {
            const __m128i m2next = pairs_of<Op>(next[o], after[o]);
            _mm_storeu_si128((__m128i *)(d[o] + b * 16),
                             across<Op, W>(cur[o], next[o], m2cur[o], m2next));
            cur[o] = next[o];
            next[o] = after[o];
            m2cur[o] = m2next;
        }
    }
}

/* N output rows of `width` pixels from the footprint rows in src. */
template <typename Op, int W, int H, int N>
void small_rows(const SourceColumns<Op, H, N> &src, Lum8u *const *d, int32_t width)
{
    const intptr_t span = (intptr_t)width + W - 1; /* footprint columns */
    const intptr_t blocks = span >= 48 ? (span - 48) / 16 + 1 : 0;
    if (blocks > 0)
        sweep<Op, W, N>(src, d, blocks);
    /* The rest: at most 47 columns, so three blocks and the 32 columns the
     * sweep reads ahead fit the stack rows. */
    const intptr_t x = blocks * 16;
    const intptr_t left = span - x;
    alignas(16) Lum8u made[2][80];
    alignas(16) Lum8u out[2][48];
    memset(made, 0, sizeof made);
    __m128i v[N];
    intptr_t c = 0;
    for (; c + 16 <= left; c += 16) {
        src.load(x + c, v);
        for (int o = 0; o < N; ++o)
            _mm_store_si128((__m128i *)(made[o] + c), v[o]);
    }
    if (c < left && left >= 16) {
        /* The last 16 columns again, overlapping what is done. */
        src.load(x + left - 16, v);
        for (int o = 0; o < N; ++o)
            _mm_storeu_si128((__m128i *)(made[o] + left - 16), v[o]);
    } else {
        for (; c < left; ++c)
            for (int o = 0; o < N; ++o)
                made[o][c] = src.one(x + c, o);
    }
    const MadeColumns<N> rest = {{made[0], made[1]}};
    Lum8u *const to[2] = {out[0], out[1]};
    const intptr_t outputs = width - x;
    sweep<Op, W, N>(rest, to, (outputs + 15) / 16);
    for (int o = 0; o < N; ++o)
        memcpy(d[o] + x, out[o], (size_t)outputs);
}

/* The whole region, two output rows per sweep and one for an odd last row. */
template <typename Op, int W, int H>
void small_window(const Lum8u *top, intptr_t srcStep, Lum8u *pDst, intptr_t dstStep, LumiSize roi)
{
    int32_t y = 0;
    for (; y + 2 <= roi.height; y += 2) {
        SourceColumns<Op, H, 2> src;
        for (int k = 0; k <= H; ++k)
            src.r[k] = top + (y + k) * srcStep;
        Lum8u *const d[2] = {pDst + y * dstStep, pDst + (y + 1) * dstStep};
        small_rows<Op, W, H, 2>(src, d, roi.width);
    }
    if (y < roi.height) {
        SourceColumns<Op, H, 1> src;
        for (int k = 0; k < H; ++k)
            src.r[k] = top + (y + k) * srcStep;
        Lum8u *const d[1] = {pDst + y * dstStep};
        small_rows<Op, W, H, 1>(src, d, roi.width);
    }
}

/* Any window up to kSmallMax each way but 1x1. */
template <typename Op>
void small_window_any(const Lum8u *top, intptr_t srcStep, Lum8u *pDst, intptr_t dstStep,
                      LumiSize roi, LumiSize mask)
{
    typedef void (*Fn)(const Lum8u *, intptr_t, Lum8u *, intptr_t, LumiSize);
#define LUMI_SMALL_ROW(w)                                                                         \
    {                                                                                             \
        small_window<Op, w, 1>, small_window<Op, w, 2>, small_window<Op, w, 3>,                   \
            small_window<Op, w, 4>, small_window<Op, w, 5>                                        \
    }
    static const Fn fixed[kSmallMax][kSmallMax] = {LUMI_SMALL_ROW(1), LUMI_SMALL_ROW(2),
                                                   LUMI_SMALL_ROW(3), LUMI_SMALL_ROW(4),
                                                   LUMI_SMALL_ROW(5)};
#undef LUMI_SMALL_ROW
    fixed[mask.width - 1][mask.height - 1](top, srcStep, pDst, dstStep, roi);
}

} // namespace LUMI_NS

#endif
