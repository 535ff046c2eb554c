"""The host's time zone: the running daemon follows a change of it."""
import os
import shutil
import struct
import subprocess
import time

import lab


def zone_file(hours):
    """A time zone without changes, so many hours east of UTC, as the C library reads it."""
    name = b"HERE\0"
    return (struct.pack(">4s16x6l", b"TZif", 0, 0, 0, 0, 1, len(name)) +
            struct.pack(">lBB", hours * 3600, 0, 0) + name)


class HostZone(lab.LabTest):
    def setUp(self):
        super().setUp()
        # An /etc of the test's own: the zone is changed in it as an administrator does.
        etc = self.lab.folder / "etc"
        shutil.copytree("/etc", etc, symlinks=True, ignore_dangling_symlinks=True)
        subprocess.run(["mount", "--bind", etc, "/etc"], check=True)
        self.lab.on_close(lambda: subprocess.run(["umount", "--lazy", "/etc"], check=True))
        os.environ.pop("TZ", None)
        self.set_zone(0)

    def set_zone(self, hours):
        fresh = self.lab.folder / "localtime.new"
        fresh.write_bytes(zone_file(hours))
        shutil.move(fresh, "/etc/localtime.new")
        os.rename("/etc/localtime.new", "/etc/localtime")
        self.hours = hours

    def line(self, text):
        local = time.gmtime(time.time() + self.hours * 3600)
        return f"{time.strftime('%b %e %H:%M:%S', local)} host test: {text}"

    def see(self, text):
        lab.append(lab.MESSAGES, self.line(text))
        self.daemon.scan()

    def test_an_hour_of_an_event_is_an_hour_of_the_host_also_after_a_change(self):
        # Half a day around now, and the other half: no hour that passes during the test changes them.
        now = time.gmtime().tm_hour
        day = {(now + h) % 24 for h in range(-6, 6)}
        self.watch_in("DAY", day)
        self.watch_in("NIGHT", set(range(24)) - day)
        lab.append(lab.MESSAGES, self.line("the log begins"))
        self.daemon.start()
        self.see("error by day")
        self.assertEqual([["error by day"], []], [self.lab.texts("DAY"), self.lab.texts("NIGHT")])

        self.set_zone(12)
        self.wait_for_next_second()
        self.see("error by night")
        self.assertEqual([["error by day"], ["error by night"]],
                         [self.lab.texts("DAY"), self.lab.texts("NIGHT")])

    def watch_in(self, source, hours):
        self.lab.watch(source, 1, "error", hours=",".join(map(str, sorted(hours))))

    def wait_for_next_second(self):
        """The zone is looked up once a second."""
        time.sleep(1 - time.time() % 1)


if __name__ == "__main__":
    lab.main()
