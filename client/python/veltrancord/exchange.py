"""One request and its reply: the one place of the module that frames bytes."""

from __future__ import annotations

import errno
import os
import socket
import struct
import time
from typing import NamedTuple, Optional

from .errors import Result, TimedOut, error_of

DEFAULT_SOCKET = "/tmp/Veltrancord.unix"
START_CODE = b"?"

_FIRST_PAUSE = 0.001
_LONGEST_PAUSE = 0.05


class Reply(NamedTuple):
    """What the service answered: its result, and the text behind it (none for counts)."""

    code: int
    body: bytes


class _Deadline:
    def __init__(self, timeout: Optional[float]) -> None:
        self._at = None if timeout is None else time.monotonic() + timeout

    def left(self) -> Optional[float]:
        """Seconds left, 0.0 when it has passed, None when it never comes."""
        return None if self._at is None else max(0.0, self._at - time.monotonic())

    def arm(self, connection: socket.socket) -> None:
        left = self.left()
        if left == 0.0:
            raise error_of(Result.TIMED_OUT)
        connection.settimeout(left)


def frame(payload: bytes) -> bytes:
    """The request frame around a payload."""
    return START_CODE + struct.pack("<I", len(payload)) + payload


def _connect(
    path: str, deadline: _Deadline, wait_for_socket: bool, retry: bool
) -> socket.socket:
    pause = _FIRST_PAUSE
    while True:
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_CLOEXEC)
        try:
            # A blocking connect waits in the kernel while the backlog is full; one with Python's
            # own time-out would fail at once.
            left = deadline.left()
            if left is not None:
                microseconds = max(1, int(left * 1_000_000))
                connection.setsockopt(
                    socket.SOL_SOCKET, socket.SO_SNDTIMEO,
                    struct.pack("@ll", *divmod(microseconds, 1_000_000)))
            connection.connect(path)
            return connection
        except OSError as failure:
            connection.close()
            if failure.errno == errno.EAGAIN:
                raise error_of(Result.TIMED_OUT) from failure
            passing = retry and (failure.errno == errno.ECONNREFUSED or (
                wait_for_socket and failure.errno == errno.ENOENT))
            if not passing or deadline.left() == 0.0:
                detail = os.strerror(failure.errno) if failure.errno else str(failure)
                raise error_of(Result.UNREACHABLE, detail, subject=path) from failure
        except BaseException:
            connection.close()
            raise
        left = deadline.left()
        time.sleep(pause if left is None else min(pause, left))
        pause = min(2 * pause, _LONGEST_PAUSE)


def _receive(connection: socket.socket, deadline: _Deadline, count: int) -> bytes:
    """Up to `count` bytes, fewer only at the end of the connection."""
    parts = bytearray()
    while len(parts) < count:
        deadline.arm(connection)
        try:
            part = connection.recv(min(count - len(parts), 1 << 20))
        except ConnectionResetError:
            break
        if not part:
            break
        parts += part
    return bytes(parts)


def _receive_reply(
    connection: socket.socket, deadline: _Deadline, cap: int, has_text: Optional[bool],
    until_end: bool,
) -> Reply:
    head = _receive(connection, deadline, 4)
    if not head:
        raise error_of(Result.NO_REPLY)
    if len(head) < 4:
        raise error_of(Result.BROKEN_REPLY)
    (code,) = struct.unpack("<i", head)
    body = b""
    if code > 0 and has_text is not False:
        if code > cap:
            # A count comes alone, however large it is.
            if has_text or _receive(connection, deadline, 1):
                raise error_of(Result.REPLY_OVER_CAP, bound=cap, found=code)
        else:
            body = _receive(connection, deadline, code)
        if len(body) not in (0, code) or (has_text and not body):
            raise error_of(Result.BROKEN_REPLY)
    if until_end and _receive(connection, deadline, 1):
        raise error_of(Result.BROKEN_REPLY, "bytes behind the reply")
    return Reply(code, body)


def exchange(
    path: str,
    payload: bytes,
    *,
    timeout: Optional[float],
    cap: int,
    wait_for_socket: bool = False,
    retry: bool = True,
    has_text: Optional[bool] = None,
    until_end: bool = False,
) -> Reply:
    """Sends one request and receives its reply, failures of the service included.

    timeout    seconds for all of it; None: no limit
    cap        largest text accepted
    retry      whether a refused connection is tried again until the deadline
    has_text   whether a positive result announces a text; None: the connection's end tells
    until_end  wait for the service to close, and take bytes behind the reply as a fault
    """
    deadline = _Deadline(timeout)
    connection = _connect(path, deadline, wait_for_socket, retry)
    try:
        try:
            deadline.arm(connection)
            connection.sendall(frame(payload))  # Python ignores SIGPIPE
        except (BrokenPipeError, ConnectionResetError) as failure:
            raise error_of(Result.NO_REPLY) from failure
        return _receive_reply(connection, deadline, cap, has_text, until_end)
    except TimeoutError as failure:
        if isinstance(failure, TimedOut):
            raise
        raise error_of(Result.TIMED_OUT) from failure
    finally:
        connection.close()
