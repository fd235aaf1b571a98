/*
 * Plain byte-image copies: lumiCopy_8u_C1R and lumiCopy_8u_C3R, members of
 * every tier for the filter families (no dispatcher).  A C3 row is 3*width
 * bytes and both go through one kernel with the row's byte length.
 *
 * The result is the region byte for byte; bytes between the region and the
 * step are never touched.  Steps are taken as given (zero or negative too).
 * What differs between tiers is only how the bytes move:
 *
 *   m7   one row at a time; 64-byte blocks, streamed past the cache (with a
 *        fence per row) when the whole region is above 1 MiB.
 *   n8   rows below 64 bytes by the short path; regions above 128 KiB that
 *        are also above half the cache (by the kernels' own descriptor
 *        table) stream in 64-byte blocks; the rest stays in cache.
 *   u8, y8  as n8, with the out-of-cache path from 1 MiB and at least half
 *        the cache, in touched 256 KiB blocks, and the in-cache path with the
 *        direction guard.
 *   e9   rows of 1024 bytes and more stream when twice the region exceeds
 *        both 4 MiB and the cache size of lumGetMaxCacheSizeB; everything
 *        else goes through 256-bit moves in cache.
 *
 * A region whose two steps equal its row length is one contiguous run and
 * is copied as a single row (32-bit length in m7, 64-bit elsewhere).
 * Non-temporal paths end with a store fence.
 */
#include "owncopy8u.h"

#include "checks.h"

namespace LUMI_NS {
namespace {

/* Merges a contiguous region into one row. */
inline void flatten(int64_t srcStep, int64_t dstStep, int64_t &rowBytes, int64_t &height)
{
    if (srcStep == rowBytes && dstStep == rowBytes) {
        rowBytes *= height;
        height = 1;
    }
}

#if LUMI_HAS_AVX

inline void mv32y(Lum8u *d, const Lum8u *s)
{
    _mm256_storeu_si256((__m256i *)d, _mm256_loadu_si256((const __m256i *)s));
}

/* 64-byte blocks of 256-bit moves while n allows, two blocks a pass (the
   loop then keeps four loads in flight); streamed stores need a 32-aligned
   destination. */
template <bool Stream>
inline void move64y(Lum8u *d, const Lum8u *s)
{
    const __m256i a = _mm256_loadu_si256((const __m256i *)s);
    const __m256i b = _mm256_loadu_si256((const __m256i *)(s + 32));
    if (Stream) {
        _mm256_stream_si256((__m256i *)d, a);
        _mm256_stream_si256((__m256i *)(d + 32), b);
    } else {
        _mm256_storeu_si256((__m256i *)d, a);
        _mm256_storeu_si256((__m256i *)(d + 32), b);
    }
}

template <bool Stream>
inline void blocks64_y(Lum8u *&d, const Lum8u *&s, isz &n)
{
    for (; n >= 128; n -= 128, d += 128, s += 128) {
        move64y<Stream>(d, s);
        move64y<Stream>(d + 64, s + 64);
    }
    if (n >= 64) {
        move64y<Stream>(d, s);
        d += 64;
        s += 64;
        n -= 64;
    }
}

/* In-cache row with 256-bit moves: short rows by the bits of the length,
   longer ones aligned to 16 and moved in 64-byte blocks. */
inline void e9_row(Lum8u *d, const Lum8u *s, isz n)
{
    if (n >= 128) {
        align_dst16(d, s, n);
        blocks64_y<false>(d, s, n);
    }
    if (n & 64) { mv32y(d, s); mv32y(d + 32, s + 32); d += 64; s += 64; }
    if (n & 32) { mv32y(d, s); d += 32; s += 32; }
    tail_bits(d, s, n & 31);
}

/* Out-of-cache row: one unaligned 64-byte move, then streamed 64-byte blocks
   from the next 64-aligned destination, then the tail. */
inline void e9_stream_row(Lum8u *d, const Lum8u *s, isz n)
{
    const isz head = to_align(d, 64);
    if (head) {
        mv32y(d, s);
        mv32y(d + 32, s + 32);
        d += head;
        s += head;
        n -= head;
    }
    blocks64_y<true>(d, s, n);
    tail_bits(d, s, n);
}

#endif

/* The tier's copy of height rows of rowBytes bytes. */
void copy_rows(const Lum8u *s, int64_t srcStep, Lum8u *d, int64_t dstStep, int64_t rowBytes,
               int64_t height)
{
#if LUMI_HAS_AVX
    bool stream = false;
    if (rowBytes >= 1024) {
        const int64_t twice = 2 * rowBytes * height;
        int32_t cache = 0;
        stream = twice > 0x400000 && lumGetMaxCacheSizeB(&cache) == lumStsNoErr && twice > cache &&
                 rowBytes >= 128;
    }
    flatten(srcStep, dstStep, rowBytes, height);
    for (int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep) {
        if (stream)
            e9_stream_row(d, s, rowBytes);
        else
            e9_row(d, s, rowBytes);
    }
    if (stream)
        _mm_sfence();
#elif LUMI_IS_M7
    const bool stream = rowBytes * height > 0x100000;
    if (srcStep == rowBytes && dstStep == rowBytes) {
        rowBytes = (uint32_t)(rowBytes * height);
        height = 1;
    }
    for (int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep)
        m7_row(d, s, rowBytes, stream);
#else
    flatten(srcStep, dstStep, rowBytes, height);
    const int64_t total = rowBytes * height;
    /* n8 streams from above 128 KiB and above half the cache; u8 and y8 from
       1 MiB and at least half the cache. */
    const bool n8 = LUMI_IS_N8;
    bool stream = false;
    if (rowBytes >= 64 && (n8 ? total > 0x20000 : total >= 0x100000)) {
        const int64_t cache = packed_cache_size();
        stream = cache > 0 && (n8 ? 2 * total > cache : 2 * total >= cache);
    }
    for (int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep) {
        if (rowBytes < 64)
            short_row(d, s, rowBytes);
        else if (stream && n8)
            stream_row_nt64(d, s, rowBytes);
        else if (stream)
            stream_row_touch(d, s, rowBytes);
        else if (n8)
            medium_row_n8(d, s, rowBytes);
        else
            medium_row(d, s, rowBytes, kGuardImage);
    }
    if (stream)
        _mm_sfence();
#endif
}

LumStatus copy_image(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                     LumiSize roiSize, int64_t channels)
{
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(roiSize))
        return lumStsSizeErr;
    copy_rows(pSrc, srcStep, pDst, dstStep, channels * roiSize.width, roiSize.height);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_C1R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                              int32_t dstStep, LumiSize roiSize)
{
    return LUMI_NS::copy_image(pSrc, srcStep, pDst, dstStep, roiSize, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                              int32_t dstStep, LumiSize roiSize)
{
    return LUMI_NS::copy_image(pSrc, srcStep, pDst, dstStep, roiSize, 3);
}
