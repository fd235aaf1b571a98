#!/usr/bin/env bash
# Builds the library and the lumi command, then runs the demo: every live
# primitive on a built-in picture, written to demo-out/ (open
# demo-out/index.html).  Arguments go to `lumi demo`, e.g. --out DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make libstb-dev
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target lumi lumi_cli lumi_host_demo
if [ $# -eq 0 ]; then
    set -- --out demo-out
fi
./build/cli/lumi demo "$@"
