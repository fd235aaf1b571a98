/*
 * RGB <-> HLS arithmetic shared by the row kernels of pcchlspl.cpp: the
 * per-type ranges, the per-tier modes of conversion, the scalar formulas of
 * a row's tail and their four-lane twins of the body, and the moves between
 * interleaved pixels and one register per channel.
 *
 * Compiled once per tier; everything lives in LUMI_NS.  The scalar and the
 * vector form of each step are written next to each other with the same
 * operations in the same order, so that they differ only where they are
 * meant to: the body takes the processor's approximate reciprocal as it is,
 * the tail refines it by one Newton step, and the two may convert to
 * integers in different modes.
 */
#ifndef LUMI_PCCHLS_H
#define LUMI_PCCHLS_H

#include "tier.h"

#include <emmintrin.h>
#include <pmmintrin.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif
#include <stddef.h>
#include <string.h>
#if LUMI_HAS_SSE41
#include <smmintrin.h>
#endif
#if LUMI_HAS_AVX
#include <immintrin.h>
#endif

namespace LUMI_NS {
namespace hls {

/* ------------------------------------------------------ ranges by type -- */
/*
 * Integer pixels are mapped onto floats in 0..top (16s after adding 32768),
 * hue runs over 0..360 degrees inside and is scaled to 0..top on the way
 * out.  `bias` is what a stored value has subtracted: 32768 for 16s.
 */
struct Range8u {
    typedef Lum8u T;
    static constexpr float top = 255.0f, mid = 127.5f, twice = 510.0f;
    static constexpr float hue_out = 0x1.6aaaaap-1f;  /* 255 / 360 */
    static constexpr float hue_in = 0x1.69696ap+0f;   /* 360 / 255 */
    static constexpr float unit_in = 0x1.010102p-8f;  /* 1 / 255 */
    static constexpr int32_t bias = 0;
};
struct Range16u {
    typedef Lum16u T;
    static constexpr float top = 65535.0f, mid = 32767.5f, twice = 131070.0f;
    static constexpr float hue_out = 0x1.6c1556p+7f;  /* 65535 / 360 */
    static constexpr float hue_in = 0x1.680168p-8f;   /* 360 / 65535 */
    static constexpr float unit_in = 0x1.0001p-16f;   /* 1 / 65535 */
    static constexpr int32_t bias = 0;
};
struct Range16s : Range16u {
    typedef Lum16s T;
    static constexpr int32_t bias = 32768;
};

constexpr float kSixtieth = 0x1.111112p-6f;   /* 1 / 60, rounded up */
constexpr float kAchromatic = 0x1.0p-23f;     /* 32f: a delta at most this is grey */
constexpr float kAlmostHalf = 0x1.fffd6p-2f;  /* 0.49999 */

/* ------------------------------------------------- conversion to integer */

enum Convert {
    kTruncate,   /* toward zero */
    kNearest,    /* the thread's rounding mode, nearest unless the caller changed it */
    kHalfDown    /* add 0.49999, then toward zero */
};

/* How the HLS -> RGB formulas map H, L, S to degrees and 0..1: A multiplies
 * by reciprocals and ramps with x / 60 as a product, B divides. */
enum Form { kFormA, kFormB };

inline int32_t to_int(float x, Convert c)
{
    if (c == kHalfDown)
        x = x + kAlmostHalf;
    return c == kNearest ? _mm_cvtss_si32(_mm_set_ss(x)) : _mm_cvttss_si32(_mm_set_ss(x));
}

inline __m128i to_int(__m128 x, Convert c)
{
    if (c == kHalfDown)
        x = _mm_add_ps(x, _mm_set1_ps(kAlmostHalf));
    return c == kNearest ? _mm_cvtps_epi32(x) : _mm_cvttps_epi32(x);
}

/* -------------------------------------------------------- vector basics -- */
/*
 * The body's kernels are written over V (four lanes, __m128) with these
 * names for the operations they use, so that they read like the scalar
 * forms beside them.
 */
template <class V> V splat(float v);
template <> inline __m128 splat<__m128>(float v) { return _mm_set1_ps(v); }
inline __m128 k4(float v) { return _mm_set1_ps(v); }

/* The larger and smaller of two, as the vector max and min give them. */
inline float max_of(float a, float b) { return a > b ? a : b; }
inline float min_of(float a, float b) { return a < b ? a : b; }

inline __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128 sub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
inline __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
inline __m128 div(__m128 a, __m128 b) { return _mm_div_ps(a, b); }
inline __m128 vmax(__m128 a, __m128 b) { return _mm_max_ps(a, b); }
inline __m128 vmin(__m128 a, __m128 b) { return _mm_min_ps(a, b); }
inline __m128 rcp(__m128 a) { return _mm_rcp_ps(a); }
inline __m128 eq(__m128 a, __m128 b) { return _mm_cmpeq_ps(a, b); }
inline __m128 lt(__m128 a, __m128 b) { return _mm_cmplt_ps(a, b); }
inline __m128 le(__m128 a, __m128 b) { return _mm_cmple_ps(a, b); }
inline __m128 gt(__m128 a, __m128 b) { return _mm_cmpgt_ps(a, b); }
inline __m128 nge(__m128 a, __m128 b) { return _mm_cmpnge_ps(a, b); }
inline __m128 band(__m128 a, __m128 b) { return _mm_and_ps(a, b); }
inline __m128 bandnot(__m128 a, __m128 b) { return _mm_andnot_ps(a, b); }
inline __m128 bor(__m128 a, __m128 b) { return _mm_or_ps(a, b); }
inline bool any(__m128 mask) { return _mm_movemask_ps(mask) != 0; }

/* mask ? a : b, lane by lane. */
inline __m128 select(__m128 mask, __m128 a, __m128 b)
{
#if LUMI_HAS_SSE41
    return _mm_blendv_ps(b, a, mask);
#else
    return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
#endif
}


#if LUMI_HAS_AVX
/* The same operations on eight lanes.  Every one of them rounds each lane
 * exactly as its four-lane form does (the comparisons are the ordered ones
 * the four-lane forms encode), so an AVX build may run the body eight
 * pixels at a time without changing a bit. */
template <> inline __m256 splat<__m256>(float v) { return _mm256_set1_ps(v); }
inline __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
inline __m256 div(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
inline __m256 vmax(__m256 a, __m256 b) { return _mm256_max_ps(a, b); }
inline __m256 vmin(__m256 a, __m256 b) { return _mm256_min_ps(a, b); }
inline __m256 rcp(__m256 a) { return _mm256_rcp_ps(a); }
inline __m256 eq(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_EQ_OQ); }
inline __m256 lt(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LT_OS); }
inline __m256 le(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LE_OS); }
inline __m256 gt(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_GT_OS); }
inline __m256 nge(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_NGE_US); }
inline __m256 band(__m256 a, __m256 b) { return _mm256_and_ps(a, b); }
inline __m256 bandnot(__m256 a, __m256 b) { return _mm256_andnot_ps(a, b); }
inline __m256 bor(__m256 a, __m256 b) { return _mm256_or_ps(a, b); }
inline bool any(__m256 mask) { return _mm256_movemask_ps(mask) != 0; }
/* The blend is written out: the compiler turns the intrinsic into a generic
 * select on the sign bits, which without 256-bit integer compares it then
 * splits into one branch per lane. */
