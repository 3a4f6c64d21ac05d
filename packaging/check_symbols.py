#!/usr/bin/env python3
"""Compares the list of exported names with the shared library. areas.py compares the list with what
the headers declare.

usage: check_symbols.py LIBRARY
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
[LIST] = ROOT.glob("packaging/debian/libqal*.symbols")


def listed():
    return set(re.findall(r"^ (\S+) ", LIST.read_text(), re.MULTILINE))


def exported(library):
    """Each name with its version. A version itself has none, and is listed under its own."""
    shown = subprocess.run(["nm", "-D", "--defined-only", library], check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    names = (line.split()[-1].replace("@@", "@") for line in shown.splitlines())
    return {name if "@" in name else f"{name}@{name}" for name in names}


def missing(names, place):
    for name in sorted(names):
        print(f"{name} is not {place}")
    return len(names)


def main(library):
    list_names = listed()
    library_names = exported(library)
    wrong = (missing(list_names - library_names, "exported, but listed")
             + missing(library_names - list_names, "listed, but exported"))
    print(f"{len(list_names)} names are listed, {len(library_names)} exported")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
