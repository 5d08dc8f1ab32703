"""Who reaches whom, and how: the kinds of network, what the handshake can do for each pairing, and the run that holds it to that."""
import dataclasses
import itertools
import time

import clients
import netlab
from netlab import Nat

ONLINE_SECONDS = 60
CONNECT_SECONDS = 60
# Datagrams: twenty a second are a voice, one a second proves that the way is alive.
SPEECH, NO_SPEECH = 12, 4


# ---- Kinds: where a client stands, and the class that it must find.

@dataclasses.dataclass(frozen=True)
class Kind:
    name: str
    connection_class: str
    nat: Nat | None  # None: on the internet itself.
    about: str
    outer: Nat | None = None  # Another router around the first.
    gateway: bool = False     # The router maps ports on demand.


ALL_KINDS = [
    Kind("public", "PUBLIC", None, "on the internet itself"),
    Kind("unrestricted", "UNRESTRICTED", Nat.UNRESTRICTED, "everyone gets in at the mapped port"),
    Kind("address-restricted", "RESTRICTED", Nat.ADDRESS_RESTRICTED, "whoever's address was written to gets in, from any port"),
    Kind("port-restricted", "RESTRICTED", Nat.PORT_RESTRICTED, "only the very host that was written to gets in"),
    Kind("symmetric", "SYMMETRIC", Nat.SYMMETRIC, "a new port for every host that is written to"),
    Kind("blocked", "FIREWALL", Nat.UDP_BLOCKED, "no UDP passes"),
    Kind("double", "RESTRICTED", Nat.PORT_RESTRICTED, "port-restricted within port-restricted", outer=Nat.PORT_RESTRICTED),
    Kind("double-symmetric", "SYMMETRIC", Nat.PORT_RESTRICTED, "port-restricted within symmetric", outer=Nat.SYMMETRIC),
    Kind("gateway", "SYMMETRIC", Nat.SYMMETRIC, "symmetric, with a router that maps ports on demand", gateway=True),
]
KINDS = {kind.name: kind for kind in ALL_KINDS}
FIVE = ["public", "unrestricted", "address-restricted", "port-restricted", "symmetric", "blocked"]

# ---- What the protocol can do, remedies on. The first rule that fits holds; the order of the two does not matter.

OPEN = {"public", "unrestricted", "gateway"}
PREDICTABLE = OPEN | {"address-restricted", "port-restricted", "double"}
UNPREDICTABLE = {"symmetric", "double-symmetric"}
ANY = set(KINDS)
DIRECT, RELAY = "direct", "relay"

RULES = [
    # Not one datagram leaves or enters but inside the stream to the relay.
    ({"blocked"}, ANY, RELAY),
    # The other's first datagram gets in, wherever it comes from, and the host that it came from becomes the route back.
    (OPEN, ANY, DIRECT),
    # Each is told the host from which the other's datagrams will come, so what it sends there opens its own side for them.
    (PREDICTABLE, PREDICTABLE, DIRECT),
    # What it sends to the address that the direct STUN host saw opens it for every port of that address, also for the unknown one from
    # which the symmetric side comes; that port then becomes the route back.
    ({"address-restricted"}, UNPREDICTABLE, DIRECT),
    # The symmetric side comes from a port that nobody can know before its first datagram is in, and the other lets in none but from a
    # port that it has written to. Two symmetric sides are that twice.
    ({"port-restricted", "double"} | UNPREDICTABLE, UNPREDICTABLE, RELAY),
]


def expected(one, other):
    for some, others, way in RULES:
        if (one in some and other in others) or (other in some and one in others):
            return way
    raise LookupError(f"no rule for {one} with {other}")


# ---- Cells.

@dataclasses.dataclass(frozen=True)
class Place:
    """Somebody's kind of network. Whoever has the same home stands behind the same router."""

    kind: Kind
    home: str
    name: str


