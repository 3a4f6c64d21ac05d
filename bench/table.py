#!/usr/bin/env python3
"""Puts the results of the benchmarks beside their targets.

usage: table.py RESULTS_DIRECTORY          the table on the terminal
       table.py RESULTS_DIRECTORY PAGE     the page with the curves beside it (needs gnuplot)

The directory holds the results of one run or, below it, of several. A benchmark is called
"capability|who", and "capability|qal, variant" when ours runs in another way beside the same peers;
"capability|floor: what it is" is the floor. Each run compares the medians of its repetitions; of
the runs the table shows the median and the worst. Runs beside a busy process, as their context says,
have a column of their own on the page. The rows, their order and their targets stand in targets.tsv;
what the curves count stands in curves.tsv.
"""
import collections
import itertools
import json
import math
import pathlib
import statistics
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
OURS, FLOOR = "qal", "floor"
ROOM = 1.02  # for the outermost points of a curve
OUR_COLOUR, PEER_COLOURS = "#1f5fbf", ("#d9822b", "#5b8c3a", "#8a8f98")

# `remark` says why a target is missed, if it is.
Target = collections.namedtuple("Target", "capability ratio peer remark")


def fields_of(table):
    lines = (HERE / table).read_text().splitlines()
    return [line.split("\t") for line in lines if line and not line.startswith("#")]


def targets():
    return [Target(name, float(ratio), peer, remark) for name, ratio, peer, remark in fields_of("targets.tsv")]


def results(directory):
    return [json.loads(file.read_text()) for file in sorted(directory.rglob("*.json"))]


def is_busy(program):
    return "beside" in program["context"]


def medians(program):
    """(capability, who, size, ns) of each benchmark; the size is None outside curves."""
    for run in program["benchmarks"]:
        if run.get("aggregate_name") == "median":
            capability, rest = run["run_name"].split("|", 1)
            who, *settings = rest.split("/")
            size = next((int(setting) for setting in settings if setting.isdigit()), None)
            yield capability, who, size, run["real_time"] * NANOSECONDS[run["time_unit"]]


def rows_of(programs):
    """{capability: [{who: ns}]}, one for each run, whose times were taken in one process."""
    rows = collections.defaultdict(list)
    for program in programs:
        found = collections.defaultdict(dict)
        for capability, who, size, time in medians(program):
            if size is None:
                found[capability][who] = time
        for capability, times in with_variants(found).items():
            rows[capability].append(times)
    return rows


def curves_of(programs):
    """{capability: {who: [(size, ns)]}}."""
    found = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(list)))
    for program in programs:
        for capability, who, size, time in medians(program):
            if size is not None:
                found[capability][who][size].append(time)
    return {capability: {who: [(size, statistics.median(times)) for size, times in sorted(sizes.items())]
                         for who, sizes in curve.items()} for capability, curve in found.items()}


def with_variants(rows):
    """A variant becomes a capability of its own, with the peers that it ran beside."""
    found = {}
    for capability, times in rows.items():
        peers = {who: ns for who, ns in times.items() if who.split(",")[0] != OURS}
        ours = {who: ns for who, ns in times.items() if who not in peers}
        found.update({capability + who.removeprefix(OURS): {**peers, OURS: ns} for who, ns in ours.items()})
    return found


def duration(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g}\u00a0{unit}"
    return f"{ns:.3g}\u00a0ns"


def is_floor(who):
    return who.startswith(FLOOR)


def over_runs(runs):
    """{who: ns} as the median over the runs."""
    return {who: statistics.median(run[who] for run in runs if who in run)
            for who in dict.fromkeys(who for run in runs for who in run)}


def peer_of(times, named):
    """The peer that the target names, which may be the floor, else the fastest."""
    if named == FLOOR:
        return next(filter(is_floor, times))
    peers = {who: ns for who, ns in times.items() if who != OURS and not is_floor(who)}
    return min((who for who in peers if not named or who == named), key=peers.get)


def floor_of(times):
    floor = next(filter(is_floor, times), None)
    return f"{duration(times[floor])} ({floor.removeprefix(FLOOR + ': ')})" if floor else ""


def ratios_of(runs, peer):
    return [run[OURS] / run[peer] for run in runs if OURS in run and peer in run]


def line(target, runs, busy_runs):
    times = over_runs(runs)
    peer = peer_of(times, target.peer)
    ratios, busy_ratios = ratios_of(runs, peer), ratios_of(busy_runs, peer)
    ratio = statistics.median(ratios)
    busy = f"{statistics.median(busy_ratios):.2f}" if busy_ratios else ""
    verdict = ("reached", "") if ratio <= target.ratio else ("missed", target.remark)
    return (target.capability, duration(times[OURS]), f"{duration(times[peer])} ({FLOOR if is_floor(peer) else peer})",
            f"{ratio:.2f}", f"{max(ratios):.2f}", f"{100 * (max(ratios) - min(ratios)) / ratio:.0f} %", str(len(ratios)),
            busy, f"{target.ratio:g}", floor_of(times), *verdict)


def table(rows, busy_rows):
    head = ("capability", "ours", "peer", "ratio", "worst", "spread", "runs", "busy",
            "target", "floor", "verdict", "why")
    body = [line(target, rows[target.capability], busy_rows.get(target.capability, [])) for target in targets()
            if any(OURS in run for run in rows.get(target.capability, []))]
    widths = [max(len(row[column]) for row in [head, *body]) for column in range(len(head))]
    body.insert(0, tuple("-" * max(1, width) for width in widths))
    return ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
            for row in [head, *body]]


def unmatched(rows):
    """Capabilities that are in no table, for a result or a target is missing."""
    return sorted({target.capability for target in targets()} ^ rows.keys())


