// Rotate: a 1920x1080 picture, one and three channels, turned by 12 degrees
// about its centre into a picture of the same size, beside cv::warpAffine
// with BORDER_TRANSPARENT (pixels the turned picture does not reach keep
// their value on both sides) and INTER_NEAREST, INTER_LINEAR, INTER_CUBIC;
// and a quarter turn beside cv::rotate.
//
// OpenCV's cubic is the a = -0.75 convolution and its linear rounds 5-bit
// weights, where Lumi's cubic is four-point Lagrange and its linear works in
// single precision, so those outputs differ by a few levels; quarter turns
// are exact on both sides.  The turned cases compare the two outputs away
// from the turned picture's edges, where the two sides choose differently
// which pixels to write.
#include <math.h>
#include <stdlib.h>

#include <algorithm>

#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

void add_turn(int channels, int method)
{
    const int w = 1920, h = 1080;
    auto src = std::make_shared<cv::Mat>(lumibench::test_image(w, h, channels));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_8UC(channels), cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(h, w, CV_8UC(channels), cv::Scalar::all(0));
    auto fn = channels == 1 ? LUMI_BENCH_GET(lumiRotateCenter_8u_C1R) : LUMI_BENCH_GET(lumiRotateCenter_8u_C3R);
    const double angle = 12, xc = (w - 1) / 2.0, yc = (h - 1) / 2.0;
    // The same forward transform for OpenCV: x' = cos x + sin y + xs.
    double xs = 0, ys = 0;
    LUMI_BENCH_GET(lumiGetRotateShift)(xc, yc, angle, &xs, &ys);
    const double r = angle / 180 * 3.141592653589793;
    const cv::Mat m = (cv::Mat_<double>(2, 3) << cos(r), sin(r), xs, -sin(r), cos(r), ys);
    const int cvMethod = method == LUMI_INTER_NN ? cv::INTER_NEAREST
                         : method == LUMI_INTER_LINEAR ? cv::INTER_LINEAR : cv::INTER_CUBIC;

    lumibench::Pair p;
    p.name = std::string("rotate_") + (method == LUMI_INTER_NN ? "nn" : method == LUMI_INTER_LINEAR ? "linear" : "cubic") +
             "_C" + std::to_string(channels) + "/1920x1080_12deg";
    p.pixels = (double)w * h;
    p.lumi = [=] {
        fn(src->data, LumiSize{w, h}, (int32_t)src->step, LumiRect{0, 0, w, h}, ours->data, (int32_t)ours->step,
           LumiRect{0, 0, w, h}, angle, xc, yc, method);
    };
    p.opencv = [=] {
        cv::warpAffine(*src, *theirs, m, theirs->size(), cvMethod, cv::BORDER_TRANSPARENT);
    };
    // Which destination pixels each side writes differs along the turned
    // picture's edges (pixel centres inside the turned region here, samples
    // inside the source there), so the outputs are compared where both
    // kernels see only source pixels: inverse points two pixels inside.
    p.max_diff = [=] {
        cv::Mat inv;
        cv::invertAffineTransform(m, inv);
        const double *iv = inv.ptr<double>();
        int mx = 0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const double sx = iv[0] * x + iv[1] * y + iv[2], sy = iv[3] * x + iv[4] * y + iv[5];
                if (sx < 2 || sx > w - 3 || sy < 2 || sy > h - 3)
                    continue;
                for (int c = 0; c < channels; ++c)
                    mx = std::max(mx, std::abs((int)ours->ptr<uint8_t>(y)[x * channels + c] -
                                               (int)theirs->ptr<uint8_t>(y)[x * channels + c]));
            }
        return mx;
    };
    p.note = method == LUMI_INTER_NN ? "interior; points near a half pick the other neighbour" : "interior; different kernels and rounding";
    lumibench::add(p);
}

void add_quarter(int channels)
{
    const int w = 1920, h = 1080;
    auto src = std::make_shared<cv::Mat>(lumibench::test_image(w, h, channels));
    auto ours = std::make_shared<cv::Mat>(w, h, CV_8UC(channels), cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(w, h, CV_8UC(channels), cv::Scalar::all(0));
    auto fn = channels == 1 ? LUMI_BENCH_GET(lumiRotate_8u_C1R) : LUMI_BENCH_GET(lumiRotate_8u_C3R);

    lumibench::Pair p;
    p.name = "rotate_quarter_C" + std::to_string(channels) + "/1920x1080";
    p.pixels = (double)w * h;
    // 90 degrees counter-clockwise on screen; the shift brings it to (0, 0).
    p.lumi = [=] {
        fn(src->data, LumiSize{w, h}, (int32_t)src->step, LumiRect{0, 0, w, h}, ours->data, (int32_t)ours->step,
           LumiRect{0, 0, h, w}, 90, 0, w - 1, LUMI_INTER_NN);
    };
    p.opencv = [=] { cv::rotate(*src, *theirs, cv::ROTATE_90_COUNTERCLOCKWISE); };
    p.max_diff = [=] { return lumibench::max_abs_diff(*ours, *theirs); };
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(rotate)
{
    for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR, LUMI_INTER_CUBIC})
        for (int channels : {1, 3})
            add_turn(channels, method);
    for (int channels : {1, 3})
        add_quarter(channels);
}
