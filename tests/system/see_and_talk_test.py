#!/usr/bin/env python3
"""The main job on real programs: two people log on through the windows, see each other, and one is heard while a key is held.

Usage: see_and_talk_test.py BIN      below tests/support/with-desktop --picom --trayer and tests/support/with-sound
"""
import os
import sys
import time

import desk

LOUD = 300
QUIET = 40


class Story(desk.Story):
    def __init__(self, binaries):
        self.binaries, self.room = binaries, desk.scratch()
        self.skin = desk.Skin(binaries)
        self.picture = self.skin.first_picture()
        self.server = desk.Server(binaries, os.path.join(self.room, "server"))
        clips = desk.clips(binaries)
        self.open_sinks("ann", "ben")
        self.people = self.ann, self.ben = self.client("ann", clips), self.client("ben", clips)
        self.clips = clips

    def client(self, name, clips):
        return desk.Client(self.binaries, os.path.join(self.room, name), name, self.server, os.path.join(clips, name + ".webm"), name)

    # ---- Chapters, in order.

    def a_new_account_is_made_through_its_window(self):
        self.server.start()
        self.server.command("user", "add", "ben", "right horse", "ben@example.org")
        self.ann.start()
        login = self.ann.window("Log on")
        assert "Icon (64 x 64)" in desk.run("xprop", "-id", login.number, "_NET_WM_ICON"), "the window has no icon for the task bar"
        time.sleep(0.5)
        login.click(*self.skin.place("window_login", "window_new?open"))
        form = self.ann.window("New account")
        time.sleep(0.5)
        for value, text in (("Local_Username", "ann"), ("Local_Password", "battery staple"), ("Local_Email", "ann@example.org")):
            form.click(*self.skin.place("window_new", f"var={value}"))
            form.type(text)
        form.key("Return")
        self.ann.said("created new account 'ann@velmora.local'")
        self.ann.said("Changing state to 'Online'", 30)
        self.ann_list = self.ann.window("Velmora")

    def a_wrong_password_is_refused(self):
        self.ben.start()
        login = self.ben.window("Log on")
        time.sleep(0.5)
        login.click(*self.skin.place("window_login", "var=Local_User_GUID"))
        login.type("ben")
        login.click(*self.skin.place("window_login", "var=Local_Password"))
        login.type("wrong")
        login.key("Return")
        self.ben.said("Request 'AUTHENTICATE' failed with response 403")
        desk.wait(10, lambda: self.ben.has_window("Log on"), "the logon window after a wrong password")

    def the_right_password_is_accepted(self):
        login = self.ben.window("Log on")
        time.sleep(0.5)
        login.click(*self.skin.place("window_login", "var=Local_Password"))
        login.key("Escape")  # Empties the field.
        login.type("right horse")
        login.key("Return")
        self.ben.said("logged into account 'ben@velmora.local'")
        self.ben.said("Changing state to 'Online'", 30)
        self.ben_list = self.ben.window("Velmora")

    def a_buddy_is_added_through_the_window(self):
        self.ann_list.move(80, 60)
        self.ben_list.move(500, 60)
        self.ann_list.click(*self.skin.place("window_buddylist", "window_addbuddy?open"))
        form = self.ann.window("Add a buddy")
        time.sleep(0.5)
        form.click(*self.skin.place("window_addbuddy", "var=Add_Buddy_GUID"))
        form.type("ben")
        form.key("Return")
        form.raise_up()
        desk.wait(30, lambda: self.ann.pictures() >= 3 and self.ben.pictures() >= 3, "pictures on both sides")
        form.click(*self.skin.place("window_addbuddy", "?close"))
        self.both_pictures_change()

    def both_pictures_change(self):
        for window, warm, name in ((self.ann_list, False, "ben's picture at ann's"), (self.ben_list, True, "ann's picture at ben's")):
            first = window.pixels(*self.picture)

            def moved():
                return desk.difference(first, window.pixels(*self.picture)) > 2
            desk.wait(20, moved, f"{name} to change on the screen")

            def right_colour():
                red, _, blue = desk.mean_colour(window.pixels(*self.picture))
                return red > blue + 10 if warm else blue > red - 10
            desk.wait(20, right_colour, f"{name} to show the right face")

    def a_voice_is_heard_while_the_picture_is_pressed(self):
        recording = desk.Recording("ben", os.path.join(self.room, "ben.raw"))
        x, y, width, height = self.picture
        self.ann_list.pointer(x + width // 2, y + height // 2)
        desk.run("xdotool", "mousedown", "1")
        time.sleep(4)
        desk.run("xdotool", "mouseup", "1")
        desk.run("xdotool", "mousemove", "40", "760")
        assert max(desk.envelope(recording.stop())) > LOUD, "no speech while the picture was pressed"

    def a_voice_is_heard_while_the_key_is_held(self):
        own = other = 0
        for _ in range(3):  # Where a busy machine lets the sound stutter, another word is said.
            speech = self.words_while_the_key_is_held()
            own = desk.likeness(speech, desk.envelope(desk.clip_samples(self.ann.clip)))
            other = desk.likeness(speech, desk.envelope(desk.clip_samples(self.ben.clip)))
            print(f"    likeness to ann's voice {own:.2f}, to ben's {other:.2f}")
            if own > 0.7 and own > other + 0.15:
                return
        raise AssertionError(f"not ann's voice: {own:.2f} against {other:.2f}")

    def words_while_the_key_is_held(self):
        """The loudness of what ben heard; it is checked that there was speech, and silence after the key's release."""
        time.sleep(3)
        recording = desk.Recording("ben", os.path.join(self.room, "ben.raw"))
        time.sleep(0.5)
        pressed = recording.seconds()
        desk.run("xdotool", "keydown", "ctrl", "keydown", "space")
        time.sleep(6)
        desk.run("xdotool", "keyup", "space", "keyup", "ctrl")
        released = recording.seconds()
        time.sleep(4)
        loudness = desk.envelope(recording.stop())
        speech = loudness[int(pressed * 50) + 75:int(released * 50) - 10]
        silence = loudness[int(released * 50) + 125:]
        assert max(speech) > LOUD, f"no speech while the key was held (loudest {max(speech):.0f})"
        assert max(silence) < QUIET, f"not silent after the release (loudest {max(silence):.0f})"
        heard = next(i for i in range(int(pressed * 50), len(loudness)) if loudness[i] > LOUD) / 50 - pressed
        print(f"    from key to ear {heard * 1000:.0f} ms")
        return speech

    def server_and_client_come_back_by_themselves(self):
        self.server.kill()
        time.sleep(1)
        self.server.start()
        self.ben.kill()
        begin = time.monotonic()
        self.ben.start()
        self.ben.said("Changing state to 'Online'", 40)
        self.ben_list = self.open_from_the_tray(self.ben)
        self.ben_list.move(500, 60)
        before = self.ann.pictures()
        desk.wait(60, lambda: self.ann.pictures() > before + 3 and self.ben.pictures() > 3, "pictures after the restart")
        print(f"    back after {time.monotonic() - begin:.1f} s")
        self.both_pictures_change()

    def both_end_clean(self):
        self.quit_both()
        for person in (self.ann, self.ben):
            person.process.wait(30)
            newest = max(desk.wait(10, person.clean_logs, f"{person.name}'s clean log"), key=os.path.getmtime)
            text = open(newest, errors="replace").read()
            errors = [line for line in text.splitlines() if "ERROR" in line]
            assert not errors, f"{person.name}'s log holds errors: {errors[:3]}"
            assert "Leaked Object Tally: (none)" in text, f"{person.name} leaked: " + text[text.find("Leaked Object Tally"):][:800]
            assert "---- Closed, Clean shutdown ----" in text[-200:]
            assert person.process.returncode == 0

    def tray_icons(self):
        """The middle of each slot of the tray."""
        for icon in desk.run("xdotool", "search", "--class", "trayer").split():
            x, y, width, height = desk.Window(icon).geometry()
            slots = max(1, round(width / 24))
            for slot in range(slots):
                yield str(x + width * (2 * slot + 1) // (2 * slots)), str(y + height // 2)

    def open_from_the_tray(self, person):
        """A double click on the icon that belongs to this program opens its buddy list."""
        for x, y in self.tray_icons():
            desk.run("xdotool", "mousemove", x, y, "click", "--repeat", "2", "--delay", "80", "1")
            time.sleep(1)
            if person.has_window("Velmora"):
                return person.window("Velmora")
        raise AssertionError(f"no icon in the tray opens {person.name}'s buddy list")

    def quit_both(self):
        """Through the menus of the tray's icons, which move together as they go."""
        deadline = time.monotonic() + 60
        while any(person.process.poll() is None for person in (self.ann, self.ben)):
            assert time.monotonic() < deadline, "the tray's Exit did not end both programs"
            for x, y in list(self.tray_icons())[-1:]:
                desk.run("xdotool", "mousemove", x, y, "click", "3")
                time.sleep(0.6)
                desk.run("xdotool", "key", "x")
            time.sleep(1.5)

    def chapters(self):
        return [self.a_new_account_is_made_through_its_window, self.a_wrong_password_is_refused, self.the_right_password_is_accepted,
                self.a_buddy_is_added_through_the_window,
                self.a_voice_is_heard_while_the_picture_is_pressed, self.a_voice_is_heard_while_the_key_is_held,
                self.server_and_client_come_back_by_themselves, self.both_end_clean]


STORY = Story(sys.argv[1])
desk.tell(STORY, STORY.chapters())
