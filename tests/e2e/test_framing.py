"""Request and reply frames, byte for byte, and what becomes of bytes that are no frame."""

import re
import struct
import time

import pytest

from device import wait_until
from wire import NO_REPLY, Reply, frame

ACCOUNT = "<Account><User1><Username>admin</Username></User1><a_3Ab>colon</a_3Ab></Account>"
USERNAME = "read:Account.User1.Username"
ADMIN = Reply(len("Account.User1.Username=admin"), b"Account.User1.Username=admin")


@pytest.fixture
def ready(service):
    device = service({"Account": ACCOUNT})
    device.forget_output()
    return device


def log_of(device, client):
    """What the service has logged by the time that it has closed this client's connection."""
    assert client.receive_reply() == NO_REPLY
    # The next answer comes from a later pass of the loop: whatever was to be logged is there.
    assert device.request(USERNAME) == ADMIN
    return device.stderr()


# ---- replies ----------------------------------------------------------------------------------


def test_a_body_follows_its_length_and_the_connection_ends(ready):
    with ready.connect() as client:
        client.send_request(USERNAME)
        assert client.receive(1000) == b"\x1c\0\0\0Account.User1.Username=admin"


def test_a_short_body_is_sent_exactly(ready):
    with ready.connect() as client:
        client.send_request("readvalue:Account.User1.Username")
        assert client.receive(1000) == b"\x05\0\0\0admin"


def test_a_negative_code_comes_alone(ready):
    with ready.connect() as client:
        client.send_request("read:")
        assert client.receive(1000) == b"\xf9\xff\xff\xff"


@pytest.mark.parametrize("payload", ["nosuch:", "Read:Account.*", "READ:Account.*", " read:x",
                                     "read :x", ":", ":read:", "reada:x", "rea:x", "?:", "\n:"])
def test_an_unknown_command_gets_minus_four(ready, payload):
    with ready.connect() as client:
        client.send_request(payload)
        assert client.receive(1000) == b"\xfc\xff\xff\xff"
    assert ready.stderr() == ""


# ---- payload text -----------------------------------------------------------------------------


def test_a_payload_without_colon_gets_no_reply_and_no_message(ready):
    for payload in ("read", "x", "nosuch", "read Account", "\0", "\n"):
        assert ready.request(payload) == NO_REPLY
    assert ready.request(USERNAME) == ADMIN
    assert ready.stderr() == ""


def test_a_colon_alone_behind_the_name_runs_the_command_without_argument(ready):
    assert ready.request("read:") == (-7, b"")
    assert ready.request("readwithlevel:") == (-4, b"")
    assert ready.request("readsingleattr:") == (-7, b"")


def test_the_argument_keeps_its_own_colons(ready):
    assert ready.request("read:Account.a:b") == (17, b"Account.a:b=colon")


def test_a_nul_ends_the_payload_text(ready):
    assert ready.request(USERNAME.encode() + b"\0.Nothing") == ADMIN
    assert ready.request(USERNAME.encode() + b"\0" * 1000) == ADMIN
    assert ready.request(b"read:\0Account.User1.Username") == (-7, b"")


def test_a_nul_before_the_colon_hides_it(ready):
    assert ready.request(b"read\0:Account.User1.Username") == NO_REPLY
    assert ready.request(b"\0read:Account.User1.Username") == NO_REPLY


def test_the_payload_needs_no_terminator(ready):
    # A longer request before makes it likely that foreign bytes would lie behind this one's.
    ready.request("read:Account." + "x" * 4000)
    assert ready.request(USERNAME) == ADMIN


def test_a_long_payload_is_taken_whole(ready):
    assert ready.request("nosuch:" + "x" * 3_000_000) == (-4, b"")
    assert ready.request(USERNAME.encode() + b"\0" + b"x" * 3_000_000) == ADMIN


# ---- before the start code --------------------------------------------------------------------


@pytest.mark.parametrize(
    "garbage", [b"x", b"\0", b"\n\r\xff", b"\0" * 3, b"read:Account", b"=" * 70000],
    ids=["x", "nul", "control", "nuls", "text", "long"])
def test_garbage_before_the_start_code_is_skipped(ready, garbage):
    with ready.connect() as client:
        client.send(garbage + frame(USERNAME))
        assert client.receive_reply() == ADMIN
    assert ready.stderr() == ""


@pytest.mark.parametrize("power", [64, 512, 1024, 4096, 8192, 65536])
def test_a_start_code_may_stand_anywhere(ready, power):
    """Also where a server that reads in blocks of a usual size would find its block's end."""
    for length in range(power - 8, power + 3):
        with ready.connect() as client:
            client.send(b"x" * length + frame(USERNAME))
            assert client.receive_reply() == ADMIN


def test_garbage_may_come_long_before_the_frame(ready):
    with ready.connect() as client:
        client.send(b"garbage")
        assert ready.request(USERNAME) == ADMIN  # the other one does not hold it up
        assert client.is_open(0.2)
        client.send(frame(USERNAME))
        assert client.receive_reply() == ADMIN


