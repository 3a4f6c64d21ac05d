#!/usr/bin/env python3
"""Every fuzz target for a while, as many at once as there are processors. An input that fails, or takes
longer than ten seconds, is left in the fuzz build and named; it belongs into the area's bundle, under
a name, with the fix.
"""
import concurrent.futures
import re
import subprocess

import corpora
import figures
from figures import areas

SECONDS = {"quick": 5, "full": 600, "release": 3600}  # for an area
TARGETS = areas.all_of("fuzz")
# Targets that share the time of one area.
SHARING = (("hash", "hash_pairs", "list", "mpool", "plist", "temp_mem", "uid"),
           ("barrier", "reduce", "sema"))
# Those whose input is text: before a release they run 100 million times, or for an hour where an input
# is taken through many properties.
OF_TEXT = ("directories", "files", "logger", "path", "record", "text", "wildcard")
RUNS_OF_TEXT = 10**8


def program(target):
    return figures.BUILD / "asan" / "fuzz" / f"{target}_fuzz"


def seconds(target, form):
    shares = next((len(sharing) for sharing in SHARING if target in sharing), 1)
    return max(2, SECONDS[form] // shares)


def limits(target, form):
    longest = f"-max_total_time={seconds(target, form)}"
    return [f"-runs={RUNS_OF_TEXT}", longest] if form == "release" and target in OF_TEXT else [longest]


def run(target, form):
    """(runs made, whether all properties held)."""
    own = figures.BUILD / "fuzz" / "corpus" / target
    findings = figures.BUILD / "fuzz" / "findings" / target
    for directory in (own, findings):
        directory.mkdir(parents=True, exist_ok=True)
    command = [program(target), *limits(target, form), "-print_final_stats=1", "-rss_limit_mb=2048",
               "-timeout=10", f"-artifact_prefix={findings}/", own, corpora.unpacked(target)]
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False)
    runs = re.search(r"number_of_executed_units: (\d+)", done.stderr)
    if done.returncode != 0:
        print(f"{target} failed, its input is below {findings}\n{done.stderr[-2000:]}")
    return int(runs[1]) if runs else 0, done.returncode == 0


def measure(form):
    built = [target for target in TARGETS if program(target).exists()]
    built.sort(key=lambda target: -seconds(target, form))  # no long one ends alone
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        results = dict(zip(built, pool.map(lambda target: run(target, form), built)))
    failed = [target for target, (_, held) in results.items() if not held]
    total = sum(runs for runs, _ in results.values())
    yield figures.Figure("fuzz targets", f"{len(TARGETS)}", f"{len(built)}", len(built) == len(TARGETS))
    yield figures.Figure("open fuzz findings", "0",
                         f"{len(failed)} in {total / 1e6:.1f} million runs {' '.join(failed)}".strip(),
                         not failed)
    name, goal = "fuzz runs before release", "10^8 or an hour each for text"
    if form != "release":
        yield figures.not_run(name, goal)
        return
    of_text = {target: results[target] for target in built if target in OF_TEXT}
    shown = ", ".join(f"{target} {runs / 1e6:.0f}" for target, (runs, _) in of_text.items())
    yield figures.Figure(name, goal, f"{shown} million", all(held for _, held in of_text.values()))


if __name__ == "__main__":
    figures.main(measure)
