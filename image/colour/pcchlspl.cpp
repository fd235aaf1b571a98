/*
 * RGB <-> HLS conversion: interleaved 8u, 16u, 16s and 32f images, and 8u
 * planes in blue-green-red order.
 *
 * Everything computes in single-precision float.  Integer pixels map onto
 * 0..top (255 or 65535; 16s after adding 32768); hue is 0..360 degrees
 * inside and scaled to 0..top on output, L and S to 0..top.  32f keeps H in
 * 0..1 and clamps nothing.
 *
 * RGB -> HLS: L = (max + min) / 2, converted before anything else.  A pixel
 * with max == min is grey: H = S = 0.  Otherwise S = delta / sum, where sum
 * is max + min, or twice the range minus it above mid-lightness; the hue
 * comes from the channel holding the maximum, R before G before B on a tie.
 * The integer forms never divide: the body of a row multiplies by the
 * processor's reciprocal estimate, the tail by the estimate refined once.
 * The body adds 0.5 to sum and delta of a grey lane before taking the
 * estimates (so none is taken of zero) and masks its H and S to zero.  32f
 * divides, counts a delta up to 2^-23 as grey, and runs every pixel through
 * the same four-lane code (the row's last pixels from a copy).
 *
 * HLS -> RGB: with m2 = l + s - l s above l = 0.5 and l (1 + s) below, and
 * m1 = 2 l - m2, each channel ramps between m1 and m2 by its hue position.
 * Two forms: A multiplies by stored reciprocals (1/255, 360/255, 1/60 ...),
 * B divides.  S = 0 copies L to all three channels.
 *
 * Rounds of the body (then the tail, pixel by pixel): 8u interleaved 8
 * pixels, 16-bit and 32f interleaved 4, planes 4.  Tiers differ, on
 * purpose, in how results become integers and in the inverse's form:
 *
 *                        SSE3 / SSSE3             SSE4.1 / AVX
 *                        body      tail           body      tail
 *   to HLS 8u 16u 16s    trunc     trunc          nearest   trunc
 *   to RGB 8u            trunc A   trunc A        nearest A trunc B
 *   to RGB 16u           trunc A   trunc A        nearest A nearest A
 *   to RGB 16s           nearest A +0.49999 B     nearest A nearest A
 *   planes, both ways    trunc A   trunc A        trunc A   trunc A
 *
 * "nearest" is the thread's rounding mode, which is never changed here.  In
 * the SSE3/SSSE3 16s tail a grey pixel goes through the scaling too; every
 * other path copies L.  The planar tail to HLS stores the low byte of each
 * value unclamped.  The estimate's bits belong to the processor, so two
 * machines may differ in the body's last bit; on one machine the tiers that
 * share a mode agree.
 *
 * The AVX build runs the body's arithmetic on eight lanes, two rounds at a
 * time; each lane sees the same operations, so its results are those of the
 * SSE4.1 build.  Blends and shuffles move pixels between interleaved memory
 * and channel registers.  Float RGB -> HLS takes two blocks of eight side
 * by side (sixteen pixels a round, then eight, then four), tests each block
 * for grey pixels (delta at most 2^-23) and applies their masks only when
 * there is one.  Float HLS -> RGB runs blocks of eight software-pipelined:
 * a round loads one block and computes its ramp ends and hue positions
 * while it finishes the block before.  Its grey pixels (S = 0) need no
 * test on any tier: their hue is made a NaN, which every channel maps to
 * m1, and m1 is L.
 *
 * Steps are bytes.  A 16-bit or float row advances by the step divided by
 * the element size; a negative step that is no whole number of elements is
 * rounded toward zero, not down, so that no row starts before the caller's
 * last one.  All row addresses are formed in pointer width.
 */
#include "checks.h"
#include "pcchls.h"

#include <type_traits>

