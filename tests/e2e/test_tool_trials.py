"""veltrancordctl apply --confirm: changes that give themselves back, whoever is killed when."""

import os
import shutil
import signal

import pytest

from command_line import STATE, Tool
from device import LOGS, wait_until

FOLDER = "/run/veltrancord"
HOOK = "/tmp/hook"
NETWORK = (f'<Network><Lan><Mtu DispatchW="{HOOK}">1500</Mtu><Dhcp>YES</Dhcp></Lan></Network>')
WANTED = "Network.Lan.Mtu=1400\nNetwork.Lan.New.Deep=n\n"
WAITS = "else the settings from before come back"


@pytest.fixture
def tool(service):
    device = service({"Network": NETWORK, "System": "<System><Name>a</Name></System>"}, "-l")
    device.install_script(HOOK, "#!/bin/sh\n/bin/cat >> /tmp/seen\n")
    return Tool(device)


def value(tool, path="Network.Lan.Mtu"):
    return tool.device.request(f"readvalue:{path}").text


def on_flash(tool, document="Network"):
    return tool.device.read_document(document).decode()


def phase(tool):
    """How far the trial is, by the name of its journal; None where there is none."""
    folder = tool.device.outside(FOLDER)
    names = [one.name for one in folder.iterdir()] if folder.exists() else []
    found = [name for name in names if name.startswith("trial")]
    assert len(found) <= 1, names
    return found[0] if found else None


def guards(tool):
    return [one.pid for one in tool.device.processes() if " trial guard " in one.command
            and one.state != "Z"]


def seen(tool):
    """What the program of the setting has been given."""
    return tool.device.read_file("/tmp/seen").decode() if tool.device.file_exists("/tmp/seen") else ""


def given_back(tool):
    wait_until(lambda: phase(tool) is None, "the trial has ended")
    assert value(tool) == "1500"
    assert tool.device.request("readvalue:Network.Lan.New.Deep").code == -4
    assert tool.device.request("readattr:Network.Lan.New.#").code == -4
    assert ">1500<" in on_flash(tool) and "New" not in on_flash(tool)
    wait_until(lambda: not guards(tool), "the guard has ended")


class Begun:
    """apply --confirm inside the device, which waits."""

    def __init__(self, tool, seconds=600, wanted=WANTED):
        self.tool = tool
        tool.device.write_file("/tmp/wanted", wanted)
        self.pid, self.base = launch(tool, "apply", "/tmp/wanted", "--create", "--confirm", str(seconds))
        wait_until(lambda: WAITS in self.stderr() or self.status(0) is not None, "it waits or has ended")
        assert WAITS in self.stderr(), self.stderr()

    def stderr(self):
        return self.tool.device.read_file(self.base + ".err").decode()

    def status(self, seconds=60):
        return self.tool.device.wait_for_end(self.pid, seconds)

    def kill(self, number=signal.SIGKILL):
        self.tool.device.send_signal(self.pid, number)
        assert self.status() is not None


def launch(tool, *arguments, under=(), **options):
    return tool.device.launch(*under, "/usr/bin/env", f"VELTRANCORD_STATE={STATE}",
                              "/run/host" + tool.program, *arguments, **options)


# ---- what it is --------------------------------------------------------------------------------

@pytest.mark.fault("T2")
def test_a_trial_is_in_memory_only_and_its_journal_its_makers(tool):
    before = on_flash(tool)
    begun = Begun(tool)
    assert value(tool) == "1400" and value(tool, "Network.Lan.New.Deep") == "n"
    assert on_flash(tool) == before
    assert phase(tool) == "trial"
    assert tool.device.outside(f"{FOLDER}/trial").stat().st_mode & 0o777 == 0o600
    assert tool.device.outside(FOLDER).stat().st_mode & 0o007 == 0
    wait_until(lambda: "Mtu=1400" in seen(tool), "the program has run")
    assert tool("confirm").status == 0
    assert begun.status() == 0 and "confirmed" in begun.stderr()
    assert ">1400<" in on_flash(tool) and "<Deep>n</Deep>" in on_flash(tool)
    wait_until(lambda: not guards(tool), "the guard has ended")


