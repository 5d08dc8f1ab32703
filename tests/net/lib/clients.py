"""Real programs in a laboratory of networks: the server on a public host, clients on any host, and what each of them hears.

    with netlab.Lab() as lab:
        server, sound = Server(lab, binaries), Sound(lab)     # 5.5.5.10 to .12: the STUN hosts are on three addresses
        ann = Client(server, sound, "ann", lab.public_host("5.5.5.20"), tone=331)
        ben = Client(server, sound, "ben", lab.client(router), tone=419)
        make_buddies(ann, ben)
        server.start()
        ben.start(), ben.online()                             # who comes second is the caller
        ann.start(), ann.online()
        session = ann.session_with(ben)                       # waits for CONNECTED: session.send_route, .sends_directly, .seconds
        heard = speak([(ann, ben)]), speak([(ben, ann)])      # each holds the other's talk key until the tone is heard
        ann.kill(), server.kill()                             # both may be started again

Each client has a working directory, an X server and a sink of its own. X servers and the sound server are reached by sockets in the file
system, which network namespaces share; labs side by side never meet. Start programs from the thread that made the lab: they die with
their thread. What a client knows is read from its log (`said`, `mark`); nothing in the program is made for tests. All files are below
`lab.folder`, which goes with the lab: `keep` copies what is worth a look.
"""
import array
import functools
import math
import operator
import os
import re
import shutil
import signal
import subprocess
import time

import netlab

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
DOMAIN = "velmora.local"
PORT = 4430
ADDRESSES = ("5.5.5.10", "5.5.5.11", "5.5.5.12")


def wait(seconds, condition, what, pause=0.1):
    """The first true value of the condition; fails with `what` at the deadline."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(pause)


class Server:
    """velmora-server with all its roles on a public host; the STUN hosts are on three addresses. `settings` are lines for its file."""

    def __init__(self, lab, binaries, addresses=ADDRESSES, settings=()):
        self.lab, self.binaries, self.process = lab, binaries, None
        self.program = os.path.join(binaries, "velmora-server")
        self.folder = os.path.join(lab.folder, "server")
        self.log_path = os.path.join(self.folder, "server.log")
        os.makedirs(self.folder)
        self.host = lab.public_host(*addresses)
        direct, punched, unpunched = addresses
        self.address, self.logon = direct, f"{direct}:{PORT}"
        # Hashing that costs little: nobody steals these passwords.
        lines = [f"domain = {DOMAIN}", f"address = {direct}", f"port_base = {PORT}", f"stun_punched = {punched}:{PORT + 2}",
                 f"stun_unpunched = {unpunched}:{PORT + 3}", "password_memory_kib = 1024", "password_passes = 1", *settings]
        with open(os.path.join(self.folder, "velmora-server.ini"), "w") as out:
            out.write("\n".join(lines) + "\n")

    def command(self, *words):
        return self.host.run(self.program, "--config", os.path.join(self.folder, "velmora-server.ini"), *words, cwd=self.folder)

    def start(self):
        """Until it is ready. May be called again after `kill`."""
        log = open(self.log_path, "ab")
        begin = log.tell()
        self.process = self.host.start(self.program, "--config", "velmora-server.ini", cwd=self.folder, stdout=log, stderr=log)
        log.close()

        def ready():
            assert self.process.poll() is None, f"the server ended: {self.log[begin:]}"
            return re.search("^ready", self.log[begin:], re.M)
        wait(60, ready, "the server's ready line")

    @property
    def log(self):
        with open(self.log_path, errors="replace") as source:
            return source.read()

    def kill(self):
        self.process.kill()
        self.process.wait()

    def figures(self):
        """The server's counters: name with labels to number."""
        command = ("curl", "-s", "-m", "5", f"http://127.0.0.1:{PORT + 9}/metrics")
        lines = [line for line in self.host.run(*command).splitlines() if line and not line.startswith("#")]
        return {name: float(value) for name, value in (line.rsplit(" ", 1) for line in lines)}


