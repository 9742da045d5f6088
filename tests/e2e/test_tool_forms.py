"""veltrancordctl for programs: JSON, a shell's assignments, NUL bytes; and what of several lines holds."""

import json
import re
import shlex

import pytest

from command_line import Tool
from device import REPOSITORY

ACCOUNT = (
    "<Account><User1><Username>it's me</Username><Level>Admin</Level></User1>"
    '<Permission><Define><Permit1 Type="Switch" Value="NO">Net work</Permit1></Define>'
    "<Group1><Name>Admin</Name><Permit1>YES</Permit1></Group1></Permission></Account>")
NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp><Empty Level=\"3\"/></Lan></Network>"


@pytest.fixture
def tool(service):
    tool = Tool(service({"Account": ACCOUNT, "Network": NETWORK}))
    tool.device.request("write:Account.User1.Password=geheim")
    tool("log", "add", "0x10", "door", "--time", "1706702400")
    tool.device.write_file("/tmp/lines", "Network.Lan.Mtu=1400\nNetwork.Lan.Dhcp=YES\nNetwork.Lan.X=1\n")
    return tool


# Words of the tool, and what a shell makes of the output: a script, and what it prints.
SHELL = [
    ("get Network.Lan.*", "$Network_Lan_Mtu $Network_Lan_Dhcp", "1500 YES"),
    ("get Account.User1.Username", "$Account_User1_Username", "it's me"),
    ("tree Network", "$Network_Lan_Mtu", "1500"),
    ("ls Network", "$name $children", "Lan true"),
    ("attr get Network.Lan.Empty.Level", "$Network_Lan_Empty_Level", "3"),
    ("set --create Network.A=1 Network.B=2", "$written", "2"),
    ("log list", "$type $text $detail1 $detail2 $names", "16 door 0 0"),
    ("log count", "$count", "1"),
    ("can --group Admin Net\\ work", "$allowed", "true"),
    ("permits", "$number $name $type $value", "1 Net work Switch NO"),
    ("permits value Admin Net\\ work", "$value", "YES"),
    ("group it\\'s\\ me", "$group", "Admin"),
    ("filter it\\'s\\ me reboot", "$allowed", "true"),
    ("ping", "$alive", "true"),
    ("raw geteventcount", "$result", "1"),
    ("raw readvalue Network.Lan.Mtu", "$result $text", "4 1500"),
    ("apply --create /tmp/lines", "$path $change $before $after", "Network.Lan.X added  1"),
]


@pytest.mark.parametrize("words, script, printed", SHELL)
def test_a_shell_reads_every_answer(tool, words, script, printed):
    program = f"/run/host{tool.program} --format shell {words}"
    finished = tool.device.run("/bin/sh", "-ec", f'answer=$({program})\neval "$answer"\necho "{script}"')
    assert (finished.status, finished.stdout.rstrip()) == (0, printed), finished


def test_a_shell_reads_findings_line_by_line(tool):
    tool.device.write_file("/tmp/db/Broken", "<Broken><a></Broken>")
    tool.device.write_file("/tmp/db/Dotted.xml", "<Dotted.xml/>")
    program = f"/run/host{tool.program} --format shell"
    finished = tool.device.run("/bin/sh", "-c", (
        f'{program} fsck /tmp/db | while IFS= read -r line; do eval "$line"; echo "$file:$kind"; done;'
        f'{program} doctor | sed -n 1p; {program} diff /tmp/lines --path Network'))
    assert finished.stdout == (
        "Broken:unparsable\nDotted.xml:dotted-name\nalive='true'\n"
        "path='Network.Lan.Mtu' change='changed' before='1500' after='1400'\n"
        "path='Network.Lan.X' change='added' before='' after='1'\n"), finished


def test_null_bytes_end_every_line(tool):
    assert tool("-0", "ls", "Network.Lan").stdout == "Mtu\0Dhcp\0"
    assert tool("-0", "log", "count").stdout == "1\0"
    assert tool("-0", "permits").stdout == "1\tNet work\tSwitch\tNO\0"
    assert tool("-0", "log", "list").stdout.count("\0") == 1
    assert tool("-0", "--format", "shell", "get", "Network.Lan.*").stdout == (
        "Network_Lan_Mtu='1500'\0Network_Lan_Dhcp='YES'\0")
    assert tool("-0", "diff", "-", "--path", "Network.Lan", stdin="Network.Lan.Mtu=1\0").status == 10


