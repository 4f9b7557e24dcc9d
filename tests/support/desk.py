"""A machine with the real polkit, and an ordinary user at its terminal."""

import io
import pwd
import re
import shutil
from collections.abc import Mapping, Sequence
from pathlib import Path

import pexpect

from machine import ANN, BECOME, HANGS, PATHS, PROJECT, SUPPORT, Machine
from texts import ACTION

SOURCE = PROJECT / "data/polkit/nebulark.ctl.policy.in"

# What Debian installs below /usr/share for the system bus and polkit.
SERVICES = [
    "dbus-1/system.conf",
    "dbus-1/system.d/org.freedesktop.PolicyKit1.conf",
    "dbus-1/system-services/org.freedesktop.PolicyKit1.service",
    "polkit-1/actions/org.freedesktop.policykit.policy",
    "polkit-1/rules.d/50-default.rules",
]

# By polkit's default rule the administrators are the group sudo.
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

# Run by sh as root. It is process 1 of a namespace, so all processes end with it. Mount points may be shared with the
# outside, so they are made private. The bus starts polkitd.
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

# Stands for logind, which needs an init system: writes the files and the control group that polkitd reads. Session c1
# is ann's.
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

# Starts an agent for the one process that starts pkexec: this sh, or the tool that replaces it. sh waits until polkit
# knows the agent, which then closes the descriptor. The exit keeps sh from replacing itself.
START_AGENT = ': "$(pkttyagent --process $$ --notify-fd 3 3>&1 >/dev/tty 2>&1 &)"\n'
BECOME_THE_COMMAND = START_AGENT + 'exec "$@"'
RUN_THE_COMMAND = START_AGENT + '"$@"; exit'

RULE = f"""\
polkit.addRule(function(action, subject) {{
    if (action.id == "{ACTION.decode()}" && subject.user == "ann") return polkit.Result.%s;
}});
"""
INTERRUPT = "\x03"
INTERRUPTED = 128 + 2  # sh's status for a command that SIGINT ended

# Sessions of ann, in which an authorization lasts, or not
HERE_AND_NOW = {"seat": "seat0", "state": "active"}
ELSEWHERE = {
    "no session": {},
    "a session that the machine has been switched away from": {"seat": "seat0", "state": "online"},
    "a session from another machine": {"seat": "", "state": "active"},
}


class Desk:
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
        for name in ("messagebus", "polkitd"):  # they own files outside /etc
            user = pwd.getpwnam(name)
            with open(self.etc / "passwd", "a") as passwd, open(self.etc / "group", "a") as group:
                passwd.write(f"{name}:x:{user.pw_uid}:{user.pw_gid}::/:/usr/sbin/nologin\n")
                group.write(f"{name}:x:{user.pw_gid}:\n")

    def run(
        self,
        *command: str,
        keys: Sequence[str] = (),
        shell=BECOME_THE_COMMAND,
        session: Mapping[str, str] = {},
        times=1,
        rule="",
    ) -> tuple[int, bytes]:
        """Runs a command as ann. Returns its status and what the terminal showed, without colours.

        keys     what she types at each password prompt; at a further one she presses Ctrl-C
        shell    starts the agent and the command, which is "$@"
        session  the seat ("" for none) of her session, and her state as a user; {} for no session
        times    how many times the command runs
        rule     "YES" or "NO", if an administrator's rule says so about her and the tool's action
        """
        if rule:
            write(self.rules / "10-nebulark.rules", RULE % rule)
        boot = ["unshare", "--pid", "--fork", "--kill-child", "sh", "-c", BOOT, "sh", self.etc]
        login = [SESSION.format(user=ANN, **session), times, *IN_SESSION] if session else ["", times]
        # Tests in the background ignore Ctrl-C, and Python a file size limit. Ann ignores neither.
        user = [*BECOME["ann"], "env", "-i", "--default-signal", "PATH=/usr/bin", "sh", "-c", shell, "sh"]
        arguments = map(str, [self.machine.root, *boot, *login, *user, *command])
        with pexpect.spawn(str(SUPPORT / "sandbox"), list(arguments), cwd="/", env=PATHS, timeout=HANGS) as terminal:
            terminal.logfile_read = shown = io.BytesIO()
            terminal.delaybeforesend = None
            left = iter(keys)
            while terminal.expect_exact([b"Password: ", pexpect.EOF]) == 0:
                assert terminal.waitnoecho()  # input before that is thrown away
                terminal.send(next(left, INTERRUPT))
            terminal.wait()
        return terminal.exitstatus, re.sub(rb"\x1b\[[0-9;]*m", b"", shown.getvalue()).replace(b"\r\n", b"\n")


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
