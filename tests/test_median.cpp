// Median filter: every path against a sort of the window, on every tier, with
// guard bytes around the destination and exact-size sources so that a read
// outside the footprint shows under AddressSanitizer.
#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/sparse.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilterMedian_8u_C1R) MedianFn;
typedef LumiMedianLineFn *LineFn;

// A source footprint in a buffer of exactly its size (no margin; `pad` bytes
// after every row but the last), filled with values below `levels` so that
// ties are common when it is small.
struct Footprint {
    int w, h, ch, step;
    std::vector<uint8_t> buf;
    Footprint(int w_, int h_, int ch_, uint32_t seed, int levels, int pad = 0)
        : w(w_), h(h_), ch(ch_), step(w_ * ch_ + pad),
          buf((size_t)(w_ * ch_ + pad) * (h_ - 1) + (size_t)w_ * ch_)
    {
        uint32_t s = seed * 2654435761u + 7;
        for (auto &b : buf) {
            s = s * 1664525u + 1013904223u;
            b = (uint8_t)((s >> 24) % (uint32_t)levels);
        }
    }
    uint8_t at(int x, int y, int c) const { return buf[(size_t)y * step + x * ch + c]; }
};

// Sorts each window of the footprint and takes the middle value.
std::vector<uint8_t> reference(const Footprint &f, int rw, int rh, int mw, int mh)
{
    std::vector<uint8_t> out, win;
    for (int y = 0; y < rh; ++y)
        for (int x = 0; x < rw; ++x)
            for (int c = 0; c < f.ch; ++c) {
                win.clear();
                for (int j = 0; j < mh; ++j)
                    for (int i = 0; i < mw; ++i)
                        win.push_back(f.at(x + i, y + j, c));
                std::nth_element(win.begin(), win.begin() + win.size() / 2, win.end());
                out.push_back(win[win.size() / 2]);
            }
    return out;
}

struct Case {
    int mw, mh;
};

// Every path: the six networks, the copy, the histogram and the single column.
const Case kShapes[] = {{3, 3}, {5, 5}, {3, 1}, {5, 1}, {1, 3}, {1, 5}, {1, 1},
                        {3, 5}, {7, 1}, {1, 7}, {7, 7}, {5, 3}, {9, 3}, {1, 9}};

class Median : public lumitest::TierTest {};

// Widths around the 16-byte blocks, the chunk of the square kernels and the
// head; anchors at both corners and the centre; three value ranges.
TEST_P(Median, EveryPathGivesTheExactMedian)
{
    const int widths[] = {1, 2, 7, 16, 17, 37, 70, 200};
    for (int ch : {1, 3})
        for (const Case &k : kShapes)
            for (int w : widths)
                for (int variant = 0; variant < 3; ++variant) {
                    const int h = 1 + variant * 2;
                    const int levels = variant == 0 ? 256 : variant == 1 ? 3 : 1;
                    const LumiPoint anchors[] = {{0, 0}, {k.mw / 2, k.mh / 2}, {k.mw - 1, k.mh - 1}};
                    const LumiPoint a = anchors[(w + variant) % 3];
                    Footprint f(w + k.mw - 1, h + k.mh - 1, ch, w * 31 + k.mw * 7 + k.mh, levels);
                    GuardedImage dst(w, h, ch, 5, (w + variant) % 16);
                    const Lum8u *src = f.buf.data() + a.y * f.step + a.x * ch;
                    MedianFn fn = ch == 1 ? lumiFilterMedian_8u_C1R : lumiFilterMedian_8u_C3R;
                    const std::vector<uint8_t> before = f.buf;
                    ASSERT_EQ(fn(src, f.step, dst.data(), dst.step, {w, h}, {k.mw, k.mh}, a),
                              lumStsNoErr);
                    SCOPED_TRACE(testing::Message() << "C" << ch << " mask " << k.mw << "x"
                                                    << k.mh << " width " << w << " height " << h);
                    EXPECT_EQ(dst.region(), reference(f, w, h, k.mw, k.mh));
                    EXPECT_TRUE(dst.guard_intact());
                    EXPECT_EQ(f.buf, before);
                }
}

