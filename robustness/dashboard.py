#!/usr/bin/env python3
"""Takes the figures of robustness and shows them in one table.

usage: dashboard.py quick|full|release [MEASUREMENT...]
       dashboard.py page

The results are kept below build/robustness, one file for each measurement, so that a long form can
be taken in parts. `page` writes the last full or release results into docs/robustness.md.
"""
import datetime
import importlib
import json
import subprocess
import sys
import time

import sweep_world
from figures import FORMS, RESULTS, ROOT, Figure, table

MEASUREMENTS = (
    "sanitizers",
    "valgrind",
    "memory_sanitizer",
    "models",
    "fuzzing",
    "coverage",
    "mutation",
    "faults",
    "allocations",
    "system_calls",
    "kill_points",
    "limits",
    "servers",
    "clock",
    "crowd",
    "hostile_names",
    "silence",
    "matching",
    "stress",
    "repeats",
)
PAGE = ROOT / "docs" / "robustness-figures.md"


def commit():
    """The last commit, marked when the tree holds more than it."""
    return subprocess.run(["git", "describe", "--always", "--dirty"], cwd=ROOT, check=True,
                          capture_output=True, text=True).stdout.strip()


def result_file(form, name):
    return RESULTS / form / f"{name}.json"


def take(form, name):
    print(f"-- {name}", flush=True)
    started, printed = time.monotonic(), sweep_world.bytes_printed()
    figures = list(importlib.import_module(name).measure(form))
    result = {
        "form": form,
        "commit": commit(),
        "date": datetime.date.today().isoformat(),
        "seconds": round(time.monotonic() - started),
        "printed": sweep_world.bytes_printed() - printed,
        "figures": [vars(figure) for figure in figures],
    }
    file = result_file(form, name)
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(json.dumps(result, indent=1))
    return figures


def run(form, names):
    figures = [figure for name in names for figure in take(form, name)]
    print("\n".join(table(figures)))
    return any(figure.reached is False for figure in figures)


def last_result(name):
    """What the longest form that was run has measured."""
    for form in reversed(FORMS):
        file = result_file(form, name)
        if file.exists():
            return json.loads(file.read_text())
    sys.exit(f"{name} was not measured yet")


def write_page():
    results = [last_result(name) for name in MEASUREMENTS]
    figures = [Figure(**figure) for result in results for figure in result["figures"]]
    runs = "\n".join(
        f"| {name} | {result['form']} | {result['seconds']} s | {result['commit']} | {result['date']} |"
        for name, result in zip(MEASUREMENTS, results))
    PAGE.write_text("\n".join((
        "# Robustness, as measured",
        "",
        "Written by `./run robustness page` from the last runs on a machine with 2 processors. What",
        "each figure means and how it is taken is told in [robustness.md](robustness.md).",
        "",
        *table(figures),
        "",
        "| measurement | form | took | of commit | on |",
        "| --- | --- | --- | --- | --- |",
        runs,
        "")))


def main(arguments):
    if arguments == ["page"]:
        return write_page()
    if not arguments or arguments[0] not in FORMS or set(arguments[1:]) - set(MEASUREMENTS):
        sys.exit(__doc__)
    return run(arguments[0], arguments[1:] or MEASUREMENTS)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
