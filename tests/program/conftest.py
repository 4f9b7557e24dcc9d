"""What every test here may ask for by name. Where no namespaces can be made, none of these tests can run: they are
skipped, and say why once; with CI set that is a failure.
"""

import os
import shutil
from pathlib import Path

import pytest
from cache import Cache
from desk import Desk
from machine import BUILT, EMULATOR, Machine, why_no_sandbox
from page import PAGE

SKIPPED = 77  # as CTest is told


def pytest_sessionstart(session):
    if hasattr(session.config, "workerinput"):
        return  # its parent has asked
    if reason := why_no_sandbox():
        pytest.exit(f"no mount namespaces here: {reason}", 1 if "CI" in os.environ else SKIPPED)


@pytest.fixture(scope="session")
def installed_tool(tmp_path_factory) -> Path:
    """A copy of the tool on the machines' own file system, where they can link to it."""
    tool = tmp_path_factory.mktemp("tool") / "nebulark-ctl"
    return Path(shutil.copy2(BUILT, tool))


@pytest.fixture
def machine(installed_tool, tmp_path) -> Machine:
    return Machine(tmp_path, installed_tool)


@pytest.fixture
def cache(machine) -> Cache:
    return Cache(machine)


@pytest.fixture
def polkit(machine):
    """Gives the machine a pkexec that does what it is for: it runs its words as root, without asking."""
    become_root = machine.bin / "become-root"
    shutil.copy("/usr/bin/setpriv", become_root)
    become_root.chmod(0o4755)
    emulator = " ".join(EMULATOR)
    machine.pkexec(f'#!/bin/sh\nexec /usr/bin/become-root --reuid=0 --regid=0 --clear-groups -- {emulator} "$@"\n')
    yield
    become_root.unlink()


@pytest.fixture
def desk(machine) -> Desk:
    if EMULATOR:
        pytest.skip("the real pkexec starts the tool without qemu")
    return Desk(machine)


@pytest.fixture(scope="session")
def built_page() -> Path:
    """Skips, or under CI fails, every test where the page was not built."""
    if not PAGE.exists():
        (pytest.fail if "CI" in os.environ else pytest.skip)(f"there is no {PAGE}: was mandoc there when it was built?")
    return PAGE
