"""Two versions of the service beside each other, from results that were taken turn by turn."""

from __future__ import annotations

import statistics

import report
import targets


def middle(some: list):
    """Several results of one form as one: of numbers the median, of all else the first."""
    first = some[0]
    if isinstance(first, dict):
        return {key: middle([one[key] for one in some]) for key in first}
    if isinstance(first, list):
        return [middle(list(each)) for each in zip(*some, strict=True)]
    if isinstance(first, (int, float)) and not isinstance(first, bool):
        return statistics.median(some)
    return first


def word(met: bool) -> str:
    return "met" if met else "MISSED"


def row_lines(old: dict, new: dict) -> list[list[str]]:
    """Of each measured request with a target: its processor time, and its ratio to the reference."""
    lines = []
    for before, after in zip(old["rows"], new["rows"], strict=True):
        if not before["target"]:
            continue
        times = [one["run"]["processor_ns"] / 1000 for one in (before, after)]
        lines.append(
            [
                targets.where(before),
                *[f"{time:.1f}" for time in times],
                f"{times[1] / times[0]:.3f}",
                f"{before['target']:g}",
                *[
                    f"{one['ratio']:.2f} {word(one['ratio'] <= one['target'])}"
                    for one in (before, after)
                ],
            ]
        )
    return lines


def short_replies(old: dict, new: dict) -> float:
    """Processor time of short replies, new to old: the median over their rows."""
    return statistics.median(
        after["run"]["processor_ns"] / before["run"]["processor_ns"]
        for before, after in zip(old["rows"], new["rows"], strict=True)
        if before["group"] == "short reply"
    )


def lost(old: dict, new: dict) -> list[str]:
    """The rows of the targets table that were met and are missed."""
    judged = zip(targets.judge(old), targets.judge(new), strict=True)
    return [after.what for before, after in judged if before.met and not after.met]


def text(old: dict, new: dict) -> str:
    """What there is to say, as tables."""
    head = ["request", "old \u00b5s", "new \u00b5s", "new / old", "target", "old", "new"]
    judged = [
        [
            before.what,
            before.measured,
            after.measured,
            f"{word(before.met)} -> {word(after.met)}",
        ]
        for before, after in zip(targets.judge(old), targets.judge(new), strict=True)
    ]
    return "\n".join(
        [
            report.table(head, row_lines(old, new)),
            "",
            report.table(["target", "old", "new", ""], judged),
            "",
            f"short replies, new to old: {short_replies(old, new):.3f}",
            f"met before and missed now: {', '.join(lost(old, new)) or 'none'}",
        ]
    )
