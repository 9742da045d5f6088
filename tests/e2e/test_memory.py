"""What a large configuration costs in memory, and that large replies leave none behind."""

import pytest

from device import CONFIGURATION

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


MEBIBYTE = 1 << 20


def test_loading_takes_one_copy_of_the_text_more_than_the_document(device):
    if device.sanitizer is not None:
        pytest.skip("a sanitizer keeps freed memory")
    size = 64 * MEBIBYTE
    value = "v" * (size // 64)
    device.write_document("Large", "<Large>" + f"<E>{value}</E>" * 64 + "</Large>")
    device.start()
    worker = device.worker_pid
    # Where a thing was read from a file does not matter: it is the kernel's to drop.
    peak = device.memory_kilobytes(worker, "VmHWM")
    held = device.memory_kilobytes(worker, "VmRSS")
    assert held * 1024 > size
    assert (peak - held) * 1024 < 1.5 * size


def test_a_document_that_memory_does_not_suffice_for_is_skipped(device):
    if device.sanitizer is not None:
        pytest.skip("address space is theirs for the most part")
    device.write_document("Aaa", "<Aaa><Name>a</Name></Aaa>")
    device.write_document("Mmm", "<Mmm>" + "<a/>" * (2 * MEBIBYTE) + "</Mmm>")
    device.write_document("Zzz", "<Zzz><Name>z</Name></Zzz>")
    large = device.read_document("Mmm")
    device.start("-l", limits={"AS": 192 * MEBIBYTE})
    worker = device.worker_pid
    assert device.stderr().count(f"LoadXmlDir no memory, skip strxmlPath={CONFIGURATION}/Mmm\n") == 1
    for name in ("Aaa", "Zzz"):
        assert device.request(f"readvalue:{name}.Name").text == name[0].lower()
        assert device.request(f"write:{name}.Name=new").code == 1
    assert device.request("readvalue:Mmm.a").code == -4
    assert device.request("syncmemtoflash:").code == 0
    assert device.read_document("Mmm") == large
    assert device.worker_pid == worker
    assert "restart" not in device.stderr()


def test_large_saves_and_exchanges_leave_no_memory_behind(wordy):
    before = resident_kilobytes(wordy)
    for turn in range(3):
        assert wordy.request(f"write:Wordy0.E1={turn}").code == 1
        assert wordy.request("download:/tmp/exchange.xml").code == 0
    assert resident_kilobytes(wordy) <= before * 1.1


def test_the_text_of_a_large_save_is_let_go(device):
    if device.sanitizer is not None:
        pytest.skip("a sanitizer keeps freed memory")
    values = "".join(f"<E{i}>{'text ' * 500}</E{i}>" for i in range(4000))
    device.write_document("Large", f"<Large>{values}</Large>")
    device.start()
    before = resident_kilobytes(device)
    assert device.request("write:Large.E1=new").code == 1
    assert len(device.read_document("Large")) > 9_000_000
    assert resident_kilobytes(device) - before < 4096


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
