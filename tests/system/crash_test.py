#!/usr/bin/env python3
"""Start, end and failure of the real program: a second instance, a restart, and every kind of crash down to the last line of its log.

Usage: crash_test.py BIN PROVOKE [CHAPTER...]      below tests/support/with-desktop --trayer; PROVOKE is the library of
tests/support/provoke.cpp, a CHAPTER the name of a method
"""
import glob
import os
import re
import shutil
import signal
import sys
import time

import desk

DIALOG = "Velmora Issue Capture Tool"
PRESET = ("1. What steps can I take to reproduce this crash?\n\n\n"
          "2. What other bugs have you encountered, and how can I reproduce those?\n\n\n"
          "3. Overall, how are things going?  What's good, what's bad, and what do you most want changed?\n")
NO_COMMENT = "-- No User Comment Supplied --"
DECLINED = "-- Auto-restart declined. --"
DIRTY_END = "---- Closed, ERROR Dirty shutdown ----"
SEGV = ["ERROR Uncaught 'STATUS_ACCESS_VIOLATION' exception.", "ERROR Signal 'SIGSEGV' caught, aborting."]
COMMENT = "-------- User Comment -------"
COMMENT_END = "------------------------------"
CLEAN_END = "---- Closed, Clean shutdown ----"
RESTART_FAILED = "Auto-Restart Failed"
RUNNING = "Velmora Already Running"
CRASHED = 255


def processes(folder, program):
    """Those that run a program of this name in a folder; the dead that nobody has reaped do not count."""
    found = []
    for path in glob.glob("/proc/[0-9]*"):
        try:
            if os.readlink(path + "/cwd") == folder and os.path.basename(os.readlink(path + "/exe")).split(" ")[0] == program:
                found.append(int(os.path.basename(path)))
        except OSError:
            pass
    return found


def arguments(process):
    return read(f"/proc/{process}/cmdline").split("\0")[1:-1]


class Program:
    """The client in a folder of its own, with the library that makes it fail."""

    def __init__(self, story, name, *options, robust=0, binaries=None):
        self.story, self.options = story, options
        self.binaries = binaries or story.binaries
        self.folder = os.path.join(story.room, name)
        if not os.path.exists(self.folder):
            desk.run(os.path.join(desk.TOP, "tools/make-home"), self.folder, "First_Run_Complete=1")
        settings = os.path.join(self.folder, "settings.ini")
        with open(settings) as source:
            text = source.read()
        with open(settings, "w") as out:
            out.write(re.sub("robust_client: .", f"robust_client: {robust}", text))
        self.process = None

    def start(self, window="Log on", **environment):
        self.old_logs = set(self.dirty_logs())
        environment = {**os.environ, "LD_PRELOAD": self.story.provoke, **environment}
        self.process = desk.subprocess.Popen([os.path.join(self.binaries, "velmora"), *self.options], cwd=self.folder,
                                             env={name: value for name, value in environment.items() if value is not None},
                                             stdout=open(os.path.join(self.folder, "stdout.txt"), "a"), stderr=desk.subprocess.STDOUT)
        self.story.started.append(self)
        if window:
            self.window(window)
        return self

    def window(self, title, pid=None):
        def find():
            found = desk.run("xdotool", "search", "--all", "--pid", str(pid or self.process.pid), "--onlyvisible", "--name", f"^{title}$",
                             check=False).split()
            return desk.Window(found[0]) if found else None
        return desk.wait(20, find, f"the window '{title}'")

    def provoke(self, thread, misdeed):
        """Written aside, so that the program never reads half of it."""
        with open(os.path.join(self.folder, "request"), "w") as out:
            out.write(misdeed)
        os.rename(os.path.join(self.folder, "request"), os.path.join(self.folder, f"provoke.{thread}"))

    def taken(self, thread):
        path = os.path.join(self.folder, f"provoke.{thread}")
        desk.wait(10, lambda: not os.path.exists(path), f"{thread} to take the request")

    def dialog(self):
        return Dialog(desk.wait(20, lambda: processes(self.folder, "velmora-crash"), "the crash dialog's process")[0], self)

    def log(self):
        return read(os.path.join(self.folder, "velmora.log"))

    def said(self, text):
        desk.wait(20, lambda: text in self.log(), f"the log line '{text}'")

    def dirty_logs(self):
        return glob.glob(os.path.join(self.folder, "velmora_*_dirty.log"))

    def ended(self, code, seconds=20):
        assert self.process.wait(seconds) == code, f"ended with {self.process.returncode}"

    def restarted(self, *wanted):
        """The process that the last one has started in its place, with these arguments."""
        def find():
            return [p for p in processes(self.folder, "velmora") if p != self.process.pid and arguments(p) == list(wanted)]
        return desk.wait(20, find, f"the program restarted with {wanted}")[0]

    def dirty_log(self):
        """The log of the run that has just failed, as lines without their times."""
        new = set(self.dirty_logs()) - self.old_logs
        assert len(new) == 1, f"dirty logs: {new}"
        path = new.pop()
        assert re.search(r"/velmora_\d{6}_\d{6}_dirty\.log$", path), path
        lines = read(path).splitlines()
        for line in lines:
            assert re.match(r"\d{6}_\d{6}: ", line), f"a line without its time: {line}"
        return [line[15:] for line in lines]

    def kill(self):
        for process in processes(self.folder, "velmora") + processes(self.folder, "velmora-crash"):
            os.kill(process, signal.SIGKILL)
        if self.process:
            self.process.wait()
        desk.wait(10, lambda: not processes(self.folder, "velmora") and not processes(self.folder, "velmora-crash"),
                  "the end of all processes")

    def stop(self):
        """Ends what runs here and takes its log away, which the next start would find."""
        self.kill()
        if os.path.exists(os.path.join(self.folder, "velmora.log")):
            os.unlink(os.path.join(self.folder, "velmora.log"))


