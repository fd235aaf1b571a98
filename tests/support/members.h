// The members that tiers offer one another have no dispatcher; the tests
// call each tier's own build by its prefix.  Each entry names the lowest
// dispatch index whose processor runs the tier, so a run limited by
// LUMI_TEST_TIERS (an emulated older processor) skips what it cannot run.
#pragma once

#include "lumi.h"
#include "tiers.h"

#define LUMI_TEST_EACH_TIER(X) X(m7, 1) X(u8, 2) X(n8, 3) X(y8, 4) X(e9, 5)

#define LUMI_TEST_DECLARE_MEMBERS(t, index)                                                        \
    extern "C" LumStatus t##_lumiCopy_8u_C1R(const Lum8u *, int32_t, Lum8u *, int32_t, LumiSize); \
    extern "C" LumStatus t##_lumiCopy_8u_C3R(const Lum8u *, int32_t, Lum8u *, int32_t, LumiSize); \
    extern "C" LumStatus t##_lumsZero_8u(Lum8u *, int32_t);                                      \
    extern "C" LumStatus t##_lumsZero_32f(Lum32f *, int32_t);                                    \
    extern "C" LumStatus t##_lumsSet_32f(Lum32f, Lum32f *, int32_t);                             \
    extern "C" LumStatus t##_lumsCopy_32f(const Lum32f *, Lum32f *, int32_t);                    \
    extern "C" LumStatus t##_lumsMulC_32f(const Lum32f *, Lum32f, Lum32f *, int32_t);            \
    extern "C" LumStatus t##_lumsMulC_32f_I(Lum32f, Lum32f *, int32_t);                          \
    extern "C" LumStatus t##_lumsExp_32f_I(Lum32f *, int32_t);                                   \
    extern "C" LumStatus t##_lumsSqr_16u_ISfs(Lum16u *, int32_t, int32_t);                       \
    extern "C" LumStatus t##_lumsConvert_16u32f(const Lum16u *, Lum32f *, int32_t);              \
    extern "C" LumStatus t##_lumsConvert_32f8u_Sfs(const Lum32f *, Lum8u *, int32_t, int32_t,    \
                                                   int32_t);                                     \
    extern "C" LumStatus t##_lumsConvert_32f16u_Sfs(const Lum32f *, Lum16u *, int32_t, int32_t,  \
                                                    int32_t);
LUMI_TEST_EACH_TIER(LUMI_TEST_DECLARE_MEMBERS)
#undef LUMI_TEST_DECLARE_MEMBERS

namespace lumitest {

struct TierMembers {
    const char *name;
    int index; // lowest dispatch index that runs this tier
    LumStatus (*copyC1)(const Lum8u *, int32_t, Lum8u *, int32_t, LumiSize);
    LumStatus (*copyC3)(const Lum8u *, int32_t, Lum8u *, int32_t, LumiSize);
    LumStatus (*zero8u)(Lum8u *, int32_t);
    LumStatus (*zero32f)(Lum32f *, int32_t);
    LumStatus (*set32f)(Lum32f, Lum32f *, int32_t);
    LumStatus (*copy32f)(const Lum32f *, Lum32f *, int32_t);
    LumStatus (*mulC)(const Lum32f *, Lum32f, Lum32f *, int32_t);
    LumStatus (*mulC_I)(Lum32f, Lum32f *, int32_t);
    LumStatus (*exp_I)(Lum32f *, int32_t);
    LumStatus (*sqr)(Lum16u *, int32_t, int32_t);
    LumStatus (*cvt16u32f)(const Lum16u *, Lum32f *, int32_t);
    LumStatus (*cvt32f8u)(const Lum32f *, Lum8u *, int32_t, int32_t, int32_t);
    LumStatus (*cvt32f16u)(const Lum32f *, Lum16u *, int32_t, int32_t, int32_t);
};

inline const std::vector<TierMembers> &all_tier_members()
{
#define LUMI_TEST_MEMBER_ROW(t, index)                                                             \
    {#t, index, t##_lumiCopy_8u_C1R, t##_lumiCopy_8u_C3R, t##_lumsZero_8u, t##_lumsZero_32f,      \
     t##_lumsSet_32f, t##_lumsCopy_32f, t##_lumsMulC_32f, t##_lumsMulC_32f_I, t##_lumsExp_32f_I,    \
     t##_lumsSqr_16u_ISfs, t##_lumsConvert_16u32f, t##_lumsConvert_32f8u_Sfs,                      \
     t##_lumsConvert_32f16u_Sfs},
    static const std::vector<TierMembers> rows = {LUMI_TEST_EACH_TIER(LUMI_TEST_MEMBER_ROW)};
#undef LUMI_TEST_MEMBER_ROW
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
