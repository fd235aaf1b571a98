// The by-name entry table and the dispatchers, in the test process.
#include <gtest/gtest.h>

#include <string.h>

#include <set>
#include <string>
#include <vector>

#include "lumi.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

namespace {

struct Row {
    const char *name;
    bool live;
    bool dispatched;
};

const std::vector<Row> &rows()
{
    static const std::vector<Row> r = {
#define LUMI_ROW_BOUND(name) {#name, true, false},
#define LUMI_ROW_SELF(name) {#name, true, false},
#define LUMI_ROW_ABSENT(name) {#name, false, false},
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) {#name, true, true},
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    };
    return r;
}

TEST(Entry, EveryRowAnswersAsItsKindSays)
{
    ASSERT_EQ(rows().size(), 70u);
    for (const Row &r : rows()) {
        void *p = GetProcAddressForSo(r.name);
        if (r.live)
            EXPECT_NE(p, nullptr) << r.name;
        else
            EXPECT_EQ(p, nullptr) << r.name;
    }
    EXPECT_EQ(GetProcAddressForSo("lumMalloc"), (void *)&lumMalloc);
    EXPECT_EQ(GetProcAddressForSo("lumFree"), (void *)&lumFree);
    EXPECT_EQ(GetProcAddressForSo("lumStaticInit"), (void *)&lumStaticInit);
    EXPECT_EQ(GetProcAddressForSo("lumiGetLibVersion"), (void *)&lumiGetLibVersion);
    EXPECT_EQ(GetProcAddressForSo("lumsMalloc_8u"), GetProcAddressForSo("lumsMalloc_8u"));
}

TEST(Entry, RowsWithoutFunctionAndUnknownNamesGiveNull)
{
    for (const char *name : {"lumiConvert_8u16u_C1R", "lumiFilterWiener_8u_C3R", "lumiLUT_16s_C3IR",
                             "lumigetLibVersion", "lumiGetLibVersion ", "", "lumiCopy_8u_C3R",
                             "lumiCopy_8u_C1R", "lumInit", "lumInitCpu", "lumGetCpuFeatures",
                             "lumiMalloc_8u_C1", "y8_lumiGetLibVersion"})
        EXPECT_EQ(GetProcAddressForSo(name), nullptr) << '"' << name << '"';
}

TEST(Entry, SlotsMatchTheHeaderAndAreLive)
{
    // The header's slot list is rows 2..69 in order.
    std::vector<std::string> header;
#define LUMI_COLLECT(name) header.push_back(#name);
    LUMI_GF_SLOTS(LUMI_COLLECT)
#undef LUMI_COLLECT
    ASSERT_EQ(header.size(), 68u);
    for (size_t i = 0; i < header.size(); ++i)
        EXPECT_EQ(header[i], rows()[i + 2].name);
    GetProcAddressForSo("lumFree");
    EXPECT_EQ(gf_lumStaticInit, (void *)&lumStaticInit);
    EXPECT_EQ(gf_lumiFree, (void *)&lumiFree);
    EXPECT_EQ(gf_lumiConvert_8u16u_C1R, nullptr);
}

TEST(Entry, LookupPutsTheAutomaticTierBack)
{
    lumStaticInit();
    const int32_t automatic = lumJumpIndexForMergedLibs;
    const Lum64u mask = lumGetEnabledCpuFeatures();
    ASSERT_EQ(lumInitCpu(0), lumStsNoErr);
    ASSERT_EQ(lumJumpIndexForMergedLibs, 1);
    lumSetCpuFeaturesMask(0x1234);
    EXPECT_EQ(GetProcAddressForSo("no such primitive"), nullptr);
    EXPECT_EQ(lumJumpIndexForMergedLibs, automatic);
    EXPECT_EQ(lumGetEnabledCpuFeatures(), mask);
}

TEST(Entry, AddressFollowsTheIndex)
{
    // A pointer taken once keeps dispatching on the index in force at each call.
    typedef const LumLibraryVersion *(*Fn)(void);
    Fn fn = (Fn)GetProcAddressForSo("lumiGetLibVersion");
    ASSERT_EQ(lumInitCpu(0), lumStsNoErr);
    EXPECT_STREQ(fn()->targetCpu, "m7");
    if (lumitest::tier_allowed(5)) {
        ASSERT_EQ(lumInitCpu(70), lumStsNoErr);
        EXPECT_STREQ(fn()->targetCpu, "e9");
    }
    lumStaticInit();
}

TEST(Dispatch, SlotZeroAndUnevenTable)
{
    // Index 0 and 1 both serve m7; lumiGetLibVersion has u8 at 2, n8 at 3.
    const char *expected[] = {"m7", "m7", "u8", "n8", "y8", "e9"};
    for (int i = 0; i < 6; ++i) {
        if (!lumitest::tier_allowed(i))
            continue;
        lumJumpIndexForMergedLibs = i;
        EXPECT_STREQ(lumiGetLibVersion()->targetCpu, expected[i]) << i;
    }
    lumStaticInit();
}

// The dispatcher is exactly: movl index(%rip),%eax; leaq table(%rip),%r11;
// jmp *(%r11,%rax,8).  Two loads and an indirect jump, no frame, no branch.
TEST(Dispatch, MachineCodeIsTwoLoadsAndAJump)
{
    const void *dispatchers[] = {(void *)&lumiGetLibVersion, (void *)&lumiMalloc_8u_C3,
                                 (void *)&lumiFree, (void *)&lumsMalloc_8u, (void *)&lumsFree};
    for (const void *d : dispatchers) {
        const uint8_t *c = (const uint8_t *)d;
        EXPECT_EQ(c[0], 0x8b);
        EXPECT_EQ(c[1], 0x05);
        EXPECT_EQ(c[6], 0x4c);
        EXPECT_EQ(c[7], 0x8d);
        EXPECT_EQ(c[8], 0x1d);
        const uint8_t jump[] = {0x41, 0xff, 0x24, 0xc3};
        EXPECT_EQ(memcmp(c + 13, jump, 4), 0);
        int32_t disp;
        memcpy(&disp, c + 2, 4);
        EXPECT_EQ(c + 6 + disp, (const uint8_t *)&lumJumpIndexForMergedLibs);
    }
}

} // namespace
