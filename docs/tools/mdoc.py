"""Turns Doxygen's descriptions, as XML, into lines of mdoc."""
import re
import textwrap

BOLD, PLAIN, UNBROKEN = "\ue000", "\ue001", "\ue002"  # stand for requests until the text is escaped
NAME = re.compile(r"\b(?:Qal\w+|\w*_\w+)")
WRAPPER = textwrap.TextWrapper(78, break_on_hyphens=False, break_long_words=False)


def squeeze(text):
    return re.sub(r"\s+", " ", text).strip()


def plain(node):
    return squeeze("".join(node.itertext())) if node is not None else ""


def escape(text):
    text = text.replace("\\", "\\e").replace(BOLD, "\\fB").replace(PLAIN, "\\fR").replace(UNBROKEN, "\\%")
    return "\\&" + text if text[:1] in (".", "'") else text


def quoted(text):
    return '"' + text.replace("\\", "\\e").replace('"', "\\(dq") + '"'


def prose(text):
    """One line or more for each sentence. Names are not hyphenated: people search for them."""
    text = NAME.sub(UNBROKEN + r"\g<0>", squeeze(text))
    sentences = re.split(r"(?<=[.!?]) |(?<=[.!?][)\"]) ", text)
    lines = [line for sentence in sentences for line in WRAPPER.wrap(sentence)]
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
        """As a list of the rows: the columns rarely fit a terminal beside one another."""
        head, *rows = [[plain(cell) for cell in row.findall("entry")] for row in node.findall("row")]
        self.blocks.append(tagged([(f"Sy {quoted(row[0])}", row_text(head, row)) for row in rows]))

    def take_code(self, node):
        self.blocks.append(literal(textwrap.dedent("".join(node.itertext())).strip("\n").split("\n")))

    def lines(self):
        lines = []
        for block in self.blocks:
            if lines and not block[0].startswith((".Bl", ".Bd")):
                lines.append(".Pp")
            lines += block
        return lines

    def lines_with_parameters(self):
        items = [("Fa " + " , ".join(names), text.lines()) for names, text in self.parameters]
        return self.lines() + tagged(items)

    def result(self):
        return sum((text.lines() for text in self.returns), [])


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


def row_text(head, row):
    """The cells behind the first, each after its column's name, without those that say nothing."""
    cells = [f"{name}: {cell}" for name, cell in zip(head[1:], row[1:]) if cell != "-"]
    return prose("; ".join(cells) + ".")


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
