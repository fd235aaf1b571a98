/*
 * lumsSqr_16u_ISfs: each element x becomes x*x scaled by 2^-scaleFactor,
 * rounded to nearest with ties to even and saturated to 65535, in place.
 *
 * The square of a 16-bit value fits 32 bits, so the whole result is exact
 * integer arithmetic, the same in every tier:
 *   scaleFactor 0         min(x*x, 65535)
 *   scaleFactor 1 to 32   x*x shifted right, the dropped bits rounding the
 *                         kept ones half to even (at 32 only the largest
 *                         squares round up to 1)
 *   above 32              0 for every element
 *   negative              x*x shifted left and saturated; from a shift of 16
 *                         on, any non-zero element saturates and 0 stays 0
 * The factor is turned into one shift and one rounding rule before the loop;
 * 0 and the negative factors share the saturating form.
 */

#include "tier.h"
#include "checks.h"

namespace LUMI_NS {
namespace {

inline Lum16u saturate(uint64_t v) { return (Lum16u)(v > 65535 ? 65535 : v); }

/* x*x * 2^-shift, half to even; shift 1..32. */
inline Lum16u square_down(Lum16u x, int shift)
{
    const uint64_t v = (uint64_t)x * x;
    const uint64_t q = v >> shift;
    const uint64_t rest = v & (((uint64_t)1 << shift) - 1);
    const uint64_t half = (uint64_t)1 << (shift - 1);
    return saturate(q + (rest > half || (rest == half && (q & 1))));
}

/* x*x * 2^shift, saturated; shift 0..15 (above that only 0 survives). */
inline Lum16u square_up(Lum16u x, int shift)
{
    return saturate(((uint64_t)x * x) << shift);
}

void ownlumsSqr_16u(Lum16u *p, int32_t len, int32_t scaleFactor)
{
    if (scaleFactor > 32) {
        for (int32_t i = 0; i < len; ++i)
            p[i] = 0;
    } else if (scaleFactor > 0) {
        for (int32_t i = 0; i < len; ++i)
            p[i] = square_down(p[i], scaleFactor);
    } else if (scaleFactor > -16) {
        for (int32_t i = 0; i < len; ++i)
            p[i] = square_up(p[i], -scaleFactor);
    } else {
        for (int32_t i = 0; i < len; ++i)
            p[i] = p[i] ? 65535 : 0;
    }
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumsSqr_16u_ISfs)(Lum16u *pSrcDst, int32_t len, int32_t scaleFactor)
{
    if (LUMI_NS::any_null(pSrcDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    LUMI_NS::ownlumsSqr_16u(pSrcDst, len, scaleFactor);
    return lumStsNoErr;
}
