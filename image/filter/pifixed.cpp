/*
 * Gaussian filter of 8-bit images, one or three channels, with a fixed
 * integer kernel centred on each pixel: 3x3 [1 2 1]x[1 2 1] (sum 16) or the
 * 5x5 kernel below (sum 571).  There is no border: pSrc is the pixel under
 * the first output pixel and the caller supplies one (3x3) or two (5x5)
 * pixels on every side of the region.
 *
 *       2   7  12   7   2
 *       7  31  52  31   7
 *      12  52 127  52  12      rows -2 and +2 are [2 7 12 7 2], rows -1 and
 *       7  31  52  31   7      +1 [7 31 52 31 7], the centre row
 *       2   7  12   7   2      [12 52 127 52 12]
 *
 * S is the exact weighted sum of one output value.  Results:
 *   3x3   (S + ((S >> 4) & 1) + 7) >> 4, S / 16 to nearest, ties to even
 *   5x5   ((S + 286) * 29382) >> 24, the product in unsigned 32 bits, which
 *         is S / 571 to nearest for every S up to 571 * 255 (571 is odd, so
 *         no S lies halfway)
 * Every step is integer arithmetic, so the caller's rounding mode plays no
 * part and is never touched.
 *
 * Both engines run the same strips and give the same pixels; they differ in
 * where the strips' cells live:
 *   direct (one channel, y8 and e9): on the stack, no working memory;
 *   table (three channels everywhere, one channel in m7 and n8): in one
 *     block of working rows, taken before anything is written.
 * Each output row goes in strips of up to 2032 values: first down the
 * strip's footprint columns into 16-bit cells (3x3: top + 2*middle + bottom;
 * 5x5: for each column its share of a window centred 2, 1 and 0 columns
 * away), then across the cells.  The 5x5 filter makes two output rows per
 * pass where the region has them, so that the six source rows they share
 * are loaded and paired once.  The 5x5 sum of five shifted cells is
 * divided in 16-bit lanes, never widened: an estimate of S / 571 from S / 4
 * and a correction from the exact remainder (scale5).  Tiers run the same
 * code but for the 5x5 column shares, which SSSE3 and later form with byte
 * multiply-adds and SSE3 with 16-bit multiplies.
 *
 * A width whose working rows cannot be counted in a signed 32-bit byte count
 * is refused with lumStsSizeErr before anything is written; every address is
 * formed in pointer-width arithmetic.
 */
#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

#include "checks.h"

/* Both engines are members of every tier (declared with the internal members),
 * so the tests can call each one after the public checks. */

namespace LUMI_NS {
namespace {

/* ------------------------------------------------------------ rounding -- */

uint32_t round3(uint32_t s) { return (s + ((s >> 4) & 1) + 7) >> 4; }
uint32_t round5(uint32_t s) { return ((s + 286) * 29382u) >> 24; }

__m128i round3_vec(__m128i s) /* 16-bit lanes */
{
    const __m128i odd = _mm_and_si128(_mm_srli_epi16(s, 4), _mm_set1_epi16(1));
    return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(s, odd), _mm_set1_epi16(7)), 4);
}

/* round5 of eight sums S = a + b + c given in 16-bit lanes, with
 * a <= 15300 and b, c <= 65280; results in 16-bit lanes.  S itself does not
 * fit 16 bits, but S / 4 does and S mod 2^16 does:
 *   v = ((b + c + 1) >> 1 + (a >> 1) + 1) >> 1 lies in [(S - 1) / 4, (S + 3) / 4]
 *   q0 = (v * 459) >> 16 is then round(S / 571) or one less (checked for every
 *        S up to 571 * 255 and every v of its interval; the tests repeat it)
 *   r = S - 571 q0 lies in [-285, 856], exact in signed 16 bits although S
 *       and 571 q0 wrap, and q0 + 1 is the answer exactly when r > 285. */
