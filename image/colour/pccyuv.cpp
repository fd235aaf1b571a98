/*
 * RGB <-> YUV conversion of 8-bit images, interleaved and planar.
 *
 * The weights are the classic analogue ones (Y = .299 R + .587 G + .114 B,
 * U = .492 (B - Y), V = .877 (R - Y)), in fixed point throughout.  A row is
 * split in two parts that use different arithmetic, so a pixel's value can
 * depend on its column:
 *
 *  - the body, the row's width rounded down to the primitive's round, runs in
 *    16-bit lanes.  Every product keeps only the high half of its 32-bit
 *    product (hi(a, b) = (a * b) >> 16), so each one is floored by itself;
 *    sums saturate at 16 bits, then a shift, and the pack to bytes clamps to
 *    0..255.  No table.
 *  - the tail, the pixels left over, runs one pixel at a time in 32-bit
 *    integers with 16.16 weights and clamps through the `chop` table.  Its
 *    weights are not the body's: Y's green weight is 38470 (38469 in the
 *    body), chroma is scaled from B - Y and R - Y, and the inverse rounds the
 *    whole sum once instead of each product.
 *
 * Rounds of the body: RGBToYUV C3R 16 pixels, RGBToYUV C3P3R 8, YUVToRGB C3R
 * 8, YUVToRGB P3C3R 16.  The body walks 16-pixel blocks and, where the round is
 * 8, ends with one 8-pixel block; a pixel's value depends only on whether it
 * lies in the body, never on the block that computes it.  The planar inverse
 * has constants one nearer zero than the interleaved one and works on chroma
 * scaled by 16 with a final halving, against 8 and no halving.
 *
 * Every tier computes the same bytes with the same constants.  Tiers differ
 * only in how bytes travel between the interleaved layout and 16-bit lanes:
 * SSSE3 and up use byte shuffles; the SSE3 build moves pixels as 32-bit
 * words with unpacks, shifts and masks.  n8 and u8 run the same code.
 * Blocks load and store unaligned and never touch a byte outside the row.
 * Column offsets are pointer-width: 3 * x passes 32 bits in rows of more
 * than 715 million pixels.
 */
#include "tier.h"

#include <emmintrin.h>
#include <stddef.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

#include "checks.h"

