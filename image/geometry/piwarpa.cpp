/*
 * The affine warp engine: destination scan over the exact spans of the
 * transformed region.
 *
 * The region's four corner pixel centres go forward through the transform to
 * a quadrangle, which is clipped to the destination rectangle (last row and
 * column included); each destination row gets the span of columns whose
 * centres lie inside (pigeom.cpp), and only those pixels are written.  Each
 * span is walked with the inverse transform, which comes from the corners
 * (pigeom.cpp): the row term (i1 y + i2, i4 y + i5) is formed at the first
 * row and stepped by (i1, i4), and within a row the point at the span's
 * first column, i0 x + row term, is stepped by (i0, i3), all in double.
 *
 * Kernels, per element, AC4 writing three:
 *   - nearest: 0.5 added at the span's start, then truncation;
 *   - linear: the point narrowed to float, ix = trunc (the last column uses
 *     ix - 1 with fraction 1), r = p0 + (p1 - p0) f across then down, in
 *     float; 8u stores trunc(v + 0.5) limited to 0..255, 16u rounds to
 *     nearest, 32f stores.  8u rows step even and odd pixels separately by
 *     twice the increment.  The SSE3 tier takes the column from
 *     trunc(x + 1e-7) in double, and from the last column on uses the one
 *     before it with fraction 1;
 *   - cubic and Catmull-Rom: each span's points, narrowed to float, go into a
 *     row of coordinates that the remap row kernels turn into pixels, with
 *     limits one pixel beyond the image so that every point passes.
 * The span table guarantees that every point lies in the region up to the
 * rounding of the transform; as a guard against that rounding the nearest
 * and linear kernels also keep their indices inside the image.
 *
 * Checks, first failure returned: null images; sizes, region origins and
 * sizes; a selector other than 1, 2, 4, 6; null planes; coefficients whose
 * determinant is negligible against the diagonal product (1e-10) (-56); the
 * region outside the image (29); a region cut below 2x2, or a quadrangle
 * that folds or collapses (-56); a quadrangle that covers no destination
 * pixel centre (30).  Steps are not tested.  The selector is lowered for a
 * source of one pixel a side (nearest) and, for cubic, under 4 (linear).
 *
 * Memory: the span table, and for cubic and Catmull-Rom the coordinate row,
 * come from the tier's allocator and go back on every path.  A span table
 * that cannot be had reports 30 like a quadrangle that misses the
 * rectangle; a coordinate row that cannot be had reports -9 with nothing
 * written.
 *
 * With LUMI_SMOOTH_EDGE the slanted sides of the clipped quadrangle are then
 * walked and each pixel just outside them is blended with its neighbour
 * inside, in proportion to how far the side reaches towards it (sides on
 * the destination rectangle's borders, and axis-parallel sides, change
 * nothing).  Blending is in double per element: 8u and 16u add 0.5 and
 * truncate, 16s rounds halves away from zero, floats store; the fourth
 * element of an AC4 pixel is blended too.
 */
#include "piwarpa.h"

#include <math.h>
#include <stddef.h>
#include <xmmintrin.h>

#include <type_traits>

#include "checks.h"
#include "pigeom.h"
#include "piremap.h"
#include "piwarpa_vec.h"
#include "workmem.h"

