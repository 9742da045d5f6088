"""veltrancordctl access: what is wrong with an access file, who may do what by it, and a draft of one."""

import json

import pytest

from access_table import (DENIED, EXCHANGE, GROUP, MEMBER, POLICY, ROOT, SAMPLE, STRANGER, WEB, WEB_USER,
                          TableDevice)
from command_line import Tool
from peers import Peer

FILE = "/tmp/access"


@pytest.fixture
def tool(device):
    return Tool(device)


def checked(tool, text, *words, mode=0o644):
    tool.device.write_file(FILE, text, mode=mode)
    return tool("access", "check", FILE, *words)


# ---- check ----------------------------------------------------------------------------------------


def test_a_file_without_a_mistake(tool):
    checked_file = checked(tool, "mode enforce\nallow user root all\n# no more\n")
    assert (checked_file.status, checked_file.stdout, checked_file.stderr) == (0, "", "")
    assert tool.json("access", "check", FILE) == []


def test_every_mistake_is_told_with_its_line(tool):
    told = checked(tool, "mode strict\nallow user root all\nallow user nobody-at-all read\n\n"
                         "allow any sing\nallow any permits on Network\ntrail everything\n")
    assert told.status == 10
    lines = told.stdout.splitlines()
    assert [line.split(" ")[0] for line in lines] == [f"{FILE}:{number}:" for number in (1, 3, 5, 6, 7)]
    assert 'unknown user "nobody-at-all"' in lines[1] and '"sing"' in lines[2]
    asked = tool.json("access", "check", FILE, status=10)
    assert [one["line"] for one in asked] == [1, 3, 5, 6, 7] and asked[0]["file"] == FILE


@pytest.mark.parametrize("mode", [0o664, 0o646])
def test_a_file_that_others_could_change_is_told_with_what_is_in_it(tool, mode):
    told = checked(tool, "allow user root all\nallow everybody all\n", mode=mode)
    assert told.status == 10
    whole, line = told.stdout.splitlines()
    assert whole.startswith(f"{FILE}: ") and "may be changed by others" in whole
    assert line.startswith(f"{FILE}:2: ")


def test_a_link_is_told(tool):
    tool.device.write_file("/tmp/real", "allow user root all\n", mode=0o644)
    tool.device.outside(FILE).symlink_to("/tmp/real")
    told = tool("access", "check", FILE)
    assert told.status == 10 and "link" in told.stdout


def test_a_file_that_is_missing_or_too_long(tool):
    assert tool("access", "check", "/none").status == 7
    long_file = checked(tool, "# x\n" * 20000)
    assert long_file.status == 10 and "bytes" in long_file.stdout


@pytest.mark.parametrize("rules, idle", [
    (["allow any read", "allow user root read"], [2]),
    (["allow any read on Network", "allow user root read"], []),
    (["allow any read on *", "deny user root read on Network"], [2]),
    (["allow any read on *", "deny user root read"], []),  # what names no document is left
    (["allow any read on * except Account", "deny any read on Account Network"], []),
    (["allow any read on * except Account", "deny any read on Network"], [2]),
    (["deny user root read", "deny user root write", "allow user root read,write"], [3]),
    (["deny user root read", "deny user root write", "allow user root all"], []),
    (["allow user root all", "allow group root all", "deny any all"], []),
    (["deny any all", "allow user root all", "allow group root all", "allow any read on Network"], [2, 3, 4]),
    (["allow group root read on Other", "allow group root read on Other"], [2]),
    (["allow user root read on Other", "allow user root read on *", "deny user root read on Last"], [3]),
])
def test_rules_that_never_decide(tool, rules, idle):
    told = checked(tool, "".join(rule + "\n" for rule in rules))
    assert told.status == (10 if idle else 0)
    assert told.stdout.splitlines() == [
        f"{FILE}:{line}: never decides anything: the rules before it always do" for line in idle]


# ---- explain --------------------------------------------------------------------------------------

RULES = """deny user root read on Account  # but for one
allow user root read,write
allow group root cleanlog-not-this
"""
GOOD = """allow user root read on * except Account   # all but one
  allow group root  log-clear
deny any write on Network
allow any write,files on *
"""


