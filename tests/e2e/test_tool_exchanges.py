"""veltrancordctl against a service that answers as each test says: what it sends, how it ends."""

import json
import re
import struct
import subprocess

import pytest

import command_line
from device import REPOSITORY
from scripted_service import ScriptedService, reply

TOOL = REPOSITORY / "client/tool"
MANUAL = (REPOSITORY / "client/man/veltrancordctl.1").read_text()


@pytest.fixture
def scripted(tmp_path):
    """A function that answers one call of the tool with these bytes: scripted(answer, "get", ...).
    Return: how the tool ended, and the requests that it sent."""

    def run(answer, *arguments, stdin=""):
        with ScriptedService(tmp_path / "socket", answer) as service:
            finished = subprocess.run(
                [command_line.program(), "--socket", service.path, *arguments], input=stdin,
                capture_output=True, text=True, check=False,
                env={"VELTRANCORD_STATE": str(tmp_path / "state")})
        command_line.check_sound(finished.stderr)
        (tmp_path / "socket").unlink()
        return finished, service.requests

    return run


# Each command of the service, and the words of the tool that reach it.
WORDS = {
    "read": "ls",
    "readAndFilter": "get --visible A.B",
    "readwithlevel": "get --level 3 A.B",
    "readvalue": "get A.B",
    "readattr": "attr list A.#",
    "readsingleattr": "attr get A.B",
    "write": "set A.B 1",
    "writedbmem": "set --memory A.B 1",
    "writeattr": "attr set A.B 1",
    "syncmemtoflash": "sync",
    "remove": "unset A.B --yes",
    "download": "dump /dev/null",
    "upload": "load /f --yes",
    "restore": "restore /f --yes",
    "syncxml": "merge /f --yes",
    "XMLDBCallBack": "backup now",
    "writelog": "log add 0x10 door",
    "writelogwithtime": "log add 0x10 door --time 5",
    "readlog": "log list",
    "cleanlog": "log clear --yes",
    "geteventcount": "log count",
    "maxlogcount": "log count --capacity",
    "SyncPermit": "permits sync",
    "listPermits": "permits",
    "getPermitValue": "permits value G P",
    "isPermitAllow": "can --group G P",
    "isPermitAllowByUser": "can U P",
    "getGroupName": "group U",
    "GetCGIPermitFilter": "filter U command",
    "SetSession": "session set",
    "CheckSession": "session check",
    "SetCaptcha": "captcha set code",
    "CompareCaptcha": "captcha check code",
    "UpdateCaptchaTime": "captcha refresh code",
    "DelCaptchaItem": "captcha delete code",
}


def test_every_command_of_the_service_has_its_words():
    table = (REPOSITORY / "src/service/commands.cpp").read_text()
    assert set(re.findall(r'\{"(\w+)", \w+_handle', table)) == set(WORDS)


def changing(commands):
    """Those that change something: what is there is read around them, for the history."""
    return [one for one in commands if not one.startswith("read")]


@pytest.mark.parametrize("command", WORDS)
def test_words_reach_their_command(scripted, command):
    def refuse(request):  # but not to say that a setting is there, which "set" asks before
        looked_for = request.startswith(b"readattr:") and command.startswith("write")
        return reply(0 if looked_for else -12)

    finished, requests = scripted(refuse, *WORDS[command].split(), stdin="secret")
    sent = [request.split(b":")[0].decode() for request in requests]
    sent = [one for one in sent if one != "ping"]  # who the service is, which some ask before
    assert sent[:1] == [command] or changing(sent)[:1] == [command]
    # A capacity below 1 says that no log is kept: a log that could not be opened refuses, too.
    without_log = command in ("writelog", "writelogwithtime", "readlog", "geteventcount", "maxlogcount")
    assert finished.returncode == (16 if without_log else 3), finished


def test_the_argument_of_raw_may_be_binary(scripted):
    finished, requests = scripted(reply(3, b"abc"), "raw", "anything", "-", stdin="a\0b\n")
    assert (finished.stdout, requests) == ("abc\n", [b"anything:a\0b\n"])


# How the service answers, how the tool ends, and what it says.
ANSWERS = [
    (reply(-1), 7, "a file could not be created, written or read back (-1)"),
    (reply(-3), 7, "the exchange file is missing or does not parse (-3)"),
    (reply(-4), 1, "not found (-4)"),
    (reply(-7), 5, "the service refuses the argument (-7)"),
    (reply(-8), 6, "the reply is over the service's capacity (-8)"),
    (reply(-9), 5, "an argument is missing (-9)"),
    (reply(-11), 7, "the store could not apply the value (-11)"),
    (reply(-12), 3, "denied, or an unknown user or group (-12)"),
    (reply(-99), 7, "result of the service (-99)"),
    (reply(0x7fffffff, b"x"), 6,
     "the reply is larger than accepted: 2147483647 bytes, at most 268435456 (-104)"),
    (b"", 12, "the service closed the connection without a reply (-102)"),
    (b"\5\0", 12, "the reply is broken off (-103)"),
    (reply(9, b"A.B=1"), 12, "the reply is broken off (-103)"),
]


