/*
 * Vector spans of the affine warp for 8-bit images of one and three
 * channels, nearest and linear (piwarpa.cpp chooses them).
 *
 * A span is taken four destination pixels at a time.  The inverse points are
 * stepped in double lanes with exactly the additions of the scalar walk: the
 * nearest kernel keeps (x, y) in one register and adds (i0, i3) per pixel;
 * the linear kernel keeps the even and the odd accumulator of x in one
 * register (and of y in another) and adds twice the increment per pair, so
 * every lane holds the value the scalar walk would hold.  Indices are held
 * inside the image as in the scalar kernels, which also makes the last,
 * partial group safe to compute whole: its extra lanes read pixels of the
 * image and are not stored.
 *
 * Linear: the points are narrowed to float, the base index is
 * min(trunc(clamp(v, 0, max)), max - 1) (equal to the scalar rule, since max
 * is held below 2^24 by the caller), the fraction v - base, and the 2 x 2
 * blend r = p0 + (p1 - p0) f across, then down, in float lanes; the byte is
 * trunc(min(255, v + 0.5)) packed with saturation, which gives the scalar
 * store's 0 for a negative value or a NaN.  Samples are gathered per pixel
 * (two bytes of two rows for one channel, six for three); for three
 * channels a pixel's elements sit in lanes 0..2 with its weights spread over
 * them, and the bytes are arranged by one shuffle (SSSE3 tiers).  Eight-byte
 * loads serve a group whose columns leave two pixels to the image's right
 * edge, exact six-byte loads any other.  The arithmetic is SSE2 and the
 * same in every tier; the SSE3 tier, whose linear axis rule differs, keeps
 * its scalar linear kernel.  Results are stored straight from registers, so
 * no wide load ever reads back bytes just stored in pieces.
 */
#ifndef LUMI_PIWARPA_VEC_H
#define LUMI_PIWARPA_VEC_H

#include <emmintrin.h>
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "piremap_vec.h"

#include "tier.h"
#if LUMI_HAS_AVX
#include <immintrin.h>
#elif LUMI_HAS_SSE41
#include <smmintrin.h>
#endif

namespace LUMI_NS {

/* ------------------------------------------------------------- nearest -- */

/* (col, row) of one point held in 0..(wMax, hMax); a NaN goes to 0. */
inline __m128i warp_nn_index(__m128d p, __m128d lim)
{
    return _mm_cvttpd_epi32(_mm_min_pd(_mm_max_pd(p, _mm_setzero_pd()), lim));
}

/* What every span needs: the source's first pixel and step,
 * the inverse increments along a row, the image's last column and row. */
struct WarpSrc8u {
    const Lum8u *src;
    ptrdiff_t step;
    double i0, i3;
    int32_t wMax, hMax;
    /* Bytes from a sample to where the span a few rows further down will
     * sample; only ever prefetched, never read. */
    ptrdiff_t ahead;
    /* Every pixel's offset row * step + col * S fits in 32 bits; stepv holds
     * the step in each lane. */
    bool off32;
    __m128i stepv;
};

/* Asks for the cache line that a later span will read.  A walk across a
 * turned image enters a new source row every few pixels, a pattern the
 * hardware's own prefetch does not follow. */
inline void warp_prefetch(const Lum8u *p, ptrdiff_t ahead)
{
    _mm_prefetch((const char *)((uintptr_t)p + (uintptr_t)ahead), _MM_HINT_T0);
}

/* The walk of one span: the point of the next pixel (0.5 added at the
 * span's start), stepped by (i0, i3) per pixel. */
template <int S> struct WarpNN8u {
    __m128d p;

    void start(double sx, double sy, double, double) { p = _mm_add_pd(_mm_setr_pd(sx, sy), _mm_set1_pd(0.5)); }

    /* The span's n pixels. */
    void run(const WarpSrc8u &c, Lum8u *d, int32_t n)
    {
        const __m128d st = _mm_setr_pd(c.i0, c.i3), lim = _mm_setr_pd((double)c.wMax, (double)c.hMax);
        for (int32_t j = 0; j < n; j += 4, d += 4 * S) {
            const __m128d p1 = _mm_add_pd(p, st), p2 = _mm_add_pd(p1, st), p3 = _mm_add_pd(p2, st);
            int32_t cr[8];
            _mm_storeu_si128((__m128i *)cr, _mm_unpacklo_epi64(warp_nn_index(p, lim), warp_nn_index(p1, lim)));
            _mm_storeu_si128((__m128i *)(cr + 4), _mm_unpacklo_epi64(warp_nn_index(p2, lim), warp_nn_index(p3, lim)));
            p = _mm_add_pd(p3, st);
            warp_prefetch(c.src + (ptrdiff_t)cr[1] * c.step + (ptrdiff_t)cr[0] * S, c.ahead);
            const int32_t m = n - j < 4 ? n - j : 4;
            for (int k = 0; k < m; ++k)
                memcpy(d + k * S, c.src + (ptrdiff_t)cr[2 * k + 1] * c.step + (ptrdiff_t)cr[2 * k] * S, S);
        }
    }
};

/* -------------------------------------------------------------- linear -- */

/* One axis of four float points: base index and fraction. */
struct WarpLinAxis {
    __m128 maxf;
    __m128i maxm1;

