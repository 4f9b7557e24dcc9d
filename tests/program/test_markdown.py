"""README and the other Markdown files, compared with the tool and the repository."""

import re

import pytest

from machine import PROJECT
from texts import CANNOT_WRITE, COULD_NOT_WRITE, DEFAULTS
from vocabulary import WORDS

README = (PROJECT / "README.md").read_text()

every_document = pytest.mark.parametrize(
    "document",
    sorted([*PROJECT.glob("*.md"), *PROJECT.glob("*/*.md")]),
    ids=lambda path: str(path.relative_to(PROJECT)),
)


def test_readme_has_all_preferences():
    rows = re.findall(r"^\| `(\w+)` +\| `(.+?)` +\| `(\w+)`", README, re.MULTILINE)
    assert rows == [(name, "`, `".join(words), DEFAULTS[name]) for name, words in WORDS.items()]


def test_readme_quotes_messages_as_they_are_printed():
    nothing = "Nothing to remove: there were no cached Nebulark thumbnails"
    printed = [CANNOT_WRITE.decode(), "No session for cookie", COULD_NOT_WRITE.decode(), nothing]
    quoted = re.findall(r"^\*\*`(.+?)`", README, re.MULTILINE)
    assert [message for message, said in zip(quoted, printed, strict=True) if message not in said] == []


def anchors(text: str) -> set[str]:
    """The anchors of a Markdown file's headings, as GitHub and GitLab make them."""
    headings = re.findall(r"^#+ (.+)$", text, re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-") for heading in headings}


@every_document
def test_links_lead_somewhere(document):
    links = re.findall(r'\]\(([^)\s]+)\)|(?:src|href)="([^"]+)"', document.read_text())
    for link in map("".join, links):
        path, _, anchor = link.partition("#")
        target = document.parent / path if path else document
        assert target.is_file(), link
        assert not anchor or anchor in anchors(target.read_text()), link


@every_document
def test_named_tests_and_scripts_exist(document):
    text = document.read_text()
    names = {f"tests/program/{name}.py" for name in re.findall(r"\btest_\w+", text)}
    names |= set(re.findall(r"(?<![\w/])(?:script|tests|src|data|docs|bench|cmake|debian)/[\w./-]*\w", text))
    assert [name for name in sorted(names) if not (PROJECT / name).exists()] == []


@pytest.mark.parametrize("picture", re.findall(r'src="(.+?\.svg)"', README))
def test_picture_looks_as_it_does_on_the_page(picture):
    """Its style has the page's rules and colours, light ones first."""
    style = re.search(r"<style>\n(.*)</style>", (PROJECT / picture).read_text(), re.DOTALL)[1]
    page = (PROJECT / "docs/style.css").read_text()
    rules = {line for line in style.splitlines() if re.match(r"[.:\w]+ {", line) and "--paper:" not in line}
    assert rules - {*page.splitlines()} == {":root { background: var(--paper); }"}

    def colours(text: str) -> dict[str, str]:
        return dict(re.findall(r"(--\w+): (#\w+);", text))

    light, dark = map(colours, page.split("(prefers-color-scheme: dark)"))
    own_light, own_dark = map(colours, style.split("@media"))
    assert own_light == {name: light[name] for name in own_light}
    assert own_dark == {name: dark[name] for name in own_light}
