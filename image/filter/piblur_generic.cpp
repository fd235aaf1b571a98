/*
 * Generic box engines: running column sums, any mask.
 *
 * Each source column of the footprint keeps the sum of its mask.height
 * pixels; a row's window sums run along the row (add the column entering on
 * the right, drop the one leaving on the left), and between rows every
 * column gains the pixel entering below and loses the one leaving above.
 * Work per pixel does not depend on the mask.
 *
 * Integer engines keep one cell per byte of a footprint row, in an
 * allocation sized for four 32-bit cells per three-channel pixel and two
 * spare pixels; the cells are 16-bit where the column sums fit (small
 * masks, or one channel with at most 128 rows).  Window sums run four lanes
 * at a time from earlier sums and prefix sums of the column differences;
 * masks of at most 257 cells and 8 columns add their taps directly in 16-bit
 * lanes.  The mean is (S * mul + half) >> shift for one channel and
 * (S * mul) >> shift for three, in unsigned 32-bit arithmetic
 * (get_shift_int); tiers below SSE4.1 form the low product from two
 * even/odd multiplies, with the same result.
 *
 * Float engines keep one float cell per channel and store
 * trunc(S * (1.0f / N) + 9.0e-6f); they serve masks above
 * kBoxIntegerCellsMax cells.
 */
#include "tier.h"

#include <emmintrin.h>
#include <string.h>
#if LUMI_HAS_SSE41
#include <smmintrin.h>
#endif

#include "checks.h"
#include "piblur.h"

namespace LUMI_NS {
namespace {

/* (S * mul + half) >> shift on four lanes, unsigned 32-bit, with the low
 * half of each product as the scalar form has it. */
inline __m128i mul_lo32(__m128i a, __m128i b)
{
#if LUMI_HAS_SSE41
    return _mm_mullo_epi32(a, b);
#else
    const __m128i even = _mm_mul_epu32(a, b);
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(a, 32), _mm_srli_epi64(b, 32));
    return _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                              _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0)));
#endif
}

/* The generic means: one channel rounds to nearest, three truncate. */
struct GenericNearest {
    static uint32_t term(int shift) { return 1u << (shift - 1); }
};
struct GenericTrunc {
    static uint32_t term(int) { return 0; }
};

/*
 * One output row from the column sums.  Cells are kept by byte (one per
 * channel of each footprint column), so output byte i has the window sum
 * S(i) = cols[i] + cols[i + ch] + ... (mask.width cells) and
 * S(i) = S(i - ch) + cols[i - ch + span] - cols[i - ch], span = width * ch.
 * Four lanes at a time add running sums of the differences
 * d(j) = cols[j + span] - cols[j] to earlier window sums: S(i - 1) for one
 * channel, the three previous sums for three.
 */
/* d(j) = p[j + span] - p[j] for 16 positions j from p, as four vectors of
 * 32-bit lanes; 16-bit cells subtract eight at a time and widen. */
inline void differences(const uint32_t *p, int32_t span, __m128i d[4])
{
    for (int v = 0; v < 4; ++v)
        d[v] = _mm_sub_epi32(_mm_loadu_si128((const __m128i *)(p + 4 * v + span)),
                             _mm_loadu_si128((const __m128i *)(p + 4 * v)));
}
inline void differences(const Lum16u *p, int32_t span, __m128i d[4])
{
    for (int h = 0; h < 2; ++h) {
        const __m128i x = _mm_sub_epi16(_mm_loadu_si128((const __m128i *)(p + 8 * h + span)),
                                        _mm_loadu_si128((const __m128i *)(p + 8 * h)));
        const __m128i sign = _mm_srai_epi16(x, 15);
        d[2 * h] = _mm_unpacklo_epi16(x, sign);
        d[2 * h + 1] = _mm_unpackhi_epi16(x, sign);
    }
}

