#!/usr/bin/env bash
# Builds the library and its tests with gcc's coverage instrumentation (Debug), runs the test suite and
# prints the line and branch coverage of the library's own sources (ModelCore/, foundation/, platform/),
# one line per file and a summary. Reports go into the build directory: coverage.txt (uncovered lines),
# coverage.json and coverage/index.html (annotated sources).
# Usage: scripts/coverage.sh [BUILD_DIR] [ctest arguments...]; BUILD_DIR defaults to build-coverage/.
# MODELCORE_COVERAGE_JOBS caps the parallel build, test and gcov jobs (default: 2).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$root/build-coverage}"
[ $# -gt 0 ] && shift
jobs="${MODELCORE_COVERAGE_JOBS:-2}"

"$root/scripts/setup.sh"
if ! command -v gcovr >/dev/null 2>&1; then
    echo "coverage: gcovr is not installed (scripts/setup.sh installs it)" >&2
    exit 1
fi

# ccache's base directory makes the compiler record relative source paths, which gcovr cannot find again:
# headers compiled into the tests, the tools and the examples would drop out of the figures.
unset CCACHE_BASEDIR
# Debug: at -O0 every source line keeps its own code, so the line figures mean what they say.
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DMODELCORE_WERROR=ON \
    -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage \
    -DCMAKE_SHARED_LINKER_FLAGS=--coverage -DCMAKE_MODULE_LINKER_FLAGS=--coverage
cmake --build "$build" --parallel "$jobs"

# Counters of an earlier run would add up with this one's.
find "$build" -name '*.gcda' -delete
(cd "$build" && ctest --output-on-failure --parallel "$jobs" "$@")

# Only the library counts: tests, examples, tools, benchmarks and fuzz targets are left out.
# --exclude-throw-branches drops the branches gcc adds at every call that may throw (the unwinding
# edge), and --exclude-unreachable-branches those it adds on lines that hold no code of their own
# (closing braces, destructor calls at scope end); neither is a decision in the source, and counting
# them would make every call site a half-covered branch.
json="$build/coverage.json"
gcovr --root "$root" --object-directory "$build" "$build" \
    --filter "$root/ModelCore/" --filter "$root/foundation/" --filter "$root/platform/" \
    --exclude-unreachable-branches --exclude-throw-branches \
    --gcov-executable gcov -j "$jobs" --json "$json"

mkdir -p "$build/coverage"
gcovr --root "$root" --add-tracefile "$json" --txt "$build/coverage.txt" \
    --html-details "$build/coverage/index.html"

# One table from the JSON: lines and branches side by side, then the totals.
python3 - "$json" <<'PY'
import json, sys

files = json.load(open(sys.argv[1]))["files"]
rows = []
for entry in sorted(files, key=lambda f: f["file"]):
    lines = [l for l in entry["lines"] if not l["gcovr/noncode"] and not l["gcovr/excluded"]]
    branches = [b for l in lines for b in l["branches"]]
    rows.append((entry["file"], len(lines), sum(l["count"] > 0 for l in lines),
                 len(branches), sum(b["count"] > 0 for b in branches)))

def pct(hit, total):
    return "%5.1f%%" % (100.0 * hit / total) if total else "    --"

print("%-44s %21s %21s" % ("file", "lines", "branches"))
for name, lines, lines_hit, branches, branches_hit in rows:
    print("%-44s %6d/%6d %7s %6d/%6d %7s" % (name, lines_hit, lines, pct(lines_hit, lines),
                                            branches_hit, branches, pct(branches_hit, branches)))
total = [sum(r[i] for r in rows) for i in range(1, 5)]
print("library coverage: lines %s (%d of %d), branches %s (%d of %d)" % (
    pct(total[1], total[0]).strip(), total[1], total[0], pct(total[3], total[2]).strip(), total[3], total[2]))
PY
echo "reports: $build/coverage.txt (uncovered lines per file), $build/coverage/index.html"
