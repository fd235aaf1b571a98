// lumi demo: every live primitive on a built-in picture, one PNG each, a
// contact sheet with labels and an index.html with the parameters used.
//
// The picture is drawn here, so the demo needs no file: a colour wheel
// (colour and smooth gradients), a zone plate (fine detail that resampling
// must not alias), hard-edged shapes on a checkerboard (edges), and a
// gradient under Gaussian-like and salt-and-pepper noise (what smoothing and
// median filters are for).  A second picture, a mosaic of saturated
// colours under impulses of other saturated colours, shows the per-channel
// median inventing colours where the colour median keeps the window's own.
#include <errno.h>
#include <math.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "lumi_cli.h"

namespace cli {

namespace {

// One picture of the demo: a primitive, its arguments as on the command
// line, and where its input comes from: the built-in picture, or the result
// of an earlier case (by its file name), so that inverse operations run on
// what they invert.
struct DemoCase {
    const char *op;
    const char *args;
    const char *file; // without .png
    const char *source = nullptr;
};

const DemoCase kCases[] = {
    {"lumiCopy_8u_C3P3R", "", "split"},
    {"lumiCopy_8u_P3C3R", "", "merge", "split"},
    {"lumiRGBToYUV_8u_C3R", "", "rgb2yuv"},
    {"lumiYUVToRGB_8u_C3R", "", "yuv2rgb", "rgb2yuv"},
    {"lumiRGBToYUV_8u_C3P3R", "", "rgb2yuv-planes"},
    {"lumiYUVToRGB_8u_P3C3R", "", "yuv2rgb-planes", "rgb2yuv-planes"},
    {"lumiRGBToHLS_8u_C3R", "", "rgb2hls"},
    {"lumiHLSToRGB_8u_C3R", "", "hls2rgb", "rgb2hls"},
    {"lumiBGRToHLS_8u_P3R", "", "bgr2hls-planes"},
    {"lumiHLSToBGR_8u_P3R", "", "hls2bgr-planes", "bgr2hls-planes"},
    {"lumiResize_8u_C3R", "--scale 0.5 --method linear", "resize-half-linear"},
    {"lumiResize_8u_C3R", "--roi 136,96,48,48 --scale 5 --method nn", "resize-zoom-nn"},
    {"lumiResize_8u_C3R", "--roi 136,96,48,48 --scale 5 --method linear", "resize-zoom-linear"},
    {"lumiResize_8u_C3R", "--roi 136,96,48,48 --scale 5 --method cubic", "resize-zoom-cubic"},
    {"lumiResize_8u_C3R", "--roi 136,96,48,48 --scale 5 --method lanczos", "resize-zoom-lanczos"},
    {"lumiResize_8u_C3R", "--scale 0.37 --method super", "resize-small-super"},
    {"lumiResize_8u_C1R", "--scale 0.37 --method nn", "resize-grey-nn"},
    {"lumiResize_8u_C1R", "--scale 0.37 --method lanczos", "resize-grey-lanczos"},
    {"lumiRemap_8u_C3R", "--rotate 12 --method linear", "remap-rotate-linear"},
    {"lumiRemap_8u_C3R", "--roi 60,40,200,160 --rotate -20 --method lanczos --edge soft",
     "remap-rotate-soft-lanczos"},
    {"lumiRemap_8u_C3R", "--barrel 0.3 --method cubic", "remap-barrel-cubic"},
    {"lumiRemap_8u_C1R", "--wave 6 --method catmullrom", "remap-grey-wave"},
    {"lumiRemap_8u_C3R", "--roi 136,96,48,48 --rotate 30 --method nn", "remap-roi-nn"},
    {"lumiFilterBox_8u_C1R", "--mask 5x5", "box-grey-5x5"},
    {"lumiFilterBox_8u_C3R", "--mask 9x9", "box-9x9"},
    {"lumiFilterBox_8u_C3R", "--mask 21x1", "box-21x1"},
    {"lumiFilterBox_8u_C1IR", "--mask 1x15", "box-inplace-grey-1x15"},
    {"lumiFilterBox_8u_C3IR", "--roi 40,30,240,180 --mask 7x7", "box-inplace-roi"},
    {"lumiFilterMedian_8u_C1R", "--mask 3x3", "median-grey-3x3"},
    {"lumiFilterMedian_8u_C3R", "--mask 5x5", "median-5x5"},
    {"lumiFilterMedian_8u_C3R", "--mask 7x3", "median-7x3"},
    {"lumiFilterMedian_8u_C3R", "--mask 3x3", "median-mosaic-3x3", "input-mosaic"},
    {"lumiFilterMedianColor_8u_C3R", "--mask 3x3", "median-color-mosaic-3x3", "input-mosaic"},
    {"lumiFilterMedianColor_8u_C3R", "--mask 5x5", "median-color-5x5"},
    {"lumiFilter_8u_C3R", "--kernel sharpen", "filter-sharpen"},
    {"lumiFilter_8u_C1R", "--kernel edge", "filter-grey-edge"},
    {"lumiFilter_8u_C3R", "--kernel 1,1,1,1,1,1,1,1,1 --divisor 9", "filter-9x1-motion"},
    {"lumiFilter32f_8u_C3R", "--kernel emboss", "filter32f-emboss"},
    {"lumiFilter32f_8u_C1R", "--kernel gauss5", "filter32f-grey-gauss5"},
    {"lumiFilterGauss_8u_C3R", "--mask 3x3", "gauss-3x3"},
    {"lumiFilterGauss_8u_C3R", "--mask 5x5", "gauss-5x5"},
    {"lumiFilterGauss_8u_C1R", "--roi 40,30,240,180 --mask 5x5", "gauss-grey-roi"},
    {"lumiFilterMin_8u_C1R", "--mask 5x5", "min-grey-5x5"},
    {"lumiFilterMax_8u_C1R", "--mask 5x5", "max-grey-5x5"},
    {"lumiFilterMax_8u_C1R", "--mask 15x1 --anchor 0,0", "max-grey-15x1"},
    {"lumiFilterBilateral_8u_C1R", "--mask 9 --sigma-value 1600 --sigma-position 16",
     "bilateral-grey-9x9"},
    {"lumiRotateCenter_8u_C3R", "--angle 12 --method linear", "rotate-12-linear"},
    {"lumiRotateCenter_8u_C3R", "--angle 12 --method linear --soft-edge", "rotate-12-soft-edge"},
    {"lumiRotateCenter_8u_C3R", "--roi 136,96,48,48 --angle 30 --method nn", "rotate-30-nn"},
    {"lumiRotateCenter_8u_C3R", "--roi 136,96,48,48 --angle 30 --method catmullrom", "rotate-30-catmullrom"},
    {"lumiRotate_8u_C3R", "--roi 40,0,240,240 --angle 90 --shift 0,279", "rotate-quarter-turn"},
    {"lumiRotateCenter_8u_C1R", "--angle -45 --method cubic", "rotate-grey-cubic"},
};

const int kPictureW = 320, kPictureH = 240;

// A small fixed generator, so that every run draws the same noise.
struct Rng {
    uint32_t s = 2463534242u;
    uint32_t next()
    {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        return s;
    }
    double unit() { return (next() >> 8) * (1.0 / 16777216.0); }
};

uint8_t clamp8(double v)
{
    return (uint8_t)std::min(255.0, std::max(0.0, v + 0.5));
}

void hsv(double h, double s, double v, uint8_t *rgb)
{
    double c = v * s, hp = fmod(h / 60.0, 6.0), x = c * (1 - fabs(fmod(hp, 2.0) - 1));
    double r = 0, g = 0, b = 0;
    if (hp < 1)
        r = c, g = x;
    else if (hp < 2)
        r = x, g = c;
    else if (hp < 3)
        g = c, b = x;
    else if (hp < 4)
        g = x, b = c;
    else if (hp < 5)
        r = x, b = c;
    else
        r = c, b = x;
    rgb[0] = clamp8((r + v - c) * 255);
    rgb[1] = clamp8((g + v - c) * 255);
    rgb[2] = clamp8((b + v - c) * 255);
}

std::vector<std::string> split_args(const std::string &s)
{
    std::vector<std::string> out;
    size_t pos = 0;
    while (pos < s.size()) {
        size_t end = s.find(' ', pos);
        if (end == std::string::npos)
            end = s.size();
        if (end > pos)
            out.push_back(s.substr(pos, end - pos));
        pos = end + 1;
    }
    return out;
}

bool make_dirs(const std::string &dir, std::string *err)
{
    for (size_t pos = 1; pos <= dir.size(); ++pos) {
        if (pos < dir.size() && dir[pos] != '/')
            continue;
        std::string part = dir.substr(0, pos);
        if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
            *err = "cannot make " + part + ": " + strerror(errno);
            return false;
        }
    }
    return true;
}

// The result reduced by a whole factor (box average) to fit w by h, as RGB.
Image thumbnail(const Image &img, int w, int h)
{
    Image rgb = with_channels(img, 3);
    int k = std::max((img.width + w - 1) / w, (img.height + h - 1) / h);
    if (k <= 1)
        return rgb;
    Image t;
    std::string err;
    make_image(&t, img.width / k, img.height / k, 3, &err);
    for (int y = 0; y < t.height; ++y)
        for (int x = 0; x < t.width; ++x)
            for (int c = 0; c < 3; ++c) {
                int sum = 0;
                for (int dy = 0; dy < k; ++dy)
                    for (int dx = 0; dx < k; ++dx)
                        sum += rgb.at(x * k + dx, y * k + dy)[c];
                t.at(x, y)[c] = (uint8_t)((sum + k * k / 2) / (k * k));
            }
    return t;
}

// A picture of the gallery: its file, the primitive (title), the
// parameters (caption), and for the page the command and what it gave.
struct Shown {
    std::string file, title, caption, command, result;
    Image img;
};

const int kCellW = 320, kCellH = 240, kLabelH = 32, kGap = 12, kColumns = 4;

Image contact_sheet(const std::vector<Shown> &shown)
{
    int rows = ((int)shown.size() + kColumns - 1) / kColumns;
    Image sheet;
    std::string err;
    make_image(&sheet, kGap + kColumns * (kCellW + kGap), kGap + rows * (kCellH + kLabelH + kGap),
               3, &err);
    std::fill(sheet.pixels.begin(), sheet.pixels.end(), 40);
    const uint8_t white[3] = {240, 240, 240}, grey[3] = {170, 190, 210};
    for (size_t i = 0; i < shown.size(); ++i) {
        int cx = kGap + (int)(i % kColumns) * (kCellW + kGap);
        int cy = kGap + (int)(i / kColumns) * (kCellH + kLabelH + kGap);
        for (int y = 0; y < kCellH; ++y)
            for (int x = 0; x < kCellW; ++x)
                memset(sheet.at(cx + x, cy + y), 24, 3);
        Image t = thumbnail(shown[i].img, kCellW, kCellH);
        int ox = cx + (kCellW - t.width) / 2, oy = cy + (kCellH - t.height) / 2;
        for (int y = 0; y < t.height; ++y)
            memcpy(sheet.at(ox, oy + y), t.at(0, y), (size_t)t.width * 3);
        draw_text(&sheet, cx, cy + kCellH + 4, shown[i].title, 2, white);
        draw_text(&sheet, cx, cy + kCellH + 22, shown[i].caption, 1, grey);
    }
    return sheet;
}

std::string html_escape(const std::string &s)
{
    std::string out;
    for (char c : s) {
        if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '&')
            out += "&amp;";
        else
            out += c;
    }
    return out;
}

