/*
 * Generic box engines: running column sums, any mask.
 *
 * Each source column of the footprint keeps the sum of its mask.height
 * pixels; a row's window sums run along the row (add the column entering on
 * the right, drop the one leaving on the left), and between rows every
 * column gains the pixel entering below and loses the one leaving above.
 * Work per pixel does not depend on the mask.
 *
 * Integer engines keep 32-bit cells, four per three-channel pixel (the
 * fourth stays 0), and two spare groups past the last column, since the
 * running sum reads one column beyond the last window.  Their mean is
 * (S * mul + half) >> shift for one channel and (S * mul) >> shift for three
 * (get_shift_int).  Float engines keep one float cell per channel and store
 * trunc(S * (1.0f / N) + 9.0e-6f); they serve masks above 8100 cells.
 */
#include "tier.h"

#include <string.h>

#include "piblur.h"

namespace LUMI_NS {
namespace {

/* Integer column sums; `c` cells per pixel (1, or 4 for three channels). */
struct IntSums {
    const BoxJob *j;
    uint32_t *cols;
    int c;
    uint32_t mul;
    uint32_t half;
    int shift;

    void first_sums()
    {
        const int32_t fw = j->roi.width + j->mask.width - 1, ch = j->channels;
        memset(cols, 0, sizeof(uint32_t) * (size_t)(j->roi.width + j->mask.width + 2) * c);
        for (int32_t r = 0; r < j->mask.height; ++r) {
            const Lum8u *row = j->src + (intptr_t)r * j->srcStep;
            for (int32_t i = 0; i < fw; ++i)
                for (int k = 0; k < ch; ++k)
                    cols[i * c + k] += row[i * ch + k];
        }
    }

    void advance(int32_t k)
    {
        const int32_t fw = j->roi.width + j->mask.width - 1, ch = j->channels;
        const Lum8u *out = j->src + (intptr_t)k * j->srcStep;
        const Lum8u *in = out + (intptr_t)j->mask.height * j->srcStep;
        for (int32_t i = 0; i < fw; ++i)
            for (int q = 0; q < ch; ++q)
                cols[i * c + q] += (uint32_t)in[i * ch + q] - (uint32_t)out[i * ch + q];
    }

    void compute(int32_t, Lum8u *dst) const
    {
        const int32_t w = j->roi.width, mw = j->mask.width;
        for (int q = 0; q < j->channels; ++q) {
            uint32_t s = 0;
            for (int32_t i = 0; i < mw; ++i)
                s += cols[i * c + q];
            for (int32_t x = 0; x < w; ++x) {
                dst[x * j->channels + q] = (Lum8u)((s * mul + half) >> shift);
                s += cols[(x + mw) * c + q] - cols[x * c + q];
            }
        }
    }
};

/* Float column sums, one cell per channel. */
struct FloatSums {
    const BoxJob *j;
    Lum32f *cols;
    Lum32f r;

    void first_sums()
    {
        const int32_t fw = j->roi.width + j->mask.width - 1, ch = j->channels;
        for (int32_t rr = 0; rr < j->mask.height; ++rr) {
            const Lum8u *row = j->src + (intptr_t)rr * j->srcStep;
            for (int32_t i = 0; i < fw * ch; ++i)
                cols[i] += (Lum32f)row[i];
        }
    }

    void advance(int32_t k)
    {
        const int32_t n = (j->roi.width + j->mask.width - 1) * j->channels;
        const Lum8u *out = j->src + (intptr_t)k * j->srcStep;
        const Lum8u *in = out + (intptr_t)j->mask.height * j->srcStep;
        for (int32_t i = 0; i < n; ++i)
            cols[i] += (Lum32f)((int32_t)in[i] - (int32_t)out[i]);
    }

    void compute(int32_t, Lum8u *dst) const
    {
        const int32_t w = j->roi.width, mw = j->mask.width, ch = j->channels;
        for (int q = 0; q < ch; ++q) {
            Lum32f s = 0.0f;
            for (int32_t i = 0; i < mw; ++i)
                s += cols[i * ch + q];
            for (int32_t x = 0; x < w; ++x) {
                Lum32f v = s * r;
                v = v + 9.0e-6f;
                const int32_t t = (int32_t)v;
                dst[x * ch + q] = (Lum8u)(t > 255 ? 255 : t < 0 ? 0 : t);
                s += cols[(x + mw) * ch + q] - cols[x * ch + q];
            }
        }
    }
};

bool take_int_sums(IntSums *e, const BoxJob &j)
{
    e->j = &j;
    e->c = j.channels == 1 ? 1 : 4;
    get_shift_int(j.mask, &e->mul, &e->shift);
    e->half = j.channels == 1 ? 1u << (e->shift - 1) : 0;
    const int32_t bytes = (((j.roi.width + j.mask.width + 2) * e->c) * 4 + 15) & ~15;
    e->cols = (uint32_t *)LUMI_T(lumsMalloc_8u)(bytes);
    return e->cols != nullptr;
}

bool take_float_sums(FloatSums *e, const BoxJob &j)
{
    e->j = &j;
    e->r = 1.0f / (Lum32f)(j.mask.width * j.mask.height);
    const int32_t n = (j.roi.width + j.mask.width + 2) * j.channels;
    e->cols = LUMI_T(lumsMalloc_32f)(n);
    LUMI_T(lumsSet_32f)(0.0f, e->cols, n);
    return e->cols != nullptr;
}

int32_t ring_slot(const BoxJob &j) { return (j.roi.width * j.channels + 15) & ~15; }

template <typename E>
LumStatus in_place(E &e, const BoxInPlace &p, RingFlag flag)
{
    Ring ring;
    if (!take_ring(&ring, p.anchor.y + 1, ring_slot(p.job), false)) {
        LUMI_T(lumsFree)(e.cols);
        return lumStsMemAllocErr;
    }
    e.first_sums();
    run_ring(e, p, ring, flag);
    free_ring(ring);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

} // namespace

LumStatus ownBlur_8u(const BoxJob &j)
{
    IntSums e;
    if (!take_int_sums(&e, j))
        return lumStsMemAllocErr;
    e.first_sums();
    run_rows(e, j);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

LumStatus ownBlurFloat_8u(const BoxJob &j)
{
    FloatSums e;
    if (!take_float_sums(&e, j))
        return lumStsMemAllocErr;
    e.first_sums();
    run_rows(e, j);
    LUMI_T(lumsFree)(e.cols);
    return lumStsNoErr;
}

LumStatus ownBlur_8u_I(const BoxInPlace &p)
{
    IntSums e;
    if (!take_int_sums(&e, p.job))
        return lumStsMemAllocErr;
    return in_place(e, p, kMoreFixedEarly);
}

LumStatus ownBlurFloat_8u_I(const BoxInPlace &p)
{
    FloatSums e;
    if (!take_float_sums(&e, p.job))
        return lumStsMemAllocErr;
    return in_place(e, p, kMoreEveryRow);
}

} // namespace LUMI_NS
