/*
 * The affine warp engine's entry, for Rotate (pirotate.cpp).
 */
#ifndef LUMI_PIWARPA_H
#define LUMI_PIWARPA_H

#include <stdint.h>

#include "tier.h"

namespace LUMI_NS {

/* Code word of a warp: the layout in the low three bits, the element type in
 * the rest. */
enum WarpLayoutCode { kWarpC1 = 0, kWarpC3 = 1, kWarpAC4 = 2, kWarpP3 = 3, kWarpC4 = 4, kWarpP4 = 5 };
enum WarpTypeCode { kWarp8u = 0, kWarp32f = 8, kWarp16u = 16, kWarp64f = 24, kWarp16s = 32 };

/* The plane pointers of a layout: 3 or 4 for the planar ones, else 0. */
inline int32_t planes_of(int32_t layout) { return layout == kWarpP3 ? 3 : layout == kWarpP4 ? 4 : 0; }

/* Warps the region srcRoi of the source (its first pixel, or its plane array)
 * forward through c into the rectangle dstRoi of the destination (also the
 * first pixel of the whole image), writing only the pixels whose centres lie
 * inside the transformed region.  Takes the element types 8u, 32f and 16u. */
LumStatus warp_affine(const void *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,
                      void *pDst, int32_t dstStep, LumiRect dstRoi, int32_t code,
                      const double c[6], int32_t interpolation);

} // namespace LUMI_NS

#endif
