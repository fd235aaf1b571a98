// Colour median filter: the footprint, (w + k - 1) by (h + k - 1) pixels, is
// a heap block of exactly that size and the destination a block of its own.
// Pictures of a few colours make ties between distinct colours common.  Now
// and then an argument is invalid (the call must fail and write nothing).
// A result is compared with the vector median written from its definition.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "alloc_fault.h"
#include "fuzz_common.h"

namespace {

using lumifuzz::Image;

// The first cell of the window, in row-major order, whose summed distance to
// the window's pixels is smallest; its pixel must be the output.
void check_median(const Image &src, const Image &dst, int w, int h, int k)
{
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint8_t *best = nullptr;
            int bestScore = 0;
            for (int a = 0; a < k * k; ++a) {
                const uint8_t *p = src.row(y + a / k) + 3 * (x + a % k);
                int score = 0;
                for (int b = 0; b < k * k; ++b) {
                    const uint8_t *q = src.row(y + b / k) + 3 * (x + b % k);
                    score += abs(p[0] - q[0]) + abs(p[1] - q[1]) + abs(p[2] - q[2]);
                }
                if (!best || score < bestScore)
                    best = p, bestScore = score;
            }
            if (memcmp(dst.row(y) + 3 * x, best, 3) != 0)
                lumifuzz::fail("colour median", "a pixel is not the vector median of its window");
        }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace lumifuzz;
    Input in(data, size);
    force_tier(in);
    const int k = in.flag() ? 5 : 3;
    const int w = in.size(150, 2000);
    int h = in.size(12, 200);
    if ((long)w * h > 12000) // keeps one run short: edges and strips matter, not area
        h = (int)(12000 / w) + 1;
    const int shade = (int)(in.byte() % 8);
    const int levels = shade < 4 ? shade + 1 : 256; // 1 is a flat picture
    const bool guard = in.flag();
    const int footBytes = (w + k - 1) * 3;
    const int srcStep = pick_step(in, footBytes, false);
    const int dstStep = pick_step(in, w * 3, false);
    const uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 5 : 0;

    Image src, dst;
    image_make(src, h + k - 1, footBytes, srcStep, guard, 21);
    image_make(dst, h, w * 3, dstStep, guard, 22);
    if (levels < 256) {
        for (int r = 0; r < src.rows; ++r)
            for (int i = 0; i < footBytes; ++i)
                src.row(r)[i] = (uint8_t)(src.row(r)[i] % levels * (255 / levels));
        memcpy(src.copy, src.block, src.lead + src.span + src.trail);
    }

    const Lum8u *pSrc = src.row(k / 2) + 3 * (k / 2);
    Lum8u *pDst = dst.first_row();
    int passSrcStep = srcStep, passDstStep = dstStep;
    LumiSize roi{w, h};
    LumiMaskSize mask = k == 3 ? lumMaskSize3x3 : lumMaskSize5x5;
    switch (invalid) {
    case 1: pDst = nullptr; break;
    case 2: pSrc = nullptr; break;
    case 3: (in.flag() ? passSrcStep : passDstStep) = -(int)in.byte(); break;
    case 4: (in.flag() ? roi.width : roi.height) = -(int)in.byte(); break;
    case 5: {
        static const int kOther[] = {0, 11, 13, 15, 31, 51, 34, 53, 63, 1};
        mask = (LumiMaskSize)kOther[in.byte() % 10];
        break;
    }
    }
    const bool mustFail = invalid != 0;

    if (show_calls())
        fprintf(stderr,
                "median colour: roi %dx%d, mask %d, steps %d %d, %d levels, invalid case %u, "
                "index %d\n",
                roi.width, roi.height, (int)mask, passSrcStep, passDstStep, levels, invalid,
                (int)lumJumpIndexForMergedLibs);

    LumStatus st;
    {
        lumitest::AllocFault none;
        st = lumiFilterMedianColor_8u_C3R(pSrc, passSrcStep, pDst, passDstStep, roi, mask);
        if (none.allocations() != 0)
            fail("colour median", "the filter took working memory");
    }
    if (mustFail && st >= 0)
        fail("colour median", "an invalid argument was accepted");
    if (!mustFail && st != lumStsNoErr)
        fail("colour median", "a valid call failed");
    if (st == lumStsNoErr)
        check_outside_region(dst, "colour median");
    else
        check_unchanged(dst, "colour median");
    check_unchanged(src, "source");
    if (st == lumStsNoErr && (long)w * h * k * k <= 20000)
        check_median(src, dst, w, h, k);

    image_free(src);
    image_free(dst);
    return 0;
}
