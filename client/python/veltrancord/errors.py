"""Result codes and the exceptions that carry them."""

from __future__ import annotations

import enum
from typing import Dict, NamedTuple, Optional, Sequence, Type


class Result(enum.IntEnum):
    """What a command gives; the names and numbers of the C library."""

    OK = 0
    FAILED = -1
    UNPARSABLE = -3
    NOT_FOUND = -4
    BAD_ARGUMENT = -7
    TOO_LARGE = -8
    ARGUMENT_ABSENT = -9
    STORE_FAILED = -11
    DENIED = -12

    UNREACHABLE = -100
    TIMED_OUT = -101
    NO_REPLY = -102
    BROKEN_REPLY = -103
    REPLY_OVER_CAP = -104
    SYSTEM_ERROR = -106

    CAPTCHA_EXPIRED = -110
    CAPTCHA_WRONG = -111

    INVALID_USE = -120
    PATH_EMPTY = -121
    PATH_HAS_EQUALS = -122
    PATH_HAS_LINE_FEED = -123
    VALUE_HAS_LINE_FEED = -124
    FIELD_HAS_SEPARATOR = -125
    PATH_OVER_BOUND = -126
    VALUE_OVER_BOUND = -127
    ATTRIBUTE_OVER_BOUND = -128
    FILE_NAME_OVER_BOUND = -129
    FIELD_OVER_BOUND = -130
    LOG_TEXT_UNREADABLE = -131
    COMMAND_HAS_SEPARATOR = -132
    FIELD_EMPTY = -133
    TEXT_HAS_NUL = -134
    NOT_OF_THAT_KIND = -135
    NOT_ALLOWED = -136


TEXTS = {
    Result.OK: "done",
    Result.CAPTCHA_EXPIRED: "captcha expired",
    Result.CAPTCHA_WRONG: "wrong captcha",
    Result.FAILED: "a file could not be created, written or read back",
    Result.UNPARSABLE: "the exchange file is missing or does not parse",
    Result.NOT_FOUND: "not found",
    Result.BAD_ARGUMENT: "the service refuses the argument",
    Result.TOO_LARGE: "the reply is over the service's capacity",
    Result.ARGUMENT_ABSENT: "an argument is missing",
    Result.STORE_FAILED: "the store could not apply the value",
    Result.DENIED: "denied, or an unknown user or group",
    Result.UNREACHABLE: "the service cannot be reached",
    Result.TIMED_OUT: "no reply within the time allowed",
    Result.NO_REPLY: "the service closed the connection without a reply",
    Result.BROKEN_REPLY: "the reply is broken off",
    Result.REPLY_OVER_CAP: "the reply is larger than accepted",
    Result.SYSTEM_ERROR: "a system call failed",
    Result.INVALID_USE: "called without what it needs",
    Result.PATH_EMPTY: "a path without a component",
    Result.PATH_HAS_EQUALS: "a path cannot hold '='",
    Result.PATH_HAS_LINE_FEED: "a path cannot hold a line feed",
    Result.VALUE_HAS_LINE_FEED: "a value cannot hold a line feed",
    Result.FIELD_HAS_SEPARATOR: "this field cannot hold '&'",
    Result.PATH_OVER_BOUND: "path over its bound",
    Result.VALUE_OVER_BOUND: "value over its bound",
    Result.ATTRIBUTE_OVER_BOUND: "attribute over its bound",
    Result.FILE_NAME_OVER_BOUND: "file name over its bound",
    Result.FIELD_OVER_BOUND: "field over its bound",
    Result.LOG_TEXT_UNREADABLE: "a log text that is empty or holds ':' could not be read back",
    Result.COMMAND_HAS_SEPARATOR: "a command name cannot be empty or hold ':'",
    Result.FIELD_EMPTY: "this field cannot be empty",
    Result.TEXT_HAS_NUL: "a text cannot hold a NUL byte",
    Result.NOT_OF_THAT_KIND: "the value is not of the kind asked for",
    Result.NOT_ALLOWED: "the description of the settings does not allow it",
}


class Error(Exception):
    """A command that failed.

    code     the result; a `Result` where it has a name
    subject  what the call was about: the path of a setting, a file, a user, a permit, the socket
             that cannot be reached; None where there is none. Never a value, session or captcha
    detail   what the system or the library has to add, or None
    bound    for what is over a bound: the bound, and in `found` the length
    index    which of several settings was refused, from 0
    """

    def __init__(
        self,
        code: int,
        detail: Optional[str] = None,
        *,
        bound: Optional[int] = None,
        found: Optional[int] = None,
        index: Optional[int] = None,
        subject: Optional[str] = None,
    ) -> None:
        try:
            self.code: int = Result(code)
            text = TEXTS[Result(code)]
        except ValueError:
            self.code = code
            text = "result of the service"
        self.detail = detail
        self.bound = bound
        self.found = found
        self.index = index
        if bound is not None:
            text += f": {found} bytes, at most {bound}"
        elif detail is not None:
            text += f": {detail}"
        self._text = f"{text} ({int(code)})"
        super().__init__(self._text)
        self.subject: Optional[str] = None
        if subject is not None:
            self.about(subject)

    def about(self, subject: str) -> None:
        """Names what the call was about, unless something nearer to the cause is named already."""
        if self.subject is None:
            self.subject = subject
            shown = "".join(letter if letter.isprintable() else "?" for letter in subject)
            self.args = (f"{shown}: {self._text}",)

    def __str__(self) -> str:
        return str(self.args[0])  # an OSError among the bases would print otherwise


class NotFound(Error, LookupError):
    """There is no such setting, document, permit or entry."""


class Denied(Error, PermissionError):
    """Denied, or an unknown user or group."""


class Unreachable(Error, ConnectionError):
    """Nobody listens on the socket."""


class TimedOut(Error, TimeoutError):
    """Connected, but no whole reply before the deadline."""


class Refused(Error, ValueError):
    """The library did not send it: the service would cut, split or misread it."""


class Violation(NamedTuple):
    """One setting that is not allowed."""

    path: str
    rule: str  # a word for programs: "maxInclusive", "enumeration", "undescribed" ...
    reason: str  # a sentence for people
    nearest: str  # the nearest value that is allowed, of "undescribed" the nearest path; or empty


class ValidationError(Refused):
    """Settings that the description does not allow; nothing was sent.

    violations  all of them; `subject` and `detail` are those of the first
    """

    def __init__(self, violations: Sequence[Violation]) -> None:
        first = violations[0]
        more = f", and {len(violations) - 1} more" if len(violations) > 1 else ""
        super().__init__(Result.NOT_ALLOWED, first.reason + more, subject=first.path)
        self.violations = list(violations)


class WrongKind(Error, ValueError):
    """There is such a setting, but its value is no number, or neither YES nor NO."""


_FIRST_REFUSED = Result.INVALID_USE


def error_of(
    code: int,
    detail: Optional[str] = None,
    *,
    bound: Optional[int] = None,
    found: Optional[int] = None,
    index: Optional[int] = None,
    subject: Optional[str] = None,
) -> Error:
    """The exception for a result."""
    kinds: Dict[int, Type[Error]] = {
        Result.NOT_FOUND: NotFound,
        Result.DENIED: Denied,
        Result.UNREACHABLE: Unreachable,
        Result.TIMED_OUT: TimedOut,
        Result.NOT_OF_THAT_KIND: WrongKind,
    }
    kind = kinds.get(code, Refused if code <= _FIRST_REFUSED else Error)
    return kind(code, detail, bound=bound, found=found, index=index, subject=subject)
