"""The configurations that the benchmark runs on: the same bytes at every run."""

from __future__ import annotations

import pathlib
import shutil
from dataclasses import dataclass
from xml.etree import ElementTree

LEAVES_IN_GROUP = 10
FILTER_RULES = 100


@dataclass(frozen=True)
class Dataset:
    """A configuration directory and the paths that the rows read."""

    name: str
    directory: pathlib.Path
    first_leaf: str
    last_leaf: str
    deepest_leaf: str
    document: str  # one whole document, as a path with a wildcard
    subtree: str

    @property
    def size(self) -> int:
        return sum(entry.stat().st_size for entry in self.directory.iterdir())


def value_of(document: int, leaf: int) -> str:
    return f"value-{document:03d}-{leaf:06d}-of-this-setting"


def grouped_document(number: int, size: int) -> tuple[str, int]:
    """A document of about `size` bytes: groups of ten settings, then one deep branch."""
    name = f"Doc{number:03d}"
    lines = [f"<{name}>"]
    total = 0
    leaf = 0
    group = 0
    while total < size - 400:
        lines.append(f'    <Group{group} Level="{group % 5}">')
        for index in range(LEAVES_IN_GROUP):
            lines.append(f"        <Value{index}>{value_of(number, leaf)}</Value{index}>")
            leaf += 1
        lines.append(f"    </Group{group}>")
        total = sum(map(len, lines)) + len(lines) if group % 8 == 0 else total + 640
        group += 1
    lines.append("    <A><B><C><D><Deepest>deepest-value</Deepest></D></C></B></A>")
    lines.append(f"</{name}>")
    return "\n".join(lines) + "\n", group


def flat_document(name: str, elements: int) -> str:
    lines = [f"<{name}>"]
    lines += [f"    <Entry{i}>{value_of(999, i)}</Entry{i}>" for i in range(elements)]
    lines.append(f"</{name}>")
    return "\n".join(lines) + "\n"


def generated(name: str, base: pathlib.Path, documents: int, size: int, flat: int = 0) -> Dataset:
    """`documents` files of `size` bytes in all; one of them has `flat` elements in one level."""
    directory = base / name
    directory.mkdir(parents=True)
    rest = size
    count = documents
    if flat:
        text = flat_document("Flat", flat)
        (directory / "Flat").write_text(text)
        rest -= len(text)
        count -= 1
    groups = 0
    for number in range(count):
        text, groups = grouped_document(number, rest // count)
        (directory / f"Doc{number:03d}").write_text(text)
    last = f"Flat.Entry{flat - 1}" if flat else f"Doc{count - 1:03d}.Group{groups - 1}.Value9"
    return Dataset(
        name,
        directory,
        first_leaf="Flat.Entry0" if flat else "Doc000.Group0.Value0",
        last_leaf=last,
        deepest_leaf="Doc000.A.B.C.D.Deepest",
        document="Doc000.*",
        subtree="Doc000.Group0.*",
    )


def leaves_of(file: pathlib.Path) -> list[str]:
    """The dotted paths of the elements that hold a text, in the order of the file."""
    found = []

    def walk(element: ElementTree.Element, path: str) -> None:
        if len(element) == 0 and (element.text or "").strip():
            found.append(path)
        for child in element:
            walk(child, f"{path}.{child.tag}")

    root = ElementTree.parse(file).getroot()
    walk(root, root.tag)
    # Where a name occurs twice in one place, a path leads to the first alone.
    return [path for path in found if found.count(path) == 1]


def sample(source: pathlib.Path, base: pathlib.Path) -> Dataset:
    directory = base / "sample"
    shutil.copytree(source, directory)
    leaves = [path for file in sorted(directory.iterdir()) for path in leaves_of(file)]
    return Dataset(
        "sample",
        directory,
        first_leaf=leaves[0],
        last_leaf=leaves[-1],
        deepest_leaf=max(leaves, key=lambda path: path.count(".")),
        document="Network.*",
        subtree="Account.User1.*",
    )


def access_document() -> str:
    """Accounts with twenty users, a group, and as many deny-filter rules as are ever read."""
    users = "".join(
        f"<User{n}><Username>user{n}</Username><Level>Operator</Level></User{n}>"
        for n in range(1, 21)
    )
    rules = "".join(
        f"<R{n}><RelatedPermit>Permit1</RelatedPermit>"
        f"<C1><CMD>command{n}</CMD><P1>action{n}</P1></C1></R{n}>"
        for n in range(1, FILTER_RULES + 1)
    )
    return (
        "<Account>"
        f"<Maxuser>20</Maxuser>{users}"
        '<Permission><Define><Permit1 Type="Switch" Value="YES">Reboot</Permit1></Define>'
        "<Group1><Name>Operator</Name><Permit1>YES</Permit1></Group1></Permission>"
        f"<CGIPermitDenyFilter>{rules}</CGIPermitDenyFilter>"
        "</Account>"
    )


def working(base: pathlib.Path) -> Dataset:
    """What the writing, log and access rows need: documents of 4 KB and 44 KB, and accounts."""
    directory = base / "working"
    directory.mkdir(parents=True)
    for number, size in ((4, 4 * 1024), (44, 44 * 1024)):
        text, _ = grouped_document(number, size)
        (directory / f"Doc{number:03d}").write_text(text)
    (directory / "Account").write_text(access_document())
    return Dataset(
        "working",
        directory,
        first_leaf="Doc004.Group0.Value0",
        last_leaf="Doc044.Group0.Value0",
        deepest_leaf="Doc004.A.B.C.D.Deepest",
        document="Doc004.*",
        subtree="Doc004.Group0.*",
    )
