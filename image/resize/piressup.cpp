/*
 * Supersampling resize: each output pixel is the mean of the source area it
 * covers, xRatio by yRatio source pixels (the reciprocals of the factors),
 * with the pixels that the area's edges cut counted by their covered part.
 *
 * The source is read once from the top.  For each output row the source
 * rows under it are summed into one accumulator row of srcWidthUsed pixels
 * (the width that W + 1 blocks need, plus one, at most the region's width);
 * the accumulator is then summed across in blocks, in place (block k reads
 * only elements at or past k), and each block sum a gives the byte
 *     low 8 bits of trunc(a * xFactor * yFactor + 0.5), in double.
 * There is no saturation: a mean of 255 lands near 255.5 and stays 255.
 *
 * Four modes, by the fractional parts fx, fy of the ratios (below 1e-7
 * counts as 0):
 *   0  both whole: exact unsigned 32-bit sums, rows summed by their own
 *      routine (ownpi_RowSuper8pl / 8px);
 *   1  fy only, 2  fx only, 3  both: float sums.  A whole row or element
 *      adds float(pixel); a cut one adds float(double(pixel) * weight).
 * A fractional axis carries what the last block used of the shared pixel
 * (carryY across the call, carryX across one row): the next block takes its
 * remainder top = 1 - carry, then n = floor(ratio - top + 1e-7) whole
 * pixels, then the new carry from the next one.  Across, a block whose top
 * is negligible takes n + 1 whole elements.  The carry across runs alike on
 * every row, so what each block takes is planned once per call.
 *
 * Speed: whole-ratio blocks of 2 to 4 elements are unrolled (pairs of one
 * channel four at a time), and the output step converts eight sums at once
 * through double lanes, the same expression as the scalar tail.  With both
 * ratios whole and 2 across (halving, blocks up to 64 rows deep), an output
 * row whose rows lie inside the image goes to piressuphalf.cpp instead: the
 * same integer sums in 16-bit lanes, straight from the source rows, and an
 * integer output step checked once per call to give every byte of the
 * double one.
 *
 * Order of float additions in a block's whole terms: below eight terms one
 * at a time.  From eight on, the one-channel form runs eight lanes (lane l
 * takes terms l, l + 8, ...; lane 0 starts from the running sum), combines
 * them as 0 4 1 5 2 6 3 7 and adds the leftover terms in order; the
 * three-channel form adds in order in the SSE3 and SSSE3 tiers and runs four
 * lanes per channel, combined 0 1 2 3, in the SSE4.1 and AVX tiers.  Sums of
 * whole pixels are exact either way, so tiers differ only once a cut pixel
 * has entered, and then in the last bit of a float.
 *
 * Memory.  Every read stays inside the caller's image:
 *   - a block that runs past srcWidthUsed reads zeros: the accumulator
 *     carries rx + 1 cleared pixels past its end.  The one-channel form
 *     thereby counts missing elements as 0; the three-channel form computes
 *     only blocks that the accumulator holds entirely (a region narrower
 *     than one block computes none, and its bytes come from the unsummed
 *     accumulator);
 *   - rows below the region are read where the area reaches them, but a row
 *     past the image's last row counts as a row of zeros instead of being
 *     read.
 * The accumulator (with the plan of the blocks across behind it) is the
 * only working memory, one block taken before the destination is touched.  A ratio whose floor does not fit 32 bits (an
 * image of more than 2^30 pixels a side) gives lumStsSizeErr.
 */
#include <math.h>
#include <stdint.h>

#include "piresize.h"
#include "workmem.h"

#include <emmintrin.h>

