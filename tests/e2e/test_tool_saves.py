"""veltrancordctl looks whether what it changed was saved, which no reply says."""

import pytest

from command_line import Tool
from device import EVENT_LOG

LOG_FOLDER = EVENT_LOG.rsplit("/", 1)[0]
NETWORK = ("<Network><Lan><Mtu>1500</Mtu><Name Note=\"a\">x</Name><Password>enc:0:</Password></Lan>"
           "</Network>")


def fill(device, folder):
    """Takes all the room of the folder's file system. Return: how to give it back."""
    waste = device.outside(f"{folder}/waste") if folder == LOG_FOLDER else device.outside("/mnt/full/waste")
    with waste.open("wb", buffering=0) as file:
        try:
            while file.write(b"x" * 4096):
                pass
        except OSError:
            pass
    return waste.unlink


@pytest.fixture
def tool(device):
    """On a service whose documents lie on a file system of their own, in a place of their own."""
    device.make_directory("/mnt/full")
    device.mount_tmpfs("/mnt/full", size="256k")
    device.write_file("/mnt/full/xml/Network", NETWORK)
    device.write_file("/mnt/full/xml/System", "<System><Name>gate</Name></System>")
    device.start("-P", "/mnt/full/xml")
    return Tool(device)


def unsaved(tool):
    found = tool.json("doctor", status=tool("doctor").status)["findings"]
    return {one["text"].split(":")[0] for one in found
            if one["topic"] == "save" and one["state"] == "warning"}


def test_a_full_disk_is_told_and_what_waits_too(tool):
    assert tool("set", "Network.Lan.Mtu", "1400").status == 0
    assert unsaved(tool) == set()
    make_room = fill(tool.device, "/mnt/full")
    late = tool("set", "Network.Lan.Mtu=1300", "Network.Lan.Name=y")
    assert late.status == 15, late
    assert late.stderr.startswith("veltrancordctl: Network.Lan.Mtu: applied, but not saved: "
                                  "/mnt/full/xml/Network holds something else, with 0 KiB free; "), late
    assert tool("get", "Network.Lan.Mtu").stdout == "1300\n"
    assert unsaved(tool) == {"Network"}
    tool.device.write_file("/tmp/lines", "Network.Lan.Mtu=1200\nSystem.Name=door\n")
    applied = tool("apply", "/tmp/lines")
    assert applied.status == 15 and "/xml/Network holds" in applied.stderr and "/xml/System holds" in applied.stderr
    assert unsaved(tool) == {"Network", "System"}
    assert tool("sync").status == 15
    make_room()
    assert tool("set", "Network.Lan.Mtu", "1100").status == 0
    assert tool("sync").status == 0
    assert unsaved(tool) == set()


def test_sync_looks_at_what_was_in_memory_only(tool):
    assert tool("set", "--memory", "System.Name", "camera").status == 0
    assert unsaved(tool) == {"System"}
    make_room = fill(tool.device, "/mnt/full")
    late = tool("sync")
    assert late.status == 15 and "System.Name: applied, but not saved" in late.stderr, late
    make_room()
    assert tool("sync").status == 0
    assert b"camera" in tool.device.read_file("/mnt/full/xml/System")


@pytest.mark.parametrize("value", ["a  b", " a", "é", "<&>\"'", "&#x41;", "\x01", "\t", "a" * 4095, ""], ids=lambda value: repr(value[:9]))
def test_values_that_a_file_holds_otherwise_count_as_saved(tool, value):
    tool.device.write_file("/tmp/value", value)
    done = tool("set", "--file", "/tmp/value", "Network.Lan.Name", "-")
    assert done.status == 0, done
    assert tool("sync").status == 0
    assert unsaved(tool) == set()


def test_secrets_and_attributes_that_are_saved(tool):
    assert tool("set", "Network.Lan.Password", "-", stdin="new one").status == 0
    assert tool("attr", "set", "Network.Lan.Name.Note", "b  c<").status == 0
    assert tool("sync").status == 0
    assert unsaved(tool) == set()
    make_room = fill(tool.device, "/mnt/full")
    assert tool("set", "Network.Lan.Password", "-", stdin="other one").status == 15
    make_room()
    assert tool("set", "Network.Lan.Password", "-", stdin="third one").status == 0
    assert unsaved(tool) == set()
    fill(tool.device, "/mnt/full")
    tool.device.request("writeattr:Network.Lan.Name.Note=d")
    assert unsaved(tool) == {"Network"}


def test_an_event_that_is_not_saved_is_told(device):
    device.mount_tmpfs(LOG_FOLDER, size="256k")
    device.write_document("Network", "<Network><A>1</A></Network>")
    device.start()
    tool = Tool(device)
    assert tool("log", "add", "1", "a  b").status == 0
    make_room = fill(device, LOG_FOLDER)
    late = tool("log", "add", "1", "door")
    assert late.status == 15, late
    assert late.stderr == ("veltrancordctl: log: added, but not saved: /mnt/database/eventlog/log does "
                           "not hold the event; the service tries to save it again\n")
    make_room()
    assert tool("log", "add", "2", "door").status == 0
    assert b"door" in device.read_file(EVENT_LOG)


def test_who_cannot_see_the_files_is_told_nothing(tool):
    """From outside, where the service's paths lead elsewhere."""
    fill(tool.device, "/mnt/full")
    process = tool.outside("set", "Network.Lan.Mtu", "1300")
    output, errors = process.communicate()
    assert (process.returncode, output, errors) == (0, "", "")
