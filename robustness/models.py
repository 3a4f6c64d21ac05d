#!/usr/bin/env python3
"""The protocols that are our own, followed through every order of steps: the models of
tests/models. The quick form looks at the last run of the ordinary tests, which try all of them.
"""
import shutil
import sys
import xml.etree.ElementTree as xml

import figures

sys.path.insert(0, str(figures.ROOT / "tests" / "models"))
import check  # found by the line above


def passed_as_tests():
    """Of each model, whether its test passed; nothing of those that were not run."""
    report = figures.BUILD / "release" / "tests.xml"
    if not report.exists():
        return {}
    cases = {case.get("name").removeprefix("model."): case.get("status") == "run"
             for case in xml.parse(report).iter("testcase")}
    return {which: cases[which] for which in check.CHECKS if which in cases}


def shown(held, found, properties):
    return f"{held} of {len(properties)}, {found} of {len(check.CHECKS) - len(check.PROPERTIES)}"


def as_tested(name, goal):
    passed = passed_as_tests()
    if passed.keys() != set(check.CHECKS):
        return figures.not_run(name, goal)
    held = sum(passed[which] for which in check.PROPERTIES)
    return figures.Figure(name, goal, shown(held, sum(passed.values()) - held, check.PROPERTIES),
                          all(passed.values()))


def tried(name, goal):
    results = list(check.try_all([*check.CHECKS, *check.LONG]))
    properties = check.PROPERTIES | check.LONG
    held = [check.states(report) for which, good, report in results if good and which in properties]
    found = sum(good for which, good, _ in results if which not in properties)
    return figures.Figure(name, goal, f"{shown(len(held), found, properties)} ({sum(held):,} states)",
                          all(good for _, good, _ in results))


def measure(form):
    name = "protocols model-checked, up to 4 threads"
    goal = "all properties, expected counterexamples found"
    if not all(map(shutil.which, check.TOOLS)):
        yield figures.not_run(name, goal)
    else:
        yield as_tested(name, goal) if form == "quick" else tried(name, goal)


if __name__ == "__main__":
    figures.main(measure)
