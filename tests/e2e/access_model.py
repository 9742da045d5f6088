"""What permission queries, the filter, sessions and captchas answer, written straight from the rules.

Slow and simple on purpose: every number is tried in turn, every list walked from its beginning. The
tests compare it with the service.
"""

import re

OK, WRONG, EXPIRED = 0, 2, 1
NOT_FOUND, ABSENT, DENIED = -4, -9, -12


def atoi(text):
    """The number at the beginning of a text, as C reads it."""
    match = re.match(r"[ \t\n\v\f\r]*([+-]?[0-9]+)", text)
    return int(match.group(1)) if match else 0


def split(text):
    """(text, None) or (what is before the first "&", what is behind it)."""
    first, separator, rest = text.partition("&")
    return first, rest if separator else None


class PermissionModel:
    """Answers from `settings` (see account_text), which the owner may change at any time."""

    def __init__(self, settings):
        self.settings = settings
        self.build_permits()
        self.build_groups()
        self.build_filter()

    # ---- the lists ------------------------------------------------------------------------------

    def read(self, key):
        return self.settings.get(key, "")[:255] or None

    def number(self, key, missing):
        text = self.read(key)
        return missing if text is None else atoi(text)

    def build_permits(self):
        self.permits = []
        for n in range(1, self.number("Permission.MaxPermDefNum", 20) + 1):
            key = f"Permission.Define.Permit{n}"
            if self.read(key) is not None:
                self.permits.append({"key": f"Permit{n}", "index": n, "name": self.read(key),
                                     "type": self.read(key + "#Type"),
                                     "value": self.read(key + "#Value")})

    def build_groups(self):
        self.groups = []
        for g in range(1, self.number("Permission.MaxGroupNum", 10) + 1):
            name = self.read(f"Permission.Group{g}.Name")
            if name is None:
                continue
            properties = []
            for n in range(1, self.number("Permission.MaxPermDefNum", 20) + 1):
                permit = next((p for p in self.permits if p["index"] == n), None)
                value = self.read(f"Permission.Group{g}.Permit{n}")
                if permit is not None and value is not None:
                    properties.append({**permit, "value": value})
            self.groups.append({"name": name, "properties": properties})

    def build_filter(self):
        self.rules = []
        for r in range(1, 101):
            related = self.read(f"CGIPermitDenyFilter.R{r}.RelatedPermit")
            index = next((p["index"] for p in self.permits if p["key"] == related), None)
            if index is None:
                return
            commands = []
            for c in range(1, 31):
                base = f"CGIPermitDenyFilter.R{r}.C{c}."
                if self.read(base + "CMD") is None:
                    break
                params = []
                for p in range(1, 31):
                    if self.read(f"{base}P{p}") is None:
                        break
                    params.append(self.read(f"{base}P{p}"))
                commands.append((self.read(base + "CMD"), params))
            self.rules.append((index, commands))

    # ---- the questions --------------------------------------------------------------------------

    def group_of(self, user):
        for u in range(1, self.number("Maxuser", 20) + 1):
            if self.read(f"User{u}.Username") == user and self.read(f"User{u}.Level") is not None:
                return self.read(f"User{u}.Level")
        supervisor = self.read("Cloud.Username")
        if supervisor is None:
            return None
        if supervisor == user:
            return "SUPERVISOR"
        for group in self.groups:
            name = "POWERUSER" if group["name"] == "POWER USER" else group["name"]
            if self.read(f"Cloud.{name}.Username") == user:
                return name
        return None

    def properties_of(self, name):
        return next((g["properties"] for g in self.groups if g["name"] == name), None)

    @staticmethod
    def is_on(value):
        return value.upper() in ("YES", "ON")

    def decide(self, group, question):
        permit, argument = split(question)
        properties = self.properties_of(group)
        if properties is None:
            return DENIED
        held = next((p for p in properties if p["name"] == permit), None)
        if held is None:
            return NOT_FOUND
        if held["type"] == "Switch":
            return OK if self.is_on(held["value"]) else DENIED
        if held["type"] == "Channel":
            if argument is None:
                return DENIED
            channels = [atoi(item) for item in held["value"].split(",")]
            return OK if atoi(argument) in channels else DENIED
        return NOT_FOUND

    def deciding_permit(self, cmd, params):
        for index, commands in self.rules:
            for entry, entry_params in commands:
                if entry == cmd:
                    if not entry_params:
                        return index
                    if params is not None and any(text in params for text in entry_params):
                        return index
                elif entry == "*":
                    return index
        return None

    # Each command: (result, reply text).

    def SyncPermit(self, _):
        self.build_permits()
        self.build_groups()
        return OK, ""

    def isPermitAllow(self, argument):
        group, question = split(argument)
        return (DENIED if question is None else self.decide(group, question)), ""

    def isPermitAllowByUser(self, argument):
        user, question = split(argument)
        if question is None:
            return NOT_FOUND, ""
        group = self.group_of(user)
        return (DENIED if group is None else self.decide(group, question)), ""

    def getPermitValue(self, argument):
        group, permit = split(argument)
        if permit is None:
            return NOT_FOUND, ""
        properties = self.properties_of(group)
        if properties is None:
            return DENIED, ""
        held = next((p for p in properties if p["name"] == permit), None)
        return (NOT_FOUND, "") if held is None else (len(held["value"]), held["value"])

    def getGroupName(self, argument):
        group = self.group_of(argument)
        return (DENIED, "") if group is None else (len(group), group)

    def listPermits(self, _):
        text = "".join(f"permit{p['index']}={p['name']}&type={p['type'] or '(null)'}"
                       f"&value={p['value'] or '(null)'}\n" for p in self.permits)
        return len(text), text

    def GetCGIPermitFilter(self, argument):
        user, request = split(argument)
        if request is None:
            return NOT_FOUND, ""
        group = self.group_of(user)
        if group is None:
            return DENIED, ""
        index = self.deciding_permit(*split(request))
        if index is None:
            return OK, ""
        properties = self.properties_of(group)
        held = next((p for p in properties or [] if p["index"] == index), None)
        if held is None:
            return DENIED, ""
        if held["type"] == "Switch":
            return (OK if self.is_on(held["value"]) else DENIED), ""
        if held["type"] == "Channel":
            return (DENIED if "-1" in held["value"] else OK), ""
        return NOT_FOUND, ""


