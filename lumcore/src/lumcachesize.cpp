/*
 * The largest cache of the processor, worked out once and cached with its
 * status (failures are cached too).  Leaf 4 gives every cache's geometry;
 * processors that stop at leaf 2 or 3 are read through the descriptor bytes
 * of leaf 2 and tableCache, which falls by size so the first hit is largest.
 *
 * Threads: there is no lock.  Two threads that both come first work out the
 * same size and status and store them again; every access to the two words
 * is atomic so this is no data race.  The status is stored after the size
 * with release order and read with acquire order, so a thread that sees a
 * settled status also sees its size (plain moves on x86-64).
 */
#include "lumcore_internal.h"

extern "C" {

int32_t ownStatus = 1; /* 1: not worked out yet */
int32_t cacheSize = 0;

const LumCacheRow tableCache[] = {
    {0xEC, 25165824}, {0xEB, 18874368}, {0x4D, 16777216}, {0xEA, 12582912},
    {0x4C, 12582912}, {0xE4, 8388608},  {0xDE, 8388608},  {0x4B, 8388608},
    {0x47, 8388608},  {0x4E, 6291456},  {0x4A, 6291456},  {0xE3, 4194304},
    {0xDD, 4194304},  {0xD8, 4194304},  {0x49, 4194304},  {0x29, 4194304},
    {0x46, 4194304},  {0x48, 3145728},  {0xE2, 2097152},  {0xDC, 2097152},
    {0xD7, 2097152},  {0xD2, 2097152},  {0x25, 2097152},  {0x7D, 2097152},
    {0x85, 2097152},  {0x45, 2097152},  {0xD6, 1048576},  {0xD1, 1048576},
    {0x23, 1048576},  {0x87, 1048576},  {0x7C, 1048576},  {0x78, 1048576},
    {0x84, 1048576},  {0x44, 1048576},  {0xD0, 524288},   {0x22, 524288},
    {0x7B, 524288},   {0x80, 524288},   {0x86, 524288},   {0x3E, 524288},
    {0x7F, 524288},   {0x83, 524288},   {0x43, 524288},   {0x3D, 393216},
    {0x21, 262144},   {0x7A, 262144},   {0x82, 262144},   {0x3C, 262144},
    {0x3F, 262144},   {0x42, 262144},   {0x3A, 196608},   {0x79, 131072},
    {0x39, 131072},   {0x3B, 131072},   {0x41, 131072},   {0, 0},
};

/* Reads the descriptor bytes of CPUID leaf 2 into bytes[0..15] and returns
   how many of them the table walks compare (from index count down to 1), or
   0 when leaf 2 does not answer 1 in its low byte or names nothing.
   Registers with bit 31 set carry no descriptors.  The others are laid out
   four bytes each; EAX counts three, since its low byte is the 1 tested. */
static int ownReadCacheDescriptors(uint8_t bytes[16])
{
    uint32_t r[4];
    ownCpuid(2, 0, r);
    if ((r[0] & 0xffu) != 1)
        return 0;
    int written = 0;
    int count = 0;
    for (int i = 0; i < 4; ++i) {
        const uint32_t reg = (r[i] & 0x80000000u) ? 0 : r[i];
        if (reg == 0)
            continue;
        for (int b = 0; b < 4; ++b)
            bytes[written + b] = (uint8_t)(reg >> (8 * b));
        written += 4;
        count += (i == 0) ? 3 : 4;
    }
    return count;
}

static bool ownDescribed(const uint8_t bytes[16], int count, uint8_t key)
{
    for (int i = count; i >= 1; --i)
        if (bytes[i] == key)
            return true;
    return false;
}

int32_t ownGetCacheSize(const LumCacheRow *pTable)
{
    uint8_t bytes[16] = {0};
    const int count = ownReadCacheDescriptors(bytes);
    if (count == 0)
        return -1;
    for (const LumCacheRow *row = pTable; row->key != 0; ++row)
        if (ownDescribed(bytes, count, (uint8_t)row->key))
            return (int32_t)row->size;
    return -1;
}

/* The copy and fill kernels' own table: one entry in 16 bits, the leaf 2
   descriptor in the low byte and the size in the high byte as a 4-bit
   multiplier over a 4-bit exponent, size = multiplier << (exponent + 18).
   It holds the rows of tableCache that this packing can express, less the
   sectored second-level caches, in the same falling order. */
#define LUM_PACKED(key, mult, exp) (Lum16u)(((mult) << 12) | ((exp) << 8) | (key))
const Lum16u TableCacheSize[] = {
    LUM_PACKED(0xEC, 12, 3), LUM_PACKED(0xEB, 9, 3),  LUM_PACKED(0x4D, 8, 3),
    LUM_PACKED(0xEA, 12, 2), LUM_PACKED(0x4C, 12, 2), LUM_PACKED(0xE4, 8, 2),
    LUM_PACKED(0xDE, 8, 2),  LUM_PACKED(0x4B, 8, 2),  LUM_PACKED(0x47, 8, 2),
    LUM_PACKED(0x4E, 12, 1), LUM_PACKED(0x4A, 12, 1), LUM_PACKED(0xE3, 8, 1),
    LUM_PACKED(0xDD, 8, 1),  LUM_PACKED(0xD8, 8, 1),  LUM_PACKED(0x49, 8, 1),
    LUM_PACKED(0x29, 8, 1),  LUM_PACKED(0x46, 8, 1),  LUM_PACKED(0x48, 12, 0),
    LUM_PACKED(0xE2, 8, 0),  LUM_PACKED(0xDC, 8, 0),  LUM_PACKED(0xD7, 8, 0),
    LUM_PACKED(0xD2, 8, 0),  LUM_PACKED(0x25, 8, 0),  LUM_PACKED(0x7D, 8, 0),
    LUM_PACKED(0x85, 8, 0),  LUM_PACKED(0x45, 8, 0),  LUM_PACKED(0xD6, 4, 0),
    LUM_PACKED(0xD1, 4, 0),  LUM_PACKED(0x23, 4, 0),  LUM_PACKED(0x87, 4, 0),
    LUM_PACKED(0x78, 4, 0),  LUM_PACKED(0x84, 4, 0),  LUM_PACKED(0x44, 4, 0),
    LUM_PACKED(0xD0, 2, 0),  LUM_PACKED(0x22, 2, 0),  LUM_PACKED(0x80, 2, 0),
    LUM_PACKED(0x86, 2, 0),  LUM_PACKED(0x7F, 2, 0),  LUM_PACKED(0x83, 2, 0),
    LUM_PACKED(0x43, 2, 0),  LUM_PACKED(0x21, 1, 0),  LUM_PACKED(0x82, 1, 0),
    LUM_PACKED(0x42, 1, 0),  0,
};
#undef LUM_PACKED

int32_t ownGetCacheSizePacked(const Lum16u *pTable)
{
    if (!lum_is_CorvaneChips())
        return -1;
    uint8_t bytes[16] = {0};
    const int count = ownReadCacheDescriptors(bytes);
    if (count == 0)
        return -1;
    for (const Lum16u *row = pTable; *row != 0; ++row)
        if (ownDescribed(bytes, count, (uint8_t)*row))
            return (int32_t)((uint32_t)(*row >> 12) << (((*row >> 8) & 0xf) + 18));
    return -1;
}

LUMI_API LumStatus lumGetMaxCacheSizeB(int32_t *pSize)
{
    if (!pSize)
        return lumStsNullPtrErr;
    const int32_t settled = __atomic_load_n(&ownStatus, __ATOMIC_ACQUIRE);
    if (settled != 1) {
        *pSize = __atomic_load_n(&cacheSize, __ATOMIC_RELAXED);
        return settled;
    }
    int32_t status;
    int32_t size = 0;
    int maxLeaf = 0;
    if (!lum_has_cpuid() || (maxLeaf = lum_max_cpuid_input()) < 2 || !lum_is_CorvaneChips()) {
        status = lumStsCpuNotSupportedErr;
    } else if (maxLeaf >= 4) {
        int32_t largest = 0;
        for (uint32_t sub = 0; sub < 32; ++sub) {
            uint32_t r[4];
            ownCpuid(4, sub, r);
            const uint32_t type = r[0] & 0x1f;
            if (type == 0)
                break;
            if (type == 2)
                continue;
            const uint32_t ways = (r[1] >> 22) + 1;
            const uint32_t partitions = ((r[1] >> 12) & 0x3ff) + 1;
            const uint32_t line = (r[1] & 0xfff) + 1;
            const int32_t bytes = (int32_t)(ways * partitions * line * (r[2] + 1));
            if (bytes > largest)
                largest = bytes;
        }
        size = largest;
        status = largest != 0 ? lumStsNoErr : lumStsCacheSizeUnknownWarn;
    } else {
        const int32_t found = ownGetCacheSize(tableCache);
        if (found >= 0) {
            size = found;
            status = lumStsNoErr;
        } else {
            status = lumStsCacheSizeUnknownWarn;
        }
    }
    __atomic_store_n(&cacheSize, size, __ATOMIC_RELAXED);
    __atomic_store_n(&ownStatus, status, __ATOMIC_RELEASE);
    *pSize = size;
    return status;
}
}
