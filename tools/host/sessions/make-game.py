#!/usr/bin/env python3
"""Writes game.jsonl: four gamepads that come and go, and eleven fingers on the touch screen.

    make-game.py > game.jsonl

For a desktop that has gamepads and more than one finger: a kernel with uinput (demo.sh --kernel).
"""
import json
import math

FRAME = 25  # ms between two reports of a stick or of the fingers
BUTTONS = ["A", "B", "X", "Y", "TL", "TR", "SELECT", "START", "THUMBL", "THUMBR"]
DPAD = ["DPAD_UP", "DPAD_RIGHT", "DPAD_DOWN", "DPAD_LEFT"]


def say(**record):
    print(json.dumps(record, separators=(",", ":")))


def pad(number, after=FRAME, **state):
    say(type="gamepad", after=after, pad=number, **state)


def press(number, *names):
    pad(number, after=40, buttons="|".join(names))
    pad(number, after=40, buttons="")


def curve(number, stick, x, y, steps=48):
    """The stick follows a closed curve, and lets go."""
    for i in range(steps + 1):
        turn = 2 * math.pi * i / steps
        pad(number, **{stick + "X": round(0.95 * x(turn), 4), stick + "Y": round(0.95 * y(turn), 4)})
    pad(number, **{stick + "X": 0, stick + "Y": 0})


def squeeze(number, trigger, steps=12):
    for i in range(1, 2 * steps + 1):
        pad(number, after=10, **{trigger: round(min(i, 2 * steps - i) / steps, 3)})


say(type="session", version=1, name="game", screen=[1280, 800])
print("# Made by make-game.py.")
say(type="touch-enable", enable=True)

print("# Four pads come one after the other; a game needs a moment to find each.")
for number in range(4):
    say(type="gamepad-connect", after=300, pad=number)
say(type="wait", ms=1500)

print("# Pad 0: every button, the D-pad, chords.")
for name in BUTTONS + DPAD:
    press(0, name)
press(0, "A", "B", "TL")
press(0, "DPAD_UP", "DPAD_RIGHT", "X")
press(0, "START", "SELECT")

print("# Pad 1: both sticks, a circle and an eight.")
curve(1, "left", math.cos, math.sin)
curve(1, "right", lambda t: math.sin(t), lambda t: math.sin(2 * t))

print("# Pad 2: both triggers, and the sticks as flowers.")
squeeze(2, "leftTrigger")
squeeze(2, "rightTrigger")
curve(2, "left", lambda t: math.cos(3 * t) * math.cos(t), lambda t: math.cos(3 * t) * math.sin(t), 72)
curve(2, "right", lambda t: math.cos(2 * t) * math.cos(t), lambda t: math.cos(2 * t) * math.sin(t), 72)

print("# Pad 3 goes with nothing held, and comes again.")
press(3, "Y")
say(type="gamepad-disconnect", after=300, pad=3)
say(type="gamepad-connect", after=500, pad=3)
say(type="wait", ms=1000)

print("# All four at once.")
for i in range(24):
    turn = 2 * math.pi * i / 24
    for number in range(4):
        pad(number, after=6, leftX=round(0.6 * math.cos(turn + number), 4), leftY=round(0.6 * math.sin(turn + number), 4),
            buttons=BUTTONS[(i // 6 + number) % 4])
for number in range(4):
    pad(number, leftX=0, leftY=0, buttons="")

print("# Eleven fingers open like a fan.")


def place(finger, share):
    angle = math.pi * (0.08 + 0.084 * finger)
    reach = 0.05 + 0.25 * share
    return {"x": round(0.5 - reach * math.cos(angle), 4), "y": round(0.72 - 1.3 * reach * math.sin(angle), 4)}


for finger in range(11):
    say(type="touch", after=40, fingers=[dict(id=finger, phase="down", **place(finger, 0))])
for i in range(1, 25):
    say(type="touch", after=FRAME, fingers=[dict(id=f, phase="move", **place(f, i / 24)) for f in range(11)])
for finger in range(11):
    say(type="touch", after=40, fingers=[dict(id=finger, phase="up")])

print("# Everything goes; the readers get the time to see it.")
say(type="wait", ms=500)
for number in range(4):
    say(type="gamepad-disconnect", after=100, pad=number)
say(type="wait", ms=500)
