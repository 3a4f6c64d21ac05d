#!/usr/bin/env python3
"""The suite over and over, eight tests at once and each time in another order: a test that fails once is
flaky. Comparisons with a model, corpora that start no thread and no process, and schedules answer the
same each time and are left out.
"""
import subprocess

import figures
from figures import areas

ROUNDS = {"full": 10, "release": 100}
AT_ONCE = 8
THREADED_CORPORA = [name.removesuffix(".corpus") for name in areas.all_of("threads") if name.endswith(".corpus")]


def the_same_each_time():
    """An expression of ctest's."""
    corpora = "|".join(sorted(set(areas.all_of("fuzz")) - set(THREADED_CORPORA)))
    return rf"^({corpora})\.corpus$|{figures.EXHAUSTIVE}|^model\.|_schedules\."


def failed_tests():
    """Of one round. A round that fails without a test is a failure as well."""
    tree = figures.BUILD / "release"
    failed = tree / "Testing" / "Temporary" / "LastTestsFailed.log"
    failed.unlink(missing_ok=True)  # a run in which all pass leaves that of another
    done = subprocess.run(["ctest", "--test-dir", tree, f"-j{AT_ONCE}", "--schedule-random",
                           "--timeout", "300", "-E", the_same_each_time(), "--quiet",
                           "--output-log", tree / "repeats.log"], check=False)
    if failed.exists():
        return failed.read_text().splitlines()
    return [] if done.returncode == 0 else ["ctest"]


def measure(form):
    name, goal = "flaky tests over 100 repeats", "0"
    if form == "quick":
        yield figures.not_run(name, goal)
        return
    rounds = ROUNDS[form]
    found = sorted({test for _ in range(rounds) for test in failed_tests()})
    yield figures.Figure(name, goal, " ".join([str(len(found)), f"over {rounds}", *found]),
                         figures.if_enough(not found, form == "release"))


if __name__ == "__main__":
    figures.main(measure)
