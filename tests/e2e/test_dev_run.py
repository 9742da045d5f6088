"""./dev run, ask and stop on a device, on a tree whose program was built already."""

import re
import shutil

import pytest

from device import REPOSITORY

TREE = "/tmp/tree"
USER = ["unshare", "--user", "--map-user=1000", "--map-group=1000"]  # nobody special, without rights


@pytest.fixture(params=["root", "user"])
def dev(device, request):
    """Runs ./dev inside, as root or as a user, in a copy of the tree on a disk of 3 GiB."""
    device.require_no_sanitizer("valgrind", "the program is started without it")
    device.make_directory(TREE)
    device.mount_tmpfs(TREE, size="3g")
    tree = device.outside(TREE)
    for folder in ("tools", "examples/database", "client/python/veltrancord"):
        shutil.copytree(REPOSITORY / folder, tree / folder)
    (tree / "tests/e2e").mkdir(parents=True)
    shutil.copy(REPOSITORY / "tests/e2e/wire.py", tree / "tests/e2e")
    shutil.copy(REPOSITORY / "dev", tree)
    (tree / "tools/commands/build").write_text("#!/bin/sh\n")
    (tree / "build/bin").mkdir(parents=True)
    (tree / "build/bin/Veltrancord").symlink_to("/run/bin/Veltrancord")
    who = USER if request.param == "user" else []

    def run(*arguments):
        return device.run("/usr/bin/env", f"PATH={TREE}/own:/usr/sbin:/usr/bin:/sbin:/bin", *who, "/bin/sh",
                          "-c", f'cd {TREE} && exec ./dev "$@"', "sh", *arguments)

    yield run
    run("stop")


def answer(transcript, request):
    """What stands below a request in the conversation that is shown."""
    return re.search(rf"^  {re.escape(request)}\n((?:      .*\n)+)", transcript, re.MULTILINE)[1].strip()


@pytest.mark.fault("D1")
def test_the_log_has_room_whatever_the_disk(dev, device):
    started = dev("run")
    assert started.status == 0, (started, device.read_file(f"{TREE}/run/messages"))
    assert answer(started.stdout, "maxlogcount:") == "1000"
    assert answer(started.stdout, "geteventcount:") == "1"
    assert "this machine's disk" not in started.stdout
    assert "build/bin/veltrancordctl get" in started.stdout
    assert "already" in dev("run").stdout
    asked = dev("ask", "readvalue:System.Name")
    assert (asked.status, asked.stdout) == (0, "Yard recorder\n")
    # What it writes into its settings lies in the tree, for all to see; the log is its own.
    assert dev("ask", "write:Display.Dwell=77").status == 0
    assert b"77" in device.read_file(f"{TREE}/run/database/Display")
    assert device.list_directory(f"{TREE}/run/eventlog") == []
    stopped = dev("stop")
    assert (stopped.status, stopped.stdout) == (0, "Stopped.\n")
    assert dev("ask", "readvalue:System.Name").status == 2


def test_where_nobody_may_mount_the_remark_tells_why_the_log_is_empty(dev, device):
    device.make_directory(f"{TREE}/own")
    device.write_file(f"{TREE}/own/mount", "#!/bin/sh\nexit 32\n", mode=0o755)
    started = dev("run")
    assert started.status == 0, (started, device.read_file(f"{TREE}/run/messages"))
    assert "this machine's disk is too large for it" in answer(started.stdout, "maxlogcount:")
    assert dev("stop").status == 0
