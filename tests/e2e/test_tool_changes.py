"""veltrancordctl: snapshot, diff, apply, edit and watch."""

import json
import re
import signal

import pytest

from command_line import Tool

NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan></Network>"
ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"


@pytest.fixture
def tool(service):
    device = service({"Network": NETWORK, "Account": ACCOUNT})
    device.request("write:Account.User1.Password=geheim")
    return Tool(device)


def value(tool, path="Network.Lan.Mtu"):
    return tool("get", path).stdout.strip()


def test_snapshot_and_diff(tool):
    assert tool("snapshot", "/tmp/before").status == 0
    assert tool.device.outside("/tmp/before").stat().st_mode & 0o777 == 0o600
    assert b"Account.User1.Password=geheim\n" in tool.device.read_file("/tmp/before")
    same = tool("diff", "/tmp/before")
    assert (same.status, same.stdout) == (0, "")
    tool("set", "--create", "Network.Lan.Mtu=9000", "Network.Lan.New=1")
    tool("set", "Account.User1.Password", "-", stdin="neu")
    tool("unset", "Network.Lan.Dhcp", "--yes")
    differs = tool("diff", "/tmp/before")
    assert differs.status == 10
    secret = "-Account.User1.Password=********\n+Account.User1.Password=********\n"
    back = "+Network.Lan.Dhcp=YES\n-Network.Lan.Mtu=9000\n+Network.Lan.Mtu=1500\n"
    assert differs.stdout == secret + back
    assert tool("diff", "/tmp/before", "--all").stdout == secret + back + "-Network.Lan.New=1\n"
    assert "geheim" in tool("diff", "/tmp/before", "--reveal").stdout
    below = json.loads(tool("diff", "/tmp/before", "--path", "Network", "--all", "--json").stdout)
    assert below[1] == {"path": "Network.Lan.Mtu", "change": "changed", "before": "9000",
                        "after": "1500"}
    assert [one["change"] for one in below] == ["added", "changed", "removed"]
    assert tool("snapshot", "/tmp/after", "Network").status == 0
    assert b"Account" not in tool.device.read_file("/tmp/after")
    assert tool("diff", "/tmp/before", "/tmp/after", "--path", "Network.Lan").status == 10
    assert tool("diff", "/nonexistent").status == 7


def test_a_path_to_one_setting_is_that_setting(tool):
    tool.device.write_file("/tmp/wanted", "Network.Lan.Mtu=1400\nNetwork.Lan.Dhcp=NO\n")
    differs = tool("diff", "/tmp/wanted", "--path", "Network.Lan.Mtu")
    assert (differs.status, sorted(differs.stdout.split())) == (
        10, ["+Network.Lan.Mtu=1400", "-Network.Lan.Mtu=1500"])
    assert tool("snapshot", "/tmp/one", "Network.Lan.Mtu").status == 0
    assert tool.device.read_file("/tmp/one").splitlines()[1:] == [b"Network.Lan.Mtu=1500"]
    assert tool("snapshot", "/tmp/one", "Account.User1.Password").status == 0
    assert b"Account.User1.Password=geheim" in tool.device.read_file("/tmp/one")
    process = watch(tool, "Network.Lan.Mtu", "--count", "1")
    tool("set", "Network.Lan.Dhcp", "NO")
    tool("set", "Network.Lan.Mtu", "1")
    told = process.communicate()[0]
    assert re.fullmatch(TIME + r"-Network\.Lan\.Mtu=1500\n\+Network\.Lan\.Mtu=1\n", told)


def test_a_path_that_matches_nothing_is_an_error(tool):
    tool.device.write_file("/tmp/wanted", "Network.Lan.Mtu=1400\n")
    for path, status in (("Network.Lan.Mut", 1), ("Nowhere", 1), ("Network.Lan.Mut.*", 1)):
        for words in (["diff", "/tmp/wanted", "--path"], ["snapshot", "/tmp/none"], ["edit"],
                      ["watch", "--count", "0"]):
            finished = tool(*words, path)
            assert (finished.status, path in finished.stderr) == (status, True), (words, path)
    assert not tool.device.file_exists("/tmp/none")


