#!/bin/sh
# Runs all tests counting what they reach, and prints lines and branches per file; nothing else is
# left behind than build/coverage. Installs what is missing first.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" gcovr
cd "$root"
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
scripts/test.sh coverage
# Branches that the compiler makes for exceptions say nothing about our tests.
(cd build/coverage && gcovr --root "$root" prim qxutils qxenhlib pmdll tools \
    --filter "$root/(prim|qxutils|qxenhlib|pmdll|tools)/" \
    --exclude-throw-branches --exclude-unreachable-branches --print-summary)
