// Box filter: each engine's own rounding from a plain window sum, the path
// each form takes, the in-place ring (every height class, the frozen rows),
// the status order, guard bytes and allocation failures.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <map>
#include <set>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/sparse.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

using BoxFn = decltype(&lumiFilterBox_8u_C1R);
using BoxIFn = decltype(&lumiFilterBox_8u_C1IR);

// The roundings of the mean, named by the engine that uses them.
enum Kind { kT33, kI33, kR55, kI55, kR77, kGen1, kGen3, kFloat, kKinds };
const char *kKindName[] = {"3x3", "3x3 in place", "5x5", "5x5 in place", "7x7",
                           "generic C1", "generic C3", "float"};

// Multiplier of the generic engines, step by step from their definition.
void multiplier(int mw, int mh, uint32_t *mul, int *shift)
{
    if (mw + mh == 3) {
        *mul = 4096, *shift = 13;
        return;
    }
    const float r = 1.0f / (float)(mw * mh);
    if (r == 1.0f) {
        *mul = 4096, *shift = 12;
        return;
    }
    uint32_t v = (uint32_t)(int64_t)((double)r * 4294967295.0);
    int k = 0;
    while (k < 24 && !(v >> 31))
        v *= 2, ++k;
    *mul = (v >> 20) + 1, *shift = k + 12;
}

int mean(Kind kind, uint32_t s, int mw, int mh)
{
    uint32_t mul;
    int shift;
    switch (kind) {
    case kT33: return (int)((s * 29128u) >> 18);
    case kI33: return (int)((s * 7282u) >> 16);
    case kR55: return (int)((s * 20971u + 0x40000u) >> 19);
    case kI55: return (int)((s * 2622u) >> 16);
    case kR77: return (int)((s * 10700u + 0x40000u) >> 19);
    case kGen1: multiplier(mw, mh, &mul, &shift); return (int)((s * mul + (1u << (shift - 1))) >> shift);
    case kGen3: multiplier(mw, mh, &mul, &shift); return (int)((s * mul) >> shift);
    default: {
        const float r = 1.0f / (float)(mw * mh);
        float t = (float)s * r;
        t = t + 9.0e-6f;
        return (int)t;
    }
    }
}

enum Form { kC1R, kC3R, kC1IR, kC3IR };

// Which rounding each form and mask must give, from the selection table.
Kind expected_kind(Form f, int mw, int mh, int roiH)
{
    const int n = mw * mh;
    const bool m33 = mw == 3 && mh == 3, m55 = mw == 5 && mh == 5, m77 = mw == 7 && mh == 7;
    switch (f) {
    case kC1R: return n > 8100 ? kFloat : m33 ? kT33 : m77 ? kR77 : m55 ? kR55 : kGen1;
    case kC3R: return n > 8100 ? kFloat : m33 ? kT33 : m55 ? kR55 : kGen3;
    case kC1IR:
        if (mh >= roiH)
            return n < 8101 ? kGen1 : kFloat;
        return n > 8100 ? kFloat : m33 ? kI33 : m55 ? kI55 : kGen1;
    default:
        if (mh >= roiH)
            return n < 8101 ? kGen3 : kFloat;
        return n > 8100 ? kFloat : m33 ? kT33 : kGen3;
    }
}

// The generic in-place engine keeps its column sums still through its first
// rows when the region is exactly anchor.y + 2 rows tall: every row then
// repeats the first.
bool frozen(Form f, int mw, int mh, int ay, int roiH)
{
    const Kind k = expected_kind(f, mw, mh, roiH);
    return (f == kC1IR || f == kC3IR) && mh < roiH && (k == kGen1 || k == kGen3) &&
           roiH == ay + 2;
}

