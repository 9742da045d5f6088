"""veltrancordctl stats: the service in numbers."""

import os
import re
import shutil
import signal
import subprocess

import pytest

from command_line import Tool
from device import REPOSITORY, wait_until

VERSION = re.search(r"project\(Veltrancord VERSION ([\d.]+)", (REPOSITORY / "CMakeLists.txt").read_text())[1]
PROCESS = {"start_time_seconds", "cpu_seconds_total", "resident_memory_bytes", "open_fds", "max_fds"}
ALL = {"up", "answer_seconds", "documents", "documents_unsaved", "log_entries", "log_capacity", "clients",
       "directory_free_bytes", "worker_restarted"} | {
           f"{role}_{name}" for role in ("supervisor", "worker") for name in PROCESS}


@pytest.fixture
def tool(service):
    return Tool(service({"Network": "<Network><A>1</A></Network>", "System": "<System><B>2</B></System>"},
                        "-l"))


def samples(text):
    """What a text in the format of Prometheus holds, {name with labels: value}, and the type of each
    name. Raises where it is not to the letter of the format and of the conventions for names."""
    assert text.endswith("\n")
    found, kinds, closed, current = {}, {}, set(), None
    for line in text.splitlines():
        if match := re.fullmatch(r"# HELP ([a-z_]+) ([A-Z][^\\]+\.|[A-Z][^\\]+)", line):
            assert match[1] not in closed and match[1] != current, line
            closed.add(current)
            current = match[1]
        elif match := re.fullmatch(r"# TYPE ([a-z_]+) (gauge|counter)", line):
            assert match[1] == current and current not in kinds, line
            kinds[current] = match[2]
        else:
            match = re.fullmatch(r'([a-z_]+)((?:\{[a-z]+="[\w.]+"\})?) (-?[\d.]+(?:e[+-]\d+)?)', line)
            assert match and match[1] == current and current in kinds, line
            assert match[1] + match[2] not in found, line
            found[match[1] + match[2]] = float(match[3])
    for name, kind in kinds.items():
        assert name.startswith("veltrancord_"), name
        assert (kind == "counter") == name.endswith("_total"), name
    return found, kinds


def test_every_number_that_there_is(tool):
    tool("log", "add", "1", "x")
    numbers = tool.json("stats")
    assert set(numbers) == ALL
    assert all(isinstance(value, (int, float)) for value in numbers.values())
    assert (numbers["up"], numbers["documents"], numbers["documents_unsaved"]) == (1, 2, 0)
    assert (numbers["log_entries"], numbers["log_capacity"], numbers["clients"]) == (1, 1000, 0)
    memory = tool.device.memory_kilobytes(tool.device.worker_pid) * 1024
    assert memory / 4 < numbers["worker_resident_memory_bytes"] < memory * 4
    assert numbers["worker_open_fds"] == len(tool.device.open_descriptors(tool.device.worker_pid))
    assert abs(numbers["worker_start_time_seconds"] - os.stat("/proc/self").st_mtime) < 10**6
    lines = dict(line.rsplit(" ", 1) for line in tool("stats").stdout.splitlines())
    assert set(lines) == ALL and lines["documents"] == "2"
    assert tool.json("doctor", status=10)["numbers"].keys() == ALL


def test_numbers_follow_what_happens(tool):
    device = tool.device
    device.request("writedbmem:System.B=3")
    with device.connect():
        numbers = tool.json("stats")
        assert (numbers["documents_unsaved"], numbers["clients"]) == (1, 1)
    assert numbers["worker_restarted"] == 0
    before = numbers["worker_start_time_seconds"]
    killed = device.kill_worker()
    wait_until(lambda: device.worker_pid != killed and tool("ping").status == 0, "the next one answers")
    after = tool.json("stats")
    assert (after["worker_restarted"], after["documents_unsaved"]) == (1, 0)
    assert after["worker_start_time_seconds"] > before
    assert after["supervisor_start_time_seconds"] == numbers["supervisor_start_time_seconds"]
    device.write_file("/tmp/backup", "x")
    os.utime(device.outside("/tmp/backup"), (5000, 5000))
    assert tool.json("stats", "--backup-file", "/tmp/backup")["last_backup_timestamp_seconds"] == 5000
    assert set(tool.json("stats", "--backup-file", "/tmp/nothing")) == ALL


def test_prometheus_reads_it(tool, tmp_path):
    text = tool("stats", "--prometheus").stdout
    found, kinds = samples(text)
    assert found["veltrancord_up"] == 1 and found["veltrancord_documents"] == 2
    assert found[f'veltrancord_build_info{{version="{VERSION}"}}'] == 1
    assert {name for name in kinds if name.startswith("veltrancord_process_")} == {
        f"veltrancord_process_{name}" for name in PROCESS}
    for role in ("supervisor", "worker"):
        assert found[f'veltrancord_process_open_fds{{process="{role}"}}'] > 0
    numbers = tool.json("stats")
    assert len(found) == len(numbers) + 1  # the version
    assert kinds["veltrancord_process_cpu_seconds_total"] == "counter"


def test_promtool_finds_nothing_to_say(tool):
    promtool = shutil.which("promtool")
    if promtool is None:
        pytest.skip("promtool is not installed")
    checked = subprocess.run([promtool, "check", "metrics"], input=tool("stats", "--prometheus").stdout,
                             capture_output=True, text=True, check=False)
    assert (checked.returncode, checked.stdout, checked.stderr) == (0, "", "")


def test_the_parser_of_the_clients_reads_the_same(tool):
    parser = pytest.importorskip("prometheus_client.parser")
    text = tool("stats", "--prometheus").stdout
    families = list(parser.text_string_to_metric_families(text))
    assert {one.type for one in families} == {"gauge", "counter"}
    assert sum(len(one.samples) for one in families) == len(samples(text)[0])


def test_a_service_that_does_not_answer_is_down(tool):
    tool.device.send_signal(tool.device.worker_pid, signal.SIGSTOP)
    try:
        found = tool("stats", "--prometheus", "--timeout", "0.05")
    finally:
        tool.device.send_signal(tool.device.worker_pid, signal.SIGCONT)
    assert found.status == 8
    numbers, _ = samples(found.stdout)
    assert numbers["veltrancord_up"] == 0
    assert numbers['veltrancord_process_open_fds{process="worker"}'] > 0
    assert "veltrancord_documents" not in numbers
    tool.device.stop()
    gone = tool.json("stats", "--timeout", "0.05", status=8)
    assert gone["up"] == 0 and set(gone) <= {"up", "clients", "directory_free_bytes"}
