// Signal kernels: tier members that the image families call.
#include <gtest/gtest.h>

#include <immintrin.h>
#include <math.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "lumi.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/cache_cpus.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

using lumitest::SimulatedCpu;
using lumitest::TierMembers;
using lumitest::UseCpu;
using lumitest::small_cache_cpu;

namespace {

uint32_t bits_of(float f)
{
    uint32_t b;
    memcpy(&b, &f, 4);
    return b;
}

float float_of(uint32_t b)
{
    float f;
    memcpy(&f, &b, 4);
    return f;
}

// A run of bytes with guard bytes around it, at any offset from a 16-byte
// boundary.
struct Guarded : lumitest::GuardedImage {
    Guarded(size_t n, size_t offset) : GuardedImage((int)n, 1, 1, 0, (int)offset) {}
    float *floats() { return (float *)data(); }
};

class Fills : public ::testing::TestWithParam<TierMembers> {};

TEST_P(Fills, EveryLengthAndOffsetWithinItsBytes)
{
    const TierMembers &m = GetParam();
    const float value = float_of(0x7fa00123u); // a signalling NaN keeps its bits
    for (int len = 1; len <= 90; ++len)
        for (size_t off : {0, 4, 8, 12, 28, 1, 3}) {
            Guarded set(4 * len, off), zero32(4 * len, off), zero8(len, off), copy(4 * len, off);
            ASSERT_EQ(m.lumsSet_32f(value, set.floats(), len), lumStsNoErr);
            ASSERT_EQ(m.lumsZero_32f(zero32.floats(), len), lumStsNoErr);
            ASSERT_EQ(m.lumsZero_8u(zero8.data(), len), lumStsNoErr);
            std::vector<float> src(len);
            for (int i = 0; i < len; ++i)
                src[i] = (float)i * 1.25f - 7.0f;
            ASSERT_EQ(m.lumsCopy_32f(src.data(), copy.floats(), len), lumStsNoErr);
            for (int i = 0; i < len; ++i) {
                uint32_t b;
                memcpy(&b, set.data() + 4 * i, 4);
                ASSERT_EQ(b, 0x7fa00123u) << m.name << " len=" << len << " off=" << off;
                memcpy(&b, zero32.data() + 4 * i, 4);
                ASSERT_EQ(b, 0u);
                ASSERT_EQ(zero8.data()[i], 0);
            }
            ASSERT_EQ(memcmp(copy.data(), src.data(), 4 * len), 0);
            ASSERT_TRUE(set.guard_intact() && zero32.guard_intact() && zero8.guard_intact() &&
                        copy.guard_intact())
                << m.name << " len=" << len << " off=" << off;
        }
}

TEST_P(Fills, StatusesInTheirOrder)
{
    const TierMembers &m = GetParam();
    float v[4] = {1, 2, 3, 4};
    float w[4] = {5, 6, 7, 8};
    EXPECT_EQ(m.lumsSet_32f(1.0f, nullptr, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsSet_32f(1.0f, v, 0), lumStsSizeErr);
    EXPECT_EQ(m.lumsSet_32f(1.0f, v, -4), lumStsSizeErr);
    EXPECT_EQ(m.lumsZero_32f(nullptr, -1), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsZero_32f(v, 0), lumStsSizeErr);
    EXPECT_EQ(m.lumsZero_8u(nullptr, 1), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsZero_8u((Lum8u *)v, 0), lumStsSizeErr);
    EXPECT_EQ(m.lumsCopy_32f(nullptr, w, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsCopy_32f(v, nullptr, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsCopy_32f(v, w, 0), lumStsSizeErr);
    EXPECT_EQ(v[0] + v[1] + v[2] + v[3], 10.0f);
    EXPECT_EQ(w[0] + w[1] + w[2] + w[3], 26.0f);
}

// Each fill and copy asks for the cache size only from its tier's
// threshold on, and the long forms still write exactly their bytes.
TEST_P(Fills, CacheLookupStartsAtTheTierThreshold)
{
    const TierMembers &m = GetParam();
    const bool e9 = strcmp(m.name, "e9") == 0;
    const bool m7 = strcmp(m.name, "m7") == 0;
    const bool n8 = strcmp(m.name, "n8") == 0;
    // Lengths in elements (floats for set and copy, bytes for zero).
    struct Case { int kind; int below, at; };
    const Case cases[] = {
        {0, e9 ? 0x80000 : 0x40000, e9 ? 0x80001 : 0x40001},                // set
        {1, e9 ? 0x200000 : 0x80000, e9 ? 0x200001 : 0x80001},             // zero (bytes)
        {2, m7 ? 0x1ffff : n8 ? 0x8000 : 0x3ffff, m7 ? 0x20000 : n8 ? 0x8001 : 0x40000}, // copy
    };
    SimulatedCpu cpu = small_cache_cpu();
    UseCpu use(cpu);
    for (const Case &c : cases)
        for (int len : {c.below, c.at}) {
            const size_t bytes = c.kind == 1 ? (size_t)len : 4 * (size_t)len;
            Guarded dst(bytes, 0);
            std::vector<float> src(c.kind == 2 ? len : 1, 3.5f);
            lumitest::reset_processor_state();
            const int reads = cpu.reads;
            LumStatus st = c.kind == 0   ? m.lumsSet_32f(-2.5f, dst.floats(), len)
                           : c.kind == 1 ? m.lumsZero_8u(dst.data(), len)
                                         : m.lumsCopy_32f(src.data(), dst.floats(), len);
            ASSERT_EQ(st, lumStsNoErr);
            EXPECT_EQ(cpu.reads > reads, len == c.at) << m.name << " kind=" << c.kind;
            const float want = c.kind == 0 ? -2.5f : 3.5f;
            for (size_t i = 0; i < bytes / 4; ++i)
                if (c.kind == 1)
                    ASSERT_EQ(*(uint32_t *)(dst.data() + 4 * i), 0u);
                else
                    ASSERT_EQ(dst.floats()[i], want) << m.name << " kind=" << c.kind;
            EXPECT_TRUE(dst.guard_intact());
        }
}

LUMI_INSTANTIATE_TIER_MEMBERS(Fills);

// ------------------------------------------------------------ arithmetic

class Kernels : public ::testing::TestWithParam<TierMembers> {};

// Leaves the thread's control word as it found it, flags included.
struct CsrGuard {
    unsigned saved = _mm_getcsr();
    ~CsrGuard() { _mm_setcsr(saved); }
};

const unsigned kCsrControl = 0xffc0; // everything but the six flags

TEST_P(Kernels, MulCProductsAndShortcuts)
{
    const TierMembers &m = GetParam();
    const float inf = INFINITY, nan = float_of(0x7fc01234u);
    std::vector<float> base(40);
    for (int i = 0; i < 40; ++i)
        base[i] = (float)(i * 37 % 23) * 0.37f - 3.1f;
    base[3] = inf;
    base[7] = nan;
    base[11] = 1e-40f; // subnormal
    for (float val : {0.3f, -7.25f, 3.0e38f}) // the last overflows some products
        for (int len : {1, 7, 10, 11, 16, 17, 40})
            for (int off : {0, 1, 3}) {
                std::vector<float> src(base.begin(), base.begin() + len);
                std::vector<float> out(len + 8, 99.0f), inplace(src);
                std::vector<float> srcOff(len + 4);
                memcpy(srcOff.data() + off, src.data(), 4 * len);
                ASSERT_EQ(m.lumsMulC_32f(srcOff.data() + off, val, out.data() + (3 - off), len), lumStsNoErr);
                ASSERT_EQ(m.lumsMulC_32f_I(val, inplace.data(), len), lumStsNoErr);
                for (int i = 0; i < len; ++i) {
                    const float want = src[i] * val;
                    ASSERT_EQ(bits_of(out[3 - off + i]), bits_of(want)) << m.name << " i=" << i;
                    ASSERT_EQ(bits_of(inplace[i]), bits_of(want));
                }
                EXPECT_EQ(out[len + 3 - off], 99.0f);
            }
    // 0 times infinity or NaN gives +0 by the shortcut; 1 copies every bit.
    for (float zero : {0.0f, -0.0f}) {
        std::vector<float> out(40, 5.0f), inplace(base);
        ASSERT_EQ(m.lumsMulC_32f(base.data(), zero, out.data(), 40), lumStsNoErr);
        ASSERT_EQ(m.lumsMulC_32f_I(zero, inplace.data(), 40), lumStsNoErr);
        for (int i = 0; i < 40; ++i)
            ASSERT_TRUE(bits_of(out[i]) == 0 && bits_of(inplace[i]) == 0) << i;
    }
    std::vector<float> out(40), inplace(base);
    ASSERT_EQ(m.lumsMulC_32f(base.data(), 1.0f, out.data(), 40), lumStsNoErr);
    ASSERT_EQ(m.lumsMulC_32f_I(1.0f, inplace.data(), 40), lumStsNoErr);
    EXPECT_EQ(memcmp(out.data(), base.data(), 160), 0);
    EXPECT_EQ(memcmp(inplace.data(), base.data(), 160), 0);
    // Checks come before the shortcuts.
    EXPECT_EQ(m.lumsMulC_32f(nullptr, 1.0f, out.data(), 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsMulC_32f(base.data(), 0.0f, nullptr, 3), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsMulC_32f(base.data(), 1.0f, out.data(), 0), lumStsSizeErr);
    EXPECT_EQ(m.lumsMulC_32f_I(1.0f, nullptr, 3), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsMulC_32f_I(1.0f, out.data(), -1), lumStsSizeErr);
}

// The exponential, step by step as its formula is written, one lane at a
// time with the scalar forms of the same instructions.
float exp_reference(float x)
{
    uint32_t xb = bits_of(x);
    if ((int32_t)xb > (int32_t)bits_of(87.1f))
        return float_of(xb >= 0x7fc00000u ? 0x7fc00000u : 0x7f800000u);
    if (x <= -87.3365f)
        return 0.0f;
    const float t = x * 1.442695f + 12582912.0f;
    const float p = float_of(0x3f800000u + (bits_of(t) << 23));
    const float n = t - 12582912.0f;
    const float y = (x + n * -0.693359375f) + n * 0.00021219444f;
    const float w = y * y + 10.0f;
    const float a = y * (w + 50.0f), b = 12.0f * w;
    const float den = b - a;
    const float r0 = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(den)));
    const float r = r0 * (2.0f - den * r0);
    return ((b + a) * r) * p;
}

TEST_P(Kernels, ExpFollowsItsFormulaLaneRulesAndClearsFlags)
{
    const TierMembers &m = GetParam();
    std::vector<float> xs;
    for (float x = -90.0f; x <= 90.0f; x += 0.37f)
        xs.push_back(x);
    for (float x : {0.0f, -0.0f, 1.0f, -1.0f, 87.1f, 87.2f, -87.3365f, -87.3f, 1e-30f, -1e-30f,
                    INFINITY, -INFINITY, float_of(0x7fc00000u), float_of(0x7fd00001u),
                    float_of(0x7f800001u), 88.7f, -100.0f, 100.0f})
        xs.push_back(x);
    CsrGuard keep;
    for (int len : {1, 2, 3, 5, 6, 7, (int)xs.size()}) {
        std::vector<float> v(xs.begin(), xs.begin() + len);
        _mm_setcsr(keep.saved | 0x3f); // every flag raised beforehand
        ASSERT_EQ(m.lumsExp_32f_I(v.data(), len), lumStsNoErr);
        // The five IEEE flags are cleared; the denormal flag and the control
        // bits stay.
        EXPECT_EQ(_mm_getcsr(), (keep.saved | 0x3f) & ~0x3du);
        for (int i = 0; i < len; ++i) {
            const float want = exp_reference(xs[i]);
            if (isnan(want) && bits_of(want) != 0x7fc00000u)
                EXPECT_TRUE(isnan(v[i])) << xs[i];
            else
                ASSERT_EQ(bits_of(v[i]), bits_of(want)) << m.name << " x=" << xs[i];
        }
    }
    _mm_setcsr(keep.saved);
    // Worked values, and the formula is a good exponential.
    float v[6] = {0.0f, -100.0f, 100.0f, float_of(0x7fc00000u), float_of(0x7f800001u), 1.0f};
    ASSERT_EQ(m.lumsExp_32f_I(v, 6), lumStsNoErr);
    // 1.0 where the approximate reciprocal of 120 is 0x1.111p-7; processor
    // makers' reciprocal tables differ, and one ulp below is the other answer.
    EXPECT_NEAR(v[0], 1.0f, 6e-8f);
    EXPECT_EQ(bits_of(v[1]), 0u);
    EXPECT_EQ(bits_of(v[2]), 0x7f800000u);
    EXPECT_EQ(bits_of(v[3]), 0x7fc00000u);
    EXPECT_EQ(bits_of(v[4]), 0x7f800000u);
    EXPECT_NEAR(v[5], 2.7182817f, 2e-6f);
    for (float x : xs)
        if (x > -80.0f && x < 80.0f)
            EXPECT_NEAR(exp_reference(x) / expf(x), 1.0f, 4e-6f) << x;
    EXPECT_EQ(m.lumsExp_32f_I(nullptr, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsExp_32f_I(v, 0), lumStsSizeErr);
}

// x*x * 2^-sf, rounded half to even and saturated, from exact double
// arithmetic (every such value is exact in a double).
Lum16u sqr_reference(unsigned x, int sf)
{
    const double v = ldexp((double)x * x, -sf);
    const double r = nearbyint(v); // the default rounding mode: ties to even
    return (Lum16u)(r > 65535.0 ? 65535.0 : r);
}

TEST_P(Kernels, SqrRoundsHalfToEvenAndSaturatesForEveryValue)
{
    const TierMembers &m = GetParam();
    std::vector<Lum16u> all(65536);
    for (int sf : {-40, -16, -15, -3, -1, 0, 1, 2, 3, 4, 15, 16, 17, 18, 31, 32, 33, 1000}) {
        for (unsigned x = 0; x < 65536; ++x)
            all[x] = (Lum16u)x;
        ASSERT_EQ(m.lumsSqr_16u_ISfs(all.data(), 65536, sf), lumStsNoErr);
        for (unsigned x = 0; x < 65536; ++x)
            ASSERT_EQ(all[x], sf > 32 ? 0 : sqr_reference(x, sf)) << m.name << " x=" << x << " sf=" << sf;
    }
    Lum16u w[3] = {256, 255, 3};
    ASSERT_EQ(m.lumsSqr_16u_ISfs(w, 2, 0), lumStsNoErr);
    ASSERT_EQ(m.lumsSqr_16u_ISfs(w + 2, 1, 1), lumStsNoErr);
    EXPECT_EQ(w[0], 65535);
    EXPECT_EQ(w[1], 65025);
    EXPECT_EQ(w[2], 4); // 4.5 to even
    EXPECT_EQ(m.lumsSqr_16u_ISfs(nullptr, 1, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsSqr_16u_ISfs(w, 0, 0), lumStsSizeErr);
}

// Float to integer, step by step as written.  The reference's own float
// operations run under the control word the kernel should use: the caller's
// for the multiplier and for truncation (rndMode 0), round-to-nearest without
// denormals-are-zero for rndMode 1 when the caller runs another mode, and
// truncation for the other selectors.
template <typename Out>
Out convert_reference(float x, int rndMode, int sf, unsigned callerCsr)
{
    CsrGuard keep;
    _mm_setcsr(callerCsr);
    volatile float mul = 1.0f;
    for (int i = 0; i < sf && i < 200; ++i)
        mul = mul * 0.5f;
    for (int i = 0; i > sf && i > -200; --i)
        mul = mul * 2.0f;
    if (rndMode == 1 && (callerCsr & 0x6000))
        _mm_setcsr(callerCsr & ~0x6040u);
    else if (rndMode != 0 && rndMode != 1)
        _mm_setcsr(callerCsr | 0x6000);
    volatile float y = sf ? x * mul : x;
    const bool bytes = sizeof(Out) == 1;
    if (bytes)
        y = (y < 255.0f) ? (float)y : 255.0f; // NaN to 255
    else
        y = (y > 0.0f) ? (float)y : 0.0f; // NaN to 0
    if (rndMode != 0 && rndMode != 1)
        y = y + 0.5f;
    const float r = rndMode == 1 ? nearbyintf(y) : truncf(y);
    const double top = bytes ? 255.0 : 65535.0;
    if (!(r < 2147483648.0f)) // out of the integer range: the indefinite value
        return bytes ? 0 : (Out)65535;
    return (Out)(r < 0 ? 0 : r > top ? top : r);
}

TEST_P(Kernels, ConvertsByEveryRoundingSelectorAndScale)
{
    const TierMembers &m = GetParam();
    std::vector<float> xs = {2.5f, 3.5f, -1.0f, 300.0f, -0.5f, 0.49999997f, 254.5f, 255.49f,
                             65534.5f, 65535.5f, 70000.0f, 1e10f, -1e10f, INFINITY, -INFINITY,
                             float_of(0x7fc00000u), float_of(0xffc00000u), 1e-40f, 127.5f, 128.5f};
    for (int i = 0; i < 100; ++i)
        xs.push_back((float)((i * 7919) % 1000) * 0.37f - 20.0f);
    CsrGuard keep;
    for (int rnd : {0, 1, 2, 7})
        for (int sf : {0, 1, 3, -1, -4, 40, -200})
            for (unsigned callerMode : {0x0000u, 0x2000u, 0x4000u, 0x6000u, 0x0040u})
                for (int len : {1, 15, 16, 17, (int)xs.size()}) {
                    std::vector<Lum8u> b(len + 1, 0xA5);
                    std::vector<Lum16u> h(len + 1, 0xA5A5);
                    const unsigned before = (keep.saved & ~0x6040u) | callerMode;
                    _mm_setcsr(before);
                    ASSERT_EQ(m.lumsConvert_32f8u_Sfs(xs.data(), b.data(), len, rnd, sf), lumStsNoErr);
                    ASSERT_EQ(_mm_getcsr() & kCsrControl, before & kCsrControl) << rnd;
                    ASSERT_EQ(m.lumsConvert_32f16u_Sfs(xs.data(), h.data(), len, rnd, sf), lumStsNoErr);
                    ASSERT_EQ(_mm_getcsr() & kCsrControl, before & kCsrControl) << rnd;
                    _mm_setcsr(keep.saved);
                    for (int i = 0; i < len; ++i) {
                        ASSERT_EQ(b[i], convert_reference<Lum8u>(xs[i], rnd, sf, before))
                            << m.name << " x=" << xs[i] << " rnd=" << rnd << " sf=" << sf
                            << " mode=" << callerMode;
                        ASSERT_EQ(h[i], convert_reference<Lum16u>(xs[i], rnd, sf, before))
                            << m.name << " x=" << xs[i] << " rnd=" << rnd << " sf=" << sf
                            << " mode=" << callerMode;
                    }
                    ASSERT_TRUE(b[len] == 0xA5 && h[len] == 0xA5A5);
                }
    float w[4] = {2.5f, -1.0f, 300.0f, 3.5f};
    Lum8u out[4];
    ASSERT_EQ(m.lumsConvert_32f8u_Sfs(w, out, 4, 1, 0), lumStsNoErr);
    EXPECT_EQ(out[0], 2);
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[2], 255);
    EXPECT_EQ(out[3], 4);
    ASSERT_EQ(m.lumsConvert_32f8u_Sfs(w, out, 1, 2, 0), lumStsNoErr);
    EXPECT_EQ(out[0], 3);
    EXPECT_EQ(m.lumsConvert_32f8u_Sfs(nullptr, out, 1, 1, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsConvert_32f16u_Sfs(w, nullptr, 0, 1, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsConvert_32f8u_Sfs(w, out, 0, 1, 0), lumStsSizeErr);
}

TEST_P(Kernels, WidensEverySixteenBitValueExactly)
{
    const TierMembers &m = GetParam();
    std::vector<Lum16u> all(65536 + 3);
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = (Lum16u)(i * 40503u);
    std::vector<float> out(all.size() + 1, -1.0f);
    for (int off : {0, 1, 3}) {
        const int len = (int)all.size() - off;
        std::fill(out.begin(), out.end(), -1.0f);
        ASSERT_EQ(m.lumsConvert_16u32f(all.data() + off, out.data(), len), lumStsNoErr);
        for (int i = 0; i < len; ++i)
            ASSERT_EQ(out[i], (float)all[off + i]) << m.name << " i=" << i;
        EXPECT_EQ(out[len], -1.0f);
    }
    EXPECT_EQ(m.lumsConvert_16u32f(nullptr, out.data(), 1), lumStsNullPtrErr);
    EXPECT_EQ(m.lumsConvert_16u32f(all.data(), out.data(), 0), lumStsSizeErr);
}

LUMI_INSTANTIATE_TIER_MEMBERS(Kernels);

} // namespace
