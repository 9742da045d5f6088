"""veltrancordctl history and undo."""

import json
import os
import stat

import pytest

from command_line import STATE, Tool
from device import CONFIGURATION, wait_until

NETWORK = ('<Network><Lan Level="3"><Mtu>1500</Mtu><Dhcp>YES</Dhcp></Lan>'
           "<Wlan><Key>k</Key><Mode/></Wlan></Network>")


@pytest.fixture
def tool(service):
    return Tool(service({"Network": NETWORK}))


def newest(tool):
    return tool.json("history", "--count", "1")[0]


def undone(tool, *words):
    finished = tool("undo", *words)
    assert finished.status == 0, finished
    return finished.stdout


def test_a_number_that_has_no_next_is_no_entry(tool):
    line = json.dumps({"number": (1 << 63) - 1, "time": 1, "user": "x", "command": "y", "changes": []})
    tool.device.make_directory(STATE)
    tool.device.write_file(f"{STATE}/history", line + "\n")
    assert tool("set", "Network.Lan.Mtu", "1400").status == 0
    assert [one["number"] for one in tool.json("history")] == [1]


def test_a_lock_that_is_never_given_up_holds_no_change_up(tool):
    device = tool.device
    device.make_directory(STATE)
    holder, _ = device.launch("flock", f"{STATE}/history.lock", "sh", "-c", "echo > /tmp/held; exec sleep 600")
    device.wait_for_file("/tmp/held")
    changed = tool("set", "Network.Lan.Mtu", "1400")
    assert changed.status == 0 and "history" in changed.stderr, changed
    assert tool("get", "Network.Lan.Mtu").stdout == "1400\n"
    for process in [holder, *device.children_of(holder)]:
        device.send_signal(process, 9)


def test_history_tells_what_when_by_whom_and_how(tool):
    assert tool("history").status == 4
    assert tool("set", "Network.Lan.Mtu", "1400").status == 0
    assert tool("set", "Network.Lan.Dhcp=NO", "Network.Lan.Mtu=1300").status == 0
    entries = tool.json("history")
    assert [one["number"] for one in entries] == [2, 1]
    assert entries[1]["changes"] == [{"path": "Network.Lan.Mtu", "attribute": False,
                                      "before": "1500", "after": "1400"}]
    assert entries[1]["command"] == "veltrancordctl set Network.Lan.Mtu 1400"
    assert entries[1]["user"] and entries[1]["time"] > 1_700_000_000
    text = tool("history").stdout.splitlines()
    assert text[0].startswith("2  20") and text[0].endswith(
        "veltrancordctl set Network.Lan.Dhcp=NO Network.Lan.Mtu=1300")
    assert text[1:5] == ["-Network.Lan.Dhcp=YES", "+Network.Lan.Dhcp=NO",
                         "-Network.Lan.Mtu=1400", "+Network.Lan.Mtu=1300"]
    assert len(tool.json("history", "Network.Lan.Dhcp")) == 1
    assert tool("history", "Network.Wlan").status == 4


def test_what_changes_nothing_is_no_change(tool):
    assert tool("set", "Network.Lan.Mtu", "1500").status == 0
    assert tool("set", "Network.None", "1").status == 1
    assert tool("history").status == 4


def test_undo_goes_back_change_by_change(tool):
    for value in ("1", "2", "3"):
        tool("set", "Network.Lan.Mtu", value)
    assert undone(tool) == "-Network.Lan.Mtu=3\n+Network.Lan.Mtu=2\n"
    assert undone(tool) == "-Network.Lan.Mtu=2\n+Network.Lan.Mtu=1\n"
    assert newest(tool)["undoes"] == 2
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    assert tool("undo").status == 1
    undone(tool, "6")  # takes the last one back: 1 is in effect again
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"


def test_undo_refuses_what_was_changed_again(tool):
    tool("set", "Network.Lan.Mtu", "1400")
    tool("set", "Network.Lan.Dhcp", "NO")
    tool.device.request("write:Network.Lan.Mtu=1300")
    refused = tool("undo", "1")
    assert refused.status == 10 and "Network.Lan.Mtu: has been changed since" in refused.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "1300\n"
    assert undone(tool, "1", "--force", "--dry-run") == "-Network.Lan.Mtu=1400\n+Network.Lan.Mtu=1500\n"
    assert tool("get", "Network.Lan.Mtu").stdout == "1300\n"
    undone(tool, "1", "--force")
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"


