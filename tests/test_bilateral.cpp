// Bilateral filter: the block size formula, the state block Init lays out
// (read through a record of its own and compared cell by cell with the
// table formulas), every arithmetic form against a per-pixel reference,
// which path each window takes, a block reused across calls, statuses in
// their order, a block that ends against an inaccessible page, and guard
// bytes around every destination, on every dispatch index.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/tiers.h"

using lumitest::GuardedImage;

namespace {

// The record Init writes behind byte 0, field by field.
struct Record {
    uint32_t tag;
    int32_t kind;
    int32_t radiusX, radiusY;
    float *value0;
    float *position0;
    int32_t step;
    float *samples;
};

const Record &record_of(const uint8_t *block) { return *(const Record *)(block + block[0]); }

// A block of `size` bytes with 64 guard bytes each side, at a chosen
// distance from an 8-byte boundary.
struct Block {
    std::vector<uint8_t> buf;
    int size, lead;
    Block(int size_, int misalign) : buf((size_t)size_ + 160, 0xA5), size(size_)
    {
        const uintptr_t base = (uintptr_t)buf.data() + 64;
        lead = (int)(((8 - (base & 7)) + misalign) & 7) + 64;
    }
    uint8_t *data() { return buf.data() + lead; }
    bool guard_intact() const
    {
        for (size_t i = 0; i < buf.size(); ++i)
            if ((i < (size_t)lead || i >= (size_t)lead + size) && buf[i] != 0xA5)
                return false;
        return true;
    }
};

// The block's bytes before `end`: record and tables when end is the sample table.
std::vector<uint8_t> bytes_until(const uint8_t *block, const void *end)
{
    return std::vector<uint8_t>(block, (const uint8_t *)end);
}

int buf_size(int kind, LumiSize roi, LumiSize k)
{
    int32_t n = -1;
    EXPECT_EQ(lumiFilterBilateralGetBufSize_8u_C1R(kind, roi, k, &n), lumStsNoErr);
    return n;
}

// The tier's own exponential of one value (the tables are made with it).
float tier_exp(float x)
{
    static const lumitest::TierMembers m = lumitest::all_tier_members()[0];
    float v = x;
    m.lumsExp_32f_I(&v, 1);
    return v;
}

int value_length(float vs2, LumiSize k)
{
    const double b = (double)vs2 * 1.42 * (log((double)k.width * k.height) + 6.3);
    const double r = sqrt(b);
    return r >= 255.0 ? 256 : (int)r + 1;
}

// Every field and cell of an initialised block against the formulas.
void check_tables(const uint8_t *block, int kind, LumiSize k, float vs2, float ps2, int step)
{
    SCOPED_TRACE(testing::Message() << "kernel " << k.width << "x" << k.height << " step " << step
                                    << " sigmas " << vs2 << "," << ps2);
    ASSERT_EQ(block[0], 8 - ((uintptr_t)block & 7));
    const Record &r = record_of(block);
    EXPECT_EQ(r.tag, kind == lumiFilterBilateralGauss ? 0x434D416Cu : 0x434D416Du);
    EXPECT_EQ(r.kind, kind);
    const int rx = ((k.width - 1) >> 1) - ((k.width - 1) >> 1) % step;
    const int ry = ((k.height - 1) >> 1) - ((k.height - 1) >> 1) % step;
    const int m = (rx > ry ? rx : ry) + 1;
    EXPECT_EQ(r.radiusX, rx);
    EXPECT_EQ(r.radiusY, ry);
    EXPECT_EQ(r.step, step);
    // Tables: 16-aligned after the record, one spare cell, then 16-aligned.
    const uintptr_t after = (uintptr_t)(&r + 1);
    const float *values = (const float *)((after + 15) & ~(uintptr_t)15);
    EXPECT_EQ(r.value0, values + 255);
    EXPECT_EQ(r.position0, values + 512 + m - 1);
    EXPECT_EQ((uintptr_t)r.samples, ((uintptr_t)(r.position0 + m) + 15) & ~(uintptr_t)15);

    const int len = value_length(vs2, k);
    for (int d = 0; d < 256; ++d) {
        const float expect = d < len ? tier_exp((float)(d * d) * (-0.5f / vs2)) : 0.0f;
        ASSERT_EQ(r.value0[d], expect) << "value cell " << d;
        ASSERT_EQ(r.value0[-d], expect) << "value cell " << -d;
    }
    for (int d = 0; d < m; ++d) {
        const bool kept = d < len && d % step == 0;
        const float expect = kept ? tier_exp((float)(d * d) * (-0.5f / ps2)) : 0.0f;
        ASSERT_EQ(r.position0[d], expect) << "position cell " << d;
        ASSERT_EQ(r.position0[-d], expect) << "position cell " << -d;
    }
}

// ---------------------------------------------------------------- images --

// A footprint of exactly the window's reach around a w x h region: flat
// patches with edges and noise, so weights of every size occur.
struct Footprint {
    int w, h, rx, ry, fw;
    std::vector<uint8_t> buf;
    Footprint(int w_, int h_, LumiSize k, uint32_t seed)
        : w(w_), h(h_), rx(k.width >> 1), ry(k.height >> 1), fw(w_ + 2 * (k.width >> 1)),
          buf((size_t)(w_ + 2 * (k.width >> 1)) * (h_ + 2 * (k.height >> 1)))
    {
        uint32_t s = seed * 2654435761u + 7;
        for (size_t i = 0; i < buf.size(); ++i) {
            s = s * 1664525u + 1013904223u;
            const int x = (int)(i % fw), y = (int)(i / fw);
            const int base = ((x / 5 + y / 3 + (int)seed) % 3) * 90 + 20;
            buf[i] = (uint8_t)(base + (int)((s >> 24) % 41) - 20);
        }
    }
    const uint8_t *origin() const { return buf.data() + (size_t)ry * fw + rx; }
    int at(int x, int y) const { return origin()[(intptr_t)y * fw + x]; }
};

enum Path { kNarrow, kFixed, kGeneral };

Path expected_path(int width, int qx, int qy, int s)
{
    if (width < 16)
        return kNarrow;
    const int fixed[][2] = {{1, 1}, {2, 1}, {2, 2}, {3, 1}, {4, 1}, {4, 2}};
    for (const auto &f : fixed)
        if (qx == qy && f[0] == qx && f[1] == s)
            return kFixed;
    return kGeneral;
}

// Checks one filter output against the per-pixel reference of its path.
// Float sums follow the sample order; the vector forms' shared division may
// differ from num / den in the last bits, so a quotient within `tol` of a
// half may round either way.  Kind 101's reciprocal is approximate.
void check_output(const Footprint &f, const std::vector<uint8_t> &out, const Record &st,
                  LumiSize k)
{
    const int s = st.step, rx = k.width >> 1, ry = k.height >> 1;
    const int qx = rx - rx % s, qy = ry - ry % s;
    const Path path = expected_path(f.w, qx, qy, s);
    const bool fast = st.tag == 0x434D416Du;
    const int shift = fast ? 4 : 14;
    std::vector<int> tables;
    if (path == kFixed)
        for (int r = s; r <= qx; r += s)
            for (int d = 0; d < 256; ++d) {
                const float scaled = (st.value0[d] * st.position0[r]) * (float)(1 << shift);
                tables.push_back((int)nearbyintf(scaled));
            }
    int bad = 0;
    for (int y = 0; y < f.h; ++y)
        for (int x = 0; x < f.w; ++x) {
            const int c = f.at(x, y), v = out[(size_t)y * f.w + x];
            double q;
            float fnum = 0.0f, fden = 0.0f;
            int64_t inum = (int64_t)c << shift, iden = (int64_t)1 << shift;
            for (int dy = -qy; dy <= qy; dy += s)
                for (int dx = -qx; dx <= qx; dx += s) {
                    const int p = f.at(x + dx, y + dy);
                    const int ring = std::max(std::abs(dx), std::abs(dy));
                    if (path == kFixed) {
                        if (ring == 0)
                            continue;
                        const int t = tables[(size_t)(ring / s - 1) * 256 + std::abs(p - c)];
                        inum += (int64_t)t * p;
                        iden += t;
                    } else {
                        const float w = st.position0[ring] * st.value0[p - c];
                        fden = fden + w;
                        fnum = fnum + (float)p * w;
                    }
                }
            bool ok;
            if (path == kNarrow) {
                ok = v == (int)(fnum / fden + 0.5f);
            } else {
                q = path == kFixed ? (double)inum / (double)iden : (double)fnum / (double)fden;
                const double tol = fast && path == kFixed ? 1e-3 + q * 4e-4 : 1e-3;
                ok = fabs(v - q) <= 0.5 + tol;
            }
            if (!ok && ++bad <= 5)
                ADD_FAILURE() << "pixel " << x << "," << y << ": got " << v << " centre " << c
                              << " path " << path;
        }
    EXPECT_EQ(bad, 0);
}

// Fills the sample table with a marker so a test sees whether a call wrote it.
void mark_samples(const Record &st, int cells)
{
    for (int i = 0; i < cells; ++i)
        st.samples[i] = -7.0f;
}

class Bilateral : public lumitest::TierTest {};

// ------------------------------------------------------------ block size --

TEST_P(Bilateral, BufferSizeFormula)
{
    struct Case {
        LumiSize roi, k;
        int size;
    } cases[] = {
        // 48 + 16 + 2229 + (4 + 1) * 4
        {{1, 1}, {1, 1}, 2313},
        // 1200 + 208 + 2229 + (28 + 5) * 4; the height plays no part
        {{100, 7}, {5, 5}, 3769},
        {{100, 9999}, {5, 5}, 3769},
        // an even largest side rounds down to odd: (24 + 5) * 4
        {{16, 1}, {4, 6}, 192 + 32 + 2229 + 116},
        {{1920, 1080}, {9, 9}, 23040 + 3840 + 2229 + (84 + 9) * 4},
    };
    for (const Case &c : cases)
        for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
            EXPECT_EQ(buf_size(kind, c.roi, c.k), c.size) << c.roi.width << " " << c.k.width;
}

TEST_P(Bilateral, StatusOrder)
{
    int32_t n = 12345;
    const LumiSize ok = {8, 8}, bad = {0, 8};
    auto size = lumiFilterBilateralGetBufSize_8u_C1R;
    EXPECT_EQ(size(7, bad, bad, nullptr), lumStsNullPtrErr);
    EXPECT_EQ(size(7, {8, -1}, bad, &n), lumStsSizeErr);
    EXPECT_EQ(size(7, ok, {3, 0}, &n), lumStsMaskSizeErr);
    EXPECT_EQ(size(7, ok, ok, &n), lumStsBadFilterKindErr);
    // A size that no 32-bit count holds: the region's part, then the kernel's.
    EXPECT_EQ(size(lumiFilterBilateralGauss, {INT32_MAX, 1}, ok, &n), lumStsSizeErr);
    EXPECT_EQ(size(lumiFilterBilateralGauss, ok, {65536, 65536}, &n), lumStsMaskSizeErr);
    EXPECT_EQ(n, 12345);

    Block b(4000, 0);
    auto init = lumiFilterBilateralInit_8u_C1R;
    EXPECT_EQ(init(7, bad, 0.0f, 0.0f, 0, nullptr), lumStsNullPtrErr);
    EXPECT_EQ(init(7, {1, 0}, 0.0f, 0.0f, 0, b.data()), lumStsMaskSizeErr);
    EXPECT_EQ(init(7, ok, 0.0f, 1.0f, 1, b.data()), lumStsBadArgErr);
    EXPECT_EQ(init(7, ok, 1.0f, -1.0f, 1, b.data()), lumStsBadArgErr);
    EXPECT_EQ(init(7, ok, 1.0f, 1.0f, 0, b.data()), lumStsBadArgErr);
    EXPECT_EQ(init(99, ok, 1.0f, 1.0f, 1, b.data()), lumStsBadFilterKindErr);
    EXPECT_TRUE(b.guard_intact());
    for (int i = 0; i < b.size; ++i)
        ASSERT_EQ(b.data()[i], 0xA5) << "a refused Init wrote byte " << i;

    // Too large a window: the tag is written, the tables are not.
    EXPECT_EQ(init(lumiFilterBilateralGaussFast, {515, 3}, 1.0f, 1.0f, 1, b.data()),
              lumStsMaskSizeErr);
    EXPECT_EQ(record_of(b.data()).tag, 0x434D416Du);
    EXPECT_EQ(b.data()[b.data()[0] + 8], 0xA5);
    // A step that cuts the radius down makes the same window acceptable.
    EXPECT_EQ(init(lumiFilterBilateralGaussFast, {515, 3}, 1.0f, 1.0f, 2, b.data()), lumStsMaskSizeErr);
    EXPECT_EQ(init(lumiFilterBilateralGaussFast, {515, 3}, 1.0f, 1.0f, 300, b.data()), lumStsNoErr);

    std::vector<uint8_t> src(64 * 64, 9);
    GuardedImage d(8, 8, 1);
    const uint8_t *s = src.data() + 64 * 20 + 20;
    auto run = lumiFilterBilateral_8u_C1R;
    ASSERT_EQ(init(lumiFilterBilateralGauss, {5, 5}, 100.0f, 4.0f, 1, b.data()), lumStsNoErr);
    EXPECT_EQ(run(nullptr, 0, d.data(), 0, {0, 0}, {0, 0}, b.data()), lumStsNullPtrErr);
    EXPECT_EQ(run(s, 64, d.data(), 64, ok, ok, nullptr), lumStsNullPtrErr);
    EXPECT_EQ(run(s, 0, d.data(), 0, {0, 8}, {0, 0}, b.data()), lumStsSizeErr);
    EXPECT_EQ(run(s, 0, d.data(), 64, ok, {0, 0}, b.data()), lumStsStepErr);
    EXPECT_EQ(run(s, 64, d.data(), -1, ok, {0, 0}, b.data()), lumStsStepErr);
    EXPECT_EQ(run(s, 64, d.data(), 64, ok, {5, 0}, b.data()), lumStsMaskSizeErr);
    // A kernel larger than Init's, either way; even sizes round up here.
    EXPECT_EQ(run(s, 64, d.data(), 64, ok, {7, 5}, b.data()), lumStsMaskSizeErr);
    EXPECT_EQ(run(s, 64, d.data(), 64, ok, {5, 6}, b.data()), lumStsMaskSizeErr);
    EXPECT_EQ(run(s, 64, d.data(), d.step, ok, {4, 5}, b.data()), lumStsNoErr);
    EXPECT_TRUE(d.guard_intact());
}

// A block that Init did not make, or that was moved or damaged after it, is
// refused before any of its pointers is followed.
TEST_P(Bilateral, ForeignBlocksAreRefused)
{
    std::vector<uint8_t> src(40 * 40, 9);
    const uint8_t *s = src.data() + 40 * 10 + 10;
    GuardedImage d(16, 4, 1);
    auto run = [&](uint8_t *block) {
        return lumiFilterBilateral_8u_C1R(s, 40, d.data(), d.step, {16, 4}, {3, 3}, block);
    };
    Block b(4000, 3);
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr); // byte 0 of 0xA5
    b.data()[0] = 0;
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr);
    ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, {3, 3}, 50.0f, 2.0f, 1,
                                             b.data()),
              lumStsNoErr);
    ASSERT_EQ(run(b.data()), lumStsNoErr);
    const std::vector<uint8_t> good(b.data(), b.data() + b.size);
    Record &r = *(Record *)(b.data() + b.data()[0]);
    r.tag ^= 1u << 8;
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr);
    r.tag = 0x434D416D; // the other kind's tag is accepted
    EXPECT_EQ(run(b.data()), lumStsNoErr);
    r.step = 0;
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr);
    memcpy(b.data(), good.data(), good.size());
    r.radiusX = 300;
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr);
    memcpy(b.data(), good.data(), good.size());
    r.samples += 4;
    EXPECT_EQ(run(b.data()), lumStsContextMatchErr);
    // Moved by 8 bytes: byte 0 still fits the new address, the pointers do not.
    Block moved(4000, 3);
    memcpy(moved.data() + 8, good.data(), good.size());
    EXPECT_EQ(run(moved.data() + 8), lumStsContextMatchErr);
    EXPECT_TRUE(d.guard_intact());
}

