"""veltrancordctl as the tests run it: inside a device, or outside on a terminal of its own."""

import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
from pathlib import Path

import pytest

import device as device_module
from device import PATIENCE, REPOSITORY

STATE = "/tmp/state"


def program(name="veltrancordctl"):
    """The tool, or another program of the clients' side, that was built beside the program under
    test, else the one of the release build."""
    chosen = os.environ.get("VELTRANCORDCTL") if name == "veltrancordctl" else None
    for folder in (Path(device_module.default_program).parent, REPOSITORY / "build/bin"):
        candidate = chosen or folder / name
        if os.access(candidate, os.X_OK):
            return os.path.realpath(candidate)
    return pytest.skip(f"{name} is not built")


def check_sound(text):
    """Raises where a tool that was built with a sanitizer has reported something."""
    assert not re.search(r"runtime error:|ERROR: \w+Sanitizer|WARNING: ThreadSanitizer", text), text


class Tool:
    """Runs the tool on one device."""

    def __init__(self, device):
        self.device = device
        self.program = program()

    def __call__(self, *arguments, stdin="", environment=()):
        """Runs it inside, without a terminal. Return: `Finished`."""
        finished = self.device.run("/usr/bin/env", f"VELTRANCORD_STATE={STATE}", *environment,
                                   "/run/host" + self.program, *arguments, stdin=stdin)
        check_sound(finished.stderr)
        return finished

    def json(self, *arguments, status=0):
        """Runs it with --json. Return: what it printed, parsed."""
        finished = self(*arguments, "--json")
        assert finished.status == status, finished
        return json.loads(finished.stdout)

    def outside(self, *arguments, **options):
        """Starts it outside, on the device's socket. Return: the `subprocess.Popen`."""
        options.setdefault("env", {**os.environ, **self._state})
        return subprocess.Popen([self.program, "--socket", self.device.socket_path, *arguments],
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, **options)

    def terminal(self, *arguments, environment=None, rows=24, ignored=()):
        """Starts it outside on a terminal of its own, with some signals ignored. Return: a `Terminal`."""
        return Terminal([self.program, "--socket", self.device.socket_path, *arguments],
                        {**self._state, **(environment or {})}, rows, ignored)

    @property
    def _state(self):
        """Where what it keeps is kept: on the device, and not in the home of who runs the tests."""
        return {"VELTRANCORD_STATE": str(self.device.outside(STATE))}


class Terminal:
    """A program on a pseudo-terminal."""

    def __init__(self, arguments, environment, rows, ignored=()):
        self.output = b""
        variables = {"PATH": os.environ["PATH"], "TERM": "xterm", **environment}
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            # A shell that starts the tests in the background has them ignore some signals.
            for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGHUP):
                signal.signal(number, signal.SIG_IGN if number in ignored else signal.SIG_DFL)
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", rows, 80, 0, 0))
            os.execve(arguments[0], arguments, variables)

    def _read(self):
        try:
            part = os.read(self.descriptor, 65536)
        except OSError:  # how a terminal says that its last user has gone
            part = b""
        self.output += part
        return bool(part)

    def wait_for(self, text):
        """Reads until `text` has been printed."""
        deadline = time.monotonic() + PATIENCE
        while text.encode() not in self.output:
            ready, _, _ = select.select([self.descriptor], [], [], max(0, deadline - time.monotonic()))
            if not ready or not self._read():
                raise AssertionError(f"{text!r} never came; there is {self.text!r}")

    def type(self, text):
        os.write(self.descriptor, text.encode())

    @property
    def echoes(self):
        """Whether the terminal shows what is typed."""
        return bool(termios.tcgetattr(self.descriptor)[3] & termios.ECHO)

    @property
    def text(self):
        return self.output.decode(errors="replace").replace("\r\n", "\n")

    def finish(self):
        """Reads to the end. Return: the exit status."""
        while self._read():
            pass
        os.close(self.descriptor)
        _, status = os.waitpid(self.pid, 0)
        check_sound(self.text)
        return os.waitstatus_to_exitcode(status)

    def kill(self):
        os.kill(self.pid, signal.SIGKILL)
        return self.finish()
