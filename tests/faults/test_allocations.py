"""Memory that runs out: each allocation of each command in turn, once and from there on."""

import os
import random
import signal

import pytest

from device import EVENT_LOG, wait_until
from fault_control import ALLOCATIONS, FOR_EVER, NEVER, Faults
from wire import NO_REPLY
from workload import COMMANDS, do, install

PROBE = "readvalue:Account.User1.Username"
PROBE_REPLY = (4, b"root")


MOST_SESSIONS, MOST_CAPTCHAS = 50, 60


@pytest.fixture
def starved(device):
    """A started service with `device.faults`, all that grows up to a bound already at its bound."""
    device.mount_tmpfs(os.path.dirname(EVENT_LOG), size="136k")
    install(device)
    device.faults = Faults(device, allocations=True)
    device.start("-L", environment=device.faults.environment)
    device.faults.watch()
    capacity = device.request("maxlogcount:").code
    for _ in range(capacity + 1):
        device.request(COMMANDS["writelog"].payload)
    for _ in range(MOST_SESSIONS):
        device.request(COMMANDS["SetSession"].payload)
    for _ in range(MOST_CAPTCHAS):
        device.request(COMMANDS["SetCaptcha"].payload)
    return device


def test_every_command_of_the_table_is_tried():
    assert len(COMMANDS) == 35


def thread_state(device):
    stat = device.outside(f"/proc/{device.worker_pid}/task/{device.faults.thread}/stat")
    return stat.read_text().rpartition(")")[2].split()[0]


def open_sockets(device):
    return sum(what.startswith("socket:")
               for what in device.open_descriptors(device.worker_pid).values())


def settled_blocks(device):
    """The blocks that the server thread holds when it waits for the next request."""
    assert device.request(PROBE) == PROBE_REPLY
    wait_until(lambda: thread_state(device) == "S", "the thread waits")
    return device.faults.blocks


# What the server allocates depends on whether the request is there when it looks at a new client,
# so each order is brought about, and kept to: `way(device, payload)` returns the reply.


def there_at_once(device, payload):
    """The server finds the whole request when it accepts the client."""
    worker = device.worker_pid
    device.send_signal(worker, signal.SIGSTOP)
    try:
        client = device.connect()
        client.send_request(payload)
    finally:
        device.send_signal(worker, signal.SIGCONT)
    with client:
        return client.receive_reply()


def awaited(device, payload):
    """The server has nothing to read when it accepts the client, and waits."""
    wait_until(lambda: thread_state(device) == "S", "the server waits")
    sockets = open_sockets(device)
    with device.connect() as client:
        wait_until(lambda: open_sockets(device) > sockets or not client.is_open(),
                   "the client is accepted, or refused")
        wait_until(lambda: thread_state(device) == "S", "the server waits")
        try:
            client.send_request(payload)
        except BrokenPipeError:
            return NO_REPLY  # it has been refused
        return client.receive_reply()


def allowed(reply, good):
    """What is answered is the whole truth, a refusal, or nothing at all; never a part."""
    return reply == good or reply.code is None or (reply.code <= 0 and not reply.body)


@pytest.mark.fault("M1")
@pytest.mark.parametrize("way", [there_at_once, awaited])
@pytest.mark.parametrize("name", COMMANDS)
def test_every_allocation_fails(starved, name, way, figure):
    one = COMMANDS[name]
    faults = starved.faults
    worker = starved.worker_pid
    good = do(starved, one)
    assert do(starved, one) == good
    for payload in one.before:
        starved.request(payload)
    with faults.failing(ALLOCATIONS, NEVER):
        assert way(starved, one.payload) == good
    amount = faults.seen
    assert amount > 0
    blocks = None
    # The first round is for what is made once and kept.
    for times in (1, 1, FOR_EVER):
        for number in range(1, amount + 1):
            where = f"allocation {number} of {amount}, {'once' if times == 1 else 'for ever'}"
            for payload in one.before:
                starved.request(payload)
            with faults.failing(ALLOCATIONS, number, times):
                reply = way(starved, one.payload)
            assert faults.failed > 0, where
            assert allowed(reply, good), (where, reply)
            assert starved.request(PROBE) == PROBE_REPLY, where
            assert do(starved, one) == good, where
        if blocks is None:
            blocks = settled_blocks(starved)
    assert starved.worker_pid == worker
    lost = settled_blocks(starved) - blocks
    figure("allocations failed", 3 * amount)
    figure("blocks lost", lost)
    assert lost == 0


