"""The manual pages and the documentation page, read as one document and compared with what the tool does."""

import os
import re
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest

from machine import ANN
from page import MANUALS, PAGE, marked, text
from test_polkit import NO_SESSION, NOT_AUTHORIZED
from transcripts import replay
from vocabulary import SOURCES, Preference, commands, levels, preferences, stored_preferences, table

SVG = "{http://www.w3.org/2000/svg}"


@pytest.fixture(scope="module")
def page(built_page) -> ElementTree.Element:
    """The guide, and in the element "manual" both manual pages, whose ids begin with the name of their page."""
    whole = ElementTree.parse(PAGE).getroot()
    manual = ElementTree.SubElement(whole, "div", id="manual")
    for source in MANUALS:
        html = ElementTree.parse(f"{source}.html").getroot()
        for part in html.iterfind(".//*[@id]"):
            part.set("id", f"{source.stem}.{part.get('id')}")
        manual.append(html)
    return whole


def section(page, heading: str) -> ElementTree.Element:
    return page.find(f".//*[@id='{heading}']/..")


# Names and words


def described(page, heading: str) -> dict[str, Preference]:
    """The preferences that a section of a manual page lists."""
    found = {}
    listed = section(page, heading).find("dl")
    for term, description in zip(listed.findall("dt"), listed.findall("dd")):
        name, words = text(term).split("=")
        default = re.search(r"The default is (\w+)\.", text(description))[1]
        found[name] = Preference(words.split(" | "), default)
    return found


def offered(page) -> dict[str, Preference]:
    """The preferences that the guide shows."""
    found = {}
    shown = page.find(".//dl[@class='preferences']")
    for term, description in zip(shown.findall("dt"), shown.findall("dd")):
        (default,) = marked(description, "default")
        found[text(term)] = Preference([text(word) for word in description.findall("ul/li")], default)
    return found


in_both_manuals = pytest.mark.parametrize(
    "heading", ["nebulark-ctl.PREFERENCES", "nebulark-preferences.Names_and_words"]
)


def test_manual_has_all_commands(page, machine):
    known = sorted([*commands(machine), "-h", "--all"])
    assert sorted(marked(section(page, "nebulark-ctl.SYNOPSIS"), "Fl")) == known
    terms = section(page, "nebulark-ctl.DESCRIPTION").findall("dl/dt")
    assert sorted(word for term in terms for word in marked(term, "Fl")) == known


def test_manual_has_all_preferences(page, machine):
    """nebulark-ctl(1) in the words of the command line, nebulark-preferences(5) in those of the file."""
    assert list(described(page, "nebulark-ctl.PREFERENCES").items()) == list(preferences(machine).items())
    stored = stored_preferences(machine)
    assert list(described(page, "nebulark-preferences.Names_and_words").items()) == list(stored.items())


def test_guide_has_all_preferences(page, machine):
    assert list(offered(page).items()) == list(preferences(machine).items())


@in_both_manuals
def test_manual_has_all_spellings_of_a_switch(page, heading):
    accepted = table("prefs/text.cpp", "words_for_true") + table("prefs/text.cpp", "words_for_false")
    (paragraph,) = [p for p in section(page, heading).findall("p") if text(p).startswith("The switches")]
    documented = {*marked(paragraph, "Cm")}
    if heading.startswith("nebulark-preferences"):
        documented |= {"true", "false"}  # these two are in the list above
    assert documented == {"autostretch", "labelformat", *accepted}


@in_both_manuals
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


def test_page_has_the_tools_version(page, machine):
    name, version = machine.run("--version").out.decode().split()
    assert marked(page, "version") == [f"Version {version}"]
    assert text(page.find(".//footer/p")).startswith(f"{name} {version},")


# Messages


def pattern(term) -> str:
    """The messages that a term stands for."""
    words = text(term)
    for variable in marked(term, "Ar"):
        words = words.replace(f" {variable}", " .+", 1)
    return words


def test_manual_has_all_error_messages(page, machine):
    def messages(*commands: str) -> list[str]:
        runs = [machine.run(*command.split(), user="ann") for command in commands]
        return [run.err.decode().split("\n")[0] for run in runs]

    said = messages("--unknown", "--set", "--set cfa", "--set foo=bar", "--set cfa=colour", "--set cfa=mono")
    os.chown(machine.prefs.parent, ANN, ANN)
    machine.prefs_tmp.mkdir()
    said += messages("--set cfa=mono", "--clear-thumb-cache")

    terms = section(page, "nebulark-ctl.DIAGNOSTICS").findall("dl/dt")
    for term, message in zip(terms, said, strict=True):
        assert re.fullmatch(pattern(term), message)


