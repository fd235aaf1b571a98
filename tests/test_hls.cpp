// RGB <-> HLS: every primitive against a plain reference written from the
// stated arithmetic, on every tier, with guard elements around padded rows.
// The reciprocal estimate differs between processor makers, so the
// reference takes it from the instruction on the machine it runs on.
#include <gtest/gtest.h>

#include <fenv.h>
#include <math.h>
#include <stdint.h>
#include <string.h>
#include <xmmintrin.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/tiers.h"

namespace {

// ------------------------------------------------------------ reference --

float from_bits(uint32_t b)
{
    float f;
    memcpy(&f, &b, 4);
    return f;
}

struct Range {
    float top, mid, twice, hue_out, hue_in, unit_in;
    int bias;
};
const Range k8u = {255.0f, 127.5f, 510.0f, from_bits(0x3f355555), 1.4117647f,
                   from_bits(0x3b808081), 0};
const Range k16u = {65535.0f, 32767.5f, 131070.0f, from_bits(0x43360aab), from_bits(0x3bb400b4),
                    from_bits(0x37800080), 0};
const Range k16s = {65535.0f, 32767.5f, 131070.0f, from_bits(0x43360aab), from_bits(0x3bb400b4),
                    from_bits(0x37800080), 32768};
const float kSixtieth = from_bits(0x3c888889);

enum Cvt { kTrunc, kNear, kHalf };

int convert(float x, Cvt c)
{
    if (c == kNear)
        return (int)nearbyintf(x);
    if (c == kHalf)
        x = x + 0.49999f;
    return (int)x;
}

int store(const Range &r, int v)
{
    return std::min(std::max(v, 0), (int)r.top) - r.bias;
}

// The estimate as the body (a vector instruction) and the tail (the scalar
// one, refined by a Newton step) take it.
float rcp_body(float x) { return _mm_cvtss_f32(_mm_rcp_ps(_mm_set1_ps(x))); }
float rcp_tail(float x)
{
    const float r = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x)));
    return 2.0f * r - x * r * r;
}

// H, L, S of one integer pixel given unbiased.
void ref_to_hls(const Range &rg, float r, float g, float b, bool body, Cvt cv, int out[3])
{
    const float mx = std::max(std::max(r, g), b), mn = std::min(std::min(r, g), b);
    const float delta = mx - mn;
    float sum = mx + mn;
    const float lum = 0.5f * sum;
    out[1] = convert(lum, cv);
    out[0] = out[2] = 0;
    if (delta == 0.0f)
        return;
    if (lum > rg.mid)
        sum = rg.twice - sum;
    const float rs = body ? rcp_body(sum) : rcp_tail(sum);
    const float rd = body ? rcp_body(delta) : rcp_tail(delta);
    out[2] = convert(delta * rs * rg.top, cv);
    float hue;
    if (mx == r)
        hue = (g - b) * 60.0f * rd;
    else if (mx == g)
        hue = (b - r) * 60.0f * rd + 120.0f;
    else
        hue = (r - g) * 60.0f * rd + 240.0f;
    if (hue < 0.0f)
        hue += 360.0f;
    out[0] = convert(hue * rg.hue_out, cv);
}

enum Form { kA, kB };

float ramp(Form f, float x, float m1, float m2)
{
    return f == kA ? x * kSixtieth * (m2 - m1) + m1 : (m2 - m1) * x / 60.0f + m1;
}

float chan(Form f, float x, float m1, float m2)
{
    return x < 60.0f ? ramp(f, x, m1, m2)
                     : x < 180.0f ? m2 : x < 240.0f ? ramp(f, 240.0f - x, m1, m2) : m1;
}

// R, G, B in 0..1 from h in degrees and l, s in 0..1.
void ref_rgb(Form f, float h, float l, float s, float out[3])
{
    if (s == 0.0f) {
        out[0] = out[1] = out[2] = l;
        return;
    }
    const float m2 = f == kA ? (l > 0.5f ? l + s - l * s : l + l * s)
                             : (l > 0.5f ? l + s - s * l : (s + 1.0f) * l);
    const float m1 = 2.0f * l - m2;
    float hr = h + 120.0f, hb = h - 120.0f;
    if (hr > 360.0f)
        hr -= 360.0f;
    if (hb < 0.0f)
        hb += 360.0f;
    out[0] = chan(f, hr, m1, m2);
    out[1] = chan(f, h, m1, m2);
    out[2] = chan(f, hb, m1, m2);
}

// R, G, B of one integer pixel given unbiased; `copy` copies L when S = 0.
void ref_to_rgb(const Range &rg, float H, float L, float S, Form f, Cvt cv, bool copy, int out[3])
{
    if (S == 0.0f && copy) {
        out[0] = out[1] = out[2] = (int)L;
        return;
    }
    float rgb[3];
    if (f == kA)
        ref_rgb(kA, H * rg.hue_in, L * rg.unit_in, S * rg.unit_in, rgb);
    else
        ref_rgb(kB, H * 360.0f / rg.top, L / rg.top, S / rg.top, rgb);
    for (int c = 0; c < 3; ++c)
        out[c] = convert(rgb[c] * rg.top, cv);
}