namespace LUMI_NS {
namespace {

/* ----------------------------------------------------------- pixel access -- */

template <int L> struct WarpShape {
    static constexpr bool planar = L == kRemapP3 || L == kRemapP4;
    static constexpr int stride = planar || L == kRemapC1 ? 1 : L == kRemapC3 ? 3 : 4;
    static constexpr int count = L == kRemapC1 ? 1 : L == kRemapC3 || L == kRemapAC4 || L == kRemapP3 ? 3 : 4;
};

/* One base per element: the plane, or the element's place in a pixel. */
template <class T, int L> struct WarpImg {
    unsigned char *base[4];
    ptrdiff_t step;

    WarpImg(const void *img, int32_t s) : step(s)
    {
        for (int c = 0; c < WarpShape<L>::count; ++c)
            base[c] = WarpShape<L>::planar ? (unsigned char *)((T *const *)img)[c]
                                           : (unsigned char *)((const T *)img + c);
    }
    T *at(int c, int32_t col, int32_t row) const
    {
        return (T *)(base[c] + (ptrdiff_t)row * step + (ptrdiff_t)col * WarpShape<L>::stride * (ptrdiff_t)sizeof(T));
    }
};

/* What every kernel takes: src is the image's first pixel (or plane array),
 * dst the first pixel of row yStart (or an array of such planes). */
struct WarpArgs {
    const void *src;
    int32_t srcStep;
    void *dst;
    int32_t dstStep;
    int32_t yStart, yEnd;
    const int32_t *spans;
    double inv[6];
    int32_t wMax, hMax;
    Lum32f *buf;
};

typedef void WarpFn(const WarpArgs &a);

/* An index for a coordinate that the spans keep inside 0..max, held there
 * against rounding (and a coordinate that is not a number). */
inline int32_t held_index(double v, int32_t max)
{
    return !(v >= 0.0) ? 0 : v >= (double)max ? max : (int32_t)v;
}

/* Walks the spans: row(y, first, last, sx, sy) with the inverse point of the
 * span's first pixel. */
template <class Row> inline void walk_spans(const WarpArgs &a, Row row)
{
    double rx = a.inv[1] * (double)a.yStart + a.inv[2];
    double ry = a.inv[4] * (double)a.yStart + a.inv[5];
    for (int32_t y = a.yStart, k = 0; y <= a.yEnd; ++y, ++k) {
        const int32_t first = a.spans[2 * k], last = a.spans[2 * k + 1];
        if (first <= last)
            row(k, first, last, a.inv[0] * (double)first + rx, a.inv[3] * (double)first + ry);
        rx += a.inv[1];
        ry += a.inv[4];
    }
}

/* The vector walks (piwarpa_vec.h) over every span, with the span's first
 * point formed as walk_spans forms it. */
template <class Walk> void walk_spans_vec(const WarpArgs &a, int32_t pixelBytes)
{
    /* Prefetch four rows ahead, clamped so that a wild transform gives a
     * tame (if useless) distance; a prefetch only hints. */
    const double down = fmin(fmax(4.0 * a.inv[4], -64.0), 64.0), across = fmin(fmax(4.0 * a.inv[1], -64.0), 64.0);
    const int64_t farthest = (a.srcStep < 0 ? -(int64_t)a.srcStep : (int64_t)a.srcStep) * a.hMax +
                             (int64_t)pixelBytes * a.wMax;
    const WarpSrc8u c = {(const Lum8u *)a.src, a.srcStep, a.inv[0], a.inv[3], a.wMax, a.hMax,
                         (ptrdiff_t)(int32_t)down * a.srcStep + (ptrdiff_t)(int32_t)across * pixelBytes,
                         farthest < INT32_MAX, _mm_set1_epi32(a.srcStep)};
    walk_spans(a, [&](int32_t k, int32_t first, int32_t last, double sx, double sy) {
        Walk w;
        w.start(sx, sy, a.inv[0], a.inv[3]);
        w.run(c, (Lum8u *)a.dst + (ptrdiff_t)k * a.dstStep + (ptrdiff_t)first * pixelBytes, last - first + 1);
    });
}

/* ---------------------------------------------------------------- kernels -- */

/* The 8-bit one- and three-channel spans have vector forms
 * (piwarpa_vec.h). */
template <class T, int L> constexpr bool kWarpVec8u = std::is_same<T, Lum8u>::value && (L == kRemapC1 || L == kRemapC3);

template <class T, int L> void warp_nn(const WarpArgs &a)
{
    if constexpr (kWarpVec8u<T, L>)
        return walk_spans_vec<WarpNN8u<WarpShape<L>::stride>>(a, WarpShape<L>::stride);
    const WarpImg<T, L> s(a.src, a.srcStep), d(a.dst, a.dstStep);
    walk_spans(a, [&](int32_t k, int32_t first, int32_t last, double sx, double sy) {
        sx += 0.5;
        sy += 0.5;
        for (int32_t x = first; x <= last; ++x, sx += a.inv[0], sy += a.inv[3]) {
            const int32_t col = held_index(sx, a.wMax), row = held_index(sy, a.hMax);
            for (int c = 0; c < WarpShape<L>::count; ++c)
                *d.at(c, x, k) = *s.at(c, col, row);
        }
    });
}

/* Base index and fraction of the linear kernel along one axis; the base
 * stays at or below max - 1 so that base + 1 exists. */
inline void linear_axis(double v, int32_t max, int32_t &i, Lum32f &f)
{
    if constexpr (LUMI_IS_M7) {
        /* This tier snaps a coordinate just below a whole number up to it
         * before truncating, and reads the last column as the one before
         * it with fraction 1. */
        const int32_t t = held_index(v + 1e-7, max);
        if (t >= max) {
            i = max - 1, f = 1.0f;
            return;
        }
        i = t, f = (Lum32f)v - (Lum32f)t;
    } else {
        const Lum32f n = (Lum32f)v;
        const int32_t t = held_index((double)n, max);
        i = t == max ? max - 1 : t;
        f = n - (Lum32f)i;
    }
}

template <class T> inline void linear_store(T *d, Lum32f v)
{
    if constexpr (std::is_same<T, Lum8u>::value) {
        const Lum32f r = v + 0.5f;
        *d = !(r > 0.0f) ? 0 : r >= 255.0f ? 255 : (Lum8u)(int32_t)r;
    } else if constexpr (std::is_same<T, Lum16u>::value) {
        const Lum32f r = !(v > 0.0f) ? 0.0f : v > 65535.0f ? 65535.0f : v;
        *d = (Lum16u)_mm_cvtss_si32(_mm_set_ss(r));
    } else {
        *d = (T)v;
    }
}

template <class T, int L> inline void linear_pixel(const WarpImg<T, L> &s, const WarpArgs &a, double sx, double sy, T *const *out)
{
    int32_t ix, iy;
    Lum32f fx, fy;
    linear_axis(sx, a.wMax, ix, fx);
    linear_axis(sy, a.hMax, iy, fy);
    for (int c = 0; c < WarpShape<L>::count; ++c) {
        const Lum32f p00 = (Lum32f)*s.at(c, ix, iy), p01 = (Lum32f)*s.at(c, ix + 1, iy);
        const Lum32f p10 = (Lum32f)*s.at(c, ix, iy + 1), p11 = (Lum32f)*s.at(c, ix + 1, iy + 1);
        const Lum32f r0 = p00 + (p01 - p00) * fx, r1 = p10 + (p11 - p10) * fx;
        linear_store(out[c], r0 + (r1 - r0) * fy);
    }
}

template <class T, int L> void warp_linear(const WarpArgs &a)
{
    const WarpImg<T, L> s(a.src, a.srcStep), d(a.dst, a.dstStep);
    /* 8-bit rows keep one accumulator for even and one for odd pixels. */
    constexpr int lanes = sizeof(T) == 1 ? 2 : 1;
    /* The vector spans compare indices in float, exact below 2^24. */
    constexpr bool vec = kWarpVec8u<T, L> && !LUMI_IS_M7;
    if constexpr (vec) {
        if (a.wMax < (1 << 24) && a.hMax < (1 << 24))
            return walk_spans_vec<WarpLinear8u<WarpShape<L>::stride>>(a, WarpShape<L>::stride);
    }
    walk_spans(a, [&](int32_t k, int32_t first, int32_t last, double sx, double sy) {
        double px[2] = {sx, sx + a.inv[0]}, py[2] = {sy, sy + a.inv[3]};
        const double stepx = lanes == 2 ? a.inv[0] + a.inv[0] : a.inv[0];
        const double stepy = lanes == 2 ? a.inv[3] + a.inv[3] : a.inv[3];
        for (int32_t x = first, j = 0; x <= last; ++x, j = lanes == 2 ? j ^ 1 : 0) {
            T *out[4];
            for (int c = 0; c < WarpShape<L>::count; ++c)
                out[c] = d.at(c, x, k);
            linear_pixel(s, a, px[j], py[j], out);
            px[j] += stepx;
            py[j] += stepy;
        }
    });
}

/* Cubic and Catmull-Rom: the span's points as a one-row coordinate map for
 * the remap row kernel F. */
template <template <class, int, bool> class F, class T, int L> void warp_through_remap(const WarpArgs &a)
{
    const WarpImg<T, L> d(a.dst, a.dstStep);
    RemapArgs r;
    r.src = a.src, r.srcStep = a.srcStep, r.dstStep = a.dstStep, r.height = 1;
    r.xMin = -1, r.yMin = -1, r.xMax = a.wMax + 1, r.yMax = a.hMax + 1;
    r.wMax = a.wMax, r.hMax = a.hMax;
    walk_spans(a, [&](int32_t k, int32_t first, int32_t last, double sx, double sy) {
        const int32_t n = last - first + 1;
        Lum32f *xs = a.buf, *ys = a.buf + n;
        for (int32_t j = 0; j < n; ++j, sx += a.inv[0], sy += a.inv[3])
            xs[j] = (Lum32f)sx, ys[j] = (Lum32f)sy;
        T *planes[4];
        for (int c = 0; c < WarpShape<L>::count; ++c)
            planes[c] = d.at(c, first, k);
        r.dst = WarpShape<L>::planar ? (void *)planes : (void *)planes[0];
        r.xMap = xs, r.yMap = ys, r.xMapStep = r.yMapStep = n * (int32_t)sizeof(Lum32f);
        r.width = n;
        remap_entry<F, T, L, false>(r);
    });
}

/* ------------------------------------------------------------------ table -- */

#define LUMI_WARP_ROW_(T, L)                                                                       \
    &warp_nn<T, L>, &warp_linear<T, L>, &warp_through_remap<RemapCub, T, L>,                      \
        &warp_through_remap<RemapCR, T, L>,
#define LUMI_WARP_TYPE_(T)                                                                         \
    LUMI_WARP_ROW_(T, kRemapC1) LUMI_WARP_ROW_(T, kRemapC3) LUMI_WARP_ROW_(T, kRemapAC4)          \
        LUMI_WARP_ROW_(T, kRemapP3) LUMI_WARP_ROW_(T, kRemapC4) LUMI_WARP_ROW_(T, kRemapP4)

/* Rows by type code (8u, 32f, 16u), then layout code; columns NN, L, C, CR. */
WarpFn *const ownpi_WarpAffineFunc[72] = {LUMI_WARP_TYPE_(Lum8u) LUMI_WARP_TYPE_(Lum32f) LUMI_WARP_TYPE_(Lum16u)};

/* -------------------------------------------------------------- soft edge -- */

template <class T> inline T blended(double v)
{
    if constexpr (std::is_floating_point<T>::value)
        return (T)v;
    else if constexpr (std::is_signed<T>::value)
        return (T)(int32_t)(v > 0.0 ? v + 0.5 : v - 0.5);
    else
        return (T)(int32_t)(v + 0.5);
}

struct EdgeImage {
    unsigned char *plane[4];
    int32_t step, planes, elements;
    int32_t left, top, right, bottom;
};

template <class T> void smooth_pel(const EdgeImage &e, int32_t oc, int32_t orow, int32_t ic, int32_t irow, double pos,
                                   double outer, double inner)
{
    const double wo = fabs(pos - outer), wi = fabs(pos - inner);
    for (int32_t c = 0; c < e.elements; ++c) {
        const int32_t p = e.planes > 1 ? c : 0, el = e.planes > 1 ? 0 : c;
        T *o = (T *)(e.plane[p] + (ptrdiff_t)orow * e.step) + (ptrdiff_t)oc * (e.planes > 1 ? 1 : e.elements) + el;
        const T *i = (const T *)(e.plane[p] + (ptrdiff_t)irow * e.step) + (ptrdiff_t)ic * (e.planes > 1 ? 1 : e.elements) + el;
        *o = blended<T>((double)*o * wo + (double)*i * wi);
    }
}

inline bool inside(const EdgeImage &e, int32_t col, int32_t row)
{
    return col >= e.left && col <= e.right && row >= e.top && row <= e.bottom;
}

template <class T> void smooth_border(const EdgeImage &e, const double quad[4][2], int orientation)
{
    WarpPolygon p;
    clip_polygon(quad, {(double)e.left, (double)e.top, (double)e.right, (double)e.bottom}, p);
    if (p.count < 3)
        return;
    for (int32_t v = 0; v < p.count; ++v) {
        const int32_t w = v + 1 < p.count ? v + 1 : 0;
        const double x0 = p.x[v], y0 = p.y[v], dx = p.x[w] - x0, dy = p.y[w] - y0;
        if (dx == 0.0 || dy == 0.0)
            continue;
        if (fabs(dy) > fabs(dx)) {
            /* Inside lies to the left of a side going down when the turn is
             * kept. */
            const bool swap = (orientation != 1) != (dy < 0.0);
            for (double y = ceil(fmin(y0, p.y[w])); y <= floor(fmax(y0, p.y[w])); y += 1.0) {
                const double x = (y - y0) * dx / dy + x0;
                double in = floor(x), out = ceil(x);
                if (swap)
                    in = ceil(x), out = floor(x);
                if (x != floor(x) && inside(e, (int32_t)in, (int32_t)y) && inside(e, (int32_t)out, (int32_t)y))
                    smooth_pel<T>(e, (int32_t)out, (int32_t)y, (int32_t)in, (int32_t)y, x, out, in);
            }
        } else {
            const bool swap = (orientation != 1) != (dx < 0.0);
            for (double x = ceil(fmin(x0, p.x[w])); x <= floor(fmax(x0, p.x[w])); x += 1.0) {
                const double y = (x - x0) * dy / dx + y0;
                double in = ceil(y), out = floor(y);
                if (swap)
                    in = floor(y), out = ceil(y);
                if (y != floor(y) && inside(e, (int32_t)x, (int32_t)in) && inside(e, (int32_t)x, (int32_t)out))
                    smooth_pel<T>(e, (int32_t)x, (int32_t)out, (int32_t)x, (int32_t)in, y, out, in);
            }
        }
    }
}

} // namespace

/* ------------------------------------------------------------------ entry -- */

LumStatus warp_affine(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,
                      void *pDst, int32_t dstStep, LumiRect dstRoi, int32_t code,
                      const double c[6], int32_t interpolation)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(srcSize) || !rect_valid(srcRoi) || !rect_valid(dstRoi))
        return lumStsSizeErr;
    int32_t sel = selector_code(interpolation);
    if (sel != LUMI_INTER_NN && sel != LUMI_INTER_LINEAR && sel != LUMI_INTER_CUBIC && sel != LUMI_INTER_CATMULLROM)
        return lumStsInterpolationErr;
    const int32_t layout = code & 7, type = code & ~7, planes = planes_of(layout);
    if (type != kWarp8u && type != kWarp32f && type != kWarp16u)
        return lumStsBadArgErr;
    if (any_null_planes(pSrc, planes) || any_null_planes(pDst, planes))
        return lumStsNullPtrErr;

    /* Singular coefficients: the determinant relative to the diagonal's
     * product, or the off-diagonal product where the diagonal's is too small
     * to divide by.  A NaN passes. */
    const double kTinyDiagonal = 1e-200, kSingularRatio = 1e-10;
    const double p = fabs(c[0] * c[4]);
    const double m = p > kTinyDiagonal ? fabs((c[0] * c[4] - c[1] * c[3]) / (c[0] * c[4])) : fabs(c[1] * c[3]);
    if (m <= kSingularRatio)
        return lumStsCoeffErr;
    if (srcSize.width == 1 || srcSize.height == 1)
        sel = LUMI_INTER_NN;
    else if (sel == LUMI_INTER_CUBIC && (srcSize.width < 4 || srcSize.height < 4))
        sel = LUMI_INTER_LINEAR;
    if (!rect_starts_inside(srcRoi, srcSize))
        return lumStsNoIntersectRoiWarn;
    const int32_t roiW = srcRoi.width < srcSize.width - srcRoi.x ? srcRoi.width : srcSize.width - srcRoi.x;
    const int32_t roiH = srcRoi.height < srcSize.height - srcRoi.y ? srcRoi.height : srcSize.height - srcRoi.y;
    if (roiW < 2 || roiH < 2)
        return lumStsCoeffErr;

    const int32_t x0 = srcRoi.x, y0 = srcRoi.y, x1 = srcRoi.x + roiW - 1, y1 = srcRoi.y + roiH - 1;
    double quad[4][2], inv[6];
    warp_affine_rect(c, x0, y0, x1, y1, quad);
    if (check_quad(quad) < 0)
        return lumStsCoeffErr;
    const int orientation = affine_inverse(x0, y0, x1, y1, quad, inv);

    const int32_t right = (int32_t)((int64_t)dstRoi.x + dstRoi.width - 1 > INT32_MAX ? INT32_MAX : dstRoi.x + (int64_t)dstRoi.width - 1);
    const int32_t bottom = (int32_t)((int64_t)dstRoi.y + dstRoi.height - 1 > INT32_MAX ? INT32_MAX : dstRoi.y + (int64_t)dstRoi.height - 1);
    WarpPolygon poly;
    clip_polygon(quad, {(double)dstRoi.x, (double)dstRoi.y, (double)right, (double)bottom}, poly);
    int32_t yStart, yEnd;
    if (!polygon_rows(poly, yStart, yEnd))
        return lumStsNoIntersectQuadWarn;

    WorkMem<2> mem = {};
    int32_t *spans = workmem_take<int32_t>(mem, 2 * ((int64_t)yEnd - yStart) + 2);
    if (!spans) {
        workmem_release(mem);
        return lumStsNoIntersectQuadWarn;
    }
    Lum32f *buf = nullptr;
    if (sel == LUMI_INTER_CUBIC || sel == LUMI_INTER_CATMULLROM) {
        buf = workmem_take<Lum32f>(mem, 2 * (int64_t)dstRoi.width);
        if (!buf)
            return workmem_release(mem);
    }
    polygon_spans(poly, orientation, yStart, yEnd, dstRoi.x, right, spans);

    void *rowPlanes[4];
    WarpArgs a;
    a.src = pSrc, a.srcStep = srcStep, a.dstStep = dstStep;
    if (planes) {
        for (int32_t i = 0; i < planes; ++i)
            rowPlanes[i] = (unsigned char *)((void *const *)pDst)[i] + (ptrdiff_t)yStart * dstStep;
        a.dst = rowPlanes;
    } else {
        a.dst = (unsigned char *)pDst + (ptrdiff_t)yStart * dstStep;
    }
    a.yStart = yStart, a.yEnd = yEnd, a.spans = spans;
    for (int i = 0; i < 6; ++i)
        a.inv[i] = inv[i];
    a.wMax = srcSize.width - 1, a.hMax = srcSize.height - 1, a.buf = buf;
    const int32_t column = sel == LUMI_INTER_CATMULLROM ? 3 : sel >> 1;
    ownpi_WarpAffineFunc[((type >> 3) * 6 + layout) * 4 + column](a);
    workmem_release(mem);

    if (interpolation & LUMI_SMOOTH_EDGE) {
        EdgeImage e;
        for (int32_t i = 0; i < 4; ++i)
            e.plane[i] = planes ? (unsigned char *)((void *const *)pDst)[i < planes ? i : 0] : (unsigned char *)pDst;
        e.step = dstStep, e.planes = planes ? planes : 1;
        e.elements = planes ? planes : layout == kWarpC1 ? 1 : layout == kWarpC3 ? 3 : 4;
        e.left = dstRoi.x, e.top = dstRoi.y, e.right = right, e.bottom = bottom;
        if (type == kWarp8u)
            smooth_border<Lum8u>(e, quad, orientation);
        else if (type == kWarp16u)
            smooth_border<Lum16u>(e, quad, orientation);
        else
            smooth_border<Lum32f>(e, quad, orientation);
    }
    return lumStsNoErr;
}

} // namespace LUMI_NS
