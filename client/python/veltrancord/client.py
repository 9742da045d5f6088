"""The commands of the service as methods."""

from __future__ import annotations

import contextlib
import enum
import functools
import os
import time
from typing import (Callable, Iterable, Iterator, List, Mapping, NamedTuple, Optional, Tuple,
                    TypeVar, Union, overload)

from . import bounds
from .bounds import decode, field_bytes
from .errors import Error, NotFound, Result, error_of
from .event_log import RECORD_SIZE, LogMode, LogRecord
from .exchange import DEFAULT_SOCKET, Reply, exchange
from .schema import Schema
from .watching import DEFAULT_DIRECTORY, Watch

Lines = List[Tuple[str, str]]
Value = bounds.Value
Settings = Union[Mapping[str, Value], Iterable[Tuple[str, Value]]]

_T = TypeVar("_T")


class _Required(enum.Enum):
    """Stands where a caller gave no default, which may be None."""

    REQUIRED = 0


_REQUIRED = _Required.REQUIRED


@contextlib.contextmanager
def _about(subject: str) -> Iterator[None]:
    """Names in what fails inside what it was about."""
    try:
        yield
    except Error as failure:
        failure.about(subject)
        raise


class Permit(NamedTuple):
    """A permit that the configuration defines."""

    number: int
    name: str
    type: str
    value: str


