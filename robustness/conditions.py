#!/usr/bin/env python3
"""For each condition: do two test runs exist that differ in it alone and in the decision (MC/DC)?
Those that cannot be shown stand in inconclusive_conditions.txt, each with its reason.

A process that is killed loses its counters, and so do those of a function that is never called.
"""
import collections
import json
import os
import subprocess

import explanations
import figures
import suite

TREE = figures.BUILD / "conditions"
COUNTERS = TREE / "counters"
LEFT_OUT = rf"{figures.REPETITIVE}|\.corpus|^(examples|demo)\."  # some of them are not built here
OURS = ("app/", "utils/", "cxxutils/")


def run_tests():
    """Whether all passed. Each process leaves a file of its own."""
    counters = suite.empty_folder(COUNTERS)
    return suite.passes("conditions", LEFT_OUT, {"LLVM_PROFILE_FILE": str(counters / "%p-%m.profraw")})


def programs():
    return [file for file in [TREE / "kalmora-sweep", *sorted((TREE / "tests").iterdir())]
            if file.is_file() and os.access(file, os.X_OK) and not file.suffix]


def exported():
    """What llvm-cov knows of each decision of our sources."""
    listed, merged = TREE / "counters.txt", TREE / "counters.profdata"
    listed.write_text("".join(f"{file}\n" for file in COUNTERS.iterdir() if file.stat().st_size))
    subprocess.run(["llvm-profdata-19", "merge", "-sparse", "-failure-mode=all",
                    f"--input-files={listed}", "-o", merged], check=True, stderr=subprocess.DEVNULL)
    first, *others = programs()
    done = subprocess.run(
        ["llvm-cov-19", "export", "--skip-expansions", f"--instr-profile={merged}", first,
         *(f"--object={other}" for other in others)], check=True, capture_output=True, cwd=TREE)
    return json.loads(done.stdout)["data"][0]["files"]


def source_of(exported_name):
    """The path below the root, if the file is ours. Paths in the build are relative to it."""
    name = exported_name.split("build/", 1)[-1].removeprefix("./")
    return name if name.startswith(OURS) else None


def decisions():
    """For each decision, by unit and place, what was shown of its conditions. A template has a record
    for each instance, and what one instance shows is shown."""
    shown = collections.defaultdict(list)
    for file in exported():
        name = source_of(file["filename"])
        for *place, _, _, conditions in file["mcdc_records"] if name else ():
            shown[name, *place].append(conditions)
    return {place: [any(of_instances) for of_instances in zip(*records)]
            for place, records in shown.items()}


def text_of(place):
    """The decision as it is written, on one line."""
    name, first_line, first_column, last_line, last_column = place
    lines = (figures.ROOT / name).read_text().splitlines()[first_line - 1:last_line]
    lines[-1] = lines[-1][:last_column - 1]
    lines[0] = lines[0][first_column - 1:]
    return " ".join(" ".join(lines).split())


def measure(form):
    name = "conditions shown to decide (MC/DC)"
    goal = "all but those listed"
    if form == "quick":  # the build alone takes minutes
        yield figures.not_run(name, goal)
        return
    if not suite.built("conditions", "tests/all", "tests/contract/all"):
        raise SystemExit("the build for conditions failed")
    passed = run_tests()
    taken = decisions()
    expected = explanations.explained(explanations.CONDITIONS)
    missing = {(place[0], text_of(place), str(number + 1)) for place, conditions in taken.items()
               for number, shown in enumerate(conditions) if not shown}
    total = sum(map(len, taken.values()))
    for unit, decision, number in sorted(missing ^ expected):
        kind = "not shown" if (unit, decision, number) in missing else "listed, but shown or gone"
        print(f"{kind}: {unit}: condition {number} of {decision}")
    yield figures.Figure(name, goal, f"{total - len(missing)} of {total}, {len(expected)} listed"
                         f"{suite.note('conditions', passed)}", passed and missing == expected)


if __name__ == "__main__":
    figures.main(measure)
