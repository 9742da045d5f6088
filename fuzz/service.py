#!/usr/bin/python3
"""All commands over the service's real socket, on a database that is as bad as can be.

    service.py SECONDS [--seed SEED] [--bin PROGRAM]     rounds until the time is over
    service.py --round SEED-NUMBER [--bin PROGRAM]       one round once more

Each round is a device of its own: damaged, deep and foreign files, some two hundred requests of every
kind, clients with bad manners, a worker that is started anew in between. It is a finding when the
service ends or hangs, answers what is no reply, when a sanitizer reports, or when a helper file stays.
./dev fuzz service runs it with the sanitizers' build.
"""

import argparse
import random
import socket
import struct
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "tests/e2e")]

import device as device_module
import nasty_database as nasty
from device import CONFIGURATION, EVENT_LOG, Device
from wire import frame

REQUESTS = 200  # of a round
HELPER = ".veltrancord-new."  # what the name of a file begins with that is on its way


class Finding(Exception):
    pass


def lay_out(device, chance):
    for name in nasty.file_names(chance):
        device.write_document(name.encode("latin-1").decode("latin-1"), nasty.document(chance, name))
    device.write_file(f"{CONFIGURATION}/{HELPER}Left", b"cut off")
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
        left = [name for name in device.list_directory(folder) if name.startswith(HELPER)]
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
            print(f"FOUND in round {name} (again: fuzz/service.py --round {name} --bin PROGRAM)\n{finding}",
                  flush=True)
            return False
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("seconds", type=float, nargs="?", default=60)
    parser.add_argument("--seed", default=str(random.SystemRandom().randrange(1 << 32)))
    parser.add_argument("--round")
    parser.add_argument("--bin", default=device_module.default_program)
    arguments = parser.parse_args()
    device_module.default_program = arguments.bin
    if arguments.round:
        return 0 if play_round(arguments.round) else 1
    print(f"fuzz: service, seed {arguments.seed}, {arguments.seconds:.0f} s", flush=True)
    end, rounds, found = time.monotonic() + arguments.seconds, 0, 0
    while time.monotonic() < end and found < 5:
        found += not play_round(f"{arguments.seed}-{rounds}")
        rounds += 1
    print(f"{rounds} rounds of {REQUESTS} requests, {found} findings")
    return 1 if found or rounds == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
