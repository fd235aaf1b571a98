// Convolution, integer and float kernels, one and three channels.  The
// footprint, (w + kw - 1) by (h + kh - 1) pixels, is a heap block of exactly
// that size, so a read past the window shows at once; the anchor is free and
// only moves the window.  Integer results are exact on every path and tier,
// so they are compared with a direct sum; float results are checked for
// where they land.  Now and then an argument is invalid (the call must fail
// and write nothing) or the working block is refused (the call must still
// succeed, on the plain path, and hold nothing afterwards).
#include <math.h>
#include <stdio.h>

#include <vector>

#include "alloc_fault.h"
#include "fuzz_common.h"

namespace {

using lumifuzz::Image;
using lumifuzz::Input;

uint8_t clamp_byte(int64_t v) { return (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v); }

// One output byte of the integer form, from the arithmetic as defined: the
// sum wraps at 32 bits, then ties-to-even division by a power of two, or the
// single-precision reciprocal.
uint8_t expect_int(uint32_t sum, int32_t divisor)
{
    const int64_t v = (int32_t)sum;
    if (divisor == 1)
        return clamp_byte(v);
    const uint32_t u = (uint32_t)divisor;
    if ((u & (u - 1)) == 0) {
        const int64_t d = (int64_t)u;
        int64_t q = v >= 0 ? v / d : -((-v + d - 1) / d);
        const int64_t rem = v - q * d;
        if (2 * rem > d || (2 * rem == d && (q & 1)))
            ++q;
        return clamp_byte(q);
    }
    const float f = (float)v * (1.0f / (float)divisor);
    return f >= 255.0f ? 255 : clamp_byte((int64_t)nearbyintf(f));
}

int32_t pick_int_cell(Input &in, uint32_t kind)
{
    switch (kind) {
    case 0: return in.range(-3, 3);           // small: the 16-bit bodies
    case 1: return in.range(0, 40);           // non-negative, up to the byte limit
    case 2: return in.range(-32767, 32766);   // the 16-bit pair body
    default: return (int32_t)in.u32();        // anything: the plain path, wrapping sums
    }
}

float pick_float_cell(Input &in)
{
    switch (in.byte() % 16) {
    case 0: return NAN;
    case 1: return in.flag() ? INFINITY : -INFINITY;
    case 2: return 0.5f;
    default: return (float)in.range(-2000, 2000) / 256.0f;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in(data, size);
    lumifuzz::force_tier(in);
    const uint32_t form = in.byte() % 4;
    const bool floats = form >= 2;
    const int ch = form % 2 ? 3 : 1;

    const int w = in.size(48, 700);
    int h = in.size(8, 120);
    const int kw = in.byte() < 220 ? in.range(1, 8) : in.range(1, 40);
    const int kh = in.byte() < 220 ? in.range(1, 8) : in.range(1, 40);
    if ((long)w * h * kw * kh > 300000) // keeps one run short
        h = (int)(300000 / ((long)w * kw * kh)) + 1;
    const int ax = in.range(-2, kw + 1), ay = in.range(-2, kh + 1);
    const uint32_t kind = in.byte() % 4;
    std::vector<int32_t> ki((size_t)kw * kh);
    std::vector<float> kf((size_t)kw * kh);
    for (size_t i = 0; i < ki.size(); ++i) {
        if (floats)
            kf[i] = pick_float_cell(in);
        else
            ki[i] = pick_int_cell(in, kind);
    }
    static const int32_t kDivisors[] = {1, 2, 4, 16, 256, 3, -1, -7, 1 << 20, INT32_MIN};
    const int32_t divisor = kDivisors[in.byte() % 10];
    const bool guard = in.flag();
    const int footBytes = (w + kw - 1) * ch;
    const int srcStep = lumifuzz::pick_step(in, footBytes, false);
    const int dstStep = lumifuzz::pick_step(in, w * ch, false);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 6 : 0;
    const int failAt = in.byte() >= 224 ? 1 : 0;

    Image src, dst;
    lumifuzz::image_make(src, h + kh - 1, footBytes, srcStep, guard, 21);
    lumifuzz::image_make(dst, h, w * ch, dstStep, guard, 22);
    // The anchor cell lies over pSrc: kw - 1 - ax pixels from the footprint's
    // left edge, kh - 1 - ay rows down (the window is mirrored).
    const Lum8u *pSrc = src.row(0) + (ptrdiff_t)(kh - 1 - ay) * srcStep + (ptrdiff_t)(kw - 1 - ax) * ch;
    Lum8u *pDst = dst.first_row();
    const void *pKernel = floats ? (const void *)kf.data() : (const void *)ki.data();
    int passSrcStep = srcStep, passDstStep = dstStep, passDivisor = divisor;
    LumiSize roi{w, h}, ksize{kw, kh};
    switch (invalid) {
    case 1: pDst = nullptr; break;
    case 2: pKernel = nullptr; break;
    case 3: passSrcStep = footBytes - 1 - (int)in.byte(); break;
    case 4: passDstStep = w * ch - 1 - (int)in.byte(); break;
    case 5: (in.flag() ? roi.width : ksize.height) = -(int)in.byte(); break;
    case 6: passDivisor = 0; break;
    }
    const bool mustFail = invalid != 0 && !(invalid == 6 && floats);

    if (lumifuzz::show_calls())
        fprintf(stderr,
                "filter%s C%d: roi %dx%d, kernel %dx%d (kind %u), anchor (%d,%d), divisor %d, "
                "steps %d %d, invalid case %u, allocation %d fails, index %d\n",
                floats ? "32f" : "", ch, roi.width, roi.height, ksize.width, ksize.height, kind,
                ax, ay, passDivisor, passSrcStep, passDstStep, invalid, failAt,
                (int)lumJumpIndexForMergedLibs);

    LumStatus st;
    int outstanding = 0;
    {
        lumitest::AllocFault fault(failAt);
        if (floats)
            st = (ch == 1 ? lumiFilter32f_8u_C1R : lumiFilter32f_8u_C3R)(
                pSrc, passSrcStep, pDst, passDstStep, roi, (const Lum32f *)pKernel, ksize, {ax, ay});
        else
            st = (ch == 1 ? lumiFilter_8u_C1R : lumiFilter_8u_C3R)(
                pSrc, passSrcStep, pDst, passDstStep, roi, (const Lum32s *)pKernel, ksize, {ax, ay},
                passDivisor);
        outstanding = fault.outstanding();
    }

    const char *what = floats ? "float convolution" : "integer convolution";
    if (mustFail && st >= 0)
        lumifuzz::fail(what, "an invalid argument was accepted");
    if (!mustFail && st != lumStsNoErr)
        lumifuzz::fail(what, "a valid call failed");
    lumifuzz::check_after_call(what, st, outstanding, src, dst);

    if (st == lumStsNoErr && !floats && (long)w * h * kw * kh <= 60000)
        for (int y = 0; y < h; ++y)
            for (int b = 0; b < w * ch; ++b) {
                uint32_t sum = 0;
                for (int j = 0; j < kh; ++j)
                    for (int i = 0; i < kw; ++i)
                        sum += (uint32_t)ki[(size_t)j * kw + i] *
                               src.row(y + kh - 1 - j)[b + (kw - 1 - i) * ch];
                if (dst.row(y)[b] != expect_int(sum, divisor))
                    lumifuzz::fail(what, "a pixel differs from the direct sum");
            }

    lumifuzz::image_free(src);
    lumifuzz::image_free(dst);
    return 0;
}
