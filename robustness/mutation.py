#!/usr/bin/env python3
"""How many small mistakes in the sources the tests notice.

A mutant is a unit with one line changed. It is compiled alone and linked with the test programs of
its unit, or with the tool that they start, in the place of the original, which the build tree of the
release keeps. Killed is a mutant with which a test fails, or does not end. The programs run in a
sandbox (bwrap) where they can write nothing but their scratch directory and see no process but their
own: a mutant may delete or signal anything. Survivors that no test can tell from the original are
explained in equivalent_mutants.txt; all others of a form are listed in mutation.json of the build
tree, those of chosen units on standard output alone.
"""
import argparse
import concurrent.futures
import json
import operator
import pathlib
import random
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

import corpora
import explanations
import figures
from figures import areas
from mutants import key, mutants_of
from mutation_units import TREE, critical, executable, included_by, of_the_tool, units as all_units

RESULTS = figures.BUILD / "mutation.json"
NAME, GOAL = "mutation score critical / all", "95 % / 85 %"
CRITICAL_GOAL, ALL_GOAL = 95, 85
KEY = ("unit", "was", "is")  # the parts of key(), as the results name them
key_in = operator.itemgetter(*KEY)
TOOLS = ("kalmora-sweep", "tests/kalmora-sweep-without-threads")  # what tests start
COUNTS = {"full": (400, 200), "release": (None, None)}  # of the critical units, of the others


def compile_commands():
    entries = json.loads((TREE / "compile_commands.json").read_text())
    found = {}
    for entry in entries:  # the first is the library's, others are of tests
        found.setdefault(entry["file"].removeprefix(f"{figures.ROOT}/"), entry["command"])
    return found


def arguments(program):
    area, _, kind = program.partition(".")
    return [corpora.bundle(area)] if kind else ["--gtest_fail_fast"]


def link_command(target):
    shown = subprocess.run(["ninja", "-C", TREE, "-t", "commands", "-s", target],
                           check=True, capture_output=True, text=True).stdout
    return shlex.split(shown.splitlines()[-1].split(" && ")[1])


def sandboxed(command, folder, seconds, tools=()):
    """The exit status of the command; a time-out is a failure. `folder` may be read, and `tools` are what
    tests start in place of TOOLS. What is printed the test framework catches below /tmp, where the
    sources and the build tree may lie as well. The limit for core files is not 0, because a test must
    see that the tool sets it to 0."""
    readable = [option for place in (figures.ROOT, TREE) for option in ("--ro-bind", place, place)]
    started = [option for target, tool in zip(TOOLS, tools) for option in ("--ro-bind", tool, TREE / target)]
    scratches = [option for part in ("tests", "fuzz")
                 for option in ("--size", str(256 << 20), "--tmpfs", TREE / part / "scratch")]
    try:
        return subprocess.run(
            ["bwrap", "--cap-add", "ALL", "--ro-bind", "/", "/", "--tmpfs", "/tmp", *readable, *started,
             "--dev", "/dev", "--proc", "/proc", *scratches, "--unshare-pid", "--die-with-parent",
             "--chdir", TREE / "tests", "prlimit", f"--as={8 << 30}", "--core=1",
             f"--cpu={2 + round(seconds / 8)}", *command],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            timeout=seconds, cwd=folder, check=False).returncode
    except subprocess.TimeoutExpired:
        return 1


def baseline(program):
    """How the original is run: [(arguments, seconds)], in one go where its tests allow it."""
    path, whole = TREE / executable(program), arguments(program)
    for _ in range(2):
        started = time.monotonic()
        if sandboxed([path, *whole], TREE, 300) != 0:
            break
    else:
        return [(whole, time.monotonic() - started)]
    plan = []
    for name in figures.test_names(path):
        started = time.monotonic()
        if sandboxed([path, f"--gtest_filter={name}"], TREE, 300) == 0:
            plan.append(([f"--gtest_filter={name}"], time.monotonic() - started))
        else:
            print(f"{program}: left out, as it fails in the sandbox: {name}", file=sys.stderr)
    if not plan:
        raise RuntimeError(f"{program}: no test passes in the sandbox")
    return plan


def prepare(units):
    """What the mutants of the units need, taken once."""
    for part in ("tests", "fuzz"):
        (TREE / part / "scratch").mkdir(exist_ok=True)
    programs = sorted({program for unit in units for program in all_units()[unit]})
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        plans = dict(zip(programs, pool.map(baseline, programs)))
    links = {program: link_command(executable(program)) for program in programs}
    links.update((target, link_command(target)) for target in TOOLS)
    return compile_commands(), links, plans


def compiled(unit, text, folder, commands):
    """The objects that the mutant changes, compiled in a copy of all sources; none if it is no
    program."""
    for part in areas.SOURCES:
        shutil.copytree(figures.ROOT / part, folder / part)
    (folder / unit).write_text(text)
    objects = []
    for source in included_by().get(unit, [unit]):
        command = [part for part in shlex.split(commands[source]) if part != "-g"]
        command = command[:command.index("-o")]
        own = ["-iquote", folder / "utils/libsrc"]
        objects.append(folder / f"{source.replace('/', '_')}.o")
        done = subprocess.run([*command, *own, "-O0", "-w", "-c", folder / source, "-o", objects[-1]],
                              cwd=TREE, capture_output=True, check=False)
        if done.returncode != 0:
            return []
    return objects


