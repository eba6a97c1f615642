#!/usr/bin/env python3
"""Writes the seeds of EventStreamFuzzer: make_event_corpus.py FOLDER

A seed is a byte of options and then operations, each a byte and its arguments in the layout of the records.
"""
import pathlib
import struct
import sys

(KEY, MOUSE, MOUSE_SETTINGS, GAMEPAD, TOUCH, OTHER, BLOCK, UNBLOCK, UNBLOCK_ALL, PAUSE, RESET, TOUCH_ENABLE, ALLOW,
 STREAM_EVENT, REFUSE) = range(15)
SHIFT, CONTROL, ALT, META, ABS = 1, 2, 4, 8, 0x800
DOWN, UP, MOVE, CANCEL = 1, 2, 4, 8
TIMES = struct.pack("<QQ", 5_000_000_000, 1_000_000)  # received, sent

KEY_RECORD = "iHHi4xQ"
MOUSE_RECORD = "iHhhhh2xIhhQ"
# The sizes that StreamSdk/include/ZuStreamInput.h asserts: with others, all that follows would be read askew.
assert struct.calcsize("<" + KEY_RECORD) == 24 and struct.calcsize("<" + MOUSE_RECORD) == 32


def key(code, down, flags=0, capture=1000):
    return struct.pack("<B" + KEY_RECORD, KEY, code, 0, flags, 2 if down else 1, capture) + TIMES


def mouse(kind, x=0, y=0, data1=0, data2=0, wheel=0, flags=0, capture=1000):
    return struct.pack("<B" + MOUSE_RECORD, MOUSE, kind, flags, x, y, data1, data2, 0, wheel, 0, capture) + TIMES


def button(number, down):
    return mouse(3, data1=number, data2=2 if down else 1)


def settings(acceleration, sensitivity):
    return struct.pack("<BII", MOUSE_SETTINGS, acceleration, sensitivity) + TIMES


def payload(data):
    return struct.pack("<BH", GAMEPAD, len(data)) + data + TIMES


def pad(number, bitmap, buttons=0, triggers=0, sticks=(0, 0, 0, 0), capture=None):
    data = struct.pack("<HHHHHHhhhhHI", 26, number, bitmap, 20, buttons, triggers, *sticks, 0, 0)
    return payload(data if capture is None else data + struct.pack("<Q", capture))


def touch(*points):
    return struct.pack("<BB", TOUCH, len(points)) + b"".join(struct.pack("<BBHH", *p) for p in points) + TIMES


def control(operation, *values):
    return bytes([operation]) + b"".join(struct.pack("<H", v) for v in values)


def switch(operation, on):
    return bytes([operation, on])


RESET_ALL = control(RESET)
SEEDS = {
    "text": (0, key(65, True, SHIFT), key(65, False, SHIFT), key(256, True), key(256, False), key(1024, True),
             RESET_ALL, key(66, True), key(66, True)),
    "altgr": (0, key(772, True, CONTROL), key(775, True, CONTROL | ALT), key(69, True, CONTROL | ALT),
              key(69, False, CONTROL | ALT), key(770, True, CONTROL | ALT), RESET_ALL, key(69, True, CONTROL | ALT),
              key(775, False, CONTROL), key(772, False), key(785, True, META)),
    "blocked": (0, control(BLOCK, ALT, 1027), key(1027, True, ALT), key(1027, True), control(UNBLOCK, ALT, 1027),
                control(BLOCK, 0, 65535), key(65, True), control(UNBLOCK_ALL), key(65, True), control(UNBLOCK, 1, 2)),
    "mouse": (0, mouse(1, 5, -3), mouse(1, 10, 20, 1920, 1080, flags=ABS, capture=2000), button(1, True),
              mouse(2, wheel=-120), button(3, True), RESET_ALL, button(5, True), mouse(1, -1, -1, 0, 0, flags=ABS),
              mouse(1, -1, -1, 1, 1, flags=ABS, capture=9000)),
    "mouse-burst": (0, *(mouse(1, i, -i, capture=1000 * i) for i in range(1, 25)), button(2, True), RESET_ALL),
    "mouse-without-display": (1, mouse(1, 5, -3), button(1, True), RESET_ALL),
    "mouse-without-cursor": (6, settings(1, 10), mouse(1, 10, 20, 100, 100, flags=ABS), button(2, True),
                             button(2, False)),
    "settings": (0, settings(0, 10), settings(1, 20), settings(1, 4000000000), settings(7, 0), mouse(1, 1, 1),
                 switch(ALLOW, 1)),
    "pads": (0, pad(0, 1), pad(0, 1, 0x1000, 0x80FF, (100, -32768, 5, 6), 1000), pad(1, 3, 0x000F), pad(0, 3, 0x0005),
             pad(3, 3), pad(4, 0xFFFF), pad(65535, 1), pad(0, 0)),
    "pad-sizes": (0, payload(b""), payload(bytes(25)), payload(b"\x1a" + bytes(25)), payload(bytes(33)),
                  payload(bytes(35))),
    "touch": (0, touch((1, DOWN, 1, 2)), switch(TOUCH_ENABLE, 1), touch((1, DOWN, 10, 20), (2, DOWN, 30, 40)),
              touch((1, MOVE, 65535, 0), (1, UP, 0, 0), (2, CANCEL, 0, 0)), touch(),
              touch(*((i, DOWN, i, i) for i in range(13))), switch(TOUCH_ENABLE, 0), switch(TOUCH_ENABLE, 1),
              touch((5, UP | DOWN, 1, 1), (5, UP, 1, 1))),
    "paused": (0, key(65, True), switch(PAUSE, 1), key(66, True), button(1, True), RESET_ALL, switch(PAUSE, 0),
               key(67, True), button(1, True)),
    "refused": (0, switch(REFUSE, 1), pad(0, 1, 0x1000), switch(TOUCH_ENABLE, 1), switch(REFUSE, 0), pad(1, 3),
                switch(TOUCH_ENABLE, 1), touch((1, DOWN, 1, 1))),
    "no-devices": (8, key(65, True), button(1, True), pad(0, 1), RESET_ALL),
    "others": (0, *(bytes([OTHER, kind & 0xFF]) + bytes(64) + TIMES for kind in (0, 4, 13, 14, 22, -1)),
               *(struct.pack("<Bii", STREAM_EVENT, kind, 200) for kind in (101, 102, 105))),
}


def main(folder):
    for name, (options, *operations) in SEEDS.items():
        (folder / name).write_bytes(bytes([options]) + b"".join(operations))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
