#include "alloc_fault.h"

#include <stdlib.h>

#include "lumi.h"

namespace lumitest {
namespace {

int g_fail_at = 0;
int g_calls = 0;
int g_outstanding = 0;
void *(*g_prev_malloc)(size_t) = nullptr;
void (*g_prev_free)(void *) = nullptr;

void *counting_malloc(size_t n)
{
    ++g_calls;
    if (g_fail_at != 0 && g_calls == g_fail_at)
        return nullptr;
    void *p = malloc(n);
    if (p)
        ++g_outstanding;
    return p;
}

void counting_free(void *p)
{
    if (p)
        --g_outstanding;
    free(p);
}

} // namespace

AllocFault::AllocFault(int fail_at)
{
    g_fail_at = fail_at;
    g_calls = 0;
    g_outstanding = 0;
    g_prev_malloc = i_malloc;
    g_prev_free = i_free;
    i_malloc = counting_malloc;
    i_free = counting_free;
}

AllocFault::~AllocFault()
{
    i_malloc = g_prev_malloc;
    i_free = g_prev_free;
}

int AllocFault::allocations() const { return g_calls; }
int AllocFault::outstanding() const { return g_outstanding; }

} // namespace lumitest
