/*
 * Bilateral filter of one-channel 8-bit images, in three calls:
 * lumiFilterBilateralGetBufSize_8u_C1R sizes the caller's state block,
 * lumiFilterBilateralInit_8u_C1R builds the weight tables in it, and
 * lumiFilterBilateral_8u_C1R filters with them.  Each output pixel is the
 * mean of the samples of a centred window (every stepInKernel-th pixel out
 * to rx = kw >> 1, ry = kh >> 1, both cut down to a multiple of the step),
 * each weighed by a value weight V[p - c] (p the sample, c the centre) and a
 * position weight P[max(|dx|, |dy|)] (square rings).  The caller supplies
 * the window's pixels around the region; no border is made.
 *
 * The state block: byte 0 holds the distance (1..8) to an 8-aligned record
 * (tag, kind, radii, table pointers, step); behind it, from the next
 * 16-byte boundary, the 511 value cells V[-255..255], one spare cell, the
 * 2M - 1 position cells P[-(M-1)..M-1] (M = max of the radii + 1), and from
 * the next 16-byte boundary the per-call sample weights.  Init fills
 *   V[d] = exp((float)(d * d) * (-0.5f / valueSigma2))    for |d| < L, else 0
 *   P[r] = exp((float)(r * r) * (-0.5f / positionSigma2)) for r < min(L, M)
 *          and a multiple of the step, else 0
 * with L = trunc(sqrt(valueSigma2 * 1.42 * (log(kw * kh) + 6.3))) + 1, at
 * most 256, worked out in double.  The exponential is the tier's signal
 * kernel, so V[0] and P[0] are whatever it gives for 0 (0.99999994 on some
 * processors), never a substituted 1.
 *
 * Arithmetic forms, chosen per call (the block's kind and the call's
 * reduced radii qx, qy):
 *   narrow   regions under 16 pixels wide, any kind: per pixel, in float
 *            and in sample order, w = S[n] * V[p - c], den += w,
 *            num += p * w; stored as trunc(num / den + 0.5f), half up.
 *   fixed    qx == qy with (q, step) one of (1,1) (2,1) (2,2) (3,1) (4,1)
 *            (4,2): one 16-bit table per ring r of round(V[d] * P[r] * 2^k)
 *            for d = 0..255 (k = 14 for kind 100, 4 for kind 101), through
 *            the multiply and convert kernels.  The centre counts c << k
 *            with weight 2^k; every neighbour adds T * p and T in exact
 *            integers (32-bit sums, kind 101 gathers 16-bit products and
 *            moves them to 32 bits every 14 neighbours).  Kind 100 divides
 *            in float with one division per 16 pixels: for lane groups
 *            d0..d3, 1/(d0 d1 d2 d3) times the other three; kind 101 takes
 *            the processor's approximate reciprocal of den.
 *   general  every other window, 16 pixels at a time in float with the
 *            narrow form's sums and the fixed kind-100 division.
 * The fixed form's sums are exact integers that cannot wrap, so it adds
 * the neighbours in whatever order is fastest: each pair of samples is
 * weighed once and counted for both of its pixels, through rows of pair
 * weights kept for a strip of columns in 40 KB of automatic storage (the
 * filter takes no memory); blocks keep their places in the row, which the
 * shared division depends on.
 * The vector forms convert num / den to nearest even and saturate.  Rows
 * go in blocks of 16 from the left; the last block is moved back to end on
 * the row's last pixel, which some pixels then get twice (equal up to the
 * shared division's last bit).  Every call runs in round-to-nearest with
 * denormals kept and gives the caller's control word back.  All tiers
 * agree on one processor (tiers with SSSE3 look the fixed tables up by
 * byte shuffles, which give the same entries); the approximate reciprocal
 * (kind 101, and inside the exponential) is the processor's own.
 *
 * Memory safety beyond the plain rules:
 *   - Init's clearing of the off-step position cells stops at the last
 *     cell, P[M - 1]; a group of the step reaching past it would otherwise
 *     write up to stepInKernel - 2 cells further, beyond the block
 *     GetBufSize asked for when the step is large.
 *   - The filter reads the record only when byte 0 is 1..8, and refuses
 *     (lumStsContextMatchErr) a tagged block whose step is not positive,
 *     whose radii exceed the tables, or whose pointers are not where this
 *     block's layout puts them (a block moved after Init); it never
 *     follows a pointer it did not check.
 *   - GetBufSize refuses a size beyond 31 bits: lumStsSizeErr when the
 *     region's part is too large, lumStsMaskSizeErr when the kernel's is.
 *   - A table length worked out from a huge or NaN valueSigma2 is limited
 *     before it is converted to an integer.
 */