def test_garbage_may_come_byte_by_byte(ready):
    with ready.connect() as client:
        client.send_byte_by_byte(b"garbage\0!", pause=0.01)
        client.send(frame(USERNAME))
        assert client.receive_reply() == ADMIN


def test_a_client_that_closes_without_a_word_is_logged(ready):
    with ready.connect() as client:
        client.half_close()
        assert log_of(ready, client) == "do_read Check start code fail ret=0!!\n"


def test_a_client_that_closes_after_garbage_is_logged(ready):
    with ready.connect() as client:
        client.send(b"garbage")
        client.half_close()
        assert log_of(ready, client) == "do_read Check start code fail ret=0!!\n"


# ---- the length -------------------------------------------------------------------------------


@pytest.mark.parametrize("count", [1, 2, 3])
@pytest.mark.parametrize("garbage", [0, 4096 - 4, 4096 - 3, 4096 - 2])
def test_a_part_of_the_length_is_a_failure(ready, garbage, count):
    with ready.connect() as client:
        client.send(b"x" * garbage + frame(USERNAME)[:1 + count])
        log = log_of(ready, client)
    assert log.startswith("do_read read length fail, error: ")
    assert log.endswith("!!\n") and log.count("\n") == 1


def test_a_length_that_is_not_there_is_waited_for_three_times(device):
    device.write_document("Account", ACCOUNT)
    device.start_traced(calls="read,recvfrom,poll,ppoll,select,pselect6")
    device.forget_output()
    with device.connect() as client:
        client.send(b"?")
        log = log_of(device, client)
    assert log == ("do_read 1932 read length fail, error: "
                   "Resource temporarily unavailable!!\n")
    lines = device.trace()
    start = next(i for i, line in enumerate(lines) if '"?"' in line and line.endswith("= 1"))
    worker = lines[start].split()[0]
    behind = [line for line in lines[start + 1:] if line.split()[0] == worker]
    attempt, wait = r", 4[,)].* EAGAIN ", r"poll\(\[\{fd=\d+, events=POLLIN\}\], 1, 10\) = 0"
    for line, pattern in zip(behind, [attempt, wait, attempt, wait, attempt, wait, attempt]):
        assert re.search(pattern, line), behind[:7]
    assert not re.search(r", 4[,)].* EAGAIN |, 1, 10\)", behind[7])


def test_a_request_may_come_in_three_pieces(ready):
    """Nearly all of them: a busy machine may keep a client waiting between its pieces for longer."""
    data = frame(USERNAME)
    answered = 0
    for _ in range(1000):
        with ready.connect() as client:
            try:
                for piece in (data[:1], data[1:5], data[5:]):
                    client.send(piece)
                answered += client.receive_reply() == ADMIN
            except (BrokenPipeError, ConnectionResetError):
                pass  # it took too long
    assert answered >= 980


def test_an_end_after_the_start_code_is_a_failure(ready):
    with ready.connect() as client:
        client.send(b"?")
        client.half_close()
        log = log_of(ready, client)
    # Either the end is seen at once or the four attempts are over before.
    assert log.startswith(("do_read read length fail, error: ", "do_read 1932 read length fail"))
    assert log.endswith("!!\n") and log.count("\n") == 1


def test_a_length_of_zero_is_a_failure(ready):
    with ready.connect() as client:
        client.send(b"?\0\0\0\0")
        assert log_of(ready, client) == "do_read read command fail!!\n"


def test_a_length_of_zero_is_a_failure_even_if_more_bytes_follow(ready):
    with ready.connect() as client:
        client.send(b"?\0\0\0\0" + frame(USERNAME))
        assert log_of(ready, client) == "do_read read command fail!!\n"


@pytest.mark.fault("M2")
@pytest.mark.parametrize("length", [0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF])
def test_a_huge_length_costs_no_memory(ready, length):
    ready.require_no_sanitizer("valgrind", "it keeps books of each byte, four gigabytes too")
    before = ready.memory_kilobytes(ready.worker_pid, "VmHWM")
    with ready.connect() as client:
        client.send(b"?" + struct.pack("<I", length) + b"read:Account")
        client.half_close()
        log = log_of(ready, client)
    assert log in ("do_read read command fail!!\n", "do_read malloc fail!!\n")
    if ready.sanitizer is None:
        assert ready.memory_kilobytes(ready.worker_pid, "VmHWM") - before < 8192


def test_memory_that_cannot_be_had_for_the_payload_is_logged(device):
    device.require_no_sanitizer("valgrind", "it needs the address space itself")
    device.write_document("Account", ACCOUNT)
    # A sanitizer's allocator has its own limit, below this length too.
    device.start(limits=None if device.sanitizer else {"AS": 1 << 30})
    device.forget_output()
    with device.connect() as client:
        client.send(b"?\xff\xff\xff\xff")
        assert log_of(device, client) == "do_read malloc fail!!\n"


