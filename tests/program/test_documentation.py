"""What the manual pages and the documentation page say, held against what the tool does.

The page has both manual pages in it, as mandoc writes them, so that reading it is reading all three.
"""

import os
import re
import shutil
import subprocess
import textwrap
import xml.etree.ElementTree as ElementTree
from collections.abc import Iterator

import pytest

from machine import ANN, PROJECT, TOOL
from page import PAGE
from texts import HINT, NOTICE, listing
from vocabulary import SOURCES, Preference, commands, levels, preferences, stored_preferences, table

MANUALS = sorted((PROJECT / "data/man").iterdir())
SVG = "{http://www.w3.org/2000/svg}"


@pytest.fixture(scope="module")
def page(built_page) -> ElementTree.Element:
    return ElementTree.parse(PAGE).getroot()


def section(page, heading: str) -> ElementTree.Element:
    return page.find(f".//*[@id='{heading}']/..")


def text(element: ElementTree.Element) -> str:
    """As a reader sees it: line breaks are blanks, and what is hidden from the eye is left out."""
    return " ".join("".join(pieces(element)).split())


def pieces(element) -> Iterator[str]:
    if element.get("class") != "hidden":
        yield element.text or ""
        for child in element:
            yield from pieces(child)
            yield child.tail or ""


def marked(element, *markup: str) -> list[str]:
    """The texts that are marked up as, say, "Fl", which is mandoc's for words of the command line."""
    return [text(part) for part in element.iter() if part.get("class") in markup]


# Names and words


def described(page, heading: str) -> dict[str, Preference]:
    """The preferences that a section of a manual page lists."""
    found = {}
    for term, description in zip(section(page, heading).findall("dl/dt"), section(page, heading).findall("dl/dd")):
        name, words = text(term).split("=")
        default = re.search(r"The default is (\w+)\.", text(description))[1]
        found[name] = Preference(words.split(" | "), default)
    return found


def offered(page) -> dict[str, Preference]:
    """Those that the guide shows."""
    found = {}
    shown = page.find(".//dl[@class='preferences']")
    for term, description in zip(shown.findall("dt"), shown.findall("dd")):
        (default,) = marked(description, "default")
        found[text(term)] = Preference([text(word) for word in description.findall("ul/li")], default)
    return found


def test_manual_has_all_commands(page, machine):
    known = sorted([*commands(machine), "-h", "--all"])
    assert sorted(marked(section(page, "nebulark-ctl.SYNOPSIS"), "Fl")) == known
    terms = section(page, "nebulark-ctl.DESCRIPTION").findall("dl/dt")
    assert sorted(word for term in terms for word in marked(term, "Fl")) == known


def test_manual_has_all_preferences_in_the_words_of_the_command_line(page, machine):
    assert list(described(page, "nebulark-ctl.PREFERENCES").items()) == list(preferences(machine).items())


def test_manual_has_all_preferences_in_the_words_of_the_file(page, machine):
    known = stored_preferences(machine)
    assert list(described(page, "nebulark-preferences.Names_and_words").items()) == list(known.items())


def test_guide_has_all_preferences(page, machine):
    assert list(offered(page).items()) == list(preferences(machine).items())


@pytest.mark.parametrize("heading", ["nebulark-ctl.PREFERENCES", "nebulark-preferences.Names_and_words"])
def test_manual_has_all_spellings_of_a_switch(page, heading):
    accepted = table("prefs/text.cpp", "words_for_true") + table("prefs/text.cpp", "words_for_false")
    (paragraph,) = [p for p in section(page, heading).findall("p") if text(p).startswith("The switches")]
    documented = {*marked(paragraph, "Cm")}
    if heading.startswith("nebulark-preferences"):
        documented |= {"true", "false"}  # these two are in the list above
    assert documented == {"autostretch", "labelformat", *accepted}


@pytest.mark.parametrize("heading", ["nebulark-ctl.PREFERENCES", "nebulark-preferences.Names_and_words"])
def test_manual_has_the_levels_of_brightness(page, machine, heading):
    assert re.findall(r"0\.\d+", text(section(page, heading))) == list(levels(machine).values())


