"""What docs/board.md has a board builder type, typed as it stands, in a copy of the tree that has built
nothing else. Only what installs packages is left out; ./dev arm installs them."""

import shutil
import subprocess

import pytest

from device import REPOSITORY
from manual_samples import all_samples

COMPILER = "arm-linux-gnueabihf-g++"
LINES = [line for sample in all_samples() if sample.place == ("docs/board.md", "Build")
         for line in sample.commands if not line.startswith("sudo ")]
FILES = [line.split("`")[1] for line in (REPOSITORY / "docs/board.md").read_text().splitlines()
         if line.startswith(("| `usr/", "| `lib/", "| `etc/"))]


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
    assert len(LINES) == 4 and len(FILES) > 4
    done = subprocess.run(["/bin/sh", "-ec", "\n".join(LINES)], cwd=tree, capture_output=True, text=True,
                          check=False)
    assert done.returncode == 0, done
    for name in FILES:
        assert (tree / "root" / name).is_file(), name
    for name in ("usr/sbin/Veltrancord", "usr/bin/veltrancordctl"):
        assert (tree / "root" / name).read_bytes()[18:20] == b"\x28\0", f"{name} is not for ARM"
