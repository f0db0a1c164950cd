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
# Read whole before grep: under pipefail an early exit of grep -q would fail the pipe.
targets="$(cmake --build "$build" --target help)"
if grep -q 'class_diagram' <<<"$targets"; then
    cmake --build "$build" --parallel "$jobs" --target class_diagram
    exec "$build/examples/class_diagram" --out "$build/class_diagram.mdl" "$@"
fi
# A library without save/restore or name spaces cannot run the class model: the tour stands in.
cmake --build "$build" --parallel "$jobs" --target metamodel_tour
exec "$build/examples/metamodel_tour"
