#!/usr/bin/env python3
"""Puts the results of the benchmarks beside their targets.

usage: table.py RESULTS_DIRECTORY          the table on the terminal
       table.py RESULTS_DIRECTORY PAGE     the page with the curves beside it (needs gnuplot)

A benchmark is called "capability|who". Medians of the repetitions are compared. The rows, their
order and their targets stand in targets.tsv.
"""
import collections
import json
import os
import pathlib
import platform
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
OURS, FLOOR = "qal", "floor"

# `remark` says why a target is missed, if it is.
Target = collections.namedtuple("Target", "capability ratio peer remark")


def targets():
    lines = (HERE / "targets.tsv").read_text().splitlines()
    fields = (line.split("\t") for line in lines if line and not line.startswith("#"))
    return [Target(name, float(ratio), peer, remark) for name, ratio, peer, remark in fields]


def medians(directory):
    """{capability: {who: ns}} and {capability: {who: [(size, ns)]}}."""
    rows, curves = collections.defaultdict(dict), collections.defaultdict(dict)
    for file in sorted(directory.glob("*.json")):
        for run in json.loads(file.read_text())["benchmarks"]:
            if run.get("aggregate_name") != "median":
                continue
            capability, rest = run["run_name"].split("|", 1)
            who, *sizes = rest.removesuffix("/real_time").split("/")
            time = run["real_time"] * NANOSECONDS[run["time_unit"]]
            if sizes:
                curves[capability].setdefault(who, []).append((int(sizes[0]), time))
            else:
                rows[capability][who] = time
    return rows, curves


def duration(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}"
    return f"{ns:.3g} ns"


def peer_of(times, named):
    """The peer that the target names, else the fastest."""
    peers = {who: ns for who, ns in times.items() if who not in (OURS, FLOOR)}
    return min((who for who in peers if not named or who == named), key=peers.get)


def line(target, times):
    peer = peer_of(times, target.peer)
    ratio = times[OURS] / times[peer]
    floor = duration(times[FLOOR]) if FLOOR in times else ""
    verdict = ("reached", "") if ratio <= target.ratio else ("missed", target.remark)
    return (target.capability, duration(times[OURS]), f"{duration(times[peer])} ({peer})",
            f"{ratio:.2f}", f"{target.ratio:g}", floor, *verdict)


def table(rows):
    head = ("capability", "ours", "peer", "ratio", "target", "floor", "", "why")
    body = [line(target, rows[target.capability]) for target in targets()
            if OURS in rows.get(target.capability, {})]
    widths = [max(len(row[column]) for row in [head, *body]) for column in range(len(head))]
    body.insert(0, tuple("-" * max(1, width) for width in widths))
    return ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
            for row in [head, *body]]


def unmatched(rows):
    """Capabilities that are in no table, for a result or a target is missing."""
    return sorted({target.capability for target in targets()} ^ rows.keys())


def plot(capability, curve, image):
    data = "".join(f'"{who}"\n' + "".join(f"{x} {y}\n" for x, y in sorted(points)) + "\n\n"
                   for who, points in curve.items())
    commands = f"""
set terminal svg size 640,400 font "sans-serif,12" background "white"
set output "{image}"
set title "{capability}" noenhanced
set xlabel "size"; set ylabel "time, ns"; set logscale xy; set key left top noenhanced; set grid
$data << END
{data}END
plot for [i=0:{len(curve) - 1}] $data index i using 1:2 with linespoints title columnheader(1)
"""
    subprocess.run(["gnuplot"], input=commands, text=True, check=True)


def write_page(page, rows, curves):
    pictures = []
    for number, (capability, curve) in enumerate(sorted(curves.items())):
        image = page.parent / "curves" / f"{capability.replace(' ', '-').replace(',', '')}.svg"
        image.parent.mkdir(exist_ok=True)
        plot(capability, curve, image)
        pictures += [f"![{capability}](curves/{image.name})", ""]
    page.write_text("\n".join((
        "# Speed, as measured", "",
        "Written by `./run bench page`. Each row puts a function beside what a user would reach for",
        "instead, on the same work, in one process, interleaved; the medians are compared. A ratio",
        f"below 1 is faster than the peer. The machine has {os.cpu_count()} processors "
        f"({platform.machine()}, {platform.system()}).", "",
        *table(rows), "", "## Growth", "", *pictures)))


def main(arguments):
    if len(arguments) not in (1, 2):
        sys.exit(__doc__)
    rows, curves = medians(pathlib.Path(arguments[0]))
    print("\n".join(table(rows)))
    for capability in unmatched(rows):
        print(f"not in the table, without a result or a target: {capability}")
    if len(arguments) == 2:
        write_page(pathlib.Path(arguments[1]).resolve(), rows, curves)


if __name__ == "__main__":
    main(sys.argv[1:])
