// Convolution with integer and float kernels: the mirrored window and its
// anchor, the integer divisor classes and wrapped sums on both paths, the
// float engines told apart by their order of additions and their rounding,
// every width class of the vector bodies, guard bytes, the status order,
// allocation failures and the caller's control word.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>
#include <xmmintrin.h>

#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilter_8u_C1R) IntFn;
typedef decltype(&lumiFilter32f_8u_C1R) FloatFn;

IntFn int_fn(int ch) { return ch == 1 ? lumiFilter_8u_C1R : lumiFilter_8u_C3R; }
FloatFn float_fn(int ch) { return ch == 1 ? lumiFilter32f_8u_C1R : lumiFilter32f_8u_C3R; }

// A footprint held in one heap block of exactly its size, rows packed, so
// the sanitized build sees any read outside it.  fp(x, y, c): footprint pixel.
struct Scene {
    int w, h, ch, kw, kh;
    LumiPoint a;
    int step;
    std::vector<uint8_t> fp;
    Scene(int w_, int h_, int ch_, int kw_, int kh_, LumiPoint a_, uint32_t seed)
        : w(w_), h(h_), ch(ch_), kw(kw_), kh(kh_), a(a_), step((w_ + kw_ - 1) * ch_),
          fp((size_t)step * (h_ + kh_ - 1))
    {
        uint32_t s = seed * 2654435761u + 11;
        for (uint8_t &v : fp) {
            s = s * 1664525u + 1013904223u;
            v = (uint8_t)(s >> 24);
        }
    }
    uint8_t px(int x, int y, int c) const { return fp[(size_t)y * step + x * ch + c]; }
    // pSrc: the kernel's anchor cell lies over it, so it stands kw - 1 - ax
    // pixels right of the footprint's left edge and kh - 1 - ay rows down.
    const Lum8u *origin() const
    {
        return fp.data() + (ptrdiff_t)(kh - 1 - a.y) * step + (ptrdiff_t)(kw - 1 - a.x) * ch;
    }
    // src(x + ax - i, y + ay - j) of the definition, in footprint terms.
    uint8_t tap(int x, int y, int c, int i, int j) const
    {
        return px(x + kw - 1 - i, y + kh - 1 - j, c);
    }
};

// ------------------------------------------------------ integer reference --

uint8_t clamp_int(int64_t v) { return (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v); }

uint8_t int_expect(const Scene &s, const std::vector<int32_t> &k, int divisor, int x, int y, int c)
{
    uint32_t sum = 0; // the sum wraps modulo 2^32
    for (int j = 0; j < s.kh; ++j)
        for (int i = 0; i < s.kw; ++i)
            sum += (uint32_t)k[j * s.kw + i] * s.tap(x, y, c, i, j);
    const int64_t v = (int32_t)sum;
    if (divisor == 1)
        return clamp_int(v);
    const uint32_t u = (uint32_t)divisor;
    if ((u & (u - 1)) == 0) { // 2^k, or INT_MIN read as +2^31
        const int64_t d = (int64_t)u;
        int64_t q = v >= 0 ? v / d : -((-v + d - 1) / d);
        const int64_t rem = v - q * d;
        if (2 * rem > d || (2 * rem == d && (q & 1)))
            ++q;
        return clamp_int(q);
    }
    const float f = (float)v * (1.0f / (float)divisor);
    return f >= 255.0f ? 255 : clamp_int((int64_t)nearbyintf(f));
}

std::vector<uint8_t> int_expect_all(const Scene &s, const std::vector<int32_t> &k, int divisor)
{
    std::vector<uint8_t> out;
    for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x)
            for (int c = 0; c < s.ch; ++c)
                out.push_back(int_expect(s, k, divisor, x, y, c));
    return out;
}

// Runs the integer form into a guarded destination; counts allocations.
std::vector<uint8_t> run_int(const Scene &s, const std::vector<int32_t> &k, int divisor,
                             int *allocs = nullptr)
{
    GuardedImage dst(s.w, s.h, s.ch, 5, (s.w * 3) % 16);
    lumitest::AllocFault count;
    const LumStatus st = int_fn(s.ch)(s.origin(), s.step, dst.data(), dst.step, {s.w, s.h},
                                      k.data(), {s.kw, s.kh}, s.a, divisor);
    EXPECT_EQ(st, lumStsNoErr);
    EXPECT_TRUE(dst.guard_intact());
    EXPECT_EQ(count.outstanding(), 0);
    if (allocs)
        *allocs = count.allocations();
    return dst.region();
}

