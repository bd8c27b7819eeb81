#!/bin/sh
# Builds and runs all tests on a fresh machine: installs what is missing first.
#   scripts/test.sh [PRESET..]   presets of CMakePresets.json, ci when none is named
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
cd "$root"
[ $# -gt 0 ] || set -- ci
for preset in "$@"; do
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    ctest --preset "$preset" -j "$(nproc)"
done
