#!/usr/bin/env python3
"""Holds the arrows between the modules of src/: what each may include and link."""

import pathlib
import re
import sys

# Module -> the modules that it may use besides itself. Modules may lie in modules.
ALLOWED = {
    "platform": set(),
    "protocol": {"platform"},
    "lapi_mqtt/logging": {"platform"},
    "lapi_mqtt/config": {"lapi_mqtt/logging", "platform"},
    "lapi_mqtt/network": {"lapi_mqtt/config", "lapi_mqtt/logging", "platform"},
    "lapi_mqtt/mqtt": {"lapi_mqtt/config", "lapi_mqtt/logging", "lapi_mqtt/network", "platform", "protocol"},
    "lapi_mqtt/link": {"lapi_mqtt", "lapi_mqtt/logging", "lapi_mqtt/mqtt", "platform"},
    "lapi_mqtt/transport": {"lapi_mqtt", "lapi_mqtt/config", "lapi_mqtt/link", "lapi_mqtt/logging", "lapi_mqtt/mqtt",
                            "platform", "protocol"},
    "lapi_mqtt/sysparam": {"lapi_mqtt", "platform", "protocol"},
    "lapi_mqtt": {"lapi_mqtt/sysparam", "lapi_mqtt/transport", "platform"},
    "secstore": {"platform", "protocol"},
    "topic_printer": {"platform"},
    "dump": {"platform", "program"},
    "program": {"platform"},
    "commands": {"dump", "platform", "program", "secstore"},
    "main": {"commands", "platform", "program"},
    "monitor": {"dump", "platform", "program", "topic_printer"},
    "json": {"dump", "platform", "program"},
    "restore": {"dump", "platform", "program", "protocol"},
    "unit": {"dump", "lapi_mqtt", "platform", "program", "protocol", "unit/store"},
    "unit/store": {"platform", "program", "protocol"},
}
PROGRAMS = {"main", "monitor", "restore", "unit"}

# Foreign header or target -> the modules that may use it.
FOREIGN = {
    r"mosquitto\.h|MOSQUITTO|mqtt_protocol\.h": {"lapi_mqtt/mqtt"},
    r"(?i:openssl)": {"lapi_mqtt/network"},
    r"(?i:rapidjson)": {"dump"},
    r"sqlite3?\b|SQLite": {"unit/store"},
    r"google/protobuf|protobuf::": {"platform", "protocol", "lapi_mqtt/sysparam", "unit"},
    r"sysparam\.pb\.h$|sysparam_messages$": {"protocol", "lapi_mqtt/sysparam", "unit"},
    r"^lapi_mqtt/service_client\.h$": {"lapi_mqtt/transport", "unit"},
    r"ecu::lapi$": PROGRAMS,
}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^">]+)[">]')
COMMAND = re.compile(r"\b(\w+)\s*\(([^()]*(?:\$<[^()]*>[^()]*)*)\)")


def module_of(name):
    """The innermost module that a path below src/ lies in; None outside of them."""
    return next((str(place) for place in pathlib.PurePath(name).parents if str(place) in ALLOWED), None)


def module_of_include(name):
    if name.startswith("ecu/lapi/") or name == "system_parameter_entry.pb.h":
        return "platform"
    return "protocol" if name == "sysparam.pb.h" else module_of(name)


def may(module, target):
    return target in (None, module) or target in ALLOWED.get(module, ())


def foreign_fault(module, name):
    return any(re.search(pattern, name) and module not in modules for pattern, modules in FOREIGN.items())


def include_faults(src):
    for path in sorted(p for p in src.rglob("*") if p.suffix in (".cpp", ".h")):
        module = module_of(path.relative_to(src).as_posix())
        for number, line in enumerate(path.read_text().splitlines(), 1):
            found = INCLUDE.match(line)
            if found and (module is None or not may(module, module_of_include(found[1])) or foreign_fault(module, found[1])):
                yield f"{path}:{number}: {line.strip()}"


def link_faults(src):
    """Links between targets, each target belonging to the module that defines it."""
    links, module_of_target = [], {}
    for path in sorted(src.glob("*/**/CMakeLists.txt")):
        module = module_of(path.relative_to(src).as_posix())
        for command, arguments in COMMAND.findall(re.sub("#.*", "", path.read_text())):
            words = arguments.split()
            if command in ("add_library", "add_executable", "korvid_executable", "korvid_executable", "korvid_module", "korvid_proto"):
                module_of_target[words[0]] = module
            linked = words[words.index("LINKS") + 1:] if "LINKS" in words else words[1:]
            if command == "target_link_libraries" or "LINKS" in words:
                links += [(path, module, name) for name in linked]
    for path, module, name in links:
        if not may(module, module_of_target.get(name)) or foreign_fault(module, name):
            yield f"{path}: {module} links {name}"


SRC = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent / "src")
if not any(SRC.rglob("*.cpp")) or not any(SRC.glob("*/CMakeLists.txt")):
    sys.exit(f"{SRC} holds no modules")
sys.exit("\n".join([*include_faults(SRC), *link_faults(SRC)]) or 0)
