"""Measures the program and writes docs/footprint.md: footprint.py BUILD-FOLDER ARM-BUILD-FOLDER."""

import datetime
import os
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "tests/e2e"))

from device import Device

ROUNDS = 9


def sections(size_tool, program):
    """Text, data and bss in bytes."""
    lines = subprocess.run([size_tool, program], check=True, capture_output=True, text=True).stdout
    return [int(field) for field in lines.splitlines()[1].split()[:3]]


def stripped_size(strip_tool, program):
    with tempfile.NamedTemporaryFile() as target:
        subprocess.run([strip_tool, "-o", target.name, program], check=True)
        return os.stat(target.name).st_size


def resident(device, pid):
    status = device.outside(f"/proc/{pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status).group(1))


def measure_running(program):
    """Resident KiB of supervisor and worker at idle, and the median start-up time in ms."""
    times = []
    for _ in range(ROUNDS):
        with Device(program) as device:
            device.copy_sample_database()
            start = time.monotonic()
            device.start()
            times.append((time.monotonic() - start) * 1000)
            sizes = resident(device, device.supervisor_pid), resident(device, device.worker_pid)
    return *sizes, statistics.median(times)


def main():
    native = REPOSITORY / sys.argv[1] / "bin/Veltrancord"
    arm = REPOSITORY / sys.argv[2] / "bin/Veltrancord"
    rows = []
    for name, program, prefix in (
        (platform.machine(), native, ""),
        ("32-bit ARM", arm, "arm-linux-gnueabihf-"),
    ):
        stripped = stripped_size(prefix + "strip", program)
        rows.append((name, stripped, *sections(prefix + "size", program)))
    supervisor, worker, start_ms = measure_running(str(native))
    text = "# Footprint\n\n"
    text += f"Measured by `./dev footprint` on {datetime.date.today().isoformat()}"
    text += f" ({platform.machine()}, Linux {platform.release()}), release build.\n\n"
    text += "| Program | Stripped file | text | data | bss |\n|---|---|---|---|---|\n"
    for name, stripped, code, data, bss in rows:
        text += f"| {name} | {stripped} | {code} | {data} | {bss} |\n"
    text += "\nAll in bytes. On the sample configuration, at idle, on this machine:\n\n"
    text += "| What | |\n|---|---|\n"
    text += f"| supervisor, resident | {supervisor} KiB |\n"
    text += f"| worker, resident | {worker} KiB |\n"
    text += f"| from the start until the starter has returned (median of {ROUNDS}) | {start_ms:.1f} ms |\n"
    text += "\nThe aims: the ARM program under 200 KiB stripped, the worker under 3 MiB resident. Resident\n"
    text += "memory counts the pages of shared libraries, which all programs of a device share.\n"
    (REPOSITORY / "docs/footprint.md").write_text(text)
    print(text)


if __name__ == "__main__":
    main()
