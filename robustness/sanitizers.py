#!/usr/bin/env python3
"""The test suite under the sanitizers: `./run asan` and `./run tsan`. The quick form leaves it out, as the
gate runs both anyway.
"""
import subprocess
import xml.etree.ElementTree as xml

import figures

PRESETS = ("asan", "tsan")


def report_of(preset):
    return figures.BUILD / preset / "tests.xml"


def run_suite(preset):
    """A failure shows in the counts, and a build that fails in that there are none."""
    report_of(preset).unlink(missing_ok=True)
    subprocess.run([figures.ROOT / "run", preset], stdout=subprocess.DEVNULL, check=False)


def counts(preset):
    """(tests, failures) of the last run, or None."""
    if not report_of(preset).exists():
        return None
    suite = xml.parse(report_of(preset)).getroot()
    return int(suite.get("tests")), int(suite.get("failures"))


def measure(form):
    name, goal = "open sanitizer findings", "0"
    if form == "quick":
        yield figures.not_run(name, goal)
        return
    for preset in PRESETS:
        run_suite(preset)
    found = {preset: counts(preset) for preset in PRESETS}
    if None in found.values():
        yield figures.Figure(name, goal, "the suite did not run", False)
        return
    findings = sum(failures for _, failures in found.values())
    shown = ", ".join(f"{preset}: {tests} tests" for preset, (tests, _) in found.items())
    yield figures.Figure(name, goal, f"{findings} ({shown})", findings == 0)


if __name__ == "__main__":
    figures.main(measure)
