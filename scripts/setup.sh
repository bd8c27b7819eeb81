#!/bin/sh
# Installs what building and testing need, from Debian's packages; does nothing when all is there.
#   scripts/setup.sh [PACKAGE..]   with further packages
set -eu

packages="g++ cmake ninja-build pkg-config git ca-certificates
libflann-dev liblcms2-dev libopenimageio-dev libcli11-dev
libgtest-dev libgmock-dev libbenchmark-dev $*"

missing=""
for package in $packages; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -z "$missing" ] && exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "setup: these packages are missing, and installing them needs root or sudo:$missing" >&2
        exit 1
    }
    as_root="sudo"
fi
echo "setup: installing$missing" >&2
$as_root apt-get -q -o DPkg::Lock::Timeout=300 update >&2
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 \
    install --no-install-recommends $missing >&2
