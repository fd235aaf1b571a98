/*
 * The version record of each tier.  The record names the tier, so a host can
 * tell which build serves it; only the y8 member looks at the enabled
 * features, returning the "+" record when SSE4.2 is enabled.
 */
#include "tier.h"

extern "C" __attribute__((visibility("hidden"))) int ownGetFeature(Lum64u bits);

#define LUMI_STRINGIFY_(x) #x
#define LUMI_STRINGIFY(x) LUMI_STRINGIFY_(x)
#define LUMI_TIER_NAME LUMI_STRINGIFY(LUMI_TIER)

namespace LUMI_NS {
namespace {

#if LUMI_TIER_LEVEL == LUMI_TIER_SSE3
#define LUMI_BUILD_DATE "Apr  7 2012"
#elif LUMI_TIER_LEVEL == LUMI_TIER_SSSE3
#define LUMI_BUILD_DATE "Apr  8 2012"
#else
#define LUMI_BUILD_DATE "Apr  7 2012"
#endif

const LumLibraryVersion kVersion = {
    7, 0, 205, 1100, LUMI_TIER_NAME, "lumi" LUMI_TIER_NAME "_l.a", "7.0 build 205.105",
    LUMI_BUILD_DATE};

#if LUMI_TIER_LEVEL == LUMI_TIER_SSE41
const LumLibraryVersion kVersionSse42 = {
    7, 0, 205, 1100, LUMI_TIER_NAME, "lumi" LUMI_TIER_NAME "_l.a+", "7.0 build 205.105",
    LUMI_BUILD_DATE};
#endif

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER const LumLibraryVersion *LUMI_T(lumiGetLibVersion)(void)
{
#if LUMI_TIER_LEVEL == LUMI_TIER_SSE41
    if (ownGetFeature(LUM_CPU_SSE42))
        return &LUMI_NS::kVersionSse42;
#endif
    return &LUMI_NS::kVersion;
}
