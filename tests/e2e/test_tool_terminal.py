"""veltrancordctl on a terminal: questions, hidden input, pager, and completion in each shell."""

import os
import re
import shutil
import signal
import struct

import pytest

import command_line
from command_line import Terminal, Tool
from device import CONFIGURATION, REPOSITORY

NETWORK = ("<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan>"
           "<Zone_20A><Speed_20B>fast and far</Speed_20B></Zone_20A></Network>")
COMPLETIONS = REPOSITORY / "client/tool/completions"


@pytest.fixture
def tool(service):
    return Tool(service({"Network": NETWORK}))


def long_lines():
    return "".join(f"Network.Many.V{n}={n}\n" for n in range(50))


def test_what_is_destroyed_can_be_saved_before(tool):
    saved = tool.device.outside("/tmp/saved")
    terminal = tool.terminal("unset", "Network.Lan.Mtu")
    terminal.wait_for("remove Network.Lan.Mtu? (--backup FILE would save what is there before) [y/N]")
    terminal.type("\n")
    assert terminal.finish() == 11
    terminal = tool.terminal("unset", "Network.Lan.Mtu", "--backup", "/tmp/saved")
    terminal.wait_for("remove Network.Lan.Mtu? (what is there is saved in /tmp/saved before) [y/N]")
    assert not saved.exists()
    terminal.type("yes\n")
    assert terminal.finish() == 0
    assert b"<Mtu>1500</Mtu>" in saved.read_bytes()


def test_a_secret_is_typed_unseen(tool):
    terminal = tool.terminal("set", "--create", "Network.Lan.Password", "-")
    terminal.wait_for("Network.Lan.Password: ")
    terminal.type("unsichtbar\n")
    assert terminal.finish() == 0
    assert "unsichtbar" not in terminal.text
    assert tool("get", "Network.Lan.Password", "--reveal").stdout == "unsichtbar\n"


def test_an_interrupted_secret_leaves_a_terminal_that_shows_what_is_typed(tool):
    terminal = tool.terminal("set", "--create", "Network.Lan.Password", "-")
    terminal.wait_for("Network.Lan.Password: ")
    assert not terminal.echoes
    terminal.type("half\x03")  # interrupt
    while terminal._read():
        pass
    assert terminal.echoes
    assert terminal.finish() == -signal.SIGINT
    assert tool("get", "Network.Lan.Password").status == 1


def test_an_interrupt_that_is_ignored_leaves_the_question_open(tool):
    terminal = tool.terminal("set", "--create", "Network.Lan.Password", "-", ignored=(signal.SIGINT,))
    terminal.wait_for("Network.Lan.Password: ")
    terminal.type("half\x03")  # the terminal itself forgets the line
    terminal.type("whole\n")
    assert terminal.finish() == 0
    assert tool("get", "Network.Lan.Password", "--reveal").stdout == "whole\n"


def test_the_end_of_the_input_is_no_secret(tool):
    terminal = tool.terminal("set", "--create", "Network.Lan.Password", "-")
    terminal.wait_for("Network.Lan.Password: ")
    terminal.type("\x04")
    assert terminal.finish() == 11
    assert tool("get", "Network.Lan.Password").status == 1


def test_two_secrets_are_asked_for_one_after_the_other(tool):
    terminal = tool.terminal("set", "--create", "Network.A.Password=-", "Network.B.Password=-")
    for name in ("A", "B"):
        terminal.wait_for(f"Network.{name}.Password: ")
        terminal.type(f"secret {name}\n")
    assert terminal.finish() == 0
    assert tool("get", "Network.B.Password", "--reveal").stdout == "secret B\n"


def test_long_output_is_paged_and_coloured_on_a_terminal_alone(tool):
    assert tool("set", "-", "--create", stdin=long_lines()).status == 0
    terminal = tool.terminal("tree", environment={"PAGER": "sed s/^/paged:/"})
    assert terminal.finish() == 0
    assert "paged:" in terminal.text and "\033[" in terminal.text
    terminal = tool.terminal("tree", environment={"PAGER": "sed s/^/paged:/", "NO_COLOR": "1"})
    assert terminal.finish() == 0
    assert "\033[" not in terminal.text
    terminal = tool.terminal("tree", "--no-pager", "--no-color")
    assert terminal.finish() == 0
    assert "paged" not in terminal.text and "\033[" not in terminal.text
    assert "\033[" not in tool("tree").stdout
    terminal = tool.terminal("get", "Network.Lan.Mtu", environment={"PAGER": "sed s/^/paged:/"})
    assert terminal.finish() == 0 and terminal.text == "1500\n"


