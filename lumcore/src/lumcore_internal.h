/*
 * Internal state and helpers of the entry and dispatch subsystem.  Nothing
 * here is exported from the shared library; the tests link the same objects
 * statically and use these declarations to inspect and reset the state.
 */
#ifndef LUMCORE_INTERNAL_H
#define LUMCORE_INTERNAL_H

#include "lumi.h"

#define LUM_HIDDEN __attribute__((visibility("hidden")))

#ifdef __cplusplus
extern "C" {
#endif

/* Every read of the processor goes through ownProcessorRead. */
enum LumProcessorOp {
    LUM_READ_HAS_CPUID = 0, /* r[0] = 1 when CPUID exists */
    LUM_READ_CPUID = 1,     /* leaf, sub-leaf -> EAX, EBX, ECX, EDX */
    LUM_READ_XGETBV = 2,    /* leaf = XCR number -> r[0] low, r[1] high */
    LUM_READ_RDTSC = 3      /* r[0] low, r[1] high */
};
LUM_HIDDEN void ownProcessorRead(int op, uint32_t leaf, uint32_t subleaf, uint32_t r[4]);

#ifdef LUMI_SIMULATED_CPU_API
/* Test builds only: when set, every processor read is answered by the hook. */
typedef void (*LumProcessorReadHook)(int op, uint32_t leaf, uint32_t subleaf, uint32_t r[4]);
LUM_HIDDEN extern LumProcessorReadHook ownProcessorReadHook;
#endif

LUM_HIDDEN void ownCpuid(uint32_t leaf, uint32_t subleaf, uint32_t r[4]);

/* Selection state. lum_jump_index is the storage behind the exported
   lumJumpIndexForMergedLibs; the dispatchers read it without the GOT. */
LUM_HIDDEN extern int32_t lum_jump_index;
LUM_HIDDEN extern int32_t lum_jump_index_lp;
LUM_HIDDEN extern Lum64u ownFeatures;
LUM_HIDDEN extern int32_t ownFeaturesAreValid;
LUM_HIDDEN extern Lum64u ownFeaturesMask;
LUM_HIDDEN extern int32_t is_avx_cpu_enabled;

LUM_HIDDEN int ownGetMaskFeatures(Lum64u *pWord);
LUM_HIDDEN void ownSetFeatureMask(Lum64u mask);
LUM_HIDDEN int ownGetFeature(Lum64u bits);

/* Cache size. */
typedef struct { uint32_t key; uint32_t size; } LumCacheRow;
LUM_HIDDEN extern const LumCacheRow tableCache[];
LUM_HIDDEN extern int32_t ownStatus;
LUM_HIDDEN extern int32_t cacheSize;
LUM_HIDDEN int32_t ownGetCacheSize(const LumCacheRow *pTable);
/* The copy and fill kernels' lookup: the vendor test, then leaf 2 against
   their packed table TableCacheSize.  The size in bytes, or -1. */
LUM_HIDDEN extern const Lum16u TableCacheSize[];
LUM_HIDDEN int32_t ownGetCacheSizePacked(const Lum16u *pTable);

#ifdef __cplusplus
}
#endif

#endif
