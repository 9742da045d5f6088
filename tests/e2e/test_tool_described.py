"""veltrancordctl where the product describes its settings: what may be written, and what is told."""

import json
import os
import shutil

import pytest

import described
from command_line import Terminal, Tool
from described import SCHEMA
from device import REPOSITORY

NOT_ALLOWED = 18
ALL = "<ROOT><Network><Lan>\n<Mtu>99999</Mtu>\n<Dhcp>maybe</Dhcp></Lan></Network></ROOT>"


class DescribedTool(Tool):
    """The tool with the description in its environment, where it does not say otherwise."""

    def __call__(self, *arguments, stdin="", environment=()):
        return super().__call__(*arguments, stdin=stdin,
                                environment=[f"VELTRANCORD_SCHEMA={SCHEMA}", "LC_ALL=C", *environment])


@pytest.fixture
def tool(service):
    device = service({"Network": described.DOCUMENT, "Free": described.OTHER})
    described.install(device)
    return DescribedTool(device)


def document(tool):
    return tool.device.read_document("Network")


# ---- what breaks the description is refused -------------------------------------------------------

@pytest.mark.parametrize("setting, told", [
    ("Network.Lan.Mtu=14o0", "14o0"), ("Network.Lan.Mtu=67", "the nearest is 68"),
    ("Network.Lan.Mtu=9001", "the nearest is 9000"), ("Network.Lan.Dhcp=yes", "the nearest is YES"),
    ("Network.Lan.Speed=1000", "auto"), ("Network.Lan=1", "Network.Lan"),
    ("Network.Lan.Mut=1500", "is Network.Lan.Mtu meant?")])
def test_set_refuses_what_breaks_the_description(tool, setting, told):
    before = document(tool)
    refused = tool("set", setting)
    assert refused.status == NOT_ALLOWED, refused
    assert told in refused.stderr and "--force" in refused.stderr
    assert document(tool) == before
    assert tool("history").status == 4  # nothing


def test_set_takes_what_is_described_and_what_nothing_describes(tool):
    assert tool("set", "Network.Lan.Mtu=68", "Network.Lan.Dhcp=NO").status == 0
    assert tool("set", "Free.Thing=anything").status == 0
    assert tool("set", "Network.Lan.Mtu=14o0", environment=["VELTRANCORD_SCHEMA=/none"]).status == 0
    assert tool("set", "Network.Lan.Mtu=14o1", "--schema", SCHEMA,
                environment=["VELTRANCORD_SCHEMA=/none"]).status == NOT_ALLOWED
    assert tool("get", "Network.Lan.Mtu").stdout == "14o0\n"


def test_all_violations_are_told_with_their_lines(tool):
    lines = "# lines\nNetwork.Lan.Mtu=1\nNetwork.Lan.Dhcp=NO\nNetwork.Lan.Speed=slow\n"
    tool.device.write_file("/tmp/lines", lines)
    refused = tool("set", "--file", "/tmp/lines")
    assert refused.status == NOT_ALLOWED
    told = refused.stderr.splitlines()
    assert len(told) == 3, told
    assert "Network.Lan.Mtu: " in told[0] and told[0].endswith("(/tmp/lines:2)")
    assert "Network.Lan.Speed: " in told[1] and told[1].endswith("(/tmp/lines:4)")
    refused = tool("set", "-", "--json", stdin=lines)
    errors = [json.loads(line)["error"] for line in refused.stderr.splitlines()[:-1]]
    assert [(one["subject"], one["name"], one["rule"], one["value"], one["nearest"], one["line"])
            for one in errors] == [
        ("Network.Lan.Mtu", "NOT_ALLOWED", "minInclusive", "1", "68", 2),
        ("Network.Lan.Speed", "NOT_ALLOWED", "enumeration", "slow", errors[1]["nearest"], 4)]
    assert "\n".join(tool("get", "Network.Lan.*").stdout.splitlines()) == (
        "Network.Lan.Mtu=1400\nNetwork.Lan.Dhcp=YES")


def test_force_overrides_and_the_history_tells_it(tool):
    forced = tool("set", "Network.Lan.Mtu=1", "--force")
    assert forced.status == 0 and "written all the same" in forced.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"
    assert "against the description" in tool("history").stdout
    assert tool("set", "Network.Lan.Mtu=1400", "--force").status == 0
    assert [one["forced"] for one in tool.json("history")] == [False, True]


