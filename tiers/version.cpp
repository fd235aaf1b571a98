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

#if LUMI_IS_M7
#define LUMI_BUILD_DATE "Apr  7 2012"
#elif LUMI_IS_SSSE3_TIER
#define LUMI_BUILD_DATE "Apr  8 2012"
#else
#define LUMI_BUILD_DATE "Apr  7 2012"
#endif

/* The numbers are the project's version (CMakeLists.txt); the text keeps the
 * record's historic form, major.minor, "build", majorBuild and ".105". */
#define LUMI_VERSION_TEXT                                                                          \
    LUMI_STRINGIFY(LUMI_VERSION_MAJOR) "." LUMI_STRINGIFY(LUMI_VERSION_MINOR) " build "            \
        LUMI_STRINGIFY(LUMI_VERSION_MAJOR_BUILD) ".105"

const LumLibraryVersion kVersion = {LUMI_VERSION_MAJOR, LUMI_VERSION_MINOR,
                                    LUMI_VERSION_MAJOR_BUILD, LUMI_VERSION_BUILD, LUMI_TIER_NAME,
                                    "lumi" LUMI_TIER_NAME "_l.a", LUMI_VERSION_TEXT,
                                    LUMI_BUILD_DATE};

#if LUMI_IS_Y8
const LumLibraryVersion kVersionSse42 = {LUMI_VERSION_MAJOR, LUMI_VERSION_MINOR,
                                         LUMI_VERSION_MAJOR_BUILD, LUMI_VERSION_BUILD,
                                         LUMI_TIER_NAME, "lumi" LUMI_TIER_NAME "_l.a+",
                                         LUMI_VERSION_TEXT, LUMI_BUILD_DATE};
#endif

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER const LumLibraryVersion *LUMI_T(lumiGetLibVersion)(void)
{
#if LUMI_IS_Y8
    if (ownGetFeature(LUM_CPU_SSE42))
        return &LUMI_NS::kVersionSse42;
#endif
    return &LUMI_NS::kVersion;
}
