#!/bin/bash
# Runs the benchmark in fresh user, mount, PID and IPC namespaces with its own /tmp and /mnt, since
# the service's names are fixed: a service that runs on this machine is neither disturbed nor
# measured. Usage: bench/namespaces.sh PROGRAMS DISK [options of run_benchmark.py]
set -euo pipefail

if [ "${1-}" != --inside ]; then
    exec unshare --user --map-root-user --mount --pid --ipc --fork --kill-child --mount-proc \
        bash "$0" --inside "$(realpath "$(dirname "$0")/..")" "$@"
fi
root=$2 programs=$3 disk=$4
shift 4
mount -t tmpfs -o size=3g tmpfs /mnt
mkdir /mnt/root /mnt/disk /mnt/eventlog
# The size of the file system decides how many entries the log holds: here 1,000.
mount -t tmpfs -o size=64m tmpfs /mnt/eventlog
mount --bind "$root" /mnt/root
mount --bind "$disk" /mnt/disk
mount -t tmpfs -o size=1g tmpfs /tmp
# The folders above may lie below /tmp, which is hidden now: from here on they are reached by /mnt.
programs=/mnt/root/${programs#"$root"/}
cd /mnt/root
exec /usr/bin/python3 bench/run_benchmark.py --root /mnt/root --programs "$programs" \
    --disk /mnt/disk "$@"
