#!/usr/bin/env python3
"""Draws what a command printed, read from standard input, as a picture of a terminal.

usage: COMMAND | terminal.py SHOWN_COMMAND PICTURE

Lines that begin with "home", "temporary" or "server" differ from run to run and are left out.
"""
import html
import pathlib
import re
import sys

VARYING = re.compile(r"^(home|temporary|server) ")
CHARACTER, LINE, MARGIN = 7.8, 19, 18  # in pixels
COLOURS = [(re.compile(r"^ok "), "#7fd88f"), (re.compile(r"^\$ |^ +RECORD "), "#ffffff")]


def colour_of(line):
    return next((colour for pattern, colour in COLOURS if pattern.match(line)), "#c9d1d9")


def texts(number, line):
    """One for each column, so that it begins where it should, whatever font there is."""
    for words in re.finditer(r"\S+(?: \S+)*", line):
        x, y = MARGIN + words.start() * CHARACTER, MARGIN + 14 + number * LINE
        yield (f'<text x="{x:.1f}" y="{y}" fill="{colour_of(line)}"'
               f' textLength="{len(words.group()) * CHARACTER:.1f}">{html.escape(words.group())}</text>')


def picture(lines):
    width = 2 * MARGIN + max(map(len, lines)) * CHARACTER
    height = 2 * MARGIN + len(lines) * LINE
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height}" width="{width:.0f}"'
        f' height="{height}" font-family="ui-monospace, Menlo, DejaVu Sans Mono, monospace" font-size="13">',
        f'<rect width="{width:.0f}" height="{height}" rx="8" fill="#161b22"/>',
        *(text for number, line in enumerate(lines) for text in texts(number, line)),
        "</svg>",
    ]) + "\n"


def main(command, path):
    printed = [line.rstrip() for line in sys.stdin if not VARYING.match(line)]
    body = "\n".join(printed).strip("\n").split("\n")
    pathlib.Path(path).write_text(picture([f"$ {command}", "", *body]))


if __name__ == "__main__":
    main(*sys.argv[1:])
