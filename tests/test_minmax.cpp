// Minimum and maximum filters against a scan of every window, for masks from
// 1x1 to wide and tall ones, anchors anywhere in the mask, on every dispatch
// index; sources in buffers of exactly the footprint's size and guard bytes
// around every destination; statuses and allocation failures.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilterMin_8u_C1R) ExtremeFn;

struct Filter {
    const char *name;
    ExtremeFn fn;
    bool max;
};
const Filter kFilters[] = {{"min", lumiFilterMin_8u_C1R, false},
                           {"max", lumiFilterMax_8u_C1R, true}};

// A footprint in a buffer of exactly its size; `levels` small makes ties.
struct Footprint {
    int w, h;
    std::vector<uint8_t> buf;
    Footprint(int w_, int h_, uint32_t seed, int levels = 256) : w(w_), h(h_), buf((size_t)w_ * h_)
    {
        uint32_t s = seed * 2654435761u + 5;
        for (auto &b : buf) {
            s = s * 1664525u + 1013904223u;
            b = (uint8_t)((s >> 24) % (uint32_t)levels);
        }
    }
};

std::vector<uint8_t> scan(const Footprint &f, int rw, int rh, LumiSize m, bool max)
{
    std::vector<uint8_t> out;
    for (int y = 0; y < rh; ++y)
        for (int x = 0; x < rw; ++x) {
            int v = max ? 0 : 255;
            for (int j = 0; j < m.height; ++j)
                for (int i = 0; i < m.width; ++i) {
                    const int p = f.buf[(size_t)(y + j) * f.w + x + i];
                    v = max ? (p > v ? p : v) : (p < v ? p : v);
                }
            out.push_back((uint8_t)v);
        }
    return out;
}

// Runs one filter on a fresh footprint and compares with the scan.
void check_case(const Filter &flt, int w, int h, LumiSize m, LumiPoint a, uint32_t seed,
                int levels)
{
    SCOPED_TRACE(testing::Message() << flt.name << " mask " << m.width << "x" << m.height
                                    << " anchor " << a.x << "," << a.y << " roi " << w << "x" << h);
    Footprint f(w + m.width - 1, h + m.height - 1, seed, levels);
    const std::vector<uint8_t> before = f.buf;
    GuardedImage dst(w, h, 1, 5, (int)(seed % 16));
    ASSERT_EQ(flt.fn(f.buf.data() + (size_t)a.y * f.w + a.x, f.w, dst.data(), dst.step, {w, h}, m,
                     a),
              lumStsNoErr);
    EXPECT_EQ(dst.region(), scan(f, w, h, m, flt.max));
    EXPECT_TRUE(dst.guard_intact());
    EXPECT_EQ(f.buf, before);
}

class MinMax : public lumitest::TierTest {};

// Masks: the copy (1x1), copying row passes (1xN), copying column passes
// (Nx1), squares, and wide and tall ones past a vector; widths over the 32-,
// 16- and 8-byte blocks and the single-byte tail; anchors at the corners,
// the centre and off-centre.
TEST_P(MinMax, EveryWindowMatchesTheScan)
{
    const LumiSize masks[] = {{1, 1}, {1, 2},  {1, 7},  {2, 1}, {9, 1},  {2, 2},  {3, 3},
                              {5, 5}, {15, 15}, {4, 3}, {33, 2}, {2, 33}, {40, 1}, {1, 40}};
    const int widths[] = {1, 7, 8, 15, 16, 24, 31, 32, 33, 57, 64, 101};
    uint32_t seed = 1;
    for (const Filter &flt : kFilters)
        for (const LumiSize &m : masks) {
            const LumiPoint anchors[] = {{0, 0},
                                         {m.width - 1, m.height - 1},
                                         {m.width / 2, m.height / 2},
                                         {m.width - 1, 0},
                                         {(m.width * 2) / 3, (m.height - 1) / 3}};
            int i = 0;
            for (int w : widths)
                for (int h : {1, 2, 5}) {
                    const LumiPoint a = anchors[i++ % 5];
                    ++seed;
                    check_case(flt, w, h, m, a, seed, seed % 3 == 0 ? 4 : 256);
                }
        }
}

