// Remap against cv::remap on a 1920x1080 picture, one and three channels:
// maps of a 12-degree rotation about the centre with a slight zoom (1.1),
// float coordinates, into a preallocated destination.  Pixels whose
// coordinate leaves the picture keep their value on both sides (Lumi's plain
// path, OpenCV's BORDER_TRANSPARENT).
//
// Nearest neighbour and linear compute nearly the same thing (OpenCV rounds
// coordinates to 1/32 of a pixel for linear, and rounds halves to even for
// nearest).  Lumi's cubic is the interpolating Lagrange cubic where OpenCV's
// has a = -0.75, and Lumi's Lanczos has six taps where OpenCV's has eight, so
// their differences are large by design; Catmull-Rom has no OpenCV
// counterpart and is timed beside OpenCV's cubic.
#include <math.h>

#include <memory>

#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

const int kW = 1920, kH = 1080;

// Destination pixel (i, j) samples the source at the centre plus the offset
// rotated by 12 degrees and shrunk by 1.1.
std::shared_ptr<cv::Mat> rotation_map(bool x)
{
    auto m = std::make_shared<cv::Mat>(kH, kW, CV_32FC1);
    const double a = 12.0 * M_PI / 180.0, s = 1.0 / 1.1, cx = (kW - 1) / 2.0, cy = (kH - 1) / 2.0;
    for (int j = 0; j < kH; ++j)
        for (int i = 0; i < kW; ++i) {
            const double dx = i - cx, dy = j - cy;
            m->at<float>(j, i) = x ? (float)(cx + s * (cos(a) * dx - sin(a) * dy))
                                   : (float)(cy + s * (sin(a) * dx + cos(a) * dy));
        }
    return m;
}

void add_case(const char *method, int lumiMethod, int cvMethod, int channels, const char *note)
{
    static const auto xmap = rotation_map(true), ymap = rotation_map(false);
    auto src = std::make_shared<cv::Mat>(lumibench::test_image(kW, kH, channels));
    auto ours = std::make_shared<cv::Mat>(kH, kW, CV_8UC(channels), cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(kH, kW, CV_8UC(channels), cv::Scalar::all(0));
    const auto fn = channels == 1 ? LUMI_BENCH_GET(lumiRemap_8u_C1R) : LUMI_BENCH_GET(lumiRemap_8u_C3R);
    const auto xm = xmap, ym = ymap;

    lumibench::Pair p;
    p.name = std::string("remap_") + method + (channels == 1 ? "_C1R/" : "_C3R/") + "1920x1080";
    p.pixels = (double)kW * kH;
    p.lumi = [=] {
        fn(src->data, LumiSize{kW, kH}, (int32_t)src->step, LumiRect{0, 0, kW, kH},
           (const Lum32f *)xm->data, (int32_t)xm->step, (const Lum32f *)ym->data, (int32_t)ym->step,
           ours->data, (int32_t)ours->step, LumiSize{kW, kH}, lumiMethod);
    };
    p.opencv = [=] { cv::remap(*src, *theirs, *xm, *ym, cvMethod, cv::BORDER_TRANSPARENT); };
    p.max_diff = [=] { return lumibench::max_abs_diff(*ours, *theirs); };
    p.note = note;
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(remap)
{
    for (int channels : {1, 3}) {
        add_case("nn", LUMI_INTER_NN, cv::INTER_NEAREST, channels, "halves: up vs to even");
        add_case("linear", LUMI_INTER_LINEAR, cv::INTER_LINEAR, channels, "OpenCV: 1/32 pixel");
        add_case("cubic", LUMI_INTER_CUBIC, cv::INTER_CUBIC, channels, "Lagrange vs a = -0.75");
        add_case("catmullrom", LUMI_INTER_CATMULLROM, cv::INTER_CUBIC, channels, "a = -0.5 vs -0.75");
        add_case("lanczos", LUMI_INTER_LANCZOS, cv::INTER_LANCZOS4, channels, "6 taps vs 8");
    }
}
