// Gaussian, minimum and maximum filters: one harness for the three.
//
// The footprint (the region plus the window's reach on every side) is a heap
// block of exactly its size, so a read past it shows at once.  Every output
// pixel of a small enough call is compared with a plain evaluation of its
// window.  Now and then an argument is invalid (the call must fail and write
// nothing) or one of the call's allocations fails (it must say so, leak
// nothing and write nothing).
#include <stdio.h>

#include "alloc_fault.h"
#include "fuzz_common.h"

namespace {

using lumifuzz::Image;

int gauss_weight(int k, int i, int j) // i, j from the window's centre
{
    static const int w3[3] = {1, 2, 1};
    static const int w5[3][5] = {{2, 7, 12, 7, 2}, {7, 31, 52, 31, 7}, {12, 52, 127, 52, 12}};
    if (k == 3)
        return w3[i + 1] * w3[j + 1];
    return w5[2 - (i < 0 ? -i : i)][j + 2];
}

void check_gauss(const Image &src, const Image &dst, int ch, int w, int h, int k)
{
    const int r = k / 2;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w * ch; ++x) {
            uint32_t s = 0;
            for (int i = -r; i <= r; ++i)
                for (int j = -r; j <= r; ++j)
                    s += (uint32_t)gauss_weight(k, i, j) * src.row(y + r + i)[x + (r + j) * ch];
            const uint32_t want = k == 3 ? (s + ((s >> 4) & 1) + 7) >> 4
                                         : (uint32_t)(((uint64_t)(s + 286) * 29382u) >> 24);
            if (dst.row(y)[x] != want)
                lumifuzz::fail("gauss", "a pixel differs from its weighted window");
        }
}

void check_extreme(const Image &src, const Image &dst, bool max, int w, int h, int mw, int mh)
{
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v = src.row(y)[x];
            for (int j = 0; j < mh; ++j)
                for (int i = 0; i < mw; ++i) {
                    const int s = src.row(y + j)[x + i];
                    v = max ? (s > v ? s : v) : (s < v ? s : v);
                }
            if (dst.row(y)[x] != v)
                lumifuzz::fail(max ? "max" : "min", "a pixel is not the extreme of its window");
        }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    lumifuzz::Input in(data, size);
    lumifuzz::force_tier(in);
    const uint32_t form = in.byte() % 4; // gauss C1, gauss C3, min, max
    const bool gauss = form < 2;
    const int ch = form == 1 ? 3 : 1;

    const int w = in.size(40, 700);
    int h = in.size(12, 200);
    int mw, mh, ax = 0, ay = 0, k = 0;
    if (gauss) {
        k = in.flag() ? 5 : 3;
        mw = mh = k;
    } else {
        mw = in.byte() < 200 ? in.range(1, 7) : in.range(1, 41);
        mh = in.byte() < 200 ? in.range(1, 7) : in.range(1, 41);
        ax = in.range(0, mw - 1);
        ay = in.range(0, mh - 1);
    }
    if ((long)w * h * mw * mh > 300000) // keeps one run short
        h = (int)(300000 / ((long)w * mw * mh)) + 1;
    const bool guard = in.flag();
    const int footBytes = (w + mw - 1) * ch;
    const int srcStep = lumifuzz::pick_step(in, footBytes, false);
    const int dstStep = lumifuzz::pick_step(in, w * ch, false);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 8 : 0;
    const int failAt = in.byte() >= 232 ? 1 + (int)(in.byte() % 3) : 0;

    Image src, dst;
    lumifuzz::image_make(src, h + mh - 1, footBytes, srcStep, guard, 21);
    lumifuzz::image_make(dst, h, w * ch, dstStep, guard, 22);

    // The window is centred for the Gaussian: its anchor is (k / 2, k / 2).
    const int cx = gauss ? k / 2 : ax, cy = gauss ? k / 2 : ay;
    const Lum8u *pSrc = src.row(cy) + cx * ch;
    Lum8u *pDst = dst.first_row();
    int passSrcStep = srcStep, passDstStep = dstStep;
    LumiSize roi{w, h}, mask{mw, mh};
    LumiPoint anchor{ax, ay};
    LumiMaskSize sel = k == 3 ? lumMaskSize3x3 : lumMaskSize5x5;
    switch (invalid) {
    case 1: pDst = nullptr; break;
    case 2: pSrc = nullptr; break;
    case 3: passSrcStep = -(int)in.byte(); break;
    case 4: passDstStep = -(int)in.byte(); break;
    case 5: (in.flag() ? roi.width : roi.height) = -(int)in.byte(); break;
    case 6:
        if (gauss)
            sel = (LumiMaskSize)(in.flag() ? 31 : 13);
        else
            (in.flag() ? mask.width : mask.height) = -(int)in.byte();
        break;
    case 7:
        if (gauss) {
            // A byte that happens to name the other valid selector would make a valid
            // call whose window the check below does not evaluate: step past it.
            const int b = (int)in.byte();
            sel = (LumiMaskSize)(b == lumMaskSize3x3 || b == lumMaskSize5x5 ? b + 1 : b);
        } else
            (in.flag() ? anchor.x : anchor.y) = -1 - (int)in.byte();
        break;
    case 8:
        if (!gauss)
            (in.flag() ? anchor.x = mw : anchor.y = mh);
        break;
    }
    const bool mustFail = invalid != 0 && !(gauss && invalid == 8);

    if (lumifuzz::show_calls())
        fprintf(stderr,
                "form %u: roi %dx%d, mask %dx%d (selector %d), anchor (%d,%d), steps %d %d, "
                "invalid case %u, allocation %d fails, index %d\n",
                form, roi.width, roi.height, mask.width, mask.height, (int)sel, anchor.x,
                anchor.y, passSrcStep, passDstStep, invalid, failAt,
                (int)lumJumpIndexForMergedLibs);

    LumStatus st;
    int outstanding = 0;
    {
        lumitest::AllocFault fault(failAt);
        if (gauss)
            st = (ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R)(
                pSrc, passSrcStep, pDst, passDstStep, roi, sel);
        else
            st = (form == 2 ? lumiFilterMin_8u_C1R : lumiFilterMax_8u_C1R)(
                pSrc, passSrcStep, pDst, passDstStep, roi, mask, anchor);
        outstanding = fault.outstanding();
    }

    const char *what = gauss ? "gauss" : form == 2 ? "min" : "max";
    if (mustFail && st >= 0)
        lumifuzz::fail(what, "an invalid argument was accepted");
    if (!mustFail && st != lumStsNoErr && !(failAt && st == lumStsMemAllocErr))
        lumifuzz::fail(what, "a valid call failed");
    lumifuzz::check_after_call(what, st, outstanding, src, dst);
    if (st == lumStsNoErr && (long)w * h * mw * mh * ch <= 40000) {
        if (gauss)
            check_gauss(src, dst, ch, w, h, k);
        else
            check_extreme(src, dst, form == 3, w, h, mw, mh);
    }

    lumifuzz::image_free(src);
    lumifuzz::image_free(dst);
    return 0;
}
