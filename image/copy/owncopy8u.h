/*
 * Byte-copy building blocks of a tier, shared by the plain image copies and
 * the vector copies of the signal kernels.  Everything here has internal
 * linkage inside the tier's namespace, so each tier keeps its own code.
 *
 * A copy is split into pieces that each do one thing:
 *   - moves of a fixed size (a single load and store each);
 *   - tail_bits: a piece below 128 bytes, by the bits of its length;
 *   - short_row: a row below 64 bytes, 32/16/8/4 bytes from the front, then
 *     the last odd bytes from the end;
 *   - blocks64_fwd / blocks64_bwd: 64-byte blocks into a 16-aligned
 *     destination, loads aligned when the source is, stores cached or
 *     non-temporal;
 *   - medium_row: the in-cache row, destination aligned by one unaligned
 *     16-byte move, then blocks, with a direction guard (below);
 *   - stream_row_touch: the out-of-cache row in 256 KiB blocks, each block's
 *     source first touched line by line, then written past the cache;
 *   - stream_row_nt64: out of cache without the touch pass.
 * Every piece gives the same bytes; only speed differs.  The regions must
 * not overlap.  Non-temporal pieces leave the store fence to their caller.
 *
 * Direction guard: when the low twelve address bits of source and
 * destination stand a little apart in one order, the loads of a forward pass
 * would meet the previous block's stores in the processor's 4 KiB alias
 * check and stall; such a row is copied from its end instead.
 */
#ifndef LUMI_OWNCOPY8U_H
#define LUMI_OWNCOPY8U_H

#include <immintrin.h>
#include <string.h>

#include "lumcore_internal.h"
#include "tier.h"

