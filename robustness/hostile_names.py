"""Sweeps directories that anybody may write to and that somebody has filled with hostile names.
Everything around such a directory must stay as it is, by content and by metadata; inside, exactly
the malformed records go. With strace no call may even name a file outside.
"""
import ast
import os
import pathlib
import re
import shutil
import stat

import figures
import hostile_entries
import sweep_world
import tracing
from figures import Figure, not_run

NAME = "files changed outside the swept directory, over all hostile-name tests"
STRAY_NAME = "system calls that named a file outside the swept directories"
ATTACKER = 65533
RANDOM_FAMILIES = {"quick": 20, "full": 600, "release": 6000}
TRACED_SHARE = {"quick": 5, "full": 4, "release": 4}  # one family of so many
ENTRIES_OF_A_FAMILY = 120
QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"')


def make_surroundings(world):
    """What the names aim at. It is the user's own, so that only the tool's care keeps it."""
    world.temporary.chmod(0o777)
    aims = [world.root / os.fsdecode(aim.replace(b"\\", b"/")) for aim in hostile_entries.AIMS]
    for directory in aims:
        sweep_world.make_directory(directory)
    for directory in (*aims, world.root, world.home):
        for name in hostile_entries.VICTIMS:
            sweep_world.make_file(directory / os.fsdecode(name), "untouched")


def make_entries(world, entries):
    """Makes what can be made, the first of each name. Returns the kinds by their names."""
    made = {}
    for name, kind in entries:
        if name in made or len(name) > 255 or b"/" in name:
            continue
        path = os.path.join(os.fsencode(world.temporary), name)
        kind(path, os.fsencode(world.root))
        if os.geteuid() == 0:
            os.lchown(path, ATTACKER, ATTACKER)
        made[name] = kind
    return made


def state_of(path):
    """All that a file is, except when it was last read."""
    info = os.lstat(path)
    content = b""
    if stat.S_ISREG(info.st_mode):
        content = pathlib.Path(path).read_bytes()
    return (info.st_mode, info.st_uid, info.st_gid, info.st_ino, info.st_nlink, info.st_size,
            info.st_mtime_ns, info.st_ctime_ns, content)


def surroundings(world):
    """The state of everything in the world but the contents of the swept directory."""
    unwatched = [str(world.temporary), str(world.root / "trace")]
    states = {}
    for parent, directories, files in os.walk(world.root):
        paths = [os.path.join(parent, name) for name in directories + files]
        states |= {path: state_of(path) for path in paths if path not in unwatched}
        if parent == str(world.root):
            directories.remove(world.temporary.name)
    return states


def wrongly_treated(world, made):
    """The names inside that are gone and should not be, or the other way round."""
    expected = set(made) - hostile_entries.deleted(made)
    return expected ^ set(os.listdir(os.fsencode(world.temporary)))


def strays(world, trace):
    """The calls from main on whose path climbs, or is in the world and in no swept directory. An
    empty path is that of a call on an open file."""
    swept = (str(world.temporary), str(world.resources))
    return [call for call in trace[tracing.start_of_main(trace):]
            if any(leads_astray(path, world, swept) for path in map(decoded, QUOTED.findall(call)))]


def decoded(quoted):
    return os.fsdecode(ast.literal_eval(f'b"{quoted}"'))


def leads_astray(path, world, swept):
    here = os.path.join(world.root, path)
    in_world = here.startswith(f"{world.root}/")
    in_swept = any(here == directory or here.startswith(f"{directory}/") for directory in swept)
    return bool(path) and (".." in path.split("/") or in_world and not in_swept)


def sweep(entries_for, traced):
    """One run; how many files changed outside, entries went wrong inside and calls strayed."""
    world = sweep_world.make_world()
    make_surroundings(world)
    made = make_entries(world, entries_for(os.fsencode(world.root)))
    before = surroundings(world)
    ended, trace = tracing.run_traced(world, "-e", "trace=%file") if traced else (
        sweep_world.run(world), [])
    after = surroundings(world)
    changed = [path for path in sorted(before | after) if before.get(path) != after.get(path)]
    inside, stray = wrongly_treated(world, made), strays(world, trace) if traced else []
    for problem in (*sweep_world.complaints(ended), *changed, *inside, *stray):
        sweep_world.tell(f"hostile names: {problem!r}")
    shutil.rmtree(world.root)
    return len(made), len(changed), len(inside) + len(sweep_world.complaints(ended)), len(stray)


def fixed_families():
    """Functions that make the entries of a family for a world's root."""
    def family(index):
        return lambda root: list(hostile_entries.families(root))[index]
    return [family(index) for index in range(len(list(hostile_entries.families(b"/"))))]


def random_families(count):
    def family(seed):
        return lambda _: hostile_entries.random_family(seed, ENTRIES_OF_A_FAMILY)
    return [family(seed) for seed in range(count)]


def measure(form):
    can_trace = tracing.is_available()
    fixed, chance = fixed_families(), random_families(RANDOM_FAMILIES[form])
    runs = [(family, can_trace) for family in fixed]
    runs += [(family, can_trace and index % TRACED_SHARE[form] == 0)
             for index, family in enumerate(chance)]
    outcomes = sweep_world.in_parallel(lambda chosen: sweep(*chosen), runs)
    names, changed, inside, stray = map(sum, zip(*outcomes))
    yield Figure(NAME, "0", f"{changed} ({names:,} names, {len(runs)} runs)", changed == 0)
    yield Figure("entries with hostile names wrongly kept or deleted", "0", str(inside),
                 inside == 0)
    if can_trace:
        yield Figure(STRAY_NAME, "0", str(stray), stray == 0)
    else:
        yield not_run(STRAY_NAME, "0")


if __name__ == "__main__":
    figures.main(measure)
