// Supersampling resize against a plain reference written from its
// arithmetic: the four modes (whole and fractional ratios in each axis), the
// carries, the order of float additions per form and tier, narrow regions in
// both forms, reads below the region but never past the image, worked
// values, guards, signed steps and allocation failures on every dispatch
// index.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/resize_ref.h"
#include "support/tiers.h"

using namespace lumitest;

namespace {

// Sum of count terms get(from), get(from + 1), ... onto s.  lanes 1: in
// order; 8: the one-channel lanes, combined 0 4 1 5 2 6 3 7; 4: the
// three-channel lanes of the SSE4.1 and AVX tiers, combined 0 1 2 3.
template <typename Get>
float add_terms(float s, Get get, int from, int count, int lanes)
{
    if (lanes == 1 || count < 8) {
        for (int j = 0; j < count; ++j)
            s += get(from + j);
        return s;
    }
    std::vector<float> lane(lanes, 0.0f);
    lane[0] = s;
    const int full = count / lanes * lanes;
    for (int j = 0; j < full; ++j)
        lane[j % lanes] += get(from + j);
    static const int kOrder8[8] = {0, 4, 1, 5, 2, 6, 3, 7};
    float r = lane[lanes == 8 ? kOrder8[0] : 0];
    for (int l = 1; l < lanes; ++l)
        r += lane[lanes == 8 ? kOrder8[l] : l];
    for (int j = full; j < count; ++j)
        r += get(from + j);
    return r;
}

struct SuperPlan {
    double xr, yr, fx, fy, norm;
    int rx, ry, used, mode;
};

SuperPlan plan(int W, int roiW, double xf, double yf)
{
    SuperPlan p;
    p.xr = 1.0 / xf;
    p.yr = 1.0 / yf;
    p.norm = xf * yf;
    p.rx = (int)floor(p.xr);
    p.ry = (int)floor(p.yr);
    p.fx = p.xr - p.rx < 1e-7 ? 0.0 : p.xr - p.rx;
    p.fy = p.yr - p.ry < 1e-7 ? 0.0 : p.yr - p.ry;
    p.used = std::min((int)((double)(float)(W + 1) * p.xr) + 1, roiW);
    p.mode = (p.fx != 0.0 ? 2 : 0) + (p.fy != 0.0 ? 1 : 0);
    return p;
}

uint8_t out_byte(double a, double norm)
{
    return (uint8_t)(int64_t)(a * norm + 0.5);
}

// index: the dispatch index (4 and 5 run the three-channel lanes).
std::vector<uint8_t> super_reference(const View &img, LumiRect roi, int W, int H, double xf,
                                     double yf, int index)
{
    const LumiRect cut = cut_roi(roi, img.w, img.h);
    const SuperPlan p = plan(W, cut.width, xf, yf);
    const int ch = img.ch, rowsLeft = img.h - cut.y;
    const int lanes = ch == 1 ? 8 : index >= 4 ? 4 : 1;
    // A row past the image counts as zeros.
    auto pix = [&](int r, int x, int k) { return r < rowsLeft ? img.at(cut.x + x, cut.y + r, k) : 0; };
    std::vector<uint8_t> out((size_t)W * H * ch);
    for (int k = 0; k < ch; ++k) {
        int r = 0;
        double carryY = p.fy;
        for (int i = 0; i < H; ++i) {
            uint8_t *o = &out[(size_t)i * W * ch + k];
            if (p.mode == 0) {
                std::vector<uint32_t> col(p.used, 0);
                for (int j = 0; j < p.ry; ++j)
                    for (int x = 0; x < p.used; ++x)
                        col[x] += pix(r + j, x, k);
                r += p.ry;
                std::vector<uint32_t> blk = col;
                const int nb = ch == 1 ? (p.used + p.rx - 1) / p.rx
                                       : p.used >= p.rx ? (p.used - p.rx) / p.rx + 1 : 0;
                for (int b = 0; b < nb; ++b) {
                    uint32_t s = 0;
                    for (int j = 0; j < p.rx; ++j)
                        s += b * p.rx + j < p.used ? col[b * p.rx + j] : 0;
                    blk[b] = s;
                }
                for (int e = 0; e < W; ++e)
                    o[e * ch] = out_byte(blk[e], p.norm);
                continue;
            }
            std::vector<float> col(p.used, 0.0f);
            auto whole = [&](int row) {
                for (int x = 0; x < p.used; ++x)
                    col[x] = col[x] + (float)pix(row, x, k);
            };
            auto part = [&](int row, double w) {
                for (int x = 0; x < p.used; ++x)
                    col[x] = (float)((double)pix(row, x, k) * w) + col[x];
            };
            if (p.mode == 2 || i == 0) {
                for (int j = 0; j < p.ry; ++j)
                    whole(r++);
                if (p.mode != 2 && carryY != 0.0)
                    part(r, carryY);
            } else {
                const double top = 1.0 - carryY, t = p.yr - top;
                const int n = (int)floor(t + 1e-7);
                carryY = t - n;
                if (top > 1e-7)
                    part(r++, top);
                for (int j = 0; j < n; ++j)
                    whole(r++);
                if (carryY > 1e-7)
                    part(r, carryY);
            }
            auto get = [&](int x) { return x < p.used ? col[x] : 0.0f; };
            std::vector<float> blk = col;
            if (p.mode == 1) {
                const int nb = ch == 1 ? (p.used + p.rx - 1) / p.rx
                                       : p.used >= p.rx ? (p.used - p.rx) / p.rx + 1 : 0;
                for (int b = 0; b < nb; ++b)
                    blk[b] = add_terms(0.0f, get, b * p.rx, p.rx, lanes);
            } else if (ch == 1 || p.used > p.rx) {
                float s = add_terms(0.0f, get, 0, p.rx, lanes);
                int q = p.rx;
                s += (float)((double)get(q) * p.fx);
                blk[0] = s;
                double carryX = p.fx;
                const int stop = p.used - q;
                for (int b = 1; q < stop; ++b) {
                    const double top = 1.0 - carryX, t = p.xr - top;
                    const int n = (int)floor(t + 1e-7);
                    carryX = t - n;
                    int m = 0;
                    s = 0.0f;
                    if (top > 1e-7) {
                        s = (float)(top * (double)get(q));
                        m = 1;
                    }
                    if (m <= n) {
                        s = add_terms(s, get, q + m, n - m + 1, lanes);
                        m = n + 1;
                    }
                    if (carryX > 1e-7 && q + m < p.used)
                        s += (float)((double)get(q + m) * carryX);
                    q += m;
                    blk[b] = s;
                }
            }
            for (int e = 0; e < W; ++e)
                o[e * ch] = out_byte(blk[e], p.norm);
        }
    }
    return out;
}

ResizeReference reference_for(int index)
{
    return [index](const View &v, LumiRect roi, int W, int H, double xf, double yf) {
        return super_reference(v, roi, W, H, xf, yf, index);
    };
}

class ResizeSuper : public TierTest {
protected:
    void run(const ResizeCase &c, int ch, bool bottomUp = false, int dstPad = 9)
    {
        check_resize_case(c, ch, LUMI_INTER_SUPER, bottomUp, dstPad, reference_for(GetParam()));
    }
};

// Every mode by its factor pair, inside and at the edges of the image.
const ResizeCase kCases[] = {
    {40, 30, {0, 0, 40, 30}, {40, 30}, 1.0, 1.0},           // mode 0, a copy
    {40, 30, {0, 0, 40, 30}, {20, 15}, 0.5, 0.5},           // mode 0
    {41, 31, {1, 2, 39, 28}, {30, 30}, 1.0 / 3, 0.25},      // mode 0, uneven ratios
    {40, 30, {3, 0, 37, 30}, {40, 40}, 0.5, 0.4},           // mode 1: fy 0.5
    {40, 30, {0, 1, 40, 29}, {40, 40}, 0.4, 0.5},           // mode 2: fx 0.5
    {40, 30, {2, 3, 38, 27}, {40, 40}, 0.4, 0.7},           // mode 3
    {60, 50, {0, 0, 60, 50}, {50, 50}, 2.0 / 3, 2.0 / 3},   // mode 3, ratio 1.5
    {60, 50, {5, 5, 100, 100}, {50, 50}, 0.3, 0.45},        // overhangs: cut to the image
    {70, 40, {0, 0, 70, 40}, {9, 9}, 0.3, 0.3},             // dstRoiSize caps the output
    {200, 40, {0, 0, 200, 40}, {30, 30}, 0.09, 0.11},       // blocks of 11 and more: lanes
    {300, 20, {7, 0, 293, 20}, {30, 30}, 1.0 / 17, 0.2},    // 17 terms: lanes and leftovers
    {300, 20, {0, 2, 300, 18}, {30, 30}, 1.0 / 16.5, 1.0 / 2.7},
    {19, 17, {18, 0, 1, 17}, {9, 9}, 1.0, 0.5},             // the image's last column
    {19, 17, {0, 15, 19, 2}, {9, 9}, 0.5, 0.5},             // the last two rows
    {64, 64, {0, 0, 64, 64}, {64, 64}, 0.999, 0.9},         // ratios just above 1
};

TEST_P(ResizeSuper, MatchesReference)
{
    for (const ResizeCase &c : kCases)
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run(c, ch, bottomUp);
}

// Free ratios, so that carries fall everywhere between 0 and 1, and ratios
// within 1e-7 of an integer, which count as that integer.
TEST_P(ResizeSuper, FreeRatiosAndNearIntegers)
{
    const double factors[] = {0.77, 0.61, 0.45, 0.29, 0.137, 1.0 / (2.0 + 5e-8),
                              1.0 / (3.0 - 5e-8), 1.0 / (2.0 + 1e-6)};
    for (double xf : factors)
        for (double yf : {0.83, 0.5, 1.0 / (2.0 + 5e-8), 0.33})
            for (int ch : {1, 3})
                run(ResizeCase{83, 47, {2, 1, 80, 45}, {90, 90}, xf, yf}, ch);
}

// Rows below the region are read when the area reaches them; a row past the
// image counts as zeros (the source buffer ends at its last pixel).
TEST_P(ResizeSuper, AreaReachingBelowTheRegion)
{
    for (int ch : {1, 3})
        for (double yf : {1.0 / 3, 0.4, 0.26}) {
            run(ResizeCase{20, 20, {0, 5, 20, 2}, {20, 20}, 0.5, yf}, ch);   // inside the image
            run(ResizeCase{20, 20, {0, 18, 20, 2}, {20, 20}, 0.5, yf}, ch);  // at its lower edge
            run(ResizeCase{20, 20, {4, 18, 16, 2}, {20, 20}, 0.45, yf}, ch, true);
        }
}

// Output widths below, at and above one block, across the image's right edge.
TEST_P(ResizeSuper, WidthsAroundOneBlock)
{
    for (int w = 1; w <= 14; ++w)
        for (double xf : {0.25, 0.2, 1.0 / 4.5, 1.0 / 6})
            for (int ch : {1, 3}) {
                if (w * xf + 1e-7 < 0.5)
                    continue; // no output
                run(ResizeCase{w, 8, {0, 0, w, 8}, {8, 8}, xf, 0.5}, ch, false, 0);
                run(ResizeCase{w + 5, 8, {5, 1, w, 7}, {8, 8}, xf, 1.0 / 3.5}, ch, false, 0);
            }
}

// Whole ratio 2 across has 16-bit rows: every width from one block to past
// two vector steps (odd widths end in a half block), regions flush with the
// image's right and lower edges, block depths 1 to 64 and past it, and
// factors a hair below 0.5, whose product is no power of two (halves then
// round down, not up).
TEST_P(ResizeSuper, HalvingAcross)
{
    for (int ch : {1, 3})
        for (int w = 1; w <= 72; w += (w < 40 ? 1 : 7))
            for (double yf : {0.5, 1.0, 1.0 / 3, 0.25}) {
                run(ResizeCase{w + 3, 9, {3, 1, w, 8}, {64, 8}, 0.5, yf}, ch, false, 0);
                run(ResizeCase{w, 9, {0, 0, w, 9}, {64, 8}, 0.5, yf}, ch, true);
            }
    for (int ch : {1, 3}) {
        // The last output row's area reaches past the image: general rows.
        run(ResizeCase{40, 10, {0, 5, 40, 5}, {20, 5}, 0.5, 1.0 / 3}, ch);
        run(ResizeCase{41, 12, {1, 0, 40, 12}, {20, 5}, 0.5, 0.4}, ch); // rows of mode 1
        for (double xf : {0.5, 1.0 / (2.0 + 5e-8)})
            for (double yf : {0.5, 1.0 / (2.0 + 5e-8), 1.0 / 64, 1.0 / 65, 1.0 / 7})
                run(ResizeCase{70, 140, {0, 0, 70, 140}, {40, 70}, xf, yf}, ch);
    }
}

// Worked values: a 2 x 2 block 1 2 3 4 gives trunc(10 * 0.25 + 0.5) = 3;
// uniform 255 stays 255 in every mode; a region narrower than one block
// counts the missing columns as zeros in one channel and sums no block in
// three (the first column's sum alone).
TEST_P(ResizeSuper, WorkedValues)
{
    const uint8_t quad[4] = {1, 2, 3, 4};
    uint8_t one = 0;
    ASSERT_EQ(lumiResize_8u_C1R(quad, LumiSize{2, 2}, 2, LumiRect{0, 0, 2, 2}, &one, 1,
                                LumiSize{1, 1}, 0.5, 0.5, LUMI_INTER_SUPER),
              lumStsNoErr);
    EXPECT_EQ(one, 3);

    for (int ch : {1, 3})
        for (double f : {0.5, 0.4, 0.7, 1.0 / 3, 0.123}) {
            std::vector<uint8_t> flat(50 * 50 * ch, 255), out(50 * 50 * ch, 7);
            ASSERT_EQ(resize_fn(ch)(flat.data(), LumiSize{50, 50}, 50 * ch, LumiRect{0, 0, 50, 50},
                                    out.data(), 50 * ch, LumiSize{50, 50}, f, f, LUMI_INTER_SUPER),
                      lumStsNoErr);
            const int n = (int)(50 * f + 1e-7);
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n * ch; ++x)
                    ASSERT_EQ(out[y * 50 * ch + x], 255) << f << " ch " << ch;
        }

