/*
 * Cubic resize kernels: the cubic through four samples at -1, 0, 1, 2 around
 * a centre, first along the source rows, then down the columns, in single
 * precision.
 *
 * The polynomial is written in forward differences from the first sample:
 *     value = s0 + c1 d1 + c2 d2 + c3 d3,
 *     c1 = t + 1,  c2 = c1 t / 2,  c3 = c2 (t - 1) / 3,
 * with d1, d2, d3 the first, second and third differences.  The tables move
 * the window inward at the image's edges, so t runs from -1 (first pixel)
 * to exactly 2 (last pixel) and every sample lies inside the image.
 *
 * Three evaluation orders give slightly different roundings, and each
 * element gets a fixed one:
 *   V   the grouped order: the third is multiplied as 0x3EAAAAAA (one unit
 *       below the float nearest 1/3), the final sum pairs the terms, and the
 *       vertical result is truncated after adding 0x3F000002;
 *   SH  the horizontal single-pixel order: divides by 3.0, adds in a chain;
 *   SV  the vertical single-element order: c2 as (c1 / 2) t, its own
 *       difference order, rounded in double with 0.5000001.
 * One channel: columns and elements in whole groups of four use V, the last
 * 0 to 3 use SH (horizontal) or SV (vertical).  Three channels: every pixel
 * uses V horizontally (the three channels of a pixel share t); vertically
 * the 3 W elements are one plain row split the same way.  Float arithmetic
 * is per element, so the width of a group changes no result: every tier
 * gives the same bytes.
 *
 * Horizontal results stay floats, negative or above 255 as they come; only
 * the vertical stage limits to 0 to 255.
 *
 * Row ring: four buffers hold the filtered source rows centre - 1 to
 * centre + 2.  When the centre moves by one row the ring rotates and the new
 * bottom row is filtered; after a jump of two, three or four rows or more the
 * ring also refills the next rows up, so every source row is filtered at most
 * once while the rows advance.
 */
#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_AVX
#include <immintrin.h>
#elif LUMI_HAS_SSE41
#include <smmintrin.h>
#elif LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif
#include <string.h>

#include "piresize.h"