@pytest.mark.fault("T2")
def test_nobody_confirms(tool):
    begun = Begun(tool, 1)
    assert begun.status() == 11 and "the settings from before are written back" in begun.stderr()
    given_back(tool)
    wait_until(lambda: seen(tool).count("Mtu=") == 2, "the program has run twice")
    assert seen(tool).endswith("Network.Lan.Mtu=1500\n")


def test_giving_back_writes_to_flash_only_where_something_was_created_or_saved(tool):
    before = tool.device.outside("/mnt/database/xml/Network").stat()
    Begun(tool, wanted="Network.Lan.Mtu=1400\n")
    assert tool("apply", "--restore").status == 0
    given_back(tool)
    assert tool.device.outside("/mnt/database/xml/Network").stat().st_ino == before.st_ino


def test_what_another_client_has_saved_is_given_back_on_flash_too(tool):
    Begun(tool, wanted="Network.Lan.Mtu=1400\n")
    tool.device.request("write:Network.Lan.Dhcp=NO")
    assert ">1400<" in on_flash(tool)  # as the manual warns
    assert tool("apply", "--restore").status == 0
    given_back(tool)
    assert ">NO<" in on_flash(tool)


def test_one_trial_at_a_time(tool):
    Begun(tool)
    for words in (["apply", "-"], ["apply", "-", "--confirm", "5"]):
        second = tool(*words, stdin="Network.Lan.Dhcp=NO\n")
        assert second.status == 7
        assert "another change waits for its confirmation, begun by user root" in second.stderr
    assert value(tool, "Network.Lan.Dhcp") == "YES"
    status = tool.json("trial", "status")
    assert (status["state"], status["owner"], status["guarded"]) == ("waiting", 0, True)
    assert 0 < status["seconds"] <= 600
    assert "waiting, begun by user root" in tool("trial", "status").stdout
    assert any("waits for its confirmation" in one["text"]
               for one in tool.json("doctor", status=10)["findings"])
    assert tool("apply", "--discard").status == 0
    assert ">1400<" in on_flash(tool)
    none = tool("trial", "status")
    assert none.status == 1 and "no change waits" in none.stderr
    assert tool.json("trial", "status", status=1)["state"] == "none"


def test_a_change_that_was_made_meanwhile_is_told(tool):
    """Between the comparison and the write, where the tool waits for the lock."""
    device = tool.device
    Begun(tool)
    assert tool("confirm").status == 0
    holder, _ = device.launch("flock", f"{FOLDER}/lock", "sh", "-c", "echo > /tmp/held; exec sleep 600")
    device.wait_for_file("/tmp/held")
    device.write_file("/tmp/wanted", "Network.Lan.Mtu=1300\n")
    pid, base = launch(tool, "apply", "/tmp/wanted", "--confirm", "600", "--timeout", "60")
    wait_until(lambda: b"+Network.Lan.Mtu=1300" in device.read_file(base + ".out"), "it has compared")
    device.request("write:Network.Lan.Mtu=1200")
    for process in [holder, *device.children_of(holder)]:  # who waits for a child ends with it
        device.send_signal(process, signal.SIGKILL)
    assert device.wait_for_end(pid, 60) == 5
    assert b"has changed meanwhile" in device.read_file(base + ".err")
    assert value(tool) == "1200" and phase(tool) is None


def test_it_is_confirmed_on_its_input(tool):
    tool.device.write_file("/tmp/wanted", WANTED)
    process = tool.outside("apply", str(tool.device.outside("/tmp/wanted")), "--create", "--confirm", "600",
                           env={**os.environ, "VELTRANCORD_TRIAL": str(tool.device.outside(FOLDER))})
    while WAITS not in process.stderr.readline():
        assert process.poll() is None
    process.communicate("confirm\n")
    assert process.returncode == 0
    assert ">1400<" in on_flash(tool)
    for words in (["confirm"], ["apply", "--restore"], ["apply", "--discard"]):
        again = tool(*words)
        assert again.status == 1 and "no change waits for a confirmation" in again.stderr


