#!/usr/bin/env bash
# Installs what a build for another processor needs beside tools/packages, and says nothing when it is
# there: tools/arm_packages.sh [armhf|arm64]
set -euo pipefail

architecture=${1:-armhf}
case $architecture in
    armhf) wanted=(g++-arm-linux-gnueabihf qemu-user libtinyxml-dev:armhf) ;;
    arm64) wanted=(g++-aarch64-linux-gnu qemu-user libtinyxml-dev:arm64) ;;
    *)
        echo "arm_packages: there is no list for $architecture" >&2
        exit 2
        ;;
esac
missing=()
for package in "${wanted[@]}"; do
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -q '^installed' ||
        missing+=("$package")
done
((${#missing[@]} > 0)) || exit 0

as_root=()
((EUID == 0)) || as_root=(sudo)
"${as_root[@]}" dpkg --add-architecture "$architecture"
# A mirror in the middle of its update fails for one index; what is needed may be in the others.
"${as_root[@]}" apt-get -q update || true
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -q install -y --no-install-recommends "${missing[@]}"