// ------------------------------------------------------------------ Init --

TEST_P(Bilateral, InitTablesMatchTheFormulas)
{
    struct Case {
        LumiSize k;
        float vs2, ps2;
        int step;
    } cases[] = {
        {{1, 1}, 400.0f, 1.0f, 1},     {{3, 3}, 400.0f, 2.0f, 1},   {{5, 5}, 900.0f, 9.0f, 2},
        {{9, 9}, 2500.0f, 16.0f, 1},   {{4, 6}, 30.0f, 3.0f, 1},    {{15, 3}, 10000.0f, 50.0f, 3},
        // a small value sigma: L below M cuts the position weights off
        {{41, 41}, 2.0f, 1000.0f, 1},  {{21, 21}, 0.5f, 200.0f, 4},
        // the largest window, and huge sigmas that limit L to 256
        {{511, 511}, 1e30f, 1e30f, 1}, {{17, 9}, 1e6f, 0.01f, 5},
    };
    int misalign = 0;
    for (const Case &c : cases)
        for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast}) {
            Block b(buf_size(kind, {1, 1}, c.k), misalign++);
            ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(kind, c.k, c.vs2, c.ps2, c.step, b.data()),
                      lumStsNoErr);
            check_tables(b.data(), kind, c.k, c.vs2, c.ps2, c.step);
            EXPECT_TRUE(b.guard_intact());
        }
}

