"""What the module refuses before it connects: text that the service would cut, split or misread."""

from __future__ import annotations

import math
import re
from typing import Optional, Union

from .errors import Result, error_of

Value = Union[str, bool, int, float]

_WHOLE = re.compile(r"[+-]?[0-9]{1,40}")
_NUMBER = re.compile(r"[+-]?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]{1,3})?")

MAX_READ_PATH = 511
MAX_WRITE_PATH = 255
MAX_VALUE = 4095
MAX_SECRET_VALUE = 183  # a value of an element "Password", in any letter case
MAX_ATTRIBUTE_NAME = 63
MAX_ATTRIBUTE_VALUE = 255
MAX_UPLOAD_FILE_NAME = 255
MAX_DOWNLOAD_FILE_NAME = 255
MAX_RESTORE_FILE_NAME = 127
MAX_SYNC_FILE_NAME = 127
MAX_BACKUP_TEXT = 256
MAX_LOG_TEXT = 15
MAX_LOG_FIELD = 7

_KEPT_BY_ESCAPING = frozenset(
    b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-*")


def encode(text: str) -> bytes:
    """The bytes of a text; one that came undecoded from the service is sent back as it came."""
    data = text.encode("utf-8", "surrogateescape")
    if b"\0" in data:
        raise error_of(Result.TEXT_HAS_NUL)
    return data


def decode(data: bytes) -> str:
    return data.decode("utf-8", "surrogateescape")


def _within(data: bytes, bound: int, code: Result) -> bytes:
    if len(data) > bound:
        raise error_of(code, bound=bound, found=len(data))
    return data


def path_bytes(path: str, bound: int) -> bytes:
    data = _within(encode(path), bound, Result.PATH_OVER_BOUND)
    if not data.strip(b"."):
        raise error_of(Result.PATH_EMPTY)
    if b"=" in data:
        raise error_of(Result.PATH_HAS_EQUALS)
    if b"\n" in data:
        raise error_of(Result.PATH_HAS_LINE_FEED)
    return data


def attribute_path_bytes(path: str, bound: int) -> bytes:
    """A path whose last component names an attribute, or is one of the marks "*" and "#"."""
    data = path_bytes(path, bound)
    # The service looks names up in their escaped form, where other bytes take three.
    name = data.rpartition(b".")[2]
    length = sum(1 if byte in _KEPT_BY_ESCAPING else 3 for byte in name)
    if length > MAX_ATTRIBUTE_NAME:
        raise error_of(Result.ATTRIBUTE_OVER_BOUND, bound=MAX_ATTRIBUTE_NAME, found=length)
    return data


def _one_line(data: bytes) -> bytes:
    if b"\n" in data:
        raise error_of(Result.VALUE_HAS_LINE_FEED)
    return data


def _is_secret(path: str) -> bool:
    return path.rpartition(".")[2].lower() == "password"


def value_bytes(path: str, value: str) -> bytes:
    bound = MAX_SECRET_VALUE if _is_secret(path) else MAX_VALUE
    return _one_line(_within(encode(value), bound, Result.VALUE_OVER_BOUND))


def value_text(value: Value) -> str:
    """The text that a value is kept as: YES and NO for truth values, as everywhere in the
    configuration; numbers as `Client.get_int` and `Client.get_float` read them again."""
    if isinstance(value, str):
        return value
    if isinstance(value, bool):
        return "YES" if value else "NO"
    if isinstance(value, int):
        return str(int(value))  # of an enumeration: its number
    if isinstance(value, float):
        if not math.isfinite(value):
            raise error_of(Result.NOT_OF_THAT_KIND, f"{value} is no number that can be kept")
        return repr(float(value))
    raise TypeError(f"a value is a str, bool, int or float, not {type(value).__name__}")


def int_of(text: str) -> Optional[int]:
    return int(text) if _WHOLE.fullmatch(text) else None


def float_of(text: str) -> Optional[float]:
    number = float(text) if _NUMBER.fullmatch(text) else math.nan
    return number if math.isfinite(number) else None


def bool_of(text: str) -> Optional[bool]:
    return {"YES": True, "ON": True, "NO": False, "OFF": False}.get(text.upper())


def not_a(kind: str, path: str, text: str) -> str:
    """What is wrong with a value; a secret is not shown."""
    shown = "it" if _is_secret(path) else ascii(text if len(text) <= 40 else text[:40] + "...")
    return f"{shown} is not {kind}"


def attribute_value_bytes(value: str) -> bytes:
    return _one_line(_within(encode(value), MAX_ATTRIBUTE_VALUE, Result.ATTRIBUTE_OVER_BOUND))


def field_bytes(field: str, *, separator: bool = True, full: bool = False) -> bytes:
    """A field of a command; with `separator` it may hold no '&', with `full` not be empty."""
    data = encode(field)
    if separator and b"&" in data:
        raise error_of(Result.FIELD_HAS_SEPARATOR)
    if full and not data:
        raise error_of(Result.FIELD_EMPTY)
    return data


def file_name_bytes(file: str, bound: int) -> bytes:
    data = field_bytes(file, separator=False, full=True)
    return _within(data, bound, Result.FILE_NAME_OVER_BOUND)


def backup_text_bytes(text: str) -> bytes:
    return _within(encode(text), MAX_BACKUP_TEXT, Result.FIELD_OVER_BOUND)


def log_number(number: int) -> bytes:
    return _within(str(int(number)).encode(), MAX_LOG_FIELD, Result.FIELD_OVER_BOUND)
