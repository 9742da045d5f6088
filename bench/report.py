"""Turns the measured figures into docs/performance.md and its plots."""

from __future__ import annotations

import datetime
import pathlib
import platform

SHORT_REPLIES = ("unknown command", "isPermitAllow", "CheckSession, 50 sessions")
PEER_FACTOR = 1.5


def processor_model() -> str:
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.machine()


def machine() -> str:
    cores = pathlib.Path("/proc/cpuinfo").read_text().count("processor\t")
    return f"{processor_model()}, {cores} cores, Linux {platform.release().split('-')[0]}"


def best_peer(results: dict, clients: int, what: tuple[str, ...]) -> float:
    """Least processor time, in nanoseconds, of the peers' requests of that kind."""
    return min(
        peer["run"]["processor_ns"]
        for peer in results["peers"]
        if peer["clients"] == clients and peer["what"] in what
    )


def missed_targets(results: dict) -> list[str]:
    missed = [
        f"{row['data']}, {row['row']}, {row['clients']} clients: "
        f"{row['ratio']:.2f}, target {row['target']}"
        for row in results["rows"]
        if row["target"] and row["ratio"] > row["target"]
    ]
    for row in results["rows"]:
        if row["row"] in SHORT_REPLIES and row["clients"] == 1:
            factor = best_peer(results, 1, ("GET", "get")) / row["run"]["processor_ns"]
            if factor < PEER_FACTOR:
                missed.append(f"{row['data']}, {row['row']}: {factor:.2f} x less than the peers")
    for start in results["start"]:
        if start["ratio"] > 1.15:
            missed.append(f"{start['data']}: time to ready {start['ratio']:.2f}, target 1.15")
        if start["idle_kb"] > start["allowed_kb"]:
            missed.append(
                f"{start['data']}: resident {start['idle_kb']} kB, allowed {start['allowed_kb']:.0f}"
            )
        if start["after_read_kb"] > start["idle_kb"] * 1.1:
            missed.append(
                f"{start['data']}: resident {start['after_read_kb']} kB after read:*, "
                f"idle {start['idle_kb']}"
            )
    return missed


def table(head: list[str], lines: list[list[str]]) -> str:
    rows = ["| " + " | ".join(head) + " |", "|" + "|".join(["---"] * len(head)) + "|"]
    return "\n".join(rows + ["| " + " | ".join(line) + " |" for line in lines])


def request_table(results: dict) -> str:
    lines = []
    peer = {clients: best_peer(results, clients, ("GET", "get")) for clients in (1, 16)}
    for row in results["rows"]:
        run = row["run"]
        calls = row["system_calls"]
        verdict = "" if row["target"] is None else f"{row['target']:g}"
        if row["target"] is not None and row["ratio"] > row["target"]:
            verdict += " (missed)"
        lines.append(
            [
                row["data"],
                row["row"],
                str(row["clients"]),
                f"{run['processor_ns'] / 1000:.1f}",
                f"{run['p50_ns'] / 1000:.0f}",
                f"{run['p99_ns'] / 1000:.0f}",
                f"{run['per_second']:.0f}",
                "" if calls is None else f"{calls:.1f}",
                f"{run['page_faults']:.1f}",
                f"{row['ratio']:.2f}",
                verdict,
                f"{run['processor_ns'] / peer[row['clients']]:.2f}",
            ]
        )
    head = ["data", "request", "clients", "processor µs", "p50 µs", "p99 µs", "per second"]
    head += ["system calls", "page faults", "x reference", "target", "x best peer"]
    return table(head, lines)


def peer_table(results: dict) -> str:
    lines = [
        [
            peer["peer"],
            peer["what"],
            str(peer["clients"]),
            f"{peer['run']['processor_ns'] / 1000:.1f}",
            f"{peer['run']['p50_ns'] / 1000:.0f}",
            f"{peer['run']['p99_ns'] / 1000:.0f}",
            f"{peer['run']['per_second']:.0f}",
        ]
        for peer in results["peers"]
    ]
    head = ["server", "request", "clients", "processor µs", "p50 µs", "p99 µs", "per second"]
    return table(head, lines)


