"""The documentation: the page named by NEBULARK_PAGE, or else docs/index.html beside the built tool. The manual
pages are in the same directory, as man reads them and as HTML."""

import os
from pathlib import Path

from machine import BUILT

PAGE = Path(os.environ.get("NEBULARK_PAGE", BUILT.parent / "docs/index.html"))
MANUALS = [PAGE.with_name(name) for name in ("nebulark-ctl.1", "nebulark-preferences.5")]
