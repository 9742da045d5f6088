"""veltrancordctl against the real service: the commands that ask and change."""

import json
import re

import pytest

from command_line import Tool
from device import CONFIGURATION

ACCOUNT = (
    '<Account><Maxuser>20</Maxuser>'
    '<User1 Level="3" AllowToShow="NO"><Username>admin</Username><Password>{secret}</Password>'
    "<Level>Admin</Level></User1>"
    "<Permission><Define><Permit1 Type=\"Switch\" Value=\"NO\">Network</Permit1>"
    "<Permit2 Type=\"Channel\" Value=\"\">Channels</Permit2></Define>"
    "<Group1><Name>Admin</Name><Permit1>YES</Permit1><Permit2>1,3</Permit2></Group1></Permission>"
    "<CGIPermitDenyFilter><R1><RelatedPermit>Permit1</RelatedPermit><C1><CMD>reboot</CMD></C1></R1>"
    "</CGIPermitDenyFilter></Account>"
).format(secret="")
NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan><Empty/></Network>"


@pytest.fixture
def tool(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    device.request("write:Account.User1.Password=geheim")
    return Tool(device)


def test_get_prints_values(tool):
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    assert tool("get", "Network.Lan.*").stdout == "Network.Lan.Mtu=1500\nNetwork.Lan.Dhcp=YES\n"
    assert tool("get", "Network.Lan.Mtu", "Account.Maxuser").stdout == (
        "Network.Lan.Mtu=1500\nAccount.Maxuser=20\n")
    assert tool.json("get", "Network.Lan.*") == {"Network.Lan.Mtu": "1500",
                                                 "Network.Lan.Dhcp": "YES"}
    assert tool("get", "--format", "shell", "Network.Lan.Mtu").stdout == "Network_Lan_Mtu='1500'\n"
    assert tool("get", "-0", "Network.Lan.*").stdout == (
        "Network.Lan.Mtu=1500\0Network.Lan.Dhcp=YES\0")
    assert tool("get", "--level", "3", "Account.User1.*").status == 0
    assert tool("get", "--level", "1", "Network.Lan.Mtu").status == 1
    assert tool("get", "--visible", "Network.*").stdout == (
        "Network.Lan.Mtu=1500\nNetwork.Lan.Dhcp=YES\n")


def test_failures_have_words_code_and_status(tool):
    missing = tool("get", "Network.Nothing")
    assert missing.status == 1
    assert missing.stderr == "veltrancordctl: Network.Nothing: not found (-4)\n"
    assert tool("get", "Network.Empty.*").status == 4
    long_path = tool("get", "x" * 512)
    assert long_path.status == 5
    assert long_path.stderr.endswith("path over its bound: 512 bytes, at most 511 (-126)\n")
    assert tool("attr", "get", "Network.*.Level").status == 5
    assert tool("group", "nobody").status == 3
    assert tool("load", "/nonexistent", "--yes").status == 7
    assert tool("get").status == 2
    assert tool("--nonsense").status == 2
    assert tool("get", "A", "--socket", "/nonexistent").status == 8
    error = json.loads(tool("get", "Network.Nothing", "--json").stderr)
    assert error["error"]["name"] == "NOT_FOUND" and error["error"]["code"] == -4


def test_the_environment_names_the_socket(tool):
    assert tool("ping", environment=["VELTRANCORD_SOCKET=/nonexistent"]).status == 8
    assert tool("ping").status == 0


def test_secrets_are_masked_and_never_taken_from_arguments(tool):
    path = "Account.User1.Password"
    for arguments in (["get", path], ["get", "Account.*"], ["tree"], ["tree", "--json"],
                      ["get", "--json", "Account.*"], ["get", "--format", "shell", path],
                      ["raw", "readvalue", path], ["raw", "read", "Account.*"]):
        shown = tool(*arguments)
        assert shown.status == 0 and "geheim" not in shown.stdout, arguments
        assert "********" in shown.stdout, arguments
    assert tool("get", path, "--reveal").stdout == "geheim\n"
    refused = tool("set", path, "neu")
    assert refused.status == 5 and "standard input" in refused.stderr
    assert tool("set", f"{path}=neu").status == 5
    assert tool("set", "--create", path, "-", stdin="neu\n").status == 0
    assert tool("get", path, "--reveal").stdout == "neu\n"
    tool.device.write_file("/tmp/secret", "aus Datei")
    assert tool("set", path, "-", "--file", "/tmp/secret").status == 0
    assert tool("get", path, "--reveal").stdout == "aus Datei\n"


def test_set_writes_many_lines_with_one_request(tool):
    assert tool("set", "Network.Lan.Mtu", "1400").status == 0
    assert tool("set", "--create", "Network.Lan.Mtu=1300", "Network.Lan.Name=x=y").status == 0
    assert tool("get", "Network.Lan.Name").stdout == "x=y\n"
    lines = "# a comment\n" + "".join(f"Network.Many.V{n}={n}\n" for n in range(100))
    written = tool("set", "-", "--create", "--json", stdin=lines)
    assert json.loads(written.stdout) == {"written": 100}
    assert tool("get", "Network.Many.V99").stdout == "99\n"
    assert tool("set", "-", "--create", "-0", stdin="Network.A=1\0Network.B=2\0").status == 0
    assert tool("get", "Network.B").stdout == "2\n"
    assert b"<V99>99</V99>" in tool.device.read_document("Network")


def test_set_tells_which_lines_certainly_hold(tool):
    failed = tool("set", "--create", "Network.Lan.Mtu=1", "Network.Lan.X=2", "Network.Lan.1st=3",
                  "Network.Lan.Y=4")
    assert failed.status == 7
    assert failed.stderr == (
        "veltrancordctl: Network.Lan.1st: the store could not apply the value (-11)\n"
        "veltrancordctl: of 4 lines the first 2 certainly hold, the last of them Network.Lan.X\n")
    refused = tool("set", "--create", "Network.Lan.Mtu=2", "Network.Lan.Z=" + "v" * 4096)
    assert refused.status == 5
    assert "Network.Lan.Z: value over its bound: 4096 bytes, at most 4095" in refused.stderr
    assert "nothing was sent" in refused.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"


def test_memory_only_changes_and_sync(tool):
    before = tool.device.read_document("Network")
    assert tool("set", "--memory", "Network.Lan.Mtu", "9000").status == 0
    assert tool.device.read_document("Network") == before
    assert tool("sync").status == 0
    assert b"<Mtu>9000</Mtu>" in tool.device.read_document("Network")


def test_unset_asks(tool):
    assert tool("unset", "Network.Lan.Mtu").status == 2  # no terminal, no --yes
    assert tool("get", "Network.Lan.Mtu").status == 0
    assert tool("unset", "Network.Lan.Mtu", "--yes", "--backup", "/tmp/saved").status == 0
    assert tool("get", "Network.Lan.Mtu").status == 1
    assert b"<Mtu>1500</Mtu>" in tool.device.read_file("/tmp/saved")
    terminal = tool.terminal("unset", "Network.Lan.Dhcp")
    terminal.wait_for("[y/N]")
    terminal.type("n\n")
    assert terminal.finish() == 11
    terminal = tool.terminal("unset", "Network.Lan.Dhcp")
    terminal.wait_for("[y/N]")
    terminal.type("y\n")
    assert terminal.finish() == 0
    assert tool("get", "Network.Lan.Dhcp").status == 1



def test_ls_and_tree(tool):
    assert set(tool("ls").stdout.split()) == {"Account.", "Network."}
    assert tool("ls", "Network").stdout == "Lan.\n"
    assert tool.json("ls", "Network.Lan") == [{"name": "Mtu", "children": False},
                                              {"name": "Dhcp", "children": False}]
    assert tool("tree", "Network").stdout == (
        "Network\n└── Lan\n    ├── Mtu = 1500\n    └── Dhcp = YES\n")
    assert tool.json("tree", "Network.Lan.*") == {"Mtu": "1500", "Dhcp": "YES"}
    assert tool("ls", "Nowhere").status == 1


def test_names_that_are_escaped_are_found_and_written_back(tool):
    assert tool("set", "--create", "Network.My Lan.a_b", "1").status == 0
    assert tool("get", "Network.My Lan.*").stdout == "Network.My Lan.a_b=1\n"
    assert tool("tree", "Network.My Lan").stdout == "Network.My Lan\n└── a_b = 1\n"


def test_attributes(tool):
    assert tool("attr", "get", "Account.User1.Level").stdout == "3\n"
    assert tool("attr", "list", "Account.User1.#").stdout == (
        "Account.User1.Level=3\nAccount.User1.AllowToShow=NO\n")
    assert tool("attr", "set", "Account.User1.Level", "5").status == 0
    assert tool("attr", "get", "--json", "Account.User1.Level").stdout.split() == [
        "{", '"Account.User1.Level":', '"5"', "}"]
    assert tool("attr", "set", "Account.Nobody.Level=1").status == 1
    assert tool("attr", "list", "Network.Lan.#").status == 4


def test_dump_load_merge_restore(tool):
    device = tool.device
    assert tool("dump", "/tmp/all").status == 0
    assert tool("set", "Network.Lan.Mtu", "1").status == 0
    assert tool("load", "/tmp/all", "--yes").status == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    other = "<ROOT><Network><Lan><Mtu>7</Mtu><New>n</New></Lan></Network></ROOT>"
    assert tool("restore", "-", "--yes", stdin=other).status == 0
    assert tool("get", "Network.Lan.Mtu", "Network.Lan.New").stdout == (
        "Network.Lan.Mtu=1500\nNetwork.Lan.New=n\n")
    assert tool("merge", "-", "--yes", stdin=other).status == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "7\n"
    assert not [name for name in device.list_directory("/tmp") if name.startswith("veltrancordctl")]
    assert tool("load", "/tmp/all").status == 2


def test_backup_runs_the_script(tool):
    tool.device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\necho \"$1\" > /tmp/ran\n")
    assert tool("backup", "now").status == 0
    assert tool.device.read_file("/tmp/ran") == b"now\n"


