#!/usr/bin/env python3
"""At each scale and in each palette every window fits the screen that goes with the scale, is as much larger as the scale says, and holds
its content.

Usage: skin_scales_test.py BIN
"""
import concurrent.futures
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))
import skin_pictures  # noqa: E402

SCREENS = {"": (1.0, 1280, 800), "@1.5x": (1.5, 1920, 1200), "@2x": (2.0, 2560, 1600)}
STEMS = ("template", "template-paper")
WINDOWS = ("window_login", "window_new", "window_buddylist", "window_addbuddy", "window_countdown", "window_options",
           "foreach_call/window_grace@example.org", "foreach_chat/window_grace@example.org")


class Shape:
    """What velmora-skin tells of a window in one template."""

    def __init__(self, program, template, window):
        done = subprocess.run([program, "--dir", os.path.join(skin_pictures.TOP, "skin"), "--template", template, "--places", window],
                              capture_output=True, text=True, env={**os.environ, "QT_QPA_PLATFORM": "offscreen"})
        assert done.returncode == 0, f"{template}: {window}: {done.stderr[-500:]}"
        lines = [line.split("\t") for line in done.stdout.splitlines() if line.count("\t") > 3]
        own = next(line for line in lines if re.fullmatch(r"/skin/(foreach_\w+/)?window_[^/]+", line[4], re.I) and line[5] != "content")
        attributes = dict(text.split("=", 1) for text in own[5:] if "=" in text)
        self.least = tuple(int(attributes[name]) if attributes.get(name, "").isdigit() else 0 for name in ("minwidth", "minheight"))
        # The handles at the corners reach to the window's edges.
        self.size = (max(int(line[0]) + int(line[2]) for line in lines[:-1]), max(int(line[1]) + int(line[3]) for line in lines[:-1]))
        self.content = tuple(int(number) for number in lines[-1][2:4])

    def flaws(self, scale, width, height, plain):
        if self.size[0] > width or self.size[1] > height:
            yield f"{self.size} is more than the screen of {width} by {height}"
        if self.least[0] > self.size[0] or self.least[1] > self.size[1]:
            yield f"opens at {self.size}, below its least size {self.least}"
        if self.content[0] > self.size[0] or self.content[1] > self.size[1]:
            yield f"opens at {self.size}, but its content needs {self.content}"
        for got, one in zip(self.size, plain.size):
            if abs(got - one * scale) > 2:
                yield f"{self.size} is not {scale:g} times {plain.size}"
                break


def main(binaries):
    program = os.path.join(os.path.abspath(binaries), "velmora-skin")
    listed = skin_pictures.listed(program)
    wanted = [(stem, suffix, window) for stem in STEMS for suffix in SCREENS for window in WINDOWS if window in listed]
    unknown = {name for name in listed if "/" not in name} - set(WINDOWS)
    found = [f"{name} is in no list of windows to be measured" for name in sorted(unknown)]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        shapes = dict(zip(wanted, pool.map(lambda entry: Shape(program, f"{entry[0]}{entry[1]}.xml", entry[2]), wanted)))
    for (stem, suffix, window), shape in shapes.items():
        scale, width, height = SCREENS[suffix]
        found += [f"{stem}{suffix}.xml: {window}: {flaw}" for flaw in shape.flaws(scale, width, height, shapes[(stem, "", window)])]
    print(f"{len(shapes)} windows measured, {len(found)} findings")
    if found:
        sys.exit("\n".join(found))


main(*sys.argv[1:])
