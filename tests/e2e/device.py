"""A simulated device: the real program in user, mount, PID and IPC namespaces of its own.

    with Device() as device:
        device.write_documents({"Account": "<Account><User1>...</User1></Account>"})
        device.start()
        assert device.request("read:Account.User1.Username") == (27, b"Account.User1.Username=admin")

/tmp, /mnt and /run of a device are empty file systems of its own; the rest of the machine is seen as
it is. Process ids are the device's own (1 is its init). Paths are absolute paths inside; `outside`
gives the same file's path for the test. Whatever happens, closing a device (or the death of the
test run) ends all of its processes and takes its files with it.
"""

import ctypes
import functools
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import NamedTuple

from wire import Client, exchange

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]

PROGRAM = "/run/bin/Veltrancord"  # where the program under test stands inside
SOCKET = "/tmp/Veltrancord.unix"
CONFIGURATION = "/mnt/database/xml"
EVENT_LOG = "/mnt/database/eventlog/log"
READY_KEY = 530
LOGS = "/run/log"
FAKETIME_LIBRARY = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"
FAKETIME_OFFSET = "/run/clock"

# Every wait of the suite ends after this many seconds; it is a net for hangs, not a measure.
PATIENCE = float(os.environ.get("E2E_PATIENCE", "60"))

default_program = os.environ.get("VELTRANCORD_BIN", str(REPOSITORY / "build/bin/Veltrancord"))

_SANITIZER_OPTIONS = (
    f"log_path={LOGS}/sanitizer:allocator_may_return_null=1:max_allocation_size_mb=2048"
    ":print_stacktrace=1:handle_abort=1"
)


_SANITIZER_REPORT = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|runtime error:")


@functools.lru_cache(maxsize=None)
def sanitizer_of(program):
    """ "address", "thread" or None: what the program was built with."""
    data = Path(program).read_bytes()
    for mark, name in ((b"__asan_init", "address"), (b"__tsan_init", "thread")):
        if mark in data:
            return name
    return None


class Process(NamedTuple):
    pid: int
    parent: int
    state: str  # as in /proc: R, S, D, Z ...
    command: str  # all its arguments, separated by blanks


class Finished(NamedTuple):
    """How a command that `Device.run` ran ended."""

    status: int  # exit status; negative: the signal that ended it
    stdout: str
    stderr: str


def wait_until(condition, what, timeout=None):
    """Calls `condition` until it gives something true. Return: that."""
    deadline = time.monotonic() + (PATIENCE if timeout is None else timeout)
    pause = 0.001
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited in vain until {what}")
        time.sleep(pause)
        pause = min(0.05, pause * 1.5)


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


