/*
 * Resize: the public forms and the driver shared by every method.
 *
 * lumiResize_8u_C1R and _C3R scale a region of an 8-bit image by separate x
 * and y factors.  Supersampling with both factors at most 1.0 goes to
 * ownpiDecimateSuper; everything else goes to ownpiResize, which
 *   - checks the arguments in a fixed order (pointers, sizes and region
 *     origin, region inside the image, destination size, factors, selector),
 *   - lowers the method silently for very small images (Lanczos needs 8
 *     pixels a side, cubic 4, linear 2),
 *   - cuts the region to the image and derives the output size: the scaled
 *     region, truncated after adding 1e-7, capped by dstRoiSize,
 *   - derives the source steps: cell centres for nearest neighbour, corner
 *     alignment (first and last output on the first and last region pixel)
 *     for linear, cubic and Lanczos,
 *   - takes every table and row buffer it needs before it touches the
 *     destination, fills the tables once, and calls one kernel that walks
 *     all output rows.  Each method's kernel gets one argument record; the
 *     blocks sit in one bounded holder (workmem.h) that gives them all back
 *     on every path.  Nothing allocated outlives the call.
 * No step is checked: zero and negative steps are taken as they stand.
 *
 * Nearest neighbour samples the centre of each output cell.  When a scaled
 * width or height is exactly one half, the single sample lands on the
 * region's end, one pixel past it; inside the image that pixel is read, but
 * at the image's edge the table takes the image's last row or column
 * instead, so nothing past the image is read.  Every other sample is as the
 * cell-centre rule gives it.
 *
 * Large images.  Every address is formed in pointer width: the region's
 * origin, the row offsets (row index times step, which passes 2^31 in an
 * image of more than 2 GiB) and the kernels' row arithmetic.  Column
 * offsets, row buffer lengths and element counts stay 32-bit, so after all
 * the checks above one more refuses, with lumStsSizeErr, a source or output
 * row of more than 2^31 - 65 elements, and the holder refuses, likewise, a
 * block whose byte count an allocation cannot hold (the allocators would
 * cut it to 32 bits and hand back a short block).
 *
 * A slot of a kernel table that holds no kernel makes the driver answer
 * lumStsInterpolationErr once every other check has passed, before it
 * allocates anything.  Supersampling continues in ownpiDecimateSuper after
 * the output size (piressup.cpp).
 */
#include <stdint.h>

#include "checks.h"
#include "piresize.h"
#include "workmem.h"

/* ------------------------------------------------------ tables of kernels -- */

/* Slot: dataTypeCode plus a layout base (interleaved 0; one channel 4 for NN
 * and linear, 3 for cubic and Lanczos; four channels 8, NN only).  Only the
 * 8-bit members that the public forms reach are built. */
LUMI_MEMBER const LUMI_NS::ResizeNNFn LUMI_T(ownResizeInterNN)[15] = {
    LUMI_T(ownResize8pxN), nullptr, nullptr, nullptr, LUMI_T(ownResize8plN)};

LUMI_MEMBER const LUMI_NS::ResizeLinearFn LUMI_T(ownResizeInterLinear)[8] = {
    LUMI_T(ownResize8pxL), nullptr, nullptr, nullptr, LUMI_T(ownResize8plL)};

LUMI_MEMBER const LUMI_NS::ResizeCubicFn LUMI_T(ownResizeInterCubic)[6] = {
    LUMI_T(ownResize8pxC), nullptr, nullptr, LUMI_T(ownResize8plC)};

LUMI_MEMBER const LUMI_NS::ResizeLanczosFn LUMI_T(ownResizeInterLanczos)[6] = {
    LUMI_T(ownResize8pxLz3), nullptr, nullptr, LUMI_T(ownResize8plLz3)};

