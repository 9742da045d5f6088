"""The Python module's `watch` on the real service: what is saved is told, whatever else happens."""

import sys

import pytest
from device import CONFIGURATION, REPOSITORY

sys.path.insert(0, str(REPOSITORY / "client/python"))

import veltrancord


@pytest.fixture
def service(device):
    device.write_documents({"Net": "<Net><Mtu>1500</Mtu><Name>a</Name></Net>"})
    device.start()
    return veltrancord.Client(device.socket_path, timeout=None)


def watch(device, service, *paths):
    return service.watch(*paths, directory=str(device.outside(CONFIGURATION)))


def changes(watching):
    return list(iter(lambda: watching.next(0), None))


def test_saved_changes_are_told(device, service):
    with watch(device, service, "Net.*") as watching:
        service.write({"Net.Mtu": 1400, "Net.New.Deep": "x"})
        assert changes(watching) == [("Net.Mtu", "1500", "1400"), ("Net.New.Deep", None, "x")]
        service.remove("Net.*")
        assert [(path, after) for path, _, after in changes(watching)] == [
            ("Net.Mtu", None), ("Net.Name", None), ("Net.New.Deep", None)]


def test_what_is_in_memory_only_is_told_when_it_is_saved(device, service):
    with watch(device, service, "Net.Mtu") as watching:
        service.write_memory({"Net.Mtu": "1300"})
        assert changes(watching) == []
        service.sync_memory()
        assert changes(watching) == [("Net.Mtu", "1500", "1300")]


def test_nothing_is_missed_while_the_service_restarts(device, service):
    with watch(device, service, "*") as watching:
        device.stop()
        device.write_document("Net", "<Net><Mtu>1200</Mtu><Name>a</Name></Net>")
        service.timeout = 0.0
        with pytest.raises(veltrancord.Unreachable):
            watching.next()
        service.timeout = None
        device.restart()
        assert changes(watching) == [("Net.Mtu", "1500", "1200")]
