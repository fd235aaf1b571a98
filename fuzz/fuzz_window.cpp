// Window filters (box, median): the window's footprint, (w + mw - 1) by
// (h + mh - 1) pixels around the region, is a heap block of exactly that size,
// so a read beyond what the mask covers shows at once.  The destination is a
// block of its own, or the region inside the footprint for the in-place forms.
// Now and then an argument is invalid (the call must fail and write nothing),
// or one of the call's allocations fails (it must report so, leak nothing, and
// an in-place call must leave the image as it was).
#include <stdio.h>

#include <algorithm>
#include <vector>

#include "alloc_fault.h"
#include "fuzz_common.h"

namespace lumifuzz {
namespace {

// The median of every window, compared with a sort.
void check_median(const Image &src, const Image &dst, int ch, int w, int h, int mw, int mh)
{
    std::vector<uint8_t> win((size_t)mw * mh);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < ch; ++c) {
                size_t n = 0;
                for (int j = 0; j < mh; ++j)
                    for (int i = 0; i < mw; ++i)
                        win[n++] = src.row(y + j)[(x + i) * ch + c];
                std::nth_element(win.begin(), win.begin() + n / 2, win.end());
                if (dst.row(dst.y0 + y)[dst.x0 + x * ch + c] != win[n / 2])
                    fail("median", "a pixel is not the median of its window");
            }
}

} // namespace

int run_window_filter(const WindowFns &fns, const uint8_t *data, size_t size)
{
    Input in(data, size);
    force_tier(in);
    const uint32_t form = in.byte() % 4;
    const bool inPlace = form >= 2;
    const int ch = form % 2 ? 3 : 1;
    auto fn = ch == 1 ? fns.c1 : fns.c3;
    auto fnInPlace = ch == 1 ? fns.c1InPlace : fns.c3InPlace;
    if (inPlace && !fnInPlace)
        return 0;

    const int w = in.size(40, 700);
    int h = in.size(12, 200);
    int mw = in.byte() < 200 ? in.range(1, 7) : in.range(1, 41);
    int mh = in.byte() < 200 ? in.range(1, 7) : in.range(1, 41);
    if ((long)w * h * mw * mh > 300000) // keeps one run short
        h = (int)(300000 / ((long)w * mw * mh)) + 1;
    if (fns.median && in.byte() < 240) {
        mw |= 1;
        mh |= 1;
    }
    const int ax = in.range(0, mw - 1), ay = in.range(0, mh - 1);
    const bool guard = in.flag();
    const int footBytes = (w + mw - 1) * ch;
    const int srcStep = pick_step(in, footBytes, false);
    const int dstStep = pick_step(in, w * ch, false);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 8 : 0;
    const int failAt = in.byte() >= 232 ? 1 + (int)(in.byte() % 3) : 0;

    Image src, dst;
    image_make(src, h + mh - 1, footBytes, srcStep, guard, 11);
    if (inPlace)
        image_region(src, ay, ax * ch, h, w * ch);
    else
        image_make(dst, h, w * ch, dstStep, guard, 12);
    Image &out = inPlace ? src : dst;

    const Lum8u *pSrc = src.row(ay) + ax * ch;
    Lum8u *pDst = inPlace ? src.region() : dst.first_row();
    int passSrcStep = srcStep, passDstStep = dstStep;
    LumiSize roi{w, h}, mask{mw, mh};
    LumiPoint anchor{ax, ay};
    switch (invalid) {
    case 1: pDst = nullptr; break;
    case 2:
        pSrc = nullptr;
        pDst = inPlace ? nullptr : pDst;
        break;
    case 3: passSrcStep = -(int)in.byte(); break;
    case 4: passDstStep = -(int)in.byte(); break;
    case 5: (in.flag() ? roi.width : roi.height) = -(int)in.byte(); break;
    case 6: (in.flag() ? mask.width : mask.height) = -(int)in.byte(); break;
    case 7: (in.flag() ? anchor.x : anchor.y) = -1 - (int)in.byte(); break;
    case 8: (in.flag() ? anchor.x = mw : anchor.y = mh); break;
    }
    const bool even = mw % 2 == 0 || mh % 2 == 0;
    const bool mustFail = (invalid != 0 && !(inPlace && invalid == 4)) || (fns.median && even);

    if (show_calls())
        fprintf(stderr,
                "%s C%d%s: roi %dx%d, mask %dx%d, anchor (%d,%d), steps %d %d, invalid case %u, "
                "allocation %d fails, index %d\n",
                fns.median ? "median" : "box", ch, inPlace ? "IR" : "R", roi.width, roi.height,
                mask.width, mask.height, anchor.x, anchor.y, passSrcStep, passDstStep, invalid,
                failAt, (int)lumJumpIndexForMergedLibs);

    LumStatus st;
    int outstanding = 0;
    {
        lumitest::AllocFault fault(failAt);
        if (inPlace)
            st = fnInPlace(pDst, passSrcStep, roi, mask, anchor);
        else
            st = fn(pSrc, passSrcStep, pDst, passDstStep, roi, mask, anchor);
        outstanding = fault.outstanding();
    }

    const char *what = inPlace ? "in-place window filter" : "window filter";
    if (mustFail && st >= 0)
        fail(what, "an invalid argument was accepted");
    if (!mustFail && st != lumStsNoErr && !(failAt && st == lumStsMemAllocErr))
        fail(what, "a valid call failed");
    if (outstanding != 0)
        fail(what, "working memory was not given back");
    if (st == lumStsNoErr) {
        check_outside_region(out, what);
    } else if (st != lumStsMemAllocErr || inPlace || fns.median) {
        check_unchanged(out, what);
    } else {
        check_outside_region(out, what);
    }
    if (!inPlace)
        check_unchanged(src, "source");
    if (st == lumStsNoErr && fns.median && !inPlace && (long)w * h * mw * mh <= 30000)
        check_median(src, dst, ch, w, h, mw, mh);

    image_free(src);
    image_free(dst);
    return 0;
}

} // namespace lumifuzz