namespace LUMI_NS {
namespace {

/* The region after cutting, the scaled size and the output size. */
struct ResizeGeometry {
    LumiRect roi;
    double wF, hF;
    int32_t width, height; /* output */
};

/* Steps 1 to 5 of the checks, shared with supersampling. */
LumStatus check_args(const Lum8u *pSrc, int32_t srcWidth, int32_t srcHeight, LumiRect roi,
                     const Lum8u *pDst, LumiSize dstRoiSize, double xFactor, double yFactor)
{
    const LumiSize image = {srcWidth, srcHeight};
    if (any_null(pSrc, pDst))
        return lumStsNullPtrErr;
    if (!size_positive(image) || !rect_valid(roi))
        return lumStsSizeErr;
    if (!rect_starts_inside(roi, image))
        return lumStsNoIntersectRoiWarn;
    if (!size_positive(dstRoiSize))
        return lumStsSizeErr;
    /* Asked as "is 0.0 at least the factor", so a NaN goes on. */
    if (0.0 >= xFactor || 0.0 >= yFactor)
        return lumStsResizeFactorErr;
    return lumStsNoErr;
}

/* One output length from the scaled length: the truncation of scaled + 1e-7,
 * capped by the destination.  A scaled length below one half is empty; one
 * from a half to 1 gives a single pixel.  A length that is not a number has
 * no size either and counts as empty. */
LumStatus output_length(double scaled, int32_t limit, int32_t *out)
{
    const double v = scaled + kResizeGuard;
    if (v >= (double)limit) {
        *out = limit;
        return lumStsNoErr;
    }
    if (!(v >= 0.5))
        return lumStsResizeEmptyErr;
    const int32_t n = (int32_t)v;
    *out = n < 1 ? 1 : n;
    return lumStsNoErr;
}

/* Steps 8 and 9: cut the region to the image, then width and height. */
LumStatus cut_and_size(int32_t srcWidth, int32_t srcHeight, LumiRect roi, LumiSize dstRoiSize,
                       double xFactor, double yFactor, ResizeGeometry *g)
{
    if (roi.x > srcWidth - roi.width)
        roi.width = srcWidth - roi.x;
    if (roi.y > srcHeight - roi.height)
        roi.height = srcHeight - roi.y;
    g->roi = roi;
    g->wF = (double)roi.width * xFactor;
    g->hF = (double)roi.height * yFactor;
    LumStatus st = output_length(g->wF, dstRoiSize.width, &g->width);
    if (st == lumStsNoErr)
        st = output_length(g->hF, dstRoiSize.height, &g->height);
    return st;
}

/* The selector after the small-image rule; it looks at the whole image. */
int32_t lowered_selector(int32_t interpolation, int32_t srcWidth, int32_t srcHeight)
{
    const int32_t minSide = srcWidth < srcHeight ? srcWidth : srcHeight;
    if (minSide < 8 && interpolation == LUMI_INTER_LANCZOS)
        interpolation = LUMI_INTER_CUBIC;
    if (minSide < 4 && interpolation == LUMI_INTER_CUBIC)
        interpolation = LUMI_INTER_LINEAR;
    if (minSide < 2)
        interpolation = LUMI_INTER_NN;
    return interpolation;
}

/* Corner alignment: the first output on the region's first pixel and, when
 * the size is exact, the last on its last. */
double corner_step(int32_t length, double scaled)
{
    return scaled > 1.0 ? (double)(length - 1) / (scaled - 1.0) : 0.0;
}

/* Everything a method's setup needs. */
struct ResizeJob {
    ResizeFrame frame; /* tables still to be taken */
    int32_t slot;
    ResizeGeometry g;
    ResizeAxis rows, cols;
    int32_t roiX, roiY, imgW, imgH; /* imgW, imgH: the image's extent from the region's origin */
    double yFactor;
};

/* The most blocks a method takes: Lanczos, with two offset tables, two
 * fraction tables, two weight tables and six row buffers. */
typedef WorkMem<12> ResizeMem;

/* The tables every method has, first in every request order: row offsets,
 * then column offsets.  The frame points at them; the caller fills them. */
struct Offsets {
    ptrdiff_t *rows;
    int32_t *cols;
};

Offsets take_offsets(ResizeMem &m, ResizeFrame &f)
{
    const Offsets o = {workmem_take<ptrdiff_t>(m, f.height), workmem_take<int32_t>(m, f.width)};
    f.rowOfs = o.rows;
    f.colOfs = o.cols;
    return o;
}

/* Row buffer length: a row of filtered pixels plus room for grouped loads
 * and stores past its end. */
int64_t row_buffer_length(const ResizeFrame &f)
{
    return f.channelCount == 1 ? (int64_t)f.width + 4 : 3 * (int64_t)f.width + 12;
}

LumStatus run_nn(const ResizeJob &job)
{
    ResizeMem m = {};
    ResizeNNArgs a = {job.frame};
    const Offsets o = take_offsets(m, a.frame);
    if (m.status == lumStsNoErr) {
        table_nn(job.rows, o.rows);
        table_nn(job.cols, o.cols);
        LUMI_T(ownResizeInterNN)[job.slot](&a);
    }
    return workmem_release(m);
}

LumStatus run_linear(const ResizeJob &job)
{
    ResizeMem m = {};
    ResizeLinearArgs a = {};
    a.frame = job.frame;
    const Offsets o = take_offsets(m, a.frame);
    Lum16u *yFrac = workmem_take<Lum16u>(m, a.frame.height);
    Lum16u *xWeights = workmem_take<Lum16u>(m, 2 * (int64_t)a.frame.width);
    for (Lum16u *&p : a.buf)
        p = workmem_take<Lum16u>(m, row_buffer_length(a.frame));
    if (m.status == lumStsNoErr) {
        table_linear_rows(job.rows, o.rows, yFrac);
        table_linear_cols(job.cols, o.cols, xWeights);
        a.yFrac = yFrac;
        a.xWeights = xWeights;
        LUMI_T(ownResizeInterLinear)[job.slot](&a);
    }
    return workmem_release(m);
}

LumStatus run_cubic(const ResizeJob &job)
{
    ResizeMem m = {};
    ResizeCubicArgs a = {};
    a.frame = job.frame;
    const Offsets o = take_offsets(m, a.frame);
    Lum32f *yFrac = workmem_take<Lum32f>(m, a.frame.height);
    Lum32f *xFrac = workmem_take<Lum32f>(m, a.frame.width);
    for (Lum32f *&p : a.buf)
        p = workmem_take<Lum32f>(m, row_buffer_length(a.frame));
    if (m.status == lumStsNoErr) {
        table_cubic(job.rows, o.rows, yFrac);
        table_cubic(job.cols, o.cols, xFrac);
        a.yFrac = yFrac;
        a.xFrac = xFrac;
        LUMI_T(ownResizeInterCubic)[job.slot](&a);
    }
    return workmem_release(m);
}

LumStatus run_lanczos(const ResizeJob &job)
{
    ResizeMem m = {};
    ResizeLanczosArgs a = {};
    a.frame = job.frame;
    const int32_t W = a.frame.width, H = a.frame.height;
    const Offsets o = take_offsets(m, a.frame);
    Lum32f *yFrac = workmem_take<Lum32f>(m, H);
    Lum32f *xFrac = workmem_take<Lum32f>(m, W);
    if (m.status == lumStsNoErr) {
        /* The row table is the one formed in lanes where the tier does so. */
        table_lanczos(job.rows, o.rows, yFrac, true);
        table_lanczos(job.cols, o.cols, xFrac, false);
    }
    Lum32f *xWeights = workmem_take<Lum32f>(m, 6 * (int64_t)W);
    Lum32f *yWeights = workmem_take<Lum32f>(m, 6 * (int64_t)H);
    for (Lum32f *&p : a.buf)
        p = workmem_take<Lum32f>(m, row_buffer_length(a.frame));
    if (m.status == lumStsNoErr) {
        LUMI_T(ownpi_Lanczos3)(xFrac, W, xWeights, LUMI_T(tblLanczos3));
        LUMI_T(ownpi_Lanczos3)(yFrac, H, yWeights, LUMI_T(tblLanczos3));
        a.xWeights = xWeights;
        a.yWeights = yWeights;
        a.roiX = job.roiX;
        a.roiY = job.roiY;
        a.imgW = job.imgW;
        a.imgH = job.imgH;
        a.vertFlag = job.yFactor >= 1.0 ? 1 : 0;
        LUMI_T(ownResizeInterLanczos)[job.slot](&a);
    }
    return workmem_release(m);
}

/* Rows of up to this many elements keep 32-bit column offsets, row buffer
 * lengths and element counts, with room for the few elements that grouped
 * loads reach past a row's last sample. */
const int64_t kMaxRowElements = INT32_MAX - 64;

bool row_elements_fit(int32_t pixels, int32_t pixelStride)
{
    return (int64_t)pixels * pixelStride <= kMaxRowElements;
}

/* The method's kernel for the slot, or null when it is not built. */
bool kernel_present(int32_t method, int32_t slot)
{
    switch (method) {
    case LUMI_INTER_NN: return LUMI_T(ownResizeInterNN)[slot] != nullptr;
    case LUMI_INTER_LINEAR: return LUMI_T(ownResizeInterLinear)[slot] != nullptr;
    case LUMI_INTER_CUBIC: return LUMI_T(ownResizeInterCubic)[slot] != nullptr;
    default: return LUMI_T(ownResizeInterLanczos)[slot] != nullptr;
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

LUMI_MEMBER LumStatus LUMI_T(ownpiResize)(const Lum8u *pSrc, int32_t srcWidth, int32_t srcHeight,
                                          int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                          int32_t dstStep, LumiSize dstRoiSize,
                                          int32_t pixelStride, int32_t channelCount,
                                          int32_t dataTypeCode, int32_t planarFlag,
                                          int32_t interpolation, int32_t factorMode,
                                          double xFactor, double yFactor, double xShift,
                                          double yShift)
{
    LumStatus st = check_args(pSrc, srcWidth, srcHeight, srcRoi, pDst, dstRoiSize, xFactor,
                              yFactor);
    if (st != lumStsNoErr)
        return st;
    if (interpolation != LUMI_INTER_NN && interpolation != LUMI_INTER_LINEAR &&
        interpolation != LUMI_INTER_CUBIC && interpolation != LUMI_INTER_LANCZOS)
        return lumStsInterpolationErr;
    /* Only 8-bit interleaved images with ratio factors are built. */
    if (dataTypeCode != 0 || planarFlag != 0 || factorMode != 1)
        return lumStsBadArgErr;
    const int32_t method = lowered_selector(interpolation, srcWidth, srcHeight);

    ResizeJob job;
    st = cut_and_size(srcWidth, srcHeight, srcRoi, dstRoiSize, xFactor, yFactor, &job.g);
    if (st != lumStsNoErr)
        return st;

    const bool oneChannel = channelCount == 1;
    const bool linearBase = method == LUMI_INTER_NN || method == LUMI_INTER_LINEAR;
    job.slot = dataTypeCode + (oneChannel ? (linearBase ? 4 : 3) : 0);
    if (!kernel_present(method, job.slot))
        return lumStsInterpolationErr;

    /* Beyond the checks above: every row, source or output, must be short
     * enough for 32-bit element offsets and counts. */
    if (!row_elements_fit(srcWidth, pixelStride) || !row_elements_fit(job.g.width, pixelStride))
        return lumStsSizeErr;

    /* Source steps and first positions, relative to the region's top left. */
    double xStep, yStep, x0, y0;
    if (method == LUMI_INTER_NN) {
        xStep = 1.0 / xFactor;
        yStep = 1.0 / yFactor;
        x0 = xStep * 0.5;
        y0 = 0.5 * yStep;
    } else {
        xStep = corner_step(job.g.roi.width, job.g.wF);
        yStep = corner_step(job.g.roi.height, job.g.hF);
        x0 = y0 = 0.0;
    }

    ResizeFrame &f = job.frame;
    f.src = pSrc + (ptrdiff_t)job.g.roi.y * srcStep + (ptrdiff_t)job.g.roi.x * pixelStride;
    f.dst = pDst;
    f.srcStep = srcStep;
    f.dstStep = dstStep;
    f.width = job.g.width;
    f.height = job.g.height;
    f.rowOfs = nullptr;
    f.colOfs = nullptr;
    f.pixelStride = pixelStride;
    f.channelCount = channelCount;
    job.roiX = job.g.roi.x;
    job.roiY = job.g.roi.y;
    job.imgW = srcWidth - job.g.roi.x;
    job.imgH = srcHeight - job.g.roi.y;
    job.yFactor = yFactor;
    job.rows = ResizeAxis{yShift + y0, yStep, job.g.height, srcStep, job.g.roi.y, srcHeight};
    job.cols = ResizeAxis{xShift + x0, xStep, job.g.width, pixelStride, job.g.roi.x, srcWidth};

    switch (method) {
    case LUMI_INTER_NN: return run_nn(job);
    case LUMI_INTER_LINEAR: return run_linear(job);
    case LUMI_INTER_CUBIC: return run_cubic(job);
    default: return run_lanczos(job);
    }
}

/* Supersampling: the checks, the cut and the output size of the driver, with
 * no selector test and no lowering. */
LUMI_MEMBER LumStatus LUMI_T(ownpiDecimateSuper)(const Lum8u *pSrc, LumiSize srcSize,
                                                 int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                                 int32_t dstStep, LumiSize dstRoiSize,
                                                 int32_t pixelStride, int32_t channelCount,
                                                 int32_t dataTypeCode, int32_t planarFlag,
                                                 double xFactor, double yFactor)
{
    LumStatus st = check_args(pSrc, srcSize.width, srcSize.height, srcRoi, pDst, dstRoiSize,
                              xFactor, yFactor);
    if (st != lumStsNoErr)
        return st;
    ResizeGeometry g;
    st = cut_and_size(srcSize.width, srcSize.height, srcRoi, dstRoiSize, xFactor, yFactor, &g);
    if (st != lumStsNoErr)
        return st;
    if (dataTypeCode != 0 || planarFlag != 0)
        return lumStsBadArgErr;
    if (!row_elements_fit(srcSize.width, pixelStride))
        return lumStsSizeErr;
    ResizeFrame f = {};
    f.src = pSrc + (ptrdiff_t)g.roi.y * srcStep + (ptrdiff_t)g.roi.x * pixelStride;
    f.dst = pDst;
    f.srcStep = srcStep;
    f.dstStep = dstStep;
    f.width = g.width;
    f.height = g.height;
    f.pixelStride = pixelStride;
    f.channelCount = channelCount;
    return run_super(f, g.roi.width, srcSize.height - g.roi.y, xFactor, yFactor);
}

namespace LUMI_NS {
namespace {

LumStatus resize_public(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,
                        Lum8u *pDst, int32_t dstStep, LumiSize dstRoiSize, double xFactor,
                        double yFactor, int32_t interpolation, int32_t channels)
{
    /* A NaN factor fails these comparisons and goes to the general driver. */
    if (interpolation == LUMI_INTER_SUPER && 1.0 >= xFactor && 1.0 >= yFactor)
        return LUMI_T(ownpiDecimateSuper)(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep,
                                          dstRoiSize, channels, channels, 0, 0, xFactor, yFactor);
    return LUMI_T(ownpiResize)(pSrc, srcSize.width, srcSize.height, srcStep, srcRoi, pDst,
                               dstStep, dstRoiSize, channels, channels, 0, 0, interpolation, 1,
                               xFactor, yFactor, 0.0, 0.0);
}

} // namespace
} // namespace LUMI_NS

LUMI_MEMBER LumStatus LUMI_T(lumiResize_8u_C1R)(const Lum8u *pSrc, LumiSize srcSize,
                                                int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                                int32_t dstStep, LumiSize dstRoiSize,
                                                double xFactor, double yFactor,
                                                int32_t interpolation)
{
    return resize_public(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoiSize, xFactor,
                         yFactor, interpolation, 1);
}

LUMI_MEMBER LumStatus LUMI_T(lumiResize_8u_C3R)(const Lum8u *pSrc, LumiSize srcSize,
                                                int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                                int32_t dstStep, LumiSize dstRoiSize,
                                                double xFactor, double yFactor,
                                                int32_t interpolation)
{
    return resize_public(pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoiSize, xFactor,
                         yFactor, interpolation, 3);
}
