// Allocation, version records and the cache-size query.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <string>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/members.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

using lumitest::SimulatedCpu;
using lumitest::UseCpu;

namespace {

int g_malloc_calls = 0;
size_t g_last_request = 0;
size_t g_offset = 0;

// Returns blocks at every offset from a 32-byte boundary, to show that the
// rounding never depends on what the allocator gives.
void *offset_malloc(size_t n)
{
    ++g_malloc_calls;
    g_last_request = n;
    char *p = (char *)malloc(n + 64);
    return p ? p + g_offset : nullptr;
}
void offset_free(void *p)
{
    if (p)
        free((char *)p - g_offset);
}

struct VectorSwap {
    void *(*m)(size_t) = i_malloc;
    void (*f)(void *) = i_free;
    VectorSwap() { i_malloc = offset_malloc; i_free = offset_free; g_malloc_calls = 0; }
    ~VectorSwap() { i_malloc = m; i_free = f; }
};

TEST(Malloc, AlignmentAndRawAddressForEveryOffset)
{
    VectorSwap swap;
    for (g_offset = 0; g_offset < 40; ++g_offset) {
        char *p = (char *)lumMalloc(100);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ((uintptr_t)p % 32, 0u);
        EXPECT_EQ(g_last_request, 140u);
        void *raw;
        memcpy(&raw, p - 8, 8);
        const ptrdiff_t gap = p - (char *)raw;
        EXPECT_GE(gap, 8);
        EXPECT_LE(gap, 39);
        memset(p, 0xee, 100); // the whole block is usable (ASan checks)
        lumFree(p);
    }
}

TEST(Malloc, SizesBelowOneAndOverflow)
{
    VectorSwap swap;
    EXPECT_EQ(lumMalloc(0), nullptr);
    EXPECT_EQ(lumMalloc(-1), nullptr);
    EXPECT_EQ(lumsMalloc_8u(0), nullptr);
    EXPECT_EQ(g_malloc_calls, 0);
    lumFree(nullptr); // returns at once
    lumsFree(nullptr);
    lumiFree(nullptr);
}

class TierAlloc : public lumitest::TierTest {};

TEST_P(TierAlloc, VectorAndImageAllocators)
{
    VectorSwap swap;
    // lumsMalloc_32f(0x40000000): 4 GiB is 0 in 32 bits, so null.
    // The hidden members are reached through the public 8u one and the image one.
    Lum8u *v = lumsMalloc_8u(33);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ((uintptr_t)v % 32, 0u);
    EXPECT_EQ(g_last_request, 73u);
    lumsFree(v);

    int32_t step = -1;
    Lum8u *img = lumiMalloc_8u_C3(11, 2, &step);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(step, 64);
    EXPECT_EQ(g_last_request, 128u + 40u);
    lumiFree(img);

    step = -1;
    EXPECT_EQ(lumiMalloc_8u_C3(0, 5, &step), nullptr);
    EXPECT_EQ(step, 0);
    step = -1;
    EXPECT_EQ(lumiMalloc_8u_C3(5, -1, &step), nullptr);
    EXPECT_EQ(step, 0);
    EXPECT_EQ(lumiMalloc_8u_C3(5, 5, nullptr), nullptr);

    // A failed allocation still reports the step.
    lumitest::AllocFault fault(1);
    step = -1;
    EXPECT_EQ(lumiMalloc_8u_C3(20, 3, &step), nullptr);
    EXPECT_EQ(step, 64);
    EXPECT_EQ(fault.outstanding(), 0);
}

TEST_P(TierAlloc, VersionRecordNamesTheTier)
{
    const int index = GetParam();
    const char *tier = lumitest::serving_tier("lumiGetLibVersion", index);
    const LumLibraryVersion *v = lumiGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(std::string(v->targetCpu, 2), tier);
    EXPECT_EQ(std::string(v->Name), std::string("lumi") + tier + "_l.a");
    EXPECT_EQ(v->major, 7);
    EXPECT_EQ(v->minor, 0);
    EXPECT_EQ(v->majorBuild, 205);
    EXPECT_EQ(v->build, 1100);
    EXPECT_STREQ(v->Version, "7.0 build 205.105");
    EXPECT_STREQ(v->BuildDate, index == 2 || index == 3 ? "Apr  8 2012" : "Apr  7 2012");
    EXPECT_EQ(v->targetCpu[2], 0);
    EXPECT_EQ(v->targetCpu[3], 0);
}

LUMI_INSTANTIATE_TIERS(TierAlloc);

TEST(Version, SseFourTwoRecordFollowsTheMask)
{
    if (!lumitest::tier_allowed(4))
        GTEST_SKIP() << "SSE4.1 tier not available here";
    ASSERT_EQ(lumInitCpu(37), lumStsNoErr);
    EXPECT_STREQ(lumiGetLibVersion()->Name, "lumiy8_l.a+");
    ASSERT_EQ(lumInitCpu(35), lumStsNoErr);
    EXPECT_STREQ(lumiGetLibVersion()->Name, "lumiy8_l.a");
    lumSetCpuFeaturesMask(0x80);
    EXPECT_STREQ(lumiGetLibVersion()->Name, "lumiy8_l.a+");
    lumStaticInit();
}

// --------------------------------------------------------------- cache size

struct CacheResult {
    LumStatus status;
    int32_t size;
};

CacheResult query(SimulatedCpu &cpu)
{
    UseCpu use(cpu);
    CacheResult r;
    r.size = -1;
    r.status = lumGetMaxCacheSizeB(&r.size);
    return r;
}

TEST(CacheSize, LeafFourTakesTheLargestDataCache)
{
    SimulatedCpu cpu;
    cpu.caches = {{1, 8, 1, 64, 64}, {2, 64, 1, 64, 4096}, {3, 16, 1, 64, 1024}, {3, 12, 1, 64, 8192}};
    CacheResult r = query(cpu);
    EXPECT_EQ(r.status, lumStsNoErr);
    EXPECT_EQ(r.size, 12 * 64 * 8192); // the instruction cache (type 2) is passed over
}

TEST(CacheSize, LeafFourWithNothingIsUnknown)
{
    SimulatedCpu cpu; // no caches: sub-leaf 0 has type 0
    CacheResult r = query(cpu);
    EXPECT_EQ(r.status, lumStsCacheSizeUnknownWarn);
    EXPECT_EQ(r.size, 0);
}

TEST(CacheSize, LeafTwoDescriptors)
{
    struct Case {
        uint32_t regs[4];
        LumStatus status;
        int32_t size;
    };
    const Case cases[] = {
        // 0x2c (not listed), 0x44 (1 MiB) and 0x49 (4 MiB): the table order decides.
        {{0x00442c01, 0, 0, 0x00490000}, 0, 4194304},
        // The low byte of EAX must be 1.
        {{0x00442c02, 0, 0, 0}, lumStsCacheSizeUnknownWarn, 0},
        // A register with bit 31 set counts as empty.
        {{0x00000001, 0, 0, 0x80000049}, lumStsCacheSizeUnknownWarn, 0},
        // EAX's own low byte (the 1) is never compared, even against key 0x01... but 0x41 in EBX is.
        {{0x00000001, 0x00000041, 0, 0}, 0, 131072},
        // With EAX empty, EBX is laid out first and its lowest byte is not compared.
        {{0x80000001, 0x00004100 | 0x42, 0, 0}, 0, 131072},
        {{0x80000001, 0x00000042, 0, 0}, lumStsCacheSizeUnknownWarn, 0},
        // Nothing non-zero at all.
        {{0x80000001, 0, 0, 0}, lumStsCacheSizeUnknownWarn, 0},
    };
    for (const Case &c : cases) {
        SimulatedCpu cpu;
        cpu.max_leaf = 2;
        memcpy(cpu.leaf2, c.regs, sizeof c.regs);
        CacheResult r = query(cpu);
        EXPECT_EQ(r.status, c.status) << std::hex << c.regs[0] << " " << c.regs[1];
        EXPECT_EQ(r.size, c.size) << std::hex << c.regs[0] << " " << c.regs[1];
    }
}

TEST(CacheSize, RefusedProcessors)
{
    SimulatedCpu foreign;
    foreign.with_vendor("GenuineOther");
    foreign.caches = {{1, 8, 1, 64, 64}};
    EXPECT_EQ(query(foreign).status, lumStsCpuNotSupportedErr);
    SimulatedCpu low;
    low.max_leaf = 1;
    EXPECT_EQ(query(low).status, lumStsCpuNotSupportedErr);
    SimulatedCpu none;
    none.has_cpuid = false;
    CacheResult r = query(none);
    EXPECT_EQ(r.status, lumStsCpuNotSupportedErr);
    EXPECT_EQ(r.size, 0);
}

TEST(CacheSize, SettledOnceThenCached)
{
    SimulatedCpu cpu;
    cpu.caches = {{3, 16, 1, 64, 2048}};
    UseCpu use(cpu);
    EXPECT_EQ(lumGetMaxCacheSizeB(nullptr), lumStsNullPtrErr);
    int32_t size = 0;
    ASSERT_EQ(lumGetMaxCacheSizeB(&size), lumStsNoErr);
    EXPECT_EQ(size, 16 * 64 * 2048);
    const int reads = cpu.reads;
    cpu.caches.clear();
    int32_t again = 0;
    EXPECT_EQ(lumGetMaxCacheSizeB(&again), lumStsNoErr);
    EXPECT_EQ(again, size);
    EXPECT_EQ(cpu.reads, reads); // no CPUID the second time
}

} // namespace

