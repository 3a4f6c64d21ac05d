#!/usr/bin/env python3
"""The test suite under the sanitizers. The quick form looks at the last runs of `./run asan` and
`./run tsan`, which the gate makes anyway; the longer forms make them.
"""
import subprocess
import xml.etree.ElementTree as xml

import figures

PRESETS = ("asan", "tsan")


def run_suite(preset):
    """A failure shows in the counts."""
    subprocess.run([figures.ROOT / "run", preset], stdout=subprocess.DEVNULL, check=False)


def counts(preset):
    """(tests, failures) of the last run, or None."""
    report = figures.BUILD / preset / "tests.xml"
    if not report.exists():
        return None
    suite = xml.parse(report).getroot()
    return int(suite.get("tests")), int(suite.get("failures"))


def measure(form):
    if form != "quick":
        for preset in PRESETS:
            run_suite(preset)
    found = {preset: counts(preset) for preset in PRESETS}
    if None in found.values():
        yield figures.not_run("open sanitizer findings", "0")
        return
    findings = sum(failures for _, failures in found.values())
    shown = ", ".join(f"{preset}: {tests} tests" for preset, (tests, _) in found.items())
    yield figures.Figure("open sanitizer findings", "0", f"{findings} ({shown})", findings == 0)


if __name__ == "__main__":
    figures.main(measure)
