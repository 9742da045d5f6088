"""What docs/board.md has a board builder type, typed as it stands, in a copy of the tree that has built
nothing else. Only what installs packages is left out; ./dev arm installs them."""

import shutil
import subprocess
from pathlib import Path

import pytest

import command_line
from device import REPOSITORY
from manual_samples import all_samples

COMPILER = "arm-linux-gnueabihf-g++"
LINES = [line for sample in all_samples() if sample.place == ("docs/board.md", "Build")
         for line in sample.commands if not line.startswith("sudo ")]
FILES = [line.split("`")[1] for line in (REPOSITORY / "docs/board.md").read_text().splitlines()
         if line.startswith(("| `usr/", "| `etc/"))]


def test_the_lines_that_install_bring_every_file_of_the_table(tmp_path):
    """Those of the build that is tested, whatever prefix it has; stripping is left to the real one."""
    build = Path(command_line.program()).parents[1]
    lines = [line.replace("build-arm --strip", str(build)) for line in LINES if "--install " in line]
    done = subprocess.run(["/bin/sh", "-ec", "\n".join(lines)], cwd=tmp_path, capture_output=True, text=True,
                          check=False)
    assert len(lines) == 2 and done.returncode == 0, done
    for name in FILES:
        assert any((tmp_path / "root").rglob("/".join(Path(name).parts[-2:]))), name


@pytest.mark.slow
@pytest.mark.skipif(shutil.which(COMPILER) is None, reason=f"{COMPILER} is not installed")
def test_the_board_is_built_as_the_document_tells(tmp_path):
    tree = tmp_path / "tree"
    files = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "-z"],
                           cwd=REPOSITORY, capture_output=True, text=True, check=True).stdout
    for name in filter(None, files.split("\0")):
        if (REPOSITORY / name).is_file():  # it may be deleted and not yet committed
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(REPOSITORY / name, tree / name)
    assert len(LINES) == 4 and len(FILES) == 5
    done = subprocess.run(["/bin/sh", "-ec", "\n".join(LINES)], cwd=tree, capture_output=True, text=True,
                          check=False)
    assert done.returncode == 0, done
    for name in FILES:
        assert (tree / "root" / name).is_file(), name
    for name in ("usr/sbin/Veltrancord", "usr/bin/veltrancordctl"):
        assert (tree / "root" / name).read_bytes()[18:20] == b"\x28\0", f"{name} is not for ARM"