def test_a_secret_is_not_shown_when_it_is_refused(tool):
    refused = tool("set", "--create", "Network.Lan.Password", "-", stdin="kurz")
    assert refused.status == NOT_ALLOWED and "kurz" not in refused.stderr
    refused = tool("set", "--create", "Network.Lan.Password", "-", "--json", stdin="kurz")
    assert "kurz" not in refused.stderr
    assert tool("set", "--create", "Network.Lan.Password", "-", stdin="lang genug").status == 0


def test_create_makes_what_is_described_alone(tool):
    assert tool("set", "--create", "Network.Lan.Zone A=x").status == 0
    assert tool("set", "--create", "Network.Lan.New=x").status == NOT_ALLOWED
    assert tool("set", "--create", "--force", "Network.Lan.New=x").status == 0
    assert tool("set", "--force", "Network.Lan.Newer=x").status == 1  # --create makes it
    assert tool("set", "--create", "Free.New=x").status == 0


@pytest.mark.parametrize("words", [["apply", "-"], ["load", "-", "--yes"], ["merge", "-", "--yes"],
                                   ["restore", "-", "--yes"]], ids=lambda words: words[0])
def test_files_are_looked_over_before_they_are_used(tool, words):
    before = document(tool)
    for more in ([], ["--dry-run"]):
        refused = tool(*words, *more, stdin=ALL)
        assert refused.status == NOT_ALLOWED, refused
        assert "Network.Lan.Mtu: " in refused.stderr and "(line 2)" in refused.stderr
        assert "Network.Lan.Dhcp: " in refused.stderr and "(line 3)" in refused.stderr
        assert document(tool) == before
    forced = tool(*words, "--force", stdin=ALL)
    assert forced.status == 0, forced
    if words[0] != "restore":  # which keeps what is set
        assert tool("get", "Network.Lan.Mtu").stdout == "99999\n"
        assert tool.json("history")[0]["forced"]
    assert tool(*words, stdin=ALL.replace("99999", "1492").replace("maybe", "NO")).status == 0


def test_a_file_that_only_gives_values_may_leave_some_out(tool):
    """A document that is replaced has to be whole, but not one that others are merged with."""
    described_whole = described.NETWORK.replace('name="Dhcp" type="YesNo" minOccurs="0" default="YES"',
                                                'name="Dhcp" type="YesNo"')
    tool.device.write_file(f"{SCHEMA}/Network.xsd", described_whole)
    part = "<ROOT><Network><Lan><Mtu>1400</Mtu></Lan></Network></ROOT>"
    assert tool("merge", "-", "--yes", stdin=part).status == 0
    assert tool("restore", "-", "--yes", stdin=part).status == 0
    refused = tool("load", "-", "--yes", stdin=part)
    assert refused.status == NOT_ALLOWED and "Dhcp" in refused.stderr


def test_the_stored_form_of_a_secret_is_not_checked(tool):
    """Another product's key may have made it, and it is longer than what it stands for."""
    longest = described.NETWORK.replace('<xs:minLength value="6"/>', '<xs:maxLength value="8"/>')
    tool.device.write_file(f"{SCHEMA}/Network.xsd", longest)
    assert tool("set", "--create", "Network.Lan.Password", "-", stdin="geheim").status == 0
    assert tool("dump", "/tmp/all.xml").status == 0
    assert b"enc:6:" in tool.device.read_file("/tmp/all.xml")
    for command in ("load", "restore", "merge"):
        assert tool(command, "/tmp/all.xml", "--yes").status == 0


def test_a_trial_of_what_is_not_allowed_does_not_begin(tool):
    refused = tool("apply", "-", "--confirm", "60", stdin="Network.Lan.Mtu=1\n")
    assert refused.status == NOT_ALLOWED
    assert tool("confirm").status == 1


def test_edit_asks_for_another_text(tool):
    tool.device.install_script("/tmp/editor", "#!/bin/sh\n"
                               'if [ -e "$0.again" ]; then sed -i "s/=1$/=1450/" "$1"\n'
                               'else : > "$0.again"; sed -i s/1400/1/ "$1"; fi\n')
    terminal = tool.terminal("edit", "Network", environment={
        "EDITOR": str(tool.device.outside("/tmp/editor")), "NO_COLOR": "1",
        "VELTRANCORD_SCHEMA": str(tool.device.outside(SCHEMA))})
    terminal.wait_for("the nearest is 68 (line ")
    terminal.wait_for("edit it again? [y/N]")
    terminal.type("y\n")
    terminal.wait_for("write this? [y/N]")
    terminal.type("y\n")
    assert terminal.finish() == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "1450\n"


