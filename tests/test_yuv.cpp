// RGB <-> YUV conversion: every primitive against a plain reference written
// from the stated arithmetic, on every tier, with guard bytes and padded steps.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/guarded.h"
#include "support/sparse.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

// ------------------------------------------------------------ reference --

int hi(int a, int b) { return (int)(((int64_t)a * b) >> 16); }
int sat_s16(int x) { return std::min(std::max(x, -32768), 32767); }
int sat_u16(int x) { return std::min(std::max(x, 0), 65535); }
int clamp8(int x) { return std::min(std::max(x, 0), 255); }
int chop(int i) { return std::min(std::max(i - 370, 0), 255); }

void fwd_body(const int *p, int *o)
{
    const int r = p[0], g = p[1], b = p[2];
    o[0] = sat_u16(sat_u16(hi(r << 8, 19595) + hi(g << 8, 38469)) + hi(b << 8, 7471)) >> 8;
    const int u = sat_s16(sat_s16(hi(r << 7, -4816) + hi(g << 7, -9469)) + hi(b << 7, 14286));
    const int v = sat_s16(sat_s16(hi(r << 7, 20152) + hi(g << 7, -16875)) + hi(b << 7, -3276));
    o[1] = clamp8((u >> 6) + 128);
    o[2] = clamp8((v >> 6) + 128);
}

void fwd_tail(const int *p, int *o)
{
    const int r = p[0], g = p[1], b = p[2];
    const int s = 19595 * r + 38470 * g + 7471 * b;
    const int tv = ((r << 16) - s + 32767) >> 16;
    const int tu = ((b << 16) - s + 32767) >> 16;
    o[0] = s >> 16;
    o[1] = (uint8_t)(((tu * 32244) >> 16) - 128);
    o[2] = chop(370 + 128 + ((tv * 57475) >> 16));
}

// The interleaved and planar inverses differ in constants and chroma scale.
struct InvConsts {
    int scale, rv, gu, gv, bu;     // body: chroma scale, 16-bit weights
    int trv, tgu, tgv, tbu;        // tail: 16.16 weights
};
const InvConsts kConstsC3 = {8, 9339, -3228, -4760, 16646, 74711, -25821, -38076, 133169};
const InvConsts kConstsP3 = {16, 9338, -3227, -4759, 16645, 74710, -25820, -38075, 133168};

void inv_body(const InvConsts &k, const int *p, int *o)
{
    const int u = sat_s16(k.scale * p[1] - k.scale * 128);
    const int v = sat_s16(k.scale * p[2] - k.scale * 128);
    const int y = k.scale == 16 ? 2 * p[0] : p[0];
    const int shift = k.scale == 16 ? 1 : 0;
    o[0] = clamp8(sat_s16(y + hi(v, k.rv)) >> shift);
    o[1] = clamp8(sat_s16(sat_s16(y + hi(u, k.gu)) + hi(v, k.gv)) >> shift);
    o[2] = clamp8(sat_s16(y + hi(u, k.bu)) >> shift);
}

void inv_tail(const InvConsts &k, const int *p, int *o)
{
    const int y = p[0] << 16, u = p[1] - 128, v = p[2] - 128;
    o[0] = chop(370 + ((y + k.trv * v) >> 16));
    o[1] = chop(370 + ((y + k.tgu * u + k.tgv * v) >> 16));
    o[2] = chop(370 + ((y + k.tbu * u) >> 16));
}

// ---------------------------------------------------- the four primitives --

enum Kind { kFwdC3, kFwdP3, kInvC3, kInvP3 };
const Kind kAll[] = {kFwdC3, kFwdP3, kInvC3, kInvP3};
const char *kName[] = {"RGBToYUV_C3R", "RGBToYUV_C3P3R", "YUVToRGB_C3R", "YUVToRGB_P3C3R"};
const int kRound[] = {16, 8, 8, 16};
bool planar_src(Kind k) { return k == kInvP3; }
bool planar_dst(Kind k) { return k == kFwdP3; }

