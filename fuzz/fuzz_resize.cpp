// Resize: an image of exactly its rows, a region that may reach past it or
// start outside it, factors from a list of usual ratios, free ratios and
// unusable values (zero, negative, not a number, huge), every selector, and a
// destination limit.  Checks: the source is never written, nothing outside the
// destination limit is, a failed call writes nothing, and working memory is
// given back also when one of the allocations fails.
#include <math.h>
#include <stdio.h>

#include <algorithm>

#include "fuzz_common.h"

namespace lumifuzz {
namespace {

double pick_factor(Input &in)
{
    static const double usual[] = {0.5, 1.0, 2.0,   0.25, 1.5, 0.75, 1.0 / 3, 3.0,
                                   0.1, 8.0, 0.125, 4.0,  0.6, 1.7,  0.999,   1.001};
    static const double unusable[] = {0.0, -1.0, NAN, INFINITY, 1e-9, 1e9, 4.9e-324, -0.0};
    const uint32_t mode = in.byte();
    if (mode < 128)
        return usual[mode % (sizeof usual / sizeof usual[0])];
    if (mode < 248)
        return (1.0 + in.byte()) / (1.0 + in.byte());
    return unusable[mode % (sizeof unusable / sizeof unusable[0])];
}

int pick_method(Input &in)
{
    static const int methods[] = {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC,
                                  LUMI_INTER_SUPER, LUMI_INTER_LANCZOS};
    const uint32_t mode = in.byte();
    return mode < 250 ? methods[mode % 5] : (int)in.u32();
}

int run(const uint8_t *data, size_t size)
{
    Input in(data, size);
    force_tier(in);
    const int ch = in.flag() ? 3 : 1;
    int sw = in.size(60, 1200), sh = in.size(40, 400);
    if ((long)sw * sh > 400000)
        sh = 400000 / sw;
    const int srcStep = pick_step(in, sw * ch, true);
    const LumiRect roi = pick_region(in, sw, sh);
    double fx = pick_factor(in), fy = pick_factor(in);
    const int method = pick_method(in);
    // Supersampling takes shrinking factors only; most of its runs get them.
    if (method == LUMI_INTER_SUPER && in.byte() < 192) {
        fx = fx > 1.0 ? 1.0 / fx : fx;
        fy = fy > 1.0 ? 1.0 / fy : fy;
    }
    const int dw = in.size(100, 1500), dh = in.size(60, 400);
    const int dstStep = pick_step(in, dw * ch, true);
    const bool guard = in.flag();
    const int failAt = in.byte() >= 232 ? 1 + (int)(in.byte() % 6) : 0;
    const bool nullSrc = in.byte() >= 252, nullDst = in.byte() >= 252;

    if (show_calls())
        fprintf(stderr,
                "lumiResize_8u_C%dR(src %dx%d step %d%s, roi {%d,%d,%d,%d}, dst %dx%d step %d%s, "
                "factors %.17g %.17g, method %d), allocation %d fails, index %d\n",
                ch, sw, sh, srcStep, nullSrc ? " null" : "", roi.x, roi.y, roi.width, roi.height,
                dw, dh, dstStep, nullDst ? " null" : "", fx, fy, method, failAt,
                (int)lumJumpIndexForMergedLibs);

    Image src, dst;
    image_make(src, sh, sw * ch, srcStep, guard, 21);
    image_make(dst, dh, dw * ch, dstStep, guard, 22);
    auto fn = ch == 1 ? lumiResize_8u_C1R : lumiResize_8u_C3R;
    call_and_check("resize", nullSrc || nullDst, failAt, src, dst, [&] {
        return fn(nullSrc ? nullptr : src.first_row(), LumiSize{sw, sh}, srcStep, roi,
                  nullDst ? nullptr : dst.first_row(), dstStep, LumiSize{dw, dh}, fx, fy, method);
    });

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
