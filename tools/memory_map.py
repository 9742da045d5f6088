"""What a process of a simulated device holds in memory, read from its smaps.

A program of this machine and one under qemu-user look the same here: of the emulator's process only
the guest's addresses are taken. A 32-bit guest has 4 GiB that the emulator sets aside as one unbroken
run of mappings; nothing else of it lies there.
"""

import re
from typing import NamedTuple

# The stacks of the worker's threads are told by the sizes of their mappings.
STACKS = ("main", "server", "backup")
_KIBIBYTES = {"server": 4096, "backup": 8192}
_LINE = re.compile(r"([0-9a-f]+)-([0-9a-f]+) (\S+) \S+ \S+ \S+ *(.*)$")


class Mapping(NamedTuple):
    begin: int
    end: int
    rights: str
    name: str
    resident: int  # KiB
    changed: int  # KiB that are this process's own


def _mappings(text):
    found = []
    for line in text.splitlines():
        head = _LINE.match(line)
        if head:
            found.append(Mapping(int(head[1], 16), int(head[2], 16), head[3], head[4], 0, 0))
        elif line.startswith("Rss:"):
            found[-1] = found[-1]._replace(resident=int(line.split()[1]))
        elif line.startswith(("Anonymous:")):
            found[-1] = found[-1]._replace(changed=int(line.split()[1]))
    return found


class Process:
    """All figures in KiB."""

    def __init__(self, device, pid):
        found = _mappings(device.outside(f"/proc/{pid}/smaps").read_text())
        if any("qemu" in mapping.name for mapping in found):
            found = self._guest(found)
        self.mappings = found
        self.resident = sum(mapping.resident for mapping in found)
        self.own = sum(mapping.changed for mapping in found)
        self.anonymous = sum(mapping.resident for mapping in found if "/" not in mapping.name)

    @staticmethod
    def _guest(found):
        first = last = next(index for index, mapping in enumerate(found)
                            if mapping.name.endswith("/Veltrancord"))
        while first > 0 and found[first - 1].end == found[first].begin:
            first -= 1
        while last + 1 < len(found) and found[last + 1].begin == found[last].end:
            last += 1
        guest = found[first:last + 1]
        assert 0.99 < (guest[-1].end - guest[0].begin) / (1 << 32) <= 1, "not the guest's 4 GiB"
        return guest

    def of(self, word):
        """What is resident of the files whose name holds `word`."""
        return sum(mapping.resident for mapping in self.mappings
                   if word in mapping.name.rpartition("/")[2])

    def stack(self, thread):
        """What was ever touched of a thread's stack; it never shrinks."""
        program = next(mapping.begin for mapping in self.mappings
                       if mapping.name.endswith("/Veltrancord"))
        for mapping in self.mappings:
            # The guest's first stack ends where its program begins.
            is_first = mapping.name == "[stack]" or (mapping.name == "" and mapping.end == program)
            size = (mapping.end - mapping.begin) // 1024
            if is_first if thread == "main" else (
                    not is_first and mapping.name == "" and size == _KIBIBYTES[thread]):
                return mapping.resident
        raise LookupError(f"no stack of the {thread} thread")
