"""The description of the settings: values with their types, and what is wrong before it is sent.

The C library libveltrancord-schema reads the description, so that this module and all other clients
are of one mind; it has to be installed.
"""

from __future__ import annotations

import ctypes
import datetime
import decimal
import enum
import threading
from typing import (TYPE_CHECKING, Iterable, List, Mapping, NamedTuple, Optional, Tuple, TypeVar,
                    Union)

from . import bounds
from .errors import NotFound, Result, ValidationError, Violation, error_of

if TYPE_CHECKING:
    from .client import Client

LIBRARY = "libveltrancord-schema.so.1"

TypedValue = Union[str, bool, int, float, decimal.Decimal, datetime.date, datetime.time]
TypedSettings = Union[Mapping[str, TypedValue], Iterable[Tuple[str, TypedValue]]]

_T = TypeVar("_T")

_TRUE = frozenset(("yes", "on", "true", "1"))
_FALSE = frozenset(("no", "off", "false", "0"))


class Kind(enum.IntEnum):
    """What a value is, and what `Schema.get` gives for it."""

    GROUP = 0  # other settings lie below
    TEXT = 1  # str
    BOOLEAN = 2  # bool
    CHOICE = 3  # str
    INTEGER = 4  # int
    DECIMAL = 5  # decimal.Decimal
    DATE = 6  # datetime.date
    TIME = 7  # datetime.time


class Description(NamedTuple):
    """What is known of a setting; texts are empty where nothing is said."""

    path: str
    kind: Kind
    label: str
    help: str
    type: str
    allowed: str  # what a value may be, for people
    default: Optional[str]
    minimum: str
    maximum: str
    pattern: str
    unit: str
    level: str
    program: str  # what a write of it starts
    choices: Tuple[str, ...]
    min_length: Optional[int]
    max_length: Optional[int]
    secret: bool


class _Violation(ctypes.Structure):
    _fields_ = [("rule", ctypes.c_char_p), ("reason", ctypes.c_char_p),
                ("nearest", ctypes.c_char_p)]


class _Description(ctypes.Structure):
    _fields_ = [
        ("kind", ctypes.c_int),
        *((name, ctypes.c_char_p) for name in (
            "label", "help", "type", "allowed", "default_value", "minimum", "maximum", "pattern", "unit",
            "level", "program")),
        ("choices", ctypes.POINTER(ctypes.c_char_p)),
        ("choice_count", ctypes.c_size_t),
        *((name, ctypes.c_int32) for name in (
            "min_length", "max_length", "has_default", "is_secret")),
    ]


def _text(data: Optional[bytes]) -> str:
    return bounds.decode(data or b"")


def _truth(text: str) -> Optional[bool]:
    word = text.lower()
    return word in _TRUE if word in _TRUE or word in _FALSE else None


def _typed(kind: Kind, text: str) -> Optional[TypedValue]:
    """Return: the value, or None where the text is none of that kind."""
    try:
        if kind == Kind.BOOLEAN:
            return _truth(text)
        if kind == Kind.INTEGER:
            return bounds.int_of(text)
        if kind == Kind.DECIMAL:
            return decimal.Decimal(text) if bounds.float_of(text) is not None else None
        if kind == Kind.DATE:
            return datetime.date.fromisoformat(text)
        if kind == Kind.TIME:
            return datetime.time.fromisoformat(text)
    except ValueError:
        return None
    return text


