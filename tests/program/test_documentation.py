"""The guide, the manual pages and the terminal sessions of all documents, compared with what the tool does."""

import os
import re
import shutil
import subprocess
import textwrap
import xml.etree.ElementTree as ElementTree

import pytest

from machine import ANN, HANGS, PROJECT
from page import MANUALS, PAGE, PAGES, marked, text
from texts import DEFAULTS, NO_SESSION, NOT_AUTHORIZED, USAGE
from vocabulary import COMMANDS, LEVELS, WORDS, in_file

SVG = "{http://www.w3.org/2000/svg}"
SOURCES = PROJECT / "src"


@pytest.fixture(scope="module")
def documents(built_page) -> dict[str, ElementTree.Element]:
    """By name: index, nebulark-ctl.1 and nebulark-preferences.5."""
    return {page.name.removesuffix(".html"): ElementTree.parse(page).getroot() for page in PAGES}


def section(documents, place: str) -> ElementTree.Element:
    """The element around the one at this place, such as nebulark-ctl.1#FILES."""
    name, _, heading = place.partition("#")
    return documents[name].find(f".//*[@id='{heading}']/..")


def table(file: str, name: str) -> list[str]:
    """A table in the sources, for words that no message of the tool names."""
    return re.findall(r'"(.+?)"', re.search(rf"\b{name}\{{(.+?)\}}", (SOURCES / file).read_text(), re.DOTALL)[1])


# The preferences


@pytest.mark.parametrize(
    "place, spelled",
    [
        ("nebulark-ctl.1#PREFERENCES", lambda name, word: word),
        ("nebulark-preferences.5#Names_and_words", in_file),
    ],
)
def test_manual_has_all_preferences(documents, place, spelled):
    part = section(documents, place)
    listed = re.findall(r"(\w+)=(\w+(?: \| \w+)+) .*?The default is (\w+)\.", text(part))
    words = {name: [spelled(name, word) for word in known] for name, known in WORDS.items()}
    assert listed == [(name, " | ".join(words[name]), spelled(name, DEFAULTS[name])) for name in words]
    assert re.findall(r"0\.\d+", text(part)) == list(LEVELS.values())

    (switches,) = [p for p in part.findall("p") if text(p).startswith("The switches")]
    spellings = table("prefs/text.cpp", "words_for_true") + table("prefs/text.cpp", "words_for_false")
    assert {*marked(switches, "Cm"), *words["autostretch"]} == {"autostretch", "labelformat", *spellings}


def test_guide_has_all_preferences(documents):
    listed = documents["index"].find(".//dl[@class='preferences']")
    parts = [text(part).removesuffix(" (default)") for part in listed.iter() if part.tag in ("dt", "li")]
    assert parts == [part for name, words in WORDS.items() for part in (name, *words)]
    assert marked(listed, "default") == [f"{word} (default)" for word in DEFAULTS.values()]


def test_pictures_name_the_words(documents):
    captions = [text(part) for part in section(documents, "index#brightness-title").iter(f"{SVG}text")]
    assert captions[:6] == [caption for pair in LEVELS.items() for caption in pair]
    captions = [text(part) for part in section(documents, "index#corners-title").iter(f"{SVG}text")]
    default = DEFAULTS["labelcorner"]
    assert captions == ["FITS", *(f"{word}, the default" if word == default else word for word in WORDS["labelcorner"])]


def test_labels_are_drawn_in_their_corners(documents):
    uses = [use for use in section(documents, "index#corners-title").iter(f"{SVG}use")]
    places = [(float(use.get("x")), float(use.get("y", "0"))) for use in uses]
    # 5 from the edges: the pictures are 108 by 76, the labels 38 by 18
    corners = {(5, 5): "topleft", (65, 5): "topright", (5, 53): "bottomleft", (65, 53): "bottomright"}
    drawn = [corners[label[0] - x, label[1] - y] for (x, y), label in zip(places[::2], places[1::2], strict=True)]
    assert drawn == WORDS["labelcorner"]


# Commands, places and messages


