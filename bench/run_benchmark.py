#!/usr/bin/python3
"""The benchmark. Runs in namespaces of its own (./dev bench makes them) and writes its report."""

from __future__ import annotations

import argparse
import contextlib
import dataclasses
import json
import pathlib
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import comparison
import datasets
import peers
import processors
import references
import report
import rows
import servers
import targets
from measure import (
    Programs,
    count_system_calls,
    median_of,
    run_json,
    run_load,
    run_process,
)

MEBIBYTE = 1024  # in kilobytes
ROOT = pathlib.Path(__file__).resolve().parent.parent


class Benchmark:
    def __init__(self, programs: Programs, rounds: int, starts: int, scale: float):
        self.programs = programs
        self.rounds = rounds
        self.starts = starts  # of a program, where each is a round of its own
        self.scale = scale
        self.results: dict = {"rows": [], "start": [], "peers": [], "programs": [], "save": {}}

    def requests(self, full: int) -> int:
        return max(3, int(full * self.scale))

    def load(
        self, service: servers.Service, row: rows.Row, options: list[str], count: int, clients: int
    ) -> dict:
        return run_load(
            self.programs, servers.SOCKET, row.payload, service.worker, count, clients, *options
        )

    def run_row(
        self,
        service: servers.Service,
        data: str,
        row: rows.Row,
        costs: references.References,
    ) -> None:
        """Floor, service and what else the row is compared with, alternately."""
        code, body = service.request(row.payload)
        if (code < 0) != row.refused:
            raise RuntimeError(f"{row.name}: result {code}")
        result = code if body else min(code, 0)
        # A count without a body cannot be told from a length: such a reply ends with the stream.
        options = [] if body else ["--protocol", "until-close"]
        with contextlib.ExitStack() as running:
            floors = [running.enter_context(servers.floor(self.programs.floor, result))]
            if row.near == rows.NEAR_FLOOR:
                alike = servers.floor(self.programs.floor, result, "--drain", "--threads=2")
                floors.append(running.enter_context(alike))
            for clients in row.clients:
                # Starting the clients of a crowd takes a part of its round.
                count = self.requests(row.requests) * (2 if clients > 1 else 1)
                rounds = []
                for _ in range(self.rounds):
                    one = {
                        "floors": [
                            run_load(
                                self.programs,
                                floor.socket_path,
                                b"floor:",
                                floor.pid,
                                count,
                                clients,
                            )
                            for floor in floors
                        ],
                        "run": self.load(service, row, options, count, clients),
                        "costs_ns": {
                            name: costs[name]() * 1000
                            for name in (row.plus, row.near)
                            if name in costs
                        },
                    }
                    rounds.append(one)
                calls = self.system_calls(service, row, options) if clients == 1 else None
                self.add_row(data, row, clients, rounds, calls)

    def system_calls(
        self, service: servers.Service, row: rows.Row, options: list[str]
    ) -> dict[str, float] | None:
        few = min(50, self.requests(row.requests))
        # One more than asked for: the generator's first request, from which it learns the reply.
        return count_system_calls(
            service.worker, lambda: self.load(service, row, options, few, 1), few + 1
        )

    def add_row(
        self,
        data: str,
        row: rows.Row,
        clients: int,
        rounds: list[dict],
        calls: dict[str, float] | None,
    ) -> None:
        run = median_of([one["run"] for one in rounds])

        def reference(one: dict, number: int, name: str | None) -> float:
            return one["floors"][number]["processor_ns"] + one["costs_ns"].get(name, 0.0)

        def ratio(number: int, name: str | None) -> float:
            # Round by round, since what slows a round down slows both sides of it down.
            return statistics.median(
                one["run"]["processor_ns"] / reference(one, number, name) for one in rounds
            )

        entry = {
            "data": data,
            "row": row.name,
            "group": row.group,
            "clients": clients,
            "run": run,
            "floor_ns": statistics.median(reference(one, 0, None) for one in rounds),
            "reference_ns": statistics.median(reference(one, 0, row.plus) for one in rounds),
            "plus": row.plus,
            "ratio": ratio(0, row.plus),
            "near": row.near,
            "near_ratio": ratio(-1, row.near) if row.near else None,
            "target": row.target,
            "system_calls": sum(calls.values()) if calls else None,
            "replacements": (
                sum(number for name, number in calls.items() if name.startswith("rename"))
                if calls
                else None
            ),
        }
        self.results["rows"].append(entry)
        print(
            f"{data:8} {row.name:38} {clients:3} clients  {run['processor_ns'] / 1000:10.1f} us"
            f"  ratio {entry['ratio']:7.2f}  target {row.target or '-'}"
            f"  near {entry['near_ratio'] or 0:.2f}",
            flush=True,
        )

    def measure_start(self, data: datasets.Dataset) -> None:
        """Time to ready and memory, against the XML library reading the same files."""
        empty = pathlib.Path("/mnt/bench/nothing")
        empty.mkdir(exist_ok=True)
        parse = [self.programs.xml_limit, "parse"]
        rounds = []
        # A start that is over in milliseconds is disturbed by less, and costs little to repeat.
        for _ in range(self.starts if data.size > 4_000_000 else 3 * self.starts):
            one = {
                "raw_ms": run_process([*parse, data.directory])["wall_us"] / 1000,
                "raw_empty_ms": run_process([*parse, empty])["wall_us"] / 1000,
            }
            for key, directory in (("ready_ms", data.directory), ("ready_empty_ms", empty)):
                with servers.Service(self.programs.service, directory) as service:
                    one[key] = service.ready_seconds * 1000
            rounds.append(one)
        documents = run_json([*parse, data.directory])
        with servers.Service(self.programs.service, data.directory) as service:
            idle = service.resident_kilobytes()
            for _ in range(3):
                service.request(b"read:*")
            after = service.resident_kilobytes()
        start = {
            "data": data.name,
            "bytes": data.size,
            **median_of(rounds),
            "idle_kb": idle,
            "after_read_kb": after,
            "documents_kb": documents["documents_kb"],
            "allowed_kb": documents["documents_kb"] * 1.05 + 2.5 * MEBIBYTE,
        }
        start["ratio"] = start["ready_ms"] / start["raw_ms"]
        self.results["start"].append(start)
        print(f"{data.name:8} ready {start['ready_ms']:.1f} ms, raw {start['raw_ms']:.1f} ms")

    def measure_reads(self, data: datasets.Dataset) -> None:
        document = data.document.partition(".")[0]
        heavy = data.size > 4_000_000
        costs = references.of_listing(self.programs, data.directory, document, heavy)
        with servers.Service(self.programs.service, data.directory) as service:
            for row in rows.reading_rows(data):
                self.run_row(service, data.name, row, costs)

    def measure_saves(self, scratch: pathlib.Path, work: datasets.Dataset) -> None:
        """The library's and the service's way of writing the same documents."""
        for name in ("Doc004", "Doc044"):
            file = scratch / name
            rounds = [
                {
                    **run_json([self.programs.xml_limit, "save", file, "300"]),
                    **{
                        key: run_json([self.programs.xml_limit, command, file, "300"])[
                            "processor_us"
                        ]
                        for key, command in (
                            ("replace_us", "replace"),
                            ("replace_safely_us", "replace-safely"),
                        )
                    },
                }
                for _ in range(self.rounds)
            ]
            if not all(one["identical"] for one in rounds):
                raise RuntimeError(f"{name}: serialised to other bytes than the library's")
            self.results["save"][name] = median_of(rounds)

    def measure_work(self, base: pathlib.Path, work: datasets.Dataset) -> None:
        scratch = base / "scratch"
        scratch.mkdir()
        costs = references.of_saving(self.programs, scratch, work.directory)
        self.measure_saves(scratch, work)
        with servers.Service(self.programs.service, work.directory) as service:
            rows.prepare_working(service)
            costs |= references.of_log(self.programs, pathlib.Path(service.event_log))
            for row in rows.working_rows():
                self.run_row(service, work.name, row, costs)

    def measure_disk(self, directory: pathlib.Path) -> None:
        """Writes on a real disk, where the flush counts."""
        work = datasets.working(directory / "documents")
        scratch = directory / "scratch"
        scratch.mkdir()
        costs = references.of_saving(self.programs, scratch, work.directory)
        few = self.requests(50)
        self.results["disk"] = {
            command: run_json([self.programs.xml_limit, command, scratch / "Doc044", str(few)])[
                "wall_us"
            ]
            for command in ("replace", "replace-safely")
        }
        with servers.Service(self.programs.service, work.directory) as service:
            for row in (rows.write_of_one(4), rows.write_of_one(44), rows.hundred_values()):
                row = dataclasses.replace(
                    row,
                    requests=few,
                    clients=(1,),
                    target=1.1 if row.target else None,
                    group="write on disk",
                )
                self.run_row(service, "on disk", row, costs)