def test_the_next_run_on_a_terminal_asks(tool):
    Begun(tool)
    tool.device.power_cut()
    tool.device.start("-l")
    tool.device.write_file("/tmp/wanted", WANTED)
    terminal = tool.terminal(
        "apply", "--create", str(tool.device.outside("/tmp/wanted")),
        environment={"VELTRANCORD_TRIAL": str(tool.device.outside(FOLDER)), "NO_COLOR": "1"})
    terminal.wait_for("[y/N]")
    terminal.type("y\n")
    assert terminal.finish() == 0
    assert "the settings from before are written back" in terminal.text
    assert value(tool) == "1400"  # and then the file was applied anew


def test_a_hang_up_leaves_it_to_the_guard(tool):
    begun = Begun(tool)
    begun.kill(signal.SIGHUP)
    assert value(tool) == "1400" and phase(tool) == "trial"
    assert tool("confirm").status == 0
    assert ">1400<" in on_flash(tool)


def test_a_signal_gives_back(tool):
    for number in (signal.SIGINT, signal.SIGTERM):
        begun = Begun(tool)
        tool.device.send_signal(begun.pid, number)
        assert begun.status() == 11
        given_back(tool)


def test_a_failing_write_gives_back_what_it_did(tool):
    tool.device.write_file("/tmp/wanted", f"Network.Lan.Mtu=1400\nNetwork.Lan.{'x' * 250}=1\n")
    failed = tool("apply", "/tmp/wanted", "--create", "--confirm", "600")
    assert failed.status in (5, 6) and phase(tool) is None
    given_back(tool)


def test_an_element_without_text_is_given_back_with_its_attributes(tool):
    tool.device.request("write:Network.Lan.Label=x")
    tool.device.request("writeattr:Network.Lan.Label.Level=3")
    tool.device.request("write:Network.Lan.Label=")
    Begun(tool, wanted="Network.Lan.Label=new\n")
    assert tool("apply", "--restore").status == 0
    assert value(tool, "Network.Lan.Label") == ""
    assert tool("attr", "get", "Network.Lan.Label.Level").stdout == "3\n"


def test_what_could_not_be_written_back_is_not_tried(tool):
    tool.device.write_document("Lines", "<Lines><A><![CDATA[a\nb]]></A></Lines>")
    tool.device.restart()
    refused = tool("apply", "-", "--confirm", "1", stdin="Lines.A=c\n")
    assert refused.status == 5 and "line feed" in refused.stderr
    assert "a\nb" in tool("get", "Lines.A").stdout
    assert phase(tool) is None and not guards(tool)


def test_a_journal_of_another_user_is_ended_by_his_guard(tool):
    """A member of the group can rename the journal, and not read it."""
    for words, outcome in ((["confirm"], "1400"), (["apply", "--restore"], "1500")):
        begun = Begun(tool)
        tool.device.outside(f"{FOLDER}/trial").chmod(0)
        pid, base = launch(tool, *words, obey_permissions=True)
        assert tool.device.wait_for_end(pid, 60) == 0, tool.device.read_file(base + ".err")
        assert begun.status() is not None
        assert value(tool) == outcome and f">{outcome}<" in on_flash(tool)
        wait_until(lambda: not guards(tool), "the guard has ended")
        tool.device.request("write:Network.Lan.Mtu=1500")
        tool.device.request("remove:Network.Lan.New")


def test_a_journal_of_another_user_without_a_guard_stays_as_it_is(tool):
    begun = Begun(tool)
    begun.kill()
    for pid in guards(tool):
        tool.device.send_signal(pid, signal.SIGKILL)
    wait_until(lambda: not guards(tool), "the guard was killed")
    tool.device.outside(f"{FOLDER}/trial").chmod(0)
    for words in (["confirm"], ["apply", "--restore"]):
        pid, base = launch(tool, *words, obey_permissions=True)
        assert tool.device.wait_for_end(pid, 60) == 3
        assert b"another user's" in tool.device.read_file(base + ".err")
        assert phase(tool) == "trial"
    assert tool("trial", "resume").status == 0
    given_back(tool)