@pytest.mark.parametrize("written, meant", [
    ("Network.Lan.Mut", "Network.Lan.Mtu"), ("Network.Lan.mtu", "Network.Lan.Mtu"),
    ("Network.Lna.Mtu", "Network.Lan.Mtu"), ("Netwrok.Lan.Mtu", "Network.Lan.Mtu"),
    ("Network.Lan.Mtu.X", None), ("Network.Lan.Gateway", None)])
def test_a_slip_makes_no_setting(tool, written, meant):
    tool.device.install_script("/tmp/editor", f"#!/bin/sh\necho '{written}=2' >> $1\n")
    for words, stdin in ((["set", written, "2"], ""), (["set", f"{written}=2", "Network.Lan.Mtu=2"], ""),
                         (["set", "--memory", written, "2"], ""), (["set", "-"], f"{written}=2\n"),
                         (["apply", "-"], f"{written}=2\nNetwork.Lan.Mtu=2\n"),
                         (["edit", "Network", "--yes"], "")):
        refused = tool(*words, stdin=stdin, environment=["EDITOR=/tmp/editor"])
        assert (refused.status, "--create" in refused.stderr) == (1, True), refused
        assert ("did you mean" in refused.stderr) == (meant is not None), refused
        assert meant is None or f"did you mean {meant}?" in refused.stderr
    assert value(tool) == "1500"
    assert tool("get", written).status == 1


def test_what_is_created_is_told(tool):
    created = tool("set", "--create", "Network.Lan.New=1", "Network.Lan.Mtu=2")
    assert (created.status, created.stderr) == (0, "veltrancordctl: created Network.Lan.New\n")
    applied = tool("apply", "--create", "-", stdin="Network.Lan.Other=1\n")
    assert (applied.status, applied.stderr) == (0, "veltrancordctl: created Network.Lan.Other\n")
    # An element without a text is there.
    tool.device.request("write:Network.Lan.Label=")
    assert tool("set", "Network.Lan.Label", "x").stderr == ""


@pytest.mark.parametrize("words, stdin", [
    (["set", "--create", "System.Name=gate", "Network.Lan.Mtu=2", "System.Label=north"], ""),
    (["set", "--create", "-"], "System.Name=gate\nSystem.Label=north\n"),
    (["apply", "--create", "-"], "System.Name=gate\nSystem.Label=north\n"),
    (["edit", "Network", "--create", "--yes"], "")])
def test_a_document_that_is_missing_is_made(tool, words, stdin):
    tool.device.install_script(
        "/tmp/editor", "#!/bin/sh\nprintf 'System.Name=gate\\nSystem.Label=north\\n' >> $1\n")
    assert tool("set", "System.Name=gate").status == 1
    made = tool(*words, stdin=stdin, environment=["EDITOR=/tmp/editor"])
    assert made.status == 0, made
    assert sorted(made.stderr.splitlines()) == [
        "veltrancordctl: created System.Label", "veltrancordctl: created System.Name",
        "veltrancordctl: created the document System"]
    assert sorted(tool("get", "System.*").stdout.split()) == ["System.Label=north", "System.Name=gate"]
    assert b"<Name>gate</Name>" in tool.device.read_document("System")
    assert not list(tool.device.outside("/tmp").glob("veltrancordctl-*"))


def test_an_empty_database_can_be_begun(service):
    tool = Tool(service({}))
    assert tool("set", "--create", "System.Name=gate").status == 0
    assert tool("set", "--create", "--memory", "Network.Lan.Mtu=1400").status == 0
    assert tool("get", "*").stdout.count("\n") == 2
    assert b"1400" not in tool.device.read_document("Network")
    tool.device.power_cut()
    tool.device.start()
    assert tool("get", "System.Name").stdout == "gate\n"


@pytest.mark.parametrize("name", ["1st", "My System", "S" * 64])
def test_no_document_is_made_of_a_name_that_none_can_have(tool, name):
    refused = tool("set", "--create", f"{name}.Name=gate", "System.Name=gate")
    assert (refused.status, "no document can have" in refused.stderr) == (5, True), refused
    assert tool("get", "System.Name").status == 1


