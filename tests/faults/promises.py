"""Which test proves which promise, and what came out of it.

    promises.py list PROGRAM          every promise with its tests
    promises.py unit-tests            those of the unit tests, as a pattern for ctest -R
    promises.py report FOLDER [long]  writes what the runs have left in FOLDER (unit.xml, e2e.xml,
                                      faults.xml) into docs/reliability.md

A test of the Python suites says for itself what it proves, by the marker `fault`, which conftest.py
puts into the results; the unit tests, which know no markers, stand in the table here.
"""

import datetime
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs/reliability.md"
BEGIN, END = "<!-- figures: begin -->\n", "<!-- figures: end -->\n"

PROMISES = {
    "S1": "killed before each system call of every command that changes files",
    "S2": "each call on files of these commands fails, once and from there on",
    "S3": "a file system that is really full",
    "S4": "what was not flushed before it was renamed is taken away",
    "S6": "foreign files, leftovers, directories, pipes, dangling links, unreadable files",
    "S7": "mode, owner, link, read-only directory, bind mount",
    "S8": "saved bytes against the XML library's own",
    "W1": "replacements a command",
    "M1": "each allocation of every command fails, once and from there on",
    "M2": "announced lengths with nothing behind",
    "M3": "the reply capacity changes while subtrees are read",
    "M4": "documents that are very deep or very wide",
    "F1": "mixed requests, some cut off at each byte",
    "F2": "descriptors of started programs",
    "F3": "crowds of idle connections",
    "P1": "the worker is killed under load",
    "P2": "processes are terminated under load",
    "P3": "start, kill, start, with semaphores left over",
    "P4": "many events that start a script",
    "C1": "slow, half and hostile clients",
    "C2": "steps of the clock",
    "C3": "each stated bound, one below, at and one above it",
    "Z1": "what was ever made up by fuzzing, once more",
    "Z2": "random commands against small models",
    "X1": "memory and descriptors counted by valgrind",
    "H1": "hardening of the program's file",
    "L1": "a long life under mixed load",
    "B1": "what is held at most under all that clients can do at a time",
}

# ./dev soak; its figures stand in the table above the one that is written here.
RUNS_OF_THEIR_OWN = {"L1"}

UNIT_TESTS = {
    "S7": ["FileReplacer."],
    "S8": ["xml_text.generated_documents_are_printed_as_the_library_prints_them"],
    "M3": ["read_query.capacity_may_flip_while_subtrees_are_read"],
    "Z1": ["fuzz.replay_"],
    "Z2": ["Capacities/EventLogModel."],
    "C2": ["Backup.KnowsTimesBehindTheYear2038", "Backup.IsDueAfterAStepOfTheClock",
           "milliseconds_left.knows_times_far_apart"],
}


class Outcome:
    """Of all tests of one promise."""

    def __init__(self):
        self.passed = self.failed = self.skipped = 0
        self.places = set()
        self.figures = defaultdict(list)

    def add(self, case, place):
        self.places.add(place)
        if case.find("failure") is not None or case.find("error") is not None:
            self.failed += 1
        elif case.find("skipped") is not None:
            self.skipped += 1
        else:
            self.passed += 1
        for figure in case.iterfind("properties/property[@name='figure']"):
            name, value = figure.get("value").split(": ")
            self.figures[name].append(int(value))

    def state(self):
        parts = [f"{count} {word}" for count, word in
                 ((self.passed, "passed"), (self.failed, "**failed**"), (self.skipped, "skipped"))
                 if count]
        return ", ".join(parts) or "**not run**"

    def figures_text(self):
        return "; ".join(f"{name}: {span(values)}" for name, values in self.figures.items())


def span(values):
    """Several figures of one name: their sum where each test adds to it, else from and to."""
    low, high = min(values), max(values)
    return f"{low:,}" if low == high else f"{low:,} to {high:,} ({sum(values):,} in all)"


def unit_promises(name):
    return [promise for promise, starts in UNIT_TESTS.items() if name.startswith(tuple(starts))]


def outcomes(folder):
    found = defaultdict(Outcome)
    for case in ElementTree.parse(folder / "unit.xml").iter("testcase"):
        for promise in unit_promises(case.get("name")):
            found[promise].add(case, case.get("name").split(".")[0])
    for suite in ("e2e", "faults"):
        for case in ElementTree.parse(folder / f"{suite}.xml").iter("testcase"):
            place = case.get("classname").split(".")[-1] + ".py"
            for promise in case.iterfind("properties/property[@name='promise']"):
                found[promise.get("value")].add(case, f"{suite}/{place}")
    return found


def table(found):
    lines = ["| id | what is done to it | where | outcome | figures |", "|---|---|---|---|---|"]
    for promise, text in PROMISES.items():
        if promise in RUNS_OF_THEIR_OWN:
            continue
        outcome = found[promise]
        places = ", ".join(f"`{place}`" for place in sorted(outcome.places))
        lines.append(f"| {promise} | {text} | {places} | {outcome.state()} | {outcome.figures_text()} |")
    return "\n".join(lines) + "\n"


def report(folder, form):
    today = datetime.datetime.now(datetime.timezone.utc).date()
    text = DOCUMENT.read_text(encoding="utf-8")
    head, rest = text.split(BEGIN)
    tail = rest.split(END)[1]
    figures = f"Last run, {form} form: {today}.\n\n{table(outcomes(folder))}"
    DOCUMENT.write_text(head + BEGIN + "\n" + figures + "\n" + END + tail, encoding="utf-8")
    print(figures)


def list_tests(program):
    found = defaultdict(list)
    for suite in ("e2e", "faults"):
        done = subprocess.run(
            [sys.executable, "-m", "pytest", str(ROOT / "tests" / suite), "-q", "-s",
             "--collect-only", "-m", "fault", "--bin", program, "--list-promises"],
            capture_output=True, text=True, check=False)
        for promise, test in re.findall(r"^promise (\w+) (\S+)$", done.stdout, re.M):
            if test not in found[promise]:
                found[promise].append(test)
    for promise, text in PROMISES.items():
        print(f"{promise}  {text}")
        for test in [*found[promise], *UNIT_TESTS.get(promise, ())]:
            print(f"      {test}")


def main():
    what, *arguments = sys.argv[1:]
    if what == "list":
        list_tests(arguments[0])
    elif what == "unit-tests":
        print("^(" + "|".join(re.escape(start) for starts in UNIT_TESTS.values() for start in starts)
              + ")")
    elif what == "report":
        report(Path(arguments[0]), arguments[1] if arguments[1:] and arguments[1] else "short")
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
