#!/usr/bin/env python3
"""Compares the list of exported names with the shared library and with the public headers.

usage: check_symbols.py LIBRARY
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIST = ROOT / "packaging/debian/libqal1.symbols"
NODE = "@QAL_1"


def output_of(*command, **options):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


def listed():
    return set(re.findall(rf"^ (\S+){NODE} ", LIST.read_text(), re.MULTILINE))


def exported(library):
    names = {line.split()[-1] for line in output_of("nm", "-D", "--defined-only", library).splitlines()}
    return {re.sub(rf"@?{NODE}$", "", name) for name in names}


def declared(generated_headers):
    """The functions and variables that the C headers mark as exported."""
    text = output_of("cc", "-E", "-P", "-x", "c", "-", "-I", ROOT / "include", "-I", generated_headers,
                     input="#include <qal/qal.h>\n")
    names = set()
    for before, end in re.findall(r'visibility\("default"\)\)\)([^;({]*)([;(])', text):
        declarators = [before] if end == "(" else before.split(",")
        names |= {re.findall(r"\w+", re.sub(r"\[.*", "", declarator))[-1] for declarator in declarators}
    return names


def is_identity(name):
    return "QalIdentity" in name and name.startswith("_Z")


def missing(names, place):
    for name in sorted(names):
        print(f"{name} is not {place}")
    return len(names)


def main(library):
    list_names = listed()
    library_names = exported(library)
    header_names = declared(pathlib.Path(library).parent / "include")
    c_names = {name for name in list_names if not is_identity(name)} - {NODE[1:]}
    wrong = (missing(list_names - library_names, "exported, but listed")
             + missing(library_names - list_names, "listed, but exported")
             + missing(header_names - c_names, "listed, but declared")
             + missing(c_names - header_names, "declared, but listed"))
    print(f"{len(list_names)} names are listed, {len(library_names)} exported, "
          f"{len(header_names)} declared for C")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
