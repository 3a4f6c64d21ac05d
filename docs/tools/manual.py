#!/usr/bin/env python3
"""Writes the manual pages of sections 3 and 7 from the comments of the public headers.

usage: manual.py XML_DIRECTORY MANUAL_DIRECTORY

The XML is Doxygen's. A header becomes the page PRODUCT_AREA.3; of its comment, the paragraphs
"Threads:" and "Errors:" become sections of their own, and "Source:" is left out. The examples are
the programs of its name below examples/.
"""
import pathlib
import re
import sys
import xml.etree.ElementTree as ET

from examples import examples_of
from mdoc import Text, described, line_of, literal, plain, prose, quoted, squeeze, tagged

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Function:
    def __init__(self, member, owner=""):
        self.name = owner + member.findtext("name")
        self.type = pointers(re.sub(r"\b(static|virtual|explicit) ", "", plain(member.find("type"))))
        arguments = pointers(squeeze(member.findtext("argsstring")))
        self.arguments = split_arguments(arguments[arguments.index("(") + 1:arguments.rindex(")")])
        self.names = [plain(param.find("declname")) or "..." for param in member.findall("param")]
        self.line = line_of(member)
        self.text = described(member)

    def prototype(self):
        opening = [f".Ft {quoted(self.type)}"] if self.type else []
        return [*opening, f".Fo {self.name}", *(f".Fa {quoted(a)}" for a in self.arguments), ".Fc"]

    def call(self):
        names = [] if self.arguments == ["void"] else self.names
        return " ".join(["Fn", self.name, *(quoted(name) for name in names)])

    def description(self):
        return self.call(), self.text.lines_with_parameters()

    def result(self):
        return f"Fn {self.name}", self.text.result()


