"""Which targets a run has met, and for each miss the measurement that shows what keeps it."""

from __future__ import annotations

from dataclasses import dataclass, field

PEER_FACTOR = 1.5
SHORT_REPLIES = ("unknown command", "isPermitAllow", "CheckSession, 50 sessions")
GROUPS = {
    "short reply": "short reply (unknown command, isPermitAllow, CheckSession), to the floor",
    "one value": "readvalue of the first, last and deepest leaf, to the floor",
    "listing": "read of a document and `read:*` on large, to the library's walk and the floor",
    "write in memory": "write of one value, file system in memory, to the floor, serialising, "
    "write and rename",
    "write on disk": "write of one value on disk, to the floor, serialising, write, fsync and "
    "rename",
    "writedbmem": "writedbmem, to the floor",
    "writelog": "writelog on a full log, to the floor and replacing a file of that size",
    "readlog": "readlog, to the floor's reply of the same size",
}


@dataclass
class Judgement:
    """One target: what was measured, and what is known about each miss."""

    what: str
    measured: str
    target: str
    met: bool
    why: list[str] = field(default_factory=list)


def best_peer(results: dict, clients: int) -> float:
    """Least processor time, in nanoseconds, of redis GET and memcached get."""
    return min(
        one["run"]["processor_ns"]
        for one in results["peers"]
        if one["clients"] == clients and one["what"] in ("GET", "get")
    )


def where(row: dict) -> str:
    clients = "1 client" if row["clients"] == 1 else f"{row['clients']} clients"
    return f"{row['data']}, {row['row']}, {clients}"


def why_missed(row: dict) -> str:
    text = f"{where(row)}: {row['ratio']:.2f}"
    if row["near_ratio"] is None:
        return text
    return f"{text}; {row['near_ratio']:.2f} compared with {row['near']}"


def judge_group(results: dict, group: str, what: str) -> list[Judgement]:
    rows = [row for row in results["rows"] if row["group"] == group and row["target"]]
    if not rows:
        return []
    missed = [row for row in rows if row["ratio"] > row["target"]]
    worst = max(rows, key=lambda row: row["ratio"])
    measured = f"{len(rows) - len(missed)} of {len(rows)} rows; at most {worst['ratio']:.2f}"
    target = f"at most {rows[0]['target']:g}"
    return [Judgement(what, measured, target, not missed, [why_missed(row) for row in missed])]


def judge_peers(results: dict) -> list[Judgement]:
    factors = {
        (one["what"], one["clients"]): best_peer(results, one["clients"])
        / one["run"]["processor_ns"]
        for one in results["peers"]
        if one["what"] in SHORT_REPLIES
    }
    least = min(factors, key=lambda key: factors[key])
    floors = {
        one["clients"]: best_peer(results, one["clients"]) / one["run"]["processor_ns"]
        for one in results["peers"]
        if one["peer"] == "floor"
    }
    why = [
        f"{what}, {clients} clients: {factor:.2f} times less; the floor itself is at "
        f"{floors[clients]:.2f}"
        for (what, clients), factor in factors.items()
        if factor < PEER_FACTOR
    ]
    return [
        Judgement(
            "short reply, times less than redis GET and memcached get",
            f"at least {factors[least]:.2f} ({least[0]}, {least[1]} clients)",
            f"at least {PEER_FACTOR:g}",
            not why,
            why,
        )
    ]


def judge_saving(results: dict) -> list[Judgement]:
    factors = {
        name: one["processor_us"] / one["serialise_us"] for name, one in results["save"].items()
    }
    least = min(factors, key=lambda name: factors[name])
    replacements = [
        row["replacements"]
        for row in results["rows"]
        if row["row"].startswith("write of ") and row["replacements"] is not None
    ]
    judged = [
        Judgement(
            "serialising, times faster than the library's SaveFile, identical bytes",
            f"at least {factors[least]:.2f}",
            "at least 2",
            factors[least] >= 2,
        )
    ]
    if replacements:
        # The generator's own first request is counted in, so that nothing is rounded here.
        judged.append(
            Judgement(
                "file replacements per write command, of 1 and of 100 lines",
                f"{min(replacements):g} to {max(replacements):g}",
                "1",
                max(replacements) <= 1,
            )
        )
    return judged


def judge_linear(results: dict) -> list[Judgement]:
    above = {
        row["row"]: row["run"]["processor_ns"] - row["floor_ns"]
        for row in results["rows"]
        if row["group"] == "readlog" and row["clients"] == 1
    }
    if len(above) != 2 or min(above.values()) <= 0:
        return []
    growth = above["readlog of 1,000"] / above["readlog of 100"]
    return [
        Judgement(
            "readlog, time above the floor, of 1,000 entries to 100",
            f"{growth:.1f}",
            "linear: at most 10",
            growth <= 10,
        )
    ]


def why_slow_start(start: dict) -> str:
    more = start["ready_ms"] - start["raw_ms"]
    constant = start["ready_empty_ms"] - start["raw_empty_ms"]
    return (
        f"{start['data']}: {start['ratio']:.2f}, {more:.1f} ms more; on an empty configuration, "
        f"where nothing is parsed, the same two programs differ by {constant:.1f} ms"
    )


def judge_start(results: dict) -> list[Judgement]:
    starts = results["start"]
    slow = [start for start in starts if start["ratio"] > 1.15]
    large = [start for start in starts if start["idle_kb"] > start["allowed_kb"]]
    grown = [start for start in starts if start["after_read_kb"] > start["idle_kb"] * 1.1]

    def listed(key: str) -> str:
        return ", ".join(f"{start['data']} {start[key]:.2f}" for start in starts)

    return [
        Judgement(
            "time to ready, to raw read and parse of the same files",
            listed("ratio"),
            "at most 1.15",
            not slow,
            [why_slow_start(start) for start in slow],
        ),
        Judgement(
            "resident memory when idle",
            ", ".join(f"{one['data']} {one['idle_kb'] / 1024:.1f} MiB" for one in starts),
            "documents alone + 5 % + 2.5 MiB",
            not large,
            [
                f"{one['data']}: {one['idle_kb']:.0f} kB, allowed {one['allowed_kb']:.0f} kB"
                for one in large
            ],
        ),
        Judgement(
            "resident memory after three `read:*`, to idle",
            ", ".join(
                f"{one['data']} {one['after_read_kb'] / one['idle_kb']:.2f}" for one in starts
            ),
            "at most 1.1",
            not grown,
        ),
    ]


def judge_programs(results: dict) -> list[Judgement]:
    time = {one["program"]: one["processor_us"] for one in results["programs"]}
    own, other = time["veltrancordctl get"], time["xmllint"]
    return [
        Judgement(
            "one value by a fresh `veltrancordctl get`, against xmllint on a 4 KB file",
            f"{own:.0f} µs against {other:.0f} µs",
            "less",
            own < other,
        )
    ]


def judge(results: dict) -> list[Judgement]:
    """All targets, in the order of the report."""
    judged = judge_group(results, "short reply", GROUPS["short reply"]) + judge_peers(results)
    for group in ("one value", "listing", "write in memory"):
        judged += judge_group(results, group, GROUPS[group])
    judged += judge_saving(results)
    for group in ("write on disk", "writedbmem", "writelog", "readlog"):
        judged += judge_group(results, group, GROUPS[group])
    return judged + judge_linear(results) + judge_start(results) + judge_programs(results)