namespace LUMI_NS {
namespace {

using namespace hls;

/* ----------------------------------------------------- modes by tier ---- */

/* SSE4.1 and AVX round the body's results; the older builds truncate. */
constexpr bool kRoundingBody = LUMI_HAS_SSE41;

struct Modes {
    Convert body, tail;
    Form tail_form;
    bool tail_copies_grey; /* S = 0 gives L as it stands, not through the scaling */
};

constexpr Convert kBodyConvert = kRoundingBody ? kNearest : kTruncate;
constexpr Modes kToHls = {kBodyConvert, kTruncate, kFormA, true};
constexpr Modes kToRgb8u = {kBodyConvert, kTruncate, kRoundingBody ? kFormB : kFormA, true};
constexpr Modes kToRgb16u = {kBodyConvert, kBodyConvert, kFormA, true};
constexpr Modes kToRgb16s = {kNearest, kRoundingBody ? kNearest : kHalfDown,
                             kRoundingBody ? kFormA : kFormB, kRoundingBody};
constexpr Modes kPlanar = {kTruncate, kTruncate, kFormA, true};

template <class Rg> struct RgbModes;
template <> struct RgbModes<Range8u> { static constexpr const Modes &m = kToRgb8u; };
template <> struct RgbModes<Range16u> { static constexpr const Modes &m = kToRgb16u; };
template <> struct RgbModes<Range16s> { static constexpr const Modes &m = kToRgb16s; };

/* ------------------------------------------------- one pixel, two ways -- */

/* HLS -> RGB of one integer pixel (H, L, S already unbiased), the form
 * and the conversion as given. */
template <class Rg>
void rgb_tail(float hv, float lv, float sv, const Modes &m, int32_t out[3])
{
    float h, l, s;
    if (m.tail_form == kFormA)
        h = hv * Rg::hue_in, l = lv * Rg::unit_in, s = sv * Rg::unit_in;
    else
        h = hv * 360.0f / Rg::top, l = lv / Rg::top, s = sv / Rg::top;
    float rgb[3] = {l, l, l};
    if (s == 0.0f && m.tail_copies_grey) {
        out[0] = out[1] = out[2] = (int32_t)lv;
        return;
    }
    if (s != 0.0f) {
        if (m.tail_form == kFormA)
            rgb_from_hls<kFormA>(h, l, s, rgb);
        else
            rgb_from_hls<kFormB>(h, l, s, rgb);
    }
    for (int c = 0; c < 3; ++c)
        out[c] = to_int(rgb[c] * Rg::top, m.tail);
}

/* The same on vectors in the body's form A, before conversion; a grey
 * lane gives L itself, which converts to itself in every mode. */
template <class Rg, class V>
void rgb_body(V hv, V lv, V sv, V out[3])
{
    const V s = mul(sv, splat<V>(Rg::unit_in));
    V rgb[3];
    rgb_from_hls(mul(hv, splat<V>(Rg::hue_in)), mul(lv, splat<V>(Rg::unit_in)), s, rgb);
    const V grey = eq(s, splat<V>(0.0f));
    for (int c = 0; c < 3; ++c)
        out[c] = select(grey, lv, mul(rgb[c], splat<V>(Rg::top)));
}

/* Eight lanes of one body kernel: one pass over eight-lane registers where
 * the build has them, else two over four. */
template <class Body>
inline void body8(const __m128 lo[3], const __m128 hi[3], __m128 olo[3], __m128 ohi[3], Body body)
{
#if LUMI_HAS_AVX
    __m256 in[3], out[3];
    for (int c = 0; c < 3; ++c)
        in[c] = _mm256_insertf128_ps(_mm256_castps128_ps256(lo[c]), hi[c], 1);
    body(in, out);
    for (int c = 0; c < 3; ++c) {
        olo[c] = _mm256_castps256_ps128(out[c]);
        ohi[c] = _mm256_extractf128_ps(out[c], 1);
    }
#else
    body(lo, olo);
    body(hi, ohi);
#endif
}

/* ------------------------------------------------------- row kernels ---- */

template <class Rg>
inline float unbiased(typename Rg::T v)
{
    return (float)((int32_t)v + Rg::bias);
}

/* The two directions of an integer row, body and tail, in the modes of
 * this tier. */
struct ToHls {
    template <class Rg, class V>
    static void body(const V in[3], V out[3])
    {
        hls_body<Rg>(in[0], in[1], in[2], out);
    }
    template <class Rg>
    static void tail(const float in[3], int32_t out[3])
    {
        hls_tail<Rg>(in[0], in[1], in[2], kToHls.tail, out);
    }
};

struct ToRgb {
    template <class Rg, class V>
    static void body(const V in[3], V out[3])
    {
        rgb_body<Rg>(in[0], in[1], in[2], out);
    }
    template <class Rg>
    static void tail(const float in[3], int32_t out[3])
    {
        rgb_tail<Rg>(in[0], in[1], in[2], RgbModes<Rg>::m, out);
    }
};

template <class Dir, class Rg> struct BodyConvert { static constexpr Convert cv = kToHls.body; };
template <class Rg> struct BodyConvert<ToRgb, Rg> { static constexpr Convert cv = RgbModes<Rg>::m.body; };

/* Converted body results of four pixels, interleaved. */
template <class Dir, class Rg>
inline void convert_block(const __m128 v[3], __m128i q[3])
{
    __m128i i[3];
    for (int c = 0; c < 3; ++c)
        i[c] = to_int(v[c], BodyConvert<Dir, Rg>::cv);
    interleave(i, q);
}

template <class Rg, class Dir>
void row_c3(const typename Rg::T *src, typename Rg::T *dst, int32_t width)
{
    const auto body = [](const auto *in, auto *out) { Dir::template body<Rg>(in, out); };
    int32_t x = 0;
    __m128 lo[3], hi[3], olo[3], ohi[3];
    __m128i q[6];
    if constexpr (sizeof(typename Rg::T) == 1) {
        for (; x < (width & ~7); x += 8) {
            load8((const Lum8u *)src + 3 * x, lo, hi);
            body8(lo, hi, olo, ohi, body);
            __m128i ilo[3], ihi[3];
            for (int c = 0; c < 3; ++c) {
                ilo[c] = to_int(olo[c], BodyConvert<Dir, Rg>::cv);
                ihi[c] = to_int(ohi[c], BodyConvert<Dir, Rg>::cv);
            }
            store8((Lum8u *)dst + 3 * x, ilo, ihi);
        }
    } else {
        const int32_t end = width & ~3;
        for (; x + 8 <= end; x += 8) {
            load4<Rg>(src + 3 * x, lo);
            load4<Rg>(src + 3 * x + 12, hi);
            body8(lo, hi, olo, ohi, body);
            convert_block<Dir, Rg>(olo, q);
            convert_block<Dir, Rg>(ohi, q + 3);
            store4<Rg>(dst + 3 * x, q);
            store4<Rg>(dst + 3 * x + 12, q + 3);
        }
        if (x < end) {
            load4<Rg>(src + 3 * x, lo);
            body(lo, olo);
            convert_block<Dir, Rg>(olo, q);
            store4<Rg>(dst + 3 * x, q);
            x += 4;
        }
    }
    for (; x < width; ++x) {
        const typename Rg::T *s = src + 3 * x;
        const float v[3] = {unbiased<Rg>(s[0]), unbiased<Rg>(s[1]), unbiased<Rg>(s[2])};
        int32_t r[3];
        Dir::template tail<Rg>(v, r);
        for (int c = 0; c < 3; ++c)
            dst[3 * x + c] = clamp_store<Rg>(r[c]);
    }
}

/* Float rows: the kernels of both directions, and the vector blocks of
 * 0..end (a multiple of four). */
struct Hls32f {
    template <class V>
    static void body(const V in[3], V out[3])
    {
        hls_32f(in[0], in[1], in[2], out);
    }
};

struct Rgb32f {
    /* S = 0 copies L.  Such a lane takes a NaN for its hue, which every
     * channel maps to m1, and L for m1; so the grey lanes cost one mask
     * and one select, and no branch. */
    template <class V>
    static HlsRamps<V> ramps(const V in[3])
    {
        const V grey = eq(in[2], splat<V>(0.0f));
        HlsRamps<V> r = ramps_from_hls(bor(mul(in[0], splat<V>(360.0f)), grey), in[1], in[2]);
        r.m1 = select(grey, in[1], r.m1);
        return r;
    }

