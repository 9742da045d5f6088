"""Saving: what reaches the flash, how, and what does not."""

import errno
import os
import stat

import pytest

from device import CONFIGURATION

ACCOUNT = "<Account>\n    <Name>old</Name>\n</Account>\n"
NETWORK = "<Network>\n    <Mode>old</Mode>\n</Network>\n"
NEW_ACCOUNT = b"<Account>\n    <Name>new</Name>\n</Account>\n"


def failure(path, code):
    return f"replace_file {path} error : {os.strerror(code)}\n"


def names(device):
    return sorted(device.list_directory(CONFIGURATION))


@pytest.mark.fault("W1", "S4")
def test_one_replacement_for_each_changed_document_and_command(device):
    device.write_documents({"A": "<A/>", "B": "<B/>", "C": "<C/>"})
    device.start_traced(calls="rename,renameat,renameat2,fsync,fdatasync")
    lines = "\n".join(f"{name}.V{i}={i}" for i in range(300) for name in "AB")
    before = len(device.trace())
    assert device.request("write:" + lines).code == 600
    calls = [line.split(maxsplit=1)[1].split("(")[0] for line in device.trace()[before:]
             if "rename" in line or "sync" in line]
    # For each of the two: the file is flushed before it is renamed, its directory afterwards.
    assert calls == ["fsync", "renameat", "fsync"] * 2


def test_a_save_needs_eleven_system_calls(device):
    device.require_no_sanitizer("thread", "its runtime makes other calls")
    device.write_documents({"A": "<A/>"})
    device.start_traced()
    device.request("write:A.V=1")
    lines = [line.split(maxsplit=1) for line in device.trace()]
    thread = next(pid for pid, call in lines if ".veltrancord-new.A" in call)
    calls = [call for pid, call in lines if pid == thread and not call.startswith(("<...", "---"))]
    first = next(i for i, call in enumerate(calls) if CONFIGURATION in call)
    names = [call.split("(")[0] for call in calls[first:first + 11]]
    assert names == ["openat2", "newfstatat", "openat", "newfstatat", "fallocate", "write", "fsync",
                     "close", "renameat", "fsync", "close"]
    assert r"\1\0\0\0" in calls[first + 11]  # the reply comes next


@pytest.mark.fault("S7")
def test_mode_owner_and_link_are_kept(service, device):
    device.write_file("/mnt/flash/real", ACCOUNT, mode=0o640)
    os.makedirs(device.outside(CONFIGURATION), exist_ok=True)
    os.symlink("/mnt/flash/real", device.outside(CONFIGURATION + "/Account"))
    service({})
    assert device.request("write:Account.Name=new").code == 1
    assert device.read_file("/mnt/flash/real") == NEW_ACCOUNT
    assert stat.S_IMODE(device.outside("/mnt/flash/real").stat().st_mode) == 0o640
    assert device.outside(CONFIGURATION + "/Account").is_symlink()
    assert device.list_directory("/mnt/flash") == ["real"]


@pytest.mark.fault("S7")
def test_a_bind_mounted_document_is_written_in_place(device):
    device.write_documents({"Account": "<Account/>"})
    device.write_file("/mnt/flash/real", ACCOUNT)
    device.bind("/mnt/flash/real", CONFIGURATION + "/Account")
    device.start()
    assert device.request("write:Account.Name=new").code == 1
    assert device.read_file("/mnt/flash/real") == NEW_ACCOUNT
    assert names(device) == ["Account"]
    assert "replace_file" not in device.stderr()


@pytest.mark.fault("S7")
def test_a_read_only_directory_with_writable_files(service, device):
    device.write_documents({"Account": ACCOUNT})
    device.outside(CONFIGURATION).chmod(0o555)
    device.start(obey_permissions=True)
    assert device.request("write:Account.Name=new").code == 1
    assert device.read_document("Account") == NEW_ACCOUNT
    assert names(device) == ["Account"]


@pytest.mark.fault("S7", "S2")
def test_a_read_only_file_system_fails_cleanly_and_is_tried_again(device):
    device.mount_tmpfs(CONFIGURATION)
    device.write_documents({"Account": ACCOUNT})
    device.start()
    device.set_read_only(CONFIGURATION)
    line = failure(CONFIGURATION + "/Account", errno.EROFS)
    assert device.request("write:Account.Name=new").code == 1
    assert device.stderr().count(line) == 1
    for _ in range(5):
        assert device.request("readvalue:Account.Name").text == "new"
    assert device.stderr().count(line) == 1  # a read writes nothing
    assert device.request("writedbmem:Account.Name=newer").code == 1
    assert device.stderr().count(line) == 2
    assert device.request("syncmemtoflash:").code == 0
    assert device.stderr().count(line) > 2
    tries = device.stderr().count(line)
    assert device.read_document("Account") == ACCOUNT.encode()
    device.set_read_only(CONFIGURATION, on=False)
    assert device.request("writedbmem:Account.Name=new").code == 1
    assert device.read_document("Account") == NEW_ACCOUNT
    assert device.request("syncmemtoflash:").code == 0
    assert device.stderr().count(line) == tries


@pytest.mark.fault("S3")
def test_a_save_that_failed_is_tried_again_ten_seconds_later(device):
    device.require_fake_clock()
    device.mount_tmpfs(CONFIGURATION)
    device.write_documents({"Account": ACCOUNT})
    device.start(fake_clock=True)
    device.set_read_only(CONFIGURATION)
    assert device.request("write:Account.Name=new").code == 1
    device.set_read_only(CONFIGURATION, on=False)
    device.move_clock(9)
    assert device.request("readvalue:Account.Name").text == "new"
    assert device.read_document("Account") == ACCOUNT.encode()
    device.move_clock(11)
    assert device.request("readvalue:Account.Name").text == "new"
    assert device.read_document("Account") == NEW_ACCOUNT


