"""./dev package, with the tools that build, check and try replaced by programs that say what they are told."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = """#!/bin/sh
echo "dpkg-buildpackage $* key=$VELTRANCORD_VALUE_KEY" >>"$DEV_CALLS"
dpkg-parsechangelog -S Version >>"$DEV_CALLS"
[ -x debian/rules ] && [ ! -e build-junk ] && [ -e new-file ] && : >../veltrancord_1_amd64.deb
"""
RECORD = '#!/bin/sh\necho "$(basename "$0") $*" >>"$DEV_CALLS"\n'


def executable(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(0o755)


@pytest.fixture
def package(tmp_path):
    """Runs ./dev package in a copy of the tree. Return: (status, what it said, the calls made)."""
    tree, record = tmp_path / "tree", tmp_path / "calls"
    for folder in ("tools", "packaging", "cmake"):
        shutil.copytree(ROOT / folder, tree / folder)
    for file in ("dev", "CMakeLists.txt", ".gitignore"):
        shutil.copy(ROOT / file, tree)
    for script in ("commands/setup", "arm_packages.sh", "try_packages.sh"):
        (tree / "tools" / script).write_text(RECORD)
    executable(tree / "client/python/build_wheel.sh", RECORD)
    executable(tmp_path / "path/dpkg-buildpackage", BUILD)
    executable(tmp_path / "path/lintian", RECORD)
    for words in (["init", "-q"], ["add", "."],
                  ["-c", "user.name=x", "-c", "user.email=x@localhost", "commit", "-qm", "x"]):
        subprocess.run(["git", *words], cwd=tree, check=True)
    (tree / "new-file").write_text("")
    (tree / "build-junk").mkdir()

    def run(*arguments):
        record.write_text("")
        done = subprocess.run(["bash", "dev", "package", *arguments], cwd=tree, check=False, text=True,
                              capture_output=True, env={**os.environ, "DEV_CALLS": str(record),
                                                        "PATH": f"{tmp_path}/path:{os.environ['PATH']}"})
        return done.returncode, done.stdout + done.stderr, record.read_text().splitlines()

    return run


def native():
    return subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True,
                          check=True).stdout.strip()


def test_packages_with_the_default_key_are_warned_of(package):
    status, said, calls = package()
    assert status == 0, said
    assert calls[0] == "setup package"
    assert calls[1] == f"dpkg-buildpackage --build=binary --no-sign --host-arch {native()} key="
    assert calls[2] == "1.0.0"
    assert [call.split()[0] for call in calls[3:]] == ["build_wheel.sh", "lintian", "try_packages.sh"]
    assert "built with the default key" in said


@pytest.mark.parametrize("key", ["Own7Key", "a'b`c#%", "!(){}&*"])
def test_the_key_of_the_product_is_built_in(package, key):
    status, said, calls = package("--key", key)
    assert status == 0, said
    assert calls[1].endswith(f" key={key}")
    assert "default key" not in said


@pytest.mark.parametrize("words", [["--key", "short"], ["--key", "with bl"], ["--key"], ["sparc"]])
def test_a_word_that_cannot_be_is_refused_before_anything_is_done(package, words):
    status, _, calls = package(*words)
    assert (status, calls) == (2, [])


@pytest.mark.parametrize("architecture", ["armhf", "arm64"])
def test_another_processor_has_its_own_compiler_and_folder(package, architecture):
    status, said, calls = package(architecture)
    assert status == 0, said
    assert calls[1] == f"arm_packages.sh {architecture}"
    assert f"--host-arch {architecture} " in calls[2]
    assert calls[-1].endswith(f"build-package-{architecture}/packages {architecture}")


@pytest.mark.parametrize("key", ["", "a'b`c#%"])
def test_the_rules_hand_the_key_on(tmp_path, key):
    record = tmp_path / "calls"
    executable(tmp_path / "dh_auto_configure", '#!/bin/sh\nfor word in "$@"; do echo "$word"; done >"$DEV_CALLS"\n')
    subprocess.run(["make", "-s", "-f", ROOT / "packaging/debian/rules", "override_dh_auto_configure"], check=True,
                   env={**os.environ, "DEV_CALLS": str(record), "VELTRANCORD_VALUE_KEY": key,
                        "PATH": f"{tmp_path}:{os.environ['PATH']}"})
    words = [word for word in record.read_text().splitlines() if "KEY" in word]
    assert words == ([f"-DVELTRANCORD_VALUE_KEY={key}"] if key else [])
