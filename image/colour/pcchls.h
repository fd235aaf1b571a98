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
#include <stddef.h>
#include <string.h>
#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41
#include <smmintrin.h>
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

inline __m128 k4(float v) { return _mm_set1_ps(v); }

/* The larger and smaller of two, as the vector max and min give them. */
inline float max_of(float a, float b) { return a > b ? a : b; }
inline float min_of(float a, float b) { return a < b ? a : b; }

/* mask ? a : b, lane by lane. */
inline __m128 select(__m128 mask, __m128 a, __m128 b)
{
#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41
    return _mm_blendv_ps(b, a, mask);
#else
    return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
#endif
}

inline __m128i select(__m128 mask, __m128i a, __m128i b)
{
    return _mm_castps_si128(select(mask, _mm_castsi128_ps(a), _mm_castsi128_ps(b)));
}

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

inline __m128 hue_degrees(__m128 r, __m128 g, __m128 b, __m128 mx, __m128 rd)
{
    const __m128 sixty = k4(60.0f);
    const __m128 hr = _mm_mul_ps(_mm_mul_ps(_mm_sub_ps(g, b), sixty), rd);
    const __m128 hg = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(_mm_sub_ps(b, r), sixty), rd), k4(120.0f));
    const __m128 hb = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(_mm_sub_ps(r, g), sixty), rd), k4(240.0f));
    __m128 hue = select(_mm_cmpeq_ps(mx, r), hr, select(_mm_cmpeq_ps(mx, g), hg, hb));
    return _mm_add_ps(hue, _mm_and_ps(_mm_cmplt_ps(hue, _mm_setzero_ps()), k4(360.0f)));
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

/* Four integer pixels the same way with the bare estimate.  A grey lane
 * (delta 0) takes 0.5 on sum and delta so that no estimate of zero is
 * formed, and has H and S masked to zero. */
template <class Rg>
inline void hls_body(__m128 r, __m128 g, __m128 b, Convert cv, __m128i out[3])
{
    const __m128 mx = _mm_max_ps(_mm_max_ps(r, g), b);
    const __m128 mn = _mm_min_ps(_mm_min_ps(r, g), b);
    __m128 delta = _mm_sub_ps(mx, mn);
    __m128 sum = _mm_add_ps(mx, mn);
    const __m128 lum = _mm_mul_ps(k4(0.5f), sum);
    out[1] = to_int(lum, cv);
    const __m128 grey = _mm_cmpeq_ps(delta, _mm_setzero_ps());
    sum = select(_mm_cmpgt_ps(lum, k4(Rg::mid)), _mm_sub_ps(k4(Rg::twice), sum), sum);
    const __m128 safe = _mm_and_ps(grey, k4(0.5f));
    sum = _mm_add_ps(sum, safe);
    delta = _mm_add_ps(delta, safe);
    const __m128 rs = _mm_rcp_ps(sum), rd = _mm_rcp_ps(delta);
    const __m128 s = _mm_mul_ps(_mm_mul_ps(delta, rs), k4(Rg::top));
    const __m128 h = _mm_mul_ps(hue_degrees(r, g, b, mx, rd), k4(Rg::hue_out));
    out[0] = _mm_andnot_si128(_mm_castps_si128(grey), to_int(h, cv));
    out[2] = _mm_andnot_si128(_mm_castps_si128(grey), to_int(s, cv));
}

/* Float pixels: true division, grey up to kAchromatic, nothing clamped.
 * Written for four lanes only; a row's last pixels run through it from a
 * copy, so that every pixel sees the same operations. */
inline void hls_32f(__m128 r, __m128 g, __m128 b, __m128 out[3])
{
    const __m128 mx = _mm_max_ps(_mm_max_ps(r, g), b);
    const __m128 mn = _mm_min_ps(_mm_min_ps(r, g), b);
    const __m128 delta = _mm_sub_ps(mx, mn);
    const __m128 sum = _mm_add_ps(mx, mn);
    const __m128 lum = _mm_mul_ps(k4(0.5f), sum);
    const __m128 grey = _mm_cmple_ps(delta, k4(kAchromatic));
    const __m128 dark = _mm_cmple_ps(lum, k4(0.5f));
    const __m128 s = select(dark, _mm_div_ps(delta, sum),
                            _mm_div_ps(delta, _mm_sub_ps(k4(2.0f), sum)));
    const __m128 sixty = k4(60.0f);
    const __m128 hr = _mm_div_ps(_mm_mul_ps(_mm_sub_ps(g, b), sixty), delta);
    const __m128 hg = _mm_add_ps(_mm_div_ps(_mm_mul_ps(_mm_sub_ps(b, r), sixty), delta), k4(120.0f));
    const __m128 hb = _mm_add_ps(_mm_div_ps(_mm_mul_ps(_mm_sub_ps(r, g), sixty), delta), k4(240.0f));
    __m128 hue = select(_mm_cmpeq_ps(mx, r), hr, select(_mm_cmpeq_ps(mx, g), hg, hb));
    hue = _mm_add_ps(hue, _mm_and_ps(_mm_cmplt_ps(hue, _mm_setzero_ps()), k4(360.0f)));
    out[0] = _mm_andnot_ps(grey, _mm_div_ps(hue, k4(360.0f)));
    out[1] = lum;
    out[2] = _mm_andnot_ps(grey, s);
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

/* The body's form (A) on four lanes. */
inline __m128 channel(__m128 x, __m128 m1, __m128 m2)
{
    const __m128 up = _mm_cmplt_ps(x, k4(60.0f));
    const __m128 pos = select(up, x, _mm_sub_ps(k4(240.0f), x));
    const __m128 ramp = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(pos, k4(kSixtieth)), _mm_sub_ps(m2, m1)), m1);
    const __m128 flat = select(_mm_cmplt_ps(x, k4(240.0f)), ramp, m1);
    return select(up, ramp, select(_mm_cmplt_ps(x, k4(180.0f)), m2, flat));
}

