// The lumi command, run as a user runs it: argument errors, each alias
// against the primitive called directly, forced tiers, list and demo.
// Primitives that have not landed (by the entry list) are left out.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "lumi_cli.h"

namespace {

using cli::Image;

// The rows the entry list marks as landed (a function behind the name).
bool landed(const char *name)
{
    static const char *const rows[] = {
#define LUMI_ROW_BOUND(name) #name,
#define LUMI_ROW_SELF(name) #name,
#define LUMI_ROW_ABSENT(name)
#define LUMI_ROW_DISPATCHED(name, s0, s1, s2, s3, s4, s5) #name,
#include "lumi_entries.def"
#undef LUMI_ROW_BOUND
#undef LUMI_ROW_SELF
#undef LUMI_ROW_ABSENT
#undef LUMI_ROW_DISPATCHED
    };
    for (const char *r : rows)
        if (strcmp(r, name) == 0)
            return true;
    return false;
}

struct Result {
    int code;
    std::string out, err;
};

std::string slurp(const std::string &path)
{
    std::ifstream f(path);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

bool exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/lumi-cli-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        std::string err;
        ASSERT_TRUE(cli::open_library("", &lib, &err)) << err;
    }
    void TearDown() override
    {
        std::string cmd = "rm -rf '" + dir + "'";
        ASSERT_EQ(system(cmd.c_str()), 0);
    }

    std::string path(const std::string &name) const { return dir + "/" + name; }

    Result lumi(const std::string &args, const std::string &env = "")
    {
        std::string cmd = "cd '" + dir + "' && " + env + " '" LUMI_CLI_PATH "' " + args +
                          " >stdout.txt 2>stderr.txt";
        int rc = system(cmd.c_str());
        Result r{WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(path("stdout.txt")),
                 slurp(path("stderr.txt"))};
        return r;
    }

    // Whether the primitive has landed, by the entry list; the library under
    // test must agree, so a family that regresses to a null row fails here
    // rather than having its cases skipped.
    bool live(const char *name)
    {
        EXPECT_EQ(lib.get_proc(name) != nullptr, landed(name)) << name;
        return landed(name);
    }

    // Pseudo-random pixels, the same on every run.
    Image noise(int w, int h, int channels, uint32_t seed = 12345)
    {
        Image img;
        std::string err;
        cli::make_image(&img, w, h, channels, &err);
        for (uint8_t &p : img.pixels) {
            seed = seed * 1664525u + 1013904223u;
            p = (uint8_t)(seed >> 24);
        }
        return img;
    }

    void save(const std::string &name, const Image &img)
    {
        std::string err;
        ASSERT_TRUE(cli::save_image(path(name), img, &err)) << err;
    }

    Image load(const std::string &name, int channels)
    {
        Image img;
        std::string err;
        EXPECT_TRUE(cli::load_image(path(name), channels, &img, &err)) << err;
        return img;
    }

    std::string dir;
    cli::Library lib;
};

int line_count(const std::string &s)
{
    int n = 0;
    for (char c : s)
        n += c == '\n';
    return n;
}

