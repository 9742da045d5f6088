"""The wire protocol from a client's side.

`Client` is one connection: raw bytes in both directions, every wait bounded. Most tests need only
`Device.request`, which is built on it.
"""

import socket
import struct
import sys
import time
from pathlib import Path
from typing import NamedTuple, Optional

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "client/python"))

import veltrancord
from veltrancord.exchange import exchange as shipped_exchange

START_CODE = b"?"


class ProtocolError(AssertionError):
    """The server sent something that no reply can be."""


def frame(payload):
    """The request frame around a payload (text is sent as UTF-8)."""
    if isinstance(payload, str):
        payload = payload.encode()
    return START_CODE + struct.pack("<I", len(payload)) + payload


class Reply(NamedTuple):
    """What came back. `code` is None when the server closed the connection without a reply."""

    code: Optional[int]
    body: bytes

    @property
    def text(self):
        return self.body.decode("latin-1")

    @property
    def lines(self):
        """The body's lines, each without its line feed."""
        return self.text.split("\n")[:-1] if self.body.endswith(b"\n") else self.text.split("\n")


NO_REPLY = Reply(None, b"")


def lines(*texts):
    """The text of a listing of these lines."""
    return "".join(text + "\n" for text in texts)


def parse_reply(data):
    """Makes a `Reply` of everything that a connection brought until its end.

    A positive code comes with exactly that many bytes, or with none where the code is a count; a
    code of 0 or below comes alone. Anything else raises `ProtocolError`.
    """
    if not data:
        return NO_REPLY
    if len(data) < 4:
        raise ProtocolError(f"a reply of {len(data)} bytes: {data!r}")
    (code,) = struct.unpack("<i", data[:4])
    body = data[4:]
    if body and len(body) != code:
        raise ProtocolError(f"code {code}, but {len(body)} bytes behind it")
    return Reply(code, body)


class Client:
    """One connection to the service; also a context manager that closes it.

    Unless `wait`, connecting raises BlockingIOError when the backlog is full.
    """

    def __init__(self, path, timeout=60.0, wait=True):
        self.timeout = timeout
        self.was_reset = False  # the server closed while bytes of ours lay unread
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_CLOEXEC)
        try:
            # A full backlog is waited for only by a blocking connect; the kernel bounds it.
            limit = struct.pack("@ll", int(timeout), int(timeout % 1 * 1e6))
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, limit)
            self.socket.setblocking(wait)
            self.socket.connect(path)
        except OSError:
            self.socket.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()

    def send(self, data):
        """Sends raw bytes, all of them."""
        self.socket.settimeout(self.timeout)
        self.socket.sendall(data)

    def send_request(self, payload):
        """Sends one whole frame."""
        self.send(frame(payload))

    def send_byte_by_byte(self, data, pause=0.0):
        for byte in data:
            self.send(bytes([byte]))
            if pause:
                time.sleep(pause)

    def half_close(self):
        """Tells the server that nothing more will be sent."""
        self.socket.shutdown(socket.SHUT_WR)

    def receive(self, count):
        """Up to `count` bytes, fewer only at the connection's end."""
        deadline = time.monotonic() + self.timeout
        data = bytearray()
        while len(data) < count:
            left = deadline - time.monotonic()
            if left <= 0:
                raise TimeoutError(f"{len(data)} of {count} bytes within {self.timeout} s")
            self.socket.settimeout(left)
            try:
                part = self.socket.recv(min(1 << 20, count - len(data)))
            except ConnectionResetError:
                self.was_reset = True
                break
            if not part:
                break
            data += part
        return bytes(data)

    def receive_reply(self):
        """Everything until the server closes, as a `Reply`."""
        return parse_reply(self.receive(1 << 40))

    def is_open(self, seconds=0.0):
        """Whether the server has neither closed the connection nor sent anything for so long."""
        self.socket.settimeout(seconds if seconds > 0 else 0.001)
        try:
            self.socket.recv(1, socket.MSG_PEEK)
        except TimeoutError:
            return True
        except ConnectionResetError:
            pass
        return False


def exchange(path, payload, timeout=60.0):
    """One whole request on a connection of its own, by the client module that is shipped. A server
    that cannot be reached raises the system's own OSError at once.

    Return: the `Reply`.
    """
    if isinstance(payload, str):
        payload = payload.encode()
    try:
        return Reply(*shipped_exchange(path, payload, timeout=timeout, cap=1 << 30, retry=False,
                                       until_end=True))
    except veltrancord.Unreachable as failure:
        raise failure.__cause__
    except veltrancord.Error as failure:
        if failure.code == veltrancord.Result.NO_REPLY:
            return NO_REPLY
        if failure.code == veltrancord.Result.BROKEN_REPLY:
            raise ProtocolError(str(failure)) from failure
        raise