// The fast path asks for its working block (a cell beyond 16 bits is found
// only while packing into it, and then the plain path runs).
bool int_fast_expected(int ch, int w, int kw) { return kw >= 3 && w >= (ch == 1 ? 16 : 5); }

std::vector<int32_t> random_int_kernel(int n, uint32_t seed, int range)
{
    std::vector<int32_t> k(n);
    for (int i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        k[i] = (int32_t)((seed >> 8) % (uint32_t)(2 * range + 1)) - range;
    }
    return k;
}

class Filter : public lumitest::TierTest {};

struct Shape {
    int kw, kh;
};
const Shape kShapes[] = {{1, 1}, {2, 2}, {3, 3}, {5, 5}, {7, 7}, {3, 1}, {1, 5},
                         {4, 2}, {9, 2}, {2, 9}, {17, 3}, {3, 11}};
const int kDivisors[] = {1, 2, 16, 3, -1, -7, 1000, INT32_MIN};

// Random pictures and kernels over every shape, width class (both sides of
// the fast path's bounds, every tail of the 16-byte body) and divisor class,
// with anchors inside, at the far corner and outside the kernel; the path
// taken is seen by the working block it asks for.
TEST_P(Filter, IntegerMatchesDefinitionOnEveryPath)
{
    const int widths[] = {1, 2, 4, 5, 6, 15, 16, 17, 23, 32, 37, 64};
    for (int ch : {1, 3})
        for (const Shape &sh : kShapes)
            for (int w : widths) {
                const int h = 1 + (w + sh.kw) % 4;
                const LumiPoint anchors[] = {
                    {sh.kw / 2, sh.kh / 2}, {sh.kw - 1, sh.kh - 1}, {w >= 3 ? -2 : 0, h > 1 ? -1 : 0}};
                for (int ai = 0; ai < 3; ++ai) {
                    const int divisor = kDivisors[(w + ai + sh.kw) % 8];
                    const Scene s(w, h, ch, sh.kw, sh.kh, anchors[ai], w * 31 + sh.kw * 7 + ai);
                    const std::vector<int32_t> k =
                        random_int_kernel(sh.kw * sh.kh, w + 13 * sh.kh + ai, 40);
                    int allocs = 0;
                    ASSERT_EQ(run_int(s, k, divisor, &allocs), int_expect_all(s, k, divisor))
                        << ch << " ch, kernel " << sh.kw << "x" << sh.kh << ", width " << w
                        << ", anchor " << anchors[ai].x << "," << anchors[ai].y << ", divisor "
                        << divisor;
                    EXPECT_EQ(allocs, int_fast_expected(ch, w, sh.kw) ? 1 : 0)
                        << "path for " << ch << " ch, width " << w << ", kw " << sh.kw;
                }
            }
}

// Worked values of the divisor classes: ties to even under a shift, a
// negative divisor clamping positive sums to 0, and INT_MIN dividing by
// +2^31.  Each on the plain path (width 15) and the fast path (width 16).
TEST_P(Filter, IntegerDivisorClasses)
{
    struct Case {
        int32_t centre; // kernel cell over the pixel, the other cells 0
        uint8_t pixel;
        int32_t divisor;
        uint8_t want;
    } cases[] = {
        {3, 1, 2, 2},      {5, 1, 2, 2},         {7, 1, 2, 4},     {6, 1, 4, 2},
        {10, 1, 4, 2},     {14, 1, 4, 4},        {3, 1, -1, 0},    {-3, 1, -1, 3},
        {-300, 1, -1, 255}, {7, 1, 3, 2},        {256, 255, 1, 255}, {-1, 9, 1, 0},
        {32766, 255, INT32_MIN, 0},
    };
    for (int w : {15, 16})
        for (const Case &c : cases) {
            Scene s(w, 1, 1, 3, 3, {1, 1}, 5);
            std::fill(s.fp.begin(), s.fp.end(), c.pixel);
            std::vector<int32_t> k(9, 0);
            k[4] = c.centre;
            const std::vector<uint8_t> got = run_int(s, k, c.divisor);
            EXPECT_EQ(got[w / 2], c.want)
                << c.centre << " * " << (int)c.pixel << " / " << c.divisor << ", width " << w;
        }
}

