"""A simulated machine: user, mount, PID and IPC namespaces with files of their own.

/tmp, /mnt and /run are empty file systems of its own; the rest of the real machine is seen as it
is. Process ids are the machine's own (1 is its init). Paths are absolute paths inside; `outside`
gives the same file's path for the test. Whatever happens, closing a machine (or the death of the
test run) ends all of its processes and takes its files with it.
"""

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

HERE = Path(__file__).resolve().parent
LOGS = "/run/log"

# Every wait of the suite ends after this many seconds; it is a net for hangs, not a measure.
PATIENCE = float(os.environ.get("E2E_PATIENCE", "60"))


class Process(NamedTuple):
    pid: int
    parent: int
    state: str  # as in /proc: R, S, D, Z ...
    command: str  # all its arguments, separated by blanks


class Finished(NamedTuple):
    """How a command that `Machine.run` ran ended."""

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


def _into_user_namespace(many_users):
    """The beginning of the command that enters the namespaces: the user namespace, with the users
    that it is to have. Root gives it all of its own, others what /etc/subuid gives them."""
    if many_users and os.geteuid() == 0:
        return [sys.executable, "-I", "-S", str(HERE / "map_users.py"), "unshare"]
    wanted = ["unshare", "--user", "--map-root-user"]
    if many_users and subprocess.run([*wanted, "--map-auto", "true"], check=False,
                                     capture_output=True).returncode == 0:
        return [*wanted, "--map-auto"]
    return wanted


class Machine:
    """See the module. Everything raises OSError where the operation inside failed."""

    def __init__(self, program, patience=None, many_users=False):
        """`program` is shown as /run/bin/Veltrancord; `patience`: see PATIENCE. `many_users`: with
        other users beside root, where this machine allows it (see `has_many_users`)."""
        self.program = os.path.realpath(program)
        self.patience = PATIENCE if patience is None else patience
        self._count = 0
        self._lock = threading.Lock()
        self._enter_namespaces(many_users)

    def _enter_namespaces(self, many_users):
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._control = ours
        ours.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        ours.settimeout(self.patience)
        command = [*_into_user_namespace(many_users), "--mount", "--pid", "--ipc", "--fork"]
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
            raise RuntimeError(f"the machine's namespaces could not be set up:\n{reason}")
        # Credentials arrive translated into our own PID namespace.
        self.init_pid = struct.unpack("3i", ancillary[0][2])[0]
        self._root = f"/proc/{self.init_pid}/root"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def has_many_users(self):
        """Whether there are others than root."""
        maps = [Path(f"/proc/{self.init_pid}/{name}").read_text() for name in ("uid_map", "gid_map")]
        return all(sum(int(line.split()[2]) for line in text.splitlines()) > 60000 for text in maps)

    def close(self):
        """Ends everything inside. What the sanitizers found must be fetched before."""
        self._control.close()
        try:
            self._unshare.wait(10)
        except subprocess.TimeoutExpired:
            self._unshare.kill()
        self._unshare.stderr.close()
        self._unshare.wait()

    def _ask(self, what, **arguments):
        with self._lock:
            self._control.send(json.dumps({"what": what, **arguments}).encode())
            message = self._control.recv(1 << 20)
        if not message:
            raise RuntimeError("the machine's init has ended")
        answer = json.loads(message)
        if "error" in answer:
            raise OSError(answer["errno"] or 0, answer["error"])
        return answer["value"]

    # ---- files ----------------------------------------------------------------------------------

    def outside(self, path):
        """The path by which the test reaches the file `path` of the machine."""
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

    def cover(self, directory):
        """Puts a stand-in of the machine's own over a directory of the real one, whose entries lead to
        the real ones. Return: its path without links."""
        return self._ask("cover", path=directory)

    def install_script(self, path, text):
        """Puts an executable file anywhere, /bin among others: a directory that is not the
        machine's own is first covered."""
        directory = os.path.dirname(path)
        if not path.startswith(("/tmp/", "/mnt/", "/run/")):
            directory = self.cover(directory)
        self.write_file(f"{directory}/{os.path.basename(path)}", text, mode=0o755)

    def mount_tmpfs(self, path, size=None, inodes=None):
        """Mounts an empty file system on a directory, of limited size ("64k") or inode count."""
        data = [f"size={size}"] if size else []
        data += [f"nr_inodes={inodes}"] if inodes else []
        self._ask("tmpfs", path=path, data=",".join(["mode=755", *data]))

    def bind(self, source, path, read_only=False):
        """Shows a file or directory at a second place. For one of the real machine put "/run/host"
        before its path."""
        self._ask("bind", source=str(source), target=path, read_only=read_only)

    def set_read_only(self, path, on=True):
        """Makes a mounted file system (mount_tmpfs, bind) read-only, or writable again."""
        self._ask("read_only", path=path, on=on)

    def unmount(self, path):
        self._ask("unmount", path=path)

    def wait_for_file(self, path):
        wait_until(lambda: self.file_exists(path), f"{path} exists", self.patience)

    # ---- processes ------------------------------------------------------------------------------

    def launch(self, *arguments, stdin="", obey_permissions=False, user=None):
        """Starts a command inside, as root or another user's number. Return: its process id, and the path inside to which ".out" and
        ".err" are added for what it prints."""
        self._count += 1
        base = f"{LOGS}/run-{self._count}"
        self.write_file(base + ".in", stdin)
        pid = self._ask(
            "start", program=shutil.which(arguments[0]) or arguments[0], arguments=list(arguments),
            environment={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"},
            standard=[base + ".in", base + ".out", base + ".err"], obey_permissions=obey_permissions,
            user=user)
        return pid, base

    def run(self, *arguments, timeout=None, **options):
        """Runs a command inside and waits for it; options as for `launch`. Return: `Finished`."""
        pid, base = self.launch(*arguments, **options)
        status = self.wait_for_end(pid, timeout or self.patience)
        if status is None:
            self.send_signal(pid, signal.SIGKILL)
            raise TimeoutError(f"{arguments} does not end")
        return Finished(status, *(self.read_file(base + end).decode(errors="replace")
                                  for end in (".out", ".err")))

    def wait_for_end(self, pid, seconds):
        """Exit status of an ended child of init, starter and orphans too; None: still running."""
        deadline = time.monotonic() + seconds
        while True:
            left = max(0.0, deadline - time.monotonic())
            status = self._ask("wait", pid=pid, seconds=min(left, 0.1))
            if status is not None or left == 0:
                return status

    def send_signal(self, pid, number):
        """Sends a signal to a process of the machine. A SIGSTOP has stopped all of its threads when
        this returns: one that runs on another processor stops later than the signal is sent."""
        self._ask("kill", pid=pid, signal=int(number))
        if number == signal.SIGSTOP:
            wait_until(lambda: all(state == "T" for state in self._thread_states(pid)),
                       "all threads have stopped", self.patience)

    def power_cut(self):
        """Ends every process inside at once, without any warning; the files stay."""
        self._ask("kill", pid=-1, signal=int(signal.SIGKILL))
        wait_until(lambda: len(self.processes()) == 1, "all processes ended", self.patience)

    def processes(self):
        """Every process of the machine, init first."""
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

    # ---- System V objects -----------------------------------------------------------------------

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
        """The machine's "sem" or "shm" objects: a dictionary for each, as /proc/sysvipc has it."""
        head, *rows = self._ask("table", kind=kind).splitlines()
        return [dict(zip(head.split(), row.split())) for row in rows]
