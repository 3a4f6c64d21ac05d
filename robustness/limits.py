"""Runs of the tool with next to no descriptors, file sizes, processes, stack or address space, and
with standard streams missing. It must end well and in silence and lose no record.
"""
import itertools
import resource

import figures
import sweep_world
from figures import Figure

NAME = "runs under tight limits that failed, printed or lost a record"
KIB = 1024
MOST_ADDRESS_SPACE = 32 * KIB * KIB  # more than all that a request loads
STEPS = {"quick": 60, "full": 1024, "release": 8192}


def largest_core():
    """As large as an ordinary user may ask for."""
    most = resource.getrlimit(resource.RLIMIT_CORE)[1]
    return "unlimited" if most == resource.RLIM_INFINITY else most


def resource_cases():
    """The least of each is what the loader needs to start the tool."""
    settings = [f"--nofile={number}" for number in (*range(4, 33), 64)]
    settings += [f"--fsize={size}" for size in (0, 1, 4096)]
    settings += [f"--stack={size * KIB}" for size in (128, 256, 1024)]
    settings += ["--nproc=1", f"--core={largest_core()}", "--memlock=0"]
    return [(setting, ["prlimit", setting, "--"], None) for setting in settings]


def stream_cases():
    """Every choice of missing streams, with many and with few descriptors for the rest."""
    closings = ("<&-", ">&-", "2>&-")
    chosen = [some for count in range(1, 4) for some in itertools.combinations(closings, count)]
    for some, room in itertools.product(chosen, (1024, 5, 4, 3)):
        command = f"exec prlimit --nofile={room} -- \"$0\" {' '.join(some)}"
        yield command, ["sh", "-c", command], None


def address_space_cases(steps):
    for step in range(steps + 1):
        extra = MOST_ADDRESS_SPACE * step // steps
        yield f"{extra} bytes", [], extra


def run_case(case):
    """What is wrong with a run under a limit and with an unlimited one after it, and whether the
    first made its request. If it could not even try, the record must still be there."""
    name, under, extra = case
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    settings = sweep_world.watch_requests(world)
    if extra is not None:
        settings["LD_PRELOAD"] += ":" + sweep_world.shim("address_space")
        settings["EXTRA_ADDRESS_SPACE"] = str(extra)
    found = sweep_world.complaints(sweep_world.run(world, settings, under))
    was_asked = bool(sweep_world.servers().asked(path))
    found += sweep_world.losses(world, path, sweep_world.has_tried(world))
    found += sweep_world.left_by_next_run(world, path)
    for problem in found:
        sweep_world.tell(f"{name}: {problem}")
    return found, was_asked


def measure(form):
    cases = [*resource_cases(), *stream_cases(), *address_space_cases(STEPS[form])]
    outcomes = sweep_world.in_parallel(run_case, cases)
    wrong = sum(bool(found) for found, _ in outcomes)
    asked = sum(was_asked for _, was_asked in outcomes)
    measured = f"{wrong} of {len(cases)} ({asked} could still make the request)"
    yield Figure(NAME, "0", measured, wrong == 0)
    yield sweep_world.gone_unasked("tight limits", [found for found, _ in outcomes])


if __name__ == "__main__":
    figures.main(measure)