    // Width 3 with ratio 4: W is 1, srcWidthUsed 3, rx 4; four rows of 100.
    for (int ch : {1, 3}) {
        std::vector<uint8_t> flat(3 * 4 * ch, 100), out(ch, 0);
        ASSERT_EQ(resize_fn(ch)(flat.data(), LumiSize{3, 4}, 3 * ch, LumiRect{0, 0, 3, 4},
                                out.data(), ch, LumiSize{1, 1}, 0.25, 0.25, LUMI_INTER_SUPER),
                  lumStsNoErr);
        for (int k = 0; k < ch; ++k)
            EXPECT_EQ(out[k], ch == 1 ? 75 : 25) << "ch " << ch; // 1200 / 16, 400 / 16
    }
}

// Ratio 2.5 across: columns take 2 whole pixels and half the third, then
// half of it and 2 whole ones.  One row of 10 20 30 40 50, yFactor 1.
TEST_P(ResizeSuper, HalfPixelCarryAcross)
{
    const uint8_t row[5] = {10, 20, 30, 40, 50};
    uint8_t out[3] = {0, 0, 0};
    ASSERT_EQ(lumiResize_8u_C1R(row, LumiSize{5, 1}, 5, LumiRect{0, 0, 5, 1}, out, 3,
                                LumiSize{3, 1}, 0.4, 1.0, LUMI_INTER_SUPER),
              lumStsNoErr);
    EXPECT_EQ(out[0], 18); // (10 + 20 + 15) * 0.4 = 18
    EXPECT_EQ(out[1], 42); // (15 + 40 + 50) * 0.4 = 42
    EXPECT_EQ(out[2], 0);  // W is 2
}

