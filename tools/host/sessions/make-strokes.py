#!/usr/bin/env python3
"""Writes strokes.jsonl: handwriting of a 1000 Hz mouse, first as steps, then as positions.

Letters are loops on a line that runs to the right, as a pen draws a cursive "elle": low loops are an e, high ones an l.
The drawing button is held along each word.
"""
import json
import math

WIDTH, HEIGHT = 1280, 800
LOW, HIGH = 30.0, 72.0  # half the height of a loop, pixels

lines = []


def put(**fields):
    lines.append(json.dumps(fields, separators=(",", ":")))


def word(heights, x, y, advance, ms_per_letter):
    """Positions of the pen, one per millisecond."""
    count = len(heights) * ms_per_letter
    for i in range(count + 1):
        t = i / ms_per_letter
        letter = min(int(t), len(heights) - 1)
        # The height changes where the pen is at the foot of the line.
        height = heights[letter]
        turn = 2 * math.pi * t
        yield (
            x + advance * t + (27 if height == LOW else 33) * math.sin(turn),
            y - height * (1 - math.cos(turn)),
        )


def click_down():
    put(type="button", after=20, button="LEFT", state="down")


def click_up():
    put(type="button", after=60, button="LEFT", state="up")


def steps(points):
    """The same path as whole steps; what is rounded off is carried on, so that the end is exact."""
    points = list(points)
    at_x, at_y = round(points[0][0]), round(points[0][1])
    after = 0
    for x, y in points[1:]:
        after += 1
        dx, dy = round(x) - at_x, round(y) - at_y
        if dx == 0 and dy == 0:
            continue  # a mouse that does not move says nothing
        put(type="move", after=after, dx=dx, dy=dy)
        at_x, at_y, after = at_x + dx, at_y + dy, 0


def positions(points):
    last, after = None, 0
    for x, y in points:
        after += 1
        position = {"x": round(x / WIDTH, 4), "y": round(y / HEIGHT, 4)}
        if position == last:
            continue
        put(type="move", after=after, **position)
        last, after = position, 0


def go_to(x, y):
    # Twice: an injector that starts cold does not know the screen at its first absolute move.
    for after in (50, 50):
        put(type="move", after=after, x=round(x / WIDTH, 4), y=round(y / HEIGHT, 4))


put(type="session", version=1, name="strokes", screen=[WIDTH, HEIGHT])
lines.append("# Made by make-strokes.py.")

lines.append('# "elle" and "lele", as relative steps.')
put(type="wait", ms=200)
for heights, x, y in (((LOW, HIGH, HIGH, LOW), 150, 390), ((HIGH, LOW, HIGH, LOW), 720, 390)):
    go_to(x, y)
    put(type="wait", ms=100)
    click_down()
    steps(word(heights, x, y, 105, 260))
    click_up()

lines.append("# The wheel, both ways.")
for vertical in (120, 120, 120, -120, -120, -120):
    put(type="wheel", after=30, vertical=vertical)

lines.append('# "elle" and a flourish, as absolute positions.')
go_to(150, 600)
put(type="wait", ms=100)
click_down()
positions(word((LOW, HIGH, HIGH, LOW), 150, 600, 105, 260))
click_up()
go_to(960, 530)
put(type="wait", ms=100)
click_down()
positions(
    (960 + 190 * math.sin(2 * math.pi * i / 900) * (1 - i / 3000), 530 + 70 * math.sin(4 * math.pi * i / 900))
    for i in range(901)
)
click_up()

with open("strokes.jsonl", "w", encoding="utf-8") as out:
    out.write("\n".join(lines) + "\n")
