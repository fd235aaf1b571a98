// Plain byte-image copies (tier members) and the plane copies (dispatched).
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <memory>
#include <vector>

#include "lumi.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/cache_cpus.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

using lumitest::GuardedImage;
using lumitest::SimulatedCpu;
using lumitest::TierMembers;
using lumitest::UseCpu;
using lumitest::foreign_cpu;
using lumitest::large_cache_cpu;
using lumitest::small_cache_cpu;

namespace {


std::vector<uint8_t> pattern(size_t n, uint32_t seed)
{
    std::vector<uint8_t> v(n);
    uint32_t s = seed * 2654435761u + 7;
    for (auto &b : v) {
        s = s * 1664525u + 1013904223u;
        b = (uint8_t)(s >> 24);
    }
    return v;
}

class PlainCopy : public ::testing::TestWithParam<TierMembers> {};

TEST_P(PlainCopy, RegionsOfEveryShapeStepAndAlignment)
{
    const TierMembers &m = GetParam();
    const int widths[] = {1, 2, 3, 4, 5, 7, 15, 16, 17, 21, 22, 31, 33, 42, 63, 64, 65,
                          100, 127, 128, 129, 200, 341, 342, 343, 1023, 1024, 1030};
    const int offsets[][2] = {{0, 0}, {3, 0}, {0, 5}, {7, 13}, {4, 8}, {16, 1}, {9, 9}};
    for (int ch : {1, 3})
        for (int w : widths)
            for (int h : {1, 3})
                for (int pad : {0, 7})
                    for (const auto &off : offsets) {
                        GuardedImage src(w, h, ch, pad, off[0]);
                        GuardedImage dst(w, h, ch, pad, off[1]);
                        src.fill_random(w * 31 + h + ch);
                        auto fn = ch == 1 ? m.lumiCopy_8u_C1R : m.lumiCopy_8u_C3R;
                        ASSERT_EQ(fn(src.data(), src.step, dst.data(), dst.step, {w, h}),
                                  lumStsNoErr);
                        ASSERT_EQ(dst.region(), src.region())
                            << "C" << ch << " w=" << w << " h=" << h << " pad=" << pad
                            << " off=" << off[0] << "," << off[1];
                        ASSERT_TRUE(dst.guard_intact()) << "w=" << w << " h=" << h;
                    }
}

TEST_P(PlainCopy, ZeroAndNegativeStepsAreTakenAsGiven)
{
    const TierMembers &m = GetParam();
    for (int w : {5, 70, 1100}) {
        const int h = 4;
        GuardedImage src(w, h, 1);
        src.fill_random(w);
        // A negative source step reads the rows upward: the copy is flipped.
        GuardedImage flipped(w, h, 1);
        ASSERT_EQ(m.lumiCopy_8u_C1R(src.row(h - 1), -src.step, flipped.data(), flipped.step, {w, h}),
                  lumStsNoErr);
        for (int y = 0; y < h; ++y)
            ASSERT_EQ(memcmp(flipped.row(y), src.row(h - 1 - y), w), 0) << "w=" << w;
        EXPECT_TRUE(flipped.guard_intact());
        // A destination step of 0 writes every row to one place: the last wins.
        GuardedImage one(w, 1, 1);
        ASSERT_EQ(m.lumiCopy_8u_C1R(src.data(), src.step, one.data(), 0, {w, h}), lumStsNoErr);
        EXPECT_EQ(memcmp(one.data(), src.row(h - 1), w), 0);
        EXPECT_TRUE(one.guard_intact());
    }
}

TEST_P(PlainCopy, StatusesInTheirOrderAndNothingWritten)
{
    const TierMembers &m = GetParam();
    GuardedImage src(8, 2, 3), dst(8, 2, 3);
    src.fill_random(1);
    for (auto fn : {m.lumiCopy_8u_C1R, m.lumiCopy_8u_C3R}) {
        EXPECT_EQ(fn(nullptr, src.step, dst.data(), dst.step, {0, 2}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src.data(), src.step, nullptr, dst.step, {-1, -1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(src.data(), src.step, dst.data(), dst.step, {0, 2}), lumStsSizeErr);
        EXPECT_EQ(fn(src.data(), src.step, dst.data(), dst.step, {8, 0}), lumStsSizeErr);
        EXPECT_EQ(fn(src.data(), src.step, dst.data(), dst.step, {-3, 2}), lumStsSizeErr);
    }
    GuardedImage untouched(8, 2, 3);
    EXPECT_EQ(dst.buf, untouched.buf);
}

// The tiers ask for the cache size only from their own thresholds on: a
// region one byte below never reads the processor, one at the threshold
// does.  m7 never asks.  The bytes are the same either way.
TEST_P(PlainCopy, CacheLookupStartsAtTheTierThreshold)
{
    const TierMembers &m = GetParam();
    struct Threshold { const char *tier; int below, at; };
    const Threshold table[] = {{"m7", 0x200001, 0}, {"n8", 0x20000, 0x20001},
                               {"u8", 0xfffff, 0x100000}, {"y8", 0xfffff, 0x100000},
                               {"e9", 0x200000, 0x200001}};
    const Threshold *t = nullptr;
    for (const Threshold &row : table)
        if (strcmp(row.tier, m.name) == 0)
            t = &row;
    ASSERT_NE(t, nullptr);
    SimulatedCpu cpu = small_cache_cpu();
    UseCpu use(cpu);
    for (int n : {t->below, t->at}) {
        if (n == 0)
            continue;
        const std::vector<uint8_t> src = pattern(n, n);
        std::vector<uint8_t> dst(n + 32, 0xA5);
        const int reads = cpu.reads;
        ASSERT_EQ(m.lumiCopy_8u_C1R(src.data(), n, dst.data() + 16, n, {n, 1}), lumStsNoErr);
        EXPECT_EQ(cpu.reads > reads, n == t->at) << m.name << " n=" << n;
        EXPECT_EQ(memcmp(dst.data() + 16, src.data(), n), 0);
        for (int i = 0; i < 16; ++i)
            ASSERT_TRUE(dst[i] == 0xA5 && dst[n + 16 + i] == 0xA5);
    }
    // e9 asks only for rows of 1024 bytes and more.
    if (strcmp(m.name, "e9") == 0) {
        const int w = 1023, h = 2100;
        GuardedImage src(w, h, 1, 0, 0), dst(w, h, 1, 0, 0);
        lumitest::reset_processor_state(); // forget the cache size read above
        const int reads = cpu.reads;
        ASSERT_EQ(m.lumiCopy_8u_C1R(src.data(), src.step, dst.data(), dst.step, {w, h}), lumStsNoErr);
        EXPECT_EQ(cpu.reads, reads);
    }
}

// Large regions with padded, misaligned rows take the out-of-cache paths on
// the small-cache processor, and the in-cache paths on the others; all give
// the region and nothing else.
TEST_P(PlainCopy, LargeRegionsOnEveryCacheAnswer)
{
    const TierMembers &m = GetParam();
    const SimulatedCpu cpus[] = {small_cache_cpu(), large_cache_cpu(), foreign_cpu()};
    for (const SimulatedCpu &proto : cpus) {
        SimulatedCpu cpu = proto;
        UseCpu use(cpu);
        for (int ch : {1, 3}) {
            const int w = ch == 1 ? 1100 : 367, h = 2000;
            GuardedImage src(w, h, ch, 13, 5), dst(w, h, ch, 3, 9);
            src.fill_random(ch);
            auto fn = ch == 1 ? m.lumiCopy_8u_C1R : m.lumiCopy_8u_C3R;
            ASSERT_EQ(fn(src.data(), src.step, dst.data(), dst.step, {w, h}), lumStsNoErr);
            EXPECT_EQ(dst.region(), src.region()) << m.name << " C" << ch;
            EXPECT_TRUE(dst.guard_intact());
        }
    }
}

// Source and destination a little apart in their low twelve address bits
// (either way round, and 0xf60 apart) copy correctly in and out of cache.
TEST_P(PlainCopy, AddressesCloseModulo4096)
{
    const TierMembers &m = GetParam();
    SimulatedCpu cpu = small_cache_cpu();
    UseCpu use(cpu);
    for (int n : {300, 0x100040}) {
        std::vector<uint8_t> buf(2 * n + 0x6000 + 64, 0xA5);
        uint8_t *base = buf.data() + ((64 - (uintptr_t)buf.data() % 64) % 64);
        uint8_t *dst = base + 0x1000;
        for (int off : {-0xf60, -0xa0, -0x40, -0x10, 0, 0x10, 0x40, 0xa0, 0xf60, 0xfa0}) {
            uint8_t *src = dst + n + 0x2000 + off;
            const std::vector<uint8_t> data = pattern(n, off + 5000);
            memcpy(src, data.data(), n);
            memset(dst - 16, 0xA5, n + 32);
            ASSERT_EQ(m.lumiCopy_8u_C1R(src, n, dst, n, {n, 1}), lumStsNoErr);
            ASSERT_EQ(memcmp(dst, data.data(), n), 0) << m.name << " off=" << off << " n=" << n;
            for (int i = 1; i <= 16; ++i)
                ASSERT_TRUE(dst[-i] == 0xA5 && dst[n - 1 + i] == 0xA5);
        }
    }
}

LUMI_INSTANTIATE_TIER_MEMBERS(PlainCopy);

// ------------------------------------------------------------ plane copies

// Three planes of one size and step, each at its own distance from a 16-byte
// boundary, with guard bytes around each.
struct Planes {
    std::vector<GuardedImage> p;
    Planes(int w, int h, int pad, const int misalign[3])
    {
        for (int c = 0; c < 3; ++c)
            p.emplace_back(w, h, 1, pad, misalign[c]);
    }
    int step() const { return p[0].step; }
    bool guard_intact() const
    {
        return p[0].guard_intact() && p[1].guard_intact() && p[2].guard_intact();
    }
};

// pDst[c][y*dstStep + x] = pSrc[y*srcStep + 3*x + c], and nothing else.
void expect_split(const GuardedImage &img, const Planes &planes, const char *what)
{
    std::vector<uint8_t> want(img.width);
    for (int y = 0; y < img.height; ++y)
        for (int c = 0; c < 3; ++c) {
            for (int x = 0; x < img.width; ++x)
                want[x] = img.data()[y * img.step + 3 * x + c];
            ASSERT_EQ(memcmp(planes.p[c].data() + y * planes.step(), want.data(), img.width), 0)
                << what << " y=" << y << " c=" << c;
        }
    EXPECT_TRUE(planes.guard_intact()) << what;
}

void expect_merge(const Planes &planes, const GuardedImage &img, const char *what)
{
    std::vector<uint8_t> want(3 * img.width);
    for (int y = 0; y < img.height; ++y) {
        for (int x = 0; x < 3 * img.width; ++x)
            want[x] = planes.p[x % 3].data()[y * planes.step() + x / 3];
        ASSERT_EQ(memcmp(img.data() + y * img.step, want.data(), want.size()), 0) << what << " y=" << y;
    }
    EXPECT_TRUE(img.guard_intact()) << what;
}

// Runs a split and a merge of one shape and checks both.
void split_and_merge(int w, int h, int padPlane, int padImage, int misImage, const int misPlanes[3])
{
    char what[160];
    snprintf(what, sizeof what, "w=%d h=%d pads=%d,%d mis=%d/%d,%d,%d", w, h, padPlane, padImage,
             misImage, misPlanes[0], misPlanes[1], misPlanes[2]);
    GuardedImage img(w, h, 3, padImage, misImage);
    img.fill_random(w * 7 + h);
    Planes planes(w, h, padPlane, misPlanes);
    Lum8u *dst[3] = {planes.p[0].data(), planes.p[1].data(), planes.p[2].data()};
    ASSERT_EQ(lumiCopy_8u_C3P3R(img.data(), img.step, dst, planes.step(), {w, h}), lumStsNoErr);
    expect_split(img, planes, what);

    GuardedImage back(w, h, 3, padImage, (misImage + 5) % 16);
    const Lum8u *src[3] = {planes.p[0].data(), planes.p[1].data(), planes.p[2].data()};
    ASSERT_EQ(lumiCopy_8u_P3C3R(src, planes.step(), back.data(), back.step, {w, h}), lumStsNoErr);
    expect_merge(planes, back, what);
}

class PlaneCopy : public lumitest::TierTest {};

// Widths around the 8- and 16-pixel rounds and the 512-pixel cache read;
// contiguous and padded regions; aligned pointers (keys 0, 4 and 64, the
// aligned 16-pixel path) and misaligned ones.
TEST_P(PlaneCopy, EveryShapeStepAndAlignment)
{
    const int widths[] = {1, 2, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 48, 100, 513};
    const int mis[][4] = {{0, 0, 0, 0}, {4, 0, 0, 0}, {0, 4, 4, 4}, {0, 0, 8, 4},
                          {3, 1, 2, 5}, {8, 16, 0, 8}, {0, 0, 0, 7}};
    for (int w : widths)
        for (int h : {1, 3})
            for (const auto &m : mis) {
                split_and_merge(w, h, 0, 0, m[0], m + 1);  // contiguous
                split_and_merge(w, h, 16, 48, m[0], m + 1); // padded, steps still 16-multiples
                split_and_merge(w, h, 5, 1, m[0], m + 1);
                if (HasFatalFailure())
                    return;
            }
}

// A contiguous region of 1 Mi pixels and more asks for the cache size in y8
// and e9 splits; merges ask from 512-pixel rows on (not m7).  On the
// small-cache processor both then stream, with the same bytes.
TEST_P(PlaneCopy, CacheLookupAndStreamingPaths)
{
    const int index = GetParam();
    SimulatedCpu cpu = small_cache_cpu();
    UseCpu use(cpu);
    const int zero[3] = {0, 0, 0};
    struct Shape { int w, h; bool split_reads, merge_reads; };
    const bool y8e9 = index >= 4;
    const Shape shapes[] = {{1024, 1024, false, index >= 2}, {1024, 1025, y8e9, index >= 2},
                            {1025, 1024, y8e9, index >= 2}, {511, 2100, y8e9, false}};
    for (const Shape &sh : shapes) {
        GuardedImage img(sh.w, sh.h, 3, 0, 0);
        img.fill_random(sh.w);
        Planes planes(sh.w, sh.h, 0, zero);
        Lum8u *dst[3] = {planes.p[0].data(), planes.p[1].data(), planes.p[2].data()};
        lumitest::reset_processor_state();
        int reads = cpu.reads;
        ASSERT_EQ(lumiCopy_8u_C3P3R(img.data(), img.step, dst, planes.step(), {sh.w, sh.h}), lumStsNoErr);
        EXPECT_EQ(cpu.reads > reads, sh.split_reads) << sh.w << "x" << sh.h;
        expect_split(img, planes, "large split");

        GuardedImage back(sh.w, sh.h, 3, 0, 3);
        const Lum8u *src[3] = {dst[0], dst[1], dst[2]};
        lumitest::reset_processor_state();
        reads = cpu.reads;
        ASSERT_EQ(lumiCopy_8u_P3C3R(src, planes.step(), back.data(), back.step, {sh.w, sh.h}), lumStsNoErr);
        EXPECT_EQ(cpu.reads > reads, sh.merge_reads) << sh.w << "x" << sh.h;
        expect_merge(planes, back, "large merge");
    }
}

// Source and destination in heap blocks of exactly the region's size, so
// that the sanitized build reports any load past the last pixel (the rounds
// read whole vectors, some at odd offsets).  Padded rows are covered above.
TEST_P(PlaneCopy, ReadsNothingPastTheRegion)
{
    for (int w = 1; w <= 50; ++w)
        for (int h : {1, 2}) {
            const size_t n = (size_t)w * h;
            const std::vector<uint8_t> want = pattern(3 * n, w * 3 + h);
            std::unique_ptr<Lum8u[]> img(new Lum8u[3 * n]), back(new Lum8u[3 * n]);
            std::unique_ptr<Lum8u[]> plane[3] = {std::unique_ptr<Lum8u[]>(new Lum8u[n]),
                                                  std::unique_ptr<Lum8u[]>(new Lum8u[n]),
                                                  std::unique_ptr<Lum8u[]>(new Lum8u[n])};
            memcpy(img.get(), want.data(), 3 * n);
            Lum8u *dst[3] = {plane[0].get(), plane[1].get(), plane[2].get()};
            ASSERT_EQ(lumiCopy_8u_C3P3R(img.get(), 3 * w, dst, w, {w, h}), lumStsNoErr);
            for (size_t i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(dst[c][i], want[3 * i + c]) << "split w=" << w << " h=" << h;
            const Lum8u *src[3] = {dst[0], dst[1], dst[2]};
            ASSERT_EQ(lumiCopy_8u_P3C3R(src, w, back.get(), 3 * w, {w, h}), lumStsNoErr);
            ASSERT_EQ(memcmp(back.get(), want.data(), 3 * n), 0) << "merge w=" << w << " h=" << h;
        }
}

TEST_P(PlaneCopy, StatusesInTheirOrderAndNothingWritten)
{
    const int zero[3] = {0, 0, 0};
    GuardedImage img(6, 2, 3);
    Planes planes(6, 2, 0, zero);
    Lum8u *p[3] = {planes.p[0].data(), planes.p[1].data(), planes.p[2].data()};
    const Lum8u *cp[3] = {p[0], p[1], p[2]};
    const int step = planes.step();
    EXPECT_EQ(lumiCopy_8u_C3P3R(nullptr, img.step, p, step, {6, 2}), lumStsNullPtrErr);
    EXPECT_EQ(lumiCopy_8u_C3P3R(img.data(), img.step, nullptr, step, {6, 2}), lumStsNullPtrErr);
    EXPECT_EQ(lumiCopy_8u_P3C3R(cp, step, nullptr, img.step, {6, 2}), lumStsNullPtrErr);
    EXPECT_EQ(lumiCopy_8u_P3C3R(nullptr, step, img.data(), img.step, {6, 2}), lumStsNullPtrErr);
    for (int c = 0; c < 3; ++c) {
        Lum8u *q[3] = {p[0], p[1], p[2]};
        const Lum8u *cq[3] = {p[0], p[1], p[2]};
        q[c] = nullptr;
        cq[c] = nullptr;
        // A missing plane is reported before a bad size.
        EXPECT_EQ(lumiCopy_8u_C3P3R(img.data(), img.step, q, step, {0, -1}), lumStsNullPtrErr);
        EXPECT_EQ(lumiCopy_8u_P3C3R(cq, step, img.data(), img.step, {0, -1}), lumStsNullPtrErr);
    }
    for (LumiSize bad : {LumiSize{0, 2}, LumiSize{6, 0}, LumiSize{-6, 2}}) {
        EXPECT_EQ(lumiCopy_8u_C3P3R(img.data(), img.step, p, step, bad), lumStsSizeErr);
        EXPECT_EQ(lumiCopy_8u_P3C3R(cp, step, img.data(), img.step, bad), lumStsSizeErr);
    }
    GuardedImage fresh(6, 2, 3);
    EXPECT_EQ(img.buf, fresh.buf);
    EXPECT_EQ(planes.p[2].buf, Planes(6, 2, 0, zero).p[2].buf);
}

LUMI_INSTANTIATE_TIERS(PlaneCopy);

} // namespace
