// RGB <-> YUV against cv::cvtColor; the planar forms against cvtColor with
// cv::split after it or cv::merge before it, which is what an OpenCV user
// writes for the same result.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "bench_common.h"

namespace {


struct Inputs {
    cv::Mat rgb, yuv;      // interleaved
    cv::Mat yuv_p[3];      // the planes of yuv
};

// Outputs of one case, kept apart so that each comparison sees its own.
struct Outputs {
    cv::Mat lumi_c3, cv_c3, lumi_p[3], cv_p[3];
    cv::Mat cv_tmp;  // OpenCV's interleaved intermediate
    Outputs(int w, int h)
    {
        lumi_c3.create(h, w, CV_8UC3);
        cv_c3.create(h, w, CV_8UC3);
        cv_tmp.create(h, w, CV_8UC3);
        for (int i = 0; i < 3; ++i) {
            lumi_p[i].create(h, w, CV_8UC1);
            cv_p[i].create(h, w, CV_8UC1);
        }
    }
};

int max_diff_planes(const cv::Mat *a, const cv::Mat *b)
{
    int d = 0;
    for (int i = 0; i < 3; ++i)
        d = std::max(d, lumibench::max_abs_diff(a[i], b[i]));
    return d;
}

} // namespace

LUMI_BENCH_CASES(yuv)
{
    const int w = 1920, h = 1080;
    const LumiSize roi = {w, h};
    auto in = std::make_shared<Inputs>();
    in->rgb = lumibench::test_image(w, h, 3);
    cv::cvtColor(in->rgb, in->yuv, cv::COLOR_RGB2YUV);
    cv::split(in->yuv, in->yuv_p);
    const int step3 = (int)in->rgb.step, step1 = (int)in->yuv_p[0].step;

    {
        lumibench::Pair p;
        auto b = std::make_shared<Outputs>(w, h);
        p.name = "RGBToYUV_8u_C3R/1920x1080";
        p.pixels = w * h;
        auto fn = LUMI_BENCH_GET(lumiRGBToYUV_8u_C3R);
        p.lumi = [=] { fn(in->rgb.data, step3, b->lumi_c3.data, step3, roi); };
        p.opencv = [=] { cv::cvtColor(in->rgb, b->cv_c3, cv::COLOR_RGB2YUV); };
        p.max_diff = [=] { return lumibench::max_abs_diff(b->lumi_c3, b->cv_c3); };
        lumibench::add(p);
    }
    {
        lumibench::Pair p;
        auto b = std::make_shared<Outputs>(w, h);
        p.name = "YUVToRGB_8u_C3R/1920x1080";
        p.pixels = w * h;
        auto fn = LUMI_BENCH_GET(lumiYUVToRGB_8u_C3R);
        p.lumi = [=] { fn(in->yuv.data, step3, b->lumi_c3.data, step3, roi); };
        p.opencv = [=] { cv::cvtColor(in->yuv, b->cv_c3, cv::COLOR_YUV2RGB); };
        p.max_diff = [=] { return lumibench::max_abs_diff(b->lumi_c3, b->cv_c3); };
        lumibench::add(p);
    }
    {
        lumibench::Pair p;
        auto b = std::make_shared<Outputs>(w, h);
        p.name = "RGBToYUV_8u_C3P3R/1920x1080";
        p.pixels = w * h;
        p.note = "vs cvtColor + split";
        auto fn = LUMI_BENCH_GET(lumiRGBToYUV_8u_C3P3R);
        p.lumi = [=] {
            Lum8u *const planes[3] = {b->lumi_p[0].data, b->lumi_p[1].data, b->lumi_p[2].data};
            fn(in->rgb.data, step3, planes, step1, roi);
        };
        p.opencv = [=] {
            cv::cvtColor(in->rgb, b->cv_tmp, cv::COLOR_RGB2YUV);
            cv::split(b->cv_tmp, b->cv_p);
        };
        p.max_diff = [=] { return max_diff_planes(b->lumi_p, b->cv_p); };
        lumibench::add(p);
    }
    {
        lumibench::Pair p;
        auto b = std::make_shared<Outputs>(w, h);
        p.name = "YUVToRGB_8u_P3C3R/1920x1080";
        p.pixels = w * h;
        p.note = "vs merge + cvtColor";
        auto fn = LUMI_BENCH_GET(lumiYUVToRGB_8u_P3C3R);
        p.lumi = [=] {
            const Lum8u *const planes[3] = {in->yuv_p[0].data, in->yuv_p[1].data,
                                            in->yuv_p[2].data};
            fn(planes, step1, b->lumi_c3.data, step3, roi);
        };
        p.opencv = [=] {
            cv::merge(in->yuv_p, 3, b->cv_tmp);
            cv::cvtColor(b->cv_tmp, b->cv_c3, cv::COLOR_YUV2RGB);
        };
        p.max_diff = [=] { return lumibench::max_abs_diff(b->lumi_c3, b->cv_c3); };
        lumibench::add(p);
    }
}
