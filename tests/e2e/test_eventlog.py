"""The event log: its commands, its file, its capacity, and what a restart makes of it."""

import calendar
import os
import random
import time

import pytest

from device import EVENT_LOG, wait_until
from log_model import LogModel, capacity_of, entries, record

DIRECTORY = os.path.dirname(EVENT_LOG)
UTC = {"TZ": "UTC0"}
EMPTY = b"<Log>\n</Log>"


@pytest.fixture
def start(device):
    """Starts the service with a log on a file system of its own: start("256k")."""

    def started(size="16m", content=None, **arguments):
        device.mount_tmpfs(DIRECTORY, size=size)
        if content is not None:
            device.write_file(EVENT_LOG, content)
        device.start(environment=UTC, **arguments)
        return device

    return started


def write(device, event_type=1, first=1, text=b"d", second=2, when=0):
    reply = device.request(b"writelogwithtime:" + record(event_type, first, text, second, when))
    assert reply == (0, b"")


def read(device, mode=1, mask=-1, limit=99):
    reply = device.request(f"readlog:{mode}&{mask}&{limit}")
    assert reply.code == len(reply.body)
    return entries(reply.body)


def count(device):
    return device.request("geteventcount:").code


def numbers(found):
    """The first detail values, which number the entries here."""
    return [entry.first for entry in found]


def fill(device, amount, since=0):
    for number in range(amount):
        write(device, first=number % 256, when=since + number)


# ---- capacity ---------------------------------------------------------------------------------


@pytest.mark.parametrize("kib, capacity", [
    (16384, 1000), (256, 512), (380, 1000), (376, 992), (132, 16), (140, 48), (128, 0), (124, -16),
    (64, -256), (4, -496), (2 * 1024 * 1024, -8389120), (2 * 1024 * 1024 - 4, 1000),
    (4 * 1024 * 1024, -512), (4 * 1024 * 1024 + 256, 512),
])
def test_the_capacity_follows_the_size_of_the_file_system(start, kib, capacity):
    device = start(f"{kib}k")
    size = os.statvfs(device.outside(DIRECTORY))
    assert size.f_frsize * size.f_blocks == kib * 1024
    assert capacity == capacity_of(kib * 1024)
    assert device.request("maxlogcount:") == (capacity, b"")
    assert device.request("maxlogcount:whatever") == (capacity, b"")
    printed = f"event log max number = {capacity} iAvailHddSize=0x{kib * 1024 & 0xFFFFFFFF:x}\n"
    assert printed in device.stderr()


@pytest.mark.parametrize("kib", [128, 124, 64, 2 * 1024 * 1024])
def test_without_capacity_the_service_lives_and_entries_overwrite_the_first(start, kib):
    device = start(f"{kib}k")
    capacity = capacity_of(kib * 1024)
    assert count(device) == capacity
    for number in range(3):
        write(device, first=number)
        assert device.read_file(EVENT_LOG) == \
            f"<Log>\n    <E1>1:1970:0:1:0:0:0:{number}:d:2</E1>\n</Log>\n".encode()
        assert count(device) == capacity
        for mode in (1, 2, 3, 2, 3, 0):
            assert read(device, mode) == []
    assert device.request("cleanlog:").code == 0
    assert count(device) == 0
    write(device)
    assert count(device) == 0
    device.restart()
    assert count(device) == capacity


# ---- entries ----------------------------------------------------------------------------------


def test_an_entry_is_in_the_file_when_the_reply_is_there(start):
    device = start()
    assert device.read_file(EVENT_LOG) == EMPTY
    when = calendar.timegm((2024, 1, 31, 23, 5, 9))
    write(device, 4, 3, b"abc", 1, when)
    saved = b"<Log>\n    <E1>4:2024:0:31:23:5:9:3:abc:1</E1>\n</Log>\n"
    assert device.read_file(EVENT_LOG) == saved
    assert os.listdir(device.outside(DIRECTORY)) == ["log"]
    assert count(device) == 1
    assert device.request("readlog:1&-1&10") == (32, bytes.fromhex(
        "04000000 18 00 1f 17 05 09 03 616263 00000000000000000000000000 01 00000000"))
    device.power_cut()
    assert device.read_file(EVENT_LOG) == saved


