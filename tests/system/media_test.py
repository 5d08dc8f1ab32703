#!/usr/bin/env python3
"""Media on the real programs: how long a word takes from mouth to ear and a picture from camera to screen, over links of every quality,
without and with the remedy; and what it costs.

Usage: media_test.py BIN TOOLS [OPTIONS]      as root; TOOLS holds link_emulator and picture_watch
  --seconds   of talk a row of the table, 5 by default      --spurts   talk spurts that must leave nothing behind, 4 by default
  --keep      appends the figures to a file, one JSON line a row
  --modes     letter,remedy; both by default                --links      some of the table's links, as "clean,5 %"; all by default

A talk key is held while clicks are played into the microphone; the table's figures are printed and judged by nobody, as a machine may be
busy. What is judged has no clock in it, or a wide one: clicks that are heard, pictures that come, threads and handles that stay as many.
"""
import argparse
import os
import statistics
import sys
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(TOP, "tests/net/lib"))
sys.path.insert(0, os.path.join(TOP, "bench"))
import cable  # noqa: E402
import clients  # noqa: E402
import desk  # noqa: E402
import media_lab  # noqa: E402
import netlab  # noqa: E402

# Milliseconds and per cent, in each direction.
CLEAN = {}
FAULTS = {"delay": 20, "jitter": 15, "reorder": 2, "duplicate": 1}
LINKS = [("clean", CLEAN)] + [(f"{loss} %", {**FAULTS, "loss": loss}) for loss in (0, 1, 5, 20)]
SETTLE = 1.5  # Seconds of talk before the first click: encoders, prebuffer, sound server.
TAIL = 1.5
PICTURE_SECONDS = 10
ATTEMPTS = 3
GROWTH_KIB = 4096  # Rooms of buffers still grow a little; an hour of talks in virtual time is held closely by HourOfTalk.
EVERY_CLICK, MOST_CLICKS = 1.0, 0.75
HEADER = f"{'':8}{'link':8}{'mouth to ear, ms':>24}{'heard':>8}{'picture age, ms':>22}{'pictures/s':>12}{'unreadable':>12}{'CPU talker':>12}{'listener':>10}"


def handles(pid):
    return len(os.listdir(f"/proc/{pid}/fd")), len(os.listdir(f"/proc/{pid}/task"))


class Meeting:
    """Ann talks to ben, who sees her; ann's cable is the faulty one."""

    def __init__(self, lab, binaries, tools):
        self.lab, self.binaries, self.tools = lab, binaries, tools
        self.server = clients.Server(lab, binaries)
        self.sound = media_lab.Table(lab, ["ann", "ben"])
        self.cable = cable.Cable(os.path.join(tools, "link_emulator"))
        self.picture = desk.Skin(binaries).first_picture()
        hosts = {"ann": lab.public_host("5.5.5.20", cable=self.cable), "ben": lab.public_host("5.5.5.21")}
        self.ann, self.ben = (clients.Client(self.server, self.sound, name, host, tone=0) for name, host in hosts.items())
        for number, person in enumerate((self.ann, self.ben)):
            media_lab.equip(person, media_lab.Camera(person.host, 47000 + number))
        clients.make_buddies(self.ann, self.ben)
        self.server.start()
        self.viewer = None

    def start(self, *settings):
        """Both anew, with settings of this run."""
        self.cable.set()
        for person in (self.ben, self.ann):
            media_lab.start(person, settings)
        self.ben.online(), self.ann.online()
        session = self.ann.session_with(self.ben, after=self.ann.began)
        self.ben.session_with(self.ann, after=self.ann.began)
        assert session.sends_directly, f"the two are connected by the relay: {session}"
        self.watch()

    def watch(self):
        """Follows ann's picture in ben's list."""
        x, y, width, height = self.picture
        left, top = media_lab.list_place(self.ben)
        if self.viewer:
            self.viewer.process.kill()
        self.viewer = media_lab.Viewer(os.path.join(self.tools, "picture_watch"), self.ben.host, self.ben._display, (left + x, top + y, width, height))
        begin = time.monotonic()
        clients.wait(20, lambda: any(age is not None for _, age in self.viewer.between(begin, begin + 60)), "ann's picture at ben's")

    # ---- A row of the table.

    def talk(self, link, seconds):
        """What came of so many seconds of clicks and pictures over such a link, the talk key held."""
        self.cable.set(**link)
        self.ann.press(self.ben)
        time.sleep(SETTLE)
        begin, moment = self.sound.place(), time.monotonic()
        used = [sum(media_lab.processor_times(person.process.pid).values()) for person in (self.ann, self.ben)]
        spoken = self.sound.play("ann", media_lab.clicks(seconds, seed=1))
        spoken.wait(seconds + 30)
        end, passed = self.sound.place(), time.monotonic() - moment
        used = [sum(media_lab.processor_times(person.process.pid).values()) - before for person, before in zip((self.ann, self.ben), used)]
        pictures = self.viewer.between(moment, moment + passed)
        time.sleep(TAIL)
        self.ann.release(self.ben)
        there, back = self.cable.count()
        channels = self.sound.read(begin, end + int(TAIL * media_lab.RATE))
        ways = media_lab.ways(channels["ann"][0][:end - begin], channels["ben"][1])
        return {"ways": ways, "pictures": pictures, "seconds": passed, "cpu": [100 * share / passed for share in used],
                "lost": there.lost + back.lost, "moment": moment}

    def picture_after(self, moment):
        """A picture that can be read, after that moment."""
        clients.wait(PICTURE_SECONDS, lambda: any(age is not None for _, age in self.viewer.between(moment, time.monotonic())), "a picture that can be read")

    def spurt(self, seconds=0.5):
        """A short talk, until ben's player has noticed its end."""
        mark = self.ben.mark()
        self.ann.press(self.ben)
        time.sleep(seconds)
        self.ann.release(self.ben)
        self.ben.said(r"Inactivity timeout|Removed '.*' from 'Listening_To_List'", 20, mark)


