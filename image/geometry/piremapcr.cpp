/*
 * Remap kernels: Catmull-Rom (four taps) and Lanczos with three lobes (six
 * taps), with their border forms.
 *
 * Both start from ix = trunc(x + 1e-7), iy likewise, in the map's type, and
 * the fractions tx = x - ix, ty = y - iy (a coordinate just below a whole
 * number snaps to it, and the fraction may be a tiny negative number).
 *
 * Interior (the window inside the whole image: 1 <= ix < wMax - 1 for
 * Catmull-Rom, 2 <= ix < wMax - 2 for Lanczos, rows likewise):
 *   - Catmull-Rom, taps ix - 1..ix + 2, with h = t/2:
 *       w0 = -(h (t - 1)^2)        w1 = (3t^2 - 5t) h + 1
 *       w2 = ((4t - 3t^2) + 1) h   w3 = (h (t - 1)) t
 *     in float (the order chosen here, used by every tier);
 *   - Lanczos, taps ix - 2..ix + 3: distance a = min(|(-t - 2) + k|, 3) 100,
 *     n = trunc a, weight tbl[n] + (a - n)(tbl[n + 1] - tbl[n]) from the
 *     kernel table at spacing 0.01; the six weights are added in tap order
 *     and each divided by the sum.
 *   Products are added in tap order per row, then across rows.  Integers
 *   round to nearest, ties to even, and saturate; floats are stored.
 *
 * Border (every other pixel of the region): index lists built from the
 * coordinate as double, trunc(x + 1e-7) - 1 + k (or - 2 + k) limited to the
 * image, so border rows and columns repeat; the fraction is still the float
 * one above.  Weights and sums in double: the Catmull-Rom weights as above,
 * or for Lanczos distances d = -2 - t stepping by 1.0 in the map's type,
 * weight sinc(d) sinc(d/3) for |d| < 3 (sinc(z) = sin(pi z)/(pi z)),
 * normalised by their sum.  Output: integers limited to their range, then
 * trunc(v + 0.5) (toward zero, so -1.7 gives -1 for 16s); 32f flushes
 * magnitudes below the smallest normal number to zero.  A 16s pixel can thus
 * round differently by one at the border than inside.
 *
 * 64f has no float interior: its interior is the double form above, which is
 * the border form with lists that need no limiting, so every 64f pixel takes
 * it.  The SSE3 tier likewise sends every pixel of every type through the
 * double form, its interior following the border's output rules.
 */
#include <math.h>
#include <type_traits>

#include "piremap_walk.h"
#if LUMI_HAS_AVX
#include <immintrin.h>
#endif

