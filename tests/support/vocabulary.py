"""The tool's commands, and the words of the preferences, from the texts that the tool prints and writes."""

import re

from texts import USAGE, listing, stored

COMMANDS = re.findall(r"(?<=\s)--[a-z-]+", USAGE.decode())
WORDS = {name: words.split("|") for name, words in re.findall(r"([a-z]+)=(\S+)", USAGE.decode())}
# The target backgrounds that the listing shows
LEVELS = {word: re.search(rb"background (.+)\)", listing(brightness=word))[1].decode() for word in WORDS["brightness"]}


def in_file(name: str, word: str) -> str:
    """How the file spells this word of the command line."""
    return re.search(rf"^{name}=(\w+)$", stored(**{name: word}).decode(), re.MULTILINE)[1]
