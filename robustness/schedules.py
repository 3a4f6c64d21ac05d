#!/usr/bin/env python3
"""The programs of tests/schedules, by which the library's own code is taken through schedules of its
calls: every one with up to three preemptions for two and three threads, a million drawn at random for
more. The quick form leaves it to the tests, which run fewer of both.
"""
import json
import os
import pathlib
import subprocess
import tempfile

import figures

PROGRAMS = figures.BUILD / "release" / "tests" / "schedules"
NAMES = sorted(file.stem for file in figures.ROOT.glob("tests/schedules/*_schedules.cpp"))
FIGURES = {
    "every": ("schedules of 2 and 3 threads, to 3 preemptions, failed", "0 of all"),
    "random": ("random schedules of 4 to 8 threads failed", "0 of 10^6"),
}


def run(name):
    """What the framework reports of each case, and whether all passed. A case that hangs ends the
    program."""
    with tempfile.TemporaryDirectory() as scratch:
        report = pathlib.Path(scratch) / "report.json"
        done = subprocess.run([PROGRAMS / name, f"--gtest_output=json:{report}"],
                              env={**os.environ, "QAL_STRESS": "full"}, check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        suites = json.loads(report.read_text())["testsuites"] if report.exists() else []
    return [case for suite in suites for case in suite["testsuite"]], done.returncode == 0


def figure(kind, runs):
    name, goal = FIGURES[kind]
    cases = [case for found, _ in runs for case in found if kind in case]
    count = sum(int(case[kind]) for case in cases)
    failed = sum("failures" in case for case in cases)
    good = failed == 0 and all(passed for _, passed in runs)
    return figures.Figure(name, goal, f"{failed} of {count:,}" if cases else "failed",
                          good and (kind == "every" or count >= 10**6))


def measure(form):
    if form == "quick":
        yield from (figures.not_run(*named) for named in FIGURES.values())
        return
    runs = [run(name) for name in NAMES]
    yield from (figure(kind, runs) for kind in FIGURES)


if __name__ == "__main__":
    figures.main(measure)
