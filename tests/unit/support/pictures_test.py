#!/usr/bin/env python3
"""What counts as another picture, and that files keep every pixel."""
import filecmp
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../support"))
from pictures import TOLERANCE, Difference, Picture  # noqa: E402

WIDTH, HEIGHT = 60, 50
GROUND, INK = (0x14, 0x17, 0x1C), (0xE8, 0xEC, 0xF1)


def picture(changes=(), ground=GROUND, width=WIDTH, height=HEIGHT):
    """A ground with a word-like row of ink, and pixels `(x, y): colour` changed."""
    pixels = bytearray(bytes(ground) * (width * height))
    for x in range(10, 40):
        pixels[(20 * width + x) * 3:(20 * width + x) * 3 + 3] = bytes(INK)
    for (x, y), colour in dict(changes).items():
        pixels[(y * width + x) * 3:(y * width + x) * 3 + 3] = bytes(colour)
    return Picture(width, height, pixels)


def lighter(colour, step):
    return tuple(value + step for value in colour)


class DifferenceOfPictures(unittest.TestCase):
    def test_the_same_picture_is_the_same(self):
        self.assertFalse(Difference(picture(), picture()))

    def test_two_changed_pixels_are_a_difference(self):
        difference = Difference(picture(), picture({(3, 4): INK, (30, 40): INK}))
        self.assertTrue(difference)
        self.assertIn("2 pixels differ, 2 of them by more than 2, the most by 213, within 28 by 37 at 3,4", str(difference))

    def test_one_pixel_beyond_the_tolerance_is_taken(self):
        self.assertFalse(Difference(picture(), picture({(3, 4): INK})))

    def test_two_pixels_just_beyond_the_tolerance_are_a_difference(self):
        colour = lighter(GROUND, TOLERANCE + 1)
        self.assertTrue(Difference(picture(), picture({(3, 4): colour, (4, 4): colour})))

    def test_rounding_of_a_few_pixels_is_taken(self):
        colour = lighter(GROUND, TOLERANCE)
        self.assertFalse(Difference(picture(), picture({(3, 4): colour, (4, 4): colour, (5, 4): colour})))

    def test_a_ground_that_is_one_step_lighter_is_a_difference(self):
        difference = Difference(picture(), picture(ground=lighter(GROUND, 1)))
        self.assertTrue(difference)
        self.assertEqual([], difference.marked)

    def test_another_colour_of_the_letters_is_a_difference(self):
        self.assertTrue(Difference(picture(), picture({(x, 20): (0x5A, 0xA9, 0xFF) for x in range(10, 40)})))

    def test_a_move_by_one_pixel_is_a_difference(self):
        self.assertTrue(Difference(picture(), picture({(10, 20): GROUND, (40, 20): INK})))

    def test_another_size_is_a_difference_that_names_both(self):
        difference = Difference(picture(), picture(width=WIDTH + 2))
        self.assertTrue(difference)
        self.assertEqual("62 by 50 pixels instead of 60 by 50", str(difference))
        self.assertEqual(WIDTH + 2, difference.picture().width)

    def test_what_differs_is_red_and_all_else_faint(self):
        shown = Difference(picture(), picture({(3, 4): INK, (30, 40): INK})).picture()
        red = [i for i in range(WIDTH * HEIGHT) if shown.pixels[i * 3:i * 3 + 3] == b"\xE0\x00\x20"]
        self.assertEqual([4 * WIDTH + 3, 40 * WIDTH + 30], red)
        self.assertGreater(min(shown.pixels[:9]), 150)


class FileOfAPicture(unittest.TestCase):
    def test_every_pixel_comes_back(self):
        many = Picture(256, 4, bytes(value for x in range(1024) for value in (x % 256, x // 4, 255 - x % 256)))
        with tempfile.TemporaryDirectory() as room:
            for index, one in enumerate((picture(), many)):
                path = os.path.join(room, f"{index}.png")
                one.write(path)
                self.assertFalse(Difference(one, Picture.read(path)).touched)

    def test_the_same_picture_is_the_same_file(self):
        with tempfile.TemporaryDirectory() as room:
            paths = [os.path.join(room, name) for name in ("a.png", "b.png")]
            for path in paths:
                picture().write(path)
            self.assertTrue(filecmp.cmp(*paths, shallow=False))


unittest.main()
