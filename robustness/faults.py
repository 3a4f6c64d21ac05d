"""What the library makes of memory, disks and descriptors that run out, and of calls that move one
byte at a time. The test programs do the work and tell how far they came.
"""
import re
import subprocess

import figures
from figures import BUILD, Figure, if_enough, percent

POINTS = re.compile(r"^\w+: (\d+) of (\d+) allocation points survived$", re.MULTILINE)
COUNTS = re.compile(r"^\[  (PASSED|SKIPPED|FAILED) \s*\] (\d+) tests?[.,]", re.MULTILINE)
LIMIT_SECONDS = 300


def run_tests(program):
    """Its standard output and whether it ended well, which a crash half-way does not."""
    try:
        ended = subprocess.run([BUILD / "release" / "tests" / program], stdin=subprocess.DEVNULL,
                               capture_output=True, text=True, errors="replace",
                               timeout=LIMIT_SECONDS)
    except (OSError, subprocess.TimeoutExpired) as problem:
        return str(problem), False
    return ended.stdout, ended.returncode == 0


def allocation_points():
    output, passed = run_tests("every_allocation_test")
    areas = [(int(survived), int(failed)) for survived, failed in POINTS.findall(output)]
    survived, failed = sum(area[0] for area in areas), sum(area[1] for area in areas)
    # The program asks for one failure more in each area until none is left to fail.
    reached = passed and 0 < failed == survived
    measured = f"{'100 %' if passed else 'not all'} / {percent(survived, failed)} of {failed}"
    return Figure("library allocation points failed / surviving", "100 % / 100 %", measured,
                  reached)


def case_counts(outputs):
    counts = {"PASSED": 0, "SKIPPED": 0, "FAILED": 0}
    for kind, count in COUNTS.findall("\n".join(outputs)):
        counts[kind] += int(count)
    return counts


def short_supplies():
    results = [run_tests(program) for program in ("short_io_test", "limits_test")]
    counts = case_counts(output for output, _ in results)
    measured = f"{counts['PASSED']} cases as stated"
    for kind in ("SKIPPED", "FAILED"):
        measured += f", {counts[kind]} {kind.lower()}" if counts[kind] else ""
    good = all(passed for _, passed in results) and counts["PASSED"] > 0
    return Figure("short reads and writes, full disk, no descriptors", "stated results", measured,
                  if_enough(good, not counts["SKIPPED"]))


def measure(form):
    yield allocation_points()
    yield short_supplies()


if __name__ == "__main__":
    figures.main(measure)
