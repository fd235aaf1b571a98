// Loading liblumi.so, the names of its entry table, its status codes, and
// forcing a tier.
#include <dlfcn.h>
#include <string.h>
#include <unistd.h>

#include "lumi_cli.h"

namespace cli {

bool open_library(const std::string &path, Library *lib, std::string *err)
{
    std::vector<std::string> tries;
    if (!path.empty()) {
        tries.push_back(path);
    } else {
        if (const char *env = getenv("LUMI_LIBRARY"))
            tries.push_back(env);
#ifdef LUMI_SO_PATH
        if (access(LUMI_SO_PATH, R_OK) == 0)
            tries.push_back(LUMI_SO_PATH);
#endif
        tries.push_back("liblumi.so");
    }
    std::string why;
    for (const std::string &t : tries) {
        lib->handle = dlopen(t.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib->handle)
            break;
        why = dlerror();
    }
    if (!lib->handle) {
        *err = "cannot load the library: " + why;
        return false;
    }
    lib->get_proc = (GetProcFn)dlsym(lib->handle, "GetProcAddressForSo");
    lib->init_cpu = (LumStatus(*)(int32_t))dlsym(lib->handle, "lumInitCpu");
    lib->get_cpu_features =
        (LumStatus(*)(Lum64u *, Lum32u *))dlsym(lib->handle, "lumGetCpuFeatures");
    lib->jump_index = (int32_t *)dlsym(lib->handle, "lumJumpIndexForMergedLibs");
    if (!lib->get_proc || !lib->init_cpu || !lib->get_cpu_features) {
        *err = "the library does not export GetProcAddressForSo, lumInitCpu and lumGetCpuFeatures";
        return false;
    }
    lib->version = (const LumLibraryVersion *(*)(void))lib->get_proc("lumiGetLibVersion");
    return true;
}

const std::vector<EntryRow> &entry_rows()
{
    static const std::vector<EntryRow> rows = {
#define LUMI_ROW_BOUND(name) {#name, {}},
#define LUMI_ROW_SELF(name) {#name, {}},
#define LUMI_ROW_ABSENT(name) {#name, {}},
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) {#name, {#s0, #s1, #s2, #s3, #s4, #s5}},
#define LUMI_ROW_PENDING(name, s0, s1, s2, s3, s4, s5) {#name, {#s0, #s1, #s2, #s3, #s4, #s5}},
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    };
    return rows;
}

const EntryRow *find_entry(const std::string &name)
{
    for (const EntryRow &r : entry_rows())
        if (name == r.name)
            return &r;
    return nullptr;
}

const char *status_name(LumStatus status)
{
    static const struct {
        LumStatus code;
        const char *name;
    } names[] = {
        {lumStsNoErr, "lumStsNoErr"},
        {lumStsBadArgErr, "lumStsBadArgErr"},
        {lumStsSizeErr, "lumStsSizeErr"},
        {lumStsNullPtrErr, "lumStsNullPtrErr"},
        {lumStsMemAllocErr, "lumStsMemAllocErr"},
        {lumStsStepErr, "lumStsStepErr"},
        {lumStsContextMatchErr, "lumStsContextMatchErr"},
        {lumStsInterpolationErr, "lumStsInterpolationErr"},
        {lumStsResizeFactorErr, "lumStsResizeFactorErr"},
        {lumStsMaskSizeErr, "lumStsMaskSizeErr"},
        {lumStsAnchorErr, "lumStsAnchorErr"},
        {lumStsDivisorErr, "lumStsDivisorErr"},
        {lumStsCoeffErr, "lumStsCoeffErr"},
        {lumStsRectErr, "lumStsRectErr"},
        {lumStsQuadErr, "lumStsQuadErr"},
        {lumStsResizeEmptyErr, "lumStsResizeEmptyErr"},
        {lumStsBadFilterKindErr, "lumStsBadFilterKindErr"},
        {lumStsForeignCpuWarn, "lumStsForeignCpuWarn"},
        {lumStsUnknownCpuCodeErr, "lumStsUnknownCpuCodeErr"},
        {lumStsNoIntersectRoiWarn, "lumStsNoIntersectRoiWarn"},
        {lumStsNoIntersectQuadWarn, "lumStsNoIntersectQuadWarn"},
        {lumStsCpuNotSupportedErr, "lumStsCpuNotSupportedErr"},
        {lumStsCacheSizeUnknownWarn, "lumStsCacheSizeUnknownWarn"},
    };
    for (const auto &n : names)
        if (n.code == status)
            return n.name;
    return "unknown status";
}

std::string status_text(LumStatus status)
{
    return std::to_string(status) + " (" + status_name(status) + ")";
}

namespace {

// Per dispatch index: the processor code that forces it (with the same
// feature mask the automatic choice applies) and the features it needs.
struct IndexCode {
    int32_t code;
    Lum64u needs;
};
const IndexCode kIndexCodes[6] = {
    {-1, 0},                            // index 0: no code forces it
    {0, LUM_CPU_SSE3},                  // m7
    {33, LUM_CPU_SSSE3},                // SSSE3
    {36, LUM_CPU_SSSE3},                // SSSE3, low-power flag
    {38, LUM_CPU_SSE41},                // y8
    {73, LUM_CPU_AVX | LUM_CPU_AVX_OS}, // e9
};

} // namespace

bool is_tier_name(const std::string &tier)
{
    return tier == "m7" || tier == "n8" || tier == "u8" || tier == "y8" || tier == "e9";
}

int tier_index(const EntryRow &row, const std::string &tier)
{
    for (int i = 1; i < 6; ++i)
        if (row.slots[i] && tier == row.slots[i])
            return i;
    return -1;
}

bool force_index(const Library &lib, int index, std::string *err)
{
    Lum64u features = 0;
    if (lib.get_cpu_features(&features, nullptr) != lumStsNoErr ||
        (features & kIndexCodes[index].needs) != kIndexCodes[index].needs) {
        *err = "this processor cannot run dispatch index " + std::to_string(index);
        return false;
    }
    LumStatus st = lib.init_cpu(kIndexCodes[index].code);
    if (st != lumStsNoErr) {
        *err = "lumInitCpu(" + std::to_string(kIndexCodes[index].code) + ") returned " +
               status_text(st);
        return false;
    }
    return true;
}

std::string serving_tier(const Library &lib, const std::string &name)
{
    const EntryRow *row = find_entry(name);
    int index = lib.jump_index ? *lib.jump_index : -1;
    if (!row || !row->slots[0] || index < 0 || index > 5)
        return current_tier(lib);
    return row->slots[index];
}

std::string current_tier(const Library &lib)
{
    if (!lib.version)
        return "?";
    const LumLibraryVersion *v = lib.version();
    return std::string(v->targetCpu, strnlen(v->targetCpu, 4));
}

} // namespace cli
