"""The tool in a few lines: what a run says and leaves when one system call fails.

`failed` is that call, None in a normal run.
"""

import os

import png
from cache import CACHE, FITS, PHOTO, report, report_all
from machine import Outcome
from texts import CANNOT_WRITE, COULD_NOT_WRITE, HINT, NOTICE, PATH, listing, shown, stored
from tracing import Call

PREFS = PATH.decode()
PREFS_TMP = PREFS + ".tmp"
DIRECTORY = os.path.dirname(PREFS)
Files = dict[str, tuple[str, object]]  # by path, the mode and what is in it


def loaded(failed: Call | None, stands: dict | None, opening: int = 1, reading: int = 1) -> dict:
    """What is read from the file. Its first read gets everything; a second one finds the end, or an error."""
    unread = failed in (Call("openat", PREFS, opening), Call("read", PREFS, reading))
    return {} if unread or stands is None else stands


def writable(failed: Call | None, user: str, stands: dict | None) -> bool:
    return user == "root" and failed != Call("access", DIRECTORY if stands is None else PREFS, 1)


def printed(failed: Call | None, stream: str, text: bytes, nth: int = 1) -> bytes:
    """A text that cannot be written is lost, and nothing else."""
    return b"" if failed == Call("write", stream, nth) else text


def set_mono(failed: Call | None, files: Files, user: str, old: dict | None, elevates: bool = False) -> Outcome:
    changed = loaded(failed, old) | {"cfa": "mono"}
    if not writable(failed, user, old):
        return elevate(failed, files, user, old, elevates)
    if failed == Call("openat", PREFS_TMP, 1):
        return Outcome(1, b"", COULD_NOT_WRITE)
    # The tool checks neither writing nor closing: the one way to a file that is neither old nor new.
    text = printed(failed, PREFS_TMP, stored(**changed))
    mode = "-rw-------" if failed == Call("chmod", PREFS_TMP, 1) else "-rw-r--r--"  # the umask is 077
    if failed == Call("rename", PREFS_TMP, 1):
        files[PREFS_TMP] = mode, text
        return Outcome(1, b"", COULD_NOT_WRITE)
    files[PREFS] = mode, text
    return Outcome(0, printed(failed, "stdout", listing(**changed) + HINT), b"")


NO_SECOND_RUN = [Call("access", "/usr/bin/pkexec", 1), Call("readlink", "/proc/self/exe", 1), Call("clone", "", 1)]


def elevate(failed: Call | None, files: Files, user: str, old: dict | None, elevates: bool) -> Outcome:
    notice = printed(failed, "stdout", NOTICE)
    second = b""
    if user != "root" and elevates and failed not in NO_SECOND_RUN:
        second = set_mono(None, files, "root", old).out
    if not second or failed == Call("wait4", "", 1):
        return Outcome(1, notice + second, printed(failed, "stderr", CANNOT_WRITE))
    now = loaded(failed, (old or {}) | {"cfa": "mono"}, opening=2, reading=3)
    return Outcome(0, notice + second + printed(failed, "stdout", listing(**now), nth=2), b"")


def show(failed: Call | None, files: Files, user: str, old: dict | None) -> Outcome:
    suffix = b"" if writable(failed, user, old) else b" (needs sudo to change)"
    return Outcome(0, printed(failed, "stdout", shown(suffix, **loaded(failed, old))), b"")


# Longer than the first read of a file. EARLY has the tags before it, LATE after it.
LONG = png.chunk(b"zTXt", bytes(5000))
IMAGE_AT = FITS.index(b"IDAT") - 4
EARLY, LATE = FITS[:IMAGE_AT] + LONG + FITS[IMAGE_AT:], FITS[:8] + LONG + FITS[8:]
READS = {FITS: 1, EARLY: 1, LATE: 2}  # until Nebulark's tags are found
THUMBNAILS = {
    f"{CACHE}/normal/m31.png": FITS,
    f"{CACHE}/normal/app/late.png": LATE,
    f"{CACHE}/large/early.png": EARLY,
    f"{CACHE}/large/harbour.png": PHOTO,
    f"{CACHE}/fail/app/1.0/m31.png": FITS,
    f"{CACHE}/fail/stray": b"no picture",
}


def is_nebularks(failed: Call | None, path: str) -> bool:
    reads = READS.get(THUMBNAILS[path], 0)
    return reads > 0 and failed not in [Call("openat", path, 1), *(Call("pread64", path, n + 1) for n in range(reads))]


def out_of_sight(failed: Call | None, path: str) -> bool:
    """Whether the file has no status, or a directory above it cannot be listed."""
    if failed is None or not path.startswith(failed.subject):
        return False
    return failed.name == "newfstatat" or failed.subject != path and failed.name in ("openat", "getdents64")


def clear(failed: Call | None, files: Files, user: str, all: bool) -> Outcome:
    removed = left = 0
    for path in THUMBNAILS:
        if out_of_sight(failed, path):
            continue
        if not all and not is_nebularks(failed, path):
            left += 1
        elif failed != Call("unlink", path, 1):
            removed += 1
            del files[path]
    told = report_all(removed) if all else report(removed, left)
    return told._replace(out=printed(failed, "stdout", told.out))