TEST_F(Cli, BadArgumentsGiveOneLineAndWriteNothing)
{
    save("in.pgm", noise(23, 17, 1));
    save("in.ppm", noise(23, 17, 3));
    save("tall.pgm", noise(23, 16, 1));
    {
        std::ofstream f(path("garbage.png"));
        f << "not a picture";
    }
    const struct {
        const char *args;
        const char *says;
    } cases[] = {
        {"frobnicate in.pgm out.png", "no primitive or command named 'frobnicate'"},
        {"run lumiLUT_8u_C1R in.pgm out.png", "cannot run it yet"},
        {"run", "wants a primitive"},
        {"median --mask 5y5 in.pgm out.png", "--mask wants WxH"},
        {"median --mask 2000 in.pgm out.png", "--mask wants WxH"},
        {"median in.pgm out.png --mask", "--mask wants a value"},
        {"median --anchor 1 in.pgm out.png", "--anchor wants X,Y"},
        {"box --method nn in.pgm out.png", "takes no --method"},
        {"resize --mask 3x3 in.pgm out.png", "takes no --mask"},
        {"resize --scale x in.pgm out.png", "--scale wants a number"},
        {"resize --method sideways in.pgm out.png", "--method wants"},
        {"median --bogus 1 in.pgm out.png", "unknown option --bogus"},
        {"median --tier z9 in.pgm out.png", "--tier wants"},
        {"median --roi 1,2,3 in.pgm out.png", "--roi wants X,Y,W,H"},
        {"median --roi 20,0,10,10 in.pgm out.png", "does not lie within the 23x17 picture"},
        {"median --roi 0,0,0,5 in.ppm out.png", "does not lie within"},
        {"median in.pgm", "wants IN and OUT"},
        {"median in.pgm out.png extra.png", "wants IN and OUT"},
        {"median in.pgm out.gif", "must end in .png"},
        {"median missing.png out.png", "cannot read missing.png"},
        {"median garbage.png out.png", "cannot decode garbage.png"},
        {"merge tall.pgm out.png", "three times as tall"},
        {"demo --bogus", "demo takes only --out DIR"},
        {"list extra", "list takes no arguments"},
    };
    for (const auto &c : cases) {
        Result r = lumi(c.args);
        EXPECT_NE(r.code, 0) << c.args;
        EXPECT_EQ(line_count(r.err), 1) << c.args << "\n" << r.err;
        EXPECT_EQ(r.err.compare(0, 6, "lumi: "), 0) << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_FALSE(exists(path("out.png"))) << c.args;
    }
    EXPECT_EQ(lumi("").code, 2); // usage on stderr
    Result help = lumi("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("median"), std::string::npos);
    EXPECT_EQ(lumi("median --help").code, 0);
}

// Statuses from the library: named on one line, and no file written.
TEST_F(Cli, NonZeroStatusesAreNamedAndWriteNothing)
{
    save("in.ppm", noise(23, 17, 3));
    const struct {
        const char *prim;
        const char *args;
        const char *says;
    } cases[] = {
        {"lumiFilterMedian_8u_C3R", "median --mask 4x3", "returned -33 (lumStsMaskSizeErr)"},
        {"lumiFilterBox_8u_C3R", "box --mask 3x3 --anchor 3,0", "returned -34 (lumStsAnchorErr)"},
        {"lumiFilterBox_8u_C3R", "box --mask 0x3", "returned -33 (lumStsMaskSizeErr)"},
        {"lumiFilterGauss_8u_C3R", "gauss --mask 3x1", "returned -33 (lumStsMaskSizeErr)"},
        {"lumiFilterMedianColor_8u_C3R", "median-color --mask 7x7",
         "returned -33 (lumStsMaskSizeErr)"},
        {"lumiFilterMax_8u_C1R", "max --mask 3x3 --anchor 0,3", "returned -34 (lumStsAnchorErr)"},
        {"lumiResize_8u_C3R", "resize --method catmullrom",
         "returned -22 (lumStsInterpolationErr)"},
        {"lumiResize_8u_C3R", "resize --scale 0", "returned -23 (lumStsResizeFactorErr)"},
        {"lumiResize_8u_C3R", "resize --scale 2 --method super",
         "returned -22 (lumStsInterpolationErr)"},
        {"lumiResize_8u_C3R", "resize --scale 0.01", "returned -201 (lumStsResizeEmptyErr)"},
    };
    int ran = 0;
    for (const auto &c : cases) {
        if (!live(c.prim))
            continue;
        ++ran;
        Result r = lumi(std::string(c.args) + " in.ppm out.png");
        EXPECT_EQ(r.code, 1) << c.args;
        EXPECT_EQ(r.err, std::string("lumi: ") + c.prim + " " + c.says + "\n") << c.args;
        EXPECT_FALSE(exists(path("out.png"))) << c.args;
    }
    EXPECT_GT(ran, 0);
    // A library that serves no name: the command says so and writes nothing.
    Result r = lumi("--lib '" LUMI_NULL_LIBRARY_PATH "' run lumiFilterMedian_8u_C1R in.ppm out.png");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "lumi: lumiFilterMedian_8u_C1R is not live in this library\n");
    EXPECT_FALSE(exists(path("out.png")));
}

