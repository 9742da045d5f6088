#!/usr/bin/env bash
# Installs the packages of a folder over a scratch copy of this machine's root, starts what was
# installed, asks it, removes all again and looks for what was left: tools/try_packages.sh FOLDER
set -euo pipefail

if [[ ${IN_SCRATCH:-} == '' ]]; then
    namespaces=(--mount --pid --ipc --net --fork --kill-child)
    ((EUID == 0)) || namespaces+=(--user --map-root-user)
    IN_SCRATCH=mount exec unshare "${namespaces[@]}" bash "${BASH_SOURCE[0]}" "$(readlink -f "$1")"
fi

if [[ $IN_SCRATCH == mount ]]; then
    # Everything written goes into a file system in memory that ends with these namespaces.
    base=/run/scratch
    mount -t tmpfs tmpfs /run
    mkdir -p $base/{upper,work,root}
    mount -t overlay overlay -o "lowerdir=/,upperdir=$base/upper,workdir=$base/work" $base/root
    mount -t proc proc $base/root/proc
    mount --rbind /dev $base/root/dev
    mount -t tmpfs tmpfs $base/root/tmp
    mount -t tmpfs tmpfs $base/root/run
    mkdir -p $base/root/tmp/packages
    cp "$1"/*.deb "${BASH_SOURCE[0]}" "${BASH_SOURCE[0]%/*}/try_library.c" $base/root/tmp/packages/
    IN_SCRATCH=inside exec chroot $base/root /bin/bash "/tmp/packages/${BASH_SOURCE[0]##*/}" .
fi

export DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin
cd /tmp/packages
names=(veltrancord libveltrancord1 libveltrancord-dev veltrancord-tools python3-veltrancord)
listing() {
    find /etc /usr /mnt /opt /srv /var/lib -xdev -path /var/lib/dpkg -prune -o -print 2>/dev/null |
        sort
}
fail() {
    echo "try_packages: $*" >&2
    exit 1
}

# A container's rule against starting and stopping services would be in the way, as would settings
# of a service on this machine.
rm -f /usr/sbin/policy-rc.d
[[ ! -e /mnt/database ]] || fail "there is a /mnt/database already"
ldconfig
listing >/tmp/before
dpkg -i ./*.deb >/tmp/install.log 2>&1 || { cat /tmp/install.log >&2; fail "dpkg -i"; }

# It comes back at boot, whichever init the device has.
[[ -L /etc/systemd/system/multi-user.target.wants/veltrancord.service ]] || fail "the unit is not enabled"
[[ -e /etc/rc2.d/S01veltrancord ]] || fail "the init script is not enabled"

printf '<System>\n<Name>scratch</Name>\n</System>\n' >/mnt/database/xml/System
/etc/init.d/veltrancord start >/tmp/start.log 2>&1 || { cat /tmp/start.log >&2; fail "start"; }
/etc/init.d/veltrancord status || fail "it does not run"
[[ $(veltrancordctl get System.Name) == scratch ]] || fail "the tool gets no answer"
mode=$(stat -c '%a %G' /tmp/Veltrancord.unix)
[[ $mode == "770 veltrancord" ]] || fail "the socket has $mode"
[[ $(/usr/bin/python3 -c 'import veltrancord; print(veltrancord.Client().get("System.Name"))') == \
    scratch ]] || fail "the Python module gets no answer"
# shellcheck disable=SC2046
cc try_library.c -o /tmp/try $(pkg-config --cflags --libs veltrancord)
/tmp/try >/dev/null || fail "pkg-config"
mkdir -p /tmp/try-cmake && mv try_library.c /tmp/try-cmake/
cat >/tmp/try-cmake/CMakeLists.txt <<'SOURCE'
cmake_minimum_required(VERSION 3.23)
project(try C)
find_package(Veltrancord 1 REQUIRED)
add_executable(try try_library.c)
target_link_libraries(try Veltrancord::veltrancord)
SOURCE
cmake -S /tmp/try-cmake -B /tmp/try-cmake/build >/dev/null
cmake --build /tmp/try-cmake/build >/dev/null
/tmp/try-cmake/build/try >/dev/null || fail "CMake package"
systemd-analyze verify --man=no /usr/lib/systemd/system/veltrancord.service ||
    fail "the unit is not sound"
for page in 1/veltrancordctl.1 3/libveltrancord.3 5/veltrancord.5 7/veltrancord.7 8/Veltrancord.8; do
    [[ -f /usr/share/man/man$page.gz ]] || fail "no manual page $page"
done
# The table for BusyBox names the script that is there, and shells know the tool's words.
table=/usr/share/doc/veltrancord/examples/inittab
while read -r script _; do
    [[ -x $script ]] || fail "$table names $script"
done < <(grep -v '^#' "$table" | cut -d: -f4)
bash -n /usr/share/bash-completion/completions/veltrancordctl || fail "completion of bash"
if command -v zsh >/dev/null; then
    zsh -n /usr/share/zsh/vendor-completions/_veltrancordctl || fail "completion of zsh"
fi
if command -v fish >/dev/null; then
    fish -n /usr/share/fish/vendor_completions.d/veltrancordctl.fish || fail "completion of fish"
fi
/etc/init.d/veltrancord restart >/tmp/start.log 2>&1 || fail "restart"
veltrancordctl ping >/dev/null || fail "no answer after a restart"

rm -f /mnt/database/xml/System /mnt/database/eventlog/log
dpkg --purge "${names[@]}" >/tmp/remove.log 2>&1 || { cat /tmp/remove.log >&2; fail "dpkg --purge"; }
if pgrep -x Veltrancord >/dev/null; then
    fail "it still runs"
fi
ldconfig
listing >/tmp/after
diff /tmp/before /tmp/after >/tmp/left || { cat /tmp/left >&2; fail "something is left"; }
echo "installed, answered, removed, nothing left"
