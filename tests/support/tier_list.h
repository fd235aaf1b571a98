// The processor code that forces each dispatch index, from the library's
// public list, for tests and fuzzers alike (no GoogleTest here).
#pragma once

#include <stdint.h>

#include "lumi.h"

namespace lumitest {

// The code lumStaticInitCpu takes to force dispatch index 1..5; -1 for an
// index no code forces.
inline int32_t forcing_code(int index)
{
#define LUMI_TEST_FORCING_CODE(i, code, features, label) \
    if (index == i)                                      \
        return code;
    LUMI_DISPATCH_INDEX_LIST(LUMI_TEST_FORCING_CODE)
#undef LUMI_TEST_FORCING_CODE
    return -1;
}

} // namespace lumitest
