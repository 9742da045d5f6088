"""Many devices at one broker, each with a service and a bridge of its own: from the first word to the
restart of the broker."""

import contextlib
import ctypes
import os
import struct
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import pytest

import device as device_module
import fleet
from device import CONFIGURATION, REPOSITORY, Device, wait_until
from fleet import Bridge, Broker, Operator

DOCUMENTS = {"Network": "<Network><Lan><Mtu>1500</Mtu></Lan></Network>",
             "System": "<System><Name>yard</Name></System>"}
MOVED_TO = 0x80


class SaveCounts:
    """How often services have saved a document, as the kernel tells it: by one queue for all devices,
    since a user may have but a hundred or so."""

    def __init__(self, document):
        self._libc = ctypes.CDLL(None, use_errno=True)
        self._queue = self._libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        assert self._queue >= 0, os.strerror(ctypes.get_errno())
        self._document = document.encode()
        self._counts = {}

    def watch(self, device):
        """Return: what of() wants to know."""
        watched = self._libc.inotify_add_watch(self._queue, str(device.outside(CONFIGURATION)).encode(),
                                               MOVED_TO)
        assert watched >= 0, os.strerror(ctypes.get_errno())
        return watched

    def of(self, watched):
        with contextlib.suppress(BlockingIOError):
            while True:
                block = os.read(self._queue, 1 << 16)
                while block:
                    number, _, _, length = struct.unpack_from("iIII", block)
                    if block[16:16 + length].rstrip(b"\0") == self._document:
                        self._counts[number] = self._counts.get(number, 0) + 1
                    block = block[16 + length:]
        return self._counts.get(watched, 0)

    def close(self):
        os.close(self._queue)


class Member:
    """A device of the fleet."""

    def __init__(self, name, broker, saves):
        self.name = name
        self.device = Device()
        self.device.write_documents(DOCUMENTS)
        self.device.start()
        watched = saves.watch(self.device)
        self.saves = lambda: saves.of(watched)
        self.bridge = Bridge(self.device, broker, name, keep_alive=60).start()

    def mtu(self):
        return self.bridge.value()

    def close(self):
        findings = self.device.sanitizer_findings()
        self.device.close()
        assert not findings, findings


@pytest.fixture
def broker(tmp_path, count):
    fleet.require()
    names = [f"yard-{number}" for number in range(1, count + 1)]
    one = Broker(tmp_path / "broker", fleet.make_certificates(tmp_path / "certificates", *names))
    yield one
    one.close()


@pytest.fixture
def members(broker, count):
    with contextlib.ExitStack() as stack, ThreadPoolExecutor(8) as pool:
        saves = stack.enter_context(contextlib.closing(SaveCounts("Network")))
        made = list(pool.map(lambda number: Member(f"yard-{number}", broker, saves), range(1, count + 1)))
        for one in made:
            stack.callback(one.close)
        yield made


@pytest.mark.parametrize("count", [20, pytest.param(100, marks=pytest.mark.slow)])
def test_a_fleet(broker, members, count):
    with contextlib.closing(Operator(broker)) as operator:
        for one in members:
            operator.wait_status(one.name, state="online")
            record = (4).to_bytes(4, "little") + bytes(7) + one.name.encode().ljust(16, b"\0") + bytes(5)
            assert one.device.request(b"writelog:" + record).code == 0
        for one in members:
            wait_until(lambda one=one: operator.all(one.name, "event"), f"{one.name} tells its event")
            assert [event["text"] for event in operator.all(one.name, "event")] == [one.name]

        # Half of them are confirmed; of the others nobody says a word.
        kept, left = members[::2], members[1::2]
        assert len(kept) + len(left) == count
        for one in members:
            operator.send_change(one.name, {"Network.Lan.Mtu": "1400"}, trial=60 if one in kept else 3)
        for one in kept:
            operator.wait_result(one.name, state="trial")
            operator.send_answer(one.name)
        for one in kept:
            operator.wait_result(one.name, state="applied")
            wait_until(lambda one=one: operator.last(one.name, "config/reported/Network")["body"]
                       == "Network.Lan.Mtu=1400\n", f"{one.name} has reported it")
        for one in left:
            operator.wait_result(one.name, state="rolled-back")
        assert [one.mtu() for one in kept + left] == len(kept) * ["1400"] + len(left) * ["1500"]
        assert [one.saves() for one in kept + left] == len(kept) * [1] + len(left) * [0]

        # All changes lie on the broker still, and come again.
        operator.forget()
        broker.stop()
        broker.start()
        for one in members:
            operator.wait_status(one.name, state="online")
            operator.wait_result(one.name, sequence="1")
        assert [one.mtu() for one in kept + left] == len(kept) * ["1400"] + len(left) * ["1500"]
        assert [one.saves() for one in kept + left] == len(kept) * [1] + len(left) * [0]
        assert not any(one.bridge.guards() for one in members)


def test_the_tour_shows_all_of_it():
    """What ./dev fleet prints."""
    fleet.require()
    done = subprocess.run([sys.executable, REPOSITORY / "tools/fleet_tour.py", "2", device_module.default_program],
                          capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)
    assert done.returncode == 0, done.stderr
    for part in ("2 devices are online", "text=gate", "state=trial", "state=applied", "state=rolled-back",
                 "reason=not signed by an operator", "yard-1: Network.Lan.Mtu=1400",
                 "yard-2: Network.Lan.Mtu=1500"):
        assert part in done.stdout, done.stdout