inline __m256 select(__m256 mask, __m256 a, __m256 b)
{
    __m256 r;
    __asm__("vblendvps %3, %2, %1, %0" : "=x"(r) : "x"(b), "x"(a), "x"(mask));
    return r;
}
#endif


#if LUMI_HAS_AVX
/* Two eight-lane registers that every operation above treats lane by lane.
 * A body kernel run on pairs converts two blocks of pixels at once; their
 * chains of dependent steps are independent, so the processor overlaps the
 * latencies of one with the work of the other. */
struct Pair8 {
    __m256 a, b;
};
template <> inline Pair8 splat<Pair8>(float v)
{
    const __m256 x = _mm256_set1_ps(v);
    return {x, x};
}
#define LUMI_HLS_PAIRWISE(op) \
    inline Pair8 op(Pair8 x, Pair8 y) { return {op(x.a, y.a), op(x.b, y.b)}; }
LUMI_HLS_PAIRWISE(add)
LUMI_HLS_PAIRWISE(sub)
LUMI_HLS_PAIRWISE(mul)
LUMI_HLS_PAIRWISE(div)
LUMI_HLS_PAIRWISE(vmax)
LUMI_HLS_PAIRWISE(vmin)
LUMI_HLS_PAIRWISE(eq)
LUMI_HLS_PAIRWISE(lt)
LUMI_HLS_PAIRWISE(le)
LUMI_HLS_PAIRWISE(gt)
LUMI_HLS_PAIRWISE(nge)
LUMI_HLS_PAIRWISE(band)
LUMI_HLS_PAIRWISE(bandnot)
LUMI_HLS_PAIRWISE(bor)
#undef LUMI_HLS_PAIRWISE
inline Pair8 select(Pair8 m, Pair8 x, Pair8 y) { return {select(m.a, x.a, y.a), select(m.b, x.b, y.b)}; }
inline bool any(Pair8 mask) { return any(_mm256_or_ps(mask.a, mask.b)); }
#endif

