"""The tool's commands, and the words of the preferences, from the texts that the tool prints and writes."""

import re
from typing import NamedTuple

from machine import PROJECT, Machine
from texts import USAGE, listing, stored

COMMANDS = re.findall(r"(?<=\s)--[a-z-]+", USAGE.decode())
WORDS = {name: words.split("|") for name, words in re.findall(r"([a-z]+)=(\S+)", USAGE.decode())}
# The target backgrounds that the listing shows
LEVELS = {word: re.search(rb"background (.+)\)", listing(brightness=word))[1].decode() for word in WORDS["brightness"]}


def in_file(name: str, word: str) -> str:
    """How the file spells this word of the command line."""
    return re.search(rf"^{name}=(\w+)$", stored(**{name: word}).decode(), re.MULTILINE)[1]


SOURCES = PROJECT / "src"


class Preference(NamedTuple):
    words: list[str]
    default: str


def found(pattern: str, text: str) -> str:
    match = re.search(pattern, text, re.MULTILINE | re.DOTALL)
    assert match, (pattern, text)
    return match[1]


def commands(machine: Machine) -> list[str]:
    """The command words of the usage text."""
    return re.findall(r"(?<=\s)--[a-z-]+", machine.run("--help").err.decode())


def preferences(machine: Machine) -> dict[str, Preference]:
    """By name, in the order of the listing; the machine must have the defaults."""
    listed = re.findall(r"^(\w+) += (\w+)", machine.run("--prefs").out.decode(), re.MULTILINE)
    return {name: Preference(words(machine, name), default) for name, default in listed}


def words(machine: Machine, name: str) -> list[str]:
    """The words of a preference, from the message for another value."""
    message = machine.run("--set", f"{name}=").err.decode()
    return re.split(", | or ", found(rf"^nebulark-ctl: {name}: expected ([^\n]+)\n$", message))


def stored_preferences(machine: Machine) -> dict[str, Preference]:
    """Like preferences(), in the words of the file."""

    def stored(name: str, word: str) -> str:
        machine.run("--set", f"{name}={word}")
        return found(rf"^{name}=(\w+)$", machine.prefs.read_text())

    return {
        name: Preference([stored(name, word) for word in told.words], stored(name, told.default))
        for name, told in preferences(machine).items()
    }


def levels(machine: Machine) -> dict[str, str]:
    """The target background of each brightness, as the listing writes it."""
    shown = {word: machine.run("--set", f"brightness={word}").out.decode() for word in words(machine, "brightness")}
    return {word: found(r"\(target background (.+?)\)", text) for word, text in shown.items()}


def table(file: str, name: str) -> list[str]:
    """A table in the sources, for words that no message of the tool names."""
    return re.findall(r'"(.+?)"', found(rf"\b{name}\{{(.+?)\}}", (SOURCES / file).read_text()))
