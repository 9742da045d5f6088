"""Shows that tests can fail: applies each damage of list.py to a copy of the tree, builds it there,
and runs the tests that must turn red.

    run.py FOLDER [WORD...]    all of them, or those whose name or promise holds one of the words
    run.py list                which there are for each promise; ends with 1 where one has none

FOLDER holds the copy and its build, and is kept for the next run. Ends with 1 when a damaged tree
passes its tests, or the sound one fails them.
"""

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from list import MUTANTS

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/faults"))

from promises import PROMISES
SECONDS = 900  # a damaged program may hang


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=False, **options)


class Tree:
    """The copy, its build, and the tests in it."""

    def __init__(self, folder):
        self.source = folder / "tree"
        self.build_folder = folder / "build"
        self.jobs = os.environ.get("DEV_JOBS", str(os.cpu_count()))
        # The copies of one file are the same to the compiler cache wherever they lie.
        self.environment = {**os.environ, "CCACHE_BASEDIR": str(self.source),
                            "E2E_PATIENCE": "20", "E2E_TEST_SECONDS": "300"}

    def copy(self):
        """Makes the copy what the tree is now; what has not changed keeps its time."""
        listed = run(["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others",
                      "--exclude-standard"])
        for name in filter(None, listed.stdout.split("\0")):
            original, copied = ROOT / name, self.source / name
            if not original.is_file():
                continue
            if copied.is_file() and copied.read_bytes() == original.read_bytes():
                continue
            copied.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(original, copied)
        configured = run(["cmake", "-G", "Ninja", "-S", str(self.source), "-B", str(self.build_folder),
                          "-D", "CMAKE_BUILD_TYPE=Release"], env=self.environment)
        if configured.returncode != 0:
            sys.exit(configured.stdout + configured.stderr)

    def build(self, targets):
        """Return: what the compiler says where it fails, else nothing."""
        done = run(["cmake", "--build", str(self.build_folder), "-j", self.jobs, "--target",
                    "Veltrancord", "fault_library", *targets], env=self.environment)
        return "" if done.returncode == 0 else done.stdout[-3000:]

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
        if done.returncode not in (0, 1, -6, -11):
            sys.exit(f"{' '.join(command)} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
        return done.returncode == 0


def unit_targets(mutants):
    names = {where.replace("corpus:", "fuzz_").removeprefix("unit:") for mutant in mutants
             for where, _ in mutant.tests if where.startswith(("unit:", "corpus:"))}
    return sorted(names)


def try_mutant(tree, mutant):
    """Return: what came out of it, in a few words, and whether that is as it must be."""
    path = tree.source / mutant.file
    sound = path.read_text(encoding="utf-8")
    if sound.count(mutant.old) != 1:
        return f"its line stands {sound.count(mutant.old)} times in {mutant.file}", False
    path.write_text(sound.replace(mutant.old, mutant.new), encoding="utf-8")
    try:
        if complaint := tree.build(unit_targets([mutant])):
            return f"does not build:\n{complaint}", False
        survived = [where for where, pattern in mutant.tests if tree.passes(where, pattern)]
    finally:
        path.write_text(sound, encoding="utf-8")
    return (f"SURVIVES {', '.join(survived)}", False) if survived else ("turns red", True)


def list_mutants():
    missing = 0
    for promise, text in PROMISES.items():
        names = [mutant.name for mutant in MUTANTS if mutant.promise == promise]
        missing += not names
        print(f"{promise}  {text}: {', '.join(names) or 'NONE'}")
    return 1 if missing or {mutant.promise for mutant in MUTANTS} - set(PROMISES) else 0


def main():
    if sys.argv[1:] == ["list"]:
        return list_mutants()
    folder, words = Path(sys.argv[1]).resolve(), sys.argv[2:]
    chosen = [mutant for mutant in MUTANTS
              if not words or any(word in mutant.name or word == mutant.promise for word in words)]
    tree = Tree(folder)
    tree.copy()
    if complaint := tree.build(unit_targets(chosen)):
        sys.exit(complaint)
    failed = 0
    for where, pattern in sorted({test for mutant in chosen for test in mutant.tests}):
        if not tree.passes(where, pattern):
            print(f"the sound tree fails {where} ({pattern})", flush=True)
            failed += 1
    for mutant in chosen:
        start = time.monotonic()
        result, good = try_mutant(tree, mutant)
        failed += not good
        print(f"{mutant.promise}  {mutant.name}: {result} ({time.monotonic() - start:.0f} s)", flush=True)
    print(f"{len(chosen)} damages, {failed} without the failure that they must bring")
    return 1 if failed else 0


sys.exit(main())
