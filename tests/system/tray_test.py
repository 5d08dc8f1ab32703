#!/usr/bin/env python3
"""The real client with a stored account and the tray: it starts into the tray when there is one, and never hides into nothing.

Usage: tray_test.py BIN      below tests/support/with-desktop
"""
import os
import shutil
import subprocess
import sys
import time

import desk

TITLE = "Velmora"


class Tray:
    def __enter__(self):
        self.process = subprocess.Popen(["trayer", "--edge", "bottom", "--align", "right", "--widthtype", "request", "--height", "24"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        desk.wait(10, lambda: self.find(), "the tray")
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def find(self):
        found = desk.run("xdotool", "search", "--class", "trayer", check=False).split()
        return desk.Window(found[-1]) if found else None

    def double_click_icon(self):
        def icon():
            x, y, width, height = self.find().geometry()
            return (x + width // 2, y + height // 2) if width >= 16 else None
        x, y = desk.wait(10, icon, "the icon in the tray")
        desk.run("xdotool", "mousemove", str(x), str(y), "sleep", "0.2", "click", "--repeat", "2", "--delay", "60", "1")


class Story:
    def __init__(self, binaries):
        self.program, self.room = os.path.join(os.path.abspath(binaries), "velmora"), desk.scratch()
        self.process, self.skin = None, desk.Skin(os.path.abspath(binaries))

    def start(self, name):
        """A client that has logged on before; its server is not there now."""
        folder = os.path.join(self.room, name)
        desk.run(os.path.join(desk.TOP, "tools/make-home"), folder, "AUTHENTICATE_Host=127.0.0.1:9", "First_Run_Complete=1",
                 "First_Logon_Complete=1", "Local_User_GUID=ann@velmora.local", "Local_Password=secret")
        self.log_path = os.path.join(folder, "velmora.log")
        self.process = subprocess.Popen([self.program, "-log", "xV", "-silent", "-norestart"], cwd=folder, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, env={**os.environ, "PULSE_SERVER": "unix:/nonexistent"})

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            self.process.wait(20)

    def search(self, *options):
        found = desk.run("xdotool", "search", "--all", *options, "--pid", str(self.process.pid), "--name", f"^{TITLE}$", check=False).split()
        return desk.Window(found[0]) if found else None

    def visible(self):
        return self.search("--onlyvisible")

    def state(self):
        """What the window manager says: Normal, Iconic, Withdrawn, or nothing."""
        window = self.search()
        words = desk.run("xprop", "-id", window.number, "WM_STATE", check=False).split() if window else []
        return words[words.index("state:") + 1] if "state:" in words else ""

    def shown(self, what):
        window = desk.wait(20, self.visible, what)
        desk.wait(10, lambda: self.state() == "Normal", "the window manager to show it")
        return window

    def close(self, window):
        window.raise_up()
        time.sleep(0.3)  # The fade.
        window.click(*self.skin.place("window_buddylist", "windowpath?close"))

    def log(self):
        try:
            with open(self.log_path, errors="replace") as source:
                return source.read()
        except FileNotFoundError:
            return ""

    # ---- Chapters, in order.

    def without_a_tray_the_buddy_list_is_shown(self):
        self.start("alone")
        self.list = self.shown("the buddy list without a tray")
        picture = os.environ.get("VELMORA_TEST_PICTURES")
        if picture:
            time.sleep(1)
            desk.run("import", "-silent", "-window", "root", os.path.join(picture, "client_alone.png"))

    def closing_it_minimizes(self):
        self.close(self.list)
        desk.wait(10, lambda: self.state() == "Iconic", "the buddy list to be minimized")
        clients = desk.run("xprop", "-root", "_NET_CLIENT_LIST")
        assert hex(int(self.list.number)) in clients, "the minimized buddy list is in no task bar"
        desk.run("xdotool", "windowactivate", self.list.number)
        self.shown("the buddy list from the task bar")

    def with_a_tray_it_hides_there_and_comes_back(self):
        with Tray() as tray:
            time.sleep(0.5)
            self.close(self.list)
            desk.wait(10, lambda: not self.visible() and self.state() in ("", "Withdrawn"), "the buddy list to hide in the tray")
            tray.double_click_icon()
            self.shown("the buddy list after a double click on the icon")
            self.close(self.list)
            desk.wait(10, lambda: not self.visible(), "the buddy list to hide in the tray again")

    def without_its_tray_it_comes_back_by_itself(self):
        self.shown("the buddy list after the tray has gone")
        self.stop()

    def with_a_tray_the_client_starts_there(self):
        with Tray() as tray:
            self.start("tray")
            begun = time.monotonic()
            desk.wait(30, lambda: "'AUTHENTICATE' failed" in self.log() and time.monotonic() > begun + 6, "the first attempt to log on")
            assert self.process.poll() is None, "the client has ended"
            assert not self.visible(), "the buddy list shows though there is a tray"
            assert "There is no tray" not in self.log()
            tray.double_click_icon()
            self.shown("the buddy list after a double click on the icon")
            self.stop()


CHAPTERS = (
    Story.without_a_tray_the_buddy_list_is_shown,
    Story.closing_it_minimizes,
    Story.with_a_tray_it_hides_there_and_comes_back,
    Story.without_its_tray_it_comes_back_by_itself,
    Story.with_a_tray_the_client_starts_there,
)


def main():
    story = Story(sys.argv[1])
    try:
        for chapter in CHAPTERS:
            begun = time.monotonic()
            chapter(story)
            print(f"{chapter.__name__.replace('_', ' ')}: {time.monotonic() - begun:.1f} s", flush=True)
        shutil.rmtree(story.room, ignore_errors=True)
    except AssertionError:
        print(story.log()[-3000:], file=sys.stderr)
        raise
    finally:
        story.stop()


main()
