// Box filter: the four forms, through the window-filter harness.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const lumifuzz::WindowFns fns = {lumiFilterBox_8u_C1R, lumiFilterBox_8u_C3R,
                                            lumiFilterBox_8u_C1IR, lumiFilterBox_8u_C3IR, false};
    return lumifuzz::run_window_filter(fns, data, size);
}
