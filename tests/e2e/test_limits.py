"""Every bound of docs/limits.md: the manual, its table for programs (limits.json) and the constants
of the sources agree, and the running service keeps each bound one below, at and one above it. Rows
whose tests are elsewhere name them; that they exist is tested too."""

import json
import os
import re

import pytest

from account_text import account_text
from device import CONFIGURATION, EVENT_LOG, REPOSITORY, wait_until
from log_model import entries, record

pytestmark = pytest.mark.fault("C3")

TABLE = json.loads((REPOSITORY / "docs/limits.json").read_text())


def limit(beginning):
    """The number of the one row that begins so."""
    (row,) = [row for row in TABLE if row["what"].startswith(beginning)]
    return row["number"]


def around(number):
    return (number - 1, number, number + 1)


# ---- the table ----------------------------------------------------------------------------------

def test_the_manual_has_the_same_rows():
    lines = (REPOSITORY / "docs/limits.md").read_text().splitlines()
    cells = [[cell.strip() for cell in line[1:-1].split("|")] for line in lines if line[:2] == "| "]
    assert cells[1:] == [[row["what"], row["bound"], row["beyond"]] for row in TABLE]


def test_the_sources_have_the_same_numbers():
    for row in TABLE:
        for file, name, number in row["code"]:
            text = (REPOSITORY / "src" / file).read_text()
            found = re.search(rf"constexpr [\w:]+ {name} = ([\d']+);|(?:using {name} = char| char {name})"
                              r"\[(\d+)\]", text)
            assert found and int((found[1] or found[2]).replace("'", "")) == number, (row["what"], file, name)


def test_each_row_has_a_test():
    texts = [path.read_text() for path in [*(REPOSITORY / "tests/e2e").glob("test_*.py"),
                                           *(REPOSITORY / "src").glob("*/*_test.cpp")]]
    for row in TABLE:
        assert row["tests"], row["what"]
        for name in row["tests"]:
            pattern = re.compile(rf"def {name}\(|^TEST(?:_F)?\(\w+,\s*{name}\)", re.M)
            assert any(map(pattern.search, texts)), (row["what"], name)


# ---- options ------------------------------------------------------------------------------------

@pytest.mark.parametrize("option", ["-P", "-E"])
def test_a_path_of_an_option(device, option):
    most = limit("path of `-P`, `-E`")
    for length in around(most):
        path = f"/mnt/{length}".ljust(length, "d")
        device.write_document("A", "<A>default</A>")
        if option == "-P":
            device.write_file(f"{path}/A", "<A>option</A>")
        device.start(option, path)
        taken = device.file_exists(path) if option == "-E" else \
            device.request("readvalue:A").text == "option"
        assert taken == (length <= most)
        device.stop()


# ---- paths and values ---------------------------------------------------------------------------

def test_a_path_in_a_request(service):
    device = service({"A": "<A>outer<B>inner</B></A>"})
    most = limit("path in a request")
    for length in around(most):
        path = "A" + "." * (length - 2) + "B"
        assert device.request("readvalue:" + path).text == ("inner" if length <= most else "outer")


