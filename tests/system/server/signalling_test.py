#!/usr/bin/env python3
"""The signalling role from outside: who may say what from where, and how an INVITE travels."""
import random
import time

from velmora import DOMAIN, Case, compose, main, wait


class Requests(Case):
    def test_ping_tells_the_source_and_echoes_the_report(self):
        client = self.client(self.serve())
        answer = client.ask("PING", Global_Host="1.2.3.4:5", Timestamp=1)
        self.assertEqual((answer.code, answer["Observed-Host"], answer["Reported-Host"]), (200, client.host, "1.2.3.4:5"))
        self.assertEqual(answer["CSeq"], f"{client.cseq} (GDispatchService)")

    def test_identities_are_fresh_and_a_repeated_request_gets_the_same_one(self):
        client = self.client(self.serve())
        self.assertSilent(client, client.compose("DEVICEGUID"))
        client.logon()
        request = client.compose("DEVICEGUID")
        first, again = client.answers(request), client.answers(request)
        self.assertEqual([each.data for each in first], [each.data for each in again])
        other = client.ask("DEVICEGUID")["Device-GUID"]
        self.assertNotEqual(first[0]["Device-GUID"], other)
        self.assertRegex(other, "^[a-z0-9]{16,64}$")

    def test_a_registration_needs_a_logon_from_its_address(self):
        server = self.serve()
        ann = self.client(server).enter()
        elsewhere = self.client(server, address="127.0.0.3")
        elsewhere.device = ann.device
        self.assertSilent(elsewhere, elsewhere.registration())
        self.client(server, "ben", "127.0.0.3").enter()
        self.assertSilent(elsewhere, elsewhere.registration())
        other_port = self.client(server)
        other_port.device = ann.device
        self.assertEqual(other_port.register(), 200)

    def test_a_logon_opens_its_address_for_a_time(self):
        client = self.client(self.serve(logon_seconds=2)).enter()

        def is_refused():
            """A registration that was ended begins anew, which is no renewal."""
            self.assertEqual(client.ask("UNREGISTER", From=client.user, Device_GUID=client.device).code, 200)
            return not client.answers(client.registration())
        wait(is_refused, "the end of the logon")

    def test_a_renewed_registration_counts_as_a_logon(self):
        client = self.client(self.serve(logon_seconds=2)).enter()
        begin = time.monotonic()
        while time.monotonic() < begin + 3:
            self.assertEqual(client.register(), 200)
            time.sleep(0.2)

    def test_only_an_identity_that_was_never_given_is_404(self):
        client = self.client(self.serve()).enter()
        for changes in ({"Device-GUID": "never"}, {"Device-GUID": "a" * 64}):
            answers = client.answers(client.registration(**changes))
            self.assertEqual([each.code for each in answers], [404])
        for changes in ({"Device-GUID": "../x"}, {"Device-GUID": "a" * 65}, {"From": "nobody@" + DOMAIN}, {"From": "ann"}, {"From": "Ann@" + DOMAIN},
                        {"Version": ""}, {"Route-List": ""}, {"Route-List": "x"}, {"Route-List": "local://255.255.255.255:1, local://224.0.0.1:5"}):
            self.assertSilent(client, client.registration(**changes))

    def test_a_registration_ends(self):
        server = self.serve(registration_seconds=1)
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        wait(lambda: not ben.answers(ben.compose("GETBUDDYLIST", From=ben.user)), "the end of the registration")
        self.assertEqual(ann.register(), 200)
        self.assertEqual(ann.invite(ben.user).code, 400)

    def test_unregister_ends_it_and_its_repeat_is_answered(self):
        server = self.serve()
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        request = ben.compose("UNREGISTER", From=ben.user, Device_GUID=ben.device)
        first, again = ben.answers(request), ben.answers(request)
        self.assertEqual([each.data for each in first], [each.data for each in again])
        self.assertEqual(first[0].code, 200)
        self.assertEqual(ann.invite(ben.user).code, 400)
        self.assertEqual(ben.register(), 200)

    def test_a_report_is_stored_once(self):
        server = self.serve()
        ann = self.client(server).enter()
        request = ann.compose("BUGREPORT", From=ann.user, Email="a@b", Text="it broke \x1b[2J")
        self.assertEqual([each.code for each in ann.answers(request) + ann.answers(request)], [200, 200])
        self.assertEqual(server.command("report", "list").count("it broke ?[2J"), 1)
        codes = [ann.ask("BUGREPORT", From=ann.user, Text=f"number {i}").code for i in range(60)]
        self.assertEqual(codes, [200] * 49 + [429] * 11)


