/*
 * Supersampling, whole ratio 2 across: the rows of exact halving in 16-bit
 * lanes.
 *
 * With both ratios whole (integer sums, the first mode of piressup.cpp), an
 * output element is g(s) = low 8 bits of trunc(s * norm + 0.5) of the
 * integer sum s of its block, whatever order s was added in.  For blocks two
 * pixels wide and few rows deep, s stays small (at most 510 per row), so:
 *
 *   - each source row is summed in pairs across, sixteen bytes at a time
 *     (pairs of one channel, or of the same channel of two neighbouring
 *     pixels), and the rows are added down in 16-bit lanes: exact;
 *   - g is evaluated as ((s + add) * mul) >> 16, an unsigned 16-bit multiply
 *     high.  super_fit_out16 chooses mul and add once per call and checks
 *     the pair against the double expression for every sum the call can
 *     meet; when no pair agrees on all of them (or a sum could reach a byte
 *     above 255), the call keeps the general rows.  The bytes are therefore
 *     those of the general rows by construction, not by approximation.
 *
 * A row takes the blocks that lie wholly in the summed width with vector
 * steps whose loads stay inside it; the blocks after them (the last few, and
 * the short or missing block at the right edge) go through the scalar rule
 * of the general rows: in one channel a block past the summed width counts
 * its missing pixel as 0, in three channels an output pixel with no whole
 * block is the column sum of its own pixel.  An output row whose area
 * reaches past the image's last row is left to the general rows.
 *
 * Tiers: the SSSE3, SSE4.1 and AVX tiers pair bytes with one multiply-add
 * of unsigned bytes and arrange three-channel rows with one byte shuffle;
 * the SSE3 tier splits even and odd bytes with shifts and pairs
 * three-channel pixels from two 8-byte loads.  Results agree on every tier.
 */
#include <stdint.h>
#include <string.h>

#include "piresize.h"

#include "tier.h"
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

namespace LUMI_NS {
namespace {

/* Pair sums of sixteen bytes: lane i is byte 2i + byte 2i + 1. */
inline __m128i pairs16(__m128i v)
{
#if LUMI_HAS_SSSE3
    return _mm_maddubs_epi16(v, _mm_set1_epi8(1));
#else
    return _mm_add_epi16(_mm_and_si128(v, _mm_set1_epi16(0xFF)), _mm_srli_epi16(v, 8));
#endif
}

/* Two three-channel blocks (four pixels, 12 bytes from p): lanes 0 to 2 the
 * first block's channel sums, lanes 4 to 6 the second's; lanes 3 and 7 are
 * never stored.  Reads 16 bytes from p. */
inline __m128i pairs_c3(const Lum8u *p)
{
#if LUMI_HAS_SSSE3
    const __m128i order = _mm_setr_epi8(0, 3, 1, 4, 2, 5, -1, -1, 6, 9, 7, 10, 8, 11, -1, -1);
    return _mm_maddubs_epi16(_mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)p), order),
                             _mm_set1_epi8(1));
#else
    const __m128i z = _mm_setzero_si128();
    const __m128i a = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)p), z);
    const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)(p + 6)), z);
    return _mm_unpacklo_epi64(_mm_add_epi16(a, _mm_srli_si128(a, 6)),
                              _mm_add_epi16(b, _mm_srli_si128(b, 6)));
#endif
}

/* Stores bytes 0-2, 4-6, 8-10, 12-14 of v as twelve bytes. */
inline void store12(Lum8u *d, __m128i v)
{
#if LUMI_HAS_SSSE3
    const __m128i order = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    v = _mm_shuffle_epi8(v, order);
    _mm_storel_epi64((__m128i *)d, v);
    const int32_t hi = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
    memcpy(d + 8, &hi, 4);
#else
    Lum8u t[16];
    _mm_storeu_si128((__m128i *)t, v);
    for (int p = 0; p < 4; ++p)
        memcpy(d + 3 * p, t + 4 * p, 3);
#endif
}

struct Out16 {
    __m128i mul, add;
    /* g(s) of eight sums, in 16-bit lanes. */
    __m128i operator()(__m128i s) const { return _mm_mulhi_epu16(_mm_add_epi16(s, add), mul); }
};

/* The rows' pair sums at offset off: sixteen bytes of one channel, or two
 * blocks of three.  R is the row count when it is the common 2, else 0 and
 * rows gives it. */
