"""What the service holds at most: descriptors and memory, under all that clients can do at a time."""

import contextlib
import itertools
import random
import threading

import pytest

import promises
from device import CONFIGURATION, REPOSITORY, wait_until
from log_model import record
from wire import frame

FREE = 8  # descriptors that no client gets
DESCRIPTORS = 1024  # the usual soft limit, and that of the unit file
MEBIBYTES = 64  # docs/reliability.md tells what they are made of
CAPACITY = 262_144  # of a reply on the sample configuration
CROWD = 1_100
REQUEST = 1 << 20  # the largest one that is sent here


def fill_documents(device):
    """Writes settings until a reply with all of them is nearly as large as replies may be."""
    listing = device.request("read:*").code
    number = 0
    while listing < CAPACITY - 6_000:
        number += 1
        assert device.request(f"write:System.Filling{number}=" + "f" * 4_000).code == 1
        listing = device.request("read:*").code
    return listing


def busy_requests(rng):
    """Large ones of all kinds, round and round."""
    wide = "write:" + "\n".join(f"System.Filling1={'w' * 4_000}" for _ in range(250))
    assert len(wide) < REQUEST
    kinds = [wide, "write:" + "=" * (REQUEST - 6), "x" * REQUEST, "read:*", "readAndFilter:*",
             "readwithlevel:System.*&1", "readattr:System.*", "download:/tmp/out", "upload:/tmp/out",
             "restore:/tmp/out", "syncxml:/tmp/out", b"writelog:" + record(1), "readlog:1&-1&999",
             "SetSession:" + "t" * 1_000, "SetCaptcha:" + "i" * 500 + "&" + "c" * 500, "SyncPermit:",
             "nosuch:" + "y" * 100_000]
    for _ in itertools.count():
        yield rng.choice(kinds)


class Watch:
    """The most descriptors that were seen, looked at all the time; memory the kernel knows itself."""

    def __init__(self, device):
        self.device, self.worker = device, device.worker_pid
        self.most = 0
        self.ended = False
        self.thread = threading.Thread(target=self._run)

    def _run(self):
        while not self.ended:
            self.most = max(self.most, len(self.device.open_descriptors(self.worker)))

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended = True
        self.thread.join()

    @property
    def mebibytes(self):
        return self.device.memory_kilobytes(self.worker, "VmHWM") / 1024


@pytest.mark.fault("B1")
def test_it_holds_no_more_than_it_says(device, long_form, figure):
    """A crowd larger than the limit: silent, babbling, and clients that never read the largest reply
    there can be; while all of them stay, others send large requests of every kind."""
    for kind in ("thread", "valgrind"):
        device.require_no_sanitizer(kind, "the first are let go before the last have come")
    device.copy_sample_database()
    device.start(limits={"NOFILE": DESCRIPTORS})
    fill_documents(device)
    assert device.request("download:/tmp/out").code == 0
    with contextlib.ExitStack() as stack:
        watch = stack.enter_context(Watch(device))
        for number in range(CROWD):
            client = stack.enter_context(device.connect())
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                if number % 10 == 1:
                    client.send(b"no start code here")
                elif number % 10 > 1:
                    client.send(frame("read:*"))
            if number == DESCRIPTORS - 40:  # some are left for those who have business
                for request in itertools.islice(busy_requests(random.Random(6)), 2_000 if long_form else 200):
                    device.request(request)
        wait_until(lambda: watch.most >= DESCRIPTORS - FREE, "all but those kept free are in use",
                   device.patience)
    assert device.request("readvalue:System.Name").code > 0
    worker = device.worker_pid
    assert worker == watch.worker
    figure("descriptors", watch.most)
    assert watch.most <= DESCRIPTORS
    if device.sanitizer is None:
        figure("MiB", round(watch.mebibytes))
        assert watch.mebibytes <= MEBIBYTES


@pytest.mark.fault("B1")
def test_its_own_descriptors_are_few(device, figure):
    device.require_no_sanitizer("valgrind", "it holds some itself")
    """Without clients: what it has open for good, and the most that a command adds to it."""
    device.copy_sample_database()
    device.start()
    worker = device.worker_pid
    assert device.request("readvalue:System.Name").code > 0
    wait_until(lambda: len(device.open_descriptors(worker)) <= 6, "the client is let go")
    idle = len(device.open_descriptors(worker))
    # A limit with room for so many and one client lets every command do its work. It is set to the
    # running worker, which would keep more free for them.
    most = idle + 1 + 3  # a directory, a file aside, and one to look at
    assert device.run("prlimit", f"--pid={worker}", f"--nofile={most}").status == 0
    for request in ("write:System.Name=x", "download:/tmp/out", "upload:/tmp/out", "restore:/tmp/out",
                    "syncxml:/tmp/out", b"writelog:" + record(1), "cleanlog:", "remove:System.Name",
                    "SyncPermit:", "syncmemtoflash:"):
        assert device.request(request).code >= 0, request
    assert "x" not in device.request("readvalue:System.Name").text
    assert device.list_directory(CONFIGURATION)
    figure("own descriptors", most - 1)


def test_the_first_page_promises_these_numbers():
    text = (REPOSITORY / "README.md").read_text(encoding="utf-8")
    assert (f"It holds no more than {DESCRIPTORS:,} descriptors and, but for requests over "
            f"{REQUEST >> 20} MiB and what it is told to keep, {MEBIBYTES} MiB.") in text


def test_the_first_page_has_every_promise_and_the_figures_lie_elsewhere():
    assert promises.shown(promises.FIRST_PAGE) == promises.bullets()
    rows = promises.shown(promises.IN_SHORT).splitlines()[2:]
    assert [row.split(" | ")[0].removeprefix("| ") for row in rows] == [
        sentence for sentence, *_ in promises.SENTENCES]
