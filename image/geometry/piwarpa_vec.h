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
 * them.  SSE2 only, so every tier computes the same lanes; the SSE3 tier,
 * whose linear axis rule differs, keeps its scalar kernel.
 */
#ifndef LUMI_PIWARPA_VEC_H
#define LUMI_PIWARPA_VEC_H

#include <emmintrin.h>
#include <stddef.h>
#include <string.h>

#include "piremap_vec.h"

namespace LUMI_NS {

/* Writes the first m (1..4) of four pixels of S bytes each. */
template <int S> inline void warp_store4(Lum8u *d, const Lum8u *out, int32_t m)
{
    if (m >= 4)
        memcpy(d, out, 4 * S);
    else
        memcpy(d, out, (size_t)m * S);
}

/* ------------------------------------------------------------- nearest -- */

/* (col, row) of one point held in 0..(wMax, hMax); a NaN goes to 0. */
inline __m128i warp_nn_index(__m128d p, __m128d lim)
{
    return _mm_cvttpd_epi32(_mm_min_pd(_mm_max_pd(p, _mm_setzero_pd()), lim));
}

/* n pixels from the point (sx, sy) (0.5 already added), stepping by
 * (i0, i3). */
template <int S>
void warp_nn_span8u(const Lum8u *src, ptrdiff_t step, Lum8u *d, int32_t n, double sx, double sy, double i0,
                    double i3, int32_t wMax, int32_t hMax)
{
    const __m128d st = _mm_setr_pd(i0, i3), lim = _mm_setr_pd((double)wMax, (double)hMax);
    __m128d p = _mm_setr_pd(sx, sy);
    for (int32_t j = 0; j < n; j += 4, d += 4 * S) {
        const __m128d p1 = _mm_add_pd(p, st), p2 = _mm_add_pd(p1, st), p3 = _mm_add_pd(p2, st);
        int32_t cr[8];
        _mm_storeu_si128((__m128i *)cr, _mm_unpacklo_epi64(warp_nn_index(p, lim), warp_nn_index(p1, lim)));
        _mm_storeu_si128((__m128i *)(cr + 4), _mm_unpacklo_epi64(warp_nn_index(p2, lim), warp_nn_index(p3, lim)));
        p = _mm_add_pd(p3, st);
        Lum8u out[4 * S];
        for (int k = 0; k < 4; ++k)
            memcpy(out + k * S, src + (ptrdiff_t)cr[2 * k + 1] * step + (ptrdiff_t)cr[2 * k] * S, S);
        warp_store4<S>(d, out, n - j);
    }
}

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
        *i = remap_min_epi32(_mm_cvttps_epi32(c), maxm1);
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

/* Four pixels of one channel: two bytes of each of the two rows per pixel. */
inline void warp_lin_pixels_c1(const Lum8u *src, ptrdiff_t step, const int32_t cx[4], const int32_t cy[4], __m128 fx,
                               __m128 fy, Lum8u out[4])
{
    uint16_t t[4], b[4];
    for (int k = 0; k < 4; ++k) {
        const Lum8u *p = src + (ptrdiff_t)cy[k] * step + cx[k];
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

/* Four pixels of three channels: each pixel's elements in lanes 0..2. */
inline void warp_lin_pixels_c3(const Lum8u *src, ptrdiff_t step, const int32_t cx[4], const int32_t cy[4], __m128 fx,
                               __m128 fy, Lum8u out[12])
{
    const __m128i z = _mm_setzero_si128();
    __m128i v[4];
    for (int k = 0; k < 4; ++k) {
        const Lum8u *p = src + (ptrdiff_t)cy[k] * step + (ptrdiff_t)cx[k] * 3;
        const __m128i w = _mm_unpacklo_epi64(remap_load_bytes(p, 6), remap_load_bytes(p + step, 6));
        const __m128i top = _mm_unpacklo_epi8(w, z), bot = _mm_unpackhi_epi8(w, z);
        v[k] = warp_lerp(_mm_cvtepi32_ps(_mm_unpacklo_epi16(top, z)),
                         _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_srli_si128(top, 6), z)),
                         _mm_cvtepi32_ps(_mm_unpacklo_epi16(bot, z)),
                         _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_srli_si128(bot, 6), z)), RemapUnits<3>::spread(fx, k),
                         RemapUnits<3>::spread(fy, k));
    }
    remap_pack<3>(v, out);
}

/* n pixels from the point (sx, sy), the odd pixels from (sx + i0, sy + i3),
 * each accumulator stepping by twice the increment. */
template <int S>
void warp_linear_span8u(const Lum8u *src, ptrdiff_t step, Lum8u *d, int32_t n, double sx, double sy, double i0,
                        double i3, int32_t wMax, int32_t hMax)
{
    const __m128d stx = _mm_set1_pd(i0 + i0), sty = _mm_set1_pd(i3 + i3);
    __m128d ax = _mm_setr_pd(sx, sx + i0), ay = _mm_setr_pd(sy, sy + i3);
    const WarpLinAxis xa(wMax), ya(hMax);
    for (int32_t j = 0; j < n; j += 4, d += 4 * S) {
        const __m128d bx = _mm_add_pd(ax, stx), by = _mm_add_pd(ay, sty);
        const __m128 x = _mm_movelh_ps(_mm_cvtpd_ps(ax), _mm_cvtpd_ps(bx));
        const __m128 y = _mm_movelh_ps(_mm_cvtpd_ps(ay), _mm_cvtpd_ps(by));
        ax = _mm_add_pd(bx, stx), ay = _mm_add_pd(by, sty);
        __m128i ix, iy;
        __m128 fx, fy;
        xa.split(x, &ix, &fx);
        ya.split(y, &iy, &fy);
        int32_t cx[4], cy[4];
        remap_lanes_out(ix, cx);
        remap_lanes_out(iy, cy);
        Lum8u out[4 * S];
        if constexpr (S == 1)
            warp_lin_pixels_c1(src, step, cx, cy, fx, fy, out);
        else
            warp_lin_pixels_c3(src, step, cx, cy, fx, fy, out);
        warp_store4<S>(d, out, n - j);
    }
}

} // namespace LUMI_NS

#endif
