#!/usr/bin/env python3
"""The house as its includes draw it: includes.py ROOT [FOLDER...]

For the whole product, or for each of these folders: units (a header and its source are one), arrows between them,
levels, circles; then the same between the folders below it, and each of those arrows with its weight.
"""
import collections
import pathlib
import re
import sys

PRODUCT = ("StreamSdk", "RemoteInput", "common", "rxdiag", "devstack", "tools")
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]', re.M)


def sources(root, folders=PRODUCT):
    """Texts by path from the root."""
    return {p.relative_to(root).as_posix(): p.read_text()
            for folder in folders for p in sorted((root / folder).rglob("*")) if p.suffix in (".h", ".cpp")}


def unit(path):
    return path.rpartition(".")[0]


def folder(path):
    return path.rpartition("/")[0]


def arrows(texts, room):
    """Weight of each arrow between different rooms; `room` names that of a path."""
    found = collections.Counter()
    for path, text in texts.items():
        for quote, header in INCLUDE.findall(text):
            if quote == '"' and header in texts and room(header) != room(path):
                found[room(path), room(header)] += 1
    return found


def circles(edges):
    """Strongly connected sets of more than one room (Tarjan), and the rooms from the lowest up."""
    below = collections.defaultdict(list)
    for source, target in edges:
        below[source].append(target)
        below[target]
    number, low, stack, found = {}, {}, [], []

    def visit(room):
        number[room] = low[room] = len(number)
        stack.append(room)
        for other in below[room]:
            if other not in number:
                visit(other)
            if other in stack:
                low[room] = min(low[room], low[other])
        if low[room] == number[room]:
            at = stack.index(room)
            found.append(sorted(stack[at:]))
            del stack[at:]

    sys.setrecursionlimit(10000)
    for room in list(below):
        if room not in number:
            visit(room)
    return [c for c in found if len(c) > 1], [room for c in found for room in c]


def levels(edges):
    """Number of rooms on the longest way down; a circle counts as one."""
    tied, order = circles(edges)
    same = {room: c[0] for c in tied for room in c}
    height = {}
    for room in order:
        name = same.get(room, room)
        under = [height.get(same.get(t, t), 0) for s, t in edges if same.get(s, s) == name and same.get(t, t) != name]
        height[name] = max(height.get(name, 0), 1 + max(under, default=0))
    return max(height.values(), default=1)


def show(texts, title):
    by_unit, by_folder = arrows(texts, unit), arrows(texts, folder)
    print(f"{title}: {len({unit(p) for p in texts})} units, {len(by_unit)} arrows, {levels(by_unit)} levels, "
          f"{len(circles(by_unit)[0])} circles; {len({folder(p) for p in texts})} folders, {len(by_folder)} arrows, "
          f"{levels(by_folder)} levels, {len(circles(by_folder)[0])} circles")
    for rooms in circles(by_unit)[0] + circles(by_folder)[0]:
        print("  circle: " + ", ".join(rooms))
    for (source, target), weight in sorted(by_folder.items()):
        print(f"  {source} -> {target} ({weight})")


if __name__ == "__main__":
    everything = sources(pathlib.Path(sys.argv[1]))
    for place in sys.argv[2:] or [""]:
        show({path: text for path, text in everything.items() if path.startswith(place)}, place or "the product")