def test_writelog_takes_the_current_time(start):
    device = start()
    # By the clock that time() reads, CLOCK_REALTIME_COARSE: up to a tick behind the fine one.
    before = int(time.clock_gettime(5))
    assert device.request(b"writelog:" + record(4, 3, b"abc", 1, when=77)) == (0, b"")
    after = int(time.time())
    (entry,) = read(device)
    assert (entry.type, entry.first, entry.text, entry.last, entry.time) == (4, 3, b"abc", 1, 0)
    then = calendar.timegm((2000 + entry.year, entry.month + 1, *entry[3:7]))
    assert before <= then <= after


def test_times_are_local(device):
    device.start(environment={"TZ": "XYZ-5:30"})
    write(device, when=0)
    assert b"1:1970:0:1:5:30:0:1:d:2" in device.read_file(EVENT_LOG)


def test_times_of_records_are_signed(start):
    device = start()
    write(device, when=-1)
    write(device, when=-2**31)
    write(device, when=2**31 - 1)
    assert [e.year for e in read(device)] == [38, 157, 225]
    assert b"<E1>1:1969:11:31:23:59:59:" in device.read_file(EVENT_LOG)
    assert b"<E2>1:1901:11:13:20:45:52:" in device.read_file(EVENT_LOG)


def test_records_that_are_too_short_are_filled_up_with_zeros(start):
    device = start()
    whole = record(0x01010101, 3, b"abc", 1, when=0x01010101)
    for length in range(len(whole) + 1):
        reply = device.request(b"writelogwithtime:" + whole[:length])
        assert reply == (0, b"")
    model = LogModel(1000)
    for length in range(len(whole) + 1):
        cut = whole[:length].ljust(32, b"\0")
        model.write(int.from_bytes(cut[:4], "little"), int.from_bytes(cut[28:], "little"), cut[10],
                    cut[11:27].rstrip(b"\0").decode(), cut[27])
    assert device.read_file(EVENT_LOG) == model.file()


def test_a_detail_text_without_an_end_has_15_characters(start):
    device = start()
    write(device, text=b"0123456789abcdefghij")
    (entry,) = read(device)
    assert entry.text == b"0123456789abcde"
    assert entry.last == 2
    assert device.request(b"writelog:" + b"\x7f" * 100) == (0, b"")
    assert read(device)[0].text == b"\x7f" * 15


def test_extreme_values(start):
    device = start()
    write(device, event_type=-2**31, first=255, text=b"<&\"'>", second=255)
    write(device, event_type=2**31 - 1, first=0, text=b"\xc3\xa4\xff\x01", second=0)
    newest, oldest = read(device)
    assert (newest.type, newest.first, newest.text, newest.last) == (2**31 - 1, 0,
                                                                     b"\xc3\xa4\xff\x01", 0)
    assert (oldest.type, oldest.first, oldest.text, oldest.last) == (-2**31, 255, b"<&\"'>", 255)
    device.restart()
    assert read(device) == [newest, oldest]


@pytest.mark.parametrize("text", [b"", b":", b"a:b", b":::", b"a:b:c"])
def test_entries_that_do_not_read_back_are_kept_but_never_returned(start, text):
    device = start()
    write(device, first=1)
    write(device, first=2, text=text)
    write(device, first=3)
    assert count(device) == 3
    assert b":2:%s:2</E2>" % text in device.read_file(EVENT_LOG)
    device.forget_output()
    assert numbers(read(device)) == [3, 1]
    assert device.stderr() == "TransferToLog == 0\n"


# ---- paging -----------------------------------------------------------------------------------


def test_a_full_ring_overwrites_its_first_entry(start):
    device = start("132k")
    fill(device, 16)
    assert count(device) == 16
    assert numbers(read(device)) == list(range(15, 0, -1))  # the oldest is not paged to
    write(device, first=100)
    assert count(device) == 16
    assert b"<E1>1:1970:0:1:0:0:0:100:d:2</E1>" in device.read_file(EVENT_LOG)
    assert numbers(read(device)) == [100, *range(15, 1, -1)]


def test_a_log_of_a_thousand_entries(start):
    device = start()
    model = LogModel(1000)
    for number in range(1010):
        write(device, first=number % 256, when=number)
        model.write(1, number, number % 256, "d", 2)
    assert count(device) == 1000
    assert device.read_file(EVENT_LOG) == model.file()
    everything = read(device, limit=9999999)
    assert everything == model.read(1, -1, 9999999)
    assert len(everything) == 999
    device.restart()
    assert read(device, limit=9999999) == everything


