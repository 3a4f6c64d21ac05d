#!/usr/bin/env python3
"""Integer operations of the product that lose something, as clang's integer sanitizer reports them
while the tests run and the corpora are replayed: unsigned overflow, bits that are shifted out,
implicit conversions that change a value. Those that are meant are listed in meant_wrap_arounds.txt,
each with its reason.
"""
import re

import explanations
import figures
import suite

REPORTS = figures.BUILD / "integer" / "reports"
LEFT_OUT = rf"{figures.REPETITIVE}|{figures.EXHAUSTIVE}|^(model|examples|demo)\."  # some are not built here
REPORT = re.compile(rf"^{re.escape(str(figures.ROOT))}/((?:app|utils|cxxutils)/[^:]+):(\d+):\d+: "
                    r"runtime error: (\w+ \w+(?: overflow)?)", re.MULTILINE)


def run_tests():
    """Each process reports to a file of its own, and to another when it becomes another program. Some
    tests notice the file and fail, after they have done what they test."""
    reports = suite.empty_folder(REPORTS)
    suite.passes("integer", LEFT_OUT, {"UBSAN_OPTIONS": f"log_path={reports}/report:log_exe_name=1"})


def text_at(unit, line):
    return (figures.ROOT / unit).read_text().splitlines()[int(line) - 1].strip()


def reported():
    """The places: unit, line as it is written, and what happened there."""
    found = {report for file in REPORTS.iterdir()
             for report in REPORT.findall(file.read_text(errors="replace"))}
    return {(unit, text_at(unit, line), kind) for unit, line, kind in found}


def measure(form):
    name, goal = "numbers that lose what does not fit", "only where it is meant"
    if form == "quick":  # the build alone takes minutes
        yield figures.not_run(name, goal)
        return
    if not suite.built("integer", "tests/all", "tests/contract/all", "fuzz/all"):
        raise SystemExit("the build for the integer sanitizer failed")
    run_tests()
    found, meant = reported(), explanations.explained(explanations.WRAP_AROUNDS)
    for place in sorted(found ^ meant):
        print("not meant:" if place in found else "listed, but not reported:", *place, sep="\n  ")
    yield figures.Figure(name, goal, f"{len(found - meant)} others, {len(meant)} listed", found == meant)


if __name__ == "__main__":
    figures.main(measure)
