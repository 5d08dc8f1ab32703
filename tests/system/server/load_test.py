#!/usr/bin/env python3
"""The load tool against the real server: two hundred devices for three seconds, and what it says of a server that is gone.

Usage: load_test.py PROGRAMS      the folder of velmora-server and velmora-loadtest
"""
import json
import os
import subprocess
import sys

from serverlab import Server, run

PROGRAMS = sys.argv[1]


def loadtest(server, *options):
    host = "%s:%d" % server.hosts["logon"][0]
    return subprocess.run([os.path.join(PROGRAMS, "velmora-loadtest"), "--host", host, *options], capture_output=True, text=True,
                          timeout=120, check=False)


def two_hundred_devices_get_their_answers():
    with Server(os.path.join(PROGRAMS, "velmora-server"), datagrams_per_second=100000) as server:
        result = loadtest(server, "--devices", "200", "--rate", "400", "--seconds", "3", "--timeout", "20000", "--json")
        assert result.returncode == 0, result
        figures = json.loads(result.stdout)
        assert figures["devices"] == 200
        assert figures["loss_percent"] <= 1
        assert set(figures["requests"]) == {"ping", "stun", "register", "invite"}
        for kind in figures["requests"].values():
            assert kind["answers"] + kind["lost"] == kind["sent"] and kind["sent"] > 0
            assert 0 < kind["p50_ms"] <= kind["p90_ms"] <= kind["p99_ms"] <= kind["max_ms"]
        assert sum(kind["sent"] for kind in figures["requests"].values()) == 1200
        assert figures["forwarded"] > 0
        again = loadtest(server, "--devices", "3", "--per-account", "1", "--rate", "20", "--seconds", "1", "--mix", "ping=1", "--timeout",
                         "20000")
        assert again.returncode == 0 and "ping" in again.stdout and "3 devices" in again.stdout, "accounts that are there are used"


def losses_are_told():
    with Server(os.path.join(PROGRAMS, "velmora-server"), datagrams_per_second=50) as server:
        result = loadtest(server, "--devices", "2", "--rate", "2000", "--seconds", "1", "--mix", "ping=1", "--timeout", "500", "--json")
        assert result.returncode == 1, result
        assert json.loads(result.stdout)["requests"]["ping"]["lost"] > 0


def what_cannot_be_is_said():
    with Server(os.path.join(PROGRAMS, "velmora-server")) as server:
        assert loadtest(server, "--nonsense").returncode == 2
        assert loadtest(server, "--devices", "many").returncode == 2
        assert loadtest(server, "--mix", "pong=1").returncode == 2
        assert loadtest(server, "--help").stdout.startswith("Usage: velmora-loadtest")
        server.hosts["logon"] = [("127.0.0.1", 1)]
        gone = loadtest(server)
        assert gone.returncode == 1 and "no answer" in gone.stderr


run([two_hundred_devices_get_their_answers, losses_are_told, what_cannot_be_is_said])
