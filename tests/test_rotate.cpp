// Rotate on every dispatch index: exact quarter turns against a plain
// rotation of the array, every other angle against a per-pixel reference of
// the inverse walk (which pixels lie inside the turned region, and what each
// kernel makes of its inverse point), the soft edge, the shift that keeps a
// centre in place, the statuses in order with nothing written, and every
// allocation failed in turn.  Destinations are compared whole, guard bytes
// around the image included, so a write outside dstRoi or outside the turned
// region shows up.
#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <vector>

#include "lumi.h"
#include "support/alloc_fault.h"
#include "support/guarded.h"
#include "support/members.h"
#include "support/remap_ref.h"
#include "support/tiers.h"

namespace {

typedef decltype(&lumiRotate_8u_C1R) RotateFn;
typedef decltype(&lumiRotateCenter_8u_C1R) RotateCenterFn;
using lumitest::GuardedImage;

struct Form {
    RotateFn fn;
    RotateCenterFn centre;
    int channels;
};
const Form kForms[] = {{&lumiRotate_8u_C1R, &lumiRotateCenter_8u_C1R, 1},
                       {&lumiRotate_8u_C3R, &lumiRotateCenter_8u_C3R, 3},
                       {&lumiRotate_8u_C4R, &lumiRotateCenter_8u_C4R, 4}};

double reduced(double angle)
{
    double a = angle - (double)(int)(angle / 360.0) * 360.0;
    return a < 0 ? a + 360.0 : a;
}

// ------------------------------------------------------------ reference --

struct Job {
    LumiRect srcRoi, dstRoi;
    double angle, xShift, yShift;
    int interp;
};

// Quarter turn with whole shifts: each source pixel of the region goes
// forward to its place, if that lies in dstRoi.
void ref_quarter(const GuardedImage &src, const Job &j, GuardedImage &dst)
{
    const int n = (int)(reduced(j.angle) + 0.1), sx = (int)j.xShift, sy = (int)j.yShift;
    const int xr = j.srcRoi.x + std::min(j.srcRoi.width, src.width - j.srcRoi.x) - 1;
    const int yb = j.srcRoi.y + std::min(j.srcRoi.height, src.height - j.srcRoi.y) - 1;
    for (int y = j.srcRoi.y; y <= yb; ++y)
        for (int x = j.srcRoi.x; x <= xr; ++x) {
            const int X = n == 90 ? y + sx : n == 180 ? sx - x : sx - y;
            const int Y = n == 90 ? sy - x : n == 180 ? sy - y : x + sy;
            if (X < j.dstRoi.x || X >= j.dstRoi.x + j.dstRoi.width || Y < j.dstRoi.y || Y >= j.dstRoi.y + j.dstRoi.height)
                continue;
            for (int c = 0; c < dst.channels; ++c)
                dst.at(X, Y, c) = const_cast<GuardedImage &>(src).at(x, y, c);
        }
}

struct Geometry {
    double q[4][2], inv[6];
    bool inside(double X, double Y) const
    {
        int pos = 0, neg = 0;
        for (int i = 0; i < 4; ++i) {
            const double *a = q[i], *b = q[(i + 1) & 3];
            const double ex = b[0] - a[0], ey = b[1] - a[1];
            const double cr = ex * (Y - a[1]) - ey * (X - a[0]), tol = 1e-9 * sqrt(ex * ex + ey * ey);
            pos += cr >= -tol;
            neg += cr <= tol;
        }
        return pos == 4 || neg == 4;
    }
};

// The quadrangle of the region's corner centres, and the inverse taken from
// those corners with the factors W (1/det), H (1/det) formed first.
Geometry geometry(const double c[6], int x0, int y0, int x1, int y1)
{
    Geometry g;
    const int xs[4] = {x0, x1, x1, x0}, ys[4] = {y0, y0, y1, y1};
    for (int i = 0; i < 4; ++i)
        g.q[i][0] = c[0] * xs[i] + c[1] * ys[i] + c[2], g.q[i][1] = c[3] * xs[i] + c[4] * ys[i] + c[5];
    const double a = g.q[1][0] - g.q[0][0], b = g.q[2][0] - g.q[1][0], cc = g.q[1][1] - g.q[0][1],
                 d = g.q[2][1] - g.q[1][1];
    const double r = 1.0 / (a * d - b * cc), fw = (x1 - x0) * r, fh = (y1 - y0) * r;
    g.inv[0] = d * fw, g.inv[1] = -b * fw, g.inv[2] = x0 - g.inv[0] * g.q[0][0] - g.inv[1] * g.q[0][1];
    g.inv[3] = -cc * fh, g.inv[4] = a * fh, g.inv[5] = y0 - g.inv[3] * g.q[0][0] - g.inv[4] * g.q[0][1];
    return g;
}

void lin_axis(double v, int max, bool low, int &i, float &f)
{
    if (low) {
        const int t = (int)(v + 1e-7);
        if (t >= max)
            i = max - 1, f = 1.0f;
        else
            i = t, f = (float)v - (float)t;
    } else {
        const float n = (float)v;
        const int t = (int)n;
        i = t == max ? max - 1 : t;
        f = n - (float)i;
    }
}

// The general path, pixel by pixel: which pixels are inside, and the value
// of each from its inverse point, stepped as the walk steps it.
void ref_general(const GuardedImage &src, const Job &j, bool low, GuardedImage &dst)
{
    const double a = reduced(j.angle);
    double c[6] = {0, 0, j.xShift, 0, 0, j.yShift};
    if (a == 90)
        c[1] = 1, c[3] = -1;
    else if (a == 180)
        c[0] = -1, c[4] = -1;
    else if (a == 270)
        c[1] = -1, c[3] = 1;
    else {
        const double r = a / 180.0 * 3.141592653589793;
        c[0] = cos(r), c[1] = sin(r), c[3] = -sin(r), c[4] = cos(r);
    }
    int sel = j.interp & 0x7FFFFFFF;
    if (src.width == 1 || src.height == 1)
        sel = 1;
    else if (sel == 4 && std::min(src.width, src.height) < 4)
        sel = 2;
    const int x1 = j.srcRoi.x + std::min(j.srcRoi.width, src.width - j.srcRoi.x) - 1;
    const int y1 = j.srcRoi.y + std::min(j.srcRoi.height, src.height - j.srcRoi.y) - 1;
    const Geometry g = geometry(c, j.srcRoi.x, j.srcRoi.y, x1, y1);
    const int wMax = src.width - 1, hMax = src.height - 1;
    remapref::SrcView<uint8_t> view;
    for (int e = 0; e < src.channels; ++e)
        view.base.push_back(src.data() + e);
    view.step = src.step, view.stride = src.channels;

    double miny = g.q[0][1];
    for (int i = 1; i < 4; ++i)
        miny = std::min(miny, g.q[i][1]);
    const int yStart = std::max((int)ceil(miny), j.dstRoi.y);
    double rx = g.inv[1] * yStart + g.inv[2], ry = g.inv[4] * yStart + g.inv[5];
    for (int Y = yStart; Y < j.dstRoi.y + j.dstRoi.height; ++Y, rx += g.inv[1], ry += g.inv[4]) {
        int first = -1, last = -2;
        for (int X = j.dstRoi.x; X < j.dstRoi.x + j.dstRoi.width; ++X)
            if (g.inside(X, Y)) {
                if (first < 0)
                    first = X;
                last = X;
            }
        double px[2] = {g.inv[0] * first + rx, 0}, py[2] = {g.inv[3] * first + ry, 0};
        px[1] = px[0] + g.inv[0], py[1] = py[0] + g.inv[3];
        double nx = px[0] + 0.5, ny = py[0] + 0.5, cx = px[0], cy = py[0];
        for (int X = first; X <= last && first >= 0; ++X) {
            const int k = (X - first) & 1;
            uint8_t *d[4];
            for (int e = 0; e < dst.channels; ++e)
                d[e] = &dst.at(X, Y, e);
            const int n = dst.channels == 4 ? 4 : dst.channels;
            if (sel == 1) {
                for (int e = 0; e < n; ++e)
                    *d[e] = (uint8_t)view.at(e, (int)nx, (int)ny);
            } else if (sel == 2) {
                int ix, iy;
                float fx, fy;
                lin_axis(px[k], wMax, low, ix, fx);
                lin_axis(py[k], hMax, low, iy, fy);
                for (int e = 0; e < n; ++e) {
                    const float p00 = (float)view.at(e, ix, iy), p01 = (float)view.at(e, ix + 1, iy);
                    const float p10 = (float)view.at(e, ix, iy + 1), p11 = (float)view.at(e, ix + 1, iy + 1);
                    const float r0 = p00 + (p01 - p00) * fx, r1 = p10 + (p11 - p10) * fx;
                    const float v = r0 + (r1 - r0) * fy + 0.5f;
                    *d[e] = v <= 0 ? 0 : v >= 255 ? 255 : (uint8_t)(int)v;
                }
            } else {
                const remapref::Limits lim = {-1, -1, wMax + 1, hMax + 1, wMax, hMax};
                remapref::ref_pixel<uint8_t, float>(view, lim, sel == 4 ? remapref::CUB : remapref::CR, false, low,
                                                    (float)cx, (float)cy, d, n, nullptr);
            }
            px[k] += g.inv[0] + g.inv[0], py[k] += g.inv[3] + g.inv[3];
            nx += g.inv[0], ny += g.inv[3], cx += g.inv[0], cy += g.inv[3];
        }
    }
}

// ------------------------------------------------------------- fixture --

class Rotate : public lumitest::TierTest {
protected:
    bool low() const { return strcmp(lumitest::serving_tier("lumiRotate_8u_C1R", GetParam()), "m7") == 0; }

