"""Repeats: a real syslogd writes "last message repeated N times", and each occurrence counts."""
import lab

# Larger than anything counted here, so the hits of the event are the sum of all occurrences.
NEVER = 1_000_000_000


class Repeats(lab.LabTest):
    def setUp(self):
        super().setUp()
        # syslogd begins each file with the same words; a file is known by its first line.
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.log = lab.Syslogd(self.lab)
        self.log.start()
        self.lab.watch("EACH", 1, "counted")
        self.lab.watch("THIRD", 1, "counted", report_count=3)
        self.lab.watch("SUM", 1, "counted", report_count=NEVER)
        self.daemon.start()

    def last_lines(self, count):
        """The last lines of the log, without time stamp and host."""
        lines = lab.MESSAGES.read_text().splitlines()[-count:]
        return [line.split(None, 4)[-1] for line in lines]

    def assert_counted(self, occurrences):
        self.assertEqual(occurrences, self.lab.hits("SUM"))

    def test_repeats_in_the_pass_of_their_line_are_one_report_for_all_occurrences(self):
        self.log.send("counted A", 10)
        self.log.write("counted B")
        self.log.wait_until_read()
        self.daemon.scan()

        self.assertEqual(["test: counted A", "last message repeated 9 times", "test: counted B"],
                         self.last_lines(3))
        self.assert_counted(11)
        self.assertEqual(["counted A", "counted B"], self.lab.texts("EACH"))
        # Ten at once reach the count of three, once: the surplus is not kept.
        self.assertEqual(["counted A"], self.lab.texts("THIRD"))
        self.assertEqual(1, self.lab.hits("THIRD"))

    def test_repeats_in_a_later_pass_count_for_the_line_before_them(self):
        self.log.write("counted A")
        self.daemon.scan()
        self.log.send("counted A", 5)
        self.log.write("counted B")
        self.daemon.scan()

        self.assertEqual(["test: counted A", "last message repeated 5 times", "test: counted B"],
                         self.last_lines(3))
        self.assert_counted(7)
        self.assertEqual(["counted A", "counted A", "counted B"], self.lab.texts("EACH"))
        self.assertEqual(["counted A"], self.lab.texts("THIRD"))
        self.assertEqual(1, self.lab.hits("THIRD"))

    def test_repeats_at_the_end_of_a_pass_are_not_counted_again(self):
        self.log.write("counted A")
        self.daemon.scan()
        self.log.send("counted A", 5)
        self.log.reopen()
        self.daemon.scan()
        self.assertEqual(["test: counted A", "last message repeated 5 times",
                          "syslogd (GNU inetutils 2.4): restart"], self.last_lines(3))
        self.assert_counted(6)

        self.daemon.scan()
        self.daemon.kill()
        self.daemon.start()
        self.assert_counted(6)
        self.log.write("counted A")
        self.daemon.scan()
        self.assert_counted(7)

    def test_a_second_row_of_repeats_in_a_later_pass_counts_for_the_same_line(self):
        # syslogd writes what it holds back after half a minute and goes on counting; here the test
        # writes these lines.
        self.log.write("counted A")
        self.daemon.scan()
        for repeats in (4, 9, 2):
            stamp_and_host = lab.stamped("", tag="")[:-len(": ")]
            lab.append(lab.MESSAGES, f"{stamp_and_host}last message repeated {repeats} times")
            self.daemon.scan()
        self.assert_counted(16)
        self.assertEqual(["counted A"] * 4, self.lab.texts("EACH"))

    def test_repeats_on_both_sides_of_a_rotation_all_count(self):
        self.log.write("counted A")
        self.log.send("counted A", 5)
        self.log.wait_until_read()
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        self.log.reopen()
        self.log.write("counted A")
        self.log.send("counted A", 3)
        self.log.write("counted B")
        self.daemon.scan()

        backup = (lab.VAR_LOG / "messages.1").read_text()
        self.assertTrue(backup.endswith("last message repeated 5 times\n"), backup)
        self.assert_counted(1 + 5 + 1 + 3 + 1)

    def test_the_sum_is_right_whenever_the_monitor_looks_and_however_often_it_is_killed(self):
        randomness = lab.randomness("repeats")
        sent = 0
        for run in range(2000):
            times = randomness.choice((1, 1, 2, 3, 10, 100))
            self.log.send(f"counted {run}", times)
            sent += times
            self.look(randomness.random())
        self.log.write("the end")
        self.daemon.scan()

        self.assertGreater(lab.MESSAGES.read_bytes().count(b"last message repeated"), 500)
        self.assert_counted(sent)

    def look(self, chance):
        if chance < 0.10:
            self.daemon.wake()
        elif chance < 0.12:
            self.daemon.scan()
        elif chance < 0.13:
            self.daemon.kill()
            self.daemon.start()


if __name__ == "__main__":
    lab.main(*lab.INETUTILS)
