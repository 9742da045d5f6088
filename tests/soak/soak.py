"""A long life under mixed load: does the worker keep its memory and its descriptors?

Some clients ask for everything that the service offers, a hundredth of them with bad manners; the
event log comes round, programs are started, backups run. Every few seconds the load pauses, so that
what is counted then is nobody's request: memory, descriptors, threads, zombies. At the end a verdict
and figures; the exit status is 0 only when nothing grows and every reply was as it had to be.

    ./dev soak [MINUTES]        10 unless told otherwise
"""

import argparse
import random
import socket
import statistics
import struct
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))

import device as device_module
from device import Device, wait_until
from log_model import record
from wire import frame

CLIENTS = 4
HOSTILE_SHARE = 0.01
SAMPLES = 60  # in all; the first quarter is warm-up, and no less than WARM_UP_SECONDS
WARM_UP_SECONDS = 30  # until then buffers grow to the largest request and reply of each kind
BACKUP_SECONDS = 330  # a shorter run cannot see one: the interval is five minutes at least
SLACK_KIB = 128  # what an allocator may still add in pages that it has only now had a use for

EXCHANGE = "<ROOT>\n" + "".join(
    f"<Soak{n}><A>{n}</A><B x='y'>text</B></Soak{n}>" for n in range(3)) + "</ROOT>"


def documents():
    """The sample configuration is loaded too; these are for programs and for writes."""
    return {"Hook": '<Hook><Run DispatchW="/tmp/hook.sh">x</Run><Plain>y</Plain></Hook>'}


READS = ["read:*", "read:Account.*", "read:Network.*", "readAndFilter:*", "readwithlevel:Account.*&1",
         "readvalue:System.Name", "read:Nothing.here", "readattr:Account.*", "readattr:Account.*.Level",
         "readsingleattr:Hook.Run.DispatchW", "listPermits:", "getGroupName:admin", "geteventcount:",
         "maxlogcount:", "isPermitAllow:Admin&Network", "GetCGIPermitFilter:admin&apply&x",
         "isPermitAllowByUser:admin&Network", "getPermitValue:Admin&Network", "readlog:1&-1&50",
         "readlog:2&-1&50", "readlog:3&-1&50", "nosuchcommand:", "CheckSession:t1", "read:" + "x" * 600]


def changes(chance):
    """A request that changes something, but makes nothing grow for good."""
    number = chance.randrange(20)
    return chance.choice([
        f"write:Hook.V{number}={'v' * chance.randrange(200)}",
        f"writedbmem:Hook.M{number}={'m' * chance.randrange(200)}",
        f"write:Hook.Secret.Password={'p' * chance.randrange(100)}\nHook.V{number}=1",
        f"writeattr:Hook.Plain.a{number}={chance.randrange(9)}",
        f"remove:Hook.V{number}", "syncmemtoflash:", "write:Gone.x=1", "write:",
        f"SetSession:t{number}", f"SetCaptcha:id{number}&abc", f"CompareCaptcha:id{number}&abc&1",
        f"UpdateCaptchaTime:id{number}&abc", f"DelCaptchaItem:id{number}&abc",
        record_request(chance), record_request(chance), record_request(chance)])


def record_request(chance):
    return b"writelog:" + record(1 << chance.randrange(8), text=b"soak")


RARE = ["upload:/tmp/exchange", "restore:/tmp/exchange", "syncxml:/tmp/exchange", "SyncPermit:",
        "download:/tmp/out", "write:Hook.Run=now", "XMLDBCallBack:soak", "remove:Soak1.*",
        "upload:/tmp/broken"]
CLEANING_SHARE = 0.00002  # so rare that the log comes round in between


def request_of(chance):
    share = chance.random()
    if share < CLEANING_SHARE:
        return "cleanlog:"
    if share < 0.005:
        return chance.choice(RARE)
    return changes(chance) if share < 0.3 else chance.choice(READS)


# ---- bad manners ---------------------------------------------------------------------------------

