#!/usr/bin/env bash
# Builds the fuzzers (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer)
# in build-fuzz/ and runs each for a bounded time.
#   scripts/fuzz.sh [--seconds N] [family]
# Every fuzzer starts from its seeds in fuzz/corpus/<family>/ and keeps what it
# finds new in build-fuzz/corpus/<family>/; a crashing input is written to
# build-fuzz/artifacts/.  LUMI_FUZZ_ARGS adds libFuzzer options (for example -jobs=2 -workers=2).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
lumi_need_packages cmake make clang libclang-rt-dev

seconds=25
only=""
while [ $# -gt 0 ]; do
    case "$1" in
    --seconds) seconds="$2"; shift 2 ;;
    -h|--help) sed -n '2,8p' "$0"; exit 0 ;;
    *) only="$1"; shift ;;
    esac
done

dir=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMI_FUZZ=ON \
    -DLUMI_BUILD_TESTS=OFF >/dev/null
read -r -a families <<<"$(tr ';' ' ' <"$dir/fuzzers.txt")"
if [ -n "$only" ]; then
    if [[ " ${families[*]} " != *" $only "* ]]; then
        echo "no fuzzer named $only (${families[*]})" >&2
        exit 2
    fi
    families=("$only")
fi
cmake --build "$dir" -j"$(nproc)" --target "${families[@]/#/fuzz_}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
mkdir -p "$dir/artifacts"
failed=()
for f in "${families[@]}"; do
    mkdir -p "$dir/corpus/$f"
    echo "== fuzz_$f for ${seconds}s"
    log="$dir/fuzz-$f.log"
    rc=0
    # shellcheck disable=SC2086
    "$dir/fuzz/fuzz_$f" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 \
        -max_len=128 -print_final_stats=1 -artifact_prefix="$dir/artifacts/$f-" \
        ${LUMI_FUZZ_ARGS:-} "$dir/corpus/$f" "fuzz/corpus/$f" >"$log" 2>&1 || rc=$?
    grep -v -e '^#[0-9]' -e '^INFO:' "$log" | tail -n 60
    [ "$rc" -eq 0 ] || failed+=("$f")
done
if [ ${#failed[@]} -ne 0 ]; then
    echo "fuzzers with findings: ${failed[*]} (inputs in $dir/artifacts/)" >&2
    exit 1
fi
