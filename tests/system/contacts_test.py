#!/usr/bin/env python3
"""Nobody reaches a user who has not agreed: a stranger adds ann, she finds his request, also after a restart, and accepts it by a click.

Usage: contacts_test.py BIN [PICTURE]      below tests/support/with-desktop and tests/support/with-sound
PICTURE: a file for the buddy list with the request, as it stands on the screen.
"""
import os
import sys
import time

import desk

INVITED = "Recieved 'INVITE' request"
# Digits and dashes in names have misled conditions of a skin before.
BEN = "ben-2@velmora.local"
ASKED = f"'{BEN}' asks to become a buddy."


class Story(desk.Story):
    def __init__(self, binaries):
        self.room = desk.scratch()
        self.skin = desk.Skin(binaries)
        self.picture = self.skin.first_picture()
        self.server = desk.Server(binaries, os.path.join(self.room, "server"))
        with open(os.path.join(self.server.folder, "velmora-server.ini"), "a") as out:
            out.write("contacts = agreed\n")
        clips = desk.clips(binaries)
        self.people = self.ann, self.ben = tuple(
            desk.Client(binaries, os.path.join(self.room, name), account, self.server, os.path.join(clips, name + ".webm"), "",
                        (f"Local_User_GUID={account}@velmora.local", f"Local_Password={name}'s secret"))
            for name, account in (("ann", "ann"), ("ben", BEN.partition("@")[0])))

    def both_are_online_and_strangers(self):
        self.server.start()
        for person in (self.ann, self.ben):
            self.server.command("user", "add", person.name, f"{person.name[:3]}'s secret", f"{person.name}@example.org")
            person.start()
        self.ben.said("Changing state to 'Online'", 30)
        self.ann.said("Changing state to 'Online'", 30)
        self.ann_list, self.ben_list = self.ann.window("Velmora"), self.ben.window("Velmora")
        self.ann_list.move(80, 60)
        self.ben_list.move(500, 60)

    def a_stranger_asks_and_does_not_reach_her(self):
        desk.wait(10, self.invites_to_add_somebody, "ann's empty list")
        self.ben_list.click(*self.skin.place("window_buddylist", "window_addbuddy?open"))
        form = self.ben.window("Add a buddy")
        time.sleep(0.5)
        form.click(*self.skin.place("window_addbuddy", "var=Add_Buddy_GUID"))
        form.type("ann")
        form.key("Return")
        self.ben.said("Sending 'INVITE'")
        self.ann.said(ASKED)
        form.click(*self.skin.place("window_addbuddy", "?close"))
        desk.wait(10, self.shows_a_request, "the request in ann's window")
        x, y, _, height = self.picture
        self.ben_list.click(x + 60, y + height // 2)  # ann, who is not there for him.
        assert INVITED not in self.ann.log, "an invitation of the stranger came through"
        assert "ann@velmora.local@" not in self.ben.log, "the stranger has learnt of a device of ann's"

    def shows_a_request(self):
        """The button's blue rim stands where a request has it."""
        x, y, width, _ = self.skin.rect("window_buddylist", "?accept")
        pixels = self.ann_list.pixels(x + 6, y - 1, width - 12, 4)
        blue = [i for i in range(0, len(pixels), 3) if pixels[i + 2] > 200 and pixels[i] < 140]
        return len(blue) > 30

    def invites_to_add_somebody(self):
        """The blue button of an empty list."""
        x, y, _, height = self.skin.rect("window_buddylist", "text=Add a buddy", options=("--empty",))
        red, _, blue = desk.mean_colour(self.ann_list.pixels(x + 5, y + 6, 12, height - 12))
        return blue > 200 and red < 140

    def the_request_outlives_a_restart(self):
        self.ann.kill()
        os.rename(os.path.join(self.ann.folder, "velmora.log"), os.path.join(self.ann.folder, "before.log"))
        self.ann.start()
        self.ann.said(ASKED, 40)
        # Nothing leads back from a tray that is not there.
        self.ann_list = self.ann.window("Velmora", 30)
        self.ann_list.move(80, 60)
        desk.wait(10, self.shows_a_request, "the request after the restart")
        assert INVITED not in self.ann.log, "an invitation of the stranger came through"

    def she_accepts_by_a_click_and_they_see_each_other(self):
        if len(sys.argv) > 2:
            time.sleep(0.5)
            desk.run("import", "-window", self.ann_list.number, sys.argv[2])
        time.sleep(0.6)  # A list that has just changed takes no answer.
        self.ann_list.click(*self.skin.place("window_buddylist", "?accept"))
        desk.run("xdotool", "mousemove", "40", "760")
        self.ann.said(f"ACTIVITY: accept '{BEN}'")
        desk.wait(30, lambda: self.ann.pictures() >= 3 and self.ben.pictures() >= 3, "pictures on both sides")
        # What never came before does now, and in these words.
        assert INVITED in self.ben.log, "ann's invitation did not reach ben"
        desk.wait(10, lambda: not self.shows_a_request(), "the request to leave")
        for window, warm, name in ((self.ann_list, False, "ben's picture at ann's"), (self.ben_list, True, "ann's picture at ben's")):
            def right_colour():
                red, _, blue = desk.mean_colour(window.pixels(*self.picture))
                return red > blue + 10 if warm else blue > red - 10
            desk.wait(20, right_colour, f"{name} to show the right face")
        assert not self.invites_to_add_somebody(), "the list calls itself empty"

    def chapters(self):
        return [self.both_are_online_and_strangers, self.a_stranger_asks_and_does_not_reach_her, self.the_request_outlives_a_restart,
                self.she_accepts_by_a_click_and_they_see_each_other]


STORY = Story(sys.argv[1])
desk.tell(STORY, STORY.chapters())
