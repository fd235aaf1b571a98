/*
 * Convolution of 8-bit images, one or three channels, with a single-precision
 * kernel that carries its own scale:
 *
 *   dst(x, y) = convert( sum K[j * kw + i] * src(x + ax - i, y + ay - j) )
 *
 * The kernel is mirrored and placed exactly as in the integer family
 * (pifilter32s): the window of output (x, y) covers source columns
 * x + ax - kw + 1 .. x + ax and rows y + ay - kh + 1 .. y + ay, the caller
 * owns that footprint, the anchor is not checked.  Every product and sum is
 * a separate single-precision step (no fused multiply-add), and the whole
 * call runs in round-to-nearest with denormals kept; the caller's control
 * word is given back on return.
 *
 * Four engines, each with its own order of additions and its own rounding
 * of the float sum f to a byte (a NaN sum gives 255 everywhere):
 *   accumulator  kernel rows in order, each row's columns in order (the
 *                mirrored kernel walked from its last cell); two output rows
 *                at once share every source row read.  min(f, 255), nearest
 *                with ties to even, saturated (lumsConvert_32f8u_Sfs, mode 1);
 *   block (e9)   the full blocks of 8 columns of every kernel row first, then
 *                the remaining columns of every kernel row.  min(f, 255),
 *                0.5 added (-0.5 below 0), truncated, saturated: ties go
 *                away from zero, so 2.5 gives 3;
 *   narrow (e9)  one channel, regions under 8 pixels: the accumulator's order,
 *                min(f, 255), nearest with ties to even;
 *   plain        per kernel row, columns in groups of 4 into four lanes,
 *                reduced as (l0 + l1) + (l2 + l3), the remaining columns
 *                added one by one, the row sums added in order.  255 at or
 *                above 255, 0 at or below 0.5, otherwise (double)f + 0.5
 *                truncated with a tie made even.
 * Which engine runs, after the checks:
 *   m7, n8, y8   accumulator when kw >= 3, the region is at least 16 pixels
 *                wide (one channel) or 6 (three), and the working block could
 *                be taken; plain otherwise;
 *   e9           one channel: block from 8 pixels wide, narrow below;
 *                three channels: block from 8 pixels wide, plain when
 *                kw <= 2 or the width is at most 5, accumulator for the rest.
 *                When the working block cannot be taken, plain.
 * So the same image may give 2 on one tier and 3 on e9 for a sum of exactly
 * 2.5, and sums may differ in the last bit where the order of additions
 * differs (kw above 8 and not a multiple of 8, with two or more kernel rows).
 *
 * Checks in order: null pointers, sizes (a kernel whose cell count or a
 * region whose source row byte count does not fit 32 bits gives the size
 * status), steps.  A failed allocation is not an error: the plain engine
 * runs.
 */
#include "tier.h"

#include <immintrin.h>
#include <string.h>

#include "pifilter.h"

namespace LUMI_NS {
namespace {

using conv::Job;

/* Coefficient of footprint row r, column t (the kernel mirrored). */
inline Lum32f coef(const Lum32f *kernel, const Job &j, int32_t r, int32_t t)
{
    return kernel[(intptr_t)(j.kh - 1 - r) * j.kw + (j.kw - 1 - t)];
}

/* Eight source bytes as two float vectors. */
inline void load8(const Lum8u *p, __m128 *lo, __m128 *hi)
{
    const __m128i z = _mm_setzero_si128();
    const __m128i w = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i *)p), z);
    *lo = _mm_cvtepi32_ps(_mm_unpacklo_epi16(w, z));
    *hi = _mm_cvtepi32_ps(_mm_unpackhi_epi16(w, z));
}

/* acc = acc + c * v, rounded at each step. */
inline __m128 mul_add(__m128 acc, __m128 c, __m128 v) { return _mm_add_ps(acc, _mm_mul_ps(c, v)); }

/* ---------------------------------------------------- accumulator engine -- */

/* Packed row r is kernel row kh - 1 - r reversed, each cell four times, so
 * it goes with footprint row r and column t reads cells 4t..4t+3. */
void pack_kernel(const Lum32f *kernel, const Job &j, Lum32f *packed)
{
    for (int32_t r = 0; r < j.kh; ++r)
        for (int32_t t = 0; t < j.kw; ++t)
            for (int l = 0; l < 4; ++l)
                packed[((intptr_t)r * j.kw + t) * 4 + l] = coef(kernel, j, r, t);
}

