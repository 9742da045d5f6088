"""Measures the program and writes docs/footprint.md: footprint.py BUILD-FOLDER ARM-BUILD-FOLDER."""

import datetime
import os
import platform
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "tests/e2e"))
sys.path.insert(0, str(REPOSITORY / "tools"))

from device import Device
from memory_map import Process, STACKS

ROUNDS = 9
BIND_NOW = {"LD_BIND_NOW": "1"}  # as the unit and the init script start it
DEEPEST = 512  # elements within each other, the most that is parsed
RECORD = struct.pack("<i6sB16sBi", 1, bytes(6), 2, b"text", 3, 4)  # an event
USER = "admin"

HEAD = """# Footprint

Measured by `./dev footprint` on {date} ({machine}, Linux {release}), release build.
The ARM program runs under qemu-user; what is said of its memory is the guest's memory alone, told
from the emulator's by the address range that the guest has for itself.

The aims: the ARM program under 200 KiB stripped, its worker under 3 MiB resident with the sample
configuration.

## Size

| Program | Stripped file | text | data | bss |
|---|---|---|---|---|
"""

RESIDENT = """
All in bytes.

## Resident memory

At idle with the sample configuration, in KiB: what the kernel counts, pages of shared libraries
included, which all programs of a device share. "Own" is what no other process can share: heap, stacks
and changed data. The unit and the init script set `LD_BIND_NOW`: without it TinyXML's calls are looked
up as they are first made, in the worker, and the tables read for it become resident there.

| Process | Resident | Own | Program | C library | C++ library | Others | Without `LD_BIND_NOW` |
|---|---|---|---|---|---|---|---|
"""

STACK_TEXT = """
## Deepest stack

KiB of each thread's stack that were ever touched, after every command was sent once; then with a
document of {deepest} elements within each other, the most that is parsed, in the directory, uploaded,
listed, saved and removed. Whole pages, the top one with the thread's own data and the C library's.

| Program | Load | {threads} |
|---|---|{rule}
"""

START = """
## Start-up

From the start until the starter has returned, median of {rounds}, on this machine: {ms:.1f} ms. Under
an emulator the time says nothing, so none is given for ARM.
"""


def sections(size_tool, program):
    """Text, data and bss in bytes."""
    lines = subprocess.run([size_tool, program], check=True, capture_output=True, text=True).stdout
    return [int(field) for field in lines.splitlines()[1].split()[:3]]


def stripped_size(strip_tool, program):
    with tempfile.NamedTemporaryFile() as target:
        subprocess.run([strip_tool, "-o", target.name, program], check=True)
        return os.stat(target.name).st_size


def resident_rows(name, program):
    def both(environment):
        with Device(program) as device:
            device.copy_sample_database()
            device.start(environment=environment)
            return [Process(device, pid) for pid in (device.supervisor_pid, device.worker_pid)]

    rows = ""
    for kind, bound, lazy in zip(("supervisor", "worker"), both(BIND_NOW), both({})):
        parts = [bound.resident, bound.own, *(bound.of(word) for word in ("Veltrancord", "libc.",
                                                                       "libstdc++"))]
        parts.append(parts[0] - bound.anonymous - sum(parts[2:]))
        rows += f"| {name}, {kind} | {' | '.join(map(str, parts))} | {lazy.resident} |\n"
    return rows


def send(device, *requests):
    """Sends requests that the service has to do: a refused one would tell nothing of its stack."""
    for request in requests:
        code = device.request(request).code
        if code is None or code < 0 and request != "DelCaptchaItem:1&c":  # which always fails
            sys.exit(f"footprint.py: {request} gave {code}")


