#!/usr/bin/env python3
"""Reads from the programs in a folder what hardens them: hardening.py READELF OBJDUMP FOLDER FLAG...

A runtime that is linked in may bring the same marks, so these are looked for in functions of our own.
"""

import pathlib
import re
import subprocess
import sys

readelf, objdump, folder, *flags = sys.argv[1:]
OURS = r"^\w+ <_Z\w*(?:lapi|commands|monitor|4unit)\w*>:\n(?:.+\n)*.*"
MARKS = [("-hW", r"Type:\s+DYN"), ("-lW", r"GNU_STACK.* RW "), ("-lW", "GNU_RELRO"), ("-dW", r"\(FLAGS\)\s+BIND_NOW"),
         ("-d", OURS + "__stack_chk_fail")]
if "-D_FORTIFY_SOURCE=3" in flags:
    MARKS.append(("-sW", r"UND __syslog_chk\b"))  # nothing but our logging calls it
if "-fcf-protection=full" in flags or "-mbranch-protection=standard" in flags:
    MARKS.append(("-d", r"<main>:\n.*\b(endbr64|paciasp|bti)\b"))

programs = [path for path in pathlib.Path(folder).iterdir() if path.read_bytes()[:4] == b"\x7fELF"]
faults = [] if programs else [f"{folder} holds no program"]
for program in programs:
    for option, mark in MARKS:
        tool = objdump if option == "-d" else readelf
        text = subprocess.run([tool, option, program], check=True, capture_output=True, text=True).stdout
        faults += [] if re.search(mark, text, re.M) else [f"{program.name}: {tool} {option} shows no {mark}"]
    for built in re.findall(rb"GNU C\+\+17 [^\0]*-g[^\0]*", program.read_bytes()):  # with what, where debuggers look
        faults += [f"{program.name}: built without {f}" for f in flags if f[1] not in "DU" and f not in built.decode()]
sys.exit("\n".join(faults) or 0)