def test_picture_of_brightness_has_the_levels(page, machine):
    picture = section(page, "brightness-title")
    shades = {tile.get("data-word"): tile.get("fill") for tile in picture.iter(f"{SVG}rect") if tile.get("data-word")}
    percent = {word: f"{float(level):.0%}" for word, level in levels(machine).items()}
    assert shades == {word: f"rgb({shade},{shade},{shade})" for word, shade in percent.items()}
    captions = [text(part) for part in picture.iter(f"{SVG}text")][:6]
    assert captions == [caption for pair in levels(machine).items() for caption in pair]


def test_picture_of_corners_has_the_corners(page, machine):
    corner = preferences(machine)["labelcorner"]
    captions = [text(part) for part in section(page, "corners-title").iter(f"{SVG}text")]
    assert captions == ["FITS", *(f"{word}, the default" if word == corner.default else word for word in corner.words)]


# What is deleted, and where


def test_manual_has_the_tags_of_all_file_types(page):
    ending, mime_type = section(page, "nebulark-ctl.What_is_deleted").findall("ul/li")
    assert marked(ending, "Li", "Pa") == ["Thumb::URI", *table("thumbcache/ownership.h", "nebulark_extensions")]
    assert marked(mime_type, "Li") == ["Thumb::Mimetype", *table("thumbcache/ownership.h", "nebulark_mime_types")]


def test_manual_and_picture_have_all_size_directories(page):
    directories = table("thumbcache/cache_location.h", "thumbnail_size_dirs")
    documented = marked(section(page, "nebulark-ctl.THE_THUMBNAIL_CACHE").find("p"), "Pa")
    assert documented == ["thumbnails", *directories]
    assert marked(section(page, "clear-title"), "mono") == ["--all", "--all", *directories, "~/Pictures"]


def test_manual_has_all_variables_of_the_environment(page):
    terms = section(page, "nebulark-ctl.ENVIRONMENT").findall("dl/dt")
    read = re.findall(r'getenv\("(\w+)"\)', "".join(file.read_text() for file in SOURCES.rglob("*.cpp")))
    assert [text(term) for term in terms] == read


def test_manual_has_the_place_that_the_usage_names(page, machine):
    place = re.search(r"^Documentation: (.+)$", machine.run("--help").err.decode(), re.MULTILINE)[1]
    assert place in marked(section(page, "nebulark-ctl.FILES"), "Pa")


def test_page_is_of_the_tools_version(page, machine):
    name, version = machine.run("--version").out.decode().split()
    assert marked(page, "version") == [f"Version {version}"]
    assert text(page.find(".//footer/p")).startswith(f"{name} {version},")


# Messages


def pattern(term) -> str:
    """Of the messages that a term stands for."""
    words = text(term)
    for variable in marked(term, "Ar"):
        words = words.replace(f" {variable}", " .+", 1)
    return words


def test_manual_has_all_error_messages(page, machine):
    def message(*words: str) -> str:
        return machine.run(*words, user="ann").err.decode().split("\n")[0]

    messages = [
        message("--unknown"),
        message("--set"),
        message("--set", "cfa"),
        message("--set", "foo=bar"),
        message("--set", "cfa=colour"),
        message("--set", "cfa=mono"),
    ]
    os.chown(machine.prefs.parent, ANN, ANN)
    machine.prefs_tmp.mkdir()
    messages += [message("--set", "cfa=mono"), message("--clear-thumb-cache")]

    terms = section(page, "nebulark-ctl.DIAGNOSTICS").findall("dl/dt")
    for term, said in zip(terms, messages, strict=True):
        assert re.fullmatch(pattern(term), said)


# Transcripts


SPEAKERS = {"$": "ann", "#": "root"}
DIALOGUE = re.compile(r"^([$#]) ([a-z].*)\n((?:(?![$#] [a-z]).*\n)*)", re.MULTILINE)


def in_page(part: str):
    return lambda page: ["".join(pre.itertext()) for pre in page.iterfind(f".//*[@id='{part}']//pre")]