// -------------------------------------------------- modes by dispatch index

struct PathModes {
    Cvt cvt;
    Form form;
    bool copy;
};

bool newer(int index) { return index >= 4; } // y8, e9

PathModes to_hls_mode(int index, bool body) { return {body && newer(index) ? kNear : kTrunc, kA, true}; }

PathModes to_rgb_mode(const Range &rg, int index, bool body)
{
    const bool n = newer(index);
    if (&rg == &k8u)
        return body ? PathModes{n ? kNear : kTrunc, kA, true} : PathModes{kTrunc, n ? kB : kA, true};
    if (&rg == &k16u)
        return {n ? kNear : kTrunc, kA, true};
    if (body || n)
        return {kNear, kA, true};
    return {kHalf, kB, false};
}

// ------------------------------------------------------ guarded images --

// Rows of `3 * w + pad` elements with guard elements before, between and
// after; every element outside the region holds a fixed pattern.
template <typename T>
struct Img {
    int w, h, stride;
    std::vector<T> buf;
    static const int kGuard = 24;
    Img(int w_, int h_, int pad = 5) : w(w_), h(h_), stride(3 * w_ + pad)
    {
        buf.resize((size_t)kGuard * 2 + (size_t)stride * h);
        memset(buf.data(), 0xA7, buf.size() * sizeof(T));
    }
    T *data() { return buf.data() + kGuard; }
    int step() const { return stride * (int)sizeof(T); }
    T &at(int x, int y, int c) { return data()[(size_t)y * stride + 3 * x + c]; }
    bool guards_intact() const
    {
        std::vector<T> clean(buf.size());
        memset(clean.data(), 0xA7, clean.size() * sizeof(T));
        for (size_t i = 0; i < buf.size(); ++i) {
            const size_t k = i - kGuard;
            const bool inside = i >= (size_t)kGuard && k < (size_t)stride * h && k % stride < (size_t)3 * w;
            if (!inside && memcmp(&buf[i], &clean[i], sizeof(T)) != 0)
                return false;
        }
        return true;
    }
};

uint32_t noise(int x, int y, int c)
{
    uint32_t s = (uint32_t)x * 73856093u ^ (uint32_t)y * 19349663u ^ (uint32_t)c * 83492791u;
    s *= 2654435761u;
    return s ^ (s >> 15);
}

template <typename T> struct Pub;
template <> struct Pub<Lum8u> {
    static constexpr decltype(&lumiRGBToHLS_8u_C3R) fwd = lumiRGBToHLS_8u_C3R;
    static constexpr decltype(&lumiHLSToRGB_8u_C3R) inv = lumiHLSToRGB_8u_C3R;
    static const Range &range() { return k8u; }
    static constexpr int round = 8;
};
template <> struct Pub<Lum16u> {
    static constexpr decltype(&lumiRGBToHLS_16u_C3R) fwd = lumiRGBToHLS_16u_C3R;
    static constexpr decltype(&lumiHLSToRGB_16u_C3R) inv = lumiHLSToRGB_16u_C3R;
    static const Range &range() { return k16u; }
    static constexpr int round = 4;
};
template <> struct Pub<Lum16s> {
    static constexpr decltype(&lumiRGBToHLS_16s_C3R) fwd = lumiRGBToHLS_16s_C3R;
    static constexpr decltype(&lumiHLSToRGB_16s_C3R) inv = lumiHLSToRGB_16s_C3R;
    static const Range &range() { return k16s; }
    static constexpr int round = 4;
};