namespace LUMI_NS {
namespace {

/* ------------------------------------------------------------ the tail -- */

/* chop[370 + i] = i clamped to 0..255, for the tail's sums. */
struct ChopTable {
    Lum8u v[1000];
};
constexpr ChopTable make_chop()
{
    ChopTable t{};
    for (int i = 0; i < 1000; ++i)
        t.v[i] = (Lum8u)(i < 370 ? 0 : i > 370 + 255 ? 255 : i - 370);
    return t;
}
constexpr ChopTable chop = make_chop();
constexpr int kChopZero = 370;

/* One pixel RGB -> YUV with 16.16 weights.  U needs no clamp: its sum stays
 * within -128..127, so the wrapped byte equals the sum plus 128. */
inline void rgb_to_yuv_tail(const Lum8u *rgb, Lum8u *y, Lum8u *u, Lum8u *v)
{
    const int32_t r = rgb[0], g = rgb[1], b = rgb[2];
    const int32_t s = 19595 * r + 38470 * g + 7471 * b;
    const int32_t tv = ((r << 16) - s + 32767) >> 16;
    const int32_t tu = ((b << 16) - s + 32767) >> 16;
    *y = (Lum8u)(s >> 16);
    *v = chop.v[kChopZero + 128 + ((tv * 57475) >> 16)];
    *u = (Lum8u)(((tu * 32244) >> 16) - 128);
}

/* 16.16 weights of the inverse tail, on U - 128 and V - 128. */
struct TailWeights {
    int32_t rv, gu, gv, bu;
};
constexpr TailWeights kTailC3 = {74711, -25821, -38076, 133169};
constexpr TailWeights kTailP3 = {74710, -25820, -38075, 133168};

inline void yuv_to_rgb_tail(int32_t y, int32_t u, int32_t v, const TailWeights &w, Lum8u *rgb)
{
    const int32_t y16 = y << 16;
    u -= 128;
    v -= 128;
    const Lum8u r = chop.v[kChopZero + ((y16 + w.rv * v) >> 16)];
    const Lum8u g = chop.v[kChopZero + ((y16 + w.gu * u + w.gv * v) >> 16)];
    const Lum8u b = chop.v[kChopZero + ((y16 + w.bu * u) >> 16)];
    rgb[0] = r;
    rgb[1] = g;
    rgb[2] = b;
}

/* ------------------------------------------------- body arithmetic ------ */

inline __m128i k16(int v) { return _mm_set1_epi16((short)v); }

/* Eight pixels RGB -> YUV.  r, g, b hold the bytes shifted left by 8.  Y is
 * final; U and V are the shifted sums before 128 is added (chroma_bytes). */
inline void yuv_lanes(__m128i r, __m128i g, __m128i b, __m128i &y, __m128i &u, __m128i &v)
{
    y = _mm_adds_epu16(_mm_mulhi_epu16(r, k16(19595)), _mm_mulhi_epu16(g, k16(38469)));
    y = _mm_srli_epi16(_mm_adds_epu16(y, _mm_mulhi_epu16(b, k16(7471))), 8);

    const __m128i r7 = _mm_srli_epi16(r, 1), g7 = _mm_srli_epi16(g, 1), b7 = _mm_srli_epi16(b, 1);
    u = _mm_adds_epi16(_mm_mulhi_epi16(r7, k16(-4816)), _mm_mulhi_epi16(g7, k16(-9469)));
    u = _mm_adds_epi16(u, _mm_mulhi_epi16(b7, k16(14286)));
    u = _mm_srai_epi16(u, 6);
    v = _mm_adds_epi16(_mm_mulhi_epi16(r7, k16(20152)), _mm_mulhi_epi16(g7, k16(-16875)));
    v = _mm_adds_epi16(v, _mm_mulhi_epi16(b7, k16(-3276)));
    v = _mm_srai_epi16(v, 6);
}

/* U and V to bytes: clamp(a + 128) in the low eight bytes, clamp(b + 128) in
 * the high eight.  A signed pack clamps to -128..127, and flipping the top bit
 * then adds 128. */
inline __m128i chroma_bytes(__m128i a, __m128i b)
{
    return _mm_xor_si128(_mm_packs_epi16(a, b), _mm_set1_epi8((char)0x80));
}

/* Eight pixels YUV -> RGB for interleaved images: chroma 8 (C - 128). */
inline void rgb_lanes_c3(__m128i y, __m128i u, __m128i v, __m128i &r, __m128i &g, __m128i &b)
{
    u = _mm_subs_epi16(_mm_slli_epi16(u, 3), k16(1024));
    v = _mm_subs_epi16(_mm_slli_epi16(v, 3), k16(1024));
    r = _mm_adds_epi16(y, _mm_mulhi_epi16(v, k16(9339)));
    g = _mm_adds_epi16(_mm_adds_epi16(y, _mm_mulhi_epi16(u, k16(-3228))),
                       _mm_mulhi_epi16(v, k16(-4760)));
    b = _mm_adds_epi16(y, _mm_mulhi_epi16(u, k16(16646)));
}

/* Eight pixels YUV -> RGB from planes: chroma 16 (C - 128), luma doubled,
 * the sum halved. */
inline void rgb_lanes_p3(__m128i y, __m128i u, __m128i v, __m128i &r, __m128i &g, __m128i &b)
{
    u = _mm_subs_epi16(_mm_slli_epi16(u, 4), k16(2048));
    v = _mm_subs_epi16(_mm_slli_epi16(v, 4), k16(2048));
    y = _mm_slli_epi16(y, 1);
    r = _mm_srai_epi16(_mm_adds_epi16(y, _mm_mulhi_epi16(v, k16(9338))), 1);
    g = _mm_adds_epi16(_mm_adds_epi16(y, _mm_mulhi_epi16(u, k16(-3227))),
                       _mm_mulhi_epi16(v, k16(-4759)));
    g = _mm_srai_epi16(g, 1);
    b = _mm_srai_epi16(_mm_adds_epi16(y, _mm_mulhi_epi16(u, k16(16645))), 1);
}

/* ---------------------------------------------- moving bytes to lanes --- */
/*
 * gather16<Shift>(p, lo, hi): channel c of pixels 0..7 of the 16 interleaved
 * pixels at p into lo[c], of pixels 8..15 into hi[c], one pixel per 16-bit
 * lane, each byte shifted left by Shift (0 or 8).  gather8 does pixels 0..7
 * and reads 24 bytes only.
 *
 * scatter16(p, lead, lo, hi) writes 16 interleaved pixels from bytes packed
 * the way the pack instructions give them: lead holds channel 0 of pixels
 * 0..15, lo channels 1 and 2 of pixels 0..7 (eight bytes each), hi the same
 * for pixels 8..15.  With that layout each 16-byte output draws on two or
 * three registers instead of always three.  scatter8 writes pixels 0..7 and
 * does not read hi.
 */

#if LUMI_HAS_SSSE3

/* Which byte of (lead, lo, hi) feeds output byte i of a 16-pixel block, as
 * register * 16 + byte. */
constexpr int scatter_source(int i)
{
    const int pixel = i / 3, c = i % 3;
    if (c == 0)
        return pixel;
    return 16 * (1 + pixel / 8) + 8 * (c - 1) + pixel % 8;
}

/* Byte-shuffle masks, worked out once from the layout: byte i of a block is
 * channel i % 3 of pixel i / 3. */
struct ShuffleMasks {
    alignas(16) Lum8u gather[2][2][3][2][16]; /* [Shift is 8][half][channel][register] */
    alignas(16) Lum8u scatter[3][3][16];      /* [lead, lo, hi][output register] */
};

constexpr ShuffleMasks make_masks()
{
    ShuffleMasks m{};
    for (int high = 0; high < 2; ++high)
        for (int half = 0; half < 2; ++half)
            for (int c = 0; c < 3; ++c)
                for (int reg = 0; reg < 2; ++reg)
                    for (int t = 0; t < 16; ++t) {
                        /* Half h reads registers h and h + 1 of the block. */
                        const int lane = t / 2, pixel = 8 * half + lane;
                        const int at = 3 * pixel + c - 16 * (half + reg);
                        const bool here = (t % 2 == high) && at >= 0 && at < 16;
                        m.gather[high][half][c][reg][t] = here ? (Lum8u)at : 0x80;
                    }
    for (int src = 0; src < 3; ++src)
        for (int reg = 0; reg < 3; ++reg)
            for (int t = 0; t < 16; ++t) {
                const int from = scatter_source(16 * reg + t);
                m.scatter[src][reg][t] = from / 16 == src ? (Lum8u)(from % 16) : 0x80;
            }
    return m;
}
constexpr ShuffleMasks masks = make_masks();

inline __m128i shuffle(__m128i v, const Lum8u *mask)
{
    return _mm_shuffle_epi8(v, _mm_load_si128((const __m128i *)mask));
}

template <int Shift>
inline void gather_half(__m128i a, __m128i b, int half, __m128i out[3])
{
    const auto &g = masks.gather[Shift == 8][half];
    for (int c = 0; c < 3; ++c)
        out[c] = _mm_or_si128(shuffle(a, g[c][0]), shuffle(b, g[c][1]));
}

template <int Shift>
inline void gather16(const Lum8u *p, __m128i lo[3], __m128i hi[3])
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadu_si128((const __m128i *)(p + 16));
    const __m128i v2 = _mm_loadu_si128((const __m128i *)(p + 32));
    gather_half<Shift>(v0, v1, 0, lo);
    gather_half<Shift>(v1, v2, 1, hi);
}

template <int Shift>
inline void gather8(const Lum8u *p, __m128i lo[3])
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadl_epi64((const __m128i *)(p + 16));
    gather_half<Shift>(v0, v1, 0, lo);
}

