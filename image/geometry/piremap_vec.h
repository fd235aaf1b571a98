/*
 * Remap: what the vector rows of the plain 8-bit one- and three-channel
 * kernels share.  A row is taken four destination pixels at a time:
 *
 *   - the four map pairs are tested against the region at once; a lane that
 *     fails (a NaN included) gets the region's first pixel as a stand-in
 *     coordinate, so every later index stays inside the image, and its result
 *     is never stored;
 *   - the family works out per-pixel window origins and weights in lanes;
 *   - samples are gathered in "unit" order, a unit being one element of one
 *     pixel (the four pixels of C1, or the three elements of one C3 pixel),
 *     so one set of lane instructions computes every element with its
 *     pixel's weights;
 *   - the bytes come out in destination order and only the lanes that passed
 *     the test are written.
 * A three-element window row is taken by one whole-vector load (8 or 16
 * bytes) when all four pixels' windows end far enough from the image's last
 * column that the bytes past the window are pixels of the same row;
 * otherwise by loads of exactly the window, so nothing past the image's
 * last pixel is ever read.
 * The lane arithmetic repeats the scalar formulas operation for operation
 * (SSE2 but for one byte shuffle, no fused operations), so the tiers agree
 * and a row's tail, done by the scalar pixel, gives the same bytes.
 */
#ifndef LUMI_PIREMAP_VEC_H
#define LUMI_PIREMAP_VEC_H

#include <emmintrin.h>
#include <string.h>

#include "piremap.h"

#include "tier.h"
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

namespace LUMI_NS {

/* The region test of four pixels; returns the mask of lanes inside and puts
 * (xMin, yMin) in the others. */
struct RemapLanes {
    __m128 x0, x1, y0, y1;

    explicit RemapLanes(const RemapArgs &a)
        : x0(_mm_set1_ps((float)a.xMin)), x1(_mm_set1_ps((float)a.xMax)),
          y0(_mm_set1_ps((float)a.yMin)), y1(_mm_set1_ps((float)a.yMax))
    {
    }

    int load(const float *xm, const float *ym, __m128 *x, __m128 *y) const
    {
        const __m128 xv = _mm_loadu_ps(xm), yv = _mm_loadu_ps(ym);
        const __m128 in = _mm_and_ps(_mm_and_ps(_mm_cmpge_ps(xv, x0), _mm_cmple_ps(xv, x1)),
                                     _mm_and_ps(_mm_cmpge_ps(yv, y0), _mm_cmple_ps(yv, y1)));
        *x = _mm_or_ps(_mm_and_ps(in, xv), _mm_andnot_ps(in, x0));
        *y = _mm_or_ps(_mm_and_ps(in, yv), _mm_andnot_ps(in, y0));
        return _mm_movemask_ps(in);
    }
};

/* Integer lanes to memory, for per-pixel addressing. */
inline void remap_lanes_out(__m128i v, int32_t out[4]) { _mm_storeu_si128((__m128i *)out, v); }

/* Each pixel's window origin, from its first column and row in lanes. */
template <int S>
inline void remap_origins(const Lum8u *src, ptrdiff_t step, __m128i col, __m128i row, const Lum8u *org[4])
{
    int32_t c[4], r[4];
    remap_lanes_out(col, c);
    remap_lanes_out(row, r);
    for (int p = 0; p < 4; ++p)
        org[p] = src + (ptrdiff_t)r[p] * step + (ptrdiff_t)c[p] * S;
}

/* min(i, m) of 32-bit lanes, without the SSE4.1 instruction. */
inline __m128i remap_min_epi32(__m128i i, __m128i m)
{
    const __m128i gt = _mm_cmpgt_epi32(i, m);
    return _mm_or_si128(_mm_and_si128(gt, m), _mm_andnot_si128(gt, i));
}

/* Units: the lanes of one computation.  C1 has one group, the four pixels.
 * C3 has four groups, one per pixel, with its three elements in lanes 0..2
 * (lane 3 repeats element 2 and is dropped), so that one pixel's row of
 * samples comes from one load. */
template <int S> struct RemapUnits;
template <> struct RemapUnits<1> {
    static constexpr int kGroups = 1;
    static __m128i spread(__m128i v, int) { return v; }
    static __m128 spread(__m128 v, int) { return v; }
};
template <> struct RemapUnits<3> {
    static constexpr int kGroups = 4;
    /* Pixel g's lane in every lane; g is a constant once the loop over the
     * groups is unrolled. */
    static __m128i spread(__m128i v, int g)
    {
        return g == 0   ? _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 0, 0, 0))
               : g == 1 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 1, 1, 1))
               : g == 2 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 2, 2, 2))
                        : _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 3, 3, 3));
    }
    static __m128 spread(__m128 v, int g) { return _mm_castsi128_ps(spread(_mm_castps_si128(v), g)); }
};

/* n (2, 4, 6 or 12) bytes from p in the low bytes of a register: loads of
 * exactly those bytes. */
