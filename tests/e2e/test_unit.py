"""What the systemd unit, its drop-in and the init script take away, and that the service serves then."""

import re
import shutil
import struct
import subprocess

import pytest

from device import CONFIGURATION, REPOSITORY, wait_until
from log_model import record

UNIT = (REPOSITORY / "packaging/systemd/veltrancord.service.in").read_text(encoding="utf-8")
DROP_IN = (REPOSITORY / "packaging/systemd/unprivileged.conf").read_text(encoding="utf-8")
SCRIPT = (REPOSITORY / "packaging/sysv/veltrancord.in").read_text(encoding="utf-8")
MEBIBYTE = 1 << 20

pytestmark = pytest.mark.fault("H2")
needs_systemd = pytest.mark.skipif(shutil.which("systemd-analyze") is None,
                                   reason="systemd-analyze is not installed")


def setting(name, text=UNIT):
    return re.search(rf"^{name}=(.*)$", text, re.M)[1]


def mebibytes(name):
    return int(re.fullmatch(r"(\d+)M", setting(name))[1])


# ---- how much is taken away -----------------------------------------------------------------------


def analyze(*arguments):
    done = subprocess.run(["systemd-analyze", *map(str, arguments)], capture_output=True, text=True,
                          check=False)
    assert "Failed" not in done.stderr and "Unknown" not in done.stderr, done.stderr
    return done.stdout


@pytest.fixture
def unit(tmp_path):
    path = tmp_path / "veltrancord.service"
    path.write_text(UNIT.replace("@CMAKE_INSTALL_FULL_SBINDIR@/Veltrancord", "/bin/true"))
    return path


def exposure(unit):
    report = analyze("security", "--offline=true", unit)
    return float(re.search(r"Overall exposure level for \S+: ([\d.]+)", report)[1])


@needs_systemd
def test_the_unit_is_exposed_to_6_of_10_at_most(unit):
    assert exposure(unit) <= 6.0


@needs_systemd
def test_without_root_it_is_exposed_to_3_of_10_at_most(unit):
    folder = unit.parent / "veltrancord.service.d"
    folder.mkdir()
    (folder / "unprivileged.conf").write_text(DROP_IN)
    assert exposure(unit) <= 3.0


@needs_systemd
def test_who_writes_the_history_is_exposed_to_2_of_10_at_most(tmp_path):
    text = (REPOSITORY / "packaging/systemd/veltrancord-history.service.in").read_text(encoding="utf-8")
    path = tmp_path / "veltrancord-history.service"
    path.write_text(text.replace("@CMAKE_INSTALL_FULL_BINDIR@/veltrancordctl", "/bin/true"))
    assert exposure(path) <= 2.0


# ---- that it serves -------------------------------------------------------------------------------

DOCUMENTS = {"Account": '<Account><Name DispatchW="/tmp/hook.sh">x</Name></Account>'}


def use_all(device):
    """Commands of all kinds: files, programs, the log, the backup script."""
    for payload, code in (("write:Account.Name=y", 1), ("readvalue:Account.Name", 1),
                          (b"writelog:" + record(1), 0), ("download:/tmp/out", 0),
                          ("upload:/tmp/out", 0), ("restore:/tmp/out", 0), ("syncxml:/tmp/out", 0),
                          ("cleanlog:", 0), ("SyncPermit:", 0), ("XMLDBCallBack:now", 0),
                          ("SetSession:token", 0), ("syncmemtoflash:", 0)):
        reply = device.request(payload)
        assert reply.code == code, (payload, reply, device.output())
    device.wait_for_file("/tmp/seen")
    device.wait_for_file("/tmp/backed-up")
    assert b"<Name" in device.read_document("Account")


def install_scripts(device):
    device.install_script("/tmp/hook.sh", "#!/bin/sh\necho > /tmp/seen\n")
    device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\necho > /tmp/backed-up\n")
    device.write_documents(DOCUMENTS)


