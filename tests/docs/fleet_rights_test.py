"""The rights in docs/fleet.md are those that the accounts of the example have: each of them, and no other one."""
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(sys.argv.pop(1))
# What a table's first cell begins with, and the account for which it is.
TABLES = {"right of a host": "web1", "right of a host that collects": "collector"}


def documented(title):
    """The rights in the first cells of a table."""
    text = (SOURCE / "docs" / "fleet.md").read_text()
    body = re.search(rf"^\| {title}, `UUID` .*?\n\|---\|---\|\n((?:\|.*\n)+)", text, re.MULTILINE)[1]
    return {right for row in body.splitlines() for right in re.findall(r"`([^`]+)`", row.split("|")[1])}


def accounts(*hosts):
    """The rights of each account, by its name."""
    with tempfile.TemporaryDirectory() as folder:
        text = subprocess.run([SOURCE / "examples" / "fleet" / "accounts", folder, *hosts], check=True,
                              capture_output=True, text=True).stdout
    return {name: set(re.findall(r'"([^"]+)"', permissions)) for name, permissions in
            re.findall(r'user: "(\w+)", password: "\w+", permissions: \{(.*?)\} \}', text, re.DOTALL)}


class Rights(unittest.TestCase):
    def test_those_of_the_tables_are_those_of_the_accounts(self):
        given = accounts("UUID", "web1=UUID:GROUP")
        self.assertEqual(set(TABLES.values()), set(given))
        for title, name in TABLES.items():
            self.assertEqual(sorted(documented(title)), sorted(given[name]), title)

    def test_each_of_several_collectors_has_an_account_and_answers_of_its_own(self):
        given = accounts("A,B,C", "web1=UUID")
        self.assertEqual({"collector", "collector2", "collector3", "web1"}, set(given))
        for name, uuid in (("collector", "A"), ("collector2", "B"), ("collector3", "C")):
            self.assertEqual({f"_INBOX.{uuid}.>"}, {right for right in given[name] if right.startswith("_INBOX")})


if __name__ == "__main__":
    unittest.main()
