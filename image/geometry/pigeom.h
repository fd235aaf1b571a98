/*
 * Affine geometry shared by the warp engine (piwarpa.cpp) and the soft edge:
 * the quadrangle of a transformed region, its classification, the inverse
 * transform taken from the region's corners, polygon clipping against a
 * destination rectangle, and the per-row spans of a clipped polygon.
 * Everything here is double precision, in the order written in pigeom.cpp.
 */
#ifndef LUMI_PIGEOM_H
#define LUMI_PIGEOM_H

#include <stdint.h>

#include "tier.h"

namespace LUMI_NS {

/* A convex polygon of up to 8 vertices (a quadrangle cut by four sides). */
struct WarpPolygon {
    double x[8], y[8];
    int32_t count;
};

/* A rectangle with both ends included, as doubles: the columns left..right
 * and rows top..bottom. */
struct WarpBounds {
    double left, top, right, bottom;
};

/* The four corners of the region (x0, y0)..(x1, y1) through the transform c,
 * in the order top-left, top-right, bottom-right, bottom-left. */
void warp_affine_rect(const double c[6], int32_t x0, int32_t y0, int32_t x1, int32_t y1,
                      double quad[4][2]);

/* 1 when the quadrangle turns one way at every vertex with positive cross
 * products, 0 when all are negative, -4 when they differ in sign (or are not
 * numbers), -5 when any is exactly zero. */
int check_quad(const double quad[4][2]);

/* The inverse of the transform that takes the region (x0, y0)..(x1, y1) to
 * quad, from the corners alone; returns the orientation: 1 when it keeps
 * the sense of turning, 0 for a mirror. */
int affine_inverse(int32_t x0, int32_t y0, int32_t x1, int32_t y1, const double quad[4][2],
                   double inv[6]);

/* The quadrangle clipped to the rectangle; count 0 when nothing is left. */
void clip_polygon(const double quad[4][2], const WarpBounds &r, WarpPolygon &out);

/* Rows and columns that a clipped polygon covers; false when it holds no
 * pixel centre (it falls between rows, or between columns). */
bool polygon_rows(const WarpPolygon &p, int32_t &yStart, int32_t &yEnd);

/* Fills spans[2k], spans[2k + 1] with the first and last column of row
 * yStart + k, for every row yStart..yEnd; an empty row has first > last.
 * Columns are limited to left..right. */
void polygon_spans(const WarpPolygon &p, int orientation, int32_t yStart, int32_t yEnd,
                   int32_t left, int32_t right, int32_t *spans);

} // namespace LUMI_NS

#endif
