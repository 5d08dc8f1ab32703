"""What measures media on the real programs: a table of sound with one clock, clicks, a camera that films the time, and who reads it.

All sinks and sources of all clients are channels of one null sink, so that one recording holds, sample beside sample, what was spoken
and what was heard: the distance of a click's two traces is its way from mouth to ear. The sink renders at most `BLOCK` ahead, which is
all that this can be wrong by. A picture bears the moment at which it was filmed, and the clock that reads it off the screen is the same.
"""
import array
import json
import math
import operator
import os
import random
import re
import socket
import subprocess
import threading
import time

import clients
import netlab

RATE = 16000  # Of recordings and clicks.
BLOCK = 0.00125  # Seconds: what the table's keeper asks for.
CLICK = 0.08  # Seconds: never less than two packets of the letter's 51 ms.
SILENCE = 0.25, 0.45  # Between clicks, drawn: no delay is ever mistaken for another by a click's place alone.
# In turn: a trace is told by its tone. None is an overtone of another, and a window of 10 ms tells them apart.
TONES = [1100, 2300, 1300, 2500, 1700, 2900, 1900, 3100]
OLDEST = 3.0  # Seconds: no picture that is shown anew is as old.
LOUD = 500  # Of 32768: the least peak of a tone that counts as heard.
PREFIX = "front-left front-right rear-left rear-right".split()


def go_first():
    """This process and all of its lab before the other work of the machine: what is measured is the programs."""
    os.setpriority(os.PRIO_PROCESS, 0, -10)
    netlab.PRIORITY = -10


class Table:
    """A sound server whose every ear and mouth is a channel of one sink. Stands in for clients.Sound."""

    def __init__(self, lab, people):
        self.lab, self.people = lab, people
        self.folder = os.path.join(lab.folder, "sound")
        os.makedirs(os.path.join(self.folder, "state"), mode=0o700)
        self.environment = {**os.environ, "PULSE_SERVER": f"unix:{self.folder}/native", "PULSE_RUNTIME_PATH": self.folder,
                            "PULSE_STATE_PATH": os.path.join(self.folder, "state"), "HOME": self.folder, "XDG_RUNTIME_DIR": self.folder}
        self.environment.pop("DISPLAY", None)
        channels = PREFIX[:2 * len(people)]
        modules = [f"module-native-protocol-unix socket={self.folder}/native auth-anonymous=1",
                   f"module-null-sink sink_name=table rate=48000 channels={len(channels)} channel_map={','.join(channels)}"]
        one = "channels=1 channel_map=mono remix=no"
        for number, name in enumerate(people):
            mouth, ear = channels[2 * number:2 * number + 2]
            modules += [f"module-remap-sink sink_name=mouth-{name} master=table {one} master_channel_map={mouth}",
                        f"module-remap-sink sink_name={name} master=table {one} master_channel_map={ear}",
                        f"module-remap-source source_name=mic-{name} master=table.monitor {one} master_channel_map={mouth} "
                        f"source_properties=device.description=Microphone-{name}"]
        with open(os.path.join(self.folder, "log"), "wb") as log:
            lab.internet.start("pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "--disallow-exit=yes",
                               *(word for module in modules for word in ("-L", module)), env=self.environment, stdout=log, stderr=log)
        clients.wait(20, lambda: subprocess.run(["pactl", "info"], env=self.environment, capture_output=True).returncode == 0, "the sound server")
        # An idle sink asks for data only after seconds.
        self._start("pacat", f"--latency-msec={int(BLOCK * 4000)}", "-d", "table", stdin=open("/dev/zero", "rb"))
        self.recording = os.path.join(self.folder, "table.raw")
        self.frame = 2 * len(channels)
        self._start("parec", "-d", "table.monitor", f"--rate={RATE}", f"--channels={len(channels)}", f"--channel-map={','.join(channels)}",
                    "--no-remix", "--format=s16le", "--latency-msec=20", "--raw", self.recording)
        clients.wait(10, lambda: os.path.exists(self.recording) and os.path.getsize(self.recording), "the recorder")

    def _start(self, *command, **more):
        return self.lab.internet.start(*command, env=self.environment, **more)

    def sink(self, name):
        """As clients.Sound has it: the recording of all, since one's own is a channel."""
        assert name in self.people
        return self.recording

    def play(self, name, samples):
        """Says it into the mouth of a client; returns at once. Give the process to `silence` to wait for the end."""
        path = os.path.join(self.folder, f"{name}-says.raw")
        with open(path, "wb") as out:
            out.write(samples.tobytes())
        return self._start("pacat", "-d", f"mouth-{name}", f"--rate={RATE}", "--channels=1", "--format=s16le", "--latency-msec=20", "--raw", path)

    def place(self):
        """The end of the recording now, in samples."""
        return os.path.getsize(self.recording) // self.frame

    def read(self, begin, end):
        """Mouth and ear of each client between two places, as lists of samples."""
        clients.wait(10, lambda: self.place() >= end, "the recording")
        with open(self.recording, "rb") as source:
            source.seek(begin * self.frame)
            data = array.array("h", source.read((end - begin) * self.frame))
        width = self.frame // 2
        return {name: (data[2 * i::width], data[2 * i + 1::width]) for i, name in enumerate(self.people)}


