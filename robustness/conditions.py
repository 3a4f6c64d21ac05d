#!/usr/bin/env python3
"""For each condition: do two test runs exist that differ in it alone and in the decision (MC/DC)?
Those that cannot be shown stand in inconclusive_conditions.txt, each with its reason. And for each
branch of the critical units: was it taken, and was it not?

A process that is killed loses its counters, and so do those of a function that is never called.
"""
import collections
import json
import os
import subprocess

import explanations
import figures
import suite
from figures import areas

TREE = figures.BUILD / "conditions"
COUNTERS = TREE / "counters"
LEFT_OUT = rf"{figures.REPETITIVE}|\.corpus|^(examples|demo)\."  # some of them are not built here
OURS = ("app/", "utils/", "cxxutils/")
CONDITIONS = ("conditions shown to decide (MC/DC)", "all but those listed")
CRITICAL = ("branch coverage of critical units", "100 %")


def run_tests():
    """Whether all passed. Each process leaves a file of its own."""
    counters = suite.empty_folder(COUNTERS)
    return suite.passes("conditions", LEFT_OUT, {"LLVM_PROFILE_FILE": str(counters / "%p-%m.profraw")})


def programs():
    return [file for file in [TREE / "kalmora-sweep", *sorted((TREE / "tests").iterdir())]
            if file.is_file() and os.access(file, os.X_OK) and not file.suffix]


def exported():
    """What llvm-cov knows of each file."""
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


def shown(files, kind, outcomes):
    """For each record of that kind, by unit and place, which of its outcomes were seen. A template has a
    record for each instance, and what one instance shows is shown."""
    seen = collections.defaultdict(list)
    for file in files:
        name = source_of(file["filename"])
        for record in file[kind] if name else ():
            seen[name, *record[:4]].append(record[outcomes])
    return {place: [any(of_instances) for of_instances in zip(*records)]
            for place, records in seen.items()}


def text_of(place):
    """The decision as it is written, on one line."""
    name, first_line, first_column, last_line, last_column = place
    lines = (figures.ROOT / name).read_text().splitlines()[first_line - 1:last_line]
    lines[-1] = lines[-1][:last_column - 1]
    lines[0] = lines[0][first_column - 1:]
    return " ".join(" ".join(lines).split())


def conditions_figure(files, passed):
    taken = shown(files, "mcdc_records", 6)
    expected = explanations.explained(explanations.CONDITIONS)
    missing = {(place[0], text_of(place), str(number + 1)) for place, conditions in taken.items()
               for number, decides in enumerate(conditions) if not decides}
    total = sum(map(len, taken.values()))
    for unit, decision, number in sorted(missing ^ expected):
        kind = "not shown" if (unit, decision, number) in missing else "listed, but shown or gone"
        print(f"{kind}: {unit}: condition {number} of {decision}")
    return figures.Figure(*CONDITIONS, f"{total - len(missing)} of {total}, {len(expected)} listed"
                          f"{suite.note('conditions', passed)}", passed and missing == expected)


def branches_figure(files, passed):
    critical = areas.all_of("critical")
    measured = {source_of(file["filename"]) for file in files}
    branches = {place: taken for place, taken in shown(files, "branches", slice(4, 6)).items()
                if place[0] in critical}
    for place in (place for place, taken in branches.items() if not all(taken)):
        print(f"one outcome only: {place[0]}:{place[1]}: {text_of(place)}")
    covered = sum(map(sum, branches.values()))
    total = 2 * len(branches)
    return figures.Figure(*CRITICAL, f"{covered} of {total}{suite.note('conditions', passed)}",
                          passed and covered == total and measured.issuperset(critical))


def measure(form):
    if form == "quick":  # the build alone takes minutes
        yield from (figures.not_run(*named) for named in (CRITICAL, CONDITIONS))
        return
    if not suite.built("conditions", "tests/all", "tests/contract/all"):
        raise SystemExit("the build for conditions failed")
    passed = run_tests()
    files = exported()
    yield branches_figure(files, passed)
    yield conditions_figure(files, passed)


if __name__ == "__main__":
    figures.main(measure)
