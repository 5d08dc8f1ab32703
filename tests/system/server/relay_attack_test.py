#!/usr/bin/env python3
"""Attacks on the STUN and relay roles from outside: the real server, real sockets, a stranger's bytes.

Usage: relay_attack_test.py PROGRAM      the velmora-server to attack
"""
import socket
import sys

from serverlab import Server, Stream, datagrams, message, parse, run

PROGRAM = sys.argv[1]
FORBIDDEN = ["127.0.0.1", "127.255.255.254", "10.0.0.1", "10.255.255.255", "172.16.0.1", "172.31.255.254", "192.168.0.1",
             "192.168.255.254", "169.254.169.254", "100.64.0.1", "0.0.0.0", "224.0.0.1", "239.255.255.255", "240.0.0.1",
             "255.255.255.255", "192.0.0.1", "198.18.0.1"]


def send_udp(host, content):
    return message("SENDUDP", content=content, **{"Remote-Host": host})


def allocate(stream, cseq=3):
    stream.connection.sendall(message("OPENTURN", cseq))
    return stream.message()[0]


def stun(socket_, server, cseq, **headers):
    socket_.sendto(message("STUN", cseq, **headers), server.hosts["stun"][0])
    return [socket_.recvfrom(65536) for _ in range(3)]


def ping(server):
    """The server still answers, and with nothing else before that: all that it was going to say has been said."""
    with datagrams() as client:
        client.sendto(message("PING", 9, **{"Global-Host": "1.2.3.4:5"}), server.hosts["signalling"][0])
        assert parse(client.recv(65536))[0]["code"] == "200"


def nothing_came(receiver, marker_from, marker_to):
    """Datagrams on loopback keep their order: when the marker is the first that comes, nothing else did."""
    marker_from.sendto(b"marker", marker_to)
    assert receiver.recv(65536) == b"marker"


def a_stranger_opens_no_allocation():
    with Server(PROGRAM) as server:
        with server.stream("relay") as connection:
            stream = Stream(connection)
            assert allocate(stream)["code"] == "403"
            assert stream.message() is None
        with server.stream("relay") as connection, datagrams() as target:
            connection.sendall(send_udp("%s:%d" % target.getsockname(), b"x"))
            assert Stream(connection).message() is None
            nothing_came(target, target, target.getsockname())
        assert server.metric("OPENTURN", "200") == 0


def an_allocation_is_its_connections_alone():
    with Server(PROGRAM, relay_allow_private="yes") as server:
        server.logon()
        with server.stream("relay") as owner, server.stream("relay") as thief, datagrams() as peer:
            stream = Stream(owner)
            host = allocate(stream)["Global-Host"]
            other = Stream(thief)
            thief.sendall(message("SENDUDP", 4, content=b"x", **{"Remote-Host": "%s:%d" % peer.getsockname(), "Global-Host": host}))
            assert other.message() is None, "without an OPENTURN of its own"
            port = int(host.rsplit(":", 1)[1])
            peer.sendto(b"for the owner", ("127.0.0.1", port))
            assert stream.message()[1] == b"for the owner"
        with server.stream("relay") as another:
            again = allocate(Stream(another))["Global-Host"]
            assert again != host, "each has an address of its own"


def the_relay_sends_to_no_forbidden_place():
    with Server(PROGRAM) as server:
        server.logon()
        with server.stream("relay") as connection, datagrams() as inside:
            stream = Stream(connection)
            own = allocate(stream)["Global-Host"]
            places = ["%s:9999" % address for address in FORBIDDEN] + ["%s:%d" % inside.getsockname(), own, "8.8.8.8:0"]
            for place in places:
                connection.sendall(send_udp(place, b"forbidden"))
                connection.sendall(message("SENDUDP", 5, content=b"forbidden", **{"Remote-Host": place}))
            assert allocate(stream, 6)["Global-Host"] == own, "all of them were taken, and none came back"
            assert server.metric("SENDUDP", "forbidden") == 2 * len(places)
            assert server.metric("SENDUDP", "sent") == 0
            nothing_came(inside, inside, inside.getsockname())


def hosts_that_are_none_are_dropped():
    with Server(PROGRAM, relay_allow_private="yes") as server:
        server.logon()
        with server.stream("relay") as connection:
            stream = Stream(connection)
            allocate(stream)
            bad = ["", "localhost:1", "127.0.0.1", "127.0.0.1:99999", "127.1:80", "0x7f.0.0.1:80", "[::1]:80", "127.0.0.1:80,1.2.3.4:5"]
            for host in bad:
                connection.sendall(send_udp(host, b"x"))
            assert allocate(stream, 6)["code"] == "200"
            assert server.metric("SENDUDP", "sent") == 0


def a_client_gets_its_share_and_no_more():
    with Server(PROGRAM, relay_allow_private="yes", relay_packets_per_second=20) as server:
        server.logon()
        with server.stream("relay") as connection, datagrams() as peer:
            stream = Stream(connection)
            host = allocate(stream)["Global-Host"]
            for _ in range(200):
                connection.sendall(send_udp("%s:%d" % peer.getsockname(), b"x"))
                peer.sendto(b"y", ("127.0.0.1", int(host.rsplit(":", 1)[1])))
            allocate(Stream(server.stream("relay")))
            while server.metric("SENDUDP", "sent") + server.metric("SENDUDP", "limited") < 200:
                pass
            assert server.metric("SENDUDP", "limited") > 100
            assert server.metric("datagram", "limited") > 100
            ping(server)


