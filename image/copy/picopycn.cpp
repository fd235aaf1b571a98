/*
 * Plane copies: lumiCopy_8u_C3P3R splits an interleaved three-channel image
 * into three planes, lumiCopy_8u_P3C3R merges three planes into one image:
 * pDst[c][y*dstStep + x] = pSrc[y*srcStep + 3*x + c] and the reverse.  The
 * three planes share one step.  Bytes are moved, never changed, and nothing
 * outside the region is written.
 *
 * A region is contiguous when the interleaved step is three plane steps and
 * the plane step is the width; it is then handled as one long row.
 *
 * Split, m7 and n8: a key from the low three address bits of the source and
 * of all planes picks the kernel.  Keys 0, 4 and 64 (source and planes 8- or
 * 4-aligned) run eight pixels a round over the whole row; any other key goes
 * plane by plane, single pixels until the plane is 4-aligned, then eight
 * pixels as two 32-bit stores.  A contiguous region stays row by row when it
 * is 160000 bytes or more and a pointer is not 4-aligned.
 * Split, y8 and e9: rows below 16 pixels by single pixels.  Otherwise 16
 * pixels a round: four loads of four whole pixels each, one byte shuffle
 * per load and a word transpose, one 16-byte store per plane.  Aligned
 * stores when every pointer and both steps are multiples of 16, then
 * streamed past the cache too when a contiguous region of more than 1 Mi
 * pixels has six times its pixel count above the cache size
 * (lumGetMaxCacheSizeB).
 *
 * Merge, m7: single pixels until the destination is 4-aligned, then four
 * pixels as three 32-bit stores, streamed when the image is above 1 MiB.
 * Merge, n8, y8 and e9: single pixels until the destination is 16-aligned,
 * then 16-pixel rounds of three loads, two unpacks, six byte shuffles and
 * three stores.  For rows of 512 pixels and more the cache size is read;
 * above half of it the rounds stream from the first 64-aligned destination
 * on.
 *
 * Streaming paths end with one store fence.  u8 serves neither primitive.
 */
#include "owncopy8u.h"

#include "checks.h"

#if !LUMI_TIER_U8

