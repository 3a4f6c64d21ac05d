#!/usr/bin/env python3
"""The areas of this project, as areas.json has them: each with its headers, sources and tests, named
once. The build, the measurements and the table of headers in the documents read them from there.

usage: areas.py check      whether every file named there exists, and every file is named there; and
                           whether all that headers export is in the list of exports and in the test
                           of the surface, and each enumerator in the latter; and whether headers with
                           functions say who may call them, and where their source is
       areas.py names KEY  what the entries have under the key, a line each
       areas.py table      writes the table of headers into docs/index.md

An entry holds
  holds       what the area is about
  headers     the public headers, below include/
  sources     the files that are compiled into the product
  critical    those of them, or headers beside them, of which every branch is to be tested
  tests       the test programs that show it, those of other areas too: NAME stands for NAME_test.cpp in a
              folder of tests/
  exhaustive  those of them that only compare with a model, which takes long and is the same each time
  threads     which of their cases start threads, as a filter of GoogleTest; TARGET.corpus is the replay
              of a fuzz target
  formats     the test programs that show how texts are formatted
  fuzz        the fuzz targets, NAME_fuzz.cpp, each with the files that it is about unless those are the
              sources; with parts of names of functions where it is not about the whole file
"""
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent
AREAS = json.loads((ROOT / "areas.json").read_text())
SOURCES = ("app", "cxxutils", "utils")
[EXPORTS] = (str(file.relative_to(ROOT)) for file in ROOT.glob("packaging/debian/libqal*.symbols"))
SURFACE = "tests/contract/c11_surface.c"
NOT_CODE = re.compile(r"/\*.*?\*/|^#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
ENUMERATORS = re.compile(r"\benum\b[^{;]*\{([^}]*)\}")
EXPORTED = re.compile(r"\bQAL_API\b[^;(]*?\b(\w+)(?:\[\w+\])?[;(]")


def all_of(key):
    """What the entries have under the key, in order and each once."""
    return list(dict.fromkeys(name for area in AREAS.values() for name in area.get(key, ())))


def threaded():
    """For each test program with threads, the filter for its cases."""
    return {name: cases for area in AREAS.values() for name, cases in area.get("threads", {}).items()
            if not name.endswith(".corpus")}


def tests_of(source):
    """The test programs of the areas that a source belongs to, and the replays of its fuzz targets."""
    areas = [area for area in AREAS.values() if source in area["sources"]]
    return list(dict.fromkeys(name for area in areas for name in [
        *area["tests"], *(f"{target}.corpus" for target in area.get("fuzz", ()))]))


def reach_of(target):
    """The files that a fuzz target is about, each with parts of names of functions; all with ""."""
    reach = {}
    for area in AREAS.values():
        targets = area.get("fuzz", ())
        if target in targets:
            named = targets[target] if isinstance(targets, dict) else area["sources"]
            reach |= named if isinstance(named, dict) else dict.fromkeys(named, [""])
    return reach


def files(pattern, folder=ROOT):
    return {str(file.relative_to(folder)) for file in folder.glob(pattern)}


def named_alike(suffixes, pattern):
    """The names of the files that the pattern finds, without what follows the area's."""
    names = {pathlib.Path(file).name for file in files(pattern)}
    return {name.removesuffix(suffix) for name in names for suffix in suffixes if name.endswith(suffix)}


def compare(what, named, found):
    return [f"areas.json names {what} that is not there: {name}" for name in sorted(named - found)] + [
        f"areas.json has no entry for {what}: {name}" for name in sorted(found - named)]


def declarations():
    """The code of the C headers."""
    headers = [ROOT / "include" / name for name in all_of("headers") if name.endswith(".h")]
    return "".join(NOT_CODE.sub("", header.read_text()) for header in headers)


def enumerators(code):
    return {name for listed in ENUMERATORS.findall(code) for name in re.findall(r"(?:^|,)\s*(\w+)", listed)}


def missing_words(header):
    """What the comment of a header with functions lacks."""
    text = (ROOT / "include" / header).read_text()
    words = ("Threads:", "Source:") if "(" in NOT_CODE.sub("", text) else ()
    return [word for word in words if f"\n *  {word} " not in text]


def compare_exports():
    code = declarations()
    names = set(EXPORTED.findall(code))
    listed = set(re.findall(r"^ (\w+)@", (ROOT / EXPORTS).read_text(), re.M))
    of_other_kinds = {name for name in listed if re.match(r"_Z|QAL_\d+$", name)}
    called = set(re.findall(r"\w+", (ROOT / SURFACE).read_text()))
    missing = ((EXPORTS, names - listed), (SURFACE, (names | enumerators(code)) - called))
    return [f"{name} is not in {place}" for place, of_place in missing for name in sorted(of_place)] + [
        f"{name} is in {EXPORTS}, but in no header" for name in sorted(listed - of_other_kinds - names)]


def check():
    compiled = {file for folder in SOURCES for suffix in ("c", "cpp", "mm")
                for file in files(f"{folder}/**/*.{suffix}")}
    headers = {file for pattern in ("*/*.h", "*/*.hpp") for file in files(pattern, ROOT / "include")}
    wrong = [
        *compare("a source", set(all_of("sources")), compiled),
        *compare("a header", set(all_of("headers")), headers),
        *compare("a test", set(all_of("tests")), named_alike(("_test.cpp", "_test.mm"), "tests/*/*")),
        *compare("a fuzz target", set(all_of("fuzz")), named_alike(("_fuzz.cpp",), "fuzz/*")),
        *compare("a bundle of inputs", set(all_of("fuzz")), named_alike((".tar",), "fuzz/corpus/*")),
        *(f"areas.json calls a file critical or fuzzed that is not there: {name}"
          for name in [*all_of("critical"), *(file for target in all_of("fuzz") for file in reach_of(target))]
          if not (ROOT / name).exists()),
        *(f"areas.json names functions that {file} does not have: {part}"
          for target in all_of("fuzz") for file, parts in reach_of(target).items()
          for part in parts if part not in (ROOT / file).read_text()),
        *(f"{header} does not say of its functions: {word}"
          for header in all_of("headers") for word in missing_words(header)),
        *(f"areas.json does not name a test under tests, but elsewhere: {name}"
          for name in {*threaded(), *all_of("formats"), *all_of("exhaustive")} - set(all_of("tests"))),
        *compare_exports(),
    ]
    print("\n".join(wrong), end="\n" if wrong else "")
    return not wrong


def sentence_of(header):
    """The first sentence of the header's comment."""
    comment = re.match(r"/\*\* @file\n(.*?)\*/", (ROOT / "include" / header).read_text(), re.S).group(1)
    return re.match(r".*?\.(?= |$)", " ".join(re.sub(r"^ \*", "", comment, flags=re.M).split())).group()


def table():
    yield "| header | what it is for |"
    yield "| --- | --- |"
    for header in all_of("headers"):
        yield f"| {header} | {sentence_of(header)} |"


def write_table():
    begins, ends = "<!-- headers, by ./run docs -->\n", "<!-- end of headers -->\n"
    file = ROOT / "docs" / "index.md"
    before, _, rest = file.read_text().partition(begins)
    _, _, after = rest.partition(ends)
    file.write_text("".join([before, begins, "\n".join(table()), "\n", ends, after]))


def main():
    if sys.argv[1:] == ["check"]:
        return 0 if check() else 1
    if sys.argv[1:2] == ["names"]:
        print("\n".join(all_of(sys.argv[2])))
        return 0
    if sys.argv[1:] == ["table"]:
        write_table()
        return 0
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main())
