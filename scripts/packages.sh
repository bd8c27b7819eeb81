#!/bin/bash
# Makes the Debian packages, holds them to lintian, installs them in a clean Debian 12 and uses each
# there. Installs what is missing first. The packages are left in build/package/packages.
#   scripts/packages.sh              all of it
#   scripts/packages.sh --no-smoke   without the clean Debian, which needs root and a network
# KT7_CLEAN_DEBIAN names a folder that is kept and used again for it; without it one is made and
# removed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" libgegl-dev dpkg-dev file lintian
cd "$root"
rm -rf build/package/packages
cmake --preset package >/dev/null
cmake --build --preset package
cpack --preset package
packages=(build/package/packages/*.deb)
[ ${#packages[@]} -eq 5 ] || { echo "packages: ${#packages[@]} were made and not 5" >&2; exit 1; }

as_root=""
[ "$(id -u)" -ne 0 ] || as_root=--allow-root
lintian $as_root --fail-on error "${packages[@]}"
[ "${1:-}" != --no-smoke ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "packages: SKIPPED the clean Debian, which needs root"
    exit 0
fi
"$root/scripts/setup.sh" debootstrap
clean=${KT7_CLEAN_DEBIAN:-}
if [ -z "$clean" ]; then
    clean=$(mktemp -d)
    trap 'rm -rf --one-file-system "$clean"' EXIT
fi
if [ ! -e "$clean/etc/debian_version" ] && ! debootstrap --variant=minbase bookworm "$clean" >&2; then
    echo "packages: SKIPPED the clean Debian, debootstrap can't make one here"
    exit 0
fi
rm -rf "${clean:?}/kt7"
mkdir "$clean/kt7"
cp "${packages[@]}" examples/photo.c "$clean/kt7"
cp /etc/resolv.conf "$clean/etc/resolv.conf"
# The tests of the packages, as somebody types them who has just got them.
cat >"$clean/kt7/smoke.sh" <<'SMOKE'
set -eux
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
cd /kt7
apt-get -q update
apt-get -q -y install --no-install-recommends ./*.deb gegl python3-pil gcc libc6-dev pkg-config
kt7 --version
kt7 demo demo
kt7 denoise demo/noisy.png clean.png
kt7 denoise --quiet demo/noisy.png clean.jpg
gegl demo/noisy.png -o gegl.png -- kt7:denoise quality=fast 2>gegl.log
! grep -e kt7 -e CRITICAL gegl.log
python3 - <<'PYTHON'
import kt7, numpy as np
from PIL import Image

def picture(name):
    return np.asarray(Image.open(name).convert("RGB")).astype(float)

truth, noisy = picture("demo/clean.png"), picture("demo/noisy.png")
noise = np.mean((noisy - truth) ** 2)
results = {name: picture(name) for name in ("clean.png", "clean.jpg", "gegl.png")}
results["python"] = kt7.denoise(np.uint8(noisy))
for name, result in results.items():
    left = np.mean((result - truth) ** 2) / noise
    print(f"{name}: {left:.2f} of the noise is left")
    assert left < 0.8, name
PYTHON
cc photo.c $(pkg-config --cflags --libs kt7photo) -lm -o photo
./photo
test -s /usr/share/man/man1/kt7-denoise.1.gz
apt-get -q -y purge libkt7
[ -z "$(find /usr -name '*kt7*')" ] || { find /usr -name '*kt7*'; exit 1; }
SMOKE
chroot "$clean" sh /kt7/smoke.sh </dev/null
echo "packages: all five work in a clean Debian $(cat "$clean/etc/debian_version")"
