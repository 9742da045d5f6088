"""The shared library exports what the header declares and the map lists: nothing more, nothing less.
Neither library holds anything that a call could change.

Usage: exported_symbols_test.py LIBRARY STATIC-LIBRARY MAP HEADER...
"""

import re
import subprocess
import sys
from pathlib import Path

library, static_library, symbol_map, *headers = sys.argv[1:]

listing = subprocess.run(
    ["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True
).stdout
exported = {line.split()[-1].split("@")[0] for line in listing.splitlines()}
exported.discard("VELTRANCORD_1")

listed = set(re.findall(r"^    (\w+);$", Path(symbol_map).read_text(), re.MULTILINE))
declared = set()
for header in headers:
    declared |= set(
        re.findall(r"VELTRANCORD_API\s[^;(]*?\b(veltrancord_\w+)\(", Path(header).read_text())
    )

soname = re.search(
    r"SONAME\s+(\S+)",
    subprocess.run(["objdump", "-p", library], check=True, capture_output=True, text=True).stdout,
)
needed = subprocess.run(
    ["objdump", "-p", library], check=True, capture_output=True, text=True
).stdout
needed_libraries = set(re.findall(r"NEEDED\s+(\S+)", needed))

problems = []
if exported != listed:
    problems.append(f"exported but not listed, or the reverse: {sorted(exported ^ listed)}")
if declared != listed:
    problems.append(f"declared but not listed, or the reverse: {sorted(declared ^ listed)}")
if not soname or soname.group(1) != "libveltrancord.so.1":
    problems.append("the SONAME is not libveltrancord.so.1")
if not needed_libraries <= {"libc.so.6", "ld-linux-armhf.so.3"}:
    problems.append(f"needs more than the C library: {sorted(needed_libraries)}")
table = subprocess.run(
    ["objdump", "-t", static_library], check=True, capture_output=True, text=True
).stdout
variables = re.findall(r"^\S+ .{6}O (\.t?data|\.t?bss|\*COM\*)\s+\S+\s+(\S+)$", table, re.MULTILINE)
if " O .rodata" not in table and " O .data.rel.ro" not in table:
    problems.append("the table of symbols is not as expected")
if variables:
    problems.append(f"holds variables: {variables}")
print("\n".join(problems))
sys.exit(1 if problems else 0)
