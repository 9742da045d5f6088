"""The clock is set, far and near, back and forth."""

import os

import pytest

from device import EVENT_LOG
from log_model import entries, record

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "readvalue:Account.User1.Username"
ADMIN = (5, b"admin")
NOT_FOUND = -4
DAY = 86_400
STEPS = [1, 31 * 60, DAY, 20_000 * DAY]  # the last one leads far behind the year 2038
START = 1_000_000_000


@pytest.fixture
def timed(device):
    device.require_fake_clock(time_must_pass=False)
    for kind in ("address", "thread"):
        device.require_no_sanitizer(
            kind, "its allocator asks the moved clock for the time, which allocates to tell it")
    device.mount_tmpfs(os.path.dirname(EVENT_LOG), size="16m")
    device.write_document("Account", ACCOUNT)
    device.start(fake_clock=True, environment={"TZ": "UTC0"})
    device.stop_clock(0)
    device.forget_output()
    return device


@pytest.mark.fault("C2")
@pytest.mark.parametrize("step", STEPS)
@pytest.mark.parametrize("sign", [1, -1], ids=["forth", "back"])
def test_everything_goes_on_after_a_step_of_the_clock(timed, step, sign):
    start = 0 if sign > 0 else step
    timed.stop_clock(start)
    assert timed.request("SetSession:token").code == 0
    assert timed.request("SetCaptcha:id&text").code == 0
    with timed.connect() as silent:
        assert timed.request(USERNAME) == ADMIN
        timed.stop_clock(start + sign * step)
        assert timed.request(USERNAME) == ADMIN
        # Set back, the clock ends neither; set forth by less than their lives, neither.
        alive = sign < 0 or step < 30
        assert timed.request("CheckSession:token").code == (0 if alive else NOT_FOUND)
        assert timed.request("CompareCaptcha:id&text&0").code == (0 if alive else 1)
        assert silent.is_open(0.05) == alive
    assert timed.request("SetSession:second").code == 0
    assert timed.request("CheckSession:second").code == 0
    assert timed.request(b"writelog:" + record(1)).code == 0
    assert timed.request("write:Account.User1.Level=1").code == 1
    newest = entries(timed.request("readlog:1&-1&1").body)[0]
    days = (START + (start + sign * step)) // DAY
    assert newest.year == year_of(days) - 2000
    assert timed.request(USERNAME) == ADMIN
    assert timed.stderr() in ("", "do_read Check start code fail ret=0!!\n")  # the silent one's end


def year_of(days):
    """The year of a day counted from the beginning of 1970."""
    year = 1970
    while True:
        length = 366 if year % 4 == 0 and (year % 100 != 0 or year % 400 == 0) else 365
        if days < length:
            return year
        days -= length
        year += 1