void reference(Kind k, bool body, const int *in, int *out)
{
    if (k == kFwdC3 || k == kFwdP3)
        (body ? fwd_body : fwd_tail)(in, out);
    else if (body)
        inv_body(k == kInvC3 ? kConstsC3 : kConstsP3, in, out);
    else
        inv_tail(k == kInvC3 ? kConstsC3 : kConstsP3, in, out);
}

// An image of three channels, interleaved (one C3 image) or planar (three C1
// images with one step).
struct Image {
    std::vector<GuardedImage> parts;
    Image(bool planar, int w, int h, int pad)
    {
        for (int i = 0; i < (planar ? 3 : 1); ++i)
            parts.emplace_back(w, h, planar ? 1 : 3, pad, 3 + 5 * i);
    }
    bool planar() const { return parts.size() == 3; }
    uint8_t &at(int x, int y, int c)
    {
        return planar() ? parts[c].at(x, y) : parts[0].at(x, y, c);
    }
    bool guards_intact() const
    {
        for (const auto &p : parts)
            if (!p.guard_intact())
                return false;
        return true;
    }
};

LumStatus run(Kind k, Image &src, Image &dst, LumiSize roi)
{
    GuardedImage &s = src.parts[0], &d = dst.parts[0];
    switch (k) {
    case kFwdC3:
        return lumiRGBToYUV_8u_C3R(s.data(), s.step, d.data(), d.step, roi);
    case kInvC3:
        return lumiYUVToRGB_8u_C3R(s.data(), s.step, d.data(), d.step, roi);
    case kFwdP3: {
        Lum8u *planes[3] = {dst.parts[0].data(), dst.parts[1].data(), dst.parts[2].data()};
        return lumiRGBToYUV_8u_C3P3R(s.data(), s.step, planes, d.step, roi);
    }
    case kInvP3: {
        const Lum8u *planes[3] = {src.parts[0].data(), src.parts[1].data(), src.parts[2].data()};
        return lumiYUVToRGB_8u_P3C3R(planes, s.step, d.data(), d.step, roi);
    }
    }
    return lumStsBadArgErr;
}

template <typename Fill>
void check_against_reference(Kind k, int w, int h, Fill fill)
{
    SCOPED_TRACE(::testing::Message() << kName[k] << " " << w << "x" << h);
    Image src(planar_src(k), w, h, 5), dst(planar_dst(k), w, h, 7);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                src.at(x, y, c) = fill(x, y, c);
    ASSERT_EQ(run(k, src, dst, {w, h}), lumStsNoErr);
    const int body = w - w % kRound[k];
    int wrong = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int in[3], want[3];
            for (int c = 0; c < 3; ++c)
                in[c] = src.at(x, y, c);
            reference(k, x < body, in, want);
            for (int c = 0; c < 3; ++c)
                if (dst.at(x, y, c) != want[c] && ++wrong <= 3)
                    ADD_FAILURE() << "pixel (" << x << ", " << y << ") channel " << c << " in "
                                  << (x < body ? "body" : "tail") << ": got "
                                  << (int)dst.at(x, y, c) << ", want " << want[c] << " for ("
                                  << in[0] << ", " << in[1] << ", " << in[2] << ")";
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(dst.guards_intact());
    EXPECT_TRUE(src.guards_intact());
}

uint8_t noise(int x, int y, int c)
{
    uint32_t s = (uint32_t)x * 73856093u ^ (uint32_t)y * 19349663u ^ (uint32_t)c * 83492791u;
    s = s * 2654435761u;
    return (uint8_t)(s >> 24);
}

class Yuv : public lumitest::TierTest {};

// The two paths on white and black, and where each primitive's body ends.
TEST_P(Yuv, WhiteAndBlackTellBodyFromTail)
{
    for (Kind k : {kFwdC3, kFwdP3}) {
        const int w = 2 * kRound[k] + 3, body = 2 * kRound[k];
        Image src(false, w, 2, 5), dst(planar_dst(k), w, 2, 7);
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                src.at(x, 0, c) = 255, src.at(x, 1, c) = 0;
        ASSERT_EQ(run(k, src, dst, {w, 2}), lumStsNoErr);
        for (int x = 0; x < w; ++x) {
            SCOPED_TRACE(::testing::Message() << kName[k] << " column " << x);
            const int white[3] = {x < body ? 254 : 255, x < body ? 127 : 128, x < body ? 127 : 128};
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(dst.at(x, 0, c), white[c]);
                EXPECT_EQ(dst.at(x, 1, c), c ? 128 : 0);
            }
        }
        EXPECT_TRUE(dst.guards_intact());
    }
}

