#!/bin/sh
# Denoises a photo on a fresh machine: installs what is missing, builds kt7, runs it.
#   scripts/denoise.sh                    the demo scene, pictures in ./demo
#   scripts/denoise.sh IN OUT [OPTION..]  a photo, with any options of kt7 denoise
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
(cd "$root" &&
    cmake --preset release -DKT7_BUILD_TESTS=OFF -DKT7_BUILD_BENCH=OFF >/dev/null &&
    cmake --build --preset release >&2)
kt7="$root/build/release/bin/kt7"
if [ $# -eq 0 ]; then
    exec "$kt7" demo demo
fi
exec "$kt7" denoise "$@"
