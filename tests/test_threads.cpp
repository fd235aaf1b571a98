// Primitives, look-ups and tier forcing from several threads at once.
//
// Eight workers run every live primitive through each tier's own member (the
// dispatch index is process-wide, so a worker that went through a dispatcher
// could not say which tier it measured) and compare every output byte with a
// serial run made before the threads start.  Meanwhile other threads look
// names up, force tiers and masks, ask for the cache size and call the
// dispatchers.  Under ThreadSanitizer (scripts/test.sh --tsan) this shows any
// data race on the shared selection state, the entry slots and the cached
// cache size; in every build it shows results that depend on a neighbour.
#include <gtest/gtest.h>

#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "lumi.h"
#include "support/sim_cpu.h"
#include "support/tiers.h"

// Each tier's member of every dispatched primitive, declared from the public
// prototype, and a table of them by dispatch index.
#define LUMI_TIER_MEMBER(tier, name) extern "C" decltype(name) tier##_##name;
#define LUMI_ROW_BOUND(name)
#define LUMI_ROW_SELF(name)
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5)                                          \
    LUMI_TIER_MEMBER(s0, name)                                                                     \
    LUMI_TIER_MEMBER(s1, name)                                                                     \
    LUMI_TIER_MEMBER(s2, name)                                                                     \
    LUMI_TIER_MEMBER(s3, name)                                                                     \
    LUMI_TIER_MEMBER(s4, name)                                                                     \
    LUMI_TIER_MEMBER(s5, name)                                                                     \
    static decltype(&name) const tiers_##name[6] = {&s0##_##name, &s1##_##name, &s2##_##name,      \
                                                    &s3##_##name, &s4##_##name, &s5##_##name};
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
#undef LUMI_TIER_MEMBER

