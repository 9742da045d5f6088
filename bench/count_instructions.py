#!/usr/bin/python3
"""Counts the instructions that the service spends on one request, by callgrind.

Two versions of the service can be compared by them on a busy machine, too. What would depend on the
machine is how a client's bytes arrive: a request that is accepted before its bytes are there takes
another pass of the event loop, up to a thousand instructions. So the worker is stopped while a request
is sent, and finds it whole; then the counts repeat within 1 % from run to run. The kernel's share of
a request is not in it. Runs in namespaces of its own (./dev bench --instructions makes them).
"""

from __future__ import annotations

import argparse
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import datasets
import report
import rows
import servers

REQUESTS = 20  # of each row
TOOL = "callgrind-"  # what the kernel calls a program under callgrind begins with this

# A request that is not measured itself: callgrind writes down what it has counted, and begins
# again, whenever its handler is called.
MARK = b"geteventcount:"
MARKED = "veltrancord::geteventcount_handle*"


def counted_rows(work: datasets.Dataset) -> list[rows.Row]:
    """Everything of the working data, and what is read of a configuration of that kind."""
    return [*rows.reading_rows(work), *rows.working_rows()]


class Counter:
    """The service under callgrind."""

    def __init__(self, service: servers.Service, folder: pathlib.Path):
        self.service = service
        self.folder = folder
        self.marks = 0

    def stop_worker(self) -> None:
        os.kill(self.service.worker, signal.SIGSTOP)
        tasks = pathlib.Path(f"/proc/{self.service.worker}/task")
        while any(") T " not in (task / "stat").read_text() for task in tasks.iterdir()):
            time.sleep(0.0005)

    def request(self, payload: bytes) -> None:
        """As Service.request, but the worker finds connection and bytes at once."""
        self.stop_worker()
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.connect(servers.SOCKET)
            connection.sendall(b"?" + len(payload).to_bytes(4, "little") + payload)
            os.kill(self.service.worker, signal.SIGCONT)
            while connection.recv(1 << 20):
                pass

    def since_last_mark(self) -> int:
        """Instructions of the worker, all threads together."""
        self.request(MARK)
        self.marks += 1
        text = (self.folder / f"counts.{self.service.worker}.{self.marks}").read_text()
        return int(re.search(r"^(?:totals|summary): (\d+)", text, re.M).group(1))

    def per_request(self, row: rows.Row) -> float:
        # What only a first request does is not counted.
        if (self.service.request(row.payload)[0] < 0) != row.refused:
            raise RuntimeError(f"{row.name}: refused")
        self.since_last_mark()
        mark_alone = self.since_last_mark()
        for _ in range(REQUESTS):
            self.request(row.payload)
        return (self.since_last_mark() - mark_alone) / REQUESTS


def count(program: pathlib.Path, work: datasets.Dataset) -> dict[str, float]:
    """Instructions of the worker per request, by row."""
    pathlib.Path("/mnt/eventlog/log").unlink(missing_ok=True)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        launcher = (
            "valgrind",
            "--tool=callgrind",
            f"--callgrind-out-file={folder}/counts.%p",
            f"--dump-before={MARKED}",
        )
        service = servers.Service(
            program.resolve(), work.directory, launcher=launcher, process_name=TOOL
        )
        with service:
            rows.prepare_working(service)
            counter = Counter(service, folder)
            return {row.name: counter.per_request(row) for row in counted_rows(work)}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", type=pathlib.Path, nargs="+", help="versions to compare")
    arguments = parser.parse_args()
    work = datasets.working(pathlib.Path("/mnt/bench"))
    counts = [count(program, work) for program in arguments.programs]
    lines = [
        [row, *[f"{one[row]:,.0f}" for one in counts], f"{counts[-1][row] / counts[0][row]:.2f}"]
        for row in counts[0]
    ]
    names = [str(program.parent.name) for program in arguments.programs]
    print(report.table(["request", *names, "last / first"], lines))
    return 0


if __name__ == "__main__":
    sys.exit(main())