class Lists(Case):
    def test_a_list_is_kept_in_order_without_what_is_no_name(self):
        ann = self.client(self.serve()).enter()
        self.assertEqual(ann.buddies(), [])
        ann.set_buddies("zoe@x.y", f"ben@{DOMAIN}", "BAD", "zoe@x.y", "../x@y@z")
        self.assertEqual(ann.buddies(), ["zoe@x.y", f"ben@{DOMAIN}"])

    def test_an_empty_list_counts_only_after_an_answered_get_of_the_same_registration(self):
        server = self.serve()
        ann = self.client(server).enter()
        ann.set_buddies("zoe@x.y")
        self.assertEqual(ann.set_buddies(), 200)
        self.assertEqual(ann.buddies(), ["zoe@x.y"])
        ann.ask("UNREGISTER", From=ann.user, Device_GUID=ann.device)
        ann.register()
        self.assertEqual(ann.set_buddies(), 200)
        self.assertEqual(ann.buddies(), ["zoe@x.y"], "a new registration has not fetched it")
        self.assertEqual(ann.set_buddies(), 200)
        self.assertEqual(ann.buddies(), [])

    def test_added_buddies_outlast_a_client_that_never_says_goodbye(self):
        server = self.serve(buddies=3)
        ann = self.client(server).enter()
        for name in ("ben", "cat", "dan", "eve"):
            server.authenticate(name)
        self.assertEqual([ann.add(f"{name}@{DOMAIN}") for name in ("ben", "cat", "nobody", "ben")], [200, 200, 404, 200])
        self.assertEqual(ann.add("dan"), 200, "a name without a domain has the server's")
        self.assertEqual(ann.add("eve"), 400, "the list is full")
        later = self.client(server)
        later.device = ann.device
        later.logon()
        later.register()
        self.assertEqual(later.buddies(), [f"{name}@{DOMAIN}" for name in ("ben", "cat", "dan")])

    def test_a_late_repeat_takes_nobody_from_the_list(self):
        server = self.serve()
        server.authenticate("ben")
        ann = self.client(server).enter()
        request = ann.compose("SETBUDDYLIST", From=ann.user, Buddy_List="zoe@x.y")
        first = ann.answers(request)
        ann.add("ben")
        self.assertEqual([each.data for each in ann.answers(request)], [each.data for each in first])
        self.assertEqual(ann.buddies(), ["zoe@x.y", f"ben@{DOMAIN}"])

    def test_a_full_list_of_long_names_travels(self):
        ann = self.client(self.serve()).enter()
        names = [f"{'n' * 55}{i:03}@{DOMAIN}" for i in range(250)]
        self.assertEqual(ann.set_buddies(*names), 200)
        self.assertEqual(ann.buddies(), names[:200])


