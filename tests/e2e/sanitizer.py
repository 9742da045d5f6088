"""Programs that were built with a sanitizer: how they are told to report, and what they found."""

import functools
import os
import re
import subprocess
from pathlib import Path

from machine import LOGS

_OPTIONS = (
    f"log_path={LOGS}/sanitizer:allocator_may_return_null=1:max_allocation_size_mb=2048"
    ":print_stacktrace=1:handle_abort=1"
)
_VARIABLES = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS")
_REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:")


@functools.lru_cache(maxsize=None)
def built_in(program):
    """ "address", "thread" or None: what the program was built with."""
    data = Path(program).read_bytes()
    for mark, name in ((b"__asan_init", "address"), (b"__tsan_init", "thread")):
        if mark in data:
            return name
    return None


@functools.lru_cache(maxsize=None)
def _runtime(program):
    """The library that the sanitizer's own code is in; None where it is part of the program."""
    listed = subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout
    found = re.search(r"=> (\S*/lib(?:asan|tsan)\.so\S*)", listed)
    return found and found[1]


def preload(program, library):
    """The value of LD_PRELOAD that loads `library`: a sanitizer must come before it. None where that
    cannot be."""
    if built_in(program) is None:
        return library
    runtime = _runtime(program)
    return runtime and f"{runtime}:{library}"


def environment(traced):
    """Environment variables for such a program, those of the test run in front of our own."""
    # A tracer leaves no room for the leak check, which would be a second one.
    options = _OPTIONS + (":detect_leaks=0" if traced else "")
    return {name: ":".join(filter(None, (os.environ.get(name), options))) for name in _VARIABLES}


def findings(machine, standard_error):
    """All reports, empty when there are none. A refused allocation is none."""
    logs = sorted(machine.outside(LOGS).glob("sanitizer.*"))
    # Where no log can be opened the report goes to standard error.
    texts = [log.read_text(errors="replace") for log in logs] + [standard_error]
    return "\n".join(text for text in texts if _REPORT.search(text))
