"""The small mistakes that mutation.py makes: one line of a unit changed in one place."""
import re

from figures import ROOT

SWAPS = [(r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "),
         (r" > ", " >= "), (r" >= ", " > "), (r" && ", " || "), (r" \|\| ", " && "),
         (r" \+ 1\b", " - 1"), (r" - 1\b", " + 1"), (r"\+\+", "--"), (r"(?<!-)--", "++"),
         (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"\breturn 0;", "return 1;"),
         (r"\breturn -?[1-9]\d*;", "return 0;"),
         (r"\breturn QAL_STATUS_OK;", "return QAL_STATUS_FAILED;"),
         (r"\breturn QAL_STATUS_(?!OK;)\w+;", "return QAL_STATUS_OK;")]
NO_STATEMENT = re.compile(
    r"(return|const|constexpr|auto|static|using|struct|enum|class|template|extern|explicit|public|"
    r"private|friend|case|default|typedef|namespace|thread_local|static_assert)\b|[}#[]")
LEFT_OUT = "(left out)"
DECLARATION = re.compile(r"(std::)?\w[\w:<>, ]*[\w>][ *&]+[\w:]+(\[.*\])?( = .*|\{.*\}|\(.*\))?;")


def without_text(line):
    """The line with comments and literals blanked, so that nothing is changed in them."""
    return re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'|//.*', lambda m: "_" * len(m[0]), line)


def is_statement(code, before):
    """Whether the line holds one whole statement that can be left out."""
    text = code.strip().rstrip("_ ")
    return (text.endswith(";") and text.count("(") == text.count(")")
            and not NO_STATEMENT.match(text) and not text.endswith(("= delete;", "= default;"))
            and (text.startswith("if ") or not DECLARATION.fullmatch(text))
            and re.search(r"([;{}:]|^)[ _]*$", before) is not None)


def mutants_of(unit):
    """(unit, line number, line, changed line), from top to bottom."""
    before = ""
    for number, line in enumerate((ROOT / unit).read_text().splitlines()):
        code = without_text(line)
        if code.lstrip().startswith("#") or "static_assert" in code:
            continue
        for pattern, replacement in SWAPS:
            for found in re.finditer(pattern, code):
                yield unit, number, line, line[:found.start()] + replacement + line[found.end():]
        if is_statement(code, before):
            yield unit, number, line, ""
        before = code


def key(mutant):
    """What it is known by while lines move."""
    unit, _, line, changed = mutant
    return unit, line.strip(), changed.strip() or LEFT_OUT