    // Runs one job on a fresh source and destination and compares the whole
    // destination buffer with the reference's.
    // tight: the source has no padding and no margin, so a read past its
    // last pixel leaves the buffer (which the sanitizer build reports).
    ::testing::AssertionResult check(const Form &f, LumiSize srcSize, LumiSize dstSize, const Job &j, bool tight = false)
    {
        GuardedImage src(srcSize.width, srcSize.height, f.channels, tight ? 0 : 7, tight ? 0 : 3, tight ? 0 : 64);
        GuardedImage dst(dstSize.width, dstSize.height, f.channels);
        src.fill_guard(), src.fill_random(11), dst.fill_guard(), dst.fill_random(5);
        const GuardedImage before = dst;
        GuardedImage want = dst;
        const double a = reduced(j.angle);
        const bool quarter = (a == 90 || a == 180 || a == 270) && floor(j.xShift) == j.xShift && floor(j.yShift) == j.yShift;
        if (quarter)
            ref_quarter(src, j, want);
        else
            ref_general(src, j, low(), want);
        const LumStatus st = f.fn(src.data(), srcSize, src.step, j.srcRoi, dst.data(), dst.step, j.dstRoi, j.angle,
                                  j.xShift, j.yShift, j.interp);
        // A turned region that misses dstRoi warns, and the reference then
        // writes nothing either.
        const bool missed = st == lumStsNoIntersectRoiWarn || st == lumStsNoIntersectQuadWarn;
        if (st != lumStsNoErr && !(missed && want.buf == before.buf))
            return ::testing::AssertionFailure() << "status " << st;
        for (size_t i = 0; i < dst.buf.size(); ++i)
            if (dst.buf[i] != want.buf[i]) {
                const long off = (long)i - dst.margin;
                return ::testing::AssertionFailure()
                       << "byte " << off << " (row " << off / dst.step << ", column byte " << off % dst.step << ") is "
                       << (int)dst.buf[i] << ", expected " << (int)want.buf[i];
            }
        return ::testing::AssertionSuccess();
    }
};

// Every quarter turn, reached by several angles, with whole shifts that
// place the turned region inside, across an edge and a corner of dstRoi;
// widths beyond one tile and a region inside a larger image.
TEST_P(Rotate, QuarterTurnsCopyExactly)
{
    const double angles[] = {90, 180, 270, 450, -90, -270, 720 + 180};
    const LumiSize src = {41, 23};
    const LumiRect rois[] = {{0, 0, 41, 23}, {5, 3, 35, 17}, {2, 1, 100, 100}};
    const double shifts[][2] = {{0, 40}, {22, 0}, {40, 22}, {-7, 30}, {30, -5}, {12, 12}};
    for (const Form &f : kForms)
        for (double ang : angles)
            for (const LumiRect &roi : rois)
                for (const auto &s : shifts)
                    EXPECT_TRUE(check(f, src, {45, 44}, {roi, {3, 2, 37, 39}, ang, s[0], s[1], 99}))
                        << f.channels << " channels, angle " << ang << ", shift " << s[0] << "," << s[1];
}

// Turns whose sizes fall on and beside the blocks the byte forms move at
// once (8 x 8 bytes, 4 x 4 pixels, 16-byte and four-pixel reversals), the
// whole turned image and a dstRoi that cuts it at odd places, in every
// channel count; the source is tight, so no block reads past it.
TEST_P(Rotate, QuarterTurnsAcrossBlockSizes)
{
    const LumiSize sizes[] = {{8, 8}, {16, 24}, {17, 9}, {4, 4}, {3, 5}, {33, 20}, {1, 7}, {12, 1}};
    for (const Form &f : kForms)
        for (const LumiSize &sz : sizes)
            for (double ang : {90.0, 180.0, 270.0}) {
                const int n = (int)ang, W = sz.width, H = sz.height;
                // Shifts that put the turned image at (2, 1) of the destination.
                const double sx = n == 90 ? 2 : n == 180 ? W - 1 + 2 : H - 1 + 2;
                const double sy = n == 90 ? W - 1 + 1 : n == 180 ? H - 1 + 1 : 1 - 0;
                const LumiSize dsz = {std::max(W, H) + 4, std::max(W, H) + 3};
                for (const LumiRect &d : {LumiRect{0, 0, dsz.width, dsz.height}, LumiRect{3, 2, 9, 6}})
                    EXPECT_TRUE(check(f, sz, dsz, {{0, 0, W, H}, d, ang, sx, sy, LUMI_INTER_NN}, true))
                        << f.channels << " channels, " << W << "x" << H << ", angle " << ang << ", dst " << d.x;
            }
}

// The nearest and linear spans of one and three channels against the
// reference: long spans (many groups of four, the even and odd linear
// accumulators far from their start), spans that start and end at odd
// columns with lengths around a multiple of four, points that run along
// the image's first and last columns and rows (where the linear base is
// held back), and a region at the image's right edge, whose samples must
// not be read past the row.
TEST_P(Rotate, SpansMatchReferenceAcrossGroupsAndEdges)
{
    struct G {
        double angle, xs, ys;
    };
    const G turns[] = {{3, 4.25, -2.5}, {-7, 1.5, 20.75}, {88, 0.5, 150.25}, {180.5, 151.5, 40.25}, {0, 0.5, 0.25}};
    const LumiRect rois[] = {{0, 0, 150, 41}, {137, 5, 13, 30}};
    const LumiRect dsts[] = {{0, 0, 161, 160}, {5, 3, 131, 37}, {7, 0, 9, 160}};
    for (int ch = 0; ch < 2; ++ch)
        for (int sel : {LUMI_INTER_NN, LUMI_INTER_LINEAR})
            for (const G &t : turns)
                for (const LumiRect &roi : rois)
                    for (const LumiRect &d : dsts)
                        EXPECT_TRUE(check(kForms[ch], {150, 41}, {161, 160}, {roi, d, t.angle, t.xs, t.ys, sel}, true))
                            << kForms[ch].channels << " channels, angle " << t.angle << ", selector " << sel
                            << ", roi x " << roi.x << ", dst " << d.x << "," << d.width;
}

// Three-channel linear spans of every length from 1 to 18, around the
// groups of four and the blocks of eight pixels that the vector forms take,
// starting at odd and even columns; some end on a slanted side of the
// turned region, some sample the last columns and rows of a tight source,
// where a block's window loads must stop at the row's end.
TEST_P(Rotate, LinearThreeChannelSpansOfEveryLength)
{
    struct G {
        double angle, xs, ys;
    };
    const G turns[] = {{3, 2.25, 1.5}, {-2.5, 1.75, 1.25}, {181, 31.5, 11.25}};
    for (const G &t : turns)
        for (int x0 : {1, 4, 19, 22})
            for (int w = 1; w <= 18; ++w)
                EXPECT_TRUE(check(kForms[1], {30, 10}, {41, 14}, {{0, 0, 30, 10}, {x0, 1, w, 12}, t.angle, t.xs, t.ys,
                                                                  LUMI_INTER_LINEAR}, true))
                    << "angle " << t.angle << ", dst x " << x0 << ", width " << w;
}

// A W x H image turned by 90 degrees with shift (0, W - 1) fills an H x W
// destination exactly, and the centre forms reach the same copy through
// whole shifts from half-pixel centres.
TEST_P(Rotate, QuarterTurnOfWholeImage)
{
    for (const Form &f : kForms) {
        GuardedImage src(7, 5, f.channels), dst(5, 7, f.channels), viaCentre(5, 7, f.channels);
        src.fill_guard(), src.fill_random(3), dst.fill_guard(), viaCentre.fill_guard();
        ASSERT_EQ(lumStsNoErr, f.fn(src.data(), {7, 5}, src.step, {0, 0, 7, 5}, dst.data(), dst.step,
                                    {0, 0, 5, 7}, 90, 0, 6, LUMI_INTER_LANCZOS));
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 5; ++x)
                for (int c = 0; c < f.channels; ++c)
                    ASSERT_EQ(src.at(6 - y, x, c), dst.at(x, y, c)) << x << "," << y;
        EXPECT_TRUE(dst.guard_intact());
        // Centre (3, 3): shifts 0 and 6, both whole.
        ASSERT_EQ(lumStsNoErr, f.centre(src.data(), {7, 5}, src.step, {0, 0, 7, 5}, viaCentre.data(),
                                        viaCentre.step, {0, 0, 5, 7}, 90, 3, 3, 12345));
        EXPECT_EQ(dst.buf, viaCentre.buf);
    }
}

