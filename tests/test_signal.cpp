// Signal kernels: tier members that the image families call.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <vector>

#include "lumi.h"
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

// A byte buffer with guard bytes on both sides of a run that starts at any
// byte offset from a 64-byte boundary.
struct Guarded {
    std::vector<uint8_t> buf;
    size_t start;
    size_t bytes;
    Guarded(size_t n, size_t offset) : buf(n + offset + 192, 0xA5), bytes(n)
    {
        start = 64 + offset + (64 - (uintptr_t)buf.data() % 64) % 64;
    }
    uint8_t *data() { return buf.data() + start; }
    float *floats() { return (float *)data(); }
    bool guard_intact() const
    {
        for (size_t i = 0; i < start; ++i)
            if (buf[i] != 0xA5)
                return false;
        for (size_t i = start + bytes; i < buf.size(); ++i)
            if (buf[i] != 0xA5)
                return false;
        return true;
    }
};


class Fills : public ::testing::TestWithParam<TierMembers> {};

TEST_P(Fills, EveryLengthAndOffsetWithinItsBytes)
{
    const TierMembers &m = GetParam();
    const float value = float_of(0x7fa00123u); // a signalling NaN keeps its bits
    for (int len = 1; len <= 90; ++len)
        for (size_t off : {0, 4, 8, 12, 28, 1, 3}) {
            Guarded set(4 * len, off), zero32(4 * len, off), zero8(len, off), copy(4 * len, off);
            ASSERT_EQ(m.set32f(value, set.floats(), len), lumStsNoErr);
            ASSERT_EQ(m.zero32f(zero32.floats(), len), lumStsNoErr);
            ASSERT_EQ(m.zero8u(zero8.data(), len), lumStsNoErr);
            std::vector<float> src(len);
            for (int i = 0; i < len; ++i)
                src[i] = (float)i * 1.25f - 7.0f;
            ASSERT_EQ(m.copy32f(src.data(), copy.floats(), len), lumStsNoErr);
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
    EXPECT_EQ(m.set32f(1.0f, nullptr, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.set32f(1.0f, v, 0), lumStsSizeErr);
    EXPECT_EQ(m.set32f(1.0f, v, -4), lumStsSizeErr);
    EXPECT_EQ(m.zero32f(nullptr, -1), lumStsNullPtrErr);
    EXPECT_EQ(m.zero32f(v, 0), lumStsSizeErr);
    EXPECT_EQ(m.zero8u(nullptr, 1), lumStsNullPtrErr);
    EXPECT_EQ(m.zero8u((Lum8u *)v, 0), lumStsSizeErr);
    EXPECT_EQ(m.copy32f(nullptr, w, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.copy32f(v, nullptr, 0), lumStsNullPtrErr);
    EXPECT_EQ(m.copy32f(v, w, 0), lumStsSizeErr);
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
            LumStatus st = c.kind == 0   ? m.set32f(-2.5f, dst.floats(), len)
                           : c.kind == 1 ? m.zero8u(dst.data(), len)
                                         : m.copy32f(src.data(), dst.floats(), len);
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

TEST_P(Fills, CopyWithAddressesCloseModulo4096)
{
    const TierMembers &m = GetParam();
    SimulatedCpu cpu = small_cache_cpu();
    UseCpu use(cpu);
    for (int len : {75, 0x40010}) {
        const size_t n = 4 * (size_t)len;
        std::vector<uint8_t> buf(2 * n + 0x6000 + 64, 0xA5);
        uint8_t *base = buf.data() + ((64 - (uintptr_t)buf.data() % 64) % 64);
        uint8_t *dst = base + 0x1000;
        for (int off : {-0xf60, -0xa0, -0x40, 0, 0x40, 0xa0, 0xf60}) {
            float *src = (float *)(dst + n + 0x2000 + off);
            for (int i = 0; i < len; ++i)
                src[i] = (float)(i ^ off);
            memset(dst - 16, 0xA5, n + 32);
            ASSERT_EQ(m.copy32f(src, (float *)dst, len), lumStsNoErr);
            ASSERT_EQ(memcmp(dst, src, n), 0) << m.name << " off=" << off;
            for (int i = 1; i <= 16; ++i)
                ASSERT_TRUE(dst[-i] == 0xA5 && dst[n - 1 + i] == 0xA5);
        }
    }
}

LUMI_INSTANTIATE_TIER_MEMBERS(Fills);

} // namespace