# ---- the payload's arrival --------------------------------------------------------------------


def test_the_payload_may_come_byte_by_byte(ready):
    data = frame(USERNAME)
    with ready.connect() as client:
        client.send(data[:5])
        client.send_byte_by_byte(data[5:], pause=0.003)
        assert client.receive_reply() == ADMIN
    assert ready.stderr() == ""


@pytest.mark.fault("C1")
def test_garbage_and_payload_may_both_come_byte_by_byte(ready):
    data = frame(USERNAME)
    with ready.connect() as client:
        client.send_byte_by_byte(b"\0\1\2", pause=0.003)
        client.send(data[:5])
        client.send_byte_by_byte(data[5:])
        assert client.receive_reply() == ADMIN


def test_a_payload_that_ends_early_is_logged(ready):
    with ready.connect() as client:
        client.send(frame(USERNAME)[:-1])
        client.half_close()
        assert log_of(ready, client) == "do_read read command fail!!\n"


def test_waiting_for_the_payload_costs_no_processor_time(ready):
    worker = ready.worker_pid
    with ready.connect() as client:
        client.send(frame(USERNAME)[:-1])
        time.sleep(0.3)
        before = ready.processor_seconds(worker)
        time.sleep(1)
        assert ready.processor_seconds(worker) - before <= 0.3
        client.send(frame(USERNAME)[-1:])
        assert client.receive_reply() == ADMIN


def test_others_wait_while_a_payload_is_incomplete(ready):
    with ready.connect() as slow, ready.connect() as other:
        slow.send(frame(USERNAME)[:-1])
        time.sleep(0.1)
        other.send_request(USERNAME)
        assert other.is_open(0.5)  # nothing comes before the first one is through
        slow.send(frame(USERNAME)[-1:])
        assert slow.receive_reply() == ADMIN
        assert other.receive_reply() == ADMIN


def writable_memory(device, pid):
    """All that the process could write to: heap, stacks, data."""
    maps = device.outside(f"/proc/{pid}/maps").read_text()
    with open(device.outside(f"/proc/{pid}/mem"), "rb", buffering=0) as memory:
        for line in maps.splitlines():
            begin, end, flags = re.match(r"(\w+)-(\w+) (\S+)", line).groups()
            if flags.startswith("rw") and "[vv" not in line:
                memory.seek(int(begin, 16))
                yield memory.read(int(end, 16) - int(begin, 16))


@pytest.mark.parametrize("size", [40, 6000])
@pytest.mark.parametrize("pieces", [1, 2])
def test_a_token_that_was_asked_for_stays_nowhere_in_memory(ready, size, pieces):
    """In one piece it is served where it was received; in two the first is copied."""
    for kind in ("address", "thread", "valgrind"):
        ready.require_no_sanitizer(kind, "it keeps what was freed")
    secret = b"token-that-nobody-else-may-see"
    # Behind what the allocator itself writes to the beginning of freed memory.
    data = frame(b"CheckSession:" + b"x" * 64 + secret + b"x" * (size - len(secret)))
    cut = len(data) - 3 if pieces == 2 else len(data)
    with ready.connect() as client:
        client.send(data[:cut])
        if pieces == 2:
            assert client.is_open(0.1)
            client.send(data[cut:])
        assert client.receive_reply().code < 0
    # The client sees the reply a moment before its request is wiped.
    wait_until(lambda: not any(secret in memory for memory in
                               writable_memory(ready, ready.worker_pid)), "the token is gone",
               ready.patience)


@pytest.mark.parametrize("command", ["readvalue:Account.User1.PassWord", "read:Account.User1.*"])
def test_a_password_that_was_read_stays_nowhere_in_memory(service, command):
    secret = "password-that-was-read"
    device = service({"Account": ACCOUNT})
    for kind in ("address", "thread", "valgrind"):
        device.require_no_sanitizer(kind, "it keeps what was freed")
    assert device.request("write:Account.User1.PassWord=" + secret).code == 1
    device.restart()
    assert secret in device.request(command).text
    # The client sees the end a moment before the last of its memory is wiped.
    wait_until(lambda: not any(secret.encode() in memory for memory in
                               writable_memory(device, device.worker_pid)), "the password is gone",
               device.patience)


# ---- behind the frame -------------------------------------------------------------------------


def test_bytes_behind_the_frame_do_nothing(ready):
    for rest in (b"x", b"?", b"?\x01", frame(USERNAME), b"\0" * 100000):
        with ready.connect() as client:
            client.send(frame("readvalue:Account.User1.Username") + rest)
            assert client.receive_reply() == (5, b"admin")
    assert ready.stderr() == ""


def test_a_client_may_stop_sending_after_its_request(ready):
    with ready.connect() as client:
        client.send_request(USERNAME)
        client.half_close()
        assert client.receive_reply() == ADMIN
    assert ready.stderr() == ""