// Sums that leave 32 bits wrap alike on both paths, and a sum near the top of
// the range rounds under a shift without overflowing: a 17x17 kernel of
// 32766 over white wraps negative; cells beyond 16 bits send a wide region
// to the plain path.
TEST_P(Filter, IntegerWrappedSums)
{
    for (int w : {15, 16, 21})
        for (int32_t divisor : {1, 3, 1 << 20, 1 << 30, INT32_MIN, -5}) {
            Scene big(w, 2, 1, 17, 17, {8, 8}, 1);
            std::fill(big.fp.begin(), big.fp.end(), 255);
            const std::vector<int32_t> k(17 * 17, 32766);
            EXPECT_EQ(run_int(big, k, divisor), int_expect_all(big, k, divisor)) << divisor;

            Scene top(w, 2, 3, 3, 1, {1, 0}, 2);
            const std::vector<int32_t> kt = {32766, 32766, 32766};
            for (size_t i = 0; i < top.fp.size(); ++i)
                top.fp[i] = (uint8_t)(250 + i % 6);
            EXPECT_EQ(run_int(top, kt, divisor), int_expect_all(top, kt, divisor)) << divisor;

            Scene odd(w, 2, 1, 3, 1, {0, 0}, 3);
            const std::vector<int32_t> kx = {INT32_MAX, 32767, INT32_MIN + 5};
            EXPECT_EQ(run_int(odd, kx, divisor), int_expect_all(odd, kx, divisor));
        }
}

// Kernels at the edges of the 16-bit sums: every cell a signed byte, pairs
// of cells that keep a pair of bytes within 16 bits, and a total range just
// inside and just outside the signed and the unsigned 16-bit range, over
// pictures that reach the extreme sums, for every divisor class (shifts up
// to 15 stay in 16 bits, larger ones and unsigned sums with a shift of 1
// widen first).
TEST_P(Filter, IntegerSixteenBitSums)
{
    struct Case {
        std::vector<int32_t> k; // 3x3
        const char *what;
    } cases[] = {
        {{16, 16, 16, 16, 16, 16, 16, 16, 0}, "signed range, 128 * 255"},
        {{16, 16, 16, 16, 16, 16, 16, 16, 1}, "one past the signed range"},
        {{-16, -16, -16, -16, -16, -16, -16, -16, -1}, "negative, 129 * 255"},
        {{-16, -16, -16, -16, -16, -16, -16, -16, 0}, "negative, 128 * 255"},
        {{32, 32, 32, 32, 32, 32, 32, 32, 1}, "unsigned range, 257 * 255"},
        {{32, 32, 32, 32, 32, 32, 32, 32, 2}, "one past the unsigned range"},
        {{64, 64, 0, 64, 64, 0, 0, 0, 1}, "a pair at the 16-bit limit"},
        {{127, 0, 0, 0, -128, 0, 0, 0, 1}, "byte limits"},
        {{128, 0, 0, 0, 0, 0, 0, 0, 0}, "one past a byte"},
        {{1, -2, 1, -2, 5, -2, 1, -2, 1}, "mixed signs"},
    };
    const int32_t divisors[] = {1, 2, 4, 3, -1, 1 << 15, 1 << 16, 32};
    for (int ch : {1, 3})
        for (const Case &c : cases)
            for (int32_t divisor : divisors)
                for (int pattern = 0; pattern < 3; ++pattern) {
                    const int w = ch == 1 ? 37 : 21;
                    Scene s(w, 3, ch, 3, 3, {1, 1}, (uint32_t)divisor + pattern);
                    if (pattern == 0) // all white: the largest sums
                        std::fill(s.fp.begin(), s.fp.end(), 255);
                    else if (pattern == 1) // white and black columns: a wide swing either way
                        for (size_t i = 0; i < s.fp.size(); ++i)
                            s.fp[i] = (i / ch) % 2 ? 255 : 0;
                    EXPECT_EQ(run_int(s, c.k, divisor), int_expect_all(s, c.k, divisor))
                        << c.what << ", divisor " << divisor << ", pattern " << pattern << ", "
                        << ch << " ch";
                }
}

