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
 *     all output rows.  Nothing allocated outlives the call.
 * No step is checked: zero and negative steps are taken as they stand.
 *
 * A slot of a kernel table that holds no kernel makes the driver answer
 * lumStsInterpolationErr once every other check has passed, before it
 * allocates anything.  Supersampling continues in ownpiDecimateSuper after
 * the output size.
 */
#include "piresize.h"

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
    if (!pSrc || !pDst)
        return lumStsNullPtrErr;
    if (srcWidth < 1 || srcHeight < 1 || roi.x < 0 || roi.y < 0 || roi.width < 1 ||
        roi.height < 1)
        return lumStsSizeErr;
    if (roi.x >= srcWidth || roi.y >= srcHeight)
        return lumStsNoIntersectRoiWarn;
    if (dstRoiSize.width < 1 || dstRoiSize.height < 1)
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
    const Lum8u *src; /* the region's top left pixel */
    Lum8u *dst;
    int32_t srcStep, dstStep;
    int32_t pixelStride, channelCount;
    int32_t slot;
    ResizeGeometry g;
    ResizeAxis rows, cols;
    int32_t roiX, roiY, imgW, imgH; /* imgW, imgH: the image's extent from the region's origin */
    double yFactor;
};

/* The blocks a call takes, in request order.  Once a request fails no
 * further one is made; release() gives back whatever was obtained. */
struct Blocks {
    void *ptr[12];
    int32_t count;
    bool failed;
};

template <typename T>
T *take(Blocks &b, T *(*alloc)(int32_t), int32_t len)
{
    if (b.failed)
        return nullptr;
    T *p = alloc(len);
    b.ptr[b.count++] = p;
    b.failed = p == nullptr;
    return p;
}

void release(Blocks &b)
{
    for (int32_t i = 0; i < b.count; ++i)
        LUMI_T(lumsFree)(b.ptr[i]);
}

/* The tables every method has, first in every request order: row offsets,
 * then column offsets. */
struct Offsets {
    int32_t *rows, *cols;
};

Offsets take_offsets(Blocks &b, const ResizeJob &job)
{
    Offsets o;
    o.rows = take(b, LUMI_T(lumsMalloc_32s), job.g.height);
    o.cols = take(b, LUMI_T(lumsMalloc_32s), job.g.width);
    return o;
}

/* Cubic and Lanczos fractions: float, rows then columns. */
struct FloatFractions {
    Lum32f *rows, *cols;
};

FloatFractions take_float_fractions(Blocks &b, const ResizeJob &job)
{
    FloatFractions f;
    f.rows = take(b, LUMI_T(lumsMalloc_32f), job.g.height);
    f.cols = take(b, LUMI_T(lumsMalloc_32f), job.g.width);
    return f;
}

/* Row buffer length: a row of filtered pixels plus room for grouped loads
 * and stores past its end. */
int32_t row_buffer_length(const ResizeJob &job)
{
    return job.channelCount == 1 ? job.g.width + 4 : 3 * job.g.width + 12;
}

LumStatus run_nn(const ResizeJob &job)
{
    Blocks b = {};
    const Offsets ofs = take_offsets(b, job);
    if (b.failed) {
        release(b);
        return lumStsMemAllocErr;
    }
    LUMI_T(ownpi_TableNN)(&job.rows, ofs.rows);
    LUMI_T(ownpi_TableNN)(&job.cols, ofs.cols);
    LUMI_T(ownResizeInterNN)[job.slot](job.src, job.dst, job.dstStep, job.g.width, job.g.height,
                                       ofs.rows, ofs.cols, job.pixelStride);
    release(b);
    return lumStsNoErr;
}

