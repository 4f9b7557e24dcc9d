"""The documentation: the page named by NEBULARK_PAGE, or else docs/index.html beside the built tool. The manual
pages are in the same directory, as man reads them and as HTML."""

import os
import xml.etree.ElementTree as ElementTree
from pathlib import Path

from machine import BUILT

PAGE = Path(os.environ.get("NEBULARK_PAGE", BUILT.parent / "docs/index.html"))
MANUALS = [PAGE.with_name(name) for name in ("nebulark-ctl.1", "nebulark-preferences.5")]
PAGES = [PAGE, *(manual.with_name(f"{manual.name}.html") for manual in MANUALS)]


def text(element: ElementTree.Element) -> str:
    """As a reader sees it: a line break is a blank."""
    return " ".join("".join(element.itertext()).split())


def marked(element, *markup: str) -> list[str]:
    """The texts of these classes, such as "Fl", mandoc's class for command line words."""
    return [text(part) for part in element.iter() if part.get("class") in markup]
