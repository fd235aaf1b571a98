/*
 * Convolution of 8-bit images, one or three channels, with an integer kernel
 * and an integer divisor:
 *
 *   dst(x, y) = round( sum K[j * kw + i] * src(x + ax - i, y + ay - j) / divisor )
 *
 * The kernel is mirrored (a true convolution): cell (ax, ay) lies over the
 * output pixel and the window of output (x, y) covers source columns
 * x + ax - kw + 1 .. x + ax and rows y + ay - kh + 1 .. y + ay.  There is no
 * border: pSrc is the pixel under the first output pixel and the caller owns
 * the whole footprint.  The anchor is not checked; it only moves the window.
 *
 * Sums are 32-bit and wrap: every product and addition is done modulo 2^32
 * (in unsigned arithmetic on the plain path, with 32-bit vector adds on the
 * fast path), so a sum that leaves 32 bits gives the same wrapped value on
 * both paths, and that value is then scaled.
 *
 * Divisor classes, fixed once per call:
 *   none        divisor 1: the sum clamped to 0..255;
 *   shift       (divisor - 1) & (divisor | 0x80000000) is 0, taken in
 *               unsigned arithmetic: a positive power of two, and also
 *               INT_MIN, whose magnitude 2^31 is read as unsigned, so it
 *               divides by +2^31 (the result is 0 or 1).  Rounding is to
 *               nearest, ties to even: q = s >> shift, and the remainder
 *               plus half - 1 plus the low bit of q carries into q.  Taking
 *               quotient and remainder apart keeps the rounding term from
 *               overflowing 32 bits for sums near the top of the range;
 *   reciprocal  every other divisor, negative ones too: (float)s * (1 / d)
 *               in single precision, limited to 255 from above, rounded to
 *               nearest even and saturated.  This is multiplication by a
 *               rounded reciprocal, not exact division.
 * The whole call runs in round-to-nearest with denormals kept, and the
 * caller's control word is given back on return.
 *
 * Paths: the fast path packs the kernel into 16-bit coefficient pairs (one
 * multiply-add gives two products per 32-bit lane) and accumulates each
 * output row in a 32-bit buffer; it needs kw >= 3, a region at least 16
 * pixels wide for one channel or 5 for three, its working buffer, and every
 * cell within -32767..32766.  Anything else runs the plain path: direct
 * scalar sums, no memory.  Both give the same pixels, and all tiers run the
 * same code.
 *
 * Checks in order: null pointers, sizes (including a kernel whose cell count
 * or a region whose source row byte count does not fit 32 bits: size
 * status), divisor 0, steps.  A failed allocation is not an error: the plain
 * path runs.
 */
#include "tier.h"

#include <immintrin.h>
#include <string.h>

#include "pifilter.h"

