"""veltrancordctl trail: the records of who changed what, read back from a syslog's file or from journald."""

import json
import re

import pytest

from access_table import DENIED, GROUP, WEB, TableDevice
from command_line import STATE, Tool
from peers import Peer
from test_tool_access import journal
from wire import Reply

FILE = "/tmp/auth.log"
NOON = 1_795_349_522  # 2026-11-22T12:12:02Z


def record(*members, kind="change", time="2026-11-22T12:12:02.123456Z", user="web", command="write", end="]"):
    """One record as the service sends it, without the priority."""
    rest = "".join(f' {name}="{value}"' for name, value in members)
    return (f'1 {time} yard veltrancord 211 {kind} [veltrancord@32473 user="{user}" uid="33" pid="514"'
            f' program="settings.cgi" command="{command}"{rest}{end} {command} by {user} (33): 1')


MTU = record(("path", "Network.Lan.Mtu"), ("old", "1500"), ("new", "1400"), ("result", "1"))
REFUSED = record(("path", "Account.User1"), ("result", "-12"), kind="refused", user="stranger", command="read",
                 time="2026-11-22T12:12:03Z")
FAILED = record(("path", "Network.Wan"), ("path", "Network.Lan"), ("more", "7"), ("lost", "3"), ("result", "-11"),
                time="2026-11-22T12:12:04.5Z")


@pytest.fixture
def tool(device):
    return Tool(device)


def trail(tool, lines, *words):
    tool.device.write_file(FILE, "".join(line + "\n" for line in lines))
    return tool("trail", "--file", FILE, *words, environment=["TZ=UTC"])


def test_what_is_told_newest_first(tool):
    told = trail(tool, [MTU, REFUSED, FAILED])
    assert told.status == 0
    assert told.stdout.splitlines() == [
        "2026-11-22 12:12:04  web  settings.cgi[514]  write Network.Wan Network.Lan and 7 more  failed (-11)",
        "before this, 3 records were lost",
        "2026-11-22 12:12:03  stranger  settings.cgi[514]  read Account.User1  refused",
        "2026-11-22 12:12:02  web  settings.cgi[514]  write Network.Lan.Mtu",
        "-Network.Lan.Mtu=1500", "+Network.Lan.Mtu=1400"]


def test_a_record_for_programs(tool):
    assert json.loads(trail(tool, [MTU], "--json").stdout) == [{
        "time": NOON, "kind": "change", "user": "web", "uid": "33", "process": "514",
        "program": "settings.cgi", "command": "write", "result": 1, "more": 0, "lost": 0,
        "paths": [{"path": "Network.Lan.Mtu", "before": "1500", "after": "1400"}]}]


@pytest.mark.parametrize("words, commands", [
    (["Network.Lan.Mtu"], ["write", "write"]), (["Network"], ["write", "write"]), (["Network.*"], ["write", "write"]),
    (["Network.Wan"], ["write"]), (["Networ"], []), (["*"], ["write", "read", "write"]), (["Account"], ["read"]),
    (["--user", "stranger"], ["read"]), (["--user", "33"], ["write", "read", "write"]), (["--user", "3"], []),
    (["--refused"], ["read"]), (["--count", "2"], ["write", "read"]), (["--refused", "Network"], [])])
def test_records_are_chosen(tool, words, commands):
    told = trail(tool, [MTU, REFUSED, FAILED], "--json", *words)
    assert told.status == (0 if commands else 4)
    assert [one["command"] for one in json.loads(told.stdout)] == commands


@pytest.mark.parametrize("header", ["", "<85>", "Nov 22 12:12:02 yard ", "Nov 22 12:12:02 yard authpriv.notice ",
                                    "2026-11-22T12:12:02.2+00:00 1 yard "])
def test_what_a_syslog_puts_before_a_record(tool, header):
    assert trail(tool, [header + MTU]).stdout.startswith("2026-11-22 12:12:02  web  settings.cgi[514]")


@pytest.mark.parametrize("line", [
    MTU[:-40], MTU.replace("veltrancord@32473", "veltrancord@1"), MTU.replace(" veltrancord 211", " sshd 211"),
    MTU.replace("12:02.123456Z", "12:02.123456+01:00"), MTU.replace('result="1"', 'result="x"'),
    record(("old", "1"), ("path", "A")), record(("path", "A"), end=""), "1 ", "1", "", MTU.replace("1 2026", "2 2026"),
    "{", "{}", "{\"MESSAGE\": 3}", "x" * 70000 + MTU, "Nov 22 yard sshd: login as x" + MTU])
def test_what_is_no_record_is_passed_over(tool, line):
    assert trail(tool, [line]).status == 4
    assert len(trail(tool, [line, REFUSED]).stdout.splitlines()) == 1


HOSTILE = "x\033[2J\\\"\\]\\\\y\0[31mz"


