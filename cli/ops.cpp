// The operation table of the lumi command: one row per primitive it can
// call, with the call shapes those rows share.
//
// A shape sizes the result, prepares the buffers the primitive reads and
// writes, and times the call alone.  The region (--roi) is processed in
// place within a copy of the input, so the result shows it in context (the
// shapes that change the layout copy the input into the new layout first),
// and resize scales the region alone.  Neighbourhood filters read a footprint
// around the region: where it leaves the picture, the shape supplies the
// nearest edge pixel, as the library generates no border of its own.
#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>

#include "lumi_cli.h"

namespace cli {

namespace {

template <typename Call>
LumStatus timed(Job &job, Call call)
{
    auto t0 = std::chrono::steady_clock::now();
    LumStatus st = call();
    job.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return st;
}

LumiSize roi_size(const Params &p)
{
    return {p.roi.width, p.roi.height};
}

// Interleaved in, interleaved out, one pixel for one pixel.
template <typename Fn>
LumStatus run_pixels(const Op &, Job &job)
{
    const Image &in = *job.in;
    const LumiRect &r = job.p.roi;
    job.out = in;
    return timed(job, [&] {
        return ((Fn)job.fn)(in.at(r.x, r.y), in.step(), job.out.at(r.x, r.y), job.out.step(),
                                  roi_size(job.p));
    });
}

// Interleaved RGB in, three planes stacked in one grey image out.
template <typename Fn>
LumStatus run_to_planes(const Op &, Job &job)
{
    const Image &in = *job.in;
    const LumiRect &r = job.p.roi;
    if (!make_image(&job.out, in.width, in.height * 3, 1, &job.error))
        return 1;
    // Outside the region each plane keeps its channel of the input.
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < in.height; ++y)
            for (int x = 0; x < in.width; ++x)
                *job.out.at(x, c * in.height + y) = in.at(x, y)[c];
    Lum8u *planes[3];
    for (int c = 0; c < 3; ++c)
        planes[c] = job.out.at(r.x, c * in.height + r.y);
    return timed(job, [&] {
        return ((Fn)job.fn)(in.at(r.x, r.y), in.step(), planes, job.out.step(),
                                    roi_size(job.p));
    });
}

// Three stacked planes in, interleaved RGB out.
template <typename Fn>
LumStatus run_from_planes(const Op &, Job &job)
{
    const Image &in = *job.in;
    const LumiRect &r = job.p.roi;
    int h = in.height / 3;
    if (!make_image(&job.out, in.width, h, 3, &job.error))
        return 1;
    // Outside the region each pixel keeps its three planes' values.
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < in.width; ++x)
                job.out.at(x, y)[c] = *in.at(x, c * h + y);
    const Lum8u *planes[3];
    for (int c = 0; c < 3; ++c)
        planes[c] = in.at(r.x, c * h + r.y);
    return timed(job, [&] {
        return ((Fn)job.fn)(planes, in.step(), job.out.at(r.x, r.y), job.out.step(),
                                      roi_size(job.p));
    });
}

// Three stacked planes in, three stacked planes out.
template <typename Fn>
LumStatus run_planes(const Op &, Job &job)
{
    const Image &in = *job.in;
    const LumiRect &r = job.p.roi;
    int h = in.height / 3;
    job.out = in;
    const Lum8u *src[3];
    Lum8u *dst[3];
    for (int c = 0; c < 3; ++c) {
        src[c] = in.at(r.x, c * h + r.y);
        dst[c] = job.out.at(r.x, c * h + r.y);
    }
    return timed(job, [&] {
        return ((Fn)job.fn)(src, in.step(), dst, job.out.step(), roi_size(job.p));
    });
}

// The footprint of a filter over the region: `before` pixels left and above
// it, `after` right and below, the picture's edge pixels repeated outside it.
// `spare` more rows stand below, which the in-place engines may read.
struct Footprint {
    Image img;
    int left, top;
};

bool make_footprint_at(const Image &in, const Params &p, int left, int top, int spare,
                       Footprint *f, std::string *err)
{
    int mw = std::max(p.mask.width, 1), mh = std::max(p.mask.height, 1);
    f->left = left;
    f->top = top;
    int w = p.roi.width + mw - 1, h = p.roi.height + mh - 1 + spare;
    if (!make_image(&f->img, w, h, in.channels, err))
        return false;
    for (int y = 0; y < h; ++y) {
        int sy = std::min(std::max(p.roi.y - f->top + y, 0), in.height - 1);
        for (int x = 0; x < w; ++x) {
            int sx = std::min(std::max(p.roi.x - f->left + x, 0), in.width - 1);
            memcpy(f->img.at(x, y), in.at(sx, sy), in.channels);
        }
    }
    return true;
}