/* x + c where mask is set, else x.  With a one-instruction blend the sum
 * is formed beside the compare rather than after it, which shortens the
 * path to whatever reads the result; without one, adding the masked
 * constant is shorter.  The two agree wherever x + (+0) is x, that is
 * unless x is -0 in a rounding mode other than downward: see the callers. */
template <class V>
inline V add_where(V mask, V x, V c)
{
#if LUMI_HAS_SSE41
    return select(mask, add(x, c), x);
#else
    return add(x, band(mask, c));
#endif
}

/* 2 x as a product.  The compiler would rewrite it as x + x (the same
 * bits), an addition, and the adders are what the inverse's compares and
 * sums keep busiest; hiding the constant keeps it on a multiplier. */
inline __m128 twice(__m128 x)
{
    __m128 two = _mm_set1_ps(2.0f);
    __asm__("" : "+x"(two));
    return _mm_mul_ps(two, x);
}
#if LUMI_HAS_AVX
inline __m256 twice(__m256 x)
{
    __m256 two = _mm256_set1_ps(2.0f);
    __asm__("" : "+x"(two));
    return _mm256_mul_ps(two, x);
}
inline Pair8 twice(Pair8 x) { return {twice(x.a), twice(x.b)}; }
#endif

/* The processor's reciprocal estimate of one value, and the same refined by
 * one Newton step written as (2r) - ((x*r)*r). */
inline float rcp_estimate(float x)
{
    return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x)));
}

inline float rcp_refined(float x)
{
    const float r = rcp_estimate(x);
    return 2.0f * r - x * r * r;
}

/* ------------------------------------------------------- RGB -> HLS ------ */

/* Hue in degrees from the channel that holds the maximum; R wins a tie with
 * G, and G a tie with B. */
inline float hue_degrees(float r, float g, float b, float mx, float rd)
{
    float hue;
    if (mx == r)
        hue = (g - b) * 60.0f * rd;
    else if (mx == g)
        hue = (b - r) * 60.0f * rd + 120.0f;
    else
        hue = (r - g) * 60.0f * rd + 240.0f;
    if (hue < 0.0f)
        hue += 360.0f;
    return hue;
}

template <class V>
inline V hue_degrees(V r, V g, V b, V mx, V rd)
{
    const V sixty = splat<V>(60.0f);
    const V hr = mul(mul(sub(g, b), sixty), rd);
    const V hg = add(mul(mul(sub(b, r), sixty), rd), splat<V>(120.0f));
    const V hb = add(mul(mul(sub(r, g), sixty), rd), splat<V>(240.0f));
    const V hue = select(eq(mx, r), hr, select(eq(mx, g), hg, hb));
    return add(hue, band(lt(hue, splat<V>(0.0f)), splat<V>(360.0f)));
}

/* One integer pixel's H, L, S, converted but neither clamped nor biased. */
template <class Rg>
inline void hls_tail(float r, float g, float b, Convert cv, int32_t out[3])
{
    const float mx = max_of(max_of(r, g), b);
    const float mn = min_of(min_of(r, g), b);
    const float delta = mx - mn;
    float sum = mx + mn;
    const float lum = 0.5f * sum;
    out[1] = to_int(lum, cv);
    if (delta == 0.0f) {
        out[0] = out[2] = 0;
        return;
    }
    if (lum > Rg::mid)
        sum = Rg::twice - sum;
    const float rs = rcp_refined(sum), rd = rcp_refined(delta);
    out[2] = to_int(delta * rs * Rg::top, cv);
    out[0] = to_int(hue_degrees(r, g, b, mx, rd) * Rg::hue_out, cv);
}

/* Integer pixels the same way with the bare estimate, before conversion.
 * A grey lane (delta 0) takes 0.5 on sum and delta so that no estimate of
 * zero is formed, and has H and S masked to zero (which every mode of
 * conversion keeps). */
