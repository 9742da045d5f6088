"""The rules of the event log written down once more, as naively as possible, and its wire format."""

import struct
import time
from typing import NamedTuple


def record(event_type, first=1, text=b"d", second=2, when=0, ignored=b"\xaa" * 6):
    """The 32 bytes of a request; `ignored` are the bytes that the service takes no notice of."""
    return struct.pack("<i6sB16sBi", event_type, ignored, first, text, second, when)


class Entry(NamedTuple):
    """A record of a reply."""

    type: int
    year: int
    month: int
    day: int
    hour: int
    minute: int
    second: int
    first: int
    text: bytes
    last: int
    time: int


def entries(body):
    """The records of readlog's reply."""
    assert len(body) % 32 == 0
    found = []
    for at in range(0, len(body), 32):
        one = struct.unpack("<i7B16sBi", body[at:at + 32])
        found.append(Entry(*one[:8], one[8].rstrip(b"\0"), *one[9:]))
    return found


def capacity_of(size):
    """The capacity on a file system of `size` bytes."""
    size &= 0xFFFFFFFF
    if size >= 1 << 31:
        size -= 1 << 32
    quarter = abs(size - 131072) // 4 * (1 if size >= 131072 else -1)
    return min(quarter // 64, 1000)


class LogModel:
    """Ring and cursor. Times are in UTC."""

    def __init__(self, capacity):
        self.max = capacity
        self.elements = []  # [name, text] in the order of the file
        self.restart()

    def find(self, position):
        return next((e for e in self.elements if e[0] == f"E{position}"), None)

    def write(self, event_type, when, first, text, second):
        t = time.gmtime(when)
        entry = f"{event_type}:{t.tm_year}:{t.tm_mon - 1}:{t.tm_mday}:{t.tm_hour}:{t.tm_min}"
        entry += f":{t.tm_sec}:{first}:{text}:{second}"
        old = self.find(self.next + 1)
        if old:
            old[1] = entry
        else:
            self.elements.append([f"E{self.next + 1}", entry])
        self.next += 1
        if self.count < self.max:
            self.count = self.next
        if self.next >= self.max:
            self.next = 0

    def begin(self, mode):
        """The direction in which the call reads, or None."""
        if mode == 1:
            if self.next == 0 and self.count == 0:
                return None
            self.cursor = self.next or self.count
        elif mode == 2:
            if self.last == 3:
                self.cursor = self.page - 1
            elif self.cursor == 1 and (self.count < self.max or self.next + 1 == self.count):
                return None
            elif self.cursor == self.next + 2:
                return None
        elif mode == 3:
            if self.last == 2:
                self.cursor = self.page + 1
            elif self.last == 1 or self.cursor == (self.next or self.count):
                return None
            elif self.next == 0 and self.cursor == 0:
                return None
        else:
            return 0
        self.page, self.last = self.cursor, mode
        return 1 if mode == 3 else -1

    def move(self, direction):
        if direction < 0:
            if self.cursor == self.next + 2:
                return False
            if self.cursor != 1:
                self.cursor -= 1
                return True
            if self.count < self.max or self.next + 1 == self.count:
                return False
            self.cursor = self.max
            return True
        if self.cursor == self.next:
            return False
        if self.cursor + direction > self.max:
            if self.count < self.max or self.next == 0:
                return False
            self.cursor = 1
            return True
        self.cursor += direction
        return True

    @staticmethod
    def decode(text, mask):
        fields = [field for field in text.split(":") if field]
        if len(fields) != 10 or int(fields[0]) & mask == 0:
            return None
        numbers = [int(field) for field in fields[:8]]
        return Entry(numbers[0], (numbers[1] - 2000) % 256, *numbers[2:8], fields[8].encode(),
                     int(fields[9]), 0)

    def read(self, mode, mask, limit):
        direction = self.begin(mode)
        if direction is None:
            return []
        found = []
        for _ in range(self.count):
            element = self.find(self.cursor)
            if element is None:
                break
            entry = self.decode(element[1], mask)
            if entry:
                found.append(entry)
            if not self.move(direction) or len(found) >= limit:
                break
        return found

    def clean(self):
        self.elements = []
        self.next = self.count = 0
        self.cursor = self.page = -1

    def restart(self):
        self.cursor = self.page = -1
        self.last = 0
        self.next = self.count = len(self.elements)
        if self.max - 1 > self.count:
            return
        self.count = self.max
        best, best_time = 1, [0] * 6
        for position in range(1, self.count + 1):
            element = self.find(position)
            if element is None:
                break
            fields = [field for field in element[1].split(":") if field]
            if len(fields) != 10 or int(fields[0]) == 0:
                continue
            when = [(int(fields[1]) + 48) % 256, *map(int, fields[2:7])]
            if when >= best_time:
                best, best_time = position, when
        self.next = best if best < self.max else 0

    def file(self):
        """The log file's content after a save."""
        if not self.elements:
            return b"<Log />\n"
        lines = "".join(f"    <{name}>{text}</{name}>\n" for name, text in self.elements)
        return f"<Log>\n{lines}</Log>\n".encode()