/* Sums of output rows y (into a) and y + 1 (into b, when b is set) from the
 * footprint rows starting at src: row r of the footprint adds to a with
 * packed row r and to b with packed row r - 1, so each source row is read
 * once for both.  Eight output bytes a pass; the tail repeats the same
 * steps one byte at a time. */
void accumulate_rows(const Job &j, const Lum8u *src, const Lum32f *packed, Lum32f *a, Lum32f *b)
{
    const int32_t n = j.bytes, kw = j.kw, ch = j.channels;
    const int32_t rows = b ? j.kh + 1 : j.kh;
    int32_t x = 0;
    for (; x + 8 <= n; x += 8) {
        __m128 a0 = _mm_setzero_ps(), a1 = a0, b0 = a0, b1 = a0;
        for (int32_t r = 0; r < rows; ++r) {
            const Lum8u *row = src + (intptr_t)r * j.srcStep + x;
            const Lum32f *ka = packed + (intptr_t)r * kw * 4;
            const Lum32f *kb = r > 0 ? ka - (intptr_t)kw * 4 : ka;
            for (int32_t t = 0; t < kw; ++t) {
                __m128 v0, v1;
                load8(row + (intptr_t)t * ch, &v0, &v1);
                if (r < j.kh) {
                    const __m128 c = _mm_load_ps(ka + 4 * t);
                    a0 = mul_add(a0, c, v0);
                    a1 = mul_add(a1, c, v1);
                }
                if (r > 0 && b) {
                    const __m128 c = _mm_load_ps(kb + 4 * t);
                    b0 = mul_add(b0, c, v0);
                    b1 = mul_add(b1, c, v1);
                }
            }
        }
        _mm_storeu_ps(a + x, a0);
        _mm_storeu_ps(a + x + 4, a1);
        if (b) {
            _mm_storeu_ps(b + x, b0);
            _mm_storeu_ps(b + x + 4, b1);
        }
    }
    for (; x < n; ++x) {
        Lum32f sa = 0.0f, sb = 0.0f;
        for (int32_t r = 0; r < rows; ++r) {
            const Lum8u *row = src + (intptr_t)r * j.srcStep + x;
            for (int32_t t = 0; t < kw; ++t) {
                const Lum32f v = (Lum32f)row[(intptr_t)t * ch];
                if (r < j.kh)
                    sa = sa + packed[((intptr_t)r * kw + t) * 4] * v;
                if (r > 0 && b)
                    sb = sb + packed[((intptr_t)(r - 1) * kw + t) * 4] * v;
            }
        }
        a[x] = sa;
        if (b)
            b[x] = sb;
    }
}

void accumulator_engine(const Job &j, const Lum32f *kernel, Lum32f *work)
{
    Lum32f *packed = work;
    Lum32f *a = packed + (intptr_t)j.kw * 4 * j.kh;
    Lum32f *b = a + ((j.bytes + 3) & ~3);
    pack_kernel(kernel, j, packed);
    int32_t y = 0;
    for (; y + 2 <= j.height; y += 2) {
        accumulate_rows(j, j.src + (intptr_t)y * j.srcStep, packed, a, b);
        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep;
        LUMI_T(lumsConvert_32f8u_Sfs)(a, dst, j.bytes, 1, 0);
        LUMI_T(lumsConvert_32f8u_Sfs)(b, dst + j.dstStep, j.bytes, 1, 0);
    }
    if (y < j.height) {
        accumulate_rows(j, j.src + (intptr_t)y * j.srcStep, packed, a, nullptr);
        LUMI_T(lumsConvert_32f8u_Sfs)(a, j.dst + (intptr_t)y * j.dstStep, j.bytes, 1, 0);
    }
}

/* --------------------------------------------------------- plain engine -- */

Lum8u plain_round(Lum32f f)
{
    if (!(f < 255.0f)) /* a NaN too */
        return 255;
    if (f <= 0.5f)
        return 0;
    const double t = (double)f + 0.5;
    int32_t v = (int32_t)t;
    if ((double)v - (double)f == 0.5)
        v &= ~1;
    return (Lum8u)v;
}

