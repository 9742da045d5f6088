"""Every sample of the manuals is run: scripts, programs, requests, bytes, documents, outputs, drawings.

CONTRIBUTING.md tells what is done with each kind of block. A block that no test has taken fails.
"""

import re
import shlex
import shutil
import struct
import subprocess
import sys
import threading
import xml.etree.ElementTree
from pathlib import Path

import pytest

import command_line
import wire
from access_table import SAMPLE, WEB_USER, TableDevice
from device import CONFIGURATION, EVENT_LOG, REPOSITORY, SOCKET, wait_until
from guard_device import GuardedDevice
from manual_samples import all_samples
from peers import Peer

SAMPLES = all_samples()
TAKEN = []  # the samples that have a test of their own


def take(document, kind, section=None):
    """Samples for a test of their own. Return: those of that kind, in order."""
    found = [sample for sample in SAMPLES if sample.document == document and sample.kind == kind
             and section in (None, sample.section)]
    assert found, f"there is no such sample in {document}"
    TAKEN.extend(found)
    return found


# The beginning of a command line, and why it is not run here.
NOT_RUN = {
    "./dev ": "takes minutes or installs; .ci/run runs it, and test_what_dev_is_asked_its_help_tells "
              "looks that there is such a command with such arguments",
    ".ci/run": "runs this very suite",
    "pytest ": "runs this very suite; test_the_options_of_the_suite looks that there are such options",
    "sudo dpkg": "changes the machine; ./dev arm does the same by tools/arm_packages.sh",
    "sudo apt-get": "changes the machine; test_the_packages_are_those_that_are_installed looks at them",
    "cmake -S . -B build-arm": "cross-compiles for minutes; test_board.py types it, which ./dev arm runs",
    "cmake --build build-arm": "the same",
    "DESTDIR=$PWD/root cmake --install build-arm": "the same",
}

LAN = r"(Network\.Lan\.[\w.]+{}.*\n){{15}}"  # each setting of Network.Lan in the sample configuration
# What the service prints that is started where there is neither a log nor a permission yet.
FIRST_START = (r"event log max number = \d+ iAvailHddSize=0x[0-9a-f]+\n"
               r"open file is failed\nread xml error -4!!\n")
HISTORY = (r"\d+  [-\d]+ [:\d]+  \S+  veltrancordctl set Network\.Lan\.Mtu 1400\n"
           r"-Network\.Lan\.Mtu=1500\n\+Network\.Lan\.Mtu=1400\n")
UNDONE = r"-Network\.Lan\.Mtu=1400\n\+Network\.Lan\.Mtu=1500\n"
# What the scripts of a section print in all, as a text or a pattern; nothing where there is no row.
PRINTED = {
    ("docs/board.md", "The first start"): re.compile(FIRST_START + r"gate\n"),
    ("docs/cgi.md", "Shell"): "Yard recorder\nthe address is 192.0.2.40\ndenied\nnot for the operator\n",
    ("docs/cgi.md", "Python"): "Content-Type: text/plain\n\nYard recorder\n",
    ("docs/cgi.md", "C and C++"): "Content-Type: text/plain\r\n\r\nYard recorder\n",
    ("docs/configuration.md", "Documents"): re.compile(
        FIRST_START + r"gate\nveltrancordctl: created System\.Label\n"),
    ("docs/operations.md", "Is all well?"): re.compile(r"alive, \d+ microseconds\n"),
    ("docs/operations.md", "The image of a device"): (
        "".join(f"veltrancordctl: created {one}\n" for one in (
            "the document Network", "the document System", "System.Name", "Network.Lan.Mtu",
            "the document Account", "Account.User1.Password"))
        + "Network\n└── Lan\n    └── Mtu = 1500\n"),
    ("docs/operations.md", "Who changed what"): re.compile(HISTORY + UNDONE),
    ("docs/fleet.md", "Setting it up"): "certificates/yard-1.pem: OK\n",
    ("client/man/veltrancord_check.3", "EXAMPLES"): "Network.Lan.Mtu: is not described\n",
    ("docs/schema.md", "On a device"): (
        "Network.Lan.Mtu  Largest packet\n           Smaller only where a provider asks for it.\n"
        "  Value    a whole number from 68 to 9000\n  Default  1500\n"
        'veltrancordctl: Network.Lan.Mtu: is "14o0", and has to be a whole number from 68 to 9000; '
        "the nearest is 1400\n"
        "veltrancordctl: Network.Lan.Mut: is not described; is Network.Lan.Mtu meant?\n"
        "veltrancordctl: nothing was written; --force writes it all the same\n"
        "-Network.Lan.Mtu=1400\n+Network.Lan.Mtu=1500\n1500\n"),
    ("docs/schema.md", "In a program"): "refused\n9000\n1492\n",
    ("docs/schema.md", "From the first draft to a checked image"): "/mnt/database/xml/Network validates\n",
    ("client/man/libveltrancord.3", "EXAMPLES"): re.compile(2 * LAN.format(" is ")),
    ("client/man/veltrancordctl.1", "EXAMPLES"): re.compile(
        rf"Yard recorder\n{LAN.format('=')}veltrancordctl: created Network\.Lan\.Label\n"
        rf"Network\n([│├└ ].*\n){{62}}{HISTORY}{UNDONE}"
        r"[-\d]+ [:\d]+  Tamper  +1  Gate  0\n[-\d]+ [:\d]+: Gate\n"
        r'\{\n  "alive": true,\n(.*\n)+\}\n'),
}

