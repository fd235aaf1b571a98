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
 * multiply-add gives two products per 32-bit lane); it needs kw >= 3, a
 * region at least 16 pixels wide for one channel or 5 for three, its working
 * block, and every cell within -32767..32766.  Anything else runs the plain
 * path: direct scalar sums, no memory.  Both give the same pixels.  Inside
 * the fast path, sixteen output bytes at a time, by one of three bodies that
 * form the same 32-bit sums (integer sums do not depend on their order):
 *   16-bit sums  every cell a signed byte, no pair of cells able to take a
 *                pair of bytes past 16 bits, and the whole sum within the
 *                signed or the unsigned 16-bit range: byte multiply-adds in
 *                16-bit lanes, exact modulo 2^16 and widened by that range.
 *                SSSE3 and up (the SSE3 tier has no byte multiply-add);
 *   pair ring    otherwise: the footprint is walked in strips of output
 *                columns, each footprint row of a strip widened once into
 *                16-bit byte pairs in a ring of kh rows that stays in cache;
 *   direct       when that ring would pass 4 MB: pairs formed from the
 *                source bytes at every tap, one row of sums in the block.
 * The working block is one allocation (packed kernel, row table, sums and
 * ring); when it cannot be had, the plain path runs.
 *
 * Checks in order: null pointers, sizes (including a kernel whose cell count
 * or a region whose source row byte count does not fit 32 bits: size
 * status), divisor 0, steps.  A failed allocation is not an error: the plain
 * path runs.
 */
#include "tier.h"

#include <immintrin.h>
#include <string.h>

#include "checks.h"
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

/* Sums of output bytes b0..n - 1 into acc, byte by byte from the same packed
 * coefficients as the vector bodies. */
void sum_tail(const Job &j, const Lum8u *src, int32_t b0, int32_t n, Lum32s *acc,
              const Lum32s *packed)
{
    const int32_t kw = j.kw, ch = j.channels;
    for (int32_t b = b0; b < n; ++b) {
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
    sum_tail(j, src, b, n, acc, packed);
}

void fast_path(const Job &j, const Lum32s *packed, Lum32s *acc, const Divisor &d)
{
    for (int32_t y = 0; y < j.height; ++y) {
        ownAFilterRow_8u(j, j.src + (intptr_t)y * j.srcStep, acc, packed);
        ownAConvert32s_8u(acc, j.bytes, j.dst + (intptr_t)y * j.dstStep, d);
    }
}

/* Ring of pair rows.  Each footprint row of a strip is widened once into
 * 32-bit entries P[k] = (s[k], s[k + ch]) as two 16-bit lanes (the second
 * lane 0 past the row's end), so one unaligned load at P + x + t * ch gives
 * the byte pairs of coefficient pair t for four output bytes, ready for
 * the multiply-add.  Strips of output columns keep the ring of kh rows in
 * the first-level cache. */
struct Plan {
    int32_t strip;  /* output bytes per strip */
    intptr_t slot;  /* entries per ring slot; 0: no ring, rows are read as bytes */
    intptr_t pairs; /* cells of the packed kernel */
    intptr_t acc;   /* where the row of sums starts */
    int64_t cells;  /* the whole block */
};

Plan plan_work(const Job &j)
{
    Plan p;
    const int64_t ptrs = ((int64_t)j.kh * (int64_t)(sizeof(void *) / sizeof(Lum32s)) + 3) & ~3;
    p.pairs = (intptr_t)((int64_t)j.kw * 4 * j.kh);
    const conv::RingShape r = conv::ring_shape(j, 16, 4);
    p.strip = r.strip;
    p.slot = r.slot;
    /* without a ring the row table is not needed either */
    p.acc = p.pairs + (p.slot ? (intptr_t)ptrs : 0);
    p.cells = p.acc + ((p.strip + 3) & ~3) + (int64_t)j.kh * p.slot;
    return p;
}

/* n + halo entries of one pair row from the source row s. */
void widen_row(const Lum8u *s, intptr_t len, intptr_t ch, Lum32s *d)
{
    const __m128i z = _mm_setzero_si128();
    intptr_t k = 0;
    for (; k + ch + 16 <= len; k += 16) {
        const __m128i a = _mm_loadu_si128((const __m128i *)(s + k));
        const __m128i b = _mm_loadu_si128((const __m128i *)(s + k + ch));
        const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
        _mm_storeu_si128((__m128i *)(d + k), _mm_unpacklo_epi8(lo, z));
        _mm_storeu_si128((__m128i *)(d + k + 4), _mm_unpackhi_epi8(lo, z));
        _mm_storeu_si128((__m128i *)(d + k + 8), _mm_unpacklo_epi8(hi, z));
        _mm_storeu_si128((__m128i *)(d + k + 12), _mm_unpackhi_epi8(hi, z));
    }
    for (; k < len; ++k)
        d[k] = (Lum32s)((uint32_t)s[k] | (k + ch < len ? (uint32_t)s[k + ch] << 16 : 0u));
}

/* Sixteen output bytes from x of one strip row, scaled into dst. */
inline void ring_16(const Lum32s *const *rows, intptr_t x, const Job &j, const Lum32s *packed,
                    const Divisor &d, Lum8u *dst)
{
    const intptr_t ch = j.channels;
    __m128i s[4] = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128(),
                    _mm_setzero_si128()};
    for (int32_t r = 0; r < j.kh; ++r) {
        const Lum32s *row = rows[r] + x;
        const __m128i *c = (const __m128i *)(packed + (intptr_t)r * j.kw * 4);
        for (int32_t t = 0; t < j.kw; t += 2, ++c) {
            const __m128i k = _mm_load_si128(c);
            const Lum32s *q = row + t * ch;
            for (int m = 0; m < 4; ++m)
                s[m] = _mm_add_epi32(
                    s[m], _mm_madd_epi16(_mm_loadu_si128((const __m128i *)(q + 4 * m)), k));
        }
    }
    _mm_storeu_si128((__m128i *)dst, scale_16(s, d));
}

