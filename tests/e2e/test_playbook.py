"""The playbooks of examples/ansible on three devices, and the metrics of examples/fleet.

Ansible, its playbooks and its SSH connection are the real ones. The program "ssh" is not: a server of
it cannot run as the one user that a device's namespaces have, so a script of that name enters the
device's namespaces, anew for each connection, and runs there what it is given.
"""

import re
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

import command_line
from device import REPOSITORY, Device, wait_until

EXAMPLES = REPOSITORY / "examples"
NETWORK = '<Network><Lan><Mtu DispatchW="/tmp/changed">1500</Mtu><Dhcp>YES</Dhcp></Lan></Network>'
SSH = """#!/bin/sh
# The last words are the host and the command.
while [ $# -gt 2 ]; do shift; done
[ "$1" != -O ] || exit 0
pid=$(cat {folder}/"$1") || exit 255
[ ! -e /proc/$pid/root/tmp/unreachable ] || {{ echo "no route to $1" >&2; exit 255; }}
exec nsenter --target "$pid" --user --preserve-credentials --mount --pid --ipc -- \\
    /usr/bin/env -i PATH={tools}:/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp VELTRANCORD_STATE=/tmp/state \\
    /bin/sh -c "$2"
"""


class Fleet:
    """Three devices, and Ansible that reaches them."""

    def __init__(self, folder):
        self.folder = folder
        self.devices = {f"yard-{number}": Device() for number in (1, 2, 3)}
        addresses = re.findall(r"^(yard-\d) ansible_host=(\S+)$",
                               (EXAMPLES / "ansible/inventory.ini").read_text(), re.MULTILINE)
        assert [name for name, _ in addresses] == list(self.devices)
        for name, address in addresses:
            device = self.devices[name]
            device.write_documents({"Network": NETWORK})
            device.install_script("/tmp/changed", "#!/bin/sh\n")
            device.bind("/tmp", "/var/lib")  # a device's own, for its snapshot
            device.start()
            (folder / address).write_text(str(device.init_pid))
        tools = Path(command_line.program()).parent
        (folder / "ssh").write_text(SSH.format(folder=folder, tools=f"/run/host{tools}"))
        (folder / "ssh").chmod(0o755)
        (folder / "wanted.txt").write_text("Network.Lan.Mtu=1400\n")

    def play(self, book, *arguments):
        return subprocess.run(
            ["ansible-playbook", "-i", EXAMPLES / "ansible/inventory.ini", EXAMPLES / f"ansible/{book}.yml",
             "-e", f"settings={self.folder / 'wanted.txt'}", *arguments],
            capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL,
            env={"PATH": "/usr/bin:/bin", "HOME": str(self.folder), "LC_ALL": "C.UTF-8",
                 "ANSIBLE_SSH_EXECUTABLE": str(self.folder / "ssh"), "ANSIBLE_NOCOLOR": "1"})

    def values(self):
        return [one.request("readvalue:Network.Lan.Mtu").text for one in self.devices.values()]

    def files(self):
        return [re.search(r">(\d+)<", one.read_document("Network").decode())[1]
                for one in self.devices.values()]


@pytest.fixture
def fleet(tmp_path):
    if shutil.which("ansible-playbook", path="/usr/bin") is None:
        pytest.skip("ansible-core is not installed")
    one = Fleet(tmp_path)
    yield one
    for device in one.devices.values():
        device.close()


def test_a_playbook_changes_what_it_can_reach_and_goes_back(fleet):
    looked = fleet.play("change", "--check")
    assert looked.returncode == 0, looked.stdout + looked.stderr
    assert fleet.values() == ["1500"] * 3

    # The third device cannot be reached any more once its setting has changed.
    lost = fleet.devices["yard-3"]
    lost.install_script("/tmp/changed", "#!/bin/sh\n: >/tmp/unreachable\n")
    done = fleet.play("change")
    assert done.returncode == 4, done.stdout + done.stderr
    assert re.search(r"^yard-3 .*unreachable=1", done.stdout, re.MULTILINE), done.stdout
    assert fleet.values() == ["1400"] * 3
    for guard in [one.pid for one in lost.processes() if " trial guard " in one.command]:
        lost.send_signal(guard, signal.SIGTERM)  # in the place of two minutes
    wait_until(lambda: fleet.files() == ["1400", "1400", "1500"] and fleet.values() == fleet.files(),
               f"two are changed and one is back: {done.stdout}")

    lost.install_script("/tmp/changed", "#!/bin/sh\n")
    lost.outside("/tmp/unreachable").unlink()
    back = fleet.play("roll_back")
    assert back.returncode == 0, back.stdout + back.stderr
    assert fleet.values() == fleet.files() == ["1500"] * 3


def test_the_metrics_are_written_for_a_node_exporter(sample):
    """As the timer has it done; with the bridge's number where there is a bridge."""
    tools = Path(command_line.program()).parent
    sample.write_file("/tmp/backup", "x")
    run = ["/usr/bin/env", f"PATH=/run/host{tools}:/usr/bin:/bin", "sh",
           f"/run/host{EXAMPLES}/fleet/write_metrics.sh", "/tmp/veltrancord.prom", "/tmp/backup"]
    assert sample.run(*run).status == 0
    text = sample.read_file("/tmp/veltrancord.prom").decode()
    assert "veltrancord_up 1\n" in text
    written = float(re.search(r"^veltrancord_last_backup_timestamp_seconds (\d+)$", text, re.MULTILINE)[1])
    assert abs(time.time() - written) < 3600
    for name in re.findall(r"\b(veltrancord_\w+)\b", (REPOSITORY / "docs/fleet.md").read_text()):
        assert f"# TYPE {name} " in text or name == "veltrancord_certificate_expiry_timestamp_seconds", name
    if shutil.which("promtool"):
        subprocess.run(["promtool", "check", "metrics"], input=text, text=True, check=True)
    sample.stop()
    assert sample.run(*run).status == 0
    assert "veltrancord_up 0\n" in sample.read_file("/tmp/veltrancord.prom").decode()
    assert not sample.file_exists("/tmp/veltrancord.prom.new")