def test_hostile_text_stays_on_its_line_and_harmless(tool):
    """A client chooses paths and its program's name; a forged file may hold any byte."""
    lines = [MTU.replace("Network.Lan.Mtu", HOSTILE).replace("settings.cgi", "a\tb\033c").replace("1500", "\x9b\a")]
    terminal_text = trail(tool, lines).stdout
    assert not re.search(r"[\0-\x09\x0b-\x1f\x7f]", terminal_text)
    assert r'x\x1b[2J"]\y?[31mz' in terminal_text
    terminal = tool.terminal("trail", "--file", str(tool.device.outside(FILE)), environment={"NO_COLOR": "1"})
    assert terminal.finish() == 0
    assert "\033" not in terminal.text and r"\x1b[2J" in terminal.text
    message = MTU.replace("Network.Lan.Mtu", "a\nb\0[31mc").encode()
    tool.device.write_file(FILE, json.dumps({"MESSAGE": list(message)}) + "\n")
    told = tool("trail", "--file", FILE).stdout
    assert len(told.splitlines()) == 3 and "a?b?[31mc" in told
    assert json.loads(tool("trail", "--file", FILE, "--json").stdout)[0]["paths"][0]["path"] == "a\nb\0[31mc"


def test_the_journal_is_asked_for_what_only_the_service_can_have_said(tool):
    path = journal(tool.device, [{"MESSAGE": MTU}, {"MESSAGE": "program not run: " + MTU}, {"MESSAGE": "x"}])
    told = tool("trail", environment=[*path, "TZ=UTC"])
    assert told.status == 0 and len(told.stdout.splitlines()) == 3
    asked = tool.device.read_file("/tmp/asked").decode()
    for match in asked.split(" + "):
        assert "_TRANSPORT=syslog" in match and ("_SYSTEMD_UNIT=veltrancord.service" in match or "_UID=0" in match)


def test_without_a_record(tool):
    assert trail(tool, []).status == 4
    assert tool("trail", "--file", "/none").status == 7
    assert tool("trail", environment=["PATH=/none"]).status == 7


# ---- history --------------------------------------------------------------------------------------

def seen_change(time, path="Network.Lan.Mtu", after="1400", **more):
    return {"number": 1, "time": time, "user": "", "command": "",
            "changes": [{"path": path, "before": "1500", "after": after}], **more}


@pytest.mark.parametrize("change, user", [
    (seen_change(NOON), "web"), (seen_change(NOON + 9), "web"), (seen_change(NOON - 1), "web"),
    (seen_change(NOON + 11), None), (seen_change(NOON - 2), None), (seen_change(NOON, after="1300"), None),
    (seen_change(NOON, path="Network.Lan.Dhcp"), None), (seen_change(NOON, user="me", command="x"), "me")])
def test_history_tells_the_user_that_a_record_names(tool, change, user):
    tool.device.make_directory(STATE)
    tool.device.write_file(f"{STATE}/history", json.dumps(change) + "\n")
    failed = MTU.replace('result="1"', 'result="-11"').replace("web", "loser").replace(":02.1", ":02.2")
    tool.device.write_file(FILE, f"{MTU}\n{failed}\n{REFUSED}\n")
    (entry,) = tool.json("history", "--trail", FILE)
    assert entry["user"] == user and entry["command"] == (change["command"] or None)
    text = tool("history", "--trail", FILE).stdout.splitlines()[0]
    assert text.endswith("not by this tool") == (change["command"] == "")
    assert ("  web  not by" in text) == (user == "web")
    asked = tool("history", "--json", environment=journal(tool.device, [{"MESSAGE": MTU}]))
    assert json.loads(asked.stdout)[0]["user"] == user


def test_history_goes_without_a_trail(tool):
    tool.device.make_directory(STATE)
    tool.device.write_file(f"{STATE}/history", json.dumps(seen_change(NOON)) + "\n")
    told = tool("history", environment=["PATH=/none"])
    assert (told.status, told.stderr) == (0, "") and "not by this tool" in told.stdout
    assert tool("history", "--trail", "/none").status == 7


# ---- with the service -----------------------------------------------------------------------------

POLICY = """allow user root all
allow user www-data write on Network Account
trail changes values
trail refusals
"""


@pytest.fixture
def guarded():
    with TableDevice() as device:
        device.needs_users()
        yield device


def test_what_the_service_tells_is_read_back(guarded):
    assert guarded.start_log() == FILE
    guarded.start_guarded(POLICY, documents={
        "Network": "<Network><Lan><Mtu>1500</Mtu></Lan></Network>",
        "Account": "<Account><User1><Password/></User1></Account>"})
    with Peer(guarded, WEB, further=[GROUP]) as web:
        assert web.request("write:Network.Lan.Mtu=14\"]0\\0\nAccount.User1.Password=hush-hush") == Reply(2, b"")
        assert web.request("read:Network.Lan.Mtu") == DENIED
        guarded.wait_for_record(" refused [")
        told = json.loads(Tool(guarded)("trail", "--file", FILE, "--json").stdout)
        who = {"user": "www-data", "uid": str(WEB), "process": str(web.pid), "more": 0, "lost": 0}
    assert [{name: one[name] for name in who} for one in told] == [who, who]
    refused, changed = told
    assert (refused["kind"], refused["command"], refused["result"]) == ("refused", "read", -12)
    assert (changed["kind"], changed["command"], changed["result"]) == ("change", "write", 2)
    assert changed["paths"] == [
        {"path": "Network.Lan.Mtu", "before": "1500", "after": "14\"]0\\0"},
        {"path": "Account.User1.Password", "before": None, "after": None}]
    assert b"hush" not in guarded.read_file(FILE)