bool make_footprint(const Image &in, const Params &p, int spare, Footprint *f, std::string *err)
{
    // An anchor outside the mask is refused by the library before it reads
    // anything; clamp only so that the buffer stays well formed.
    int mw = std::max(p.mask.width, 1), mh = std::max(p.mask.height, 1);
    return make_footprint_at(in, p, std::min(std::max(p.anchor.x, 0), mw - 1),
                             std::min(std::max(p.anchor.y, 0), mh - 1), spare, f, err);
}

template <typename Fn>
LumStatus run_filter(const Op &, Job &job)
{
    Footprint f;
    if (!make_footprint(*job.in, job.p, 0, &f, &job.error))
        return 1;
    const LumiRect &r = job.p.roi;
    job.out = *job.in;
    return timed(job, [&] {
        return ((Fn)job.fn)(f.img.at(f.left, f.top), f.img.step(), job.out.at(r.x, r.y),
                                  job.out.step(), roi_size(job.p), job.p.mask, job.p.anchor);
    });
}

template <typename Fn>
LumStatus run_filter_in_place(const Op &, Job &job)
{
    Footprint f;
    if (!make_footprint(*job.in, job.p, std::max(job.p.mask.height, 1), &f, &job.error))
        return 1;
    LumStatus st = timed(job, [&] {
        return ((Fn)job.fn)(f.img.at(f.left, f.top), f.img.step(), roi_size(job.p),
                                         job.p.mask, job.p.anchor);
    });
    const LumiRect &r = job.p.roi;
    job.out = *job.in;
    for (int y = 0; y < r.height; ++y)
        memcpy(job.out.at(r.x, r.y + y), f.img.at(f.left, f.top + y),
               (size_t)r.width * f.img.channels);
    return st;
}