// ---------------------------------------------------------- float engines --

enum Engine { kAccumulator, kBlock, kNarrow, kPlain };

// Which engine a dispatch index takes (index 5 is the AVX tier).
Engine float_engine(int index, int ch, int w, int kw)
{
    if (index == 5) {
        if (w >= 8)
            return kBlock;
        if (ch == 1)
            return kNarrow;
        return kw <= 2 || w <= 5 ? kPlain : kAccumulator;
    }
    return kw >= 3 && (ch == 1 ? w > 15 : w >= 6) ? kAccumulator : kPlain;
}

uint8_t round_even(float f)
{
    if (isnan(f) || f >= 255.0f)
        return 255;
    return clamp_int((int64_t)nearbyintf(f));
}

uint8_t round_away(float f)
{
    if (isnan(f) || f >= 255.0f)
        return 255;
    const float g = f + (f < 0.0f ? -0.5f : 0.5f);
    return clamp_int((int64_t)truncf(g));
}

// The float sum of one output byte in each engine's order of additions.
float float_sum(Engine e, const Scene &s, const std::vector<float> &k, int x, int y, int c)
{
    // Footprint row r and column t meet kernel cell (kw - 1 - t, kh - 1 - r).
    auto term = [&](int t, int r) {
        return k[(s.kh - 1 - r) * s.kw + (s.kw - 1 - t)] * (float)s.px(x + t, y + r, c);
    };
    float sum = 0.0f;
    if (e == kPlain) {
        for (int r = 0; r < s.kh; ++r) {
            float lane[4] = {0, 0, 0, 0};
            int t = 0;
            for (; t + 4 <= s.kw; t += 4)
                for (int l = 0; l < 4; ++l)
                    lane[l] = lane[l] + term(t + l, r);
            float row = (lane[0] + lane[1]) + (lane[2] + lane[3]);
            for (; t < s.kw; ++t)
                row = row + term(t, r);
            sum = sum + row;
        }
        return sum;
    }
    const int split = e == kBlock ? (s.kw & ~7) : s.kw;
    for (int r = 0; r < s.kh; ++r)
        for (int t = 0; t < split; ++t)
            sum = sum + term(t, r);
    for (int r = 0; r < s.kh; ++r)
        for (int t = split; t < s.kw; ++t)
            sum = sum + term(t, r);
    return sum;
}

std::vector<uint8_t> float_expect(Engine e, const Scene &s, const std::vector<float> &k)
{
    std::vector<uint8_t> out;
    for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x)
            for (int c = 0; c < s.ch; ++c) {
                const float f = float_sum(e, s, k, x, y, c);
                out.push_back(e == kBlock ? round_away(f) : round_even(f));
            }
    return out;
}

std::vector<uint8_t> run_float(const Scene &s, const std::vector<float> &k, int *allocs = nullptr)
{
    GuardedImage dst(s.w, s.h, s.ch, 5, (s.w * 5) % 16);
    lumitest::AllocFault count;
    const LumStatus st = float_fn(s.ch)(s.origin(), s.step, dst.data(), dst.step, {s.w, s.h},
                                        k.data(), {s.kw, s.kh}, s.a);
    EXPECT_EQ(st, lumStsNoErr);
    EXPECT_TRUE(dst.guard_intact());
    EXPECT_EQ(count.outstanding(), 0);
    if (allocs)
        *allocs = count.allocations();
    return dst.region();
}

std::vector<float> random_float_kernel(int n, uint32_t seed)
{
    std::vector<float> k(n);
    for (int i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        k[i] = (float)((int)((seed >> 8) % 2001) - 700) / 997.0f;
    }
    return k;
}

