#!/bin/bash
# Runs a script of this folder in fresh user, mount, PID and IPC namespaces with its own /tmp and
# /mnt, since the service's names are fixed: a service that runs on this machine is neither
# disturbed nor measured. Usage: bench/namespaces.sh SCRIPT [ARGUMENT...]
# Paths among the arguments lie in the tree, and are given from its root on.
set -euo pipefail

if [ "${1-}" != --inside ]; then
    exec unshare --user --map-root-user --mount --pid --ipc --fork --kill-child --mount-proc \
        bash "$0" --inside "$(realpath "$(dirname "$0")/..")" "$@"
fi
root=$2 script=$3
shift 3
mount -t tmpfs -o size=3g tmpfs /mnt
mkdir /mnt/root /mnt/eventlog
# The size of the file system decides how many entries the log holds: here 1,000.
mount -t tmpfs -o size=64m tmpfs /mnt/eventlog
mount --bind "$root" /mnt/root
# The tree may lie below /tmp, which is hidden now: from here on it is reached by /mnt.
mount -t tmpfs -o size=1g tmpfs /tmp
cd /mnt/root
exec /usr/bin/python3 "bench/$script" "$@"