namespace LUMI_NS {
namespace {

const double kCarryEps = 1e-7;

/* ------------------------------------------------------------- row sums -- */

/* acc[e] = float(pixel) + acc[e] over one row. */
void add_row(const Lum8u *s, Lum32f *acc, int32_t n)
{
    for (int32_t e = 0; e < n; ++e)
        acc[e] = acc[e] + (Lum32f)s[e];
}

/* acc[e] = float(double(pixel) * w) + acc[e] over one row. */
void add_row_weighted(const Lum8u *s, Lum32f *acc, int32_t n, double w)
{
    for (int32_t e = 0; e < n; ++e)
        acc[e] = (Lum32f)((double)s[e] * w) + acc[e];
}

/* ------------------------------------------------------------ block sums -- */

/* s plus count whole terms p[0], p[stride], ... in the order of the one-channel
 * form: eight lanes once there are eight terms. */
Lum32f sum_lanes8(Lum32f s, const Lum32f *p, int32_t count)
{
    if (count < 8) {
        for (int32_t j = 0; j < count; ++j)
            s = s + p[j];
        return s;
    }
    Lum32f l[8];
    l[0] = s + p[0];
    for (int32_t k = 1; k < 8; ++k)
        l[k] = p[k];
    int32_t j = 8;
    for (; j + 8 <= count; j += 8)
        for (int32_t k = 0; k < 8; ++k)
            l[k] = l[k] + p[j + k];
    Lum32f r = (((((((l[0] + l[4]) + l[1]) + l[5]) + l[2]) + l[6]) + l[3]) + l[7]);
    for (; j < count; ++j)
        r = r + p[j];
    return r;
}

/* The same for one channel of interleaved pixels (p steps by 3).  The
 * SSE4.1 and AVX tiers run four lanes per channel; the older tiers add in
 * order. */
Lum32f sum_channel(Lum32f s, const Lum32f *p, int32_t count)
{
#if LUMI_HAS_SSE41
    if (count >= 8) {
        Lum32f l[4] = {s + p[0], p[3], p[6], p[9]};
        int32_t j = 4;
        for (; j + 4 <= count; j += 4)
            for (int32_t k = 0; k < 4; ++k)
                l[k] = l[k] + p[3 * (j + k)];
        Lum32f r = ((l[0] + l[1]) + l[2]) + l[3];
        for (; j < count; ++j)
            r = r + p[3 * j];
        return r;
    }
#endif
    for (int32_t j = 0; j < count; ++j)
        s = s + p[3 * j];
    return s;
}

template <int C>
Lum32f sum_terms(Lum32f s, const Lum32f *p, int32_t count)
{
    return C == 1 ? sum_lanes8(s, p, count) : sum_channel(s, p, count);
}

/* Number of whole blocks of rx the accumulator gives: the one-channel form
 * counts a last, partial block (its missing elements are the zeros past the
 * end), the three-channel form only blocks it holds entirely. */
template <int C>
int32_t whole_blocks(int32_t used, int32_t rx)
{
    if (C == 1)
        return (int32_t)(((int64_t)used + rx - 1) / rx);
    return used >= rx ? (used - rx) / rx + 1 : 0;
}

/* One block of count terms from p (stride C): exact in integers, in the
 * tier's order in float. */
template <int C>
Lum32u block_sum(const Lum32u *p, int32_t count)
{
    Lum32u s = 0;
    for (int32_t j = 0; j < count; ++j)
        s += p[j * C];
    return s;
}

template <int C>
Lum32f block_sum(const Lum32f *p, int32_t count)
{
    return sum_terms<C>(0.0f, p, count);
}

/* Modes 0 and 1: blocks of rx elements. */
template <int C, typename Acc>
void blocks_whole(Acc *acc, int32_t nb, int32_t rx)
{
    for (int32_t k = 0; k < nb; ++k)
        for (int32_t c = 0; c < C; ++c)
            acc[k * C + c] = block_sum<C>(acc + (ptrdiff_t)k * rx * C + c, rx);
}

/* Integer blocks of a fixed small width, unrolled. */
template <int C, int RX>
void blocks_fixed(Lum32u *acc, int32_t nb)
{
    int32_t k = 0;
    if (C == 1 && RX == 2) {
        /* Four pairs at a time: the even and odd elements of eight, added.
         * The four sums land below the eight elements they come from, and
         * later groups read only past them. */
        for (; k + 4 <= nb; k += 4) {
            const __m128 v0 = _mm_loadu_ps((const float *)(acc + 2 * k));
            const __m128 v1 = _mm_loadu_ps((const float *)(acc + 2 * k + 4));
            const __m128i even = _mm_castps_si128(_mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0)));
            const __m128i odd = _mm_castps_si128(_mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1)));
            _mm_storeu_si128((__m128i *)(acc + k), _mm_add_epi32(even, odd));
        }
    }
    for (; k < nb; ++k)
        for (int32_t c = 0; c < C; ++c) {
            const Lum32u *p = acc + (ptrdiff_t)k * RX * C + c;
            Lum32u s = p[0];
            for (int32_t j = 1; j < RX; ++j)
                s += p[j * C];
            acc[k * C + c] = s;
        }
}

template <int C>
void blocks_int(Lum32u *acc, int32_t used, int32_t rx)
{
    const int32_t nb = whole_blocks<C>(used, rx);
    switch (rx) {
    case 1: return; /* each element is its own block */
    case 2: return blocks_fixed<C, 2>(acc, nb);
    case 3: return blocks_fixed<C, 3>(acc, nb);
    case 4: return blocks_fixed<C, 4>(acc, nb);
    default: return blocks_whole<C>(acc, nb, rx);
    }
}

