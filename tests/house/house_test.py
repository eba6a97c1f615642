#!/usr/bin/env python3
"""Holds the layers and the identifiers of log lines: house_test.py ROOT

A file of the library includes from its own floor or from floors below, and Xlib is kept out of headers; a tool's file
sees the rooms that are named here. No two units and no two
folders need each other, but for those that are named here with the reason. Every log statement has an identifier of its
own, whose upper half names its source unit.
"""
import collections
import pathlib
import re
import sys

import includes

LINUX = "RemoteInput/common/linux/"
COMMON = "RemoteInput/common/"

# The first pattern that matches names the floor.
FLOORS = [
    (r"StreamSdk/helpers/input/", 6),
    # It makes its Impl, so it is built with the responders, although its header lies below.
    (COMMON + r"RemoteInputInjector\.cpp$", 5),
    (LINUX + r"(Ri|MouseConverter|Key|DeviceCreation|RemoteInputInjectorImpl)", 5),
    (LINUX + r"(VirtualEvDev|OwnDisplays|XServerLoss|XLibLoader|XTimeLimit|ScopedDisplay)", 4),
    # The collector holds it by value; it needs only the standard library.
    (LINUX + r"TmReportingThread", 3),
    (COMMON + r"[^/]*$", 3),
    (r"(common/util|rxdiag)/", 2),
    (r"StreamSdk/include/", 1),
]

# The rooms of the tools, and what each sees beside itself.
ROOMS = {
    "tools/shared": (),
    "tools/host/session": ("tools/shared", "StreamSdk/include"),
    "tools/host/capture": ("tools/shared", "tools/host/session"),
    "tools/host/play": ("tools/shared", "tools/host/session", "StreamSdk/include", "StreamSdk/helpers/input", "devstack",
                        "common/util"),
    "tools/host/check": ("tools/shared", "tools/host/session", "tools/host/play"),
    "tools/host/report": ("tools/shared", "tools/host/session", "tools/host/play", "tools/host/check",
                          "StreamSdk/include"),
    "tools/host": ("tools/shared", "tools/host/session", "tools/host/capture", "tools/host/play", "tools/host/check",
                   "tools/host/report", "StreamSdk/include", "devstack", "common/util"),
    "tools/desktop": ("tools/shared", "common/util"),
    "tools/pads": ("tools/shared",),
}

# Headers from outside, and the files that may include them.
OUTSIDE = [
    (r"X11/", r".*\.cpp$|" + LINUX + r"XServerLoss\.h$"),
    (r"libevdev/", LINUX + r"VirtualEvDevActual\.cpp$"),
]

# Floors 3 and below are free of X11, libevdev and device nodes.
FREE_OF_DEVICES = 3
DEVICE_HEADERS = r"X11/|libevdev/|linux/"

# Units and folders that need each other, and why nothing is gained by untying them.
PERMITTED_CIRCLES = {
    # The class is private to the injector, which owns it through a pointer.
    (COMMON + "RemoteInputInjector", LINUX + "RemoteInputInjectorImpl"),
    # The collector owns the thread by value, and the thread calls this collector and nothing else.
    (COMMON + "RiReporting", LINUX + "TmReportingThread"),
    # The two above, seen from further away.
    (COMMON.rstrip("/"), LINUX.rstrip("/")),
}

# A unit that is part of another: its log lines have the other's identifiers.
PART_OF = {"VirtualEvDevFactory": "VirtualEvDev"}

STATEMENT = re.compile(r"(?:\bLOG_(?:VERBOSE|DEBUG|INFO|WARNING|ERROR)\(|\bzustWriteLogUniqueId\([^,()]+,)"
                       r"\s*([^,]+),")
IDENTIFIER = re.compile(r"0x[0-9A-Fa-f]{8}$")


def floor_of(path):
    return next((floor for pattern, floor in FLOORS if re.match(pattern, path)), None)


def check_includes(path, lines, files):
    floor = floor_of(path)
    if floor is None:
        yield f"{path}: on no floor"
        return
    for number, line in enumerate(lines, 1):
        match = includes.INCLUDE.match(line)
        if not match:
            continue
        quote, header = match.groups()
        where = f"{path}:{number}: {header}"
        if quote == "<":
            for pattern, allowed in OUTSIDE:
                if re.match(pattern, header) and not re.match(allowed, path):
                    yield f"{where}: not to be included here"
            if floor <= FREE_OF_DEVICES and re.match(DEVICE_HEADERS, header):
                yield f"{where}: floor {floor} knows no devices"
            continue
        if "/" not in header and "StreamSdk/include/" + header in files:
            header = "StreamSdk/include/" + header  # installed headers reach each other by name
        if header not in files:
            yield f"{where}: no such file from the root"
        elif floor_of(header) > floor:
            yield f"{where}: floor {floor} includes from floor {floor_of(header)}"


def check_rooms(texts):
    for path, text in texts.items():
        room = includes.folder(path)
        for quote, header in includes.INCLUDE.findall(text):
            if quote == '"' and includes.folder(header) not in (room, *ROOMS.get(room, ())):
                yield f"{path}: {header}: {room} does not see it"


def check_circles(texts, permitted):
    found = {circle for room in (includes.unit, includes.folder)
             for circle in includes.circles(includes.arrows(texts, room))[0]}
    for circle in sorted(found - permitted):
        yield f"a circle: {', '.join(circle)}"
    for circle in sorted(permitted - found):
        yield f"permitted, but no circle any more: {', '.join(circle)}"


def check_identifiers(texts):
    places = collections.defaultdict(list)
    units = collections.defaultdict(set)
    halves = collections.defaultdict(set)
    for path, text in texts.items():
        code = re.sub(r"//.*|^\s*#\s*define.*$", "", text, flags=re.M)
        code = re.sub(r"\bvoid zustWriteLogUniqueId\([^;]*;", "", code)  # its declaration
        for match in STATEMENT.finditer(code):
            identifier = match.group(1).strip()
            if not IDENTIFIER.match(identifier):
                yield f"{path}: the identifier '{identifier}' is not a literal of eight digits"
                continue
            places[int(identifier, 16)].append(path)
            unit = pathlib.PurePath(path).stem
            unit = PART_OF.get(unit, unit)
            units[int(identifier, 16) >> 16].add(unit)
            halves[unit].add(int(identifier, 16) >> 16)
    for identifier, where in places.items():
        if len(where) > 1:
            yield f"0x{identifier:08X} is used {len(where)} times: {', '.join(where)}"
    for half, names in units.items():
        if len(names) > 1:
            yield f"0x{half:04X}.... belongs to {', '.join(sorted(names))}"
    for unit, numbers in halves.items():
        if len(numbers) > 1:
            yield f"{unit} has the upper halves {', '.join(f'0x{n:04X}' for n in sorted(numbers))}"
    if len(places) < 50:
        yield f"only {len(places)} log statements were found: the pattern no longer fits"


def main(root):
    texts = includes.sources(root, ("StreamSdk", "RemoteInput", "common", "rxdiag"))
    faults = [fault for path, text in texts.items() for fault in check_includes(path, text.splitlines(), texts)]
    tools = includes.sources(root, ("tools",))
    faults += check_rooms(tools)
    faults += check_circles(includes.sources(root), PERMITTED_CIRCLES)
    faults += check_identifiers(texts)
    print("\n".join(faults) or f"{len(texts) + len(tools)} files are in order")
    return 1 if faults or not texts or not tools else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
