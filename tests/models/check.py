#!/usr/bin/env python3
"""Follows the models of the semaphore, the barrier and the reductions through every order in which
their threads can take their steps. `check.py` does all checks, `check.py NAME...` some of them and
`check.py --list` names them. With `--remember DIRECTORY` a search is not repeated while its program
stays the same. A model either holds, or it fails in the way that is known of it: a limit of the
protocol that is meant to be, or a step taken away to show that the model would tell.
"""
import argparse
import concurrent.futures
import contextlib
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import typing

HERE = pathlib.Path(__file__).resolve().parent
HANG = "invalid end state"
WRONG = "assertion violated"
DEEPEST = 1_000_000  # steps; a search that comes to it fails
MEMORY = 1500  # MiB; likewise
TOOLS = ("spin", "cc")


class Check(typing.NamedTuple):
    """A model, its definitions, the changes made to it as pairs of old and new text, and the error
    with which it fails, if it is meant to."""
    model: str
    defined: tuple = ()
    changes: tuple = ()
    fails_by: str | None = None
    may_wait_for_ever: bool = False


THREE = ("MEMBERS=3", "CYCLES=3", "FIRST=1")
TWO_CYCLES = ("MEMBERS=3", "CYCLES=2", "FIRST=3")
FOUR = ("MEMBERS=4", "CYCLES=2", "FIRST=4")
WITHOUT_IDLE_WAKES = ("NO_IDLE_WAKES=1",)  # the check of three threads has them

PROPERTIES = {
    "reduce_three_threads_in_any_groups": Check("reduce_groups", THREE),
    "sema_group_passes": Check("sema_group"),
    "sema_needs_permits": Check("sema_permits", may_wait_for_ever=True),
    "barrier_cycles": Check("barrier_cycles"),
    "reduce_four_threads_then_any_of_them": Check("reduce_groups", FOUR + WITHOUT_IDLE_WAKES),
}

# What the protocols cannot do, and what they would not do if they were simpler.
LIMITS = {
    "sema_turns_can_block": Check("sema_turns", fails_by=HANG),
    "sema_missing_release_blocks": Check("sema_group", ("MISSING=1",), fails_by=HANG),
    "reduce_by_phase_alone_hangs": Check(
        "reduce_groups", TWO_CYCLES, fails_by=HANG,
        changes=(("watched(b) barriers[b].generation", "watched(b) barriers[b].phase"),)),
    "reduce_reset_after_release_hangs": Check(
        "reduce_groups", TWO_CYCLES, fails_by=HANG, changes=(
            (":: else -> barriers[0].count = 0; barriers[1].count = 0", ":: else"),
            ("arrive(1, group[cycle], me);", """arrive(1, group[cycle], me);
               if
               :: last -> barriers[0].count = 0; barriers[1].count = 0
               :: else
               fi;"""))),
}

WITHOUT_A_STEP = {
    "sema_without_chain": Check(
        "sema_group", fails_by=HANG,
        changes=(("waiters--;\n     pass_on()", "waiters--"),)),
    "sema_release_without_signal": Check(
        "sema_group", fails_by=HANG,
        changes=((":: count == 0 -> signal(SEMA)", ":: count == 0 -> skip"),)),
    "sema_cancelled_keeps_its_claim": Check(
        "sema_group", fails_by=WRONG,
        changes=(("give_back() {\n  count++;", "give_back() {"),)),
    "sema_cancelled_wakes_nobody": Check(
        "sema_group", fails_by=HANG,
        changes=(("waiters--;\n  pass_on();", "waiters--;"),)),
    "sema_looks_once": Check(
        "sema_permits", fails_by=WRONG, may_wait_for_ever=True,
        changes=(("count < 0 -> wait(SEMA, me)", "count < 0 -> wait(SEMA, me); break"),)),
    "barrier_looks_once": Check(
        "barrier_cycles", fails_by=WRONG, changes=(("wait(b, me)", "wait(b, me); break"),)),
    "barrier_wakes_one": Check(
        "barrier_cycles", fails_by=HANG, changes=(("broadcast(b);", "signal(b);"),)),
    "barrier_never_refilled": Check(
        "barrier_cycles", fails_by=HANG,
        changes=(("== 0 -> barriers[b].remaining = barriers[b].count }", "== 0 }"),)),
    "barrier_can_be_cancelled": Check(
        "barrier_cycles", fails_by=HANG,
        changes=(("cancellable[me] = false;", "cancellable[me] = true;"),)),
    "reduce_with_one_barrier": Check(
        "reduce_groups", TWO_CYCLES, fails_by=WRONG,
        changes=(("arrive(1, group[cycle], me)", "barriers[0].count = 0"),)),
    "reduce_never_seeds_again": Check(
        "reduce_groups", TWO_CYCLES, fails_by=WRONG,
        changes=(("b == 0 -> first_time = false", "b == 0 -> skip"),)),
    "reduce_keeps_the_first_size": Check(
        "reduce_groups", TWO_CYCLES, fails_by=HANG,
        changes=(("barriers[0].count = 0; barriers[1].count = 0", "skip"),)),
}

