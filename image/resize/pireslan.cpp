/*
 * Lanczos resize kernels: three lobes, six taps at unit spacing in each
 * direction whatever the factor, in single precision.
 *
 * Weights.  For each output column and row, tap k (0 to 5) of reference
 * sample c stands on c + k - 2.  Its raw weight is read from the kernel
 * table at spacing 0.01 by linear interpolation, and the six are divided by
 * their sum.  The order of that sum depends on the parity of the column's
 * index (and on whether an even index is the last), which is part of the
 * result.
 *
 * Horizontal stage.  Taps that fall outside the image (not the region: the
 * region's neighbours are read where the image has them) are folded onto
 * the edge pixel by adding their weights.  Columns are taken in output
 * order: the left edge cases while they hold, then the interior while the
 * reference index is below imgW - 3, then the right edge cases.  The
 * interior of one channel goes in pairs of columns from the stretch's first:
 * an even index adds its products as ((a0 + a4) + a2) + ((a1 + a5) + a3),
 * an odd index as ((a0 + a2) + a4) + ((a1 + a3) + a5), and a last column
 * without a partner uses the first form.  Three channels add
 * ((a0 + a1) + (a2 + a3)) + (a4 + a5) for each channel.
 *
 * Vertical stage.  Six products added in tap order, rounded to the nearest
 * integer (ties to even), limited to 0 to 255.  Row buffers may hold values
 * beyond 0 to 255; only this stage limits.
 *
 * Tiers agree except in the four-term sums of the edge cases: the AVX tier
 * adds those in tap-order pairs (edge_sum4 below), so its filtered edge
 * columns may differ in the last bit and, rarely, an output byte by one.
 *
 * Row ring: six buffers hold the filtered rows r - 2 to r + 3.  Above the
 * image the first rows are copies; below it the last row is repeated.  With
 * yFactor at least 1.0 the rows advance by one at most and one row is
 * filtered per step; otherwise a jump of up to six rows refills as many
 * buffers, clamping the lower rows at the image's last row.
 */
#include "tier.h"

#include <emmintrin.h>
#include <pmmintrin.h>
#if LUMI_HAS_AVX
#include <immintrin.h>
#endif
#include <math.h>
#include <string.h>

#include "piresize.h"

