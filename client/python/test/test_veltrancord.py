"""The Python module against a service that answers as each test says."""

import contextlib
import os
import re
import select
import shutil
import socket
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))

import veltrancord
from veltrancord import Client, LogMode, LogRecord, Result, bounds


def reply(code, body=b""):
    return struct.pack("<i", code) + body


class FakeService:
    """Answers each connection with the same bytes and keeps the requests."""

    def __init__(self, path, answer=b"", serve=None):
        self.path = str(path)
        self.answer = answer
        self.serve = serve or self.serve_answer
        self.requests = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen(64)
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def serve_answer(self, connection):
        head = connection.recv(5, socket.MSG_WAITALL)
        (length,) = struct.unpack("<I", head[1:])
        assert head[:1] == b"?"
        self.requests.append(connection.recv(length, socket.MSG_WAITALL) if length else b"")
        connection.sendall(self.answer)

    def run(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            with connection:
                try:
                    self.serve(connection)
                except OSError:
                    pass

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()


@pytest.fixture
def serve(tmp_path):
    services = []

    def start(answer=b"", **arguments):
        services.append(FakeService(tmp_path / f"socket{len(services)}", answer, **arguments))
        return services[-1]

    yield start
    for service in services:
        service.close()


def client_of(service, **arguments):
    return Client(service.path, **{"timeout": 30, **arguments})


CALLS = [
    (lambda c: c.read("A.*"), reply(8, b"A.B=1\n\n\n"), b"read:A.*", [("A.B", "1\n\n")]),
    (lambda c: c.read("A.*"), reply(0), b"read:A.*", []),
    (lambda c: c.read("A.B"), reply(7, b"A.B=x=y"), b"read:A.B", [("A.B", "x=y")]),
    (lambda c: c.read("A.*", level=2), reply(6, b"A.B=1\n"), b"readwithlevel:A.*&2",
     [("A.B", "1")]),
    (lambda c: c.read_visible("A.*"), reply(0), b"readAndFilter:A.*", []),
    (lambda c: c.get("A.Password"), reply(4, b"ab\0\0"), b"readvalue:A.Password", "ab"),
    (lambda c: c.get_attribute("A.B.Level"), reply(1, b"3"), b"readsingleattr:A.B.Level", "3"),
    (lambda c: c.read_attributes("A.#"), reply(6, b"A.L=3\n"), b"readattr:A.#", [("A.L", "3")]),
    (lambda c: c.write({"A.B": "1", "A.C": "x=y"}), reply(2), b"write:A.B=1\nA.C=x=y\n", 2),
    (lambda c: c.set("A.B", "ä"), reply(1), "write:A.B=ä\n".encode(), None),
    (lambda c: c.write_memory([("A.B", "1")]), reply(1), b"writedbmem:A.B=1\n", 1),
    (lambda c: c.write_attributes({"A.L": "1"}), reply(1), b"writeattr:A.L=1\n", 1),
    (lambda c: c.sync_memory(), reply(0), b"syncmemtoflash:", None),
    (lambda c: c.remove(".*"), reply(0), b"remove:.*", None),
    (lambda c: c.upload("/f"), reply(0), b"upload:/f", None),
    (lambda c: c.restore("/f"), reply(0), b"restore:/f", None),
    (lambda c: c.sync_file("/f"), reply(0), b"syncxml:/f", None),
    (lambda c: c.download("/f"), reply(0), b"download:/f", None),
    (lambda c: c.backup("now"), reply(0), b"XMLDBCallBack:now", None),
    (lambda c: c.log_count(), reply(1000), b"geteventcount:", 1000),
    (lambda c: c.log_capacity(), reply(-512), b"maxlogcount:", -512),
    (lambda c: c.log_clear(), reply(0), b"cleanlog:", None),
    (lambda c: c.log_read(5, mask=3, mode=LogMode.OLDER), reply(0), b"readlog:2&3&5", []),
    (lambda c: c.group_may("g", "p"), reply(0), b"isPermitAllow:g&p", True),
    (lambda c: c.user_may("u", "p", "1&2"), reply(-12), b"isPermitAllowByUser:u&p&1&2", False),
    (lambda c: c.user_may_cgi("u", "apply", ""), reply(0), b"GetCGIPermitFilter:u&apply&", True),
    (lambda c: c.permit_value("g", "p"), reply(3, b"1,3"), b"getPermitValue:g&p", "1,3"),
    (lambda c: c.user_group("u&v"), reply(1, b"G"), b"getGroupName:u&v", "G"),
    (lambda c: c.sync_permits(), reply(0), b"SyncPermit:", None),
    (lambda c: c.list_permits(), reply(32, b"permit2=N&type=Switch&value=YES\n"), b"listPermits:",
     [veltrancord.Permit(2, "N", "Switch", "YES")]),
    (lambda c: c.set_session("s"), reply(0), b"SetSession:s", None),
    (lambda c: c.check_session("s"), reply(-4), b"CheckSession:s", False),
    (lambda c: c.check_session("s", 90), reply(0), b"CheckSession:s&90", True),
    (lambda c: c.set_captcha("v", "c"), reply(0), b"SetCaptcha:v&c", None),
    (lambda c: c.compare_captcha("v", "c", remove=True, lifetime=9), reply(2),
     b"CompareCaptcha:v&c&1&9", False),
    (lambda c: c.compare_captcha("v", "c"), reply(1), b"CompareCaptcha:v&c&0", False),
    (lambda c: c.compare_captcha("v", "c"), reply(-4), b"CompareCaptcha:v&c&0", False),
    (lambda c: c.compare_captcha("v", "c"), reply(0), b"CompareCaptcha:v&c&0", True),
    (lambda c: c.require_captcha("v", "c", lifetime=9), reply(0), b"CompareCaptcha:v&c&0&9", None),
    (lambda c: c.refresh_captcha("v", "c"), reply(0), b"UpdateCaptchaTime:v&c", None),
    (lambda c: c.delete_captcha("v", "c"), reply(-4), b"DelCaptchaItem:v&c", None),
    (lambda c: c.ping(), reply(-4), b"ping:", None),
    (lambda c: c.wait(30), reply(-4), b"ping:", None),
]


@pytest.mark.parametrize("call, answer, request_, result", CALLS)
def test_each_call_sends_and_understands(serve, call, answer, request_, result):
    service = serve(answer)
    assert call(client_of(service)) == result
    assert service.requests == [request_]


@pytest.mark.parametrize("answer, code", [
    (1, Result.CAPTCHA_EXPIRED), (2, Result.CAPTCHA_WRONG), (-4, Result.NOT_FOUND),
    (3, Result.BROKEN_REPLY), (-12, Result.DENIED)])
def test_no_answer_but_a_match_passes_for_one(serve, answer, code):
    if code in (Result.CAPTCHA_EXPIRED, Result.CAPTCHA_WRONG, Result.NOT_FOUND):
        assert client_of(serve(reply(answer))).compare_captcha("v", "c") is False
    else:
        with pytest.raises(veltrancord.Error):
            client_of(serve(reply(answer))).compare_captcha("v", "c")
    with pytest.raises(veltrancord.Error) as caught:
        client_of(serve(reply(answer))).require_captcha("v", "c")
    assert caught.value.code is code


REFUSED = [
    (lambda c: c.set("A", "1\n2"), Result.VALUE_HAS_LINE_FEED),
    (lambda c: c.set("A=B", "1"), Result.PATH_HAS_EQUALS),
    (lambda c: c.set("A\nB", "1"), Result.PATH_HAS_LINE_FEED),
    (lambda c: c.get(".."), Result.PATH_EMPTY),
    (lambda c: c.get("A\0B"), Result.TEXT_HAS_NUL),
    (lambda c: c.write({}), Result.INVALID_USE),
    (lambda c: c.group_may("a&b", "p"), Result.FIELD_HAS_SEPARATOR),
    (lambda c: c.set_session(""), Result.FIELD_EMPTY),
    (lambda c: c.upload(""), Result.FIELD_EMPTY),
    (lambda c: c.log_add(LogRecord(1, "a:b")), Result.LOG_TEXT_UNREADABLE),
    (lambda c: c.log_add(LogRecord(1, "")), Result.LOG_TEXT_UNREADABLE),
    (lambda c: c.log_read(mask=10000000), Result.FIELD_OVER_BOUND),
    (lambda c: c.exchange("a:b"), Result.COMMAND_HAS_SEPARATOR),
]


@pytest.mark.parametrize("call, code", REFUSED)
def test_what_would_be_misread_is_refused_unsent(call, code):
    with pytest.raises(veltrancord.Refused) as caught:
        call(Client("/nonexistent/socket", timeout=None))
    assert caught.value.code is code


BOUNDS = [
    (511, lambda c, text: c.get(text)),
    (255, lambda c, text: c.set(text, "")),
    (4095, lambda c, text: c.set("A.B", text)),
    (183, lambda c, text: c.set("A.PASSWORD", text)),
    (63, lambda c, text: c.get_attribute("A." + text)),
    (255, lambda c, text: c.write_attributes({"A.B": text})),
    (255, lambda c, text: c.upload(text)),
    (255, lambda c, text: c.download(text)),
    (127, lambda c, text: c.restore(text)),
    (127, lambda c, text: c.sync_file(text)),
    (256, lambda c, text: c.backup(text)),
]


@pytest.mark.parametrize("bound, call", BOUNDS)
def test_each_bound_is_exact(bound, call):
    client = Client("/nonexistent/socket", timeout=None)
    with pytest.raises(veltrancord.Unreachable):
        call(client, "x" * bound)
    with pytest.raises(veltrancord.Refused) as caught:
        call(client, "x" * (bound + 1))
    assert (caught.value.bound, caught.value.found) == (bound, bound + 1)


def test_the_refused_one_of_several_is_told():
    with pytest.raises(veltrancord.Refused) as caught:
        Client("/nonexistent/socket").write([("A", "1"), ("B", "\n")])
    assert caught.value.index == 1


@pytest.mark.parametrize("answer, code", [
    (b"", Result.NO_REPLY),
    (b"\5\0", Result.BROKEN_REPLY),
    (reply(5, b"abcd"), Result.BROKEN_REPLY),
    (reply(5), Result.BROKEN_REPLY),
    (reply(101, b"x" * 101), Result.REPLY_OVER_CAP),
    (reply(-8), Result.TOO_LARGE),
])
def test_broken_and_failed_replies(serve, answer, code):
    with pytest.raises(veltrancord.Error) as caught:
        client_of(serve(answer), cap=100).read("A.*")
    assert caught.value.code is code


def test_raw_exchange_returns_failures_counts_and_texts(serve):
    for answer in (reply(-12), reply(1000), reply(2, b"\0\n")):
        got = client_of(serve(answer), cap=100).exchange("x", b"\0y")
        assert reply(*got) == answer


def test_kinds_of_errors(serve, tmp_path):
    with pytest.raises(LookupError):
        client_of(serve(reply(-4))).get("A")
    with pytest.raises(PermissionError):
        client_of(serve(reply(-12))).user_group("u")
    with pytest.raises(ConnectionError):
        Client(str(tmp_path / "missing"), timeout=None).get("A")
    over = threading.Event()
    try:
        with pytest.raises(TimeoutError):
            client_of(serve(serve=lambda connection: over.wait()), timeout=0.02).get("A")
    finally:
        over.set()


ABOUT = [
    (lambda c: c.get("A.B"), "A.B"),
    (lambda c: c.get_int("A.B"), "A.B"),
    (lambda c: c.read("A.*"), "A.*"),
    (lambda c: c.read("A.*", level=1), "A.*"),
    (lambda c: c.read_visible("A.*"), "A.*"),
    (lambda c: c.write({"A.B": "1"}), "A.B"),
    (lambda c: c.write({"A.B": "1", "A.C": "2"}), "one of 2 settings from A.B on"),
    (lambda c: c.remove("A.B"), "A.B"),
    (lambda c: c.get_attribute("A.B.Level"), "A.B.Level"),
    (lambda c: c.read_attributes("A.#"), "A.#"),
    (lambda c: c.upload("/f"), "/f"),
    (lambda c: c.group_may("g", "p"), "p"),
    (lambda c: c.user_may("u", "p"), "p"),
    (lambda c: c.user_may_cgi("u", "apply"), "apply"),
    (lambda c: c.permit_value("g", "p"), "p"),
    (lambda c: c.user_group("u"), "u"),
    (lambda c: c.set_session("token"), None),
    (lambda c: c.set_captcha("code", "text"), None),
]


@pytest.mark.parametrize("call, subject", ABOUT)
def test_errors_name_what_they_are_about(serve, call, subject):
    with pytest.raises(veltrancord.NotFound) as caught:
        call(client_of(serve(reply(-4))))
    assert caught.value.subject == subject
    assert str(caught.value) == (f"{subject}: " if subject else "") + "not found (-4)"


def test_errors_name_the_socket_and_the_refused_setting(tmp_path):
    missing = Client(str(tmp_path / "missing"), timeout=None)
    with pytest.raises(veltrancord.Unreachable) as unreachable:
        missing.get("A.B")
    assert str(unreachable.value) == (
        f"{tmp_path}/missing: the service cannot be reached: No such file or directory (-100)")
    with pytest.raises(veltrancord.Refused) as refused:
        missing.write([("A.B", "1"), ("A.\033[2J.Password", "secret\n")])
    assert str(refused.value) == "A.?[2J.Password: a value cannot hold a line feed (-124)"


def test_a_default_stands_in_for_what_is_not_there_alone(serve, tmp_path):
    absent = client_of(serve(reply(-4)))
    assert absent.get("A.B", default="x") == "x"
    assert absent.get("A.B", None) is None
    assert absent.get_int("A.B", 3) == 3
    assert absent.get_float("A.B", default=2.5) == 2.5
    assert absent.get_bool("A.B", False) is False
    assert client_of(serve(reply(1, b"y"))).get("A.B", default="x") == "y"
    for call in (lambda c: c.get("A.B", "x"), lambda c: c.get_int("A.B", 3)):
        with pytest.raises(veltrancord.Unreachable):
            call(Client(str(tmp_path / "missing"), timeout=None))
        with pytest.raises(veltrancord.Denied):
            call(client_of(serve(reply(-12))))


@pytest.mark.parametrize("text, integer, number, truth", [
    ("1500", 1500, 1500.0, None),
    ("-007", -7, -7.0, None),
    (" 12 ", 12, 12.0, None),
    ("2.5e1", None, 25.0, None),
    (".5", None, 0.5, None),
    ("YES", None, None, True),
    ("on", None, None, True),
    ("No", None, None, False),
    ("OFF", None, None, False),
    ("1", 1, 1.0, None),
    ("nan", None, None, None),
    ("1e999", None, None, None),
    ("1_000", None, None, None),
    ("١", None, None, None),
    ("0x10", None, None, None),
    ("", None, None, None),
])
def test_typed_values_are_read_strictly(serve, text, integer, number, truth):
    data = text.encode() or b"\0"  # an empty secret is filled up
    client = client_of(serve(reply(len(data), data)))
    for get, value in ((client.get_int, integer), (client.get_float, number),
                       (client.get_bool, truth)):
        if value is None:
            with pytest.raises(veltrancord.WrongKind) as caught:
                get("A.B", 1)
            assert caught.value.subject == "A.B" and isinstance(caught.value, ValueError)
        else:
            assert get("A.B") == value and type(get("A.B")) is type(value)


def test_a_value_of_another_kind_is_shown_but_no_secret(serve):
    client = client_of(serve(reply(5, b"a\033[2J")))
    with pytest.raises(veltrancord.WrongKind) as caught:
        client.get_int("A.B")
    assert str(caught.value) == (
        r"A.B: the value is not of the kind asked for: 'a\x1b[2J' is not a whole number (-135)")
    with pytest.raises(veltrancord.WrongKind) as caught:
        client.get_bool("A.Password")
    assert "2J" not in str(caught.value)


def test_numbers_and_truth_values_are_written(serve):
    service = serve(reply(1))
    client_of(service).write(
        {"A.B": 1500, "A.C": True, "A.D": False, "A.E": 2.5, "A.F": LogMode.OLDER, "A.G": 1e-07})
    client_of(service).set("A.B", -3)
    client_of(service).write_memory([("A.B", 4)])
    client_of(service).write_attributes({"A.L": 5})
    assert service.requests == [
        b"write:A.B=1500\nA.C=YES\nA.D=NO\nA.E=2.5\nA.F=2\nA.G=1e-07\n", b"write:A.B=-3\n",
        b"writedbmem:A.B=4\n", b"writeattr:A.L=5\n"]
    for value in (float("nan"), float("inf")):
        with pytest.raises(veltrancord.WrongKind):
            client_of(service).set("A.B", value)
    for value in (None, b"bytes", [1]):
        with pytest.raises(TypeError):
            client_of(service).set("A.B", value)
    assert len(service.requests) == 4


class Held:
    """A service that holds settings, each read answered from `texts`, and their directory."""

    def __init__(self, serve, directory):
        self.texts = {}
        self.reads = 0
        self.directory = directory
        directory.mkdir()
        self.service = serve(serve=self.answer)

    def answer(self, connection):
        head = connection.recv(5, socket.MSG_WAITALL)
        (length,) = struct.unpack("<I", head[1:])
        path = connection.recv(length, socket.MSG_WAITALL).decode().partition(":")[2]
        self.reads += 1
        text = self.texts.get(path)
        connection.sendall(reply(-4) if text is None else reply(len(text), text.encode()))

    def save(self, document):
        """As the service does: under another name first."""
        helper = self.directory / f".veltrancord-new.{document}"
        helper.write_text("<x/>")
        helper.rename(self.directory / document)

    def watch(self, *paths):
        return client_of(self.service).watch(*paths, directory=str(self.directory))


@pytest.fixture
def held(serve, tmp_path):
    return Held(serve, tmp_path / "xml")


def changes(watch):
    return list(iter(lambda: watch.next(0), None))


def test_watch_tells_what_came_changed_and_went(held):
    held.texts["Net.*"] = "Net.Name=a\nNet.Mtu=1500\nNet.Old=x\nNet.u=1\nNet.u=2\n"
    with held.watch("Net.*") as watch:
        assert changes(watch) == []
        held.texts["Net.*"] = "Net.Name=a\nNet.Mtu=1400\nNet.New=\nNet.u=1\nNet.u=3\nNet.u=4\n"
        held.save("Net")
        assert changes(watch) == [
            ("Net.Mtu", "1500", "1400"), ("Net.New", None, ""), ("Net.Old", "x", None),
            ("Net.u", "2", "3"), ("Net.u", None, "4")]
        held.save("Net")
        assert changes(watch) == []
        held.texts.clear()
        (held.directory / "Net").unlink()
        assert len(changes(watch)) == 6


def test_watch_reads_only_what_a_save_may_concern(held):
    with held.watch("A.x", "B.x", "*", "With_other.x") as watch:
        for file, reads in (("A", 3), ("C", 2)):
            held.reads = 0
            held.save(file)
            assert changes(watch) == []
            assert held.reads == reads
        (held.directory / ".veltrancord-new.A").write_text("cut off")
        assert changes(watch) == [] and held.reads == 2


def test_watch_is_waited_for_and_iterated_over(held):
    held.texts["A.x"] = "A.x=1"
    with held.watch("A.x") as watch:
        assert select.select([watch], [], [], 0)[0] == []
        assert watch.next(0.001) is None
        held.texts["A.x"] = "A.x=2"
        threading.Timer(0.01, held.save, ["A"]).start()
        assert watch.next() == veltrancord.Change("A.x", "1", "2")
        held.texts["A.x"] = "A.x=3"
        held.save("A")
        assert select.select([watch], [], [])[0] == [watch]
        assert next(iter(watch)).after == "3"
    with pytest.raises(ValueError):
        watch.next(0)


def test_watch_misses_nothing_when_a_read_fails(held, serve, tmp_path):
    held.texts["A.x"] = "A.x=1"
    client = client_of(held.service)
    with client.watch("A.x", directory=str(held.directory)) as watch:
        client.socket_path = str(tmp_path / "missing")
        held.save("A")
        with pytest.raises(veltrancord.Unreachable):
            watch.next()
        held.texts["A.x"] = "A.x=2"
        client.socket_path = held.service.path
        assert changes(watch) == [("A.x", "1", "2")]


def test_watch_ends_when_its_directory_goes(held):
    with held.watch("A.x") as watch:
        held.directory.rmdir()
        for _ in range(2):
            with pytest.raises(veltrancord.Error) as caught:
                watch.next()
            assert (caught.value.code, caught.value.subject) == (
                Result.SYSTEM_ERROR, str(held.directory))


def watches():
    """How many descriptors of inotify this process has open; others, of the service that this process
    plays itself, come and go meanwhile."""
    found = 0
    for descriptor in os.listdir("/proc/self/fd"):
        with contextlib.suppress(FileNotFoundError):
            found += "inotify" in os.readlink(f"/proc/self/fd/{descriptor}")
    return found


def test_what_cannot_be_watched_is_refused_and_nothing_is_left_behind(held, tmp_path):
    before = watches()
    for paths, code in (((), Result.INVALID_USE), (("A.x", "A=B"), Result.PATH_HAS_EQUALS)):
        with pytest.raises(veltrancord.Refused) as refused:
            held.watch(*paths)
        assert refused.value.code is code and refused.value.subject == (paths or (None,))[-1]
    with pytest.raises(veltrancord.Error) as caught:
        Client(held.service.path).watch("A.x", directory="/nonexistent/folder")
    assert str(caught.value) == (
        "/nonexistent/folder: a system call failed: No such file or directory (-106)")
    with pytest.raises(veltrancord.Unreachable):
        Client(str(tmp_path / "missing")).watch("A.x", directory=str(held.directory))
    assert watches() == before


def test_refused_connection_is_tried_again_until_the_deadline(tmp_path):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(str(tmp_path / "socket"))
    with pytest.raises(veltrancord.Unreachable):
        Client(str(tmp_path / "socket"), timeout=0.03).ping()

    def listen_and_hang_up():
        listener.listen(1)
        listener.accept()[0].close()

    threading.Timer(0.05, listen_and_hang_up).start()
    with pytest.raises(veltrancord.Error) as caught:
        Client(str(tmp_path / "socket"), timeout=None).ping()
    assert caught.value.code is Result.NO_REPLY  # connected in the end


def test_the_environment_names_the_socket(monkeypatch):
    monkeypatch.setenv("VELTRANCORD_SOCKET", "/some/where")
    assert Client().socket_path == "/some/where"
    assert Client("/else").socket_path == "/else"
    monkeypatch.delenv("VELTRANCORD_SOCKET")
    assert Client().socket_path == veltrancord.DEFAULT_SOCKET


def test_records_to_bytes_and_back():
    record = LogRecord(-2, "fifteen letters", 3, 255, 0x01020304, 2024, 1, 31, 23, 5, 9)
    data = record.pack()
    assert data == (b"\xfe\xff\xff\xff\x18\0\x1f\x17\5\x09\3fifteen letters\0\xff\4\3\2\1")
    assert LogRecord.unpack(data) == record


OF_PYTHON = ("TEXT_HAS_NUL", "NOT_OF_THAT_KIND")  # what a C program could not be told


def test_results_and_bounds_are_those_of_the_c_library():
    include = HERE.parents[1] / "include/veltrancord"
    names = dict(re.findall(r"VELTRANCORD_(\w+) = (-?\d+)", (include / "result.h").read_text()))
    ours = {result.name: str(int(result)) for result in Result if result.name not in OF_PYTHON}
    names.pop("NO_MEMORY")  # Python raises MemoryError
    assert ours == names
    sizes = re.findall(r"VELTRANCORD_(MAX_\w+) = (\d+)", (include / "client.h").read_text())
    sizes.remove(("MAX_SUBJECT", "255"))  # Python's are not cut
    assert {name: getattr(bounds, name) for name, _ in sizes} == {n: int(v) for n, v in sizes}


def test_the_types_hold():
    if shutil.which("mypy") is None:
        pytest.skip("mypy is not installed")
    checked = subprocess.run(["mypy", "--strict", "--no-incremental", "--cache-dir", "/dev/null",
                              HERE.parent / "veltrancord"], capture_output=True, text=True, check=False)
    assert checked.returncode == 0, checked.stdout