@pytest.mark.parametrize("words, status, lines", [
    (["root", "read", "Network.Lan"], 0, ["allowed  read Network  line 1: allow user root read on * except Account",
                                          "empty  secrets Network  no rule"]),
    (["root", "readvalue", "Account.User1"], 3, ["refused  read Account  no rule",
                                                 "empty  secrets Account  no rule"]),
    (["0", "write", "System.Name"], 0, ["allowed  write System  line 4: allow any write,files on *"]),
    (["any", "write", "System.Name=1\nNetwork.Lan=2"], 3, [
        "allowed  write System  line 4: allow any write,files on *",
        "refused  write Network  line 3: deny any write on Network"]),
    (["any", "writeattr", "System.Name.DispatchW=/x"], 3, [
        "allowed  write System  line 4: allow any write,files on *", "refused  admin  no rule"]),
    (["root", "cleanlog"], 0, ["allowed  log-clear  line 2: allow group root  log-clear"]),
    (["any", "cleanlog"], 3, ["refused  log-clear  no rule"]),
    (["--group", "root", "cleanlog"], 0, ["allowed  log-clear  line 2: allow group root  log-clear"]),
    (["4000000000", "cleanlog"], 3, ["refused  log-clear  no rule"]),
    (["root", "read", "*"], 3, [
        "refused  read Account  no rule",
        "allowed  read Network  line 1: allow user root read on * except Account",
        "allowed  read (any other)  line 1: allow user root read on * except Account",
        "empty  secrets Account  no rule", "empty  secrets Network  no rule",
        "empty  secrets (any other)  no rule"]),
    (["any", "write"], 3, [
        "allowed  write Account  line 4: allow any write,files on *",
        "refused  write Network  line 3: deny any write on Network",
        "allowed  write (any other)  line 4: allow any write,files on *"]),
    (["root", "upload", "/tmp/x"], 3, ["refused  files  no rule", "refused  admin  no rule"]),
])
def test_which_rule_decides_is_told(tool, words, status, lines):
    tool.device.write_file(FILE, GOOD)
    told = tool("access", "explain", *words, "--file", FILE)
    assert (told.status, told.stdout.splitlines(), told.stderr) == (status, lines, "")


def test_files_are_explained_for_whichever_documents_they_hold(tool):
    tool.device.write_file(FILE, GOOD)
    every = [f"allowed  files {one}  line 4: allow any write,files on *"
             for one in ("Account", "Network", "(any other)")]
    told = tool("access", "explain", "any", "upload", "/tmp/x", "--file", FILE)
    assert (told.status, told.stdout.splitlines()) == (0, every)
    assert "no directory of files-below" in told.stderr
    tool.device.write_file(FILE, GOOD + "files-below /tmp\n")
    told = tool("access", "explain", "any", "download", "/tmp/x", "--file", FILE)
    assert told.status == 3 and "below the directories" in told.stderr
    assert told.stdout.splitlines() == [*every, "refused  secrets Account  no rule",
                                        "refused  secrets Network  no rule",
                                        "refused  secrets (any other)  no rule"]


def test_an_explanation_for_programs(tool):
    tool.device.write_file(FILE, GOOD + "mode permissive\n")
    asked = tool("access", "explain", "root", "read", "Network", "--file", FILE, "--json")
    assert json.loads(asked.stdout) == {
        "allowed": True,
        "needs": [{"class": "read", "document": "Network", "allowed": True, "line": 1,
                   "rule": "allow user root read on * except Account"}],
        "secrets": [{"class": "secrets", "document": "Network", "allowed": False, "line": None,
                     "rule": None}]}
    assert "permissive: nothing is refused yet" in asked.stderr


@pytest.mark.parametrize("words, status, why", [
    (["root", "sing", "Network"], 1, "sing: is no command of the service"),
    (["nobody-at-all", "read", "Network"], 1, "nobody-at-all: is no user"),
    (["--group", "nobody-at-all", "read", "Network"], 1, "nobody-at-all: is no group"),
])
def test_what_cannot_be_explained(tool, words, status, why):
    tool.device.write_file(FILE, GOOD)
    told = tool("access", "explain", *words, "--file", FILE)
    assert told.status == status and why in told.stderr
    assert tool("access", "explain", "root", "read", "A", "--file", "/none").status == 7
    tool.device.write_file(FILE, RULES)
    bad = tool("access", "explain", "root", "read", "A", "--file", FILE)
    assert bad.status == 5 and "has mistakes" in bad.stderr


