"""The processes: killed, terminated, started again; and the programs that the service starts."""

import random
import re
import signal
import threading

import pytest

from device import CONFIGURATION, wait_until
from log_model import record
from wire import Client
from workload import install

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "readvalue:Account.User1.Username"
ADMIN = (5, b"admin")


class Load:
    """Threads that send requests without a pause; `with` ends them."""

    def __init__(self, device, threads=3):
        self.device = device
        self.stopping = False
        self.served = 0
        self.unanswered = 0
        self.problems = []
        self.sent = [0] * threads
        self.replied = [0] * threads
        self.threads = [threading.Thread(target=self._run, args=(i,)) for i in range(threads)]

    def _run(self, index):
        while not self.stopping:
            number = self.sent[index] + 1
            self.sent[index] = number
            try:
                reply = self.device.request(f"write:Load{index}.V={number}")
            except (ConnectionResetError, BrokenPipeError):
                self.unanswered += 1
                continue
            except OSError as problem:
                if not self.stopping:
                    self.problems.append(repr(problem))
                return
            if reply.code == 1:
                self.served += 1
                self.replied[index] = number
            elif reply.code is None:
                self.unanswered += 1
            else:
                self.problems.append(reply)

    def __enter__(self):
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self.stopping = True
        for thread in self.threads:
            thread.join()

    def serve(self, amount):
        """Waits until so many more requests have been served."""
        aim = self.served + amount
        wait_until(lambda: self.served >= aim or self.problems, "requests are served",
                   self.device.patience)

    @staticmethod
    def documents(threads=3):
        return {f"Load{i}": f"<Load{i}>\n    <V>0</V>\n</Load{i}>\n" for i in range(threads)}

    def check_files(self):
        """Each file is whole, and not older than the last write that was answered."""
        for index, replied in enumerate(self.replied):
            text = self.device.read_document(f"Load{index}").decode()
            found = re.fullmatch(rf"<Load{index}>\n    <V>(\d+)</V>\n</Load{index}>\n", text)
            assert found, text
            assert replied <= int(found[1]) <= self.sent[index]


@pytest.mark.fault("P1")
def test_the_worker_is_killed_again_and_again_under_load(service, long_form, figure):
    device = service({"Account": ACCOUNT, **Load.documents()}, "-L")
    supervisor = device.supervisor_pid
    rounds = 200 if long_form else 25
    with Load(device) as load:
        for _ in range(rounds):
            load.serve(5)
            device.kill_worker()
        load.serve(5)
    assert load.problems == []
    # Only who had a request in hand goes without an answer: one for each thread and kill at most.
    assert load.unanswered <= rounds * len(load.threads)
    load.check_files()
    assert device.supervisor_pid == supervisor
    assert device.request(USERNAME) == ADMIN
    assert not [p for p in device.processes() if p.state == "Z"]
    assert set(device.list_directory(CONFIGURATION)) == {"Account", *Load.documents()}
    figure("kills", rounds)
    figure("requests served", load.served)
    figure("requests in flight lost", load.unanswered)


@pytest.mark.fault("P1")
def test_who_waits_in_the_backlog_is_served_by_the_next_worker(service, figure):
    device = service({"Account": ACCOUNT}, "-L")
    for _ in range(5):
        worker = device.worker_pid
        device.send_signal(worker, signal.SIGSTOP)
        waiting = [Client(device.socket_path, device.patience) for _ in range(100)]
        for client in waiting:
            client.send_request(USERNAME)
        device.send_signal(worker, signal.SIGKILL)
        for client in waiting:
            assert client.receive_reply() == ADMIN
            client.close()
    figure("waiting clients served", 500)


