// Copies: the plane copies against cv::split / cv::merge on a 1920x1080
// three-channel image, and the plain byte copy against memcpy at 64 KiB,
// 1 MiB and 64 MiB.
//
// The plain copy is a tier member without a dispatcher or a name in the
// table, so no host can look it up.  The benchmark links the library's
// objects statically for it and calls the AVX tier's member,
// e9_lumiCopy_8u_C1R, which is exactly what the filter families call.
#include <string.h>

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "bench_common.h"

extern "C" LumStatus e9_lumiCopy_8u_C1R(const Lum8u *pSrc, int32_t srcStep, Lum8u *pDst,
                                        int32_t dstStep, LumiSize roiSize);

namespace {


struct Planes {
    cv::Mat lumi[3], opencv[3];
    explicit Planes(cv::Size size)
    {
        for (int c = 0; c < 3; ++c) {
            lumi[c].create(size, CV_8UC1);
            opencv[c].create(size, CV_8UC1);
        }
    }
};

int max_diff_planes(const cv::Mat *a, const cv::Mat *b)
{
    int worst = 0;
    for (int c = 0; c < 3; ++c) {
        const int d = lumibench::max_abs_diff(a[c], b[c]);
        if (d < 0)
            return -1;
        worst = d > worst ? d : worst;
    }
    return worst;
}

void add_plane_cases()
{
    const int w = 1920, h = 1080;
    auto image = std::make_shared<cv::Mat>(lumibench::test_image(w, h, 3));
    auto planes = std::make_shared<Planes>(image->size());
    auto split = LUMI_BENCH_GET(lumiCopy_8u_C3P3R);

    lumibench::Pair p;
    p.name = "copy_C3P3R/1920x1080";
    p.pixels = (double)w * h;
    p.lumi = [=] {
        Lum8u *dst[3] = {planes->lumi[0].data, planes->lumi[1].data, planes->lumi[2].data};
        split(image->data, (int32_t)image->step, dst, (int32_t)planes->lumi[0].step, {w, h});
    };
    p.opencv = [=] { cv::split(*image, planes->opencv); };
    p.max_diff = [=] { return max_diff_planes(planes->lumi, planes->opencv); };
    p.note = "vs cv::split into preallocated planes";
    lumibench::add(p);

    auto merge = LUMI_BENCH_GET(lumiCopy_8u_P3C3R);
    auto outLumi = std::make_shared<cv::Mat>(h, w, CV_8UC3);
    auto outCv = std::make_shared<cv::Mat>(h, w, CV_8UC3);
    auto src = std::make_shared<Planes>(image->size());
    cv::split(*image, src->lumi);
    lumibench::Pair q;
    q.name = "copy_P3C3R/1920x1080";
    q.pixels = (double)w * h;
    q.lumi = [=] {
        const Lum8u *s[3] = {src->lumi[0].data, src->lumi[1].data, src->lumi[2].data};
        merge(s, (int32_t)src->lumi[0].step, outLumi->data, (int32_t)outLumi->step, {w, h});
    };
    q.opencv = [=] { cv::merge(src->lumi, 3, *outCv); };
    q.max_diff = [=] { return lumibench::max_abs_diff(*outLumi, *outCv); };
    q.note = "vs cv::merge into a preallocated image";
    lumibench::add(q);
}

// One contiguous region of rows of 1024 bytes, which the copy flattens.
void add_plain_case(const char *name, int bytes)
{
    const int w = 1024, h = bytes / w;
    auto src = std::make_shared<cv::Mat>(h, w, CV_8UC1);
    cv::randu(*src, 0, 256);
    auto dstLumi = std::make_shared<cv::Mat>(h, w, CV_8UC1, cv::Scalar(0));
    auto dstRef = std::make_shared<cv::Mat>(h, w, CV_8UC1, cv::Scalar(0));
    lumibench::Pair p;
    p.name = name;
    p.pixels = bytes;
    p.lumi = [=] { e9_lumiCopy_8u_C1R(src->data, w, dstLumi->data, w, {w, h}); };
    p.opencv = [=] { memcpy(dstRef->data, src->data, (size_t)bytes); };
    p.max_diff = [=] { return lumibench::max_abs_diff(*dstLumi, *dstRef); };
    p.note = "e9 member vs memcpy (ns per byte)";
    lumibench::add(p);
}

} // namespace

LUMI_BENCH_CASES(copy)
{
    add_plane_cases();
    add_plain_case("copy_C1R/64KiB", 64 << 10);
    add_plain_case("copy_C1R/1MiB", 1 << 20);
    add_plain_case("copy_C1R/64MiB", 64 << 20);
}
