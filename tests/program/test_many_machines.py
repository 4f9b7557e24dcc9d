"""What nebulark-preferences(5) shows administrators of many machines, run unchanged."""

import os
import re
import shutil
import textwrap
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from machine import ANN, PROJECT, SET_MONO, TOOL
from page import MANUALS, PAGE, marked
from test_polkit import ELSEWHERE, HERE_AND_NOW, INTERRUPTED, question
from texts import HINT, NOTICE, listing, stored

BOB = 1001


@pytest.fixture(scope="module")
def manual(built_page) -> ElementTree.Element:
    return ElementTree.parse(f"{MANUALS[1]}.html").getroot()


@pytest.fixture(scope="module")
def shown(manual) -> list[str]:
    """All that the manual page offers to copy."""
    return ["".join(pre.itertext()) for pre in manual.iter("pre")]


def the_one(shown: list[str], word: str) -> str:
    (text,) = [text for text in shown if word in text]
    return text


def test_guide_shows_the_same_tasks_and_commands(shown):
    guide = ElementTree.parse(PAGE).getroot().iterfind(".//*[@id='many-machines']//pre")
    ways = [*KEPT, "getent"]
    assert sorted("".join(pre.itertext()) for pre in guide) == sorted(the_one(shown, way).rstrip() for way in ways)


# Ansible


# The file after each way, if it had brightness=brighter before.
KEPT = {
    "ansible.builtin.copy": stored(brightness="darker", labelformat="on", labelcorner="topleft"),
    "ansible.builtin.command": stored(brightness="darker", cfa="mono"),
}


@pytest.fixture(params=KEPT)
def way(request) -> str:
    return request.param


@pytest.fixture
def play(machine, shown, way):
    """Runs the tasks of this way and returns how many changed something, by Ansible's last line."""
    playbook = machine.home / "playbook.yml"
    head = "- hosts: localhost\n  gather_facts: false\n  tasks:\n"

    def run(*options: str, status: int = 0, added: str = "") -> int:
        playbook.write_text(head + textwrap.indent(f"{the_one(shown, way)}\n{added}", "    "))
        command = ["ansible-playbook", "--connection=local", "--inventory=localhost,", *options, "/home/playbook.yml"]
        env = {"PATH": "/usr/bin:/bin", "HOME": "/home", "LC_ALL": "C.UTF-8", "ANSIBLE_NOCOLOR": "1"}
        done = machine.run(*command, tool=[], env=env)
        assert done.status == status, done
        return int(re.search(rb"^localhost .* changed=(\d+) ", done.out, re.MULTILINE)[1])

    return run


def test_ansible_changes_a_different_file_once(machine, play, way):
    machine.prefs.write_bytes(stored(brightness="brighter"))
    assert play() == 1
    assert machine.prefs.read_bytes() == KEPT[way]
    written = machine.prefs.stat()
    assert (written.st_uid, written.st_gid, written.st_mode) == (0, 0, 0o100644)
    assert play() == 0
    assert machine.prefs.stat() == written
    assert os.listdir(machine.prefs.parent) == [machine.prefs.name]


def test_ansible_announces_a_change_in_check_mode_and_does_not_make_it(machine, play, way):
    machine.prefs.write_bytes(stored(brightness="brighter"))
    assert play("--check") == 1
    assert machine.prefs.read_bytes() == stored(brightness="brighter")
    machine.prefs.write_bytes(KEPT[way])
    assert play("--check") == 0


def test_ansible_makes_the_first_file(machine, play, way):
    assert play("--check") == 1
    assert os.listdir(machine.prefs.parent) == []
    assert play() == 1
    assert machine.prefs.read_bytes() == KEPT[way]


FAILED = 2  # Ansible's status if a task fails


def test_ansible_fails_without_the_directory(machine, play, way):
    machine.prefs.parent.rmdir()
    assert play(status=FAILED) == 0
    assert not machine.prefs.parent.exists()


@pytest.mark.parametrize("way", ["ansible.builtin.command"], indirect=True)
@pytest.mark.parametrize("options", [[], ["--check"]], ids=["run", "check mode"])
def test_ansible_fails_without_the_tool(machine, play, options):
    (machine.bin / "nebulark-ctl").unlink()
    assert play(*options, status=FAILED) == 0


@pytest.mark.parametrize("way", ["ansible.builtin.copy"], indirect=True)
def test_ansible_with_force_false_makes_the_first_file_and_then_keeps_it(machine, play, way):
    assert play(added="    force: false\n") == 1
    assert machine.prefs.read_bytes() == KEPT[way]
    machine.prefs.write_bytes(stored(brightness="brighter"))
    assert play(added="    force: false\n") == 0
    assert machine.prefs.read_bytes() == stored(brightness="brighter")


