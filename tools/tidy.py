"""clang-tidy over the sources of compile_commands.json: tidy.py BUILD-FOLDER JOBS

The standard headers are what takes its time, so the sources of a folder are put one behind the other
into one text and looked at together, as far as they compile so; what it says is told with the file
and line that it means. A text in which nothing was found is not looked at again until it, a header of
the tree, or the checks change. Ends with 1 when something was found.
"""

import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
TOGETHER = 12  # files of one text: more would leave processors idle at the end


def flags_of(command):
    """What of a compiler's command line decides how a source is read."""
    words = shlex.split(command["command"])
    kept, at = [], 1
    while at < len(words):
        if words[at] in ("-o", "-c", "-MF", "-MT", "-MQ"):
            at += 1 if words[at] == "-c" else 2
            continue
        if words[at] == "-isystem":
            kept += words[at:at + 2]
            at += 2
            continue
        if words[at].startswith(("-I", "-D", "-std", "-W", "-isystem")) and words[at] != "-Werror":
            kept.append(words[at])
        at += 1
    return tuple(word for word in kept if not word.endswith("-MD"))


class Group:
    """Sources that are looked at together."""

    def __init__(self, folder, flags, files):
        self.files = files
        self.flags = [*flags, f"-iquote{files[0].parent}"]
        parts, self.starts, line = [], [], 1
        for file in files:
            self.starts.append((line, file))
            text = file.read_text()
            parts.append(text if text.endswith("\n") else text + "\n")
            line += parts[-1].count("\n")
        self.text = "".join(parts)
        digest = hashlib.sha256(self.text.encode()).hexdigest()[:16]
        # In a folder like the sources' own, so that clang-tidy finds the same settings above it.
        place = folder / files[0].parent.relative_to(ROOT)
        place.mkdir(parents=True, exist_ok=True)
        self.path = place / f"{files[0].parent.name}-{files[0].stem}-{digest}{files[0].suffix}"
        self.path.write_text(self.text)

    def compiles(self):
        """Whether these can stand in one text; a single one is left to clang-tidy."""
        compiler = "clang++" if self.path.suffix == ".cpp" else "clang"
        return len(self.files) == 1 or subprocess.run(
            [compiler, "-fsyntax-only", "-Werror", *self.flags, self.path], check=False,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def told(self, report):
        """The report, with the places of the one text as those of the sources."""
        def place(match):
            line = int(match[1])
            start, file = [one for one in self.starts if one[0] <= line][-1]
            return f"{file.relative_to(ROOT)}:{line - start + 1}"
        return re.sub(rf"{re.escape(str(self.path))}:(\d+)", place, report)


def groups(folder, flags, files):
    """These sources in as few groups as they allow."""
    if len(files) > TOGETHER:
        half = len(files) // 2
        return groups(folder, flags, files[:half]) + groups(folder, flags, files[half:])
    group = Group(folder, flags, files)
    if group.compiles():
        return [group]
    half = len(files) // 2
    return groups(folder, flags, files[:half]) + groups(folder, flags, files[half:])


def look(group, surroundings, folder):
    """Return: what clang-tidy says of it, "" when nothing."""
    key = hashlib.sha256("\0".join([surroundings, group.text, *group.flags]).encode()).hexdigest()
    passed = folder / "passed" / key
    if passed.exists():
        return ""
    done = subprocess.run(
        ["clang-tidy", "--quiet", group.path, "--", *group.flags],
        capture_output=True, text=True, check=False)
    if done.returncode == 0:
        passed.touch()
        return ""
    return group.told(done.stdout + (done.stderr if not done.stdout else ""))


def main():
    build, jobs = Path(sys.argv[1]).resolve(), int(sys.argv[2])
    folder = build / "tidy"
    (folder / "passed").mkdir(parents=True, exist_ok=True)
    together = defaultdict(list)
    for command in json.loads((build / "compile_commands.json").read_text()):
        file = Path(command["directory"], command["file"]).resolve()
        together[file.parent, file.suffix, flags_of(command)].append(file)
    configs = sorted(path for path in ROOT.glob("**/.clang-tidy") if "build" not in str(path.relative_to(ROOT)))
    for config in configs:
        if config.parent != ROOT:
            copy = folder / config.relative_to(ROOT)
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_text(config.read_text())
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, text=True, check=True).stdout
    headers = sorted(path for path in ROOT.glob("*/**/*.h") if not path.relative_to(ROOT).parts[0].startswith("build"))
    surroundings = hashlib.sha256("\0".join(
        [version, *(path.read_text() for path in [*configs, *headers])]).encode()).hexdigest()
    with ThreadPoolExecutor(jobs) as pool:
        made = [group for some in pool.map(
            lambda item: groups(folder, item[0][2], sorted(set(item[1]))), together.items()) for group in some]
        # The longest first, so that none is left for the end.
        made.sort(key=lambda group: -len(group.text))
        reports = [report for report in pool.map(lambda group: look(group, surroundings, folder), made) if report]
    print("\n".join(reports))
    return 1 if reports else 0


if __name__ == "__main__":
    sys.exit(main())
