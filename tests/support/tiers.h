// Runs a test once per dispatch index 1..5, with the index and the processor
// it stands for in the test name.  LUMI_TEST_TIERS (for example "1,2") limits
// the indices, so the suite can run on an emulated processor that lacks the
// higher tiers.  Indices, forcing codes and tiers come from the public lists
// (LUMI_DISPATCH_INDEX_LIST, LUMI_TIER_LIST, lumi_entries.def).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumi.h"
#include "tier_list.h"

namespace lumitest {

// The short label of dispatch index 1..5 ("sse3", "ssse3", "ssse3lowpower",
// "sse41", "avx"), from the public list; forcing_code (tier_list.h) gives the
// processor code that forces it.
const char *index_label(int index);

// The tier that serves dispatch index 0..5 of the named dispatched primitive
// ("m7", "n8", ...), from the entry list; null for a name without a row.
const char *serving_tier(const char *primitive, int index);

// The lowest dispatch index whose processor runs the tier ("u8" -> 2).
int tier_lowest_index(const char *tier);

// Forces dispatch index 1..5 through its public processor code.
void force_index(int index);
// The indices allowed on this run (1..5 unless LUMI_TEST_TIERS says less).
std::vector<int> tier_indices();
bool tier_allowed(int index);

class TierTest : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { force_index(GetParam()); }
    void TearDown() override { lumStaticInit(); }
};

struct TierName {
    std::string operator()(const ::testing::TestParamInfo<int> &info) const
    {
        return std::string("index") + std::to_string(info.param) + "_" + index_label(info.param);
    }
};

} // namespace lumitest

#define LUMI_INSTANTIATE_TIERS(Suite) \
    INSTANTIATE_TEST_SUITE_P(Tiers, Suite, ::testing::ValuesIn(lumitest::tier_indices()), \
                             lumitest::TierName())
