/*
 * The by-name entry: GetProcAddressForSo and its table of rows.
 *
 * Every lookup first re-stores the live gf_ slots (SetupLUMFunc) and re-runs
 * the automatic processor selection, so any forced tier is put back; then,
 * once per process under the guard of a function-local static, the slots are
 * copied into the rows after the ones bound at load (lumMalloc, lumFree);
 * then the rows are searched in order by exact name.  Rows, slots and their
 * counts all come from the entry list, lumi_entries.def.  A row whose primitive the library
 * does not hold keeps a null pointer, so its name answers like an unknown one.
 * A null name matches no row.  Lookups from several threads rewrite the
 * slots with the values they hold; the slots are stored and read with
 * relaxed atomic accesses, so this is no data race.
 */
#include "lumcore_internal.h"

#include <string.h>

extern "C" {

/* The staging slots, one per row after the bound ones, null until SetupLUMFunc. */
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

/* The rows and the terminator.  Only the bound rows start non-null. */
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

/* The slot behind each row after the bound ones, in row order. */
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

/* The kinds of the rows in table order; the counts below come from it. */
enum RowKind { kBound, kSlot };
constexpr RowKind kRowKinds[] = {
#define LUMI_ROW_BOUND(name) kBound,
#define LUMI_ROW_SELF(name) kSlot,
#define LUMI_ROW_ABSENT(name) kSlot,
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) kSlot,
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
};
constexpr size_t kRows = sizeof kRowKinds / sizeof kRowKinds[0];

constexpr size_t count_leading_bound()
{
    size_t n = 0;
    while (n < kRows && kRowKinds[n] == kBound)
        ++n;
    return n;
}
constexpr size_t count_bound()
{
    size_t n = 0;
    for (RowKind k : kRowKinds)
        n += k == kBound;
    return n;
}

/* The rows bound at load come first; every row after them has a slot. */
constexpr size_t kFirstSlotRow = count_leading_bound();
static_assert(count_bound() == kFirstSlotRow, "bound rows stand before every slot row");
static_assert(sizeof funcName / sizeof funcName[0] == kRows + 1, "the rows and a terminator");
static_assert(sizeof kSlots / sizeof kSlots[0] == kRows - kFirstSlotRow, "one slot per row");

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
