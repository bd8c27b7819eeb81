#!/bin/sh
# Installs what building and testing need, from Debian's packages; does nothing when all is there.
#   scripts/setup.sh [PACKAGE..]   with further packages
#   scripts/setup.sh --no-tests    without what tests and benchmarks alone need
set -eu

packages="g++ cmake ninja-build pkg-config git ca-certificates
liblcms2-dev libcli11-dev nlohmann-json3-dev libexiv2-dev
libjpeg-dev libpng-dev libtiff-dev libwebp-dev libheif-dev libjxl-dev"
if [ "${1:-}" = --no-tests ]; then
    shift
else
    packages="$packages libflann-dev liblz4-dev libgtest-dev libgmock-dev libbenchmark-dev"
fi
packages="$packages $*"

fail() {
    echo "setup: $1" >&2
    exit 1
}

missing=""
for package in $packages; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -z "$missing" ] && exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
        fail "these packages are missing, and installing them needs root or sudo:$missing"
    as_root="sudo"
fi
echo "setup: installing$missing" >&2
# Without a network this is over within seconds, and says so in one line.
words=$($as_root env RES_OPTIONS="timeout:2 attempts:1" apt-get -q -o DPkg::Lock::Timeout=300 \
    -o APT::Update::Error-Mode=any -o Acquire::Retries=0 -o Acquire::http::Timeout=5 \
    -o Acquire::https::Timeout=5 update 2>&1) ||
    fail "can't fetch the lists of packages, is the network up? ($(echo "$words" | sed -n 's/^E: //p' | head -n 1))"
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 \
    install --no-install-recommends $missing >&2 ||
    fail "installing failed, what apt-get says stands above; wanted:$missing"
