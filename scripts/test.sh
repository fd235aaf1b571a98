#!/usr/bin/env bash
# Builds the library and runs every test.
#   scripts/test.sh             Release build in build/
#   scripts/test.sh --sanitize  AddressSanitizer + UndefinedBehaviorSanitizer build in build-san/
#   scripts/test.sh --tsan      ThreadSanitizer build in build-tsan/, running the thread tests
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake g++ make libgtest-dev binutils qemu-user libstb-dev pkg-config python3-numpy python3-pytest python3-opencv

dir=build
opts=(-DCMAKE_BUILD_TYPE=Release)
case "${1:-}" in
--sanitize)
    dir=build-san
    opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMI_SANITIZE=ON)
    ;;
--tsan)
    dir=build-tsan
    opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMI_SANITIZE_THREAD=ON)
    ;;
esac
cmake -S . -B "$dir" "${opts[@]}" >/dev/null
if [ "$dir" = build-tsan ]; then
    # Only the thread tests run more than one thread; the rest would add time
    # and nothing for this sanitizer.
    cmake --build "$dir" -j"$(nproc)" --target lumi_tests
    TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} \
        "$dir"/tests/lumi_tests --gtest_filter='Threads.*:Lookup.*'
    exit
fi
cmake --build "$dir" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