inline void rgb_from_hls(__m128 h, __m128 l, __m128 s, __m128 out[3])
{
    const __m128 ls = _mm_mul_ps(l, s);
    const __m128 m2 = select(_mm_cmpgt_ps(l, k4(0.5f)), _mm_sub_ps(_mm_add_ps(l, s), ls),
                             _mm_add_ps(l, ls));
    const __m128 m1 = _mm_sub_ps(_mm_mul_ps(k4(2.0f), l), m2);
    __m128 hr = _mm_add_ps(h, k4(120.0f)), hb = _mm_sub_ps(h, k4(120.0f));
    hr = _mm_sub_ps(hr, _mm_and_ps(_mm_cmpgt_ps(hr, k4(360.0f)), k4(360.0f)));
    hb = _mm_add_ps(hb, _mm_and_ps(_mm_cmplt_ps(hb, _mm_setzero_ps()), k4(360.0f)));
    out[0] = channel(hr, m1, m2);
    out[1] = channel(h, m1, m2);
    out[2] = channel(hb, m1, m2);
}

/* ------------------------------------- interleaved pixels and channels -- */

/* Four pixels of three floats (a b c, 12 values) to one register per
 * channel, and back. */
inline void deinterleave(__m128 a, __m128 b, __m128 c, __m128 out[3])
{
    const __m128 ab = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 1, 3, 0));  /* a0 a3 b1 b2 */
    const __m128 bc = _mm_shuffle_ps(b, c, _MM_SHUFFLE(1, 0, 3, 2));  /* b2 b3 c0 c1 */
    out[0] = _mm_shuffle_ps(ab, bc, _MM_SHUFFLE(3, 0, 1, 0));
    out[1] = _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(0, 0, 1, 1)),
                            _mm_shuffle_ps(b, c, _MM_SHUFFLE(2, 2, 3, 3)), _MM_SHUFFLE(2, 0, 2, 0));
    out[2] = _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 1, 2, 2)),
                            _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 3, 0, 0)), _MM_SHUFFLE(2, 0, 2, 0));
}

inline void interleave(__m128 r, __m128 g, __m128 b, __m128 out[3])
{
    out[0] = _mm_shuffle_ps(_mm_unpacklo_ps(r, g), _mm_shuffle_ps(b, r, _MM_SHUFFLE(1, 1, 0, 0)),
                            _MM_SHUFFLE(2, 0, 1, 0));
    out[1] = _mm_shuffle_ps(_mm_shuffle_ps(g, b, _MM_SHUFFLE(1, 1, 1, 1)),
                            _mm_shuffle_ps(r, g, _MM_SHUFFLE(2, 2, 2, 2)), _MM_SHUFFLE(2, 0, 2, 0));
    out[2] = _mm_shuffle_ps(_mm_shuffle_ps(b, r, _MM_SHUFFLE(3, 3, 2, 2)),
                            _mm_shuffle_ps(g, b, _MM_SHUFFLE(3, 3, 3, 3)), _MM_SHUFFLE(2, 0, 2, 0));
}

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

/* Values of 0..top, already interleaved, to stored elements: clamped to the
 * type's range, and biased for 16s.  Stores 8 pixels of 8u or 4 of 16 bits. */
inline void store8(Lum8u *p, const __m128i q[6])
{
    const __m128i a = _mm_packs_epi32(q[0], q[1]), b = _mm_packs_epi32(q[2], q[3]);
    const __m128i c = _mm_packs_epi32(q[4], q[5]);
    _mm_storeu_si128((__m128i *)p, _mm_packus_epi16(a, b));
    _mm_storel_epi64((__m128i *)(p + 16), _mm_packus_epi16(c, c));
}

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