def clicks(seconds, seed):
    """Short tones, one after another in turn, with silences that differ."""
    chance = random.Random(seed)
    samples, number = array.array("h"), 0
    while len(samples) < seconds * RATE:
        step = 2 * math.pi * TONES[number % len(TONES)] / RATE
        count, ramp = int(CLICK * RATE), RATE // 500
        samples.extend(int(9000 * min(1, i / ramp, (count - i) / ramp) * math.sin(step * i)) for i in range(count))
        samples.extend([0] * int(chance.uniform(*SILENCE) * RATE))
        number += 1
    return samples


class _Ear:
    """Finds a tone: its loudness in windows of 10 ms, one every 2 ms."""

    WINDOW, HOP = RATE // 100, RATE // 500

    def __init__(self, tone):
        angles = [2 * math.pi * tone * i / RATE for i in range(self.WINDOW)]
        self.tables = [math.cos(a) for a in angles], [math.sin(a) for a in angles]

    def loudness(self, samples, begin, end):
        begin, end = max(0, begin), min(len(samples), end)
        found = []
        for at in range(begin, end - self.WINDOW, self.HOP):
            part = samples[at:at + self.WINDOW]
            real, imaginary = (sum(map(operator.mul, part, table)) for table in self.tables)
            found.append(2 * math.hypot(real, imaginary) / self.WINDOW)
        return begin, found


EARS = {tone: _Ear(tone) for tone in TONES}


def _onset(ear, samples, begin, end):
    """The sample at which a tone passes half of its peak there; None where it is not heard."""
    first, loudness = ear.loudness(samples, begin, end)
    peak = max(loudness, default=0)
    if peak < LOUD:
        return None
    return first + next(i for i, value in enumerate(loudness) if value >= peak / 2) * ear.HOP


def ways(mouth, ear, longest=2.0):
    """For each click of a mouth's channel the seconds until it is in the ear's, None for one that is not heard."""
    found, at = [], 0
    pause, click = int(SILENCE[0] * RATE), int(CLICK * RATE)
    while True:
        spoken = next((i for i in range(at, len(mouth) - click) if abs(mouth[i]) > 2000), None)
        if spoken is None:
            return found
        # Whichever tone it is, the first click of a piece need not be the first of all.
        tones = [max(EARS[tone].loudness(mouth, spoken, spoken + click)[1]) for tone in TONES]
        tone = EARS[TONES[tones.index(max(tones))]]
        said = _onset(tone, mouth, spoken - click, spoken + click)
        heard = _onset(tone, ear, said, said + int(longest * RATE))
        found.append(None if heard is None else (heard - said) / RATE)
        at = spoken + click + pause // 2