def an_idle_allocation_ends():
    with Server(PROGRAM, relay_idle_seconds=1) as server:
        server.logon()
        with server.stream("relay") as connection:
            stream = Stream(connection)
            assert allocate(stream)["code"] == "200"
            assert stream.message() is None, "the server ends it"
        assert server.metric("any", "idle") == 1


def stun_answers_nobody_but_the_asker():
    with Server(PROGRAM) as server, datagrams() as asker, datagrams() as victim:
        place = "%s:%d" % victim.getsockname()
        for cseq, indirect in enumerate([place, place + ", " + place, "255.255.255.255:9, " + place], 1):
            answers = stun(asker, server, cseq, **{"Indirect-Host-List": indirect, "Global-Host": place, "Observed-Host": place})
            assert {source for _, source in answers} == set(server.hosts["stun"][:3]), "by the server's own three hosts"
        ping(server)
        nothing_came(victim, asker, victim.getsockname())


def a_holepunch_is_answered_by_nobody():
    with Server(PROGRAM) as server, datagrams() as client:
        for host in server.hosts["stun"]:
            client.sendto(b"HOLEPUNCH", host)
        answers = stun(client, server, 7)
        assert all(parse(data)[0]["CSeq"] == "7 (test)" for data, _ in answers), "only what was asked is answered"
        assert server.metric("HOLEPUNCH", "taken", "stun") == 4


def delays_are_bounded_in_number():
    with Server(PROGRAM, stun_pending_per_source=5) as server, datagrams() as client:
        for cseq in range(1, 101):
            client.sendto(message("STUN", cseq, Delay=300000), server.hosts["stun"][3])
        got = [parse(client.recv(65536))[0]["CSeq"] for _ in range(5)]
        assert sorted(got) == [f"{i} (test)" for i in range(1, 6)]
        assert server.metric("STUN", "limited", "stun") == 95
        client.sendto(message("STUN", 200, Delay=99999999999999999999999999), server.hosts["stun"][3])
        client.sendto(message("STUN", 201, Delay=-1), server.hosts["stun"][3])
        client.sendto(message("STUN", 202, Delay=1), server.hosts["stun"][3])
        assert parse(client.recv(65536))[0]["CSeq"] == "202 (test)", "an endless delay is not waited for, and a negative one is none"


def what_is_dropped_is_not_answered():
    junk = [b"", b"\0", b"STUN / HTTP/1.1\r\n\r\n", message("STUN", 1) + b"x", b"HTTP/1.1 200 OK\r\nCSeq: 1\r\n\r\n",
            message("INVITE", 1), message("REGISTER", 1, From="ann@velmora.local"), b"A" * 60000, b"STUN / HTTP/1.1\r\nCSeq: " +
            b"9" * 9000 + b"\r\n\r\n", b"\xff" * 1000, message("STUN", 1, **{f"X-{i}": i for i in range(100)})]
    with Server(PROGRAM) as server, datagrams() as client:
        for host in server.hosts["stun"] + server.hosts["signalling"]:
            for data in junk:
                client.sendto(data, host)
        answers = stun(client, server, 77)
        assert all(parse(data)[0]["CSeq"] == "77 (test)" for data, _ in answers), "nothing else was answered"
        ping(server)


def half_open_streams_take_no_memory():
    with Server(PROGRAM, connections_per_address=1000, relay_allocations_per_address=1000) as server:
        server.logon()
        before = server.memory()
        streams = [server.stream(role) for role in ("relay", "logon", "log", "upgrade") for _ in range(100)]
        for stream in streams:
            stream.sendall(b"OPENTURN / HTTP/1.1\r\nX: " + b"x" * 3000)
        ping(server)
        assert server.memory() - before < 16384, "some KiB for each of the 400"
        for role in ("relay", "logon", "upgrade"):
            with server.stream(role) as endless:
                try:
                    while endless.send(b"x" * 4096):
                        pass
                except OSError:
                    pass  # Ended by the server, which is what is tested: the loop has no other end.
        for stream in streams:
            stream.close()
        ping(server)


def half_open_streams_end_in_time():
    with Server(PROGRAM, relay_idle_seconds=1) as server:
        server.logon()
        with server.stream("relay") as connection:
            stream = Stream(connection)
            allocate(stream)
            connection.sendall(b"SENDUDP / HTTP/1.1\r\nContent-Le")
            assert stream.message() is None


def one_address_gets_its_number_of_allocations():
    with Server(PROGRAM, relay_allocations_per_address=3) as server:
        server.logon()
        streams = [Stream(server.stream("relay")) for _ in range(4)]
        codes = [allocate(stream)["code"] for stream in streams]
        assert codes == ["200", "200", "200", "503"]
        for stream in streams:
            stream.connection.close()


socket.setdefaulttimeout(20)
run([a_stranger_opens_no_allocation, an_allocation_is_its_connections_alone, the_relay_sends_to_no_forbidden_place,
     hosts_that_are_none_are_dropped, a_client_gets_its_share_and_no_more, an_idle_allocation_ends, stun_answers_nobody_but_the_asker,
     a_holepunch_is_answered_by_nobody, delays_are_bounded_in_number, what_is_dropped_is_not_answered, half_open_streams_take_no_memory,
     half_open_streams_end_in_time, one_address_gets_its_number_of_allocations])
