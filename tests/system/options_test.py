#!/usr/bin/env python3
"""The options in the real program: every page by command, by pointer and by keys; what they choose works and is kept.

Usage: options_test.py BIN [FOLDER]      below tests/support/with-desktop and tests/support/with-sound
With a folder it leaves a picture of every page there.
"""
import array
import math
import os
import subprocess
import sys
import time
import types

import desk
from stage import Stage

PAGES = ["audio", "video", "privacy", "hotkey", "voices", "file", "connection", "look", "bugreport", "debug", "about"]
WIZARD = "/skin/window_options/copy/border/inside/wizard"
BEN = "ben@velmora.local"
ROW = 36  # Of the list of pages; others have rows of 32.
SELECTED = (0x2F, 0x3B, 0x4D)
DANGER = (0xF4, 0x66, 0x6B)
FOCUS = (0x5A, 0xA9, 0xFF)
GOOD = (0x4C, 0xC3, 0x8A)


def count(pixels, colour):
    return sum(1 for at in range(0, len(pixels), 3) if all(abs(pixels[at + c] - colour[c]) < 8 for c in range(3)))


class Story:
    def __init__(self, binaries, pictures):
        self.room, self.pictures = desk.scratch(), pictures
        self.skin = desk.Skin(binaries)
        clip = os.path.join(desk.clips(binaries), "ann.webm")
        # Nobody needs a server to set up his devices.
        nowhere = types.SimpleNamespace(host="127.0.0.1:9")
        self.client = desk.Client(binaries, os.path.join(self.room, "ann"), "ann", nowhere, clip, "spk",
                                  ("Robust_Client=1", "Voice_Treatment=1", f"Local_Buddy_List={BEN}"))
        commands = {page: f"({WIZARD}?jump+target={page};/skin/window_options?open)" for page in PAGES}
        self.stage = Stage(self.client.folder, {**commands, "exit": "(/system?exit)"}, left=0, top=0)
        self.tone = None

    # ---- Parts of the window.

    def place(self, page, *words):
        return self.skin.rect("window_options", *words, options=("--page", page))

    def shown(self):
        """The index of the row that is marked in the list of pages."""
        x, y, _, _ = self.list
        strip = self.window.pixels(x + 140, y, 4, ROW * len(PAGES))
        size = 3 * 4 * ROW
        rows = [count(strip[i * size:(i + 1) * size], SELECTED) > 3 * ROW for i in range(len(PAGES))]
        return rows.index(True) if rows.count(True) == 1 else None

    def wait_for(self, page):
        desk.wait(5, lambda: self.shown() == PAGES.index(page), f"the page '{page}'")

    def click_page(self, page):
        x, y, _, _ = self.list
        self.window.click(x + 60, y + ROW * PAGES.index(page) + ROW // 2)
        self.wait_for(page)

    def click_row(self, rect, row):
        self.window.click(rect[0] + 60, rect[1] + 32 * row + 16)

    # ---- Chapters, in order.

    def every_page_opens_by_command(self):
        self.client.start()
        self.client.window("Log on")
        self.stage.press(self.client, "about")
        self.window = self.client.window("Options")
        self.window.move(300, 120)
        self.list = self.place("about", "select=$wizardtitle")
        for page in PAGES:
            self.stage.press(self.client, page)
            self.wait_for(page)
            if self.pictures:
                time.sleep(1.2)
                desk.run("import", "-window", self.window.number, os.path.join(self.pictures, f"options-{page}.png"))

    def every_page_opens_by_a_click_and_by_the_arrow_keys(self):
        for page in reversed(PAGES):
            self.click_page(page)
        self.window.key("Down")
        self.wait_for("video")
        self.window.key("End")
        self.wait_for("about")
        self.window.key("Up")
        self.wait_for("debug")

    def the_own_picture_moves(self):
        self.click_page("video")
        # The picture stands above the button: 200 high, with its line of help and the gaps between.
        x, y, _, _ = self.place("video", "text=Who may see it")
        picture = (x + 50, y - 36 - 150, 100, 100)
        first = self.window.pixels(*picture)
        desk.wait(10, lambda: desk.difference(first, self.window.pixels(*picture)) > 2, "the own picture to move")

    def a_microphone_is_chosen_and_its_meter_follows_the_sound(self):
        self.click_page("audio")
        devices = self.place("audio", "Available_Audio_Capture_Devices")
        self.click_row(devices, 1)  # Below the clip that stands in for the devices.
        # The meter stands below the list: its box of 104, help, state and label.
        x, y, width, height = devices[0] - 4, devices[1] - 4 + 104 + 104, 504, 16
        desk.wait(10, lambda: count(self.window.pixels(*devices), SELECTED) > 1000, "the chosen row")

        def green():
            return count(self.window.pixels(x, y, width, height), GOOD)
        desk.wait(10, lambda: green() == 0, "a meter without green in silence")
        sound = os.path.join(self.room, "tone.raw")
        samples = array.array("h", (int(16000 * math.sin(i * 2 * math.pi * 440 / 44100)) for i in range(44100))).tobytes()
        with open(sound, "wb") as out:
            out.write(samples * 8)
        begin = time.monotonic()
        self.tone = subprocess.Popen(["pacat", "--raw", "--rate=44100", "--channels=1", "--format=s16le", "--latency-msec=20", "-d", "micsink", sound])
        desk.wait(10, lambda: green() > 300, "green in the meter while it sounds")
        print(f"    from sound to meter {(time.monotonic() - begin) * 1000:.0f} ms at most")
        self.tone.kill()
        self.tone.wait()
        desk.wait(10, lambda: green() == 0, "the meter to fall after the sound")

    def parts_of_the_treatment_are_turned_off_and_on(self):
        for var, clicks in (("Voice_Noise", 1), ("Voice_Level", 2)):
            x, y, _, height = self.skin.rect("window_options", f"set+name={var}+value=0", options=("--page", "audio", "--set", f"{var}=1"))

            def checked():
                return count(self.window.pixels(x, y, 32, height), FOCUS) > 30
            for off in range(clicks):
                self.window.click(x + 100, y + height // 2)
                desk.wait(5, lambda: checked() == bool(off), f"{var} after the click")

    def the_volume_of_a_buddy_is_set(self):
        self.click_page("voices")
        x, y, width, _ = self.place("voices", "varname=Voice_Choice")
        self.window.click(x + 60, y + 30 + 15)  # Below the titles of the columns.
        x, y, width, height = self.skin.rect("window_options", "varname=$gain", options=("--page", "voices", "--set", "Voice_Choice=grace@example.org"))
        self.window.click(x + 9 + (width - 18) * 3 // 4, y + height // 2)

    def a_talk_key_is_assigned(self):
        self.click_page("hotkey")
        self.window.click(*self.skin.place("window_options", "var=Working_Hotkey", options=("--page", "hotkey")))
        desk.run("xdotool", "keydown", "ctrl", "sleep", "0.1", "keydown", "shift", "sleep", "0.1", "keydown", "k", "sleep", "0.1",
                 "keyup", "k", "keyup", "shift", "keyup", "ctrl")
        time.sleep(0.2)
        # Until keys are pressed, a button without effect stands in its place.
        self.window.click(*self.skin.place("window_options", "assignhotkey", options=("--page", "hotkey", "--set", "Working_Hotkey=K")))
        self.client.said("ACTIVITY: assignhotkey")

    def a_report_without_words_says_what_is_missing(self):
        self.click_page("bugreport")
        x, y, width, height = self.place("bugreport", "?bugreport")
        above = (x, y - 44, 300, 40)
        assert count(self.window.pixels(*above), DANGER) == 0
        self.window.click(x + width // 2, y + height // 2)
        desk.wait(5, lambda: count(self.window.pixels(*above), DANGER) > 20, "the words under the field")

    def privacy_and_the_others_are_kept(self):
        self.click_page("privacy")
        self.click_row(self.place("privacy", "Video_Privacy_Options_Mode"), 1)
        self.client.said("ACTIVITY: updatecapture")
        self.stage.press(self.client, "exit")
        self.client.process.wait(20)
        with open(os.path.join(self.client.folder, "settings.ini"), errors="replace") as source:
            settings = source.read()
        for line in ("video_privacy_choice_mode: Private - Allow nobody to see me", "talk_again_hotkey: CONTROL+SHIFT+K", "audio_capture_device: Microphone",
                     "voice_noise: 0", "voice_level: 1", f"{BEN}_gain: 300"):
            assert line in settings, f"no '{line}' in\n{settings}"

    def chapters(self):
        return [self.every_page_opens_by_command, self.every_page_opens_by_a_click_and_by_the_arrow_keys, self.the_own_picture_moves,
                self.a_microphone_is_chosen_and_its_meter_follows_the_sound,
                self.parts_of_the_treatment_are_turned_off_and_on, self.the_volume_of_a_buddy_is_set, self.a_talk_key_is_assigned,
                self.a_report_without_words_says_what_is_missing, self.privacy_and_the_others_are_kept]

    def last_words(self):
        return [("the log", self.client.log[-4000:])]

    def clean_up(self):
        for process in (self.tone, self.client.process):
            if process and process.poll() is None:
                process.kill()
                process.wait()


STORY = Story(os.path.abspath(sys.argv[1]), sys.argv[2] if len(sys.argv) > 2 else None)
desk.tell(STORY, STORY.chapters())