__m128i scale5(__m128i a, __m128i b, __m128i c)
{
    const __m128i v = _mm_avg_epu16(_mm_avg_epu16(b, c), _mm_srli_epi16(a, 1));
    const __m128i q0 = _mm_mulhi_epu16(v, _mm_set1_epi16(459));
    const __m128i s = _mm_add_epi16(_mm_add_epi16(a, b), c);
    const __m128i r = _mm_sub_epi16(s, _mm_mullo_epi16(q0, _mm_set1_epi16(571)));
    return _mm_sub_epi16(q0, _mm_cmpgt_epi16(r, _mm_set1_epi16(285)));
}

/* ------------------------------------------------------- direct engine -- */

/* Each output row goes in strips: first down the columns of the strip's
 * footprint into 16-bit cells, then across them.  The cells of a strip stay
 * in the first-level cache; the direct engine keeps them on the stack.
 *   3x3  c = top + 2 * middle + bottom                     (at most 1020)
 *        S = c[-1] + 2 * c[0] + c[+1]
 *   5x5  from s0 = rows -2 + +2, s1 = rows -1 + +1, s2 = the centre row,
 *        each column's share of a window centred 2, 1 or 0 columns away:
 *        u2 = 2 s0 + 7 s1 + 12 s2                          (at most 7650)
 *        u1 = 7 s0 + 31 s1 + 52 s2                         (at most 32640)
 *        u0 = 12 s0 + 52 s1 + 127 s2                       (at most 65025)
 *        S = (u2[-2] + u2[+2]) + (u1[-1] + u1[+1]) + u0[0], the two pairs
 *        in 16 bits (at most 15300 and 65280), then scale5. */
const int kStripCells = 2048; /* cells of one kind in a stack strip */

__m128i load_cells(const Lum16u *p) { return _mm_loadu_si128((const __m128i *)p); }

#if !LUMI_HAS_SSSE3
/* A constant the compiler must not see through: multiplies by it stay one
 * multiply instead of becoming chains of shifts and adds, which are slower
 * here than the multiply itself. */
__m128i opaque(__m128i v)
{
    __asm__("" : "+x"(v));
    return v;
}

/* w0 * x0 + w1 * x1 + w2 * x2 in 16-bit lanes (callers keep it below 2^16). */
__m128i mix(__m128i x0, __m128i x1, __m128i x2, short w0, short w1, short w2)
{
    return _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(x0, opaque(_mm_set1_epi16(w0))),
                                       _mm_mullo_epi16(x1, opaque(_mm_set1_epi16(w1)))),
                         _mm_mullo_epi16(x2, opaque(_mm_set1_epi16(w2))));
}
#endif

/* The three 5-tap kinds of the low eight bytes of five byte vectors b[0..4],
 * weighted symmetrically about b[2]:
 *   k2 = 2 (b0 + b4) + 7 (b1 + b3) + 12 b2
 *   k1 = 7 (b0 + b4) + 31 (b1 + b3) + 52 b2
 *   k0 = 12 (b0 + b4) + 52 (b1 + b3) + 127 b2       (k0 wraps past 2^15)
 * With SSSE3 the byte pairs are multiplied and summed in one step; no pair
 * sum exceeds 52 * 510, so nothing saturates. */
void kinds5(const __m128i *b, __m128i *k2, __m128i *k1, __m128i *k0)
{
    const __m128i z = _mm_setzero_si128();
#if LUMI_HAS_SSSE3
    const __m128i i04 = _mm_unpacklo_epi8(b[0], b[4]);
    const __m128i i13 = _mm_unpacklo_epi8(b[1], b[3]);
    const __m128i i2 = _mm_unpacklo_epi8(b[2], z);
    const auto kind = [&](int w0, int w1, int w2) {
        return _mm_add_epi16(
            _mm_add_epi16(_mm_maddubs_epi16(i04, _mm_set1_epi16((short)(w0 | w0 << 8))),
                          _mm_maddubs_epi16(i13, _mm_set1_epi16((short)(w1 | w1 << 8)))),
            _mm_maddubs_epi16(i2, _mm_set1_epi16((short)w2)));
    };
    *k2 = kind(2, 7, 12);
    *k1 = kind(7, 31, 52);
    *k0 = kind(12, 52, 127);
#else
    __m128i w[5];
    for (int i = 0; i < 5; ++i)
        w[i] = _mm_unpacklo_epi8(b[i], z);
    const __m128i s0 = _mm_add_epi16(w[0], w[4]), s1 = _mm_add_epi16(w[1], w[3]);
    *k2 = mix(s0, s1, w[2], 2, 7, 12);
    *k1 = mix(s0, s1, w[2], 7, 31, 52);
    *k0 = mix(s0, s1, w[2], 12, 52, 127);
#endif
}

