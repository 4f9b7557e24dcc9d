"""What a packager gets: the release build's defences, and what it needs at run time."""

import re
import subprocess

import pytest
from machine import BUILT

pytestmark = pytest.mark.skipif(BUILT.parent.name != "release", reason="is about the release build only")


def readelf(*options: str) -> str:
    done = subprocess.run(["readelf", "--wide", *options, BUILT], capture_output=True, text=True, check=True)
    return done.stdout


def test_is_position_independent_and_read_only_after_starting():
    assert re.search(r"Type: +DYN \(Position-Independent Executable file\)", readelf("--file-header"))
    assert re.search(r"\(FLAGS_1\) +Flags: NOW PIE", readelf("--dynamic"))
    assert "GNU_RELRO" in readelf("--program-headers")


def test_guards_its_stack_and_its_formats():
    symbols = readelf("--dyn-syms")
    assert " __stack_chk_fail@" in symbols
    assert " __fprintf_chk@" in symbols


def test_needs_only_libc():
    needed = re.findall(r"\(NEEDED\) +Shared library: \[([^]]+)\]", readelf("--dynamic"))
    assert [name for name in needed if not name.startswith("ld-linux")] == ["libc.so.6"]


def test_has_no_static_initialiser():
    names = re.findall(r"_GLOBAL__sub_I_\S+", readelf("--syms"))
    assert [name for name in names if "nebulark" in name or "main" in name] == []
