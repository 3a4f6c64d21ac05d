#!/usr/bin/env python3
"""Compares the functions that the public headers declare with those of the manual pages.

usage: check_names.py INCLUDE_DIRECTORY MANUAL_DIRECTORY

Reads both as text and knows nothing of how the pages are made. Ends with 1 and the names when a
function has no page of section 3, or when such a page has a function that is not declared.
"""
import pathlib
import re
import sys

NOT_CODE = re.compile(r"/\*.*?\*/|//[^\n]*|^#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
EXPORTED = re.compile(r"\bQAL_API\b[^;{}()]*?\b(\w+)\(")
CLASS = re.compile(r"class QAL_API (\w+) \{.*?public:(.*?)private:", re.S)
METHOD = re.compile(r"\b(\w+)\([^()]*\);")
PLAIN = re.compile(r"^(?!extern|typedef)[\w:<>]+[\w:<>*& ]*?[ *](\w+)\(", re.M)
ON_PAGE = re.compile(r"^\.(?:Fo|Fn|It Fn) ([\w:]+)", re.M)


def declared(header):
    text = NOT_CODE.sub("", header.read_text())
    found = CLASS.search(text)
    if found:
        return {f"{found.group(1)}::{name}" for name in METHOD.findall(found.group(2))}
    return set((EXPORTED if header.suffix == ".h" else PLAIN).findall(text))


def page_of(header):
    return f"{header.parent.name}_{header.stem}.3"


def main(include, manual):
    headers = {page_of(header): declared(header) for header in include.glob("*/*.h*")}
    pages = {page.name: set(ON_PAGE.findall(page.read_text())) for page in manual.glob("*.3")}
    wrong = 0
    for page in sorted(headers.keys() | pages.keys()):
        names, shown = headers.get(page, set()), pages.get(page, set())
        for name in sorted(names ^ shown):
            print(f"{page}: {name} is {'missing' if name in names else 'not declared'}")
        wrong += len(names ^ shown)
    print(f"{sum(map(len, headers.values()))} functions declared, {wrong} names wrong in the manual")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
