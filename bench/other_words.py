#!/usr/bin/env python3
"""Rules and a log for pass_bench, of words that nothing was tuned for: the packages of this machine.

    bench/other_words.py FOLDER [--lines N] [--seed N]

A rule is the name of a package and two words of its description, or two names, or a piece of a description. A line of the
log is what an installer could say about packages, or a description; words of the rules stand in most lines, and one
in a thousand holds all of one rule. Writes FOLDER/rules and FOLDER/log, for pass_bench --rules and --log.
"""
import argparse
import random
import subprocess
import time
from pathlib import Path

RULES = 2048
VERBS = ["unpacking", "setting up", "removing", "triggers pending for", "held back", "upgraded to", "not authenticated"]


def packages():
    listed = subprocess.run(["dpkg-query", "-W", "-f", "${Package}\t${Version}\t${binary:Summary}\n"], check=True,
                            capture_output=True, text=True).stdout
    return [line.split("\t") for line in listed.splitlines() if line.count("\t") == 2 and len(line.split("\t")[2].split()) > 2]


def rule(known, dice):
    name, version, _ = dice.choice(known)
    words = [word for word in dice.choice(known)[2].split() if len(word) > 3] + ["meta"]
    kind = dice.randrange(4)
    if kind == 0:
        return [name, dice.choice(words), dice.choice(words)]
    if kind == 1:
        return [dice.choice(VERBS), name, ""]
    if kind == 2:
        return [" ".join(words[:3]), version[:6], ""]
    return [name, dice.choice(known)[0], ""]


def message(known, rules, dice):
    if dice.randrange(1000) == 0:
        return "apt: " + " ".join(dice.choice(rules))
    name, version, summary = dice.choice(known)
    kind = dice.randrange(4)
    if kind == 0:
        return f"dpkg[{dice.randrange(99999)}]: {dice.choice(VERBS)} {name} ({version}) over ({dice.choice(known)[1]}) ..."
    if kind == 1:
        return f"apt[{dice.randrange(99999)}]: {dice.choice(known)[0]} depends on {name}; {summary}"
    if kind == 2:
        return f"packagekitd: {summary}; {dice.choice(known)[2]}"
    return f"unattended-upgrades[{dice.randrange(99999)}]: {dice.choice(VERBS)} {dice.randrange(99)} packages, {dice.randrange(999999)} kB"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("--lines", type=int, default=1000000)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    dice = random.Random(arguments.seed)
    known = packages()
    rules = sorted({tuple(word for word in rule(known, dice)) for _ in range(2 * RULES)})
    dice.shuffle(rules)
    rules = rules[:RULES]
    arguments.folder.mkdir(parents=True, exist_ok=True)
    (arguments.folder / "rules").write_text("".join("\t".join(words) + "\n" for words in rules), encoding="utf-8")
    now = time.localtime()
    month = time.mktime((now.tm_year, now.tm_mon, 1, 0, 0, 0, 0, 0, -1))
    with (arguments.folder / "log").open("w", encoding="utf-8") as log:
        for number in range(arguments.lines):
            stamp = time.localtime(min(month + number // 40, time.time()))
            day = time.strftime("%b ", stamp) + f"{stamp.tm_mday:2d}" + time.strftime(" %H:%M:%S", stamp)
            log.write(f"{day} depot {message(known, rules, dice)}\n")


if __name__ == "__main__":
    main()
