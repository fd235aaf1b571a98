// Remap, public 8-bit forms on every dispatch index: each kernel and both
// paths against the per-pixel reference with coordinates on, just inside and
// just outside every limit, regions inside larger images, the lowering for
// small sources, worked values of the rules that are easiest to get wrong,
// NaN coordinates, and the order of the statuses with nothing written.
#include <gtest/gtest.h>

#include <string.h>

#include <vector>

#include "lumi.h"
#include "support/remap_ref.h"
#include "support/tiers.h"

extern "C" const float m7_tblLanczos3[302];

using namespace remapref;

namespace {

typedef decltype(&lumiRemap_8u_C1R) RemapFn;

class Remap : public lumitest::TierTest {
protected:
    bool low() const { return strcmp(lumitest::serving_tier("lumiRemap_8u_C1R", GetParam()), "m7") == 0; }
    ::testing::AssertionResult check(RemapFn fn, Layout lay, LumiSize src, LumiRect roi, LumiSize dst,
                                     int interp, uint32_t seed = 1)
    {
        Case<uint8_t> c{lay, src, roi, dst, interp, low(), m7_tblLanczos3};
        c.seed = seed;
        return c.run([&](const void *s, int ss, const float *xm, int xs, const float *ym, int ys, void *d, int ds) {
            return fn((const Lum8u *)s, src, ss, roi, xm, xs, ym, ys, (Lum8u *)d, ds, dst, interp);
        });
    }
};

const int kSelectors[] = {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM,
                          LUMI_INTER_LANCZOS};

TEST_P(Remap, EveryKernelBothPathsMatchReference)
{
    const struct { LumiSize src; LumiRect roi; } shapes[] = {
        {{17, 13}, {0, 0, 17, 13}},   // the whole image
        {{23, 19}, {4, 3, 9, 7}},     // a region inside: neighbours beyond it are read
        {{20, 15}, {12, 9, 50, 50}},  // a region cut to the image
        {{9, 8}, {0, 0, 1, 1}},       // one pixel at the corner
        {{12, 10}, {11, 0, 1, 10}},   // the last column only
    };
    for (RemapFn fn : {&lumiRemap_8u_C1R, &lumiRemap_8u_C3R})
        for (const auto &sh : shapes)
            for (int sel : kSelectors)
                for (int soft : {0, 1}) {
                    const int interp = sel | (soft ? LUMI_SMOOTH_EDGE : 0);
                    EXPECT_TRUE(check(fn, fn == &lumiRemap_8u_C1R ? C1 : C3, sh.src, sh.roi, {37, 11}, interp,
                                      sel * 7 + soft))
                        << "selector " << sel << " soft " << soft << " source " << sh.src.width << "x"
                        << sh.src.height << " region " << sh.roi.x << "," << sh.roi.y;
                }
}

// The plain C1 and C3 rows go four pixels at a time with a scalar tail:
// every width up to two groups plus a tail, and a wide row, on a source large
// enough that most windows lie inside (where Catmull-Rom and Lanczos take
// their float form) and some reach the border; regions inside the image and
// at its edge.
TEST_P(Remap, RowsOfEveryWidthMatchReference)
{
    const struct { LumiSize src; LumiRect roi; } shapes[] = {
        {{64, 40}, {0, 0, 64, 40}},
        {{61, 37}, {5, 4, 40, 29}},
        {{48, 30}, {40, 22, 8, 8}},
    };
    for (RemapFn fn : {&lumiRemap_8u_C1R, &lumiRemap_8u_C3R})
        for (const auto &sh : shapes)
            for (int sel : kSelectors)
                for (int w : {1, 2, 3, 4, 5, 7, 8, 9, 11, 12, 13, 67}) {
                    EXPECT_TRUE(check(fn, fn == &lumiRemap_8u_C1R ? C1 : C3, sh.src, sh.roi, {w, 5}, sel,
                                      (uint32_t)(sel * 131 + w)))
                        << "selector " << sel << " width " << w << " region " << sh.roi.x << "," << sh.roi.y;
                }
}

// Three-channel rows read a window row with whole-vector loads only when
// every pixel of the four is far enough from the image's right edge.  One
// lane of each four walks up to the last column on the last rows while the
// others stay inside; the source ends at its last pixel, so a load that
// reaches past the row leaves the buffer.
TEST_P(Remap, RowsNearTheLastColumnMatchReference)
{
    const LumiSize src = {30, 8};
    for (RemapFn fn : {&lumiRemap_8u_C1R, &lumiRemap_8u_C3R})
        for (int sel : kSelectors) {
            Case<uint8_t> c{fn == &lumiRemap_8u_C1R ? C1 : C3, src, {0, 0, 30, 8}, {160, 3}, sel, low(),
                            m7_tblLanczos3};
            c.place = [](std::vector<float> &xm, std::vector<float> &ym, int mapW, const Limits &g) {
                for (size_t k = 0; k < xm.size(); ++k) {
                    const int i = (int)(k % (size_t)mapW), r = (int)(k / (size_t)mapW), b = i / 4;
                    xm[k] = i % 4 == b % 4 ? (float)g.wMax - 0.25f * (float)(b / 4) : 2.5f + (float)(i % 4);
                    ym[k] = (float)g.hMax - 0.5f * (float)r;
                }
            };
            EXPECT_TRUE(c.run([&](const void *s, int ss, const float *xm, int xs, const float *ym, int ys, void *d,
                                  int ds) {
                return fn((const Lum8u *)s, src, ss, {0, 0, 30, 8}, xm, xs, ym, ys, (Lum8u *)d, ds, {160, 3}, sel);
            })) << "selector " << sel;
        }
}

// Lanczos falls to cubic under 6 a side, the cubics to linear under 4, and a
// side of 1 to nearest neighbour; all silently.
TEST_P(Remap, SmallSourcesLowerTheSelector)
{
    const LumiSize sizes[] = {{1, 9}, {9, 1}, {2, 2}, {3, 9}, {5, 5}, {4, 7}, {6, 6}, {7, 5}};
    for (LumiSize s : sizes)
        for (int sel : kSelectors)
            for (int soft : {0, 1})
                EXPECT_TRUE(check(&lumiRemap_8u_C3R, C3, s, {0, 0, s.width, s.height}, {13, 9},
                                  sel | (soft ? LUMI_SMOOTH_EDGE : 0), sel + soft))
                    << s.width << "x" << s.height << " selector " << sel << " soft " << soft;
}

// Worked values, one map pixel each, on a C1 image.
struct Probe {
    std::vector<Lum8u> img;
    LumiSize size;
    Lum8u dst = 77;
    LumStatus run(float x, float y, int interp, LumiRect roi = {0, 0, 0, 0})
    {
        if (roi.width == 0) roi = {0, 0, size.width, size.height};
        return lumiRemap_8u_C1R(img.data(), size, size.width, roi, &x, 4, &y, 4, &dst, 1, {1, 1}, interp);
    }
};

TEST_P(Remap, WorkedValues)
{
    Probe p;
    p.size = {8, 8};
    p.img.assign(64, 0);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            p.img[y * 8 + x] = (Lum8u)(100 + x);
    // Linear: the rounding term 33 keeps the half between 100 and 101 at 100.
    p.run(0.5f, 3.0f, LUMI_INTER_LINEAR);
    EXPECT_EQ(p.dst, 100);
    // The last column and row read with weight 1.
    p.run(7.0f, 7.0f, LUMI_INTER_LINEAR);
    EXPECT_EQ(p.dst, 107);
    // Cubic reproduces samples at whole coordinates, first and last columns too.
    for (int x : {0, 1, 6, 7}) {
        p.run((float)x, 2.0f, LUMI_INTER_CUBIC);
        EXPECT_EQ(p.dst, 100 + x) << x;
    }
    // Nearest neighbour rounds halves up.
    p.run(2.5f, 0.0f, LUMI_INTER_NN);
    EXPECT_EQ(p.dst, 103);
    // Outside the region by a quarter: left alone, though it rounds inside.
    p.dst = 77;
    p.run(3.25f, 1.0f, LUMI_INTER_NN, {0, 0, 4, 8});
    EXPECT_EQ(p.dst, 77);

    // Soft edge, region x = 0: -0.5 blends column 0 half and half with the
    // old value; -1 keeps the old value; a corner at (-0.5, -0.5) weighs the
    // old value 0.75.
    p.img.assign(64, 200);
    p.dst = 100;
    p.run(-0.5f, 3.0f, LUMI_INTER_LINEAR | LUMI_SMOOTH_EDGE);
    EXPECT_EQ(p.dst, 150);
    p.dst = 100;
    p.run(-0.5f, 3.0f, LUMI_INTER_LINEAR);
    EXPECT_EQ(p.dst, 100);
    p.dst = 123;
    p.run(-1.0f, 3.0f, LUMI_INTER_CUBIC | LUMI_SMOOTH_EDGE);
    EXPECT_EQ(p.dst, 123);
    p.dst = 100;
    p.run(-0.5f, -0.5f, LUMI_INTER_NN | LUMI_SMOOTH_EDGE);
    EXPECT_EQ(p.dst, 125); // 0.75 * 100 + 0.25 * 200
}

// A coordinate that is not a number is outside everything: nothing is read
// or written for it, on either path and with every kernel.
TEST_P(Remap, NaNCoordinatesWriteNothing)
{
    std::vector<Lum8u> img(6 * 6 * 3, 9), dst(4 * 3, 55);
    const float nan = NAN;
    const float xs[4] = {nan, 1.0f, nan, -nan}, ys[4] = {2.0f, nan, nan, 1.0f};
    for (int sel : kSelectors)
        for (int soft : {0, LUMI_SMOOTH_EDGE}) {
            ASSERT_EQ(lumiRemap_8u_C3R(img.data(), {6, 6}, 18, {0, 0, 6, 6}, xs, 16, ys, 16, dst.data(), 12,
                                       {4, 1}, sel | soft),
                      lumStsNoErr);
            EXPECT_EQ(dst, std::vector<Lum8u>(12, 55)) << sel;
        }
}

// Statuses in their order, each with the destination untouched.
TEST_P(Remap, StatusOrderWritesNothing)
{
    std::vector<Lum8u> img(64, 1), dst(16, 42);
    std::vector<float> m(16, 1.0f);
    auto call = [&](const Lum8u *s, LumiSize ss, LumiRect roi, const float *xm, int step, int interp) {
        return lumiRemap_8u_C1R(s, ss, step, roi, xm, step * 4, m.data(), 16, dst.data(), 4, {4, 4}, interp);
    };
    const LumiSize S = {8, 8};
    EXPECT_EQ(call(nullptr, {0, 0}, {0, 0, 0, 0}, m.data(), -1, 3), lumStsNullPtrErr);
    EXPECT_EQ(call(img.data(), S, {0, 0, 8, 8}, nullptr, 8, 1), lumStsNullPtrErr);
    EXPECT_EQ(call(img.data(), {0, 8}, {0, 0, 8, 8}, m.data(), -1, 3), lumStsSizeErr);
    EXPECT_EQ(call(img.data(), S, {-1, 0, 8, 8}, m.data(), -1, 3), lumStsSizeErr);
    EXPECT_EQ(call(img.data(), S, {0, 0, 8, 0}, m.data(), -1, 3), lumStsSizeErr);
    EXPECT_EQ(call(img.data(), S, {9, 0, 8, 8}, m.data(), -1, 3), lumStsInterpolationErr);
    for (int bad : {0, 3, 8, 32, LUMI_SMOOTH_EDGE, LUMI_SMOOTH_EDGE | 8, 1 | 0x40000000})
        EXPECT_EQ(call(img.data(), S, {9, 0, 8, 8}, m.data(), 8, bad), lumStsInterpolationErr) << bad;
    EXPECT_EQ(call(img.data(), S, {9, 0, 8, 8}, m.data(), 0, 2), lumStsStepErr);
    EXPECT_EQ(call(img.data(), S, {8, 0, 8, 8}, m.data(), 8, 2), lumStsNoIntersectRoiWarn);
    EXPECT_EQ(call(img.data(), S, {0, 8, 8, 8}, m.data(), 8, 2 | LUMI_SMOOTH_EDGE), lumStsNoIntersectRoiWarn);
    EXPECT_EQ(dst, std::vector<Lum8u>(16, 42));
    // The destination's size is checked with the source's, before the selector.
    EXPECT_EQ(lumiRemap_8u_C1R(img.data(), S, 8, {0, 0, 8, 8}, m.data(), 16, m.data(), 16, dst.data(), 4,
                               {4, 0}, 99),
              lumStsSizeErr);
}

LUMI_INSTANTIATE_TIERS(Remap);

}  // namespace