// Named kernels for --kernel; a preset's divisor applies unless --divisor
// is given, and the float forms take the cells already divided.
struct KernelPreset {
    const char *name;
    int w, h, divisor;
    double cells[25];
};
const KernelPreset kKernelPresets[] = {
    {"sharpen", 3, 3, 1, {0, -1, 0, -1, 5, -1, 0, -1, 0}},
    {"emboss", 3, 3, 1, {-2, -1, 0, -1, 1, 1, 0, 1, 2}},
    {"edge", 3, 3, 1, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
    {"blur", 3, 3, 16, {1, 2, 1, 2, 4, 2, 1, 2, 1}},
    {"gauss5", 5, 5, 256, {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6,
                           4, 16, 24, 16, 4, 1, 4, 6, 4, 1}},
};

const KernelPreset *find_preset(const std::string &name)
{
    for (const KernelPreset &k : kKernelPresets)
        if (name == k.name)
            return &k;
    return nullptr;
}

// The kernel of the job: the one given, or the sharpen preset.
void settle_kernel(Params *p)
{
    if (!p->kernel.empty())
        return;
    const KernelPreset &k = kKernelPresets[0];
    p->kernel.assign(k.cells, k.cells + k.w * k.h);
    p->mask = {k.w, k.h};
}

// The integer form takes the cells as integers and the divisor, the float
// form the cells as floats.
LumStatus call_convolution(decltype(&lumiFilter_8u_C1R) fn, const Lum8u *src, int32_t srcStep,
                           Lum8u *dst, int32_t dstStep, LumiSize roi, const Lum32s *ki,
                           const Lum32f *, LumiSize k, LumiPoint a, int divisor)
{
    return fn(src, srcStep, dst, dstStep, roi, ki, k, a, divisor);
}

LumStatus call_convolution(decltype(&lumiFilter32f_8u_C1R) fn, const Lum8u *src, int32_t srcStep,
                           Lum8u *dst, int32_t dstStep, LumiSize roi, const Lum32s *,
                           const Lum32f *kf, LumiSize k, LumiPoint a, int)
{
    return fn(src, srcStep, dst, dstStep, roi, kf, k, a);
}

// The footprint of a mirrored kernel: the window reaches kw - 1 - ax pixels
// left of the output pixel and kh - 1 - ay rows above it.
template <typename Fn>
LumStatus run_convolution(const Op &, Job &job)
{
    Params &p = job.p;
    Footprint f;
    if (!make_footprint_at(*job.in, p, p.mask.width - 1 - p.anchor.x,
                           p.mask.height - 1 - p.anchor.y, 0, &f, &job.error))
        return 1;
    const LumiRect &r = p.roi;
    job.out = *job.in;
    std::vector<Lum32s> ki(p.kernel.begin(), p.kernel.end());
    std::vector<Lum32f> kf(p.kernel.begin(), p.kernel.end());
    return timed(job, [&] {
        return call_convolution((Fn)job.fn, f.img.at(f.left, f.top), f.img.step(),
                                job.out.at(r.x, r.y), job.out.step(), roi_size(p), ki.data(),
                                kf.data(), p.mask, p.anchor, p.divisor);
    });
}

// A fixed-window filter (Gaussian, colour median) takes its mask as a
// selector, width in the tens digit and height in the units; the footprint
// is centred on each pixel.
template <typename Fn>
LumStatus run_gauss(const Op &, Job &job)
{
    Footprint f;
    if (!make_footprint(*job.in, job.p, 0, &f, &job.error))
        return 1;
    const LumiRect &r = job.p.roi;
    const LumiMaskSize mask = (LumiMaskSize)(job.p.mask.width * 10 + job.p.mask.height);
    job.out = *job.in;
    return timed(job, [&] {
        return ((Fn)job.fn)(f.img.at(f.left, f.top), f.img.step(), job.out.at(r.x, r.y),
                                 job.out.step(), roi_size(job.p), mask);
    });
}

// The bilateral filter sizes its state block, builds it, and filters; the
// window is centred, and only the filter call is timed.
template <typename Fn>
LumStatus run_bilateral(const Op &, Job &job)
{
    const Params &p = job.p;
    // The window reaches mask / 2 pixels each way, also for even sides.
    Params reach = p;
    reach.mask = {(std::max(p.mask.width, 1) / 2) * 2 + 1, (std::max(p.mask.height, 1) / 2) * 2 + 1};
    Footprint f;
    if (!make_footprint_at(*job.in, reach, reach.mask.width / 2, reach.mask.height / 2, 0, &f,
                           &job.error))
        return 1;
    auto get_size = (decltype(&lumiFilterBilateralGetBufSize_8u_C1R))job.helpers[0];
    auto init = (decltype(&lumiFilterBilateralInit_8u_C1R))job.helpers[1];
    const int kind = lumiFilterBilateralGauss;
    int32_t size = 0;
    LumStatus st = get_size(kind, roi_size(p), p.mask, &size);
    if (st != lumStsNoErr)
        return st;
    std::vector<Lum8u> block((size_t)size);
    st = init(kind, p.mask, p.sigma_value, p.sigma_position, p.step, block.data());
    if (st != lumStsNoErr)
        return st;
    const LumiRect &r = p.roi;
    job.out = *job.in;
    return timed(job, [&] {
        return ((Fn)job.fn)(f.img.at(f.left, f.top), f.img.step(), job.out.at(r.x, r.y),
                            job.out.step(), roi_size(p), p.mask, block.data());
    });
}

// The result's size along one axis as the library works it out: the
// truncated scaled length, at least one pixel (a length below one half is
// refused by the library itself).
int scaled_length(int length, double factor)
{
    double scaled = length * factor + 1e-7;
    if (!(scaled >= 1.0))
        return 1;
    return scaled >= 2147483647.0 ? 2147483647 : (int)scaled;
}

template <typename Fn>
LumStatus run_resize(const Op &, Job &job)
{
    const Image &in = *job.in;
    Params &p = job.p;
    if (p.size.width > 0) {
        p.fx = (double)p.size.width / p.roi.width;
        p.fy = (double)p.size.height / p.roi.height;
    }
    int w = scaled_length(p.roi.width, p.fx), h = scaled_length(p.roi.height, p.fy);
    if (!make_image(&job.out, w, h, in.channels, &job.error))
        return 1;
    return timed(job, [&] {
        return ((Fn)job.fn)(in.pixels.data(), {in.width, in.height}, in.step(), p.roi,
                                  job.out.pixels.data(), job.out.step(), {w, h}, p.fx, p.fy,
                                  p.method);
    });
}

// Remap's built-in maps, about the picture's centre: a rotation by an angle
// in degrees, a lens barrel whose sampling radius grows by 1 + k r^2 (r = 1
// at the corners), and a wave that shifts columns and rows by a sine of the
// other coordinate with an amplitude in pixels and a period of 40 pixels.
void fill_map(const Params &p, int w, int h, std::vector<Lum32f> *xm, std::vector<Lum32f> *ym)
{
    xm->resize((size_t)w * h);
    ym->resize((size_t)w * h);
    const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0, a = p.map_amount;
    // Quarter turns are exact: cos and sin of them are snapped to -1, 0, 1.
    const bool quarter = fmod(a, 90.0) == 0.0;
    const double rad = a * M_PI / 180.0;
    const double c = quarter ? round(cos(rad)) : cos(rad), s = quarter ? round(sin(rad)) : sin(rad);
    const double r2 = cx * cx + cy * cy > 0 ? cx * cx + cy * cy : 1.0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double dx = x - cx, dy = y - cy;
            double sx = x, sy = y;
            if (p.map == kMapRotate) {
                sx = cx + c * dx + s * dy;
                sy = cy - s * dx + c * dy;
            } else if (p.map == kMapBarrel) {
                const double f = 1.0 + a * (dx * dx + dy * dy) / r2;
                sx = cx + dx * f;
                sy = cy + dy * f;
            } else {
                sx = x + a * sin(2.0 * M_PI * y / 40.0);
                sy = y + a * sin(2.0 * M_PI * x / 40.0);
            }
            (*xm)[(size_t)y * w + x] = (Lum32f)sx;
            (*ym)[(size_t)y * w + x] = (Lum32f)sy;
        }
}

