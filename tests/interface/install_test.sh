#!/usr/bin/env bash
# Installed into a fresh prefix, the library serves C hosts built through pkg-config and
# through find_package(Ovidane), the tool runs from there, and the Python package installs
# without network and finds the installed library by itself.
set -u
build="$1" source="$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" > /dev/null || { echo "FAIL: install"; exit 1; }
cat > "$work/host.c" <<'C'
#include <ovdinf01.h>
#include <stdio.h>
int main(void) {
    ovdStructIterativeOps ops;
    if (ovdInitStructIterativeOps(&ops) != 0 || ops.nMethod != OVD_METHOD_MLEM)
        return 1;
    printf("%s\n", ovdGetVersion());
    return 0;
}
C
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046
cc -o "$work/host-pc" "$work/host.c" $(pkg-config --cflags --libs ovidane) || fail "pkg-config build"
[ "$(LD_LIBRARY_PATH="$prefix/lib" "$work/host-pc")" = "$(pkg-config --modversion ovidane)" ] ||
  fail "the pkg-config host didn't run"

mkdir "$work/cmake-host"
cat > "$work/cmake-host/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(host C)
find_package(Ovidane 0.1 REQUIRED)
add_executable(host ../host.c)
target_link_libraries(host Ovidane::ovdinf01)
CMAKE
cmake -S "$work/cmake-host" -B "$work/cmake-host/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  > "$work/cmake.log" 2>&1 && cmake --build "$work/cmake-host/build" >> "$work/cmake.log" 2>&1 ||
  fail "find_package build: $(tail -5 "$work/cmake.log")"
"$work/cmake-host/build/host" > /dev/null || fail "the CMake host didn't run"
"$prefix/bin/ovd" --version | grep -q "^ovd " || fail "the installed tool didn't run"

cp -r "$source/python" "$work/python"
/usr/bin/python3 -m pip install -q --no-build-isolation --no-deps --no-index \
  --target "$prefix/lib/python3/dist-packages" "$work/python" > "$work/pip.log" 2>&1 ||
  fail "pip install: $(tail -5 "$work/pip.log")"
(cd "$work" && env -u OVIDANE_LIBRARY PYTHONPATH="$prefix/lib/python3/dist-packages" /usr/bin/python3 -c '
import sys, ovidane
from ovidane import _library
assert _library.lib._name.startswith(sys.argv[1]), _library.lib._name
assert ovidane.psf((4, 8, 8), (0.1, 0.1, 0.25), 1.3, 1.515, 0.52).shape == (4, 8, 8)' "$prefix") ||
  fail "the installed Python package didn't find the installed library"
exit $((failures > 0))
