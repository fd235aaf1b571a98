/*
 * Nearest-neighbour resize kernels.
 *
 * Each output pixel copies the source pixel whose offsets the tables give:
 * the row offset in bytes from the region's top left pixel and the column
 * offset in elements.  There is no arithmetic, so every tier gives the same
 * bytes and shares this one routine.
 *
 * Three things keep it fast.  An output row whose source row is the one of the
 * row before (every upscale repeats rows) is a copy of the row just written,
 * which is a straight memory copy instead of a gather; it is taken only when
 * destination rows do not overlap (the step's size is taken in 64 bits, as the
 * most negative step has no 32-bit negation).  The three-channel gather moves each pixel
 * with one 4-byte load and store, the fourth byte being overwritten by the
 * next pixel; pixels from the last source column used on the row take the
 * 3-byte move, so no read goes past a byte the row needs anyway and no write
 * past the row's end.  In tiers with a byte shuffle, the one-channel gather
 * takes sixteen pixels from two 16-byte loads when each half of the group
 * lies within 16 bytes of its first pixel (true for any factor above about
 * one half); the loads end at or before the last byte the row reads anyway.
 */
#include "tier.h"

#include <emmintrin.h>
#include <string.h>
#if LUMI_HAS_SSSE3
#include <tmmintrin.h>
#endif

#include "piresize.h"

namespace LUMI_NS {
namespace {

/* The number of leading pixels, in whole groups of sixteen, that the
 * shuffle gather may take; the same for every row. */
int32_t shuffle_groups_c1(int32_t width, const int32_t *colOfs)
{
#if LUMI_HAS_SSSE3
    const int32_t lastByte = colOfs[width - 1];
    int32_t j = 0;
    while (j + 16 <= width && colOfs[j + 7] - colOfs[j] <= 15 &&
           colOfs[j + 15] - colOfs[j + 8] <= 15 && colOfs[j + 8] + 15 <= lastByte &&
           colOfs[j] + 15 <= lastByte)
        j += 16;
    return j;
#else
    (void)width, (void)colOfs;
    return 0;
#endif
}

/* Sixteen pixels: each half shuffled out of 16 bytes from its first pixel. */
inline void gather16_c1(const Lum8u *s, Lum8u *d, const int32_t *c)
{
#if LUMI_HAS_SSSE3
    const __m128i b0 = _mm_set1_epi32(c[0]), b1 = _mm_set1_epi32(c[8]);
    const __m128i *o = (const __m128i *)c;
    const __m128i d0 = _mm_packs_epi32(_mm_sub_epi32(_mm_loadu_si128(o), b0),
                                       _mm_sub_epi32(_mm_loadu_si128(o + 1), b0));
    const __m128i d1 = _mm_packs_epi32(_mm_sub_epi32(_mm_loadu_si128(o + 2), b1),
                                       _mm_sub_epi32(_mm_loadu_si128(o + 3), b1));
    const __m128i mask = _mm_packus_epi16(d0, d1);
    const __m128i lo = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)(s + c[0])), mask);
    const __m128i hi = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)(s + c[8])), mask);
    const __m128i v = _mm_castpd_si128(_mm_move_sd(_mm_castsi128_pd(hi), _mm_castsi128_pd(lo)));
    _mm_storeu_si128((__m128i *)d, v);
#else
    (void)s, (void)d, (void)c;
#endif
}

void gather_row_c1(const Lum8u *s, Lum8u *d, int32_t width, const int32_t *colOfs,
                   int32_t shuffled)
{
    int32_t j = 0;
    for (; j < shuffled; j += 16)
        gather16_c1(s, d + j, colOfs + j);
    for (; j + 4 <= width; j += 4) {
        const Lum8u a = s[colOfs[j]], b = s[colOfs[j + 1]];
        const Lum8u c = s[colOfs[j + 2]], e = s[colOfs[j + 3]];
        d[j] = a;
        d[j + 1] = b;
        d[j + 2] = c;
        d[j + 3] = e;
    }
    for (; j < width; ++j)
        d[j] = s[colOfs[j]];
}

/* wide: the number of leading pixels that may use the 4-byte move. */
void gather_row_c3(const Lum8u *s, Lum8u *d, int32_t width, const int32_t *colOfs,
                   int32_t pixelStride, int32_t wide)
{
    int32_t j = 0;
    for (; j < wide; ++j) {
        uint32_t v;
        memcpy(&v, s + colOfs[j], 4);
        memcpy(d, &v, 4);
        d += pixelStride;
    }
    for (; j < width; ++j) {
        const Lum8u *p = s + colOfs[j];
        d[0] = p[0];
        d[1] = p[1];
        d[2] = p[2];
        d += pixelStride;
    }
}

/* Walks the rows; a row with the source row of the one before is copied from
 * the destination row just written. */
template <typename Gather>
void walk_rows(const ResizeFrame &f, int32_t rowBytes, Gather gather)
{
    const int32_t dstStep = f.dstStep;
    // The step's magnitude in 64 bits: the most negative step has no 32-bit negation.
    const int64_t stepSize = dstStep < 0 ? -(int64_t)dstStep : (int64_t)dstStep;
    const bool copyRows = stepSize >= rowBytes;
    Lum8u *d = f.dst;
    for (int32_t i = 0; i < f.height; ++i, d += dstStep) {
        if (copyRows && i > 0 && f.rowOfs[i] == f.rowOfs[i - 1])
            memcpy(d, d - dstStep, (size_t)rowBytes);
        else
            gather(f.src + f.rowOfs[i], d);
    }
}

} // namespace
} // namespace LUMI_NS

using namespace LUMI_NS;

LUMI_MEMBER void LUMI_T(ownResize8plN)(const ResizeNNArgs *args)
{
    const ResizeFrame &f = args->frame;
    const int32_t width = f.width;
    const int32_t *colOfs = f.colOfs;
    const int32_t shuffled = shuffle_groups_c1(width, colOfs);
    walk_rows(f, width, [=](const Lum8u *s, Lum8u *d) {
        gather_row_c1(s, d, width, colOfs, shuffled);
    });
}

LUMI_MEMBER void LUMI_T(ownResize8pxN)(const ResizeNNArgs *args)
{
    const ResizeFrame &f = args->frame;
    const int32_t width = f.width, pixelStride = f.pixelStride;
    const int32_t *colOfs = f.colOfs;
    /* Pixels before the first one taken from the last column used read their
     * fourth byte from inside that column. */
    int32_t wide = 0;
    if (pixelStride >= 3) {
        const int32_t lastOfs = colOfs[width - 1];
        while (wide < width - 1 && colOfs[wide] + 3 <= lastOfs)
            ++wide;
    }
    walk_rows(f, (width - 1) * pixelStride + 3, [=](const Lum8u *s, Lum8u *d) {
        gather_row_c3(s, d, width, colOfs, pixelStride, wide);
    });
}
