"""A simulated device: the real program on a simulated machine.

    with Device() as device:
        device.write_documents({"Account": "<Account><User1>...</User1></Account>"})
        device.start()
        assert device.request("readvalue:Account.User1.Username") == (5, b"admin")

machine.py says what a machine is; everything that it offers, a device offers too.
"""

import contextlib
import os
import shutil
import signal
from pathlib import Path

import pytest

import clock
import sanitizer
from machine import LOGS, PATIENCE, Machine, wait_until
from wire import Client, exchange

REPOSITORY = Path(__file__).resolve().parents[2]

PROGRAM = "/run/bin/Veltrancord"  # where the program under test stands inside
SOCKET = "/tmp/Veltrancord.unix"
CONFIGURATION = "/mnt/database/xml"
EVENT_LOG = "/mnt/database/eventlog/log"

# What the program is started under where a test does not say (command and arguments).
default_under = ()

default_program = os.environ.get("VELTRANCORD_BIN", str(REPOSITORY / "build/bin/Veltrancord"))


class Starter:
    """The program as its starter sees it: the process that `Device.start` ran."""

    def __init__(self, device, pid):
        self.device = device
        self.pid = pid

    def status(self, seconds=0.0):
        """Exit status (negative: the signal that ended it), None while it still runs."""
        return self.device.wait_for_end(self.pid, seconds)

    def wait(self, timeout=None):
        """Waits for its end. Return: the exit status."""
        timeout = PATIENCE if timeout is None else timeout
        status = self.status(timeout)
        if status is None:
            raise TimeoutError(
                f"the starter still runs after {timeout} s; its output:\n{self.device.output()}"
            )
        return status