namespace LUMI_NS {
namespace {

inline Lum32f table_at(const Lum32f *T, Lum32f d)
{
    const Lum32f m = fabsf(d);
    const Lum32f v = (m < 3.0f ? m : 3.0f) * 100.0f;
    const int32_t i = (int32_t)v;
    return (v - (Lum32f)i) * (T[i + 1] - T[i]) + T[i];
}

/* A four-term sum of an edge case, terms in tap order.  The chain is the
 * order of the other tiers (lastFirst: the last tap leads); the AVX tier
 * adds the terms in pairs, which is its defined result. */
inline Lum32f edge_sum4(Lum32f t0, Lum32f t1, Lum32f t2, Lum32f t3, bool lastFirst)
{
#if LUMI_HAS_AVX
    (void)lastFirst;
    return (t0 + t1) + (t2 + t3);
#else
    return lastFirst ? ((t3 + t0) + t1) + t2 : ((t0 + t1) + t2) + t3;
#endif
}

/* One filtered element at an edge case; p points at the reference sample's
 * channel, step is the pixel stride.  first is imgW - 1 - c for the right
 * edge cases, measured in pixels. */
inline Lum32f edge_value(const Lum8u *p, int32_t ps, const Lum32f *w, int32_t c, int32_t roiX,
                         int32_t imgW)
{
    auto a = [&](int32_t k) { return (Lum32f)p[(k - 2) * ps] * w[k]; };
    if (c <= 1 && roiX == 0) {
        const Lum32f P0 = p[-c * ps];
        if (c == 0)
            return ((w[0] + w[1]) + w[2]) * P0 + ((a(3) + a(4)) + a(5));
        return (w[0] + w[1]) * P0 + edge_sum4(a(2), a(3), a(4), a(5), false);
    }
    if (c == 0 && roiX == 1)
        return (w[0] + w[1]) * (Lum32f)p[-ps] + edge_sum4(a(2), a(3), a(4), a(5), false);
    const Lum32f last = p[(imgW - 1 - c) * ps];
    const bool lead = roiX == 0;
    if (c == imgW - 3)
        return (w[4] + w[5]) * last + edge_sum4(a(0), a(1), a(2), a(3), lead);
    if (c == imgW - 2)
        return ((w[3] + w[4]) + w[5]) * last + (lead ? (a(2) + a(0)) + a(1) : (a(0) + a(1)) + a(2));
    return edge_sum4(w[2], w[3], w[4], w[5], false) * last + (a(0) + a(1));
}

/* Six taps of one channel, bytes c - 2 to c + 3, as two float vectors. */
inline uint64_t six_bytes(const Lum8u *p)
{
    return (uint64_t)load_u32(p - 2) | ((uint64_t)(load_u32(p) >> 16) << 32);
}

/* Interior of one channel: columns [j, end).  Pairs from j; within a pair
 * the even index adds in order A and the odd in order B; a single last
 * column uses A. */
void interior_pl(const Lum8u *s, const int32_t *colOfs, const Lum32f *xw, Lum32f *out, int32_t j,
                 int32_t end)
{
    const __m128i zero = _mm_setzero_si128();
    const bool evenFirst = (j & 1) == 0;
    for (; j + 2 <= end; j += 2) {
        const uint64_t p = six_bytes(s + colOfs[j]), q = six_bytes(s + colOfs[j + 1]);
        const __m128i v = _mm_set_epi64x((int64_t)(q >> 16), (int64_t)(p | (q << 48)));
        const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
        const Lum32f *w = xw + 6 * j;
        /* m0 = a0..a3, m1 = a4 a5 b0 b1, m2 = b2..b5 (a: column j, b: j + 1) */
        const __m128 m0 = _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(lo, zero)), _mm_loadu_ps(w));
        const __m128 m1 = _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(lo, zero)), _mm_loadu_ps(w + 4));
        const __m128 m2 = _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(hi, zero)), _mm_loadu_ps(w + 8));
        /* first, second, third pair of taps of each column, per its order */
        const __m128 e01 = _mm_shuffle_ps(m0, m1, _MM_SHUFFLE(3, 2, 1, 0)); /* a0 a1 b0 b1 */
        __m128 x, y;
        if (evenFirst) {
            x = _mm_movelh_ps(m1, m2);                  /* a4 a5 b2 b3 */
            y = _mm_movehl_ps(m2, m0);                  /* a2 a3 b4 b5 */
        } else {
            x = _mm_shuffle_ps(m0, m2, _MM_SHUFFLE(3, 2, 3, 2)); /* a2 a3 b4 b5 */
            y = _mm_movelh_ps(m1, m2);                           /* a4 a5 b2 b3 */
        }
        const __m128 t = _mm_add_ps(_mm_add_ps(e01, x), y);
        _mm_storel_pi((__m64 *)(out + j), _mm_hadd_ps(t, t));
    }
    if (j < end) {
        const Lum8u *p = s + colOfs[j];
        const Lum32f *w = xw + 6 * j;
        Lum32f a[6];
        for (int32_t k = 0; k < 6; ++k)
            a[k] = (Lum32f)p[k - 2] * w[k];
        out[j] = ((a[0] + a[4]) + a[2]) + ((a[1] + a[5]) + a[3]);
    }
}

/* Interior of three channels: a pixel's channels in lanes 0 to 2 of a group
 * of four (two pixels in the AVX tier's eight lanes).  Lane 3 is overwritten
 * by the next pixel's store or lands in the buffer's spare room. */