template <class Rg, class V>
inline void hls_body(V r, V g, V b, V out[3])
{
    const V mx = vmax(vmax(r, g), b);
    const V mn = vmin(vmin(r, g), b);
    V delta = sub(mx, mn);
    V sum = add(mx, mn);
    const V lum = mul(splat<V>(0.5f), sum);
    const V grey = eq(delta, splat<V>(0.0f));
    sum = select(gt(lum, splat<V>(Rg::mid)), sub(splat<V>(Rg::twice), sum), sum);
    const V safe = band(grey, splat<V>(0.5f));
    sum = add(sum, safe);
    delta = add(delta, safe);
    const V rs = rcp(sum), rd = rcp(delta);
    const V s = mul(mul(delta, rs), splat<V>(Rg::top));
    const V h = mul(hue_degrees(r, g, b, mx, rd), splat<V>(Rg::hue_out));
    out[0] = bandnot(grey, h);
    out[1] = lum;
    out[2] = bandnot(grey, s);
}

/* Float pixels: true division, grey up to kAchromatic, nothing clamped.
 * Written for vectors only; a row's last pixels run through it from a
 * copy, so that every pixel sees the same operations. */
template <class V>
inline void hls_32f(V r, V g, V b, V out[3])
{
    const V mx = vmax(vmax(r, g), b);
    const V mn = vmin(vmin(r, g), b);
    const V delta = sub(mx, mn);
    const V sum = add(mx, mn);
    const V lum = mul(splat<V>(0.5f), sum);
    const V grey = le(delta, splat<V>(kAchromatic));
    const V dark = le(lum, splat<V>(0.5f));
    /* Each lane's operands are chosen first, then divided once: the same
     * operations per pixel as the branches, a third of the divisions. */
    const V s = div(delta, select(dark, sum, sub(splat<V>(2.0f), sum)));
    const V is_r = eq(mx, r), is_g = eq(mx, g);
    const V diff = select(is_r, sub(g, b), select(is_g, sub(b, r), sub(r, g)));
    const V q = div(mul(diff, splat<V>(60.0f)), delta);
    /* One addition per lane.  A red maximum adds 360 below 0 and +0 else
     * (which turns -0 into +0).  A green or blue one adds 120 or 240 only:
     * the two channels it subtracts lie between min and max, so q is at
     * most about 60 in size and the sum is not below 0, unless q is -inf,
     * which a further 360 would leave as it is. */
    const V wrap = band(lt(q, splat<V>(0.0f)), splat<V>(360.0f));
    const V hue = add(q, select(is_r, wrap, select(is_g, splat<V>(120.0f), splat<V>(240.0f))));
    out[0] = div(hue, splat<V>(360.0f));
    out[1] = lum;
    out[2] = s;
    if (any(grey)) { /* rare in most pictures: skip the masks without one */
        out[0] = bandnot(grey, out[0]);
        out[2] = bandnot(grey, out[2]);
    }
}

/* ------------------------------------------------------- HLS -> RGB ------ */

/* One channel from its hue position x: a ramp from m1 up to m2 over the
 * first 60 degrees, m2 up to 180, a ramp down to 240, m1 after. */
template <Form F>
inline float ramp(float x, float m1, float m2)
{
    if (F == kFormA)
        return x * kSixtieth * (m2 - m1) + m1;
    return (m2 - m1) * x / 60.0f + m1;
}

template <Form F>
inline float channel(float x, float m1, float m2)
{
    if (x < 60.0f)
        return ramp<F>(x, m1, m2);
    if (x < 180.0f)
        return m2;
    if (x < 240.0f)
        return ramp<F>(240.0f - x, m1, m2);
    return m1;
}

/* h in degrees, l and s in 0..1, to R, G, B in 0..1 (s not zero). */
template <Form F>
inline void rgb_from_hls(float h, float l, float s, float out[3])
{
    float m2;
    if (F == kFormA)
        m2 = l > 0.5f ? l + s - l * s : l + l * s;
    else
        m2 = l > 0.5f ? l + s - s * l : (s + 1.0f) * l;
    const float m1 = 2.0f * l - m2;
    float hr = h + 120.0f, hb = h - 120.0f;
    if (hr > 360.0f)
        hr -= 360.0f;
    if (hb < 0.0f)
        hb += 360.0f;
    out[0] = channel<F>(hr, m1, m2);
    out[1] = channel<F>(h, m1, m2);
    out[2] = channel<F>(hb, m1, m2);
}

