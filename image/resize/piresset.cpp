/*
 * Resize tables: for each output row and column, the offset of the source
 * row or pixel that the kernel starts from, and the method's fraction.
 *
 * Positions run p0, p0 + s, p0 + 2 s, ... and are accumulated by addition in
 * double, never recomputed by multiplication, so every table of a call sees
 * the same positions.  The reference index of a position p is the truncation
 * of p + 1e-7: a position a hair below an integer counts as that integer.
 * Fractions use p itself and may be a tiny negative number.
 *
 * The SSE4.1 tier forms the nearest-neighbour tables and the Lanczos row
 * table four positions at a time: lanes start at p0, p0 + s, 2 s + p0 and
 * (2 s + p0) + s and each adds 4 s; a remainder of fewer than four restarts
 * at n s + p0 and adds s.  Those sums may differ from plain addition in the
 * last bit of the double, which changes an index only at an exact tie with
 * the 1e-7 guard.  Every other tier, and every other table, adds one step at
 * a time.
 *
 * Linear and cubic move their window at the image's edges (not the
 * region's), so that no sample is read outside the image.  Nearest
 * neighbour takes the image's last pixel for the one position that can fall
 * past it (a scaled length of exactly one half at the image's edge).
 * Lanczos moves nothing; its kernels fold the taps at the edges.
 *
 * Row offsets are formed in pointer width: a row index times the step
 * passes 2^31 in an image of more than 2 GiB.  Column offsets stay 32-bit;
 * the driver refuses rows too long for that.
 */
#include "piresize.h"

namespace LUMI_NS {
namespace {

inline int32_t ref_index(double p) { return (int32_t)(p + kResizeGuard); }

/* Calls emit(i, p) for each output position, one step at a time. */
template <typename Emit>
inline void walk_serial(const ResizeAxis &a, Emit emit)
{
    double p = a.p0;
    for (int32_t i = 0; i < a.count; ++i) {
        emit(i, p);
        p += a.step;
    }
}

/* The same positions as four running lanes, where the tier forms them so. */
template <typename Emit>
inline void walk_lanes(const ResizeAxis &a, Emit emit)
{
#if LUMI_IS_Y8
    const double s = a.step, s4 = 4.0 * s;
    double l0 = a.p0, l1 = a.p0 + s, l2 = 2.0 * s + a.p0, l3 = l2 + s;
    int32_t i = 0;
    for (; i + 4 <= a.count; i += 4) {
        emit(i, l0);
        emit(i + 1, l1);
        emit(i + 2, l2);
        emit(i + 3, l3);
        l0 += s4;
        l1 += s4;
        l2 += s4;
        l3 += s4;
    }
    double p = (double)i * s + a.p0;
    for (; i < a.count; ++i) {
        emit(i, p);
        p += s;
    }
#else
    walk_serial(a, emit);
#endif
}

/* 14-bit fraction of p above index r. */
inline int32_t frac14(double p, int32_t r)
{
    return (int32_t)((p - (double)r) * 16384.0 + kResizeGuard);
}

} // namespace

/* Nearest neighbour: the pixel under each position.  A scaled length of
 * exactly one half puts its single sample on the region's end; where that
 * is past the image, the image's last pixel is taken instead. */
template <typename Ofs>
void table_nn(const ResizeAxis &axis, Ofs *ofs)
{
    const int32_t last = axis.imgLen - axis.absFirst - 1, scale = axis.scale;
    walk_lanes(axis, [=](int32_t i, double p) {
        const int32_t r = ref_index(p);
        ofs[i] = (Ofs)(r < last ? r : last) * scale;
    });
}

/* Linear: the pair (r, r + 1) and the weight of r + 1.  On the image's last
 * row the pair moves up by one and the lower row takes the full weight. */
template <typename Ofs>
void table_linear_rows(const ResizeAxis &axis, Ofs *ofs, Lum16u *frac)
{
    const int32_t last = axis.imgLen - axis.absFirst - 1, scale = axis.scale;
    walk_serial(axis, [=](int32_t i, double p) {
        int32_t r = ref_index(p);
        if (r == last) {
            r -= 1;
            frac[i] = 16384;
        } else {
            frac[i] = (Lum16u)frac14(p, r);
        }
        ofs[i] = (Ofs)r * scale;
    });
}

/* Linear columns: weights in pairs, left then right, adding up to 16384. */
template <typename Ofs>
void table_linear_cols(const ResizeAxis &axis, Ofs *ofs, Lum16u *weights)
{
    const int32_t last = axis.imgLen - axis.absFirst - 1, scale = axis.scale;
    walk_serial(axis, [=](int32_t j, double p) {
        int32_t c = ref_index(p);
        int32_t f;
        if (c == last) {
            c -= 1;
            f = 16384;
        } else {
            f = frac14(p, c);
        }
        weights[2 * j] = (Lum16u)(16384 - f);
        weights[2 * j + 1] = (Lum16u)f;
        ofs[j] = (Ofs)c * scale;
    });
}

/* Cubic: the centre of the four samples c - 1 .. c + 2 and t relative to it.
 * At the image's edges the window shifts inward instead of replicating: t
 * runs from -1 on the first pixel to exactly 2 on the last. */
template <typename Ofs>
void table_cubic(const ResizeAxis &axis, Ofs *ofs, Lum32f *frac)
{
    const int32_t first = axis.absFirst, len = axis.imgLen, scale = axis.scale;
    walk_serial(axis, [=](int32_t i, double p) {
        const int32_t r = ref_index(p), a = first + r;
        int32_t centre;
        if (a == len - 1) {
            centre = r - 2;
            frac[i] = 2.0f;
        } else {
            centre = a == 0 ? r + 1 : a == len - 2 ? r - 1 : r;
            frac[i] = (Lum32f)(p - (double)centre);
        }
        ofs[i] = (Ofs)centre * scale;
    });
}

/* Lanczos: the reference index and the fraction, moved at no edge. */
template <typename Ofs>
void table_lanczos(const ResizeAxis &axis, Ofs *ofs, Lum32f *frac, bool inLanes)
{
    const int32_t scale = axis.scale;
    auto emit = [=](int32_t i, double p) {
        const int32_t r = ref_index(p);
        frac[i] = (Lum32f)(p - (double)r);
        ofs[i] = (Ofs)r * scale;
    };
    if (inLanes)
        walk_lanes(axis, emit);
    else
        walk_serial(axis, emit);
}

/* Rows take pointer-width offsets, columns 32-bit ones. */
#define LUMI_RESIZE_TABLES(Ofs)                                                                   \
    template void table_nn<Ofs>(const ResizeAxis &, Ofs *);                                        \
    template void table_linear_rows<Ofs>(const ResizeAxis &, Ofs *, Lum16u *);                     \
    template void table_linear_cols<Ofs>(const ResizeAxis &, Ofs *, Lum16u *);                     \
    template void table_cubic<Ofs>(const ResizeAxis &, Ofs *, Lum32f *);                           \
    template void table_lanczos<Ofs>(const ResizeAxis &, Ofs *, Lum32f *, bool);
LUMI_RESIZE_TABLES(ptrdiff_t)
LUMI_RESIZE_TABLES(int32_t)

} // namespace LUMI_NS
