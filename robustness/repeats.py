#!/usr/bin/env python3
"""The suite over and over: a test that fails once is flaky. Comparisons with a model, corpora that start
no thread and no process, and schedules answer the same each time and are left out.
"""
import subprocess

import figures
from figures import areas

ROUNDS = {"full": 10, "release": 100}
THREADED_CORPORA = [name.removesuffix(".corpus") for name in areas.all_of("threads") if name.endswith(".corpus")]


def the_same_each_time():
    """An expression of ctest's."""
    corpora = "|".join(sorted(set(areas.all_of("fuzz")) - set(THREADED_CORPORA)))
    return rf"^({corpora})\.corpus$|{figures.EXHAUSTIVE}|^model\.|_schedules\."


def flaky(rounds):
    """The tests that failed. A run that fails without one is none."""
    failed = figures.BUILD / "release" / "Testing" / "Temporary" / "LastTestsFailed.log"
    failed.unlink(missing_ok=True)  # a run in which all pass leaves that of another
    command = ["ctest", "--preset", "release", "-j", str(figures.JOBS), "--repeat",
               f"until-fail:{rounds}", "-E", the_same_each_time(), "--quiet", "--output-log",
               figures.BUILD / "release" / "repeats.log"]
    done = subprocess.run(command, cwd=figures.ROOT, check=False)
    if failed.exists():
        return failed.read_text().splitlines()
    return [] if done.returncode == 0 else ["ctest"]


def measure(form):
    name, goal = "flaky tests over 100 repeats", "0"
    if form == "quick":
        yield figures.not_run(name, goal)
        return
    found = flaky(ROUNDS[form])
    shown = " ".join([str(len(found)), f"over {ROUNDS[form]}", *found])
    yield figures.Figure(name, goal, shown, figures.if_enough(not found, form == "release"))


if __name__ == "__main__":
    figures.main(measure)
