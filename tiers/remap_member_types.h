/*
 * The remap members without a dispatcher: every element type and layout but
 * the two public 8-bit forms, in every tier.  Same shape as the internal
 * member list (X(c, name, type)); tier_member_types.h folds it in.
 *
 * All take the public remap arguments.  Planar forms take arrays of plane
 * pointers; the 64f forms take double-precision maps, all others float maps.
 */
#ifndef LUMI_REMAP_MEMBER_TYPES_H
#define LUMI_REMAP_MEMBER_TYPES_H

#include "lumi.h"

template <class T, class M>
using LumiRemapFn = LumStatus(const T *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,
                              const M *pxMap, int32_t xMapStep, const M *pyMap, int32_t yMapStep,
                              T *pDst, int32_t dstStep, LumiSize dstRoiSize,
                              int32_t interpolation);
template <class T, class M>
using LumiRemapPlanarFn = LumStatus(const T *const pSrc[], LumiSize srcSize, int32_t srcStep,
                                    LumiRect srcRoi, const M *pxMap, int32_t xMapStep,
                                    const M *pyMap, int32_t yMapStep, T *const pDst[],
                                    int32_t dstStep, LumiSize dstRoiSize, int32_t interpolation);

typedef LumiRemapFn<Lum8u, Lum32f> LumiRemapFn_8u;
typedef LumiRemapFn<Lum16u, Lum32f> LumiRemapFn_16u;
typedef LumiRemapFn<Lum16s, Lum32f> LumiRemapFn_16s;
typedef LumiRemapFn<Lum32f, Lum32f> LumiRemapFn_32f;
typedef LumiRemapFn<Lum64f, Lum64f> LumiRemapFn_64f;
typedef LumiRemapPlanarFn<Lum8u, Lum32f> LumiRemapPlanarFn_8u;
typedef LumiRemapPlanarFn<Lum16u, Lum32f> LumiRemapPlanarFn_16u;
typedef LumiRemapPlanarFn<Lum16s, Lum32f> LumiRemapPlanarFn_16s;
typedef LumiRemapPlanarFn<Lum32f, Lum32f> LumiRemapPlanarFn_32f;
typedef LumiRemapPlanarFn<Lum64f, Lum64f> LumiRemapPlanarFn_64f;

/* One element type's layouts past C1 and C3 (those of 8u are public). */
#define LUMI_REMAP_MEMBERS_OF_(X, c, t)                                                           \
    X(c, lumiRemap_##t##_C4R, LumiRemapFn_##t)                                                     \
    X(c, lumiRemap_##t##_AC4R, LumiRemapFn_##t)                                                    \
    X(c, lumiRemap_##t##_P3R, LumiRemapPlanarFn_##t)                                               \
    X(c, lumiRemap_##t##_P4R, LumiRemapPlanarFn_##t)
#define LUMI_REMAP_MEMBERS_C13_(X, c, t)                                                          \
    X(c, lumiRemap_##t##_C1R, LumiRemapFn_##t)                                                     \
    X(c, lumiRemap_##t##_C3R, LumiRemapFn_##t)                                                     \
    LUMI_REMAP_MEMBERS_OF_(X, c, t)

#define LUMI_REMAP_MEMBERS(X, c)                                                                   \
    LUMI_REMAP_MEMBERS_OF_(X, c, 8u)                                                               \
    LUMI_REMAP_MEMBERS_C13_(X, c, 16u)                                                             \
    LUMI_REMAP_MEMBERS_C13_(X, c, 16s)                                                             \
    LUMI_REMAP_MEMBERS_C13_(X, c, 32f)                                                             \
    LUMI_REMAP_MEMBERS_C13_(X, c, 64f)

#endif