def test_the_pager_is_the_tools_own_or_the_users(tool):
    assert tool("set", "-", "--create", stdin=long_lines()).status == 0
    both = {"VELTRANCORD_PAGER": "sed s/^/own:/", "PAGER": "sed s/^/user:/", "NO_COLOR": "1"}
    terminal = tool.terminal("tree", environment=both)
    assert terminal.finish() == 0
    assert "own:Network" in terminal.text or "own:." in terminal.text
    assert "user:" not in terminal.text
    terminal = tool.terminal("tree", environment={**both, "VELTRANCORD_PAGER": ""})
    assert terminal.finish() == 0
    assert "own:" not in terminal.text and "user:" not in terminal.text and "V49" in terminal.text


def test_a_pager_that_is_not_there_hides_nothing(tool):
    assert tool("set", "-", "--create", stdin=long_lines()).status == 0
    terminal = tool.terminal("tree", environment={"PAGER": "/nonexistent/pager", "NO_COLOR": "1"})
    assert terminal.finish() == 0
    assert "V0 = 0" in terminal.text and "V49 = 49" in terminal.text


def test_a_pager_may_be_left_early(tool):
    lines = "".join(f"Network.Many.V{n}={'v' * 4000}\n" for n in range(60))
    assert tool("set", "-", "--create", stdin=lines).status == 0
    terminal = tool.terminal("tree", environment={"PAGER": "head -n 3"})
    assert terminal.finish() == 0
    assert "V59" not in terminal.text


def test_the_usual_pager(tool):
    if shutil.which("less") is None:
        pytest.skip("less is not installed")
    assert tool("set", "-", "--create", stdin=long_lines()).status == 0
    terminal = tool.terminal("tree", environment={"NO_COLOR": "1"})
    terminal.wait_for("V5 = 5")
    assert "V49 = 49" not in terminal.text  # on the next page
    terminal.type("q")
    assert terminal.finish() == 0


def test_an_edit_that_cannot_be_read_may_be_taken_up_again(tool):
    tool.device.install_script("/tmp/editor", "#!/bin/sh\n"
                               'if [ -e "$0.again" ]; then sed -i "s/^no setting$/Network.Lan.New=1/" "$1"\n'
                               'else : > "$0.again"; echo "no setting" >> "$1"; fi\n')
    terminal = tool.terminal("edit", "Network", "--create", environment={
        "EDITOR": str(tool.device.outside("/tmp/editor")), "NO_COLOR": "1"})
    terminal.wait_for("line 5 has no '='")
    terminal.wait_for("edit it again? [y/N]")
    terminal.type("y\n")
    terminal.wait_for("write this? [y/N]")
    terminal.type("y\n")
    assert terminal.finish() == 0
    assert "+Network.Lan.New=1" in terminal.text
    assert tool("get", "Network.Lan.New").stdout == "1\n"


# How each shell is started, and how it is told of the completion.
SHELLS = {
    "bash": (["--norc", "--noprofile", "-i"], f"source {COMPLETIONS}/veltrancordctl.bash"),
    "zsh": (["-f", "-i"], "autoload -U compinit && compinit -u -D; "
            f"source {COMPLETIONS}/_veltrancordctl"),
    "fish": (["--no-config", "-i"], f"source {COMPLETIONS}/veltrancordctl.fish"),
}


@pytest.mark.parametrize("shell", SHELLS)
def test_a_key_completes_live_paths(tool, shell, tmp_path):
    """What is typed is completed, and the line that comes of it prints the value."""
    program = shutil.which(shell)
    if program is None:
        pytest.skip(f"{shell} is not installed")
    arguments, told = SHELLS[shell]
    folder = os.path.dirname(command_line.program())
    terminal = Terminal([program, *arguments], {
        "PATH": f"{folder}:{os.environ['PATH']}", "HOME": str(tmp_path), "PS1": "$ ",
        "VELTRANCORD_SOCKET": tool.device.socket_path, "VELTRANCORD_STATE": str(tmp_path)}, 24)
    terminal.type(f"{told}; echo told''\n")
    terminal.wait_for("told\r\n")
    terminal.type("veltrancordctl get Net\tL\tM\t\n")
    terminal.wait_for("1500")
    terminal.type("veltrancordctl get Network.Z\tS\t\n")  # names with blanks
    terminal.wait_for("fast and far")
    terminal.type("veltrancordctl --format sh\tget Network.Lan.Mt\t\n")
    terminal.wait_for("Network_Lan_Mtu=")
    terminal.type("veltrancordctl pin\t\n")
    terminal.wait_for("alive, ")
    terminal.type("veltrancordctl raw read\t\t")
    # One of the shells shows no meanings.
    terminal.wait_for("readwithlevel" if shell == "bash" else "read xml value with level")
    terminal.kill()