def test_permits_groups_and_filter(tool):
    assert tool("can", "admin", "Network").stdout == "allowed\n"
    denied = tool("can", "--group", "Admin", "Channels", "2")
    assert (denied.status, denied.stdout) == (3, "denied\n")
    assert tool("can", "admin", "Nothing").status == 1
    assert tool("permits").stdout == "1\tNetwork\tSwitch\tNO\n2\tChannels\tChannel\t(null)\n"
    assert tool.json("permits")[0] == {"number": "1", "name": "Network", "type": "Switch",
                                       "value": "NO"}
    assert tool("permits", "value", "Admin", "Channels").stdout == "1,3\n"
    assert tool("group", "admin").stdout == "Admin\n"
    assert tool("filter", "admin", "reboot").stdout == "allowed\n"
    assert tool("set", "Account.Permission.Group1.Permit1", "NO").status == 0
    assert tool("permits", "sync").status == 0
    assert tool.json("filter", "admin", "reboot", status=3) == {"allowed": False}


def test_sessions_and_captchas(tool):
    assert tool("session", "set", stdin="token").status == 0
    assert tool("session", "check", stdin="token").status == 0
    assert tool("session", "check", "--lifetime", "0", stdin="token").status == 1
    assert tool("session", "check", stdin="other").status == 1
    assert tool("captcha", "set", "v1", stdin="abc").status == 0
    assert tool("captcha", "check", "v1", stdin="abd").status == 13
    assert tool("captcha", "refresh", "v1", stdin="abc").status == 0
    assert tool("captcha", "check", "v1", "--remove", "--lifetime", "60", stdin="abc").status == 0
    assert tool("captcha", "check", "v1", stdin="abc").status == 1
    assert tool("captcha", "delete", "v1", stdin="abc").status == 0


