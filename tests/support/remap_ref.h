// A plain per-pixel reference of remap, written from its rules one pixel at a
// time, and a harness that lays out source, maps and a guarded destination
// for any element type and layout.  The destination buffer is compared whole,
// so a write into padding, margins, a fourth AC4 element or a pixel that
// should keep its value shows up as a mismatch.
#pragma once

#include <math.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <random>
#include <functional>
#include <type_traits>
#include <vector>

#include "lumi.h"

namespace remapref {

enum Layout { C1, C3, C4, AC4, P3, P4 };
inline int stride_of(Layout l) { return l == C1 || l >= P3 ? 1 : l == C3 ? 3 : 4; }
inline int count_of(Layout l) { return l == C1 ? 1 : l == C3 || l == AC4 || l == P3 ? 3 : 4; }
inline bool planar(Layout l) { return l >= P3; }

struct Limits {
    int xMin, yMin, xMax, yMax, wMax, hMax;
};

// Source element access (column, row, element) over any layout.
template <class T> struct SrcView {
    std::vector<const unsigned char *> base;
    int step, stride;
    double at(int c, int col, int row) const
    {
        return (double)*(const T *)(base[c] + (ptrdiff_t)row * step + (ptrdiff_t)col * stride * (int)sizeof(T));
    }
};

template <class T> constexpr bool is_int = std::is_integral<T>::value;
template <class T> double lo_of() { return is_int<T> ? (double)std::numeric_limits<T>::min() : 0; }
template <class T> double hi_of() { return is_int<T> ? (double)std::numeric_limits<T>::max() : 0; }

// Round half to even by hand, independent of the library.
inline double rne(double v)
{
    const double f = floor(v), r = v - f;
    if (r > 0.5 || (r == 0.5 && fmod(f, 2.0) != 0.0))
        return f + 1.0;
    return f;
}
template <class T> T sat(double v)
{
    if (!is_int<T>)
        return (T)v;
    v = rne(v);
    return (T)(v < lo_of<T>() ? lo_of<T>() : v > hi_of<T>() ? hi_of<T>() : v);
}
template <class T> T low_bits(double v)
{
    return is_int<T> ? (T)(int64_t)rne(v) : (T)v;
}
template <class T> T point_out(double v)
{
    if (std::is_same<T, double>::value)
        return (T)v;
    if (std::is_same<T, float>::value)
        return fabs(v) < 1.1754943508222875e-38 ? (T)0 : (T)(float)v;
    if (v > hi_of<T>())
        return (T)hi_of<T>();
    if (v < lo_of<T>())
        return (T)lo_of<T>();
    return (T)(int64_t)trunc(v + 0.5);
}

enum Family { NN, LIN, CUB, CR, L3 };

// Cubic weights of the taps bx..bx + 3 at u, the factored forms.
template <class R> void cub_factored(R u, R *w)
{
    const R u2 = u * u;
    w[0] = ((R)0.5 - u * (R)(1.0 / 6.0)) * u2 - u * (R)(1.0 / 3.0);
    w[1] = (u * (R)0.5 - (R)1) * (u2 - (R)1);
    w[2] = (u - u2) * (u * (R)0.5) + u;
    w[3] = (u2 - (R)1) * (u * (R)(1.0 / 6.0));
}
// The same polynomials by Horner's rule from their coefficients (plain 32f).
inline void cub_horner(float u, float *w)
{
    const float c[4][4] = {{0.0f, -1.0f / 3.0f, 0.5f, -1.0f / 6.0f},
                           {1.0f, -0.5f, -1.0f, 0.5f},
                           {0.0f, 1.0f, 0.5f, -0.5f},
                           {0.0f, -1.0f / 6.0f, 0.0f, 1.0f / 6.0f}};
    for (int k = 0; k < 4; ++k)
        w[k] = ((c[k][3] * u + c[k][2]) * u + c[k][1]) * u + c[k][0];
}
template <class R> void cr_w(R t, R *w)
{
    const R h = t * (R)0.5, tm = t - (R)1;
    w[0] = -(h * (tm * tm));
    w[1] = ((R)3 * (t * t) - (R)5 * t) * h + (R)1;
    w[2] = (((R)4 * t - (R)3 * (t * t)) + (R)1) * h;
    w[3] = (h * tm) * t;
}
inline void l3_tab_w(float t, float *w, const float *tbl)
{
    float sum = 0;
    for (int k = 0; k < 6; ++k) {
        const float a = fminf(fabsf((-t - 2.0f) + (float)k), 3.0f) * 100.0f;
        const int n = (int)a;
        w[k] = tbl[n] + (a - (float)n) * (tbl[n + 1] - tbl[n]);
        sum = k ? sum + w[k] : w[k];
    }
    for (int k = 0; k < 6; ++k)
        w[k] /= sum;
}
template <class M> void l3_sin_w(M t, double *w)
{
    double sum = 0;
    M d = (M)-2 - t;
    for (int k = 0; k < 6; ++k, d = d + (M)1) {
        const double z = d;
        if (z == 0)
            w[k] = 1;
        else if (z <= -3 || z >= 3)
            w[k] = 0;
        else
            w[k] = sin(M_PI * z) / (M_PI * z) * (sin(M_PI * (z / 3)) / (M_PI * (z / 3)));
        sum = k ? sum + w[k] : w[k];
    }
    for (int k = 0; k < 6; ++k)
        w[k] /= sum;
}
// Separable sum: each row in tap order, then the rows in order.
template <class T, class R>
R sep_sum(const SrcView<T> &s, int c, const int *cols, const int *rows, const R *wx, const R *wy, int K)
{
    R v = 0;
    for (int r = 0; r < K; ++r) {
        R h = (R)s.at(c, cols[0], rows[r]) * wx[0];
        for (int k = 1; k < K; ++k)
            h = h + (R)s.at(c, cols[k], rows[r]) * wx[k];
        v = r ? v + h * wy[r] : h * wy[0];
    }
    return v;
}
inline int16_t q14(double v) { return (int16_t)lround(16384.0 * v); }

// One destination pixel: d holds the count_of(layout) element pointers.
template <class T, class M>
void ref_pixel(const SrcView<T> &s, const Limits &g, Family fam, bool soft, bool low, M x, M y,
               T *const *d, int n, const float *tbl)
{
    const bool inside = x >= (M)g.xMin && x <= (M)g.xMax && y >= (M)g.yMin && y <= (M)g.yMax;
    if (!inside) {
        if (!soft || !(x >= (M)g.xMin - 1 && x <= (M)g.xMax + 1 && y >= (M)g.yMin - 1 && y <= (M)g.yMax + 1))
            return;
        int col, row;
        M ax = 1, w;
        bool xe = true;
        if (x < (M)g.xMin) col = g.xMin, ax = (M)g.xMin - x;
        else if (x > (M)g.xMax) col = g.xMax, ax = x - (M)g.xMax;
        else col = (int)x, xe = false;
        if (y < (M)g.yMin || y > (M)g.yMax) {
            const M ay = y < (M)g.yMin ? (M)g.yMin - y : y - (M)g.yMax;
            row = y < (M)g.yMin ? g.yMin : g.yMax;
            w = xe ? (M)1 - ((M)1 - ax) * ((M)1 - ay) : ax * ay;
        } else {
            row = (int)y, w = ax;
        }
        for (int c = 0; c < n; ++c) {
            const M sv = (M)s.at(c, col, row), dv = (M)*d[c];
            *d[c] = low ? (T)(is_int<T> ? (T)(int64_t)(dv * w + sv * ((M)1 - w)) : (T)(dv * w + sv * ((M)1 - w)))
                        : low_bits<T>(sv + (dv - sv) * w);
        }
        return;
    }
    const bool is8u = std::is_same<T, uint8_t>::value, is16s = std::is_same<T, int16_t>::value;
    const bool is32f = std::is_same<T, float>::value, is64f = std::is_same<T, double>::value;
    if (fam == NN) {
        const int col = (int)(x + (M)0.5), row = (int)(y + (M)0.5);
        for (int c = 0; c < n; ++c)
            *d[c] = (T)s.at(c, col, row);
    } else if (fam == LIN && soft && low && is8u) {
        int ix, iy, fx, fy;
        auto axis = [](M v, int last, int *i, int *f) {
            const int64_t q = (int64_t)(v * (M)65536);
            if (q < (int64_t)last * 65536) *i = (int)(q / 65536), *f = (int)(q % 65536);
            else *i = last - 1, *f = 65536;
        };
        axis(x, g.wMax, &ix, &fx);
        axis(y, g.hMax, &iy, &fy);
        for (int c = 0; c < n; ++c) {
            const int p00 = 64 * (int)s.at(c, ix, iy), p01 = 64 * (int)s.at(c, ix + 1, iy);
            const int p10 = 64 * (int)s.at(c, ix, iy + 1), p11 = 64 * (int)s.at(c, ix + 1, iy + 1);
            const int r0 = p00 + (int)floor((double)(p01 - p00) * fx / 65536.0);
            const int r1 = p10 + (int)floor((double)(p11 - p10) * fx / 65536.0);
            *d[c] = (T)((r0 + (int)floor((double)fy * (r1 - r0) / 65536.0) + 32) >> 6);
        }
    } else if (fam == LIN) {
        const bool image = soft || is16s || is64f;
        int ix = (int)x, iy = (int)y;
        // A base on the last column or row moves back one (but never below 0:
        // with fraction 0 the value is the same).
        if (ix == (image ? g.wMax : g.xMax) && ix > 0) --ix;
        if (iy == (image ? g.hMax : g.yMax) && iy > 0) --iy;
        const M fx = x - (M)ix, fy = y - (M)iy;
        for (int c = 0; c < n; ++c) {
            const M p00 = (M)s.at(c, ix, iy), p01 = (M)s.at(c, ix + 1, iy);
            const M p10 = (M)s.at(c, ix, iy + 1), p11 = (M)s.at(c, ix + 1, iy + 1);
            if (!soft && is8u) {
                const int a = (int)rne(fx * 16384.0f), b = (int)rne(fy * 16384.0f);
                const int r0 = (int)floor(((double)p00 * (16384 - a) + (double)p01 * a) / 256.0);
                const int r1 = (int)floor(((double)p10 * (16384 - a) + (double)p11 * a) / 256.0);
                *d[c] = (T)(uint8_t)floor(((double)r0 * (16384 - b) + (double)r1 * b + 33) / 1048576.0);
            } else if (!soft && !is16s && !is64f) {
                const M r0 = p00 * ((M)1 - fx) + p01 * fx, r1 = p10 * ((M)1 - fx) + p11 * fx;
                *d[c] = low_bits<T>(r0 * ((M)1 - fy) + r1 * fy);
            } else {
                const M r0 = p00 + (p01 - p00) * fx, r1 = p10 + (p11 - p10) * fx;
                const M v = r0 + (r1 - r0) * fy;
                *d[c] = soft ? sat<T>(v) : low_bits<T>(v);
            }
        }
    } else if (fam == CUB) {
        auto base = [](int i, int last) { int b = std::min(i, last - 2); return b > 0 ? b - 1 : b; };
        const bool dbl = soft && low;
        const int bx = base(dbl ? (int)((double)x + 1e-7) : (int)x, g.wMax);
        const int by = base(dbl ? (int)((double)y + 1e-7) : (int)y, g.hMax);
        int cols[4], rows[4];
        for (int k = 0; k < 4; ++k) cols[k] = bx + k, rows[k] = by + k;
        for (int c = 0; c < n; ++c) {
            if (dbl) {
                double wx[4], wy[4];
                cub_factored((double)x - bx - 1.0, wx);
                cub_factored((double)y - by - 1.0, wy);
                *d[c] = sat<T>(sep_sum(s, c, cols, rows, wx, wy, 4));
            } else if (!soft && is8u) {
                const int ia = (int)rne((x - (M)bx) * 512.0f), ib = (int)rne((y - (M)by) * 512.0f);
                auto tab = [](int i, int which) {
                    const double u = i / 512.0 - 1;
                    return which ? q14((u + 1) * (u - 1) * (u - 2) / 2) : q14(-u * (u - 1) * (u - 2) / 6);
                };
                const int wa[4] = {tab(ia, 0), tab(ia, 1), tab(1536 - ia, 1), tab(1536 - ia, 0)};
                const int wb[4] = {tab(ib, 0), tab(ib, 1), tab(1536 - ib, 1), tab(1536 - ib, 0)};
                int64_t v = 524288;
                for (int r = 0; r < 4; ++r) {
                    int h = 0;
                    for (int k = 0; k < 4; ++k) h += (int)s.at(c, bx + k, by + r) * wa[k];
                    v += (int64_t)(int16_t)(int)floor(h / 256.0) * wb[r];
                }
                const int64_t q = (int64_t)floor((double)v / 1048576.0);
                *d[c] = (T)(q < 0 ? 0 : q > 255 ? 255 : q);
            } else {
                M wx[4], wy[4];
                const M u = x - (M)bx - (M)1, v = y - (M)by - (M)1;
                if (!soft && is32f) {
                    cub_horner((float)u, (float *)wx);
                    cub_horner((float)v, (float *)wy);
                } else {
                    cub_factored(u, wx);
                    cub_factored(v, wy);
                }
                *d[c] = sat<T>(sep_sum(s, c, cols, rows, wx, wy, 4));
            }
        }
    } else {
        const int K = fam == CR ? 4 : 6, back = K / 2 - 1;
        const int fix = (int)(x + (M)1e-7), fiy = (int)(y + (M)1e-7);
        const M tx = x - (M)fix, ty = y - (M)fiy;
        if (!low && !is64f && fix >= back && fix < g.wMax - back && fiy >= back && fiy < g.hMax - back) {
            float wx[6], wy[6];
            if (fam == CR) cr_w((float)tx, wx), cr_w((float)ty, wy);
            else l3_tab_w((float)tx, wx, tbl), l3_tab_w((float)ty, wy, tbl);
            int cols[6], rows[6];
            for (int k = 0; k < K; ++k) cols[k] = fix - back + k, rows[k] = fiy - back + k;
            for (int c = 0; c < n; ++c)
                *d[c] = sat<T>(sep_sum(s, c, cols, rows, wx, wy, K));
            return;
        }
        int cols[6], rows[6];
        const int ix = (int)((double)x + 1e-7), iy = (int)((double)y + 1e-7);
        for (int k = 0; k < K; ++k) {
            cols[k] = std::max(0, std::min(g.wMax, ix - back + k));
            rows[k] = std::max(0, std::min(g.hMax, iy - back + k));
        }
        double wx[6], wy[6];
        if (fam == CR) cr_w((double)tx, wx), cr_w((double)ty, wy);
        else l3_sin_w(tx, wx), l3_sin_w(ty, wy);
        for (int c = 0; c < n; ++c)
            *d[c] = point_out<T>(sep_sum(s, c, cols, rows, wx, wy, K));
    }
}

}  // namespace remapref