@dataclasses.dataclass(frozen=True)
class Form:
    """How much is measured."""

    rounds: int
    starts: int
    scale: float
    large: bool  # the large configurations too


FULL = Form(rounds=25, starts=20, scale=1.0, large=True)
QUICK = Form(rounds=5, starts=5, scale=0.2, large=False)
PASSES = 5  # of each program, where two are compared


def measure_all(
    programs: Programs,
    form: Form,
    configurations: list[datasets.Dataset],
    base: pathlib.Path,
    disk: pathlib.Path | None,
) -> dict:
    """Everything that a target is judged by. `base` and `disk` are folders for this run alone."""
    benchmark = Benchmark(programs, form.rounds, form.starts, form.scale)
    base.mkdir(parents=True, exist_ok=True)
    pathlib.Path("/mnt/eventlog/log").unlink(missing_ok=True)
    for data in configurations:
        benchmark.measure_start(data)
        benchmark.measure_reads(data)
    work = datasets.working(base)
    benchmark.measure_work(base, work)
    if disk:
        disk.mkdir(parents=True, exist_ok=True)
        benchmark.measure_disk(disk)
    benchmark.results["peers"] = peers.measure(
        programs, work, benchmark.rounds, benchmark.requests(1000)
    )
    benchmark.results["programs"] = peers.measure_programs(programs, work, benchmark.starts)
    return benchmark.results


