"""The real velmora-server as its clients and its operator see it: a process, sockets, its log and its command line.

Clients stand on addresses of the loopback network of their own (127.0.0.2 and so on), so that the server takes them for different
places. That something is not answered is told by the answer to a PING that was sent after it from the same socket: the server reads a
socket in order. Nothing sleeps.
"""
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = os.path.join(os.path.abspath(sys.argv.pop(1)), "velmora-server") if len(sys.argv) > 1 else "velmora-server"
DEADLINE = 20
DOMAIN = "velmora.local"
QUICK = {"password_memory_kib": 8, "password_passes": 1, "relay_allow_private": "yes", "logons_per_minute": 100000}


def compose(first, headers=(), content=None):
    """The bytes of a message; `first` is a method or a whole first line."""
    lines = [first if " " in first else f"{first} / HTTP/1.1"]
    lines += [f"{name}: {value}" for name, value in headers]
    if content is not None:
        lines.append(f"Content-Length: {len(content)}")
    return ("\r\n".join(lines) + "\r\n\r\n").encode() + (content or b"")


class Message:
    """A parsed message: `code` of a response or `method` of a request, headers by name, content."""

    def __init__(self, data):
        head, _, self.content = data.partition(b"\r\n\r\n")
        lines = head.decode().split("\r\n")
        words = lines[0].split(" ")
        self.first = lines[0]
        self.code = int(words[1]) if words[0].startswith("HTTP/") else 0
        self.method = "" if self.code else words[0]
        self.headers = dict(line.split(": ", 1) if ": " in line else (line.rstrip(":"), "") for line in lines[1:])
        self.data = data

    def __getitem__(self, name):
        return self.headers.get(name)

    def list(self, name):
        return [item for item in self.headers.get(name, "").split(", ") if item]


def wait(condition, what, seconds=DEADLINE):
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.02)
    return value


