"""The shapes in docs/json.md are those that the program prints: for each heading, the command of that name is run."""
import json
import os
import re
import shlex
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

import lab  # noqa: E402

# Objects whose keys are names of things, not of fields.
BY_NAME = {"settings", "options", "peers"}


def documented():
    """Pairs of a command and the example under it."""
    text = (SOURCE / "docs" / "json.md").read_text()
    return [(words, json.loads(example))
            for words, example in re.findall(r"^## (.*?)\n.*?^```json\n(.*?)^```", text, re.MULTILINE | re.DOTALL)]


def differences(example, printed, where=""):
    """What is not alike in two values: fields, and types. A null stands for any type."""
    if example is None or printed is None:
        return []
    if type(example) is not type(printed):
        return [f"{where}: {type(printed).__name__}, documented as {type(example).__name__}"]
    found = []
    if isinstance(example, dict):
        if where.split(".")[-1] in BY_NAME:
            values = list(example.values())[:1]
            return [line for name, value in printed.items() for wanted in values
                    for line in differences(wanted, value, f"{where}.{name}")]
        found += [f"{where}.{name} is not documented" for name in printed.keys() - example.keys()]
        found += [f"{where}.{name} is not printed" for name in example.keys() - printed.keys()]
        for name in example.keys() & printed.keys():
            found += differences(example[name], printed[name], f"{where}.{name}")
    if isinstance(example, list) and example:
        if not printed:
            found.append(f"{where} is empty")
        for value in printed:
            found += differences(example[0], value, f"{where}[]")
    return found


class Shapes(lab.LabTest):
    def setUp(self):
        """A host on which every command has something to show."""
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", "1A", "error", report_count=2)
        self.lab.command("set", "cycle", 100)
        self.lab.command("sink", "add", "file", "out", f"path={lab.VAR_LOG / 'out.json'}")
        self.lab.command("reg", "set", r"SOFTWARE\Example", "a", "b")
        self.lab.command("input", "add", "files", "app", f"path={lab.VAR_LOG / 'app.log'}")
        self.daemon.start()
        lab.append(lab.VAR_LOG / "app.log", lab.stamped("of an input"))
        self.lab.wait_until("the input is read", lambda: self.lab.status()["inputs"][0]["last_entry_ms"])
        lab.append(lab.MESSAGES, *(lab.stamped(f"error {n}") for n in range(3)))
        self.daemon.scan()
        self.lab.wait_until("the alert was delivered",
                            lambda: self.lab.json("sink", "show", "out")["sink"]["delivered"] == 1)
        os.chdir(self.lab.folder)
        self.addCleanup(os.chdir, "/")
        Path("rules.yaml").write_text("events:\n  - {source: NET, id: 2, keywords: [a, b]}\n")
        Path("example.reg").write_text('REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Example]\n"a"="c"\n')

    def printed(self, words):
        # Backslashes are part of a key.
        lexer = shlex.shlex(words, posix=True, punctuation_chars=False)
        lexer.whitespace_split, lexer.escape = True, ""
        if words == "doctor":
            output = self.lab.run("--json", words).stdout  # it may have findings
        else:
            output = self.lab.command("--json", *lexer)
        return json.loads(output.splitlines()[0] if words == "alerts" else output)

    def test_each_documented_shape_is_printed(self):
        shapes = documented()
        self.assertGreater(len(shapes), 15)
        for words, example in shapes:
            with self.subTest(words):
                self.assertEqual([], differences(example, self.printed(words)))

    def test_without_a_daemon_the_fields_from_state_to_waiting_since_ms_are_missing(self):
        self.daemon.stop()
        example = dict(documented())["status"]
        names = list(example)
        missing = names[names.index("state"):names.index("waiting_since_ms") + 1]
        self.assertEqual(set(names) - set(missing), set(self.lab.status()))

    def test_mistakes_of_a_rules_file_are_printed(self):
        Path("rules.yaml").write_text("events:\n  - source: X\n")
        done = self.lab.run("--json", "apply", "rules.yaml")
        self.assertEqual(1, done.returncode)
        errors = json.loads(done.stdout)["errors"]
        self.assertEqual({"file", "line", "column", "message"}, set(errors[0]))


if __name__ == "__main__":
    lab.main()