def ticks(low, high):
    """The round times of an axis, as gnuplot wants them: powers of ten, with 2 and 5 where those are few."""
    steps = (1,) if high / low > 1000 else (1, 2, 5)
    powers = range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
    times = [step * 10 ** power for power in powers for step in steps if low <= step * 10 ** power <= high]
    return ", ".join(f'"{duration(time)}" {time}' for time in times)


def styles(curve):
    """Ours has the same colour everywhere, and a second one of ours a dash."""
    peers, dashes = itertools.cycle(PEER_COLOURS), itertools.count(1)
    return {who: f'lw 3 dt {next(dashes)} lc rgb "{OUR_COLOUR}"' if who.startswith(OURS)
            else f'lw 1.5 dt 1 lc rgb "{next(peers)}"' for who in sorted(curve)}


def plot(capability, counted, curve, image):
    sizes, times = zip(*sorted({point for points in curve.values() for point in points}))
    low, high = min(times), max(times)
    data = "".join("".join(f"{x} {y}\n" for x, y in sorted(curve[who])) + "\n\n" for who in sorted(curve))
    lines = ", ".join(f'$data index {index} using 1:2 with linespoints pt 7 ps 0.5 {style} title "{who}"'
                      for index, (who, style) in enumerate(styles(curve).items()))
    size_ticks = ", ".join(f'"{size:,}" {size}' for size in sorted(set(sizes)))
    commands = f"""
set terminal svg size 640,400 font "sans-serif,12" background "white"
set output "{image}"
set title "{capability}" noenhanced
set xlabel "{counted}"; set ylabel "time"; set logscale xy; set grid
set bmargin 6; set key at screen 0.5,0.05 center horizontal noenhanced
set xrange [{min(sizes) / ROOM}:{max(sizes) * ROOM}]; set xtics ({size_ticks})
set yrange [{low / ROOM}:{high * ROOM}]; set ytics ({ticks(low, high)})
$data << END
{data}END
plot {lines}
"""
    subprocess.run(["gnuplot"], input=commands, text=True, check=True)


def joined(parts):
    return " and ".join([", ".join(parts[:-1]), parts[-1]] if parts[1:] else parts)


def growth(points):
    """How many times as long twice as much takes, on average over the curve."""
    (small, short), (large, long) = min(points), max(points)
    return 2 ** (math.log(long / short) / math.log(large / small))


def conclusion(counted, curve):
    most = min(max(points)[0] for points in curve.values())
    times = {who: dict(points)[most] for who, points in curve.items()}
    fastest, *others = (f"{who}{{}} {duration(times[who])}" for who in sorted(times, key=times.get))
    first, *more = (f"{who}{{}} {growth(curve[who]):.1f} times" for who in sorted(curve) if who.startswith(OURS))
    return (f"With {most:,} {counted} {joined([fastest.format(' takes'), *(who.format('') for who in others)])}; "
            f"for twice the {counted} {joined([first.format(' takes'), *(who.format('') for who in more)])} as long.")


def setting(programs):
    """Where and when the results came about. A run has a name: the time when it began."""
    contexts = [program["context"] for program in programs]

    def recorded(key):
        return joined(sorted({str(context.get(key, "not recorded")) for context in contexts}))

    runs = sorted({f"{context.get('run', context['date'][:10])} (commit {context.get('commit', 'not recorded')}"
                   f"{', busy' * is_busy(program)})" for program, context in zip(programs, contexts)})
    return (f"The page rests on {len(runs)} run{'s' * (len(runs) > 1)}: {joined(runs)}, on {recorded('num_cpus')} "
            f"processors ({recorded('processor')}), compiled with {recorded('compiler')}.")


HEAD = """# Speed, as measured

Written by `./run bench page` from the runs of `./run bench` and `./run bench busy` so far. Each row puts a function
beside what a user would reach for instead, on the same work, in one process, interleaved. Each run compares the medians
of its repetitions.

- The *ratio* is our time divided by the peer's: below 1 is faster than the peer. It is the median over the runs; the
  *worst* is the greatest of them, and the *spread* is from the least to the greatest, as a part of the median.
- *Busy* is the ratio while another process always wants a processor: two of them in rows that have one anyway.
- The *target* is the greatest ratio that we accept. A row above it is missed, and says why.
- The *floor* is the time of the steps that no implementation of the same contract can leave out, and says which they are.
  A row whose peer is the floor compares with it.
- *Static with LTO* is another program, with runs of its own for the peer.
"""


def write_page(page, programs, lines, curves):
    counted, pictures = dict(fields_of("curves.tsv")), []
    for capability, curve in sorted(curves.items()):
        image = page.parent / "curves" / f"{capability.replace(' ', '-').replace(',', '')}.svg"
        image.parent.mkdir(exist_ok=True)
        plot(capability, counted[capability], curve, image)
        pictures += [f"![{capability}](curves/{image.name})", "", conclusion(counted[capability], curve), ""]
    page.write_text("\n".join((HEAD, setting(programs), "", *lines, "", "## Growth", "", *pictures)))


def main(arguments):
    if len(arguments) not in (1, 2):
        sys.exit(__doc__)
    programs = results(pathlib.Path(arguments[0]))
    busy = [program for program in programs if is_busy(program)]
    quiet = [program for program in programs if not is_busy(program)] or busy
    rows, curves = rows_of(quiet), curves_of(quiet)
    lines = table(rows, rows_of(busy))
    print("\n".join(lines))
    for capability in unmatched(rows):
        print(f"not in the table, without a result or a target: {capability}")
    if len(arguments) == 2:
        write_page(pathlib.Path(arguments[1]).resolve(), programs, lines, curves)


if __name__ == "__main__":
    main(sys.argv[1:])