@pytest.mark.fault("S3")
def test_a_full_file_system_keeps_the_old_file_and_saves_later(device):
    device.mount_tmpfs(CONFIGURATION, size="256k")
    device.write_documents({"Account": ACCOUNT})
    device.start()
    device.write_file(CONFIGURATION + "/filler", b"")
    with open(device.outside(CONFIGURATION + "/filler"), "wb", buffering=0) as filler:
        try:
            while True:
                filler.write(b"x" * 4096)
        except OSError as problem:
            assert problem.errno == errno.ENOSPC
    assert device.request("write:Account.Name=new").code == 1
    assert failure(CONFIGURATION + "/Account", errno.ENOSPC) in device.stderr()
    assert device.read_document("Account") == ACCOUNT.encode()
    assert names(device) == ["Account", "filler"]
    device.outside(CONFIGURATION + "/filler").unlink()
    assert device.request("unknown command of any kind:").code == -4
    assert device.read_document("Account") == ACCOUNT.encode()  # no command was run
    assert device.request("writedbmem:Account.Name=new").code == 1
    assert device.read_document("Account") == NEW_ACCOUNT


@pytest.mark.fault("S6")
def test_leftovers_are_swept_at_the_start_and_nothing_else(device):
    device.write_documents({"Account": ACCOUNT, "Network": NETWORK})
    device.write_file(CONFIGURATION + "/.veltrancord-new.Account", "<Account>half of")
    device.write_file(CONFIGURATION + "/.veltrancord-new.Gone", "")
    device.write_file(CONFIGURATION + "/.foreign", "<Foreign/>")
    os.mkdir(device.outside(CONFIGURATION + "/.veltrancord-new.Directory"))
    os.mkfifo(device.outside(CONFIGURATION + "/.veltrancord-new.Pipe"))
    os.symlink("Account", device.outside(CONFIGURATION + "/.veltrancord-new.Link"))
    os.mkfifo(device.outside(CONFIGURATION + "/Pipe"))
    os.symlink("nowhere", device.outside(CONFIGURATION + "/Dangling"))
    device.start()
    assert names(device) == [".foreign", ".veltrancord-new.Directory", ".veltrancord-new.Link",
                             ".veltrancord-new.Pipe", "Account", "Dangling", "Network", "Pipe"]
    assert ".veltrancord-new" not in device.output()
    assert device.request("readvalue:Account.Name").text == "old"
    assert device.request("download:/tmp/out").code == 0
    assert b"half of" not in device.read_file("/tmp/out")
    assert device.read_file("/tmp/out").count(b"<Account>") == 1


@pytest.mark.fault("S6")
def test_the_original_of_a_damaged_file_is_kept(device):
    damaged = b"<Account>\n    <Name>old</Name>\n    <User1>1</User1>\0   <User2>2</User2>\n</Account>\n"
    device.write_documents({"Account": damaged, "Network": NETWORK})
    device.start()
    assert device.request("readvalue:Account.User1").text == "1"
    assert device.request("write:Network.Mode=new\nAccount.Name=new").code == 2
    assert device.read_document(".veltrancord-kept.Account") == damaged
    assert device.read_document("Account") == (
        b"<Account>\n    <Name>new</Name>\n    <User1>1</User1>\n</Account>\n")
    assert device.request("write:Account.Name=newer").code == 1
    device.restart()
    assert device.request("write:Account.Name=newest").code == 1
    assert device.read_document(".veltrancord-kept.Account") == damaged
    assert names(device) == [".veltrancord-kept.Account", "Account", "Network"]
    assert device.request("remove:Account.*").code == 0
    assert names(device) == [".veltrancord-kept.Account", "Network"]


def test_syncmemtoflash(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK})
    assert device.request("syncmemtoflash:").code == 0
    assert device.request("writedbmem:Account.Name=new\nNetwork.Mode=new").code == 2
    assert device.read_document("Account") == ACCOUNT.encode()
    assert device.request("syncmemtoflash:ignored").code == 0
    assert device.read_document("Account") == NEW_ACCOUNT
    assert b"<Mode>new</Mode>" in device.read_document("Network")
    device.request("remove:.*")
    assert device.request("syncmemtoflash:").code == -4


def test_remove(service):
    device = service({"Account": ACCOUNT, "Network": NETWORK, "Third": "<Third><A>1</A></Third>"})
    assert device.request("remove:").code == -7
    assert device.request("remove:Missing.*").code == -4
    assert device.request("remove:Account.Missing").code == -4
    assert device.request("remove:Account.Name").code == 0
    assert device.read_document("Account") == b"<Account />\n"
    assert device.request("remove:Network.*\n").code == 0
    assert names(device) == ["Account", "Third"]
    assert device.request("read:Network.*").code == -4
    assert device.request("remove:.*").code == 0
    assert names(device) == []
    assert device.request("read:*").code == -4


def test_what_was_written_is_there_after_a_restart(service):
    device = service({"Account": ACCOUNT})
    device.request("write:Account.Name=<&\"'>\xe9\nAccount.New.Deeper=1")
    reply = device.request("readvalue:Account.Name")
    device.restart()
    assert device.request("readvalue:Account.Name") == reply
    assert device.request("readvalue:Account.New.Deeper").text == "1"
