// Cubic resize against a plain reference written from its arithmetic: the
// window that shifts at the image's edges, the three evaluation orders and
// which elements get each, both roundings, ring jumps, regions, steps,
// guards and allocation failures, on every dispatch index.
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

using namespace lumitest;

namespace {

float from_bits(uint32_t b)
{
    float f;
    memcpy(&f, &b, 4);
    return f;
}

const float kThird = from_bits(0x3EAAAAAA);
const float kRound = from_bits(0x3F000002);

// Centre sample and t of each output position; the window shifts inward on
// the image's first, last and last-but-one pixel.
struct Tap {
    int centre; // relative to the region
    float t;
};

std::vector<Tap> cubic_taps(int first, int imgLen, const std::vector<double> &pos)
{
    std::vector<Tap> taps;
    for (double p : pos) {
        const int r = (int)(p + 1e-7), a = first + r;
        Tap tap;
        if (a == imgLen - 1) {
            tap.centre = r - 2;
            tap.t = 2.0f;
        } else {
            tap.centre = a == 0 ? r + 1 : a == imgLen - 2 ? r - 1 : r;
            tap.t = (float)(p - tap.centre);
        }
        taps.push_back(tap);
    }
    return taps;
}

// Grouped order, unrounded.
float order_v(float t, const float s[4])
{
    const float c1 = t + 1.0f, c2 = (t * 0.5f) * c1, c3 = ((t - 1.0f) * kThird) * c2;
    const float d1 = s[1] - s[0], d2 = (s[2] - s[1]) - d1;
    const float d3 = ((s[3] - s[2]) - s[2]) + (s[1] - d2);
    return (s[0] + c1 * d1) + (c2 * d2 + c3 * d3);
}

// Horizontal single-pixel order.
float order_sh(float t, const float s[4])
{
    const float c1 = 1.0f + t, c2 = (0.5f * t) * c1, c3 = ((t - 1.0f) * c2) / 3.0f;
    const float d1 = s[1] - s[0], d2 = (s[2] - s[1]) - d1;
    const float d3 = ((0.0f - ((s[2] - s[1]) + s[2])) + s[3]) - d2;
    return ((s[0] + c1 * d1) + c2 * d2) + c3 * d3;
}

int clamp255(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

// Vertical orders with their roundings.
int vertical_v(float t, const float s[4]) { return clamp255((int)truncf(order_v(t, s) + kRound)); }

int vertical_sv(float t, const float s[4])
{
    const float c1 = 1.0f + t, c2 = (0.5f * c1) * t, c3 = ((t - 1.0f) * c2) / 3.0f;
    const float d1 = s[1] - s[0], d2 = (s[2] - d1) - s[1];
    const float d3 = (((s[3] - d2) - s[2]) - s[2]) + s[1];
    const float v = ((c1 * d1 + c2 * d2) + s[0]) + c3 * d3;
    return clamp255((int)((double)v + 0.5000001));
}

std::vector<uint8_t> cubic_reference(const View &img, LumiRect roi, int W, int H, double xf,
                                     double yf)
{
    const LumiRect cut = cut_roi(roi, img.w, img.h);
    const std::vector<Tap> cols = cubic_taps(cut.x, img.w, corner_positions(cut.width, xf, W));
    const std::vector<Tap> rows = cubic_taps(cut.y, img.h, corner_positions(cut.height, yf, H));
    const int ch = img.ch, count = W * ch;
    std::vector<uint8_t> out((size_t)count * H);
    for (int i = 0; i < H; ++i)
        for (int j = 0; j < W; ++j)
            for (int k = 0; k < ch; ++k) {
                const bool groupedH = ch == 3 || j < (W & ~3);
                float h[4];
                for (int d = 0; d < 4; ++d) {
                    const int y = cut.y + rows[i].centre - 1 + d, x = cut.x + cols[j].centre;
                    float s[4];
                    for (int e = 0; e < 4; ++e)
                        s[e] = (float)img.at(x - 1 + e, y, k);
                    h[d] = groupedH ? order_v(cols[j].t, s) : order_sh(cols[j].t, s);
                }
                const int e = j * ch + k;
                out[(size_t)i * count + e] =
                    (uint8_t)(e < (count & ~3) ? vertical_v(rows[i].t, h) : vertical_sv(rows[i].t, h));
            }
    return out;
}

void run_case(const ResizeCase &c, int ch, bool bottomUp, int dstPad = 9)
{
    check_resize_case(c, ch, LUMI_INTER_CUBIC, bottomUp, dstPad, cubic_reference);
}

// Regions inside, at the edges of and overhanging the image; factors up,
// down and mixed; a destination larger than the output and one that caps it.
const ResizeCase kCases[] = {
    {40, 30, {0, 0, 40, 30}, {80, 60}, 2.0, 2.0},
    {40, 30, {0, 0, 40, 30}, {40, 30}, 1.0, 1.0},
    {40, 30, {3, 2, 31, 21}, {64, 50}, 1.5, 1.5},       // reads around the region
    {40, 30, {5, 4, 35, 26}, {32, 32}, 0.5, 0.75},      // region at the right and lower edges
    {40, 30, {20, 10, 100, 100}, {70, 70}, 1.7, 0.6},   // overhangs: cut to the image
    {37, 23, {1, 1, 33, 19}, {100, 100}, 0.33, 2.9},    // destination larger than the output
    {64, 20, {0, 3, 64, 9}, {17, 7}, 0.27, 0.8},        // dstRoiSize caps the output
    {19, 17, {18, 0, 1, 17}, {9, 40}, 3.0, 2.0},        // one column, the image's last
    {19, 17, {2, 16, 9, 1}, {40, 9}, 4.0, 3.0},         // one row, the image's last
    {4, 4, {0, 0, 4, 4}, {13, 11}, 3.3, 2.9},           // one window for every position
    {12, 12, {4, 4, 5, 5}, {60, 60}, 7.1, 5.9},
    {50, 9, {1, 0, 48, 9}, {200, 30}, 1.25, 3.3},
};

class ResizeCubic : public TierTest {};

TEST_P(ResizeCubic, MatchesReference)
{
    for (const ResizeCase &c : kCases)
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run_case(c, ch, bottomUp);
}

// Factors well below 1 make the row offset jump by two, three, four rows and
// more between output rows, each jump refilling part or all of the ring.
TEST_P(ResizeCubic, RingJumps)
{
    for (double yf : {0.7, 0.45, 0.3, 0.26, 0.12})
        for (int ch : {1, 3})
            for (bool bottomUp : {false, true})
                run_case(ResizeCase{21, 60, {2, 1, 17, 58}, {40, 40}, 1.3, yf}, ch, bottomUp);
}

// Every output width from 1 to five groups and more: C1 switches between the
// grouped and the single orders at W & ~3 in both stages (W 3 is all single,
// W 5 has one single column); C3 at 3 W & ~3 in the vertical stage.
TEST_P(ResizeCubic, EveryWidthThroughTheOrders)
{
    for (int w = 1; w <= 23; ++w)
        for (int ch : {1, 3}) {
            run_case(ResizeCase{30, 9, {3, 1, 27, 7}, {w, 9}, w / 27.0, 1.2}, ch, false, 0);
            run_case(ResizeCase{w + 5, 6, {0, 0, w + 5, 6}, {w, 6}, 1.0 / 1.5, 1.0}, ch, false, 0);
        }
}

// A source step of zero reads row 0 for every row; a negative destination
// step writes bottom-up.
TEST_P(ResizeCubic, ZeroAndNegativeSteps)
{
    for (int ch : {1, 3})
        check_zero_and_negative_steps(ch, LUMI_INTER_CUBIC, cubic_reference);
}

// Worked values: output 0 sits on the image's first pixel (centre 1, t -1)
// and returns it exactly; overshoot beyond 0 and 255 is limited only at the
// end; the last pixel (t 2 on a centre two back) comes back through both
// vertical orders.
TEST_P(ResizeCubic, WorkedValues)
{
    // A step from 0 to 255 overshoots on both sides when upscaled.
    uint8_t src[8 * 8];
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            src[y * 8 + x] = x < 4 ? 0 : 255;
    uint8_t out[6 * 29];
    ASSERT_EQ(lumiResize_8u_C1R(src, LumiSize{8, 8}, 8, LumiRect{0, 0, 8, 8}, out, 29,
                                LumiSize{29, 6}, 3.625, 0.75, LUMI_INTER_CUBIC),
              lumStsNoErr);
    for (int y = 0; y < 6; ++y) {
        EXPECT_EQ(out[y * 29], 0);
        EXPECT_EQ(out[y * 29 + 28], 255);
        for (int x = 0; x < 29; ++x) {
            const int want = x < 12 ? 0 : x > 16 ? 255 : -1; // the step itself lies between
            if (want >= 0)
                EXPECT_EQ(out[y * 29 + x], want) << x << "," << y;
        }
    }
    const Source img(9, 9, 1, 77);
    uint8_t same[9 * 9];
    ASSERT_EQ(lumiResize_8u_C1R(img.buf.data(), LumiSize{9, 9}, img.step, LumiRect{0, 0, 9, 9},
                                same, 9, LumiSize{9, 9}, 1.0, 1.0, LUMI_INTER_CUBIC),
              lumStsNoErr);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(same[y * 9 + x], img.row(y)[x]) << x << "," << y;
}

LUMI_INSTANTIATE_TIERS(ResizeCubic);

// Every tier's cubic row stages, called directly.
struct CubicStages {
    const char *name;
    lumi_member_type::ownpi_CoefCubic8pl *pl;
    lumi_member_type::ownpi_CoefCubic8px *px;
    lumi_member_type::ownpi_SummCubic8pl *summ;
};

std::vector<CubicStages> runnable_stages()
{
    std::vector<CubicStages> out;
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members())
        out.push_back({m.name, m.ownpi_CoefCubic8pl, m.ownpi_CoefCubic8px, m.ownpi_SummCubic8pl});
    return out;
}

// The filtered rows bit for bit: whole groups of four columns in the grouped
// order with 0x3EAAAAAA, the rest in the single order with 3.0; three
// channels all grouped.  The two orders differ on this data, so a wrong
// split or constant shows.
TEST(ResizeCubicStages, HorizontalOrdersBitForBit)
{
    int ordersDiffer = 0;
    for (const CubicStages &st : runnable_stages()) {
        for (int ch : {1, 3})
            for (int W = 1; W <= 13; ++W) {
                Source src(40, 1, ch, (uint32_t)(W * 5 + ch));
                std::vector<int32_t> ofs;
                std::vector<float> t;
                for (int j = 0; j < W; ++j) {
                    ofs.push_back((1 + j * j / 5) * ch); // non-decreasing, as the tables are
                    t.push_back(-1.0f + 3.0f * (float)((j * 7919) % 1000) / 999.0f);
                }
                alignas(32) float got[3 * 13 + 12]; // row buffers are 32-byte aligned
                if (ch == 1)
                    st.pl(src.buf.data(), W, ofs.data(), t.data(), got);
                else
                    st.px(src.buf.data(), W, 3, ofs.data(), t.data(), got);
                for (int j = 0; j < W; ++j)
                    for (int k = 0; k < ch; ++k) {
                        float s[4];
                        for (int e = 0; e < 4; ++e)
                            s[e] = src.buf[ofs[j] + (e - 1) * ch + k];
                        const float v = order_v(t[j], s), sh = order_sh(t[j], s);
                        const float want = ch == 3 || j < (W & ~3) ? v : sh;
                        ASSERT_EQ(memcmp(&got[j * ch + k], &want, 4), 0)
                            << st.name << " ch " << ch << " W " << W << " column " << j;
                        ordersDiffer += v != sh;
                    }
            }
    }
    EXPECT_GT(ordersDiffer, 0);
}

// The vertical roundings differ just below one half: 0.49999988 plus
// 0x3F000002 in float reaches 1.0, plus 0.5000001 in double does not.  At
// t 0 every element is the buffer's value, so the bytes show which order
// each element took: the first count & ~3 grouped, the rest single.
TEST(ResizeCubicStages, VerticalOrdersSplitAtGroupsOfFour)
{
    const float x = from_bits(0x3EFFFFFC);
    alignas(32) float buf[32]; // row buffers are 32-byte aligned
    std::fill(buf, buf + 32, x);
    const float t = 0.0f;
    for (const CubicStages &st : runnable_stages()) {
        for (int count = 1; count <= 19; ++count) {
            std::vector<uint8_t> out((size_t)count + 4, 0xEE);
            st.summ(out.data(), count, &t, buf, buf, buf, buf);
            for (int e = 0; e < count; ++e)
                EXPECT_EQ(out[e], e < (count & ~3) ? 1 : 0) << st.name << " count " << count << " e " << e;
            EXPECT_EQ(out[count], 0xEE) << st.name << " wrote past the row";
        }
    }
}

class ResizeCubicAlloc : public TierTest {};

// Offsets, fractions and four row buffers: a failure at any of the eight
// frees the others and writes nothing.
TEST_P(ResizeCubicAlloc, EachFailureFreesAllAndWritesNothing)
{
    for (int ch : {1, 3})
        EXPECT_EQ(check_alloc_failures(ch, LUMI_INTER_CUBIC), 8) << "ch " << ch;
}

LUMI_INSTANTIATE_TIERS(ResizeCubicAlloc);

} // namespace
