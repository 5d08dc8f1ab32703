#!/usr/bin/env python3
"""Talk keys for real: pressed while another program has the keyboard, they talk to one buddy alone, for as long as they are held.

Usage: hotkeys_test.py BIN      below tests/support/with-desktop and tests/support/with-sound
"""
import os
import re
import subprocess
import sys
import time

import desk
import stage

LOUD = 300
QUIET = 40
BEN, CARA = "ben-2@velmora.local", "cara@velmora.local"


class Other:
    """Another program with the keyboard focus, which writes down the keys that reach it."""

    def __init__(self, path):
        self.path = path
        self.process = subprocess.Popen(["xev", "-event", "keyboard", "-geometry", "200x150+900+500"], stdout=open(path, "w"))
        found = desk.wait(10, lambda: desk.run("xdotool", "search", "--onlyvisible", "--name", "^Event Tester$", check=False).split(),
                          "another program")
        self.window = desk.Window(found[0])

    def take_focus(self):
        self.window.raise_up()
        desk.wait(10, lambda: desk.run("xdotool", "getwindowfocus", check=False).strip() == self.window.number, "its focus")

    def keys(self):
        return re.findall(r"keysym \w+, (\w+)\)", open(self.path).read())


class Story(desk.Story):
    def __init__(self, binaries):
        self.room = desk.scratch()
        self.server = desk.Server(binaries, os.path.join(self.room, "server"))
        clips = desk.clips(binaries)
        people = {"ann": "ann@velmora.local", "ben": BEN, "cara": CARA}
        self.open_sinks(*people, quiet=("ann",))
        self.ann, self.ben, self.cara = self.people = [
            desk.Client(binaries, os.path.join(self.room, name), guid.partition("@")[0], self.server,
                        os.path.join(clips, "ann.webm" if name == "ann" else "ben.webm"), name,
                        (f"Local_User_GUID={guid}", f"Local_Password={name}'s secret", "First_Logon_Complete=1"))
            for name, guid in people.items()]
        self.stage = stage.Stage(self.ann.folder, {"ben": f"(/system?assignhotkey+name={BEN})", "cara": f"(/system?assignhotkey+name={CARA})",
                                                   "ben off": f"(/system?clearhotkey+name={BEN})"}, 0, 700, keys=True)
        self.other_stage = stage.Stage(self.ben.folder, {
            "ann": "(/system?assignhotkey+name=ann@velmora.local)",
            "tell": "(/buddies/ann@velmora.local?chat+action=send+message=$ann@velmora.local_Hotkey and $Talk_Again_Hotkey)"},
            0, 740, keys=True, watch="ann@velmora.local_Hotkey, Talk_Again_Hotkey")

    # ---- What the logs count.

    def talks(self, buddy=None):
        return self.ann.log.count(f"STARTTALK({buddy})" if buddy else "STARTTALK(")

    def stops(self):
        return self.ann.log.count("Hotkey up, stopping talk to")

    def tap(self, *keys):
        desk.run("xdotool", *(word for key in keys for word in ("keydown", key)), "sleep", "0.3",
                 *(word for key in reversed(keys) for word in ("keyup", key)))

    def starts_one_talk(self, buddy, what, *keys):
        before, stopped = (self.talks(buddy), self.talks()), self.stops()
        self.tap(*keys)
        desk.wait(5, lambda: self.stops() > stopped, f"the end of a talk by {what}")
        assert (self.talks(buddy), self.talks()) == tuple(count + 1 for count in before), f"{what} did not start one talk to {buddy}"

    # ---- Chapters, in order.

    def three_are_online(self):
        self.server.start()
        for person in self.people:
            self.server.command("user", "add", person.name, f"{os.path.basename(person.folder)}'s secret", f"{person.name}@example.org")
        for person in (self.ben, self.cara):
            self.server.command("buddy", "add", "ann", person.name)
        for person in self.people:
            person.start()
            # Who comes first has the key to talk again.
            person.said("ACTIVITY: assignhotkey '/system'")
        for person in self.people:
            person.said("Changing state to 'Online'", 30)
        desk.wait(40, lambda: self.ben.pictures() >= 3 and self.cara.pictures() >= 3, "ann's picture at both")
        self.other = Other(os.path.join(self.room, "keys.txt"))

    def combinations_are_assigned(self):
        self.stage.take_keys(self.ann, "ctrl", "shift", "F7")
        self.stage.press(self.ann, "ben")
        desk.wait(10, lambda: self.ann.log.count("ACTIVITY: assignhotkey") == 2, "the assignment of ben's")
        self.stage.take_keys(self.ann, "F8")
        self.stage.press(self.ann, "cara")
        desk.wait(10, lambda: self.ann.log.count("ACTIVITY: assignhotkey") == 3, "the assignment of both")

    def a_held_key_talks_to_that_buddy_alone_until_its_release(self):
        self.other.take_focus()
        desk.run("xset", "r", "rate", "200", "40")
        ears = {name: desk.Recording(name, os.path.join(self.room, f"{name}.raw")) for name in ("ben", "cara")}
        desk.run("xdotool", "keydown", "ctrl", "keydown", "shift", "keydown", "F7", "sleep", "3.5", "keyup", "F7", "keyup", "shift", "keyup", "ctrl")
        released = ears["ben"].seconds()
        desk.wait(5, lambda: "Hotkey up, stopping talk to" in self.ann.log, "the end of the talk")
        time.sleep(2.6)
        heard = {name: desk.envelope(ear.stop()) for name, ear in ears.items()}
        assert max(heard["ben"][:int(released * 50)]) > LOUD, f"ben heard nothing (loudest {max(heard['ben']):.0f})"
        assert max(heard["cara"]) < QUIET, f"cara heard what was for ben (loudest {max(heard['cara']):.0f})"
        late = heard["ben"][int(released * 50) + 100:]
        assert max(late) < QUIET, f"ben hears ann after the release (loudest {max(late):.0f})"
        assert (self.talks(BEN), self.talks(), self.stops()) == (1, 1, 1), "auto-repeat has stopped or restarted the talk"
        assert f"stopping talk to '{BEN}'" in self.ann.log

    def other_keys_reach_the_other_program_meanwhile(self):
        desk.run("xdotool", "keydown", "F8", "sleep", "0.5", "key", "x", "key", "y", "sleep", "0.2", "keyup", "F8")
        desk.wait(5, lambda: [key for key in self.other.keys() if key in "xy"] == ["x", "x", "y", "y"], "x and y in the other program")
        desk.wait(5, lambda: self.stops() == 2, "the end of the second talk")
        assert self.talks(CARA) == 1

    def locks_do_not_matter(self):
        for lock in ("Num_Lock", "Caps_Lock", "Num_Lock", "Caps_Lock"):
            desk.run("xdotool", "key", lock)
            self.starts_one_talk(CARA, f"F8 after {lock}", "F8")

    def talk_again_talks_to_the_last_one(self):
        before = self.talks(), self.stops()
        self.tap("ctrl", "space")
        desk.wait(5, lambda: self.stops() == before[1] + 1, "the end of talking again")
        assert f"STARTTALKAGAIN({CARA})" in self.ann.log and self.talks() == before[0]

    def another_layout_keeps_them(self):
        desk.run("setxkbmap", "de")
        self.starts_one_talk(CARA, "F8 on a German keyboard", "F8")
        self.starts_one_talk(BEN, "control, shift and F7 on a German keyboard", "ctrl", "shift", "F7")
        desk.run("setxkbmap", "us")
        self.starts_one_talk(CARA, "F8 on an American keyboard", "F8")

    def what_another_program_holds_is_refused_in_words(self):
        # Ben's own "talk again" is ann's already. The key that he wants for her is, too, so that it does not even reach his field.
        self.other_stage.take_keys(self.ben, "F8")
        self.other_stage.press(self.ben, "ann")
        desk.wait(10, lambda: self.ben.log.count("ACTIVITY: assignhotkey") == 2, "ben's assignment")
        # What the values say stands in the log of a chat.
        words = "<key combination in use>"
        self.other_stage.press(self.ben, "tell")
        chat = os.path.join(self.ben.folder, "chatlogs", "ann@velmora.local_chat.txt")
        desk.wait(10, lambda: os.path.exists(chat) and f": {words} and {words}\r\n" in open(chat, newline="").read(), "the words of the refusal")
        self.other.take_focus()
        self.starts_one_talk(CARA, "F8 that ben wanted too", "F8")
        assert "STARTTALK" not in self.ben.log

    def a_cleared_one_is_free(self):
        self.stage.press(self.ann, "ben off")
        self.ann.said("ACTIVITY: clearhotkey '/system'")
        self.other.take_focus()
        before = self.talks()
        self.tap("ctrl", "shift", "F7")
        desk.wait(5, lambda: "F7" in self.other.keys(), "the free key in the other program")
        assert self.talks() == before

    def they_come_back_after_a_restart(self):
        # The end of the session, as a desktop tells it: the client logs off and keeps its settings.
        for person in (self.ann, self.ben):
            person.process.terminate()
        for person in (self.ann, self.ben):
            person.process.wait(30)
        assert f"{CARA}_hotkey: F8" in self.settings(self.ann), f"the key is not among the settings:\n{self.settings(self.ann)}"
        assert "_hotkey: F8" not in self.settings(self.ben), "ben keeps a key that he did not get"
        self.ann.start()
        self.ann.said("Changing state to 'Online'", 40)
        self.ann.said(f"Assigning hotkey 'F8' to '{CARA}'", 20)
        desk.wait(40, lambda: self.cara.log.count("Received frame video packet") and self.ann.pictures() > 2, "cara's picture after the restart")
        self.other.take_focus()
        self.starts_one_talk(CARA, "F8 after the restart", "F8")

    def settings(self, person):
        return open(os.path.join(person.folder, "settings.ini")).read()

    def chapters(self):
        return [self.three_are_online, self.combinations_are_assigned, self.a_held_key_talks_to_that_buddy_alone_until_its_release,
                self.other_keys_reach_the_other_program_meanwhile, self.locks_do_not_matter, self.talk_again_talks_to_the_last_one,
                self.another_layout_keeps_them, self.what_another_program_holds_is_refused_in_words, self.a_cleared_one_is_free,
                self.they_come_back_after_a_restart]

    def clean_up(self):
        super().clean_up()
        if hasattr(self, "other"):
            self.other.process.kill()


STORY = Story(sys.argv[1])
desk.tell(STORY, STORY.chapters())