template <int ch, typename Round, typename Cell>
void generic_row(const Cell *cols, int32_t mw, uint32_t mul, int shift, Lum8u *dst, int32_t n)
{
    const int32_t span = mw * ch;
    const uint32_t term = Round::term(shift);
    uint32_t last[16]; /* S of the 16 latest bytes, by i mod 16 */
    int32_t i = 0;
    auto scalar = [&](int32_t k) {
        uint32_t s;
        if (k < ch) {
            s = 0;
            for (int32_t t = 0; t < mw; ++t)
                s += cols[k + t * ch];
        } else {
            s = last[(k - ch) & 15] + cols[k - ch + span] - cols[k - ch];
        }
        last[k & 15] = s;
        dst[k] = (Lum8u)((s * mul + term) >> shift);
    };
    for (; i < n && i < 16; ++i)
        scalar(i);
    if (i + 16 <= n) {
        const __m128i vmul = _mm_set1_epi32((int32_t)mul), vterm = _mm_set1_epi32((int32_t)term);
        const __m128i vshift = _mm_cvtsi32_si128(shift);
        auto mean = [&](__m128i sum) {
            return _mm_srl_epi32(_mm_add_epi32(mul_lo32(sum, vmul), vterm), vshift);
        };
        __m128i sv[4]; /* the last 16 sums */
        for (int v = 0; v < 4; ++v)
            sv[v] = _mm_loadu_si128((const __m128i *)(last + 4 * v));
        if constexpr (ch == 1) {
            /* S(p..p+3) = S(p-1) + the running sum of d(p-1..p+2); `base`
             * holds S(i - 1) in every lane and `carry` the block's earlier
             * totals, so one addition is all that links two blocks. */
            __m128i base = _mm_set1_epi32((int32_t)last[15]);
            for (; i + 16 <= n; i += 16) {
                __m128i carry = _mm_setzero_si128(), m[4], dd[4];
                differences(cols + i - 1, span, dd);
                for (int v = 0; v < 4; ++v) {
                    __m128i d = dd[v];
                    d = _mm_add_epi32(d, _mm_slli_si128(d, 4));
                    d = _mm_add_epi32(d, _mm_slli_si128(d, 8));
                    sv[v] = _mm_add_epi32(_mm_add_epi32(base, carry), d);
                    carry = _mm_add_epi32(carry, _mm_shuffle_epi32(d, _MM_SHUFFLE(3, 3, 3, 3)));
                    m[v] = mean(sv[v]);
                }
                _mm_storeu_si128((__m128i *)(dst + i),
                                 _mm_packus_epi16(_mm_packs_epi32(m[0], m[1]),
                                                  _mm_packs_epi32(m[2], m[3])));
                base = _mm_add_epi32(base, carry);
            }
        } else {
            /* Blocks of 12 bytes, three vectors whose lanes cycle through
             * the channels.  C holds each lane's running sum of d over the
             * earlier lanes of its channel in the block (a lane 3 bytes
             * back, then the vector before rotated by one channel); `seed`
             * holds S of the three bytes before the block, in the lanes'
             * channel order, and moves on by the block's channel totals. */
            const int rot = _MM_SHUFFLE(1, 3, 2, 1);
            __m128i seed = _mm_setr_epi32((int32_t)last[13], (int32_t)last[14],
                                          (int32_t)last[15], (int32_t)last[13]);
            for (; i + 48 <= n; i += 48) {
                __m128i m[12];
                for (int b = 0; b < 4; ++b) {
                    __m128i c[3];
                    for (int v = 0; v < 3; ++v) {
                        const Cell *p = cols + i + 12 * b + 4 * v - 3;
                        __m128i d = _mm_sub_epi32(_mm_loadu_si128((const __m128i *)(p + span)),
                                                  _mm_loadu_si128((const __m128i *)p));
                        d = _mm_add_epi32(d, _mm_slli_si128(d, 12));
                        c[v] = v ? _mm_add_epi32(_mm_shuffle_epi32(c[v - 1], rot), d) : d;
                    }
                    const __m128i seed1 = _mm_shuffle_epi32(seed, rot);
                    const __m128i seed2 = _mm_shuffle_epi32(seed1, rot);
                    const __m128i s0 = _mm_add_epi32(seed, c[0]);
                    const __m128i s1 = _mm_add_epi32(seed1, c[1]);
                    const __m128i s2 = _mm_add_epi32(seed2, c[2]);
                    m[3 * b] = mean(s0);
                    m[3 * b + 1] = mean(s1);
                    m[3 * b + 2] = mean(s2);
                    seed = _mm_add_epi32(seed, _mm_shuffle_epi32(c[2], rot));
                    if (b == 2)
                        sv[0] = s2;
                    if (b == 3)
                        sv[1] = s0, sv[2] = s1, sv[3] = s2;
                }
                for (int q = 0; q < 3; ++q)
                    _mm_storeu_si128((__m128i *)(dst + i + 16 * q),
                                     _mm_packus_epi16(_mm_packs_epi32(m[4 * q], m[4 * q + 1]),
                                                      _mm_packs_epi32(m[4 * q + 2], m[4 * q + 3])));
            }
        }
        for (int v = 0; v < 4; ++v)
            _mm_storeu_si128((__m128i *)(last + 4 * v), sv[v]);
    }
    for (; i < n; ++i)
        scalar(i);
}