/* Output register 0 holds pixels 0..5 (lead, lo), 1 pixels 5..10 (all
 * three), 2 pixels 10..15 (lead, hi). */
inline __m128i scatter_two(__m128i a, int ia, __m128i b, int ib, int reg)
{
    return _mm_or_si128(shuffle(a, masks.scatter[ia][reg]), shuffle(b, masks.scatter[ib][reg]));
}

inline void scatter16(Lum8u *p, __m128i lead, __m128i lo, __m128i hi)
{
    const __m128i mid =
        _mm_or_si128(scatter_two(lead, 0, lo, 1, 1), shuffle(hi, masks.scatter[2][1]));
    _mm_storeu_si128((__m128i *)p, scatter_two(lead, 0, lo, 1, 0));
    _mm_storeu_si128((__m128i *)(p + 16), mid);
    _mm_storeu_si128((__m128i *)(p + 32), scatter_two(lead, 0, hi, 2, 2));
}

inline void scatter8(Lum8u *p, __m128i lead, __m128i lo)
{
    _mm_storeu_si128((__m128i *)p, scatter_two(lead, 0, lo, 1, 0));
    _mm_storel_epi64((__m128i *)(p + 16), scatter_two(lead, 0, lo, 1, 1));
}

#else /* SSE3: no byte shuffle */

