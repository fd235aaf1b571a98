// Fault injection through the allocator vector: counts the blocks taken and
// given back, and can make the Nth allocation (1-based) fail.
#pragma once

#include <stddef.h>

namespace lumitest {

class AllocFault {
public:
    // Installs counting wrappers in i_malloc / i_free; fail_at 0 never fails.
    explicit AllocFault(int fail_at = 0);
    ~AllocFault();
    int allocations() const; // calls of i_malloc, failed ones included
    int outstanding() const; // blocks taken and not yet freed
};

// Runs fn once with no failure to count its allocations, then once for each
// allocation with that one failing; calls check(status, failed_at) after
// each failing run.  Returns the number of allocations of the clean run.
template <typename Fn, typename Check>
int for_each_alloc_failure(Fn fn, Check check)
{
    int count;
    {
        AllocFault counting;
        fn();
        count = counting.allocations();
    }
    for (int k = 1; k <= count; ++k) {
        AllocFault fault(k);
        auto status = fn();
        check(status, k, fault.outstanding());
    }
    return count;
}

} // namespace lumitest
