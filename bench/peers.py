"""The servers and programs that one would use instead, measured alternately with the service."""

from __future__ import annotations

import contextlib
import pathlib
import subprocess
from collections.abc import Callable
from dataclasses import dataclass, field

import datasets
import rows
import servers
from measure import Programs, median_of, run_load, run_process

VALUE = b"value-000-000001-of-this-setting"
GET = b"GET setting\r\n"
SET = b"SET setting " + VALUE + b"\r\n"
BULK = b"$%d\r\n%s\r\n" % (len(VALUE), VALUE)
MEMCACHED_VALUE = b"VALUE setting 0 %d\r\n%s\r\nEND\r\n" % (len(VALUE), VALUE)


@dataclass
class Contender:
    """One request to one server, and what it cost in each round."""

    server: str
    what: str
    run: Callable[[int], dict]  # with that many clients
    runs: list[dict] = field(default_factory=list)


def of_peer(
    programs: Programs,
    server: servers.Peer,
    name: str,
    what: str,
    request: bytes,
    reply: bytes,
    requests: int,
) -> Contender:
    expected = pathlib.Path(f"/tmp/expected-{len(reply)}-{sum(reply)}")
    expected.write_bytes(reply)
    options = ["--raw", "--protocol", "fixed", "--expect", str(expected)]

    def run(clients: int) -> dict:
        return run_load(
            programs, server.socket_path, request, server.pid, requests, clients, *options
        )

    return Contender(name, what, run)


def of_service(
    programs: Programs, service: servers.Service, row: rows.Row, requests: int
) -> Contender:
    options = [] if service.request(row.payload)[1] else ["--protocol", "until-close"]

    def run(clients: int) -> dict:
        return run_load(
            programs, servers.SOCKET, row.payload, service.worker, requests, clients, *options
        )

    return Contender("Veltrancord", row.name, run)


def measure(programs: Programs, work: datasets.Dataset, rounds: int, requests: int) -> list[dict]:
    """Short replies of the service, the floor, and the peers' requests, round by round."""
    results = []
    with contextlib.ExitStack() as running:
        redis = running.enter_context(servers.redis("memory"))
        durable = running.enter_context(
            servers.redis("durable", "--appendonly", "yes", "--appendfsync", "always")
        )
        memcached = running.enter_context(servers.memcached())
        floor = running.enter_context(servers.floor(programs.floor, -4))
        service = running.enter_context(servers.Service(programs.service, work.directory))
        rows.prepare_working(service)

        def peer(server: servers.Peer, *rest: object) -> Contender:
            return of_peer(programs, server, *rest, requests)

        store = b"set setting 0 0 %d\r\n%s\r\n" % (len(VALUE), VALUE)
        peer(memcached, "memcached", "set", store, b"STORED\r\n").run(1)
        peer(redis, "redis", "SET", SET, b"+OK\r\n").run(1)
        contenders = [
            Contender(
                "floor",
                "short reply",
                lambda clients: run_load(
                    programs, floor.socket_path, b"floor:", floor.pid, requests, clients
                ),
            ),
            of_service(programs, service, rows.unknown_command(), requests),
            *[of_service(programs, service, row, requests) for row in rows.access_rows()],
            peer(redis, "redis", "GET", GET, BULK),
            peer(memcached, "memcached", "get", b"get setting\r\n", MEMCACHED_VALUE),
            peer(redis, "redis", "SET", SET, b"+OK\r\n"),
            peer(durable, "redis, appendfsync always", "SET", SET, b"+OK\r\n"),
        ]
        for clients in (1, 16):
            for contender in contenders:
                contender.runs.clear()
            for _ in range(rounds):
                for contender in contenders:
                    contender.runs.append(contender.run(clients))
            results += [
                {
                    "peer": one.server,
                    "what": one.what,
                    "clients": clients,
                    "run": median_of(one.runs),
                }
                for one in contenders
            ]
    return results


def measure_programs(programs: Programs, work: datasets.Dataset, rounds: int) -> list[dict]:
    """What scripts would start instead, one process for one value."""
    file = work.directory / "Doc004"
    database = pathlib.Path("/tmp/settings.db")
    database.unlink(missing_ok=True)
    sql = "create table s(k text primary key, v text); insert into s values('a','value');"
    subprocess.run(["sqlite3", database, sql], check=True)
    expression = "/Doc004/Group0/Value0/text()"
    commands = {
        "xmllint": ["xmllint", "--xpath", expression, file],
        "xmlstarlet": ["xmlstarlet", "sel", "-t", "-v", expression, file],
        "sqlite3": ["sqlite3", database, "select v from s where k='a'"],
        "veltrancordctl get": [programs.directory / "veltrancordctl", "get", work.first_leaf],
    }
    runs: dict[str, list[dict]] = {name: [] for name in commands}
    with servers.Service(programs.service, work.directory):
        for command in commands.values():
            run_process(command)  # the first one brings the program into memory
        for _ in range(rounds):
            for name, command in commands.items():
                runs[name].append(run_process(command))
    return [{"program": name, **median_of(done)} for name, done in runs.items()]
