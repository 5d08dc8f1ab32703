"""What the system tests share: the real programs on a private desktop, driven by xdotool, seen by screenshots, heard by recordings.

Run the tests below tests/support/with-desktop and tests/support/with-sound. Waiting always ends on a condition with a deadline.
"""
import array
import contextlib
import glob
import hashlib
import os
import random
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import traceback
import wave

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def run(*command, check=True, **more):
    return subprocess.run(command, check=check, capture_output=True, text=True, **more).stdout


def wait(seconds, condition, what):
    """The first true value of the condition; fails with `what` at the deadline."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.1)


def clips(binaries):
    """The folder of ann's and ben's clips. Drawing them takes long, so they are kept beside the programs, for as long as their script is
    the same."""
    script = os.path.join(TOP, "tools/demo/make-clips")
    with open(script, "rb") as source:
        folder = os.path.join(os.path.dirname(os.path.abspath(binaries)), "clips-" + hashlib.sha1(source.read()).hexdigest()[:12])
    if not os.path.isdir(folder):
        fresh = tempfile.mkdtemp(prefix="clips.", dir=os.path.dirname(folder))
        run(script, fresh)
        try:
            os.rename(fresh, folder)
        except OSError:  # Another test was faster.
            shutil.rmtree(fresh)
    return folder


def tell(story, chapters):
    """Plays the chapters of a story in order and ends the program. After a failure the screen, the ends of the logs (`last_words`, pairs
    of a name and a text) and the story's room are kept. `clean_up` ends whatever the story started."""
    try:
        for chapter in chapters:
            begin = time.monotonic()
            print(f"-- {chapter.__name__.replace('_', ' ')}", flush=True)
            chapter()
            print(f"   ok, {time.monotonic() - begin:.1f} s", flush=True)
    except Exception:
        traceback.print_exc()
        run("import", "-window", "root", os.path.join(story.room, "screen.png"), check=False)
        for name, text in story.last_words():
            print(f"---- the end of {name}\n{text}")
        print(f"kept for a look: {story.room}")
        story.clean_up()
        sys.exit(1)
    story.clean_up()
    shutil.rmtree(story.room)


class Story:
    """What stories of several people share: `people` are the clients, `server` serves them; a story that needs them has sinks of its own."""
    people, keepers = (), ()

    def open_sinks(self, *names, quiet=()):
        """A sink for each name. An idle one asks for data only after seconds: silence keeps all but the `quiet` ones awake."""
        for name in names:
            run("pactl", "load-module", "module-null-sink", f"sink_name={name}", "rate=48000")
        self.keepers = [subprocess.Popen(["pacat", "--latency-msec=20", "-d", name, "/dev/zero"]) for name in names if name not in quiet]

    def last_words(self):
        return [(f"{person.name}'s log", person.log[-4000:]) for person in self.people]

    def clean_up(self):
        for person in self.people:
            if person.process and person.process.poll() is None:
                person.kill()
        self.server.stop()
        for keeper in self.keepers:
            keeper.kill()


class Skin:
    """Where the windows of the shipped skin take the pointer. A part is named by words that stand in its line of velmora-skin --places:
    "text=Log on", "var=Local_Password", "?close"."""

    def __init__(self, binaries):
        self.program, self.windows = os.path.join(binaries, "velmora-skin"), {}

    def rect(self, window, *words, options=()):
        """x, y, width and height of the first part, in reading order, that has these words."""
        key = (window, *options)
        if key not in self.windows:
            out = run(self.program, "--dir", os.path.join(TOP, "skin"), "--places", window, *options,
                      env={**os.environ, "QT_QPA_PLATFORM": "offscreen"})
            self.windows[key] = [line.split("\t", 4) for line in out.splitlines() if line.count("\t") > 3]
        for line in self.windows[key]:
            if all(word in line[4] for word in words):
                return tuple(int(number) for number in line[:4])
        raise AssertionError(f"the skin's {window} has no part with {words}")

    def place(self, window, *words, options=()):
        """The middle of that part."""
        x, y, width, height = self.rect(window, *words, options=options)
        return x + width // 2, y + height // 2

    def first_picture(self):
        """The live picture of the first buddy in a list without requests, inside its frame."""
        x, y, _, _ = self.rect("window_buddylist", "picturesize=", options=("--empty",))
        return x + 6, y + 23, 44, 44


