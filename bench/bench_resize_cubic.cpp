// Cubic and Lanczos resize against cv::resize INTER_CUBIC and INTER_LANCZOS4
// on a 1920x1080 picture: down to 1280x720 and 960x540, up by 1.5, one and
// three channels.
//
// The two compute different things, so max_diff is large by design: Lumi
// aligns corners (first and last output on the first and last input pixel)
// where OpenCV aligns cell centres, Lumi's cubic is the interpolating
// Lagrange cubic where OpenCV's has a = -0.75, and Lumi's Lanczos has six
// taps where OpenCV's has eight.  The work per output pixel is comparable
// (OpenCV's Lanczos does a third more).
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

void add_case(const char *method, int lumiMethod, int cvMethod, int channels, int dstW, int dstH)
{
    lumibench::Pair p = lumibench::resize_pair(channels, dstW, dstH, lumiMethod, cvMethod);
    p.name = std::string("resize_") + method + (channels == 1 ? "_C1R/" : "_C3R/") +
             std::to_string(dstW) + "x" + std::to_string(dstH);
    p.note = "corner vs centre alignment";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(resize_cubic)
{
    const struct {
        int w, h;
    } shapes[] = {{1280, 720}, {960, 540}, {2880, 1620}};
    for (int channels : {1, 3})
        for (const auto &s : shapes) {
            add_case("cubic", LUMI_INTER_CUBIC, cv::INTER_CUBIC, channels, s.w, s.h);
            add_case("lanczos", LUMI_INTER_LANCZOS, cv::INTER_LANCZOS4, channels, s.w, s.h);
        }
}