/* The kinds of two output rows at once from six byte vectors b[0..5] (rows
 * -2..+3 of the first output row), eight columns from the low or high
 * halves, into k[0..2] (first row: k0, k1, k2) and k[3..5] (second row).
 * With SSSE3 the six rows go into three byte pairs that serve both output
 * rows, paired so that no weight of 127 shares a pair with a nonzero one
 * (no pair sum exceeds 127 * 255, so nothing saturates):
 *   A = (row 0, row +3)   B = (row +1, row -2)   C = (row -1, row +2)
 * first row:   w2 A0          + w1 B0 + w0 B1   + w1 C0 + w0 C1
 * second row:  w1 A0 + w0 A1  + w2 B0           + w0 C0 + w1 C1 */
template <bool hi>
inline void kinds5_pair(const __m128i *b, Lum16u *const *cells, intptr_t x)
{
#if LUMI_HAS_SSSE3
    const auto pairs = [](__m128i u, __m128i v) {
        return hi ? _mm_unpackhi_epi8(u, v) : _mm_unpacklo_epi8(u, v);
    };
    const __m128i A = pairs(b[2], b[5]), B = pairs(b[3], b[0]), C = pairs(b[1], b[4]);
    const auto w = [](int lo, int hi8) { return _mm_set1_epi16((short)(lo | hi8 << 8)); };
    const auto put = [&](int k, __m128i v) { _mm_storeu_si128((__m128i *)(cells[k] + x), v); };
    const auto kind = [&](int k, int w0, int w1, int w2) {
        put(k, _mm_add_epi16(_mm_add_epi16(_mm_maddubs_epi16(A, w(w2, 0)),
                                           _mm_maddubs_epi16(B, w(w1, w0))),
                             _mm_maddubs_epi16(C, w(w1, w0))));
        put(k + 3, _mm_add_epi16(_mm_add_epi16(_mm_maddubs_epi16(A, w(w1, w0)),
                                               _mm_maddubs_epi16(B, w(w2, 0))),
                                 _mm_maddubs_epi16(C, w(w0, w1))));
    };
    kind(2, 2, 7, 12);
    kind(1, 7, 31, 52);
    kind(0, 12, 52, 127);
#else
    __m128i h[6], k[6];
    for (int i = 0; i < 6; ++i)
        h[i] = hi ? _mm_srli_si128(b[i], 8) : b[i];
    kinds5(h, &k[2], &k[1], &k[0]);
    kinds5(h + 1, &k[5], &k[4], &k[3]);
    for (int i = 0; i < 6; ++i)
        _mm_storeu_si128((__m128i *)(cells[i] + x), k[i]);
#endif
}

struct Strip3 {
    enum { r = 1, kinds = 1, pass = 1 };
    /* Eight columns from x: the low or high halves of the byte vectors b[0..2]. */
    template <int P>
    static void down(const __m128i *b, Lum16u *const *cells, intptr_t x, bool hi = false)
    {
        const __m128i z = _mm_setzero_si128();
        __m128i w[3];
        for (int i = 0; i < 3; ++i)
            w[i] = hi ? _mm_unpackhi_epi8(b[i], z) : _mm_unpacklo_epi8(b[i], z);
        const __m128i c = _mm_add_epi16(_mm_add_epi16(w[0], w[2]), _mm_add_epi16(w[1], w[1]));
        _mm_storeu_si128((__m128i *)(cells[0] + x), c);
    }
    /* Sixteen columns from x. */
    template <int P>
    static void down16(const __m128i *b, Lum16u *const *cells, intptr_t x)
    {
        down<1>(b, cells, x);
        down<1>(b, cells, x + 8, true);
    }
    template <int P>
    static void down1(const Lum8u *const *p, Lum16u *const *cells, intptr_t x)
    {
        cells[0][x] = (Lum16u)(p[0][x] + 2 * p[1][x] + p[2][x]);
    }
    /* Eight outputs from cell x (cell 0 lies r pixels left of output 0). */
    static __m128i across(Lum16u *const *cells, intptr_t x, intptr_t ch)
    {
        const Lum16u *c = cells[0] + x;
        const __m128i m = load_cells(c + ch);
        const __m128i s = _mm_add_epi16(_mm_add_epi16(load_cells(c), load_cells(c + 2 * ch)),
                                        _mm_add_epi16(m, m));
        return round3_vec(s);
    }
    static Lum8u across1(Lum16u *const *cells, intptr_t x, intptr_t ch)
    {
        const Lum16u *c = cells[0] + x;
        return (Lum8u)round3((uint32_t)c[0] + 2u * c[ch] + c[2 * ch]);
    }
};

