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
 *                mirrored kernel walked from its last cell).  min(f, 255),
 *                nearest with ties to even, saturated (lumsConvert_32f8u_Sfs,
 *                mode 1, or the same steps in registers);
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
 * The accumulator and block engines share one driver: the footprint is
 * walked in strips of output columns, each footprint row of a strip
 * converted to float once into a ring of kh rows (exact, so the sums are
 * unchanged) that stays in cache, and every output byte summed in its
 * engine's order, several vectors of outputs at a time.  When the ring would
 * pass 4 MB the taps convert source bytes directly.  Both take one working
 * block (row table, sums, ring).
 *
 * Checks in order: null pointers, sizes (a kernel whose cell count or a
 * region whose source row byte count does not fit 32 bits gives the size
 * status), steps.  A failed allocation is not an error: the plain engine
 * runs.
 */
#include "tier.h"

#include <immintrin.h>
#include <string.h>

#include "checks.h"
#include "pifilter.h"

namespace LUMI_NS {
namespace {

using conv::Job;

/* Coefficient of footprint row r, column t (the kernel mirrored). */
inline Lum32f coef(const Lum32f *kernel, const Job &j, int32_t r, int32_t t)
{
    return kernel[(intptr_t)(j.kh - 1 - r) * j.kw + (j.kw - 1 - t)];
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

#endif

/* ------------------------------------------------ accumulator and block -- */

/* Both engines sum the taps of each output byte one by one in a fixed order,
 * so they share one driver.  The footprint is walked in strips of output
 * columns; within a strip every footprint row is converted to float once,
 * into a ring of kh slots (u8 to float is exact, so the sums are those of
 * converting at every tap), and the kernel runs over the ring while it is
 * in the first-level cache.  A ring too large for the working block's cap
 * is skipped and the taps read the source bytes directly. */

/* One lane width of the same steps: scalar, SSE, AVX. */
struct Lane1 {
    typedef Lum32f T;
    enum { N = 1 };
    static T zero() { return 0.0f; }
    static T bcast(const Lum32f *p) { return *p; }
    static T load(const Lum32f *p) { return *p; }
    static T load(const Lum8u *p) { return (Lum32f)*p; }
    static T mul(T a, T b) { return a * b; }
    static T add(T a, T b) { return a + b; }
    static void store(Lum32f *p, T v) { *p = v; }
};

struct Lane4 {
    typedef __m128 T;
    enum { N = 4 };
    static T zero() { return _mm_setzero_ps(); }
    static T bcast(const Lum32f *p) { return _mm_load1_ps(p); }
    static T load(const Lum32f *p) { return _mm_loadu_ps(p); }
    static T load(const Lum8u *p)
    {
        int32_t w;
        memcpy(&w, p, 4);
        const __m128i z = _mm_setzero_si128();
        return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(w), z), z));
    }
    static T mul(T a, T b) { return _mm_mul_ps(a, b); }
    static T add(T a, T b) { return _mm_add_ps(a, b); }
    static void store(Lum32f *p, T v) { _mm_storeu_ps(p, v); }
};

#if LUMI_HAS_AVX
struct Lane8 {
    typedef __m256 T;
    enum { N = 8 };
    static T zero() { return _mm256_setzero_ps(); }
    static T bcast(const Lum32f *p) { return _mm256_broadcast_ss(p); }
    static T load(const Lum32f *p) { return _mm256_loadu_ps(p); }
    static T load(const Lum8u *p)
    {
        const __m128i w = _mm_loadl_epi64((const __m128i *)p);
        const __m128i lo = _mm_cvtepu8_epi32(w), hi = _mm_cvtepu8_epi32(_mm_srli_si128(w, 4));
        return _mm256_cvtepi32_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(lo), hi, 1));
    }
    static T mul(T a, T b) { return _mm256_mul_ps(a, b); }
    static T add(T a, T b) { return _mm256_add_ps(a, b); }
    static void store(Lum32f *p, T v) { _mm256_storeu_ps(p, v); }
};
#endif

/* Adds to M vectors of sums from output byte x: footprint rows in order,
 * columns t0..t1 - 1 of each, every tap a product then a sum; with
 * skipFirst the tap (0, t0), already in the sums, is left out.  rows[r] is
 * footprint row r at the strip's first byte (floats or bytes). */
template <class V, int M, class Src>
inline void add_taps(typename V::T s[M], const Src *const *rows, intptr_t x, const Job &j,
                     const Lum32f *kernel, int32_t t0, int32_t t1, bool skipFirst)
{
    const intptr_t ch = j.channels;
    for (int32_t r = 0; r < j.kh; ++r) {
        const Src *row = rows[r] + x;
        const Lum32f *k = kernel + (intptr_t)(j.kh - 1 - r) * j.kw + (j.kw - 1);
        for (int32_t t = r == 0 && skipFirst ? t0 + 1 : t0; t < t1; ++t) {
            const typename V::T c = V::bcast(k - t);
            const Src *q = row + t * ch;
            for (int m = 0; m < M; ++m)
                s[m] = V::add(s[m], V::mul(c, V::load(q + m * V::N)));
        }
    }
}