COMMAND_LINE = [*COMMANDS[:3], "--all", *COMMANDS[3:], "-h"]
FILE_TYPES = [
    *["Thumb::URI", *table("thumbcache/ownership.h", "nebulark_extensions")],
    *["Thumb::Mimetype", *table("thumbcache/ownership.h", "nebulark_mime_types")],
]
DIRECTORIES = table("thumbcache/cache_location.h", "thumbnail_size_dirs")
VARIABLES = re.findall(r'getenv\("(\w+)"\)', "".join(file.read_text() for file in SOURCES.rglob("*.cpp")))


@pytest.mark.parametrize(
    "place, part, markup, words",
    [
        ("nebulark-ctl.1#SYNOPSIS", ".", ["Fl"], COMMAND_LINE),
        ("nebulark-ctl.1#DESCRIPTION", "dl/dt", ["Fl"], COMMAND_LINE),
        ("nebulark-ctl.1#ENVIRONMENT", "dl/dt", ["Ev"], VARIABLES),
        ("nebulark-ctl.1#THE_THUMBNAIL_CACHE", "p[1]", ["Pa"], ["thumbnails", *DIRECTORIES]),
        ("nebulark-ctl.1#What_is_deleted", "ul", ["Li", "Pa"], FILE_TYPES),
        ("nebulark-ctl.1#FILES", "dl/dt[last()]", ["Pa"], USAGE.decode().split()[-1:]),
        ("index#clear-title", ".", ["mono"], ["--all", "--all", *DIRECTORIES, "~/Pictures"]),
    ],
)
def test_document_has_all_words_of_their_kind(documents, place, part, markup, words):
    found = section(documents, place).findall(part)
    assert [word for element in found for word in marked(element, *markup)] == words


@pytest.mark.parametrize("document", [*PAGES, PROJECT / "README.md"], ids=lambda path: path.name)
@pytest.mark.usefixtures("built_page")
def test_document_is_for_the_tools_version(machine, document):
    named = {*re.findall(r"(?:nebulark-ctl[- ]|Version )(\d+\.\d+\.\d+)", document.read_text())}
    assert [f"nebulark-ctl {version}\n".encode() for version in named] == [machine.run("--version").out]


def test_manual_has_all_error_messages(documents, machine):
    def messages(*commands: str) -> list[str]:
        return [machine.run(*command.split(), user="ann").err.decode().split("\n")[0] for command in commands]

    said = messages("--unknown", "--set", "--set cfa", "--set foo=bar", "--set cfa=colour", "--set cfa=mono")
    os.chown(machine.prefs.parent, ANN, ANN)
    machine.prefs_tmp.mkdir()
    said += messages("--set cfa=mono", "--clear-thumb-cache")

    terms = section(documents, "nebulark-ctl.1#DIAGNOSTICS").findall("dl/dt")
    for term, message in zip(terms, said, strict=True):
        pattern = text(term)
        for variable in marked(term, "Ar"):
            pattern = pattern.replace(f" {variable}", " .+", 1)
        assert re.fullmatch(pattern, message)


def test_manual_quotes_polkits_refusal_of_the_right_password(documents):
    quoted = section(documents, "nebulark-ctl.1#When_pkexec_refuses_the_right_password").find(".//pre")
    said = NO_SESSION + NOT_AUTHORIZED.partition(b"\n")[0]
    assert text(quoted) == " ".join(said.decode().split())


# Terminal sessions


MARKDOWN = [path.name for path in PROJECT.glob("*.md") if "\n    $ nebulark-ctl " in path.read_text()]
DIALOGUE = re.compile(r"^([$#]) ([a-z].*)\n((?:(?![$#] [a-z]).*\n)*)", re.MULTILINE)


def literal_blocks(documents, source: str) -> list[str]:
    if source in MARKDOWN:
        blocks = re.findall(r"(?:^    .*\n|^\n(?=    ))+", (PROJECT / source).read_text(), re.MULTILINE)
        return [textwrap.dedent(block) for block in blocks]
    pages = [page for name, page in documents.items() if (name == "index") == (source == "guide")]
    return ["".join(pre.itertext()) for page in pages for pre in page.iter("pre")]


