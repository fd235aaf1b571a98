/*
 * Remap kernels: nearest neighbour and two-point linear.
 *
 * Nearest neighbour takes column trunc(x + 0.5) and row trunc(y + 0.5), the
 * addition in the map's type; a coordinate inside the region is not
 * negative, so halves go up, and the column never passes the region's last.
 * The plain form only moves elements, so it is built once per element width
 * (16u and 16s share one); the soft-edge form is built per type for its band.
 *
 * Linear: base (trunc x, trunc y), moved back by one on the last column or
 * row, fractions fx = x - ix, fy = y - iy in the map's type, 2 by 2 window.
 * "Last" is the region's last column (xMax, yMax) for the plain 8u, 16u and
 * 32f forms and the image's (wMax, hMax) for the plain 16s and 64f forms and
 * every soft-edge form; both read the same values.
 *   - plain 8u: Q14 fractions a = rint(16384 fx), b = rint(16384 fy);
 *     r = (p0 (16384 - a) + p1 a) >> 8 per row, then
 *     (r0 (16384 - b) + r1 b + 33) >> 20.  The rounding term is 33, close to
 *     truncation, and belongs to the result;
 *   - plain 16u, 32f: p0 (1 - f) + p1 f per row, then across rows, float;
 *   - plain 16s, 64f and every soft-edge form: the difference form
 *     p0 + (p1 - p0) f, in the map's type;
 *   - integers round to nearest, ties to even; soft-edge results saturate,
 *     plain ones keep their low bits (they cannot leave the range).
 * SSE3 tier, soft-edge 8u: 16.16 fixed point instead.  Coordinates are scaled
 * by 65536 and truncated; below wMax << 16 the column is the top half and the
 * fraction the low half, otherwise column wMax - 1 with fraction 1.0.
 * Samples scaled by 64, r = 64 p0 + ((64 p1 - 64 p0) f >> 16), result
 * (r0 + (fy (r1 - r0) >> 16) + 32) >> 6.
 *
 * A region one column wide at column 0 would move the base of the plain
 * forms to column -1 (whose weight is zero).  The base stays at 0 instead,
 * with fraction 0: the same value, read from columns 0 and 1, which the
 * image has (linear runs on sources of two pixels a side or more).  Rows
 * likewise.
 */
#include <type_traits>

#include "piremap_walk.h"

namespace LUMI_NS {

template <class T, int L, bool Soft> struct RemapNN {
    static constexpr bool kRow = kRemapRow8u<T, L, Soft>;

    /* Four pixels at a time: columns and rows in lanes, elements moved. */
    static void row(const RemapSrc<T, L> &s, const RemapArgs &a, const float *xm, const float *ym,
                    Lum8u *d)
    {
        constexpr int S = RemapShape<L>::stride;
        const __m128 half = _mm_set1_ps(0.5f);
        remap_row8u<RemapNN, S>(s, a, xm, ym, d, [&](__m128 x, __m128 y, int mask, Lum8u *o) {
            int32_t col[4], row[4];
            remap_lanes_out(_mm_cvttps_epi32(_mm_add_ps(x, half)), col);
            remap_lanes_out(_mm_cvttps_epi32(_mm_add_ps(y, half)), row);
            for (int lane = 0; lane < 4; ++lane)
                if (mask & (1 << lane))
                    memcpy(o + lane * S, s.base[0] + (ptrdiff_t)row[lane] * s.step + (ptrdiff_t)col[lane] * S, S);
        });
    }

    static void pixel(const RemapSrc<T, L> &s, const RemapArgs &, RemapMap<T> x, RemapMap<T> y,
                      T *const *d)
    {
        typedef RemapMap<T> M;
        const int32_t col = (int32_t)(x + (M)0.5), row = (int32_t)(y + (M)0.5);
        for (int c = 0; c < RemapShape<L>::count; ++c)
            *d[c] = s.at(c, col, row);
    }
};

namespace {

/* The plain 16s and 64f forms and every soft-edge form count "last" from
 * the image, the plain 8u, 16u, 32f forms from the region. */
template <class T, bool Soft> constexpr bool kLastOfImage =
    Soft || std::is_same<T, Lum16s>::value || std::is_same<T, Lum64f>::value;

/* Plain 8u linear of four units: q holds each unit's pair of row 0, then
 * of row 1, as bytes; wa and wb each unit's Q14 weight pairs. */
inline __m128i lin_units(__m128i q, __m128i wa, __m128i wb)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i r0 = _mm_srai_epi32(_mm_madd_epi16(_mm_unpacklo_epi8(q, zero), wa), 8);
    const __m128i r1 = _mm_srai_epi32(_mm_madd_epi16(_mm_unpackhi_epi8(q, zero), wa), 8);
    const __m128i rr = _mm_or_si128(r0, _mm_slli_epi32(r1, 16));
    return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(rr, wb), _mm_set1_epi32(33)), 20);
}

