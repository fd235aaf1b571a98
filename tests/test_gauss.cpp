// Gaussian filter: both engines of every tier (the direct one-channel pass
// and the table of filtered rows) against one plain reference, the public
// forms on every dispatch index, the caller's rounding mode, statuses and
// allocation failures.  Sources sit in buffers of exactly the footprint's
// size, so a read past it shows under AddressSanitizer.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <stdint.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilterGauss_8u_C1R) GaussFn;

// The kernels as written out in full.
const int kK3[3][3] = {{1, 2, 1}, {2, 4, 2}, {1, 2, 1}};
const int kK5[5][5] = {{2, 7, 12, 7, 2},
                       {7, 31, 52, 31, 7},
                       {12, 52, 127, 52, 12},
                       {7, 31, 52, 31, 7},
                       {2, 7, 12, 7, 2}};

// S / 16 and S / 571 to the nearest integer, ties to the even one.
int nearest_even(int s, int d)
{
    const int q = s / d, r = s % d;
    return 2 * r > d || (2 * r == d && (q & 1)) ? q + 1 : q;
}

// A footprint of (w + 2r) x (h + 2r) pixels in a buffer of exactly that size.
struct Footprint {
    int w, h, ch, r, step;
    std::vector<uint8_t> buf;
    Footprint(int w_, int h_, int ch_, int r_, uint32_t seed)
        : w(w_), h(h_), ch(ch_), r(r_), step((w_ + 2 * r_) * ch_),
          buf((size_t)(w_ + 2 * r_) * (h_ + 2 * r_) * ch_)
    {
        uint32_t s = seed * 2654435761u + 11;
        for (auto &b : buf) {
            s = s * 1664525u + 1013904223u;
            b = (uint8_t)(s >> 24);
        }
    }
    const Lum8u *centre() const { return buf.data() + (size_t)r * step + r * ch; }
    int at(int x, int y, int c) const { return buf[(size_t)(y + r) * step + (x + r) * ch + c]; }
};

std::vector<uint8_t> reference(const Footprint &f)
{
    std::vector<uint8_t> out;
    for (int y = 0; y < f.h; ++y)
        for (int x = 0; x < f.w; ++x)
            for (int c = 0; c < f.ch; ++c) {
                int s = 0;
                for (int i = -f.r; i <= f.r; ++i)
                    for (int j = -f.r; j <= f.r; ++j)
                        s += (f.r == 1 ? kK3[i + 1][j + 1] : kK5[i + 2][j + 2]) *
                             f.at(x + j, y + i, c);
                out.push_back((uint8_t)nearest_even(s, f.r == 1 ? 16 : 571));
            }
    return out;
}

LumiMaskSize mask_of(int r) { return r == 1 ? lumMaskSize3x3 : lumMaskSize5x5; }

// Runs one engine into a guarded destination; checks the guard and that the
// source is left alone, and returns the region.
template <typename Call>
std::vector<uint8_t> run(const Footprint &f, int misalign, Call call)
{
    GuardedImage dst(f.w, f.h, f.ch, 9, misalign);
    const std::vector<uint8_t> before = f.buf;
    EXPECT_EQ(call(dst.data(), dst.step), lumStsNoErr);
    EXPECT_TRUE(dst.guard_intact());
    EXPECT_EQ(f.buf, before);
    return dst.region();
}

// Widths around the alignment head and the 8- and 16-pixel blocks.
const int kWidths[] = {1, 2, 3, 8, 15, 16, 17, 31, 32, 33, 50, 67, 130};

class Gauss : public lumitest::TierTest {};

TEST_P(Gauss, PublicFormsMatchTheReference)
{
    for (int ch : {1, 3})
        for (int r : {1, 2})
            for (int w : kWidths)
                for (int h : {1, 2, 7}) {
                    SCOPED_TRACE(testing::Message() << "C" << ch << " " << 2 * r + 1 << "x"
                                                    << 2 * r + 1 << " " << w << "x" << h);
                    Footprint f(w, h, ch, r, w * 131 + h * 7 + r + ch);
                    GaussFn fn = ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R;
                    EXPECT_EQ(run(f, (w + h) % 16,
                                  [&](Lum8u *d, int step) {
                                      return fn(f.centre(), f.step, d, step, {w, h}, mask_of(r));
                                  }),
                              reference(f));
                }
}

