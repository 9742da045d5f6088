"""The folders of src and what each includes of the others.

    include_graph.py            prints the graph
    include_graph.py --write    puts it into docs/architecture.md
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs/architecture.md"
BEGIN, END = "<!-- include graph: begin -->\n", "<!-- include graph: end -->"

# From the ground floor up: a folder includes what lies below it, nothing beside or above it.
FLOORS = [["leaf"], ["encoding"], ["xml"], ["handler"], ["store"], ["update", "eventlog", "access"],
          ["guard"], ["server"], ["service"]]
# The server is handed the command table and what follows a request: it knows no subsystem.
ONLY = {"server": {"leaf", "handler"}}


def includes(source):
    """Return: (folder, other folder, file) for each include of a file in another folder."""
    found = []
    for file in sorted(source.glob("*/*")):
        if file.suffix not in (".h", ".cpp") or "_test." in file.name:
            continue
        folder = file.parent.name
        for other in re.findall(r'^\s*#\s*include\s+"(\w+)/', file.read_text(), re.M):
            if other != folder:
                found.append((folder, other, file.name))
    return found


def faults(found):
    """Return: a line for each include that does not run downwards."""
    floor = {folder: number for number, floor in enumerate(FLOORS) for folder in floor}
    lines = []
    for folder, other, file in found:
        where = f"src/{folder}/{file} includes {other}"
        if folder not in floor or other not in floor:
            lines.append(f"{where}: not a folder of the graph")
        elif floor[other] >= floor[folder]:
            lines.append(f"{where}, which does not lie below {folder}")
        elif other not in ONLY.get(folder, {other}):
            lines.append(f"{where}; {folder} may include only {', '.join(sorted(ONLY[folder]))}")
    return lines


def drawn(found):
    """Return: the graph as text, the highest floor first."""
    edges = {(folder, other) for folder, other, _ in found}
    order = [folder for floor in FLOORS for folder in floor]
    lines = []
    for folder in reversed(order):
        below = [other for other in reversed(order) if (folder, other) in edges]
        lines.append(f" {folder:<10}" + (f"-> {'  '.join(below)}" if below else "").rstrip())
    return "```text\n" + "\n".join(line.rstrip() for line in lines) + "\n```\n"


def shown():
    """Return: the graph that the document shows."""
    return DOCUMENT.read_text().partition(BEGIN)[2].partition(END)[0]


def main():
    graph = drawn(includes(ROOT / "src"))
    if sys.argv[1:] == ["--write"]:
        text = DOCUMENT.read_text()
        head, tail = text.partition(BEGIN)[0], text.partition(END)[2]
        DOCUMENT.write_text(head + BEGIN + graph + END + tail)
    else:
        print(graph, end="")


if __name__ == "__main__":
    main()
