/*
 * Vector fills and copies: lumsZero_8u, lumsZero_32f, lumsSet_32f and
 * lumsCopy_32f, members of every tier for the image families.
 *
 * A fill writes a four-byte pattern (all zero for the zero fills, the 32 bits
 * of the value for lumsSet_32f, never touched by float arithmetic, so a NaN
 * keeps its payload).  Below 16 bytes it goes byte by byte; otherwise the
 * head up to a 16-byte boundary by 1/2/4/8-byte pieces, then 64-byte blocks
 * of aligned stores, then the tail.  The pattern is kept in phase with the
 * address, so a destination that is not 4-aligned is filled correctly too.
 *
 * Beyond a size the blocks are written past the cache (non-temporal stores,
 * one fence at the end).  When, by tier:
 *   zero, m7..y8   above 512 KiB after the head, and at least the cache size
 *                  of the kernels' own descriptor table;
 *   zero, e9       above 2 MiB and above the size from lumGetMaxCacheSizeB;
 *   set, m7..y8    above 256 Ki elements and above a quarter of the cache
 *                  (in elements against bytes);
 *   set, e9        from 2 MiB + 1 byte, a 4-aligned destination, and above
 *                  the size from lumGetMaxCacheSizeB.
 * The copy is the plain byte copy of the image family on one row, with its
 * own thresholds (see ownsCopy_8u below).  Every path gives the same bytes.
 */
#include "owncopy8u.h"
#include "checks.h"