// Flat pictures give their value back (S = 16v and 571v, 255 included), and
// single bright pixels land exactly on the 3x3 ties: S = 8 gives 0, S = 24
// gives 2, S = 40 gives 2.
TEST_P(Gauss, WorkedValues)
{
    for (int ch : {1, 3}) {
        GaussFn fn = ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R;
        for (int r : {1, 2}) {
            const int w = 40, side = w + 2 * r;
            std::vector<uint8_t> src((size_t)side * side * ch);
            GuardedImage dst(w, w, ch);
            for (int v = 0; v < 256; v += 5) {
                std::fill(src.begin(), src.end(), (uint8_t)v);
                ASSERT_EQ(fn(src.data() + r * side * ch + r * ch, side * ch, dst.data(), dst.step,
                             {w, w}, mask_of(r)),
                          lumStsNoErr);
                for (uint8_t b : dst.region())
                    ASSERT_EQ(b, v) << "flat " << v << " C" << ch << " r" << r;
            }
        }
        // A 3x3 window with the centre at value c (weight 4) and all else 0.
        const int w = 20;
        std::vector<uint8_t> src((size_t)(w + 2) * 3 * ch, 0);
        GuardedImage dst(w, 1, ch);
        const int centres[] = {2, 6, 10};
        const int expect[] = {0, 2, 2};
        for (int i = 0; i < 3; ++i) {
            for (int x = 0; x < w; x += 2)
                src[(size_t)(w + 2) * ch + (x + 1) * ch] = (uint8_t)centres[i];
            ASSERT_EQ(fn(src.data() + (w + 2) * ch + ch, (w + 2) * ch, dst.data(), dst.step, {w, 1},
                         lumMaskSize3x3),
                      lumStsNoErr);
            // Even outputs sit on a bright pixel: S = 4c; odd ones between two: S = 4c.
            EXPECT_EQ(dst.at(0, 0), expect[i]) << "centre " << centres[i];
            EXPECT_EQ(dst.at(1, 0), expect[i]) << "between " << centres[i];
        }
    }
}

// Each of the four rounding modes, set before the call, is in force after
// it, and none changes a pixel.
TEST_P(Gauss, CallerRoundingModeIsKept)
{
    const unsigned modes[] = {_MM_ROUND_NEAREST, _MM_ROUND_DOWN, _MM_ROUND_UP,
                              _MM_ROUND_TOWARD_ZERO};
    const unsigned saved = _mm_getcsr();
    for (int ch : {1, 3})
        for (int r : {1, 2}) {
            Footprint f(45, 6, ch, r, 3 + ch + r);
            const std::vector<uint8_t> want = reference(f);
            GaussFn fn = ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R;
            for (unsigned mode : modes) {
                _mm_setcsr((saved & ~_MM_ROUND_MASK) | mode);
                GuardedImage dst(f.w, f.h, ch);
                const LumStatus st =
                    fn(f.centre(), f.step, dst.data(), dst.step, {f.w, f.h}, mask_of(r));
                const unsigned after = _mm_getcsr() & _MM_ROUND_MASK;
                _mm_setcsr(saved);
                ASSERT_EQ(st, lumStsNoErr);
                EXPECT_EQ(after, mode) << "C" << ch << " r" << r;
                EXPECT_EQ(dst.region(), want) << "mode " << mode;
            }
        }
}

