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
#include "piremap_vec.h"
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

/* ---------------------------------------------- byte images in vectors -- */

/* 8-bit images of one, three and four elements turn in registers: half
 * turns reverse 16 bytes (one element), four pixels (three) or four pixels
 * (four) at a time; quarter turns transpose blocks of 8 x 8 bytes (one
 * element) or 4 x 4 pixels (three and four, the three-byte pixels widened to
 * four bytes for the transpose and narrowed again).  Three-byte pixels are
 * arranged by byte shuffles, so the SSE3 tier, which has none, keeps the
 * element loops for them.  Every load and store covers exactly the pixels
 * of the block; rows and columns left over go through the element loops. */
template <int S> constexpr bool kTurnBlocks = S == 1 || S == 4 || (S == 3 && LUMI_HAS_SSSE3);

/* The 16 bytes reversed (SSE2: dwords, then words in dwords, then bytes in
 * words). */
inline __m128i reverse_bytes(__m128i v)
{
    v = _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3));
    v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1)), _MM_SHUFFLE(2, 3, 0, 1));
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

/* Four pixels of S bytes: load, store, reverse their order, and widen to
 * (or narrow from) four bytes each. */
template <int S> inline __m128i load4px(const unsigned char *p)
{
    if constexpr (S == 4)
        return _mm_loadu_si128((const __m128i *)p);
    else
        return remap_load_bytes(p, 12);
}
template <int S> inline void store4px(unsigned char *p, __m128i v)
{
    if constexpr (S == 4) {
        _mm_storeu_si128((__m128i *)p, v);
    } else {
        _mm_storel_epi64((__m128i *)p, v);
        const int32_t hi = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
        memcpy(p + 8, &hi, 4);
    }
}
template <int S> inline __m128i reverse4px(__m128i v)
{
    static const int8_t idx[16] = {9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2, -1, -1, -1, -1};
    if constexpr (S == 4)
        return _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3));
    else
        return remap_c3_arrange(v, idx);
}
template <int S> inline __m128i widen4px(__m128i v)
{
    static const int8_t idx[16] = {0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1};
    if constexpr (S == 4)
        return v;
    else
        return remap_c3_arrange(v, idx);
}
template <int S> inline __m128i narrow4px(__m128i v)
{
    static const int8_t idx[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1};
    if constexpr (S == 4)
        return v;
    else
        return remap_c3_arrange(v, idx);
}

/* One row of a half turn: width pixels, the source read backwards from s;
 * returns how many were done (whole vectors only). */
template <int S> inline int32_t reverse_row(const unsigned char *s, unsigned char *d, int32_t width)
{
    int32_t j = 0;
    if constexpr (S == 1) {
        for (; j + 16 <= width; j += 16)
            _mm_storeu_si128((__m128i *)(d + j), reverse_bytes(_mm_loadu_si128((const __m128i *)(s - j - 15))));
    } else {
        for (; j + 4 <= width; j += 4)
            store4px<S>(d + j * S, reverse4px<S>(load4px<S>(s - (j + 3) * S)));
    }
    return j;
}

/* A block of a quarter turn: destination pixel (r, c) of the block is the
 * source pixel at row c and pixel r * direction from s.  Eight by eight
 * bytes for one element, four by four pixels otherwise. */
