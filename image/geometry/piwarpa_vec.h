/*
 * Vector spans of the affine warp for 8-bit images of one and three
 * channels, nearest and linear (piwarpa.cpp chooses them).
 *
 * A span is taken four destination pixels at a time (eight for linear three
 * channels on the AVX tier).  The inverse points are
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
 * (two bytes of two rows for one channel, six for three).  Three channels
 * are computed element by element: the four pixels' rows are transposed so
 * that lane k holds pixel k's bytes, each element of each tap goes to its
 * own float vector (by a byte shuffle, or on the AVX tier by a mask and an
 * exact scale), and every lane takes its pixel's fractions as they stand,
 * so no lane is idle and no weight is moved; the twelve bytes are put back
 * in pixel order by one shuffle (SSSE3 tiers).  The AVX tier takes eight
 * pixels a block and blends them in its 256-bit float lanes, with the same
 * lane arithmetic.  Eight-byte loads serve a block whose
 * columns leave two pixels to the image's right edge, exact six-byte loads
 * any other.  The arithmetic is the same in every tier; the SSE3 tier,
 * whose linear axis rule differs, keeps its scalar linear kernel.  Results
 * are stored straight from registers, so no wide load ever reads back
 * bytes just stored in pieces.
 */
#ifndef LUMI_PIWARPA_VEC_H
#define LUMI_PIWARPA_VEC_H

#include <emmintrin.h>
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>

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

/* The first sample of each of four pixels: from 32-bit offsets row * step
 * + col * S when the caller has found that every offset in the image fits
 * (a multiply in lanes), else from 64-bit products. */
template <int S>
inline void warp_origins(const WarpSrc8u &c, __m128i ix, __m128i iy, const Lum8u *org[4])
{
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
        const __m128i off = _mm_add_epi32(rows, cols);
        /* Two offsets a 64-bit move, split by shifts in general registers. */
        const int64_t lo = _mm_cvtsi128_si64(off), hi = _mm_cvtsi128_si64(_mm_unpackhi_epi64(off, off));
        org[0] = c.src + (int32_t)lo, org[1] = c.src + (lo >> 32);
        org[2] = c.src + (int32_t)hi, org[3] = c.src + (hi >> 32);
        return;
    }
    remap_origins<S>(c.src, c.step, ix, iy, org);
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

/* The walk of four pixels a step: the even pixels' point and the odd
 * pixels' point (x in one register, y in the other), each stepped by twice
 * the increment. */
struct WarpLinPairs {
    __m128d ax, ay, stx, sty;

    void start(double sx, double sy, double i0, double i3)
    {
        ax = _mm_setr_pd(sx, sx + i0), ay = _mm_setr_pd(sy, sy + i3);
        stx = _mm_set1_pd(i0 + i0), sty = _mm_set1_pd(i3 + i3);
    }

    /* The next four pixels: base indices and fractions of their points. */
    void next(const WarpLinAxis &xa, const WarpLinAxis &ya, __m128i *ix, __m128i *iy, __m128 *fx, __m128 *fy)
    {
        const __m128d bx = _mm_add_pd(ax, stx), by = _mm_add_pd(ay, sty);
        const __m128 x = _mm_movelh_ps(_mm_cvtpd_ps(ax), _mm_cvtpd_ps(bx));
        const __m128 y = _mm_movelh_ps(_mm_cvtpd_ps(ay), _mm_cvtpd_ps(by));
        ax = _mm_add_pd(bx, stx), ay = _mm_add_pd(by, sty);
        xa.split(x, ix, fx);
        ya.split(y, iy, fy);
    }
};

/* Three channels are taken kWarpQuads groups of four pixels a block:
 * WarpLinBlock walks a block's points, and its fractions come in the lanes
 * that warp_lerp_c3 blends in. */
#if LUMI_HAS_AVX
constexpr int kWarpQuads = 2;
typedef __m256 WarpBlockF;

