#!/usr/bin/env bash
# CI step: the parts of the project without OpenCV (the platform layer, the plug-in loader with
# the acquisition factory, the data-folder search, the controller, the set-once value and the
# callback registry) cross-compiled for 64-bit Windows with MinGW-w64, GoogleTest built from
# Debian's sources, and their tests run under wine in a throw-away wine prefix.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/debian_packages.sh
source scripts/debian_packages.sh

packages=(cmake make g++-mingw-w64-x86-64-posix googletest wine wine64)
ensure_debian_packages "${packages[@]}"

build=${OMBRIX_WINDOWS_BUILD:-build-windows}
jobs=$(nproc 2>/dev/null || echo 2)

# Programs and DLLs in one folder: Windows finds a program's DLLs beside it.
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64.cmake \
  -DCMAKE_BUILD_TYPE=Release -DOMBRIX_WERROR=ON -DOMBRIX_WITH_OPENCV=OFF \
  -DOMBRIX_GTEST_SOURCE_DIR=/usr/src/googletest \
  -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$PWD/$build/bin" \
  -DCMAKE_LIBRARY_OUTPUT_DIRECTORY="$PWD/$build/bin"

export WINEPREFIX
WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/ombrix-wine.XXXXXX")
export WINEDEBUG=-all
trap 'wineserver -k >/dev/null 2>&1 || true; rm -rf "$WINEPREFIX"' EXIT
# The first start of wine sets the prefix up (about 20 s); it runs while the build compiles.
wineboot --init >/dev/null 2>&1 &
boot=$!

cmake --build "$build" --parallel "$jobs"
wait "$boot" || true
ctest --test-dir "$build" --output-on-failure --parallel "$jobs"
