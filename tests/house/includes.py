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
    """Sets of more than one room that need each other, and the number of rooms on the longest way down: a circle counts
    as one."""
    below = {}
    for source, target in edges:
        below.setdefault(source, set()).add(target)
        below.setdefault(target, set())
    for via in below:  # everything that can be reached
        for room in below:
            if via in below[room]:
                below[room] |= below[via]
    tied = {tuple(sorted(t for t in targets if room in below[t])) or (room,) for room, targets in below.items()}
    height = {}
    for circle in sorted(tied, key=lambda c: len(below[c[0]].union(c))):
        under = [height[other] for other in height if other[0] in below[circle[0]]]
        height[circle] = 1 + max(under, default=0)
    return sorted(c for c in tied if len(c) > 1), max(height.values(), default=1)


def show(texts, title):
    for room in (unit, folder):
        found = arrows(texts, room)
        tied, levels = circles(found)
        print(f"{title}: {len({room(p) for p in texts})} {room.__name__}s, {len(found)} arrows, {levels} levels, "
              f"{len(tied)} circles")
        for circle in tied:
            print("  circle: " + ", ".join(circle))
    for (source, target), weight in sorted(found.items()):
        print(f"  {source} -> {target} ({weight})")


if __name__ == "__main__":
    everything = sources(pathlib.Path(sys.argv[1]))
    for place in sys.argv[2:] or [""]:
        show({path: text for path, text in everything.items() if path.startswith(place)}, place or "the product")
