/*
 * The by-name entry: GetProcAddressForSo and its table of 70 rows.
 *
 * Every lookup first re-stores the live gf_ slots (SetupLUMFunc) and re-runs
 * the automatic processor selection, so any forced tier is put back; then,
 * once per process under the guard of a function-local static, the 68 slots
 * are copied into rows 2 to 69; then the rows are searched in order by exact
 * name.  Rows 0 and 1 are bound at load.  A row whose primitive the library
 * does not hold keeps a null pointer, so its name answers like an unknown one.
 * A null name matches no row.  Lookups from several threads rewrite the
 * slots with the values they hold; the slots are stored and read with
 * relaxed atomic accesses, so this is no data race.
 */
#include "lumcore_internal.h"

#include <string.h>

extern "C" {

/* The staging slots, one per row 2 to 69, all null until SetupLUMFunc. */
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name) LUMI_API void *gf_##name = nullptr;
#define LUMI_ROW_ABSENT(name) LUMI_API void *gf_##name = nullptr;
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) LUMI_API void *gf_##name = nullptr;
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED

LUMI_API void SetupLUMFunc(void)
{
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name) __atomic_store_n(&gf_##name, (void *)&name, __ATOMIC_RELAXED);
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) \
    __atomic_store_n(&gf_##name, (void *)&name, __ATOMIC_RELAXED);
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
}
}

namespace {

struct EntryRow {
    const char *name;
    void *fn;
};

/* Rows 0..69 and the terminator.  Only rows 0 and 1 start non-null. */
EntryRow funcName[] = {
#define LUMI_ROW_BOUND(name) {#name, (void *)&name},
#define LUMI_ROW_SELF(name) {#name, nullptr},
#define LUMI_ROW_ABSENT(name) {#name, nullptr},
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) {#name, nullptr},
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    {nullptr, nullptr},
};

/* The slot behind each of rows 2..69, in row order. */
void *const *const kSlots[] = {
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name) &gf_##name,
#define LUMI_ROW_ABSENT(name) &gf_##name,
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) &gf_##name,
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
};

const int kFirstSlotRow = 2;
static_assert(sizeof funcName / sizeof funcName[0] == 71, "70 rows and a terminator");
static_assert(sizeof kSlots / sizeof kSlots[0] == 68, "one slot per row 2..69");

bool fill_table()
{
    for (size_t i = 0; i < sizeof kSlots / sizeof kSlots[0]; ++i)
        funcName[kFirstSlotRow + i].fn = __atomic_load_n(kSlots[i], __ATOMIC_RELAXED);
    return true;
}

} // namespace

extern "C" LUMI_API void *GetProcAddressForSo(const char *name)
{
    SetupLUMFunc();
    (void)lumStaticInit();
    static const bool filled = fill_table();
    (void)filled;
    for (const EntryRow *row = funcName; row->name; ++row)
        if (name && strcmp(row->name, name) == 0)
            return row->fn;
    return nullptr;
}