class Schema:
    """The description of a client's settings, from `Client.schema`. Any thread."""

    def __init__(self, client: Client, directory: Optional[str]) -> None:
        try:
            self._library = ctypes.CDLL(LIBRARY)
        except OSError as failure:
            raise error_of(Result.SYSTEM_ERROR, str(failure), subject=LIBRARY) from None
        self._client = client
        self._lock = threading.Lock()
        self._handle = ctypes.c_void_p()
        name = None if directory is None else bounds.encode(directory)
        code = self._library.veltrancord_schema_open(name, ctypes.byref(self._handle))
        if code < 0:
            raise error_of(code, subject=directory)

    def __del__(self) -> None:
        handle = getattr(self, "_handle", None)
        if handle:
            self._library.veltrancord_schema_close(handle)

    # ---- what is known ----------------------------------------------------------------------

    def describe(self, path: str, language: Optional[str] = None) -> Optional[Description]:
        """What is known of a setting or a group; label and help in `language` ("de"), or in that
        of the environment. None where its document has no description. `NotFound` where the
        description names no such place."""
        found = _Description()
        with self._lock:
            code = self._library.veltrancord_schema_describe(
                self._handle, bounds.encode(path),
                None if language is None else bounds.encode(language), ctypes.byref(found))
            if code < 0:
                raise error_of(code, subject=path)
            return None if code > 0 else self._taken(path, found)

    @staticmethod
    def _taken(path: str, found: _Description) -> Description:
        return Description(
            path=path,
            kind=Kind(found.kind),
            label=_text(found.label),
            help=_text(found.help),
            type=_text(found.type),
            allowed=_text(found.allowed),
            default=_text(found.default_value) if found.has_default else None,
            minimum=_text(found.minimum),
            maximum=_text(found.maximum),
            pattern=_text(found.pattern),
            unit=_text(found.unit),
            level=_text(found.level),
            program=_text(found.program),
            choices=tuple(_text(found.choices[index]) for index in range(found.choice_count)),
            min_length=found.min_length if found.min_length >= 0 else None,
            max_length=found.max_length if found.max_length >= 0 else None,
            secret=bool(found.is_secret),
        )

    def check(self, settings: TypedSettings) -> List[Violation]:
        """What is wrong with these settings, all of it; settings of documents without a description
        are never wrong."""
        pairs = settings.items() if isinstance(settings, Mapping) else settings
        return self._check([(path, self._written(path, value)) for path, value in pairs])

    def _check(self, pairs: List[Tuple[str, str]]) -> List[Violation]:
        violations = []
        for path, text in pairs:
            wrong = _Violation()
            with self._lock:
                code = self._library.veltrancord_schema_check(
                    self._handle, bounds.encode(path), bounds.encode(text), ctypes.byref(wrong))
                if code == Result.NOT_ALLOWED:
                    violations.append(Violation(path, _text(wrong.rule), _text(wrong.reason),
                                                _text(wrong.nearest)))
                elif code < 0:
                    raise error_of(code, _text(wrong.reason) or None, subject=path)
        return violations

    # ---- settings with their types ----------------------------------------------------------

    def get(self, path: str) -> TypedValue:
        """One value as its kind is: bool, int, decimal.Decimal, datetime.date, datetime.time or
        str. Where nothing is set: the default of the description, or `NotFound` where it has none.
        A value that is not of its kind raises `WrongKind`."""
        described = self._known(path)
        try:
            text = self._client.get(path)
        except NotFound:
            if described is None or described.default is None:
                raise
            text = described.default
        if described is None:
            return text
        value = _typed(described.kind, text)
        if value is None:
            raise error_of(Result.NOT_OF_THAT_KIND,
                           bounds.not_a(f"of type {described.type}", path, text), subject=path)
        return value

    def set(self, path: str, value: TypedValue, *, force: bool = False) -> None:
        """Writes one value, as `write` does."""
        self.write([(path, value)], force=force)

    def write(self, settings: TypedSettings, *, force: bool = False) -> int:
        """Writes all settings with one request, as `Client.write` does, unless one of them is not
        allowed: then nothing is sent, and `ValidationError` tells of all that are not. With `force`
        they are written all the same. Return: how many were written."""
        pairs = settings.items() if isinstance(settings, Mapping) else settings
        lines = [(path, self._written(path, value)) for path, value in pairs]
        violations = [] if force else self._check(lines)
        if violations:
            raise ValidationError(violations)
        return self._client.write(lines)

    def _known(self, path: str) -> Optional[Description]:
        try:
            return self.describe(path)
        except NotFound:
            return None

    def _written(self, path: str, value: TypedValue) -> str:
        """The text that a value is kept as. Of a truth value it is the one of the choices that
        means it, as some settings have ON and OFF."""
        if isinstance(value, bool):
            described = self._known(path)
            for choice in described.choices if described is not None else ():
                if _truth(choice) is value:
                    return choice
        if isinstance(value, (datetime.date, datetime.time)):
            return value.isoformat()
        if isinstance(value, decimal.Decimal):
            return format(value, "f")
        return bounds.value_text(value)