template <int C, int R>
inline __m128i column_pairs(const Lum8u *src, ptrdiff_t step, int32_t rows, ptrdiff_t off)
{
    auto one = [&](const Lum8u *p) {
        return C == 1 ? pairs16(_mm_loadu_si128((const __m128i *)p)) : pairs_c3(p);
    };
    if (R == 2)
        return _mm_add_epi16(one(src + off), one(src + step + off));
    __m128i s = one(src + off);
    for (int32_t r = 1; r < rows; ++r)
        s = _mm_add_epi16(s, one(src + r * step + off));
    return s;
}

/* Blocks 0 to the returned count of one output row, by vector steps:
 * sixteen or eight blocks of one channel, four of three channels. */
template <int C, int R>
int32_t pairs_row(const ResizeSuperArgs *a, const Lum8u *src, Lum8u *dst, int32_t end)
{
    const ptrdiff_t step = a->frame.srcStep;
    const int32_t rows = a->ry;
    const Out16 out = {_mm_set1_epi16((int16_t)a->outMul), _mm_set1_epi16((int16_t)a->outAdd)};
    int32_t k = 0;
    if (C == 1) {
        for (; k + 16 <= end; k += 16) {
            const __m128i lo = out(column_pairs<1, R>(src, step, rows, 2 * k));
            const __m128i hi = out(column_pairs<1, R>(src, step, rows, 2 * k + 16));
            _mm_storeu_si128((__m128i *)(dst + k), _mm_packus_epi16(lo, hi));
        }
        for (; k + 8 <= end; k += 8) {
            const __m128i v = out(column_pairs<1, R>(src, step, rows, 2 * k));
            _mm_storel_epi64((__m128i *)(dst + k), _mm_packus_epi16(v, v));
        }
        return k;
    }
    /* Four blocks read 28 bytes from their first: stop while that fits. */
    const int64_t bytes = (int64_t)a->srcWidthUsed * 3;
    for (; k + 4 <= end && 6 * (int64_t)k + 28 <= bytes; k += 4) {
        const __m128i lo = out(column_pairs<3, R>(src, step, rows, 6 * k));
        const __m128i hi = out(column_pairs<3, R>(src, step, rows, 6 * k + 12));
        store12(dst + 3 * k, _mm_packus_epi16(lo, hi));
    }
    return k;
}

} // namespace

bool super_fit_out16(double norm, int32_t maxSum, uint16_t *mul, uint16_t *add)
{
    if (!(norm > 0.0 && norm < 1.0) || maxSum < 0 || maxSum > 32767)
        return false;
    const double m0 = (double)(int64_t)(norm * 65536.0), a0 = (double)(int64_t)(0.5 / norm);
    for (int dm = 0; dm <= 1; ++dm)
        for (int da = 0; da <= 2; ++da) {
            const int64_t m = (int64_t)m0 + dm, c = (int64_t)a0 - 1 + da;
            if (m < 1 || m > 65535 || c < 0 || c + maxSum > 65535)
                continue;
            bool ok = true;
            for (int32_t s = 0; s <= maxSum && ok; ++s) {
                const int64_t want = (int64_t)((double)s * norm + 0.5);
                ok = want <= 255 && ((s + c) * m) >> 16 == want;
            }
            if (ok) {
                *mul = (uint16_t)m;
                *add = (uint16_t)c;
                return true;
            }
        }
    return false;
}

void super_pairs_row(const ResizeSuperArgs *a, const Lum8u *src, Lum8u *dst)
{
    const int32_t C = a->frame.channelCount, used = a->srcWidthUsed, W = a->frame.width;
    const ptrdiff_t step = a->frame.srcStep;
    /* Blocks wholly inside the summed width. */
    const int32_t whole = used / 2 < W ? used / 2 : W;
    int32_t k;
    if (a->ry == 2)
        k = C == 1 ? pairs_row<1, 2>(a, src, dst, whole) : pairs_row<3, 2>(a, src, dst, whole);
    else
        k = C == 1 ? pairs_row<1, 0>(a, src, dst, whole) : pairs_row<3, 0>(a, src, dst, whole);
    /* The rest by the general rows' rule. */
    for (; k < W; ++k)
        for (int32_t c = 0; c < C; ++c) {
            Lum32u s = 0;
            for (int32_t r = 0; r < a->ry; ++r) {
                const Lum8u *p = src + r * step;
                if (k < used / 2)
                    s += (Lum32u)p[2 * k * C + c] + p[(2 * k + 1) * C + c];
                else if (C == 1)
                    s += 2 * k < used ? p[2 * k] : 0;
                else
                    s += k < used ? p[k * C + c] : 0;
            }
            dst[k * C + c] = super_out_byte(s, a->norm);
        }
}

} // namespace LUMI_NS
