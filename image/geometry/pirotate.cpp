/*
 * Rotation: the common body and the exact quarter turns.
 *
 * The angle is reduced to a in [0, 360).  When a is exactly 90, 180 or 270
 * and both shifts are whole numbers, the turn is a copy: no interpolation,
 * no allocation, and no test of the steps or the selector (any selector
 * works there, and LUMI_SMOOTH_EDGE does nothing).  Every other rotation is
 * an affine warp (piwarpa.cpp) with the coefficients cos a, sin a, xShift,
 * -sin a, cos a, yShift; quarter turns with a fractional shift use exact
 * 0 and +-1 instead of computed sines, and a = 0 is a warp like any other.
 *
 * Quarter turns.  With whole shifts (sx, sy) the turned region's bounding
 * rectangle is cut to dstRoi (nothing left: warning 29), and each pixel of
 * what remains copies one source pixel.  A half turn reads each source row
 * backwards, bottom row first.  A quarter turn writes destination rows that
 * read source columns; destination columns go in tiles (32 for one element,
 * 16 otherwise) so that the source rows a tile reads stay in cache.  A
 * three-quarter turn is the quarter turn with the source step negated.  AC4
 * leaves the fourth element alone; planar layouts turn each plane.
 *
 * Shifts too large for a 32-bit integer truncate to its least value, and the
 * rectangle arithmetic is 64-bit, so extreme shifts only ever miss the
 * destination; nothing is read outside the source region or written
 * outside dstRoi.
 */
#include "pirotate.h"

#include <emmintrin.h>
#include <math.h>
#include <stddef.h>
#include <string.h>

#include "checks.h"
#include "piwarpa.h"

