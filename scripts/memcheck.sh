#!/bin/sh
# Runs every exported function, all stages on, under Valgrind: fails on an error or a definite leak.
# Installs what is missing first.
#   scripts/memcheck.sh [PRESET]   a preset that is built with its tests; ci when none is named
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" valgrind
export OMP_NUM_THREADS=2 OMP_WAIT_POLICY=passive
exec valgrind --quiet --error-exitcode=9 --leak-check=full --show-leak-kinds=definite \
    --errors-for-leak-kinds=definite \
    "$root/build/${1:-ci}/bin/guest_tests" "--gtest_filter=Guest.EveryCall*"
