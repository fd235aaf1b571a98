/* A program of another project that links liblumi from an installed prefix,
 * found through pkg-config or find_package(Lumi): it calls one primitive
 * through its exported dispatcher and one through the entry table, and checks
 * the library's version against the one it was built for. */
#include <stdio.h>
#include <string.h>

#include <lumi.h>

int main(void)
{
    const LumLibraryVersion *v = lumiGetLibVersion();
    printf("lumi %d.%d.%d.%d, tier %.2s\n", v->major, v->minor, v->majorBuild, v->build,
           v->targetCpu);
    if (v->major != EXPECTED_MAJOR)
        return 1;

    /* A 3x3 median of a 5x5 picture whose centre is an outlier. */
    Lum8u src[25], dst[9];
    memset(src, 10, sizeof src);
    src[12] = 200;
    __typeof__(&lumiFilterMedian_8u_C1R) median =
        (__typeof__(&lumiFilterMedian_8u_C1R))GetProcAddressForSo("lumiFilterMedian_8u_C1R");
    if (!median)
        return 2;
    LumiSize roi = {3, 3}, mask = {3, 3};
    LumiPoint anchor = {1, 1};
    LumStatus st = median(src + 6, 5, dst, 3, roi, mask, anchor);
    if (st != lumStsNoErr || dst[4] != 10)
        return 3;
    printf("median ok\n");
    return 0;
}
