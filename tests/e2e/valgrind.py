"""The service under valgrind: reads of what was never written, lost memory, descriptors left open.

Every process that the program forks is watched and has a report of its own; the programs that it
starts are the device's and are not.
"""

import re

from machine import LOGS

COMMAND = ("valgrind", "--leak-check=full", "--show-leak-kinds=definite,indirect",
           "--errors-for-leak-kinds=definite,indirect", "--track-fds=yes", "--trace-children=no",
           f"--log-file={LOGS}/valgrind.%p")

_DESCRIPTOR = re.compile(r"^==\d+== Open (?:AF_UNIX socket|file descriptor) \d+: *(.*)\n"
                         r"==\d+==    (.*)", re.M)


def reports(machine):
    """The text of each process's report."""
    return [log.read_text(errors="replace")
            for log in sorted(machine.outside(LOGS).glob("valgrind.*"))]


def left_open(report):
    """What the descriptors lead to that a process had opened itself and not closed at its end."""
    return [what for what, origin in _DESCRIPTOR.findall(report)
            if "<inherited from parent>" not in origin]


def findings(machine):
    """The reports that tell of an error, empty when there are none. A process that was killed has
    no summary, and its report only what was found until then."""
    return "\n".join(text for text in reports(machine) if re.search(
        r"ERROR SUMMARY: [1-9]|Invalid (?:read|write|free)|uninitialised", text))