/* The body's form (A) on vectors. */
template <class V>
inline V channel(V x, V m1, V m2)
{
    /* The ramp's position is the smaller of x and 240 - x: below 60 that
     * is x (240 - x exceeds 180), from 180 to 240 it is 240 - x (0..60).
     * It is below 60, or NaN, on both ramps and from 240 on (where it is at
     * most 0); from 60 to 180 it is 60 or more, and only x = 180 ramps
     * there.  So one test of the position and one of x choose each value,
     * and the ramp enters only the last two selects. */
    const V pos = vmin(x, sub(splat<V>(240.0f), x));
    const V ramp = add(mul(mul(pos, splat<V>(kSixtieth)), sub(m2, m1)), m1);
    const V low = nge(pos, splat<V>(60.0f));
    return select(low, select(lt(x, splat<V>(240.0f)), ramp, m1),
                  select(lt(x, splat<V>(180.0f)), m2, ramp));
}

/* The inverse in two steps: first the three hue positions and the ends of
 * the ramps, which need only the inputs, then the channels.  A loop may
 * start the first step of one block before the second of the block before
 * it, so that neither waits on the other's long chain of results. */
template <class V>
struct HlsRamps {
    V hr, h, hb, m1, m2;
};

template <class V>
inline HlsRamps<V> ramps_from_hls(V h, V l, V s)
{
    HlsRamps<V> r;
    const V ls = mul(l, s);
    r.m2 = select(gt(l, splat<V>(0.5f)), sub(add(l, s), ls), add(l, ls));
    r.m1 = sub(twice(l), r.m2);
    const V hr = add(h, splat<V>(120.0f)), hb = sub(h, splat<V>(120.0f));
    /* An exact zero sum is -0 only when rounding downward, so neither
     * h + 120 nor h - 120 is ever a -0 that adding +0 would change. */
    r.hr = add_where(gt(hr, splat<V>(360.0f)), hr, splat<V>(-360.0f));
    r.hb = add_where(lt(hb, splat<V>(0.0f)), hb, splat<V>(360.0f));
    r.h = h;
    return r;
}

template <class V>
inline void rgb_from_ramps(const HlsRamps<V> &r, V out[3])
{
    out[0] = channel(r.hr, r.m1, r.m2);
    out[1] = channel(r.h, r.m1, r.m2);
    out[2] = channel(r.hb, r.m1, r.m2);
}

template <class V>
inline void rgb_from_hls(V h, V l, V s, V out[3])
{
    rgb_from_ramps(ramps_from_hls(h, l, s), out);
}

/* ------------------------------------- interleaved pixels and channels -- */

/* Lane shuffles within each group of four, so that the moves below serve
 * four-lane registers and the two halves of eight-lane ones alike. */
template <int imm> inline __m128 shuf(__m128 a, __m128 b) { return _mm_shuffle_ps(a, b, imm); }
inline __m128 unpack_lo(__m128 a, __m128 b) { return _mm_unpacklo_ps(a, b); }
inline __m128 unpack_hi(__m128 a, __m128 b) { return _mm_unpackhi_ps(a, b); }
#if LUMI_HAS_AVX
template <int imm> inline __m256 shuf(__m256 a, __m256 b) { return _mm256_shuffle_ps(a, b, imm); }
inline __m256 unpack_lo(__m256 a, __m256 b) { return _mm256_unpacklo_ps(a, b); }
inline __m256 unpack_hi(__m256 a, __m256 b) { return _mm256_unpackhi_ps(a, b); }
#endif

/* Four pixels of three floats (a b c, 12 values) to one register per
 * channel, and back; on eight lanes, each half holds four pixels. */
#if LUMI_HAS_SSE41
/* Each channel is one two-source shuffle: lanes 0-1 come from one register
 * and lanes 2-3 from another, so an immediate blend first brings the two
 * elements a shuffle needs into one register where they sit in different
 * lanes.  Seven moves gather the channels and eight scatter them back. */
template <int imm> inline __m128 blend(__m128 a, __m128 b) { return _mm_blend_ps(a, b, imm); }
#if LUMI_HAS_AVX
template <int imm> inline __m256 blend(__m256 a, __m256 b)
{
    return _mm256_blend_ps(a, b, imm | imm << 4);
}
#endif

