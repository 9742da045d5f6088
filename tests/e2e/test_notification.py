"""Which events start the device's script, and how it is started."""

import os

import pytest

from device import EVENT_LOG, wait_until
from log_model import record

SCRIPT = "/tmp/trigger/EventLogCallBack.sh"
GATE = "/tmp/alert_notify"
UTC = {"TZ": "UTC0"}

# Each run leaves a file named after the event's first detail value, whole from the start.
RECORDER = """#!/bin/sh
{
    printf '%s\\n' "$0" "$#" "$@"
    printf '%s\\n' -- ; tr '\\0' '\\n' < /proc/$$/environ
} > /tmp/fired/.$3
mv /tmp/fired/.$3 /tmp/fired/$3
"""


def settings(definitions=(), email=None, push=None, email_events=(), push_events=(), number=None):
    """The document Notification. `definitions` are pairs of bits and name, None: left out."""
    table = f"<Num>{len(definitions) if number is None else number}</Num>"
    for position, (bits, name) in enumerate(definitions, 1):
        table += f"<Def{position}>"
        table += f"<Bit>{bits}</Bit>" if bits is not None else ""
        table += f"<Name>{name}</Name>" if name is not None else ""
        table += f"</Def{position}>"

    def channel(name, action, events):
        switches = "".join(f"<{event}>{value}</{event}>" for event, value in dict(events).items())
        return (f"<{name}>" + (f"<Action>{action}</Action>" if action is not None else "")
                + f"<Events>{switches}</Events></{name}>")

    return (f"<Notification><Log><BitDefine>{table}</BitDefine>"
            f"{channel('Email', email, email_events)}{channel('Push', push, push_events)}"
            "</Log></Notification>")


class Events:
    """Events numbered by their first detail value, and which of them started the script."""

    def __init__(self, device):
        self.device = device
        self.number = 0
        self.expected = set()

    def send(self, event_type, fires, **fields):
        self.number += 1
        if fires:
            self.expected.add(str(self.number))
        request = b"writelogwithtime:" + record(event_type, first=self.number, **fields)
        assert self.device.request(request) == (0, b"")

    def fired(self):
        return {name for name in self.device.list_directory("/tmp/fired") if name[0] != "."}

    def check(self):
        """Every event that was to start the script has, and no other one."""
        wait_until(lambda: self.expected <= self.fired(), f"{self.expected} have started it")
        # Those that ought not to run were to be started before the last one that has run; let what
        # is under way come to its end.
        wait_until(lambda: not any(SCRIPT in process.command
                                   for process in self.device.processes()), "all runs have ended")
        assert self.fired() == self.expected


@pytest.fixture
def notify(device):
    """Starts the service on a document Notification and gives its Events."""
    events = []

    def started(document=None, **trace):
        device.mount_tmpfs(os.path.dirname(EVENT_LOG), size="1m")
        device.make_directory("/tmp/fired")
        device.write_file(SCRIPT, RECORDER, mode=0o755)
        if document is not None:
            device.write_document("Notification", document)
        (device.start_traced if trace else device.start)(environment=UTC, **trace)
        events.append(Events(device))
        return events[0]

    yield started
    for one in events:
        one.check()


def test_the_script_gets_the_event_and_a_fixed_environment(notify):
    events = notify()
    events.send(-5, True, text=b"a b;$(x) *", second=255, when=1706743389)
    events.check()
    assert events.device.read_file("/tmp/fired/1").decode().splitlines() == [
        SCRIPT, "5", "-5", "2024:0:31:23:23:9", "1", "a b;$(x) *", "255", "--",
        "PATH=/usr/bin:/usr/sbin:/bin:/sbin", "SHELL=/bin/sh", "HOME=/home"]


