"""Each call on files of each command that changes some, failing in every way: once and from there
on. The old file or the new one is there, whole, and what could not be saved is saved later."""

import errno
import os
import re

import pytest

from device import CONFIGURATION, EVENT_LOG
from fault_control import FILES, FOR_EVER, NEVER, SHORT, Faults
from workload import COMMANDS, DOCUMENTS, LOG_RECORD, install

LOG_DIRECTORY = os.path.dirname(EVENT_LOG)
CHANGING = [name for name, one in COMMANDS.items() if one.changes]
EXCHANGING = ("upload", "restore", "syncxml")

ERRORS = {errno.errorcode[number]: number for number in (
    errno.ENOSPC, errno.EIO, errno.EINTR, errno.EDQUOT, errno.EXDEV, errno.EBUSY, errno.EPERM,
    errno.EROFS, errno.EMFILE)}
ERRORS["short"] = SHORT
SHORT_FORM = ("ENOSPC", "EINTR", "EXDEV", "short")
# A call that is interrupted for ever is no fault that exists; a burst of it is.
BURST = 200
TEMPORARY = ".veltrancord-new."


@pytest.fixture
def failing(device):
    """A started service with `device.faults`, and what `begin` needs."""
    install(device)
    body = "".join(re.sub(r">\s+<", "><", text) for text in DOCUMENTS.values())
    device.write_file("/tmp/base", f"<R>{body}</R>")
    device.faults = Faults(device)
    device.start(environment=device.faults.environment)
    device.faults.watch()
    return device


def begin(device, one):
    """The same state again: documents as in /tmp/base, one log entry, and what `one` asks for."""
    assert device.request("upload:/tmp/base").code == 0
    device.request("remove:C.*")
    assert device.request("cleanlog:").code == 0
    assert device.request(b"writelogwithtime:" + LOG_RECORD).code == 0
    for payload in one.before:
        assert device.request(payload).code >= 0


def files(device):
    """Name and content of everything that the service keeps, times of log entries left out."""
    found = {}
    for directory in (CONFIGURATION, LOG_DIRECTORY, "/tmp"):
        for name in device.list_directory(directory):
            path = f"{directory}/{name}"
            if device.outside(path).is_file():
                found[path] = re.sub(rb":\d{4}(:\d+){5}:", b":T:", device.read_file(path))
            else:
                found[path] = None
    return found


def value_in(text):
    """The text of the element V of a document, as its file has it."""
    return re.search(rb"<V[^>]*>([^<]*)</V>", text)[1] if text is not None else None


@pytest.mark.fault("S2")
@pytest.mark.parametrize("name", CHANGING)
def test_every_call_on_files_fails(failing, name, figure, long_form):
    device, one = failing, COMMANDS[name]
    faults = device.faults
    begin(device, one)
    old = files(device)
    with faults.failing(FILES, NEVER):
        good = device.request(one.payload)
    calls = faults.calls()
    new = files(device)
    assert old != new and faults.seen == len(calls) > 0
    descriptors = device.open_descriptors(device.worker_pid)
    injected = 0
    for error in ERRORS if long_form else SHORT_FORM:
        for number, call in enumerate(calls, 1):
            for amount in (1, BURST if error == "EINTR" else FOR_EVER):
                where = f"{name}: {call}, call {number} of {len(calls)}: {error} x {amount:x}"
                begin(device, one)
                device.forget_output()
                with faults.failing(FILES, number, amount, ERRORS[error]):
                    reply = device.request(one.payload)
                injected += faults.failed
                assert reply == good or reply.code in (-1, -3), (where, reply)
                left = files(device)
                if amount > 1:  # not even the temporary file could be removed
                    for path in [path for path in left if TEMPORARY in path]:
                        device.outside(path).unlink()
                        del left[path]
                for path in set(old) | set(new) | set(left):
                    assert left.get(path) in (old.get(path), new.get(path)), (where, path)
                lines = device.stderr().count("replace_file")
                assert lines <= amount, where
                check_afterwards(device, one, (old, new, left), reply == good, where)
                assert device.open_descriptors(device.worker_pid) == descriptors, where
    figure("faults injected", injected)


def check_afterwards(device, one, states, succeeded, where):
    """With the fault gone, a sync brings the file where the document is."""
    old, new, left = states
    device.request("syncmemtoflash:")
    values = {document: device.request(f"readvalue:{document}.V") for document in "AB"}
    settled = files(device)
    for document, reply in values.items():
        path = f"{CONFIGURATION}/{document}"
        assert settled[path] in (old[path], new[path]), where
        assert reply.code >= 0 and value_in(settled[path]) == reply.body, (where, document)
    if succeeded and not one.payload.startswith(tuple(map(str.encode, EXCHANGING))):
        for path in (f"{CONFIGURATION}/A", f"{CONFIGURATION}/B"):
            assert settled[path] == new[path], (where, path)
    if not succeeded:
        assert settled[EVENT_LOG] == old[EVENT_LOG] or b"log" in one.payload, where


def fill(device, path):
    """Leaves no room in the file system of that path."""
    with open(device.outside(path), "wb", buffering=0) as filler:
        try:
            while True:
                filler.write(b"x" * 4096)
        except OSError as problem:
            assert problem.errno == errno.ENOSPC


@pytest.mark.fault("S3")
@pytest.mark.parametrize("name", CHANGING)
def test_a_really_full_file_system(device, name):
    """The old files stay while there is no room; a sync then saves what waits for it."""
    directory, kept_log = CONFIGURATION, f"{CONFIGURATION}/log"
    device.mount_tmpfs(directory, size="256k")
    one = COMMANDS[name]
    install(device)
    # Neither file has room for the new one in the blocks that it has already.
    for document, text in DOCUMENTS.items():
        device.write_document(document, text + "<!-- " + "x" * 4090 + " -->\n")
    device.start("-E", kept_log)
    device.request(b"writelogwithtime:" + LOG_RECORD)
    for payload in one.before:
        device.request(payload)
    old = files(device)
    fill(device, f"{directory}/filler")
    device.forget_output()
    reply = device.request(one.payload)
    left = files(device)
    assert left.pop(f"{directory}/filler") is not None
    if name == "cleanlog":  # needs no room: the empty log is written in place
        assert reply.code == 0 and "replace_file" not in device.stderr()
        old[kept_log] = b"<Log>\n</Log>"
    else:
        assert device.stderr().count("replace_file") >= (0 if reply.code < 0 else 1)
    assert left == old
    device.outside(f"{directory}/filler").unlink()
    device.request("syncmemtoflash:")
    for document in "AB":
        reply = device.request(f"readvalue:{document}.V")
        assert value_in(device.read_document(document)) == reply.body
    if name.startswith("writelog"):  # the log is saved with its next entry
        assert device.request(one.payload).code == 0
        assert device.read_file(kept_log).count(b"<E") == 3
    device.restart()
    assert device.request("readvalue:A.V").body == value_in(device.read_document("A"))
