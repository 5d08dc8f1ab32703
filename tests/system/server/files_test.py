#!/usr/bin/env python3
"""The log and the upgrade roles from outside: what is kept and handed out, and that no name leads elsewhere."""
import concurrent.futures
import os
import socket

from velmora import DOMAIN, Case, compose, main, receive


class Logs(Case):
    def upload(self, server, name, content, sender=f"ann@{DOMAIN}@dev1", address="127.0.0.2", **more):
        data = compose("LOGFILE", [("From", sender), ("Filename", name), *more.items()], content)
        return server.ask("log", data, address)

    def served(self, **settings):
        server = self.serve(**settings)
        server.authenticate("ann", address="127.0.0.2")
        return server

    def files(self, server):
        found = {}
        for folder, _, names in os.walk(server.path("logs")):
            for name in names:
                path = os.path.join(folder, name)
                with open(path, "rb") as data:
                    found[os.path.relpath(path, server.path("logs"))] = data.read()
        return found

    def test_the_bytes_are_on_disk_when_the_answer_comes(self):
        server = self.served()
        for content in (b"", b"text\r\n\r\n\0", b"x" * 3000000):
            answer = self.upload(server, "velmora_1_clean.log", content, CSeq="5 (x)")
            self.assertEqual((answer.code, answer["CSeq"]), (200, "5 (x)"))
            self.assertEqual(self.files(server), {f"ann@{DOMAIN}/dev1/velmora_1_clean.log": content})

    def test_an_upload_may_end_its_sending(self):
        server = self.served()
        data = compose("LOGFILE", [("From", f"ann@{DOMAIN}@dev1"), ("Filename", "a.log")], b"x" * 1000000)
        self.assertEqual(server.ask("log", data, "127.0.0.2", half_close=True).code, 200)

    def test_it_needs_a_logon_from_the_same_address(self):
        server = self.served()
        self.assertEqual(self.upload(server, "a.log", b"x", address="127.0.0.3").code, 403)
        self.assertEqual(self.upload(server, "a.log", b"x", sender=f"ben@{DOMAIN}@dev1").code, 403)
        self.assertEqual(self.files(server), {})

    def test_no_name_leaves_its_folder(self):
        server = self.served()
        names = {"../../../etc/passwd": "passwd", "/etc/shadow": "shadow", "..\\..\\boot.ini": "boot.ini", "...hidden": "hidden", "a b;$(x)`": "a_b___x__",
                 "x\u202e.log": "x___.log", "%2e%2e%2fx": "_2e_2e_2fx", "n" * 5000: "n" * 100, "velmora.log~": "velmora.log_"}
        for name in names:
            self.assertEqual(self.upload(server, name, b"x").code, 200, name)
        self.assertEqual(set(self.files(server)), {f"ann@{DOMAIN}/dev1/{name}" for name in names.values()})
        for name in ("", "..", "/", "dir/", "...", " /.."):
            self.assertEqual(self.upload(server, name, b"x").code, 400, name)
        for sender in ("", "ann", f"ann@{DOMAIN}", f"ann@{DOMAIN}@../x", f"ann@{DOMAIN}@a/b", "../x@y@dev", f"ANN@{DOMAIN}@dev", f"ann@{DOMAIN}@" + "d" * 65):
            self.assertEqual(self.upload(server, "a.log", b"x", sender=sender).code, 400, sender)
        self.assertEqual(sorted(os.listdir(server.path("logs"))), [f"ann@{DOMAIN}"])

    def test_a_file_has_a_limit(self):
        server = self.served(log_bytes=1000)
        self.assertEqual(self.upload(server, "a.log", b"x" * 1000).code, 200)
        self.assertEqual(self.upload(server, "a.log", b"x" * 1001).code, 413)
        self.assertIsNone(self.upload(server, "a.log", b"x" * 3000000), "far above it is not even read")

    def test_all_files_have_a_quota_and_what_is_replaced_counts_once(self):
        server = self.served(log_bytes=10000, log_quota=3 * 12288)
        for _ in range(5):
            self.assertEqual(self.upload(server, "same.log", b"x" * 10000).code, 200)
        self.assertEqual([self.upload(server, f"{i}.log", b"x" * 10000).code for i in range(4)], [200, 200, 507, 507])
        self.assertEqual(len(self.files(server)), 3)
        server.keep_ports().kill()
        server.start()
        self.assertEqual(self.upload(server, "9.log", b"x" * 10000).code, 507, "also after a restart")

    def test_empty_files_take_room_too(self):
        server = self.served(log_quota=20 * 4096)
        codes = [self.upload(server, f"{i}.log", b"").code for i in range(30)]
        self.assertEqual(codes, [200] * 20 + [507] * 10)

    def test_one_user_leaves_room_for_the_others(self):
        server = self.served(log_quota_per_user=5 * 4096)
        server.authenticate("ben", address="127.0.0.2")
        codes = [self.upload(server, f"{i}.log", b"x", f"ann@{DOMAIN}@dev{i}").code for i in range(7)]
        self.assertEqual(codes, [200] * 5 + [507] * 2)
        self.assertEqual(self.upload(server, "a.log", b"x", f"ben@{DOMAIN}@dev").code, 200)


class Upgrades(Case):
    def served(self, content=b"program"):
        server = self.serve()
        os.mkdir(server.path("upgrade"))
        for name in ("upgrade.exe", ".secret"):
            with open(server.path("upgrade", name), "wb") as out:
                out.write(content)
        os.mkdir(server.path("upgrade", "sub"))
        return server

    def get(self, server, path):
        return server.ask("upgrade", compose(f"GET {path} HTTP/1.1", [("User-Agent", "Velmora/764"), ("Host", "x")]))

    def test_the_file_comes_whole(self):
        content = os.urandom(5000000)
        answer = self.get(self.served(content), "/upgrade.exe")
        self.assertEqual((answer.code, answer["Content-Length"]), (200, str(len(content))))
        self.assertEqual(answer.content, content)

    def test_everything_else_is_404(self):
        server = self.served()
        for path in ("/none", "/", "/.secret", "/sub", "/sub/", "/../velmora-server.ini", "/..%2fvelmora-server.ini", "/sub/../upgrade.exe", "//upgrade.exe",
                     "/\\..\\x", "upgrade.exe", "/" + "x" * 4000, "/upgrade.exe/", "http://x/upgrade.exe"):
            self.assertEqual(self.get(server, path).code, 404, path)
        for data in (compose("POST /upgrade.exe HTTP/1.1", [("Host", "x")]), b"\0" * 30000):
            self.assertIsNone(server.ask("upgrade", data), data[:20])

    def test_readers_that_do_not_read_cost_little_memory(self):
        server = self.served(b"x" * 20000000)
        before = server.memory()
        held = [server.connect("upgrade", f"127.0.0.{2 + i // 10}") for i in range(30)]
        for connection in held:
            self.addCleanup(connection.close)
        for connection in held:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
            connection.sendall(compose("GET /upgrade.exe HTTP/1.1", [("Host", "x")]))
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            self.assertEqual(pool.submit(self.get, server, "/upgrade.exe").result(30).code, 200)
        self.assertLess(server.memory() - before, 60000000)
        self.assertEqual(len(receive(held[0]).content), 20000000)


if __name__ == "__main__":
    main()
