"""What is measured: each row is one request, the configuration it runs on, and its target."""

from __future__ import annotations

import struct
from dataclasses import dataclass

from datasets import Dataset
from servers import Service


@dataclass(frozen=True)
class Row:
    """One request sent again and again; `target` is the greatest allowed ratio to the reference.

    The reference is the floor's reply of the same size plus, for a row with `plus`, what that
    program says the work itself costs. `near` is a reference that pays more of what the service
    does on purpose: it shows where the time of a missed target goes, and no target is judged by it.
    """

    name: str
    payload: bytes
    requests: int  # in one round of the full form
    target: float | None = None
    clients: tuple[int, ...] = (1, 16)
    group: str = ""  # the target that this row is judged under
    plus: str | None = None
    near: str | None = None
    refused: bool = False  # the reply is to be an error


NEAR_FLOOR = "a floor with two idle threads and a recv before the close"


def short(name: str, payload: bytes, refused: bool = False) -> Row:
    return Row(
        name, payload, 1000, 1.15, group="short reply", near=NEAR_FLOOR, refused=refused
    )


def unknown_command() -> Row:
    return short("unknown command", b"nothing:", refused=True)


def one_value(which: str, path: str) -> Row:
    payload = b"readvalue:" + path.encode()
    return Row(f"readvalue, {which} leaf", payload, 1000, 1.3, group="one value", near=NEAR_FLOOR)


def log_record(number: int) -> bytes:
    return struct.pack("<i6sB16sBi", 1, bytes(6), number % 256, b"detail", 7, 0)


def reading_rows(data: Dataset) -> list[Row]:
    heavy = data.size > 4_000_000
    listing = 1.2 if heavy else None  # on the large configuration
    return [
        unknown_command(),
        one_value("first", data.first_leaf),
        one_value("last", data.last_leaf),
        one_value("deepest", data.deepest_leaf),
        Row(
            "read of a document",
            b"read:" + data.document.encode(),
            100,
            listing,
            group="listing",
            plus="walk of the document",
            near="plain listing of the document",
        ),
        Row("readattr of a subtree", b"readattr:" + data.subtree.encode(), 500),
        Row(
            "read:*",
            b"read:*",
            3 if heavy else 50,
            listing,
            clients=(1,),
            group="listing",
            plus="walk of all",
            near="plain listing of all",
        ),
    ]


def access_rows() -> list[Row]:
    """The short replies that need accounts and sessions."""
    return [
        short("isPermitAllow", b"isPermitAllow:Operator&Reboot"),
        short("CheckSession, 50 sessions", b"CheckSession:token-49&100000"),
    ]


def write_of_one(size: int) -> Row:
    return Row(
        f"write of one value, {size} KB document",
        b"write:Doc%03d.Group0.Value0=changed" % size,
        150,
        1.2,
        group="write in memory",
        plus=f"saving Doc{size:03d}",
        near=f"saving Doc{size:03d} as the service does",
    )


def hundred_values() -> Row:
    lines = b"\n".join(
        b"Doc044.Group%d.Value%d=changed-%d" % (line // 10, line % 10, line) for line in range(100)
    )
    return Row("write of 100 values, 44 KB document", b"write:" + lines, 150)


def working_rows() -> list[Row]:
    return [
        *access_rows(),
        Row("isPermitAllowByUser", b"isPermitAllowByUser:user20&Reboot", 1000),
        Row(
            "GetCGIPermitFilter, 100 rules",
            b"GetCGIPermitFilter:user20&command100&do=action100",
            1000,
        ),
        write_of_one(4),
        write_of_one(44),
        hundred_values(),
        Row(
            "writedbmem",
            b"writedbmem:Doc004.Group0.Value0=changed",
            500,
            1.6,
            group="writedbmem",
            near=NEAR_FLOOR,
        ),
        Row(
            "writelog, log of 1,000",
            b"writelog:" + log_record(1),
            150,
            1.3,
            group="writelog",
            plus="replacing the log",
            near="replacing the log as the service does",
        ),
        Row("readlog of 100", b"readlog:1&-1&100", 250, 3.0, group="readlog"),
        Row("readlog of 1,000", b"readlog:1&-1&1000", 150, 3.0, group="readlog"),
        Row("download", b"download:/tmp/exchange.xml", 25, clients=(1,)),
        Row("upload", b"upload:/tmp/upload.xml", 10, clients=(1,)),
    ]


def prepare_working(service: Service) -> None:
    """Fills the log, the sessions and the exchange file that the rows above expect."""
    for number in range(50):
        service.request(b"SetSession:token-%d" % number)
    for number in range(1000):
        service.request(b"writelog:" + log_record(number))
    service.request(b"download:/tmp/upload.xml")