std::string index_html(const std::vector<Shown> &shown, const std::vector<std::string> &skipped,
                       const std::string &tier)
{
    std::string h =
        "<!doctype html>\n<html><head><meta charset=\"utf-8\"><title>lumi demo</title>\n"
        "<style>body{font-family:sans-serif;background:#202428;color:#e8e8e8;margin:2em}"
        "a{color:#8cc8ff}a:visited{color:#c8a8ff}"
        "main{display:flex;flex-wrap:wrap;gap:1.5em;align-items:flex-start}"
        "figure{margin:0;width:340px}"
        "img{display:block;max-width:340px;max-height:340px;image-rendering:pixelated;"
        "background:#111}"
        "figcaption{font-size:13px;margin-top:.4em;overflow-wrap:anywhere}"
        "code{color:#9cd}</style></head><body>\n"
        "<h1>lumi demo</h1>\n<p>Each picture is one call of a primitive of liblumi.so, tier " +
        html_escape(tier) +
        ", on the built-in picture (<code>input.png</code>, and <code>input-grey.png</code> for "
        "the one-channel forms) or on the result named, with the parameters used and the command "
        "that repeats it. "
        "<a href=\"contact-sheet.png\">Contact sheet</a>.</p>\n"
        "<p>The commands run in this folder. The <code>lumi</code> that made this page is <code>" +
        html_escape(program_path()) + "</code>: put its folder on your <code>PATH</code>, or "
        "write that path where the commands say <code>lumi</code>.</p>\n";
    h += "<main>\n";
    for (const Shown &s : shown) {
        h += "<figure><a href=\"" + s.file + "\"><img src=\"" + s.file + "\" alt=\"" + s.file +
             "\"></a><figcaption><b>" + html_escape(s.title) + "</b><br>" + html_escape(s.caption) +
             "<br>" + (s.command.empty() ? "" : "<code>" + html_escape(s.command) + "</code><br>") +
             html_escape(s.result) + "</figcaption></figure>\n";
    }
    h += "</main>\n";
    if (!skipped.empty()) {
        h += "<h2>Not shown</h2>\n<ul>\n";
        for (const std::string &s : skipped)
            h += "<li>" + html_escape(s) + "</li>\n";
        h += "</ul>\n";
    }
    return h + "</body></html>\n";
}

} // namespace