// Runs one direction on a w x h image filled by fill(x, y, c) (values
// unbiased, 0..top) and compares every pixel with the reference.
template <typename T, typename Fill>
void check_integer(int index, bool forward, int w, int h, Fill fill)
{
    const Range &rg = Pub<T>::range();
    SCOPED_TRACE(::testing::Message() << (forward ? "to HLS " : "to RGB ") << sizeof(T) * 8
                                      << (rg.bias ? "s " : "u ") << w << "x" << h);
    Img<T> src(w, h, 5), dst(w, h, 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                src.at(x, y, c) = (T)((int)fill(x, y, c) - rg.bias);
    const LumStatus st = forward ? Pub<T>::fwd(src.data(), src.step(), dst.data(), dst.step(), {w, h})
                                 : Pub<T>::inv(src.data(), src.step(), dst.data(), dst.step(), {w, h});
    ASSERT_EQ(st, lumStsNoErr);
    const int body = w - w % Pub<T>::round;
    int wrong = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float in[3];
            for (int c = 0; c < 3; ++c)
                in[c] = (float)((int)src.at(x, y, c) + rg.bias);
            int want[3];
            if (forward) {
                ref_to_hls(rg, in[0], in[1], in[2], x < body, to_hls_mode(index, x < body).cvt, want);
            } else {
                const PathModes m = to_rgb_mode(rg, index, x < body);
                ref_to_rgb(rg, in[0], in[1], in[2], m.form, m.cvt, m.copy, want);
            }
            for (int c = 0; c < 3; ++c)
                if ((int)dst.at(x, y, c) != store(rg, want[c]) && ++wrong <= 3)
                    ADD_FAILURE() << "pixel (" << x << ", " << y << ") channel " << c << " in "
                                  << (x < body ? "body" : "tail") << ": got " << (int)dst.at(x, y, c)
                                  << ", want " << store(rg, want[c]) << " for (" << in[0] << ", "
                                  << in[1] << ", " << in[2] << ")";
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(dst.guards_intact());
    EXPECT_TRUE(src.guards_intact());
}

template <typename Fill>
void check_all_integer(int index, int w, int h, Fill fill)
{
    for (bool fwd : {true, false}) {
        check_integer<Lum8u>(index, fwd, w, h, [&](int x, int y, int c) { return fill(x, y, c) % 256; });
        check_integer<Lum16u>(index, fwd, w, h, [&](int x, int y, int c) { return fill(x, y, c) % 65536; });
        check_integer<Lum16s>(index, fwd, w, h, [&](int x, int y, int c) { return fill(x, y, c) % 65536; });
    }
}

class Hls : public lumitest::TierTest {};

// Widths across every body/tail boundary, heights 1 and 3, random pixels.
TEST_P(Hls, IntegerFormsMatchReferenceAtEveryWidth)
{
    for (int w = 1; w <= 27; ++w)
        for (int h = 1; h <= 3; h += 2)
            check_all_integer(GetParam(), w, h, noise);
}

// Each channel takes every 8-bit value in every column of body and tail, and
// the 16-bit forms every value scaled by 257 plus a column offset.
TEST_P(Hls, EveryByteValueInEachChannel)
{
    for (int c0 = 0; c0 < 3; ++c0) {
        auto fill = [c0](int x, int y, int c) { return c == c0 ? (uint32_t)y : noise(x, y, c) % 256; };
        for (bool fwd : {true, false}) {
            check_integer<Lum8u>(GetParam(), fwd, 21, 256, fill);
            auto wide = [&](int x, int y, int c) { return fill(x, y, c) * 257 - (c == c0 && y ? x : 0); };
            check_integer<Lum16u>(GetParam(), fwd, 11, 256, wide);
            check_integer<Lum16s>(GetParam(), fwd, 11, 256, wide);
        }
    }
}

// Grey, fully saturated and nearly tied colours: the grey stop, the
// lightness flip and which channel wins a tie for the maximum.
TEST_P(Hls, GreySaturatedAndNearTieSweeps)
{
    const int index = GetParam();
    // Row y: one family of colours over 256 steps v; columns vary the family.
    auto sweep = [](int top) {
        return [top](int x, int y, int c) -> uint32_t {
            const int v = y * top / 255, k = x % 7, t = x % 3;
            switch (k) {
            case 0: return v;                                             // grey
            case 1: return c == t ? top : c == (t + 1) % 3 ? 0 : v;       // saturated hue wheel
            case 2: return c == 2 ? v / 2 : std::max(v - (c ^ (x & 1)), 0); // R, G near tie at max
            case 3: return c == 0 ? v / 3 : std::max(v - (c == 1 ? (x & 1) : 0), 0); // G, B
            case 4: return c == 1 ? v / 4 : v;                            // R, B tie
            case 5: return (uint32_t)std::min(v + c, top);                // almost grey
            default: return c == t ? v : top - v;                         // around the flip
            }
        };
    };
    for (bool fwd : {true, false}) {
        check_integer<Lum8u>(index, fwd, 21, 256, sweep(255));
        check_integer<Lum16u>(index, fwd, 15, 256, sweep(65535));
        check_integer<Lum16s>(index, fwd, 15, 256, sweep(65535));
    }
}

// Worked values: grey keeps its value as L with H = S = 0 (16s: -32768);
// pure red, green and blue give 0, 85 and 170 in a tail.
TEST_P(Hls, WorkedValues)
{
    Img<Lum8u> a(5, 1), b(5, 1);
    const Lum8u px[5][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}, {77, 77, 77}};
    memcpy(a.data(), px, sizeof px);
    ASSERT_EQ(lumiRGBToHLS_8u_C3R(a.data(), a.step(), b.data(), b.step(), {5, 1}), lumStsNoErr);
    const int want[5][3] = {{0, 127, 255}, {85, 127, 255}, {170, 127, 255}, {0, 255, 0}, {0, 77, 0}};
    for (int x = 0; x < 5; ++x)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(b.at(x, 0, c), want[x][c], c == 2 ? 1 : 0) << x << " " << c;

    Img<Lum16s> s(3, 1), t(3, 1);
    const Lum16s grey[9] = {-32768, -32768, -32768, 0, 0, 0, 32767, 32767, 32767};
    memcpy(s.data(), grey, sizeof grey);
    ASSERT_EQ(lumiRGBToHLS_16s_C3R(s.data(), s.step(), t.data(), t.step(), {3, 1}), lumStsNoErr);
    for (int x = 0; x < 3; ++x) {
        EXPECT_EQ(t.at(x, 0, 0), -32768);
        EXPECT_EQ(t.at(x, 0, 1), grey[3 * x]);
        EXPECT_EQ(t.at(x, 0, 2), -32768);
    }
}

// ------------------------------------------------------------------ 32f --

