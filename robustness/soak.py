#!/usr/bin/env python3
"""The soak program of tests/stress for an hour: what a process of the family does, over and over. What
it holds after the first ten minutes it may hold at the end.
"""
import re
import subprocess

import figures

SECONDS, WARM_UP_SECONDS = 3600, 600
NAME, GOAL = "soak: descriptors, threads and resident size", "constant, constant, within 1 %"
MOST_GROWTH = 0.01
PROGRAM = figures.BUILD / "release" / "tests" / "stress" / "soak"


def samples():
    """(descriptors, threads, KiB) of every second after the warm-up; none if the program failed."""
    done = subprocess.run([PROGRAM, str(SECONDS)], capture_output=True, text=True, check=False)
    lines = re.findall(r"(\d+) s: \d+ rounds, (\d+) descriptors, (\d+) threads, (\d+) KiB",
                       done.stdout)
    late = [tuple(map(int, line[1:])) for line in lines if int(line[0]) >= WARM_UP_SECONDS]
    return late if done.returncode == 0 else []


def measure(form):
    if form != "release":
        yield figures.not_run(NAME, GOAL)
        return
    taken = samples()
    if not taken:
        yield figures.Figure(NAME, GOAL, "failed", False)
        return
    descriptors, threads, resident = (sorted(set(column)) for column in zip(*taken))
    growth = (resident[-1] - resident[0]) / resident[0]
    steady = len(descriptors) == len(threads) == 1
    yield figures.Figure(NAME, GOAL, f"{descriptors} descriptors, {threads} threads, {growth:.2%} in "
                         f"{(SECONDS - WARM_UP_SECONDS) // 60} minutes", steady and growth <= MOST_GROWTH)


if __name__ == "__main__":
    figures.main(measure)
