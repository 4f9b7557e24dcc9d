"""Reads C++ sources, as far as mutants need it, and thinks of every small change to them."""

import re
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple


class Mutant(NamedTuple):
    """One change: what stands from start to end in the text of a file becomes something else."""

    path: Path
    text: str
    start: int
    end: int
    new: str

    def mutated(self) -> str:
        return self.text[: self.start] + self.new + self.text[self.end :]

    def __str__(self) -> str:
        """FILE:LINE: the lines before -> the lines after."""
        return f"{self.path}:{self.text.count(chr(10), 0, self.start) + 1}: {self.change()}"

    def change(self) -> str:
        first = self.text.rfind("\n", 0, self.start) + 1
        last = self.text.find("\n", self.end)
        after = self.text[first : self.start] + self.new + self.text[self.end : last]
        return f"{shortened(self.text[first:last])} -> {shortened(after)}"


def shortened(lines: str) -> str:
    return re.sub(r"\s*//.*|\s+", " ", lines).strip()


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int


# What is passed over stands first: a comment, a preprocessor line, and what only the compiler looks at.
TOKEN = re.compile(
    r"""(?P<nothing>//[^\n]*|/\*.*?\*/|^\#[^\n]*|static_assert[^;]*;|\[\[.*?\]\]|\s+)
      | (?P<string>R"\(.*?\)"|"(?:\\.|[^"\\])*")
      | (?P<char>'(?:\\.|[^'\\])+')
      | (?P<number>\d[\w.]*)
      | (?P<word>(?:::)?\w+(?:::~?\w+)*)
      | (?P<operator><<|>>|<=|>=|==|!=|&&|\|\||->|\+\+|--|\+=|-=|::|\.\.\.|.)""",
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

# Operators that stand between blanks; without blanks "<" belongs to a template, and "&" to a type.
OTHER_OPERATORS = {
    **{"<": ["<=", ">="], ">": [">=", "<="], "<=": ["<", ">"], ">=": [">", "<"], "==": ["!="], "!=": ["=="]},
    **{"&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "+=": ["-=", "="], "-=": ["+=", "="]},
    **{"<<": [">>"], ">>": ["<<"], "|": ["&"]},
}
OTHER_WORDS = {
    **{"true": "false", "false": "true", "std::min": "std::max", "std::max": "std::min"},
    **{"stdout": "stderr", "stderr": "stdout", "continue": "break", "break": "continue"},
    **{"W_OK": "F_OK", "F_OK": "W_OK", "X_OK": "F_OK", "SEEK_CUR": "SEEK_SET", "::lstat": "::stat"},
    **{"Brightness::Standard": "Brightness::Darker", "CfaMode::Auto": "CfaMode::Mono"},
    **{"LabelCorner::BottomRight": "LabelCorner::TopLeft", "S_ISDIR": "S_ISREG", "S_ISREG": "S_ISDIR"},
}
KEYWORDS = {"if", "else", "for", "while", "do", "switch", "case", "return", "using", "namespace", "struct", "class"}
KEYWORDS |= {"public", "private", "template", "friend", "enum", "break", "continue", "}"}
CLOSING = {"(": ")", "{": "}", "[": "]"}


def tokens_of(text: str) -> list[Token]:
    found = (Token(match.lastgroup, match[0], *match.span()) for match in TOKEN.finditer(text))
    return [token for token in found if token.kind != "nothing"]


def mutants_of(path: Path, text: str) -> Iterator[Mutant]:
    """Every mutant of a file, in the order of its text."""
    tokens = tokens_of(text)
    changes = [*changed_tokens(text, tokens), *forced_conditions(text, tokens), *changed_statements(text, tokens)]
    for start, end, new in sorted(changes):
        yield Mutant(path, text, start, end, new)


def changed_tokens(text: str, tokens: list[Token]) -> Iterator[tuple[int, int, str]]:
    for i, (kind, token, start, end) in enumerate(tokens):
        for new in others(kind, token, text[start - 1] + text[end : end + 1] == "  "):
            yield start, end, new
        if kind == "operator" and token == "!":
            yield start, end, ""
        if kind == "operator" and token == "++":
            yield start, end, "--"
        if token == "|" and tokens[i + 1].kind == "word" and tokens[i + 2].text in ("|", ")"):  # a flag
            yield start, tokens[i + 1].end, ""


def others(kind: str, token: str, between_blanks: bool) -> list[str]:
    if kind == "operator":
        return OTHER_OPERATORS.get(token, []) if between_blanks else []
    if kind == "word":
        return [OTHER_WORDS[token]] if token in OTHER_WORDS else []
    if kind == "string":
        close = len(token) - (2 if token.startswith("R") else 1)
        longer = token[:close] + "~" + token[close:]
        return [longer] if token == '""' else ['""', longer]
    if kind == "char":
        return ["'~'"]
    return other_numbers(token)


def other_numbers(token: str) -> list[str]:
    number, suffix = re.fullmatch(r"([\d.]+)(\w*)", token).groups()
    if "." in number:
        return [f"{float(number) + 0.01:.2f}{suffix}"]
    octal = len(number) > 1 and number.startswith("0")
    value = int(number, 8 if octal else 10)
    return [(f"0{near:o}" if octal else str(near)) + suffix for near in (value - 1, value + 1) if near >= 0]


def forced_conditions(text: str, tokens: list[Token]) -> Iterator[tuple[int, int, str]]:
    """What stands behind if and while, and before a question mark, made true and false. No loop is made endless."""
    for i, token in enumerate(tokens):
        if token.text in ("if", "while") and token.kind == "word":
            span = tokens[i + 1].end, tokens[matching(tokens, i + 1)].start
            yield *span, "false"
            if token.text == "if":
                yield *span, "true"
        if token.text == "?":
            first = i - 1
            while tokens[first].text not in ("return", "=", "+=", ",", "(", "[", "{"):
                first = opening(tokens, first) - 1 if tokens[first].text in CLOSING.values() else first - 1
            for value in ("true", "false"):
                yield tokens[first + 1].start, tokens[i - 1].end, value


def matching(tokens: list[Token], at: int) -> int:
    """Where the bracket that opens there closes."""
    depth = 0
    for i in range(at, len(tokens)):
        depth += (tokens[i].text == tokens[at].text) - (tokens[i].text == CLOSING[tokens[at].text])
        if depth == 0:
            return i
    raise ValueError(f"bracket {tokens[at].text} stays open")


def opening(tokens: list[Token], at: int) -> int:
    """Where the bracket that closes there opens."""
    return next(i for i in range(at, -1, -1) if tokens[i].text in CLOSING and matching(tokens, i) == at)


def changed_statements(text: str, tokens: list[Token]) -> Iterator[tuple[int, int, str]]:
    """Each statement that is a call or an assignment left out, and changed over with its neighbour."""
    before = None
    for start, end in sorted(statements(tokens)):
        statement = text[start:end]
        acts = not declares(statement)
        if acts:
            yield start, end, ";"
        if before and (acts or not declares(text[slice(*before)])) and text[before[1] : start].isspace():
            yield before[0], end, statement + text[before[1] : start] + text[slice(*before)]
        before = start, end


def declares(statement: str) -> bool:
    return re.match(r"(?!\(void\))[\w:<>,*& ]+\s[*&]?\w+\s*([=({;\[]|$)", statement) is not None


def statements(tokens: list[Token]) -> list[tuple[int, int]]:
    """Where each plain statement begins and ends, those inside lambdas too: no compound ones, no control flow."""
    found, begun = [], []
    start, depth = 0, 0  # the token that begins the statement, and the round brackets open in it
    for i, token in enumerate(tokens):
        if token.text in ("(", ")"):
            depth += 1 if token.text == "(" else -1
        elif token.text == "{":
            begun.append((start, depth))
            start, depth = i + 1, 0
        elif token.text == "}":
            start, depth = begun.pop()
            if depth == 0 and tokens[i + 1 : i + 2] and tokens[i + 1].text not in (";", ",", ")", "."):
                start = i + 1
        elif token.text == ";" and depth == 0:
            if tokens[start].text not in KEYWORDS and begun:
                found.append((tokens[start].start, token.end))
            start = i + 1
    return found
