"""Which test proves which promise, and what came out of it.

    promises.py list PROGRAM          every promise with its tests
    promises.py unit-tests            those of the unit tests, as a pattern for ctest -R
    promises.py report FOLDER [long]  writes what the runs have left in FOLDER (unit.xml, e2e.xml,
                                      faults.xml) into docs/reliability.md, and the promises
                                      alone into README.md

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
# Where something is written, and the marks between which it stands there.
DOCUMENT = ROOT / "docs/reliability.md"
FIGURES = DOCUMENT, "<!-- figures: begin -->\n", "<!-- figures: end -->\n"
IN_SHORT = DOCUMENT, "<!-- promises: begin -->\n", "<!-- promises: end -->\n"
FIRST_PAGE = ROOT / "README.md", *IN_SHORT[1:]

# Sentence, files of its tests, their ids, and the figures of these that are told beside it.
SENTENCES = [
    ("When you hold the reply to a write, the file is already saved; where it cannot be, as on a full "
     "disk, a line says so, and what was written stays in memory and is tried again.",
     ("faults/test_saving.py", "e2e/test_faults_save.py"), ("S1", "S4"), ("files put in place",)),
    ("At every instant, a power cut included, each file is wholly the old or wholly the new one, but "
     "for one that can only be written in place: a mount point, or one whose directory may not be "
     "written to.",
     ("e2e/test_faults_save.py", "faults/test_failing_calls.py"), ("S1", "S2", "S3", "W1"),
     ("faults injected",)),
    ("A bad file never stops the service: a damaged one is served as far as it can be read, after a "
     "line, and its original kept before it is first replaced; one that cannot be read is skipped.",
     ("e2e/test_loading.py", "faults/test_sizes.py"), ("S6", "M4"), ("siblings",)),
    ("No request, however malformed, ends it; but a client that announces a request and then withholds "
     "it keeps all others waiting.",
     ("faults/test_clients.py", "faults/test_allocations.py"), ("C1", "F1", "M1", "M2"),
     ("requests", "cut off", "hostile connections", "allocations failed", "parses refused")),
    ("It holds no more than 1,024 descriptors and, but for requests over 1 MiB and what it is told "
     "to keep, 64 MiB.",
     ("faults/test_holdings.py",), ("B1",), ("descriptors", "MiB")),
    ("It leaves no descriptor, process or memory behind, and a crowd of idle clients costs no "
     "processor time; while fewer than eight descriptors are free, new clients are turned away.",
     ("faults/test_clients.py", "faults/test_processes.py", "e2e/test_leaks.py"),
     ("M1", "F1", "F2", "F3", "P4", "X1"), ("blocks lost", "calls in a second")),
    ("A clock that is set stops nothing and lengthens no wait for a client; sessions, captchas and the "
     "times of log entries go by it all the same.",
     ("faults/test_clock.py", "e2e/test_connections.py"), ("C2",), ()),
    ("A script or link that a stranger has placed in /tmp is neither run nor followed; a line says so, "
     "and what the script was for is not done.",
     ("e2e/test_trusted_programs.py",), ("T1",), ()),
]
MAXIMA = {"siblings", "calls in a second", "descriptors", "MiB"}  # the largest one tells, no sum

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
    "T1": "scripts and links that somebody else has placed or can change",
    "G1": "clients, files and access files that the access file's owner does not want",
    "V1": "values, documents and descriptions that are damaged at random, judged as by libxml2",
    "T2": "tool, guard and worker are killed at every step of a trial",
    "T3": "changes from a broker that are old, foreign, not signed, or break the way to it",
    "F4": "a full pipe on standard error",
    "P1": "the worker is killed under load",
    "P2": "processes are terminated under load",
    "P3": "start, kill, start, with semaphores left over",
    "P4": "many events that start a script",
    "P5": "a second instance beside the first, and one that follows at once",
    "C1": "slow, half and hostile clients",
    "C2": "steps of the clock",
    "C3": "each stated bound, one below, at and one above it",
    "Z1": "what was ever made up by fuzzing, once more",
    "Z2": "random commands against small models",
    "Z3": "all commands over the socket, on a database that is as bad as can be",
    "X1": "memory and descriptors counted by valgrind",
    "H1": "hardening of the program's file",
    "H2": "what the unit takes away, and what is served then",
    "A1": "sessions and captchas at the ends of their lives",
    "E1": "numbers, escapes, secrets and paths at the ends of their room",
    "L1": "a long life under mixed load",
    "B1": "what is held at most under all that clients can do at a time",
    "D1": "what the documents have typed",
}

# ./dev soak; its figures stand in the table above the one that is written here.
RUNS_OF_THEIR_OWN = {"L1"}

UNIT_TESTS = {
    "A1": ["SessionList.", "CaptchaList."],
    "E1": ["Base64.", "Secret.", "DecimalNumber.", "ElementNumber.", "NumberedElements.", "Path."],
    "S7": ["FileReplacer."],
    "S8": ["XmlText.GeneratedDocumentsArePrintedAsTheLibraryPrintsThem"],
    "M3": ["ReadQuery.CapacityMayFlipWhileSubtreesAreRead"],
    "G1": ["Guard.", "Decision.", "PolicyFile.", "ExchangePlace.", "Needs.", "Credentials."],
    "V1": ["Pattern.", "DecimalText.", "Time.", "Date.", "Moment.", "Reader.", "CheckText.",
           "CheckDocument.", "ReadDocument.", "LookOver."],
    "Z1": ["fuzz.replay_"],
    "Z2": ["Capacities/EventLogModel."],
    "C2": ["Backup.KnowsTimesBehindTheYear2038", "Backup.IsDueAfterAStepOfTheClock",
           "MillisecondsLeft.KnowsTimesFarApart"],
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


def sentence_outcome(found, promises, names):
    """All outcomes of these promises as one; of figures the sum, where they are amounts of work."""
    total = Outcome()
    for promise in promises:
        one = found[promise]
        total.passed += one.passed
        total.failed += one.failed
        total.skipped += one.skipped
        for name, values in one.figures.items():
            total.figures[name] += values
    chosen = [(name, total.figures[name]) for name in names if total.figures.get(name)]
    return "; ".join([total.state(), *(f"{name}: {max(values) if name in MAXIMA else sum(values):,}"
                                       for name, values in chosen)])


def sentences(found, today):
    lines = [f"| Promise | Proof | {today} |", "|---|---|---|"]
    for sentence, files, promises, names in SENTENCES:
        proof = ", ".join(f"`tests/{file}`" for file in files)
        lines.append(f"| {sentence} | {proof} | {sentence_outcome(found, promises, names)} |")
    return "\n".join(lines) + "\n"


def bullets():
    return "".join(f"- {sentence}\n" for sentence, *_ in SENTENCES)


def shown(place):
    path, begin, end = place
    return path.read_text(encoding="utf-8").split(begin)[1].split(end)[0].strip("\n") + "\n"


def put_between(place, text):
    path, begin, end = place
    head, rest = path.read_text(encoding="utf-8").split(begin)
    path.write_text(f"{head}{begin}\n{text}\n{end}{rest.split(end)[1]}", encoding="utf-8")


def report(folder, form):
    today = datetime.datetime.now(datetime.timezone.utc).date()
    found = outcomes(folder)
    figures = f"Last run, {form} form: {today}.\n\n{table(found)}"
    put_between(FIGURES, figures)
    put_between(IN_SHORT, sentences(found, today))
    put_between(FIRST_PAGE, bullets())
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
