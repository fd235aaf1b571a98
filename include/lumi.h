/*
 * Lumi: image-processing primitives for x86-64 Linux.
 *
 * The one public header: every type, constant, status code and prototype of
 * what the library exports.  A host normally loads liblumi.so with dlopen,
 * resolves GetProcAddressForSo, and asks it by name for each primitive; the
 * prototypes below give the signature to cast the returned address to.
 */
#ifndef LUMI_H
#define LUMI_H

#include <stddef.h>
#include <stdint.h>

#if defined(LUMI_BUILDING_LIBRARY)
#define LUMI_API __attribute__((visibility("default")))
#else
#define LUMI_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------- types -- */

typedef uint8_t  Lum8u;
typedef uint16_t Lum16u;
typedef int16_t  Lum16s;
typedef int32_t  Lum32s;
typedef uint32_t Lum32u;
typedef int64_t  Lum64s;
typedef uint64_t Lum64u;
typedef float    Lum32f;
typedef double   Lum64f;

/* Every primitive returns a status: 0 success, negative error, positive warning. */
typedef int32_t LumStatus;

typedef struct { int32_t width; int32_t height; } LumiSize;
typedef struct { int32_t x; int32_t y; int32_t width; int32_t height; } LumiRect;
typedef struct { int32_t x; int32_t y; } LumiPoint;

/* Fixed small windows: a 32-bit selector with the width in the tens digit
 * and the height in the units.  A plain integer, not an enumeration type, so
 * that any value a host passes (and a primitive refuses) is a valid one. */
typedef int32_t LumiMaskSize;
enum {
    lumMaskSize1x3 = 13,
    lumMaskSize1x5 = 15,
    lumMaskSize3x1 = 31,
    lumMaskSize3x3 = 33,
    lumMaskSize5x1 = 51,
    lumMaskSize5x5 = 55
};

/* Interpolation selectors. */
enum {
    LUMI_INTER_NN = 1,
    LUMI_INTER_LINEAR = 2,
    LUMI_INTER_CUBIC = 4,
    LUMI_INTER_CATMULLROM = 6,
    LUMI_INTER_SUPER = 8,
    LUMI_INTER_LANCZOS = 16
};
#define LUMI_SMOOTH_EDGE ((int32_t)0x80000000u)

/* ------------------------------------------------------------- statuses -- */

enum {
    lumStsNoErr = 0,
    lumStsBadArgErr = -5,
    lumStsSizeErr = -6,
    lumStsNullPtrErr = -8,
    lumStsMemAllocErr = -9,
    lumStsStepErr = -14,
    lumStsContextMatchErr = -17,
    lumStsInterpolationErr = -22,
    lumStsResizeFactorErr = -23,
    lumStsMaskSizeErr = -33,
    lumStsAnchorErr = -34,
    lumStsDivisorErr = -51,
    lumStsCoeffErr = -56,
    lumStsRectErr = -57,
    lumStsQuadErr = -58,
    lumStsResizeEmptyErr = -201,
    lumStsBadFilterKindErr = -9999,
    lumStsForeignCpuWarn = 20,
    lumStsUnknownCpuCodeErr = 21,
    lumStsNoIntersectRoiWarn = 29,
    lumStsNoIntersectQuadWarn = 30,
    lumStsCpuNotSupportedErr = 36,
    lumStsCacheSizeUnknownWarn = 37
};

/* ------------------------------------------------------ version record -- */

typedef struct {
    int32_t major;
    int32_t minor;
    int32_t majorBuild;
    int32_t build;
    char targetCpu[4];
    const char *Name;
    const char *Version;
    const char *BuildDate;
} LumLibraryVersion;

/* What lum_get_processor_ident fills, field by field. */
typedef struct {
    int32_t family;
    int32_t stepping;
    int32_t model;
    int32_t type;
    uint32_t leaf1Edx;
    uint32_t leaf2Eax;
    uint32_t leaf2Edx;
    int32_t hasMmx;
    int32_t reserved; /* never written */
    int32_t hasSse;
    int32_t hasSse2;
    int32_t hasSmt;
    int32_t hasSse3;
    int32_t hasX64;
    int32_t hasSsse3;
    int32_t coresOnDie;
    int32_t hasSse41;
    int32_t hasSse42;
    int32_t extendedFamily;
    int32_t extendedModel;
    int32_t hasMovbe;
    int32_t hasAvxBit28;
    int32_t hasOsxsaveBit27;
} LumProcessorIdent;

