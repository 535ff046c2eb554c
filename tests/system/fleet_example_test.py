"""The fleet of the example begins, has the alerts of its hosts in one place, and ends without leaving anything behind."""
import os
import signal
import subprocess

import fleet
import lab


class Example(lab.LabTest):
    def test_the_example_shows_the_alerts_of_three_hosts_and_the_rule_of_a_group(self):
        build = lab.build_root()
        path = f"{build / 'bin'}:{os.environ['PATH']}"
        out = self.lab.folder / "said"
        with open(out, "wb") as said:
            child = subprocess.Popen([lab.SOURCE / "examples" / "fleet" / "start", self.lab.folder / "fleet"],
                                     env={**os.environ, "PATH": path}, stdout=said, stderr=said,
                                     start_new_session=True)
        self.addCleanup(lambda: child.poll() is None and os.killpg(child.pid, signal.SIGKILL))
        self.lab.wait_until("it says how to go on",
                            lambda: b"Stop with" in out.read_bytes() or child.poll() is not None, 2 * lab.PATIENCE)
        text = out.read_text()
        self.assertIn("Stop with", text)
        for host in ("web1", "web2", "db1"):
            self.assertRegex(text, f"DISK.*{host}|{host}.*DISK")
        status = subprocess.run([build / "bin" / "syslogmon", "--root", self.lab.folder / "fleet" / "web2", "event",
                                 "list"], check=True, capture_output=True, text=True).stdout
        self.assertIn("WEB", status)
        child.send_signal(signal.SIGTERM)
        self.assertEqual(0, child.wait(lab.PATIENCE))
        # Not one of its processes is left.
        with self.assertRaises(ProcessLookupError):
            os.killpg(child.pid, 0)


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
