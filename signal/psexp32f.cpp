/*
 * lumsExp_32f_I: e to the power of each element, in place, in every tier.
 *
 * Four elements a pass; the last pass repeats its last valid element into
 * the unused lanes, so every element goes through the same vector formula.
 * In single precision, each step rounded in the order written:
 *
 *   t  = x * invLn2 + C0          C0 = 1.5 * 2^23, so the low mantissa bits
 *                                 of t hold n, x / ln 2 rounded to nearest
 *   p  = bits(1.0) + (bits(t) << 23)          the power 2^n, built directly
 *   m  = t - C0
 *   y  = (x + m * NegLn2) + m * Eps           x - n ln 2, in two parts
 *   w  = y * y + 10,  a = y * (w + 50),  b = 12 * w
 *   r0 = approximate reciprocal of (b - a);  r = r0 * (2 - (b - a) * r0)
 *   e^x = ((b + a) * r) * p                   (b + a) / (b - a) is a degree
 *                                             3 over 3 approximation of e^y
 *
 * Lanes with x <= ln_min give 0.  Lanes whose raw bits, as a signed word,
 * exceed those of ln_max (every positive value above it, +infinity and
 * positive NaNs) give +infinity, or 0x7fc00000 for a quiet NaN.
 *
 * On exit, if the call or the caller left any of the five exception flags
 * (invalid, divide-by-zero, overflow, underflow, inexact) raised in the
 * thread's control and status word, those five are cleared.
 *
 * The approximate reciprocal is the processor's own instruction; every tier
 * runs the same 128-bit sequence, so they agree on one processor.
 */
#include <immintrin.h>
#include <string.h>

#include "tier.h"
#include "checks.h"

namespace LUMI_NS {
namespace {

const float invLn2 = 1.442695f;
const float C0 = 12582912.0f;
const float NegLn2 = -0.693359375f;
const float Eps = 0.00021219444f;
const float Ten = 10.0f;
const float Pen = 50.0f;
const float Twe = 12.0f;
const float Two = 2.0f;
const float ln_max = 87.1f;
const float ln_min = -87.3365f;

enum : unsigned { kFiveFlags = 0x3d }; /* MXCSR IE, ZE, OE, UE, PE */

inline __m128 exp4(__m128 x)
{
    const __m128 t = _mm_add_ps(_mm_mul_ps(x, _mm_set1_ps(invLn2)), _mm_set1_ps(C0));
    const __m128i pow2 = _mm_add_epi32(_mm_slli_epi32(_mm_castps_si128(t), 23),
                                       _mm_set1_epi32(0x3f800000));
    const __m128 m = _mm_sub_ps(t, _mm_set1_ps(C0));
    const __m128 y = _mm_add_ps(_mm_add_ps(x, _mm_mul_ps(m, _mm_set1_ps(NegLn2))),
                                _mm_mul_ps(m, _mm_set1_ps(Eps)));
    const __m128 w = _mm_add_ps(_mm_mul_ps(y, y), _mm_set1_ps(Ten));
    const __m128 a = _mm_mul_ps(y, _mm_add_ps(w, _mm_set1_ps(Pen)));
    const __m128 b = _mm_mul_ps(_mm_set1_ps(Twe), w);
    const __m128 den = _mm_sub_ps(b, a);
    const __m128 r0 = _mm_rcp_ps(den);
    const __m128 r = _mm_mul_ps(r0, _mm_sub_ps(_mm_set1_ps(Two), _mm_mul_ps(den, r0)));
    __m128 e = _mm_mul_ps(_mm_mul_ps(_mm_add_ps(b, a), r), _mm_castsi128_ps(pow2));

    /* Lanes at or below ln_min: 0. */
    e = _mm_andnot_ps(_mm_cmple_ps(x, _mm_set1_ps(ln_min)), e);
    /* Lanes above ln_max by their raw bits: +inf, or the quiet NaN. */
    const __m128i xi = _mm_castps_si128(x);
    const __m128i high = _mm_cmpgt_epi32(xi, _mm_castps_si128(_mm_set1_ps(ln_max)));
    const __m128i quiet = _mm_cmpgt_epi32(xi, _mm_set1_epi32(0x7fbfffff));
    const __m128i special = _mm_or_si128(_mm_andnot_si128(quiet, _mm_set1_epi32(0x7f800000)),
                                         _mm_and_si128(quiet, _mm_set1_epi32(0x7fc00000)));
    return _mm_castsi128_ps(_mm_or_si128(_mm_andnot_si128(high, _mm_castps_si128(e)),
                                         _mm_and_si128(high, special)));
}

void ownsExp_32f_M7(Lum32f *p, int32_t len)
{
    int32_t i = 0;
    for (; i + 4 <= len; i += 4)
        _mm_storeu_ps(p + i, exp4(_mm_loadu_ps(p + i)));
    if (i < len) {
        float lanes[4];
        for (int k = 0; k < 4; ++k)
            lanes[k] = p[i + k < len ? i + k : len - 1];
        _mm_storeu_ps(lanes, exp4(_mm_loadu_ps(lanes)));
        memcpy(p + i, lanes, sizeof(float) * (size_t)(len - i));
    }
    const unsigned csr = _mm_getcsr();
    if (csr & kFiveFlags)
        _mm_setcsr(csr & ~(unsigned)kFiveFlags);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumsExp_32f_I)(Lum32f *pSrcDst, int32_t len)
{
    if (LUMI_NS::any_null(pSrcDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    LUMI_NS::ownsExp_32f_M7(pSrcDst, len);
    return lumStsNoErr;
}
