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
# Those whose input is text: they run 100 million times before a release.
OF_TEXT = ("directories", "files", "logger", "path", "record", "text", "wildcard")
RUNS_OF_TEXT = 10**8


def program(target):
    return figures.BUILD / "asan" / "fuzz" / f"{target}_fuzz"


def seconds(target, form):
    shares = next((len(sharing) for sharing in SHARING if target in sharing), 1)
    return max(2, SECONDS[form] // shares)


def limits(target, form):
    if form == "release" and target in OF_TEXT:
        return [f"-runs={RUNS_OF_TEXT}"]
    return [f"-max_total_time={seconds(target, form)}"]


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
    goal = "10^8 each for text"
    if form != "release":
        yield figures.not_run("fuzz runs before release", goal)
        return
    least = min(runs for target, (runs, _) in results.items() if target in OF_TEXT)
    yield figures.Figure("fuzz runs before release", goal, f"{least / 1e8:.2f} x 10^8 at least",
                         least >= RUNS_OF_TEXT)


if __name__ == "__main__":
    figures.main(measure)