# Sections whose scripts start the service themselves, on a device without any document.
BARE = {("docs/board.md", "The first start"), ("docs/configuration.md", "Documents")}


def is_run(line):
    return not line.startswith(tuple(NOT_RUN))


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


def save_programs(device, samples):
    """Programs are saved under the names that their first lines give."""
    for sample in samples:
        if sample.kind in ("c", "python"):
            name = re.search(r"^(?:/\*|#) (\w+\.\w+)", sample.text)
            assert name, f"{sample}: the first line does not name the file"
            device.write_file(f"/tmp/story/{name[1]}", sample.text)


def run_shell(device, lines, installed=None):
    """Runs command lines as one shell that ends with the first failure. Return: `Finished`, its
    stdout with what was printed to both outputs."""
    libraries = next(installed.rglob("libveltrancord.so.1")).parent if installed else "/nonexistent"
    tools = f"/run/host{Path(command_line.program()).parent}"
    finished = device.run(
        "/usr/bin/env", f"PATH=/tmp/bin:{tools}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/tmp",
        f"PYTHONPATH=/run/host{REPOSITORY}/client/python",
        f"PKG_CONFIG_LIBDIR=/run/host{libraries}/pkgconfig",
        f"PKG_CONFIG_SYSROOT_DIR=/run/host{installed}",
        f"LD_LIBRARY_PATH=/run/host{libraries}",
        "/bin/sh", "-c", "\n".join(["exec 2>&1", "set -e", "cd /tmp/story", *lines]))
    command_line.check_sound(finished.stdout)
    return finished


def furnish(device, bare=False):
    """What the scripts find on their device: the service on the sample configuration, or, bare, its
    program alone."""
    device.make_directory("/tmp/story")
    device.outside("/tmp/story/examples").symlink_to(f"/run/host{REPOSITORY}/examples")
    device.make_directory("/tmp/bin")
    device.outside("/tmp/bin/Veltrancord").symlink_to("/run/bin/Veltrancord")
    if not bare:
        device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
        device.copy_sample_database()
        device.mount_tmpfs("/mnt/database/eventlog", size="1m")
        device.start()
        device.request(b"writelog:" + struct.pack("<i6xB16sBi", 2, 1, b"Gate", 0, 0))


@pytest.fixture
def furnished(device):
    furnish(device)
    return device


def chunks_of(samples):
    """What is run piece by piece: (command lines, what they print, None: see PRINTED)."""
    for sample in samples:
        if sample.kind == "sh":
            yield list(filter(is_run, sample.commands)), None
        for command, output in sample.conversation if sample.kind == "console" else ():
            yield [command], output


