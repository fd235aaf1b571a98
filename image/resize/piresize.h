/*
 * Resize family, internal: the kernel signatures, the tables of kernels and
 * the table fillers that the driver (piresize.cpp) shares with the kernels.
 *
 * Every table of kernels holds functions of one signature.  The one-channel
 * members take the layout arguments (pixelStride, channelCount) like the
 * three-channel ones and ignore them, so one table type serves both.
 */
#ifndef LUMI_PIRESIZE_H
#define LUMI_PIRESIZE_H

#include <string.h>

#include <emmintrin.h>
#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41
#include <smmintrin.h>
#endif

#include "tier.h"

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
#if LUMI_TIER_LEVEL >= LUMI_TIER_SSE41
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

/* Nearest neighbour: source base, pDst, dstStep, W, H, row offsets,
 * column offsets, pixelStride. */
typedef void (*ResizeNNFn)(const Lum8u *pSrc, Lum8u *pDst, int32_t dstStep, int32_t width,
                           int32_t height, const int32_t *rowOfs, const int32_t *colOfs,
                           int32_t pixelStride);

/* Linear: 14-bit y fractions, pairs of 14-bit x weights, two 16-bit row buffers. */
typedef void (*ResizeLinearFn)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep, int32_t dstStep,
                               int32_t width, int32_t height, const int32_t *rowOfs,
                               const int32_t *colOfs, const Lum16u *yFrac, const Lum16u *xWeights,
                               Lum16u *bufA, Lum16u *bufB, int32_t pixelStride,
                               int32_t channelCount);

/* Cubic: float fractions, four float row buffers from top to bottom. */
typedef void (*ResizeCubicFn)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep, int32_t dstStep,
                              int32_t width, int32_t height, const int32_t *rowOfs,
                              const int32_t *colOfs, const Lum32f *yFrac, const Lum32f *xFrac,
                              Lum32f *buf0, Lum32f *buf1, Lum32f *buf2, Lum32f *buf3,
                              int32_t pixelStride, int32_t channelCount);

/* Lanczos: six weights per row and column, six float row buffers, the region's
 * origin, the image's extent from that origin, and the vertical mode flag
 * (1 when yFactor is at least 1.0). */
typedef void (*ResizeLanczosFn)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep, int32_t dstStep,
                                int32_t width, int32_t height, const int32_t *rowOfs,
                                const int32_t *colOfs, const Lum32f *yWeights,
                                const Lum32f *xWeights, Lum32f *buf0, Lum32f *buf1, Lum32f *buf2,
                                Lum32f *buf3, Lum32f *buf4, Lum32f *buf5, int32_t roiX,
                                int32_t roiY, int32_t imgW, int32_t imgH, int32_t vertFlag,
                                int32_t pixelStride, int32_t channelCount);

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

/* Table fillers (piresset.cpp). */
LUMI_MEMBER void LUMI_T(ownpi_TableNN)(const LUMI_NS::ResizeAxis *axis, int32_t *ofs);
LUMI_MEMBER void LUMI_T(ownpi_TableLinearRows)(const LUMI_NS::ResizeAxis *axis, int32_t *ofs,
                                               Lum16u *frac);
LUMI_MEMBER void LUMI_T(ownpi_TableLinearCols)(const LUMI_NS::ResizeAxis *axis, int32_t *ofs,
                                               Lum16u *weights);
LUMI_MEMBER void LUMI_T(ownpi_TableCubic)(const LUMI_NS::ResizeAxis *axis, int32_t *ofs,
                                          Lum32f *frac);
LUMI_MEMBER void LUMI_T(ownpi_TableLanczos)(const LUMI_NS::ResizeAxis *axis, int32_t *ofs,
                                            Lum32f *frac, int32_t inLanes);

/* Nearest neighbour (piresnn.cpp). */
LUMI_MEMBER void LUMI_T(ownResize8plN)(const Lum8u *pSrc, Lum8u *pDst, int32_t dstStep,
                                       int32_t width, int32_t height, const int32_t *rowOfs,
                                       const int32_t *colOfs, int32_t pixelStride);
LUMI_MEMBER void LUMI_T(ownResize8pxN)(const Lum8u *pSrc, Lum8u *pDst, int32_t dstStep,
                                       int32_t width, int32_t height, const int32_t *rowOfs,
                                       const int32_t *colOfs, int32_t pixelStride);

/* Linear (pireslin.cpp). */
LUMI_MEMBER void LUMI_T(ownResize8plL)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                       int32_t dstStep, int32_t width, int32_t height,
                                       const int32_t *rowOfs, const int32_t *colOfs,
                                       const Lum16u *yFrac, const Lum16u *xWeights, Lum16u *bufA,
                                       Lum16u *bufB, int32_t pixelStride, int32_t channelCount);
