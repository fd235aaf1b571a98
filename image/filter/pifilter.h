/*
 * What the two convolution families (integer and float kernels) share inside
 * one tier: the footprint's first pixel, the walk of a strip's rows through a
 * ring of widened rows, and the control word the arithmetic runs under.
 */
#ifndef LUMI_PIFILTER_H
#define LUMI_PIFILTER_H

#include "tier.h"

#include <immintrin.h>
#include <stdint.h>

namespace LUMI_NS {
namespace conv {

/* A convolution call as the drivers see it once the checks have passed.
 * `src` is the footprint's first pixel (top-left of the window of output
 * pixel (0, 0)); `bytes` is the output row in bytes (width * channels). */
struct Job {
    const Lum8u *src;
    int32_t srcStep;
    Lum8u *dst;
    int32_t dstStep;
    int32_t width, height; /* output region in pixels */
    int32_t kw, kh;
    int32_t channels;
    int32_t bytes;
};

/* The kernel is mirrored: cell (ax, ay) lies over the output pixel, so the
 * window of output (0, 0) starts kw - 1 - ax pixels left of pSrc and
 * kh - 1 - ay rows above it.  The anchor is free, so any offset is fine. */
inline Job make_job(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst, int32_t dstStep,
                    LumiSize roi, LumiSize k, LumiPoint anchor, int32_t channels)
{
    const intptr_t dy = (intptr_t)anchor.y - k.height + 1;
    const intptr_t dx = ((intptr_t)anchor.x - k.width + 1) * channels;
    Job j;
    j.src = pSrc + dy * srcStep + dx;
    j.srcStep = srcStep;
    j.dst = pDst;
    j.dstStep = dstStep;
    j.width = roi.width;
    j.height = roi.height;
    j.kw = k.width;
    j.kh = k.height;
    j.channels = channels;
    j.bytes = roi.width * channels;
    return j;
}

/* Output bytes per strip for the working rings: kh rows of about 24 KB
 * (6144 four-byte cells) in all, a multiple of align, at least 64, at most
 * the row. */
inline int64_t ring_strip(const Job &j, int64_t align)
{
    const int64_t halo = (int64_t)(j.kw - 1) * j.channels;
    int64_t strip = 6144 / j.kh - halo;
    strip = strip < 64 ? 64 : strip & ~(align - 1);
    return strip > j.bytes ? j.bytes : strip;
}

/* A ring's strip (output bytes) and slot (four-byte cells per footprint
 * row: the strip and the window's reach, rounded up to slotAlign cells).  A
 * ring whose kh slots would pass 4 MB is not made: slot 0, and one strip of
 * the whole row. */
struct RingShape {
    int32_t strip;
    intptr_t slot;
};

const int64_t kRingCap = (int64_t)1 << 20; /* cells: 4 MB */

inline RingShape ring_shape(const Job &j, int64_t stripAlign, int64_t slotAlign)
{
    const int64_t halo = (int64_t)(j.kw - 1) * j.channels;
    const int64_t strip = ring_strip(j, stripAlign);
    const int64_t slot = (strip + halo + slotAlign - 1) & ~(slotAlign - 1);
    if ((int64_t)j.kh * slot <= kRingCap)
        return RingShape{(int32_t)strip, (intptr_t)slot};
    return RingShape{j.bytes, 0};
}

/* Asks for the n bytes from p ahead of use.  A strip reads only part of
 * each source row, a pattern the processor's own prefetch picks up late. */
inline void prefetch_bytes(const Lum8u *p, intptr_t n)
{
    for (intptr_t o = 0; o < n; o += 64)
        _mm_prefetch((const char *)(p + o), _MM_HINT_T0);
    _mm_prefetch((const char *)(p + n - 1), _MM_HINT_T0);
}

/* The strip and ring walk of both families.  The output rows are cut into
 * strips of `strip` bytes; within a strip every footprint row is widened
 * once, by widen(source, length, slot), into a ring of kh slots of `slot`
 * cells (footprint row i in slot i % kh), so each source byte is converted
 * once per strip however tall the kernel.  Before each output row, rows[]
 * lists the ring's slots in footprint order, and row(rows, y, x0, n) makes
 * the n output bytes of row y from byte x0. */
template <class Cell, class Widen, class Row>
inline void walk_ring(const Job &j, int32_t strip, intptr_t slot, Cell *ring, const Cell **rows,
                      Widen widen, Row row)
{
    const intptr_t halo = (intptr_t)(j.kw - 1) * j.channels;
    for (int32_t x0 = 0; x0 < j.bytes; x0 += strip) {
        const int32_t n = j.bytes - x0 < strip ? j.bytes - x0 : strip;
        for (int32_t i = 0; i + 1 < j.kh; ++i)
            widen(j.src + (intptr_t)i * j.srcStep + x0, n + halo, ring + i * slot);
        for (int32_t y = 0; y < j.height; ++y) {
            /* footprint row i lives in slot i % kh */
            const intptr_t last = (intptr_t)y + j.kh - 1;
            if (y + 1 < j.height)
                prefetch_bytes(j.src + (last + 1) * j.srcStep + x0, n + halo);
            widen(j.src + last * j.srcStep + x0, n + halo, ring + (last % j.kh) * slot);
            int32_t s = y % j.kh;
            for (int32_t r = 0; r < j.kh; ++r, ++s) {
                if (s == j.kh)
                    s = 0;
                rows[r] = ring + s * slot;
            }
            row(rows, y, x0, n);
        }
    }
}

/* The sums and roundings are defined in round-to-nearest with denormals
 * kept, so each call runs under that control word and gives the caller's
 * word back, exception flags included. */
inline unsigned enter_nearest()
{
    const unsigned csr = _mm_getcsr();
    _mm_setcsr(csr & ~0xE040u); /* rounding field, flush-to-zero, denormals-are-zero */
    return csr;
}

inline void leave_nearest(unsigned csr) { _mm_setcsr(csr); }

} // namespace conv
} // namespace LUMI_NS

#endif