def test_a_component(service):
    device = service({"A": "<A/>"})
    most = limit("component of a path")
    full = "_" * (most // 3)  # each takes three characters
    for length in around(most):
        component = full + "x" * (length - len(full) * 3)
        assert device.request(f"write:A.{component}={length}").code == 1
    saved = device.read_document("A").decode()
    names = re.findall(r"<(_[^ />]+)>(\d+)<", saved)
    assert [(len(name), int(value)) for name, value in names] == [(most - 1, most - 1),
                                                                  (most, most + 1)]
    # An escape that does not fit is left out whole.
    assert device.request(f"readvalue:A.{full}_").text == str(most - 1)


def test_a_path_of_a_written_line(service):
    device = service({"A": "<A/>"})
    most = limit("path of a written line")
    for command, good in (("write", 1), ("writedbmem", 1), ("writeattr", 1)):
        for length in around(most):
            payload = f"{command}:A." + "b" * (length - 2) + "=1"
            assert device.request(payload).code == (good if length <= most else -7)


@pytest.mark.parametrize("command", ["write", "writedbmem"])
def test_a_written_value(service, command):
    device = service({"A": "<A/>"})
    most = limit("value of a written line")
    for length in around(most):
        kept = length if length <= most else most
        assert device.request(f"{command}:A.V=" + "v" * length).code == (1 if length <= most else -7)
        assert device.request("readvalue:A.V") == (kept, b"v" * kept)


@pytest.mark.parametrize("value", [" a", "a ", "a  b", " "])
def test_blanks_of_a_written_value(service, value):
    device = service({"A": "<A/>"})
    assert device.request(f"write:A.V={value}\nA.Password={value}").code == 2
    device.request(f"writeattr:A.V.x={value}")
    assert device.request("readvalue:A.V").text == value
    device.restart()
    assert device.request("readvalue:A.V").text == " ".join(value.split())
    secret = device.request("readvalue:A.Password").body
    assert secret[:secret.find(b"\0")].decode() == value
    assert device.request("readsingleattr:A.V.x").text == value


def test_a_written_attribute_value(service):
    device = service({"A": "<A/>"})
    most = limit("value of a written attribute line")
    for length in around(most):
        kept = length if length <= most else most
        assert device.request("writeattr:A.v=" + "v" * length).code == (1 if length <= most else -7)
        assert device.request("readsingleattr:A.v") == (kept, b"v" * kept)


def test_a_stored_secret(service):
    device = service({"A": "<A/>"})
    most = limit('stored form of a "Password"')
    plain = (most - len("enc:183:")) // 4 * 3  # the longest text whose form fits
    for length in around(plain):
        fits = len(f"enc:{length}:") + (length + 2) // 3 * 4 <= most
        assert fits == (length <= plain)
        assert device.request("write:A.Password=" + "p" * length).code == (1 if fits else -11)
        reply = device.request("readvalue:A.Password")
        assert reply.body.rstrip(b"\0") == b"p" * min(length, plain)
        assert reply.code <= most


def test_an_attribute_name_in_a_query(service):
    most = limit("attribute name in a query")
    attributes = " ".join(f'{"n" * length}="{length}"' for length in around(most))
    device = service({"A": f"<A {attributes}/>"})
    for length in around(most):
        asked = min(length, most)
        assert device.request("readsingleattr:A." + "n" * length).text == str(asked)
        assert device.request("readattr:A." + "n" * length).text == f"A.{'n' * asked}={asked}\n"


def test_a_written_attribute_name(service):
    device = service({"A": "<A/>"})
    most = limit("attribute name written")
    full = "a" + "_" * ((most - 1) // 3)  # grows beyond the bound by its escapes only
    for length in around(most):
        name = full + "x" * (length - 1 - (most - 1) // 3 * 3)
        assert device.request(f"writeattr:A.{name}={length}").code == 1
    lines = device.request("readattr:A.#").lines
    assert [(len(line) - len("A.=255"), line[-3:]) for line in lines] == [
        (most - 1, str(most - 1)), (most, str(most + 1))]


def test_a_key_of_a_listed_element(service):
    most = limit("key of a listed element")
    names = ["n" * (length - len("A.")) for length in around(most)]
    device = service({"A": "<A>" + "".join(f"<{n}>{len(n)}</{n}>" for n in names) + "</A>"})
    assert device.request("read:A.*").lines == [f"A.{n}"[:most] + f"={len(n)}" for n in names]


def test_a_key_of_an_attribute_line(service):
    most = limit("key of an attribute line")
    outer = "e" * 240
    names = ["n" * (length - len(f"A.{outer}.")) for length in around(most)]
    attributes = " ".join(f'{n}="{len(n)}"' for n in names)
    device = service({"A": f"<A><{outer} {attributes}/></A>"})
    lines = [f"A.{outer}.{n}"[:most] + f"={len(n)}" for n in names]
    assert device.request(f"readattr:A.{outer}.#").lines == lines


def test_a_level(service):
    most = limit("`Level`")
    elements = "".join(f'<L{length} Level="{"0" * (length - 1)}3">x</L{length}>'
                       for length in around(most))
    device = service({"A": f"<A>{elements}</A>"})
    for length in around(most):
        reply = device.request(f"readwithlevel:A.L{length}&2")
        assert reply.code == (len(f"A.L{length}=x") if length <= most else -4)


# ---- files and programs -------------------------------------------------------------------------

def path_of(length, name):
    """A path to /tmp/NAME of that length: further slashes count for nothing."""
    return "/tmp" + "/" * (length - len("/tmp") - len(name)) + name


def test_a_started_program(service):
    most = limit("program named by `DispatchW`")
    paths = {length: "/tmp/" + "p" * (length - len("/tmp/")) for length in around(most)}
    device = service({"A": "<A>" + "".join(f'<P{n} DispatchW="{path}"/>'
                                           for n, path in paths.items()) + "</A>"})
    for path in paths.values():
        device.install_script(path, '#!/bin/sh\nread line\necho "$line" >>"$0.told"\n')
    for length in paths:
        assert device.request(f"write:A.P{length}={length}").code == 1
        told = paths[min(length, most)] + ".told"
        wait_until(lambda: device.file_exists(told)
                   and f"={length}\n".encode() in device.read_file(told), "the program has run")
    assert not device.file_exists(paths[most + 1] + ".told")


def test_a_file_to_upload_and_to_download(service):
    device = service({"A": "<A>old</A>"})
    most = limit("file named to `upload`")
    assert most == limit("file named to `download`")
    for length in around(most):
        fits = length <= most
        name = f"f{length}"
        assert device.request("download:" + path_of(length, name)).code == (0 if fits else -1)
        assert device.file_exists("/tmp/" + name) == fits
        device.write_file("/tmp/" + name, f"<R><A>{length}</A></R>")
        assert device.request("upload:" + path_of(length, name)).code == (0 if fits else -3)
        assert device.request("readvalue:A").text == str(min(length, most))


@pytest.mark.parametrize("command", ["restore", "syncxml"])
def test_a_file_to_restore_or_sync(service, command):
    device = service({"A": "<A/>"})
    most = limit("file named to `restore`")
    for length in around(most):
        device.write_file("/tmp/f", f"<R><A><B{length}>x</B{length}></A></R>")
        name = "f" if length <= most else "fg"  # cut, it is "f" again
        assert device.request(f"{command}:" + path_of(length, name)).code == 0
        assert device.request(f"readvalue:A.B{length}").text == "x"


def test_a_document_of_an_exchange_file(service):
    most = limit("name of a document in an exchange file")
    device = service()
    for length in around(most):
        name = "d" * length
        device.write_file("/tmp/f", f"<R><{name}><V>{length}</V></{name}></R>")
        assert device.request("upload:/tmp/f").code == 0
        assert device.file_exists(f"{CONFIGURATION}/{name}") == (length <= most)
        assert device.request(f"readvalue:{name}.V").code == (2 if length <= most else -4)
    # The longest one took nobody's place.
    device.restart()
    for length in (most - 1, most):
        assert device.request(f"readvalue:{'d' * length}.V").text == str(length)


def test_a_file_name(service):
    most = limit("name of a file in the configuration directory")
    names = {length: "d" * length for length in around(most)}
    device = service({name: f"<{name}>x</{name}>" for name in names.values()})
    for length, name in names.items():
        assert device.request("readvalue:" + name).code == (1 if length <= most else -4)
    assert f"skip strxmlPath={CONFIGURATION}/{names[most + 1]}\n" in device.stderr()


def nested(name, depth):
    return f"<{name}>" + "<n>" * (depth - 1) + "x" + "</n>" * (depth - 1) + f"</{name}>"


def test_nesting(service):
    most = limit("elements within elements in a document")
    assert most == limit("elements within elements in an exchange file")
    device = service({f"D{depth}": nested(f"D{depth}", depth) for depth in around(most)})
    for depth in around(most):
        listed = device.request(f"read:D{depth}.*").code
        assert listed > 0 if depth <= most else listed == -4
        device.write_file("/tmp/f", nested("ROOT", depth))
        for command in ("upload", "restore", "syncxml"):
            assert device.request(f"{command}:/tmp/f").code == (0 if depth <= most else -3)


def test_the_text_for_the_backup_script(service):
    device = service()
    device.install_script("/tmp/BackupXmlDB.sh", '#!/bin/sh\necho "${#1}" >>/tmp/lengths\n')
    most = limit("text for the backup script")
    for length in around(most):
        assert device.request("XMLDBCallBack:" + "x" * length).code == 0
    assert device.read_file("/tmp/lengths").decode().split() == [str(most - 1), str(most)]
    assert device.stderr().count("input parameter fail !!\n") == 1


# ---- clients ------------------------------------------------------------------------------------

def test_the_time_until_the_start_code(device):
    device.require_fake_clock()
    device.write_document("A", "<A>x</A>")
    device.start(fake_clock=True)
    device.stop_clock(0)
    most = limit("time between connecting and the start code")
    with device.connect() as silent:
        assert device.request("readvalue:A").text == "x"  # whoever comes later is accepted later
        for seconds in around(most):
            device.stop_clock(seconds)
            assert device.request("readvalue:A").text == "x"  # makes the loop look at its timers
            if seconds < most:
                assert silent.is_open(0.1)
            else:
                assert silent.receive_reply().code is None


# ---- the event log ------------------------------------------------------------------------------

def newest(device, limit_text="1"):
    return entries(device.request(f"readlog:1&255&{limit_text}").body)


def test_entries_of_the_event_log(device):
    most = limit("event log")
    device.write_document("A", "<A/>")
    device.mount_tmpfs(os.path.dirname(EVENT_LOG), size="16m")
    # Writing hundreds of entries into a log that is there already takes long; loading them does not.
    listed = "".join(f"<E{n}>1:2024:0:1:2:3:4:5:d:6</E{n}>" for n in range(1, most - 1))
    device.write_file(EVENT_LOG, f"<Log>{listed}</Log>")
    device.start()
    for count in around(most):
        assert device.request(b"writelog:" + record(1)).code == 0
        assert device.request("geteventcount:").code == min(count, most)
        assert device.read_file(EVENT_LOG).count(b"<E") == min(count, most)


def test_a_detail_text(service):
    device = service()
    most = limit("detail text of an event")
    for length in around(most):
        assert device.request(b"writelog:" + record(1, text=b"t" * length)).code == 0
        assert newest(device)[0].text == b"t" * min(length, most)


def test_a_field_of_readlog(service):
    device = service()
    for _ in range(5):
        assert device.request(b"writelog:" + record(1)).code == 0
    most = limit("field of `readlog`")
    for length in around(most):
        digits = "3" if length <= most else "30"  # cut, it is 3 again
        assert len(newest(device, digits.zfill(length))) == 3


def test_the_text_of_a_log_entry(device):
    most = limit("text of a log entry")
    for number, length in enumerate(around(most)):
        text = "1:2024:0:1:2:3:4:5:" + ":12".rjust(length - len("1:2024:0:1:2:3:4:5:"), "d")
        assert len(text) == length
        device.write_file(EVENT_LOG, f"<Log><E1>{text}</E1></Log>")
        device.restart() if number else device.start()
        assert newest(device)[0].last == (12 if length <= most else 1)


def test_bits_of_an_event_definition(service):
    most = limit("digits of an event definition's bits")
    device = service({"Notification": "<Notification><Log><BitDefine><Num>3</Num>" + "".join(
        f"<Def{n}><Bit>{'1'.rjust(length, '0').join(['0x', ''])}</Bit><Name>N</Name></Def{n}>"
        for n, length in enumerate(around(most), 1)) + "</BitDefine></Log></Notification>"})
    assert device.request(b"writelog:" + record(1)).code == 0
    assert device.stderr().count("Data is overflow!!\n") == 1


# ---- accounts -----------------------------------------------------------------------------------

def test_an_account_setting(service):
    most = limit("text of an account, permission or filter setting")
    settings = {}
    for number, length in enumerate(around(most), 1):
        settings[f"User{number}.Username"] = "abc"[number - 1] * length
        settings[f"User{number}.Level"] = f"G{number}"
    device = service({"Account": account_text(settings)})
    for letter, group, longest in (("a", "G1", most - 1), ("b", "G2", most), ("c", "G3", most)):
        assert device.request("getGroupName:" + letter * longest).text == group
        # A question is not cut: it is no setting.
        assert device.request("getGroupName:" + letter * (longest + 1)).code == -12


def test_numbers_of_permits_groups_and_users(service):
    ((_, _, permits), (_, _, groups)) = next(row["code"] for row in TABLE
                                            if row["what"].startswith("permit numbers"))
    ((_, _, users),) = next(row["code"] for row in TABLE if row["what"] == "user slots")
    settings = {}
    for n in around(permits):
        settings[f"Permission.Define.Permit{n}"] = f"P{n}"
        settings[f"Permission.Group1.Permit{n}"] = f"value{n}"
    settings["Permission.Group1.Name"] = "First"
    for n in around(groups):
        settings[f"Permission.Group{n}.Name"] = f"G{n}"
        settings[f"Permission.Group{n}.Permit{permits}"] = f"value{n}"
    for n in around(users):
        settings[f"User{n}.Username"] = f"U{n}"
        settings[f"User{n}.Level"] = "First"
    device = service({"Account": account_text(settings)})
    for n in around(permits):
        reply = device.request(f"getPermitValue:First&P{n}")
        assert reply.text == f"value{n}" if n <= permits else reply.code == -4
    for n in around(groups):
        reply = device.request(f"getPermitValue:G{n}&P{permits}")
        assert reply.text == f"value{n}" if n <= groups else reply.code == -12
    for n in around(users):
        reply = device.request(f"getGroupName:U{n}")
        assert reply.text == "First" if n <= users else reply.code == -12
