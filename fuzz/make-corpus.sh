#!/usr/bin/env bash
# Writes the seed corpus of restore_fuzz with the sample host: a small model, the same model cut after
# its head and global section, and the model cut inside its last record. MODELCORE_BUILD_DIR names the
# build tree that holds class_diagram (default: build/).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${MODELCORE_BUILD_DIR:-$root/build}"
corpus="$root/fuzz/corpus"

cmake --build "$build" --target class_diagram
mkdir -p "$corpus"
"$build/examples/class_diagram" --packages 1 --classes 3 --out "$corpus/small.mdl" >/dev/null
# The first object record starts with token 2 and the model's type 530 (0x0212), little-endian.
first="$(grep -obUaP '\x02\x12\x02' "$corpus/small.mdl" | head -n 1 | cut -d: -f1)"
head -c "$first" "$corpus/small.mdl" >"$corpus/head-only.mdl"
size="$(stat -c %s "$corpus/small.mdl")"
head -c "$((size - 9))" "$corpus/small.mdl" >"$corpus/truncated.mdl"
ls -l "$corpus"
