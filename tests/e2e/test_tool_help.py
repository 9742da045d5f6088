"""The help of veltrancordctl, and its exit statuses: one for one cause, whichever command it is."""

import re

import pytest

from command_line import Tool
from device import CONFIGURATION, REPOSITORY

# Examples that are not run, each with the reason.
NOT_RUN = {
    "veltrancordctl watch": "goes on for ever; test_tool_changes.py has it",
    "veltrancordctl undo": "belongs to a change; test_tool_history.py has it",
    "veltrancordctl confirm": "belongs to a trial; test_tool_trials.py has it",
    "veltrancordctl trial guard": "the same",
}
HEADINGS = ["Settings", "Whole documents", "Changes", "Event log", "Access", "The service itself"]
TRAIL = ('1 2026-11-22T12:12:02Z yard veltrancord 211 change [veltrancord@32473 user="www-data" uid="33" '
         'pid="514" program="x" command="write" path="Network.Lan.Mtu" result="1"] write by www-data (33): 1\n')
NETWORK = "<Network><Lan><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan></Network>"


@pytest.fixture
def tool(service):
    return Tool(service({"Network": NETWORK}))


def subcommands(text):
    """The names under the headings of a help. Return: pairs of a heading and a name."""
    found, heading = [], None
    for line in text.split("Examples:")[0].splitlines():
        if re.fullmatch(r"\S.*:", line):
            heading = line[:-1]
        elif match := re.match(r"  ([a-z]+)  +\S", line):
            found.append((heading, match[1]))
    return found


def all_commands(tool):
    """Every command's name, both words of "log add"."""
    names = []
    for _, name in subcommands(tool("help").stdout):
        names.append([name])
        names += [[name, inner] for _, inner in subcommands(tool("help", name).stdout)]
    return names


def examples_and_statuses(text):
    """What a help says below its options."""
    assert "\nExamples:\n" in text and "\nExit status:\n" in text, text
    examples, statuses = text.split("\nExamples:\n")[1].split("\nExit status:\n")
    return ([line.strip() for line in examples.splitlines() if line],
            {int(number) for number in re.findall(r"^ +(\d+)  \S", statuses, re.MULTILINE)})


def test_commands_are_listed_in_groups(tool):
    listed = subcommands(tool("--help").stdout)
    assert list(dict.fromkeys(heading for heading, _ in listed)) == HEADINGS
    assert ("Settings", "get") in listed and ("Event log", "log") in listed
    assert subcommands(tool("help").stdout) == listed


def test_every_command_has_examples_and_exit_statuses(tool):
    names = all_commands(tool)
    assert len(names) > 40 and ["log", "add"] in names
    for name in names:
        asked = tool(*name, "--help")
        assert asked.status == 0
        assert tool("help", *name).stdout == asked.stdout, name
        examples, statuses = examples_and_statuses(asked.stdout)
        assert examples and {0, 2} <= statuses, f"{name} has no row in command_help.cpp"
        program = r"(?:.*\| |[A-Z]+=\w+ )?veltrancordctl (?:--json )?"
        for example in examples:
            assert re.match(program + " ".join(name), example), example


def test_help_of_what_is_no_command(tool):
    for words in (["nonsense"], ["log", "nonsense"], ["get", "set"]):
        asked = tool("help", *words)
        assert asked.status == 2 and f'there is no command "{words[-1]}"' in asked.stderr


def test_examples_run_and_end_as_is_told(device):
    """Each example of the help, on the sample configuration."""
    tool = Tool(device)
    device.copy_sample_database()
    device.mount_tmpfs("/mnt/database/eventlog", size="1m")
    device.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
    schemas = f"VELTRANCORD_SCHEMA=/run/host{REPOSITORY}/examples/schema"
    device.make_directory("/tmp/bin")
    device.outside("/tmp/bin/veltrancordctl").symlink_to("/run/host" + tool.program)
    device.start()
    device.write_file("/tmp/access", "allow user root all\nallow user www-data write on Display\n")
    device.write_file("/tmp/messages", "would be refused: user 0 group 0 class read document Network\n")
    device.write_file("/tmp/auth.log", TRAIL)
    assert tool("dump", "/tmp/all.xml").status == 0
    assert tool("snapshot", "/tmp/before").status == 0
    run = 0
    for name in all_commands(tool):
        examples, statuses = examples_and_statuses(tool("help", *name).stdout)
        for example in examples:
            if example.startswith(tuple(NOT_RUN)):
                continue
            finished = device.run("/usr/bin/env", "PATH=/tmp/bin:/usr/bin:/bin", "HOME=/tmp",
                                  "VELTRANCORD_STATE=/tmp/state", schemas, "/bin/sh", "-c", example)
            assert finished.status in statuses - {2, 7}, (example, finished)
            run += 1
    assert run > 50