/* One axis of eight float points, as WarpLinAxis: the base is found in
 * float (exact below 2^24) and converted once. */
struct WarpLinAxis8 {
    __m256 maxm1f;

    explicit WarpLinAxis8(int32_t max) : maxm1f(_mm256_set1_ps((float)(max - 1))) {}

    void split(__m256 v, __m128i i[2], __m256 *f) const
    {
        /* trunc(v) held to 0..max - 1; min_ps returns its second operand
         * for a NaN, and max_ps likewise, so a NaN takes 0. */
        const __m256 t = _mm256_round_ps(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
        const __m256 b = _mm256_max_ps(_mm256_min_ps(maxm1f, t), _mm256_setzero_ps());
        *f = _mm256_sub_ps(v, b);
        const __m256i n = _mm256_cvttps_epi32(b);
        i[0] = _mm256_castsi256_si128(n), i[1] = _mm256_extractf128_si256(n, 1);
    }
};

/* Eight pixels a step.  Each register holds the even and odd points of two
 * successive pairs, so two additions of twice the increment carry every
 * lane to the pair four pixels on, as the scalar walk adds them. */
struct WarpLinBlock {
    __m256d ax, ay, stx, sty;
    WarpLinAxis8 xa, ya;

    WarpLinBlock(int32_t wMax, int32_t hMax) : xa(wMax), ya(hMax) {}

    void start(double sx, double sy, double i0, double i3)
    {
        const double dx = i0 + i0, dy = i3 + i3, ox = sx + i0, oy = sy + i3;
        ax = _mm256_setr_pd(sx, ox, sx + dx, ox + dx), ay = _mm256_setr_pd(sy, oy, sy + dy, oy + dy);
        stx = _mm256_set1_pd(dx), sty = _mm256_set1_pd(dy);
    }

    void next(__m128i ix[2], __m128i iy[2], __m256 *fx, __m256 *fy)
    {
        const __m256d bx = _mm256_add_pd(_mm256_add_pd(ax, stx), stx);
        const __m256d by = _mm256_add_pd(_mm256_add_pd(ay, sty), sty);
        const __m256 x = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(ax)), _mm256_cvtpd_ps(bx), 1);
        const __m256 y = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(ay)), _mm256_cvtpd_ps(by), 1);
        ax = _mm256_add_pd(_mm256_add_pd(bx, stx), stx);
        ay = _mm256_add_pd(_mm256_add_pd(by, sty), sty);
        xa.split(x, ix, fx);
        ya.split(y, iy, fy);
    }
};
#else
constexpr int kWarpQuads = 1;
typedef __m128 WarpBlockF;

struct WarpLinBlock {
    WarpLinPairs w;
    WarpLinAxis xa, ya;

    WarpLinBlock(int32_t wMax, int32_t hMax) : xa(wMax), ya(hMax) {}
    void start(double sx, double sy, double i0, double i3) { w.start(sx, sy, i0, i3); }
    void next(__m128i ix[1], __m128i iy[1], __m128 *fx, __m128 *fy) { w.next(xa, ya, ix, iy, fx, fy); }
};
#endif

/* One row of the 2 x 2 windows of a group of four three-channel pixels:
 * pixel k's three elements of the left tap (*left) and of the right tap
 * (*right) in the low three bytes of 32-bit lane k.  Wide: every base
 * column is at most wMax - 2, so eight bytes from a base stay inside its
 * row of the image; otherwise exactly six are read. */
template <bool Wide>
inline void warp_c3_row(const Lum8u *const org[4], ptrdiff_t off, __m128i *left, __m128i *right)
{
    __m128i t[4];
    for (int k = 0; k < 4; ++k)
        t[k] = remap_load_row(org[k] + off, 6, Wide);
    /* Lane k of d0 holds bytes 0..3 of pixel k's row, lane k of d1 bytes
     * 4..7; the right tap is bytes 3..6. */
    const __m128i a = _mm_unpacklo_epi32(t[0], t[1]), b = _mm_unpacklo_epi32(t[2], t[3]);
    const __m128i d0 = _mm_unpacklo_epi64(a, b), d1 = _mm_unpackhi_epi64(a, b);
    *left = d0;
    *right = _mm_or_si128(_mm_srli_epi32(d0, 24), _mm_slli_epi32(d1, 8));
}

