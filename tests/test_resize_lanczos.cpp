// Lanczos resize against a plain reference written from its arithmetic: the
// kernel table, the weights and their orders of addition, the folded edge
// cases and the interior pairing of the horizontal stage, rows repeated at
// the image's edges, both ring modes, the vertical rounding and the one
// place where the AVX tier adds differently; regions, steps, guards and
// allocation failures on every dispatch index.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/resize_ref.h"
#include "support/tiers.h"

// The kernel table as the library holds it (the same in every tier).
extern "C" const float m7_tblLanczos3[302];
extern "C" const float e9_tblLanczos3[302];

using namespace lumitest;

namespace {

const float *const T = m7_tblLanczos3;

// Positions as the SSE4.1 tier forms its row table: four running lanes, the
// remainder restarted at n s + p0.
std::vector<double> lane_positions(double p0, double s, int n)
{
    std::vector<double> p(n);
    double l[4] = {p0, p0 + s, 2.0 * s + p0, 0.0};
    l[3] = l[2] + s;
    int i = 0;
    for (; i + 4 <= n; i += 4)
        for (int k = 0; k < 4; ++k) {
            p[i + k] = l[k];
            l[k] += 4.0 * s;
        }
    double x = (double)i * s + p0;
    for (; i < n; ++i, x += s)
        p[i] = x;
    return p;
}

// Six weights for each position, normalised in the order its index asks.
struct Axis {
    std::vector<int> index;
    std::vector<float> w; // 6 per position
};

Axis lanczos_axis(const std::vector<double> &pos)
{
    Axis a;
    const int N = (int)pos.size();
    for (int n = 0; n < N; ++n) {
        const int r = (int)(pos[n] + 1e-7);
        const float f = (float)(pos[n] - r);
        const float u = (-f) - 2.0f;
        float g[6];
        for (int k = 0; k < 6; ++k) {
            const float v = std::min(fabsf(u + (float)k), 3.0f) * 100.0f;
            const int i = (int)v;
            g[k] = (v - (float)i) * (T[i + 1] - T[i]) + T[i];
        }
        static const int kOrders[3][6] = {{1, 2, 3, 0, 5, 4}, {0, 1, 3, 4, 5, 2}, {0, 1, 3, 2, 4, 5}};
        const int *order = (n & 1) ? kOrders[1] : n + 1 < N ? kOrders[0] : kOrders[2];
        float s = 0.0f;
        for (int k = 0; k < 6; ++k)
            s = s + g[order[k]];
        a.index.push_back(r);
        for (int k = 0; k < 6; ++k)
            a.w.push_back(g[k] / s);
    }
    return a;
}

// A sum of four terms in tap order at an edge: a chain (the last tap first
// where asked), or pairs in the AVX tier.
float sum4(float t0, float t1, float t2, float t3, bool lastFirst, bool avx)
{
    if (avx)
        return (t0 + t1) + (t2 + t3);
    return lastFirst ? ((t3 + t0) + t1) + t2 : ((t0 + t1) + t2) + t3;
}

// One horizontally filtered row of a region row y (relative to the region).
std::vector<float> filter_row(const View &img, const LumiRect &cut, const Axis &cols, int y,
                              bool avx)
{
    const int W = (int)cols.index.size(), ch = img.ch, roiX = cut.x, imgW = img.w - cut.x;
    std::vector<float> out((size_t)W * ch);
    auto left = [&](int c) { return (roiX == 0 && c <= 1) || (roiX == 1 && c == 0); };
    int first = 0; // the interior's first column
    while (first < W && left(cols.index[first]))
        ++first;
    int end = first;
    while (end < W && cols.index[end] < imgW - 3)
        ++end;
    for (int j = 0; j < W; ++j)
        for (int k = 0; k < ch; ++k) {
            const int c = cols.index[j];
            const float *w = &cols.w[6 * j];
            auto P = [&](int x) { return (float)img.at(roiX + x, cut.y + y, k); };
            float a[6];
            for (int t = 0; t < 6; ++t) // taps outside the image are folded, never read
                a[t] = c + t - 2 >= -roiX && c + t - 2 < imgW ? P(c + t - 2) * w[t] : 0.0f;
            const float last = P(imgW - 1);
            float v;
            if (j < first && roiX == 0 && c == 0)
                v = ((w[0] + w[1]) + w[2]) * P(0) + ((a[3] + a[4]) + a[5]);
            else if (j < first && roiX == 0)
                v = (w[0] + w[1]) * P(0) + sum4(a[2], a[3], a[4], a[5], false, avx);
            else if (j < first)
                v = (w[0] + w[1]) * P(-1) + sum4(a[2], a[3], a[4], a[5], false, avx);
            else if (j < end) {
                if (ch == 3) {
                    v = ((a[0] + a[1]) + (a[2] + a[3])) + (a[4] + a[5]);
                } else {
                    const bool single = (j - first) % 2 == 0 && j + 1 == end;
                    if (single || j % 2 == 0)
                        v = ((a[0] + a[4]) + a[2]) + ((a[1] + a[5]) + a[3]);
                    else
                        v = ((a[0] + a[2]) + a[4]) + ((a[1] + a[3]) + a[5]);
                }
            } else if (c == imgW - 3)
                v = (w[4] + w[5]) * last + sum4(a[0], a[1], a[2], a[3], roiX == 0, avx);
            else if (c == imgW - 2)
                v = ((w[3] + w[4]) + w[5]) * last +
                    (roiX == 0 ? (a[2] + a[0]) + a[1] : (a[0] + a[1]) + a[2]);
            else
                v = sum4(w[2], w[3], w[4], w[5], false, avx) * last + (a[0] + a[1]);
            out[(size_t)j * ch + k] = v;
        }
    return out;
}

// index: the dispatch index the result is for (5 is the AVX tier, 4 forms
// its row positions in lanes).
std::vector<uint8_t> lanczos_reference(const View &img, LumiRect roi, int W, int H, double xf,
                                       double yf, int index)
{
    const LumiRect cut = cut_roi(roi, img.w, img.h);
    const Axis cols = lanczos_axis(corner_positions(cut.width, xf, W));
    const double hF = cut.height * yf, ys = hF > 1.0 ? (cut.height - 1) / (hF - 1.0) : 0.0;
    const Axis rows = lanczos_axis(index == 4 ? lane_positions(0.0, ys, H) : positions(0.0, ys, H));
    const int count = W * img.ch, imgH = img.h - cut.y;
    std::vector<uint8_t> out((size_t)count * H);
    for (int i = 0; i < H; ++i) {
        std::vector<float> b[6];
        for (int k = 0; k < 6; ++k) {
            const int y = std::max(-cut.y, std::min(imgH - 1, rows.index[i] + k - 2));
            b[k] = filter_row(img, cut, cols, y, index == 5);
        }
        for (int e = 0; e < count; ++e) {
            float s = 0.0f;
            for (int k = 0; k < 6; ++k)
                s = s + rows.w[6 * i + k] * b[k][e];
            const float r = nearbyintf(s);
            out[(size_t)i * count + e] = (uint8_t)(r < 0.0f ? 0 : r > 255.0f ? 255 : (int)r);
        }
    }
    return out;
}

ResizeReference reference_for(int index)
{
    return [index](const View &v, LumiRect roi, int W, int H, double xf, double yf) {
        return lanczos_reference(v, roi, W, H, xf, yf, index);
    };
}

// Regions at every left and upper origin case (0, 1, 2 and more), ending at
// and inside the image; up, down and mixed factors.
const ResizeCase kCases[] = {
    {40, 30, {0, 0, 40, 30}, {80, 60}, 2.0, 2.0},
    {40, 30, {0, 0, 40, 30}, {40, 30}, 1.0, 1.0},
    {40, 30, {1, 1, 39, 29}, {58, 43}, 1.5, 1.5},
    {40, 30, {2, 2, 31, 21}, {64, 50}, 1.5, 1.5},        // reads around the region
    {40, 30, {5, 4, 35, 26}, {32, 32}, 0.5, 0.75},       // right and lower edges, rows jump
    {40, 30, {20, 10, 100, 100}, {70, 70}, 1.7, 0.6},    // overhangs: cut to the image
    {37, 23, {1, 1, 33, 19}, {100, 100}, 0.33, 2.9},     // destination larger than the output
    {64, 20, {0, 3, 64, 9}, {17, 7}, 0.27, 0.8},         // dstRoiSize caps the output
    {19, 17, {18, 0, 1, 17}, {9, 40}, 3.0, 2.0},         // the image's last column
    {19, 17, {2, 16, 9, 1}, {40, 9}, 4.0, 3.0},          // the last row: imgH 1
    {19, 17, {0, 15, 19, 2}, {30, 9}, 1.5, 4.0},         // imgH 2
    {8, 8, {0, 0, 8, 8}, {19, 21}, 2.4, 2.7},            // the smallest image
    {12, 12, {4, 4, 5, 5}, {60, 60}, 7.1, 5.9},
    {50, 9, {1, 0, 48, 9}, {200, 30}, 1.25, 3.3},
    {60, 12, {0, 1, 41, 10}, {61, 10}, 1.5, 1.0},        // region ends inside: no right cases
};

class ResizeLanczos : public TierTest {
protected:
    void run(const ResizeCase &c, int ch, bool bottomUp, int dstPad = 9)
    {
        check_resize_case(c, ch, LUMI_INTER_LANCZOS, bottomUp, dstPad, reference_for(GetParam()));
    }
};

TEST_P(ResizeLanczos, MatchesReference)
{
    for (const ResizeCase &c : kCases)
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run(c, ch, bottomUp);
}

// yFactor 1.0 and above advance one row at a time (one ring); below 1.0 the
// other ring refills up to all six buffers, clamping at the lower edge.
TEST_P(ResizeLanczos, BothRingModes)
{
    for (double yf : {1.0, 1.3, 0.999, 0.7, 0.45, 0.3, 0.21, 0.17, 0.1})
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true}) {
                run(ResizeCase{21, 70, {2, 0, 17, 70}, {30, 90}, 1.2, yf}, ch, bottomUp);
                run(ResizeCase{21, 70, {1, 3, 17, 67}, {30, 90}, 0.8, yf}, ch, bottomUp);
            }
}

