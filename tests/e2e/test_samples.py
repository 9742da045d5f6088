"""Every sample of the manuals is run: scripts, programs, requests, bytes and documents.

What cannot be run here stands in NOT_RUN with the reason. A new sample that is neither run nor
listed fails.
"""

import re
import shutil
import struct
import subprocess
import xml.etree.ElementTree
from pathlib import Path

import pytest

import command_line
import wire
from device import CONFIGURATION, EVENT_LOG, REPOSITORY, wait_until
from manual_samples import all_samples

SAMPLES = all_samples()

# The beginning of a command line of a script, and why it is not run here.
NOT_RUN = {
    "./dev ": "builds, installs or tests for minutes; .ci/run runs setup, format, build, run, lint, "
              "test and faults, and test_dev_commands_are_there looks that there is such a command",
    ".ci/run": "runs this very suite",
    "cmake -S . -B build-arm": "cross-compiles for minutes; ./dev arm runs it",
    "cmake --build build-arm": "cross-compiles for minutes; ./dev arm runs it",
    "DESTDIR=$PWD/root cmake --install build-arm": "run outside, by test_the_line_that_installs",
    "veltrancordctl apply /tmp/wanted --confirm 90": "waits for a person; test_tool_changes.py has it",
    "veltrancordctl confirm": "belongs to the one before",
    "ss -xpn": "needs root and a client that holds the service; faults/test_clients.py has one",
    "u_str ESTAB": "an output",
}

# Sections whose scripts start the service themselves, on a device without any document.
BARE = {("README.md", "Quick start: the board builder"), ("docs/configuration.md", "Documents")}


def is_run(line):
    return not line.startswith(tuple(NOT_RUN))


def those(kind):
    return [sample for sample in SAMPLES if sample.kind == kind]


def test_every_kind_of_sample_is_known_here():
    assert {sample.kind for sample in SAMPLES} == {"sh", "c", "python", "xml", "requests", "hex", "ini"}
    assert len(SAMPLES) > 25


def test_what_is_not_run_is_there():
    lines = [line for sample in those("sh") for line in sample.commands]
    for beginning, reason in NOT_RUN.items():
        assert reason and any(line.startswith(beginning) for line in lines), beginning


def test_dev_commands_are_there():
    for sample in those("sh"):
        for name in re.findall(r"^\./dev (\w+)", sample.text, re.MULTILINE):
            assert (REPOSITORY / "tools/commands" / name).is_file(), (str(sample), name)


# ---- scripts and programs -----------------------------------------------------------------------

@pytest.fixture(scope="session")
def installed(tmp_path_factory):
    """The libraries, installed beside the build that is tested. Return: the folder they are in."""
    build = Path(command_line.program()).parents[1]
    root = tmp_path_factory.mktemp("installed")
    for component in ("library", "development"):
        subprocess.run(["cmake", "--install", build, "--component", component], check=True,
                       env={"DESTDIR": str(root), "PATH": "/usr/bin:/bin"}, capture_output=True)
    return root


SCRIPTS = sorted({(sample.document, sample.section) for sample in SAMPLES
                  if sample.kind in ("sh", "c", "python") and sample.document != "docs/protocol.md"
                  and (sample.kind != "sh" or any(map(is_run, sample.commands)))})


