#!/usr/bin/env python3
"""The matrix: real clients behind every kind of network, each kind calling each, through a real server and its relay.

Every pairing is judged on its own evidence: the class that each client found, the routes that the handshake proved in each direction,
the time to CONNECTED, and the other's tone from each loudspeaker. What is expected, and why, stands in lib/matrix.py. Needs root or sudo.
"""
import argparse
import os
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib"))
import clients
import matrix
import netlab

# The names of the classes that stand for more than one kind here.
ALIASES = {"restricted": "port-restricted", "firewall": "blocked"}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--binaries", default=os.path.join(clients.TOP, "build/dev/bin"), help="the folder of the built programs")
    parser.add_argument("--logs", default=os.path.join(tempfile.gettempdir(), f"netlab-{os.getpid()}"), help="where the logs of a failure are kept")
    parser.add_argument("--delay", type=float, default=20, metavar="MS",
                        help="what every datagram takes from each side into the internet; 20 without this option")
    parser.add_argument("--list", action="store_true", help="the kinds of network")
    parser.add_argument("kinds", nargs="*", metavar="KIND", help="of the caller and of the callee; without them the whole matrix runs")
    options = parser.parse_args()
    if options.list:
        print("\n".join(f"{name:20} {kind.about}" for name, kind in matrix.KINDS.items()))
        return 0
    options.kinds = [ALIASES.get(name.lower(), name.lower()) for name in options.kinds]
    unknown = [name for name in options.kinds if name not in matrix.KINDS]
    if unknown or len(options.kinds) not in (0, 2):
        parser.error(f"a caller's kind and a callee's, of: {', '.join(matrix.KINDS)}")
    netlab.need_root()
    os.setpriority(os.PRIO_PROCESS, 0, -10)  # Who measures must not be late.
    begin = time.monotonic()
    cells = [matrix.pairing(*options.kinds)] if options.kinds else matrix.all_cells()
    plain = [] if options.kinds else matrix.plain_cells()
    failures = matrix.run(cells, options.binaries, options.logs + "/remedies", delay=options.delay / 1000)
    if plain:
        failures += matrix.run(plain, options.binaries, options.logs + "/plain", settings=["Robust_Signalling=0"], delay=options.delay / 1000)
    print(f"{len(cells) + len(plain)} pairings, {len(failures)} failures, {time.monotonic() - begin:.0f} s")
    if failures:
        print("\n".join(failures) + f"\nlogs are kept in {options.logs}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
