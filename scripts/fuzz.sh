#!/usr/bin/env bash
# Builds the libFuzzer targets under AddressSanitizer + UndefinedBehaviorSanitizer (clang) and runs each
# for a while on its committed corpus, then prints per target the inputs run, the coverage reached
# (libFuzzer's cov: and ft:), the corpus size and the findings. Exits non-zero on any finding.
#
#   scripts/fuzz.sh [--merge] [SECONDS_PER_TARGET] [TARGET...]
#
# SECONDS_PER_TARGET defaults to 60; TARGET is restore, paste, template, ecore, record or butler (default: all).
# New inputs that reach new code go to a scratch corpus in the build tree (fuzz-found/TARGET), which
# later runs start from too; --merge afterwards merges them into the committed fuzz/corpus/TARGET.
# Findings (crash-, leak-, timeout-, oom- files) go to fuzz-artifacts/ in the build tree; a finding is
# replayed with `build-fuzz/fuzz/TARGET_fuzz FILE`.
# MODELCORE_BUILD_DIR names the build tree (default: build-fuzz/); MODELCORE_JOBS the build's parallel
# jobs (default: the number of processors).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${MODELCORE_BUILD_DIR:-$root/build-fuzz}"
jobs="${MODELCORE_JOBS:-$(nproc 2>/dev/null || echo 2)}"
all_targets=(restore paste template ecore record butler)

merge=0
if [ "${1:-}" = "--merge" ]; then
    merge=1
    shift
fi
seconds=60
if [ $# -gt 0 ] && [[ "$1" =~ ^[0-9]+$ ]]; then
    seconds="$1"
    shift
fi
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=("${all_targets[@]}")
for target in "${targets[@]}"; do
    if [[ ! " ${all_targets[*]} " =~ " $target " ]]; then
        echo "fuzz.sh: unknown target '$target' (known: ${all_targets[*]})" >&2
        exit 2
    fi
done

"$root/scripts/setup.sh"
if ! command -v clang++ >/dev/null 2>&1; then
    echo "fuzz.sh: clang++ is not installed and could not be installed" >&2
    exit 2
fi

launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
# Only the fuzz targets: they compile the library into themselves under the fuzzer's instrumentation.
cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMODELCORE_BUILD_FUZZERS=ON -DMODELCORE_BUILD_TESTS=OFF \
    -DMODELCORE_BUILD_EXAMPLES=OFF -DMODELCORE_BUILD_TOOLS=OFF -DMODELCORE_WERROR=ON "${launcher[@]}" >/dev/null
binaries=()
for target in "${targets[@]}"; do binaries+=("${target}_fuzz"); done
cmake --build "$build" --parallel "$jobs" --target "${binaries[@]}"

artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"
summary=()
failed=0
for target in "${targets[@]}"; do
    found="$build/fuzz-found/$target"
    committed="$root/fuzz/corpus/$target"
    log="$build/fuzz-$target.log"
    mkdir -p "$found"
    # Findings of an earlier run stay where they are; only this run's count.
    before="$(find "$artifacts" -maxdepth 1 -name "$target-*" | wc -l)"
    echo "-- ${target}_fuzz for ${seconds}s (log: $log)"
    status=0
    "$build/fuzz/${target}_fuzz" -artifact_prefix="$artifacts/$target-" -max_total_time="$seconds" \
        -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "$found" "$committed" >"$log" 2>&1 || status=$?
    runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
    # The last status line: "#N  REASON cov: C ft: F corp: N/SIZE ...".
    last="$(grep -E '^#[0-9]+' "$log" | grep ' cov: ' | tail -n 1 || true)"
    cov="$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")"
    ft="$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")"
    corpus="$(sed -n 's/.* corp: \([0-9]*\/[0-9A-Za-z]*\).*/\1/p' <<<"$last")"
    findings=$(($(find "$artifacts" -maxdepth 1 -name "$target-*" | wc -l) - before))
    if [ "$status" -ne 0 ] && [ "$findings" -eq 0 ]; then
        findings=1  # the fuzzer stopped on something it wrote no file for
    fi
    if [ "$findings" -ne 0 ]; then
        failed=1
        grep -E 'ERROR|SUMMARY|dumps differ|expected:|actual:' "$log" | head -n 20 || true
    fi
    if [ "$merge" -eq 1 ] && [ "$findings" -eq 0 ]; then
        "$build/fuzz/${target}_fuzz" -merge=1 "$committed" "$found" >>"$log" 2>&1
    fi
    summary+=("$(printf '%-9s %6ss %12s %7s %7s %12s %9s' "$target" "$seconds" "${runs:-?}" "${cov:-?}" \
        "${ft:-?}" "${corpus:-?}" "$findings")")
done

printf '\n%-9s %7s %12s %7s %7s %12s %9s\n' target time inputs cov ft corpus findings
printf '%s\n' "${summary[@]}"
if [ "$failed" -ne 0 ]; then
    echo "findings in $artifacts" >&2
    exit 1
fi
