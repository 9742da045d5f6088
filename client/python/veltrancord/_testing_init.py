"""Process 1 of the namespaces that `veltrancord.testing` makes: prepares the files, starts the service
and stays until the other end of its socket is closed. With it ends every process in there.

Run as `unshare ... python3 -I -S _testing_init.py DESCRIPTOR`, with DESCRIPTOR one end of a socket pair
over which the order comes and "ready", or what went wrong, is answered.
"""

import ctypes
import json
import os
import signal
import socket
import sys
from typing import Any, Dict, List, Tuple

PROGRAM = "/run/veltrancord/Veltrancord"
OUTPUT = "/run/veltrancord/output"
CONFIGURATION = "/mnt/database/xml"

_MS_BIND, _MS_REC, _MS_PRIVATE = 4096, 16384, 1 << 18
_LIBC = ctypes.CDLL(None, use_errno=True)


def mount(source: str, target: str, kind: str, flags: int, data: str = "") -> None:
    if _LIBC.mount(os.fsencode(source), os.fsencode(target), kind.encode(), flags,
                   data.encode()) < 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), target)


def bind(source: str, target: str, is_directory: bool) -> None:
    """Shows a file or directory in another place, which is made when it is missing."""
    os.makedirs(target if is_directory else os.path.dirname(target), exist_ok=True)
    if not is_directory and not os.path.exists(target):
        os.close(os.open(target, os.O_WRONLY | os.O_CREAT, 0o600))
    mount(source, target, "none", _MS_BIND | _MS_REC)


def prepare_files(order: Dict[str, Any]) -> None:
    # Held open, since the mounts below cover the way to them.
    shown: List[Tuple[int, str]] = [
        (os.open(source, os.O_PATH), target)
        for source, target in [(order["program"], PROGRAM), *((d, d) for d in order["show"])]]
    mount("none", "/", "none", _MS_REC | _MS_PRIVATE)
    mount("tmpfs", "/run", "tmpfs", 0, "mode=755")
    mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777")
    # As large as a device's flash may be: the event log's capacity is computed from it.
    mount("tmpfs", "/mnt", "tmpfs", 0, "mode=755,size=512m")
    for descriptor, target in shown:
        source = f"/proc/self/fd/{descriptor}"
        bind(source, target, os.path.isdir(source))
        os.close(descriptor)
    os.makedirs(CONFIGURATION)
    os.makedirs("/mnt/database/eventlog")
    for name, text in order["documents"].items():
        with open(f"{CONFIGURATION}/{name}", "w", encoding="utf-8",
                  errors="surrogateescape") as file:
            file.write(text)


def start(options: List[str]) -> None:
    """Starts the service; its starter ends when it answers."""
    os.chdir("/")
    output = os.open(OUTPUT, os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o600)
    pid = os.posix_spawn(
        PROGRAM, [PROGRAM, *options], {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"},
        file_actions=[(os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
                      (os.POSIX_SPAWN_DUP2, output, 1), (os.POSIX_SPAWN_DUP2, output, 2)])
    os.close(output)
    status = 0
    ended = -1
    while ended != pid:  # the orphans of this namespace end here, too
        ended, status = os.wait()
    if status != 0:
        with open(OUTPUT, encoding="utf-8", errors="replace") as file:
            raise RuntimeError(f"the service could not be started:\n{file.read()}")


def main() -> None:
    with socket.socket(fileno=int(sys.argv[1])) as control:
        control.set_inheritable(False)
        parts = []
        while True:
            part = control.recv(1 << 16)
            parts.append(part)
            if not part or part.endswith(b"\n"):
                break
        try:
            order = json.loads(b"".join(parts))
            prepare_files(order)
            start(order["options"])
        except (OSError, RuntimeError, ValueError) as failure:
            control.sendall(str(failure).encode("utf-8", "backslashreplace"))
            return
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # the kernel clears orphans away
        control.sendall(b"ready")
        control.recv(1)


main()