def linked(unit, objects, link, output):
    """Linked first, the objects take the places of those in the libraries. One that the command names
    itself is left out."""
    target = link.index("-o")
    first = next(i for i, part in enumerate(link) if part.endswith(".o"))
    command = [*link[:first], *objects, *link[first:target], *link[target + 2:]]
    command = [part for part in command if not str(part).endswith(f"/{unit}.o")]
    subprocess.run([*command, "-o", output], cwd=TREE, capture_output=True, check=True)
    return output


def fails(program, folder, plan, tools=()):
    return any(sandboxed([program, *run], folder, 20 * seconds + 10, tools) != 0 for run, seconds in plan)


def is_killed(unit, objects, folder, links, plans):
    programs = all_units()[unit]
    if unit in of_the_tool():
        tools = [linked(unit, objects, links[target], folder / f"tool{i}") for i, target in enumerate(TOOLS)]
        return any(fails(TREE / executable(one), folder, plans[one], tools) for one in programs)
    return any(fails(linked(unit, objects, links[one], folder / "program"), folder, plans[one])
               for one in programs)


def examine(mutant, commands, links, plans):
    """"killed", "survived", or "" for what is no program."""
    unit, number, _, changed = mutant
    lines = (figures.ROOT / unit).read_text().splitlines()
    lines[number] = changed
    with tempfile.TemporaryDirectory(dir=TREE) as place:
        folder = pathlib.Path(place)
        objects = compiled(unit, "\n".join(lines) + "\n", folder, commands)
        if not objects:
            return ""
        return "killed" if is_killed(unit, objects, folder, links, plans) else "survived"


def survives(unit, prepared):
    """Whether the tests are content with the unit as it is, compiled the way mutants are."""
    first = (figures.ROOT / unit).read_text().splitlines()[0]
    return examine((unit, 0, first, first), *prepared) == "survived"


def choose(units, count, seed):
    """Mutants that are no explained ones, in an order that only the seed decides: one more that is
    explained lets another in, and the rest stay."""
    mutants = [mutant for unit in units for mutant in mutants_of(unit)]
    random.Random(seed).shuffle(mutants)
    known = explanations.explained(explanations.MUTANTS)
    return [mutant for mutant in mutants if key(mutant) not in known][:count]


def run(mutants):
    """{mutant: outcome}, of those that are programs."""
    units = sorted({mutant[0] for mutant in mutants})
    prepared = prepare(units)
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        for unit, survived in zip(units, pool.map(lambda unit: survives(unit, prepared), units)):
            if not survived:
                raise SystemExit(f"{unit}: its tests fail without a change")
        outcomes = dict(zip(mutants, pool.map(lambda one: examine(one, *prepared), mutants)))
    return {mutant: outcome for mutant, outcome in outcomes.items() if outcome}


def report(outcomes):
    survivors_left = [{"line": mutant[1] + 1, **dict(zip(KEY, key(mutant)))}
                      for mutant, outcome in sorted(outcomes.items()) if outcome == "survived"]
    return json.dumps({"mutants": len(outcomes), "survivors": survivors_left}, indent=1)


def survivors():
    """What the last form has left and nobody has explained since, for a reader."""
    left = json.loads(RESULTS.read_text())["survivors"] if RESULTS.exists() else []
    known = explanations.explained(explanations.MUTANTS)
    return [one for one in left if key_in(one) not in known]


def left_over():
    """The survivors again, wherever their lines have moved to."""
    left = {key_in(one) for one in survivors()}
    units = sorted({unit for unit, _, _ in left})
    return [mutant for unit in units for mutant in mutants_of(unit) if key(mutant) in left]


def others():
    return [unit for unit in all_units() if unit not in critical()]


def score(outcomes):
    """Per cent killed."""
    outcomes = list(outcomes)
    return 100 * outcomes.count("killed") / max(1, len(outcomes))


def scores(outcomes):
    """Of the critical units and of all; each sample stands for all mutants of its units."""
    groups = [critical(), others()]
    parts = [score(outcome for mutant, outcome in outcomes.items() if mutant[0] in units)
             for units in groups]
    sizes = [sum(1 for unit in units for _ in mutants_of(unit)) for units in groups]
    return parts[0], sum(part * size for part, size in zip(parts, sizes)) / sum(sizes)


def measure(form):
    if form == "quick":  # a score of the few that there is time for says nothing
        yield figures.not_run(NAME, GOAL)
        return
    outcomes = run([mutant for units, count in zip((critical(), others()), COUNTS[form])
                    for mutant in choose(units, count, 1)])
    RESULTS.write_text(report(outcomes))
    of_critical, of_all = scores(outcomes)
    yield figures.Figure(NAME, GOAL, f"{of_critical:.1f} % / {of_all:.1f} % of {len(outcomes)}",
                         of_critical >= CRITICAL_GOAL and of_all >= ALL_GOAL)


def main():
    groups = {"critical": critical(), "all": list(all_units())}
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("what", nargs="+", choices=[*figures.FORMS, "survivors", *groups, *all_units()],
                        metavar="FORM|survivors|critical|all|UNIT",
                        help="a form; the survivors of the last one once more; or units")
    parser.add_argument("--count", type=int, help="so many mutants of the units, not all")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    given = parser.parse_args()
    if len(given.what) > 1 and {*figures.FORMS, "survivors"} & {*given.what}:
        parser.error("a form, or survivors, stands alone")
    if given.what[0] in figures.FORMS:
        figures.main(measure)
    if given.what == ["survivors"]:
        mutants = left_over()
    else:
        units = [unit for name in given.what for unit in groups.get(name, [name])]
        mutants = choose(units, given.count, given.seed)
    outcomes = run(mutants)
    print(report(outcomes))
    print(f"{score(outcomes.values()):.1f} % of {len(outcomes)} mutants killed")


if __name__ == "__main__":
    main()
