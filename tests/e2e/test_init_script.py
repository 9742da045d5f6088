"""The init script with the real start-stop-daemon."""

import re
import shutil

import pytest

from device import REPOSITORY

SCRIPT = (REPOSITORY / "packaging/sysv/veltrancord.in").read_text(encoding="utf-8")
PROGRAM = "/tmp/sbin/Veltrancord"

pytestmark = pytest.mark.skipif(shutil.which("start-stop-daemon", path="/usr/sbin:/sbin") is None,
                                reason="start-stop-daemon is not installed")


class Script:
    """The script on a device where the program is a file of its own, which an upgrade can replace."""

    def __init__(self, device, options=""):
        self.device = device
        device.install_script("/tmp/veltrancord", SCRIPT)
        device.write_file("/tmp/defaults", f'VELTRANCORD_OPTIONS="{options}"\n'
                          "VELTRANCORD_ADDRESS_SPACE=unlimited\n")
        self.put_program()

    def put_program(self):
        """As an upgrade does: a new file in place of the old one, which is gone."""
        done = self.device.run("/bin/sh", "-c", f"mkdir -p /tmp/sbin && cp /run/bin/Veltrancord {PROGRAM}.new "
                               f"&& mv {PROGRAM}.new {PROGRAM}")
        assert done.status == 0, done

    def __call__(self, action):
        """Return: the status."""
        return self.device.run("/usr/bin/env", f"VELTRANCORD_PROGRAM={PROGRAM}",
                               "VELTRANCORD_DEFAULTS=/tmp/defaults", "VELTRANCORD_TOOL=/tmp/tool", "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                               "/tmp/veltrancord", action).status

    def pids(self):
        """Return: supervisors and workers, each sorted."""
        ours = {one.pid: one for one in self.device.processes() if one.command.startswith(PROGRAM)}
        supervisors = [pid for pid, one in ours.items() if one.parent not in ours]
        return sorted(supervisors), sorted(set(ours) - set(supervisors))


@pytest.fixture
def script(device):
    device.write_documents({"System": "<System><Name>gate</Name></System>"})
    return Script(device)


@pytest.mark.parametrize("status", [0, 7])
def test_a_start_has_the_tool_finish_a_trial(script, status):
    script.device.install_script("/tmp/tool", f'#!/bin/sh\necho "$@" > /tmp/asked\nexit {status}\n')
    assert script("start") == 0
    assert script.device.read_file("/tmp/asked") == b"--timeout 60 trial resume\n"


def test_it_starts_tells_and_stops(script):
    assert script("status") == 3
    assert script("start") == 0
    supervisors, workers = script.pids()
    assert (len(supervisors), len(workers)) == (1, 1)
    assert script.device.read_file("/run/veltrancord.pid") == f"{supervisors[0]}\n".encode()
    assert script.device.request("readvalue:System.Name").text == "gate"
    assert script("status") == 0
    assert script("start") == 0
    assert script.pids() == (supervisors, workers)
    assert script("stop") == 0
    assert script.pids() == ([], [])
    assert script("status") == 3
    assert not script.device.file_exists("/run/veltrancord.pid")
    assert script("stop") == 0


def test_a_service_whose_program_was_replaced_is_still_known(script):
    script("start")
    before = script.pids()
    script.put_program()
    assert script("status") == 0
    assert script("start") == 0
    assert script.pids() == before
    assert script("restart") == 0
    supervisors, workers = script.pids()
    assert (len(supervisors), len(workers)) == (1, 1)
    assert not set(supervisors + workers) & set(before[0] + before[1])
    assert script("stop") == 0
    assert script.pids() == ([], [])


def test_a_number_that_another_process_has_got_is_not_the_service(script):
    script.device.write_file("/run/veltrancord.pid", "1\n")
    assert script("status") == 3
    assert script("start") == 0
    assert script("status") == 0
    assert len(script.pids()[0]) == 1


def test_it_starts_again_after_a_kill(script):
    script("start")
    killed = script.pids()
    for pid in killed[0] + killed[1]:
        script.device.run("/bin/kill", "-KILL", str(pid))
    assert script("status") == 3
    assert script("start") == 0
    assert len(script.pids()[0]) == 1


def test_the_options_are_set_in_one_place(device):
    device.make_directory("/mnt/other")
    device.write_file("/mnt/other/System", "<System><Name>other</Name></System>")
    script = Script(device, "-P /mnt/other -E /run/log.xml -t 600")
    assert script("start") == 0
    assert device.request("readvalue:System.Name").text == "other"
    assert device.file_exists("/run/log.xml")
    unit = (REPOSITORY / "packaging/systemd/veltrancord.service.in").read_text(encoding="utf-8")
    assert re.search(r"^EnvironmentFile=-/etc/default/veltrancord$", unit, re.M)
    assert re.search(r"^ExecStart=\S+ -l \$VELTRANCORD_OPTIONS$", unit, re.M)
    assert re.search(r"^ExecStartPost=-\S+/veltrancordctl --timeout \d+ trial resume$", unit, re.M)
    assert "DEFAULTS=${VELTRANCORD_DEFAULTS:-/etc/default/veltrancord}\n" in SCRIPT