namespace LUMI_NS {
namespace {

/* src and dst: the first pixel of the turned block, or arrays of plane
 * pointers; steps in bytes; direction for quarter turns in pixels. */
typedef void RotateFn(const void *src, void *dst, int32_t height, int32_t width, ptrdiff_t srcStep,
                      ptrdiff_t dstStep, int32_t direction);

template <int Lc> struct TurnShape {
    static constexpr int planes = Lc == kWarpP3 ? 3 : Lc == kWarpP4 ? 4 : 1;
    static constexpr int stride = planes > 1 || Lc == kWarpC1 ? 1 : Lc == kWarpC3 ? 3 : 4;
    static constexpr int moved = planes > 1 ? 1 : Lc == kWarpAC4 ? 3 : stride;
};

template <class E, int Lc> inline const E *plane_of(const void *p, int c)
{
    return TurnShape<Lc>::planes > 1 ? ((const E *const *)p)[c] : (const E *)p;
}

/* The M elements of one pixel.  Caller's rows need not be aligned to the
 * element size (steps are in bytes), so elements move through memcpy,
 * which compiles to plain loads and stores. */
template <class E, int M>
inline void move_elements(unsigned char *d, const unsigned char *s)
{
    for (int e = 0; e < M; ++e)
        memcpy(d + e * sizeof(E), s + e * sizeof(E), sizeof(E));
}

template <class E, int Lc>
void rotate180(const void *src, void *dst, int32_t height, int32_t width, ptrdiff_t srcStep,
               ptrdiff_t dstStep, int32_t)
{
    constexpr int S = TurnShape<Lc>::stride, M = TurnShape<Lc>::moved;
    for (int c = 0; c < TurnShape<Lc>::planes; ++c) {
        const unsigned char *s = (const unsigned char *)plane_of<E, Lc>(src, c);
        unsigned char *d = (unsigned char *)plane_of<E, Lc>(dst, c);
        for (int32_t i = 0; i < height; ++i, s -= srcStep, d += dstStep) {
            const unsigned char *sp = s;
            unsigned char *dp = d;
            for (int32_t j = 0; j < width; ++j, sp -= S * sizeof(E), dp += S * sizeof(E))
                move_elements<E, M>(dp, sp);
        }
    }
}

/* One tile of a quarter turn: destination row i reads the source column
 * that starts at src + i direction pixels and runs down by srcStep. */
template <class E, int S, int M>
inline void rotate90_tile(const unsigned char *src, unsigned char *dst, int32_t height, int32_t width,
                          ptrdiff_t srcStep, ptrdiff_t dstStep, int32_t direction)
{
    for (int32_t i = 0; i < height; ++i, dst += dstStep) {
        const unsigned char *s = src + (ptrdiff_t)i * direction * S * (ptrdiff_t)sizeof(E);
        unsigned char *d = dst;
        for (int32_t j = 0; j < width; ++j, s += srcStep, d += S * sizeof(E))
            move_elements<E, M>(d, s);
    }
}

template <class E, int Lc>
void rotate90(const void *src, void *dst, int32_t height, int32_t width, ptrdiff_t srcStep,
              ptrdiff_t dstStep, int32_t direction)
{
    constexpr int S = TurnShape<Lc>::stride, M = TurnShape<Lc>::moved;
    constexpr int32_t tile = Lc == kWarpC1 ? 32 : 16;
    for (int c = 0; c < TurnShape<Lc>::planes; ++c) {
        const unsigned char *s = (const unsigned char *)plane_of<E, Lc>(src, c);
        unsigned char *d = (unsigned char *)plane_of<E, Lc>(dst, c);
        for (int32_t t = 0; t < width; t += tile)
            rotate90_tile<E, S, M>(s + (ptrdiff_t)t * srcStep, d + (ptrdiff_t)t * S * (ptrdiff_t)sizeof(E), height,
                                   width - t < tile ? width - t : tile, srcStep, dstStep, direction);
    }
}

#define LUMI_TURN_ROW_(F, E)                                                                       \
    &F<E, kWarpC1>, &F<E, kWarpC3>, &F<E, kWarpAC4>, &F<E, kWarpP3>, &F<E, kWarpC4>, &F<E, kWarpP4>,
#define LUMI_TURN_HALF_(F)                                                                         \
    LUMI_TURN_ROW_(F, Lum8u) LUMI_TURN_ROW_(F, Lum32u) LUMI_TURN_ROW_(F, Lum16u) LUMI_TURN_ROW_(F, Lum64u)

/* Half turns in slots 0..23, quarter turns in 24..47; in each half the rows
 * are element sizes 8, 32, 16, 64 bits and the columns layout codes. */
RotateFn *const ownpi_RotateFunc[48] = {LUMI_TURN_HALF_(rotate180) LUMI_TURN_HALF_(rotate90)};

int64_t min64(int64_t a, int64_t b) { return a < b ? a : b; }
int64_t max64(int64_t a, int64_t b) { return a > b ? a : b; }

int32_t element_bytes(int32_t type)
{
    return type == kWarp8u ? 1 : type == kWarp16u || type == kWarp16s ? 2 : type == kWarp64f ? 8 : 4;
}

LumStatus quarter_turn(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, void *pDst,
                       int32_t dstStep, LumiRect dstRoi, int32_t code, int32_t n, double xShift, double yShift)
{
    const int32_t layout = code & 7, type = code & ~7, planes = planes_of(layout);
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(srcSize) || !rect_valid(srcRoi) || !rect_valid(dstRoi))
        return lumStsSizeErr;
    if (any_null_planes(pSrc, planes) || any_null_planes(pDst, planes))
        return lumStsNullPtrErr;
    if (!rect_starts_inside(srcRoi, srcSize))
        return lumStsNoIntersectRoiWarn;
    const int64_t x0 = srcRoi.x, y0 = srcRoi.y;
    const int64_t xr = x0 + min64(srcRoi.width, (int64_t)srcSize.width - x0) - 1;
    const int64_t yb = y0 + min64(srcRoi.height, (int64_t)srcSize.height - y0) - 1;
    const int64_t sx = _mm_cvttsd_si32(_mm_set_sd(xShift)), sy = _mm_cvttsd_si32(_mm_set_sd(yShift));