inline __m128i remap_load_bytes(const Lum8u *p, int n)
{
    uint64_t lo = 0;
    uint32_t hi = 0;
    if (n >= 8) {
        memcpy(&lo, p, 8);
        memcpy(&hi, p + 8, 4);
    } else if (n >= 4) {
        uint32_t a;
        uint16_t b = 0;
        memcpy(&a, p, 4);
        if (n == 6)
            memcpy(&b, p + 4, 2);
        lo = a | (uint64_t)b << 32;
    } else {
        uint16_t a;
        memcpy(&a, p, 2);
        lo = a;
    }
    return _mm_unpacklo_epi64(_mm_cvtsi64_si128((long long)lo), _mm_cvtsi32_si128((int)hi));
}

/* Rearranges the bytes of a three-element row: out byte i takes in byte
 * idx[i] (-1: zero).  The SSSE3 tiers shuffle in one instruction; the SSE3
 * tier moves the bytes one by one. */
inline __m128i remap_c3_arrange(__m128i in, const int8_t idx[16])
{
#if LUMI_HAS_SSSE3
    return _mm_shuffle_epi8(in, _mm_loadu_si128((const __m128i *)idx));
#else
    Lum8u a[16], b[16];
    _mm_storeu_si128((__m128i *)a, in);
    for (int i = 0; i < 16; ++i)
        b[i] = idx[i] < 0 ? 0 : a[idx[i]];
    return _mm_loadu_si128((const __m128i *)b);
#endif
}

/* Whether whole-vector loads may serve the three-element rows of all four
 * pixels: every window origin col lies at least reach pixels before the
 * image's last column, so the bytes such a load takes past the window are
 * pixels of the same row.  Otherwise the rows are read exactly. */
template <int S> inline bool remap_wide(__m128i col, int32_t wMax, int32_t reach)
{
    return S == 3 && _mm_movemask_epi8(_mm_cmpgt_epi32(col, _mm_set1_epi32(wMax - reach))) == 0;
}

/* At least n (6 or 12) bytes from p: one load of 8 or 16 when wide. */
inline __m128i remap_load_row(const Lum8u *p, int n, bool wide)
{
    if (!wide)
        return remap_load_bytes(p, n);
    return n > 8 ? _mm_loadu_si128((const __m128i *)p) : _mm_loadl_epi64((const __m128i *)p);
}

/* Four taps of the units' rows at offset off from their origins, unit-major
 * (unit 0's four bytes first), as the 16-bit multiply-add forms want them.
 * wide (three elements): the row may be read by whole-vector loads, 16
 * bytes from the origin (remap_wide with reach 5). */
template <int S> inline __m128i remap_quads(const Lum8u *const org[4], int g, ptrdiff_t off, bool wide)
{
    if constexpr (S == 1) {
        uint32_t v[4];
        for (int lane = 0; lane < 4; ++lane)
            memcpy(&v[lane], org[lane] + off, 4);
        return _mm_setr_epi32((int32_t)v[0], (int32_t)v[1], (int32_t)v[2], (int32_t)v[3]);
    } else {
        static const int8_t idx[16] = {0, 3, 6, 9, 1, 4, 7, 10, 2, 5, 8, 11, 2, 5, 8, 11};
        return remap_c3_arrange(remap_load_row(org[g] + off, 12, wide), idx);
    }
}

/* Taps 4 and 5 of the units' rows at offset off, as 32-bit lanes
 * t4 | t5 << 8; wide reads 8 bytes from tap 4 (remap_wide with reach 6). */
template <int S> inline __m128i remap_pairs45(const Lum8u *const org[4], int g, ptrdiff_t off, bool wide)
{
    if constexpr (S == 1) {
        uint16_t v[4];
        for (int lane = 0; lane < 4; ++lane)
            memcpy(&v[lane], org[lane] + off + 4, 2);
        return _mm_setr_epi32(v[0], v[1], v[2], v[3]);
    } else {
        static const int8_t idx[16] = {0, 3, -1, -1, 1, 4, -1, -1, 2, 5, -1, -1, 2, 5, -1, -1};
        return remap_c3_arrange(remap_load_row(org[g] + off + 12, 6, wide), idx);
    }
}

/* Two taps of two rows (off and off + step) of four one-element pixels:
 * each pixel's pair of row 0, then of row 1, as bytes. */
inline __m128i remap_pairs2_c1(const Lum8u *const org[4], ptrdiff_t step)
{
    uint16_t v[8];
    for (int lane = 0; lane < 4; ++lane) {
        memcpy(&v[lane], org[lane], 2);
        memcpy(&v[4 + lane], org[lane] + step, 2);
    }
    return _mm_loadu_si128((const __m128i *)v);
}

/* K taps (4 or 6) of the units' rows at offset off, one float vector per
 * tap with the units in lanes.  Three elements with SSSE3: each tap's
 * bytes go straight to 32-bit lanes by one byte shuffle. */
