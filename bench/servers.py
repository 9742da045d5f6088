"""Starting and ending the servers that the benchmark measures, each by its own process id."""

from __future__ import annotations

import os
import pathlib
import signal
import socket
import subprocess
import time
from dataclasses import dataclass, field

import processors
from measure import run_process

SOCKET = "/tmp/Veltrancord.unix"
START_SECONDS = 60.0


def wait_for_socket(path: str) -> None:
    deadline = time.monotonic() + START_SECONDS
    while True:
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as probe:
                probe.connect(path)
                return
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.01)


def processes_named(name: str) -> dict[int, int]:
    """Process id to parent's id of all processes of this namespace whose name begins so."""
    found = {}
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            text = (entry / "stat").read_text()
        except OSError:
            continue
        if text[text.index("(") + 1 : text.rindex(")")].startswith(name[:15]):
            found[int(entry.name)] = int(text[text.rindex(")") + 2 :].split()[1])
    return found


def wait_until_gone(pids: list[int]) -> None:
    deadline = time.monotonic() + START_SECONDS
    while time.monotonic() < deadline:
        try:
            while os.waitpid(-1, os.WNOHANG)[0] > 0:
                pass
        except ChildProcessError:
            pass
        if not any(pathlib.Path(f"/proc/{pid}").exists() for pid in pids):
            return
        time.sleep(0.005)
    raise TimeoutError(f"processes {pids} do not end")


@dataclass
class Service:
    """The service on one configuration directory."""

    program: pathlib.Path
    directory: pathlib.Path
    event_log: str = "/mnt/eventlog/log"
    launcher: tuple[str, ...] = ()  # a command that runs the program under its own eyes
    process_name: str = ""  # how the names of its processes then begin
    ready_seconds: float = 0.0
    supervisor: int = 0
    worker: int = 0

    def __enter__(self) -> "Service":
        pathlib.Path(self.event_log).parent.mkdir(parents=True, exist_ok=True)
        self.become_default_configuration()
        command = [*self.launcher, self.program, "-P", self.directory, "-E", self.event_log]
        self.ready_seconds = run_process(command)["wall_us"] / 1e6
        parents = processes_named(self.process_name or self.program.name)
        self.worker = next(pid for pid, parent in parents.items() if parent in parents)
        self.supervisor = parents[self.worker]
        processors.keep_server(self.worker)
        return self

    def __exit__(self, *_: object) -> None:
        pids = [self.worker, self.supervisor]
        for pid in pids:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        wait_until_gone(pids)

    def become_default_configuration(self) -> None:
        """The service bounds its replies by the size of this directory, whatever it loads: without
        it `read:*` would be refused."""
        default = pathlib.Path("/mnt/database/xml")
        default.parent.mkdir(exist_ok=True)
        default.unlink(missing_ok=True)
        default.symlink_to(self.directory)

    def resident_kilobytes(self) -> int:
        text = pathlib.Path(f"/proc/{self.worker}/status").read_text()
        line = next(line for line in text.splitlines() if line.startswith("VmRSS:"))
        return int(line.split()[1])

    def request(self, payload: bytes) -> tuple[int, bytes]:
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.connect(SOCKET)
            connection.sendall(b"?" + len(payload).to_bytes(4, "little") + payload)
            reply = b""
            while chunk := connection.recv(1 << 20):
                reply += chunk
        return int.from_bytes(reply[:4], "little", signed=True), reply[4:]


@dataclass
class Peer:
    """Any other server: a command line, the socket that it makes, and its process."""

    command: list[str]
    socket_path: str
    process: subprocess.Popen | None = field(default=None, repr=False)

    def __enter__(self) -> "Peer":
        self.process = subprocess.Popen(
            self.command,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        wait_for_socket(self.socket_path)
        processors.keep_server(self.process.pid)
        return self

    def __exit__(self, *_: object) -> None:
        self.process.kill()
        self.process.wait()

    @property
    def pid(self) -> int:
        return self.process.pid


def floor(program: pathlib.Path, result: int, *options: str) -> Peer:
    path = f"/tmp/floor{''.join(options)}{result}.unix"
    return Peer([str(program), "--socket", path, "--result", str(result), *options], path)


def redis(name: str, *options: str) -> Peer:
    path = f"/tmp/redis-{name}.unix"
    command = ["redis-server", "--port", "0", "--unixsocket", path, "--save", "", "--dir", "/tmp"]
    return Peer([*command, *options], path)


def memcached() -> Peer:
    path = "/tmp/memcached.unix"
    return Peer(["memcached", "-u", "root", "-s", path, "-t", "1", "-m", "64"], path)
