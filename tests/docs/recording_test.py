"""The recorded session of the README: what it is made of, and that it stands without moving."""
import re
import sys
import unittest
import xml.etree.ElementTree as ET
from pathlib import Path

PICTURES = Path(__file__).resolve().parents[2] / "docs" / "pictures"
sys.path.insert(0, str(PICTURES))
sys.dont_write_bytecode = True

import recording  # noqa: E402

SVG = "{http://www.w3.org/2000/svg}"
FRAMES = [(0.0, ["$"]), (1.0, ["$ a"]), (2.0, ["$ ab", "<&>"]), (4.0, ["$ ab", "<&>", "$"])]


def texts(picture):
    """The text and the classes of each."""
    return [(text.text, text.get("class").split()) for text in ET.fromstring(picture).iter(f"{SVG}text")]


def seen(picture, seconds):
    """What is seen so long behind the begin."""
    length = float(re.search(r" ([\d.]+)s step-end", picture)[1])
    steps = {name: [(float(at) * length / 100, how) for at, how in re.findall(r"([\d.]+)%\{visibility:(\w+)\}", body)]
             for name, body in re.findall(r"@keyframes (\w+)\{(.*)\}$", picture, re.MULTILINE)}
    return [text for text, classes in texts(picture)
            if [how for at, how in steps[classes[0]] if at <= seconds + 0.001][-1] == "visible"]


class Recording(unittest.TestCase):
    def test_each_moment_shows_what_the_terminal_showed(self):
        picture = recording.svg(FRAMES, 20)
        for moment, lines in FRAMES:
            self.assertEqual(sorted(lines), sorted(seen(picture, moment)), moment)
        self.assertEqual(["$ a"], seen(picture, 1.9))

    def test_where_nothing_moves_it_is_the_last_screen(self):
        picture = recording.svg(FRAMES, 20)
        self.assertEqual(FRAMES[-1][1], [text for text, classes in texts(picture) if "was" not in classes])
        self.assertIn(".was{visibility:hidden}", picture)
        self.assertIn("@media (prefers-reduced-motion:reduce){text{animation:none!important}}", picture)


class Session(unittest.TestCase):
    def setUp(self):
        self.picture = (PICTURES / "session.svg").read_text()

    def test_commands_are_typed_key_by_key_and_their_output_stays(self):
        last = [text for text, classes in texts(self.picture) if "was" not in classes]
        for command in ("event list", "alerts -n 4", "sink list", "silence list", "status"):
            self.assertIn(f"$ syslogmon {command}", last)
            self.assertIn(f"$ syslogmon {command}"[:-1].rstrip(), [text for text, classes in texts(self.picture) if "was" in classes])

    def test_it_has_no_script_and_loads_nothing(self):
        tags = {element.tag for element in ET.fromstring(self.picture).iter()}
        self.assertEqual({SVG + name for name in ("svg", "style", "rect", "g", "text")}, tags)
        self.assertNotRegex(self.picture, r"url\(|@import|href")


if __name__ == "__main__":
    unittest.main()