class Server:
    """One velmora-server in a folder of its own. Settings are keywords; they go over QUICK."""

    def __init__(self, **settings):
        self.folder = tempfile.mkdtemp(prefix="velmora-server-")
        self.config = os.path.join(self.folder, "velmora-server.ini")
        self.log_path = os.path.join(self.folder, "server.log")
        # Ports that the system gives to nobody by itself, so that a server that was killed finds them free again.
        self.settings = {**QUICK, "port_base": random.randrange(1000, 2900) * 10, **settings}
        self.process = None
        self.write_config()

    def write_config(self, text=None, **changes):
        self.settings.update(changes)
        with open(self.config, "w") as out:
            out.write(text or "".join(f"{key} = {value}\n" for key, value in self.settings.items()))

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def start(self, tries=5):
        begin = os.path.getsize(self.log_path) if os.path.exists(self.log_path) else 0
        with open(self.path("ready"), "w") as out, open(self.log_path, "a") as log:
            self.process = subprocess.Popen([PROGRAM, "--config", self.config], cwd=self.folder, stdout=out, stderr=log)

        def ready():
            with open(self.path("ready")) as text:
                line = text.read()
            if self.process.poll() is not None:
                if "already in use" in self.log[begin:] and not hasattr(self, "hosts") and tries:
                    return "again\n"
                raise AssertionError(f"the server ended with {self.process.returncode}:\n{self.log[begin:]}")
            return line if line.endswith("\n") else ""

        words = wait(ready, "the ready line").split()
        if words == ["again"]:  # Another run has them.
            self.write_config(port_base=random.randrange(1000, 2900) * 10)
            return self.start(tries - 1)
        self.pid = self.process.pid
        self.hosts = {name: value.split(",") for name, value in (word.split("=") for word in words[1:])}
        return self

    def keep_ports(self):
        """A later start listens where this one does."""
        names = ("stun_direct", "stun_punched", "stun_unpunched", "stun_refresh")
        changes = dict(zip(names, self.hosts["stun"]))
        for name in ("logon", "signalling", "relay", "log", "upgrade", "metrics"):
            changes[name] = ", ".join(self.hosts[name])
        self.write_config(**changes)
        return self

    def host(self, role):
        address, port = self.hosts[role][0].split(":")
        return address, int(port)

    def signal(self, number):
        os.kill(self.pid, number)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        """SIGTERM; its exit code."""
        self.signal(signal.SIGTERM)
        return self.process.wait(DEADLINE)

    def reload(self):
        """SIGHUP, and what the log tells of it."""
        begin = len(self.log)
        self.signal(signal.SIGHUP)
        return wait(lambda: re.search(r"\S* ?reload result=.*\n", self.log[begin:]), "the reload")[0].strip()

    def close(self):
        if self.process and self.process.poll() is None:
            self.kill()
        shutil.rmtree(self.folder)

    @property
    def log(self):
        with open(self.log_path, encoding="utf-8") as text:
            return text.read()

    def command(self, *words, code=0):
        done = subprocess.run([PROGRAM, "--config", self.config, *words], cwd=self.folder, capture_output=True, text=True, timeout=60)
        assert done.returncode == code, f"{words}: {done.returncode}, not {code}: {done.stdout}{done.stderr}"
        return done.stdout + done.stderr

    def connect(self, role, address="127.0.0.1"):
        return socket.create_connection(self.host(role), timeout=DEADLINE, source_address=(address, 0))

    def ask(self, role, data, address="127.0.0.1", half_close=False):
        """One exchange over a connection; None when the server ends it without an answer."""
        with self.connect(role, address) as connection:
            try:
                connection.sendall(data)
                if half_close:
                    connection.shutdown(socket.SHUT_WR)
            except (BrokenPipeError, ConnectionResetError):
                return None
            return receive(connection)

    def authenticate(self, name, password="secret", address="127.0.0.1", email="a@b.c", version=764, **more):
        headers = [("From", name), ("Password", password), ("Email", email), ("Version", version), *more.items()]
        return self.ask("logon", compose("AUTHENTICATE", headers), address)

    def metrics(self):
        """Series to value."""
        text = self.ask("metrics", compose("GET /metrics HTTP/1.1", [("Host", "x")])).content.decode()
        return {line.rsplit(" ", 1)[0]: float(line.rsplit(" ", 1)[1]) for line in text.splitlines() if not line.startswith("#")}

    def count(self, role, method, result):
        return self.metrics().get(f'velmora_messages_total{{role="{role}",method="{method}",result="{result}"}}', 0)

    def memory(self):
        """Resident bytes."""
        with open(f"/proc/{self.pid}/statm") as numbers:
            return int(numbers.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def receive(connection):
    """The next whole message of a connection, or None at its end."""
    data, total = bytearray(), None
    try:
        while True:
            end = data.find(b"\r\n\r\n", 0, 70000)
            if end >= 0 and total is None:
                found = re.search(rb"\r\nContent-Length: *(\d+)", data[: end + 2])
                total = end + 4 + (int(found[1]) if found else 0)
            if total is not None and len(data) >= total:
                return Message(bytes(data))
            block = connection.recv(65536)
            if not block:
                return None
            data += block
    except ConnectionResetError:
        return None


class Client:
    """A device: a UDP socket on an address of its own, towards the signalling host. `user` is a name without its domain."""

    def __init__(self, server, user="ann", address="127.0.0.2", port=0):
        self.server, self.name, self.user, self.address = server, user, f"{user}@{DOMAIN}", address
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((address, port))
        self.socket.settimeout(DEADLINE)
        self.device = None
        self.cseq = int.from_bytes(os.urandom(3), "big")

    def close(self):
        self.socket.close()

    @property
    def host(self):
        return "%s:%d" % self.socket.getsockname()

    def send(self, data):
        self.socket.sendto(data, self.server.host("signalling"))

    def receive(self):
        return Message(self.socket.recv(65536))

    def compose(self, method, **headers):
        self.cseq += 1
        named = [(name.replace("_", "-"), value) for name, value in headers.items()]
        return compose(method, [("CSeq", f"{self.cseq} (GDispatchService)"), *named])

    def ask(self, method, **headers):
        self.send(self.compose(method, **headers))
        return self.receive()

    def answers(self, data):
        """All that comes back for a datagram, up to the answer to a PING that is sent after it."""
        self.send(data)
        self.cseq += 1
        mark = f"{self.cseq} (mark)"
        self.send(compose("PING", [("CSeq", mark), ("Global-Host", "1.2.3.4:5")]))
        found = []
        while (message := self.receive())["CSeq"] != mark:
            found.append(message)
        return found

    def logon(self, password="secret"):
        answer = self.server.authenticate(self.user, password, self.address)
        return answer if answer.code == 200 else self.server.authenticate(self.name, password, self.address)

    def registration(self, capabilities=None, **changes):
        headers = {"From": self.user, "Device-GUID": self.device, "Version": 764, "Route-List": f"local://{self.host}", **changes}
        if capabilities:
            headers["Capabilities"] = capabilities
        return self.compose("REGISTER", **headers)

    def register(self, **more):
        self.send(self.registration(**more))
        return self.receive().code

    def enter(self, **more):
        """Logs on, fetches an identity and registers."""
        code = self.logon().code
        assert code == 200, f"logon {code}"
        self.device = self.ask("DEVICEGUID")["Device-GUID"]
        code = self.register(**more)
        assert code == 200, f"register {code}"
        return self

    def invitation(self, to, **changes):
        headers = {"From": self.user, "From-Device-GUID": self.device, "To": to, "Try-Route-List": f"local://{self.host}", **changes}
        return self.compose("INVITE", **headers)

    def invite(self, to, **changes):
        self.send(self.invitation(to, **changes))
        return self.receive()

    def buddies(self):
        return self.ask("GETBUDDYLIST", From=self.user).list("Buddy-List")

    def set_buddies(self, *names):
        return self.ask("SETBUDDYLIST", From=self.user, Buddy_List=", ".join(names)).code

    def add(self, name):
        return self.ask("ADDBUDDY", From=self.user, Buddy_GUID=name).code


class Case(unittest.TestCase):
    """Each test has servers and clients of its own, which end with it."""

    def serve(self, **settings):
        server = Server(**settings)
        self.addCleanup(server.close)
        return server.start()

    def client(self, server, *arguments, **more):
        client = Client(server, *arguments, **more)
        self.addCleanup(client.close)
        return client

    def assertSilent(self, client, data):
        self.assertEqual([message.data for message in client.answers(data)], [])


main = unittest.main