def test_a_folder_that_everybody_may_write_to_is_refused(tool):
    tool.device.make_directory(FOLDER)
    tool.device.outside(FOLDER).chmod(0o777)
    refused = tool("apply", "-", "--confirm", "600", stdin="Network.Lan.Mtu=1400\n")
    assert refused.status == 7 and "everybody" in refused.stderr
    assert value(tool) == "1500"


# ---- killed ------------------------------------------------------------------------------------

@pytest.mark.fault("T2")
def test_the_guard_gives_back_for_a_killed_tool(tool):
    begun = Begun(tool, 3)
    begun.kill()
    assert value(tool) == "1400"
    given_back(tool)


@pytest.mark.fault("T2")
def test_a_killed_tool_can_still_be_confirmed(tool):
    begun = Begun(tool)
    begun.kill()
    assert tool("confirm").status == 0
    assert ">1400<" in on_flash(tool)
    wait_until(lambda: not guards(tool), "the guard has ended")


@pytest.mark.fault("T2")
def test_a_guard_that_is_told_to_end_gives_back(tool):
    begun = Begun(tool)
    tool.device.send_signal(guards(tool)[0], signal.SIGTERM)
    assert begun.status() == 11
    given_back(tool)


@pytest.mark.fault("T2")
def test_a_stopped_tool_does_not_hold_the_end_up(tool):
    begun = Begun(tool, 2)
    tool.device.send_signal(begun.pid, signal.SIGSTOP)
    given_back(tool)
    tool.device.send_signal(begun.pid, signal.SIGCONT)
    assert begun.status() == 11


@pytest.mark.fault("T2")
def test_a_new_worker_ends_the_trial_and_the_programs_run_once_more(tool):
    begun = Begun(tool)
    wait_until(lambda: "Mtu=1400" in seen(tool), "the program has run")
    tool.device.kill_worker()
    assert begun.status() == 11
    given_back(tool)
    wait_until(lambda: seen(tool).endswith("Network.Lan.Mtu=1500\n"), "the program has run once more")


@pytest.mark.fault("T2")
def test_a_power_cut_gives_back_by_itself(tool):
    Begun(tool)
    tool.device.power_cut()
    shutil.rmtree(tool.device.outside(FOLDER))  # in memory
    tool.device.start("-l")
    assert tool("trial", "resume").status == 0
    assert value(tool) == "1500"
    assert tool.device.request("readattr:Network.Lan.New.#").code == -4


@pytest.mark.fault("T2")
def test_a_restart_of_everything_runs_the_programs_once_more(tool):
    Begun(tool)
    wait_until(lambda: "Mtu=1400" in seen(tool), "the program has run")
    tool.device.power_cut()
    tool.device.start("-l")
    left = tool("apply", "-", stdin="Network.Lan.Dhcp=NO\n")
    assert left.status == 11 and "neither confirmed nor taken back" in left.stderr
    assert any("left over" in one["text"] for one in tool.json("doctor", status=10)["findings"])
    resumed = tool("trial", "resume")
    assert resumed.status == 0 and "written back" in resumed.stderr
    given_back(tool)
    wait_until(lambda: seen(tool).endswith("Network.Lan.Mtu=1500\n"), "the program has run once more")
    assert tool("trial", "resume").status == 0  # and again, as at each boot


@pytest.mark.fault("T2")
def test_resume_leaves_a_guarded_trial_alone(tool):
    Begun(tool)
    resumed = tool("trial", "resume")
    assert resumed.status == 0 and "its guard is there" in resumed.stderr
    assert value(tool) == "1400" and phase(tool) == "trial"


@pytest.mark.fault("T2")
@pytest.mark.parametrize("decision", ["keeping", "returning"])
def test_what_was_decided_is_finished(tool, decision):
    """By the guard while it lives, else by resume; for a new worker that has lost what was kept too."""
    for guarded in (True, False):
        begun = Begun(tool)
        begun.kill()
        if not guarded:
            tool.device.send_signal(guards(tool)[0], signal.SIGKILL)
            wait_until(lambda: not guards(tool), "the guard was killed")
            tool.device.kill_worker()
        folder = tool.device.outside(FOLDER)
        (folder / "trial").rename(folder / f"trial-{decision}")
        if not guarded:
            assert tool("trial", "resume", "--timeout", "30").status == 0
        wait_until(lambda: phase(tool) is None, "it was finished")
        wanted = "1400" if decision == "keeping" else "1500"
        assert value(tool) == wanted and f">{wanted}<" in on_flash(tool)
        tool.device.request("write:Network.Lan.Mtu=1500")
        tool.device.request("remove:Network.Lan.New")


