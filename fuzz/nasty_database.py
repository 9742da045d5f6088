"""Documents, exchange files, logs and requests that nobody means well with; all from a `random.Random`."""

import struct

COMMON = ["Account", "A", "b", "User1"]  # so that paths lead somewhere
NAMES = ["Network", "System", "Password", "Level", "N" * 63,
         "N" * 64, "M" * 62 + "xy", "L" * 255, "a_5Fb", "\xe4\xf6", "Group1", "Name", "Permission", "Define",
         "CGIPermitDenyFilter", "Username", "Permit1", "E1", "Maxuser"]
ATTRIBUTES = ["Level", "AllowToShow", "DispatchW", "Type", "x", "x", "Value", "a" * 300]
TEXTS = ["", " ", "1", "YES", "  blanks  within  ", "&amp;", "&#0;", "&#x110000;", "&lt", "&bogus;", "&#xe4;",
         "]]>", "<![CDATA[ <c> ]]>", "<!-- - -- -->", "<?pi x?>", "\xe4", "x" * 300, "y" * 70000, "\r\n\t",
         "%s%n", "admin", "enc:1:AA==", "enc:1:!!", "/tmp/hook.sh", "1:2024:0:31:23:5:9:3:detail:1",
         "0:2024:0:31:23:5:9:3:d:1", "2147483648", "-1"]
VALUES = ["", "3", "YES", "NO", "/tmp/hook.sh", "/tmp/missing.sh", "&quot;", "&#0;", "\xe4", "z" * 300, "<"]
HEADS = ["", "", "", '<?xml version="1.0" encoding="UTF-8"?>\n', '<?xml version="1.0" encoding="latin1" ?>',
         "<!DOCTYPE x [<!ENTITY y 'z'>]>", "<!-- head -->", " \n", "text", "<?xml"]
BYTE_ORDER_MARK = b"\xef\xbb\xbf"


def any_name(chance):
    return chance.choice(COMMON if chance.random() < 0.7 else NAMES)


def element(chance, name=None, depth=0):
    """The text of an element, as a rule a well-formed one."""
    name = name or any_name(chance)
    attributes = "".join(f' {chance.choice(ATTRIBUTES)}="{chance.choice(VALUES)}"'
                         for _ in range(chance.choice([0, 0, 0, 1, 2])))
    if chance.random() < 0.1:
        return f"<{name}{attributes}{chance.choice(['/', ' /', ' / '])}>"
    within = "".join(element(chance, None, depth + 1) if depth < 4 and chance.random() < 0.6
                     else chance.choice(TEXTS) for _ in range(chance.choice([0, 1, 1, 2, 3])))
    return f"<{name}{attributes}>{within}</{name}{chance.choice(['', '', '', ' ', chr(10) + ' '])}>"


def damaged(chance, data):
    """The same bytes with one thing wrong."""
    if not data:
        return data
    at = chance.randrange(len(data))
    part = data[at:at + chance.randrange(1, 40)]
    return chance.choice([
        data[:at],
        data[:at] + b"\0" + data[at + 1:],
        data[:at] + bytes([chance.randrange(256)]) + data[at + 1:],
        data[:at] + part * chance.randrange(2, 50) + data[at:],
        data[:at] + data[at + len(part):],
        data + chance.choice([b"<", b"\0", b"trailing", b"<Second>2</Second>", b"</"]),
        data[:at] + chance.choice([b"<", b">", b"&", b"</a >", b"<!--", b"\""]) + data[at:],
    ])


def document(chance, name):
    """The bytes of a file of that name."""
    kind = chance.random()
    if kind < 0.03:
        return chance.choice([b"", b" \n", BYTE_ORDER_MARK, b"\0", b"<", b"\xff\xfe<\0A\0"])
    if kind < 0.08:  # near the bound of 512, and far behind it
        levels = chance.choice([510, 511, 512, 513, 600, 100000, 100000])
        before = chance.choice(["", "<c>x</c >", "<c>x</c\n>", "<!-- <c> -->", "<c/>", "&lt;", "<c x='>'></c>"])
        end = chance.choice(["</d>", "</d >", ""])
        text = f"<{name}>{before}" + "<d>" * levels + "x" + end * levels + f"</{name}>"
    elif kind < 0.15:  # two roots, of one name or of two
        text = element(chance, name) + element(chance, chance.choice([name, None]))
    else:
        text = element(chance, chance.choice([name] * 9 + [None]))
    data = (chance.choice(HEADS) + text).encode(chance.choice(["utf-8", "latin-1"]))
    if chance.random() < 0.1:
        data = BYTE_ORDER_MARK + data
    return damaged(chance, data) if chance.random() < 0.3 else data


def file_names(chance):
    """Names for the files of a directory: all of them may be made."""
    return [*COMMON[:3], *chance.sample(NAMES, chance.randrange(8))]