/* Feature-word bits of lumGetCpuFeatures. */
#define LUM_CPU_MMX        0x1ull
#define LUM_CPU_SSE        0x2ull
#define LUM_CPU_SSE2       0x4ull
#define LUM_CPU_SSE3       0x8ull
#define LUM_CPU_SSSE3      0x10ull
#define LUM_CPU_MOVBE      0x20ull
#define LUM_CPU_SSE41      0x40ull
#define LUM_CPU_SSE42      0x80ull
#define LUM_CPU_AVX        0x100ull
#define LUM_CPU_AVX_OS     0x200ull
#define LUM_CPU_AES        0x400ull
#define LUM_CPU_CLMUL      0x800ull
#define LUM_CPU_EXT_0B     0x1000ull
#define LUM_CPU_RDRAND     0x2000ull
#define LUM_CPU_F16C       0x4000ull

/* Dispatch indices 1 to 5 (0 serves processors below the lowest tier and is
 * never forced), each with the processor code that lumInitCpu takes to force
 * it (enabling just the features of its tier), and the feature bits a
 * processor needs to run it:
 *   X(index, code, features, label) */
#define LUMI_DISPATCH_INDEX_LIST(X) \
    X(1, 0, LUM_CPU_SSE3, "SSE3") \
    X(2, 33, LUM_CPU_SSSE3, "SSSE3") \
    X(3, 36, LUM_CPU_SSSE3, "SSSE3 low-power") \
    X(4, 35, LUM_CPU_SSE41, "SSE4.1") \
    X(5, 70, LUM_CPU_AVX | LUM_CPU_AVX_OS, "AVX")
#define LUMI_DISPATCH_INDEX_COUNT 6

/* Instruction-set levels of the tiers. */
#define LUMI_LEVEL_SSE3 1
#define LUMI_LEVEL_SSSE3 2
#define LUMI_LEVEL_SSE41 3
#define LUMI_LEVEL_AVX 4

/* The tiers: the prefix of their members, the instruction-set level they are
 * built for (1 SSE3, 2 SSSE3, 3 SSE4.1, 4 AVX) and the lowest dispatch index
 * whose processor runs them.  Which tier serves which index is a per-primitive
 * row of the entry list (lumi_entries.def); n8 and u8 are two builds for the
 * same level that primitives pick between at indices 2 and 3.
 *   X(prefix, level, lowest index) */
#define LUMI_TIER_LIST(X) \
    X(m7, 1, 1) \
    X(n8, 2, 2) \
    X(u8, 2, 2) \
    X(y8, 3, 4) \
    X(e9, 4, 5)

/* ------------------------------------------------------- entry by name -- */

/* Address of the named primitive, or null for a name without a function. */
LUMI_API void *GetProcAddressForSo(const char *name);
LUMI_API void SetupLUMFunc(void);

/* The staging slots behind the entry table, one per row 2 to 69, declared
 * from the entry list (lumi_entries.def, beside this header). */
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name) extern LUMI_API void *gf_##name;
#define LUMI_ROW_ABSENT(name) extern LUMI_API void *gf_##name;
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) extern LUMI_API void *gf_##name;
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED

/* ------------------------------------------------ processor and tiers -- */

/* Dispatch index 0..5 read by every dispatcher, and the low-power flag. */
extern LUMI_API int32_t lumJumpIndexForMergedLibs;
extern LUMI_API int32_t lumJumpIndexForMergedLibsLP;

LUMI_API LumStatus lumStaticInit(void);
LUMI_API LumStatus lumInit(void);
LUMI_API LumStatus lumStaticInitCpu(int32_t code);
LUMI_API LumStatus lumInitCpu(int32_t code);
LUMI_API LumStatus lumGetCpuFeatures(Lum64u *pFeatures, Lum32u *pRegs);
LUMI_API Lum64u lumGetEnabledCpuFeatures(void);
LUMI_API LumStatus lumSetCpuFeaturesMask(Lum64u mask);
LUMI_API int lumIsCpuEnabled(int32_t code);
LUMI_API LumStatus lumEnableCpu(int32_t code);

