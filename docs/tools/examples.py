#!/usr/bin/env python3
"""Writes the comments by which Doxygen puts each header's examples and their output on its page.

usage: examples.py INCLUDE_DIRECTORY EXAMPLES_DIRECTORY PAGES
"""
import pathlib
import sys


def block(header, example, name):
    expected = example.with_suffix(".txt").relative_to(example.parent.parent)
    return f"""/** @file {header}
 *  @par {name}
 *  @include {example.relative_to(example.parent.parent)}
 *  prints
 *  @verbinclude {expected} */
"""


def examples_of(header, examples):
    directory = examples / header.parent.name
    return sorted({*directory.glob(f"{header.stem}.c*"), *directory.glob(f"{header.stem}_*.c*")})


def main(include, examples, pages):
    blocks = []
    for header in sorted(include.glob("*/*.h*")):
        for number, example in enumerate(examples_of(header, examples)):
            name = "Example" if number == 0 else "Another example"
            blocks.append(block(header.relative_to(include), example, name))
    pages.write_text("\n".join(blocks))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
