#!/usr/bin/env python3
"""Which lines and branches of the product the tests run, and which the fuzz corpus runs alone.

The counters lie beside the objects of the coverage build. A process that is killed loses its own;
what it did is counted when another test gets there and lives.
"""
import collections
import json
import os
import pathlib
import shutil
import subprocess
import tempfile

import corpora
import figures
import suite
from figures import areas

TREE = figures.BUILD / "coverage"
LINES_GOAL, BRANCHES_GOAL, CORPUS_GOAL = 99, 95, 95
COVERAGE = ("line / branch coverage", f"{LINES_GOAL} % / {BRANCHES_GOAL} %")
CORPUS = ("fuzz corpus, lines of the target's unit", f">= {CORPUS_GOAL} %")
# The first fails every allocation in turn, those of the counters too.
LEFT_OUT = rf"^every_allocation\.|{figures.REPETITIVE}"
OURS = ("app/", "utils/", "cxxutils/")


def forget_counts():
    """Empty counters beside every object; tests that gave up root write them too."""
    for notes in TREE.rglob("*.gcno"):
        counts = notes.with_suffix(".gcda")
        counts.write_bytes(b"")
        counts.chmod(0o666)


def run_tests():
    """Whether all passed. What the counters complain about goes to a file, not among the output
    that tests compare."""
    complaints = TREE / "complaints.log"
    complaints.write_bytes(b"")
    complaints.chmod(0o666)
    return suite.passes("coverage", LEFT_OUT, {"GCOV_ERROR_FILE": str(complaints)})


def summary():
    """What gcovr counted in all, but for the schedules, whose sources are copies with faults; the
    details lie in coverage.json of the build tree."""
    file = TREE / "summary.json"
    filters = [option for folder in OURS for option in ("--filter", folder)]
    subprocess.run(["gcovr", "--root", figures.ROOT, *filters, f"-j{figures.JOBS}", "--exclude-throw-branches",
                    "--exclude-unreachable-branches", "--exclude-directories", ".*/schedules(/.*)?",
                    "--json-summary", file,
                    "--json", TREE / "coverage.json", TREE], cwd=figures.ROOT, check=True)
    return json.loads(file.read_text())


def test_figure():
    passed = run_tests()
    counted = summary()
    lines, branches = (100 * counted[f"{kind}_covered"] / counted[f"{kind}_total"]
                       for kind in ("line", "branch"))
    return figures.Figure(*COVERAGE, f"{lines:.1f} % / {branches:.1f} %{suite.note('coverage', passed)}",
                          passed and lines >= LINES_GOAL and branches >= BRANCHES_GOAL)


def run_apart(target, folder):
    """Runs the corpus with counters of its own in `folder`, beside them the objects' notes."""
    environment = os.environ | {"GCOV_PREFIX": str(folder), "GCOV_PREFIX_STRIP": "99"}
    subprocess.run([TREE / "fuzz" / f"{target}_replay", corpora.bundle(target)], check=True,
                   env=environment, stdout=subprocess.DEVNULL)
    objects = TREE / "CMakeFiles", *(TREE / "fuzz" / "CMakeFiles" / f"{program}.dir"
                                     for program in (f"{target}_replay", "qal_replay"))
    for notes in (notes for place in objects for notes in place.rglob("*.gcno")):
        if notes.with_suffix(".gcda").name in os.listdir(folder):
            shutil.copy(notes, folder)


def counts_of(folder):
    """How often each line ran: unit -> function -> line -> times."""
    units = collections.defaultdict(lambda: collections.defaultdict(collections.Counter))
    done = subprocess.run(["gcov", "--json-format", "--stdout", *sorted(folder.glob("*.gcda"))],
                          cwd=folder, check=True, capture_output=True, text=True)
    for report in done.stdout.splitlines():
        for file in json.loads(report)["files"]:
            names = {function["name"]: function["demangled_name"]
                     for function in file["functions"]}
            for line in file["lines"]:
                function = names.get(line.get("function_name"), "")
                lines = units[file["file"].removeprefix("./")][function]
                lines[line["line_number"]] += line["count"]
    return units


def corpus_share(target):
    """The lines of what the fuzz target is about that its corpus runs, in percent."""
    with tempfile.TemporaryDirectory() as folder:
        run_apart(target, pathlib.Path(folder))
        counted = counts_of(pathlib.Path(folder))
    lines = collections.Counter()
    for unit, parts in areas.reach_of(target).items():
        for function, counts in counted[unit].items():
            if any(part in function for part in parts):
                lines.update({(unit, number): times for number, times in counts.items()})
    return 100 * sum(times > 0 for times in lines.values()) / max(1, len(lines))


def corpus_figure():
    shares = {target: corpus_share(target) for target in areas.all_of("fuzz")}
    least = min(shares, key=shares.get)
    return figures.Figure(*CORPUS, f"{shares[least]:.1f} % at least ({least})",
                          shares[least] >= CORPUS_GOAL)


def measure(form):
    if form == "quick":  # the build alone takes minutes
        yield from (figures.not_run(*named) for named in (COVERAGE, CORPUS))
        return
    if not suite.built("coverage"):
        raise SystemExit("the coverage build failed")
    forget_counts()
    yield test_figure()
    yield corpus_figure()


if __name__ == "__main__":
    figures.main(measure)