void ring_path(const Job &j, const Plan &p, Lum32s *work, const Divisor &d)
{
    const Lum32s *packed = work;
    const Lum32s **rows = (const Lum32s **)(void *)(work + p.pairs);
    Lum32s *acc = work + p.acc;
    Lum32s *ring = acc + ((p.strip + 3) & ~3);
    const auto widen = [&](const Lum8u *s, intptr_t len, Lum32s *slot) {
        widen_row(s, len, j.channels, slot);
    };
    conv::walk_ring(j, p.strip, p.slot, ring, rows, widen,
                    [&](const Lum32s *const *ringRows, int32_t y, int32_t x0, int32_t n) {
                        const int32_t body = n & ~15;
                        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep + x0;
                        for (int32_t x = 0; x < body; x += 16)
                            ring_16(ringRows, x, j, packed, d, dst + x);
                        if (body < n) {
                            sum_tail(j, j.src + (intptr_t)y * j.srcStep + x0, body, n, acc,
                                     packed);
                            ownAConvert32s_8u(acc + body, n - body, dst + body, d);
                        }
                    });
}

/* Small kernels.  When every cell fits a signed byte, no pair of cells can
 * take a pair of bytes out of 16 bits, and the whole sum stays within one
 * 16-bit range (signed, or unsigned for a kernel without negative cells),
 * the sums can run in 16-bit lanes with a byte-by-byte multiply-add: the
 * lanes wrap modulo 2^16, and the range tells how to widen the result, so
 * the 32-bit sums are the same as the wide body's.  SSSE3 and up; the SSE3
 * tier keeps the wide body. */
enum ByteSums { kNoByteSums, kSignedSums, kUnsignedSums };

#if LUMI_HAS_SSSE3
ByteSums byte_sums(const Lum32s *kernel, int32_t kw, int32_t kh)
{
    int64_t pos = 0, neg = 0;
    for (int32_t r = 0; r < kh; ++r) {
        const Lum32s *row = kernel + (intptr_t)r * kw;
        for (int32_t t = 0; t < kw; ++t) {
            const Lum32s c = row[t];
            if (c < -128 || c > 127)
                return kNoByteSums;
            /* the pair this cell shares (either neighbour, as pairs are
             * formed from the row's end) */
            const Lum32s l = t > 0 ? row[t - 1] : 0, rr = t + 1 < kw ? row[t + 1] : 0;
            const int32_t a = c < 0 ? -c : c;
            if (255 * (a + (l < 0 ? -l : l)) > 32767 || 255 * (a + (rr < 0 ? -rr : rr)) > 32767)
                return kNoByteSums;
            (c < 0 ? neg : pos) += c;
        }
    }
    if (255 * pos <= 32767 && 255 * neg >= -32768)
        return kSignedSums;
    if (neg == 0 && 255 * pos <= 65535)
        return kUnsignedSums;
    return kNoByteSums;
}