// The source may run backwards in memory: a negative step is taken as given
// on the exact path.
TEST_P(Rotate, QuarterTurnTakesNegativeStep)
{
    GuardedImage src(9, 6, 3), dst(6, 9, 3), want(6, 9, 3);
    src.fill_guard(), src.fill_random(8), dst.fill_guard(), want.fill_guard();
    const uint8_t *lastRow = src.row(5);
    ASSERT_EQ(lumStsNoErr, lumiRotate_8u_C3R(lastRow, {9, 6}, -src.step, {0, 0, 9, 6}, dst.data(), dst.step,
                                             {0, 0, 6, 9}, 270, 5, 0, LUMI_INTER_LINEAR));
    // Row r of the flipped view is row 5 - r of the image.
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 6; ++x)
            for (int c = 0; c < 3; ++c)
                want.at(x, y, c) = src.at(y, x, c); // 270 about (0,0) shifted by (5, 0) of a flipped image
    EXPECT_EQ(want.buf, dst.buf);
}

// Everything that is not an exact quarter turn, against the reference:
// computed sines, quarter turns with fractional shifts (exact coefficients),
// no turn at all, angles just off a quarter, each selector, regions inside
// larger images, quadrangles cut by dstRoi.
TEST_P(Rotate, GeneralPathMatchesReference)
{
    struct G {
        double angle, xs, ys;
    };
    const G turns[] = {{12, 9.25, -2.5}, {45, 20, -6}, {90, 3.5, 30}, {-135.5, 40.75, 30.5}, {0, 2, 3},
                       {90.0000001, 1, 33}, {200.5, 33.5, 26}, {359.9, -4.5, 0.5}, {348, 3, 9}};
    const LumiRect rois[] = {{0, 0, 33, 27}, {4, 3, 21, 17}};
    const LumiRect dsts[] = {{0, 0, 40, 36}, {6, 5, 19, 23}};
    const int sels[] = {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM};
    for (const Form &f : kForms)
        for (const G &t : turns)
            for (const LumiRect &roi : rois)
                for (const LumiRect &d : dsts)
                    for (int sel : sels)
                        EXPECT_TRUE(check(f, {33, 27}, {41, 37}, {roi, d, t.angle, t.xs, t.ys, sel}))
                            << f.channels << " channels, angle " << t.angle << ", selector " << sel << ", dst "
                            << d.x << "," << d.y;
}

