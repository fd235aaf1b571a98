// Resize at the limits of memory: the nearest sample that lands on the end
// of a region at the image's edge, images of more than 2 GiB (whose row
// offsets do not fit 32 bits), and the sizes that are refused because no
// 32-bit offset or allocation can hold them.  Large images live in sparse
// mappings: reserved address space of which only the pages written cost
// memory.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>
#include <sys/mman.h>

#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/resize_ref.h"
#include "support/sparse.h"
#include "support/tiers.h"

using namespace lumitest;

namespace {

// ------------------------------------------- nearest sample at the edge --

// Nearest-neighbour index of output i: the cell centre, taken back to the
// image's last pixel (counted from the region) where it would leave it.
int nn_index(int i, double factor, int last)
{
    const double step = 1.0 / factor;
    double p = step * 0.5;
    for (int k = 0; k < i; ++k)
        p += step;
    const int r = (int)(p + 1e-7);
    return r < last ? r : last;
}

class ResizeEdgeSample : public TierTest {};

// A scaled length of exactly one half puts the single sample on the
// region's end.  At the image's edge that is past the image, and the last
// row or column is taken; inside the image the pixel after the region is
// read as before.  The source buffer ends at its last pixel, so a read past
// it leaves the allocation.
TEST_P(ResizeEdgeSample, HalfPixelSampleStaysInTheImage)
{
    struct Case {
        const char *what;
        int imgW, imgH;
        LumiRect roi;
        LumiSize dst;
        double xf, yf;
        int method;
    } cases[] = {
        {"last rows, 1/6", 640, 480, {0, 477, 640, 3}, {640, 1}, 1.0, 1.0 / 6, LUMI_INTER_NN},
        {"last columns, 1/6", 640, 48, {637, 0, 3, 48}, {1, 48}, 1.0 / 6, 1.0, LUMI_INTER_NN},
        {"corner, 1/4", 30, 20, {26, 16, 2, 4}, {1, 1}, 0.25, 0.125, LUMI_INTER_NN},
        {"inside the image", 640, 480, {0, 100, 640, 3}, {640, 1}, 1.0, 1.0 / 6, LUMI_INTER_NN},
        // A source one pixel wide is lowered to nearest neighbour whatever
        // the selector.
        {"lowered from linear", 1, 40, {0, 37, 1, 3}, {2, 1}, 2.0, 1.0 / 6, LUMI_INTER_LINEAR},
        {"lowered from Lanczos", 40, 1, {38, 0, 2, 1}, {1, 3}, 0.25, 3.0, LUMI_INTER_LANCZOS},
    };
    for (const Case &c : cases)
        for (int ch : {1, 3}) {
            SCOPED_TRACE(testing::Message() << c.what << ", channels " << ch);
            const Source src(c.imgW, c.imgH, ch, (uint32_t)(c.imgW + ch));
            GuardedImage dst(c.dst.width, c.dst.height, ch);
            ASSERT_EQ(resize_fn(ch)(src.buf.data(), LumiSize{c.imgW, c.imgH}, src.step, c.roi,
                                    dst.data(), dst.step, c.dst, c.xf, c.yf, c.method),
                      lumStsNoErr);
            for (int i = 0; i < c.dst.height; ++i)
                for (int j = 0; j < c.dst.width; ++j) {
                    const int y = c.roi.y + nn_index(i, c.yf, c.imgH - c.roi.y - 1);
                    const int x = c.roi.x + nn_index(j, c.xf, c.imgW - c.roi.x - 1);
                    for (int k = 0; k < ch; ++k)
                        ASSERT_EQ(dst.at(j, i, k), src.row(y)[x * ch + k])
                            << "output " << j << "," << i << " channel " << k;
                }
            EXPECT_TRUE(dst.guard_intact());
        }
}

LUMI_INSTANTIATE_TIERS(ResizeEdgeSample);

// ------------------------------------------------------- large images --

using lumitest::SparseBlock;

uint8_t pattern(int x, int y, int k)
{
    return (uint8_t)((uint32_t)x * 7u + (uint32_t)y * 13u + (uint32_t)k * 101u +
                     ((uint32_t)x * (uint32_t)y >> 3));
}

// A W x H image in a sparse mapping whose pixels from column x0 and row y0
// on hold the pattern; all else is zero.  A compact copy holds columns x0
// onward of the same image.
struct LargeImage {
    int w, h, ch, x0, y0;
    int step;
    SparseBlock map;
    std::vector<uint8_t> compact;
    int compactStep;
    LargeImage(int w_, int h_, int ch_, int x0_, int y0_)
        : w(w_), h(h_), ch(ch_), x0(x0_), y0(y0_), step(w_ * ch_),
          map((size_t)(h_ - 1) * (size_t)(w_ * ch_) + (size_t)w_ * ch_),
          compactStep((w_ - x0_) * ch_)
    {
        compact.assign((size_t)h * compactStep, 0);
        if (!map.data())
            return;
        for (int y = y0; y < h; ++y)
            for (int x = x0; x < w; ++x)
                for (int k = 0; k < ch; ++k) {
                    const uint8_t v = pattern(x, y, k);
                    map.data()[(size_t)y * step + (size_t)x * ch + k] = v;
                    compact[(size_t)y * compactStep + (size_t)(x - x0) * ch + k] = v;
                }
    }
};

class ResizeLarge : public TierTest {};

// 40,000 x 20,000 RGB (and 120,000 x 20,000 grey): a row index times the
// step passes 2^31 from row 17,896 on.  A tall, narrow region at the
// image's right and lower edges, shrunk to a few rows, reads the last rows;
// the same call on a compact copy of the columns involved, whose offsets
// are small, must give the same bytes.  The region starts two columns into
// the copy, so every method sees the same edges in both.
TEST_P(ResizeLarge, RowsBeyondTwoGigabytes)
{
    for (int ch : {1, 3}) {
        const int w = 120000 / ch, h = 20000, x0 = w - 102;
        LargeImage img(w, h, ch, x0, 17800);
        ASSERT_NE(img.map.data(), nullptr) << "no address space for the sparse image";
        const LumiRect roi{x0 + 2, 0, 100, h};
        const LumiRect compactRoi{2, 0, 100, h};
        for (int method :
             {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_LANCZOS}) {
            SCOPED_TRACE(testing::Message() << "channels " << ch << " method " << method);
            GuardedImage got(50, 20, ch), want(50, 20, ch);
            ASSERT_EQ(resize_fn(ch)(img.compact.data(), LumiSize{102, h}, img.compactStep,
                                    compactRoi, want.data(), want.step, LumiSize{50, 20}, 0.5,
                                    0.001, method),
                      lumStsNoErr);
            ASSERT_EQ(resize_fn(ch)(img.map.data(), LumiSize{w, h}, img.step, roi, got.data(),
                                    got.step, LumiSize{50, 20}, 0.5, 0.001, method),
                      lumStsNoErr);
            EXPECT_EQ(got.region(), want.region());
            EXPECT_TRUE(got.guard_intact());
            // The last output rows come from the patterned rows near the end.
            int patterned = 0;
            for (uint8_t b : want.region())
                patterned += b != 0;
            EXPECT_GT(patterned, 0);
        }
    }
}

// Rows of up to 2^31 - 65 elements are taken (the limit leaves room for the
// grouped loads past a row's last sample); one element more is refused with
// lumStsSizeErr before anything is read or written.  The same holds for the
// output row.
TEST_P(ResizeLarge, RowLengthLimit)
{
    const int64_t limit = INT32_MAX - 64;
    SparseBlock row((size_t)limit + 64);
    ASSERT_NE(row.data(), nullptr);
    for (int i = 0; i < 16; ++i)
        row.data()[i] = (uint8_t)(i * 17 + 3);
    for (int ch : {1, 3}) {
        SCOPED_TRACE(testing::Message() << "channels " << ch);
        const int widest = (int)(limit / ch);
        for (int w : {widest, widest + 1}) {
            GuardedImage dst(4, 1, ch);
            dst.fill_random(4);
            const std::vector<uint8_t> before = dst.region();
            const LumStatus st = resize_fn(ch)(row.data(), LumiSize{w, 1}, 0, LumiRect{0, 0, 4, 1},
                                               dst.data(), dst.step, LumiSize{4, 1}, 1.0, 1.0,
                                               LUMI_INTER_NN);
            if (w == widest) {
                EXPECT_EQ(st, lumStsNoErr);
                EXPECT_EQ(memcmp(dst.data(), row.data(), 4 * ch), 0);
            } else {
                EXPECT_EQ(st, lumStsSizeErr);
                EXPECT_EQ(dst.region(), before);
            }
            EXPECT_TRUE(dst.guard_intact());
        }
        // The output row: a tiny source stretched past the limit.
        const int outW = widest + 1;
        SparseBlock out((size_t)outW * ch);
        ASSERT_NE(out.data(), nullptr);
        AllocFault counting;
        EXPECT_EQ(resize_fn(ch)(row.data(), LumiSize{4, 1}, 4 * ch, LumiRect{0, 0, 4, 1}, out.data(),
                                outW * ch, LumiSize{outW, 1}, 1e9, 1.0, LUMI_INTER_NN),
                  lumStsSizeErr);
        EXPECT_EQ(counting.allocations(), 0);
        EXPECT_EQ(out.data()[0], 0);
    }
}

// An output of 2^28 rows needs a table of 2^28 pointer-width row offsets,
// 2 GiB: more than one allocation can hold.  It is refused with
// lumStsSizeErr, not cut to a short block, and nothing is taken or written.
TEST_P(ResizeLarge, WorkingMemoryTooLargeForOneBlock)
{
    const int H = 1 << 28;
    SparseBlock out((size_t)H);
    ASSERT_NE(out.data(), nullptr);
    const Source src(4, 4, 1, 1);
    for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_LANCZOS}) {
        AllocFault counting;
        EXPECT_EQ(lumiResize_8u_C1R(src.buf.data(), LumiSize{4, 4}, src.step,
                                    LumiRect{0, 0, 4, 4}, out.data(), 1, LumiSize{1, H}, 0.25, 1e9,
                                    method),
                  lumStsSizeErr)
            << "method " << method;
        EXPECT_EQ(counting.outstanding(), 0);
        EXPECT_EQ(out.data()[0], 0);
    }
}