// Random kernels with inexact sums over every shape and width class, each
// checked against the order and rounding of the engine its tier must take;
// the accumulator's odd last row, the block engine's remainder columns and
// its 8-byte tail, and rows just short of, at and past a whole group of
// vectors rounded in registers (64 bytes on e9) are all in the sweep.
TEST_P(Filter, FloatMatchesItsEngine)
{
    const int widths[] = {1, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 21, 22, 24, 33, 63, 64, 65};
    const Shape shapes[] = {{1, 1}, {2, 3}, {3, 3}, {4, 1}, {5, 5}, {7, 2},
                            {8, 2}, {9, 3}, {13, 2}, {17, 1}, {1, 6}};
    for (int ch : {1, 3})
        for (const Shape &sh : shapes)
            for (int w : widths) {
                const int h = 1 + (w + sh.kh) % 4;
                const LumiPoint a = w % 3 == 0 ? LumiPoint{-1, h > 1 ? -1 : 0} : LumiPoint{sh.kw / 2, sh.kh - 1};
                const Scene s(w, h, ch, sh.kw, sh.kh, a, w * 17 + sh.kw + ch);
                const std::vector<float> k = random_float_kernel(sh.kw * sh.kh, w + sh.kh * 5 + ch);
                const Engine e = float_engine(GetParam(), ch, w, sh.kw);
                int allocs = 0;
                ASSERT_EQ(run_float(s, k, &allocs), float_expect(e, s, k))
                    << ch << " ch, kernel " << sh.kw << "x" << sh.kh << ", width " << w
                    << ", engine " << e;
                EXPECT_EQ(allocs, e == kAccumulator || e == kBlock ? 1 : 0);
            }
}

// Two kernels that tell the engines apart by value.  Over pixels of 1,
// {16777216, 1, 1, -16777214} (in footprint order) sums to 2 added in order
// and to 3 in the plain engine's pairs; over pixels of 5, a single 0.5 gives
// the tie 2.5, which only the block engine rounds up.
TEST_P(Filter, FloatEnginesToldApartByValue)
{
    const std::vector<float> order = {-16777214.0f, 1.0f, 1.0f, 16777216.0f};
    const std::vector<float> tie = {0.5f, 0.0f, 0.0f};
    for (int ch : {1, 3})
        for (int w = 1; w <= 20; ++w) {
            const Engine e4 = float_engine(GetParam(), ch, w, 4);
            Scene so(w, 2, ch, 4, 1, {3, 0}, 1);
            std::fill(so.fp.begin(), so.fp.end(), 1);
            const std::vector<uint8_t> got = run_float(so, order);
            EXPECT_EQ(got, std::vector<uint8_t>(got.size(), e4 == kPlain ? 3 : 2))
                << ch << " ch, width " << w;

            const Engine e3 = float_engine(GetParam(), ch, w, 3);
            Scene st(w, 3, ch, 3, 1, {0, 0}, 2);
            std::fill(st.fp.begin(), st.fp.end(), 5);
            const std::vector<uint8_t> t = run_float(st, tie);
            EXPECT_EQ(t, std::vector<uint8_t>(t.size(), e3 == kBlock ? 3 : 2))
                << ch << " ch, width " << w;
        }
}

// Negative sums give 0, sums past 255 give 255, and a NaN or an infinity in
// the kernel gives 255 or 0 in every engine.
TEST_P(Filter, FloatSaturation)
{
    const float inf = INFINITY;
    for (int w : {4, 7, 8, 15, 16})
        for (int ch : {1, 3}) {
            Scene s(w, 2, ch, 3, 1, {1, 0}, 9);
            std::fill(s.fp.begin(), s.fp.end(), 200);
            const struct {
                std::vector<float> k;
                uint8_t want;
            } cases[] = {{{-1.0f, 0.5f, 0.2f}, 0},  {{1.0f, 1.0f, 0.0f}, 255},
                         {{0.0f, NAN, 0.0f}, 255}, {{0.0f, inf, 0.0f}, 255},
                         {{-inf, 0.0f, 0.0f}, 0}};
            for (const auto &c : cases) {
                const std::vector<uint8_t> got = run_float(s, c.k);
                for (uint8_t v : got)
                    ASSERT_EQ(v, c.want) << "width " << w << ", " << ch << " ch";
            }
        }
}