/* Without a byte shuffle, pixels travel as 32-bit words (c0 c1 c2 x), four
 * to a register; x is whatever byte follows and is never used. */

/* The 16 bytes that start at byte n of the 32 bytes a:b. */
template <int N>
inline __m128i bytes_from(__m128i a, __m128i b)
{
    return _mm_or_si128(_mm_srli_si128(a, N), _mm_slli_si128(b, 16 - N));
}

/* The four pixels of 12 bytes at bytes 0..11 of q as words. */
inline __m128i unpack_pixel_words(__m128i q)
{
    const __m128i p01 = _mm_unpacklo_epi32(q, _mm_srli_si128(q, 3));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_srli_si128(q, 6), _mm_srli_si128(q, 9));
    return _mm_unpacklo_epi64(p01, p23);
}

/* Channel c of eight pixel words in 16-bit lanes, shifted left by Shift. */
template <int Shift>
inline __m128i channel_lanes(__m128i w0, __m128i w1, int c)
{
    const __m128i byte = _mm_set1_epi32(0xFF);
    const __m128i lanes = _mm_packs_epi32(_mm_and_si128(_mm_srli_epi32(w0, 8 * c), byte),
                                          _mm_and_si128(_mm_srli_epi32(w1, 8 * c), byte));
    return Shift ? _mm_slli_epi16(lanes, Shift) : lanes;
}

template <int Shift>
inline void channels_of(__m128i w0, __m128i w1, __m128i out[3])
{
    for (int c = 0; c < 3; ++c)
        out[c] = channel_lanes<Shift>(w0, w1, c);
}

template <int Shift>
inline void gather8(const Lum8u *p, __m128i lo[3])
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadl_epi64((const __m128i *)(p + 16));
    channels_of<Shift>(unpack_pixel_words(v0), unpack_pixel_words(bytes_from<12>(v0, v1)), lo);
}

template <int Shift>
inline void gather16(const Lum8u *p, __m128i lo[3], __m128i hi[3])
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadu_si128((const __m128i *)(p + 16));
    const __m128i v2 = _mm_loadu_si128((const __m128i *)(p + 32));
    channels_of<Shift>(unpack_pixel_words(v0), unpack_pixel_words(bytes_from<12>(v0, v1)), lo);
    channels_of<Shift>(unpack_pixel_words(bytes_from<8>(v1, v2)),
                       unpack_pixel_words(_mm_srli_si128(v2, 4)), hi);
}

/* Pixels as 32-bit words (c0 c1 c2 0): pixels 0..3 of (lead, lo) in q[0],
 * 4..7 in q[1]; of (lead >> 8 bytes, hi) pixels 8..11 and 12..15. */
inline void pixel_words(__m128i lead, __m128i lo, __m128i q[2])
{
    const __m128i c01 = _mm_unpacklo_epi8(lead, lo);
    const __m128i c2 = _mm_unpackhi_epi8(lo, _mm_setzero_si128());
    q[0] = _mm_unpacklo_epi16(c01, c2);
    q[1] = _mm_unpackhi_epi16(c01, c2);
}

