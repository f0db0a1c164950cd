#!/usr/bin/env bash
# Sets up, builds with warnings as errors, and runs every test. Extra arguments go to ctest
# (e.g. -R Metamodel). MODELCORE_BUILD_DIR overrides the build directory (default: build/).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${MODELCORE_BUILD_DIR:-$root/build}"
jobs="$(nproc 2>/dev/null || echo 2)"

"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -DMODELCORE_WERROR=ON
cmake --build "$build" --parallel "$jobs"
cd "$build"
ctest --output-on-failure --parallel "$jobs" "$@"
