// Bilateral filter on 1920x1080 grey against cv::bilateralFilter with the
// same window diameter, 5 and 9, sigmas 30 (value) and 3 (position).
//
// The state block is built once, outside the timed call.  Lumi's window is
// the whole square, OpenCV's the disc inside it, and Lumi's kinds weigh in
// 14 or 4 bits, so the two differ by a few levels; the report gives the
// largest difference.
#include <opencv2/imgproc.hpp>

#include <memory>
#include <vector>

#include "bench_common.h"

namespace {

const int kW = 1920, kH = 1080;
const float kSigmaValue = 30.0f, kSigmaPosition = 3.0f;

void add_bilateral(int kind, int k)
{
    struct State {
        cv::Mat src, padded, lumi, ocv;
        std::vector<Lum8u> block;
    };
    auto st = std::make_shared<State>();
    st->src = lumibench::test_image(kW, kH, 1);
    const int r = k / 2;
    cv::copyMakeBorder(st->src, st->padded, r, r, r, r, cv::BORDER_REPLICATE);
    st->lumi = cv::Mat(kH, kW, CV_8UC1);
    st->ocv = cv::Mat(kH, kW, CV_8UC1);

    auto get_size = LUMI_BENCH_GET(lumiFilterBilateralGetBufSize_8u_C1R);
    auto init = LUMI_BENCH_GET(lumiFilterBilateralInit_8u_C1R);
    auto fn = LUMI_BENCH_GET(lumiFilterBilateral_8u_C1R);
    int32_t size = 0;
    if (get_size(kind, {kW, kH}, {k, k}, &size) != lumStsNoErr)
        return;
    st->block.resize((size_t)size);
    if (init(kind, {k, k}, kSigmaValue * kSigmaValue, kSigmaPosition * kSigmaPosition, 1,
             st->block.data()) != lumStsNoErr)
        return;

    lumibench::Pair p;
    p.name = std::string(kind == lumiFilterBilateralGauss ? "bilateral_" : "bilateral_fast_") +
             std::to_string(k) + "x" + std::to_string(k) + "_C1/1920x1080";
    p.pixels = (double)kW * kH;
    const Lum8u *centre = st->padded.ptr<Lum8u>(r) + r;
    p.lumi = [=] {
        fn(centre, (int32_t)st->padded.step, st->lumi.data, (int32_t)st->lumi.step, {kW, kH},
           {k, k}, st->block.data());
    };
    p.opencv = [=] {
        cv::Mat dst = st->ocv;
        cv::bilateralFilter(st->src, dst, k, kSigmaValue, kSigmaPosition, cv::BORDER_REPLICATE);
    };
    p.max_diff = [=] { return lumibench::max_abs_diff(st->lumi, st->ocv); };
    p.note = "square window against a disc";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(bilateral)
{
    for (int kind : {lumiFilterBilateralGauss, lumiFilterBilateralGaussFast})
        for (int k : {5, 9})
            add_bilateral(kind, k);
}