// Widths from 1 to three rounds and more, heights 1 to 3, padded steps and
// regions off any alignment.
TEST_P(Yuv, MatchesReferenceAtEveryWidth)
{
    for (Kind k : kAll)
        for (int w = 1; w <= 3 * kRound[k] + 3; ++w)
            for (int h = 1; h <= 3; h += 2)
                check_against_reference(k, w, h, noise);
    for (Kind k : kAll)
        check_against_reference(k, 203, 2, noise);
}

// Each column of body and tail sees every byte value in each channel.
TEST_P(Yuv, EveryByteValueInEachChannel)
{
    for (Kind k : kAll)
        check_against_reference(k, 3 * kRound[k] - 1, 256, [](int x, int y, int c) {
            return c == x % 3 ? (uint8_t)(y + 7 * x) : noise(x, y, c);
        });
}

// Extreme and mid values in all combinations: the saturating sums and clamps.
TEST_P(Yuv, SaturatingColours)
{
    static const uint8_t v[] = {0, 1, 16, 127, 128, 129, 235, 254, 255};
    for (Kind k : kAll)
        check_against_reference(k, 2 * kRound[k] - 1, 9 * 9 * 9, [](int, int y, int c) {
            return v[(c == 0 ? y : c == 1 ? y / 9 : y / 81) % 9];
        });
}

// Pointers before size in the interleaved forms; in the planar forms the
// image and the array, then size, then each plane.  Nothing is written.
TEST_P(Yuv, StatusOrder)
{
    Image c3a(false, 8, 2, 5), c3b(false, 8, 2, 5), p3(true, 8, 2, 5);
    Lum8u *a = c3a.parts[0].data(), *b = c3b.parts[0].data();
    const int s = c3a.parts[0].step, ps = p3.parts[0].step;
    const LumiSize ok = {8, 2};
    for (LumiSize bad : {LumiSize{0, 2}, LumiSize{8, 0}, LumiSize{-1, -1}}) {
        EXPECT_EQ(lumiRGBToYUV_8u_C3R(a, s, b, s, bad), lumStsSizeErr);
        EXPECT_EQ(lumiYUVToRGB_8u_C3R(a, s, b, s, bad), lumStsSizeErr);
        EXPECT_EQ(lumiRGBToYUV_8u_C3R(nullptr, s, b, s, bad), lumStsNullPtrErr);
        EXPECT_EQ(lumiYUVToRGB_8u_C3R(a, s, nullptr, s, bad), lumStsNullPtrErr);
    }
    EXPECT_EQ(lumiRGBToYUV_8u_C3R(a, s, nullptr, s, ok), lumStsNullPtrErr);
    EXPECT_EQ(lumiYUVToRGB_8u_C3R(nullptr, s, b, s, ok), lumStsNullPtrErr);

    for (int missing = -1; missing < 3; ++missing) {
        Lum8u *planes[3] = {p3.parts[0].data(), p3.parts[1].data(), p3.parts[2].data()};
        if (missing >= 0)
            planes[missing] = nullptr;
        const Lum8u *cplanes[3] = {planes[0], planes[1], planes[2]};
        SCOPED_TRACE(::testing::Message() << "null plane " << missing);
        // A null plane is not seen while the size is bad.
        EXPECT_EQ(lumiRGBToYUV_8u_C3P3R(a, s, planes, ps, {0, 2}), lumStsSizeErr);
        EXPECT_EQ(lumiYUVToRGB_8u_P3C3R(cplanes, ps, b, s, {8, -3}), lumStsSizeErr);
        // The image and the array are tested before the size.
        EXPECT_EQ(lumiRGBToYUV_8u_C3P3R(nullptr, s, planes, ps, {0, 2}), lumStsNullPtrErr);
        EXPECT_EQ(lumiRGBToYUV_8u_C3P3R(a, s, nullptr, ps, {0, 2}), lumStsNullPtrErr);
        EXPECT_EQ(lumiYUVToRGB_8u_P3C3R(cplanes, ps, nullptr, s, {0, 2}), lumStsNullPtrErr);
        EXPECT_EQ(lumiYUVToRGB_8u_P3C3R(nullptr, ps, b, s, {0, 2}), lumStsNullPtrErr);
        if (missing >= 0) {
            EXPECT_EQ(lumiRGBToYUV_8u_C3P3R(a, s, planes, ps, ok), lumStsNullPtrErr);
            EXPECT_EQ(lumiYUVToRGB_8u_P3C3R(cplanes, ps, b, s, ok), lumStsNullPtrErr);
        }
    }
    EXPECT_TRUE(c3a.guards_intact() && c3b.guards_intact() && p3.guards_intact());
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_TRUE(c3b.at(x, y, c) == 0 && p3.at(x, y, c) == 0);
}

