// Convolution with integer and float kernels on 1920x1080 against
// cv::filter2D.  filter2D correlates, so it is handed the kernel turned by
// half a turn; Lumi reads a source padded by replication, as OpenCV pads
// itself.  The kernels are binomial, divided by a power of two.
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

const int kW = 1920, kH = 1080;

// Binomial kernel of side k (3, 5 or 7) and the sum of its cells.
std::vector<int32_t> binomial(int k, int *sum)
{
    std::vector<int32_t> row(k, 1);
    for (int n = 1; n < k; ++n)
        for (int i = n - 1; i > 0; --i)
            row[i] += row[i - 1];
    std::vector<int32_t> cells;
    *sum = 0;
    for (int j = 0; j < k; ++j)
        for (int i = 0; i < k; ++i) {
            cells.push_back(row[j] * row[i]);
            *sum += row[j] * row[i];
        }
    return cells;
}

void add_case(int channels, int k, bool floats)
{
    struct State {
        cv::Mat src, padded, lumi, ocv, flipped;
        std::vector<int32_t> ki;
        std::vector<float> kf;
        int divisor;
        const Lum8u *centre;
    };
    auto s = std::make_shared<State>();
    s->src = lumibench::test_image(kW, kH, channels);
    const int r = k / 2;
    cv::copyMakeBorder(s->src, s->padded, r, r, r, r, cv::BORDER_REPLICATE);
    s->lumi = cv::Mat(kH, kW, CV_8UC(channels));
    s->ocv = cv::Mat(kH, kW, CV_8UC(channels));
    s->centre = s->padded.ptr<Lum8u>(r) + r * channels;
    s->ki = binomial(k, &s->divisor);
    for (int32_t c : s->ki)
        s->kf.push_back((float)c / (float)s->divisor);
    cv::Mat kernel(k, k, CV_32F, s->kf.data());
    cv::flip(kernel, s->flipped, -1);

    lumibench::Pair p;
    p.name = std::string(floats ? "filter32f_" : "filter_") + std::to_string(k) + "x" +
             std::to_string(k) + "_C" + std::to_string(channels) + "/1920x1080";
    p.pixels = (double)kW * kH;
    if (floats) {
        auto fn = channels == 1 ? LUMI_BENCH_GET(lumiFilter32f_8u_C1R)
                                : LUMI_BENCH_GET(lumiFilter32f_8u_C3R);
        p.lumi = [=] {
            fn(s->centre, (int32_t)s->padded.step, s->lumi.data, (int32_t)s->lumi.step, {kW, kH},
               s->kf.data(), {k, k}, {r, r});
        };
    } else {
        auto fn = channels == 1 ? LUMI_BENCH_GET(lumiFilter_8u_C1R) : LUMI_BENCH_GET(lumiFilter_8u_C3R);
        p.lumi = [=] {
            fn(s->centre, (int32_t)s->padded.step, s->lumi.data, (int32_t)s->lumi.step, {kW, kH},
               s->ki.data(), {k, k}, {r, r}, s->divisor);
        };
    }
    p.opencv = [=] {
        cv::Mat dst = s->ocv;
        cv::filter2D(s->src, dst, -1, s->flipped, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    };
    p.max_diff = [=] { return lumibench::max_abs_diff(s->lumi, s->ocv); };
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(convolution)
{
    for (bool floats : {false, true})
        for (int ch : {1, 3})
            for (int k : {3, 5, 7})
                add_case(ch, k, floats);
}