@dataclasses.dataclass(eq=False)
class Cell:
    """One pairing; what is expected of it, and what came of it."""

    caller: Place
    callee: Place
    ways: tuple  # From caller to callee, and back. None: whichever copy comes first.
    found: tuple = (None, None)
    seconds: float | None = None
    voice: tuple = ((0.0, 0.0), (0.0, 0.0))  # What the callee heard of the caller, and back: seconds of him, and of anybody else.
    passed: tuple = (0, 0)  # Datagrams that went straight from one's address to the other's while both talked.
    problems: list = dataclasses.field(default_factory=list)

    @property
    def title(self):
        return f"{self.caller.kind.name} -> {self.callee.kind.name}" + (" behind one router" if self.caller.home == self.callee.home else "")

    @property
    def is_connected(self):
        return self.seconds is not None



def _name(ways):
    return ways[0] if ways[0] == ways[1] else f"{ways[0] or 'either'}/{ways[1] or 'either'}"


def _place(kind, home, number):
    return Place(KINDS[kind], f"{kind} {home or number}", kind.replace("-", "") + home + number)


def _cell(caller, callee):
    """All cells of a kind share the caller of that kind, and the callee."""
    return Cell(_place(caller, "", "1"), _place(callee, "", "2"), (expected(caller, callee),) * 2)


def _pair_of_its_own(caller, callee, ways, home):
    return Cell(_place(caller, home + "a", "1"), _place(callee, home + "b", "2"), ways)


def _neighbours(kind):
    """Two behind one router meet within its network, by their local routes, whatever the router does to others."""
    return Cell(_place(kind, "both", "1"), _place(kind, "both", "2"), (DIRECT, DIRECT))


def pairing(caller, callee):
    return _cell(caller, callee)


def all_cells():
    """Each kind that a client tells apart calling each, the restricted one in its two sorts; then what stands beside the matrix."""
    cells = [_cell(*pair) for pair in itertools.product(FIVE, FIVE)]
    cells += [_cell(*pair) for pair in (("double", "port-restricted"), ("port-restricted", "double"), ("double", "double"), ("double", "symmetric"),
                                        ("double-symmetric", "public"), ("double-symmetric", "symmetric"),
                                        ("gateway", "symmetric"), ("symmetric", "gateway"))]
    return cells + [_neighbours(kind) for kind in ("port-restricted", "symmetric", "blocked")]


def plain_cells():
    """Without the remedies nobody writes to a symmetric network but by its relay, while what comes out of it reaches an open one straight
    or by the relay, whichever is faster. Each pair has clients of its own, since these count alike and so confuse each other's answers."""
    pairs = [("public", "symmetric", (RELAY, None)),
             ("symmetric", "public", (None, RELAY)),
             ("symmetric", "address-restricted", (RELAY, RELAY)),
             ("gateway", "symmetric", (RELAY, RELAY)),
             ("port-restricted", "port-restricted", (DIRECT, DIRECT))]
    return [_pair_of_its_own(*pair, chr(ord("p") + i)) for i, pair in enumerate(pairs)]


# ---- The run.