class Sound:
    """One sound server for all clients of a lab, with a sink and a recorder for each."""

    RATE = 4000  # Of recordings: tones are below 1800 Hz.

    def __init__(self, lab):
        self.lab = lab
        self.folder = os.path.join(lab.folder, "sound")
        os.makedirs(os.path.join(self.folder, "state"), mode=0o700)
        self.socket = f"unix:{self.folder}/native"
        self.environment = {**os.environ, "PULSE_SERVER": self.socket, "PULSE_RUNTIME_PATH": self.folder,
                            "PULSE_STATE_PATH": os.path.join(self.folder, "state"), "HOME": self.folder, "XDG_RUNTIME_DIR": self.folder}
        self.environment.pop("DISPLAY", None)
        with open(os.path.join(self.folder, "log"), "wb") as log:
            lab.internet.start("pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "--disallow-exit=yes",
                               "-L", f"module-native-protocol-unix socket={self.folder}/native auth-anonymous=1",
                               env=self.environment, stdout=log, stderr=log)
        wait(20, lambda: subprocess.run(["pactl", "info"], env=self.environment, capture_output=True).returncode == 0, "the sound server")

    def sink(self, name):
        """Makes a sink and begins to record what it plays; the recording's path. The first samples take two seconds."""
        subprocess.run(["pactl", "load-module", "module-null-sink", f"sink_name={name}", "rate=16000", "channels=1"], check=True,
                       capture_output=True, env=self.environment)
        path = os.path.join(self.folder, f"{name}.raw")
        self.lab.internet.start("parec", "-d", f"{name}.monitor", f"--rate={self.RATE}", "--channels=1", "--format=s16le",
                                "--latency-msec=50", "--raw", path, env=self.environment)
        return path


class Ear:
    """What a recording holds of some tones from a place on: seconds of each in which it was the loudest, and loud."""

    SLICE = Sound.RATE // 10
    LOUD = 500  # Of 32768.
    CLEAR = 0.6  # Twice the least share of the power; one of two voices has 1.

    def __init__(self, recording, frequencies, place, expected=None):
        self.recording, self.place, self.taken = recording, place, 0.0
        self.seconds = dict.fromkeys(frequencies, 0.0)
        self._last = expected or next(iter(frequencies))

    @classmethod
    @functools.cache
    def _tables(cls, frequency):
        angles = [2 * math.pi * frequency * i / Sound.RATE for i in range(cls.SLICE)]
        return [math.cos(a) for a in angles], [math.sin(a) for a in angles]

    def _amplitude(self, samples, frequency):
        real, imaginary = (sum(map(operator.mul, samples, table)) for table in self._tables(frequency))
        return 2 * math.hypot(real, imaginary) / self.SLICE

    def hear(self):
        """Takes in what was recorded since; the seconds of each tone."""
        with open(self.recording, "rb") as source:
            source.seek(self.place)
            data = source.read()
        size = len(data) // (2 * self.SLICE) * 2 * self.SLICE
        self.place += size
        self.taken += size / 2 / Sound.RATE
        samples = array.array("h", data[:size])
        for i in range(0, len(samples), self.SLICE):
            self._count(samples[i:i + self.SLICE])
        return self.seconds

    # Most slices hold the tone of the slice before: what has more than half of the power is the loudest.
    def _count(self, part):
        if max(part) < self.LOUD:
            return
        power = sum(map(operator.mul, part, part)) / self.SLICE
        loudest, amplitude = self._last, self._amplitude(part, self._last)
        if amplitude ** 2 < power:
            loudness = {frequency: self._amplitude(part, frequency) for frequency in self.seconds}
            loudest = max(loudness, key=loudness.get)
            amplitude = loudness[loudest]
        # Where the sound stutters on a busy machine all tones are in it a little, and nobody's is heard.
        if amplitude >= self.LOUD and amplitude ** 2 > self.CLEAR * power:
            self._last = loudest
            self.seconds[loudest] += self.SLICE / Sound.RATE


