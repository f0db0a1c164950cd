#!/usr/bin/env bash
# Writes the seed corpora of the fuzz targets; inputs the fuzzers found, kept next to them, stay.
# - fuzz/corpus/restore/ (restore_fuzz), with the sample host class_diagram: a small model, the same
#   model cut after its head and global section, and the model cut inside its last record.
# - fuzz/corpus/paste/ (paste_fuzz), with PasteFuzzSeeds (fuzz/paste_seeds.cpp, built only on demand):
#   clip buffers copied from the model paste_fuzz pastes into (fuzz/clip_model.h), namely a package,
#   some classes, an empty selection, the package cut after its head and global section and inside its
#   last record, and the classes with a prelude entry (also one whose id stands twice, and one marked
#   as pasted into its own source); the package and the classes once more with a byte after the end,
#   which makes paste_fuzz merge them into the model's objects.
# fuzz/corpus/ecore/, template/, record/ and butler/ (the example templates and one calling more of the
# core's macros) hold small inputs written by hand; this script leaves them alone.
# MODELCORE_BUILD_DIR names the build tree, configured with the examples, tests and tools (default: build/).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${MODELCORE_BUILD_DIR:-$root/build}"
restore="$root/fuzz/corpus/restore"
paste="$root/fuzz/corpus/paste"

cmake --build "$build" --target class_diagram PasteFuzzSeeds
mkdir -p "$restore" "$paste"

"$build/examples/class_diagram" --packages 1 --classes 3 --out "$restore/small.mdl" >/dev/null
# The first object record starts with token 2 and the model's type 530 (0x0212), little-endian.
first="$(grep -obUaP '\x02\x12\x02' "$restore/small.mdl" | head -n 1 | cut -d: -f1)"
head -c "$first" "$restore/small.mdl" >"$restore/head-only.mdl"
size="$(stat -c %s "$restore/small.mdl")"
head -c "$((size - 9))" "$restore/small.mdl" >"$restore/truncated.mdl"

"$build/tests/tools/PasteFuzzSeeds" "$paste"
# An input of odd length pastes with a converter that knows the model's ids: these merge.
for seed in package classes; do
    { cat "$paste/$seed.clip"; printf '\0'; } >"$paste/$seed-merged.clip"
done
ls -l "$restore" "$paste"
