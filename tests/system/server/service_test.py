#!/usr/bin/env python3
"""The packaged unit and settings: how much they leave open, and that the server lives with what they leave it.

The sandbox is made by hand, as there is no service manager where tests run: the mounts and rights of the unit are real; the calls of the
system that the server makes are looked up in the unit's filter.
"""
import os
import re
import shutil
import subprocess
import sys

import velmora
from velmora import DOMAIN, Case, Server, compose, main

PACKAGING = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../packaging")
UNIT = os.path.join(PACKAGING, "velmora-server.service")
NOBODY = "65534"
MOST_EXPOSED = 1.5

# Everything is read-only but the state directory, and no right of root is left.
SANDBOX = """set -e
mount --make-rprivate /
mount --bind "$1" "$1"
mount -o remount,bind,ro /
shift
exec setpriv --reuid {nobody} --regid {nobody} --clear-groups --no-new-privs --bounding-set -all --inh-caps -all -- "$@"
""".format(nobody=NOBODY)


def run(*command, **more):
    return subprocess.run(command, capture_output=True, text=True, **more)


def settings_of_unit():
    with open(UNIT) as text:
        return [line.strip().split("=", 1) for line in text if "=" in line and not line.startswith("#")]


def calls_of(group):
    text = run("systemd-analyze", "syscall-filter", "--no-pager", group, check=True).stdout
    found = set()
    for line in text.splitlines()[1:]:
        word = line.strip()
        if word.startswith("@"):
            found |= calls_of(word)
        elif word and not word.startswith("#"):
            found.add(word)
    return found


class Unit(Case):
    def test_it_leaves_little_open(self):
        text = run("systemd-analyze", "security", "--offline=yes", "--no-pager", UNIT).stdout
        found = re.search(r"Overall exposure level for \S+: ([0-9.]+)", text)
        self.assertIsNotNone(found, text)
        self.assertLessEqual(float(found[1]), MOST_EXPOSED, text)

    def test_it_reads_well(self):
        server = Server()
        self.addCleanup(server.close)
        with open(UNIT) as text, open(server.path("velmora-server.service"), "w") as out:
            out.write(text.read().replace("/usr/bin/velmora-server", velmora.PROGRAM))
        done = run("systemd-analyze", "verify", "--man=no", "--recursive-errors=no", server.path("velmora-server.service"))
        self.assertEqual([line for line in done.stderr.splitlines() if "velmora-server.service:" in line], [])

    def test_the_user_is_one_that_can_be_made(self):
        names = {value for key, value in settings_of_unit() if key in ("User", "Group")}
        self.assertEqual(names, {"velmora-server"})
        server = Server()
        self.addCleanup(server.close)
        os.mkdir(server.path("etc"))
        done = run("systemd-sysusers", f"--root={server.folder}", os.path.join(os.path.abspath(PACKAGING), "velmora-server.sysusers"))
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(server.path("etc", "passwd")) as text:
            self.assertRegex(text.read(), r"(?m)^velmora-server:[^:]*:\d+:\d+:[^:]*:/var/lib/velmora:\S*nologin$")


class Settings(Case):
    def test_the_shipped_ones_are_good_and_agreed(self):
        server = Server()
        self.addCleanup(server.close)
        with open(os.path.join(PACKAGING, "velmora-server.ini")) as text:
            shipped = text.read()
        self.assertRegex(shipped, r"(?m)^contacts = agreed$")
        server.write_config(shipped.replace("/var/lib/velmora", server.path("state")) + "port_base = 0\n")
        self.assertIn("the settings are good", server.command("check"))


class Sandbox(Case):
    def sandboxed(self, *wrapper):
        """A server below the sandbox whose whole state is one folder of its user."""
        server = Server()
        self.addCleanup(server.close)
        state = server.path("state")
        os.mkdir(state, 0o700)
        os.chown(state, int(NOBODY), int(NOBODY))
        os.chmod(server.folder, 0o755)
        server.write_config(store=f"{state}/velmora-server.db", log_directory=f"{state}/logs", upgrade_directory=f"{state}/upgrade")
        os.mkdir(f"{state}/upgrade")
        with open(f"{state}/upgrade/upgrade.exe", "wb") as out:
            out.write(b"program")
        os.chown(f"{state}/upgrade", int(NOBODY), int(NOBODY))
        program = os.path.join(server.folder, "velmora-server")  # Where that user may read it.
        shutil.copy(velmora.PROGRAM, program)
        runner = server.path("sandbox")
        with open(runner, "w") as out:
            wrapped = " ".join(wrapper)
            out.write(f"#!/bin/sh\nexec unshare --mount -- sh -c '{SANDBOX}' sandbox {state} {wrapped} {program} \"$@\"\n")
        os.chmod(runner, 0o755)
        old = velmora.PROGRAM
        velmora.PROGRAM = runner
        self.addCleanup(setattr, velmora, "PROGRAM", old)
        server.start()
        return server

    def exercise(self, server):
        """Everything that writes, once."""
        ann = self.client(server).enter()
        ann.set_buddies("zoe@x.y")
        ann.ask("BUGREPORT", From=ann.user, Text="x")
        upload = compose("LOGFILE", [("From", f"ann@{DOMAIN}@d"), ("Filename", "a.log")], b"text")
        self.assertEqual(server.ask("log", upload, ann.address).code, 200)
        self.assertEqual(server.ask("upgrade", compose("GET /upgrade.exe HTTP/1.1", [("Host", "x")])).content, b"program")
        with server.connect("relay", ann.address) as relay:
            relay.sendall(compose("OPENTURN", [("CSeq", 1)]))
            self.assertEqual(velmora.receive(relay).code, 200)
        self.assertIn("reload result=done", server.reload())
        server.metrics()

    def test_it_lives_with_a_read_only_system_and_no_rights(self):
        server = self.sandboxed()
        self.exercise(server)
        with open(f"/proc/{server.process.pid}/status") as text:
            status = text.read()
        self.assertRegex(status, rf"(?m)^Uid:\s+{NOBODY}\s")
        self.assertRegex(status, r"(?m)^CapBnd:\s+0+$")
        self.assertRegex(status, r"(?m)^NoNewPrivs:\s+1$")
        self.assertIn("backed up", server.command("backup", server.path("state", "copy.db")))
        self.assertIn("can't write", server.command("backup", "/copy.db", code=1))
        self.assertEqual(server.end(), 0)

    def test_it_makes_only_calls_that_the_filter_lets_through(self):
        server = self.sandboxed("strace", "-f", "-qq", "-o", "$PWD/state/calls")
        with open(f"/proc/{server.pid}/task/{server.pid}/children") as text:
            server.pid = int(text.read().split()[0])  # The server is the tracer's child.
        self.exercise(server)
        self.assertEqual(server.end(), 0)
        with open(server.path("state", "calls")) as text:
            made = set(re.findall(r"(?m)^\d+ +(?:<\.\.\. )?(\w+)(?:\(| resumed)", text.read()))
        allowed = set()
        for key, value in settings_of_unit():
            if key == "SystemCallFilter":
                for word in value.lstrip("~").split():
                    allowed = allowed - calls_of(word) if value.startswith("~") else allowed | calls_of(word)
        self.assertGreater(len(made), 30)
        self.assertEqual(made - allowed, set())


if __name__ == "__main__":
    if os.geteuid() != 0:
        os.execvp("sudo", ["sudo", "-n", sys.executable, os.path.abspath(__file__), os.path.dirname(velmora.PROGRAM), *sys.argv[1:]])
    main()