// --- each alias against the primitive called directly -----------------------

struct AliasCase {
    const char *alias;
    const char *prim;
    int channels;   // of the input file
    bool planes_in; // input is three stacked planes
    const char *args;
    // The expected result, from a direct call on the input.
    std::function<Image(void *fn, const Image &in)> expect;
};

const int W = 23, H = 17;

Image blank(int w, int h, int channels)
{
    Image img;
    std::string err;
    cli::make_image(&img, w, h, channels, &err);
    return img;
}

template <typename Fn>
Image pixels(void *fn, const Image &in)
{
    Image out = blank(in.width, in.height, 3);
    EXPECT_EQ(((Fn)fn)(in.pixels.data(), in.step(), out.pixels.data(), out.step(), {W, H}),
              0);
    return out;
}

template <typename Fn>
Image to_planes(void *fn, const Image &in)
{
    Image out = blank(W, 3 * H, 1);
    Lum8u *p[3] = {out.at(0, 0), out.at(0, H), out.at(0, 2 * H)};
    EXPECT_EQ(((Fn)fn)(in.pixels.data(), in.step(), p, W, {W, H}), 0);
    return out;
}

template <typename Fn>
Image from_planes(void *fn, const Image &in)
{
    Image out = blank(W, H, 3);
    const Lum8u *p[3] = {in.at(0, 0), in.at(0, H), in.at(0, 2 * H)};
    EXPECT_EQ(((Fn)fn)(p, W, out.pixels.data(), out.step(), {W, H}), 0);
    return out;
}

// A filter over the region 3,2,15,11 with a 5 by 3 mask anchored at 1,2:
// its footprint lies within the picture, so no edge pixel is made up.
const LumiRect kRoi = {3, 2, 15, 11};
const LumiSize kMask = {5, 3};
const LumiPoint kAnchor = {1, 2};
const char kFilterArgs[] = "--roi 3,2,15,11 --mask 5x3 --anchor 1,2";

template <typename Fn>
Image filter(void *fn, const Image &in)
{
    Image out = in;
    EXPECT_EQ(((Fn)fn)(in.at(kRoi.x, kRoi.y), in.step(), out.at(kRoi.x, kRoi.y), out.step(),
                             {kRoi.width, kRoi.height}, kMask, kAnchor),
              0);
    return out;
}

template <typename Fn>
Image filter_in_place(void *fn, const Image &in)
{
    Image out = in;
    EXPECT_EQ(((Fn)fn)(out.at(kRoi.x, kRoi.y), out.step(), {kRoi.width, kRoi.height},
                                    kMask, kAnchor),
              0);
    return out;
}

// The 5x5 Gaussian over the same region: two pixels each way, still inside.
template <typename Fn>
Image gauss(void *fn, const Image &in)
{
    Image out = in;
    EXPECT_EQ(((Fn)fn)(in.at(kRoi.x, kRoi.y), in.step(), out.at(kRoi.x, kRoi.y), out.step(),
                       {kRoi.width, kRoi.height}, lumMaskSize5x5),
              0);
    return out;
}

template <typename Fn>
Image resize(void *fn, const Image &in)
{
    // --roi 2,3,15,11 --size 31x7: factors 31/15 and 7/11.
    Image out = blank(31, 7, in.channels);
    EXPECT_EQ(((Fn)fn)(in.pixels.data(), {W, H}, in.step(), {2, 3, 15, 11}, out.pixels.data(),
                             out.step(), {31, 7}, 31.0 / 15, 7.0 / 11, 2),
              0);
    return out;
}

// --roi 2,3,15,11 --size 7x5 --method super: factors 7/15 and 5/11.
template <typename Fn>
Image resize_super(void *fn, const Image &in)
{
    Image out = blank(7, 5, in.channels);
    EXPECT_EQ(((Fn)fn)(in.pixels.data(), {W, H}, in.step(), {2, 3, 15, 11}, out.pixels.data(),
                       out.step(), {7, 5}, 7.0 / 15, 5.0 / 11, LUMI_INTER_SUPER),
              0);
    return out;
}

