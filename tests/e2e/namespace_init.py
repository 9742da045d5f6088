"""Process 1 of a simulated machine: prepares its file tree, starts programs, reaps orphans.

Started by machine.py as `unshare ... python3 -I -S namespace_init.py FD PROGRAM`, with FD one end
of a socket pair over which requests and answers travel as JSON. When the other end closes, it ends,
and with it every process of its namespace: nothing survives the test that started it, however that
test ended.
"""

import ctypes
import errno
import json
import os
import resource
import select
import signal
import socket
import sys
import time

libc = ctypes.CDLL(None, use_errno=True)

MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
MNT_DETACH = 2
PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH = 24, 1, 2
IPC_CREAT, IPC_RMID, GETVAL, SETVAL = 0o1000, 0, 12, 16

HOST = "/run/host"  # the machine's own tree, as it was before the device's mounts covered it


def check(result, what):
    if result < 0:
        code = ctypes.get_errno()
        raise OSError(code, f"{what}: {os.strerror(code)}")
    return result


def mount(source, target, kind, flags, data=""):
    check(
        libc.mount(source.encode(), target.encode(), kind.encode(), flags, data.encode()),
        f"mount {source} on {target}",
    )


def bind(source, target, read_only=False):
    """Binds a file or directory; the target is made when it is missing."""
    if os.path.isdir(source):
        os.makedirs(target, exist_ok=True)
    elif not os.path.exists(target):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "w", encoding="ascii"):
            pass
    mount(source, target, "none", MS_BIND)
    if read_only:
        mount("none", target, "none", MS_REMOUNT | MS_BIND | MS_RDONLY)


def cover_directory(path):
    """Puts a writable stand-in over a system directory: every entry a link to the real one."""
    path = os.path.realpath(path)
    if os.path.exists(path + "/.device"):
        return path
    entries = os.listdir(path)
    mount("tmpfs", path, "tmpfs", 0, "mode=755")
    for entry in entries:
        os.symlink(f"{HOST}{path}/{entry}", f"{path}/{entry}")
    with open(path + "/.device", "w", encoding="ascii"):
        pass
    return path


def prepare_tree(program):
    mount("none", "/", "none", MS_REC | MS_PRIVATE)
    mount("tmpfs", "/run", "tmpfs", 0, "mode=755")
    for name in (HOST, "/run/bin", "/run/log"):
        os.mkdir(name)
    mount("/", HOST, "none", MS_BIND | MS_REC)
    bind(HOST + program, "/run/bin/Veltrancord")
    mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777")
    mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777")
    # A flash of a device's size: the event log's capacity is computed from it.
    mount("tmpfs", "/mnt", "tmpfs", 0, "mode=755,size=512m")


class Children:
    """Every process that ends here, the device's orphans among them, and how it ended."""

    def __init__(self):
        self.ended = {}
        self.wake_read, wake_write = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.signal(signal.SIGCHLD, lambda *_: None)
        signal.set_wakeup_fd(wake_write, warn_on_full_buffer=False)

    def reap(self):
        try:
            os.read(self.wake_read, 4096)
        except BlockingIOError:
            pass
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self.ended[pid] = status

    def wait(self, pid, seconds):
        """Exit status (negative: the signal that ended it), or None when the time is up."""
        deadline = time.monotonic() + seconds
        while True:
            self.reap()
            if pid in self.ended:
                return os.waitstatus_to_exitcode(self.ended[pid])
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            select.select([self.wake_read], [], [], left)


