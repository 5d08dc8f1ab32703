"""A cable between a router and a client that is slow and loses datagrams: every packet is late by the same time, one in so many is lost.

    link = SlowLink(router, host, address, delay=0.1, loss=0.2)

The packets pass this process, between a device in each of the two networks, so no kernel module is needed. What is lost is drawn from
a seeded source, anew in each direction.
"""
import fcntl
import heapq
import os
import random
import select
import struct
import threading
import time

TUNSETIFF = 0x400454CA
IFF_TUN, IFF_NO_PI = 0x0001, 0x1000
LONGEST_PACKET = 65535


def _device(host, name):
    """A packet device of this process in the host's network."""

    def make():
        handle = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
        fcntl.ioctl(handle, TUNSETIFF, struct.pack("16sH", name.encode(), IFF_TUN | IFF_NO_PI))
        return handle

    return host.inside(make)


class SlowLink:
    """Gives the client of a router the address on a new device of its own; its other cable, if any, is not used any more."""

    def __init__(self, router, host, address, delay, loss, seed=1):
        self.delay, self.loss = delay, loss
        self.passed, self.lost = 0, 0
        far, near = _device(router, "slow0"), _device(host, "slow0")
        router.run("ip", "link", "set", "slow0", "up")
        router.run("ip", "route", "add", f"{address}/32", "dev", "slow0")
        host.run("ip", "address", "flush", "dev", "eth0")
        host.run("ip", "link", "set", "eth0", "down")
        host.run("ip", "address", "add", f"{address}/32", "dev", "slow0")
        host.run("ip", "link", "set", "slow0", "up")
        host.run("ip", "route", "add", "default", "dev", "slow0")
        self.ways = {near: (far, random.Random(seed)), far: (near, random.Random(seed + 1))}
        self.waiting = []
        self.ending = threading.Event()
        self.thread = threading.Thread(target=self._carry, daemon=True)
        self.thread.start()
        host.lab.closers.callback(self._end)

    def heal(self):
        """From now on the cable is a good one."""
        self.delay, self.loss = 0, 0

    def _carry(self):
        while not self.ending.is_set():
            pause = max(0, self.waiting[0][0] - time.monotonic()) if self.waiting else 0.1
            for handle in select.select(list(self.ways), [], [], min(pause, 0.1))[0]:
                self._take(handle)
            while self.waiting and self.waiting[0][0] <= time.monotonic():
                _, _, handle, packet = heapq.heappop(self.waiting)
                self._give(handle, packet)

    def _take(self, handle):
        other, source = self.ways[handle]
        packet = os.read(handle, LONGEST_PACKET)
        self.passed += 1
        if source.random() < self.loss:
            self.lost += 1
        else:
            heapq.heappush(self.waiting, (time.monotonic() + self.delay, self.passed, other, packet))

    @staticmethod
    def _give(handle, packet):
        try:
            os.write(handle, packet)
        except OSError:
            pass  # A device whose host is going down takes nothing: lost, as on a cable.

    def _end(self):
        self.ending.set()
        self.thread.join()
        for handle in self.ways:
            os.close(handle)
