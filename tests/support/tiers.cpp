#include "tiers.h"

#include <stdlib.h>
#include <string.h>

namespace lumitest {

void force_index(int index)
{
    ASSERT_GE(index, 1);
    ASSERT_LE(index, 5);
    ASSERT_EQ(lumStaticInitCpu(kTierCodes[index]), lumStsNoErr);
    ASSERT_EQ(lumJumpIndexForMergedLibs, index);
}

std::vector<int> tier_indices()
{
    std::vector<int> out;
    const char *env = getenv("LUMI_TEST_TIERS");
    for (int i = 1; i <= 5; ++i) {
        if (env && *env) {
            bool listed = false;
            for (const char *p = env; *p; ++p)
                if (*p == '0' + i)
                    listed = true;
            if (!listed)
                continue;
        }
        out.push_back(i);
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
