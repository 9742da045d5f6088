"""The manuals tell the truth: their commands run, their messages and bounds are the code's."""

import re
import shlex
from pathlib import Path

import pytest

from command_line import Tool
from device import REPOSITORY

OPERATIONS = REPOSITORY / "docs/operations.md"
LIMITS = REPOSITORY / "docs/limits.md"
MANUAL = REPOSITORY / "client/man/veltrancordctl.1"


def commands():
    """Every command line of the manuals, in order."""
    indented = re.findall(r"^    (veltrancordctl .*)$", OPERATIONS.read_text(), re.MULTILINE)
    literal = re.findall(r"^\.Bd -literal\n(.*?)^\.Ed", MANUAL.read_text(), re.MULTILINE | re.DOTALL)
    found = indented + "".join(literal).splitlines()
    assert len(found) > 12
    return found


def test_every_command_line_of_the_manuals_works(sample):
    tool = Tool(sample)
    sample.install_script("/tmp/BackupXmlDB.sh", "#!/bin/sh\n")
    sample.request("writelog:" + "\1\0\0\0" + "\0" * 7 + "x" + "\0" * 20)
    for line in commands():
        finished = tool(*shlex.split(line)[1:])
        assert finished.status == 0, (line, finished)


PRINTING = re.compile(
    r"(?:std::)?\b(?:fprintf|printf|fputs|puts|perror|Fail)\(\s*(?:stderr,\s*)?\"((?:[^\"\\]|\\.)*)\"")


def test_every_message_has_its_cause_and_remedy():
    listed = re.sub(r"\s+", " ", OPERATIONS.read_text())
    missing = []
    count = 0
    for source in sorted((REPOSITORY / "src").rglob("*.cpp")):
        if source.name.endswith("_test.cpp"):
            continue
        for text in PRINTING.findall(source.read_text()):
            pieces = re.split(r"%[-0-9.*]*[a-z]+", text.replace("\\n", " "))
            longest = max((piece.strip() for piece in pieces), key=len)
            count += 1
            if len(longest) > 3 and longest not in listed:
                missing.append((source.name, text))
    assert count > 40
    assert not missing


# A bound of docs/limits.md, the file that holds it, and how it stands there.
BOUNDS = [
    ("path in a request", 511, "src/store/path.h", r"max_path_text = (\d+)"),
    ("path of a written line", 255, "client/include/veltrancord/client.h", r"MAX_WRITE_PATH = (\d+)"),
    ("value of a written line", 4095, "client/include/veltrancord/client.h", r"MAX_VALUE = (\d+)"),
    ("value of a written attribute line", 255, "client/include/veltrancord/client.h",
     r"MAX_ATTRIBUTE_VALUE = (\d+)"),
    ("attribute name in a query", 63, "client/include/veltrancord/client.h",
     r"MAX_ATTRIBUTE_NAME = (\d+)"),
    ("reply text of the reading commands", 262144, "src/store/reply_capacity.h",
     r"min_reply_capacity = (\d+)"),
    ("file named to `upload`", 255, "client/include/veltrancord/client.h",
     r"MAX_UPLOAD_FILE_NAME = (\d+)"),
    ("file named to `download`", 255, "client/include/veltrancord/client.h",
     r"MAX_DOWNLOAD_FILE_NAME = (\d+)"),
    ("file named to `restore`, `syncxml`", 127, "client/include/veltrancord/client.h",
     r"MAX_RESTORE_FILE_NAME = (\d+)"),
    ("text for the backup script", 256, "client/include/veltrancord/client.h",
     r"MAX_BACKUP_TEXT = (\d+)"),
    ("detail text of an event", 15, "client/include/veltrancord/client.h", r"MAX_LOG_TEXT = (\d+)"),
    ("field of `readlog`", 7, "client/include/veltrancord/client.h", r"MAX_LOG_FIELD = (\d+)"),
]


@pytest.mark.parametrize("what, number, file, pattern", BOUNDS)
def test_the_bounds_of_the_manual_are_those_of_the_code(what, number, file, pattern):
    row = next(line for line in LIMITS.read_text().splitlines() if line.startswith(f"| {what} |"))
    assert str(number) in row
    assert re.search(pattern, (REPOSITORY / file).read_text()).group(1) == str(number)


def test_the_sides_of_the_wire_agree_on_every_bound(service):
    """What the library lets through at its bound the service takes; one byte more it would not."""
    device = service({"A": "<A><B>x</B></A>"})
    assert device.request("write:A.B=" + "v" * 4095).code == 1
    assert device.request("write:A.B=" + "v" * 4096).code == -7
    assert device.request("write:A." + "b" * 253 + "=1").code == 1
    assert device.request("write:A." + "b" * 254 + "=1").code == -7
    assert device.request("writeattr:A.B.N=" + "v" * 255).code == 1
    assert device.request("writeattr:A.B.N=" + "v" * 256).code == -7
    assert device.request("write:A.Password=" + "p" * 183).code == 1
    assert device.request("write:A.Password=" + "p" * 184).code == -11
    assert device.request("upload:/" + "u" * 255).code == -3
    assert device.request("download:/tmp/" + "u" * 250).code == 0
    assert device.request("download:/tmp/" + "u" * 251).code == -1


def test_manual_pages_are_well_formed():
    import shutil
    import subprocess

    if shutil.which("mandoc") is None:
        pytest.skip("mandoc is not installed")
    pages = sorted(str(page) for page in (REPOSITORY / "client/man").glob("*.[1-8]"))
    assert len(pages) == 5
    checked = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", *pages],
                             capture_output=True, text=True, check=False)
    assert checked.returncode == 0, checked.stdout
