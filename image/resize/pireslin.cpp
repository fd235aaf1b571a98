/*
 * Linear resize kernels: two taps in x, then two taps in y, in integers.
 *
 * Weights are 14-bit fixed point (16384 is 1.0).  The horizontal stage
 * filters a source row into a 16-bit buffer with 6 fractional bits:
 *     h = (wl a + wr b + 128) >> 8                     (at most 16320)
 * and the vertical stage blends the buffers of the upper and lower source
 * rows:
 *     out = ((16384 - fy) t + fy u + 524288) >> 20     (0 to 255)
 * Both roundings belong to the method; the result is not that of a single
 * rounding at the end.  Everything is exact integer arithmetic, so one
 * vector routine (SSE2, which every tier has) serves all tiers with the same
 * bytes, and the scalar tails use the same formulas.
 *
 * Pixel pairs and weight pairs lie next to each other so that both stages
 * are a 16-bit multiply-add of pairs; all values fit signed 16-bit lanes.
 * The row buffers are 4 (one channel) or 12 (three channels) elements longer
 * than a row, for the stores of groups that run past its end.
 *
 * Row ring: the kernel keeps the filtered upper and lower source rows of the
 * current output row.  When the row offset advances, the buffers swap and
 * the new lower row is filtered; after a jump of more than one row the new
 * upper row is filtered too; while the offset stays, nothing is filtered.
 * Both signs of the source step are handled: "advance" means in the step's
 * direction.
 */
#include "tier.h"

#include <emmintrin.h>
#include <string.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

#include "piresize.h"

namespace LUMI_NS {
namespace {

inline int32_t load16(const Lum8u *p)
{
    uint16_t v;
    memcpy(&v, p, 2);
    return v;
}

inline uint32_t load32(const void *p)
{
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

/* The pixel pairs (a, b) of eight outputs as 16-bit lanes, b in the high
 * byte, read one pair at a time. */
inline __m128i pairs8_insert(const Lum8u *s, const int32_t *c)
{
    __m128i v = _mm_cvtsi32_si128(load16(s + c[0]));
    v = _mm_insert_epi16(v, load16(s + c[1]), 1);
    v = _mm_insert_epi16(v, load16(s + c[2]), 2);
    v = _mm_insert_epi16(v, load16(s + c[3]), 3);
    v = _mm_insert_epi16(v, load16(s + c[4]), 4);
    v = _mm_insert_epi16(v, load16(s + c[5]), 5);
    v = _mm_insert_epi16(v, load16(s + c[6]), 6);
    return _mm_insert_epi16(v, load16(s + c[7]), 7);
}

/* Shuffle mask for a group whose pairs lie within 16 bytes of its first
 * pixel (see shuffle_groups): lane k takes bytes d and d + 1 of the 16 bytes
 * from the first pixel, d = c[k] - c[0], as the 16-bit value 257 d + 256.
 * Only tiers with a byte shuffle take this path. */
inline __m128i shuffle_mask(const int32_t *c)
{
#if LUMI_HAS_SSSE3
    const __m128i base = _mm_set1_epi32(c[0]);
    const __m128i d0 = _mm_sub_epi32(_mm_loadu_si128((const __m128i *)c), base);
    const __m128i d1 = _mm_sub_epi32(_mm_loadu_si128((const __m128i *)(c + 4)), base);
    const __m128i d = _mm_packs_epi32(d0, d1);
    return _mm_add_epi16(_mm_mullo_epi16(d, _mm_set1_epi16(257)), _mm_set1_epi16(256));
#else
    (void)c;
    return _mm_setzero_si128();
#endif
}

inline __m128i pairs8_shuffle(const Lum8u *first, __m128i mask)
{
#if LUMI_HAS_SSSE3
    return _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)first), mask);
#else
    (void)first;
    return mask;
#endif
}

/* The number of leading pixels, in whole groups of eight, whose 16-byte
 * load ends at or before the last byte the row needs anyway; within them a
 * group takes the shuffle when its pairs lie within those 16 bytes (see
 * shuffle_fits).  Column offsets are the same for every row, so this is
 * settled once. */
int32_t shuffle_groups(int32_t width, const int32_t *colOfs)
{
#if LUMI_HAS_SSSE3
    const int32_t lastByte = colOfs[width - 1] + 1;
    int32_t j = 0;
    while (j + 8 <= width && colOfs[j] + 15 <= lastByte)
        j += 8;
    return j;
#else
    (void)width, (void)colOfs;
    return 0;
#endif
}

inline bool shuffle_fits(const int32_t *c) { return c[7] - c[0] <= 14; }

