"""./dev: what its commands tell of themselves; and its tests, with the build and the tests themselves
replaced by programs that say what they are told."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
RECORD = '#!/bin/sh\necho "$(basename "$0") $*" >>"$DEV_CALLS"\n'


@pytest.fixture
def dev(tmp_path):
    """Runs ./dev in a copy of its scripts. Return: (status, the calls made, one line each)."""
    tree, record = tmp_path / "tree", tmp_path / "calls"
    shutil.copytree(ROOT / "tools", tree / "tools")
    shutil.copy(ROOT / "dev", tree)
    for command in ("setup", "build"):
        (tree / "tools/commands" / command).write_text(RECORD)
    for name in ("leaf", "store"):
        (tree / "src" / name).mkdir(parents=True)
        (tree / "src" / name / "path_test.cpp").write_text("")
    programs = tree / "build/bin"
    programs.mkdir(parents=True)
    paths = [programs / "store_test", tmp_path / "path/ctest", tmp_path / "path/python3"]
    paths[1].parent.mkdir()
    for path in paths:
        path.write_text(RECORD)
        path.chmod(0o755)
    script = tree / "tools/commands/test"
    script.write_text(script.read_text().replace("/usr/bin/python3", "python3"))

    def run(*arguments):
        record.write_text("")
        done = subprocess.run(
            ["bash", tree / "dev", *arguments], check=False, capture_output=True, text=True,
            env={"PATH": f"{tmp_path / 'path'}:{os.environ['PATH']}", "DEV_CALLS": str(record)})
        return done.returncode, record.read_text().splitlines()

    return run


def test_the_unit_tests_of_a_folder_build_and_run_nothing_else(dev):
    status, calls = dev("test", "--unit", "store", "--", "--gtest_filter=Path.*")
    assert status == 0
    assert calls == ["build release store_test", "store_test --gtest_brief=1 --gtest_filter=Path.*"]


def test_a_folder_without_unit_tests_is_told(dev):
    status, calls = dev("test", "--unit", "stores")
    assert status == 2 and calls == []


def test_tests_by_name_run_without_the_unit_tests(dev):
    status, calls = dev("test", "--", "-k", "framing")
    assert status == 0
    assert [call.split()[0] for call in calls] == ["build", "python3"]
    assert calls[0] == "build release Veltrancord client_programs fault_library"
    assert calls[1].endswith(" -k framing")


def test_all_tests_are_the_unit_tests_and_the_suite(dev):
    status, calls = dev("test")
    assert status == 0
    assert [call.split()[0] for call in calls] == ["build", "ctest", "python3"]
    assert calls[0] == "build release"


@pytest.mark.parametrize("command", [path.name for path in (ROOT / "tools/commands").iterdir()])
@pytest.mark.parametrize("option", ["--help", "-h"])
def test_every_command_tells_of_itself_and_does_nothing(dev, command, option):
    status, calls = dev(command, option)
    assert (status, calls) == (0, [])
    told = subprocess.run([ROOT / "dev", command, option], capture_output=True, text=True, check=True)
    comment = (ROOT / "tools/commands" / command).read_text().splitlines()[1]
    assert told.stdout.splitlines()[0] == comment.removeprefix("# ")
    assert told.stderr == "" and "set -euo" not in told.stdout


def test_help_behind_two_dashes_is_the_tests_own(dev):
    status, calls = dev("test", "--", "--help")
    assert status == 0
    assert calls[1].endswith(" --help")


def test_the_service_is_run_when_it_and_the_tool_are_built(dev):
    """The stand-in for the build leaves no program, so nothing is started."""
    status, calls = dev("run")
    assert status != 0
    assert calls[0] == "build release Veltrancord veltrancordctl"
    status, calls = dev("run", "tsan")
    assert status != 0
    assert calls[0] == "build tsan Veltrancord"
