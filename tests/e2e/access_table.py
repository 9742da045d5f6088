"""Who may do what at a guarded socket, written down once more: the commands with what each needs, the
kinds of clients, and a device on which they meet."""

import hashlib
import os
from pathlib import Path
from typing import Callable, NamedTuple, Optional

import pytest

import valgrind
from account_text import account_text
from device import CONFIGURATION, EVENT_LOG, REPOSITORY, SOCKET, Device
from log_model import record
from machine import LOGS, wait_until
from peers import Peer

POLICY = "/etc/veltrancord/access"
SAMPLE = REPOSITORY / "packaging/access"
EXCHANGE = "/mnt/database/exchange"
BACKUP_SCRIPT = "/tmp/BackupXmlDB.sh"
CALLED = "/mnt/called"

SERVICE, GROUP, WEB = 998, 2100, 33
USERS = f"""root:x:0:0::/root:/bin/sh
www-data:x:{WEB}:{WEB}::/var/www:/usr/sbin/nologin
veltrancord:x:{SERVICE}:{GROUP}::/nonexistent:/usr/sbin/nologin
member:x:2001:2001::/:/bin/sh
stranger:x:2002:2002::/:/bin/sh
"""
GROUPS = f"root:x:0:\nwww-data:x:{WEB}:\nveltrancord:x:{GROUP}:www-data,member\nmember:x:2001:\nstranger:x:2002:\n"

# Kinds of clients: what a Peer is made of. The web server's user is in the group too, as on a device
# whose socket is the group's.
ROOT, OWN, MEMBER = "root", "the service's own user", "a member of the group"
WEB_USER, STRANGER, NAMESPACE_ROOT = "the web server's user", "a stranger", "root of a namespace"
KINDS = {
    ROOT: dict(user=0),
    OWN: dict(user=SERVICE, group=GROUP),
    MEMBER: dict(user=2001, further=[GROUP]),
    WEB_USER: dict(user=WEB, further=[GROUP]),
    STRANGER: dict(user=2002),
    NAMESPACE_ROOT: dict(user=2003, own_namespace=True),
}
DENIED = (-12, b"")

ACCOUNT = account_text({
    "Name": "document", "Name#Level": "3", "Password": "", "User1.Username": "admin", "User1.Level": "Admin",
    "Permission.Define.Permit1": "Reboot", "Permission.Define.Permit1#Type": "Switch",
    "Permission.Define.Permit1#Value": "NO", "Permission.Group1.Name": "Admin",
    "Permission.Group1.Level": "Admin", "Permission.Group1.Permit1": "YES"})
DISPLAY = '<Display><Name Level="3">document</Name></Display>'


RECORDS = "/tmp/auth.log"
SYSTEM_LOG = f"""
import socket
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
with open("{RECORDS}", "ab", buffering=0) as file:
    while True:
        file.write(log.recv(65536) + b"\\n")
"""


class Command(NamedTuple):
    """One row of the table: what a request needs and does."""

    name: str
    needed: str  # the class
    argument: Callable  # of document and number: what stands behind the colon
    code: Optional[int] = None  # the result where it is allowed; None: the length of a text
    documents: bool = False  # whether the document that is named counts
    before: Optional[Callable] = None  # of document and number: a request of root's that prepares it
    probe: Optional[Callable] = None  # the same: a request that shows what has been done
    changes: bool = False  # whether memory, files or the probe differ afterwards

    def request(self, document, number):
        argument = self.argument(document, number)
        argument = argument.encode() if isinstance(argument, str) else argument
        return self.name.encode() + b":" + argument


def exchange_file(document, _number):
    return f"{EXCHANGE}/{document}"


def nothing(*_):
    return ""


def path(document, _number):
    return f"{document}.Name"


def new_value(document, number):
    return f"{document}.Name=v{number}"


def log_entry(*_):
    return record(1)


def spare(document, number):
    return f"write:{document}.Spare{number}=x"


def add_event(*_):
    return b"writelog:" + record(2)


def captcha(_document, number):
    return f"code{number}&text"


def set_captcha(document, number):
    return "SetCaptcha:" + captcha(document, number)


def compare_captcha(document, number):
    return "CompareCaptcha:" + captcha(document, number)


def check_session(_document, number):
    return f"CheckSession:token{number}"


def change(name, needed, argument, code, documents=False, **more):
    return Command(name, needed, argument, code, documents, changes=True, **more)


