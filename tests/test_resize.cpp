// Resize: argument checks and their order, output size, nearest neighbour and
// linear against a plain reference, regions, steps, guards and allocation
// failures, on every dispatch index.
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

using lumitest::GuardedImage;

namespace {

using lumitest::positions;
using lumitest::ref_length;
using lumitest::resize_fn;
using lumitest::Source;
using lumitest::View;
typedef lumitest::ResizeCase Case;

// ------------------------------------------------------------ reference --

// The index and 14-bit weight of the far sample of a linear position, with
// the pair moved back on the image's last pixel.
void linear_tap(double p, int last, int *index, int *weight)
{
    int i = (int)(p + 1e-7);
    if (i == last) {
        *index = i - 1;
        *weight = 16384;
    } else {
        *index = i;
        *weight = (int)((p - i) * 16384.0 + 1e-7);
    }
}

// Computes the W x H x ch result, pixel by pixel, with no ring and no tables.
std::vector<uint8_t> reference(const View &img, LumiRect roi, int W, int H, double xf, double yf,
                               int method)
{
    if (roi.x + roi.width > img.w)
        roi.width = img.w - roi.x;
    if (roi.y + roi.height > img.h)
        roi.height = img.h - roi.y;
    const double wF = roi.width * xf, hF = roi.height * yf;
    std::vector<uint8_t> out((size_t)W * H * img.ch);
    if (method == LUMI_INTER_NN) {
        const double xs = 1.0 / xf, ys = 1.0 / yf;
        std::vector<double> px = positions(xs * 0.5, xs, W), py = positions(0.5 * ys, ys, H);
        for (int i = 0; i < H; ++i)
            for (int j = 0; j < W; ++j)
                for (int k = 0; k < img.ch; ++k)
                    out[((size_t)i * W + j) * img.ch + k] = (uint8_t)img.at(
                        roi.x + (int)(px[j] + 1e-7), roi.y + (int)(py[i] + 1e-7), k);
        return out;
    }
    const double xs = wF > 1.0 ? (roi.width - 1) / (wF - 1.0) : 0.0;
    const double ys = hF > 1.0 ? (roi.height - 1) / (hF - 1.0) : 0.0;
    std::vector<double> px = positions(0.0, xs, W), py = positions(0.0, ys, H);
    for (int i = 0; i < H; ++i) {
        int r, fy;
        linear_tap(py[i], img.h - roi.y - 1, &r, &fy);
        for (int j = 0; j < W; ++j) {
            int c, fx;
            linear_tap(px[j], img.w - roi.x - 1, &c, &fx);
            for (int k = 0; k < img.ch; ++k) {
                int h[2];
                for (int d = 0; d < 2; ++d) {
                    const int y = roi.y + r + d, x = roi.x + c;
                    h[d] = ((16384 - fx) * img.at(x, y, k) + fx * img.at(x + 1, y, k) + 128) >> 8;
                }
                out[((size_t)i * W + j) * img.ch + k] =
                    (uint8_t)(((16384 - fy) * h[0] + fy * h[1] + 524288) >> 20);
            }
        }
    }
    return out;
}

// ------------------------------------------------------------- harness --

void run_case(const Case &c, int ch, int method, bool bottomUp, int dstPad = 9)
{
    lumitest::check_resize_case(c, ch, method, bottomUp, dstPad,
                                [method](const View &v, LumiRect roi, int W, int H, double xf,
                                         double yf) {
                                    return reference(v, roi, W, H, xf, yf, method);
                                });
}

// Regions inside, at the edges of and overhanging the image; factors up,
// down and mixed; widths across the vector groups and their tails; a
// destination larger than the output.
const Case kCases[] = {
    {40, 30, {0, 0, 40, 30}, {80, 60}, 2.0, 2.0},
    {40, 30, {0, 0, 40, 30}, {40, 30}, 1.0, 1.0},
    {40, 30, {3, 2, 31, 21}, {64, 50}, 1.5, 1.5},
    {40, 30, {5, 4, 35, 26}, {32, 32}, 0.5, 0.75},       // region at the right and lower edges
    {40, 30, {20, 10, 100, 100}, {70, 70}, 1.7, 0.6},    // overhangs: cut to the image
    {37, 23, {1, 1, 33, 19}, {100, 100}, 0.33, 2.9},     // destination larger than the output
    {64, 20, {0, 3, 64, 9}, {17, 7}, 0.27, 0.8},         // dstRoiSize caps the output
    {19, 17, {18, 0, 1, 17}, {9, 40}, 3.0, 2.0},         // one column, the image's last
    {19, 17, {2, 16, 9, 1}, {40, 9}, 4.0, 3.0},          // one row, the image's last
    {25, 25, {0, 0, 25, 25}, {100, 100}, 1.0 / 3.0, 1.0 / 7.0},
    {50, 9, {1, 0, 48, 9}, {200, 30}, 1.25, 3.3},
    {12, 12, {4, 4, 5, 5}, {60, 60}, 7.1, 5.9},          // reads around a small inner region
    {90, 4, {0, 0, 90, 4}, {60, 6}, 0.47, 1.4},          // eight columns spanning 15 and 16 bytes
    {100, 4, {0, 0, 100, 4}, {60, 5}, 0.44, 1.2},        // eight centres spanning 16 and 17 bytes
};

class ResizeKernels : public lumitest::TierTest {};

TEST_P(ResizeKernels, NearestMatchesReference)
{
    for (const Case &c : kCases)
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run_case(c, ch, LUMI_INTER_NN, bottomUp);
}

TEST_P(ResizeKernels, LinearMatchesReference)
{
    for (const Case &c : kCases)
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run_case(c, ch, LUMI_INTER_LINEAR, bottomUp);
}

// Every width from 1 to four vector groups and more, so each tail of the
// horizontal and vertical stages meets every remainder.
TEST_P(ResizeKernels, EveryWidthThroughTheTails)
{
    for (int w = 1; w <= 70; ++w)
        for (int ch : {1, 3})
            for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR}) {
                const Case up{w + 2, 5, {1, 1, w, 3}, {w * 2, 7}, 2.0, 2.0};
                run_case(up, ch, method, false, 0);
                const Case same{w + 1, 3, {1, 0, w, 3}, {w, 3}, 1.0, 1.0};
                run_case(same, ch, method, false, 0);
            }
}

