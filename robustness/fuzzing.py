#!/usr/bin/env python3
"""Every fuzz target for a while, as many at once as there are processors. An input that fails, or takes
longer than a minute, is left in the fuzz build and named; it belongs in the area's bundle, under a
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
import tempfile
import threading

import corpora
import figures
from figures import areas

SECONDS = {"quick": 5, "full": 600, "release": 7200}  # at most, for an area
TARGETS = areas.all_of("fuzz")
# Those that start up to a hundred threads for an input; tests/schedules follows the same code in order.
OF_THREADS = ("barrier", "reduce", "sema")
# Targets that share the time of one area, but before a release.
SHARING = (("hash", "hash_pairs", "list", "mpool", "plist", "temp_mem", "uid"), OF_THREADS)
# Those whose input is text, of which there is more to tell apart.
OF_TEXT = ("directories", "files", "logger", "path", "record", "text", "wildcard")
# Before a release: the runs of each target of a kind, as a power of 10, and its longest input. That of a
# text is more than twice the longest field of a record.
BEFORE_RELEASE = {"text": 8, "other": 7, "threaded": 5}
LONGEST = {"text": 640, "other": 128, "threaded": 128}
# What an input frees stays forbidden until the next ones, but does not push the rest out of the cache.
ENVIRONMENT = {**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1"}
COUNTS = figures.BUILD / "fuzz" / "runs.json"
COUNTING = threading.Lock()


def program(target):
    return figures.BUILD / "asan" / "fuzz" / f"{target}_fuzz"


def seconds(target, form):
    sharing = next((sharing for sharing in SHARING if target in sharing), (target,))
    return SECONDS[form] if form == "release" else max(2, SECONDS[form] // len(sharing))


def identity(target):
    """Of what runs: without what a debugger reads, and the id made from it, which a comment may change."""
    with tempfile.NamedTemporaryFile() as copy:
        leaving = ("--strip-debug", "--remove-section=.note.gnu.build-id")
        subprocess.run(["objcopy", *leaving, program(target), copy.name], check=True)
        return hashlib.sha256(copy.read()).hexdigest()


def kind_of(target):
    return "text" if target in OF_TEXT else "threaded" if target in OF_THREADS else "other"


def kept_counts():
    """By what the program is, so that a target that changes begins anew."""
    return json.loads(COUNTS.read_text()) if COUNTS.exists() else {}


def runs_so_far(target):
    return kept_counts().get(identity(target), 0) if program(target).exists() else 0


def keep_count(target, runs):
    """At once, as the measurement may be stopped before the other targets have ended."""
    with COUNTING:
        counts = {**kept_counts(), identity(target): runs_so_far(target) + runs}
        COUNTS.write_text(json.dumps(counts, indent=1))


def limits(target, form):
    longest = f"-max_total_time={seconds(target, form)}"
    if form != "release":
        return [longest]
    kind = kind_of(target)
    left = 10**BEFORE_RELEASE[kind] - runs_so_far(target)
    return [f"-runs={max(left, 1)}", f"-max_len={LONGEST[kind]}", longest]


def run(target, form):
    """(runs made, whether all properties held)."""
    own = figures.BUILD / "fuzz" / "corpus" / target
    findings = figures.BUILD / "fuzz" / "findings" / target
    for directory in (own, findings):
        directory.mkdir(parents=True, exist_ok=True)
    command = [program(target), *limits(target, form), "-print_final_stats=1",
               "-rss_limit_mb=2048", "-timeout=60", f"-artifact_prefix={findings}/", own,
               corpora.unpacked(target)]
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False,
                          env=ENVIRONMENT)
    made = re.search(r"number_of_executed_units: (\d+)", done.stderr)
    runs = int(made[1]) if made else 0
    keep_count(target, runs)
    if done.returncode != 0:
        print(f"{target} failed, its input is below {findings}\n{done.stderr[-2000:]}")
    return runs, done.returncode == 0


def before_release(kind):
    power = BEFORE_RELEASE[kind]
    runs = {target: runs_so_far(target) for target in TARGETS if kind_of(target) == kind}
    least = min(runs, key=runs.get)
    enough = sum(count >= 10**power for count in runs.values())
    return figures.Figure(f"fuzz runs of {kind} targets, all forms", f"10^{power} each",
                          f"{enough} of {len(runs)}, {runs[least]:,} at least ({least})",
                          figures.if_enough(True, enough == len(runs)))


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
    for kind in BEFORE_RELEASE:
        yield before_release(kind)


if __name__ == "__main__":
    figures.main(measure)
