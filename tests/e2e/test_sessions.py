"""Sessions and captchas on a running service."""

import pytest

NOT_FOUND, ABSENT = -4, -9
WRONG, EXPIRED = 2, 1


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


def test_a_session_lasts_a_minute(timed):
    assert code(timed, "SetSession:tok") == 0
    timed.at(59)
    assert code(timed, "CheckSession:tok") == 0
    timed.at(60)
    assert code(timed, "CheckSession:tok") == NOT_FOUND
    assert code(timed, "CheckSession:tok&61") == 0
    assert code(timed, "CheckSession:tok&60") == NOT_FOUND
    assert code(timed, "CheckSession:tok&0") == NOT_FOUND
    assert code(timed, "CheckSession:tok&-5") == NOT_FOUND


def test_a_captcha_lasts_half_a_minute_and_five_seconds_at_least(timed):
    for name in "abc":
        assert code(timed, f"SetCaptcha:{name}&x") == 0
    timed.at(4)
    assert code(timed, "CompareCaptcha:c&x&1&1") == 0
    assert code(timed, "CompareCaptcha:c&x&1&1") == NOT_FOUND
    timed.at(5)
    assert code(timed, "CompareCaptcha:b&x&0&1") == EXPIRED
    timed.at(29)
    assert code(timed, "CompareCaptcha:a&x&0") == 0  # and a new period begins
    timed.at(30)
    assert code(timed, "CompareCaptcha:b&x") == EXPIRED
    timed.at(58)
    assert code(timed, "CompareCaptcha:a&x") == 0
    timed.at(88)
    assert code(timed, "CompareCaptcha:a&x") == EXPIRED
    assert code(timed, "UpdateCaptchaTime:a&x") == 0
    timed.at(117)
    assert code(timed, "CompareCaptcha:a&x") == 0


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


def test_the_oldest_go(running):
    for number in range(1, 52):
        assert code(running, f"SetSession:tok{number}") == 0
        if number in (49, 50):
            assert code(running, "CheckSession:tok1&99999") == 0
    assert code(running, "CheckSession:tok1&99999") == NOT_FOUND
    assert code(running, "CheckSession:tok2&99999") == 0
    assert code(running, "CheckSession:tok51&99999") == 0
    for number in range(1, 62):
        assert code(running, f"SetCaptcha:id{number}&x") == 0
        if number in (59, 60):
            assert code(running, "CompareCaptcha:id1&x&0&99999") == 0
    assert code(running, "CompareCaptcha:id1&x&0&99999") == NOT_FOUND
    assert code(running, "CompareCaptcha:id2&x&0&99999") == 0
    assert code(running, "CompareCaptcha:id61&x&0&99999") == 0


def test_captcha_answers(running):
    assert code(running, "SetCaptcha:id&old") == 0
    assert code(running, "SetCaptcha:id&new") == 0
    assert code(running, "CompareCaptcha:id&new&0&999") == WRONG
    assert code(running, "CompareCaptcha:id&old&0&999") == 0
    assert code(running, "CompareCaptcha:other&old") == NOT_FOUND
    assert code(running, "DelCaptchaItem:id&old") == NOT_FOUND  # but it is gone:
    assert code(running, "CompareCaptcha:id&new&1&999") == 0
    assert code(running, "CompareCaptcha:id&new&1&999") == NOT_FOUND
    assert code(running, "UpdateCaptchaTime:id&new") == NOT_FOUND


def test_malformed_arguments_are_told_on_standard_error(running):
    expected = ""
    for command, name, text in (
            ("SetCaptcha", "SetCaptcha_handle", "NULL Verify String"),
            ("CompareCaptcha", "CompareCaptcha_handle", "Captcha Code NULL String"),
            ("UpdateCaptchaTime", "UpdateCapchaTime", "Captcha Code NULL String"),
            ("DelCaptchaItem", "DelCaptchaItem", "Captcha Code NULL String")):
        for argument in ("", "secret"):
            assert code(running, f"{command}:{argument}") == ABSENT
            expected += f"{name}: {text} !!\n"
    assert running.stderr().endswith(expected)
    assert "secret" not in running.output()


def test_an_empty_text_is_a_token(running):
    assert code(running, "CheckSession:&999") == NOT_FOUND
    assert code(running, "SetSession:") == 0
    assert code(running, "CheckSession:&999") == 0
    assert code(running, "CheckSession:") == 0


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