# ---- draft ----------------------------------------------------------------------------------------

TOLD = """would be refused: user 0 group 0 class read document Network
would be refused: user 0 group 0 class write document Network
would be refused: user 0 group 0 class write document Account
would be refused: user 4000000000 group 7 class log-read document -
would be refused: user 4000000000 group 7 class permits document -
Nov 22 12:00:01 yard Veltrancord[12]: would be refused: user 0 group 0 class secrets document Network
Nov 22 12:00:02 yard Veltrancord[12]: program not run: /x: would be refused: user 7 group 7 class admin document -
would be refused: user 1x group 0 class read document Network
would be refused: user 1 group 0 class sing document Network
would be refused: user 5 group 0 class read document A B
would be refused: user 5 group 0 class read document \033[2J
would be refused: user 5 group 0 class read
something else
"""
DRAFT = """allow user root write on Account Network
allow user root read,secrets on Network
allow user 4000000000 log-read,permits
"""


def rules_of(text):
    return "".join(line + "\n" for line in text.splitlines() if line.startswith("allow"))


def test_a_draft_of_what_was_told(tool):
    tool.device.write_file("/tmp/messages", TOLD)
    drafted = tool("access", "draft", "--file", "/tmp/messages")
    assert drafted.status == 0 and "mode permissive\n" in drafted.stdout
    assert rules_of(drafted.stdout) == DRAFT
    assert "2 lines name what is no document" in drafted.stderr
    assert checked(tool, drafted.stdout).status == 0
    assert tool("access", "draft", "--file", "-", stdin=TOLD).stdout == drafted.stdout
    assert tool.json("access", "draft", "--file", "/tmp/messages")["text"] == drafted.stdout


def test_nothing_to_draft(tool):
    tool.device.write_file("/tmp/messages", "something else\n")
    assert tool("access", "draft", "--file", "/tmp/messages").status == 4
    assert tool("access", "draft", "--file", "/none").status == 7


def test_a_long_draft_has_no_line_that_is_too_long(tool):
    tool.device.write_file("/tmp/messages", "".join(
        f"would be refused: user 0 group 0 class read document Document_{number}\n" for number in range(300)))
    drafted = tool("access", "draft", "--file", "/tmp/messages").stdout
    assert max(map(len, drafted.splitlines())) <= 1024
    assert checked(tool, drafted).status == 0
    assert sum(line.count("Document_") for line in drafted.splitlines()) == 300


def journal(device, entries):
    """A journalctl that prints these entries, and keeps what it was asked for."""
    device.write_file("/tmp/entries", "".join(json.dumps(one) + "\n" for one in entries))
    device.install_script("/tmp/bin/journalctl", '#!/bin/sh\necho "$*" > /tmp/asked\ncat /tmp/entries\n')
    return ["PATH=/tmp/bin:/usr/bin:/bin"]


def test_a_draft_of_what_journald_has(tool):
    """Nothing that a client has the service print passes for a line of its own."""
    entries = [{"MESSAGE": line} for line in TOLD.splitlines()]
    entries.append({"MESSAGE": list(b"would be refused: user 7 group 7 class read document X\xff")})
    entries.append({"MESSAGE": None})
    path = journal(tool.device, entries)
    drafted = tool("access", "draft", environment=path)
    assert rules_of(drafted.stdout) == DRAFT.replace("read,secrets", "read")
    assert "_SYSTEMD_UNIT=veltrancord.service _TRANSPORT=stdout" in tool.device.read_file("/tmp/asked").decode()


def test_without_a_journal(tool):
    tool.device.install_script("/tmp/bin/journalctl", "#!/bin/sh\nexit 5\n")
    told = tool("access", "draft", environment=["PATH=/tmp/bin:/usr/bin:/bin"])
    assert told.status == 7 and "--file names the file of a syslog" in told.stderr


# ---- with the service -----------------------------------------------------------------------------

KNOWN = {"Account": "<Account><User1><Username>admin</Username><Password/></User1></Account>",
         "Display": "<Display><Layout>2x2</Layout></Display>", "Network": "<Network><Lan>1</Lan></Network>"}
