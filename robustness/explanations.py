#!/usr/bin/env python3
"""What measurements find and a person has explained, in files of blocks: some lines that say what it
is, then the reason. Alone: fails, and names what is explained, if that is no longer in the sources.
"""
import sys

import figures
import mutants

HERE = figures.ROOT / "robustness"
MUTANTS = HERE / "equivalent_mutants.txt"
CONDITIONS = HERE / "inconclusive_conditions.txt"
WRAP_AROUNDS = HERE / "meant_wrap_arounds.txt"
KEY_LINES = 3  # unit, line, changed line; unit, decision, number of the condition; unit, line, what happens


def explained(file):
    """The keys of the blocks. The first block is about the file."""
    blocks = [block.splitlines() for block in file.read_text().strip().split("\n\n")[1:]]
    for block in blocks:
        if len(block) <= KEY_LINES:
            raise SystemExit(f"{file}: no reason is given: {block}")
    return {tuple(block[:KEY_LINES]) for block in blocks}


def outdated():
    """The explanations of what is gone."""
    made = {key: set(map(mutants.key, mutants.mutants_of(key[0]))) for key in explained(MUTANTS)}
    yield from (key for key, found in made.items() if key not in found)
    for unit, text, detail in explained(CONDITIONS) | explained(WRAP_AROUNDS):
        if " ".join(text.split()) not in " ".join((figures.ROOT / unit).read_text().split()):
            yield unit, text, detail


def main():
    gone = sorted(outdated())
    for key in gone:
        print("explained, but gone:", *key, sep="\n  ")
    return 1 if gone else 0


if __name__ == "__main__":
    sys.exit(main())