// No turn with whole shifts is a warp whose inverse points are whole source
// positions, so every kernel copies, and every pixel of the shifted region
// is written, its outermost rows and columns included.
TEST_P(Rotate, NoTurnCopiesWithEveryKernel)
{
    for (int sel : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM})
        for (LumiSize s : {LumiSize{6, 8}, LumiSize{13, 4}, LumiSize{2, 2}}) {
            GuardedImage src(s.width, s.height, 3), dst(s.width + 4, s.height + 3, 3);
            src.fill_guard(), src.fill_random(21), dst.fill_guard(), dst.fill_random(22);
            GuardedImage want = dst;
            for (int y = 0; y < s.height; ++y)
                for (int x = 0; x < s.width; ++x)
                    for (int c = 0; c < 3; ++c)
                        want.at(x + 3, y + 2, c) = src.at(x, y, c);
            ASSERT_EQ(lumStsNoErr, lumiRotate_8u_C3R(src.data(), s, src.step, {0, 0, s.width, s.height}, dst.data(),
                                                     dst.step, {0, 0, s.width + 4, s.height + 3}, 0, 3, 2, sel));
            EXPECT_EQ(want.buf, dst.buf) << "selector " << sel << " size " << s.width << "x" << s.height;
        }
}

// The soft edge changes only pixels just outside the slanted sides, each
// to a value between what it held and its neighbour inside; sides along
// dstRoi's borders and axis-parallel sides change nothing.
TEST_P(Rotate, SoftEdgeBlendsOnlyAlongSlantedSides)
{
    const LumiSize s = {24, 18};
    for (const Form &f : kForms)
        for (double ang : {17.0, 0.0}) {
            GuardedImage src(s.width, s.height, f.channels), hard(40, 36, f.channels);
            src.fill_guard(), src.fill_random(4), hard.fill_guard(), hard.fill_random(9);
            GuardedImage before = hard, soft = hard;
            const LumiRect roi = {0, 0, 24, 18}, dr = {2, 3, 35, 30};
            ASSERT_EQ(lumStsNoErr, f.fn(src.data(), s, src.step, roi, hard.data(), hard.step, dr, ang, 8, 6, 2));
            ASSERT_EQ(lumStsNoErr, f.fn(src.data(), s, src.step, roi, soft.data(), soft.step, dr, ang, 8, 6,
                                        2 | LUMI_SMOOTH_EDGE));
            const double r = ang / 180 * 3.141592653589793;
            const double c[6] = {cos(r), sin(r), 8, -sin(r), cos(r), 6};
            const Geometry g = geometry(c, 0, 0, 23, 17);
            int changed = 0;
            for (int y = 0; y < 36; ++y)
                for (int x = 0; x < 40; ++x) {
                    bool near = false;
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx)
                            near = near || g.inside(x + dx, y + dy);
                    for (int ch = 0; ch < f.channels; ++ch) {
                        if (soft.at(x, y, ch) == hard.at(x, y, ch))
                            continue;
                        ++changed;
                        ASSERT_FALSE(g.inside(x, y)) << "inside pixel " << x << "," << y << " changed";
                        ASSERT_TRUE(near) << "far pixel " << x << "," << y << " changed";
                        ASSERT_TRUE(x >= dr.x && x < dr.x + dr.width && y >= dr.y && y < dr.y + dr.height);
                    }
                }
            EXPECT_TRUE(soft.guard_intact());
            if (ang == 0.0)
                EXPECT_EQ(0, changed);
            else
                EXPECT_GT(changed, 20);
        }
}

