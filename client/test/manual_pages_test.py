"""The pages of section 3 tell every function of the headers, with its arguments, and no other; and what
each is for: all stand in a SYNOPSIS and are named in a DESCRIPTION.

Usage: manual_pages_test.py PAGE... HEADER...
"""

import re
import shlex
import sys
from pathlib import Path


def spaced(text):
    """One blank between words, and those before a "*" as the pages have them."""
    text = re.sub(r"\s+", " ", text).strip()
    return re.sub(r" ?(\*+) ?", r" \1", text).strip()


def declared(header):
    code = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.DOTALL)
    for kind, name, arguments in re.findall(
            r"VELTRANCORD_API\s+([^;()]*?)\b(veltrancord_\w+)\(([^)]*)\)\s*;", code):
        yield name, spaced(f"{kind} {name}({arguments})")


def told(page):
    """Functions of the SYNOPSIS with their declaration, and names in the DESCRIPTION."""
    sections = re.split(r"^\.Sh (.*)\n", page.read_text(), flags=re.MULTILINE)
    section = dict(zip(sections[1::2], sections[2::2]))
    functions = {}
    kind = ""
    for line in section["SYNOPSIS"].splitlines():
        macro, *words = shlex.split(line)
        if macro == ".Ft":
            kind = " ".join(words)
        elif macro == ".Fn":
            functions[words[0]] = spaced(f"{kind} {words[0]}({', '.join(words[1:])})")
    return functions, set(re.findall(r"^\.Fn (veltrancord_\w+)", section["DESCRIPTION"], re.MULTILINE))


pages = [Path(path) for path in sys.argv[1:] if not path.endswith(".h")]
headers = [Path(path) for path in sys.argv[1:] if path.endswith(".h")]
there = dict(entry for header in headers for entry in declared(header))
in_synopsis = {}
described = set()
for one in pages:
    functions, names = told(one)
    in_synopsis.update(functions)
    described |= names

problems = [f"{name}: declared as {there.get(name)}, told as {in_synopsis.get(name)}"
            for name in sorted(there.keys() | in_synopsis.keys())
            if there.get(name) != in_synopsis.get(name)]
problems += [f"{name}: not described" for name in sorted(there.keys() - described)]
problems += [f"{name}: described, but not there" for name in sorted(described - there.keys())]
if len(there) < 50:
    problems.append("the headers are not as expected")
print("\n".join(problems))
sys.exit(1 if problems else 0)