void plain_engine(const Job &j, const Lum32f *kernel)
{
    const int32_t ch = j.channels, groups = j.kw & ~3;
    for (int32_t y = 0; y < j.height; ++y) {
        const Lum8u *src = j.src + (intptr_t)y * j.srcStep;
        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep;
        for (int32_t x = 0; x < j.bytes; ++x) {
            Lum32f total = 0.0f;
            for (int32_t r = 0; r < j.kh; ++r) {
                const Lum8u *row = src + (intptr_t)r * j.srcStep + x;
                Lum32f lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
                int32_t t = 0;
                for (; t < groups; t += 4)
                    for (int l = 0; l < 4; ++l)
                        lane[l] = lane[l] + coef(kernel, j, r, t + l) * (Lum32f)row[(intptr_t)(t + l) * ch];
                Lum32f sum = (lane[0] + lane[1]) + (lane[2] + lane[3]);
                for (; t < j.kw; ++t)
                    sum = sum + coef(kernel, j, r, t) * (Lum32f)row[(intptr_t)t * ch];
                total = total + sum;
            }
            dst[x] = plain_round(total);
        }
    }
}

/* ------------------------------------------------------ e9: narrow, block -- */

#if LUMI_HAS_AVX

/* One channel, fewer than 8 pixels: the accumulator's order of additions,
 * rounded to nearest even after min(f, 255). */
void narrow_engine(const Job &j, const Lum32f *kernel)
{
    for (int32_t y = 0; y < j.height; ++y) {
        const Lum8u *src = j.src + (intptr_t)y * j.srcStep;
        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep;
        for (int32_t x = 0; x < j.bytes; ++x) {
            Lum32f s = 0.0f;
            for (int32_t r = 0; r < j.kh; ++r)
                for (int32_t t = 0; t < j.kw; ++t)
                    s = s + coef(kernel, j, r, t) * (Lum32f)src[(intptr_t)r * j.srcStep + x + t];
            const int32_t v = _mm_cvtss_si32(_mm_min_ss(_mm_set_ss(s), _mm_set_ss(255.0f)));
            dst[x] = (Lum8u)(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    }
}

/* Eight source bytes as one float vector. */
inline __m256 load8_256(const Lum8u *p)
{
    const __m128i w = _mm_loadl_epi64((const __m128i *)p);
    const __m128i lo = _mm_cvtepu8_epi32(w), hi = _mm_cvtepu8_epi32(_mm_srli_si128(w, 4));
    return _mm256_cvtepi32_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(lo), hi, 1));
}

/* min(f, 255), plus 0.5 carrying f's sign, truncated: ties away from zero. */
inline __m128i round_away_4(__m128 f)
{
    const __m128 m = _mm_min_ps(f, _mm_set1_ps(255.0f));
    const __m128 h = _mm_or_ps(_mm_set1_ps(0.5f), _mm_and_ps(m, _mm_set1_ps(-0.0f)));
    return _mm_cvttps_epi32(_mm_add_ps(m, h));
}

