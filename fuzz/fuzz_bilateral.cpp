// Bilateral filter: GetBufSize, Init and the filter on one block.  The block
// is a heap allocation of exactly the size GetBufSize gave (with guard bytes
// around it in guard mode), so a write past it shows at once; the footprint
// and the destination are blocks of exactly their rows.  Init may get any
// step and sigmas (tiny, huge, not a number), and the filter a kernel other
// than Init's, or now and then a block that Init never saw or that was
// damaged after it.  A result is checked to lie between the smallest and the
// largest value of its window.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "alloc_fault.h"
#include "fuzz_common.h"

namespace lumifuzz {
namespace {

float pick_sigma(Input &in)
{
    switch (in.byte() % 8) {
    case 0: return 1e-30f;
    case 1: return 1e30f;
    case 2: return NAN;
    case 3: return INFINITY;
    default: return (float)in.range(1, 20000) / (float)in.range(1, 100);
    }
}

// Every output pixel lies between the extremes of its window.
void check_range(const Image &src, const Image &dst, int w, int h, int rx, int ry)
{
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int lo = 255, hi = 0;
            for (int j = -ry; j <= ry; ++j)
                for (int i = -rx; i <= rx; ++i) {
                    const int p = src.row(y + ry + j)[x + rx + i];
                    lo = p < lo ? p : lo;
                    hi = p > hi ? p : hi;
                }
            const int v = dst.row(y)[x];
            if (v < lo || v > hi)
                fail("bilateral", "a pixel lies outside the range of its window");
        }
}

} // namespace
} // namespace lumifuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace lumifuzz;
    Input in(data, size);
    force_tier(in);
    const int kind = in.byte() < 248 ? lumiFilterBilateralGauss + (int)(in.byte() & 1) : 7;
    int w = in.size(40, 600);
    int h = in.size(8, 100);
    const LumiSize ik = {in.byte() < 220 ? in.range(1, 11) : in.range(1, 600),
                         in.byte() < 220 ? in.range(1, 11) : in.range(1, 600)};
    const int step = in.byte() < 200 ? in.range(1, 4) : in.range(-2, 3000);
    const float vs2 = pick_sigma(in), ps2 = pick_sigma(in);
    // The filter's kernel: Init's, or another one near it.
    LumiSize k = ik;
    if (in.byte() >= 160) {
        k.width = ik.width + in.range(-3, 3);
        k.height = ik.height + in.range(-3, 3);
    }
    const int damage = in.byte() >= 240 ? 1 + (int)(in.byte() % 4) : 0;
    const bool guard = in.flag();
    const int rx = k.width > 0 ? k.width >> 1 : 0, ry = k.height > 0 ? k.height >> 1 : 0;
    const long cells = (long)(2 * rx + 1) * (2 * ry + 1);
    if ((long)w * h * cells > 400000) { // keeps one run short
        h = (int)(400000 / ((long)w * cells)) + 1;
        if ((long)w * h * cells > 800000)
            w = (int)(800000 / cells) + 1;
    }

    int32_t bufSize = 0;
    const LumStatus sizeSt = lumiFilterBilateralGetBufSize_8u_C1R(kind, {w, h}, ik, &bufSize);
    if (kind == 7 ? sizeSt != lumStsBadFilterKindErr : sizeSt != lumStsNoErr)
        fail("bilateral", "GetBufSize gave an unexpected status");
    if (sizeSt != lumStsNoErr)
        return 0;
    if (bufSize > (1 << 24))
        return 0;

    const size_t pad = guard ? 64 : 0;
    uint8_t *raw = (uint8_t *)malloc(bufSize + 2 * pad);
    memset(raw, 0x5A, bufSize + 2 * pad);
    uint8_t *block = raw + pad;

    // Damage 1: the block never sees Init.
    LumStatus st = lumStsContextMatchErr;
    if (damage != 1) {
        lumitest::AllocFault counting;
        st = lumiFilterBilateralInit_8u_C1R(kind, ik, vs2, ps2, step, block);
        if (counting.allocations() != 0)
            fail("bilateral", "Init took memory");
        // Only a sigma at most 0 is refused; one that is not a number is not.
        const bool argsOk = !(vs2 <= 0.0f) && !(ps2 <= 0.0f) && step > 0;
        if (!argsOk && st != lumStsBadArgErr)
            fail("bilateral", "Init accepted a bad argument");
    }
    if (show_calls())
        fprintf(stderr, "kind %d roi %dx%d init %dx%d step %d sigmas %g %g -> %d; filter %dx%d "
                        "damage %d index %d\n",
                kind, w, h, ik.width, ik.height, step, vs2, ps2, st, k.width, k.height, damage,
                (int)lumJumpIndexForMergedLibs);
    if (st == lumStsNoErr && damage >= 2) {
        const int off = block[0];
        if (damage == 2)
            block[0] = (uint8_t)(9 + in.byte() % 247); // 9..255: no distance Init writes
        else if (damage == 3)
            memset(block + off + 8, 0xFF, 8); // radii
        else
            memset(block + off + 16, 0x11, 8); // value table pointer
    }

    Image src, dst;
    const int footW = w + 2 * rx, footH = h + 2 * ry;
    image_make(src, footH, footW, pick_step(in, footW, false), guard, 21);
    image_make(dst, h, w, pick_step(in, w, false), guard, 22);
    const LumStatus fst = lumiFilterBilateral_8u_C1R(src.row(ry) + rx, src.step, dst.first_row(),
                                                     dst.step, {w, h}, k, block);
    // A block that Init refused or that was damaged never passes.
    if ((st != lumStsNoErr || damage != 0) && fst == lumStsNoErr)
        fail("bilateral", "a block Init did not finish was accepted");
    if (fst == lumStsNoErr) {
        check_outside_region(dst, "bilateral destination");
        // Weights that are not numbers give pixels of 0, outside any bound.
        if (!isnan(vs2) && !isnan(ps2) && (long)w * h * (2 * rx + 1) * (2 * ry + 1) <= 60000)
            check_range(src, dst, w, h, rx, ry);
    } else {
        check_unchanged(dst, "bilateral destination");
    }
    check_unchanged(src, "bilateral source");
    for (size_t i = 0; i < pad; ++i)
        if (raw[i] != 0x5A || raw[pad + bufSize + i] != 0x5A)
            fail("bilateral", "a write outside the state block");
    image_free(src);
    image_free(dst);
    free(raw);
    return 0;
}