REQUESTS = [("read", "Display.Layout"), ("readvalue", "Account.User1.Username"), ("read", "*"),
            ("readattr", "Network.Lan.#"), ("write", "Display.Layout=1"), ("write", "Network.Lan=2"),
            ("write", "Display.Layout=1\nNetwork.Lan=2"), ("writedbmem", "Network.Lan=3"),
            ("writeattr", "Display.Layout.Level=3"), ("writeattr", "Display.Layout.DispatchW=/x"),
            ("remove", "Network.None"), ("geteventcount", ""), ("cleanlog", ""), ("listPermits", ""),
            ("CheckSession", "x"), ("SyncPermit", ""), ("download", EXCHANGE + "/all"), ("read", "None.None"),
            ("readwithlevel", "Display.Layout&1"), ("readwithlevel", "*&1")]


@pytest.fixture
def guarded():
    with TableDevice() as device:
        yield device


@pytest.mark.parametrize("kind, who", [(ROOT, "root"), (WEB_USER, "www-data"), (MEMBER, "member"),
                                       (STRANGER, "any")])
def test_what_is_explained_is_what_the_service_does(guarded, kind, who):
    """On the sample file of the packages."""
    guarded.needs_users(kind)
    guarded.start_guarded(SAMPLE.read_text(), documents=KNOWN)
    tool = Tool(guarded)
    with guarded.peer(kind) as peer:
        for command, argument in REQUESTS:
            explained = tool("access", "explain", who, command, argument)
            denied = peer.request(f"{command}:{argument}") == DENIED
            assert explained.status == (3 if denied else 0), (command, argument, explained)


def test_the_sample_has_no_mistake(guarded):
    guarded.write_file(POLICY, SAMPLE.read_text(), mode=0o644)
    told = Tool(guarded)("access", "check")
    assert (told.status, told.stdout) == (0, "")


def test_from_watching_to_refusing(guarded):
    """What was done in permissive mode can be done by the draft, and nothing else."""
    guarded.needs_users()
    guarded.start_guarded("mode permissive\nallow user root all\n", documents=KNOWN)
    tool = Tool(guarded)
    done = ["read:Display.Layout", "write:Display.Layout=4", "geteventcount:"]
    with Peer(guarded, WEB, further=[GROUP]) as web:
        for request in done:
            assert web.request(request) != DENIED
        guarded.write_file("/tmp/messages", guarded.stderr())
        drafted = tool("access", "draft", "--file", "/tmp/messages").stdout
        assert rules_of(drafted) == ("allow user www-data log-read\n"
                                     "allow user www-data read,write on Display\n")
        guarded.write_file(POLICY, drafted.replace("permissive\n", "enforce\nallow user root all\n"), mode=0o644)
        assert tool("permits", "sync").status == 0
        for request in done:
            assert web.request(request) != DENIED
        for request in ("read:Network.Lan", "write:Network.Lan=4", "cleanlog:", "write:Display.Layout=5\nNetwork.Lan=1"):
            assert web.request(request) == DENIED
    assert guarded.request("readvalue:Network.Lan") == (1, b"1")


@pytest.mark.parametrize("policy, state, text", [
    (None, "info", "absent, so whoever may connect may do everything"),
    ("allow user root all\n", "good", ": 1 rule"),
    ("mode permissive\n", "warning", "permissive, so nothing is refused"),
    ("allow user root all\nallow user root read\n", "warning", ":2: never decides"),
    ("allow user root sing\n", "bad", ':1: unknown class "sing"')])
def test_the_doctor_looks_at_the_file(guarded, policy, state, text):
    guarded.start_guarded(policy or "", documents=KNOWN)
    if policy is None:
        guarded.outside(POLICY).unlink()
    found = json.loads(Tool(guarded)("doctor", "--json").stdout)["findings"]
    (told,) = [one for one in found if one["topic"] == "access"]
    assert told["state"] == state and text in told["text"] and POLICY in told["text"]


def test_who_is_refused_is_told_where_to_look(guarded):
    guarded.start_guarded("allow user root admin,log-write\n", documents=KNOWN)
    tool = Tool(guarded)
    refused = tool("log", "clear", "--yes")
    assert refused.status == 3 and "; see veltrancordctl access explain (-12)" in refused.stderr
    guarded.outside(POLICY).unlink()
    assert tool("group", "nobody").status == 3
    assert "explain" not in tool("group", "nobody").stderr
