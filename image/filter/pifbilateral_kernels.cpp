/*
 * Pixel loops of the bilateral filter: the fixed-window integer kernels of
 * both kinds, the general float kernel and the narrow scalar form.  The
 * arithmetic is set out in the overview of pifbilateral.cpp.
 *
 * The vector kernels take 16 pixels a block.  Neighbour values come from
 * unaligned loads inside the window's footprint.  The fixed kernels look
 * each pair of samples up once (the weight is the same from either end)
 * into rows of pair weights, which the output blocks then read; the
 * lookups are byte shuffles over 16-entry pieces of the ring tables on
 * tiers with SSSE3 and scalar reads on the SSE3 tier or for tables that
 * run past entry 127.  Kind 100 interleaves two neighbours so that one
 * multiply-add of signed 16-bit pairs gives T_a * p_a + T_b * p_b per pixel,
 * and another with ones T_a + T_b; entries are at most 16384, so they fit a
 * signed lane.  When every entry is below 16384, the denominator adds the
 * entries of two pairs in 16-bit lanes before that multiply-add, which
 * saves one of them per two pairs.  Lane group k of a block is pixels
 * 4k..4k+3.  The general kernel reads its float value cells one lane at a
 * time.
 */
#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

#include "pifbilateral.h"

namespace LUMI_NS {
namespace bilateral {
namespace {

const int32_t kMaxNeighbours = 80; /* the 9x9 window at step 1 */

inline __m128i load16(const Lum8u *p) { return _mm_loadu_si128((const __m128i *)p); }

inline __m128i absdiff(__m128i a, __m128i b)
{
    return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}

/* t[idx[i]] for the 16 bytes of idx, as two vectors of eight 16-bit lanes:
 * scalar reads. */
inline void lookup16(const Lum16u *t, __m128i idx, __m128i *lo, __m128i *hi)
{
    alignas(16) Lum8u i[16];
    _mm_store_si128((__m128i *)i, idx);
    *lo = _mm_setr_epi16((short)t[i[0]], (short)t[i[1]], (short)t[i[2]], (short)t[i[3]],
                         (short)t[i[4]], (short)t[i[5]], (short)t[i[6]], (short)t[i[7]]);
    *hi = _mm_setr_epi16((short)t[i[8]], (short)t[i[9]], (short)t[i[10]], (short)t[i[11]],
                         (short)t[i[12]], (short)t[i[13]], (short)t[i[14]], (short)t[i[15]]);
}

/* Four groups of 32-bit lanes: pixels 0..3, 4..7, 8..11, 12..15. */
struct Sums {
    __m128i v[4];
};

inline void widen16(__m128i lo, __m128i hi, Sums *out)
{
    const __m128i z = _mm_setzero_si128();
    out->v[0] = _mm_unpacklo_epi16(lo, z);
    out->v[1] = _mm_unpackhi_epi16(lo, z);
    out->v[2] = _mm_unpacklo_epi16(hi, z);
    out->v[3] = _mm_unpackhi_epi16(hi, z);
}

/* Rounds q to nearest even, saturates to bytes and stores 16 pixels. */
inline void store_pixels(Lum8u *dst, const __m128 q[4])
{
    const __m128i a = _mm_packs_epi32(_mm_cvtps_epi32(q[0]), _mm_cvtps_epi32(q[1]));
    const __m128i b = _mm_packs_epi32(_mm_cvtps_epi32(q[2]), _mm_cvtps_epi32(q[3]));
    _mm_storeu_si128((__m128i *)dst, _mm_packus_epi16(a, b));
}

/* num / den for 16 pixels with one division: r = 1 / (d0 d1 d2 d3), and
 * each group's reciprocal is r times the other three groups' product. */
inline void divide_store(Lum8u *dst, const __m128 n[4], const __m128 d[4])
{
    const __m128 d01 = _mm_mul_ps(d[0], d[1]), d23 = _mm_mul_ps(d[2], d[3]);
    const __m128 r = _mm_div_ps(_mm_set1_ps(1.0f), _mm_mul_ps(d01, d23));
    __m128 q[4];
    q[0] = _mm_mul_ps(n[0], _mm_mul_ps(r, _mm_mul_ps(d[1], d23)));
    q[1] = _mm_mul_ps(n[1], _mm_mul_ps(r, _mm_mul_ps(d[0], d23)));
    q[2] = _mm_mul_ps(n[2], _mm_mul_ps(r, _mm_mul_ps(d01, d[3])));
    q[3] = _mm_mul_ps(n[3], _mm_mul_ps(r, _mm_mul_ps(d01, d[2])));
    store_pixels(dst, q);
}

/* Calls f(x) for blocks of 16 covering columns lo..hi (at least 16), the
 * last one moved back to end on hi, so some columns are done twice. */
template <typename F>
inline void column_blocks(int32_t lo, int32_t hi, F f)
{
    for (int32_t x = lo; x < hi - 15; x += 16)
        f(x);
    f(hi - 15);
}

/* -------------------------------------------------------- fixed windows -- */

const int32_t kMaxRings = 4;  /* 9x9 at step 1 */
const int32_t kMaxPieces = 8; /* entries 0..127 */

/* The ring tables of one call, as the lookups read them.  `scalar` is each
 * ring's 256 entries.  Where the tier has a byte shuffle and every ring's
 * entries are 0 from index 128 on, the entries are also kept as 16-entry
 * pieces of their low and high bytes: `pieces` of them reach the last
 * nonzero entry, `hiPieces` the last entry of 256 or more; otherwise
 * `pieces` is 0 and the scalar tables serve.
 *
 * Piece k of a plane (k = 1 up to its count) holds the XOR of the plane's
 * 16 entries from 16(k - 1) with the 16 from 16k (0 past the count).  A
 * lookup shuffles piece k with i + 128 - 16k: for i below 16k that is i's
 * place in the piece, for i at or above it the top bit is set and the
 * shuffle gives 0.  (The first sum saturates, so every i from 128 up keeps
 * the top bit through all eight pieces and reads 0.)  For i in
 * the j-th 16 entries the pieces from j + 1 up are XORed, which telescopes
 * to the entry itself; past the count no piece is, which gives the 0 that
 * stands there.  So the high bytes, 0 sooner, take fewer shuffles. */
struct RingTables {
    const Lum16u *scalar[kMaxRings];
    int32_t pieces, hiPieces;
    int32_t largest; /* the largest entry of any ring */
    __m128i lo[kMaxRings][kMaxPieces], hi[kMaxRings][kMaxPieces];
};

#if LUMI_HAS_SSSE3
/* Piece k (from 1) of one plane of a 256-entry table, `shift` picking the
 * byte, in lanes of `out`. */
void table_piece(const Lum16u *t, int32_t k, int32_t count, int32_t shift, __m128i *out)
{
    alignas(16) Lum8u b[16];
    for (int32_t i = 0; i < 16; ++i) {
        const int32_t below = t[16 * (k - 1) + i] >> shift;
        const int32_t above = k < count ? t[16 * k + i] >> shift : 0;
        b[i] = (Lum8u)(below ^ above);
    }
    *out = _mm_load_si128((const __m128i *)b);
}
#endif

void ring_tables(const Lum16u *tables, int32_t rings, RingTables *rt)
{
    int32_t last = -1, lastHi = -1;
    rt->largest = 0;
    for (int32_t r = 0; r < rings; ++r) {
        rt->scalar[r] = tables + r * 256;
        for (int32_t d = 0; d < 256; ++d) {
            if (rt->scalar[r][d] > rt->largest)
                rt->largest = rt->scalar[r][d];
            if (rt->scalar[r][d] != 0 && d > last)
                last = d;
            if (rt->scalar[r][d] >= 256 && d > lastHi)
                lastHi = d;
        }
    }
    rt->pieces = rt->hiPieces = 0;
#if LUMI_HAS_SSSE3
    if (last >= 16 * kMaxPieces)
        return;
    rt->pieces = last < 0 ? 1 : (last + 16) / 16;
    rt->hiPieces = (lastHi + 16) / 16;
    for (int32_t r = 0; r < rings; ++r) {
        for (int32_t k = 1; k <= rt->pieces; ++k)
            table_piece(rt->scalar[r], k, rt->pieces, 0, &rt->lo[r][k - 1]);
        for (int32_t k = 1; k <= rt->hiPieces; ++k)
            table_piece(rt->scalar[r], k, rt->hiPieces, 8, &rt->hi[r][k - 1]);
    }
#endif
}

#if LUMI_HAS_SSSE3
/* The low and high bytes of the entries of ring `ring` at the 16 indices
 * of idx, from the pieces.  kLo and kHi are rt.pieces and rt.hiPieces, as
 * constants so that the shuffles unroll.  The step from one piece to the
 * next is a saturating subtraction, which gives the same bytes (the first
 * sum is at least 0x70 and seven steps take 0x70 off) but stays one chain
 * on one register constant rather than a constant loaded for every piece. */
template <int32_t kLo, int32_t kHi>
inline void ring_planes(const RingTables &rt, int32_t ring, __m128i idx, __m128i *l, __m128i *h)
{
    const __m128i *lo = rt.lo[ring], *hi = rt.hi[ring], sixteen = _mm_set1_epi8(16);
    idx = _mm_adds_epu8(idx, _mm_set1_epi8(0x70));
    *l = *h = _mm_setzero_si128();
    for (int32_t k = 1; k <= (kLo > kHi ? kLo : kHi); ++k) {
        if (k > 1)
            idx = _mm_subs_epu8(idx, sixteen);
        if (k <= kLo)
            *l = _mm_xor_si128(*l, _mm_shuffle_epi8(lo[k - 1], idx));
        if (k <= kHi)
            *h = _mm_xor_si128(*h, _mm_shuffle_epi8(hi[k - 1], idx));
    }
}
#endif

/* The entries of ring `ring` at the 16 indices of idx, as two vectors of
 * eight 16-bit lanes (kind 100); kLo 0 reads the scalar tables. */
template <int32_t kLo, int32_t kHi>
inline void ring_entries(const RingTables &rt, int32_t ring, __m128i idx, __m128i *t0,
                         __m128i *t1)
{
#if LUMI_HAS_SSSE3
    if (kLo > 0) {
        __m128i l, h;
        ring_planes<kLo, kHi>(rt, ring, idx, &l, &h);
        *t0 = _mm_unpacklo_epi8(l, h);
        *t1 = _mm_unpackhi_epi8(l, h);
        return;
    }
#endif
    lookup16(rt.scalar[ring], idx, t0, t1);
}

/* The same as bytes, for kind 101, whose entries are at most 16. */
template <int32_t kLo>
inline __m128i ring_bytes(const RingTables &rt, int32_t ring, __m128i idx)
{
#if LUMI_HAS_SSSE3
    if (kLo > 0) {
        __m128i l, h;
        ring_planes<kLo, 0>(rt, ring, idx, &l, &h);
        return l;
    }
#endif
    __m128i t0, t1;
    lookup16(rt.scalar[ring], idx, &t0, &t1);
    return _mm_packus_epi16(t0, t1);
}

/* The weight of a pair of samples is the same seen from either of them
 * (the ring and |p - c| are symmetric), so each pair is looked up once.
 * For every offset o = (dx, dy) of the forward half of the window (dy > 0,
 * or dy = 0 and dx > 0), a row of pair weights
 *     W_o(x, y) = T_ring(o)[|I(x, y) - I(x + dx, y + dy)|]
 * is made for each source row; pixel (x, y) then reads its neighbour at
 * +o with weight W_o(x, y) and its neighbour at -o with W_o(x - dx, y - dy).
 * The weight rows of an offset live in a ring of dy + 1 rows.  Every sum
 * is an exact integer that cannot wrap, so the order in which neighbours
 * are added leaves num and den, and so the pixels, as they were.
 *
 * The rows are kept to a strip of columns so that all rings fit a fixed
 * amount of automatic storage (the filter takes no memory); strips are a
 * multiple of 16 wide and output blocks keep their places in the row (the
 * shared division of kind 100 depends on which pixels share a block). */
const int32_t kMaxPairs = kMaxNeighbours / 2;
const int32_t kPairBytes = 40960;

struct Pair {
    int32_t dx, dy, ring;
    intptr_t offset; /* dy * srcStep + dx */
    int32_t base;    /* first element of the offset's ring of weight rows */
};

struct PairPlan {
    int32_t q, count;
    Pair pair[kMaxPairs];
    int32_t strip;  /* output columns per strip, a multiple of 16 */
    int32_t stride; /* elements per weight row */
};

void plan_pairs(const Rows &rows, int32_t q, int32_t s, int32_t elemBytes, PairPlan *pl)
{
    pl->q = q;
    pl->count = 0;
    int32_t slots = 0;
    for (int32_t dy = 0; dy <= q; dy += s)
        for (int32_t dx = -q; dx <= q; dx += s) {
            if (dy == 0 && dx <= 0)
                continue;
            const int32_t ax = dx < 0 ? -dx : dx;
            Pair &p = pl->pair[pl->count++];
            p.dx = dx;
            p.dy = dy;
            p.ring = (ax > dy ? ax : dy) / s - 1;
            p.offset = dy * rows.srcStep + dx;
            p.base = slots;
            slots += dy + 1;
        }
    /* A strip's weight row spans the window's reach either side and the
     * last block of the row, which may end up to 15 columns further.  The
     * narrowest strip, kind 100 on the 9x9 window (130 rows), is 128. */
    const int32_t row = kPairBytes / elemBytes / slots;
    pl->strip = (row - 16 - 2 * q) & ~15;
    pl->stride = pl->strip + 16 + 2 * q;
    for (int32_t i = 0; i < pl->count; ++i)
        pl->pair[i].base *= pl->stride;
}

/* Kind 100, pair o for the eight pixels of half h of a block: the
 * neighbours at +o and -o interleaved with their weights, (pa, pb) and
 * (Ta, Tb) in the 16-bit lanes of each pixel, lane groups 2h and 2h + 1. */
struct PairLanes {
    __m128i p[2], t[2];
};

template <int h>
inline PairLanes pair_lanes(const Lum8u *src, const Pair &o, const Lum16u *wa, const Lum16u *wb)
{
    const __m128i z = _mm_setzero_si128();
    const __m128i pa = load16(src + o.offset), pb = load16(src - o.offset);
    const __m128i ab = h ? _mm_unpackhi_epi8(pa, pb) : _mm_unpacklo_epi8(pa, pb);
    const __m128i ta = _mm_loadu_si128((const __m128i *)(wa + 8 * h));
    const __m128i tb = _mm_loadu_si128((const __m128i *)(wb + 8 * h));
    return {{_mm_unpacklo_epi8(ab, z), _mm_unpackhi_epi8(ab, z)},
            {_mm_unpacklo_epi16(ta, tb), _mm_unpackhi_epi16(ta, tb)}};
}

/* Kind 100, half h of a block: two neighbours (the pair at +o and -o) a
 * multiply-add into the 32-bit sums num and den of lane groups 2h, 2h + 1,
 * two pairs at a time (a window of n by n samples, n odd, has (n^2 - 1) / 2
 * pairs, a multiple of 4).  With kSharedDen the denominator takes both
 * pairs at once: their interleaved entries are added in 16-bit lanes first
 * and one multiply-add with ones then gives all four.  That needs every
 * entry below 2^14, so that two stay a positive signed lane; an entry
 * reaches 2^14 only when the value and position weights both round to
 * about 1 (a huge position sigma).  The halves go one after the other so
 * that the sums and the lanes of two pairs stay in registers. */
template <bool kSharedDen, int h>
inline void gauss_pairs_half(const Lum8u *src, const PairPlan &pl, const Lum16u *const *fwd,
                             const Lum16u *const *bwd, int32_t col, __m128i *num, __m128i *den)
{
    const __m128i ones = _mm_set1_epi16(1);
    for (int32_t i = 0; i < pl.count; i += 2) {
        const Pair &oa = pl.pair[i], &ob = pl.pair[i + 1];
        const PairLanes a = pair_lanes<h>(src, oa, fwd[i] + col, bwd[i] + col - oa.dx);
        const PairLanes b = pair_lanes<h>(src, ob, fwd[i + 1] + col, bwd[i + 1] + col - ob.dx);
        for (int k = 0; k < 2; ++k) {
            num[k] = _mm_add_epi32(num[k], _mm_madd_epi16(a.p[k], a.t[k]));
            num[k] = _mm_add_epi32(num[k], _mm_madd_epi16(b.p[k], b.t[k]));
            if (kSharedDen) {
                den[k] = _mm_add_epi32(den[k], _mm_madd_epi16(_mm_add_epi16(a.t[k], b.t[k]), ones));
            } else {
                den[k] = _mm_add_epi32(den[k], _mm_madd_epi16(a.t[k], ones));
                den[k] = _mm_add_epi32(den[k], _mm_madd_epi16(b.t[k], ones));
            }
        }
    }
}

/* Kind 100: sums started at c << 14 and 1 << 14; one shared division. */
template <bool kSharedDen>
void gauss_pairs_block(const Lum8u *src, Lum8u *dst, const PairPlan &pl,
                       const Lum16u *const *fwd, const Lum16u *const *bwd, int32_t col)
{
    const __m128i z = _mm_setzero_si128();
    const __m128i c = load16(src);
    Sums num, den;
    widen16(_mm_unpacklo_epi8(c, z), _mm_unpackhi_epi8(c, z), &num);
    for (int k = 0; k < 4; ++k) {
        num.v[k] = _mm_slli_epi32(num.v[k], 14);
        den.v[k] = _mm_set1_epi32(1 << 14);
    }
    gauss_pairs_half<kSharedDen, 0>(src, pl, fwd, bwd, col, num.v, den.v);
    gauss_pairs_half<kSharedDen, 1>(src, pl, fwd, bwd, col, num.v + 2, den.v + 2);
    __m128 n[4], d[4];
    for (int k = 0; k < 4; ++k) {
        n[k] = _mm_cvtepi32_ps(num.v[k]);
        d[k] = _mm_cvtepi32_ps(den.v[k]);
    }
    divide_store(dst, n, d);
}

/* Ta * pa + Tb * pb into n and Ta + Tb into d, 16-bit lanes, for entries
 * of at most 16 (so each sum of two is at most 8160).  With SSSE3 one
 * multiply-add of unsigned by signed bytes does both products. */
inline void fast_pair(__m128i pa, __m128i pb, __m128i ta, __m128i tb, __m128i n[2], __m128i d[2])
{
    const __m128i z = _mm_setzero_si128();
#if LUMI_HAS_SSSE3
    n[0] = _mm_add_epi16(n[0], _mm_maddubs_epi16(_mm_unpacklo_epi8(pa, pb),
                                                 _mm_unpacklo_epi8(ta, tb)));
    n[1] = _mm_add_epi16(n[1], _mm_maddubs_epi16(_mm_unpackhi_epi8(pa, pb),
                                                 _mm_unpackhi_epi8(ta, tb)));
#else
    n[0] = _mm_add_epi16(n[0], _mm_mullo_epi16(_mm_unpacklo_epi8(ta, z), _mm_unpacklo_epi8(pa, z)));
    n[0] = _mm_add_epi16(n[0], _mm_mullo_epi16(_mm_unpacklo_epi8(tb, z), _mm_unpacklo_epi8(pb, z)));
    n[1] = _mm_add_epi16(n[1], _mm_mullo_epi16(_mm_unpackhi_epi8(ta, z), _mm_unpackhi_epi8(pa, z)));
    n[1] = _mm_add_epi16(n[1], _mm_mullo_epi16(_mm_unpackhi_epi8(tb, z), _mm_unpackhi_epi8(pb, z)));
#endif
    const __m128i t = _mm_add_epi8(ta, tb);
    d[0] = _mm_add_epi16(d[0], _mm_unpacklo_epi8(t, z));
    d[1] = _mm_add_epi16(d[1], _mm_unpackhi_epi8(t, z));
}

/* Kind 101: entries up to 16, so T * p is at most 4080 and 15 such terms
 * (the centre's c << 4 and 14 neighbours) fit an unsigned 16-bit lane; the
 * numerators move to 32-bit sums every 7 pairs.  The denominator, at most
 * 16 * 81, stays in 16 bits. */
void gauss_fast_pairs_block(const Lum8u *src, Lum8u *dst, const PairPlan &pl,
                            const Lum8u *const *fwd, const Lum8u *const *bwd, int32_t col)
{
    const __m128i z = _mm_setzero_si128();
    const __m128i c = load16(src);
    __m128i n16[2] = {_mm_slli_epi16(_mm_unpacklo_epi8(c, z), 4),
                      _mm_slli_epi16(_mm_unpackhi_epi8(c, z), 4)};
    __m128i d16[2] = {_mm_set1_epi16(16), _mm_set1_epi16(16)};
    Sums num = {{z, z, z, z}};
    for (int32_t i = 0; i < pl.count; ++i) {
        const Pair &o = pl.pair[i];
        const __m128i ta = _mm_loadu_si128((const __m128i *)(fwd[i] + col));
        const __m128i tb = _mm_loadu_si128((const __m128i *)(bwd[i] + col - o.dx));
        fast_pair(load16(src + o.offset), load16(src - o.offset), ta, tb, n16, d16);
        if (i % 7 == 6 || i + 1 == pl.count) {
            Sums part;
            widen16(n16[0], n16[1], &part);
            for (int k = 0; k < 4; ++k)
                num.v[k] = _mm_add_epi32(num.v[k], part.v[k]);
            n16[0] = n16[1] = z;
        }
    }
    Sums den;
    widen16(d16[0], d16[1], &den);
    __m128 q[4];
    for (int k = 0; k < 4; ++k)
        q[k] = _mm_mul_ps(_mm_cvtepi32_ps(num.v[k]), _mm_rcp_ps(_mm_cvtepi32_ps(den.v[k])));
    store_pixels(dst, q);
}

/* The weight rows of source row y for a strip of output columns xa..xb - 1,
 * into out[i] for pair i (where column xa sits at element q): each
 * offset's columns reach dx further left or right.  kLo and kHi as in
 * ring_entries; kind 101 (Lum8u) has no high bytes. */
template <typename Elem, int32_t kLo, int32_t kHi>
void weigh_row(const Rows &rows, const PairPlan &pl, const RingTables &rt, Elem *const *out,
               int32_t y, int32_t xa, int32_t xb)
{
    const Lum8u *src = rows.src + y * rows.srcStep;
    for (int32_t i = 0; i < pl.count; ++i) {
        const Pair &o = pl.pair[i];
        const intptr_t offset = o.offset;
        const int32_t ring = o.ring, ax = o.dx < 0 ? -o.dx : o.dx;
        Elem *w = out[i] + pl.q;
        const int32_t lo = xa - (o.dx > 0 ? o.dx : 0), hi = lo + (xb - xa) + ax - 1;
        column_blocks(lo, hi, [&](int32_t x) {
            const __m128i idx = absdiff(load16(src + x), load16(src + x + offset));
            if constexpr (sizeof(Elem) == 2) {
                __m128i t0, t1;
                ring_entries<kLo, kHi>(rt, ring, idx, &t0, &t1);
                _mm_storeu_si128((__m128i *)(w + (x - xa)), t0);
                _mm_storeu_si128((__m128i *)(w + (x - xa) + 8), t1);
            } else {
                _mm_storeu_si128((__m128i *)(w + (x - xa)), ring_bytes<kLo>(rt, ring, idx));
            }
        });
    }
}

template <typename Elem>
using WeighRow = void (*)(const Rows &, const PairPlan &, const RingTables &, Elem *const *,
                          int32_t, int32_t, int32_t);

/* weigh_row for rt.pieces and rt.hiPieces, whose unrolled forms are made
 * for every count up to kMaxPieces (high bytes for kind 100 only); the
 * tier without a byte shuffle has the scalar form alone. */
template <typename Elem, int32_t kLo, int32_t kHi = 0>
WeighRow<Elem> weigh_row_hi(int32_t hiPieces)
{
    if constexpr (kHi >= kLo || sizeof(Elem) == 1)
        return &weigh_row<Elem, kLo, kHi>;
    else
        return hiPieces <= kHi ? &weigh_row<Elem, kLo, kHi>
                               : weigh_row_hi<Elem, kLo, kHi + 1>(hiPieces);
}

template <typename Elem, int32_t kLo = 1>
WeighRow<Elem> weigh_row_for(const RingTables &rt)
{
    if constexpr (!LUMI_HAS_SSSE3)
        return &weigh_row<Elem, 0, 0>;
    else if constexpr (kLo >= kMaxPieces)
        return weigh_row_hi<Elem, kLo>(rt.hiPieces);
    else if (rt.pieces == 0)
        return &weigh_row<Elem, 0, 0>;
    else
        return rt.pieces <= kLo ? weigh_row_hi<Elem, kLo>(rt.hiPieces)
                                : weigh_row_for<Elem, kLo + 1>(rt);
}

/* One strip, output columns xa..xb - 1, walked down the image: the weight
 * rows of source row y (from -q, the first row the window reaches) and
 * then, from row 0, output row y, whose backward weights are already made.
 * Elem is Lum16u for kind 100 and Lum8u for kind 101. */
template <typename Elem>
void paired_strip(const Rows &rows, const PairPlan &pl, const RingTables &rt, WeighRow<Elem> weigh,
                  Elem *weights, int32_t xa, int32_t xb)
{
    const int32_t q = pl.q;
    /* Slot of source row y in each ring: (y + q) mod (dy + 1), stepped
     * along rather than divided out for every row.  The row dy above,
     * which the backward weights read, is the oldest: the next slot. */
    int32_t slot[kMaxPairs];
    Elem *fwd[kMaxPairs];
    const Elem *bwd[kMaxPairs];
    for (int32_t i = 0; i < pl.count; ++i)
        slot[i] = 0;
    for (int32_t y = -q; y < rows.height; ++y) {
        for (int32_t i = 0; i < pl.count; ++i) {
            const Pair &o = pl.pair[i];
            const int32_t next = slot[i] == o.dy ? 0 : slot[i] + 1;
            fwd[i] = weights + o.base + slot[i] * pl.stride;
            bwd[i] = weights + o.base + next * pl.stride;
            slot[i] = next;
        }
        weigh(rows, pl, rt, fwd, y, xa, xb);
        if (y < 0)
            continue;
        const Lum8u *src = rows.src + y * rows.srcStep;
        Lum8u *dst = rows.dst + y * rows.dstStep;
        column_blocks(xa, xb - 1, [&](int32_t x) {
            if constexpr (sizeof(Elem) == 2) {
                if (rt.largest < (1 << 14))
                    gauss_pairs_block<true>(src + x, dst + x, pl, fwd, bwd, x - xa + q);
                else
                    gauss_pairs_block<false>(src + x, dst + x, pl, fwd, bwd, x - xa + q);
            } else {
                gauss_fast_pairs_block(src + x, dst + x, pl, fwd, bwd, x - xa + q);
            }
        });
    }
}

template <typename Elem>
void paired_rows(const Rows &rows, int32_t q, int32_t s, const RingTables &rt)
{
    PairPlan pl;
    plan_pairs(rows, q, s, (int32_t)sizeof(Elem), &pl);
    const WeighRow<Elem> weigh = weigh_row_for<Elem>(rt);
    alignas(16) Elem weights[kPairBytes / sizeof(Elem)];
    /* Strips of pl.strip columns; the one holding the row's last block
     * runs to the end of the row. */
    for (int32_t xa = 0;; xa += pl.strip) {
        const bool last = rows.width - 16 < xa + pl.strip;
        paired_strip<Elem>(rows, pl, rt, weigh, weights, xa, last ? rows.width : xa + pl.strip);
        if (last)
            break;
    }
}

/* ------------------------------------------------------- general window -- */

/* Value cells V[p - c] for the 16 pixels of a block, four at a time. */
inline __m128 value_cells(const Lum32f *value0, const Lum8u *p, const Lum8u *c)
{
    return _mm_setr_ps(value0[(int)p[0] - (int)c[0]], value0[(int)p[1] - (int)c[1]],
                       value0[(int)p[2] - (int)c[2]], value0[(int)p[3] - (int)c[3]]);
}

void general_block(const Rows &rows, const Lum8u *src, Lum8u *dst, int32_t qx, int32_t qy,
                   int32_t s, const Lum32f *value0, const Lum32f *samples)
{
    const __m128i z = _mm_setzero_si128();
    alignas(16) Lum8u c[16];
    _mm_store_si128((__m128i *)c, load16(src));
    __m128 num[4], den[4];
    for (int k = 0; k < 4; ++k)
        num[k] = den[k] = _mm_setzero_ps();
    int32_t n = 0;
    for (int32_t dy = -qy; dy <= qy; dy += s) {
        const Lum8u *row = src + dy * rows.srcStep;
        for (int32_t dx = -qx; dx <= qx; dx += s, ++n) {
            const Lum8u *p = row + dx;
            const __m128 sw = _mm_set1_ps(samples[n]);
            const __m128i v = load16(p);
            const __m128i v16[2] = {_mm_unpacklo_epi8(v, z), _mm_unpackhi_epi8(v, z)};
            for (int k = 0; k < 4; ++k) {
                const __m128i v32 = (k & 1) ? _mm_unpackhi_epi16(v16[k >> 1], z)
                                            : _mm_unpacklo_epi16(v16[k >> 1], z);
                const __m128 w = _mm_mul_ps(sw, value_cells(value0, p + 4 * k, c + 4 * k));
                den[k] = _mm_add_ps(den[k], w);
                num[k] = _mm_add_ps(num[k], _mm_mul_ps(_mm_cvtepi32_ps(v32), w));
            }
        }
    }
    divide_store(dst, num, den);
}

} // namespace

void fixed_kernel(const Rows &rows, int32_t q, int32_t s, bool fast, const Lum16u *tables)
{
    RingTables rt;
    ring_tables(tables, q / s, &rt);
    if (fast)
        paired_rows<Lum8u>(rows, q, s, rt);
    else
        paired_rows<Lum16u>(rows, q, s, rt);
}

void general_kernel(const Rows &rows, int32_t qx, int32_t qy, int32_t s, const Lum32f *value0,
                    const Lum32f *samples)
{
    for (int32_t y = 0; y < rows.height; ++y) {
        const Lum8u *src = rows.src + y * rows.srcStep;
        Lum8u *dst = rows.dst + y * rows.dstStep;
        column_blocks(0, rows.width - 1, [&](int32_t x) {
            general_block(rows, src + x, dst + x, qx, qy, s, value0, samples);
        });
    }
}

void narrow_kernel(const Rows &rows, int32_t qx, int32_t qy, int32_t s, const Lum32f *value0,
                   const Lum32f *samples)
{
    for (int32_t y = 0; y < rows.height; ++y) {
        const Lum8u *src = rows.src + y * rows.srcStep;
        for (int32_t x = 0; x < rows.width; ++x) {
            const int c = src[x];
            Lum32f num = 0.0f, den = 0.0f;
            int32_t n = 0;
            for (int32_t dy = -qy; dy <= qy; dy += s)
                for (int32_t dx = -qx; dx <= qx; dx += s, ++n) {
                    const int p = src[dy * rows.srcStep + x + dx];
                    const Lum32f w = samples[n] * value0[p - c];
                    den = den + w;
                    num = num + (Lum32f)p * w;
                }
            /* Truncation of a value that is not a number gives 0x80000000,
             * which the clamp makes 0, as the vector forms' packing does. */
            const int32_t v = _mm_cvttss_si32(_mm_set_ss(num / den + 0.5f));
            rows.dst[y * rows.dstStep + x] = (Lum8u)(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    }
}

} // namespace bilateral
} // namespace LUMI_NS
