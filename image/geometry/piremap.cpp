/*
 * Remap: the public bodies of every element type and layout, their checks,
 * and the two tables of kernels.
 *
 * Checks, first failure returned: a null image or map pointer (for planar
 * forms, the arrays only); a source size, region origin or size, or
 * destination size out of range; a selector other than 1, 2, 4, 6, 16 (bit
 * 31, the soft edge, masked off); a step not positive (only the sign is
 * tested); a region origin outside the image (warning, nothing written).
 * Then the region is cut to the image, and the selector is lowered by the
 * size of the whole source: under 6 a side Lanczos becomes cubic, under 4
 * cubic and Catmull-Rom become linear, and a side of 1 makes anything
 * nearest neighbour.  Only then are planar forms' plane pointers tested, so a
 * bad selector or a region outside the image is reported first.
 *
 * The entry is found in the plain or the soft-edge table, 30 rows of five
 * columns (NN, L, C, CR, L3), by the member's row and the selector's column.
 * Both tables of a tier are built from one list of rows below.
 */
#include "checks.h"
#include "piremap.h"

namespace LUMI_NS {
namespace {

/* Rows in table order: the type, its nearest-neighbour element (moved, not
 * computed), the layout. */
#define LUMI_REMAP_ROWS(X)                                                                        \
    X(Lum8u, Lum8u, kRemapC1) X(Lum8u, Lum8u, kRemapC3) X(Lum8u, Lum8u, kRemapAC4)                 \
    X(Lum8u, Lum8u, kRemapP3) X(Lum32f, Lum32u, kRemapC1) X(Lum32f, Lum32u, kRemapC3)              \
    X(Lum32f, Lum32u, kRemapAC4) X(Lum32f, Lum32u, kRemapP3) X(Lum8u, Lum8u, kRemapC4)             \
    X(Lum8u, Lum8u, kRemapP4) X(Lum32f, Lum32u, kRemapC4) X(Lum32f, Lum32u, kRemapP4)              \
    X(Lum16u, Lum16u, kRemapC1) X(Lum16u, Lum16u, kRemapC3) X(Lum16u, Lum16u, kRemapAC4)           \
    X(Lum16u, Lum16u, kRemapP3) X(Lum16u, Lum16u, kRemapC4) X(Lum16u, Lum16u, kRemapP4)            \
    X(Lum64f, Lum64u, kRemapC1) X(Lum64f, Lum64u, kRemapC3) X(Lum64f, Lum64u, kRemapAC4)           \
    X(Lum64f, Lum64u, kRemapP3) X(Lum64f, Lum64u, kRemapC4) X(Lum64f, Lum64u, kRemapP4)            \
    X(Lum16s, Lum16u, kRemapC1) X(Lum16s, Lum16u, kRemapC3) X(Lum16s, Lum16u, kRemapAC4)           \
    X(Lum16s, Lum16u, kRemapP3) X(Lum16s, Lum16u, kRemapC4) X(Lum16s, Lum16u, kRemapP4)

enum RemapRow {
    kRow8uC1, kRow8uC3, kRow8uAC4, kRow8uP3, kRow32fC1, kRow32fC3, kRow32fAC4, kRow32fP3,
    kRow8uC4, kRow8uP4, kRow32fC4, kRow32fP4, kRow16uC1, kRow16uC3, kRow16uAC4, kRow16uP3,
    kRow16uC4, kRow16uP4, kRow64fC1, kRow64fC3, kRow64fAC4, kRow64fP3, kRow64fC4, kRow64fP4,
    kRow16sC1, kRow16sC3, kRow16sAC4, kRow16sP3, kRow16sC4, kRow16sP4
};

#define LUMI_REMAP_PLAIN_ROW_(T, E, L)                                                             \
    &remap_entry<RemapNN, E, L, false>, &remap_entry<RemapLin, T, L, false>,                       \
        &remap_entry<RemapCub, T, L, false>, &remap_entry<RemapCR, T, L, false>,                   \
        &remap_entry<RemapL3, T, L, false>,
#define LUMI_REMAP_SOFT_ROW_(T, E, L)                                                              \
    &remap_entry<RemapNN, T, L, true>, &remap_entry<RemapLin, T, L, true>,                         \
        &remap_entry<RemapCub, T, L, true>, &remap_entry<RemapCR, T, L, true>,                     \
        &remap_entry<RemapL3, T, L, true>,

RemapFn *const ownpi_RemapFunc[150] = {LUMI_REMAP_ROWS(LUMI_REMAP_PLAIN_ROW_)};
RemapFn *const ownpi_RemapSFunc[150] = {LUMI_REMAP_ROWS(LUMI_REMAP_SOFT_ROW_)};

/* Column of a selector code, or -1 for a code remap does not take. */
int selector_column(int32_t code)
{
    switch (code) {
    case LUMI_INTER_NN: return 0;
    case LUMI_INTER_LINEAR: return 1;
    case LUMI_INTER_CUBIC: return 2;
    case LUMI_INTER_CATMULLROM: return 3;
    case LUMI_INTER_LANCZOS: return 4;
    default: return -1;
    }
}

/* The selector that a source of this size can carry. */
int32_t lowered_selector(int32_t code, LumiSize src)
{
    const int32_t side = src.width < src.height ? src.width : src.height;
    if (side < 6 && code == LUMI_INTER_LANCZOS)
        code = LUMI_INTER_CUBIC;
    if (side < 4 && (code == LUMI_INTER_CUBIC || code == LUMI_INTER_CATMULLROM))
        code = LUMI_INTER_LINEAR;
    if (side == 1)
        code = LUMI_INTER_NN;
    return code;
}

/* planes: 0 for interleaved forms, else the count of plane pointers. */
LumStatus remap(int row, int planes, const void *pSrc, LumiSize srcSize, int32_t srcStep,
                LumiRect srcRoi, const void *pxMap, int32_t xMapStep, const void *pyMap,
                int32_t yMapStep, void *pDst, int32_t dstStep, LumiSize dstRoiSize,
                int32_t interpolation)
{
    if (any_null(pSrc, pDst, pxMap, pyMap))
        return lumStsNullPtrErr;
    if (!size_positive(srcSize) || !rect_valid(srcRoi) || !size_positive(dstRoiSize))
        return lumStsSizeErr;
    const bool soft = (interpolation & LUMI_SMOOTH_EDGE) != 0;
    const int32_t code = selector_code(interpolation);
    if (selector_column(code) < 0)
        return lumStsInterpolationErr;
    if (!steps_at_least(1, srcStep, dstStep, xMapStep, yMapStep))
        return lumStsStepErr;
    if (!rect_starts_inside(srcRoi, srcSize))
        return lumStsNoIntersectRoiWarn;
    const int32_t roiW = srcRoi.width < srcSize.width - srcRoi.x ? srcRoi.width : srcSize.width - srcRoi.x;
    const int32_t roiH = srcRoi.height < srcSize.height - srcRoi.y ? srcRoi.height : srcSize.height - srcRoi.y;
    const int column = selector_column(lowered_selector(code, srcSize));
    if (any_null_planes(pSrc, planes) || any_null_planes(pDst, planes))
        return lumStsNullPtrErr;

    RemapArgs a;
    a.src = pSrc, a.srcStep = srcStep, a.dst = pDst, a.dstStep = dstStep;
    a.xMap = pxMap, a.xMapStep = xMapStep, a.yMap = pyMap, a.yMapStep = yMapStep;
    a.width = dstRoiSize.width, a.height = dstRoiSize.height;
    a.xMin = srcRoi.x, a.yMin = srcRoi.y;
    a.xMax = srcRoi.x + roiW - 1, a.yMax = srcRoi.y + roiH - 1;
    a.wMax = srcSize.width - 1, a.hMax = srcSize.height - 1;
    (soft ? ownpi_RemapSFunc : ownpi_RemapFunc)[row * 5 + column](a);
    return lumStsNoErr;
}

} // namespace
} // namespace LUMI_NS

