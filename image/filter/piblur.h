/*
 * Box filter internals shared by the family's sources of one tier: the
 * engines the public forms choose between, the multiplier of the generic
 * engines and the ring that lets the in-place engines write over their own
 * source.
 */
#ifndef LUMI_PIBLUR_H
#define LUMI_PIBLUR_H

#include "tier.h"

namespace LUMI_NS {

/* One call's geometry.  `src` is the footprint's first pixel (top-left of
 * the first window), `dst` the first output pixel. */
struct BoxJob {
    const Lum8u *src;
    int32_t srcStep;
    Lum8u *dst;
    int32_t dstStep;
    LumiSize roi;
    LumiSize mask;
    int channels; /* 1 or 3 */
};

/* In place: `image` is pSrcDst (the first output pixel), `src` of the job is
 * the footprint's first pixel in the same image. */
struct BoxInPlace {
    BoxJob job;
    LumiPoint anchor;
};

/* Masks of up to this many cells average with integer column sums, whose
 * products S * mul stay within 32 bits (S is at most 255 cells' worth);
 * larger masks take the float engines. */
const int32_t kBoxIntegerCellsMax = 8100;

inline bool integer_sums(LumiSize mask)
{
    return (int64_t)mask.width * mask.height <= kBoxIntegerCellsMax;
}

/* Out-of-place engines. */
LumStatus ownBlur_8u(const BoxJob &j);
LumStatus ownBlurFloat_8u(const BoxJob &j);
LumStatus ownBlur_8u_33(const BoxJob &j);
LumStatus ownBlur_8u_55(const BoxJob &j); /* the C1R and C3R forms */
LumStatus ownBlur_8u_77_C1R(const BoxJob &j);

/* In-place engines (the ring scheme below). */
LumStatus ownBlur_8u_I(const BoxInPlace &p);
LumStatus ownBlurFloat_8u_I(const BoxInPlace &p);
LumStatus ownBlur_8u_33_I(const BoxInPlace &p);
LumStatus ownBlur_8u_55_C1IR(const BoxInPlace &p);

/* Multiplier and shift of the generic integer engines: the mean is
 * (S * mul) >> shift, with half of 1 << shift added first for one channel. */
void get_shift_int(LumiSize mask, uint32_t *mul, int *shift);

/* Ring slots and their pointer table, taken in that order. */
struct Ring {
    Lum8u *rows;   /* R slots of `slot` bytes */
    Lum8u **table; /* R pointers into `rows` */
};

/* Frozen-flag rule of the ring: how the running sums are told whether to
 * move on after a row. */
enum RingFlag {
    kMoreEveryRow, /* more rows follow while k < H - 1 */
    kMoreFixedEarly /* stages 1 and 2 use one value fixed before the loop */
};

/*
 * Drives an in-place engine.  Computed row k (the k-th window row of the
 * footprint) goes to slot k mod R, R = anchor.y + 1; output row j may only
 * replace image row j once footprint row j + anchor.y has been read for the
 * last time, so it is stored R - 1 rows late, from slot (k + 1) mod R at
 * step k:
 *   stage 1, k < a:              compute only;
 *   stage 2, a <= k <= 2a:       compute, then store output k - a;
 *   stage 3, 2a < k < H:         the same;
 *   stage 4, H <= k < a + H:     store only.
 * Rows past the region's last one are never stored and so never computed.
 * `e.compute(k, out)` writes computed row k; `e.advance(k)` moves the
 * running sums from window row k to k + 1.
 */
template <typename E>
void run_ring(E &e, const BoxInPlace &p, const Ring &ring, RingFlag flag)
{
    const int32_t a = p.anchor.y, R = a + 1, H = p.job.roi.height;
    const int32_t rowBytes = p.job.roi.width * p.job.channels;
    const bool earlyMore = R != H - 1;
    for (int32_t k = 0; k < a + H; ++k) {
        if (k < H) {
            e.compute(k, ring.table[k % R]);
            const bool more = flag == kMoreFixedEarly && k <= 2 * a ? earlyMore && k < H - 1
                                                                    : k < H - 1;
            if (more)
                e.advance(k);
        }
        if (k >= a) {
            Lum8u *out = p.job.dst + (intptr_t)(k - a) * p.job.dstStep;
            const Lum8u *slot = ring.table[(k + 1) % R];
            for (int32_t i = 0; i < rowBytes; ++i)
                out[i] = slot[i];
        }
    }
}

/* Out of place: every row straight to the destination. */
template <typename E>
void run_rows(E &e, const BoxJob &j)
{
    for (int32_t k = 0; k < j.roi.height; ++k) {
        e.compute(k, j.dst + (intptr_t)k * j.dstStep);
        if (k < j.roi.height - 1)
            e.advance(k);
    }
}

/* 16-bit column sums: v[i] = sum of `rows` rows from top, and the move of
 * every sum one row down (add `in`, drop `out`). */
void vertical_sums(const Lum8u *top, int32_t step, int rows, Lum16u *v, int32_t len);
void advance_sums16(Lum16u *cols, const Lum8u *in, const Lum8u *out, int32_t n);

/* Takes the ring of R slots of `slot` bytes; false, holding nothing, when
 * an allocation fails. */
bool take_ring(Ring *ring, int32_t R, int64_t slot);
void free_ring(const Ring &ring);

} // namespace LUMI_NS

#endif
