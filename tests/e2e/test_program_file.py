"""The program's own file: what an attacker would find switched off, and what it must not need."""

import re
import subprocess
from pathlib import Path

import pytest

pytestmark = pytest.mark.fault("H1")


@pytest.fixture(scope="module")
def program(request):
    return request.config.getoption("--bin")


@pytest.fixture(scope="module")
def hardened(program):
    """The program, where it is a build that ships: sanitizers and hardening exclude each other."""
    symbols = readelf(program, "--dyn-syms", "--symbols")
    if "__asan_init" in symbols or "__tsan_init" in symbols:
        pytest.skip("built with a sanitizer")
    if "__stack_chk_fail" not in symbols and "_chk@" not in symbols:
        build_type = cmake_build_type(program)
        if build_type != "Release":
            pytest.skip(f"not a release build but {build_type}")
    return program


def readelf(program, *what):
    done = subprocess.run(["readelf", "-W", *what, program], capture_output=True, text=True, check=True)
    return done.stdout


def cmake_build_type(program):
    """From the cache beside the program; a program that stands alone counts as a release."""
    try:
        with open(program.rsplit("/bin/", 1)[0] + "/CMakeCache.txt", encoding="utf-8") as cache:
            found = re.search(r"^CMAKE_BUILD_TYPE:\w+=(.*)$", cache.read(), re.MULTILINE)
    except OSError:
        return "Release"
    return found.group(1) if found else "Release"


def test_it_can_be_loaded_anywhere(hardened):
    assert re.search(r"Type:\s+DYN", readelf(hardened, "-h"))
    assert re.search(r"\(FLAGS_1\).*\bPIE\b", readelf(hardened, "-d"))


def test_its_tables_of_addresses_are_read_only_once_it_runs(hardened):
    assert "GNU_RELRO" in readelf(hardened, "-l")
    assert re.search(r"\(FLAGS_1\).*\bNOW\b", readelf(hardened, "-d"))


def test_its_stack_holds_no_code(hardened):
    flags = re.search(r"GNU_STACK(?:\s+0x[0-9a-f]+){5}\s+(\S+)", readelf(hardened, "-l"))
    assert flags and flags.group(1) == "RW"


def test_no_segment_is_both_writable_and_executable(hardened):
    loads = re.findall(r"LOAD(?:\s+0x[0-9a-f]+){5}\s+(.*?)\s+0x", readelf(hardened, "-l"))
    assert loads
    assert not [flags for flags in loads if "W" in flags and "E" in flags]


def test_an_overrun_of_the_stack_ends_it(hardened):
    assert "__stack_chk_fail" in readelf(hardened, "--dyn-syms")


def test_the_calls_of_the_c_library_know_their_buffers_sizes(hardened):
    assert re.search(r"__(mem|str|snprintf|vsnprintf|fprintf|printf|read|recv)\w*_chk@",
                     readelf(hardened, "--dyn-syms"))


def test_it_needs_the_parser_and_what_the_compiler_brings_and_nothing_else(hardened):
    needed = re.findall(r"\(NEEDED\).*\[(.+?)\.so", readelf(hardened, "-d"))
    assert "libc" in needed
    assert set(needed) <= {"libtinyxml", "libstdc++", "libgcc_s", "libc", "libm", "libpthread",
                           "ld-linux", "ld-linux-armhf"}


def test_it_looks_for_libraries_where_the_system_says_only(hardened):
    dynamic = readelf(hardened, "-d")
    assert "RPATH" not in dynamic and "RUNPATH" not in dynamic


def test_its_unit_shuts_out_what_it_never_needs_and_always_brings_it_back():
    text = (Path(__file__).parents[2] / "packaging/systemd/veltrancord.service.in").read_text()
    lines = [line for line in text.splitlines() if line and line[0] != "#"]
    settings = dict(line.split("=", 1) for line in lines if "=" in line)
    for name in ("NoNewPrivileges", "ProtectHome", "ProtectControlGroups", "RestrictSUIDSGID",
                 "RestrictRealtime", "LockPersonality", "ProtectSystem"):
        assert settings[name] == "yes", name
    for name in ("LimitNOFILE", "TasksMax", "MemoryMax", "TimeoutStartSec"):
        assert settings[name], name
    # Its status is 1 whenever it ends, by a crash of the worker or because it was told to.
    assert settings["SuccessExitStatus"] == "1" and settings["Restart"] == "always"
    assert settings["ExecStart"].endswith("/Veltrancord -l $VELTRANCORD_OPTIONS")
