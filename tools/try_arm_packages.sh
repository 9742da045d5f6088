#!/usr/bin/env bash
# Unpacks the packages for 32-bit ARM of a folder, starts the program in them under the emulator, and
# asks it with the tool, the library and the Python module in them: tools/try_arm_packages.sh FOLDER
set -euo pipefail

if [[ ${IN_SCRATCH:-} == '' ]]; then
    namespaces=(--mount --pid --ipc --fork --kill-child --mount-proc)
    ((EUID == 0)) || namespaces+=(--user --map-root-user)
    IN_SCRATCH=yes exec unshare "${namespaces[@]}" bash "${BASH_SOURCE[0]}" "$(readlink -f "$1")"
fi

fail() {
    echo "try_arm_packages: $*" >&2
    exit 1
}

mount -t tmpfs tmpfs /mnt
mkdir /mnt/root
for package in "$1"/*.deb; do
    dpkg-deb -x "$package" /mnt/root
done
cp "${BASH_SOURCE[0]%/*}/try_library.c" /mnt/
mount -t tmpfs tmpfs /tmp
mkdir -p /mnt/database/xml /mnt/database/eventlog
printf '<System>\n<Name>scratch</Name>\n</System>\n' >/mnt/database/xml/System

qemu-arm /mnt/root/usr/sbin/Veltrancord -l || fail "start"
[[ $(qemu-arm /mnt/root/usr/bin/veltrancordctl get System.Name) == scratch ]] ||
    fail "the tool gets no answer"
[[ $(PYTHONPATH=/mnt/root/usr/lib/python3/dist-packages /usr/bin/python3 -c \
    'import veltrancord; print(veltrancord.Client().get("System.Name"))') == scratch ]] ||
    fail "the Python module gets no answer"
libraries=/mnt/root/usr/lib/arm-linux-gnueabihf
found=$(PKG_CONFIG_PATH=$libraries/pkgconfig PKG_CONFIG_SYSTEM_INCLUDE_PATH=/ \
    PKG_CONFIG_SYSTEM_LIBRARY_PATH=/ pkg-config --cflags --libs veltrancord)
# shellcheck disable=SC2086
arm-linux-gnueabihf-gcc /mnt/try_library.c -o /tmp/try $found
[[ $(qemu-arm -E LD_LIBRARY_PATH="$libraries" /tmp/try) == scratch ]] ||
    fail "the library gets no answer"
echo "unpacked, started, answered"
