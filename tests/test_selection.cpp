// Processor detection and tier selection on simulated processors.
#include <gtest/gtest.h>

#include "lumi.h"
#include "support/sim_cpu.h"

using lumitest::SimulatedCpu;
using lumitest::UseCpu;

namespace {

struct Choice {
    LumStatus status;
    int32_t index, lp;
    Lum64u mask;
};

Choice automatic(SimulatedCpu &cpu)
{
    UseCpu use(cpu);
    Choice c;
    c.status = lumStaticInit();
    c.index = lumJumpIndexForMergedLibs;
    c.lp = lumJumpIndexForMergedLibsLP;
    c.mask = lumGetEnabledCpuFeatures();
    return c;
}

TEST(Ladder, EachGenerationGetsItsTierAndMask)
{
    struct Case {
        const char *what;
        SimulatedCpu cpu;
        int32_t index, lp;
        LumStatus status;
    };
    SimulatedCpu base;
    std::vector<Case> cases = {
        {"sse2 only", SimulatedCpu(base).sse2_only(), 0, 0, lumStsCpuNotSupportedErr},
        {"sse3", SimulatedCpu(base).sse3(), 1, 0, 0},
        {"ssse3", SimulatedCpu(base).ssse3(), 2, 0, 0},
        {"ssse3+movbe", SimulatedCpu(base).ssse3_movbe(), 3, 1, 0},
        {"sse4.1", SimulatedCpu(base).sse41(), 4, 0, 0},
        {"avx, os off", SimulatedCpu(base).avx(false), 4, 0, 0},
        {"avx", SimulatedCpu(base).avx(true), 5, 0, 0},
    };
    for (auto &c : cases) {
        Choice got = automatic(c.cpu);
        EXPECT_EQ(got.index, c.index) << c.what;
        EXPECT_EQ(got.lp, c.lp) << c.what;
        EXPECT_EQ(got.status, c.status) << c.what;
    }
}

TEST(Ladder, MasksCutFeaturesAboveTheTier)
{
    SimulatedCpu cpu;
    cpu.avx(true);
    cpu.leaf1[2] |= (1u << 22) | (1u << 30) | (1u << 29); // MOVBE RDRAND F16C
    Choice c = automatic(cpu);
    // 0x6fdf: no MOVBE, no family-0xB bit; AES, CLMUL, RDRAND, F16C kept.
    EXPECT_EQ(c.mask, 0x7fdfull & 0x6fdfull);
    EXPECT_EQ(c.mask & LUM_CPU_MOVBE, 0u);
    EXPECT_NE(c.mask & LUM_CPU_AES, 0u);

    SimulatedCpu sse(cpu);
    sse.avx(false);
    sse.leaf1[2] |= 1u << 22;
    c = automatic(sse);
    EXPECT_EQ(c.index, 4);
    EXPECT_EQ(c.mask, (Lum64u)(0x1cdf & 0xcdf)); // MOVBE, AVX and above cut
}

TEST(Ladder, SingleBitTests)
{
    // SSE4.1 alone wins index 4; MOVBE without SSSE3 counts for nothing.
    SimulatedCpu a;
    a.sse2_only();
    a.leaf1[2] = 1u << 19;
    EXPECT_EQ(automatic(a).index, 4);
    SimulatedCpu b;
    b.sse3();
    b.leaf1[2] |= 1u << 22;
    Choice c = automatic(b);
    EXPECT_EQ(c.index, 1);
    EXPECT_EQ(c.lp, 0);
}

TEST(Ladder, VendorOnlyChangesTheStatus)
{
    SimulatedCpu cpu;
    cpu.avx(true).with_vendor("GenuineOther");
    Choice c = automatic(cpu);
    EXPECT_EQ(c.status, lumStsForeignCpuWarn);
    EXPECT_EQ(c.index, 5);
    // The foreign warning also replaces the below-baseline status.
    SimulatedCpu old;
    old.sse2_only().with_vendor("GenuineOther");
    c = automatic(old);
    EXPECT_EQ(c.status, lumStsForeignCpuWarn);
    EXPECT_EQ(c.index, 0);
    EXPECT_EQ(c.mask, 7u);
}

TEST(Ladder, NoCpuid)
{
    SimulatedCpu cpu;
    cpu.has_cpuid = false;
    Choice c = automatic(cpu);
    EXPECT_EQ(c.index, 0);
    EXPECT_EQ(c.mask, 7u);
    EXPECT_EQ(c.status, lumStsForeignCpuWarn);
    UseCpu use(cpu);
    Lum64u word = 99;
    EXPECT_EQ(lumGetCpuFeatures(&word, nullptr), lumStsCpuNotSupportedErr);
    EXPECT_EQ(word, 99u);
}

TEST(Features, WordBitsAndCache)
{
    SimulatedCpu cpu;
    cpu.avx(true);
    cpu.leaf1[0] = 0x00000b00; // family 0xB: leaf 0x20000001 is read
    cpu.leaf_20000001_edx = 2;
    UseCpu use(cpu);
    Lum64u word = 0;
    ASSERT_EQ(lumGetCpuFeatures(&word, nullptr), lumStsNoErr);
    EXPECT_EQ(word, 0x1fdfull); // everything but MOVBE, RDRAND, F16C
    // The word is cached: a changed processor is not read again.
    cpu.leaf1[2] = 0;
    Lum64u again = 0;
    lumGetCpuFeatures(&again, nullptr);
    EXPECT_EQ(again, word);
}

TEST(Features, FamilyBitOnlyOnFamily0xB)
{
    SimulatedCpu cpu;
    cpu.sse41();
    cpu.leaf_20000001_edx = 2; // ignored: family is 6
    UseCpu use(cpu);
    Lum64u word = 0;
    lumGetCpuFeatures(&word, nullptr);
    EXPECT_EQ(word & LUM_CPU_EXT_0B, 0u);
}

TEST(Features, ProbeWordRunsTheRequestedLeaf)
{
    SimulatedCpu cpu;
    cpu.sse41();
    UseCpu use(cpu);
    Lum64u word = 0x65626f7270757063ull; // "cpuprobe"
    Lum32u regs[4] = {0, 0, 0, 0};
    ASSERT_EQ(lumGetCpuFeatures(&word, regs), lumStsNoErr);
    EXPECT_EQ(regs[0], cpu.max_leaf);
    EXPECT_EQ(memcmp(&regs[1], "Corv", 4), 0);
    EXPECT_NE(word, 0x65626f7270757063ull);
    // Any other word: leaf 1.
    Lum32u regs1[4] = {0, 0, 0, 0};
    ASSERT_EQ(lumGetCpuFeatures(&word, regs1), lumStsNoErr);
    EXPECT_EQ(regs1[2], cpu.leaf1[2]);
    EXPECT_EQ(lumGetCpuFeatures(nullptr, regs1), lumStsNullPtrErr);
}

TEST(Forced, CodesSetIndexLpAndMask)
{
    struct Row { int32_t code, index, lp; Lum64u mask; };
    const Row rows[] = {{0, 1, 0, 0xf},  {32, 1, 0, 0xf},   {66, 1, 0, 0xf},  {33, 2, 0, 0x1f},
                        {34, 2, 0, 0x1f}, {67, 2, 0, 0x1f}, {36, 3, 1, 0x3f}, {35, 4, 0, 0x5f},
                        {68, 4, 0, 0x5f}, {37, 4, 0, 0xdf}, {69, 4, 0, 0xdf}, {38, 4, 0, 0xcdf},
                        {71, 4, 0, 0xcdf}, {70, 5, 0, 0xfdf}, {73, 5, 0, 0x6fdf}};
    for (const Row &r : rows) {
        ASSERT_EQ(lumInitCpu(r.code), lumStsNoErr) << r.code;
        EXPECT_EQ(lumJumpIndexForMergedLibs, r.index) << r.code;
        EXPECT_EQ(lumJumpIndexForMergedLibsLP, r.lp) << r.code;
        EXPECT_EQ(lumGetEnabledCpuFeatures(), r.mask) << r.code;
    }
    lumStaticInit();
}

TEST(Forced, RejectedCodesChangeNothing)
{
    ASSERT_EQ(lumInitCpu(36), lumStsNoErr);
    for (int32_t code : {1, 5, 11, 64, 65, 96})
        EXPECT_EQ(lumStaticInitCpu(code), lumStsCpuNotSupportedErr) << code;
    for (int32_t code : {12, 31, 39, 72, 74, 97, -2})
        EXPECT_EQ(lumStaticInitCpu(code), lumStsUnknownCpuCodeErr) << code;
    EXPECT_EQ(lumJumpIndexForMergedLibs, 3);
    EXPECT_EQ(lumJumpIndexForMergedLibsLP, 1);
    EXPECT_EQ(lumGetEnabledCpuFeatures(), 0x3fu);
    lumStaticInit();
}

TEST(Forced, MinusOneAndAutomaticInitPutTheChoiceBack)
{
    SimulatedCpu cpu;
    cpu.sse41(); // no MOVBE
    UseCpu use(cpu);
    ASSERT_EQ(lumInitCpu(36), lumStsNoErr);
    EXPECT_EQ(lumJumpIndexForMergedLibsLP, 1);
    EXPECT_EQ(lumStaticInitCpu(-1), lumStsNoErr);
    EXPECT_EQ(lumJumpIndexForMergedLibs, 4);
    EXPECT_EQ(lumJumpIndexForMergedLibsLP, 0);
    lumSetCpuFeaturesMask(0x12345);
    EXPECT_EQ(lumGetEnabledCpuFeatures(), 0x12345u);
    EXPECT_EQ(lumJumpIndexForMergedLibs, 4);
    EXPECT_EQ(lumInit(), lumStsNoErr);
    EXPECT_EQ(lumGetEnabledCpuFeatures(), 0x5fu); // MMX..SSSE3 and SSE4.1
}

TEST(Enable, AvxGateStaysOpen)
{
    EXPECT_EQ(lumIsCpuEnabled(70), 1);
    EXPECT_EQ(lumIsCpuEnabled(5), 1);
    EXPECT_EQ(lumEnableCpu(5), lumStsNoErr);
    EXPECT_EQ(lumEnableCpu(70), lumStsNoErr);
    EXPECT_EQ(lumIsCpuEnabled(70), 1);
}

TEST(Probes, AnswerFromTheirLeaves)
{
    SimulatedCpu cpu;
    cpu.avx(true);
    cpu.leaf1[1] = 4u << 16;           // 4 logical processors
    cpu.leaf1[3] |= 1u << 28;          // HTT
    cpu.caches = {{1, 8, 1, 64, 64}};  // leaf 4 sub-leaf 0, EAX bits 26..31 = 3
    UseCpu use(cpu);
    EXPECT_EQ(lum_has_cpuid(), 1);
    EXPECT_EQ(lum_max_cpuid_input(), 0xd);
    EXPECT_EQ(lum_is_avx_extension(), 1);
    EXPECT_EQ(lum_is_CorvaneChips(), 1);
    EXPECT_EQ(lum_has_rdtsc(), 1);
    EXPECT_EQ(lum_is_mmx_extension(), 1);
    EXPECT_EQ(lum_is_sse_extension(), 1);
    EXPECT_EQ(lum_is_sse2_extension(), 1);
    EXPECT_EQ(lum_is_smt_extension(), 1);
    EXPECT_EQ(lum_is_sse3_extension(), 1);
    EXPECT_EQ(lum_is_x64_extension(), 1);
    EXPECT_EQ(lum_is_ssse3_extension(), 1);
    EXPECT_EQ(lum_is_sse41_extension(), 1);
    EXPECT_EQ(lum_is_sse42_extension(), 1);
    EXPECT_EQ(lum_is_movbe(), 0);
    EXPECT_EQ(lum_get_cores_on_die(), 4);
    EXPECT_EQ(lum_get_processor_counter(), cpu.tsc);
    cpu.xcr0 = 3;
    EXPECT_EQ(lum_is_avx_extension(), 0);
    cpu.ext_max = 0x80000000u; // no extended leaf 1: the smaller value comes back
    EXPECT_EQ(lum_is_x64_extension(), (int)0x80000000u);
    cpu.max_leaf = 3;
    EXPECT_EQ(lum_get_cores_on_die(), 1);
    cpu.with_vendor("AnotherChips");
    EXPECT_EQ(lum_is_CorvaneChips(), 0);
}

TEST(Probes, ProcessorIdent)
{
    SimulatedCpu cpu;
    cpu.sse42();
    cpu.leaf1[0] = 0x0a5b6f2c;          // ext family 0xa5, ext model 0xb, family 0xf, model 2, stepping 0xc
    cpu.leaf1[2] |= (1u << 22) | (1u << 28);
    cpu.leaf2[0] = 0x00665b01;
    cpu.leaf2[3] = 0x00c30000;
    UseCpu use(cpu);
    LumProcessorIdent id;
    memset(&id, 0x5a, sizeof id);
    EXPECT_EQ(lum_get_processor_ident(&id), 1);
    EXPECT_EQ(id.family, 0xf);
    EXPECT_EQ(id.stepping, 0xc);
    EXPECT_EQ(id.model, 0x2);
    EXPECT_EQ(id.type, 0x1); // bits 11 and 12
    EXPECT_EQ(id.leaf1Edx, cpu.leaf1[3]);
    EXPECT_EQ(id.leaf2Eax, 0x00665b01u);
    EXPECT_EQ(id.leaf2Edx, 0x00c30000u);
    EXPECT_EQ(id.reserved, 0x5a5a5a5a);
    EXPECT_EQ(id.extendedFamily, 0xa5);
    EXPECT_EQ(id.extendedModel, 0xb);
    EXPECT_EQ(id.hasMovbe, 1);
    EXPECT_EQ(id.hasAvxBit28, 1);
    EXPECT_EQ(id.hasOsxsaveBit27, 0);
    EXPECT_EQ(id.hasSse42, 1);
}

} // namespace
