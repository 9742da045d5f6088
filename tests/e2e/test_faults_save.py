"""Saving under faults: the worker killed at every system call of a command that writes files, and
each of these calls failing. Every file must be wholly the old or wholly the new one afterwards."""

import errno
import os
import re
import shutil

import pytest

from device import CONFIGURATION, EVENT_LOG, wait_until
from log_model import record
from tracer import Strace

pytestmark = pytest.mark.skipif(shutil.which("strace") is None, reason="strace is not installed")

OLD = {"A": "<A>\n    <V>old</V>\n    <W>1</W>\n</A>\n", "B": "<B>\n    <V>old</V>\n</B>\n"}
EXCHANGE = "<R><A><V>new</V></A><B><V>new</V></B><C><V>new</V></C></R>"

# A command that changes files, and what is requested before it.
COMMANDS = {
    "write": ("write:A.V=new\nB.V=new", ()),
    "writeattr": ("writeattr:A.V.Level=1", ()),
    "remove an element": ("remove:A.V", ()),
    "remove a document": ("remove:A.*", ()),
    "syncmemtoflash": ("syncmemtoflash:", ("writedbmem:A.V=new",)),
    "upload": ("upload:/tmp/in", ()),
    "restore": ("restore:/tmp/in", ()),
    "syncxml": ("syncxml:/tmp/in", ()),
    "writelog": (b"writelog:" + record(1), ()),
    "writelogwithtime": (b"writelogwithtime:" + record(1), ()),
    "cleanlog": ("cleanlog:", (b"writelogwithtime:" + record(1),)),
}
LOG_DIRECTORY = os.path.dirname(EVENT_LOG)


def files(device):
    """Name and content of everything that the service keeps; times of log entries left out."""
    found = {name: device.read_document(name) for name in device.list_directory(CONFIGURATION)}
    for name in device.list_directory(LOG_DIRECTORY):
        content = device.read_file(f"{LOG_DIRECTORY}/{name}")
        found["/" + name] = re.sub(rb":\d{4}(:\d+){5}:", b":T:", content)
    return found


def answers(device):
    """Whether a request is served; while a worker is being restarted, none is."""
    try:
        return device.request("read:*").code not in (None, 0)
    except OSError:
        return False


def begin_with(device, documents):
    """Puts these documents in the place of all others and starts the service on them."""
    device.stop()
    for name in device.list_directory(CONFIGURATION):
        device.outside(f"{CONFIGURATION}/{name}").unlink()
    device.write_documents(documents)
    device.outside(EVENT_LOG).unlink()
    device.start()


def request(device, payload):
    """A request whose answer does not matter, and may not come."""
    try:
        return device.request(payload).code
    except OSError:
        return None


def prepared(device):
    device.write_file("/tmp/in", EXCHANGE)
    device.write_documents(OLD)
    device.start()
    return device


@pytest.mark.fault("S1")
@pytest.mark.parametrize("name", COMMANDS)
def test_killed_at_every_system_call(device, name):
    device.require_no_sanitizer("thread", "its runtime makes calls in threads of its own")
    device.require_no_sanitizer("valgrind", "what is counted may be a call of its own")
    command, before = COMMANDS[name]
    prepared(device)
    begin_with(device, OLD)
    for payload in before:
        device.request(payload)
    old = files(device)
    with Strace(device) as strace:
        assert device.request(command).code >= 0
    points = [(call, count) for call, count, _ in strace.calls()]
    new = files(device)
    assert old != new
    assert [call for call, _ in points].count("fsync") >= (0 if "document" in name else 2)

    for call, count in points:
        begin_with(device, OLD)
        for payload in before:
            device.request(payload)
        worker = device.worker_pid
        with Strace(device, "-e", f"inject={call}:signal=KILL:when={count}"):
            request(device, command)
            # The call may lie behind the reply; the next request comes to it then.
            request(device, "readvalue:B.V")
            wait_until(lambda: not device.is_running(worker) or answers(device), "it is over")
        # Not by -L, which would wait a second before each new worker.
        device.restart()
        left = files(device)
        where = f"{call} number {count}"
        assert set(left) <= set(old) | set(new), where
        for document in set(old) | set(new):
            assert left.get(document) in (old.get(document), new.get(document)), (where, document)


SAVE_CALLS = ("openat", "openat2", "newfstatat", "fallocate", "write", "fsync", "close", "renameat")
ERRORS = (errno.ENOSPC, errno.EIO, errno.EROFS, errno.EMFILE)