// The larger and the smaller of two as the vector instructions give them:
// the second operand when the two compare equal (+0 and -0) or either is
// NaN.  Only the special values below can tell this from std::max.
float lane_max(float a, float b) { return a > b ? a : b; }
float lane_min(float a, float b) { return a < b ? a : b; }

void ref_hls_32f(float r, float g, float b, float out[3])
{
    const float mx = lane_max(lane_max(r, g), b), mn = lane_min(lane_min(r, g), b);
    const float delta = mx - mn;
    out[0] = out[2] = 0.0f;
    out[1] = 0.5f * (mx + mn);
    if (delta <= 1.1920929e-7f)
        return;
    out[2] = 0.5f * (mx + mn) <= 0.5f ? delta / (mx + mn) : delta / (2.0f - (mx + mn));
    float hue = mx == r ? (g - b) * 60.0f / delta
                        : mx == g ? (b - r) * 60.0f / delta + 120.0f : (r - g) * 60.0f / delta + 240.0f;
    // The wrap adds 360 below 0 and +0 otherwise, so a hue of -0 (a red
    // maximum over G = -0, B = +0) comes out as +0.
    hue += hue < 0.0f ? 360.0f : 0.0f;
    out[0] = hue / 360.0f;
}

float unit_noise(int x, int y, int c) { return (float)(noise(x, y, c) % 100001) / 100000.0f; }

void check_32f(bool forward, int w, int h, float (*fill)(int, int, int))
{
    SCOPED_TRACE(::testing::Message() << (forward ? "to HLS " : "to RGB ") << w << "x" << h);
    Img<Lum32f> src(w, h, 2), dst(w, h, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                src.at(x, y, c) = fill(x, y, c);
    const LumStatus st = forward
        ? lumiRGBToHLS_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {w, h})
        : lumiHLSToRGB_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {w, h});
    ASSERT_EQ(st, lumStsNoErr);
    const int body = w & ~3;
    int wrong = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float want[3];
            const float *p = &src.at(x, y, 0);
            if (forward)
                ref_hls_32f(p[0], p[1], p[2], want);
            else
                ref_rgb(x < body ? kA : kB, p[0] * 360.0f, p[1], p[2], want);
            for (int c = 0; c < 3; ++c)
                if (memcmp(&dst.at(x, y, c), &want[c], 4) != 0 && ++wrong <= 3)
                    ADD_FAILURE() << "pixel (" << x << ", " << y << ") channel " << c << ": got "
                                  << dst.at(x, y, c) << ", want " << want[c];
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(dst.guards_intact());
}

// Both directions at widths 1 to 27, in range and out of it (no clamp), and
// the special values: a delta of exactly 2^-23 is grey, H = 1.0 is 360
// degrees (G takes m1), S = 0 copies L.
TEST_P(Hls, Float32)
{
    for (int w = 1; w <= 27; ++w)
        for (bool fwd : {true, false}) {
            check_32f(fwd, w, 3, unit_noise);
            check_32f(fwd, w, 2, [](int x, int y, int c) { return unit_noise(x, y, c) * 3.0f - 1.0f; });
        }
    check_32f(true, 7, 1, [](int x, int, int c) {
        const float base = 0.25f * (float)(x % 4);
        return c == 0 ? base + (x < 4 ? 1.1920929e-7f : 2.4e-7f) : base;
    });
    check_32f(false, 7, 1, [](int x, int, int c) {
        return c == 0 ? (x & 1 ? 1.0f : 0.0f) : c == 1 ? 0.3f + 0.1f * (float)x : (x % 3 ? 0.6f : 0.0f);
    });

    Img<Lum32f> a(6, 1), b(6, 1);
    for (int x = 0; x < 6; ++x)
        a.at(x, 0, 0) = 0.5f, a.at(x, 0, 1) = a.at(x, 0, 2) = 0.5f;
    a.at(1, 0, 0) = a.at(5, 0, 0) = 0.5f + 1.1920929e-7f;
    ASSERT_EQ(lumiRGBToHLS_32f_C3R(a.data(), a.step(), b.data(), b.step(), {6, 1}), lumStsNoErr);
    EXPECT_EQ(b.at(1, 0, 0), 0.0f);
    EXPECT_EQ(b.at(5, 0, 2), 0.0f);

    for (int x = 0; x < 6; ++x)
        a.at(x, 0, 0) = 1.0f, a.at(x, 0, 1) = 0.25f, a.at(x, 0, 2) = 1.0f;
    ASSERT_EQ(lumiHLSToRGB_32f_C3R(a.data(), a.step(), b.data(), b.step(), {6, 1}), lumStsNoErr);
    for (int x : {0, 5})
        EXPECT_EQ(b.at(x, 0, 1), 0.0f) << x; // m1 = 2 l - m2 = 0.5 - 0.5
}

// A list of pixels (three floats each) laid over an image in reading order,
// pixel i of the list at position i + shift, over as many rows as it takes.
struct PixelList {
    std::vector<float> px;
    int count() const { return (int)px.size() / 3; }
    int rows(int w) const { return (count() + w - 1) / w; }
    void fill(Img<Lum32f> &img, int shift) const
    {
        for (int y = 0; y < img.h; ++y)
            for (int x = 0; x < img.w; ++x)
                memcpy(&img.at(x, y, 0), &px[3 * (size_t)((y * img.w + x + shift) % count())], 12);
    }
};