def test_the_vectors_are_exact(notify):
    events = notify()
    events.device.write_file(
        SCRIPT, "#!/bin/sh\ncat /proc/$$/cmdline /proc/$$/environ > /tmp/fired/.v\n"
                "mv /tmp/fired/.v /tmp/fired/$3\n", mode=0o755)
    events.send(2**31 - 1, True, text=b"", second=0, when=-2**31)
    events.check()
    assert events.device.read_file("/tmp/fired/1").split(b"\0") == [
        b"/bin/sh", SCRIPT.encode(), b"2147483647", b"1901:11:13:20:45:52", b"1", b"", b"0",
        b"PATH=/usr/bin:/usr/sbin:/bin:/sbin", b"SHELL=/bin/sh", b"HOME=/home", b""]


def test_without_settings_every_event_starts_it(notify):
    events = notify()
    for event_type in (0, 1, -1, 1 << 30):
        events.send(event_type, True)


def test_both_commands_start_it(notify):
    events = notify()
    reply = events.device.request(b"writelog:" + record(1, first=77))
    assert reply == (0, b"")
    events.expected.add("77")


def test_entries_that_do_not_read_back_start_it(notify):
    events = notify()
    events.send(1, True, text=b"a:b")


DOOR = [("0x1", "Door")]


@pytest.mark.parametrize("gate", [None, b"0", b"1", b"2 more", b"-1", b"garbage", b""])
@pytest.mark.parametrize("email", ["ON", "off", None])
@pytest.mark.parametrize("push", ["Yes", "NO", None])
def test_the_decision_table(notify, gate, email, push):
    events = notify(settings(
        [("0x01", "None"), ("0x02", "Mail"), ("0x04", "Push"), ("0x08", "Both")], email, push,
        {"None": "OFF", "Mail": "ON", "Push": "NO", "Both": "yes"},
        {"Mail": "NO", "Push": "ONLINE", "Both": "on"}))
    if gate is not None:
        events.device.write_file(GATE, gate)
    mails = email == "ON"
    pushes = push == "Yes"
    opened = gate in (b"1", b"2 more")
    events.send(0x01, False)
    events.send(0x02, mails)
    events.send(0x04, pushes and opened)
    events.send(0x08, mails or (pushes and opened))
    events.send(0x06, mails or (pushes and opened))
    events.send(0x10, True)
    events.send(0, True)


def test_bits(notify):
    events = notify(settings([("0x1", "A"), ("0x80000000", "B"), ("0x0030", "C"), ("no bits", "D"),
                              (None, "E"), ("0X40", "F"), ("0x123456789", "G"), ("0x", "H")]))
    for odd in (1, 3, 0x41, -1):
        events.send(odd, False)
    events.send(-2**31, False)
    events.send(0x10, False)
    events.send(0x20, False)
    events.send(0x40, True)
    events.send(2, True)
    assert events.device.stderr().count("Data is overflow!!\n") == 2 * 9


def test_several_definitions_of_one_bit(notify):
    events = notify(settings([("0x1", "A"), ("0x3", "B"), ("0x1", None)], "ON", None, {"B": "ON"}))
    events.send(1, True)
    events.send(2, True)
    events.send(4, True)


def test_a_definition_without_a_name_suppresses(notify):
    events = notify(settings([("0x1", None)], "ON", "ON"))
    events.send(1, False)
    events.send(2, True)


@pytest.mark.parametrize("number, counts", [("0", False), ("1", True), ("2147483647", True),
                                            ("-1", False), ("x", False), ("", False)])
def test_the_number_of_definitions(notify, number, counts):
    events = notify(settings(DOOR, number=number))
    events.send(1, not counts)
    events.send(2, True)


def test_settings_count_from_the_next_event_on(notify):
    events = notify(settings(DOOR, "OFF", "OFF", {"Door": "ON"}, {"Door": "ON"}))
    device = events.device

    def change(line):
        assert device.request(f"write:Notification.Log.{line}").code == 1

    events.send(1, False)
    change("Email.Action=ON")
    events.send(1, True)
    change("Email.Events.Door=OFF")
    events.send(1, False)
    change("Push.Action=ON")
    events.send(1, False)
    device.write_file(GATE, "1\n")
    events.send(1, True)
    device.write_file(GATE, "0\n")
    events.send(1, False)
    change("BitDefine.Def1.Bit=0x2")
    events.send(1, True)
    events.send(2, False)
    change("BitDefine.Num=0")
    events.send(2, True)


