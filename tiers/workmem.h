/*
 * Working memory of one call: a fixed number of blocks from the tier's
 * allocator, taken in order and given back together.
 *
 *     WorkMem<4> m = {};
 *     float *a = workmem_take<float>(m, n);
 *     int32_t *b = workmem_take<int32_t>(m, 2 * (int64_t)n);
 *     if (m.status == lumStsNoErr) { ...use a and b... }
 *     return workmem_release(m);
 *
 * A request fails, and so does every request after it, when the holder is
 * full, when the allocator has no block, or when the block would have more
 * bytes than one allocation can hold (the allocators count bytes in 32
 * bits and would otherwise cut the size).  A failed request returns null
 * and records the reason in status: lumStsSizeErr for a block too large to
 * represent, lumStsMemAllocErr otherwise.  Counts are 64-bit so that a
 * caller can pass a product of two 32-bit sizes without overflowing first.
 *
 * workmem_release frees whatever was obtained and returns status, so one
 * return statement covers every path.  Blocks are 32-byte aligned.
 */
#ifndef LUMI_WORKMEM_H
#define LUMI_WORKMEM_H

#include <stdint.h>

#include "tier.h"

namespace LUMI_NS {

template <int32_t Capacity>
struct WorkMem {
    void *block[Capacity];
    int32_t count;
    LumStatus status; /* lumStsNoErr until a request fails */
};

template <typename T, int32_t Capacity>
T *workmem_take(WorkMem<Capacity> &m, int64_t count)
{
    if (m.status != lumStsNoErr)
        return nullptr;
    if (m.count >= Capacity || count < 1) {
        m.status = lumStsMemAllocErr;
        return nullptr;
    }
    if (count > (int64_t)INT32_MAX / (int64_t)sizeof(T)) {
        m.status = lumStsSizeErr;
        return nullptr;
    }
    void *p = LUMI_T(lumsMalloc_8u)((int32_t)(count * (int64_t)sizeof(T)));
    if (!p) {
        m.status = lumStsMemAllocErr;
        return nullptr;
    }
    m.block[m.count++] = p;
    return (T *)p;
}

template <int32_t Capacity>
LumStatus workmem_release(WorkMem<Capacity> &m)
{
    for (int32_t i = 0; i < m.count; ++i)
        LUMI_T(lumsFree)(m.block[i]);
    m.count = 0;
    return m.status;
}

} // namespace LUMI_NS

#endif
