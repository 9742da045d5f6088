"""The backup script and the thread that runs it. The clock is moved; nothing is waited for."""

import pytest

from device import wait_until

SCRIPT = "/tmp/BackupXmlDB.sh"
# One line for each run: its arguments, each in brackets.
RECORDING = """#!/bin/sh
line=
for argument; do line="$line[$argument]"; done
echo "$line" >>/tmp/backups
"""
SLEEPS = ("35", "230")  # nanosleep and clock_nanosleep, as /proc/PID/syscall numbers them
DOCUMENT = {"Doc": "<Doc><V>0</V></Doc>"}


def backups(device):
    return device.read_file("/tmp/backups").decode().splitlines() \
        if device.file_exists("/tmp/backups") else []


def test_the_script_gets_the_text_as_it_stands(service):
    device = service(DOCUMENT)
    assert device.request("XMLDBCallBack:now").code == 0  # no script
    device.install_script(SCRIPT, RECORDING)
    for text in ("now", "", "two words", "'two words' $((1 + 1))"):
        assert device.request("XMLDBCallBack:" + text) == (0, b"")
    assert backups(device) == ["[now]", "", "[two][words]", "[two words][2]"]


def test_a_long_text_runs_nothing(service):
    device = service(DOCUMENT)
    device.install_script(SCRIPT, RECORDING)
    assert device.request("XMLDBCallBack:" + "x" * 256).code == 0
    assert device.request("XMLDBCallBack:" + "x" * 257).code == 0
    assert backups(device) == ["[" + "x" * 256 + "]"]
    assert device.stderr().count("input parameter fail !!\n") == 1


def test_a_failing_script_is_no_failure(service):
    device = service(DOCUMENT)
    device.install_script(SCRIPT, "#!/bin/sh\nexit 3\n")
    assert device.request("XMLDBCallBack:now").code == 0


class Clock:
    """A device whose clock is moved and runs ten times as fast, so that its backup thread looks
    twice a second.

    Whether the thread has looked is seen by the sleeps it is found in, so nothing is measured. The
    distances below leave a slow machine at least a minute; the rule's exact bounds are tried in
    src/update/backup_test.cpp."""

    RATE = 10

    def __init__(self, device):
        self.device = device
        self.position = 0

    def move(self, seconds):
        self.position += seconds
        self.device.move_clock(self.position, self.RATE)

    def _sleep(self):
        """Which of its sleeps until the next look the backup thread, which the worker starts second,
        is in, by a number that grows; None: it is looking, or waits for something else."""
        tasks = self.device.outside(f"/proc/{self.device.worker_pid}/task")
        thread = sorted(tasks.iterdir(), key=lambda task: int(task.name))[1]

        def times_stopped():
            status = (thread / "status").read_text()
            return int(status.split("voluntary_ctxt_switches:")[1].split()[0])

        before = times_stopped()
        call = (thread / "syscall").read_text().split()[0]
        return before if call in SLEEPS and times_stopped() == before else None

    def finish_look(self):
        wait_until(self._sleep, "the thread sleeps", self.device.patience)

    def pass_looks(self):
        """At least one look has begun and ended when this returns."""
        first = wait_until(self._sleep, "the thread sleeps", self.device.patience)
        wait_until(lambda: (self._sleep() or 0) > first, "the thread has looked",
                   self.device.patience)

    def wait_for_backups(self, count):
        wait_until(lambda: len(backups(self.device)) >= count, f"backup {count} was made",
                   self.device.patience)
        assert backups(self.device) == ["[internal]"] * count
        # Behind the script the thread still clears the counter: a change that came before that
        # would not count. It is done when it has gone to sleep again.
        self.finish_look()


@pytest.fixture
def start_clock(device):
    """A function that starts the device with a backup interval."""
    device.require_fake_clock()
    device.write_documents(DOCUMENT)
    device.install_script(SCRIPT, RECORDING)

    def start(interval):
        device.start("-t", str(interval), fake_clock=Clock.RATE)
        return Clock(device)

    return start


