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
import textwrap
import xml.etree.ElementTree as ET

from examples import examples_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
BOLD, PLAIN = "\ue000", "\ue001"  # stand for font changes until the text is escaped


def squeeze(text):
    return re.sub(r"\s+", " ", text).strip()


def plain(node):
    return squeeze("".join(node.itertext())) if node is not None else ""


def escape(text):
    text = text.replace("\\", "\\e").replace(BOLD, "\\fB").replace(PLAIN, "\\fR")
    return "\\&" + text if text[:1] in (".", "'") else text


def quoted(text):
    return '"' + text.replace("\\", "\\e").replace('"', "\\(dq") + '"'


def prose(text):
    """One line or more for each sentence."""
    sentences = re.split(r"(?<=[.!?]) |(?<=[.!?][)\"]) ", squeeze(text))
    lines = [line for sentence in sentences for line in textwrap.wrap(sentence, 78)]
    return [escape(line) for line in lines]


def literal(lines):
    return [".Bd -literal", *(escape(line.rstrip()) for line in lines), ".Ed"]


class Text:
    """A description, taken apart into blocks of mdoc lines and the special sections."""

    def __init__(self, *nodes):
        self.blocks, self.parameters, self.returns = [], [], []
        for node in nodes:
            for child in node if node is not None else ():
                if child.tag == "para":
                    self.take_paragraph(child)

    def take_paragraph(self, para):
        text = para.text or ""
        for child in para:
            if child.tag in BLOCKS:
                self.flush(text)
                text = ""
                BLOCKS[child.tag](self, child)
            else:
                text += inline(child)
            text += child.tail or ""
        self.flush(text)

    def flush(self, text):
        if text.strip():
            self.blocks.append(prose(text))

    def take_parameters(self, node):
        for item in node.findall("parameteritem"):
            names = [plain(name) for name in item.iter("parametername")]
            text = Text(item.find("parameterdescription"))
            if node.get("kind") == "param":
                self.parameters.append((names, text))
            else:
                self.blocks.append(prose(f"Throws {BOLD}{names[0]}{PLAIN}:") + text.lines())

    def take_section(self, node):
        text = Text(node)
        if node.get("kind") == "return":
            self.returns.append(text)
        else:
            self.blocks += text.blocks

    def take_list(self, node):
        kind = "-enum" if node.tag == "orderedlist" else "-dash"
        items = [[".It", *Text(item).lines()] for item in node.findall("listitem")]
        self.blocks.append([f".Bl {kind}", *sum(items, []), ".El"])

    def take_table(self, node):
        rows = [[plain(cell) for cell in row.findall("entry")] for row in node.findall("row")]
        widths = [max(column, key=len) for column in zip(*rows)]
        lines = [".It " + " Ta ".join(quoted(cell) for cell in row) for row in rows]
        columns = " ".join(quoted(width) for width in widths)
        self.blocks.append([f".Bl -column {columns}", *lines, ".El"])

    def take_code(self, node):
        self.blocks.append(literal(textwrap.dedent("".join(node.itertext())).strip("\n").split("\n")))

    def lines(self):
        separated = []
        for block in self.blocks:
            spaced = block[0].startswith((".Bl", ".Bd"))
            separated += [".Pp"] if separated and not spaced else []
            separated += block
        return separated


BLOCKS = {
    "parameterlist": Text.take_parameters,
    "simplesect": Text.take_section,
    "itemizedlist": Text.take_list,
    "orderedlist": Text.take_list,
    "table": Text.take_table,
    "verbatim": Text.take_code,
    "preformatted": Text.take_code,
}


def inline(node):
    text = (node.text or "") + "".join(inline(child) + (child.tail or "") for child in node)
    return f"{BOLD}{text}{PLAIN}" if node.tag == "computeroutput" else text


def described(node):
    """The first sentence, which Doxygen keeps apart, and the rest in one."""
    text, rest = Text(node.find("briefdescription")), Text(node.find("detaileddescription"))
    if text.blocks and rest.blocks and not rest.blocks[0][0].startswith((".Bl", ".Bd")):
        text.blocks[-1] += rest.blocks.pop(0)
    text.blocks += rest.blocks
    text.parameters, text.returns = rest.parameters, rest.returns
    return text


def line_of(member):
    return int(member.find("location").get("line"))


