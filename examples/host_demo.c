/*
 * A host as the library expects one: load liblumi.so, resolve
 * GetProcAddressForSo, then ask it for each primitive by name.
 *
 *   lumi_host_demo [path/to/liblumi.so]
 */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "lumi.h"

/* Each function pointer takes its type from the prototype in lumi.h. */
typedef __typeof__(&GetProcAddressForSo) GetProcFn;
typedef __typeof__(&lumiGetLibVersion) GetLibVersionFn;
typedef __typeof__(&lumGetMaxCacheSizeB) GetCacheFn;
typedef __typeof__(&lumiMalloc_8u_C3) MallocC3Fn;
typedef __typeof__(&lumiFree) FreeFn;

/* The library has no text for its codes; a host names them itself. */
static const char *status_name(LumStatus st)
{
    switch (st) {
    case lumStsNoErr: return "lumStsNoErr";
    case lumStsBadArgErr: return "lumStsBadArgErr";
    case lumStsSizeErr: return "lumStsSizeErr";
    case lumStsNullPtrErr: return "lumStsNullPtrErr";
    case lumStsMemAllocErr: return "lumStsMemAllocErr";
    case lumStsStepErr: return "lumStsStepErr";
    case lumStsMaskSizeErr: return "lumStsMaskSizeErr";
    case lumStsAnchorErr: return "lumStsAnchorErr";
    case lumStsForeignCpuWarn: return "lumStsForeignCpuWarn";
    case lumStsCpuNotSupportedErr: return "lumStsCpuNotSupportedErr";
    case lumStsCacheSizeUnknownWarn: return "lumStsCacheSizeUnknownWarn";
    default: return st < 0 ? "an error" : st > 0 ? "a warning" : "success";
    }
}

int main(int argc, char **argv)
{
    const char *path = argc > 1 ? argv[1] : LUMI_SO_PATH;
    void *lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        fprintf(stderr, "cannot load %s: %s\n", path, dlerror());
        return 1;
    }
    GetProcFn getProc = (GetProcFn)dlsym(lib, "GetProcAddressForSo");
    if (!getProc) {
        fprintf(stderr, "GetProcAddressForSo not found\n");
        return 1;
    }

    GetLibVersionFn getVersion = (GetLibVersionFn)getProc("lumiGetLibVersion");
    const LumLibraryVersion *v = getVersion();
    char tier[5] = {0};
    memcpy(tier, v->targetCpu, 4);
    printf("tier %s: %s %s (%d.%d.%d.%d, %s)\n", tier, v->Name, v->Version, v->major,
           v->minor, v->majorBuild, v->build, v->BuildDate);

    /* lumGetMaxCacheSizeB has no row in the table: hosts take it as a symbol. */
    GetCacheFn getCache = (GetCacheFn)dlsym(lib, "lumGetMaxCacheSizeB");
    int32_t cache = 0;
    LumStatus st = getCache(&cache);
    printf("largest cache: %d bytes (status %d, %s)\n", cache, st, status_name(st));
    /* Positive statuses are not failures.  36 says the processor's maker is not
     * one whose cache data the library reads, 37 that the data named no size;
     * either way the size stays 0 and the copies keep every store in the cache
     * instead of streaming large images past it.  Results are the same. */
    if (st > 0)
        printf("  positive: no cache size on this processor (%s); the library works on,\n"
               "  only its large copies do not stream past the cache\n",
               st == lumStsCpuNotSupportedErr ? "its maker's cache data is not read"
                                              : "its cache data names no size");

    MallocC3Fn mallocC3 = (MallocC3Fn)getProc("lumiMalloc_8u_C3");
    FreeFn freeImage = (FreeFn)getProc("lumiFree");
    int32_t step = 0;
    Lum8u *img = mallocC3(1920, 1080, &step);
    if (!img) {
        fprintf(stderr, "allocation failed\n");
        return 1;
    }
    printf("1920x1080 RGB image at %p, step %d bytes, 32-byte aligned: %s\n", (void *)img, step,
           ((uintptr_t)img % 32) == 0 ? "yes" : "no");
    /* A primitive's status: a 4x3 median is refused, since sides must be odd. */
    __typeof__(&lumiFilterMedian_8u_C3R) median =
        (__typeof__(&lumiFilterMedian_8u_C3R))getProc("lumiFilterMedian_8u_C3R");
    LumiSize roi = {16, 16}, mask = {4, 3};
    LumiPoint anchor = {1, 1};
    st = median(img + 2 * step + 6, step, img, step, roi, mask, anchor);
    printf("lumiFilterMedian_8u_C3R with a 4x3 mask: status %d (%s)\n", st, status_name(st));
    freeImage(img);
    dlclose(lib);
    return 0;
}
