#!/usr/bin/env python3
"""The real client and the tray: it starts into the tray when there is one, never hides into nothing, its menu does what it says, its
balloons lead where they say, and without an account it asks for one.

Usage: tray_test.py BIN      below tests/support/with-desktop
"""
import os
import re
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

    def place(self):
        """The icon's rectangle, once it has come and rests."""
        seen = []

        def icon():
            seen.append(self.find().geometry())
            return seen[-1] if seen[-1][2] >= 16 and seen[-3:] == seen[-1:] * 3 else None
        return desk.wait(10, icon, "the icon in the tray")

    def point(self, *steps):
        x, y, width, height = self.place()
        desk.run("xdotool", "mousemove", str(x + width // 2), str(y + height // 2), "sleep", "0.2", *steps)

    def double_click_icon(self):
        self.point("click", "--repeat", "2", "--delay", "60", "1")

    def picture(self):
        x, y, width, height = self.place()
        return desk.subprocess.run(["import", "-silent", "-window", "root", "-crop", f"{width}x{height}+{x}+{y}", "-depth", "8", "rgb:-"],
                                   check=True, capture_output=True).stdout


class Story:
    def __init__(self, binaries):
        self.program, self.room = os.path.join(os.path.abspath(binaries), "velmora"), desk.scratch()
        self.process, self.skin = None, desk.Skin(os.path.abspath(binaries))
        self.environment, self.options = {}, []

    def start(self, name, account=("First_Logon_Complete=1", "Local_User_GUID=ann@velmora.local", "Local_Password=secret")):
        """A client that has logged on before, unless it is given no account; its server is not there now."""
        folder = self.folder = os.path.join(self.room, name)
        desk.run(os.path.join(desk.TOP, "tools/make-home"), folder, "AUTHENTICATE_Host=127.0.0.1:9", "First_Run_Complete=1", *account)
        self.log_path = os.path.join(folder, "velmora.log")
        self.process = subprocess.Popen([self.program, "-log", "xV", "-silent", "-norestart", *self.options], cwd=folder, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, env={**os.environ, "PULSE_SERVER": "unix:/nonexistent", **self.environment})

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            self.process.wait(20)

    def search(self, *options, title=TITLE):
        found = desk.run("xdotool", "search", "--all", *options, "--pid", str(self.process.pid), "--name", f"^{title}$", check=False).split()
        return desk.Window(found[0]) if found else None

    def visible(self, title=TITLE):
        return self.search("--onlyvisible", title=title)

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

    def it_grows_and_shrinks_with_the_desktop(self):
        def width():
            window = self.visible()
            return window.geometry()[2] if window else 0
        plain = width()
        subprocess.run(["xrdb", "-merge"], input="Xft.dpi: 192\n", text=True, check=True)
        desk.wait(10, lambda: abs(width() - 2 * plain) <= 2, "the buddy list at twice its size")
        if os.environ.get("VELMORA_TEST_PICTURES"):
            time.sleep(1)
            desk.run("import", "-silent", "-window", "root", os.path.join(os.environ["VELMORA_TEST_PICTURES"], "client_large.png"))
        desk.run("xrdb", "-remove")
        desk.wait(10, lambda: width() == plain, "the buddy list at its plain size")
        assert self.log().count("was read anew") == 2, "the skin was read more than once for a change"
        self.list = self.shown("the buddy list at its plain size")

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


    def settings(self):
        with open(os.path.join(self.folder, "settings.ini")) as source:
            return source.read()

    # ---- The menu.

    def menu(self):
        """The place of the popup menu: the one window of the program that is not the skin's, and more than a pixel."""
        found = re.findall(r'\("velmora" "velmora"\) +(\d+)x(\d+)\+(\d+)\+(\d+)', desk.run("xwininfo", "-root", "-children"))
        for width, height, x, y in (map(int, numbers) for numbers in found):
            if width > 100 and y > 400:
                return x, y, width, height
        return None

    def choose(self, tray, *keys, picture=""):
        """Opens the icon's menu and chooses by its mnemonics."""
        tray.point("click", "3")
        place = desk.wait(10, self.menu, "the icon's menu")
        if picture and os.environ.get("VELMORA_TEST_PICTURES"):
            desk.run("import", "-silent", "-window", "root", os.path.join(os.environ["VELMORA_TEST_PICTURES"], picture))
        desk.run("xdotool", "key", *keys)
        desk.wait(10, lambda: not self.menu(), f"the menu to close after {keys}")
        return place

    def every_item_of_the_menu_does_its_thing(self):
        with Tray() as tray:
            self.start("menu")
            desk.wait(30, lambda: "'AUTHENTICATE' failed" in self.log(), "the first attempt to log on")
            _, y, _, height = self.choose(tray, "s", picture="tray_menu.png")
            assert y + height <= 800 - 24 // 2, "the menu does not stand on the pointer"
            self.shown("the buddy list by the menu")
            self.choose(tray, "a")
            desk.wait(10, lambda: self.visible("Add a buddy"), "the window to add a buddy by the menu")
            self.choose(tray, "o")
            desk.wait(10, lambda: self.visible("Options"), "the options by the menu")
            # Two items share this letter: it goes from one to the other.
            self.choose(tray, "r", "Return")
            desk.wait(10, lambda: "ACTIVITY: reconnect '/system'" in self.log(), "a reconnect by the menu")
            self.privacy_changes(tray)
            self.choose(tray, "x")
            self.process.wait(30)
            assert self.process.returncode == 0, f"the menu's exit ended with {self.process.returncode}"

    def privacy_changes(self, tray):
        desk.wait(10, lambda: self.log().count("Changing state to 'Waiting...'") > 1, "the next attempt to log on")
        public = tray.picture()
        self.choose(tray, "r", "r", "Return", picture="tray_menu_public.png")
        desk.wait(10, lambda: "video_privacy_choice_mode: Private - Allow nobody to see me" in self.settings(), "a private client")
        desk.wait(10, lambda: tray.picture() != public, "the icon of a private client")
        # Now this letter stands in another item alone.
        self.choose(tray, "u")
        desk.wait(10, lambda: "video_privacy_choice_mode: Public - Allow some people to see me" in self.settings(), "a public client")
        desk.wait(10, lambda: tray.picture() == public, "the icon of a public client")

    # ---- Places, balloons, the first run.

    def after_a_kill_the_list_stands_where_it_was(self):
        with Tray() as tray:
            self.start("killed")
            tray.double_click_icon()
            self.shown("the buddy list").move(140, 90)
            desk.wait(20, lambda: "buddy_list_left: 140" in self.settings() and "buddy_list_top: 90" in self.settings(), "its place in the settings")
            self.process.kill()
            self.process.wait()
            self.start("killed")
            tray.double_click_icon()
            place = self.shown("the buddy list after the kill").geometry()[:2]
            assert place == (140, 90), f"the list stands at {place}"
            self.stop()

    def a_click_on_a_balloon_runs_what_it_says(self):
        opener = os.path.join(self.room, "bin")
        os.makedirs(opener)
        path = os.path.join(opener, "xdg-open")
        with open(path, "w") as out:
            out.write(f'#!/bin/sh\necho "$@" >>"{self.room}/opened"\n')
        os.chmod(path, 0o755)
        service = subprocess.Popen(["dunst"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self.environment = {"PATH": f"{opener}:{os.environ['PATH']}"}
            self.options = ["-upgraded"]
            self.start("upgraded")
            shutil.copy(os.path.join(desk.TOP, "CHANGELOG.md"), os.path.join(self.folder, "CHANGELOG.txt"))
            desk.wait(20, lambda: desk.run("xdotool", "search", "--onlyvisible", "--class", "Dunst", check=False), "the balloon")
            number = desk.run("xdotool", "search", "--onlyvisible", "--class", "Dunst").split()[0]
            if os.environ.get("VELMORA_TEST_PICTURES"):
                desk.run("import", "-silent", "-window", "root", os.path.join(os.environ["VELMORA_TEST_PICTURES"], "balloon_upgraded.png"))
            desk.run("xdotool", "mousemove", "--window", number, "30", "20", "click", "2")
            desk.wait(10, lambda: os.path.exists(f"{self.room}/opened"), "the change log to be opened")
            assert "CHANGELOG.txt" in open(f"{self.room}/opened").read()
            told = desk.run("dunstctl", "history")
            for text in ("Update complete",
                         "You have successfully upgraded Velmora to version 764.  Click here to see what has changed."):
                assert text in told, f"no balloon said '{text}': {told}"
            self.stop()
        finally:
            self.environment, self.options = {}, []
            service.terminate()
            service.wait()

    def without_an_account_it_asks_for_one_with_the_focus_in_the_name(self):
        self.start("first", ())
        window = desk.wait(20, lambda: self.visible("Log on"), "the window to log on")
        desk.wait(10, lambda: desk.run("xdotool", "getwindowfocus", check=False).strip() == window.number, "its focus")
        assert not self.visible(), "the buddy list stands beside it"
        time.sleep(0.5)  # The fade.
        desk.run("xdotool", "type", "--delay", "30", "dora")
        desk.run("xdotool", "key", "Tab")
        desk.run("xdotool", "type", "--delay", "30", "secret")
        desk.run("xdotool", "key", "Return")
        desk.wait(10, lambda: "ACTIVITY: login" in self.log(), "the logon by Return")
        desk.wait(20, lambda: "local_user_guid: dora@velmora.local" in self.settings(), "the name in the settings")
        self.stop()


CHAPTERS = (
    Story.without_a_tray_the_buddy_list_is_shown,
    Story.it_grows_and_shrinks_with_the_desktop,
    Story.closing_it_minimizes,
    Story.with_a_tray_it_hides_there_and_comes_back,
    Story.without_its_tray_it_comes_back_by_itself,
    Story.with_a_tray_the_client_starts_there,
    Story.every_item_of_the_menu_does_its_thing,
    Story.after_a_kill_the_list_stands_where_it_was,
    Story.a_click_on_a_balloon_runs_what_it_says,
    Story.without_an_account_it_asks_for_one_with_the_focus_in_the_name,
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
