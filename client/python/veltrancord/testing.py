"""A service of one's own, to test programs that use it: on any Linux machine, without root.

    import subprocess
    import veltrancord.testing

    with veltrancord.testing.service({"System": "<System><Name>gate</Name></System>"}) as service:
        assert service.client.get("System.Name") == "gate"
        page = subprocess.run(["./page.cgi"], env=service.environment, capture_output=True)
        service.run(["./old.cgi"], check=True)  # inside, for what knows no VELTRANCORD_SOCKET

The service runs in namespaces of its own, with a /tmp, /mnt and /run that are empty at first and that
nobody else sees: it disturbs neither the machine's own service nor another test. At the end of the
`with` statement, and when the test dies, all of its processes and files are gone.

It needs the program Veltrancord, `unshare` and `nsenter` of util-linux, and a kernel that lets users
make user namespaces.
"""

from __future__ import annotations

import json
import os
import shutil
import socket
import struct
import subprocess
import sys
from typing import TYPE_CHECKING, Any, Dict, List, Mapping, Optional, Sequence, Tuple

from .client import Client
from .errors import Error
from .exchange import DEFAULT_SOCKET
from .watching import DEFAULT_DIRECTORY

if TYPE_CHECKING:
    from types import TracebackType
    from typing import Type

__all__ = ["Service", "service"]

_CREDENTIALS = struct.Struct("3i")


def _find_program(program: Optional[str]) -> str:
    path = os.environ.get("PATH", os.defpath) + ":/usr/local/sbin:/usr/sbin:/sbin"
    found = program or os.environ.get("VELTRANCORD_BIN") or shutil.which("Veltrancord", path=path)
    if found is None or not os.access(found, os.X_OK):
        raise FileNotFoundError(
            f"{found or 'Veltrancord'}: no such program; install it, or name it with `program` or "
            "VELTRANCORD_BIN")
    return os.path.realpath(found)


class Service:
    """What `service` gives.

    client       a `Client` of it
    environment  os.environ with VELTRANCORD_SOCKET, for programs that are started as usual
    socket_path  its socket, as seen from outside
    directory    its documents, as seen from outside; for `Client.watch`, too
    """

    def __init__(self, documents: Mapping[str, str], program: str, options: Sequence[str],
                 show: Sequence[str], timeout: float) -> None:
        for name in documents:
            if not name or name.startswith(".") or "/" in name or "\0" in name:
                raise ValueError(f"{name!r} cannot be a document's name")
        order = {"documents": dict(documents), "program": program, "options": list(options),
                 "show": [os.path.realpath(directory) for directory in show]}
        self._init = self._make_namespaces(order, timeout)
        self._root = f"/proc/{self._init}/root"
        self.socket_path = self._root + DEFAULT_SOCKET
        self.directory = self._root + DEFAULT_DIRECTORY
        self.client = Client(self.socket_path)
        self.environment: Dict[str, str] = {**os.environ, "VELTRANCORD_SOCKET": self.socket_path}
        try:
            self.client.ping()
        except Error as failure:
            output = self.output()
            self.close()
            raise RuntimeError(f"the service does not answer: {failure}\n{output}") from failure

    def _make_namespaces(self, order: Dict[str, Any], timeout: float) -> int:
        """Return: the id of their first process, as seen from outside."""
        self._control, theirs = socket.socketpair()
        with theirs:
            self._control.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
            self._control.settimeout(timeout)
            try:
                self._unshare = subprocess.Popen(
                    ["unshare", "--user", "--map-root-user", "--mount", "--pid", "--ipc", "--fork",
                     "--kill-child", "--mount-proc", sys.executable, "-I", "-S",
                     os.path.join(os.path.dirname(os.path.realpath(__file__)), "_testing_init.py"),
                     str(theirs.fileno())],
                    pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            except BaseException:
                self._control.close()
                raise
        try:
            answer, pid = self._exchange(json.dumps(order).encode() + b"\n")
        except BaseException:
            self._unshare.kill()
            self.close()
            raise
        if answer != b"ready":
            self.close()
            said = answer.decode(errors="replace") or self._said
            raise RuntimeError(f"no service of one's own can be had here: {said.strip()}")
        return pid

    def _exchange(self, order: bytes) -> Tuple[bytes, int]:
        """Return: what the first process answers, and its id; nothing when it could not start."""
        try:
            self._control.sendall(order)
            answer, ancillary, _, _ = self._control.recvmsg(
                1 << 16, socket.CMSG_SPACE(_CREDENTIALS.size))
        except (BrokenPipeError, ConnectionResetError):
            return b"", 0
        for _, kind, data in ancillary:
            if kind == socket.SCM_CREDENTIALS:
                return answer, int(_CREDENTIALS.unpack(data)[0])
        return b"", 0

    def inside(self, command: Sequence[str]) -> List[str]:
        """The command line that runs `command` inside, where the socket is in its usual place, in
        the present directory: that must be one that is seen inside (see `show` of `service`)."""
        return ["nsenter", f"--target={self._init}", "--user", "--mount", "--pid", "--ipc",
                "--preserve-credentials", "--", "/bin/sh", "-c",
                'cd "$0" && unset VELTRANCORD_SOCKET && exec "$@"', os.getcwd(), *command]

    def run(self, command: Sequence[str], **arguments: Any) -> subprocess.CompletedProcess[Any]:
        """`subprocess.run` of the command inside."""
        return subprocess.run(self.inside(command), **arguments)  # pylint: disable=W1510

    def output(self) -> str:
        """What the service has printed so far."""
        with open(self._root + "/run/veltrancord/output", encoding="utf-8",
                  errors="replace") as file:
            return file.read()

    def close(self) -> None:
        """Ends it, and every process inside."""
        self._control.close()
        try:
            _, said = self._unshare.communicate(timeout=10)
        except subprocess.TimeoutExpired:
            self._unshare.kill()
            _, said = self._unshare.communicate()
        self._said = said.decode(errors="replace") if said else ""

    def __enter__(self) -> Service:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()


def service(documents: Mapping[str, str], *, program: Optional[str] = None,
            options: Sequence[str] = (), show: Sequence[str] = (),
            timeout: float = 60.0) -> Service:
    """Starts a service and waits until it answers; use it in a `with` statement.

    documents  its documents: name, which is that of the root element, to XML text
    program    None: what the environment's VELTRANCORD_BIN names, else the installed Veltrancord
    options    of its command line
    show       directories below /tmp, /mnt or /run that are to be seen inside as they are
    timeout    seconds for the start

    Raises `FileNotFoundError` without the program or unshare, `RuntimeError` with the reason where
    it cannot be started, or the kernel allows no namespaces.
    """
    return Service(documents, _find_program(program), options, show, timeout)