def test_pages_back_and_forth(start):
    device = start()
    fill(device, 9)
    assert numbers(read(device, 1, limit=3)) == [8, 7, 6]
    assert numbers(read(device, 2, limit=3)) == [5, 4, 3]
    assert numbers(read(device, 2, limit=3)) == [2, 1, 0]
    assert read(device, 2, limit=3) == []
    assert numbers(read(device, 3, limit=3)) == [3, 4, 5]
    assert numbers(read(device, 3, limit=9)) == [6, 7, 8]
    assert read(device, 3) == []
    # Back from the page that began at entry 6.
    assert numbers(read(device, 2, limit=2)) == [5, 4]


def test_clients_share_the_cursor(start):
    device = start()
    fill(device, 9)
    assert numbers(read(device, 1, limit=3)) == [8, 7, 6]
    write(device, first=9)
    assert numbers(read(device, 2, limit=2)) == [5, 4]
    assert numbers(read(device, 1, limit=1)) == [9]
    assert numbers(read(device, 2, limit=2)) == [8, 7]


def test_masks_select_types(start):
    device = start()
    for number in range(8):
        write(device, event_type=number, first=number)
    device.forget_output()
    assert read(device, mask=0) == []
    assert device.stderr() == "TransferToLog == 0\n" * 8
    assert numbers(read(device, mask=1)) == [7, 5, 3, 1]
    assert numbers(read(device, mask=6, limit=3)) == [7, 6, 5]
    assert numbers(read(device, mask=-1)) == [7, 6, 5, 4, 3, 2, 1]  # type 0 has no bit
    assert read(device, mask=8) == []


def test_limits(start):
    device = start()
    fill(device, 5)
    assert numbers(read(device, limit=1)) == [4]
    assert numbers(read(device, limit=0)) == [4]
    assert numbers(read(device, limit=-1)) == [4]
    assert numbers(read(device, limit=9999999)) == [4, 3, 2, 1, 0]
    assert numbers(read(device, limit="12345678")) == [4, 3, 2, 1, 0]
    assert numbers(read(device, limit="00000001")) == [4]  # of which seven zeros are taken


def test_other_modes_repeat_one_entry(start):
    device = start()
    fill(device, 5)
    read(device, 1, limit=2)
    for mode in (0, 4, -1, 1234567):
        assert numbers(read(device, mode, limit=3)) == [2, 2, 2]
    assert numbers(read(device, 2)) == [2, 1, 0]


@pytest.mark.parametrize("argument", ["", "1", "1&", "1&-1", "1&-1&", "&&", "&-1&9", "1&&9"])
def test_a_missing_field_is_refused(start, argument):
    device = start()
    write(device)
    assert device.request("readlog:" + argument) == (-7, b"")
    assert numbers(read(device)) == [1]


def test_nothing_to_read(start):
    device = start()
    device.forget_output()
    assert device.request("readlog:1&-1&10") == (0, b"")
    assert device.request("readlog:2&-1&10") == (0, b"")
    assert device.request("readlog:3&-1&10") == (0, b"")
    assert device.stderr() == ""
    write(device)
    assert device.request("readlog:2&-1&10") == (0, b"")
    assert device.stderr() == "targetele is null\n"


def test_a_detail_text_that_ends_within_a_character_costs_no_other_entry(start):
    device = start(content=b'<?xml version="1.0" encoding="UTF-8"?>\n<Log></Log>\n')
    for first, text in ((1, b"one"), (2, b"two\xf0"), (3, b"three\xc3&"), (4, b"caf\xc3\xa9")):
        write(device, first=first, text=text)
    device.restart()
    found = read(device)
    assert numbers(found) == [4, 3, 2, 1]
    assert [entry.text for entry in found][0] == b"caf\xc3\xa9"
    assert [entry.text for entry in found][2] == b"two"


# ---- starting ---------------------------------------------------------------------------------


def test_without_a_directory_there_is_no_log(service):
    device = service({"Account": "<Account><Name>x</Name></Account>"}, "-E", "/mnt/none/log")
    assert "event log max number" not in device.stderr()
    reason = "no event log: the file system of /mnt/none/log cannot be measured : No such file or directory\n"
    assert device.stderr().count(reason) == 1
    assert device.request(b"writelog:" + record(1)) == (-12, b"")
    assert device.request(b"writelogwithtime:" + record(1)) == (-12, b"")
    assert device.request("readlog:1&-1&10") == (-12, b"")
    assert device.request("readlog:1") == (-7, b"")
    assert device.request("geteventcount:") == (0, b"")
    assert device.request("maxlogcount:") == (0, b"")
    assert device.request("cleanlog:") == (-1, b"")
    assert device.request("SystemHaltEventLog:") == (-4, b"")
    assert device.request("readvalue:Account.Name") == (1, b"x")


