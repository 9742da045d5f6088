"""What a long life costs."""

import os
import shutil
import signal

import pytest

import valgrind
from device import CONFIGURATION, EVENT_LOG, wait_until
from log_model import record

pytestmark = pytest.mark.fault("X1")

ACCOUNT = """<Account Level="1"><User1 Level="3"><Username>admin</Username>
<Password>enc:5:NxBaBAU=</Password></User1><Hidden AllowToShow="NO">h</Hidden></Account>"""

MIX = ["read:Account.User1.Username", "read:*", "read:Account.*", "readAndFilter:*",
       "readAndFilter:Account.User1.*", "readwithlevel:Account.User1.*&2",
       "readwithlevel:Account.*&9", "readvalue:Account.User1.Password", "readattr:Account.*",
       "readattr:Account.User1.#", "readattr:Account.*.Level", "readattr:Account.User1.Level",
       "readsingleattr:Account.User1.Level", "readsingleattr:Account.*", "read:Nothing.*", "read:",
       "nosuch:", "no colon", "read:Account." + "x" * 600]


# What changes something; each leaves the store as large as it was.
CHANGES = ["write:Account.User1.Username=root", "write:Hook.Run=now", "write:Account.V.Password=x",
           "writedbmem:Account.User1.Username=admin", "syncmemtoflash:", "remove:Account.V",
           "writeattr:Account.User1.Level=4", "write:Gone.x=1", "download:/tmp/out",
           "upload:/tmp/out", "restore:/tmp/out", "syncxml:/tmp/out", "upload:/tmp/none",
           b"writelog:" + record(4), b"writelog:" + record(8, text=b"soak"), "readlog:1&-1&9",
           "SyncPermit:", "listPermits:", "SetSession:t", "CheckSession:t", "SetCaptcha:i&a",
           "CompareCaptcha:i&a&1", "XMLDBCallBack:x", "GetCGIPermitFilter:admin&a"]


def lives_without_loss(device, requests):
    """Counted by valgrind, which tells a lost block from one that is still in use."""
    if shutil.which("valgrind") is None:
        pytest.skip("valgrind is not installed")
    if device.sanitizer not in (None, "valgrind"):
        pytest.skip("valgrind and a sanitizer do not go together")
    device.patience *= 5
    device.write_document("Account", ACCOUNT)
    device.write_document("Hook", '<Hook><Run DispatchW="/tmp/hook.sh">x</Run></Hook>')
    device.install_script("/tmp/hook.sh", "#!/bin/sh\nread line\n")
    device.start("-L", under=valgrind.COMMAND)
    worker, supervisor = device.worker_pid, device.supervisor_pid
    for request in requests:
        device.request(request)
    # The worker ends first, and by its signal alone: where it found the socket shut down it would
    # end as it is, with the socket open. The supervisor stands still meanwhile and starts no other.
    device.send_signal(supervisor, signal.SIGSTOP)
    device.send_signal(worker, signal.SIGTERM)
    wait_until(lambda: not device.is_running(worker), "the worker ended", device.patience)
    device.send_signal(supervisor, signal.SIGTERM)
    device.send_signal(supervisor, signal.SIGCONT)
    assert device.wait_for_end(supervisor, device.patience) == 1
    # The two directories stay locked until the last process that serves from them has ended.
    locked = sorted((CONFIGURATION, os.path.dirname(EVENT_LOG)))
    for pid, kept in ((worker, locked), (supervisor, locked), (device.starter.pid, [])):
        report = device.read_file(f"/run/log/valgrind.{pid}").decode()
        assert "ERROR SUMMARY: 0 errors" in report, report
        assert sorted(valgrind.left_open(report)) == kept, report
        # What valgrind does not know, openat2, is tried once, and not at each save.
        assert report.count("WARNING: unhandled") <= 1, report


def test_ten_thousand_mixed_reads_leak_nothing(device):
    lives_without_loss(device, (MIX[i % len(MIX)] for i in range(10000)))


def test_mixed_changes_leak_nothing(device):
    lives_without_loss(device, (CHANGES[i % len(CHANGES)] for i in range(40 * len(CHANGES))))
