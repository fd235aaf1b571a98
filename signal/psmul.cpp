/*
 * Multiplication by a constant: lumsMulC_32f and the in-place
 * lumsMulC_32f_I, members of every tier.
 *
 * Each element is one single-precision product pSrc[i] * val, rounded once,
 * so every tier and every path agree.  Two values short-cut the product: a
 * val of 1.0 copies (or, in place, returns at once) and a val of 0.0 (either
 * sign) writes +0.0 everywhere, so 0 times an infinity or a NaN gives 0 here
 * by design.  The checks come first, so the shortcuts see valid arguments.
 *
 * Below 11 elements the loop is plain; otherwise eight elements a pass
 * (one 256-bit product in e9, two 128-bit ones elsewhere), aligned loads and
 * stores where the arrays allow, and the last few elements one by one.
 */
#include <immintrin.h>

#include "tier.h"
#include "checks.h"

namespace LUMI_NS {
namespace {

inline bool aligned_for_vector(const void *p)
{
    return ((uintptr_t)p & (LUMI_HAS_AVX ? 31 : 15)) == 0;
}

template <bool AlignedLoad, bool AlignedStore>
inline void mul8(const Lum32f *s, Lum32f *d, Lum32f val)
{
#if LUMI_HAS_AVX
    const __m256 v = _mm256_set1_ps(val);
    const __m256 x = AlignedLoad ? _mm256_load_ps(s) : _mm256_loadu_ps(s);
    if (AlignedStore)
        _mm256_store_ps(d, _mm256_mul_ps(x, v));
    else
        _mm256_storeu_ps(d, _mm256_mul_ps(x, v));
#else
    const __m128 v = _mm_set1_ps(val);
    const __m128 x0 = AlignedLoad ? _mm_load_ps(s) : _mm_loadu_ps(s);
    const __m128 x1 = AlignedLoad ? _mm_load_ps(s + 4) : _mm_loadu_ps(s + 4);
    if (AlignedStore) {
        _mm_store_ps(d, _mm_mul_ps(x0, v));
        _mm_store_ps(d + 4, _mm_mul_ps(x1, v));
    } else {
        _mm_storeu_ps(d, _mm_mul_ps(x0, v));
        _mm_storeu_ps(d + 4, _mm_mul_ps(x1, v));
    }
#endif
}

template <bool AlignedLoad, bool AlignedStore>
int32_t mul_passes(const Lum32f *s, Lum32f *d, Lum32f val, int32_t len)
{
    int32_t i = 0;
    for (; i + 8 <= len; i += 8)
        mul8<AlignedLoad, AlignedStore>(s + i, d + i, val);
    return i;
}

/* Also serves in place (s == d): each element is read before it is written. */
void ownsMulC_32f(const Lum32f *s, Lum32f *d, Lum32f val, int32_t len)
{
    int32_t i = 0;
    if (len >= 11) {
        const bool as = aligned_for_vector(s), ad = aligned_for_vector(d);
        i = as && ad ? mul_passes<true, true>(s, d, val, len)
            : as     ? mul_passes<true, false>(s, d, val, len)
            : ad     ? mul_passes<false, true>(s, d, val, len)
                     : mul_passes<false, false>(s, d, val, len);
    }
    for (; i < len; ++i)
        d[i] = s[i] * val;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumsMulC_32f)(const Lum32f *pSrc, Lum32f val, Lum32f *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    if (val == 1.0f)
        return LUMI_T(lumsCopy_32f)(pSrc, pDst, len);
    if (val == 0.0f)
        return LUMI_T(lumsZero_32f)(pDst, len);
    LUMI_NS::ownsMulC_32f(pSrc, pDst, val, len);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumsMulC_32f_I)(Lum32f val, Lum32f *pSrcDst, int32_t len)
{
    if (LUMI_NS::any_null(pSrcDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    if (val == 1.0f)
        return lumStsNoErr;
    if (val == 0.0f)
        return LUMI_T(lumsZero_32f)(pSrcDst, len);
    LUMI_NS::ownsMulC_32f(pSrcDst, pSrcDst, val, len);
    return lumStsNoErr;
}