    explicit WarpLinAxis(int32_t max) : maxf(_mm_set1_ps((float)max)), maxm1(_mm_set1_epi32(max - 1)) {}

    void split(__m128 v, __m128i *i, __m128 *f) const
    {
        /* max_ps returns its second operand for a NaN, so a NaN takes 0 as
         * the scalar rule does. */
        const __m128 c = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), maxf);
#if LUMI_HAS_SSE41
        *i = _mm_min_epi32(_mm_cvttps_epi32(c), maxm1);
#else
        *i = remap_min_epi32(_mm_cvttps_epi32(c), maxm1);
#endif
        *f = _mm_sub_ps(v, _mm_cvtepi32_ps(*i));
    }
};

/* r0 = p00 + (p01 - p00) fx, r1 likewise, v = r0 + (r1 - r0) fy, then
 * trunc(min(255, v + 0.5)) in 32-bit lanes (negative and NaN lanes pack to
 * 0 later). */
inline __m128i warp_lerp(__m128 p00, __m128 p01, __m128 p10, __m128 p11, __m128 fx, __m128 fy)
{
    const __m128 r0 = _mm_add_ps(p00, _mm_mul_ps(_mm_sub_ps(p01, p00), fx));
    const __m128 r1 = _mm_add_ps(p10, _mm_mul_ps(_mm_sub_ps(p11, p10), fx));
    const __m128 v = _mm_add_ps(r0, _mm_mul_ps(_mm_sub_ps(r1, r0), fy));
    return _mm_cvttps_epi32(_mm_min_ps(_mm_set1_ps(255.0f), _mm_add_ps(v, _mm_set1_ps(0.5f))));
}

/* Four bytes from p, in any alignment. */
inline int warp_load4(const Lum8u *p)
{
    int v;
    memcpy(&v, p, 4);
    return v;
}

/* The lerps of pixels k and k + 1 of a group from their 32-bit samples,
 * with their lanes of fx and fy as weights; the AVX tier does both in one
 * eight-lane pass, the others one after the other, with the same lane
 * arithmetic. */
template <int k>
inline void warp_lerp2(const __m128i a[4], const __m128i b[4], __m128 fx, __m128 fy, __m128i *ra, __m128i *rb)
{
#if LUMI_HAS_AVX
    __m256 p[4];
    for (int t = 0; t < 4; ++t)
        p[t] = _mm256_cvtepi32_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(a[t]), b[t], 1));
    const __m256i pick = _mm256_setr_epi32(k, k, k, k, k + 1, k + 1, k + 1, k + 1);
    const __m256 wx = _mm256_permutevar_ps(_mm256_insertf128_ps(_mm256_castps128_ps256(fx), fx, 1), pick);
    const __m256 wy = _mm256_permutevar_ps(_mm256_insertf128_ps(_mm256_castps128_ps256(fy), fy, 1), pick);
    const __m256 r0 = _mm256_add_ps(p[0], _mm256_mul_ps(_mm256_sub_ps(p[1], p[0]), wx));
    const __m256 r1 = _mm256_add_ps(p[2], _mm256_mul_ps(_mm256_sub_ps(p[3], p[2]), wx));
    const __m256 v = _mm256_add_ps(r0, _mm256_mul_ps(_mm256_sub_ps(r1, r0), wy));
    const __m256i r = _mm256_cvttps_epi32(_mm256_min_ps(_mm256_set1_ps(255.0f), _mm256_add_ps(v, _mm256_set1_ps(0.5f))));
    *ra = _mm256_castsi256_si128(r);
    *rb = _mm256_extractf128_si256(r, 1);