@pytest.mark.fault("P2")
def test_terminated_at_random_under_load(device, long_form, figure):
    rng = random.Random(2)
    rounds = 40 if long_form else 6
    for number in range(rounds):
        device.write_documents({"Account": ACCOUNT, **Load.documents()})
        device.start()
        supervisor, worker = device.supervisor_pid, device.worker_pid
        victim = (supervisor, worker)[number % 2]
        with Load(device) as load:
            load.serve(rng.randrange(1, 60))
            load.stopping = True
            device.send_signal(victim, rng.choice((signal.SIGTERM, signal.SIGHUP)))
        assert device.wait_for_end(supervisor, device.patience) == 1
        load.check_files()
        if victim == supervisor:  # its worker finds the socket shut, and ends
            assert device.wait_for_end(worker, device.patience) == 1
        assert [p.pid for p in device.processes()] == [1]
        load.check_files()
        assert set(device.list_directory(CONFIGURATION)) <= {
            "Account", *Load.documents(), *(f".veltrancord-new.{n}" for n in Load.documents())}
    figure("terminations", rounds)


@pytest.mark.fault("P3")
def test_start_kill_start(device, long_form, figure):
    """Whatever value an earlier run has left, the starter comes back when requests are served."""
    device.write_document("Account", ACCOUNT)
    rounds = 30 if long_form else 6
    for number in range(rounds):
        for key in (520, 521, 522, 523, 530):
            device.set_semaphore(key, number % 4)
        device.start()
        with Client(device.socket_path, device.patience, wait=False) as client:
            client.send_request(USERNAME)
            assert client.receive_reply() == ADMIN
        assert device.semaphore(530) == 0
        device.power_cut()
    figure("starts", rounds)


# ---- programs ---------------------------------------------------------------------------------

EVENT_SCRIPT = "/tmp/trigger/EventLogCallBack.sh"
LIST = "#!/bin/sh\nls /proc/self/fd > /tmp/seen/.{0}\nmv /tmp/seen/.{0} /tmp/seen/{0}\n"


@pytest.mark.fault("F2")
def test_started_programs_get_the_standard_descriptors_only(device):
    """All four ways in which a program is started, with clients connected meanwhile."""
    install(device)
    device.write_document("Doc", '<Doc DispatchW="/tmp/dispatch.sh"/>')
    device.make_directory("/tmp/seen")
    for name, path in (("dispatch", "/tmp/dispatch.sh"), ("event", EVENT_SCRIPT),
                       ("permit", "/bin/PermitSyncCb.sh"), ("backup", "/tmp/BackupXmlDB.sh")):
        device.install_script(path, LIST.format(name))
    device.start()
    with device.connect() as idle, device.connect() as waiting:
        waiting.send(b"x")
        assert idle.is_open(0.05)
        for payload in ("write:Doc=1", b"writelog:" + record(1), "SyncPermit:", "XMLDBCallBack:"):
            assert device.request(payload).code >= 0
        for name in ("dispatch", "event", "permit", "backup"):
            path = f"/tmp/seen/{name}"
            wait_until(lambda path=path: device.file_exists(path), f"{name} has run")
            # The fourth is the directory that ls itself reads.
            assert device.read_file(path).split() == [b"0", b"1", b"2", b"3"], name


@pytest.mark.fault("P4")
@pytest.mark.parametrize("script", ["quick", "sleeping", "absent", "not executable"])
def test_many_events_each_starting_a_script(device, script, long_form, figure):
    amount = (1000 if long_form else 150) if script != "sleeping" else (300 if long_form else 60)
    if script != "absent":
        text = "#!/bin/sh\nexec sleep 100000\n" if script == "sleeping" else "#!/bin/sh\n"
        device.write_file(EVENT_SCRIPT, text, mode=0o644 if script == "not executable" else 0o755)
    device.write_document("Account", ACCOUNT)
    device.start()
    worker = device.worker_pid
    for number in range(amount):
        assert device.request(b"writelog:" + record(1, number % 256)).code == 0
    assert device.request(USERNAME) == ADMIN
    if script == "sleeping":
        children = device.children_of(worker)
        assert len(children) == amount  # nothing was waited for
        for child in children:
            device.send_signal(child, signal.SIGKILL)
    wait_until(lambda: not device.children_of(worker), "all are reaped", device.patience)
    started = 0 if script == "absent" else amount
    wait_until(lambda: device.stderr().count("reaping child ") == started, "all reapings are told")
    if script == "not executable":
        assert device.stderr().count("execve: Permission denied\n") == amount
    figure("events", amount)
