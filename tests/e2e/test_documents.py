"""The manuals tell the truth: their commands run, their messages and bounds are the code's."""

import re

import pytest

from device import REPOSITORY

OPERATIONS = REPOSITORY / "docs/operations.md"
LIMITS = REPOSITORY / "docs/limits.md"


def literals():
    """The texts between quotes in the sources of the service: file and text."""
    for source in sorted((REPOSITORY / "src").rglob("*.*")):
        if source.suffix not in (".cpp", ".h") or re.search(r"_test\.|_fixture\.|_model\.", source.name):
            continue
        code = re.sub(r"//.*", "", source.read_text())
        code = re.sub(r"'(?:[^'\\]|\\.)'", "", code)  # single characters
        for text in re.findall(r'"((?:[^"\\\n]|\\.)*)"', code):
            yield source.name, text


# Texts with blanks in them that no process of the service prints as a message of its own.
NO_MESSAGE = {
    "POWER USER": "the name of a group",
    "<?xml ": "a part of a saved document",
    "Unknown error": "the system's word where it has none",
    "VELTRANCORD_VALUE_KEY must have exactly 7 bytes": "told by the compiler",
    "@(#)Veltrancord ": "the version, which stands in the program's file",
    "no namespace of its own can be had here": "of a test",
    "(not loaded)": "of a test",
}


def test_every_message_has_its_cause_and_remedy():
    """Whatever has a blank or an exclamation mark between letters could be printed."""
    listed = re.sub(r"\s+", " ", OPERATIONS.read_text())
    descriptions = (REPOSITORY / "src/service/commands.cpp").read_text()
    missing = []
    count = 0
    for name, text in literals():
        if not re.search(r"[A-Za-z].*[ !]|\w \w", text) or text in NO_MESSAGE or (
                name == "commands.cpp" and f', "{text}"}}' in descriptions):
            continue
        pieces = re.split(r"%[-0-9.*]*[a-z]+", text.replace("\\n", " ").replace('\\"', '"'))
        longest = max((piece.strip() for piece in pieces), key=len)
        count += 1
        if len(longest) > 2 and longest not in listed:
            missing.append((name, text))
    assert not missing
    assert count > 70


def test_every_setting_attribute_and_file_is_in_the_configuration_manual():
    manual = (REPOSITORY / "docs/configuration.md").read_text()
    page = (REPOSITORY / "client/man/veltrancord.5").read_text().replace("%d", "<n>").replace("%s", "<n>")
    found = set()
    for _, text in literals():
        if re.fullmatch(r"(Account|Notification)(\.[A-Za-z]+)+\.?|\.[A-Z][A-Za-z]*|/(tmp|mnt|bin)/[\w./-]+",
                        text) and text not in ("/bin/sh", "/tmp/trigger"):
            found.add(text.removeprefix("."))
    for source in (REPOSITORY / "src").rglob("*.cpp"):
        if not source.name.endswith("_test.cpp"):
            found |= set(re.findall(r'Attribute\("(\w+)"', source.read_text()))
    assert {"Account.Maxuser", "RelatedPermit", "DispatchW", "/tmp/alert_notify"} <= found
    assert len(found) > 30
    assert not [text for text in found if text not in manual]
    hidden = {"Account.LocalPassword", "Account.OperatorPassword"}  # prefixes, told in the manual alone
    assert not [text for text in found - hidden if text.rstrip(".") not in page
                and not text.startswith("/tmp/xmltemp")]


def test_links_between_the_manuals_lead_somewhere():
    documents = [*REPOSITORY.glob("*.md"), REPOSITORY / "examples/README.md",
                 *(REPOSITORY / "docs").glob("*.md")]
    assert len(documents) > 15
    for document in documents:
        for target in re.findall(r"\]\(([^)#]+)(?:#[\w-]*)?\)", document.read_text()):
            if not target.startswith(("http:", "https:")):
                assert (document.parent / target).exists(), (document.name, target)


