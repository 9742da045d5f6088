"""Each example program does what its first lines say, against the real service."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

import command_line
from device import REPOSITORY

PROGRAMS = REPOSITORY / "examples/programs"
NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan></Network>"
ACCOUNT = (
    "<Account><User1><Username>admin</Username><Level>Admin</Level></User1>"
    "<User2><Username>guest</Username><Level>Guest</Level></User2>"
    '<Permission><Define><Permit1 Type="Switch">Show</Permit1></Define>'
    "<Group1><Name>Admin</Name><Permit1>YES</Permit1></Group1>"
    "<Group2><Name>Guest</Name><Permit1>NO</Permit1></Group2></Permission>"
    "<CGIPermitDenyFilter><R1><RelatedPermit>Permit1</RelatedPermit><C1><CMD>show</CMD></C1></R1>"
    "</CGIPermitDenyFilter></Account>")


@pytest.fixture
def run(service):
    device = service({"Network": NETWORK, "Account": ACCOUNT})
    tools = Path(command_line.program()).parent

    def run_program(*arguments, **variables):
        environment = {**os.environ, "VELTRANCORD_SOCKET": device.socket_path,
                       "PATH": f"{tools}:{os.environ['PATH']}",
                       "PYTHONPATH": str(REPOSITORY / "client/python"), **variables}
        program = str(tools / arguments[0]) if arguments[0].startswith("example_") else str(
            PROGRAMS / arguments[0])
        command = [program, *arguments[1:]]
        if program.endswith(".py"):
            command.insert(0, sys.executable)
        return subprocess.run(command, env=environment, capture_output=True, text=True, check=False)

    run_program.device = device
    return run_program


def test_every_example_is_short_and_is_run_here():
    text = Path(__file__).read_text()
    for source in PROGRAMS.iterdir():
        if source.name == "CMakeLists.txt":
            continue
        assert len(source.read_text().splitlines()) < 60, source
        name = f"example_{source.stem}" if source.suffix in (".c", ".cpp") else source.name
        assert f'run("{name}"' in text, source


def test_c(run):
    assert run("example_read_setting", "Network.Lan.Mtu").stdout == "1500\n"
    missing = run("example_read_setting", "Network.Nothing")
    assert (missing.returncode, missing.stderr) == (1, "Network.Nothing: not found\n")


def test_cpp(run):
    run("example_note_event", "16", "door open")
    lines = run("example_note_event", "32", "door closed").stdout.splitlines()
    assert [line.split(" ", 1)[1] for line in lines] == ["32 door closed", "16 door open"]
    assert "could not be read back" in run("example_note_event", "1", "a:b").stderr


def test_python(run):
    changed = run("set_address.py", "Network.Lan", "10.0.0.5", "255.255.255.0")
    assert "Network.Lan.Address is 10.0.0.5\n" in changed.stdout
    assert run.device.request("readvalue:Network.Lan.Dhcp").text == "NO"
    refused = run("set_address.py", "Network.Lan", "10.0.0.5\n", "x")
    assert refused.stderr.startswith(
        "nothing was sent: Network.Lan.Address: a value cannot hold a line feed")


def test_shell(run):
    assert run("change_safely.sh", "Network.Lan.Mtu", "9000", "true").stdout == (
        "Network.Lan.Mtu is 9000\n")
    assert run("change_safely.sh", "Network.Lan.Mtu", "1400", "false").returncode == 1
    assert run.device.request("readvalue:Network.Lan.Mtu").text == "9000"


def test_cgi(run):
    def page(user="admin", query="Network.Lan.Mtu", cookie="a=b; session=s1; c=d"):
        return run("example_setting_cgi", REMOTE_USER=user, QUERY_STRING=query,
                   HTTP_COOKIE=cookie).stdout

    assert page().startswith("Status: 403")
    run.device.request("SetSession:s1")
    assert page().startswith("Status: 200") and page().endswith("\n1500\n")
    assert page(user="guest").startswith("Status: 403")
    assert page(query="Network.Nothing").startswith("Status: 404")
    assert page(cookie="session=other").startswith("Status: 403")