class Town:
    """A lab with a server and the people of some cells."""

    def __init__(self, lab, cells, binaries, settings):
        self.lab, self.cells = lab, cells
        self.server, self.sound = clients.Server(lab, binaries), clients.Sound(lab)
        self.homes, self.outsides, self.people, self.settings = {}, {}, {}, settings
        for cell in cells:
            for place in (cell.caller, cell.callee):
                if place not in self.people:
                    self.people[place] = self._person(place)
        for cell in cells:
            clients.make_buddies(self.people[cell.caller], self.people[cell.callee])
        for bridge in (lab.internet, *self.homes.values()):
            bridge.count_flows()

    def _person(self, place):
        number = len(self.people)
        host = self.lab.public_host(f"5.5.5.{20 + number}") if place.kind.nat is None else self.lab.client(self._router(place, number))
        return clients.Client(self.server, self.sound, place.name, host, 301 + 53 * number, self.settings)

    # All homes number their networks alike, as homes do.
    def _router(self, place, number):
        if place.home not in self.homes:
            kind, outside = place.kind, f"5.5.5.{20 + number}"
            self.outsides[place.home] = outside
            if kind.outer:
                outer = self.lab.router(outside, "192.168.0.0/24", kind.outer)
                router = self.lab.router(outer.free_addresses.pop(0), "10.0.0.0/24", kind.nat, behind=outer)
            else:
                router = self.lab.router(outside, "10.0.0.0/24", kind.nat)
            if kind.gateway:
                router.start_gateway()
            self.homes[place.home] = router
        return self.homes[place.home]

    def start(self, places, say, pause):
        """Starts these people, one in each `pause` of seconds, so that nobody's handshake waits for another's start; waits until all are
        on line or the time is over."""
        for place in places:
            self.people[place].start()
            self.follow(say, pause, lambda: False)
        people = [self.people[place] for place in places]
        self.follow(say, ONLINE_SECONDS, lambda: all(person.is_online for person in people))

    def follow(self, say, seconds, is_enough):
        """Reads all logs until that is enough, or the time is over, and tells of each cell whose two are CONNECTED."""
        deadline = time.monotonic() + seconds
        while True:
            for person in self.people.values():
                person.read()
            for cell in self.cells:
                if not cell.is_connected and self.sessions(cell):
                    self.measure(cell)
                    say(f"{cell.title}: {_name(cell.found)} after {cell.seconds:.1f} s")
            if is_enough() or time.monotonic() > deadline:
                return
            time.sleep(0.05)

    def sessions(self, cell):
        """The sessions of each side, oldest first; None where either has none."""
        caller, callee = self.people[cell.caller], self.people[cell.callee]
        both = caller.sessions(callee), callee.sessions(caller)
        return both if all(both) else None

    def measure(self, cell):
        """Notes the ways and the time; the newest session of each side. A side's own word for its sending is the one that counts."""
        of_caller, of_callee = self.sessions(cell)
        caller, callee = of_caller[-1], of_callee[-1]
        cell.seconds = max(caller.connected, callee.connected) - min(of_caller[0].began, of_callee[0].began)
        cell.found = tuple(DIRECT if session.sends_directly else RELAY for session in (caller, callee))
        return caller, callee

    def rounds(self):
        """Groups of cells in which nobody is twice."""
        groups = []
        for cell in sorted(self.cells, key=lambda cell: not cell.is_connected):
            two = {cell.caller, cell.callee}
            group = next((group for group in groups if not any(two & {other.caller, other.callee} for other in group)), None)
            if group is None:
                groups.append(group := [])
            group.append(cell)
        return groups

    def talk(self, say):
        """In each cell both hold the other's key at once."""
        for group in self.rounds():
            pairs, before = {}, [self.passed(cell) for cell in group]
            for cell in group:
                caller, callee = self.people[cell.caller], self.people[cell.callee]
                pairs[cell] = (caller, callee), (callee, caller)
            heard = clients.speak([pair for both in pairs.values() for pair in both])
            for cell, then in zip(group, before):
                cell.voice = tuple(heard[pair] for pair in pairs[cell])
                cell.passed = tuple(now - old for now, old in zip(self.passed(cell), then))
            clients.silence(list(self.people.values()))
            say(f"{len(group)} pairings have talked")

    def passed(self, cell):
        """Datagrams so far that crossed the network between the two, from the one's address there to the other's, and back."""
        neighbours = cell.caller.home == cell.callee.home
        bridge = self.homes[cell.caller.home] if neighbours else self.lab.internet
        one, other = (self.people[place].host.addresses[0] if neighbours or place.kind.nat is None else self.outsides[place.home]
                      for place in (cell.caller, cell.callee))
        flows = bridge.flows()
        return flows.get((one, other), 0), flows.get((other, one), 0)

    def judge(self, cell):
        people = [self.people[place] for place in (cell.caller, cell.callee)]
        for place, person in zip((cell.caller, cell.callee), people):
            if person.connection_class != place.kind.connection_class:
                cell.problems.append(f"{person} found {person.connection_class}, not {place.kind.connection_class}")
            if person.process.poll() is not None:
                cell.problems.append(f"{person} ended with {person.process.returncode}")
            cell.problems += [f"{person} logged {line}" for line in person.log.splitlines() if " ERROR " in line]
        if not self.sessions(cell):
            cell.problems.append("not CONNECTED")
            return
        caller, callee = self.measure(cell)
        routes = f"caller {caller}; callee {callee}"
        if any(receiver.receives_directly not in (None, sender.sends_directly) for sender, receiver in ((caller, callee), (callee, caller))):
            cell.problems.append(f"the two sides tell different routes: {routes}")
        if any(way not in (None, found) for way, found in zip(cell.ways, cell.found)):
            cell.problems.append(f"{_name(cell.found)} where {_name(cell.ways)} was expected: {routes}")
        if not caller.is_caller:
            cell.problems.append("the callee called")
        for whose, way, passed in zip(people, cell.found, cell.passed):
            if passed < SPEECH if way == DIRECT else passed > NO_SPEECH:
                cell.problems.append(f"{passed} datagrams of {whose} took the direct way where the session says {way}")
        for whose, (own, other) in zip(people, cell.voice):
            if own < 0.5:
                cell.problems.append(f"{whose} was heard for {own:.1f} s only")
            if other > 0.15:
                cell.problems.append(f"somebody else was heard beside {whose}, for {other:.1f} s")


