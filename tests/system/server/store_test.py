#!/usr/bin/env python3
"""What the server has acknowledged is there after any end of it; stores are copied while it runs, taken back, and grow with versions."""
import os
import random
import re
import signal
import sqlite3
import subprocess
import threading

import velmora
from velmora import DOMAIN, Case, Client, Server, main

SEED = 20
KILLS = 12


class Load(threading.Thread):
    """A user who never rests: accounts, registrations, lists and buddies, each in `acknowledged` once its answer was read."""

    def __init__(self, server, number, names):
        super().__init__(daemon=True)
        self.server, self.number, self.names = server, number, names
        self.accounts, self.devices, self.buddies, self.asked = [], [], None, set()
        self.unsure = False  # A change was asked for whose answer never came.
        self.round = 0
        self.client = None

    def run(self):
        try:
            while True:
                self.one_round()
        except (OSError, AttributeError, TimeoutError):
            pass  # The server is gone.

    def one_round(self):
        self.round += 1
        name = f"u{self.number}x{self.round}"
        address = f"127.0.{self.number + 1}.1"
        if self.server.authenticate(name, address=address).code == 200:
            self.accounts.append(name)
        if not self.client:
            self.client = Client(self.server, name, address)
            self.client.socket.settimeout(2)
            device = self.client.ask("DEVICEGUID")["Device-GUID"]
            self.devices.append(device)
            self.client.device = device
            assert self.client.register() == 200
            self.buddies = []
        names = random.Random(self.round).sample(self.names, 3)
        self.unsure = True
        if self.client.set_buddies(*names) == 200:
            self.buddies = names
        self.unsure = False
        other = f"u{self.number}x{self.round}@{DOMAIN}"
        if other != self.client.user:
            self.unsure = True
            if self.client.add(other) == 200:
                self.buddies = self.buddies + [other]
            self.unsure = False


class Recovery(Case):
    def test_nothing_that_was_acknowledged_is_lost_by_kill_9(self):
        numbers = random.Random(SEED)
        server = Server(contacts="agreed", datagrams_per_second=1000000, contact_requests_per_hour=1000000)
        self.addCleanup(server.close)
        server.start().keep_ports()
        names = [f"n{i}@x.y" for i in range(50)]
        accounts, devices, registered, lists, total = [], [], [], {}, 0
        for kill in range(KILLS):
            loads = [Load(server, kill * 4 + i, names) for i in range(4)]
            for load in loads:
                load.start()
            goal = numbers.randrange(5, 60)
            velmora.wait(lambda: sum(load.round for load in loads) >= goal, "some load")
            server.kill()
            for load in loads:
                load.join(30)
                accounts += load.accounts
                devices += load.devices
                if load.buddies is not None:
                    registered.append(load.client)
                    if not load.unsure:
                        lists[load.client.user] = load.buddies
                if load.client:
                    self.addCleanup(load.client.close)
                total += load.round
            server.start()
            self.verify(server, accounts, devices, registered, lists)
        self.assertGreater(total, 100)
        self.assertNotIn("ERROR", server.log)

    def verify(self, server, accounts, devices, registered, lists):
        there = {line.split("@")[0] for line in server.command("user", "list").splitlines()}
        self.assertEqual(set(accounts) - there, set())
        for client in registered:
            answer = client.ask("GETBUDDYLIST", From=client.user)
            self.assertEqual(answer.code, 200, "the registration lives")
            if client.user in lists:
                self.assertEqual(answer.list("Buddy-List"), lists[client.user])
        database = sqlite3.connect(server.path("velmora-server.db"))
        kept = {row[0] for row in database.execute("SELECT device FROM device")}
        self.assertEqual(set(devices) - kept, set())
        self.assertEqual(database.execute("PRAGMA integrity_check").fetchone()[0], "ok")
        database.close()