/* Eight outputs of the horizontal stage from their pixel pairs. */
inline void coef8(__m128i v, const Lum16u *xw, Lum16u *out)
{
    const __m128i zero = _mm_setzero_si128(), rnd = _mm_set1_epi32(128);
    const __m128i w0 = _mm_loadu_si128((const __m128i *)xw);
    const __m128i w1 = _mm_loadu_si128((const __m128i *)(xw + 8));
    __m128i r0 = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), w0);
    __m128i r1 = _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), w1);
    r0 = _mm_srai_epi32(_mm_add_epi32(r0, rnd), 8);
    r1 = _mm_srai_epi32(_mm_add_epi32(r1, rnd), 8);
    _mm_storeu_si128((__m128i *)out, _mm_packs_epi32(r0, r1));
}

/* Horizontal stage, one channel, for N source rows that share the column
 * tables (two when the ring needs both rows of a pair); the first `shuffled`
 * pixels go by shuffle. */
template <int N>
void coef_linear_pl(const Lum8u *const *s, int32_t width, const int32_t *colOfs,
                    const Lum16u *xw, Lum16u *const *out, int32_t shuffled)
{
    int32_t j = 0;
    for (; j < shuffled; j += 8) {
        if (shuffle_fits(colOfs + j)) {
            const __m128i mask = shuffle_mask(colOfs + j);
            for (int r = 0; r < N; ++r)
                coef8(pairs8_shuffle(s[r] + colOfs[j], mask), xw + 2 * j, out[r] + j);
        } else {
            for (int r = 0; r < N; ++r)
                coef8(pairs8_insert(s[r], colOfs + j), xw + 2 * j, out[r] + j);
        }
    }
    for (; j + 8 <= width; j += 8)
        for (int r = 0; r < N; ++r)
            coef8(pairs8_insert(s[r], colOfs + j), xw + 2 * j, out[r] + j);
    for (; j < width; ++j) {
        const int32_t c = colOfs[j], wl = xw[2 * j], wr = xw[2 * j + 1];
        for (int r = 0; r < N; ++r)
            out[r][j] = (Lum16u)((wl * s[r][c] + wr * s[r][c + 1] + 128) >> 8);
    }
}

/* The bytes c to c + 3 (a0 a1 a2 x) of pixel c, and c + 3 to c + 5 (b0 b1
 * b2 0) of the pixel after it, read as c + 2 to c + 5 shifted down a byte, so
 * that nothing beyond the pair is read. */
inline __m128i near4_c3(const Lum8u *s, const int32_t *c)
{
    const __m128i p01 = _mm_unpacklo_epi32(_mm_cvtsi32_si128((int32_t)load32(s + c[0])),
                                           _mm_cvtsi32_si128((int32_t)load32(s + c[1])));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_cvtsi32_si128((int32_t)load32(s + c[2])),
                                           _mm_cvtsi32_si128((int32_t)load32(s + c[3])));
    return _mm_unpacklo_epi64(p01, p23);
}

inline __m128i far4_c3(const Lum8u *s, const int32_t *c)
{
    const __m128i p01 = _mm_unpacklo_epi32(_mm_cvtsi32_si128((int32_t)load32(s + c[0] + 2)),
                                           _mm_cvtsi32_si128((int32_t)load32(s + c[1] + 2)));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_cvtsi32_si128((int32_t)load32(s + c[2] + 2)),
                                           _mm_cvtsi32_si128((int32_t)load32(s + c[3] + 2)));
    return _mm_srli_epi32(_mm_unpacklo_epi64(p01, p23), 8);
}

/* One pixel's three channels from its pairs (a0 b0 a1 b1 a2 b2 x 0 as
 * 16-bit lanes) and its weight pair; the fourth lane is don't-care. */
inline __m128i coef_px(__m128i pairs, __m128i w)
{
    const __m128i r = _mm_madd_epi16(pairs, w);
    return _mm_srai_epi32(_mm_add_epi32(r, _mm_set1_epi32(128)), 8);
}

/* The pairs of one pixel as 16-bit lanes straight from an 8-byte load: a
 * byte shuffle that also zero-extends.  Reads bytes c to c + 7, so it serves
 * only pixels whose load ends inside what the row reads anyway (see
 * shuffle_groups_px). */
inline __m128i pairs_px_shuffle(const Lum8u *p)
{
#if LUMI_HAS_SSSE3
    const __m128i mask = _mm_setr_epi8(0, -1, 3, -1, 1, -1, 4, -1, 2, -1, 5, -1, -1, -1, -1, -1);
    return _mm_shuffle_epi8(_mm_loadl_epi64((const __m128i *)p), mask);
#else
    (void)p;
    return _mm_setzero_si128();
#endif
}

