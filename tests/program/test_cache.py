"""--clear-thumb-cache on real directories: where the cache is, which files are deleted, and which are counted."""

import os
import stat

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO, clearing, report, report_all
from machine import Outcome, around
from tracing import strace

SIZES = ["normal", "large", "x-large", "xx-large", "fail"]

# In the cache of most tests: in the second size directory, to show that clearing goes on after the first.
FILES = ["large/m31.png", "large/harbour.png"]
ONLY_FILES = clearing((report(1, 1), {FILES[0]}), (report_all(2), set(FILES)))


@pytest.fixture
def filled(cache):
    cache.put(FITS, FILES[0])
    cache.put(PHOTO, FILES[1])
    return cache


@pytest.mark.parametrize(
    "env, base",
    [
        ({"HOME": "/home/root", "USER": "ann", "SUDO_UID": "1000", "PKEXEC_UID": "1000"}, "/home/root/.cache"),
        ({"HOME": "/home/ann", "XDG_CACHE_HOME": "/home/%s\udcff\n"}, "/home/%s\udcff\n"),
    ],
    ids=repr,
)
def test_environment_says_where_the_cache_is(cache, env, base):
    for each in ("/home/ann/.cache", "/home/root/.cache", base):
        cache.put(FITS, f"{cache.machine.root}{each}/thumbnails/normal/m31.png")
    gone = f"{base}/thumbnails/normal/m31.png".removeprefix("/home/")
    assert cache.clear(user="root", env=env) == (report(1), {gone})
    assert cache.clear(user="root", env=env) == (report(0, 0, f"{base}/thumbnails"), set())
    assert cache.clear("--all", user="root", env=env) == (report_all(0, f"{base}/thumbnails"), set())


def test_cache_has_no_place_without_an_absolute_directory_or_a_home(filled):
    error = b"nebulark-ctl: cannot locate the thumbnail cache\n"
    assert filled.clear("--all", env={"XDG_CACHE_HOME": "home/ann/.cache"}) == (Outcome(1, b"", error), set())


# Each size directory has a file of each name, and in "below" a directory of each name.
NAMES = ["app", ".hidden", "...", "..x", "a b", "new\nline", "\udcff", "%s%n", "-rf", "*", "~", "\\"]


@clearing(report(5 * 2 * len(NAMES), 5), report_all(5 * 2 * len(NAMES) + 5))
def test_clears_all_five_size_directories_and_all_below_whatever_the_names(cache, words, result):
    fits = {f"{size}/{each}" for size in SIZES for name in NAMES for each in (name, f"below/{name}/m31.png")}
    others = {f"{size}/below/stray" for size in SIZES}
    cache.put(FITS, *fits)
    cache.put(b"", *others)
    assert cache.clear(*words) == (result, fits | others if words else fits)


@ONLY_FILES
def test_nothing_outside_the_size_directories_changes(filled, words, result):
    others = ".normal Normal small x large2 xxx-large failed ../normal ../../normal".split() + ["normal "]
    filled.put(FITS, "m31.png", "normal.png", *(f"{name}/m31.png" for name in others))
    for name in FILES:
        (filled.machine.home / os.path.basename(name)).hardlink_to(filled.at(name))
    assert filled.clear(*words) == result


def test_files_are_deleted_in_the_order_of_the_listing(cache):
    names = [f"{number * 37 % 101:03}" for number in range(60)]
    cache.put(FITS, *(f"normal/{name}{'/m31.png' * (int(name) % 3 == 0)}" for name in names))
    listed = os.listdir(cache.path / "normal")
    assert listed not in (sorted(listed), sorted(listed, reverse=True))
    with strace(cache.machine) as inside:
        outcome, calls = inside.run(CLEAR, "ann", env=HOME)
    deleted = [each.call.subject.removesuffix("/m31.png") for each in calls if each.call.name == "unlink"]
    assert (outcome, deleted) == (report(60), [f"{CACHE}/normal/{name}" for name in listed])


@clearing((report(1, 1), {"normal/400"}), (report_all(2), {"normal/400", "normal/200"}))
def test_file_that_cannot_be_read_is_left_and_one_that_cannot_be_written_deleted(cache, words, result):
    for mode in (0o400, 0o200):
        cache.put(FITS, f"normal/{mode:o}")
        cache.at(f"normal/{mode:o}").chmod(mode)
    assert cache.clear(*words) == result


@clearing(report(20), report_all(20))
@pytest.mark.parametrize("mode", [0o400, 0o100], ids=oct)
def test_files_beside_directories_that_cannot_be_listed_or_entered_are_cleared(cache, mode, words, result):
    files = {f"normal/{number}" for number in range(20)}
    for file in files:
        cache.put(FITS, file, f"{file} closed/m31.png")
        cache.directory(f"{file} closed", mode)
    assert cache.clear(*words) == (result, files)


@clearing((report(1, 1), "harbour.png\n"), (report_all(2), ""))
def test_file_system_mounted_in_the_cache_is_cleared_too(machine, cache, words, result):
    cache.directory("normal/app")
    cache.put(FITS, "../../m31.png")
    cache.put(PHOTO, "../../harbour.png")
    mount = f"mount -t tmpfs tmpfs {CACHE}/normal/app; cp /home/ann/*.png {CACHE}/normal/app"
    run = machine.run(*CLEAR, *words, env=HOME, script=around(mount, f"ls {CACHE}/normal/app >/usr/share/survivors"))
    assert (run, (machine.share / "survivors").read_text()) == result


def test_size_directories_linked_to_one_another_are_each_walked(filled):
    (filled.path / "normal").symlink_to("large")
    (filled.path / "fail").symlink_to("large")
    assert filled.clear() == (report(1, 3), {"large/m31.png"})
    assert filled.clear("--all") == (report_all(1), {"large/harbour.png"})


def test_links_above_the_size_directories_are_followed(filled):
    (filled.machine.home / "link").symlink_to("ann/.cache")
    assert filled.clear(env={"XDG_CACHE_HOME": "/home/link"}) == (report(1, 1), {"large/m31.png"})


@ONLY_FILES
def test_links_pipes_and_sockets_are_neither_followed_nor_deleted_nor_counted(filled, words, result):
    filled.put(FITS, "../../Pictures/m31.png", "../../Pictures/more/m31.png")
    targets = ["../large/m31.png", "/home/ann/Pictures/m31.png", "/home/ann/Pictures", "..", "link0", "nothing"]
    for directory in (filled.directory("normal"), filled.directory("fail/app")):
        for number, target in enumerate(targets):
            (directory / f"link{number}").symlink_to(target)
        for kind in (stat.S_IFIFO, stat.S_IFSOCK):
            os.mknod(directory / f"{kind}.png", kind | 0o666)
    assert filled.clear(*words) == result


def test_status_and_not_the_directory_entry_decides_the_kind_of_a_file(filled):
    # What is mounted over an entry has another kind than the directory says, and nobody can delete it. The files under
    # the pipe and the device would count as left by that kind, and the pipe under the file would not.
    filled.put(PHOTO, "../../harbour.png")
    filled.put(FITS, "large/under-pipe", "large/under-device")
    for path in ("large/pipe", "../../pipe"):
        os.mkfifo(filled.at(path))
    mounts = f"""
        cd {CACHE}/large
        mount --bind /home/ann/harbour.png pipe
        mount --bind /home/ann/pipe under-pipe
        mount --bind /dev/null under-device
        exec "$@"
    """
    assert filled.clear(script=mounts) == (report(1, 2), {FILES[0]})
