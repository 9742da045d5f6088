#!/usr/bin/python3
"""All commands over the service's real socket, on a database that is as bad as can be.

    service.py SECONDS [--seed SEED] [--bin PROGRAM]     rounds until the time is over
    service.py --round SEED-NUMBER [--bin PROGRAM]       one round once more

Each round is a device of its own: damaged, deep and foreign files, some two hundred requests of every
kind, clients with bad manners, a worker that is started anew in between. It is a finding when the
service ends or hangs, answers what is no reply, when a sanitizer reports, or when a temporary file stays.
./dev fuzz service runs it with the sanitizers' build.
"""

import random
import socket
import struct
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "tests/e2e")]

import nasty_database as nasty
import rounds
from device import CONFIGURATION, EVENT_LOG, Device
from wire import frame

REQUESTS = 200  # of a round
TEMPORARY = ".veltrancord-new."  # what the name of a temporary file begins with


class Finding(Exception):
    pass


def lay_out(device, chance):
    for name in nasty.file_names(chance):
        device.write_document(name.encode("latin-1").decode("latin-1"), nasty.document(chance, name))
    device.write_file(f"{CONFIGURATION}/{TEMPORARY}Left", b"cut off")
    if chance.random() < 0.3:
        device.copy_sample_database()
    if chance.random() < 0.7:
        device.write_file(EVENT_LOG, nasty.log_file(chance))
    for number in range(3):
        device.write_file(f"/tmp/in{number}", nasty.exchange_file(chance))
    script = "#!/bin/sh\nread -r line\nexit 0\n"
    for path in ("/tmp/hook.sh", "/tmp/BackupXmlDB.sh"):
        device.install_script(path, script)
    device.make_directory("/tmp/full")
    device.mount_tmpfs("/tmp/full", size="4k")


def misbehave(device, chance):
    """A client whom no reply is owed."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.settimeout(device.patience)
        client.connect(device.socket_path)
        whole = frame(nasty.payload(chance))
        pieces = chance.choice([
            [b""], [b"?"], [chance.randbytes(30)], [whole[:chance.randrange(len(whole))]],
            [b"?" + struct.pack("<I", chance.choice([0, 0xFFFFFFFF, 0x7FFFFFFF])), b"read:*"],
            [frame(chance.randbytes(chance.randrange(1, 300)))],
            [whole[:1], whole[1:5], whole[5:]],
            [whole, whole],
        ])
        try:
            for piece in pieces:
                client.sendall(piece)
        except (BrokenPipeError, ConnectionResetError):
            pass


def look(device, worker, asked):
    """Raises a Finding when something is wrong that can be told while the service runs."""
    if device.worker_pid != worker or device.request("geteventcount:").code is None:
        raise Finding(f"it does not serve any more after {asked!r}")


def look_after_the_end(device):
    if findings := device.sanitizer_findings():
        raise Finding(findings)
    for folder in (CONFIGURATION, str(Path(EVENT_LOG).parent), "/tmp", "/tmp/full"):
        left = [name for name in device.list_directory(folder) if name.startswith(TEMPORARY)]
        if left:
            raise Finding(f"{folder} still holds {left}")


def play(device, chance, requests=REQUESTS):
    """One round on a device that has not been started. Raises a Finding."""
    lay_out(device, chance)
    asked = []
    try:
        device.start()
        worker = device.worker_pid
        for _ in range(requests):
            share = chance.random()
            if share < 0.05:
                misbehave(device, chance)
            elif share < 0.06:
                device.power_cut() if chance.random() < 0.5 else device.stop()
                device.start()
                worker = device.worker_pid
            else:
                if share < 0.1:
                    device.write_file(f"/tmp/in{chance.randrange(3)}", nasty.exchange_file(chance))
                asked = [*asked[-2:], nasty.payload(chance)]
                device.request(asked[-1])
        look(device, worker, asked)
        device.stop()
    except (OSError, AssertionError, TimeoutError) as trouble:
        raise Finding(f"{trouble!r} after {[one[:300] for one in asked]}\n{device.output()[-3000:]}"
                      f"\n{device.sanitizer_findings()}") from trouble
    look_after_the_end(device)


def play_round(name):
    """Return: whether the round of that name has found nothing."""
    with Device() as device:
        try:
            play(device, random.Random(name))
        except Finding as finding:
            rounds.tell("service.py", name, finding)
            return False
    return True


if __name__ == "__main__":
    sys.exit(rounds.play(__doc__.splitlines()[0], play_round, f"{REQUESTS} requests"))
