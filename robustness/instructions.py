#!/usr/bin/env python3
"""The instructions of the hottest calls, as callgrind counts them, beside those that
bench/instructions.tsv expects. They depend on the compiler and the C library, which the file names:
elsewhere nothing is compared.

usage: instructions.py [FORM]
       instructions.py renew    writes what is counted as what is expected
"""
import os
import pathlib
import platform
import re
import subprocess
import sys
import tempfile

import figures

NAME, GOAL = "instructions of the twelve hottest calls", "within 3 % of the expected"
TOLERANCE = 0.03
ROUNDS = 1024  # by which the last two repetitions of a call differ
PROGRAM = figures.BUILD / "release" / "robustness" / "count"
EXPECTED = figures.ROOT / "bench" / "instructions.tsv"
# The C library chooses by the processor how it copies and compares; this is what all have.
SAME_EVERYWHERE = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-ERMS"}


def found_in(file, pattern):
    return re.search(pattern, file.read_text(), re.M)[1]


def system():
    """What the counts depend on."""
    compiler = found_in(figures.BUILD / "release" / "CMakeCache.txt", "^CMAKE_CXX_COMPILER:.*=(.*)$")
    version = subprocess.run([compiler, "--version"], check=True, capture_output=True, text=True).stdout
    return f"{version.splitlines()[0]}, {os.confstr('CS_GNU_LIBC_VERSION')}, {platform.machine()}"


def counted():
    """{call: instructions}. Each mark ends a file of callgrind's with the count since the mark before."""
    with tempfile.TemporaryDirectory() as directory:
        done = subprocess.run(
            ["valgrind", "-q", "--tool=callgrind", "--dump-before=qal_count_mark",
             f"--callgrind-out-file={directory}/count", PROGRAM],
            check=True, capture_output=True, text=True, env=os.environ | SAME_EVERYWHERE)
        calls = done.stdout.splitlines()
        totals = [int(found_in(pathlib.Path(directory, f"count.{part}"), r"^totals: (\d+)$"))
                  for part in range(1, 3 * len(calls) + 1)]
    return {call: (more - once) / ROUNDS for call, once, more in zip(calls, totals[1::3], totals[2::3])}


def expected():
    """The system for which the counts hold, and {call: instructions}."""
    first, *rows = EXPECTED.read_text().splitlines()
    return first.removeprefix("# "), {call: float(count) for call, count in (row.split("\t") for row in rows)}


def renew():
    rows = [f"{call}\t{count:.1f}" for call, count in counted().items()]
    EXPECTED.write_text("\n".join([f"# {system()}", *rows, ""]))
    print(EXPECTED.read_text(), end="")


def measure(_):
    of_system, wanted = expected()
    if of_system != system():
        yield figures.not_run(NAME, GOAL)
        return
    found = counted()
    changes = {call: found.get(call, 0) / wanted.get(call, 1) - 1 for call in wanted | found}
    beyond = [f"{call} {change:+.1%}" for call, change in changes.items() if abs(change) > TOLERANCE]
    most = max(abs(change) for change in changes.values())
    yield figures.Figure(NAME, GOAL, ", ".join(beyond) or f"within {most:.1%}", not beyond)


if __name__ == "__main__":
    if sys.argv[1:] == ["renew"]:
        renew()
    else:
        figures.main(measure)