def in_readme(_page) -> list[str]:
    indented = re.findall(r"(?:^    .*\n|^\n(?=    ))+", (PROJECT / "README.md").read_text(), re.MULTILINE)
    return [block for block in map(textwrap.dedent, indented) if re.match(r"\n*[$#] nebulark-ctl ", block)]


@pytest.mark.parametrize(
    "transcripts", [in_page("guide"), in_page("manual"), in_readme], ids=["guide", "manual", "README"]
)
@pytest.mark.usefixtures("polkit")
def test_transcripts_are_what_the_tool_does(page, machine, transcripts):
    """One after the other, on a machine with the cache of the samples."""
    shutil.copytree(PROJECT / "tests/samples/thumbnails", machine.ann / ".cache/thumbnails")
    for path in machine.ann.rglob("*"):
        os.chown(path, ANN, ANN)

    told = [entry for transcript in transcripts(page) for entry in DIALOGUE.findall(transcript.strip("\n") + "\n")]
    assert len(told) > 4
    for prompt, command, answer in told:
        run = machine.run(
            command,
            user=SPEAKERS[prompt],
            tool=["sh", "-c"],
            env={"HOME": "/home/ann", "PATH": "/usr/bin:/bin"},
            script='cd /home/ann && exec "$@" 2>&1',
        )
        assert run.out.decode() == answer, command


def test_rule_lets_its_group_change_the_preferences(page, desk):
    (rule,) = [pre for pre in in_page("manual")(page) if "polkit" in pre]
    (desk.rules / "10-nebulark.rules").write_text(rule)
    with open(desk.etc / "group", "a") as group:
        group.write("observers:x:1002:ann\n")
    changed = listing(cfa="mono")
    assert desk.run(TOOL, "--set", "cfa=mono") == (0, NOTICE + changed + HINT + changed)


# Form


def test_page_is_whole_in_itself(page):
    """It loads nothing, runs nothing, and its links lead to places of its own."""
    ids = [part.get("id") for part in page.iter() if part.get("id")]
    assert len(ids) == len(set(ids))
    links = [part.get("href") for part in page.iter() if part.get("href")]
    assert [link for link in links if link != "#" and link.removeprefix("#") not in ids] == []
    tags = {part.tag.removeprefix(SVG) for part in page.iter()}
    assert tags.isdisjoint({"script", "link", "iframe", "object", "embed", "img", "image", "video", "audio"})
    attributes = {name for part in page.iter() for name in part.keys()}
    assert attributes.isdisjoint({"src", "srcset", "data", "poster", "style"})
    references = re.findall(r"@import|url\(([^)]*)\)", PAGE.read_text())
    assert [reference for reference in references if reference.removeprefix("#") not in ids] == []


def test_pictures_have_a_title_and_a_text_for_those_who_cannot_see_them(page):
    pictures = page.findall(f".//figure/{SVG}svg")
    assert len(pictures) == 5
    for picture in pictures:
        described_by = picture.get("aria-labelledby").split()
        assert picture.get("role") == "img"
        assert [picture.find(f"{SVG}{part}").get("id") for part in ("title", "desc")] == described_by


@pytest.mark.parametrize("manual", MANUALS, ids=lambda manual: manual.name)
def test_mandoc_has_no_complaint(manual):
    # Whether the pages referred to are there is the machine's affair.
    command = ["mandoc", "-T", "lint", "-W", "all", manual.name]
    done = subprocess.run(command, cwd=manual.parent, stdout=subprocess.PIPE, text=True, timeout=60)
    assert [line for line in done.stdout.splitlines() if "referenced manual not found" not in line] == []


@pytest.mark.parametrize("manual", MANUALS, ids=lambda manual: manual.name)
def test_man_shows_it_at_80_columns_without_a_warning(manual):
    done = subprocess.run(
        ["man", "--warnings", "--local-file", manual],
        env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "MANWIDTH": "80"},
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert (done.returncode, done.stderr) == (0, "")
    literal = manual.read_text().splitlines()  # what the tool prints, which is not filled
    assert [line for line in done.stdout.splitlines() if len(line) > 80 and line.strip() not in literal] == []