def test_log(tool):
    bits = {"Num": "1", "Def1.Bit": "0x10", "Def1.Name": "Motion"}
    tool.device.write_document("Notification", "<Notification/>")
    tool.device.restart()
    for name, value in bits.items():
        assert tool("set", "--create", f"Notification.Log.BitDefine.{name}", value).status == 0
    assert tool("log", "list").status == 4
    # 31 January 2024 in any time zone from -12 to +11 hours
    assert tool("log", "add", "0x10", "first", "--time", "1706702400", "--detail1", "7").status == 0
    assert tool("log", "add", "0x20", "second").status == 0
    lines = tool("log", "list").stdout.splitlines()
    assert len(lines) == 2 and "second" in lines[0] and "0x20" in lines[0]
    assert re.match(r"2024-01-31 \d\d:\d\d:\d\d  Motion +7  first  0$", lines[1])
    listed = tool.json("log", "list", "--mask", "0x10")
    assert [(one["names"], one["text"]) for one in listed] == [(["Motion"], "first")]
    assert tool("log", "count").stdout == "2\n"
    assert int(tool("log", "count", "--capacity").stdout) > 2
    assert tool("log", "add", "1", "a:b").status == 5
    assert tool("log", "add", "1", "x" * 16).status == 5
    assert tool("log", "clear").status == 2
    assert tool("log", "clear", "--yes", "--backup", "/tmp/events").status == 0
    assert len(tool.device.read_file("/tmp/events").splitlines()) == 2
    assert tool("log", "count").stdout == "0\n"