#include "tier.h"

#include <emmintrin.h>
#include <math.h>
#include <string.h>

#include "checks.h"
#include "pifbilateral.h"
#include "pifilter.h"

namespace LUMI_NS {
namespace {

const uint32_t kTagGauss = 0x434D416Cu;
const uint32_t kTagGaussFast = 0x434D416Du;

/* The position table holds P[0..M - 1] with M at most 256, so neither
 * radius of a block passes 255. */
const int32_t kMaxRadius = 255;

/* The record behind byte 0 of the block. */
struct State {
    uint32_t tag;
    int32_t kind;
    int32_t radiusX, radiusY;
    Lum32f *pValueWeights;
    Lum32f *pPositionWeights;
    int32_t stepInKernel;
    Lum32f *pSampleWeights;
};
static_assert(sizeof(State) == 48, "the record is 48 bytes");

/* Where the tables of a block stand, given the record and M. */
struct Layout {
    Lum32f *value0;    /* V[0] */
    Lum32f *position0; /* P[0] */
    Lum32f *samples;
};

inline Lum8u *align16(Lum8u *p) { return p + ((16 - ((uintptr_t)p & 15)) & 15); }

Layout layout_of(State *rec, int32_t m)
{
    Lum32f *values = (Lum32f *)align16((Lum8u *)(rec + 1));
    Lum32f *positions = values + 511 + 1;
    Layout l;
    l.value0 = values + 255;
    l.position0 = positions + (m - 1);
    l.samples = (Lum32f *)align16((Lum8u *)(positions + 2 * m - 1));
    return l;
}

bool kind_known(int32_t filter)
{
    return filter == lumiFilterBilateralGauss || filter == lumiFilterBilateralGaussFast;
}

/* (n - 1) / 2 cut down to a multiple of the step. */
inline int32_t init_radius(int32_t n, int32_t step)
{
    const int32_t r = (n - 1) >> 1;
    return r - r % step;
}

/* Table length for the value weights, limited to 256 before the
 * conversion, so a huge or NaN sigma gives 256. */
int32_t value_length(Lum32f valueSigma2, LumiSize k)
{
    const double a = (double)valueSigma2 * 1.42;
    const double b = a * (log((double)k.width * (double)k.height) + 6.3);
    const double r = sqrt(b);
    return r < 255.0 ? (int32_t)r + 1 : 256;
}

void build_tables(Lum32f valueSigma2, Lum32f positionSigma2, int32_t step, int32_t len,
                  int32_t m, const Layout &l)
{
    Lum16u squares[256];
    for (int32_t d = 0; d < len; ++d)
        squares[d] = (Lum16u)d;
    LUMI_T(lumsSqr_16u_ISfs)(squares, len, 0);
    LUMI_T(lumsConvert_16u32f)(squares, l.value0, len);
    if (len < 256)
        LUMI_T(lumsZero_32f)(l.value0 + len, 256 - len);
    LUMI_T(lumsCopy_32f)(l.value0, l.position0, m);

    const int32_t lm = len < m ? len : m;
    LUMI_T(lumsMulC_32f_I)(-0.5f / valueSigma2, l.value0, len);
    LUMI_T(lumsMulC_32f_I)(-0.5f / positionSigma2, l.position0, lm);
    LUMI_T(lumsExp_32f_I)(l.value0, len);
    LUMI_T(lumsExp_32f_I)(l.position0, lm);

    /* Only multiples of the step keep a weight; the last group stops at
     * P[M - 1] (see the overview). */
    if (step > 1)
        for (int32_t g = 0; g < m; g += step)
            for (int32_t r = g + 1; r < g + step && r < m; ++r)
                l.position0[r] = 0.0f;

    for (int32_t d = 1; d < 256; ++d)
        l.value0[-d] = l.value0[d];
    for (int32_t r = 1; r < m; ++r)
        l.position0[-r] = l.position0[r];
}

LumStatus init(int32_t filter, LumiSize k, Lum32f valueSigma2, Lum32f positionSigma2,
               int32_t step, Lum8u *pBuffer)
{
    if (any_null(pBuffer))
        return lumStsNullPtrErr;
    if (!mask_positive(k))
        return lumStsMaskSizeErr;
    if (valueSigma2 <= 0.0f || positionSigma2 <= 0.0f || step <= 0)
        return lumStsBadArgErr;
    if (!kind_known(filter))
        return lumStsBadFilterKindErr;

    const int32_t offset = 8 - (int32_t)((uintptr_t)pBuffer & 7);
    State *rec = (State *)(pBuffer + offset);
    pBuffer[0] = (Lum8u)offset;
    rec->tag = filter == lumiFilterBilateralGauss ? kTagGauss : kTagGaussFast;
    rec->kind = filter;

    const int32_t len = value_length(valueSigma2, k);
    const int32_t rx = init_radius(k.width, step), ry = init_radius(k.height, step);
    const int32_t m = (rx > ry ? rx : ry) + 1;
    if (m > kMaxRadius + 1)
        return lumStsMaskSizeErr;

    const Layout l = layout_of(rec, m);
    const unsigned csr = conv::enter_nearest();
    build_tables(valueSigma2, positionSigma2, step, len, m, l);
    conv::leave_nearest(csr);

    rec->radiusX = rx;
    rec->radiusY = ry;
    rec->pValueWeights = l.value0;
    rec->pPositionWeights = l.position0;
    rec->stepInKernel = step;
    rec->pSampleWeights = l.samples;
    return lumStsNoErr;
}

/* The record of a block Init built, or false for anything else. */
bool read_state(Lum8u *pBuffer, State *st, Layout *l)
{
    const int32_t offset = pBuffer[0];
    if (offset < 1 || offset > 8)
        return false;
    State *rec = (State *)(pBuffer + offset);
    uint32_t tag;
    memcpy(&tag, rec, sizeof tag); /* the rest only behind a tag */
    if (tag != kTagGauss && tag != kTagGaussFast)
        return false;
    memcpy(st, rec, sizeof *st);
    if (st->stepInKernel < 1 || st->radiusX < 0 || st->radiusX > kMaxRadius || st->radiusY < 0 ||
        st->radiusY > kMaxRadius)
        return false;
    const int32_t m = (st->radiusX > st->radiusY ? st->radiusX : st->radiusY) + 1;
    *l = layout_of(rec, m);
    return st->pValueWeights == l->value0 && st->pPositionWeights == l->position0 &&
           st->pSampleWeights == l->samples;
}

/* The windows with a fixed kernel: radius q both ways at step s. */
bool fixed_window(int32_t qx, int32_t qy, int32_t s)
{
    static const struct {
        int32_t q, s;
    } kFixed[] = {{1, 1}, {2, 1}, {2, 2}, {3, 1}, {4, 1}, {4, 2}};
    if (qx != qy)
        return false;
    for (const auto &f : kFixed)
        if (f.q == qx && f.s == s)
            return true;
    return false;
}

/* The position weight of every sample of the window, in row order. */
void fill_samples(const State &st, int32_t qx, int32_t qy)
{
    const int32_t s = st.stepInKernel;
    Lum32f *out = st.pSampleWeights;
    for (int32_t dy = -qy; dy <= qy; dy += s)
        for (int32_t dx = -qx; dx <= qx; dx += s) {
            const int32_t ax = dx < 0 ? -dx : dx, ay = dy < 0 ? -dy : dy;
            *out++ = st.pPositionWeights[ax > ay ? ax : ay];
        }
}

/* One 16-bit table per ring s, 2s, .. q: round(V[d] * P[r] * 2^k), d 0..255. */
void ring_tables(const State &st, int32_t q, int32_t scaleFactor, Lum16u *tables)
{
    Lum32f product[256];
    const int32_t s = st.stepInKernel;
    for (int32_t r = s; r <= q; r += s, tables += 256) {
        LUMI_T(lumsMulC_32f)(st.pValueWeights, st.pPositionWeights[r], product, 256);
        LUMI_T(lumsConvert_32f16u_Sfs)(product, tables, 256, 1, scaleFactor);
    }
}

LumStatus filter(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep, LumiSize roi,
                 LumiSize k, Lum8u *pBuffer)
{
    if (any_null(pSrc, pDst, pBuffer))
        return lumStsNullPtrErr;
    if (!size_positive(roi))
        return lumStsSizeErr;
    if (!steps_at_least(1, srcStep, dstStep))
        return lumStsStepErr;
    if (!mask_positive(k))
        return lumStsMaskSizeErr;
    State st;
    Layout l;
    if (!read_state(pBuffer, &st, &l))
        return lumStsContextMatchErr;
    const int32_t s = st.stepInKernel;
    const int32_t rx = k.width >> 1, ry = k.height >> 1;
    const int32_t qx = rx - rx % s, qy = ry - ry % s;
    if (qx > st.radiusX || qy > st.radiusY)
        return lumStsMaskSizeErr;

    const bilateral::Rows rows = {pSrc, srcStep, pDst, dstStep, roi.width, roi.height};
    const unsigned csr = conv::enter_nearest();
    if (roi.width >= 16 && fixed_window(qx, qy, s)) {
        const bool fast = st.tag != kTagGauss;
        alignas(16) Lum16u tables[4 * 256];
        ring_tables(st, qx, fast ? -4 : -14, tables);
        bilateral::fixed_kernel(rows, qx, s, fast, tables);
    } else {
        fill_samples(st, qx, qy);
        if (roi.width >= 16)
            bilateral::general_kernel(rows, qx, qy, s, st.pValueWeights, st.pSampleWeights);
        else
            bilateral::narrow_kernel(rows, qx, qy, s, st.pValueWeights, st.pSampleWeights);
    }
    conv::leave_nearest(csr);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBilateralGetBufSize_8u_C1R)(int32_t filter,
                                                                   LumiSize dstRoiSize,
                                                                   LumiSize kernelSize,
                                                                   int32_t *pBufferSize)
{
    using namespace LUMI_NS;
    if (any_null(pBufferSize))
        return lumStsNullPtrErr;
    if (!size_positive(dstRoiSize))
        return lumStsSizeErr;
    if (!mask_positive(kernelSize))
        return lumStsMaskSizeErr;
    if (!kind_known(filter))
        return lumStsBadFilterKindErr;
    const int64_t w = dstRoiSize.width;
    const int64_t rows = ((w + 3) & ~(int64_t)3) * 12 + ((w + 7) & ~(int64_t)7) * 2 + 2229;
    const int64_t m = kernelSize.width > kernelSize.height ? kernelSize.width : kernelSize.height;
    const int64_t cells = (int64_t)kernelSize.width * kernelSize.height;
    const int64_t kernel = (((cells + 3) & ~(int64_t)3) + (m - (~m & 1))) * 4;
    if (!fits_32(rows))
        return lumStsSizeErr;
    if (!fits_32(rows + kernel))
        return lumStsMaskSizeErr;
    *pBufferSize = (int32_t)(rows + kernel);
    return lumStsNoErr;
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBilateralInit_8u_C1R)(int32_t filter, LumiSize kernelSize,
                                                             Lum32f valueSigma2,
                                                             Lum32f positionSigma2,
                                                             int32_t stepInKernel, Lum8u *pBuffer)
{
    return LUMI_NS::init(filter, kernelSize, valueSigma2, positionSigma2, stepInKernel, pBuffer);
}

LUMI_MEMBER LumStatus LUMI_T(lumiFilterBilateral_8u_C1R)(const Lum8u *pSrc, int32_t srcStep,
                                                         Lum8u *pDst, int32_t dstStep,
                                                         LumiSize dstRoiSize, LumiSize kernelSize,
                                                         Lum8u *pBuffer)
{
    return LUMI_NS::filter(pSrc, srcStep, pDst, dstStep, dstRoiSize, kernelSize, pBuffer);
}
