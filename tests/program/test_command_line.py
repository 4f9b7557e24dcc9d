"""The command word, and the words after it."""

import subprocess

import pytest

from cache import CLEAR, HOME, PHOTO, report, report_all
from machine import unless_emulated
from texts import DEFAULTS, USAGE, shown
from vocabulary import WORDS

LONG = "x" * 100 * 1024


def test_without_a_command_word_the_usage_goes_to_standard_error(machine):
    assert machine.run() == (2, b"", USAGE)


@pytest.mark.parametrize("word", ["--help", "-h"])
@pytest.mark.parametrize("further", [[], ["--version", "%s%n", b"\xff", ""]], ids=["alone", "further words"])
def test_help_goes_to_standard_error_and_is_a_success(machine, word, further):
    assert machine.run(word, *further) == (0, b"", USAGE)


def test_usage_names_every_preference_and_its_words(machine):
    assert list(WORDS) == list(DEFAULTS)
    for name, (*words, last) in WORDS.items():
        message = f"nebulark-ctl: {name}: expected {', '.join(words)} or {last}\n"
        assert machine.run("--set", f"{name}=") == (2, b"", message.encode())


@pytest.mark.parametrize("further", [[], ["--help", LONG]], ids=["alone", "further words"])
def test_version_and_prefs_ignore_further_words(machine, further):
    machine.prefs.write_text("cfa=color\n")
    assert machine.run("--version", *further) == (0, b"nebulark-ctl 1.2.0\n", b"")
    assert machine.run("--prefs", *further, *["cfa=mono"] * len(further)) == (0, shown(cfa="color"), b"")
    assert machine.prefs.read_text() == "cfa=color\n"


# Near misses of each command word, and words that could break a format or a buffer.
UNKNOWN: list[str | bytes] = ["", "--HELP", "--helps", "-help", "-h ", "-hh", "--version=1", " --prefs", "--prefs\n"]
UNKNOWN += ["--pref", "prefs", "--set=cfa=mono", "--", "--all", "%s%n%d%%", bytes(range(1, 256)), LONG]


@pytest.mark.parametrize("word", UNKNOWN, ids=lambda word: repr(word)[:20])
def test_unknown_command_word_is_repeated_as_typed(machine, word):
    typed = word if isinstance(word, bytes) else word.encode()
    assert machine.run(word, "--help") == (2, b"", b"nebulark-ctl: unknown command " + typed + b"\n" + USAGE)


ALL = [["--all"], ["--all", "--verbose"]]
NOT_ALL = [["--verbose", "--all"], ["--", "--all"], ["all"], ["--ALL"], ["--al"], ["--all "], ["--all=yes"], [""]]


@pytest.mark.parametrize("further", [*ALL, *NOT_ALL], ids=repr)
def test_only_the_next_word_can_clear_all(cache, further):
    cache.put(PHOTO, "normal/harbour.png")
    done = (report_all(1), {"normal/harbour.png"}) if further in ALL else (report(0, 1), set())
    assert cache.clear(*further) == done


@pytest.mark.parametrize("words", [["--version"], ["--prefs"], ["--set", "cfa=mono"], CLEAR], ids=" ".join)
def test_standard_input_is_left_unread(machine, words):
    run = machine.run(*words, env=HOME, script='echo left alone | { "$@" >/dev/null; cat; }')
    assert run == (0, b"left alone\n", b"")


def test_environment_does_not_move_the_preferences(machine):
    (machine.ann / "nebulark").mkdir()
    (machine.ann / "nebulark/preferences.conf").write_text("cfa=mono\n")
    names = ["HOME", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_HOME", "XDG_DATA_DIRS"]
    assert machine.run("--prefs", env=dict.fromkeys(names, "/home/ann")) == (0, shown(), b"")


@unless_emulated("the locale is for this machine's processor")
def test_locale_of_the_environment_changes_nothing(machine):
    # In this one the decimal point is a comma, and some of the high bytes are capitals.
    localedef = ["localedef", "--no-archive", "--inputfile=de_DE", "--charmap=ISO-8859-1", machine.home / "de_DE"]
    subprocess.run(localedef, check=True)
    env = {"LOCPATH": "/home", "LC_ALL": "de_DE"}
    assert machine.run("decimal_point", env=env, tool=["locale"]) == (0, b",\n", b"")
    assert machine.run("--prefs", env=env) == (0, shown(), b"")
    rejected = machine.run("--set", b"\xc4=on", env=env)
    assert rejected == (2, b"", b"nebulark-ctl: unknown preference: \xc4\n")
