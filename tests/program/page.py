"""The documentation page: the file named by NEBULARK_PAGE, or else docs/index.html beside the built tool."""

import os
from pathlib import Path

import pytest

from conftest import BUILT

PAGE = Path(os.environ.get("NEBULARK_PAGE", BUILT.parent / "docs/index.html"))


@pytest.fixture(scope="session")
def built_page() -> Path:
    """Skips, or under CI fails, every test where the page was not built."""
    if not PAGE.exists():
        (pytest.fail if "CI" in os.environ else pytest.skip)(f"there is no {PAGE}: was mandoc there when it was built?")
    return PAGE