def compare(
    programs: Programs,
    old: pathlib.Path,
    form: Form,
    configurations: list[datasets.Dataset],
    base: pathlib.Path,
    disk: pathlib.Path | None,
) -> dict[str, dict]:
    """The older service and the one built here, turn by turn. Return: the results of each."""
    share = dataclasses.replace(
        form, rounds=max(1, form.rounds // PASSES), starts=max(1, form.starts // PASSES)
    )
    runs: dict[str, list[dict]] = {"old": [], "new": []}
    services = {"old": old, "new": None}
    for number in range(PASSES):
        # Who begins changes, so that neither always finds the machine as the other left it.
        for name in sorted(services, reverse=number % 2 == 0):
            print(f"-- pass {number + 1} of {PASSES}, {name}", flush=True)
            one = dataclasses.replace(programs, other_service=services[name])
            folder = f"{name}{number}"
            runs[name].append(
                measure_all(one, share, configurations, base / folder, disk and disk / folder)
            )
    return {name: comparison.middle(some) for name, some in runs.items()}


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--disk", type=pathlib.Path, help="an empty folder on a real disk")
    parser.add_argument("--quick", action="store_true", help="few requests, no large data")
    parser.add_argument("--results", type=pathlib.Path, required=True)
    parser.add_argument("--write-report", action="store_true", help="write docs/performance.md")
    parser.add_argument("--old", type=pathlib.Path, help="an older service to compare with")
    arguments = parser.parse_args()

    started = time.monotonic()
    base = pathlib.Path("/mnt/bench")
    form = QUICK if arguments.quick else FULL
    programs = Programs(arguments.programs.resolve())
    configurations = [
        datasets.sample(ROOT / "examples" / "database", base),
        datasets.generated("small", base, 20, 100_000),
    ]
    if form.large:
        configurations.append(datasets.generated("medium", base, 100, 2_000_000))
        configurations.append(datasets.generated("large", base, 200, 20_000_000, flat=100_000))
    processors.set_one_aside()
    disk = arguments.disk and arguments.disk.resolve()
    if arguments.old:
        both = compare(programs, arguments.old.resolve(), form, configurations, base, disk)
        arguments.results.write_text(json.dumps(both, indent=1))
        print(f"measured in {time.monotonic() - started:.0f} s")
        print(comparison.text(both["old"], both["new"]))
        return 0
    results = measure_all(programs, form, configurations, base, disk)
    results["seconds"] = time.monotonic() - started
    results["quick"] = arguments.quick
    arguments.results.write_text(json.dumps(results, indent=1))
    if arguments.write_report:
        report.write(results, ROOT / "docs")
    print(f"measured in {results['seconds']:.0f} s")
    for one in targets.judge(results):
        print(f"  {'met   ' if one.met else 'MISSED'} {one.what}: {one.measured} ({one.target})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
