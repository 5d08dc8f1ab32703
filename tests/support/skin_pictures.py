"""Draws every picture of tests/golden/skin/pictures.txt with velmora-skin, in each palette and scale."""
import concurrent.futures
import glob
import os
import re
import shlex
import subprocess
import tempfile

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GOLDEN = os.path.join(TOP, "tests/golden/skin")
PALETTES = {"dusk": "template", "paper": "template-paper"}
SCALES = {"1x": "", "2x": "@2x"}
# What the second column of the table stands for.
WHERE = {
    "all": [("dusk", "1x"), ("dusk", "2x"), ("paper", "1x"), ("paper", "2x")],
    "two": [("dusk", "1x"), ("paper", "2x")],
    "one": [("dusk", "1x")],
}


def variants():
    """Palette, scale and template file of each variant that the skin has, the default first."""
    for palette, stem in PALETTES.items():
        for scale, suffix in SCALES.items():
            if os.path.exists(os.path.join(TOP, "skin", f"{stem}{suffix}.xml")):
                yield palette, scale, f"{stem}{suffix}.xml"


class Wanted:
    """One picture: its name without ending, its template, and the window with what it is shown with."""

    def __init__(self, name, template, words):
        self.name, self.template, self.words = name, template, words

    def draw(self, program, folder):
        path = os.path.join(folder, self.name + ".png")
        room = os.path.join(folder, ".home")
        # The same fonts, hours and screen everywhere.
        surroundings = {**os.environ, "FONTCONFIG_FILE": os.path.join(GOLDEN, "fonts.conf"), "TZ": "UTC", "LC_ALL": "C.UTF-8",
                        "QT_QPA_PLATFORM": "offscreen", "HOME": room, "XDG_RUNTIME_DIR": room, "XDG_CACHE_HOME": room}
        done = subprocess.run([program, "--dir", os.path.join(TOP, "skin"), "--template", self.template, "--render", self.words[0], path,
                               *self.words[1:]], env=surroundings, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"{self.name}: velmora-skin ended with {done.returncode}:\n{done.stderr[-2000:]}")
        return path


def windows():
    """The windows named by the table."""
    return {words[0].lower() for _, _, words in rows()}


def rows():
    with open(os.path.join(GOLDEN, "pictures.txt")) as source:
        for line in source:
            words = shlex.split(line, comments=False) if not line.startswith("#") else []
            if words:
                assert words[1] in WHERE, f"pictures.txt: '{line.strip()}'"
                yield words[0], WHERE[words[1]], words[2:]


def wanted(only=""):
    found = []
    for name, where, words in rows():
        for palette, scale, template in variants():
            if (palette, scale) in where:
                found.append(Wanted(f"{name}-{palette}-{scale}", template, words))
    return [picture for picture in found if re.search(only, picture.name)]


def draw(program, folder, pictures):
    """Draws them side by side into the folder; gives pairs of picture and file in order."""
    os.makedirs(os.path.join(folder, ".home"), mode=0o700, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        return list(zip(pictures, pool.map(lambda picture: picture.draw(program, folder), pictures)))


def listed(program):
    """The windows that the skin has, but for those that it repeats for each buddy."""
    room = tempfile.mkdtemp(prefix="velmora-pictures.")
    out = subprocess.run([program, "--dir", os.path.join(TOP, "skin"), "--list", "--empty"], check=True, capture_output=True, text=True,
                         env={**os.environ, "QT_QPA_PLATFORM": "offscreen", "XDG_RUNTIME_DIR": room}).stdout
    os.rmdir(room)
    return {line.removeprefix("/skin/").lower() for line in out.splitlines() if line.startswith("/skin/")}


def goldens():
    return {os.path.basename(path).removesuffix(".png") for path in glob.glob(os.path.join(GOLDEN, "*.png"))}
