/*
 * The pixel loops of the bilateral filter (pifbilateral_kernels.cpp), as the
 * public call in pifbilateral.cpp drives them once the block is checked and
 * the path chosen.  The overview of pifbilateral.cpp gives the arithmetic.
 */
#ifndef LUMI_PIFBILATERAL_H
#define LUMI_PIFBILATERAL_H

#include "tier.h"

#include <stdint.h>

namespace LUMI_NS {
namespace bilateral {

/* The region: src is the pixel under the first output pixel. */
struct Rows {
    const Lum8u *src;
    intptr_t srcStep;
    Lum8u *dst;
    intptr_t dstStep;
    int32_t width, height;
};

/* Fixed windows: radius q both ways at step s, q / s rings; `tables` holds
 * one 256-entry table per ring, in increasing ring order.  Fast is kind 101. */
void fixed_kernel(const Rows &rows, int32_t q, int32_t s, bool fast, const Lum16u *tables);

/* Any window: samples at every s-th pixel out to qx, qy, weighed by
 * samples[n] (row order) and value0[p - c]. */
void general_kernel(const Rows &rows, int32_t qx, int32_t qy, int32_t s, const Lum32f *value0,
                    const Lum32f *samples);

/* The same sums per pixel in scalar float, for regions under 16 pixels. */
void narrow_kernel(const Rows &rows, int32_t qx, int32_t qy, int32_t s, const Lum32f *value0,
                   const Lum32f *samples);

} // namespace bilateral
} // namespace LUMI_NS

#endif
