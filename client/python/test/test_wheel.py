"""The wheel: built from the sources alone, installed without network, and imported from there."""

import hashlib
import re
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent
PIP = ["/usr/bin/python3", "-m", "pip", "--disable-pip-version-check"]


def build(folder):
    subprocess.run(["bash", SOURCE / "build_wheel.sh", folder], check=True)
    (wheel,) = folder.iterdir()
    return wheel


@pytest.fixture(scope="module")
def wheel(tmp_path_factory):
    return build(tmp_path_factory.mktemp("wheel"))


def test_it_installs_and_is_imported(wheel, tmp_path):
    subprocess.run([*PIP, "install", "--quiet", "--no-index", "--no-cache-dir", "--target", tmp_path,
                    wheel], check=True)
    script = (f"import sys; sys.path.insert(0, {str(tmp_path)!r})\n"
              "import veltrancord, veltrancord.testing\n"
              "print(veltrancord.__file__, veltrancord.Client('/x').socket_path)")
    asked = subprocess.run([sys.executable, "-I", "-c", script], check=True, capture_output=True,
                           text=True, cwd="/")
    assert asked.stdout == f"{tmp_path}/veltrancord/__init__.py /x\n"


def test_it_holds_the_module_and_nothing_else(wheel):
    names = set(zipfile.ZipFile(wheel).namelist())
    module = {name for name in names if ".dist-info/" not in name}
    assert module == {f"veltrancord/{file.name}" for file in (SOURCE / "veltrancord").iterdir()
                      if file.is_file()}
    assert len(module) > 8


def test_its_version_is_that_of_the_project(wheel):
    project = (SOURCE.parents[1] / "CMakeLists.txt").read_text()
    version = re.search(r"project\([^)]*VERSION ([\d.]+)", project)[1]
    assert wheel.name == f"veltrancord-{version}-py3-none-any.whl"


def test_the_same_sources_give_the_same_bytes(wheel, tmp_path):
    again = build(tmp_path)
    assert hashlib.sha256(again.read_bytes()).digest() == hashlib.sha256(
        wheel.read_bytes()).digest()