@pytest.mark.parametrize("document, section", SCRIPTS)
def test_scripts_and_programs(device, request, document, section):
    """What stands under one heading is one story: programs are saved under the names that their
    first lines give, scripts run in order, in one shell that ends with the first failure."""
    installed = libraries = Path("/nonexistent")
    compiles = any((sample.document, sample.section, sample.kind) == (document, section, "c")
                   for sample in SAMPLES)
    if compiles:
        if device.sanitizer is not None or shutil.which("pkg-config") is None:
            pytest.skip("needs pkg-config, and libraries without a sanitizer")
        installed = request.getfixturevalue("installed")
        libraries = next(installed.rglob("libveltrancord.so.1")).parent
    device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
    device.make_directory("/tmp/story")
    device.make_directory("/tmp/bin")
    device.outside("/tmp/bin/Veltrancord").symlink_to("/run/bin/Veltrancord")
    bare = (document, section) in BARE
    if not bare:
        device.copy_sample_database()
        device.mount_tmpfs("/mnt/database/eventlog", size="1m")
        device.start()
        device.request(b"writelog:" + struct.pack("<i6xB16sBi", 2, 1, b"Gate", 0, 0))
    script = ["set -e", "cd /tmp/story"]
    for sample in SAMPLES:
        if (sample.document, sample.section) != (document, section):
            continue
        if sample.kind in ("c", "python"):
            name = re.search(r"^(?:/\*|#) (\w+\.\w+)", sample.text)
            assert name, f"{sample}: the first line does not name the file"
            device.write_file(f"/tmp/story/{name[1]}", sample.text)
        elif sample.kind == "sh":
            script += filter(is_run, sample.commands)
    tools = f"/run/host{Path(command_line.program()).parent}"
    finished = device.run(
        "/usr/bin/env", f"PATH=/tmp/bin:{tools}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/tmp",
        f"PYTHONPATH=/run/host{REPOSITORY}/client/python",
        f"PKG_CONFIG_LIBDIR=/run/host{libraries}/pkgconfig",
        f"PKG_CONFIG_SYSROOT_DIR=/run/host{installed}",
        f"LD_LIBRARY_PATH=/run/host{libraries}",
        "/bin/sh", "-c", "\n".join(script))
    command_line.check_sound(finished.stderr)
    assert finished.status == 0, ("\n".join(script), finished)
    printed = PRINTED.get((document, section))
    assert printed is None or finished.stdout == printed
    if bare:
        assert device.request("readvalue:System.Name") == (4, b"gate")
        assert "skip" not in device.read_file(CONFIGURATION + "/System").decode()


def test_the_line_that_installs(tmp_path):
    (line,) = [line for sample in those("sh") for line in sample.commands
               if line.startswith("DESTDIR=$PWD/root cmake --install build-arm")]
    build = Path(command_line.program()).parents[1]
    subprocess.run(["/bin/sh", "-ec", line.replace("build-arm", str(build))], check=True, cwd=tmp_path,
                   capture_output=True)
    (program,) = (tmp_path / "root").rglob("Veltrancord")
    assert program.parent.name == "sbin"


# What the scripts of a section print in all, where that is told beside them.
PRINTED = {
    ("README.md", "Quick start: the author of CGI programs"): (
        "Yard recorder\nthe address is 192.0.2.40\ndenied\nnot for the operator\n"
        "Content-Type: text/plain\r\n\r\nYard recorder\n"
        "Content-Type: text/plain\n\nYard recorder\n"),
}


# ---- requests, bytes, documents -----------------------------------------------------------------

def element_texts(document, root):
    """The XML samples of a document, put together under one root element."""
    return f"<{root}>" + "".join(sample.text for sample in those("xml")
                                 if sample.document == document) + f"</{root}>"


def test_the_requests_of_the_permissions(service):
    """One device through all of the document: its configuration is the samples in their order."""
    device = service({"Account": element_texts("docs/permissions.md", "Account")})
    count = 0
    for sample in those("requests"):
        if sample.document != "docs/permissions.md":
            continue
        for line in sample.text.splitlines():
            request, code, text = re.match(r'(\S+) +(?:(-?\d+)|"(.*?)")', line).groups()
            expected = (int(code), b"") if text is None else (len(text), text.encode())
            assert device.request(request) == expected, (str(sample), line)
            count += 1
    assert count > 25


