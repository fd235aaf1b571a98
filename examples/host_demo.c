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
    printf("largest cache: %d bytes (status %d)\n", cache, st);

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
    freeImage(img);
    dlclose(lib);
    return 0;
}