TEST_P(ResizeSuper, ExactCopyAtFactorOne)
{
    for (int ch : {1, 3}) {
        const Source img(23, 11, ch, 12);
        GuardedImage same(16, 7, ch);
        ASSERT_EQ(resize_fn(ch)(img.buf.data(), LumiSize{23, 11}, img.step, LumiRect{7, 4, 16, 7},
                                same.data(), same.step, LumiSize{16, 7}, 1.0, 1.0,
                                LUMI_INTER_SUPER),
                  lumStsNoErr);
        for (int y = 0; y < 7; ++y)
            EXPECT_EQ(memcmp(same.row(y), img.row(4 + y) + 7 * ch, 16 * ch), 0) << y;
        EXPECT_TRUE(same.guard_intact());
    }
}

// A zero source step sums row 0 over and over; a negative destination step
// writes bottom-up.
TEST_P(ResizeSuper, ZeroAndNegativeSteps)
{
    const int index = GetParam();
    for (int ch : {1, 3})
        for (double f : {0.5, 0.4})
            check_zero_and_negative_steps(ch, LUMI_INTER_SUPER, reference_for(index), f);
}

// One accumulator: when it cannot be had, nothing is written and nothing
// is left allocated.
TEST_P(ResizeSuper, AllocationFailureWritesNothing)
{
    for (int ch : {1, 3})
        for (double f : {0.5, 0.4})
            EXPECT_EQ(check_alloc_failures(ch, LUMI_INTER_SUPER, f), 1) << "ch " << ch;
}

LUMI_INSTANTIATE_TIERS(ResizeSuper);

} // namespace