def test_undo_of_a_creation_removes_what_was_made(tool):
    tool("set", "Network.Lan.Mtu", "1400")  # the service lays the file out anew
    before = tool.device.read_document("Network")
    tool("set", "--create", "Network.New.Deep.A=1", "Network.New.B=2", "Network.Lan.C=3")
    undone(tool)
    assert tool("get", "Network.New.*").status == 1
    assert tool.device.read_document("Network") == before


def test_undo_of_a_creation_leaves_what_came_later(tool):
    tool("set", "--create", "Network.New.A", "1")
    tool.device.request("write:Network.New.Other=2")
    undone(tool)
    assert tool("get", "Network.New.*").stdout == "Network.New.Other=2\n"


def test_undo_of_a_removal_brings_all_of_it_back(tool):
    tool("attr", "set", "Network.Lan.Mtu.Unit=byte")
    assert tool("unset", "Network.Lan", "--yes").status == 0
    undone(tool)
    assert tool("get", "Network.Lan.*").stdout.split() == ["Network.Lan.Dhcp=YES", "Network.Lan.Mtu=1500"]
    assert tool("attr", "get", "Network.Lan.Level").stdout == "3\n"
    assert tool("attr", "get", "Network.Lan.Mtu.Unit").stdout == "byte\n"


def test_undo_of_an_empty_elements_removal(tool):
    assert tool("unset", "Network.Wlan.Mode", "--yes").status == 0
    undone(tool)
    assert tool("get", "Network.Wlan.Mode").stdout == "\n"


def test_attributes_and_values_that_were_empty(tool):
    tool("attr", "set", "Network.Lan.Level", "5")
    assert newest(tool)["changes"] == [{"path": "Network.Lan.Level", "attribute": True,
                                        "before": "3", "after": "5"}]
    undone(tool)
    assert tool("attr", "get", "Network.Lan.Level").stdout == "3\n"
    tool("set", "Network.Wlan.Mode", "ap")
    undone(tool)
    assert tool("get", "Network.Wlan.Mode").stdout == "\n"
    tool("attr", "set", "Network.Lan.New=1")
    refused = tool("undo")
    assert refused.status == 5 and "Network.Lan.New: an attribute cannot be removed" in refused.stderr


def test_secrets_are_masked_and_cannot_be_undone(tool):
    path = "Network.Wlan.Password"
    assert tool("set", "--create", path, "-", stdin="geheim1").status == 0
    assert tool("set", path + "=-", "Network.Lan.Mtu=1", stdin="geheim2").status == 0
    history = tool.device.read_file(STATE + "/history")
    assert b"geheim" not in history and b"********" in history
    refused = tool("undo")
    assert refused.status == 5
    assert f"{path}: a secret is not kept in the history" in refused.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"  # the rest of it is undone
    assert tool("get", path, "--reveal").stdout == "geheim2\n"
    undone(tool, "1")  # its creation can be
    assert tool("get", path).status == 1


def test_whole_documents_raw_requests_and_memory(tool):
    tool("dump", "/tmp/all")
    tool("set", "Network.Lan.Mtu", "1")
    tool("load", "/tmp/all", "--yes")
    assert newest(tool)["changes"][0]["after"] == "1500"
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"
    tool("raw", "write", "-", stdin="Network.Lan.Mtu=2")
    assert undone(tool) == "-Network.Lan.Mtu=2\n+Network.Lan.Mtu=1\n"
    saved = tool.device.read_document("Network")
    tool("set", "--memory", "Network.Lan.Mtu", "3")
    assert newest(tool)["memory"] is True
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"
    assert tool.device.read_document("Network") == saved
    assert tool("merge", "/tmp/all", "--yes").status == 0
    assert newest(tool)["command"] == "veltrancordctl merge /tmp/all --yes"
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1\n"


def test_bytes_that_are_no_text_are_told_but_not_undone(tool):
    tool.device.request(b"write:Network.Lan.Mtu=\xff\xfe")
    tool("set", "Network.Lan.Mtu", "1")
    refused = tool("undo")
    assert refused.status == 5 and "cannot be written" in refused.stderr


def test_many_lines_are_one_change(tool):
    lines = "".join(f"Network.Many.V{n}={n}\n" for n in range(100))
    tool("set", "-", "--create", stdin=lines)
    assert len(newest(tool)["changes"]) == 100
    undone(tool)
    assert tool("get", "Network.Many.*").status == 1