class Dialog:
    """The crash dialog, worked by keys alone: the edit has the focus, Tab leads to the check box, to OK and to Cancel."""

    def __init__(self, process, program):
        self.process, self.program = process, program
        self.window = program.window(DIALOG, process)
        self.window.raise_up()
        time.sleep(0.2)

    def text(self):
        desk.run("xdotool", "key", "ctrl+a", "ctrl+c")
        time.sleep(0.2)
        return desk.run("xclip", "-o", "-selection", "clipboard")

    def ok(self, comment=None, restart=True):
        if comment:
            desk.run("xdotool", "key", "ctrl+End")
            desk.run("xdotool", "type", "--delay", "5", comment)
        desk.run("xdotool", "key", "Tab")
        if not restart:
            desk.run("xdotool", "key", "space")
        desk.run("xdotool", "key", "Return")
        self.gone()

    def cancel(self):
        desk.run("xdotool", "key", "Tab", "Tab", "Tab", "space")
        self.gone()

    def close(self):
        desk.run("xdotool", "key", "alt+F4")
        self.gone()

    def is_open(self):
        return self.process in processes(self.program.folder, "velmora-crash")

    def gone(self):
        desk.wait(10, lambda: not self.is_open(), "the end of the crash dialog")


def read(path):
    try:
        with open(path, errors="replace") as source:
            return source.read()
    except FileNotFoundError:
        return ""


def in_order(lines, *wanted):
    """Each wanted line stands behind the one before; an entry ending in '*' is a line's beginning."""
    at = -1
    for text in wanted:
        matches = [i for i in range(at + 1, len(lines)) if (lines[i].startswith(text[:-1]) if text.endswith("*") else lines[i] == text)]
        assert matches, f"no line '{text}' behind '{lines[at]}'; the end:\n" + "\n".join(lines[-40:])
        at = matches[0]


def frames(lines):
    """(mark, function) of the dumped call stack, innermost first. Lines of other threads may stand between."""
    begin = next(i for i, line in enumerate(lines) if line.startswith("---- Call Stack for Thread #"))
    found = [re.fullmatch(r"[\w./]+\(\d+\): ([ *])\[(\w+)\] \(\w+\)", line) for line in lines[begin + 1:]]
    return [match.groups() for match in found if match]