namespace LUMI_NS {
namespace {

const Lum32f kThirdV = 0.33333331f;  /* 0x3EAAAAAA */
const Lum32f kRoundV = 0.50000012f;  /* 0x3F000002 */
const double kRoundSV = 0.5000001;


/* Lane-wise float arithmetic on 4 lanes, and on 8 in the AVX tier, so that
 * one formula serves both widths. */
inline __m128 vadd(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128 vsub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
inline __m128 vmul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
inline void vsplat(__m128 &v, Lum32f x) { v = _mm_set1_ps(x); }
#if LUMI_HAS_AVX
inline __m256 vadd(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 vsub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256 vmul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
inline void vsplat(__m256 &v, Lum32f x) { v = _mm256_set1_ps(x); }
#endif

template <typename V>
inline V splat(Lum32f x)
{
    V v;
    vsplat(v, x);
    return v;
}

/* Coefficients of t, grouped order. */
template <typename V>
struct CoefV {
    V c1, c2, c3;
};

template <typename V>
inline CoefV<V> coef_v(V t)
{
    CoefV<V> c;
    c.c1 = vadd(t, splat<V>(1.0f));
    c.c2 = vmul(vmul(t, splat<V>(0.5f)), c.c1);
    c.c3 = vmul(vmul(vsub(t, splat<V>(1.0f)), splat<V>(kThirdV)), c.c2);
    return c;
}

/* The grouped order on four samples: the unrounded value. */
template <typename V>
inline V cubic_v(const CoefV<V> &c, V s0, V s1, V s2, V s3)
{
    const V d1 = vsub(s1, s0);
    const V d2 = vsub(vsub(s2, s1), d1);
    const V d3 = vadd(vsub(vsub(s3, s2), s2), vsub(s1, d2));
    return vadd(vadd(s0, vmul(c.c1, d1)), vadd(vmul(c.c2, d2), vmul(c.c3, d3)));
}

/* Single pixel, horizontal order.  The samples are whole numbers, so the
 * differences are exact. */
inline Lum32f cubic_sh(Lum32f t, Lum32f s0, Lum32f s1, Lum32f s2, Lum32f s3)
{
    const Lum32f c1 = 1.0f + t;
    const Lum32f c2 = (0.5f * t) * c1;
    const Lum32f c3 = ((t - 1.0f) * c2) / 3.0f;
    const Lum32f d1 = s1 - s0;
    const Lum32f d2 = (s2 - s1) - d1;
    const Lum32f d3 = ((0.0f - ((s2 - s1) + s2)) + s3) - d2;
    return ((s0 + c1 * d1) + c2 * d2) + c3 * d3;
}

/* The four taps of four columns, tap-major: byte 4 tap + k is the sample
 * at colOfs[k] - 1 + tap.  Where the group is narrow and not at the row's
 * end, one 16-byte load and a byte shuffle (SSSE3 and up) replace the four
 * word loads; the load reads only bytes that the row's samples cover.
 * Column offsets never decrease (positions grow by a step of at least 0). */
inline __m128i gather_taps(const Lum8u *s, const int32_t *c, int32_t lastOfs)
{
#if LUMI_HAS_SSSE3
    if (c[3] - c[0] <= 12 && c[0] + 12 <= lastOfs) {
        __m128i d = _mm_sub_epi32(_mm_loadu_si128((const __m128i *)c), _mm_set1_epi32(c[0]));
        d = _mm_packs_epi32(d, d);
        d = _mm_shuffle_epi32(_mm_packus_epi16(d, d), 0);
        const __m128i mask =
            _mm_add_epi8(d, _mm_setr_epi8(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3));
        return _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)(s + c[0] - 1)), mask);
    }
#endif
    (void)lastOfs;
    __m128i v = _mm_setr_epi32((int32_t)load_u32(s + c[0] - 1), (int32_t)load_u32(s + c[1] - 1),
                               (int32_t)load_u32(s + c[2] - 1), (int32_t)load_u32(s + c[3] - 1));
    /* columns x taps -> taps x columns */
    v = _mm_unpacklo_epi8(v, _mm_srli_si128(v, 8));
    return _mm_unpacklo_epi8(v, _mm_srli_si128(v, 8));
}

/* The sixteen tap-major bytes of gather_taps as four vectors of 32-bit lanes,
 * one a tap. */
inline void widen_taps(__m128i v, __m128i t[4])
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
    t[0] = _mm_unpacklo_epi16(lo, zero);
    t[1] = _mm_unpackhi_epi16(lo, zero);
    t[2] = _mm_unpacklo_epi16(hi, zero);
    t[3] = _mm_unpackhi_epi16(hi, zero);
}

/* Horizontal stage, one channel: groups of four columns in the grouped
 * order, the rest one at a time. */
void coef_cubic_pl(const Lum8u *s, int32_t width, const int32_t *colOfs, const Lum32f *xFrac,
                   Lum32f *out)
{
    const int32_t grouped = width & ~3;
    const int32_t lastOfs = width > 0 ? colOfs[width - 1] : 0;
    int32_t j = 0;
#if LUMI_HAS_AVX
    for (; j + 8 <= grouped; j += 8) {
        const __m128i a = gather_taps(s, colOfs + j, lastOfs);
        const __m128i b = gather_taps(s, colOfs + j + 4, lastOfs);
        __m128i ta[4], tb[4];
        widen_taps(a, ta);
        widen_taps(b, tb);
        __m256 t[4];
        for (int32_t k = 0; k < 4; ++k)
            t[k] = _mm256_cvtepi32_ps(
                _mm256_insertf128_si256(_mm256_castsi128_si256(ta[k]), tb[k], 1));
        _mm256_store_ps(out + j, cubic_v(coef_v(_mm256_loadu_ps(xFrac + j)), t[0], t[1], t[2], t[3]));
    }
#endif
    for (; j < grouped; j += 4) {
        __m128i t[4];
        widen_taps(gather_taps(s, colOfs + j, lastOfs), t);
        _mm_store_ps(out + j, cubic_v(coef_v(_mm_loadu_ps(xFrac + j)), _mm_cvtepi32_ps(t[0]),
                                      _mm_cvtepi32_ps(t[1]), _mm_cvtepi32_ps(t[2]),
                                      _mm_cvtepi32_ps(t[3])));
    }
    for (int32_t j = grouped; j < width; ++j) {
        const Lum8u *p = s + colOfs[j];
        out[j] = cubic_sh(xFrac[j], p[-1], p[0], p[1], p[2]);
    }
}

/* Horizontal stage, three channels: a pixel's channels in lanes 0 to 2 of a
 * group of four (two pixels in the AVX tier's eight lanes).  Lane 3 is
 * overwritten by the next pixel's store and, after the last pixel, lands in
 * the buffer's spare room. */
