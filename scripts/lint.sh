#!/bin/bash
# Form and habits: clang-format over the whole tree, clang-tidy over the C++ sources that
# changed, but for tests, benchmarks and fuzz targets.
#   scripts/lint.sh [BASE]   sources changed since the commit BASE
# Without BASE: since the branch left its upstream, or over the newest 20 commits where there is no
# upstream; none in a shallow clone. KT7_LINT_SECONDS (150) is how long clang-tidy may go on to the
# next source, newest first; those that are left are named.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh clang-format clang-tidy libomp-dev

git ls-files -z '*.h' '*.cpp' '*.c' | xargs -0 clang-format --dry-run -Werror
echo "lint: the form is right"

base=${1:-}
if [ -z "$base" ] && [ "$(git rev-parse --is-shallow-repository)" = false ]; then
    base=$(git merge-base HEAD '@{upstream}' 2>/dev/null || true)
    # On the upstream itself the branch has nothing of its own.
    if [ -z "$base" ] || [ "$base" = "$(git rev-parse HEAD)" ]; then
        base=$(git rev-list --first-parent -n 21 HEAD | tail -n 1)
    fi
fi
if [ -z "$base" ]; then
    echo "lint: nothing to compare with, so clang-tidy has no work"
    exit 0
fi
git rev-parse -q --verify "$base^{commit}" >/dev/null || {
    echo "lint: $base is no commit" >&2
    exit 2
}

[ -e build/ci/build.ninja ] || cmake --preset ci >/dev/null
# What is not committed yet comes first, then commit by commit backwards, each source once. Not tests
# and benchmarks: the analyzer doesn't see through the loops and assertions of their harnesses. Nor
# the other search, in whose library it finds paths that can't happen, from our calls on.
what=('*.cpp' ':!tests' ':!bench' ':!fuzz' ':!qxenhlib/FlannForest.cpp')
mapfile -t sources < <({
    git diff --name-only HEAD -- "${what[@]}"
    git log --format= --name-only "$base..HEAD" -- "${what[@]}"
} | awk '!seen[$0]++' | while read -r source; do
    # Only what is still there and is compiled by this preset.
    if [ -e "$source" ] && grep -q "\"file\": \"$PWD/$source\"" build/ci/compile_commands.json; then
        echo "$source"
    fi
done)

deadline=$((SECONDS + ${KT7_LINT_SECONDS:-150}))
faults=$(mktemp -d)
trap 'rm -rf "$faults"' EXIT
left=()
for i in "${!sources[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do
        wait -n || true
    done
    if [ "$SECONDS" -ge "$deadline" ]; then
        left=("${sources[@]:i}")
        break
    fi
    { clang-tidy -p build/ci --quiet --warnings-as-errors='*' \
        --extra-arg=-Wno-unknown-warning-option "${sources[i]}" >"$faults/$i" 2>/dev/null &&
        rm "$faults/$i"; } &
done
wait
[ ${#left[@]} -eq 0 ] || echo "lint: no time for ${#left[@]} sources: ${left[*]}"
if [ -n "$(ls "$faults")" ]; then
    cat "$faults"/*
    exit 1
fi
echo "lint: clang-tidy has nothing to say on $((${#sources[@]} - ${#left[@]})) sources"
