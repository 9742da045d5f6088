"""A short conversation with the service that ./dev run has started on the sample configuration.

Shows each request, its result and its reply text, and says so when an answer is another one than the
sample configuration leads to (which it is, for instance, after you changed the permissions).

Exit status: 0 when every request was answered, 1 when one was not.
"""

import os
import struct
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))

from wire import exchange

SOCKET = "/tmp/Veltrancord.unix"

# A record of the event log: type, 6 bytes of time (the service sets them), first detail, detail text,
# second detail, seconds (not used here).
EVENT = struct.pack("<i6xB16sBi", 0x0002, 1, b"Gate", 0, 0)

# (title, [(request, {result without a reply text: its meaning}, or None for a count), ...])
CONVERSATION = [
    ("Reading settings", [
        ("readvalue:System.Name", {}),
        ("read:Account.User1.Username", {}),
        ("read:Network.Lan.Dns.*", {}),
        ("read:Motion.Channel1.Zone A.*", {}),
        ("read:Network.Lan.Nowhere", {-4: "not found"}),
    ]),
    ("Reading attributes of settings", [
        ("readattr:Network.Lan.Address.#", {}),
        ("readsingleattr:Network.Lan.Level", {}),
    ]),
    ("Changing a setting, which is in its file when the answer comes", [
        ("write:Display.Dwell=12", {1: "1 line applied"}),
        ("read:Display.Dwell", {}),
        ("write:Display.Dwell=10", {1: "1 line applied"}),
    ]),
    ("May the operator format the disks? May the administrator?", [
        ("isPermitAllowByUser:operator&StorageFormat", {-12: "denied"}),
        ("isPermitAllowByUser:admin&StorageFormat", {0: "allowed"}),
        ("GetCGIPermitFilter:operator&storage&action=format", {-12: "denied"}),
        ("GetCGIPermitFilter:operator&storage&action=list", {0: "allowed"}),
        ("GetCGIPermitFilter:admin&storage&action=format", {0: "allowed"}),
        ("getGroupName:operator", {}),
    ]),
    ("A login page's captcha: shown, answered wrong, answered right and used up, tried again", [
        ("SetCaptcha:page-7&k4tz", {0: "kept"}),
        ("CompareCaptcha:page-7&k4tx&1", {2: "wrong"}),
        ("CompareCaptcha:page-7&k4tz&1", {0: "right, and used up"}),
        ("CompareCaptcha:page-7&k4tz&1", {-4: "no such captcha"}),
    ]),
    ("A login session", [
        ("SetSession:5e1f0c", {0: "kept"}),
        ("CheckSession:5e1f0c&600", {0: "valid"}),
        ("CheckSession:000000&600", {-4: "not valid"}),
    ]),
    ("The event log", [
        (b"writelog:" + EVENT, {0: "logged"}),
        ("geteventcount:", None),
        ("maxlogcount:", None),
    ]),
    ("A command that there is not", [
        ("Read:System.Name", {-4: "unknown command"}),
    ]),
]


LARGE_DISK = """
      The log's capacity comes from the size of its file system, counted in 32 bits: right for a
      device's flash, but this machine's disk is too large for it, and the log does not work here."""


def shown(payload):
    """The request as a line of text; what is not text becomes a remark."""
    if isinstance(payload, str):
        return payload
    name = payload.split(b":", 1)[0].decode()
    return f"{name}:(record of 32 bytes: type 0x0002, detail Gate)"


def main():
    status = 0
    for title, requests in CONVERSATION:
        print(title)
        for payload, meanings in requests:
            try:
                reply = exchange(SOCKET, payload, timeout=10)
            except OSError as error:
                print(f"  {shown(payload)}\n      no answer: {error}")
                return 1
            print(f"  {shown(payload)}")
            if reply.code is None:
                print("      closed without an answer")
                status = 1
                continue
            for line in reply.body.decode(errors="replace").splitlines():
                print(f"      {line}")
            if reply.body:
                continue
            meaning = "" if meanings is None else meanings.get(reply.code)
            if meanings is None and reply.code < 0:
                print(f"      {reply.code}{LARGE_DISK}")
            elif meaning is None:
                print(f"      {reply.code} (not what the sample configuration leads to)")
            else:
                print(f"      {reply.code}" + (f" ({meaning})" if meaning else ""))
        print()
    return status


if __name__ == "__main__":
    sys.exit(main())
