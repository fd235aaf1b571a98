// The by-name entry table and the dispatchers, in the test process.
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "lumi.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

namespace {

enum Kind { kBound, kSelf, kAbsent, kPending, kDispatched };

struct Row {
    const char *name;
    Kind kind;
    void *fn;         // what a lookup must answer: the function or dispatcher, else null
    void **slot;      // the gf_ slot, null for the rows bound at load
    const char *tiers[LUMI_DISPATCH_INDEX_COUNT]; // dispatched rows: the tier per index
};

const std::vector<Row> &rows()
{
    static const std::vector<Row> r = {
#define LUMI_ROW_BOUND(name) {#name, kBound, (void *)&name, nullptr, {}},
#define LUMI_ROW_SELF(name) {#name, kSelf, (void *)&name, &gf_##name, {}},
#define LUMI_ROW_ABSENT(name) {#name, kAbsent, nullptr, &gf_##name, {}},
#define LUMI_ROW_PENDING(name, s0, s1, s2, s3, s4, s5) {#name, kPending, nullptr, &gf_##name, {}},
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) \
    {#name, kDispatched, (void *)&name, &gf_##name, {#s0, #s1, #s2, #s3, #s4, #s5}},
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    };
    return r;
}

const Row &row(const char *name)
{
    for (const Row &r : rows())
        if (strcmp(r.name, name) == 0)
            return r;
    ADD_FAILURE() << name << " has no row";
    return rows()[0];
}

TEST(Entry, EveryRowAnswersAsItsKindSays)
{
    // The table's size is fixed: 70 names, and their order, whatever has landed.
    ASSERT_EQ(rows().size(), 70u);
    EXPECT_STREQ(rows()[2].name, "lumiGetLibVersion");
    EXPECT_STREQ(rows()[65].name, "lumStaticInit");
    EXPECT_STREQ(rows()[69].name, "lumiRotate_8u_C4R");
    for (const Row &r : rows()) {
        // A dispatched row answers its public dispatcher, never a tier member.
        EXPECT_EQ(GetProcAddressForSo(r.name), r.fn) << r.name;
        EXPECT_EQ(r.fn != nullptr, r.kind != kAbsent && r.kind != kPending) << r.name;
    }
}

// The rows without a function are the seventeen names the library does not
// hold; every other row has a function, or will have one when its family
// lands (a pending row answers null until then).
TEST(Entry, OnlyTheSeventeenRowsWithoutFunctionStayNull)
{
    int absent = 0, live = 0;
    for (const Row &r : rows()) {
        if (r.kind == kAbsent) {
            ++absent;
            const bool known = strncmp(r.name, "lumiConvert_", 12) == 0 ||
                               strncmp(r.name, "lumiSub_", 8) == 0 ||
                               strncmp(r.name, "lumiLUT_", 8) == 0 ||
                               strncmp(r.name, "lumiFilterWiener", 16) == 0;
            EXPECT_TRUE(known) << r.name << " has no function";
        } else {
            ++live;
        }
    }
    EXPECT_EQ(absent, 17);
    EXPECT_EQ(live, 53);
}

TEST(Entry, RowsWithoutFunctionAndUnknownNamesGiveNull)
{
    for (const char *name : {"lumiConvert_8u16u_C1R", "lumiFilterWiener_8u_C3R", "lumiLUT_16s_C3IR",
                             "lumigetLibVersion", "lumiGetLibVersion ", "", "lumiCopy_8u_C3R",
                             "lumiCopy_8u_C1R", "lumInit", "lumInitCpu", "lumGetCpuFeatures",
                             "lumiMalloc_8u_C1", "y8_lumiGetLibVersion"})
        EXPECT_EQ(GetProcAddressForSo(name), nullptr) << '"' << name << '"';
}

TEST(Entry, SlotsHoldTheirFunctionsAfterALookup)
{
    GetProcAddressForSo("lumFree");
    for (const Row &r : rows())
        if (r.slot)
            EXPECT_EQ(*r.slot, r.fn) << r.name;
    EXPECT_EQ(row("lumStaticInit").kind, kSelf);
    EXPECT_EQ(row("lumiConvert_8u16u_C1R").kind, kAbsent);
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
    const Row &r = row("lumiGetLibVersion");
    auto fn = (decltype(&lumiGetLibVersion))GetProcAddressForSo(r.name);
    for (int index : lumitest::tier_indices()) {
        lumitest::force_index(index);
        EXPECT_STREQ(fn()->targetCpu, r.tiers[index]) << index;
    }
    lumStaticInit();
}

TEST(Dispatch, SlotZeroAndUnevenTable)
{
    // Index 0 and 1 both serve m7; lumiGetLibVersion has u8 at 2, n8 at 3.
    const Row &r = row("lumiGetLibVersion");
    EXPECT_STREQ(r.tiers[2], "u8");
    EXPECT_STREQ(r.tiers[3], "n8");
    for (int i = 0; i < LUMI_DISPATCH_INDEX_COUNT; ++i) {
        if (!lumitest::tier_allowed(i))
            continue;
        lumJumpIndexForMergedLibs = i;
        EXPECT_STREQ(lumiGetLibVersion()->targetCpu, r.tiers[i]) << i;
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
