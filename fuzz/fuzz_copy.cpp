// Plane copies: both directions, each result checked byte for byte.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const lumifuzz::ThreeChannelFns fns[] = {
        {lumiCopy_8u_C3P3R, lumiCopy_8u_P3C3R, nullptr, true}};
    return lumifuzz::run_three_channel(fns, 1, data, size);
}