END_OF_CHUNK = "printf '\\036'"


def tell_story(device, request, place, samples, bare=False):
    """What stands under one heading is one story: programs are saved, scripts run in order."""
    installed = None
    if any(sample.kind == "c" for sample in samples):
        if device.sanitizer is not None or shutil.which("pkg-config") is None:
            pytest.skip("needs pkg-config, and libraries without a sanitizer")
        installed = request.getfixturevalue("installed")
    furnish(device, bare)
    save_programs(device, samples)
    chunks = list(chunks_of(samples))
    finished = run_shell(device, [line for lines, _ in chunks for line in [*lines, END_OF_CHUNK]],
                         installed)
    assert finished.status == 0, finished
    *outputs, rest = finished.stdout.split("\036")
    assert rest == ""
    printed = ""
    for (lines, expected), output in zip(chunks, outputs, strict=True):
        if expected is None:
            printed += output
        else:
            assert output == expected, lines
    expected = PRINTED.get(place, "")
    if isinstance(expected, re.Pattern):
        assert expected.fullmatch(printed), printed
    else:
        assert printed == expected


def test_what_is_not_run_is_there():
    lines = [line for sample in SAMPLES if sample.kind == "sh" for line in sample.commands]
    for beginning, reason in NOT_RUN.items():
        assert reason and any(line.startswith(beginning) for line in lines), beginning


def test_a_failure_is_never_hidden():
    hidden = re.compile(r"\|\| *(true|:)( |$)|2>/dev/null")
    assert not [str(sample) for sample in SAMPLES if hidden.search(sample.text)]


# ---- commands of the developer ------------------------------------------------------------------

def dev_lines():
    """(sample, name, arguments) of each line that calls ./dev."""
    for sample in SAMPLES:
        for line in sample.commands if sample.kind == "sh" else ():
            if line.startswith("./dev "):
                name, *arguments = shlex.split(line)[1:]
                yield sample, name, [word for word in arguments if word != "--"]


def is_an_operand(word):
    """Whether a word is a number, a placeholder, or the name of something to test or to fuzz."""
    return (word.strip("[]").isdigit() or word.isupper() or (REPOSITORY / "src" / word).is_dir()
            or (REPOSITORY / f"fuzz/{word}_fuzz.cpp").exists()
            or any(REPOSITORY.glob(f"tests/*/test_*{word}*.py")))


@pytest.mark.fault("D1")
def test_what_dev_is_asked_its_help_tells():
    count = 0
    for sample, name, arguments in dev_lines():
        told = subprocess.run([REPOSITORY / "dev", name, "--help"], capture_output=True, text=True,
                              check=False)
        assert told.returncode == 0, (str(sample), name, told)
        unknown = [word for word in arguments if not is_an_operand(word)
                   and not re.search(rf"(?<![\w-]){re.escape(word.strip('[]'))}(?![\w-])", told.stdout)]
        assert not unknown, (str(sample), name, unknown)
        count += 1
    assert count > 30


def test_every_command_of_dev_is_told_to_contributors():
    told = {name for sample, name, _ in dev_lines() if sample.document == "CONTRIBUTING.md"}
    assert told == {path.name for path in (REPOSITORY / "tools/commands").iterdir()}


def test_the_options_of_the_suite():
    options = set((REPOSITORY / "tests/e2e/conftest.py").read_text().split('"'))
    for sample in SAMPLES:
        for line in sample.commands if sample.kind == "sh" else ():
            if line.startswith("pytest "):
                assert set(re.findall(r"--\w+", line)) <= options, line


def test_the_packages_are_those_that_are_installed():
    """Those that the documents have installed for a board are those that ./dev installs for one."""
    line = next(line for sample in SAMPLES if sample.document == "docs/board.md"
                for line in sample.commands if line.startswith("sudo apt-get install"))
    wanted = set(line.split()[3:])
    cross = set(re.search(r"wanted=\((.*)\)", (REPOSITORY / "tools/arm_packages.sh").read_text())[1].split())
    listed = set(re.findall(r"^[\w.+-]+", (REPOSITORY / "tools/packages").read_text(), re.MULTILINE))
    assert wanted <= cross | listed, wanted - cross - listed
    assert cross - wanted == {"qemu-user"}  # which a board needs not


