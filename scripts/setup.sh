#!/usr/bin/env bash
# Installs the build and test tools on a Debian machine. Idempotent: when everything is
# present it touches nothing, and apt-get runs only for what is missing.
set -euo pipefail

# Tools found by command name (any installation will do); libraries by their Debian package.
# Graphviz's dot renders mcinspect --dot in a test; gcovr reports coverage (scripts/coverage.sh).
required_cmds=(g++:g++ cmake:cmake make:make dot:graphviz gcovr:gcovr)
# pugixml and the Ecore jar serve the sample host's Ecore import and its test (Ecore's own metamodel).
required_pkgs=(libgtest-dev libbenchmark-dev libpugixml-dev libeclipse-emf-ecore-java)
# Optional: the format check is skipped without clang-format, the fuzzers need clang and its runtime.
optional_cmds=(clang-format:clang-format clang:clang)
optional_pkgs=(libclang-rt-14-dev)

has_pkg() { dpkg -s "$1" >/dev/null 2>&1; }

missing_required=()
missing_optional=()
for entry in "${required_cmds[@]}"; do
    command -v "${entry%%:*}" >/dev/null 2>&1 || missing_required+=("${entry#*:}")
done
for entry in "${optional_cmds[@]}"; do
    command -v "${entry%%:*}" >/dev/null 2>&1 || missing_optional+=("${entry#*:}")
done
if command -v dpkg >/dev/null 2>&1; then
    for pkg in "${required_pkgs[@]}"; do has_pkg "$pkg" || missing_required+=("$pkg"); done
    for pkg in "${optional_pkgs[@]}"; do has_pkg "$pkg" || missing_optional+=("$pkg"); done
fi

if [ ${#missing_required[@]} -eq 0 ] && [ ${#missing_optional[@]} -eq 0 ]; then
    exit 0
fi

if ! command -v apt-get >/dev/null 2>&1; then
    if [ ${#missing_required[@]} -ne 0 ]; then
        echo "setup: missing ${missing_required[*]} and no apt-get to install them" >&2
        exit 1
    fi
    echo "setup: optional tools missing (${missing_optional[*]}); continuing without them" >&2
    exit 0
fi

# env, because sudo drops the caller's environment.
if [ "$(id -u)" -eq 0 ]; then
    as_root=(env DEBIAN_FRONTEND=noninteractive)
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo env DEBIAN_FRONTEND=noninteractive)
else
    echo "setup: need root or sudo to install: ${missing_required[*]} ${missing_optional[*]}" >&2
    [ ${#missing_required[@]} -eq 0 ] && exit 0
    exit 1
fi

echo "setup: installing ${missing_required[*]} ${missing_optional[*]}"
"${as_root[@]}" apt-get update
if [ ${#missing_required[@]} -ne 0 ]; then
    "${as_root[@]}" apt-get install -y --no-install-recommends "${missing_required[@]}"
fi
# One at a time, so a package this release does not carry costs only itself.
for pkg in "${missing_optional[@]}"; do
    "${as_root[@]}" apt-get install -y --no-install-recommends "$pkg" ||
        echo "setup: optional package $pkg not installed; continuing" >&2
done
