#!/usr/bin/env python3
"""Draws the areas and who calls whom, as the object files have it.

usage: architecture.py BUILD_DIRECTORY INCLUDE_DIRECTORY PICTURE

A unit belongs to the areas whose headers it defines wholly, or to the one that it defines most of;
one that defines nothing public stands for itself. An arrow says that one area uses a symbol of the
other. Arrows that follow from others are left out. The picture has a legend that says so.
"""
import collections
import pathlib
import subprocess
import sys

from check_names import declared

LIBRARY, PROGRAMS = "#e9eff8", "#fdf0d8"
TARGETS = ("qal", "qal_internal", "qal_platform", "kalmora", "kalmora-sweep")


def symbols(unit):
    """What a unit defines and what it wants from elsewhere, by name without arguments."""
    listing = subprocess.run(["nm", "--demangle", "--extern-only", unit], capture_output=True, text=True, check=True)
    defined, wanted = set(), set()
    for line in listing.stdout.splitlines():
        kind, name = line[17:].split(" ", 1)
        (wanted if kind == "U" else defined).add(name.split("(")[0])
    return defined, wanted


def areas_of(unit, defined, headers):
    whole = [area for area, names in headers.items() if names and names <= defined]
    most = max(headers, key=lambda area: len(defined & headers[area]))
    if whole or defined & headers[most]:
        return whole or [most]
    return ["platform" if unit.parent.name == "platform" else unit.name.split(".")[0].removeprefix("qal_")]


def read_areas(units, headers):
    """The edges (user, used) among areas, and the areas that the library has no part of."""
    declaring = {name: area for area, names in headers.items() for name in names}
    owner, wants, library = {}, collections.defaultdict(set), set()
    for unit in units:
        defined, wanted = symbols(unit)
        areas = areas_of(unit, defined, headers)
        owner.update({name: declaring.get(name, areas[0]) for name in defined})
        for area in areas:
            wants[area] |= wanted
        library.update(areas if "app" not in unit.parts else ())
    edges = {(area, owner[name]) for area, names in wants.items() for name in names
             if owner.get(name, area) != area}
    return edges, wants.keys() - library


def legend():
    explained = ((f' bgcolor="{LIBRARY}" border="1"', "", "the library, qal"),
                 (f' bgcolor="{PROGRAMS}" border="1"', "", "the programs alone, kalmora and kalmora-sweep"),
                 ("", "A → B", "A calls B; arrows that follow from others are left out"))
    rows = "".join(f'<tr><td width="46" height="16"{look}>{sign}</td><td align="left">{text}</td></tr>'
                   for look, sign, text in explained)
    return f'<<table border="0" cellborder="0" cellspacing="4" color="#5b6b86">{rows}</table>>'


def drawing(edges, programs):
    areas = sorted({area for edge in edges for area in edge})
    return "\n".join([
        "digraph areas {",
        f'graph [ranksep=0.45, nodesep=0.12, bgcolor=white, fontname="DejaVu Sans", fontsize=11, label={legend()}]',
        f'node [shape=box, style="rounded,filled", fillcolor="{LIBRARY}", color="#5b6b86", fontname="DejaVu Sans",'
        ' fontsize=11, fixedsize=true, width=1.15, height=0.32]',
        'edge [color="#5b6b86", arrowsize=0.6]',
        *(f'"{area}"' + (f' [fillcolor="{PROGRAMS}"]' if area in programs else "") for area in areas),
        *(f'"{user}" -> "{used}"' for user, used in sorted(edges)),
        "}",
    ])


def run(*command, given):
    return subprocess.run(command, input=given, capture_output=True, text=True, check=True).stdout


def main(build, include, picture):
    headers = collections.defaultdict(set)
    for header in sorted(include.glob("*/*.h*")):
        headers[header.stem] |= declared(header)
    units = sorted(unit for target in TARGETS for unit in build.glob(f"CMakeFiles/{target}.dir/**/*.o"))
    reduced = run("tred", given=drawing(*read_areas(units, headers)))
    picture.write_text(run("dot", "-Tsvg", given=reduced))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