/* The 5x5 column pass makes two output rows a pass (pass = 2) where the
 * region has them, from six source rows loaded once; a last odd row goes
 * alone.  Cells k of the second row follow the first row's three kinds. */
struct Strip5 {
    enum { r = 2, kinds = 3, pass = 2 };
    /* Eight columns from the low halves of b[0 .. 3 + P]. */
    template <int P>
    static void down(const __m128i *b, Lum16u *const *cells, intptr_t x)
    {
        if (P == 2) {
            kinds5_pair<false>(b, cells, x);
            return;
        }
        __m128i k[3];
        kinds5(b, &k[2], &k[1], &k[0]);
        for (int i = 0; i < 3; ++i)
            _mm_storeu_si128((__m128i *)(cells[i] + x), k[i]);
    }
    /* Sixteen columns from x. */
    template <int P>
    static void down16(const __m128i *b, Lum16u *const *cells, intptr_t x)
    {
        if (P == 1) {
            down<1>(b, cells, x);
            __m128i h[5];
            for (int i = 0; i < 5; ++i)
                h[i] = _mm_srli_si128(b[i], 8);
            down<1>(h, cells, x + 8);
            return;
        }
        kinds5_pair<false>(b, cells, x);
        kinds5_pair<true>(b, cells, x + 8);
    }
    template <int P>
    static void down1(const Lum8u *const *p, Lum16u *const *cells, intptr_t x)
    {
        for (int j = 0; j < P; ++j) {
            const Lum8u *const *q = p + j;
            Lum16u *const *c = cells + 3 * j;
            const uint32_t s0 = q[0][x] + q[4][x], s1 = q[1][x] + q[3][x], s2 = q[2][x];
            c[2][x] = (Lum16u)(2 * s0 + 7 * s1 + 12 * s2);
            c[1][x] = (Lum16u)(7 * s0 + 31 * s1 + 52 * s2);
            c[0][x] = (Lum16u)(12 * s0 + 52 * s1 + 127 * s2);
        }
    }
    static __m128i across(Lum16u *const *cells, intptr_t x, intptr_t ch)
    {
        const Lum16u *u0 = cells[0] + x, *u1 = cells[1] + x, *u2 = cells[2] + x;
        /* One load of the centre cells serves both of its uses (the
         * compiler would otherwise read them twice). */
        __m128i c = load_cells(u0 + 2 * ch);
        __asm__("" : "+x"(c));
        return scale5(_mm_add_epi16(load_cells(u2), load_cells(u2 + 4 * ch)),
                      _mm_add_epi16(load_cells(u1 + ch), load_cells(u1 + 3 * ch)), c);
    }
    static Lum8u across1(Lum16u *const *cells, intptr_t x, intptr_t ch)
    {
        const Lum16u *u0 = cells[0] + x, *u1 = cells[1] + x, *u2 = cells[2] + x;
        return (Lum8u)round5((uint32_t)u2[0] + u2[4 * ch] + u1[ch] + u1[3 * ch] + u0[2 * ch]);
    }
};

/* Down the columns of `span` footprint bytes from p[0 .. 2r + P - 1] into
 * the cells of P output rows. */
