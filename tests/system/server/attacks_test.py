#!/usr/bin/env python3
"""What an attacker with a socket, or with an account of his own, can't do."""
import os
import socket

from velmora import DOMAIN, Case, Client, compose, main


class Impersonation(Case):
    def three(self, **settings):
        server = self.serve(**settings)
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        eve = self.client(server, "eve", "127.0.0.66").enter()
        return server, ann, ben, eve

    def test_nobody_speaks_for_another_user(self):
        server, ann, ben, eve = self.three()
        for data in (eve.invitation(ben.user, **{"From": ann.user, "From-Device-GUID": ann.device}), eve.invitation(ben.user, **{"From": ann.user}),
                     eve.invitation(ben.user, **{"From-Device-GUID": ann.device}),
                     eve.compose("GETBUDDYLIST", From=ann.user), eve.compose("SETBUDDYLIST", From=ann.user, Buddy_List=""),
                     eve.compose("ADDBUDDY", From=ann.user, Buddy_GUID=eve.user), eve.compose("BUGREPORT", From=ann.user, Text="x"),
                     eve.registration(**{"From": ann.user, "Device-GUID": ann.device}), eve.registration(**{"From": ann.user})):
            self.assertSilent(eve, data)
        self.assertEqual(ann.buddies(), [])
        self.assertEqual(server.command("report", "list"), "")
        self.assertSilent(ben, compose("x", [("CSeq", 1)]))

    def test_nobody_ends_anothers_registration(self):
        server, ann, ben, eve = self.three()
        goodbye = {"From": ben.user, "Device-GUID": ben.device}
        neighbour = self.client(server, "ben", "127.0.0.3")  # The same address, another port.
        for who in (eve, ann, neighbour):
            self.assertSilent(who, who.compose("UNREGISTER", **goodbye))
        self.assertEqual(ann.invite(ben.user).code, 100)
        self.assertEqual(ben.receive().method, "INVITE")
        for _ in range(40):  # More devices of her own push out only her own.
            another = self.client(server, "eve", "127.0.0.66")
            another.device = another.ask("DEVICEGUID")["Device-GUID"]
            self.assertEqual(another.register(), 200)
        self.assertEqual(ann.invite(ben.user).code, 100)
        self.assertEqual(len(ann.invite(eve.user).list("Device-List")), 16)

    def test_a_known_device_id_is_no_key(self):
        server, ann, ben, eve = self.three()
        self.assertEqual(eve.register(**{"Device-GUID": ann.device}), 200, "as her own it may be")
        self.assertEqual(ben.invite(ann.user).list("Device-List"), [ann.device])
        self.assertEqual(ann.receive().method, "INVITE")
        self.assertEqual(ann.register(), 200)

    def test_another_password_ends_what_the_old_one_opened(self):
        server, ann, ben, eve = self.three()
        server.command("user", "passwd", "ann", "changed")
        self.assertSilent(ann, ann.registration())
        self.assertEqual(server.authenticate(ann.user, "changed", ann.address).code, 200)
        self.assertEqual(ann.register(), 200)

    def test_a_removed_account_can_do_nothing_more_than_its_registration_lasts(self):
        server, ann, ben, eve = self.three()
        server.command("user", "remove", "eve")
        self.assertSilent(eve, eve.registration())
        self.assertEqual(server.authenticate(eve.user, address=eve.address).code, 403)


class Growth(Case):
    def test_identities_that_nobody_uses_take_bounded_room(self):
        server = self.serve(datagrams_per_second=1000000)
        ann = self.client(server).enter()
        for i in range(1500):
            self.assertEqual(ann.ask("DEVICEGUID").code, 200)
        import sqlite3

        database = sqlite3.connect(server.path("velmora-server.db"))
        self.assertLessEqual(database.execute("SELECT COUNT(*) FROM device").fetchone()[0], 1001)
        database.close()
        self.assertEqual(ann.register(), 200, "a used one stays")

    def test_floods_of_a_stranger_cost_no_memory(self):
        server = self.serve(datagrams_per_second=1000000)
        self.client(server).enter()
        eve = self.client(server, "eve", "127.0.0.66")
        kinds = [("PING", {"Global-Host": "9.9.9.9:9"}), ("DEVICEGUID", {}), ("INVITE", {"From": "a@b", "From-Device-GUID": "d", "To": "b@c", "Try-Route-List": "x"}),
                 ("UNREGISTER", {"From": "a@b", "Device-GUID": "d"}), ("CONTACTANSWER", {"From": "a@b", "From-Device-GUID": "d", "Buddy-GUID": "x@y", "Answer": "block"})]
        before = None
        for step in range(3):
            for i in range(3000):
                method, headers = kinds[i % len(kinds)]
                eve.send(eve.compose(method, **headers, Filler=f"{step}-{i}-" + "x" * 500))
                if i % 20 == 0:  # What overflows the socket would cost nothing.
                    eve.answers(b"?")
            before = before or server.memory()
        self.assertLess(server.memory() - before, 3000000)

    def test_names_of_failed_logons_and_half_requests_cost_no_memory(self):
        server = self.serve(connections_per_address=2000)
        held = []
        before = server.memory()
        for i in range(300):
            connection = server.connect("logon", "127.0.0.66")
            self.addCleanup(connection.close)
            held.append(connection)
            connection.sendall(b"AUTHENTICATE / HTTP/1.1\r\nFrom: " + b"x" * 15000)
        self.assertEqual(server.authenticate("ann").code, 200)
        self.assertLess(server.memory() - before, 300 * 100000)
        for i in range(1000):
            server.authenticate(f"user{i}@{DOMAIN}", address="127.0.0.66")
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}").code, 200)