// A footprint with guard bytes around it; pixel (x, y) of the footprint.
struct Scene {
    int w, h, ch, mw, mh;
    LumiPoint a;
    GuardedImage fp;
    Scene(int w_, int h_, int ch_, int mw_, int mh_, LumiPoint a_, uint32_t seed, int levels)
        : w(w_), h(h_), ch(ch_), mw(mw_), mh(mh_), a(a_),
          fp(w_ + mw_ - 1, h_ + mh_ - 1, ch_, 5, (int)(seed % 16))
    {
        uint32_t s = seed * 2654435761u + 3;
        for (int y = 0; y < fp.height; ++y)
            for (int x = 0; x < fp.width * ch; ++x) {
                s = s * 1664525u + 1013904223u;
                fp.row(y)[x] = (uint8_t)((s >> 24) % (uint32_t)levels);
            }
    }
    Lum8u *origin() { return fp.row(a.y) + a.x * ch; } // pSrc / pSrcDst
    uint32_t sum(int x, int y, int c)
    {
        uint32_t s = 0;
        for (int j = 0; j < mh; ++j)
            for (int i = 0; i < mw; ++i)
                s += fp.at(x + i, y + j, c);
        return s;
    }
    // Expected output region, row after row.
    std::vector<uint8_t> expect(Kind k, bool freeze)
    {
        std::vector<uint8_t> out;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < ch; ++c)
                    out.push_back((uint8_t)mean(k, sum(x, freeze ? 0 : y, c), mw, mh));
        return out;
    }
};

// Runs one form on a scene; returns the output region, and checks that
// nothing outside the output region changed.
std::vector<uint8_t> run(Form f, Scene &sc, LumStatus *st)
{
    const LumiSize roi = {sc.w, sc.h}, mask = {sc.mw, sc.mh};
    if (f == kC1R || f == kC3R) {
        GuardedImage dst(sc.w, sc.h, sc.ch, 3, (sc.w * 7) % 16);
        const std::vector<uint8_t> before = sc.fp.buf;
        BoxFn fn = f == kC1R ? lumiFilterBox_8u_C1R : lumiFilterBox_8u_C3R;
        *st = fn(sc.origin(), sc.fp.step, dst.data(), dst.step, roi, mask, sc.a);
        EXPECT_TRUE(dst.guard_intact());
        EXPECT_EQ(sc.fp.buf, before) << "source changed";
        return dst.region();
    }
    // In place: the footprint outside the region must stay as it was.
    std::vector<uint8_t> before = sc.fp.buf;
    BoxIFn fn = f == kC1IR ? lumiFilterBox_8u_C1IR : lumiFilterBox_8u_C3IR;
    *st = fn(sc.origin(), sc.fp.step, roi, mask, sc.a);
    std::vector<uint8_t> out;
    for (int y = 0; y < sc.h; ++y) {
        uint8_t *r = sc.origin() + (size_t)y * sc.fp.step;
        out.insert(out.end(), r, r + sc.w * sc.ch);
        memcpy(r, before.data() + (r - sc.fp.buf.data()), (size_t)sc.w * sc.ch);
    }
    EXPECT_EQ(sc.fp.buf, before) << "in-place call wrote outside its region";
    return out;
}

class Box : public lumitest::TierTest {};

struct MaskCase {
    int mw, mh;
};
const MaskCase kMasks[] = {{1, 1}, {2, 1}, {1, 2}, {3, 3}, {5, 5}, {7, 7}, {4, 3},
                           {3, 5}, {9, 2}, {1, 6}, {6, 1}};