inline int32_t linear_base(int32_t i, int32_t last) { return i == last && i > 0 ? i - 1 : i; }

/* SSE3 tier, soft-edge 8u: one axis in 16.16. */
inline void fixed_axis(Lum32f v, int32_t last, int32_t *i, int32_t *f)
{
    const int64_t q = (int64_t)(v * 65536.0f);
    if (q < ((int64_t)last << 16))
        *i = (int32_t)(q >> 16), *f = (int32_t)(q & 0xFFFF);
    else
        *i = last - 1, *f = 0x10000;
}

} // namespace

template <class T, int L, bool Soft> struct RemapLin {
    typedef RemapMap<T> M;
    static constexpr bool kRow = kRemapRow8u<T, L, Soft>;

    /* Plain 8u, four pixels at a time.  Per pixel the Q14 weight pairs
     * (16384 - a, a) and (16384 - b, b) sit in one 32-bit lane each, so one
     * 16-bit multiply-add forms a row's two products and their sum.  Three
     * elements make twelve units, three groups of four: a group's lanes take
     * their pixel's weights, and its samples come from the one or two
     * pixels it spans. */
    static void row(const RemapSrc<T, L> &s, const RemapArgs &a, const float *xm, const float *ym,
                    Lum8u *d)
    {
        constexpr int S = RemapShape<L>::stride;
        const __m128i xLast = _mm_set1_epi32(a.xMax), yLast = _mm_set1_epi32(a.yMax);
        const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi32(16384);
        const __m128 scale = _mm_set1_ps(16384.0f);
        remap_row8u<RemapLin, S>(s, a, xm, ym, d, [&](__m128 x, __m128 y, int mask, Lum8u *o) {
            __m128i ix = _mm_cvttps_epi32(x), iy = _mm_cvttps_epi32(y);
            ix = _mm_add_epi32(ix, _mm_and_si128(_mm_cmpeq_epi32(ix, xLast), _mm_cmpgt_epi32(ix, zero)));
            iy = _mm_add_epi32(iy, _mm_and_si128(_mm_cmpeq_epi32(iy, yLast), _mm_cmpgt_epi32(iy, zero)));
            const __m128i fa = _mm_cvtps_epi32(_mm_mul_ps(_mm_sub_ps(x, _mm_cvtepi32_ps(ix)), scale));
            const __m128i fb = _mm_cvtps_epi32(_mm_mul_ps(_mm_sub_ps(y, _mm_cvtepi32_ps(iy)), scale));
            const __m128i wa = _mm_or_si128(_mm_sub_epi32(one, fa), _mm_slli_epi32(fa, 16));
            const __m128i wb = _mm_or_si128(_mm_sub_epi32(one, fb), _mm_slli_epi32(fb, 16));
            const Lum8u *org[4];
            remap_origins<S>(s.base[0], s.step, ix, iy, org);
            if constexpr (S == 1) {
                const __m128i v = lin_units(remap_pairs2_c1(org, s.step), wa, wb);
                remap_put<1>(&v, o, mask);
            } else {
                /* Pixel p's two rows, 8 bytes each (6 used): row 0 in bytes
                 * 0-7, row 1 in 8-15. */
                const bool wide = remap_wide<S>(ix, a.wMax, 2);
                __m128i r[4];
                for (int p = 0; p < 4; ++p)
                    r[p] = _mm_unpacklo_epi64(remap_load_row(org[p], 6, wide),
                                              remap_load_row(org[p] + s.step, 6, wide));
                /* Units 0-3: pixel 0's elements and pixel 1's first; 4-7:
                 * pixel 1's last two and pixel 2's first two; 8-11: pixel 2's
                 * last and pixel 3's. */
                static const int8_t i00[16] = {0, 3, 1, 4, 2, 5, -1, -1, 8, 11, 9, 12, 10, 13, -1, -1};
                static const int8_t i01[16] = {-1, -1, -1, -1, -1, -1, 0, 3, -1, -1, -1, -1, -1, -1, 8, 11};
                static const int8_t i11[16] = {1, 4, 2, 5, -1, -1, -1, -1, 9, 12, 10, 13, -1, -1, -1, -1};
                static const int8_t i12[16] = {-1, -1, -1, -1, 0, 3, 1, 4, -1, -1, -1, -1, 8, 11, 9, 12};
                static const int8_t i22[16] = {2, 5, -1, -1, -1, -1, -1, -1, 10, 13, -1, -1, -1, -1, -1, -1};
                static const int8_t i23[16] = {-1, -1, 0, 3, 1, 4, 2, 5, -1, -1, 8, 11, 9, 12, 10, 13};
                const __m128i q0 = _mm_or_si128(remap_c3_arrange(r[0], i00), remap_c3_arrange(r[1], i01));
                const __m128i q1 = _mm_or_si128(remap_c3_arrange(r[1], i11), remap_c3_arrange(r[2], i12));
                const __m128i q2 = _mm_or_si128(remap_c3_arrange(r[2], i22), remap_c3_arrange(r[3], i23));
                const __m128i v0 = lin_units(q0, _mm_shuffle_epi32(wa, _MM_SHUFFLE(1, 0, 0, 0)),
                                             _mm_shuffle_epi32(wb, _MM_SHUFFLE(1, 0, 0, 0)));
                const __m128i v1 = lin_units(q1, _mm_shuffle_epi32(wa, _MM_SHUFFLE(2, 2, 1, 1)),
                                             _mm_shuffle_epi32(wb, _MM_SHUFFLE(2, 2, 1, 1)));
                const __m128i v2 = lin_units(q2, _mm_shuffle_epi32(wa, _MM_SHUFFLE(3, 3, 3, 2)),
                                             _mm_shuffle_epi32(wb, _MM_SHUFFLE(3, 3, 3, 2)));
                /* The packs limit each result to 0..255; the twelve bytes
                 * come out in destination order. */
                remap_put_bytes<3>(_mm_packus_epi16(_mm_packs_epi32(v0, v1), _mm_packs_epi32(v2, v2)), o, mask);
            }
        });
    }

    static void pixel(const RemapSrc<T, L> &s, const RemapArgs &a, M x, M y, T *const *d)
    {
        constexpr int N = RemapShape<L>::count;
        if constexpr (kRemapLowTier && Soft && std::is_same<T, Lum8u>::value) {
            int32_t ix, iy, fx, fy;
            fixed_axis(x, a.wMax, &ix, &fx);
            fixed_axis(y, a.hMax, &iy, &fy);
            for (int c = 0; c < N; ++c) {
                const int32_t p00 = 64 * s.at(c, ix, iy), p01 = 64 * s.at(c, ix + 1, iy);
                const int32_t p10 = 64 * s.at(c, ix, iy + 1), p11 = 64 * s.at(c, ix + 1, iy + 1);
                const int32_t r0 = p00 + (((p01 - p00) * fx) >> 16);
                const int32_t r1 = p10 + (((p11 - p10) * fx) >> 16);
                *d[c] = (Lum8u)((r0 + ((fy * (r1 - r0)) >> 16) + 32) >> 6);
            }
            return;
        }
        const bool image = kLastOfImage<T, Soft>;
        const int32_t ix = linear_base((int32_t)x, image ? a.wMax : a.xMax);
        const int32_t iy = linear_base((int32_t)y, image ? a.hMax : a.yMax);
        const M fx = x - (M)ix, fy = y - (M)iy;
        for (int c = 0; c < N; ++c) {
            const M p00 = (M)s.at(c, ix, iy), p01 = (M)s.at(c, ix + 1, iy);
            const M p10 = (M)s.at(c, ix, iy + 1), p11 = (M)s.at(c, ix + 1, iy + 1);
            if constexpr (!Soft && std::is_same<T, Lum8u>::value) {
                const int32_t fa = remap_rne(fx * 16384.0f), fb = remap_rne(fy * 16384.0f);
                const int32_t r0 = ((int32_t)p00 * (16384 - fa) + (int32_t)p01 * fa) >> 8;
                const int32_t r1 = ((int32_t)p10 * (16384 - fa) + (int32_t)p11 * fa) >> 8;
                *d[c] = (Lum8u)((r0 * (16384 - fb) + r1 * fb + 33) >> 20);
            } else if constexpr (!Soft && (std::is_same<T, Lum16u>::value ||
                                           std::is_same<T, Lum32f>::value)) {
                const M r0 = p00 * ((M)1 - fx) + p01 * fx, r1 = p10 * ((M)1 - fx) + p11 * fx;
                store_low(d[c], r0 * ((M)1 - fy) + r1 * fy);
            } else {
                const M r0 = p00 + (p01 - p00) * fx, r1 = p10 + (p11 - p10) * fx;
                const M v = r0 + (r1 - r0) * fy;
                if (Soft)
                    store_sat(d[c], v);
                else
                    store_low(d[c], v);
            }
        }
    }
};

/* Plain nearest neighbour by element width; 32f and 64f move their bits. */
LUMI_REMAP_INSTANTIATE_LAYOUTS(RemapNN, Lum8u, false)
LUMI_REMAP_INSTANTIATE_LAYOUTS(RemapNN, Lum16u, false)
LUMI_REMAP_INSTANTIATE_LAYOUTS(RemapNN, Lum32u, false)
LUMI_REMAP_INSTANTIATE_LAYOUTS(RemapNN, Lum64u, false)
LUMI_REMAP_INSTANTIATE_TYPES(RemapNN, true)
LUMI_REMAP_INSTANTIATE(RemapLin)

} // namespace LUMI_NS
