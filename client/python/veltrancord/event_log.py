"""Records of the event log."""

from __future__ import annotations

import dataclasses
import enum
import struct

from .bounds import MAX_LOG_TEXT, decode, encode
from .errors import Result, error_of

_LAYOUT = struct.Struct("<iBBBBBBB16sBi")
RECORD_SIZE = _LAYOUT.size


class LogMode(enum.IntEnum):
    """Where reading starts. The position of the last two is one for all clients of the service."""

    NEWEST = 1
    OLDER = 2
    NEWER = 3


@dataclasses.dataclass(frozen=True)
class LogRecord:
    """One event. `time`, seconds since the epoch, is for adding only; the date for reading only."""

    type: int
    text: str
    detail1: int = 0
    detail2: int = 0
    time: int = 0
    year: int = 2000
    month: int = 1  # 1 to 12; the service itself counts from 0
    day: int = 1
    hour: int = 0
    minute: int = 0
    second: int = 0

    def pack(self) -> bytes:
        """The 32 bytes of the record."""
        text = encode(self.text)
        if len(text) > MAX_LOG_TEXT:
            raise error_of(Result.FIELD_OVER_BOUND, bound=MAX_LOG_TEXT, found=len(text))
        if not text or b":" in text:
            raise error_of(Result.LOG_TEXT_UNREADABLE)
        return _LAYOUT.pack(
            self.type, (self.year - 2000) & 0xFF, (self.month - 1) & 0xFF, self.day, self.hour,
            self.minute, self.second, self.detail1, text, self.detail2, self.time)

    @classmethod
    def unpack(cls, data: bytes) -> "LogRecord":
        """A record from its 32 bytes."""
        (kind, year, month, day, hour, minute, second, detail1, text, detail2,
         time) = _LAYOUT.unpack(data)
        return cls(
            type=kind, text=decode(text.split(b"\0")[0]), detail1=detail1, detail2=detail2,
            time=time, year=2000 + year, month=(month + 1) & 0xFF, day=day, hour=hour,
            minute=minute, second=second)
