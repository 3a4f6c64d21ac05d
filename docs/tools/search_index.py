"""What docs/search.js searches, from Doxygen's XML: an entry (kind, name, page, sentence, text) for each
name, each header and each part of a document, and the everyday words of search_words.txt.
"""
import json
import pathlib
import re

from mdoc import plain, squeeze

WORDS = pathlib.Path(__file__).with_name("search_words.txt")
NO_PROSE = {"title", "programlisting", "verbatim", "image", "sect1", "sect2"}


def address(node):
    """Where Doxygen puts it: a page, or a member or a section within a page."""
    name = node.get("refid") or node.get("id")
    page, place = re.fullmatch(r"(.*?)(?:_1(a[0-9a-f]{32,}|autotoc_md\d+))?", name).groups()
    return page.replace("indexpage", "index") + ".html" + (f"#{place}" if place else "")


def text_parts(node):
    """Without titles, code, examples and sections, which have entries of their own."""
    yield node.text or ""
    for child in node:
        if child.tag not in NO_PROSE and child.get("kind") != "par":
            yield from text_parts(child)
        yield child.tail or ""


def prose_of(node):
    return squeeze("".join(text_parts(node)))


def described(kind, name, node):
    return kind, name, address(node), plain(node.find("briefdescription")), prose_of(node.find("detaileddescription"))


def section_entry(title, place, section):
    """The tables of figures that a command writes are left out."""
    text = prose_of(section)
    first = re.match(r".*?[.](?= |$)|", text).group()
    return "section", title, place, first, first if "Written by ./run" in text else text


def document_entries(page):
    title = page.findtext("title")
    yield section_entry(title, address(page), page.find("detaileddescription"))
    for section in (*page.iter("sect1"), *page.iter("sect2")):
        yield section_entry(f"{title}: {plain(section.find('title'))}", address(section), section)


def name_entries(compound):
    is_type = compound.get("kind") in ("struct", "class")
    name = compound.findtext("compoundname") if is_type else compound.find("location").get("file", "")
    yield described(compound.get("kind"), name, compound)
    for member in compound.iter("memberdef"):
        if member.get("prot") != "private" and "@" not in member.findtext("name"):
            yield described(member.get("kind"), member.findtext("name"), member)
        for value in member.iter("enumvalue"):
            yield described("value", value.findtext("name"), value)


def is_public(kind, name):
    return kind != "dir" and not (kind == "file" and name.endswith((".md", ".dox")))


def entries(compounds):
    """Documents first."""
    pages = [compound for compound in compounds if compound.get("kind") == "page"]
    others = [compound for compound in compounds if compound.get("kind") != "page"]
    found = [entry for compound in others for entry in name_entries(compound)]
    return [*(entry for page in pages for entry in document_entries(page)),
            *(entry for entry in found if is_public(*entry[:2]))]


def everyday_words():
    """For each word that people search for, what the pages call it."""
    lines = [line.split(":") for line in WORDS.read_text().splitlines() if not line.startswith("#")]
    return {word: meaning.split() for words, meaning in lines for word in words.split()}


def write(file, found):
    data = {"searchEntries": [entry[1:] for entry in found], "searchWords": everyday_words()}
    file.write_text("".join(f"const {name} = {json.dumps(value, separators=(',', ':'))};\n"
                            for name, value in data.items()))
