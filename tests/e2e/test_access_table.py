"""Who may ask a guarded service what: every command by every kind of client, on a document that its rules
allow and on one that they leave out. The reply, the memory and the files must agree."""

import itertools
import re

import pytest

from access_table import (BACKUP_SCRIPT, CALLED, COMMANDS, DENIED, EXCHANGE, KINDS, MEMBER, OWN, ROOT, SAMPLE,
                          STRANGER, WEB_USER, TableDevice)
from device import REPOSITORY, wait_until
from peers import Peer

pytestmark = pytest.mark.fault("G1")

FREE = "log-read,log-write,log-clear,permits,sessions"  # classes that no document belongs to
RULES = f"""mode enforce
allow user root all
allow user veltrancord all
allow user www-data permits,sessions,log-read
allow user www-data read on * except Account
allow user www-data write on Display
deny user www-data all
allow group veltrancord {FREE}
allow group veltrancord read,secrets,write,memory,files,remove on * except Account
files-below {EXCHANGE}
"""
DOCUMENTS = ["Display", "Account"]  # the second one is left out


def may(kind, command, document):
    """What the rules above mean, without their order and words."""
    left_out = command.documents and document == "Account"
    if kind in (ROOT, OWN):
        return True
    if kind == MEMBER:
        everything = command.name == "download"  # the document that is left out, too
        return command.needed != "admin" and not left_out and not everything
    if kind == WEB_USER:
        return (command.needed in ("permits", "sessions", "log-read")
                or command.needed in ("read", "write") and not left_out)
    return False


@pytest.fixture(scope="module")
def guarded():
    with TableDevice() as device:
        device.install_script(BACKUP_SCRIPT, f'#!/bin/sh\necho "$1" >> {CALLED}\n')
        device.write_file(CALLED, "", mode=0o666)
        device.start_guarded(RULES)
        yield device


def test_the_table_has_every_command():
    source = (REPOSITORY / "src/service/commands.cpp").read_text()
    assert [one.name for one in COMMANDS] == re.findall(r'^    {"(\w+)", \w+_handle', source, re.M)


def check_row(device, peer, kind, command, document, number):
    """One cell of the table."""
    device.put_exchange_file(document, number)
    if command.before:
        assert device.request(command.before(document, number)).code >= 0
    probe = command.probe and command.probe(document, number)
    before = device.state(probe)
    reply = peer.request(command.request(document, number))
    after = device.state(probe)
    where = kind, command.name, document, reply
    if not may(kind, command, document):
        assert reply == DENIED, where
        assert after == before, where
        return
    if command.code is None:
        assert reply.code > 0, where
    else:
        assert reply == (command.code, b""), where
    assert (after != before) == command.changes, where


@pytest.mark.parametrize("kind", KINDS)
def test_every_command_on_both_documents(guarded, kind):
    guarded.needs_users(kind)
    allowed_calls = []
    numbers = itertools.count(list(KINDS).index(kind) * 1000)
    with guarded.peer(kind) as peer:
        for command in COMMANDS:
            for document in DOCUMENTS:
                number = next(numbers)
                check_row(guarded, peer, kind, command, document, number)
                if command.name == "XMLDBCallBack" and may(kind, command, document):
                    allowed_calls.append(f"call{number}")
    wait_until(lambda: allowed_calls == called(guarded, kind), "the backup script has run for them")


def called(device, kind):
    """What the backup script was told by this kind of client."""
    numbers = sorted(map(int, re.findall(r"call(\d+)", device.read_file(CALLED).decode())))
    return [f"call{one}" for one in numbers if one // 1000 == list(KINDS).index(kind)]


CLASSES = ["read", "write", "memory", "files", "remove", "log-read", "log-write", "log-clear", "permits",
           "sessions", "admin"]
FIRST_USER = 3000  # of one user for each class, who has that class alone


def test_every_command_is_in_the_class_that_it_is_said_to_be_in():
    with TableDevice() as device:
        device.needs_users()
        rules = [f"allow user {FIRST_USER + number} {name}" for number, name in enumerate(CLASSES)]
        rules.append(f"allow user {FIRST_USER + CLASSES.index('files')} secrets")  # as a download needs
        device.start_guarded("\n".join(["allow user root all", f"files-below {EXCHANGE}", *rules, ""]))
        wrong = []
        for number, name in enumerate(CLASSES):
            device.put_exchange_file("Display", number)
            with Peer(device, FIRST_USER + number) as peer:
                for command in COMMANDS:
                    if command.before:
                        device.request(command.before("Display", number))
                    allowed = peer.request(command.request("Display", number)) != DENIED
                    if allowed != (command.needed == name):
                        wrong.append((command.name, name, allowed))
        assert not wrong


TWO_DOCUMENTS = [
    "read:*", "readAndFilter:*", "readwithlevel:*&0", "remove:.*", "write:Display.Name=1\nAccount.Name=2",
    "write:Account.Name=2\nDisplay.Name=1", "writedbmem:Display.Name=1\nAccount.Name=2",
    "writeattr:Display.Name.Note=1\nAccount.Name.Note=2", f"download:{EXCHANGE}/x"]


def test_one_refused_document_refuses_the_whole_request(guarded):
    guarded.needs_users(MEMBER)
    before = guarded.state()
    with guarded.peer(MEMBER) as peer:
        for text in TWO_DOCUMENTS:
            assert peer.request(text) == DENIED, text
    assert guarded.state() == before


def test_the_sample_of_the_packages():
    """Root all, the group all but what names programs, the web server's user what its pages need."""
    allowed = {ROOT: {"read", "write", "other", "remove", "admin"}, MEMBER: {"read", "write", "other", "remove"},
               WEB_USER: {"read", "write"}, STRANGER: set()}
    requests = {"read": "readvalue:Account.User1.Username", "write": "write:Display.Name=1",
                "other": "write:Account.Name=1", "remove": "remove:Display.None", "admin": "SyncPermit:"}
    with TableDevice() as device:
        device.needs_users()
        device.start_guarded(SAMPLE.read_text())
        for kind, may_do in allowed.items():
            with device.peer(kind) as peer:
                done = {what for what, text in requests.items() if peer.request(text) != DENIED}
            assert done == may_do, kind