class Device:
    """See the module. Everything raises OSError where the operation inside failed."""

    def __init__(self, program=None, patience=None):
        self.program = os.path.realpath(program or default_program)
        self.patience = PATIENCE if patience is None else patience
        self.sanitizer = sanitizer_of(self.program)
        self.starter = None
        self._options = ()
        self._start_arguments = {}
        self._count = 0
        self._clock_share = ()
        self._forgotten = ""
        self._lock = threading.Lock()
        self._enter_namespaces()
        for path in (CONFIGURATION, os.path.dirname(EVENT_LOG)):
            self.make_directory(path)

    def _enter_namespaces(self):
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._control = ours
        ours.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        ours.settimeout(self.patience)
        command = ["unshare", "--user", "--map-root-user", "--mount", "--pid", "--ipc", "--fork"]
        command += ["--kill-child", "--mount-proc", sys.executable, "-I", "-S"]
        command += [str(HERE / "namespace_init.py"), str(theirs.fileno()), self.program]
        with theirs:
            self._unshare = subprocess.Popen(
                command,
                pass_fds=[theirs.fileno()],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE,
            )
        try:
            message, ancillary, _, _ = ours.recvmsg(64, socket.CMSG_SPACE(12))
        except OSError:
            message, ancillary = b"", []
        if message != b"ready":
            self._unshare.kill()
            reason = self._unshare.communicate()[1].decode(errors="replace")
            ours.close()
            raise RuntimeError(f"the device's namespaces could not be set up:\n{reason}")
        # Credentials arrive translated into our own PID namespace.
        self.init_pid = struct.unpack("3i", ancillary[0][2])[0]
        self._root = f"/proc/{self.init_pid}/root"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends everything inside. What the sanitizers found must be fetched before."""
        self._control.close()
        try:
            self._unshare.wait(10)
        except subprocess.TimeoutExpired:
            self._unshare.kill()
        self._unshare.stderr.close()
        self._unshare.wait()
        for path in self._clock_share:
            Path(path).unlink(missing_ok=True)

    def _ask(self, what, **arguments):
        with self._lock:
            self._control.send(json.dumps({"what": what, **arguments}).encode())
            message = self._control.recv(1 << 20)
        if not message:
            raise RuntimeError("the device's init has ended")
        answer = json.loads(message)
        if "error" in answer:
            raise OSError(answer["errno"] or 0, answer["error"])
        return answer["value"]

    # ---- files ------------------------------------------------------------------------------

    def outside(self, path):
        """The path by which the test reaches the file `path` of the device."""
        return Path(self._root + path)

    def make_directory(self, path):
        self.outside(path).mkdir(parents=True, exist_ok=True)

    def write_file(self, path, content, mode=None):
        """Makes or replaces a file, its directory too when that is missing."""
        target = self.outside(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content.encode() if isinstance(content, str) else content)
        if mode is not None:
            target.chmod(mode)

    def read_file(self, path):
        """A file's content as bytes."""
        return self.outside(path).read_bytes()

    def file_exists(self, path):
        return self.outside(path).exists()

    def list_directory(self, path):
        """Names in a directory in the order in which readdir gives them there."""
        return os.listdir(self.outside(path))

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

    def install_script(self, path, text):
        """Puts an executable file anywhere, /bin among others: a directory that is not the
        device's own is first covered by a stand-in whose entries lead to the real ones."""
        directory = os.path.dirname(path)
        if not path.startswith(("/tmp/", "/mnt/", "/run/")):
            directory = self._ask("cover", path=directory)
        self.write_file(f"{directory}/{os.path.basename(path)}", text, mode=0o755)

    def mount_tmpfs(self, path, size=None, inodes=None):
        """Mounts an empty file system on a directory, of limited size ("64k") or inode count."""
        data = [f"size={size}"] if size else []
        data += [f"nr_inodes={inodes}"] if inodes else []
        self._ask("tmpfs", path=path, data=",".join(["mode=755", *data]))

    def bind(self, source, path, read_only=False):
        """Shows a file or directory of the device at a second place. For one of the machine put
        "/run/host" before its path."""
        self._ask("bind", source=str(source), target=path, read_only=read_only)

    def set_read_only(self, path, on=True):
        """Makes a mounted file system (mount_tmpfs, bind) read-only, or writable again."""
        self._ask("read_only", path=path, on=on)

    def unmount(self, path):
        self._ask("unmount", path=path)

    # ---- starting and ending ----------------------------------------------------------------

    def start(self, *options, ready=True, under=(), environment=None, argv0=None, closed=(),
              limits=None, obey_permissions=False, directory=None, fake_clock=False):
        """Starts the program with `options` and, unless `ready` is False, waits until the starter
        has ended with status 0, which means that the service answers.

        under             command and arguments to start it under (see `start_traced`, or valgrind)
        environment       further environment variables (a dictionary)
        argv0             the program's name for itself
        closed            standard descriptors that are closed at its start, for example (0, 1, 2)
        limits            resource limits, for example {"NOFILE": 64}
        obey_permissions  take away root's right to pass over file permissions
        directory         working directory
        fake_clock        let `move_clock` move the program's time (see `require_fake_clock`); a
                          number: and let it run so many times as fast

        Return: the `Starter`.
        """
        self._options = options
        self._start_arguments = dict(
            ready=ready, under=under, environment=environment, argv0=argv0, closed=closed,
            limits=limits, obey_permissions=obey_permissions, directory=directory,
            fake_clock=fake_clock)
        variables = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"}
        variables.update(self._sanitizer_environment(under))
        if fake_clock:
            self.move_clock(0, int(fake_clock))
            variables.update(LD_PRELOAD=FAKETIME_LIBRARY, FAKETIME_TIMESTAMP_FILE=FAKETIME_OFFSET,
                             FAKETIME_NO_CACHE="1", FAKETIME_DONT_RESET="1",
                             FAKETIME_SHARED=self._share_clock())
        variables.update(environment or {})
        program = shutil.which(under[0]) if under else PROGRAM
        arguments = [*under, PROGRAM, *options] if under else [argv0 or PROGRAM, *options]
        pid = self._ask(
            "start", program=program, arguments=arguments, environment=variables,
            standard=["/dev/null", f"{LOGS}/stdout", f"{LOGS}/stderr"], closed=list(closed),
            limits=limits, obey_permissions=obey_permissions, directory=directory)
        self.starter = Starter(self, pid)
        if ready:
            self.wait_ready()
        return self.starter

    def _share_clock(self):
        """Makes what the processes of a moved clock share. Left to itself, libfaketime has the first
        process make it and take it away at its end; that is the starter, and every program that is
        started later would then refuse to run. Return: its names, as the library wants them."""
        names = [f"/veltrancord-{kind}-{os.getpid()}-{self.init_pid}" for kind in ("sem", "shm")]
        self._clock_share = ["/dev/shm/sem." + names[0][1:], "/dev/shm" + names[1]]
        libc = ctypes.CDLL(None, use_errno=True)
        libc.sem_open.restype = ctypes.c_void_p
        semaphore = libc.sem_open(names[0].encode(), os.O_CREAT, 0o600, 1)
        if not semaphore:
            raise OSError(ctypes.get_errno(), "sem_open")
        libc.sem_close(ctypes.c_void_p(semaphore))
        Path(self._clock_share[1]).write_bytes(bytes(16) + b"\xff" * 4080)
        return " ".join(names)

    def _sanitizer_environment(self, under):
        if self.sanitizer is None:
            return {}
        options = _SANITIZER_OPTIONS
        if under:  # a tracer is there already, and the leak check would be a second one
            options += ":detect_leaks=0"
        names = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS")
        return {name: ":".join(filter(None, (os.environ.get(name), options))) for name in names}

    def wait_ready(self, timeout=None):
        """Waits until the starter has ended and asserts that its status is 0."""
        status = self.starter.wait(timeout)
        assert status == 0, f"the starter ended with {status}:\n{self.output()}"

    def start_traced(self, *options, calls=None, trace_options=(), **start_arguments):
        """Starts it under strace, with all its processes and threads; `trace` gives the lines.
        `calls` limits the trace, as strace's option -e does ("openat,fsync,rename");
        `trace_options` are further options of strace, to inject failures for example."""
        if shutil.which("strace") is None:
            import pytest

            pytest.skip("strace is not installed")
        under = ["strace", "-DDD", "-f", "-q", "-s", "256", "-o", f"{LOGS}/trace", *trace_options]
        under += ["-e", f"trace={calls}"] if calls else []
        return self.start(*options, under=under, **start_arguments)

    def trace(self):
        """The system calls traced so far, one text line each, each led by its process id."""
        return self._text("trace").splitlines()

    def require_fake_clock(self):
        """Skips the test where the program's clock cannot be moved."""
        import pytest

        if self.sanitizer is not None:
            pytest.skip("a preloaded clock does not go together with a sanitizer")
        if not os.path.exists(FAKETIME_LIBRARY):
            pytest.skip("libfaketime is not installed")

    def move_clock(self, seconds, rate=1):
        """Sets the program's clocks this many seconds before or after the true time. `rate` lets them
        run, and the program's sleeps end, so many times as fast; use one rate throughout a test."""
        self.write_file(FAKETIME_OFFSET, f"{seconds:+}" + (f" x{rate}" if rate != 1 else "") + "\n")

    def stop_clock(self, seconds):
        """Lets the clocks of a program started with `fake_clock` stand this many seconds behind the
        start of a day long ago, so that a test can tell to the second what is over."""
        moment = time.gmtime(1_000_000_000 + seconds)
        self.write_file(FAKETIME_OFFSET, time.strftime("%Y-%m-%d %H:%M:%S\n", moment))

    def stop(self):
        """Ends the service as a device does on shutdown: SIGTERM to supervisor and worker."""
        chain = self._chain()
        for pid in chain:
            self.send_signal(pid, signal.SIGTERM)
        wait_until(lambda: not set(chain) & {p.pid for p in self.processes()}, "the service ended",
                   self.patience)

    def restart(self, *options):
        """Ends the service if it runs and starts it again, with its former options when none are
        given."""
        if self._chain():
            self.stop()
        self.start(*(options or self._options), **self._start_arguments)

    def power_cut(self):
        """Ends every process inside at once, without any warning; the files stay."""
        self._ask("kill", pid=-1, signal=int(signal.SIGKILL))
        wait_until(lambda: len(self.processes()) == 1, "all processes ended", self.patience)

    def wait_for_end(self, pid, seconds):
        """Exit status of an ended child of init, starter and orphans too; None: still running."""
        deadline = time.monotonic() + seconds
        while True:
            left = max(0.0, deadline - time.monotonic())
            status = self._ask("wait", pid=pid, seconds=min(left, 0.1))
            if status is not None or left == 0:
                return status

    def send_signal(self, pid, number):
        """Sends a signal to a process of the device. A SIGSTOP has stopped all of its threads when
        this returns: one that runs on another processor stops later than the signal is sent."""
        self._ask("kill", pid=pid, signal=int(number))
        if number == signal.SIGSTOP:
            wait_until(lambda: all(state == "T" for state in self._thread_states(pid)),
                       "all threads have stopped", self.patience)

    def kill_worker(self, number=signal.SIGKILL):
        """Ends the worker by a signal and waits until that process is gone. Return: its id."""
        pid = self.worker_pid
        self.send_signal(pid, number)
        wait_until(lambda: not self.is_running(pid), "the worker ended", self.patience)
        return pid

    def run(self, *arguments, stdin="", timeout=None):
        """Runs a command inside and waits for it. Return: `Finished`."""
        self._count += 1
        base = f"{LOGS}/run-{self._count}"
        self.write_file(base + ".in", stdin)
        pid = self._ask(
            "start", program=shutil.which(arguments[0]) or arguments[0], arguments=list(arguments),
            environment={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"},
            standard=[base + ".in", base + ".out", base + ".err"])
        status = self.wait_for_end(pid, timeout or self.patience)
        if status is None:
            self.send_signal(pid, signal.SIGKILL)
            raise TimeoutError(f"{arguments} does not end")
        return Finished(status, *(self.read_file(base + end).decode(errors="replace")
                                  for end in (".out", ".err")))

    # ---- talking to it ----------------------------------------------------------------------

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

    # ---- looking at it ----------------------------------------------------------------------

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

    def wait_for_file(self, path):
        wait_until(lambda: self.file_exists(path), f"{path} exists", self.patience)

    def sanitizer_findings(self):
        """The sanitizers' reports, empty when there are none. A refused allocation is none."""
        if self.sanitizer is None:
            return ""
        logs = sorted(self.outside(LOGS).glob("sanitizer.*"))
        # Where no log can be opened the report goes to standard error.
        texts = [log.read_text(errors="replace") for log in logs] + [self._forgotten + self.stderr()]
        return "\n".join(text for text in texts if _SANITIZER_REPORT.search(text))

    def processes(self):
        """Every process of the device, init first."""
        found = []
        for entry in os.listdir(self.outside("/proc")):
            if not entry.isdigit():
                continue
            try:
                stat = self._process_text(entry, "stat")
                command = self._process_text(entry, "cmdline").replace("\0", " ").strip()
            except (FileNotFoundError, ProcessLookupError):
                continue  # it has ended meanwhile
            state, parent = stat[stat.rindex(")") + 2:].split()[:2]
            found.append(Process(int(entry), int(parent), state, command))
        return sorted(found)

    def _process_text(self, pid, name):
        return self.outside(f"/proc/{pid}/{name}").read_bytes().decode("latin-1")

    def _thread_states(self, pid):
        threads = os.listdir(self.outside(f"/proc/{pid}/task"))
        stats = [self._process_text(pid, f"task/{thread}/stat") for thread in threads]
        return [stat.rpartition(")")[2].split()[0] for stat in stats]

    def is_running(self, pid):
        """Whether the process exists and is no zombie."""
        return any(p.pid == pid and p.state != "Z" for p in self.processes())

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

    def children_of(self, pid):
        """Ids of a process's children, zombies among them."""
        return [p.pid for p in self.processes() if p.parent == pid]

    def open_descriptors(self, pid):
        """A process's descriptors: number to what they lead to, as readlink gives it."""
        base = self.outside(f"/proc/{pid}/fd")
        found = {}
        for name in os.listdir(base):
            try:
                found[int(name)] = os.readlink(base / name)
            except FileNotFoundError:
                pass
        return found

    def thread_count(self, pid):
        return len(os.listdir(self.outside(f"/proc/{pid}/task")))

    def memory_kilobytes(self, pid, field="VmRSS"):
        """A field of /proc/PID/status, by default the memory that is really there."""
        status = self._process_text(pid, "status")
        return int(re.search(rf"^{field}:\s+(\d+) kB", status, re.M).group(1))

    def signals(self, pid, field):
        """Signal numbers in a mask of /proc/PID/status: SigIgn, SigCgt, SigBlk ..."""
        mask = int(re.search(rf"^{field}:\s+(\w+)", self._process_text(pid, "status"), re.M)[1], 16)
        return {number for number in range(1, 65) if mask >> (number - 1) & 1}

    def processor_seconds(self, pid):
        """Processor time that a process has used, all its threads together."""
        stat = self._process_text(pid, "stat")
        user, system = stat[stat.rindex(")") + 2:].split()[11:13]
        return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")

    # ---- System V objects -------------------------------------------------------------------

    def semaphore(self, key):
        """A semaphore's value, None when there is none with that key."""
        return self._ask("semaphore", key=key)

    def set_semaphore(self, key, value):
        """Makes the semaphore if need be, and sets it."""
        self._ask("semaphore", key=key, value=value)

    def post_semaphore(self, key, count=1):
        self._ask("semaphore", key=key, post=count)

    def remove_semaphore(self, key):
        self._ask("semaphore", key=key, remove=True)

    def system_v_table(self, kind):
        """The device's "sem" or "shm" objects: a dictionary for each, as /proc/sysvipc has it."""
        head, *rows = self._ask("table", kind=kind).splitlines()
        return [dict(zip(head.split(), row.split())) for row in rows]
