/*
 * Affine geometry of the warp engine: the transformed region's quadrangle,
 * its inverse, clipping, and the exact span of every destination row.
 *
 * The inverse comes from the quadrangle's first three corners, not from the
 * caller's coefficients by algebra: with a = q1.x - q0.x, b = q2.x - q1.x,
 * c = q1.y - q0.y, d = q2.y - q1.y, det = a d - b c and the region's extent
 * W = x1 - x0, H = y1 - y0, the factors W (1/det) and H (1/det) are formed
 * first and then multiplied (for a 6x8 region this gives 0.9999999999999999
 * where the exact value is 1, and the engine's sampling depends on it).
 *
 * Clipping is four half-plane passes (top, bottom, left, right) over a
 * polygon closed by repeating its first vertex.  A vertex on the inner side
 * or on the line is kept; an edge whose ends lie strictly on opposite sides
 * adds the crossing point b0 + (limit - a0)(b1 - b0)/(a1 - a0).  Vertices
 * that repeat their predecessor are dropped at the end.
 *
 * Spans.  Two walkers leave the topmost vertex, one each way round, passing
 * over flat edges, until they meet.  For each whole row between the current
 * height and the nearer edge end, the edge positions are (y - y0) dx/dy + x0;
 * the left edge gives first = ceil(xl) and the right edge last = floor(xr).
 * A row therefore holds exactly the pixel centres inside or on the polygon,
 * with one allowance: a position within 1e-13 of a whole number outward
 * counts as that number, so rounding noise in the transform cannot lose a
 * pixel whose centre lies on the boundary.  Nothing else widens a span, so
 * at whole-number vertices no pixel outside the quadrangle is written.  As
 * a safety net the spans are also limited to the destination rectangle, and
 * every row starts empty, so a row that no walker reaches writes nothing.
 */
#include "pigeom.h"

#include <math.h>

namespace LUMI_NS {

void warp_affine_rect(const double c[6], int32_t x0, int32_t y0, int32_t x1, int32_t y1,
                      double quad[4][2])
{
    const double xs[4] = {(double)x0, (double)x1, (double)x1, (double)x0};
    const double ys[4] = {(double)y0, (double)y0, (double)y1, (double)y1};
    for (int i = 0; i < 4; ++i) {
        quad[i][0] = c[0] * xs[i] + c[1] * ys[i] + c[2];
        quad[i][1] = c[3] * xs[i] + c[4] * ys[i] + c[5];
    }
}

int check_quad(const double quad[4][2])
{
    int positive = 0, negative = 0;
    for (int i = 0; i < 4; ++i) {
        const double *p = quad[(i + 3) & 3], *v = quad[i], *n = quad[(i + 1) & 3];
        const double cross = (v[0] - p[0]) * (n[1] - v[1]) - (v[1] - p[1]) * (n[0] - v[0]);
        if (cross == 0.0)
            return -5;
        positive += cross > 0.0;
        negative += cross < 0.0;
    }
    return positive == 4 ? 1 : negative == 4 ? 0 : -4;
}

int affine_inverse(int32_t x0, int32_t y0, int32_t x1, int32_t y1, const double q[4][2],
                   double inv[6])
{
    const double a = q[1][0] - q[0][0], b = q[2][0] - q[1][0];
    const double c = q[1][1] - q[0][1], d = q[2][1] - q[1][1];
    const double rdet = 1.0 / (a * d - b * c);
    const double fw = (double)(x1 - x0) * rdet, fh = (double)(y1 - y0) * rdet;
    inv[0] = d * fw;
    inv[1] = -b * fw;
    inv[2] = (double)x0 - inv[0] * q[0][0] - inv[1] * q[0][1];
    inv[3] = -c * fh;
    inv[4] = a * fh;
    inv[5] = (double)y0 - inv[3] * q[0][0] - inv[4] * q[0][1];
    return rdet > 0.0 ? 1 : 0;
}

namespace {

/* One half-plane pass.  axis 0 clips x, 1 clips y; keep_above keeps the side
 * at or above the limit. */
void clip_pass(const WarpPolygon &in, WarpPolygon &out, int axis, double limit, bool keep_above)
{
    out.count = 0;
    const int32_t n = in.count;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t j = i + 1 < n ? i + 1 : 0; /* closes the polygon */
        const double a0 = axis ? in.y[i] : in.x[i], a1 = axis ? in.y[j] : in.x[j];
        const double b0 = axis ? in.x[i] : in.y[i], b1 = axis ? in.x[j] : in.y[j];
        const bool in0 = keep_above ? a0 >= limit : a0 <= limit;
        if (in0 && out.count < 8) {
            out.x[out.count] = in.x[i], out.y[out.count] = in.y[i];
            ++out.count;
        }
        const bool crosses = (a0 < limit && a1 > limit) || (a0 > limit && a1 < limit);
        if (crosses && out.count < 8) {
            const double b = b0 + (limit - a0) * (b1 - b0) / (a1 - a0);
            out.x[out.count] = axis ? b : limit;
            out.y[out.count] = axis ? limit : b;
            ++out.count;
        }
    }
}

} // namespace