namespace {

using Bytes = std::vector<uint8_t>;

Bytes pattern(size_t n, uint32_t seed)
{
    Bytes b(n);
    uint32_t s = seed * 2654435761u + 12345;
    for (auto &v : b) {
        s = s * 1664525u + 1013904223u;
        v = (uint8_t)(s >> 24);
    }
    return b;
}

// One piece of work: the input it needs and how to run it on one index.
struct Job {
    const char *name;
    size_t inputBytes;
    void (*run)(int index, const Bytes &in, Bytes &out);
};

// Plane copies and YUV conversions share two layouts: interleaved to planes
// and planes to interleaved, w x h pixels with padded steps (or contiguous).
template <typename Fn>
void interleaved_to_planes(Fn fn, const Bytes &in, Bytes &out, int w, int h, int pad)
{
    const int srcStep = 3 * w + 3 * pad, dstStep = w + pad;
    const size_t plane = (size_t)dstStep * h;
    out.assign(3 * plane, 0);
    Lum8u *planes[3] = {out.data(), out.data() + plane, out.data() + 2 * plane};
    out.push_back((uint8_t)fn(in.data(), srcStep, planes, dstStep, LumiSize{w, h}));
}

template <typename Fn>
void planes_to_interleaved(Fn fn, const Bytes &in, Bytes &out, int w, int h, int pad)
{
    const int srcStep = w + pad, dstStep = 3 * w + 3 * pad;
    const size_t plane = (size_t)srcStep * h;
    const Lum8u *planes[3] = {in.data(), in.data() + plane, in.data() + 2 * plane};
    out.assign((size_t)dstStep * h, 0);
    out.push_back((uint8_t)fn(planes, srcStep, out.data(), dstStep, LumiSize{w, h}));
}

template <typename Fn>
void interleaved(Fn fn, const Bytes &in, Bytes &out, int w, int h)
{
    const int step = 3 * w + 5;
    out.assign((size_t)step * h, 0);
    out.push_back((uint8_t)fn(in.data(), step, out.data(), step, LumiSize{w, h}));
}

// Interleaved rows of element type T (steps in bytes, two elements of
// padding), and three planes to three planes.
template <typename T, typename Fn>
void interleaved_of(Fn fn, const Bytes &in, Bytes &out, int w, int h)
{
    const int step = (int)sizeof(T) * (3 * w + 2);
    out.assign((size_t)step * h, 0);
    const LumStatus st = fn((const T *)in.data(), step, (T *)out.data(), step, LumiSize{w, h});
    out.push_back((uint8_t)st);
}

template <typename Fn>
void planes_to_planes(Fn fn, const Bytes &in, Bytes &out, int w, int h, int pad)
{
    const int step = w + pad;
    const size_t plane = (size_t)step * h;
    const Lum8u *src[3] = {in.data(), in.data() + plane, in.data() + 2 * plane};
    out.assign(3 * plane, 0);
    Lum8u *dst[3] = {out.data(), out.data() + plane, out.data() + 2 * plane};
    out.push_back((uint8_t)fn(src, step, dst, step, LumiSize{w, h}));
}

const size_t kHlsRows = (size_t)(3 * 53 + 2) * 7; // elements of interleaved_of(53, 7)

// Resize of a 41x29 image's inner region by one factor pair, every method.
template <typename Fn>
void resize_all(Fn fn, int ch, const Bytes &in, Bytes &out, double fx, double fy)
{
    const int w = 41, h = 29, srcStep = w * ch + 3;
    const LumiRect roi{2, 1, 37, 27};
    const int dw = 80, dh = 60, dstStep = dw * ch + 1;
    out.clear();
    for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_LANCZOS,
                       LUMI_INTER_SUPER}) {
        Bytes dst((size_t)dstStep * dh, 0);
        const LumStatus st = fn(in.data(), LumiSize{w, h}, srcStep, roi, dst.data(), dstStep,
                                LumiSize{dw, dh}, fx, fy, method);
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

// Remap of a 41x29 image's inner region through a map of a small rotation
// and zoom that leaves the region at its corners, every selector on both
// paths, over a destination that starts from the input's bytes.
template <typename Fn>
void remap_all(Fn fn, int ch, const Bytes &in, Bytes &out)
{
    const int w = 41, h = 29, srcStep = w * ch + 3;
    const LumiRect roi{2, 1, 37, 27};
    const int dw = 43, dh = 31, dstStep = dw * ch + 1;
    std::vector<float> xm((size_t)dw * dh), ym(xm.size());
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            xm[(size_t)y * dw + x] = 20.0f + 0.97f * (x - 21) - 0.21f * (y - 15);
            ym[(size_t)y * dw + x] = 14.0f + 0.21f * (x - 21) + 0.97f * (y - 15);
        }
    out.clear();
    for (int soft : {0, LUMI_SMOOTH_EDGE})
        for (int sel : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM,
                        LUMI_INTER_LANCZOS}) {
            Bytes dst(in.begin(), in.begin() + (size_t)dstStep * dh);
            const LumStatus st = fn(in.data(), LumiSize{w, h}, srcStep, roi, xm.data(), dw * 4, ym.data(),
                                    dw * 4, dst.data(), dstStep, LumiSize{dw, dh}, sel | soft);
            dst.push_back((uint8_t)st);
            out.insert(out.end(), dst.begin(), dst.end());
        }
}

// Rotation of a 41x29 image's inner region by one angle about its centre,
// every selector with and without the soft edge (quarter turns take the
// exact path whatever the selector).
template <typename Fn>
void rotate_all(Fn fn, int ch, const Bytes &in, Bytes &out, double angle)
{
    const int w = 41, h = 29, srcStep = w * ch + 3;
    const LumiRect roi{2, 1, 37, 27};
    const int dw = 50, dh = 44, dstStep = dw * ch + 1;
    out.clear();
    for (int sel : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC, LUMI_INTER_CATMULLROM})
        for (int soft : {0, (int)LUMI_SMOOTH_EDGE}) {
            Bytes dst((size_t)dstStep * dh, 0);
            const LumStatus st = fn(in.data(), LumiSize{w, h}, srcStep, roi, dst.data(), dstStep,
                                    LumiRect{1, 2, dw - 2, dh - 3}, angle, 20.5, 14.0, sel | soft);
            dst.push_back((uint8_t)st);
            out.insert(out.end(), dst.begin(), dst.end());
        }
}

// A window filter over a footprint of (w + mw - 1) x (h + mh - 1) pixels, for
// several masks and anchors: fixed sizes and generic ones.
struct Mask {
    int w, h, ax, ay;
};
const Mask kMasks[] = {{3, 3, 1, 1}, {5, 5, 2, 2}, {1, 3, 0, 1}, {5, 1, 4, 0},
                       {7, 5, 1, 3}, {9, 9, 4, 4}, {15, 3, 7, 1}};
const int kFilterW = 45, kFilterH = 13, kFootW = kFilterW + 14, kFootH = kFilterH + 8;

