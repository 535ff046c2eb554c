"""What the tests of the daemon rely on: a look that ends too early would have them judge a pass that could not know."""
import time
import unittest

import lab


class Child:
    """A daemon that makes no pass but those that it is told of."""

    pid = 77

    def __init__(self):
        self.signals = []

    def is_running(self):
        return True

    def signal(self, number):
        self.signals.append(number)


class Clockwork:
    """Asks once for each status that there is, and shows them in their order."""

    def __init__(self, statuses):
        self.statuses = statuses
        self.shown = -1

    def wait_until(self, what, condition):
        for self.shown in range(len(self.statuses)):
            if condition():
                return
        raise AssertionError(f"never: {what}")

    def published(self):
        return self.statuses[max(self.shown, 0)]


def status(number, began_ns, pid=Child.pid):
    told = {"number": number, "began_boot_ns": began_ns}
    return {"pid": pid, "last_pass": told, "last_full_pass": told}


class LooksOfTheDaemon(unittest.TestCase):
    def statuses_until_a_look_ends(self, *statuses):
        clockwork = Clockwork(statuses)
        daemon = lab.Daemon(clockwork)
        daemon.child = Child()
        daemon.published = clockwork.published
        daemon.look()
        self.assertEqual(1, len(daemon.child.signals))
        return clockwork.shown

    def test_a_look_ends_with_a_pass_that_began_since(self):
        before = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
        behind = before + 3600 * 10**9
        self.assertEqual(1, self.statuses_until_a_look_ends(status(4, before), status(5, behind)))

    def test_a_pass_that_was_under_way_when_it_was_asked_for_is_no_look(self):
        before = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
        behind = before + 3600 * 10**9
        self.assertEqual(2, self.statuses_until_a_look_ends(status(4, before - 1), status(5, before), status(6, behind)))

    def test_a_pass_over_other_files_is_no_look(self):
        before = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
        behind = before + 3600 * 10**9
        other = status(4, before)
        other["last_pass"] = {"number": 5, "began_boot_ns": behind}
        self.assertEqual(2, self.statuses_until_a_look_ends(status(4, before), other, status(6, behind)))

    def test_a_pass_of_another_life_is_no_look(self):
        before = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
        behind = before + 3600 * 10**9
        self.assertEqual(1, self.statuses_until_a_look_ends(status(9, behind, pid=76), status(1, behind)))


if __name__ == "__main__":
    unittest.main(verbosity=2)