namespace LUMI_NS {
namespace {

inline void split_pixels(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2, isz n)
{
    for (isz x = 0; x < n; ++x, s += 3) {
        d0[x] = s[0];
        d1[x] = s[1];
        d2[x] = s[2];
    }
}

inline void merge_pixels(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d, isz n)
{
    for (isz x = 0; x < n; ++x, d += 3) {
        d[0] = s0[x];
        d[1] = s1[x];
        d[2] = s2[x];
    }
}

/* Steps in bytes for both sides, widened, and whether the region is one run. */
struct PlaneRegion {
    int64_t width, height, step3, step1;
    bool contiguous() const { return step3 == 3 * step1 && step1 == width; }
    void flatten()
    {
        width *= height;
        height = 1;
    }
};

#if LUMI_HAS_SSSE3

template <bool Aligned>
inline __m128i ld16(const Lum8u *s)
{
    return Aligned ? ld16a(s) : ld16u(s);
}

template <bool Aligned, bool Stream>
inline void st16x(Lum8u *d, __m128i v)
{
    if (Aligned)
        st16<Stream>(d, v);
    else
        st16u(d, v);
}

/* The three 16-byte results of one 16-pixel round. */
struct Trio {
    __m128i v[3];
};

/* Stores a round. */
template <bool Aligned, bool Stream>
inline void store_trio(Lum8u *const d[3], const Trio &t)
{
    for (int k = 0; k < 3; ++k)
        st16x<Aligned, Stream>(d[k], t.v[k]);
}

/* Masks of a 16-pixel round.  Pixel i, channel c sits at byte 3i + c of
   the 48 interleaved bytes.

   Merge: the first two planes are interleaved byte by byte (unpack, which
   is cheap on every processor), giving pixel pairs for pixels 0-7 (lo),
   4-11 (mid, the middle halves of lo and hi) and 8-15 (hi).  Output vector
   k needs pixels 5k/3 to (5k + 15)/3 only, so it is one byte shuffle of lo,
   mid or hi for channels 0 and 1, ORed with one byte shuffle of the third
   plane for channel 2.
     pair[k]:  from pair vector k, 0x80 where the third plane goes;
     third[k]: from the third plane, 0x80 elsewhere.

   Split: every 12 bytes hold four whole pixels.  Four loads, at bytes 0,
   12, 24 and 32 of the round (the last one so as not to read past it),
   each shuffled to the pixels' three channels as three 32-bit words (R, G,
   B, unused), make a 4x4 word matrix whose transpose (unpacks, cheap) has
   the planes as rows.
     group[0]: four pixels from bytes 0-11 of a load;
     group[1]: from bytes 4-15 (the last load). */
struct RoundMasks {
    alignas(16) Lum8u pair[3][16];
    alignas(16) Lum8u third[3][16];
    alignas(16) Lum8u group[2][16];
};

constexpr RoundMasks round_masks()
{
    RoundMasks t{};
    for (int k = 0; k < 3; ++k)
        for (int q = 0; q < 16; ++q) {
            const int byte = 16 * k + q, pixel = byte / 3, channel = byte % 3;
            t.pair[k][q] = (Lum8u)(channel < 2 ? 2 * (pixel - 4 * k) + channel : 0x80);
            t.third[k][q] = (Lum8u)(channel == 2 ? pixel : 0x80);
        }
    for (int g = 0; g < 2; ++g)
        for (int q = 0; q < 16; ++q) /* word q/4 is channel q/4, byte q%4 is pixel q%4 */
            t.group[g][q] = (Lum8u)(q < 12 ? 4 * g + 3 * (q % 4) + q / 4 : 0x80);
    return t;
}

constexpr RoundMasks kRound = round_masks();

inline __m128i pick(__m128i v, const Lum8u *mask)
{
    return _mm_shuffle_epi8(v, _mm_load_si128((const __m128i *)mask));
}

/* 16 pixels: 16 bytes of each plane to 48 interleaved bytes. */
template <bool AlignedLoad>
inline Trio merge16(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2)
{
    const __m128i a = ld16<AlignedLoad>(s0), b = ld16<AlignedLoad>(s1), c = ld16<AlignedLoad>(s2);
    const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
    const __m128i mid = _mm_castps_si128(
        _mm_shuffle_ps(_mm_castsi128_ps(lo), _mm_castsi128_ps(hi), _MM_SHUFFLE(1, 0, 3, 2)));
    return {{_mm_or_si128(pick(lo, kRound.pair[0]), pick(c, kRound.third[0])),
             _mm_or_si128(pick(mid, kRound.pair[1]), pick(c, kRound.third[1])),
             _mm_or_si128(pick(hi, kRound.pair[2]), pick(c, kRound.third[2]))}};
}

#if LUMI_HAS_SSE41

/* 16 pixels: 48 interleaved bytes to 16 bytes of each plane. */
inline Trio split16(const Lum8u *s)
{
    const __m128i q0 = pick(ld16u(s), kRound.group[0]);      /* R0-3 G0-3 B0-3 - */
    const __m128i q1 = pick(ld16u(s + 12), kRound.group[0]); /* R4-7 G4-7 B4-7 - */
    const __m128i q2 = pick(ld16u(s + 24), kRound.group[0]);
    const __m128i q3 = pick(ld16u(s + 32), kRound.group[1]);
    const __m128i rg01 = _mm_unpacklo_epi32(q0, q1), rg23 = _mm_unpacklo_epi32(q2, q3);
    const __m128i b01 = _mm_unpackhi_epi32(q0, q1), b23 = _mm_unpackhi_epi32(q2, q3);
    return {{_mm_unpacklo_epi64(rg01, rg23), _mm_unpackhi_epi64(rg01, rg23), _mm_unpacklo_epi64(b01, b23)}};
}

template <bool Aligned, bool Stream>
void split_row16(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2, isz n)
{
    isz x = 0;
    for (; x + 16 <= n; x += 16) {
        Lum8u *const d[3] = {d0 + x, d1 + x, d2 + x};
        /* touching a line well ahead measured faster for the unaligned
           loads, in cache and out, and 4 KiB ahead (a page) more so than
           1 KiB when the source comes from memory; a prefetch never faults,
           even past the image */
        _mm_prefetch((const char *)(s + 3 * x + 4096), _MM_HINT_T0);
        store_trio<Aligned, Stream>(d, split16(s + 3 * x));
    }
    split_pixels(s + 3 * x, d0 + x, d1 + x, d2 + x, n - x);
}

#endif

/* Merge rounds from pixel x while 16 remain, into a 16-aligned destination;
   returns the next pixel.  stop_at64 ends early at the first 64-aligned
   destination (the start of a streamed run). */
template <bool AlignedLoad, bool Stream>
isz merge_rounds(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d, isz x, isz n,
                 bool stop_at64 = false)
{
    for (; x + 16 <= n && !(stop_at64 && aligned_to(d + 3 * x, 64)); x += 16) {
        Lum8u *const o[3] = {d + 3 * x, d + 3 * x + 16, d + 3 * x + 32};
        store_trio<true, Stream>(o, merge16<AlignedLoad>(s0 + x, s1 + x, s2 + x));
    }
    return x;
}

/* A merged row: head pixels to a 16-aligned destination, then rounds, cached
   until the destination is 64-aligned when streaming, then the rest. */
void merge_row16(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d, isz n, bool stream)
{
    /* 3*k = -d (mod 16) has the solution k = 11*(-d) mod 16. */
    isz x = (isz)((11 * to_align(d, 16)) & 15);
    if (x > n)
        x = n;
    merge_pixels(s0, s1, s2, d, x);
    if (stream) {
        x = merge_rounds<false, false>(s0, s1, s2, d, x, n, true);
        x = merge_rounds<false, true>(s0, s1, s2, d, x, n);
    } else if (aligned16(s0 + x) && aligned16(s1 + x) && aligned16(s2 + x)) {
        x = merge_rounds<true, false>(s0, s1, s2, d, x, n);
    } else {
        x = merge_rounds<false, false>(s0, s1, s2, d, x, n);
    }
    merge_pixels(s0 + x, s1 + x, s2 + x, d + 3 * x, n - x);
}

#endif

#if !LUMI_HAS_SSE41

/* Eight pixels of a split: 24 bytes to 8 bytes of each plane, stored as
   Piece-byte words (8 when the planes are 8-aligned, 4 when 4-aligned). */
template <int Piece>
inline void split_round8(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2)
{
    Lum8u *d[3] = {d0, d1, d2};
    for (int c = 0; c < 3; ++c) {
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i)
            v |= (uint64_t)s[3 * i + c] << (8 * i);
        for (int k = 0; k < 8; k += Piece)
            memcpy(d[c] + k, (const Lum8u *)&v + k, Piece);
    }
}

template <int Piece>
void split_row8(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2, isz n)
{
    isz x = 0;
    for (; x + 8 <= n; x += 8)
        split_round8<Piece>(s + 3 * x, d0 + x, d1 + x, d2 + x);
    split_pixels(s + 3 * x, d0 + x, d1 + x, d2 + x, n - x);
}

/* One plane of a row: single pixels until the plane is 4-aligned, then
   eight pixels as two 32-bit stores, then single pixels. */
void split_plane4(const Lum8u *s, Lum8u *d, isz n)
{
    isz x = to_align(d, 4);
    if (x > n)
        x = n;
    for (isz i = 0; i < x; ++i)
        d[i] = s[3 * i];
    for (; x + 8 <= n; x += 8) {
        Lum32u lo = 0, hi = 0;
        for (int i = 0; i < 4; ++i) {
            lo |= (Lum32u)s[3 * (x + i)] << (8 * i);
            hi |= (Lum32u)s[3 * (x + 4 + i)] << (8 * i);
        }
        memcpy(d + x, &lo, 4);
        memcpy(d + x + 4, &hi, 4);
    }
    for (; x < n; ++x)
        d[x] = s[3 * x];
}

#endif

#if LUMI_IS_M7

/* Four pixels of a merge as three 32-bit words, cached or streamed. */
void merge_row_m7(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d, isz n, bool stream)
{
    isz x = 0;
    for (; x < n && !aligned_to(d + 3 * x, 4); ++x)
        merge_pixels(s0 + x, s1 + x, s2 + x, d + 3 * x, 1);
    for (; x + 4 <= n; x += 4) {
        Lum8u b[12];
        merge_pixels(s0 + x, s1 + x, s2 + x, b, 4);
        for (int k = 0; k < 12; k += 4) {
            int32_t w;
            memcpy(&w, b + k, 4);
            if (stream)
                _mm_stream_si32((int *)(d + 3 * x + k), w);
            else
                memcpy(d + 3 * x + k, &w, 4);
        }
    }
    merge_pixels(s0 + x, s1 + x, s2 + x, d + 3 * x, n - x);
}

#endif

/* The tier's split of a checked region. */
void split(const Lum8u *s, Lum8u *const *pDst, PlaneRegion r)
{
    Lum8u *d0 = pDst[0], *d1 = pDst[1], *d2 = pDst[2];
#if LUMI_HAS_SSE41
    if (r.width < 16) {
        for (int64_t y = 0; y < r.height; ++y)
            split_pixels(s + y * r.step3, d0 + y * r.step1, d1 + y * r.step1, d2 + y * r.step1,
                         r.width);
        return;
    }
    bool stream = false;
    if (r.contiguous()) {
        r.flatten();
        int32_t cache = 0;
        stream = r.width >= 0x100001 && lumGetMaxCacheSizeB(&cache) == lumStsNoErr &&
                 6 * r.width > cache;
    }
    const bool aligned = aligned16(s) && aligned16(d0) && aligned16(d1) && aligned16(d2) &&
                         r.step3 % 16 == 0 && r.step1 % 16 == 0;
    void (*row)(const Lum8u *, Lum8u *, Lum8u *, Lum8u *, isz) =
        !aligned ? split_row16<false, false> : stream ? split_row16<true, true> : split_row16<true, false>;
#else
    const int key = (int)((uintptr_t)s & 7) * 16 | (int)(((uintptr_t)d0 | (uintptr_t)d1 | (uintptr_t)d2) & 7);
    if (r.contiguous() && !(r.step3 * r.height >= 160000 && (key & 0x33)))
        r.flatten();
    void (*row)(const Lum8u *, Lum8u *, Lum8u *, Lum8u *, isz) =
        key == 0 || key == 64 ? split_row8<8> : key == 4 ? split_row8<4> : nullptr;
    if (!row) {
        for (int64_t y = 0; y < r.height; ++y)
            for (int c = 0; c < 3; ++c)
                split_plane4(s + y * r.step3 + c, pDst[c] + y * r.step1, r.width);
        return;
    }
    const bool stream = false;
#endif
    for (int64_t y = 0; y < r.height; ++y)
        row(s + y * r.step3, d0 + y * r.step1, d1 + y * r.step1, d2 + y * r.step1, r.width);
    if (stream)
        _mm_sfence();
}

/* The tier's merge of a checked region. */
void merge(const Lum8u *const *pSrc, Lum8u *d, PlaneRegion r)
{
    const Lum8u *s0 = pSrc[0], *s1 = pSrc[1], *s2 = pSrc[2];
#if LUMI_IS_M7
    if (r.contiguous())
        r.flatten();
    const bool stream = 3 * r.width * r.height > 0x100000;
    for (int64_t y = 0; y < r.height; ++y)
        merge_row_m7(s0 + y * r.step1, s1 + y * r.step1, s2 + y * r.step1, d + y * r.step3,
                     r.width, stream);
#else
    int32_t cache = 0;
    if (r.width >= 512 && lumGetMaxCacheSizeB(&cache) != lumStsNoErr)
        cache = 0;
    if (r.contiguous())
        r.flatten();
    const bool stream = cache > 0 && 2 * 3 * r.width * r.height > cache;
    for (int64_t y = 0; y < r.height; ++y)
        merge_row16(s0 + y * r.step1, s1 + y * r.step1, s2 + y * r.step1, d + y * r.step3,
                    r.width, stream);
#endif
    if (stream)
        _mm_sfence();
}

/* Null pointers first (image, array, planes 0 to 2), then the size. */
LumStatus check_planes(const void *image, const void *const *planes, LumiSize roi)
{
    if (any_null(image) || any_null_plane(planes))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_C3P3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *const pDst[3],
                                             int32_t dstStep, LumiSize roiSize)
{
    const LumStatus st = LUMI_NS::check_planes(pSrc, (const void *const *)pDst, roiSize);
    if (st != lumStsNoErr)
        return st;
    LUMI_NS::split(pSrc, pDst, {roiSize.width, roiSize.height, srcStep, dstStep});
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumiCopy_8u_P3C3R)(const Lum8u *const pSrc[3], int32_t srcStep, Lum8u *pDst,
                                             int32_t dstStep, LumiSize roiSize)
{
    const LumStatus st = LUMI_NS::check_planes(pDst, (const void *const *)pSrc, roiSize);
    if (st != lumStsNoErr)
        return st;
    LUMI_NS::merge(pSrc, pDst, {roiSize.width, roiSize.height, dstStep, srcStep});
    return lumStsNoErr;
}

#endif
