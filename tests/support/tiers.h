// Runs a test once per dispatch index 1..5, with the tier's prefix in the
// test name.  LUMI_TEST_TIERS (for example "1,2") limits the indices, so the
// suite can run on an emulated processor that lacks the higher tiers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumi.h"
#include "tier_list.h"

namespace lumitest {

// Forces dispatch index 1..5 through the public processor codes.
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
        return std::string("index") + std::to_string(info.param) + "_" + tier_name(info.param);
    }
};

} // namespace lumitest

#define LUMI_INSTANTIATE_TIERS(Suite) \
    INSTANTIATE_TEST_SUITE_P(Tiers, Suite, ::testing::ValuesIn(lumitest::tier_indices()), \
                             lumitest::TierName())
