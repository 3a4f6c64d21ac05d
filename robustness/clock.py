"""Runs of the tool under a clock that is far off, that jumps, and without any time zone's data. The
clock that only counts on is left alone, as it is by everything that sets a system's time.
"""
import concurrent.futures
import glob
import math
import os
import threading
import time

import figures
import sweep_world
from figures import Figure, if_enough

NAME = "runs under a broken clock that crashed, printed or waited beyond 10.5 s"
BOUND_SECONDS = 10.5
JUMP_AFTER_SECONDS = 2


def fake_clock():
    """The library that lies about the time; none where it is not installed."""
    return next(iter(glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1")), None)


def at(moment):
    return {"LD_PRELOAD": fake_clock(), "FAKETIME": moment, "FAKETIME_DONT_FAKE_MONOTONIC": "1"}


def without_zones(world, zone):
    return {"TZ": zone, "TZDIR": str(sweep_world.make_directory(world.root / "zones"))}


def jumping(world, start, target):
    """A clock that goes from one moment to the other while the tool waits for a server."""
    moment = world.root / "moment"
    moment.write_text(start)

    def jump():
        time.sleep(JUMP_AFTER_SECONDS)
        moment.write_text(target)
    threading.Thread(target=jump, daemon=True).start()
    return {"LD_PRELOAD": fake_clock(), "FAKETIME_TIMESTAMP_FILE": str(moment),
            "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1"}


FAKED = (
    ("in 2038", lambda world: at("@2038-01-19 03:14:05")),
    ("after 2038", lambda world: at("@2040-02-29 12:00:00")),
    ("in 1969", lambda world: at("@1969-12-31 23:59:58")),
    ("a clock ten times as fast", lambda world: at("+0 x10")),
    ("hour that summer time skips",
     lambda world: at("@2024-03-31 01:59:58") | {"TZ": "Europe/Berlin"}),
    ("jump back by a day", lambda world: jumping(world, "+0", "-1d")),
    ("jump back by years", lambda world: jumping(world, "+0", "-20y")),
    ("jump ahead by a day", lambda world: jumping(world, "+0", "+1d")),
    ("jump across 2038", lambda world: jumping(world, "+0", "+20y")))
WITHOUT_ZONES = (
    ("no zone data", lambda world: without_zones(world, "Europe/Berlin")),
    ("no zone file", lambda world: without_zones(world, ":/nonexistent")),
    ("zone that is none", lambda world: without_zones(world, "%s\xff:" * 100)))


def run_case(name, environment_of, most_seconds):
    """A run with one server that answers and one that does not; what is wrong with it."""
    world = sweep_world.make_world()
    path = sweep_world.lay_out(world)
    sweep_world.make_file(world.temporary / "halix_server3.dat",
                          sweep_world.record(sweep_world.servers().bad["silent"]))
    ended = sweep_world.run(world, environment_of(world))
    found = sweep_world.complaints(ended) + sweep_world.losses(world, path)
    if sorted(os.listdir(world.temporary)) != [sweep_world.KEPT, sweep_world.OTHER]:
        found.append("did not settle the records")
    if ended.seconds > most_seconds:
        found.append(f"took {ended.seconds:.1f} s")
    for problem in found:
        sweep_world.tell(f"{name}: {problem}")
    return found


def measure(form):
    """Without a clock to fake, the other cases can only show a miss. In the quick form other programs use
    the processors, too, so that a long run says nothing."""
    most_seconds = math.inf if form == "quick" else BOUND_SECONDS
    can_fake = fake_clock() is not None
    cases = [*WITHOUT_ZONES, *(FAKED if can_fake else ())]
    sweep_world.tool()
    with concurrent.futures.ThreadPoolExecutor(len(cases)) as pool:
        outcomes = list(pool.map(lambda case: run_case(*case, most_seconds), cases))
    wrong = sum(bool(found) for found in outcomes)
    yield Figure(NAME, "0", f"{wrong} of {len(outcomes)}", if_enough(wrong == 0, can_fake))


if __name__ == "__main__":
    figures.main(measure)