/* Sixteen 16-bit sums from byte x of a row; KW and KH are the kernel's
 * sides when they are known at compile time (0: read them from the job). */
template <int KW, int KH>
inline void byte_sums_16(const Job &j, const Lum8u *src, const Lum32s *packed, __m128i *lo,
                         __m128i *hi)
{
    const int32_t kw = KW ? KW : j.kw, kh = KH ? KH : j.kh;
    const intptr_t ch = j.channels;
    __m128i sl = _mm_setzero_si128(), sh = sl;
    for (int32_t r = 0; r < kh; ++r) {
        const Lum8u *row = src + (intptr_t)r * j.srcStep;
        const __m128i *c = (const __m128i *)(packed + (intptr_t)r * kw * 4);
        int32_t t = 0;
        for (; t + 1 < kw; t += 2, ++c) {
            const __m128i k16 = _mm_load_si128(c);
            const __m128i k = _mm_packs_epi16(k16, k16);
            const __m128i a = _mm_loadu_si128((const __m128i *)(row + t * ch));
            const __m128i b = _mm_loadu_si128((const __m128i *)(row + (t + 1) * ch));
            sl = _mm_add_epi16(sl, _mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), k));
            sh = _mm_add_epi16(sh, _mm_maddubs_epi16(_mm_unpackhi_epi8(a, b), k));
        }
        if (t < kw) { /* odd width: the last cell pairs with 0 */
            const __m128i k16 = _mm_load_si128(c);
            const __m128i k = _mm_packs_epi16(k16, k16);
            const __m128i a = _mm_loadu_si128((const __m128i *)(row + t * ch));
            const __m128i z = _mm_setzero_si128();
            sl = _mm_add_epi16(sl, _mm_maddubs_epi16(_mm_unpacklo_epi8(a, z), k));
            sh = _mm_add_epi16(sh, _mm_maddubs_epi16(_mm_unpackhi_epi8(a, z), k));
        }
    }
    *lo = sl;
    *hi = sh;
}

/* Sixteen 16-bit sums to bytes, the same values as scale_16 on the widened
 * sums.  The shift class's steps fit 16 bits for shifts up to 15 (the
 * remainder term stays below 2^(shift + 1)), and the quotient stays a
 * positive 16-bit value for unsigned sums from a shift of 2; class none
 * limits unsigned sums to 255 before the signed pack.  Anything else is
 * widened and goes through scale_16. */
inline __m128i scale_16_narrow(__m128i lo, __m128i hi, const Divisor &d, ByteSums how)
{
    const bool sign = how == kSignedSums;
    if (d.cls == kNone) {
        if (!sign) {
            const __m128i top = _mm_set1_epi16(255);
            lo = _mm_sub_epi16(lo, _mm_subs_epu16(lo, top));
            hi = _mm_sub_epi16(hi, _mm_subs_epu16(hi, top));
        }
        return _mm_packus_epi16(lo, hi);
    }
    if (d.cls == kShift && d.shift <= 15 && (sign || d.shift >= 2)) {
        const __m128i cnt = _mm_cvtsi32_si128(d.shift);
        const __m128i mask = _mm_set1_epi16((short)(2u * d.half - 1u));
        const __m128i bias = _mm_set1_epi16((short)(d.half - 1u)), one = _mm_set1_epi16(1);
        __m128i v[2] = {lo, hi};
        for (int k = 0; k < 2; ++k) {
            const __m128i q = sign ? _mm_sra_epi16(v[k], cnt) : _mm_srl_epi16(v[k], cnt);
            __m128i r = _mm_add_epi16(_mm_and_si128(v[k], mask), bias);
            r = _mm_add_epi16(r, _mm_and_si128(q, one));
            v[k] = _mm_add_epi16(q, _mm_srl_epi16(r, cnt));
        }
        return _mm_packus_epi16(v[0], v[1]);
    }
    __m128i s[4];
    if (sign) {
        s[0] = _mm_srai_epi32(_mm_unpacklo_epi16(lo, lo), 16);
        s[1] = _mm_srai_epi32(_mm_unpackhi_epi16(lo, lo), 16);
        s[2] = _mm_srai_epi32(_mm_unpacklo_epi16(hi, hi), 16);
        s[3] = _mm_srai_epi32(_mm_unpackhi_epi16(hi, hi), 16);
    } else {
        const __m128i z = _mm_setzero_si128();
        s[0] = _mm_unpacklo_epi16(lo, z);
        s[1] = _mm_unpackhi_epi16(lo, z);
        s[2] = _mm_unpacklo_epi16(hi, z);
        s[3] = _mm_unpackhi_epi16(hi, z);
    }
    return scale_16(s, d);
}

