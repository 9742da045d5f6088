"""Shows that tests can fail: applies each damage of list.py to a copy of the tree, builds it there,
and runs the tests that must turn red.

    run.py FOLDER [WORD...]    all of them, or those whose name, promise or file holds one of the words
    run.py list                which there are for each promise; ends with 1 where one has none

FOLDER holds the copies and their builds, one of each for every two processors, and is kept for the
next run. Ends with 1 when a damaged tree passes its tests, or the sound one fails them.
"""

import os
import queue
import re
import shutil
import subprocess
import sys
import threading
import time
from pathlib import Path

from list import MUTANTS

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/faults"))

from promises import PROMISES
SECONDS = 900  # a damaged program may hang
ENDED = (0, 1, -6, -9, -11)  # passed, failed, and what a damaged test program may die of
NO_TESTS = 5  # pytest: none was chosen


class Trouble(Exception):
    """What is wrong with the damage or its tests, not with the program."""


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, errors="replace",
                          check=False, **options)


def targets_of(tests):
    """Return: the build's targets that the tests need."""
    found = set()
    for where, _ in tests:
        kind, _, name = where.rpartition(":")
        if kind == "unit":
            found.add(name)
        elif kind == "corpus":
            found.add(f"fuzz_{name}")
        else:
            found.add("Veltrancord")
            if where.startswith("faults/"):
                found.add("fault_library")
            elif not kind:
                found.add("client_programs")
    return sorted(found)


class Tree:
    """A copy, its build, and the tests in it."""

    def __init__(self, folder, jobs):
        self.source = folder / "tree"
        self.build_folder = folder / "build"
        self.jobs = str(jobs)
        # The copies of one file are the same to the compiler cache wherever they lie.
        self.environment = {**os.environ, "CCACHE_BASEDIR": str(folder), "CCACHE_NOHASHDIR": "1",
                            "E2E_PATIENCE": "20", "E2E_TEST_SECONDS": "300"}

    def copy(self):
        """Makes the copy what the tree is now; what has not changed keeps its time."""
        listed = run(["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others",
                      "--exclude-standard"])
        names = [name for name in listed.stdout.split("\0") if (ROOT / name).is_file()]
        for name in names:
            original, copied = ROOT / name, self.source / name
            if copied.is_file() and copied.read_bytes() == original.read_bytes():
                continue
            copied.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(original, copied)
        for folder in ("src", "client", "bridge"):  # what is no more must not be built
            for copied in (self.source / folder).rglob("*"):
                if copied.is_file() and str(copied.relative_to(self.source)) not in names:
                    copied.unlink()
        # Compiled as it is shipped, but for the time that the optimiser takes.
        configured = run(["cmake", "-G", "Ninja", "-S", str(self.source), "-B", str(self.build_folder),
                          "-D", "CMAKE_BUILD_TYPE=Release", "-D", "CMAKE_CXX_FLAGS_RELEASE=-O1"],
                         env=self.environment)
        if configured.returncode != 0:
            raise Trouble(configured.stdout + configured.stderr)

    def build(self, tests):
        done = run(["cmake", "--build", str(self.build_folder), "-j", self.jobs, "--target",
                    *targets_of(tests)], env=self.environment)
        if done.returncode != 0:
            raise Trouble(f"does not build:\n{done.stdout[-3000:]}")

    def passes(self, where, pattern):
        kind, _, name = where.rpartition(":")
        programs = self.build_folder / "bin"
        if kind == "unit":
            command = [str(programs / name), f"--gtest_filter={pattern}", "--gtest_fail_fast"]
        elif kind == "corpus":
            command = [str(programs / f"fuzz_{name}"), str(self.source / "fuzz/corpus" / name)]
        elif kind == "soak":
            command = [sys.executable, str(self.source / "tests/soak/soak.py"), name,
                       "--bin", str(programs / "Veltrancord")]
        else:
            command = [sys.executable, "-m", "pytest", "-q", "-x", str(self.source / "tests" / where),
                       "-k", pattern, "--bin", str(self.build_folder / "bin/Veltrancord")]
        try:
            done = run(command, timeout=SECONDS, env=self.environment)
        except subprocess.TimeoutExpired:
            return False
        if kind == "unit" and re.search(r"Running 0 tests|Found no tests", done.stdout) or \
                not kind and done.returncode == NO_TESTS:
            raise Trouble(f"{where} has no test for {pattern}")
        if done.returncode not in ENDED:
            raise Trouble(f"{' '.join(command)} ended with {done.returncode}:\n"
                          f"{done.stdout[-3000:]}{done.stderr[-3000:]}")
        if not kind and "skipped" in done.stdout and "passed" not in done.stdout \
                and done.returncode == 0:
            raise Trouble(f"{where} ({pattern}) is skipped here")
        return done.returncode == 0