// A worked blend: a 45-degree side through a flat image over a flat
// destination; each outer pixel takes the inner value in proportion to the
// side's reach towards it, and nothing moves beyond the inner value.
TEST_P(Rotate, SoftEdgeWorkedValues)
{
    std::vector<Lum8u> src(20 * 20, 200), dst(30 * 30, 0);
    ASSERT_EQ(lumStsNoErr, lumiRotate_8u_C1R(src.data(), {20, 20}, 20, {0, 0, 20, 20}, dst.data(), 30,
                                             {0, 0, 30, 30}, 30, 5.25, 12, LUMI_INTER_NN | LUMI_SMOOTH_EDGE));
    int blended = 0;
    for (Lum8u v : dst) {
        EXPECT_LE(v, 200);
        blended += v > 0 && v < 200;
    }
    EXPECT_GT(blended, 20);
}

TEST_P(Rotate, RotateShiftKeepsTheCentre)
{
    double xs = -1, ys = -1;
    EXPECT_EQ(lumStsNullPtrErr, lumiGetRotateShift(1, 2, 30, &xs, nullptr));
    EXPECT_EQ(lumStsNullPtrErr, lumiGetRotateShift(1, 2, 30, nullptr, &ys));
    EXPECT_EQ(-1.0, xs);
    EXPECT_EQ(-1.0, ys);
    const struct {
        double angle, xs, ys;
    } exact[] = {{0, 0, 0}, {90, 1, 2}, {-270, 1, 2}, {180, 3, 1}, {270, 2, -1}, {360, 0, 0}};
    for (const auto &e : exact) {
        ASSERT_EQ(lumStsNoErr, lumiGetRotateShift(1.5, 0.5, e.angle, &xs, &ys));
        EXPECT_EQ(e.xs, xs) << e.angle;
        EXPECT_EQ(e.ys, ys) << e.angle;
    }
    // Any other angle: the centre goes forward onto itself.
    for (double a : {12.0, 123.4, -77.0}) {
        ASSERT_EQ(lumStsNoErr, lumiGetRotateShift(7.25, -3.5, a, &xs, &ys));
        const double r = reduced(a) / 180 * 3.141592653589793;
        EXPECT_NEAR(7.25, cos(r) * 7.25 + sin(r) * -3.5 + xs, 1e-12);
        EXPECT_NEAR(-3.5, -sin(r) * 7.25 + cos(r) * -3.5 + ys, 1e-12);
    }
    // A half turn about a pixel keeps that pixel, through the exact path.
    GuardedImage src(9, 7, 1), dst(9, 7, 1);
    src.fill_guard(), src.fill_random(2), dst.fill_guard(), dst.fill_random(1);
    ASSERT_EQ(lumStsNoErr, lumiRotateCenter_8u_C1R(src.data(), {9, 7}, src.step, {0, 0, 9, 7}, dst.data(), dst.step,
                                                   {0, 0, 9, 7}, 180, 4, 3, 99));
    EXPECT_EQ(src.at(4, 3), dst.at(4, 3));
    EXPECT_EQ(src.at(0, 0), dst.at(8, 6));
}

