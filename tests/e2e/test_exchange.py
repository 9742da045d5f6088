"""upload, download, restore and syncxml over the wire."""

import errno
import os
import re

import pytest

from device import CONFIGURATION

A = "<A>\n    <Same>loaded</Same>\n    <Mine>1</Mine>\n</A>\n"
EXCHANGE = '<R><A><Same>file</Same><Theirs x="y">2</Theirs></A><B><V>3</V></B></R>'


def documents_of(exchange):
    """The documents in a downloaded file, sorted: their order is that of the list."""
    assert exchange.startswith(b"<ROOT>\n") and exchange.endswith(b"\n</ROOT>")
    # A line that begins with exactly one indentation begins or ends a document.
    return sorted(re.findall(rb"^    <(?=\w).*?(?:^    </\w+>\n|/>\n)", exchange, re.M | re.S))


def test_download_of_nothing(service):
    device = service({})
    assert device.request("download:/tmp/out") == (0, b"")
    assert device.read_file("/tmp/out") == b"<ROOT>\n</ROOT>"


def test_download_prints_every_document_one_level_deeper(service):
    device = service({"A": A})
    device.request('writeattr:A.Same.Level=3')
    assert device.request("download:/tmp/out").code == 0
    assert device.read_file("/tmp/out") == (
        b'<ROOT>\n    <A>\n        <Same Level="3">loaded</Same>\n        <Mine>1</Mine>\n'
        b"    </A>\n</ROOT>")


def test_a_download_that_finds_no_room_leaves_the_old_file(device):
    device.mount_tmpfs("/mnt/usb", size="64k")
    device.write_documents({"A": "<A>" + "x" * 30000 + "</A>"})
    device.start()
    device.write_file("/mnt/usb/snapshot", "an older one")
    with open(device.outside("/mnt/usb/filler"), "wb", buffering=0) as filler:
        filler.write(b"x" * 40960)
    assert device.request("download:/mnt/usb/snapshot").code == -1
    line = f"replace_file /mnt/usb/snapshot error : {os.strerror(errno.ENOSPC)}\n"
    assert device.stderr().count(line) == 1
    assert device.read_file("/mnt/usb/snapshot") == b"an older one"
    assert device.request("download:/mnt/usb/other").code == -1
    assert sorted(device.list_directory("/mnt/usb")) == ["filler", "snapshot"]
    device.outside("/mnt/usb/filler").unlink()
    assert device.request("download:/mnt/usb/snapshot").code == 0
    assert device.read_file("/mnt/usb/snapshot").endswith(b"</ROOT>")


def test_syncxml_tells_what_it_cannot_store_and_goes_on(service):
    device = service({"A": '<?xml version="1.0"?><A><Old>1</Old></A>', "B": "<B/>"})
    device.write_file("/tmp/in", b"<R><A><Old>caf\xe9</Old><Deep><Password>" + b"p" * 200
                      + b"</Password><Other>2</Other></Deep><Password>caf\xe9</Password></A>"
                      b"<B><V>3</V></B></R>")
    assert device.request("syncxml:/tmp/in").code == -11
    lines = [line for line in device.stderr().splitlines() if "can't store" in line]
    assert lines == ["syncxml can't store A.Old", "syncxml can't store A.Deep.Password"]
    assert device.request("readvalue:A.Old").text == "1"
    assert device.request("readvalue:A.Deep.Other").text == "2"
    assert device.request("readvalue:B.V").text == "3"
    assert b"<Password>enc:4:" in device.read_document("A")
    assert b"<V>3</V>" in device.read_document("B")


def test_upload(service):
    device = service({"A": A, "Other": "<Other>x</Other>"})
    device.write_file("/tmp/in", EXCHANGE)
    assert device.request("upload:/tmp/in") == (0, b"")
    assert device.read_document("A") == (
        b'    <A>\n        <Same>file</Same>\n        <Theirs x="y">2</Theirs>\n    </A>')
    assert device.read_document("B") == b"    <B>\n        <V>3</V>\n    </B>"
    assert device.request("readvalue:A.Same").text == "file"
    assert device.request("readvalue:A.Mine").code == -4
    assert device.request("readvalue:Other").text == "x"
    assert sorted(device.list_directory(CONFIGURATION)) == ["A", "B", "Other"]
    device.restart()
    assert device.request("readvalue:B.V").text == "3"