def test_a_description_with_a_mistake_is_told_and_checks_nothing(tool):
    tool.device.write_file(f"{SCHEMA}/Network.xsd", described.NETWORK.replace("xs:all", "xs:choice", 2))
    written = tool("set", "Network.Lan.Mtu=14o0")
    assert written.status == 0
    assert f"{SCHEMA}/Network.xsd:" in written.stderr and "nothing is checked" in written.stderr
    assert tool("set", "Free.Thing=2").stderr == ""


def test_the_image_of_a_device_is_checked_too(tool):
    tool.device.write_file("/tmp/image/Network", described.DOCUMENT)
    assert tool("--root", "/tmp/image", "set", "Network.Lan.Mtu=1").status == NOT_ALLOWED
    assert tool("--root", "/tmp/image", "set", "Network.Lan.Mtu=1450").status == 0
    assert tool("--root", "/tmp/image", "reset", "Network.Lan.Mtu").status == 0
    assert b"<Mtu>1500</Mtu>" in tool.device.read_file("/tmp/image/Network")


# ---- what is told ---------------------------------------------------------------------------------

def test_describe_tells_a_setting(tool):
    assert tool("describe", "Network.Lan.Mtu").stdout == (
        "Network.Lan.Mtu  Largest packet\n"
        "           What is longer is cut.\n"
        "  Value    a whole number from 68 to 9000\n"
        "  Unit     byte\n"
        "  Default  1500\n"
        "  Level    3\n"
        "  Starts   /usr/sbin/apply_network\n")
    told = tool.json("describe", "Network.Lan.Mtu")
    assert told == {
        "path": "Network.Lan.Mtu", "kind": "integer", "label": "Largest packet",
        "help": "What is longer is cut.", "type": "Mtu", "allowed": "a whole number from 68 to 9000",
        "least": "68", "most": "9000", "min_length": None, "max_length": None, "patterns": [],
        "choices": [], "default": "1500", "unit": "byte", "level": "3",
        "program": "/usr/sbin/apply_network", "secret": False, "required": False, "below": []}


@pytest.mark.parametrize("variables, label", [
    (["LC_ALL=de_DE.UTF-8"], "Größtes Paket"), (["LC_ALL=", "LC_MESSAGES=de"], "Größtes Paket"),
    (["LC_ALL=", "LANG=de_AT"], "Größtes Paket"), (["LC_ALL=fr_FR.UTF-8"], "Largest packet"),
    (["LC_ALL=en_US", "LC_MESSAGES=de"], "Largest packet")], ids=lambda one: "".join(one))
def test_describe_speaks_the_language_of_the_user(tool, variables, label):
    told = tool("describe", "Network.Lan.Mtu", "--json", environment=variables)
    assert json.loads(told.stdout)["label"] == label


def test_describe_tells_groups_choices_and_documents(tool):
    assert tool("describe", "Network.Lan.Speed").stdout == (
        "Network.Lan.Speed\n  Value    one of auto, 10, 100\n  Default  auto\n"
        "  auto  as the other side can\n  10\n  100\n")
    group = tool.json("describe", "Network.Lan.*")
    assert (group["path"], group["kind"], group["label"], group["allowed"]) == (
        "Network.Lan", "group", "Wired network", None)
    assert [one["name"] for one in group["below"]] == ["Mtu", "Dhcp", "Speed", "Priority", "Zone A",
                                                       "Password"]
    assert tool.json("describe") == [{"name": "Network", "title": None}]
    assert tool.json("describe", "Network.Lan.Password")["secret"]
    assert tool("describe", "Network.Lan.Mut").status == 1
    assert tool("describe", "Free.Thing").status == 1
    assert tool("describe", "--schema", "/none").status == 1


def test_describe_needs_no_service_but_for_what_the_description_leaves_open(tool):
    left_open = described.NETWORK.replace(' default="3"/>', '/>')
    tool.device.write_file(f"{SCHEMA}/Network.xsd", left_open)
    assert tool.json("describe", "Network.Lan.Mtu")["level"] is None
    tool.device.request("writeattr:Network.Lan.Mtu.Level=2")
    assert tool.json("describe", "Network.Lan.Mtu")["level"] == "2"
    tool.device.stop()
    told = tool.json("describe", "Network.Lan.Mtu")
    assert (told["level"], told["program"]) == (None, "/usr/sbin/apply_network")


