"""A terminal over a slow line: runs a program on a terminal of its own and passes on what it writes, so many bytes a
second at most. How many that were altogether stands in a file.

    slow_line.py BYTES_A_SECOND FILE PROGRAM [WORD]...
"""
import fcntl
import os
import pty
import select
import sys
import termios
import time
import tty

TICK = 0.05  # seconds between two pieces


def run_on_terminal(size, argv):
    pid, line = pty.fork()
    if pid == 0:
        fcntl.ioctl(0, termios.TIOCSWINSZ, size)
        os.execvp(argv[0], argv)
    return pid, line


def pass_on(line, rate, count_file):
    passed = 0
    next_piece = time.monotonic()
    while True:
        wait = max(next_piece - time.monotonic(), 0)
        ready, _, _ = select.select([0] if wait else [0, line], [], [], wait or None)
        if 0 in ready:
            os.write(line, os.read(0, 100))
        if line in ready:
            try:
                piece = os.read(line, max(int(rate * TICK), 1))
            except OSError:  # the program has ended
                return
            os.write(1, piece)
            passed += len(piece)
            os.pwrite(count_file, f"{passed:>12}".encode(), 0)
            next_piece = time.monotonic() + TICK


def main(rate, count_path, *argv):
    size = fcntl.ioctl(0, termios.TIOCGWINSZ, b"\0" * 8)
    before = termios.tcgetattr(0)
    tty.setraw(0)
    try:
        pid, line = run_on_terminal(size, argv)
        pass_on(line, int(rate), os.open(count_path, os.O_WRONLY | os.O_CREAT, 0o644))
        return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    finally:
        termios.tcsetattr(0, termios.TCSADRAIN, before)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
