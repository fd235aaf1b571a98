/*
 * Fixed-size box engines: 3x3, 5x5 and 7x7, straight from the rows.
 *
 * Output is made in two passes over a strip of a row: the mask's rows are
 * added column by column into 16-bit sums (out of place these move down the
 * strip from row to row), then each output adds its mask.width neighbouring
 * column sums (one pixel, so `channels` bytes, apart) and scales the window
 * sum S by a fixed multiplier.  S stays below 2^16
 * for these masks, so eight sums share a vector and the multiplier is a
 * high-half 16-bit product.  Each engine keeps its own rounding:
 *
 *   3x3                  (S * 29128) >> 18           = ((S * 29128) >> 16) >> 2
 *   5x5 out of place     (S * 20971 + 0x40000) >> 19 = (((S * 20971) >> 16) + 4) >> 3
 *   7x7 one channel      (S * 10700 + 0x40000) >> 19 = (((S * 10700) >> 16) + 4) >> 3
 *   3x3 in place, C1     (S * 7282) >> 16  (the same values as 3x3 above)
 *   5x5 in place, C1     (S * 2622) >> 16  (S = 13 gives 0 here and 1 out of place)
 *
 * The right-hand forms are what both the vector body and the scalar tail
 * compute, so they agree by construction.
 *
 * The out-of-place engines allocate nothing.  In place, the 3x3 engine of
 * three-channel images computes each row from the source into a ring; the
 * one-channel 3x3 and 5x5 engine keeps running 16-bit column sums instead.
 * The code is SSE2 and the same in every tier.
 */
#include "tier.h"

#include <emmintrin.h>
#include <string.h>

#include "checks.h"
#include "piblur.h"

namespace LUMI_NS {
namespace {

/* (S * 29128) >> 18, truncating. */
struct Trunc18 {
    static uint32_t one(uint32_t s) { return ((s * 29128u) >> 16) >> 2; }
    static __m128i vec(__m128i s)
    {
        return _mm_srli_epi16(_mm_mulhi_epu16(s, _mm_set1_epi16((short)29128)), 2);
    }
};

/* (S * M + 0x40000) >> 19, to nearest. */
template <int M>
struct Nearest19 {
    static uint32_t one(uint32_t s) { return (((s * (uint32_t)M) >> 16) + 4) >> 3; }
    static __m128i vec(__m128i s)
    {
        const __m128i q = _mm_mulhi_epu16(s, _mm_set1_epi16((short)M));
        return _mm_srli_epi16(_mm_add_epi16(q, _mm_set1_epi16(4)), 3);
    }
};

/* (S * M) >> 16, truncating. */
template <int M>
struct Trunc16 {
    static uint32_t one(uint32_t s) { return (s * (uint32_t)M) >> 16; }
    static __m128i vec(__m128i s) { return _mm_mulhi_epu16(s, _mm_set1_epi16((short)M)); }
};

} // namespace

/* v[i] = sum of `rows` rows of bytes, from top, for i in [0, len). */
void vertical_sums(const Lum8u *top, int32_t step, int rows, Lum16u *v, int32_t len)
{
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= len; i += 16) {
        __m128i lo = zero, hi = zero;
        const Lum8u *p = top + i;
        for (int r = 0; r < rows; ++r, p += step) {
            const __m128i b = _mm_loadu_si128((const __m128i *)p);
            lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(b, zero));
            hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(b, zero));
        }
        _mm_storeu_si128((__m128i *)(v + i), lo);
        _mm_storeu_si128((__m128i *)(v + i + 8), hi);
    }
    for (; i < len; ++i) {
        uint32_t s = 0;
        for (int r = 0; r < rows; ++r)
            s += top[(intptr_t)r * step + i];
        v[i] = (Lum16u)s;
    }
}

/* cols[i] += in[i] - out[i] for i in [0, n), 16-bit cells. */
void advance_sums16(Lum16u *cols, const Lum8u *in, const Lum8u *out, int32_t n)
{
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128((const __m128i *)(in + i));
        const __m128i b = _mm_loadu_si128((const __m128i *)(out + i));
        __m128i *c = (__m128i *)(cols + i);
        const __m128i lo = _mm_sub_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        const __m128i hi = _mm_sub_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
        _mm_storeu_si128(c, _mm_add_epi16(_mm_loadu_si128(c), lo));
        _mm_storeu_si128(c + 1, _mm_add_epi16(_mm_loadu_si128(c + 1), hi));
    }
    for (; i < n; ++i)
        cols[i] = (Lum16u)(cols[i] + in[i] - out[i]);
}

namespace {

/* dst[i] = Round(sum of taps column sums v[i + t * stride]) for i in [0, n). */
template <typename Round, int taps>
void horizontal_means(const Lum16u *v, int stride, Lum8u *dst, int32_t n)
{
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i s = _mm_loadu_si128((const __m128i *)(v + i));
        for (int t = 1; t < taps; ++t)
            s = _mm_add_epi16(s, _mm_loadu_si128((const __m128i *)(v + i + t * stride)));
        const __m128i m = Round::vec(s);
        _mm_storel_epi64((__m128i *)(dst + i), _mm_packus_epi16(m, m));
    }
    for (; i < n; ++i) {
        uint32_t s = 0;
        for (int t = 0; t < taps; ++t)
            s += v[i + t * stride];
        dst[i] = (Lum8u)Round::one(s);
    }
}

