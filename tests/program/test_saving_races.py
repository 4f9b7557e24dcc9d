"""A save that is killed on the way, and others that save or read at the same moment."""

import os
import signal
import subprocess

import pytest
from machine import RUN_TOOL, entries
from texts import COULD_NOT_WRITE, HINT, listing, shown, stored
from tracing import COUNTS_LINES, SANITIZED, Strace, is_the_tools, strace

SET_MONO = ["--set", "cfa=mono"]
RUN = " ".join(RUN_TOOL)
HANGS = 600  # seconds: only a hung run takes so long
AUTO, MONO, COLOR = (stored(cfa=cfa) for cfa in ("auto", "mono", "color"))


@pytest.mark.skipif(COUNTS_LINES, reason="the counts of the lines that ran are written with calls of their own")
def test_killed_at_any_call_a_save_leaves_the_old_file_or_the_new_one(machine):
    text = listing(cfa="mono") + HINT
    with strace(machine) as inside:
        machine.prefs.write_bytes(AUTO)
        outcome, undisturbed = inside.run(SET_MONO)
        assert outcome == (0, text, b"")
        left, said = AUTO, b""
        for call, (name, nth), words in undisturbed[1:]:  # the first one starts the tool
            if SANITIZED and not is_the_tools(call):
                continue
            machine.prefs.write_bytes(AUTO)
            outcome, trace = inside.run(SET_MONO, options=["-e", f"inject={name}:signal=KILL:when={nth}"])
            assert outcome == (-signal.SIGKILL, said, b""), call
            assert trace[-1].call == call
            assert machine.prefs.read_bytes() == left, call
            # Nothing that it left is in the way of the next one.
            assert machine.run("--set", "cfa=color") == (0, listing(cfa="color") + HINT, b""), call
            assert {path: each.content for path, each in entries(machine.prefs.parent).items()} == {
                machine.prefs: COLOR
            }
            if call.name == "rename":
                left = MONO
            if call[:2] == ("write", "stdout"):
                said = text[: len(said) + int(words.rpartition("= ")[2])]
        assert (left, said) == (MONO, text)


def in_a_loop(inside: Strace, script: str, rounds: str) -> subprocess.Popen[bytes]:
    """Runs a shell script over and over, while the condition `rounds` holds for the round n."""
    return inside.spawn("sh", "-c", f"n=0; while n=$((n + 1)); {rounds}; do {script}; done")


def test_readers_beside_a_saver_see_one_whole_file(machine):
    machine.prefs.write_bytes(AUTO)
    save = f"{RUN} --set cfa=mono >/dev/null; {RUN} --set cfa=auto >/dev/null"
    read = set()
    with strace(machine) as inside:
        saver = in_a_loop(inside, save, rounds="[ ! -e /home/enough ]")
        # What 200 runs say is 35 KiB: the pipe holds it until they have ended.
        readers = [in_a_loop(inside, f"{RUN} --prefs", rounds="[ $n -le 200 ]") for _ in range(4)]
        try:
            while len(read) < 2 or any(reader.poll() is None for reader in readers):
                assert saver.poll() is None
                read |= {machine.prefs.read_bytes() for _ in range(200)}
        finally:
            (machine.home / "enough").touch()
        assert (*saver.communicate(timeout=HANGS), saver.returncode) == (b"", b"", 0)
        assert read == {AUTO, MONO}
        for reader in readers:
            said, errors = reader.communicate()
            auto, mono = (shown(cfa=cfa) for cfa in ("auto", "mono"))
            assert said.count(auto) + said.count(mono) == 200
            assert (said.replace(auto, b"").replace(mono, b""), errors, reader.returncode) == (b"", b"", 0)


def test_savers_at_the_same_moment_come_to_an_end_and_the_next_one_is_right(machine):
    # They share the temporary file, and what they leave is not promised. The file is there from the start: were it to
    # appear between the two looks for it, the tool would ask for rights.
    machine.prefs.write_bytes(AUTO)
    with strace(machine) as inside:
        words = ["cfa=mono", "cfa=color", "labelcorner=topleft", "brightness=darker"]
        save = f"{RUN} --set {{}} >/dev/null; echo $?"
        for saver in [in_a_loop(inside, save.format(word), rounds="[ $n -le 150 ]") for word in words]:
            statuses, messages = saver.communicate(timeout=HANGS)
            assert saver.returncode == 0
            assert set(statuses.split()) <= {b"0", b"1"}
            assert messages == COULD_NOT_WRITE * statuses.count(b"1")
    everything = dict(autostretch="off", brightness="brighter", cfa="color", labelformat="on", labelcorner="topright")
    last = machine.run("--set", *(f"{name}={word}" for name, word in everything.items()))
    assert last == (0, listing(**everything) + HINT, b"")
    assert machine.prefs.read_bytes() == stored(**everything)
    assert os.listdir(machine.prefs.parent) == [machine.prefs.name]