template <int KW, int KH>
void byte_path(const Job &j, const Lum32s *packed, Lum32s *acc, const Divisor &d, ByteSums how)
{
    const int32_t body = j.bytes & ~15;
    const intptr_t reach = j.bytes + (intptr_t)(j.kw - 1) * j.channels;
    for (int32_t y = 0; y < j.height; ++y) {
        const Lum8u *src = j.src + (intptr_t)y * j.srcStep;
        Lum8u *dst = j.dst + (intptr_t)y * j.dstStep;
        /* the one footprint row the next output row adds */
        if (y + 1 < j.height)
            conv::prefetch_bytes(src + (intptr_t)j.kh * j.srcStep, reach);
        for (int32_t x = 0; x < body; x += 16) {
            __m128i lo, hi;
            byte_sums_16<KW, KH>(j, src + x, packed, &lo, &hi);
            _mm_storeu_si128((__m128i *)(dst + x), scale_16_narrow(lo, hi, d, how));
        }
        if (body < j.bytes) {
            sum_tail(j, src, body, j.bytes, acc, packed);
            ownAConvert32s_8u(acc + body, j.bytes - body, dst + body, d);
        }
    }
}

void byte_path(const Job &j, const Lum32s *packed, Lum32s *acc, const Divisor &d, ByteSums how)
{
    switch (j.kw) {
    case 3:
        if (j.kh == 3)
            byte_path<3, 3>(j, packed, acc, d, how);
        else
            byte_path<3, 0>(j, packed, acc, d, how);
        break;
    case 5: byte_path<5, 0>(j, packed, acc, d, how); break;
    case 7: byte_path<7, 0>(j, packed, acc, d, how); break;
    default: byte_path<0, 0>(j, packed, acc, d, how); break;
    }
}
#endif

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
    if (any_null(pSrc, pDst, pKernel))
        return lumStsNullPtrErr;
    if (!size_positive(roi) || !mask_positive(kernelSize) ||
        !kernel_fits(roi, kernelSize, channels))
        return lumStsSizeErr;
    if (divisor == 0)
        return lumStsDivisorErr;
    if (!steps_hold_footprint(srcStep, dstStep, roi, kernelSize, channels))
        return lumStsStepErr;

    const Job j = conv::make_job(pSrc, srcStep, pDst, dstStep, roi, kernelSize, anchor, channels);
    const Divisor d = classify(divisor);
    const unsigned csr = conv::enter_nearest();
    bool done = false;
    if (fast_path_fits(j)) {
        const Plan p = plan_work(j);
        const bool fits = work_cells(j) > 0 && p.cells <= INT32_MAX;
        Lum32s *work = fits ? LUMI_T(lumsMalloc_32s)((int32_t)p.cells) : nullptr;
        if (work && pack_kernel(pKernel, j.kw, j.kh, work)) {
#if LUMI_HAS_SSSE3
            const ByteSums bs = byte_sums(pKernel, j.kw, j.kh);
            if (bs != kNoByteSums)
                byte_path(j, work, work + p.acc, d, bs);
            else
#endif
            if (p.slot)
                ring_path(j, p, work, d);
            else
                fast_path(j, work, work + p.acc, d);
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
