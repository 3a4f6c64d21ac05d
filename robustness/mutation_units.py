"""Which test programs answer for which unit: "area" is tests/area_test, "area.corpus" the replay of a fuzz
corpus. A source has those of its area. A header also has the tests of every area that includes it, as
recorded by the release build.
"""
import collections
import functools
import os
import pathlib
import subprocess

import figures
from figures import areas

TREE = figures.BUILD / "release"

# There is no function in the one, and the tests of the other start a program that is without it.
LEFT_OUT = ("utils/libsrc/qal_list_inline.c", "utils/libsrc/qal_thread_init_sys.cpp")


@functools.cache
def files_of_objects():
    """For each object of the release build, the product's own files that it was made from."""
    shown = subprocess.run(["ninja", "-C", TREE, "-t", "deps"], check=True, capture_output=True,
                           text=True).stdout
    found = {}
    for entry in filter(None, shown.split("\n\n")):
        head, *lines = entry.splitlines()
        # A compiler cache makes the paths relative to the tree.
        read = [os.path.relpath(TREE / line.strip(), figures.ROOT) for line in lines]
        found[head.partition(":")[0]] = [
            file for file in read if file.startswith(tuple(f"{folder}/" for folder in areas.SOURCES))]
    return found


@functools.cache
def files_of():
    """For each of the product's sources, itself and its own headers."""
    return {own[0]: own for own in files_of_objects().values()
            if own and own[0] in areas.all_of("sources") and own[0] not in LEFT_OUT}


def of_the_tool():
    """What the tests do not call but start."""
    return areas.AREAS["tool"]["sources"]


@functools.cache
def included_by():
    """For each of the product's headers, the library's sources that are compiled with it."""
    found = collections.defaultdict(list)
    for source, files in files_of().items():
        if source in of_the_tool():
            continue
        for header in files[1:]:
            if source not in found[header]:
                found[header].append(source)
    return found


def executable(program):
    area, _, kind = program.partition(".")
    return f"fuzz/{area}_replay" if kind else f"tests/{area}_test"


def includes_source(program, unit, sources):
    """Whether the program has one of the sources in an object of its own: no other can be linked with
    it. The object of the unit alone can be replaced."""
    folder, name = executable(program).split("/")
    return any(source in files and not file.endswith(f"/{unit}.o")
               for file, files in files_of_objects().items()
               if file.startswith(f"{folder}/CMakeFiles/{name}.dir/") for source in sources)


def tests_of(unit):
    """Those of its area first, then those of the areas that include it or its header; not those for
    another system, nor those that the unit cannot be linked with."""
    header = str(pathlib.Path(unit).with_suffix(".hpp"))
    sources = [unit, *included_by().get(header, ())]
    tests = dict.fromkeys(test for source in sources for test in areas.tests_of(source))
    compiled = included_by().get(unit, [unit])
    return [test for test in tests
            if (TREE / executable(test)).exists() and not includes_source(test, unit, compiled)]


@functools.cache
def units():
    """The test programs of each unit."""
    return {unit: tests_of(unit) for unit in (*files_of(), *included_by())}


def critical():
    return [unit for unit in units() if unit in areas.all_of("critical")]
