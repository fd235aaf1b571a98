#include "tiers.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

namespace lumitest {

namespace {

struct IndexRow {
    int index;
    const char *label;
};
const IndexRow kIndices[] = {
#define LUMI_TEST_INDEX_ROW(index, code, features, text) {index, text},
    LUMI_DISPATCH_INDEX_LIST(LUMI_TEST_INDEX_ROW)
#undef LUMI_TEST_INDEX_ROW
};

const IndexRow *find_index(int index)
{
    for (const IndexRow &r : kIndices)
        if (r.index == index)
            return &r;
    return nullptr;
}

struct EntryTiers {
    const char *name;
    const char *tiers[LUMI_DISPATCH_INDEX_COUNT];
};
const EntryTiers kEntryTiers[] = {
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name)
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) {#name, {#s0, #s1, #s2, #s3, #s4, #s5}},
#define LUMI_ROW_PENDING(name, s0, s1, s2, s3, s4, s5) {#name, {#s0, #s1, #s2, #s3, #s4, #s5}},
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
};

} // namespace

const char *index_label(int index)
{
    // Test names take [A-Za-z0-9_] only: the list's label in lower case,
    // without blanks, dots and dashes ("SSE4.1" -> "sse41").
    static std::string labels[LUMI_DISPATCH_INDEX_COUNT];
    const IndexRow *r = find_index(index);
    if (!r)
        return "none";
    std::string &l = labels[index];
    if (l.empty())
        for (const char *p = r->label; *p; ++p)
            if (isalnum((unsigned char)*p))
                l += (char)tolower((unsigned char)*p);
    return l.c_str();
}

const char *serving_tier(const char *primitive, int index)
{
    for (const EntryTiers &e : kEntryTiers)
        if (strcmp(e.name, primitive) == 0)
            return index >= 0 && index < LUMI_DISPATCH_INDEX_COUNT ? e.tiers[index] : nullptr;
    return nullptr;
}

int tier_lowest_index(const char *tier)
{
#define LUMI_TEST_TIER_ROW(prefix, level, lowest) \
    if (strcmp(tier, #prefix) == 0)                \
        return lowest;
    LUMI_TIER_LIST(LUMI_TEST_TIER_ROW)
#undef LUMI_TEST_TIER_ROW
    return -1;
}

void force_index(int index)
{
    const IndexRow *r = find_index(index);
    ASSERT_NE(r, nullptr) << "index " << index << " is never forced";
    ASSERT_EQ(lumStaticInitCpu(forcing_code(index)), lumStsNoErr);
    ASSERT_EQ(lumJumpIndexForMergedLibs, index);
}

std::vector<int> tier_indices()
{
    std::vector<int> out;
    const char *env = getenv("LUMI_TEST_TIERS");
    for (const IndexRow &r : kIndices) {
        if (env && *env) {
            bool listed = false;
            for (const char *p = env; *p; ++p)
                if (*p == '0' + r.index)
                    listed = true;
            if (!listed)
                continue;
        }
        out.push_back(r.index);
    }
    return out;
}

bool tier_allowed(int index)
{
    for (int i : tier_indices())
        if (i == index)
            return true;
    return index == 0; // index 0 serves the lowest tier
}

} // namespace lumitest
