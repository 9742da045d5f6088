#!/usr/bin/env bash
# Installs what a build for 32-bit ARM needs beside tools/packages, and says nothing when it is there.
set -euo pipefail

wanted=(g++-arm-linux-gnueabihf qemu-user libtinyxml-dev:armhf)
missing=()
for package in "${wanted[@]}"; do
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -q '^installed' ||
        missing+=("$package")
done
((${#missing[@]} > 0)) || exit 0

as_root=()
((EUID == 0)) || as_root=(sudo)
"${as_root[@]}" dpkg --add-architecture armhf
# A mirror in the middle of its update fails for one index; what is needed may be in the others.
"${as_root[@]}" apt-get -q update || true
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -q install -y --no-install-recommends "${missing[@]}"