/* Sums of output bytes x.. in groups of M vectors: the columns below split
 * of every kernel row first, then the rest (split = kw keeps plain row
 * order).  Both orders begin with tap (0, 0), whose product starts the sums
 * rather than being added to zero: 0 + p is p but for -0 becoming +0, and
 * both round to the byte 0.  Out::put rounds a group straight into the
 * destination; without it the sums go to acc for the row conversion.
 * Returns the first byte left over. */
template <class V, int M, class Out, class Src>
inline int32_t sum_blocks(const Src *const *rows, int32_t x, int32_t n, const Job &j,
                          const Lum32f *kernel, int32_t split, Lum32f *acc, Lum8u *dst)
{
    const typename V::T c0 = V::bcast(kernel + (intptr_t)(j.kh - 1) * j.kw + (j.kw - 1));
    for (; x + M * V::N <= n; x += M * V::N) {
        typename V::T s[M];
        for (int m = 0; m < M; ++m)
            s[m] = V::mul(c0, V::load(rows[0] + x + m * V::N));
        add_taps<V, M>(s, rows, x, j, kernel, 0, split, true);
        add_taps<V, M>(s, rows, x, j, kernel, split, j.kw, split == 0);
        if (Out::kFused)
            Out::put(s, dst + x);
        else
            for (int m = 0; m < M; ++m)
                V::store(acc + x + m * V::N, s[m]);
    }
    return x;
}

struct ToAcc {
    enum { kFused = 0 };
    enum { M = 1 };
    template <class T> static void put(const T *, Lum8u *) {}
};

/* n output bytes of one strip row: groups of Out::M vectors rounded in
 * registers by Out, which must give what convert gives; the rest through
 * acc and convert. */
template <class V, class Out, class Src, class Convert>
void sum_strip(const Src *const *rows, int32_t n, const Job &j, const Lum32f *kernel,
               int32_t split, Lum32f *acc, Lum8u *dst, Convert convert)
{
    const int32_t x0 = sum_blocks<V, Out::M, Out>(rows, 0, n, j, kernel, split, acc, dst);
    const int32_t x1 = sum_blocks<V, 1, ToAcc>(rows, x0, n, j, kernel, split, acc, dst);
    sum_blocks<Lane1, 1, ToAcc>(rows, x1, n, j, kernel, split, acc, dst);
    if (x0 < n)
        convert(acc + x0, n - x0, dst + x0);
}

/* min(f, 255), nearest even, saturated: what the row conversion does. */
struct EvenOut {
    enum { kFused = 1, M = 4 };
    static void put(const __m128 s[4], Lum8u *d)
    {
        const __m128 top = _mm_set1_ps(255.0f);
        __m128i v[4];
        for (int m = 0; m < 4; ++m)
            v[m] = _mm_cvtps_epi32(_mm_min_ps(s[m], top));
        _mm_storeu_si128((__m128i *)d, _mm_packus_epi16(_mm_packs_epi32(v[0], v[1]),
                                                        _mm_packs_epi32(v[2], v[3])));
    }
};

/* n source bytes to floats. */
void load_row(const Lum8u *s, intptr_t n, Lum32f *d)
{
    const __m128i z = _mm_setzero_si128();
    intptr_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i v = _mm_loadu_si128((const __m128i *)(s + i));
        const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
        _mm_storeu_ps(d + i, _mm_cvtepi32_ps(_mm_unpacklo_epi16(lo, z)));
        _mm_storeu_ps(d + i + 4, _mm_cvtepi32_ps(_mm_unpackhi_epi16(lo, z)));
        _mm_storeu_ps(d + i + 8, _mm_cvtepi32_ps(_mm_unpacklo_epi16(hi, z)));
        _mm_storeu_ps(d + i + 12, _mm_cvtepi32_ps(_mm_unpackhi_epi16(hi, z)));
    }
    for (; i < n; ++i)
        d[i] = (Lum32f)s[i];
}

/* Working block: kh row pointers, one strip of sums, then the ring of kh
 * slots (none when slot is 0: the taps then read bytes). */
struct Plan {
    int32_t strip;  /* output bytes per strip */
    intptr_t slot;  /* floats per ring slot */
    intptr_t ptrs;  /* floats taken by the row pointers */
    int64_t floats; /* the whole block */
};

