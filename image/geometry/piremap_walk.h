/*
 * The remap row walker and what the kernel families share: element access,
 * the region test, the soft-edge band and the element stores.  Included by
 * the family modules only; each instantiates its own entries.
 *
 * Per destination pixel the walker reads (x, y) from the two maps and
 * compares it, in the map's type, with the region's limits.  The test is
 * written as "inside", so a coordinate that is not a number fails it and the
 * pixel is left alone, on both paths; nothing converts a NaN to an index.
 *   - inside the region: the family's interior formula;
 *   - plain path, outside: nothing written;
 *   - soft edge, within one pixel of the region: one source pixel (the
 *     nearest region pixel, or the truncated coordinate along an axis that
 *     is inside) blended with the destination by the band weight w:
 *     new = s + (d - s) w.  The SSE3 tier blends as d w + s (1 - w) and
 *     truncates instead of rounding;
 *   - soft edge, further out: nothing written.
 */
#ifndef LUMI_PIREMAP_WALK_H
#define LUMI_PIREMAP_WALK_H

#include <emmintrin.h>
#include <type_traits>

#include "piremap.h"
#include "piremap_vec.h"

namespace LUMI_NS {

/* The SSE3 tier keeps its own scalar forms in a few places (soft-edge
 * blending and 8-bit linear, the soft-edge cubic window, the Catmull-Rom and
 * Lanczos interiors); each is marked where it is used. */
constexpr bool kRemapLowTier = LUMI_IS_M7;

/* Coordinates are double for 8-byte elements, float otherwise. */
template <class T> using RemapMap = typename std::conditional<sizeof(T) == 8, Lum64f, Lum32f>::type;

template <int L> struct RemapShape {
    /* elements between neighbouring pixels, elements (planes) computed */
    static constexpr int stride = L == kRemapC1 || L >= kRemapP3 ? 1 : L == kRemapC3 ? 3 : 4;
    static constexpr int count = L == kRemapC1 ? 1 : L == kRemapC3 || L == kRemapAC4 || L == kRemapP3 ? 3 : 4;
    static constexpr bool planar = L >= kRemapP3;
};

/* One base per element: the plane, or the element's place in a pixel. */
template <class T, int L> struct RemapSrc {
    static constexpr int N = RemapShape<L>::count;
    const unsigned char *base[4];
    ptrdiff_t step;

    T at(int c, int32_t col, int32_t row) const
    {
        return *(const T *)(base[c] + (ptrdiff_t)row * step +
                            (ptrdiff_t)col * (ptrdiff_t)(RemapShape<L>::stride * sizeof(T)));
    }
};

template <class T, int L> RemapSrc<T, L> remap_src(const RemapArgs &a)
{
    RemapSrc<T, L> s;
    s.step = a.srcStep;
    for (int c = 0; c < RemapShape<L>::count; ++c)
        s.base[c] = RemapShape<L>::planar ? (const unsigned char *)((const T *const *)a.src)[c]
                                          : (const unsigned char *)((const T *)a.src + c);
    return s;
}

/* ------------------------------------------------------------------ stores -- */

template <class T> struct RemapRange;
template <> struct RemapRange<Lum8u> { static constexpr int lo = 0, hi = 255; };
template <> struct RemapRange<Lum16u> { static constexpr int lo = 0, hi = 65535; };
template <> struct RemapRange<Lum16s> { static constexpr int lo = -32768, hi = 32767; };

inline int32_t remap_rne(float v) { return _mm_cvtss_si32(_mm_set_ss(v)); }
inline int32_t remap_rne(double v) { return _mm_cvtsd_si32(_mm_set_sd(v)); }

/* Rounded to nearest (ties to even) and saturated; floats stored as they are. */
template <class T, class R> inline void store_sat(T *d, R v)
{
    if constexpr (std::is_floating_point<T>::value) {
        *d = (T)v;
    } else {
        const R lo = (R)RemapRange<T>::lo, hi = (R)RemapRange<T>::hi;
        *d = (T)remap_rne(v < lo ? lo : v > hi ? hi : v);
    }
}

/* Rounded to nearest and the low bits kept (values that cannot leave the
 * type's range). */
template <class T, class R> inline void store_low(T *d, R v)
{
    if constexpr (std::is_floating_point<T>::value)
        *d = (T)v;
    else
        *d = (T)remap_rne(v);
}

/* The double-precision point routines' output: limits, then truncation of
 * v + 0.5 (toward zero, so -1.7 gives -1 for 16s); 32f flushes magnitudes
 * below the smallest normal number to zero. */
template <class T> inline void store_point(T *d, double v)
{
    if constexpr (std::is_same<T, Lum64f>::value) {
        *d = v;
    } else if constexpr (std::is_same<T, Lum32f>::value) {
        *d = (v < 1.1754943508222875e-38 && v > -1.1754943508222875e-38) ? 0.0f : (Lum32f)v;
    } else {
        if (v > (double)RemapRange<T>::hi)
            *d = (T)RemapRange<T>::hi;
        else if (v < (double)RemapRange<T>::lo)
            *d = (T)RemapRange<T>::lo;
        else
            *d = (T)(int32_t)(v + 0.5);
    }
}

/* -------------------------------------------------------- soft-edge band -- */

template <class T, int L>
inline void remap_band(const RemapSrc<T, L> &s, const RemapArgs &a, RemapMap<T> x, RemapMap<T> y,
                       T *const *d)
{
    typedef RemapMap<T> M;
    const M one = (M)1;
    M ax, w;
    int32_t col, row;
    bool xEdge = true;
    if (x < (M)a.xMin)
        col = a.xMin, ax = (M)a.xMin - x;
    else if (x > (M)a.xMax)
        col = a.xMax, ax = x - (M)a.xMax;
    else
        col = (int32_t)x, ax = one, xEdge = false;
    if (y < (M)a.yMin || y > (M)a.yMax) {
        const M ay = y < (M)a.yMin ? (M)a.yMin - y : y - (M)a.yMax;
        row = y < (M)a.yMin ? a.yMin : a.yMax;
        w = xEdge ? one - (one - ax) * (one - ay) : ax * ay;
    } else {
        row = (int32_t)y, w = ax;
    }
    for (int c = 0; c < RemapShape<L>::count; ++c) {
        const M sv = (M)s.at(c, col, row), dv = (M)*d[c];
        if constexpr (kRemapLowTier) {
            const M v = dv * w + sv * (one - w);
            if constexpr (std::is_floating_point<T>::value)
                *d[c] = (T)v;
            else
                *d[c] = (T)(int32_t)v;
        } else {
            store_low(d[c], sv + (dv - sv) * w);
        }
    }
}

/* The kernels with whole-row vector forms: plain 8-bit, one or three
 * interleaved channels. */
template <class T, int L, bool Soft>
constexpr bool kRemapRow8u = !Soft && std::is_same<T, Lum8u>::value && (L == kRemapC1 || L == kRemapC3);

/* ---------------------------------------------------------------- walker -- */

template <template <class, int, bool> class F, class T, int L, bool Soft>
void remap_entry(const RemapArgs &a)
{
    typedef RemapMap<T> M;
    constexpr int N = RemapShape<L>::count, S = RemapShape<L>::stride;
    const RemapSrc<T, L> s = remap_src<T, L>(a);
    unsigned char *drow[4];
    for (int c = 0; c < N; ++c)
        drow[c] = RemapShape<L>::planar ? (unsigned char *)((T *const *)a.dst)[c]
                                        : (unsigned char *)((T *)a.dst + c);
    const M x0 = (M)a.xMin, x1 = (M)a.xMax, y0 = (M)a.yMin, y1 = (M)a.yMax;
    /* The band's limits, (-1, -1, +1, +1) from the region's. */
    const M bx0 = x0 - (M)1, bx1 = x1 + (M)1, by0 = y0 - (M)1, by1 = y1 + (M)1;
    const unsigned char *xr = (const unsigned char *)a.xMap, *yr = (const unsigned char *)a.yMap;
    for (int32_t r = 0; r < a.height; ++r) {
        const M *xm = (const M *)xr, *ym = (const M *)yr;
        /* The plain 8-bit C1 and C3 kernels have whole-row forms. */
        if constexpr (F<T, L, Soft>::kRow) {
            F<T, L, Soft>::row(s, a, xm, ym, (Lum8u *)drow[0]);
        } else {
            for (int32_t i = 0; i < a.width; ++i) {
                const M x = xm[i], y = ym[i];
                T *d[4];
                for (int c = 0; c < N; ++c)
                    d[c] = (T *)drow[c] + (ptrdiff_t)i * S;
                if (x >= x0 && x <= x1 && y >= y0 && y <= y1)
                    F<T, L, Soft>::pixel(s, a, x, y, d);
                else if constexpr (Soft) {
                    if (x >= bx0 && x <= bx1 && y >= by0 && y <= by1)
                        remap_band<T, L>(s, a, x, y, d);
                }
            }
        }
        for (int c = 0; c < N; ++c)
            drow[c] += a.dstStep;
        xr += a.xMapStep;
        yr += a.yMapStep;
    }
}

} // namespace LUMI_NS

#endif
