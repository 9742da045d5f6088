"""What a large configuration costs in memory, and that large replies leave none behind."""

import pytest

SIBLINGS = 20000


def flat_document(name, siblings):
    lines = [f"<E{i}>value number {i} of this list</E{i}>" for i in range(siblings)]
    return f"<{name}>{''.join(lines)}</{name}>"


def resident_kilobytes(device):
    return device.memory_kilobytes(device.worker_pid)


@pytest.fixture
def wordy(device):
    """Long values: a reply is nearly as large as the documents in memory."""
    if device.sanitizer is not None:
        pytest.skip("a sanitizer keeps freed memory")
    values = "".join(f"<E{i}>{'text ' * 500}</E{i}>" for i in range(500))
    for number in range(8):
        device.write_document(f"Wordy{number}", f"<Wordy{number}>{values}</Wordy{number}>")
    device.start()
    return device


def test_large_replies_leave_no_memory_behind(wordy):
    before = resident_kilobytes(wordy)
    for _ in range(5):
        reply = wordy.request("read:*")
        assert reply.code == len(reply.body) > 10_000_000
    assert resident_kilobytes(wordy) <= before * 1.1


def test_large_saves_and_exchanges_leave_no_memory_behind(wordy):
    before = resident_kilobytes(wordy)
    for turn in range(3):
        assert wordy.request(f"write:Wordy0.E1={turn}").code == 1
        assert wordy.request("download:/tmp/exchange.xml").code == 0
    assert resident_kilobytes(wordy) <= before * 1.1


def test_every_one_of_many_siblings_is_found(device):
    """The first, those around the end of what is walked over, and the last."""
    device.write_document("Flat", flat_document("Flat", SIBLINGS))
    device.start()
    for number in (0, 62, 63, 64, 65, SIBLINGS - 1):
        reply = device.request(f"readvalue:Flat.E{number}")
        assert reply.body == f"value number {number} of this list".encode()
    assert device.request(f"readvalue:Flat.E{SIBLINGS}").code == -4
    assert device.request(f"write:Flat.E{SIBLINGS}=new").code == 1
    assert device.request(f"remove:Flat.E{SIBLINGS - 1}").code == 0
    assert device.request(f"readvalue:Flat.E{SIBLINGS}").body == b"new"
    assert device.request(f"readvalue:Flat.E{SIBLINGS - 1}").code == -4
