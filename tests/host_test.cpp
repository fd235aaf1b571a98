// The library as a host sees it: loaded with dlopen in a fresh process.
// The tests in this file run in order; the first one needs a library on
// which no lookup has run yet.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <set>
#include <string>

#include "lumi.h"

namespace {

void *lib()
{
    static void *handle = dlopen(LUMI_SO_PATH, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <typename T>
T sym(const char *name)
{
    return (T)dlsym(lib(), name);
}

typedef decltype(&GetProcAddressForSo) GetProc;
typedef decltype(&lumiGetLibVersion) GetVersion;

TEST(Host, BeforeAndAfterTheFirstLookup)
{
    ASSERT_NE(lib(), nullptr) << dlerror();
    // Before any lookup the index is 0 and a dispatcher goes to m7.
    int32_t *index = sym<int32_t *>("lumJumpIndexForMergedLibs");
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(*index, 0);
    GetVersion direct = sym<GetVersion>("lumiGetLibVersion");
    EXPECT_STREQ(direct()->targetCpu, "m7");
    typedef decltype(&lumGetEnabledCpuFeatures) GetMask;
    EXPECT_EQ(sym<GetMask>("lumGetEnabledCpuFeatures")(), 7u);

    // A value stored in a slot without a function before the first lookup
    // ends up in the table; one stored after it changes nothing.
    void **early = sym<void **>("gf_lumiLUT_8u_C1R");
    void **late = sym<void **>("gf_lumiLUT_8u_C3R");
    ASSERT_NE(early, nullptr);
    ASSERT_NE(late, nullptr);
    static int marker;
    *early = &marker;

    GetProc getProc = sym<GetProc>("GetProcAddressForSo");
    ASSERT_NE(getProc, nullptr);
    EXPECT_EQ(getProc("lumMalloc"), dlsym(lib(), "lumMalloc"));
    EXPECT_EQ(getProc("lumiLUT_8u_C1R"), (void *)&marker);
    *late = &marker;
    EXPECT_EQ(getProc("lumiLUT_8u_C3R"), nullptr);
    *late = nullptr;

    // The lookup ran the automatic selection.
    EXPECT_GE(*index, 1);
    GetVersion v = (GetVersion)getProc("lumiGetLibVersion");
    EXPECT_EQ(v, direct); // the public dispatcher, not a tier member
    EXPECT_NE(v()->Name, nullptr);
}

TEST(Host, AllocatesAnAlignedImageThroughTheTable)
{
    GetProc getProc = sym<GetProc>("GetProcAddressForSo");
    typedef decltype(&lumiMalloc_8u_C3) MallocC3;
    typedef decltype(&lumiFree) Free;
    MallocC3 m = (MallocC3)getProc("lumiMalloc_8u_C3");
    Free f = (Free)getProc("lumiFree");
    ASSERT_NE(m, nullptr);
    int32_t step = 0;
    Lum8u *img = m(1920, 1080, &step);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(step, 5760);
    EXPECT_EQ((uintptr_t)img % 32, 0u);
    img[(size_t)step * 1080 - 1] = 1;
    f(img);
}

// The dynamic symbol table holds exactly the public names of what has landed.
TEST(Host, ExportsAreExactlyThePublicNames)
{
    std::set<std::string> expected = {
        "GetProcAddressForSo", "SetupLUMFunc", "lumStaticInit", "lumStaticInitCpu", "lumInit",
        "lumInitCpu", "lumEnableCpu", "lumIsCpuEnabled", "lumGetCpuFeatures",
        "lumGetEnabledCpuFeatures", "lumSetCpuFeaturesMask", "lumJumpIndexForMergedLibs",
        "lumJumpIndexForMergedLibsLP", "lum_has_cpuid", "lum_max_cpuid_input",
        "lum_is_avx_extension", "lum_is_CorvaneChips", "lum_has_rdtsc", "lum_is_mmx_extension",
        "lum_is_sse_extension", "lum_is_sse2_extension", "lum_is_smt_extension",
        "lum_is_sse3_extension", "lum_is_x64_extension", "lum_is_ssse3_extension",
        "lum_is_sse41_extension", "lum_is_sse42_extension", "lum_is_movbe",
        "lum_get_cores_on_die", "lum_get_processor_ident", "lum_get_processor_counter",
        "lumMalloc", "lumFree", "lumGetMaxCacheSizeB", "i_malloc", "i_calloc", "i_realloc",
        "i_free", "i_version", "i_min_version",
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name) "gf_" #name,
#define LUMI_ROW_ABSENT(name) "gf_" #name,
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) "gf_" #name, #name,
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    };
    std::string cmd = std::string("nm -D --defined-only '") + LUMI_SO_PATH + "'";
    FILE *p = popen(cmd.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::set<std::string> actual;
    char line[512];
    while (fgets(line, sizeof line, p)) {
        char addr[64], type[8], name[400];
        if (sscanf(line, "%63s %7s %399s", addr, type, name) == 3)
            actual.insert(name);
    }
    ASSERT_EQ(pclose(p), 0);
    for (const auto &n : expected)
        EXPECT_TRUE(actual.count(n)) << "missing export: " << n;
    for (const auto &n : actual)
        EXPECT_TRUE(expected.count(n)) << "extra export: " << n;
}

} // namespace
