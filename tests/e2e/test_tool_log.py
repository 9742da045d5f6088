"""veltrancordctl and the event log: one that keeps nothing, and the names of types."""

import pytest

from command_line import Tool
from device import EVENT_LOG

LOG_FOLDER = EVENT_LOG.rsplit("/", 1)[0]
NAMES = ("<Notification><Log><BitDefine><Num>3</Num>"
         "<Def1><Bit>0x10</Bit><Name>Motion</Name></Def1>"
         "<Def2><Bit>0x3</Bit><Name>Door, front</Name></Def2>"
         "<Def3><Bit>0x20</Bit><Name>12 V</Name></Def3></BitDefine></Log></Notification>")
WORDS = (["log", "add", "1", "x"], ["log", "list"], ["log", "count"], ["log", "count", "--capacity"],
         ["log", "follow", "--rounds", "0"])


def start(device, size):
    if size:
        device.mount_tmpfs(LOG_FOLDER, size=size)
    else:
        device.outside(LOG_FOLDER).rmdir()
    device.write_document("Notification", NAMES)
    device.start()
    return Tool(device)


@pytest.mark.parametrize("size, capacity, why", [
    ("3g", -4194816, "the file system of /mnt/database/eventlog/log has 3072 MiB, and from 2 GiB on the "
     "reckoning in 32 bits overflows"),
    ("4g", -512, "the file system of /mnt/database/eventlog/log has 4096 MiB"),
    ("64k", -256, "the file system of /mnt/database/eventlog/log has 64 KiB, and at least 129 are needed"),
    (None, 0, "/mnt/database/eventlog is not there; make it and start the service again")])
def test_a_log_that_keeps_nothing_says_why_and_what_to_do(device, size, capacity, why):
    tool = start(device, size)
    for words in WORDS:
        finished = tool(*words)
        assert finished.status == 16, (words, finished)
        assert f"the event log has room for {capacity} events, so it keeps none: {why}" in finished.stderr
        assert (size is None) is not ("a small file system of its own" in finished.stderr)
    assert tool("log", "count").stdout == "0\n"
    assert tool("log", "count", "--capacity").stdout == f"{capacity}\n"
    (warning,) = [one for one in tool.json("doctor", status=10)["findings"] if one["topic"] == "log"]
    assert warning["state"] == "warning" and why in warning["text"]
    assert tool.json("stats")["log_capacity"] == capacity


def test_names_are_taken_as_they_are_listed(device):
    tool = start(device, "1m")
    assert tool("log", "add", "Motion", "a").status == 0
    assert tool("log", "add", "Door, front,12 V", "b").status == 0
    assert tool("log", "add", "Motion,Door, front", "c").status == 0
    assert tool("log", "add", "12 V", "d").status == 0
    listed = tool.json("log", "list")
    assert [(one["text"], one["type"]) for one in listed] == [
        ("d", 0x20), ("c", 0x13), ("b", 0x23), ("a", 0x10)]
    for one in listed:
        again = tool.json("log", "list", "--mask", ",".join(one["names"]))
        assert one["text"] in [other["text"] for other in again]
    assert [one["text"] for one in tool.json("log", "list", "--mask", "Motion")] == ["c", "a"]
    assert [one["text"] for one in tool.json("log", "list", "--mask", "Motion,12 V")] == ["d", "c", "b", "a"]


def test_a_type_that_there_is_not_is_told_with_those_there_are(device):
    tool = start(device, "1m")
    for words in (["log", "add", "Moton", "x"], ["log", "list", "--mask", "Motion,Moton"],
                  ["log", "follow", "--mask", "Moton", "--rounds", "0"]):
        finished = tool(*words)
        assert (finished.status, finished.stderr) == (1, (
            "veltrancordctl: Moton: is neither a number, as in 16 or 0x10, nor the name of a type; there "
            "are: Motion, Door, front, 12 V\n")), finished
    assert tool("log", "add", "0x100000000", "x").status == 2
    assert tool("log", "add", "", "x").status == 1
    assert tool("log", "count").stdout == "0\n"
    tool.device.stop()
    assert tool("log", "add", "Motion", "x", "--timeout", "0.05").status == 8
