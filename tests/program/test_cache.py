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


def test_second_clearing_finds_what_the_first_one_left(filled):
    assert filled.clear() == (report(1, 1), {"large/m31.png"})
    assert filled.clear() == (report(0, 1), set())
    assert filled.clear("--all") == (report_all(1), {"large/harbour.png"})
    assert filled.clear("--all") == (report_all(0), set())


@pytest.mark.parametrize(
    "env, place",
    [
        ({"HOME": "home/ann"}, "home/ann/.cache"),
        ({"HOME": "/home/root", "USER": "ann", "SUDO_UID": "1000", "PKEXEC_UID": "1000"}, "/home/root/.cache"),
        ({"XDG_CACHE_HOME": "/home/ann/../x", "HOME": "/home/ann"}, "/home/ann/../x"),
        ({"XDG_CACHE_HOME": "home/x", "HOME": "/home/ann"}, "/home/ann/.cache"),
        ({"XDG_CACHE_HOME": b"/home/%s\xff\n"}, "/home/%s\udcff\n"),
    ],
    ids=repr,
)
def test_environment_says_where_the_cache_is(cache, env, place):
    cleared = os.path.normpath(os.path.join("/", place)).removeprefix("/home/")
    for each in {"ann/.cache", "root/.cache", "x", cleared}:
        cache.put(FITS, f"{cache.machine.home}/{each}/thumbnails/normal/m31.png")
    gone = {f"{cleared}/thumbnails/normal/m31.png".removeprefix("ann/.cache/thumbnails/")}
    assert cache.clear(user="root", env=env) == (report(1), gone)
    assert cache.clear(user="root", env=env) == (report(0, 0, f"{place}/thumbnails"), set())
    assert cache.clear("--all", user="root", env=env) == (report_all(0, f"{place}/thumbnails"), set())


@pytest.mark.parametrize("words", [[], ["--all"]], ids=["default", "all"])
def test_cache_has_no_place_without_an_absolute_directory_or_a_home(filled, words):
    error = b"nebulark-ctl: cannot locate the thumbnail cache\n"
    assert filled.clear(*words, env={"XDG_CACHE_HOME": "home/ann/.cache"}) == (Outcome(1, b"", error), set())


@clearing(report(10, 10), report_all(20))
def test_clears_all_five_size_directories_and_all_below(cache, words, result):
    fits = {f"{size}/{name}" for size in SIZES for name in ("m31.png", "app/.2.0/m31.png")}
    photos = {f"{size}/{name}" for size in SIZES for name in ("harbour.png", "app/harbour.png")}
    cache.put(FITS, *fits)
    cache.put(PHOTO, *photos)
    assert cache.clear(*words) == (result, fits | photos if words else fits)


@ONLY_FILES
def test_nothing_outside_the_size_directories_changes(filled, words, result):
    others = ".normal Normal small x large2 xxx-large failed ../normal ../../normal".split() + ["normal "]
    filled.put(FITS, "m31.png", "normal.png", *(f"{name}/m31.png" for name in others))
    assert filled.clear(*words) == result


@clearing(report(60), report_all(60))
def test_files_are_deleted_in_the_order_of_the_listing(cache, words, result):
    names = [f"{number * 37 % 101:03}" for number in range(60)]
    cache.put(FITS, *(f"normal/{name}{'/m31.png' * (int(name) % 3 == 0)}" for name in names))
    listed = os.listdir(cache.path / "normal")
    assert listed not in (sorted(listed), sorted(listed, reverse=True))
    with strace(cache.machine) as inside:
        outcome, calls = inside.run([*CLEAR, *words], "ann", env=HOME)
    deleted = [each.call.subject.removesuffix("/m31.png") for each in calls if each.call.name == "unlink"]
    assert (outcome, deleted) == (result, [f"{CACHE}/normal/{name}" for name in listed])


@clearing((report(1, 1), "harbour.png\n"), (report_all(2), ""))
def test_file_system_mounted_in_the_cache_is_cleared_too(machine, cache, words, result):
    cache.directory("normal/app")
    cache.put(FITS, "../../m31.png")
    cache.put(PHOTO, "../../harbour.png")
    mount = f"mount -t tmpfs tmpfs {CACHE}/normal/app; cp /home/ann/*.png {CACHE}/normal/app"
    run = machine.run(*CLEAR, *words, env=HOME, script=around(mount, f"ls {CACHE}/normal/app >/usr/share/survivors"))
    assert (run, (machine.share / "survivors").read_text()) == result


