"""Making calls of the service's server thread fail from outside; fault_library.c does it inside.

    faults = Faults(device)         # before the start
    device.start(environment=faults.environment)
    faults.watch()                  # the worker's server thread
    with faults.failing(ALLOCATIONS, first=3, amount=FOR_EVER):
        device.request("read:*")
    faults.failed                   # how many calls were made to fail
"""

import contextlib
import mmap
import os
import struct
from pathlib import Path

import pytest

import device as device_module

ALLOCATIONS, FILES = 1, 2
SHORT, KILL = 0x10001, 0x10002
FOR_EVER = 0xFFFFFFFF
NEVER = 0xFFFFFFFF

CONTROL = "/run/faults"
HEAD = struct.Struct("<7Iiq")
NAMES, NAME_SIZE = 256, 12
LARGEST = struct.Struct("<Q")
LARGEST_AT = HEAD.size + NAMES * NAME_SIZE
SIZE = LARGEST_AT + LARGEST.size


def library():
    """The library beside the program under test, or the one that FAULT_LIBRARY names."""
    beside = Path(device_module.default_program).parents[1] / "lib/libfault_library.so"
    found = Path(os.environ.get("FAULT_LIBRARY", beside))
    if not found.exists():
        pytest.skip(f"{found} is not there: build it, or name it in FAULT_LIBRARY")
    return found.resolve()


class Faults:
    """See the module. Counters are of the calls since the last `failing` began. `allocations`:
    whether those are to fail; a sanitizer has allocations of its own, which pass the library by."""

    def __init__(self, device, allocations=False):
        if allocations and device.sanitizer is not None:
            pytest.skip(f"{device.sanitizer}: its allocator comes first")
        self.device = device
        self.environment = {"LD_PRELOAD": device.preload(f"/run/host{library()}"),
                            "FAULT_CONTROL": CONTROL}
        device.write_file(CONTROL, bytes(SIZE))
        with open(device.outside(CONTROL), "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), SIZE)
        self.thread = 0

    def watch(self):
        """Takes the server thread of the worker that there is now, the last of its threads."""
        tasks = self.device.outside(f"/proc/{self.device.worker_pid}/task")
        self.thread = sorted(int(task.name) for task in tasks.iterdir())[-1]
        self._set(0, 0, 0, 0)

    def _set(self, group, first, amount, action):
        self.memory[HEAD.size:LARGEST_AT] = bytes(NAMES * NAME_SIZE)
        blocks, size = self.blocks, self.bytes
        HEAD.pack_into(self.memory, 0, self.thread, group, first, amount, action, 0, 0, blocks, size)

    @contextlib.contextmanager
    def failing(self, group, first, amount=1, action=1):
        """Within this, calls number `first` and the following fail; `action` is an error number,
        SHORT or KILL. `first` NEVER only counts."""
        self._set(group, first, amount, action)
        try:
            yield self
        finally:
            self.memory[4:8] = bytes(4)  # no group: nothing is counted any more

    def refuse_over(self, size):
        """Every allocation of more bytes than that fails from now on."""
        LARGEST.pack_into(self.memory, LARGEST_AT, size)

    def _field(self, number):
        return HEAD.unpack_from(self.memory)[number]

    seen = property(lambda self: self._field(5))
    failed = property(lambda self: self._field(6))
    blocks = property(lambda self: self._field(7))
    bytes = property(lambda self: self._field(8))

    def calls(self):
        """Names of the calls counted."""
        return [self.memory[HEAD.size + i * NAME_SIZE:HEAD.size + (i + 1) * NAME_SIZE].rstrip(b"\0")
                .decode() for i in range(min(self.seen, NAMES))]
