"""The samples of the manuals: every block of code in README.md, docs and the manual pages.

A block between fences says what it is: ```sh, ```c, ```python, ```xml, ```requests (a request and
its result on each line), ```hex (bytes as they go over the wire), ```text (a drawing or an output:
no sample). A block that is indented by four blanks counts as ```sh; so do the literal displays of
the manual pages' EXAMPLES.
"""

import re
from typing import NamedTuple

from device import REPOSITORY


class Sample(NamedTuple):
    document: str  # path in the repository
    section: str  # the heading that it stands under
    line: int
    kind: str
    text: str

    def __str__(self):
        return f"{self.document}:{self.line}"

    @property
    def commands(self):
        """The lines of a script, without comments."""
        lines = (re.sub(r"\s+# .*$", "", line).rstrip() for line in self.text.splitlines())
        return [line for line in lines if line]


def _of_markdown(path):
    name = str(path.relative_to(REPOSITORY))
    section, kind, block, start, before = "", None, [], 0, ""
    for number, line in enumerate(path.read_text().splitlines() + [""], 1):
        if kind is None and line.startswith("```"):
            assert line[3:], f"{name}:{number}: a block that does not say what it is"
            kind, block, start = line[3:], [], number
        elif kind == "indented" and not line.startswith("    "):
            if line:
                yield Sample(name, section, start, "sh", "\n".join(block))
                kind = None
        elif kind is not None and kind != "indented" and line == "```":
            yield Sample(name, section, start, kind, "\n".join(block))
            kind = None
        elif kind is not None:
            block.append(line[4:] if kind == "indented" else line)
        elif line.startswith("#"):
            section = line.lstrip("# ")
        elif line.startswith("    ") and not before:
            kind, block, start = "indented", [line[4:]], number
        before = line
    assert kind in (None, "indented"), f"{name}: a fence that is not closed"


def _of_page(path):
    name = str(path.relative_to(REPOSITORY))
    section, block = "", None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith(".Sh "):
            section = line[4:]
        elif line == ".Bd -literal":
            block = []
        elif line == ".Ed" and block is not None:
            kind = "c" if any("#include" in one for one in block) else "sh"
            yield Sample(name, section, number, kind, "\n".join(block).replace("\\e", "\\").replace("\\&", ""))
            block = None
        elif block is not None:
            block.append(line)


def all_samples():
    """Every sample there is, in order."""
    documents = [REPOSITORY / "README.md", *sorted((REPOSITORY / "docs").glob("*.md"))]
    samples = [sample for path in documents for sample in _of_markdown(path)]
    for path in sorted((REPOSITORY / "client/man").glob("*.[1-8]")):
        samples += _of_page(path)
    return [sample for sample in samples if sample.kind != "text"]