#else
    *ra = warp_lerp(_mm_cvtepi32_ps(a[0]), _mm_cvtepi32_ps(a[1]), _mm_cvtepi32_ps(a[2]), _mm_cvtepi32_ps(a[3]),
                    RemapUnits<3>::spread(fx, k), RemapUnits<3>::spread(fy, k));
    *rb = warp_lerp(_mm_cvtepi32_ps(b[0]), _mm_cvtepi32_ps(b[1]), _mm_cvtepi32_ps(b[2]), _mm_cvtepi32_ps(b[3]),
                    RemapUnits<3>::spread(fx, k + 1), RemapUnits<3>::spread(fy, k + 1));
#endif
}

/* The first sample of each of four pixels: from 32-bit offsets row * step
 * + col * S when the caller has found that every offset in the image fits
 * (a multiply in lanes), else from 64-bit products. */
template <int S>
inline void warp_origins(const WarpSrc8u &c, __m128i ix, __m128i iy, const Lum8u *org[4])
{
    int32_t o[4];
    if (c.off32) {
#if LUMI_HAS_SSE41
        const __m128i rows = _mm_mullo_epi32(iy, c.stepv);
#else
        /* Low halves of the even and the odd lanes' products. */
        const __m128i even = _mm_mul_epu32(iy, c.stepv);
        const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(iy, 32), c.stepv);
        const __m128i rows = _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                                                _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0)));
#endif
        const __m128i cols = S == 3 ? _mm_add_epi32(_mm_add_epi32(ix, ix), ix) : ix;
        _mm_storeu_si128((__m128i *)o, _mm_add_epi32(rows, cols));
        for (int k = 0; k < 4; ++k)
            org[k] = c.src + o[k];
        return;
    }
    int32_t x[4], y[4];
    remap_lanes_out(ix, x);
    remap_lanes_out(iy, y);
    for (int k = 0; k < 4; ++k)
        org[k] = c.src + (ptrdiff_t)y[k] * c.step + (ptrdiff_t)x[k] * S;
}

/* Four pixels of one channel: two bytes of each of the two rows per pixel. */
inline void warp_lin_pixels_c1(const Lum8u *const org[4], ptrdiff_t step, __m128 fx, __m128 fy, Lum8u out[4])
{
    uint16_t t[4], b[4];
    for (int k = 0; k < 4; ++k) {
        const Lum8u *p = org[k];
        memcpy(&t[k], p, 2);
        memcpy(&b[k], p + step, 2);
    }
    const __m128i z = _mm_setzero_si128(), low = _mm_set1_epi32(0xFFFF);
    const __m128i v = _mm_setr_epi16((short)t[0], (short)t[1], (short)t[2], (short)t[3], (short)b[0], (short)b[1],
                                     (short)b[2], (short)b[3]);
    /* 32-bit lanes p0 | p1 << 16 of the top and the bottom row. */
    const __m128i top = _mm_unpacklo_epi8(v, z), bot = _mm_unpackhi_epi8(v, z);
    const __m128i r = warp_lerp(_mm_cvtepi32_ps(_mm_and_si128(top, low)), _mm_cvtepi32_ps(_mm_srli_epi32(top, 16)),
                                _mm_cvtepi32_ps(_mm_and_si128(bot, low)), _mm_cvtepi32_ps(_mm_srli_epi32(bot, 16)),
                                fx, fy);
    const int32_t packed = _mm_cvtsi128_si32(_mm_packus_epi16(_mm_packs_epi32(r, z), z));
    memcpy(out, &packed, 4);
}

/* Four pixels of three channels: each pixel's elements in lanes 0..2.  Wide:
 * every base column is at most wMax - 2, so eight bytes from a base stay
 * inside its row of the image; otherwise exactly six are read. */
template <bool Wide>
inline __m128i warp_lin_pixels_c3(const Lum8u *const org[4], ptrdiff_t step, __m128 fx, __m128 fy)
{
    /* Element e of the left (p0) or right (p1) pixel of the top (bytes 0..5)
     * or bottom (bytes 8..13) row, in 32-bit lanes. */
    static const int8_t k00[16] = {0, -1, -1, -1, 1, -1, -1, -1, 2, -1, -1, -1, 2, -1, -1, -1};
    static const int8_t k01[16] = {3, -1, -1, -1, 4, -1, -1, -1, 5, -1, -1, -1, 5, -1, -1, -1};
    static const int8_t k10[16] = {8, -1, -1, -1, 9, -1, -1, -1, 10, -1, -1, -1, 10, -1, -1, -1};
    static const int8_t k11[16] = {11, -1, -1, -1, 12, -1, -1, -1, 13, -1, -1, -1, 13, -1, -1, -1};
    __m128i v[4], t[4][4];
    for (int k = 0; k < 4; k += 2) {
        for (int h = k; h < k + 2; ++h) {
            const Lum8u *p = org[h];
#if LUMI_HAS_SSE41
            if (Wide) {
                /* Four bytes from each tap's first element, widened as they
                 * are loaded; the fourth lane is not used. */
                t[h][0] = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(warp_load4(p)));
                t[h][1] = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(warp_load4(p + 3)));
                t[h][2] = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(warp_load4(p + step)));
                t[h][3] = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(warp_load4(p + step + 3)));
                continue;
            }