LUMI_API int lum_has_cpuid(void);
LUMI_API int lum_max_cpuid_input(void);
LUMI_API int lum_is_avx_extension(void);
LUMI_API int lum_is_CorvaneChips(void);
LUMI_API int lum_has_rdtsc(void);
LUMI_API int lum_is_mmx_extension(void);
LUMI_API int lum_is_sse_extension(void);
LUMI_API int lum_is_sse2_extension(void);
LUMI_API int lum_is_smt_extension(void);
LUMI_API int lum_is_sse3_extension(void);
LUMI_API int lum_is_x64_extension(void);
LUMI_API int lum_is_ssse3_extension(void);
LUMI_API int lum_is_sse41_extension(void);
LUMI_API int lum_is_sse42_extension(void);
LUMI_API int lum_is_movbe(void);
LUMI_API int lum_get_cores_on_die(void);
LUMI_API int lum_get_processor_ident(LumProcessorIdent *pRecord);
LUMI_API Lum64u lum_get_processor_counter(void);

/* ------------------------------------------------------- core services -- */

/* The allocator vector: lumMalloc and lumFree go through i_malloc and i_free. */
extern LUMI_API void *(*i_malloc)(size_t size);
extern LUMI_API void *(*i_calloc)(size_t count, size_t size);
extern LUMI_API void *(*i_realloc)(void *ptr, size_t size);
extern LUMI_API void (*i_free)(void *ptr);
extern LUMI_API int32_t i_version;
extern LUMI_API int32_t i_min_version;

/* 32-byte-aligned blocks; null on failure or for a size below 1. */
LUMI_API void *lumMalloc(int32_t size);
LUMI_API void lumFree(void *ptr);
LUMI_API Lum8u *lumsMalloc_8u(int32_t len);
LUMI_API void lumsFree(void *ptr);
/* An image with rows padded to a multiple of 32 bytes; the step goes to *pStep. */
LUMI_API Lum8u *lumiMalloc_8u_C3(int32_t width, int32_t height, int32_t *pStep);
LUMI_API void lumiFree(void *ptr);

/* The version record of the tier in force. */
LUMI_API const LumLibraryVersion *lumiGetLibVersion(void);
/* The largest cache of the processor, in bytes. */
LUMI_API LumStatus lumGetMaxCacheSizeB(int32_t *pSize);

/* -------------------------------------------------------- plane copies -- */

/* Interleaved three-channel image to three planes and back: plane c holds
   byte c of every pixel.  The planes share one step. */
LUMI_API LumStatus lumiCopy_8u_C3P3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *const pDst[3],
                                     int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiCopy_8u_P3C3R(const Lum8u *const pSrc[3], int32_t srcStep, Lum8u *pDst,
                                     int32_t dstStep, LumiSize roiSize);

/* ------------------------------------------------- colour: RGB and YUV -- */

/* RGB <-> YUV with the analogue weights, fixed point.  The body of a row (its
 * width rounded down to 16 pixels for RGBToYUV C3R and YUVToRGB P3C3R, to 8 for
 * the other two) and the pixels after it use different arithmetic.  Planes are
 * Y, U, V (or R, G, B) in that order and share one step. */
LUMI_API LumStatus lumiRGBToYUV_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                       int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiRGBToYUV_8u_C3P3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *const pDst[3],
                                         int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiYUVToRGB_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                       int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiYUVToRGB_8u_P3C3R(const Lum8u *const pSrc[3], int32_t srcStep, Lum8u *pDst,
                                         int32_t dstStep, LumiSize roiSize);

/* ------------------------------------------------- colour: RGB and HLS -- */

/* RGB <-> hue, lightness, saturation, computed in float.  Integer forms map
 * the type's range onto 0..1 (16s biased by 32768) and hue's 360 degrees onto
 * the full range; 32f keeps 0..1 and clamps nothing.  The body of a row (8
 * pixels a round for 8u, 4 otherwise) uses the processor's reciprocal
 * estimate and the pixels after it a refined one, and the tiers convert to
 * integers in different modes (see README).  Steps are in bytes. */
