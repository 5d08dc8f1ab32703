"""The real server in a folder of its own, and plain sockets that talk to it. Waiting ends with a deadline, never with a bare sleep."""
import os
import re
import shutil
import socket
import subprocess
import tempfile

DEADLINE = 20
SETTINGS = {"port_base": 0, "password_memory_kib": 8, "password_passes": 1, "logons_per_minute": 100000}


class Server:
    """velmora-server on loopback with free ports; `hosts` by role as it says that it is ready."""

    def __init__(self, program, **settings):
        self.folder = tempfile.mkdtemp(prefix="velmora-server-")
        path = os.path.join(self.folder, "server.ini")
        with open(path, "w", encoding="utf-8") as file:
            for key, value in {**SETTINGS, **settings}.items():
                file.write(f"{key} = {value}\n")
        with open(os.path.join(self.folder, "server.log"), "w", encoding="utf-8") as log:
            self.process = subprocess.Popen([program, "--config", path], cwd=self.folder, stdout=subprocess.PIPE, stderr=log, text=True)
        self.hosts = {}
        for word in self.process.stdout.readline().split()[1:]:
            role, hosts = word.split("=", 1)
            self.hosts[role] = [(host.rsplit(":", 1)[0], int(host.rsplit(":", 1)[1])) for host in hosts.split(",")]
        if not self.hosts:
            raise AssertionError("the server does not start: " + self.log())

    def log(self):
        with open(os.path.join(self.folder, "server.log"), encoding="utf-8") as file:
            return file.read()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        running = self.process.poll() is None
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        text = self.log()
        shutil.rmtree(self.folder)
        if not running:
            raise AssertionError("the server ended: " + text[-2000:])

    def logon(self, name="ann"):
        with self.stream("logon") as stream:
            stream.sendall(message("AUTHENTICATE", From=name, Password="secret", Email="a@b", Version="764"))
            return Stream(stream).message()

    def stream(self, role):
        return socket.create_connection(self.hosts[role][0], DEADLINE)

    def metric(self, method, result, role="relay"):
        """How many messages of a role had that result."""
        with self.stream("metrics") as stream:
            stream.sendall(b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n")
            text = Stream(stream).message()[1].decode()
        found = re.search(rf'role="{role}",method="{method}",result="{result}"}} (\d+)', text)
        return int(found.group(1)) if found else 0

    def memory(self):
        """Resident memory in KiB."""
        with open(f"/proc/{self.process.pid}/status", encoding="utf-8") as status:
            return int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1))

    def device(self, name):
        """A registered device of an account that has logged on: its socket and its id."""
        assert self.logon(name)[0]["code"] in ("200", "409")
        device = datagrams()
        host = self.hosts["signalling"][0]
        device.sendto(message("DEVICEGUID", 1), host)
        identity = parse(device.recv(65536))[0]["Device-GUID"]
        device.sendto(message("REGISTER", 2, **{"From": name + "@velmora.local", "Device-GUID": identity, "Version": "764",
                                                "Route-List": "local://%s:%d" % device.getsockname()}), host)
        assert parse(device.recv(65536))[0]["code"] == "200"
        return device, identity


def datagrams():
    out = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    out.bind(("127.0.0.1", 0))
    out.settimeout(DEADLINE)
    return out


def message(method, cseq=0, content=None, **headers):
    if cseq:
        headers["CSeq"] = f"{cseq} (test)"
    if content is not None:
        headers["Content-Length"] = len(content)
    lines = [f"{method} / HTTP/1.1"] + [f"{name}: {value}" for name, value in sorted(headers.items())]
    return "\r\n".join(lines + ["", ""]).encode() + (content or b"")


def parse(data):
    """The headers, with the response's number as "code", and what follows them."""
    head, _, rest = data.partition(b"\r\n\r\n")
    lines = head.decode().split("\r\n")
    headers = dict(line.split(": ", 1) for line in lines[1:])
    headers["code"] = lines[0].split(" ")[1] if lines[0].startswith("HTTP/1.1") else ""
    return headers, rest


class Stream:
    """Messages of a connection."""

    def __init__(self, connection):
        self.connection = connection
        self.buffer = b""

    def message(self):
        """Headers and content; None when the other side has ended."""
        while True:
            if b"\r\n\r\n" in self.buffer:
                headers, rest = parse(self.buffer)
                size = int(headers.get("Content-Length", 0))
                if len(rest) >= size:
                    self.buffer = rest[size:]
                    return headers, rest[:size]
            try:
                data = self.connection.recv(65536)
            except ConnectionResetError:
                return None
            if not data:
                return None
            self.buffer += data


def run(tests):
    """Each test by its name; ends the program with 1 when one fails."""
    import sys
    import traceback
    failed = 0
    for test in tests:
        try:
            test()
            print("ok    ", test.__name__)
        except Exception:  # Whatever it is, the others run.
            traceback.print_exc()
            print("FAILED", test.__name__)
            failed += 1
    sys.exit(1 if failed else 0)
