// Runs every registered pair and prints, per case, the median time per pixel
// of Lumi and of OpenCV, their ratio, and the largest difference between the
// two outputs.  Arguments are Google Benchmark's (--benchmark_filter=...), and
// --report DIR, which writes the table as DIR/bench.csv and DIR/bench.json and
// draws DIR/ratios.png.  The console shows colour only on a terminal.
//
// Each side runs nine short repetitions, interleaved at random with those of
// every other benchmark, so that a slow spell of a shared machine falls on
// both sides of a ratio alike rather than on whichever ran during it.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_common.h"
#include "report.h"

namespace lumibench {
namespace {

// The processor code that forces dispatch index 5, the AVX tier.
#define LUMI_BENCH_AVX_CODE(index, code, features, label) (index == 5 ? code : 0) +
const int32_t kAvxCode = LUMI_DISPATCH_INDEX_LIST(LUMI_BENCH_AVX_CODE) 0;
#undef LUMI_BENCH_AVX_CODE

std::vector<Pair> &pairs()
{
    static std::vector<Pair> p;
    return p;
}

void *library()
{
    static void *lib = dlopen(LUMI_SO_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        fprintf(stderr, "cannot load %s: %s\n", LUMI_SO_PATH, dlerror());
        exit(1);
    }
    return lib;
}

// Collects the median of each run, by benchmark name.
class Collector : public benchmark::ConsoleReporter {
public:
    Collector() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}
    std::map<std::string, double> median_ns;
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &r : runs)
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median")
                median_ns[r.run_name.function_name] =
                    r.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(r.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

void add(const Pair &p) { pairs().push_back(p); }

void *lookup(const char *name)
{
    static auto getProc = (decltype(&GetProcAddressForSo))dlsym(library(), "GetProcAddressForSo");
    static auto initCpu = (decltype(&lumInitCpu))dlsym(library(), "lumInitCpu");
    void *fn = getProc(name);
    if (!fn) {
        fprintf(stderr, "%s: not served by the library\n", name);
        exit(1);
    }
    initCpu(kAvxCode); // the AVX tier, index 5
    return fn;
}

cv::Mat test_image(int width, int height, int channels)
{
    cv::Mat m(height, width, CV_8UC(channels));
    uint32_t s = 12345;
    for (int y = 0; y < height; ++y) {
        uint8_t *row = m.ptr<uint8_t>(y);
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c) {
                s = s * 1664525u + 1013904223u;
                int v = (x * 255 / width + y * 255 / height * (c + 1)) / 2;
                if (((x / 37) + (y / 29)) % 2)
                    v = 255 - v;                   // edges
                v += (int)((s >> 28) & 15) - 8;    // noise
                if ((x + y) % 7 == 0)
                    v ^= 0x40;                     // fine detail
                row[x * channels + c] = (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v);
            }
    }
    return m;
}

FilterImages filter_images(int channels, int k)
{
    FilterImages im;
    im.src = test_image(kFilterW, kFilterH, channels);
    const int r = k / 2;
    cv::copyMakeBorder(im.src, im.padded, r, r, r, r, cv::BORDER_REPLICATE);
    im.lumi = cv::Mat(kFilterH, kFilterW, CV_8UC(channels));
    im.ocv = cv::Mat(kFilterH, kFilterW, CV_8UC(channels));
    im.centre = im.padded.ptr<Lum8u>(r) + r * channels;
    return im;
}

std::string filter_case_name(const char *family, int k, int channels)
{
    return std::string(family) + "_" + std::to_string(k) + "x" + std::to_string(k) + "_C" +
           std::to_string(channels) + "/1920x1080";
}

Pair resize_pair(int channels, int outW, int outH, int lumiMethod, int cvMethod)
{
    const int inW = 1920, inH = 1080;
    auto src = std::make_shared<cv::Mat>(test_image(inW, inH, channels));
    auto ours = std::make_shared<cv::Mat>(outH, outW, CV_8UC(channels), cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(outH, outW, CV_8UC(channels), cv::Scalar::all(0));
    auto fn = channels == 1 ? LUMI_BENCH_GET(lumiResize_8u_C1R) : LUMI_BENCH_GET(lumiResize_8u_C3R);
    const double xf = (double)outW / inW, yf = (double)outH / inH;
    Pair p;
    p.pixels = (double)outW * outH;
    p.lumi = [=] {
        fn(src->data, LumiSize{inW, inH}, (int32_t)src->step, LumiRect{0, 0, inW, inH},
           ours->data, (int32_t)ours->step, LumiSize{outW, outH}, xf, yf, lumiMethod);
    };
    p.opencv = [=] { cv::resize(*src, *theirs, cv::Size(outW, outH), 0, 0, cvMethod); };
    p.max_diff = [=] { return max_abs_diff(*ours, *theirs); };
    return p;
}

int max_abs_diff(const cv::Mat &a, const cv::Mat &b)
{
    if (a.size() != b.size() || a.type() != b.type())
        return -1;
    cv::Mat d;
    cv::absdiff(a, b, d);
    double mx = 0;
    cv::minMaxLoc(d.reshape(1), nullptr, &mx);
    return (int)mx;
}

} // namespace lumibench

int main(int argc, char **argv)
{
    using namespace lumibench;
    cv::setNumThreads(1);
    for (const Pair &p : pairs()) {
        auto lumi = p.lumi, opencv = p.opencv;
        benchmark::RegisterBenchmark((p.name + "/lumi").c_str(), [lumi](benchmark::State &st) {
            for (auto _ : st)
                lumi();
        })->Repetitions(9)->MinTime(0.1)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((p.name + "/opencv").c_str(), [opencv](benchmark::State &st) {
            for (auto _ : st)
                opencv();
        })->Repetitions(9)->MinTime(0.1)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
    }
    // Interleaving is on unless the command line says otherwise.
    static const char flag[] = "--benchmark_enable_random_interleaving";
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char *> args;
    std::string report_dir;
    bool interleaveGiven = false;
    for (int i = 0; i < argc; ++i) {
        if (i > 0 && strcmp(argv[i], "--report") == 0 && i + 1 < argc) {
            report_dir = argv[++i];
            continue;
        }
        if (i > 0 && strncmp(argv[i], "--report=", 9) == 0) {
            report_dir = argv[i] + 9;
            continue;
        }
        interleaveGiven |= strncmp(argv[i], flag, sizeof flag - 1) == 0;
        args.push_back(argv[i]);
    }
    if (!interleaveGiven)
        args.insert(args.begin() + 1, interleave);
    int count = (int)args.size();
    benchmark::Initialize(&count, args.data());
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    std::vector<ResultRow> rows;
    printf("\n%-40s %12s %12s %8s %8s\n", "case", "lumi ns/px", "opencv ns/px", "ratio", "maxdiff");
    for (const Pair &p : pairs()) {
        auto l = collector.median_ns.find(p.name + "/lumi");
        auto o = collector.median_ns.find(p.name + "/opencv");
        if (l == collector.median_ns.end() || o == collector.median_ns.end())
            continue;
        const double px = p.pixels > 0 ? p.pixels : 1;
        rows.push_back({p.name, l->second / px, o->second / px, o->second / l->second,
                        p.max_diff ? p.max_diff() : -1, p.note});
        const ResultRow &r = rows.back();
        printf("%-40s %12.4f %12.4f %8.2f %8d  %s\n", r.name.c_str(), r.lumi_ns_px,
               r.opencv_ns_px, r.ratio, r.max_diff, r.note.c_str());
    }
    printf("ratio = OpenCV time / Lumi time: above 1 means Lumi is faster.\n");
    if (!report_dir.empty()) {
        std::string err;
        if (!write_report(report_dir, rows, &err)) {
            fprintf(stderr, "%s\n", err.c_str());
            return 1;
        }
        printf("report: %s/bench.csv, %s/bench.json, %s/ratios.png\n", report_dir.c_str(),
               report_dir.c_str(), report_dir.c_str());
    }
    return 0;
}