namespace {

TEST(AllocMembers, ByteCountsStepsAndOverflow)
{
    VectorSwap swap;
    // The allocation members that have no dispatcher, called in each tier directly.
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members()) {
        void *p = m.lumsMalloc_16u(3);
        EXPECT_EQ(g_last_request, 6u + 40u);
        lumsFree(p);
        p = m.lumsMalloc_32s(5);
        EXPECT_EQ(g_last_request, 20u + 40u);
        lumsFree(p);
        p = m.lumsMalloc_32f(7);
        EXPECT_EQ(g_last_request, 28u + 40u);
        EXPECT_EQ((uintptr_t)p % 32, 0u);
        lumsFree(p);
        // 0x40000000 floats are 4 GiB: 0 in 32 bits, so null without a call.
        g_malloc_calls = 0;
        EXPECT_EQ(m.lumsMalloc_32f(0x40000000), nullptr);
        EXPECT_EQ(m.lumsMalloc_16u(-3), nullptr);
        EXPECT_EQ(g_malloc_calls, 0);
        // Byte counts beyond 32 bits give null; cut to their low half they
        // would ask for 4 bytes (0x40000001 words) or a negative count.
        EXPECT_EQ(m.lumsMalloc_32s(0x40000001), nullptr);
        EXPECT_EQ(m.lumsMalloc_32s(0x20000001), nullptr);
        EXPECT_EQ(m.lumsMalloc_16u(0x40000000), nullptr);
        EXPECT_EQ(g_malloc_calls, 0);
        {
            // 2^31 - 2 bytes still fit: the request reaches the allocator.
            lumitest::AllocFault fault(1);
            EXPECT_EQ(m.lumsMalloc_16u(0x3fffffff), nullptr);
            EXPECT_EQ(fault.allocations(), 1);
        }

        int32_t step = -1;
        p = m.lumiMalloc_8u_C1(32, 1, &step);
        EXPECT_EQ(step, 32);
        lumiFree(p);
        p = m.lumiMalloc_8u_C1(33, 3, &step);
        EXPECT_EQ(step, 64);
        EXPECT_EQ(g_last_request, 192u + 40u);
        lumiFree(p);
        step = -1;
        EXPECT_EQ(m.lumiMalloc_8u_C1(0, 5, &step), nullptr);
        EXPECT_EQ(step, 0);
        // 65536 * 32769 bytes pass 2^31: null, with the step of a failed allocation.
        g_malloc_calls = 0;
        EXPECT_EQ(m.lumiMalloc_8u_C1(65536, 32769, &step), nullptr);
        EXPECT_EQ(step, 65536);
        EXPECT_EQ(g_malloc_calls, 0);
    }
}

// Images whose byte count or step leaves 32 bits: null, never a block smaller
// than the step and height promise.
TEST_P(TierAlloc, ImagesBeyond32BitsGiveNull)
{
    VectorSwap swap;
    int32_t step = -1;
    // Step 65536, 65537 rows: 2^32 + 65536 bytes, 64 KiB once cut to 32 bits.
    EXPECT_EQ(lumiMalloc_8u_C3(21835, 65537, &step), nullptr);
    EXPECT_EQ(step, 65536);
    // A step of 3 * 0x7fffffff rounded up does not fit a 32-bit step at all.
    step = -1;
    EXPECT_EQ(lumiMalloc_8u_C3(0x7fffffff, 1, &step), nullptr);
    EXPECT_EQ(step, 0);
    EXPECT_EQ(g_malloc_calls, 0);
    // The largest image that fits still reaches the allocator.
    lumitest::AllocFault fault(1);
    EXPECT_EQ(lumiMalloc_8u_C3(10, 0x7fffffff / 32, &step), nullptr);
    EXPECT_EQ(step, 32);
    EXPECT_EQ(fault.allocations(), 1);
}

} // namespace
