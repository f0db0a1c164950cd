#!/usr/bin/env bash
# Sets up, builds and runs the sample host (class_diagram); arguments go to it, and its model file goes
# into the build directory unless --out says otherwise. MODELCORE_BUILD_DIR overrides
# the build directory (default: build/, shared with scripts/test.sh).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${MODELCORE_BUILD_DIR:-$root/build}"
jobs="$(nproc 2>/dev/null || echo 2)"

"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -DMODELCORE_BUILD_EXAMPLES=ON
cmake --build "$build" --parallel "$jobs" --target class_diagram
exec "$build/examples/class_diagram" --out "$build/class_diagram.mdl" "$@"