// Every combination of three values from a list of special floats (signed
// zeros, subnormals, the grey threshold and its neighbour, 0.5 and the next
// float, out of range, overflowing, infinite, NaN).
struct SpecialGrid : PixelList {
    SpecialGrid()
    {
        const float v[] = {0.0f, -0.0f, from_bits(1), -from_bits(1), 1.1920929e-7f, 2.4e-7f,
                           0.25f, 0.5f, from_bits(0x3f000001), 1.0f, -1.0f, 3.0f, 1e38f, -1e38f,
                           from_bits(0x7f7fffff), INFINITY, -INFINITY, NAN};
        for (float a : v)
            for (float b : v)
                for (float c : v)
                    px.insert(px.end(), {a, b, c});
    }
};

// Hues on and beside every edge of the channel function, for G and for R
// and B after their +-120 and wraps: the 49 floats H nearest to each
// multiple of 60 degrees from -240 to 600 (each edge is met exactly by h,
// h + 120 and h - 120).  Each hue comes with lightness and saturation
// pairs that give m2 above and below mid-lightness, S = 0 (L copied), m1 of
// -0 (where a ramp at position +0 would give +0), a falling ramp (S < 0)
// and an infinite S.
struct HueEdges : PixelList {
    HueEdges()
    {
        const float ls[][2] = {{0.3f, 0.6f},   {0.8f, 0.45f},  {0.4f, 0.0f},
                               {-0.0f, -0.5f}, {0.6f, -0.3f},  {0.5f, INFINITY}};
        for (int edge = -240; edge <= 600; edge += 60) {
            float H = (float)edge / 360.0f;
            for (int k = 0; k < 24; ++k)
                H = nextafterf(H, -INFINITY);
            for (int k = 0; k <= 48; ++k, H = nextafterf(H, INFINITY))
                for (const auto &p : ls)
                    px.insert(px.end(), {H, p[0], p[1]});
        }
    }
};

bool same_float(float a, float b) { return memcmp(&a, &b, 4) == 0 || (a != a && b != b); }

// Converts `list` at width w in one direction and compares each output with
// the reference's bits (any NaN for a NaN), the sign of a zero included;
// reports the first three differences.
bool matches_reference_32f(const PixelList &list, int w, int shift, bool fwd)
{
    const int h = list.rows(w);
    Img<Lum32f> src(w, h, 2), dst(w, h, 1);
    list.fill(src, shift);
    const LumStatus st = fwd
        ? lumiRGBToHLS_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {w, h})
        : lumiHLSToRGB_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {w, h});
    EXPECT_EQ(st, lumStsNoErr);
    int wrong = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float *p = &src.at(x, y, 0);
            float want[3];
            if (fwd)
                ref_hls_32f(p[0], p[1], p[2], want);
            else
                ref_rgb(x < (w & ~3) ? kA : kB, p[0] * 360.0f, p[1], p[2], want);
            for (int c = 0; c < 3; ++c)
                if (!same_float(dst.at(x, y, c), want[c]) && ++wrong <= 3)
                    ADD_FAILURE() << "column " << x << " channel " << c << " of (" << p[0] << ", "
                                  << p[1] << ", " << p[2] << "): got " << dst.at(x, y, c)
                                  << ", want " << want[c];
        }
    EXPECT_TRUE(dst.guards_intact());
    return st == lumStsNoErr && wrong == 0 && dst.guards_intact();
}

// Special values through both directions at widths whose rows hold two
// rounds of sixteen, a block of eight, four and a tail of three (47), or
// eight, four and a tail of one (13), or four and three (7), on every column.
TEST_P(Hls, Float32SpecialValuesOnEveryPath)
{
    const SpecialGrid grid;
    for (int w : {47, 13, 7})
        for (int shift = 0; shift < w; ++shift)
            for (bool fwd : {true, false})
                ASSERT_TRUE(matches_reference_32f(grid, w, shift, fwd))
                    << (fwd ? "to HLS " : "to RGB ") << w << " shift " << shift;
}

// Hues at the channel edges, at the same widths, so that every edge meets
// every kind of block and the tail, with grey lanes mixed among the others.
TEST_P(Hls, Float32HueEdgesOnEveryPath)
{
    const HueEdges edges;
    for (int w : {47, 13, 7})
        for (int shift = 0; shift < 6; ++shift)
            ASSERT_TRUE(matches_reference_32f(edges, w, shift, false)) << w << " shift " << shift;
}

