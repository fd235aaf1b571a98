#!/usr/bin/env bash
# Builds the library and runs every test.
#   scripts/test.sh             Release build in build/
#   scripts/test.sh --sanitize  AddressSanitizer + UndefinedBehaviorSanitizer build in build-san/
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make libgtest-dev binutils qemu-user libstb-dev pkg-config

dir=build
opts=(-DCMAKE_BUILD_TYPE=Release)
if [ "${1:-}" = "--sanitize" ]; then
    dir=build-san
    opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMI_SANITIZE=ON)
fi
cmake -S . -B "$dir" "${opts[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
