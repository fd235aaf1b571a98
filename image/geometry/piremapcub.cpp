/*
 * Remap kernels: four-point cubic (Lagrange through four samples, so each
 * sample is reproduced exactly).
 *
 * Window.  ix = trunc(x); bx = min(ix, wMax - 2), then one less if above 0;
 * rows likewise.  The window bx..bx + 3 stays inside the image, and at the
 * first column and the last two the polynomial is evaluated beyond its
 * central interval (u from -1 to 2) instead of repeating border pixels.
 *
 * Weights of the taps bx..bx + 3 at u = x - bx - 1:
 *   w0 = -u/3 + u^2/2 - u^3/6     w1 = 1 - u/2 - u^2 + u^3/2
 *   w2 = u + u^2/2 - u^3/2        w3 = -u/6 + u^3/6
 *   - plain 32f: the polynomial coefficients by Horner's rule,
 *     ((c3 u + c2) u + c1) u + c0, in float;
 *   - plain 16u, 16s and every soft-edge form: the factored forms
 *     w0 = (1/2 - u/6) u^2 - u/3, w1 = (u/2 - 1)(u^2 - 1),
 *     w2 = (u - u^2)(u/2) + u, w3 = (u^2 - 1)(u/6), with u/6 and u/3 as
 *     products by 1/6 and 1/3, in the map's type (double for 64f);
 *   - plain 8u: fixed point from the Q14 table below, idx = rint(512 (x - bx))
 *     in 0..1536, weights tab[idx].m, tab[idx].z, tab[1536 - idx].z,
 *     tab[1536 - idx].m (the weights are symmetric under u -> 1 - u); per row
 *     h = (sum p w) >> 8 as a signed 16-bit value, then
 *     (sum h w + 524288) >> 20, limited to 0..255.
 * Sums run in tap order, rows first, then across rows.  Integers round to
 * nearest, ties to even, and saturate.
 *
 * SSE3 tier, soft edge: the window comes from trunc(x + 1e-7) in double and
 * the whole pixel (u, weights in the factored forms, sums) is evaluated in
 * double precision, rounded and saturated like the other forms.
 */
#include <type_traits>

#include "piremap_walk.h"

