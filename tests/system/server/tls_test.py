#!/usr/bin/env python3
"""TLS on the ports of logon, log and upgrade, beside plain streams or instead of them."""
import os
import socket
import ssl
import subprocess

from velmora import DOMAIN, Case, Server, compose, main, receive, wait


class Tls(Case):
    def certificate(self, server, name):
        """A certificate of its own for 127.0.0.1; the settings that name it."""
        files = {"tls_certificate": server.path(f"{name}.pem"), "tls_key": server.path(f"{name}.key")}
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", f"/CN={name}",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-out", files["tls_certificate"], "-keyout", files["tls_key"]], check=True, capture_output=True)
        return files

    def served(self, **settings):
        server = Server(**settings)
        self.addCleanup(server.close)
        server.write_config(**self.certificate(server, "first"), **settings)
        return server.start()

    def connect(self, server, role="logon", trusted="first", address="127.0.0.1", version=None):
        context = ssl.create_default_context(cafile=server.path(f"{trusted}.pem"))
        if version:
            context.minimum_version = context.maximum_version = version
        return context.wrap_socket(server.connect(role, address), server_hostname="127.0.0.1")

    def logon(self, server, name, **more):
        with self.connect(server, **more) as connection:
            connection.sendall(compose("AUTHENTICATE", [("From", name), ("Password", "secret"), ("Email", "a@b"), ("Version", 1)]))
            return receive(connection)

    def test_both_are_taken_on_one_port(self):
        server = self.served()
        self.assertEqual(self.logon(server, "ann").code, 200)
        self.assertEqual(server.authenticate(f"ann@{DOMAIN}").code, 200)
        self.assertEqual(server.count("logon", "TLS", "accepted"), 1)

    def test_the_address_is_that_of_the_client(self):
        server = self.served()
        self.assertEqual(self.logon(server, "ann", address="127.0.0.2").code, 200)
        self.assertIn("created user=ann@velmora.local from=127.0.0.2 ", server.log)
        ann = self.client(server)
        self.assertEqual(ann.ask("DEVICEGUID").code, 200, "the logon has opened it")

    def test_files_travel_whole(self):
        server = self.served()
        self.logon(server, "ann")
        content = os.urandom(3000000)
        os.mkdir(server.path("upgrade"))
        with open(server.path("upgrade", "upgrade.exe"), "wb") as out:
            out.write(content)
        with self.connect(server, "upgrade") as connection:
            connection.sendall(compose("GET /upgrade.exe HTTP/1.1", [("Host", "x")]))
            self.assertEqual(receive(connection).content, content)
        with self.connect(server, "log") as connection:
            connection.sendall(compose("LOGFILE", [("From", f"ann@{DOMAIN}@d"), ("Filename", "a.log")], content))
            self.assertEqual(receive(connection).code, 200)
        with open(server.path("logs", f"ann@{DOMAIN}", "d", "a.log"), "rb") as data:
            self.assertEqual(data.read(), content)

    def test_a_plain_logon_can_be_refused(self):
        server = self.served(tls_required="yes")
        self.assertIsNone(server.ask("logon", compose("AUTHENTICATE", [("From", "ann"), ("Password", "p"), ("Email", "a@b")])))
        self.assertEqual(self.logon(server, "ann").code, 200)
        self.assertEqual(server.ask("upgrade", compose("GET /x HTTP/1.1", [("Host", "x")])).code, 404, "other roles take both")
        self.assertEqual(server.count("logon", "TLS", "refused"), 1)

    def test_another_certificate_is_taken_by_a_reload_and_a_bad_one_is_not(self):
        server = self.served()
        self.logon(server, "ann")
        second = self.certificate(server, "second")
        server.write_config(**second)
        self.assertIn("reload result=done", server.reload())
        self.assertEqual(self.logon(server, f"ann@{DOMAIN}", trusted="second").code, 200)
        with self.assertRaises(ssl.SSLCertVerificationError):
            self.connect(server, trusted="first")
        with open(server.path("bad.pem"), "w") as out:
            out.write("no certificate")
        server.write_config(tls_certificate=server.path("bad.pem"))
        self.assertIn("ERROR reload result=failed text='tls_certificate", server.reload())
        self.assertIn("ERROR tls_certificate", server.command("check", code=1))
        self.assertEqual(self.logon(server, f"ann@{DOMAIN}", trusted="second").code, 200)
        server.write_config(tls_certificate=server.path("first.pem"))
        self.assertIn("tls_key", server.command("check", code=1), "the key of another one")

    def test_old_versions_and_noise_are_refused(self):
        server = self.served()
        for data in (b"\x16" + b"\0" * 300, b"\x16\x03\x01" + os.urandom(200), b"\x16"):
            with server.connect("logon") as connection:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                wait(lambda: not connection.recv(4096), "the end")
        done = subprocess.run(["openssl", "s_client", "-connect", "%s:%d" % server.host("logon"), "-tls1_1", "-cipher", "ALL:@SECLEVEL=0"], input=b"", capture_output=True)
        self.assertNotEqual(done.returncode, 0)
        for version in (ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3):
            self.assertIn(self.logon(server, "ann", version=version).code, (200, 409))

    def test_silent_connections_are_limited_by_address(self):
        server = self.served()
        held = [server.connect("logon", "127.0.0.66") for _ in range(64)]
        for connection in held:
            self.addCleanup(connection.close)
        with server.connect("logon", "127.0.0.66") as more:
            self.assertEqual(more.recv(10), b"")
        self.assertEqual(self.logon(server, "ann").code, 200)

    def test_it_ends_at_sigterm(self):
        server = self.served(drain_seconds=1)
        with self.connect(server):
            self.assertEqual(server.end(), 0)


if __name__ == "__main__":
    main()