def test_what_is_saved_is_for_nobody_else_to_read(tool):
    device = tool.device
    tool("log", "add", "1", "event")
    for words in (["dump", "/tmp/all"], ["unset", "Network.Lan.Mtu", "--yes", "--backup", "/tmp/before"],
                  ["log", "clear", "--yes", "--backup", "/tmp/events"], ["snapshot", "/tmp/lines"]):
        assert tool(*words).status == 0
        assert device.run("stat", "-c", "%a", words[-1]).stdout == "600\n"
    assert "<Lan>" in device.read_file("/tmp/all").decode()
    device.run("chmod", "640", "/tmp/all")
    assert tool("dump", "/tmp/all").status == 0
    assert device.run("stat", "-c", "%a", "/tmp/all").stdout == "640\n"


def test_a_device_takes_what_is_saved_and_stays_one(tool):
    for command in ("dump", "snapshot"):
        assert tool(command, "/dev/null").status == 0
        assert tool.device.run("stat", "-c", "%F", "/dev/null").stdout == "character special file\n"


def test_log_follow(tool):
    tool("log", "add", "1", "old")
    follower = tool.outside("log", "follow", "--interval", "50")
    try:
        assert follower.stderr.readline() == "veltrancordctl: following\n"
        for number in range(3):
            # Looked at between any two, or all at once: each is told once, in order.
            tool("log", "add", "1", f"event{number}")
        seen = [follower.stdout.readline() for _ in range(1)]
        while "event2" not in seen[-1]:
            seen.append(follower.stdout.readline())
    finally:
        follower.kill()
        follower.communicate()
    told = [re.search(r"event\d", line).group() for line in seen if "event" in line]
    assert told == sorted(set(told)) and told[-1] == "event2"


def test_raw_reaches_every_command(tool):
    assert tool("raw", "readvalue", "Network.Lan.Mtu").stdout == "1500\n"
    assert tool("raw", "geteventcount").stdout == "0\n"
    assert tool.json("raw", "write", "Network.Lan.Mtu=2") == {"result": 1, "text": ""}
    assert tool("raw", "write", "-", stdin="Network.Lan.Mtu=3").status == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "3\n"
    assert tool("raw", "nonsense").status == 1


def test_ping_and_wait(tool):
    assert tool("ping").stdout.startswith("alive, ")
    assert tool.json("ping")["alive"] is True
    assert tool("wait").status == 0
    tool.device.stop()
    assert tool("ping", "--timeout", "0.05").status == 8
    assert tool("wait", "--timeout", "0.05").status == 8


def test_a_silent_service_times_out(tool):
    import signal

    tool.device.send_signal(tool.device.worker_pid, signal.SIGSTOP)
    assert tool("get", "Network.Lan.Mtu", "--timeout", "0.05").status == 9
    tool.device.send_signal(tool.device.worker_pid, signal.SIGCONT)