def test_a_directory_that_comes_later_is_measured_at_the_next_start(device):
    device.start("-E", "/mnt/later/log")
    device.make_directory("/mnt/later")
    assert device.request("cleanlog:") == (0, b"")
    assert device.stderr().count("the event log holds nothing until the service is started again\n") == 1
    write(device)
    assert count(device) == device.request("maxlogcount:").code == 0
    device.restart("-E", "/mnt/later/log")
    write(device)
    assert (count(device), device.request("maxlogcount:").code) == (2, 1000)


def test_where_no_file_can_be_made_there_is_no_log(device):
    device.make_directory(EVENT_LOG)
    device.start()
    assert "event log max number = " in device.stderr()
    assert device.request(b"writelog:" + record(1)) == (-12, b"")
    assert device.request("geteventcount:") == (0, b"")
    assert device.request("maxlogcount:") == (0, b"")


def test_another_log_file(device):
    device.start("-E", "/mnt/events", environment=UTC)
    write(device)
    assert b"<E1>1:1970" in device.read_file("/mnt/events")
    assert not device.file_exists(EVENT_LOG)


def test_a_partial_log_goes_on(start):
    device = start("132k")
    fill(device, 5, since=100)
    device.restart()
    assert count(device) == 5
    write(device, first=5, when=3)
    assert count(device) == 6
    assert numbers(read(device)) == [5, 4, 3, 2, 1, 0]


def test_one_entry_below_the_capacity_is_taken_for_a_full_log(start):
    device = start("132k")
    fill(device, 15)
    assert count(device) == 15
    device.restart()
    assert count(device) == 16
    write(device, first=15, when=99)
    assert numbers(read(device)) == list(range(15, 0, -1))


def test_a_full_log_goes_on_behind_its_latest_entry(start):
    device = start("132k")
    fill(device, 21)
    device.restart()
    assert count(device) == 16
    write(device, first=21, when=99)
    assert numbers(read(device)) == list(range(21, 6, -1))


def test_among_equal_times_the_highest_position_is_the_newest(start):
    device = start("132k")
    for number in range(20):
        write(device, first=number, when=50)
    device.restart()
    # E16 counts as the newest, though E4 was written last.
    write(device, first=77, when=50)
    assert b"<E1>1:1970:0:1:0:0:50:77:" in device.read_file(EVENT_LOG)


@pytest.mark.parametrize("content, amount", [
    (b"", 0), (b"garbage", 0), (b"<Log/>", 0), (b"<Log><E1>x</E1>", 1),
    (b"<Other><a/><b/></Other>", 2), (b"<Log><E7>1</E7><E7>2</E7></Log>", 2), (b"\0\0\0\0", 0),
])
def test_damaged_files_start_a_log(start, content, amount):
    device = start(content=content)
    assert count(device) == amount
    write(device, first=42)
    assert count(device) == amount + 1
    assert b"<E%d>1:1970:0:1:0:0:0:42:d:2</E%d>" % (amount + 1, amount + 1) \
        in device.read_file(EVENT_LOG)
    assert numbers(read(device, limit=1)) == [42]
    kept = f"{DIRECTORY}/.veltrancord-kept.log"
    assert device.file_exists(kept) == ("init_event_log damaged" in device.stderr())
    if device.file_exists(kept):
        assert device.read_file(kept) == content
    assert device.file_exists(kept) == (content in (b"garbage", b"<Log><E1>x</E1>", b"\0\0\0\0"))


def test_a_worker_that_was_killed_has_lost_nothing(start):
    device = start("132k")
    device.stop()
    device.start("-L", environment=UTC)
    fill(device, 5)
    device.kill_worker()
    wait_until(lambda: "event log max number" in device.stderr().split("restart")[-1], "it is back")
    assert numbers(read(device)) == [4, 3, 2, 1, 0]


# ---- cleaning and failing saves ---------------------------------------------------------------


def test_cleaning(start):
    device = start("132k")
    fill(device, 20)
    assert device.request("cleanlog:") == (0, b"")
    assert device.request("geteventcount:") == (0, b"")
    assert device.request("maxlogcount:") == (16, b"")
    assert device.read_file(EVENT_LOG) == EMPTY
    assert os.listdir(device.outside(DIRECTORY)) == ["log"]
    assert read(device) == []
    write(device, first=9)
    assert count(device) == 1
    assert numbers(read(device)) == [9]
    device.restart()
    assert count(device) == 1


