// RGB and YUV conversion: the four forms.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const lumifuzz::ThreeChannelFns fns[] = {
        {lumiRGBToYUV_8u_C3P3R, lumiYUVToRGB_8u_P3C3R, lumiRGBToYUV_8u_C3R, false},
        {nullptr, nullptr, lumiYUVToRGB_8u_C3R, false}};
    return lumifuzz::run_three_channel(fns, 2, data, size);
}