def test_completion_gives_up_within_its_budget(tool):
    """Whoever presses a key waits: no call of the tool may last longer than 300 ms."""
    if shutil.which("strace") is None:
        pytest.skip("strace is not installed")
    device = tool.device
    device.require_no_sanitizer("address", "a leak check cannot be traced")
    device.send_signal(device.worker_pid, signal.SIGSTOP)
    try:
        finished = device.run("strace", "-o", "/tmp/trace", "-e", "trace=poll",
                              "/run/host" + tool.program, "complete", "--", "get", "Net", timeout=300)
    finally:
        device.send_signal(device.worker_pid, signal.SIGCONT)
    assert (finished.status, finished.stdout, finished.stderr) == (0, "", "")
    calls = device.read_file("/tmp/trace").decode().splitlines()
    waits = [int(wait) for call in calls for wait in re.findall(r"poll\(.*, (-?\d+)\) ", call)]
    assert waits and all(0 <= wait <= 300 for wait in waits), calls


def completed(tool, *words):
    """What could stand in place of the last word, and what it means. Return: a dict."""
    lines = tool("complete", "--", *words).stdout.split("\n")[:-1]
    return dict((line + "\t").split("\t")[:2] for line in lines)


def test_completion_knows_options_and_what_follows_them(tool):
    assert completed(tool, "--timeout", "5", "get", "Net") == {"Network.": ""}
    assert completed(tool, "get", "--level", "3", "Net") == {"Network.": ""}
    assert completed(tool, "get", "--level", "") == {}
    assert completed(tool, "log", "list", "--co") == {"--count": "at most so many"}
    assert list(completed(tool, "log", "list", "--he")) == ["--help"]
    assert completed(tool, "log", "list", "") == {}
    assert completed(tool, "--format", "") == {
        "json": "for programs", "shell": "assignments to eval", "text": "for people"}
    assert list(completed(tool, "get", "--format", "j")) == ["json"]
    assert completed(tool, "diff", "/tmp/f", "--path", "Netw") == {"Network.": ""}


def test_completion_of_words_and_live_paths(tool):
    assert completed(tool, "ge") == {"get": "print values; PATH.* prints all below PATH"}
    assert set(completed(tool, "log", "")) == {"list", "follow", "add", "count", "clear"}
    assert completed(tool, "get", "Net") == {"Network.": ""}
    assert completed(tool, "get", "Network.Lan.") == {"Network.Lan.Dhcp": "YES",
                                                      "Network.Lan.Mtu": "1500"}
    assert completed(tool, "snapshot", "/tmp/f", "Netw") == {"Network.": ""}
    assert completed(tool, "--reveal", "tree", "Network.L") == {"Network.Lan.": ""}
    assert "--reveal" in completed(tool, "get", "--re")
    assert set(completed(tool, "access", "")) == {"check", "explain", "draft"}
    assert list(completed(tool, "access", "explain", "root", "readv")) == ["readvalue"]
    assert completed(tool, "access", "explain", "root", "read", "Netw") == {"Network.": ""}
    assert completed(tool, "trail", "--user", "x", "Netw") == {"Network.": ""}
    assert completed(tool, "help", "wat") == completed(tool, "wat") != {}
    assert list(completed(tool, "help", "log", "cl")) == ["clear"]
    assert completed(tool, "--socket", "/nonexistent", "get", "N") == {}
    tool.device.stop()
    assert completed(tool, "--root", CONFIGURATION, "get", "Network.Lan.M") == {
        "Network.Lan.Mtu": "1500"}
    silent = tool("complete", "--", "get", "Net")
    assert (silent.status, silent.stdout, silent.stderr) == (0, "", "")
    silent = tool("complete", "--", "--root", "/nonexistent", "get", "Net")
    assert (silent.status, silent.stdout, silent.stderr) == (0, "", "")


