#!/usr/bin/env bash
# Installs the packages of a folder over a scratch copy of this machine's root and takes them through
# their life: tools/try_packages.sh FOLDER [ARCHITECTURE]
#
# Those for another processor run under the emulator, which the kernel starts for their programs in
# these namespaces alone.
set -euo pipefail

native=$(dpkg --print-architecture)
folder=$(readlink -f "$1")
architecture=${2:-$native}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
itself=(bash "$here/try_packages.sh" "$folder" "$architecture")
base=/run/scratch

fail() {
    echo "try_packages: $*" >&2
    exit 1
}

# Everything written goes into a file system in memory that ends with its namespace.
make_root() {
    mount -t tmpfs tmpfs /run
    mkdir -p $base/{upper,work,root,emulators}
    mount -t overlay overlay -o "lowerdir=/,upperdir=$base/upper,workdir=$base/work" $base/root
    mount --rbind /dev $base/root/dev
    mount -t tmpfs tmpfs $base/root/tmp
    mount -t tmpfs tmpfs $base/root/run
    mkdir $base/root/tmp/packages
    cp "$folder"/*.deb "$folder"/*.whl "$here"/package_trial.sh "$here"/try_library.c $base/root/tmp/packages/
}

# Goes on in a user namespace with all users in it, which has a table of emulators of its own.
enter_with_users() {
    local child opened
    mkfifo $base/mapped
    IN_SCRATCH=inside unshare --user "$@" "${itself[@]}" <$base/mapped &
    child=$!
    exec {opened}>$base/mapped
    while [[ $(readlink "/proc/$child/ns/user") == "$(readlink /proc/$$/ns/user)" ]]; do
        sleep 0.1
    done
    echo '0 0 4294967295' >"/proc/$child/uid_map"
    echo '0 0 4294967295' >"/proc/$child/gid_map"
    echo mapped >&"$opened"
    wait "$child"
}

# Has the kernel start programs for another processor by the emulator: those whose first bytes, as far
# as the mask has them count, are of an ELF file of that class and machine. The kernel undoes the "\x".
emulate() {
    local emulator=$1 class=$2 machine=$3
    local begin="\\x7fELF\\x$class\\x01\\x01" zeros='\x00\x00\x00\x00\x00\x00\x00\x00\x00'
    local all='\xff\xff\xff\xff\xff\xff\xff' any_type='\xfe\xff\xff\xff'
    local rule=":$emulator:M::$begin$zeros\\x02\\x00\\x$machine\\x00:$all\\x00$all\\xff$any_type:/usr/bin/$emulator:F"
    if ! mount -t binfmt_misc binfmt_misc $base/emulators || ! echo -n "$rule" >$base/emulators/register; then
        fail "programs for $architecture cannot be emulated here; that takes Linux 6.7 or newer"
    fi
}

case ${IN_SCRATCH:-outside} in
    outside)
        ((EUID == 0)) || exec sudo "${itself[@]}"
        IN_SCRATCH=mount exec unshare --mount "${itself[@]}"
        ;;
    mount)
        make_root
        namespaces=(--mount --pid --ipc --net --fork --kill-child)
        if [[ $architecture == "$native" ]]; then
            IN_SCRATCH=inside exec unshare "${namespaces[@]}" "${itself[@]}"
        fi
        enter_with_users "${namespaces[@]}"
        ;;
    inside)
        [[ $architecture == "$native" ]] || read -r _ # until the users are there
        mount -t proc proc $base/root/proc
        case $architecture in
            armhf) emulate qemu-arm 01 28 ;;
            arm64) emulate qemu-aarch64 02 b7 ;;
        esac
        exec chroot $base/root /bin/bash /tmp/packages/package_trial.sh "$architecture" </dev/null
        ;;
esac
