"""The pictures of the README can be made again, and show what they should."""
import os
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib
from pathlib import Path
from xml.etree import ElementTree

SOURCE = Path(__file__).resolve().parents[2]
MAKE = SOURCE / "docs" / "pictures" / "make"


def texts_of(picture):
    return [text.text or "" for text in ElementTree.parse(picture).iter("{http://www.w3.org/2000/svg}text")]


def size_and_bytes(picture):
    """Width, height, and all bytes behind the compression of a PNG."""
    data = picture.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", data[:8]
    width, height = struct.unpack(">II", data[16:24])
    packed, place = b"", 8
    while place < len(data):
        length, kind = struct.unpack(">I4s", data[place:place + 8])
        packed += data[place + 8:place + 8 + length] if kind == b"IDAT" else b""
        place += length + 12
    return width, height, zlib.decompress(packed)


class Pictures(unittest.TestCase):
    def test_they_are_made_and_show_what_they_should(self):
        with tempfile.TemporaryDirectory() as folder:
            made = subprocess.run([sys.executable, MAKE], env=os.environ | {"SYSLOGMON_PICTURES": folder},
                                  capture_output=True, text=True, check=False)
            self.assertEqual(0, made.returncode, made.stdout + made.stderr)
            self.assertEqual(["page.png", "session.svg", "top.svg"], sorted(os.listdir(folder)))
            top = texts_of(Path(folder) / "top.svg")
            for words in ("LOGIN", "DISK", "NEWEST ALERTS", "q quit"):
                self.assertTrue(any(words in line for line in top), f"{words} in {top}")
            session = texts_of(Path(folder) / "session.svg")
            for words in ("$ syslogmon event list", "$ syslogmon alerts -n 4", "$ syslogmon sink list", "archive",
                          "$ syslogmon silence list", "disk is being replaced", "$ syslogmon status", "/var/log/messages"):
                self.assertTrue(any(words in line for line in session), f"{words} in {session}")
            width, height, pixels = size_and_bytes(Path(folder) / "page.png")
            self.assertEqual((1280, 1900), (width, height))
            self.assertGreater(len(set(pixels)), 100, "a picture of one colour is none")


if __name__ == "__main__":
    unittest.main()