def start(request):
    """Forks and executes a program with its standard descriptors as asked for."""
    failure_read, failure_write = os.pipe2(os.O_CLOEXEC)
    pid = os.fork()
    if pid != 0:
        os.close(failure_write)
        with os.fdopen(failure_read, "rb") as pipe:
            failure = pipe.read().decode()
        if failure:
            raise OSError(f"{request['program']}: {failure}")
        return pid
    try:
        signal.set_wakeup_fd(-1)
        # This interpreter ignores some, and a program keeps what it is started with.
        for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
            signal.signal(number, signal.SIG_DFL)
        for number in request.get("ignored", ()):
            signal.signal(number, signal.SIG_IGN)
        signal.pthread_sigmask(signal.SIG_SETMASK, request.get("blocked", ()))
        os.setsid()
        os.chdir(request.get("directory") or "/")
        os.umask(0o022)
        for number, path in enumerate(request["standard"]):
            flags = os.O_RDONLY if number == 0 else os.O_WRONLY | os.O_CREAT | os.O_APPEND
            fd = os.open(path, flags, 0o644)
            os.dup2(fd, number)
            os.set_inheritable(number, True)
            if fd > 2:
                os.close(fd)
        for number in request.get("closed", ()):
            os.close(number)
        for number in request.get("opened", ()):
            os.dup2(os.open("/dev/null", os.O_RDWR), number)
        for name, value in (request.get("limits") or {}).items():
            resource.setrlimit(getattr(resource, "RLIMIT_" + name), (value, value))
        if request.get("obey_permissions"):
            for capability in (CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH):
                check(libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0), "prctl")
        if request.get("user") is not None:
            os.setgroups([])
            os.setgid(request["user"])
            os.setuid(request["user"])
        os.execve(request["program"], request["arguments"], request["environment"])
    except BaseException as problem:  # pylint: disable=broad-except
        os.write(failure_write, str(problem).encode())
    os._exit(127)


def semaphore(key, value=None, post=None, remove=False):
    """Value of the semaphore with that key (None: there is no such one), after setting, posting or
    removing it when asked to."""
    create = IPC_CREAT | 0o666 if value is not None or post is not None else 0
    identifier = libc.semget(key, 1 if create else 0, create)
    if identifier < 0:
        if ctypes.get_errno() == errno.ENOENT:
            return None
        check(identifier, "semget")
    if remove:
        check(libc.semctl(identifier, 0, IPC_RMID, 0), "semctl")
        return None
    if value is not None:
        check(libc.semctl(identifier, 0, SETVAL, ctypes.c_long(value)), "semctl")
    if post is not None:
        operation = (ctypes.c_short * 3)(0, post, 0)
        check(libc.semop(identifier, operation, ctypes.c_size_t(1)), "semop")
    return check(libc.semctl(identifier, 0, GETVAL, 0), "semctl")


def perform(children, request):
    """Carries one request out. Return: what the answer holds."""
    what = request.pop("what")
    if what == "start":
        return start(request)
    if what == "wait":
        return children.wait(request["pid"], request["seconds"])
    if what == "kill":
        os.kill(request["pid"], request["signal"])
    elif what == "semaphore":
        return semaphore(**request)
    elif what == "table":  # of System V objects, as seen from inside
        with open("/proc/sysvipc/" + request["kind"], encoding="ascii") as table:
            return table.read()
    elif what == "bind":
        bind(**request)
    elif what == "tmpfs":
        os.makedirs(request["path"], exist_ok=True)
        mount("tmpfs", request["path"], "tmpfs", 0, request["data"])
    elif what == "unmount":
        check(libc.umount2(request["path"].encode(), MNT_DETACH), f"umount {request['path']}")
    elif what == "read_only":
        flags = MS_REMOUNT | MS_BIND | (MS_RDONLY if request["on"] else 0)
        mount("none", request["path"], "none", flags)
    elif what == "cover":
        return cover_directory(request["path"])
    else:
        raise ValueError(f"unknown request {what}")
    return None


def main():
    control = socket.socket(fileno=int(sys.argv[1]))
    control.set_inheritable(False)
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # Ctrl-C is for the test run outside
    children = Children()
    prepare_tree(sys.argv[2])
    control.send(b"ready")
    while True:
        readable, _, _ = select.select([control, children.wake_read], [], [])
        children.reap()
        if control not in readable:
            continue
        message = control.recv(1 << 20)
        if not message:
            return
        try:
            answer = {"value": perform(children, json.loads(message))}
        except (OSError, ValueError) as problem:
            answer = {"error": str(problem), "errno": getattr(problem, "errno", None)}
        control.send(json.dumps(answer).encode())


main()
