"""write, writedbmem and writeattr over the wire, and the programs that a write starts."""

import re

import pytest

from device import LOGS, wait_until
from tracer import Strace

ACCOUNT = """<Account>
    <User1 Level="3">
        <Username>admin</Username>
        <Password>enc:1:AA==</Password>
    </User1>
</Account>
"""
NETWORK = "<Network><Mode>dhcp</Mode></Network>"

# Tells, in a file of its own name, what a program was started with.
TELLING = """#!/bin/sh
exec 3>&1 >"$0.part"
echo "arguments $#"
/usr/bin/tr '\\0' '\\n' </proc/$$/environ
echo "stdin"
/usr/bin/cat
/usr/bin/mv "$0.part" "$0.told"
"""


def told_by(device, path):
    wait_until(lambda: device.file_exists(path + ".told"), f"{path} has run", device.patience)
    return device.read_file(path + ".told").decode()


def test_a_write_is_in_the_file_when_the_reply_is_there(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    assert device.request("write:Account.User1.Username=root") == (1, b"")
    assert b"<Username>root</Username>" in device.read_document("Account")
    assert device.request("readvalue:Account.User1.Username").text == "root"
    assert device.read_document("Network") == NETWORK.encode()


def test_lines_are_counted(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    assert device.request("write:Account.User1.Username=a\n").code == 1
    assert device.request("write:Account.User1.Username=a\nNetwork.Mode=b\nNetwork.Mode=").code == 3
    assert device.request("read:Network.Mode").code == len("Network.Mode=")
    assert device.request("writeattr:Account.User1.Level=5\nAccount.User1.New=x") == (2, b"")
    assert device.request("readattr:Account.User1.#").lines == [
        "Account.User1.Level=5", "Account.User1.New=x"]
    assert b'<User1 Level="5" New="x">' in device.read_document("Account")


@pytest.mark.parametrize("payload, code", [
    ("write:", -7), ("writedbmem:", -7), ("writeattr:", -7),
    ("write:no sign", 0), ("writedbmem:\n", 0), ("writeattr:Account", 0),
    ("write:=1", -7), ("write:...=1", -7), ("writeattr:=1", -7),
    ("write:Missing.x=1", -4), ("writedbmem:account.User1=1", -4), ("writeattr:Missing.x.y=1", -4),
    ("write:junk\nAccount.User1.Username=1", -4),
    ("writeattr:Account.User2.Level=1", -11),
    ("write:Account." + "a" * 247 + "=1", 1), ("write:Account." + "a" * 248 + "=1", -7),
    ("write:Account.V=" + "v" * 4095, 1), ("write:Account.V=" + "v" * 4096, -7),
    ("writedbmem:Account.V=" + "v" * 4095, 1), ("writedbmem:Account.V=" + "v" * 4096, -7),
    ("writeattr:Account.V=" + "v" * 255, 1), ("writeattr:Account.V=" + "v" * 256, -7),
    ("write:Account.User1.Password=" + "p" * 300, 1),  # cut to its length modulo 256
    ("write:Account.User1.Password=" + "p" * 255, -11),
])
def test_results(service, payload, code):
    device = service({"Account": ACCOUNT})
    assert device.request(payload) == (code, b"")
    assert device.request("readvalue:Account.User1.Username").text == "admin"


def test_lines_before_a_failing_one_stay_and_are_saved(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    assert device.request("write:Network.Mode=static\nMissing.a=1\nNetwork.Mode=x").code == -4
    assert b"<Mode>static</Mode>" in device.read_document("Network")
    assert device.read_document("Account") == ACCOUNT.encode()


def test_changes_in_memory_reach_the_file_with_a_write_of_their_document(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    assert device.request("writedbmem:Account.User1.Username=memory").code == 1
    assert device.request("write:Network.Mode=other").code == 1
    assert device.request("readvalue:Account.User1.Username").text == "memory"
    assert device.read_document("Account") == ACCOUNT.encode()
    assert device.request("write:Account.User1.Note=x").code == 1
    assert b"<Username>memory</Username>" in device.read_document("Account")


def test_a_secret_is_stored_encoded(service):
    device = service({"Account": ACCOUNT})
    assert device.request("write:Account.User1.PassWord=open").code == 1
    assert device.request("readvalue:Account.User1.PassWord").body.startswith(b"open")
    assert b"<PassWord>enc:4:" in device.read_document("Account")
    assert b"open" not in device.read_document("Account")


def test_a_program_is_started_once_with_the_whole_argument(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/hook.sh"/><B DispatchW="/tmp/hook.sh"/></Doc>'})
    device.install_script("/tmp/hook.sh", TELLING)
    argument = "Doc.A=1\nDoc.B=" + "x" * 4000 + "\nDoc.C=3"
    assert device.request("write:" + argument).code == 3
    told = told_by(device, "/tmp/hook.sh")
    environment, text = told.split("stdin\n", 1)
    assert environment == "arguments 0\nPATH=/bin\n"
    assert text == argument
    assert device.stderr().count("[XmlCheckDispatch]...\n") == 1


def test_a_program_finds_the_new_value_in_the_file(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/hook.sh">old</A></Doc>'})
    device.install_script("/tmp/hook.sh", "#!/bin/sh\n/usr/bin/cp /mnt/database/xml/Doc /tmp/seen.part\n"
                                          "/usr/bin/mv /tmp/seen.part /tmp/seen\n")
    device.request("write:Doc.A=new")
    device.wait_for_file("/tmp/seen")
    assert b">new</A>" in device.read_file("/tmp/seen")


def test_programs_are_started_behind_the_save(device):
    """What a program finds tells little: it takes longer to start than the save."""
    device.write_documents({"Doc": '<Doc><A DispatchW="/bin/true">old</A></Doc>'})
    device.start()
    with Strace(device, "-f", "-e", "trace=renameat,clone,clone3,vfork,fork") as strace:
        assert device.request("write:Doc.A=new").code == 1
    lines = device.read_file(f"{LOGS}/strace").decode()
    started = re.search(r"\b(clone3?|vfork|fork)\(", lines)
    assert -1 < lines.find("renameat(") < started.start()


def test_two_programs_each_read_everything(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/one.sh"/><B DispatchW="/tmp/two.sh"/></Doc>'})
    device.install_script("/tmp/one.sh", TELLING)
    device.install_script("/tmp/two.sh", TELLING)
    argument = "Doc.A=1\nDoc.B=2\n"
    assert device.request("writedbmem:" + argument).code == 2
    for path in ("/tmp/one.sh", "/tmp/two.sh"):
        assert told_by(device, path).split("stdin\n", 1)[1] == argument


def test_programs_of_lines_before_a_failure_are_started(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/hook.sh"/></Doc>'})
    device.install_script("/tmp/hook.sh", TELLING)
    assert device.request("write:Doc.A=1\nMissing.x=2").code == -4
    assert told_by(device, "/tmp/hook.sh").endswith("stdin\nDoc.A=1\nMissing.x=2")


def test_a_missing_program_harms_nothing(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/missing.sh"/></Doc>'})
    assert device.request("write:Doc.A=1").code == 1
    assert device.request("readvalue:Doc.A").text == "1"


@pytest.mark.fault("F2")
def test_a_program_gets_no_descriptor_but_the_standard_ones(service):
    # An interpreter that takes its program from the argument opens nothing of its own.
    device = service({"Doc": '<Doc DispatchW="/usr/bin/python3"/>'})
    program = ('import os; print("has", sorted(f for f in os.listdir("/proc/self/fd")'
               ' if os.path.exists("/proc/self/fd/" + f)))\n')
    assert device.request("write:Doc=1\n" + program).code == 1
    device.wait_for_stdout("]\n")
    assert "has ['0', '1', '2']\n" in device.stdout()


def test_a_write_that_starts_nothing_makes_no_file(service):
    device = service({"Doc": '<Doc><A DispatchW="/tmp/hook.sh"/><B/></Doc>'})
    device.install_script("/tmp/hook.sh", TELLING)
    before = set(device.list_directory("/tmp"))
    device.request("write:Doc.B=1")
    assert set(device.list_directory("/tmp")) == before
    device.request("write:Doc.A=1")
    told_by(device, "/tmp/hook.sh")
    assert set(device.list_directory("/tmp")) - before == {"hook.sh.told"}


