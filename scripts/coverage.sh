#!/bin/sh
# Runs all tests counting what they reach, and prints lines and branches per file; builds anew in
# build/coverage. Installs what is missing first.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" gcovr
cd "$root"
rm -rf build/coverage # what is left there of files that moved would be counted with the rest
scripts/test.sh coverage
# Branches that the compiler makes for exceptions say nothing about our tests.
(cd build/coverage && gcovr --root "$root" prim qxutils qxenhlib pmdll tools \
    --filter "$root/(prim|qxutils|qxenhlib|pmdll|tools)/" \
    --exclude-throw-branches --exclude-unreachable-branches --print-summary)
