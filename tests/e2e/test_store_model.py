"""The store against a model of its rules, over random commands; a failing run is made short first.

Replies are compared to the byte, and after every command the files: a document's file holds what
the model says was saved last, or has never been touched."""

import random

import pytest

from device import CONFIGURATION, Device
from store_model import StoreModel, parse, plain, same

pytestmark = pytest.mark.fault("Z2")

TEXTS = {
    "Account": '<Account Level="1"><A Level="3">one</A><A><B x="y">two</B></A>'
               '<User><Password>enc:1:AA==</Password></User></Account>',
    "Network": "<Network>\n    <A>\n        <B>x &amp; y</B>\n    </A>\n</Network>\n",
    "Small": "<Small />",
}
NAMES = ["A", "A", "B", "B", "User", "Password", "a b", "a_b", "password"]
FILE_NAMES = ["A", "A", "B", "B", "User", "a_20b", "Password"]
ATTRIBUTES = ["Level", "x", "AllowToShow"]
VALUES = ["", "1", "two words", "a<b>&c;", '"quoted"', "it's", "a=b", "x" * 300, "YES", "&amp;",
          "  blanks  within  "]
LEVELS = ["0", "1", "2", "3"]

READING = ["read", "read", "readvalue", "readwithlevel", "readattr", "readsingleattr"]
EXCHANGING = ["upload", "restore", "syncxml", "download"]
CHANGING = ["write", "write", "writedbmem", "writeattr", "remove", "syncmemtoflash"]


def random_path(chance, shortest=1):
    """The document's name and some components, rarely something that leads nowhere."""
    name = chance.choice(["Account", "Account", "Network", "Small"] + ["Gone"] * (chance.random() < 0.1))
    path = [name] + chance.choices(NAMES, k=chance.choice([shortest, 1, 2, 2, 3, 4]) or 0)
    return chance.choice([".", ".", ".", "..", "."]).join(path)


def random_line(chance, command):
    path = random_path(chance)
    if command == "writeattr":
        return f"{path}.{chance.choice(ATTRIBUTES)}={chance.choice(LEVELS + VALUES[:7])}"
    return f"{path}={chance.choice(VALUES)}"


def random_element(chance, name, depth=0):
    """The text of an element as a client's exchange file may hold it."""
    attributes = {chance.choice(ATTRIBUTES): chance.choice(LEVELS + ["a&amp;b"])
                  for _ in range(chance.choice([0, 0, 1, 2]))}
    head = name + "".join(f' {key}="{value}"' for key, value in attributes.items())
    text = chance.choice(["", "", "1", "two words", "a&lt;b", "  blanks  within  ", "x" * 300])
    below = "".join(random_element(chance, chance.choice(FILE_NAMES), depth + 1)
                    for _ in range(0 if depth == 3 else chance.choice([0, 0, 1, 2, 3])))
    return f"<{head}>{text}{below}</{name}>" if text or below else f"<{head} />"


def random_exchange(chance):
    roots = [random_element(chance, chance.choice(["Account", "Network", "Small", "Fresh"]))
             for _ in range(chance.choice([0, 1, 1, 2, 3]))]
    return "<ROOT>\n" + "\n".join(roots) + "</ROOT>"


def random_command(chance):
    """A command and its argument."""
    share = chance.random()
    if share < 0.01:
        return chance.choice(["restart", "power cut"]), ""
    if share < 0.05:
        command = chance.choice(EXCHANGING)
        return command, "" if command == "download" else random_exchange(chance)
    command = chance.choice(READING + CHANGING)
    if command in ("write", "writedbmem", "writeattr"):
        lines = [random_line(chance, command) for _ in range(chance.choice([1, 1, 1, 2, 3]))]
        if chance.random() < 0.05:
            lines.insert(chance.randrange(len(lines) + 1), chance.choice(["junk", "", "=", "..=1"]))
        return command, "\n".join(lines) + "\n" * (chance.random() < 0.3)
    if command == "syncmemtoflash":
        return command, chance.choice(["", "x"])
    if command == "remove":
        whole = chance.random() < 0.02
        path = chance.choice(list(TEXTS)) + ".*" if whole else random_path(chance)
        return command, path + chance.choice(["", "", "\n"] if whole else ["", "", "\n", ".B.*"])
    if command == "readattr":
        return command, random_path(chance, 0) + chance.choice(
            [".*", ".#", ".Level", ".*.Level", ".*.x"])
    if command == "readsingleattr":
        return command, random_path(chance, 0) + "." + chance.choice(ATTRIBUTES + ["*", "#", "*.x"])
    path = chance.choice([random_path(chance), random_path(chance, 0) + ".*"] * 10 + ["", "..", ".*"])
    return command, path + (f"&{chance.choice(LEVELS)}" if command == "readwithlevel" else "")