// Regions wider than one strip of the working rings, with kernels short and
// tall, so that strips meet inside the row and the last one ends in a tail;
// and a kernel so large that the rings are not used at all.
TEST_P(Filter, WideRegionsAcrossStrips)
{
    const Shape shapes[] = {{3, 3}, {7, 7}, {5, 40}, {33, 2}};
    for (int ch : {1, 3})
        for (const Shape &sh : shapes) {
            const int w = ch == 1 ? 1000 + sh.kw : 419;
            const Scene s(w, 3, ch, sh.kw, sh.kh, {sh.kw / 2, sh.kh / 2}, sh.kw * 5 + ch);
            const std::vector<int32_t> ki = random_int_kernel(sh.kw * sh.kh, sh.kh, 200);
            EXPECT_EQ(run_int(s, ki, 9), int_expect_all(s, ki, 9))
                << sh.kw << "x" << sh.kh << ", " << ch << " ch";
            const std::vector<float> kf = random_float_kernel(sh.kw * sh.kh, sh.kw);
            EXPECT_EQ(run_float(s, kf), float_expect(float_engine(GetParam(), ch, w, sh.kw), s, kf))
                << sh.kw << "x" << sh.kh << ", " << ch << " ch";
        }
    const Scene big(16, 1, 1, 1100, 1000, {0, 0}, 3);
    const std::vector<int32_t> ki = random_int_kernel(1100 * 1000, 5, 3);
    EXPECT_EQ(run_int(big, ki, 1000), int_expect_all(big, ki, 1000));
    const std::vector<float> kf(1100 * 1000, 1.0f / 1024.0f);
    EXPECT_EQ(run_float(big, kf), float_expect(float_engine(GetParam(), 1, 16, 1100), big, kf));
}

// ------------------------------------------------------ statuses, memory --

TEST_P(Filter, StatusOrder)
{
    uint8_t src[64] = {0}, dst[64] = {0};
    const int32_t ki[9] = {1};
    const float kf[9] = {1.0f};
    const LumiSize roi = {4, 2}, k3 = {3, 3};
    const LumiPoint a = {1, 1};
    for (int ch : {1, 3}) {
        IntFn fi = int_fn(ch);
        FloatFn ff = float_fn(ch);
        const int sstep = (4 + 2) * ch, dstep = 4 * ch;
        // Null pointers come first, then sizes, then (integer) the divisor, then steps.
        EXPECT_EQ(fi(nullptr, 0, dst, 0, {0, 0}, ki, k3, a, 0), lumStsNullPtrErr);
        EXPECT_EQ(fi(src, 0, dst, 0, roi, nullptr, k3, a, 0), lumStsNullPtrErr);
        EXPECT_EQ(ff(src, 0, nullptr, 0, {0, 0}, kf, k3, a), lumStsNullPtrErr);
        EXPECT_EQ(fi(src, 0, dst, 0, {0, 2}, ki, k3, a, 0), lumStsSizeErr);
        EXPECT_EQ(fi(src, 0, dst, 0, roi, ki, {3, 0}, a, 0), lumStsSizeErr);
        EXPECT_EQ(ff(src, 0, dst, 0, {4, -1}, kf, k3, a), lumStsSizeErr);
        EXPECT_EQ(fi(src, 0, dst, 0, roi, ki, k3, a, 0), lumStsDivisorErr);
        EXPECT_EQ(fi(src, sstep - 1, dst, dstep, roi, ki, k3, a, 1), lumStsStepErr);
        EXPECT_EQ(fi(src, sstep, dst, dstep - 1, roi, ki, k3, a, 1), lumStsStepErr);
        EXPECT_EQ(ff(src, sstep - 1, dst, dstep, roi, kf, k3, a), lumStsStepErr);
        EXPECT_EQ(ff(src, sstep, dst, dstep - 1, roi, kf, k3, a), lumStsStepErr);
        // Kernels whose cell count, and rows whose byte count, do not fit 32 bits.
        EXPECT_EQ(fi(src, sstep, dst, dstep, roi, ki, {65536, 65536}, a, 1), lumStsSizeErr);
        EXPECT_EQ(ff(src, sstep, dst, dstep, roi, kf, {65536, 65536}, a), lumStsSizeErr);
        EXPECT_EQ(ff(src, sstep, dst, dstep, {INT32_MAX - 1, 1}, kf, k3, a), lumStsSizeErr);
        for (uint8_t v : dst)
            ASSERT_EQ(v, 0) << "a refused call wrote";
    }
}

