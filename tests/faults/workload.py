"""A small configuration on which every command has something to do, and requests for all of them."""

from typing import NamedTuple

from account_text import account_text
from log_model import record

ACCOUNT = account_text({
    "User1.Username": "root", "User1.Level": "Admin", "User1.Password": "enc:5:NxBaBAU=",
    "Permission.Define.Permit1": "Network", "Permission.Define.Permit1#Type": "Switch",
    "Permission.Define.Permit2": "Channels", "Permission.Define.Permit2#Type": "Channel",
    "Permission.Group1.Name": "Admin", "Permission.Group1.Permit1": "YES",
    "Permission.Group1.Permit2": "1,3",
    "Permission.Filter1.Permit": "Network", "Permission.Filter1.Cmd1": "set",
})
DOCUMENTS = {
    "A": '<A>\n    <V Level="2">old</V>\n    <W>1</W>\n</A>\n',
    "B": "<B>\n    <V>old</V>\n</B>\n",
    "Account": ACCOUNT,
}
EXCHANGE = '<R><A><V Level="2">new</V><W>2</W></A><B><V>new</V></B><C><V>new</V></C></R>'


class Command(NamedTuple):
    payload: bytes
    before: tuple = ()  # requests that bring about the state in which it has something to do
    changes: bool = False  # whether it changes files or the event log


def command(payload, *before, changes=False):
    return Command(payload if isinstance(payload, bytes) else payload.encode(), before, changes)


LOG_RECORD = record(4, text=b"text", when=1_000_000_000)

# One for each row of the command table.
COMMANDS = {
    "read": command("read:A.V"),
    "readAndFilter": command("readAndFilter:*"),
    "readwithlevel": command("readwithlevel:A.*&2"),
    "write": command("write:A.V=new\nB.V=new", changes=True),
    "upload": command("upload:/tmp/in", changes=True),
    "download": command("download:/tmp/out"),
    "remove": command("remove:A.X.Y", "write:A.X.Y=1", changes=True),
    "readlog": command("readlog:1&-1&99"),
    "writelog": command(b"writelog:" + LOG_RECORD, changes=True),
    "readvalue": command("readvalue:Account.User1.Password"),
    "cleanlog": command("cleanlog:", b"writelogwithtime:" + LOG_RECORD, changes=True),
    "geteventcount": command("geteventcount:"),
    "maxlogcount": command("maxlogcount:"),
    "readattr": command("readattr:A.*"),
    "writeattr": command("writeattr:A.V.Level=3", changes=True),
    "readsingleattr": command("readsingleattr:A.V.Level"),
    "syncxml": command("syncxml:/tmp/in", changes=True),
    "writedbmem": command("writedbmem:A.V=memory"),
    "syncmemtoflash": command("syncmemtoflash:", "writedbmem:A.V=flash", changes=True),
    "restore": command("restore:/tmp/in", changes=True),
    "writelogwithtime": command(b"writelogwithtime:" + LOG_RECORD, changes=True),
    "XMLDBCallBack": command("XMLDBCallBack:text"),
    "SyncPermit": command("SyncPermit:"),
    "isPermitAllow": command("isPermitAllow:Admin&Network"),
    "listPermits": command("listPermits:"),
    "getPermitValue": command("getPermitValue:Admin&Channels"),
    "isPermitAllowByUser": command("isPermitAllowByUser:root&Network"),
    "GetCGIPermitFilter": command("GetCGIPermitFilter:Admin&set"),
    "SetCaptcha": command("SetCaptcha:id&text"),
    "CompareCaptcha": command("CompareCaptcha:id&text&0&9999", "SetCaptcha:id&text"),
    "getGroupName": command("getGroupName:root"),
    "SetSession": command("SetSession:token"),
    "CheckSession": command("CheckSession:token&9999", "SetSession:token"),
    "UpdateCaptchaTime": command("UpdateCaptchaTime:id&text", "SetCaptcha:id&text"),
    "DelCaptchaItem": command("DelCaptchaItem:id", "SetCaptcha:id&text"),
}


def install(device):
    """Puts the configuration and what the requests name on a device that is not started yet."""
    device.write_documents(DOCUMENTS)
    device.write_file("/tmp/in", EXCHANGE)
    device.write_file("/tmp/BackupXmlDB.sh", "#!/bin/sh\nexit 0\n", mode=0o755)


def do(device, one):
    """What has to come before a command, and the command. Return: its reply."""
    for payload in one.before:
        assert device.request(payload).code >= 0, payload
    return device.request(one.payload)