// Statuses in their order, each with the destination untouched.
TEST_P(Rotate, StatusesInOrderWriteNothing)
{
    GuardedImage src(10, 8, 3), dst(12, 12, 3);
    src.fill_guard(), src.fill_random(6), dst.fill_guard(), dst.fill_random(7);
    const std::vector<uint8_t> before = dst.buf;
    const LumiSize s = {10, 8};
    const LumiRect roi = {0, 0, 10, 8}, dr = {0, 0, 12, 12};
    auto run = [&](const Lum8u *p, Lum8u *d, LumiSize sz, LumiRect r, LumiRect dd, double ang, double xs, double ys,
                   int sel) { return lumiRotate_8u_C3R(p, sz, src.step, r, d, dst.step, dd, ang, xs, ys, sel); };
    const Lum8u *S = src.data();
    Lum8u *D = dst.data();
    for (double ang : {45.0, 90.0}) {
        EXPECT_EQ(lumStsNullPtrErr, run(nullptr, D, {0, 0}, roi, dr, ang, 0, 9, 99));
        EXPECT_EQ(lumStsNullPtrErr, run(S, nullptr, s, roi, dr, ang, 0, 9, 1));
        EXPECT_EQ(lumStsSizeErr, run(S, D, {10, 0}, roi, dr, ang, 0, 9, 99));
        EXPECT_EQ(lumStsSizeErr, run(S, D, s, {-1, 0, 5, 5}, dr, ang, 0, 9, 99));
        EXPECT_EQ(lumStsSizeErr, run(S, D, s, roi, {0, 0, 12, 0}, ang, 0, 9, 99));
        EXPECT_EQ(lumStsNoIntersectRoiWarn, run(S, D, s, {10, 0, 5, 5}, dr, ang, 0, 9, 1));
    }
    // The exact path tests no selector; every other path does, before the
    // region, and refuses Lanczos.
    EXPECT_EQ(lumStsInterpolationErr, run(S, D, s, {10, 0, 5, 5}, dr, 45, 0, 9, 99));
    EXPECT_EQ(lumStsInterpolationErr, run(S, D, s, roi, dr, 45, 0, 9, LUMI_INTER_LANCZOS));
    EXPECT_EQ(lumStsInterpolationErr, run(S, D, s, roi, dr, 90, 0.5, 9, LUMI_INTER_SUPER));
    // A region cut to one column has no inverse.
    EXPECT_EQ(lumStsCoeffErr, run(S, D, s, {9, 0, 5, 8}, dr, 45, 0, 9, 2));
    // Missing dstRoi: 29 for an exact quarter turn, 30 for any other.
    EXPECT_EQ(lumStsNoIntersectRoiWarn, run(S, D, s, roi, dr, 90, 100, 9, 1));
    EXPECT_EQ(lumStsNoIntersectQuadWarn, run(S, D, s, roi, dr, 90, 100.5, 9, 1));
    EXPECT_EQ(lumStsNoIntersectQuadWarn, run(S, D, s, roi, dr, 30, -40, -40, 1));
    // A quadrangle wholly beside dstRoi.
    EXPECT_EQ(lumStsNoIntersectQuadWarn, run(S, D, s, {0, 0, 2, 2}, {0, 0, 1, 1}, 0, 0.25, 0.25, 1));
    EXPECT_EQ(before, dst.buf);
}

