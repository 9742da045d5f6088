"""Memory that runs out: each allocation of each command in turn, once and from there on."""

import os

import pytest

from device import EVENT_LOG, wait_until
from fault_control import ALLOCATIONS, FOR_EVER, NEVER, Faults
from workload import COMMANDS, do, install

PROBE = "readvalue:Account.User1.Username"
PROBE_REPLY = (4, b"root")


# What the XML parser is building when it is refused memory it leaves behind: at most the elements
# that were open at that moment, each in a few blocks. Everything else is freed.
PARSING = ("upload", "restore", "syncxml")
PARSER_LOSS = 16

MOST_SESSIONS, MOST_CAPTCHAS = 50, 60


@pytest.fixture
def starved(device):
    """A started service with `device.faults`, all that grows up to a bound already at its bound."""
    device.mount_tmpfs(os.path.dirname(EVENT_LOG), size="136k")
    install(device)
    device.faults = Faults(device)
    device.start("-L", environment=device.faults.environment)
    device.faults.watch()
    capacity = device.request("maxlogcount:").code
    for _ in range(capacity + 1):
        device.request(COMMANDS["writelog"].payload)
    for _ in range(MOST_SESSIONS):
        device.request(COMMANDS["SetSession"].payload)
    for _ in range(MOST_CAPTCHAS):
        device.request(COMMANDS["SetCaptcha"].payload)
    # The records of events are kept; whether one is needed depends on who comes first, the
    # connection's request or the server's look at it.
    with device.connect(), device.connect(), device.connect():
        assert device.request(PROBE) == PROBE_REPLY
    return device


def test_every_command_of_the_table_is_tried():
    assert len(COMMANDS) == 35


def settled_blocks(device):
    """The blocks that the server thread holds when it waits for the next request."""
    assert device.request(PROBE) == PROBE_REPLY
    stat = device.outside(f"/proc/{device.worker_pid}/task/{device.faults.thread}/stat")
    wait_until(lambda: stat.read_text().rpartition(")")[2].split()[0] == "S", "the thread waits")
    return device.faults.blocks


def allowed(reply, good):
    """What is answered is the whole truth, a refusal, or nothing at all; never a part."""
    return reply == good or reply.code is None or (reply.code <= 0 and not reply.body)


@pytest.mark.fault("M1")
@pytest.mark.parametrize("name", COMMANDS)
def test_every_allocation_fails(starved, name, figure):
    one = COMMANDS[name]
    faults = starved.faults
    worker = starved.worker_pid
    good = do(starved, one)
    assert do(starved, one) == good
    for payload in one.before:
        starved.request(payload)
    with faults.failing(ALLOCATIONS, NEVER):
        assert starved.request(one.payload) == good
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
                reply = starved.request(one.payload)
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
    assert 0 <= lost <= (PARSER_LOSS * 2 * amount if name in PARSING else 0)
