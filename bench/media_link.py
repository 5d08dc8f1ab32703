"""Words from mouth to ear, pictures from camera to screen, and the cost of many buddies, on the real programs.

Usage: media_link.py BIN [--counts] [--buddies N,N...] [--seconds N]      as root; BIN holds the programs and the tests' tools
Prints one JSON line a case as the other benchmarks do; the tables of both tests go to the standard error. What no clock enters is
held by the tests themselves, so --counts has nothing to do.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PREBUFFER = 500
# Milliseconds: what must be and what is aimed at, on a clean link.
EAR = {"letter": (PREBUFFER + 60, PREBUFFER + 60), "remedy": (90, 45)}
# Per cent of a core for each buddy who is shown and sees.
A_BUDDY = (0.5, 0.25)


def report(case, unit, must, goal, value):
    print(json.dumps({"bench": "media_link", "case": case, "project": value, "anchor": 1, "ratio": value, "n": 1, "spread_pct": 0,
                      "unit": unit, "must": must, "goal": goal}), flush=True)


def measure(test, *options):
    with tempfile.NamedTemporaryFile("r", suffix=".jsonl") as kept:
        subprocess.run([os.path.join(TOP, "tests/system", test), *options, "--keep", kept.name], check=True, stdout=sys.stderr)
        return [json.loads(line) for line in kept]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries")
    parser.add_argument("--counts", action="store_true")
    parser.add_argument("--buddies", default="1,10,100")
    parser.add_argument("--seconds", type=float, default=15)
    options = parser.parse_args()
    if options.counts:
        return
    for row in measure("media_test.py", options.binaries, options.binaries, "--seconds", str(options.seconds)):
        name = f"{row['mode']}, {row['link']}"
        must, goal = EAR[row["mode"]] if row["link"] == "clean" else (2000, EAR[row["mode"]][0] + 60)
        report(f"mouth to ear, {name}", "ms", must, goal, row["ear_ms"] or 9999)
        report(f"clicks missed, {name}", "%", 25, 5, round(100 - 100 * row["heard"] / row["spoken"], 1))
        report(f"camera to screen, {name}", "ms", 400, 200, row["picture_ms"] or 9999)
        report(f"pictures while talking, {name}", "pictures/s", 2.5, 3.5, row["pictures_s"])
        report(f"pictures that are smeared, {name}", "%", 60, 10, round(100 * row["unreadable"] / max(1, row["pictures"]), 1))
        report(f"talker, {name}", "% of a core", 20, 10, row["talker_cpu_pct"])
        report(f"listener, {name}", "% of a core", 20, 10, row["listener_cpu_pct"])
    for row in measure("media_crowd_test.py", options.binaries, options.binaries, "--seconds", str(options.seconds), "--buddies", options.buddies):
        must, goal = (limit * row["buddies"] + 10 for limit in A_BUDDY)
        report(f"{row['buddies']} buddies, {row['mode']}", "% of a core", must, goal, row["cpu_pct"])


main()