namespace LUMI_NS {
namespace {

/* pat[i] is the byte for an address equal to i modulo 16 (32 bytes, so a
   piece of up to 16 bytes can be read from any phase). */
struct Pattern {
    alignas(16) Lum8u b[32];
};

inline Pattern make_pattern(const void *dst, Lum32u bits)
{
    Pattern p;
    const unsigned phase = (unsigned)((uintptr_t)dst & 3);
    for (unsigned i = 0; i < 32; ++i)
        p.b[i] = (Lum8u)(bits >> (8 * ((i - phase) & 3)));
    return p;
}

inline void fill_piece(Lum8u *d, isz n, const Pattern &p)
{
    memcpy(d, p.b + ((uintptr_t)d & 15), (size_t)n);
}

template <bool Stream>
void fill_blocks(Lum8u *d, isz n, const Pattern &p)
{
    const __m128i v = ld16a(p.b);
    for (; n >= 64; n -= 64, d += 64) {
        st16<Stream>(d, v);
        st16<Stream>(d + 16, v);
        st16<Stream>(d + 32, v);
        st16<Stream>(d + 48, v);
    }
    if (n & 32) { st16<Stream>(d, v); st16<Stream>(d + 16, v); d += 32; }
    if (n & 16) { st16<Stream>(d, v); d += 16; }
    if (n & 8) { fill_piece(d, 8, p); d += 8; }
    if (n & 4) { fill_piece(d, 4, p); d += 4; }
    if (n & 2) { fill_piece(d, 2, p); d += 2; }
    if (n & 1)
        fill_piece(d, 1, p);
    if (Stream)
        _mm_sfence();
}

/* Fills n bytes with the pattern; wants_stream sees the length left after
   the head and decides on the non-temporal stores. */
template <typename WantsStream>
void fill_bytes(Lum8u *d, isz n, Lum32u bits, WantsStream wants_stream)
{
    const Pattern p = make_pattern(d, bits);
    if (n < 16) {
        for (isz i = 0; i < n; ++i)
            d[i] = p.b[(uintptr_t)(d + i) & 15];
        return;
    }
    const isz head = to_align(d, 16);
    for (isz piece = 1; piece < 16; piece <<= 1)
        if (head & piece) {
            fill_piece(d, piece, p);
            d += piece;
        }
    n -= head;
    if (wants_stream(n))
        fill_blocks<true>(d, n, p);
    else
        fill_blocks<false>(d, n, p);
}

/* A positive cache size from lumGetMaxCacheSizeB, or 0. */
inline int64_t service_cache_size()
{
    int32_t size = 0;
    return lumGetMaxCacheSizeB(&size) == lumStsNoErr && size > 0 ? size : 0;
}

/* When each fill goes past the cache: total is the whole length in bytes,
   rest what is left after the head. */
inline bool zero_streams(isz total, isz rest)
{
#if LUMI_HAS_AVX
    if (total <= 0x200000)
        return false;
    const int64_t cache = service_cache_size();
    return cache > 0 && cache < total;
#else
    if (rest <= 0x80000)
        return false;
    const int64_t cache = packed_cache_size();
    return cache > 0 && rest >= cache;
#endif
}

inline bool set_streams(const void *dst, isz elements)
{
#if LUMI_HAS_AVX
    const isz bytes = 4 * elements;
    if (bytes < 0x200001 || ((uintptr_t)dst & 3))
        return false;
    const int64_t cache = service_cache_size();
    return cache > 0 && cache < bytes;
#else
    if (elements <= 0x40000)
        return false;
    const int64_t cache = packed_cache_size();
    return cache > 0 && 4 * elements > cache;
#endif
}

void ownsZero_8u(Lum8u *d, isz n)
{
    fill_bytes(d, n, 0, [n](isz rest) { return zero_streams(n, rest); });
}

void ownsSet_32s(Lum32u bits, Lum8u *d, isz elements)
{
    fill_bytes(d, 4 * elements, bits, [d, elements](isz) { return set_streams(d, elements); });
}

/* The vector copy: past the cache from 512 KiB (m7), above 128 KiB (n8) or
   from 1 MiB (the others), when also at least half the cache (above half in
   n8); m7, u8 and y8 and e9 touch each block first, n8 does not. */
inline bool copy_streams(isz n)
{
#if LUMI_IS_M7
    const bool big = n >= 0x80000;
#elif LUMI_IS_N8
    const bool big = n > 0x20000;
#else
    const bool big = n >= 0x100000;
#endif
    if (!big)
        return false;
    const int64_t cache = packed_cache_size();
#if LUMI_IS_N8
    return cache > 0 && 2 * n > cache;
#else
    return cache > 0 && 2 * n >= cache;
#endif
}

inline void copy_past_cache(Lum8u *d, const Lum8u *s, isz n)
{
#if LUMI_IS_N8
    stream_row_nt64(d, s, n);
#else
    stream_row_touch(d, s, n);
#endif
    _mm_sfence();
}

inline void copy_in_cache(Lum8u *d, const Lum8u *s, isz n)
{
#if LUMI_IS_M7
    m7_row(d, s, n, false);
#elif LUMI_IS_N8
    medium_row_n8(d, s, n);
#else
    if (n < 64)
        short_row(d, s, n);
    else
        medium_row(d, s, n, kGuardVector);
#endif
}

void ownsCopy_8u(const Lum8u *s, Lum8u *d, isz n)
{
    if (copy_streams(n))
        copy_past_cache(d, s, n);
    else
        copy_in_cache(d, s, n);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumsZero_8u)(Lum8u *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    LUMI_NS::ownsZero_8u(pDst, len);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumsZero_32f)(Lum32f *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    LUMI_NS::ownsZero_8u((Lum8u *)pDst, 4 * (int64_t)len);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumsSet_32f)(Lum32f val, Lum32f *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    Lum32u bits;
    memcpy(&bits, &val, 4);
    LUMI_NS::ownsSet_32s(bits, (Lum8u *)pDst, len);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumsCopy_32f)(const Lum32f *pSrc, Lum32f *pDst, int32_t len)
{
    if (LUMI_NS::any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!LUMI_NS::len_positive(len))
        return lumStsSizeErr;
    LUMI_NS::ownsCopy_8u((const Lum8u *)pSrc, (Lum8u *)pDst, 4 * (int64_t)len);
    return lumStsNoErr;
}
