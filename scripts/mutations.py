"""Finds what scripts/mutate can change in a C++ source that clang-format has laid out."""

import dataclasses
import re

FLIPS = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
    "+": "-", "-": "+", "+=": "-=", "-=": "+=", "true": "false", "false": "true",
}

LITERALS = re.compile(
    r"""(?P<blank>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*)
      |(?P<quoted>R"(?P<mark>[^(]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*")
      |(?P<number>\b\d[\w.']*)
      |(?P<character>'(?:\\.|[^'\\\n])+')""", re.X | re.S | re.M)

# Attributes, also those in capitals, and what only the compiler evaluates.
UNTOUCHED = re.compile(r"\[\[.*?\]\]|\b[A-Z_]+\([^()]*\)|\bstatic_assert\(.*?\);|\bassert\(.*?\);", re.S)

# Binary operators have space around them, brackets of templates do not.
OPERATOR = re.compile(r"(?<=\s)(?:==|!=|<=|>=|&&|\|\||\+=|-=|<|>|\+|-)(?=\s)|\b(?:true|false)\b")
NEGATION = re.compile(r"!(?=[\w(*:])")
INTEGER = re.compile(r"\b(?:0[xX][\da-fA-F']+|\d[\d']*)[uUlLzZ]*\b(?!\.)")
PURE = re.compile(r"\)[\s\w]*=\s*$")

CONTROL = re.compile(r"\s*(?:if|for|while|switch|catch|else|do|try)\b")
TYPE = re.compile(r"\s*(?:(?:public|private|protected):\s*)?(?:template\s*<[^{;]*?>\s*)?"
                  r"(?:typedef\s+)?(?:inline\s+)?(?:namespace|class|struct|enum|union|extern)\b")
LAMBDA = re.compile(r"\[[^\[\]]*\]\s*(?:\((?:[^()]|\([^()]*\))*\))?[\s\w]*(?:->\s*([\w:]+)\s*)?$")
BOOL_FUNCTION = re.compile(r"\bbool\s+[\w:]+\s*\(|\boperator bool\(|\bbool operator")
FUNCTION_TAIL = re.compile(r"(?:\)|\b(?:const|noexcept|override|final|mutable|else|do|try))\s*$")
LABEL = re.compile(r"\s*(?:case\s(?:[^:]|::)+:(?!:)|default:)")


@dataclasses.dataclass(frozen=True)
class Mutation:
    file: str
    line: int
    start: int
    end: int
    before: str
    after: str

    def apply_to(self, text):
        return text[:self.start] + self.after + text[self.end:]

    def __str__(self):
        def brief(code):
            return " ".join(code.split())
        return f"{self.file}:{self.line}: {brief(self.before)} -> {brief(self.after)}"


def mask(text):
    """The same length and lines, without comments, texts and what is never changed."""
    def blank(match):
        return re.sub(r"[^\n]", " ", match.group())

    def literal(match):
        if match.group("number"):
            return match.group()
        if match.group("blank"):
            return blank(match)
        return re.sub(r"[^\n]", '"', match.group())
    return UNTOUCHED.sub(blank, LITERALS.sub(literal, text))


@dataclasses.dataclass
class Scope:
    kind: str  # type, bool, function, block or initialiser
    statement: int  # where the statement that it is part of starts
    parentheses: int


def kind_of(header):
    if TYPE.match(header):
        return "type"
    found = LAMBDA.search(header)
    if found:
        return "bool" if found.group(1) == "bool" else "function"
    if not header.strip() or CONTROL.match(header):
        return "block"
    if not FUNCTION_TAIL.search(header) and not re.search(r"\)\s*:\s", header):
        return "initialiser"
    return "bool" if BOOL_FUNCTION.search(header) else "function"


def statements(masked):
    """Start, end and whether the function gives a bool, of each statement in a function."""
    scopes = []
    start = parentheses = 0

    def function_kind():
        for scope in reversed(scopes):
            if scope.kind in ("type", "bool", "function"):
                return scope.kind
        return "type"

    for match in re.finditer(r"[(){};]", masked):
        at, sign = match.start(), match.group()
        if sign == "(":
            parentheses += 1
        elif sign == ")":
            parentheses -= 1
        elif sign == "{":
            kind = kind_of(masked[start:at])
            # In a constructor's list of members the braces of one end nothing.
            if kind == "function" and re.search(r"\)\s*:\s[^{]*\w$", masked[start:at]):
                kind = "initialiser"
            scopes.append(Scope(kind, start, parentheses))
            start, parentheses = at + 1, 0
        elif sign == "}":
            closed = scopes.pop()
            parentheses = closed.parentheses
            start = closed.statement if parentheses or closed.kind == "initialiser" else at + 1
        elif parentheses == 0:
            kind = function_kind()
            if kind != "type":
                yield start, at + 1, kind == "bool"
            start = at + 1


def after_parentheses(text, at):
    depth = 0
    for match in re.compile(r"[()]").finditer(text, at):
        depth += 1 if match.group() == "(" else -1
        if depth == 0:
            return match.end()
    return len(text)


def simple_part(masked, start, end):
    """Where the statement starts that labels and conditions in front of it lead to."""
    while True:
        found = LABEL.match(masked, start, end)
        if found:
            start = found.end()
            continue
        found = re.compile(r"\s*(?:else\b|(?:if|for|while)\s*(?=\())").match(masked, start, end)
        if not found:
            break
        start = found.end()
        if masked[start:start + 1] == "(":
            start = after_parentheses(masked, start)
    return start + len(masked[start:end]) - len(masked[start:end].lstrip())


def is_call(statement):
    """Whether nothing but a call is left when all brackets are emptied."""
    # Room made ahead of its use is nothing that a test could miss.
    if not statement.endswith(");") or re.match(r"[\w.>-]+\breserve\(", statement, re.I):
        return False
    depth = 0
    outside = []
    for sign in statement[:-1]:
        if sign in ")]}":
            depth -= 1
        if depth == 0:
            outside.append(sign)
        if sign in "([{":
            depth += 1
    return re.fullmatch(r"\*?[A-Za-z_:](?:[\w:.<>~]|->|\(\)|\[\])*\(\)", "".join(outside)) is not None


def find(file, text):
    masked = mask(text)
    found = []

    def add(start, end, after):
        line = text.count("\n", 0, start) + 1
        found.append(Mutation(file, line, start, end, text[start:end], after))

    for match in OPERATOR.finditer(masked):
        # Texts can't be subtracted.
        if '"' in (masked[:match.start()].rstrip()[-1:], masked[match.end():].lstrip()[:1]):
            continue
        add(match.start(), match.end(), FLIPS[match.group()])
    for match in NEGATION.finditer(masked):
        add(match.start(), match.end(), "")
    for match in INTEGER.finditer(masked):
        if not PURE.search(masked, 0, match.start()):
            add(match.start(), match.end(), f"({match.group()} + 1)")
    for start, end, gives_bool in statements(masked):
        start = simple_part(masked, start, end)
        statement = masked[start:end]
        if is_call(statement):
            add(start, end, ";")
        elif gives_bool and re.match(r"return\s(?!(?:true|false);)", statement):
            add(start + len("return "), end - 1, f"!({text[start + len('return '):end - 1]})")
    return found