@pytest.mark.parametrize("answer, status, words", ANSWERS)
def test_exit_status_and_words_of_each_failure(scripted, answer, status, words):
    finished, _ = scripted(answer, "get", "A.*")
    assert (finished.returncode, finished.stderr) == (status, f"veltrancordctl: A: {words}\n".replace(
        "A:", "A.*:"))
    finished, _ = scripted(answer, "get", "A.*", "--json")
    error = json.loads(finished.stderr)["error"]
    assert f"{error['reason']} ({error['code']})" == words and error["subject"] == "A.*"
    assert finished.returncode == status


@pytest.mark.parametrize("words", [
    ["set", "A.B", "1"], ["set", "A.B=1", "A.C=2"], ["unset", "A.B", "--yes"],
    ["attr", "set", "A.B.Level", "1"], ["load", "/f", "--yes"], ["sync"], ["log", "add", "1", "x"],
    ["log", "clear", "--yes"], ["backup"], ["raw", "write", "A.B=1"]])
@pytest.mark.parametrize("answer", [None, b"", b"\5\0"])
def test_a_change_without_a_reply_may_have_been_applied(scripted, words, answer):
    if words[0] == "load":
        words = ["load", __file__, "--yes"]

    def change_only(request):
        return reply(0) if request.startswith(b"readattr:") else answer

    finished, _ = scripted(change_only, *words, "--timeout", "0.05")
    assert finished.returncode == 14
    assert "unknown whether it was applied" in finished.stderr
    assert json.loads(scripted(change_only, *words, "--timeout", "0.05", "--json")[0].stderr)[
        "error"]["reason"].endswith("unknown whether it was applied")


@pytest.mark.parametrize("words", [["get", "A.B"], ["raw", "readvalue", "A.B"], ["log", "count"]])
def test_a_question_without_a_reply_is_just_that(scripted, words):
    finished, _ = scripted(None, *words, "--timeout", "0.05")
    assert (finished.returncode, "unknown" in finished.stderr) == (9, False)


def test_a_captcha_that_does_not_match_has_its_own_status(scripted):
    assert scripted(reply(1), "captcha", "check", "v", stdin="x")[0].returncode == 13
    assert scripted(reply(2), "captcha", "check", "v", stdin="x")[0].returncode == 13


def test_the_manual_has_every_exit_status():
    enumerated = re.findall(r"exit_\w+ = (\d+)", (TOOL / "exit_status.h").read_text())
    section = MANUAL.split(".Sh EXIT STATUS")[1].split(".Sh")[0]
    assert re.findall(r"^\.It (\d+)$", section, re.MULTILINE) == enumerated


def complete(*words):
    lines = subprocess.run([command_line.program(), "complete", "--", *words], capture_output=True,
                           env={"VELTRANCORD_SOCKET": "/nonexistent",
                                "VELTRANCORD_STATE": "/dev/null"}, text=True,
                           check=True).stdout.split("\n")[:-1]
    return [line.split("\t")[0] for line in lines]


def test_the_manual_has_every_command_and_option():
    options = {option for option in complete("--")}
    for command in complete(""):
        assert re.search(rf"\bIc {command}\b", MANUAL), command
        options |= set(complete(command, "--"))
        # Behind these two come commands of the protocol and commands once more.
        for inner in complete(command, "") if command not in ("raw", "help") else ():
            assert re.search(rf"\bIc {command} {inner}\b", MANUAL), (command, inner)
            options |= set(complete(command, inner, "--"))
    assert len(options) > 20
    for option in options - {"--help", "--version"}:
        name = option[2:]
        assert re.search(rf"Fl Fl {name}\b|Fl \S+ , Fl Fl {name}\b", MANUAL), option