/* Four pixel words to 12 bytes at bytes 0..11, zeros after. */
inline __m128i pack_pixel_words(__m128i q)
{
    /* In each 64-bit half, the upper pixel moves down one byte next to the
     * lower, then the upper half's six bytes close up on the lower's. */
    const __m128i lower = _mm_set_epi32(0, 0xFFFFFF, 0, 0xFFFFFF);
    const __m128i upper = _mm_set_epi32(0xFFFF, (int)0xFF000000, 0xFFFF, (int)0xFF000000);
    q = _mm_or_si128(_mm_and_si128(q, lower), _mm_and_si128(_mm_srli_epi64(q, 8), upper));
    return _mm_or_si128(_mm_move_epi64(q), _mm_slli_si128(_mm_srli_si128(q, 8), 6));
}

inline void scatter16(Lum8u *p, __m128i lead, __m128i lo, __m128i hi)
{
    __m128i q[4];
    pixel_words(lead, lo, q);
    pixel_words(_mm_srli_si128(lead, 8), hi, q + 2);
    for (int k = 0; k < 4; ++k)
        q[k] = pack_pixel_words(q[k]);
    /* Twelve bytes per register: the outputs start at bytes 0, 16 and 32. */
    const __m128i first = _mm_or_si128(q[0], _mm_slli_si128(q[1], 12));
    const __m128i mid = _mm_or_si128(_mm_srli_si128(q[1], 4), _mm_slli_si128(q[2], 8));
    const __m128i last = _mm_or_si128(_mm_srli_si128(q[2], 8), _mm_slli_si128(q[3], 4));
    _mm_storeu_si128((__m128i *)p, first);
    _mm_storeu_si128((__m128i *)(p + 16), mid);
    _mm_storeu_si128((__m128i *)(p + 32), last);
}

inline void scatter8(Lum8u *p, __m128i lead, __m128i lo)
{
    __m128i q[2];
    pixel_words(lead, lo, q);
    q[0] = pack_pixel_words(q[0]);
    q[1] = pack_pixel_words(q[1]);
    _mm_storeu_si128((__m128i *)p, _mm_or_si128(q[0], _mm_slli_si128(q[1], 12)));
    _mm_storel_epi64((__m128i *)(p + 16), _mm_srli_si128(q[1], 4));
}

#endif

/* ------------------------------------------------------------ body blocks */

/* RGB -> YUV of 16 interleaved pixels: Y bytes of pixels 0..15, and U|V
 * bytes of pixels 0..7 and 8..15, the layout scatter16 takes. */
inline void yuv_block16(const Lum8u *src, __m128i &y, __m128i &uv_lo, __m128i &uv_hi)
{
    __m128i lo[3], hi[3], y0, u0, v0, y1, u1, v1;
    gather16<8>(src, lo, hi);
    yuv_lanes(lo[0], lo[1], lo[2], y0, u0, v0);
    yuv_lanes(hi[0], hi[1], hi[2], y1, u1, v1);
    y = _mm_packus_epi16(y0, y1);
    uv_lo = chroma_bytes(u0, v0);
    uv_hi = chroma_bytes(u1, v1);
}

/* The same for 8 pixels: Y in the low eight bytes of y, U|V in uv. */
inline void yuv_block8(const Lum8u *src, __m128i &y, __m128i &uv)
{
    __m128i lo[3], u, v;
    gather8<8>(src, lo);
    yuv_lanes(lo[0], lo[1], lo[2], y, u, v);
    y = _mm_packus_epi16(y, y);
    uv = chroma_bytes(u, v);
}

/* YUV -> RGB results of 16 pixels (lanes [0] pixels 0..7, [1] 8..15) to the
 * bytes scatter16 takes: R of all, then G|B of each half. */
inline void rgb_bytes(const __m128i *r, const __m128i *g, const __m128i *b, __m128i &lead,
                      __m128i &lo, __m128i &hi)
{
    lead = _mm_packus_epi16(r[0], r[1]);
    lo = _mm_packus_epi16(g[0], b[0]);
    hi = _mm_packus_epi16(g[1], b[1]);
}

/* ------------------------------------------------------------ row kernels */

/* Row j of an image; steps may be negative. */
template <typename Byte>
inline Byte *row_at(Byte *p, int32_t step, int32_t j)
{
    return p + (ptrdiff_t)step * j;
}