class Amplification(Case):
    def test_a_stranger_gets_hardly_more_than_he_sent(self):
        server = self.serve()
        self.client(server).enter()
        eve = self.client(server, "eve", "127.0.0.66")
        sent = got = 0
        for method, headers in (("PING", {"Global-Host": "1"}), ("DEVICEGUID", {}), ("REGISTER", {"From": f"ann@{DOMAIN}", "Device-GUID": "x", "Version": 1, "Route-List": "x"}),
                                ("GETBUDDYLIST", {"From": f"ann@{DOMAIN}"}), ("INVITE", {"From": "a@b"}), ("NONSENSE", {})):
            data = compose(method, [("CSeq", 1), *headers.items()])
            answers = eve.answers(data)
            sent, got = sent + len(data), got + sum(len(each.data) for each in answers)
            self.assertTrue(not answers or method == "PING", method)
            for answer in answers:
                self.assertLess(len(answer.data), len(data) + 60)
        self.assertLess(got, sent)

    def test_one_address_has_its_rate_and_the_others_theirs(self):
        server = self.serve(datagrams_per_second=50)
        eve, ann = self.client(server, "eve", "127.0.0.66"), self.client(server)
        for i in range(1000):
            eve.send(eve.compose("PING", Global_Host="1.2.3.4:5"))
        self.assertEqual(ann.ask("PING", Global_Host="1.2.3.4:5").code, 200)
        eve.socket.settimeout(0.5)
        answers = 0
        try:
            while eve.receive():
                answers += 1
        except TimeoutError:
            pass
        self.assertLess(answers, 300)
        self.assertGreater(server.count("signalling", "any", "limited"), 500)


class Enumeration(Case):
    def test_a_user_learns_only_so_many_names_an_hour(self):
        server = self.serve(contact_requests_per_hour=20)
        eve = self.client(server, "eve", "127.0.0.66").enter()
        server.authenticate("ann")
        codes = [eve.add(f"name{i}") for i in range(25)]
        self.assertEqual(codes, [404] * 20 + [429] * 5)
        self.assertEqual(eve.add("ann"), 429)
        again = self.client(server, "eve", "127.0.0.66")
        again.device = again.ask("DEVICEGUID")["Device-GUID"]
        self.assertEqual(again.register(), 200)
        self.assertEqual(again.add("ann"), 429, "another device is the same user")

    def test_an_invite_tells_no_account_from_none(self):
        server = self.serve()
        server.authenticate("ann")
        eve = self.client(server, "eve", "127.0.0.66").enter()
        answers = [eve.invite(f"{name}@{DOMAIN}") for name in ("ann", "nobody")]
        self.assertEqual({(each.code, each.first, tuple(each.headers)) for each in answers}, {(400, answers[0].first, ("CSeq",))})

    def test_an_unknown_name_costs_a_logon_the_same_time(self):
        server = self.serve(password_memory_kib=65536, password_passes=3)
        server.authenticate("ann")
        import time

        def least(name):
            times = []
            for _ in range(5):
                begin = time.monotonic()
                self.assertEqual(server.authenticate(f"{name}@{DOMAIN}", "wrong").code, 403)
                times.append(time.monotonic() - begin)
            return min(times)

        known, unknown = least("ann"), least("nobody")
        self.assertLess(max(known, unknown) / min(known, unknown), 3, "the hash of nobody is worked out as well")


if __name__ == "__main__":
    main()