# ---- requests, bytes, documents -----------------------------------------------------------------

PERMISSIONS = take("docs/permissions.md", "xml"), take("docs/permissions.md", "requests")


def test_the_requests_of_the_permissions(service):
    """One device through all of the document: its configuration is the samples in their order."""
    documents, requests = PERMISSIONS
    texts = "".join(sample.text for sample in documents)
    device = service({"Account": f"<Account>{texts}</Account>"})
    count = 0
    for sample in requests:
        for line in sample.text.splitlines():
            request, code, text = re.match(r'(\S+) +(?:(-?\d+)|"(.*?)")', line).groups()
            expected = (int(code), b"") if text is None else (len(text), text.encode())
            assert device.request(request) == expected, (str(sample), line)
            count += 1
    assert count > 25


(NOTIFICATION,) = take("docs/eventlog.md", "requests")
(CALLED_BACK,) = take("docs/eventlog.md", "text", "Notification")


def test_the_requests_of_the_event_log(service):
    device = service({"Notification": "<Notification/>"})
    assert device.request(NOTIFICATION.text).code == len(NOTIFICATION.text.splitlines())
    device.install_script("/tmp/trigger/EventLogCallBack.sh", '#!/bin/sh\necho "$1" >> /tmp/told\n')
    for kind in (2, 1, 4):  # windows, doors, something else
        device.request(b"writelog:" + struct.pack("<i6xB16sBi", kind, 0, b"x", 0, 0))
    wait_until(lambda: device.file_exists("/tmp/told")
               and len(device.read_file("/tmp/told").split()) == 2, "two events were told")
    assert sorted(device.read_file("/tmp/told").split()) == [b"1", b"4"]


def test_the_script_is_called_as_the_event_log_tells(service):
    device = service({})
    device.install_script("/tmp/trigger/EventLogCallBack.sh",
                          '#!/bin/sh\necho "EventLogCallBack.sh $*" > /tmp/new\nmv /tmp/new /tmp/told\n')
    device.request(b"writelogwithtime:" + struct.pack("<i6xB16sBi", 7, 8, b"door", 9, 1_700_000_000))
    device.wait_for_file("/tmp/told")
    given = {"TYPE": "7", "FIRST": "8", "TEXT": "door", "SECOND": "9"}
    words = [given.get(word, word) for word in CALLED_BACK.text.split()]
    words[2] = ":".join([r"\d+"] * len(words[2].split(":")))  # the device's own zone
    assert re.fullmatch(" ".join(words) + "\n", device.read_file("/tmp/told").decode())


(LOG_FILE,) = take("docs/eventlog.md", "xml")
(CAPACITY,) = take("docs/eventlog.md", "text", "The capacity")


def test_the_file_of_the_event_log(device):
    device.mount_tmpfs("/mnt/database/eventlog", size="256k")
    device.write_file(EVENT_LOG, LOG_FILE.text + "\n")
    device.start()
    assert device.request("geteventcount:").code == 2
    newest = device.request("readlog:1&-1&1").body
    assert struct.unpack("<iBBBBBBB16sBi", newest) == (1, 24, 0, 31, 23, 5, 12, 0,
                                                       b"door".ljust(16, b"\0"), 0, 0)
    assert CAPACITY.text + "\n" in device.stderr()


(LOG_IN_MEMORY,) = take("docs/eventlog.md", "fstab")


def test_the_file_system_of_a_log_in_memory(device):
    assert LOG_IN_MEMORY.text in (REPOSITORY / "packaging/systemd/mnt-database-eventlog.mount").read_text()
    device.mount_tmpfs("/mnt/database/eventlog", size=re.search(r"size=(\w+)", LOG_IN_MEMORY.text)[1])
    device.start()
    assert device.request("maxlogcount:").code == 1000


(SMALL_DOCUMENT,) = take("docs/configuration.md", "xml")


