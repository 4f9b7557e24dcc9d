"""Whom polkit asks, and what, when an ordinary user changes the preferences, and what comes of each answer.

Nothing stands in for polkit here: dbus-daemon, polkitd, pkexec and an agent that asks on the terminal are the real
ones, with users, passwords and rules of the machine's own.
"""

import io
import os
import pwd
import re
import shutil
import subprocess
from collections.abc import Mapping, Sequence
from pathlib import Path

import pexpect
import pytest

from conftest import ANN, BECOME, HERE, TOOL, Machine
from texts import CANNOT_WRITE, HINT, NOTICE, listing, stored

SOURCE = HERE.parents[1] / "data/polkit/nebulark.ctl.policy.in"
ACTION = b"nebulark.ctl.set-preferences"
MESSAGE = b"Authentication is required to change how Nebulark draws thumbnails, for every user of this machine."
GENERAL_ACTION = b"org.freedesktop.policykit.exec"
SET_MONO = ["--set", "cfa=mono"]

# What Debian installs below /usr/share for the system bus and polkit.
SERVICES = [
    "dbus-1/system.conf",
    "dbus-1/system.d/org.freedesktop.PolicyKit1.conf",
    "dbus-1/system-services/org.freedesktop.PolicyKit1.service",
    "polkit-1/actions/org.freedesktop.policykit.policy",
    "polkit-1/rules.d/50-default.rules",
]

# The administrator, by polkit's default rule, is whoever is in the group sudo.
ADMIN = 1001
PASSWORD = "sesame"
PASSWORD_HASH = "$6$nebulark$pSArLNX2lMV0U3/tv.cnXf6hTos1rcrMz..UtR5k8Z5N2bbkrBA0emrfP0kAAKc2eaOqHNnsjGw7TJr7cdFu31"
ETC = {
    "passwd": f"root:x:0:0::/root:/bin/sh\nann:x:{ANN}:{ANN}::/home/ann:/bin/sh\nadmin:x:{ADMIN}:{ADMIN}::/:/bin/sh\n",
    "shadow": f"root:*:1::::::\nann:*:1::::::\nadmin:{PASSWORD_HASH}:1::::::\n",
    "group": f"root:x:0:\nsudo:x:27:admin\nann:x:{ANN}:\nadmin:x:{ADMIN}:\n",
    "pam.d/common-auth": "auth required pam_unix.so nodelay\n",
    "pam.d/common-account": "account required pam_unix.so\n",
    "pam.d/common-password": "password required pam_unix.so\n",
    "pam.d/common-session-noninteractive": "session required pam_unix.so\n",
}

# Run by sh, as root, as process 1 of a namespace of processes, so that whatever it starts ends with it. A place that is
# a mount point may be shared with the outside, even in a mount namespace, until it is made private. The bus starts
# polkitd by itself when somebody first calls it.
BOOT = """
set -eu
etc=$1 session=$2 times=$3
shift 3
for place in /etc /proc /run /sys; do
    if mountpoint -q $place; then mount --make-private $place; fi
done
mount --bind "$etc" /etc
mount -t proc proc /proc
mount -t tmpfs tmpfs /run
mkdir /run/dbus
dbus-daemon --system
eval "$session"
status=0
for time in $(seq $times); do "$@" || status=$?; done
exit $status
"""

# A login session exists when logind says so, which needs an init system. What polkitd reads of one, in logind's files
# and in the control group of the process, is therefore written down in its place: session c1 is ann's.
SESSION = """
mount -t tmpfs tmpfs /sys
mkdir -p /sys/fs/cgroup /run/systemd/seats /run/systemd/sessions /run/systemd/users /run/systemd/machines
mount -t cgroup2 cgroup2 /sys/fs/cgroup
echo 0::/user.slice/user-{user}.slice/session-c1.scope >/run/cgroup
echo UID={user} >/run/systemd/sessions/c1
echo SEAT={seat} >>/run/systemd/sessions/c1
echo STATE={state} >/run/systemd/users/{user}
"""
IN_SESSION = ["sh", "-c", 'mount --bind /run/cgroup /proc/$$/cgroup; exec "$@"', "sh"]