namespace LUMI_NS {
namespace {

template <class R> inline void cr_weights(R t, R w[4])
{
    const R h = t * (R)0.5, one = (R)1, tm = t - one, t2 = t * t;
    w[0] = -(h * (tm * tm));
    w[1] = ((R)3 * t2 - (R)5 * t) * h + one;
    w[2] = (((R)4 * t - (R)3 * t2) + one) * h;
    w[3] = (h * tm) * t;
}

inline void l3_table_weights(Lum32f t, Lum32f w[6])
{
    const Lum32f *tbl = LUMI_T(tblLanczos3);
    Lum32f sum = 0.0f;
    for (int k = 0; k < 6; ++k) {
        const Lum32f dist = (-t - 2.0f) + (Lum32f)k;
        const Lum32f m = fabsf(dist);
        const Lum32f v = (m < 3.0f ? m : 3.0f) * 100.0f;
        const int32_t n = (int32_t)v;
        w[k] = tbl[n] + (v - (Lum32f)n) * (tbl[n + 1] - tbl[n]);
        sum = k == 0 ? w[0] : sum + w[k];
    }
    for (int k = 0; k < 6; ++k)
        w[k] = w[k] / sum;
}

inline double sinc_pi(double z)
{
    const double p = M_PI * z;
    return sin(p) / p;
}

/* d starts at -2 - t and steps by 1.0 in the map's type. */
template <class M> inline void l3_sine_weights(M t, double w[6])
{
    M dist = (M)-2 - t;
    double sum = 0.0;
    for (int k = 0; k < 6; ++k, dist = dist + (M)1) {
        const double dd = (double)dist;
        w[k] = dd == 0.0 ? 1.0 : dd > -3.0 && dd < 3.0 ? sinc_pi(dd) * sinc_pi(dd / 3.0) : 0.0;
        sum = k == 0 ? w[0] : sum + w[k];
    }
    for (int k = 0; k < 6; ++k)
        w[k] = w[k] / sum;
}

/* The list of K indices around a coordinate, limited to 0..n - 1. */
template <int K> inline void set_index(int32_t n, int32_t *list, double coord)
{
    const int32_t i = (int32_t)(coord + 1e-7);
    for (int k = 0; k < K; ++k) {
        const int32_t v = i - (K / 2 - 1) + k;
        list[k] = v < 0 ? 0 : v > n - 1 ? n - 1 : v;
    }
}

template <class T, int L, int K, class R>
inline R window_sum(const RemapSrc<T, L> &s, int c, const int32_t *cols, const int32_t *rows,
                    const R *wx, const R *wy)
{
    R v = 0;
    for (int r = 0; r < K; ++r) {
        R h = (R)s.at(c, cols[0], rows[r]) * wx[0];
        for (int k = 1; k < K; ++k)
            h = h + (R)s.at(c, cols[k], rows[r]) * wx[k];
        v = r == 0 ? h * wy[0] : v + h * wy[r];
    }
    return v;
}

/* The border form of both families: index lists and double precision. */
template <int K, class T, int L>
inline void border_pixel(const RemapSrc<T, L> &s, const RemapArgs &a, RemapMap<T> x, RemapMap<T> y,
                         T *const *d)
{
    typedef RemapMap<T> M;
    int32_t cols[K], rows[K];
    set_index<K>(a.wMax + 1, cols, (double)x);
    set_index<K>(a.hMax + 1, rows, (double)y);
    const M tx = x - (M)(int32_t)(x + (M)1e-7), ty = y - (M)(int32_t)(y + (M)1e-7);
    double wx[K], wy[K];
    if constexpr (K == 4) {
        cr_weights((double)tx, wx);
        cr_weights((double)ty, wy);
    } else {
        l3_sine_weights(tx, wx);
        l3_sine_weights(ty, wy);
    }
    for (int c = 0; c < RemapShape<L>::count; ++c)
        store_point(d[c], window_sum<T, L, K>(s, c, cols, rows, wx, wy));
}

/* The float interior form of both families, when the window lies inside. */
template <int K, class T, int L>
inline bool interior_pixel(const RemapSrc<T, L> &s, const RemapArgs &a, Lum32f x, Lum32f y,
                           T *const *d)
{
    constexpr int32_t back = K / 2 - 1;
    const int32_t ix = (int32_t)(x + 1e-7f), iy = (int32_t)(y + 1e-7f);
    if (!(ix >= back && ix < a.wMax - back && iy >= back && iy < a.hMax - back))
        return false;
    const Lum32f tx = x - (Lum32f)ix, ty = y - (Lum32f)iy;
    Lum32f wx[K], wy[K];
    if constexpr (K == 4) {
        cr_weights(tx, wx);
        cr_weights(ty, wy);
    } else {
        l3_table_weights(tx, wx);
        l3_table_weights(ty, wy);
    }
    int32_t cols[K], rows[K];
    for (int k = 0; k < K; ++k)
        cols[k] = ix - back + k, rows[k] = iy - back + k;
    for (int c = 0; c < RemapShape<L>::count; ++c)
        store_sat(d[c], window_sum<T, L, K>(s, c, cols, rows, wx, wy));
    return true;
}

template <int K, class T, int L>
inline void two_form_pixel(const RemapSrc<T, L> &s, const RemapArgs &a, RemapMap<T> x,
                           RemapMap<T> y, T *const *d)
{
    if constexpr (!kRemapLowTier && !std::is_same<T, Lum64f>::value) {
        if (interior_pixel<K>(s, a, x, y, d))
            return;
    }
    border_pixel<K>(s, a, x, y, d);
}

/* ----------------------------------------------- vector rows, plain 8u -- */

/* Catmull-Rom weights of four fractions in lanes, in cr_weights' order. */
inline void cr_weights4(__m128 t, __m128 w[4])
{
    const __m128 one = _mm_set1_ps(1.0f), h = _mm_mul_ps(t, _mm_set1_ps(0.5f));
    const __m128 tm = _mm_sub_ps(t, one), t2 = _mm_mul_ps(t, t);
    const __m128 three = _mm_set1_ps(3.0f);
    w[0] = _mm_xor_ps(_mm_mul_ps(h, _mm_mul_ps(tm, tm)), _mm_set1_ps(-0.0f));
    w[1] = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(_mm_mul_ps(three, t2), _mm_mul_ps(_mm_set1_ps(5.0f), t)), h), one);
    w[2] = _mm_mul_ps(_mm_add_ps(_mm_sub_ps(_mm_mul_ps(_mm_set1_ps(4.0f), t), _mm_mul_ps(three, t2)), one), h);
    w[3] = _mm_mul_ps(_mm_mul_ps(h, tm), t);
}

/* Lanczos table weights of four fractions in lanes, in l3_table_weights'
 * order; the table is read lane by lane. */
