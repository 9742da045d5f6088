"""Turns the measured figures into docs/performance.md and its plots."""

from __future__ import annotations

import datetime
import pathlib
import platform

import targets


def processor_model() -> str:
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.machine()


def machine() -> str:
    cores = pathlib.Path("/proc/cpuinfo").read_text().count("processor\t")
    return f"{processor_model()}, {cores} cores, Linux {platform.release().split('-')[0]}"


def table(head: list[str], lines: list[list[str]]) -> str:
    rows = ["| " + " | ".join(head) + " |", "|" + "|".join(["---"] * len(head)) + "|"]
    return "\n".join(rows + ["| " + " | ".join(line) + " |" for line in lines])


def verdict(row: dict) -> str:
    if row["target"] is None:
        return ""
    return f"{row['target']:g}" + (" (missed)" if row["ratio"] > row["target"] else "")


def request_table(results: dict) -> str:
    """A line for each request of one client, with what sixteen clients cost beside it."""
    crowds = {
        (row["data"], row["row"]): row for row in results["rows"] if row["clients"] != 1
    }
    lines = []
    for row in results["rows"]:
        if row["clients"] != 1:
            continue
        run, crowd = row["run"], crowds.get((row["data"], row["row"]))
        lines.append(
            [
                row["data"],
                row["row"],
                f"{run['processor_ns'] / 1000:.1f}",
                f"{run['p99_ns'] / 1000:.0f}",
                "" if row["system_calls"] is None else f"{row['system_calls']:.1f}",
                f"{row['ratio']:.2f}",
                verdict(row),
                "" if row["near_ratio"] is None else f"{row['near_ratio']:.2f}",
                "" if crowd is None else f"{crowd['run']['processor_ns'] / 1000:.1f}",
                "" if crowd is None else f"{crowd['ratio']:.2f}",
            ]
        )
    head = ["data", "request", "processor µs", "p99 µs", "system calls", "x reference", "target"]
    head += ["x nearer", "16 clients: processor µs", "x reference"]
    return table(head, lines)


def target_table(judged: list[targets.Judgement]) -> str:
    lines = [
        [one.what, one.measured, one.target, "met" if one.met else "**missed**"] for one in judged
    ]
    return table(["what", "measured", "target", ""], lines)


def missed_list(judged: list[targets.Judgement]) -> str:
    lines = []
    for one in judged:
        if not one.met:
            lines.append(f"- {one.what} ({one.target}):")
            lines += [f"  - {why}" for why in one.why or [one.measured]]
    return "\n".join(lines) or "None."


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
            f"{start['ready_empty_ms']:.1f}",
            f"{start['raw_empty_ms']:.1f}",
            f"{start['idle_kb']:.0f}",
            f"{start['after_read_kb']:.0f}",
            f"{start['documents_kb']:.0f}",
            f"{start['allowed_kb']:.0f}",
        ]
        for start in results["start"]
    ]
    head = ["data", "kB", "ready ms", "raw parse ms", "ratio (target 1.15)", "ready, empty ms"]
    head += ["raw, empty ms", "resident kB"]
    head += ["after read:* kB", "documents alone kB", "allowed kB"]
    return table(head, lines)


def program_table(results: dict) -> str:
    lines = [
        [one["program"], f"{one['processor_us']:.0f}", f"{one['wall_us']:.0f}"]
        for one in results["programs"]
    ]
    return table(["program", "processor µs", "wall µs"], lines)


def save_table(results: dict) -> str:
    keys = ("serialise_us", "print_us", "processor_us", "replace_us", "replace_safely_us")
    lines = [
        [name, *[f"{one[key]:.0f}" for key in keys]] for name, one in results["save"].items()
    ]
    head = ["document", "serialising µs", "library's printer µs", "library's SaveFile µs"]
    head += ["write, fsync, rename µs", "replaced as the service does µs"]
    return table(head, lines)


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


def disk_text(results: dict) -> str:
    if "disk" not in results:
        return ""
    wall = results["disk"]
    row = next(row for row in results["rows"] if row["data"] == "on disk" and "44" in row["row"])
    return (
        f"On a disk a write of one value in a document of 44 KB takes "
        f"{row['run']['p50_ns'] / 1000:.0f} µs (p50). Writing, flushing and renaming its bytes "
        f"alone takes {wall['replace']:.0f} µs, replacing the file as the service does, which "
        f"flushes the directory too, {wall['replace-safely']:.0f} µs.\n"
    )


def write(results: dict, folder: pathlib.Path) -> None:
    form = "quick form" if results["quick"] else "full form"
    judged = targets.judge(results)
    text = f"""# Performance

Written by `./dev bench` on {datetime.date.today().isoformat()} ({form}, \
{results['seconds']:.0f} s) on: {machine()}. The ratios are the result, taken with the servers
alternating; times are noise on such a machine. Every figure is the median of at least five rounds.
[performance-notes.md](performance-notes.md) tells what helped, and what was rejected.

The reference is the floor server: the least server of the same framing, which answers as many bytes
without any command. Where a request lists, saves or replaces, what the XML library's walk, the
serialising or a plain write, fsync, close and rename of the same bytes cost is added, measured in the
same rounds, in loops that find everything in the processor's caches.

"x nearer" compares with a reference that pays more of what the service does on purpose, and no target
is judged by it: a floor with two idle threads that looks for unread bytes before it closes; replacing
the file with its mode and owner kept and the directory flushed; building the same listing as plainly
as can be.

All servers run on one processor that is set aside for them. A single client takes turns with the
server there, as on a device that has only one; sixteen run on the other processors.

![Ratios to the reference](performance-ratios.svg)

![One value, by size of the configuration](performance-growth.svg)

## Targets

{target_table(judged)}

## Targets missed, and what was measured there

{missed_list(judged)}

## Requests

{request_table(results)}

## Peers

All of these alternated, round by round.

{peer_table(results)}

## Start and memory

Both programs are timed from their start to their end: the service's starter ends when the worker is
ready. Raw parse is a program that reads and parses the same files with the XML library. The columns
"empty" are the same two on a configuration without a document.

{start_table(results)}

## Saving

{save_table(results)}

{disk_text(results)}
## One value by a program started for it

{program_table(results)}
"""
    folder.mkdir(exist_ok=True)
    (folder / "performance.md").write_text(text.rstrip() + "\n")
    draw(results, folder)