/* A tap of a whole block (group q in lanes 4q..4q + 3), and its element e
 * as floats.  The AVX tier masks the element in place in its 256-bit lanes
 * and scales the converted value back by 2^-8e, which is exact. */
#if LUMI_HAS_AVX
typedef __m256 WarpBlockTap;

inline WarpBlockTap warp_block_tap(const __m128i g[kWarpQuads])
{
    return _mm256_castsi256_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(g[0]), g[1], 1));
}

inline __m256 warp_tap_element(WarpBlockTap tap, int e)
{
    const __m256 m = _mm256_castsi256_ps(_mm256_set1_epi32(0xFF << 8 * e));
    const __m256 v = _mm256_cvtepi32_ps(_mm256_castps_si256(_mm256_and_ps(tap, m)));
    return e == 0 ? v : _mm256_mul_ps(v, _mm256_set1_ps(e == 1 ? 1.0f / 256.0f : 1.0f / 65536.0f));
}
#else
typedef __m128i WarpBlockTap;

inline WarpBlockTap warp_block_tap(const __m128i g[kWarpQuads]) { return g[0]; }

inline __m128 warp_tap_element(WarpBlockTap tap, int e)
{
    /* Byte e of each lane to the whole lane, by one shuffle. */
    static const int8_t pick[3][16] = {{0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1},
                                       {1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1},
                                       {2, -1, -1, -1, 6, -1, -1, -1, 10, -1, -1, -1, 14, -1, -1, -1}};
    return _mm_cvtepi32_ps(remap_c3_arrange(tap, pick[e]));
}
#endif

/* The blends of a block from its four taps and its fractions: out[q][e]
 * gets element e of group q's four pixels as trunc(min(255, v + 0.5)) in
 * 32-bit lanes.  Every element takes its pixel's fractions from its own
 * lane, so no weight is moved. */
inline void warp_lerp_c3(const WarpBlockTap tap[4], WarpBlockF fx, WarpBlockF fy, __m128i out[kWarpQuads][3])
{
    for (int e = 0; e < 3; ++e) {
#if LUMI_HAS_AVX
        __m256 p[4];
        for (int t = 0; t < 4; ++t)
            p[t] = warp_tap_element(tap[t], e);
        const __m256 r0 = _mm256_add_ps(p[0], _mm256_mul_ps(_mm256_sub_ps(p[1], p[0]), fx));
        const __m256 r1 = _mm256_add_ps(p[2], _mm256_mul_ps(_mm256_sub_ps(p[3], p[2]), fx));
        const __m256 v = _mm256_add_ps(r0, _mm256_mul_ps(_mm256_sub_ps(r1, r0), fy));
        const __m256i r = _mm256_cvttps_epi32(_mm256_min_ps(_mm256_set1_ps(255.0f), _mm256_add_ps(v, _mm256_set1_ps(0.5f))));
        out[0][e] = _mm256_castsi256_si128(r);
        out[1][e] = _mm256_extractf128_si256(r, 1);
#else
        out[0][e] = warp_lerp(warp_tap_element(tap[0], e), warp_tap_element(tap[1], e), warp_tap_element(tap[2], e),
                              warp_tap_element(tap[3], e), fx, fy);
#endif
    }
}

/* A group's three element vectors, saturated, to twelve bytes in pixel
 * order (bytes 12..15 are not used). */
inline __m128i warp_pack_c3(const __m128i v[3])
{
    static const int8_t order[16] = {0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1};
    const __m128i b = _mm_packus_epi16(_mm_packs_epi32(v[0], v[1]), _mm_packs_epi32(v[2], v[2]));
    return remap_c3_arrange(b, order);
}

