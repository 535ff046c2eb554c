"""The role of examples/ansible, played on this host: what it would change, what it changes, and that a mistake changes nothing."""
import json
import os
import re
import shutil
import subprocess
import sys

import lab

ROLES = lab.SOURCE / "examples" / "ansible" / "roles"

EVENTS = """events:
  - source: {source}
    id: 1
    keywords: error
"""
SINKS = """sinks:
  - name: out
    kind: file
    path: /var/log/out.json
  - name: hook
    kind: webhook
    url: http://127.0.0.1:9/
    token-file: {target}/hook.token
"""


class Ansible(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.files = self.lab.folder / "files"
        self.target = self.lab.folder / "etc"
        (self.target / "conf.d").mkdir(parents=True)
        self.files.mkdir()
        self.write("events.yaml", EVENTS.format(source="DISK"))
        self.write("sinks.yaml", SINKS.format(target=self.target))
        self.daemon.start()

    def write(self, name, text):
        (self.files / name).write_text(text)

    def play(self, *options):
        """Plays the role; returns its exit status, the number of changed tasks, and all that it said."""
        book = self.lab.folder / "book.yml"
        book.write_text(json.dumps([{"hosts": "all", "gather_facts": False, "roles": ["syslogmon"]}]))
        variables = {"syslogmon_files": sorted(map(str, self.files.glob("*.yaml"))),
                     "syslogmon_folder": str(self.target), "syslogmon_secrets": {"hook.token": "s3cret"},
                     "syslogmon_command": [str(lab.build_root() / "bin" / "syslogmon"), "--root", str(self.lab.root)],
                     "ansible_python_interpreter": sys.executable}
        home = self.lab.folder / "home"
        environment = {**os.environ, "ANSIBLE_ROLES_PATH": str(ROLES), "ANSIBLE_LOCAL_TEMP": str(home / "local"),
                       "ANSIBLE_REMOTE_TEMP": str(home / "remote"), "HOME": str(home), "ANSIBLE_NOCOLOR": "1",
                       "ANSIBLE_RETRY_FILES_ENABLED": "0", "LC_ALL": "C.UTF-8", "TMPDIR": str(self.lab.folder)}
        done = subprocess.run(["ansible-playbook", "-i", "localhost,", "-c", "local", "-e", json.dumps(variables),
                               *options, book], capture_output=True, text=True, env=environment,
                              stdin=subprocess.DEVNULL, timeout=lab.PATIENCE)
        said = done.stdout + done.stderr
        changed = re.search(r"changed=(\d+)", said)
        return done.returncode, int(changed[1]) if changed else None, said

    def set_up(self):
        return self.lab.command("export", "--all")

    def placed(self):
        return {path.name: path.read_text() for path in (self.target / "conf.d").iterdir()}

    def test_it_sets_up_the_host_once_and_then_finds_nothing_to_do(self):
        before = self.set_up()
        status, changed, said = self.play("--check")
        self.assertEqual(0, status, said)
        self.assertGreater(changed, 0, said)
        self.assertEqual((before, {}), (self.set_up(), self.placed()))
        self.assertFalse((self.target / "hook.token").exists(), "a look needs no secrets")

        status, changed, said = self.play()
        self.assertEqual(0, status, said)
        self.assertGreater(changed, 0, said)
        self.assertEqual(["DISK"], [event["source"] for event in self.lab.json("event", "list")["events"]])
        self.assertEqual(["out", "hook"], [sink["name"] for sink in self.lab.json("sink", "list")["sinks"]])
        self.assertEqual({"events.yaml", "sinks.yaml"}, set(self.placed()))
        self.assertEqual(0o600, (self.target / "hook.token").stat().st_mode & 0o777)
        self.assertNotIn("s3cret", said)

        for options in ((), ("--check",)):
            status, changed, said = self.play(*options)
            self.assertEqual((0, 0), (status, changed), said)
        self.assertEqual([], [path for path in self.lab.folder.iterdir() if path.name.startswith("syslogmon.")])

        # What is in no file any more goes, and so does its file.
        (self.files / "events.yaml").unlink()
        self.write("other.yaml", EVENTS.format(source="NET"))
        status, changed, said = self.play()
        self.assertEqual(0, status, said)
        self.assertEqual(["NET"], [event["source"] for event in self.lab.json("event", "list")["events"]])
        self.assertEqual({"other.yaml", "sinks.yaml"}, set(self.placed()))

    def test_a_mistake_is_told_with_its_line_and_changes_nothing(self):
        before = self.set_up()
        self.write("events.yaml", EVENTS.format(source="DISK") + "    report_cuont: 3\n")
        status, _, said = self.play()
        self.assertEqual(2, status, said)
        self.assertIn("events.yaml:5:5", said)
        self.assertEqual((before, {}), (self.set_up(), self.placed()))


if __name__ == "__main__":
    if shutil.which("ansible-playbook") is None:
        print("skipped: there is no ansible-playbook; tools/install-packages long installs it")
        sys.exit(77)
    lab.main()