def test_the_documents_of_the_configuration(service):
    root = xml.etree.ElementTree.fromstring(SMALL_DOCUMENT.text).tag
    assert service({root: SMALL_DOCUMENT.text + "\n"}).request("readvalue:Network.Lan.Mtu") == (4, b"1500")


(ACCESS,) = take("docs/configuration.md", "text", "Who may ask what")


def test_the_access_file_is_obeyed():
    with GuardedDevice() as device:
        device.write_access(ACCESS.text + "\n")
        device.write_document("Network", SMALL_DOCUMENT.text)
        device.start()
        assert "access file" not in device.stderr()
        (web,) = re.findall(r"^www-data:x:(\d+):", Path("/etc/passwd").read_text(), re.MULTILINE)
        with Peer(device, int(web)) as page, Peer(device, 1050) as staff:
            assert page.request("readvalue:Network.Lan.Mtu") == (4, b"1500")
            assert page.request("write:Account.User1.Username=x").code == -12
            assert page.request("write:Network.Lan.Mtu=1400") == (1, b"")
            assert staff.request("SyncPermit:").code == 0


(DESCRIPTION,) = take("docs/schema.md", "xml")


def test_the_description_of_the_manual(tmp_path):
    (tmp_path / "Network.xsd").write_text(DESCRIPTION.text)
    checked = subprocess.run([command_line.program(), "schema", "check", tmp_path], capture_output=True,
                             text=True, check=False)
    assert (checked.returncode, checked.stdout) == (0, "")
    document = tmp_path / "Network"
    for mtu, right in (("9000", True), ("9001", False)):
        document.write_text(f"<Network><Mtu>{mtu}</Mtu><Password AllowToShow='NO'/></Network>")
        judged = subprocess.run(["xmllint", "--noout", "--schema", tmp_path / "Network.xsd", document],
                                capture_output=True, check=False)
        assert (judged.returncode == 0) == right, judged


def limits_of(text):
    return {name: int(size) for name, size in re.findall(r"^(\w+)=(\d+)M$", text, re.MULTILINE)}


(DROP_IN,) = take("docs/operations.md", "ini")


def test_the_drop_in_raises_what_the_unit_limits():
    unit = limits_of((REPOSITORY / "packaging/systemd/veltrancord.service.in").read_text())
    raised = limits_of(DROP_IN.text)
    assert raised.keys() == {"LimitAS", "MemoryMax"}
    assert all(size > unit[name] for name, size in raised.items())
    assert raised["MemoryMax"] >= raised["LimitAS"] + 64


FRAMES = take("docs/protocol.md", "hex")
(SMALL_CLIENT,) = take("docs/protocol.md", "python")


def test_the_bytes_of_the_protocol(sample):
    """Two frames of the document and what they stand for."""
    dumps = [bytes.fromhex("".join(re.match(r"((?:[0-9A-F]{2} {1,2})+) ", line)[1]
                                   for line in one.text.splitlines())) for one in FRAMES]
    assert dumps[0] == wire.frame("read:System.Name")
    with sample.connect() as client:
        client.send(wire.frame("readvalue:System.Name"))
        assert client.receive(1000) == dumps[1]
    assert len(dumps) == 2


def test_the_client_of_the_protocol(sample):
    text = SMALL_CLIENT.text.replace("/tmp/Veltrancord.unix", sample.socket_path)
    names = {}
    exec(compile(text, str(SMALL_CLIENT), "exec"), names)
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


# ---- messages of an operator ---------------------------------------------------------------------

(CHANGE,) = take("docs/fleet.md", "text")


def test_the_message_of_an_operator_has_the_fields_that_are_told():
    head = CHANGE.text.partition("\n\n")[0]
    manual = (REPOSITORY / "docs/fleet.md").read_text()
    for line in head.splitlines()[1:]:
        assert f"| `{line.partition('=')[0]}` |" in manual, line
    example = re.sub(r"/\*.*?\*/", "", (REPOSITORY / "bridge/operator_message.h").read_text())
    assert re.findall(r"^//     ([a-z-]+)=", example, re.MULTILINE) == [
        line.partition("=")[0] for line in head.splitlines()[1:]]


