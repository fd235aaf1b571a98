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
 * pixels a round: three 16-byte loads, and per plane three byte shuffles
 * ORed into one 16-byte store.  Aligned loads and stores when every pointer
 * and both steps are multiples of 16, then streamed past the cache too when
 * a contiguous region of more than 1 Mi pixels has six times its pixel count
 * above the cache size (lumGetMaxCacheSizeB).
 *
 * Merge, m7: single pixels until the destination is 4-aligned, then four
 * pixels as three 32-bit stores, streamed when the image is above 1 MiB.
 * Merge, n8, y8 and e9: single pixels until the destination is 16-aligned,
 * then 16-pixel rounds of three loads, nine shuffles and three stores.  For
 * rows of 512 pixels and more the cache size is read; above half of it the
 * rounds stream from the first 64-aligned destination on.
 *
 * Streaming paths end with one store fence.  u8 serves neither primitive.
 */
#include "owncopy8u.h"

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

#if LUMI_TIER_LEVEL >= LUMI_TIER_SSSE3

/* Shuffle masks.  Split: mask[p][k] picks, from the k-th 16-byte load of 48
   interleaved bytes, the bytes of plane p into their pixel positions, zero
   elsewhere.  Merge: mask[k][p] places the pixels of plane p that fall in
   output vector k.  Three shuffles ORed make one plane or one output. */
struct Masks {
    alignas(16) Lum8u m[3][3][16];
};

constexpr Masks split_masks()
{
    Masks t{};
    for (int p = 0; p < 3; ++p)
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < 16; ++i) {
                const int j = 3 * i + p - 16 * k; // byte of pixel i, plane p, in load k
                t.m[p][k][i] = (Lum8u)(j >= 0 && j < 16 ? j : 0x80);
            }
    return t;
}

constexpr Masks merge_masks()
{
    Masks t{};
    for (int k = 0; k < 3; ++k)
        for (int p = 0; p < 3; ++p)
            for (int i = 0; i < 16; ++i) {
                const int j = 16 * k + i; // output byte
                t.m[k][p][i] = (Lum8u)(j % 3 == p ? j / 3 : 0x80);
            }
    return t;
}

constexpr Masks kSplit = split_masks();
constexpr Masks kMerge = merge_masks();

inline __m128i pick(__m128i v, const Lum8u *mask)
{
    return _mm_shuffle_epi8(v, _mm_load_si128((const __m128i *)mask));
}

inline __m128i gather3(__m128i a, __m128i b, __m128i c, const Lum8u (*mask)[16])
{
    return _mm_or_si128(_mm_or_si128(pick(a, mask[0]), pick(b, mask[1])), pick(c, mask[2]));
}

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

#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41

/* 16 pixels: 48 interleaved bytes to 16 bytes of each plane. */
template <bool Aligned>
inline Trio split16(const Lum8u *s)
{
    const __m128i a = ld16<Aligned>(s), b = ld16<Aligned>(s + 16), c = ld16<Aligned>(s + 32);
    return {{gather3(a, b, c, kSplit.m[0]), gather3(a, b, c, kSplit.m[1]), gather3(a, b, c, kSplit.m[2])}};
}

#if LUMI_TIER_LEVEL >= LUMI_TIER_AVX

/* e9: 32 pixels a pass with fewer shuffles.  The 96 bytes come in as three
   256-bit loads; a lane blend and one lane swap regroup them as A = loads
   a of both rounds, B = loads b, C = loads c.  In a 16-byte load, plane p
   lies in a at positions q = p (mod 3), in b at q = p + 2, in c at q = p + 1;
   those classes never overlap, so 256-bit ANDs and ORs gather each plane's
   bytes of both rounds in one register (float-domain logic, which AVX has
   at 256 bits), and one byte shuffle per round puts them in pixel order.
   The shuffle units, which bound the 16-pixel round, do a third of the
   work here. */
struct ByteClasses {
    alignas(32) Lum8u cls[3][32];   /* 0xff at positions of class c, both lanes */
    alignas(16) Lum8u order[3][16]; /* pixel i of plane p from position (3i + p) mod 16 */
    alignas(16) Lum8u spread[3][16]; /* merge: position q of plane p gets the pixel that
                                        output vector (p - q) mod 3 wants there */
};

constexpr ByteClasses byte_classes()
{
    ByteClasses t{};
    for (int c = 0; c < 3; ++c)
        for (int q = 0; q < 16; ++q) {
            t.cls[c][q] = t.cls[c][q + 16] = (Lum8u)(q % 3 == c ? 0xff : 0);
            t.order[c][q] = (Lum8u)((3 * q + c) & 15);
            t.spread[c][q] = (Lum8u)((16 * (((c - q) % 3 + 3) % 3) + q) / 3);
        }
    return t;
}

constexpr ByteClasses kSplitClasses = byte_classes();

inline __m256 cls(int c) { return _mm256_load_ps((const float *)kSplitClasses.cls[c]); }

/* x at class 0, y at class 1, z at class 2. */
inline __m256 by_class(__m256 x, __m256 y, __m256 z)
{
    return _mm256_or_ps(_mm256_or_ps(_mm256_and_ps(x, cls(0)), _mm256_and_ps(y, cls(1))),
                        _mm256_and_ps(z, cls(2)));
}

