// Remap: an image of exactly its rows, a region that may overhang or start
// outside it, maps of exactly their rows holding coordinates in and around the
// region, on and beside its limits, and unusable ones (not a number, infinite,
// huge), every selector with and without the soft edge, and unusable ones.
// Checks: the source is never written, nothing outside the destination
// region is, a failed call writes nothing, and a pixel whose coordinate is not
// a number keeps its value.
#include <math.h>
#include <stdio.h>

#include <vector>

#include "fuzz_common.h"

namespace lumifuzz {
namespace {

float pick_coord(Input &in, int limit)
{
    static const float odd[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, -0.0f, 2147483648.0f, -2147483904.0f};
    const uint32_t mode = in.byte();
    if (mode < 160) // anywhere in and around the image, at 1/256 of a pixel
        return (float)((int)in.range(0, (limit + 4) * 256) - 512) / 256.0f;
    if (mode < 240) // a whole number or a hair beside one
        return (float)in.range(0, limit + 2) - 1.0f + (float)((int)(in.byte() % 3) - 1) * 1e-6f;
    return odd[mode % (sizeof odd / sizeof odd[0])];
}

int pick_interpolation(Input &in)
{
    static const int selectors[] = {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC,
                                    LUMI_INTER_CATMULLROM, LUMI_INTER_LANCZOS};
    const uint32_t mode = in.byte();
    if (mode >= 250)
        return (int)in.u32();
    return selectors[mode % 5] | (in.flag() ? LUMI_SMOOTH_EDGE : 0);
}

int run(const uint8_t *data, size_t size)
{
    Input in(data, size);
    force_tier(in);
    const int ch = in.flag() ? 3 : 1;
    int sw = in.size(40, 600), sh = in.size(30, 300);
    if ((long)sw * sh > 200000)
        sh = 200000 / sw;
    const int srcStep = pick_step(in, sw * ch, true);
    const LumiRect roi = pick_region(in, sw, sh);
    const int interp = pick_interpolation(in);
    const int dw = in.size(48, 700), dh = in.size(12, 60);
    const int dstStep = pick_step(in, dw * ch, true);
    const int mapW = dw + (int)(in.byte() % 4);
    const int mapStep = in.byte() >= 252 ? -mapW * 4 : mapW * 4;
    const bool guard = in.flag();
    const bool nullSrc = in.byte() >= 252, nullMap = in.byte() >= 252;

    // Maps: x and y drawn in turn, so the input decides every coordinate.
    std::vector<float> xm((size_t)mapW * dh), ym(xm.size());
    for (size_t k = 0; k < xm.size(); ++k) {
        xm[k] = pick_coord(in, sw);
        ym[k] = pick_coord(in, sh);
    }

    if (show_calls())
        fprintf(stderr,
                "lumiRemap_8u_C%dR(src %dx%d step %d%s, roi {%d,%d,%d,%d}, maps step %d%s, dst %dx%d "
                "step %d, interpolation %#x), index %d\n",
                ch, sw, sh, srcStep, nullSrc ? " null" : "", roi.x, roi.y, roi.width, roi.height, mapStep,
                nullMap ? " null" : "", dw, dh, dstStep, (unsigned)interp, (int)lumJumpIndexForMergedLibs);

    Image src, dst;
    image_make(src, sh, sw * ch, srcStep, guard, 31);
    image_make(dst, dh, dw * ch, dstStep, guard, 32);
    auto fn = ch == 1 ? lumiRemap_8u_C1R : lumiRemap_8u_C3R;
    const float *xp = mapStep > 0 ? xm.data() : xm.data() + (size_t)mapW * (dh - 1);
    const float *yp = mapStep > 0 ? ym.data() : ym.data() + (size_t)mapW * (dh - 1);
    const LumStatus st = fn(nullSrc ? nullptr : src.first_row(), LumiSize{sw, sh}, srcStep, roi,
                            nullMap ? nullptr : xp, mapStep, yp, mapStep, dst.first_row(), dstStep,
                            LumiSize{dw, dh}, interp);

    check_refusals("remap", st, nullSrc || nullMap, 0);
    check_after_call("remap", st, 0, src, dst);
    // A coordinate that is not a number leaves its pixel alone.
    if (st == lumStsNoErr)
        for (int r = 0; r < dh && dstStep >= dw * ch; ++r)
            for (int i = 0; i < dw; ++i)
                if (isnan(xp[(ptrdiff_t)r * mapW + i]) || isnan(yp[(ptrdiff_t)r * mapW + i]))
                    for (int c = 0; c < ch; ++c) {
                        const ptrdiff_t at = dst.row(r) + i * ch + c - dst.block;
                        if (dst.block[at] != dst.copy[at])
                            fail("remap", "a pixel with a NaN coordinate was written");
                    }

    image_free(src);
    image_free(dst);
    return 0;
}

} // namespace
} // namespace lumifuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    return lumifuzz::run(data, size);
}
