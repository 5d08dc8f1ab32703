#!/usr/bin/env python3
"""Running it: signals, figures, log lines, commands and the check of settings, as an operator meets them."""
import concurrent.futures
import os
import re
import signal
import socket
import subprocess

import velmora
from velmora import DOMAIN, Case, compose, main, receive, wait


class Reload(Case):
    def test_limits_change_at_once(self):
        server = self.serve(logons_per_minute=2, log_bytes=100, upgrade_version=0)
        self.assertEqual([server.authenticate("x@y").code for _ in range(3)], [403, 403, 429])
        server.write_config(logons_per_minute=100000, log_bytes=100000, upgrade_version=999, buddies=1, domain="example.org")
        self.assertEqual(re.sub("^.*reload", "reload", server.reload()), "reload result=done")
        wait(lambda: server.authenticate("ann").code == 200, "the new limit")
        answer = server.authenticate("ann@example.org")
        self.assertEqual((answer["User-GUID"], answer["Upgrade-URL"] is not None), ("ann@example.org", True))
        upload = compose("LOGFILE", [("From", "ann@example.org@d"), ("Filename", "a.log")], b"x" * 50000)
        self.assertEqual(server.ask("log", upload).code, 200)

    def test_what_waits_for_the_next_start_is_named(self):
        server = self.serve()
        server.write_config(store="other.db", roles="logon, metrics", password_threads=4)
        self.assertTrue(server.reload().endswith("reload result=done next_start=store,roles,password_threads"))
        self.assertEqual(self.client(server).ask("PING", Global_Host="1.2.3.4:5").code, 200)
        self.assertEqual(server.authenticate("ann").code, 200)
        self.assertFalse(os.path.exists(server.path("other.db")))

    def test_a_bad_file_keeps_everything_as_it_is(self):
        server = self.serve(logons_per_minute=3)
        for text in ("logons_per_minute = 100000\nnonsense\n", "logons_per_minute = many\n", "colour = red\n", "contacts = friends\n", "\0\xff\n"):
            server.write_config(text)
            self.assertIn("ERROR reload result=failed text='", server.reload())
        os.unlink(server.config)
        self.assertIn("can't read", server.reload())
        self.assertEqual([server.authenticate("x@y").code for _ in range(4)], [403, 403, 403, 429])


class End(Case):
    def test_sigterm_answers_what_has_begun_and_ends_with_0(self):
        server = self.serve(password_memory_kib=131072, password_passes=3, password_threads=1, drain_seconds=60)
        requests = [compose("AUTHENTICATE", [("From", f"user{i}"), ("Password", "p"), ("Email", "a@b")]) for i in range(3)]
        connections = [server.connect("logon") for _ in requests]
        for connection, request in zip(connections, requests):
            self.addCleanup(connection.close)
            connection.sendall(request)
        host = server.host("logon")
        wait(lambda: self.taken(server) == 3, "all three to be taken")
        server.signal(signal.SIGTERM)
        self.assertEqual([receive(connection).code for connection in connections], [200] * 3)
        self.assertEqual(server.process.wait(velmora.DEADLINE), 0)
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(host)
        self.assertTrue(server.log.rstrip().endswith("stopped"))
        self.assertEqual(len(server.command("user", "list").splitlines()), 3)

    def taken(self, server):
        """Connections on the server's side from which everything was read."""
        port = f":{server.host('logon')[1]:04X}"
        with open("/proc/net/tcp") as table:
            rows = [line.split() for line in table.readlines()[1:]]
        return sum(row[1].endswith(port) and row[3] == "01" and row[4].endswith(":00000000") for row in rows)

    def test_what_takes_too_long_is_cut_off(self):
        server = self.serve(drain_seconds=1)
        os.mkdir(server.path("upgrade"))
        with open(server.path("upgrade", "upgrade.exe"), "wb") as out:
            out.truncate(50000000)
        with server.connect("upgrade") as connection:
            connection.sendall(compose("GET /upgrade.exe HTTP/1.1", [("Host", "x")]))
            self.assertTrue(connection.recv(10))
            self.assertEqual(server.end(), 0)

    def test_a_second_sigterm_ends_it_at_once(self):
        server = self.serve(drain_seconds=3600)
        with server.connect("upgrade"):
            server.signal(signal.SIGTERM)
            wait(lambda: "drain" in server.log, "the drain")
            self.assertEqual(server.end(), 0)

    def test_its_ports_are_free_for_the_next_start(self):
        server = self.serve().keep_ports()
        server.authenticate("ann")
        for _ in range(3):
            server.kill()
            server.start()
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}").code, 200)