void clip_polygon(const double quad[4][2], const WarpBounds &r, WarpPolygon &out)
{
    WarpPolygon a;
    a.count = 4;
    double minx = quad[0][0], maxx = minx, miny = quad[0][1], maxy = miny;
    for (int i = 0; i < 4; ++i) {
        a.x[i] = quad[i][0], a.y[i] = quad[i][1];
        minx = fmin(minx, a.x[i]), maxx = fmax(maxx, a.x[i]);
        miny = fmin(miny, a.y[i]), maxy = fmax(maxy, a.y[i]);
    }
    if (!(minx <= r.right && maxx >= r.left && miny <= r.bottom && maxy >= r.top)) {
        out.count = 0;
        return;
    }
    if (minx >= r.left && maxx <= r.right && miny >= r.top && maxy <= r.bottom) {
        out = a;
        return;
    }
    WarpPolygon b;
    clip_pass(a, b, 1, r.top, true);
    clip_pass(b, a, 1, r.bottom, false);
    clip_pass(a, b, 0, r.left, true);
    clip_pass(b, out, 0, r.right, false);
    int32_t n = 0;
    for (int32_t i = 0; i < out.count; ++i) {
        if (n > 0 && out.x[i] == out.x[n - 1] && out.y[i] == out.y[n - 1])
            continue;
        out.x[n] = out.x[i], out.y[n] = out.y[i];
        ++n;
    }
    if (n > 1 && out.x[n - 1] == out.x[0] && out.y[n - 1] == out.y[0])
        --n;
    out.count = n;
}

bool polygon_rows(const WarpPolygon &p, int32_t &yStart, int32_t &yEnd)
{
    if (p.count < 1)
        return false;
    double minx = p.x[0], maxx = minx, miny = p.y[0], maxy = miny;
    for (int32_t i = 1; i < p.count; ++i) {
        minx = fmin(minx, p.x[i]), maxx = fmax(maxx, p.x[i]);
        miny = fmin(miny, p.y[i]), maxy = fmax(maxy, p.y[i]);
    }
    const double top = ceil(miny), bottom = floor(maxy);
    if (!(bottom >= top) || !(floor(maxx) >= ceil(minx)))
        return false;
    /* The polygon lies inside the destination rectangle, whose rows are
     * 32-bit numbers. */
    yStart = (int32_t)top, yEnd = (int32_t)bottom;
    return true;
}

namespace {

struct Walker {
    int32_t at;         /* vertex at the top of the current edge */
    int32_t dir;        /* +1 or -1 round the polygon */
    double x0, y0, y1;  /* the edge's top point and lower end */
    double slope;       /* dx / dy */
};

inline int32_t wrap(int32_t i, int32_t n) { return i < 0 ? i + n : i >= n ? i - n : i; }

/* Moves the walker onto the next edge with height, unless it meets `stop`. */
bool next_edge(Walker &w, const WarpPolygon &p, int32_t stop)
{
    for (;;) {
        const int32_t to = wrap(w.at + w.dir, p.count);
        if (p.y[to] != p.y[w.at]) {
            w.x0 = p.x[w.at], w.y0 = p.y[w.at], w.y1 = p.y[to];
            w.slope = (p.x[to] - w.x0) / (w.y1 - w.y0);
            return true;
        }
        w.at = to;
        if (w.at == stop)
            return false;
    }
}

inline int32_t first_column(double xl)
{
    double f = ceil(xl);
    if (1.0 + xl - f < 1e-13)
        f -= 1.0;
    return (int32_t)f;
}

inline int32_t last_column(double xr)
{
    double l = floor(xr);
    if (1.0 - xr + l < 1e-13)
        l += 1.0;
    return (int32_t)l;
}

} // namespace

void polygon_spans(const WarpPolygon &p, int orientation, int32_t yStart, int32_t yEnd,
                   int32_t left, int32_t right, int32_t *spans)
{
    const int32_t rows = yEnd - yStart + 1;
    for (int32_t k = 0; k < rows; ++k)
        spans[2 * k] = 1, spans[2 * k + 1] = 0;
    if (p.count == 1) {
        spans[0] = spans[1] = (int32_t)floor(p.x[0]);
    } else {
        int32_t top = 0;
        for (int32_t i = 1; i < p.count; ++i)
            if (p.y[i] < p.y[top])
                top = i;
        spans[0] = (int32_t)ceil(fmin(p.x[0], p.x[1]));
        spans[1] = (int32_t)floor(fmax(p.x[0], p.x[1]));

        Walker fall = {top, -1, 0, 0, 0, 0}, rise = {top, +1, 0, 0, 0, 0};
        Walker &lw = orientation ? fall : rise, &rw = orientation ? rise : fall;
        double height = p.y[top];
        /* Each edge pass reaches at least the next vertex, so a convex
         * polygon of n vertices needs fewer than 2n passes. */
        for (int guard = 0; guard < 2 * p.count + 2; ++guard) {
            if (!next_edge(fall, p, rise.at) || !next_edge(rise, p, fall.at))
                break;
            const double end = fmin(fall.y1, rise.y1);
            for (double y = ceil(height); y <= floor(end) && y <= (double)yEnd; y += 1.0) {
                if (y < (double)yStart)
                    continue;
                double xl = (y - lw.y0) * lw.slope + lw.x0;
                double xr = (y - rw.y0) * rw.slope + rw.x0;
                /* A nearly flat edge can give an infinite slope; such a row
                 * stays empty rather than convert a non-number. */
                if (xl != xl || xr != xr)
                    continue;
                xl = fmin(fmax(xl, (double)left - 1.0), (double)right + 1.0);
                xr = fmin(fmax(xr, (double)left - 1.0), (double)right + 1.0);
                const int32_t k = (int32_t)y - yStart;
                spans[2 * k] = first_column(xl);
                spans[2 * k + 1] = last_column(xr);
            }
            height = end;
            if (fall.y1 == end)
                fall.at = wrap(fall.at - 1, p.count);
            if (rise.y1 == end)
                rise.at = wrap(rise.at + 1, p.count);
            if (fall.at == rise.at)
                break;
        }
    }
    for (int32_t k = 0; k < rows; ++k) {
        if (spans[2 * k] < left)
            spans[2 * k] = left;
        if (spans[2 * k + 1] > right)
            spans[2 * k + 1] = right;
    }
}

} // namespace LUMI_NS