/*
 * The same means for small masks (at most 257 cells, so S < 2^16, and at
 * most 8 columns): 16-bit column sums, each output adding its mask.width
 * cells directly, eight lanes at once.  The product S * mul is put together
 * from its 16-bit halves, so the arithmetic is the 32-bit one above.
 */
template <typename Round>
void narrow_row(const Lum16u *cols, int32_t mw, int ch, uint32_t mul, int shift, Lum8u *dst,
                int32_t n)
{
    const uint32_t term = Round::term(shift);
    const __m128i vmul = _mm_set1_epi16((short)mul), vterm = _mm_set1_epi32((int32_t)term);
    const __m128i vshift = _mm_cvtsi32_si128(shift);
    /* With shift >= 16 and a term that is a multiple of 2^16, the low half
     * of the product can't reach the result: (S * mul + term) >> shift equals
     * (((S * mul) >> 16) + (term >> 16)) >> (shift - 16), all in 16 bits. */
    const bool high = shift >= 16 && (term & 0xffff) == 0;
    const __m128i hterm = _mm_set1_epi16((short)(term >> 16));
    const __m128i hshift = _mm_cvtsi32_si128(shift - 16);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i s = _mm_loadu_si128((const __m128i *)(cols + i));
        for (int32_t t = 1; t < mw; ++t)
            s = _mm_add_epi16(s, _mm_loadu_si128((const __m128i *)(cols + i + t * ch)));
        if (high) {
            const __m128i m =
                _mm_srl_epi16(_mm_add_epi16(_mm_mulhi_epu16(s, vmul), hterm), hshift);
            _mm_storel_epi64((__m128i *)(dst + i), _mm_packus_epi16(m, m));
            continue;
        }
        const __m128i lo = _mm_mullo_epi16(s, vmul), hi = _mm_mulhi_epu16(s, vmul);
        const __m128i p0 = _mm_add_epi32(_mm_unpacklo_epi16(lo, hi), vterm);
        const __m128i p1 = _mm_add_epi32(_mm_unpackhi_epi16(lo, hi), vterm);
        const __m128i m = _mm_packs_epi32(_mm_srl_epi32(p0, vshift), _mm_srl_epi32(p1, vshift));
        _mm_storel_epi64((__m128i *)(dst + i), _mm_packus_epi16(m, m));
    }
    for (; i < n; ++i) {
        uint32_t s = 0;
        for (int32_t t = 0; t < mw; ++t)
            s += cols[i + t * ch];
        dst[i] = (Lum8u)((s * mul + term) >> shift);
    }
}

/* Integer column sums, one 32-bit cell per byte of a footprint row; the
 * allocation has room for four cells per pixel and two spare pixels. */
struct IntSums {
    const BoxJob *j;
    uint32_t *cols;
    int c; /* cells per pixel the allocation is sized for */
    uint32_t mul;
    int shift;
    bool narrow; /* 16-bit cells, direct taps (narrow_row) */
    bool cells16; /* 16-bit cells: narrow, or one channel with at most 128 rows */

