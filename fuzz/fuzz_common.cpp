#include "fuzz_common.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tier_list.h"

namespace lumifuzz {

void fail(const char *what, const char *detail)
{
    fprintf(stderr, "lumi fuzz finding: %s: %s (dispatch index %d)\n", what, detail,
            (int)lumJumpIndexForMergedLibs);
    abort();
}

bool show_calls()
{
    static const bool show = getenv("LUMI_FUZZ_SHOW") != nullptr;
    return show;
}

int force_tier(Input &in)
{
    // The automatic choice is the highest index this processor runs.
    static const int highest = [] {
        lumStaticInit();
        return lumJumpIndexForMergedLibs < 1 ? 1 : (int)lumJumpIndexForMergedLibs;
    }();
    const int index = 1 + (int)(in.byte() % (uint32_t)highest);
    if (lumStaticInitCpu(lumitest::forcing_code(index)) != lumStsNoErr ||
        lumJumpIndexForMergedLibs != index)
        fail("tier forcing", "lumStaticInitCpu did not select the index");
    return index;
}

static size_t magnitude(int step)
{
    return step < 0 ? (size_t) - (ptrdiff_t)step : (size_t)step;
}

uint8_t *Image::first_row() const
{
    uint8_t *top = block + lead;
    return step >= 0 ? top : top + (size_t)(rows - 1) * magnitude(step);
}

void image_make(Image &img, int rows, int rowBytes, int step, bool guard, uint32_t seed)
{
    img.rows = rows;
    img.rowBytes = rowBytes;
    img.step = step;
    img.span = step == 0 ? (size_t)rowBytes : (size_t)(rows - 1) * magnitude(step) + rowBytes;
    img.lead = img.trail = guard ? 64 : 0;
    const size_t total = img.lead + img.span + img.trail;
    img.block = (uint8_t *)malloc(total);
    img.copy = (uint8_t *)malloc(total);
    if (!img.block || !img.copy)
        fail("harness", "out of memory");
    uint64_t s = seed * 0x9e3779b97f4a7c15ull + 1;
    for (size_t i = 0; i < total; i += 8) {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        const uint64_t v = s ^ (s >> 29);
        memcpy(img.block + i, &v, total - i < 8 ? total - i : 8);
    }
    memcpy(img.copy, img.block, total);
    image_region(img, 0, 0, rows, rowBytes);
}

void image_region(Image &img, int y0, int x0, int regionRows, int regionBytes)
{
    img.y0 = y0;
    img.x0 = x0;
    img.regionRows = regionRows;
    img.regionBytes = regionBytes;
}

void image_free(Image &img)
{
    free(img.block);
    free(img.copy);
    img.block = img.copy = nullptr;
}

// Whether byte `offset` of the block lies in the region.  Rows that overlap
// (a step shorter than the row) only occur with the whole image as region.
static bool in_region(const Image &img, size_t offset)
{
    if (offset < img.lead || offset >= img.lead + img.span)
        return false;
    const size_t q = offset - img.lead;
    const size_t s = magnitude(img.step);
    if (s < (size_t)img.rowBytes)
        return true;
    const size_t k = q / s, col = q % s;
    const size_t r = img.step > 0 ? k : (size_t)img.rows - 1 - k;
    return r >= (size_t)img.y0 && r < (size_t)(img.y0 + img.regionRows) && col >= (size_t)img.x0 &&
           col < (size_t)(img.x0 + img.regionBytes);
}

static void outside_changed(const Image &img, size_t from, size_t to, const char *what)
{
    if (memcmp(img.block + from, img.copy + from, to - from) == 0)
        return;
    for (size_t i = from; i < to; ++i)
        if (img.block[i] != img.copy[i] && !in_region(img, i)) {
            char detail[96];
            snprintf(detail, sizeof detail, "byte %zd from the first row in memory changed",
                     (ptrdiff_t)i - (ptrdiff_t)img.lead);
            fail(what, detail);
        }
}

void check_outside_region(const Image &img, const char *what)
{
    const size_t total = img.lead + img.span + img.trail;
    const size_t s = magnitude(img.step);
    if (s < (size_t)img.rowBytes) { // rows overlap: the region is the whole span
        outside_changed(img, 0, img.lead, what);
        outside_changed(img, img.lead + img.span, total, what);
        return;
    }
    // Row by row in memory order: what lies before the region's bytes of the
    // row and what lies after them, up to the next row's region.
    size_t from = 0;
    for (int k = 0; k < img.rows; ++k) {
        const int r = img.step > 0 ? k : img.rows - 1 - k;
        if (r < img.y0 || r >= img.y0 + img.regionRows)
            continue;
        const size_t start = img.lead + (size_t)k * s + img.x0;
        outside_changed(img, from, start, what);
        from = start + img.regionBytes;
    }
    outside_changed(img, from, total, what);
}

void check_unchanged(const Image &img, const char *what)
{
    if (memcmp(img.block, img.copy, img.lead + img.span + img.trail) != 0)
        fail(what, "written although it must not be");
}

void check_refusals(const char *what, LumStatus st, bool nullGiven, int failAt)
{
    if (nullGiven && st != lumStsNullPtrErr)
        fail(what, "a null pointer was accepted");
    if (st == lumStsMemAllocErr && !failAt)
        fail(what, "an allocation failed that was not made to");
}

void check_after_call(const char *what, LumStatus st, int outstanding, const Image &src,
                      const Image &dst)
{
    if (outstanding != 0)
        fail(what, "working memory was not given back");
    if (st == lumStsNoErr)
        check_outside_region(dst, what);
    else
        check_unchanged(dst, what);
    char source[96];
    snprintf(source, sizeof source, "%s source", what);
    check_unchanged(src, source);
}

int pick_step(Input &in, int rowBytes, bool oddStepsAllowed)
{
    const uint32_t mode = in.byte() % 16;
    if (mode < 12)
        return rowBytes + (int)(in.byte() % 48);
    if (mode < 14 || !oddStepsAllowed)
        return rowBytes;
    if (mode == 14)
        return -(rowBytes + (int)(in.byte() % 8));
    return (int)(in.byte() % 2) * (rowBytes / 2); // zero, or rows that overlap
}

LumiRect pick_region(Input &in, int sw, int sh)
{
    LumiRect roi{0, 0, sw, sh};
    const uint32_t roiMode = in.byte();
    if (roiMode >= 128) {
        roi.x = in.range(0, sw - 1);
        roi.y = in.range(0, sh - 1);
        roi.width = in.range(1, sw - roi.x + 2);
        roi.height = in.range(1, sh - roi.y + 2);
        if (roiMode >= 248) // outside the image, or a negative origin
            (in.flag() ? roi.x : roi.y) = in.flag() ? -(int)in.range(1, 4) : sw + sh;
    }
    return roi;
}

} // namespace lumifuzz