@pytest.mark.parametrize("line", ["Network.Lan.Mtu =1400", "Network.Lan.Mtu= 1400",
                                  " Network.Lan.Mtu=1400", "Network.Lan.Mtu\t=1400"])
def test_blanks_around_the_sign_are_refused(tool, line):
    for words, stdin in ((["set", "--create", line], ""), (["set", "--create", "-"], line + "\n")):
        refused = tool(*words, stdin=stdin)
        assert (refused.status, "blanks around" in refused.stderr) == (5, True)
    if "= " not in line:
        assert tool("apply", "--create", "-", stdin=line + "\n").status == 5
    assert value(tool) == "1500"
    assert tool("set", "Network.Lan.Mtu", " 1400").status == 0  # which says what it means


GONE = ("veltrancordctl: Network.Lan.Mtu: blanks at the ends of a value, and all but one in a row, are "
        "gone after the next start of the service\n")


@pytest.mark.parametrize("text", ["a ", "a  b", " a"])
def test_blanks_that_will_be_lost_are_told(tool, text):
    line = f"Network.Lan.Mtu={text}"
    written = [tool("set", "Network.Lan.Mtu", text)]
    written += [tool("apply", "-", stdin=f"Network.Lan.Mtu={text}.{text}\n")]
    if text != " a":  # which is refused behind a "="
        written += [tool("set", line), tool("set", "-", stdin=line + "\n")]
    assert [(one.status, one.stderr) for one in written] == [(0, GONE)] * len(written)
    tool("set", "Network.Lan.Mtu", "1")
    edited = tool("edit", "Network.Lan.Mtu", "--yes",
                  environment=[f"EDITOR=sed -i 's/=.*/={text}/'"])
    assert (edited.status, edited.stderr) == (0, GONE)
    assert tool.device.request("readvalue:Network.Lan.Mtu").text == text
    assert tool("set", "Network.Lan.Mtu", "a b\t").stderr == ""
    secret = tool("set", "--create", "Network.Lan.Password", "-", stdin=text)
    assert "blanks" not in secret.stderr and secret.status == 0


def test_diff_reads_an_exchange_file_as_the_service_would(tool):
    assert tool("dump", "/tmp/all").status == 0
    assert tool("diff", "/tmp/all").status == 0  # secrets included: they are decoded alike
    tool("set", "Network.Lan.Mtu", "1")
    assert tool("diff", "/tmp/all").stdout == "-Network.Lan.Mtu=1\n+Network.Lan.Mtu=1500\n"
    assert tool("diff", "-", stdin="<ROOT><broken").status == 5


def test_diff_and_apply_go_the_same_way_and_speak_of_the_same(tool):
    """From what is to what will be, and of what the file names alone."""
    tool.device.write_file("/tmp/wanted", "Network.Lan.Mtu=1400\nNetwork.Lan.New=1\n")
    shown = tool("diff", "/tmp/wanted").stdout
    assert shown == "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n+Network.Lan.New=1\n"
    assert tool("apply", "/tmp/wanted", "--create", "--dry-run").stdout == shown
    assert value(tool) == "1500"
    assert tool("snapshot", "/tmp/before").status == 0
    assert tool("apply", "/tmp/wanted", "--create").stdout == shown
    assert tool("snapshot", "/tmp/after").status == 0
    assert tool("diff", "/tmp/before", "/tmp/after").stdout == shown
    assert tool("diff", "/tmp/wanted", "--path", "Account").stdout == ""


BACK = "<ROOT><Network><Lan><Mtu>1400</Mtu><New>1</New></Lan></Network></ROOT>"