    int32_t row_cells() const { return (j->roi.width + j->mask.width - 1) * j->channels; }

    void first_sums()
    {
        const int32_t n = row_cells();
        memset(cols, 0, sizeof(uint32_t) * (size_t)(j->roi.width + j->mask.width + 2) * c);
        if (cells16) {
            vertical_sums(j->src, j->srcStep, j->mask.height, (Lum16u *)cols, n);
            return;
        }
        for (int32_t r = 0; r < j->mask.height; ++r)
            add_row(j->src + (intptr_t)r * j->srcStep, nullptr, n);
    }

    /* cols += in - out, byte by byte (no `out` row: just add). */
    void add_row(const Lum8u *in, const Lum8u *out, int32_t n)
    {
        const __m128i zero = _mm_setzero_si128();
        int32_t i = 0;
        for (; i + 16 <= n; i += 16) {
            const __m128i a = _mm_loadu_si128((const __m128i *)(in + i));
            const __m128i b = out ? _mm_loadu_si128((const __m128i *)(out + i)) : zero;
            const __m128i a16[2] = {_mm_unpacklo_epi8(a, zero), _mm_unpackhi_epi8(a, zero)};
            const __m128i b16[2] = {_mm_unpacklo_epi8(b, zero), _mm_unpackhi_epi8(b, zero)};
            for (int h = 0; h < 2; ++h) {
                const __m128i d[2] = {
                    _mm_sub_epi32(_mm_unpacklo_epi16(a16[h], zero), _mm_unpacklo_epi16(b16[h], zero)),
                    _mm_sub_epi32(_mm_unpackhi_epi16(a16[h], zero), _mm_unpackhi_epi16(b16[h], zero))};
                for (int q = 0; q < 2; ++q) {
                    __m128i *p = (__m128i *)(cols + i + 8 * h + 4 * q);
                    _mm_storeu_si128(p, _mm_add_epi32(_mm_loadu_si128(p), d[q]));
                }
            }
        }
        for (; i < n; ++i)
            cols[i] += (uint32_t)in[i] - (out ? (uint32_t)out[i] : 0u);
    }

    void advance(int32_t k)
    {
        const Lum8u *out = j->src + (intptr_t)k * j->srcStep;
        const Lum8u *in = out + (intptr_t)j->mask.height * j->srcStep;
        if (cells16)
            advance_sums16((Lum16u *)cols, in, out, row_cells());
        else
            add_row(in, out, row_cells());
    }

    void compute(int32_t, Lum8u *dst) const
    {
        const int32_t n = j->roi.width * j->channels, mw = j->mask.width;
        if (narrow) {
            if (j->channels == 1)
                narrow_row<GenericNearest>((const Lum16u *)cols, mw, 1, mul, shift, dst, n);
            else
                narrow_row<GenericTrunc>((const Lum16u *)cols, mw, 3, mul, shift, dst, n);
        } else if (j->channels == 1) {
            if (cells16)
                generic_row<1, GenericNearest>((const Lum16u *)cols, mw, mul, shift, dst, n);
            else
                generic_row<1, GenericNearest>(cols, mw, mul, shift, dst, n);
        } else {
            generic_row<3, GenericTrunc>(cols, mw, mul, shift, dst, n);
        }
    }
};

/* Float column sums, one cell per channel. */
struct FloatSums {
    const BoxJob *j;
    Lum32f *cols;
    Lum32f r;

    void first_sums()
    {
        const int32_t fw = j->roi.width + j->mask.width - 1, ch = j->channels;
        for (int32_t rr = 0; rr < j->mask.height; ++rr) {
            const Lum8u *row = j->src + (intptr_t)rr * j->srcStep;
            for (int32_t i = 0; i < fw * ch; ++i)
                cols[i] += (Lum32f)row[i];
        }
    }

