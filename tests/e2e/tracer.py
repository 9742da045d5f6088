"""What the service's server thread asks of the system: counted, shown, and made to fail."""

import contextlib
import re
import signal

from device import LOGS, wait_until


class Strace:
    """strace on the worker's server thread for the time of a `with` statement."""

    def __init__(self, device, *options):
        self.device = device
        tasks = device.outside(f"/proc/{device.worker_pid}/task")
        self.thread = sorted(int(task.name) for task in tasks.iterdir())[-1]
        self.status = tasks / str(self.thread) / "status"
        self.command = " ".join(["strace", "-y", "-s", "256", "-o", f"{LOGS}/strace",
                                 *options, "-p", str(self.thread)])

    def _tracer(self):
        try:
            return int(re.search(r"TracerPid:\s*(\d+)", self.status.read_text()).group(1))
        except (FileNotFoundError, ProcessLookupError):
            return 0

    def __enter__(self):
        self.device.run("sh", "-c", self.command + f" >/dev/null 2>{LOGS}/strace-errors &")
        self.tracer = wait_until(self._tracer, "strace is attached")
        # Attaching takes two steps; what the thread does between them would not be seen.
        errors = self.device.outside(f"{LOGS}/strace-errors")
        wait_until(lambda: "attached" in errors.read_text(), "strace has stopped the thread")
        return self

    def __exit__(self, *_):
        if self._tracer():
            with contextlib.suppress(ProcessLookupError):  # it ends with the thread that it traces
                self.device.send_signal(self.tracer, signal.SIGTERM)
        wait_until(lambda: not self.device.is_running(self.tracer), "strace has ended")

    def calls(self):
        """The calls so far as (name, how often that name so far, line), but for the wait that the
        thread was in when strace came."""
        seen = {}
        found = []
        for line in self.device.read_file(f"{LOGS}/strace").decode("latin-1").splitlines():
            name = re.match(r"\w+(?=\()", line)
            if name and name[0] != "restart_syscall":
                seen[name[0]] = seen.get(name[0], 0) + 1
                found.append((name[0], seen[name[0]], line))
        return found