// Factor 1.0 is an exact copy of the region under both methods, the last
// column and row of the image included (the linear pair moves back and puts
// its full weight on the last pixel).
TEST_P(ResizeKernels, FactorOneCopiesTheRegion)
{
    for (int ch : {1, 3})
        for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR}) {
            Source src(23, 11, ch, 5);
            GuardedImage dst(16, 7, ch);
            const LumiRect roi{7, 4, 16, 7};
            ASSERT_EQ(resize_fn(ch)(src.buf.data(), LumiSize{23, 11}, src.step, roi,
                                    dst.data(), dst.step, LumiSize{16, 7}, 1.0, 1.0, method),
                      lumStsNoErr);
            for (int y = 0; y < 7; ++y)
                ASSERT_EQ(memcmp(dst.row(y), src.row(4 + y) + 7 * ch, 16 * ch), 0)
                    << "method " << method << " ch " << ch << " row " << y;
            EXPECT_TRUE(dst.guard_intact());
        }
}

// Worked values of the linear method: xFactor 2 on 10 columns puts column
// 19 exactly on column 9, and the image's last row takes its full weight.
TEST_P(ResizeKernels, LinearWorkedValues)
{
    uint8_t two[2][10];
    for (int i = 0; i < 10; ++i) {
        two[0][i] = (uint8_t)(i * 10);
        two[1][i] = (uint8_t)(i * 10 + 5);
    }
    uint8_t out[3][20];
    ASSERT_EQ(lumiResize_8u_C1R(&two[0][0], LumiSize{10, 2}, 10, LumiRect{0, 0, 10, 2},
                                &out[0][0], 20, LumiSize{20, 3}, 2.0, 1.5, LUMI_INTER_LINEAR),
              lumStsNoErr);
    EXPECT_EQ(out[0][0], 0);
    EXPECT_EQ(out[0][19], 90);  // position 9 exactly
    EXPECT_EQ(out[2][19], 95);  // the image's last row, full weight
    EXPECT_EQ(out[1][0], 3);    // 0 and 5 halfway: 2.5 rounds up
}

