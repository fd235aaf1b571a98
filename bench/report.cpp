// CSV, JSON and a bar chart of the closing table.  The chart has one bar per
// case, its length the ratio on a logarithmic axis, green where Lumi is
// faster and red where it is slower, with the 1.0 line drawn across.
#include "report.h"

#include <math.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace lumibench {

namespace {

std::string csv_field(const std::string &s)
{
    if (s.find_first_of(",\"\n") == std::string::npos)
        return s;
    std::string q = "\"";
    for (char c : s)
        q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

std::string json_string(const std::string &s)
{
    std::string q = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            q += '\\';
        if ((unsigned char)c < 0x20)
            continue;
        q += c;
    }
    return q + "\"";
}

bool write_text(const std::string &path, const std::string &text, std::string *err)
{
    FILE *f = fopen(path.c_str(), "w");
    if (!f || fputs(text.c_str(), f) < 0 || fclose(f) != 0) {
        *err = "cannot write " + path;
        return false;
    }
    return true;
}

cv::Mat chart(const std::vector<ResultRow> &rows)
{
    const int label_w = 330, plot_w = 560, bar_h = 18, gap = 6, top = 40, bottom = 40;
    const int h = top + bottom + (int)rows.size() * (bar_h + gap);
    cv::Mat img(h, label_w + plot_w + 80, CV_8UC3, cv::Scalar(255, 255, 255));
    // Logarithmic axis from 1/4 to 8: 1.0 sits at 2/5 of the plot.
    const double lo = log(0.25), hi = log(8.0);
    auto xof = [&](double r) {
        r = std::min(std::max(r, 0.25), 8.0);
        return label_w + (int)((log(r) - lo) / (hi - lo) * plot_w);
    };
    const int font = cv::FONT_HERSHEY_SIMPLEX;
    cv::putText(img, "ratio = OpenCV time / Lumi time (log scale; right of 1.0: Lumi faster)",
                {10, 24}, font, 0.5, cv::Scalar(0, 0, 0), 1, cv::LINE_AA);
    for (double t : {0.25, 0.5, 1.0, 2.0, 4.0, 8.0}) {
        const int x = xof(t);
        cv::line(img, {x, top - 6}, {x, h - bottom + 4}, cv::Scalar(220, 220, 220), 1);
        char s[16];
        snprintf(s, sizeof s, "%g", t);
        cv::putText(img, s, {x - 8, h - bottom + 22}, font, 0.45, cv::Scalar(80, 80, 80), 1,
                    cv::LINE_AA);
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        const ResultRow &r = rows[i];
        const int y = top + (int)i * (bar_h + gap);
        const int x1 = xof(1.0), x2 = xof(r.ratio);
        const cv::Scalar colour = r.ratio >= 1.0 ? cv::Scalar(90, 170, 60) : cv::Scalar(60, 60, 210);
        cv::rectangle(img, {std::min(x1, x2), y}, {std::max(x1, x2), y + bar_h}, colour, cv::FILLED);
        cv::putText(img, r.name, {6, y + bar_h - 5}, font, 0.42, cv::Scalar(0, 0, 0), 1, cv::LINE_AA);
        char s[16];
        snprintf(s, sizeof s, "%.2f", r.ratio);
        cv::putText(img, s, {std::max(x1, x2) + 4, y + bar_h - 5}, font, 0.42, cv::Scalar(0, 0, 0),
                    1, cv::LINE_AA);
    }
    const int x1 = xof(1.0);
    cv::line(img, {x1, top - 8}, {x1, h - bottom + 6}, cv::Scalar(0, 0, 0), 2);
    return img;
}

// Creates the directory and any missing parents; one that exists already is fine.
void make_dirs(const std::string &dir)
{
    for (size_t at = dir.find('/', 1); at != std::string::npos; at = dir.find('/', at + 1))
        mkdir(dir.substr(0, at).c_str(), 0777);
    mkdir(dir.c_str(), 0777);
}

} // namespace

bool write_report(const std::string &dir, const std::vector<ResultRow> &rows, std::string *err)
{
    make_dirs(dir);
    std::string csv = "case,lumi_ns_per_px,opencv_ns_per_px,ratio,max_diff,note\n";
    std::string json = "[\n";
    char num[160];
    for (size_t i = 0; i < rows.size(); ++i) {
        const ResultRow &r = rows[i];
        snprintf(num, sizeof num, "%.5f,%.5f,%.4f,%d", r.lumi_ns_px, r.opencv_ns_px, r.ratio,
                 r.max_diff);
        csv += csv_field(r.name) + "," + num + "," + csv_field(r.note) + "\n";
        snprintf(num, sizeof num,
                 "\"lumi_ns_per_px\": %.5f, \"opencv_ns_per_px\": %.5f, \"ratio\": %.4f, "
                 "\"max_diff\": %d",
                 r.lumi_ns_px, r.opencv_ns_px, r.ratio, r.max_diff);
        json += "  {\"case\": " + json_string(r.name) + ", " + num +
                ", \"note\": " + json_string(r.note) + "}" + (i + 1 < rows.size() ? "," : "") +
                "\n";
    }
    json += "]\n";
    if (!write_text(dir + "/bench.csv", csv, err) || !write_text(dir + "/bench.json", json, err))
        return false;
    if (!cv::imwrite(dir + "/ratios.png", chart(rows))) {
        *err = "cannot write " + dir + "/ratios.png";
        return false;
    }
    return true;
}

} // namespace lumibench
