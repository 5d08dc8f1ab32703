#!/usr/bin/env python3
"""The laboratory's routers are what their names say: whom a client's datagrams seem to come from, and who gets in.

Usage: nat_test.py [TEST...]      as root, or with sudo
"""
import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib"))
import netlab

FRIEND, STRANGER = "5.5.5.10", "5.5.5.11"
OUTSIDE = "5.5.5.1"


class Kinds(unittest.TestCase):
    def setUp(self):
        self.lab = self.enterContext(netlab.Lab())
        public = self.lab.public_host(FRIEND, STRANGER)
        self.friend, self.friends_other_port, self.stranger = (
            public.udp(*host) for host in ((FRIEND, 4000), (FRIEND, 4001), (STRANGER, 4000)))
        for socket in (self.friend, self.friends_other_port, self.stranger):
            socket.settimeout(5)

    def client(self, nat):
        client = self.lab.client(self.lab.router(OUTSIDE, "10.0.0.0/24", nat))
        socket = client.udp(client.addresses[0], 6000)
        socket.settimeout(5)
        return socket

    def seen_by(self, socket, client):
        """The client's address as that host sees it."""
        client.sendto(b"hello", socket.getsockname())
        return socket.recvfrom(100)[1]

    def who_gets_in(self, client):
        """Of three that send to the client after it has contacted the friend. The friend's own comes last and ends the wait."""
        mapped = self.seen_by(self.friend, client)
        self.stranger.sendto(b"stranger", mapped)
        self.friends_other_port.sendto(b"other port", mapped)
        self.friend.sendto(b"friend", mapped)
        heard = []
        while "friend" not in heard:
            heard.append(client.recv(100).decode())
        return heard

    def check(self, nat, expected):
        client = self.client(nat)
        self.assertEqual(self.who_gets_in(client), expected + ["friend"])
        mappings = {self.seen_by(socket, client) for socket in (self.friend, self.friends_other_port, self.stranger)}
        self.assertEqual({address for address, _ in mappings}, {OUTSIDE})
        return len(mappings)

    def test_a_port_restricted_one_keeps_its_mapping_and_lets_in_whom_it_knows(self):
        self.assertEqual(self.check(netlab.Nat.PORT_RESTRICTED, []), 1)

    def test_an_unrestricted_one_lets_everyone_in(self):
        self.assertEqual(self.check(netlab.Nat.UNRESTRICTED, ["stranger", "other port"]), 1)

    def test_an_address_restricted_one_lets_in_every_port_of_a_known_host(self):
        self.assertEqual(self.check(netlab.Nat.ADDRESS_RESTRICTED, ["other port"]), 1)

    def test_a_symmetric_one_has_a_mapping_for_each_target(self):
        self.assertGreater(self.check(netlab.Nat.SYMMETRIC, []), 1)

    def test_a_blocking_one_passes_streams_alone(self):
        router = self.lab.router(OUTSIDE, "10.0.0.0/24", netlab.Nat.UDP_BLOCKED)
        client = self.lab.client(router)
        client.udp(client.addresses[0], 6000).sendto(b"hello", (FRIEND, 4000))
        listener = self.lab.public_host("5.5.5.12").socket(netlab.socket.SOCK_STREAM, "5.5.5.12", 4000)
        listener.listen(1)
        stream = client.socket(netlab.socket.SOCK_STREAM, client.addresses[0])
        stream.settimeout(5)
        stream.connect(("5.5.5.12", 4000))
        # The datagram left before the stream, and by the same way.
        self.friend.setblocking(False)
        self.assertRaises(BlockingIOError, self.friend.recv, 100)

    def test_a_bridge_counts_what_passes_between_two_addresses(self):
        self.lab.internet.count_flows()
        client = self.client(netlab.Nat.PORT_RESTRICTED)
        for _ in range(3):
            mapped = self.seen_by(self.friend, client)
        self.friend.sendto(b"hello", mapped)
        client.recv(100)
        self.assertEqual(self.lab.internet.flows(), {(OUTSIDE, FRIEND): 3, (FRIEND, OUTSIDE): 1})

    def test_two_clients_of_a_router_get_out_by_ports_of_their_own(self):
        router = self.lab.router(OUTSIDE, "10.0.0.0/24", netlab.Nat.PORT_RESTRICTED)
        clients = [self.lab.client(router) for _ in range(2)]
        sockets = [client.udp(client.addresses[0], 6000) for client in clients]
        self.assertEqual(len({self.seen_by(self.friend, socket) for socket in sockets}), 2)


if __name__ == "__main__":
    netlab.need_root()
    unittest.main(verbosity=2)