// Steps 1 to 8 and larger on windows up to 31 wide: only multiples of the
// step keep a position weight, and clearing the cells between them never
// passes the last cell (with a large step it would leave the block).
TEST_P(Bilateral, StepsClearOnlyInsideTheTable)
{
    for (int side : {3, 5, 9, 14, 31})
        for (int step : {1, 2, 3, 4, 5, 6, 7, 8, 11, 100, 5000}) {
            const LumiSize k = {side, side};
            Block b(buf_size(lumiFilterBilateralGauss, {1, 1}, k), step & 7);
            ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, k, 300.0f, 20.0f,
                                                     step, b.data()),
                      lumStsNoErr);
            check_tables(b.data(), lumiFilterBilateralGauss, k, 300.0f, 20.0f, step);
            EXPECT_TRUE(b.guard_intact());
        }
}

// The block placed so that its last byte is the last of a page whose next
// page cannot be touched: Init with steps far beyond the window, then the
// filter, which writes the sample table at the block's end.
TEST_P(Bilateral, BlockEndsAgainstAnInaccessiblePage)
{
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    const size_t span = 8 * page;
    uint8_t *map = (uint8_t *)mmap(nullptr, span + page, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(map + span, page, PROT_NONE), 0);
    for (int side : {3, 4, 5, 9, 13})
        for (int step : {1, 2, 3, 7, 1000}) {
            const LumiSize k = {side, side}, roi = {1, 1};
            const int size = buf_size(lumiFilterBilateralGauss, roi, k);
            uint8_t *block = map + span - size;
            ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, k, 300.0f, 20.0f,
                                                     step, block),
                      lumStsNoErr);
            check_tables(block, lumiFilterBilateralGauss, k, 300.0f, 20.0f, step);
            // An even side rounds up in the filter: one less reaches Init's radius.
            const LumiSize fk = {side - 1 + (side & 1), side - 1 + (side & 1)};
            Footprint f(1, 1, fk, (uint32_t)side);
            uint8_t out = 0;
            ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, &out, 1, roi, fk, block),
                      lumStsNoErr);
        }
    munmap(map, span + page);
}