// Half a turn about the centre with nearest neighbour: the picture reflected
// through its centre, from maps written here.
template <typename Fn>
Image half_turn(void *fn, const Image &in)
{
    Image out = in;
    std::vector<Lum32f> xm((size_t)W * H), ym(xm.size());
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            xm[(size_t)y * W + x] = (Lum32f)(W - 1 - x), ym[(size_t)y * W + x] = (Lum32f)(H - 1 - y);
    EXPECT_EQ(((Fn)fn)(in.pixels.data(), {W, H}, in.step(), {0, 0, W, H}, xm.data(), W * 4, ym.data(), W * 4,
                       out.pixels.data(), out.step(), {W, H}, LUMI_INTER_NN),
              0);
    return out;
}

TEST_F(Cli, EachAliasGivesWhatTheDirectCallGives)
{
    // The expected result comes from a direct call typed from the public header.
#define ALIAS_CASE(alias, prim, channels, planes_in, args, shape) \
    {alias, #prim, channels, planes_in, args, shape<decltype(&prim)>}
    const AliasCase cases[] = {
        ALIAS_CASE("split", lumiCopy_8u_C3P3R, 3, false, "", to_planes),
        ALIAS_CASE("merge", lumiCopy_8u_P3C3R, 1, true, "", from_planes),
        ALIAS_CASE("rgb2yuv", lumiRGBToYUV_8u_C3R, 3, false, "", pixels),
        ALIAS_CASE("yuv2rgb", lumiYUVToRGB_8u_C3R, 3, false, "", pixels),
        ALIAS_CASE("rgb2yuv-planes", lumiRGBToYUV_8u_C3P3R, 3, false, "", to_planes),
        ALIAS_CASE("yuv2rgb-planes", lumiYUVToRGB_8u_P3C3R, 1, true, "", from_planes),
        ALIAS_CASE("resize", lumiResize_8u_C1R, 1, false,
                   "--roi 2,3,15,11 --size 31x7 --method linear", resize),
        ALIAS_CASE("resize", lumiResize_8u_C3R, 3, false, "--roi 2,3,15,11 --size 31x7 --method 2", resize),
        ALIAS_CASE("resize", lumiResize_8u_C1R, 1, false,
                   "--roi 2,3,15,11 --size 7x5 --method super", resize_super),
        ALIAS_CASE("resize", lumiResize_8u_C3R, 3, false,
                   "--roi 2,3,15,11 --size 7x5 --method 8", resize_super),
        ALIAS_CASE("remap", lumiRemap_8u_C1R, 1, false, "--rotate 180 --method nn", half_turn),
        ALIAS_CASE("remap", lumiRemap_8u_C3R, 3, false, "--rotate -180 --method 1", half_turn),
        ALIAS_CASE("box", lumiFilterBox_8u_C1R, 1, false, kFilterArgs, filter),
        ALIAS_CASE("box", lumiFilterBox_8u_C3R, 3, false, kFilterArgs, filter),
        ALIAS_CASE("box-inplace", lumiFilterBox_8u_C1IR, 1, false, kFilterArgs, filter_in_place),
        ALIAS_CASE("box-inplace", lumiFilterBox_8u_C3IR, 3, false, kFilterArgs, filter_in_place),
        ALIAS_CASE("median", lumiFilterMedian_8u_C1R, 1, false, kFilterArgs, filter),
        ALIAS_CASE("median", lumiFilterMedian_8u_C3R, 3, false, kFilterArgs, filter),
        ALIAS_CASE("gauss", lumiFilterGauss_8u_C1R, 1, false, "--roi 3,2,15,11 --mask 5x5", gauss),
        ALIAS_CASE("gauss", lumiFilterGauss_8u_C3R, 3, false, "--roi 3,2,15,11 --mask 5", gauss),
        ALIAS_CASE("median-color", lumiFilterMedianColor_8u_C3R, 3, false,
                   "--roi 3,2,15,11 --mask 5x5", gauss),
        ALIAS_CASE("min", lumiFilterMin_8u_C1R, 1, false, kFilterArgs, filter),
        ALIAS_CASE("max", lumiFilterMax_8u_C1R, 1, false, kFilterArgs, filter),
    };
    int ran = 0;
    for (const AliasCase &c : cases) {
        SCOPED_TRACE(c.prim);
        // Every alias names the form for its channels.
        EXPECT_STREQ(cli::find_alias(c.alias, c.planes_in ? 3 : c.channels)->name, c.prim);
        if (!live(c.prim))
            continue;
        ++ran;
        Image in = noise(W, c.planes_in ? 3 * H : H, c.channels);
        Image expected = c.expect(lib.get_proc(c.prim), in);
        const char *ext = c.channels == 1 ? "pgm" : "ppm";
        const char *out = expected.channels == 1 ? "out.pgm" : "out.ppm";
        save(std::string("in.") + ext, in);
        Result r = lumi(std::string(c.alias) + " " + c.args + " in." + ext + " " + out);
        ASSERT_EQ(r.code, 0) << r.err;
        Image got = load(out, expected.channels);
        EXPECT_EQ(got.width, expected.width);
        EXPECT_EQ(got.height, expected.height);
        EXPECT_TRUE(got.pixels == expected.pixels);
        // The same by the full name, and through PNG.
        r = lumi(std::string("run ") + c.prim + " " + c.args + " in." + ext + " out.png");
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_TRUE(load("out.png", expected.channels).pixels == expected.pixels);
    }
    EXPECT_GT(ran, 0);
}

// The bilateral alias sizes and builds the state block itself: its result
// is that of the three calls made directly, on a region wide enough for the
// fixed kernel and on a narrow one with a step.
TEST_F(Cli, BilateralAliasGivesWhatTheThreeCallsGive)
{
    if (!live("lumiFilterBilateral_8u_C1R"))
        return;
    auto get_size = LUMI_CLI_PROC(lib, lumiFilterBilateralGetBufSize_8u_C1R);
    auto init = LUMI_CLI_PROC(lib, lumiFilterBilateralInit_8u_C1R);
    auto run = LUMI_CLI_PROC(lib, lumiFilterBilateral_8u_C1R);
    ASSERT_TRUE(get_size && init && run);
    const Image in = noise(W, H, 1);
    save("in.pgm", in);
    const struct {
        LumiRect roi;
        LumiSize k;
        int step;
        const char *args;
    } cases[] = {
        {{2, 2, 19, 13}, {5, 5}, 1, "--roi 2,2,19,13 --mask 5 --sigma-value 400 --sigma-position 4"},
        {{4, 3, 12, 9}, {7, 5}, 2,
         "--roi 4,3,12,9 --mask 7x5 --sigma-value 400 --sigma-position 4 --step 2"},
    };
    for (const auto &c : cases) {
        Image expected = in;
        const LumiSize roi = {c.roi.width, c.roi.height};
        int32_t size = 0;
        ASSERT_EQ(get_size(lumiFilterBilateralGauss, roi, c.k, &size), 0);
        std::vector<Lum8u> block((size_t)size);
        ASSERT_EQ(init(lumiFilterBilateralGauss, c.k, 400.0f, 4.0f, c.step, block.data()), 0);
        ASSERT_EQ(run(in.at(c.roi.x, c.roi.y), in.step(), expected.at(c.roi.x, c.roi.y),
                      expected.step(), roi, c.k, block.data()),
                  0);
        Result r = lumi(std::string("bilateral ") + c.args + " in.pgm out.pgm");
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_TRUE(load("out.pgm", 1).pixels == expected.pixels) << c.args;
    }
    Result r = lumi("bilateral --mask 0 in.pgm out.pgm");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("returned -33 (lumStsMaskSizeErr)"), std::string::npos) << r.err;
}

