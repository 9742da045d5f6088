"""The samples of the manuals: every block of code of the documents and the manual pages.

A block between fences says what it is; CONTRIBUTING.md tells what is done with each kind. The literal
displays of the manual pages are C or C++ where they include a header, scripts otherwise.
"""

import re
from typing import NamedTuple

from device import REPOSITORY

FOLDERS = ("docs", "examples", "tests", "fuzz", "client", "bench", "packaging", "tools")


class Sample(NamedTuple):
    document: str  # path in the repository
    section: str  # the heading that it stands under
    line: int
    kind: str
    text: str

    def __str__(self):
        return f"{self.document}:{self.line}"

    @property
    def place(self):
        return self.document, self.section

    @property
    def commands(self):
        """The command lines of a script or a console, without comments."""
        lines = self.text.splitlines()
        if self.kind == "console":
            return [line[2:] for line in lines if line.startswith("$ ")]
        lines = (re.sub(r"\s+# .*$", "", line).rstrip() for line in lines)
        return [line for line in lines if line]

    @property
    def conversation(self):
        """Of a console: (command, what it prints) for each command line."""
        parts = re.split(r"^\$ (.*)\n?", self.text + "\n", flags=re.MULTILINE)
        assert not parts[0], f"{self}: an output without a command"
        return list(zip(parts[1::2], parts[2::2]))


def _of_markdown(path):
    name = str(path.relative_to(REPOSITORY))
    section, kind, block, start, before = "", None, [], 0, ""
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if kind is None and line.startswith("```"):
            assert line[3:], f"{name}:{number}: a block that does not say what it is"
            kind, block, start = line[3:], [], number
        elif kind is not None and line == "```":
            yield Sample(name, section, start, kind, "\n".join(block))
            kind = None
        elif kind is not None:
            block.append(line)
        elif line.startswith("#"):
            section = line.lstrip("# ")
        else:
            assert before or not line.startswith("    "), f"{name}:{number}: a block without fences"
        before = line
    assert kind is None, f"{name}: a fence that is not closed"


def _of_page(path):
    name = str(path.relative_to(REPOSITORY))
    section, block = "", None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith(".Sh "):
            section = line[4:]
        elif line.startswith((".Bd", ".EX")):
            block = []
        elif line in (".Ed", ".EE"):
            text = "\n".join(block).replace("\\e", "\\").replace("\\&", "")
            kind = "c" if "#include" in text else "console" if text.startswith("$ ") else "sh"
            yield Sample(name, section, number, kind, text)
            block = None
        elif block is not None:
            block.append(line)
        assert not re.match(r"\.D[l1] ", line), f"{name}:{number}: a line that no test would find"
    assert block is None, f"{name}: a display that is not closed"


def all_samples():
    """Every sample there is, in order."""
    documents = [*REPOSITORY.glob("*.md"),
                 *(path for folder in FOLDERS for path in (REPOSITORY / folder).rglob("*.md"))]
    samples = [sample for path in sorted(documents) for sample in _of_markdown(path)]
    for path in sorted((REPOSITORY / "client/man").glob("*.[1-8]")):
        samples += _of_page(path)
    return samples
