#!/usr/bin/env python3
"""Sweeps hostile names with a tool that has lost its checks of them, so that nothing but the kernel
keeps what lies outside the swept directories. Without confinement the same tool does harm: that is
measured too, for otherwise the names would show nothing.
"""
import ctypes
import os
import re
import shlex
import shutil
import subprocess

import figures
import hostile_names
import sweep_world
import unconfined
from figures import Figure, not_run
from sweep_world import made_once

NAME = "files changed outside by a tool without checks of names, confined by the kernel"
HARM_NAME = "the same without confinement: files changed"
CHECK, NO_CHECK = "if (is_own_record(dir, path)) settle(", "settle("
RELEASE = figures.BUILD / "release"
CREATE_VERSION = 1


def kernel_confines():
    return ctypes.CDLL(None).syscall(unconfined.LANDLOCK_CREATE_RULESET, None, 0, CREATE_VERSION) >= 1


def commands():
    """Those that make the tool, as its build makes it."""
    return subprocess.run(["ninja", "-C", RELEASE, "-t", "commands", "kalmora-sweep"], check=True,
                          capture_output=True, text=True).stdout.splitlines()


@made_once
def tool_without_checks():
    """The tool, linked with a sweep that takes every name for a record's own."""
    place = figures.BUILD / "robustness" / "unchecked"
    place.mkdir(parents=True, exist_ok=True)
    source, compiled, tool = place / "sweep.cpp", place / "sweep.o", place / "unchecked-sweep"
    text = (figures.ROOT / "app" / "sweep.cpp").read_text()
    if CHECK not in text:
        raise SystemExit(f"app/sweep.cpp has no longer: {CHECK}")
    source.write_text(text.replace(CHECK, NO_CHECK))
    compile_line = next(line for line in commands() if line.endswith("/app/sweep.cpp"))
    options = shlex.split(compile_line.split(" -o ")[0])
    subprocess.run([*options, "-w", f"-I{figures.ROOT}/app", "-o", compiled, "-c", source],
                   cwd=RELEASE, check=True)
    link_line = next(line for line in commands() if " -o kalmora-sweep " in line)
    link = re.sub(r"^: && | && :$", "", link_line).replace(
        " -o kalmora-sweep ", f" {shlex.quote(str(compiled))} -o {shlex.quote(str(tool))} ")
    subprocess.run(link, shell=True, cwd=RELEASE, check=True)
    return sweep_world.copied_for_everybody(tool)


@made_once
def runner_without_confinement():
    return sweep_world.copied_for_everybody(unconfined.__file__)


def changed_outside(family, confined):
    world = sweep_world.make_world()
    hostile_names.make_surroundings(world)
    made = hostile_names.make_entries(world, family(os.fsencode(world.root)))
    before = hostile_names.surroundings(world)
    unconfine = () if confined else ("/usr/bin/python3", runner_without_confinement())
    sweep_world.run(world, under=(*unconfine, "sh", "-c", 'exec "$0"', tool_without_checks()))
    after = hostile_names.surroundings(world)
    shutil.rmtree(world.root)
    return len(made), sum(before.get(path) != after.get(path) for path in before | after)


def measure(form):
    if not kernel_confines():
        yield not_run(NAME, "0")
        yield not_run(HARM_NAME, "> 0")
        return
    families = hostile_names.fixed_families()
    if form != "quick":
        families += hostile_names.random_families(hostile_names.RANDOM_FAMILIES[form])
    tool_without_checks()
    for name, goal, confined in ((NAME, "0", True), (HARM_NAME, "> 0", False)):
        outcomes = sweep_world.in_parallel(lambda family: changed_outside(family, confined), families)
        names, changed = map(sum, zip(*outcomes))
        yield Figure(name, goal, f"{changed} ({names:,} names, {len(families)} runs)",
                     (changed == 0) == confined)


if __name__ == "__main__":
    figures.main(measure)