LUMI_INSTANTIATE_TIERS(Yuv);

// A writable range of `bytes` in which every `window` bytes are the same
// memory: a destination of gigabytes that costs one window of real memory.
// What stays in the window after a pass is what the pass wrote last.
struct AliasedRange {
    size_t window, bytes;
    uint8_t *base = nullptr;
    AliasedRange(size_t window_, size_t bytes_) : window(window_), bytes(bytes_)
    {
        const int fd = memfd_create("lumi-test", 0);
        if (fd < 0 || ftruncate(fd, (off_t)window) != 0)
            return;
        void *r = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (r != MAP_FAILED) {
            base = (uint8_t *)r;
            for (size_t at = 0; at < bytes && base; at += window)
                if (mmap(base + at, window, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0) ==
                    MAP_FAILED)
                    base = nullptr;
        }
        close(fd);
    }
    ~AliasedRange()
    {
        if (base)
            munmap(base, bytes);
    }
};

// Rows of more than 715827882 pixels, whose byte offsets 3 * x pass 2^31.
// The source is reserved address space, zero but for its last pixels; the
// destination repeats one window, whose bytes at the end are the row's last
// output.  Those must equal the same pixels converted in a short row with the
// same split between body and tail.  (Two passes over 2 GiB: too slow for an
// emulated processor, so emulated runs leave it out.)
TEST(YuvRows, BeyondTwoGigabytes)
{
    if (getenv("LUMI_TEST_TIERS"))
        GTEST_SKIP() << "emulated processor";
    const int32_t width = 715827900, tailPixels = 64;
    const size_t rowBytes = (size_t)3 * width, window = (size_t)1 << 20;
    lumitest::SparseBlock src(rowBytes + 4096);
    AliasedRange dst(window, (rowBytes + window - 1) / window * window);
    ASSERT_TRUE(src.data() && dst.base);
    std::vector<uint8_t> last(3 * tailPixels);
    for (size_t i = 0; i < last.size(); ++i)
        last[i] = (uint8_t)(i * 37 + 11);
    memcpy(src.data() + rowBytes - last.size(), last.data(), last.size());
    // The short row: zeros, then the same last pixels, width congruent mod 16.
    const int32_t shortWidth = 16 * 8 + width % 16;
    std::vector<uint8_t> shortSrc((size_t)3 * shortWidth, 0), shortDst((size_t)3 * shortWidth);
    memcpy(shortSrc.data() + shortSrc.size() - last.size(), last.data(), last.size());
    using Fn = decltype(&lumiRGBToYUV_8u_C3R);
    for (Fn fn : {lumiRGBToYUV_8u_C3R, lumiYUVToRGB_8u_C3R}) {
        ASSERT_EQ(fn(src.data(), (int32_t)0x7fffffff, dst.base, 0x7fffffff, {width, 1}), lumStsNoErr);
        ASSERT_EQ(fn(shortSrc.data(), 0x7fffffff, shortDst.data(), 0x7fffffff, {shortWidth, 1}),
                  lumStsNoErr);
        const uint8_t *got = dst.base + rowBytes - last.size();
        EXPECT_EQ(std::vector<uint8_t>(got, got + last.size()),
                  std::vector<uint8_t>(shortDst.end() - last.size(), shortDst.end()));
    }
}

} // namespace