def try_sound(tree, tests):
    """Return: which of these tests the sound tree fails, "" when none."""
    tree.build(tests)
    failed = [f"{where} ({pattern})" for where, pattern in tests if not tree.passes(where, pattern)]
    return f"the sound tree fails {', '.join(failed)}" if failed else ""


def try_mutant(tree, mutant):
    """Return: what is wrong with it, "" when its tests turn red."""
    path = tree.source / mutant.file
    sound = path.read_text(encoding="utf-8")
    if sound.count(mutant.old) != 1:
        raise Trouble(f"its line stands {sound.count(mutant.old)} times in {mutant.file}")
    path.write_text(sound.replace(mutant.old, mutant.new), encoding="utf-8")
    try:
        tree.build(mutant.tests)
        survived = [where for where, pattern in mutant.tests if tree.passes(where, pattern)]
    finally:
        path.write_text(sound, encoding="utf-8")
    return f"SURVIVES {', '.join(survived)}" if survived else ""


def in_parallel(trees, jobs):
    """Does each job, (name, function of a tree), in whichever tree is free. Return: how many failed."""
    waiting = queue.Queue()
    for job in jobs:
        waiting.put(job)
    failed = []

    def work(tree):
        while True:
            try:
                name, do = waiting.get_nowait()
            except queue.Empty:
                return
            start = time.monotonic()
            try:
                wrong = do(tree)
            except Trouble as trouble:
                wrong = str(trouble)
            if wrong:
                failed.append(name)
            print(f"{name}: {wrong or 'as it must be'} ({time.monotonic() - start:.0f} s)", flush=True)

    threads = [threading.Thread(target=work, args=(tree,)) for tree in trees]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return len(failed)


def list_mutants():
    missing = 0
    for promise, text in PROMISES.items():
        names = [mutant.name for mutant in MUTANTS if mutant.promise == promise]
        missing += not names
        print(f"{promise}  {text}: {', '.join(names) or 'NONE'}")
    unknown = {mutant.promise for mutant in MUTANTS} - set(PROMISES)
    print(f"{len(MUTANTS)} damages of {len(PROMISES) - missing} kinds"
          + (f"; unknown: {', '.join(unknown)}" if unknown else ""))
    return 1 if missing or unknown else 0


def main():
    if sys.argv[1:] == ["list"]:
        return list_mutants()
    folder, words = Path(sys.argv[1]).resolve(), sys.argv[2:]
    # Those of one file after the other: it alone is compiled anew.
    chosen = sorted((mutant for mutant in MUTANTS
                     if not words or any(word in mutant.name or word == mutant.promise
                                         or word in mutant.file for word in words)),
                    key=lambda mutant: mutant.file)
    jobs = int(os.environ.get("DEV_JOBS", os.cpu_count()))
    count = max(1, min(len(chosen), jobs if jobs < 4 else jobs // 2))
    trees = [Tree(folder / str(number), max(1, jobs // count)) for number in range(count)]
    for tree in trees:
        tree.copy()
    # The second one finds everything in the compiler cache.
    every_test = sorted({test for mutant in chosen for test in mutant.tests})
    for tree in trees:
        tree.build(every_test)
    failed = in_parallel(trees, [(f"sound: {test[0]} ({test[1]})",
                                  lambda tree, test=test: try_sound(tree, [test]))
                                 for test in every_test])
    failed += in_parallel(trees, [(f"{mutant.promise}  {mutant.name}",
                                   lambda tree, mutant=mutant: try_mutant(tree, mutant))
                                  for mutant in chosen])
    print(f"{len(chosen)} damages, {failed} failures")
    return 1 if failed else 0


sys.exit(main())
