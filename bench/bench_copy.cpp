// Copies: the plane copies against cv::split / cv::merge on a 1920x1080
// three-channel image, and the plain byte copy against memcpy at 64 KiB,
// 1 MiB and 64 MiB.
//
// The plane copies run two ways.  "warm": one image and its planes, used
// call after call, so that both sides find their 12 MiB in the last-level
// cache.  "host": what a host converting a stream of frames sees: each side
// owns a ring of page-aligned frames larger than the last-level cache and
// takes the next one at every call, so every call starts with its source
// and destination out of cache and neither side inherits data the other has
// just read.  (Timing the two on one shared source one after the other
// instead favours whichever runs second: it finds the source in cache.)
// OpenCV writes aligned planes and images with non-temporal stores whatever
// their size, so it gains out of cache what it loses in cache; Lumi streams
// only past the cache size it knows, and otherwise stores through the cache.
//
// The plain copy is a tier member without a dispatcher or a name in the
// table, so no host can look it up.  The benchmark links the library's
// objects statically for it and calls the AVX tier's member,
// e9_lumiCopy_8u_C1R, which is exactly what the filter families call.
#include <stdio.h>
#include <stdlib.h>
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

// Page-aligned frames of one side of a "host" case: an interleaved image and
// its three planes, `count` of each, released with the ring.
struct FrameRing {
    static const int count = 8; // 8 x 12 MiB a side, past the last-level cache
    int w, h, next = 0, last = 0; // `last`: the frame of the latest call
    Lum8u *image[count], *plane[count][3];
    FrameRing(int w_, int h_) : w(w_), h(h_)
    {
        for (int f = 0; f < count; ++f) {
            image[f] = page_alloc((size_t)3 * w * h);
            for (int c = 0; c < 3; ++c)
                plane[f][c] = page_alloc((size_t)w * h);
        }
    }
    ~FrameRing()
    {
        for (int f = 0; f < count; ++f) {
            free(image[f]);
            for (int c = 0; c < 3; ++c)
                free(plane[f][c]);
        }
    }
    FrameRing(const FrameRing &) = delete;
    FrameRing &operator=(const FrameRing &) = delete;
    cv::Mat image_mat(int f) const { return cv::Mat(h, w, CV_8UC3, image[f]); }
    void plane_mats(int f, cv::Mat out[3]) const
    {
        for (int c = 0; c < 3; ++c)
            out[c] = cv::Mat(h, w, CV_8UC1, plane[f][c]);
    }
    int take()
    {
        last = next;
        next = (next + 1) % count;
        return last;
    }

    static Lum8u *page_alloc(size_t bytes)
    {
        auto *p = (Lum8u *)aligned_alloc(4096, (bytes + 4095) / 4096 * 4096);
        if (!p) {
            fprintf(stderr, "out of memory for the frame ring\n");
            exit(1);
        }
        memset(p, 0, bytes); // every page mapped before timing
        return p;
    }
};

// The host cases: the same picture in every frame of both rings.
void add_host_plane_cases()
{
    const int w = 1920, h = 1080;
    const cv::Mat picture = lumibench::test_image(w, h, 3);
    auto lumi = std::make_shared<FrameRing>(w, h), ocv = std::make_shared<FrameRing>(w, h);
    cv::Mat planes[3];
    cv::split(picture, planes);
    for (FrameRing *r : {lumi.get(), ocv.get()})
        for (int f = 0; f < FrameRing::count; ++f) {
            memcpy(r->image[f], picture.data, (size_t)3 * w * h);
            for (int c = 0; c < 3; ++c)
                memcpy(r->plane[f][c], planes[c].data, (size_t)w * h);
        }

    auto split = LUMI_BENCH_GET(lumiCopy_8u_C3P3R);
    lumibench::Pair p;
    p.name = "copy_C3P3R_host/1920x1080";
    p.pixels = (double)w * h;
    p.lumi = [=] {
        const int f = lumi->take();
        split(lumi->image[f], 3 * w, lumi->plane[f], w, {w, h});
    };
    p.opencv = [=] {
        const int f = ocv->take();
        cv::Mat out[3];
        ocv->plane_mats(f, out);
        cv::split(ocv->image_mat(f), out);
    };
    p.max_diff = [=] {
        cv::Mat a[3], b[3];
        lumi->plane_mats(lumi->last, a);
        ocv->plane_mats(ocv->last, b);
        return max_diff_planes(a, b);
    };
    p.note = "vs cv::split, page-aligned frames out of cache";
    lumibench::add(p);

    auto merge = LUMI_BENCH_GET(lumiCopy_8u_P3C3R);
    lumibench::Pair q;
    q.name = "copy_P3C3R_host/1920x1080";
    q.pixels = (double)w * h;
    q.lumi = [=] {
        const int f = lumi->take();
        const Lum8u *s[3] = {lumi->plane[f][0], lumi->plane[f][1], lumi->plane[f][2]};
        merge(s, w, lumi->image[f], 3 * w, {w, h});
    };
    q.opencv = [=] {
        const int f = ocv->take();
        cv::Mat in[3];
        ocv->plane_mats(f, in);
        cv::Mat out = ocv->image_mat(f);
        cv::merge(in, 3, out);
    };
    q.max_diff = [=] {
        return lumibench::max_abs_diff(lumi->image_mat(lumi->last), ocv->image_mat(ocv->last));
    };
    q.note = "vs cv::merge, page-aligned frames out of cache";
    lumibench::add(q);
}

void add_plane_cases()
{
    const int w = 1920, h = 1080;
    auto image = std::make_shared<cv::Mat>(lumibench::test_image(w, h, 3));
    auto planes = std::make_shared<Planes>(image->size());
    auto split = LUMI_BENCH_GET(lumiCopy_8u_C3P3R);

    lumibench::Pair p;
    p.name = "copy_C3P3R_warm/1920x1080";
    p.pixels = (double)w * h;
    p.lumi = [=] {
        Lum8u *dst[3] = {planes->lumi[0].data, planes->lumi[1].data, planes->lumi[2].data};
        split(image->data, (int32_t)image->step, dst, (int32_t)planes->lumi[0].step, {w, h});
    };
    p.opencv = [=] { cv::split(*image, planes->opencv); };
    p.max_diff = [=] { return max_diff_planes(planes->lumi, planes->opencv); };
    p.note = "vs cv::split into preallocated planes, in cache";
    lumibench::add(p);

    auto merge = LUMI_BENCH_GET(lumiCopy_8u_P3C3R);
    auto outLumi = std::make_shared<cv::Mat>(h, w, CV_8UC3);
    auto outCv = std::make_shared<cv::Mat>(h, w, CV_8UC3);
    auto src = std::make_shared<Planes>(image->size());
    cv::split(*image, src->lumi);
    lumibench::Pair q;
    q.name = "copy_P3C3R_warm/1920x1080";
    q.pixels = (double)w * h;
    q.lumi = [=] {
        const Lum8u *s[3] = {src->lumi[0].data, src->lumi[1].data, src->lumi[2].data};
        merge(s, (int32_t)src->lumi[0].step, outLumi->data, (int32_t)outLumi->step, {w, h});
    };
    q.opencv = [=] { cv::merge(src->lumi, 3, *outCv); };
    q.max_diff = [=] { return lumibench::max_abs_diff(*outLumi, *outCv); };
    q.note = "vs cv::merge into a preallocated image, in cache";
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
    add_host_plane_cases();
    add_plain_case("copy_C1R/64KiB", 64 << 10);
    add_plain_case("copy_C1R/1MiB", 1 << 20);
    add_plain_case("copy_C1R/64MiB", 64 << 20);
}
