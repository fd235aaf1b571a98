/*
 * Prototypes of the members that one tier offers to its own other members.
 * A family calls only members of its own tier (LUMI_T) and the core services.
 */
#ifndef LUMI_TIER_MEMBERS_H
#define LUMI_TIER_MEMBERS_H

/* Allocation: every tier's members agree and all forward to lumMalloc/lumFree. */
LUMI_MEMBER Lum8u *LUMI_T(lumsMalloc_8u)(int32_t len);
LUMI_MEMBER Lum16u *LUMI_T(lumsMalloc_16u)(int32_t len);
LUMI_MEMBER Lum32s *LUMI_T(lumsMalloc_32s)(int32_t len);
LUMI_MEMBER Lum32f *LUMI_T(lumsMalloc_32f)(int32_t len);
LUMI_MEMBER void LUMI_T(lumsFree)(void *ptr);
LUMI_MEMBER Lum8u *LUMI_T(lumiMalloc_8u_C1)(int32_t width, int32_t height, int32_t *pStep);
LUMI_MEMBER Lum8u *LUMI_T(lumiMalloc_8u_C3)(int32_t width, int32_t height, int32_t *pStep);
LUMI_MEMBER void LUMI_T(lumiFree)(void *ptr);

LUMI_MEMBER const LumLibraryVersion *LUMI_T(lumiGetLibVersion)(void);

/* Plain byte-image copies (image/copy), for the filter families. */
LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                              int32_t dstStep, LumiSize roiSize);
LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                              int32_t dstStep, LumiSize roiSize);

/* Signal kernels (signal/), called by the image families of the same tier. */
LUMI_MEMBER LumStatus LUMI_T(lumsZero_8u)(Lum8u *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsZero_32f)(Lum32f *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsSet_32f)(Lum32f val, Lum32f *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsCopy_32f)(const Lum32f *pSrc, Lum32f *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsMulC_32f)(const Lum32f *pSrc, Lum32f val, Lum32f *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsMulC_32f_I)(Lum32f val, Lum32f *pSrcDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsExp_32f_I)(Lum32f *pSrcDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsSqr_16u_ISfs)(Lum16u *pSrcDst, int32_t len, int32_t scaleFactor);
LUMI_MEMBER LumStatus LUMI_T(lumsConvert_16u32f)(const Lum16u *pSrc, Lum32f *pDst, int32_t len);
LUMI_MEMBER LumStatus LUMI_T(lumsConvert_32f8u_Sfs)(const Lum32f *pSrc, Lum8u *pDst, int32_t len,
                                                    int32_t rndMode, int32_t scaleFactor);
LUMI_MEMBER LumStatus LUMI_T(lumsConvert_32f16u_Sfs)(const Lum32f *pSrc, Lum16u *pDst, int32_t len,
                                                     int32_t rndMode, int32_t scaleFactor);

/* The Lanczos kernel table at spacing 0.01 (image/resize), 302 entries; the
 * remap kernels read it as tblL3. */
LUMI_MEMBER const Lum32f LUMI_T(tblLanczos3)[302];

#endif
