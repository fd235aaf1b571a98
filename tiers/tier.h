/*
 * Included first by every source that is compiled once per tier.
 *
 * The build defines LUMI_TIER to the tier's prefix (m7, n8, u8, y8, e9) and
 * LUMI_TIER_LEVEL to its instruction-set level:
 *   1  m7  SSE3
 *   2  n8  SSSE3      (u8 is the same level; LUMI_TIER_U8 tells them apart)
 *   3  y8  SSE4.1
 *   4  e9  AVX
 *
 * LUMI_T(name) gives a member its tier prefix (y8_lumiCopy_8u_C1R); members
 * have C linkage and hidden visibility.  Everything else a tier defines goes
 * in namespace LUMI_NS (lumi_y8, ...) or has internal linkage, so that an
 * inline function or template is never merged across tiers by the linker.
 */
#ifndef LUMI_TIER_H
#define LUMI_TIER_H

#if !defined(LUMI_TIER) || !defined(LUMI_TIER_LEVEL)
#error "tier sources are compiled through lumi_tiered_module()"
#endif

#include "lumi.h"

#define LUMI_CAT_(a, b) a##_##b
#define LUMI_CAT(a, b) LUMI_CAT_(a, b)
#define LUMI_T(name) LUMI_CAT(LUMI_TIER, name)
#define LUMI_NS LUMI_CAT(lumi, LUMI_TIER)

#define LUMI_TIER_SSE3 LUMI_LEVEL_SSE3
#define LUMI_TIER_SSSE3 LUMI_LEVEL_SSSE3
#define LUMI_TIER_SSE41 LUMI_LEVEL_SSE41
#define LUMI_TIER_AVX LUMI_LEVEL_AVX

#ifndef LUMI_TIER_U8
#define LUMI_TIER_U8 0
#endif

/* What a tier's code may use, for #if and constant expressions alike: the
 * instruction sets its build has, and which tier it is. */
#define LUMI_HAS_SSSE3 (LUMI_TIER_LEVEL >= LUMI_TIER_SSSE3)
#define LUMI_HAS_SSE41 (LUMI_TIER_LEVEL >= LUMI_TIER_SSE41)
#define LUMI_HAS_AVX (LUMI_TIER_LEVEL >= LUMI_TIER_AVX)
#define LUMI_IS_M7 (LUMI_TIER_LEVEL == LUMI_TIER_SSE3)
#define LUMI_IS_SSSE3_TIER (LUMI_TIER_LEVEL == LUMI_TIER_SSSE3) /* n8 or u8 */
#define LUMI_IS_N8 (LUMI_IS_SSSE3_TIER && !LUMI_TIER_U8)
#define LUMI_IS_Y8 (LUMI_TIER_LEVEL == LUMI_TIER_SSE41)

/* Members of a tier: C linkage, never exported. */
#define LUMI_MEMBER extern "C" __attribute__((visibility("hidden")))

#include "tier_members.h"

#endif