def test_the_index_lists_every_document_and_page():
    index = (REPOSITORY / "docs/README.md").read_text()
    for document in (REPOSITORY / "docs").glob("*.md"):
        assert document.name == "README.md" or f"]({document.name})" in index, document.name
    for page in (REPOSITORY / "client/man").glob("*.[1-8]"):
        assert f"`{page.stem}({page.suffix[1:]})`" in index, page.name


def test_no_licence_is_claimed_before_one_is_chosen():
    for name in ("CONTRIBUTING.md", "CHANGELOG.md", "packaging/debian/copyright"):
        assert "No licence has been chosen yet" in (REPOSITORY / name).read_text(), name
    texts = [*REPOSITORY.glob("*.md"), *(REPOSITORY / "docs").glob("*.md"),
             *(REPOSITORY / "packaging/debian").iterdir(), *(REPOSITORY / "client").rglob("*.toml")]
    assert not [(text.name, claim) for text in texts for claim in re.findall(
        r"\bFork\b|[Aa]ll rights reserved|Proprietary|License ::|\b(?:GPL|MIT|Apache|BSD)\b",
        text.read_text())]


def test_every_file_that_the_manuals_name_is_there():
    """Paths of the tree in backquotes; a name behind a comma is of the same folder."""
    for document in [*REPOSITORY.glob("*.md"), *(REPOSITORY / "docs").glob("*.md")]:
        for path in re.findall(r"`((?:src|tests|tools|docs|examples|client|packaging|fuzz|bench|cmake)/"
                               r"[\w./-]+)`", document.read_text()):
            assert (REPOSITORY / path).exists(), (document.name, path)


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


def test_every_command_is_in_the_tables():
    table = (REPOSITORY / "src/service/commands.cpp").read_text()
    commands = re.findall(r'\{"(\w+)", \w+_handle', table)
    assert len(commands) == 35
    protocol = (REPOSITORY / "docs/protocol.md").read_text().split("## Commands")[1].split("\n## ")[0]
    assert sorted(re.findall(r"^\| `(\w+)` \|", protocol, re.MULTILINE)) == sorted(commands)
    page = (REPOSITORY / "client/man/veltrancord.7").read_text().split(".Ss Commands")[1]
    listed = re.findall(r"\w+", " ".join(re.findall(r"^\.Ic (.*)$", page, re.MULTILINE)))
    assert sorted(listed) == sorted(commands)


def test_the_options_of_the_service_are_told():
    letters = re.search(r'option_letters = "([\w:]+)"', (REPOSITORY / "src/service/options.cpp").read_text())[1]
    options = sorted(letters.replace(":", ""))
    board = (REPOSITORY / "docs/board.md").read_text().split("## Options")[1].split("\n## ")[0]
    assert sorted(re.findall(r"`-(\w)`", board)) == options
    page = (REPOSITORY / "client/man/Veltrancord.8").read_text()
    listed = re.findall(r"\bFl (\w)\b", "\n".join(re.findall(r"^\.It (.*)$", page, re.MULTILINE)))
    assert sorted(listed) == options


def test_the_first_page_is_short_and_leads_to_each_audience():
    text = (REPOSITORY / "README.md").read_text()
    assert len(text.splitlines()) < 80
    index = (REPOSITORY / "docs/README.md").read_text()
    begins = re.findall(r"([\w.]+\.md)\) \| \*\*begin here", index)
    assert begins == ["board.md", "cgi.md", "CONTRIBUTING.md"]
    assert re.findall(r"^- .*?([\w.]+\.md)\)", text, re.MULTILINE) == begins


def test_manual_pages_are_well_formed():
    import shutil
    import subprocess

    if shutil.which("mandoc") is None:
        pytest.skip("mandoc is not installed")
    pages = sorted(str(page) for page in (REPOSITORY / "client/man").glob("*.[1-8]"))
    assert len(pages) == 8
    checked = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", *pages],
                             capture_output=True, text=True, check=False)
    assert checked.returncode == 0, checked.stdout
