#!/usr/bin/env python3
"""The logon role from outside: every answer, every refusal, every limit."""
import concurrent.futures
import re
import socket
import unittest

from velmora import DOMAIN, Case, compose, main, receive


class Accounts(Case):
    def test_a_new_name_becomes_an_account_with_all_hosts(self):
        server = self.serve()
        answer = server.authenticate("ann")
        self.assertEqual((answer.code, answer["User-GUID"]), (200, f"ann@{DOMAIN}"))
        self.assertEqual(answer.list("STUN-Host-List"), server.hosts["stun"])
        self.assertEqual(len(answer.list("STUN-Host-List")), 4)
        self.assertEqual(answer.list("SIP-Host-List"), server.hosts["signalling"])
        self.assertEqual(answer["TURN-Host"], server.hosts["relay"][0])
        self.assertEqual(answer["Logfile-Host"], server.hosts["log"][0])
        self.assertIsNone(answer["Upgrade-URL"])
        for name in ("STUN-Host-List", "SIP-Host-List", "TURN-Host", "Logfile-Host"):
            for host in answer.list(name):
                self.assertRegex(host, r"^\d+\.\d+\.\d+\.\d+:[1-9]\d*$")

    def test_a_taken_name_is_409_and_the_account_takes_its_password(self):
        server = self.serve()
        self.assertEqual(server.authenticate("ann").code, 200)
        self.assertEqual(server.authenticate("ann", "other").code, 409)
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}").code, 200)

    def test_what_cannot_be_accepted_is_400(self):
        server = self.serve(password_minimum=4)
        for name in ("", "Ann", "a b", "a/b", "../x", ".ann", "ä", "a,b", "a" * 65):
            self.assertEqual(server.authenticate(name).code, 400, name)
        for password in ("", "abc", "x" * 257):
            self.assertEqual(server.authenticate("ann", password).code, 400, password)
        for email in ("", "a", "@b", "a@", "a@b@c", "a b@c", "a@" + "b" * 300):
            self.assertEqual(server.authenticate("ann", email=email).code, 400, email)
        self.assertEqual(server.command("user", "list"), "")

    def test_every_403_is_the_same(self):
        server = self.serve()
        server.authenticate("ann")
        tries = ((f"ann@{DOMAIN}", "wrong"), (f"nobody@{DOMAIN}", "secret"), ("ann@other.org", "secret"), (f"@{DOMAIN}", "secret"), ("@", "x"))
        answers = {server.authenticate(*each).data for each in tries}
        self.assertEqual(len(answers), 1)
        self.assertTrue(answers.pop().startswith(b"HTTP/1.1 403 "))

    def test_an_older_client_is_offered_the_upgrade(self):
        server = self.serve(upgrade_version=765, upgrade_name="Velmora 7.65", upgrade_priority="critical")
        answer = server.authenticate("ann", version=764)
        self.assertEqual(answer["Upgrade-URL"], f"http://{server.hosts['upgrade'][0]}/upgrade.exe")
        self.assertEqual((answer["Upgrade-Name"], answer["Upgrade-Priority"]), ("Velmora 7.65", "critical"))
        self.assertIsNone(server.authenticate(f"ann@{DOMAIN}", version=765)["Upgrade-URL"])