class Copies(Case):
    def test_a_backup_of_a_busy_server_is_whole_and_is_taken_back(self):
        server = self.serve()
        server.authenticate("first")
        loads = [Load(server, i, ["n@x.y"] * 5) for i in range(3)]
        for load in loads:
            load.start()
        for number in range(5):
            goal = sum(load.round for load in loads) + 10
            velmora.wait(lambda: sum(load.round for load in loads) >= goal, "some load")
            before = [name for load in loads for name in load.accounts]
            self.assertIn("backed up", server.command("backup", f"copy{number}.db"))
            database = sqlite3.connect(server.path(f"copy{number}.db"))
            self.assertEqual(database.execute("PRAGMA integrity_check").fetchone()[0], "ok")
            names = {row[0].split("@")[0] for row in database.execute("SELECT name FROM account")}
            database.close()
            self.assertEqual(set(before) - names, set())
        self.assertEqual(os.stat(server.path("copy0.db")).st_mode & 0o077, 0, "it holds password hashes")
        self.assertIn("stop it first", server.command("restore", "copy0.db", code=1))
        server.kill()
        for load in loads:
            load.join(30)
            if load.client:
                load.client.close()
        server.command("user", "remove", "first")
        self.assertIn("restored", server.command("restore", "copy4.db"))
        server.start()
        self.assertEqual(server.authenticate(f"first@{DOMAIN}").code, 200)

    def test_a_failed_backup_leaves_the_last_one(self):
        server = self.serve()
        server.command("backup", "copy.db")
        with open(server.path("copy.db"), "rb") as data:
            before = data.read()
        self.assertIn("can't write", server.command("backup", "none/copy.db", code=1))
        done = subprocess.run(["bash", "-c", f"ulimit -f 8; trap '' XFSZ; exec {velmora.PROGRAM} --config {server.config} backup copy.db"], cwd=server.folder,
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 1, done.stdout)
        with open(server.path("copy.db"), "rb") as data:
            self.assertEqual(data.read(), before)
        self.assertEqual([name for name in os.listdir(server.folder) if name.endswith("~")], [])

    def test_what_is_no_backup_is_not_restored(self):
        server = self.serve()
        server.authenticate("ann")
        self.assertEqual(server.end(), 0)
        with open(server.path("text.db"), "w") as out:
            out.write("no store at all")
        for name in ("text.db", "missing.db", "velmora-server.ini"):
            self.assertIn("is no backup", server.command("restore", name, code=1))
        self.assertIn(f"ann@{DOMAIN}", server.command("user", "list"))


class Damage(Case):
    def prepared(self):
        server = self.serve()
        for i in range(60):
            server.authenticate(f"user{i}")
        server.command("backup", "copy.db")
        self.assertEqual(server.end(), 0)
        return server

    def refused(self, server):
        done = subprocess.run([velmora.PROGRAM, "--config", server.config], cwd=server.folder, capture_output=True, text=True, timeout=20)
        self.assertEqual(done.returncode, 1)
        return done.stderr

    def test_a_damaged_store_is_told_at_start_and_replaced_by_its_backup(self):
        server = self.prepared()
        path = server.path("velmora-server.db")
        size = os.path.getsize(path)
        with open(path, "r+b") as out:
            out.seek(4096)
            out.write(b"\x5a" * (size - 4096))
        self.assertIn("damaged", self.refused(server))
        server.command("restore", "copy.db")
        server.start()
        self.assertEqual(server.authenticate(f"user59@{DOMAIN}").code, 200)

    def test_a_store_that_cannot_be_opened_is_set_aside_by_a_restore(self):
        server = self.prepared()
        with open(server.path("velmora-server.db"), "wb") as out:
            out.write(b"not a store " * 1000)
        self.assertIn("can't open the store", self.refused(server))
        server.command("restore", "copy.db")
        self.assertTrue(os.path.exists(server.path("velmora-server.db.damaged")))
        server.start()
        self.assertEqual(server.authenticate(f"user59@{DOMAIN}").code, 200)


class Versions(Case):
    def test_a_store_of_the_first_version_serves_its_clients(self):
        top = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
        with open(os.path.join(top, "unit", "server", "StoreVersions.h")) as text:
            first = re.search(r'STORE_VERSION_0\[\] = R"\((.*?)\)";', text.read(), re.S)[1]
        server = Server()
        self.addCleanup(server.close)
        database = sqlite3.connect(server.path("velmora-server.db"))
        database.executescript(first)
        database.close()
        server.start()
        ann = self.client(server)
        self.assertEqual(server.authenticate(ann.user, address=ann.address).code, 200)
        ann.device = "dev1"
        self.assertEqual(ann.register(), 200)
        self.assertEqual(ann.buddies(), [f"ben@{DOMAIN}"])

    def test_a_store_of_a_later_version_is_left_alone(self):
        server = self.serve()
        server.end()
        database = sqlite3.connect(server.path("velmora-server.db"))
        database.execute("PRAGMA user_version=99")
        database.close()
        self.assertIn("a later velmora-server has written it", server.command("user", "list", code=1))


if __name__ == "__main__":
    main()
