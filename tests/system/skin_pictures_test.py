#!/usr/bin/env python3
"""The skin looks as its pictures in tests/golden/skin: every window, in both palettes, at 1x and 2x.

Usage: skin_pictures_test.py BIN OUT      differences leave NAME.expected.png, NAME.actual.png and NAME.diff.png in OUT
"""
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))
import pictures  # noqa: E402
import skin_pictures  # noqa: E402

HINT = "If it is meant, run tools/skin-pictures, look at the pictures and commit them."


def compare(wanted, path, out):
    """What is wrong with a picture, or nothing."""
    golden = os.path.join(skin_pictures.GOLDEN, wanted.name + ".png")
    if not os.path.exists(golden):
        return "has no picture to be compared with"
    difference = pictures.Difference(pictures.Picture.read(golden), pictures.Picture.read(path))
    if not difference:
        return ""
    stem = os.path.join(out, wanted.name)
    shutil.copy(golden, stem + ".expected.png")
    shutil.copy(path, stem + ".actual.png")
    difference.picture().write(stem + ".diff.png")
    return f"{difference}\n    {stem}.{{expected,actual,diff}}.png"


def main(binaries, out):
    program = os.path.join(os.path.abspath(binaries), "velmora-skin")
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    wanted = skin_pictures.wanted()
    found = [f"{name}: nothing draws this picture" for name in sorted(skin_pictures.goldens() - {w.name for w in wanted})]
    found += [f"{name}: no picture in pictures.txt shows this window"
              for name in sorted(skin_pictures.listed(program) - skin_pictures.windows())]
    room = tempfile.mkdtemp(prefix="velmora-pictures.")
    try:
        for picture, path in skin_pictures.draw(program, room, wanted):
            problem = compare(picture, path, out)
            if problem:
                found.append(f"{picture.name}: {problem}")
    finally:
        shutil.rmtree(room)
    print(f"{len(wanted)} pictures compared, {len(found)} findings")
    if found:
        print("\n".join(found))
        print(HINT)
        sys.exit(1)


main(*sys.argv[1:])