LUMI_API LumStatus lumiRGBToHLS_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                       int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiRGBToHLS_16u_C3R(const Lum16u *pSrc, int32_t srcStep, Lum16u *pDst,
                                        int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiRGBToHLS_16s_C3R(const Lum16s *pSrc, int32_t srcStep, Lum16s *pDst,
                                        int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiRGBToHLS_32f_C3R(const Lum32f *pSrc, int32_t srcStep, Lum32f *pDst,
                                        int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiHLSToRGB_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                       int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiHLSToRGB_16u_C3R(const Lum16u *pSrc, int32_t srcStep, Lum16u *pDst,
                                        int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiHLSToRGB_16s_C3R(const Lum16s *pSrc, int32_t srcStep, Lum16s *pDst,
                                        int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiHLSToRGB_32f_C3R(const Lum32f *pSrc, int32_t srcStep, Lum32f *pDst,
                                        int32_t dstStep, LumiSize roiSize);
/* Planes: the source of BGRToHLS holds B, G, R and its destination H, L, S;
 * HLSToBGR the other way round.  Each side's planes share one step, which
 * must be at least 1. */
LUMI_API LumStatus lumiBGRToHLS_8u_P3R(const Lum8u *const pSrc[3], int32_t srcStep,
                                       Lum8u *const pDst[3], int32_t dstStep, LumiSize roiSize);
LUMI_API LumStatus lumiHLSToBGR_8u_P3R(const Lum8u *const pSrc[3], int32_t srcStep,
                                       Lum8u *const pDst[3], int32_t dstStep, LumiSize roiSize);

/* -------------------------------------------------------- filters: box -- */

/* Mean of a maskSize window whose cell `anchor` lies over each output pixel;
 * pSrc is the pixel under the first output pixel and the caller supplies the
 * whole footprint.  The rounding of the mean depends on the mask (see README). */
LUMI_API LumStatus lumiFilterBox_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize roiSize, LumiSize maskSize,
                                        LumiPoint anchor);
LUMI_API LumStatus lumiFilterBox_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize roiSize, LumiSize maskSize,
                                        LumiPoint anchor);
LUMI_API LumStatus lumiFilterBox_8u_C1IR(Lum8u *pSrcDst, int32_t srcDstStep, LumiSize roiSize,
                                         LumiSize maskSize, LumiPoint anchor);
LUMI_API LumStatus lumiFilterBox_8u_C3IR(Lum8u *pSrcDst, int32_t srcDstStep, LumiSize roiSize,
                                         LumiSize maskSize, LumiPoint anchor);

/* ----------------------------------------------------- filters: median -- */

/* Exact median of a window of odd sides, per channel; the window is placed
 * as for the box filter. */
LUMI_API LumStatus lumiFilterMedian_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                           int32_t dstStep, LumiSize dstRoiSize,
                                           LumiSize maskSize, LumiPoint anchor);
LUMI_API LumStatus lumiFilterMedian_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                           int32_t dstStep, LumiSize dstRoiSize,
                                           LumiSize maskSize, LumiPoint anchor);

/* Vector median: each output pixel is the pixel of its window, centred on
 * it (lumMaskSize3x3 or lumMaskSize5x5), whose summed distance
 * |r - r'| + |g - g'| + |b - b'| to the other pixels of the window is
 * smallest; on a tie the first such pixel in row-major order.  The caller
 * supplies one (3x3) or two (5x5) pixels around the region. */
LUMI_API LumStatus lumiFilterMedianColor_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                                int32_t dstStep, LumiSize dstRoiSize,
                                                LumiMaskSize mask);

/* ------------------------------------------------ filters: convolution -- */

/* Convolution with a mirrored kernel: cell `anchor` lies over each output
 * pixel and the window reaches kernelSize - 1 - anchor pixels up and left of
 * it (the anchor is not checked).  pSrc is the pixel under the first output
 * pixel and the caller supplies the footprint.  The integer form divides the
 * 32-bit sum by `divisor` with rounding to nearest even (a divisor that is
 * not a power of two acts as a single-precision reciprocal); the float form
 * rounds per engine (see README). */
LUMI_API LumStatus lumiFilter_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                     int32_t dstStep, LumiSize dstRoiSize, const Lum32s *pKernel,
                                     LumiSize kernelSize, LumiPoint anchor, int32_t divisor);
LUMI_API LumStatus lumiFilter_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                     int32_t dstStep, LumiSize dstRoiSize, const Lum32s *pKernel,
                                     LumiSize kernelSize, LumiPoint anchor, int32_t divisor);