// Without --roi a filter keeps the picture's size: inside, where the window
// stays in the picture, it agrees with the direct call; at the edges the
// command repeats the edge pixels, so a constant picture stays constant.
TEST_F(Cli, FiltersKeepThePictureSizeAndRepeatTheEdges)
{
    for (const char *prim :
         {"lumiFilterBox_8u_C3R", "lumiFilterMedian_8u_C3R", "lumiFilterBox_8u_C3IR"}) {
        SCOPED_TRACE(prim);
        if (!live(prim))
            continue;
        Image flat = blank(W, H, 3);
        for (size_t i = 0; i < flat.pixels.size(); ++i)
            flat.pixels[i] = (uint8_t)(40 + 50 * (i % 3));
        save("flat.ppm", flat);
        ASSERT_EQ(
            lumi(std::string("run ") + prim + " --mask 7x5 --anchor 6,0 flat.ppm out.ppm").code, 0);
        EXPECT_TRUE(load("out.ppm", 3).pixels == flat.pixels);
    }
    ASSERT_TRUE(live("lumiFilterMedian_8u_C1R"));
    Image in = noise(W, H, 1);
    save("in.pgm", in);
    ASSERT_EQ(lumi("median --mask 3x3 in.pgm out.pgm").code, 0);
    Image got = load("out.pgm", 1);
    ASSERT_EQ(got.width, W);
    ASSERT_EQ(got.height, H);
    Image expected = in;
    EXPECT_EQ(LUMI_CLI_PROC(lib, lumiFilterMedian_8u_C1R)(
                  in.at(1, 1), in.step(), expected.at(1, 1), expected.step(), {W - 2, H - 2},
                  {3, 3}, {1, 1}),
              0);
    for (int y = 1; y < H - 1; ++y)
        EXPECT_EQ(memcmp(got.at(1, y), expected.at(1, y), W - 2), 0) << "row " << y;
}