CHECKS = PROPERTIES | LIMITS | WITHOUT_A_STEP

# Each takes half a minute and more than a gigabyte, so they are not among the tests.
LONG = {
    "reduce_four_threads_and_idle_wakes": Check("reduce_groups", FOUR),
}


def run(command, directory):
    done = subprocess.run(command, cwd=directory, capture_output=True, text=True)
    return done.returncode, done.stdout + done.stderr


def make(command, directory):
    status, output = run(command, directory)
    if status != 0:
        raise RuntimeError(f"{' '.join(command)}:\n{output}")


def change(directory, old, new):
    """Replaces `old`, which must occur once in one model, by `new`."""
    holders = [file for file in directory.glob("*.pml") if old in file.read_text()]
    if len(holders) != 1 or holders[0].read_text().count(old) != 1:
        raise RuntimeError(f"not in one place alone: {old!r}")
    holders[0].write_text(holders[0].read_text().replace(old, new))


def wanted(directory, model):
    """Copies the model with the files that it includes."""
    name = f"{model}.pml"
    text = (HERE / name).read_text()
    (directory / name).write_text(text)
    for included in re.findall(r'#include "(\w+)\.pml"', text):
        wanted(directory, included)


def write_program(check, directory):
    """Writes the program of the search and returns the commands that compile and run it."""
    wanted(directory, check.model)
    for old, new in check.changes:
        change(directory, old, new)
    make(["spin", *(f"-D{name}" for name in check.defined), "-a", f"{check.model}.pml"], directory)
    level = "-O0" if check.fails_by else "-O1"  # a search that fails ends soon
    ends = ["-E"] if check.may_wait_for_ever else []
    return (["cc", level, "-w", "-DSAFETY", f"-DMEMLIM={MEMORY}", "-o", "pan", "pan.c"],
            ["./pan", f"-m{DEEPEST}", *ends])


def digest(directory, commands):
    parts = [path.read_bytes() for path in sorted(directory.glob("pan.*"))]
    return hashlib.sha256(repr((parts, commands)).encode()).hexdigest()


def search(check, directory, remembered=None):
    """The report of the search through all states; the same program always gives the same one."""
    compile_it, run_it = commands = write_program(check, directory)
    file = remembered / digest(directory, commands) if remembered else None
    if file and file.exists() and as_expected(check, file.read_text()):
        return file.read_text()
    make(compile_it, directory)
    report = run(run_it, directory)[1]
    if file:
        remember(file, report)
    return report


def remember(file, report):
    """Whole or not at all; a directory of somebody else's stays as it is."""
    with contextlib.suppress(OSError):
        file.parent.mkdir(parents=True, exist_ok=True)
        new = file.with_suffix(f".{os.getpid()}")
        new.write_text(report)
        new.rename(file)


def as_expected(check, report):
    if check.fails_by:
        return re.search(rf"^pan:1: {check.fails_by}", report, re.MULTILINE) is not None
    complete = not re.search("max search depth|out of memory|not completed", report)
    return complete and "errors: 0" in report


def states(report):
    found = re.search(r"(\d+) states, stored", report)
    return int(found[1]) if found else 0


def workshop(remembered):
    """Where programs can be made and run: the temporary directory may forbid it, and a build may be
    somebody else's."""
    if remembered:
        with contextlib.suppress(OSError):
            remembered.mkdir(parents=True, exist_ok=True)
        if os.access(remembered, os.W_OK):
            return remembered
    return "/var/tmp"


def try_one(name, remembered=None):
    """Whether the check of that name came out as expected, and what the search reported."""
    check = (CHECKS | LONG)[name]
    with tempfile.TemporaryDirectory(prefix="model", dir=workshop(remembered)) as directory:
        report = search(check, pathlib.Path(directory), remembered)
    return as_expected(check, report), report


def try_all(names, at_once=None, remembered=None):
    """Name, whether it came out as expected, and the report of each check, in order."""
    with concurrent.futures.ThreadPoolExecutor(at_once or os.cpu_count()) as pool:
        for name, (good, report) in zip(names, pool.map(lambda name: try_one(name, remembered), names)):
            yield name, good, report


def line(name, good, report):
    expected = (CHECKS | LONG)[name].fails_by
    outcome = f"found: {expected}" if expected else "holds"
    return f"{name:40} {states(report):>9} states  {outcome if good else 'NOT AS EXPECTED'}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--remember", type=pathlib.Path, metavar="DIRECTORY")
    parser.add_argument("names", nargs="*", metavar="NAME")
    arguments = parser.parse_args()
    if arguments.list:
        print("\n".join(CHECKS))
        return 0
    missing = [tool for tool in TOOLS if not shutil.which(tool)]
    if missing:
        sys.exit(f"needs {' and '.join(missing)}")
    unexpected = 0
    for name, good, report in try_all(arguments.names or list(CHECKS), remembered=arguments.remember):
        print(line(name, good, report), flush=True)
        if not good:
            unexpected += 1
            print(report)
    return min(unexpected, 1)


if __name__ == "__main__":
    sys.exit(main())