// ---------------------------------------------------------------- filter --

struct Window {
    LumiSize k;
    int step;
};

// Runs one window over regions narrower and wider than a block, on both
// kinds, against the reference; the sample table shows the path taken.
// Even sides round down in Init and up in the filter, so Init gets the
// next odd side.
void check_window(int kind, const Window &wnd, float vs2, float ps2, uint32_t seed)
{
    const LumiSize k = wnd.k, ik = {k.width | 1, k.height | 1};
    for (int w : {1, 7, 15, 16, 17, 31, 37})
        for (int h : {1, 3}) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " kernel " << k.width << "x"
                                            << k.height << " step " << wnd.step << " roi " << w
                                            << "x" << h);
            Block b(buf_size(kind, {w, h}, ik), (int)(seed % 8));
            ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(kind, ik, vs2, ps2, wnd.step, b.data()),
                      lumStsNoErr);
            const Record &st = record_of(b.data());
            const int qx = (k.width >> 1) - (k.width >> 1) % wnd.step;
            const int qy = (k.height >> 1) - (k.height >> 1) % wnd.step;
            const int cells = (2 * qx / wnd.step + 1) * (2 * qy / wnd.step + 1);
            mark_samples(st, cells);
            const std::vector<uint8_t> tables = bytes_until(b.data(), st.samples);
            Footprint f(w, h, k, seed++);
            GuardedImage d(w, h, 1, 5, (int)(seed % 16));
            ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, d.data(), d.step, {w, h}, k,
                                                 b.data()),
                      lumStsNoErr);
            check_output(f, d.region(), st, k);
            EXPECT_TRUE(d.guard_intact());
            EXPECT_TRUE(b.guard_intact());
            // The tables stay; the sample table is written by the float paths only.
            EXPECT_EQ(bytes_until(b.data(), st.samples), tables);
            const bool fixed = expected_path(w, qx, qy, wnd.step) == kFixed;
            EXPECT_EQ(st.samples[0] == -7.0f, fixed);
        }
}