/* The public forms: one body, told its table row and plane count. */
#define LUMI_REMAP_MEMBER_(t, lay, T, M, row, planes)                                              \
    LUMI_MEMBER LumStatus LUMI_T(lumiRemap_##t##_##lay##R)(                                        \
        const T *pSrc, LumiSize srcSize, int32_t srcStep, LumiRect srcRoi, const M *pxMap,         \
        int32_t xMapStep, const M *pyMap, int32_t yMapStep, T *pDst, int32_t dstStep,              \
        LumiSize dstRoiSize, int32_t interpolation)                                                \
    {                                                                                              \
        return LUMI_NS::remap(LUMI_NS::row, planes, pSrc, srcSize, srcStep, srcRoi, pxMap,         \
                              xMapStep, pyMap, yMapStep, pDst, dstStep, dstRoiSize,                \
                              interpolation);                                                      \
    }
#define LUMI_REMAP_PLANAR_MEMBER_(t, lay, T, M, row, planes)                                       \
    LUMI_MEMBER LumStatus LUMI_T(lumiRemap_##t##_##lay##R)(                                        \
        const T *const pSrc[], LumiSize srcSize, int32_t srcStep, LumiRect srcRoi,                 \
        const M *pxMap, int32_t xMapStep, const M *pyMap, int32_t yMapStep, T *const pDst[],       \
        int32_t dstStep, LumiSize dstRoiSize, int32_t interpolation)                               \
    {                                                                                              \
        return LUMI_NS::remap(LUMI_NS::row, planes, pSrc, srcSize, srcStep, srcRoi, pxMap,         \
                              xMapStep, pyMap, yMapStep, (void *)pDst, dstStep, dstRoiSize,                \
                              interpolation);                                                      \
    }
#define LUMI_REMAP_TYPE_(t, T, M)                                                                  \
    LUMI_REMAP_MEMBER_(t, C1, T, M, kRow##t##C1, 0)                                                \
    LUMI_REMAP_MEMBER_(t, C3, T, M, kRow##t##C3, 0)                                                \
    LUMI_REMAP_MEMBER_(t, C4, T, M, kRow##t##C4, 0)                                                \
    LUMI_REMAP_MEMBER_(t, AC4, T, M, kRow##t##AC4, 0)                                              \
    LUMI_REMAP_PLANAR_MEMBER_(t, P3, T, M, kRow##t##P3, 3)                                         \
    LUMI_REMAP_PLANAR_MEMBER_(t, P4, T, M, kRow##t##P4, 4)

LUMI_REMAP_TYPE_(8u, Lum8u, Lum32f)
LUMI_REMAP_TYPE_(16u, Lum16u, Lum32f)
LUMI_REMAP_TYPE_(16s, Lum16s, Lum32f)
LUMI_REMAP_TYPE_(32f, Lum32f, Lum32f)
LUMI_REMAP_TYPE_(64f, Lum64f, Lum64f)
