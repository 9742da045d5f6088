"""Client of the configuration service Veltrancord.

    import veltrancord

    service = veltrancord.Client()
    print(service.get("Account.User1.Username", default="nobody"))
    service.write({"Network.Lan.Mtu": service.get_int("Network.Lan.Mtu", 1500) - 8,
                   "Network.Lan.Dhcp": True})

Every call is one exchange on a connection of its own; a `Client` holds settings only, no connection,
and may be used by many threads at once. What fails raises `Error`, or the kind of it that a program
may want to tell apart: `NotFound`, `Denied`, `Unreachable`, `TimedOut`, `WrongKind`.

Where the product describes its settings, `service.schema` gives and takes values as what they are,
and refuses with `ValidationError` what is not allowed before anything is sent:

    mtu = service.schema.get("Network.Lan.Mtu")
    service.schema.set("Network.Lan.Mtu", mtu - 8)
"""

from .client import Client, Permit
from .errors import (Denied, Error, NotFound, Refused, Result, TimedOut, Unreachable,
                     ValidationError, Violation, WrongKind)
from .event_log import LogMode, LogRecord
from .exchange import DEFAULT_SOCKET, Reply
from .schema import Description, Kind, Schema
from .watching import DEFAULT_DIRECTORY, Change, Watch

__all__ = [
    "DEFAULT_DIRECTORY",
    "DEFAULT_SOCKET",
    "Change",
    "Client",
    "Denied",
    "Description",
    "Error",
    "Kind",
    "LogMode",
    "LogRecord",
    "NotFound",
    "Permit",
    "Refused",
    "Reply",
    "Result",
    "Schema",
    "TimedOut",
    "Unreachable",
    "ValidationError",
    "Violation",
    "Watch",
    "WrongKind",
]