// The six fixed windows, reached directly and through larger kernels cut
// down by the step (7x7 at step 2 is the 5x5 one), and even sizes, which
// round up in the filter.
TEST_P(Bilateral, FixedWindows)
{
    const Window windows[] = {{{3, 3}, 1}, {{5, 5}, 1}, {{5, 5}, 2}, {{7, 7}, 1}, {{9, 9}, 1},
                              {{9, 9}, 2}, {{7, 7}, 2}, {{2, 2}, 1}, {{4, 4}, 1}, {{8, 8}, 2}};
    uint32_t seed = 1;
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (const Window &wnd : windows) {
            check_window(kind, wnd, 900.0f, 4.0f, seed++);
            check_window(kind, wnd, 20.0f, 1.0f, seed++);
        }
}

// Windows outside the fixed table: a 1x1 kernel, rectangles (of either
// kind), the same radius at another step, larger squares, steps 3 to 8.
TEST_P(Bilateral, GeneralWindows)
{
    const Window windows[] = {{{1, 1}, 1},   {{5, 3}, 1},  {{3, 7}, 1},   {{7, 7}, 3},
                              {{11, 11}, 1}, {{9, 9}, 4},  {{13, 5}, 2},  {{17, 17}, 5},
                              {{15, 15}, 6}, {{15, 15}, 7}, {{17, 17}, 8}, {{1, 9}, 2}};
    uint32_t seed = 100;
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (const Window &wnd : windows)
            check_window(kind, wnd, 400.0f, 8.0f, seed++);
}

// A small value sigma makes the value table short (L below the radius), so
// far samples and large differences weigh 0; the centre keeps the sums up.
TEST_P(Bilateral, ShortValueTable)
{
    uint32_t seed = 200;
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (const Window &wnd : {Window{{9, 9}, 1}, Window{{5, 5}, 1}, Window{{13, 13}, 1}})
            check_window(kind, wnd, 0.3f, 500.0f, seed++);
}

