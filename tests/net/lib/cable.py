"""A cable to the internet whose faults can be changed while it is used; tests/support/LinkEmulator.cpp carries the frames.

    cable = Cable(program)
    host = lab.public_host("5.5.5.20", cable=cable)
    cable.set(delay=20, jitter=10, loss=5, reorder=2, duplicate=1, seed=7)     # milliseconds and per cent, in each direction
    there, back = cable.count()                                                # since the last `set` or `count`
"""
import dataclasses
import subprocess


@dataclasses.dataclass(frozen=True)
class Count:
    passed: int
    lost: int
    overtaken: int
    doubled: int
    overflowed: int


class Cable:
    """`program` is the path of link_emulator. "There" is from the internet to the host."""

    CLEAN = {"delay": 0, "jitter": 0, "loss": 0, "reorder": 0, "duplicate": 0}

    def __init__(self, program):
        self.program = program

    def lay(self, host, ends):
        self.process = host.start(self.program, *map(str, ends), pass_fds=ends, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def _tell(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        words = self.process.stdout.readline().split()
        assert words, "the link emulator ended"
        return Count(*map(int, words[1:6])), Count(*map(int, words[7:12]))

    def set(self, **values):
        """What is not named is as on a clean cable; the seed stays."""
        return self._tell(" ".join(f"{name} {value}" for name, value in {**self.CLEAN, **values}.items()))

    def count(self):
        return self._tell("")