namespace remapref {

// The selector a source of this size carries: Lanczos needs 6 a side, the
// cubics 4, anything but nearest neighbour 2.
inline Family lowered(int code, LumiSize src)
{
    const int side = std::min(src.width, src.height);
    if (side < 6 && code == 16) code = 4;
    if (side < 4 && (code == 4 || code == 6)) code = 2;
    if (side == 1) code = 1;
    return code == 1 ? NN : code == 2 ? LIN : code == 4 ? CUB : code == 6 ? CR : L3;
}

template <class T> T random_value(std::mt19937 &g)
{
    if (std::is_floating_point<T>::value)
        return (T)std::uniform_real_distribution<double>(-300.0, 300.0)(g);
    return (T)std::uniform_int_distribution<int64_t>((int64_t)lo_of<T>(), (int64_t)hi_of<T>())(g);
}

// Coordinates that probe every limit of a region: on, just inside and just
// outside each, the band's edges, whole numbers and halves across the image,
// values that snap under + 1e-7, random ones in and around the region, NaN.
template <class M> std::vector<M> probe_coords(int lo, int hi, int last, int count, std::mt19937 &g)
{
    std::vector<M> special = {(M)lo, (M)hi, (M)lo - 1, (M)hi + 1, (M)lo - (M)0.5, (M)hi + (M)0.25,
                              (M)hi + (M)1.0625, (M)lo - (M)1.0625, nextafter((M)hi, (M)1e9),
                              nextafter((M)lo, (M)-1e9), nextafter((M)lo, (M)1e9), (M)0.5,
                              (M)0.99999994f, (M)last, (M)last - (M)0.5, (M)last - 2, (M)last - 3,
                              (M)2.9999998f, (M)-3, (M)last + 4, (M)NAN};
    for (int v = 0; v <= last; ++v)
        special.push_back((M)v), special.push_back((M)v + (M)0.5);
    std::vector<M> out;
    std::uniform_real_distribution<double> in((double)lo - 1.5, (double)hi + 1.5);
    for (int i = 0; i < count; ++i)
        out.push_back(i % 3 == 0 ? special[(size_t)g() % special.size()] : (M)in(g));
    return out;
}

// Lays out one case, runs it through `call`, and compares the whole
// destination (every plane, padding and margins included) with the reference.
template <class T> struct Case {
    typedef typename std::conditional<sizeof(T) == 8, double, float>::type M;
    Layout lay;
    LumiSize src;
    LumiRect roi;
    LumiSize dst;
    int interpolation;
    bool low;          // the SSE3 tier's forms
    const float *tbl;  // the Lanczos table
    uint32_t seed = 1;
    int margin = 48;   // elements before and after each destination plane
    // When set, places the coordinates itself: place(xm, ym, mapW, limits).
    std::function<void(std::vector<M> &, std::vector<M> &, int, const Limits &)> place;

    // call(src, srcStep, xMap, xStep, yMap, yStep, dst, dstStep): src and dst
    // are the first pixel or the array of plane pointers.
    template <class Call> ::testing::AssertionResult run(Call call, LumStatus want = lumStsNoErr)
    {
        std::mt19937 g(seed);
        const int S = stride_of(lay), N = count_of(lay), planes = planar(lay) ? N : 1;
        const int srcStep = (src.width * S + 2) * (int)sizeof(T);
        const int dstStep = (dst.width * S + 3) * (int)sizeof(T);
        std::vector<std::vector<T>> sbuf(planes), dbuf(planes), want_buf;
        for (auto &p : sbuf) {  // exact size: any read past the image leaves the block
            p.resize((size_t)(src.height - 1) * (srcStep / sizeof(T)) + (size_t)src.width * S);
            for (auto &v : p) v = random_value<T>(g);
        }
        for (auto &p : dbuf) {
            p.resize((size_t)dst.height * (dstStep / sizeof(T)) + 2 * margin);
            for (auto &v : p) v = random_value<T>(g);
        }
        want_buf = dbuf;
        const int mapW = dst.width + 1;
        std::vector<M> xm((size_t)mapW * dst.height), ym(xm.size());
        const Limits lim = {roi.x, roi.y, std::min(roi.x + roi.width, src.width) - 1,
                            std::min(roi.y + roi.height, src.height) - 1, src.width - 1, src.height - 1};
        const auto xs = probe_coords<M>(lim.xMin, lim.xMax, lim.wMax, (int)xm.size(), g);
        const auto ys = probe_coords<M>(lim.yMin, lim.yMax, lim.hMax, (int)ym.size(), g);
        xm.assign(xs.begin(), xs.end());
        ym.assign(ys.begin(), ys.end());
        if (place)
            place(xm, ym, mapW, lim);

        const T *sp[4];
        T *dp[4];
        for (int p = 0; p < planes; ++p) sp[p] = sbuf[p].data(), dp[p] = dbuf[p].data() + margin;
        const void *s = planar(lay) ? (const void *)sp : (const void *)sp[0];
        void *d = planar(lay) ? (void *)dp : (void *)dp[0];
        const LumStatus st = call(s, srcStep, xm.data(), mapW * (int)sizeof(M), ym.data(),
                                  mapW * (int)sizeof(M), d, dstStep);
        if (st != want)
            return ::testing::AssertionFailure() << "status " << st << ", want " << want;
        if (want == lumStsNoErr) {
            SrcView<T> view;
            view.step = srcStep, view.stride = S;
            for (int c = 0; c < N; ++c)
                view.base.push_back((const unsigned char *)(planar(lay) ? sbuf[c].data() : sbuf[0].data() + c));
            const Family fam = lowered(interpolation & 0x7FFFFFFF, src);
            const bool soft = (interpolation & LUMI_SMOOTH_EDGE) != 0;
            for (int r = 0; r < dst.height; ++r)
                for (int i = 0; i < dst.width; ++i) {
                    T *e[4];
                    for (int c = 0; c < N; ++c)
                        e[c] = planar(lay) ? &want_buf[c][margin + (size_t)r * (dstStep / sizeof(T)) + i]
                                           : &want_buf[0][margin + (size_t)r * (dstStep / sizeof(T)) + (size_t)i * S + c];
                    ref_pixel<T, M>(view, lim, fam, soft, low, xm[(size_t)r * mapW + i],
                                    ym[(size_t)r * mapW + i], e, N, tbl);
                }
        }
        for (int p = 0; p < planes; ++p)
            for (size_t k = 0; k < dbuf[p].size(); ++k)
                if (memcmp(&dbuf[p][k], &want_buf[p][k], sizeof(T)) != 0) {
                    const long off = (long)k - margin;
                    return ::testing::AssertionFailure()
                           << "plane " << p << " element " << off << " (row " << off / (long)(dstStep / sizeof(T))
                           << ", col " << off % (long)(dstStep / sizeof(T)) << "): got " << (double)dbuf[p][k]
                           << ", want " << (double)want_buf[p][k];
                }
        return ::testing::AssertionSuccess();
    }
};

}  // namespace remapref
