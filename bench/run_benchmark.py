#!/usr/bin/python3
"""The benchmark. Runs in namespaces of its own (./dev bench makes them) and writes its report."""

from __future__ import annotations

import argparse
import json
import pathlib
import shutil
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import datasets
import report
import rows
import servers
from measure import (
    Programs,
    count_system_calls,
    median_of,
    run_json,
    run_load,
    run_process,
)

MEBIBYTE = 1024


class Benchmark:
    def __init__(self, programs: Programs, source: pathlib.Path, rounds: int, scale: float):
        self.programs = programs
        self.source = source
        self.rounds = rounds
        self.scale = scale
        self.results: dict = {"rows": [], "start": [], "peers": [], "programs": [], "save": {}}

    def requests(self, full: int) -> int:
        return max(3, int(full * self.scale))

    def run_row(self, service: servers.Service, data: str, row: rows.Row, extra: dict) -> None:
        code, body = service.request(row.payload)
        result = code if body else min(code, 0)
        # A count without a body cannot be told from a length: such a reply ends with the stream.
        options = [] if body else ["--protocol", "until-close"]
        with servers.floor(self.programs.floor, result) as floor:
            for clients in row.clients:
                runs: list[dict] = []
                floors: list[dict] = []
                for _ in range(self.rounds):
                    count = self.requests(row.requests)
                    floors.append(
                        run_load(
                            self.programs, floor.socket_path, b"floor:", floor.pid, count, clients
                        )
                    )
                    runs.append(
                        run_load(
                            self.programs,
                            servers.SOCKET,
                            row.payload,
                            service.worker,
                            count,
                            clients,
                            *options,
                        )
                    )
                figures = (median_of(runs), median_of(floors))
                calls = self.system_calls(service, row, options) if clients == 1 else None
                self.add_row(data, row, clients, *figures, extra, calls)

    def system_calls(
        self, service: servers.Service, row: rows.Row, options: list[str]
    ) -> float | None:
        few = min(50, self.requests(row.requests))

        def send() -> None:
            run_load(
                self.programs, servers.SOCKET, row.payload, service.worker, few, 1, *options
            )

        # One more than asked for: the generator's first request, from which it learns the reply.
        return count_system_calls(service.worker, send, few + 1)

    def add_row(
        self,
        data: str,
        row: rows.Row,
        clients: int,
        run: dict,
        floor: dict,
        extra: dict,
        calls: float | None,
    ) -> None:
        reference = floor["processor_ns"] + extra.get(row.plus, 0.0) * 1000
        entry = {
            "data": data,
            "row": row.name,
            "clients": clients,
            "run": run,
            "floor": floor,
            "reference_ns": reference,
            "plus": row.plus,
            "ratio": run["processor_ns"] / reference,
            "target": row.target,
            "system_calls": calls,
        }
        self.results["rows"].append(entry)
        print(
            f"{data:8} {row.name:38} {clients:3} clients  {run['processor_ns'] / 1000:10.1f} us"
            f"  ratio {entry['ratio']:7.2f}  target {row.target or '-'}",
            flush=True,
        )

    def measure_start(self, data: datasets.Dataset) -> None:
        """Time to ready and memory, against the XML library reading the same files."""
        ready = []
        raw = []
        for _ in range(self.rounds):
            raw.append(
                run_process([self.programs.xml_limit, "parse", data.directory])["wall_us"] / 1e6
            )
            with servers.Service(self.programs.service, data.directory) as service:
                ready.append(service.ready_seconds)
        documents = run_json([self.programs.xml_limit, "parse", data.directory])
        with servers.Service(self.programs.service, data.directory) as service:
            idle = service.resident_kilobytes()
            service.request(b"read:*")
            after = service.resident_kilobytes()
        middle = sorted(ready)[len(ready) // 2]
        raw_middle = sorted(raw)[len(raw) // 2]
        self.results["start"].append(
            {
                "data": data.name,
                "bytes": data.size,
                "ready_ms": middle * 1000,
                "raw_ms": raw_middle * 1000,
                "ratio": middle / raw_middle,
                "idle_kb": idle,
                "after_read_kb": after,
                "documents_kb": documents["documents_kb"],
                "allowed_kb": documents["documents_kb"] * 1.05 + 2.5 * MEBIBYTE,
            }
        )
        print(f"{data.name:8} ready {middle * 1000:.1f} ms, raw {raw_middle * 1000:.1f} ms")

    def measure_reads(self, data: datasets.Dataset) -> None:
        rounds = "3" if data.size > 4_000_000 else "20"
        walked = run_json([self.programs.xml_limit, "walk", data.directory, rounds])
        extra = {"list": walked["list_us"]}
        with servers.Service(self.programs.service, data.directory) as service:
            for row in rows.reading_rows(data):
                self.run_row(service, data.name, row, extra)

    def save_references(self, directory: pathlib.Path) -> dict:
        """Microseconds of processor time that the bytes alone cost, in the same file system."""
        scratch = directory / "scratch"
        scratch.mkdir()
        references = {}
        for name in ("Doc004", "Doc044"):
            file = scratch / name
            shutil.copy(directory / name, file)
            saved = run_json([self.programs.xml_limit, "save", file, "300"])
            replaced = run_json([self.programs.xml_limit, "replace", file, "300"])
            self.results["save"][name] = {**saved, "replace_us": replaced["processor_us"]}
            # Serialising is to be twice as fast as the library's own save without its file.
            references[f"save {name}"] = saved["processor_us"] / 2 + replaced["processor_us"]
        shutil.rmtree(scratch)
        return references

    def measure_work(self, data: datasets.Dataset) -> None:
        extra = self.save_references(data.directory)
        with servers.Service(self.programs.service, data.directory) as service:
            rows.prepare_working(service)
            log = pathlib.Path(service.event_log)
            copy = log.with_name("copy")
            shutil.copy(log, copy)
            replaced = run_json([self.programs.xml_limit, "replace", copy, "100"])
            copy.unlink()
            extra["replace log"] = replaced["processor_us"]
            for row in rows.working_rows():
                self.run_row(service, data.name, row, extra)

    def measure_disk(self, directory: pathlib.Path) -> None:
        """A write on a real disk, where the flush counts."""
        data = datasets.working(directory)
        reference = run_json(
            [self.programs.xml_limit, "replace", data.directory / "Doc044", "50"]
        )
        with servers.Service(self.programs.service, data.directory) as service:
            runs = [
                run_load(
                    self.programs,
                    servers.SOCKET,
                    b"write:Doc004.Group0.Value0=changed",
                    service.worker,
                    self.requests(100),
                    1,
                    "--protocol",
                    "until-close",
                )
                for _ in range(self.rounds)
            ]
        run = median_of(runs)
        self.results["disk"] = {**run, "reference_wall_us": reference["wall_us"]}

    def measure_peers(self) -> None:
        value = b"value-000-000001-of-this-setting"
        get = b"GET setting\r\n"
        put = b"SET setting " + value + b"\r\n"
        bulk = b"$%d\r\n%s\r\n" % (len(value), value)
        cases = [
            (servers.redis("memory"), "redis", [("GET", get, bulk), ("SET", put, b"+OK\r\n")]),
            (
                servers.redis("durable", "--appendonly", "yes", "--appendfsync", "always"),
                "redis, appendfsync always",
                [("SET", put, b"+OK\r\n")],
            ),
            (
                servers.memcached(),
                "memcached",
                [
                    (
                        "get",
                        b"get setting\r\n",
                        b"VALUE setting 0 %d\r\n%s\r\nEND\r\n" % (len(value), value),
                    )
                ],
            ),
        ]
        for server, name, requests in cases:
            with server:
                self.prime(server, name, put, value)
                for what, request, expected in requests:
                    file = pathlib.Path("/tmp/expected")
                    file.write_bytes(expected)
                    for clients in (1, 16):
                        runs = [
                            run_load(
                                self.programs,
                                server.socket_path,
                                request,
                                server.pid,
                                self.requests(2000),
                                clients,
                                "--raw",
                                "--protocol",
                                "fixed",
                                "--expect",
                                str(file),
                            )
                            for _ in range(self.rounds)
                        ]
                        self.results["peers"].append(
                            {"peer": name, "what": what, "clients": clients, "run": median_of(runs)}
                        )

    def prime(self, server: servers.Peer, name: str, put: bytes, value: bytes) -> None:
        request, reply = put, b"+OK\r\n"
        if name == "memcached":
            request = b"set setting 0 0 %d\r\n%s\r\n" % (len(value), value)
            reply = b"STORED\r\n"
        pathlib.Path("/tmp/expected").write_bytes(reply)
        options = ["--raw", "--protocol", "fixed", "--expect", "/tmp/expected"]
        run_load(self.programs, server.socket_path, request, server.pid, 1, 1, *options)

    def measure_programs(self, data: datasets.Dataset) -> None:
        """What scripts would start instead, one process for one value."""
        file = data.directory / "Doc004"
        database = pathlib.Path("/tmp/settings.db")
        sql = "create table s(k text primary key, v text); insert into s values('a','value');"
        subprocess.run(["sqlite3", database, sql], check=True)
        expression = "/Doc004/Group0/Value0/text()"
        commands = {
            "xmllint": ["xmllint", "--xpath", expression, file],
            "xmlstarlet": ["xmlstarlet", "sel", "-t", "-v", expression, file],
            "sqlite3": ["sqlite3", database, "select v from s where k='a'"],
        }
        ctl = self.programs.directory / "veltrancordctl"
        if ctl.exists():
            commands["veltrancordctl get"] = [ctl, "get", data.first_leaf]
        with servers.Service(self.programs.service, data.directory):
            for _ in range(2):  # the first round warms the page cache
                runs = {
                    name: median_of([run_process(command) for _ in range(self.rounds * 4)])
                    for name, command in commands.items()
                }
        self.results["programs"] = [{"program": name, **run} for name, run in runs.items()]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--root", type=pathlib.Path, required=True, help="the repository")
    parser.add_argument("--disk", type=pathlib.Path, help="an empty folder on a real disk")
    parser.add_argument("--quick", action="store_true", help="few requests, no large data")
    parser.add_argument("--results", type=pathlib.Path, required=True)
    parser.add_argument("--write-report", action="store_true", help="write docs/performance.md")
    arguments = parser.parse_args()

    started = time.monotonic()
    base = pathlib.Path("/mnt/bench")
    benchmark = Benchmark(
        Programs(arguments.programs),
        arguments.root,
        rounds=5,
        scale=0.1 if arguments.quick else 1.0,
    )
    configurations = [
        datasets.sample(arguments.root / "examples" / "database", base),
        datasets.generated("small", base, 20, 100_000),
    ]
    if not arguments.quick:
        configurations.append(datasets.generated("medium", base, 100, 2_000_000))
        configurations.append(datasets.generated("large", base, 200, 20_000_000, flat=100_000))
    for data in configurations:
        benchmark.measure_start(data)
        benchmark.measure_reads(data)
    work = datasets.working(base)
    benchmark.measure_work(work)
    if arguments.disk:
        benchmark.measure_disk(arguments.disk)
    benchmark.measure_peers()
    benchmark.measure_programs(work)
    benchmark.results["seconds"] = time.monotonic() - started
    benchmark.results["quick"] = arguments.quick
    arguments.results.write_text(json.dumps(benchmark.results, indent=1))
    if arguments.write_report:
        report.write(benchmark.results, arguments.root / "docs")
    missed = report.missed_targets(benchmark.results)
    print(f"{len(missed)} targets missed in {benchmark.results['seconds']:.0f} s")
    for line in missed:
        print("  " + line)
    return 0


if __name__ == "__main__":
    sys.exit(main())