template <typename Fn>
void window_filter(Fn fn, int ch, bool oddOnly, const Bytes &in, Bytes &out)
{
    const int srcStep = kFootW * ch + 2, dstStep = kFilterW * ch + 7;
    out.clear();
    for (const Mask &m : kMasks) {
        if (oddOnly && (m.w % 2 == 0 || m.h % 2 == 0))
            continue;
        Bytes dst((size_t)dstStep * kFilterH, 0);
        const Lum8u *src = in.data() + (size_t)m.ay * srcStep + m.ax * ch;
        const LumStatus st = fn(src, srcStep, dst.data(), dstStep, LumiSize{kFilterW, kFilterH},
                                LumiSize{m.w, m.h}, LumiPoint{m.ax, m.ay});
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

template <typename Fn>
void window_filter_in_place(Fn fn, int ch, const Bytes &in, Bytes &out)
{
    const int step = kFootW * ch + 2;
    out.clear();
    for (const Mask &m : kMasks) {
        Bytes img(in);
        Lum8u *roi = img.data() + (size_t)m.ay * step + m.ax * ch;
        const LumStatus st =
            fn(roi, step, LumiSize{kFilterW, kFilterH}, LumiSize{m.w, m.h}, LumiPoint{m.ax, m.ay});
        img.push_back((uint8_t)st);
        out.insert(out.end(), img.begin(), img.end());
    }
}

// Bilateral filter, each run on a block of its own: Init, then a fixed, a
// general and a narrow window.
void bilateral_all(int i, int kind, const Bytes &in, Bytes &out)
{
    const int srcStep = kFootW + 2;
    const struct {
        int kw, kh, step, w;
    } runs[] = {{5, 5, 1, kFilterW}, {9, 9, 2, kFilterW}, {7, 5, 1, kFilterW}, {9, 9, 1, 11}};
    out.clear();
    for (const auto &r : runs) {
        const LumiSize roi{r.w, kFilterH}, k{r.kw, r.kh};
        int32_t size = 0;
        LumStatus st = tiers_lumiFilterBilateralGetBufSize_8u_C1R[i](kind, roi, k, &size);
        Bytes block((size_t)size);
        if (st == lumStsNoErr)
            st = tiers_lumiFilterBilateralInit_8u_C1R[i](kind, k, 400.0f, 6.0f, r.step, block.data());
        Bytes dst((size_t)r.w * kFilterH, 0);
        if (st == lumStsNoErr)
            st = tiers_lumiFilterBilateral_8u_C1R[i](in.data() + 4 * srcStep + 4, srcStep,
                                                     dst.data(), r.w, roi, k, block.data());
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

// A fixed centred window (3x3 and 5x5), as the colour median takes it.
template <typename Fn>
void fixed_window_filter(Fn fn, const Bytes &in, Bytes &out)
{
    const int srcStep = kFootW * 3 + 2, dstStep = kFilterW * 3 + 7;
    out.clear();
    for (LumiMaskSize mask : {lumMaskSize3x3, lumMaskSize5x5}) {
        Bytes dst((size_t)dstStep * kFilterH, 0);
        const LumStatus st = fn(in.data() + 2 * srcStep + 6, srcStep, dst.data(), dstStep,
                                LumiSize{kFilterW, kFilterH}, mask);
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

// Convolution over the same footprints; the kernel is mirrored, so the
// anchor cell stands kw - 1 - ax pixels into the footprint.  Integer kernels
// of small cells (the 16-bit bodies) and of large ones, float kernels.
Lum32s kernel_cell(int v, bool large, Lum32s) { return large ? v * 1000 : v; }
Lum32f kernel_cell(int v, bool, Lum32f) { return (Lum32f)v / 8.0f; }

template <typename Fn, typename Cell, typename... Divisor>
void convolve(Fn fn, int ch, bool large, const Bytes &in, Bytes &out, Divisor... divisor)
{
    const int srcStep = kFootW * ch + 2, dstStep = kFilterW * ch + 7;
    out.clear();
    for (const Mask &m : kMasks) {
        std::vector<Cell> k((size_t)m.w * m.h);
        for (size_t c = 0; c < k.size(); ++c)
            k[c] = kernel_cell((int)(c * 7 + 3) % 11 - 4, large, Cell());
        Bytes dst((size_t)dstStep * kFilterH, 0);
        const Lum8u *src = in.data() + (size_t)(m.h - 1 - m.ay) * srcStep + (m.w - 1 - m.ax) * ch;
        const LumStatus st = fn(src, srcStep, dst.data(), dstStep, LumiSize{kFilterW, kFilterH},
                                k.data(), LumiSize{m.w, m.h}, LumiPoint{m.ax, m.ay}, divisor...);
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

// The Gaussian filter with both masks; the window is centred, so the region
// starts two pixels in from the footprint's corner.
template <typename Fn>
void gauss_both(Fn fn, int ch, const Bytes &in, Bytes &out)
{
    const int srcStep = kFootW * ch + 2, dstStep = kFilterW * ch + 7;
    out.clear();
    for (LumiMaskSize mask : {lumMaskSize3x3, lumMaskSize5x5}) {
        Bytes dst((size_t)dstStep * kFilterH, 0);
        const Lum8u *src = in.data() + (size_t)2 * srcStep + 2 * ch;
        const LumStatus st =
            fn(src, srcStep, dst.data(), dstStep, LumiSize{kFilterW, kFilterH}, mask);
        dst.push_back((uint8_t)st);
        out.insert(out.end(), dst.begin(), dst.end());
    }
}

const size_t kFootBytes3 = (size_t)(kFootW * 3 + 2) * kFootH;
const size_t kResizeBytes3 = (size_t)(41 * 3 + 3) * 29;
const size_t kRemapBytes3 = (size_t)(43 * 3 + 1) * 31; // also holds the destination's start
const int kBig = 1024; // plane copies this wide ask for the cache size

const Job kJobs[] = {
    {"Copy_C3P3R", 3 * 40 * 9,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_to_planes(tiers_lumiCopy_8u_C3P3R[i], in, out, 37, 9, 3);
     }},
    {"Copy_C3P3R_large", (size_t)3 * kBig * (kBig + 1),
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_to_planes(tiers_lumiCopy_8u_C3P3R[i], in, out, kBig, kBig + 1, 0);
     }},
    {"Copy_P3C3R_wide", (size_t)3 * (kBig + 9) * 3,
     [](int i, const Bytes &in, Bytes &out) {
         planes_to_interleaved(tiers_lumiCopy_8u_P3C3R[i], in, out, kBig, 3, 9);
     }},
    {"RGBToYUV_C3R", 3 * 53 * 7 + 5 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved(tiers_lumiRGBToYUV_8u_C3R[i], in, out, 53, 7);
     }},
    {"YUVToRGB_C3R", 3 * 53 * 7 + 5 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved(tiers_lumiYUVToRGB_8u_C3R[i], in, out, 53, 7);
     }},
    {"RGBToYUV_C3P3R", 3 * 56 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_to_planes(tiers_lumiRGBToYUV_8u_C3P3R[i], in, out, 53, 7, 3);
     }},
    {"YUVToRGB_P3C3R", 3 * 56 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         planes_to_interleaved(tiers_lumiYUVToRGB_8u_P3C3R[i], in, out, 53, 7, 3);
     }},
    {"RGBToHLS_8u_C3R", sizeof(Lum8u) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum8u>(tiers_lumiRGBToHLS_8u_C3R[i], in, out, 53, 7);
     }},
    {"RGBToHLS_16u_C3R", sizeof(Lum16u) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum16u>(tiers_lumiRGBToHLS_16u_C3R[i], in, out, 53, 7);
     }},
    {"RGBToHLS_16s_C3R", sizeof(Lum16s) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum16s>(tiers_lumiRGBToHLS_16s_C3R[i], in, out, 53, 7);
     }},
    {"RGBToHLS_32f_C3R", sizeof(Lum32f) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum32f>(tiers_lumiRGBToHLS_32f_C3R[i], in, out, 53, 7);
     }},
    {"HLSToRGB_8u_C3R", sizeof(Lum8u) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum8u>(tiers_lumiHLSToRGB_8u_C3R[i], in, out, 53, 7);
     }},
    {"HLSToRGB_16u_C3R", sizeof(Lum16u) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum16u>(tiers_lumiHLSToRGB_16u_C3R[i], in, out, 53, 7);
     }},
    {"HLSToRGB_16s_C3R", sizeof(Lum16s) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum16s>(tiers_lumiHLSToRGB_16s_C3R[i], in, out, 53, 7);
     }},
    {"HLSToRGB_32f_C3R", sizeof(Lum32f) * kHlsRows,
     [](int i, const Bytes &in, Bytes &out) {
         interleaved_of<Lum32f>(tiers_lumiHLSToRGB_32f_C3R[i], in, out, 53, 7);
     }},
    {"BGRToHLS_P3R", 3 * 56 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         planes_to_planes(tiers_lumiBGRToHLS_8u_P3R[i], in, out, 53, 7, 3);
     }},
    {"HLSToBGR_P3R", 3 * 56 * 7,
     [](int i, const Bytes &in, Bytes &out) {
         planes_to_planes(tiers_lumiHLSToBGR_8u_P3R[i], in, out, 53, 7, 3);
     }},
    {"Rotate_C1R", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) { rotate_all(tiers_lumiRotate_8u_C1R[i], 1, in, out, 12); }},
    {"RotateCenter_C3R", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) { rotate_all(tiers_lumiRotateCenter_8u_C3R[i], 3, in, out, -33); }},
    {"RotateCenter_C4R_quarter", (size_t)(41 * 4 + 3) * 29,
     [](int i, const Bytes &in, Bytes &out) { rotate_all(tiers_lumiRotateCenter_8u_C4R[i], 4, in, out, 90); }},
    {"Resize_C1R_up", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C1R[i], 1, in, out, 1.7, 1.3);
     }},
    {"Resize_C1R_down", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C1R[i], 1, in, out, 0.6, 0.45);
     }},
    {"Resize_C3R_up", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C3R[i], 3, in, out, 1.7, 1.3);
     }},
    {"Resize_C3R_down", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C3R[i], 3, in, out, 0.6, 0.45);
     }},
    {"Resize_C1R_whole_ratios", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C1R[i], 1, in, out, 0.5, 1.0 / 3);
     }},
    {"Resize_C3R_whole_ratios", kResizeBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         resize_all(tiers_lumiResize_8u_C3R[i], 3, in, out, 0.25, 0.5);
     }},
    {"Remap_C1R", kRemapBytes3,
     [](int i, const Bytes &in, Bytes &out) { remap_all(tiers_lumiRemap_8u_C1R[i], 1, in, out); }},
    {"Remap_C3R", kRemapBytes3,
     [](int i, const Bytes &in, Bytes &out) { remap_all(tiers_lumiRemap_8u_C3R[i], 3, in, out); }},
    {"FilterBox_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterBox_8u_C1R[i], 1, false, in, out);
     }},
    {"FilterBox_C3R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterBox_8u_C3R[i], 3, false, in, out);
     }},
    {"FilterBox_C1IR", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter_in_place(tiers_lumiFilterBox_8u_C1IR[i], 1, in, out);
     }},
    {"FilterBox_C3IR", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter_in_place(tiers_lumiFilterBox_8u_C3IR[i], 3, in, out);
     }},
    {"Filter_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         convolve<decltype(&lumiFilter_8u_C1R), Lum32s>(tiers_lumiFilter_8u_C1R[i], 1, false, in, out, 4);
     }},
    {"Filter_C3R_large", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         convolve<decltype(&lumiFilter_8u_C3R), Lum32s>(tiers_lumiFilter_8u_C3R[i], 3, true, in, out, 7);
     }},
    {"Filter32f_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         convolve<decltype(&lumiFilter32f_8u_C1R), Lum32f>(tiers_lumiFilter32f_8u_C1R[i], 1, false, in, out);
     }},
    {"Filter32f_C3R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         convolve<decltype(&lumiFilter32f_8u_C3R), Lum32f>(tiers_lumiFilter32f_8u_C3R[i], 3, false, in, out);
     }},
    {"FilterMedian_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterMedian_8u_C1R[i], 1, true, in, out);
     }},
    {"FilterMedian_C3R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterMedian_8u_C3R[i], 3, true, in, out);
     }},
    {"FilterBilateral_Gauss", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         bilateral_all(i, lumiFilterBilateralGauss, in, out);
     }},
    {"FilterBilateral_GaussFast", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         bilateral_all(i, lumiFilterBilateralGaussFast, in, out);
     }},
    {"FilterMedianColor_C3R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         fixed_window_filter(tiers_lumiFilterMedianColor_8u_C3R[i], in, out);
     }},
    {"FilterGauss_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         gauss_both(tiers_lumiFilterGauss_8u_C1R[i], 1, in, out);
     }},
    {"FilterGauss_C3R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         gauss_both(tiers_lumiFilterGauss_8u_C3R[i], 3, in, out);
     }},
    {"FilterMin_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterMin_8u_C1R[i], 1, false, in, out);
     }},
    {"FilterMax_C1R", kFootBytes3,
     [](int i, const Bytes &in, Bytes &out) {
         window_filter(tiers_lumiFilterMax_8u_C1R[i], 1, false, in, out);
     }},
};
const int kJobCount = (int)(sizeof kJobs / sizeof kJobs[0]);

