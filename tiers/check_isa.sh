#!/usr/bin/env bash
# Checks that each tier's objects use no instruction above the tier:
# m7 nothing past SSE3, n8/u8 nothing past SSSE3, y8 nothing past SSE4.1,
# e9 nothing past AVX (no AVX2, no FMA), and that the library has no global
# constructors.  Usage: check_isa.sh BUILD_DIR [sanitized]
# A sanitized build carries the sanitizers' own constructors, so the
# constructor check is left to the plain build.
set -u
build=${1:?build directory}
sanitized=${2:-}
status=0

vex='^v'
ssse3='^(pshufb|palignr|pabs[bwd]|phadd(w|d|sw)|phsub(w|d|sw)|pmaddubsw|pmulhrsw|psign[bwd])$'
sse41='^(pblendvb|blendv?p[sd]|pblendw|dpp[sd]|extractps|insertps|mpsadbw|movntdqa|packusdw|pcmpeqq|pextr[bdq]|pinsr[bdq]|phminposuw|pmax(sb|sd|ud|uw)|pmin(sb|sd|ud|uw)|pmov[sz]x[a-z]+|pmuldq|pmulld|ptest|round[ps][sd]|pcmp[ei]str[im]|pcmpgtq|crc32[a-z]*|popcnt)$'
avx2_named='^(vbroadcasti128|vinserti128|vextracti128|vpbroadcast[bwdq]|vperm[dq]|vpermps|vpermpd|vpgather[a-z]+|vgather[a-z]+|vpmaskmov[dq]|vps[lr]lv[dq]|vpsrav[d]|vpblendd|vfn?m(add|sub)[0-9a-z]+|vfmaddsub[0-9a-z]+|vfmsubadd[0-9a-z]+)$'

check() {
    local tier=$1 pattern=$2 what=$3
    local objs
    objs=$(find "$build" -path "*_${tier}.dir/*" -name '*.o' | sort)
    [ -n "$objs" ] || { echo "no objects for tier $tier"; status=1; return; }
    for o in $objs; do
        bad=$(objdump -d --no-show-raw-insn "$o" | awk -F'\t' 'NF>=2 {split($2,a," "); print a[1]}' |
              grep -E "$pattern" | sort -u | head -5)
        if [ -n "$bad" ]; then
            echo "tier $tier: $what in $(basename "$o"): $(echo $bad)"
            status=1
        fi
    done
}

for t in m7 n8 u8 y8; do check "$t" "$vex" "VEX-encoded (AVX) instruction"; done
check m7 "$ssse3" "SSSE3 instruction"
for t in m7 n8 u8; do check "$t" "$sse41" "SSE4.1/4.2 instruction"; done
check y8 '^(pcmp[ei]str[im]|pcmpgtq|crc32[a-z]*|popcnt)$' "SSE4.2 instruction"
check e9 "$avx2_named" "AVX2 or FMA instruction"
# Integer operations on 256-bit registers are AVX2.
for o in $(find "$build" -path '*_e9.dir/*' -name '*.o'); do
    bad=$(objdump -d --no-show-raw-insn "$o" | awk -F'\t' 'NF>=2 {print $2}' |
          grep -E '^vp[a-z0-9]+ .*%ymm' | grep -v -E '^vperm(2f128|ilp[sd])' | head -3)
    if [ -n "$bad" ]; then
        echo "tier e9: 256-bit integer instruction in $(basename "$o"): $bad"
        status=1
    fi
done

# No global constructors: only the toolchain's own entry in .init_array.
so="$build/liblumi.so"
if [ -f "$so" ] && [ "$sanitized" != sanitized ]; then
    hex=$(readelf -S -W "$so" | awk '$2==".init_array" {print $6}')
    size=0
    [ -n "$hex" ] && size=$((16#$hex))
    if [ "$size" -gt 8 ]; then
        echo "liblumi.so has global constructors (.init_array is $size bytes)"
        status=1
    fi
fi

[ $status -eq 0 ] && echo "instruction sets per tier: ok"
exit $status
