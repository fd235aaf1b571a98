// Simulated processors for the cache-dependent paths of the copies and
// fills, whose thresholds are otherwise far beyond a test's sizes.
#pragma once

#include "sim_cpu.h"

namespace lumitest {

// Small caches: leaf 2 names a 256 KiB cache (descriptor 0x42), leaf 4 a
// 32 KiB data cache, so the out-of-cache paths start at their size floors.
inline SimulatedCpu small_cache_cpu()
{
    SimulatedCpu cpu;
    cpu.avx();
    cpu.leaf2[0] = 0x00004201;
    cpu.caches = {{1, 8, 1, 64, 64}};
    return cpu;
}

// A 24 MiB last-level cache by either lookup (descriptor 0xEC).
inline SimulatedCpu large_cache_cpu()
{
    SimulatedCpu cpu = small_cache_cpu();
    cpu.leaf2[0] = 0x0000EC01;
    cpu.caches = {{3, 12, 1, 64, 32768}};
    return cpu;
}

// Another vendor: neither lookup gives a size.
inline SimulatedCpu foreign_cpu()
{
    SimulatedCpu cpu = small_cache_cpu();
    cpu.with_vendor("OtherVendorX");
    return cpu;
}

} // namespace lumitest
