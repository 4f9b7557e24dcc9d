"""What polkit asks when an ordinary user changes the preferences, and what comes of each answer.

dbus-daemon, polkitd, pkexec and the agent on the terminal are the real ones. The test machine has its own users,
passwords and rules.
"""

import os
import re
import shutil
import subprocess

import pytest

from machine import SET_MONO, TOOL
from desk import ACTION, INTERRUPT, PASSWORD, RUN_THE_COMMAND, START_AGENT
from texts import CANNOT_WRITE, HINT, NOTICE, PATH, listing, stored
from tracing import COUNTS_LINES

MESSAGE = b"Authentication is required to change how Nebulark draws thumbnails, for every user of this machine."
GENERAL_ACTION = b"org.freedesktop.policykit.exec"


def question(action=ACTION, message=MESSAGE):
    return b"==== AUTHENTICATING FOR %s ====\n%s\nAuthenticating as: admin\nPassword: " % (action, message)


def general_questions(*command):
    """The ways to ask it: older versions of polkit name the program, newer ones its words too."""
    asked = b"Authentication is needed to run `%s' as the super user"
    return [question(GENERAL_ACTION, asked % named.encode()) for named in (command[0], " ".join(command))]


RIGHT = PASSWORD + "\n"
COMPLETE = b"\n==== AUTHENTICATION COMPLETE ====\n"
FAILED = b"\npolkit-agent-helper-1: pam_authenticate failed: Authentication failure\n==== AUTHENTICATION FAILED ====\n"
NO_SESSION = (
    b"\npolkit-agent-helper-1: error response to PolicyKit daemon: "
    b"GDBus.Error:org.freedesktop.PolicyKit1.Error.Failed: No session for cookie\n==== AUTHENTICATION FAILED ====\n"
)
NOT_AUTHORIZED = b"Error executing command as another user: Not authorized\n\nThis incident has been reported.\n"
MONO = listing(cfa="mono")
INTERRUPTED = 128 + 2  # sh's status for a command that SIGINT ended


# The policy