class Invitations(Case):
    def test_an_invite_goes_byte_for_byte_to_every_device_but_the_callers_own(self):
        server = self.serve()
        ann, other = self.client(server).enter(), self.client(server).enter()
        bens = [self.client(server, "ben", f"127.0.0.{i}").enter() for i in (3, 4, 5)]
        data = b"INVITE / HTTP/1.1\r\nCSeq:  77   x (suffix)\r\nTo: ben@velmora.local\r\nX-Odd:\xc3\xa4\xf0\x9f\x98\x80 \r\n"
        data += f"From: {ann.user}\r\nTry-Route-List: local://{ann.host}\r\nFrom-Device-GUID: {ann.device}\r\nContent-Length: 3\r\n\r\n\0\r\n".encode()
        ann.send(data)
        answer = ann.receive()
        self.assertEqual(answer.code, 100)
        self.assertEqual(answer["CSeq"].strip(), "77   x (suffix)")
        self.assertEqual(sorted(answer.list("Device-List")), sorted(ben.device for ben in bens))
        for ben in bens:
            self.assertEqual(ben.socket.recv(65536), data)
            self.assertEqual(answer[f"{ben.device}-Route-List"], f"local://{ben.host}")
        mine = ann.invitation(ann.user)
        ann.send(mine)
        self.assertEqual(ann.receive().list("Device-List"), [other.device])
        self.assertEqual(other.socket.recv(65536), mine)

    def test_it_goes_to_where_the_device_was_last_heard(self):
        server = self.serve()
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        moved = self.client(server, "ben", "127.0.0.3")
        moved.device = ben.device
        moved.register()
        data = ann.invitation(ben.user)
        ann.send(data)
        self.assertEqual(moved.socket.recv(65536), data)
        self.assertSilent(ben, ben.compose("GETBUDDYLIST", From=ben.user))

    def test_a_repeat_is_answered_again_and_forwarded_once(self):
        server = self.serve()
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        data = ann.invitation(ben.user)
        answers = [ann.answers(data) for _ in range(4)]
        self.assertEqual({each[0].data for each in answers}, {answers[0][0].data})
        self.assertEqual([len(each) for each in answers], [1] * 4)
        ben.answers(data)
        ben.send(compose("PING", [("CSeq", "0 (end)"), ("Global-Host", "1.2.3.4:5")]))
        self.assertEqual(ben.receive()["CSeq"], "0 (end)", "it had come once, before the first mark")

    def test_nobody_there_is_400(self):
        ann = self.client(self.serve()).enter()
        for name in (f"ben@{DOMAIN}", "x@other.org", ann.user):
            answer = ann.invite(name)
            self.assertEqual((answer.code, answer["Device-List"]), (400, None))

    def test_behind_the_relay_the_connections_address_counts(self):
        server = self.serve()
        server.authenticate("ann", address="127.0.0.2")
        with server.connect("relay", "127.0.0.2") as relay:
            def exchange(data):
                relay.sendall(compose("SENDUDP", [("Remote-Host", server.hosts["signalling"][0])], data))
                return self.relayed(relay)

            relay.sendall(compose("OPENTURN", [("CSeq", 1)]))
            mine = self.relayed(relay)["Global-Host"]
            device = exchange(compose("DEVICEGUID", [("CSeq", 2)]))["Device-GUID"]
            headers = [("CSeq", 3), ("From", f"ann@{DOMAIN}"), ("Device-GUID", device), ("Version", 1), ("Route-List", f"turn://{mine}")]
            self.assertEqual(exchange(compose("REGISTER", headers)).code, 200)

    def relayed(self, connection):
        from velmora import Message, receive

        outer = receive(connection)
        return Message(outer.content) if outer.content else outer


class Malformed(Case):
    def test_what_does_not_parse_is_never_answered(self):
        server = self.serve(datagrams_per_second=1000000)
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter()
        good = ann.invitation(ben.user)
        numbers = random.Random(7)
        bad = [good[:cut] for cut in range(0, len(good), 3)]
        bad += [good + b"x", b"\0", b"\r\n\r\n", b"A" * 60000, compose("HTTP/1.1 200 OK", [("CSeq", "1")]), compose("INVITE", [("To", ben.user)])]
        bad += [compose("PING", [("CSeq", "1" * 200), ("Global-Host", "x")]), compose("PING", [(f"H{i}", i) for i in range(80)] + [("CSeq", 1)])]
        bad += [bytes(numbers.randrange(256) for _ in range(numbers.randrange(300))) for _ in range(200)]
        for data in bad:
            self.assertSilent(ann, data)
        self.assertGreater(server.count("signalling", "other", "malformed"), 200)
        self.assertEqual(ann.invite(ben.user).code, 100)


if __name__ == "__main__":
    main()