void innerRGBToYUV_8u_C3R(const Lum8u *src, Lum8u *dst, int32_t width)
{
    ptrdiff_t x = 0;
    for (; x < (width & ~15); x += 16) {
        __m128i y, uv_lo, uv_hi;
        yuv_block16(src + 3 * x, y, uv_lo, uv_hi);
        scatter16(dst + 3 * x, y, uv_lo, uv_hi);
    }
    for (; x < width; ++x)
        rgb_to_yuv_tail(src + 3 * x, dst + 3 * x, dst + 3 * x + 1, dst + 3 * x + 2);
}

void innerRGBToYUV_8u_C3P3R(const Lum8u *src, Lum8u *py, Lum8u *pu, Lum8u *pv, int32_t width)
{
    const int32_t body = width & ~7;
    ptrdiff_t x = 0;
    __m128i y, uv_lo, uv_hi;
    for (; x < (body & ~15); x += 16) {
        yuv_block16(src + 3 * x, y, uv_lo, uv_hi);
        _mm_storeu_si128((__m128i *)(py + x), y);
        _mm_storel_epi64((__m128i *)(pu + x), uv_lo);
        _mm_storel_epi64((__m128i *)(pu + x + 8), uv_hi);
        _mm_storeh_pi((__m64 *)(pv + x), _mm_castsi128_ps(uv_lo));
        _mm_storeh_pi((__m64 *)(pv + x + 8), _mm_castsi128_ps(uv_hi));
    }
    if (x < body) {
        yuv_block8(src + 3 * x, y, uv_lo);
        _mm_storel_epi64((__m128i *)(py + x), y);
        _mm_storel_epi64((__m128i *)(pu + x), uv_lo);
        _mm_storeh_pi((__m64 *)(pv + x), _mm_castsi128_ps(uv_lo));
        x += 8;
    }
    for (; x < width; ++x)
        rgb_to_yuv_tail(src + 3 * x, py + x, pu + x, pv + x);
}

void innerYUVToRGB_8u_C3R(const Lum8u *src, Lum8u *dst, int32_t width)
{
    const int32_t body = width & ~7;
    ptrdiff_t x = 0;
    __m128i yuv[2][3], r[2], g[2], b[2], lead, lo, hi;
    for (; x < (body & ~15); x += 16) {
        gather16<0>(src + 3 * x, yuv[0], yuv[1]);
        for (int h = 0; h < 2; ++h)
            rgb_lanes_c3(yuv[h][0], yuv[h][1], yuv[h][2], r[h], g[h], b[h]);
        rgb_bytes(r, g, b, lead, lo, hi);
        scatter16(dst + 3 * x, lead, lo, hi);
    }
    if (x < body) {
        gather8<0>(src + 3 * x, yuv[0]);
        rgb_lanes_c3(yuv[0][0], yuv[0][1], yuv[0][2], r[0], g[0], b[0]);
        r[1] = r[0], g[1] = g[0], b[1] = b[0];
        rgb_bytes(r, g, b, lead, lo, hi);
        scatter8(dst + 3 * x, lead, lo);
        x += 8;
    }
    for (; x < width; ++x) {
        const Lum8u *s = src + 3 * x;
        yuv_to_rgb_tail(s[0], s[1], s[2], kTailC3, dst + 3 * x);
    }
}

void innerYUVToRGB_8u_P3C3R(const Lum8u *py, const Lum8u *pu, const Lum8u *pv, Lum8u *dst,
                            int32_t width)
{
    const __m128i zero = _mm_setzero_si128();
    ptrdiff_t x = 0;
    __m128i r[2], g[2], b[2], lead, lo, hi;
    for (; x < (width & ~15); x += 16) {
        const __m128i y = _mm_loadu_si128((const __m128i *)(py + x));
        const __m128i u = _mm_loadu_si128((const __m128i *)(pu + x));
        const __m128i v = _mm_loadu_si128((const __m128i *)(pv + x));
        rgb_lanes_p3(_mm_unpacklo_epi8(y, zero), _mm_unpacklo_epi8(u, zero),
                     _mm_unpacklo_epi8(v, zero), r[0], g[0], b[0]);
        rgb_lanes_p3(_mm_unpackhi_epi8(y, zero), _mm_unpackhi_epi8(u, zero),
                     _mm_unpackhi_epi8(v, zero), r[1], g[1], b[1]);
        rgb_bytes(r, g, b, lead, lo, hi);
        scatter16(dst + 3 * x, lead, lo, hi);
    }
    for (; x < width; ++x)
        yuv_to_rgb_tail(py[x], pu[x], pv[x], kTailP3, dst + 3 * x);
}