// A long row through the square networks with its pixels in a staircase of
// single changes, where a network that drops one compare-exchange is off.
TEST_P(Median, SquareNetworksOnEveryOrderOfFiveValues)
{
    for (int side : {3, 5, 7}) {
        const int w = 600, h = 2;
        Footprint f(w + side - 1, h + side - 1, 1, side, 256);
        uint32_t s = 99;
        for (auto &b : f.buf) {
            s = s * 1103515245u + 12345u;
            b = (uint8_t)(((s >> 16) % 7) * 40);
        }
        GuardedImage dst(w, h, 1);
        ASSERT_EQ(lumiFilterMedian_8u_C1R(f.buf.data() + (side / 2) * (f.step + 1), f.step,
                                          dst.data(), dst.step, {w, h}, {side, side},
                                          {side / 2, side / 2}),
                  lumStsNoErr);
        EXPECT_EQ(dst.region(), reference(f, w, h, side, side));
        EXPECT_TRUE(dst.guard_intact());
    }
}

// The 7x7 network against a sort of each window.  Two-level pictures put
// most windows within one cell of the middle, so a comparator too few or in
// the wrong place shows; extreme and flat pictures catch a sign or
// saturation slip.  Widths run around every block of 16 bytes and the chunk
// of sorted columns (512 bytes), heights 1 to 20; sources have padded rows
// and end where their buffer ends, destinations are misaligned and guarded.
TEST_P(Median, SevenBySevenNetwork)
{
    std::vector<int> widths1, widths3;
    for (int w = 1; w <= 36; ++w)
        widths1.push_back(w);
    for (int w : {47, 48, 49, 63, 64, 65, 505, 511, 512, 513, 520, 527, 528, 529, 1040})
        widths1.push_back(w);
    for (int w = 1; w <= 12; ++w)
        widths3.push_back(w);
    for (int w : {15, 16, 17, 21, 22, 170, 171, 172, 175, 176, 341, 342, 343, 346})
        widths3.push_back(w);
    const LumiPoint anchors[] = {{3, 3}, {0, 0}, {6, 6}, {2, 5}};
    int n = 0;
    for (int ch : {1, 3})
        for (int w : ch == 1 ? widths1 : widths3)
            for (int kind = 0; kind < 5; ++kind, ++n) {
                const int h = 1 + n % 20;
                const int levels[] = {256, 2, 2, 1, 1};
                Footprint f(w + 6, h + 6, ch, (uint32_t)n, levels[kind], n % 3 * 5);
                if (kind == 2 || kind == 4) // 0 and 255 only; all 255
                    for (auto &b : f.buf)
                        b = (uint8_t)(kind == 4 || b ? 255 : 0);
                const LumiPoint a = anchors[n % 4];
                GuardedImage dst(w, h, ch, 5, n % 16);
                const MedianFn fn = ch == 1 ? lumiFilterMedian_8u_C1R : lumiFilterMedian_8u_C3R;
                ASSERT_EQ(fn(f.buf.data() + a.y * f.step + a.x * ch, f.step, dst.data(), dst.step,
                             {w, h}, {7, 7}, a),
                          lumStsNoErr);
                SCOPED_TRACE(testing::Message() << "C" << ch << " width " << w << " height " << h
                                                << " picture " << kind);
                EXPECT_EQ(dst.region(), reference(f, w, h, 7, 7));
                EXPECT_TRUE(dst.guard_intact());
            }
}

TEST_P(Median, StatusOrder)
{
    std::vector<uint8_t> s(64, 1);
    GuardedImage d(4, 4, 3);
    const Lum8u *src = s.data() + 20;
    for (MedianFn fn : {lumiFilterMedian_8u_C1R, lumiFilterMedian_8u_C3R}) {
        // Each check wins over every later one.
        EXPECT_EQ(fn(nullptr, 0, d.data(), 0, {0, 0}, {2, 2}, {-1, -1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 8, nullptr, 8, {4, 4}, {3, 3}, {1, 1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 0, d.data(), 0, {0, 4}, {2, 2}, {-1, -1}), lumStsSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, -1}, {3, 3}, {1, 1}), lumStsSizeErr);
        EXPECT_EQ(fn(src, 0, d.data(), 8, {4, 4}, {2, 2}, {-1, -1}), lumStsStepErr);
        EXPECT_EQ(fn(src, 8, d.data(), -8, {4, 4}, {3, 3}, {1, 1}), lumStsStepErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {4, 3}, {9, 9}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 0}, {0, 0}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 2}, {0, 0}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 3}, {3, 0}), lumStsAnchorErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 3}, {0, -1}), lumStsAnchorErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {1, 5}, {0, 5}), lumStsAnchorErr);
        EXPECT_TRUE(d.guard_intact());
    }
}

