/*
 * Rotate's public forms and the shift that keeps a point in place.
 *
 * lumiGetRotateShift gives the shift under which the rotation about the
 * origin leaves (xc, yc) where it was: exact sums for a reduced angle of 0,
 * 90, 180 and 270 degrees, and otherwise xc - xc cos r - yc sin r and
 * yc - yc cos r + xc sin r with r = a / 180 pi, in that order.  The centre
 * forms take that shift and continue as the shift forms, so a half-pixel
 * centre whose shifts come out whole reaches the exact quarter turns.
 */
#include <math.h>

#include "checks.h"
#include "piwarpa.h"
#include "pirotate.h"

LUMI_MEMBER LumStatus LUMI_T(lumiGetRotateShift)(double xCenter, double yCenter, double angle,
                                                 double *pxShift, double *pyShift)
{
    if (LUMI_NS::any_null(pxShift, pyShift))
        return lumStsNullPtrErr;
    const double a = LUMI_NS::rotation_angle(angle);
    if (a == 0.0) {
        *pxShift = 0.0, *pyShift = 0.0;
    } else if (a == 90.0) {
        *pxShift = xCenter - yCenter, *pyShift = xCenter + yCenter;
    } else if (a == 180.0) {
        *pxShift = 2.0 * xCenter, *pyShift = 2.0 * yCenter;
    } else if (a == 270.0) {
        *pxShift = xCenter + yCenter, *pyShift = yCenter - xCenter;
    } else {
        const double r = a / 180.0 * 3.141592653589793;
        *pxShift = xCenter - xCenter * cos(r) - yCenter * sin(r);
        *pyShift = yCenter - yCenter * cos(r) + xCenter * sin(r);
    }
    return lumStsNoErr;
}

#define LUMI_ROTATE_MEMBERS_(lay, code)                                                            \
    LUMI_MEMBER LumStatus LUMI_T(lumiRotate_8u_##lay##R)(                                          \
        const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,        \
        int32_t dstStep, LumiRect dstRoi, double angle, double xShift, double yShift,              \
        int32_t interpolation)                                                                     \
    {                                                                                              \
        return LUMI_NS::rotate(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi,              \
                               LUMI_NS::kWarp8u | LUMI_NS::code, angle, xShift, yShift,            \
                               interpolation);                                                     \
    }                                                                                              \
    LUMI_MEMBER LumStatus LUMI_T(lumiRotateCenter_8u_##lay##R)(                                    \
        const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,        \
        int32_t dstStep, LumiRect dstRoi, double angle, double xCenter, double yCenter,            \
        int32_t interpolation)                                                                     \
    {                                                                                              \
        double xShift = 0.0, yShift = 0.0;                                                         \
        LUMI_T(lumiGetRotateShift)(xCenter, yCenter, angle, &xShift, &yShift);                     \
        return LUMI_NS::rotate(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi,              \
                               LUMI_NS::kWarp8u | LUMI_NS::code, angle, xShift, yShift,            \
                               interpolation);                                                     \
    }

LUMI_ROTATE_MEMBERS_(C1, kWarpC1)
LUMI_ROTATE_MEMBERS_(C3, kWarpC3)
LUMI_ROTATE_MEMBERS_(C4, kWarpC4)