def every_command(device):
    send(
        device,
        "read:*", "readAndFilter:*", "readwithlevel:Account.*&Admin", "readvalue:System.Name",
        "readattr:Account.*", "readsingleattr:Network.HostName.Level",
        "write:Network.Lan.Mtu=1400\nNetwork.HostName=n", "writedbmem:Network.Lan.Mtu=1300",
        "writeattr:Network.Lan.Mtu.X=y", "syncmemtoflash:", "download:/tmp/all", "upload:/tmp/all",
        "restore:/tmp/all", "syncxml:/tmp/all", "remove:Network.Lan.Ipv6", "XMLDBCallBack:x",
        b"writelog:" + RECORD, b"writelogwithtime:" + RECORD, "readlog:1&-1&-1", "geteventcount:",
        "maxlogcount:", "cleanlog:", "SyncPermit:", "isPermitAllow:OPERATOR&LiveView&1", "listPermits:",
        f"isPermitAllowByUser:{USER}&LiveView&1", "getPermitValue:OPERATOR&LiveView", f"getGroupName:{USER}",
        f"GetCGIPermitFilter:{USER}&show&a=b", "SetSession:s", "CheckSession:s", "SetCaptcha:1&c",
        "CompareCaptcha:1&c", "UpdateCaptchaTime:1&c", "DelCaptchaItem:1&c")


def nested(name, depth):
    names = [name] + [f"E{level}" for level in range(1, depth)]
    return "".join(f"<{one}>" for one in names) + "v" + "".join(f"</{one}>" for one in names[::-1])


def deepest_document(device):
    device.write_file("/tmp/deep", f"<R>{nested('Deep2', DEEPEST - 1)}</R>")
    send(device, "upload:/tmp/deep", "restore:/tmp/deep", "syncxml:/tmp/deep", "read:*",
         "write:Deep.E1.E2.A=b\nDeep2.E1.E2.A=b", "download:/tmp/all", "remove:Deep.*")


def stack_rows(name, program):
    rows = ""
    for load, work, documents in (("every command", every_command, {}),
                                  ("deepest document", deepest_document, {"Deep": nested("Deep", DEEPEST)})):
        with Device(program) as device:
            device.copy_sample_database()
            device.write_documents(documents)
            device.start(environment=BIND_NOW)
            work(device)
            stacks = [Process(device, device.supervisor_pid).stack("main"),
                      *(Process(device, device.worker_pid).stack(thread) for thread in STACKS)]
        rows += f"| {name} | {load} | {' | '.join(map(str, stacks))} |\n"
    return rows


def start_ms(program):
    times = []
    for _ in range(ROUNDS):
        with Device(program) as device:
            device.copy_sample_database()
            begun = time.monotonic()
            device.start()
            times.append((time.monotonic() - begun) * 1000)
    return statistics.median(times)


def main():
    native, arm = (REPOSITORY / folder for folder in sys.argv[1:3])
    programs = ((platform.machine(), native / "bin/Veltrancord", "", native / "bin/Veltrancord"),
                ("32-bit ARM", arm / "bin/Veltrancord", "arm-linux-gnueabihf-",
                 arm / "emulated/Veltrancord"))
    text = HEAD.format(date=datetime.date.today().isoformat(), machine=platform.machine(),
                       release=platform.release())
    for name, program, prefix, _ in programs:
        sizes = (stripped_size(prefix + "strip", program), *sections(prefix + "size", program))
        text += f"| {name} | {' | '.join(map(str, sizes))} |\n"
    text += RESIDENT + "".join(resident_rows(name, start) for name, _, _, start in programs)
    threads = ["supervisor", *(f"worker: {thread}" for thread in STACKS)]
    text += STACK_TEXT.format(deepest=DEEPEST, threads=" | ".join(threads), rule="---|" * len(threads))
    text = text.rstrip("\n") + "\n"
    text += "".join(stack_rows(name, start) for name, _, _, start in programs)
    text += START.format(rounds=ROUNDS, ms=start_ms(str(native / "bin/Veltrancord")))
    (REPOSITORY / "docs/footprint.md").write_text(text)
    print(text)


if __name__ == "__main__":
    main()
