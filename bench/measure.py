"""Running the load generator and the single-process programs, and taking medians."""

from __future__ import annotations

import json
import pathlib
import re
import resource
import statistics
import subprocess
import time
from collections.abc import Callable
from dataclasses import dataclass

import processors


@dataclass(frozen=True)
class Programs:
    """Where the programs of one build are; the service that is measured may be of another one."""

    directory: pathlib.Path
    other_service: pathlib.Path | None = None

    @property
    def service(self) -> pathlib.Path:
        return self.other_service or self.directory / "Veltrancord"

    @property
    def floor(self) -> pathlib.Path:
        return self.directory / "bench_floor_server"

    @property
    def load(self) -> pathlib.Path:
        return self.directory / "bench_load_generator"

    @property
    def xml_limit(self) -> pathlib.Path:
        return self.directory / "bench_xml_limit"


def run_load(
    programs: Programs,
    socket_path: str,
    request: bytes,
    pid: int,
    requests: int,
    clients: int = 1,
    *options: str,
) -> dict:
    """One run of the load generator; a wrong or a failed reply ends the benchmark."""
    file = pathlib.Path("/tmp/request")
    file.write_bytes(request)
    command = [programs.load, "--socket", socket_path, "--request", file, "--server", str(pid)]
    if clients == 1 and processors.SERVERS is not None:
        command = ["taskset", "--cpu-list", str(processors.SERVERS), *command]
    command += ["--requests", str(requests), "--clients", str(clients), *options]
    if "--expect" not in options:
        command.append("--learn")
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{request[:60]!r}: {done.stdout}{done.stderr}")
    return json.loads(done.stdout)


def median_of(runs: list[dict]) -> dict:
    """The medians, number by number, of runs with the same keys."""
    return {key: statistics.median(run[key] for run in runs) for key in runs[0]}


def wait_until_traced(pid: int) -> None:
    """Until a tracer has every thread of the process, or a second has passed."""
    deadline = time.monotonic() + 1.0
    while time.monotonic() < deadline:
        tasks = pathlib.Path(f"/proc/{pid}/task").iterdir()
        states = [(task / "status").read_text() for task in tasks]
        if not any(re.search(r"^TracerPid:\s+0$", state, re.M) for state in states):
            return
        time.sleep(0.005)


def count_system_calls(
    pid: int, send: Callable[[], None], requests: int
) -> dict[str, float] | None:
    """System calls of the server per request, by name, while `send` sends that many; None without
    strace."""
    try:
        tracer = subprocess.Popen(
            ["strace", "-f", "-c", "-p", str(pid)],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            text=True,
        )
    except FileNotFoundError:
        return None
    wait_until_traced(pid)
    send()
    tracer.send_signal(2)
    output = tracer.communicate(timeout=30)[1]
    # Share, seconds, microseconds per call, calls, sometimes errors, name.
    found = re.findall(r"^\s*[\d.]+\s+[\d.]+\s+\d+\s+(\d+)\s+(?:\d+\s+)?(\w+)$", output, re.M)
    return {name: int(calls) / requests for calls, name in found if name != "total"}


def run_json(command: list) -> dict:
    return json.loads(subprocess.run(command, capture_output=True, text=True, check=True).stdout)


def run_process(command: list) -> dict:
    """Processor and wall time, in microseconds, from a program's start to its end.

    It is waited for without a time-out: Python would then look after its end at growing intervals,
    which are longer than what is measured.
    """
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    subprocess.run(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        check=True,
    )
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return {"processor_us": used * 1e6, "wall_us": wall * 1e6}
