/*
 * Variant selection: the automatic ladder and the forced processor codes.
 *
 * The ladder tests single feature bits from the top tier down; the first
 * that holds sets the dispatch index, the low-power flag and the enabled
 * mask (the feature word cut to what the tier's build uses).  The vendor test
 * at the end only changes the status: a foreign processor gets the same tier.
 * A forced code sets index and constant mask as they stand, without looking
 * at the processor.
 *
 * Threads: every lookup re-runs the ladder and stores the same index, flag
 * and mask again while other threads' dispatchers read the index.  The words
 * are read and written with relaxed atomic accesses (plain moves on x86-64,
 * as the dispatchers' own read), so concurrent selection is no data race.
 */
#include "lumcore_internal.h"

namespace {

void select(int32_t index, int32_t lp, Lum64u mask)
{
    __atomic_store_n(&lum_jump_index, index, __ATOMIC_RELAXED);
    __atomic_store_n(&lum_jump_index_lp, lp, __ATOMIC_RELAXED);
    lumSetCpuFeaturesMask(mask);
}

struct Rung {
    Lum64u need; /* all of these bits */
    int32_t index;
    int32_t lp;
    Lum64u mask;
};

/* The AVX rung also needs the AVX gate; it is tested first, on its own. */
constexpr Rung kLadder[] = {
    {LUM_CPU_SSE41, 4, 0, 0xcdf},
    {LUM_CPU_MOVBE | LUM_CPU_SSSE3, 3, 1, 0x3f},
    {LUM_CPU_SSSE3, 2, 0, 0x1f},
    {LUM_CPU_SSE3, 1, 0, 0xf},
};

struct ForcedCode {
    uint32_t code;
    int32_t index;
    int32_t lp;
    Lum64u mask;
};

constexpr ForcedCode kForced[] = {
    {0, 1, 0, 0xf},     {32, 1, 0, 0xf},    {66, 1, 0, 0xf},
    {33, 2, 0, 0x1f},   {34, 2, 0, 0x1f},   {67, 2, 0, 0x1f},
    {36, 3, 1, 0x3f},
    {35, 4, 0, 0x5f},   {68, 4, 0, 0x5f},
    {37, 4, 0, 0xdf},   {69, 4, 0, 0xdf},
    {38, 4, 0, 0xcdf},  {71, 4, 0, 0xcdf},
    {70, 5, 0, 0xfdf},
    {73, 5, 0, 0x6fdf},
};

/* The public dispatch-index list names, for each index, the code that forces
 * it and the features its processor needs; both must agree with the tables
 * above, which the compiler checks here. */
constexpr int32_t forced_index(uint32_t code)
{
    for (const ForcedCode &f : kForced)
        if (f.code == code)
            return f.index;
    return -1;
}
constexpr bool ladder_needs(int32_t index, Lum64u needs)
{
    if (index == 5) /* the AVX rung, tested on its own before the ladder */
        return needs == (LUM_CPU_AVX | LUM_CPU_AVX_OS);
    for (const Rung &r : kLadder)
        if (r.index == index)
            return (r.need & needs) == needs;
    return false;
}
#define LUMI_CHECK_INDEX_ROW(index, code, features, label)                                        \
    static_assert(forced_index(code) == index, "the code of index " #index " forces it");        \
    static_assert(ladder_needs(index, features), "index " #index " needs what its rung tests");
LUMI_DISPATCH_INDEX_LIST(LUMI_CHECK_INDEX_ROW)
#undef LUMI_CHECK_INDEX_ROW

/* Codes of processors that have no tier of their own. */
bool is_untiered_code(uint32_t code)
{
    return (code >= 1 && code <= 11) || code == 64 || code == 65 || code == 96;
}

} // namespace

extern "C" {

LUMI_API LumStatus lumStaticInit(void)
{
    Lum64u word = 0;
    Lum32u regs[4] = {0, 0, 0, 0};
    LumStatus status = lumGetCpuFeatures(&word, regs);
    if (status != lumStsNoErr) {
        select(0, 0, 7);
    } else if ((word & (LUM_CPU_AVX | LUM_CPU_AVX_OS)) == (LUM_CPU_AVX | LUM_CPU_AVX_OS) &&
               lumIsCpuEnabled(70)) {
        select(5, 0, word & 0x6fdf);
    } else {
        const Rung *hit = nullptr;
        for (const Rung &r : kLadder)
            if ((word & r.need) == r.need) {
                hit = &r;
                break;
            }
        if (hit) {
            select(hit->index, hit->lp, word & hit->mask);
        } else {
            select(0, 0, 7);
            status = lumStsCpuNotSupportedErr;
        }
    }
    if (!lum_has_cpuid() || !lum_is_CorvaneChips())
        status = lumStsForeignCpuWarn;
    return status;
}

LUMI_API LumStatus lumInit(void)
{
    return lumStaticInit();
}

LUMI_API LumStatus lumStaticInitCpu(int32_t code)
{
    const uint32_t c = (uint32_t)code;
    if (c == 0xffffffffu)
        return lumInit();
    for (const ForcedCode &f : kForced)
        if (f.code == c) {
            select(f.index, f.lp, f.mask);
            return lumStsNoErr;
        }
    return is_untiered_code(c) ? lumStsCpuNotSupportedErr : lumStsUnknownCpuCodeErr;
}

LUMI_API LumStatus lumInitCpu(int32_t code)
{
    return lumStaticInitCpu(code);
}
}