MISSING = [["load", "/none", "--yes"], ["merge", "/none", "--yes"], ["restore", "/none", "--yes"],
           ["diff", "/none"], ["diff", "/tmp/lines", "/none"], ["apply", "/none"],
           ["set", "--file", "/none"], ["set", "Network.Password", "-", "--file", "/none"],
           ["session", "set", "--file", "/none"], ["captcha", "set", "v", "--file", "/none"],
           ["fsck", "/none"], ["watch", "Network", "--directory", "/none"],
           ["access", "check", "/none"], ["access", "draft", "--file", "/none"], ["trail", "--file", "/none"],
           ["access", "explain", "root", "read", "--file", "/none"], ["history", "--trail", "/none"],
           ["snapshot", "/none/file"], ["dump", "/none/file"],
           ["unset", "Network", "--yes", "--backup", "/none/file"]]


@pytest.mark.parametrize("words", MISSING, ids=" ".join)
def test_a_file_that_is_missing_is_always_the_same_status(tool, words):
    tool.device.write_file("/tmp/lines", "Network.Lan.Mtu=1\n")
    assert tool(*words).status == 7
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"


@pytest.mark.parametrize("words", [["load", "--yes"], ["merge", "--yes"], ["restore", "--yes"], ["diff"],
                                   ["apply"]], ids=lambda words: words[0])
def test_a_file_that_does_not_parse_is_always_the_same_status(tool, words):
    tool.device.write_file("/tmp/broken", "<ROOT><Network></ROOT>")
    broken = tool(words[0], "/tmp/broken", *words[1:])
    assert broken.status == 5 and "does not parse as XML" in broken.stderr


@pytest.mark.parametrize("words", [["get", "Network.None"], ["tree", "None"], ["ls", "None"],
                                   ["set", "Network.None", "1"], ["unset", "Network.None", "--yes"],
                                   ["attr", "get", "Network.None.Level"],
                                   ["attr", "set", "Network.None.Level=1"],
                                   ["snapshot", "/tmp/s", "Network.None"], ["edit", "Network.None"],
                                   ["watch", "Network.None"], ["undo", "99"], ["confirm"]],
                         ids=lambda words: words[0])
def test_what_does_not_exist_is_always_the_same_status(tool, words):
    assert tool(*words).status == 1


def test_the_manual_and_the_help_tell_the_same_statuses(tool):
    page = (REPOSITORY / "client/man/veltrancordctl.1").read_text()
    numbers = {int(one) for one in re.findall(r"^\.It (\d+)$", page, re.MULTILINE)}
    told = set()
    for name in all_commands(tool):
        told |= examples_and_statuses(tool("help", *name).stdout)[1]
    assert told == numbers


def test_quiet_leaves_failures_alone(tool):
    assert tool("set", "--create", "Network.Lan.New=1").stderr == "veltrancordctl: created Network.Lan.New\n"
    assert tool("-q", "set", "--create", "Network.Lan.Newer=1").stderr == ""
    assert "not found" in tool("get", "Network.None", "--quiet").stderr


def test_verbose_tells_what_was_done(tool):
    told = tool("-v", "set", "Network.Lan.Mtu", "1400").stderr
    assert "asking /tmp/Veltrancord.unix" in told
    assert "-Network.Lan.Mtu=1500\n+Network.Lan.Mtu=1400" in told
    assert tool("set", "Network.Lan.Mtu", "1300").stderr == ""


def test_a_document_without_settings_stays(tool):
    removed = tool("unset", "Network", "--yes")
    assert removed.status == 0 and "stays as a document without settings" in removed.stderr
    assert tool.device.file_exists(CONFIGURATION + "/Network")
    assert tool("unset", "Network.*", "--yes").stderr == ""
    assert not tool.device.file_exists(CONFIGURATION + "/Network")
