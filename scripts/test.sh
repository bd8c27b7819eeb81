#!/bin/sh
# Builds and runs all tests on a fresh machine: installs what is missing first.
#   scripts/test.sh [PRESET..]   presets of CMakePresets.json, ci when none is named
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
[ $# -gt 0 ] || set -- ci
packages="libimage-exiftool-perl python3-numpy python3-pil python3-pytest python3-skimage python3-imageio python3-opencv python3-distributed parallel libgegl-dev gegl darktable man-db zsh fish gimp xvfb xdotool gir1.2-gegl-0.4 python3-gi"
for preset in "$@"; do
    case $preset in
    ci) packages="$packages chromium chromium-driver python3-selenium" ;; # for the page
    thread-sanitize) packages="$packages clang libclang-rt-14-dev libomp-dev" ;;
    esac
done
# shellcheck disable=SC2086
"$root/scripts/setup.sh" $packages
cd "$root"
# What was skipped, and why, of GoogleTest's and pytest's tests: ctest hides both when all pass.
tested=""
list_skipped() {
    for preset in $tested; do
        awk -v preset="$preset" '
            /^[0-9]+\/[0-9]+ Test: / { test = $3 }
            /: Skipped$/ { if ((getline reason) > 0) skipped[++count] = test ": " reason }
            sub(/^SKIPPED /, "") { skipped[++count] = test ": " $0 }
            END {
                print "test: " preset ": " (count ? "skipped were" : "nothing was skipped")
                for (k = 1; k <= count; k++) print "    " skipped[k]
            }' "build/$preset/Testing/Temporary/LastTest.log"
    done
}
trap list_skipped EXIT
for preset in "$@"; do
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    if [ "$preset" = ci ]; then
        # A mirror without Debian's sources leaves out the tests of the page, which are listed then.
        status=0
        scripts/web.sh --build || status=$?
        [ $status -eq 0 ] || [ $status -eq 3 ] || exit $status
    fi
    tested="$tested $preset"
    ctest --preset "$preset" -j "$(nproc)"
done
