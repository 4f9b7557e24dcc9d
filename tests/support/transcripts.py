"""The terminal sessions in the documents: each command after "$ " for ann or "# " for root, then its answer."""

import os
import re
import shutil
from collections.abc import Iterable

from machine import ANN, PROJECT, Machine

SPEAKERS = {"$": "ann", "#": "root"}
DIALOGUE = re.compile(r"^([$#]) ([a-z].*)\n((?:(?![$#] [a-z]).*\n)*)", re.MULTILINE)


def replay(machine: Machine, transcripts: Iterable[str]):
    """Runs the commands in turn, on a machine with the sample cache, and compares the answers."""
    shutil.copytree(PROJECT / "tests/samples/thumbnails", machine.ann / ".cache/thumbnails")
    for path in machine.ann.rglob("*"):
        os.chown(path, ANN, ANN)

    told = [entry for transcript in transcripts for entry in DIALOGUE.findall(transcript.strip("\n") + "\n")]
    assert len(told) > 4
    for prompt, command, answer in told:
        run = machine.run(
            command,
            user=SPEAKERS[prompt],
            tool=["sh", "-c"],
            env={"HOME": "/home/ann", "PATH": "/usr/bin:/bin"},
            script='cd /home/ann && exec "$@" 2>&1',
        )
        assert run.out.decode() == answer, command