# Each step that changes something anywhere, and the exchanges.
STEPS = "rename,renameat,renameat2,unlink,unlinkat,mkdir,flock,connect,sendmsg,vfork,wait4"
BEGIN = ("apply", "/tmp/wanted", "--create", "--confirm", "600")


def under_strace(*options):
    return ["strace", "-qq", "-o", f"{LOGS}/strace", "-e", f"trace={STEPS}", *options]


def settle(tool, pid, base):
    """Waits until the tool has ended, or waits for a confirmation. Return: its status, None."""
    wait_until(lambda: tool.device.wait_for_end(pid, 0) is not None
               or WAITS in tool.device.read_file(base + ".err").decode(), "the tool is settled")
    return tool.device.wait_for_end(pid, 0)


def clean(tool):
    """As before any trial."""
    wait_until(lambda: tool.device.request("readvalue:Network.Lan.Dhcp").text == "YES", "it serves")
    if phase(tool) is not None:
        tool("apply", "--restore")
    wait_until(lambda: phase(tool) is None and not guards(tool), "the guard has ended")
    tool.device.request("write:Network.Lan.Mtu=1500")
    tool.device.request("remove:Network.Lan.New")


def steps_of(tool, *words):
    """Each step of the command, with how often it was made before: what `when=` of strace counts."""
    tool.device.write_file("/tmp/wanted", WANTED)
    settle(tool, *launch(tool, *words, under=under_strace()))
    found = []
    for line in tool.device.read_file(f"{LOGS}/strace").decode().splitlines():
        name = line.partition("(")[0]
        if name in STEPS.split(","):
            found.append((name, 1 + sum(one == name for one, _ in found)))
    clean(tool)
    return found


def launch_until(tool, what, step, *words):
    """Starts the command, which gets a signal at that step. Return: as `launch`."""
    tool.device.write_file("/tmp/wanted", WANTED)
    tool.device.write_file(f"{LOGS}/strace", "")
    name, number = step
    return launch(tool, *words, under=under_strace("-e", f"inject={name}:signal={what}:when={number}"))


@pytest.fixture
def strace():
    if shutil.which("strace") is None:
        pytest.skip("strace is not installed")


@pytest.mark.fault("T2")
@pytest.mark.usefixtures("strace")
def test_the_tool_is_killed_at_each_step_of_the_beginning(tool, record_property):
    Begun(tool)  # makes the folder
    clean(tool)
    steps = steps_of(tool, *BEGIN)
    for step in steps:
        assert settle(tool, *launch_until(tool, "KILL", step, *BEGIN)) is not None, step
        assert ">1500<" in on_flash(tool) and "New" not in on_flash(tool)
        if phase(tool) is not None and not guards(tool):
            assert tool("trial", "resume").status == 0
        elif phase(tool) is not None:
            assert tool("apply", "--restore").status in (0, 1)  # the guard may have been quicker
        given_back(tool)
    assert len(steps) > 20
    record_property("figure", f"kills: {len(steps)}")


@pytest.mark.fault("T2")
@pytest.mark.usefixtures("strace")
@pytest.mark.parametrize("words, outcome", [(("confirm",), "1400"), (("apply", "--restore"), "1500")])
def test_who_ends_it_is_killed_at_each_step(tool, record_property, words, outcome):
    Begun(tool).kill()
    steps = steps_of(tool, *words)
    for step in steps:
        Begun(tool).kill()
        assert settle(tool, *launch_until(tool, "KILL", step, *words)) not in (None, 0), step
        if phase(tool) == "trial":  # nothing was decided
            assert value(tool) == "1400" and ">1500<" in on_flash(tool)
            assert tool(*words).status == 0
        wait_until(lambda: phase(tool) is None, "the guard has finished it")
        assert value(tool) == outcome and f">{outcome}<" in on_flash(tool)
        clean(tool)
    assert len(steps) > 5
    record_property("figure", f"kills: {len(steps)}")


