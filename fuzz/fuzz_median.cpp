// Median filter: both forms through the window-filter harness, each result
// also compared with a sort of its window.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const lumifuzz::WindowFns fns = {lumiFilterMedian_8u_C1R, lumiFilterMedian_8u_C3R,
                                            nullptr, nullptr, true};
    return lumifuzz::run_window_filter(fns, data, size);
}