def test_restore(service):
    device = service({"A": A})
    device.write_file("/tmp/in", EXCHANGE)
    assert device.request("restore:/tmp/in") == (0, b"")
    assert device.request("read:A.*").lines == ["A.Same=loaded", "A.Theirs=2", "A.Mine=1"]
    assert device.request("readvalue:B.V").text == "3"
    assert device.read_document("A").startswith(b"    <A>\n        <Same>loaded</Same>\n")


def test_syncxml(service):
    device = service({"A": A})
    device.write_file("/tmp/in", EXCHANGE)
    assert device.request("syncxml:/tmp/in") == (0, b"")
    assert device.request("read:A.*").lines == ["A.Same=file", "A.Mine=1", "A.Theirs=2"]
    assert device.read_document("A") == (
        b"<A>\n    <Same>file</Same>\n    <Mine>1</Mine>\n    <Theirs>2</Theirs>\n</A>\n")
    assert device.read_document("B") == b"    <B>\n        <V>3</V>\n    </B>"


def test_files_that_do_not_load(service):
    device = service({"A": A})
    device.write_file("/tmp/broken", "<R><A>x</A>")
    device.write_file("/tmp/empty", "")
    device.write_file("/tmp/deep", "<a>" * 513 + "</a>" * 513)
    for command in ("upload", "restore", "syncxml"):
        for path in ("", "/tmp/missing", "/tmp", "/tmp/broken", "/tmp/empty", "/tmp/deep"):
            assert device.request(f"{command}:{path}").code == -3, (command, path)
    assert device.request("upload:/tmp/" + "/" * 250 + "in").code == -3
    assert device.request("download:/tmp/" + "/" * 250 + "in").code == -1
    assert device.request("download:/tmp/missing/in").code == -1
    assert device.read_document("A") == A.encode()


@pytest.mark.fault("M4")
def test_deep_and_wide_exchange_files_are_refused_or_served(service):
    device = service({"A": A})
    device.write_file("/tmp/deep", "<a>" * 50000 + "</a>" * 50000)
    device.write_file("/tmp/wide", "<R><W>" + "".join(f"<a{i}>1</a{i}>" for i in range(50000))
                      + "</W></R>")
    for command in ("upload", "syncxml", "restore"):
        assert device.request(f"{command}:/tmp/deep").code == -3
        assert device.request(f"{command}:/tmp/wide").code == 0
    assert device.request("readvalue:W.a49999").text == "1"


def test_the_sample_database_survives_download_and_upload(sample):
    before = sorted(sample.request("read:*").lines)
    assert sample.request("download:/tmp/first").code == 0
    first = sample.read_file("/tmp/first")
    assert sample.request("upload:/tmp/first").code == 0
    assert sorted(sample.request("read:*").lines) == before
    assert sample.request("download:/tmp/second").code == 0
    second = sample.read_file("/tmp/second")
    assert len(documents_of(first)) == len(sample.list_directory(CONFIGURATION))
    assert documents_of(second) == documents_of(first)
    sample.restart()
    assert sorted(sample.request("read:*").lines) == before


def test_uploading_the_sample_into_an_empty_device(sample):
    before = sorted(sample.request("read:*").lines)
    attributes = sample.request("readattr:Account.*").lines
    sample.request("download:/tmp/all")
    sample.request("remove:.*")
    assert sample.request("read:*").code == -4
    assert sample.request("upload:/tmp/all").code == 0
    assert sorted(sample.request("read:*").lines) == before
    assert sample.request("readattr:Account.*").lines == attributes


def test_syncing_the_sample_with_itself_changes_no_setting(sample):
    before = sorted(sample.request("read:*").lines)
    sample.request("download:/tmp/all")
    assert sample.request("syncxml:/tmp/all").code == 0
    assert sorted(sample.request("read:*").lines) == before
    sample.restart()
    assert sorted(sample.request("read:*").lines) == before