@pytest.mark.fault("M1")
def test_no_entry_that_is_in_the_log_is_denied(starved):
    """Whatever memory runs out for behind it: the save, the look at who wants to hear of it."""
    faults, payload = starved.faults, COMMANDS["writelog"].payload
    record = payload.partition(b":")[2]
    starved.install_script("/tmp/trigger/EventLogCallBack.sh", "#!/bin/sh\n")
    denied = 0
    for number in range(1, 100):
        numbered = b"writelog:" + record[:10] + bytes([number]) + record[11:]
        starved.request("cleanlog:")  # the first save of a log builds the text of its file
        with faults.failing(ALLOCATIONS, number, FOR_EVER):
            reply = there_at_once(starved, numbered)
        newest = starved.request("readlog:1&-1&1").body
        if reply.code is not None:
            assert (newest[10:11] == bytes([number])) == (reply.code == 0), (number, reply)
            denied += reply.code != 0
        if not faults.failed:
            break
    assert denied > 0 and not faults.failed


# ---- what the XML library is building when it is refused memory ----------------------------------

EXCHANGING = ("upload", "restore", "syncxml")


@pytest.mark.fault("M1")
@pytest.mark.parametrize("name", EXCHANGING)
def test_thousands_of_refused_parses_leave_nothing_behind(starved, name, long_form, figure):
    """A large exchange file; each time another allocation on the way through it is refused."""
    faults, rng = starved.faults, random.Random(4)
    wide = "".join(f'<E{i} at="{i}">text that is longer than a word {i}</E{i}>' for i in range(300))
    starved.write_file("/tmp/in", f"<R><A><V>1</V><W><Y>{wide}</Y></W></A><B>{wide}</B></R>")
    request = f"{name}:/tmp/in"
    assert [starved.request(request).code for _ in range(3)] == [0, 0, 0]
    with faults.failing(ALLOCATIONS, NEVER):
        assert starved.request(request).code == 0
    amount = faults.seen
    refusals = 4_000 if long_form else 500
    assert amount > 2_000
    blocks, memory = settled_blocks(starved), 0
    for number in range(refusals):
        with faults.failing(ALLOCATIONS, rng.randrange(1, amount + 1), rng.choice((1, FOR_EVER))):
            reply = starved.request(request)
        assert reply.code in (None, 0, -1, -3, -8) and not reply.body
        if number == refusals // 10:
            memory = starved.memory_kilobytes(starved.worker_pid, "RssAnon")
    assert starved.request(request).code == 0
    assert settled_blocks(starved) == blocks
    grown = starved.memory_kilobytes(starved.worker_pid, "RssAnon") - memory
    assert grown < 512
    figure("parses refused", refusals)
    figure("KiB grown", grown)


@pytest.mark.fault("M1")
@pytest.mark.parametrize("name", EXCHANGING)
def test_a_text_too_long_for_memory_takes_none_of_it(device, name):
    """A text of 5 MB asks for more than 6 MiB while it grows, a few open elements around it."""
    device.require_no_sanitizer("valgrind", "it gives whatever is asked for")
    for kind in ("address", "thread"):
        device.require_no_sanitizer(kind, "its operator new ends the process where memory is refused")
    install(device)
    faults = Faults(device, allocations=True)
    device.write_file("/tmp/in", "<R><A><V>" + "<W>1</W>" * 1000 + "y" * 5_000_000 + "</V></A></R>")
    device.start(environment=faults.environment)
    faults.refuse_over(6 << 20)
    for _ in range(5):
        assert device.request(f"{name}:/tmp/in").code == -8
    before = device.memory_kilobytes(device.worker_pid)
    for _ in range(30):
        assert device.request(f"{name}:/tmp/in").code == -8
        assert device.request(PROBE) == PROBE_REPLY
    # Each of them would leave four megabytes behind.
    assert device.memory_kilobytes(device.worker_pid) - before < 40_000