def test_the_history_is_bounded(tool):
    state = tool.device.outside(STATE + "/history")
    tool("set", "Network.Lan.Mtu", "1")
    line = json.loads(state.read_text().splitlines()[0])
    line["changes"][0]["after"] = "x" * 10_000
    with state.open("a") as file:
        for number in range(2, 200):
            line["number"] = number
            if file.tell() < (1 << 20) - 11_000:
                file.write(json.dumps(line) + "\n")
    assert state.stat().st_size > 1_000_000
    last = tool.json("history")[0]["number"]
    for value in range(2, 60):
        assert tool("set", "Network.Lan.Mtu", str(value) + "y" * 1000).status == 0
    assert state.stat().st_size < 700_000
    entries = tool.json("history")
    assert entries[0]["number"] == last + 58 and len(entries) > 60
    # One that is too large on its own is not kept whole.
    lines = "".join(f"Network.Many.V{n}={'v' * 4000}\n" for n in range(20))
    tool("set", "-", "--create", stdin=lines)
    assert newest(tool)["whole"] is False
    assert tool("undo").status == 5


def test_a_line_that_a_power_cut_left_is_passed_over(tool):
    tool("set", "Network.Lan.Mtu", "1")
    state = tool.device.outside(STATE + "/history")
    state.write_text(state.read_text() + '{"number":2,"ti')
    tool("set", "Network.Lan.Mtu", "2")
    assert [one["number"] for one in tool.json("history")] == [2, 1]


def test_a_history_that_cannot_be_written_keeps_nobody_from_changing(tool):
    tool("set", "Network.Lan.Mtu", "1")
    history = tool.device.outside(STATE + "/history")
    history.unlink()
    history.symlink_to("/tmp/elsewhere")
    changed = tool("set", "Network.Lan.Mtu", "2")
    assert changed.status == 0 and "the change is not in the history" in changed.stderr
    assert tool("get", "Network.Lan.Mtu").stdout == "2\n"
    assert not tool.device.file_exists("/tmp/elsewhere")


def test_the_shared_folders_files_are_for_its_group(tool):
    folder = tool.device.outside("/tmp/state")
    folder.mkdir(exist_ok=True)
    tool("set", "Network.Lan.Mtu", "1")
    for name in ("history", "history.lock", "changes.lock"):
        status = (folder / name).stat()
        assert stat.S_IMODE(status.st_mode) == 0o660
        assert status.st_gid == os.stat(folder).st_gid


def test_a_change_that_fails_midway_is_recorded_as_far_as_it_went(tool):
    tool("set", "--create", "Network.Lan.Mtu=1", "Network.1st=2")
    assert newest(tool)["changes"] == [{"path": "Network.Lan.Mtu", "attribute": False,
                                        "before": "1500", "after": "1"}]


def test_a_document_that_was_removed_comes_back(tool):
    tool("unset", "Network.*", "--yes")
    assert not tool.device.file_exists(CONFIGURATION + "/Network")
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"


def test_a_document_that_was_made_goes_again(tool):
    assert tool("set", "--create", "Fresh.A.B", "1").status == 0
    undone(tool)
    assert not tool.device.file_exists(CONFIGURATION + "/Fresh")


@pytest.fixture
def recorder(tool):
    """The unit's command, beside the tool."""
    process = tool.outside("watch", "--record", "--directory",
                           str(tool.device.outside(CONFIGURATION)),
                           env={"VELTRANCORD_STATE": str(tool.device.outside(STATE))})
    line = process.stderr.readline()
    assert "watching" in line, line
    yield process
    process.kill()
    process.communicate()


def test_changes_by_others_are_recorded_too(tool, recorder):
    def entries():
        listed = tool("history", "--json")
        return json.loads(listed.stdout) if listed.status == 0 else []

    tool.device.request("write:Network.Lan.Mtu=1400")
    wait_until(lambda: len(entries()) == 1, "the change was recorded")
    assert entries()[0]["command"] is None and entries()[0]["user"] is None
    assert "not by this tool" in tool("history").stdout
    undone(tool)
    assert tool("get", "Network.Lan.Mtu").stdout == "1500\n"
    # What the tool records itself is not recorded twice: the next entry is that of the change behind.
    tool("set", "Network.Lan.Mtu", "1300")
    tool("set", "--create", "Network.Wlan.Password", "-", stdin="geheim")
    tool.device.request("write:Network.Lan.Dhcp=NO")
    wait_until(lambda: entries()[0]["command"] is None, "the last change was recorded")
    told = [(one["command"] or "others").split()[-1] for one in entries()]
    assert told == ["others", "-", "1300", "undo", "others"], entries()
    tool.device.request("writeattr:Network.Lan.Level=9")
    wait_until(lambda: len(entries()) == 6, "the attribute was recorded")
    assert entries()[0]["changes"][0]["attribute"] is True
    tool.device.request("write:Network.Wlan.Password=neu")
    wait_until(lambda: len(entries()) == 7, "the secret was recorded")
    assert entries()[0]["changes"][0]["after"] == "********"
