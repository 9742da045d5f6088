"""Clients of a device that are somebody else than root; see `Device(many_users=True)`."""

import itertools
import sys
from multiprocessing.connection import Client

from device import SOCKET
from machine import HERE
from wire import parse_reply


class Peer:
    """One user's process on a device, which asks the service what the test tells it to; use it in a
    `with` statement."""

    _numbers = itertools.count()

    def __init__(self, device, user, group=None, further=(), own_namespace=False):
        """`user`, `group` (as the user if not given) and `further`, the supplementary groups, are
        numbers; `own_namespace`: it is root of a user namespace of its own."""
        place = f"/run/peer-{next(self._numbers)}"
        self.pid, _ = device.launch(
            sys.executable, "-I", "-S", f"/run/host{HERE}/peer_process.py", place, SOCKET, str(user),
            str(user if group is None else group), ",".join(map(str, further)),
            "1" if own_namespace else "0")
        device.wait_for_file(place)
        self._process = Client(str(device.outside(place)))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.close()

    def request(self, payload):
        """One request. Return: the `wire.Reply`, as of `Device.request`."""
        self._process.send_bytes(payload.encode() if isinstance(payload, str) else payload)
        return parse_reply(self._process.recv_bytes())

    def hold(self, count):
        """Connects so often, until the service closes the last one. Return: how many it has not."""
        return int(self._tell(f"hold {count}"))

    def connect(self):
        """Connects once, for `ask`."""
        self._tell("connect")

    def ask(self, payload):
        """A request on the first connection that is held. Return: as `request`."""
        return parse_reply(self._tell("ask " + payload))

    def release(self):
        """Closes what is held."""
        self._tell("release")

    def _tell(self, words):
        self._process.send_bytes(b"\0" + words.encode())
        return self._process.recv_bytes()