// ------------------------------------------------- fixed windows, exactly --

// Footprints of a chosen content, copied into pages so that the first byte
// follows, or the last byte precedes, a page that cannot be touched: a read
// outside the window's reach faults.
enum Content { kPatches, kRandom, kAlternating, kFlat };

struct PagedFootprint {
    Footprint f;
    uint8_t *map = nullptr, *data = nullptr;
    size_t span = 0, page = 0;
    PagedFootprint(int w, int h, LumiSize k, uint32_t seed, Content content, bool atEnd)
        : f(w, h, k, seed)
    {
        uint32_t s = seed;
        for (size_t i = 0; i < f.buf.size(); ++i) {
            const int x = (int)(i % f.fw), y = (int)(i / f.fw);
            s = s * 1664525u + 1013904223u;
            if (content == kRandom)
                f.buf[i] = (uint8_t)(s >> 24);
            else if (content == kAlternating)
                f.buf[i] = ((x + y) & 1) ? 255 : 0;
            else if (content == kFlat)
                f.buf[i] = (seed & 1) ? 255 : (uint8_t)seed;
        }
        page = (size_t)sysconf(_SC_PAGESIZE);
        span = (f.buf.size() + page - 1) / page * page;
        map = (uint8_t *)mmap(nullptr, span + 2 * page, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map == MAP_FAILED) {
            map = nullptr;
            return;
        }
        mprotect(map, page, PROT_NONE);
        mprotect(map + page + span, page, PROT_NONE);
        data = atEnd ? map + page + span - f.buf.size() : map + page;
        memcpy(data, f.buf.data(), f.buf.size());
    }
    ~PagedFootprint()
    {
        if (map)
            munmap(map, span + 2 * page);
    }
    const uint8_t *origin() const { return data + (f.origin() - f.buf.data()); }
};

// num / den of a fixed window at (x, y), as exact integers, from the ring
// tables round(V[d] * P[r] * 2^shift).
void fixed_sums(const Footprint &f, const Record &st, int q, int x, int y, int64_t *num,
                int64_t *den)
{
    const int s = st.step, shift = st.tag == 0x434D416Du ? 4 : 14;
    const int c = f.at(x, y);
    *num = (int64_t)c << shift;
    *den = (int64_t)1 << shift;
    for (int dy = -q; dy <= q; dy += s)
        for (int dx = -q; dx <= q; dx += s) {
            const int ring = std::max(std::abs(dx), std::abs(dy));
            if (ring == 0)
                continue;
            const int p = f.at(x + dx, y + dy);
            const float scaled = (st.value0[std::abs(p - c)] * st.position0[ring]) *
                                 (float)(1 << shift);
            const int t = (int)nearbyintf(scaled);
            *num += (int64_t)t * p;
            *den += t;
        }
}

// Kind 101 divides by the processor's approximate reciprocal, one lane per
// pixel, so its pixels are known exactly; kind 100 shares one division among
// 16 pixels, so its quotient may differ from num / den in the last bits and
// only a quotient near a half may go either way.
void check_fixed_exactly(const Footprint &f, const std::vector<uint8_t> &out, const Record &st,
                         int q)
{
    const bool fast = st.tag == 0x434D416Du;
    int bad = 0;
    for (int y = 0; y < f.h; ++y)
        for (int x = 0; x < f.w; ++x) {
            int64_t num, den;
            fixed_sums(f, st, q, x, y, &num, &den);
            const int v = out[(size_t)y * f.w + x];
            bool ok;
            if (fast) {
                const float r = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss((float)den)));
                const int e = (int)nearbyintf((float)num * r);
                ok = v == std::min(255, std::max(0, e));
            } else {
                const double qd = (double)num / (double)den;
                ok = v == (int)nearbyint(qd) ||
                     (fabs(qd - floor(qd) - 0.5) < 1e-4 && fabs(v - qd) < 0.6);
            }
            if (!ok && ++bad <= 5)
                ADD_FAILURE() << "pixel " << x << "," << y << ": got " << v << " num " << num
                              << " den " << den;
        }
    EXPECT_EQ(bad, 0);
}