void interior_px(const Lum8u *s, int32_t ps, const int32_t *colOfs, const Lum32f *xw,
                 Lum32f *out, int32_t j, int32_t end)
{
#if LUMI_HAS_AVX
    for (; j + 2 <= end; j += 2) {
        const Lum8u *p = s + colOfs[j], *q = s + colOfs[j + 1];
        const Lum32f *w = xw + 6 * j;
        __m256 a[6];
        for (int32_t k = 0; k < 6; ++k) {
            const __m256 v = _mm256_cvtepi32_ps(_mm256_insertf128_si256(
                _mm256_castsi128_si256(pixel_epi32(p + (k - 2) * ps, k == 5)),
                pixel_epi32(q + (k - 2) * ps, k == 5), 1));
            const __m256 wk = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_set1_ps(w[k])),
                                                   _mm_set1_ps(w[k + 6]), 1);
            a[k] = _mm256_mul_ps(v, wk);
        }
        const __m256 r = _mm256_add_ps(
            _mm256_add_ps(_mm256_add_ps(a[0], a[1]), _mm256_add_ps(a[2], a[3])),
            _mm256_add_ps(a[4], a[5]));
        _mm_storeu_ps(out + 3 * j, _mm256_castps256_ps128(r));
        _mm_storeu_ps(out + 3 * j + 3, _mm256_extractf128_ps(r, 1));
    }
#endif
    for (; j < end; ++j) {
        const Lum8u *p = s + colOfs[j];
        const Lum32f *w = xw + 6 * j;
        __m128 a[6];
        for (int32_t k = 0; k < 6; ++k)
            a[k] = _mm_mul_ps(_mm_cvtepi32_ps(pixel_epi32(p + (k - 2) * ps, k == 5)),
                              _mm_set1_ps(w[k]));
        const __m128 r = _mm_add_ps(_mm_add_ps(_mm_add_ps(a[0], a[1]), _mm_add_ps(a[2], a[3])),
                                    _mm_add_ps(a[4], a[5]));
        _mm_storeu_ps(out + 3 * j, r);
    }
}

/* Horizontal stage for both layouts: the left edge cases, the interior in
 * one stretch, then the right edge cases. */
template <int32_t Channels>
void row_lanczos(const Lum8u *s, int32_t ps, const int32_t *colOfs, const Lum32f *xw, Lum32f *out,
                 int32_t width, int32_t roiX, int32_t imgW)
{
    auto index = [&](int32_t j) { return Channels == 1 ? colOfs[j] : colOfs[j] / ps; };
    auto edge = [&](int32_t j) {
        const int32_t c = index(j);
        for (int32_t ch = 0; ch < Channels; ++ch)
            out[Channels * j + ch] = edge_value(s + colOfs[j] + ch, ps, xw + 6 * j, c, roiX, imgW);
    };
    int32_t j = 0;
    for (; j < width; ++j) {
        const int32_t c = index(j);
        if (!((roiX == 0 && c <= 1) || (roiX == 1 && c == 0)))
            break;
        edge(j);
    }
    int32_t end = j;
    while (end < width && index(end) < imgW - 3)
        ++end;
    if (Channels == 1)
        interior_pl(s, colOfs, xw, out, j, end);
    else
        interior_px(s, ps, colOfs, xw, out, j, end);
    for (j = end; j < width; ++j)
        edge(j);
}

/* Vertical stage: count elements, six products in tap order, rounded to
 * nearest even by the conversion. */
