#!/usr/bin/env python3
"""Draws the areas and who calls whom, as the object files have it.

usage: architecture.py BUILD_DIRECTORY INCLUDE_DIRECTORY PICTURE

A unit belongs to the areas whose headers it defines wholly, or to the one that it defines most of;
one that defines nothing public stands for itself. An arrow says that one area uses a symbol of the
other. Arrows that follow from others are left out.
"""
import collections
import pathlib
import subprocess
import sys

from check_names import declared

TARGETS = ("qal", "qal_platform", "kalmora", "kalmora-sweep")


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


def edges(units, headers):
    """{(user, used)} among areas."""
    declaring = {name: area for area, names in headers.items() for name in names}
    owner, wants = {}, collections.defaultdict(set)
    for unit in units:
        defined, wanted = symbols(unit)
        areas = areas_of(unit, defined, headers)
        owner.update({name: declaring.get(name, areas[0]) for name in defined})
        for area in areas:
            wants[area] |= wanted
    return {(area, owner[name]) for area, names in wants.items() for name in names
            if owner.get(name, area) != area}


def drawing(found):
    areas = sorted({area for edge in found for area in edge})
    lines = [
        "digraph {",
        'graph [ranksep=0.45, nodesep=0.12, bgcolor=white]',
        'node [shape=box, style="rounded,filled", fillcolor="#eef2f8", color="#5b6b86", fontname="DejaVu Sans",'
        ' fontsize=11, fixedsize=true, width=1.15, height=0.32]',
        'edge [color="#5b6b86", arrowsize=0.6]',
        *(f'"{area}"' for area in areas),
        *(f'"{user}" -> "{used}"' for user, used in sorted(found)),
        "}",
    ]
    return "\n".join(lines)


def main(build, include, picture):
    headers = {header.stem: declared(header) for header in sorted(include.glob("*/*.h*"))}
    units = sorted(unit for target in TARGETS for unit in build.glob(f"CMakeFiles/{target}.dir/**/*.o"))
    dot = drawing(edges(units, headers))
    reduced = subprocess.run(["tred"], input=dot, capture_output=True, text=True, check=True).stdout
    svg = subprocess.run(["dot", "-Tsvg"], input=reduced, capture_output=True, text=True, check=True).stdout
    picture.write_text(svg)


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