// S = 0 copies L's bits exactly, whatever H holds, wherever the pixel sits:
// in either half of a pipelined round, a block of eight, four, or the tail.
// The L values are those arithmetic would change (a signalling NaN, a NaN
// with a payload, -0, infinities, the largest float); the H values include
// NaN, infinities and the hues that put a channel on an edge.  Neighbours
// have S != 0, so a grey lane's result cannot come from a whole-block test.
TEST_P(Hls, Float32GreyCopiesLBitsOnEveryPath)
{
    const float ls[] = {from_bits(0x7f800001), from_bits(0xffc12345), -0.0f, 0.0f, INFINITY,
                        -INFINITY, from_bits(0x7f7fffff), 0.75f, -2.0f};
    const float hs[] = {NAN, INFINITY, -INFINITY, 1.0f / 3.0f, 2.0f / 3.0f, 0.0f, -0.0f, 0.5f, 1.0f};
    for (int w : {16, 23, 24, 31, 40})
        for (int grey_at = 0; grey_at < w; ++grey_at) {
            Img<Lum32f> src(w, 1, 1), dst(w, 1, 1);
            for (int x = 0; x < w; ++x) {
                src.at(x, 0, 0) = 0.1f * (float)(x % 10);
                src.at(x, 0, 1) = 0.4f;
                src.at(x, 0, 2) = 0.7f;
            }
            const float l = ls[grey_at % 9], h = hs[(grey_at / 3) % 9];
            const float s = (grey_at & 1) ? -0.0f : 0.0f;
            src.at(grey_at, 0, 0) = h, src.at(grey_at, 0, 1) = l, src.at(grey_at, 0, 2) = s;
            ASSERT_EQ(lumiHLSToRGB_32f_C3R(src.data(), src.step(), dst.data(), dst.step(), {w, 1}),
                      lumStsNoErr);
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(memcmp(&dst.at(grey_at, 0, c), &l, 4), 0)
                    << "width " << w << " column " << grey_at << " channel " << c << " L " << l;
            for (int x = 0; x < w; ++x) {
                const float *p = &src.at(x, 0, 0);
                float want[3];
                ref_rgb(x < (w & ~3) ? kA : kB, p[0] * 360.0f, p[1], p[2], want);
                for (int c = 0; c < 3 && x != grey_at; ++c)
                    ASSERT_TRUE(same_float(dst.at(x, 0, c), want[c])) << w << " " << x << " " << c;
            }
            ASSERT_TRUE(dst.guards_intact());
        }
}

// The caller's rounding mode rounds every step of the arithmetic, so
// whatever form a step takes (a masked sum or a choice between sums, a
// minimum or a choice of operands) must round as the stated formula does in
// each mode; the mode is restored before the test ends.
TEST_P(Hls, Float32HlsToRgbInEveryRoundingMode)
{
    const HueEdges edges;
    const SpecialGrid grid;
    for (int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(fesetround(mode), 0);
        bool ok = true;
        for (int w : {47, 7})
            ok = ok && matches_reference_32f(edges, w, 0, false) && matches_reference_32f(grid, w, 3, false);
        fesetround(FE_TONEAREST);
        ASSERT_TRUE(ok) << "rounding mode " << mode;
    }
}

// ---------------------------------------------------------------- planes --

// Three planes a side, each with its own buffer; bytes after each row's
// region must stay as they were.
TEST_P(Hls, PlanarFormsMatchReference)
{
    // The planar forms truncate on every tier.
    for (int w = 1; w <= 13; ++w)
        for (bool fwd : {true, false}) {
            const int h = 3;
            SCOPED_TRACE(::testing::Message() << (fwd ? "BGR to HLS " : "HLS to BGR ") << w);
            std::vector<Lum8u> in[3], out[3];
            const int ss = w + 3, ds = w + 6;
            for (int c = 0; c < 3; ++c) {
                in[c].assign((size_t)ss * h, 0);
                out[c].assign((size_t)ds * h + 8, 0xA7);
            }
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int c = 0; c < 3; ++c)
                        in[c][(size_t)y * ss + x] = (Lum8u)(x == 2 ? 200 : noise(x, y, c));
            const Lum8u *s[3] = {in[0].data(), in[1].data(), in[2].data()};
            Lum8u *d[3] = {out[0].data(), out[1].data(), out[2].data()};
            ASSERT_EQ((fwd ? lumiBGRToHLS_8u_P3R : lumiHLSToBGR_8u_P3R)(s, ss, d, ds, {w, h}), lumStsNoErr);
            const int body = w & ~3;
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < ds; ++x) {
                    int want[3];
                    const size_t i = (size_t)y * ss + x;
                    if (x >= w) {
                        for (int c = 0; c < 3; ++c)
                            ASSERT_EQ(out[c][(size_t)y * ds + x], 0xA7) << "beyond the row";
                        continue;
                    }
                    if (fwd) {
                        ref_to_hls(k8u, in[2][i], in[1][i], in[0][i], x < body, kTrunc, want);
                        for (int c = 0; c < 3; ++c)
                            want[c] = x < body ? store(k8u, want[c]) : (Lum8u)want[c];
                    } else {
                        int rgb[3];
                        ref_to_rgb(k8u, in[0][i], in[1][i], in[2][i], kA, kTrunc, true, rgb);
                        for (int c = 0; c < 3; ++c)
                            want[c] = store(k8u, rgb[2 - c]);
                    }
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(out[c][(size_t)y * ds + x], want[c])
                            << "pixel (" << x << ", " << y << ") plane " << c;
                }
        }
}

// ---------------------------------------------------------------- status --