// The six fixed windows on both kinds over regions from one block wide to
// thousands of pixels (so rows are cut into several strips, and the last
// block of a row moves back), heights past every ring of weight rows, images
// that are flat (255 with the largest weights fills 16-bit partial sums the
// most), alternate 0 and 255, or are noise, value sigmas whose table ends in
// the first 16 cells, near cell 127 or 128, or runs to 255, and footprints
// that start or end on an inaccessible page.
TEST_P(Bilateral, FixedWindowsExactlyAcrossStripsAndRows)
{
    const struct {
        int side, step;
    } windows[] = {{3, 1}, {5, 1}, {5, 2}, {7, 1}, {9, 1}, {9, 2}};
    const struct {
        int w, h;
    } regions[] = {{16, 9}, {17, 1}, {33, 6}, {130, 7}, {161, 11}, {307, 3}, {800, 4}, {2950, 2}};
    const float sigmas[] = {900.0f, 2.0f, 1180.0f, 1200.0f, 1215.0f, 60000.0f};
    uint32_t seed = 500;
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (const auto &wnd : windows)
            for (const auto &roi : regions)
                for (float vs2 : sigmas)
                    for (Content content : {kPatches, kRandom, kAlternating, kFlat}) {
                        const float ps2 = seed % 3 == 0 ? 1e6f : 9.0f;
                        const bool atEnd = (seed & 1) != 0;
                        SCOPED_TRACE(testing::Message()
                                     << "kind " << kind << " window " << wnd.side << " step "
                                     << wnd.step << " roi " << roi.w << "x" << roi.h
                                     << " content " << content << " sigma2 " << vs2 << ","
                                     << ps2);
                        const LumiSize k = {wnd.side, wnd.side}, roiSize = {roi.w, roi.h};
                        PagedFootprint pf(roi.w, roi.h, k, seed++, content, atEnd);
                        ASSERT_NE(pf.data, nullptr);
                        Block b(buf_size(kind, roiSize, k), (int)(seed % 8));
                        ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(kind, k, vs2, ps2, wnd.step,
                                                                 b.data()),
                                  lumStsNoErr);
                        GuardedImage d(roi.w, roi.h, 1, 5, (int)(seed % 16));
                        ASSERT_EQ(lumiFilterBilateral_8u_C1R(pf.origin(), pf.f.fw, d.data(),
                                                             d.step, roiSize, k, b.data()),
                                  lumStsNoErr);
                        const int q = (wnd.side >> 1) - (wnd.side >> 1) % wnd.step;
                        check_fixed_exactly(pf.f, d.region(), record_of(b.data()), q);
                        EXPECT_TRUE(d.guard_intact());
                    }
}

// Kind 100 adds the entries of two pairs in one 16-bit lane when every
// entry is below 2^14 and keeps them apart otherwise.  Position sigmas
// (scaled by the step, whose first ring is the largest) put the largest
// entry just below the limit (a flat image then fills every lane to
// 2 * 16383) and on it (a lane of 2 * 16384 would turn negative); value
// tables that the shuffles read and ones that run past entry 127.
TEST_P(Bilateral, DenominatorLanesAtTheLargestEntries)
{
    const struct {
        int side, step;
    } windows[] = {{3, 1}, {5, 1}, {5, 2}, {7, 1}, {9, 1}, {9, 2}};
    const struct {
        float ps2;
        int largest;
    } limits[] = {{8192.0f, 16383}, {1e6f, 16384}};
    uint32_t seed = 900;
    for (const auto &wnd : windows)
        for (const auto &lim : limits)
            for (float vs2 : {900.0f, 60000.0f})
                for (Content content : {kFlat, kAlternating, kRandom}) {
                    SCOPED_TRACE(testing::Message() << "window " << wnd.side << " step "
                                                    << wnd.step << " sigma2 " << vs2 << ","
                                                    << lim.ps2 << " content " << content);
                    const LumiSize k = {wnd.side, wnd.side}, roiSize = {45, 7};
                    PagedFootprint pf(roiSize.width, roiSize.height, k, seed++, content,
                                      (seed & 1) != 0);
                    ASSERT_NE(pf.data, nullptr);
                    Block b(buf_size(lumiFilterBilateralGauss, roiSize, k), 3);
                    const float ps2 = lim.ps2 * (float)(wnd.step * wnd.step);
                    ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, k, vs2, ps2,
                                                             wnd.step, b.data()),
                              lumStsNoErr);
                    const Record &st = record_of(b.data());
                    const int q = (wnd.side >> 1) - (wnd.side >> 1) % wnd.step;
                    int largest = 0;
                    for (int r = wnd.step; r <= q; r += wnd.step)
                        for (int d = 0; d < 256; ++d)
                            largest = std::max(largest, (int)nearbyintf((st.value0[d] *
                                                                         st.position0[r]) *
                                                                        16384.0f));
                    ASSERT_EQ(largest, lim.largest);
                    GuardedImage d(roiSize.width, roiSize.height, 1, 3, (int)(seed % 16));
                    ASSERT_EQ(lumiFilterBilateral_8u_C1R(pf.origin(), pf.f.fw, d.data(), d.step,
                                                         roiSize, k, b.data()),
                              lumStsNoErr);
                    check_fixed_exactly(pf.f, d.region(), st, q);
                    EXPECT_TRUE(d.guard_intact());
                }
}

