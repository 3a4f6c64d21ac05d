#!/usr/bin/env python3
"""The whole suite over and over: a test that fails once is flaky. Comparisons with a model that
start no thread and no process answer the same each time and are left out.
"""
import subprocess

import figures

ROUNDS = {"full": 10, "release": 100}
THE_SAME_EACH_TIME = r"\.(corpus$)|Exhaustive|_model\.|^model\."


def flaky(rounds):
    command = ["ctest", "--preset", "release", "-j", str(figures.JOBS), "--repeat",
               f"until-fail:{rounds}", "-E", THE_SAME_EACH_TIME, "--quiet", "--output-log",
               figures.BUILD / "release" / "repeats.log"]
    subprocess.run(command, cwd=figures.ROOT, check=False)
    failed = figures.BUILD / "release" / "Testing" / "Temporary" / "LastTestsFailed.log"
    return failed.read_text().splitlines() if failed.exists() else []


def measure(form):
    name, goal = "flaky tests over 100 repeats", "0"
    if form == "quick":
        yield figures.not_run(name, goal)
        return
    found = flaky(ROUNDS[form])
    shown = " ".join([str(len(found)), f"over {ROUNDS[form]}", *found])
    # Fewer rounds than the goal names can only show a miss.
    reached = False if found else (True if form == "release" else None)
    yield figures.Figure(name, goal, shown, reached)


if __name__ == "__main__":
    figures.main(measure)
