"""How a changed file gets to the device: what is flushed before what, and how often."""

import re

import pytest

from device import CONFIGURATION
from tracer import Strace
from workload import COMMANDS, install

CALLS = ("trace=openat,write,pwrite64,fsync,fdatasync,rename,renameat,renameat2,close,sendto,sendmsg,"
         "ftruncate,unlink,unlinkat")


class Flash:
    """What a power cut leaves: of each file what was flushed, however long it is by then, and of
    names those whose directory was flushed. Fed with the traced calls in their order."""

    def __init__(self):
        self.written = {}  # bytes of each file that is being made
        self.flushed = {}
        self.renamed = []  # files put in place
        self.removed = []
        self.unflushed_directories = set()
        self.faults = []

    def feed(self, name, line):
        if re.search(r"= -1 ", line):
            return
        if name == "openat" and "O_CREAT" in line:
            self.written[re.search(r"= \d+<([^>]*)>", line)[1]] = 0
        elif name in ("write", "pwrite64") and "<socket:" not in line.split(",")[0]:
            path = re.search(r"\(\d+<([^>]*)>", line)[1]
            self.written[path] = self.written.get(path, 0) + int(line.rsplit("= ", 1)[1])
        elif name in ("fsync", "fdatasync"):
            path = re.search(r"\(\d+<([^>]*)>", line)[1]
            self.flushed[path] = self.written.get(path, 0)
            self.unflushed_directories.discard(path)
        elif name.startswith("rename"):
            self._rename(line)
        elif name == "unlink":
            directory, _, file = re.search(r'\("([^"]*)"', line)[1].rpartition("/")
            self.removed.append(file)
            self.unflushed_directories.add(directory)
        elif name in ("sendto", "sendmsg") or "<socket:" in line.split(",")[0]:
            if name != "close" and self.unflushed_directories:
                self.faults.append(f"the reply goes out before {self.unflushed_directories}: {line}")

    def _rename(self, line):
        source, target = re.findall(r'\d+<([^>]*)>, "([^"]*)"', line)
        path = "/".join(source)
        if self.written.get(path, 0) == 0 or self.flushed.get(path) != self.written[path]:
            self.faults.append(f"renamed with {self.flushed.get(path)} of {self.written.get(path)} "
                               f"bytes flushed: {line}")
        self.renamed.append("/".join(target))
        self.unflushed_directories.add(target[0])


def test_the_model_sees_what_is_wrong():
    opened = 'openat(3</d>, ".new", O_WRONLY|O_CREAT|O_EXCL, 0644) = 4</d/.new>'
    write = 'write(4</d/.new>, "<A/>"..., 4) = 4'
    flush = "fsync(4</d/.new>) = 0"
    rename = 'renameat(3</d>, ".new", 3</d>, "A") = 0'
    flush_directory = "fsync(3</d>) = 0"
    reply = r'sendto(5<socket:[1]>, "\1\0\0\0", 4, MSG_NOSIGNAL, NULL, 0) = 4'

    def faults(*lines):
        flash = Flash()
        for line in lines:
            flash.feed(line.split("(")[0], line)
        return len(flash.faults)

    assert faults(opened, write, flush, rename, flush_directory, reply) == 0
    assert faults(opened, write, rename, flush, flush_directory, reply) == 1
    assert faults(opened, write, flush, write, rename, flush_directory, reply) == 1
    assert faults(opened, write, flush, rename, reply) == 1
    unlink = 'unlink("/d/A") = 0'
    assert faults(unlink, flush_directory, reply) == 0
    assert faults(flush_directory, unlink, reply) == 1


@pytest.mark.fault("S4")
@pytest.mark.parametrize("name", [name for name, one in COMMANDS.items() if one.changes])
def test_nothing_is_renamed_before_it_is_flushed(device, name, figure):
    install(device)
    device.start()
    one = COMMANDS[name]
    for payload in one.before:
        device.request(payload)
    with Strace(device, "-e", CALLS) as strace:
        assert device.request(one.payload).code >= 0
    flash = Flash()
    for call, _, line in strace.calls():
        flash.feed(call, line)
    assert flash.renamed
    assert flash.faults == []
    figure("files put in place", len(flash.renamed))


@pytest.mark.fault("S4")
@pytest.mark.parametrize("argument, removed", [("A.*", ["A"]), (".*", ["A", "Account", "B"])])
def test_a_removed_document_is_gone_from_the_device_before_the_reply(device, argument, removed):
    install(device)
    device.start()
    with Strace(device, "-e", CALLS) as strace:
        assert device.request(f"remove:{argument}").code == 0
    flash = Flash()
    for call, _, line in strace.calls():
        flash.feed(call, line)
    assert sorted(flash.removed) == removed
    assert flash.faults == []
    assert device.list_directory(CONFIGURATION) == sorted({"A", "Account", "B"} - set(removed))


@pytest.mark.fault("W1")
@pytest.mark.parametrize("documents", [1, 3])
@pytest.mark.parametrize("lines", [1, 1000])
def test_one_replacement_for_each_changed_document(device, documents, lines, figure):
    names = "ABC"[:documents]
    device.write_documents({name: f"<{name}/>" for name in "ABC"})
    device.write_file("/tmp/in", "<R>" + "".join(
        f"<{name}>" + "".join(f"<V{i}>1</V{i}>" for i in range(lines)) + f"</{name}>"
        for name in names) + "</R>")
    device.start()
    text = "\n".join(f"{name}.V{i}={i}" for i in range(lines) for name in names)
    attributes = "\n".join(f"{name}.V{i}.Level=1" for i in range(lines) for name in names)
    for payload, before in (("write:" + text, ()), ("writeattr:" + attributes, ()),
                            ("syncmemtoflash:", ("writedbmem:" + text,)), ("upload:/tmp/in", ()),
                            ("syncxml:/tmp/in", ()), ("restore:/tmp/in", ())):
        for one in before:
            assert device.request(one).code == documents * lines
        with Strace(device, "-e", "trace=rename,renameat,renameat2,fsync,fdatasync") as strace:
            assert device.request(payload).code == (documents * lines if "=" in payload else 0)
        calls = [call for call, _, _ in strace.calls()]
        assert calls == ["fsync", "renameat", "fsync"] * documents, payload
    figure("replacements a changed document", 1)
