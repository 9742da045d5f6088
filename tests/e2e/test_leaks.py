"""What a long life costs."""

import re
import shutil

import pytest

ACCOUNT = """<Account Level="1"><User1 Level="3"><Username>admin</Username>
<Password>enc:5:NxBaBAU=</Password></User1><Hidden AllowToShow="NO">h</Hidden></Account>"""

MIX = ["read:Account.User1.Username", "read:*", "read:Account.*", "readAndFilter:*",
       "readAndFilter:Account.User1.*", "readwithlevel:Account.User1.*&2",
       "readwithlevel:Account.*&9", "readvalue:Account.User1.Password", "readattr:Account.*",
       "readattr:Account.User1.#", "readattr:Account.*.Level", "readattr:Account.User1.Level",
       "readsingleattr:Account.User1.Level", "readsingleattr:Account.*", "read:Nothing.*", "read:",
       "nosuch:", "no colon", "read:Account." + "x" * 600]


def test_ten_thousand_mixed_reads_leak_nothing(device):
    """Counted by valgrind, which tells a lost block from one that is still in use."""
    if shutil.which("valgrind") is None:
        pytest.skip("valgrind is not installed")
    if device.sanitizer is not None:
        pytest.skip("valgrind and a sanitizer do not go together")
    device.patience *= 5
    device.write_document("Account", ACCOUNT)
    device.start(under=["valgrind", "--leak-check=full", "--show-leak-kinds=definite,indirect",
                        "--errors-for-leak-kinds=definite,indirect",
                        "--log-file=/run/log/valgrind.%p"])
    worker, supervisor = device.worker_pid, device.supervisor_pid
    for i in range(10000):
        device.request(MIX[i % len(MIX)])
    device.stop()
    for pid in (worker, supervisor, device.starter.pid):
        report = device.read_file(f"/run/log/valgrind.{pid}").decode()
        assert "ERROR SUMMARY: 0 errors" in report, report
        lost = re.findall(r"(?:definitely|indirectly) lost: ([\d,]+) bytes", report)
        assert set(lost) <= {"0"}, report