@pytest.mark.parametrize("arguments, words", [
    ([], "usage: a command is missing; see veltrancordctl --help"),
    (["gett", "A"], 'usage: there is no command "gett"; see veltrancordctl --help'),
    (["log"], "log: a command is missing; see veltrancordctl log --help"),
    (["log", "lsit"], 'log: there is no command "lsit"; see veltrancordctl log --help'),
    (["get"], "get: PATH is required; see veltrancordctl get --help"),
    (["log", "list", "--count", "x"],
     "log list: Could not convert: --count = x; see veltrancordctl log list --help"),
    (["ping", "x"], "ping: The following argument was not expected: x; see veltrancordctl ping --help"),
])
def test_wrong_use_is_told_by_name(arguments, words):
    finished = subprocess.run([command_line.program(), *arguments], capture_output=True, text=True,
                              check=False)
    assert (finished.returncode, finished.stderr) == (2, f"veltrancordctl: {words}\n")
    finished = subprocess.run([command_line.program(), *arguments, "--json"], capture_output=True,
                              text=True, check=False)
    error = json.loads(finished.stderr)["error"]
    assert (error["code"], error["name"]) == (None, "USAGE")


def test_help_and_version_are_no_failures():
    for arguments in (["--help"], ["log", "--help"], ["log", "add", "--help"]):
        finished = subprocess.run([command_line.program(), *arguments], capture_output=True,
                                  text=True, check=True)
        assert "Usage: veltrancordctl" in finished.stdout
    version = re.search(r"project\(\w+ VERSION (\S+)",
                        (REPOSITORY / "CMakeLists.txt").read_text())[1]
    printed = subprocess.run([command_line.program(), "--version"], capture_output=True, text=True,
                             check=True).stdout
    assert printed == f"veltrancordctl {version}\n"


def test_a_secret_with_a_line_feed_is_masked_whole(scripted):
    lines = b"A.Password=first\nsecond\nA.Other=x\nmore\n"
    finished, _ = scripted(reply(len(lines), lines), "raw", "read", "A.*")
    assert finished.stdout == "A.Password=********\nA.Other=x\nmore\n"


@pytest.mark.parametrize("arguments", [
    ["raw", "write", "A.B=1\nA.Password=x"], ["raw", "writedbmem", "A.PASSWORD.=x"],
    ["raw", "SetSession", "x"], ["raw", "CheckSession", "x&5"], ["set", "A.Password", "x"],
    ["set", "A.B=1", "A.password.=x"]])
def test_no_secret_is_taken_from_the_command_line(scripted, arguments):
    finished, requests = scripted(reply(0), *arguments)
    assert (finished.returncode, requests) == (5, [])
    assert "a secret is never given on the command line" in finished.stderr


def test_what_cannot_be_a_value_is_not_sent(scripted):
    finished, requests = scripted(reply(1), "set", "A.B", "-", stdin="a\0b")
    assert (finished.returncode, requests) == (5, [])
    finished, requests = scripted(reply(1), "set", "A.B=-", "A.C=-", stdin="x")
    assert (finished.returncode, requests) == (2, [])
    for command in ("dump", "snapshot"):
        finished, requests = scripted(reply(0), command, "-")
        assert (finished.returncode, requests) == (2, [])


@pytest.mark.parametrize("command", ["remove A", "upload /f", "restore /f", "syncxml /f", "cleanlog"])
def test_raw_asks_before_it_destroys(scripted, command):
    finished, requests = scripted(reply(0), "raw", *command.split())
    assert (finished.returncode, requests) == (2, [])
    assert "needs --yes" in finished.stderr and "--backup FILE" in finished.stderr
    finished, requests = scripted(reply(0), "raw", *command.split(), "--yes", "--backup", "/dev/null")
    assert changing(request.split(b":")[0].decode() for request in requests) == [
        "download", command.split()[0]]


def test_a_record_of_the_log_is_sent_as_it_was_asked_for(scripted):
    _, requests = scripted(reply(0), "log", "add", "0x10", "fifteen letters", "--detail1", "7",
                           "--detail2", "255", "--time", "2147483647")
    (record,) = [request[len(b"writelogwithtime:"):] for request in requests
                 if request.startswith(b"writelogwithtime:")]
    fields = struct.unpack("<i6xB16sBi", record)
    assert fields == (0x10, 7, b"fifteen letters\0", 255, 2147483647)
    assert scripted(reply(0), "log", "add", "1", "x", "--time", "2147483648")[0].returncode == 5
    assert scripted(reply(0), "log", "add", "1", "x", "--detail1", "256")[0].returncode == 2


def test_a_service_that_is_not_there_is_named_by_its_socket():
    for words in (["get", "A.B"], ["ping"], ["wait", "--timeout", "0.01"]):
        finished = subprocess.run([command_line.program(), "--socket", "/nonexistent", *words],
                                  capture_output=True, text=True, check=False)
        assert (finished.returncode, finished.stderr) == (8, (
            f"veltrancordctl: {words[-1] if words[0] == 'get' else words[0]}: the service cannot be "
            "reached: /nonexistent: No such file or directory (-100)\n"))
