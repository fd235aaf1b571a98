// Colour median filter: every tier against a brute-force vector median (each
// cell's summed distance to every pixel of its window, the first smallest
// wins), on pictures built to have ties, flat areas and lone outliers.  The
// source lies in a block of exactly its footprint, so a read past it shows
// under AddressSanitizer; the destination has guard bytes.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/sparse.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilterMedianColor_8u_C3R) MedianColorFn;

// A three-channel footprint of cols x rows pixels with `pad` bytes between
// rows, in a block that ends with the last pixel.
struct Source {
    int cols, rows, step;
    std::vector<uint8_t> buf;
    Source(int c, int r, int pad) : cols(c), rows(r), step(3 * c + pad)
    {
        buf.assign((size_t)step * (r - 1) + 3 * c, 0);
    }
    uint8_t *px(int x, int y) { return buf.data() + (size_t)y * step + 3 * x; }
    const uint8_t *px(int x, int y) const { return buf.data() + (size_t)y * step + 3 * x; }
    // Each channel of each pixel below `levels`; 1 gives a flat picture.
    void fill(uint32_t seed, int levels)
    {
        uint32_t s = seed * 2654435761u + 17;
        for (auto &b : buf) {
            s = s * 1664525u + 1013904223u;
            b = (uint8_t)((s >> 24) % (uint32_t)levels * (255 / (levels > 1 ? levels - 1 : 1)));
        }
    }
    const uint8_t *centre(int k) const { return px(k / 2, k / 2); }
};

int distance(const uint8_t *a, const uint8_t *b)
{
    return abs(a[0] - b[0]) + abs(a[1] - b[1]) + abs(a[2] - b[2]);
}

// The vector median of every window, written from the definition.
std::vector<uint8_t> reference(const Source &s, int w, int h, int k)
{
    std::vector<uint8_t> out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int best = -1, bestScore = 0;
            for (int a = 0; a < k * k; ++a) {
                int score = 0;
                for (int b = 0; b < k * k; ++b)
                    score += distance(s.px(x + a % k, y + a / k), s.px(x + b % k, y + b / k));
                if (best < 0 || score < bestScore)
                    best = a, bestScore = score;
            }
            const uint8_t *p = s.px(x + best % k, y + best / k);
            out.insert(out.end(), p, p + 3);
        }
    return out;
}

LumiMaskSize mask_of(int k) { return k == 3 ? lumMaskSize3x3 : lumMaskSize5x5; }

class MedianColor : public lumitest::TierTest {};

// Widths around the 8-pixel vectors and the 32-pixel strips, heights that
// wrap the ring of rows several times, random pictures of many and of few colours (where
// distinct colours tie all the time) and flat ones.
TEST_P(MedianColor, MatchesBruteForce)
{
    const int widths[] = {1, 2, 3, 7, 8, 9, 16, 17, 31, 32, 33, 63, 64, 65, 71, 129, 200};
    for (int k : {3, 5})
        for (int w : widths)
            for (int variant = 0; variant < 3; ++variant) {
                const int h = variant == 0 ? 1 : variant == 1 ? 13 : 2;
                const int levels = variant == 0 ? 256 : variant == 1 ? 2 : 1;
                Source src(w + k - 1, h + k - 1, (w + variant) % 5);
                src.fill((uint32_t)(w * 13 + k + variant), levels);
                const std::vector<uint8_t> before = src.buf;
                GuardedImage dst(w, h, 3, 1 + w % 7, w % 16);
                SCOPED_TRACE(testing::Message() << k << "x" << k << " width " << w << " height "
                                                << h << " levels " << levels);
                ASSERT_EQ(lumiFilterMedianColor_8u_C3R(src.centre(k), src.step, dst.data(),
                                                       dst.step, {w, h}, mask_of(k)),
                          lumStsNoErr);
                EXPECT_EQ(dst.region(), reference(src, w, h, k));
                EXPECT_TRUE(dst.guard_intact());
                EXPECT_EQ(src.buf, before);
            }
}

// Two colours with equal, smallest scores: the one met first in row-major
// order is stored, wherever the two stand in the window.
TEST_P(MedianColor, TieGoesToTheFirstCellInRowMajorOrder)
{
    // X and Y lie 200 apart from each other and from Z; four X, four Y and
    // one Z give X and Y the score 1000 and Z 1600.
    const uint8_t X[3] = {100, 0, 0}, Y[3] = {0, 100, 0}, Z[3] = {0, 0, 100};
    for (int k : {3, 5}) {
        const int cells = k * k, half = (cells - 1) / 2;
        for (int pos = 0; pos + 1 < cells; ++pos) {
            // X at `pos`, Y at the first free cell after it, then half - 1
            // more of each alternately, the rest Z.
            std::vector<const uint8_t *> win(cells, Z);
            win[pos] = X;
            int nx = 1, ny = 0;
            for (int c = pos + 1; c < cells; ++c)
                if (ny < half && (ny < nx || nx == half))
                    win[c] = Y, ++ny;
                else if (nx < half)
                    win[c] = X, ++nx;
            for (int c = 0; c < pos && (nx < half || ny < half); ++c)
                if (ny < half)
                    win[c] = Y, ++ny;
                else
                    win[c] = X, ++nx;
            ASSERT_EQ(nx, half);
            ASSERT_EQ(ny, half);
            // The first of X and Y in the window wins.
            const uint8_t *first = nullptr;
            for (int c = 0; c < cells && !first; ++c)
                if (win[c] != Z)
                    first = win[c];
            Source src(k, k, 0);
            for (int c = 0; c < cells; ++c)
                memcpy(src.px(c % k, c / k), win[c], 3);
            GuardedImage dst(1, 1, 3);
            ASSERT_EQ(lumiFilterMedianColor_8u_C3R(src.centre(k), src.step, dst.data(), dst.step,
                                                   {1, 1}, mask_of(k)),
                      lumStsNoErr);
            EXPECT_EQ(memcmp(&dst.at(0, 0), first, 3), 0) << k << "x" << k << " X at " << pos;
            EXPECT_TRUE(dst.guard_intact());
        }
    }
}