# ---- defaults -------------------------------------------------------------------------------------

def test_reset_gives_a_setting_its_default(tool):
    assert tool("reset", "Network.Lan.Mtu", "--dry-run").stdout == (
        "-Network.Lan.Mtu=1400\n+Network.Lan.Mtu=1500\n")
    assert tool("get", "Network.Lan.Mtu").stdout == "1400\n"
    assert tool("reset", "Network.Lan.Mtu").status == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    assert "veltrancordctl reset Network.Lan.Mtu\n-Network.Lan.Mtu=1400" in tool("history").stdout
    again = tool("reset", "Network.Lan.Mtu")
    assert again.status == 0 and "nothing differs" in again.stderr
    assert len(tool.json("history")) == 1
    assert tool("undo").status == 0
    assert tool("get", "Network.Lan.Mtu").stdout == "1400\n"


def test_reset_of_a_group_makes_nothing_new(tool):
    tool("set", "Network.Lan.Dhcp=NO")
    assert tool("reset", "Network.Lan").status == 0
    assert tool("get", "Network.Lan.*").stdout == "Network.Lan.Mtu=1500\nNetwork.Lan.Dhcp=YES\n"
    assert tool("reset", "Network.Lan", "--create").status == 0
    assert "Network.Lan.Speed=auto\n" in tool("get", "Network.Lan.*").stdout
    assert tool("get", "Network.Host2.Name").status == 1  # an optional group that is not there
    assert tool("reset", "Network.Lan.Speed", "--memory").status == 0


def test_reset_of_what_has_no_default(tool):
    assert tool("reset", "Network.Lan.Priority").status == 4
    assert tool("reset", "Network.Lan.Password").status == 4
    assert tool("reset", "Network.Lan.None").status == 1
    assert tool("reset", "Free.Thing").status == 1
    assert tool("reset", "Network.Lan.Speed").status == 1  # not there: --create makes it


def test_get_with_default(tool):
    assert tool("get", "Network.Lan.Speed").status == 1
    assert tool("get", "Network.Lan.Speed", "--with-default").stdout == "auto\n"
    assert tool("get", "Network.Lan.Mtu", "--with-default").stdout == "1400\n"
    assert tool("get", "Network.*", "--with-default").stdout == (
        "Network.Lan.Mtu=1400\nNetwork.Lan.Dhcp=YES\nNetwork.Host1.Name=gate\n"
        "Network.Host1.Enable=NO\nNetwork.Lan.Speed=auto\n")
    assert tool("get", "Network.Lan.Priority", "--with-default").status == 1
    assert tool("get", "Network.Lan.Mtu", "--with-default", "--visible").status == 2
    tool("set", "Network.Lan.Dhcp=", "--force")
    assert tool("get", "Network.Lan.Dhcp", "--with-default").stdout == "YES\n"


def test_tree_tells_what_was_never_set(tool):
    assert tool("tree", "Network", "--describe").stdout == (
        "Network\n"
        "├── Lan  Wired network\n"
        "│   ├── Mtu = 1400  Largest packet [byte] (default 1500)\n"
        "│   ├── Dhcp = YES\n"
        "│   ├── Speed  (not set, default auto)\n"
        "│   ├── Priority  (not set)\n"
        "│   ├── Zone A  (not set)\n"
        "│   └── Password  (not set)\n"
        "├── Host1\n"
        "│   ├── Name = gate  (default host)\n"
        "│   └── Enable  (not set, default NO)\n"
        "└── Host2  (not set)\n")
    tree = tool.json("tree", "--describe")
    assert tree["Network"]["Lan"]["Mtu"] == {
        "value": "1400", "label": "Largest packet", "allowed": "a whole number from 68 to 9000",
        "default": "1500", "unit": "byte"}
    assert tree["Network"]["Lan"][""]["label"] == "Wired network"
    assert tree["Network"]["Lan"]["Speed"]["value"] is None
    assert tree["Free"]["Thing"]["value"] == "1" and tree["Free"]["Thing"]["label"] is None
    tool("set", "--create", "--force", "Network.Lan.New=x")
    assert "New = x  (not described)\n" in tool("tree", "Network.Lan", "--describe").stdout