// --kernel is read row by row and mirrored by the library: a single 1 right
// of the centre moves the picture one pixel right.  Presets carry their
// divisor, --divisor overrides it, and the float form gives the same blur.
TEST_F(Cli, FilterKernelsPresetsAndDivisor)
{
    if (!live("lumiFilter_8u_C1R") || !live("lumiFilter32f_8u_C1R"))
        return;
    const int W = 29, H = 11;
    Image in = noise(W, H, 1);
    save("in.pgm", in);
    ASSERT_EQ(lumi("filter --kernel \"0,0,0;0,0,1;0,0,0\" in.pgm shift.pgm").code, 0);
    Image shift = load("shift.pgm", 1);
    for (int y = 0; y < H; ++y)
        for (int x = 1; x < W; ++x)
            ASSERT_EQ(shift.at(x, y)[0], in.at(x - 1, y)[0]) << x << "," << y;

    ASSERT_EQ(lumi("filter --kernel blur in.pgm a.pgm").code, 0);
    ASSERT_EQ(lumi("filter --kernel '1,2,1;2,4,2;1,2,1' --divisor 16 in.pgm b.pgm").code, 0);
    ASSERT_EQ(lumi("filter32f --kernel blur in.pgm c.pgm").code, 0);
    ASSERT_EQ(lumi("filter --kernel blur --divisor 1 in.pgm d.pgm").code, 0);
    EXPECT_TRUE(load("a.pgm", 1).pixels == load("b.pgm", 1).pixels);
    Image c = load("c.pgm", 1), a = load("a.pgm", 1);
    for (size_t i = 0; i < a.pixels.size(); ++i)
        EXPECT_LE(abs(a.pixels[i] - c.pixels[i]), 1) << i;
    EXPECT_FALSE(load("d.pgm", 1).pixels == a.pixels);

    for (const char *bad : {"1,2;3", "x", "0.5", ""}) {
        Result r = lumi(std::string("filter --kernel '") + bad + "' in.pgm e.pgm");
        EXPECT_NE(r.code, 0) << bad;
        EXPECT_NE(r.err.find("--kernel wants"), std::string::npos) << r.err;
        EXPECT_FALSE(exists(path("e.pgm")));
    }
    Result r = lumi("filter --kernel sharpen --divisor 0 in.pgm e.pgm");
    EXPECT_NE(r.err.find("lumStsDivisorErr"), std::string::npos) << r.err;
    EXPECT_NE(lumi("filter32f --divisor 2 in.pgm e.pgm").code, 0);
}