// A region taller than the ring several times over, so the ring wraps often
// and every row position of the ring is the oldest at some point.
TEST_P(MinMax, RingWrapsOverTallRegions)
{
    for (const Filter &flt : kFilters)
        for (int mh : {2, 3, 6})
            check_case(flt, 45, 40, {3, mh}, {1, mh - 1}, 77 + mh, 256);
}

// Windows tall enough to work in blocks of rows, over regions several blocks
// tall (every phase of a block, a last block cut short), and wide ones whose
// row pass doubles spans, at powers of two and between them; odd region
// heights leave a single row after the pairs.
TEST_P(MinMax, TallAndWideWindowsOverManyBlocks)
{
    const LumiSize masks[] = {{3, 10}, {8, 11}, {16, 13}, {7, 9}, {1, 12}, {12, 1}, {31, 4}};
    uint32_t seed = 500;
    for (const Filter &flt : kFilters)
        for (const LumiSize &m : masks)
            for (int h : {3, 26, 41}) {
                ++seed;
                check_case(flt, 37 + (int)(seed % 7), h, m, {m.width / 3, m.height - 1}, seed,
                           seed % 2 ? 256 : 5);
            }
}

// Windows up to 5x5 run one pass over the source, 16 outputs at a time with
// 32 columns read ahead, and finish the last columns on the side.  Every
// width around those blocks (no block, one, several, tails of 1 to 47
// columns), region heights 1 to 8 (row pairs and an odd last row) and the
// anchor anywhere.  Each footprint row sits in a wider row whose slack, and a
// row above, hold the value that would win: a byte read outside the
// footprint shows in the output; the last row ends the buffer, so a read past
// it is caught by the address sanitizer.
TEST_P(MinMax, SmallWindowsReadOnlyTheFootprint)
{
    const int widths[] = {1,  2,  3,  4,  5,  11, 12, 13, 15, 16, 17, 20, 27, 28,
                          29, 31, 32, 33, 43, 44, 45, 47, 48, 49, 52, 59, 60, 61,
                          63, 64, 65, 75, 76, 77, 80, 81, 100, 127, 128, 129};
    uint32_t seed = 900;
    for (const Filter &flt : kFilters)
        for (int mw = 1; mw <= 5; ++mw)
            for (int mh = 1; mh <= 5; ++mh) {
                if (mw == 1 && mh == 1)
                    continue;
                const LumiSize m = {mw, mh};
                int turn = 0;
                for (int w : widths)
                    for (int h = 1; h <= 8; ++h, ++turn) {
                        const LumiPoint a = {turn % mw, (turn / mw) % mh};
                        SCOPED_TRACE(testing::Message()
                                     << flt.name << " mask " << mw << "x" << mh << " anchor "
                                     << a.x << "," << a.y << " roi " << w << "x" << h);
                        Footprint f(w + mw - 1, h + mh - 1, ++seed, seed % 3 == 0 ? 3 : 256);
                        const int step = f.w + 16;
                        std::vector<uint8_t> src((size_t)f.h * step + 8 + f.w,
                                                 flt.max ? 255 : 0);
                        for (int y = 0; y < f.h; ++y)
                            std::copy(f.buf.begin() + (size_t)y * f.w,
                                      f.buf.begin() + (size_t)(y + 1) * f.w,
                                      src.begin() + (size_t)(y + 1) * step + 8);
                        GuardedImage dst(w, h, 1, 5, (int)(seed % 16));
                        ASSERT_EQ(flt.fn(src.data() + (size_t)(a.y + 1) * step + 8 + a.x, step,
                                         dst.data(), dst.step, {w, h}, m, a),
                                  lumStsNoErr);
                        ASSERT_EQ(dst.region(), scan(f, w, h, m, flt.max));
                        ASSERT_TRUE(dst.guard_intact());
                    }
            }
}

// On 1920 columns the blocks run over most of the row; the tiers agree with
// the scan on the square masks measured for speed and their neighbours.
TEST_P(MinMax, LongRowsOfSmallWindows)
{
    uint32_t seed = 40;
    for (const Filter &flt : kFilters)
        for (int k : {3, 4, 5})
            check_case(flt, 1920, 5, {k, k}, {k / 2, k / 2}, ++seed, 256);
}