// One block serves calls with smaller kernels, other sizes and both paths;
// only the sample table changes between them.
TEST_P(Bilateral, BlockReusedAcrossCallsAndSizes)
{
    const LumiSize big = {9, 9};
    Block b(buf_size(lumiFilterBilateralGauss, {64, 1}, big), 5);
    ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, big, 600.0f, 6.0f, 1,
                                             b.data()),
              lumStsNoErr);
    const Record &st = record_of(b.data());
    const std::vector<uint8_t> tables = bytes_until(b.data(), st.samples);
    const struct {
        LumiSize k;
        int w, h;
    } calls[] = {{{9, 9}, 64, 4}, {{3, 3}, 20, 2}, {{5, 5}, 16, 3}, {{7, 3}, 33, 2},
                 {{9, 9}, 10, 3}, {{1, 1}, 40, 1}, {{8, 8}, 18, 2}, {{9, 9}, 64, 4}};
    uint32_t seed = 300;
    for (const auto &c : calls) {
        SCOPED_TRACE(testing::Message() << c.k.width << "x" << c.k.height << " roi " << c.w);
        Footprint f(c.w, c.h, c.k, seed++);
        GuardedImage d(c.w, c.h, 1);
        ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, d.data(), d.step, {c.w, c.h}, c.k,
                                             b.data()),
                  lumStsNoErr);
        check_output(f, d.region(), st, c.k);
        EXPECT_TRUE(d.guard_intact());
        EXPECT_EQ(bytes_until(b.data(), st.samples), tables);
    }
    EXPECT_TRUE(b.guard_intact());
}

// The filter takes no memory, so nothing can fail to be allocated; it runs
// in round-to-nearest whatever the caller's mode and gives the mode back.
TEST_P(Bilateral, NoAllocationAndCallersRoundingKept)
{
    const LumiSize k = {5, 5};
    Block b(buf_size(lumiFilterBilateralGauss, {40, 6}, k), 0);
    Footprint f(40, 6, k, 9);
    GuardedImage plain(40, 6, 1), down(40, 6, 1);
    {
        lumitest::AllocFault counting;
        ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, k, 500.0f, 3.0f, 1,
                                                 b.data()),
                  lumStsNoErr);
        for (LumiSize kk : {LumiSize{5, 5}, LumiSize{5, 3}})
            ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, plain.data(), plain.step,
                                                 {40, 6}, kk, b.data()),
                      lumStsNoErr);
        EXPECT_EQ(counting.allocations(), 0);
    }
    const unsigned csr = _mm_getcsr();
    _mm_setcsr((csr & ~0x6000u) | 0x2000u); // round down
    const unsigned set = _mm_getcsr();
    const std::vector<uint8_t> tables(b.data(), b.data() + b.size);
    ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(lumiFilterBilateralGauss, k, 500.0f, 3.0f, 1,
                                             b.data()),
              lumStsNoErr);
    const unsigned afterInit = _mm_getcsr();
    ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, down.data(), down.step, {40, 6},
                                         {5, 3}, b.data()),
              lumStsNoErr);
    const unsigned afterFilter = _mm_getcsr();
    _mm_setcsr(csr);
    EXPECT_EQ(afterInit & 0xffc0u, set & 0xffc0u); // control bits; the exponential clears flags
    EXPECT_EQ(afterFilter & 0xffc0u, set & 0xffc0u);
    EXPECT_EQ(std::vector<uint8_t>(b.data(), b.data() + b.size), tables);
    EXPECT_EQ(down.region(), plain.region());
}

LUMI_INSTANTIATE_TIERS(Bilateral);

// Every dispatch index gives the same pixels on one processor, the
// approximate reciprocal of kind 101 included.
TEST(BilateralTiers, AllIndicesAgree)
{
    const Window windows[] = {{{5, 5}, 1}, {{9, 9}, 2}, {{7, 5}, 1}, {{3, 3}, 1}};
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (const Window &wnd : windows)
            for (int w : {9, 45}) {
                Footprint f(w, 5, wnd.k, 17);
                std::vector<uint8_t> first;
                for (int index : lumitest::tier_indices()) {
                    lumitest::force_index(index);
                    Block b(buf_size(kind, {w, 5}, wnd.k), 1);
                    ASSERT_EQ(lumiFilterBilateralInit_8u_C1R(kind, wnd.k, 700.0f, 5.0f, wnd.step,
                                                             b.data()),
                              lumStsNoErr);
                    std::vector<uint8_t> out((size_t)w * 5);
                    ASSERT_EQ(lumiFilterBilateral_8u_C1R(f.origin(), f.fw, out.data(), w, {w, 5},
                                                         wnd.k, b.data()),
                              lumStsNoErr);
                    if (first.empty())
                        first = out;
                    EXPECT_EQ(out, first) << "index " << index << " kind " << kind;
                }
                lumStaticInit();
            }
}

} // namespace
