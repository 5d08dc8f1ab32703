#!/usr/bin/env python3
"""What breaks under two people who see each other mends itself: servers that die, networks that forget, move, lose and go away.

Usage: failures_test.py BIN SLEEP_MANAGER [SCENARIO...]      as root, or with sudo; a part of a scenario's name is enough

Each scenario has a lab of its own with the real server and two real clients, which are on line and connected at first. Something is
broken, and mended where that is not theirs to do; then both must be on line, connected and see each other again without a hand, within
the scenario's time. Told of each: how long that took since the mending, and the longest time that one of them saw no picture. With
VELMORA_KEEP=FOLDER all logs stay there.
"""
import concurrent.futures
import os
import re
import shutil
import signal
import subprocess
import sys
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "lib"))
import clients
import netlab
import slowlink
import trouble
from netlab import Nat

SIDE_BY_SIDE = 8
KEEP = os.environ.get("VELMORA_KEEP")
BUS_SETTINGS = os.path.join(HERE, "../support/session-bus.conf")

CONE = (Nat.PORT_RESTRICTED, Nat.PORT_RESTRICTED)
BLOCKED = (Nat.UDP_BLOCKED, Nat.PORT_RESTRICTED)
SYMMETRIC = (Nat.SYMMETRIC, Nat.SYMMETRIC)


class Silence:
    """Nobody speaks in these scenarios, so there is no sound server."""

    environment = {**os.environ, "PULSE_SERVER": "unix:/nonexistent"}

    def sink(self, name):
        return None


class Person(clients.Client):
    """A client, and how it is doing by all that its log has told until now. Moments are those of time.monotonic."""

    LINE = re.compile(r"GClient_States.*Changing state to '(?P<client>[^']*)'"
                      r"|(?P<device>\S+@\S+@\S+): Changing state from '\w+' to '(?P<session>\w+)'"
                      r"|(?P<server>Mapping hasn't changed|Changing state from 'Registering' to 'Online'|Received relay data from)"
                      r"|(?P<picture>Received frame video packet)")

    def _forget(self):
        super()._forget()
        self.place, self.state, self.devices = 0, "", {}
        self.changed, self.heard, self.pictures = time.monotonic(), 0, []

    def start(self, *options):
        super().start(*options, log="xVP")

    def look(self):
        self.read()
        now, end = time.monotonic(), self.log.rfind("\n") + 1
        for found in self.LINE.finditer(self.log, self.place, end):
            if found["client"]:
                self.state, self.changed = found["client"], now
            elif found["device"]:
                self.devices[found["device"]], self.changed = found["session"], now
            elif found["server"]:
                self.heard = now
            else:
                self.pictures.append(now)
        self.place = end

    def is_connected(self):
        return "CONNECTED" in self.devices.values()

    def shows_buddy_offline(self):
        return all(state == "DISCONNECTED" for state in self.devices.values())

    def is_well(self, since):
        """On line by the server's word since then, connected, and shown three pictures since anything changed."""
        begin = max(since, self.changed)
        return self.state == "Online" and self.heard > since and self.is_connected() and sum(t > begin for t in self.pictures) >= 3

    def well_from(self, since):
        """The first of these pictures."""
        return next(t for t in self.pictures if t > max(since, self.changed))

    def darkness(self, since):
        """The longest time without a picture since then."""
        times = [since, *(t for t in self.pictures if t > since)]
        return max((b - a for a, b in zip(times, times[1:])), default=0)

    def __str__(self):
        return f"{self.name}: {self.state}, {self.devices}, {len(self.pictures)} pictures"


class Relay:
    """The relay of a server in a process of its own on the server's machine."""

    def __init__(self, server):
        self.server, self.log_path = server, os.path.join(server.folder, "relay.log")
        with open(os.path.join(server.folder, "velmora-server.ini")) as source:
            lines = [line for line in source.read().splitlines() if not line.startswith("roles")]
        with open(os.path.join(server.folder, "relay.ini"), "w") as out:
            out.write("\n".join([*lines, "roles = relay"]) + "\n")

    def start(self):
        with open(self.log_path, "ab") as log:
            begin = log.tell()
            self.process = self.server.host.start(self.server.program, "--config", "relay.ini", cwd=self.server.folder, stdout=log, stderr=log)

        def ready():
            with open(self.log_path) as log:
                return "ready" in log.read()[begin:]
        clients.wait(60, ready, "the relay's ready line")

    def kill(self):
        self.process.kill()
        self.process.wait()


