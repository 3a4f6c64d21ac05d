"""Many tools over the same records at once, and one tool over a great many files: descriptors,
memory, and whether the work grows as the number of files does, told by counting system calls.
"""
import concurrent.futures
import os
import pathlib

import figures
import sweep_world
import tracing
from figures import Figure, if_enough, not_run

SHARED_RECORDS = {"quick": 100, "full": 1000, "release": 1000}
MANY_RECORDS = {"quick": 5_000, "full": 100_000, "release": 100_000}
COUNTED_RECORDS = {"quick": 200, "full": 5_000, "release": 10_000}
ENOUGH_SHARED, ENOUGH = SHARED_RECORDS["full"], MANY_RECORDS["full"]
LIVE_RECORDS = 200  # of the many; the others cost no request
MOST_MIB = 64
PAGE = 4096  # bytes that a small file takes
LARGEST = 8  # times as many records as in the first of the counted runs
GROWTH_NAME, GROWTH_GOAL = "system calls for one more record, few / many there", "within 1 %"


def share(tools, records):
    """The figures on so many tools that start over the same records at once."""
    world = sweep_world.make_world()
    paths = [sweep_world.lay_out_record(world, number) for number in range(records)]
    with concurrent.futures.ThreadPoolExecutor(tools) as pool:
        runs = list(pool.map(lambda _: sweep_world.run(world, limit=300), range(tools)))
    problems = sum(bool(sweep_world.complaints(ended)) for ended in runs)
    asked = [sweep_world.servers().asked(path) for path in paths]
    left = len(os.listdir(world.temporary))
    reached = not problems and not left and 1 <= min(asked) and max(asked) <= tools
    yield Figure(f"{tools} tools on the same records: failed / records left / requests for one",
                 f"0 / 0 / 1-{tools}", f"{problems} / {left} / {min(asked)}-{max(asked)}"
                 f" ({records:,} records)", if_enough(reached, records >= ENOUGH_SHARED))
    yield sweep_world.gone_unasked(f"{tools} tools at once",
                                   [[] if times else [sweep_world.UNASKED] for times in asked])


def memory_backed(files):
    """Where that many small files cost no disk, if there is room for twice as many."""
    shared_memory = pathlib.Path("/dev/shm")
    if os.access(shared_memory, os.W_OK):
        room = os.statvfs(shared_memory)
        inodes = room.f_favail if room.f_files else files * 2  # some file systems have no limit
        if room.f_bavail * room.f_frsize >= files * 2 * PAGE and inodes >= files * 2:
            return sweep_world.open_scratch(shared_memory)
    return sweep_world.open_scratch()


def fill(world, records):
    """As many records as other files: a few to settle, and by halves of no use and to be kept."""
    nowhere = "http://127.0.0.1:1/"  # nothing ever listens there
    kept = sweep_world.record(nowhere, sweep_world.GONE_OWNER)
    for number in range(records):
        text = "not a record" if number % 2 else kept
        if number < LIVE_RECORDS:
            text = sweep_world.record(nowhere)
        sweep_world.make_file(world.temporary / f"halix_server{number}.dat", text)
        sweep_world.make_file(world.temporary / f"other{number}.dat", text)


def wrongly_left(world, records):
    """How far what is left is from the other files and the records to be kept."""
    left = os.listdir(world.temporary)
    kept = {f"halix_server{number}.dat" for number in range(LIVE_RECORDS, records)
            if number % 2 == 0}
    others = {f"other{number}.dat" for number in range(records)}
    return len((kept | others) ^ set(left))


def footprint(world):
    """One run; how it ended, its most memory in MiB and its open descriptors at the end."""
    report = world.root / "footprint"
    environment = {"LD_PRELOAD": sweep_world.shim("footprint"), "FOOTPRINT_REPORT": str(report)}
    ended = sweep_world.run(world, environment, limit=300)
    kib, descriptors = map(int, report.read_text().split())
    return ended, kib / 1024, descriptors


def sweep_many(parent, records):
    """The figures on one run over all of them, beside one over a single record."""
    small, large = sweep_world.make_world(parent), sweep_world.make_world(parent)
    fill(small, 1)
    fill(large, records)
    _, _, few = footprint(small)
    ended, mib, many = footprint(large)
    wrong = wrongly_left(large, records) + len(sweep_world.complaints(ended))
    yield Figure("records wrongly kept or deleted among very many", "0",
                 f"{wrong} of {records:,} beside {records:,} other files",
                 if_enough(wrong == 0, records >= ENOUGH))
    yield Figure("most memory for very many records", f"<= {MOST_MIB} MiB",
                 f"{mib:.1f} MiB ({records:,} records, {ended.seconds:.1f} s)",
                 if_enough(mib <= MOST_MIB, records >= ENOUGH))
    yield Figure("descriptors that stay open for very many records", "0", str(many - few),
                 if_enough(many == few, records >= ENOUGH))
    sweep_world.empty(large.temporary)


def calls_for(parent, records):
    """How many system calls of its own the tool makes for so many records."""
    world = sweep_world.make_world(parent)
    fill(world, records)
    _, trace = tracing.run_traced(world, limit=600)
    sweep_world.empty(world.temporary)
    return len(trace) - tracing.start_of_main(trace)


def growth(parent, records):
    """Whether one more record costs as many calls among many records as among few."""
    first, second, third = (calls_for(parent, records * factor) for factor in (1, 2, LARGEST))
    early = (second - first) / records
    late = (third - second) / (records * (LARGEST - 2))
    return Figure(GROWTH_NAME, GROWTH_GOAL,
                  f"{early:.3f} / {late:.3f} (at {records:,} and {records * LARGEST:,})",
                  abs(late - early) <= early / 100)


def measure(form):
    for tools in (2, 8):
        yield from share(tools, SHARED_RECORDS[form])
    parent = memory_backed(max(2 * MANY_RECORDS[form], LARGEST * COUNTED_RECORDS[form]))
    yield from sweep_many(parent, MANY_RECORDS[form])
    if tracing.is_available():
        yield growth(parent, COUNTED_RECORDS[form])
    else:
        yield not_run(GROWTH_NAME, GROWTH_GOAL)


if __name__ == "__main__":
    figures.main(measure)
