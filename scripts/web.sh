#!/bin/sh
# Builds the page of hosts/web and serves it on the loopback address; installs what is missing first.
#   scripts/web.sh [PORT]    8070 when none is named
#   scripts/web.sh --build   only builds, into build/web/page, and a program for its tests
# Returns 3 where the sources of the libraries can't be fetched.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
"$root/scripts/setup.sh" --no-tests emscripten dpkg-dev python3

libraries="zlib libpng1.6 libjpeg-turbo tiff"
sources="$root/build/web/sources"
if [ "$(cat "$sources/complete" 2>/dev/null)" != "$libraries" ]; then
    # Debian's sources of the libraries, through lists of our own: the machine's need not name
    # sources. A mirror that lags behind with its updates has at least the release.
    lists="$root/build/web/apt"
    fetch() {
        rm -rf "$sources" "$lists"
        mkdir -p "$sources" "$lists/lists" "$lists/parts" "$lists/cache"
        for suite in "$@"; do
            echo "deb-src http://deb.debian.org/$suite main"
        done >"$lists/sources.list"
        for step in update "source --download-only $libraries"; do
            # shellcheck disable=SC2086
            (cd "$sources" && apt-get -q -o Dir::Etc::SourceList="$lists/sources.list" \
                -o Dir::Etc::SourceParts="$lists/parts" -o Dir::State::Lists="$lists/lists" \
                -o Dir::Cache="$lists/cache" -o APT::Sandbox::User=root \
                -o APT::Update::Error-Mode=any -o Acquire::Retries=1 \
                -o Acquire::http::Timeout=10 $step) || return 1
        done
    }
    fetch "debian bookworm" "debian-security bookworm-security" || fetch "debian bookworm" || {
        echo "web: can't fetch Debian's sources of $libraries, is the network up?" >&2
        exit 3
    }
    for package in "$sources"/*.dsc; do
        (cd "$sources" && dpkg-source -x "$package")
    done
    echo "$libraries" >"$sources/complete"
fi

# Emscripten's own tools, for a node that is not Debian's too.
export NODE_PATH=/usr/share/nodejs
for build in single threads; do
    [ $build = threads ] && threads=ON || threads=OFF
    [ $build = threads ] && targets=kt7_web || targets="kt7_web kt7_portable"
    emcmake cmake -Wno-dev -G Ninja -S . -B build/web/$build -DCMAKE_BUILD_TYPE=Release \
        -DKT7_WEB_THREADS="$threads" -DKT7_WEB_SOURCES="$sources"
    # shellcheck disable=SC2086
    cmake --build build/web/$build --target $targets
done
mkdir -p build/web/page
for build in single threads; do
    cp build/web/$build/bin/* build/web/page/
done
[ "${1:-}" = --build ] || exec python3 hosts/web/serve.py build/web/page "${1:-8070}"
