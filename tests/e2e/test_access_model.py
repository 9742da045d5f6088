"""The service against models of its rules, over random configurations and requests."""

import random

import pytest

from access_model import PermissionModel, SessionModel
from account_text import account_text

pytestmark = pytest.mark.fault("Z2")

PERMISSION_COMMANDS = ("isPermitAllow", "isPermitAllowByUser", "getPermitValue", "getGroupName",
                       "listPermits", "GetCGIPermitFilter")
SESSION_COMMANDS = ("SetSession", "CheckSession", "CheckSession", "SetCaptcha", "CompareCaptcha",
                    "CompareCaptcha", "UpdateCaptchaTime", "DelCaptchaItem")

GROUPS = ["Admin", "Operator", "POWER USER", "POWERUSER", "SUPERVISOR", "Day Shift", "Ghost"]
USERS = ["root", "joe", "ann", "sue", "Root", "cloud"]
PERMITS = ["Network", "Channels", "Disk", "Log", "network"]
TYPES = ["Switch", "Switch", "Channel", "Channel", "Level", "switch", ""]
VALUES = ["YES", "on", "No", "1", "1,3,5", "-1", "1,-1", "2 ,3x", ",7", "", "10,11", "0", "onn"]
ARGUMENTS = ["", "1", "3", "5", "-1", " 7", "3x", "0", "x", "1&3", "11"]
COMMANDS = ["apply", "format", "view", "*", "login", ""]
PARAMETERS = ["reboot", "reset", "a=1&b", "x"]


def random_settings(chance):
    """A small household in which everything may be missing, doubled, misspelt or out of bounds."""
    settings = {}

    def maybe(probability, key, value):
        if chance.random() < probability:
            settings[key] = value

    maybe(0.7, "Maxuser", chance.choice(["4", "7", "0", "many", "", "25"]))
    for u in chance.sample(range(1, 27), 12) + [1, 2]:
        maybe(0.9, f"User{u}.Username", chance.choice(USERS))
        maybe(0.8, f"User{u}.Level", chance.choice(GROUPS + [""]))
    maybe(0.8, "Cloud.Username", chance.choice(["cloud", "joe", ""]))
    for name in GROUPS:
        maybe(0.5, f"Cloud.{name}.Username", chance.choice(USERS + ["far", "away"]))
    maybe(0.6, "Permission.MaxPermDefNum", chance.choice(["3", "12", "24", "0", "-2"]))
    maybe(0.4, "Permission.MaxGroupNum", chance.choice(["3", "12", "x"]))
    for n in chance.sample(range(1, 26), 10) + [1, 2, 3]:
        key = f"Permission.Define.Permit{n}"
        maybe(0.9, key, chance.choice(PERMITS + [""]))
        maybe(0.8, key + "#Type", chance.choice(TYPES))
        maybe(0.6, key + "#Value", chance.choice(VALUES))
    for g in chance.sample(range(1, 14), 8) + [1, 2]:
        maybe(0.9, f"Permission.Group{g}.Name", chance.choice(GROUPS[:-1] + [""]))
        for n in range(1, 26):
            maybe(0.6, f"Permission.Group{g}.Permit{n}", chance.choice(VALUES))
    for r in range(1, chance.choice([1, 4, 8])):
        related = f"Permit{chance.randrange(1, 12)}"
        maybe(0.95, f"CGIPermitDenyFilter.R{r}.RelatedPermit", related)
        for c in range(1, chance.randrange(1, 5)):
            base = f"CGIPermitDenyFilter.R{r}.C{c}."
            maybe(0.95, base + "CMD", chance.choice(COMMANDS))
            for p in range(1, chance.randrange(1, 4)):
                maybe(0.8, f"{base}P{p}", chance.choice(PARAMETERS))
    return settings