// Sizes whose counts leave 32 bits, over reserved address space (untouched
// pages read as zero and cost nothing): masks of more than 2^31 - 1 cells and
// footprint rows of more than 2^31 - 1 bytes are refused after the ordinary
// checks; a step above 2^30 still reaches a line window's outer rows.
TEST_P(Median, SizesBeyond32Bits)
{
    Lum8u out[64];
    memset(out, 7, sizeof out);
    {
        // 65537 x 32769 cells, over a real footprint of zeros.
        lumitest::SparseBlock img((size_t)3 * 65537 * 32770);
        ASSERT_NE(img.data(), nullptr);
        const LumiSize mask = {65537, 32769};
        EXPECT_EQ(lumiFilterMedian_8u_C1R(img.data(), 65537, out, 8, {1, 1}, mask, {0, 0}),
                  lumStsMaskSizeErr);
        EXPECT_EQ(lumiFilterMedian_8u_C3R(img.data(), 3 * 65537, out, 8, {1, 1}, mask, {0, 0}),
                  lumStsMaskSizeErr);
        EXPECT_EQ(lumiFilterMedian_8u_C1R(img.data(), 65537, out, 8, {1, 1}, mask, {0, 32769}),
                  lumStsAnchorErr);
    }
    {
        // A 3x3 footprint of 715827884 three-channel pixels: 2^31 + 4 bytes.
        lumitest::SparseBlock src((size_t)3 * 715827884 * 3), dst((size_t)3 * 715827884);
        ASSERT_TRUE(src.data() && dst.data());
        EXPECT_EQ(lumiFilterMedian_8u_C3R(src.data() + 0x7fffffff, 0x7fffffff, dst.data(),
                                          0x7fffffff, {715827882, 1}, {3, 3}, {1, 1}),
                  lumStsSizeErr);
        EXPECT_EQ(lumiFilterMedian_8u_C3R(src.data(), 0x7fffffff, dst.data(), 0x7fffffff,
                                          {715827883, 1}, {1, 1}, {0, 0}),
                  lumStsSizeErr);
    }
    EXPECT_EQ(out[0], 7);
    {
        // A 1x5 column with rows 2^30 + 1 bytes apart: 2 * step leaves 32 bits.
        const int32_t step = (1 << 30) + 1;
        lumitest::SparseBlock img((size_t)step * 5);
        ASSERT_NE(img.data(), nullptr);
        const uint8_t rows[5] = {40, 10, 30, 50, 20};
        for (int r = 0; r < 5; ++r)
            for (int x = 0; x < 20; ++x)
                img.data()[(size_t)r * step + x] = (uint8_t)(rows[r] + x);
        for (int ch : {1, 3}) {
            memset(out, 0, sizeof out);
            const MedianFn fn = ch == 1 ? lumiFilterMedian_8u_C1R : lumiFilterMedian_8u_C3R;
            ASSERT_EQ(fn(img.data() + (size_t)2 * step, step, out, 64, {20 / ch, 1}, {1, 5}, {0, 2}),
                      lumStsNoErr);
            for (int x = 0; x < 20 / ch * ch; ++x)
                ASSERT_EQ(out[x], 30 + x) << "byte " << x << ", " << ch << " channels";
        }
    }
}

// A window wider than ten times its height fits in 32 bits: the choice of
// path must not form a selector code from its sides (under the undefined-
// behaviour sanitizer this overflowed).  One tier: the window is 200 MB.
TEST(MedianWideWindow, SidesBeyondTheSelectorCode)
{
    const int32_t mw = 214748365; // mw * 10 leaves 32 bits
    lumitest::SparseBlock img((size_t)mw);
    ASSERT_NE(img.data(), nullptr);
    img.data()[0] = 200;
    Lum8u out[2] = {7, 7};
    ASSERT_EQ(lumiFilterMedian_8u_C1R(img.data(), mw, out, 1, {1, 1}, {mw, 1}, {0, 0}),
              lumStsNoErr);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 7);
}