Image demo_picture(int w, int h)
{
    Image img;
    std::string err;
    make_image(&img, w, h, 3, &err);
    Rng rng;
    int hw = w / 2, hh = h / 2;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint8_t *p = img.at(x, y);
            if (x < hw && y < hh) {
                // Colour wheel: hue by angle, saturation by radius, on a
                // background that darkens downward.
                double dx = x - hw / 2 + 0.5, dy = y - hh / 2 + 0.5, r = sqrt(dx * dx + dy * dy);
                double radius = hh / 2 - 4;
                if (r <= radius)
                    hsv(atan2(dy, dx) * 180 / M_PI + 180, r / radius, 1.0, p);
                else
                    p[0] = p[1] = p[2] = clamp8(200.0 - 160.0 * y / hh);
            } else if (y < hh) {
                // Zone plate: rings whose frequency rises to the corners.
                double dx = x - (hw + hw / 2), dy = y - hh / 2;
                double v = 127.5 + 127.5 * cos(M_PI / 240.0 * (dx * dx + dy * dy));
                p[0] = p[1] = p[2] = clamp8(v);
            } else if (x < hw) {
                // Shapes on a checkerboard.
                int cx = x, cy = y - hh;
                uint8_t c = ((cx / 10 + cy / 10) & 1) ? 230 : 30;
                p[0] = p[1] = p[2] = c;
                double dx = cx - 50, dy = cy - 60;
                if (dx * dx + dy * dy < 34 * 34)
                    p[0] = 220, p[1] = 40, p[2] = 40;
                if (cx >= 95 && cx < 150 && cy >= 12 && cy < 67)
                    p[0] = 40, p[1] = 80, p[2] = 220;
                if (cy >= 75 && cy < 115 && abs(cx - 120) < (cy - 75))
                    p[0] = 240, p[1] = 210, p[2] = 40;
            } else {
                // Gradient under noise: Gaussian-like on the left,
                // salt and pepper on the right.
                int cx = x - hw, cy = y - hh;
                double base = 60 + 140.0 * cy / hh;
                uint8_t rgb[3] = {clamp8(base), clamp8(base * 0.8 + 30), clamp8(230 - base * 0.7)};
                if (cx < hw / 2) {
                    double n = (rng.unit() + rng.unit() + rng.unit() - 1.5) * 50;
                    for (int c = 0; c < 3; ++c)
                        p[c] = clamp8(rgb[c] + n);
                } else {
                    uint32_t r = rng.next() % 100;
                    for (int c = 0; c < 3; ++c)
                        p[c] = r < 6 ? 255 : r < 12 ? 0 : rgb[c];
                }
            }
        }
    }
    const uint8_t ink[3] = {255, 255, 255}, shadow[3] = {0, 0, 0};
    draw_text(&img, hw + 12 + 2, hh + 10 + 2, "lumi", 5, shadow);
    draw_text(&img, hw + 12, hh + 10, "lumi", 5, ink);
    return img;
}

