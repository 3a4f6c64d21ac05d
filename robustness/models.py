#!/usr/bin/env python3
"""The protocols that are our own, followed through every order of steps: the models of
tests/models. Every form tries all of them.
"""
import shutil
import sys

import figures

sys.path.insert(0, str(figures.ROOT / "tests" / "models"))
import check  # noqa: E402  found by the line above


def measure(form):
    del form
    name = "protocols model-checked, up to 4 threads"
    goal = "all properties, expected counterexamples found"
    if not all(map(shutil.which, check.TOOLS)):
        yield figures.not_run(name, goal)
        return
    results = list(check.try_all(list(check.CHECKS)))
    held = [check.states(report) for which, good, report in results
            if good and which in check.PROPERTIES]
    found = sum(good for which, good, _ in results if which not in check.PROPERTIES)
    shown = (f"{len(held)} of {len(check.PROPERTIES)} ({sum(held):,} states), "
             f"{found} of {len(results) - len(check.PROPERTIES)}")
    yield figures.Figure(name, goal, shown, all(good for _, good, _ in results))


if __name__ == "__main__":
    figures.main(measure)