TEST_F(Cli, ForcedTiersAgreeAndUnknownOnesAreRefused)
{
    const char *prim = "lumiFilterMedian_8u_C3R";
    ASSERT_TRUE(live(prim));
    save("in.ppm", noise(40, 9, 3));
    ASSERT_EQ(lumi("median --mask 5x5 in.ppm auto.ppm").code, 0);
    Image automatic = load("auto.ppm", 3);
    Lum64u features = 0;
    lib.get_cpu_features(&features, nullptr);
    // Every tier the primitive's row names, on every index this processor runs.
    const cli::EntryRow *row = cli::find_entry(prim);
    ASSERT_NE(row, nullptr);
    const struct {
        int index;
        Lum64u needs;
    } indices[] = {
#define INDEX_NEEDS(index, code, needs, label) {index, needs},
        LUMI_DISPATCH_INDEX_LIST(INDEX_NEEDS)
#undef INDEX_NEEDS
    };
    for (const auto &i : indices) {
        if ((features & i.needs) != i.needs)
            continue;
        const std::string tier = row->slots[i.index];
        Result r = lumi("median --mask 5x5 --tier " + tier + " --time in.ppm out.ppm");
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_NE(r.out.find("ms on tier " + tier), std::string::npos) << r.out;
        EXPECT_TRUE(load("out.ppm", 3).pixels == automatic.pixels) << tier;
    }
    // The three-channel median has no n8 member.
    Result r = lumi("median --mask 5x5 --tier n8 in.ppm none.ppm");
    EXPECT_EQ(r.err, std::string("lumi: ") + prim + " has no n8 tier (it has m7 u8 y8 e9)\n");
    EXPECT_FALSE(exists(path("none.ppm")));
}

TEST_F(Cli, ListShowsEveryRowAndWhetherItIsLive)
{
    Result r = lumi("list");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(line_count(r.out), 3 + 70);
    // The library file it loaded: the one beside the command in the build tree.
    EXPECT_EQ(r.out.find("library: " + lib.path + "\n"), r.out.find('\n') + 1) << r.out;
    EXPECT_NE(r.out.find(", tier " + cli::current_tier(lib)), std::string::npos);
    for (const cli::EntryRow &row : cli::entry_rows()) {
        std::string name = std::string("\n") + row.name + " ";
        size_t at = r.out.find(name);
        ASSERT_NE(at, std::string::npos) << row.name;
        std::string line = r.out.substr(at + 1, r.out.find('\n', at + 1) - at - 1);
        bool says_live = line.find(" not live ") == std::string::npos;
        EXPECT_EQ(says_live, live(row.name)) << line;
    }
}

// split and merge with --roi: inside the region the primitive's result,
// outside it the input in the new layout.
TEST_F(Cli, LayoutChangesKeepTheInputOutsideTheRegion)
{
    Image in = noise(W, H, 3);
    save("in.ppm", in);
    ASSERT_EQ(lumi("split --roi 3,2,15,11 in.ppm planes.pgm").code, 0);
    Image planes = load("planes.pgm", 1);
    ASSERT_EQ(planes.height, 3 * H);
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                ASSERT_EQ(*planes.at(x, c * H + y), in.at(x, y)[c]) << c << " " << x << "," << y;
    ASSERT_EQ(lumi("merge --roi 3,2,15,11 planes.pgm back.ppm").code, 0);
    EXPECT_TRUE(load("back.ppm", 3).pixels == in.pixels);
}