def test_it_serves_without_root(device):
    """As a user without any capability who owns what the drop-in's head gives him."""
    device.require_no_sanitizer("valgrind", "its files are root's")
    install_scripts(device)
    device.start(under=["unshare", "--user", "--map-user=1000", "--map-group=1000"])
    for pid in (device.supervisor_pid, device.worker_pid):
        status = device.outside(f"/proc/{pid}/status").read_text()
        assert re.search(r"^CapEff:\s+0+$", status, re.M)
    use_all(device)


def allowed_calls(filters):
    """The system calls of an allow list, the groups in it resolved."""
    groups, name = {}, None
    for line in analyze("syscall-filter").splitlines():
        word = line.strip()
        if word.startswith("@") and not line.startswith(" "):
            name = word
        elif name and word and not word.startswith("#"):
            groups.setdefault(name, set()).add(word)
    allowed, open_ones = set(), set(filters)
    while open_ones:
        one = open_ones.pop()
        if one.startswith("@"):
            open_ones |= groups.pop(one, set())
        else:
            allowed.add(one)
    return allowed


@needs_systemd
def test_it_makes_no_call_that_the_unit_denies(device):
    device.require_no_sanitizer("address", "it makes calls of its own")
    device.require_no_sanitizer("thread", "it makes calls of its own")
    install_scripts(device)
    device.start_traced("-l")
    use_all(device)
    trace = "\n".join(device.trace())
    calls = set(re.findall(r"^\d+ +(\w+)\(", trace, re.M))
    assert {"bind", "semctl", "rename"} & calls and len(calls) > 30
    allowed = allowed_calls(setting("SystemCallFilter").split())
    assert calls <= allowed, calls - allowed
    # The drop-in forbids memory that is both writable and executable.
    assert not re.search(r"PROT_WRITE\|PROT_EXEC|PROT_READ\|PROT_WRITE\|PROT_EXEC", trace)
    # Sockets of other families than both allow; the libraries ask for none.
    families = set(re.findall(r"socket\((AF_\w+)", trace))
    assert families == {"AF_UNIX"}


# ---- limits ---------------------------------------------------------------------------------------


def test_unit_and_script_set_the_same_limit_of_address_space_below_that_of_memory():
    assert mebibytes("LimitAS") < mebibytes("MemoryMax")
    assert int(re.search(r"VELTRANCORD_ADDRESS_SPACE=(\d+)", SCRIPT)[1]) == mebibytes("LimitAS") * 1024
    assert 'ulimit -v "$VELTRANCORD_ADDRESS_SPACE"\n' in SCRIPT
    for name in ("docs/board.md", "docs/reliability.md", "docs/operations.md"):
        text = (REPOSITORY / name).read_text(encoding="utf-8")
        assert f"{mebibytes('LimitAS')} MiB of address space" in re.sub(r"\s+", " ", text)


@pytest.mark.fault("B1")
def test_what_does_not_fit_the_limit_is_refused_and_the_service_goes_on(device):
    for kind in ("address", "thread", "valgrind"):
        device.require_no_sanitizer(kind, "the address space is its own")
    device.copy_sample_database()
    environment = dict(word.split("=", 1) for word in setting("Environment").split())
    device.start("-l", limits={"AS": mebibytes("LimitAS") * MEBIBYTE}, environment=environment)
    worker = device.worker_pid
    name = device.request("readvalue:System.Name")
    assert name.code > 0
    for _ in range(3):
        device.forget_output()
        with device.connect() as client:
            client.send(b"?" + struct.pack("<I", 300 * MEBIBYTE))
            assert client.receive_reply().code is None
        device.wait_for_stderr("malloc fail!!\n")
        # One that fits is read, and what it asks for is refused in turn, or done.
        for payload in ("nosuch:" + "x" * (100 * MEBIBYTE), "write:" + "=" * (60 * MEBIBYTE)):
            device.request(payload)
        assert device.request("readvalue:System.Name") == name
    assert device.worker_pid == worker