// C3R: pointers, then size, and no step test.  P3R: both arrays and six
// planes in order, then steps, then size.  Nothing written on any error.
TEST_P(Hls, StatusOrder)
{
    Img<Lum8u> a(4, 2), b(4, 2);
    const LumiSize ok = {4, 2};
    for (LumiSize bad : {LumiSize{0, 2}, LumiSize{4, 0}, LumiSize{-1, -1}}) {
        EXPECT_EQ(lumiRGBToHLS_8u_C3R(a.data(), a.step(), b.data(), b.step(), bad), lumStsSizeErr);
        EXPECT_EQ(lumiHLSToRGB_8u_C3R(nullptr, a.step(), b.data(), b.step(), bad), lumStsNullPtrErr);
        EXPECT_EQ(lumiRGBToHLS_16u_C3R(nullptr, 0, nullptr, 0, bad), lumStsNullPtrErr);
        EXPECT_EQ(lumiHLSToRGB_16s_C3R((Lum16s *)a.data(), 0, nullptr, 0, bad), lumStsNullPtrErr);
        EXPECT_EQ(lumiRGBToHLS_32f_C3R((Lum32f *)a.data(), 0, (Lum32f *)b.data(), 0, bad), lumStsSizeErr);
    }
    EXPECT_EQ(lumiRGBToHLS_16s_C3R(nullptr, 8, (Lum16s *)b.data(), 8, ok), lumStsNullPtrErr);
    EXPECT_EQ(lumiHLSToRGB_32f_C3R((Lum32f *)a.data(), 8, nullptr, 8, ok), lumStsNullPtrErr);
    EXPECT_TRUE(b.guards_intact());
    for (int i = 0; i < 24; ++i)
        ASSERT_EQ(b.data()[i], 0xA7) << "written on error";

    // A step of 0 is accepted by C3R: every row is the first.
    EXPECT_EQ(lumiRGBToHLS_8u_C3R(a.data(), 0, b.data(), 0, ok), lumStsNoErr);

    Lum8u planes[6][16];
    memset(planes, 0x5A, sizeof planes);
    for (auto fn : {lumiBGRToHLS_8u_P3R, lumiHLSToBGR_8u_P3R}) {
        const Lum8u *s[3] = {planes[0], planes[1], planes[2]};
        Lum8u *d[3] = {planes[3], planes[4], planes[5]};
        EXPECT_EQ(fn(nullptr, 0, d, 0, {0, 0}), lumStsNullPtrErr);
        EXPECT_EQ(fn(s, 0, nullptr, 0, {0, 0}), lumStsNullPtrErr);
        for (int k = 0; k < 6; ++k) {
            const Lum8u *s2[3] = {s[0], s[1], s[2]};
            Lum8u *d2[3] = {d[0], d[1], d[2]};
            if (k < 3)
                s2[k] = nullptr;
            else
                d2[k - 3] = nullptr;
            EXPECT_EQ(fn(s2, 0, d2, 0, {0, 0}), lumStsNullPtrErr) << "plane " << k;
        }
        EXPECT_EQ(fn(s, 0, d, 4, {0, 0}), lumStsStepErr);
        EXPECT_EQ(fn(s, 4, d, -4, {4, 1}), lumStsStepErr);
        EXPECT_EQ(fn(s, 4, d, 4, {4, 0}), lumStsSizeErr);
        EXPECT_EQ(fn(s, 4, d, 4, {0, 1}), lumStsSizeErr);
    }
    for (int k = 3; k < 6; ++k)
        for (int i = 0; i < 16; ++i)
            ASSERT_EQ(planes[k][i], 0x5A) << "written on error";
}

// A 16-bit or float step that is no whole number of elements: rows advance
// by the whole elements in it, and neither a positive nor a negative step
// makes a row leave the caller's block (exact-size blocks, so the sanitized
// build sees any stray access).
TEST_P(Hls, StepsThatAreNotWholeElements)
{
    const int w = 5, h = 4, n = 6; // 16s rows of 6 pixels' room, byte step 6n + 1
    const int step = 6 * n + 1, elems = step / 2;
    const size_t len = (size_t)elems * (h - 1) + 3 * w;
    std::vector<Lum16s> src(len), dst(len, 0x1234), ref(len, 0x1234);
    for (size_t i = 0; i < len; ++i)
        src[i] = (Lum16s)(noise((int)i, 1, 2) & 0xffff);
    ASSERT_EQ(lumiRGBToHLS_16s_C3R(src.data(), step, dst.data(), step, {w, h}), lumStsNoErr);
    for (int j = 0; j < h; ++j)
        ASSERT_EQ(lumiRGBToHLS_16s_C3R(src.data() + (size_t)j * elems, 0, ref.data() + (size_t)j * elems,
                                       0, {w, 1}), lumStsNoErr);
    EXPECT_EQ(dst, ref);

    // The same rows walked upward from the last.
    std::vector<Lum16s> up(len, 0x1234);
    const size_t last = (size_t)elems * (h - 1);
    ASSERT_EQ(lumiRGBToHLS_16s_C3R(src.data() + last, -step, up.data() + last, -step, {w, h}),
              lumStsNoErr);
    EXPECT_EQ(up, ref);

    // Floats with a byte step of 12n + 3 and its negative.
    const int fstep = 12 * n + 3, felems = fstep / 4;
    const size_t flen = (size_t)felems * (h - 1) + 3 * w;
    std::vector<Lum32f> fs(flen), fd(flen, -1.0f), fu(flen, -1.0f);
    for (size_t i = 0; i < flen; ++i)
        fs[i] = unit_noise((int)i, 0, 0);
    ASSERT_EQ(lumiHLSToRGB_32f_C3R(fs.data(), fstep, fd.data(), fstep, {w, h}), lumStsNoErr);
    const size_t flast = (size_t)felems * (h - 1);
    ASSERT_EQ(lumiHLSToRGB_32f_C3R(fs.data() + flast, -fstep, fu.data() + flast, -fstep, {w, h}),
              lumStsNoErr);
    EXPECT_EQ(memcmp(fd.data(), fu.data(), flen * 4), 0);
    EXPECT_EQ(fd[3 * w], -1.0f); // padding between rows untouched
}