# ---- what goes on beside a script ---------------------------------------------------------------

TRIAL = take("docs/operations.md", "sh", "Trying a change that may lock you out")


def test_the_trial_that_is_confirmed_elsewhere(furnished):
    """The first script ends with a command that waits for the second one."""
    begin, confirm = TRIAL
    ended = []
    waiting = threading.Thread(target=lambda: ended.append(run_shell(furnished, begin.commands)))
    waiting.start()
    try:
        wait_until(lambda: furnished.request("readvalue:Network.Lan.Mtu").text == "1400" or ended,
                   "the new value is tried")
        confirmed = run_shell(furnished, confirm.commands)
    finally:
        waiting.join()
    assert (confirmed.status, confirmed.stdout) == (0, "veltrancordctl: confirmed\n")
    assert ended[0].status == 0, ended
    assert "Network.Lan.Mtu" in ended[0].stdout  # the difference, which is shown first
    assert furnished.request("readvalue:Network.Lan.Mtu").text == "1400"


(HOLDER,) = take("docs/reliability.md", "console", "Finding the client that holds the service")


def test_the_client_that_holds_the_service_is_found(service):
    """The numbers of the sample are another machine's: any will do, but that the first command tells
    the one that the second asks for."""
    if shutil.which("ss") is None:
        pytest.skip("ss is not installed")
    device = service({})
    device.require_no_sanitizer("valgrind", "its processes have another name")
    device.make_directory("/tmp/story")
    device.install_script("/tmp/bin/setup.cgi", (
        "#!/usr/bin/python3\nimport socket, time\nclient = socket.socket(socket.AF_UNIX)\n"
        'client.connect("/tmp/Veltrancord.unix")\nclient.sendall(b"?\\x09\\0\\0\\0")\n'
        'open("/tmp/held", "w").close()\ntime.sleep(600)\n'))
    assert run_shell(device, ["setup.cgi </dev/null >/dev/null 2>&1 &"]).status == 0
    device.wait_for_file("/tmp/held")
    (find_holders, holders), (find_client, client) = HOLDER.conversation

    def pattern(output):
        return re.sub(r"\d+", r"(\\d+)", re.escape(" ".join(output.split())))

    def asked(command, output):
        printed = run_shell(device, [command]).stdout
        return re.fullmatch(pattern(output), " ".join(printed.split()))

    found = wait_until(lambda: asked(find_holders, holders), "the worker has read what there is")
    other_end = re.search(r"\* (\d+)", holders)[1]
    numbers = re.findall(r"\d+", holders)
    known = found[1 + numbers.index(other_end)]
    assert other_end in find_client
    assert asked(find_client.replace(other_end, known), client)


ACCESS_STORY = take("docs/access.md", "sh")
JOURNALCTL = """#!/usr/bin/python3
import json, sys
file = "/run/log/stderr" if "_TRANSPORT=stdout" in " ".join(sys.argv) else "/tmp/auth.log"
for line in open(file, encoding="utf-8"):
    print(json.dumps({"MESSAGE": line.rstrip("\\n").removeprefix("<85>").removeprefix("<84>")}))
"""
EXPLAINED = ["allowed  write Display", "allowed  read Account", "shown  secrets Account",
             "refused  read System", "empty  secrets System"]
TOLD_BY_TRAIL = (r"\S+ \S+  www-data  python3\[{0}\]  write Account\.Maxuser  refused\n"
                 r"\S+ \S+  www-data  python3\[{0}\]  write Display\.Layout\n")


