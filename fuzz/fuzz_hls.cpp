// RGB <-> HLS: the eight interleaved forms (four types, both directions) and
// the two planar forms.  Interleaved steps are bytes that need not be whole
// elements: the image is laid out with the step rounded toward zero to whole
// elements, which is how the rows are walked, and the call gets that step
// plus a few stray bytes.  Now and then one argument is made invalid (a null
// pointer, a step below 1 for the planar forms, a size below 1): the call
// must fail and write nothing.
#include <stdio.h>

#include "fuzz_common.h"

namespace {

using lumifuzz::Image;
using lumifuzz::Input;

typedef decltype(&lumiBGRToHLS_8u_P3R) FnPlanar;

// One interleaved form, called through byte pointers.
template <auto Fn, typename T>
LumStatus call_as(const uint8_t *src, int srcStep, uint8_t *dst, int dstStep, LumiSize roi)
{
    return Fn((const T *)src, srcStep, (T *)dst, dstStep, roi);
}

struct Interleaved {
    int elem;
    LumStatus (*call)(const uint8_t *src, int srcStep, uint8_t *dst, int dstStep, LumiSize roi);
};

const Interleaved kInterleaved[] = {
    {1, call_as<lumiRGBToHLS_8u_C3R, Lum8u>},   {1, call_as<lumiHLSToRGB_8u_C3R, Lum8u>},
    {2, call_as<lumiRGBToHLS_16u_C3R, Lum16u>}, {2, call_as<lumiHLSToRGB_16u_C3R, Lum16u>},
    {2, call_as<lumiRGBToHLS_16s_C3R, Lum16s>}, {2, call_as<lumiHLSToRGB_16s_C3R, Lum16s>},
    {4, call_as<lumiRGBToHLS_32f_C3R, Lum32f>}, {4, call_as<lumiHLSToRGB_32f_C3R, Lum32f>},
};
const int kInterleavedCount = (int)(sizeof kInterleaved / sizeof kInterleaved[0]);

// A byte step for a row of rowBytes: `laid` is whole elements (the layout),
// the returned step adds up to elem - 1 bytes away from zero.
int element_step(Input &in, int rowBytes, int elem, int &laid)
{
    laid = lumifuzz::pick_step(in, rowBytes, true) / elem * elem;
    const int stray = (int)(in.byte() % (uint32_t)elem);
    return laid < 0 ? laid - stray : laid + stray;
}

void finish(LumStatus st, bool invalid, const char *what)
{
    if (invalid && st >= 0)
        lumifuzz::fail(what, "an invalid argument was accepted");
    if (!invalid && st != lumStsNoErr)
        lumifuzz::fail(what, "a valid call failed");
}

void run_interleaved(const Interleaved &f, Input &in, int w, int h, bool guard)
{
    const int rowBytes = 3 * w * f.elem;
    int srcLaid, dstLaid;
    const int srcStep = element_step(in, rowBytes, f.elem, srcLaid);
    const int dstStep = element_step(in, rowBytes, f.elem, dstLaid);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 4 : 0;
    Image src, dst;
    lumifuzz::image_make(src, h, rowBytes, srcLaid, guard, 1);
    lumifuzz::image_make(dst, h, rowBytes, dstLaid, guard, 2);
    const uint8_t *s = src.first_row();
    uint8_t *d = dst.first_row();
    LumiSize roi{w, h};
    switch (invalid) {
    case 1: s = nullptr; break;
    case 2: d = nullptr; break;
    case 3: roi.width = -(int)in.byte(); break;
    case 4: roi.height = -(int)in.byte(); break;
    }
    if (lumifuzz::show_calls())
        fprintf(stderr, "interleaved %d: roi %dx%d, steps %d %d, invalid case %u, index %d\n",
                (int)(&f - kInterleaved), roi.width, roi.height, srcStep, dstStep, invalid,
                (int)lumJumpIndexForMergedLibs);
    const LumStatus st = f.call(s, srcStep, d, dstStep, roi);
    finish(st, invalid != 0, "interleaved");
    (st == lumStsNoErr ? lumifuzz::check_outside_region : lumifuzz::check_unchanged)(dst,
                                                                                   "interleaved");
    lumifuzz::check_unchanged(src, "source");
    lumifuzz::image_free(src);
    lumifuzz::image_free(dst);
}

void run_planar(FnPlanar fn, Input &in, int w, int h, bool guard)
{
    // Plane steps are tested by these forms, so zero and negative ones are
    // invalid here.
    const int srcStep = lumifuzz::pick_step(in, w, true);
    const int dstStep = lumifuzz::pick_step(in, w, true);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 5 : 0;
    Image src[3], dst[3];
    Lum8u *sp[3], *dp[3];
    for (int c = 0; c < 3; ++c) {
        lumifuzz::image_make(src[c], h, w, srcStep, guard, 1 + c);
        lumifuzz::image_make(dst[c], h, w, dstStep, guard, 4 + c);
        sp[c] = src[c].first_row();
        dp[c] = dst[c].first_row();
    }
    LumiSize roi{w, h};
    bool nullArray = false;
    switch (invalid) {
    case 1: sp[in.byte() % 3] = nullptr; break;
    case 2: dp[in.byte() % 3] = nullptr; break;
    case 3: nullArray = true; break;
    case 4: roi.width = -(int)in.byte(); break;
    case 5: roi.height = -(int)in.byte(); break;
    }
    const bool badStep = srcStep < 1 || dstStep < 1;
    if (lumifuzz::show_calls())
        fprintf(stderr, "planar: roi %dx%d, steps %d %d, invalid case %u, index %d\n", roi.width,
                roi.height, srcStep, dstStep, invalid, (int)lumJumpIndexForMergedLibs);
    const Lum8u *const s[3] = {sp[0], sp[1], sp[2]};
    const LumStatus st = fn(nullArray ? nullptr : s, srcStep, dp, dstStep, roi);
    finish(st, invalid != 0 || badStep, "planar");
    if (invalid == 0 && badStep && st != lumStsStepErr)
        lumifuzz::fail("planar", "a step below 1 did not give the step error");
    for (int c = 0; c < 3; ++c) {
        (st == lumStsNoErr ? lumifuzz::check_outside_region : lumifuzz::check_unchanged)(dst[c],
                                                                                       "planar");
        lumifuzz::check_unchanged(src[c], "source plane");
        lumifuzz::image_free(src[c]);
        lumifuzz::image_free(dst[c]);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in(data, size);
    lumifuzz::force_tier(in);
    const int pick = (int)(in.byte() % (uint32_t)(kInterleavedCount + 2));
    int w = in.size(70, 2100), h = in.size(12, 300);
    if ((long)w * h > 65536)
        h = 65536 / w;
    const bool guard = in.flag();
    if (pick < kInterleavedCount)
        run_interleaved(kInterleaved[pick], in, w, h, guard);
    else
        run_planar(pick == kInterleavedCount ? lumiBGRToHLS_8u_P3R : lumiHLSToBGR_8u_P3R, in, w, h,
                   guard);
    return 0;
}
