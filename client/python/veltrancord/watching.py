"""Watching: the kernel tells that a document's file was replaced, the service what it holds now."""

from __future__ import annotations

import collections
import ctypes
import errno
import os
import re
import select
import struct
import time
from typing import (TYPE_CHECKING, Deque, Dict, Iterator, List, NamedTuple, Optional, Sequence,
                    Tuple)

from . import bounds
from .errors import Error, NotFound, Result, error_of

if TYPE_CHECKING:
    from types import TracebackType
    from typing import Type

    from .client import Client

DEFAULT_DIRECTORY = "/mnt/database/xml"

_IN_CLOSE_WRITE, _IN_MOVED_FROM, _IN_MOVED_TO, _IN_DELETE = 0x8, 0x40, 0x80, 0x200
_IN_DELETE_SELF, _IN_MOVE_SELF, _IN_UNMOUNT, _IN_IGNORED = 0x400, 0x800, 0x2000, 0x8000
_IN_ONLYDIR = 0x1000000
_EVENTS = (_IN_CLOSE_WRITE | _IN_MOVED_FROM | _IN_MOVED_TO | _IN_DELETE | _IN_DELETE_SELF
           | _IN_MOVE_SELF | _IN_ONLYDIR)
_GONE = _IN_DELETE_SELF | _IN_MOVE_SELF | _IN_UNMOUNT | _IN_IGNORED
_EVENT = struct.Struct("=iIII")

# A document whose name the service keeps escaped has a file of another name.
_PLAIN = re.compile(rb"[A-Za-z0-9-]+")

_Held = Dict[Tuple[str, int], str]  # by path, and its number among settings of one path


class Change(NamedTuple):
    """A setting that is no longer what it was."""

    path: str  # as `Client.read` tells it
    before: Optional[str]  # None: there was none
    after: Optional[str]  # None: there is none any more


def _watch_directory(directory: str) -> int:
    """Return: a descriptor with the directory's events."""
    libc = ctypes.CDLL(None, use_errno=True)
    descriptor = int(libc.inotify_init1(os.O_CLOEXEC | os.O_NONBLOCK))
    if descriptor >= 0 and libc.inotify_add_watch(
            descriptor, os.fsencode(directory), _EVENTS) >= 0:
        return descriptor
    code = ctypes.get_errno()
    if descriptor >= 0:
        os.close(descriptor)
    raise error_of(Result.SYSTEM_ERROR, os.strerror(code), subject=directory)


class _Path:
    """One path that is watched, and what was told of it."""

    def __init__(self, path: str) -> None:
        data = bounds.path_bytes(path, bounds.MAX_READ_PATH)
        document = data.split(b".")[0]
        self.path = path
        self.document = document if _PLAIN.fullmatch(document) else None
        self.stale = False  # a file was replaced since it was read
        self.held: _Held = {}

    def read(self, client: Client) -> _Held:
        held: _Held = {}
        seen: Dict[str, int] = collections.Counter()
        try:
            for path, value in client.read(self.path):
                held[path, seen[path]] = value
                seen[path] += 1
        except NotFound:
            pass
        return held

    def changes(self, client: Client) -> List[Change]:
        """Reads it again. Return: what is not as it was, sorted by path."""
        now = self.read(client)
        before, self.held, self.stale = self.held, now, False
        return [Change(key[0], before.get(key), now.get(key))
                for key in sorted(before.keys() | now.keys())
                if before.get(key) != now.get(key)]


class Watch:
    """What `Client.watch` gives: iterate over it, or ask it for the `next` change. There is no
    thread. Close it, or use it in a `with` statement."""

    def __init__(self, client: Client, paths: Sequence[str], directory: str) -> None:
        self._descriptor = -1
        if not paths:
            raise error_of(Result.INVALID_USE)
        self._client = client
        self._directory = directory
        self._found: Deque[Change] = collections.deque()
        self._gone = False
        self._paths: List[_Path] = []
        for path in paths:
            try:
                self._paths.append(_Path(path))
            except Error as failure:
                failure.about(path)
                raise
        # Before the first read, so that no change falls between them.
        self._descriptor = _watch_directory(directory)
        try:
            for one in self._paths:
                one.held = one.read(client)
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Ends the watch."""
        if self._descriptor >= 0:
            os.close(self._descriptor)
            self._descriptor = -1

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], value: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def fileno(self) -> int:
        """For `select` and its kind, in a program that waits for other things as well or wants to be
        able to stop waiting: readable when there may be changes. Ask for `next(0)` until it gives
        None before each wait."""
        return self._descriptor

    def _take_events(self) -> None:
        while True:
            try:
                data = os.read(self._descriptor, 65536)
            except BlockingIOError:
                return
            offset = 0
            while offset < len(data):
                _, mask, _, length = _EVENT.unpack_from(data, offset)
                offset += _EVENT.size
                name = data[offset:offset + length].rstrip(b"\0")
                offset += length
                self._gone = self._gone or bool(mask & _GONE)
                # Files that begin with a dot are none of documents, but helpers on their way to be
                # one. Without a name the kernel's queue was full: any file may have changed.
                if not name.startswith(b"."):
                    for one in self._paths:
                        one.stale = one.stale or not name or one.document in (None, name)

    def _wait(self, left: Optional[float]) -> bool:
        """Return: whether there is something to take."""
        poller = select.poll()  # takes descriptors of any number
        poller.register(self._descriptor, select.POLLIN)
        return bool(poller.poll(None if left is None else left * 1000))

    def next(self, timeout: Optional[float] = None) -> Optional[Change]:
        """The next change, waited for at most `timeout` seconds (None: for ever); None when the time
        is over. Changes that were found together come one by one. A read that fails raises and is
        tried again by the next call, so nothing is missed while the service restarts; pause before
        that call. When the directory itself has gone the watch is over: `Error` with
        `Result.SYSTEM_ERROR`."""
        if self._descriptor < 0:
            raise ValueError("the watch is closed")
        end = None if timeout is None else time.monotonic() + timeout
        last_look = False
        while not self._found:
            for one in self._paths:
                if one.stale:
                    self._found.extend(one.changes(self._client))
            if self._found:
                break
            if self._gone:
                raise error_of(Result.SYSTEM_ERROR, os.strerror(errno.ENOENT),
                               subject=self._directory)
            # Saves that change nothing here, one after another, must not hold the caller.
            if last_look:
                return None
            left = None if end is None else max(0.0, end - time.monotonic())
            last_look = left == 0.0
            if not self._wait(left):
                return None
            self._take_events()
        return self._found.popleft()

    def __iter__(self) -> Iterator[Change]:
        while True:
            change = self.next()
            if change is not None:
                yield change