def test_settings_in_memory_count_too(notify):
    events = notify(settings(DOOR))
    events.send(1, False)
    assert events.device.request("writedbmem:Notification.Log.BitDefine.Num=0").code == 1
    events.send(1, True)


def test_a_gate_that_nobody_writes_to_is_not_waited_for(notify):
    events = notify(settings(DOOR, None, "ON", (), {"Door": "ON"}))
    os.mkfifo(events.device.outside(GATE))
    events.send(1, False)
    events.send(2, True)


def test_the_script_may_appear_and_disappear(notify):
    events = notify()
    device = events.device
    events.send(1, True)
    events.check()
    device.outside(SCRIPT).unlink()
    events.send(1, False)
    device.outside("/tmp/trigger").rmdir()
    events.send(1, False)
    device.write_file("/tmp/trigger", "a file")
    events.send(1, False)
    device.outside("/tmp/trigger").unlink()
    device.write_file(SCRIPT, RECORDER, mode=0o755)
    events.send(1, True)
    events.check()
    assert "execve" not in device.stderr()


@pytest.mark.fault("P4")
def test_a_script_that_cannot_be_run_is_reported(notify):
    events = notify()
    events.device.outside(SCRIPT).chmod(0o644)
    events.send(1, False)
    events.device.wait_for_stderr("execve: Permission denied\n")
    # Reaped by the service; 256 is how waitpid tells an exit status of 1.
    events.device.wait_for_stderr(": status 256\n")
    assert events.device.request("geteventcount:").code == 1


def test_a_fork_that_fails_is_reported(device, notify):
    device.require_no_sanitizer("thread", "its runtime forks in another way")
    events = notify(calls="vfork", trace_options=["-e", "inject=vfork:error=EAGAIN:when=1"])
    # The injection reaches the script's shell too, so this one needs no process of its own.
    events.device.write_file(SCRIPT, "#!/bin/sh\n: > /tmp/fired/$3\n", mode=0o755)
    events.send(1, False)
    events.device.wait_for_stderr("fork: Resource temporarily unavailable\n")
    assert events.device.request("geteventcount:").code == 1
    events.send(1, True)


@pytest.mark.fault("P4")
def test_a_script_that_sleeps_delays_nobody(notify):
    events = notify()
    device = events.device
    device.write_file(SCRIPT, "#!/bin/sh\ntouch /tmp/fired/$3\nexec sleep 100000\n", mode=0o755)
    for _ in range(5):
        events.send(1, True)

    def sleeping():
        return [p.pid for p in device.processes() if p.command == "sleep 100000"]

    wait_until(lambda: len(sleeping()) == 5, "all sleep")
    assert device.request("geteventcount:").code == 5
    for pid in sleeping():
        device.send_signal(pid, 15)


@pytest.mark.fault("F2")
def test_the_script_gets_the_standard_descriptors_only(notify):
    events = notify()
    events.device.write_file(
        SCRIPT, "#!/bin/sh\nls /proc/self/fd > /tmp/fired/.fds\nmv /tmp/fired/.fds /tmp/fired/$3\n",
        mode=0o755)
    events.send(1, True)
    events.check()
    # The fourth is the directory that ls itself reads.
    assert events.device.read_file("/tmp/fired/1").split() == [b"0", b"1", b"2", b"3"]


@pytest.mark.fault("P4")
def test_no_zombies_stay(notify):
    events = notify()
    device = events.device
    for _ in range(60):
        events.send(1, True)
    events.check()
    wait_until(lambda: not any(p.state == "Z" for p in device.processes()), "all are reaped")
    wait_until(lambda: device.stderr().count("reaping child ") == 60, "all reapings are told")
