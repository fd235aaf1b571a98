/*
 * Colour (vector) median of three-channel 8-bit images over a 3x3 or 5x5
 * window centred on each pixel.  The output pixel is always one of the
 * window's own pixels: the one whose score, the sum of its distances to all
 * the other pixels of the window, is smallest.  The distance of two pixels is
 * |a0 - b0| + |a1 - b1| + |a2 - b2| (at most 765), so a score is at most
 * 8 * 765 = 6120 for 3x3 and 24 * 765 = 18360 for 5x5; both fit 16-bit lanes.
 * When several cells share the smallest score, the first of them in
 * row-major order within the window wins.  There is no border: pSrc is the
 * pixel under the first output pixel and the caller supplies one (3x3) or two
 * (5x5) pixels on every side of the region.
 *
 * A score splits by columns.  For window row r, column offset d and source
 * column u, let T[r][d](u) be the summed distance from the pixel at (r, u) to
 * the K pixels of column u + d (K the window's side).  The score of cell
 * (r, i) of the window whose left column is x is then
 *     T[r][-i](x + i) + T[r][1 - i](x + i) + ... + T[r][K - 1 - i](x + i).
 * T of a row is a sum over the rows of the window, so it follows the window
 * down: when a row enters at the bottom, its distances to the K - 1 rows
 * above it (at every offset d) are computed once, each going into the new
 * row's T and, at the mirrored offset, into the other row's; they are kept
 * with the new row, and when the top row leaves each remaining row subtracts
 * what it keeps for it.  A row's distances within itself are added as it
 * enters.  So an output pixel costs (K - 1) * (2K - 1) + 2 (K - 1) distances
 * (44 for 5x5, 14 for 3x3), against the K * K * (K - 1) + K * (K - 1) / 2
 * (110, 21) of a window that slides along a row only.  Every sum is exact in
 * 16 bits, so the order of additions does not matter.
 *
 * The region is worked in strips of up to 32 output columns, each from its
 * top row down.  A strip keeps a ring of K source rows, each split into three
 * 16-bit channel rows, with its T and the distances it keeps.  An output row
 * scores its windows eight at a time and keeps, per lane, the first cell
 * with the smallest score; the winning pixel's three bytes are copied from
 * the source.  Lanes beyond a strip's ends compute values that no window
 * reads.
 *
 * Nothing is allocated: the ring (30 KB for 5x5, 7 KB for 3x3) lives on the
 * stack.  Every read is a byte of the footprint and every write a byte of the
 * region.  The tiers run the same code but for two small helpers, the
 * absolute difference (pabsw from SSSE3) and the lane select (pblendvb from
 * SSE4.1); all give the same pixels.
 */
#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif
#if LUMI_HAS_SSE41
#include <smmintrin.h>
#endif
#include <string.h>

#include "checks.h"

