/*
 * The members that tiers offer one another without a public name: their
 * names and function types, in one list.  tier_members.h declares each tier's
 * own members from it; the tests declare every tier's members from it.  A
 * definition whose parameters drift from its type here does not compile (it
 * is a conflicting declaration of a C function).
 *
 * Dispatched primitives need no entry here: their members are declared from
 * the public prototypes in lumi.h, through the entry list.
 */
#ifndef LUMI_TIER_MEMBER_TYPES_H
#define LUMI_TIER_MEMBER_TYPES_H

#include "lumi.h"
#include "remap_member_types.h"

typedef LumStatus LumiMedianLineFn(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                   int32_t dstStep, LumiSize dstRoiSize, LumiMaskSize mask);

/* X(c, name, function type), c passed through from the caller (a tier
 * prefix, say). */
#define LUMI_INTERNAL_MEMBERS(X, c)                                                                  \
    /* Allocation: every tier's members agree and forward to lumMalloc/lumFree. */               \
    X(c, lumsMalloc_16u, Lum16u *(int32_t len))                                                     \
    X(c, lumsMalloc_32s, Lum32s *(int32_t len))                                                     \
    X(c, lumsMalloc_32f, Lum32f *(int32_t len))                                                     \
    X(c, lumiMalloc_8u_C1, Lum8u *(int32_t width, int32_t height, int32_t *pStep))                  \
    /* Plain byte-image copies (image/copy), for the filter families. */                         \
    X(c, lumiCopy_8u_C1R,                                                                           \
      LumStatus(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi)) \
    X(c, lumiCopy_8u_C3R,                                                                           \
      LumStatus(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi)) \
    /* Signal kernels (signal/), called by the image families of the same tier. */               \
    X(c, lumsZero_8u, LumStatus(Lum8u *pDst, int32_t len))                                          \
    X(c, lumsZero_32f, LumStatus(Lum32f *pDst, int32_t len))                                        \
    X(c, lumsSet_32f, LumStatus(Lum32f val, Lum32f *pDst, int32_t len))                             \
    X(c, lumsCopy_32f, LumStatus(const Lum32f *pSrc, Lum32f *pDst, int32_t len))                    \
    X(c, lumsMulC_32f, LumStatus(const Lum32f *pSrc, Lum32f val, Lum32f *pDst, int32_t len))        \
    X(c, lumsMulC_32f_I, LumStatus(Lum32f val, Lum32f *pSrcDst, int32_t len))                       \
    X(c, lumsExp_32f_I, LumStatus(Lum32f *pSrcDst, int32_t len))                                    \
    X(c, lumsSqr_16u_ISfs, LumStatus(Lum16u *pSrcDst, int32_t len, int32_t scaleFactor))            \
    X(c, lumsConvert_16u32f, LumStatus(const Lum16u *pSrc, Lum32f *pDst, int32_t len))              \
    X(c, lumsConvert_32f8u_Sfs, LumStatus(const Lum32f *pSrc, Lum8u *pDst, int32_t len,             \
                                       int32_t rndMode, int32_t scaleFactor))                    \
    X(c, lumsConvert_32f16u_Sfs, LumStatus(const Lum32f *pSrc, Lum16u *pDst, int32_t len,           \
                                        int32_t rndMode, int32_t scaleFactor))                    \
    /* Median line windows of three or five cells (image/filter); pSrc is the                  \
     * window's centre. */                                                                       \
    X(c, lumiFilterMedianHoriz_8u_C1R, LumiMedianLineFn)                                         \
    X(c, lumiFilterMedianHoriz_8u_C3R, LumiMedianLineFn)                                         \
    X(c, lumiFilterMedianVert_8u_C1R, LumiMedianLineFn)                                          \
    X(c, lumiFilterMedianVert_8u_C3R, LumiMedianLineFn)                                          \
    /* Resize row stages (image/resize): cubic rows filtered across and summed                 \
     * down, Lanczos rows filtered across. */                                                    \
    X(c, ownpi_CoefCubic8pl, void(const Lum8u *src, int32_t width, const int32_t *colOfs,        \
                                  const Lum32f *xFrac, Lum32f *out))                             \
    X(c, ownpi_CoefCubic8px, void(const Lum8u *src, int32_t width, int32_t pixelStride,          \
                                  const int32_t *colOfs, const Lum32f *xFrac, Lum32f *out))      \
    X(c, ownpi_SummCubic8pl, void(Lum8u *dst, int32_t count, const Lum32f *yFrac,                \
                                  const Lum32f *r0, const Lum32f *r1, const Lum32f *r2,          \
                                  const Lum32f *r3))                                             \
    X(c, ownpi_RowLanczos8pl, void(const Lum8u *src, const int32_t *colOfs,                      \
                                   const Lum32f *xWeights, Lum32f *out, int32_t width,           \
                                   int32_t roiX, int32_t imgW))                                  \
    /* Both Gaussian engines of every tier (image/filter), after the public                    \
     * checks (mask 33 or 55): the direct one-channel engine and the table engine. */             \
    X(c, ownlumiFilterGauss_8u_C1R, LumStatus(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,   \
                                              int32_t dstStep, LumiSize roiSize,                 \
                                              LumiMaskSize mask))                                \
    X(c, ownlumiFilterGaussTable_8u, LumStatus(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,  \
                                               int32_t dstStep, LumiSize roiSize,                \
                                               LumiMaskSize mask, int channels))                 \
    X(c, ownpi_RowLanczos8px, void(const Lum8u *src, int32_t pixelStride, const int32_t *colOfs, \
                                   const Lum32f *xWeights, Lum32f *out, int32_t width,           \
                                   int32_t roiX, int32_t imgW))                                  \
    /* Rotate's common body (image/geometry) for any element type and layout:  \
     * code = type (0 8u, 8 32f, 16 16u, 24 64f) + layout (0 C1, 1 C3, 2 AC4,   \
     * 3 P3, 4 C4, 5 P4); planar forms take arrays of plane pointers. */       \
    X(c, ownpi_Rotate, LumStatus(const void *pSrc, LumiSize srcSize, int32_t srcStep,           \
                                 LumiRect srcRoi, void *pDst, int32_t dstStep, LumiRect dstRoi,  \
                                 int32_t code, double angle, double xShift, double yShift,       \
                                 int32_t interpolation))                                         \
    /* Remap of every type and layout but the public two (image/geometry). */                   \
    LUMI_REMAP_MEMBERS(X, c)

/* lumi_member_type::lumsZero_8u is the function type of every tier's
 * lumsZero_8u member. */
namespace lumi_member_type {
#define LUMI_MEMBER_TYPE_(c, name, type) using name = type;
LUMI_INTERNAL_MEMBERS(LUMI_MEMBER_TYPE_, _)
#undef LUMI_MEMBER_TYPE_
} // namespace lumi_member_type

#endif