namespace LUMI_NS {
namespace {

/* Entry i stands for u = i / 512 - 1: (rounded 16384 Lm(u), rounded
 * 16384 L0(u)), Lm(u) = -u(u - 1)(u - 2)/6, L0(u) = (u + 1)(u - 1)(u - 2)/2. */
struct CubTab {
    int16_t m[1537], z[1537];
};

constexpr int16_t q14(double v) { return (int16_t)(v < 0 ? -(int32_t)(-v + 0.5) : (int32_t)(v + 0.5)); }

constexpr CubTab make_cub_tab()
{
    CubTab t{};
    for (int i = 0; i <= 1536; ++i) {
        const double u = i / 512.0 - 1.0;
        t.m[i] = q14(16384.0 * (-u * (u - 1.0) * (u - 2.0) / 6.0));
        t.z[i] = q14(16384.0 * ((u + 1.0) * (u - 1.0) * (u - 2.0) / 2.0));
    }
    return t;
}

constexpr CubTab kCubTab = make_cub_tab();

/* The four weights of an index side by side, for the vector row:
 * tab[idx].m, tab[idx].z, tab[1536 - idx].z, tab[1536 - idx].m. */
struct CubQuads {
    int16_t w[1537][4];
};

constexpr CubQuads make_cub_quads()
{
    CubQuads q{};
    for (int i = 0; i <= 1536; ++i) {
        q.w[i][0] = kCubTab.m[i];
        q.w[i][1] = kCubTab.z[i];
        q.w[i][2] = kCubTab.z[1536 - i];
        q.w[i][3] = kCubTab.m[1536 - i];
    }
    return q;
}

alignas(16) constexpr CubQuads kCubQuads = make_cub_quads();

/* Window start of four coordinates in lanes: min(trunc v, last - 2), then
 * one less if above 0. */
inline __m128i cubic_base4(__m128 v, __m128i lastMinus2)
{
    const __m128i b = remap_min_epi32(_mm_cvttps_epi32(v), lastMinus2);
    return _mm_add_epi32(b, _mm_cmpgt_epi32(b, _mm_setzero_si128()));
}

/* Two lanes' weight quads in one register. */
inline __m128i cubic_quads2(int32_t i0, int32_t i1)
{
    return _mm_unpacklo_epi64(_mm_loadl_epi64((const __m128i *)kCubQuads.w[i0]),
                              _mm_loadl_epi64((const __m128i *)kCubQuads.w[i1]));
}

inline int32_t cubic_base(int32_t i, int32_t last)
{
    const int32_t b = i < last - 2 ? i : last - 2;
    return b > 0 ? b - 1 : b;
}

template <class R> inline void cubic_factored(R u, R w[4])
{
    const R half = (R)0.5, sixth = (R)(1.0 / 6.0), third = (R)(1.0 / 3.0), one = (R)1;
    const R u2 = u * u;
    w[0] = (half - u * sixth) * u2 - u * third;
    w[1] = (u * half - one) * (u2 - one);
    w[2] = (u - u2) * (u * half) + u;
    w[3] = (u2 - one) * (u * sixth);
}

inline void cubic_horner(Lum32f u, Lum32f w[4])
{
    static const Lum32f c1[4] = {-1.0f / 3.0f, -0.5f, 1.0f, -1.0f / 6.0f};
    static const Lum32f c2[4] = {0.5f, -1.0f, 0.5f, 0.0f};
    static const Lum32f c3[4] = {-1.0f / 6.0f, 0.5f, -0.5f, 1.0f / 6.0f};
    static const Lum32f c0[4] = {0.0f, 1.0f, 0.0f, 0.0f};
    for (int k = 0; k < 4; ++k)
        w[k] = ((c3[k] * u + c2[k]) * u + c1[k]) * u + c0[k];
}

template <class T, int L, class R>
inline R cubic_sum(const RemapSrc<T, L> &s, int c, int32_t bx, int32_t by, const R *wx, const R *wy)
{
    R v = 0;
    for (int r = 0; r < 4; ++r) {
        R h = (R)s.at(c, bx, by + r) * wx[0];
        for (int k = 1; k < 4; ++k)
            h = h + (R)s.at(c, bx + k, by + r) * wx[k];
        v = r == 0 ? h * wy[0] : v + h * wy[r];
    }
    return v;
}

} // namespace

template <class T, int L, bool Soft> struct RemapCub {
    typedef RemapMap<T> M;
    static constexpr bool kRow = kRemapRow8u<T, L, Soft>;

    /* Plain 8u, four pixels at a time.  A unit's row of four samples meets
     * its weight quad in one 16-bit multiply-add (two pairs), the pairs are
     * added across lanes, and the four row results meet the row weights the
     * same way; 32-bit sums throughout, as in the scalar form. */
    static void row(const RemapSrc<T, L> &s, const RemapArgs &a, const float *xm, const float *ym,
                    Lum8u *d)
    {
        constexpr int S = RemapShape<L>::stride;
        const __m128i xl = _mm_set1_epi32(a.wMax - 2), yl = _mm_set1_epi32(a.hMax - 2);
        const __m128i zero = _mm_setzero_si128();
        const __m128 scale = _mm_set1_ps(512.0f);
        remap_row8u<RemapCub, S>(s, a, xm, ym, d, [&](__m128 x, __m128 y, int mask, Lum8u *o) {
            const __m128i bx = cubic_base4(x, xl), by = cubic_base4(y, yl);
            int32_t ia[4], ib[4];
            remap_lanes_out(_mm_cvtps_epi32(_mm_mul_ps(_mm_sub_ps(x, _mm_cvtepi32_ps(bx)), scale)), ia);
            remap_lanes_out(_mm_cvtps_epi32(_mm_mul_ps(_mm_sub_ps(y, _mm_cvtepi32_ps(by)), scale)), ib);
            const Lum8u *org[4];
            remap_origins<S>(s.base[0], s.step, bx, by, org);
            const bool wide = remap_wide<S>(bx, a.wMax, 5);
            constexpr int G = RemapUnits<S>::kGroups;
            __m128i v[G];
            for (int g = 0; g < G; ++g) {
                int32_t ua[4], ub[4];
                for (int lane = 0; lane < 4; ++lane)
                    ua[lane] = ia[S == 1 ? lane : g], ub[lane] = ib[S == 1 ? lane : g];
                const __m128i wa01 = cubic_quads2(ua[0], ua[1]), wa23 = cubic_quads2(ua[2], ua[3]);
                const __m128 b01 = _mm_castsi128_ps(cubic_quads2(ub[0], ub[1]));
                const __m128 b23 = _mm_castsi128_ps(cubic_quads2(ub[2], ub[3]));
                const __m128i wb01 = _mm_castps_si128(_mm_shuffle_ps(b01, b23, _MM_SHUFFLE(2, 0, 2, 0)));
                const __m128i wb23 = _mm_castps_si128(_mm_shuffle_ps(b01, b23, _MM_SHUFFLE(3, 1, 3, 1)));
                __m128i h[4];
                for (int r = 0; r < 4; ++r) {
                    const __m128i q = remap_quads<S>(org, g, r * s.step, wide);
                    const __m128 lo = _mm_castsi128_ps(_mm_madd_epi16(_mm_unpacklo_epi8(q, zero), wa01));
                    const __m128 hi = _mm_castsi128_ps(_mm_madd_epi16(_mm_unpackhi_epi8(q, zero), wa23));
                    h[r] = _mm_srai_epi32(_mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0))),
                                                        _mm_castps_si128(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1)))),
                                          8);
                }
                /* (h0, h1) and (h2, h3) of each lane as 16-bit pairs. */
                const __m128i p02 = _mm_packs_epi32(h[0], h[2]), p13 = _mm_packs_epi32(h[1], h[3]);
                const __m128i sum = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(p02, p13), wb01),
                                                  _mm_madd_epi16(_mm_unpackhi_epi16(p02, p13), wb23));
                v[g] = _mm_srai_epi32(_mm_add_epi32(sum, _mm_set1_epi32(524288)), 20);
            }
            /* The packs limit each result to 0..255. */
            remap_put<S>(v, o, mask);
        });
    }

    static void pixel(const RemapSrc<T, L> &s, const RemapArgs &a, M x, M y, T *const *d)
    {
        constexpr int N = RemapShape<L>::count;
        if constexpr (Soft && kRemapLowTier) {
            const double xd = (double)x + 1e-7, yd = (double)y + 1e-7;
            const int32_t bx = cubic_base((int32_t)xd, a.wMax), by = cubic_base((int32_t)yd, a.hMax);
            double wx[4], wy[4];
            cubic_factored((double)x - bx - 1.0, wx);
            cubic_factored((double)y - by - 1.0, wy);
            for (int c = 0; c < N; ++c)
                store_sat(d[c], cubic_sum(s, c, bx, by, wx, wy));
            return;
        }
        const int32_t bx = cubic_base((int32_t)x, a.wMax), by = cubic_base((int32_t)y, a.hMax);
        if constexpr (!Soft && std::is_same<T, Lum8u>::value) {
            const int32_t ia = remap_rne((x - (M)bx) * 512.0f), ib = remap_rne((y - (M)by) * 512.0f);
            const int32_t wa[4] = {kCubTab.m[ia], kCubTab.z[ia], kCubTab.z[1536 - ia], kCubTab.m[1536 - ia]};
            const int32_t wb[4] = {kCubTab.m[ib], kCubTab.z[ib], kCubTab.z[1536 - ib], kCubTab.m[1536 - ib]};
            for (int c = 0; c < N; ++c) {
                int32_t v = 524288;
                for (int r = 0; r < 4; ++r) {
                    int32_t h = 0;
                    for (int k = 0; k < 4; ++k)
                        h += (int32_t)s.at(c, bx + k, by + r) * wa[k];
                    v += (int32_t)(int16_t)(h >> 8) * wb[r];
                }
                v >>= 20;
                *d[c] = (Lum8u)(v < 0 ? 0 : v > 255 ? 255 : v);
            }
            return;
        }
        M wx[4], wy[4];
        const M u = x - (M)bx - (M)1, v = y - (M)by - (M)1;
        if constexpr (!Soft && std::is_same<T, Lum32f>::value) {
            cubic_horner(u, wx);
            cubic_horner(v, wy);
        } else {
            cubic_factored(u, wx);
            cubic_factored(v, wy);
        }
        for (int c = 0; c < N; ++c)
            store_sat(d[c], cubic_sum(s, c, bx, by, wx, wy));
    }
};

LUMI_REMAP_INSTANTIATE(RemapCub)

} // namespace LUMI_NS
