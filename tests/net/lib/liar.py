"""A gateway that answers a search and then lies: its description is nonsense, has no end, or never comes."""
import select
import socket
import threading

SEARCH_GROUP, SEARCH_PORT = "239.255.255.250", 1900
DEVICE = "urn:schemas-upnp-org:device:InternetGatewayDevice:1"
HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nConnection: close\r\n"

# What is told for a description: a first part, a part that is repeated, and the seconds between repetitions; None is told once.
LIES = {
    "nonsense": (HEAD + b"\r\n" + bytes(range(256)) * 16, None, 0),
    "no_services": (HEAD + b"\r\n<?xml version='1.0'?><root><device></device></root>", None, 0),
    "nested_without_end": (HEAD + b"\r\n" + b"<device>" * 20000, None, 0),
    "silence": (b"", b"", 0.2),
    "huge_length": (HEAD + b"Content-Length: 2147483647\r\n\r\n<root>", None, 0),
    "negative_length": (HEAD + b"Content-Length: -5\r\n\r\n<root>", None, 0),
    "header_without_end": (HEAD, b"X-More: and more\r\n" * 1000, 0),
    "body_without_end": (HEAD + b"\r\n<root>", b"<device>" * 1000, 0),
    "chunks_without_end": (HEAD + b"Transfer-Encoding: chunked\r\n\r\n", b"8\r\n<device>\r\n" * 1000, 0),
    "a_byte_now_and_then": (HEAD + b"\r\n", b"x", 0.2),
}


class Liar:
    """Serves one lie on a router until the block ends."""

    def __init__(self, router, lie):
        self.first, self.more, self.pause = LIES[lie]
        self.address = router.inside_address
        self.asked = False
        self.search = router.socket(socket.SOCK_DGRAM, SEARCH_GROUP, SEARCH_PORT)
        member = socket.inet_aton(SEARCH_GROUP) + socket.inet_aton(self.address)
        self.search.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
        self.listener = router.socket(socket.SOCK_STREAM, self.address)
        self.listener.listen(8)
        self.over = threading.Event()
        self.threads = [threading.Thread(target=work) for work in (self._answer_searches, self._answer_requests)]

    def __enter__(self):
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self.over.set()
        for thread in self.threads:
            thread.join()
        self.search.close()
        self.listener.close()

    def _is_ready(self, source):
        return not self.over.is_set() and select.select([source], [], [], 0.05)[0]

    def _answer_searches(self):
        location = f"http://{self.address}:{self.listener.getsockname()[1]}/root.xml"
        answer = f"HTTP/1.1 200 OK\r\nST: {DEVICE}\r\nUSN: uuid:1::{DEVICE}\r\nLOCATION: {location}\r\n\r\n".encode()
        while not self.over.is_set():
            if self._is_ready(self.search):
                question, sender = self.search.recvfrom(2048)
                if DEVICE.encode() in question:
                    self.search.sendto(answer, sender)

    def _answer_requests(self):
        while not self.over.is_set():
            if self._is_ready(self.listener):
                stream, _ = self.listener.accept()
                with stream:
                    self.asked = True
                    # A closed stream with bytes that nobody took would be a reset.
                    stream.recv(4096)
                    self._lie(stream)

    def _lie(self, stream):
        stream.settimeout(0.2)
        try:
            stream.sendall(self.first)
            while self.more is not None and not self.over.is_set():
                try:
                    stream.sendall(self.more)
                except TimeoutError:
                    pass
                if self.pause or not self.more:
                    self.over.wait(self.pause)
        except OSError:
            pass