class Camera:
    """Thirty pictures a second that bear the time; `pipeline` is what the client calls its device."""

    WIDTH, HEIGHT, EDGE, FPS = 160, 120, 112, 30  # The middle square is what is sent.
    UNIT, BITS = 0.004, 12

    def __init__(self, host, port):
        self.address = "127.0.0.1", port
        self.pipeline = (f'udpsrc port={port} address=127.0.0.1 buffer-size=1000000 caps="video/x-raw,format=RGB,width={self.WIDTH},'
                         f'height={self.HEIGHT},framerate={self.FPS}/1" ! videoconvert')
        self.socket = host.udp("127.0.0.1")
        self.ending = threading.Event()
        self.thread = threading.Thread(target=self._film, daemon=True)
        host.lab.closers.callback(self._end)
        self.thread.start()

    @classmethod
    def frame(cls, now):
        """The picture of that moment: four by four blocks, twelve bits of time, four of check."""
        count = int(now / cls.UNIT) % (1 << cls.BITS)
        bits = count << 4 | (count ^ count >> 4 ^ count >> 8 ^ 0xA) & 0xF
        left = b"\x80\x80\x80" * ((cls.WIDTH - cls.EDGE) // 2)
        blank = b"\x80\x80\x80" * (cls.WIDTH * (cls.HEIGHT - cls.EDGE) // 2)
        edge, rows = cls.EDGE // 4, []
        for row in range(4):
            blocks = (b"\xeb\xeb\xeb" if bits >> (15 - 4 * row - column) & 1 else b"\x10\x10\x10" for column in range(4))
            rows.append((left + b"".join(block * edge for block in blocks) + left) * edge)
        return blank + b"".join(rows) + blank

    def _film(self):
        due = time.monotonic()
        while not self.ending.is_set():
            try:
                self.socket.sendto(self.frame(time.monotonic()), self.address)
            except OSError:
                pass  # Nobody films now.
            due = max(due + 1 / self.FPS, time.monotonic())
            self.ending.wait(due - time.monotonic())

    def _end(self):
        self.ending.set()
        self.thread.join()


# ---- A client's life.

ROW = 56  # Pixels from a buddy's picture to the next in the shipped skin.


def equip(person, camera):
    """A client of a lab films with that camera and speaks by its own mouth of the table."""
    person.environment["VELMORA_DEVICES"] = f"film={camera.pipeline}"
    person.settings += [f"Audio_Capture_Device=Microphone-{person.name}", "Video_Capture_Device=film"]


def start(person, settings, **geometry):
    """Anew, with settings of this run and the buddy list open."""
    if person.process and person.process.poll() is None:
        person.kill()
    path = os.path.join(person.folder, "settings.ini")
    if os.path.exists(path):
        os.remove(path)
    kept, person.settings = person.settings, [*person.settings, *settings]
    person.make_home()
    person.settings = kept
    show_list(person, **geometry)
    person.start()


def list_place(person):
    """Left and top of the client's buddy list on its screen."""
    environment = {**os.environ, "DISPLAY": person._display}

    def find():
        try:
            return person.host.run("xdotool", "search", "--all", "--pid", str(person.process.pid), "--onlyvisible", "--name", "^Velmora$",
                                   env=environment).split()
        except RuntimeError:
            return None  # None yet.
    number = clients.wait(20, find, f"{person.name}'s list")[0]
    out = person.host.run("xdotool", "getwindowgeometry", "--shell", number, env=environment)
    place = dict(line.split("=") for line in out.split() if "=" in line)
    return int(place["X"]), int(place["Y"])


def processor_times(pid):
    """Seconds of a processor that each name of threads has used; those of threads that have ended are under no name."""
    found = {}
    for task in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{task}/comm") as name, open(f"/proc/{pid}/task/{task}/schedstat") as schedule:
                key = name.read().strip()
                found[key] = found.get(key, 0) + int(schedule.read().split()[0]) * 1e-9
        except FileNotFoundError:
            pass
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rpartition(")")[2].split()
    whole = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    found[""] = max(0.0, whole - sum(found.values()))
    return found


def memory(pid):
    """What a process has for itself, KiB."""
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        return sum(int(line.split()[1]) for line in rollup if line.startswith(("Private_Clean:", "Private_Dirty:")))


def show_list(person, **geometry):
    """In a client's own copy of the skin the buddy list stands open from the start, with a geometry of its own."""
    path = os.path.join(person.folder, "template.xml")
    with open(os.path.join(clients.TOP, "skin/template.xml"), encoding="utf-8") as source:
        text = source.read()
    begin = text.index('<Window id="buddylist"')
    end = text.index(">", begin)
    window = text[begin:end]
    for name, value in {"hidden": "false", "onopen": "", **geometry}.items():
        window, count = re.subn(f' {name}="[^"]*"', f' {name}="{value}"', window)
        assert count == 1, f"the skin's buddy list has no '{name}'"
    with open(path, "w", encoding="utf-8") as out:
        out.write(text[:begin] + window + text[end:])


class Viewer:
    """Reads a camera's times off a client's screen. `seen` holds pairs of the moment of time.monotonic and the picture's age in seconds,
    None for a picture that cannot be read."""

    def __init__(self, program, host, display, place):
        self.seen, self.lock = [], threading.Lock()
        self.process = host.start(program, *map(str, place), env={**os.environ, "DISPLAY": display}, stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        threading.Thread(target=self._listen, daemon=True).start()

    def _listen(self):
        span = Camera.UNIT * (1 << Camera.BITS)
        for line in self.process.stdout:
            now, count = (int(word) for word in line.split())
            now /= 1e6
            age = None if count < 0 else (now - count * Camera.UNIT) % span
            # One smeared picture in sixteen passes the check by chance.
            age = None if age is None or age > OLDEST else age
            with self.lock:
                self.seen.append((now, age))

    def between(self, begin, end):
        with self.lock:
            return [(now, age) for now, age in self.seen if begin <= now < end]


def keep(path, rows):
    """Appends the rows to a file, one as JSON a line; no path keeps nothing."""
    if path:
        with open(path, "a") as out:
            out.writelines(json.dumps(row) + "\n" for row in rows)