namespace LUMI_NS {
namespace {

typedef int64_t isz;

template <size_t N>
inline void mv(Lum8u *d, const Lum8u *s)
{
    memcpy(d, s, N);
}

inline bool aligned_to(const void *p, uintptr_t a) { return ((uintptr_t)p & (a - 1)) == 0; }
inline bool aligned16(const void *p) { return aligned_to(p, 16); }
inline isz to_align(const void *p, uintptr_t a) { return (isz)((a - ((uintptr_t)p & (a - 1))) & (a - 1)); }

inline __m128i ld16u(const Lum8u *s) { return _mm_loadu_si128((const __m128i *)s); }
inline __m128i ld16a(const Lum8u *s) { return _mm_load_si128((const __m128i *)s); }
inline void st16u(Lum8u *d, __m128i v) { _mm_storeu_si128((__m128i *)d, v); }

template <bool Stream>
inline void st16(Lum8u *d, __m128i v)
{
    if (Stream)
        _mm_stream_si128((__m128i *)d, v);
    else
        _mm_store_si128((__m128i *)d, v);
}

/* A piece below 128 bytes, front to back by the bits of its length. */
inline void tail_bits(Lum8u *d, const Lum8u *s, isz n)
{
    if (n & 64) { mv<32>(d, s); mv<32>(d + 32, s + 32); d += 64; s += 64; }
    if (n & 32) { mv<32>(d, s); d += 32; s += 32; }
    if (n & 16) { mv<16>(d, s); d += 16; s += 16; }
    if (n & 8) { mv<8>(d, s); d += 8; s += 8; }
    if (n & 4) { mv<4>(d, s); d += 4; s += 4; }
    if (n & 2) { mv<2>(d, s); d += 2; s += 2; }
    if (n & 1)
        *d = *s;
}

/* The last n (< 64) bytes before dEnd, from the end downward. */
inline void tail_bits_down(Lum8u *dEnd, const Lum8u *sEnd, isz n)
{
    if (n & 1) { dEnd -= 1; sEnd -= 1; *dEnd = *sEnd; }
    if (n & 2) { dEnd -= 2; sEnd -= 2; mv<2>(dEnd, sEnd); }
    if (n & 4) { dEnd -= 4; sEnd -= 4; mv<4>(dEnd, sEnd); }
    if (n & 8) { dEnd -= 8; sEnd -= 8; mv<8>(dEnd, sEnd); }
    if (n & 16) { dEnd -= 16; sEnd -= 16; mv<16>(dEnd, sEnd); }
    if (n & 32) { dEnd -= 32; sEnd -= 32; mv<32>(dEnd, sEnd); }
}

/* A row below 64 bytes: whole words from the front, odd bytes from the end. */
inline void short_row(Lum8u *d, const Lum8u *s, isz n)
{
    isz i = 0;
    if (n & 32) { mv<32>(d, s); i += 32; }
    if (n & 16) { mv<16>(d + i, s + i); i += 16; }
    if (n & 8) { mv<8>(d + i, s + i); i += 8; }
    if (n & 4) { mv<4>(d + i, s + i); i += 4; }
    for (isz k = n - 1; k >= i; --k)
        d[k] = s[k];
}

template <bool AlignedSrc, bool Stream>
inline void blocks64_loop(Lum8u *d, const Lum8u *s, isz nblk)
{
    for (isz b = 0; b < nblk; ++b, d += 64, s += 64) {
        const __m128i a0 = AlignedSrc ? ld16a(s) : ld16u(s);
        const __m128i a1 = AlignedSrc ? ld16a(s + 16) : ld16u(s + 16);
        const __m128i a2 = AlignedSrc ? ld16a(s + 32) : ld16u(s + 32);
        const __m128i a3 = AlignedSrc ? ld16a(s + 48) : ld16u(s + 48);
        st16<Stream>(d, a0);
        st16<Stream>(d + 16, a1);
        st16<Stream>(d + 32, a2);
        st16<Stream>(d + 48, a3);
    }
}

/* nblk 64-byte blocks into a 16-aligned destination. */
template <bool Stream>
inline void blocks64_fwd(Lum8u *d, const Lum8u *s, isz nblk)
{
    if (aligned16(s))
        blocks64_loop<true, Stream>(d, s, nblk);
    else
        blocks64_loop<false, Stream>(d, s, nblk);
}

/* nblk 64-byte blocks from the last down to the first; both sides 16-aligned. */
inline void blocks64_bwd(Lum8u *d, const Lum8u *s, isz nblk)
{
    for (isz b = nblk - 1; b >= 0; --b) {
        const Lum8u *sb = s + 64 * b;
        Lum8u *db = d + 64 * b;
        const __m128i a3 = ld16a(sb + 48), a2 = ld16a(sb + 32);
        const __m128i a1 = ld16a(sb + 16), a0 = ld16a(sb);
        st16<false>(db + 48, a3);
        st16<false>(db + 32, a2);
        st16<false>(db + 16, a1);
        st16<false>(db, a0);
    }
}

/* Which guard: the image copies test source minus destination, the vector
   copy destination minus source; both pick the same rows. */
enum GuardSense { kGuardImage, kGuardVector };

inline bool copy_downward(const Lum8u *s, const Lum8u *d, GuardSense sense)
{
    const int lo = (int)((uintptr_t)s & 0xfff) - (int)((uintptr_t)d & 0xfff);
    if (sense == kGuardImage)
        return lo >= 0xf60 || (lo >= -160 && lo < 0);
    return (lo > 0 && lo <= 0xa0) || lo <= -0xf60;
}

/* Brings the destination of a piece of at least 16 bytes to a 16-byte
   boundary by one unaligned 16-byte move; the next block rewrites the
   overlap with the same bytes. */
inline void align_dst16(Lum8u *&d, const Lum8u *&s, isz &n)
{
    const isz head = to_align(d, 16);
    if (head) {
        mv<16>(d, s);
        d += head;
        s += head;
        n -= head;
    }
}

/* An in-cache row of at least 64 bytes. */
inline void medium_row(Lum8u *d, const Lum8u *s, isz n, GuardSense sense)
{
    align_dst16(d, s, n);
    const isz nblk = n >> 6, rest = n & 63;
    if (aligned16(s) && copy_downward(s, d, sense)) {
        tail_bits_down(d + n, s + n, rest);
        blocks64_bwd(d, s, nblk);
        return;
    }
    blocks64_fwd<false>(d, s, nblk);
    tail_bits(d + 64 * nblk, s + 64 * nblk, rest);
}

/* Reads one byte of each 64-byte line so the block is in cache before the
   streaming stores, which then never wait on memory for their loads. */
inline void touch_lines(const Lum8u *s, isz n)
{
    unsigned acc = 0;
    for (isz i = 0; i < n; i += 64)
        acc += s[i];
    __asm__ volatile("" ::"r"(acc));
}

enum { kTouchBlock = 0x40000 };

/* An out-of-cache row: 256 KiB blocks, touched then streamed. */
inline void stream_row_touch(Lum8u *d, const Lum8u *s, isz n)
{
    for (; n > 0 && !aligned16(d); --n)
        *d++ = *s++;
    while (n > 0) {
        const isz block = n >= kTouchBlock ? (isz)kTouchBlock : n;
        touch_lines(s, block & ~(isz)63);
        const isz nblk = block >> 6;
        blocks64_fwd<true>(d, s, nblk);
        d += 64 * nblk;
        s += 64 * nblk;
        n -= 64 * nblk;
        if (block < kTouchBlock) {
            for (; n >= 16; n -= 16, d += 16, s += 16)
                st16<true>(d, ld16u(s));
            for (; n > 0; --n)
                *d++ = *s++;
        }
    }
}

/* An out-of-cache row without the touch pass: destination to 64 bytes,
   then streamed 64-byte blocks. */
inline void stream_row_nt64(Lum8u *d, const Lum8u *s, isz n)
{
    isz head = to_align(d, 64);
    if (head > n)
        head = n;
    tail_bits(d, s, head);
    d += head;
    s += head;
    n -= head;
    const isz nblk = n >> 6;
    blocks64_fwd<true>(d, s, nblk);
    tail_bits(d + 64 * nblk, s + 64 * nblk, n & 63);
}

/* The n8 in-cache row: alignment by 1/2/4/8-byte moves, blocks only for 128
   bytes and more. */
inline void medium_row_n8(Lum8u *d, const Lum8u *s, isz n)
{
    if (n >= 16) {
        const isz head = to_align(d, 16);
        tail_bits(d, s, head);
        d += head;
        s += head;
        n -= head;
        if (n >= 128) {
            const isz nblk = n >> 6;
            blocks64_fwd<false>(d, s, nblk);
            d += 64 * nblk;
            s += 64 * nblk;
            n &= 63;
        }
    }
    tail_bits(d, s, n);
}

/* The m7 row: one unaligned 16-byte move to align the destination, 64-byte
   blocks cached or streamed (closed by a fence), then the tail. */
inline void m7_row(Lum8u *d, const Lum8u *s, isz n, bool stream)
{
    if (n >= 64) {
        align_dst16(d, s, n);
        const isz nblk = n >> 6;
        if (stream) {
            blocks64_fwd<true>(d, s, nblk);
            _mm_sfence();
        } else {
            blocks64_fwd<false>(d, s, nblk);
        }
        d += 64 * nblk;
        s += 64 * nblk;
        n &= 63;
    }
    tail_bits(d, s, n);
}

/* The largest cache by the kernels' own descriptor table, or 0 if unknown. */
inline int64_t packed_cache_size()
{
    const int32_t size = ownGetCacheSizePacked(TableCacheSize);
    return size > 0 ? size : 0;
}

} // namespace
} // namespace LUMI_NS

#endif