@pytest.mark.parametrize("words, stdin, shown", [
    (["set", "--create", "Network.Lan.Mtu=1", "Network.Lan.New=2"], "",
     "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1\n+Network.Lan.New=2\n"),
    (["set", "Account.User1.Password", "-"], "neu",
     "-Account.User1.Password=********\n+Account.User1.Password=********\n"),
    (["unset", "Network.Lan.Dhcp"], "", "-Network.Lan.Dhcp=YES\n"),
    (["unset", "Network.*"], "", "-Network.Lan.Dhcp=YES\n-Network.Lan.Mtu=1500\n"),
    (["unset", ".*"], "", "-Account.User1.Password=********\n-Account.User1.Username=admin\n"
                          "-Network.Lan.Dhcp=YES\n-Network.Lan.Mtu=1500\n"),
    (["apply", "-"], "Network.Lan.Mtu=1\n", "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1\n"),
    (["apply", "-", "--confirm", "5"], "Network.Lan.Mtu=1\n",
     "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1\n"),
    (["edit", "Network"], "", "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1450\n"),
    (["load", "-"], BACK, "-Network.Lan.Dhcp=YES\n-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n"
                          "+Network.Lan.New=1\n"),
    (["load", "-"], "<ROOT><Network/></ROOT>", "-Network.Lan.Dhcp=YES\n-Network.Lan.Mtu=1500\n"),
    (["restore", "-"], BACK, "+Network.Lan.New=1\n"),
    (["merge", "-"], BACK, "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n+Network.Lan.New=1\n"),
    (["attr", "set", "Network.Lan.Mtu.Level=2", "Network.Lan.Dhcp.Level=3"], "",
     "-Network.Lan.Dhcp.Level=1\n+Network.Lan.Dhcp.Level=3\n+Network.Lan.Mtu.Level=2\n"),
    (["log", "clear"], "", ""), (["permits", "sync"], "", "")], ids=lambda one: " ".join(one)
                         if isinstance(one, list) else "")
def test_a_dry_run_shows_what_would_change_and_changes_nothing(tool, words, stdin, shown):
    """And what it shows is what then happens."""
    tool.device.request("writeattr:Network.Lan.Dhcp.Level=1")
    if "permits" in words:
        tool.device.request("write:Account.Permission.P1=1")
    assert tool("log", "add", "2", "Gate").status == 0
    state = tool("get", "*").stdout, tool("attr", "list", "Network.*").stdout, tool("log", "count").stdout
    dry = tool(*words, "--dry-run", stdin=stdin, environment=["EDITOR=sed -i s/1500/1450/"])
    assert (dry.status, dry.stdout) == (0, shown), dry
    assert "nothing was changed" in dry.stderr
    assert state == (tool("get", "*").stdout, tool("attr", "list", "Network.*").stdout,
                     tool("log", "count").stdout)
    if words[0] in ("load", "restore", "merge", "unset") and ".*" not in words:
        assert tool("snapshot", "/tmp/before").status == 0
        assert tool(*words, "--yes", stdin=stdin).status == 0
        assert tool("snapshot", "/tmp/after").status == 0
        assert tool("diff", "/tmp/before", "/tmp/after").stdout == shown


def test_a_dry_run_of_what_would_fail_fails(tool):
    for words, status in ((["set", "Network.Lan.None=1"], 1), (["unset", "Network.Lan.None"], 1),
                          (["load", "/none"], 7), (["merge", "-"], 5), (["permits", "sync"], 1)):
        assert tool(*words, "--dry-run").status == status, words


def test_apply_writes_what_differs(tool):
    lines = "Network.Lan.Mtu=1400\nNetwork.Lan.Dhcp=YES\n"
    applied = tool("apply", "-", stdin=lines)
    assert applied.status == 0
    assert applied.stdout == "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400\n"
    assert value(tool) == "1400"
    assert tool("apply", "-", stdin=lines).stdout == ""


def edit(tool, script, *arguments, answer="y\n"):
    editor = tool.device.outside("/tmp/editor")
    tool.device.install_script("/tmp/editor", f"#!/bin/sh\n{script}\n")
    terminal = tool.terminal("edit", "Network", *arguments,
                             environment={"EDITOR": str(editor), "NO_COLOR": "1"})
    if answer:
        terminal.wait_for("[y/N]")
        terminal.type(answer)
    return terminal.finish(), terminal.text


