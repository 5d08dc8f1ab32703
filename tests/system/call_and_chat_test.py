#!/usr/bin/env python3
"""Two people call each other and chat through their windows: picking up, declining, declining for a chat, and what they write.

Usage: call_and_chat_test.py BIN [FOLDER]      below tests/support/with-desktop and tests/support/with-sound
FOLDER: pictures of both screens' windows at every step go there.
"""
import os
import sys
import time

import desk

ANN, BEN = "ann@velmora.local", "ben-2@velmora.local"  # Names with a dash are no plain names to an expression.
LOUD = 300
# What an expression, a command or a list would take for something else.
LINE = "tell $Local_Password; (/system?exit), {a} + b & c?"
GREEN, BLUE, YELLOW, RED = "green", "blue", "yellow", "red"


def is_colour(pixel, colour):
    red, green, blue = pixel
    return {GREEN: green > red + 60 and green > blue + 30, BLUE: blue > red + 80 and blue > 150,
            YELLOW: red > 180 and green > 150 and blue < 130, RED: red > green + 80 and red > 150}[colour]


class Story(desk.Story):
    def __init__(self, binaries):
        self.room = desk.scratch()
        self.pictures = sys.argv[2] if len(sys.argv) > 2 else ""
        self.skin = desk.Skin(binaries)
        self.row = self.skin.first_picture()
        self.server = desk.Server(binaries, os.path.join(self.room, "server"))
        clips = desk.clips(binaries)
        self.open_sinks("ann", "ben")
        self.people = self.ann, self.ben = tuple(
            desk.Client(binaries, os.path.join(self.room, name), name, self.server, os.path.join(clips, name + ".webm"), name,
                        (f"Local_User_GUID={account}", "Local_Password=a secret"))
            for name, account in (("ann", ANN), ("ben", BEN)))

    # ---- What is on the screen.

    def place(self, kind, state, *words):
        """The rectangle of a part of a call or chat window in that state."""
        buddy = "grace@example.org"
        return self.skin.rect(f"foreach_{kind}/window_{buddy}", *words, options=("--buddies", "1", "--set", f"{buddy}_Call_State={state}"))

    def click(self, window, kind, state, *words):
        x, y, width, height = self.place(kind, state, *words)
        window.click(x + width // 2, y + height // 2)

    def shows(self, window, rect, colour):
        """Whether some of the pixels in and just around a rectangle of the window have that colour."""
        x, y, width, height = rect
        pixels = window.pixels(x - 2, y - 2, width + 4, height + 4)
        found = sum(is_colour(pixels[i:i + 3], colour) for i in range(0, len(pixels) - 2, 3))
        return found > 40

    def await_colour(self, window, rect, colour, what, there=True):
        desk.wait(10, lambda: self.shows(window, rect, colour) == there, what)

    def ring(self):
        """Around the picture, in the middle of the window."""
        return (100, 62, 152, 8)

    def keep(self, name):
        if self.pictures:
            time.sleep(0.3)
            desk.run("import", "-window", "root", os.path.join(self.pictures, name + ".png"))

    def call(self, caller, list_window, other, answer_title):
        """By the menu of the buddy list: Talk, Call, ..."""
        x, y, _, height = self.row
        list_window.raise_up()
        list_window.pointer(x + 60, y + height // 2)
        time.sleep(0.2)
        desk.run("xdotool", "click", "3")
        time.sleep(0.5)
        desk.run("xdotool", "key", "Down", "Down", "Return")
        own = caller.window(f"Call with {other.name_shown}")
        theirs = other.window(answer_title)
        own.move(60, 300)
        theirs.move(620, 300)
        return own, theirs

    # ---- Chapters, in order.

    def both_are_online(self):
        self.server.start()
        for person, account in ((self.ann, ANN), (self.ben, BEN)):
            person.name_shown = account.partition("@")[0]
            self.server.command("user", "add", person.name_shown, "a secret", f"{person.name}@example.org")
        self.server.command("buddy", "add", "ann", "ben-2")
        self.ann.start()
        self.ben.start()
        self.ann.said("Changing state to 'Online'", 30)
        self.ben.said("Changing state to 'Online'", 30)
        self.ann_list, self.ben_list = self.ann.window("Velmora"), self.ben.window("Velmora")
        self.ann_list.move(20, 20)
        self.ben_list.move(960, 20)
        desk.wait(30, lambda: self.ann.pictures() >= 3 and self.ben.pictures() >= 3, "pictures on both sides")

    def a_call_rings_and_is_picked_up(self):
        recording = desk.Recording("ben", os.path.join(self.room, "ring.raw"))
        own, theirs = self.call(self.ann, self.ann_list, self.ben, "Call with ann")
        pick_up = self.place("call", "ringing", "text=$picktext")
        self.await_colour(theirs, pick_up, GREEN, "the button to pick up")
        self.await_colour(theirs, self.ring(), GREEN, "the frame of a call that rings")
        self.await_colour(own, self.ring(), BLUE, "the frame of a call that is made")
        self.keep("1-rings")
        # Seconds before the voices: what is loud now is the phone.
        desk.wait(10, lambda: recording.seconds() > 2, "two seconds of sound")
        assert max(desk.envelope(recording.stop())) > LOUD, "the phone was not heard"
        self.click(theirs, "call", "ringing", "text=$picktext")
        for window in (own, theirs):
            self.await_colour(window, self.ring(), YELLOW, "the frame of a talk")
        self.own, self.theirs = own, theirs

    def both_are_heard_hands_free(self):
        desk.run("xdotool", "mousemove", "40", "790")
        recordings = {person: desk.Recording(person.name, os.path.join(self.room, person.name + ".raw")) for person in (self.ann, self.ben)}
        desk.wait(10, lambda: all(recording.seconds() > 4.5 for recording in recordings.values()), "sound on both sides")
        self.keep("2-talk")
        for person in (self.ann, self.ben):
            loudest = max(desk.envelope(recordings[person].stop())[50:])
            assert loudest > LOUD, f"{person.name} hears nothing (loudest {loudest:.0f})"

    def the_caller_hangs_up(self):
        self.click(self.own, "call", "talking", "text=Hang up")
        again = self.place("call", "declined", "text=$calltext")
        for window in (self.own, self.theirs):
            self.await_colour(window, self.ring(), YELLOW, "the talk's end", there=False)
            self.await_colour(window, again, BLUE, "the button to call again")
        self.keep("3-done")
        desk.run("xdotool", "mousemove", "40", "790")
        recording = desk.Recording("ben", os.path.join(self.room, "after.raw"))
        desk.wait(10, lambda: recording.seconds() > 2.5, "sound after the call")
        assert max(desk.envelope(recording.stop())[75:]) < LOUD, "the voice goes on after the call"

    def a_call_is_declined_by_the_escape_key(self):
        self.click(self.own, "call", "declined", "text=$calltext")
        self.await_colour(self.theirs, self.place("call", "ringing", "text=$picktext"), GREEN, "the second call")
        self.theirs.raise_up()
        self.theirs.key("Escape")
        desk.wait(10, lambda: not self.ben.has_window("Call with ann"), "the window to go")
        self.await_colour(self.own, self.place("call", "declined", "text=$calltext"), BLUE, "the caller to learn it")
        self.keep("4-declined")
        self.own.raise_up()
        self.own.key("Escape")
        desk.wait(10, lambda: not self.ann.has_window("Call with ben-2"), "the caller's window to go")

    def a_call_is_declined_for_a_chat(self):
        own, theirs = self.call(self.ben, self.ben_list, self.ann, "Call with ben-2")
        self.await_colour(theirs, self.place("call", "ringing", "text=$picktext"), GREEN, "the third call")
        self.click(theirs, "call", "ringing", "text=Decline, and chat instead")
        self.ann_chat = self.ann.window("Chat with ben-2")
        self.ben_chat = self.ben.window("Chat with ann")
        desk.wait(10, lambda: not self.ann.has_window("Call with ben-2") and not self.ben.has_window("Call with ann"), "the calls to go")
        self.ann_chat.move(300, 150)
        self.ben_chat.move(700, 150)

    def what_is_written_arrives_as_it_stands(self):
        typing = (28, 471, 300, 20)
        x, y, width, height = self.place("chat", "", "autofocus=")
        quiet = self.ben_chat.pixels(*typing)
        self.ann_chat.click(x + width // 2, y + height // 2)
        self.ann_chat.type(LINE)
        desk.wait(10, lambda: desk.difference(quiet, self.ben_chat.pixels(*typing)) > 0.5, "word that ann types")
        self.keep("5-types")
        self.ann_chat.key("Return")
        for person in (self.ann, self.ben):
            other = BEN if person is self.ann else ANN
            path = os.path.join(person.folder, "chatlogs", f"{other}_chat.txt")

            def arrived():
                return os.path.exists(path) and f"] ann: {LINE}\r\n" in open(path, newline="").read()
            desk.wait(10, arrived, f"the line in {person.name}'s log of the chat")
        desk.wait(10, lambda: desk.difference(quiet, self.ben_chat.pixels(*typing)) < 0.5, "the word of typing to go")
        self.keep("6-sent")
        assert not self.ann.process.poll() and not self.ben.process.poll(), "the text has ended a program"

    def a_line_opens_a_window_that_was_closed(self):
        self.ben_chat.raise_up()
        self.ben_chat.key("Escape")
        desk.wait(10, lambda: not self.ben.has_window("Chat with ann"), "ben's chat to close")
        self.ann_chat.raise_up()
        self.ann_chat.type("there?")
        self.click(self.ann_chat, "chat", "", "edit_line?submit")
        self.ben_chat = self.ben.window("Chat with ann")
        self.keep("7-opened")

    def chapters(self):
        return [self.both_are_online, self.a_call_rings_and_is_picked_up, self.both_are_heard_hands_free, self.the_caller_hangs_up,
                self.a_call_is_declined_by_the_escape_key, self.a_call_is_declined_for_a_chat, self.what_is_written_arrives_as_it_stands,
                self.a_line_opens_a_window_that_was_closed]


STORY = Story(sys.argv[1])
desk.tell(STORY, STORY.chapters())