LumStatus run_linear(const ResizeJob &job)
{
    const int32_t W = job.g.width, H = job.g.height, L = row_buffer_length(job);
    Blocks b = {};
    const Offsets ofs = take_offsets(b, job);
    Lum16u *yFrac = take(b, LUMI_T(lumsMalloc_16u), H);
    Lum16u *xWeights = take(b, LUMI_T(lumsMalloc_16u), 2 * W);
    Lum16u *bufA = take(b, LUMI_T(lumsMalloc_16u), L);
    Lum16u *bufB = take(b, LUMI_T(lumsMalloc_16u), L);
    if (b.failed) {
        release(b);
        return lumStsMemAllocErr;
    }
    LUMI_T(ownpi_TableLinearRows)(&job.rows, ofs.rows, yFrac);
    LUMI_T(ownpi_TableLinearCols)(&job.cols, ofs.cols, xWeights);
    LUMI_T(ownResizeInterLinear)[job.slot](job.src, job.dst, job.srcStep, job.dstStep, W, H,
                                           ofs.rows, ofs.cols, yFrac, xWeights, bufA, bufB,
                                           job.pixelStride, job.channelCount);
    release(b);
    return lumStsNoErr;
}

LumStatus run_cubic(const ResizeJob &job)
{
    const int32_t W = job.g.width, H = job.g.height, L = row_buffer_length(job);
    Blocks b = {};
    const Offsets ofs = take_offsets(b, job);
    const FloatFractions frac = take_float_fractions(b, job);
    Lum32f *buf[4];
    for (Lum32f *&p : buf)
        p = take(b, LUMI_T(lumsMalloc_32f), L);
    if (b.failed) {
        release(b);
        return lumStsMemAllocErr;
    }
    LUMI_T(ownpi_TableCubic)(&job.rows, ofs.rows, frac.rows);
    LUMI_T(ownpi_TableCubic)(&job.cols, ofs.cols, frac.cols);
    LUMI_T(ownResizeInterCubic)[job.slot](job.src, job.dst, job.srcStep, job.dstStep, W, H,
                                          ofs.rows, ofs.cols, frac.rows, frac.cols, buf[0],
                                          buf[1], buf[2], buf[3], job.pixelStride,
                                          job.channelCount);
    release(b);
    return lumStsNoErr;
}

LumStatus run_lanczos(const ResizeJob &job)
{
    const int32_t W = job.g.width, H = job.g.height, L = row_buffer_length(job);
    Blocks b = {};
    const Offsets ofs = take_offsets(b, job);
    const FloatFractions frac = take_float_fractions(b, job);
    if (b.failed) {
        release(b);
        return lumStsMemAllocErr;
    }
    /* The row table is the one formed in lanes where the tier does so. */
    LUMI_T(ownpi_TableLanczos)(&job.rows, ofs.rows, frac.rows, 1);
    LUMI_T(ownpi_TableLanczos)(&job.cols, ofs.cols, frac.cols, 0);
    Lum32f *xWeights = take(b, LUMI_T(lumsMalloc_32f), 6 * W);
    Lum32f *yWeights = take(b, LUMI_T(lumsMalloc_32f), 6 * H);
    Lum32f *buf[6];
    for (Lum32f *&p : buf)
        p = take(b, LUMI_T(lumsMalloc_32f), L);
    if (b.failed) {
        release(b);
        return lumStsMemAllocErr;
    }
    LUMI_T(ownpi_Lanczos3)(frac.cols, W, xWeights, LUMI_T(tblLanczos3));
    LUMI_T(ownpi_Lanczos3)(frac.rows, H, yWeights, LUMI_T(tblLanczos3));
    const int32_t vertFlag = job.yFactor >= 1.0 ? 1 : 0;
    LUMI_T(ownResizeInterLanczos)[job.slot](
        job.src, job.dst, job.srcStep, job.dstStep, W, H, ofs.rows, ofs.cols, yWeights, xWeights,
        buf[0], buf[1], buf[2], buf[3], buf[4], buf[5], job.roiX, job.roiY, job.imgW, job.imgH,
        vertFlag, job.pixelStride, job.channelCount);
    release(b);
    return lumStsNoErr;
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

    job.src = pSrc + (ptrdiff_t)job.g.roi.y * srcStep + (ptrdiff_t)job.g.roi.x * pixelStride;
    job.dst = pDst;
    job.srcStep = srcStep;
    job.dstStep = dstStep;
    job.pixelStride = pixelStride;
    job.channelCount = channelCount;
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
    /* The supersampling kernels continue from here. */
    return lumStsInterpolationErr;
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