LUMI_API LumStatus lumiFilter32f_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize dstRoiSize,
                                        const Lum32f *pKernel, LumiSize kernelSize,
                                        LumiPoint anchor);
LUMI_API LumStatus lumiFilter32f_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize dstRoiSize,
                                        const Lum32f *pKernel, LumiSize kernelSize,
                                        LumiPoint anchor);

/* ------------------------------ filters: Gaussian, min, max, bilateral -- */

/* Gaussian smoothing with a fixed integer kernel centred on each pixel:
 * lumMaskSize3x3 ([1 2 1] each way, sum 16) or lumMaskSize5x5 (sum 571).  The
 * caller supplies one (3x3) or two (5x5) pixels around the region.  The 5x5
 * form may change the thread's rounding mode during the call; it is restored
 * before return. */
LUMI_API LumStatus lumiFilterGauss_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                          int32_t dstStep, LumiSize roiSize, LumiMaskSize mask);
LUMI_API LumStatus lumiFilterGauss_8u_C3R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                          int32_t dstStep, LumiSize roiSize, LumiMaskSize mask);

/* Smallest / largest value of a maskSize window whose cell `anchor` lies
 * over each output pixel, placed as for the box filter. */
LUMI_API LumStatus lumiFilterMin_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize roiSize, LumiSize maskSize,
                                        LumiPoint anchor);
LUMI_API LumStatus lumiFilterMax_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize roiSize, LumiSize maskSize,
                                        LumiPoint anchor);

/* Bilateral smoothing of a grey picture that keeps edges: each output pixel
 * is the mean of a window centred on it (every stepInKernel-th pixel out to
 * kernelSize / 2 each way), each sample weighed by how close its value is to
 * the centre's (valueSigma2) and by its square ring's distance
 * (positionSigma2).  GetBufSize gives the bytes of the state block the
 * caller allocates, Init builds the weight tables in it (the block must not
 * move afterwards), and the filter runs with it; one block serves one call
 * at a time.  Kinds: lumiFilterBilateralGauss (14-bit weights on the six
 * small square windows) and lumiFilterBilateralGaussFast (4-bit weights);
 * other windows, and regions under 16 pixels wide, are filtered in float
 * (see README). */
enum {
    lumiFilterBilateralGauss = 100,
    lumiFilterBilateralGaussFast = 101
};
LUMI_API LumStatus lumiFilterBilateralGetBufSize_8u_C1R(int32_t filter, LumiSize dstRoiSize,
                                                        LumiSize kernelSize, int32_t *pBufferSize);
LUMI_API LumStatus lumiFilterBilateralInit_8u_C1R(int32_t filter, LumiSize kernelSize,
                                                  Lum32f valueSigma2, Lum32f positionSigma2,
                                                  int32_t stepInKernel, Lum8u *pBuffer);
LUMI_API LumStatus lumiFilterBilateral_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                              int32_t dstStep, LumiSize dstRoiSize,
                                              LumiSize kernelSize, Lum8u *pBuffer);

/* -------------------------------------------------------------- resize -- */

/* Scales the region srcRoi of the image (pSrc, srcSize, srcStep; pSrc is the
 * image's first pixel, not the region's) by xFactor, yFactor into pDst.  The
 * output is the scaled region, truncated, at most dstRoiSize; destination
 * pixels beyond it are left alone.  interpolation: LUMI_INTER_NN,
 * LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_LANCZOS, or
 * LUMI_INTER_SUPER with both factors at most 1.0. */
LUMI_API LumStatus lumiResize_8u_C1R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                     LumiRect srcRoi, Lum8u *pDst, int32_t dstStep,
                                     LumiSize dstRoiSize, double xFactor, double yFactor,
                                     int32_t interpolation);
LUMI_API LumStatus lumiResize_8u_C3R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                     LumiRect srcRoi, Lum8u *pDst, int32_t dstStep,
                                     LumiSize dstRoiSize, double xFactor, double yFactor,
                                     int32_t interpolation);

/* ------------------------------------------ geometry: remap and rotate -- */