def free_ports(count):
    """The first of `count` neighbours that nobody has, among those that the system gives to nobody by itself."""
    while True:
        base = random.randrange(1000, 3200) * 10
        try:
            with contextlib.ExitStack() as held:
                for kind in (socket.SOCK_STREAM, socket.SOCK_DGRAM):
                    for port in range(base, base + count):
                        held.enter_context(socket.socket(socket.AF_INET, kind)).bind(("127.0.0.1", port))
            return base
        except OSError:
            pass


class Server:
    """velmora-server in a folder of its own, on ports of its own."""

    def __init__(self, binaries, folder):
        self.program = os.path.join(binaries, "velmora-server")
        self.folder, self.base, self.process = folder, free_ports(10), None
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, "velmora-server.ini"), "w") as out:
            out.write(f"domain = velmora.local\nport_base = {self.base}\nrelay_allow_private = yes\n")

    @property
    def host(self):
        return f"127.0.0.1:{self.base}"

    def command(self, *words):
        return run(self.program, "--config", "velmora-server.ini", *words, cwd=self.folder)

    def start(self):
        log = os.path.join(self.folder, f"server-{time.monotonic_ns()}.log")
        self.process = subprocess.Popen([self.program, "--config", "velmora-server.ini"], cwd=self.folder, stdout=open(log, "w"),
                                        stderr=subprocess.STDOUT)

        def ready():
            with open(log) as text:
                words = text.read()
            assert self.process.poll() is None, f"the server ended with {self.process.returncode}: {words}"
            return re.search("^ready", words, re.M)
        # A new store is written through to the disk, which may be busy with what was built.
        wait(60, ready, "the server's ready line")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            self.process.wait(20)


class Client:
    """velmora in a working directory of its own, with a clip as camera and microphone."""

    def __init__(self, binaries, folder, name, server, clip, sink, settings=()):
        self.program, self.folder, self.name, self.sink = os.path.join(binaries, "velmora"), folder, name, sink
        self.clip, self.process = clip, None
        run(os.path.join(TOP, "tools/make-home"), folder, f"AUTHENTICATE_Host={server.host}", "First_Run_Complete=1", *settings)

    def start(self, *options):
        self.process = subprocess.Popen([self.program, "-log", "xV", "-silent", "-norestart", "-avi", self.clip, *options], cwd=self.folder,
                                        env={**os.environ, "PULSE_SINK": self.sink},
                                        stdout=open(os.path.join(self.folder, "stdout.txt"), "a"), stderr=subprocess.STDOUT)

    @property
    def log(self):
        try:
            with open(os.path.join(self.folder, "velmora.log"), errors="replace") as source:
                return source.read()
        except FileNotFoundError:
            return ""

    def clean_logs(self):
        return glob.glob(os.path.join(self.folder, "velmora_*_clean.log"))

    def said(self, text, seconds=20):
        wait(seconds, lambda: text in self.log or self.process.poll() is not None, f"{self.name}'s log line '{text}'")
        assert text in self.log, f"{self.name} ended before its log said '{text}'"

    def window(self, title, seconds=20):
        def find():
            found = run("xdotool", "search", "--all", "--pid", str(self.process.pid), "--onlyvisible", "--name", f"^{title}$", check=False).split()
            return Window(found[0]) if found else None
        return wait(seconds, find, f"{self.name}'s window '{title}'")

    def has_window(self, title):
        return bool(run("xdotool", "search", "--all", "--pid", str(self.process.pid), "--onlyvisible", "--name", f"^{title}$", check=False).split())

    def pictures(self):
        return self.log.count("Received frame video packet")

    def kill(self):
        self.process.kill()
        self.process.wait()