// A source step of zero reads row 0 for every row: the ring's other arm.
TEST_P(ResizeKernels, ZeroSourceStep)
{
    for (int ch : {1, 3})
        for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR}) {
            Source src(30, 1, ch, 3);
            const View v{src.buf.data(), 0, 30, 9, ch};
            GuardedImage dst(45, 13, ch);
            const LumiRect roi{0, 0, 30, 9};
            ASSERT_EQ(resize_fn(ch)(v.p, LumiSize{30, 9}, 0, roi, dst.data(), dst.step,
                                    LumiSize{45, 13}, 1.5, 1.5, method),
                      lumStsNoErr);
            const std::vector<uint8_t> want = reference(v, roi, 45, 13, 1.5, 1.5, method);
            EXPECT_EQ(dst.region(), want) << "method " << method << " ch " << ch;
            EXPECT_TRUE(dst.guard_intact());
        }
}

// A destination written bottom-up through a negative step.
TEST_P(ResizeKernels, NegativeDestinationStep)
{
    for (int ch : {1, 3})
        for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR}) {
            Source src(20, 20, ch, 8);
            GuardedImage dst(30, 30, ch);
            const LumiRect roi{0, 0, 20, 20};
            ASSERT_EQ(resize_fn(ch)(src.buf.data(), LumiSize{20, 20}, src.step, roi,
                                    dst.row(29), -dst.step, LumiSize{30, 30}, 1.5, 1.5, method),
                      lumStsNoErr);
            const std::vector<uint8_t> want =
                reference(src.view(false), roi, 30, 30, 1.5, 1.5, method);
            for (int y = 0; y < 30; ++y)
                ASSERT_EQ(memcmp(dst.row(29 - y), &want[(size_t)y * 30 * ch], 30 * ch), 0) << y;
            EXPECT_TRUE(dst.guard_intact());
        }
}

LUMI_INSTANTIATE_TIERS(ResizeKernels);

// ------------------------------------------------------ checks and sizes --

class ResizeChecks : public lumitest::TierTest {};

struct CheckCase {
    const char *what;
    bool nullSrc, nullDst;
    LumiSize src;
    LumiRect roi;
    LumiSize dst;
    double xf, yf;
    int interpolation;
    LumStatus want;
};

const double kNaN = NAN;