/* ---------------------------------------------------- checks and drivers */

/* Interleaved forms: pointers, then size. */
LumStatus check_interleaved(const void *src, const void *dst, LumiSize roi)
{
    if (any_null(src, dst))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    return lumStsNoErr;
}

/* Planar forms: the image and the plane array, then size, then each plane.
 * The size test stands between the two pointer tests. */
template <typename Plane>
LumStatus check_planar(const void *image, Plane *const *planes, LumiSize roi)
{
    if (any_null(image, planes))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (any_null_plane(planes))
        return lumStsNullPtrErr;
    return lumStsNoErr;
}

LumStatus myRGBToYUV_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                            LumiSize roi)
{
    const LumStatus st = check_interleaved(pSrc, pDst, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j)
        innerRGBToYUV_8u_C3R(row_at(pSrc, srcStep, j), row_at(pDst, dstStep, j), roi.width);
    return lumStsNoErr;
}

LumStatus myYUVToRGB_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                            LumiSize roi)
{
    const LumStatus st = check_interleaved(pSrc, pDst, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j)
        innerYUVToRGB_8u_C3R(row_at(pSrc, srcStep, j), row_at(pDst, dstStep, j), roi.width);
    return lumStsNoErr;
}

LumStatus myRGBToYUV_8u_C3P3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *const pDst[3],
                              int32_t dstStep, LumiSize roi)
{
    const LumStatus st = check_planar(pSrc, pDst, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j)
        innerRGBToYUV_8u_C3P3R(row_at(pSrc, srcStep, j), row_at(pDst[0], dstStep, j),
                               row_at(pDst[1], dstStep, j), row_at(pDst[2], dstStep, j),
                               roi.width);
    return lumStsNoErr;
}

LumStatus myYUVToRGB_8u_P3C3R(const Lum8u *const pSrc[3], int32_t srcStep, Lum8u *pDst,
                              int32_t dstStep, LumiSize roi)
{
    const LumStatus st = check_planar(pDst, pSrc, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j)
        innerYUVToRGB_8u_P3C3R(row_at(pSrc[0], srcStep, j), row_at(pSrc[1], srcStep, j),
                               row_at(pSrc[2], srcStep, j), row_at(pDst, dstStep, j), roi.width);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiRGBToYUV_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                  int32_t dstStep, LumiSize roiSize)
{
    return LUMI_NS::myRGBToYUV_8u_C3R(pSrc, srcStep, pDst, dstStep, roiSize);
}

LUMI_MEMBER LumStatus LUMI_T(lumiRGBToYUV_8u_C3P3R)(const Lum8u *pSrc, int32_t srcStep,
                                                    Lum8u *const pDst[3], int32_t dstStep,
                                                    LumiSize roiSize)
{
    return LUMI_NS::myRGBToYUV_8u_C3P3R(pSrc, srcStep, pDst, dstStep, roiSize);
}

LUMI_MEMBER LumStatus LUMI_T(lumiYUVToRGB_8u_C3R)(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                  int32_t dstStep, LumiSize roiSize)
{
    return LUMI_NS::myYUVToRGB_8u_C3R(pSrc, srcStep, pDst, dstStep, roiSize);
}

LUMI_MEMBER LumStatus LUMI_T(lumiYUVToRGB_8u_P3C3R)(const Lum8u *const pSrc[3], int32_t srcStep,
                                                    Lum8u *pDst, int32_t dstStep,
                                                    LumiSize roiSize)
{
    return LUMI_NS::myYUVToRGB_8u_P3C3R(pSrc, srcStep, pDst, dstStep, roiSize);
}
