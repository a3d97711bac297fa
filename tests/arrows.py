#!/usr/bin/env python3
"""Holds what each module of src/ includes and links against the table in ARCHITECTURE.md."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).parents[1]
TABLE = (ROOT / "ARCHITECTURE.md").read_text().partition("## Modules")[2].partition("\n## ")[0]
USES = {module: re.findall(r"[\w/]+", used)
        for module, used in re.findall(r"^\| `([\w/]+)` \|.*\|([^|]*)\|$", TABLE, re.M)}

# Header or target -> the modules that may use it, besides what the table says.
ONLY = {
    r"mosquitto\.h|MOSQUITTO|mqtt_protocol\.h": {"lapi_mqtt/mqtt"},
    r"(?i:openssl)": {"lapi_mqtt/network"},
    r"(?i:rapidjson)": {"dump"},
    r"sqlite3?\b|SQLite": {"unit/store"},
    r"google/protobuf|protobuf::": {"platform", "protocol", "lapi_mqtt/sysparam", "unit"},
    r"sysparam\.pb\.h$|sysparam_messages$": {"protocol", "lapi_mqtt/sysparam", "unit"},
    r"^lapi_mqtt/service_client\.h$": {"lapi_mqtt/transport", "unit"},
    r"ecu::lapi$": {"main", "monitor", "restore", "unit"},
}
GENERATED = {"system_parameter_entry.pb.h": "platform/", "sysparam.pb.h": "protocol/"}


def module_of(path):
    """The innermost module that a path below src/ lies in; None outside of them."""
    parents = pathlib.PurePath(GENERATED.get(path, re.sub("^ecu/", "platform/", path)) + "x").parents
    return next((str(place) for place in parents if str(place) in USES), None)


def may_use(module, name, owner):
    beside = pathlib.PurePath(module).parent
    allowed = {None, module, "platform", *USES[module], *(str(beside / used) for used in USES[module])}
    return owner in allowed and not any(re.search(pattern, name) and module not in modules
                                        for pattern, modules in ONLY.items())


def found(suffix, pattern):
    """File, its module and what its text has of the pattern."""
    for path in sorted((ROOT / "src").glob(f"*/**/*{suffix}")):
        for match in re.findall(pattern, re.sub("#(?!include).*", "", path.read_text()), re.M):
            yield path.relative_to(ROOT), module_of(str(path.relative_to(ROOT / "src"))), match


uses = [(path, module, name, module_of(name)) for suffix in (".cpp", ".h")
        for path, module, name in found(suffix, r'^#include [<"]([^">]+)[">]')]
owners = {target: module for _, module, target in
          found("CMakeLists.txt", r"\b(?:add_library|add_executable|korvid_\w+)\(([\w-]+)")}
uses += [(path, module, name, owners.get(name)) for path, module, names in
         found("CMakeLists.txt", r"(?:\bLINKS|target_link_libraries\(\S+)\s([^)]*)\)") for name in names.split()]
if len(USES) < 20 or len(uses) < 300:
    sys.exit("the modules or their files were not found")
sys.exit("\n".join(f"{path}: {module} uses {name}" for path, module, name, owner in uses
                   if module is None or not may_use(module, name, owner)) or 0)