/* Modes 2 and 3: blocks of xRatio elements with a carry across.  The carry
 * runs the same way on every row, so plan_blocks works out once per call
 * what each block after the first takes; a row then only sums. */
int32_t plan_blocks(SuperBlock *plan, int32_t used, int32_t rx, double xRatio, double fx)
{
    int32_t q = rx, count = 0;
    double carryX = fx;
    const int32_t stop = used - q;
    while (q < stop) {
        SuperBlock &b = plan[count++];
        const double top = 1.0 - carryX;
        const double t = xRatio - top;
        const int32_t n = (int32_t)floor(t + kCarryEps);
        carryX = t - n;
        int32_t m = 0;
        b.q = q;
        b.top = top;
        if (top > kCarryEps)
            m = 1;
        else
            b.q = -1; /* no top part */
        b.first = q + m;
        b.count = m <= n ? n - m + 1 : 0;
        if (m <= n)
            m = n + 1;
        b.carry = carryX;
        b.carryAt = carryX > kCarryEps && q + m < used ? q + m : -1;
        q += m;
    }
    return count;
}

template <int C>
void blocks_fractional(const ResizeSuperArgs *a, Lum32f *acc)
{
    /* The three-channel form computes no block when the accumulator does not
     * hold the first one entirely. */
    if (C == 3 && a->srcWidthUsed < a->rx + 1)
        return;
    const int32_t rx = a->rx;
    for (int32_t c = 0; c < C; ++c) {
        Lum32f *e = acc + c;
        Lum32f s = sum_terms<C>(0.0f, e, rx);
        s = s + (Lum32f)((double)e[(ptrdiff_t)rx * C] * a->fx);
        e[0] = s;
        for (int32_t k = 1; k <= a->blockCount; ++k) {
            const SuperBlock &b = a->blocks[k - 1];
            s = b.q >= 0 ? (Lum32f)(b.top * (double)e[(ptrdiff_t)b.q * C]) : 0.0f;
            if (b.count > 0)
                s = sum_terms<C>(s, e + (ptrdiff_t)b.first * C, b.count);
            if (b.carryAt >= 0)
                s = s + (Lum32f)((double)e[(ptrdiff_t)b.carryAt * C] * b.carry);
            e[(ptrdiff_t)k * C] = s;
        }
    }
}

/* ----------------------------------------------------------- output step -- */

/* dst[e] = low 8 bits of trunc(double(a[e]) * norm + 0.5).  The vector body
 * computes the same double expression two lanes at a time; unsigned sums
 * reach it only when they stay below 2^31 (bound: the largest possible sum),
 * so the signed conversion is exact. */
/* Four pairs of sums as doubles to eight bytes. */
inline void out8_pd(const __m128d (&v)[4], Lum8u *d, __m128d norm, __m128d half)
{
    __m128i r[4];
    for (int k = 0; k < 4; ++k)
        r[k] = _mm_cvttpd_epi32(_mm_add_pd(_mm_mul_pd(v[k], norm), half));
    const __m128i m = _mm_set1_epi32(0xFF);
    const __m128i lo = _mm_and_si128(_mm_unpacklo_epi64(r[0], r[1]), m);
    const __m128i hi = _mm_and_si128(_mm_unpacklo_epi64(r[2], r[3]), m);
    const __m128i w = _mm_packs_epi32(lo, hi);
    _mm_storel_epi64((__m128i *)d, _mm_packus_epi16(w, w));
}

inline void out8(const Lum32u *a, Lum8u *d, __m128d norm, __m128d half)
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)a);
    const __m128i v1 = _mm_loadu_si128((const __m128i *)(a + 4));
    const __m128d v[4] = {_mm_cvtepi32_pd(v0), _mm_cvtepi32_pd(_mm_srli_si128(v0, 8)),
                          _mm_cvtepi32_pd(v1), _mm_cvtepi32_pd(_mm_srli_si128(v1, 8))};
    out8_pd(v, d, norm, half);
}

inline void out8(const Lum32f *a, Lum8u *d, __m128d norm, __m128d half)
{
    const __m128 v0 = _mm_loadu_ps(a), v1 = _mm_loadu_ps(a + 4);
    const __m128d v[4] = {_mm_cvtps_pd(v0), _mm_cvtps_pd(_mm_movehl_ps(v0, v0)),
                          _mm_cvtps_pd(v1), _mm_cvtps_pd(_mm_movehl_ps(v1, v1))};
    out8_pd(v, d, norm, half);
}

