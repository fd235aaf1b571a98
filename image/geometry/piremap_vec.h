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
 *     pixel (four pixels of C1, or four of the twelve elements of four C3
 *     pixels, pixel-major), so one set of lane instructions computes every
 *     element with its pixel's weights;
 *   - the bytes come out in destination order and only the lanes that passed
 *     the test are written.
 * The lane arithmetic repeats the scalar formulas operation for operation
 * (SSE2 only, no fused operations), so it needs no tier of its own and a
 * row's tail, done by the scalar pixel, gives the same bytes.
 */
#ifndef LUMI_PIREMAP_VEC_H
#define LUMI_PIREMAP_VEC_H

#include <emmintrin.h>
#include <string.h>

#include "piremap.h"

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

/* Units of a group g (0..S-1) of four pixels with S elements each: the pixel
 * and the element of each lane.  C1 has one group, the pixels themselves. */
template <int S> struct RemapUnits;
template <> struct RemapUnits<1> {
    static int pixel(int, int lane) { return lane; }
    static int elem(int, int) { return 0; }
    static __m128i spread(__m128i v, int) { return v; }
    static __m128 spread(__m128 v, int) { return v; }
};
template <> struct RemapUnits<3> {
    /* group 0: p0 p0 p0 p1, group 1: p1 p1 p2 p2, group 2: p2 p3 p3 p3 */
    static int pixel(int g, int lane) { return (g * 4 + lane) / 3; }
    static int elem(int g, int lane) { return (g * 4 + lane) % 3; }
    /* Pixel lanes to unit lanes; g is a constant once the loop over the
     * groups is unrolled. */
    static __m128i spread(__m128i v, int g)
    {
        return g == 0 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 0, 0))
               : g == 1 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 2, 1, 1))
                        : _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 3, 3, 2));
    }
    static __m128 spread(__m128 v, int g) { return _mm_castsi128_ps(spread(_mm_castps_si128(v), g)); }
};

/* The element pointers of the four units of group g: pixel origin plus the
 * unit's element. */
template <int S> inline void remap_units(const Lum8u *const org[4], int g, const Lum8u *u[4])
{
    for (int lane = 0; lane < 4; ++lane)
        u[lane] = org[RemapUnits<S>::pixel(g, lane)] + RemapUnits<S>::elem(g, lane);
}

/* Four or two taps S elements apart, little-endian in one integer.  Loads of
 * exactly the window's bytes, composed in registers (a block written byte by
 * byte and read back in words would stall on every read). */
template <int S> inline uint32_t remap_quad(const Lum8u *p)
{
    uint32_t v;
    if (S == 1)
        memcpy(&v, p, 4);
    else
        v = (uint32_t)p[0] | (uint32_t)p[S] << 8 | (uint32_t)p[2 * S] << 16 | (uint32_t)p[3 * S] << 24;
    return v;
}
template <int S> inline uint32_t remap_pair(const Lum8u *p)
{
    uint16_t v;
    if (S == 1)
        memcpy(&v, p, 2);
    else
        v = (uint16_t)(p[0] | p[S] << 8);
    return v;
}

/* Four taps of the four units' rows at offset off: the 16 bytes
 * unit-major, as the 16-bit multiply-add forms want them. */
template <int S> inline __m128i remap_quads(const Lum8u *const u[4], ptrdiff_t off)
{
    return _mm_setr_epi32((int32_t)remap_quad<S>(u[0] + off), (int32_t)remap_quad<S>(u[1] + off),
                          (int32_t)remap_quad<S>(u[2] + off), (int32_t)remap_quad<S>(u[3] + off));
}

/* K taps (4 or 6) of the four units' rows at offset off, one float vector
 * per tap with the units in lanes. */
template <int S, int K> inline void remap_taps_ps(const Lum8u *const u[4], ptrdiff_t off, __m128 t[K])
{
    const __m128i z = _mm_setzero_si128();
    const __m128i q = remap_quads<S>(u, off);
    const __m128i a = _mm_unpacklo_epi8(q, z), b = _mm_unpackhi_epi8(q, z);
    const __m128i c = _mm_unpacklo_epi16(a, b), d = _mm_unpackhi_epi16(a, b);
    const __m128i e = _mm_unpacklo_epi16(c, d), f = _mm_unpackhi_epi16(c, d); /* taps 0 1, taps 2 3 */
    t[0] = _mm_cvtepi32_ps(_mm_unpacklo_epi16(e, z));
    t[1] = _mm_cvtepi32_ps(_mm_unpackhi_epi16(e, z));
    t[2] = _mm_cvtepi32_ps(_mm_unpacklo_epi16(f, z));
    t[3] = _mm_cvtepi32_ps(_mm_unpackhi_epi16(f, z));
    if constexpr (K == 6) {
        const ptrdiff_t o = off + 4 * S;
        const __m128i p = _mm_setr_epi32((int32_t)remap_pair<S>(u[0] + o), (int32_t)remap_pair<S>(u[1] + o),
                                         (int32_t)remap_pair<S>(u[2] + o), (int32_t)remap_pair<S>(u[3] + o));
        t[4] = _mm_cvtepi32_ps(_mm_and_si128(p, _mm_set1_epi32(0xFF)));
        t[5] = _mm_cvtepi32_ps(_mm_srli_epi32(p, 8));
    }
}

/* Writes the S bytes of each pixel whose lane is in the mask; out holds the
 * four pixels' bytes in destination order. */
template <int S> inline void remap_store(Lum8u *d, const Lum8u *out, int mask)
{
    if (mask == 0xF) {
        memcpy(d, out, 4 * S);
        return;
    }
    for (int lane = 0; lane < 4; ++lane)
        if (mask & (1 << lane))
            memcpy(d + lane * S, out + lane * S, S);
}

/* Group results (32-bit lanes, already in 0..255) to destination bytes. */
template <int S> inline void remap_pack(const __m128i *v, Lum8u *out)
{
    const __m128i z = _mm_setzero_si128();
    const __m128i w = _mm_packs_epi32(v[0], S > 1 ? v[1] : z);
    const __m128i w2 = S > 2 ? _mm_packs_epi32(v[2], z) : z;
    Lum8u tmp[16];
    _mm_storeu_si128((__m128i *)tmp, _mm_packus_epi16(w, w2));
    memcpy(out, tmp, 4 * S);
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
