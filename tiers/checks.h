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

/* -------------------------------------------------- what fits in 32 bits */

inline bool fits_32(int64_t v) { return v >= INT32_MIN && v <= INT32_MAX; }

/* The mask's cell count is a 32-bit number. */
inline bool cells_fit(LumiSize m) { return fits_32((int64_t)m.width * m.height); }

/* A row of `width` pixels of `channels` bytes is a 32-bit byte count. */
inline bool row_fits(int32_t width, int channels) { return fits_32((int64_t)width * channels); }

/* The source footprint of a neighbourhood filter, roi + mask - 1 pixels
 * each way, has a 32-bit row of bytes and a 32-bit row count. */
inline bool footprint_fits(LumiSize roi, LumiSize mask, int channels)
{
    const int64_t cols = (int64_t)roi.width + mask.width - 1;
    const int64_t rows = (int64_t)roi.height + mask.height - 1;
    return fits_32(cols * channels) && fits_32(rows);
}

/* A working-memory count for the allocators: itself when it is a positive
 * 32-bit number, else 0, which they refuse. */
inline int32_t alloc_count(int64_t n) { return n >= 1 && n <= INT32_MAX ? (int32_t)n : 0; }

} // namespace LUMI_NS

#endif