def hostile(path, chance):
    """One connection of somebody who means no good, or has crashed; none is owed a reply."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.settimeout(60)
        client.connect(path)
        whole = frame(request_of(chance))
        chance.choice([
            lambda: None,  # nothing at all
            lambda: client.sendall(chance.randbytes(200).replace(b"?", b"!")),
            lambda: client.sendall(b"?"),
            lambda: client.sendall(b"?\x05\0"),
            lambda: client.sendall(b"?" + struct.pack("<I", 0xFFFFFFFF) + b"read:x"),
            lambda: client.sendall(b"?" + struct.pack("<I", 0)),
            lambda: client.sendall(whole[:chance.randrange(len(whole))]),  # cut anywhere
            lambda: client.sendall(frame(chance.randbytes(chance.randrange(1, 300)))),
            lambda: client.sendall(frame("read:*")),  # and never reads
            lambda: client.sendall(frame("write:" + "=" * 3000)),
            lambda: client.sendall(frame("\0:" + "x" * 5000)),
        ])()


# ---- the run -------------------------------------------------------------------------------------

class Load:
    """Clients that can be paused."""

    def __init__(self, device):
        self.device = device
        self.path = device.socket_path
        self.open = threading.Event()
        self.ended = False
        self.busy = 0
        self.requests = self.hostile = 0
        self.faults = []
        self.lock = threading.Lock()
        self.threads = [threading.Thread(target=self._client, args=(seed,), daemon=True)
                        for seed in range(CLIENTS)]
        for thread in self.threads:
            thread.start()

    def _client(self, seed):
        chance = random.Random(seed)
        while not self.ended:
            self.open.wait()
            with self.lock:
                self.busy += 1
            try:
                self._one(chance)
            except Exception as failure:  # any: it is told at the end
                with self.lock:
                    self.faults.append(repr(failure))
                if len(self.faults) > 20:
                    self.ended = True
            finally:
                with self.lock:
                    self.busy -= 1

    def _one(self, chance):
        if chance.random() < HOSTILE_SHARE:
            hostile(self.path, chance)
            with self.lock:
                self.hostile += 1
            return
        request = request_of(chance)
        reply = self.device.request(request)
        with self.lock:
            self.requests += 1
        assert reply.code is not None, f"no reply to {request[:60]!r}"

    def pause(self):
        self.open.clear()
        wait_until(lambda: self.busy == 0, "the clients have paused", 120)

    def end(self):
        self.ended = True
        self.open.set()
        for thread in self.threads:
            thread.join(120)


class Sample:
    def __init__(self, device, worker, supervisor, began):
        self.seconds = time.monotonic() - began
        self.memory = device.memory_kilobytes(worker, "RssAnon")
        self.descriptors = (len(device.open_descriptors(worker)),
                            len(device.open_descriptors(supervisor)))
        self.threads = device.thread_count(worker)
        self.entries = device.request("geteventcount:").code


def is_quiet(device, worker, idle):
    """The last connections are let go and the last started programs have been reaped."""
    return (len(device.open_descriptors(worker)) <= idle
            and not any(p.state == "Z" and p.parent == worker for p in device.processes()))


def run(device, minutes):
    device.copy_sample_database()
    device.write_documents(documents())
    device.write_file("/tmp/exchange", EXCHANGE)
    device.write_file("/tmp/broken", "<ROOT><A>")
    device.install_script("/tmp/hook.sh", "#!/bin/sh\nread line\necho run >>/tmp/hooks\n")
    device.install_script("/tmp/BackupXmlDB.sh", '#!/bin/sh\necho "$1" >>/tmp/backups\n')
    device.start()
    worker, supervisor = device.worker_pid, device.supervisor_pid
    assert device.request("geteventcount:").code == 0
    idle = len(device.open_descriptors(worker))
    load, samples = Load(device), []
    began = time.monotonic()
    for number in range(SAMPLES):
        load.open.set()
        end = began + minutes * 60 * (number + 1) / SAMPLES
        while time.monotonic() < end and not load.ended:
            time.sleep(0.05)
        load.pause()
        # A pass of the worker's main loop reaps: ten seconds at most where nothing wakes it.
        wait_until(lambda: is_quiet(device, worker, idle), "everything is let go of", 120)
        samples.append(Sample(device, worker, supervisor, began))
        device.forget_output()
        assert device.worker_pid == worker, "the worker was started anew"
        if load.ended:
            break
    load.end()
    return load, samples


def judge(device, load, samples):
    """Prints the figures. Return: whether all is well."""
    warm = samples[len(samples) // 4:]
    late = [s for s in warm if s.seconds >= WARM_UP_SECONDS] or warm
    third = max(1, len(late) // 3)
    growth = (statistics.median(s.memory for s in late[-third:])
              - statistics.median(s.memory for s in late[:third]))
    descriptors = {s.descriptors for s in samples}
    threads = {s.threads for s in samples}
    backups = device.read_file("/tmp/backups").decode().split() \
        if device.file_exists("/tmp/backups") else []
    hooks = device.read_file("/tmp/hooks").count(b"\n") if device.file_exists("/tmp/hooks") else 0
    duration = samples[-1].seconds
    print(f"duration      {duration:.0f} s, {len(samples)} samples")
    print(f"requests      {load.requests} ({load.requests / duration:.0f}/s), "
          f"and {load.hostile} hostile connections")
    full = device.request("maxlogcount:").code
    print(f"event log     {samples[-1].entries} of {full} entries held, full at "
          f"{sum(s.entries == full for s in samples)} samples")
    print(f"programs      {hooks} started by writes, backups {backups.count('internal')} by the "
          f"thread and {backups.count('soak')} by request")
    print(f"memory        {samples[0].memory} KiB at first, {late[0].memory} after warm-up, "
          f"{samples[-1].memory} at last; growth after warm-up {growth:+.0f} KiB")
    print(f"descriptors   worker and supervisor {sorted(descriptors)}, threads {sorted(threads)}")
    faults = list(load.faults)
    if growth > SLACK_KIB:
        faults.append(f"memory grows: {growth:.0f} KiB over {late[-1].seconds - late[0].seconds:.0f} s")
    if len(descriptors) != 1 or len(threads) != 1:
        faults.append("descriptors or threads are not flat")
    if all(s.entries != full for s in samples):
        faults.append("the run was too short: the log has not come round")
    backed_up = "internal" in backups or duration < BACKUP_SECONDS
    if load.hostile == 0 or hooks == 0 or not backed_up:
        faults.append("the run was too short: something of the load has not happened")
    for fault in faults:
        print(f"fault         {fault}")
    print("verdict       " + ("FAILED" if faults else "passed"))
    return not faults


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("minutes", nargs="?", type=float, default=10)
    arguments.add_argument("--bin", default=device_module.default_program)
    chosen = arguments.parse_args()
    with Device(chosen.bin) as device:
        try:
            load, samples = run(device, chosen.minutes)
            well = judge(device, load, samples)
        except Exception:
            print(device.output()[-4000:], file=sys.stderr)
            raise
        findings = device.sanitizer_findings()
        if findings:
            print(findings)
    sys.exit(0 if well and not findings else 1)


if __name__ == "__main__":
    main()
