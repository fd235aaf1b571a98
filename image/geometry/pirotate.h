/*
 * Rotation shared by the public bodies (piwarp.cpp): the angle's reduction
 * and the common body with its quarter-turn path.
 */
#ifndef LUMI_PIROTATE_H
#define LUMI_PIROTATE_H

#include <stdint.h>

#include "tier.h"

namespace LUMI_NS {

/* The angle in degrees brought into [0, 360): angle - trunc(angle / 360) 360,
 * plus 360 when negative, the quotient truncated through a 32-bit integer
 * (a quotient beyond its range truncates to the integer's least value). */
double rotation_angle(double angle);

/* Turns srcRoi by angle about the origin and shifts it by (xShift, yShift)
 * into dstRoi.  code is the warp engine's code word (piwarpa.h). */
LumStatus rotate(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, void *pDst,
                 int32_t dstStep, LumiRect dstRoi, int32_t code, double angle, double xShift,
                 double yShift, int32_t interpolation);

} // namespace LUMI_NS

#endif