def exchange_file(chance):
    within = b"".join(document(chance, any_name(chance)) if chance.random() < 0.2
                      else element(chance).encode("latin-1") for _ in range(chance.randrange(5)))
    data = b"<ROOT>" + within + b"</ROOT>"
    return damaged(chance, data) if chance.random() < 0.2 else data


def log_file(chance):
    entries = "".join(f"<E{chance.randrange(1, 1100)}>{chance.choice(TEXTS[-5:])}</E1>"
                      if chance.random() < 0.05 else
                      f"<E{n}>{1 << chance.randrange(8)}:2024:0:31:23:5:{n % 60}:3:text:1</E{n}>"
                      for n in range(1, chance.randrange(2, 40)))
    data = f"<EventLog>{entries}</EventLog>".encode()
    return damaged(chance, data) if chance.random() < 0.5 else data


# ---- requests ------------------------------------------------------------------------------------

FILES = ["/tmp/in0", "/tmp/in1", "/tmp/in2"] * 5 + ["/tmp/out", "/tmp/missing", "/tmp", "/dev/null", "", "x" * 300,
         "/tmp/no/where", "/tmp/full/out"]
USERS = ["admin", "operator", "", "user1", "x" * 200, "a&b", "Admin"]


def path(chance):
    others = [name.replace("_", "_5F") for name in NAMES] + ["*", "#", "a b", "_5", ""]
    count = chance.choice([5, 60]) if chance.random() < 0.05 else chance.choice([1, 2, 2, 3])
    parts = [chance.choice(COMMON if chance.random() < 0.8 else others) for _ in range(count)]
    return chance.choice([".", ".", ".", ".."]).join(parts) + chance.choice(["", "", "", ".*", ".#", "\n"])


def lines(chance):
    return "\n".join(f"{path(chance)}={chance.choice(TEXTS)}" for _ in range(chance.choice([1, 1, 2, 30])))


def attribute_lines(chance):
    return "\n".join(f"{path(chance)}.{chance.choice(ATTRIBUTES)}={chance.choice(TEXTS)}"
                     for _ in range(chance.choice([1, 1, 2])))


def pair(chance):
    return "&".join(chance.choice(USERS + TEXTS[:12] + ["-1", "0", "100000", "99999999999"])
                    for _ in range(chance.choice([1, 2, 2, 3, 4])))


def log_record(chance):
    whole = struct.pack("<i6sB16sBi", chance.choice([0, 1, 2, 64, -1, 1 << 30]), chance.randbytes(6),
                        chance.randrange(256), chance.choice([b"text", b"\xe4" * 16, b"a\xc3", b"<&>"]),
                        chance.randrange(256), chance.choice([0, 1 << 30, -1, 2147483647]))
    return whole[:chance.choice([32, 32, 32, 31, 0])].decode("latin-1")


ARGUMENTS = {
    "read": path, "readAndFilter": path, "readvalue": path, "readattr": path, "readsingleattr": path,
    "readwithlevel": lambda chance: f"{path(chance)}&{chance.choice(['0', '1', '5', '', 'x'])}",
    "write": lines, "writedbmem": lines, "writeattr": attribute_lines, "remove": path,
    "upload": lambda chance: chance.choice(FILES), "download": lambda chance: chance.choice(FILES),
    "restore": lambda chance: chance.choice(FILES), "syncxml": lambda chance: chance.choice(FILES),
    "writelog": log_record, "writelogwithtime": log_record,
    "readlog": lambda chance: f"{chance.randrange(5)}&{chance.choice([-1, 0, 1, 65])}&{chance.choice([0, 1, 50, -1])}",
    "cleanlog": lambda _: "", "geteventcount": lambda _: "", "maxlogcount": lambda _: "",
    "syncmemtoflash": lambda _: "", "SyncPermit": lambda _: "", "listPermits": lambda _: "",
    "XMLDBCallBack": lambda chance: chance.choice(TEXTS),
    "isPermitAllow": pair, "getPermitValue": pair, "isPermitAllowByUser": pair, "GetCGIPermitFilter": pair,
    "SetCaptcha": pair, "CompareCaptcha": pair, "UpdateCaptchaTime": pair, "DelCaptchaItem": pair,
    "getGroupName": pair, "SetSession": pair, "CheckSession": pair,
}


def payload(chance):
    """The bytes of a request's payload; as a rule a command's own name and an argument of its kind."""
    command = chance.choice(list(ARGUMENTS))
    if command in ("cleanlog", "XMLDBCallBack") and chance.random() < 0.7:
        command = "write"
    own = ARGUMENTS[command if chance.random() < 0.95 else chance.choice(list(ARGUMENTS))]
    data = f"{command}:{own(chance)}".encode("latin-1")
    return damaged(chance, data) if chance.random() < 0.1 else data
