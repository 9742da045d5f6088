"""The simulated device itself: what other tests rely on."""

import os
import subprocess

import pytest

from device import SOCKET, Device, wait_until
from machine import LOGS
from peers import Peer
from wire import NO_REPLY, ProtocolError, Reply, frame, parse_reply


def test_a_device_has_its_own_files_processes_and_semaphores(device):
    assert device.list_directory("/tmp") == []
    device.write_file("/tmp/only-inside", "here")
    assert not os.path.exists("/tmp/only-inside")
    device.set_semaphore(530, 7)
    with Device() as other:
        assert not other.file_exists("/tmp/only-inside")
        assert other.semaphore(530) is None
    assert device.semaphore(530) == 7
    assert [p.pid for p in device.processes()] == [1]


def test_nothing_outlives_a_device():
    device = Device()
    device.run("sh", "-c", "sleep 1234 & sleep 1234 &")
    wait_until(lambda: len(device.processes()) == 3, "both processes run")
    init = device.init_pid
    device.close()
    wait_until(lambda: not os.path.exists(f"/proc/{init}"), "the device's init is gone")


def test_orphans_are_reaped_and_a_power_cut_leaves_the_files(device):
    device.write_file("/mnt/kept", "x")
    device.run("sh", "-c", "sleep 1234 & true &")
    device.power_cut()
    assert [p.pid for p in device.processes()] == [1]
    assert device.read_file("/mnt/kept") == b"x"


def test_scripts_can_be_put_into_system_directories(device):
    device.install_script("/bin/OnlyHere.sh", '#!/bin/sh\necho "$0 $1"\n')
    assert device.run("/bin/OnlyHere.sh", "a").stdout == "/bin/OnlyHere.sh a\n"
    assert device.run("ls", "/bin/ls").status == 0
    assert not os.path.exists("/bin/OnlyHere.sh")


def test_file_systems_can_be_small_and_read_only(device):
    device.mount_tmpfs("/mnt/small", size="16k")
    with pytest.raises(OSError):
        device.write_file("/mnt/small/big", b"x" * 100000)
    device.outside("/mnt/small/big").unlink()
    device.set_read_only("/mnt/small")
    with pytest.raises(OSError):
        device.write_file("/mnt/small/other", "x")
    device.set_read_only("/mnt/small", on=False)
    device.write_file("/mnt/small/other", "x")


def test_a_run_command_gives_its_output_and_status(device):
    finished = device.run("sh", "-c", "cat; echo err >&2; exit 3", stdin="in")
    assert finished == (3, "in", "err\n")


def test_replies_are_told_from_garbage():
    assert frame("a:b") == b"?\x03\0\0\0a:b"
    assert parse_reply(b"") == NO_REPLY
    assert parse_reply(b"\x02\0\0\0ab") == Reply(2, b"ab")
    assert parse_reply(b"\x07\0\0\0") == Reply(7, b"")  # a count
    for garbage in (b"\x01\0", b"\x02\0\0\0a", b"\xfc\xff\xff\xffx", b"\0\0\0\0x"):
        with pytest.raises(ProtocolError):
            parse_reply(garbage)


def test_unshare_is_not_left_behind_when_setting_up_fails(tmp_path):
    program = tmp_path / "program"
    program.write_bytes(b"")
    running = Device(program)
    program.unlink()
    with pytest.raises(RuntimeError, match="No such file"):
        Device(program)
    running.close()
    children = subprocess.run(["ps", "--ppid", str(os.getpid()), "-o", "comm="],
                              capture_output=True, text=True, check=False).stdout
    assert "unshare" not in children


def test_a_client_that_is_another_user():
    with Device(many_users=True) as device:
        if not device.has_many_users:
            pytest.skip("only root could be mapped: run as root, or with /etc/subuid and newuidmap")
        device.write_documents({"A": "<A><B>1</B></A>"})
        assert device.run("chown", "-R", "1001:1001", "/mnt/database").status == 0
        device.outside(LOGS).chmod(0o777)  # where valgrind reports as the service's user
        device.start(user=1001)
        with Peer(device, 1002) as stranger, pytest.raises(EOFError):
            stranger.request("readvalue:A.B")  # the socket's mode keeps it out
        device.outside(SOCKET).chmod(0o777)
        for further, own_namespace in (([1003, 1004], False), ([], True)):
            with Peer(device, 1002, 1005, further, own_namespace) as peer:
                assert peer.request("readvalue:A.B") == (1, b"1")
                told = device.outside(f"/proc/{peer.pid}/status").read_text()
                assert "\nUid:\t1002\t1002\t1002\t1002\n" in told
                assert "\nGid:\t1005\t1005\t1005\t1005\n" in told
                assert f"\nGroups:\t{' '.join(map(str, further))} \n" in told