// Every allocation failed in turn: the call still succeeds, on the plain
// path, with the right pixels, and holds nothing afterwards.
TEST_P(Filter, AllocationFailureFallsBackToPlain)
{
    for (int ch : {1, 3}) {
        const Scene s(21, 3, ch, 9, 3, {4, 1}, 77);
        const std::vector<int32_t> ki = random_int_kernel(27, 3, 50);
        const std::vector<float> kf = random_float_kernel(27, 4);
        const std::vector<uint8_t> wantI = int_expect_all(s, ki, 7);
        const std::vector<uint8_t> wantF = float_expect(kPlain, s, kf);
        GuardedImage dst(s.w, s.h, ch);
        int n = lumitest::for_each_alloc_failure(
            [&] {
                return int_fn(ch)(s.origin(), s.step, dst.data(), dst.step, {s.w, s.h}, ki.data(),
                                  {s.kw, s.kh}, s.a, 7);
            },
            [&](LumStatus st, int k, int outstanding) {
                EXPECT_EQ(st, lumStsNoErr) << "allocation " << k;
                EXPECT_EQ(outstanding, 0);
                EXPECT_EQ(dst.region(), wantI);
                EXPECT_TRUE(dst.guard_intact());
            });
        EXPECT_EQ(n, 1);
        n = lumitest::for_each_alloc_failure(
            [&] {
                return float_fn(ch)(s.origin(), s.step, dst.data(), dst.step, {s.w, s.h},
                                    kf.data(), {s.kw, s.kh}, s.a);
            },
            [&](LumStatus st, int k, int outstanding) {
                EXPECT_EQ(st, lumStsNoErr) << "allocation " << k;
                EXPECT_EQ(outstanding, 0);
                EXPECT_EQ(dst.region(), wantF);
                EXPECT_TRUE(dst.guard_intact());
            });
        EXPECT_EQ(n, 1);
    }
}

// A caller running another rounding mode, with flush-to-zero, gets the same
// pixels and its control word back unchanged.
TEST_P(Filter, CallerRoundingModeLeftAsFound)
{
    for (int w : {7, 8, 16, 40}) {
        const Scene s(w, 3, 1, 5, 3, {2, 1}, w);
        const std::vector<float> kf = random_float_kernel(15, 8);
        const std::vector<int32_t> ki = random_int_kernel(15, 9, 20);
        const std::vector<uint8_t> wantF = run_float(s, kf), wantI = run_int(s, ki, -3);
        for (unsigned mode : {_MM_ROUND_TOWARD_ZERO, _MM_ROUND_UP, _MM_ROUND_DOWN}) {
            const unsigned saved = _mm_getcsr();
            const unsigned csr = (saved & ~0x6000u) | mode | 0x8040u;
            _mm_setcsr(csr);
            std::vector<uint8_t> gotF, gotI;
            GuardedImage d(s.w, s.h, 1);
            lumiFilter32f_8u_C1R(s.origin(), s.step, d.data(), d.step, {s.w, s.h}, kf.data(),
                                 {s.kw, s.kh}, s.a);
            gotF = d.region();
            lumiFilter_8u_C1R(s.origin(), s.step, d.data(), d.step, {s.w, s.h}, ki.data(),
                              {s.kw, s.kh}, s.a, -3);
            gotI = d.region();
            const unsigned after = _mm_getcsr();
            _mm_setcsr(saved);
            EXPECT_EQ(after & ~0x3Fu, csr & ~0x3Fu) << "control word changed, mode " << mode;
            EXPECT_EQ(gotF, wantF) << "mode " << mode << ", width " << w;
            EXPECT_EQ(gotI, wantI) << "mode " << mode << ", width " << w;
        }
    }
}

LUMI_INSTANTIATE_TIERS(Filter);

} // namespace