/* Fills the destination region (pDst, dstStep, dstRoiSize) by sampling the
 * source at the coordinates held in two float maps of dstRoiSize: map
 * element (c, r) holds the source position of destination pixel (c, r),
 * absolute from pSrc (the image's first pixel), with pixel centres on whole
 * numbers.  A position outside the region srcRoi leaves its destination
 * pixel as it was; interpolation reads neighbours anywhere in the image.
 * interpolation: LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC,
 * LUMI_INTER_CATMULLROM or LUMI_INTER_LANCZOS, lowered for sources under
 * 6 pixels a side; LUMI_SMOOTH_EDGE added blends a one-pixel band around
 * the region with what the destination holds. */
LUMI_API LumStatus lumiRemap_8u_C1R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                    LumiRect srcRoi, const Lum32f *pxMap, int32_t xMapStep,
                                    const Lum32f *pyMap, int32_t yMapStep, Lum8u *pDst,
                                    int32_t dstStep, LumiSize dstRoiSize, int32_t interpolation);
LUMI_API LumStatus lumiRemap_8u_C3R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                    LumiRect srcRoi, const Lum32f *pxMap, int32_t xMapStep,
                                    const Lum32f *pyMap, int32_t yMapStep, Lum8u *pDst,
                                    int32_t dstStep, LumiSize dstRoiSize, int32_t interpolation);

/* Turns the region srcRoi of the source (pSrc, the image's first pixel) by
 * angle degrees about the origin, counter-clockwise on screen with y
 * growing down: x' = cos a x + sin a y + xShift, y' = -sin a x + cos a y +
 * yShift, and writes the pixels of dstRoi (in the image pDst) whose centres
 * fall inside the turned region; the others are left as they were.  A turn
 * of 90, 180 or 270 degrees with whole shifts is an exact copy and takes any
 * selector and step.  Otherwise interpolation is LUMI_INTER_NN,
 * LUMI_INTER_LINEAR, LUMI_INTER_CUBIC or LUMI_INTER_CATMULLROM, and
 * LUMI_SMOOTH_EDGE added blends the pixels just outside the slanted sides.
 * A region that misses dstRoi gives lumStsNoIntersectRoiWarn (exact turns)
 * or lumStsNoIntersectQuadWarn; singular coefficients or a region under 2x2
 * give lumStsCoeffErr. */
LUMI_API LumStatus lumiRotate_8u_C1R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                     LumiRect srcRoi, Lum8u *pDst, int32_t dstStep, LumiRect dstRoi,
                                     double angle, double xShift, double yShift,
                                     int32_t interpolation);
LUMI_API LumStatus lumiRotate_8u_C3R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                     LumiRect srcRoi, Lum8u *pDst, int32_t dstStep, LumiRect dstRoi,
                                     double angle, double xShift, double yShift,
                                     int32_t interpolation);
LUMI_API LumStatus lumiRotate_8u_C4R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                     LumiRect srcRoi, Lum8u *pDst, int32_t dstStep, LumiRect dstRoi,
                                     double angle, double xShift, double yShift,
                                     int32_t interpolation);
/* As lumiRotate_8u_*, about the point (xCenter, yCenter), which stays in
 * place (the shift comes from lumiGetRotateShift). */
LUMI_API LumStatus lumiRotateCenter_8u_C1R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                           LumiRect srcRoi, Lum8u *pDst, int32_t dstStep,
                                           LumiRect dstRoi, double angle, double xCenter,
                                           double yCenter, int32_t interpolation);
LUMI_API LumStatus lumiRotateCenter_8u_C3R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                           LumiRect srcRoi, Lum8u *pDst, int32_t dstStep,
                                           LumiRect dstRoi, double angle, double xCenter,
                                           double yCenter, int32_t interpolation);
LUMI_API LumStatus lumiRotateCenter_8u_C4R(const Lum8u *pSrc, LumiSize srcSize, int32_t srcStep,
                                           LumiRect srcRoi, Lum8u *pDst, int32_t dstStep,
                                           LumiRect dstRoi, double angle, double xCenter,
                                           double yCenter, int32_t interpolation);
/* The shift under which a turn by angle keeps (xCenter, yCenter) in place;
 * exact for quarter turns. */
LUMI_API LumStatus lumiGetRotateShift(double xCenter, double yCenter, double angle,
                                      double *pxShift, double *pyShift);

#ifdef __cplusplus
}
#endif

#endif /* LUMI_H */
