/*
 * Median filter internals shared by the family's sources of one tier: the
 * network row kernels and the line-window entries the public forms hand the
 * fixed shapes to.
 */
#ifndef LUMI_PIMEDIAN_H
#define LUMI_PIMEDIAN_H

#include "tier.h"

/* The line-window entries are declared with the other internal members
 * (tier_member_types.h). */

namespace LUMI_NS {

/* A line of `taps` cells (3 or 5) whose neighbours lie `stride` bytes apart,
 * over rows of `rowBytes` bytes.  pSrc is the centre of the first window. */
void median_line_rows(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                      int32_t rowBytes, int32_t height, int taps, intptr_t stride);

/* The square of 7 in the selectors' code (width in the tens, height in the
 * units); no public selector names it. */
const LumiMaskSize kMedianSquare7 = 77;

/* Squares of 3, 5 or 7 (mask 33, 55 or 77); pSrc is the centre of the first
 * window. */
void ownlumiFilterMedianSqr_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                   int32_t dstStep, LumiSize roi, LumiMaskSize mask);
void ownlumiFilterMedianSqr_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                   int32_t dstStep, LumiSize roi, LumiMaskSize mask);

} // namespace LUMI_NS

#endif