void col_lanczos(Lum8u *d, int32_t count, const Lum32f *yw, Lum32f *const *b)
{
    int32_t e = 0;
    const __m128 w0 = _mm_set1_ps(yw[0]), w1 = _mm_set1_ps(yw[1]), w2 = _mm_set1_ps(yw[2]);
    const __m128 w3 = _mm_set1_ps(yw[3]), w4 = _mm_set1_ps(yw[4]), w5 = _mm_set1_ps(yw[5]);
    auto group = [&](int32_t at) {
        __m128 s = _mm_mul_ps(w0, _mm_load_ps(b[0] + at));
        s = _mm_add_ps(s, _mm_mul_ps(w1, _mm_load_ps(b[1] + at)));
        s = _mm_add_ps(s, _mm_mul_ps(w2, _mm_load_ps(b[2] + at)));
        s = _mm_add_ps(s, _mm_mul_ps(w3, _mm_load_ps(b[3] + at)));
        s = _mm_add_ps(s, _mm_mul_ps(w4, _mm_load_ps(b[4] + at)));
        s = _mm_add_ps(s, _mm_mul_ps(w5, _mm_load_ps(b[5] + at)));
        return _mm_cvtps_epi32(s);
    };
#if LUMI_HAS_AVX
    auto group8 = [&](int32_t at) {
        __m256 s = _mm256_mul_ps(_mm256_set1_ps(yw[0]), _mm256_load_ps(b[0] + at));
        for (int32_t k = 1; k < 6; ++k)
            s = _mm256_add_ps(s, _mm256_mul_ps(_mm256_set1_ps(yw[k]), _mm256_load_ps(b[k] + at)));
        const __m256i q = _mm256_cvtps_epi32(s);
        return _mm_packs_epi32(_mm256_castsi256_si128(q), _mm256_extractf128_si256(q, 1));
    };
    for (; e + 16 <= count; e += 16)
        _mm_storeu_si128((__m128i *)(d + e), _mm_packus_epi16(group8(e), group8(e + 8)));
#endif
    for (; e + 16 <= count; e += 16) {
        const __m128i lo = _mm_packs_epi32(group(e), group(e + 4));
        const __m128i hi = _mm_packs_epi32(group(e + 8), group(e + 12));
        _mm_storeu_si128((__m128i *)(d + e), _mm_packus_epi16(lo, hi));
    }
    for (; e + 4 <= count; e += 4) {
        const __m128i a = _mm_packs_epi32(group(e), group(e));
        const uint32_t v = (uint32_t)_mm_cvtsi128_si32(_mm_packus_epi16(a, a));
        memcpy(d + e, &v, 4);
    }
    for (; e < count; ++e) {
        Lum32f s = yw[0] * b[0][e];
        for (int32_t k = 1; k < 6; ++k)
            s = s + yw[k] * b[k][e];
        const int32_t q = _mm_cvtss_si32(_mm_set_ss(s));
        d[e] = (Lum8u)(q < 0 ? 0 : q > 255 ? 255 : q);
    }
}

/* The row ring shared by both layouts; filter(row, buffer) runs the
 * horizontal stage of one source row, count is the elements of a row.
 * Offsets are pointer-width throughout. */