def test_edit_sends_only_what_changed(tool):
    status, text = edit(tool, "sed -i s/1500/1450/ $1")
    assert status == 0
    assert "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1450\n" in text
    assert "Dhcp" not in text
    assert value(tool) == "1450"


def test_edit_can_be_left_without_effect(tool):
    assert edit(tool, "sed -i s/1500/1450/ $1", answer="n\n")[0] == 11
    assert edit(tool, "true", answer=None)[0] == 0
    assert edit(tool, "exit 1", answer=None)[0] == 7
    assert "stay" in edit(tool, "sed -i /Dhcp/d $1", answer=None)[1]
    assert value(tool) == "1500"


def test_edit_shows_no_secret_and_keeps_the_one_there_is(tool):
    tool.device.install_script("/tmp/editor",
                               "#!/bin/sh\ncp $1 $(dirname $0)/shown; sed -i s/admin/root/ $1\n")
    terminal = tool.terminal("edit", "Account", "--yes",
                             environment={"EDITOR": str(tool.device.outside("/tmp/editor"))})
    assert terminal.finish() == 0
    assert b"geheim" not in tool.device.read_file("/tmp/shown")
    assert value(tool, "Account.User1.Username") == "root"
    assert tool("get", "Account.User1.Password", "--reveal").stdout == "geheim\n"


TIME = r"[-\d]{10} [:\d]{8}\n"


def watch(tool, *arguments):
    process = tool.outside("watch", *arguments, "--directory",
                           str(tool.device.outside("/mnt/database/xml")))
    while "watching" not in process.stderr.readline():
        assert process.poll() is None
    return process


def test_watch_prints_saved_changes_of_its_place(tool):
    # Options stand before the program, if there is one.
    process = watch(tool, "Network", "--count", "1")
    tool("set", "Account.User1.Username", "other")
    tool("set", "--create", "Network.Lan.Mtu=1", "Network.Lan.New=2")
    output, _ = process.communicate()
    assert process.returncode == 0
    assert re.fullmatch(TIME + r"-Network\.Lan\.Mtu=1500\n\+Network\.Lan\.Mtu=1\n"
                        r"\+Network\.Lan\.New=2\n", output)


def test_changes_that_follow_one_another_are_told_together(tool):
    process = watch(tool, "Network", "--count", "1")
    process.send_signal(signal.SIGSTOP)
    for number in range(1, 30):
        tool.device.request(f"write:Network.Lan.Mtu={number}")
    process.send_signal(signal.SIGCONT)
    output, _ = process.communicate()
    assert re.fullmatch(TIME + r"-Network\.Lan\.Mtu=1500\n\+Network\.Lan\.Mtu=29\n", output)


def test_watch_tells_attributes_and_times(tool):
    process = watch(tool, "Network.Lan", "--count", "1")
    tool.device.request("writeattr:Network.Lan.Mtu.Unit=byte")
    output, _ = process.communicate()
    assert re.fullmatch(TIME + r"\+attr Network\.Lan\.Mtu\.Unit=byte\n", output)
    process = watch(tool, "Network.Lan", "--count", "1", "--json")
    tool.device.request("writeattr:Network.Lan.Mtu.Unit=bit")
    (change,) = json.loads(process.communicate()[0])
    assert change.pop("time") > 1_700_000_000
    assert change == {"path": "Network.Lan.Mtu.Unit", "change": "changed", "before": "byte",
                      "after": "bit", "attribute": True}


def test_watch_needs_a_place(tool):
    assert tool("watch").status == 2


def test_watch_runs_a_program_for_each_change(tool):
    target = tool.device.outside("/tmp/seen")
    process = tool.outside("watch", "--directory",
                           str(tool.device.outside("/mnt/database/xml")), "--count", "1", "Network",
                           "--", "tee", str(target))
    while "watching" not in process.stderr.readline():
        assert process.poll() is None
    tool("set", "Network.Lan.Mtu", "7")
    process.communicate()
    assert re.fullmatch(TIME + r"-Network\.Lan\.Mtu=1500\n\+Network\.Lan\.Mtu=7\n", target.read_text())