class Device(Machine):
    """See the module."""

    def __init__(self, program=None, patience=None, many_users=False):
        super().__init__(program or default_program, patience, many_users)
        # What watches the program: "address", "thread", "valgrind" or None.
        self.sanitizer = sanitizer.built_in(self.program) or ("valgrind" if default_under else None)
        self.starter = None
        self._options = ()
        self._start_arguments = {}
        self._forgotten = ""
        for path in (CONFIGURATION, os.path.dirname(EVENT_LOG)):
            self.make_directory(path)

    # ---- configuration --------------------------------------------------------------------------

    def write_document(self, name, xml):
        """Makes or replaces one configuration file in the default directory."""
        self.write_file(f"{CONFIGURATION}/{name}", xml)

    def write_documents(self, documents):
        """Makes the files of a dictionary: name to XML text or bytes."""
        for name, xml in documents.items():
            self.write_document(name, xml)

    def read_document(self, name):
        """A configuration file's content as bytes."""
        return self.read_file(f"{CONFIGURATION}/{name}")

    def copy_sample_database(self):
        """Puts the repository's sample configuration into the default directory.

        Return: the names of its documents.
        """
        source = REPOSITORY / "examples/database"
        shutil.copytree(source, self.outside(CONFIGURATION), dirs_exist_ok=True)
        return sorted(entry.name for entry in source.iterdir())

    # ---- starting and ending --------------------------------------------------------------------

    def start(self, *options, ready=True, under=(), environment=None, argv0=None, closed=(),
              opened=(), ignored=(), blocked=(), stderr=None, limits=None, obey_permissions=False,
              directory=None, fake_clock=False, user=None):
        """Starts the program with `options` and, unless `ready` is False, waits until the starter
        has ended with status 0, which means that the service answers.

        under             command and arguments to start it under (see `start_traced`, or valgrind)
        environment       further environment variables (a dictionary)
        argv0             the program's name for itself
        closed            standard descriptors that are closed at its start, for example (0, 1, 2)
        opened            further descriptors that it finds open
        ignored, blocked  signals that are ignored or blocked at its start
        stderr            a file that its standard error goes to, instead of what `stderr` gives
        limits            resource limits, for example {"NOFILE": 64}
        obey_permissions  take away root's right to pass over file permissions
        directory         working directory
        fake_clock        let `move_clock` move the program's time (see `require_fake_clock`); a
                          number: and let it run so many times as fast
        user              the number of the user and of the group that it runs as; root if not given

        Return: the `Starter`.
        """
        self._options = options
        self._start_arguments = dict(
            ready=ready, under=under, environment=environment, argv0=argv0, closed=closed,
            opened=opened, ignored=ignored, blocked=blocked, stderr=stderr, limits=limits,
            obey_permissions=obey_permissions, directory=directory, fake_clock=fake_clock, user=user)
        variables = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"}
        if self.sanitizer is not None:
            variables.update(sanitizer.environment(traced=bool(under)))
        under = under or default_under
        if fake_clock:
            self.move_clock(0, int(fake_clock))
            variables.update(clock.environment(self))
            variables["LD_PRELOAD"] = self.preload(clock.LIBRARY)
        variables.update(environment or {})
        program = shutil.which(under[0]) if under else PROGRAM
        arguments = [*under, PROGRAM, *options] if under else [argv0 or PROGRAM, *options]
        pid = self._ask(
            "start", program=program, arguments=arguments, environment=variables,
            standard=["/dev/null", f"{LOGS}/stdout", stderr or f"{LOGS}/stderr"],
            closed=list(closed), opened=list(opened), ignored=[int(one) for one in ignored],
            blocked=[int(one) for one in blocked], limits=limits,
            obey_permissions=obey_permissions, directory=directory, user=user)
        self.starter = Starter(self, pid)
        if ready:
            self.wait_ready()
        return self.starter

    def wait_ready(self, timeout=None):
        """Waits until the starter has ended and asserts that its status is 0."""
        status = self.starter.wait(timeout)
        assert status == 0, f"the starter ended with {status}:\n{self.output()}"

    def start_traced(self, *options, calls=None, trace_options=(), **start_arguments):
        """Starts it under strace, with all its processes and threads; `trace` gives the lines.
        `calls` limits the trace, as strace's option -e does ("openat,fsync,rename");
        `trace_options` are further options of strace, to inject failures for example."""
        if shutil.which("strace") is None:
            pytest.skip("strace is not installed")
        under = ["strace", "-DDD", "-f", "-q", "-s", "256", "-o", f"{LOGS}/trace", *trace_options]
        under += ["-e", f"trace={calls}"] if calls else []
        return self.start(*options, under=under, **start_arguments)

    def trace(self):
        """The system calls traced so far, one text line each, each led by its process id."""
        return self._text("trace").splitlines()

    def stop(self):
        """Ends the service as a device does on shutdown: SIGTERM to supervisor and worker."""
        chain = self._chain()
        for pid in chain:
            with contextlib.suppress(ProcessLookupError):  # a worker ends when its supervisor has
                self.send_signal(pid, signal.SIGTERM)
        wait_until(lambda: not set(chain) & {p.pid for p in self.processes()}, "the service ended",
                   self.patience)

    def restart(self, *options):
        """Ends the service if it runs and starts it again, with its former options when none are
        given."""
        if self._chain():
            self.stop()
        self.start(*(options or self._options), **self._start_arguments)

    def kill_worker(self, number=signal.SIGKILL):
        """Ends the worker by a signal and waits until that process is gone. Return: its id."""
        pid = self.worker_pid
        self.send_signal(pid, number)
        wait_until(lambda: not self.is_running(pid), "the worker ended", self.patience)
        return pid

    # ---- a clock of its own ---------------------------------------------------------------------

    def require_no_sanitizer(self, kind, reason):
        """Skips the test when the program was built with that sanitizer ("address", "thread") or
        runs under "valgrind"."""
        if self.sanitizer == kind:
            pytest.skip(f"{kind}: {reason}")

    def preload(self, library):
        """The value of LD_PRELOAD for that library; skips the test where nothing can be preloaded."""
        value = sanitizer.preload(self.program, library)
        if self.sanitizer == "valgrind" or value is None:
            pytest.skip(f"{self.sanitizer}: nothing can be preloaded")
        return value

    def require_fake_clock(self, time_must_pass=True):
        """Skips the test where the program's clock cannot be moved. Under a sanitizer the clock can
        be set, but what sleeps until a time of it is not woken: `time_must_pass` is for tests that
        wait for that."""
        if time_must_pass and self.sanitizer is not None:
            pytest.skip(f"{self.sanitizer}: who sleeps does not feel the clock being set")
        self.preload(clock.LIBRARY)
        if not os.path.exists(clock.LIBRARY):
            pytest.skip("libfaketime is not installed")

    def move_clock(self, seconds, rate=1):
        """Sets the program's clocks this many seconds before or after the true time. `rate` lets
        them run, and the program's sleeps end, so many times as fast; use one rate throughout a test."""
        clock.move(self, seconds, rate)

    def stop_clock(self, seconds):
        """Lets the clocks of a program started with `fake_clock` stand this many seconds behind the
        start of a day long ago, so that a test can tell to the second what is over."""
        clock.stop(self, seconds)

    # ---- talking to it --------------------------------------------------------------------------

    @property
    def socket_path(self):
        return self._root + SOCKET

    def connect(self, timeout=None):
        """A new connection, as a `wire.Client`; use it in a `with` statement."""
        return Client(self.socket_path, timeout or self.patience)

    def request(self, payload, timeout=None):
        """One request on a connection of its own. Return: the `wire.Reply` (code, body); a code
        of None says that the connection was closed without a reply."""
        return exchange(self.socket_path, payload, timeout or self.patience)

    # ---- looking at it --------------------------------------------------------------------------

    def _text(self, name):
        path = self.outside(f"{LOGS}/{name}")
        return path.read_bytes().decode("latin-1") if path.exists() else ""

    def stdout(self):
        """What the program has printed so far, in all of its processes."""
        return self._text("stdout")

    def stderr(self):
        """What the program has complained of so far, in all of its processes."""
        return self._text("stderr")

    def output(self):
        """Both of them, for messages."""
        return f"--- stdout\n{self.stdout()}\n--- stderr\n{self.stderr()}"

    def forget_output(self):
        """Empties what `stdout` and `stderr` give."""
        self._forgotten += self.stderr()
        for name in ("stdout", "stderr"):
            path = self.outside(f"{LOGS}/{name}")
            if path.exists():
                os.truncate(path, 0)

    def wait_for_stderr(self, text):
        wait_until(lambda: text in self.stderr(), f"standard error holds {text!r}", self.patience)

    def wait_for_stdout(self, text):
        wait_until(lambda: text in self.stdout(), f"standard output holds {text!r}", self.patience)

    def sanitizer_findings(self):
        """The sanitizers' reports, empty when there are none. A refused allocation is none."""
        if self.sanitizer is None:
            return ""
        return sanitizer.findings(self, self._forgotten + self.stderr())

    def _chain(self):
        """Ids of the service's processes, parents first: (starter,) supervisor, worker."""
        ours = [p for p in self.processes() if p.state != "Z" and PROGRAM in p.command
                and not p.command.startswith("strace ")]
        ids = {p.pid for p in ours}
        chain = []
        level = [p.pid for p in ours if p.parent not in ids]
        while level:
            chain += level[:1]
            level = [p.pid for p in ours if p.parent == chain[-1]]
        return chain

    def _service_chain(self):
        starting = self.starter is not None and self.starter.status() is None
        return self._chain()[1 if starting else 0:]

    @property
    def supervisor_pid(self):
        """Id of the supervising process; waits until there is one."""
        return wait_until(lambda: self._service_chain()[:1], "there is a supervisor",
                          self.patience)[0]

    @property
    def worker_pid(self):
        """Id of the process that serves requests; waits until there is one."""
        return wait_until(lambda: self._service_chain()[1:2], "there is a worker",
                          self.patience)[0]
