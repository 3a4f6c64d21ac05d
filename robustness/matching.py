#!/usr/bin/env python3
"""The longest time that a match takes when pattern and name are as long as a name can be."""
import subprocess

import figures

GOAL_MS = 10


def measure(_):
    program = figures.BUILD / "release" / "robustness" / "worst_match"
    worst = float(subprocess.run([program], check=True, capture_output=True, text=True).stdout)
    yield figures.Figure("worst match, 1023-byte name and pattern", f"<= {GOAL_MS} ms",
                         f"{worst:.2f} ms", worst <= GOAL_MS)


if __name__ == "__main__":
    figures.main(measure)
