"""`veltrancord.testing`: the service of one's own that authors test their programs with."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import device as devices
import pytest
from machine import wait_until

REPOSITORY = devices.REPOSITORY
sys.path.insert(0, str(REPOSITORY / "client/python"))

import veltrancord
import veltrancord.testing

DOCUMENTS = {"System": "<System><Name>gate</Name></System>"}


@pytest.fixture
def own(monkeypatch):
    monkeypatch.setenv("VELTRANCORD_BIN", devices.default_program)

    def start(**arguments):
        return veltrancord.testing.service(DOCUMENTS, **arguments)

    return start


def children():
    return {pid for path in Path("/proc/self/task").glob("*/children")
            for pid in path.read_text().split()}


def test_a_service_of_ones_own(own):
    before = children(), sorted(os.listdir("/proc/self/fd"))
    with own() as service:
        assert service.client.get("System.Name") == "gate"
        with service.client.watch("*", directory=service.directory) as watch:
            service.client.set("System.Name", "door")
            assert watch.next() == ("System.Name", "gate", "door")
        assert "<Name>door</Name>" in Path(service.directory, "System").read_text()
        assert "event log max number" in service.output()
        first = service.inside(["true"])[1].partition("=")[2]
        assert os.path.exists(f"/proc/{first}")
    assert (children(), sorted(os.listdir("/proc/self/fd"))) == before
    assert not os.path.exists(f"/proc/{first}")


def test_two_at_once_do_not_meet(own):
    with own() as one, own() as other:
        one.client.set("System.Name", "one")
        assert other.client.get("System.Name") == "gate"


def test_programs_outside_take_the_environment(own):
    script = "import veltrancord; print(veltrancord.Client().get('System.Name'))"
    with own() as service:
        environment = {**service.environment, "PYTHONPATH": str(REPOSITORY / "client/python")}
        asked = subprocess.run([sys.executable, "-c", script], env=environment, check=True,
                               capture_output=True, text=True)
    assert asked.stdout == "gate\n"


def test_programs_inside_find_the_usual_places(own, tmp_path, monkeypatch):
    (tmp_path / "ask.sh").write_text(
        "test -S /tmp/Veltrancord.unix && cat /mnt/database/xml/System && pwd\n"
        "test -z \"$VELTRANCORD_SOCKET\" && touch seen /tmp/unseen\n")
    monkeypatch.chdir(tmp_path)
    with own(show=[str(tmp_path)]) as service:
        ran = service.run(["sh", "ask.sh"], env=service.environment, capture_output=True, text=True,
                          check=True)
        assert "<Name>gate</Name>" in ran.stdout and ran.stdout.endswith(f"{tmp_path}\n")
        failing = service.run(["sh", "-c", "exit 7"], check=False)
        assert failing.returncode == 7
    assert (tmp_path / "seen").exists() and not os.path.exists("/tmp/unseen")


def test_nothing_outlives_a_test_that_is_killed(own, tmp_path):
    """The parent here is killed as a test run may be: it can clear nothing away."""
    script = ("import veltrancord.testing, time\n"
              f"service = veltrancord.testing.service({DOCUMENTS!r})\n"
              "print(service.inside(['true'])[1].partition('=')[2], flush=True)\n"
              "time.sleep(1000)\n")
    environment = {**os.environ, "PYTHONPATH": str(REPOSITORY / "client/python")}
    with subprocess.Popen([sys.executable, "-c", script], env=environment, text=True,
                          stdout=subprocess.PIPE) as parent:
        first = int(parent.stdout.readline())
        namespace = os.readlink(f"/proc/{first}/ns/pid")
        parent.send_signal(signal.SIGKILL)

    def is_empty():
        for path in Path("/proc").glob("[0-9]*/ns/pid"):
            try:
                if os.readlink(path) == namespace:
                    return False
            except OSError:
                pass
        return True

    wait_until(is_empty, "the last process of the namespace is gone")


def test_what_goes_wrong_is_told(own, monkeypatch):
    before = children(), sorted(os.listdir("/proc/self/fd"))
    with pytest.raises(FileNotFoundError, match="/nonexistent/Veltrancord: no such program"):
        own(program="/nonexistent/Veltrancord")
    with pytest.raises(RuntimeError, match="(?s)the service does not answer: .*-h\\[help\\]"):
        own(options=["-h"])
    with pytest.raises(RuntimeError, match="the service could not be started"):
        own(program="/bin/false")
    with pytest.raises(ValueError, match="cannot be a document's name"):
        veltrancord.testing.service({"../System": "<System/>"})
    monkeypatch.setenv("PATH", "/nonexistent")
    with pytest.raises(FileNotFoundError, match="unshare"):
        own()
    assert (children(), sorted(os.listdir("/proc/self/fd"))) == before


def test_it_needs_no_root():
    """Run as nobody, with copies of module and program where nobody may read them."""
    if os.geteuid() != 0:
        pytest.skip("all tests here run without root then")
    script = ("import veltrancord.testing as t\n"
              f"with t.service({DOCUMENTS!r}) as service:\n"
              "    print(service.client.get('System.Name'))\n"
              "    service.run(['id', '-u'], check=True)\n")
    folder = tempfile.mkdtemp()
    try:
        os.chmod(folder, 0o755)
        shutil.copytree(REPOSITORY / "client/python/veltrancord", folder + "/veltrancord",
                        ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copy(devices.default_program, folder + "/Veltrancord")
        done = subprocess.run(
            ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", sys.executable, "-Bu",
             "-c", script], cwd="/", check=False, capture_output=True, text=True,
            env={"PATH": os.environ["PATH"], "PYTHONPATH": folder,
                 "VELTRANCORD_BIN": folder + "/Veltrancord"})
    finally:
        shutil.rmtree(folder)
    assert (done.stdout.split(), done.stderr) == (["gate", "0"], "")