COMMANDS = [
    Command("read", "read", path, documents=True),
    Command("readAndFilter", "read", path, documents=True),
    Command("readwithlevel", "read", lambda document, _: f"{document}.Name&0", documents=True),
    change("write", "write", new_value, 1, True),
    change("upload", "files", exchange_file, 0, True),
    change("download", "files", lambda _, number: f"{EXCHANGE}/all{number}", 0),
    change("remove", "remove", lambda document, number: f"{document}.Spare{number}", 0, True,
           before=spare),
    Command("readlog", "log-read", lambda *_: "1&-1&5", before=add_event),
    change("writelog", "log-write", log_entry, 0),
    Command("readvalue", "read", path, documents=True),
    change("cleanlog", "log-clear", nothing, 0, before=add_event),
    Command("geteventcount", "log-read", nothing, before=add_event),
    Command("maxlogcount", "log-read", nothing),
    Command("readattr", "read", lambda document, _: f"{document}.Name.#", documents=True,
            before=lambda document, _: f"writeattr:{document}.Name.Level=3"),
    change("writeattr", "write", lambda document, number: f"{document}.Name.Note=n{number}", 1, True),
    Command("readsingleattr", "read", lambda document, _: f"{document}.Name.Level", documents=True,
            before=lambda document, _: f"writeattr:{document}.Name.Level=3"),
    change("syncxml", "files", exchange_file, 0, True),
    change("writedbmem", "memory", new_value, 1, True),
    change("syncmemtoflash", "memory", nothing, 0, True,
           before=lambda document, number: f"writedbmem:{document}.Name=m{number}"),
    change("restore", "files", exchange_file, 0, True),
    change("writelogwithtime", "log-write", lambda *_: record(1, when=1_700_000_000), 0),
    Command("XMLDBCallBack", "admin", lambda _, number: f"call{number}", 0),
    change("SyncPermit", "admin", nothing, 0),
    Command("isPermitAllow", "permits", lambda *_: "Admin&Reboot", 0),
    Command("listPermits", "permits", nothing),
    Command("getPermitValue", "permits", lambda *_: "Admin&Reboot"),
    Command("isPermitAllowByUser", "permits", lambda *_: "admin&Reboot", 0),
    Command("GetCGIPermitFilter", "permits", lambda *_: "admin&reboot", 0),
    change("SetCaptcha", "sessions", captcha, 0, probe=compare_captcha),
    Command("CompareCaptcha", "sessions", captcha, 0, before=set_captcha),
    Command("getGroupName", "permits", lambda *_: "admin"),
    change("SetSession", "sessions", lambda _, number: f"token{number}", 0, probe=check_session),
    Command("CheckSession", "sessions", lambda _, number: f"token{number}", 0,
            before=lambda _, number: f"SetSession:token{number}"),
    Command("UpdateCaptchaTime", "sessions", captcha, 0, before=set_captcha),
    change("DelCaptchaItem", "sessions", captcha, -4, before=set_captcha, probe=compare_captcha),
]


class TableDevice(Device):
    """A device whose service is not root, with users of its own and a policy."""

    def __init__(self):
        super().__init__(many_users=True)
        self.own_user = SERVICE if self.has_many_users else 0
        self.cover("/etc")
        for name, text in (("passwd", USERS), ("group", GROUPS)):
            self.outside(f"/etc/{name}").unlink()
            self.write_file(f"/etc/{name}", text)
        self.make_directory(EXCHANGE)
        self.outside(LOGS).chmod(0o777)  # where a sanitizer reports as the service's user

    def __exit__(self, *failure):
        findings = self.sanitizer_findings() + valgrind.findings(self)
        super().__exit__(*failure)
        assert failure[0] is not None or not findings, findings

    def start_guarded(self, policy, *options, documents=None):
        """Starts it as its own user, on the two documents of the table unless others are given."""
        self.write_file(POLICY, policy, mode=0o644)
        self.write_documents(documents or {"Account": ACCOUNT, "Display": DISPLAY})
        if self.own_user != 0:
            given = self.run("chown", "-R", f"{SERVICE}:{GROUP}", "/mnt/database")
            assert given.status == 0, given
        self.start(*options, user=self.own_user or None)
        self.outside(SOCKET).chmod(0o777)  # the guard is to decide, and not the mode

    def start_log(self):
        """A system log that puts each record on a line of a file. Return: the file."""
        self.cover("/dev")
        self.outside("/dev/log").unlink(missing_ok=True)
        self.launch("/usr/bin/python3", "-c", SYSTEM_LOG)
        self.wait_for_file(RECORDS)
        assert self.run("chmod", "666", "/dev/log").status == 0
        return RECORDS

    def wait_for_record(self, text):
        """The system log has its records a moment after the service has answered."""
        wait_until(lambda: text in self.read_file(RECORDS).decode(), f"there is a record of {text}")

    def peer(self, kind):
        return Peer(self, **KINDS[kind])

    def needs_users(self, kind=None):
        """Skips the test where the kind of client, or any other than root, cannot be had."""
        if kind != ROOT and not self.has_many_users:
            pytest.skip("only root could be mapped: run as root, or with /etc/subuid and newuidmap")

    def put_exchange_file(self, document, number):
        """What upload and its like bring in."""
        whole = {"Account": ACCOUNT, "Display": DISPLAY}[document]
        text = whole.replace(">document<", f">file{number}<")
        self.write_file(exchange_file(document, number), f"<R>{text}</R>", mode=0o644)

    def files(self):
        """All that the service may have written: path to content and which file it is."""
        found = {}
        for folder in (CONFIGURATION, os.path.dirname(EVENT_LOG), EXCHANGE, "/tmp"):
            root = self.outside(folder)
            for place in sorted(Path(root).rglob("*")):
                if place.is_file():
                    content = hashlib.sha256(place.read_bytes()).digest()
                    found[f"{folder}/{place.relative_to(root)}"] = content, place.stat().st_ino
        return found

    def state(self, probe=None):
        """What memory and files hold, as root sees it."""
        asked = ["read:*", "readattr:Account.Name.#", "readattr:Display.Name.#", "geteventcount:",
                 *([probe] if probe else [])]
        return [self.request(one) for one in asked], self.files()
