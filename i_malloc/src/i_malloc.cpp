/*
 * The allocator vector.  A host may point these at its own allocator before
 * it allocates; lumMalloc and lumFree read i_malloc and i_free on every call.
 * The other four words are kept for hosts and read by nothing here.
 */
#include "lumi.h"

#include <stdlib.h>

extern "C" {
LUMI_API void *(*i_malloc)(size_t size) = malloc;
LUMI_API void *(*i_calloc)(size_t count, size_t size) = calloc;
LUMI_API void *(*i_realloc)(void *ptr, size_t size) = realloc;
LUMI_API void (*i_free)(void *ptr) = free;
LUMI_API int32_t i_version = 1;
LUMI_API int32_t i_min_version = 0;
}
