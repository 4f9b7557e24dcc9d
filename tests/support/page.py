"""The documentation that was built with the tool: the page, and the manual pages as man reads them and as HTML."""

import xml.etree.ElementTree as ElementTree

from machine import BUILT

PAGE = BUILT.parent / "docs/index.html"
MANUALS = [PAGE.with_name(name) for name in ("nebulark-ctl.1", "nebulark-preferences.5")]
PAGES = [PAGE, *(manual.with_name(f"{manual.name}.html") for manual in MANUALS)]


def text(element: ElementTree.Element) -> str:
    """As a reader sees it: a line break is a blank."""
    return " ".join("".join(element.itertext()).split())


def marked(element, *markup: str) -> list[str]:
    """The texts of these classes, such as "Fl", mandoc's class for command line words."""
    return [text(part) for part in element.iter() if part.get("class") in markup]
