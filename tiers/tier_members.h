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

#endif
