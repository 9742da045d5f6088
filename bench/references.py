"""What the work of a request costs without the service: processor time of the XML library and of
the file system alone, measured anew in each round."""

from __future__ import annotations

import pathlib
import shutil
from collections.abc import Callable

from measure import Programs, run_json

# A name that a row refers to, and what measures it: microseconds of processor time.
References = dict[str, Callable[[], float]]


def of_listing(
    programs: Programs, directory: pathlib.Path, document: str, heavy: bool
) -> References:
    """Visiting each element's name and text, and listing them as plainly as it can be done."""

    def measured(path: pathlib.Path, key: str, rounds: int) -> float:
        return run_json([programs.xml_limit, "walk", path, str(rounds)])[key]

    few = 3 if heavy else 20
    file = directory / document
    return {
        "walk of all": lambda: measured(directory, "walk_us", few),
        "plain listing of all": lambda: measured(directory, "list_us", few),
        "walk of the document": lambda: measured(file, "walk_us", 100),
        "plain listing of the document": lambda: measured(file, "list_us", 100),
    }


def of_saving(programs: Programs, scratch: pathlib.Path, directory: pathlib.Path) -> References:
    """Serialising, and replacing the file with the same bytes, in the same file system."""
    references = {}

    def saving(file: pathlib.Path, command: str) -> float:
        saved = run_json([programs.xml_limit, "save", file, "100"])
        return saved["serialise_us"] + run_json([programs.xml_limit, command, file, "300"])[
            "processor_us"
        ]

    for name in ("Doc004", "Doc044"):
        file = scratch / name
        shutil.copy(directory / name, file)
        references[f"saving {name}"] = lambda file=file: saving(file, "replace")
        references[f"saving {name} as the service does"] = lambda file=file: saving(
            file, "replace-safely"
        )
    return references


def of_log(programs: Programs, log: pathlib.Path) -> References:
    """Replacing a file of the size of the full log, in the log's file system."""
    copy = log.with_name("copy")
    shutil.copy(log, copy)

    def replacing(command: str) -> float:
        return run_json([programs.xml_limit, command, copy, "300"])["processor_us"]

    return {
        "replacing the log": lambda: replacing("replace"),
        "replacing the log as the service does": lambda: replacing("replace-safely"),
    }