def test_a_change_is_backed_up_once_the_interval_is_over(device, start_clock):
    clock = start_clock(1700)
    # Nothing has changed: no backup, whatever the clock does.
    clock.move(100000)
    device.request("read:Doc.V")
    device.request("writedbmem:Doc.V=1")
    clock.pass_looks()
    assert backups(device) == []
    # The first change after the start is backed up at the next look.
    device.request("write:Doc.V=1")
    clock.wait_for_backups(1)
    # The next one waits.
    device.request("writeattr:Doc.V.Level=1")
    clock.move(1000)
    clock.pass_looks()
    clock.wait_for_backups(1)
    clock.move(750)
    clock.wait_for_backups(2)
    # Without a further change there is none.
    clock.move(10000)
    clock.pass_looks()
    clock.wait_for_backups(2)
    device.request("syncmemtoflash:")
    clock.wait_for_backups(3)


@pytest.mark.fault("C2")
def test_a_clock_set_back(device, start_clock):
    clock = start_clock(1700)
    device.request("write:Doc.V=1")
    clock.wait_for_backups(1)
    device.request("write:Doc.V=2")
    clock.move(-1700)  # a small step back only makes the change wait
    clock.pass_looks()
    clock.wait_for_backups(1)
    clock.move(-1900)  # more than half an hour is a step
    clock.wait_for_backups(2)


@pytest.mark.fault("C2")
def test_half_an_hour_is_a_step_even_within_the_interval(device, start_clock):
    clock = start_clock(36000)
    device.request("write:Doc.V=1")
    clock.wait_for_backups(1)
    device.request("write:Doc.V=2")
    clock.move(1000)
    clock.pass_looks()
    clock.wait_for_backups(1)
    clock.move(810)
    clock.wait_for_backups(2)


def test_the_interval_begins_when_the_script_has_ended(device):
    device.require_fake_clock()
    device.write_documents(DOCUMENT)
    # The first script takes 1,600 seconds.
    device.install_script(SCRIPT, RECORDING + (
        "[ -e /tmp/long ] && exit\necho x >/tmp/long\n"
        f"echo '+1600 x{Clock.RATE}' >/run/clock.long\n/usr/bin/mv /run/clock.long /run/clock\n"))
    device.start("-t", "1700", fake_clock=Clock.RATE)
    clock = Clock(device)
    device.request("write:Doc.V=1")
    clock.wait_for_backups(1)
    clock.position = 1600
    device.request("write:Doc.V=2")
    clock.move(1000)
    clock.pass_looks()
    clock.wait_for_backups(1)
    clock.move(750)
    clock.wait_for_backups(2)


def test_a_backup_measures_the_reply_capacity_anew(device, start_clock):
    clock = start_clock(1700)
    value = "x" * 4000
    lines = "\n".join(f"Doc.V{i}={value}" for i in range(70))  # more than the least capacity
    assert device.request("writedbmem:" + lines).code == 70
    assert device.request("read:Doc.*").code <= 0
    assert device.request("syncmemtoflash:").code == 0
    clock.wait_for_backups(1)
    assert device.request("read:Doc.*").code > 262144


def test_requests_are_served_while_the_script_runs(device):
    device.require_fake_clock()
    device.write_documents(DOCUMENT)
    device.install_script(SCRIPT, "#!/bin/sh\necho x >/tmp/running\n"
                                  "while [ ! -e /tmp/go ]; do /usr/bin/sleep 0.05; done\n"
                                  "echo x >/tmp/backups\n")
    device.start(fake_clock=Clock.RATE)
    device.request("write:Doc.V=1")
    device.wait_for_file("/tmp/running")
    assert device.request("readvalue:Doc.V").text == "1"
    assert backups(device) == []
    device.write_file("/tmp/go", "")
    device.wait_for_file("/tmp/backups")


@pytest.mark.parametrize("option", ["100", "300", "abc"])
def test_no_interval_is_shorter_than_five_minutes(device, option):
    device.require_fake_clock()
    device.write_documents(DOCUMENT)
    device.install_script(SCRIPT, RECORDING)
    clock = Clock(device)
    clock.RATE = 3  # which leaves a slow machine its minute here too
    device.start("-t", option, fake_clock=clock.RATE)
    device.request("write:Doc.V=1")
    clock.wait_for_backups(1)
    device.request("write:Doc.V=2")
    clock.move(101)
    clock.pass_looks()
    clock.wait_for_backups(1)
    clock.move(200)
    clock.wait_for_backups(2)
