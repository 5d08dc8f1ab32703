#!/usr/bin/env python3
"""What the real client tells in bubbles, on a desktop with a notification service: updates that a logon announces, log files on their way,
a stranger's request, microphones that are missing. And the windows that the first logon opens.

Usage: bubbles_test.py BIN      below tests/support/with-desktop
"""
import os
import subprocess
import sys
import time

import desk

# No sound server is there, so ann has no microphone; ben has the one of his clip.
os.environ["PULSE_SERVER"] = "unix:/nonexistent"


class Story(desk.Story):
    def __init__(self, binaries):
        self.binaries, self.room = binaries, desk.scratch()
        self.skin = desk.Skin(binaries)
        self.server = desk.Server(binaries, os.path.join(self.room, "server"))
        with open(os.path.join(self.server.folder, "velmora-server.ini"), "a") as out:
            out.write("contacts = agreed\n")
        self.service = subprocess.Popen(["dunst"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def clean_up(self):
        super().clean_up()
        self.service.terminate()
        self.service.wait()

    def person(self, name, folder, *settings):
        clip = os.path.join(desk.clips(self.binaries), name + ".webm") if name == "ben" else "/nonexistent"
        return desk.Client(self.binaries, os.path.join(self.room, folder), name, self.server, clip, "",
                           (f"Local_User_GUID={name}@velmora.local", f"Local_Password={name}'s secret", *settings))

    def told(self, title, text, picture):
        """A bubble of these words; the next one is a new one."""
        def said():
            history = desk.run("dunstctl", "history", check=False)
            return title in history and text in history
        number = desk.wait(20, lambda: desk.run("xdotool", "search", "--onlyvisible", "--class", "Dunst", check=False).split(),
                           f"the bubble '{title}'")[0]
        if os.environ.get("VELMORA_TEST_PICTURES"):
            time.sleep(0.3)
            desk.run("import", "-silent", "-window", number, os.path.join(os.environ["VELMORA_TEST_PICTURES"], f"bubble_{picture}.png"))
        desk.run("dunstctl", "close-all")
        desk.wait(10, said, f"a bubble '{title}' that says '{text}'")
        desk.wait(10, lambda: not desk.run("xdotool", "search", "--onlyvisible", "--class", "Dunst", check=False), "the bubble to go")
        desk.run("dunstctl", "history-clear", check=False)

    def announce(self, **settings):
        """The server offers an upgrade from now on."""
        path = os.path.join(self.server.folder, "velmora-server.ini")
        with open(path) as source:
            lines = [line for line in source if not line.startswith("upgrade_")]
        with open(path, "w") as out:
            out.writelines(lines + [f"upgrade_{name} = {value}\n" for name, value in settings.items()])
        self.server.stop()
        self.server.start()

    # ---- Chapters, in order.

    def the_first_logon_opens_the_list_and_the_options(self):
        self.server.start()
        for name in ("ann", "ben"):
            self.server.command("user", "add", name, f"{name}'s secret", f"{name}@example.org")
        ann = self.person("ann", "first", "First_Run_Complete=0")
        self.people = (ann,)
        ann.start()
        ann.said("Changing state to 'Online'", 30)
        ann.window("Velmora")
        ann.window("Options")
        with open(os.path.join(ann.folder, "settings.ini")) as source:
            words = source.read()
        assert "first_logon_complete: 1" in words and "first_run_complete: 1" in words, words
        ann.kill()

    def an_update_is_told_and_one_may_go_on(self):
        self.announce(version=99999, name="99999", priority="normal", url="http://127.0.0.1:9/velmora")
        ann = self.person("ann", "update")
        self.people = (ann,)
        ann.start()
        self.told("Update in progress", "Velmora is downloading the service update '99999'.  You can use Velmora as normal, and upgrade when prompted.",
                  "update")
        ann.said("Changing state to 'Online'", 30)
        ann.kill()

    def a_critical_update_keeps_the_client_offline(self):
        self.announce(version=99999, name="99999", priority="critical", url="http://127.0.0.1:9/velmora")
        ann = self.person("ann", "critical")
        self.people = (ann,)
        ann.start()
        self.told("Critical update in progress",
                  "Velmora is downloading the critical update '99999'.  You will automatically go online when prompted to upgrade.", "critical")
        assert "Changing state to 'Connecting" not in ann.log, "the client goes online"
        ann.kill()

    def log_files_on_their_way_are_told(self):
        self.announce()
        ann = self.person("ann", "upload", "Exit_When_Logfiles_Uploaded=1")
        self.people = (ann,)
        ann.start()
        self.told("Logfile upload in progress", "Velmora is uploading its logfiles and will exit when complete.", "upload")
        ann.kill()

    def a_strangers_request_is_told(self):
        self.people = self.ann, self.ben = self.person("ann", "ann"), self.person("ben", "ben")
        for person in self.people:
            person.start()
        for person in self.people:
            person.said("Changing state to 'Online'", 30)
        self.ann_list, self.ben_list = self.ann.window("Velmora"), self.ben.window("Velmora")
        self.ann_list.move(80, 60)
        self.ben_list.move(500, 60)
        self.ben_list.click(*self.skin.place("window_buddylist", "window_addbuddy?open"))
        form = self.ben.window("Add a buddy")
        time.sleep(0.5)  # The fade.
        form.click(*self.skin.place("window_addbuddy", "var=Add_Buddy_GUID"))
        form.type("ann")
        form.key("Return")
        self.told("Contact request", "ben@velmora.local wants to be your buddy.  Click here to answer.", "contact")

    def who_has_no_microphone_is_told_when_he_would_talk(self):
        time.sleep(0.6)  # A list that has just changed takes no answer.
        self.ann_list.raise_up()
        self.ann_list.click(*self.skin.place("window_buddylist", "?accept"))
        self.ann.said("PING response sent", 30)
        x, y, width, height = self.skin.first_picture()
        self.ann_list.click(x + width // 2, y + height // 2)
        self.told("No microphone configured",
                  "You cannot talk to ben@velmora.local because you have no microphone configured.  Click here to configure your audio.", "no_microphone")

    def chapters(self):
        return [self.the_first_logon_opens_the_list_and_the_options, self.an_update_is_told_and_one_may_go_on,
                self.a_critical_update_keeps_the_client_offline, self.log_files_on_their_way_are_told, self.a_strangers_request_is_told,
                self.who_has_no_microphone_is_told_when_he_would_talk]


STORY = Story(os.path.abspath(sys.argv[1]))
desk.tell(STORY, STORY.chapters())