TEST_P(Gauss, StatusOrder)
{
    std::vector<uint8_t> s(256, 1);
    GuardedImage d(4, 4, 3);
    const Lum8u *src = s.data() + 100;
    for (GaussFn fn : {lumiFilterGauss_8u_C1R, lumiFilterGauss_8u_C3R}) {
        // Each check wins over every later one.
        EXPECT_EQ(fn(nullptr, 0, d.data(), 0, {0, 0}, (LumiMaskSize)31), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 20, nullptr, 20, {4, 4}, lumMaskSize3x3), lumStsNullPtrErr);
        EXPECT_EQ(fn(src, 0, d.data(), 0, {0, 4}, (LumiMaskSize)31), lumStsSizeErr);
        EXPECT_EQ(fn(src, 20, d.data(), 20, {4, -1}, lumMaskSize3x3), lumStsSizeErr);
        EXPECT_EQ(fn(src, 0, d.data(), 20, {4, 4}, (LumiMaskSize)31), lumStsStepErr);
        EXPECT_EQ(fn(src, 20, d.data(), -20, {4, 4}, lumMaskSize5x5), lumStsStepErr);
        for (int m : {31, 13, 51, 15, 44, 0, -33})
            EXPECT_EQ(fn(src, 20, d.data(), 20, {4, 4}, (LumiMaskSize)m), lumStsMaskSizeErr);
        EXPECT_TRUE(d.guard_intact());
    }
    // A row of three-channel working cells that a 31-bit byte count cannot
    // hold is refused before anything is read.
    EXPECT_EQ(lumiFilterGauss_8u_C3R(src, 20, d.data(), 20, {0x30000000, 1}, lumMaskSize3x3),
              lumStsSizeErr);
    EXPECT_EQ(lumiFilterGauss_8u_C3R(src, 20, d.data(), 20, {0x10000000, 1}, lumMaskSize5x5),
              lumStsSizeErr);
    EXPECT_TRUE(d.guard_intact());
}

// The table path's one block: failing it gives lumStsMemAllocErr with
// nothing written, nothing held, and the rounding mode as it was.
TEST_P(Gauss, AllocationFailure)
{
    const unsigned saved = _mm_getcsr();
    for (int ch : {1, 3})
        for (int r : {1, 2}) {
            Footprint f(21, 5, ch, r, 9);
            GuardedImage d(f.w, f.h, ch);
            d.fill_random(5);
            const std::vector<uint8_t> before = d.region();
            GaussFn fn = ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R;
            const int count = lumitest::for_each_alloc_failure(
                [&] {
                    d.fill_random(5);
                    _mm_setcsr((saved & ~_MM_ROUND_MASK) | _MM_ROUND_UP);
                    const LumStatus st =
                        fn(f.centre(), f.step, d.data(), d.step, {f.w, f.h}, mask_of(r));
                    EXPECT_EQ(_mm_getcsr() & _MM_ROUND_MASK, (unsigned)_MM_ROUND_UP);
                    _mm_setcsr(saved);
                    return st;
                },
                [&](LumStatus st, int, int outstanding) {
                    EXPECT_EQ(st, lumStsMemAllocErr);
                    EXPECT_EQ(outstanding, 0);
                    EXPECT_EQ(d.region(), before);
                    EXPECT_TRUE(d.guard_intact());
                });
            // One channel runs the direct engine from index 4 on, which takes nothing.
            EXPECT_EQ(count, ch == 1 && GetParam() >= 4 ? 0 : 1) << "C" << ch << " r" << r;
        }
}

// Rows cut into strips of 2032 values: widths on either side of one and two
// strips, for both masks, through the public forms of every dispatch index.
TEST_P(Gauss, RowsAroundStripEnds)
{
    for (int ch : {1, 3})
        for (int r : {1, 2})
            for (int values : {2024, 2031, 2032, 2033, 2040, 4063, 4064, 4065, 4072}) {
                const int w = values / ch;
                SCOPED_TRACE(testing::Message() << "C" << ch << " r" << r << " " << w);
                Footprint f(w, 3, ch, r, (uint32_t)(w * 3 + r + ch));
                GaussFn fn = ch == 1 ? lumiFilterGauss_8u_C1R : lumiFilterGauss_8u_C3R;
                EXPECT_EQ(run(f, w % 16,
                              [&](Lum8u *d, int step) {
                                  return fn(f.centre(), f.step, d, step, {w, 3}, mask_of(r));
                              }),
                          reference(f));
            }
}

LUMI_INSTANTIATE_TIERS(Gauss);