const int32_t kChunk = 1024;

/* One output row of a side x side mask straight from the footprint rows
 * starting at `top`, a chunk at a time. */
template <typename Round, int side>
void direct_row(const Lum8u *top, int32_t step, int ch, Lum8u *dst, int32_t rowBytes)
{
    Lum16u v[kChunk + (side - 1) * 3];
    for (int32_t j0 = 0; j0 < rowBytes; j0 += kChunk) {
        const int32_t m = rowBytes - j0 < kChunk ? rowBytes - j0 : kChunk;
        vertical_sums(top + j0, step, side, v, m + (side - 1) * ch);
        horizontal_means<Round, side>(v, ch, dst + j0, m);
    }
}

/* An engine without running state: row k from footprint rows k.. directly. */
template <typename Round, int side>
struct Direct {
    const BoxJob *j;
    void compute(int32_t k, Lum8u *out) const
    {
        direct_row<Round, side>(j->src + (intptr_t)k * j->srcStep, j->srcStep, j->channels, out,
                                j->roi.width * j->channels);
    }
    void advance(int32_t) {}
};

/* Out of place, in strips of kChunk output bytes from top to bottom: the
 * strip's 16-bit column sums stay in automatic storage and move down a row
 * at a time (add the row entering, drop the one leaving), so a row costs
 * the same for every mask height. */
template <typename Round, int side>
LumStatus strips(const BoxJob &j)
{
    Lum16u v[kChunk + (side - 1) * 3];
    const int32_t rowBytes = j.roi.width * j.channels, reach = (side - 1) * j.channels;
    for (int32_t j0 = 0; j0 < rowBytes; j0 += kChunk) {
        const int32_t m = rowBytes - j0 < kChunk ? rowBytes - j0 : kChunk;
        const Lum8u *top = j.src + j0;
        vertical_sums(top, j.srcStep, side, v, m + reach);
        for (int32_t k = 0; k < j.roi.height; ++k) {
            horizontal_means<Round, side>(v, j.channels, j.dst + (intptr_t)k * j.dstStep + j0, m);
            if (k + 1 < j.roi.height) {
                const Lum8u *out = top + (intptr_t)k * j.srcStep;
                advance_sums16(v, out + (intptr_t)side * j.srcStep, out, m + reach);
            }
        }
    }
    return lumStsNoErr;
}

/* Running 16-bit column sums of a one-channel footprint. */
template <typename Round, int side>
struct Sums16 {
    const BoxJob *j;
    Lum16u *cols;
    void first_sums()
    {
        vertical_sums(j->src, j->srcStep, side, cols, j->roi.width + side - 1);
    }
    void advance(int32_t k)
    {
        const Lum8u *out = j->src + (intptr_t)k * j->srcStep;
        advance_sums16(cols, out + (intptr_t)side * j->srcStep, out, j->roi.width + side - 1);
    }
    void compute(int32_t, Lum8u *out) const
    {
        horizontal_means<Round, side>(cols, 1, out, j->roi.width);
    }
};

template <typename Round, int side>
LumStatus sums16_in_place(const BoxInPlace &p)
{
    const int64_t w = p.job.roi.width;
    Sums16<Round, side> e = {&p.job, LUMI_T(lumsMalloc_16u)(alloc_count((w + side + 17) & ~15))};
    if (!e.cols)
        return lumStsMemAllocErr;
    Ring ring;
    if (!take_ring(&ring, p.anchor.y + 1, (w + 15) & ~15)) {
        LUMI_T(lumsFree)(e.cols);
        return lumStsMemAllocErr;
    }
    e.first_sums();
    run_ring(e, p, ring, kMoreEveryRow);
    free_ring(ring);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

} // namespace

LumStatus ownBlur_8u_33(const BoxJob &j) { return strips<Trunc18, 3>(j); }

LumStatus ownBlur_8u_55(const BoxJob &j) { return strips<Nearest19<20971>, 5>(j); }

LumStatus ownBlur_8u_77_C1R(const BoxJob &j) { return strips<Nearest19<10700>, 7>(j); }

LumStatus ownBlur_8u_33_I(const BoxInPlace &p)
{
    Ring ring;
    if (!take_ring(&ring, p.anchor.y + 1, (int64_t)p.job.roi.width * p.job.channels))
        return lumStsMemAllocErr;
    Direct<Trunc18, 3> e = {&p.job};
    run_ring(e, p, ring, kMoreEveryRow);
    free_ring(ring);
    return lumStsNoErr;
}

LumStatus ownBlur_8u_55_C1IR(const BoxInPlace &p)
{
    if (p.job.mask.width == 3)
        return sums16_in_place<Trunc16<7282>, 3>(p);
    return sums16_in_place<Trunc16<2622>, 5>(p);
}

} // namespace LUMI_NS
