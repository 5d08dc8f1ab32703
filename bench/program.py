#!/usr/bin/env python3
"""The client as a program beside the least window that its toolkit can make: start, memory, and what it costs while nothing happens.

Usage: program.py BIN [--counts]      below tests/support/with-desktop; BIN holds bench_program, bench_window and the programs
Prints one JSON line a case as the other benchmarks do. Ends with 1 when a check that no clock enters failed.
"""
import glob
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(TOP, "tests/system"))
import desk  # noqa: E402

STARTS = 15
SETTLE_SECONDS = 6
WATCH_SECONDS = 20
COUNT_SECONDS = 5
# Far above what it needs, far below what any loop that asks again and again would take.
MOST_WAKE_UPS = 30


def report(case, unit, must, goal, project, anchor):
    """`project` and `anchor`: the values of the rounds. Ratios are of neighbours, the median counts."""
    ratios = sorted(p / a for p, a in zip(project, anchor))
    quarter = len(ratios) // 4
    spread = (ratios[-1 - quarter] - ratios[quarter]) / statistics.median(ratios) * 100 if statistics.median(ratios) else 0
    ratio = statistics.median(ratios)
    print(json.dumps({"bench": "program", "case": case, "project": round(statistics.median(project), 4),
                      "anchor": round(statistics.median(anchor), 4), "ratio": round(ratio, 3), "n": len(ratios),
                      "spread_pct": round(spread, 1), "unit": unit, "must": must, "goal": goal}), flush=True)
    return ratio <= must


def first_pixels(binaries, folder, *command):
    out = subprocess.run([os.path.join(binaries, "bench_program"), *command], cwd=folder, capture_output=True, text=True, check=True).stdout
    wall, processor = out.split()
    return float(wall), float(processor)


def tasks(pid):
    """Of every thread: how often it began to wait of its own accord, and its processor time in seconds."""
    found = {}
    for task in glob.glob(f"/proc/{pid}/task/*"):
        try:
            with open(task + "/status") as status, open(task + "/schedstat") as schedule:
                waits = next(int(line.split()[1]) for line in status if line.startswith("voluntary_ctxt_switches"))
                found[task] = waits, int(schedule.read().split()[0]) * 1e-9
        except FileNotFoundError:
            pass
    return found


def watch(pid, seconds):
    """Wake-ups a second and per cent of a core."""
    before, begin = tasks(pid), time.monotonic()
    time.sleep(seconds)
    after, passed = tasks(pid), time.monotonic() - begin
    waits, used = (sum(value[i] - before.get(task, (0, 0))[i] for task, value in after.items()) for i in (0, 1))
    return waits / passed, used / passed * 100


def memory(pid):
    """Proportional share, MiB."""
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        return next(int(line.split()[1]) for line in rollup if line.startswith("Pss:")) / 1024


class Room:
    def __init__(self, binaries):
        self.binaries = binaries
        self.folder = tempfile.mkdtemp(prefix="velmora-bench.")
        self.server = None
        self.processes = []

    def home(self, name, *settings):
        folder = os.path.join(self.folder, name)
        desk.run(os.path.join(TOP, "tools/make-home"), folder, "First_Run_Complete=1", *settings)
        return folder

    def run(self, folder, *command):
        process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.processes.append(process)
        return process

    def client_on_line(self):
        """A client that is logged on and shows its buddy list."""
        self.server = desk.Server(self.binaries, os.path.join(self.folder, "server"))
        self.server.start()
        self.server.command("user", "add", "ann", "ann's secret", "ann@example.org")
        home = self.home("ann", f"AUTHENTICATE_Host={self.server.host}", "Local_User_GUID=ann@velmora.local", "Local_Password=ann's secret")
        client = self.run(home, os.path.join(self.binaries, "velmora"), "-norestart", "-silent", "-log", "x")

        def is_on_line():
            try:
                with open(os.path.join(home, "velmora.log"), errors="replace") as log:
                    return "Changing state to 'Online'" in log.read()
            except FileNotFoundError:
                return False
        desk.wait(60, is_on_line, "the client to be on line")
        desk.wait(60, lambda: desk.run("xdotool", "search", "--onlyvisible", "--name", "^Velmora$", check=False), "its buddy list")
        time.sleep(SETTLE_SECONDS)
        return client.pid

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()
        if self.server:
            self.server.kill()
        shutil.rmtree(self.folder)


def starts(room):
    velmora, window = os.path.join(room.binaries, "velmora"), os.path.join(room.binaries, "bench_window")
    rounds = {"wall": ([], []), "processor": ([], [])}
    for number in range(STARTS + 1):
        home = room.home(f"start{number}")
        ours = first_pixels(room.binaries, home, velmora, "-norestart", "-silent", "-log", "x")
        anchor = first_pixels(room.binaries, home, window)
        if number:  # The first warms the caches.
            for i, what in enumerate(rounds):
                rounds[what][0].append(ours[i])
                rounds[what][1].append(anchor[i])
    report("start to first pixels", "ms", 3, 1.5, *rounds["wall"])
    report("start to first pixels, processor time", "ms", 3, 1.5, *rounds["processor"])


def main():
    binaries, counts = os.path.abspath(sys.argv[1]), "--counts" in sys.argv[2:]
    room, good = Room(binaries), True
    try:
        if not counts:
            starts(room)
        pid = room.client_on_line()
        if counts:
            wakes, _ = watch(pid, COUNT_SECONDS)
            good = report("wake-ups a second while nothing happens", "wake-ups", 1, 1, [wakes], [MOST_WAKE_UPS])
        else:
            rounds = [watch(pid, WATCH_SECONDS / 5) for _ in range(5)]
            window = room.run(room.folder, os.path.join(binaries, "bench_window"))
            time.sleep(2)
            report("resident memory (PSS)", "MiB", 2, 1.5, [memory(pid)], [memory(window.pid)])
            report("idle, per cent of a core", "%", 0.3, 0.05, [used for _, used in rounds], [1] * 5)
            report("idle, wake-ups a second", "wake-ups", 20, 10, [wakes for wakes, _ in rounds], [1] * 5)
    finally:
        room.close()
    sys.exit(0 if good else 1)


main()