// Every output width through the interior's pairs and the vector groups;
// regions starting at 0 and 1 make the interior start at even and odd
// indices, so an odd stretch can end with an odd column left alone.
TEST_P(ResizeLanczos, EveryWidthThroughThePairs)
{
    for (int w = 1; w <= 23; ++w)
        for (int ch : {1, 3})
            for (int x0 : {0, 1, 3}) {
                run(ResizeCase{30, 9, {x0, 1, 27, 7}, {w, 9}, w / 27.0, 1.2}, ch, false, 0);
                run(ResizeCase{w + 9, 9, {x0, 0, w + 9 - x0, 9}, {w, 9}, 1.0 / 1.5, 1.0}, ch,
                    false, 0);
            }
}

TEST_P(ResizeLanczos, ZeroAndNegativeSteps)
{
    for (int ch : {1, 3})
        check_zero_and_negative_steps(ch, LUMI_INTER_LANCZOS, reference_for(GetParam()));
}

// A uniform image stays uniform, and factor 1.0 is an exact copy: the weight
// at tap 2 is 1 and its neighbours stand on the table's zeros.
TEST_P(ResizeLanczos, UniformAndIdentity)
{
    for (int ch : {1, 3}) {
        std::vector<uint8_t> flat(25 * 17 * ch, 201), out(40 * 30 * ch);
        ASSERT_EQ(resize_fn(ch)(flat.data(), LumiSize{25, 17}, 25 * ch, LumiRect{0, 0, 25, 17},
                                out.data(), 40 * ch, LumiSize{40, 30}, 1.6, 30.0 / 17.0,
                                LUMI_INTER_LANCZOS),
                  lumStsNoErr);
        for (uint8_t b : out)
            ASSERT_EQ(b, 201);
        const Source img(23, 11, ch, 12);
        GuardedImage same(16, 7, ch);
        ASSERT_EQ(resize_fn(ch)(img.buf.data(), LumiSize{23, 11}, img.step,
                                LumiRect{7, 4, 16, 7}, same.data(), same.step, LumiSize{16, 7},
                                1.0, 1.0, LUMI_INTER_LANCZOS),
                  lumStsNoErr);
        for (int y = 0; y < 7; ++y)
            EXPECT_EQ(memcmp(same.row(y), img.row(4 + y) + 7 * ch, 16 * ch), 0) << y;
    }
}