def test_manual_quotes_polkits_refusal_of_the_right_password(page):
    quoted = section(page, "nebulark-ctl.When_pkexec_refuses_the_right_password").find(".//pre")
    said = NO_SESSION + NOT_AUTHORIZED.partition(b"\n")[0]
    assert text(quoted) == " ".join(said.decode().split())


# Transcripts


def shown(page, part: str) -> list[str]:
    return ["".join(pre.itertext()) for pre in page.iterfind(f".//*[@id='{part}']//pre")]


@pytest.mark.parametrize("part", ["guide", "manual"])
@pytest.mark.usefixtures("polkit")
def test_transcripts_are_what_the_tool_does(page, machine, part):
    replay(machine, shown(page, part))


# Form


def documents() -> dict[str, ElementTree.Element]:
    files = [PAGE, *(manual.with_name(f"{manual.name}.html") for manual in MANUALS)]
    return {file.name: ElementTree.parse(file).getroot() for file in files}


@pytest.mark.usefixtures("built_page")
def test_links_lead_into_the_documentation_or_to_other_manual_pages():
    ids = {name: [part.get("id") for part in root.iter() if part.get("id")] for name, root in documents().items()}
    assert [name for name in ids if len(ids[name]) != len(set(ids[name]))] == []
    places = {f"{name}#{place}" for name in ids for place in ["", *ids[name]]}
    elsewhere = re.compile(r"https://manpages\.debian\.org/[a-z]+\.[18]")
    for name, root in documents().items():
        links = [part.get("href") for part in root.iter() if part.get("href")]
        inside = [link.removeprefix("/usr/share/doc/nebulark/") for link in links if not elsewhere.fullmatch(link)]
        full = {name + link if link.startswith("#") else link if "#" in link else link + "#" for link in inside}
        assert full - places == {"style.css#"}, name


@pytest.mark.usefixtures("built_page")
def test_documentation_runs_nothing_and_loads_only_its_style():
    for root in documents().values():
        tags = {part.tag.removeprefix(SVG) for part in root.iter()}
        assert tags.isdisjoint({"script", "iframe", "object", "embed", "img", "image", "video", "audio"})
        assert [part.get("href") for part in root.iter("link")] == ["style.css"]
        attributes = {name for part in root.iter() for name in part.keys()}
        assert attributes.isdisjoint({"src", "srcset", "data", "poster", "style"})
    references = re.findall(r"@import|url\(([^)]*)\)", PAGE.read_text() + PAGE.with_name("style.css").read_text())
    ids = [part.get("id") for part in documents()[PAGE.name].iter()]
    assert [reference for reference in references if reference.removeprefix("#") not in ids] == []


def test_page_has_a_description_for_search_engines(page):
    assert 50 < len(page.find("head/meta[@name='description']").get("content")) < 160


def test_pictures_have_a_title_and_a_description(page):
    pictures = page.findall(f".//figure/{SVG}svg")
    assert len(pictures) == 5
    for picture in pictures:
        described_by = picture.get("aria-labelledby").split()
        assert picture.get("role") == "img"
        assert [picture.find(f"{SVG}{part}").get("id") for part in ("title", "desc")] == described_by


@pytest.mark.parametrize("manual", MANUALS, ids=lambda manual: manual.name)
def test_mandoc_has_no_complaint(manual):
    # Which other pages are installed depends on the machine. The system that .Os names is the tool.
    command = ["mandoc", "-T", "lint", "-W", "all", manual.name]
    done = subprocess.run(command, cwd=manual.parent, stdout=subprocess.PIPE, text=True, timeout=60)
    expected = ("referenced manual not found", "operating system explicitly specified")
    assert [line for line in done.stdout.splitlines() if not any(text in line for text in expected)] == []


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
    literal = manual.read_text().splitlines()  # the tool's output, which man does not wrap
    assert [line for line in done.stdout.splitlines() if len(line) > 80 and line.strip() not in literal] == []