// One version everywhere, and a library named by the environment is the only
// one tried.
TEST_F(Cli, VersionAndTheLibraryItLoads)
{
    Result r = lumi("--version");
    ASSERT_EQ(r.code, 0) << r.err;
    const LumLibraryVersion *v = lib.version();
    char numbers[64];
    snprintf(numbers, sizeof numbers, "%d.%d.%d.%d", v->major, v->minor, v->majorBuild, v->build);
    EXPECT_EQ(std::string(LUMI_VERSION), numbers);
    EXPECT_EQ(r.out, std::string("lumi ") + numbers + "\nlibrary " + numbers + " (" + v->Version +
                         ") from " + lib.path + "\n");

    r = lumi("list", "LUMI_LIBRARY=/no/such/liblumi.so");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.compare(0, 31, "lumi: cannot load $LUMI_LIBRARY"), 0) << r.err;
    r = lumi("list", "LUMI_LIBRARY='" LUMI_NULL_LIBRARY_PATH "'");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("library: "), std::string::npos);
    int not_live = 0;
    for (size_t at = r.out.find("not live"); at != std::string::npos;
         at = r.out.find("not live", at + 1))
        ++not_live;
    EXPECT_EQ(not_live, 70) << "the stand-in serves nothing";
}

TEST_F(Cli, DemoWritesValidPicturesOfTheExpectedSizes)
{
    Result r = lumi("demo --out gallery/sub");
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string g = "gallery/sub/";
    Image input = load(g + "input.png", 3);
    EXPECT_EQ(input.width, 320);
    EXPECT_EQ(input.height, 240);
    EXPECT_EQ(cli::file_channels(path(g + "input-grey.png")), 1);
    std::string html = slurp(path(g + "index.html"));
    EXPECT_NE(html.find("</html>"), std::string::npos);
    const struct {
        const char *file, *prim;
        int w, h, channels;
    } pictures[] = {
        {"split", "lumiCopy_8u_C3P3R", 320, 720, 1},
        {"merge", "lumiCopy_8u_P3C3R", 320, 240, 3},
        {"rgb2yuv", "lumiRGBToYUV_8u_C3R", 320, 240, 3},
        {"yuv2rgb-planes", "lumiYUVToRGB_8u_P3C3R", 320, 240, 3},
        {"resize-half-linear", "lumiResize_8u_C3R", 160, 120, 3},
        {"resize-zoom-nn", "lumiResize_8u_C3R", 240, 240, 3},
        {"resize-grey-nn", "lumiResize_8u_C1R", 118, 88, 1},
        {"resize-small-super", "lumiResize_8u_C3R", 118, 88, 3},
        {"box-grey-5x5", "lumiFilterBox_8u_C1R", 320, 240, 1},
        {"box-inplace-roi", "lumiFilterBox_8u_C3IR", 320, 240, 3},
        {"median-5x5", "lumiFilterMedian_8u_C3R", 320, 240, 3},
        {"median-color-mosaic-3x3", "lumiFilterMedianColor_8u_C3R", 320, 240, 3},
        {"filter-sharpen", "lumiFilter_8u_C3R", 320, 240, 3},
        {"filter32f-grey-gauss5", "lumiFilter32f_8u_C1R", 320, 240, 1},
    };
    int shown = 0;
    for (const auto &p : pictures) {
        std::string file = g + p.file + ".png";
        if (!live(p.prim)) {
            EXPECT_FALSE(exists(path(file))) << file;
            EXPECT_NE(html.find(std::string(p.prim) + " is not live"), std::string::npos);
            continue;
        }
        ++shown;
        EXPECT_EQ(cli::file_channels(path(file)), p.channels) << file;
        Image img = load(file, p.channels);
        EXPECT_EQ(img.width, p.w) << file;
        EXPECT_EQ(img.height, p.h) << file;
        EXPECT_NE(html.find(std::string("src=\"") + p.file + ".png\""), std::string::npos) << file;
    }
    // The contact sheet holds four cells a row, one for the input and one
    // for each picture shown.
    Image sheet = load(g + "contact-sheet.png", 3);
    EXPECT_EQ(sheet.width, 12 + 4 * (320 + 12));
    EXPECT_GE(sheet.height, 12 + (240 + 32 + 12) * ((1 + shown + 3) / 4));
}

} // namespace
