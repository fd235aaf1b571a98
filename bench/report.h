// The benchmark's closing table as files: CSV, JSON and a bar chart of the
// ratios (scripts/bench.sh --report DIR).
#pragma once

#include <string>
#include <vector>

namespace lumibench {

struct ResultRow {
    std::string name;
    double lumi_ns_px;
    double opencv_ns_px;
    double ratio; // OpenCV time / Lumi time
    int max_diff;
    std::string note;
};

// Writes DIR/bench.csv, DIR/bench.json and DIR/ratios.png; false with *err set
// when a file cannot be written.
bool write_report(const std::string &dir, const std::vector<ResultRow> &rows, std::string *err);

} // namespace lumibench