# Where there is no desktop, an agent has to be started for the one process that starts pkexec: here for this sh, or for
# the tool that takes its place. It closes the descriptor when polkit knows of it, for which sh waits, and lives on in
# the background. The exit keeps sh from making way for its last command.
START_AGENT = ': "$(pkttyagent --process $$ --notify-fd 3 3>&1 >/dev/tty 2>&1 &)"\n'
BECOME_THE_COMMAND = START_AGENT + 'exec "$@"'
RUN_THE_COMMAND = START_AGENT + '"$@"; exit'

INTERRUPT = "\x03"


class Desk:
    """A machine with polkit and the tool's policy, and ann at a terminal."""

    def __init__(self, machine: Machine):
        self.machine = machine
        self.prefs = machine.prefs
        self.etc = machine.root / "etc"
        self.rules = self.etc / "polkit-1/rules.d"
        self.policy = machine.share / "polkit-1/actions" / SOURCE.stem
        shutil.copy2("/usr/bin/pkexec", machine.bin)
        for name in SERVICES:
            write(machine.share / name, Path("/usr/share", name).read_text())
        write(self.policy, SOURCE.read_text().replace("@CMAKE_INSTALL_FULL_BINDIR@", "/usr/bin"))
        for name, text in ETC.items():
            write(self.etc / name, text)
        self.rules.mkdir(parents=True)
        for name in ("messagebus", "polkitd"):  # whom files outside /etc belong to: as on the real machine
            user = pwd.getpwnam(name)
            with open(self.etc / "passwd", "a") as passwd, open(self.etc / "group", "a") as group:
                passwd.write(f"{name}:x:{user.pw_uid}:{user.pw_gid}::/:/usr/sbin/nologin\n")
                group.write(f"{name}:x:{user.pw_gid}:\n")

    def rule(self, result: str):
        """Adds an administrator's rule for what ann asks of the tool's own action."""
        condition = f'action.id == "{ACTION.decode()}" && subject.user == "ann"'
        text = f"polkit.addRule(function(action, subject) {{ if ({condition}) return polkit.Result.{result}; }});\n"
        write(self.rules / "10-nebulark.rules", text)

    def run(
        self,
        *command: str,
        keys: Sequence[str] = (),
        shell: str = BECOME_THE_COMMAND,
        session: Mapping[str, str] = {},
        times: int = 1,
    ) -> tuple[int, bytes]:
        """Runs a command in ann's name and gives its status, and all that the terminal showed but for its colours.

        keys     what she types at each password prompt in turn; at any further one she presses Ctrl-C
        shell    starts the agent, and then the command, which is "$@"
        session  the seat (empty: none) of the session that she is in, and her state as a user; {}: she is in no session
        times    how often all this is done, one after another
        """
        boot = ["unshare", "--pid", "--fork", "--kill-child", "sh", "-c", BOOT, "sh", self.etc]
        login = [SESSION.format(user=ANN, **session), times, *IN_SESSION] if session else ["", times]
        # Tests that are run in the background have inherited that Ctrl-C is ignored; ann has not.
        user = [*BECOME["ann"], "env", "-i", "--default-signal=INT", "PATH=/usr/bin", "sh", "-c", shell, "sh"]
        arguments = map(str, [self.machine.root, *boot, *login, *user, *command])
        path = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
        with pexpect.spawn(str(HERE / "sandbox"), list(arguments), cwd="/", env=path, timeout=60) as terminal:
            terminal.logfile_read = shown = io.BytesIO()
            terminal.delaybeforesend = None
            left = iter(keys)
            while terminal.expect_exact([b"Password: ", pexpect.EOF]) == 0:
                assert terminal.waitnoecho()  # what is typed before that is thrown away
                terminal.send(next(left, INTERRUPT))
            terminal.wait()
        return terminal.exitstatus, re.sub(rb"\x1b\[[0-9;]*m", b"", shown.getvalue()).replace(b"\r\n", b"\n")


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


@pytest.fixture
def desk(machine):
    return Desk(machine)


def question(action=ACTION, message=MESSAGE):
    return b"==== AUTHENTICATING FOR %s ====\n%s\nAuthenticating as: admin\nPassword: " % (action, message)