def start_table(results: dict) -> str:
    lines = [
        [
            start["data"],
            f"{start['bytes'] / 1000:.0f}",
            f"{start['ready_ms']:.1f}",
            f"{start['raw_ms']:.1f}",
            f"{start['ratio']:.2f}",
            str(start["idle_kb"]),
            str(start["after_read_kb"]),
            str(start["documents_kb"]),
            f"{start['allowed_kb']:.0f}",
        ]
        for start in results["start"]
    ]
    head = ["data", "kB", "ready ms", "raw parse ms", "ratio (target 1.15)", "resident kB"]
    head += ["after read:* kB", "documents alone kB", "allowed kB"]
    return table(head, lines)


def program_table(results: dict) -> str:
    lines = [
        [one["program"], f"{one['processor_us']:.0f}", f"{one['wall_us']:.0f}"]
        for one in results["programs"]
    ]
    return table(["program", "processor µs", "wall µs"], lines)


def save_table(results: dict) -> str:
    lines = [
        [name, f"{one['processor_us']:.0f}", f"{one['replace_us']:.0f}"]
        for name, one in results["save"].items()
    ]
    return table(["document", "SaveFile µs", "write, fsync, rename µs"], lines)


def draw(results: dict, folder: pathlib.Path) -> None:
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "veltrancord"
    from matplotlib import pyplot

    single = [row for row in results["rows"] if row["clients"] == 1 and row["target"]]
    figure, axes = pyplot.subplots(figsize=(9, 0.32 * len(single) + 1.2))
    names = [f"{row['data']}: {row['row']}" for row in single]
    colours = ["#2a7f62" if row["ratio"] <= row["target"] else "#b5432f" for row in single]
    axes.barh(names, [row["ratio"] for row in single], color=colours)
    axes.plot([row["target"] for row in single], names, "k|", markersize=12, label="target")
    axes.invert_yaxis()
    axes.set_xlabel("server processor time, ratio to the reference")
    axes.legend()
    figure.tight_layout()
    figure.savefig(folder / "performance-ratios.svg", metadata={"Date": None})
    pyplot.close(figure)

    figure, axes = pyplot.subplots(figsize=(7, 4))
    for name in ("readvalue, first leaf", "readvalue, last leaf", "readvalue, deepest leaf"):
        rows = [row for row in results["rows"] if row["row"] == name and row["clients"] == 1]
        axes.plot(
            [row["data"] for row in rows],
            [row["run"]["processor_ns"] / 1000 for row in rows],
            marker="o",
            label=name,
        )
    axes.set_ylim(bottom=0)
    axes.set_ylabel("server processor time, µs")
    axes.set_title("One value, by size of the configuration")
    axes.legend()
    figure.tight_layout()
    figure.savefig(folder / "performance-growth.svg", metadata={"Date": None})
    pyplot.close(figure)


def write(results: dict, folder: pathlib.Path) -> None:
    missed = missed_targets(results)
    disk = ""
    if "disk" in results:
        one = results["disk"]
        disk = (
            f"On a disk a write of one value takes {one['p50_ns'] / 1000:.0f} µs (p50); writing, "
            f"flushing and renaming 44 KB alone takes {one['reference_wall_us']:.0f} µs.\n"
        )
    verdict = "\n".join(f"- {line}" for line in missed) or "None."
    notes = folder / "performance-notes.md"
    explained = notes.read_text() if notes.exists() else ""
    form = "quick form" if results["quick"] else "full form"
    text = f"""# Performance

Written by `./dev bench` on {datetime.date.today().isoformat()} ({form}, \
{results['seconds']:.0f} s) on: {machine()}. Absolute times are noise on such a machine; the ratios,
taken in one run with the servers alternating, are the result. Every figure is the median of five
rounds.

The reference is the floor server: the least server that speaks the same framing (poll, accept,
read, write, close) and answers as many bytes, without any command or configuration. Where a request
must list, save or replace, the XML library's or the file system's own cost for that is added to it.
The best peer is the cheaper of redis GET and memcached get, over a local socket with a connection
per request.

![Ratios to the reference](performance-ratios.svg)

![One value, by size of the configuration](performance-growth.svg)

## Requests

{request_table(results)}

## Peers

{peer_table(results)}

## Start and memory

{start_table(results)}

## Saving

{save_table(results)}

{disk}
## One value by a program started for it

{program_table(results)}

## Targets missed

{verdict}

{explained}"""
    folder.mkdir(exist_ok=True)
    (folder / "performance.md").write_text(text.rstrip() + "\n")
    draw(results, folder)