def test_failures_of_the_tool_itself_are_json_too(tool):
    def error(*arguments, stdin=""):
        finished = tool(*arguments, "--json", stdin=stdin)
        return finished.status, json.loads(finished.stderr)["error"]

    assert error("get", "Network.Lan")[1]["reason"] == "has no value; PATH.* prints what lies below"
    assert error("get", "Network.Lan.Empty")[0] == 4
    assert error("get", "Network.Lan.Empty.*") == (4, {
        "subject": "Network.Lan.Empty.*", "code": None, "name": "EMPTY", "reason": "empty"})
    assert error("unset", "Network")[1]["name"] == "USAGE"
    assert error("set", "-", stdin="no setting\n") == (5, {
        "subject": "-", "code": None, "name": "REFUSED", "reason": "line 1 has no '='"})
    assert error("diff", "/nonexistent")[1]["reason"] == "No such file or directory"
    assert error("confirm")[1]["name"] == "NOT_FOUND"


def test_what_follows_is_printed_line_by_line(tool):
    for form, expected in (("json", '{"time":'), ("shell", "time='")):
        follower = tool.outside("log", "follow", "--interval", "20", "--format", form)
        try:
            assert follower.stderr.readline() == "veltrancordctl: following\n"
            tool("log", "add", "1", "next")
            line = follower.stdout.readline()
            assert line.startswith(expected) and "next" in line
        finally:
            follower.kill()
            follower.communicate()


def test_lines_that_certainly_hold_are_told(tool):
    def told(*settings):
        finished = tool("set", "--create", *settings)
        assert finished.status == 7
        return finished.stderr

    assert told("Network.1st=1", "Network.A=1") == (
        "veltrancordctl: Network.1st: the store could not apply the value (-11)\n"
        "veltrancordctl: of 2 lines none certainly holds\n")
    # A place that is written twice, and one that is written empty.
    assert told("Network.A=1", "Network.B=", "Network.A=2", "Network.1st=1", "Network.C=1") == (
        "veltrancordctl: Network.1st: the store could not apply the value (-11)\n"
        "veltrancordctl: of 5 lines the first 3 certainly hold, the last of them Network.A\n")
    assert tool("get", "Network.C").status == 1


def test_a_path_that_ends_with_dots_names_the_same_secret(tool):
    for words in (["get", "Account.User1.Password."], ["get", "Account.User1.Password.."],
                  ["raw", "readvalue", "Account.User1.Password."], ["get", "Account.User1.Password."] + [
                      "Network.Lan.Mtu"]):
        finished = tool(*words)
        assert finished.status == 0 and "geheim" not in finished.stdout, words
    hidden = tool("raw", "readvalue", "-", stdin="Account.User1.Password\0tail")
    assert "geheim" not in hidden.stdout and "********" in hidden.stdout


# What each command's JSON holds. The manual promises that names are added, never changed.
KEYS = {
    "ls Network": ["name", "children"],
    "set --create Network.A=1": ["written"],
    "log list": ["time", "type", "names", "detail1", "text", "detail2"],
    "log count": ["count"],
    "log count --capacity": ["capacity"],
    "can --group Admin 'Net work'": ["allowed"],
    'filter "it\'s me" reboot': ["allowed"],
    "permits": ["number", "name", "type", "value"],
    "diff /tmp/lines": ["path", "change", "before", "after"],
    "ping": ["alive", "microseconds"],
    "raw geteventcount": ["result", "text"],
    "fsck /tmp/db": ["file", "path", "kind", "text"],
    "doctor": ["alive", "version", "summary", "problems", "numbers", "findings"],
}


def test_the_names_in_json_are_those_of_the_manual(tool):
    manual = (REPOSITORY / "client/man/veltrancordctl.1").read_text()
    promised = manual.split(".Sh OUTPUT FOR PROGRAMS")[1].split(".Sh")[0]
    tool.device.write_file("/tmp/db/Broken", "<Broken><a></Broken>")
    tool.device.request("write:Account.Permission.Group1.Permit2=YES")
    for words, keys in KEYS.items():
        answer = json.loads(tool(*shlex.split(words), "--json").stdout)
        answer = answer[0] if isinstance(answer, list) else answer
        assert list(answer) == keys, words
        assert all(re.search(rf"^\.(?:Dq|Pq) .*\b{key}\b", promised, re.MULTILINE) for key in keys), words
    finding = tool.json("doctor", status=tool("doctor").status)["findings"][0]
    assert list(finding) == ["topic", "state", "text"]


def test_many_lines_are_one_request_and_one_save(device):
    """Two requests would save the document twice."""
    device.write_documents({"Network": NETWORK})
    device.start_traced(calls="rename,renameat,renameat2")
    tool = Tool(device)

    def saves():
        return sum('"Network") = 0' in call for call in device.trace())

    for words, lines in (("set --create -", [f"Network.A{n}={n}" for n in range(50)]),
                         ("apply --create -", [f"Network.B{n}={n}" for n in range(50)])):
        before = saves()
        assert tool(*words.split(), stdin="\n".join(lines)).status == 0
        assert saves() == before + 1