/* The leading pixels, in groups of four, whose 8-byte loads stay within the
 * bytes the row reads anyway (up to the last pixel's right neighbour). */
int32_t shuffle_groups_px(int32_t width, int32_t pixelStride, const int32_t *colOfs)
{
#if LUMI_HAS_SSSE3
    if (pixelStride != 3)
        return 0;
    const int32_t lastByte = colOfs[width - 1] + 5;
    int32_t j = 0;
    while (j + 4 <= width && colOfs[j + 3] + 7 <= lastByte)
        j += 4;
    return j;
#else
    (void)width, (void)pixelStride, (void)colOfs;
    return 0;
#endif
}

/* Four pixels of N rows, with their pairs gathered by shuffle or by
 * unpacking two 4-byte loads a pixel. */
template <int N, bool Shuffle>
inline void coef4_px(const Lum8u *const *s, const int32_t *c, const Lum16u *xw,
                     Lum16u *const *out, int32_t at)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i w = _mm_loadu_si128((const __m128i *)xw);
    const __m128i w0 = _mm_shuffle_epi32(w, 0x00), w1 = _mm_shuffle_epi32(w, 0x55);
    const __m128i w2 = _mm_shuffle_epi32(w, 0xAA), w3 = _mm_shuffle_epi32(w, 0xFF);
    for (int r = 0; r < N; ++r) {
        __m128i p0, p1, p2, p3;
        if (Shuffle) {
            p0 = pairs_px_shuffle(s[r] + c[0]);
            p1 = pairs_px_shuffle(s[r] + c[1]);
            p2 = pairs_px_shuffle(s[r] + c[2]);
            p3 = pairs_px_shuffle(s[r] + c[3]);
        } else {
            const __m128i a = near4_c3(s[r], c), b = far4_c3(s[r], c);
            const __m128i ab01 = _mm_unpacklo_epi8(a, b), ab23 = _mm_unpackhi_epi8(a, b);
            p0 = _mm_unpacklo_epi8(ab01, zero);
            p1 = _mm_unpackhi_epi8(ab01, zero);
            p2 = _mm_unpacklo_epi8(ab23, zero);
            p3 = _mm_unpackhi_epi8(ab23, zero);
        }
        const __m128i h01 = _mm_packs_epi32(coef_px(p0, w0), coef_px(p1, w1));
        const __m128i h23 = _mm_packs_epi32(coef_px(p2, w2), coef_px(p3, w3));
        Lum16u *o = out[r] + at;
        _mm_storel_epi64((__m128i *)o, h01);
        _mm_storel_epi64((__m128i *)(o + 3), _mm_unpackhi_epi64(h01, h01));
        _mm_storel_epi64((__m128i *)(o + 6), h23);
        _mm_storel_epi64((__m128i *)(o + 9), _mm_unpackhi_epi64(h23, h23));
    }
}

/* Horizontal stage, three channels, for N source rows: a pixel's channels
 * share its weights.  Each pixel fills four lanes of which the fourth is
 * overwritten by the next pixel's store.  The first `shuffled` pixels go by
 * shuffle. */
template <int N>
void coef_linear_px(const Lum8u *const *s, int32_t width, int32_t pixelStride,
                    const int32_t *colOfs, const Lum16u *xw, Lum16u *const *out,
                    int32_t shuffled)
{
    int32_t j = 0;
    for (; j < shuffled; j += 4)
        coef4_px<N, true>(s, colOfs + j, xw + 2 * j, out, 3 * j);
    for (; pixelStride == 3 && j + 4 <= width; j += 4)
        coef4_px<N, false>(s, colOfs + j, xw + 2 * j, out, 3 * j);
    for (; j < width; ++j) {
        const int32_t c = colOfs[j], wl = xw[2 * j], wr = xw[2 * j + 1];
        for (int r = 0; r < N; ++r)
            for (int32_t k = 0; k < 3; ++k)
                out[r][3 * j + k] = (Lum16u)(
                    (wl * s[r][c + k] + wr * s[r][c + pixelStride + k] + 128) >> 8);
    }
}