namespace {

// Squares of four saturated colours, with one pixel in five replaced by one
// of six other saturated colours.  Where colours meet, a median per channel
// takes each channel from a different pixel and makes colours that are in
// no window; the colour median picks one of the window's pixels.
Image mosaic_picture(int w, int h)
{
    static const uint8_t kSquares[4][3] = {{200, 30, 30}, {30, 160, 60}, {40, 70, 210}, {230, 200, 40}};
    static const uint8_t kImpulses[6][3] = {{255, 0, 255}, {0, 255, 255}, {255, 255, 255},
                                            {0, 0, 0},     {255, 128, 0}, {128, 0, 255}};
    Image img;
    std::string err;
    make_image(&img, w, h, 3, &err);
    Rng rng;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int square = (x / 16 + 2 * (y / 16) + (x / 48)) % 4;
            const uint32_t r = rng.next() % 30;
            memcpy(img.at(x, y), r < 6 ? kImpulses[r] : kSquares[square], 3);
        }
    return img;
}

} // namespace

int cmd_demo(const std::vector<std::string> &args, const std::string &lib_path)
{
    std::string dir = "demo-out", err;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size())
            dir = args[++i];
        else if (args[i].compare(0, 6, "--out=") == 0)
            dir = args[i].substr(6);
        else
            return fail("demo takes only --out DIR, not '" + args[i] + "'", 2);
    }
    Library lib;
    if (!open_library(lib_path, &lib, &err))
        return fail(err);
    if (!make_dirs(dir, &err))
        return fail(err);

    Image picture = demo_picture(kPictureW, kPictureH);
    std::vector<Shown> shown;
    shown.push_back({"input.png", "input", "the built-in picture, 320x240", "",
                     "drawn by the program; input-grey.png is its grey version", picture});
    if (!save_image(dir + "/input.png", picture, &err) ||
        !save_image(dir + "/input-grey.png", with_channels(picture, 1), &err))
        return fail(err);
    Image mosaic = mosaic_picture(kPictureW, kPictureH);
    shown.push_back({"input-mosaic.png", "input-mosaic",
                     "saturated squares under coloured impulses, 320x240", "",
                     "drawn by the program, for the median filters", mosaic});
    if (!save_image(dir + "/input-mosaic.png", mosaic, &err))
        return fail(err);

    std::vector<std::string> skipped;
    for (const DemoCase &c : kCases) {
        const Op *op = find_op(c.op);
        std::string file = std::string(c.file) + ".png";
        if (!lib.get_proc(c.op)) {
            skipped.push_back(file + ": " + c.op + " is not live in this library");
            continue;
        }
        Image in;
        std::string from = "input.png";
        if (c.source) {
            const Shown *src = nullptr;
            for (const Shown &s : shown)
                if (s.file == std::string(c.source) + ".png")
                    src = &s;
            if (!src) {
                skipped.push_back(file + ": needs " + c.source + ".png, which was not made");
                continue;
            }
            in = src->img;
            from = src->file;
        } else {
            in = input_from_rgb(*op, picture);
            if (op->in != kPlanes && op->channels == 1)
                from = "input-grey.png";
        }
        RunArgs ra;
        Job job;
        LumStatus st = lumStsNoErr;
        if (!parse_run_args(*op, split_args(c.args), &ra, &err)) {
            job.error = err;
            st = 1;
        } else {
            st = run_op(lib, *op, in, ra, &job);
        }
        if (st == lumStsNoErr && !save_image(dir + "/" + file, job.out, &err)) {
            job.error = err;
            st = 1;
        }
        if (st != lumStsNoErr) {
            // A live primitive that refuses its case is reported and left
            // out; the rest of the gallery is still worth having.
            std::string why = failure_text(*op, st, job);
            fprintf(stderr, "lumi: demo: %s left out: %s\n", file.c_str(), why.c_str());
            skipped.push_back(file + ": " + why);
            continue;
        }
        std::string cmd = std::string("lumi run ") + c.op + (c.args[0] ? " " : "") + c.args + " " +
                          from + " " + file;
        char ms[64];
        snprintf(ms, sizeof ms, "%.3f ms", job.seconds * 1e3);
        std::string caption = std::string(c.args[0] ? c.args : "(no parameters)") +
                              (c.source ? std::string(" on ") + c.source : "");
        shown.push_back({file, c.op, caption, cmd,
                         std::to_string(job.out.width) + "x" + std::to_string(job.out.height) +
                             ", " + ms + " on tier " + serving_tier(lib, c.op),
                         job.out});
        printf("%-28s %-24s %s\n", file.c_str(), c.op, ms);
    }

    if (!save_image(dir + "/contact-sheet.png", contact_sheet(shown), &err))
        return fail(err);
    std::string html = index_html(shown, skipped, current_tier(lib));
    FILE *f = fopen((dir + "/index.html").c_str(), "w");
    if (!f || fputs(html.c_str(), f) < 0 || fclose(f) != 0)
        return fail("cannot write " + dir + "/index.html");
    printf("%zu pictures, %zu left out; open %s/index.html\n", shown.size() - 1, skipped.size(),
           dir.c_str());
    return 0;
}

} // namespace cli