inline void l3_table_weights4(__m128 t, __m128 w[6])
{
    const Lum32f *tbl = LUMI_T(tblLanczos3);
    const __m128 sign = _mm_set1_ps(-0.0f);
    const __m128 start = _mm_sub_ps(_mm_xor_ps(t, sign), _mm_set1_ps(2.0f));
    __m128 sum = _mm_setzero_ps();
    for (int k = 0; k < 6; ++k) {
        const __m128 dist = _mm_add_ps(start, _mm_set1_ps((Lum32f)k));
        const __m128 v = _mm_mul_ps(_mm_min_ps(_mm_andnot_ps(sign, dist), _mm_set1_ps(3.0f)), _mm_set1_ps(100.0f));
        const __m128i n = _mm_cvttps_epi32(v);
        int32_t ni[4];
        remap_lanes_out(n, ni);
        const __m128 t0 = _mm_setr_ps(tbl[ni[0]], tbl[ni[1]], tbl[ni[2]], tbl[ni[3]]);
        const __m128 t1 = _mm_setr_ps(tbl[ni[0] + 1], tbl[ni[1] + 1], tbl[ni[2] + 1], tbl[ni[3] + 1]);
        w[k] = _mm_add_ps(t0, _mm_mul_ps(_mm_sub_ps(v, _mm_cvtepi32_ps(n)), _mm_sub_ps(t1, t0)));
        sum = k == 0 ? w[0] : _mm_add_ps(sum, w[k]);
    }
    for (int k = 0; k < 6; ++k)
        w[k] = _mm_div_ps(w[k], sum);
}

/* Units of group g (float lanes) to bytes: limited to 0..255, rounded to
 * nearest, ties to even. */
inline __m128i interior_out(__m128 sum)
{
    return _mm_cvtps_epi32(_mm_max_ps(_mm_min_ps(sum, _mm_set1_ps(255.0f)), _mm_setzero_ps()));
}

/* The float interior of every group: per window row the taps times the
 * column weights, added in tap order, times the row weight, added in row
 * order.  The AVX tier takes the groups of two three-element pixels side by
 * side in its eight lanes, with the same operations per lane. */
template <int S, int K>
inline void interior_groups(const Lum8u *const org[4], ptrdiff_t step, bool wide, const __m128 *wx,
                            const __m128 *wy, __m128i *v)
{
#if LUMI_HAS_AVX
    if constexpr (S == 3) {
        for (int g = 0; g < 4; g += 2) {
            __m256 wxg[K];
            for (int k = 0; k < K; ++k)
                wxg[k] = _mm256_set_m128(RemapUnits<S>::spread(wx[k], g + 1), RemapUnits<S>::spread(wx[k], g));
            __m256 sum = _mm256_setzero_ps();
            for (int r = 0; r < K; ++r) {
                __m128 t0[K], t1[K];
                remap_taps_ps<S, K>(org, g, r * step, wide, t0);
                remap_taps_ps<S, K>(org, g + 1, r * step, wide, t1);
                __m256 h = _mm256_mul_ps(_mm256_set_m128(t1[0], t0[0]), wxg[0]);
                for (int k = 1; k < K; ++k)
                    h = _mm256_add_ps(h, _mm256_mul_ps(_mm256_set_m128(t1[k], t0[k]), wxg[k]));
                const __m256 wyr = _mm256_set_m128(RemapUnits<S>::spread(wy[r], g + 1), RemapUnits<S>::spread(wy[r], g));
                const __m256 hw = _mm256_mul_ps(h, wyr);
                sum = r == 0 ? hw : _mm256_add_ps(sum, hw);
            }
            v[g] = interior_out(_mm256_castps256_ps128(sum));
            v[g + 1] = interior_out(_mm256_extractf128_ps(sum, 1));
        }
        return;
    }
#endif
    for (int g = 0; g < RemapUnits<S>::kGroups; ++g) {
        __m128 wxg[K];
        for (int k = 0; k < K; ++k)
            wxg[k] = RemapUnits<S>::spread(wx[k], g);
        __m128 sum = _mm_setzero_ps();
        for (int r = 0; r < K; ++r) {
            __m128 t[K];
            remap_taps_ps<S, K>(org, g, r * step, wide, t);
            __m128 h = _mm_mul_ps(t[0], wxg[0]);
            for (int k = 1; k < K; ++k)
                h = _mm_add_ps(h, _mm_mul_ps(t[k], wxg[k]));
            const __m128 hw = _mm_mul_ps(h, RemapUnits<S>::spread(wy[r], g));
            sum = r == 0 ? hw : _mm_add_ps(sum, hw);
        }
        v[g] = interior_out(sum);
    }
}