template <int S, int K>
inline void remap_taps_ps(const Lum8u *const org[4], int g, ptrdiff_t off, bool wide, __m128 t[K])
{
#if LUMI_HAS_SSSE3
    if constexpr (S == 3) {
        /* Tap k of element e is byte 3k + e; lane 3 repeats element 2. */
        const __m128i row = remap_load_row(org[g] + off, 12, wide);
        for (int k = 0; k < 4; ++k) {
            const __m128i idx = _mm_setr_epi8(3 * k, -1, -1, -1, 3 * k + 1, -1, -1, -1, 3 * k + 2, -1,
                                              -1, -1, 3 * k + 2, -1, -1, -1);
            t[k] = _mm_cvtepi32_ps(_mm_shuffle_epi8(row, idx));
        }
        if constexpr (K == 6) {
            const __m128i p = remap_load_row(org[g] + off + 12, 6, wide);
            for (int k = 4; k < 6; ++k) {
                const int b = 3 * (k - 4);
                const __m128i idx = _mm_setr_epi8(b, -1, -1, -1, b + 1, -1, -1, -1, b + 2, -1, -1, -1,
                                                  b + 2, -1, -1, -1);
                t[k] = _mm_cvtepi32_ps(_mm_shuffle_epi8(p, idx));
            }
        }
        return;
    }
#endif
    const __m128i z = _mm_setzero_si128();
    const __m128i q = remap_quads<S>(org, g, off, wide);
    const __m128i a = _mm_unpacklo_epi8(q, z), b = _mm_unpackhi_epi8(q, z);
    const __m128i c = _mm_unpacklo_epi16(a, b), d = _mm_unpackhi_epi16(a, b);
    const __m128i e = _mm_unpacklo_epi16(c, d), f = _mm_unpackhi_epi16(c, d); /* taps 0 1, taps 2 3 */
    t[0] = _mm_cvtepi32_ps(_mm_unpacklo_epi16(e, z));
    t[1] = _mm_cvtepi32_ps(_mm_unpackhi_epi16(e, z));
    t[2] = _mm_cvtepi32_ps(_mm_unpacklo_epi16(f, z));
    t[3] = _mm_cvtepi32_ps(_mm_unpackhi_epi16(f, z));
    if constexpr (K == 6) {
        const __m128i p = remap_pairs45<S>(org, g, off, wide);
        t[4] = _mm_cvtepi32_ps(_mm_and_si128(p, _mm_set1_epi32(0xFF)));
        t[5] = _mm_cvtepi32_ps(_mm_srli_epi32(p, 8));
    }
}

/* Four pixels' bytes, in destination order in b, to the pixels whose lane
 * is in the mask: all four straight from the register, fewer through a
 * copy on the stack, pixel by pixel. */
template <int S> inline void remap_put_bytes(__m128i b, Lum8u *d, int mask)
{
    if (mask == 0xF) {
        const int32_t last = _mm_cvtsi128_si32(S == 1 ? b : _mm_srli_si128(b, 8));
        if (S == 3)
            _mm_storel_epi64((__m128i *)d, b);
        memcpy(d + 4 * S - 4, &last, 4);
        return;
    }
    Lum8u tmp[16];
    _mm_storeu_si128((__m128i *)tmp, b);
    for (int lane = 0; lane < 4; ++lane)
        if (mask & (1 << lane))
            memcpy(d + lane * S, tmp + lane * S, S);
}

/* Group results (32-bit lanes, one group per pixel for three elements; the
 * packs limit them to 0..255) to the pixels in the mask. */
template <int S> inline void remap_put(const __m128i *v, Lum8u *d, int mask)
{
    if constexpr (S == 1) {
        const __m128i z = _mm_setzero_si128();
        remap_put_bytes<1>(_mm_packus_epi16(_mm_packs_epi32(v[0], z), z), d, mask);
    } else {
        /* Bytes 0-2, 4-6, 8-10, 12-14 together. */
        static const int8_t idx[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1};
        const __m128i b = _mm_packus_epi16(_mm_packs_epi32(v[0], v[1]), _mm_packs_epi32(v[2], v[3]));
        remap_put_bytes<3>(remap_c3_arrange(b, idx), d, mask);
    }
}

/* A whole plain row of an 8-bit C1 or C3 kernel: Batch(lanes, x, y, mask,
 * dst) handles four pixels; the tail goes through the scalar pixel. */
template <class Scalar, int S, class Src, class Batch>
inline void remap_row8u(const Src &s, const RemapArgs &a, const float *xm, const float *ym,
                        Lum8u *d, Batch batch)
{
    const RemapLanes lanes(a);
    int32_t i = 0;
    for (; i + 4 <= a.width; i += 4) {
        __m128 x, y;
        const int mask = lanes.load(xm + i, ym + i, &x, &y);
        if (mask)
            batch(x, y, mask, d + (ptrdiff_t)i * S);
    }
    for (; i < a.width; ++i) {
        const float x = xm[i], y = ym[i];
        if (x >= (float)a.xMin && x <= (float)a.xMax && y >= (float)a.yMin && y <= (float)a.yMax) {
            Lum8u *e[4] = {d + (ptrdiff_t)i * S, d + (ptrdiff_t)i * S + 1, d + (ptrdiff_t)i * S + 2, nullptr};
            Scalar::pixel(s, a, x, y, e);
        }
    }
}

} // namespace LUMI_NS

#endif
