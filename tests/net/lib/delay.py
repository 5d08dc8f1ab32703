"""A long cable: passes frames between two network devices, each after the same time.

Usage: delay.py FD FD SECONDS      both are TAP devices that the caller has opened
"""
import collections
import os
import select
import sys
import time

FRAME = 65536
LONGEST_QUEUE = 10000  # Frames; more are lost, as on any cable.


class Direction:
    """Frames on their way from one end to the other."""

    def __init__(self, source, target, delay):
        self.source, self.target, self.delay, self.frames = source, target, delay, collections.deque()

    def take(self):
        while True:
            try:
                frame = os.read(self.source, FRAME)
            except BlockingIOError:
                return
            if len(self.frames) < LONGEST_QUEUE:
                self.frames.append((time.monotonic() + self.delay, frame))

    def give(self):
        """Delivers what is due; seconds until the next frame is."""
        while self.frames:
            left = self.frames[0][0] - time.monotonic()
            if left > 0:
                return left
            try:
                os.write(self.target, self.frames.popleft()[1])
            except OSError:
                pass  # The other end is down or full: lost.
        return None


def main():
    one, other, delay = int(sys.argv[1]), int(sys.argv[2]), float(sys.argv[3])
    directions = Direction(one, other, delay), Direction(other, one, delay)
    for end in (one, other):
        os.set_blocking(end, False)
    while True:
        waits = [left for left in (direction.give() for direction in directions) if left is not None]
        select.select([one, other], [], [], min(waits, default=None))
        for direction in directions:
            direction.take()


main()