def split_arguments(text):
    """At the commas that stand outside of parentheses."""
    arguments, depth = [""], 0
    for character in text:
        depth += {"(": 1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            arguments.append("")
        else:
            arguments[-1] += character
    return [squeeze(argument) for argument in arguments if argument.strip()]


class Header:
    def __init__(self, xml, compound):
        self.include = pathlib.PurePosixPath(compound.find("location").get("file"))
        self.page = f"{self.include.parent}_{self.include.stem}"
        self.compound = compound
        self.brief = plain(compound.find("briefdescription")).rstrip(".:")
        self.classes = [ET.parse(xml / f"{inner.get('refid')}.xml").find("compounddef")
                        for inner in compound.findall("innerclass")]
        self.sections = sorted(compound.findall("sectiondef"), key=lambda s: line_of(s[-1]))
        self.groups = [self.group(section) for section in self.sections]
        self.groups += [self.methods(node) for node in self.classes if node.get("kind") == "class"]
        self.groups = [group for group in self.groups if group[2]]
        self.functions = [function for group in self.groups for function in group[2]]
        self.macros = [member.findtext("name") for member, _ in self.members("define")]

    @staticmethod
    def group(section):
        members = section.findall("memberdef[@kind='function']")
        return plain(section.find("header")), section.find("description"), [Function(m) for m in members]

    @staticmethod
    def methods(node):
        name = plain(node.find("compoundname"))
        members = [m for m in node.iter("memberdef")
                   if m.get("kind") == "function" and m.get("prot") == "public"]
        functions = sorted((Function(m, f"{name}::") for m in members), key=lambda f: f.line)
        return f"Class {name}", node.find("detaileddescription"), functions

    def labelled(self, label):
        """The paragraphs of the header's comment with this label, or all without a label."""
        paragraphs = ET.Element("detaileddescription")
        for para in self.compound.find("detaileddescription"):
            if para.find("simplesect[@kind='par']") is not None:
                continue  # the example, which has a section of its own
            found = re.match(r"\s*(Threads|Errors|Source):\s*", para.text or "")
            if (found.group(1) if found else None) == label:
                para = ET.fromstring(ET.tostring(para))
                para.tail = None
                if found:
                    start = para.text[found.end():]
                    para.text = start[:1].upper() + start[1:]
                paragraphs.append(para)
        return Text(paragraphs).lines()

    def members(self, kind):
        """Of the header and its classes, with the name of the class in front: (member, owner)."""
        for node in [self.compound, *self.classes]:
            owner = "" if node is self.compound else plain(node.find("compoundname")) + "::"
            for member in node.iter("memberdef"):
                if member.get("kind") == kind and member.get("prot") == "public" and node.get("kind") != "struct":
                    yield member, owner

    def structures(self):
        for node in self.classes:
            if node.get("kind") == "struct":
                fields = [(f"Fa {quoted(declaration(field))}", described(field).lines())
                          for field in node.iter("memberdef")]
                yield f"Vt {plain(node.find('compoundname'))}", described(node).lines() + tagged(fields)

    def constants(self):
        for member, _ in self.members("enum"):
            yield quoted("Constants"), described(member).lines() + constants_of(member)

    def types(self):
        named = {
            "typedef": lambda member, _: "Vt " + quoted(pointers(plain(member.find("definition")))),
            "define": lambda member, _: "Dv " + quoted(macro_head(member)),
            "variable": lambda member, owner: f"Va {owner}{member.findtext('name')}",
        }
        items = [*self.structures(), *self.constants()]
        for kind, heading in named.items():
            items += [(heading(member, owner), described(member).lines_with_parameters())
                      for member, owner in self.members(kind)]
        return tagged([item for item in items if item[1]])

    def examples(self):
        lines = []
        for path in examples_of(ROOT / "include" / self.include, ROOT / "examples"):
            lines += literal(path.read_text().rstrip("\n").split("\n"))
        return lines

    def see_also(self, pages):
        source = next((ROOT / "include").glob(f"{self.include}*"))  # the one with the version ends in ".in"
        named = re.findall(r"[<(/\s](\w+)\.hp*", source.read_text())
        product = str(self.include.parent)
        found = {f"{other}_{name}" for name in named for other in (product, "qal")}
        others = sorted(page for page in pages if page in found and page != self.page)
        return separated("Xr", [*(f"{page} 3" for page in others), "qal 7"], "")

    def names(self):
        names = separated("Nm", [function.name for function in self.functions] or [self.page], "")
        return [*names, f".Nd {decapitalised(self.brief)}"]

    def synopsis(self):
        variables = [f".Vt {quoted(declaration(member, owner) + ';')}"
                     for member, owner in self.members("variable")]
        prototypes = [function.prototype() for function in self.functions]
        return [f".In {self.include}", *variables, *sum(prototypes, [])]

    def description(self):
        lines, types = self.labelled(None), self.types()
        lines += [".Ss Types, constants, macros and variables", *types] if types else []
        for title, text, functions in self.groups:
            lines += [f".Ss {title or 'Functions'}", *Text(text).lines()]
            lines += tagged([function.description() for function in functions])
        return lines

    def results(self):
        callbacks = [(f"Vt {member.findtext('name')}", described(member).result())
                     for member, _ in self.members("typedef")]
        results = [function.result() for function in self.functions]
        return tagged([(name, text) for name, text in callbacks + results if text])

    def write(self, pages, date):
        head = [f".Dd {date}", f".Dt {self.page.upper()} 3", ".Os Kalmora"]
        return page_text(head, {
            "NAME": self.names(),
            "SYNOPSIS": self.synopsis(),
            "DESCRIPTION": self.description(),
            "RETURN VALUES": self.results(),
            "EXAMPLES": self.examples(),
            "ERRORS": self.labelled("Errors"),
            "THREADS": self.labelled("Threads"),
            "SEE ALSO": self.see_also(pages),
        })


def declaration(member, owner=""):
    arguments = member.findtext("argsstring") or ""
    return pointers(f"{plain(member.find('type'))} {owner}{member.findtext('name')}{arguments}")


def pointers(text):
    """Blanks as the headers have them."""
    text = re.sub(r"(\w)\(\*", r"\1 (*", text).replace("< ", "<").replace(" >", ">")
    return re.sub(r"\* (?=\w)", "*", text).replace(") (", ")(")


def macro_head(member):
    names = [plain(param.find("defname")) for param in member.findall("param")]
    return member.findtext("name") + (f"({', '.join(names)})" if names else "")


def decapitalised(text):
    return text if text[1:2].isupper() else text[:1].lower() + text[1:]


def separated(macro, names, end):
    """One line for each name, with commas between them."""
    return [*(f".{macro} {name} ," for name in names[:-1]), f".{macro} {names[-1]} {end}".rstrip()]


def page_text(head, sections):
    lines = list(head)
    for title, text in sections.items():
        lines += [f".Sh {title}", *text] if text else []
    return "\n".join(lines) + "\n"


def areas(headers):
    """Each header's page with its purpose and its functions or, without any, its macros."""
    items = []
    for header in headers:
        functions = [function.name for function in header.functions]
        names = separated("Fn", functions, ".") if functions else separated("Dv", header.macros, ".")
        items.append((f"Xr {header.page} 3", prose(header.brief + ":") + names))
    return tagged(items)


def constants_of(parent):
    """The enumerators, each with its number."""
    return tagged([(f"Dv {value.findtext('name')} Pq {value.findtext('initializer').strip('= ')}",
                    described(value).lines()) for value in parent.iter("enumvalue")])


def overview(template, headers, compounds):
    parts = {
        "@CONVENTIONS@": Text(compounds["qal.h"].find("detaileddescription")).lines(),
        "@STATUS@": constants_of(compounds["status.h"]),
        "@AREAS@": areas(headers),
    }
    for mark, lines in parts.items():
        template = template.replace(mark, "\n".join(lines))
    return template


def library_first(header):
    return header.include.parts[0] != "qal", header.page


def main(xml, manual):
    index = ET.parse(xml / "index.xml")
    files = [entry.get("refid") for entry in index.iter("compound") if entry.get("kind") == "file"]
    compounds = [ET.parse(xml / f"{refid}.xml").find("compounddef") for refid in files]
    by_name = {compound.findtext("compoundname"): compound for compound in compounds}
    headers = [Header(xml, compound) for compound in compounds
               if compound.find("location").get("file").endswith((".h", ".hpp"))]
    headers = sorted((header for header in headers if header.functions or header.macros), key=library_first)
    template = (manual / "qal.7.in").read_text()
    date = re.search(r"^\.Dd (.*)$", template, re.M).group(1)
    pages = [header.page for header in headers if header.functions]
    for old in manual.glob("*.3"):
        old.unlink()
    for header in headers:
        (manual / f"{header.page}.3").write_text(header.write(pages, date))
    (manual / "qal.7").write_text(overview(template, headers, by_name))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