template <class V>
inline void deinterleave(V a, V b, V c, V out[3])
{
    /* a = r0 g0 b0 r1, b = g1 b1 r2 g2, c = b2 r3 g3 b3 */
    out[0] = shuf<_MM_SHUFFLE(1, 2, 3, 0)>(a, blend<0x2>(b, c)); /* r0 r1 from a, r3 r2 from g1 r3 r2 g2 */
    out[1] = shuf<_MM_SHUFFLE(2, 3, 0, 1)>(blend<0x1>(a, b),      /* g1 g0 b0 r1 */
                                           blend<0x4>(b, c));     /* g1 b1 g3 g2 */
    out[2] = shuf<_MM_SHUFFLE(3, 0, 1, 2)>(blend<0x2>(a, b), c); /* r0 b1 b0 r1; b2 .. b3 from c */
}

template <class V>
inline void interleave(V r, V g, V b, V out[3])
{
    const V br = blend<0xa>(b, r);                                                /* b0 r1 b2 r3 */
    out[0] = shuf<_MM_SHUFFLE(1, 0, 1, 0)>(unpack_lo(r, g), br);                  /* r0 g0 b0 r1 */
    out[1] = shuf<_MM_SHUFFLE(1, 0, 3, 2)>(unpack_lo(g, b), unpack_hi(r, g));     /* g1 b1 r2 g2 */
    out[2] = shuf<_MM_SHUFFLE(3, 2, 3, 2)>(br, unpack_hi(g, b));                  /* b2 r3 g3 b3 */
}
#else
template <class V>
inline void deinterleave(V a, V b, V c, V out[3])
{
    const V ab = shuf<_MM_SHUFFLE(2, 1, 3, 0)>(a, b);  /* a0 a3 b1 b2 */
    const V bc = shuf<_MM_SHUFFLE(1, 0, 3, 2)>(b, c);  /* b2 b3 c0 c1 */
    out[0] = shuf<_MM_SHUFFLE(3, 0, 1, 0)>(ab, bc);
    out[1] = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(shuf<_MM_SHUFFLE(0, 0, 1, 1)>(a, b),
                                           shuf<_MM_SHUFFLE(2, 2, 3, 3)>(b, c));
    out[2] = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(shuf<_MM_SHUFFLE(1, 1, 2, 2)>(a, b),
                                           shuf<_MM_SHUFFLE(3, 3, 0, 0)>(c, c));
}

template <class V>
inline void interleave(V r, V g, V b, V out[3])
{
    out[0] = shuf<_MM_SHUFFLE(2, 0, 1, 0)>(unpack_lo(r, g), shuf<_MM_SHUFFLE(1, 1, 0, 0)>(b, r));
    out[1] = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(shuf<_MM_SHUFFLE(1, 1, 1, 1)>(g, b),
                                           shuf<_MM_SHUFFLE(2, 2, 2, 2)>(r, g));
    out[2] = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(shuf<_MM_SHUFFLE(3, 3, 2, 2)>(b, r),
                                           shuf<_MM_SHUFFLE(3, 3, 3, 3)>(g, b));
}
#endif

inline void interleave(const __m128i in[3], __m128i out[3])
{
    __m128 q[3];
    interleave(_mm_castsi128_ps(in[0]), _mm_castsi128_ps(in[1]), _mm_castsi128_ps(in[2]), q);
    for (int k = 0; k < 3; ++k)
        out[k] = _mm_castps_si128(q[k]);
}

inline __m128 lo_u16(__m128i v) { return _mm_cvtepi32_ps(_mm_unpacklo_epi16(v, _mm_setzero_si128())); }
inline __m128 hi_u16(__m128i v) { return _mm_cvtepi32_ps(_mm_unpackhi_epi16(v, _mm_setzero_si128())); }

/* Eight 8u pixels (24 bytes, nothing read after them) as channel floats of
 * pixels 0..3 in lo, 4..7 in hi. */
#if LUMI_HAS_SSSE3
/* Byte c of pixel k of a 12-byte group to the low byte of lane k. */
inline __m128i channel_bytes(__m128i v, int c)
{
    const __m128i pick = _mm_setr_epi8((char)c, -1, -1, -1, (char)(c + 3), -1, -1, -1,
                                       (char)(c + 6), -1, -1, -1, (char)(c + 9), -1, -1, -1);
    return _mm_shuffle_epi8(v, pick);
}