@clearing(report(1, 1), report_all(2))
@pytest.mark.parametrize("link", ["thumbnails/large", "thumbnails", "."])
def test_cache_and_its_size_directories_may_be_links(filled, link, words, result):
    filled.put(FITS, "../../elsewhere/m31.png")
    (filled.path / "large/link").symlink_to("/home/ann/elsewhere")
    place = filled.path.parent / link
    place.rename(filled.machine.ann / "moved")
    place.symlink_to("/home/ann/moved")
    real = {".": "moved/thumbnails/large", "thumbnails": "moved/large", "thumbnails/large": "moved"}[link]
    gone = {f"ann/{real}/m31.png"} | {f"ann/{real}/harbour.png" for _ in words}
    assert filled.clear(*words) == (result, gone)


def test_size_directories_linked_to_one_another_are_each_walked(filled):
    (filled.path / "normal").symlink_to("large")
    (filled.path / "fail").symlink_to("large")
    assert filled.clear() == (report(1, 3), {"large/m31.png"})
    assert filled.clear("--all") == (report_all(1), {"large/harbour.png"})


@ONLY_FILES
@pytest.mark.parametrize(
    "make",
    [os.mkfifo, *(lambda path, to=to: path.symlink_to(to) for to in ("no-such-directory", "normal", "large/m31.png"))],
    ids=["pipe", "link to nothing", "link to itself", "link to a file"],
)
def test_size_directory_that_is_no_directory_is_skipped(filled, make, words, result):
    make(filled.path / "normal")
    assert filled.clear(*words) == result


@ONLY_FILES
@pytest.mark.parametrize("mode", [0o400, 0o100], ids=oct)
def test_directory_that_cannot_be_listed_and_entered_is_skipped(filled, mode, words, result):
    for directory in ("normal", "fail/app"):
        filled.put(FITS, f"{directory}/m31.png", f"{directory}/below/m31.png")
        filled.directory(directory, mode)
    assert filled.clear(*words) == result


@ONLY_FILES
@pytest.mark.parametrize("owner, mode", [(0, 0o1777), (1000, 0o555)], ids=["root's", "read-only"])
def test_file_that_cannot_be_deleted_is_not_counted(filled, owner, mode, words, result):
    filled.put(FITS, "normal/m31.png")
    filled.directory("normal", mode)
    for path in (filled.at("normal"), filled.at("normal/m31.png")):
        os.chown(path, owner, owner)
    filled.machine.pkexec("#!/bin/sh\ntouch /home/ann/asked-for-rights\n")
    assert filled.clear(*words) == result


@ONLY_FILES
def test_links_are_neither_followed_nor_deleted_nor_counted(filled, words, result):
    filled.put(FITS, "../../Pictures/m31.png", "../../Pictures/more/m31.png")
    targets = ["../large/m31.png", "/home/ann/Pictures/m31.png", "/home/ann/Pictures", "..", "link0", "nothing"]
    for directory in ("normal", "fail/app"):
        filled.directory(directory)
        for number, target in enumerate(targets):
            (filled.path / directory / f"link{number}").symlink_to(target)
    assert filled.clear(*words) == result


@clearing((report(1, 1), ["harbour.png"]), (report_all(2), []))
def test_hard_link_outside_the_cache_stays(filled, words, result):
    contents = {"m31.png": FITS, "harbour.png": PHOTO}
    for name in contents:
        (filled.machine.home / name).hardlink_to(filled.path / "large" / name)
    run = filled.machine.run(*CLEAR, *words, user="ann", env=HOME)
    assert (run, os.listdir(filled.path / "large")) == result
    assert {name: (filled.machine.home / name).read_bytes() for name in contents} == contents


@ONLY_FILES
@pytest.mark.parametrize("kind", [stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFCHR], ids=["pipe", "socket", "device"])
def test_pipes_sockets_and_devices_are_neither_deleted_nor_counted(filled, kind, words, result):
    for directory in ("normal", "large/app"):
        try:
            os.mknod(filled.directory(directory) / "m31.png", kind | 0o666, os.makedev(1, 3))
        except PermissionError as reason:
            pytest.skip(f"no devices can be made here: {reason}")
    assert filled.clear(*words) == result


@clearing((report(1, 4), {FILES[0]}), (report_all(2), set(FILES)))
def test_status_and_not_the_directory_entry_decides_the_kind_of_a_file(filled, words, result):
    # A file mounted over an entry has another kind than the directory says, and nobody can delete it.
    filled.put(PHOTO, "../../harbour.png", "normal/file")
    filled.put(FITS, "normal/hidden")
    for path, kind in {"normal/pipe": stat.S_IFIFO, "normal/socket": stat.S_IFSOCK, "../../pipe": stat.S_IFIFO}.items():
        os.mknod(filled.at(path), kind | 0o666)
    mounts = f"""
        cd {CACHE}/normal
        mount -t tmpfs tmpfs /mnt
        cp /home/ann/harbour.png /mnt
        mount --bind /home/ann/pipe hidden
        for each in file pipe socket; do mount --bind /mnt/harbour.png $each; done
        exec "$@"
    """
    assert filled.clear(*words, script=mounts) == result
