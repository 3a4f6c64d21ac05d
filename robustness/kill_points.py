"""Kills the tool at every system call of a run, from its start to its end. Each record must still
be there or be settled, and the next run must settle what is left.
"""
import collections
import signal

import figures
import sweep_world
import tracing
from figures import Figure, not_run

NAME = "kill points with a record lost"
CAUSE = "killed tools"
SAMPLES = 120


def kill_points():
    """Each call of an undisturbed run: its name, and its number among the calls of that name. The
    first call, which makes the process the tool, is left out."""
    world = sweep_world.world_of_thread()
    sweep_world.lay_out(world)
    _, trace = tracing.run_traced(world)
    counts = collections.Counter()
    for name in (tracing.name_of(call) for call in trace[1:] if "(" in call):
        counts[name] += 1
        yield name, counts[name]


def kill_at(point):
    """What is wrong after the tool was killed when it was about to make that call. None if the run
    did not make it: how often the tool waits for the server varies."""
    name, number = point
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    ended, _ = tracing.run_traced(world, "-e", f"inject={name}:signal=KILL:when={number}")
    found = sweep_world.losses(world, path)
    found += sweep_world.left_by_next_run(world, path)
    for problem in found:
        sweep_world.tell(f"killed at {name} {number}: {problem}")
    return found if found or ended.status == -signal.SIGKILL else None


def measure(form):
    if not tracing.is_available():
        yield not_run(NAME, "0")
        yield not_run(sweep_world.unasked_name(CAUSE), "0")
        return
    points = list(kill_points())
    tried = sweep_world.spread(points, SAMPLES) if form == "quick" else points
    outcomes = [found for found in sweep_world.in_parallel(kill_at, tried) if found is not None]
    wrong = len(outcomes) - outcomes.count([])
    measured = f"{wrong} (killed at {len(outcomes)} of {len(points)} calls)"
    yield Figure(NAME, "0", measured, wrong == 0 < len(outcomes))
    yield sweep_world.gone_unasked(CAUSE, outcomes)


if __name__ == "__main__":
    figures.main(measure)
