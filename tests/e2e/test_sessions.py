"""Sessions and captchas on a running service: the clock, restarts, secrets. Their rules are those of
the unit tests and of test_access_model.py."""

import pytest

NOT_FOUND, EXPIRED = -4, 1


@pytest.fixture
def running(device):
    device.start()
    return device


@pytest.fixture
def timed(device):
    """A service whose clock stands until the test moves it: `timed.at(seconds)`."""
    device.require_fake_clock()
    device.start(fake_clock=True)
    device.at = device.stop_clock
    device.at(0)
    return device


def code(device, request):
    reply = device.request(request)
    assert reply.body == b""
    return reply.code


def test_lifetimes_go_by_the_clock(timed):
    assert code(timed, "SetSession:tok") == 0
    assert code(timed, "SetCaptcha:a&x") == 0
    timed.at(29)
    assert code(timed, "CompareCaptcha:a&x") == 0  # and a new period begins
    timed.at(58)
    assert code(timed, "CompareCaptcha:a&x") == 0
    timed.at(59)
    assert code(timed, "CheckSession:tok") == 0
    timed.at(60)
    assert code(timed, "CheckSession:tok") == NOT_FOUND
    timed.at(88)
    assert code(timed, "CompareCaptcha:a&x") == EXPIRED


@pytest.mark.fault("C2")
def test_lifetimes_go_on_beyond_2038(timed):
    timed.at(2_147_483_640 - 1_000_000_000)
    assert code(timed, "SetSession:tok") == 0
    assert code(timed, "SetCaptcha:id&x") == 0
    timed.at(2_147_483_660 - 1_000_000_000)
    assert code(timed, "CheckSession:tok") == 0
    assert code(timed, "CheckSession:tok&2147483647") == 0
    assert code(timed, "CheckSession:tok&20") == NOT_FOUND
    assert code(timed, "CompareCaptcha:id&x&1&21") == 0


@pytest.mark.fault("C2")
def test_a_clock_that_is_set_back_ends_no_session(timed):
    timed.at(100_000)
    assert code(timed, "SetSession:tok") == 0
    timed.at(0)
    assert code(timed, "CheckSession:tok") == 0
    timed.at(100_059)
    assert code(timed, "CheckSession:tok") == 0
    timed.at(100_060)
    assert code(timed, "CheckSession:tok") == NOT_FOUND


def test_nothing_outlives_the_worker(device):
    device.start("-l")
    assert code(device, "SetSession:tok") == 0
    assert code(device, "SetCaptcha:id&x") == 0
    device.kill_worker()
    assert code(device, "CheckSession:tok&99999") == NOT_FOUND
    assert code(device, "CompareCaptcha:id&x&0&99999") == NOT_FOUND


def test_no_secret_appears_in_any_output(running):
    for request in ("SetSession:hush-hush", "CheckSession:hush-hush", "CheckSession:hush-hush&0",
                    "SetCaptcha:id&hush-hush", "CompareCaptcha:id&hush-hush&0&0",
                    "CompareCaptcha:id&hush-hus", "UpdateCaptchaTime:id&hush-hush",
                    "DelCaptchaItem:id&hush-hush"):
        running.request(request)
    assert "hush" not in running.output()
    assert all(b"hush" not in running.outside(f"/tmp/{name}").read_bytes()
               for name in running.list_directory("/tmp") if name != "Veltrancord.unix")
