// Resize: nearest neighbour and linear on a 1920x1080 picture, one and three
// channels, down to 1280x720, up by 1.5 and down to 960x540, beside
// cv::resize with INTER_NEAREST and INTER_LINEAR.
//
// The two libraries do not sample the same positions, so the outputs differ:
// nearest neighbour here takes the pixel under each output cell's centre
// where OpenCV's INTER_NEAREST takes floor(j * scale); linear here aligns the
// corners (first and last output on the first and last source pixel) where
// OpenCV aligns cell centres.  At exactly half size OpenCV's INTER_LINEAR
// switches to a 2x2 average, which corner alignment cannot use.
#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

void add_case(int channels, int method, int outW, int outH, const char *label)
{
    const int cvMethod = method == LUMI_INTER_NN ? cv::INTER_NEAREST : cv::INTER_LINEAR;
    lumibench::Pair p = lumibench::resize_pair(channels, outW, outH, method, cvMethod);
    p.name = std::string("resize_") + (method == LUMI_INTER_NN ? "nn" : "linear") + "_C" +
             std::to_string(channels) + "/" + label;
    p.note = method == LUMI_INTER_NN ? "cell centres vs floor(j*scale)"
                                     : "corner vs centre alignment";
    if (method == LUMI_INTER_LINEAR && outW * 2 == 1920)
        p.note = "OpenCV takes its 2x2 average here; no target";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(resize)
{
    for (int method : {LUMI_INTER_NN, LUMI_INTER_LINEAR})
        for (int channels : {1, 3}) {
            add_case(channels, method, 1280, 720, "1920x1080_to_1280x720");
            add_case(channels, method, 2880, 1620, "1920x1080_up_1.5");
            add_case(channels, method, 960, 540, "1920x1080_to_960x540");
        }
}
