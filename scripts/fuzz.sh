#!/bin/sh
# Builds the fuzz targets and lets each search for a while from its corpus, which stays as it is.
# Fails on a finding and leaves the input in build/fuzz/found. Installs what is missing first.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   5 when not given
set -eu
seconds=${1:-5}
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" clang libclang-rt-14-dev libomp-dev
cd "$root"
cmake --preset fuzz
cmake --build --preset fuzz

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export TMPDIR="$scratch"
# More threads than that only wait in pictures of this size.
export OMP_NUM_THREADS="${OMP_NUM_THREADS:-2}"
mkdir -p build/fuzz/found
failed=""
while IFS=/ read -r _ target; do
    mkdir "$scratch/$target"
    # What is new goes to the first folder.
    if "build/fuzz/fuzz/targets/$target" -max_total_time="$seconds" -timeout=60 \
        -artifact_prefix="build/fuzz/found/$target-" \
        "$scratch/$target" "fuzz/corpus/$target" >"$scratch/log" 2>&1; then
        echo "$target: $(grep '^Done' "$scratch/log")"
    else
        tail -n 60 "$scratch/log"
        failed="$failed $target"
    fi
done <fuzz/targets.txt
[ -z "$failed" ] || {
    echo "fuzz: findings in$failed; the inputs are in build/fuzz/found" >&2
    exit 1
}
