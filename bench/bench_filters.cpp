// Box and median filters on 1920x1080 against cv::blur and cv::medianBlur.
// The colour median stands beside cv::medianBlur of the same window for scale
// only: OpenCV has no vector median, so the two compute different things.
//
// Lumi generates no border, so it reads a source padded by replication
// around the picture, while OpenCV replicates the border itself; both then
// filter the same pixels and write a 1920x1080 result.
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

typedef decltype(&lumiFilterBox_8u_C1R) FilterFn; // box and median share one shape

const int kW = lumibench::kFilterW, kH = lumibench::kFilterH;

void add_case(const char *family, FilterFn fn, int channels, int k, bool median)
{
    const lumibench::FilterImages im = lumibench::filter_images(channels, k);
    lumibench::Pair p;
    p.name = lumibench::filter_case_name(family, k, channels);
    p.pixels = (double)kW * kH;
    p.lumi = [=] {
        fn(im.centre, (int32_t)im.padded.step, im.lumi.data, (int32_t)im.lumi.step, {kW, kH},
           {k, k}, {k / 2, k / 2});
    };
    if (median)
        p.opencv = [=] {
            cv::Mat dst = im.ocv;
            cv::medianBlur(im.src, dst, k);
        };
    else
        p.opencv = [=] {
            cv::Mat dst = im.ocv;
            cv::blur(im.src, dst, cv::Size(k, k), cv::Point(-1, -1), cv::BORDER_REPLICATE);
        };
    p.max_diff = [=] { return lumibench::max_abs_diff(im.lumi, im.ocv); };
    if (!median)
        p.note = "means round differently by mask";
    lumibench::add(p);
}

void add_color_median_case(int k)
{
    const lumibench::FilterImages im = lumibench::filter_images(3, k);
    const auto fn = LUMI_BENCH_GET(lumiFilterMedianColor_8u_C3R);
    const LumiMaskSize mask = k == 3 ? lumMaskSize3x3 : lumMaskSize5x5;
    lumibench::Pair p;
    p.name = lumibench::filter_case_name("mediancolor", k, 3);
    p.pixels = (double)kW * kH;
    p.lumi = [=] {
        fn(im.centre, (int32_t)im.padded.step, im.lumi.data, (int32_t)im.lumi.step, {kW, kH},
           mask);
    };
    p.opencv = [=] {
        cv::Mat dst = im.ocv;
        cv::medianBlur(im.src, dst, k);
    };
    p.max_diff = [] { return -1; };
    p.note = "vector median beside a per-channel one, for scale";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(filters)
{
    for (int ch : {1, 3}) {
        FilterFn box =
            ch == 1 ? LUMI_BENCH_GET(lumiFilterBox_8u_C1R) : LUMI_BENCH_GET(lumiFilterBox_8u_C3R);
        for (int k : {3, 5, 7, 31})
            add_case("box", box, ch, k, false);
    }
    for (int ch : {1, 3}) {
        FilterFn median = ch == 1 ? LUMI_BENCH_GET(lumiFilterMedian_8u_C1R)
                                  : LUMI_BENCH_GET(lumiFilterMedian_8u_C3R);
        // 3 to 7 run the compare-exchange networks, 9 and 15 the histogram.
        for (int k : {3, 5, 7, 9, 15})
            add_case("median", median, ch, k, true);
    }
    for (int k : {3, 5})
        add_color_median_case(k);
}