/* A span of one channel: four pixels a step. */
struct WarpLinear8u1 {
    WarpLinPairs w;

    void start(double sx, double sy, double i0, double i3) { w.start(sx, sy, i0, i3); }

    /* The span's n pixels. */
    void run(const WarpSrc8u &c, Lum8u *d, int32_t n)
    {
        const WarpLinAxis xa(c.wMax), ya(c.hMax);
        for (int32_t j = 0; j < n; j += 4, d += 4) {
            __m128i ix, iy;
            __m128 fx, fy;
            w.next(xa, ya, &ix, &iy, &fx, &fy);
            const Lum8u *org[4];
            warp_origins<1>(c, ix, iy, org);
            warp_prefetch(org[0], c.ahead);
            Lum8u out[4];
            warp_lin_pixels_c1(org, c.step, fx, fy, out);
            memcpy(d, out, n - j < 4 ? (size_t)(n - j) : 4);
        }
    }
};

/* A span of three channels: a block of kWarpQuads groups a step. */
struct WarpLinear8u3 {
    double sx, sy, i0, i3;

    void start(double x, double y, double ix, double iy) { sx = x, sy = y, i0 = ix, i3 = iy; }

    /* The span's n pixels. */
    void run(const WarpSrc8u &c, Lum8u *d, int32_t n)
    {
        WarpLinBlock walk(c.wMax, c.hMax);
        walk.start(sx, sy, i0, i3);
        const __m128i wide = _mm_set1_epi32(c.wMax - 2);
        for (int32_t j = 0; j < n; j += 4 * kWarpQuads, d += 12 * kWarpQuads) {
            __m128i ix[kWarpQuads], iy[kWarpQuads];
            WarpBlockF fx, fy;
            walk.next(ix, iy, &fx, &fy);
            const Lum8u *org[kWarpQuads][4];
            __m128i narrow = _mm_setzero_si128();
            for (int q = 0; q < kWarpQuads; ++q) {
                warp_origins<3>(c, ix[q], iy[q], org[q]);
                narrow = _mm_or_si128(narrow, _mm_cmpgt_epi32(ix[q], wide));
                warp_prefetch(org[q][0], c.ahead);
            }
            /* The block's taps: top left, top right, bottom left, bottom
             * right. */
            WarpBlockTap tap[4];
            const bool exact = _mm_movemask_epi8(narrow) != 0;
            for (int r = 0; r < 2; ++r) {
                __m128i left[kWarpQuads], right[kWarpQuads];
                for (int q = 0; q < kWarpQuads; ++q) {
                    if (exact)
                        warp_c3_row<false>(org[q], r ? c.step : 0, &left[q], &right[q]);
                    else
                        warp_c3_row<true>(org[q], r ? c.step : 0, &left[q], &right[q]);
                }
                tap[2 * r] = warp_block_tap(left), tap[2 * r + 1] = warp_block_tap(right);
            }
            __m128i v[kWarpQuads][3];
            warp_lerp_c3(tap, fx, fy, v);
            /* Groups past the span's end were computed from points held
             * inside the image and are dropped. */
            for (int q = 0; q < kWarpQuads && j + 4 * q < n; ++q) {
                const __m128i out = warp_pack_c3(v[q]);
                Lum8u *o = d + 12 * q;
                if (n - j - 4 * q >= 4) {
                    _mm_storel_epi64((__m128i *)o, out);
                    const int32_t last = _mm_cvtsi128_si32(_mm_srli_si128(out, 8));
                    memcpy(o + 8, &last, 4);
                } else {
                    Lum8u tmp[16];
                    _mm_storeu_si128((__m128i *)tmp, out);
                    memcpy(o, tmp, (size_t)(n - j - 4 * q) * 3);
                }
            }
        }
    }
};

template <int S> using WarpLinear8u = typename std::conditional<S == 1, WarpLinear8u1, WarpLinear8u3>::type;

} // namespace LUMI_NS

#endif