// Every allocation of a warp failed in turn: a span table that cannot be
// had reports 30, a coordinate row -9; nothing written, nothing leaked.
TEST_P(Rotate, EveryAllocationFailure)
{
    GuardedImage src(16, 12, 4), dst(20, 20, 4);
    src.fill_guard(), src.fill_random(6), dst.fill_guard(), dst.fill_random(7);
    const std::vector<uint8_t> before = dst.buf;
    for (int sel : {LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM}) {
        const int n = lumitest::for_each_alloc_failure(
            [&] {
                dst.buf = before;
                return lumiRotate_8u_C4R(src.data(), {16, 12}, src.step, {0, 0, 16, 12}, dst.data(), dst.step,
                                         {0, 0, 20, 20}, 33, 8, 2, sel | LUMI_SMOOTH_EDGE);
            },
            [&](LumStatus st, int k, int outstanding) {
                EXPECT_EQ(k == 1 ? lumStsNoIntersectQuadWarn : lumStsMemAllocErr, st) << "allocation " << k;
                EXPECT_EQ(0, outstanding);
                EXPECT_EQ(before, dst.buf) << "allocation " << k;
            });
        EXPECT_EQ(sel == LUMI_INTER_LINEAR ? 1 : 2, n);
    }
}

// ------------------------------------------------- every type and layout --