def test_the_requests_of_the_event_log(service):
    device = service({"Notification": "<Notification/>"})
    (sample,) = [one for one in those("requests") if one.document == "docs/eventlog.md"]
    assert device.request(sample.text).code == len(sample.text.splitlines())
    device.install_script("/tmp/trigger/EventLogCallBack.sh", '#!/bin/sh\necho "$1" >> /tmp/told\n')
    for kind in (2, 1, 4):  # windows, doors, something else
        device.request(b"writelog:" + struct.pack("<i6xB16sBi", kind, 0, b"x", 0, 0))
    wait_until(lambda: device.file_exists("/tmp/told")
               and len(device.read_file("/tmp/told").split()) == 2, "two events were told")
    assert sorted(device.read_file("/tmp/told").split()) == [b"1", b"4"]


def test_the_file_of_the_event_log(device):
    (sample,) = [one for one in those("xml") if one.document == "docs/eventlog.md"]
    device.mount_tmpfs("/mnt/database/eventlog", size="256k")
    device.write_file(EVENT_LOG, sample.text + "\n")
    device.start()
    assert device.request("geteventcount:").code == 2
    newest = device.request("readlog:1&-1&1").body
    assert struct.unpack("<iBBBBBBB16sBi", newest) == (1, 24, 0, 31, 23, 5, 12, 0,
                                                       b"door".ljust(16, b"\0"), 0, 0)
    assert "event log max number = 512 iAvailHddSize=0x40000\n" in device.stderr()
    assert "event log max number = 512 iAvailHddSize=0x40000" in (
        REPOSITORY / "docs/eventlog.md").read_text()


def test_the_documents_of_the_configuration(service):
    (sample,) = [one for one in those("xml") if one.document == "docs/configuration.md"]
    root = xml.etree.ElementTree.fromstring(sample.text).tag
    assert service({root: sample.text + "\n"}).request("readvalue:Network.Lan.Mtu") == (4, b"1500")


def limits_of(text):
    return {name: int(size) for name, size in re.findall(r"^(\w+)=(\d+)M$", text, re.MULTILINE)}


def test_the_drop_in_raises_what_the_unit_limits():
    unit = limits_of((REPOSITORY / "packaging/systemd/veltrancord.service.in").read_text())
    (sample,) = those("ini")
    raised = limits_of(sample.text)
    assert raised.keys() == {"LimitAS", "MemoryMax"}
    assert all(size > unit[name] for name, size in raised.items())
    assert raised["MemoryMax"] >= raised["LimitAS"] + 64


def test_every_xml_sample_has_its_test():
    assert {sample.document for sample in those("xml")} == {
        "docs/permissions.md", "docs/eventlog.md", "docs/configuration.md"}


def test_the_bytes_of_the_protocol(sample):
    """Two frames of the document and what they stand for."""
    dumps = [bytes.fromhex("".join(re.match(r"((?:[0-9A-F]{2} {1,2})+) ", line)[1]
                                   for line in one.text.splitlines())) for one in those("hex")]
    assert dumps[0] == wire.frame("read:System.Name")
    with sample.connect() as client:
        client.send(wire.frame("readvalue:System.Name"))
        assert client.receive(1000) == dumps[1]
    assert len(dumps) == 2


def test_the_client_of_the_protocol(sample):
    (program,) = [one for one in those("python") if one.document == "docs/protocol.md"]
    text = program.text.replace("/tmp/Veltrancord.unix", sample.socket_path)
    names = {}
    exec(compile(text, str(program), "exec"), names)
    assert names["ask"](b"readvalue:System.Name") == (13, b"Yard recorder")
    assert names["ask"](b"Read:System.Name") == (-4, b"")
    assert names["ask"](b"no colon") is None


def test_the_bytes_of_the_manual_page(service):
    """veltrancord(7) shows one request and two replies."""
    page = (REPOSITORY / "client/man/veltrancord.7").read_text().replace("\n", " ")
    shown = [bytes.fromhex(one) for one in re.findall(r"(?:[0-9A-F]{2} )+[0-9A-F]{2}", page)]
    device = service({"A": "<A><B>1</B></A>"})
    assert shown[0] == wire.frame("read:A.B")
    for request, expected in ((shown[0], shown[1]), (wire.frame("read:A.C"), shown[2])):
        with device.connect() as client:
            client.send(request)
            assert client.receive(1000) == expected