@pytest.mark.parametrize("source", ["guide", "manual", *MARKDOWN])
@pytest.mark.usefixtures("polkit")
def test_session_is_what_the_tool_does(documents, machine, source):
    """Each command after "$ " for ann or "# " for root, then its answer, on a machine with the sample cache."""
    shutil.copytree(PROJECT / "tests/samples/thumbnails", machine.ann / ".cache/thumbnails")
    for path in machine.ann.rglob("*"):
        os.chown(path, ANN, ANN)

    blocks = literal_blocks(documents, source)
    told = [entry for block in blocks for entry in DIALOGUE.findall(block.strip("\n") + "\n")]
    assert len(told) > 4
    env = {"HOME": "/home/ann", "PATH": "/usr/bin:/bin"}
    script = 'cd /home/ann && exec "$@" 2>&1'
    for prompt, command, answer in told:
        user = {"$": "ann", "#": "root"}[prompt]
        run = machine.run(command, user=user, tool=["sh", "-c"], env=env, script=script)
        assert run.out.decode() == answer, command


def test_picture_of_clearing_deletes_as_many_as_the_commands(documents):
    told = re.findall(r"Removed (\d+)", text(documents["index"].find(".//*[@id='clearing']")))
    uses = section(documents, "index#clear-title").iter(f"{SVG}use")
    gone = [float(use.get("x")) for use in uses if use.get("href") == "#clear-gone"]
    boxes = section(documents, "index#clear-title").findall(f"{SVG}rect[@class='box']")
    edges = [(float(box.get("x")), float(box.get("x")) + float(box.get("width"))) for box in boxes]
    assert [str(sum(left < x < right for x in gone)) for left, right in edges] == told


# Form


@pytest.mark.usefixtures("built_page")
def test_links_lead_into_the_documentation_or_to_other_manual_pages():
    texts = {page.name: page.read_text() for page in PAGES}
    texts[PAGE.name] += PAGE.with_name("style.css").read_text()  # its url() are to what the pictures define
    ids = {name: re.findall(r'\sid="(.+?)"', content) for name, content in texts.items()}
    assert [name for name in ids if len(ids[name]) != len(set(ids[name]))] == []
    places = {f"{name}#{place}" for name in ids for place in ["", *ids[name]]} | {"style.css#"}
    for name, content in texts.items():
        for link in map("".join, re.findall(r'href="(.*?)"|url\((.*?)\)', content)):
            page, _, place = link.removeprefix("/usr/share/doc/nebulark/").partition("#")
            elsewhere = re.fullmatch(r"https://manpages\.debian\.org/[a-z]+\.[18]", link)
            assert elsewhere or f"{page or name}#{place}" in places, link


@pytest.mark.usefixtures("built_page")
def test_documentation_runs_nothing_and_loads_only_what_it_links_to():
    loads = r"<(?:script|iframe|object|embed|img|image|video|audio)\b|\s(?:src|srcset|data|poster|style)=|@import"
    for file in [*PAGES, PAGE.with_name("style.css")]:
        assert re.findall(loads, file.read_text()) == [], file


def test_pictures_have_a_title_and_a_description(documents):
    pictures = documents["index"].findall(f".//figure/{SVG}svg")
    assert len(pictures) == 5
    for picture in pictures:
        described_by = [picture.find(f"{SVG}{part}").get("id") for part in ("title", "desc")]
        assert (picture.get("role"), picture.get("aria-labelledby").split()) == ("img", described_by)


each_manual = pytest.mark.parametrize("manual", MANUALS, ids=lambda manual: manual.name)


@each_manual
def test_mandoc_has_no_complaint(manual):
    command = ["mandoc", "-T", "lint", "-W", "all", manual.name]
    done = subprocess.run(command, cwd=manual.parent, stdout=subprocess.PIPE, text=True, timeout=HANGS)
    # Which other pages are installed depends on the machine. The system that .Os names is the tool.
    expected = ".*(referenced manual not found|operating system explicitly specified).*\n"
    assert re.sub(expected, "", done.stdout) == ""


@each_manual
def test_man_shows_it_at_80_columns_without_a_warning(manual):
    command = ["man", "--warnings", "--local-file", manual]
    env = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}
    done = subprocess.run(command, env=env, capture_output=True, text=True, timeout=HANGS)
    assert (done.returncode, done.stderr) == (0, "")
    literal = manual.read_text().splitlines()  # the tool's output, which man does not wrap
    assert [line for line in done.stdout.splitlines() if len(line) > 80 and line.strip() not in literal] == []