inline void load8(const Lum8u *p, __m128 lo[3], __m128 hi[3])
{
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadl_epi64((const __m128i *)(p + 16));
    const __m128i v4 = _mm_alignr_epi8(v1, v0, 12); /* pixels 4..7 from byte 0 */
    for (int c = 0; c < 3; ++c) {
        lo[c] = _mm_cvtepi32_ps(channel_bytes(v0, c));
        hi[c] = _mm_cvtepi32_ps(channel_bytes(v4, c));
    }
}
#else
inline void load8(const Lum8u *p, __m128 lo[3], __m128 hi[3])
{
    const __m128i z = _mm_setzero_si128();
    const __m128i v0 = _mm_loadu_si128((const __m128i *)p);
    const __m128i v1 = _mm_loadl_epi64((const __m128i *)(p + 16));
    const __m128i w0 = _mm_unpacklo_epi8(v0, z), w1 = _mm_unpackhi_epi8(v0, z);
    const __m128i w2 = _mm_unpacklo_epi8(v1, z);
    deinterleave(lo_u16(w0), hi_u16(w0), lo_u16(w1), lo);
    deinterleave(hi_u16(w1), lo_u16(w2), hi_u16(w2), hi);
}
#endif

/* Four 16-bit pixels (24 bytes).  A signed element plus 32768 is the same
 * bits read as unsigned with the top bit flipped. */
template <class Rg>
inline void load4(const typename Rg::T *p, __m128 out[3])
{
    const __m128i flip = _mm_set1_epi16(Rg::bias ? (short)0x8000 : 0);
    const __m128i v0 = _mm_xor_si128(_mm_loadu_si128((const __m128i *)p), flip);
    const __m128i v1 = _mm_xor_si128(_mm_loadl_epi64((const __m128i *)(p + 8)), flip);
    deinterleave(lo_u16(v0), hi_u16(v0), lo_u16(v1), out);
}

inline void load4(const Lum32f *p, __m128 out[3])
{
    deinterleave(_mm_loadu_ps(p), _mm_loadu_ps(p + 4), _mm_loadu_ps(p + 8), out);
}

/* Values of 0..top to stored elements: clamped to the type's range, and
 * biased for 16s.  store8 takes eight 8u pixels as one register per channel
 * (pixels 0..3 in lo, 4..7 in hi); store4 four 16-bit pixels already
 * interleaved.  Each clamp saturates to 16 bits, then to 8. */