/* Vertical stage: count elements blended from the upper and lower buffers. */
void summ_linear(Lum8u *d, int32_t count, int32_t fy, const Lum16u *t, const Lum16u *u)
{
    const int32_t ft = 16384 - fy;
    const __m128i w = _mm_set1_epi32((int32_t)(((uint32_t)fy << 16) | (uint32_t)ft));
    const __m128i rnd = _mm_set1_epi32(1 << 19);
    int32_t e = 0;
    for (; e + 16 <= count; e += 16) {
        const __m128i t0 = _mm_loadu_si128((const __m128i *)(t + e));
        const __m128i t1 = _mm_loadu_si128((const __m128i *)(t + e + 8));
        const __m128i u0 = _mm_loadu_si128((const __m128i *)(u + e));
        const __m128i u1 = _mm_loadu_si128((const __m128i *)(u + e + 8));
        __m128i a0 = _mm_madd_epi16(_mm_unpacklo_epi16(t0, u0), w);
        __m128i a1 = _mm_madd_epi16(_mm_unpackhi_epi16(t0, u0), w);
        __m128i a2 = _mm_madd_epi16(_mm_unpacklo_epi16(t1, u1), w);
        __m128i a3 = _mm_madd_epi16(_mm_unpackhi_epi16(t1, u1), w);
        a0 = _mm_srai_epi32(_mm_add_epi32(a0, rnd), 20);
        a1 = _mm_srai_epi32(_mm_add_epi32(a1, rnd), 20);
        a2 = _mm_srai_epi32(_mm_add_epi32(a2, rnd), 20);
        a3 = _mm_srai_epi32(_mm_add_epi32(a3, rnd), 20);
        const __m128i lo = _mm_packs_epi32(a0, a1), hi = _mm_packs_epi32(a2, a3);
        _mm_storeu_si128((__m128i *)(d + e), _mm_packus_epi16(lo, hi));
    }
    for (; e < count; ++e)
        d[e] = (Lum8u)((ft * t[e] + fy * u[e] + 524288) >> 20);
}

/* The row ring shared by both layouts.  filter(rows, buffers, n) runs the
 * horizontal stage of n source rows (1 or 2) into their buffers; count is
 * the elements of an output row.  Offsets are pointer-width throughout. */
template <typename Filter>
void linear_rows(const ResizeLinearArgs &a, int32_t count, Filter filter)
{
    const ResizeFrame &f = a.frame;
    const ptrdiff_t S = f.srcStep;
    const bool down = S > 0;
    Lum16u *upper = a.buf[0], *lower = a.buf[1];
    {
        const Lum8u *row[1] = {f.src + f.rowOfs[0]};
        Lum16u *buf[1] = {lower};
        filter(row, buf, 1);
    }
    ptrdiff_t previous = down ? f.rowOfs[0] - 1 : f.rowOfs[0] + 1;
    Lum8u *d = f.dst;
    for (int32_t i = 0; i < f.height; ++i, d += f.dstStep) {
        const ptrdiff_t o = f.rowOfs[i];
        if (down ? o > previous : o < previous) {
            Lum16u *const t = upper;
            upper = lower;
            lower = t;
            /* The new lower row, and after a jump of more than one row the
             * new upper row as well. */
            const ptrdiff_t next = previous + S;
            const Lum8u *row[2] = {f.src + o + S, f.src + o};
            Lum16u *buf[2] = {lower, upper};
            filter(row, buf, (down ? o > next : o < next) ? 2 : 1);
            previous = o;
        }
        summ_linear(d, count, a.yFrac[i], upper, lower);
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

LUMI_MEMBER void LUMI_T(ownResize8plL)(const ResizeLinearArgs *args)
{
    const int32_t width = args->frame.width;
    const int32_t *colOfs = args->frame.colOfs;
    const Lum16u *xWeights = args->xWeights;
    const int32_t shuffled = shuffle_groups(width, colOfs);
    linear_rows(*args, width, [=](const Lum8u *const *rows, Lum16u *const *bufs, int n) {
        if (n == 2)
            coef_linear_pl<2>(rows, width, colOfs, xWeights, bufs, shuffled);
        else
            coef_linear_pl<1>(rows, width, colOfs, xWeights, bufs, shuffled);
    });
}

LUMI_MEMBER void LUMI_T(ownResize8pxL)(const ResizeLinearArgs *args)
{
    const int32_t width = args->frame.width, pixelStride = args->frame.pixelStride;
    const int32_t *colOfs = args->frame.colOfs;
    const Lum16u *xWeights = args->xWeights;
    const int32_t shuffled = shuffle_groups_px(width, pixelStride, colOfs);
    linear_rows(*args, width * args->frame.channelCount,
                [=](const Lum8u *const *rows, Lum16u *const *bufs, int n) {
                    if (n == 2)
                        coef_linear_px<2>(rows, width, pixelStride, colOfs, xWeights, bufs,
                                          shuffled);
                    else
                        coef_linear_px<1>(rows, width, pixelStride, colOfs, xWeights, bufs,
                                          shuffled);
                });
}
