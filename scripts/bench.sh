#!/usr/bin/env bash
# Builds and runs the benchmark program (Lumi against OpenCV, single-threaded,
# 1920x1080).  Extra arguments go to Google Benchmark, e.g.
#   scripts/bench.sh --benchmark_filter=resize
#   scripts/bench.sh --report DIR     also DIR/bench.csv, bench.json, ratios.png
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make libbenchmark-dev libopencv-dev
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target lumi_bench
./build/bench/lumi_bench "$@"
# What the Python module adds to a call, on a 64x64 image.
if /usr/bin/python3 -c "import numpy" 2>/dev/null; then
    echo
    PYTHONPATH=python LUMI_LIBRARY=build/liblumi.so.7 /usr/bin/python3 python/bench_overhead.py
fi
