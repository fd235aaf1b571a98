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
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

typedef decltype(&lumiFilterBox_8u_C1R) BoxFn;
typedef decltype(&lumiFilterBox_8u_C1IR) BoxIFn;

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

// An allocator that fails its Nth call and hands back whatever the call
// left behind, so the one deliberate leak is counted, then released.
struct Tracker {
    static int fail_at, calls;
    static std::set<void *> live;
    static void *alloc(size_t n)
    {
        if (++calls == fail_at)
            return nullptr;
        void *p = malloc(n);
        live.insert(p);
        return p;
    }
    static void release(void *p)
    {
        live.erase(p);
        free(p);
    }
};
int Tracker::fail_at = 0, Tracker::calls = 0;
std::set<void *> Tracker::live;

// Runs call with each allocation failing in turn; returns, per failure, the
// status and how many blocks were left behind.
template <typename Call>
std::vector<std::pair<LumStatus, int>> each_failure(Call call, int *count)
{
    void *(*m)(size_t) = i_malloc;
    void (*fr)(void *) = i_free;
    i_malloc = Tracker::alloc;
    i_free = Tracker::release;
    Tracker::fail_at = 0, Tracker::calls = 0;
    call();
    *count = Tracker::calls;
    std::vector<std::pair<LumStatus, int>> out;
    for (int k = 1; k <= *count; ++k) {
        Tracker::fail_at = k, Tracker::calls = 0;
        const LumStatus st = call();
        out.push_back({st, (int)Tracker::live.size()});
        for (void *p : Tracker::live)
            free(p);
        Tracker::live.clear();
    }
    i_malloc = m;
    i_free = fr;
    return out;
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
        int count = 0;
        const auto results = each_failure(
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
            &count);
        EXPECT_EQ(count, c.allocs);
        for (size_t k = 0; k < results.size(); ++k) {
            EXPECT_EQ(results[k].first, lumStsMemAllocErr) << "allocation " << k + 1;
            // Only the 3x3 in-place engine keeps its first block when the second fails.
            const bool leak = c.f == kC3IR && c.mw == 3 && c.h > 3 && k == 1;
            EXPECT_EQ(results[k].second, leak ? 1 : 0) << "allocation " << k + 1;
            if (c.f == kC1IR || c.f == kC3IR)
                EXPECT_EQ(sc.fp.buf, before) << "image changed, allocation " << k + 1;
        }
    }
}

LUMI_INSTANTIATE_TIERS(Box);

} // namespace
