#!/usr/bin/env bash
# ./ombrix.sh suite   set up, build, and run the verification suite UnitTestCoreDll
# ./ombrix.sh test    set up, build, and run every test through ctest
#
# Set-up is idempotent: missing Debian packages are installed (as root; otherwise they are named
# and the script stops), the project is configured and built in ./build, and the build lays out
# build/UnitTestData. Extra CMake arguments may be given in OMBRIX_CMAKE_ARGS.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")"
here=$(pwd)
# shellcheck source=scripts/debian_packages.sh
source "$here/scripts/debian_packages.sh"
build="$here/build"
mode=${1:-}
case "$mode" in
  suite|test) ;;
  *) echo "usage: $0 suite|test" >&2; exit 2 ;;
esac

packages=(cmake g++ make pkg-config libopencv-dev libgtest-dev libbenchmark-dev libboost-dev
  dpkg-dev python3 strace python3-dev pybind11-dev python3-numpy python3-pytest python3-scipy
  python3-pip python3-setuptools libcli11-dev libplplot-dev plplot-driver-cairo fonts-dejavu-core
  chromium nlohmann-json3-dev libssl-dev python3-jsonschema)
ensure_debian_packages "${packages[@]}"

jobs=$(nproc 2>/dev/null || echo 2)
# shellcheck disable=SC2086
cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=Release ${OMBRIX_CMAKE_ARGS:-}
cmake --build "$build" --parallel "$jobs"

if [[ "$mode" == suite ]]; then
  cd "$build/x64/Release/UnitTestCoreDll"
  exec ./UnitTestCoreDll
else
  exec ctest --test-dir "$build" --output-on-failure --parallel "$jobs"
fi