// Images of any element size and layout as byte planes: one plane holding
// interleaved pixels, or 3 or 4 planes of one element each.
struct AnyImage {
    int esize, stride, moved, planes, step;
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<void *> ptrs;

    AnyImage(int layout, int es, int w, int h, uint32_t seed) : esize(es)
    {
        planes = layout == 3 ? 3 : layout == 5 ? 4 : 1;
        stride = planes > 1 || layout == 0 ? 1 : layout == 1 ? 3 : 4;
        moved = planes > 1 ? 1 : layout == 2 ? 3 : stride;
        step = w * stride * es + 5;
        for (int p = 0; p < planes; ++p) {
            std::vector<uint8_t> b((size_t)step * h);
            for (auto &v : b)
                v = (uint8_t)((seed = seed * 1664525u + 1013904223u) >> 24);
            bytes.push_back(b);
        }
        for (auto &b : bytes)
            ptrs.push_back(b.data());
    }
    void *arg() { return planes > 1 ? (void *)ptrs.data() : ptrs[0]; }
    uint8_t *at(int p, int x, int y, int e) { return &bytes[p][(size_t)y * step + (x * stride + e) * esize]; }
};

// Every slot of the exact turns, in every tier: each element size and
// layout, each quarter, against the forward placement of each pixel (AC4
// keeps the fourth element; planar forms turn each plane).
TEST(RotateMembers, QuarterTurnsOfEveryTypeAndLayout)
{
    const int sizes[4] = {1, 4, 2, 8}; // by type code 0, 8, 16, 24
    const int W = 37, H = 19, DW = 23, DH = 40;
    for (const lumitest::TierMembers &m : lumitest::runnable_tier_members())
        for (int t = 0; t < 4; ++t)
            for (int layout = 0; layout < 6; ++layout)
                for (int n : {90, 180, 270}) {
                    AnyImage src(layout, sizes[t], W, H, 3), dst(layout, sizes[t], DW, DH, 4), want = dst;
                    const LumiRect roi = {2, 1, 34, 17}, dr = {1, 2, 20, 37};
                    const int sx = n == 90 ? -1 : n == 180 ? 30 : 25, sy = n == 90 ? 36 : n == 180 ? 30 : 0;
                    for (int y = roi.y; y < roi.y + roi.height; ++y)
                        for (int x = roi.x; x < roi.x + roi.width; ++x) {
                            const int X = n == 90 ? y + sx : n == 180 ? sx - x : sx - y;
                            const int Y = n == 90 ? sy - x : n == 180 ? sy - y : x + sy;
                            if (X < dr.x || X >= dr.x + dr.width || Y < dr.y || Y >= dr.y + dr.height)
                                continue;
                            for (int p = 0; p < src.planes; ++p)
                                for (int e = 0; e < src.moved; ++e)
                                    memcpy(want.at(p, X, Y, e), src.at(p, x, y, e), sizes[t]);
                        }
                    ASSERT_EQ(lumStsNoErr, m.ownpi_Rotate(src.arg(), {W, H}, src.step, roi, dst.arg(), dst.step, dr,
                                                          t * 8 + layout, n, sx, sy, 0));
                    ASSERT_EQ(want.bytes, dst.bytes) << m.name << " type " << t * 8 << " layout " << layout
                                                     << " angle " << n;
                }
}

LUMI_INSTANTIATE_TIERS(Rotate);

} // namespace
