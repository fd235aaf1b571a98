// Rotate: the six public forms with angles from the quarter turns and their
// neighbours, free angles and unusable values (not a number, infinite,
// huge), whole, half and free shifts, a source region that may reach past
// the image or start outside it, a destination region inside the image,
// every selector with and without the soft edge.  Checks: the source is
// never written, nothing outside dstRoi is, a call that fails or warns writes
// nothing, and working memory is given back also when an allocation fails.
#include <math.h>
#include <stdio.h>

#include "fuzz_common.h"

namespace lumifuzz {
namespace {

double pick_angle(Input &in)
{
    static const double usual[] = {90, 180, 270, -90, 450, 0, 12, 45, -30, 90.0000001, 359.99, 720, 1e-12, -180};
    static const double unusable[] = {NAN, INFINITY, -INFINITY, 1e300, -1e12, 4.9e-324};
    const uint32_t mode = in.byte();
    if (mode < 160)
        return usual[mode % (sizeof usual / sizeof usual[0])];
    if (mode < 248)
        return ((double)in.u32() - 2147483648.0) / 65536.0;
    return unusable[mode % (sizeof unusable / sizeof unusable[0])];
}

double pick_shift(Input &in, int span)
{
    const uint32_t mode = in.byte();
    if (mode < 128)
        return (double)in.range(-span, 2 * span);
    if (mode < 200)
        return (double)in.range(-span, 2 * span) + 0.5;
    if (mode < 248)
        return ((double)in.u32() - 2147483648.0) / 1048576.0;
    static const double unusable[] = {NAN, INFINITY, 1e300, -3e9, 2147483648.0, -2147483649.0};
    return unusable[mode % (sizeof unusable / sizeof unusable[0])];
}

int pick_selector(Input &in)
{
    static const int sels[] = {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM,
                               LUMI_INTER_LANCZOS};
    const uint32_t mode = in.byte();
    const int soft = mode & 1 ? LUMI_SMOOTH_EDGE : 0;
    return (mode < 250 ? sels[(mode >> 1) % 5] : (int)in.u32()) | soft;
}

int run(const uint8_t *data, size_t size)
{
    Input in(data, size);
    force_tier(in);
    const uint32_t form = in.byte() % 6;
    const int ch = form % 3 == 0 ? 1 : form % 3 == 1 ? 3 : 4;
    const bool centre = form >= 3;
    const int sw = in.size(40, 700), sh = in.size(40, 500);
    const int srcStep = pick_step(in, sw * ch, false);
    const LumiRect roi = pick_region(in, sw, sh);
    const int dw = in.size(48, 700), dh = in.size(48, 500);
    const int dstStep = pick_step(in, dw * ch, false);
    LumiRect dr{0, 0, dw, dh};
    if (in.flag()) {
        dr.x = in.range(0, dw - 1), dr.y = in.range(0, dh - 1);
        dr.width = in.range(1, dw - dr.x), dr.height = in.range(1, dh - dr.y);
    }
    const double angle = pick_angle(in);
    const double xs = pick_shift(in, dw), ys = pick_shift(in, dh);
    const int sel = pick_selector(in);
    const bool guard = in.flag();
    const int failAt = in.byte() >= 200 ? 1 + (int)(in.byte() % 3) : 0;
    const bool nullSrc = in.byte() >= 252, nullDst = in.byte() >= 252;

    if (show_calls())
        fprintf(stderr,
                "lumiRotate%s_8u_C%dR(src %dx%d step %d%s, roi {%d,%d,%d,%d}, dst %dx%d step %d%s, "
                "dstRoi {%d,%d,%d,%d}, angle %.17g, %.17g %.17g, selector %d), allocation %d fails, index %d\n",
                centre ? "Center" : "", ch, sw, sh, srcStep, nullSrc ? " null" : "", roi.x, roi.y, roi.width,
                roi.height, dw, dh, dstStep, nullDst ? " null" : "", dr.x, dr.y, dr.width, dr.height, angle, xs,
                ys, sel, failAt, (int)lumJumpIndexForMergedLibs);

    Image src, dst;
    image_make(src, sh, sw * ch, srcStep, guard, 31);
    image_make(dst, dh, dw * ch, dstStep, guard, 32);
    image_region(dst, dr.y, dr.x * ch, dr.height, dr.width * ch);
    static decltype(&lumiRotate_8u_C1R) const plain[3] = {lumiRotate_8u_C1R, lumiRotate_8u_C3R, lumiRotate_8u_C4R};
    static decltype(&lumiRotateCenter_8u_C1R) const about[3] = {lumiRotateCenter_8u_C1R, lumiRotateCenter_8u_C3R,
                                                                lumiRotateCenter_8u_C4R};
    const Lum8u *s = nullSrc ? nullptr : src.first_row();
    Lum8u *d = nullDst ? nullptr : dst.first_row();
    call_and_check("rotate", nullSrc || nullDst, failAt, src, dst, [&] {
        return (centre ? about : plain)[form % 3](s, LumiSize{sw, sh}, srcStep, roi, d, dstStep, dr, angle, xs,
                                                  ys, sel);
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