    int64_t left, right, top, bottom;
    if (n == 90)
        left = y0 + sx, right = yb + sx, top = sy - xr, bottom = sy - x0;
    else if (n == 180)
        left = sx - xr, right = sx - x0, top = sy - yb, bottom = sy - y0;
    else
        left = sx - yb, right = sx - y0, top = x0 + sy, bottom = xr + sy;
    left = max64(left, dstRoi.x), right = min64(right, (int64_t)dstRoi.x + dstRoi.width - 1);
    top = max64(top, dstRoi.y), bottom = min64(bottom, (int64_t)dstRoi.y + dstRoi.height - 1);
    if (left > right || top > bottom)
        return lumStsNoIntersectRoiWarn;

    int64_t row, col;
    int32_t direction = 0;
    if (n == 90)
        row = left - sx, col = sy - top, direction = -1;
    else if (n == 180)
        row = sy - top, col = sx - left;
    else
        row = sx - left, col = top - sy, direction = 1;

    const int32_t pixel = (planes ? 1 : layout == kWarpC1 ? 1 : layout == kWarpC3 ? 3 : 4) * element_bytes(type);
    const ptrdiff_t srcOffset = (ptrdiff_t)row * srcStep + (ptrdiff_t)col * pixel;
    const ptrdiff_t dstOffset = (ptrdiff_t)top * dstStep + (ptrdiff_t)left * pixel;
    const void *srcAt = (const unsigned char *)pSrc + srcOffset;
    void *dstAt = (unsigned char *)pDst + dstOffset;
    const void *srcPlanes[4];
    void *dstPlanes[4];
    if (planes) {
        for (int32_t i = 0; i < planes; ++i) {
            srcPlanes[i] = (const unsigned char *)((const void *const *)pSrc)[i] + srcOffset;
            dstPlanes[i] = (unsigned char *)((void *const *)pDst)[i] + dstOffset;
        }
        srcAt = srcPlanes, dstAt = dstPlanes;
    }
    const int32_t width = (int32_t)(right - left + 1), height = (int32_t)(bottom - top + 1);
    const ptrdiff_t sstep = n == 270 ? -(ptrdiff_t)srcStep : (ptrdiff_t)srcStep;
    const int32_t slot = (type >> 3) * 6 + layout + (n == 180 ? 0 : 24);
    ownpi_RotateFunc[slot](srcAt, dstAt, height, width, sstep, dstStep, direction);
    return lumStsNoErr;
}

} // namespace

double rotation_angle(double angle)
{
    const int32_t turns = _mm_cvttsd_si32(_mm_set_sd(angle / 360.0));
    double a = angle - (double)turns * 360.0;
    if (a < 0.0)
        a += 360.0;
    return a;
}

LumStatus rotate(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, void *pDst,
                 int32_t dstStep, LumiRect dstRoi, int32_t code, double angle, double xShift,
                 double yShift, int32_t interpolation)
{
    const double a = rotation_angle(angle);
    const bool quarter = a == 90.0 || a == 180.0 || a == 270.0;
    if (quarter && floor(xShift) == xShift && floor(yShift) == yShift)
        return quarter_turn(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi, code,
                            (int32_t)(a + 0.1), xShift, yShift);
    double c[6] = {0.0, 0.0, xShift, 0.0, 0.0, yShift};
    if (a == 90.0)
        c[1] = 1.0, c[3] = -1.0;
    else if (a == 180.0)
        c[0] = -1.0, c[4] = -1.0;
    else if (a == 270.0)
        c[1] = -1.0, c[3] = 1.0;
    else {
        const double r = a / 180.0 * 3.141592653589793;
        c[0] = cos(r), c[1] = sin(r), c[3] = -sin(r), c[4] = cos(r);
    }
    return warp_affine(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi, code, c, interpolation);
}

} // namespace LUMI_NS

/* The common body for any type and layout, for the tests of every slot. */
LUMI_MEMBER LumStatus LUMI_T(ownpi_Rotate)(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,
                                           void *pDst, int32_t dstStep, LumiRect dstRoi, int32_t code, double angle,
                                           double xShift, double yShift, int32_t interpolation)
{
    return LUMI_NS::rotate(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi, code, angle, xShift, yShift,
                           interpolation);
}
