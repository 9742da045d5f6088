"""Clients that break off, crowd in, dawdle or talk nonsense: none of them changes or costs anything."""

import contextlib
import random
import socket
import struct

import pytest

from device import CONFIGURATION, wait_until
from tracer import Strace
from wire import NO_REPLY, frame
from workload import COMMANDS, install

PROBE = "readvalue:Account.User1.Username"
PROBE_REPLY = (4, b"root")


@pytest.fixture
def working(device):
    install(device)
    device.start()
    device.forget_output()
    return device


def connections_of(device):
    """Number of sockets that the worker has open besides the listening one."""
    targets = device.open_descriptors(device.worker_pid).values()
    return sum(target.startswith("socket:") for target in targets) - 1


def wait_for_no_connections(device):
    wait_until(lambda: connections_of(device) == 0, "every connection is released", device.patience)


def cut_off(device, data):
    """A client that sends this and goes."""
    with device.connect() as client:
        client.send(data)


@pytest.mark.fault("F1")
def test_mixed_requests_a_tenth_of_them_cut_off(working, long_form, figure):
    """Cut at each byte in turn, on every command; no descriptor and no child is left."""
    payloads = [one.payload for one in COMMANDS.values()] + [b"nosuch:", b"no colon", b"read:", b""]
    worker = working.worker_pid
    assert working.request(PROBE) == PROBE_REPLY
    wait_for_no_connections(working)
    before = working.open_descriptors(worker)
    amount = 100_000 if long_form else 4_000
    cut = 0
    for number in range(amount):
        data = frame(payloads[number % len(payloads)])
        if number % 10 == 3:
            cut_off(working, data[:cut % len(data)])
            cut += 1
        else:
            working.request(data[5:])
    assert working.request(PROBE) == PROBE_REPLY
    wait_for_no_connections(working)
    assert working.open_descriptors(worker) == before
    assert working.worker_pid == worker
    wait_until(lambda: not working.children_of(worker), "every program is reaped", working.patience)
    figure("requests", amount)
    figure("cut off", cut)


@pytest.mark.fault("F3")
@pytest.mark.parametrize("crowd, limit", [(1100, 256), (1100, 1024), (5000, 1024), (5000, 4096)])
def test_a_crowd_of_idle_connections(device, crowd, limit, figure):
    if crowd == 5000:
        for kind in ("thread", "valgrind"):
            device.require_no_sanitizer(kind, "the first are let go before the last have come")
    install(device)
    device.start(limits={"NOFILE": limit})
    device.forget_output()
    worker = device.worker_pid
    clients = [device.connect() for _ in range(crowd)]
    try:
        # All but as many as there are descriptors are turned away at once.
        assert clients[-1].receive_reply() == NO_REPLY
        with Strace(device) as strace:
            assert clients[0].is_open(1)
        calls = len(strace.calls())
        assert calls < 50, "it spins"
        for client in clients[:20]:
            client.close()
        wait_until(lambda: connections_of(device) <= limit - 20, "there is room", device.patience)
        assert device.request(PROBE) == PROBE_REPLY
        assert clients[20].is_open()
    finally:
        for client in clients:
            client.close()
    wait_for_no_connections(device)
    assert device.request(PROBE) == PROBE_REPLY
    assert device.worker_pid == worker
    lines = device.stderr().count("do_accept")
    assert 1 <= lines <= 2
    figure("calls in a second", calls)
    figure("log lines", lines)


@pytest.mark.fault("C1")
def test_requests_in_three_pieces(working, long_form, figure):
    """As the protocol's own steps may be written: start code, length, payload. On a busy machine a
    client may be kept from sending the next piece for longer than the service waits."""
    amount = 100_000 if long_form else 3_000
    data = frame(PROBE)
    lost = 0
    for _ in range(amount):
        with working.connect() as client:
            try:
                for piece in (data[:1], data[1:5], data[5:]):
                    client.send(piece)
                lost += client.receive_reply() != PROBE_REPLY
            except (BrokenPipeError, ConnectionResetError):
                lost += 1
    figure("requests in three pieces", amount)
    figure("lost", lost)
    assert lost <= amount // 100


def state(device):
    """All that a hostile client might have changed."""
    listing = device.request("read:*")
    documents = {name: device.read_document(name) for name in device.list_directory(CONFIGURATION)}
    return listing, documents, device.request("geteventcount:").code


def hostile(rng, longest=0xFFFFFFFF):
    """Byte sequences that are no request, or one that must change nothing."""
    yield b""
    yield b"?"
    yield b"?" + struct.pack("<I", 10)  # the header alone
    yield b"?" + struct.pack("<I", 0)
    yield b"?" + struct.pack("<I", longest) + b"write:A.V=stolen"
    yield b"\0" * 10_000
    yield frame(b"\0" * 10_000)
    yield frame(b"write\0:A.V=stolen")
    yield frame(b"write:\0A.V=stolen")
    yield frame(b":" * 1000)
    yield frame(b"write:")
    yield frame(b"write:" + b"A" * 100_000)
    yield frame(b"write:" + b"A." * 50_000 + b"=1")
    yield frame(b"writeattr:=\n=\n=")
    yield frame(b"read:" + b"%s%n" * 100)
    yield frame(b"upload:/dev/zero")
    yield frame(b"restore:/proc/self/mem")
    yield frame(b"syncxml:" + b"/" * 10_000)
    yield b"GET / HTTP/1.1\r\nHost: x\r\n\r\n"
    for _ in range(200):
        yield bytes(b for b in rng.randbytes(rng.randrange(1, 300)) if b != ord("?"))
        yield b"?" + rng.randbytes(rng.randrange(0, 4))
        yield frame(rng.randbytes(rng.randrange(1, 300)))


def reset_at_close(client):
    client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


@pytest.mark.fault("C1")
def test_hostile_clients_change_nothing(working, figure):
    """Each sends something and half-closes, closes, or resets the connection."""
    before = state(working)
    worker = working.worker_pid
    amount = 0
    # Valgrind keeps books of each byte that is allocated.
    longest = 100 << 20 if working.sanitizer == "valgrind" else 0xFFFFFFFF
    for data in hostile(random.Random(1), longest):
        for ending in ("half", "close", "reset"):
            with working.connect() as client:
                try:
                    client.send(data)
                    if ending == "half":
                        client.half_close()
                        client.receive(1 << 20)
                    elif ending == "reset":
                        reset_at_close(client)
                except (BrokenPipeError, ConnectionResetError):
                    pass  # it has been let go already
            amount += 1
    assert working.request(PROBE) == PROBE_REPLY
    wait_for_no_connections(working)
    assert state(working) == before
    assert working.worker_pid == worker
    figure("hostile connections", amount)


@pytest.mark.fault("C1")
def test_a_request_may_break_off_behind_each_byte(working):
    data = frame(b"write:A.V=stolen\nB.V=stolen")
    before = state(working)
    for length in range(len(data)):
        for way in ("at once", "byte by byte", "reset"):
            with working.connect() as client:
                if way == "reset":
                    reset_at_close(client)
                if way == "byte by byte":
                    # A length that comes in pieces makes the service hang up in the middle.
                    with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                        client.send_byte_by_byte(data[:length])
                else:
                    client.send(data[:length])
    assert working.request(PROBE) == PROBE_REPLY
    assert state(working) == before