namespace LUMI_NS {
namespace {

const int kStrip = 32;     /* output columns of a strip */
const int kMaxSide = 5;
const int kLanes = 8;      /* 16-bit lanes of a vector */
/* Cells of a 16-bit row: a vector before the strip's first column, since a
 * distance reads up to K - 1 columns to the left of its vector, the strip's
 * source columns rounded up to whole vectors, and two vectors after them for
 * the reads and sums to the right. */
const int kFront = kLanes;
const int kRowCells = kFront + (kStrip + kMaxSide - 1 + kLanes - 1) / kLanes * kLanes + 2 * kLanes;

/* |a - b| per 16-bit lane, for values 0..255. */
inline __m128i absdiff16(__m128i a, __m128i b)
{
#if LUMI_HAS_SSSE3
    return _mm_abs_epi16(_mm_sub_epi16(a, b));
#else
    /* No pabsw below SSSE3. */
    return _mm_sub_epi16(_mm_max_epi16(a, b), _mm_min_epi16(a, b));
#endif
}

/* Lanes of `yes` where `mask` is all ones, of `no` elsewhere. */
inline __m128i select16(__m128i mask, __m128i yes, __m128i no)
{
#if LUMI_HAS_SSE41
    return _mm_blendv_epi8(no, yes, mask);
#else
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
#endif
}

inline __m128i load(const int16_t *p) { return _mm_loadu_si128((const __m128i *)p); }
inline void store(int16_t *p, __m128i v) { _mm_storeu_si128((__m128i *)p, v); }

/* One source row of a strip in the ring, with what it contributes to the
 * windows it stands in.  Column u is cell kFront + u of every row; d is a
 * column offset -(K-1)..K-1, kept at index d + K - 1.
 *   c[ch]       the row's channels
 *   up[j][d]    distance from pixel u to pixel u + d of the row j rows above
 *   sum[d]      T of this row: summed distance from pixel u to the pixels of
 *               column u + d in the rows of the current window */
template <int K>
struct RingRow {
    int16_t c[3][kRowCells];
    int16_t up[K - 1][2 * K - 1][kRowCells];
    int16_t sum[2 * K - 1][kRowCells];
};

inline __m128i distance(const int16_t (*a)[kRowCells], int ua, const int16_t (*b)[kRowCells],
                        int ub)
{
    const __m128i d0 = absdiff16(load(a[0] + ua), load(b[0] + ub));
    const __m128i d1 = absdiff16(load(a[1] + ua), load(b[1] + ub));
    const __m128i d2 = absdiff16(load(a[2] + ua), load(b[2] + ub));
    return _mm_add_epi16(_mm_add_epi16(d0, d1), d2);
}

/* Splits `cols` pixels of a source row into the three channel rows. */
template <int K>
void split_row(const Lum8u *src, int cols, RingRow<K> &row)
{
    for (int u = 0; u < cols; ++u) {
        row.c[0][kFront + u] = src[3 * u];
        row.c[1][kFront + u] = src[3 * u + 1];
        row.c[2][kFront + u] = src[3 * u + 2];
    }
}

/* Row b enters below the `above` rows already in the window (above[j - 1]
 * is j rows up).  Each distance between b and a row above is computed once:
 * it goes into b's sums, is kept in b's `up` for when the other row leaves,
 * and is added to the other row's sums at the mirrored offset. */
template <int K>
void enter_row(RingRow<K> &b, RingRow<K> *const above[K - 1], int nAbove, int cols)
{
    for (int u = kFront; u < kFront + cols; u += kLanes)
        for (int d = -(K - 1); d < K; ++d) {
            __m128i acc = d ? distance(b.c, u, b.c, u + d) : _mm_setzero_si128();
            for (int j = 1; j <= nAbove; ++j) {
                RingRow<K> &a = *above[j - 1];
                const __m128i dist = distance(b.c, u, a.c, u + d);
                store(b.up[j - 1][d + K - 1] + u, dist);
                acc = _mm_add_epi16(acc, dist);
                int16_t *mirror = a.sum[K - 1 - d] + u + d;
                store(mirror, _mm_add_epi16(load(mirror), dist));
            }
            store(b.sum[d + K - 1] + u, acc);
        }
}

/* The window's top row goes out: each remaining row (rest[j - 1] stands j
 * rows below the top one) takes back the distances it keeps to it. */
template <int K>
void leave_row(RingRow<K> *const rest[K - 1], int cols)
{
    for (int j = 1; j < K; ++j) {
        RingRow<K> &a = *rest[j - 1];
        for (int d = 0; d < 2 * K - 1; ++d)
            for (int u = kFront; u < kFront + cols; u += kLanes)
                store(a.sum[d] + u, _mm_sub_epi16(load(a.sum[d] + u), load(a.up[j - 1][d] + u)));
    }
}

/* For windows 0..n-1 of the strip (rows[r] is window row r), the window
 * cell (row-major index) with the smallest score, the first one on ties. */
template <int K>
void choose(RingRow<K> *const rows[K], int n, uint16_t *cell)
{
    for (int x = kFront; x < kFront + n; x += kLanes) {
        __m128i best = _mm_set1_epi16(0x7fff);
        __m128i which = _mm_setzero_si128();
        for (int r = 0; r < K; ++r)
            for (int i = 0; i < K; ++i) {
                const int16_t (*t)[kRowCells] = rows[r]->sum;
                __m128i score = load(t[K - 1 - i] + x + i);
                for (int j = 1; j < K; ++j)
                    score = _mm_add_epi16(score, load(t[K - 1 + j - i] + x + i));
                /* Strictly smaller only, so an earlier cell keeps a tie. */
                const __m128i smaller = _mm_cmplt_epi16(score, best);
                best = _mm_min_epi16(best, score);
                which = select16(smaller, _mm_set1_epi16((int16_t)(r * K + i)), which);
            }
        _mm_storeu_si128((__m128i *)(cell + x - kFront), which);
    }
}

template <int K>
void median_color(const Lum8u *first, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                  LumiSize roi)
{
    RingRow<K> ring[K];
    uint16_t cell[kStrip];
    /* Lanes past a strip's ends read and sum these cells; give them a value. */
    memset(ring, 0, sizeof ring);

    /* Byte offset of each window cell from the window's first pixel. */
    intptr_t offset[K * K];
    for (int r = 0; r < K; ++r)
        for (int i = 0; i < K; ++i)
            offset[r * K + i] = (intptr_t)r * srcStep + 3 * i;

    for (int32_t x0 = 0; x0 < roi.width; x0 += kStrip) {
        const int n = roi.width - x0 < kStrip ? (int)(roi.width - x0) : kStrip;
        const int cols = n + K - 1;
        const Lum8u *strip = first + (intptr_t)x0 * 3;
        RingRow<K> *near[K - 1];
        /* The first window: rows enter one by one. */
        for (int r = 0; r < K; ++r) {
            split_row(strip + (intptr_t)r * srcStep, cols, ring[r]);
            for (int j = 1; j <= r; ++j)
                near[j - 1] = &ring[r - j];
            enter_row<K>(ring[r], near, r, cols);
        }
        for (int32_t y = 0;; ++y) {
            RingRow<K> *rows[K];
            for (int r = 0; r < K; ++r)
                rows[r] = &ring[(y + r) % K];
            choose<K>(rows, n, cell);
            const Lum8u *top = strip + (intptr_t)y * srcStep;
            Lum8u *dst = pDst + (intptr_t)y * dstStep + (intptr_t)x0 * 3;
            for (int x = 0; x < n; ++x) {
                const Lum8u *p = top + 3 * x + offset[cell[x]];
                dst[3 * x] = p[0];
                dst[3 * x + 1] = p[1];
                dst[3 * x + 2] = p[2];
            }
            if (y + 1 == roi.height)
                break;
            /* Row y leaves and row y + K enters in its place. */
            leave_row<K>(rows + 1, cols);
            RingRow<K> &b = *rows[0];
            split_row(top + (intptr_t)K * srcStep, cols, b);
            for (int j = 1; j < K; ++j)
                near[j - 1] = rows[K - j];
            enter_row<K>(b, near, K - 1, cols);
        }
    }
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterMedianColor_8u_C3R)(const Lum8u *pSrc, int32_t srcStep,
                                                           Lum8u *pDst, int32_t dstStep,
                                                           LumiSize dstRoiSize, LumiMaskSize mask)
{
    using namespace LUMI_NS;
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(dstRoiSize))
        return lumStsSizeErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!mask_3x3_or_5x5(mask))
        return lumStsMaskSizeErr;
    const int side = mask == lumMaskSize3x3 ? 3 : 5;
    if (!footprint_fits(dstRoiSize, LumiSize{side, side}, 3))
        return lumStsSizeErr;

    const intptr_t half = side / 2;
    const Lum8u *first = pSrc - half * srcStep - half * 3;
    if (side == 3)
        median_color<3>(first, srcStep, pDst, dstStep, dstRoiSize);
    else
        median_color<5>(first, srcStep, pDst, dstStep, dstRoiSize);
    return lumStsNoErr;
}
