// The members that tiers offer one another have no dispatcher; the tests
// call each tier's own build by its prefix.  Names, types and tiers come from
// the library's lists (tier_member_types.h, LUMI_TIER_LIST), so a member whose
// parameters drift does not compile here either.  Each tier carries the lowest
// dispatch index whose processor runs it, so a run limited by LUMI_TEST_TIERS
// (an emulated older processor) skips what it cannot run.
#pragma once

#include "lumi.h"
#include "tier_member_types.h"
#include "tiers.h"

#define LUMI_TEST_DECLARE_MEMBER_(t, name, type) extern "C" lumi_member_type::name t##_##name;
#define LUMI_TEST_DECLARE_TIER_(t, level, lowest) LUMI_INTERNAL_MEMBERS(LUMI_TEST_DECLARE_MEMBER_, t)
LUMI_TIER_LIST(LUMI_TEST_DECLARE_TIER_)
#undef LUMI_TEST_DECLARE_TIER_
#undef LUMI_TEST_DECLARE_MEMBER_

namespace lumitest {

struct TierMembers {
    const char *name;
    int level; // instruction-set level, LUMI_LEVEL_SSE3 ... LUMI_LEVEL_AVX
    int index; // lowest dispatch index that runs this tier
#define LUMI_TEST_MEMBER_FIELD_(c, name, type) lumi_member_type::name *name;
    LUMI_INTERNAL_MEMBERS(LUMI_TEST_MEMBER_FIELD_, _)
#undef LUMI_TEST_MEMBER_FIELD_
};

inline const std::vector<TierMembers> &all_tier_members()
{
#define LUMI_TEST_MEMBER_ADDRESS_(t, name, type) t##_##name,
#define LUMI_TEST_MEMBER_ROW_(t, level, lowest) \
    {#t, level, lowest, LUMI_INTERNAL_MEMBERS(LUMI_TEST_MEMBER_ADDRESS_, t)},
    static const std::vector<TierMembers> rows = {LUMI_TIER_LIST(LUMI_TEST_MEMBER_ROW_)};
#undef LUMI_TEST_MEMBER_ROW_
#undef LUMI_TEST_MEMBER_ADDRESS_
    return rows;
}

// The members this run may call.
inline std::vector<TierMembers> runnable_tier_members()
{
    std::vector<TierMembers> out;
    for (const TierMembers &m : all_tier_members())
        if (tier_allowed(m.index))
            out.push_back(m);
    return out;
}

inline void PrintTo(const TierMembers &m, std::ostream *os) { *os << m.name; }

struct TierMembersName {
    std::string operator()(const ::testing::TestParamInfo<TierMembers> &info) const
    {
        return info.param.name;
    }
};

} // namespace lumitest

#define LUMI_INSTANTIATE_TIER_MEMBERS(Suite)                                                      \
    INSTANTIATE_TEST_SUITE_P(Members, Suite,                                                       \
                             ::testing::ValuesIn(lumitest::runnable_tier_members()),               \
                             lumitest::TierMembersName())
