/*
 * Remap internals shared by the public bodies (piremap.cpp) and the kernel
 * families (piremapnn.cpp, piremaplin.cpp, piremapcub.cpp, piremapcr.cpp):
 * the argument record every table entry takes, the layouts and families
 * that name a table slot, and the one entry template the table points at.
 *
 * A table entry is remap_entry<Family, T, Layout, Soft>: the row walker of
 * piremap_walk.h over the interior formula of one family.  Each family's
 * source instantiates its entries explicitly, so the table's module only
 * takes their addresses.
 */
#ifndef LUMI_PIREMAP_H
#define LUMI_PIREMAP_H

#include <stddef.h>

#include "tier.h"

namespace LUMI_NS {

/* Pixel layouts: interleaved 1, 3, 4 elements; four elements of which the
 * fourth is never touched; 3 or 4 planes sharing one step. */
enum RemapLayout { kRemapC1, kRemapC3, kRemapC4, kRemapAC4, kRemapP3, kRemapP4 };

/* Everything one call of a table entry needs.  src and dst are the first
 * pixel (interleaved) or the array of plane pointers (planar); the maps
 * hold float coordinates, double for 64f.  Limits: the clamped source
 * region (xMin..xMax, yMin..yMax) and the last column and row of the whole
 * source (wMax, hMax). */
struct RemapArgs {
    const void *src;
    int32_t srcStep;
    void *dst;
    int32_t dstStep;
    const void *xMap;
    int32_t xMapStep;
    const void *yMap;
    int32_t yMapStep;
    int32_t width, height;
    int32_t xMin, yMin, xMax, yMax, wMax, hMax;
};

typedef void RemapFn(const RemapArgs &a);

/* The families: each computes one destination pixel whose coordinate lies
 * inside the region.  Soft selects the soft-edge form of the arithmetic. */
template <class T, int L, bool Soft> struct RemapNN;
template <class T, int L, bool Soft> struct RemapLin;
template <class T, int L, bool Soft> struct RemapCub;
template <class T, int L, bool Soft> struct RemapCR;
template <class T, int L, bool Soft> struct RemapL3;

template <template <class, int, bool> class F, class T, int L, bool Soft>
void remap_entry(const RemapArgs &a);

/* Explicit instantiations of one family over every layout of one type and
 * one path; each family's module lists its own. */
#define LUMI_REMAP_INSTANTIATE_LAYOUTS(F, T, Soft)                                                \
    template void remap_entry<F, T, kRemapC1, Soft>(const RemapArgs &);                            \
    template void remap_entry<F, T, kRemapC3, Soft>(const RemapArgs &);                            \
    template void remap_entry<F, T, kRemapC4, Soft>(const RemapArgs &);                            \
    template void remap_entry<F, T, kRemapAC4, Soft>(const RemapArgs &);                           \
    template void remap_entry<F, T, kRemapP3, Soft>(const RemapArgs &);                            \
    template void remap_entry<F, T, kRemapP4, Soft>(const RemapArgs &);
#define LUMI_REMAP_INSTANTIATE_TYPES(F, Soft)                                                     \
    LUMI_REMAP_INSTANTIATE_LAYOUTS(F, Lum8u, Soft)                                                 \
    LUMI_REMAP_INSTANTIATE_LAYOUTS(F, Lum16u, Soft)                                                \
    LUMI_REMAP_INSTANTIATE_LAYOUTS(F, Lum16s, Soft)                                                \
    LUMI_REMAP_INSTANTIATE_LAYOUTS(F, Lum32f, Soft)                                                \
    LUMI_REMAP_INSTANTIATE_LAYOUTS(F, Lum64f, Soft)
#define LUMI_REMAP_INSTANTIATE(F)                                                                 \
    LUMI_REMAP_INSTANTIATE_TYPES(F, false)                                                         \
    LUMI_REMAP_INSTANTIATE_TYPES(F, true)

} // namespace LUMI_NS

#endif