# Other users' caches


USERS = {"root": 0, "daemon": 2, "ann": ANN, "bob": BOB, "nobody": 65534}
ORDINARY = ["ann", "bob"]
SAMPLE = PROJECT / "tests/samples/thumbnails/normal/bb2774bdd1a0e15a4e664cbee7f60a2d.png"


@pytest.fixture
def caches(machine) -> dict[str, Path]:
    """One thumbnail of an astronomical file in the cache of each user."""
    passwd = machine.home / "passwd"
    passwd.write_text("".join(f"{name}:x:{uid}:{uid}::/home/{name}:/bin/sh\n" for name, uid in USERS.items()))
    thumbnails = {}
    for name, uid in USERS.items():
        home = machine.home / name
        thumbnails[name] = home / ".cache/thumbnails/normal" / SAMPLE.name
        thumbnails[name].parent.mkdir(parents=True)
        shutil.copy(SAMPLE, thumbnails[name])
        for path in [home, *home.rglob("*")]:
            os.chown(path, uid, uid)
    return thumbnails


@pytest.fixture
def as_root(machine):
    """Runs a shell script on a machine with these users, as root, with root's cache in the environment."""
    users = 'mount -t tmpfs tmpfs /run; mount --bind /home/passwd /etc/passwd; exec "$@"'

    def run(text: str) -> str:
        env = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/home/root", "XDG_CACHE_HOME": "/home/root/.cache"}
        done = machine.run(text, tool=["sh", "-euc"], env=env, script=users)
        assert (done.status, done.err) == (0, b""), done
        return done.out.decode()

    return run


def left(caches) -> list[str]:
    return [name for name, thumbnail in caches.items() if thumbnail.exists()]


CLEARED = (
    "Removed 1 Nebulark thumbnail. Left 0 belonging to other applications.\n"
    "Close and reopen your file manager to see them redrawn.\n"
)


def test_cache_of_one_user_is_cleared(caches, as_root, shown):
    assert as_root(the_one(shown, "runuser -l ann")) == CLEARED
    assert left(caches) == [name for name in USERS if name != "ann"]


def test_caches_of_all_ordinary_users_are_cleared(caches, as_root, shown):
    assert as_root(the_one(shown, "getent")) == "".join(f"{name}:\n{CLEARED}" for name in ORDINARY)
    assert left(caches) == [name for name in USERS if name not in ORDINARY]


def test_runuser_u_would_clear_roots_cache(caches, as_root):
    as_root("chmod -R a+rwX /home/root; runuser -u ann -- nebulark-ctl --clear-thumb-cache")
    assert left(caches) == [name for name in USERS if name != "root"]


# A rule of polkit


CHANGED = NOTICE + listing(cfa="mono") + HINT + listing(cfa="mono")


@pytest.fixture
def rule(manual, shown, desk) -> Path:
    """The manual's rule, where the manual puts it, with ann in the rule's group."""
    (name,) = [Path(path).name for path in marked(manual, "Pa") if path.startswith("/etc/polkit-1/rules.d/")]
    (desk.rules / name).write_text(the_one(shown, "polkit.addRule"))
    with open(desk.etc / "group", "a") as group:
        group.write("observers:x:1002:ann\n")
    return desk.rules / name


@pytest.mark.parametrize("session", [*ELSEWHERE.values(), HERE_AND_NOW], ids=[*ELSEWHERE, "at the machine"])
def test_rule_lets_its_group_change_the_preferences(rule, desk, session):
    assert desk.run(TOOL, *SET_MONO, session=session) == (0, CHANGED)


def narrow(manual, rule: Path):
    (conditions,) = [text for text in marked(manual, "Li") if text.startswith("subject.")]
    rule.write_text(rule.read_text().replace("subject.isInGroup", f"{conditions} && subject.isInGroup"))


@pytest.mark.parametrize("session", ELSEWHERE.values(), ids=ELSEWHERE.keys())
def test_rule_with_further_conditions_leaves_others_to_the_password(manual, rule, desk, session):
    narrow(manual, rule)
    assert desk.run(TOOL, *SET_MONO, session=session) == (INTERRUPTED, NOTICE + question())


def test_rule_with_further_conditions_holds_at_the_machine(manual, rule, desk):
    narrow(manual, rule)
    assert desk.run(TOOL, *SET_MONO, session=HERE_AND_NOW) == (0, CHANGED)