template <int S>
inline void turn_block(const unsigned char *s, unsigned char *d, ptrdiff_t srcStep, ptrdiff_t dstStep, int32_t direction)
{
    if constexpr (S == 1) {
        /* Source row c's eight bytes, lowest address first. */
        const unsigned char *b = direction > 0 ? s : s - 7;
        __m128i in[8];
        for (int c = 0; c < 8; ++c)
            in[c] = _mm_loadl_epi64((const __m128i *)(b + c * srcStep));
        const __m128i a0 = _mm_unpacklo_epi8(in[0], in[1]), a1 = _mm_unpacklo_epi8(in[2], in[3]);
        const __m128i a2 = _mm_unpacklo_epi8(in[4], in[5]), a3 = _mm_unpacklo_epi8(in[6], in[7]);
        const __m128i b0 = _mm_unpacklo_epi16(a0, a1), b1 = _mm_unpackhi_epi16(a0, a1);
        const __m128i b2 = _mm_unpacklo_epi16(a2, a3), b3 = _mm_unpackhi_epi16(a2, a3);
        /* Byte q of every source row, for q = 0..7, two per register. */
        const __m128i q[4] = {_mm_unpacklo_epi32(b0, b2), _mm_unpackhi_epi32(b0, b2), _mm_unpacklo_epi32(b1, b3),
                              _mm_unpackhi_epi32(b1, b3)};
        for (int k = 0; k < 4; ++k) {
            const int r0 = direction > 0 ? 2 * k : 7 - 2 * k, r1 = direction > 0 ? 2 * k + 1 : 6 - 2 * k;
            _mm_storel_epi64((__m128i *)(d + r0 * dstStep), q[k]);
            _mm_storel_epi64((__m128i *)(d + r1 * dstStep), _mm_unpackhi_epi64(q[k], q[k]));
        }
    } else {
        const unsigned char *b = direction > 0 ? s : s - 3 * S;
        __m128i in[4];
        for (int c = 0; c < 4; ++c)
            in[c] = widen4px<S>(load4px<S>(b + c * srcStep));
        const __m128i t0 = _mm_unpacklo_epi32(in[0], in[1]), t1 = _mm_unpacklo_epi32(in[2], in[3]);
        const __m128i t2 = _mm_unpackhi_epi32(in[0], in[1]), t3 = _mm_unpackhi_epi32(in[2], in[3]);
        /* Pixel q of every source row, q = 0..3. */
        const __m128i q[4] = {_mm_unpacklo_epi64(t0, t1), _mm_unpackhi_epi64(t0, t1), _mm_unpacklo_epi64(t2, t3),
                              _mm_unpackhi_epi64(t2, t3)};
        for (int k = 0; k < 4; ++k)
            store4px<S>(d + (direction > 0 ? k : 3 - k) * dstStep, narrow4px<S>(q[k]));
    }
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
            int32_t j = 0;
            if constexpr (sizeof(E) == 1 && S == M && kTurnBlocks<S>)
                j = reverse_row<S>(s, d, width);
            const unsigned char *sp = s - (ptrdiff_t)j * S;
            unsigned char *dp = d + (ptrdiff_t)j * S;
            for (; j < width; ++j, sp -= S * sizeof(E), dp += S * sizeof(E))
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

/* A tile of a byte image's quarter turn in blocks; the rows and columns
 * that no whole block covers go through the element loop. */
template <int S>
void turn_tile(const unsigned char *src, unsigned char *dst, int32_t height, int32_t width, ptrdiff_t srcStep,
               ptrdiff_t dstStep, int32_t direction)
{
    constexpr int32_t B = S == 1 ? 8 : 4;
    const int32_t bw = width - width % B, bh = height - height % B;
    for (int32_t i = 0; i < bh; i += B) {
        const unsigned char *s = src + (ptrdiff_t)i * direction * S;
        unsigned char *d = dst + (ptrdiff_t)i * dstStep;
        for (int32_t j = 0; j < bw; j += B)
            turn_block<S>(s + (ptrdiff_t)j * srcStep, d + (ptrdiff_t)j * S, srcStep, dstStep, direction);
    }
    if (bw < width)
        rotate90_tile<Lum8u, S, S>(src + (ptrdiff_t)bw * srcStep, dst + (ptrdiff_t)bw * S, bh, width - bw, srcStep,
                                   dstStep, direction);
    if (bh < height)
        rotate90_tile<Lum8u, S, S>(src + (ptrdiff_t)bh * direction * S, dst + (ptrdiff_t)bh * dstStep, height - bh,
                                   width, srcStep, dstStep, direction);
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
        for (int32_t t = 0; t < width; t += tile) {
            const unsigned char *st = s + (ptrdiff_t)t * srcStep;
            unsigned char *dt = d + (ptrdiff_t)t * S * (ptrdiff_t)sizeof(E);
            const int32_t tw = width - t < tile ? width - t : tile;
            if constexpr (sizeof(E) == 1 && S == M && kTurnBlocks<S>)
                turn_tile<S>(st, dt, height, tw, srcStep, dstStep, direction);
            else
                rotate90_tile<E, S, M>(st, dt, height, tw, srcStep, dstStep, direction);
        }
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
