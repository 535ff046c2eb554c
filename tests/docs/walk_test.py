"""The walk of docs/architecture.md, from the byte in the log to the mail: each function that it names stands in the file
beside it.

    walk_test.py SOURCES
"""
import re
import sys
from pathlib import Path

SOURCES = Path(sys.argv[1])


def rows():
    """The files of each row, and the functions."""
    text = (SOURCES / "docs/architecture.md").read_text()
    walk = text[text.index("From the byte in the log to the mail"):text.index("## The agent's house")]
    for files, functions in re.findall(r"^\| (`[^|]*) \| ([^|]*) \|$", walk, re.MULTILINE):
        names = re.findall(r"`([^`]+)`", files)
        folder = Path(names[0]).parent
        # Files that the row names with functions of their own are looked at, too.
        named = [folder / name if "/" not in name else Path(name)
                 for name in names + re.findall(r"`([^`]+/[^`]+\.(?:cc|h))`", functions)]
        yield named, [name for name in re.findall(r"`([\w:]+)`", functions)]


def main():
    steps = files = 0
    seen = set()
    wrong = []
    for named, functions in rows():
        text = "".join((SOURCES / file).read_text() for file in named)
        seen.update(named)
        steps += len(functions)
        wrong += [f"{named[0]} has no {function}" for function in functions
                  if not re.search(rf"\b{function.split('::')[-1]}\b", text)]
    print(f"{steps} functions in {len(seen)} files")
    if steps < 50:
        wrong.append("the walk is not found in the page")
    print("\n".join(wrong))
    return 1 if wrong else 0


sys.exit(main())