// Every form, engine, anchor corner and in-place height class, on random
// pictures; the data tells every rounding apart from every other one.
TEST_P(Box, EveryEngineKeepsItsRounding)
{
    std::map<Kind, std::set<Kind>> toldApart;
    const int widths[] = {1, 8, 13, 37, 70};
    const int heights[] = {1, 2, 3, 4, 6, 9};
    for (Form f : {kC1R, kC3R, kC1IR, kC3IR})
        for (const MaskCase &m : kMasks)
            for (int w : widths)
                for (int h : heights)
                    for (int corner = 0; corner < 3; ++corner) {
                        const LumiPoint a = corner == 0   ? LumiPoint{0, 0}
                                            : corner == 1 ? LumiPoint{m.mw - 1, m.mh - 1}
                                                          : LumiPoint{m.mw / 2, (h + 1) % m.mh};
                        const int ch = f == kC1R || f == kC1IR ? 1 : 3;
                        Scene sc(w, h, ch, m.mw, m.mh, a, w * 131 + h * 17 + m.mw * 5 + m.mh + corner, 256);
                        const Kind k = expected_kind(f, m.mw, m.mh, h);
                        const bool fz = frozen(f, m.mw, m.mh, a.y, h);
                        const std::vector<uint8_t> want = sc.expect(k, fz);
                        for (int o = 0; o < kKinds; ++o)
                            if (o != k && sc.expect((Kind)o, fz) != want)
                                toldApart[k].insert((Kind)o);
                        LumStatus st;
                        const std::vector<uint8_t> got = run(f, sc, &st);
                        ASSERT_EQ(st, lumStsNoErr);
                        ASSERT_EQ(got, want) << "form " << f << " mask " << m.mw << "x" << m.mh
                                             << " roi " << w << "x" << h << " anchor " << a.x
                                             << "," << a.y << " engine " << kKindName[k];
                    }
    // The pictures were able to catch a wrong engine: each pair of roundings
    // a wrong path could confuse gave different pictures at least once.  (For
    // 9 cells the 3x3 rounding equals the three-channel generic one, and for
    // 49 the 7x7 rounding the one-channel generic one.)
    const std::pair<Kind, Kind> pairs[] = {{kT33, kGen1}, {kI33, kGen1}, {kR55, kI55},
                                           {kR55, kGen1}, {kR55, kGen3}, {kI55, kGen1},
                                           {kR77, kGen3}, {kGen1, kGen3}, {kGen3, kGen1}};
    for (const auto &p : pairs)
        EXPECT_TRUE(toldApart[p.first].count(p.second))
            << kKindName[p.first] << " against " << kKindName[p.second];
}

// Values where two engines part: the in-place and out-of-place 5x5 at S = 13,
// a two-cell mask rounding half up on one channel and down on three.
TEST_P(Box, WorkedValues)
{
    {
        Scene sc(3, 7, 1, 5, 5, {2, 2}, 1, 1);
        for (int i = 0; i < 13; ++i)
            sc.fp.at(i % 5 + 1, i / 5 + 2) = 1;
        LumStatus st;
        const std::vector<uint8_t> oop = run(kC1R, sc, &st);
        const std::vector<uint8_t> inp = run(kC1IR, sc, &st);
        ASSERT_EQ(sc.sum(1, 2, 0), 13u); // the window of output (1, 2)
        EXPECT_EQ(oop[2 * 3 + 1], 1);
        EXPECT_EQ(inp[2 * 3 + 1], 0);
    }
    for (int ch : {1, 3}) {
        Scene sc(2, 2, ch, 2, 1, {0, 0}, 1, 1);
        for (int c = 0; c < ch; ++c)
            sc.fp.at(0, 0, c) = 1, sc.fp.at(1, 0, c) = 2; // S = 3, mean 1.5
        LumStatus st;
        const std::vector<uint8_t> out = run(ch == 1 ? kC1R : kC3R, sc, &st);
        EXPECT_EQ(out[0], ch == 1 ? 2 : 1);
    }
}

// Rows longer than the fixed engines' strips, so that a strip boundary falls
// inside the row.
TEST_P(Box, FixedEnginesAcrossStrips)
{
    for (Form f : {kC1R, kC3R})
        for (int side : {3, 5, 7}) {
            const int ch = f == kC1R ? 1 : 3;
            Scene sc(ch == 1 ? 1100 : 400, 4, ch, side, side, {side / 2, side - 1}, side, 256);
            LumStatus st;
            const std::vector<uint8_t> got = run(f, sc, &st);
            ASSERT_EQ(st, lumStsNoErr);
            EXPECT_EQ(got, sc.expect(expected_kind(f, side, side, 4), false)) << side;
        }
}