def save_points(device, command):
    """The system calls that save one document, as (name, how often in this request so far)."""
    with Strace(device) as strace:
        assert device.request(command).code == 1
    calls = strace.calls()
    first = next(i for i, (_, _, line) in enumerate(calls) if CONFIGURATION in line)
    last = max(i for i, (_, _, line) in enumerate(calls) if CONFIGURATION in line)
    points = [(name, count) for name, count, _ in calls[first:last + 1]]
    assert set(SAVE_CALLS) - {"openat2"} <= {name for name, _ in points} <= set(SAVE_CALLS)
    return points


@pytest.mark.fault("S2")
@pytest.mark.parametrize("error", ERRORS, ids=errno.errorcode.get)
def test_every_system_call_of_a_save_fails(device, error):
    device.require_no_sanitizer("thread", "its runtime makes other calls")
    device.require_no_sanitizer("valgrind", "what is made to fail may be a call of its own")
    prepared(device)
    points = save_points(device, "write:A.V=0")
    number = 0
    for call, count in points:
        number += 1
        before = files(device)
        descriptors = len(device.open_descriptors(device.worker_pid))
        device.forget_output()
        with Strace(device, "-e", f"inject={call}:error={errno.errorcode[error]}:when={count}"):
            assert device.request(f"write:A.V={number}").code == 1
        after = files(device)
        where = f"{call} number {count}"
        saved = {**before, "A": before["A"].replace(f"<V>{number - 1}<".encode(),
                                                    f"<V>{number}<".encode())}
        assert after in (before, saved), where
        # One line for each failed attempt, and none without one.
        line = f"replace_file {CONFIGURATION}/A error : {os.strerror(error)}\n"
        failed = device.stderr().count("replace_file")
        assert device.stderr() == line * failed, where
        assert failed == 1 or after == saved, where
        # What could not be saved is saved after the next change.
        assert device.request("readvalue:A.V").text == str(number), where
        assert device.request(f"writedbmem:A.V={number}").code == 1
        assert files(device) == saved, where
        if call != "close":  # a close that is kept from happening leaves its descriptor open
            assert len(device.open_descriptors(device.worker_pid)) == descriptors, where


@pytest.mark.fault("S2")
@pytest.mark.parametrize("error", (errno.ENOSPC, errno.EROFS), ids=errno.errorcode.get)
def test_every_system_call_of_an_upload_fails(device, error):
    """The old file and the old document stay together, whatever fails."""
    device.require_no_sanitizer("valgrind", "what is made to fail may be a call of its own")
    prepared(device)
    device.write_file("/tmp/first", "<R><A><V>first</V></A></R>")
    device.write_file("/tmp/second", "<R><A><V>second</V></A></R>")
    assert device.request("upload:/tmp/first").code == 0
    first = files(device)
    with Strace(device) as strace:
        assert device.request("upload:/tmp/second").code == 0
    second = files(device)
    for call, count, line in strace.calls():
        if call not in (*SAVE_CALLS, "read", "lseek") or "<socket:" in line:
            continue
        assert device.request("upload:/tmp/first").code == 0
        with Strace(device, "-e", f"inject={call}:error={errno.errorcode[error]}:when={count}"):
            code = request(device, "upload:/tmp/second")
        where = f"{call} number {count}: {code}"
        assert code in (0, -1, -3, None), where
        value = device.request("readvalue:A.V").text
        assert files(device) in (first, second), where
        assert files(device) == (first if value == "first" else second), where


def test_nothing_is_left_after_many_writes(service):
    device = service(OLD, "-L")
    many_writes(device, 1000)


@pytest.mark.slow
def test_nothing_is_left_after_ten_thousand_writes(service):
    many_writes(service(OLD, "-L"), 10000)


def many_writes(device, count):
    """Descriptors, memory and /tmp are after many writes what they were before; each starts a
    program, and none of them stays a zombie."""
    device.request('writeattr:A.V.DispatchW=/bin/true')
    for number in range(count // 10):  # to warm up
        device.request(f"write:A.V={number % 10}")
    worker = device.worker_pid
    descriptors = device.open_descriptors(worker)
    memory = device.memory_kilobytes(worker)
    listing = sorted(device.list_directory("/tmp"))
    for number in range(count):
        assert device.request(f"write:A.V={number % 10}").code == 1
    assert device.open_descriptors(worker) == descriptors
    assert sorted(device.list_directory("/tmp")) == listing
    if device.sanitizer is None:
        assert device.memory_kilobytes(worker) - memory <= 1024
    assert sorted(device.list_directory(CONFIGURATION)) == ["A", "B"]
    wait_until(lambda: not device.children_of(worker), "every program is reaped")