template <typename Filter>
void lanczos_rows(const ResizeLanczosArgs &args, int32_t count, Filter filter)
{
    const ResizeFrame &f = args.frame;
    const int32_t roiY = args.roiY, imgH = args.imgH;
    const ptrdiff_t S = f.srcStep;
    const bool down = S > 0;
    auto F = [&](ptrdiff_t o, Lum32f *b) { filter(f.src + o, b); };
    auto copy = [count](const Lum32f *from, Lum32f *to) { LUMI_T(lumsCopy_32f)(from, to, count); };
    auto reached = [down](ptrdiff_t o, ptrdiff_t mark) { return down ? o >= mark : o <= mark; };
    Lum32f *a[6] = {args.buf[0], args.buf[1], args.buf[2], args.buf[3], args.buf[4], args.buf[5]};

    const ptrdiff_t o0 = f.rowOfs[0];
    F(o0, a[3]);
    if (imgH == 1) {
        copy(a[3], a[4]);
        copy(a[3], a[5]);
    } else {
        F(o0 + S, a[4]);
        if (imgH == 2)
            copy(a[4], a[5]);
        else
            F(o0 + 2 * S, a[5]);
    }
    if (roiY == 0) {
        copy(a[3], a[1]);
        copy(a[3], a[2]);
    } else {
        F(o0 - S, a[2]);
        if (roiY == 1)
            copy(a[2], a[1]);
        else
            F(o0 - 2 * S, a[1]);
    }
    ptrdiff_t previous = down ? o0 - 1 : o0 + 1;
    /* The offsets of the image's last three rows. */
    const ptrdiff_t last1 = (ptrdiff_t)(imgH - 1) * S, last2 = (ptrdiff_t)(imgH - 2) * S;
    const ptrdiff_t last3 = (ptrdiff_t)(imgH - 3) * S;
    /* Moves the first n buffers of the ring up by one, the first to place n - 1. */
    auto rotate = [&a](int32_t n) {
        Lum32f *const t = a[0];
        for (int32_t k = 0; k + 1 < n; ++k)
            a[k] = a[k + 1];
        a[n - 1] = t;
    };

    Lum8u *d = f.dst;
    for (int32_t i = 0; i < f.height; ++i, d += f.dstStep) {
        const ptrdiff_t o = f.rowOfs[i];
        if (down ? o > previous : o < previous) {
            rotate(6);
            if (args.vertFlag) {
                if (down ? o < last3 : o > last3)
                    F(o + 3 * S, a[5]);
                else
                    copy(a[4], a[5]);
            } else {
                /* Rows below the reference, clamped at the image's last row. */
                const int32_t below = o == last1 ? 0 : o == last2 ? 1 : o == last3 ? 2 : 3;
                F(o + below * S, a[5]);
                if (reached(o, previous + 2 * S)) {
                    rotate(5);
                    F(o + (below < 2 ? below : 2) * S, a[4]);
                    if (reached(o, previous + 3 * S)) {
                        rotate(4);
                        F(o + (below < 1 ? below : 1) * S, a[3]);
                        if (reached(o, previous + 4 * S)) {
                            rotate(3);
                            F(o, a[2]);
                            if (reached(o, previous + 5 * S)) {
                                rotate(2);
                                F(o - S, a[1]);
                                if (reached(o, previous + 6 * S))
                                    F(o - 2 * S, a[0]);
                            }
                        }
                    }
                }
            }
            previous = o;
        }
        col_lanczos(d, count, args.yWeights + 6 * i, a);
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

/* Six normalised weights for each of count fractions. */
LUMI_MEMBER void LUMI_T(ownpi_Lanczos3)(const Lum32f *frac, int32_t count, Lum32f *weights,
                                        const Lum32f *table)
{
    for (int32_t n = 0; n < count; ++n) {
        const Lum32f u = (-frac[n]) - 2.0f;
        Lum32f g[6];
        for (int32_t k = 0; k < 6; ++k)
            g[k] = table_at(table, u + (Lum32f)k);
        Lum32f s = 0.0f;
        if ((n & 1) == 0 && n + 1 < count)
            s = (((((s + g[1]) + g[2]) + g[3]) + g[0]) + g[5]) + g[4];
        else if (n & 1)
            s = (((((s + g[0]) + g[1]) + g[3]) + g[4]) + g[5]) + g[2];
        else
            s = (((((s + g[0]) + g[1]) + g[3]) + g[2]) + g[4]) + g[5];
        for (int32_t k = 0; k < 6; ++k)
            weights[6 * n + k] = g[k] / s;
    }
}

/* The horizontal stage of one source row, both layouts. */
LUMI_MEMBER void LUMI_T(ownpi_RowLanczos8pl)(const Lum8u *src, const int32_t *colOfs,
                                             const Lum32f *xWeights, Lum32f *out, int32_t width,
                                             int32_t roiX, int32_t imgW)
{
    row_lanczos<1>(src, 1, colOfs, xWeights, out, width, roiX, imgW);
}

LUMI_MEMBER void LUMI_T(ownpi_RowLanczos8px)(const Lum8u *src, int32_t pixelStride,
                                             const int32_t *colOfs, const Lum32f *xWeights,
                                             Lum32f *out, int32_t width, int32_t roiX,
                                             int32_t imgW)
{
    row_lanczos<3>(src, pixelStride, colOfs, xWeights, out, width, roiX, imgW);
}

LUMI_MEMBER void LUMI_T(ownResize8plLz3)(const ResizeLanczosArgs *args)
{
    const ResizeFrame &f = args->frame;
    const int32_t width = f.width, roiX = args->roiX, imgW = args->imgW;
    const int32_t *colOfs = f.colOfs;
    const Lum32f *xWeights = args->xWeights;
    lanczos_rows(*args, width, [=](const Lum8u *row, Lum32f *out) {
        LUMI_T(ownpi_RowLanczos8pl)(row, colOfs, xWeights, out, width, roiX, imgW);
    });
}

LUMI_MEMBER void LUMI_T(ownResize8pxLz3)(const ResizeLanczosArgs *args)
{
    const ResizeFrame &f = args->frame;
    const int32_t width = f.width, pixelStride = f.pixelStride;
    const int32_t roiX = args->roiX, imgW = args->imgW;
    const int32_t *colOfs = f.colOfs;
    const Lum32f *xWeights = args->xWeights;
    lanczos_rows(*args, width * f.channelCount, [=](const Lum8u *row, Lum32f *out) {
        LUMI_T(ownpi_RowLanczos8px)(row, pixelStride, colOfs, xWeights, out, width, roiX, imgW);
    });
}