template <typename Acc>
void output_row(const Acc *a, Lum8u *d, int32_t n, double norm, bool vector)
{
    int32_t e = 0;
    if (vector) {
        const __m128d vn = _mm_set1_pd(norm), half = _mm_set1_pd(0.5);
        for (; e + 8 <= n; e += 8)
            out8(a + e, d + e, vn, half);
    }
    for (; e < n; ++e)
        d[e] = super_out_byte((double)a[e], norm);
}

/* ----------------------------------------------------------------- rows -- */

/* The source row r (from the region's first), or null past the image. */
inline const Lum8u *source_row(const ResizeSuperArgs *a, int64_t r)
{
    return r < a->rowsAvail ? a->frame.src + (ptrdiff_t)r * a->frame.srcStep : nullptr;
}

/* Adds rows r to r + count - 1, whole or weighted, those inside the image. */
void add_rows(const ResizeSuperArgs *a, Lum32f *acc, int32_t n, int64_t r, int32_t count)
{
    for (int32_t k = 0; k < count; ++k)
        if (const Lum8u *s = source_row(a, r + k))
            add_row(s, acc, n);
}

void add_weighted(const ResizeSuperArgs *a, Lum32f *acc, int32_t n, int64_t r, double w)
{
    if (const Lum8u *s = source_row(a, r))
        add_row_weighted(s, acc, n, w);
}

template <int C>
void decimate(const ResizeSuperArgs *a)
{
    const ResizeFrame &f = a->frame;
    const int32_t n = a->srcWidthUsed * C; /* accumulator elements summed down */
    const int32_t outCount = f.width * C;
    Lum8u *dst = f.dst;
    int64_t r = 0; /* current source row, from the region's first */

    if (a->mode == 0) {
        Lum32u *acc = (Lum32u *)a->acc;
        for (int32_t i = 0; i < f.height; ++i, dst += f.dstStep) {
            const int64_t avail = a->rowsAvail - r;
            if (a->pairs && avail >= a->ry) {
                super_pairs_row(a, source_row(a, r), dst);
                r += a->ry;
                continue;
            }
            /* The row sum writes every element, so it clears as well. */
            const int32_t rows = (int32_t)(avail < a->ry ? (avail > 0 ? avail : 0) : a->ry);
            const Lum8u *s = rows > 0 ? source_row(a, r) : f.src;
            if (C == 1)
                LUMI_T(ownpi_RowSuper8pl)(s, f.srcStep, a->srcWidthUsed, rows, acc);
            else
                LUMI_T(ownpi_RowSuper8px)(s, f.srcStep, a->srcWidthUsed, rows, acc, C);
            r += a->ry;
            blocks_int<C>(acc, a->srcWidthUsed, a->rx);
            output_row(acc, dst, outCount, a->norm, a->vectorOut);
        }
        return;
    }

    Lum32f *acc = (Lum32f *)a->acc;
    double carryY = a->fy;
    for (int32_t i = 0; i < f.height; ++i, dst += f.dstStep) {
        LUMI_T(lumsZero_8u)((Lum8u *)acc, n * 4);
        if (a->mode == 2) {
            add_rows(a, acc, n, r, a->ry);
            r += a->ry;
        } else if (i == 0) {
            add_rows(a, acc, n, r, a->ry);
            r += a->ry;
            if (carryY != 0.0)
                add_weighted(a, acc, n, r, carryY);
        } else {
            const double top = 1.0 - carryY;
            const double t = a->yRatio - top;
            const int32_t whole = (int32_t)floor(t + kCarryEps);
            carryY = t - whole;
            if (top > kCarryEps) {
                add_weighted(a, acc, n, r, top);
                ++r;
            }
            add_rows(a, acc, n, r, whole);
            r += whole;
            if (carryY > kCarryEps)
                add_weighted(a, acc, n, r, carryY);
        }
        if (a->mode == 1)
            blocks_whole<C>(acc, whole_blocks<C>(a->srcWidthUsed, a->rx), a->rx);
        else
            blocks_fractional<C>(a, acc);
        output_row(acc, dst, outCount, a->norm, true);
    }
}

