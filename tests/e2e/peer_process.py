"""A client inside a machine that is somebody else; peers.py starts it and tells it what to ask.

Usage: peer_process.py PLACE SERVICE USER GROUP FURTHER-GROUPS OWN-NAMESPACE

It listens at PLACE, becomes the user, and then sends each message that comes to the socket SERVICE,
as a request on a connection of its own. What comes back is the answer, empty where nothing does.

Messages that begin with a zero byte are for itself: "hold NUMBER" connects so often, until the service
closes the last one, and answers with the number of those that it has not closed; "connect" connects
once, "ask REQUEST" sends a request on the first of these connections, and "release" closes them.
"""

import ctypes
import os
import resource
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
    if (user, group) == (os.getuid(), os.getgid()) and not further:
        return  # where root alone is mapped he may not set his groups
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


def connect(service):
    client = socket.socket(socket.AF_UNIX)
    client.connect(service)  # only without a timeout it waits while the backlog is full
    client.settimeout(60)
    return client


def ask(client, payload):
    try:
        client.sendall(b"?" + struct.pack("<I", len(payload)) + payload)
        return b"".join(iter(lambda: client.recv(65536), b""))
    except (BrokenPipeError, ConnectionResetError):
        return b""


def is_open(client):
    client.setblocking(False)
    try:
        return client.recv(1, socket.MSG_PEEK) != b""
    except BlockingIOError:
        return True
    except ConnectionResetError:
        return False
    finally:
        client.settimeout(60)


class Holder:
    """The connections that are held."""

    def __init__(self, service):
        self.service = service
        self.clients = []

    def perform(self, words):
        what, _, argument = words.partition(b" ")
        if what == b"hold":
            self.clients += [connect(self.service) for _ in range(int(argument))]
            self.clients[-1].recv(1)  # its end; the service has seen those before it then
            return b"%d" % sum(map(is_open, self.clients))
        if what == b"connect":
            self.clients.append(connect(self.service))
        elif what == b"ask":
            return ask(self.clients[0], argument)
        elif what == b"release":
            for client in self.clients:
                client.close()
            self.clients.clear()
        return b""


def main():
    place, service, user, group = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    further = [int(one) for one in sys.argv[5].split(",") if one]
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    listener = Listener(place + ".new")
    os.rename(place + ".new", place)
    become(user, group, further)
    if sys.argv[6] == "1":
        enter_own_namespace(user, group)
    holder = Holder(service)
    with listener.accept() as test:
        while True:
            try:
                payload = test.recv_bytes()
            except EOFError:
                return
            if payload[:1] == b"\0":
                test.send_bytes(holder.perform(payload[1:]))
                continue
            with connect(service) as client:
                test.send_bytes(ask(client, payload))


main()
