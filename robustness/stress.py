#!/usr/bin/env python3
"""The stress programs of tests/stress: what is done at once by many threads, for long. The quick
form runs them in their quick size, which shows a hang or a race but not the goals' numbers. A
program that hangs ends itself.
"""
import dataclasses
import json
import os
import re
import subprocess
import tempfile

import figures

# The first have descriptors of their own and are quick; the others open none and take minutes.
WITH_DESCRIPTORS = r"^(blocks|dir_list|pipe|record)\."
WITHOUT_DESCRIPTORS = rf"\.corpus$|{figures.EXHAUSTIVE}"


@dataclasses.dataclass(frozen=True)
class Case:
    """A case of a stress program; `goal` is the count that it has to record."""
    figure: str
    shown_goal: str
    goal: int
    area: str
    test: str


CASES = (
    Case("reduction cycles without a hang", "10^6", 10**6, "reduce",
         "ReduceStress.GoesOnWhileGroupsOfTwoToSixteenThreadsShrink"),
    Case("rounds of 2047 threads created and joined", "10", 10, "thread",
         "ThreadStress.RunsTheMostThreadsAtOnce"),
    Case("threads created, cancelled and joined", "20,000", 20_000, "thread",
         "ThreadStress.CancelsAndJoinsOverAndOver"),
    Case("pool elements taken by 8 threads", "8 x 10^6", 8 * 10**6, "mpool",
         "MpoolStress.SharesOnePoolWithoutSharingAnElement"),
    Case("unique ids for 8 threads", "8 x 10^6", 8 * 10**6, "uid",
         "UidStress.HandsEveryIdOutOnce"),
    Case("rounds of 64 semaphore waiters", "10^4", 10**4, "sema",
         "SemaStress.LetsAllWaitersOfAGroupPass"),
    Case("commands forked by 4 threads, nothing left", "4 x 10^3", 4 * 10**3, "pipe",
         "PipeStress.LeavesNoDescriptorAndNoProcessBehind"),
)


def program(preset, area):
    return figures.BUILD / preset / "tests" / "stress" / f"{area}_stress"


def run_case(executable, test, form):
    """What the framework reports of the case, or None when it failed, crashed or hung. A finding
    of a sanitizer shows in the exit status alone."""
    with tempfile.TemporaryDirectory() as scratch:
        report = os.path.join(scratch, "report.json")
        command = [executable, f"--gtest_filter={test}", f"--gtest_output=json:{report}"]
        done = subprocess.run(command, env={**os.environ, "QAL_STRESS": form}, check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if done.returncode != 0:
            return None
        with open(report, encoding="utf-8") as file:
            return json.load(file)["testsuites"][0]["testsuite"][0]


def counted(name, goal, report, least):
    """A smaller count than the goal's can only show a miss, and so can a skipped case."""
    if report is None:
        return figures.Figure(name, goal, "failed", False)
    if "count" not in report:
        return figures.Figure(name, goal, "the system does not allow it", None)
    count = int(report["count"])
    return figures.Figure(name, goal, f"{count:,}", figures.if_enough(True, count >= least))


def figure_of(case, form):
    report = run_case(program("release", case.area), case.test, form)
    return counted(case.figure, case.shown_goal, report, case.goal)


def threads_under_sanitizer(form):
    name, goal = "threads at once, TSan clean", "2047"
    executable = program("tsan", "thread")
    if form == "quick" or not executable.exists():  # the gate builds it at the same time
        return figures.not_run(name, goal)
    report = run_case(executable, "ThreadStress.RunsTheMostThreadsAtOnce", form)
    figure = counted(name, goal, report, 1)
    return dataclasses.replace(figure, measured=goal) if figure.reached else figure


def leaked_descriptors(form):
    """Every test program looks for descriptors left open after each of its tests."""
    name, goal = "descriptors leaked after any test", "0"
    choice = ["-R", WITH_DESCRIPTORS] if form == "quick" else ["-E", WITHOUT_DESCRIPTORS]
    done = subprocess.run(["ctest", "--test-dir", figures.BUILD / "release", "--output-on-failure",
                           "-j", str(figures.JOBS), *choice],
                          capture_output=True, text=True, errors="replace", check=False)
    tests = re.search(r"tests failed out of (\d+)", done.stdout)
    if not tests:
        return figures.not_run(name, goal)
    leaking = done.stdout.count("descriptors left open")
    shown = f"{leaking} over {tests[1]} tests" + (", some failed" if done.returncode else "")
    reached = figures.if_enough(not leaking and done.returncode == 0, form != "quick")
    return figures.Figure(name, goal, shown, reached)


def measure(form):
    yield threads_under_sanitizer(form)
    for case in CASES:
        yield figure_of(case, form)
    yield leaked_descriptors(form)


if __name__ == "__main__":
    figures.main(measure)