def run(cells, binaries, logs, settings=(), delay=0.0):
    """Runs the cells in one lab and prints them; gives a line for each that failed, and keeps the logs then."""
    begin = time.monotonic()

    def say(text):
        print(f"{time.monotonic() - begin:6.1f} s  {text}", flush=True)

    with netlab.Lab(delay) as lab:
        try:
            town = Town(lab, cells, binaries, list(settings))
            say(f"{len(town.people)} clients in {len(town.homes)} networks of their own")
            town.server.start()
            callees = list(dict.fromkeys(cell.callee for cell in cells))
            town.start(callees, say, 0.2)
            say("callees are on line")
            town.start([place for place in town.people if place not in callees], say, 1.5)
            say("callers are on line")
            town.follow(say, CONNECT_SECONDS, lambda: all(cell.is_connected for cell in cells))
            town.talk(say)
            for cell in cells:
                town.judge(cell)
        except BaseException:
            print(f"logs are kept in {clients.keep(lab, logs)}")
            raise
        show(cells)
        failures = [f"{cell.title}: {'; '.join(cell.problems)}" for cell in cells if cell.problems]
        if failures:
            clients.keep(lab, logs)
    return failures


# ---- Tables.

def show(cells):
    """The matrix, and the other cells as lines. A cell tells the way, the seconds to CONNECTED, and whether both heard each other."""
    in_matrix = {(cell.caller.kind.name, cell.callee.kind.name): cell for cell in cells
                 if cell.caller.home != cell.callee.home and {cell.caller.kind.name, cell.callee.kind.name} <= set(FIVE)}
    if len(in_matrix) == len(FIVE) ** 2:
        print(f"\n{'caller':20}" + "".join(f"{name:20}" for name in FIVE))
        for caller in FIVE:
            print(f"{caller:20}" + "".join(f"{_brief(in_matrix[caller, callee]):20}" for callee in FIVE))
        cells = [cell for cell in cells if cell not in in_matrix.values()]
    print()
    for cell in cells:
        print(f"{cell.title:56}{_brief(cell)}")
    print("\nway, seconds to CONNECTED, voice heard by callee and by caller; '!' marks a failure", flush=True)


def _brief(cell):
    seconds = "-" if cell.seconds is None else f"{cell.seconds:.1f}"
    voices = "".join("v" if own >= 0.5 else "x" for own, _ in cell.voice)
    return f"{'!' if cell.problems else ''}{_name(cell.found) if cell.is_connected else 'NONE'} {seconds} {voices}"