def tagged(items):
    """A list of (heading, lines)."""
    lines = [".Bl -tag -width Ds"]
    for heading, text in items:
        lines += [f".It {heading}", *text]
    return [*lines, ".El"] if items else []


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
        parameters = [("Fa " + " , ".join(names), text.lines()) for names, text in self.text.parameters]
        return self.call(), self.text.lines() + tagged(parameters)

    def result(self):
        return f"Fn {self.name}", sum((text.lines() for text in self.text.returns), [])


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
            found = re.match(r"\s*(Threads|Errors|Source|Sources):\s*", para.text or "")
            if (found.group(1) if found else None) == label:
                para = ET.fromstring(ET.tostring(para))
                para.tail = None
                if found:
                    start = para.text[found.end():]
                    para.text = start[:1].upper() + start[1:]
                paragraphs.append(para)
        return Text(paragraphs).lines()

    def variables(self):
        for node in [self.compound, *self.classes]:
            if node.get("kind") == "struct":
                continue
            for member in node.iter("memberdef"):
                if member.get("kind") == "variable" and member.get("prot") == "public":
                    yield member, "" if node is self.compound else plain(node.find("compoundname")) + "::"

    def members(self, kind):
        return [m for m in self.compound.iter("memberdef") if m.get("kind") == kind]

    def types(self):
        items = []
        for node in self.classes:
            if node.get("kind") != "struct":
                continue
            fields = [(f"Fa {quoted(declaration(field))}", described(field).lines())
                      for field in node.iter("memberdef")]
            items.append((f"Vt {plain(node.find('compoundname'))}", described(node).lines() + tagged(fields)))
        for member in self.members("typedef"):
            items.append((f"Vt {quoted(pointers(plain(member.find('definition'))))}", described(member).lines()))
        for member in self.members("enum"):
            values = [(f"Dv {value.findtext('name')}", described(value).lines())
                      for value in member.findall("enumvalue")]
            items.append((quoted("Constants"), described(member).lines() + tagged(values)))
        for member in self.members("define"):
            text = described(member).lines()
            if text:
                items.append((f"Dv {quoted(definition_head(member))}", text))
        for member, owner in self.variables():
            items.append((f"Va {owner}{member.findtext('name')}", described(member).lines()))
        return tagged(items)

    def examples(self):
        lines = []
        for path in examples_of(ROOT / "include" / self.include, ROOT / "examples"):
            lines += literal(path.read_text().rstrip("\n").split("\n"))
        return lines

    def see_also(self, pages):
        named = re.findall(r"[<(/\s](\w+)\.hp*", (ROOT / "include" / self.include).read_text())
        product = str(self.include.parent)
        found = {f"{other}_{name}" for name in named for other in (product, "qal")}
        return references(sorted(page for page in pages if page in found and page != self.page))

    def write(self, pages, date):
        description = self.labelled(None)
        types = self.types()
        description += [".Ss Types, constants and variables", *types] if types else []
        for title, text, functions in self.groups:
            description += [f".Ss {title or 'Functions'}", *Text(text).lines()]
            description += tagged([function.description() for function in functions])
        results = [function.result() for function in self.functions if function.text.returns]
        synopsis = [f".In {self.include}"]
        for member, owner in self.variables():
            synopsis.append(f".Vt {quoted(declaration(member, owner) + ';')}")
        for function in self.functions:
            synopsis += function.prototype()
        names = [f".Nm {function.name}" for function in self.functions]
        sections = [
            ("NAME", [*(name + " ," for name in names[:-1]), names[-1], f".Nd {decapitalised(self.brief)}"]),
            ("SYNOPSIS", synopsis),
            ("DESCRIPTION", description),
            ("RETURN VALUES", tagged(results)),
            ("EXAMPLES", self.examples()),
            ("ERRORS", self.labelled("Errors")),
            ("THREADS", self.labelled("Threads")),
            ("SEE ALSO", self.see_also(pages)),
        ]
        head = [f".Dd {date}", f".Dt {self.page.upper()} 3", ".Os Kalmora"]
        return page_text(head, sections)


def declaration(member, owner=""):
    arguments = member.findtext("argsstring") or ""
    return pointers(f"{plain(member.find('type'))} {owner}{member.findtext('name')}{arguments}")


def pointers(text):
    """Blanks as the headers have them."""
    text = re.sub(r"(\w)\(\*", r"\1 (*", text).replace("< ", "<").replace(" >", ">")
    return re.sub(r"\* (?=\w)", "*", text).replace(") (", ")(")


def definition_head(member):
    names = [plain(param.find("defname")) for param in member.findall("param")]
    return member.findtext("name") + (f"({', '.join(names)})" if names else "")


def decapitalised(text):
    return text if text[1:2].isupper() else text[:1].lower() + text[1:]


def references(pages):
    names = [f".Xr {page} 3 ," for page in pages] + [".Xr qal 7"]
    return names


def page_text(head, sections):
    lines = list(head)
    for title, text in sections:
        lines += [f".Sh {title}", *text] if text else []
    return "\n".join(lines) + "\n"


def areas(headers):
    items = []
    for header in headers:
        names = [f".Fn {function.name}" for function in header.functions]
        listed = [*(name + " ," for name in names[:-1]), names[-1] + " ."]
        items.append((f"Xr {header.page} 3", prose(header.brief + ":") + listed))
    return tagged(items)


def status_codes(compound):
    return tagged([(f"Dv {value.findtext('name')} Pq {value.findtext('initializer').strip('= ')}",
                    described(value).lines()) for value in compound.iter("enumvalue")])


def overview(template, headers, compounds):
    parts = {
        "@CONVENTIONS@": Text(compounds["qal.h"].find("detaileddescription")).lines(),
        "@STATUS@": status_codes(compounds["status.h"]),
        "@AREAS@": areas(headers),
    }
    for mark, lines in parts.items():
        template = template.replace(mark, "\n".join(lines))
    return template


def main(xml, manual):
    index = ET.parse(xml / "index.xml")
    files = [entry.get("refid") for entry in index.iter("compound") if entry.get("kind") == "file"]
    compounds = [ET.parse(xml / f"{refid}.xml").find("compounddef") for refid in files]
    by_name = {compound.findtext("compoundname"): compound for compound in compounds}
    headers = [Header(xml, compound) for compound in compounds
               if compound.find("location").get("file").endswith((".h", ".hpp"))]
    headers = sorted((h for h in headers if h.functions), key=lambda h: (h.include.parent != pathlib.PurePosixPath("qal"), h.page))
    template = (manual / "qal.7.in").read_text()
    date = re.search(r"^\.Dd (.*)$", template, re.M).group(1)
    for old in manual.glob("*.3"):
        old.unlink()
    for header in headers:
        (manual / f"{header.page}.3").write_text(header.write([h.page for h in headers], date))
    (manual / "qal.7").write_text(overview(template, headers, by_name))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