def general_question(program=TOOL):
    return question(GENERAL_ACTION, b"Authentication is needed to run `%s' as the super user" % program.encode())


RIGHT = PASSWORD + "\n"
COMPLETE = b"\n==== AUTHENTICATION COMPLETE ====\n"
FAILED = b"\npolkit-agent-helper-1: pam_authenticate failed: Authentication failure\n==== AUTHENTICATION FAILED ====\n"
NOT_AUTHORIZED = b"Error executing command as another user: Not authorized\n\nThis incident has been reported.\n"
MONO = listing(cfa="mono")
INTERRUPTED = 128 + 2  # as sh gives it for a command that ended by SIGINT


# The policy


def test_policy_is_valid_by_the_definition_that_polkit_has(desk):
    definition = "/usr/share/polkit-1/policyconfig-1.dtd"
    done = subprocess.run(
        ["xmllint", "--nonet", "--noout", "--dtdvalid", definition, desk.policy], capture_output=True, text=True
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_policy_is_named_after_the_namespace_of_its_action(desk):
    assert desk.policy.name.encode() == ACTION.rpartition(b".")[0] + b".policy"


def test_polkit_takes_the_policy_as_it_is_meant(desk):
    lines = [
        b"nebulark.ctl.set-preferences:",
        b"  description:       Change how Nebulark draws thumbnails, for every user of this machine",
        b"  message:           " + MESSAGE,
        b"  vendor:            Nebulark",
        b"  vendor_url:        ",
        b"  icon:              ",
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
def test_without_it_nothing_is_written(desk, typed, status, said):
    desk.prefs.write_text("labelformat=on\n")
    assert desk.run(TOOL, *SET_MONO, keys=[typed]) == (status, NOTICE + question() + said)
    assert desk.prefs.read_text() == "labelformat=on\n"
    assert os.listdir(desk.prefs.parent) == [desk.prefs.name]


def test_where_nobody_can_be_asked_nothing_is_written(desk):
    without_terminal = 'exec setsid --wait "$@"'
    said = (
        b"Error creating textual authentication agent: Error opening current controlling terminal for the process "
        b"(`/dev/tty'): No such device or address\n"
    )
    assert desk.run(TOOL, *SET_MONO, shell=without_terminal) == (1, NOTICE + said + CANNOT_WRITE)
    assert os.listdir(desk.prefs.parent) == []


# What an administrator's rule says


def test_rule_that_says_no_keeps_the_user_from_being_asked(desk):
    desk.rule("NO")
    assert desk.run(TOOL, *SET_MONO) == (1, NOTICE + NOT_AUTHORIZED + CANNOT_WRITE)
    assert os.listdir(desk.prefs.parent) == []


def test_rule_that_says_yes_saves_the_user_the_password(desk):
    desk.rule("YES")
    assert desk.run(TOOL, *SET_MONO) == (0, NOTICE + MONO + HINT + MONO)
    assert desk.prefs.read_bytes() == stored(cfa="mono")
    assert (desk.prefs.stat().st_uid, desk.prefs.stat().st_mode) == (0, 0o100644)


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
def test_other_words_get_the_general_question_even_where_a_rule_allows_changes(desk, words):
    desk.rule("YES")
    assert desk.run("pkexec", TOOL, *words, shell=RUN_THE_COMMAND) == (INTERRUPTED, general_question())


def test_other_copy_of_the_tool_gets_the_general_question_even_where_a_rule_allows_changes(desk):
    desk.rule("YES")
    shutil.copy2(desk.machine.bin / "nebulark-ctl", desk.machine.ann)
    copy = "/home/ann/nebulark-ctl"
    assert desk.run(copy, *SET_MONO) == (INTERRUPTED, NOTICE + general_question(copy))
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


def test_each_run_of_the_tool_is_asked_for_since_polkit_authorizes_a_process(desk):
    once = NOTICE + question() + COMPLETE + MONO + HINT + MONO
    run = desk.run(TOOL, *SET_MONO, keys=[RIGHT, RIGHT], session=HERE_AND_NOW, times=2)
    assert run == (0, once + once)