void coef_cubic_px(const Lum8u *s, int32_t width, int32_t pixelStride, const int32_t *colOfs,
                   const Lum32f *xFrac, Lum32f *out)
{
    const int32_t ps = pixelStride;
    int32_t j = 0;
#if LUMI_HAS_AVX
    for (; j + 2 <= width; j += 2) {
        const Lum8u *p = s + colOfs[j], *q = s + colOfs[j + 1];
        __m256 t[4];
        for (int32_t k = 0; k < 4; ++k)
            t[k] = _mm256_cvtepi32_ps(_mm256_insertf128_si256(
                _mm256_castsi128_si256(pixel_epi32(p + (k - 1) * ps, k == 3)),
                pixel_epi32(q + (k - 1) * ps, k == 3), 1));
        const __m256 f = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_set1_ps(xFrac[j])),
                                              _mm_set1_ps(xFrac[j + 1]), 1);
        const __m256 v = cubic_v(coef_v(f), t[0], t[1], t[2], t[3]);
        _mm_storeu_ps(out + 3 * j, _mm256_castps256_ps128(v));
        _mm_storeu_ps(out + 3 * j + 3, _mm256_extractf128_ps(v, 1));
    }
#endif
    for (; j < width; ++j) {
        const Lum8u *p = s + colOfs[j];
        __m128 t[4];
        for (int32_t k = 0; k < 4; ++k)
            t[k] = _mm_cvtepi32_ps(pixel_epi32(p + (k - 1) * ps, k == 3));
        _mm_storeu_ps(out + 3 * j, cubic_v(coef_v(_mm_set1_ps(xFrac[j])), t[0], t[1], t[2], t[3]));
    }
}

/* Vertical stage: count elements from the four buffers r0 (top) to r3. */
void summ_cubic(Lum8u *d, int32_t count, Lum32f t, const Lum32f *r0, const Lum32f *r1,
                const Lum32f *r2, const Lum32f *r3)
{
    const int32_t grouped = count & ~3;
    const auto c = coef_v(_mm_set1_ps(t));
    const __m128 rnd = _mm_set1_ps(kRoundV);
    int32_t e = 0;
    auto group = [&](int32_t at) {
        const __m128 v = cubic_v(c, _mm_load_ps(r0 + at), _mm_load_ps(r1 + at),
                                 _mm_load_ps(r2 + at), _mm_load_ps(r3 + at));
        return _mm_cvttps_epi32(_mm_add_ps(v, rnd));
    };
#if LUMI_HAS_AVX
    const auto c8 = coef_v(_mm256_set1_ps(t));
    const __m256 rnd8 = _mm256_set1_ps(kRoundV);
    auto group8 = [&](int32_t at) {
        const __m256 v = cubic_v(c8, _mm256_load_ps(r0 + at), _mm256_load_ps(r1 + at),
                                 _mm256_load_ps(r2 + at), _mm256_load_ps(r3 + at));
        const __m256i q = _mm256_cvttps_epi32(_mm256_add_ps(v, rnd8));
        return _mm_packs_epi32(_mm256_castsi256_si128(q), _mm256_extractf128_si256(q, 1));
    };
    for (; e + 16 <= grouped; e += 16)
        _mm_storeu_si128((__m128i *)(d + e), _mm_packus_epi16(group8(e), group8(e + 8)));
#endif
    for (; e + 16 <= grouped; e += 16) {
        const __m128i a = _mm_packs_epi32(group(e), group(e + 4));
        const __m128i b = _mm_packs_epi32(group(e + 8), group(e + 12));
        _mm_storeu_si128((__m128i *)(d + e), _mm_packus_epi16(a, b));
    }
    for (; e < grouped; e += 4) {
        const __m128i a = _mm_packs_epi32(group(e), group(e));
        const uint32_t v = (uint32_t)_mm_cvtsi128_si32(_mm_packus_epi16(a, a));
        memcpy(d + e, &v, 4);
    }
    if (e == count)
        return;
    /* Single elements: the vertical order. */
    const Lum32f c1 = 1.0f + t;
    const Lum32f c2 = (0.5f * c1) * t;
    const Lum32f c3 = ((t - 1.0f) * c2) / 3.0f;
    for (; e < count; ++e) {
        const Lum32f s0 = r0[e], s1 = r1[e], s2 = r2[e], s3 = r3[e];
        const Lum32f d1 = s1 - s0;
        const Lum32f d2 = (s2 - d1) - s1;
        const Lum32f d3 = (((s3 - d2) - s2) - s2) + s1;
        const Lum32f v = ((c1 * d1 + c2 * d2) + s0) + c3 * d3;
        const int32_t q = (int32_t)((double)v + kRoundSV);
        d[e] = (Lum8u)(q < 0 ? 0 : q > 255 ? 255 : q);
    }
}

