#!/usr/bin/env bash
# Installs the build into a fresh prefix, then builds and runs a consumer
# outside the tree twice: through pkg-config and through find_package(Lumi).
#   run.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in include/lumi.h include/lumi_entries.def lib/pkgconfig/lumi.pc \
         lib/cmake/Lumi/LumiConfig.cmake lib/cmake/Lumi/LumiConfigVersion.cmake; do
    [ -f "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
soname=$(objdump -p "$prefix"/lib/liblumi.so | awk '/SONAME/ {print $2}')
[ "$soname" = "liblumi.so.7" ] || { echo "SONAME is '$soname'"; exit 1; }
[ -L "$prefix/lib/liblumi.so" ] && [ -L "$prefix/lib/liblumi.so.7" ] || { echo "version links missing"; exit 1; }
if [ -f "$build/cli/lumi" ]; then
    [ -x "$prefix/bin/lumi" ] || { echo "lumi not installed"; exit 1; }
    # The installed command loads the installed library, whatever the build tree holds.
    # (The listing is read whole: grep -q would close the pipe early, and the
    # pipeline would then fail on the writer's broken pipe.)
    listing=$("$prefix/bin/lumi" list)
    grep -q "^library: $prefix/lib/liblumi.so.7" <<<"$listing" ||
        { echo "installed lumi did not load the installed library"; head -3 <<<"$listing"; exit 1; }
fi

# pkg-config
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
version=$(pkg-config --modversion lumi)
cc -std=c99 -DEXPECTED_MAJOR="${version%%.*}" "$here/consumer.c" -o "$work/consumer-pc" \
   $(pkg-config --cflags --libs lumi) -Wl,-rpath,"$prefix/lib"
"$work/consumer-pc"

# find_package
cmake -S "$here" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_BUILD_RPATH="$prefix/lib" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer"
# The Python module, from the prefix alone.
if /usr/bin/python3 -c "import numpy" 2>/dev/null; then
    PYTHONPATH=$prefix/lib/python /usr/bin/python3 -c "
import lumi, numpy as np
assert lumi.library_path.startswith('$prefix/lib/'), lumi.library_path
assert lumi.version()[:4] == (7, 0, 205, 1100)
assert lumi.median(np.full((5, 5), 9, np.uint8)).max() == 9
print('python module ok from', lumi.library_path)"
fi
echo "consumer built and ran through pkg-config ($version) and find_package"
