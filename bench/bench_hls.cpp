// RGB <-> HLS against cv::cvtColor, 8u and 32f, on the same input.  The two
// libraries scale differently (OpenCV's 8u hue runs 0..180 and its 32f hue
// in degrees; Lumi's hue covers the type's full range, 0..1 for 32f), so the
// difference column shows the scale gap rather than an error.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {

struct Images {
    cv::Mat in8, in32, lumi8, cv8, lumi32, cv32;
};

// Fn is the primitive's type from the public header, T its element type;
// in, ours and theirs are the Mats of that type.
template <typename Fn, typename T>
void add_case(const char *name, const char *entry, int code, const cv::Mat *in, cv::Mat *ours,
              cv::Mat *theirs, std::shared_ptr<Images> keep)
{
    lumibench::Pair p;
    p.name = name;
    p.pixels = (double)in->cols * in->rows;
    const LumiSize roi = {in->cols, in->rows};
    Fn fn = lumibench::get<Fn>(entry);
    p.lumi = [=] {
        (void)keep;
        fn((const T *)in->data, (int)in->step, (T *)ours->data, (int)ours->step, roi);
    };
    p.opencv = [=] { cv::cvtColor(*in, *theirs, code); };
    p.max_diff = [=] { return lumibench::max_abs_diff(*ours, *theirs); };
    p.note = "hue scales differ";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(hls)
{
    const int w = 1920, h = 1080;
    auto im = std::make_shared<Images>();
    im->in8 = lumibench::test_image(w, h, 3);
    im->in8.convertTo(im->in32, CV_32FC3, 1.0 / 255);
    im->lumi8.create(h, w, CV_8UC3);
    im->cv8.create(h, w, CV_8UC3);
    im->lumi32.create(h, w, CV_32FC3);
    im->cv32.create(h, w, CV_32FC3);
    typedef decltype(&lumiRGBToHLS_8u_C3R) Fn8;
    typedef decltype(&lumiRGBToHLS_32f_C3R) Fn32;
    Images *m = im.get();
    add_case<Fn8, Lum8u>("RGBToHLS_8u_C3R/1920x1080", "lumiRGBToHLS_8u_C3R", cv::COLOR_RGB2HLS,
                         &m->in8, &m->lumi8, &m->cv8, im);
    add_case<Fn8, Lum8u>("HLSToRGB_8u_C3R/1920x1080", "lumiHLSToRGB_8u_C3R", cv::COLOR_HLS2RGB,
                         &m->in8, &m->lumi8, &m->cv8, im);
    add_case<Fn32, Lum32f>("RGBToHLS_32f_C3R/1920x1080", "lumiRGBToHLS_32f_C3R",
                           cv::COLOR_RGB2HLS, &m->in32, &m->lumi32, &m->cv32, im);
    add_case<Fn32, Lum32f>("HLSToRGB_32f_C3R/1920x1080", "lumiHLSToRGB_32f_C3R",
                           cv::COLOR_HLS2RGB, &m->in32, &m->lumi32, &m->cv32, im);
}