def test_the_way_to_an_access_file():
    """From watching to refusing; what else happens on the device meanwhile is done here."""
    with TableDevice() as device:
        device.needs_users()
        device.start_log()
        device.cover("/usr/share/doc")
        device.write_file("/usr/share/doc/veltrancord/examples/access", SAMPLE.read_text())
        device.install_script("/tmp/bin/journalctl", JOURNALCTL)
        furnish(device)
        device.outside(SOCKET).chmod(0o777)
        watch, draft, refuse, look = ACCESS_STORY
        with device.peer(WEB_USER) as web:
            assert run_shell(device, watch.commands)[:2] == (0, "")
            assert web.request("write:Display.Layout=1x1").code == 1
            assert run_shell(device, draft.commands)[:2] == (0, "")
            assert "allow user www-data write on Display\n" in device.read_file("/etc/veltrancord/draft").decode()
            told = run_shell(device, refuse.commands)
            assert [re.split("  (?:line|no rule)", line)[0] for line in told.stdout.splitlines()] == EXPLAINED
            assert web.request("write:Display.Layout=2x2").code == 1
            assert web.request("write:Account.Maxuser=1").code == -12
            device.wait_for_record(" refused [")
            told = run_shell(device, look.commands)
            assert re.match(TOLD_BY_TRAIL.format(web.pid), told.stdout), told
            assert told.status == 0 and told.stdout.endswith(told.stdout.splitlines()[1] + "\n")


# ---- what tells of tests ------------------------------------------------------------------------

(TEST_OF_A_DEVICE,) = take("tests/e2e/README.md", "python")


def test_the_tests_of_the_suites_manual_pass(device, tmp_path):
    device.require_no_sanitizer("valgrind", "the program is started without it")
    suite = REPOSITORY / "tests/e2e"
    (tmp_path / "conftest.py").write_text(
        "import runpy\n"
        f"found = runpy.run_path({str(suite / 'conftest.py')!r})\n"
        'globals().update({name: found[name] for name in found if not name.startswith("__")})\n')
    tests = tmp_path / "test_of_the_manual.py"
    tests.write_text(TEST_OF_A_DEVICE.text + "\n")
    done = subprocess.run(
        [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "--bin", device.program, tests],
        cwd=tmp_path, capture_output=True, text=True, check=False,
        env={"PATH": "/usr/bin:/bin:/usr/sbin", "PYTHONPATH": str(suite)})
    assert re.search(rf"^{tests.read_text().count('def test_')} passed", done.stdout, re.MULTILINE), done


# ---- drawings -----------------------------------------------------------------------------------

DRAWINGS = take("docs/architecture.md", "text")


def test_what_a_drawing_names_is_there():
    """Files of the sources, and names with an underscore in them."""
    sources = [path for path in (REPOSITORY / "src").rglob("*.*") if "_test." not in path.name]
    names = set(re.findall(r"\w+", "\n".join(path.read_text() for path in sources)))
    count = 0
    for drawing in DRAWINGS:
        files = re.findall(r"\b\w+/\w+\.(?:h|cpp)\b", drawing.text)
        missing = [file for file in files if not (REPOSITORY / "src" / file).exists()]
        words = re.findall(r"\b\w+_\w+\b", drawing.text)
        missing += [word for word in words if word not in names]
        assert not missing, (str(drawing), missing)
        count += len(files) + len(words)
    assert count > 15


# ---- all that no test has taken are stories -----------------------------------------------------

STORIES = {}
for _sample in SAMPLES:
    if _sample not in TAKEN and _sample.kind in ("sh", "c", "python", "console"):
        STORIES.setdefault(_sample.place, []).append(_sample)


@pytest.mark.fault("D1")
@pytest.mark.parametrize("place", [
    place for place, samples in STORIES.items()
    if any(lines for lines, _ in chunks_of(samples))], ids=": ".join)
def test_scripts_and_programs(device, request, place):
    tell_story(device, request, place, STORIES[place], place in BARE)
    if place in BARE:
        assert device.request("readvalue:System.Name") == (4, b"gate")
        assert "skip" not in device.read_file(CONFIGURATION + "/System").decode()


def test_no_block_is_left_out():
    assert len(set(TAKEN)) == len(TAKEN)
    told = [sample for samples in STORIES.values() for sample in samples]
    assert not [str(sample) for sample in SAMPLES if sample not in TAKEN and sample not in told]
    assert set(PRINTED) | BARE <= set(STORIES)
    for samples in STORIES.values():  # a program needs a script that runs it
        assert any(sample.kind in ("sh", "console") for sample in samples), str(samples[0])