def test_completion_of_what_the_service_knows(service):
    tool = Tool(service({"Account": (
        '<Account><User1 Level="3"><Username>admin</Username><Password>x</Password></User1>'
        '<User2><Username>guest</Username></User2><Permission><Define>'
        '<Permit1 Type="Switch" Value="NO">Network</Permit1></Define>'
        "<Group1><Name>Admin</Name><Permit1>YES</Permit1></Group1></Permission></Account>")}))
    assert completed(tool, "group", "") == {"admin": "user", "guest": "user"}
    assert completed(tool, "can", "") == {"Admin": "group", "admin": "user", "guest": "user"}
    assert completed(tool, "can", "admin", "N") == {"Network": "Switch"}
    assert completed(tool, "permits", "value", "") == {"Admin": "group"}
    assert completed(tool, "permits", "value", "Admin", "") == {"Network": "Switch"}
    assert completed(tool, "raw", "readv") == {"readvalue": "read one xml item value"}
    assert completed(tool, "attr", "get", "Account.User1.") == {
        "Account.User1.Level": "attribute, 3", "Account.User1.Username.": "",
        "Account.User1.Password.": ""}
    assert {"Account.User1.#", "Account.User1.*"} < set(completed(tool, "attr", "list", "Account.User1."))
    assert completed(tool, "get", "Account.User1.P") == {"Account.User1.Password": "********"}
    tool("set", "Account.User2.Username", "other")
    assert completed(tool, "undo", "") == {"1": "veltrancordctl set Account.User2.Username other"}
    tool.device.request(b"write:Account.User2.Username=a\x1b[2J\tb" + b"c" * 100)
    shown = tool("complete", "--", "get", "Account.User2.").stdout
    assert "\x1b" not in shown and shown.count("\t") == 1 and len(shown) < 120


@pytest.mark.parametrize("words", [
    ["get", "Network.Lan.Label"], ["get", "Network.Lan.*"], ["tree", "Network"],
    ["raw", "readvalue", "Network.Lan.Label"], ["diff", "/dev/null", "--all"], ["log", "list"],
    ["get", "Network.Lan.*", "--format", "shell"]])
def test_control_bytes_are_shown_on_a_terminal_and_raw_in_a_pipe(tool, words):
    tool.device.request(b"write:Network.Lan.Label=x\x1b[2J\x07\xc2\x9b\xff\xc3\xa9")
    tool.device.request(b"writelog:" + struct.pack("<i6xB16sBi", 2, 1, b"x\x1b[2J", 0, 0))
    terminal = tool.terminal(*words, environment={"LANG": "de_DE.UTF-8"})
    terminal.finish()
    plain = re.sub(r"\x1b\[[0-9;]*m", "", terminal.text)
    assert "\x1b" not in plain and "\x07" not in plain and "\\x1b[2J" in plain
    if words[0] != "log":
        assert r"\x07\xc2\x9b\xffé" in plain
        assert "\x1b[2J" in tool(*words).stdout


def test_a_terminal_without_utf_8_gets_none(tool):
    tool.device.request("write:Network.Lan.Label=é".encode())
    for environment, utf8 in (({"LANG": "C"}, False), ({}, False), ({"LC_ALL": "C.UTF-8"}, True),
                              ({"LC_ALL": "C", "LANG": "C.UTF-8"}, False)):
        terminal = tool.terminal("tree", "Network", environment={"NO_COLOR": "1", **environment})
        terminal.finish()
        assert terminal.text.isascii() is not utf8
        assert ("├── Lan" if utf8 else "|-- Lan") in terminal.text


def test_a_terminal_that_knows_no_colours_gets_none(tool):
    for name in ("dumb", ""):
        terminal = tool.terminal("tree", "Network", environment={"TERM": name})
        terminal.finish()
        assert "\033" not in terminal.text
    terminal = tool.terminal("tree", "Network")
    terminal.finish()
    assert "\033[" in terminal.text


def test_what_a_failure_names_is_shown_too(tool):
    terminal = tool.terminal("get", "Network.\x1b[2J")
    assert terminal.finish() == 1
    assert "\x1b" not in terminal.text and "Network.\\x1b[2J" in terminal.text
