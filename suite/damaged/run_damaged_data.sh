#!/usr/bin/env bash
# The suite on damaged copies of its data folder (truncated, garbage and missing files): methods
# that read a damaged file fail, every other method passes, and the process never dies.
# Usage: suite/damaged/run_damaged_data.sh [build folder, default build]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
build="${1:-build}"
exec /usr/bin/python3 "$here/damaged_data.py" "$build"