def test_policy_is_valid_by_polkits_definition(desk):
    definition = "/usr/share/polkit-1/policyconfig-1.dtd"
    done = subprocess.run(
        ["xmllint", "--nonet", "--noout", "--dtdvalid", definition, desk.policy], capture_output=True, text=True
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_policy_is_named_after_the_namespace_of_its_action(desk):
    assert desk.policy.name.encode() == ACTION.rpartition(b".")[0] + b".policy"


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
    assert desk.run("pkaction", "--verbose", "--action-id", ACTION.decode()) == (0, b"\n".join(lines))


# What the user answers


def test_with_the_administrators_password_root_writes_the_file(desk):
    before = NOTICE + question()
    assert desk.run(TOOL, *SET_MONO, keys=[RIGHT]) == (0, before + COMPLETE + MONO + HINT + MONO)
    assert desk.prefs.read_bytes() == stored(cfa="mono")
    assert (desk.prefs.stat().st_uid, desk.prefs.stat().st_gid, desk.prefs.stat().st_mode) == (0, 0, 0o100644)
    assert os.listdir(desk.prefs.parent) == [desk.prefs.name]


NO_PASSWORD = {
    "wrong": ("Sesame\n", 1, FAILED + NOT_AUTHORIZED + CANNOT_WRITE),
    "none": ("\n", 1, FAILED + NOT_AUTHORIZED + CANNOT_WRITE),
    "interrupted": (INTERRUPT, INTERRUPTED, b""),
    "interrupted half way": (PASSWORD + INTERRUPT, INTERRUPTED, b""),
}


@pytest.mark.parametrize("typed, status, said", NO_PASSWORD.values(), ids=NO_PASSWORD.keys())
def test_without_the_password_nothing_is_written(desk, typed, status, said):
    desk.prefs.write_text("labelformat=on\n")
    assert desk.run(TOOL, *SET_MONO, keys=[typed]) == (status, NOTICE + question() + said)
    assert desk.prefs.read_text() == "labelformat=on\n"
    assert os.listdir(desk.prefs.parent) == [desk.prefs.name]


# If the tool has no agent, as over ssh, pkexec asks. Whether the right password then counts depends on polkit's
# version: Debian 12 has 122, Debian 13 has 126.
WITHOUT_AGENT = {
    122: (1, NOTICE + question() + NO_SESSION + NOT_AUTHORIZED + CANNOT_WRITE),
    126: (0, NOTICE + question() + COMPLETE + MONO + HINT + MONO),
}
NO_AGENT_FOR_THE_TOOL = {"no agent": 'exec "$@"', "an agent that serves only the shell": RUN_THE_COMMAND}


@pytest.mark.parametrize("shell", NO_AGENT_FOR_THE_TOOL.values(), ids=NO_AGENT_FOR_THE_TOOL.keys())
def test_without_an_agent_polkit_122_loses_the_right_password_and_126_takes_it(desk, shell):
    version = subprocess.run(["pkexec", "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout
    known = int(re.search(r"\d+", version)[0])
    if known not in WITHOUT_AGENT:
        pytest.skip(f"nobody has tried polkit {known} yet")
    assert desk.run(TOOL, *SET_MONO, keys=[RIGHT], shell=shell) == WITHOUT_AGENT[known]
    assert desk.prefs.exists() == (known == 126)


def test_without_a_terminal_nothing_is_written(desk):
    without_terminal = 'exec setsid --wait "$@"'
    said = (
        b"Error creating textual authentication agent: Error opening current controlling terminal for the process "
        b"(`/dev/tty'): No such device or address\n"
    )
    assert desk.run(TOOL, *SET_MONO, shell=without_terminal) == (1, NOTICE + said + CANNOT_WRITE)
    assert os.listdir(desk.prefs.parent) == []


# What an administrator's rule says


def test_rule_that_says_no_refuses_without_a_question(desk):
    desk.rule("NO")
    assert desk.run(TOOL, *SET_MONO) == (1, NOTICE + NOT_AUTHORIZED + CANNOT_WRITE)
    assert os.listdir(desk.prefs.parent) == []


def test_rule_that_says_yes_needs_no_password(desk):
    desk.rule("YES")
    assert desk.run(TOOL, *SET_MONO) == (0, NOTICE + MONO + HINT + MONO)
    assert desk.prefs.read_bytes() == stored(cfa="mono")
    assert (desk.prefs.stat().st_uid, desk.prefs.stat().st_mode) == (0, 0o100644)


@pytest.mark.skipif(COUNTS_LINES, reason="the line counts are files too")
def test_failing_second_run_leaves_no_file_that_the_user_may_write(desk):
    desk.rule("YES")
    desk.prefs.write_bytes(stored())
    # The second run gets her umask and limit: the kernel ends it when it writes.
    cut_short = 'umask 0; ulimit -f 0; exec "$@"'
    assert desk.run(TOOL, *SET_MONO, shell=cut_short) == (1, NOTICE + CANNOT_WRITE)
    left = desk.prefs.with_suffix(".conf.tmp")
    assert (left.read_bytes(), left.stat().st_uid, left.stat().st_mode) == (b"", 0, 0o100644)
    assert desk.prefs.read_bytes() == stored()

    # If she could open this file, she could still write to it after the next save.
    tmp = PATH.decode() + ".tmp"
    keep_it_open = f'{{ "$@"; echo labelformat=on >&3; }} 3>>{tmp} || exec "$@"'
    denied = f"sh: 1: cannot create {tmp}: Permission denied\n".encode()
    assert desk.run(TOOL, *SET_MONO, shell=keep_it_open) == (0, denied + NOTICE + MONO + HINT + MONO)
    assert desk.prefs.read_bytes() == stored(cfa="mono")
    assert os.listdir(desk.prefs.parent) == [desk.prefs.name]


# How far the action reaches


@pytest.mark.parametrize(
    "words",
    [
        [],
        ["--prefs"],
        ["--clear-thumb-cache"],
        ["--clear-thumb-cache", "--all"],
        ["--all", "--set", "cfa=mono"],
        ["--set=cfa=mono"],
        ["--SET", "cfa=mono"],
    ],
    ids=" ".join,
)
def test_other_words_get_the_general_question_despite_a_rule(desk, words):
    desk.rule("YES")
    status, shown = desk.run("pkexec", TOOL, *words, shell=RUN_THE_COMMAND)
    assert status == INTERRUPTED
    assert shown in general_questions(TOOL, *words)


def test_other_copy_of_the_tool_gets_the_general_question_despite_a_rule(desk):
    desk.rule("YES")
    shutil.copy2(desk.machine.bin / "nebulark-ctl", desk.machine.ann)
    copy = "/home/ann/nebulark-ctl"
    status, shown = desk.run(copy, *SET_MONO)
    assert status == INTERRUPTED
    assert shown in [NOTICE + question for question in general_questions(copy, *SET_MONO)]
    assert os.listdir(desk.prefs.parent) == []


# How long an authorization lasts


HERE_AND_NOW = {"seat": "seat0", "state": "active"}
TWICE = START_AGENT + '"$@" && "$@"; exit'


def test_in_an_active_local_session_a_shell_is_asked_once(desk):
    once = question() + COMPLETE + MONO + HINT
    run = desk.run("pkexec", TOOL, *SET_MONO, keys=[RIGHT], shell=TWICE, session=HERE_AND_NOW)
    assert run == (0, once + MONO + HINT)


ELSEWHERE = {
    "in no session": {},
    "in a session that the machine has been switched away from": {"seat": "seat0", "state": "online"},
    "in a session from another machine": {"seat": "", "state": "active"},
}


@pytest.mark.parametrize("session", ELSEWHERE.values(), ids=ELSEWHERE.keys())
def test_elsewhere_a_shell_is_asked_each_time(desk, session):
    once = question() + COMPLETE + MONO + HINT
    run = desk.run("pkexec", TOOL, *SET_MONO, keys=[RIGHT, RIGHT], shell=TWICE, session=session)
    assert run == (0, once + once)


def test_each_run_of_the_tool_is_asked_for(desk):
    once = NOTICE + question() + COMPLETE + MONO + HINT + MONO
    run = desk.run(TOOL, *SET_MONO, keys=[RIGHT, RIGHT], session=HERE_AND_NOW, times=2)
    assert run == (0, once + once)
