"""One run of the tool for each way in which a server can be bad, one record each, all runs side by
side. The tool must end in time, in silence, with the record deleted and nobody else asked.
"""
import concurrent.futures
import os

import figures
import sweep_world
from figures import Figure, not_run

RUN_BOUND_SECONDS = 10.5
SILENT_CROWD = 10
CROWD_BOUND_SECONDS = 75  # 10 for each of the seven that use up a minute, 1 for each of the rest
CROWD_NAME = f"run with {SILENT_CROWD} silent servers"


def cases():
    """The name of each, what its record names, and the settings of its run."""
    yield from ((name, url, {}) for name, url in sweep_world.servers().bad.items())
    yield ("name service that hangs", "http://records.invalid/",
           {"LD_PRELOAD": sweep_world.shim("slow_names")})


def run_with(name, url, environment):
    """One run; its seconds and what is wrong with it."""
    world = sweep_world.make_world()
    sweep_world.make_file(world.temporary / sweep_world.LIVE, sweep_world.record(url))
    ended = sweep_world.run(world, environment)
    found = sweep_world.complaints(ended)
    if os.listdir(world.temporary):
        found.append("the record is still there")
    for problem in found:
        sweep_world.tell(f"{name}: {problem}")
    return name, ended.seconds, found


def run_all():
    tried = list(cases())
    with concurrent.futures.ThreadPoolExecutor(len(tried)) as pool:
        return list(pool.map(lambda case: run_with(*case), tried))


def run_with_silent_crowd():
    world = sweep_world.make_world()
    text = sweep_world.record(sweep_world.servers().bad["silent"])
    for number in range(SILENT_CROWD):
        sweep_world.make_file(world.temporary / f"halix_server{number}.dat", text)
    ended = sweep_world.run(world, limit=3 * CROWD_BOUND_SECONDS)
    wrong = sweep_world.complaints(ended) or os.listdir(world.temporary)
    reached = not wrong and ended.seconds <= CROWD_BOUND_SECONDS
    return Figure(CROWD_NAME, f"<= {CROWD_BOUND_SECONDS} s", f"{ended.seconds:.1f} s", reached)


def measure(form):
    """In the quick form other programs use the processors, too, so that a long run says nothing."""
    sweep_world.tool()
    outcomes = run_all()
    name, seconds, _ = max(outcomes, key=lambda outcome: outcome[1])
    in_time = seconds <= RUN_BOUND_SECONDS or (None if form == "quick" else False)
    yield Figure("longest run with one silent server", f"<= {RUN_BOUND_SECONDS} s",
                 f"{seconds:.1f} s ({name}; {len(outcomes)} ways)", in_time)
    wrong = sum(bool(found) for _, _, found in outcomes)
    yield Figure("runs with a bad server that left the record or failed", "0",
                 f"{wrong} of {len(outcomes)}", wrong == 0)
    redirected = sweep_world.servers().asked("/redirected")
    yield Figure("requests that a redirection led to", "0", str(redirected), redirected == 0)
    if form == "quick":
        yield not_run(CROWD_NAME, f"<= {CROWD_BOUND_SECONDS} s")
    else:
        yield run_with_silent_crowd()


if __name__ == "__main__":
    figures.main(measure)