// An image below 8 in either direction takes the cubic method instead.
TEST_P(ResizeLanczos, SmallImagesTakeCubic)
{
    for (int ch : {1, 3}) {
        const Source src(7, 30, ch, 21);
        std::vector<uint8_t> lz(15 * 45 * ch), cu(15 * 45 * ch);
        for (auto m : {std::make_pair(LUMI_INTER_LANCZOS, &lz), std::make_pair(LUMI_INTER_CUBIC, &cu)})
            ASSERT_EQ(resize_fn(ch)(src.buf.data(), LumiSize{7, 30}, src.step, LumiRect{0, 0, 7, 30},
                                    m.second->data(), 15 * ch, LumiSize{15, 45}, 15.0 / 7.0, 1.5,
                                    m.first),
                      lumStsNoErr);
        EXPECT_EQ(lz, cu) << ch;
    }
}

LUMI_INSTANTIATE_TIERS(ResizeLanczos);

// The table is the kernel sinc(d) sinc(d / 3) at spacing 0.01 to about eight
// places, with -0.0 at 1, exact zeros at 2 and from 3 on, the same in every tier.
TEST(ResizeLanczosTable, KernelValues)
{
    for (int i = 1; i < 300; ++i) {
        const double d = i / 100.0, pd = M_PI * d;
        const double L = (sin(pd) / pd) * (sin(pd / 3.0) / (pd / 3.0));
        EXPECT_NEAR(T[i], L, 2e-7) << i;
    }
    EXPECT_EQ(T[0], 1.0f);
    EXPECT_TRUE(T[100] == 0.0f && signbit(T[100]));
    EXPECT_TRUE(T[200] == 0.0f && !signbit(T[200]));
    EXPECT_TRUE(T[300] == 0.0f && T[301] == 0.0f);
    EXPECT_EQ(memcmp(m7_tblLanczos3, e9_tblLanczos3, sizeof(float) * 302), 0);
}


