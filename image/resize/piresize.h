/*
 * Resize family, internal: the argument records of the kernels, the tables
 * of kernels and the table fillers that the driver (piresize.cpp) shares
 * with the kernels.
 *
 * Each method's kernels take one record: the common frame (images, steps,
 * output size, offset tables, layout) and what the method adds (fractions
 * or weights, row buffers, edge limits).  The one-channel and three-channel
 * kernels of a method share the record and so one table type.
 */
#ifndef LUMI_PIRESIZE_H
#define LUMI_PIRESIZE_H

#include <stddef.h>
#include <string.h>

#include "tier.h"

#include <emmintrin.h>
#if LUMI_HAS_SSE41
#include <smmintrin.h>
#endif

namespace LUMI_NS {

/* Four bytes from any address. */
inline uint32_t load_u32(const void *p)
{
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

/* The three channels of the pixel at p widened to 32-bit lanes 0 to 2 (lane
 * 3 holds the next byte).  last: the pixel is the last a kernel may touch,
 * so it is read from one byte earlier and shifted, and lane 3 is 0. */
inline __m128i pixel_epi32(const Lum8u *p, bool last)
{
    const __m128i v = _mm_cvtsi32_si128((int32_t)(last ? load_u32(p - 1) >> 8 : load_u32(p)));
#if LUMI_HAS_SSE41
    return _mm_cvtepu8_epi32(v);
#else
    const __m128i zero = _mm_setzero_si128();
    return _mm_unpacklo_epi16(_mm_unpacklo_epi8(v, zero), zero);
#endif
}

/* Added to a position before truncating it to an index, and to a scaled
 * length before truncating it to a size: a value a hair below an integer
 * counts as that integer.  One constant for every table and size. */
const double kResizeGuard = 1e-7;

/* What the kernel of every method gets: the images, the output size, the
 * offset tables and the layout.  Row offsets are pointer-width, since a row
 * index times the step may pass 2^31 in a large image; column offsets are
 * element offsets within one source row, which the driver keeps below 2^31
 * with room to spare for grouped loads. */
struct ResizeFrame {
    const Lum8u *src;        /* the region's top left pixel */
    Lum8u *dst;
    int32_t srcStep, dstStep;
    int32_t width, height;   /* output */
    const ptrdiff_t *rowOfs; /* bytes from src, one per output row */
    const int32_t *colOfs;   /* elements from src, one per output column */
    int32_t pixelStride, channelCount;
};

/* One argument record per method. */
struct ResizeNNArgs {
    ResizeFrame frame;
};

/* Linear: 14-bit y fractions, pairs of 14-bit x weights, two 16-bit row buffers. */
struct ResizeLinearArgs {
    ResizeFrame frame;
    const Lum16u *yFrac, *xWeights;
    Lum16u *buf[2];
};

/* Cubic: float fractions, four float row buffers from top to bottom. */
struct ResizeCubicArgs {
    ResizeFrame frame;
    const Lum32f *yFrac, *xFrac;
    Lum32f *buf[4];
};

/* Lanczos: six weights per row and column, six float row buffers, the
 * region's origin, the image's extent from that origin, and the vertical
 * mode flag (1 when yFactor is at least 1.0). */
struct ResizeLanczosArgs {
    ResizeFrame frame;
    const Lum32f *yWeights, *xWeights;
    Lum32f *buf[6];
    int32_t roiX, roiY, imgW, imgH;
    int32_t vertFlag;
};

/* Supersampling: the derived values of the call and the accumulator row,
 * whose elements are unsigned 32-bit in mode 0 and float otherwise.
 * rowsAvail: the image's rows from the region's first; rows past them are
 * never read. */
/* What one block across takes in modes 2 and 3, after the first: the
 * element q with weight top (q -1: none), count whole elements from first,
 * and the element carryAt with weight carry (-1: none). */
struct SuperBlock {
    double top, carry;
    int32_t q, first, count, carryAt;
};

struct ResizeSuperArgs {
    ResizeFrame frame; /* no offset tables */
    int32_t srcWidthUsed, rowsAvail;
    int32_t rx, ry, mode;
    double xRatio, yRatio, fx, fy, norm;
    bool vectorOut; /* mode 0 sums stay below 2^31 */
    bool pairs;     /* mode 0, rx 2: the 16-bit rows of piressuphalf.cpp */
    uint16_t outMul, outAdd; /* their output step, ((s + outAdd) * outMul) >> 16 */
    void *acc;
    const SuperBlock *blocks; /* modes 2 and 3 */
    int32_t blockCount;
};

/* Takes the accumulator and runs the kernel of the frame's channel count
 * (piressup.cpp); roiWidth is the cut region's width. */
LumStatus run_super(const ResizeFrame &frame, int32_t roiWidth, int32_t rowsAvail,
                    double xFactor, double yFactor);

/* The output step of supersampling: trunc(a * norm + 0.5) in double, of
 * which the byte keeps the low 8 bits. */
inline int64_t super_out_value(double a, double norm) { return (int64_t)(a * norm + 0.5); }
inline Lum8u super_out_byte(double a, double norm) { return (Lum8u)super_out_value(a, norm); }

/* Whole ratio 2 across (piressuphalf.cpp): the 16-bit output step that
 * gives super_out_value for every sum 0..maxSum, if one exists, and the
 * row routine that uses it for one output row whose ry rows lie inside the
 * image. */
bool super_fit_out16(double norm, int32_t maxSum, uint16_t *mul, uint16_t *add);
void super_pairs_row(const ResizeSuperArgs *a, const Lum8u *src, Lum8u *dst);

typedef void (*ResizeNNFn)(const ResizeNNArgs *args);
typedef void (*ResizeLinearFn)(const ResizeLinearArgs *args);
typedef void (*ResizeCubicFn)(const ResizeCubicArgs *args);
typedef void (*ResizeLanczosFn)(const ResizeLanczosArgs *args);

/* Source positions along one axis: position i is p0 + i step, accumulated by
 * addition in double; the reference index of a position p is the truncation
 * of p + 1e-7.  limit is the last pixel of the image counted from the
 * region's first (the linear and cubic tables move their window at it),
 * absFirst the region's first pixel in the image, imgLen the image's length. */
struct ResizeAxis {
    double p0;
    double step;
    int32_t count;   /* output pixels */
    int32_t scale;   /* offset of one source pixel: srcStep for rows, pixelStride for columns */
    int32_t absFirst;
    int32_t imgLen;
};

/* Table fillers (piresset.cpp), for row offsets (ptrdiff_t) and column
 * offsets (int32_t): offset i is the reference index times axis.scale. */
template <typename Ofs>
void table_nn(const ResizeAxis &axis, Ofs *ofs);
template <typename Ofs>
void table_linear_rows(const ResizeAxis &axis, Ofs *ofs, Lum16u *frac);
template <typename Ofs>
void table_linear_cols(const ResizeAxis &axis, Ofs *ofs, Lum16u *weights);
template <typename Ofs>
void table_cubic(const ResizeAxis &axis, Ofs *ofs, Lum32f *frac);
template <typename Ofs>
void table_lanczos(const ResizeAxis &axis, Ofs *ofs, Lum32f *frac, bool inLanes);

} // namespace LUMI_NS

/* The drivers (piresize.cpp). */
LUMI_MEMBER LumStatus LUMI_T(ownpiResize)(const Lum8u *pSrc, int32_t srcWidth, int32_t srcHeight,
                                          int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                          int32_t dstStep, LumiSize dstRoiSize,
                                          int32_t pixelStride, int32_t channelCount,
                                          int32_t dataTypeCode, int32_t planarFlag,
                                          int32_t interpolation, int32_t factorMode,
                                          double xFactor, double yFactor, double xShift,
                                          double yShift);
LUMI_MEMBER LumStatus LUMI_T(ownpiDecimateSuper)(const Lum8u *pSrc, LumiSize srcSize,
                                                 int32_t srcStep, LumiRect srcRoi, Lum8u *pDst,
                                                 int32_t dstStep, LumiSize dstRoiSize,
                                                 int32_t pixelStride, int32_t channelCount,
                                                 int32_t dataTypeCode, int32_t planarFlag,
                                                 double xFactor, double yFactor);

/* Nearest neighbour (piresnn.cpp). */
LUMI_MEMBER void LUMI_T(ownResize8plN)(const LUMI_NS::ResizeNNArgs *args);
LUMI_MEMBER void LUMI_T(ownResize8pxN)(const LUMI_NS::ResizeNNArgs *args);

/* Linear (pireslin.cpp). */
LUMI_MEMBER void LUMI_T(ownResize8plL)(const LUMI_NS::ResizeLinearArgs *args);
LUMI_MEMBER void LUMI_T(ownResize8pxL)(const LUMI_NS::ResizeLinearArgs *args);

/* Cubic (pirescub.cpp): the stages and the kernels. */
LUMI_MEMBER void LUMI_T(ownResize8plC)(const LUMI_NS::ResizeCubicArgs *args);
LUMI_MEMBER void LUMI_T(ownResize8pxC)(const LUMI_NS::ResizeCubicArgs *args);

/* Lanczos (pireslan.cpp): the weights of count fractions, six each, from
 * the kernel table, the horizontal stages and the kernels. */
LUMI_MEMBER void LUMI_T(ownpi_Lanczos3)(const Lum32f *frac, int32_t count, Lum32f *weights,
                                        const Lum32f *table);
LUMI_MEMBER void LUMI_T(ownResize8plLz3)(const LUMI_NS::ResizeLanczosArgs *args);
LUMI_MEMBER void LUMI_T(ownResize8pxLz3)(const LUMI_NS::ResizeLanczosArgs *args);

/* Supersampling (piressup.cpp): the kernels and the whole-pixel row sums
 * of mode 0 (each accumulator element becomes the sum of its column over
 * rows rows). */
LUMI_MEMBER void LUMI_T(ownDecimate8plS)(const LUMI_NS::ResizeSuperArgs *args);
LUMI_MEMBER void LUMI_T(ownDecimate8pxS)(const LUMI_NS::ResizeSuperArgs *args);
LUMI_MEMBER void LUMI_T(ownpi_RowSuper8pl)(const Lum8u *src, int32_t srcStep, int32_t width,
                                           int32_t rows, Lum32u *acc);
LUMI_MEMBER void LUMI_T(ownpi_RowSuper8px)(const Lum8u *src, int32_t srcStep, int32_t width,
                                           int32_t rows, Lum32u *acc, int32_t pixelStride);

/* The tables of kernels, by slot (piresize.cpp). */
LUMI_MEMBER const LUMI_NS::ResizeNNFn LUMI_T(ownResizeInterNN)[15];
LUMI_MEMBER const LUMI_NS::ResizeLinearFn LUMI_T(ownResizeInterLinear)[8];
LUMI_MEMBER const LUMI_NS::ResizeCubicFn LUMI_T(ownResizeInterCubic)[6];
LUMI_MEMBER const LUMI_NS::ResizeLanczosFn LUMI_T(ownResizeInterLanczos)[6];

#endif
