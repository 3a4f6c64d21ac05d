"""What a measurement of this directory is: a module with a function `measure(form)` that yields
the figures it took. A form is "quick", "full" or "release"; each measures more than the one before.
Every module runs alone too: `python3 robustness/MODULE.py [FORM]`.
"""
import dataclasses
import os
import pathlib
import subprocess
import sys

FORMS = ("quick", "full", "release")
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT))
import areas  # of the folder above, for whoever measures

BUILD = pathlib.Path(os.environ.get("QAL_BUILD", ROOT / "build"))  # one build tree per preset below
RESULTS = BUILD / "robustness" / "results"  # of the dashboard: one file per form and measurement
JOBS = int(os.environ.get("QAL_JOBS", os.cpu_count()))  # of one kind at once
TOOL = BUILD / "release" / "kalmora-sweep"

# Tests that most measurements leave out, as expressions of ctest's.
EXHAUSTIVE = rf"^({'|'.join(areas.all_of('exhaustive'))})\."
REPETITIVE = r"_stress\.|_schedules\."  # repeating a case reaches nothing new


@dataclasses.dataclass(frozen=True)
class Figure:
    """One line of the dashboard. `reached` is None where this form does not measure it."""
    name: str
    goal: str
    measured: str
    reached: bool | None


def not_run(name, goal):
    return Figure(name, goal, "not run here", None)


def if_enough(good, enough):
    """False if the goal is missed; True if it is met by a large enough run; else None."""
    return False if not good else (True if enough else None)


def percent(part, whole):
    """Rounded down: 100 % are all."""
    return f"{100 * part // whole} %" if whole else "nothing"


def verdict(figure):
    return {None: "-", True: "reached", False: "NOT REACHED"}[figure.reached]


def aligned(head, *rows):
    """The lines of a table in Markdown whose columns are aligned for a terminal as well."""
    widths = [max(map(len, column)) for column in zip(head, *rows)]
    ruler = ["-" * width for width in widths]
    return ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
            for row in (head, ruler, *rows)]


def table(figures):
    return aligned(("figure", "goal", "measured", ""),
                   *((f.name, f.goal, f.measured, verdict(f)) for f in figures))


def test_names(program, chosen="*"):
    """The cases of a test program that the filter chooses, as the framework lists them below their
    suites."""
    listed = subprocess.run([program, f"--gtest_filter={chosen}", "--gtest_list_tests"], check=True,
                            capture_output=True, text=True).stdout
    names, suite = [], ""
    for line in listed.splitlines():
        name = line.split("#")[0].strip()
        if line.startswith("  "):
            names.append(suite + name)
        elif line and not line.startswith("Running"):
            suite = name
    return names


def main(measure):
    """The command line of a measurement: prints its table; 1 when a figure is not reached."""
    form = sys.argv[1] if len(sys.argv) > 1 else "quick"
    if form not in FORMS:
        sys.exit(f"usage: {sys.argv[0]} [{'|'.join(FORMS)}]")
    figures = list(measure(form))
    print("\n".join(table(figures)))
    sys.exit(any(figure.reached is False for figure in figures))