def test_cleaning_brings_a_removed_file_back(start):
    device = start()
    write(device)
    device.outside(EVENT_LOG).unlink()
    assert device.request("cleanlog:").code == 0
    assert device.read_file(EVENT_LOG) == EMPTY


def test_the_path_of_the_log_is_no_shell_text(device):
    path = "/mnt/a b;touch oops;$(touch oops)'\""
    device.start("-E", path, environment=UTC)
    write(device)
    assert device.request("cleanlog:").code == 0
    assert device.read_file(path) == EMPTY
    assert sorted(device.list_directory("/mnt")) == sorted([path[len("/mnt/"):], "database"])


def fill_file_system(device):
    with open(device.outside(DIRECTORY + "/filler"), "wb", buffering=0) as filler:
        for size in (4096, 1):
            try:
                while filler.write(b"x" * size) == size:
                    pass
            except OSError:
                pass


@pytest.mark.fault("S3")
def test_on_a_full_file_system_entries_wait_for_room(start):
    device = start("256k")
    fill(device, 3)
    saved = device.read_file(EVENT_LOG)
    fill_file_system(device)
    write(device, first=3)
    assert device.read_file(EVENT_LOG) == saved
    assert count(device) == 4
    assert numbers(read(device)) == [3, 2, 1, 0]
    assert sorted(os.listdir(device.outside(DIRECTORY))) == ["filler", "log"]
    device.outside(DIRECTORY + "/filler").unlink()
    write(device, first=4)
    device.power_cut()
    device.start(environment=UTC)
    assert numbers(read(device)) == [4, 3, 2, 1, 0]


def test_a_full_file_system_lets_the_log_be_cleaned(start):
    """What is shorter than the file needs no room, and may be what the file system is full of."""
    device = start("256k")
    fill(device, 3)
    fill_file_system(device)
    assert device.request("cleanlog:") == (0, b"")
    assert device.read_file(EVENT_LOG) == EMPTY
    assert count(device) == 0
    assert "replace_file" not in device.stderr()
    write(device, first=7)
    assert numbers(read(device)) == [7]
    device.outside(DIRECTORY + "/filler").unlink()
    write(device, first=8)
    device.restart()
    assert numbers(read(device)) == [8, 7]


def test_a_read_only_file_system_costs_only_the_saving(start):
    device = start()
    fill(device, 3)
    saved = device.read_file(EVENT_LOG)
    device.set_read_only(DIRECTORY)
    write(device, first=3)
    assert device.request("cleanlog:") == (-1, b"")
    assert numbers(read(device)) == [3, 2, 1, 0]
    device.set_read_only(DIRECTORY, False)
    assert device.read_file(EVENT_LOG) == saved
    assert device.request("cleanlog:") == (0, b"")
    assert device.read_file(EVENT_LOG) == EMPTY


def test_no_shell_and_no_other_program_is_started(device):
    device.start_traced(calls="execve", environment=UTC)
    started = len(device.trace())
    write(device)
    assert device.request("cleanlog:").code == 0
    assert [line for line in device.trace()[started:] if "execve" in line] == []


# ---- everything at random ---------------------------------------------------------------------


@pytest.mark.parametrize("kib", [124, 128, 132, 136, 140])
def test_ring_and_cursor_agree_with_their_model(start, kib):
    device = start(f"{kib}k")
    chance = random.Random(kib)
    model = LogModel(capacity_of(kib * 1024))
    now = 1700000000
    for step in range(900):
        what = chance.random()
        if what < 0.45:
            now += chance.randrange(3) - (5000 if chance.random() < 0.02 else 0)
            event_type, first, second = chance.randrange(-1, 8), *chance.choices(range(256), k=2)
            text = "".join(chance.choices("abc:", (9, 9, 9, 1), k=chance.randrange(16)))
            write(device, event_type, first, text.encode(), second, now)
            model.write(event_type, now, first, text, second)
        elif what < 0.98:
            mode = chance.choices((1, 2, 3, 0, 4), (8, 8, 8, 1, 1))[0]
            mask = chance.choice((-1, -1, chance.randrange(8)))
            limit = chance.randrange(-1, 20)
            assert read(device, mode, mask, limit) == model.read(mode, mask, limit), step
        elif what < 0.99:
            assert device.request("cleanlog:") == (0, b"")
            model.clean()
        else:
            device.restart()
            model.restart()
        assert count(device) == model.count, step
    if model.elements:
        write(device)
        model.write(1, 0, 1, "d", 2)
        assert device.read_file(EVENT_LOG) == model.file()