Plan plan_work(const Job &j)
{
    Plan p;
    p.ptrs = (intptr_t)(((int64_t)j.kh * (int64_t)(sizeof(void *) / sizeof(Lum32f)) + 7) & ~7);
    const conv::RingShape r = conv::ring_shape(j, 64, 8);
    p.strip = r.strip;
    p.slot = r.slot;
    p.floats = p.ptrs + ((p.strip + 7) & ~7) + (int64_t)j.kh * p.slot;
    return p;
}

template <class V, class Out, class Convert>
void ring_engine(const Job &j, const Lum32f *kernel, Lum32f *work, const Plan &p, int32_t split,
                 Convert convert)
{
    Lum32f *acc = work + p.ptrs;
    if (p.slot == 0) {
        /* No ring: the plan made one strip of the whole row, and the taps
         * read the source bytes. */
        const Lum8u **rows = (const Lum8u **)(void *)work;
        for (int32_t y = 0; y < j.height; ++y) {
            for (int32_t r = 0; r < j.kh; ++r)
                rows[r] = j.src + ((intptr_t)y + r) * j.srcStep;
            sum_strip<V, Out>(rows, j.bytes, j, kernel, split, acc,
                              j.dst + (intptr_t)y * j.dstStep, convert);
        }
        return;
    }
    Lum32f *ring = acc + ((p.strip + 7) & ~7);
    conv::walk_ring(j, p.strip, p.slot, ring, (const Lum32f **)(void *)work, load_row,
                    [&](const Lum32f *const *rows, int32_t y, int32_t x0, int32_t n) {
                        sum_strip<V, Out>(rows, n, j, kernel, split, acc,
                                          j.dst + (intptr_t)y * j.dstStep + x0, convert);
                    });
}

/* The accumulator engine: plain row order, nearest-even conversion. */
void accumulator_engine(const Job &j, const Lum32f *kernel, Lum32f *work, const Plan &p)
{
    ring_engine<Lane4, EvenOut>(j, kernel, work, p, j.kw, [](const Lum32f *acc, int32_t n, Lum8u *dst) {
        LUMI_T(lumsConvert_32f8u_Sfs)(acc, dst, n, 1, 0);
    });
}

#if LUMI_HAS_AVX
/* Ties away from zero, as convert_away.  Eight vectors a group: each sum is
 * a chain of dependent additions, and eight chains keep the adders busy. */
struct AwayOut {
    enum { kFused = 1, M = 8 };
    static __m128i half(__m256i v, int hi) { return hi ? _mm256_extractf128_si256(v, 1) : _mm256_castsi256_si128(v); }
    static void put(const __m256 s[M], Lum8u *d)
    {
        const __m256 top = _mm256_set1_ps(255.0f), h = _mm256_set1_ps(0.5f), sign = _mm256_set1_ps(-0.0f);
        for (int m = 0; m < M; m += 2) {
            __m256i v[2];
            for (int i = 0; i < 2; ++i) {
                const __m256 c = _mm256_min_ps(s[m + i], top);
                v[i] = _mm256_cvttps_epi32(_mm256_add_ps(c, _mm256_or_ps(h, _mm256_and_ps(c, sign))));
            }
            const __m128i a = _mm_packs_epi32(half(v[0], 0), half(v[0], 1));
            const __m128i b = _mm_packs_epi32(half(v[1], 0), half(v[1], 1));
            _mm_storeu_si128((__m128i *)(d + 8 * m), _mm_packus_epi16(a, b));
        }
    }
};

/* The block engine: whole 8-column blocks first, ties away from zero. */
void block_engine(const Job &j, const Lum32f *kernel, Lum32f *work, const Plan &p)
{
    ring_engine<Lane8, AwayOut>(j, kernel, work, p, j.kw & ~7, convert_away);
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

/* The size the engines have always been allowed to ask for; 0 when it does
 * not fit 32 bits, and then the plain engine runs whatever the plan needs. */
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
    const Plan p = plan_work(j);
    if (e != kPlain) {
        const bool fits = work_floats(j) > 0 && p.floats <= INT32_MAX;
        work = fits ? LUMI_T(lumsMalloc_32f)((int32_t)p.floats) : nullptr;
        if (!work)
            e = kPlain;
    }
    switch (e) {
    case kAccumulator: accumulator_engine(j, kernel, work, p); break;
#if LUMI_HAS_AVX
    case kBlock: block_engine(j, kernel, work, p); break;
#endif
    default: plain_engine(j, kernel); break;
    }
    LUMI_T(lumsFree)(work);
}

LumStatus filter32f(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                    const Lum32f *pKernel, LumiSize kernelSize, LumiPoint anchor, int32_t channels)
{
    if (any_null(pSrc, pDst, pKernel))
        return lumStsNullPtrErr;
    if (!size_positive(roi) || !mask_positive(kernelSize) ||
        !kernel_fits(roi, kernelSize, channels))
        return lumStsSizeErr;
    if (!steps_hold_footprint(srcStep, dstStep, roi, kernelSize, channels))
        return lumStsStepErr;
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
