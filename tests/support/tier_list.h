// The tiers by dispatch index, for tests and fuzzers alike: the prefix most
// primitives use at each index and the processor code that forces it.
#pragma once

#include <stdint.h>

namespace lumitest {

// The tier table most primitives use, by dispatch index.
inline const char *tier_name(int index)
{
    static const char *names[] = {"m7", "m7", "n8", "n8", "y8", "e9"};
    return names[index];
}

// Processor codes that select each index through lumStaticInitCpu (index 0 is
// never forced: no code selects it).
constexpr int32_t kTierCodes[6] = {-1, 0, 33, 36, 35, 70};

} // namespace lumitest
