"""The fixtures. Without namespaces the tests are skipped with the reason, and under CI they fail."""

import os
import shutil
from collections.abc import Iterator
from pathlib import Path

import pytest
from cache import Cache
from desk import Desk
from machine import BUILT, EMULATOR, Machine, cannot_run, why_no_sandbox
from page import PAGE

SKIPPED = 77  # CTest knows it too


def pytest_sessionstart(session):
    if reason := why_no_sandbox():
        pytest.exit(f"no mount namespaces here: {reason}", 1 if "CI" in os.environ else SKIPPED)


@pytest.fixture(scope="session")
def installed_tool(tmp_path_factory) -> Path:
    """A copy of the tool on the machines' file system, so that they can link to it."""
    return shutil.copy2(BUILT, tmp_path_factory.mktemp("tool") / "nebulark-ctl")


@pytest.fixture
def machine(installed_tool, tmp_path) -> Machine:
    return Machine(tmp_path, installed_tool)


@pytest.fixture
def cache(machine) -> Cache:
    return Cache(machine)


@pytest.fixture
def polkit(machine) -> Iterator[None]:
    """Gives the machine a pkexec that runs its words as root without a question."""
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
    if not PAGE.exists():
        cannot_run(f"there is no {PAGE}: was mandoc there when it was built?")
    return PAGE