def test_diff_with_the_defaults(tool):
    shown = tool("diff", "--defaults")
    assert shown.status == 10
    assert shown.stdout == (
        "+Network.Host1.Enable=NO\n-Network.Host1.Name=gate\n+Network.Host1.Name=host\n"
        "-Network.Lan.Mtu=1400\n+Network.Lan.Mtu=1500\n+Network.Lan.Speed=auto\n")
    assert tool("diff", "--defaults", "--path", "Network.Lan.Mtu").stdout == (
        "-Network.Lan.Mtu=1400\n+Network.Lan.Mtu=1500\n")
    assert tool("reset", "Network", "--create").status == 0
    assert tool("diff", "--defaults").status == 0
    assert tool("diff", "--defaults", "/tmp/file").status == 2
    assert tool("diff").status == 2
    assert tool("diff", "--defaults", "--schema", "/none").status == 1


# ---- completion -----------------------------------------------------------------------------------

def completed(tool, *words):
    """What the last word could be. Return: a dictionary to what each means."""
    lines = tool("complete", "--", *words).stdout.split("\n")[:-1]
    return dict(line.partition("\t")[::2] for line in lines)


def test_names_are_completed_with_their_labels(tool):
    assert completed(tool, "get", "Network.") == {
        "Network.Lan.": "Wired network", "Network.Host1.": ""}
    assert completed(tool, "get", "Network.Lan.M") == {"Network.Lan.Mtu": "Largest packet: 1400"}
    assert completed(tool, "set", "Network.Lan.S") == {"Network.Lan.Speed": ""}  # not there yet
    assert completed(tool, "describe", "Network.Lan.M") == {"Network.Lan.Mtu": "Largest packet"}
    assert completed(tool, "reset", "Network.Lan.Mtu", "Net") == {"Network.": ""}
    assert completed(tool, "--schema", "/none", "get", "Network.Lan.M") == {"Network.Lan.Mtu": "1400"}


# How each shell is started, and how it is told of the completion.
COMPLETIONS = REPOSITORY / "client/tool/completions"
SHELLS = {
    "bash": (["--norc", "--noprofile", "-i"], f"source {COMPLETIONS}/veltrancordctl.bash"),
    "zsh": (["-f", "-i"], f"autoload -U compinit && compinit -u -D; source {COMPLETIONS}/_veltrancordctl"),
    "fish": (["--no-config", "-i"], f"source {COMPLETIONS}/veltrancordctl.fish"),
}


@pytest.mark.parametrize("shell", SHELLS)
def test_a_key_completes_values_behind_the_equals_sign(tool, shell, tmp_path):
    program = shutil.which(shell)
    if program is None:
        pytest.skip(f"{shell} is not installed")
    arguments, told = SHELLS[shell]
    terminal = Terminal([program, *arguments], {
        "PATH": f"{os.path.dirname(tool.program)}:{os.environ['PATH']}", "HOME": str(tmp_path), "PS1": "$ ",
        "VELTRANCORD_SOCKET": tool.device.socket_path, "VELTRANCORD_STATE": str(tmp_path),
        "VELTRANCORD_SCHEMA": str(tool.device.outside(SCHEMA))}, 24)
    terminal.type(f"{told}; echo told''\n")
    terminal.wait_for("told\r\n")
    terminal.type("veltrancordctl set --create Network.Lan.Dhcp=N\tNetwork.Lan.Speed=au\t; echo do''ne\n")
    terminal.wait_for("done\r\n")
    terminal.kill()
    assert tool("get", "Network.Lan.Dhcp", "Network.Lan.Speed").stdout == (
        "Network.Lan.Dhcp=NO\nNetwork.Lan.Speed=auto\n"), terminal.text


def test_values_are_completed(tool):
    assert completed(tool, "set", "Network.Lan.Dhcp", "") == {"YES": "the default", "NO": ""}
    assert completed(tool, "set", "Network.Lan.Dhcp=") == {
        "Network.Lan.Dhcp=YES": "the default", "Network.Lan.Dhcp=NO": ""}
    assert completed(tool, "set", "Network.Lan.Mtu=1500", "Network.Lan.Speed=a") == {
        "Network.Lan.Speed=auto": "as the other side can, the default"}
    assert completed(tool, "set", "Network.Lan.Mtu", "") == {
        "68": "the least", "9000": "the greatest", "1500": "the default"}
    assert set(completed(tool, "set", "Network.Lan.Priority", "")) == {"0", "1", "2", "3"}
    assert completed(tool, "set", "Network.Lan.Password", "") == {}