// The whole picture is the destination, over a copy of the input, so that
// pixels whose coordinate leaves the region keep the input's value (or fade
// to it with the soft edge); the region limits what is sampled.
template <typename Fn>
LumStatus run_remap(const Op &, Job &job)
{
    const Image &in = *job.in;
    const Params &p = job.p;
    std::vector<Lum32f> xm, ym;
    fill_map(p, in.width, in.height, &xm, &ym);
    job.out = in;
    const int32_t interpolation = p.method | (p.soft_edge ? LUMI_SMOOTH_EDGE : 0);
    const int32_t mapStep = in.width * (int32_t)sizeof(Lum32f);
    return timed(job, [&] {
        return ((Fn)job.fn)(in.pixels.data(), {in.width, in.height}, in.step(), p.roi, xm.data(),
                            mapStep, ym.data(), mapStep, job.out.pixels.data(), job.out.step(),
                            {in.width, in.height}, interpolation);
    });
}

// Rotation into a picture of the input's size, black where the turned region
// does not reach; the centre form turns about --centre (by default the
// region's centre), the shift form moves by --shift.
template <typename Fn>
LumStatus run_rotate(const Op &op, Job &job)
{
    const Image &in = *job.in;
    Params &p = job.p;
    if (!make_image(&job.out, in.width, in.height, in.channels, &job.error))
        return 1;
    if ((op.options & kOptCentre) && !p.centre_given)
        p.centre[0] = p.roi.x + (p.roi.width - 1) / 2.0, p.centre[1] = p.roi.y + (p.roi.height - 1) / 2.0;
    const double *where = (op.options & kOptCentre) ? p.centre : p.shift;
    const int method = p.method | (p.soft_edge ? LUMI_SMOOTH_EDGE : 0);
    return timed(job, [&] {
        return ((Fn)job.fn)(in.pixels.data(), {in.width, in.height}, in.step(), p.roi,
                            job.out.pixels.data(), job.out.step(), {0, 0, in.width, in.height}, p.angle,
                            where[0], where[1], method);
    });
}

const unsigned kFilter = kOptMask | kOptAnchor;
const unsigned kResize = kOptScale | kOptMethod;
const unsigned kConvolution = kOptKernel | kOptAnchor;
const unsigned kRotateCentre = kOptAngle | kOptCentre | kOptMethod;
const unsigned kRotateShift = kOptAngle | kOptShift | kOptMethod;

