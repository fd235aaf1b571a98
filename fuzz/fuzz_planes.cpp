// Three-channel primitives in the plane copies' shapes: interleaved to three
// planes, three planes to interleaved, and interleaved to interleaved.  Each
// plane is a heap block of its own.  Now and then an argument is made invalid
// (a null pointer, a size below 1): the call must fail and write nothing.
#include <stdio.h>
#include <string.h>

#include "fuzz_common.h"

namespace lumifuzz {
namespace {

enum Shape { kToPlanes, kFromPlanes, kInterleaved };

// The plane copy's rule: plane c, pixel x of row y is byte c of that pixel.
void check_copy(const Image &packed, const Image planes[3], int w, int h)
{
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                if (packed.row(y)[3 * x + c] != planes[c].row(y)[x])
                    fail("plane copy", "a byte differs from the source");
}

} // namespace

int run_three_channel(const ThreeChannelFns *fns, int count, const uint8_t *data, size_t size)
{
    Input in(data, size);
    force_tier(in);
    const uint32_t pick = in.byte() % (uint32_t)(3 * count);
    const ThreeChannelFns &f = fns[pick / 3];
    const Shape shape = (Shape)(pick % 3);
    if ((shape == kToPlanes && !f.toPlanes) || (shape == kFromPlanes && !f.fromPlanes) ||
        (shape == kInterleaved && !f.interleaved))
        return 0;

    // The long paths start at a megabyte; an image that large is asked for
    // on its own, since each run of it takes milliseconds.
    const bool huge = in.byte() == 255;
    int w = in.size(70, 2100), h = in.size(12, 600);
    const long cap = huge ? 1200000 : 65536;
    if ((long)w * h > cap)
        h = (int)(cap / w);
    const bool guard = in.flag();
    const bool contiguous = in.byte() >= 208;
    const int packedStep = contiguous ? 3 * w : pick_step(in, 3 * w, true);
    const int otherStep = contiguous ? (shape == kInterleaved ? 3 * w : w)
                                     : pick_step(in, shape == kInterleaved ? 3 * w : w, true);
    uint32_t invalid = in.byte() >= 240 ? 1 + in.byte() % 6 : 0;
    if (shape == kInterleaved && (invalid == 2 || invalid == 3))
        invalid = 0; // this shape has no planes

    Image packed, planes[3], packedOut;
    image_make(packed, h, 3 * w, packedStep, guard, 1);
    LumStatus st;
    const char *what;
    Image *written[3] = {nullptr, nullptr, nullptr};
    if (shape == kInterleaved) {
        image_make(packedOut, h, 3 * w, otherStep, guard, 5);
        written[0] = &packedOut;
    } else {
        for (int c = 0; c < 3; ++c) {
            image_make(planes[c], h, w, otherStep, guard, 2 + c);
            written[c] = shape == kToPlanes ? &planes[c] : nullptr;
        }
        if (shape == kFromPlanes)
            written[0] = &packed;
    }

    Lum8u *planePtrs[3] = {planes[0].block ? planes[0].first_row() : nullptr,
                           planes[1].block ? planes[1].first_row() : nullptr,
                           planes[2].block ? planes[2].first_row() : nullptr};
    Lum8u *packedPtr = packed.first_row();
    LumiSize roi{w, h};
    bool nullArray = false;
    switch (invalid) {
    case 1: packedPtr = nullptr; break;
    case 2: planePtrs[in.byte() % 3] = nullptr; break;
    case 3: nullArray = true; break;
    case 4: roi.width = -(int)in.byte(); break;
    case 5: roi.height = -(int)in.byte(); break;
    case 6: roi.width = (int)(0x80000000u | in.u32()); break;
    }

    if (show_calls())
        fprintf(
            stderr,
            "three-channel set %u shape %d: roi %dx%d, steps %d %d, invalid case %u, index %d\n",
            pick / 3, (int)shape, roi.width, roi.height, packedStep, otherStep, invalid,
            (int)lumJumpIndexForMergedLibs);

    if (shape == kToPlanes) {
        what = "to planes";
        st = f.toPlanes(packedPtr, packedStep, nullArray ? nullptr : planePtrs, otherStep, roi);
    } else if (shape == kFromPlanes) {
        what = "from planes";
        const Lum8u *const src[3] = {planePtrs[0], planePtrs[1], planePtrs[2]};
        st = f.fromPlanes(nullArray ? nullptr : src, otherStep, packedPtr, packedStep, roi);
    } else {
        what = "interleaved";
        st = f.interleaved(packedPtr, packedStep, packedOut.first_row(), otherStep, roi);
    }

    if (invalid != 0 && st >= 0)
        fail(what, "an invalid argument was accepted");
    if (st != lumStsNoErr && invalid == 0)
        fail(what, "a valid call failed");
    for (Image *img : written)
        if (img)
            (st == lumStsNoErr ? check_outside_region : check_unchanged)(*img, what);
    if (shape != kFromPlanes)
        check_unchanged(packed, "source");
    if (shape == kFromPlanes)
        for (const Image &p : planes)
            check_unchanged(p, "source plane");

    // Steps of zero or overlapping rows leave the last writer's bytes; the rule
    // holds when every row has its own place.
    const bool ownRows = packedStep < 0 || packedStep >= 3 * w;
    const bool ownPlaneRows = otherStep < 0 || otherStep >= w;
    if (st == lumStsNoErr && f.exactCopy && shape != kInterleaved && ownRows && ownPlaneRows)
        check_copy(packed, planes, w, h);

    image_free(packed);
    image_free(packedOut);
    for (Image &p : planes)
        image_free(p);
    return 0;
}

} // namespace lumifuzz