// The names a host would look up: live, absent and unknown.
const char *const kLookups[] = {"lumiResize_8u_C3R",       "lumiFilterBox_8u_C1R",
                                "lumiCopy_8u_P3C3R",       "lumiConvert_8u16u_C1R",
                                "lumiFilterMedian_8u_C3R", "lumiFilterMedianColor_8u_C3R",
                                "lumMalloc",
                                "noSuchPrimitive",         ""};

TEST(Threads, PrimitivesAgreeWithSerialRunWhileTiersAreForcedAndNamesLookedUp)
{
    std::vector<int> indices = lumitest::tier_indices();

    std::vector<Bytes> inputs;
    for (int j = 0; j < kJobCount; ++j)
        inputs.push_back(pattern(kJobs[j].inputBytes, (uint32_t)j + 1));

    // The serial run: every job on every index this processor runs.
    std::vector<std::vector<Bytes>> expected(kJobCount, std::vector<Bytes>(6));
    for (int j = 0; j < kJobCount; ++j)
        for (int i : indices)
            kJobs[j].run(i, inputs[j], expected[j][i]);

    // The first large plane copy of the threaded run works the cache size out,
    // and the first look-up the feature word.
    lumitest::reset_processor_state();

    const int kWorkers = 8, kRounds = 2;
    std::atomic<int> mismatches{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kWorkers; ++t)
        threads.emplace_back([&, t] {
            Bytes out;
            for (int r = 0; r < kRounds; ++r)
                for (int k = 0; k < kJobCount; ++k) {
                    const int j = (k + 3 * t) % kJobCount;
                    for (int i : indices) {
                        kJobs[j].run(i, inputs[j], out);
                        if (out != expected[j][i]) {
                            ADD_FAILURE()
                                << kJobs[j].name << " on index " << i << " in thread " << t;
                            ++mismatches;
                        }
                    }
                }
        });
    // Two threads of look-ups, which rewrite the slots and re-run the
    // automatic selection (the first of them also reads the processor).
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            while (!stop.load()) {
                for (const char *name : kLookups)
                    (void)GetProcAddressForSo(name);
                const LumLibraryVersion *v = lumiGetLibVersion();
                EXPECT_NE(v, nullptr);
            }
        });
    // Tier forcing and masks, within what this processor runs.
    threads.emplace_back([&] {
        unsigned n = 0;
        while (!stop.load()) {
            const int index = indices[n++ % indices.size()];
            EXPECT_EQ(lumStaticInitCpu(lumitest::forcing_code(index)), lumStsNoErr);
            EXPECT_EQ(lumSetCpuFeaturesMask(lumGetEnabledCpuFeatures()), lumStsNoErr);
            int32_t size = 0;
            (void)lumGetMaxCacheSizeB(&size);
            (void)lumIsCpuEnabled(70);
            (void)lumEnableCpu(70);
        }
    });
    // Dispatchers, whichever tier is in force: plane copies agree on every tier.
    threads.emplace_back([&] {
        Bytes out;
        while (!stop.load()) {
            interleaved_to_planes(lumiCopy_8u_C3P3R, inputs[0], out, 37, 9, 3);
            if (out != expected[0][indices[0]])
                ++mismatches;
        }
    });
    for (int t = 0; t < kWorkers; ++t)
        threads[t].join();
    stop.store(true);
    for (size_t t = kWorkers; t < threads.size(); ++t)
        threads[t].join();
    lumStaticInit();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST(Lookup, NullNameAnswersNullAndStillRestoresTheAutomaticTier)
{
    const LumStatus automatic = lumStaticInit();
    (void)automatic;
    const int32_t autoIndex = lumJumpIndexForMergedLibs;
    ASSERT_EQ(lumStaticInitCpu(0), lumStsNoErr);
    EXPECT_EQ(GetProcAddressForSo(nullptr), nullptr);
    EXPECT_EQ(lumJumpIndexForMergedLibs, autoIndex);
    EXPECT_NE(GetProcAddressForSo("lumiResize_8u_C1R"), nullptr);
}

} // namespace
