#!/usr/bin/env python3
"""Finishes Doxygen's pages: what to include and to link on each header's page, a link wherever the
text names a function and none to files that are not there, and what docs/search.js searches. Ends
with 1 and the words when a document's code or headings are not on its page as they were written.

usage: reference.py XML_DIRECTORY HTML_DIRECTORY
"""
import html
import pathlib
import re
import sys
import xml.etree.ElementTree as ET

import search_index
from mdoc import plain, squeeze
from search_index import address

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOKEN = re.compile(r"<!--.*?-->|<[^>]+>|[^<]+", re.S)
UNLINKED = re.compile(r'<(a|head|script|h\d)\b|<(td) class="(?:memname|memItem\w+)"|<(div) class="title"')
LINK = re.compile(r'<a href="([^"#:]+)">(.*?)</a>')
WORD = re.compile(r"(?<![\w/.])[A-Za-z_]\w+(?:\(\))?(?!\.\w)")


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


def lost(document, pages):
    """The headings of the document, and what stands between backticks, that are not on its page."""
    source = ROOT / document.find("location").get("file")
    prose = re.sub(r"^```.*?^```", "", source.read_text(), flags=re.S | re.M)
    shown = squeeze(html.unescape(re.sub("<[^>]+>", "", (pages / address(document)).read_text())))
    code = [code for code in re.findall("`([^`]+)`", prose) if squeeze(code) not in shown]
    titles = [plain(title) for title in document.iter("title")]
    headings = [heading for heading in re.findall("^##+ (.*)$", prose, re.M) if heading not in titles]
    return [f"{source.name}: {text}" for text in code + headings]


def main(xml, pages):
    files = [entry.get("refid") for entry in ET.parse(xml / "index.xml").iter("compound")]
    compounds = [ET.parse(xml / f"{refid}.xml").find("compounddef") for refid in files]
    found = search_index.entries(compounds)
    search_index.write(pages / "search" / "searchdata.js", found)
    for compound in compounds:
        if compound.get("kind") == "file" and compound.find("location").get("file").endswith((".h", ".hpp")):
            begin_page(compound, pages)
    functions = {name: html.escape(page) for kind, name, page, *_ in found if kind == "function"}
    for page in pages.glob("*.html"):
        page.write_text(with_links(without_dead_links(page.read_text(), pages), functions))
    documents = [compound for compound in compounds if compound.get("kind") == "page"]
    if missing := [text for document in documents for text in lost(document, pages)]:
        sys.exit("\n".join(["Doxygen has changed:", *missing]))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