/* A plain 8u C1 or C3 row of either family: the lanes whose window lies
 * inside the image take the float interior form in lanes, the others the
 * scalar pixel (the border form). */
template <int K, class Scalar, int S, class Src>
void interior_row8u(const Src &s, const RemapArgs &a, const float *xm, const float *ym, Lum8u *d)
{
    constexpr int back = K / 2 - 1;
    const __m128i lo = _mm_set1_epi32(back - 1);
    const __m128i xhi = _mm_set1_epi32(a.wMax - back), yhi = _mm_set1_epi32(a.hMax - back);
    const __m128 eps = _mm_set1_ps(1e-7f);
    remap_row8u<Scalar, S>(s, a, xm, ym, d, [&](__m128 x, __m128 y, int mask, Lum8u *o) {
        const __m128i ix = _mm_cvttps_epi32(_mm_add_ps(x, eps)), iy = _mm_cvttps_epi32(_mm_add_ps(y, eps));
        const __m128i in = _mm_and_si128(_mm_and_si128(_mm_cmpgt_epi32(ix, lo), _mm_cmplt_epi32(ix, xhi)),
                                         _mm_and_si128(_mm_cmpgt_epi32(iy, lo), _mm_cmplt_epi32(iy, yhi)));
        const int inner = mask & _mm_movemask_ps(_mm_castsi128_ps(in));
        if (inner != mask) {
            float xs[4], ys[4];
            _mm_storeu_ps(xs, x);
            _mm_storeu_ps(ys, y);
            for (int lane = 0; lane < 4; ++lane)
                if ((mask & ~inner) & (1 << lane)) {
                    Lum8u *e[4] = {o + lane * S, o + lane * S + 1, o + lane * S + 2, nullptr};
                    Scalar::pixel(s, a, xs[lane], ys[lane], e);
                }
        }
        if (!inner)
            return;
        __m128 wx[K], wy[K];
        const __m128 tx = _mm_sub_ps(x, _mm_cvtepi32_ps(ix)), ty = _mm_sub_ps(y, _mm_cvtepi32_ps(iy));
        if constexpr (K == 4) {
            cr_weights4(tx, wx);
            cr_weights4(ty, wy);
        } else {
            l3_table_weights4(tx, wx);
            l3_table_weights4(ty, wy);
        }
        /* Lanes left to the border form read from the image's corner. */
        const __m128i off = _mm_set1_epi32(back);
        const Lum8u *org[4];
        const __m128i bx = _mm_and_si128(in, _mm_sub_epi32(ix, off));
        remap_origins<S>(s.base[0], s.step, bx, _mm_and_si128(in, _mm_sub_epi32(iy, off)), org);
        /* A row's wide loads reach 16 bytes from the origin (and 8 from tap 4). */
        const bool wide = remap_wide<S>(bx, a.wMax, K == 4 ? 5 : 6);
        __m128i v[RemapUnits<S>::kGroups];
        interior_groups<S, K>(org, s.step, wide, wx, wy, v);
        remap_put<S>(v, o, inner);
    });
}

/* The vector rows serve the tiers that have a float interior. */
template <class T, int L, bool Soft> constexpr bool kInteriorRow = kRemapRow8u<T, L, Soft> && !kRemapLowTier;

} // namespace

template <class T, int L, bool Soft> struct RemapCR {
    static constexpr bool kRow = kInteriorRow<T, L, Soft>;
    static void row(const RemapSrc<T, L> &s, const RemapArgs &a, const float *xm, const float *ym, Lum8u *d)
    {
        interior_row8u<4, RemapCR, RemapShape<L>::stride>(s, a, xm, ym, d);
    }
    static void pixel(const RemapSrc<T, L> &s, const RemapArgs &a, RemapMap<T> x, RemapMap<T> y,
                      T *const *d)
    {
        two_form_pixel<4>(s, a, x, y, d);
    }
};

template <class T, int L, bool Soft> struct RemapL3 {
    static constexpr bool kRow = kInteriorRow<T, L, Soft>;
    static void row(const RemapSrc<T, L> &s, const RemapArgs &a, const float *xm, const float *ym, Lum8u *d)
    {
        interior_row8u<6, RemapL3, RemapShape<L>::stride>(s, a, xm, ym, d);
    }
    static void pixel(const RemapSrc<T, L> &s, const RemapArgs &a, RemapMap<T> x, RemapMap<T> y,
                      T *const *d)
    {
        two_form_pixel<6>(s, a, x, y, d);
    }
};

LUMI_REMAP_INSTANTIATE(RemapCR)
LUMI_REMAP_INSTANTIATE(RemapL3)

} // namespace LUMI_NS