TEST_P(MinMax, StatusOrder)
{
    std::vector<uint8_t> s(256, 1);
    GuardedImage d(4, 4, 1);
    const Lum8u *src = s.data() + 100;
    for (const Filter &flt : kFilters) {
        ExtremeFn fn = flt.fn;
        // Each check wins over every later one.
        EXPECT_EQ(fn(nullptr, 0, d.data(), 0, {0, 0}, {0, 0}, {-1, -1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 8, nullptr, 8, {4, 4}, {3, 3}, {1, 1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 0, d.data(), 0, {0, 4}, {0, 0}, {-1, -1}), lumStsSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, -1}, {3, 3}, {1, 1}), lumStsSizeErr);
        EXPECT_EQ(fn(src, 0, d.data(), 8, {4, 4}, {0, 0}, {-1, -1}), lumStsStepErr);
        EXPECT_EQ(fn(src, 8, d.data(), -8, {4, 4}, {3, 3}, {1, 1}), lumStsStepErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {0, 3}, {-1, -1}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, -2}, {0, 0}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 3}, {3, 0}), lumStsAnchorErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {3, 3}, {0, -1}), lumStsAnchorErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4, 4}, {1, 1}, {0, 1}), lumStsAnchorErr);
        // A ring whose byte count does not fit 31 bits: a row too long for
        // it is a size error, too many rows a mask error; neither reads.
        EXPECT_EQ(fn(src, 8, d.data(), 8, {INT32_MAX - 8, 1}, {3, 3}, {0, 0}), lumStsSizeErr);
        EXPECT_EQ(fn(src, 8, d.data(), 8, {4000, 1}, {1, 600000}, {0, 0}), lumStsMaskSizeErr);
        EXPECT_TRUE(d.guard_intact());
    }
}

// The ring is the one allocation: failing it leaves the destination as it
// was and holds nothing.  A 1x1 mask copies without taking memory.
TEST_P(MinMax, AllocationFailure)
{
    Footprint f(30 + 4, 6 + 2, 3);
    GuardedImage d(30, 6, 1);
    for (const Filter &flt : kFilters) {
        d.fill_random(11);
        const std::vector<uint8_t> before = d.region();
        const int count = lumitest::for_each_alloc_failure(
            [&] {
                d.fill_random(11);
                return flt.fn(f.buf.data() + f.w + 2, f.w, d.data(), d.step, {30, 6}, {5, 3},
                              {2, 1});
            },
            [&](LumStatus st, int, int outstanding) {
                EXPECT_EQ(st, lumStsMemAllocErr);
                EXPECT_EQ(outstanding, 0);
                EXPECT_EQ(d.region(), before);
                EXPECT_TRUE(d.guard_intact());
            });
        EXPECT_EQ(count, 1) << flt.name;
        lumitest::AllocFault none;
        ASSERT_EQ(flt.fn(f.buf.data(), f.w, d.data(), d.step, {30, 6}, {1, 1}, {0, 0}),
                  lumStsNoErr);
        EXPECT_EQ(none.allocations(), 0);
    }
}

// Every path takes the same one block, small windows included: failing it
// gives the same status with nothing written and nothing held.
TEST_P(MinMax, AllocationFailureOnEveryPath)
{
    const LumiSize masks[] = {{2, 1}, {5, 5}, {1, 5}, {6, 5}, {5, 6}, {16, 13}};
    Footprint f(40 + 15, 9 + 12, 4);
    GuardedImage d(40, 9, 1);
    for (const Filter &flt : kFilters)
        for (const LumiSize &m : masks) {
            SCOPED_TRACE(testing::Message() << flt.name << " mask " << m.width << "x" << m.height);
            d.fill_random(5);
            const std::vector<uint8_t> before = d.region();
            const int count = lumitest::for_each_alloc_failure(
                [&] {
                    d.fill_random(5);
                    return flt.fn(f.buf.data(), f.w, d.data(), d.step, {40, 9}, m, {0, 0});
                },
                [&](LumStatus st, int, int outstanding) {
                    EXPECT_EQ(st, lumStsMemAllocErr);
                    EXPECT_EQ(outstanding, 0);
                    EXPECT_EQ(d.region(), before);
                    EXPECT_TRUE(d.guard_intact());
                });
            EXPECT_EQ(count, 1);
        }
}

LUMI_INSTANTIATE_TIERS(MinMax);

} // namespace