class Story:
    def __init__(self, binaries, provoke):
        self.binaries, self.provoke, self.room, self.started = binaries, provoke, desk.scratch(), []

    def client(self, *options, name="home", **more):
        return Program(self, name, "-silent", "-log", "x", *options, **more)

    def crash(self, thread, misdeed, *options, **more):
        program = self.client(*options, **more).start()
        program.provoke(thread, misdeed)
        return program, program.dialog()

    def check(self, program, named, ending):
        """What each crash leaves, whatever its kind; the lines of its log."""
        program.ended(CRASHED)
        lines = program.dirty_log()
        in_order(lines, *named, "---- ERROR: UNCLEAN SHUTDOWN ----", "---- Call Stack for Thread #*", *ending, DIRTY_END)
        assert lines[-1] == DIRTY_END, lines[-1]
        return lines

    # ---- Crashes.

    def a_crash_of_the_main_thread_is_told_commented_and_restarted(self):
        program, dialog = self.crash("main", "segv", "-host", "127.0.0.1:9")
        assert dialog.text() == PRESET, repr(dialog.text())
        dialog.ok("fed it a banana")
        path = os.path.realpath(os.path.join(self.binaries, "velmora"))
        lines = self.check(program, SEGV, [COMMENT, "1. What steps can I take to reproduce this crash?", "", "", "2. What other bugs*",
                                           "fed it a banana", COMMENT_END, f"-- Trying to auto-restart '{path} -log x' --"])
        stack = frames(lines)
        assert stack[-1] == (" ", "WinMain") and (" ", "GWinMain") in stack, stack
        assert stack[0][0] == "*", stack
        again = program.restarted("-log", "x")
        program.window("Log on", again)
        program.said("[WinMain] Setting log filter: 'x'")
        program.stop()

    def a_crash_of_a_service_without_a_comment_is_not_restarted_when_the_box_is_off(self):
        program, dialog = self.crash("service", "segv")
        dialog.ok(restart=False)
        lines = self.check(program, SEGV, [NO_COMMENT, DECLINED])
        assert frames(lines)[-1] == (" ", "GThreadObject_ThreadProc"), frames(lines)
        assert not processes(program.folder, "velmora")

    def a_failed_assertion_is_told_and_cancelled(self):
        program = self.client()
        with open(os.path.join(program.folder, "provoke.threads"), "w"):
            pass
        program.start(window=None).dialog().cancel()
        os.unlink(os.path.join(program.folder, "provoke.threads"))
        lines = self.check(program, [], [NO_COMMENT, DECLINED])
        failed = [line for line in lines if "ERROR" in line]
        assert re.fullmatch(r"libvorn/src/runtime/GThreadObject\.cpp\(\d+\): \[start\] ERROR: Assertion failed, aborting\. \(_thread\)", failed[0])
        assert (" ", "start") in frames(lines) and (" ", "GWinMain") in frames(lines), frames(lines)

    def an_uncaught_exception_of_the_main_thread_is_told_and_the_dialog_closed(self):
        program, dialog = self.crash("main", "throw")
        dialog.close()
        self.check(program, ["Velmora: ERROR Uncaught 'exception' exception in thread 'WinMain'. (provoked)"], [NO_COMMENT, DECLINED])

    def an_uncaught_exception_of_a_service_is_told_and_restarted_with_the_original_options(self):
        program, dialog = self.crash("service", "throw", "-property", "settings.ini", "-keepLogfiles", "1", robust=1)
        dialog.ok()
        lines = self.check(program, ["libvorn/src/platform/thread/GThread_Posix.cpp(*"], [NO_COMMENT, "-- Trying to auto-restart '*"])
        assert any(line.endswith("ERROR Uncaught 'exception' exception in thread, aborting. (provoked)") for line in lines)
        program.restarted("-log", "x", "-silent", "-property", "settings.ini", "-keepLogfiles", "1")
        program.stop()

    def a_stack_overflow_of_either_thread_is_told(self):
        for thread in ("main", "service"):
            program, dialog = self.crash(thread, "overflow", "-norestart")
            dialog.ok()
            self.check(program, SEGV, [NO_COMMENT, DECLINED])

    def arithmetic_errors_are_named(self):
        for thread, misdeed, status in (("main", "float", "STATUS_FLOAT_DIVIDE_BY_ZERO"), ("service", "integer", "STATUS_INTEGER_DIVIDE_BY_ZERO")):
            program, dialog = self.crash(thread, misdeed)
            dialog.cancel()
            self.check(program, [f"ERROR Uncaught '{status}' exception.", "ERROR Signal 'SIGFPE' caught, aborting."], [NO_COMMENT, DECLINED])

    def an_abort_is_told(self):
        program, dialog = self.crash("main", "abort")
        dialog.cancel()
        self.check(program, ["ERROR Signal 'SIGABRT' caught, aborting."], [NO_COMMENT, DECLINED])

    def a_broken_heap_keeps_neither_dialog_nor_restart_away(self):
        for thread in ("main", "service"):
            program, dialog = self.crash(thread, "heap")
            dialog.ok("heap")
            self.check(program, ["ERROR Signal 'SIGABRT' caught, aborting."], [COMMENT, "heap", COMMENT_END, "-- Trying to auto-restart '*"])
            program.restarted("-log", "x")
            program.stop()

    def an_open_menu_keeps_no_input_from_the_dialog(self):
        for thread in ("main", "service"):
            program = self.client("-norestart").start()
            x, y = desk.wait(10, self.tray_icon, "the icon in the tray")

            def windows():
                return len(desk.run("xdotool", "search", "--pid", str(program.process.pid), "--onlyvisible", ".*", check=False).split())
            before = windows()
            desk.run("xdotool", "mousemove", str(x), str(y), "click", "3")
            desk.wait(10, lambda: windows() > before, "the icon's menu")
            if thread == "service":
                program.provoke("main", "late")  # The main thread hangs, as for a lock that the failed one holds: it will not close its menu.
                program.taken("main")
            program.provoke(thread, "segv")
            dialog = program.dialog()
            # "Cancel" is the right one of the two buttons along the lower edge.
            _, _, wide, high = dialog.window.geometry()
            desk.run("xdotool", "mousemove", "--window", dialog.window.number, str(wide - 50), str(high - 25), "click", "1")
            dialog.gone()
            self.check(program, SEGV, [NO_COMMENT, DECLINED])

    def a_second_failure_ends_the_process_after_five_seconds(self):
        program = self.client().start()
        program.provoke("service", "late")
        program.taken("service")
        program.provoke("main", "segv")
        dialog = program.dialog()
        begin = time.monotonic()
        program.provoke("late", "now")
        program.ended(CRASHED)
        took = time.monotonic() - begin
        assert 4.9 < took < 12, f"ended after {took:.1f} s"
        dialog.gone()
        log = program.log()
        assert log.count("---- ERROR: UNCLEAN SHUTDOWN ----") == 1 and log.count(SEGV[1]) == 2, log[-2000:]
        os.unlink(os.path.join(program.folder, "provoke.late"))
        assert DIRTY_END not in log and not processes(program.folder, "velmora")
        # The next start finds what was left and names it.
        program.start()
        assert read(desk.wait(10, lambda: set(program.dirty_logs()) - program.old_logs, "the old log's name").pop()) == log
        program.stop()

    def without_a_display_nobody_is_asked(self):
        program = self.client().start(window=None, DISPLAY=None, QT_QPA_PLATFORM="offscreen")
        program.said("beginning loop")
        program.provoke("main", "segv")
        self.check(program, SEGV, [NO_COMMENT, DECLINED])

    def a_display_that_is_gone_asks_nobody_either(self):
        program = self.client().start(window=None, DISPLAY=":4711", QT_QPA_PLATFORM="offscreen")
        program.said("beginning loop")
        program.provoke("main", "segv")
        self.check(program, SEGV, [NO_COMMENT, DECLINED])

    def the_dialog_does_not_outlive_the_process(self):
        program, dialog = self.crash("service", "segv")
        os.kill(program.process.pid, signal.SIGKILL)
        program.process.wait()
        dialog.gone()
        program.stop()

    # ---- Start and end.

    def a_wish_to_terminate_is_logged_and_the_program_carries_on(self):
        program = self.client().start()
        os.kill(program.process.pid, signal.SIGTERM)
        program.said("WARNING System signalled SIGTERM")
        # The message loop still turns: the program can be asked to fail.
        program.provoke("main", "abort")
        program.dialog().cancel()
        self.check(program, ["WARNING System signalled SIGTERM", "ERROR Signal 'SIGABRT' caught, aborting."], [NO_COMMENT, DECLINED])

    def a_wish_to_terminate_ends_in_order_with_the_remedy(self):
        program = self.client(robust=1).start()
        os.kill(program.process.pid, signal.SIGTERM)
        program.ended(0)
        log = read(max(glob.glob(os.path.join(program.folder, "velmora_*_clean.log")), key=os.path.getmtime))
        in_order([line[15:] for line in log.splitlines()], "WARNING System signalled SIGTERM", "Leaked Object Tally: (none)", CLEAN_END)

    def logs_left_behind_are_named_by_their_last_line(self):
        program = self.client(name="left").start()
        program.kill()
        left = program.log()
        assert left and not program.dirty_logs()
        program.start()
        assert [read(path) for path in program.dirty_logs()] == [left]
        program.stop()
        with open(os.path.join(program.folder, "velmora.log"), "w") as out:
            out.write(f"260101_000000: {CLEAN_END}\n")
        program.start()
        assert len(glob.glob(os.path.join(program.folder, "velmora_*_clean.log"))) == 1 and len(program.dirty_logs()) == 1
        program.stop()

    def a_second_instance_asks_and_cancel_ends_it(self):
        first = self.client(name="twice").start()
        second = self.client(name="twice").start(window=RUNNING)
        desk.run("xdotool", "key", "Escape")
        second.ended(0)
        second.start(window=RUNNING).window(RUNNING).raise_up()
        desk.run("xdotool", "key", "shift+Tab", "space")  # "Cancel" stands before "Try Again".
        second.ended(0)
        assert first.process.poll() is None and not first.dirty_logs()
        first.stop()

    def a_second_instance_tries_again_until_the_first_has_ended(self):
        first = self.client(name="twice").start()
        second = self.client(name="twice").start(window=RUNNING)
        box = second.window(RUNNING)
        desk.run("xdotool", "key", "Return")  # "Try Again" is the default.
        desk.wait(10, lambda: second.window(RUNNING).number != box.number, "the box to come back while the log is held")
        os.kill(first.process.pid, signal.SIGKILL)
        first.process.wait()
        second.window(RUNNING).raise_up()
        desk.run("xdotool", "key", "Return")
        second.window("Log on")
        assert second.log() and len(first.dirty_logs()) == 1
        second.stop()

    def a_second_instance_continues_without_a_log(self):
        first = self.client(name="twice").start()
        logs, held = os.listdir(first.folder), first.log()
        second = Program(self, "twice", "-log", "x").start(window=RUNNING)
        desk.run("xdotool", "key", "Tab", "space")
        second.window("Log on")
        assert sorted(os.listdir(first.folder)) == sorted(set(logs + ["stdout.txt"])), os.listdir(first.folder)
        assert first.log().startswith(held) and f"Version: Velmora/764" in read(os.path.join(first.folder, "stdout.txt"))
        first.stop()

    def restart_from_a_window(self, program, meanwhile=lambda: None):
        """The skin of this home has a link that restarts where the shipped one makes an account."""
        skin = os.path.join(program.folder, "template.xml")
        text, found = re.subn(r'(text="Create a new account"[^>]* command=")[^"]*', r"\1(/system?restart)", read(skin))
        assert found == 1
        with open(skin, "w") as out:
            out.write(text)
        window = program.start().window("Log on")
        meanwhile()
        time.sleep(0.5)
        window.click(*desk.Skin(self.binaries).place("window_login", "text=Create a new account"))

    def a_restart_that_is_asked_for_starts_the_program_without_options(self):
        program = self.client(name="restarted")
        self.restart_from_a_window(program)
        program.ended(1)
        program.window("Log on", program.restarted())
        assert "Command Line: \n" in program.log()
        logs = glob.glob(os.path.join(program.folder, "velmora_*_clean.log"))
        assert len(logs) == 1 and "'Exit_When_Offline' set, exiting with 'Restart_On_Exit'=1" in read(logs[0])
        program.stop()

    def a_restart_that_is_ruled_out_ends_in_a_box(self):
        program = self.client("-norestart", name="norestart")
        self.restart_from_a_window(program)
        program.window(RESTART_FAILED).raise_up()
        desk.run("xdotool", "key", "Return")
        program.ended(1)
        assert not processes(program.folder, "velmora")

    def a_restart_of_a_program_that_is_gone_ends_in_a_box(self):
        binaries = os.path.join(self.room, "bin")
        os.makedirs(binaries)
        path = shutil.copy(os.path.join(self.binaries, "velmora"), binaries)
        program = self.client(name="gone", binaries=binaries)
        self.restart_from_a_window(program, lambda: os.unlink(path))
        program.window(RESTART_FAILED).raise_up()
        desk.run("xdotool", "key", "Return")
        program.ended(1)

    def tray_icon(self):
        """The middle of the one icon in the tray, once it is there."""
        for number in desk.run("xdotool", "search", "--onlyvisible", "--class", "trayer").split():
            x, y, width, height = desk.Window(number).geometry()
            if x > 0 and width >= height > 10:
                return x + width // 2, y + height // 2
        return None

    def chapters(self):
        return [self.a_crash_of_the_main_thread_is_told_commented_and_restarted,
                self.a_crash_of_a_service_without_a_comment_is_not_restarted_when_the_box_is_off,
                self.a_failed_assertion_is_told_and_cancelled,
                self.an_uncaught_exception_of_the_main_thread_is_told_and_the_dialog_closed,
                self.an_uncaught_exception_of_a_service_is_told_and_restarted_with_the_original_options,
                self.a_stack_overflow_of_either_thread_is_told,
                self.arithmetic_errors_are_named,
                self.an_abort_is_told,
                self.a_broken_heap_keeps_neither_dialog_nor_restart_away,
                self.an_open_menu_keeps_no_input_from_the_dialog,
                self.a_second_failure_ends_the_process_after_five_seconds,
                self.without_a_display_nobody_is_asked,
                self.a_display_that_is_gone_asks_nobody_either,
                self.the_dialog_does_not_outlive_the_process,
                self.a_wish_to_terminate_is_logged_and_the_program_carries_on,
                self.a_wish_to_terminate_ends_in_order_with_the_remedy,
                self.logs_left_behind_are_named_by_their_last_line,
                self.a_second_instance_asks_and_cancel_ends_it,
                self.a_second_instance_tries_again_until_the_first_has_ended,
                self.a_second_instance_continues_without_a_log,
                self.a_restart_that_is_asked_for_starts_the_program_without_options,
                self.a_restart_that_is_ruled_out_ends_in_a_box,
                self.a_restart_of_a_program_that_is_gone_ends_in_a_box]

    def last_words(self):
        logs = sorted(glob.glob(os.path.join(self.room, "*", "velmora*.log")), key=os.path.getmtime)[-2:]
        return [(path, read(path)[-1500:]) for path in logs]

    def clean_up(self):
        for program in self.started:
            program.stop()


STORY = Story(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]))
desk.tell(STORY, [chapter for chapter in STORY.chapters() if len(sys.argv) == 3 or chapter.__name__ in sys.argv[3:]])
