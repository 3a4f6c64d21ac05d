#!/usr/bin/env python3
"""Finishes Doxygen's pages: what to include and to link on each header's page, a link wherever the
text names a function and none to files that are not there, and the entries of docs/search.js.

usage: reference.py XML_DIRECTORY HTML_DIRECTORY
"""
import html
import json
import pathlib
import re
import sys
import xml.etree.ElementTree as ET

from mdoc import plain

TOKEN = re.compile(r"<!--.*?-->|<[^>]+>|[^<]+", re.S)
UNLINKED = re.compile(r'<(a|head|script|h\d)\b|<(td) class="(?:memname|memItem\w+)"|<(div) class="title"')
LINK = re.compile(r'<a href="([^"#:]+)">(.*?)</a>')
WORD = re.compile(r"(?<![\w/.])[A-Za-z_]\w+(?:\(\))?(?!\.\w)")


def address(node):
    """Where Doxygen puts it: a page, or a member within a page."""
    page, member = re.fullmatch(r"(.*?)(?:_1(a[0-9a-f]{32,}))?", node.get("refid") or node.get("id")).groups()
    return page.replace("indexpage", "index") + ".html" + (f"#{member}" if member else "")


def sentence(node):
    return plain(node.find("briefdescription"))


def entries(compound):
    """(kind, name, page, sentence) of what a page describes, and of the page itself."""
    name = compound.findtext("title") or compound.find("location").get("file", "")
    if compound.get("kind") in ("struct", "class"):
        name = compound.findtext("compoundname")
    yield compound.get("kind"), name, address(compound), sentence(compound)
    for member in compound.iter("memberdef"):
        if member.get("prot") != "private" and "@" not in member.findtext("name"):
            yield member.get("kind"), member.findtext("name"), address(member), sentence(member)
        for value in member.iter("enumvalue"):
            yield "value", value.findtext("name"), address(value), sentence(value)


def is_public(kind, name):
    return kind != "dir" and not (kind == "file" and name.endswith((".md", ".dox")))


def linked(text, pages):
    def link(word):
        page = pages.get(word.group().removesuffix("()"))
        sure = "_" in word.group() or word.group().endswith("()")
        return f'<a class="el" href="{page}">{word.group()}</a>' if page and sure else word.group()
    return WORD.sub(link, text)


def with_links(page, pages):
    """Headings, prototypes and what is a link already stay as they are."""
    done, closing = [], None
    for token in TOKEN.findall(page):
        opening = UNLINKED.match(token)
        if closing is None and opening:
            closing = f"</{opening.group(opening.lastindex)}>"
        elif closing is None and not token.startswith("<"):
            token = linked(token, pages)
        elif token == closing:
            closing = None
        done.append(token)
    return "".join(done)


def without_dead_links(page, pages):
    return LINK.sub(lambda link: link.group() if (pages / link.group(1)).exists() else link.group(2), page)


def use(header):
    """How a program gets at a header, as a box of HTML."""
    target = "qal::kalmora" if header.parts[0] == "kalmora" else "qal::qal"
    compiler = "c++ mine.cpp" if header.suffix == ".hpp" else "cc mine.c"
    lines = [("in the source", f"#include <{header}>"), ("CMake", f"target_link_libraries(mine PRIVATE {target})"),
             ("pkg-config", f"{compiler} $(pkg-config --cflags --libs qal)")]
    rows = "".join(f"<tr><td>{where}</td><td><code>{html.escape(line)}</code></td></tr>" for where, line in lines)
    return f'<table class="markdownTable use">{rows}</table>'


def begin_page(compound, pages):
    page, contents = pages / address(compound), '<div class="contents">\n'
    header = pathlib.PurePosixPath(compound.find("location").get("file"))
    titled = page.read_text().replace(f'"title">{header.name} File Reference<', f'"title">{header}<', 1)
    page.write_text(titled.replace(contents, contents + use(header), 1))


def main(xml, pages):
    files = [entry.get("refid") for entry in ET.parse(xml / "index.xml").iter("compound")]
    compounds = [ET.parse(xml / f"{refid}.xml").find("compounddef") for refid in files]
    found = [entry for compound in compounds for entry in entries(compound) if is_public(*entry[:2])]
    listed = json.dumps([entry[1:] for entry in found], separators=(",", ":"))
    (pages / "search" / "searchdata.js").write_text(f"const searchEntries = {listed};\n")
    for compound in compounds:
        if compound.get("kind") == "file" and compound.find("location").get("file").endswith((".h", ".hpp")):
            begin_page(compound, pages)
    functions = {name: html.escape(page) for kind, name, page, _ in found if kind == "function"}
    for page in pages.glob("*.html"):
        page.write_text(with_links(without_dead_links(page.read_text(), pages), functions))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
