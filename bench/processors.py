"""Which processor servers and clients run on.

A server that is moved about, or whose processor sleeps between two requests and is woken for each,
is seen to cost twice as much in one round and not in the next. So the servers, all of them, are
kept on one processor. A single client takes turns with the server on that processor, as it does on
a device that has only one; sixteen clients run on the others and keep the server busy.
"""

from __future__ import annotations

import os
import pathlib

SERVERS: int | None = None  # None: there is only one


def set_one_aside() -> None:
    """Leaves the last processor to the servers, for this program and all that it starts."""
    global SERVERS
    mine = sorted(os.sched_getaffinity(0))
    if len(mine) > 1:
        SERVERS = mine.pop()
        os.sched_setaffinity(0, mine)


def keep_server(pid: int) -> None:
    """Keeps all threads of a server on the servers' processor."""
    if SERVERS is not None:
        for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
            os.sched_setaffinity(int(task.name), {SERVERS})
