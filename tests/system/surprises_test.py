"""Surprises under watched names: nothing blocks, the other files are read, and when the log is back it is
read on from where it stood."""
import os
import socket

import lab

CUSTOMER = lab.VAR_LOG / "customer.log"
TARGET = lab.VAR_LOG / "target.log"
LOGS = (lab.MESSAGES, CUSTOMER, TARGET)


def put_nothing(path):
    """The file is gone."""


def put_fifo(path):
    os.mkfifo(path)


def put_directory(path):
    path.mkdir()
    (path / "file").write_text(lab.stamped("error in a file below") + "\n")


def put_endless_device(path):
    path.symlink_to("/dev/zero")


def put_terminal(path):
    path.symlink_to("/dev/tty")


def put_socket(path):
    with socket.socket(socket.AF_UNIX) as server:
        server.bind(str(path))


def put_dangling_link(path):
    path.symlink_to(lab.VAR_LOG / "nowhere")


def put_link_to_itself(path):
    path.symlink_to(path)


def put_empty_file(path):
    path.touch()


# What the monitor can never read a line of.
UNREADABLE = (put_nothing, put_fifo, put_directory, put_endless_device, put_terminal, put_socket,
              put_dangling_link, put_link_to_itself)


class Surprises(lab.LabTest):
    def setUp(self):
        super().setUp()
        self.written = {path: [] for path in LOGS}
        self.count = 0
        for path in LOGS:
            lab.append(path, lab.stamped("the log begins"))
        self.lab.watch("ERROR", 1, "error")
        self.lab.command("set", "customer-file", CUSTOMER)
        self.lab.command("set", "file-monitor", TARGET)
        self.daemon.start()

    def write(self, path):
        self.count += 1
        line = lab.stamped(f"error {self.count} in {path.name}")
        lab.append(path, line)
        self.written[path].append(line)

    def check(self, story):
        """A scan ends, and by now all lines that were written have been reported, each once."""
        self.daemon.look()
        for path in LOGS:
            reported = [message for message in self.lab.messages() if message.endswith(path.name)]
            self.assertEqual(self.written[path], reported, story)

    def test_every_surprise_under_every_name_leaves_the_other_files_alone(self):
        for path in LOGS:
            for surprise in UNREADABLE:
                story = f"{surprise.__name__} as {path.name}"
                self.write(path)
                self.put(surprise, path)
                for other in set(LOGS) - {path}:
                    self.write(other)
                self.check(story)
                self.take_back(surprise, path)
                self.check(story + ", and back")

    def put(self, surprise, path):
        """Puts something in the place of a log that has a line which was not checked yet."""
        self.aside = lab.VAR_LOG / "aside"
        path.rename(self.aside)
        # A file-monitor target is known by its inode: what it held before it went is read first when
        # the same file comes back, so the line that waits is reported then.
        self.waiting = self.written[path].pop()
        surprise(path)

    def take_back(self, surprise, path):
        if os.path.lexists(path):
            lab.remove(path)
        self.aside.rename(path)
        before = list(self.written[path])
        self.written[path].append(self.waiting)
        self.write(path)
        self.expect_again(surprise, path, before)

    def expect_again(self, surprise, path, before):
        """A directory opens, so in the place of the file-monitor target it counts as another file: the log that
        comes back is read from its first line."""
        if surprise is put_directory and path == TARGET:
            self.written[path] = before + self.written[path]

    def test_a_daemon_starts_whatever_is_under_the_watched_names(self):
        self.daemon.stop()
        for surprise in UNREADABLE:
            for path in LOGS:
                before = list(self.written[path])
                self.write(path)
                self.expect_again(surprise, path, before)
                path.rename(path.with_suffix(".aside"))
                surprise(path)
            self.daemon.start()
            self.daemon.look()
            self.daemon.stop()
            for path in LOGS:
                if os.path.lexists(path):
                    lab.remove(path)
                path.with_suffix(".aside").rename(path)
            self.daemon.start()
            self.check(surprise.__name__)
            self.daemon.stop()

    def test_a_log_without_the_right_to_read_it_is_read_on_when_the_right_is_given(self):
        # Root may read everything, so the daemon gives that right away.
        self.daemon.stop()
        self.daemon.start(under=("setpriv", "--bounding-set=-dac_override,-dac_read_search",
                                 "--inh-caps=-dac_override,-dac_read_search", "--"))
        for path in LOGS:
            self.write(path)
            waiting = self.written[path].pop()
            path.chmod(0)
            for other in set(LOGS) - {path}:
                self.write(other)
            traced = len(self.lab.trace())
            self.check(f"no right to read {path.name}")
            self.lab.wait_for_trace(f"open file {path}", since=traced)
            path.chmod(0o644)
            self.written[path].append(waiting)
            self.check(f"the right to read {path.name} again")

    def test_a_log_without_a_single_line_changes_nothing(self):
        self.write(lab.MESSAGES)
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        put_empty_file(lab.MESSAGES)
        waiting = self.written[lab.MESSAGES].pop()
        self.write(CUSTOMER)
        self.check("an empty log")
        self.write(lab.MESSAGES)
        self.written[lab.MESSAGES].insert(0, waiting)
        self.check("its first line")

    def test_odd_content_harms_nothing_behind_it(self):
        for path in LOGS:
            with open(path, "ab") as log:
                log.write(bytes(50_000) + b"\n" + b"\xff\xfe error\n" + b"y" * 100_000 + b"\n\n\r\n")
            self.write(path)
        self.daemon.look()
        reported = self.lab.messages()
        for path in LOGS:
            self.assertEqual(1, reported.count(self.written[path][-1]), path.name)

    def test_a_surprise_behind_the_live_file_matters_only_when_it_would_be_read(self):
        for surprise in (put_fifo, put_directory, put_endless_device):
            backup = lab.VAR_LOG / "messages.1"
            surprise(backup)
            self.write(lab.MESSAGES)
            self.check(f"{surprise.__name__} as {backup.name}")
            lab.remove(backup)

    def test_a_log_directory_that_goes_and_comes_back_loses_no_line(self):
        other = lab.VAR_LOG / "application"
        other.mkdir()
        customer = other / "customer.log"
        lab.append(customer, lab.stamped("the log begins"))
        passes = self.daemon.passes()
        self.lab.command("set", "customer-file", customer)
        self.daemon.wait_at_rest(passes + 1)
        lab.append(customer, lab.stamped("error in customer.log"))
        self.written[CUSTOMER].append(lab.stamped("error in customer.log"))
        other.rename(lab.VAR_LOG / "elsewhere")
        self.write(lab.MESSAGES)
        self.daemon.look()
        (lab.VAR_LOG / "elsewhere").rename(other)
        self.check("a directory that went and came back")


if __name__ == "__main__":
    lab.main()