/* The row ring shared by both layouts; filter(row, buffer) runs the
 * horizontal stage of one source row, count is the elements of an output
 * row.  "Moved" and "at or beyond" are in the direction of the source step;
 * offsets are pointer-width throughout. */
template <typename Filter>
void cubic_rows(const ResizeCubicArgs &a, int32_t count, Filter filter)
{
    const ResizeFrame &f = a.frame;
    const ptrdiff_t S = f.srcStep;
    const bool down = S > 0;
    auto reached = [down](ptrdiff_t o, ptrdiff_t mark) { return down ? o >= mark : o <= mark; };
    const ptrdiff_t o0 = f.rowOfs[0];
    filter(f.src + o0 - S, a.buf[1]);
    filter(f.src + o0, a.buf[2]);
    filter(f.src + o0 + S, a.buf[3]);
    Lum32f *r0 = a.buf[0], *r1 = a.buf[1], *r2 = a.buf[2], *r3 = a.buf[3];
    ptrdiff_t previous = down ? o0 - 1 : o0 + 1;
    Lum8u *d = f.dst;
    for (int32_t i = 0; i < f.height; ++i, d += f.dstStep) {
        const ptrdiff_t o = f.rowOfs[i];
        if (down ? o > previous : o < previous) {
            Lum32f *const t = r0;
            r0 = r1, r1 = r2, r2 = r3, r3 = t;
            filter(f.src + o + 2 * S, r3);
            if (reached(o, previous + 2 * S)) {
                Lum32f *const u = r0;
                r0 = r1, r1 = r2, r2 = u;
                filter(f.src + o + S, r2);
                if (reached(o, previous + 3 * S)) {
                    Lum32f *const w = r0;
                    r0 = r1, r1 = w;
                    filter(f.src + o, r1);
                    if (reached(o, previous + 4 * S))
                        filter(f.src + o - S, r0);
                }
            }
            previous = o;
        }
        summ_cubic(d, count, a.yFrac[i], r0, r1, r2, r3);
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

/* The stages as members: horizontal for one and three channels, vertical for
 * a plain row of elements. */
LUMI_MEMBER void LUMI_T(ownpi_CoefCubic8pl)(const Lum8u *src, int32_t width, const int32_t *colOfs,
                                            const Lum32f *xFrac, Lum32f *out)
{
    coef_cubic_pl(src, width, colOfs, xFrac, out);
}

LUMI_MEMBER void LUMI_T(ownpi_CoefCubic8px)(const Lum8u *src, int32_t width, int32_t pixelStride,
                                            const int32_t *colOfs, const Lum32f *xFrac,
                                            Lum32f *out)
{
    coef_cubic_px(src, width, pixelStride, colOfs, xFrac, out);
}

LUMI_MEMBER void LUMI_T(ownpi_SummCubic8pl)(Lum8u *dst, int32_t count, const Lum32f *yFrac,
                                            const Lum32f *r0, const Lum32f *r1, const Lum32f *r2,
                                            const Lum32f *r3)
{
    summ_cubic(dst, count, *yFrac, r0, r1, r2, r3);
}

LUMI_MEMBER void LUMI_T(ownResize8plC)(const ResizeCubicArgs *args)
{
    const int32_t width = args->frame.width;
    const int32_t *colOfs = args->frame.colOfs;
    const Lum32f *xFrac = args->xFrac;
    cubic_rows(*args, width, [=](const Lum8u *row, Lum32f *buf) {
        coef_cubic_pl(row, width, colOfs, xFrac, buf);
    });
}

LUMI_MEMBER void LUMI_T(ownResize8pxC)(const ResizeCubicArgs *args)
{
    const int32_t width = args->frame.width, pixelStride = args->frame.pixelStride;
    const int32_t *colOfs = args->frame.colOfs;
    const Lum32f *xFrac = args->xFrac;
    cubic_rows(*args, width * args->frame.channelCount, [=](const Lum8u *row, Lum32f *buf) {
        coef_cubic_px(row, width, pixelStride, colOfs, xFrac, buf);
    });
}