def spread(values, scale=1000):
    """Median, least and greatest."""
    if not values:
        return "-"
    return f"{statistics.median(values) * scale:.0f} ({min(values) * scale:.0f} to {max(values) * scale:.0f})"


def tell(mode, name, result):
    heard = [way for way in result["ways"] if way is not None]
    ages = [age for _, age in result["pictures"] if age is not None]
    count = len(result["pictures"])
    print(f"{mode:8}{name:8}{spread(heard):>24}{len(heard):>4}/{len(result['ways']):<3}{spread(ages):>22}{count / result['seconds']:>12.1f}"
          f"{count - len(ages):>9}/{count:<3}{result['cpu'][0]:>11.1f}%{result['cpu'][1]:>9.1f}%", flush=True)
    median = {"ear_ms": heard, "picture_ms": ages}
    return {"bench": "media_link", "mode": mode, "link": name, "heard": len(heard), "spoken": len(result["ways"]),
            **{key: round(statistics.median(values) * 1000, 1) if values else None for key, values in median.items()},
            "pictures": count, "pictures_s": round(count / result["seconds"], 2), "unreadable": count - len(ages),
            "talker_cpu_pct": round(result["cpu"][0], 1), "listener_cpu_pct": round(result["cpu"][1], 1)}


def is_stuttered(link, result):
    return not link.get("loss") and any(way is None for way in result["ways"])


def judge(mode, name, link, result):
    """What must hold on any machine."""
    heard = sum(way is not None for way in result["ways"])
    least = MOST_CLICKS if link.get("loss") else EVERY_CLICK
    assert len(result["ways"]) >= 5, f"only {len(result['ways'])} clicks were spoken"
    assert heard >= least * len(result["ways"]), f"{mode}, {name}: {heard} of {len(result['ways'])} clicks were heard"
    assert not link.get("loss", 0) >= 5 or result["lost"], f"{name}: the link has lost nothing"


def spurts(meeting, count):
    """Talk spurts leave no thread, handle or memory behind."""
    meeting.cable.set()
    for _ in range(2):  # The first ones fill what stays.
        meeting.spurt()
    pid = meeting.ben.process.pid

    def rest():
        now = handles(pid)
        time.sleep(1)
        return now if handles(pid) == now else None
    before, used = clients.wait(20, rest, "ben's program to rest"), media_lab.memory(pid)
    for _ in range(count):
        meeting.spurt()
    def is_given_back():
        return all(now <= then for now, then in zip(handles(pid), before))
    clients.wait(20, is_given_back, f"handles and threads to be {before} again")
    grown = media_lab.memory(pid) - used
    print(f"{count} spurts: {before[0]} handles, {before[1]} threads as before; memory {used} KiB and {grown} more", flush=True)
    assert grown < GROWTH_KIB, f"{count} spurts have left {grown} KiB behind"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries")
    parser.add_argument("tools")
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--spurts", type=int, default=4)
    parser.add_argument("--modes", default="letter,remedy")
    parser.add_argument("--links", default=",".join(name for name, _ in LINKS))
    parser.add_argument("--keep")
    options = parser.parse_args()
    netlab.need_root()
    media_lab.go_first()
    rows = []
    with netlab.Lab() as lab:
        meeting = Meeting(lab, os.path.abspath(options.binaries), os.path.abspath(options.tools))
        try:
            links = [(name, link) for name, link in LINKS if name in options.links.split(",")]
            for mode in options.modes.split(","):
                settings = [f"Robust_Media={int(mode == 'remedy')}"]
                print(HEADER, flush=True)
                for number, (name, link) in enumerate(links):
                    for attempt in range(ATTEMPTS):
                        # The letter counts a spurt's packets anew, and who listens drops what is not above the last.
                        if mode == "letter" or (number, attempt) == (0, 0):
                            meeting.start(*settings)
                        result = meeting.talk(link, options.seconds)
                        if not is_stuttered(link, result):
                            break
                        print("        again: a busy machine has let the sound stutter", flush=True)
                    rows.append(tell(mode, name, result))
                    judge(mode, name, link, result)
                    meeting.picture_after(result["moment"])
            spurts(meeting, options.spurts)
        except BaseException:
            print("logs are kept in", clients.keep(lab, os.environ.get("VELMORA_KEEP", os.path.join(options.tools, "media-logs"))))
            raise
    media_lab.keep(options.keep, rows)


if __name__ == "__main__":
    main()
