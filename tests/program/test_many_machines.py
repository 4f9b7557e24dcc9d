"""What nebulark-preferences(5) shows administrators of many machines, run unchanged."""

import os
import re
import textwrap
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from cache import FITS, report
from machine import ANN, SET_MONO, TOOL, entries, entry
from page import MANUALS, PAGE, marked
from desk import ELSEWHERE, HERE_AND_NOW, INTERRUPTED
from texts import HINT, NOTICE, listing, question, stored


@pytest.fixture(scope="module")
def manual(built_page) -> ElementTree.Element:
    return ElementTree.parse(f"{MANUALS[1]}.html").getroot()


def shown(manual, word: str) -> str:
    """The one text with this word that the manual page offers to copy."""
    (text,) = [text for text in ("".join(pre.itertext()) for pre in manual.iter("pre")) if word in text]
    return text


def test_guide_shows_the_same_tasks_and_commands(manual):
    guide = ElementTree.parse(PAGE).getroot().iterfind(".//*[@id='many-machines']//pre")
    expected = {shown(manual, way).rstrip() for way in [*KEPT, "getent"]}
    assert {"".join(pre.itertext()) for pre in guide} == expected


# The file after each way, if it had brightness=brighter before.
KEPT = {
    "ansible.builtin.copy": stored(brightness="darker", labelformat="on", labelcorner="topleft"),
    "ansible.builtin.command": stored(brightness="darker", cfa="mono"),
}
FAILED = 2  # Ansible's status if a task fails
each_way = pytest.mark.parametrize("way", KEPT)


@pytest.fixture
def play(machine, manual, way):
    """Runs the tasks of this way and returns how many changed something, by Ansible's last line."""
    playbook = machine.home / "playbook.yml"
    head = "- hosts: localhost\n  gather_facts: false\n  tasks:\n"

    def run(*options: str, status: int = 0, added: str = "") -> int:
        playbook.write_text(head + textwrap.indent(f"{shown(manual, way)}\n{added}", "    "))
        command = ["ansible-playbook", "--connection=local", "--inventory=localhost,", *options, "/home/playbook.yml"]
        env = {"PATH": "/usr/bin:/bin", "HOME": "/home", "LC_ALL": "C.UTF-8", "ANSIBLE_NOCOLOR": "1"}
        done = machine.run(*command, tool=[], env=env)
        assert done.status == status, done
        return int(re.search(rb"^localhost .* changed=(\d+) ", done.out, re.MULTILINE)[1])

    return run


@each_way
@pytest.mark.parametrize("before", [stored(brightness="brighter"), None], ids=["another file", "no file"])
def test_ansible_changes_the_file_once_and_not_in_check_mode(machine, play, way, before):
    if before:
        machine.prefs.write_bytes(before)
    first = entries(machine.prefs.parent)
    assert play("--check") == 1
    assert entries(machine.prefs.parent) == first
    assert play() == 1
    written = entry(machine.prefs)
    assert (*written[1:], machine.prefs.group()) == ("-rw-r--r--", 0, KEPT[way], "root")
    assert (play("--check"), play()) == (0, 0)
    assert entries(machine.prefs.parent) == {machine.prefs: written}


@pytest.mark.parametrize("way", ["ansible.builtin.copy"])
def test_ansible_with_force_false_makes_the_first_file_and_then_keeps_it(machine, play, way):
    assert play(added="    force: false\n") == 1
    assert machine.prefs.read_bytes() == KEPT[way]
    machine.prefs.write_bytes(stored(brightness="brighter"))
    assert play(added="    force: false\n") == 0
    assert machine.prefs.read_bytes() == stored(brightness="brighter")


@each_way
def test_ansible_fails_without_the_directory(machine, play, way):
    machine.prefs.parent.rmdir()
    assert play(status=FAILED) == 0
    assert not machine.prefs.parent.exists()


@pytest.mark.parametrize("way", ["ansible.builtin.command"])
def test_ansible_fails_without_the_tool(machine, play):
    (machine.bin / "nebulark-ctl").unlink()
    assert play(status=FAILED) == play("--check", status=FAILED) == 0


USERS = {"root": 0, "daemon": 2, "ann": ANN, "bob": 1001, "nobody": 65534}
CLEARED = report(1).out.decode()


def clear_as_root(machine, text: str) -> tuple[str, list[str]]:
    """Runs a shell script as root, with root's cache in the environment, on a machine where each user has a thumbnail
    of an astronomical file. Returns its output and whose thumbnails it deleted."""
    thumbnails = {name: machine.home / name / ".cache/thumbnails/normal/m31.png" for name in USERS}
    for name, thumbnail in thumbnails.items():
        thumbnail.parent.mkdir(parents=True)
        thumbnail.write_bytes(FITS)
        for path in [machine.home / name, *(machine.home / name).rglob("*")]:
            os.chown(path, USERS[name], USERS[name])
    lines = [f"{name}:x:{uid}:{uid}::/home/{name}:/bin/sh\n" for name, uid in USERS.items()]
    (machine.home / "passwd").write_text("".join(lines))

    env = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/home/root", "XDG_CACHE_HOME": "/home/root/.cache"}
    users = 'mount -t tmpfs tmpfs /run; mount --bind /home/passwd /etc/passwd; exec "$@"'
    done = machine.run(text, tool=["sh", "-euc"], env=env, script=users)
    assert (done.status, done.err) == (0, b""), done
    return done.out.decode(), [name for name, thumbnail in thumbnails.items() if not thumbnail.exists()]


def test_cache_of_one_user_is_cleared(machine, manual):
    assert clear_as_root(machine, shown(manual, "runuser -l ann")) == (CLEARED, ["ann"])


def test_caches_of_all_ordinary_users_are_cleared(machine, manual):
    cleared = f"ann:\n{CLEARED}bob:\n{CLEARED}"
    assert clear_as_root(machine, shown(manual, "getent")) == (cleared, ["ann", "bob"])


def test_runuser_u_would_clear_roots_cache(machine):
    as_ann = "chmod -R a+rwX /home/root; runuser -u ann -- nebulark-ctl --clear-thumb-cache"
    assert clear_as_root(machine, as_ann) == (CLEARED, ["root"])


@pytest.mark.parametrize("session", [*ELSEWHERE.values(), HERE_AND_NOW], ids=[*ELSEWHERE, "at the machine"])
@pytest.mark.parametrize("further", [False, True], ids=["as it is", "with further conditions"])
def test_rule_lets_its_group_change_the_preferences_or_only_at_the_machine(manual, desk, session, further):
    rule = shown(manual, "polkit.addRule")
    (conditions,) = [text for text in marked(manual, "Li") if text.startswith("subject.")]
    if further:
        rule = rule.replace("subject.isInGroup", f"{conditions} && subject.isInGroup")
    (name,) = [Path(path).name for path in marked(manual, "Pa") if path.startswith("/etc/polkit-1/rules.d/")]
    (desk.rules / name).write_text(rule)
    with open(desk.etc / "group", "a") as group:
        group.write("observers:x:1002:ann\n")

    changed = NOTICE + listing(cfa="mono") + HINT + listing(cfa="mono")
    refused = further and session != HERE_AND_NOW
    expected = (INTERRUPTED, NOTICE + question()) if refused else (0, changed)
    assert desk.run(TOOL, *SET_MONO, session=session) == expected
