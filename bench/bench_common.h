// Shared pieces of the benchmark cases.
//
// A case is a pair: the Lumi call and the OpenCV call doing the same work on
// the same input, plus a function that compares the two outputs.  Register
// cases from a file bench_<family>.cpp with a static LUMI_BENCH_CASES block:
//
//   LUMI_BENCH_CASES(copy) {
//       lumibench::Pair p;
//       p.name = "copy_C3P3R/1920x1080";
//       p.pixels = 1920 * 1080;
//       ... allocate buffers (shared_ptr or static), capture them in the lambdas ...
//       p.lumi = [=] { fn(...); };
//       p.opencv = [=] { cv::split(...); };
//       p.max_diff = [=] { return lumibench::max_abs_diff(a, b); };
//       lumibench::add(p);
//   }
//
// Everything is allocated outside the timed calls; OpenCV works on cv::Mat
// headers over our own buffers and runs single-threaded.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "lumi.h"

namespace lumibench {

struct Pair {
    std::string name;
    double pixels = 0;              // output pixels per call, for time per pixel
    std::function<void()> lumi;
    std::function<void()> opencv;
    std::function<int()> max_diff;  // largest absolute difference of the outputs (-1: n/a)
    std::string note;               // printed beside the ratio
};

void add(const Pair &p);

// Address of a primitive through GetProcAddressForSo; the tier is then forced
// to e9 again, since every lookup puts the automatic tier back.
void *lookup(const char *name);
template <typename Fn>
Fn get(const char *name)
{
    return reinterpret_cast<Fn>(lookup(name));
}
// The primitive typed from the public header: LUMI_BENCH_GET(lumiResize_8u_C3R).
#define LUMI_BENCH_GET(name) lumibench::get<decltype(&name)>(#name)

// A reproducible test picture: gradients, edges, fine detail and noise.
cv::Mat test_image(int width, int height, int channels);

int max_abs_diff(const cv::Mat &a, const cv::Mat &b);

// The images of a window filter's case at 1920x1080: the test picture; the
// same padded by replication k / 2 pixels on every side, which Lumi reads
// since it makes no border of its own; and one output for each side.
const int kFilterW = 1920, kFilterH = 1080;
struct FilterImages {
    cv::Mat src, padded, lumi, ocv;
    const Lum8u *centre; // pixel of `padded` under the first output pixel
};
FilterImages filter_images(int channels, int k);
// "<family>_<k>x<k>_C<channels>/1920x1080"
std::string filter_case_name(const char *family, int k, int channels);

// A resize case from the 1920x1080 test picture to outW x outH, Lumi's
// lumiMethod on the whole picture beside cv::resize with cvMethod, with
// pixels, both calls and max_diff filled; name and note are the caller's.
Pair resize_pair(int channels, int outW, int outH, int lumiMethod, int cvMethod);

struct Registrar {
    explicit Registrar(void (*fn)()) { fn(); }
};

} // namespace lumibench

#define LUMI_BENCH_CASES(family)                                  \
    static void lumi_bench_cases_##family();                      \
    static lumibench::Registrar lumi_bench_reg_##family(lumi_bench_cases_##family); \
    static void lumi_bench_cases_##family()