// Each row fails one test and would fail every later one too, so the status
// shows which test came first.
const CheckCase kChecks[] = {
    {"null source first", true, false, {0, 0}, {-1, -1, 0, 0}, {0, 0}, 0.0, 0.0, 3,
     lumStsNullPtrErr},
    {"null destination", false, true, {0, 0}, {-1, -1, 0, 0}, {0, 0}, 0.0, 0.0, 3,
     lumStsNullPtrErr},
    {"image width", false, false, {0, 10}, {0, 0, 5, 5}, {0, 0}, 0.0, 0.0, 3, lumStsSizeErr},
    {"image height", false, false, {10, 0}, {0, 0, 5, 5}, {0, 0}, 0.0, 0.0, 3, lumStsSizeErr},
    {"negative origin", false, false, {10, 10}, {-1, 0, 5, 5}, {0, 0}, 0.0, 0.0, 3, lumStsSizeErr},
    {"empty region", false, false, {10, 10}, {20, 0, 0, 5}, {0, 0}, 0.0, 0.0, 3, lumStsSizeErr},
    {"origin beyond the image", false, false, {10, 10}, {10, 0, 5, 5}, {0, 0}, 0.0, 0.0, 3,
     lumStsNoIntersectRoiWarn},
    {"origin below the image", false, false, {10, 10}, {0, 12, 5, 5}, {0, 0}, 0.0, 0.0, 3,
     lumStsNoIntersectRoiWarn},
    {"destination size", false, false, {10, 10}, {0, 0, 5, 5}, {5, 0}, 0.0, 0.0, 3, lumStsSizeErr},
    {"zero factor", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 0.0, 1.0, 3,
     lumStsResizeFactorErr},
    {"negative factor", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 1.0, -1.0, 3,
     lumStsResizeFactorErr},
    {"NaN passes the factor test", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, kNaN, 1.0, 3,
     lumStsInterpolationErr},
    {"selector 3", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 1.0, 1.0, 3,
     lumStsInterpolationErr},
    {"Catmull-Rom", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 1.0, 1.0,
     LUMI_INTER_CATMULLROM, lumStsInterpolationErr},
    {"soft edge bit", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 1.0, 1.0,
     LUMI_INTER_LINEAR | LUMI_SMOOTH_EDGE, lumStsInterpolationErr},
    {"super with a factor above 1", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 0.5, 2.0,
     LUMI_INTER_SUPER, lumStsInterpolationErr},
    {"super, zero factor", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, 0.0, 0.5,
     LUMI_INTER_SUPER, lumStsResizeFactorErr},
    {"super, negative factor", false, false, {10, 10}, {0, 0, 5, 5}, {5, 5}, -1.0, 0.5,
     LUMI_INTER_SUPER, lumStsResizeFactorErr},
    {"super, origin outside", false, false, {10, 10}, {10, 0, 5, 5}, {5, 5}, 0.0, 0.5,
     LUMI_INTER_SUPER, lumStsNoIntersectRoiWarn},
    {"super, empty output", false, false, {10, 10}, {0, 0, 10, 10}, {5, 5}, 0.04, 0.5,
     LUMI_INTER_SUPER, lumStsResizeEmptyErr},
    {"width below one half", false, false, {10, 10}, {0, 0, 10, 10}, {5, 5}, 0.04, 1.0,
     LUMI_INTER_NN, lumStsResizeEmptyErr},
    {"height below one half", false, false, {10, 10}, {0, 0, 10, 10}, {5, 5}, 1.0, 0.04,
     LUMI_INTER_LINEAR, lumStsResizeEmptyErr},
    {"NaN size is empty", false, false, {10, 10}, {0, 0, 10, 10}, {5, 5}, 1.0, kNaN,
     LUMI_INTER_LINEAR, lumStsResizeEmptyErr},
    // An empty output is found before the method's tables are made.
    {"cubic, empty output first", false, false, {10, 10}, {0, 0, 10, 10}, {5, 5}, 0.04, 1.0,
     LUMI_INTER_CUBIC, lumStsResizeEmptyErr},
};

TEST_P(ResizeChecks, StatusesInOrderAndNothingWritten)
{
    for (const CheckCase &c : kChecks)
        for (int ch : {1, 3}) {
            SCOPED_TRACE(testing::Message() << c.what << ", channels " << ch);
            GuardedImage src(12, 12, ch);
            src.fill_random(1);
            GuardedImage dst(12, 12, ch);
            dst.fill_random(2);
            const std::vector<uint8_t> before = dst.region();
            const LumStatus st = resize_fn(ch)(c.nullSrc ? nullptr : src.data(), c.src,
                                               src.step, c.roi, c.nullDst ? nullptr : dst.data(),
                                               dst.step, c.dst, c.xf, c.yf, c.interpolation);
            EXPECT_EQ(st, c.want);
            EXPECT_EQ(dst.region(), before);
            EXPECT_TRUE(dst.guard_intact());
        }
}

