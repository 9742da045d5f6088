"""What is measured: each row is one request, the configuration it runs on, and its target."""

from __future__ import annotations

import struct
from dataclasses import dataclass

from datasets import Dataset
from servers import Service


@dataclass(frozen=True)
class Row:
    """One request sent again and again; `target` is the greatest allowed ratio to the floor."""

    name: str
    payload: bytes
    requests: int  # in one round of the full form
    target: float | None = None
    clients: tuple[int, ...] = (1, 16)
    # Names a figure of the XML library that is added to the floor before the ratio is taken.
    plus: str | None = None


def log_record(number: int) -> bytes:
    return struct.pack("<i6sB16sBi", 1, bytes(6), number % 256, b"detail", 7, 0)


def reading_rows(data: Dataset) -> list[Row]:
    heavy = data.size > 4_000_000
    return [
        Row("unknown command", b"nothing:", 2000, 1.15),
        Row("readvalue, first leaf", b"readvalue:" + data.first_leaf.encode(), 2000, 1.3),
        Row("readvalue, last leaf", b"readvalue:" + data.last_leaf.encode(), 2000, 1.3),
        Row("readvalue, deepest leaf", b"readvalue:" + data.deepest_leaf.encode(), 2000, 1.3),
        Row("read of a document", b"read:" + data.document.encode(), 500),
        Row("readattr of a subtree", b"readattr:" + data.subtree.encode(), 1000),
        Row(
            "read:*",
            b"read:*",
            5 if heavy else 100,
            1.2,
            clients=(1,),
            plus="list",
        ),
    ]


def working_rows() -> list[Row]:
    hundred = b"\n".join(
        b"Doc044.Group%d.Value%d=changed-%d" % (line // 10, line % 10, line) for line in range(100)
    )
    return [
        Row("isPermitAllow", b"isPermitAllow:Operator&Reboot", 2000, 1.15),
        Row("isPermitAllowByUser", b"isPermitAllowByUser:user20&Reboot", 2000, 1.15),
        Row(
            "GetCGIPermitFilter, 100 rules",
            b"GetCGIPermitFilter:user20&command100&do=action100",
            2000,
        ),
        Row("CheckSession, 50 sessions", b"CheckSession:token-49&100000", 2000, 1.15),
        Row(
            "write of one value, 4 KB document",
            b"write:Doc004.Group0.Value0=changed",
            500,
            1.2,
            plus="save Doc004",
        ),
        Row(
            "write of one value, 44 KB document",
            b"write:Doc044.Group0.Value0=changed",
            300,
            1.2,
            plus="save Doc044",
        ),
        Row("write of 100 values, 44 KB document", b"write:" + hundred, 300),
        Row("writedbmem", b"writedbmem:Doc004.Group0.Value0=changed", 1000, 1.6),
        Row("writelog, log of 1,000", b"writelog:" + log_record(1), 300, 1.3, plus="replace log"),
        Row("readlog of 100", b"readlog:1&-1&100", 500, 3.0),
        Row("readlog of 1,000", b"readlog:1&-1&1000", 300, 3.0),
        Row("download", b"download:/tmp/exchange.xml", 50, clients=(1,)),
        Row("upload", b"upload:/tmp/upload.xml", 20, clients=(1,)),
    ]


def prepare_working(service: Service) -> None:
    """Fills the log, the sessions and the exchange file that the rows above expect."""
    for number in range(50):
        service.request(b"SetSession:token-%d" % number)
    for number in range(1000):
        service.request(b"writelog:" + log_record(number))
    service.request(b"download:/tmp/upload.xml")