class Window:
    def __init__(self, number):
        self.number = number

    def geometry(self):
        out = dict(line.split("=") for line in run("xdotool", "getwindowgeometry", "--shell", self.number).split() if "=" in line)
        return int(out["X"]), int(out["Y"]), int(out["WIDTH"]), int(out["HEIGHT"])

    def move(self, x, y):
        run("xdotool", "windowmove", "--sync", self.number, str(x), str(y), check=False)
        wait(5, lambda: self.geometry()[:2] == (x, y), "a window's move")

    def raise_up(self):
        run("xdotool", "windowactivate", "--sync", self.number, check=False)

    def pointer(self, x, y):
        left, top, _, _ = self.geometry()
        run("xdotool", "mousemove", str(left + x), str(top + y))

    def click(self, x, y):
        self.pointer(x, y)
        time.sleep(0.15)
        run("xdotool", "mousedown", "1")
        time.sleep(0.05)
        run("xdotool", "mouseup", "1")
        time.sleep(0.15)

    def type(self, text):
        run("xdotool", "type", "--delay", "30", text)
        time.sleep(0.1)

    def key(self, key):
        run("xdotool", "key", key)
        time.sleep(0.1)

    def pixels(self, x, y, width, height):
        """Bytes R, G, B of a part of the screen below the window."""
        left, top, _, _ = self.geometry()
        crop = f"{width}x{height}+{left + x}+{top + y}"
        return subprocess.run(["import", "-silent", "-window", "root", "-crop", crop, "-depth", "8", "rgb:-"], check=True,
                              capture_output=True).stdout


def difference(a, b):
    return sum(abs(p - q) for p, q in zip(a, b)) / max(len(a), 1)


def mean_colour(pixels):
    return tuple(sum(pixels[c::3]) / (len(pixels) / 3) for c in range(3))


class Recording:
    """What a sink plays, as WAV, from now until stop()."""

    def __init__(self, sink, path):
        self.path = path
        self.process = subprocess.Popen(["parec", "-d", f"{sink}.monitor", "--rate=16000", "--channels=1", "--format=s16le",
                                         "--latency-msec=20", "--raw", path])
        wait(10, lambda: os.path.exists(path) and os.path.getsize(path) > 0, "the recorder's first samples")

    def seconds(self):
        return os.path.getsize(self.path) / 32000

    def stop(self):
        self.process.terminate()
        self.process.wait()
        with open(self.path, "rb") as source:
            data = source.read()
        samples = array.array("h", data[:len(data) // 2 * 2])
        with wave.open(self.path + ".wav", "wb") as out:
            out.setnchannels(1)
            out.setsampwidth(2)
            out.setframerate(16000)
            out.writeframes(samples.tobytes())
        return samples


def clip_samples(path):
    raw = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-ac", "1", "-ar", "16000", "-f", "s16le", "-"], check=True, capture_output=True).stdout
    return array.array("h", raw)


def envelope(samples, step=320):
    """Loudness in slices of 20 ms."""
    return [(sum(s * s for s in samples[i:i + step]) / step) ** 0.5 for i in range(0, len(samples) - step, step)]


def likeness(part, whole):
    """The best correlation of a piece's loudness curve with a place of a looping clip's; 1 is the same voice."""
    n = len(part)
    mean = sum(part) / n
    a = [v - mean for v in part]
    norm_a = sum(v * v for v in a) ** 0.5
    loop = whole + whole[:n]
    best = -1.0
    for lag in range(len(whole)):
        piece = loop[lag:lag + n]
        mean_b = sum(piece) / n
        b = [v - mean_b for v in piece]
        norm_b = sum(v * v for v in b) ** 0.5
        if norm_a and norm_b:
            best = max(best, sum(p * q for p, q in zip(a, b)) / (norm_a * norm_b))
    return best


def scratch():
    return tempfile.mkdtemp(prefix="velmora-system.")