class Figures(Case):
    def test_metrics_are_what_prometheus_reads(self):
        server = self.serve()
        ann = self.client(server).enter()
        server.authenticate("x@y")
        ann.answers(b"nonsense")
        text = server.ask("metrics", compose("GET /metrics HTTP/1.1", [("Host", "x")])).content.decode()
        types = {}
        for line in text.splitlines():
            if line.startswith("# TYPE "):
                _, _, name, kind = line.split(" ")
                self.assertIn(kind, ("counter", "gauge"))
                self.assertNotIn(name, types)
                types[name] = kind
            else:
                self.assertRegex(line, r'^[a-z_]+(\{[a-z]+="[A-Za-z0-9]+"(,[a-z]+="[A-Za-z0-9]+")*\})? \d+$')
                self.assertIn(re.match("[a-z_]+", line)[0], types)
        self.assertEqual(server.count("logon", "AUTHENTICATE", "200"), 1)
        self.assertEqual(server.count("logon", "AUTHENTICATE", "403"), 2, "a new name is tried as an account first")
        self.assertEqual(server.count("signalling", "other", "malformed"), 1)
        self.assertEqual((server.metrics()["velmora_up"], server.metrics()["velmora_registrations"]), (1, 1))
        self.assertEqual(server.ask("metrics", compose("GET /other HTTP/1.1", [("Host", "x")])).code, 404)

    def test_names_from_the_wire_make_no_series(self):
        server = self.serve()
        ann = self.client(server).enter()
        before = len(server.metrics())
        for i in range(300):
            ann.send(compose(f"METHOD{i}", [("CSeq", i)]))
        ann.answers(compose("LAST", [("CSeq", 1)]))
        self.assertLessEqual(len(server.metrics()), before + 4)

    def test_every_event_is_one_line(self):
        server = self.serve()
        ann = self.client(server).enter()
        ann.invite(f"ben@{DOMAIN}")
        ann.ask("UNREGISTER", From=ann.user, Device_GUID=ann.device)
        events = [re.match(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (\w+) ", line) for line in server.log.splitlines()]
        self.assertNotIn(None, events)
        events = [event[1] for event in events if event[1] != "notice"]
        self.assertEqual(events, ["logon", "created", "device", "register", "invite", "unregister"])

    def test_status_tells_running_and_stopped(self):
        server = self.serve()
        self.assertTrue(server.command("status").startswith("running\nlogon="))
        server.kill()
        self.assertTrue(server.command("status", code=1).startswith("stopped\n"))


class Check(Case):
    def test_it_changes_nothing_and_tells_what_is_wrong(self):
        server = velmora.Server()
        self.addCleanup(server.close)
        self.assertIn("the settings are good", server.command("check"))
        self.assertEqual(sorted(os.listdir(server.folder)), ["velmora-server.ini"])
        server.write_config(logon="192.0.2.1:4430", roles="logon, stunn")
        text = server.command("check", code=1)
        self.assertIn("ERROR roles names 'stunn'", text)
        self.assertIn("ERROR logon: 192.0.2.1:4430 is no address of this machine", text)

    def test_contacts_of_a_public_server_that_are_open_are_told(self):
        server = velmora.Server()
        self.addCleanup(server.close)
        server.write_config(logon="127.0.0.1:0/8.8.8.8:4430", signalling="127.0.0.1:0/8.8.8.8:4435")
        self.assertIn("NOTE contacts = open: every account can call every other", server.command("check"))
        server.write_config(contacts="agreed")
        self.assertNotIn("contacts", server.command("check"))

    def test_passwords_need_not_stand_on_the_command_line(self):
        server = self.serve()
        done = subprocess.run([velmora.PROGRAM, "--config", server.config, "user", "add", "ann", "-"], input="secret\n", cwd=server.folder, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}").code, 200)


class Logons(Case):
    def test_hashing_holds_up_nobody_else(self):
        server = self.serve(password_memory_kib=262144, password_passes=6, password_threads=1, datagrams_per_second=1000000)
        ann = self.client(server)
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            logon = pool.submit(server.authenticate, "ann")
            while not logon.done():
                self.assertEqual(ann.ask("PING", Global_Host="1.2.3.4:5").code, 200)
            self.assertEqual(logon.result().code, 200)
        self.assertGreater(server.count("signalling", "PING", "answered"), 20)


if __name__ == "__main__":
    main()
