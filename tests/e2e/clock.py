"""A clock that tests can move, for the program alone: libfaketime, preloaded."""

import ctypes
import os
import time

LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"
SETTING = "/run/clock"  # the file that says what time it is
DAY_LONG_AGO = 1_000_000_000
NAMES = ("/clock-sem", "/clock-shm")  # of what the program's processes share, in /dev/shm


def environment(machine):
    """What lets a program that the library is loaded into go by the moved clock; made ready on the
    machine."""
    _share(machine)
    return {
        "FAKETIME_TIMESTAMP_FILE": SETTING,
        "FAKETIME_NO_CACHE": "1",
        "FAKETIME_DONT_RESET": "1",
        "FAKETIME_SHARED": " ".join(NAMES),
    }


def _share(machine):
    """Makes what the processes of a moved clock share. Left to itself, libfaketime has the first
    process make it and take it away at its end; that is the starter, and every program that is
    started later would then refuse to run."""
    libc = ctypes.CDLL(None, use_errno=True)
    libc.sem_open.restype = ctypes.c_void_p
    name = f"/clock-{os.getpid()}-{machine.init_pid}"
    semaphore = libc.sem_open(name.encode(), os.O_CREAT, 0o600, 1)
    if not semaphore:
        raise OSError(ctypes.get_errno(), "sem_open")
    libc.sem_close(ctypes.c_void_p(semaphore))
    made = f"/dev/shm/sem.{name[1:]}"
    with open(made, "rb") as file:
        machine.write_file("/dev/shm/sem." + NAMES[0][1:], file.read())
    os.unlink(made)
    machine.write_file("/dev/shm" + NAMES[1], bytes(16) + b"\xff" * 4080)


def _set(machine, text):
    """In one step: the program reads the file at every look at the clock, and where it found it
    empty its clock would jump to the true time and back."""
    machine.write_file(SETTING + ".new", text + "\n")
    os.rename(machine.outside(SETTING + ".new"), machine.outside(SETTING))


def move(machine, seconds, rate):
    _set(machine, f"{seconds:+}" + (f" x{rate}" if rate != 1 else ""))


def stop(machine, seconds):
    moment = time.gmtime(DAY_LONG_AGO + seconds)
    _set(machine, time.strftime("%Y-%m-%d %H:%M:%S", moment))