    template <class V>
    static void body(const V in[3], V out[3])
    {
        rgb_from_ramps(ramps(in), out);
    }
};

/* Eight float pixels through one body kernel: in eight-lane registers from
 * load to store where the build has them, else as two groups of four. */
template <class Kernel>
inline void block8_32f(const Lum32f *src, Lum32f *dst)
{
#if LUMI_HAS_AVX
    __m256 in[3], out[3];
    load8(src, in);
    Kernel::body(in, out);
    store8(dst, out);
#else
    for (int half = 0; half < 2; ++half) {
        __m128 in[3], out[3], q[3];
        load4(src + 12 * half, in);
        Kernel::body(in, out);
        interleave(out[0], out[1], out[2], q);
        store4(dst + 12 * half, q);
    }
#endif
}

#if LUMI_HAS_AVX
/* HLS -> RGB on eight lanes, software-pipelined: each round loads block
 * i + 1 and computes its ramp ends and hue positions, then computes and
 * stores the channels of block i from what the round before left.  The two
 * halves of a round are independent, so the long chain of each block is
 * spread over two rounds and neither half waits on the other.  The
 * arithmetic is that of one block at a time. */
inline auto ramps8(const Lum32f *src)
{
    __m256 in[3];
    load8(src, in);
    return Rgb32f::ramps(in);
}

template <class R>
inline void channels8(const R &r, Lum32f *dst)
{
    __m256 out[3];
    rgb_from_ramps(r, out);
    store8(dst, out);
}

/* Converts whole blocks of eight below end, when there are two or more,
 * and returns the pixels done. */
int32_t pipelined_to_rgb_32f(const Lum32f *src, Lum32f *dst, int32_t end)
{
    if (end < 16)
        return 0;
    auto r = ramps8(src);
    int32_t x = 0;
    for (; x + 16 <= end; x += 8) {
        const auto next = ramps8(src + 3 * x + 24);
        channels8(r, dst + 3 * x);
        r = next;
    }
    channels8(r, dst + 3 * x);
    return x + 8;
}
#endif

template <class Kernel>
void blocks_32f(const Lum32f *src, Lum32f *dst, int32_t end)
{
    const auto body = [](const auto *in, auto *out) { Kernel::body(in, out); };
    __m128 lo[3], olo[3], q[3];
    int32_t x = 0;
#if LUMI_HAS_AVX
    if (std::is_same<Kernel, Rgb32f>::value)
        x = pipelined_to_rgb_32f(src, dst, end);
    /* Sixteen at a time: two blocks of eight through one pass of the kernel
     * on pairs.  The inverse leaves nothing for this loop, but it is kept
     * in that instantiation too: without it the compiler allocates the
     * pipelined loop's registers differently, spills the values one round
     * passes to the next, and the inverse runs about 5% slower. */
    for (; x + 16 <= end; x += 16) {
        __m256 a[3], b[3];
        load8(src + 3 * x, a);
        load8(src + 3 * x + 24, b);
        const Pair8 in[3] = {{a[0], b[0]}, {a[1], b[1]}, {a[2], b[2]}};
        Pair8 out[3];
        Kernel::body(in, out);
        for (int c = 0; c < 3; ++c)
            a[c] = out[c].a, b[c] = out[c].b;
        store8(dst + 3 * x, a);
        store8(dst + 3 * x + 24, b);
    }
#endif
    for (; x + 8 <= end; x += 8)
        block8_32f<Kernel>(src + 3 * x, dst + 3 * x);
    if (x < end) {
        load4(src + 3 * x, lo);
        body(lo, olo);
        interleave(olo[0], olo[1], olo[2], q);
        store4(dst + 3 * x, q);
    }
}

/* RGB -> HLS has one formula for every pixel: the last one to three go
 * through the vector code from a zero-padded copy. */
void row_to_hls_32f(const Lum32f *src, Lum32f *dst, int32_t width)
{
    const int32_t x = width & ~3;
    blocks_32f<Hls32f>(src, dst, x);
    if (x < width) {
        const size_t bytes = sizeof(Lum32f) * 3 * (size_t)(width - x);
        Lum32f part[12] = {};
        memcpy(part, src + 3 * x, bytes);
        blocks_32f<Hls32f>(part, part, 4);
        memcpy(dst + 3 * x, part, bytes);
    }
}

/* HLS -> RGB: form A in the body, form B in the tail, S = 0 copying L. */
void row_to_rgb_32f(const Lum32f *src, Lum32f *dst, int32_t width)
{
    blocks_32f<Rgb32f>(src, dst, width & ~3);
    for (int32_t x = width & ~3; x < width; ++x) {
        const Lum32f *s = src + 3 * x;
        float v[3] = {s[1], s[1], s[1]};
        if (s[2] != 0.0f)
            rgb_from_hls<kFormB>(s[0] * 360.0f, s[1], s[2], v);
        memcpy(dst + 3 * x, v, sizeof v);
    }
}

/* Planes: B, G, R in; H, L, S out (and the other way round). */
void row_bgr_to_hls(const Lum8u *const b[3], Lum8u *const d[3], int32_t width)
{
    int32_t x = 0;
    __m128 out[3];
    for (; x < (width & ~3); x += 4) {
        hls_body<Range8u>(load_plane4(b[2] + x), load_plane4(b[1] + x), load_plane4(b[0] + x),
                          out);
        for (int c = 0; c < 3; ++c)
            store_plane4(d[c] + x, to_int(out[c], kPlanar.body));
    }
    for (; x < width; ++x) {
        int32_t v[3];
        hls_tail<Range8u>(b[2][x], b[1][x], b[0][x], kPlanar.tail, v);
        for (int c = 0; c < 3; ++c)
            d[c][x] = (Lum8u)v[c]; /* the low byte, unclamped */
    }
}

void row_hls_to_bgr(const Lum8u *const s[3], Lum8u *const d[3], int32_t width)
{
    int32_t x = 0;
    __m128 out[3];
    for (; x < (width & ~3); x += 4) {
        rgb_body<Range8u>(load_plane4(s[0] + x), load_plane4(s[1] + x), load_plane4(s[2] + x),
                          out);
        for (int c = 0; c < 3; ++c)
            store_plane4(d[2 - c] + x, to_int(out[c], kPlanar.body));
    }
    for (; x < width; ++x) {
        int32_t v[3];
        rgb_tail<Range8u>(s[0][x], s[1][x], s[2][x], kPlanar, v);
        for (int c = 0; c < 3; ++c)
            d[2 - c][x] = clamp_store<Range8u>(v[c]);
    }
}

/* ---------------------------------------------------- checks and walks -- */

/* Row j of an image of T: the byte step in whole elements, rounded toward
 * zero. */
template <typename T>
inline T *row_at(T *p, int32_t step, int32_t j)
{
    return p + (ptrdiff_t)(step / (int32_t)sizeof(T)) * j;
}

/* Interleaved forms: pointers, then size; steps are not tested. */
LumStatus check_interleaved(const void *src, const void *dst, LumiSize roi)
{
    if (any_null(src, dst))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    return lumStsNoErr;
}

/* Planar forms: both arrays and all six planes, then the steps, then size. */
LumStatus check_planar(const Lum8u *const *src, int32_t srcStep, Lum8u *const *dst,
                       int32_t dstStep, LumiSize roi)
{
    if (any_null(src, dst) || any_null_plane(src) || any_null_plane(dst))
        return lumStsNullPtrErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    return lumStsNoErr;
}

template <typename T>
LumStatus walk_interleaved(const T *src, int32_t srcStep, T *dst, int32_t dstStep, LumiSize roi,
                           void (*row)(const T *, T *, int32_t))
{
    const LumStatus st = check_interleaved(src, dst, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j)
        row(row_at(src, srcStep, j), row_at(dst, dstStep, j), roi.width);
    return lumStsNoErr;
}

LumStatus walk_planar(const Lum8u *const src[3], int32_t srcStep, Lum8u *const dst[3],
                      int32_t dstStep, LumiSize roi,
                      void (*row)(const Lum8u *const *, Lum8u *const *, int32_t))
{
    const LumStatus st = check_planar(src, srcStep, dst, dstStep, roi);
    if (st != lumStsNoErr)
        return st;
    for (int32_t j = 0; j < roi.height; ++j) {
        const Lum8u *s[3];
        Lum8u *d[3];
        for (int c = 0; c < 3; ++c) {
            s[c] = row_at(src[c], srcStep, j);
            d[c] = row_at(dst[c], dstStep, j);
        }
        row(s, d, roi.width);
    }
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

/* ------------------------------------------------------------ members ---- */

#define LUMI_ROW_C3(range, dir) LUMI_NS::row_c3<LUMI_NS::hls::range, LUMI_NS::dir>
#define LUMI_HLS_C3_MEMBER(name, T, ...)                                                      \
    LUMI_MEMBER LumStatus LUMI_T(name)(const T *pSrc, int32_t srcStep, T *pDst,               \
                                       int32_t dstStep, LumiSize roiSize)                     \
    {                                                                                          \
        return LUMI_NS::walk_interleaved<T>(pSrc, srcStep, pDst, dstStep, roiSize, __VA_ARGS__); \
    }

LUMI_HLS_C3_MEMBER(lumiRGBToHLS_8u_C3R, Lum8u, LUMI_ROW_C3(Range8u, ToHls))
LUMI_HLS_C3_MEMBER(lumiRGBToHLS_16u_C3R, Lum16u, LUMI_ROW_C3(Range16u, ToHls))
LUMI_HLS_C3_MEMBER(lumiRGBToHLS_16s_C3R, Lum16s, LUMI_ROW_C3(Range16s, ToHls))
LUMI_HLS_C3_MEMBER(lumiRGBToHLS_32f_C3R, Lum32f, LUMI_NS::row_to_hls_32f)
LUMI_HLS_C3_MEMBER(lumiHLSToRGB_8u_C3R, Lum8u, LUMI_ROW_C3(Range8u, ToRgb))
LUMI_HLS_C3_MEMBER(lumiHLSToRGB_16u_C3R, Lum16u, LUMI_ROW_C3(Range16u, ToRgb))
LUMI_HLS_C3_MEMBER(lumiHLSToRGB_16s_C3R, Lum16s, LUMI_ROW_C3(Range16s, ToRgb))
LUMI_HLS_C3_MEMBER(lumiHLSToRGB_32f_C3R, Lum32f, LUMI_NS::row_to_rgb_32f)

LUMI_MEMBER LumStatus LUMI_T(lumiBGRToHLS_8u_P3R)(const Lum8u *const pSrc[3], int32_t srcStep,
                                                  Lum8u *const pDst[3], int32_t dstStep,
                                                  LumiSize roiSize)
{
    return LUMI_NS::walk_planar(pSrc, srcStep, pDst, dstStep, roiSize, LUMI_NS::row_bgr_to_hls);
}

LUMI_MEMBER LumStatus LUMI_T(lumiHLSToBGR_8u_P3R)(const Lum8u *const pSrc[3], int32_t srcStep,
                                                  Lum8u *const pDst[3], int32_t dstStep,
                                                  LumiSize roiSize)
{
    return LUMI_NS::walk_planar(pSrc, srcStep, pDst, dstStep, roiSize, LUMI_NS::row_hls_to_bgr);
}
