/*
 * Conversions between floats and integers: lumsConvert_16u32f (exact
 * widening) and lumsConvert_32f8u_Sfs / lumsConvert_32f16u_Sfs (float to
 * unsigned integer with a power-of-two scale, a rounding selector and
 * saturation), members of every tier.
 *
 * Float to integer, per element, in single precision:
 *   1. the multiplier: none for scaleFactor 0, else 0.5 (positive factors)
 *      or 2.0 (negative ones) multiplied together |scaleFactor| times in
 *      float, applied as one product;
 *   2. bytes: min(x, 255), so a NaN becomes 255; 16-bit: max(x, 0), so a
 *      NaN becomes 0;
 *   3. the conversion to a 32-bit integer by rndMode:
 *        0      truncation;
 *        1      the processor's round-to-nearest (ties to even); if the
 *               thread runs another rounding mode, the rounding bits and
 *               the denormals-are-zero bit are cleared for the call and
 *               the control word put back afterwards;
 *        other  0.5 added, then converted, both in truncation mode, which
 *               the call sets and, if it was another mode, gives back;
 *   4. bytes: packed with saturation, negatives to 0; 16-bit: biased by
 *      -32768, packed with signed saturation and the sign bit flipped, so the
 *      result is clamped to 0..65535 (values beyond the integer range convert
 *      to 0x80000000 and end at 65535).
 * The rounding mode covers the whole call, the product included.
 *
 * Sixteen elements a pass; the last pass runs the same vector steps on a
 * padded copy of the remaining elements, so the tail cannot differ.  Every
 * tier runs the same 128-bit sequence.
 */
#include <immintrin.h>
#include <string.h>

#include "tier.h"
#include "checks.h"

namespace LUMI_NS {
namespace {

enum : unsigned { kRoundBits = 0x6000, kRoundTruncate = 0x6000, kDenormalsAreZero = 0x40 };

/* Sets the rounding field of the thread's control word; returns the old one. */
inline unsigned lum_set_rc_ssx(unsigned rc)
{
    const unsigned csr = _mm_getcsr();
    _mm_setcsr((csr & ~(unsigned)kRoundBits) | rc);
    return csr & kRoundBits;
}

/* 0.5 or 2.0 multiplied |scaleFactor| times; past 160 steps the product
   has long settled at 0 or infinity, so the loop stops there. */
inline Lum32f scale_multiplier(int32_t scaleFactor)
{
    const int32_t steps = scaleFactor > 160 ? 160 : scaleFactor < -160 ? -160 : scaleFactor;
    Lum32f m = 1.0f;
    for (int32_t i = 0; i < steps; ++i)
        m *= 0.5f;
    for (int32_t i = 0; i > steps; --i)
        m *= 2.0f;
    return m;
}

enum Rounding { kTruncate, kNearest, kHalfUp };

struct FloatToInt {
    __m128 mul;
    bool scaled;
    Rounding rounding;

