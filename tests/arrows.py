#!/usr/bin/env python3
"""Holds the arrows between the rooms of src/: what each may include and link."""

import pathlib
import re
import sys

# Room -> what it may include besides its own files: rooms, or single headers of a room.
ALLOWED = {
    "platform": set(),
    "wire": {"platform"},
    "secstore": {"platform"},
    "topic_printer": {"platform"},
    "commands": {"secstore", "platform"},
    "main": {"commands", "platform"},
    "monitor": {"topic_printer", "platform", "main/options", "main/startup",
                "main/build_description"},
    "lapi_mqtt": {"platform", "wire"},
    "unit": {"platform", "wire", "secstore/topics", "main/startup", "main/build_description"},
}

# Foreign header or target -> the rooms that may use it.
FOREIGN = {
    r"(?i)mosquitto": {"lapi_mqtt"},
    r"sqlite3?\b|SQLite": {"unit"},
    r"google/protobuf|protobuf::|\.pb\.h$": {"platform", "wire", "lapi_mqtt", "unit"},
    r"ecu::lapi$": {"main", "monitor", "unit"},
}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^">]+)[">]')
COMMAND = re.compile(r"\b(\w+)\s*\(([^()]*(?:\$<[^()]*>[^()]*)*)\)")
SCOPES = {"PRIVATE", "PUBLIC", "INTERFACE"}


def room_of_include(name, room):
    """The room whose header `name` is; None for a header from outside src/."""
    if name.startswith("ecu/lapi/") or name == "system_parameter_entry.pb.h":
        return "platform"
    if name == "sysparam.pb.h":
        return "wire"
    first = name.split("/")[0]
    return first if first in ALLOWED and "/" in name else None


def may(room, target_room, header=""):
    return (target_room in (None, room) or target_room in ALLOWED[room]
            or header.rsplit(".", 1)[0] in ALLOWED[room])


def foreign_fault(room, name):
    return any(re.search(pattern, name) and room not in rooms
               for pattern, rooms in FOREIGN.items())


def include_faults(src):
    for path in sorted(p for p in src.rglob("*") if re.search(r"\.(cpp|h|cpp\.in|h\.in)$", p.name)):
        room = path.relative_to(src).parts[0]
        for number, line in enumerate(path.read_text().splitlines(), 1):
            found = INCLUDE.match(line)
            if not found:
                continue
            name = found.group(1)
            record = name == "system_parameter_entry.pb.h"  # the platform's own record
            if room not in ALLOWED or not may(room, room_of_include(name, room), name) or (
                    not record and foreign_fault(room, name)):
                yield f"{path}:{number}: {line.strip()}"


def commands_of(path):
    text = re.sub(r"#.*", lambda m: " " * len(m.group()), path.read_text())
    for found in COMMAND.finditer(text):
        number = text.count("\n", 0, found.start()) + 1
        yield number, found.group(1), found.group(2).split()


def link_faults(src):
    """Links between targets, each target belonging to the room that defines it."""
    links, room_of_target = [], {}
    for path in sorted(src.rglob("CMakeLists.txt")):
        room = path.relative_to(src).parts[0]
        if path.parent == src:
            continue
        for number, command, words in commands_of(path):
            if command in ("add_library", "add_executable", "korvid_room", "korvid_proto"):
                room_of_target[words[0]] = room
            if command in ("korvid_room", "korvid_proto") and "LINKS" in words:
                linked = words[words.index("LINKS") + 1:]
            elif command == "target_link_libraries":
                linked = words[1:]
            else:
                continue
            links += [(path, number, room, name) for name in linked if name not in SCOPES]
    for path, number, room, name in links:
        # monitor and unit share a few files of main's: the library that holds them, and no other.
        if not may(room, room_of_target.get(name), "main/" + name.replace("main_", "")) or (
                foreign_fault(room, name)):
            yield f"{path}:{number}: {room} links {name}"


def main():
    src = pathlib.Path(sys.argv[1] if len(sys.argv) > 1
                       else pathlib.Path(__file__).parent.parent / "src")
    if not any(src.rglob("*.cpp")) or not any(src.glob("*/CMakeLists.txt")):
        sys.exit(f"{src} holds no rooms")
    faults = [*include_faults(src), *link_faults(src)]
    print("\n".join(faults))
    return 1 if faults else 0


sys.exit(main())
