// Shared pieces of the resize tests: an image seen through a signed step, a
// source that ends exactly at its last pixel, the output size and position
// rules, and a harness that runs one case against a reference and checks
// that nothing beyond the output (nor the guard bytes) changed.
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <type_traits>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"

namespace lumitest {

typedef decltype(&lumiResize_8u_C1R) ResizeFn;
static_assert(std::is_same<ResizeFn, decltype(&lumiResize_8u_C3R)>::value, "one resize shape");

inline ResizeFn resize_fn(int channels)
{
    return channels == 1 ? lumiResize_8u_C1R : lumiResize_8u_C3R;
}

// An image seen through a pointer to its first pixel and a signed step.
struct View {
    const uint8_t *p;
    int step, w, h, ch;
    int at(int x, int y, int k) const { return p[(ptrdiff_t)y * step + x * ch + k]; }
};

// Output length: truncation of scaled + 1e-7, at most limit, 0 when empty.
inline int ref_length(double scaled, int limit)
{
    const double v = scaled + 1e-7;
    if (v >= limit)
        return limit;
    if (v < 0.5)
        return 0;
    return v < 1.0 ? 1 : (int)v;
}

// Positions by repeated addition from p0.
inline std::vector<double> positions(double p0, double step, int n)
{
    std::vector<double> p(n);
    double x = p0;
    for (int i = 0; i < n; ++i, x += step)
        p[i] = x;
    return p;
}

// The region cut to the image.
inline LumiRect cut_roi(LumiRect roi, int imgW, int imgH)
{
    roi.width = std::min(roi.width, imgW - roi.x);
    roi.height = std::min(roi.height, imgH - roi.y);
    return roi;
}

// Corner-aligned positions of linear, cubic and Lanczos along one axis.
inline std::vector<double> corner_positions(int length, double factor, int n)
{
    const double scaled = length * factor;
    return positions(0.0, scaled > 1.0 ? (length - 1) / (scaled - 1.0) : 0.0, n);
}

// A source image whose buffer holds exactly its rows, from the first pixel to
// the last (padded rows between), so a read outside the image leaves the
// allocation.
struct Source {
    int w, h, ch, step;
    std::vector<uint8_t> buf;
    Source(int w_, int h_, int ch_, uint32_t seed) : w(w_), h(h_), ch(ch_), step(w_ * ch_ + 5)
    {
        buf.resize((size_t)(h - 1) * step + (size_t)w * ch);
        uint32_t s = seed * 2654435761u + 1;
        for (auto &b : buf) {
            s = s * 1664525u + 1013904223u;
            b = (uint8_t)(s >> 24);
        }
    }
    const uint8_t *row(int y) const { return buf.data() + (size_t)y * step; }
    View view(bool bottomUp) const
    {
        if (bottomUp)
            return View{row(h - 1), -step, w, h, ch};
        return View{buf.data(), step, w, h, ch};
    }
};

struct ResizeCase {
    int imgW, imgH;
    LumiRect roi;
    LumiSize dst;
    double xf, yf;
};

// The W x H x ch result of a method for an image, the uncut region, W, H and
// the factors.
typedef std::function<std::vector<uint8_t>(const View &, LumiRect, int, int, double, double)>
    ResizeReference;

// Runs one case and compares with the reference; the destination region is
// dstRoiSize, and whatever lies beyond the output must keep its pattern.
inline void check_resize_case(const ResizeCase &c, int ch, int method, bool bottomUp, int dstPad,
                              const ResizeReference &reference)
{
    SCOPED_TRACE(testing::Message() << "img " << c.imgW << "x" << c.imgH << " roi " << c.roi.x
                                    << "," << c.roi.y << " " << c.roi.width << "x"
                                    << c.roi.height << " dst " << c.dst.width << "x"
                                    << c.dst.height << " f " << c.xf << "," << c.yf << " ch "
                                    << ch << " method " << method << " bottomUp " << bottomUp);
    Source src(c.imgW, c.imgH, ch, (uint32_t)(c.imgW * 131 + c.imgH * 7 + ch));
    const View v = src.view(bottomUp);
    GuardedImage dst(c.dst.width, c.dst.height, ch, dstPad, 5);
    dst.fill_random(99);
    const std::vector<uint8_t> before = dst.region();

    const LumiRect cut = cut_roi(c.roi, c.imgW, c.imgH);
    const int W = ref_length(cut.width * c.xf, c.dst.width);
    const int H = ref_length(cut.height * c.yf, c.dst.height);
    ASSERT_GT(W, 0);
    ASSERT_GT(H, 0);
    const std::vector<uint8_t> want = reference(v, c.roi, W, H, c.xf, c.yf);

    const LumStatus st = resize_fn(ch)(v.p, LumiSize{c.imgW, c.imgH}, v.step, c.roi, dst.data(),
                                       dst.step, c.dst, c.xf, c.yf, method);
    ASSERT_EQ(st, lumStsNoErr);
    ASSERT_TRUE(dst.guard_intact());
    const std::vector<uint8_t> got = dst.region();
    const int rowBytes = c.dst.width * ch;
    int bad = 0;
    for (int y = 0; y < c.dst.height; ++y)
        for (int x = 0; x < rowBytes; ++x) {
            const size_t at = (size_t)y * rowBytes + x;
            const bool inside = y < H && x < W * ch;
            const int expect = inside ? want[((size_t)y * W) * ch + x] : before[at];
            if (got[at] != expect && bad++ < 5)
                ADD_FAILURE() << (inside ? "output" : "beyond the output") << " at x " << x / ch
                              << " channel " << x % ch << " row " << y << ": " << (int)got[at]
                              << " expected " << expect;
        }
    EXPECT_EQ(bad, 0);
}

// A source step of zero (row 0 for every row) and a destination written
// bottom-up through a negative step, both against the reference; both
// factors are f.
inline void check_zero_and_negative_steps(int ch, int method, const ResizeReference &reference,
                                          double f = 1.5)
{
    SCOPED_TRACE(testing::Message() << "ch " << ch << " method " << method << " f " << f);
    Source src(30, 1, ch, 3);
    const View v{src.buf.data(), 0, 30, 9, ch};
    const int W = ref_length(30 * f, 1000), H = ref_length(9 * f, 1000);
    GuardedImage dst(W, H, ch);
    const LumiRect roi{0, 0, 30, 9};
    ASSERT_EQ(resize_fn(ch)(v.p, LumiSize{30, 9}, 0, roi, dst.data(), dst.step, LumiSize{W, H},
                            f, f, method),
              lumStsNoErr);
    EXPECT_EQ(dst.region(), reference(v, roi, W, H, f, f));
    EXPECT_TRUE(dst.guard_intact());

    Source img(20, 20, ch, 8);
    const int n = ref_length(20 * f, 1000);
    GuardedImage flip(n, n, ch);
    const LumiRect all{0, 0, 20, 20};
    ASSERT_EQ(resize_fn(ch)(img.buf.data(), LumiSize{20, 20}, img.step, all, flip.row(n - 1),
                            -flip.step, LumiSize{n, n}, f, f, method),
              lumStsNoErr);
    const std::vector<uint8_t> want = reference(img.view(false), all, n, n, f, f);
    for (int y = 0; y < n; ++y)
        ASSERT_EQ(memcmp(flip.row(n - 1 - y), &want[(size_t)y * n * ch], n * ch), 0) << y;
    EXPECT_TRUE(flip.guard_intact());
}

// Runs a resize of a 30 x 20 image by f (45 x 30 by default) with each
// allocation failing in turn: every failure must give lumStsMemAllocErr, free
// what was taken and leave the destination as it was.  Returns the number of
// allocations of a run.
inline int check_alloc_failures(int ch, int method, double f = 1.5)
{
    Source src(30, 20, ch, 9);
    const int W = ref_length(30 * f, 1000), H = ref_length(20 * f, 1000);
    GuardedImage dst(W, H, ch);
    dst.fill_random(10);
    const std::vector<uint8_t> before = dst.region();
    const int count = for_each_alloc_failure(
        [&] {
            for (int y = 0; y < H; ++y)
                memcpy(dst.row(y), &before[(size_t)y * W * ch], W * ch);
            return resize_fn(ch)(src.buf.data(), LumiSize{30, 20}, src.step,
                                 LumiRect{0, 0, 30, 20}, dst.data(), dst.step, LumiSize{W, H}, f,
                                 f, method);
        },
        [&](LumStatus st, int failedAt, int outstanding) {
            EXPECT_EQ(st, lumStsMemAllocErr) << "allocation " << failedAt;
            EXPECT_EQ(outstanding, 0) << "allocation " << failedAt;
            EXPECT_EQ(dst.region(), before) << "allocation " << failedAt;
        });
    EXPECT_TRUE(dst.guard_intact());
    return count;
}

} // namespace lumitest
