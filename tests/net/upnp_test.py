#!/usr/bin/env python3
"""Port mapping at a real UPnP gateway, and what is no gateway or a bad one: probe, router and strangers in networks of their own.

Usage: upnp_test.py PROBE SERVICE [TEST...]      as root, or with sudo; PROBE and SERVICE are the programs of upnp_probe.cpp and
                                                dispatch_probe.cpp
"""
import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib"))
import liar
import netlab

LOW, HIGH = 49152, 65535
OUTSIDE = "5.5.5.1"
STRANGER, OTHER_STRANGER = "5.5.5.10", "5.5.5.11"


class Probe:
    """The program under test on a host of the lab."""

    def __init__(self, host, low=LOW, high=HIGH):
        self.began = time.monotonic()
        command = [PROBE, host.addresses[0], str(low), str(high)]
        self.process = host.start(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.log = []
        self.state, self.local_host, *rest = self.answer().split()
        self.seconds = time.monotonic() - self.began
        self.global_host = rest[0] if rest else None

    def answer(self):
        """The next line that is not of the log."""
        for line in self.process.stdout:
            if not line.startswith("log "):
                return line.strip()
            self.log.append(line[4:])
        raise AssertionError(f"the probe ended with {self.process.wait()}; its log: {''.join(self.log)}")

    def do(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.answer()

    def count(self, text):
        return sum(text in line for line in self.log)

    def peak_megabytes(self):
        with open(f"/proc/{self.process.pid}/status") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmHWM:")) // 1024

    def end(self):
        self.process.stdin.close()
        code = self.process.wait(20)
        self.process.stdout.close()
        return code


class Gateway(unittest.TestCase):
    def setUp(self):
        self.lab = self.enterContext(netlab.Lab())
        self.stranger = self.lab.public_host(STRANGER, OTHER_STRANGER)
        self.router = self.lab.router(OUTSIDE, "10.0.0.0/24", netlab.Nat.PORT_RESTRICTED)
        self.client = self.lab.client(self.router)

    def probe(self, *arguments):
        probe = Probe(self.client, *arguments)
        self.addCleanup(probe.end)
        return probe

    def send(self, address, probe, text):
        ip, port = probe.global_host.split(":")
        socket = self.stranger.udp(address)
        socket.sendto(text.encode(), (ip, int(port)))
        return f"{address}:{socket.getsockname()[1]}"


class RealGateway(Gateway):
    def test_a_mapping_lets_strangers_in_until_it_is_closed(self):
        self.router.start_gateway(LOW, HIGH)
        probe = self.probe()
        self.assertEqual(probe.state, "open", probe.log)
        ip, port = probe.global_host.split(":")
        self.assertEqual(ip, OUTSIDE)
        self.assertTrue(LOW <= int(port) < HIGH, port)
        sender = self.send(STRANGER, probe, "hello")
        self.assertEqual(probe.do("recv"), f"received {sender} hello")
        sender = self.send(OTHER_STRANGER, probe, "again")
        self.assertEqual(probe.do("recv"), f"received {sender} again")
        self.assertEqual(probe.do("close"), "closed")
        self.send(STRANGER, probe, "too late")
        self.assertEqual(probe.do("recv"), "nothing")
        self.assertEqual(probe.end(), 0)
        self.assertEqual(probe.count("WARNING"), 0, probe.log)

    def test_without_a_mapping_no_stranger_gets_in(self):
        probe = self.probe()
        probe.global_host = f"{OUTSIDE}:{probe.local_host.split(':')[1]}"
        self.send(STRANGER, probe, "hello")
        self.assertEqual(probe.do("recv"), "nothing")

    def test_ports_that_the_gateway_refuses_are_tried_five_times(self):
        self.router.start_gateway(LOW, LOW + 100)
        probe = self.probe(LOW + 1000, LOW + 2000)
        self.assertEqual(probe.state, "null")
        self.assertEqual(probe.count("WARNING Unable to create UPnP mapping for port "), 5, probe.log)
        self.assertEqual(probe.count("WARNING Error HR return value: "), 5, probe.log)
        self.assertEqual(probe.end(), 0)


class Service:
    """The client's dispatch service on a host of the lab: its log is read beside, its thread goes on by itself."""

    def __init__(self, host):
        self.folder = tempfile.TemporaryDirectory()
        self.process = host.start(SERVICE, host.addresses[0], f"{STRANGER}:9", stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                  cwd=self.folder.name)
        self.log, self.news = [], threading.Condition()
        self.reader = threading.Thread(target=self._read)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            with self.news:
                self.log.append(line)
                self.news.notify_all()

    def said(self, text, seconds=20):
        with self.news:
            return self.news.wait_for(lambda: any(text in line for line in self.log), seconds)

    def do(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def end(self):
        self.process.stdin.close()
        code = self.process.wait(20)
        self.reader.join()
        self.process.stdout.close()
        self.folder.cleanup()
        return code


class WholeService(Gateway):
    def setUp(self):
        super().setUp()
        self.router.start_gateway(LOW, HIGH)
        self.service = Service(self.client)
        self.addCleanup(lambda: self.service.process.poll() is None and self.service.end())

    def mapped(self):
        """The port outside that the router leads to the client; None without one."""
        rules = self.router.run("nft", "list", "ruleset")
        found = re.search(rf"dport (\d+) .*dnat (?:ip )?to {re.escape(self.client.addresses[0])}:", rules)
        return int(found.group(1)) if found else None

    def connect(self):
        self.service.do("CONNECT")
        self.assertTrue(self.service.said("Opened UPnP mapping for ("), self.service.log)
        port = self.mapped()
        self.assertIsNotNone(port, self.router.run("nft", "list", "ruleset"))
        self.assertTrue(LOW <= port < HIGH, port)
        return port

    def assert_unmapped(self):
        deadline = time.monotonic() + 10
        while self.mapped() and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertIsNone(self.mapped())

    def test_a_mapping_leads_to_the_shared_port_and_goes_with_a_reset(self):
        port = self.connect()
        self.stranger.udp(STRANGER).sendto(b"\x80" + bytes(11), (OUTSIDE, port))
        self.assertTrue(self.service.said("Received 12 RTP bytes but not ONLINE, ignoring."), self.service.log)
        self.service.do("RESET")
        self.assertTrue(self.service.said("to 'Offline'"), self.service.log)
        self.assert_unmapped()
        self.assertEqual(self.service.end(), 0)

    def test_a_client_that_finds_no_server_removes_its_mapping(self):
        self.connect()
        self.assertTrue(self.service.said("to 'Offline'"), self.service.log)
        self.assert_unmapped()

    def test_a_client_that_ends_removes_its_mapping(self):
        self.connect()
        self.assertEqual(self.service.end(), 0)
        self.assert_unmapped()


class NoGateway(Gateway):
    def test_the_search_ends_in_its_time(self):
        probe = self.probe()
        self.assertEqual(probe.state, "null")
        self.assertLess(probe.seconds, 6)
        self.assertEqual(probe.count("WARNING"), 0, probe.log)

    def test_a_gateway_that_lies_is_none(self):
        for lie in liar.LIES:
            with self.subTest(lie), liar.Liar(self.router, lie) as gateway:
                probe = self.probe()
                self.assertEqual(probe.state, "null")
                self.assertLess(probe.seconds, 12)
                self.assertLess(probe.peak_megabytes(), 100)
                self.assertTrue(gateway.asked, "the description was never asked for")
                self.assertEqual(probe.end(), 0)


def main():
    global PROBE, SERVICE
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    netlab.need_root()
    PROBE, SERVICE = (os.path.abspath(sys.argv.pop(1)) for _ in range(2))
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