// The output is the scaled region, truncated after adding 1e-7, capped by
// dstRoiSize; a scaled length from one half to 1 gives one pixel.  A black
// source on a patterned destination shows which columns were written.
TEST_P(ResizeChecks, OutputSizeRule)
{
    struct SizeCase {
        int roiW;
        double xf;
        int limit, want;
    } cases[] = {
        {10, 0.06, 50, 1},             // 0.6: one pixel
        {10, 0.05, 50, 1},             // 0.5 exactly
        {10, 0.29, 50, 2},             // 2.9 truncates
        {22, 15.0 / 22.0, 50, 15},     // 14.999999999999998 counts as 15
        {10, 3.0, 17, 17},             // capped
    };
    for (const SizeCase &c : cases)
        for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR}) {
            SCOPED_TRACE(testing::Message() << c.roiW << " x " << c.xf << " method " << method);
            std::vector<uint8_t> src((size_t)c.roiW * 4, 0), dst((size_t)c.limit * 4, 0xA5);
            ASSERT_EQ(lumiResize_8u_C1R(src.data(), LumiSize{c.roiW, 4}, c.roiW,
                                        LumiRect{0, 0, c.roiW, 4}, dst.data(), c.limit,
                                        LumiSize{c.limit, 4}, c.xf, 1.0, method),
                      lumStsNoErr);
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < c.limit; ++x)
                    ASSERT_EQ(dst[(size_t)y * c.limit + x], x < c.want ? 0 : 0xA5)
                        << "x " << x << " y " << y;
        }
}

// Small images lower the method, judged on the whole image and not on the
// region: 3 wide makes cubic linear, 1 wide makes anything nearest neighbour.
TEST_P(ResizeChecks, SmallImagesLowerTheMethod)
{
    Source src(3, 40, 1, 6);
    const View v = src.view(false);
    std::vector<uint8_t> out(6 * 50), want = reference(v, LumiRect{0, 0, 3, 40}, 6, 50, 2.0, 1.25,
                                                       LUMI_INTER_LINEAR);
    ASSERT_EQ(lumiResize_8u_C1R(v.p, LumiSize{3, 40}, v.step, LumiRect{0, 0, 3, 40}, out.data(), 6,
                                LumiSize{6, 50}, 2.0, 1.25, LUMI_INTER_CUBIC),
              lumStsNoErr);
    EXPECT_EQ(out, want);

    Source thin(1, 30, 3, 7);
    const View t = thin.view(false);
    for (int method : {LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_LANCZOS}) {
        std::vector<uint8_t> o(2 * 3 * 45);
        ASSERT_EQ(lumiResize_8u_C3R(t.p, LumiSize{1, 30}, t.step, LumiRect{0, 0, 1, 30}, o.data(),
                                    6, LumiSize{2, 45}, 2.0, 1.5, method),
                  lumStsNoErr);
        EXPECT_EQ(o, reference(t, LumiRect{0, 0, 1, 30}, 2, 45, 2.0, 1.5, LUMI_INTER_NN))
            << method;
    }
}

LUMI_INSTANTIATE_TIERS(ResizeChecks);

// ---------------------------------------------------- allocation failure --

class ResizeAlloc : public lumitest::TierTest {};

// Offsets only for nearest neighbour; fractions, weights and two row
// buffers for linear.  A failure at any of them frees the others and writes
// nothing.
TEST_P(ResizeAlloc, EachFailureFreesAllAndWritesNothing)
{
    for (int ch : {1, 3}) {
        EXPECT_EQ(lumitest::check_alloc_failures(ch, LUMI_INTER_NN), 2) << "ch " << ch;
        EXPECT_EQ(lumitest::check_alloc_failures(ch, LUMI_INTER_LINEAR), 6) << "ch " << ch;
    }
}

LUMI_INSTANTIATE_TIERS(ResizeAlloc);

} // namespace