#if LUMI_HAS_SSSE3
inline void store8(Lum8u *p, const __m128i lo[3], const __m128i hi[3])
{
    const __m128i rg = _mm_packus_epi16(_mm_packs_epi32(lo[0], hi[0]),
                                        _mm_packs_epi32(lo[1], hi[1])); /* R0..7 G0..7 */
    const __m128i b = _mm_packs_epi32(lo[2], hi[2]);
    const __m128i bb = _mm_packus_epi16(b, b);                          /* B0..7 twice */
    const __m128i rg0 = _mm_setr_epi8(0, 8, -1, 1, 9, -1, 2, 10, -1, 3, 11, -1, 4, 12, -1, 5);
    const __m128i b0 = _mm_setr_epi8(-1, -1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1);
    const __m128i rg1 = _mm_setr_epi8(13, -1, 6, 14, -1, 7, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i b1 = _mm_setr_epi8(-1, 5, -1, -1, 6, -1, -1, 7, -1, -1, -1, -1, -1, -1, -1, -1);
    _mm_storeu_si128((__m128i *)p, _mm_or_si128(_mm_shuffle_epi8(rg, rg0), _mm_shuffle_epi8(bb, b0)));
    _mm_storel_epi64((__m128i *)(p + 16),
                     _mm_or_si128(_mm_shuffle_epi8(rg, rg1), _mm_shuffle_epi8(bb, b1)));
}
#else
inline void store8(Lum8u *p, const __m128i lo[3], const __m128i hi[3])
{
    __m128i q[6];
    interleave(lo, q);
    interleave(hi, q + 3);
    const __m128i a = _mm_packs_epi32(q[0], q[1]), b = _mm_packs_epi32(q[2], q[3]);
    const __m128i c = _mm_packs_epi32(q[4], q[5]);
    _mm_storeu_si128((__m128i *)p, _mm_packus_epi16(a, b));
    _mm_storel_epi64((__m128i *)(p + 16), _mm_packus_epi16(c, c));
}
#endif

template <class Rg>
inline void store4(typename Rg::T *p, const __m128i q[3])
{
    /* 0..65535 is -32768..32767 after the bias, where the signed pack
     * clamps; 16u flips the top bit back. */
    const __m128i b32 = _mm_set1_epi32(32768);
    const __m128i flip = _mm_set1_epi16(Rg::bias ? 0 : (short)0x8000);
    const __m128i a = _mm_packs_epi32(_mm_sub_epi32(q[0], b32), _mm_sub_epi32(q[1], b32));
    const __m128i c = _mm_packs_epi32(_mm_sub_epi32(q[2], b32), _mm_sub_epi32(q[2], b32));
    _mm_storeu_si128((__m128i *)p, _mm_xor_si128(a, flip));
    _mm_storel_epi64((__m128i *)(p + 8), _mm_xor_si128(c, flip));
}

inline void store4(Lum32f *p, const __m128 q[3])
{
    _mm_storeu_ps(p, q[0]);
    _mm_storeu_ps(p + 4, q[1]);
    _mm_storeu_ps(p + 8, q[2]);
}

#if LUMI_HAS_AVX
/* Eight float pixels (24 values): pixels 0..3 in the low halves, 4..7 in
 * the high ones, so that no shuffle crosses the halves.  Three
 * whole-register loads (or stores) and three moves between the halves cost
 * less than six half-register ones.  Within the halves, shuffles alone do
 * it in five moves one way and six the other, fewer than the blend forms
 * above take on eight lanes. */
inline void load8(const Lum32f *p, __m256 out[3])
{
    const __m256 v0 = _mm256_loadu_ps(p), v1 = _mm256_loadu_ps(p + 8), v2 = _mm256_loadu_ps(p + 16);
    const __m256 a = _mm256_blend_ps(v0, v1, 0xf0);          /* r0 g0 b0 r1 */
    const __m256 b = _mm256_permute2f128_ps(v0, v2, 0x21);   /* g1 b1 r2 g2 */
    const __m256 c = _mm256_blend_ps(v1, v2, 0xf0);          /* b2 r3 g3 b3 */
    const __m256 rg = shuf<_MM_SHUFFLE(2, 1, 3, 2)>(b, c);   /* r2 g2 r3 g3 */
    const __m256 gb = shuf<_MM_SHUFFLE(1, 0, 2, 1)>(a, b);   /* g0 b0 g1 b1 */
    out[0] = shuf<_MM_SHUFFLE(2, 0, 3, 0)>(a, rg);
    out[1] = shuf<_MM_SHUFFLE(3, 1, 2, 0)>(gb, rg);
    out[2] = shuf<_MM_SHUFFLE(3, 0, 3, 1)>(gb, c);
}

/* Channels back to eight interleaved pixels. */
inline void store8(Lum32f *p, const __m256 rgb[3])
{
    const __m256 rg = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(rgb[0], rgb[1]);   /* r0 r2 g0 g2 */
    const __m256 gb = shuf<_MM_SHUFFLE(3, 1, 3, 1)>(rgb[1], rgb[2]);   /* g1 g3 b1 b3 */
    const __m256 br = shuf<_MM_SHUFFLE(3, 1, 2, 0)>(rgb[2], rgb[0]);   /* b0 b2 r1 r3 */
    const __m256 a = shuf<_MM_SHUFFLE(2, 0, 2, 0)>(rg, br);            /* r0 g0 b0 r1 */
    const __m256 b = shuf<_MM_SHUFFLE(3, 1, 2, 0)>(gb, rg);            /* g1 b1 r2 g2 */
    const __m256 c = shuf<_MM_SHUFFLE(3, 1, 3, 1)>(br, gb);            /* b2 r3 g3 b3 */
    _mm256_storeu_ps(p, _mm256_permute2f128_ps(a, b, 0x20));
    _mm256_storeu_ps(p + 8, _mm256_blend_ps(c, a, 0xf0));
    _mm256_storeu_ps(p + 16, _mm256_permute2f128_ps(b, c, 0x31));
}
#endif

/* One plane: four bytes to floats and four values (0..255 after the clamp)
 * back to bytes. */
inline __m128 load_plane4(const Lum8u *p)
{
    int32_t w;
    memcpy(&w, p, 4);
    return lo_u16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(w), _mm_setzero_si128()));
}

inline void store_plane4(Lum8u *p, __m128i v)
{
    v = _mm_packs_epi32(v, v);
    const int32_t w = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
    memcpy(p, &w, 4);
}

/* A value of 0..top (by rule, or overshooting by the estimate) as stored. */
template <class Rg>
inline typename Rg::T clamp_store(int32_t v)
{
    v = v < 0 ? 0 : v > (int32_t)Rg::top ? (int32_t)Rg::top : v;
    return (typename Rg::T)(v - Rg::bias);
}

} // namespace hls
} // namespace LUMI_NS

#endif
