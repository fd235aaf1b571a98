// Gaussian, minimum and maximum filters on 1920x1080 against
// cv::GaussianBlur, cv::erode and cv::dilate (rectangular element).
//
// Lumi reads a source padded by replication around the picture; OpenCV
// makes its own border.  For the extremes a replicated border changes
// nothing, so both sides compute the same pixels.  OpenCV's 5x5 Gaussian
// with sigma 0 is [1 4 6 4 1] each way, a different kernel from Lumi's.
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

const int kW = lumibench::kFilterW, kH = lumibench::kFilterH;

void add_gauss(int channels, int k)
{
    typedef decltype(&lumiFilterGauss_8u_C1R) GaussFn;
    const lumibench::FilterImages im = lumibench::filter_images(channels, k);
    GaussFn fn = lumibench::get<GaussFn>(channels == 1 ? "lumiFilterGauss_8u_C1R"
                                                       : "lumiFilterGauss_8u_C3R");
    const LumiMaskSize mask = k == 3 ? lumMaskSize3x3 : lumMaskSize5x5;
    lumibench::Pair p;
    p.name = lumibench::filter_case_name("gauss", k, channels);
    p.pixels = (double)kW * kH;
    p.lumi = [=] {
        fn(im.centre, (int32_t)im.padded.step, im.lumi.data, (int32_t)im.lumi.step, {kW, kH}, mask);
    };
    p.opencv = [=] {
        cv::Mat dst = im.ocv;
        cv::GaussianBlur(im.src, dst, cv::Size(k, k), 0, 0, cv::BORDER_REPLICATE);
    };
    p.max_diff = [=] { return lumibench::max_abs_diff(im.lumi, im.ocv); };
    if (k == 5)
        p.note = "different 5x5 kernels";
    lumibench::add(p);
}

void add_extreme(bool max, int k)
{
    typedef decltype(&lumiFilterMin_8u_C1R) ExtremeFn;
    const lumibench::FilterImages im = lumibench::filter_images(1, k);
    ExtremeFn fn = lumibench::get<ExtremeFn>(max ? "lumiFilterMax_8u_C1R" : "lumiFilterMin_8u_C1R");
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(k, k));
    lumibench::Pair p;
    p.name = lumibench::filter_case_name(max ? "max" : "min", k, 1);
    p.pixels = (double)kW * kH;
    p.lumi = [=] {
        fn(im.centre, (int32_t)im.padded.step, im.lumi.data, (int32_t)im.lumi.step, {kW, kH},
           {k, k}, {k / 2, k / 2});
    };
    p.opencv = [=] {
        cv::Mat dst = im.ocv;
        if (max)
            cv::dilate(im.src, dst, element);
        else
            cv::erode(im.src, dst, element);
    };
    p.max_diff = [=] { return lumibench::max_abs_diff(im.lumi, im.ocv); };
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(gauss_minmax)
{
    for (int ch : {1, 3})
        for (int k : {3, 5})
            add_gauss(ch, k);
    for (bool max : {false, true})
        for (int k : {3, 5, 15})
            add_extreme(max, k);
}
