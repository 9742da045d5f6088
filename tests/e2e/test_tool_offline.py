"""veltrancordctl --root: documents of a directory, without a service."""

import pytest

from command_line import STATE, Tool
from device import CONFIGURATION
from secret import enc_form, plain_form

NETWORK = ('<Network><Lan Level="3"><Mtu DispatchW="/tmp/told.sh">1500</Mtu><Dhcp>YES</Dhcp></Lan>'
           "<Wlan><Password/></Wlan></Network>")
ROOT = "/tmp/image/a/path/that/is/longer/than/a/device/may/have/because/it/lies/in/a/build/folder/xml"


@pytest.fixture
def tool(device):
    device.make_directory(ROOT)
    device.write_file(ROOT + "/Network", NETWORK)
    return Tool(device)


def offline(tool, *words, **options):
    return tool("--root", ROOT, *words, **options)


def test_what_is_read_and_written_needs_no_service(tool):
    assert offline(tool, "get", "Network.Lan.Mtu").stdout == "1500\n"
    assert offline(tool, "tree", "Network.Lan").stdout == (
        "Network.Lan\n├── Mtu = 1500\n└── Dhcp = YES\n")
    assert offline(tool, "set", "Network.Lan.Mtu=1400", "Network.Lan.Dhcp=NO").status == 0
    assert offline(tool, "set", "--create", "Fresh.A", "1").status == 0
    assert offline(tool, "unset", "Network.Lan.Dhcp", "--yes").status == 0
    assert offline(tool, "attr", "set", "Network.Lan.Level", "5").status == 0
    assert offline(tool, "snapshot", "/tmp/snapshot").status == 0
    assert tool.device.read_file("/tmp/snapshot").decode().splitlines()[1:] == [
        "Fresh.A=1", "Network.Lan.Mtu=1400"]
    assert offline(tool, "diff", "/tmp/snapshot").status == 0
    tool.device.write_file("/tmp/lines", "Network.Lan.Mtu=1300\n")
    assert offline(tool, "diff", "/tmp/lines", "--path", "Network.Lan.Mtu").status == 10
    assert offline(tool, "apply", "/tmp/lines").status == 0
    assert b"<Mtu DispatchW=\"/tmp/told.sh\">1300</Mtu>" in tool.device.read_file(ROOT + "/Network")
    assert tool.device.read_file(ROOT + "/Fresh").split() == [b"<Fresh>", b"<A>1</A>", b"</Fresh>"]
    assert offline(tool, "get", "Network.None").status == 1


def test_nothing_is_left_behind_and_no_program_is_started(tool):
    tool.device.install_script("/tmp/told.sh", "#!/bin/sh\n: > /tmp/told\n")
    changed = offline(tool, "set", "Network.Lan.Mtu", "1400")
    assert (changed.status, changed.stdout, changed.stderr) == (0, "", "")
    assert not tool.device.file_exists("/tmp/told")
    assert not [name for name in tool.device.list_directory("/tmp") if name.startswith("veltrancordctl")]
    assert tool.device.list_directory(ROOT) == ["Network"]
    assert not tool.device.file_exists(STATE + "/history")
    tool.device.start()
    assert tool("ping").status == 0


def test_files_are_those_that_a_service_makes(tool):
    device = tool.device
    device.copy_sample_database()
    folder = device.outside("/tmp/copy")
    folder.mkdir()
    for name in device.list_directory(CONFIGURATION):
        (folder / name).write_bytes(device.read_file(f"{CONFIGURATION}/{name}"))
    words = [["set", "Network.Lan.Mtu", "1400"], ["set", "--create", "Network.New.A_b c=1"],
             ["unset", "Network.Lan.Dns", "--yes"], ["attr", "set", "Network.Lan.Mtu.Level=7"]]
    for one in words:
        assert tool("--root", "/tmp/copy", *one).status == 0
    device.start()
    for one in words:
        assert tool(*one).status == 0
    for name in device.list_directory(CONFIGURATION):
        assert (folder / name).read_bytes() == device.read_file(f"{CONFIGURATION}/{name}"), name


def test_a_directory_in_use_is_refused(service):
    tool = Tool(service({"Network": NETWORK}))
    refused = tool("--root", CONFIGURATION, "set", "Network.Lan.Mtu", "1")
    assert refused.status == 7 and "works on it" in refused.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    tool.device.stop()
    assert tool("--root", CONFIGURATION, "set", "Network.Lan.Mtu", "1").status == 0
    assert tool("--root", "/none", "get", "Network.Lan.Mtu").status == 7


def test_secrets_are_stored_with_the_products_key(tool):
    path = "Network.Wlan.Password"
    assert offline(tool, "--key", "Own7Key", "set", path, "-", stdin="geheim").status == 0
    text = tool.device.read_file(ROOT + "/Network").decode()
    assert enc_form("geheim", b"Own7Key") in text
    assert offline(tool, "--key", "Own7Key", "get", path, "--reveal").stdout == "geheim\n"
    assert tool("--root", ROOT, "get", path, "--reveal",
                environment=["VELTRANCORD_KEY=Own7Key"]).stdout == "geheim\n"
    wrong = plain_form(enc_form("geheim", b"Own7Key"))
    assert offline(tool, "get", path, "--reveal").stdout == wrong + "\n"
    assert offline(tool, "--key", "Own7Key", "dump", "/tmp/all").status == 0
    compared = offline(tool, "--key", "Own7Key", "diff", "/tmp/all", "--path", path)
    assert (compared.status, compared.stdout) == (0, "")
    for key in ("short", "longer than 7", "a b c d", "Own7Ke\u00e9"):
        assert offline(tool, "--key", key, "get", path).status == 2


@pytest.mark.parametrize("words", [["log", "list"], ["ping"], ["permits"], ["watch", "Network"],
                                   ["raw", "read", "*"], ["history"], ["doctor"],
                                   ["set", "--memory", "Network.Lan.Mtu", "1"]], ids=" ".join)
def test_what_needs_a_service_says_so(tool, words):
    refused = offline(tool, *words)
    assert refused.status == 2 and "--root" in refused.stderr


def test_what_cannot_be_saved_is_a_failure(tool):
    tool.device.mount_tmpfs("/tmp/full", size="16k")
    tool.device.write_file("/tmp/full/Network", NETWORK)
    tool.device.write_file("/tmp/full/.filler", "x" * 8192)
    lines = "".join(f"Network.Lan.V{n}={'v' * 1000}\n" for n in range(20))
    failed = tool("--root", "/tmp/full", "set", "-", "--create", stdin=lines)
    assert failed.status == 7 and "not everything could be saved" in failed.stderr
    assert tool.device.read_file("/tmp/full/Network").decode() == NETWORK


def test_a_damaged_document_is_told(tool):
    tool.device.write_file(ROOT + "/Broken", "<Broken><A>1</A><")
    read = offline(tool, "get", "Broken.A")
    assert read.stdout == "1\n" and "damaged" in read.stderr