def difference(commands, device):
    """Runs the commands on the service and on the model.

    Return: what differs first, None when nothing does."""
    device.write_documents(TEXTS)
    device.start()
    model = StoreModel(TEXTS)
    touched = set()
    for number, (command, argument) in enumerate(commands):
        step = f"step {number}, {command}:{argument!r}"
        if command in ("restart", "power cut"):
            if command == "power cut":
                device.power_cut()
            device.restart()
            model.restart("")
        else:
            before = dict(model.files)
            code, body = model(command, argument)
            reply = device.request(f"{command}:{as_sent(device, command, argument)}")
            if (reply.code, reply.text) != (code, body):
                return f"{step}: {(reply.code, reply.text)}, but the model says {(code, body)}"
            if command == "download" and downloaded(device) != held(model):
                return f"{step}: {downloaded(device)}, but the model holds {held(model)}"
            touched |= {name for name in model.files if model.files[name] is not before.get(name)}
        wrong = wrong_file(device, model, touched)
        if wrong:
            return f"{step}: {wrong}"
    return None


def as_sent(device, command, argument):
    """The argument of the request: of what exchanges a file, its path."""
    if command not in EXCHANGING:
        return argument
    if command != "download":
        device.write_file("/tmp/exchange", argument)
    return "/tmp/exchange"


def downloaded(device):
    """The documents of the file, each as what can be compared."""
    root = parse(device.read_file("/tmp/exchange"))
    return sorted(map(comparable, root.elements()))


def held(model):
    return sorted(comparable(plain(root)) for root in model.documents.values() if root)


def comparable(element):
    return repr((element.name, list(element.attributes.items()),
                 [child if isinstance(child, str) else comparable(child) for child in element.children]))


def wrong_file(device, model, touched):
    names = set(device.list_directory(CONFIGURATION))
    if names != set(model.files):
        return f"there are the files {names}, but the model says {set(model.files)}"
    for name, root in model.files.items():
        data = device.read_document(name)
        if name not in touched and data.decode() != TEXTS[name]:
            return f"the file of {name} was changed to {data}"
        if not same(parse(data), root):
            return f"the file of {name} is {data}, which the model has not"
    return None


def shortest(commands, fails, tries=150):
    """A short list of the commands, in their order, for which `fails` still answers something: parts
    are left out, halves first and single ones last, as long as the failure stays."""
    size = len(commands) // 2
    while size > 0 and tries > 0:
        at = 0
        while at < len(commands) and tries > 0:
            fewer = commands[:at] + commands[at + size:]
            tries -= 1
            if fails(fewer):
                commands = fewer
            else:
                at += size
        size //= 2
    return commands


def difference_on_a_fresh_device(commands):
    with Device() as fresh:
        return difference(commands, fresh)


def check(device, seed, count):
    chance = random.Random(seed)
    commands = [random_command(chance) for _ in range(count)]
    found = difference(commands, device)
    if found:
        few = shortest(commands, difference_on_a_fresh_device)
        again = difference_on_a_fresh_device(few) or f"{found} (but not on its own)"
        pytest.fail(f"{again}\nafter " + "\n      ".join(f"{c}:{a!r}" for c, a in few),
                    pytrace=False)


# The default run is short; `--slow` tries much longer ones.
@pytest.mark.parametrize("seed", range(6))
def test_the_store_is_as_in_the_model(device, seed):
    check(device, seed, 200)


@pytest.mark.slow
@pytest.mark.parametrize("seed", range(100, 160))
def test_the_store_is_as_in_the_model_for_long(device, seed):
    check(device, seed, 1500)


def test_a_failing_run_is_made_short():
    """The shortening itself: of a hundred commands only the two that matter are left."""
    commands = [("read", str(number)) for number in range(100)]
    fails = lambda some: ("read", "17") in some and ("read", "80") in some
    assert shortest(commands, fails) == [("read", "17"), ("read", "80")]