// Both engines of each tier, whichever the tier's public form takes, give
// the reference's pixels; so they agree with each other and across tiers.
struct Engines {
    lumi_member_type::ownlumiFilterGauss_8u_C1R *direct;
    lumi_member_type::ownlumiFilterGaussTable_8u *table;
};
Engines engines(const lumitest::TierMembers &m)
{
    return {m.ownlumiFilterGauss_8u_C1R, m.ownlumiFilterGaussTable_8u};
}

// Footprint values whose 5x5 sum is exactly s (s <= 571 * 255), filled into
// the 25 pixels from the heaviest weight down; a sum greedy filling cannot
// end on exactly is retried with less in the centre.
std::vector<int> window_for_sum(int s)
{
    std::vector<int> order; // positions i * 5 + j, heaviest first
    for (int i = 0; i < 25; ++i)
        order.push_back(i);
    std::stable_sort(order.begin(), order.end(),
                     [](int a, int b) { return kK5[a / 5][a % 5] > kK5[b / 5][b % 5]; });
    for (int centre = std::min(255, s / 127); centre >= 0; --centre) {
        std::vector<int> v(25, 0);
        v[12] = centre;
        int rest = s - 127 * centre;
        for (int pos : order) {
            if (pos == 12)
                continue;
            v[pos] = std::min(255, rest / kK5[pos / 5][pos % 5]);
            rest -= v[pos] * kK5[pos / 5][pos % 5];
        }
        if (rest == 0)
            return v;
    }
    ADD_FAILURE() << "no window sums to " << s;
    return std::vector<int>(25, 0);
}

// One row whose outputs 0, 5, 10 ... have disjoint footprints, each built to
// a chosen sum S: on both sides of every rounding boundary of S / 571
// (571q + 285 rounds down, 571q + 286 up) and the largest S.  The row is
// long enough for several strips; every output, designed or not, is checked
// against the reference, on every tier's two engines.  The designed row is
// a region's only row, the first row of a pair done together, or the second.
TEST(GaussEngines, RoundingBoundariesOfTheFiveByFiveScale)
{
    std::vector<int> sums;
    for (int q = 0; q < 255; ++q)
        for (int d : {284, 285, 286, 287})
            sums.push_back(571 * q + d);
    sums.push_back(571 * 255);
    for (int ch : {1, 3})
        for (int h : {1, 2})
            for (int lift = 0; lift < h; ++lift) {
                const int w = (int)(sums.size() + ch - 1) / ch * 5;
                Footprint f(w, h, ch, 2, 1);
                std::fill(f.buf.begin(), f.buf.end(), 0);
                for (size_t k = 0; k < sums.size(); ++k) {
                    const std::vector<int> v = window_for_sum(sums[k]);
                    const int x = (int)(k / ch) * 5, c = (int)(k % ch);
                    for (int i = 0; i < 5; ++i)
                        for (int j = 0; j < 5; ++j)
                            f.buf[(size_t)(i + lift) * f.step + (x + j) * ch + c] =
                                (uint8_t)v[i * 5 + j];
                }
                const std::vector<uint8_t> want = reference(f);
                const size_t row = (size_t)lift * w * ch;
                for (size_t k = 0; k < sums.size(); ++k)
                    ASSERT_EQ(want[row + (k / ch) * 5 * ch + k % ch], nearest_even(sums[k], 571));
                for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
                    SCOPED_TRACE(testing::Message() << m.name << " C" << ch << " row " << lift
                                                    << " of " << h);
                    const auto &e = engines(m);
                    EXPECT_EQ(run(f, 1,
                                  [&](Lum8u *d, int step) {
                                      return e.table(f.centre(), f.step, d, step, {w, h},
                                                     lumMaskSize5x5, ch);
                                  }),
                              want);
                    if (ch == 1)
                        EXPECT_EQ(run(f, 2,
                                      [&](Lum8u *d, int step) {
                                          return e.direct(f.centre(), f.step, d, step, {w, h},
                                                          lumMaskSize5x5);
                                      }),
                                  want);
                }
            }
}

