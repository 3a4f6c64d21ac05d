#!/usr/bin/env python3
"""Every fuzz target for a while, as many at once as there are processors. An input that fails, or takes
longer than a minute, is left in the fuzz build and named; it belongs into the area's bundle, under a
name, with the fix. On a busy machine any input may take ten seconds; the fuzzer leaves it there as a slow
unit, which is no failure.

The runs of all forms add up, for as long as a target is the same program: what is wanted before a release
takes hours, and need not be run at once. Its inputs are short, as a long one takes the time of many; the
full form has long ones, too.
"""
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess

import corpora
import figures
from figures import areas

SECONDS = {"quick": 5, "full": 600, "release": 7200}  # at most, for an area
TARGETS = areas.all_of("fuzz")
# Targets that share the time of one area, but before a release.
SHARING = (("hash", "hash_pairs", "list", "mpool", "plist", "temp_mem", "uid"),
           ("barrier", "reduce", "sema"))
# Those whose input is text, of which there is more to tell apart.
OF_TEXT = ("directories", "files", "logger", "path", "record", "text", "wildcard")
BEFORE_RELEASE = {"text": 8, "other": 7}  # the runs of each target of a kind, as a power of 10
LONGEST = {"text": 640, "other": 128}  # input before a release: twice the longest field of a record
# What an input frees stays forbidden until the next ones, but does not push the rest out of the cache.
ENVIRONMENT = {**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1"}
COUNTS = figures.BUILD / "fuzz" / "runs.json"


def program(target):
    return figures.BUILD / "asan" / "fuzz" / f"{target}_fuzz"


def seconds(target, form):
    sharing = next((sharing for sharing in SHARING if target in sharing), (target,))
    return SECONDS[form] if form == "release" else max(2, SECONDS[form] // len(sharing))


def identity(target):
    return hashlib.sha256(program(target).read_bytes()).hexdigest()


def kind_of(target):
    return "text" if target in OF_TEXT else "other"


def runs_so_far(targets):
    """Of each as the program that it is now."""
    kept = json.loads(COUNTS.read_text()) if COUNTS.exists() else {}
    return {target: kept.get(identity(target), 0) for target in targets}


def limits(target, form, so_far):
    longest = f"-max_total_time={seconds(target, form)}"
    if form != "release":
        return [longest]
    kind = kind_of(target)
    left = 10**BEFORE_RELEASE[kind] - so_far
    return [f"-runs={max(left, 1)}", f"-max_len={LONGEST[kind]}", longest]


def run(target, form, so_far):
    """(runs made, whether all properties held)."""
    own = figures.BUILD / "fuzz" / "corpus" / target
    findings = figures.BUILD / "fuzz" / "findings" / target
    for directory in (own, findings):
        directory.mkdir(parents=True, exist_ok=True)
    command = [program(target), *limits(target, form, so_far), "-print_final_stats=1",
               "-rss_limit_mb=2048", "-timeout=60", f"-artifact_prefix={findings}/", own,
               corpora.unpacked(target)]
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False,
                          env=ENVIRONMENT)
    runs = re.search(r"number_of_executed_units: (\d+)", done.stderr)
    if done.returncode != 0:
        print(f"{target} failed, its input is below {findings}\n{done.stderr[-2000:]}")
    return int(runs[1]) if runs else 0, done.returncode == 0


def before_release(kind, so_far):
    power = BEFORE_RELEASE[kind]
    runs = {target: so_far.get(target, 0) for target in TARGETS if kind_of(target) == kind}
    least = min(runs, key=runs.get)
    enough = sum(count >= 10**power for count in runs.values())
    return figures.Figure(f"fuzz runs of {kind} targets, all forms", f"10^{power} each",
                          f"{enough} of {len(runs)}, {runs[least]:,} at least ({least})",
                          figures.if_enough(True, enough == len(runs)))


def measure(form):
    built = [target for target in TARGETS if program(target).exists()]
    built.sort(key=lambda target: -seconds(target, form))  # no long one ends alone
    so_far = runs_so_far(built)
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        results = dict(zip(built, pool.map(lambda target: run(target, form, so_far[target]), built)))
    failed = [target for target, (_, held) in results.items() if not held]
    total = sum(runs for runs, _ in results.values())
    yield figures.Figure("fuzz targets", f"{len(TARGETS)}", f"{len(built)}", len(built) == len(TARGETS))
    yield figures.Figure("open fuzz findings", "0",
                         f"{len(failed)} in {total / 1e6:.1f} million runs {' '.join(failed)}".strip(),
                         not failed)
    so_far = {target: so_far[target] + runs for target, (runs, _) in results.items()}
    COUNTS.write_text(json.dumps({identity(target): runs for target, runs in so_far.items()}, indent=1))
    for kind in BEFORE_RELEASE:
        yield before_release(kind, so_far)


if __name__ == "__main__":
    figures.main(measure)