// The most negative destination step: rows go down through memory 2 GiB
// apart, and the repeated source row is copied from the row just written.
// Its magnitude has no 32-bit negation, so it is taken in 64 bits.
TEST_P(ResizeLarge, MostNegativeDestinationStep)
{
    const int64_t span = (int64_t)1 << 31;
    SparseBlock out((size_t)span + 64);
    ASSERT_NE(out.data(), nullptr);
    uint8_t *first = out.data() + span; // row 1 lands at the block's start
    for (int ch : {1, 3}) {
        SCOPED_TRACE(testing::Message() << "channels " << ch);
        const uint8_t src[12] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 10, 20, 30};
        memset(first, 0, 4 * ch);
        memset(out.data(), 0, 4 * ch);
        EXPECT_EQ(resize_fn(ch)(src, LumiSize{4, 1}, 4 * ch, LumiRect{0, 0, 4, 1}, first, INT32_MIN,
                                LumiSize{4, 2}, 1.0, 2.0, LUMI_INTER_NN),
                  lumStsNoErr);
        EXPECT_EQ(memcmp(first, src, 4 * ch), 0);
        EXPECT_EQ(memcmp(out.data(), src, 4 * ch), 0);
    }
}

LUMI_INSTANTIATE_TIERS(ResizeLarge);

} // namespace