    /* Steps 1 and 3 around the clamp of step 2. */
    template <typename Clamp>
    __m128i operator()(const Lum32f *s, Clamp clamp) const
    {
        __m128 x = _mm_loadu_ps(s);
        if (scaled)
            x = _mm_mul_ps(x, mul);
        x = clamp(x);
        if (rounding == kTruncate)
            return _mm_cvttps_epi32(x);
        if (rounding == kHalfUp)
            x = _mm_add_ps(x, _mm_set1_ps(0.5f));
        return _mm_cvtps_epi32(x);
    }
};

/* 16 floats to 16 bytes. */
inline void to8u_16(const Lum32f *s, Lum8u *d, const FloatToInt &cvt)
{
    auto clamp = [](__m128 x) { return _mm_min_ps(x, _mm_set1_ps(255.0f)); };
    const __m128i a = _mm_packs_epi32(cvt(s, clamp), cvt(s + 4, clamp));
    const __m128i b = _mm_packs_epi32(cvt(s + 8, clamp), cvt(s + 12, clamp));
    _mm_storeu_si128((__m128i *)d, _mm_packus_epi16(a, b));
}

/* 16 floats to 16 unsigned 16-bit values. */
inline void to16u_16(const Lum32f *s, Lum16u *d, const FloatToInt &cvt)
{
    auto clamp = [](__m128 x) { return _mm_max_ps(x, _mm_setzero_ps()); };
    const __m128i bias = _mm_set1_epi32(32768), flip = _mm_set1_epi16((short)0x8000);
    for (int k = 0; k < 16; k += 8) {
        const __m128i lo = _mm_sub_epi32(cvt(s + k, clamp), bias);
        const __m128i hi = _mm_sub_epi32(cvt(s + k + 4, clamp), bias);
        _mm_storeu_si128((__m128i *)(d + k), _mm_xor_si128(_mm_packs_epi32(lo, hi), flip));
    }
}

/* Runs pass over whole groups of 16, then over a zero-padded copy of the
   rest. */
template <typename Out, typename Pass>
void convert_passes(const Lum32f *s, Out *d, int32_t len, Pass pass)
{
    int32_t i = 0;
    for (; i + 16 <= len; i += 16)
        pass(s + i, d + i);
    if (i < len) {
        Lum32f in[16] = {0};
        Out out[16];
        memcpy(in, s + i, sizeof(Lum32f) * (size_t)(len - i));
        pass(in, out);
        memcpy(d + i, out, sizeof(Out) * (size_t)(len - i));
    }
}

/* Sets the rounding mode the selector needs, runs the passes and puts the
   caller's mode back. */
template <typename Out, typename Pass>
void convert_rounded(const Lum32f *s, Out *d, int32_t len, int32_t rndMode, int32_t scaleFactor,
                     Pass pass)
{
    FloatToInt cvt;
    cvt.mul = _mm_set1_ps(scale_multiplier(scaleFactor));
    cvt.scaled = scaleFactor != 0;
    cvt.rounding = rndMode == 0 ? kTruncate : rndMode == 1 ? kNearest : kHalfUp;
    auto run = [&] { convert_passes(s, d, len, [&](const Lum32f *ps, Out *pd) { pass(ps, pd, cvt); }); };
    if (cvt.rounding == kNearest) {
        const unsigned csr = _mm_getcsr();
        if (csr & kRoundBits) {
            _mm_setcsr(csr & ~(unsigned)(kRoundBits | kDenormalsAreZero));
            run();
            _mm_setcsr(csr);
            return;
        }
    } else if (cvt.rounding == kHalfUp) {
        const unsigned old = lum_set_rc_ssx(kRoundTruncate);
        run();
        if (old != kRoundTruncate)
            lum_set_rc_ssx(old);
        return;
    }
    run();
}

template <typename Out, typename Pass>
LumStatus convert_checked(const Lum32f *s, Out *d, int32_t len, int32_t rndMode, int32_t scaleFactor,
                          Pass pass)
{
    if (any_null(s, d))
        return lumStsNullPtrErr;
    if (!len_positive(len))
        return lumStsSizeErr;
    convert_rounded(s, d, len, rndMode, scaleFactor, pass);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumsConvert_16u32f)(const Lum16u *pSrc, Lum32f *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    for (; i + 8 <= len; i += 8) {
        const __m128i v = _mm_loadu_si128((const __m128i *)(pSrc + i));
        _mm_storeu_ps(pDst + i, _mm_cvtepi32_ps(_mm_unpacklo_epi16(v, zero)));
        _mm_storeu_ps(pDst + i + 4, _mm_cvtepi32_ps(_mm_unpackhi_epi16(v, zero)));
    }
    for (; i < len; ++i)
        pDst[i] = (Lum32f)pSrc[i];
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumsConvert_32f8u_Sfs)(const Lum32f *pSrc, Lum8u *pDst, int32_t len,
                                                    int32_t rndMode, int32_t scaleFactor)
{
    return LUMI_NS::convert_checked(pSrc, pDst, len, rndMode, scaleFactor, LUMI_NS::to8u_16);
}

LUMI_MEMBER LumStatus LUMI_T(lumsConvert_32f16u_Sfs)(const Lum32f *pSrc, Lum16u *pDst, int32_t len,
                                                     int32_t rndMode, int32_t scaleFactor)
{
    return LUMI_NS::convert_checked(pSrc, pDst, len, rndMode, scaleFactor, LUMI_NS::to16u_16);
}