LUMI_MEMBER void LUMI_T(ownResize8pxL)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                       int32_t dstStep, int32_t width, int32_t height,
                                       const int32_t *rowOfs, const int32_t *colOfs,
                                       const Lum16u *yFrac, const Lum16u *xWeights, Lum16u *bufA,
                                       Lum16u *bufB, int32_t pixelStride, int32_t channelCount);

/* Cubic (pirescub.cpp): the stages and the kernels. */
LUMI_MEMBER void LUMI_T(ownpi_CoefCubic8pl)(const Lum8u *src, int32_t width, const int32_t *colOfs,
                                            const Lum32f *xFrac, Lum32f *out);
LUMI_MEMBER void LUMI_T(ownpi_CoefCubic8px)(const Lum8u *src, int32_t width, int32_t pixelStride,
                                            const int32_t *colOfs, const Lum32f *xFrac,
                                            Lum32f *out);
LUMI_MEMBER void LUMI_T(ownpi_SummCubic8pl)(Lum8u *dst, int32_t count, const Lum32f *yFrac,
                                            const Lum32f *r0, const Lum32f *r1, const Lum32f *r2,
                                            const Lum32f *r3);
LUMI_MEMBER void LUMI_T(ownResize8plC)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                       int32_t dstStep, int32_t width, int32_t height,
                                       const int32_t *rowOfs, const int32_t *colOfs,
                                       const Lum32f *yFrac, const Lum32f *xFrac, Lum32f *buf0,
                                       Lum32f *buf1, Lum32f *buf2, Lum32f *buf3,
                                       int32_t pixelStride, int32_t channelCount);
LUMI_MEMBER void LUMI_T(ownResize8pxC)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                       int32_t dstStep, int32_t width, int32_t height,
                                       const int32_t *rowOfs, const int32_t *colOfs,
                                       const Lum32f *yFrac, const Lum32f *xFrac, Lum32f *buf0,
                                       Lum32f *buf1, Lum32f *buf2, Lum32f *buf3,
                                       int32_t pixelStride, int32_t channelCount);

/* Lanczos (pireslan.cpp): the weights of count fractions, six each, from
 * the kernel table, and the kernels. */
LUMI_MEMBER void LUMI_T(ownpi_Lanczos3)(const Lum32f *frac, int32_t count, Lum32f *weights,
                                        const Lum32f *table);
LUMI_MEMBER void LUMI_T(ownpi_RowLanczos8pl)(const Lum8u *src, const int32_t *colOfs,
                                             const Lum32f *xWeights, Lum32f *out, int32_t width,
                                             int32_t roiX, int32_t imgW);
LUMI_MEMBER void LUMI_T(ownpi_RowLanczos8px)(const Lum8u *src, int32_t pixelStride,
                                             const int32_t *colOfs, const Lum32f *xWeights,
                                             Lum32f *out, int32_t width, int32_t roiX,
                                             int32_t imgW);
LUMI_MEMBER void LUMI_T(ownResize8plLz3)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                         int32_t dstStep, int32_t width, int32_t height,
                                         const int32_t *rowOfs, const int32_t *colOfs,
                                         const Lum32f *yWeights, const Lum32f *xWeights,
                                         Lum32f *buf0, Lum32f *buf1, Lum32f *buf2, Lum32f *buf3,
                                         Lum32f *buf4, Lum32f *buf5, int32_t roiX, int32_t roiY,
                                         int32_t imgW, int32_t imgH, int32_t vertFlag,
                                         int32_t pixelStride, int32_t channelCount);
LUMI_MEMBER void LUMI_T(ownResize8pxLz3)(const Lum8u *pSrc, Lum8u *pDst, int32_t srcStep,
                                         int32_t dstStep, int32_t width, int32_t height,
                                         const int32_t *rowOfs, const int32_t *colOfs,
                                         const Lum32f *yWeights, const Lum32f *xWeights,
                                         Lum32f *buf0, Lum32f *buf1, Lum32f *buf2, Lum32f *buf3,
                                         Lum32f *buf4, Lum32f *buf5, int32_t roiX, int32_t roiY,
                                         int32_t imgW, int32_t imgH, int32_t vertFlag,
                                         int32_t pixelStride, int32_t channelCount);

/* The tables of kernels, by slot (piresize.cpp). */
LUMI_MEMBER const LUMI_NS::ResizeNNFn LUMI_T(ownResizeInterNN)[15];
LUMI_MEMBER const LUMI_NS::ResizeLinearFn LUMI_T(ownResizeInterLinear)[8];
LUMI_MEMBER const LUMI_NS::ResizeCubicFn LUMI_T(ownResizeInterCubic)[6];
LUMI_MEMBER const LUMI_NS::ResizeLanczosFn LUMI_T(ownResizeInterLanczos)[6];

#endif