@pytest.mark.fault("T2")
@pytest.mark.usefixtures("strace")
@pytest.mark.parametrize("words, outcome", [
    (BEGIN, None), (("confirm",), "1400"), (("apply", "--restore"), "1500")])
def test_the_worker_is_killed_before_each_step(tool, record_property, words, outcome):
    """The tool is stopped at a step, the worker killed, and the tool goes on."""
    Begun(tool).kill()
    if outcome is None:
        clean(tool)
    steps = steps_of(tool, *words)
    for step in steps:
        if outcome is not None:
            Begun(tool).kill()
        pid, base = launch_until(tool, "STOP", step, *words)
        wait_until(lambda: b"--- stopped by SIGSTOP ---" in tool.device.read_file(f"{LOGS}/strace"),
                   f"it was stopped at {step}")
        tool.device.kill_worker()
        for one in tool.device.children_of(pid):
            tool.device.send_signal(one, signal.SIGCONT)
        settle(tool, pid, base)
        if outcome is None:
            clean(tool)
            given_back(tool)
            continue
        # A trial that was lost before anything was decided is given back.
        wait_until(lambda: phase(tool) is None, "it was finished")
        assert value(tool) in (outcome, "1500") and f">{value(tool)}<" in on_flash(tool)
        clean(tool)
    assert len(steps) > 5
    record_property("figure", f"kills: {len(steps)}")


# ---- apply without a confirmation --------------------------------------------------------------

def test_apply_takes_back_what_it_did_when_a_line_fails_midway(tool):
    tool.device.write_file("/tmp/wanted", "Network.Lan.Mtu=1400\nNetwork.Lan.New.Deep=1\nSystem.1st=1\n")
    failed = tool("apply", "/tmp/wanted", "--create")
    assert failed.status == 7
    assert failed.stderr.startswith("veltrancordctl: System.1st: the store could not apply the value")
    assert "the settings from before are written back" in failed.stderr
    given_back(tool)


def test_a_trial_of_which_a_line_fails_is_over(tool):
    tool.device.write_file("/tmp/wanted", "Network.Lan.Mtu=1400\nNetwork.Lan.New.Deep=1\nSystem.1st=1\n")
    failed = tool("apply", "/tmp/wanted", "--create", "--confirm", "600")
    assert failed.status == 7 and "System.1st: the store" in failed.stderr
    given_back(tool)


def test_a_document_that_is_not_there_cannot_be_tried(tool):
    failed = tool("apply", "-", "--create", "--confirm", "600", stdin="Network.Lan.Mtu=1\nNowhere.A=1\n")
    assert failed.status == 1 and "Nowhere.A" in failed.stderr
    given_back(tool)
    assert not tool.device.file_exists("/mnt/database/xml/Nowhere")


def test_a_trial_that_is_kept_is_in_the_history(tool):
    assert Begun(tool, 1).status() == 11
    assert tool("history").status == 4
    begun = Begun(tool)
    tool("confirm")
    assert begun.status() == 0
    assert "Network.Lan.Mtu=1400" in tool("history").stdout


def test_a_directory_without_a_service_has_no_trial(tool):
    Begun(tool)
    tool.device.write_file("/tmp/image/Network", NETWORK)
    applied = tool("apply", "-", "--root", "/tmp/image", stdin="Network.Lan.Mtu=1300\n")
    assert applied.status == 0 and b"1300" in tool.device.read_file("/tmp/image/Network")
    for words in (["-", "--confirm", "600"], ["--restore"], ["--discard"]):
        refused = tool("apply", *words, "--root", "/tmp/image", stdin="Network.Lan.Mtu=1\n")
        assert refused.status == 2 and "--root" in refused.stderr
    assert phase(tool) == "trial" and value(tool) == "1400"