// The 5x5 division works on S / 4 rounded anyhow within [(S - 1) / 4,
// (S + 3) / 4] (which pair of halvings rounds up depends on how S splits into
// the kernel's cells), then corrects by one from the exact remainder.  That
// is only right if (v * 459) >> 16 is S / 571 to nearest or one less for
// every such v: the pictures above cannot reach every split, so the bound
// is checked here for every S.
TEST(GaussEngines, FiveByFiveEstimateIsNearestOrOneLess)
{
    for (int s = 0; s <= 571 * 255; ++s) {
        const int q = nearest_even(s, 571);
        for (int v = s < 1 ? 0 : (s + 2) / 4; v <= (s + 3) / 4; ++v) {
            const int q0 = (v * 459) >> 16;
            ASSERT_TRUE(q0 == q || q0 == q - 1) << "S " << s << " v " << v;
        }
    }
}

TEST(GaussEngines, DirectAndTableMatchTheReferenceOnEveryTier)
{
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
        SCOPED_TRACE(m.name);
        const auto &e = engines(m);
        for (int r : {1, 2})
            for (int w : kWidths)
                for (int h : {1, 2, 3, 6}) {
                    SCOPED_TRACE(testing::Message() << 2 * r + 1 << " " << w << "x" << h);
                    for (int ch : {1, 3}) {
                        Footprint f(w, h, ch, r, w * 17 + h + r * 5 + ch);
                        const std::vector<uint8_t> want = reference(f);
                        EXPECT_EQ(run(f, w % 16,
                                      [&](Lum8u *d, int step) {
                                          return e.table(f.centre(), f.step, d, step, {w, h},
                                                         mask_of(r), ch);
                                      }),
                                  want);
                        if (ch == 1)
                            EXPECT_EQ(run(f, (w + 5) % 16,
                                          [&](Lum8u *d, int step) {
                                              return e.direct(f.centre(), f.step, d, step, {w, h},
                                                              mask_of(r));
                                          }),
                                      want);
                    }
                }
    }
}

// Rows longer than one strip of working cells are done in several strips;
// outputs on either side of a strip's end read the same footprint columns.
TEST(GaussEngines, RowsWiderThanOneStrip)
{
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
        SCOPED_TRACE(m.name);
        const auto &e = engines(m);
        for (int r : {1, 2})
            for (int ch : {1, 3})
                for (int w : ch == 1 ? std::vector<int>{1019, 1025, 2100}
                                     : std::vector<int>{339, 342, 700}) {
                    SCOPED_TRACE(testing::Message() << 2 * r + 1 << " C" << ch << " " << w);
                    Footprint f(w, 2, ch, r, (uint32_t)(w + r + ch));
                    const std::vector<uint8_t> want = reference(f);
                    EXPECT_EQ(run(f, 3,
                                  [&](Lum8u *d, int step) {
                                      return e.table(f.centre(), f.step, d, step, {w, 2},
                                                     mask_of(r), ch);
                                  }),
                              want);
                    if (ch == 1)
                        EXPECT_EQ(run(f, 5,
                                      [&](Lum8u *d, int step) {
                                          return e.direct(f.centre(), f.step, d, step, {w, 2},
                                                          mask_of(r));
                                      }),
                                  want);
                }
    }
}

// The 5x5 sums of a picture of extremes (0 and 255 in every arrangement of a
// few bits) reach far apart values of S, up to 145,605, where a 16-bit
// overflow or a wrong scale would show.
TEST(GaussEngines, ExtremeSums)
{
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
        SCOPED_TRACE(m.name);
        const auto &e = engines(m);
        Footprint f(300, 4, 1, 2, 1);
        for (size_t i = 0; i < f.buf.size(); ++i)
            f.buf[i] = (i * 2654435761u >> 13) % 5 == 0 ? 0 : 255;
        const std::vector<uint8_t> want = reference(f);
        EXPECT_EQ(run(f, 0,
                      [&](Lum8u *d, int step) {
                          return e.direct(f.centre(), f.step, d, step, {f.w, f.h},
                                          lumMaskSize5x5);
                      }),
                  want);
        EXPECT_EQ(run(f, 0,
                      [&](Lum8u *d, int step) {
                          return e.table(f.centre(), f.step, d, step, {f.w, f.h}, lumMaskSize5x5, 1);
                      }),
                  want);
    }
}

} // namespace
