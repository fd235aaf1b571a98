// Supersampling on a 1920x1080 picture, one and three channels, down to
// 1280x720 (ratio 1.5, float sums with carries), 960x540, 640x360 and
// 480x270 (whole ratios, exact integer sums), beside cv::resize with
// INTER_AREA.  Both average the covered area; they round differently (here
// a double product plus one half, truncated), so a byte may differ by one.
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

void add_case(int channels, int outW, int outH)
{
    lumibench::Pair p = lumibench::resize_pair(channels, outW, outH, LUMI_INTER_SUPER, cv::INTER_AREA);
    p.name = "resize_super_C" + std::to_string(channels) + "/1920x1080_to_" +
             std::to_string(outW) + "x" + std::to_string(outH);
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