template <typename K, int P>
void strip_down(const Lum8u *const *rows, Lum16u *const *cellRows, int32_t span)
{
    const int n = 2 * K::r + P;
    const Lum8u *p[6];
    for (int i = 0; i < n; ++i)
        p[i] = rows[i];
    Lum16u *cells[6];
    for (int k = 0; k < K::kinds * P; ++k)
        cells[k] = cellRows[k];
    int32_t x = 0;
    __m128i b[6];
    for (; x + 16 <= span; x += 16) {
        for (int i = 0; i < n; ++i)
            b[i] = _mm_loadu_si128((const __m128i *)(p[i] + x));
        K::template down16<P>(b, cells, x);
    }
    for (; x + 8 <= span; x += 8) {
        for (int i = 0; i < n; ++i)
            b[i] = _mm_loadl_epi64((const __m128i *)(p[i] + x));
        K::template down<P>(b, cells, x);
    }
    for (; x < span; ++x)
        K::template down1<P>(p, cells, x);
}

/* Across the cells into `len` output bytes. */
template <typename K>
void strip_across(Lum16u *const *cellRows, intptr_t ch, Lum8u *dst, int32_t len)
{
    /* Local copies: the byte stores below could otherwise alias the caller's
     * pointers and force them to be read again at every block. */
    Lum16u *cells[3];
    for (int k = 0; k < K::kinds; ++k)
        cells[k] = cellRows[k];
    int32_t x = 0;
    for (; x + 16 <= len; x += 16) {
        const __m128i out = _mm_packus_epi16(K::across(cells, x, ch), K::across(cells, x + 8, ch));
        _mm_storeu_si128((__m128i *)(dst + x), out);
    }
    if (x + 8 <= len) {
        const __m128i v = K::across(cells, x, ch);
        _mm_storel_epi64((__m128i *)(dst + x), _mm_packus_epi16(v, v));
        x += 8;
    }
    for (; x < len; ++x)
        dst[x] = K::across1(cells, x, ch);
}

/* The whole region through strips of at most `cap` cells of each kind and
 * row of a pass; kind k of pass row j starts at buf + (j * kinds + k) * cap. */
template <typename K>
void strip_rows(const Lum8u *pSrc, intptr_t srcStep, Lum8u *pDst, intptr_t dstStep, LumiSize roi,
                int ch, Lum16u *buf, int32_t cap)
{
    const int r = K::r;
    const int32_t len = roi.width * ch, reach = 2 * r * ch;
    /* Whole blocks of 16 outputs per strip where the cells allow. */
    const int32_t step = cap - reach >= 16 ? (cap - reach) & ~15 : cap - reach;
    Lum16u *cells[6];
    for (int k = 0; k < K::kinds * K::pass; ++k)
        cells[k] = buf + (intptr_t)k * cap;
    for (int32_t y = 0; y < roi.height;) {
        const int P = K::pass == 2 && y + 1 < roi.height ? 2 : 1;
        const Lum8u *rows[6];
        for (int i = 0; i < 2 * r + P; ++i)
            rows[i] = pSrc + (intptr_t)(y - r + i) * srcStep - r * ch;
        for (int32_t x0 = 0; x0 < len; x0 += step) {
            const int32_t n = len - x0 < step ? len - x0 : step;
            const Lum8u *p[6];
            for (int i = 0; i < 2 * r + P; ++i)
                p[i] = rows[i] + x0;
            if (P == 2)
                strip_down<K, K::pass>(p, cells, n + reach);
            else
                strip_down<K, 1>(p, cells, n + reach);
            for (int j = 0; j < P; ++j)
                strip_across<K>(cells + j * K::kinds, ch, pDst + (intptr_t)(y + j) * dstStep + x0, n);
        }
        y += P;
    }
}

template <typename K>
void direct_rows(const Lum8u *pSrc, intptr_t srcStep, Lum8u *pDst, intptr_t dstStep, LumiSize roi)
{
    Lum16u buf[K::kinds * K::pass * kStripCells];
    strip_rows<K>(pSrc, srcStep, pDst, dstStep, roi, 1, buf, kStripCells);
}

/* -------------------------------------------------------- table engine -- */

