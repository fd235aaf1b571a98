/*
 * 32-byte-aligned blocks over the allocator vector.  A block is size + 40 raw
 * bytes; the returned pointer is (raw + 39) rounded down to 32, so at least
 * eight bytes lie below it, where the raw address is kept for lumFree.
 */
#include "lumcore_internal.h"

#include <string.h>

extern "C" {

LUMI_API void *lumMalloc(int32_t size)
{
    if (size < 1)
        return nullptr;
    void *raw = i_malloc((size_t)(int64_t)size + 40);
    if (!raw)
        return nullptr;
    uintptr_t p = ((uintptr_t)raw + 39) & ~(uintptr_t)31;
    memcpy((void *)(p - sizeof(void *)), &raw, sizeof(void *));
    return (void *)p;
}

LUMI_API void lumFree(void *ptr)
{
    if (!ptr)
        return;
    void *raw;
    memcpy(&raw, (char *)ptr - sizeof(void *), sizeof(void *));
    i_free(raw);
}
}