class Connections(Case):
    def test_the_cseq_comes_back_unchanged(self):
        server = self.serve()
        for cseq in ("7", "7 (GDispatchService)", "  9 a, b; \"c\" ä".strip()):
            self.assertEqual(server.authenticate("x y", CSeq=cseq)["CSeq"], cseq)
        self.assertIsNone(server.authenticate("x y")["CSeq"])

    def test_a_client_may_end_its_sending(self):
        server = self.serve()
        request = compose("AUTHENTICATE", [("From", "ann"), ("Password", "p"), ("Email", "a@b")])
        self.assertEqual(server.ask("logon", request, half_close=True).code, 200)

    def test_a_client_may_connect_twice_and_use_one(self):
        server = self.serve()
        with server.connect("logon"), server.connect("logon") as second:
            second.sendall(compose("AUTHENTICATE", [("From", "ann"), ("Password", "p"), ("Email", "a@b")]))
            self.assertEqual(receive(second).code, 200)

    def test_the_same_logon_twice_at_once_is_answered_twice(self):
        server = self.serve()
        server.authenticate("ann")
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            self.assertEqual([each.code for each in pool.map(lambda _: server.authenticate(f"ann@{DOMAIN}"), range(2))], [200, 200])

    def test_a_request_may_come_byte_by_byte(self):
        server = self.serve()
        with server.connect("logon") as connection:
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for byte in compose("AUTHENTICATE", [("From", "ann"), ("Password", "p"), ("Email", "a@b")]):
                connection.sendall(bytes([byte]))
            self.assertEqual(receive(connection).code, 200)

    def test_what_is_no_request_gets_no_answer(self):
        server = self.serve()
        good = compose("AUTHENTICATE", [("From", "ann"), ("Password", "p")])
        for data in (compose("AUTHENTICATE", [("From", "ann")]), compose("AUTHENTICATE", [("Password", "p")]), compose("GET", [("From", "a")]),
                     b"\0" * 40000, b"no colon\r\nbad line\r\n\r\n", b"A" * 20000, b"\r\n\r\n", compose("HTTP/1.1 200 OK", [("CSeq", "1")]),
                     good[:-2] + b"Content-Length: -5\r\n\r\n", good[:-2] + b"Content-Length: 99999999999\r\n\r\n"):
            self.assertIsNone(server.ask("logon", data), data[:60])
        self.assertEqual(server.authenticate("ann").code, 200, "and the others go on")


class Limits(Case):
    def test_one_address_is_429_and_another_is_not(self):
        server = self.serve(logons_per_minute=5)
        codes = [server.authenticate(f"ann@{DOMAIN}", address="127.0.0.2").code for _ in range(6)]
        self.assertEqual(codes, [403] * 5 + [429])
        self.assertEqual(server.authenticate("ben", address="127.0.0.3").code, 200)

    def test_one_account_that_fails_is_429_from_everywhere_whether_it_exists_or_not(self):
        server = self.serve(logon_failures_per_hour=3)
        server.authenticate("ann")
        for name in ("ann", "nobody"):
            codes = [server.authenticate(f"{name}@{DOMAIN}", "wrong", f"127.0.1.{i}").code for i in range(1, 5)]
            self.assertEqual(codes, [403, 403, 403, 429], name)
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}", address="127.0.0.9").code, 429)
        self.assertEqual(server.authenticate("ben").code, 200)

    def test_more_passwords_than_can_be_hashed_are_503_and_the_rest_is_answered(self):
        server = self.serve(password_threads=1, password_pending=1, password_memory_kib=65536, password_passes=3)
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            codes = [each.code for each in pool.map(lambda i: server.authenticate(f"user{i}"), range(8))]
        self.assertEqual(set(codes), {200, 503})
        self.assertEqual(server.authenticate("later").code, 200)
        self.assertEqual(len(server.command("user", "list").splitlines()), codes.count(200) + 1)

    def test_one_address_holds_a_number_of_connections(self):
        server = self.serve(connections_per_address=3)
        held = [server.connect("logon", "127.0.0.2") for _ in range(3)]
        with server.connect("logon", "127.0.0.2") as fourth:
            self.assertEqual(fourth.recv(10), b"")
        self.assertEqual(server.authenticate("ann", address="127.0.0.3").code, 200)
        for connection in held:
            connection.close()


class Log(Case):
    def test_nothing_from_the_wire_makes_a_line_or_moves_a_terminal_and_no_password_is_in_it(self):
        server = self.serve()
        server.authenticate("evil' result=200\x1b[2J\u202e\u2028\u009b1m", "hunter2hunter2")
        server.authenticate("ann", "hunter3hunter3")
        server.authenticate(f"ann@{DOMAIN}", "hunter4hunter4")
        server.ask("logon", compose("AUTHENTICATE", [("Password", "hunter5hunter5")]))
        log = server.log
        self.assertNotIn("hunter", log)
        for line in log.splitlines():
            self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \S")
            self.assertIsNone(re.search("[\x00-\x1f\x7f-\x9f\u2028\u202e]", line), line)
        self.assertIn("logon user='evil? result=200?[2J???1m@velmora.local' from=127.0.0.1 result=400", log)


if __name__ == "__main__":
    main()