def random_question(chance, command):
    who = chance.choice(USERS + ["nobody", "far", "away", ""])
    if command in ("isPermitAllow", "getPermitValue"):
        who = chance.choice(GROUPS + ["Nobody", ""])
    what = chance.choice(PERMITS + ["NoSuch", ""])
    more = chance.choice(ARGUMENTS)
    if command == "GetCGIPermitFilter":
        what = chance.choice(COMMANDS + ["other"])
        more = chance.choice(["", "action=reboot_now", "presets", "a=1&b=2", "a=1", "y"])
    if command == "getGroupName":
        return who
    return "&".join((who, what, more)[:chance.choice([1, 2, 2, 3, 3, 3])])


def ask_about_permissions(device, model, chance, count):
    for _ in range(count):
        command = chance.choice(PERMISSION_COMMANDS)
        argument = random_question(chance, command)
        result, text = getattr(model, command)(argument)
        answer = device.request(f"{command}:{argument}")
        assert (answer.code, answer.text) == (result, text), f"{command}:{argument}"


# The default run asks some thousands of questions; `--slow` as many again, many times over.
SEEDS = [*range(12), *(pytest.param(seed, marks=pytest.mark.slow) for seed in range(12, 100))]


@pytest.mark.parametrize("seed", SEEDS)
def test_permissions_are_as_in_the_model(service, seed):
    chance = random.Random(seed)
    settings = random_settings(chance)
    device = service({"Account": account_text(settings)})
    model = PermissionModel(settings)
    ask_about_permissions(device, model, chance, 300)

    # Some settings change: users at once, permissions with SyncPermit, the filter not at all.
    for key, value in random_settings(chance).items():
        if "#" not in key and value and chance.random() < 0.3:
            line = f"Account.{key}={value}"
            assert device.request(f"writedbmem:{line}").code == 1, line
            settings[key] = value
    ask_about_permissions(device, model, chance, 150)
    assert device.request("SyncPermit:").code == 0
    model.SyncPermit("")
    ask_about_permissions(device, model, chance, 150)


def ask_about_sessions(device, model, chance, count, lifetimes, lifetimes_left_out, move):
    """`lifetimes_left_out`: how often a request leaves it to the service how long things last."""
    tokens = [f"token-{n}" for n in range(60)]
    codes = [f"id{n}" for n in range(50)]
    for _ in range(count):
        if chance.random() < 0.2:
            move(chance.choice([0, 1, 4, 5, 25, 29, 30, 31, 59, 60]))
        command = chance.choice(SESSION_COMMANDS)
        if command.endswith("Session"):
            fields = [chance.choice(tokens)]
            if command == "CheckSession" and chance.random() >= lifetimes_left_out:
                fields.append(chance.choice(lifetimes))
        else:
            code = chance.choice(codes[:chance.choice([3, 50])])
            fields = [code, code + chance.choice(["a", "a", "a", "b", "&"])]
            if command == "CompareCaptcha":
                more = [chance.choice(["", "0", "1", "-1", "no"]), chance.choice(lifetimes)]
                fields += more if chance.random() >= lifetimes_left_out else more[:1]
            if chance.random() < 0.03:
                fields = fields[:1]  # malformed
        argument = "&".join(fields)
        expected = getattr(model, command)(argument)
        answer = device.request(f"{command}:{argument}")
        assert answer == (expected, b""), f"{command}:{argument} at {model.now}"


@pytest.mark.parametrize("seed", range(4))
def test_sessions_and_captchas_are_as_in_the_model(device, seed):
    device.require_fake_clock()
    device.start(fake_clock=True)
    device.stop_clock(0)
    model = SessionModel()

    def move(seconds):
        model.now += seconds
        device.stop_clock(model.now)

    lifetimes = ["", "0", "-5", "1", "4", "5", "6", "30", "31", "60", "61", "1000", "2147483647"]
    ask_about_sessions(device, model, random.Random(seed), 700, lifetimes, 0.3, move)


def test_sessions_are_as_in_the_model_whatever_the_clock(device):
    """Without moving the clock, and with lifetimes that do not end within the test."""
    device.start()
    lifetimes = ["99999", "100000 s", "2147483647"]
    model = SessionModel()
    ask_about_sessions(device, model, random.Random(99), 500, lifetimes, 0, lambda seconds: None)
