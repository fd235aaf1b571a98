// Supersampling on a 1920x1080 picture, one and three channels, down to
// 1280x720 (ratio 1.5, float sums with carries), 960x540, 640x360 and
// 480x270 (whole ratios, exact integer sums), beside cv::resize with
// INTER_AREA.  Both average the covered area; they round differently (here
// a double product plus one half, truncated), so a byte may differ by one.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

void add_case(int channels, int outW, int outH)
{
    const int inW = 1920, inH = 1080;
    auto src = std::make_shared<cv::Mat>(lumibench::test_image(inW, inH, channels));
    auto ours = std::make_shared<cv::Mat>(outH, outW, CV_8UC(channels), cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(outH, outW, CV_8UC(channels), cv::Scalar::all(0));
    auto fn = channels == 1 ? LUMI_BENCH_GET(lumiResize_8u_C1R) : LUMI_BENCH_GET(lumiResize_8u_C3R);
    const double xf = (double)outW / inW, yf = (double)outH / inH;

    lumibench::Pair p;
    p.name = "resize_super_C" + std::to_string(channels) + "/1920x1080_to_" +
             std::to_string(outW) + "x" + std::to_string(outH);
    p.pixels = (double)outW * outH;
    p.lumi = [=] {
        fn(src->data, LumiSize{inW, inH}, (int32_t)src->step, LumiRect{0, 0, inW, inH},
           ours->data, (int32_t)ours->step, LumiSize{outW, outH}, xf, yf, LUMI_INTER_SUPER);
    };
    p.opencv = [=] { cv::resize(*src, *theirs, cv::Size(outW, outH), 0, 0, cv::INTER_AREA); };
    p.max_diff = [=] { return lumibench::max_abs_diff(*ours, *theirs); };
    p.note = "rounding: double product + 0.5, truncated";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(resize_super)
{
    for (int channels : {1, 3})
        for (int outW : {1280, 960, 640, 480})
            add_case(channels, outW, outW * 9 / 16);
}