// The filtered rows themselves, bit for bit: the AVX tier pairs the
// four-term sums of the edge cases and so differs from the others in the
// last bit of some edge columns, and nowhere else.
TEST(ResizeLanczosTiers, AvxEdgeSumsFollowTheirRule)
{
    int differing = 0;
    for (int ch : {1, 3})
        for (int roiX : {0, 1, 2})
            for (uint32_t seed = 1; seed <= 20; ++seed) {
                const int w = 9 + seed % 4, W = 41;
                Source src(w + roiX, 1, ch, seed * 3 + ch);
                const View v = src.view(false);
                const LumiRect cut{roiX, 0, w, 1};
                const Axis cols = lanczos_axis(corner_positions(w, W / (double)w, W));
                std::vector<int32_t> ofs;
                for (int c : cols.index)
                    ofs.push_back(c * ch);
                for (const lumitest::TierMembers &t : lumitest::runnable_tier_members()) {
                    const bool avx = t.level >= LUMI_LEVEL_AVX;
                    std::vector<float> got((size_t)W * 3 + 12);
                    const uint8_t *row = src.buf.data() + roiX * ch;
                    if (ch == 1)
                        t.ownpi_RowLanczos8pl(row, ofs.data(), cols.w.data(), got.data(), W, roiX, w);
                    else
                        t.ownpi_RowLanczos8px(row, 3, ofs.data(), cols.w.data(), got.data(), W, roiX, w);
                    const std::vector<float> want = filter_row(v, cut, cols, 0, avx);
                    const std::vector<float> other = filter_row(v, cut, cols, 0, !avx);
                    for (size_t e = 0; e < want.size(); ++e) {
                        ASSERT_EQ(memcmp(&got[e], &want[e], 4), 0)
                            << t.name << " ch " << ch << " roiX " << roiX << " seed " << seed
                            << " element " << e << ": " << got[e] << " expected " << want[e];
                        differing += avx && want[e] != other[e];
                    }
                }
            }
    if (tier_allowed(5))
        EXPECT_GT(differing, 0);
}

class ResizeLanczosAlloc : public TierTest {};

// Offsets, fractions, weights and six row buffers: a failure at any of the
// twelve frees the others and writes nothing.
TEST_P(ResizeLanczosAlloc, EachFailureFreesAllAndWritesNothing)
{
    for (int ch : {1, 3})
        EXPECT_EQ(check_alloc_failures(ch, LUMI_INTER_LANCZOS), 12) << "ch " << ch;
}

LUMI_INSTANTIATE_TIERS(ResizeLanczosAlloc);

} // namespace