class SessionModel:
    """Sessions and captchas at the time `now`, which the owner moves."""

    def __init__(self):
        self.now = 0
        self.sessions = []
        self.captchas = []

    def SetSession(self, argument):
        self.sessions.append((argument, self.now))
        self.sessions = self.sessions[-50:]
        return OK

    def CheckSession(self, argument):
        token, lifetime = split(argument)
        lifetime = 60 if lifetime is None else atoi(lifetime)
        valid = any(kept == token and self.now < created + lifetime
                    for kept, created in self.sessions)
        return OK if valid else NOT_FOUND

    def SetCaptcha(self, argument):
        code, captcha = split(argument)
        if captcha is None:
            return ABSENT
        self.captchas.append({"code": code, "captcha": captcha, "time": self.now})
        self.captchas = self.captchas[-60:]
        return OK

    def CompareCaptcha(self, argument):
        code, rest = split(argument)
        if rest is None:
            return ABSENT
        fields = rest.split("&", 2)
        remove = atoi(fields[1]) if len(fields) > 1 else 0
        lifetime = max(5, atoi(fields[2])) if len(fields) > 2 else 30
        seen = False
        for item in [c for c in self.captchas if c["code"] == code]:
            if item["captcha"] != fields[0]:
                return WRONG
            if self.now < item["time"] + lifetime:
                item["time"] = self.now
                if remove != 0:
                    self.captchas = [c for c in self.captchas if c is not item]
                return OK
            seen = True
        return EXPIRED if seen else NOT_FOUND

    def _both(self, argument):
        code, captcha = split(argument)
        return [c for c in self.captchas if (c["code"], c["captcha"]) == (code, captcha)]

    def UpdateCaptchaTime(self, argument):
        if "&" not in argument:
            return ABSENT
        found = self._both(argument)
        if not found:
            return NOT_FOUND
        found[0]["time"] = self.now
        return OK

    def DelCaptchaItem(self, argument):
        if "&" not in argument:
            return ABSENT
        gone = self._both(argument)
        self.captchas = [c for c in self.captchas if not any(c is g for g in gone)]
        return NOT_FOUND
