"""Lets every allocation of a run fail, once alone and once with all that follow: those of the
tool, of the libraries behind its request and of the loader that fetches them. The run deletes one
record after one request and keeps another.
"""
import dataclasses
import struct

import figures
import sweep_world
from figures import Figure, percent

HANG_SECONDS = 5
REPORT = struct.Struct("3L")
OWN_SAMPLES, SAMPLES = 30, 60  # before the request and after, alone and with all that follow


@dataclasses.dataclass(frozen=True)
class Counts:
    """How many allocations a run made, how many of these failed, and how many it had made when it
    came to its first record."""
    made: int
    failed: int
    at_first_record: int


@dataclasses.dataclass(frozen=True)
class Outcome:
    """What one failing allocation did."""
    failed: int
    complaints: list


def run_counted(world, settings):
    report = world.root / "report"
    sweep_world.make_file(report, bytes(REPORT.size))
    environment = sweep_world.watch_requests(world) | {"ALLOCATION_REPORT": str(report)} | settings
    environment["LD_PRELOAD"] = f"{sweep_world.shim('allocations')}:{environment['LD_PRELOAD']}"
    ended = sweep_world.run(world, environment, limit=HANG_SECONDS)
    return ended, Counts(*REPORT.unpack(report.read_bytes()))


def count_undisturbed():
    world = sweep_world.world_of_thread()
    sweep_world.lay_out(world)
    return run_counted(world, {})[1]


def fail_at(point):
    number, from_on = point
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    settings = {"FAILING_ALLOCATION": str(number)} | ({"FAILING_FROM_ON": "1"} if from_on else {})
    ended, counts = run_counted(world, settings)
    found = sweep_world.complaints(ended)
    found += sweep_world.losses(world, path, sweep_world.has_tried(world))
    for problem in found:
        sweep_world.tell(f"allocation {number}{' and all that follow' * from_on}: {problem}")
    return Outcome(counts.failed, found)


def sample(counts):
    """Numbers of allocations, more of them where the tool is still on its own."""
    early = range(1, counts.at_first_record + 1)
    late = range(counts.at_first_record + 1, counts.made + 1)
    return sweep_world.spread(early, OWN_SAMPLES) + sweep_world.spread(late, SAMPLES)


def both_ways(numbers):
    return [(number, from_on) for from_on in (False, True) for number in numbers]


def measure(form):
    counts = count_undisturbed()
    points = both_ways(range(1, counts.made + 1))
    tried = both_ways(sample(counts)) if form == "quick" else points
    outcomes = sweep_world.in_parallel(fail_at, tried)
    failed = sum(outcome.failed > 0 for outcome in outcomes)
    surviving = sum(not outcome.complaints for outcome in outcomes)
    measured = (f"{percent(failed, len(points))} / {percent(surviving, len(outcomes))}"
                f" ({counts.made:,} allocations, {len(tried):,} runs)")
    reached = surviving == len(outcomes) and (failed == len(points) or None)
    yield Figure("allocation points failed / surviving", "100 % / 100 %", measured, reached)
    yield sweep_world.gone_unasked("failing allocations",
                                   [outcome.complaints for outcome in outcomes])


if __name__ == "__main__":
    figures.main(measure)