// A row names its primitive once: the shape is instantiated with the
// primitive's type from the public header, so a shape that calls it with
// other arguments does not compile.
#define LUMI_CLI_OP(name, alias, channels, in, out, options, shape, summary) \
    {#name, alias, channels, in, out, options, shape<decltype(&name)>, summary, {nullptr, nullptr}}
// A row whose call needs two more primitives of the library.
#define LUMI_CLI_OP_HELPED(name, helper0, helper1, alias, channels, in, out, options, shape,    \
                           summary)                                                            \
    {#name, alias, channels, in, out, options, shape<decltype(&name)>, summary,                 \
     {#helper0, #helper1}}

const std::vector<Op> kOps = {
    LUMI_CLI_OP(lumiCopy_8u_C3P3R, "split", 3, kInterleaved, kPlanes, 0, run_to_planes,
     "interleaved RGB to three planes"),
    LUMI_CLI_OP(lumiCopy_8u_P3C3R, "merge", 3, kPlanes, kInterleaved, 0, run_from_planes,
     "three planes to interleaved RGB"),
    LUMI_CLI_OP(lumiRGBToYUV_8u_C3R, "rgb2yuv", 3, kInterleaved, kInterleaved, 0, run_pixels,
     "RGB to YUV, interleaved"),
    LUMI_CLI_OP(lumiYUVToRGB_8u_C3R, "yuv2rgb", 3, kInterleaved, kInterleaved, 0, run_pixels,
     "YUV to RGB, interleaved"),
    LUMI_CLI_OP(lumiRGBToYUV_8u_C3P3R, "rgb2yuv-planes", 3, kInterleaved, kPlanes, 0, run_to_planes,
     "interleaved RGB to Y, U and V planes"),
    LUMI_CLI_OP(lumiYUVToRGB_8u_P3C3R, "yuv2rgb-planes", 3, kPlanes, kInterleaved, 0, run_from_planes,
     "Y, U and V planes to interleaved RGB"),
    LUMI_CLI_OP(lumiRGBToHLS_8u_C3R, "rgb2hls", 3, kInterleaved, kInterleaved, 0, run_pixels,
     "RGB to H, L, S, interleaved"),
    LUMI_CLI_OP(lumiHLSToRGB_8u_C3R, "hls2rgb", 3, kInterleaved, kInterleaved, 0, run_pixels,
     "H, L, S to RGB, interleaved"),
    LUMI_CLI_OP(lumiBGRToHLS_8u_P3R, "bgr2hls-planes", 3, kPlanes, kPlanes, 0, run_planes,
     "B, G, R planes to H, L, S planes"),
    LUMI_CLI_OP(lumiHLSToBGR_8u_P3R, "hls2bgr-planes", 3, kPlanes, kPlanes, 0, run_planes,
     "H, L, S planes to B, G, R planes"),
    LUMI_CLI_OP(lumiResize_8u_C1R, "resize", 1, kInterleaved, kInterleaved, kResize, run_resize,
     "scale a grey picture"),
    LUMI_CLI_OP(lumiResize_8u_C3R, "resize", 3, kInterleaved, kInterleaved, kResize, run_resize,
     "scale an RGB picture"),
    LUMI_CLI_OP(lumiRemap_8u_C1R, "remap", 1, kInterleaved, kInterleaved, kOptMap | kOptMethod,
     run_remap, "warp a grey picture through a built-in map"),
    LUMI_CLI_OP(lumiRemap_8u_C3R, "remap", 3, kInterleaved, kInterleaved, kOptMap | kOptMethod,
     run_remap, "warp an RGB picture through a built-in map"),
    LUMI_CLI_OP(lumiFilterBox_8u_C1R, "box", 1, kInterleaved, kInterleaved, kFilter, run_filter,
     "mean of a rectangle, grey"),
    LUMI_CLI_OP(lumiFilterBox_8u_C3R, "box", 3, kInterleaved, kInterleaved, kFilter, run_filter,
     "mean of a rectangle, RGB"),
    LUMI_CLI_OP(lumiFilterBox_8u_C1IR, "box-inplace", 1, kInterleaved, kInterleaved, kFilter,
     run_filter_in_place, "mean of a rectangle in place, grey"),
    LUMI_CLI_OP(lumiFilterBox_8u_C3IR, "box-inplace", 3, kInterleaved, kInterleaved, kFilter,
     run_filter_in_place, "mean of a rectangle in place, RGB"),
    LUMI_CLI_OP(lumiFilterMedian_8u_C1R, "median", 1, kInterleaved, kInterleaved, kFilter, run_filter,
     "median of a rectangle, grey"),
    LUMI_CLI_OP(lumiFilterMedian_8u_C3R, "median", 3, kInterleaved, kInterleaved, kFilter, run_filter,
     "median of a rectangle per channel, RGB"),
    LUMI_CLI_OP(lumiFilterMedianColor_8u_C3R, "median-color", 3, kInterleaved, kInterleaved,
     kOptMask, run_gauss, "vector median, 3x3 or 5x5: the window's own pixel nearest the rest, RGB"),
    LUMI_CLI_OP(lumiFilter_8u_C1R, "filter", 1, kInterleaved, kInterleaved,
     kConvolution | kOptDivisor, run_convolution, "integer kernel and divisor, grey"),
    LUMI_CLI_OP(lumiFilter_8u_C3R, "filter", 3, kInterleaved, kInterleaved,
     kConvolution | kOptDivisor, run_convolution, "integer kernel and divisor, RGB"),
    LUMI_CLI_OP(lumiFilter32f_8u_C1R, "filter32f", 1, kInterleaved, kInterleaved, kConvolution,
     run_convolution, "float kernel, grey"),
    LUMI_CLI_OP(lumiFilter32f_8u_C3R, "filter32f", 3, kInterleaved, kInterleaved, kConvolution,
     run_convolution, "float kernel, RGB"),
    LUMI_CLI_OP(lumiFilterGauss_8u_C1R, "gauss", 1, kInterleaved, kInterleaved, kOptMask, run_gauss,
     "Gaussian smoothing, 3x3 or 5x5, grey"),
    LUMI_CLI_OP(lumiFilterGauss_8u_C3R, "gauss", 3, kInterleaved, kInterleaved, kOptMask, run_gauss,
     "Gaussian smoothing, 3x3 or 5x5, RGB"),
    LUMI_CLI_OP(lumiFilterMin_8u_C1R, "min", 1, kInterleaved, kInterleaved, kFilter, run_filter,
     "smallest value of a rectangle, grey"),
    LUMI_CLI_OP(lumiFilterMax_8u_C1R, "max", 1, kInterleaved, kInterleaved, kFilter, run_filter,
     "largest value of a rectangle, grey"),
    LUMI_CLI_OP_HELPED(lumiFilterBilateral_8u_C1R, lumiFilterBilateralGetBufSize_8u_C1R,
     lumiFilterBilateralInit_8u_C1R, "bilateral", 1, kInterleaved, kInterleaved,
     kOptMask | kOptBilateral, run_bilateral, "edge-keeping smoothing, grey"),
    LUMI_CLI_OP(lumiRotateCenter_8u_C1R, "rotate", 1, kInterleaved, kInterleaved, kRotateCentre,
     run_rotate, "turn about a point, grey"),
    LUMI_CLI_OP(lumiRotateCenter_8u_C3R, "rotate", 3, kInterleaved, kInterleaved, kRotateCentre,
     run_rotate, "turn about a point, RGB"),
    LUMI_CLI_OP(lumiRotate_8u_C1R, "rotate-shift", 1, kInterleaved, kInterleaved, kRotateShift,
     run_rotate, "turn about the origin and shift, grey"),
    LUMI_CLI_OP(lumiRotate_8u_C3R, "rotate-shift", 3, kInterleaved, kInterleaved, kRotateShift,
     run_rotate, "turn about the origin and shift, RGB"),
};

// ------------------------------------------------------------- options --

bool parse_int(const std::string &s, int lo, int hi, int *v)
{
    char *end = nullptr;
    errno = 0;
    long n = strtol(s.c_str(), &end, 10);
    if (s.empty() || *end || errno || n < lo || n > hi)
        return false;
    *v = (int)n;
    return true;
}

// "A<sep>B<sep>..." into n integers in lo..hi.
bool parse_ints(const std::string &s, char sep, int n, int lo, int hi, int *out)
{
    size_t pos = 0;
    for (int i = 0; i < n; ++i) {
        size_t next = i + 1 < n ? s.find(sep, pos) : s.size();
        if (next == std::string::npos || !parse_int(s.substr(pos, next - pos), lo, hi, &out[i]))
            return false;
        pos = next + 1;
    }
    return true;
}

bool parse_double(const std::string &s, double *v)
{
    char *end = nullptr;
    *v = strtod(s.c_str(), &end);
    return !s.empty() && !*end && isfinite(*v);
}

const int kMaxMaskSide = 1024;

struct OptionInfo {
    const char *key;
    unsigned bit;
    const char *help;
};

// The interpolation selectors by name, in the order of their numbers.
const struct {
    const char *name;
    int code;
    const char *what;
} kMethods[] = {{"nn", LUMI_INTER_NN, "nearest neighbour"},
                {"linear", LUMI_INTER_LINEAR, "linear (the default)"},
                {"cubic", LUMI_INTER_CUBIC, "four-point cubic"},
                {"catmullrom", LUMI_INTER_CATMULLROM, "Catmull-Rom (remap and rotate only)"},
                {"super", LUMI_INTER_SUPER, "supersampling, shrinking only"},
                {"lanczos", LUMI_INTER_LANCZOS, "Lanczos, three lobes"}};

std::string method_help()
{
    std::string s = "--method M       a name or its selector number:\n";
    for (const auto &m : kMethods) {
        char line[96];
        snprintf(line, sizeof line, "                     %-11s %2d  %s\n", m.name, m.code, m.what);
        s += line;
    }
    return s + "                   any other number is passed to the library as it is";
}

const OptionInfo kOptions[] = {
    {"--mask", kOptMask, "--mask WxH       window size (default 3x3; N means NxN)"},
    {"--anchor", kOptAnchor,
     "--anchor X,Y     output pixel's place in the window (default its centre)"},
    {"--scale", kOptScale, "--scale F        factor for both axes (default 1)"},
    {"--fx", kOptScale, "--fx F, --fy F   factor for one axis"},
    {"--fy", kOptScale, nullptr},
    {"--size", kOptScale, "--size WxH       result size instead of factors"},
    {"--method", kOptMethod, nullptr}, // method_help()
    {"--kernel", kOptKernel,
     "--kernel K       \"a,b,c;d,e,f;...\" rows of cells, or sharpen, emboss, edge, blur,\n"
     "                   gauss5 (default sharpen)"},
    {"--divisor", kOptDivisor, "--divisor N      the sum is divided by N (default 1, or the preset's)"},
    {"--sigma-value", kOptBilateral,
     "--sigma-value V  squared sigma of the value weight (default 900)"},
    {"--sigma-position", kOptBilateral,
     "--sigma-position P\n                   squared sigma of the position weight (default 9)"},
    {"--step", kOptBilateral, "--step S         every S-th pixel of the window (default 1)"},
    {"--rotate", kOptMap, "--rotate DEG     map: rotation about the centre (the default, 12 degrees)"},
    {"--barrel", kOptMap, "--barrel K       map: lens barrel, radius grows by 1 + K r^2 (r = 1 at corners)"},
    {"--wave", kOptMap, "--wave PIXELS    map: sine wave of that amplitude, period 40 pixels"},
    {"--edge", kOptMap, "--edge soft|hard soft: fade over one pixel at the region's edge (default hard)"},
    {"--angle", kOptAngle, "--angle A        degrees, counter-clockwise on screen (default 0)"},
    {"--soft-edge", kOptAngle, "--soft-edge      blend the pixels along the turned region's slanted sides"},
    {"--centre", kOptCentre, "--centre X,Y     the point that stays in place (default the region's centre)"},
    {"--shift", kOptShift, "--shift X,Y      shift after turning about the origin (default 0,0)"},
};

// "a,b;c,d" into cells and a size; every row as long as the first.
bool parse_kernel(const std::string &value, bool integers, Params *p)
{
    if (const KernelPreset *k = find_preset(value)) {
        p->kernel.assign(k->cells, k->cells + k->w * k->h);
        p->mask = {k->w, k->h};
        if (!integers)
            for (double &c : p->kernel)
                c /= k->divisor;
        else if (!p->divisor_given)
            p->divisor = k->divisor;
        return true;
    }
    std::vector<double> cells;
    int w = 0, h = 0;
    size_t pos = 0;
    while (pos <= value.size()) {
        size_t end = value.find(';', pos);
        if (end == std::string::npos)
            end = value.size();
        const std::string row = value.substr(pos, end - pos);
        int n = 0;
        size_t c = 0;
        while (c <= row.size()) {
            size_t next = row.find(',', c);
            if (next == std::string::npos)
                next = row.size();
            const std::string cell = row.substr(c, next - c);
            double d;
            int i;
            if (integers ? !parse_int(cell, INT32_MIN, INT32_MAX, &i) : !parse_double(cell, &d))
                return false;
            cells.push_back(integers ? i : d);
            ++n;
            c = next + 1;
        }
        if (h > 0 && n != w)
            return false;
        w = n;
        ++h;
        pos = end + 1;
    }
    if (w < 1 || h < 1 || w > kMaxMaskSide || h > kMaxMaskSide)
        return false;
    p->kernel = cells;
    p->mask = {w, h};
    return true;
}

} // namespace

const std::vector<Op> &ops()
{
    return kOps;
}

const Op *find_op(const std::string &name)
{
    for (const Op &op : kOps)
        if (name == op.name)
            return &op;
    return nullptr;
}

bool is_alias(const std::string &alias)
{
    for (const Op &op : kOps)
        if (alias == op.alias)
            return true;
    return false;
}

const Op *find_alias(const std::string &alias, int channels)
{
    const Op *found = nullptr;
    for (const Op &op : kOps) {
        if (alias != op.alias)
            continue;
        if (op.channels == channels)
            return &op;
        if (!found || op.channels == 3)
            found = &op;
    }
    return found;
}

bool option_takes_value(const std::string &key)
{
    return key != "--time" && key != "--help" && key != "--soft-edge";
}

std::string options_help(unsigned options)
{
    std::string s;
    for (const OptionInfo &o : kOptions)
        if ((options & o.bit) && (o.help || o.bit == kOptMethod))
            s += std::string("  ") + (o.help ? o.help : method_help()) + "\n";
    return s;
}

bool parse_option(const Op &op, const std::string &key, const std::string &value, Params *p,
                  std::string *err)
{
    const OptionInfo *info = nullptr;
    for (const OptionInfo &o : kOptions)
        if (key == o.key)
            info = &o;
    if (!info) {
        *err = "unknown option " + key;
        return false;
    }
    if (!(op.options & info->bit)) {
        *err = std::string(op.name) + " takes no " + key + " option";
        return false;
    }
    bool ok = true;
    int v[2];
    if (key == "--mask") {
        ok = parse_ints(value, 'x', 2, -kMaxMaskSide, kMaxMaskSide, v) ||
             (parse_int(value, -kMaxMaskSide, kMaxMaskSide, &v[0]) && (v[1] = v[0], true));
        p->mask = {v[0], v[1]};
    } else if (key == "--anchor") {
        ok = parse_ints(value, ',', 2, -kMaxMaskSide, kMaxMaskSide, v);
        p->anchor = {v[0], v[1]};
        p->anchor_given = true;
    } else if (key == "--scale") {
        ok = parse_double(value, &p->fx);
        p->fy = p->fx;
    } else if (key == "--fx") {
        ok = parse_double(value, &p->fx);
    } else if (key == "--fy") {
        ok = parse_double(value, &p->fy);
    } else if (key == "--size") {
        ok = parse_ints(value, 'x', 2, 1, 1 << 20, v);
        p->size = {v[0], v[1]};
    } else if (key == "--kernel") {
        ok = parse_kernel(value, op.options & kOptDivisor, p);
    } else if (key == "--divisor") {
        ok = parse_int(value, INT32_MIN, INT32_MAX, &p->divisor);
        p->divisor_given = true;
    } else if (key == "--sigma-value" || key == "--sigma-position") {
        double v = 0;
        ok = parse_double(value, &v) && v > 0 && v < 1e30;
        (key == "--sigma-value" ? p->sigma_value : p->sigma_position) = (float)v;
    } else if (key == "--step") {
        ok = parse_int(value, 1, 1 << 20, &p->step);
    } else if (key == "--rotate" || key == "--barrel" || key == "--wave") {
        ok = parse_double(value, &p->map_amount);
        p->map = key == "--rotate" ? kMapRotate : key == "--barrel" ? kMapBarrel : kMapWave;
    } else if (key == "--edge") {
        ok = value == "soft" || value == "hard";
        p->soft_edge = value == "soft";
    } else if (key == "--angle") {
        ok = parse_double(value, &p->angle);
    } else if (key == "--soft-edge") {
        p->soft_edge = true;
    } else if (key == "--centre" || key == "--shift") {
        double *xy = key == "--centre" ? p->centre : p->shift;
        const size_t comma = value.find(',');
        ok = comma != std::string::npos && parse_double(value.substr(0, comma), &xy[0]) &&
             parse_double(value.substr(comma + 1), &xy[1]);
        p->centre_given = p->centre_given || key == "--centre";
    } else if (key == "--method") {
        ok = false;
        for (const auto &m : kMethods)
            if (value == m.name) {
                p->method = m.code;
                ok = true;
            }
        if (!ok)
            ok = parse_int(value, INT32_MIN, INT32_MAX, &p->method);
    }
    if (!ok) {
        static const struct {
            const char *key, *form;
        } forms[] = {{"--mask", "WxH with sides up to 1024"},
                     {"--anchor", "X,Y"},
                     {"--scale", "a number"},
                     {"--fx", "a number"},
                     {"--fy", "a number"},
                     {"--size", "WxH"},
                     {"--method", "nn, linear, cubic, catmullrom, super, lanczos or a number"},
                     {"--kernel", "rows of numbers like \"0,-1,0;-1,5,-1;0,-1,0\", all rows "
                                  "as long, or a preset"},
                     {"--divisor", "an integer"},
                     {"--sigma-value", "a positive number"},
                     {"--sigma-position", "a positive number"},
                     {"--step", "a whole number from 1"},
                     {"--rotate", "an angle in degrees"},
                     {"--barrel", "a number"},
                     {"--wave", "an amplitude in pixels"},
                     {"--edge", "soft or hard"},
                     {"--angle", "a number"},
                     {"--centre", "X,Y"},
                     {"--shift", "X,Y"}};
        for (const auto &f : forms)
            if (key == f.key)
                *err = key + " wants " + f.form + ", not '" + value + "'";
    }
    return ok;
}

bool settle_roi(const Op &op, const Image &in, Params *p, std::string *err)
{
    int w = in.width, h = op.in == kPlanes ? in.height / 3 : in.height;
    if (!p->roi_given) {
        p->roi = {0, 0, w, h};
    } else {
        const LumiRect &r = p->roi;
        if (r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1 || r.x > w - r.width ||
            r.y > h - r.height) {
            *err = "--roi " + std::to_string(r.x) + "," + std::to_string(r.y) + "," +
                   std::to_string(r.width) + "," + std::to_string(r.height) +
                   " does not lie within the " + std::to_string(w) + "x" + std::to_string(h) +
                   " picture";
            return false;
        }
    }
    if (op.options & kOptKernel)
        settle_kernel(p);
    if (!p->anchor_given)
        p->anchor = {p->mask.width / 2, p->mask.height / 2};
    return true;
}

bool load_input(const Op &op, const std::string &path, Image *img, std::string *err)
{
    if (!load_image(path, op.in == kPlanes ? 1 : op.channels, img, err))
        return false;
    if (op.in == kPlanes && img->height % 3 != 0) {
        *err = std::string(op.name) + " reads three planes stacked in one grey picture, so " +
               path + " must be three times as tall as the picture; it is " +
               std::to_string(img->height) + " rows tall";
        return false;
    }
    return true;
}

Image input_from_rgb(const Op &op, const Image &rgb)
{
    if (op.in != kPlanes)
        return with_channels(rgb, op.channels);
    Image planes;
    std::string err;
    make_image(&planes, rgb.width, rgb.height * 3, 1, &err);
    // The blue-green-red forms read their planes in that order.
    const bool bgr = strncmp(op.name, "lumiBGR", 7) == 0;
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < rgb.height; ++y)
            for (int x = 0; x < rgb.width; ++x)
                *planes.at(x, c * rgb.height + y) = rgb.at(x, y)[bgr ? 2 - c : c];
    return planes;
}

} // namespace cli
