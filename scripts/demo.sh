#!/usr/bin/env bash
# Builds the library and runs the demo host: it loads liblumi.so, resolves
# GetProcAddressForSo, and calls primitives by name.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target lumi lumi_host_demo
./build/examples/lumi_host_demo "$@"
