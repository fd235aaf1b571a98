// Loading liblumi.so, the names of its entry table, its status codes, and
// forcing a tier.
#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "lumi_cli.h"

namespace cli {

namespace {

// The directory of the running program, with a trailing slash.
std::string program_dir()
{
    const std::string p = program_path();
    return p.substr(0, p.rfind('/') + 1);
}

} // namespace

std::string program_path()
{
    char buf[4096];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, (size_t)n) : std::string("lumi");
}

bool open_library(const std::string &path, Library *lib, std::string *err)
{
    // A library named by --lib or $LUMI_LIBRARY is the only one tried: when it
    // does not load, that is the error, never a quiet fall back to another.
    std::vector<std::string> tries;
    const char *env = getenv("LUMI_LIBRARY");
    const std::string named = !path.empty() ? path : env && *env ? env : "";
    if (!named.empty()) {
        tries.push_back(named);
    } else {
        // Beside the program: the build tree (build/cli/lumi, build/liblumi.so.7)
        // and an installed prefix (bin/lumi, lib/liblumi.so.7); then the loader's path.
        const std::string dir = program_dir();
        for (const std::string &t : {dir + "../" LUMI_SO_NAME, dir + "../" LUMI_LIB_DIR "/" LUMI_SO_NAME})
            if (access(t.c_str(), R_OK) == 0)
                tries.push_back(t);
        tries.push_back(LUMI_SO_NAME);
    }
    std::string why;
    for (const std::string &t : tries) {
        lib->handle = dlopen(t.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib->handle)
            break;
        why = dlerror();
    }
    if (!lib->handle) {
        *err = !path.empty()      ? "cannot load the library given by --lib: " + why
               : !named.empty() ? "cannot load $LUMI_LIBRARY: " + why
                                : "cannot load the library: " + why;
        return false;
    }
    struct link_map *map = nullptr;
    if (dlinfo(lib->handle, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name) {
        char *real = realpath(map->l_name, nullptr);
        lib->path = real ? real : map->l_name;
        free(real);
    }
    lib->get_proc = (GetProcFn)dlsym(lib->handle, "GetProcAddressForSo");
    lib->init_cpu = (decltype(&lumInitCpu))dlsym(lib->handle, "lumInitCpu");
    lib->get_cpu_features = (decltype(&lumGetCpuFeatures))dlsym(lib->handle, "lumGetCpuFeatures");
    lib->jump_index = (int32_t *)dlsym(lib->handle, "lumJumpIndexForMergedLibs");
    if (!lib->get_proc || !lib->init_cpu || !lib->get_cpu_features) {
        *err = "the library does not export GetProcAddressForSo, lumInitCpu and lumGetCpuFeatures";
        return false;
    }
    lib->version = LUMI_CLI_PROC(*lib, lumiGetLibVersion);
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

// Per dispatch index: the processor code that forces it and the features it
// needs, from the library's public list.
struct IndexCode {
    int index;
    int32_t code;
    Lum64u needs;
};
const IndexCode kIndexCodes[] = {
#define LUMI_CLI_INDEX_CODE(index, code, features, label) {index, code, features},
    LUMI_DISPATCH_INDEX_LIST(LUMI_CLI_INDEX_CODE)
#undef LUMI_CLI_INDEX_CODE
};

const IndexCode *index_code(int index)
{
    for (const IndexCode &c : kIndexCodes)
        if (c.index == index)
            return &c;
    return nullptr;
}

} // namespace

bool is_tier_name(const std::string &tier)
{
#define LUMI_CLI_TIER_NAME(prefix, level, lowest) \
    if (tier == #prefix)                          \
        return true;
    LUMI_TIER_LIST(LUMI_CLI_TIER_NAME)
#undef LUMI_CLI_TIER_NAME
    return false;
}

int tier_index(const EntryRow &row, const std::string &tier)
{
    for (const IndexCode &c : kIndexCodes)
        if (row.slots[c.index] && tier == row.slots[c.index])
            return c.index;
    return -1;
}

bool force_index(const Library &lib, int index, std::string *err)
{
    const IndexCode *c = index_code(index);
    Lum64u features = 0;
    if (!c || lib.get_cpu_features(&features, nullptr) != lumStsNoErr ||
        (features & c->needs) != c->needs) {
        *err = "this processor cannot run dispatch index " + std::to_string(index);
        return false;
    }
    LumStatus st = lib.init_cpu(c->code);
    if (st != lumStsNoErr) {
        *err = "lumInitCpu(" + std::to_string(c->code) + ") returned " + status_text(st);
        return false;
    }
    return true;
}

std::string serving_tier(const Library &lib, const std::string &name)
{
    const EntryRow *row = find_entry(name);
    int index = lib.jump_index ? *lib.jump_index : -1;
    if (!row || !row->slots[0] || index < 0 || index >= LUMI_DISPATCH_INDEX_COUNT)
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