class Client:
    """The service behind one socket.

    socket_path      None: the environment's VELTRANCORD_SOCKET, else the service's usual one
    timeout          seconds for a whole exchange; None: no limit
    cap              largest reply accepted, in bytes
    wait_for_socket  whether a missing socket is waited for, as one that refuses always is
    schema_directory where the description of the settings is; None: the environment's
                     VELTRANCORD_SCHEMA, else the usual one
    """

    def __init__(
        self,
        socket_path: Optional[str] = None,
        *,
        timeout: Optional[float] = 5.0,
        cap: int = 64 << 20,
        wait_for_socket: bool = False,
        schema_directory: Optional[str] = None,
    ) -> None:
        self.socket_path = socket_path or os.environ.get("VELTRANCORD_SOCKET") or DEFAULT_SOCKET
        self.timeout = timeout
        self.cap = cap
        self.wait_for_socket = wait_for_socket
        self.schema_directory = schema_directory

    @functools.cached_property
    def schema(self) -> Schema:
        """The description of the settings, read when it is first asked for: typed values, and what
        is wrong with one before it is sent."""
        return Schema(self, self.schema_directory)

    # ---- any command ------------------------------------------------------------------------

    def exchange(self, command: str, argument: bytes = b"", *,
                 has_text: Optional[bool] = None) -> Reply:
        """Any command with any bytes; the service's failures are returned, not raised."""
        if not command or ":" in command:
            raise error_of(Result.COMMAND_HAS_SEPARATOR)
        return exchange(
            self.socket_path, bounds.encode(command) + b":" + argument, timeout=self.timeout,
            cap=self.cap, wait_for_socket=self.wait_for_socket, has_text=has_text)

    def _text(self, command: str, argument: bytes = b"") -> bytes:
        reply = self.exchange(command, argument, has_text=True)
        if reply.code < 0:
            raise error_of(reply.code)
        return reply.body

    def _code(self, command: str, argument: bytes = b"") -> int:
        reply = self.exchange(command, argument, has_text=False)
        if reply.code < 0:
            raise error_of(reply.code)
        return reply.code

    def _answer(self, command: str, argument: bytes) -> bool:
        reply = self.exchange(command, argument, has_text=False)
        if reply.code == Result.DENIED:
            return False
        if reply.code < 0:
            raise error_of(reply.code)
        return True

    def ping(self) -> None:
        """Raises unless the service answers; changes nothing there."""
        reply = self.exchange("ping", has_text=False)
        if reply.code != Result.NOT_FOUND:
            raise error_of(Result.BROKEN_REPLY)

    def wait(self, timeout: Optional[float] = None) -> None:
        """Waits until the service answers, though its socket be missing, refusing or cut."""
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            left = None if end is None else max(0.0, end - time.monotonic())
            try:
                Client(self.socket_path, timeout=left, wait_for_socket=True).ping()
                return
            except Error as failure:
                if failure.code != Result.NO_REPLY or left == 0.0:
                    raise
            time.sleep(0.01)

    # ---- settings ---------------------------------------------------------------------------

    def _get(self, path: str) -> str:
        with _about(path):
            body = self._text("readvalue", bounds.path_bytes(path, bounds.MAX_READ_PATH))
        return decode(body.split(b"\0")[0])  # secrets are filled up with zero bytes

    @overload
    def get(self, path: str) -> str: ...

    @overload
    def get(self, path: str, default: _T) -> Union[str, _T]: ...

    def get(self, path: str, default: Union[_T, _Required] = _REQUIRED) -> Union[str, _T]:
        """One value; a secret in plain text. Where there is none, an element without text
        included: `default`, or without one `NotFound`. All other failures are raised."""
        try:
            return self._get(path)
        except NotFound:
            if isinstance(default, _Required):
                raise
            return default

    def _get_as(self, kind: str, convert: Callable[[str], Optional[_T]], path: str,
                default: Union[_T, _Required]) -> _T:
        try:
            text = self._get(path)
        except NotFound:
            if isinstance(default, _Required):
                raise
            return default
        value = convert(text.strip())
        if value is None:
            raise error_of(Result.NOT_OF_THAT_KIND, bounds.not_a(kind, path, text), subject=path)
        return value

    def get_int(self, path: str, default: Union[int, _Required] = _REQUIRED) -> int:
        """One value that is a whole number in decimal digits. Raises `WrongKind` for any other, with
        and without `default`, which stands in where there is no value."""
        return self._get_as("a whole number", bounds.int_of, path, default)

    def get_float(self, path: str, default: Union[float, _Required] = _REQUIRED) -> float:
        """One value that is a number, "1.5" or "2e3"; failures as those of `get_int`."""
        return self._get_as("a number", bounds.float_of, path, default)

    def get_bool(self, path: str, default: Union[bool, _Required] = _REQUIRED) -> bool:
        """One value that is YES or ON (True), NO or OFF (False), in any letter case; failures as
        those of `get_int`."""
        return self._get_as("YES or NO", bounds.bool_of, path, default)

    @staticmethod
    def _lines(body: bytes) -> Lines:
        lines: Lines = []
        text = decode(body[:-1] if body.endswith(b"\n") else body)
        for line in text.split("\n") if text else []:
            key, equals, value = line.partition("=")
            if equals:
                lines.append((key, value))
            elif lines:  # the rest of a value that holds line feeds
                lines[-1] = (lines[-1][0], lines[-1][1] + "\n" + line)
        return lines

    def read(self, path: str, *, level: Optional[int] = None) -> Lines:
        """Keys and values of one element, a subtree ("A.B.*") or everything ("*"); with `level`
        what that level may see."""
        with _about(path):
            argument = bounds.path_bytes(path, bounds.MAX_READ_PATH)
            if level is None:
                return self._lines(self._text("read", argument))
            return self._lines(self._text("readwithlevel", argument + b"&%d" % level))

    def read_visible(self, path: str) -> Lines:
        """As `read`, without what is not meant to be shown."""
        with _about(path):
            return self._lines(
                self._text("readAndFilter", bounds.path_bytes(path, bounds.MAX_READ_PATH)))

    def _write(self, command: str, settings: Settings, attributes: bool = False) -> int:
        pairs = list(settings.items() if isinstance(settings, Mapping) else settings)
        if not pairs:
            raise error_of(Result.INVALID_USE)
        lines = []
        for index, (path, value) in enumerate(pairs):
            try:
                if attributes:
                    key = bounds.attribute_path_bytes(path, bounds.MAX_WRITE_PATH)
                    text = bounds.attribute_value_bytes(bounds.value_text(value))
                else:
                    key = bounds.path_bytes(path, bounds.MAX_WRITE_PATH)
                    text = bounds.value_bytes(path, bounds.value_text(value))
            except Error as failure:
                failure.index = index
                failure.about(path)
                raise
            lines.append(key + b"=" + text + b"\n")
        # The service does not tell which of several it stopped at.
        first = pairs[0][0]
        with _about(first if len(pairs) == 1
                    else f"one of {len(pairs)} settings from {first} on"):
            return self._code(command, b"".join(lines))

    def write(self, settings: Settings) -> int:
        """Writes all settings with one request, in order, and saves them. The service stops at the
        first that fails and undoes nothing. A value is a text, a number, or a truth value, which
        is written as YES or NO. Blanks at the ends of a text, and all but one in a row, last until
        the next start of the service only. Return: how many were written."""
        return self._write("write", settings)

    def set(self, path: str, value: Value) -> None:
        """Writes one value, as `write` does."""
        self._write("write", [(path, value)])

    def write_memory(self, settings: Settings) -> int:
        """As `write`, in memory only until `sync_memory` or a later write of the document."""
        return self._write("writedbmem", settings)

    def sync_memory(self) -> None:
        self._code("syncmemtoflash")

    def remove(self, path: str) -> None:
        """Removes an element, a whole document with its file ("A.*") or everything (".*")."""
        with _about(path):
            data = bounds.encode(path) if path == ".*" else bounds.path_bytes(
                path, bounds.MAX_READ_PATH)
            self._code("remove", data)

    def watch(self, *paths: str, directory: str = DEFAULT_DIRECTORY) -> Watch:
        """What changes at these paths, each as for `read`; what does not exist yet may come:

            with service.watch("Network.*") as watch:
                for change in watch:
                    print(change.path, change.before, change.after)

        The service tells nobody of changes. But it replaces a document's file in `directory` with
        each save, which the kernel tells; what changed is then found by reading again. So this works
        on the service's machine only, for who may read its directory. What is changed in memory only
        is told when it is saved; changes that follow closely are told as one, and a value that was
        changed and changed back in the meantime is not told at all; an element without text is told
        as if it were not there. What is held is each path's settings."""
        return Watch(self, paths, directory)

    # ---- attributes -------------------------------------------------------------------------

    def get_attribute(self, path: str) -> str:
        """The attribute that the last component names, of the element before it."""
        with _about(path):
            argument = bounds.attribute_path_bytes(path, bounds.MAX_READ_PATH)
            return decode(self._text("readsingleattr", argument))

    def read_attributes(self, path: str) -> Lines:
        """One attribute, all of an element ("A.#"), all below it ("A.*") or one name below it
        ("A.*.Level")."""
        with _about(path):
            argument = bounds.attribute_path_bytes(path, bounds.MAX_READ_PATH)
            return self._lines(self._text("readattr", argument))

    def write_attributes(self, settings: Settings) -> int:
        """As `write`; elements that are missing are not created."""
        return self._write("writeattr", settings, attributes=True)

    # ---- whole documents; file names are those of the service's side ------------------------

    def _file(self, command: str, file: str, bound: int) -> None:
        with _about(file):
            self._code(command, bounds.file_name_bytes(file, bound))

    def upload(self, file: str) -> None:
        """Replaces each document that the exchange file holds."""
        self._file("upload", file, bounds.MAX_UPLOAD_FILE_NAME)

    def restore(self, file: str) -> None:
        """As `upload`, but values that are set now win over those of the file."""
        self._file("restore", file, bounds.MAX_RESTORE_FILE_NAME)

    def sync_file(self, file: str) -> None:
        """Sets each value of the file in the documents that are loaded."""
        self._file("syncxml", file, bounds.MAX_SYNC_FILE_NAME)

    def download(self, file: str) -> None:
        """Writes every document into one exchange file."""
        self._file("download", file, bounds.MAX_DOWNLOAD_FILE_NAME)

    def backup(self, text: str = "") -> None:
        """Runs the device's backup script with `text` on its command line, where a shell reads it:
        never pass on what came from outside."""
        self._code("XMLDBCallBack", bounds.backup_text_bytes(text))

    # ---- event log --------------------------------------------------------------------------

    def log_add(self, record: LogRecord, *, with_time: bool = False) -> None:
        """Adds an event, with the present time or with `record.time`."""
        self._code("writelogwithtime" if with_time else "writelog", record.pack())

    def log_read(self, count: int = 1000, *, mask: int = -1,
                 mode: LogMode = LogMode.NEWEST) -> List[LogRecord]:
        """At most `count` events whose type has a bit of `mask`."""
        fields = [bounds.log_number(number) for number in (mode, mask, count)]
        body = self._text("readlog", b"&".join(fields))
        if len(body) % RECORD_SIZE:
            raise error_of(Result.BROKEN_REPLY)
        return [LogRecord.unpack(body[start:start + RECORD_SIZE])
                for start in range(0, len(body), RECORD_SIZE)]

    def log_count(self) -> int:
        return self._code("geteventcount")

    def log_capacity(self) -> int:
        # A file system too small for a log gives a capacity below 0, which is no failure.
        return self.exchange("maxlogcount", has_text=False).code

    def log_clear(self) -> None:
        self._code("cleanlog")

    # ---- permits ----------------------------------------------------------------------------

    @staticmethod
    def _fields(first: str, second: str, third: Optional[str]) -> bytes:
        argument = field_bytes(first) + b"&" + field_bytes(second)
        if third is not None:
            argument += b"&" + field_bytes(third, separator=False)
        return argument

    def group_may(self, group: str, permit: str, argument: Optional[str] = None) -> bool:
        """Whether a group may use what the permit names. False also for an unknown group."""
        with _about(permit):
            return self._answer("isPermitAllow", self._fields(group, permit, argument))

    def user_may(self, user: str, permit: str, argument: Optional[str] = None) -> bool:
        with _about(permit):
            return self._answer("isPermitAllowByUser", self._fields(user, permit, argument))

    def user_may_cgi(self, user: str, command: str, parameters: Optional[str] = None) -> bool:
        """Whether a user may issue a CGI command."""
        with _about(command):
            return self._answer("GetCGIPermitFilter", self._fields(user, command, parameters))

    def permit_value(self, group: str, permit: str) -> str:
        with _about(permit):
            return decode(self._text("getPermitValue", self._fields(group, permit, None)))

    def user_group(self, user: str) -> str:
        with _about(user):
            return decode(self._text("getGroupName", field_bytes(user, separator=False)))

    def list_permits(self) -> List[Permit]:
        permits = []
        for key, rest in self._lines(self._text("listPermits")):
            name, _, tail = rest.rpartition("&type=")
            kind, _, value = tail.partition("&value=")
            permits.append(Permit(int(key[len("permit"):]), name, kind, value))
        return permits

    def sync_permits(self) -> None:
        """Makes changed permits and groups effective."""
        self._code("SyncPermit")

    # ---- sessions and captchas --------------------------------------------------------------

    def set_session(self, session: str) -> None:
        self._code("SetSession", field_bytes(session, full=True))

    def check_session(self, session: str, lifetime: Optional[int] = None) -> bool:
        """Whether the session was set less than `lifetime` seconds ago (60 when not given)."""
        argument = field_bytes(session, full=True)
        if lifetime is not None:
            argument += b"&%d" % lifetime
        reply = self.exchange("CheckSession", argument, has_text=False)
        if reply.code not in (Result.OK, Result.NOT_FOUND):
            raise error_of(reply.code)
        return reply.code == Result.OK

    @staticmethod
    def _captcha(verify_code: str, captcha: str) -> bytes:
        return field_bytes(verify_code, full=True) + b"&" + field_bytes(captcha, full=True)

    def set_captcha(self, verify_code: str, captcha: str) -> None:
        self._code("SetCaptcha", self._captcha(verify_code, captcha))

    def compare_captcha(self, verify_code: str, captcha: str, *, remove: bool = False,
                        lifetime: Optional[int] = None) -> bool:
        """Whether the answer is right: false for one that is wrong or late, and for an unknown code.

        A wrong answer forgets nothing: delete the captcha after the first one.
        """
        try:
            self.require_captcha(verify_code, captcha, remove=remove, lifetime=lifetime)
        except Error as error:
            if error.code in (Result.CAPTCHA_WRONG, Result.CAPTCHA_EXPIRED, Result.NOT_FOUND):
                return False
            raise
        return True

    def require_captcha(self, verify_code: str, captcha: str, *, remove: bool = False,
                        lifetime: Optional[int] = None) -> None:
        """Raises `Error` with the reason in its `code` unless the answer is right."""
        argument = self._captcha(verify_code, captcha) + b"&%d" % remove
        if lifetime is not None:
            argument += b"&%d" % lifetime
        code = self.exchange("CompareCaptcha", argument, has_text=False).code
        if code != Result.OK:
            answers = {1: Result.CAPTCHA_EXPIRED, 2: Result.CAPTCHA_WRONG}
            raise error_of(code if code < 0 else answers.get(code, Result.BROKEN_REPLY))

    def refresh_captcha(self, verify_code: str, captcha: str) -> None:
        self._code("UpdateCaptchaTime", self._captcha(verify_code, captcha))

    def delete_captcha(self, verify_code: str, captcha: str) -> None:
        """Deletes it if it is there; the service does not tell whether it was."""
        reply = self.exchange("DelCaptchaItem", self._captcha(verify_code, captcha),
                              has_text=False)
        if reply.code not in (Result.OK, Result.NOT_FOUND):
            raise error_of(reply.code)
