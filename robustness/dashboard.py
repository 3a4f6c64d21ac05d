#!/usr/bin/env python3
"""Takes the figures of robustness and shows them in one table.

usage: dashboard.py quick|full|release [MEASUREMENT...]
       dashboard.py page

The results are kept below build/robustness, one file for each measurement, so that a long form can
be taken in parts. `page` writes the last results into docs/robustness-figures.md, those of the quick form
only where nothing longer was measured.
"""
import datetime
import importlib
import json
import os
import subprocess
import sys
import time
import traceback

import sweep_world
from figures import FORMS, RESULTS, ROOT, Figure, aligned, table, verdict

MEASUREMENTS = (
    "sanitizers",
    "valgrind",
    "memory_sanitizer",
    "integer",
    "models",
    "schedules",
    "fuzzing",
    "coverage",
    "conditions",
    "mutation",
    "faults",
    "allocations",
    "system_calls",
    "kill_points",
    "limits",
    "servers",
    "clock",
    "crowd",
    "unasked",
    "hostile_names",
    "confinement",
    "silence",
    "matching",
    "instructions",
    "stress",
    "soak",
    "repeats",
)
PAGE = ROOT / "docs" / "robustness-figures.md"


def commit():
    """The last commit, marked when the tree holds more than it."""
    return subprocess.run(["git", "describe", "--always", "--dirty"], cwd=ROOT, check=True,
                          capture_output=True, text=True).stdout.strip()


def result_file(form, name):
    return RESULTS / form / f"{name}.json"


def results_of_this_commit(form, names=MEASUREMENTS):
    files = [file for file in (result_file(form, name) for name in names) if file.exists()]
    here = commit()
    return [result for result in (json.loads(file.read_text()) for file in files) if result["commit"] == here]


def measured(form, name):
    """The figures, or the reason why there are none: the others are taken all the same."""
    try:
        return list(importlib.import_module(name).measure(form))
    except (Exception, SystemExit) as problem:
        traceback.print_exc()
        return [Figure(name, "-", f"failed: {problem}", False)]


def take(form, name):
    print(f"-- {name}", flush=True)
    started, before = time.monotonic(), sweep_world.totals()
    figures = measured(form, name)
    result = {
        "form": form,
        "commit": commit(),
        "date": datetime.date.today().isoformat(),
        "seconds": round(time.monotonic() - started),
        "figures": [vars(figure) for figure in figures],
        **{name: count - before[name] for name, count in sweep_world.totals().items()},
    }
    file = result_file(form, name)
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(json.dumps(result, indent=1))
    return figures


def run(form, names):
    started = time.monotonic()
    figures = [figure for name in names for figure in take(form, name)]
    print("\n".join(table(figures)))
    print(f"took {(time.monotonic() - started) / 60:.0f} minutes")
    return any(figure.reached is False for figure in figures)


def last_result(name):
    """What was measured last, in the quick form only where there is no other."""
    files = [file for file in (result_file(form, name) for form in FORMS) if file.exists()]
    if not files:
        sys.exit(f"{name} was not measured yet")
    long = [file for file in files if file.parent.name != "quick"]
    return json.loads(max(long or files, key=lambda file: file.stat().st_mtime).read_text())


def survivors():
    """As differences, in a block."""
    mutation = importlib.import_module("mutation")  # lazily, like all measurements
    shown = [line for one in mutation.survivors()
             for line in (f"@@ {one['unit']} {one['line']}", f"-{one['was']}", f"+{one['is']}")]
    return ["```diff", *shown, "```"] if shown else []


def write_page():
    results = {name: last_result(name) for name in MEASUREMENTS}
    figures = ((name, Figure(**figure)) for name, result in results.items() for figure in result["figures"])
    runs = ((name, result["form"], f"{result['seconds']} s", result["commit"], result["date"])
            for name, result in results.items())
    PAGE.write_text("\n".join((
        "# Robustness, as measured",
        "",
        f"Written by `./run robustness page` from the last runs on a machine with {os.cpu_count()} processors.",
        "[guarantees.md](guarantees.md) says what each figure means. `./run robustness full MEASUREMENT` takes",
        "those of a measurement again; what is not run in that form needs `release`.",
        "",
        *aligned(("figure", "goal", "measured", "", "measurement"),
                 *((f.name, f.goal, f.measured, verdict(f), name) for name, f in figures)),
        "",
        *aligned(("measurement", "form", "took", "of commit", "on"), *runs),
        "",
        "## Mutants that no test notices",
        "",
        "Those of the last sample that are not explained in `robustness/equivalent_mutants.txt`.",
        "",
        *(survivors() or ["None."]),
        "")))


def main(arguments):
    if arguments == ["page"]:
        return write_page()
    if not arguments or arguments[0] not in FORMS or set(arguments[1:]) - set(MEASUREMENTS):
        sys.exit(__doc__)
    return run(arguments[0], arguments[1:] or MEASUREMENTS)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
