/* A stand-in library for the command's tests: it exports what the lumi
 * command resolves at load, and serves no primitive by name. */
#include "lumi.h"

void *GetProcAddressForSo(const char *name)
{
    (void)name;
    return 0;
}

LumStatus lumInitCpu(int32_t code)
{
    (void)code;
    return lumStsNoErr;
}

LumStatus lumGetCpuFeatures(Lum64u *pFeatures, Lum32u *pRegs)
{
    (void)pRegs;
    *pFeatures = 0;
    return lumStsNoErr;
}
