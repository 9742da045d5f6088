"""The shared library exports what the header declares and the map lists: nothing more, nothing less.
Neither library holds anything that a call could change.

Usage: exported_symbols_test.py LIBRARY STATIC-LIBRARY MAP HEADER...

The static library is "-" where there is none: then the shared one is written in C++, and needs more
than the C library.
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
map_text = Path(symbol_map).read_text()
exported -= set(re.findall(r"^(\w+) \{$", map_text, re.MULTILINE))  # the version itself

listed = set(re.findall(r"^    (\w+);$", map_text, re.MULTILINE))
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
wanted_soname = re.match(r".*\.so\.1", Path(library).name)[0]
if not soname or soname.group(1) != wanted_soname:
    problems.append(f"the SONAME is not {wanted_soname}")
may_need = {"libc.so.6", "ld-linux-armhf.so.3"}
if static_library == "-":
    may_need |= {"libstdc++.so.6", "libgcc_s.so.1", "libm.so.6", "libtinyxml.so.2.6.2"}
if not needed_libraries <= may_need:
    problems.append(f"needs more than it may: {sorted(needed_libraries)}")
if static_library != "-":
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
