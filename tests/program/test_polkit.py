"""What polkit asks when an ordinary user changes the preferences, and what comes of each answer.

dbus-daemon, polkitd, pkexec and the agent on the terminal are the real ones. The test machine has its own users,
passwords and rules.
"""

import re
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest

from machine import SET_MONO, TOOL, cannot_run, entries
from desk import ELSEWHERE, HERE_AND_NOW, INTERRUPT, INTERRUPTED, PASSWORD, RUN_THE_COMMAND, START_AGENT
from texts import ACTION, CANNOT_WRITE, HINT, MESSAGE, NO_SESSION, NOT_AUTHORIZED, NOTICE, listing, question, stored

RIGHT = PASSWORD + "\n"
COMPLETE = b"\n==== AUTHENTICATION COMPLETE ====\n"
FAILED = b"\npolkit-agent-helper-1: pam_authenticate failed: Authentication failure\n==== AUTHENTICATION FAILED ====\n"
NO_TERMINAL = (
    b"Error creating textual authentication agent: Error opening current controlling terminal for the process "
    b"(`/dev/tty'): No such device or address\n"
)
REFUSED = NOT_AUTHORIZED + CANNOT_WRITE
SECOND_RUN = listing(cfa="mono") + HINT
SAVED = SECOND_RUN + listing(cfa="mono")


def test_polkit_understands_the_policy(desk):
    lines = [
        b"nebulark.ctl.set-preferences:",
        b"  description:       Change how Nebulark draws thumbnails, for every user of this machine",
        b"  message:           " + MESSAGE,
        b"  vendor:            Nebulark",
        b"  vendor_url:        ",
        b"  icon:              preferences-system",
        b"  implicit any:      auth_admin",
        b"  implicit inactive: auth_admin",
        b"  implicit active:   auth_admin_keep",
        b"  annotation:        org.freedesktop.policykit.exec.path -> /usr/bin/nebulark-ctl",
        b"  annotation:        org.freedesktop.policykit.exec.argv1 -> --set",
        b"\n",
    ]
    ElementTree.parse(desk.policy)  # polkit itself also takes an unfinished file
    assert desk.run("pkaction", "--verbose", "--action-id", ACTION.decode()) == (0, b"\n".join(lines))


# What comes of each answer: the status, and what follows the notice.
ANSWERS = {
    "right password": (dict(keys=[RIGHT]), 0, question() + COMPLETE + SAVED),
    "wrong password": (dict(keys=["Sesame\n"]), 1, question() + FAILED + REFUSED),
    "no password": (dict(keys=["\n"]), 1, question() + FAILED + REFUSED),
    "Ctrl-C": (dict(keys=[INTERRUPT]), INTERRUPTED, question()),
    "Ctrl-C half way": (dict(keys=[PASSWORD + INTERRUPT]), INTERRUPTED, question()),
    "no terminal": (dict(shell='exec setsid --wait "$@"'), 1, NO_TERMINAL + CANNOT_WRITE),
    "rule that says no": (dict(rule="NO"), 1, REFUSED),
    "rule that says yes": (dict(rule="YES"), 0, SAVED),
}


def check_answered(desk, how, status, said):
    assert desk.run(TOOL, *SET_MONO, **how) == (status, NOTICE + said)
    left = {path: entry[1:] for path, entry in entries(desk.prefs.parent).items()}
    assert left == ({desk.prefs: ("-rw-r--r--", 0, stored(cfa="mono"))} if status == 0 else {})


@pytest.mark.parametrize("how, status, said", ANSWERS.values(), ids=ANSWERS)
def test_root_writes_the_file_if_the_password_or_a_rule_allows_it(desk, how, status, said):
    check_answered(desk, how, status, said)


# If the tool has no agent, as over ssh, pkexec asks. Whether the right password then counts depends on polkit's
# version: Debian 12 has 122, Debian 13 has 126.
WITHOUT_AGENT = {122: (1, question() + NO_SESSION + REFUSED), 126: (0, question() + COMPLETE + SAVED)}
NO_AGENT_FOR_THE_TOOL = {"no agent": 'exec "$@"', "an agent that serves only the shell": RUN_THE_COMMAND}


@pytest.mark.parametrize("shell", NO_AGENT_FOR_THE_TOOL.values(), ids=NO_AGENT_FOR_THE_TOOL)
def test_without_an_agent_polkit_122_loses_the_right_password_and_126_takes_it(desk, shell):
    version = subprocess.run(["pkexec", "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout
    known = int(re.search(r"\d+", version)[0])
    if known not in WITHOUT_AGENT:
        cannot_run(f"nobody has tried polkit {known} yet")
    check_answered(desk, dict(keys=[RIGHT], shell=shell), *WITHOUT_AGENT[known])


COPY = "/home/ann/nebulark-ctl"
WORDS = ["", "--prefs", "--clear-thumb-cache --all", "--all --set cfa=mono", "--set=cfa=mono", "--SET cfa=mono"]


@pytest.mark.parametrize("command", [*(f"{TOOL} {words}".strip() for words in WORDS), f"{COPY} --set cfa=mono"])
def test_other_words_and_other_copies_get_the_general_question_despite_a_rule(desk, command):
    (desk.machine.ann / "nebulark-ctl").hardlink_to(desk.machine.bin / "nebulark-ctl")
    status, shown = desk.run("pkexec", *command.split(), shell=RUN_THE_COMMAND, rule="YES")
    assert status == INTERRUPTED
    # Older versions of polkit name the program, newer ones its words too.
    asked = b"Authentication is needed to run `%s' as the super user"
    named = [asked % name.encode() for name in (command.split()[0], command)]
    assert shown in [question(b"org.freedesktop.policykit.exec", message) for message in named]
    assert entries(desk.prefs.parent) == {}


# How long an authorization lasts

SESSIONS = {"an active local session": (HERE_AND_NOW, 1)} | {name: (how, 2) for name, how in ELSEWHERE.items()}


@pytest.mark.parametrize("session, passwords", SESSIONS.values(), ids=SESSIONS)
def test_shell_is_asked_once_in_an_active_local_session_and_else_each_time(desk, session, passwords):
    twice = START_AGENT + '"$@" && "$@"; exit'
    run = desk.run("pkexec", TOOL, *SET_MONO, keys=passwords * [RIGHT], shell=twice, session=session)
    asked = question() + COMPLETE
    assert run == (0, asked + SECOND_RUN + (passwords - 1) * asked + SECOND_RUN)


def test_each_run_of_the_tool_is_asked_for(desk):
    once = NOTICE + question() + COMPLETE + SAVED
    run = desk.run(TOOL, *SET_MONO, keys=[RIGHT, RIGHT], session=HERE_AND_NOW, times=2)
    assert run == (0, once + once)
