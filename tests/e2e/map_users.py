"""Enters a user namespace in which every user of this machine is who he is outside, and runs a
command there. For root alone, who may map others than himself.

Usage: map_users.py COMMAND [ARGUMENT...]
"""

import ctypes
import os
import sys

CLONE_NEWUSER = 0x10000000


def map_everybody(process):
    """Maps all that is mapped here to itself."""
    for name in ("uid_map", "gid_map"):
        with open(f"/proc/self/{name}", encoding="ascii") as file:
            ranges = [line.split() for line in file]
        with open(f"/proc/{process}/{name}", "w", encoding="ascii") as file:
            file.write("".join(f"{first} {first} {count}\n" for first, _, count in ranges))


def main():
    process = os.getpid()
    entered_read, entered_write = os.pipe()
    child = os.fork()
    if child == 0:  # stays outside, from where alone others can be mapped
        os.close(entered_write)
        if os.read(entered_read, 1):
            map_everybody(process)
            os._exit(0)
        os._exit(1)
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWUSER) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    os.write(entered_write, b"x")
    if os.waitpid(child, 0)[1] != 0:
        raise SystemExit("the users could not be mapped")
    os.execvp(sys.argv[1], sys.argv[1:])


main()