// 90 by 90 (8100 cells) stays on integers; 8101 cells and up take floats.
TEST_P(Box, LargeMasksChooseIntegerOrFloat)
{
    const MaskCase masks[] = {{90, 90}, {8101, 1}, {91, 90}, {2, 130}};
    for (const MaskCase &m : masks)
        for (Form f : {kC1R, kC3R, kC1IR, kC3IR}) {
            const int ch = f == kC1R || f == kC1IR ? 1 : 3;
            const bool inPlace = f == kC1IR || f == kC3IR;
            const int h = inPlace ? m.mh + 1 : 2; // in place: the ring, not the whole copy
            Scene sc(2, h, ch, m.mw, m.mh, {m.mw / 3, m.mh / 2}, m.mw + f, 256);
            LumStatus st;
            const std::vector<uint8_t> got = run(f, sc, &st);
            ASSERT_EQ(st, lumStsNoErr);
            const Kind k = expected_kind(f, m.mw, m.mh, h);
            const bool fz = frozen(f, m.mw, m.mh, sc.a.y, h);
            EXPECT_EQ(got, sc.expect(k, fz)) << m.mw << "x" << m.mh << " form " << f;
            if (ch == 1) // the picture tells the float rounding from the integer one
                EXPECT_NE(sc.expect(kFloat, fz), sc.expect(kGen1, fz));
        }
}

// One-channel generic in place, 4x1 mask, anchor row 0, two rows: the
// second row repeats the first; the 16-bit in-place engine does not.
TEST_P(Box, FrozenRowsOfTheGenericInPlaceEngine)
{
    Scene sc(5, 2, 1, 4, 1, {1, 0}, 9, 256);
    LumStatus st;
    const std::vector<uint8_t> out = run(kC1IR, sc, &st);
    ASSERT_EQ(st, lumStsNoErr);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 5),
              std::vector<uint8_t>(out.begin() + 5, out.end()));
    Scene sq(5, 3, 1, 3, 3 - 1, {1, 1}, 9, 256); // 3x2: generic, H = a + 2
    const std::vector<uint8_t> o2 = run(kC1IR, sq, &st);
    EXPECT_EQ(o2, sq.expect(kGen1, true));
    Scene s33(5, 4, 1, 3, 3, {1, 2}, 9, 256); // H = a + 2 on the 16-bit engine
    const std::vector<uint8_t> o3 = run(kC1IR, s33, &st);
    EXPECT_EQ(o3, s33.expect(kI33, false));
    EXPECT_NE(o3, s33.expect(kI33, true));
}