namespace LUMI_NS {
namespace {

using conv::Job;

enum DivisorClass { kNone, kShift, kReciprocal };

struct Divisor {
    DivisorClass cls;
    int shift;     /* shift class: log2 of the divisor's magnitude */
    uint32_t half; /* shift class: 1 << (shift - 1) */
    Lum32f recip;  /* none: 1, reciprocal: 1 / divisor */
};

Divisor classify(int32_t divisor)
{
    const uint32_t u = (uint32_t)divisor;
    Divisor d = {kNone, 0, 0, 1.0f};
    if (divisor == 1)
        return d;
    if (((u - 1u) & (u | 0x80000000u)) == 0) {
        d.cls = kShift;
        d.shift = 31 - __builtin_clz(u);
        d.half = 1u << (d.shift - 1);
        return d;
    }
    d.cls = kReciprocal;
    d.recip = 1.0f / (Lum32f)divisor;
    return d;
}

/* One wrapped 32-bit sum to a byte; the plain path and the fast path's
 * scalar tail both end here. */
Lum8u scale_sum(uint32_t sum, const Divisor &d)
{
    const int32_t s = (int32_t)sum;
    switch (d.cls) {
    case kNone:
        return (Lum8u)(s < 0 ? 0 : s > 255 ? 255 : s);
    case kShift: {
        if (s < 1)
            return 0;
        const uint32_t q = sum >> d.shift;
        const uint32_t r = (sum & (2u * d.half - 1u)) + d.half + (q & 1u) - 1u;
        const uint32_t v = q + (r >> d.shift);
        return (Lum8u)(v > 255u ? 255u : v);
    }
    default: {
        const Lum32f f = (Lum32f)s * d.recip;
        if (f >= 255.0f)
            return 255;
        if (f <= 0.5f)
            return 0;
        const double t = (double)f + 0.5;
        int32_t v = (int32_t)t;
        if ((double)v - (double)f == 0.5)
            v &= ~1;
        return (Lum8u)v;
    }
    }
}

/* Sixteen sums to sixteen bytes, the same steps as scale_sum. */
__m128i scale_16(const __m128i s[4], const Divisor &d)
{
    __m128i v[4];
    if (d.cls == kShift) {
        const __m128i cnt = _mm_cvtsi32_si128(d.shift);
        const __m128i mask = _mm_set1_epi32((int)(2u * d.half - 1u));
        const __m128i bias = _mm_set1_epi32((int)(d.half - 1u)), one = _mm_set1_epi32(1);
        for (int k = 0; k < 4; ++k) {
            const __m128i q = _mm_sra_epi32(s[k], cnt);
            __m128i r = _mm_add_epi32(_mm_and_si128(s[k], mask), bias);
            r = _mm_add_epi32(r, _mm_and_si128(q, one));
            v[k] = _mm_add_epi32(q, _mm_srl_epi32(r, cnt));
        }
    } else {
        const __m128 rc = _mm_set1_ps(d.recip), top = _mm_set1_ps(255.0f);
        for (int k = 0; k < 4; ++k)
            v[k] = _mm_cvtps_epi32(_mm_min_ps(_mm_mul_ps(_mm_cvtepi32_ps(s[k]), rc), top));
    }
    return _mm_packus_epi16(_mm_packs_epi32(v[0], v[1]), _mm_packs_epi32(v[2], v[3]));
}

/* Accumulator row to destination row. */
void ownAConvert32s_8u(const Lum32s *acc, int32_t n, Lum8u *dst, const Divisor &d)
{
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i s[4] = {_mm_loadu_si128((const __m128i *)(acc + i)),
                              _mm_loadu_si128((const __m128i *)(acc + i + 4)),
                              _mm_loadu_si128((const __m128i *)(acc + i + 8)),
                              _mm_loadu_si128((const __m128i *)(acc + i + 12))};
        _mm_storeu_si128((__m128i *)(dst + i), scale_16(s, d));
    }
    for (; i < n; ++i)
        dst[i] = scale_sum((uint32_t)acc[i], d);
}

/* ----------------------------------------------------------- fast path -- */

/* Kernel rows from the last to the first, so packed row j goes with source
 * row j of the footprint.  Within a row, pairs from the row's end:
 * (K[n], K[n - 1]), each pair four times over eight 16-bit lanes; an odd
 * width ends with (K[0], 0).  Packed row j starts at cell j * kw * 4.
 * False as soon as a cell lies outside -32767..32766. */
bool pack_kernel(const Lum32s *kernel, int32_t kw, int32_t kh, Lum32s *packed)
{
    const auto fits = [](Lum32s c) { return c >= -32767 && c <= 32766; };
    for (int32_t j = 0; j < kh; ++j) {
        const Lum32s *row = kernel + (intptr_t)(kh - 1 - j) * kw;
        int16_t *out = (int16_t *)(packed + (intptr_t)j * kw * 4);
        for (int32_t t = 0; t < kw; t += 2) {
            const Lum32s a = row[kw - 1 - t];
            const Lum32s b = t + 1 < kw ? row[kw - 2 - t] : 0;
            if (!fits(a) || !fits(b))
                return false;
            for (int l = 0; l < 4; ++l) {
                out[4 * t + 2 * l] = (int16_t)a;
                out[4 * t + 2 * l + 1] = (int16_t)b;
            }
        }
    }
    return true;
}

/* Sums of one output row into acc.  Column t of the footprint takes packed
 * lane pair t / 2; the vector body covers bytes in blocks of 16 and never
 * reads past the footprint (its last load ends at the last output byte's
 * own last tap); the tail sums the rest byte by byte from the same packed
 * coefficients. */
void ownAFilterRow_8u(const Job &j, const Lum8u *src, Lum32s *acc, const Lum32s *packed)
{
    const int32_t n = j.bytes, ch = j.channels, kw = j.kw;
    const __m128i z = _mm_setzero_si128();
    int32_t b = 0;
    for (; b + 16 <= n; b += 16) {
        __m128i s0 = z, s1 = z, s2 = z, s3 = z;
        for (int32_t r = 0; r < j.kh; ++r) {
            const Lum8u *row = src + (intptr_t)r * j.srcStep + b;
            const __m128i *c = (const __m128i *)(packed + (intptr_t)r * kw * 4);
            for (int32_t t = 0; t < kw; t += 2, ++c) {
                const Lum8u *q = row + (intptr_t)t * ch;
                const __m128i lo = _mm_loadu_si128((const __m128i *)q);
                const __m128i hi = t + 1 < kw ? _mm_loadu_si128((const __m128i *)(q + ch)) : z;
                const __m128i k = _mm_load_si128(c);
                const __m128i p0 = _mm_unpacklo_epi8(lo, hi), p1 = _mm_unpackhi_epi8(lo, hi);
                s0 = _mm_add_epi32(s0, _mm_madd_epi16(_mm_unpacklo_epi8(p0, z), k));
                s1 = _mm_add_epi32(s1, _mm_madd_epi16(_mm_unpackhi_epi8(p0, z), k));
                s2 = _mm_add_epi32(s2, _mm_madd_epi16(_mm_unpacklo_epi8(p1, z), k));
                s3 = _mm_add_epi32(s3, _mm_madd_epi16(_mm_unpackhi_epi8(p1, z), k));
            }
        }
        _mm_storeu_si128((__m128i *)(acc + b), s0);
        _mm_storeu_si128((__m128i *)(acc + b + 4), s1);
        _mm_storeu_si128((__m128i *)(acc + b + 8), s2);
        _mm_storeu_si128((__m128i *)(acc + b + 12), s3);
    }
    for (; b < n; ++b) {
        uint32_t s = 0;
        for (int32_t r = 0; r < j.kh; ++r) {
            const Lum8u *row = src + (intptr_t)r * j.srcStep + b;
            const int16_t *c = (const int16_t *)(packed + (intptr_t)r * kw * 4);
            for (int32_t t = 0; t < kw; ++t)
                s += (uint32_t)((int32_t)c[4 * (t & ~1) + (t & 1)] * row[(intptr_t)t * ch]);
        }
        acc[b] = (Lum32s)s;
    }
}

void fast_path(const Job &j, const Lum32s *packed, Lum32s *acc, const Divisor &d)
{
    for (int32_t y = 0; y < j.height; ++y) {
        ownAFilterRow_8u(j, j.src + (intptr_t)y * j.srcStep, acc, packed);
        ownAConvert32s_8u(acc, j.bytes, j.dst + (intptr_t)y * j.dstStep, d);
    }
}

/* ---------------------------------------------------------- plain path -- */

void plain_path(const Job &j, const Lum32s *kernel, const Divisor &d)
{
    const int32_t ch = j.channels;
    for (int32_t y = 0; y < j.height; ++y) {
        const Lum8u *src = j.src + (intptr_t)y * j.srcStep;
        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep;
        for (int32_t b = 0; b < j.bytes; ++b) {
            uint32_t s = 0;
            for (int32_t r = 0; r < j.kh; ++r) {
                const Lum8u *row = src + (intptr_t)r * j.srcStep + b;
                const Lum32s *k = kernel + (intptr_t)(j.kh - 1 - r) * j.kw + (j.kw - 1);
                for (int32_t t = 0; t < j.kw; ++t)
                    s += (uint32_t)k[-t] * row[(intptr_t)t * ch];
            }
            dst[b] = scale_sum(s, d);
        }
    }
}

/* Cells of the working block: the packed kernel, then one accumulator cell
 * per output byte; 0 when the count does not fit 32 bits (no fast path). */
int32_t work_cells(const Job &j)
{
    const int64_t cells = ((int64_t)j.kw * 4 * j.kh + j.bytes + 3) & ~(int64_t)3;
    return cells > INT32_MAX ? 0 : (int32_t)cells;
}

bool fast_path_fits(const Job &j)
{
    return j.kw >= 3 && j.width >= (j.channels == 1 ? 16 : 5);
}

LumStatus filter(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                 const Lum32s *pKernel, LumiSize kernelSize, LumiPoint anchor, int32_t divisor,
                 int32_t channels)
{
    LumStatus st = conv::check_pointers(pSrc, pDst, pKernel);
    if (st == lumStsNoErr)
        st = conv::check_sizes(roi, kernelSize, channels);
    if (st == lumStsNoErr && divisor == 0)
        st = lumStsDivisorErr;
    if (st == lumStsNoErr)
        st = conv::check_steps(srcStep, dstStep, roi, kernelSize, channels);
    if (st != lumStsNoErr)
        return st;

    const Job j = conv::make_job(pSrc, srcStep, pDst, dstStep, roi, kernelSize, anchor, channels);
    const Divisor d = classify(divisor);
    const unsigned csr = conv::enter_nearest();
    bool done = false;
    if (fast_path_fits(j)) {
        const int32_t cells = work_cells(j);
        Lum32s *work = cells > 0 ? LUMI_T(lumsMalloc_32s)(cells) : nullptr;
        if (work && pack_kernel(pKernel, j.kw, j.kh, work)) {
            fast_path(j, work, work + (intptr_t)j.kw * 4 * j.kh, d);
            done = true;
        }
        LUMI_T(lumsFree)(work);
    }
    if (!done)
        plain_path(j, pKernel, d);
    conv::leave_nearest(csr);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilter_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                int32_t dstStep, LumiSize dstRoiSize,
                                                const Lum32s *pKernel, LumiSize kernelSize,
                                                LumiPoint anchor, int32_t divisor)
{
    return LUMI_NS::filter(pSrc, srcStep, pDst, dstStep, dstRoiSize, pKernel, kernelSize, anchor,
                           divisor, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilter_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                int32_t dstStep, LumiSize dstRoiSize,
                                                const Lum32s *pKernel, LumiSize kernelSize,
                                                LumiPoint anchor, int32_t divisor)
{
    return LUMI_NS::filter(pSrc, srcStep, pDst, dstStep, dstRoiSize, pKernel, kernelSize, anchor,
                           divisor, 3);
}