// A flat picture with lone outliers: an outlier never wins (its score is the
// largest), so the output is flat.  Where the per-channel median would mix
// the channels of two colours into a third, the vector median keeps one of
// the window's own colours.
TEST_P(MedianColor, OutliersVanishAndNoColourIsMixed)
{
    for (int k : {3, 5}) {
        const int w = 70, h = 5;
        Source src(w + k - 1, h + k - 1, 3);
        for (int y = 0; y < src.rows; ++y)
            for (int x = 0; x < src.cols; ++x) {
                uint8_t *p = src.px(x, y);
                p[0] = 30, p[1] = 140, p[2] = 220;
                if ((x * 7 + y * 3) % 11 == 0) // at most one per 3x3 window
                    p[0] = 255, p[1] = 0, p[2] = (uint8_t)(x * 9);
            }
        GuardedImage dst(w, h, 3);
        ASSERT_EQ(lumiFilterMedianColor_8u_C3R(src.centre(k), src.step, dst.data(), dst.step,
                                               {w, h}, mask_of(k)),
                  lumStsNoErr);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const uint8_t *p = &dst.at(x, y);
                ASSERT_TRUE(p[0] == 30 && p[1] == 140 && p[2] == 220) << x << "," << y;
            }
    }
    // Columns alternate red, green and blue: a per-channel median of a 3x3
    // window is black; the vector median is one of the three.
    Source src(3, 3, 0);
    const uint8_t rgb[3][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            memcpy(src.px(x, y), rgb[x], 3);
    GuardedImage dst(1, 1, 3);
    ASSERT_EQ(lumiFilterMedianColor_8u_C3R(src.centre(3), src.step, dst.data(), dst.step, {1, 1},
                                           lumMaskSize3x3),
              lumStsNoErr);
    EXPECT_EQ(memcmp(&dst.at(0, 0), rgb[0], 3), 0); // all tie: the first cell
}

TEST_P(MedianColor, StatusOrderAndNothingWrittenOnError)
{
    Source src(8, 8, 0);
    const Lum8u *s = src.centre(5);
    GuardedImage d(4, 4, 3);
    d.fill_random(5);
    const std::vector<uint8_t> before = d.region();
    MedianColorFn fn = lumiFilterMedianColor_8u_C3R;
    // Each check wins over every later one.
    EXPECT_EQ(fn(nullptr, 0, d.data(), 0, {0, 0}, (LumiMaskSize)0), lumStsNullPtrErr);
    EXPECT_EQ(fn(s, 24, nullptr, 24, {4, 4}, lumMaskSize3x3), lumStsNullPtrErr);
    EXPECT_EQ(fn(s, 0, d.data(), 0, {0, 4}, (LumiMaskSize)0), lumStsSizeErr);
    EXPECT_EQ(fn(s, 24, d.data(), d.step, {4, -1}, lumMaskSize3x3), lumStsSizeErr);
    EXPECT_EQ(fn(s, 0, d.data(), d.step, {4, 4}, (LumiMaskSize)0), lumStsStepErr);
    EXPECT_EQ(fn(s, 24, d.data(), -d.step, {4, 4}, lumMaskSize5x5), lumStsStepErr);
    for (int m : {31, 13, 51, 15, 0, 11, 34, 53, 63})
        EXPECT_EQ(fn(s, 24, d.data(), d.step, {4, 4}, (LumiMaskSize)m), lumStsMaskSizeErr) << m;
    EXPECT_EQ(d.region(), before);
    EXPECT_TRUE(d.guard_intact());
    // The filter takes no working memory.
    lumitest::AllocFault none;
    ASSERT_EQ(fn(s, 24, d.data(), d.step, {4, 4}, lumMaskSize5x5), lumStsNoErr);
    ASSERT_EQ(fn(s, 24, d.data(), d.step, {4, 4}, lumMaskSize3x3), lumStsNoErr);
    EXPECT_EQ(none.allocations(), 0);
}

// A footprint row of more than 2^31 - 1 bytes is refused as a bad size
// before anything is read or written.
TEST_P(MedianColor, FootprintRowBeyond32Bits)
{
    Lum8u out[16];
    memset(out, 7, sizeof out);
    lumitest::SparseBlock src((size_t)5 * 0x7fffffff);
    ASSERT_NE(src.data(), nullptr);
    // 715827881 pixels are 2147483643 bytes; the four columns more of a 5x5
    // footprint leave 32 bits.
    EXPECT_EQ(lumiFilterMedianColor_8u_C3R(src.data() + 2 * (size_t)0x7fffffff + 6, 0x7fffffff, out, 16,
                                           {715827881, 1}, lumMaskSize5x5),
              lumStsSizeErr);
    EXPECT_EQ(out[0], 7);
}

LUMI_INSTANTIATE_TIERS(MedianColor);

} // namespace