TEST_P(Box, StatusOrder)
{
    std::vector<uint8_t> s(256, 1);
    Lum8u *p = s.data() + 100;
    for (BoxFn fn : {lumiFilterBox_8u_C1R, lumiFilterBox_8u_C3R}) {
        EXPECT_EQ(fn(nullptr, 0, p, 0, {0, 0}, {0, 0}, {-1, -1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(p, 8, nullptr, 8, {1, 1}, {1, 1}, {0, 0}), lumStsNullPtrErr);
        EXPECT_EQ(fn(p, 0, p, 8, {0, 0}, {0, 0}, {-1, -1}), lumStsStepErr);
        EXPECT_EQ(fn(p, 8, p, 0, {1, 1}, {1, 1}, {0, 0}), lumStsStepErr);
        EXPECT_EQ(fn(p, 8, p, 8, {0, 1}, {0, 0}, {-1, -1}), lumStsSizeErr);
        EXPECT_EQ(fn(p, 8, p, 8, {1, 1}, {1, 0}, {-1, -1}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(p, 8, p, 8, {1, 1}, {4, 2}, {4, 0}), lumStsAnchorErr);
        EXPECT_EQ(fn(p, 8, p, 8, {1, 1}, {4, 2}, {0, 2}), lumStsAnchorErr);
        EXPECT_EQ(fn(p, 8, p, 8, {1, 1}, {4, 2}, {0, -1}), lumStsAnchorErr);
    }
    for (BoxIFn fn : {lumiFilterBox_8u_C1IR, lumiFilterBox_8u_C3IR}) {
        EXPECT_EQ(fn(nullptr, 0, {0, 0}, {0, 0}, {-1, -1}), lumStsNullPtrErr);
        EXPECT_EQ(fn(p, 0, {0, 0}, {0, 0}, {-1, -1}), lumStsStepErr);
        EXPECT_EQ(fn(p, 8, {1, 0}, {0, 0}, {-1, -1}), lumStsSizeErr);
        EXPECT_EQ(fn(p, 8, {1, 1}, {0, 1}, {-1, -1}), lumStsMaskSizeErr);
        EXPECT_EQ(fn(p, 8, {1, 1}, {1, 1}, {1, 0}), lumStsAnchorErr);
    }
    EXPECT_EQ(s, std::vector<uint8_t>(256, 1));
}

TEST_P(Box, AllocationFailures)
{
    struct A {
        Form f;
        int mw, mh, h, allocs;
        const char *what;
    };
    const A cases[] = {
        {kC1R, 4, 3, 5, 1, "generic"},      {kC3R, 95, 90, 3, 1, "float"},
        {kC1R, 3, 3, 5, 0, "3x3"},          {kC3R, 5, 5, 5, 0, "5x5"},
        {kC1R, 7, 7, 5, 0, "7x7"},          {kC1IR, 4, 3, 5, 3, "generic in place"},
        {kC3IR, 95, 90, 93, 3, "float in place"}, {kC3IR, 3, 3, 6, 2, "3x3 in place"},
        {kC1IR, 5, 5, 8, 3, "5x5 in place"}, {kC1IR, 3, 3, 3, 2, "whole copy"},
        {kC3IR, 91, 91, 5, 2, "whole copy, float"}};
    for (const A &c : cases) {
        SCOPED_TRACE(c.what);
        const int ch = c.f == kC1R || c.f == kC1IR ? 1 : 3;
        Scene sc(6, c.h, ch, c.mw, c.mh, {c.mw / 2, c.mh / 2}, 4, 256);
        const std::vector<uint8_t> before = sc.fp.buf;
        const int count = lumitest::for_each_alloc_failure(
            [&] {
                sc.fp.buf = before;
                const LumiSize roi = {sc.w, sc.h}, mask = {sc.mw, sc.mh};
                std::vector<uint8_t> dst((size_t)sc.h * 64, 0);
                switch (c.f) {
                case kC1R: return lumiFilterBox_8u_C1R(sc.origin(), sc.fp.step, dst.data(), 64, roi, mask, sc.a);
                case kC3R: return lumiFilterBox_8u_C3R(sc.origin(), sc.fp.step, dst.data(), 64, roi, mask, sc.a);
                case kC1IR: return lumiFilterBox_8u_C1IR(sc.origin(), sc.fp.step, roi, mask, sc.a);
                default: return lumiFilterBox_8u_C3IR(sc.origin(), sc.fp.step, roi, mask, sc.a);
                }
            },
            [&](LumStatus st, int k, int outstanding) {
                EXPECT_EQ(st, lumStsMemAllocErr) << "allocation " << k;
                EXPECT_EQ(outstanding, 0) << "blocks kept, allocation " << k;
                if (c.f == kC1IR || c.f == kC3IR)
                    EXPECT_EQ(sc.fp.buf, before) << "image changed, allocation " << k;
            });
        EXPECT_EQ(count, c.allocs);
    }
}

// Sizes whose counts leave 32 bits, over reserved address space (untouched
// pages read as zero and cost nothing).  A mask of more than 2^31 - 1 cells or
// a footprint row of more than 2^31 - 1 bytes is refused after the ordinary
// checks; working memory beyond a 32-bit byte count fails as an allocation,
// with nothing written and nothing kept.
TEST_P(Box, SizesBeyond32Bits)
{
    const LumiPoint a0 = {0, 0};
    {
        // 65536 x 32769 cells; the footprint is real, so an accepted call
        // would run on zeros and return 0.
        const LumiSize mask = {65536, 32769}, roi = {1, 1};
        lumitest::SparseBlock img((size_t)3 * 65536 * 32770);
        ASSERT_NE(img.data(), nullptr);
        Lum8u out[8] = {7, 7, 7, 7, 7, 7, 7, 7};
        EXPECT_EQ(lumiFilterBox_8u_C1R(img.data(), 65536, out, 8, roi, mask, a0), lumStsMaskSizeErr);
        EXPECT_EQ(lumiFilterBox_8u_C3R(img.data(), 3 * 65536, out, 8, roi, mask, a0), lumStsMaskSizeErr);
        EXPECT_EQ(lumiFilterBox_8u_C1IR(img.data(), 65536, roi, mask, a0), lumStsMaskSizeErr);
        EXPECT_EQ(lumiFilterBox_8u_C3IR(img.data(), 3 * 65536, roi, mask, a0), lumStsMaskSizeErr);
        EXPECT_EQ(out[0], 7);
        // The anchor is still tested first.
        EXPECT_EQ(lumiFilterBox_8u_C1R(img.data(), 65536, out, 8, roi, mask, {-1, 0}), lumStsAnchorErr);
    }
    {
        // Three channels of 715827883 pixels: a row of 2^31 + 1 bytes.
        const LumiSize roi = {715827883, 1}, mask = {1, 1};
        lumitest::SparseBlock src((size_t)3 * roi.width + 64), dst((size_t)3 * roi.width + 64);
        ASSERT_TRUE(src.data() && dst.data());
        EXPECT_EQ(lumiFilterBox_8u_C3R(src.data(), 0x7fffffff, dst.data(), 0x7fffffff, roi, mask, a0),
                  lumStsSizeErr);
        EXPECT_EQ(lumiFilterBox_8u_C3IR(src.data(), 0x7fffffff, roi, mask, a0), lumStsSizeErr);
        // One pixel less per row fits the footprint, with a mask one wider not.
        EXPECT_EQ(lumiFilterBox_8u_C3R(src.data(), 0x7fffffff, dst.data(), 0x7fffffff,
                                       {715827882, 1}, {2, 1}, a0),
                  lumStsSizeErr);
    }
    {
        // Whole copy of a 65536 x 65537 footprint: 2^32 + 65536 bytes.
        const LumiSize roi = {65536, 1}, mask = {1, 65537};
        lumitest::SparseBlock img((size_t)65536 * 65537);
        ASSERT_NE(img.data(), nullptr);
        lumitest::AllocFault count;
        EXPECT_EQ(lumiFilterBox_8u_C1IR(img.data(), 65536, roi, mask, a0), lumStsMemAllocErr);
        EXPECT_EQ(count.outstanding(), 0);
    }
    {
        // Generic column sums of a 2^28 - 2 pixel three-channel footprint:
        // 16 bytes a pixel pass 2^32.
        const LumiSize roi = {(1 << 28) - 3, 1}, mask = {2, 1};
        lumitest::SparseBlock src((size_t)3 << 28), dst((size_t)3 << 28);
        ASSERT_TRUE(src.data() && dst.data());
        lumitest::AllocFault count;
        EXPECT_EQ(lumiFilterBox_8u_C3R(src.data(), 0x7fffffff, dst.data(), 0x7fffffff, roi, mask, a0),
                  lumStsMemAllocErr);
        EXPECT_EQ(count.outstanding(), 0);
    }
    {
        // A ring of 65537 rows of 65536 bytes, in place; the mask's anchor
        // sits on its last row.
        const LumiSize roi = {65536, 65538}, mask = {1, 65537};
        const LumiPoint a = {0, 65536};
        lumitest::SparseBlock img((size_t)65536 * (65538 + 65536));
        ASSERT_NE(img.data(), nullptr);
        lumitest::AllocFault count;
        EXPECT_EQ(lumiFilterBox_8u_C1IR(img.data() + (size_t)65536 * 65536, 65536, roi, mask, a),
                  lumStsMemAllocErr);
        EXPECT_EQ(count.outstanding(), 0);
    }
}

LUMI_INSTANTIATE_TIERS(Box);

} // namespace
