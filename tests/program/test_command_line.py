"""The command word, and what becomes of the words after it."""

import subprocess

import pytest

from machine import unless_emulated
from texts import USAGE, shown

VERSION = b"nebulark-ctl 1.2.0\n"
LONG = "x" * 100 * 1024


def test_no_command_word_prints_the_usage_on_standard_error(machine):
    assert machine.run() == (2, b"", USAGE)


@pytest.mark.parametrize("word", ["--help", "-h"])
@pytest.mark.parametrize("further", [[], ["--version"], ["%s%n", b"\xff", ""]])
def test_help_goes_to_standard_error_and_is_a_success(machine, word, further):
    assert machine.run(word, *further) == (0, b"", USAGE)


@pytest.mark.parametrize("further", [[], ["--help"], ["1"], [LONG]])
def test_version_ignores_further_words(machine, further):
    assert machine.run("--version", *further) == (0, VERSION, b"")


@pytest.mark.parametrize("further", [[], ["--help"], ["cfa=mono"], ["", LONG]])
def test_prefs_ignores_further_words(machine, further):
    machine.prefs.write_text("cfa=color\n")
    assert machine.run("--prefs", *further) == (0, shown(cfa="color"), b"")
    assert machine.prefs.read_text() == "cfa=color\n"


UNKNOWN = {
    "empty": "",
    "one dash": "-help",
    "capitals": "--HELP",
    "blank behind": "-h ",
    "blank before": " --prefs",
    "line feed behind": "--prefs\n",
    "letter behind": "-hh",
    "capital letter": "-H",
    "value behind": "--version=1",
    "empty value behind": "--prefs=",
    "assignment behind": "--set=cfa=mono",
    "abbreviation": "--pref",
    "shortest abbreviation, end of options": "--",
    "extension": "--helps",
    "no dashes": "prefs",
    "option of another command": "--all",
    "format directives": "%s%n%d%%",
    "every byte": bytes(range(1, 256)),
    "very long": LONG,
}


@pytest.mark.parametrize("word", UNKNOWN.values(), ids=UNKNOWN.keys())
@pytest.mark.parametrize("further", [[], ["--help"]], ids=["alone", "before a known one"])
def test_unknown_command_word_is_repeated_as_typed(machine, word, further):
    typed = word if isinstance(word, bytes) else word.encode()
    said = b"nebulark-ctl: unknown command " + typed + b"\n"
    assert machine.run(word, *further) == (2, b"", said + USAGE)


@pytest.mark.parametrize(
    "further, clears_all",
    [
        ([], False),
        (["--all"], True),
        (["--all", "--verbose"], True),
        (["--verbose", "--all"], False),
        (["--", "--all"], False),
        (["all"], False),
        (["--ALL"], False),
        (["--al"], False),
        (["--all "], False),
        (["--all=yes"], False),
        (["-a"], False),
        ([""], False),
        (["%s%n"], False),
    ],
)
def test_only_the_very_next_word_widens_clearing_to_all(machine, further, clears_all):
    stray = machine.ann / ".cache/thumbnails/normal/stray"
    stray.parent.mkdir(parents=True)
    stray.touch()
    said = (
        b"Removed 1 cached thumbnail, for every application.\nClose and reopen your file manager to see them redrawn.\n"
        if clears_all
        else b"Removed 0 Nebulark thumbnails. Left 1 belonging to other applications.\n"
        b"Nothing to remove: there were no cached Nebulark thumbnails in /home/ann/.cache/thumbnails.\n"
    )
    assert machine.run("--clear-thumb-cache", *further, env={"HOME": "/home/ann"}) == (0, said, b"")
    assert stray.exists() != clears_all


def test_status_of_a_clearing_that_finds_no_cache_is_passed_on(machine):
    assert machine.run("--clear-thumb-cache") == (1, b"", b"nebulark-ctl: cannot locate the thumbnail cache\n")


@pytest.mark.parametrize("words", [[], ["--help"], ["--version"], ["--prefs"], ["--set", "cfa=mono"]], ids=" ".join)
def test_standard_input_is_left_unread(machine, words):
    run = machine.run(*words, stdin=b"left alone", script='"$@" >/dev/null 2>&1; cat')
    assert run == (0, b"left alone", b"")


def test_environment_names_no_other_place_for_the_preferences(machine):
    (machine.ann / "nebulark").mkdir()
    (machine.ann / "nebulark/preferences.conf").write_text("cfa=mono\n")
    names = ["HOME", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_HOME", "XDG_DATA_DIRS"]
    assert machine.run("--prefs", env=dict.fromkeys(names, "/home/ann")) == (0, shown(), b"")


@unless_emulated("the locale is one for this machine's processor")
def test_the_locale_of_the_environment_changes_nothing(machine):
    # In this one the decimal point is a comma, and some of the high bytes are capitals.
    localedef = ["localedef", "--no-archive", "--inputfile=de_DE", "--charmap=ISO-8859-1", machine.home / "de_DE"]
    subprocess.run(localedef, check=True)
    env = {"LOCPATH": "/home", "LC_ALL": "de_DE"}
    assert machine.run("decimal_point", env=env, tool=["locale"]) == (0, b",\n", b"")
    assert machine.run("--prefs", env=env) == (0, shown(), b"")
    rejected = machine.run("--set", b"\xc4=on", env=env)
    assert rejected == (2, b"", b"nebulark-ctl: unknown preference: \xc4\n")