/* Bytes of the table path's one block, or -1 when they do not fit 31 bits. */
int64_t table_bytes(LumiSize roi, LumiMaskSize mask, int ch)
{
    const int64_t w = roi.width;
    const int64_t bytes = mask == lumMaskSize3x3
                              ? (((((w + 15) & ~15) + ch * 2 + 15) & ~15) * ch * 2)
                              : 12 * ((((w * ch) + 15) & ~15) * 2);
    return bytes > INT32_MAX ? -1 : bytes;
}

/* The strips take at most kStripCells cells of each kind and pass row from
 * a block of `bytes`, which holds at least 32 of each. */
template <typename K>
int32_t strip_cap(int64_t bytes)
{
    const int64_t cells = bytes / 2 / (K::kinds * K::pass);
    return (int32_t)(cells < kStripCells ? cells : kStripCells);
}

LumStatus table_engine(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                       LumiSize roi, LumiMaskSize mask, int ch)
{
    const int64_t bytes = table_bytes(roi, mask, ch);
    if (bytes < 0)
        return lumStsSizeErr;
    Lum16u *buf = (Lum16u *)LUMI_T(lumsMalloc_8u)((int32_t)bytes);
    if (!buf)
        return lumStsMemAllocErr;
    if (mask == lumMaskSize3x3)
        strip_rows<Strip3>(pSrc, srcStep, pDst, dstStep, roi, ch, buf, strip_cap<Strip3>(bytes));
    else
        strip_rows<Strip5>(pSrc, srcStep, pDst, dstStep, roi, ch, buf, strip_cap<Strip5>(bytes));
    LUMI_T(lumsFree)(buf);
    return lumStsNoErr;
}

void direct_engine(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                   LumiMaskSize mask)
{
    if (mask == lumMaskSize3x3)
        direct_rows<Strip3>(pSrc, srcStep, pDst, dstStep, roi);
    else
        direct_rows<Strip5>(pSrc, srcStep, pDst, dstStep, roi);
}

/* One channel takes the direct engine from SSE4.1 on, the table below. */
const bool kDirectOneChannel = LUMI_HAS_SSE41;

LumStatus check_gauss(const void *pSrc, int32_t srcStep, const void *pDst, int32_t dstStep,
                      LumiSize roi, LumiMaskSize mask)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!mask_3x3_or_5x5(mask))
        return lumStsMaskSizeErr;
    return lumStsNoErr;
}

LumStatus gauss_public(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                       LumiSize roi, LumiMaskSize mask, int ch)
{
    const LumStatus st = check_gauss(pSrc, srcStep, pDst, dstStep, roi, mask);
    if (st != lumStsNoErr)
        return st;
    if (ch == 1 && kDirectOneChannel) {
        direct_engine(pSrc, srcStep, pDst, dstStep, roi, mask);
        return lumStsNoErr;
    }
    return table_engine(pSrc, srcStep, pDst, dstStep, roi, mask, ch);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterGauss_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                     Lum8u *pDst, int32_t dstStep,
                                                     LumiSize roiSize, LumiMaskSize mask)
{
    return LUMI_NS::gauss_public(pSrc, srcStep, pDst, dstStep, roiSize, mask, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterGauss_8u_C3R)(const Lum8u *pSrc, int32_t srcStep,
                                                     Lum8u *pDst, int32_t dstStep,
                                                     LumiSize roiSize, LumiMaskSize mask)
{
    return LUMI_NS::gauss_public(pSrc, srcStep, pDst, dstStep, roiSize, mask, 3);
}

LUMI_MEMBER LumStatus LUMI_T(ownlumiFilterGauss_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                        Lum8u *pDst, int32_t dstStep,
                                                        LumiSize roiSize, LumiMaskSize mask)
{
    LUMI_NS::direct_engine(pSrc, srcStep, pDst, dstStep, roiSize, mask);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(ownlumiFilterGaussTable_8u)(const Lum8u *pSrc, int32_t srcStep,
                                                         Lum8u *pDst, int32_t dstStep,
                                                         LumiSize roiSize, LumiMaskSize mask,
                                                         int channels)
{
    return LUMI_NS::table_engine(pSrc, srcStep, pDst, dstStep, roiSize, mask, channels);
}
