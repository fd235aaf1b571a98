#define LUMI_SIMULATED_CPU_API
#include "sim_cpu.h"

#include <string.h>

#include "lumcore_internal.h"

namespace lumitest {
namespace {

SimulatedCpu *g_cpu = nullptr;

void hook(int op, uint32_t leaf, uint32_t sub, uint32_t r[4])
{
    g_cpu->answer(op, leaf, sub, r);
}

const uint32_t kEdxBase = (1u << 23) | (1u << 25) | (1u << 26) | (1u << 4); // MMX SSE SSE2 TSC

} // namespace

SimulatedCpu &SimulatedCpu::sse2_only() { leaf1[2] = 0; leaf1[3] = kEdxBase; return *this; }
SimulatedCpu &SimulatedCpu::sse3() { sse2_only(); leaf1[2] = 1u << 0; return *this; }
SimulatedCpu &SimulatedCpu::ssse3() { sse3(); leaf1[2] |= 1u << 9; return *this; }
SimulatedCpu &SimulatedCpu::ssse3_movbe() { ssse3(); leaf1[2] |= 1u << 22; return *this; }
SimulatedCpu &SimulatedCpu::sse41() { ssse3(); leaf1[2] |= 1u << 19; return *this; }
SimulatedCpu &SimulatedCpu::sse42() { sse41(); leaf1[2] |= (1u << 20) | (1u << 25) | (1u << 1); return *this; }

SimulatedCpu &SimulatedCpu::avx(bool os_enabled)
{
    sse42();
    leaf1[2] |= (1u << 27) | (1u << 28);
    xcr0 = os_enabled ? 0x7 : 0x3;
    return *this;
}

SimulatedCpu &SimulatedCpu::with_vendor(const char *v)
{
    memset(vendor, 0, sizeof vendor);
    strncpy(vendor, v, 12);
    return *this;
}

void SimulatedCpu::answer(int op, uint32_t leaf, uint32_t sub, uint32_t r[4])
{
    ++reads;
    r[0] = r[1] = r[2] = r[3] = 0;
    switch (op) {
    case LUM_READ_HAS_CPUID:
        r[0] = has_cpuid ? 1 : 0;
        return;
    case LUM_READ_XGETBV:
        r[0] = leaf == 0 ? xcr0 : 0;
        return;
    case LUM_READ_RDTSC:
        r[0] = (uint32_t)tsc;
        r[1] = (uint32_t)(tsc >> 32);
        return;
    default:
        break;
    }
    auto it = extra.find({leaf, sub});
    if (it != extra.end()) {
        for (int i = 0; i < 4; ++i)
            r[i] = it->second[i];
        return;
    }
    if (leaf == 0) {
        r[0] = max_leaf;
        memcpy(&r[1], vendor, 4);
        memcpy(&r[3], vendor + 4, 4);
        memcpy(&r[2], vendor + 8, 4);
    } else if (leaf == 1) {
        memcpy(r, leaf1, sizeof leaf1);
    } else if (leaf == 2) {
        memcpy(r, leaf2, sizeof leaf2);
    } else if (leaf == 4) {
        if (sub < caches.size()) {
            const Cache &c = caches[sub];
            r[0] = c.type | (3u << 26);
            r[1] = (c.ways - 1) << 22 | (c.partitions - 1) << 12 | (c.line - 1);
            r[2] = c.sets - 1;
        }
    } else if (leaf == 0x80000000u) {
        r[0] = ext_max;
    } else if (leaf == 0x80000001u) {
        r[3] = ext1_edx;
    } else if (leaf == 0x20000001u) {
        r[3] = leaf_20000001_edx;
    }
}

void reset_processor_state()
{
    ownFeaturesAreValid = 0;
    ownFeatures = 0;
    ownStatus = 1;
    cacheSize = 0;
}

UseCpu::UseCpu(SimulatedCpu &cpu)
{
    g_cpu = &cpu;
    ownProcessorReadHook = hook;
    reset_processor_state();
}

UseCpu::~UseCpu()
{
    ownProcessorReadHook = nullptr;
    g_cpu = nullptr;
    reset_processor_state();
    lumStaticInit();
}

} // namespace lumitest
