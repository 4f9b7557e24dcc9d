"""Lists small changes of a C++ source in clang-format's layout."""

import re
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple


class Mutant(NamedTuple):
    """One change: in a file's text, `new` replaces start to end."""

    path: Path
    text: str
    start: int
    end: int
    new: str

    def mutated(self) -> str:
        _, text, start, end, new = self
        return text[:start] + new + text[end:]

    def lines(self) -> range:
        return range(self.text.count("\n", 0, self.start) + 1, self.text.count("\n", 0, self.end) + 2)

    def __str__(self) -> str:
        return f"{self.path}:{self.lines()[0]}: {self.change()}"

    def change(self) -> str:
        """The lines before -> the lines after."""
        _, text, start, end, new = self
        first, last = text.rfind("\n", 0, start) + 1, text.find("\n", end)
        both = text[first:last], text[first:start] + new + text[end:last]
        before, after = (re.sub(r"\s*//.*|\s+", " ", lines).strip() for lines in both)
        return f"{before} -> {after}"


# What the patterns below do not see: comments, preprocessor lines, static_assert, attributes and quoted texts.
HIDDEN = re.compile(
    r"""//[^\n]* | ^\#[^\n]* | static_assert[^;]*; | \[\[.*?\]\]
      | (?P<raw>R"\().*?\)" | (?P<text>")(?:\\.|[^"\\])*" | '(?P<char>(?:\\.|[^'\\])+)'""",
    re.VERBOSE | re.MULTILINE | re.DOTALL,
)

BALANCED = r"[^()]*"
for _ in range(4):  # levels of brackets
    BALANCED = rf"(?:[^()]|\({BALANCED}\))*"

STATEMENT = r"(?!(?:return|using|if|for|while|break|continue|case)\b)[\w(:+](?:[^;{}]|\{(?:[^;{}\n]|\{\})*\})*;"
TEST = rf"if \({BALANCED}\) [^;{{}}]*;"
DECLARATION = re.compile(r"(?!\(void\))[\w:<>,*& ]+\s[*&]?\w+\s*([=({;\[]|$)")
LIBRARY_CALL = re.compile(r"::\w+\(")
SYSTEM_CALL = re.compile(r"(?<!\w)::\w+\(")

# An operator or word and its replacement; = means both ways.
OPERATORS = "< <=  > >=  <= <  >= >  == != =  && || =  + - =  += -= =  << >>  * +  % /"
WORDS = """
true false =  stdout stderr =  continue break =  std::min std::max =  S_ISDIR S_ISREG =  front back =  find rfind =
find_first_not_of find_first_of  find_last_not_of find_last_of  starts_with ends_with  any_of all_of  release get
pop_back clear  Brightness::Standard Brightness::Darker  CfaMode::Auto CfaMode::Mono
LabelCorner::BottomRight LabelCorner::TopLeft  W_OK F_OK =  X_OK F_OK  SEEK_SET SEEK_CUR  O_RDONLY O_RDWR
O_TRUNC O_EXCL  AT_SYMLINK_NOFOLLOW 0  DT_REG DT_DIR  POSIX_FADV_WILLNEED POSIX_FADV_DONTNEED  EAGAIN EINTR
WEXITSTATUS WTERMSIG  ::access ::eaccess  ::geteuid ::getuid  ::execv ::execvp  std::rename ::link  ::mkdir ::chmod
"""


def pairs(table: str) -> Iterator[tuple[str, str]]:
    for one, other, both in re.findall(r"(\S+) (\S+)( =(?=\s))?", table + " "):
        yield from [(one, other), (other, one)] if both else [(one, other)]


# A pattern and its replacements.
RULES = [
    (rf"(?<=\bif \(){BALANCED}(?=\))", "true", "false"),
    (rf"(?<=\bwhile \(){BALANCED}(?=\))", "false"),
    (r"\s\? ", " && false ? ", " || true ? "),
    (r" \| [A-Z]\w+", ""),
    (r"!(?=[\w(])", ""),
    (r"(?<=\s)\|(?= [a-z])", "&"),  # not between flags: they are left out above
    (r"\+\+", "--"),
    (r"\b0(?=\.\d)", "1"),
    *((rf"(?<=\s){re.escape(one)}(?=\s)", other) for one, other in pairs(OPERATORS)),
    *((rf"(?<![\w:]){one}(?!\w|::)", other) for one, other in pairs(WORDS)),
]

# Added at the beginning of a function that calls the system.
EXTRA_CALLS = ["(void)::umask(0);", '(void)::chdir("/");', "(void)::fsync(1);"]


def mutants_of(path: Path, text: str) -> list[Mutant]:
    """Every mutant of a file, in the order of its text."""
    code = HIDDEN.sub(lambda match: re.sub(r"[^\n]", "_" if match.lastgroup else " ", match[0]), text)
    found = [*texts(text), *numbers(code), *statements(code, text), *extra_calls(code)]
    for pattern, *tried in RULES:
        found += [(*match.span(), new) for match in re.finditer(pattern, code) for new in tried]
    return [Mutant(path, text, *change) for change in sorted(set(found))]


Changes = Iterator[tuple[int, int, str]]  # start, end, new text


def texts(text: str) -> Changes:
    for match in HIDDEN.finditer(text):
        if match.lastgroup == "char":
            yield *match.span("char"), "~"
        elif match.lastgroup:
            yield match.end(match.lastgroup), match.end(match.lastgroup), "~"


def numbers(code: str) -> Changes:
    """One less and one more; but not -1, which marks failure, or the length of a buffer."""
    for match in re.finditer(r"(?<![\w.-])(?<!char, )\d+(?!\.)", code):
        octal = match[0].startswith("0") and len(match[0]) > 1
        value = int(match[0], 8 if octal else 10)
        for near in (value - 1, value + 1):
            if near >= 0:
                yield *match.span(), f"0{near:o}" if octal else str(near)


def statements(code: str, text: str) -> Changes:
    """Each call and assignment left out, and swapped with the statement after it."""
    one_of = rf"(?:{STATEMENT}|{TEST})"
    pattern = rf"^( +)({one_of})(?=\s*?\n\1({one_of})|)|(?<=\{{ ){STATEMENT}(?= \}})"
    for match in re.finditer(pattern, code, re.M):
        start, end = match.span(2) if match[2] else match.span()
        if code[:start].rstrip()[-1:] not in tuple(";{}:"):
            continue  # part of another statement
        one, other = code[start:end], match[3]
        if acts(one):
            yield start, end, ";"
        if other and (acts(one) and acts(other) or LIBRARY_CALL.search(one) and LIBRARY_CALL.search(other)):
            then, last = match.span(3)
            yield start, last, text[then:last] + text[end:then] + text[start:end]


def acts(statement: str) -> bool:
    return not statement.startswith("if ") and not DECLARATION.match(statement)


def extra_calls(code: str) -> Changes:
    for match in re.finditer(r"^(?!constexpr|struct|class|enum)\w[^;{}]*\) \{\n(.*?)^\}", code, re.M | re.S):
        if SYSTEM_CALL.search(match[1]):
            yield from ((match.start(1), match.start(1), f"  {call}\n") for call in EXTRA_CALLS)