void convert_away(const Lum32f *acc, int32_t n, Lum8u *dst)
{
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_packs_epi32(round_away_4(_mm_loadu_ps(acc + i)),
                                          round_away_4(_mm_loadu_ps(acc + i + 4)));
        _mm_storel_epi64((__m128i *)(dst + i), _mm_packus_epi16(v, v));
    }
    for (; i < n; ++i) {
        const int32_t v = _mm_cvtsi128_si32(round_away_4(_mm_set_ss(acc[i])));
        dst[i] = (Lum8u)(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}

/* The columns t0..t1 - 1 of every kernel row, added into eight sums. */
inline __m256 add_columns(__m256 s, const Job &j, const Lum8u *src, const Lum32f *kernel, int32_t t0,
                          int32_t t1)
{
    for (int32_t r = 0; r < j.kh; ++r) {
        const Lum8u *row = src + (intptr_t)r * j.srcStep;
        for (int32_t t = t0; t < t1; ++t)
            s = _mm256_add_ps(s, _mm256_mul_ps(_mm256_set1_ps(coef(kernel, j, r, t)),
                                               load8_256(row + (intptr_t)t * j.channels)));
    }
    return s;
}

inline Lum32f add_columns_1(Lum32f s, const Job &j, const Lum8u *src, const Lum32f *kernel,
                            int32_t t0, int32_t t1)
{
    for (int32_t r = 0; r < j.kh; ++r)
        for (int32_t t = t0; t < t1; ++t)
            s = s + coef(kernel, j, r, t) * (Lum32f)src[(intptr_t)r * j.srcStep + (intptr_t)t * j.channels];
    return s;
}

/* Full 8-column blocks of all kernel rows, then the remaining columns of all
 * kernel rows, into the row accumulator; then the row is converted. */
void block_engine(const Job &j, const Lum32f *kernel, Lum32f *acc)
{
    const int32_t blocks = j.kw & ~7;
    for (int32_t y = 0; y < j.height; ++y) {
        const Lum8u *src = j.src + (intptr_t)y * j.srcStep;
        int32_t x = 0;
        for (; x + 8 <= j.bytes; x += 8) {
            __m256 s = add_columns(_mm256_setzero_ps(), j, src + x, kernel, 0, blocks);
            _mm256_storeu_ps(acc + x, add_columns(s, j, src + x, kernel, blocks, j.kw));
        }
        for (; x < j.bytes; ++x)
            acc[x] = add_columns_1(add_columns_1(0.0f, j, src + x, kernel, 0, blocks), j, src + x,
                                   kernel, blocks, j.kw);
        convert_away(acc, j.bytes, j.dst + (intptr_t)y * j.dstStep);
    }
}

#endif

/* ------------------------------------------------------------ selection -- */

enum Engine { kAccumulator, kBlock, kNarrow, kPlain };

/* The engine a tier takes for this region and kernel, before the working
 * block is asked for.  e9 has its own block and narrow engines. */
Engine choose_engine(const Job &j)
{
#if LUMI_HAS_AVX
    if (j.width >= 8)
        return kBlock;
    if (j.channels == 1)
        return kNarrow;
    return j.kw <= 2 || j.width <= 5 ? kPlain : kAccumulator;
#else
    const bool wide = j.channels == 1 ? j.width > 15 : j.width >= 6;
    return j.kw >= 3 && wide ? kAccumulator : kPlain;
#endif
}

/* Floats of the working block: the packed kernel and two accumulators; 0
 * when the count does not fit 32 bits. */
int32_t work_floats(const Job &j)
{
    const int64_t n = ((int64_t)j.kw * 4 * j.kh + (int64_t)j.bytes * 2 + 10) & ~(int64_t)3;
    return n > INT32_MAX ? 0 : (int32_t)n;
}

void run_engine(const Job &j, const Lum32f *kernel)
{
    Engine e = choose_engine(j);
#if LUMI_HAS_AVX
    if (e == kNarrow) {
        narrow_engine(j, kernel);
        return;
    }
#endif
    Lum32f *work = nullptr;
    if (e != kPlain) {
        const int32_t n = work_floats(j);
        work = n > 0 ? LUMI_T(lumsMalloc_32f)(n) : nullptr;
        if (!work)
            e = kPlain;
    }
    switch (e) {
    case kAccumulator: accumulator_engine(j, kernel, work); break;
#if LUMI_HAS_AVX
    case kBlock: block_engine(j, kernel, work); break;
#endif
    default: plain_engine(j, kernel); break;
    }
    LUMI_T(lumsFree)(work);
}

LumStatus filter32f(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                    const Lum32f *pKernel, LumiSize kernelSize, LumiPoint anchor, int32_t channels)
{
    LumStatus st = conv::check_pointers(pSrc, pDst, pKernel);
    if (st == lumStsNoErr)
        st = conv::check_sizes(roi, kernelSize, channels);
    if (st == lumStsNoErr)
        st = conv::check_steps(srcStep, dstStep, roi, kernelSize, channels);
    if (st != lumStsNoErr)
        return st;
    const Job j = conv::make_job(pSrc, srcStep, pDst, dstStep, roi, kernelSize, anchor, channels);
    const unsigned csr = conv::enter_nearest();
    run_engine(j, pKernel);
    conv::leave_nearest(csr);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilter32f_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                   int32_t dstStep, LumiSize dstRoiSize,
                                                   const Lum32f *pKernel, LumiSize kernelSize,
                                                   LumiPoint anchor)
{
    return LUMI_NS::filter32f(pSrc, srcStep, pDst, dstStep, dstRoiSize, pKernel, kernelSize, anchor,
                              1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilter32f_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                   int32_t dstStep, LumiSize dstRoiSize,
                                                   const Lum32f *pKernel, LumiSize kernelSize,
                                                   LumiPoint anchor)
{
    return LUMI_NS::filter32f(pSrc, srcStep, pDst, dstStep, dstRoiSize, pKernel, kernelSize, anchor,
                              3);
}
