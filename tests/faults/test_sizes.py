"""Requests and documents that are far too large, too deep or too wide."""

import struct

import pytest

from device import CONFIGURATION
from wire import frame

ACCOUNT = "<Account><User1><Username>admin</Username></User1></Account>"
USERNAME = "readvalue:Account.User1.Username"
ADMIN = (5, b"admin")
WAYS = ("load", "upload", "restore", "syncxml")


@pytest.mark.fault("M2")
@pytest.mark.parametrize("length", [0xFFFFFFFF, 0x80000000, 100 << 20], ids=hex)
def test_an_announced_length_alone_costs_no_memory(service, length, figure):
    device = service({"Account": ACCOUNT})
    if device.sanitizer is not None:
        pytest.skip("a sanitizer's allocator keeps books of its own")
    assert device.request(USERNAME) == ADMIN
    before = device.memory_kilobytes(device.worker_pid)
    grown = 0
    for _ in range(20):
        with device.connect() as client:
            client.send(b"?" + struct.pack("<I", length) + b"read:")
            # The whole request is read in one go, so once that was looked at, it is allocated.
            client.is_open(0.05)
            grown = max(grown, device.memory_kilobytes(device.worker_pid) - before)
            client.half_close()
            assert client.receive_reply().code is None
    assert device.request(USERNAME) == ADMIN
    grown = max(grown, device.memory_kilobytes(device.worker_pid) - before)
    assert grown < 1024
    figure("KiB grown", grown)


def bring_in(device, way, name, text):
    """The document `name` with this text, by the file or by an exchange file. Return: the code."""
    if way == "load":
        device.write_document(name, text)
        device.start()
        return 0
    device.write_document(name, f"<{name}><V>old</V></{name}>")
    device.write_file("/tmp/in", f"<R>{text}</R>")
    device.start()
    return device.request(f"{way}:/tmp/in").code


def still_serves(device):
    assert device.request(USERNAME) == ADMIN
    assert "Exiting" not in device.stderr()


@pytest.mark.fault("M4")
@pytest.mark.parametrize("way", WAYS)
@pytest.mark.parametrize("depth", [500, 5_000, 50_000])
def test_deep_documents(device, way, depth):
    device.write_document("Account", ACCOUNT)
    text = "<Deep>" + "<a>" * depth + "x" + "</a>" * depth + "</Deep>"
    code = bring_in(device, way, "Deep", text)
    if depth <= 510:
        assert code == 0
        path = "Deep" + ".a" * 200  # as many as a path can name, and some elements are left over
        assert device.request(f"readattr:{path}.*").code >= 0
    else:
        assert code == (0 if way == "load" else -3)
        assert device.request("readvalue:Deep.V").body == (b"" if way == "load" else b"old")
    for payload in ("read:*", "read:Deep.*", "readAndFilter:Deep.*", "readattr:Deep.*",
                    "readwithlevel:Deep.*&1", "download:/tmp/out", "write:Deep.V=1"):
        device.request(payload)
        still_serves(device)
    device.restart()
    still_serves(device)


@pytest.mark.fault("M4")
@pytest.mark.parametrize("way", WAYS)
def test_twenty_thousand_attributes(device, way):
    device.write_document("Account", ACCOUNT)
    # Watched by what slows each comparison, so many of them would take minutes.
    amount = 4_000 if device.sanitizer in ("thread", "valgrind") else 20_000
    text = "<Wide><E " + " ".join(f'a{i}="{i}"' for i in range(amount)) + ">x</E></Wide>"
    assert bring_in(device, way, "Wide", text) == 0
    if way == "syncxml":  # it merges texts and leaves attributes alone
        assert device.request("readvalue:Wide.E").body == b"x"
    else:
        assert device.request(f"readsingleattr:Wide.E.a{amount - 1}").body.rstrip(b"\0") == b"%d" % (amount - 1)
        assert device.request("readattr:Wide.*").body.startswith(b"Wide.E.a0=0\nWide.E.a1=1\n")
    still_serves(device)


@pytest.mark.fault("M4")
@pytest.mark.parametrize("way", WAYS)
def test_a_million_siblings(device, way, long_form, figure):
    device.mount_tmpfs(CONFIGURATION)
    device.write_document("Account", ACCOUNT)
    amount = 1_000_000 if long_form else 100_000
    amount = 20_000 if device.sanitizer == "valgrind" else amount
    text = "<Many>" + "<a>1</a>" * amount + "<Last>2</Last></Many>"
    assert bring_in(device, way, "Many", text) == 0
    assert device.request("readvalue:Many.Last").body == b"2"
    still_serves(device)
    figure("siblings", amount)


@pytest.mark.fault("C1")
def test_requests_of_all_lengths_around_the_buffers(service):
    device = service({"Account": ACCOUNT})
    for length in (*range(1, 80), 511, 512, 513, 4095, 4096, 4097, 65535, 65536, 65537, 1 << 20):
        payload = b"read:" + b"x" * max(0, length - 5)
        with device.connect() as client:
            client.send(frame(payload[:length]))
            client.receive_reply()
    still_serves(device)
