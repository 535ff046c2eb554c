"""What a program accepts, read from its own --help: the commands with their arguments, options and help lines.

The form is that of the help printed by the programs of this project: sections "Positionals:", "Options:" and
"Subcommands:", one name at the head of each line.
"""
import re
import subprocess


class Command:
    """One command: its words ("event add"; none for the program itself) and what may follow them."""

    def __init__(self, words, text):
        self.words = words
        self.arguments = []    # names in order
        self.optional = set()  # of the arguments, those that may be left out
        self.options = []      # a tuple of spellings each: ("-k", "--keyword")
        self.takes_value = {}  # by spelling
        self.choices = {}      # by argument name or spelling: the values it accepts, when --help names them
        self.subcommands = {}  # name to help line
        self._read(text)

    def _read(self, text):
        section = None
        for line in text.splitlines():
            if re.fullmatch(r"(Positionals|Options|Subcommands):", line):
                section = line[:-1]
            elif line and not line.startswith(" "):
                section = None
            elif section and re.match(r"  \S", line):
                head = line.strip().split("  ")[0]
                getattr(self, "_read_" + section.lower())(head, line)

    def _read_positionals(self, head, _):
        name, *rest = head.split(" ")
        self.arguments.append(name)
        if "REQUIRED" not in rest:
            self.optional.add(name)
        self._read_choices([name], head)

    def _read_options(self, head, _):
        names, *value = head.split(" ")
        spellings = tuple(names.split(","))
        self.options.append(spellings)
        self._read_choices(spellings, head)
        for spelling in spellings:
            self.takes_value[spelling] = bool(value)

    def _read_choices(self, names, head):
        found = re.search(r"\{([^}]*)\}", head)
        if found:
            for name in names:
                self.choices[name] = found[1].split(",")

    def _read_subcommands(self, head, line):
        self.subcommands[head] = line.strip()[len(head):].strip()


def read_program(program):
    """All commands of a program, by their words. The program itself has the words ""."""
    commands = {}

    def walk(words):
        done = subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True)
        command = Command(" ".join(words), done.stdout)
        commands[command.words] = command
        for name in command.subcommands:
            walk([*words, name])

    walk([])
    return commands