TEST_P(Median, SingleColumnAllocationFailure)
{
    Footprint f(4, 9 + 6, 3, 5, 256);
    GuardedImage d(4, 9, 3);
    d.fill_random(77);
    const std::vector<uint8_t> before = d.region();
    const int count = lumitest::for_each_alloc_failure(
        [&] {
            d.fill_random(77);
            return lumiFilterMedian_8u_C3R(f.buf.data() + 3 * f.step, f.step, d.data(), d.step,
                                           {4, 9}, {1, 7}, {0, 3});
        },
        [&](LumStatus st, int, int outstanding) {
            EXPECT_EQ(st, lumStsMemAllocErr);
            EXPECT_EQ(outstanding, 0);
            EXPECT_EQ(d.region(), before);
        });
    EXPECT_EQ(count, 1);
    // The histogram engine and the networks take no memory.
    lumitest::AllocFault none;
    ASSERT_EQ(lumiFilterMedian_8u_C3R(f.buf.data() + 3 * f.step + 3, f.step, d.data(), d.step,
                                      {2, 9}, {3, 7}, {1, 3}),
              lumStsNoErr);
    ASSERT_EQ(lumiFilterMedian_8u_C3R(f.buf.data() + 2 * f.step + 6, f.step, d.data(), d.step,
                                      {2, 9}, {5, 5}, {2, 2}),
              lumStsNoErr);
    Footprint g(10, 15, 3, 6, 256);
    ASSERT_EQ(lumiFilterMedian_8u_C3R(g.buf.data(), g.step, d.data(), d.step, {4, 9}, {7, 7},
                                      {0, 0}),
              lumStsNoErr);
    EXPECT_EQ(none.allocations(), 0);
}

LUMI_INSTANTIATE_TIERS(Median);

// The line entries of every tier: their own checks, and the same medians as
// the public forms.  pSrc is the window's centre.
TEST(MedianLineEntries, ChecksAndValues)
{
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
        SCOPED_TRACE(m.name);
        const struct {
            LineFn h1, h3, v1, v3;
        } e = {m.lumiFilterMedianHoriz_8u_C1R, m.lumiFilterMedianHoriz_8u_C3R,
               m.lumiFilterMedianVert_8u_C1R, m.lumiFilterMedianVert_8u_C3R};
        std::vector<uint8_t> s(64, 1);
        GuardedImage d(4, 4, 3);
        for (LineFn fn : {e.h1, e.h3, e.v1, e.v3}) {
            EXPECT_EQ(fn(nullptr, 0, d.data(), 0, {0, 0}, lumMaskSize3x3), lumStsNullPtrErr);
            EXPECT_EQ(fn(s.data(), 0, d.data(), 0, {0, 1}, lumMaskSize3x3), lumStsSizeErr);
            EXPECT_EQ(fn(s.data(), 0, d.data(), 8, {1, 1}, lumMaskSize3x3), lumStsStepErr);
            EXPECT_EQ(fn(s.data(), 8, d.data(), 8, {1, 1}, lumMaskSize5x5), lumStsMaskSizeErr);
        }
        for (LineFn fn : {e.h1, e.h3})
            EXPECT_EQ(fn(s.data() + 30, 8, d.data(), 8, {1, 1}, lumMaskSize1x3), lumStsMaskSizeErr);
        for (LineFn fn : {e.v1, e.v3})
            EXPECT_EQ(fn(s.data() + 30, 8, d.data(), 8, {1, 1}, lumMaskSize3x1), lumStsMaskSizeErr);
        EXPECT_TRUE(d.guard_intact());

        for (int ch : {1, 3})
            for (LumiMaskSize m :
                 {lumMaskSize3x1, lumMaskSize5x1, lumMaskSize1x3, lumMaskSize1x5})
                for (int w : {3, 16, 45}) {
                    const int mw = m / 10, mh = m % 10, h = 3;
                    Footprint f(w + mw - 1, h + mh - 1, ch, w + m, 256);
                    GuardedImage dst(w, h, ch);
                    const Lum8u *centre = f.buf.data() + (mh / 2) * f.step + (mw / 2) * ch;
                    LineFn fn = mh == 1 ? (ch == 1 ? e.h1 : e.h3) : (ch == 1 ? e.v1 : e.v3);
                    ASSERT_EQ(fn(centre, f.step, dst.data(), dst.step, {w, h}, m), lumStsNoErr);
                    EXPECT_EQ(dst.region(), reference(f, w, h, mw, mh));
                    EXPECT_TRUE(dst.guard_intact());
                }
    }
}

} // namespace