/* Sums of rows rows of width elements, walked with step; zero rows clear. */
void row_sum(const Lum8u *src, int32_t step, int32_t width, int32_t rows, Lum32u *acc)
{
    if (rows < 1) {
        for (int32_t e = 0; e < width; ++e)
            acc[e] = 0;
        return;
    }
    for (int32_t e = 0; e < width; ++e)
        acc[e] = src[e];
    for (int32_t k = 1; k < rows; ++k) {
        src += step;
        for (int32_t e = 0; e < width; ++e)
            acc[e] += src[e];
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

LUMI_MEMBER void LUMI_T(ownpi_RowSuper8pl)(const Lum8u *src, int32_t srcStep, int32_t width,
                                           int32_t rows, Lum32u *acc)
{
    row_sum(src, srcStep, width, rows, acc);
}

LUMI_MEMBER void LUMI_T(ownpi_RowSuper8px)(const Lum8u *src, int32_t srcStep, int32_t width,
                                           int32_t rows, Lum32u *acc, int32_t pixelStride)
{
    row_sum(src, srcStep, width * pixelStride, rows, acc);
}

LUMI_MEMBER void LUMI_T(ownDecimate8plS)(const ResizeSuperArgs *args)
{
    decimate<1>(args);
}

LUMI_MEMBER void LUMI_T(ownDecimate8pxS)(const ResizeSuperArgs *args)
{
    decimate<3>(args);
}

namespace LUMI_NS {

LumStatus run_super(const ResizeFrame &frame, int32_t roiWidth, int32_t rowsAvail,
                    double xFactor, double yFactor)
{
    ResizeSuperArgs a = {};
    a.frame = frame;
    a.rowsAvail = rowsAvail;
    a.xRatio = 1.0 / xFactor;
    a.yRatio = 1.0 / yFactor;
    a.norm = xFactor * yFactor;
    /* An output of W columns never needs more than (W + 1) xRatio + 1 source
     * columns; the float rounding of W + 1 is part of the rule. */
    const double reach = (double)(float)(frame.width + 1) * a.xRatio;
    a.srcWidthUsed = reach >= (double)(roiWidth - 1) ? roiWidth : (int32_t)reach + 1;
    const double rxd = floor(a.xRatio), ryd = floor(a.yRatio);
    if (rxd > (double)(INT32_MAX - 64) || ryd > (double)(INT32_MAX - 64))
        return lumStsSizeErr;
    a.rx = (int32_t)rxd;
    a.ry = (int32_t)ryd;
    a.fx = a.xRatio - rxd;
    a.fy = a.yRatio - ryd;
    if (a.fx < 1e-7)
        a.fx = 0.0;
    if (a.fy < 1e-7)
        a.fy = 0.0;
    a.mode = a.fx == 0.0 ? (a.fy == 0.0 ? 0 : 1) : (a.fy == 0.0 ? 2 : 3);
    /* Sums of whole pixels below 2^31 convert exactly through signed lanes. */
    a.vectorOut = 255.0 * rxd * ryd < 2147483648.0;
    /* Exact halving across, blocks at most 64 rows deep: 16-bit rows, when
     * their output step agrees with the double one on every sum. */
    a.pairs = a.mode == 0 && a.rx == 2 && a.ry <= 64 &&
              super_fit_out16(a.norm, 510 * a.ry, &a.outMul, &a.outAdd);

    /* One block: the accumulator, then (modes 2 and 3) the plan of the
     * blocks across, at most one per accumulated pixel. */
    const int32_t C = frame.channelCount;
    const int64_t length = ((int64_t)a.srcWidthUsed + a.rx + 1) * C;
    const int64_t accBytes = (length * 4 + 7) & ~(int64_t)7;
    const int64_t planBytes = a.fx != 0.0 ? (int64_t)a.srcWidthUsed * sizeof(SuperBlock) : 0;
    WorkMem<1> m = {};
    Lum8u *block = workmem_take<Lum8u>(m, accBytes + planBytes);
    if (m.status == lumStsNoErr) {
        a.acc = block;
        /* Past srcWidthUsed the accumulator stays zero for the whole call. */
        const int64_t used = (int64_t)a.srcWidthUsed * C;
        LUMI_T(lumsZero_8u)(block + used * 4, (int32_t)((length - used) * 4));
        if (planBytes) {
            SuperBlock *plan = (SuperBlock *)(block + accBytes);
            a.blockCount = plan_blocks(plan, a.srcWidthUsed, a.rx, a.xRatio, a.fx);
            a.blocks = plan;
        }
        if (C == 1)
            LUMI_T(ownDecimate8plS)(&a);
        else
            LUMI_T(ownDecimate8pxS)(&a);
    }
    return workmem_release(m);
}

} // namespace LUMI_NS
