"""The tool's commands, and the names, words and defaults of the preferences, as the tool itself tells them."""

import re
from typing import NamedTuple

from machine import PROJECT, Machine

SOURCES = PROJECT / "src"


class Preference(NamedTuple):
    words: list[str]
    default: str


def commands(machine: Machine) -> list[str]:
    """The command words of the usage text."""
    return re.findall(r"(?<=\s)--[a-z-]+", machine.run("--help").err.decode())


def preferences(machine: Machine) -> dict[str, Preference]:
    """By name, in the order of the listing, of a machine where nobody has changed any."""
    listed = re.findall(r"^(\w+) += (\w+)", machine.run("--prefs").out.decode(), re.MULTILINE)
    return {name: Preference(words(machine, name), default) for name, default in listed}


def words(machine: Machine, name: str) -> list[str]:
    """What the message for a value that is none of them says that it may be."""
    message = machine.run("--set", f"{name}=").err.decode()
    return re.split(", | or ", re.fullmatch(rf"nebulark-ctl: {name}: expected (.+)\n", message)[1])


def stored_preferences(machine: Machine) -> dict[str, Preference]:
    """As preferences(), in the words that the file has for them."""

    def stored(name: str, word: str) -> str:
        machine.run("--set", f"{name}={word}")
        return re.search(rf"^{name}=(.+)$", machine.prefs.read_text(), re.MULTILINE)[1]

    return {
        name: Preference([stored(name, word) for word in told.words], stored(name, told.default))
        for name, told in preferences(machine).items()
    }


def levels(machine: Machine) -> dict[str, str]:
    """The target background of each brightness, as the listing writes it."""

    def level(word: str) -> str:
        return re.search(r"\(target background (.+)\)", machine.run("--set", f"brightness={word}").out.decode())[1]

    return {word: level(word) for word in words(machine, "brightness")}


def table(file: str, name: str) -> list[str]:
    """A table of words in the sources, where no message of the tool tells them."""
    text = (SOURCES / file).read_text()
    return re.findall(r'"(.+?)"', re.search(rf"\b{name}\{{(.+?)\}}", text, re.DOTALL)[1])
