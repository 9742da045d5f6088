"""A client inside a machine that is somebody else; peers.py starts it and tells it what to ask.

Usage: peer_process.py PLACE SERVICE USER GROUP FURTHER-GROUPS OWN-NAMESPACE

It listens at PLACE, becomes the user, and then sends each message that comes to the socket SERVICE,
as a request on a connection of its own. What comes back is the answer, empty where nothing does.
"""

import ctypes
import os
import socket
import struct
import sys
from multiprocessing.connection import Listener

CLONE_NEWUSER, PR_SET_DUMPABLE = 0x10000000, 4
libc = ctypes.CDLL(None, use_errno=True)


def check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), what)


def become(user, group, further):
    os.setgroups(further)
    os.setresgid(group, group, group)
    os.setresuid(user, user, user)


def enter_own_namespace(user, group):
    """Becomes root of a user namespace, as everybody may."""
    check(libc.prctl(PR_SET_DUMPABLE, 1, 0, 0, 0), "prctl")  # else its /proc belongs to root
    check(libc.unshare(CLONE_NEWUSER), "unshare")
    for name, text in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1")):
        with open(f"/proc/self/{name}", "w", encoding="ascii") as file:
            file.write(text)
    assert (os.getuid(), os.geteuid(), os.getgid()) == (0, 0, 0)


def exchange(service, payload):
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(60)
        client.connect(service)
        client.sendall(b"?" + struct.pack("<I", len(payload)) + payload)
        try:
            return b"".join(iter(lambda: client.recv(65536), b""))
        except ConnectionResetError:
            return b""


def main():
    place, service, user, group = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    further = [int(one) for one in sys.argv[5].split(",") if one]
    listener = Listener(place + ".new")
    os.rename(place + ".new", place)
    become(user, group, further)
    if sys.argv[6] == "1":
        enter_own_namespace(user, group)
    with listener.accept() as test:
        while True:
            try:
                payload = test.recv_bytes()
            except EOFError:
                return
            test.send_bytes(exchange(service, payload))


main()
