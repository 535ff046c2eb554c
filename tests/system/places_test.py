"""status tells where the next pass goes on, because it asks the module where that is."""
import lab


class Places(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, *map(lab.stamped, ("the log begins", "line two", "line three")))
        self.lab.watch("DISK", 1, "error")
        self.daemon.start()
        self.daemon.scan()
        self.daemon.stop()

    def place(self):
        return self.lab.status()["files"][0]

    def test_it_is_behind_the_line_that_was_checked_last(self):
        place = self.place()
        self.assertEqual("/var/log/messages", place["resume_file"])
        self.assertEqual(0, place["behind"])
        line = lab.stamped("line four")
        lab.append(lab.MESSAGES, line)
        self.assertEqual(len(line) + 1, self.place()["behind"])

    def test_it_moves_with_its_line_when_lines_were_put_before_it(self):
        before = self.place()["position"]
        first, *others = lab.MESSAGES.read_text().splitlines()
        added = first.replace("the log begins", "put in between")  # in its second: lines are in order
        lab.remove(lab.MESSAGES)
        lab.append(lab.MESSAGES, first, added, *others)
        place = self.place()
        self.assertEqual(before + len(added) + 1, place["position"])
        self.assertEqual(0, place["behind"])

    def test_it_is_in_the_backup_that_the_next_pass_goes_to(self):
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        line = lab.stamped("of the new log")
        lab.append(lab.MESSAGES, line)
        place = self.place()
        self.assertEqual("/var/log/messages.1", place["resume_file"])
        self.assertEqual(len(line) + 1, place["behind"])

    def test_it_stays_in_the_backup_while_the_new_log_is_empty(self):
        lab.append(lab.MESSAGES, lab.stamped("error: not read yet"))
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        lab.MESSAGES.touch()
        self.assertEqual("/var/log/messages.1", self.place()["resume_file"])
        self.daemon.start()
        self.assertEqual("/var/log/messages.1", self.place()["resume_file"])
        lab.append(lab.MESSAGES, lab.stamped("a first line"))
        self.daemon.scan()
        self.assertEqual(["error: not read yet"], self.lab.texts())

    def test_an_empty_backup_before_its_own_hides_it(self):
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.2")
        (lab.VAR_LOG / "messages.1").touch()
        lab.append(lab.MESSAGES, lab.stamped("of the new log"))
        self.assertIsNone(self.place()["resume_file"])

    def test_it_is_nowhere_when_its_backup_stands_behind_a_gap(self):
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.2")
        lab.append(lab.MESSAGES, lab.stamped("of the new log"))
        place = self.place()
        self.assertIsNone(place["resume_file"])
        self.assertIn("the resume point is in none of its files", place["problem"])


if __name__ == "__main__":
    lab.main()
