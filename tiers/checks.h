/*
 * Argument checks shared by the families of a tier.
 *
 * Each test answers one question about the arguments and says nothing about
 * the status: a family writes its own checks out at its entry, in its own
 * order, with its own status for each, so the order stays visible there:
 *
 *     if (any_null(pSrc, pDst))
 *         return lumStsNullPtrErr;
 *     if (!steps_at_least(1, srcStep, dstStep))
 *         return lumStsStepErr;
 *     if (!size_positive(roiSize))
 *         return lumStsSizeErr;
 *
 * The second group bounds what the library can address.  Steps, row lengths
 * and element counts are signed 32-bit numbers everywhere, and so is every
 * allocation (lumMalloc takes a 32-bit byte count).  A region whose row of
 * bytes, a footprint whose rows or columns, or a mask whose cell count would
 * not fit in 32 bits cannot be described to the kernels; families refuse it
 * after their ordinary checks, with their status for a bad size or mask.
 * Working-memory counts are formed in 64 bits and go through alloc_count,
 * which turns a count beyond 32 bits into 0, which every allocator refuses
 * with null; the family then reports a failed allocation.
 */
#ifndef LUMI_CHECKS_H
#define LUMI_CHECKS_H

#include "tier.h"

namespace LUMI_NS {

/* ------------------------------------------------------------ arguments */

/* True when any of the pointers is null. */
template <typename... P>
inline bool any_null(const P *...p)
{
    return (... || (p == nullptr));
}

/* True when a plane array, or any of its three planes, is null. */
template <typename T>
inline bool any_null_plane(const T *const *planes)
{
    return !planes || !planes[0] || !planes[1] || !planes[2];
}

/* Both sides of a size at least 1. */
inline bool size_positive(LumiSize s) { return s.width >= 1 && s.height >= 1; }

/* A vector length of at least 1. */
inline bool len_positive(int32_t len) { return len >= 1; }

/* Every step at least `least` bytes. */
template <typename... S>
inline bool steps_at_least(int32_t least, S... steps)
{
    return (... && (steps >= least));
}

/* A mask of at least one cell each way. */
inline bool mask_positive(LumiSize m) { return m.width >= 1 && m.height >= 1; }

/* A mask whose sides are both odd (it has a centre cell). */
inline bool mask_odd(LumiSize m) { return (m.width & 1) && (m.height & 1); }

/* An anchor that names a cell of the mask. */
inline bool anchor_inside(LumiPoint a, LumiSize m)
{
    return a.x >= 0 && a.y >= 0 && a.x < m.width && a.y < m.height;
}

/* One of the two fixed square windows, 3 by 3 or 5 by 5. */
inline bool mask_3x3_or_5x5(LumiMaskSize m) { return m == lumMaskSize3x3 || m == lumMaskSize5x5; }

/* True when any of the first `count` pointers of a plane array is null;
 * the array itself has been tested already. */
inline bool any_null_planes(const void *planes, int count)
{
    for (int i = 0; i < count; ++i)
        if (!((const void *const *)planes)[i])
            return true;
    return false;
}

/* A region whose origin is at 0 or beyond and whose sides are at least 1. */
inline bool rect_valid(LumiRect r) { return r.x >= 0 && r.y >= 0 && r.width >= 1 && r.height >= 1; }

/* A region whose first pixel lies inside an image of this size (the region
 * may reach past the image's edge; callers cut it). */
inline bool rect_starts_inside(LumiRect r, LumiSize image)
{
    return r.x < image.width && r.y < image.height;
}

/* Source rows long enough for a footprint row, roi + mask - 1 pixels of
 * `channels` bytes, and destination rows for the region's row. */
inline bool steps_hold_footprint(int32_t srcStep, int32_t dstStep, LumiSize roi, LumiSize mask,
                                 int channels)
{
    return (int64_t)srcStep >= ((int64_t)roi.width + mask.width - 1) * channels &&
           (int64_t)dstStep >= (int64_t)roi.width * channels;
}

/* An interpolation selector without its soft-edge bit. */
inline int32_t selector_code(int32_t interpolation) { return interpolation & ~LUMI_SMOOTH_EDGE; }

/* -------------------------------------------------- what fits in 32 bits */

inline bool fits_32(int64_t v) { return v >= INT32_MIN && v <= INT32_MAX; }

/* The mask's cell count is a 32-bit number. */
inline bool cells_fit(LumiSize m) { return fits_32((int64_t)m.width * m.height); }

/* A row of `width` pixels of `channels` bytes is a 32-bit byte count. */
inline bool row_fits(int32_t width, int channels) { return fits_32((int64_t)width * channels); }

/* The source footprint of a neighbourhood filter, roi + mask - 1 pixels
 * each way: its row of bytes is a 32-bit count ... */
inline bool footprint_row_fits(LumiSize roi, LumiSize mask, int channels)
{
    return fits_32(((int64_t)roi.width + mask.width - 1) * channels);
}

/* ... and so is its row count. */
inline bool footprint_fits(LumiSize roi, LumiSize mask, int channels)
{
    return footprint_row_fits(roi, mask, channels) &&
           fits_32((int64_t)roi.height + mask.height - 1);
}

/* A convolution kernel whose cells can be counted and whose footprint row
 * of bytes a step can describe. */
inline bool kernel_fits(LumiSize roi, LumiSize kernel, int channels)
{
    return cells_fit(kernel) && footprint_row_fits(roi, kernel, channels);
}

/* A working-memory count for the allocators: itself when it is a positive
 * 32-bit number, else 0, which they refuse. */
inline int32_t alloc_count(int64_t n) { return n >= 1 && n <= INT32_MAX ? (int32_t)n : 0; }

} // namespace LUMI_NS

#endif
