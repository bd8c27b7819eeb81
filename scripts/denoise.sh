#!/bin/sh
# Denoises a photo on a fresh machine: installs what is missing, builds kt7, runs it.
#   scripts/denoise.sh                    the demo scene, pictures in ./demo
#   scripts/denoise.sh IN OUT [OPTION..]  a photo, with any options of kt7 denoise
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" --no-tests
(cd "$root" &&
    cmake --preset release -DKT7_BUILD_TESTS=OFF -DKT7_BUILD_BENCH=OFF >/dev/null &&
    cmake --build --preset release >&2)
kt7="$root/build/release/bin/kt7"
# Run twice, it replaces its own pictures and leaves a photo's result as it is.
if [ $# -eq 0 ]; then
    set -- demo
    [ ! -e demo/side-by-side.png ] || set -- "$@" --force
    exec "$kt7" demo "$@"
fi
for option in "$@"; do
    case $option in
    -f | --force | --skip-existing) exec "$kt7" denoise "$@" ;;
    esac
done
exec "$kt7" denoise --skip-existing "$@"