class SleepManager:
    """The session manager of one machine, on a system bus of its own."""

    def __init__(self, person, program):
        self.person = person
        bus = person.host.start("dbus-daemon", "--config-file", BUS_SETTINGS, "--print-address=1", "--nofork", stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True)
        person.environment["DBUS_SYSTEM_BUS_ADDRESS"] = bus.stdout.readline().strip()
        self.process = person.host.start(program, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                         env={**os.environ, **person.environment})
        self._expect("ready")

    def _expect(self, word):
        line = self.process.stdout.readline().strip()
        assert line == word, f"the session manager said '{line}', not '{word}'"

    def _say(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()

    def sleep(self):
        """Announces it, waits until nobody holds it up any more, and stops the machine."""
        self._expect("held")
        self._say("sleep")
        self._expect("free")
        self.person.process.send_signal(signal.SIGSTOP)

    def wake(self):
        self.person.process.send_signal(signal.SIGCONT)
        self._say("wake")


class Pair:
    """Ann and Ben, each behind a router of a kind of NAT, with the server, whose relay may be a process of its own."""

    def __init__(self, lab, programs, kinds, relay_apart=False):
        roles = ["roles = logon, stun, signalling, log"] if relay_apart else []
        self.server = clients.Server(lab, programs[0], settings=["relay_allow_private = yes", *roles])
        self.relay = Relay(self.server) if relay_apart else None
        self.routers = [lab.router(f"5.5.5.{i + 1}", f"10.0.{i}.0/24", kind) for i, kind in enumerate(kinds)]
        self.people = [Person(self.server, Silence(), name, lab.client(router), 0) for name, router in zip(("ann", "ben"), self.routers)]
        self.ann, self.ben = self.people
        self.router = self.routers[0]
        self.manager = SleepManager(self.ann, programs[1])
        self.notes = []
        clients.make_buddies(self.ann, self.ben)

    def begin(self):
        """Until the two see each other."""
        self.server.start()
        if self.relay:
            self.relay.start()
        self.ann.start()
        self.ben.start()
        self.until_well(time.monotonic(), 60)

    def until(self, seconds, condition, what):
        """Reads the logs until the condition; how long that took."""

        def fulfilled():
            for person in self.people:
                person.look()
            return condition()
        begin = time.monotonic()
        clients.wait(seconds, fulfilled, what)
        return time.monotonic() - begin

    def until_well(self, since, seconds):
        """When both were well."""
        self.until(seconds, lambda: all(person.is_well(since) for person in self.people), "both to be well")
        return max(person.well_from(since) for person in self.people)

    def last(self, seconds):
        """The time that a failure lasts."""
        end = time.monotonic() + seconds
        self.until(seconds + 10, lambda: time.monotonic() >= end, "the end of a failure")

    def one_notices_that_the_other_is_gone(self, one):
        noticed = self.until(20, lambda: not one.is_connected(), f"{one.name} to notice")
        shown = noticed + self.until(70, one.shows_buddy_offline, f"{one.name} to show the other offline")
        self.notes.append(f"{one.name} noticed after {noticed:.0f} s and gave up after {shown:.0f} s")


# ---- The scenarios: what is broken, until nothing is left to mend from outside. Their names are what is printed.

SCENARIOS = {}


def scenario(seconds, kinds=CONE, relay_apart=False):
    """`seconds`: within which both are well again."""

    def keep(function):
        SCENARIOS[function.__name__.replace("_", " ")] = (function, seconds, kinds, relay_apart)
        return function
    return keep


@scenario(40)
def the_server_is_killed_and_comes_back_at_once(pair):
    pair.server.kill()
    pair.server.start()


@scenario(60)
def the_server_is_killed_and_comes_back_after_40_s(pair):
    pair.server.kill()
    pair.last(40)
    pair.server.start()


@scenario(40, BLOCKED)
def the_server_of_a_relayed_pair_is_killed_and_comes_back_at_once(pair):
    pair.server.kill()
    pair.server.start()


@scenario(40, BLOCKED, relay_apart=True)
def the_relay_is_killed_and_comes_back_at_once(pair):
    pair.relay.kill()
    pair.relay.start()


@scenario(60, SYMMETRIC, relay_apart=True)
def the_relay_of_a_symmetric_pair_is_killed_and_comes_back_after_15_s(pair):
    pair.relay.kill()
    pair.last(15)
    pair.relay.start()


@scenario(40)
def routers_forget_their_mappings(pair):
    for router in pair.routers:
        trouble.forget(router)


@scenario(60, SYMMETRIC)
def symmetric_routers_forget_their_mappings(pair):
    for router in pair.routers:
        trouble.forget(router)


@scenario(60, (Nat.SYMMETRIC, Nat.UNRESTRICTED))
def the_symmetric_router_of_a_direct_pair_forgets_its_mappings(pair):
    trouble.forget(pair.router)


@scenario(60)
def a_router_maps_to_other_ports_from_now_on(pair):
    trouble.change_ports(pair.router)


@scenario(40)
def a_client_gets_another_address(pair):
    trouble.move_client(pair.ann.host, pair.router)


@scenario(40, BLOCKED)
def a_relayed_client_gets_another_address(pair):
    trouble.move_client(pair.ann.host, pair.router)


@scenario(40)
def a_router_gets_another_address(pair):
    trouble.move_router(pair.router, "5.5.5.101")


@scenario(60, BLOCKED)
def the_router_of_a_relayed_client_gets_another_address(pair):
    trouble.move_router(pair.router, "5.5.5.101")


@scenario(40)
def a_machine_sleeps_for_20_s_and_its_router_forgets_it(pair):
    pair.manager.sleep()
    pair.last(20)
    trouble.forget(pair.router)
    pair.manager.wake()


@scenario(40, BLOCKED)
def the_machine_of_a_relayed_client_sleeps_for_20_s(pair):
    pair.manager.sleep()
    pair.last(20)
    pair.manager.wake()


@scenario(60)
def a_machine_stands_still_for_40_s_without_a_word(pair):
    pair.ann.process.send_signal(signal.SIGSTOP)
    pair.last(40)
    pair.ann.process.send_signal(signal.SIGCONT)


@scenario(40)
def a_client_is_killed_and_comes_back_at_once(pair):
    pair.ben.kill()
    pair.ben.start()


@scenario(40)
def a_client_is_killed_and_comes_back_after_25_s(pair):
    pair.ben.kill()
    pair.last(25)
    pair.ben.start()


@scenario(40)
def a_client_is_killed_and_comes_back_when_the_other_has_given_up(pair):
    pair.ben.kill()
    pair.one_notices_that_the_other_is_gone(pair.ann)
    pair.ben.start()


@scenario(40)
def a_cable_is_pulled_until_the_other_has_given_up(pair):
    trouble.pull_cable(pair.router)
    pair.one_notices_that_the_other_is_gone(pair.ben)
    trouble.plug_cable(pair.router)


@scenario(60, BLOCKED)
def the_cable_of_a_relayed_client_is_pulled_for_60_s(pair):
    trouble.pull_cable(pair.router)
    pair.last(60)
    trouble.plug_cable(pair.router)


@scenario(20)
def a_cable_is_pulled_for_3_s(pair):
    trouble.pull_cable(pair.router)
    pair.last(3)
    trouble.plug_cable(pair.router)


@scenario(20)
def a_client_has_no_address_for_3_s(pair):
    trouble.take_address(pair.ann.host)
    pair.last(3)
    trouble.give_address(pair.ann.host, pair.router)


@scenario(60)
def the_line_of_a_router_is_dead_for_60_s(pair):
    trouble.cut_line(pair.router)
    pair.last(60)
    trouble.mend_line(pair.router)


@scenario(60, BLOCKED)
def the_line_of_a_relayed_client_is_dead_for_60_s(pair):
    trouble.cut_line(pair.router)
    pair.last(60)
    trouble.mend_line(pair.router)


@scenario(90)
def both_begin_anew_on_lines_that_lose_a_fifth_and_are_slow(pair):
    for person, router in zip(pair.people, pair.routers):
        person.kill()
        slowlink.SlowLink(router, person.host, person.host.addresses[0], delay=0.1, loss=0.2)
    for person in pair.people:
        person.start()


# ---- Running them.

def run_one(programs, name):
    """In a process of its own: a lab takes signals, and its programs end with it."""
    function, seconds, kinds, relay_apart = SCENARIOS[name]
    with netlab.Lab() as lab:
        pair = Pair(lab, programs, kinds, relay_apart)
        try:
            pair.begin()
            broken = time.monotonic()
            function(pair)
            mended = time.monotonic()
            well = pair.until_well(mended, seconds)
            dark = max(person.darkness(broken) for person in pair.people)
            print(f"{well - mended:5.1f} s, without a picture for {dark:4.1f} s", *pair.notes, sep="; ")
        except Exception:
            traceback.print_exc()
            for person in pair.people:
                print(f"---- {person}; the end of the log:\n{person.log[-8000:]}", file=sys.stderr)
            sys.exit(1)
        finally:
            if KEEP:
                shutil.copytree(lab.folder, os.path.join(KEEP, name.replace(" ", "-")), ignore=lambda *_: ["runtime"], dirs_exist_ok=True)


def run_beside(programs, name):
    done = subprocess.run([sys.executable, __file__, *programs, "--one", name], capture_output=True, text=True)
    return name, done.returncode == 0, done.stdout.strip(), done.stderr


def run_all(programs, names):
    """The failed ones."""
    failed = []
    with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
        for future in concurrent.futures.as_completed([pool.submit(run_beside, programs, name) for name in names]):
            name, ok, told, errors = future.result()
            print(f"{name:68} {told if ok else 'FAILED'}", flush=True)
            if not ok:
                failed.append(name)
                print(told + errors, flush=True)
    return failed


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    netlab.need_root()
    programs, wanted = [os.path.abspath(path) for path in sys.argv[1:3]], sys.argv[3:]
    if wanted[:1] == ["--one"]:
        run_one(programs, wanted[1])
        return
    names = [name for name in SCENARIOS if not wanted or any(part in name for part in wanted)]
    if not names:
        sys.exit("FAILED: there is no such scenario")
    begin = time.monotonic()
    failed = run_all(programs, names)
    print(f"{len(names) - len(failed)} of {len(names)} mended themselves, in {time.monotonic() - begin:.0f} s")
    if failed:
        sys.exit("FAILED: " + ", ".join(failed))


if __name__ == "__main__":
    main()
