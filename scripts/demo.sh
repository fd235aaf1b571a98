#!/usr/bin/env bash
# Builds the library, the lumi command and the example host, installs them
# into build/install, runs the example host, then the demo: every live
# primitive on a built-in picture, written to demo-out/ (open
# demo-out/index.html).  Arguments go to `lumi demo`, e.g. --out DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make libstb-dev
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target lumi lumi_cli lumi_host_demo
prefix=$PWD/build/install
cmake --install build --prefix "$prefix" >/dev/null
echo "== the example host (examples/host_demo.c)"
./build/examples/lumi_host_demo "$prefix/lib/liblumi.so.7"
echo "== lumi demo"
if [ $# -eq 0 ]; then
    set -- --out demo-out
fi
"$prefix/bin/lumi" demo "$@"
echo
echo "lumi is installed at $prefix/bin/lumi, with the library in $prefix/lib."
echo "To run the page's commands as written:  export PATH=\"$prefix/bin:\$PATH\""
