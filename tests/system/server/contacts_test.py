#!/usr/bin/env python3
"""Agreed contacts from outside: who is reached, and a request's way from the asking user to the devices of the asked one."""
import re
import time

from velmora import DOMAIN, Case, compose, main

CONTACTS = "contacts"


class Contacts(Case):
    def two(self, **settings):
        server = self.serve(contacts="agreed", **settings)
        return server, self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter(capabilities=CONTACTS)

    def acknowledge(self, client, request):
        client.send(compose("HTTP/1.1 200 OK", [("CSeq", request["CSeq"])]))

    def assertAsked(self, client, asker, state="pending", acknowledge=True):
        request = client.receive()
        self.assertEqual((request.method, request["From"], request["To"], request["State"]), ("CONTACTREQUEST", asker.user, client.user, state))
        if acknowledge:
            self.acknowledge(client, request)
        return request

    def respond(self, client, asker, answer):
        return client.ask("CONTACTANSWER", From=client.user, From_Device_GUID=client.device, Buddy_GUID=asker.user, Answer=answer).code

    def test_without_the_setting_everyone_reaches_everyone_and_nothing_new_is_on_the_wire(self):
        server = self.serve()
        ann, ben = self.client(server).enter(), self.client(server, "ben", "127.0.0.3").enter(capabilities=CONTACTS)
        self.assertEqual(ann.add(ben.user), 200)
        data = ann.invitation(ben.user)
        ann.send(data)
        self.assertEqual(ann.receive().code, 100)
        self.assertEqual(ben.receive().data, data, "the first and only thing that it hears")

    def test_a_stranger_is_answered_as_if_nobody_were_there(self):
        server, ann, ben = self.two()
        strange = re.sub(rb"CSeq: \S+", b"", ann.answers(ann.invitation(ben.user))[0].data)
        absent = re.sub(rb"CSeq: \S+", b"", ann.answers(ann.invitation(f"nobody@{DOMAIN}"))[0].data)
        self.assertEqual(strange, absent)
        self.assertTrue(absent.startswith(b"HTTP/1.1 400 "))
        self.assertSilent(ben, compose("x", [("CSeq", 1)]))

    def test_a_request_is_told_and_accepted_and_then_both_are_reached(self):
        server, ann, ben = self.two()
        phone = self.client(server, "ben", "127.0.0.4").enter(capabilities=f"x, {CONTACTS}")
        old = self.client(server, "ben", "127.0.0.5").enter()
        self.assertEqual(ann.add(ben.user), 200)
        self.assertAsked(ben, ann)
        self.assertAsked(phone, ann)
        self.assertEqual(ann.invite(ben.user).code, 400)
        self.assertEqual(ben.add(ann.user), 200)
        self.assertAsked(phone, ann, "answered")
        self.assertEqual(ann.invite(ben.user).code, 100)
        self.assertEqual(ben.receive().method, "INVITE")
        self.assertEqual(ben.invite(ann.user).code, 100)
        self.assertEqual(old.receive().method, "INVITE", "a device that did not name it hears nothing of it")

    def test_it_is_repeated_every_two_seconds_until_the_device_says_200(self):
        server, ann, ben = self.two()
        begin = time.monotonic()
        ann.add(ben.user)
        first = self.assertAsked(ben, ann, acknowledge=False)
        again = self.assertAsked(ben, ann, acknowledge=False)
        self.assertEqual(first.data, again.data)
        self.assertGreater(time.monotonic() - begin, 1.8)
        stranger = self.client(server, "cat", "127.0.0.9")
        self.acknowledge(stranger, first)
        self.assertAsked(ben, ann)
        # Nothing is left to be told: the next that comes is the answer of its own question, after more than a period.
        self.assertEqual(ben.ask("GETBUDDYLIST", From=ben.user).code, 200)
        ben.socket.settimeout(2.5)
        with self.assertRaises(TimeoutError):
            ben.receive()

    def test_it_waits_over_a_kill_for_who_is_not_there(self):
        server, ann, ben = self.two()
        ben.ask("UNREGISTER", From=ben.user, Device_GUID=ben.device)
        self.assertEqual(ann.add(ben.user), 200)
        server.keep_ports().kill()
        server.start()
        ben.send(ben.registration(capabilities=CONTACTS))
        self.assertEqual(ben.receive().code, 200)
        self.assertAsked(ben, ann)
        ben.send(ben.registration(capabilities=CONTACTS))
        self.assertEqual(ben.receive().code, 200)
        self.assertAsked(ben, ann)
        self.assertEqual(server.metrics()['velmora_messages_total{role="signalling",method="CONTACTREQUEST",result="sent"}'], 2)

    def test_refused_is_over_and_may_be_asked_again_and_blocked_is_for_good(self):
        server, ann, ben = self.two()
        ann.add(ben.user)
        self.assertAsked(ben, ann)
        self.assertEqual(self.respond(ben, ann, "refuse"), 200)
        self.assertEqual(ann.add(ben.user), 200)
        self.assertAsked(ben, ann)
        self.assertEqual(self.respond(ben, ann, "block"), 200)
        server.keep_ports().kill()
        server.start()
        self.assertEqual(ann.add(ben.user), 200, "he can't tell")
        self.assertSilent(ben, ben.registration(capabilities=CONTACTS).replace(b"REGISTER", b"NOTHING"))
        self.assertEqual(ben.register(capabilities=CONTACTS), 200)
        self.assertSilent(ben, compose("x", [("CSeq", 1)]))
        self.assertEqual(ben.add(ann.user), 200)
        self.assertEqual(ann.invite(ben.user).code, 100, "whom one adds oneself is blocked no longer")

    def test_only_the_asked_user_answers(self):
        server, ann, ben = self.two()
        cat = self.client(server, "cat", "127.0.0.4").enter(capabilities=CONTACTS)
        ann.add(ben.user)
        self.assertAsked(ben, ann)
        for who, device in ((cat, ben.device), (cat, cat.device), (ann, ann.device)):
            data = who.compose("CONTACTANSWER", From=ben.user, From_Device_GUID=device, Buddy_GUID=ann.user, Answer="block")
            self.assertSilent(who, data)
        for answer in ("", "accept", "REFUSE x"):
            self.assertSilent(ben, ben.compose("CONTACTANSWER", From=ben.user, From_Device_GUID=ben.device, Buddy_GUID=ann.user, Answer=answer))
        self.assertEqual(server.metrics()["velmora_contact_requests"], 1)
        self.assertEqual(self.respond(ben, cat, "refuse"), 200, "nobody had asked")

    def test_an_operator_makes_contacts(self):
        server, ann, ben = self.two()
        server.command("buddy", "add", "ann", "ben")
        self.assertEqual(ann.invite(ben.user).code, 100)
        self.assertEqual(ben.receive().method, "INVITE")
        self.assertEqual(ben.invite(ann.user).code, 100)

    def test_the_setting_changes_while_it_runs(self):
        server, ann, ben = self.two()
        self.assertEqual(ann.invite(ben.user).code, 400)
        server.write_config(contacts="open")
        server.reload()
        self.assertEqual(ann.invite(ben.user).code, 100)


if __name__ == "__main__":
    main()
