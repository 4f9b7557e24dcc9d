"""The documentation page: the file named by NEBULARK_PAGE, or else docs/index.html beside the built tool."""

import os
from pathlib import Path

from machine import BUILT

PAGE = Path(os.environ.get("NEBULARK_PAGE", BUILT.parent / "docs/index.html"))