class Client:
    """velmora on a host: an account of its own, a tone of `tone` Hz as microphone, a test picture as camera (or none).

    `settings` are texts NAME=VALUE that take the place of what its settings file would hold. `keys` are the talk keys by buddy.
    """

    def __init__(self, server, sound, name, host, tone, settings=(), camera=True):
        self.server, self.sound, self.name, self.host, self.frequency = server, sound, name, host, tone
        self.guid = f"{name}@{DOMAIN}"
        self.program, self.process = os.path.join(server.binaries, "velmora"), None
        self.folder = os.path.join(server.lab.folder, name)
        # A steady tone is no voice: the treatment would lower it as noise.
        self.settings = [*(["Voice_Treatment=0"] if tone else []), *settings]
        self.camera, self.keys, self.environment = camera, {}, {}
        self.screen = "640x480x24"
        self._file, self._display = None, None
        self._forget()
        server.command("user", "add", name, f"secret-{name}", f"{name}@example.org")
        self.recording = sound.sink(name)

    def __repr__(self):
        return self.name

    # ---- Life.

    def make_home(self):
        devices = [f"Audio_Capture_Device=tone of {self.name}", "Video_Capture_Device=" + ("picture" if self.camera else "(none - disable video capture)")]
        keys = [f"{buddy}@{DOMAIN}_Hotkey={key}" for buddy, key in self.keys.items()]
        subprocess.run([os.path.join(TOP, "tools/make-home"), self.folder, f"AUTHENTICATE_Host={self.server.logon}", "First_Run_Complete=1",
                        f"Local_User_GUID={self.guid}", f"Local_Password=secret-{self.name}", f"Local_Email={self.name}@example.org",
                        *devices, *keys], check=True)
        # The shipped values give way to ours: the last of a name would not.
        path = os.path.join(self.folder, "settings.ini")
        with open(path) as source:
            lines = [line for line in source.read().splitlines() if line]
        for setting in self.settings:
            name, value = setting.split("=", 1)
            lines = [line for line in lines if line.split(":")[0] != name.lower()] + [f"{name.lower()}: {value}"]
        with open(path, "w") as out:
            out.write("\n".join(lines) + "\n\n")

    def start(self, *options, log="x"):
        """Starts the program; options as on its command line. May be called again after it ended."""
        if not os.path.exists(os.path.join(self.folder, "settings.ini")):
            self.make_home()
        if not self._display:
            self._display = self._start_display()
        places = {name: os.path.join(self.folder, name) for name in ("home", "runtime")}
        for place in places.values():
            os.makedirs(place, mode=0o700, exist_ok=True)
        picture = "picture=videotestsrc is-live=true pattern=smpte ! video/x-raw,width=160,height=120,framerate=5/1"
        tone = f"audio:tone of {self.name}=audiotestsrc is-live=true wave=sine freq={self.frequency} volume=0.3"
        environment = {**self.sound.environment, "DISPLAY": self._display, "PULSE_SINK": self.name, "HOME": places["home"],
                       "XDG_RUNTIME_DIR": places["runtime"], "QT_QPA_PLATFORM": "xcb", "VELMORA_DEVICES": f"{picture};{tone}",
                       "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent", "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nonexistent",
                       **self.environment}
        for name in ("WAYLAND_DISPLAY", "XAUTHORITY", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"):
            environment.pop(name, None)
        self.began = time.monotonic()
        with open(os.path.join(self.folder, "output.txt"), "ab") as out:
            self.process = self.host.start(self.program, "-log", log, "-silent", "-norestart", *options, cwd=self.folder, env=environment,
                                           stdin=subprocess.DEVNULL, stdout=out, stderr=out)

    def _start_display(self):
        """Many that start at once may each find the number taken that they chose; such a one ends without telling any."""
        for _ in range(10):
            reader, writer = os.pipe()
            self.host.start("Xvfb", "-displayfd", str(writer), "-screen", "0", self.screen, "-nolisten", "tcp", "-noreset", "-dpi", "96",
                            ending=signal.SIGTERM, pass_fds=(writer,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            os.close(writer)
            with os.fdopen(reader) as numbers:
                number = numbers.readline().strip()
            if number:
                return f":{number}"
        raise AssertionError(f"no X server starts for {self.name}")

    def kill(self):
        self.process.kill()
        self.process.wait()

    # ---- The log. Each line bears the moment at which it was read, so a loop that waits also measures.

    def read(self):
        """Takes in what the running program has logged since; a new start begins a new log."""
        path = os.path.join(self.folder, "velmora.log")
        try:
            number = os.stat(path).st_ino
        except FileNotFoundError:
            return
        if self._file is None or os.fstat(self._file.fileno()).st_ino != number:
            self._forget()
            self._file = open(path, errors="replace")
        now = time.monotonic()
        text = self._file.read()
        self.log += text
        *lines, self._rest = (self._rest + text).split("\n")
        for line in lines:
            self._story.take(now, line)

    def _forget(self):
        if self._file:
            self._file.close()
        self._file, self.log, self._rest, self._story = None, "", "", Story(self.server.address)

    def mark(self):
        """A place in the log: the end of now."""
        self.read()
        return len(self.log)

    def said(self, pattern, seconds=20, since=0):
        """Waits for a line with the regular expression, after a place of `mark`; its match."""

        def find():
            self.read()
            found = re.compile(pattern).search(self.log, since)
            assert found or self.process.poll() is None, f"{self.name} ended with {self.process.returncode} before its log said '{pattern}'"
            return found
        return wait(seconds, find, f"{self.name}'s log line '{pattern}'")

    @property
    def is_online(self):
        """True once the server has a registration and the buddy list was answered. Not for a client that was off line in between."""
        self.read()
        return "Changing state from 'Registering' to 'Online'" in self.log and "'GETBUDDYLIST' request" in self.log

    def online(self, seconds=30, since=0):
        """Waits until the server has a registration and the buddy list is there."""
        self.said(r"Changing state from 'Registering' to 'Online'", seconds, since)
        self.said(r"Received response .*'GETBUDDYLIST'", 10, since)

    @property
    def connection_class(self):
        """What the client took its network for when it connected last; None before."""
        self.read()
        found = re.findall(r"STUN complete, connection class is '(\w+)'|STUN found '(\w+)' NAT|STUN failed, must be behind '(\w+)'", self.log)
        return "".join(found[-1]) if found else None

    @property
    def routes(self):
        """The routes that the client tells its peers."""
        self.read()
        found = re.findall(r"Sending 'REGISTER' request with hostlist='([^']*)'", self.log)
        return found[-1].split(", ") if found else []

    def warnings(self):
        self.read()
        return [line for line in self.log.splitlines() if "WARNING" in line or "ERROR" in line]

    def sessions(self, buddy):
        """Every time that a device of this buddy was CONNECTED in this run, oldest first."""
        self.read()
        return [session for session in self._story.sessions if session.buddy == buddy.guid]

    def session_with(self, buddy, seconds=60, after=0.0):
        """Waits until a device of the buddy is CONNECTED; the newest such session that began after that moment of time.monotonic."""

        def find():
            assert self.process.poll() is None, f"{self.name} ended with {self.process.returncode}"
            return [session for session in self.sessions(buddy) if session.connected > after]
        return wait(seconds, find, f"{self.name} to be CONNECTED with {buddy.name}")[-1]

    # ---- Speaking and hearing.

    def press(self, buddy):
        self._key("keydown", buddy)

    def release(self, buddy):
        self._key("keyup", buddy)

    def _key(self, action, buddy):
        self.host.run("xdotool", action, self.keys[buddy.name], env={**os.environ, "DISPLAY": self._display})

    def ear(self):
        """A place in what this client's loudspeaker has played: the end of now."""
        size = wait(10, lambda: os.path.exists(self.recording) and os.path.getsize(self.recording), f"the recorder of {self.name}")
        return size // 2 * 2

    def heard(self, frequencies, since):
        """Seconds of each tone that this client's loudspeaker has played since a place of `ear`."""
        return Ear(self.recording, frequencies, since).hear()


class Session:
    """A device session of a client when it became CONNECTED.

    `send_route`, `recv_route`, `send_from`, `send_to` and `recv_from` are what the client shows; `before` is the state that it came from:
    WF_ACKRESPONSE on the caller's side, WF_ACK on the callee's. `began` and `connected` are moments of time.monotonic.
    """

    def __init__(self, device, before, route, began, connected, relay):
        self.device, self.before, self.began, self.connected, self._relay = device, before, began, connected, relay
        self.buddy = device.rsplit("@", 1)[0]
        self.send_from, self.send_to, self.send_route, self.recv_from, self.recv_route = route

    @property
    def is_caller(self):
        return self.before == "WF_ACKRESPONSE"

    @property
    def seconds(self):
        """From the first message of the handshake."""
        return self.connected - self.began

    # A host from which a relayed datagram came may be a route of its own, under another name: so the addresses count too.
    @property
    def sends_directly(self):
        return "turn" not in self.send_route and self._relay not in (self.send_from.split(":")[0], self.send_to.split(":")[0])

    @property
    def receives_directly(self):
        """None where the client can't tell: an INVITE names no way in, so a callee does not know whether its own relay brought the ACK."""
        if "turn" in self.recv_route or self._relay == self.recv_from.split(":")[0]:
            return False
        return None if self.recv_route.startswith("<-") else True

    def __str__(self):
        return f"sends ({self.send_from}) {self.send_route} ({self.send_to}), receives {self.recv_route} ({self.recv_from})"


class Story:
    """What the lines of a log tell of sessions. One thread logs a session's route and then its state."""

    ROUTE = re.compile(r"Switched route, sendFrom=\((.*?)\), sendTo=\((.*?)\), sendRoute=\((.*?)\), recvFrom=\((.*?)\), recvRoute=\((.*?)\)")
    STATE = re.compile(r"(\S+@\S+@\S+): Changing state from '(\w+)' to '(\w+)'")

    def __init__(self, relay):
        self.relay, self.route, self.began, self.sessions = relay, None, {}, []

    def take(self, now, line):
        if "Switched route" in line:
            route = self.ROUTE.search(line)
            self.route = route and route.groups()
        state = self.STATE.search(line) if "Changing state from" in line else None
        if not state:
            return
        device, before, after = state.groups()
        if before == "DISCONNECTED":
            self.began[device] = now
        if after == "CONNECTED":
            self.sessions.append(Session(device, before, self.route, self.began.get(device, now), now, self.relay))


def make_buddies(one, other):
    """Each becomes the other's buddy and gets a talk key. Before the start of both."""
    one.server.command("buddy", "add", one.name, other.name)
    for person, buddy in ((one, other), (other, one)):
        person.keys[buddy.name] = f"F{len(person.keys) + 1}"


def speak(pairs, seconds=20, enough=0.5):
    """All pairs (talker, listener) at once: each talker holds the listener's key until every listener has heard his tone for `enough`
    seconds, or has listened to `seconds` of his loudspeaker in vain. Nobody may be in two pairs on the same side. Gives for each pair the
    seconds that were heard: of the talker's tone, and of anybody else's."""
    frequencies = sorted({person.frequency for pair in pairs for person in pair})
    ears = {(talker, listener): Ear(listener.recording, frequencies, listener.ear(), talker.frequency) for talker, listener in pairs}
    for talker, listener in pairs:
        talker.press(listener)
    # A busy machine is late with listening, which is not the talker's fault: what counts is how much was listened to.
    patience = time.monotonic() + 3 * seconds
    listening = dict(ears)
    while listening and time.monotonic() < patience:
        for (talker, listener), ear in list(listening.items()):
            if ear.hear()[talker.frequency] >= enough or ear.taken >= seconds:
                del listening[talker, listener]
        time.sleep(0.2)
    for talker, listener in pairs:
        talker.release(listener)
    heard = {pair: ear.seconds[pair[0].frequency] for pair, ear in ears.items()}
    return {pair: (heard[pair], sum(ear.seconds.values()) - heard[pair]) for pair, ear in ears.items()}


def silence(listeners, seconds=30):
    """Waits until none of them has heard anything loud for half a second."""
    for listener in listeners:

        def is_silent():
            with open(listener.recording, "rb") as source:
                source.seek(listener.ear() - Sound.RATE)
                data = source.read()
            return max(array.array("h", data[:len(data) // 2 * 2])) < Ear.LOUD
        wait(seconds, is_silent, f"silence at {listener.name}", 0.2)


def keep(lab, folder):
    """Copies all files of the programs to a folder that stays, in place of what it held; its path."""
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(lab.folder, folder, ignore=shutil.ignore_patterns("native", "images*", "*.png", "*.wav", "home", "runtime"))
    return folder