    void advance(int32_t k)
    {
        const int32_t n = (j->roi.width + j->mask.width - 1) * j->channels;
        const Lum8u *out = j->src + (intptr_t)k * j->srcStep;
        const Lum8u *in = out + (intptr_t)j->mask.height * j->srcStep;
        for (int32_t i = 0; i < n; ++i)
            cols[i] += (Lum32f)((int32_t)in[i] - (int32_t)out[i]);
    }

    void compute(int32_t, Lum8u *dst) const
    {
        const int32_t w = j->roi.width, mw = j->mask.width, ch = j->channels;
        for (int q = 0; q < ch; ++q) {
            Lum32f s = 0.0f;
            for (int32_t i = 0; i < mw; ++i)
                s += cols[i * ch + q];
            for (int32_t x = 0; x < w; ++x) {
                Lum32f v = s * r;
                v = v + 9.0e-6f;
                const int32_t t = (int32_t)v;
                dst[x * ch + q] = (Lum8u)(t > 255 ? 255 : t < 0 ? 0 : t);
                s += cols[(x + mw) * ch + q] - cols[x * ch + q];
            }
        }
    }
};

/* Where the sums of a column fit 16-bit cells: masks of at most
 * kNarrowCells cells (S below 2^16) and kNarrowColumns columns add their
 * taps directly; one channel with at most kNarrowRows rows keeps 16-bit
 * column sums (255 * 128 fits) under the running window sums. */
const int32_t kNarrowCells = 257, kNarrowColumns = 8, kNarrowRows = 128;

bool take_int_sums(IntSums *e, const BoxJob &j)
{
    e->j = &j;
    e->c = j.channels == 1 ? 1 : 4;
    get_shift_int(j.mask, &e->mul, &e->shift);
    e->narrow = j.mask.width * j.mask.height <= kNarrowCells && j.mask.width <= kNarrowColumns;
    e->cells16 = e->narrow || (j.channels == 1 && j.mask.height <= kNarrowRows);
    const int64_t bytes = (((int64_t)j.roi.width + j.mask.width + 2) * e->c * 4 + 15) & ~15;
    e->cols = (uint32_t *)LUMI_T(lumsMalloc_8u)(alloc_count(bytes));
    return e->cols != nullptr;
}

bool take_float_sums(FloatSums *e, const BoxJob &j)
{
    e->j = &j;
    e->r = 1.0f / (Lum32f)(j.mask.width * j.mask.height);
    const int32_t n = alloc_count(((int64_t)j.roi.width + j.mask.width + 2) * j.channels);
    e->cols = LUMI_T(lumsMalloc_32f)(n);
    if (!e->cols)
        return false;
    LUMI_T(lumsSet_32f)(0.0f, e->cols, n);
    return true;
}

int64_t ring_slot(const BoxJob &j) { return ((int64_t)j.roi.width * j.channels + 15) & ~15; }

template <typename E>
LumStatus in_place(E &e, const BoxInPlace &p, RingFlag flag)
{
    Ring ring;
    if (!take_ring(&ring, p.anchor.y + 1, ring_slot(p.job))) {
        LUMI_T(lumsFree)(e.cols);
        return lumStsMemAllocErr;
    }
    e.first_sums();
    run_ring(e, p, ring, flag);
    free_ring(ring);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

} // namespace

LumStatus ownBlur_8u(const BoxJob &j)
{
    IntSums e;
    if (!take_int_sums(&e, j))
        return lumStsMemAllocErr;
    e.first_sums();
    run_rows(e, j);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

LumStatus ownBlurFloat_8u(const BoxJob &j)
{
    FloatSums e;
    if (!take_float_sums(&e, j))
        return lumStsMemAllocErr;
    e.first_sums();
    run_rows(e, j);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

LumStatus ownBlur_8u_I(const BoxInPlace &p)
{
    IntSums e;
    if (!take_int_sums(&e, p.job))
        return lumStsMemAllocErr;
    return in_place(e, p, kMoreFixedEarly);
}

LumStatus ownBlurFloat_8u_I(const BoxInPlace &p)
{
    FloatSums e;
    if (!take_float_sums(&e, p.job))
        return lumStsMemAllocErr;
    return in_place(e, p, kMoreEveryRow);
}

} // namespace LUMI_NS
