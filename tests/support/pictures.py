"""Pictures of windows and what two of them differ by. ImageMagick reads and writes the files.

Two pictures count as the same when at most one pixel is off by more than TOLERANCE in a channel, and at most SHARE of all pixels are off
at all. The first allows for the last bit of an alpha blend, which vector units of different processors round differently; the second
keeps a colour from creeping by a step a time, since rounding touches edges of letters and corners, but a colour a whole ground.
"""
import subprocess

TOLERANCE = 2
FEW = 1
SHARE = 0.001


class Picture:
    """Bytes R, G, B of each pixel, row by row."""

    def __init__(self, width, height, pixels):
        assert len(pixels) == width * height * 3
        self.width, self.height, self.pixels = width, height, bytes(pixels)

    @staticmethod
    def read(path):
        shape = subprocess.run(["identify", "-format", "%w %h", path], check=True, capture_output=True, text=True).stdout.split()
        raw = subprocess.run(["convert", path, "-depth", "8", "rgb:-"], check=True, capture_output=True).stdout
        return Picture(int(shape[0]), int(shape[1]), raw)

    def write(self, path):
        """Small and without loss: a palette where the colours allow one, no dates."""
        subprocess.run(["convert", "-size", f"{self.width}x{self.height}", "-depth", "8", "rgb:-", "-define", "png:compression-level=9",
                        "-define", "png:compression-filter=1", "-define", "png:compression-strategy=0",
                        "-define", "png:exclude-chunks=all", path], input=self.pixels, check=True)


class Difference:
    """What makes `actual` another picture than `expected`."""

    def __init__(self, expected, actual):
        self.expected, self.actual = expected, actual
        self.marked, self.touched, self.most = [], 0, 0
        if self.same_size and expected.pixels != actual.pixels:
            self._compare()

    @property
    def same_size(self):
        return (self.expected.width, self.expected.height) == (self.actual.width, self.actual.height)

    def _compare(self):
        width = self.expected.width * 3
        for y in range(self.expected.height):
            a, b = self.expected.pixels[y * width:(y + 1) * width], self.actual.pixels[y * width:(y + 1) * width]
            if a == b:
                continue
            for x in range(0, width, 3):
                if a[x:x + 3] != b[x:x + 3]:
                    self._touch(x // 3, y, max(abs(p - q) for p, q in zip(a[x:x + 3], b[x:x + 3])))

    def _touch(self, x, y, step):
        self.touched += 1
        self.most = max(self.most, step)
        if step > TOLERANCE:
            self.marked.append((x, y))

    def __bool__(self):
        return not self.same_size or len(self.marked) > FEW or self.touched > SHARE * self.expected.width * self.expected.height

    def __str__(self):
        if not self.same_size:
            return (f"{self.actual.width} by {self.actual.height} pixels instead of {self.expected.width} by {self.expected.height}")
        where = ""
        if self.marked:
            left, right = min(x for x, _ in self.marked), max(x for x, _ in self.marked)
            top, bottom = min(y for _, y in self.marked), max(y for _, y in self.marked)
            where = f", within {right - left + 1} by {bottom - top + 1} at {left},{top}"
        return f"{self.touched} pixels differ, {len(self.marked)} of them by more than {TOLERANCE}, the most by {self.most}{where}"

    def picture(self):
        """The expected one, faint, with red where the other differs."""
        if not self.same_size:
            return self.actual
        faint = bytearray(self.expected.pixels.translate(bytes(160 + v * 3 // 8 if v < 252 else 254 for v in range(256))))
        for x, y in self.marked:
            at = (y * self.expected.width + x) * 3
            faint[at:at + 3] = b"\xE0\x00\x20"
        return Picture(self.expected.width, self.expected.height, faint)
