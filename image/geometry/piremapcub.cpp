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