// No call takes working memory.
TEST_P(Hls, TakesNoMemory)
{
    Img<Lum8u> a(9, 2), b(9, 2);
    lumitest::AllocFault count;
    ASSERT_EQ(lumiRGBToHLS_8u_C3R(a.data(), a.step(), b.data(), b.step(), {9, 2}), lumStsNoErr);
    ASSERT_EQ(lumiHLSToRGB_8u_C3R(b.data(), b.step(), a.data(), a.step(), {9, 2}), lumStsNoErr);
    EXPECT_EQ(count.allocations(), 0);
}

LUMI_INSTANTIATE_TIERS(Hls);

// Tiers that share a mode give identical results on one processor: SSE3 and
// SSSE3 everywhere, SSE4.1 and AVX everywhere, and all five on 32f.
TEST(HlsTiers, AgreeWhereTheirModesAgree)
{
    const int w = 37, h = 5;
    std::vector<std::vector<Lum8u>> out8;
    std::vector<std::vector<Lum16s>> out16;
    std::vector<std::vector<Lum32f>> out32;
    std::vector<int> idx = lumitest::tier_indices();
    Img<Lum8u> a(w, h);
    Img<Lum16s> s(w, h);
    Img<Lum32f> f(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) {
                a.at(x, y, c) = (Lum8u)noise(x, y, c);
                s.at(x, y, c) = (Lum16s)noise(x, y, c);
                f.at(x, y, c) = unit_noise(x, y, c);
            }
    for (int i : idx) {
        lumitest::force_index(i);
        Img<Lum8u> b(w, h), b2(w, h);
        Img<Lum16s> t(w, h), t2(w, h);
        Img<Lum32f> g(w, h), g2(w, h);
        lumiRGBToHLS_8u_C3R(a.data(), a.step(), b.data(), b.step(), {w, h});
        lumiHLSToRGB_8u_C3R(a.data(), a.step(), b2.data(), b2.step(), {w, h});
        lumiRGBToHLS_16s_C3R(s.data(), s.step(), t.data(), t.step(), {w, h});
        lumiHLSToRGB_16s_C3R(s.data(), s.step(), t2.data(), t2.step(), {w, h});
        lumiRGBToHLS_32f_C3R(f.data(), f.step(), g.data(), g.step(), {w, h});
        lumiHLSToRGB_32f_C3R(f.data(), f.step(), g2.data(), g2.step(), {w, h});
        b.buf.insert(b.buf.end(), b2.buf.begin(), b2.buf.end());
        t.buf.insert(t.buf.end(), t2.buf.begin(), t2.buf.end());
        g.buf.insert(g.buf.end(), g2.buf.begin(), g2.buf.end());
        out8.push_back(b.buf);
        out16.push_back(t.buf);
        out32.push_back(g.buf);
    }
    // The special floats at a width of 27 (three blocks of eight and a tail
    // of three), both directions, appended to each index's float results.
    const SpecialGrid grid;
    const int sw = 27, sh = (grid.count() + sw - 1) / sw;
    Img<Lum32f> sp(sw, sh);
    grid.fill(sp, 0);
    for (size_t k = 0; k < idx.size(); ++k) {
        lumitest::force_index(idx[k]);
        Img<Lum32f> o(sw, sh), o2(sw, sh);
        lumiRGBToHLS_32f_C3R(sp.data(), sp.step(), o.data(), o.step(), {sw, sh});
        lumiHLSToRGB_32f_C3R(sp.data(), sp.step(), o2.data(), o2.step(), {sw, sh});
        out32[k].insert(out32[k].end(), o.buf.begin(), o.buf.end());
        out32[k].insert(out32[k].end(), o2.buf.begin(), o2.buf.end());
    }
    lumStaticInit();
    for (size_t k = 1; k < idx.size(); ++k) {
        SCOPED_TRACE(::testing::Message() << "index " << idx[k] << " against " << idx[k - 1]);
        EXPECT_EQ(memcmp(out32[k].data(), out32[k - 1].data(), out32[k].size() * 4), 0);
        if (newer(idx[k]) == newer(idx[k - 1])) {
            EXPECT_EQ(out8[k], out8[k - 1]);
            EXPECT_EQ(out16[k], out16[k - 1]);
        }
    }
}

} // namespace