template <bool Aligned, bool Stream>
inline void store_plane32(Lum8u *d, __m256 v, int p)
{
    const __m128i order = _mm_load_si128((const __m128i *)kSplitClasses.order[p]);
    const __m128i lo = _mm_shuffle_epi8(_mm_castps_si128(_mm256_castps256_ps128(v)), order);
    const __m128i hi = _mm_shuffle_epi8(_mm_castps_si128(_mm256_extractf128_ps(v, 1)), order);
    st16x<Aligned, Stream>(d, lo);
    st16x<Aligned, Stream>(d + 16, hi);
}

template <bool Aligned, bool Stream>
inline void split32(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2)
{
    const __m256 y0 = _mm256_loadu_ps((const float *)s);        /* a1 | b1 */
    const __m256 y1 = _mm256_loadu_ps((const float *)(s + 32)); /* c1 | a2 */
    const __m256 y2 = _mm256_loadu_ps((const float *)(s + 64)); /* b2 | c2 */
    const __m256 a = _mm256_blend_ps(y0, y1, 0xf0);
    const __m256 b = _mm256_permute2f128_ps(y0, y2, 0x21);
    const __m256 c = _mm256_blend_ps(y1, y2, 0xf0);
    store_plane32<Aligned, Stream>(d0, by_class(a, c, b), 0);
    store_plane32<Aligned, Stream>(d1, by_class(b, a, c), 1);
    store_plane32<Aligned, Stream>(d2, by_class(c, b, a), 2);
}

/* The merge backwards: each plane's 32 bytes shuffled per round so that
   every byte sits at the position and round of its output; then output k
   takes class c from plane (k + c) mod 3, and three lane swaps pair the six
   16-byte outputs into three 256-bit stores. */
inline __m256 spread_plane(const Lum8u *s, int p)
{
    const __m256 v = _mm256_loadu_ps((const float *)s);
    const __m128i m = _mm_load_si128((const __m128i *)kSplitClasses.spread[p]);
    const __m128i lo = _mm_shuffle_epi8(_mm_castps_si128(_mm256_castps256_ps128(v)), m);
    const __m128i hi = _mm_shuffle_epi8(_mm_castps_si128(_mm256_extractf128_ps(v, 1)), m);
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_castsi128_ps(lo)), _mm_castsi128_ps(hi), 1);
}

inline void merge32(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d)
{
    const __m256 x = spread_plane(s0, 0), y = spread_plane(s1, 1), z = spread_plane(s2, 2);
    const __m256 o0 = by_class(x, y, z), o1 = by_class(y, z, x), o2 = by_class(z, x, y);
    _mm256_storeu_ps((float *)d, _mm256_permute2f128_ps(o0, o1, 0x20));
    _mm256_storeu_ps((float *)(d + 32), _mm256_permute2f128_ps(o2, o0, 0x30));
    _mm256_storeu_ps((float *)(d + 64), _mm256_permute2f128_ps(o1, o2, 0x31));
}

#endif

template <bool Aligned, bool Stream>
void split_row16(const Lum8u *s, Lum8u *d0, Lum8u *d1, Lum8u *d2, isz n)
{
    isz x = 0;
#if LUMI_TIER_LEVEL >= LUMI_TIER_AVX
    for (; x + 32 <= n; x += 32)
        split32<Aligned, Stream>(s + 3 * x, d0 + x, d1 + x, d2 + x);
#endif
    for (; x + 16 <= n; x += 16) {
        Lum8u *const d[3] = {d0 + x, d1 + x, d2 + x};
        store_trio<Aligned, Stream>(d, split16<Aligned>(s + 3 * x));
    }
    split_pixels(s + 3 * x, d0 + x, d1 + x, d2 + x, n - x);
}

#endif

/* 16 pixels: 16 bytes of each plane to 48 interleaved bytes. */
template <bool AlignedLoad>
inline Trio merge16(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2)
{
    const __m128i a = ld16<AlignedLoad>(s0), b = ld16<AlignedLoad>(s1), c = ld16<AlignedLoad>(s2);
    return {{gather3(a, b, c, kMerge.m[0]), gather3(a, b, c, kMerge.m[1]), gather3(a, b, c, kMerge.m[2])}};
}

/* Merge rounds from pixel x while 16 remain, into a 16-aligned destination;
   returns the next pixel.  stop_at64 ends early at the first 64-aligned
   destination (the start of a streamed run). */
template <bool AlignedLoad, bool Stream>
isz merge_rounds(const Lum8u *s0, const Lum8u *s1, const Lum8u *s2, Lum8u *d, isz x, isz n,
                 bool stop_at64 = false)
{
#if LUMI_TIER_LEVEL >= LUMI_TIER_AVX
    if (!Stream && !stop_at64)
        for (; x + 32 <= n; x += 32)
            merge32(s0 + x, s1 + x, s2 + x, d + 3 * x);
#endif
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

#if LUMI_TIER_LEVEL <= LUMI_TIER_SSSE3

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

#if LUMI_TIER_LEVEL == LUMI_TIER_SSE3

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
#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41
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
#if LUMI_TIER_LEVEL == LUMI_TIER_SSE3
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
    if (!image || !planes || !planes[0] || !planes[1] || !planes[2])
        return lumStsNullPtrErr;
    if (roi.width < 1 || roi.height < 1)
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
