#!/usr/bin/env python3
"""What a client costs that shows many buddies and is seen by as many: all pictures come, and how much of a core it takes.

Usage: media_crowd_test.py BIN TOOLS [--buddies N,N...] [--seconds N] [--both-ways] [--keep FILE]      as root; TOOLS holds media_crowd
  --buddies     12 by default      --seconds   of watching a row, 5 by default      --keep   appends the figures to a file as JSON lines
  --ways        "both", "shown" and "seen", both by default: who sends pictures        --modes   letter,remedy; both by default

Ten minutes with a hundred: media_crowd_test.py BIN TOOLS --buddies 100 --seconds 600 --modes remedy
"""
import argparse
import os
import subprocess
import sys
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(TOP, "tests/net/lib"))
import clients  # noqa: E402
import desk  # noqa: E402
import media_lab  # noqa: E402
import netlab  # noqa: E402

CROWD = "5.5.5.30"
WIDTH = 280
BESIDE_ROWS = 160  # Of the window's height.
CHANGE_SECONDS = 20
LEAST_RATE = 0.6  # Pictures a second: one is meant, and a camera of seven a second gives one every eight sevenths.


class Crowd:
    """So many buddies of one client, in one program."""

    def __init__(self, lab, program, server, count, silent):
        self.count = count
        words = [program, server.logon, CROWD, str(count)] + (["silent"] if silent else [])
        folder = os.path.join(lab.folder, "crowd")
        os.makedirs(folder, exist_ok=True)
        self.process = lab.crowd_host.start(*words, cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def ask(self):
        """On line, streams, pictures sent, pictures received."""
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        words = self.process.stdout.readline().split()
        assert words, "the crowd ended"
        return [int(word) for word in words]

    def end(self):
        self.process.stdin.close()
        self.process.wait(30)


class Watch:
    def __init__(self, lab, binaries, tools, most):
        self.lab, self.tools = lab, tools
        self.server = clients.Server(lab, binaries)
        self.sound = media_lab.Table(lab, ["eve"])
        lab.crowd_host = lab.public_host(CROWD)
        self.eve = clients.Client(self.server, self.sound, "eve", lab.public_host("5.5.5.20"), tone=0)
        self.picture, self.row = desk.Skin(binaries).first_picture(), None
        self.eve.screen = f"{WIDTH}x{self.height(most)}x24"
        media_lab.equip(self.eve, media_lab.Camera(self.eve.host, 47000))
        for number in range(most):
            self.server.command("user", "add", f"crowd{number}", "crowd")
        self.server.start()

    @staticmethod
    def height(count):
        return max(480, BESIDE_ROWS + media_lab.ROW * count)

    def befriend(self, count):
        for number in range(count):
            self.server.command("buddy", "add", "eve", f"crowd{number}")

    def meet(self, count, silent, *settings):
        """Everybody is on line and connected."""
        crowd = Crowd(self.lab, os.path.join(self.tools, "media_crowd"), self.server, count, silent)
        clients.wait(60 + count, lambda: crowd.ask()[0] == count, "the crowd to be on line")
        media_lab.start(self.eve, settings, height=self.height(count), y=0)
        self.eve.online()
        clients.wait(60 + count, lambda: crowd.ask()[1] >= count, "the crowd to be connected")
        return crowd

    def pixels(self, count):
        """The pictures on the screen, one bytes object a buddy."""
        x, y, width, height = self.picture
        left, top = media_lab.list_place(self.eve)
        shot = self.eve.host.run("import", "-silent", "-window", "root", "-crop", f"{width}x{self.height(count)}+{left + x}+0", "-depth", "8",
                                 "rgb:" + os.path.join(self.lab.folder, "shot"), env={**os.environ, "DISPLAY": self.eve._display})
        del shot
        with open(os.path.join(self.lab.folder, "shot"), "rb") as source:
            data = source.read()
        line = 3 * width
        return [data[(top + y + media_lab.ROW * i) * line:(top + y + media_lab.ROW * i + height) * line] for i in range(count)]

    def all_change(self, count):
        """Every buddy's picture on the screen becomes another."""
        first, still = self.pixels(count), set(range(count))

        def moved():
            now = self.pixels(count)
            still.difference_update([i for i in still if desk.difference(first[i], now[i]) > 2])
            return not still
        try:
            clients.wait(CHANGE_SECONDS, moved, "")
        except AssertionError:
            raise AssertionError(f"{len(still)} of {count} pictures do not change: {sorted(still)[:10]}") from None

    def row_of(self, crowd, way, seconds):
        if way != "seen":
            self.all_change(crowd.count)
        time.sleep(2)
        _, _, sent, received = crowd.ask()
        pid = self.eve.process.pid
        used, moment = media_lab.processor_times(pid), time.monotonic()
        memory = media_lab.memory(pid)
        time.sleep(seconds)
        passed = time.monotonic() - moment
        used = {name: value - used.get(name, 0) for name, value in media_lab.processor_times(pid).items()}
        _, _, sent_now, received_now = crowd.ask()
        return {"cpu": 100 * sum(used.values()) / passed, "threads": sorted(((100 * v / passed, n) for n, v in used.items()), reverse=True)[:4],
                "shown_s": (sent_now - sent) / passed, "seen_s": (received_now - received) / passed, "memory": memory,
                "grown": media_lab.memory(pid) - memory}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries")
    parser.add_argument("tools")
    parser.add_argument("--buddies", default="12")
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--ways", default="both")
    parser.add_argument("--modes", default="letter,remedy")
    parser.add_argument("--keep")
    options = parser.parse_args()
    netlab.need_root()
    media_lab.go_first()
    counts = sorted(int(word) for word in options.buddies.split(","))
    rows = []
    with netlab.Lab() as lab:
        watch = Watch(lab, os.path.abspath(options.binaries), os.path.abspath(options.tools), counts[-1])
        try:
            print(f"{'':8}{'buddies':>8}{'way':>8}{'of a core':>12}{'shown/s':>10}{'seen/s':>10}{'memory, MiB':>14}{'grown, KiB':>12}   busiest threads", flush=True)
            for count in counts:
                watch.befriend(count)
                for mode in options.modes.split(","):
                    for way in options.ways.split(","):
                        settings = [f"Robust_Media={int(mode == 'remedy')}"] + (["Video_Capture_Device=(none - disable video capture)"] if way == "shown" else [])
                        crowd = watch.meet(count, way == "seen", *settings)
                        row = watch.row_of(crowd, way, options.seconds)
                        busiest = ", ".join(f"{name} {share:.1f}" for share, name in row["threads"])
                        print(f"{mode:8}{count:>8}{way:>8}{row['cpu']:>11.1f}%{row['shown_s']:>10.1f}{row['seen_s']:>10.1f}{row['memory'] / 1024:>14.1f}"
                              f"{row['grown']:>12}   {busiest}", flush=True)
                        least = LEAST_RATE * count * (1 - 1 / options.seconds)
                        assert way == "seen" or row["shown_s"] >= least, "the crowd did not send"
                        assert way == "shown" or row["seen_s"] >= least, f"only {row['seen_s']:.1f} pictures a second reached {count} viewers"
                        rows.append({"bench": "media_crowd", "mode": mode, "buddies": count, "way": way, "cpu_pct": round(row["cpu"], 1),
                                     "shown_s": round(row["shown_s"], 1), "seen_s": round(row["seen_s"], 1), "memory_kib": row["memory"], "grown_kib": row["grown"]})
                        crowd.end()
        except BaseException:
            print("logs are kept in", clients.keep(lab, os.environ.get("VELMORA_KEEP", os.path.join(options.tools, "media-logs"))))
            raise
    media_lab.keep(options.keep, rows)


if __name__ == "__main__":
    main()
