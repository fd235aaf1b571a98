// A simulated processor for the tests: while a SimulatedCpu is installed,
// every CPUID, XGETBV and RDTSC read of the library is answered from it, and
// the library's cached processor state is reset so it is read afresh.
#pragma once

#include <stdint.h>

#include <map>
#include <utility>
#include <vector>

namespace lumitest {

struct SimulatedCpu {
    bool has_cpuid = true;
    uint32_t max_leaf = 0xd;
    char vendor[13] = "CorvaneChips";
    uint32_t leaf1[4] = {0x000306a9, 0x00100800, 0, 0}; // EAX EBX ECX EDX
    uint32_t xcr0 = 0x7;
    uint32_t leaf2[4] = {0x00000000, 0, 0, 0};
    uint32_t ext_max = 0x80000008;
    uint32_t ext1_edx = 1u << 29;
    uint32_t leaf_20000001_edx = 0;
    uint64_t tsc = 0x123456789abcull;
    struct Cache { uint32_t type, ways, partitions, line, sets; };
    std::vector<Cache> caches; // leaf 4 sub-leaves, in order
    // Any other leaf/sub-leaf answered verbatim.
    std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> extra;

    int reads = 0; // every read the library made while installed

    // Leaf 1 feature sets of typical processor generations.
    SimulatedCpu &sse2_only();
    SimulatedCpu &sse3();
    SimulatedCpu &ssse3();
    SimulatedCpu &ssse3_movbe();
    SimulatedCpu &sse41();
    SimulatedCpu &sse42();
    SimulatedCpu &avx(bool os_enabled = true);
    SimulatedCpu &with_vendor(const char *v);

    void answer(int op, uint32_t leaf, uint32_t sub, uint32_t r[4]);
};

// Installs cpu for the life of the guard and clears the cached feature word,
// cache size and selection; restores the real processor afterwards.
class UseCpu {
public:
    explicit UseCpu(SimulatedCpu &cpu);
    ~UseCpu();
};

// Clears the library's cached processor state (feature word, cache size).
void reset_processor_state();

} // namespace lumitest