#endif
            const __m128i w = Wide ? _mm_unpacklo_epi64(_mm_loadl_epi64((const __m128i *)p),
                                                        _mm_loadl_epi64((const __m128i *)(p + step)))
                                   : _mm_unpacklo_epi64(remap_load_bytes(p, 6), remap_load_bytes(p + step, 6));
            t[h][0] = remap_c3_arrange(w, k00), t[h][1] = remap_c3_arrange(w, k01);
            t[h][2] = remap_c3_arrange(w, k10), t[h][3] = remap_c3_arrange(w, k11);
        }
        if (k == 0)
            warp_lerp2<0>(t[0], t[1], fx, fy, &v[0], &v[1]);
        else
            warp_lerp2<2>(t[2], t[3], fx, fy, &v[2], &v[3]);
    }
    /* Lanes 0..2 of each pixel, saturated, to twelve bytes in order. */
    static const int8_t pack[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1};
    const __m128i b = _mm_packus_epi16(_mm_packs_epi32(v[0], v[1]), _mm_packs_epi32(v[2], v[3]));
    return remap_c3_arrange(b, pack);
}

/* The walk of one span: the even pixels' point and the odd pixels' point
 * (x in one register, y in the other), each stepped by twice the
 * increment. */
template <int S> struct WarpLinear8u {
    __m128d ax, ay;

    void start(double sx, double sy, double i0, double i3)
    {
        ax = _mm_setr_pd(sx, sx + i0), ay = _mm_setr_pd(sy, sy + i3);
    }

    /* The span's n pixels. */
    void run(const WarpSrc8u &c, Lum8u *d, int32_t n)
    {
        const __m128d stx = _mm_set1_pd(c.i0 + c.i0), sty = _mm_set1_pd(c.i3 + c.i3);
        const WarpLinAxis xa(c.wMax), ya(c.hMax);
        const __m128i wide = _mm_set1_epi32(c.wMax - 2);
        for (int32_t j = 0; j < n; j += 4, d += 4 * S) {
            const __m128d bx = _mm_add_pd(ax, stx), by = _mm_add_pd(ay, sty);
            const __m128 x = _mm_movelh_ps(_mm_cvtpd_ps(ax), _mm_cvtpd_ps(bx));
            const __m128 y = _mm_movelh_ps(_mm_cvtpd_ps(ay), _mm_cvtpd_ps(by));
            ax = _mm_add_pd(bx, stx), ay = _mm_add_pd(by, sty);
            __m128i ix, iy;
            __m128 fx, fy;
            xa.split(x, &ix, &fx);
            ya.split(y, &iy, &fy);
            const Lum8u *org[4];
            warp_origins<S>(c, ix, iy, org);
            warp_prefetch(org[0], c.ahead);
            if constexpr (S == 1) {
                Lum8u out[4];
                warp_lin_pixels_c1(org, c.step, fx, fy, out);
                memcpy(d, out, n - j < 4 ? (size_t)(n - j) : 4);
            } else {
                const __m128i out = _mm_movemask_epi8(_mm_cmpgt_epi32(ix, wide)) == 0
                                        ? warp_lin_pixels_c3<true>(org, c.step, fx, fy)
                                        : warp_lin_pixels_c3<false>(org, c.step, fx, fy);
                if (n - j >= 4) {
                    _mm_storel_epi64((__m128i *)d, out);
                    const int32_t last = _mm_cvtsi128_si32(_mm_srli_si128(out, 8));
                    memcpy(d + 8, &last, 4);
                } else {
                    Lum8u tmp[16];
                    _mm_storeu_si128((__m128i *)tmp, out);
                    memcpy(d, tmp, (size_t)(n - j) * 3);
                }
            }
        }
    }
};

} // namespace LUMI_NS

#endif
