"""--clear-thumb-cache on real directories, with two kinds of thumbnails: one that is Nebulark's and one that is not."""

import os
import re
import shutil
import stat

import pytest
from cache import CACHE, FITS, PHOTO, report, report_all
from machine import TRACED, Outcome
from tracing import strace

SIZES = ["normal", "large", "x-large", "xx-large", "fail"]


def clearing(by_default, with_all):
    """Runs a test in both modes, with the result of each."""
    return pytest.mark.parametrize("words, result", [([], by_default), (["--all"], with_all)], ids=["default", "all"])


# What a cache holds besides the matter of a test, in the second of the size directories that are walked: one thumbnail
# of each kind. They show that the run went on, and counted nothing else.
FURNITURE = ["large/m31.png", "large/harbour.png"]
UNDISTURBED = clearing((report(1, 1), {FURNITURE[0]}), (report_all(2), set(FURNITURE)))


@pytest.fixture
def furnished(cache):
    cache.put(FITS, FURNITURE[0])
    cache.put(PHOTO, FURNITURE[1])
    return cache


# What is printed


@pytest.mark.parametrize(
    "fits, photos, words, out",
    [
        (0, 0, [], b"Removed 0 Nebulark thumbnails. Left 0 belonging to other applications.\n"),
        (0, 1, [], b"Removed 0 Nebulark thumbnails. Left 1 belonging to other applications.\n"),
        (1, 0, [], b"Removed 1 Nebulark thumbnail. Left 0 belonging to other applications.\n"),
        (1, 1, [], b"Removed 1 Nebulark thumbnail. Left 1 belonging to other applications.\n"),
        (1, 2, [], b"Removed 1 Nebulark thumbnail. Left 2 belonging to other applications.\n"),
        (2, 1, [], b"Removed 2 Nebulark thumbnails. Left 1 belonging to other applications.\n"),
        (0, 0, ["--all"], b"Removed 0 cached thumbnails, for every application.\n"),
        (1, 0, ["--all"], b"Removed 1 cached thumbnail, for every application.\n"),
        (0, 1, ["--all"], b"Removed 1 cached thumbnail, for every application.\n"),
        (1, 1, ["--all"], b"Removed 2 cached thumbnails, for every application.\n"),
    ],
)
def test_counts_and_their_plurals(cache, fits, photos, words, out):
    cache.put(FITS, *(f"normal/{i}.fits.png" for i in range(fits)))
    cache.put(PHOTO, *(f"normal/{i}.jpg.png" for i in range(photos)))
    if fits or (photos and words):
        out += b"Close and reopen your file manager to see them redrawn.\n"
    else:
        out += b"Nothing to remove: there were no cached Nebulark thumbnails in /home/ann/.cache/thumbnails.\n"
    assert cache.clear(*words)[0] == (0, out, b"")


@clearing(report(0), report_all(0))
@pytest.mark.parametrize(
    "directories",
    [SIZES, [f"{size}/below" for size in SIZES], ["normal"], ["."], [".."], []],
    ids=["five empty sizes", "empty directories in them", "one size", "no sizes", "no thumbnails", "no .cache"],
)
def test_nothing_to_clear_is_a_success(cache, directories, words, result):
    for name in directories:
        cache.directory(name)
    assert cache.clear(*words) == (result, set())


def test_a_second_run_finds_only_what_the_first_one_left(furnished):
    assert furnished.clear() == (report(1, 1), {"large/m31.png"})
    assert furnished.clear() == (report(0, 1), set())
    assert furnished.clear("--all") == (report_all(1), {"large/harbour.png"})
    assert furnished.clear("--all") == (report_all(0), set())


def test_files_go_even_if_the_report_cannot_be_written(furnished):
    assert furnished.clear(script='exec "$@" >/dev/full') == (Outcome(0, b"", b""), {"large/m31.png"})


# Where the cache is


# A root directory of the tests' own, which holds /usr, /home, and from /home what else may be the cache; and /proc,
# which a sanitizer needs.
IN_OWN_ROOT = """
mount -t tmpfs tmpfs /mnt
mkdir /mnt/usr /mnt/proc /mnt/home /mnt/.cache /mnt/thumbnails
cp -d /lib* /mnt
mount --rbind /usr /mnt/usr
mount --bind /proc /mnt/proc
mount --bind /home /mnt/home
mount --bind /home/root-cache /mnt/.cache
mount --bind /home/root-thumbnails /mnt/thumbnails
exec chroot /mnt "$@"
"""


@pytest.mark.parametrize(
    "env, place, cleared",
    [
        ({"HOME": "/home/ann"}, "/home/ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"HOME": "/home/ann/"}, "/home/ann//.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"HOME": "/home/x/../ann"}, "/home/x/../ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"HOME": "home/ann"}, "home/ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"HOME": ""}, "/.cache/thumbnails", "root-cache/thumbnails"),
        ({"HOME": "/"}, "//.cache/thumbnails", "root-cache/thumbnails"),
        ({"XDG_CACHE_HOME": "/home/x"}, "/home/x/thumbnails", "x/thumbnails"),
        ({"XDG_CACHE_HOME": "/home/x", "HOME": "/home/ann"}, "/home/x/thumbnails", "x/thumbnails"),
        ({"XDG_CACHE_HOME": "/home/x/", "HOME": "/home/ann"}, "/home/x//thumbnails", "x/thumbnails"),
        ({"XDG_CACHE_HOME": "/home/ann/../x"}, "/home/ann/../x/thumbnails", "x/thumbnails"),
        ({"XDG_CACHE_HOME": "/", "HOME": "/home/ann"}, "//thumbnails", "root-thumbnails"),
        ({"XDG_CACHE_HOME": "", "HOME": "/home/ann"}, "/home/ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"XDG_CACHE_HOME": "home/x", "HOME": "/home/ann"}, "/home/ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"XDG_CACHE_HOME": "./home/x", "HOME": "/home/ann"}, "/home/ann/.cache/thumbnails", "ann/.cache/thumbnails"),
        ({"XDG_CACHE_HOME": "home/x", "HOME": ""}, "/.cache/thumbnails", "root-cache/thumbnails"),
        ({"XDG_CACHE_HOME": "/home/%s%n"}, "/home/%s%n/thumbnails", "%s%n/thumbnails"),
        ({"XDG_CACHE_HOME": b"/home/\xff\n"}, "/home/\udcff\n/thumbnails", "\udcff\n/thumbnails"),
    ],
    ids=repr,
)
def test_environment_says_where_the_cache_is(cache, env, place, cleared):
    caches = {"ann/.cache/thumbnails", "x/thumbnails", "root-cache/thumbnails", "root-thumbnails", cleared}
    for each in caches:
        cache.put(FITS, f"{cache.machine.home}/{each}/normal/m31.png")
    gone = {f"{cleared}/normal/m31.png".removeprefix("ann/.cache/thumbnails/")}
    assert cache.clear(env=env, script=IN_OWN_ROOT) == (report(1), gone)
    assert cache.clear(env=env, script=IN_OWN_ROOT) == (report(0, 0, place), set())
    assert cache.clear("--all", env=env, script=IN_OWN_ROOT) == (report_all(0, place), set())


@pytest.mark.parametrize("words", [[], ["--all"]], ids=["default", "all"])
@pytest.mark.parametrize("env", [{}, {"XDG_CACHE_HOME": ""}, {"XDG_CACHE_HOME": "home/ann/.cache"}], ids=repr)
def test_without_an_absolute_xdg_cache_home_and_a_home_the_cache_cannot_be_located(furnished, env, words):
    error = b"nebulark-ctl: cannot locate the thumbnail cache\n"
    for user in ("ann", "root"):
        assert furnished.clear(*words, user=user, env=env) == (Outcome(1, b"", error), set())


@clearing(report(1), report_all(1))
def test_root_clears_the_cache_of_its_own_environment_whoever_started_it(furnished, words, result):
    furnished.put(FITS, f"{furnished.machine.home}/root/.cache/thumbnails/normal/m31.png")
    env = {"HOME": "/home/root", "USER": "ann", "LOGNAME": "ann", "SUDO_USER": "ann", "SUDO_UID": "1000"}
    gone = {"root/.cache/thumbnails/normal/m31.png"}
    assert furnished.clear(*words, user="root", env=env | {"PKEXEC_UID": "1000"}) == (result, gone)


# What is reached


@clearing(report(10, 10), report_all(20))
def test_clears_all_five_size_directories_and_what_is_below(cache, words, result):
    fits = {f"{size}/{name}" for size in SIZES for name in ("m31.png", "app/m31.png")}
    photos = {f"{size}/{name}" for size in SIZES for name in ("harbour.png", "app/harbour.png")}
    cache.put(FITS, *fits)
    cache.put(PHOTO, *photos)
    assert cache.clear(*words) == (result, fits | photos if words else fits)


def test_size_directories_are_walked_in_a_fixed_order(cache):
    for size in reversed(SIZES):
        cache.directory(size)
    trace = cache.machine.home / "trace"
    script = 'exec strace -f -e trace=open,openat -o /home/trace "$@"'
    assert cache.machine.run("--clear-thumb-cache", env=TRACED | {"HOME": "/home/ann"}, script=script) == report(0)
    opened = re.findall(r'"(/home/[^"]*)"', trace.read_text())
    assert opened == [f"{CACHE}/{size}" for size in SIZES]


@clearing(report(60), report_all(60))
def test_entries_are_met_in_the_order_of_their_directory(cache, words, result):
    names = [f"{number * 37 % 101:03}" for number in range(60)]
    cache.put(
        FITS, *(f"normal/{name}/m31.png" if number % 3 else f"normal/{name}" for number, name in enumerate(names))
    )
    listed = os.listdir(cache.path / "normal")
    assert listed not in (sorted(listed), sorted(listed, reverse=True))
    with strace(cache.machine) as inside:
        outcome, calls = inside.run(["--clear-thumb-cache", *words], "ann", env={"HOME": "/home/ann"})
    deleted = [each.call.subject.removesuffix("/m31.png") for each in calls if each.call.name == "unlink"]
    assert (outcome, deleted) == (result, [f"{CACHE}/normal/{name}" for name in listed])


@UNDISTURBED
def test_nothing_outside_the_size_directories_is_touched(furnished, words, result):
    beside = ["m31.png", "normal.png", ".normal", "Normal", "normal ", "small", "x", "large2", "xxx-large", "failed"]
    furnished.put(FITS, *(name if name.endswith(".png") else f"{name}/m31.png" for name in beside))
    furnished.put(FITS, "../normal/m31.png", "../thumbnails2/normal/m31.png", "../../.thumbnails/normal/m31.png")
    assert furnished.clear(*words) == result


def test_failure_markers_are_found_at_any_depth(cache):
    fits = {"fail/m31.png", "fail/app/m31.png", "fail/app/2.0/m31.png", "fail/other app/a/b/c/m31.png"}
    cache.put(FITS, *fits)
    cache.put(PHOTO, "fail/app/harbour.png", "fail/app/2.0/harbour.png")
    assert cache.clear() == (report(4, 2), fits)


def test_the_name_of_a_file_does_not_matter(cache):
    every_byte = "".join(os.fsdecode(bytes([byte])) for byte in range(1, 256) if byte != ord("/"))
    odd = [".m31.png", "..png", "...", ".. ", " ", "\n", "\r\n", "-rf", "*", "\\", '"', "%s%n%99999d", "m31", "m31.jpg",
           "m31.png~", "harbour.fits", "é", "\udcff", "x" * 255, every_byte[:127], every_byte[127:]]  # fmt: skip
    cache.put(FITS, *(f"normal/{name}" for name in odd), *(f"large/{name}/m31.png" for name in odd))
    gone = {f"normal/{name}" for name in odd} | {f"large/{name}/m31.png" for name in odd}
    cache.put(PHOTO, *(f"x-large/{name}" for name in odd))
    assert cache.clear() == (report(2 * len(odd), len(odd)), gone)
    assert cache.clear("--all") == (report_all(len(odd)), {f"x-large/{name}" for name in odd})


def test_files_that_are_no_thumbnails_are_left_but_go_with_all(cache):
    strays = {"normal/empty": b"", "normal/notes.txt": b"Thumb::URI\0m31.fits", "large/m31.fits": b"SIMPLE  =" * 320,
              "fail/app/.lock": b"\n", "xx-large/bare.png": FITS[:8], "x-large/cut.png": FITS[:60]}  # fmt: skip
    for name, content in strays.items():
        cache.put(content, name)
    assert cache.clear() == (report(0, len(strays)), set())
    assert cache.clear("--all") == (report_all(len(strays)), set(strays))


# Whatever cannot be reached is skipped, and the run goes on


@UNDISTURBED
@pytest.mark.parametrize("size", SIZES[:1] + SIZES[2:])
def test_a_missing_size_directory_is_skipped(furnished, size, words, result):
    for other in SIZES:
        if other != size:
            furnished.directory(other)
    assert furnished.clear(*words) == result


@UNDISTURBED
def test_a_file_in_place_of_a_size_directory_is_skipped(furnished, words, result):
    furnished.put(FITS, "normal", "fail")
    assert furnished.clear(*words) == result


@UNDISTURBED
@pytest.mark.parametrize("kind", [stat.S_IFIFO, stat.S_IFSOCK], ids=["pipe", "socket"])
def test_a_pipe_or_socket_in_place_of_a_size_directory_is_skipped(furnished, kind, words, result):
    os.mknod(furnished.path / "normal", kind | 0o666)
    assert furnished.clear(*words) == result


@clearing(report(0), report_all(0))
def test_a_file_in_place_of_the_cache_is_an_empty_cache(cache, words, result):
    cache.put(FITS, ".")
    assert cache.clear(*words) == (result, set())


@UNDISTURBED
@pytest.mark.parametrize("directory", ["normal", "normal/app"])
@pytest.mark.parametrize("mode", [0o000, 0o400, 0o600, 0o100], ids=oct)
def test_a_directory_that_cannot_be_listed_and_entered_counts_nothing(furnished, directory, mode, words, result):
    furnished.put(FITS, f"{directory}/m31.png", f"{directory}/below/m31.png")
    furnished.put(PHOTO, f"{directory}/harbour.png")
    furnished.directory(directory, mode)
    assert furnished.clear(*words) == result


@clearing(report(1, 1), report_all(2))
def test_the_mode_of_a_file_that_can_be_read_does_not_matter(cache, words, result):
    cache.put(FITS, "normal/m31.png")
    cache.put(PHOTO, "normal/harbour.png")
    for path in cache.at("normal").iterdir():
        path.chmod(0o7777)
    assert cache.clear(*words)[0] == result


@clearing((report(1, 1), "harbour.png\n"), (report_all(2), ""))
def test_a_file_system_mounted_in_the_cache_is_cleared_too(machine, cache, words, result):
    cache.directory("normal/app")
    cache.put(FITS, "../../m31.png")
    cache.put(PHOTO, "../../harbour.png")
    mounted = f"""
        mount -t tmpfs tmpfs {CACHE}/normal/app
        cp /home/ann/*.png {CACHE}/normal/app
        "$@"
        status=$?
        ls {CACHE}/normal/app >/usr/share/survivors
        exit $status
    """
    run = machine.run("--clear-thumb-cache", *words, env={"HOME": "/home/ann"}, script=mounted)
    assert (run, (machine.share / "survivors").read_text()) == result


@pytest.mark.parametrize("mode", [0o000, 0o200, 0o111], ids=oct)
def test_a_file_that_cannot_be_opened_counts_as_left_and_goes_with_all(cache, mode):
    cache.put(FITS, "normal/m31.png", mode=mode)
    assert cache.clear() == (report(0, 1), set())
    assert cache.clear("--all") == (report_all(1), {"normal/m31.png"})


def test_root_opens_what_its_owner_cannot(cache):
    cache.put(FITS, "normal/m31.png", "large/app/m31.png", mode=0o000)
    cache.directory("large/app", 0o000)
    assert cache.clear(user="root") == (report(2), {"normal/m31.png", "large/app/m31.png"})


@pytest.mark.parametrize("owner", [0, 1000], ids=["root's", "her own"])
def test_a_read_only_file_in_a_directory_of_ones_own_goes(cache, owner):
    cache.put(FITS, "normal/m31.png", mode=0o444)
    os.chown(cache.path / "normal/m31.png", owner, owner)
    assert cache.clear() == (report(1), {"normal/m31.png"})


@clearing((report(1, 2), {FURNITURE[0]}), (report_all(2), set(FURNITURE)))
@pytest.mark.parametrize("owner, mode", [(0, 0o555), (0, 0o1777), (1000, 0o555)])
def test_a_file_that_cannot_be_deleted_counts_nowhere(furnished, owner, mode, words, result):
    furnished.put(FITS, "normal/m31.png", mode=0o644)
    furnished.put(PHOTO, "normal/harbour.png", mode=0o644)
    for path in (furnished.path / "normal", *(furnished.path / "normal").iterdir()):
        os.chown(path, owner, owner)
    furnished.directory("normal", mode)
    furnished.machine.pkexec("#!/bin/sh\ntouch /home/ann/asked-for-rights\n")
    assert furnished.clear(*words) == result


@pytest.mark.parametrize("user", ["ann", "root"])
def test_on_a_read_only_file_system_nothing_is_deleted_or_complained_about(furnished, user):
    read_only = 'mount -o remount,bind,ro /home; exec "$@"'
    assert furnished.clear(user=user, script=read_only) == (report(0, 1), set())
    assert furnished.clear("--all", user=user, script=read_only) == (report_all(0), set())


@clearing(report(60), report_all(60))
def test_names_longer_than_any_path_can_be_are_reached(cache, words, result):
    top = cache.directory("normal")
    here = os.open(top, os.O_RDONLY)
    for _ in range(60):
        os.mkdir("x" * 200, dir_fd=here)
        below = os.open("x" * 200, os.O_RDONLY, dir_fd=here)
        os.close(here)
        here = below
        with open(os.open("m31.png", os.O_CREAT | os.O_WRONLY, dir_fd=here), "wb") as file:
            file.write(FITS)
    os.close(here)
    outcome, gone = cache.clear(*words, user="root")
    assert (outcome, {name.rpartition("/")[2] for name in gone}, len(gone)) == (result, {"m31.png"}, 60)
    shutil.rmtree(top)


# Only regular files and directories count


@UNDISTURBED
def test_links_survive_and_are_neither_followed_nor_counted(furnished, words, result):
    furnished.put(FITS, "../../Pictures/m31.png", "../../Pictures/more/m31.png")
    links = {
        "to-a-thumbnail.png": "../large/m31.png",
        "to-a-file-outside.png": "/home/ann/Pictures/m31.png",
        "to-a-directory-outside": "/home/ann/Pictures",
        "to-all-homes": "/home",
        "to-itself": "to-itself",
        "to-where-it-is": ".",
        "up": "..",
        "to-nothing": "no-such-file.png",
        ".hidden": "../large",
    }
    for directory in ("normal", "fail", "fail/app"):
        furnished.directory(directory)
        for name, target in links.items():
            (furnished.path / directory / name).symlink_to(target)
    assert furnished.clear(*words) == result


@clearing(report(1, 1), report_all(2))
@pytest.mark.parametrize("link", ["thumbnails/large", "thumbnails", "."])
def test_the_cache_and_its_size_directories_may_be_links(furnished, link, words, result):
    furnished.put(FITS, "../../elsewhere/m31.png")
    (furnished.path / "large/link").symlink_to("/home/ann/elsewhere")
    place = furnished.path.parent / link
    place.rename(furnished.machine.ann / "moved")
    place.symlink_to("/home/ann/moved")
    real = {".": "moved/thumbnails/large", "thumbnails": "moved/large", "thumbnails/large": "moved"}[link]
    gone = {f"ann/{real}/m31.png"} | {f"ann/{real}/harbour.png" for _ in words}
    assert furnished.clear(*words) == (result, gone)


@UNDISTURBED
@pytest.mark.parametrize("target", ["no-such-directory", "normal", "/home/ann/harbour.jpg"])
def test_a_size_directory_linked_to_nothing_useful_is_skipped(furnished, target, words, result):
    furnished.put(FITS, "../../harbour.jpg")
    (furnished.path / "normal").symlink_to(target)
    assert furnished.clear(*words) == result


def test_size_directories_linked_to_one_another_are_each_walked(furnished):
    (furnished.path / "normal").symlink_to("large")
    (furnished.path / "fail").symlink_to("large")
    assert furnished.clear() == (report(1, 3), {"large/m31.png"})
    assert furnished.clear("--all") == (report_all(1), {"large/harbour.png"})


@clearing((report(1, 1), ["harbour.png"]), (report_all(2), []))
def test_a_second_name_of_a_thumbnail_outside_the_cache_stays(furnished, words, result):
    contents = {"m31.png": FITS, "harbour.png": PHOTO}
    for name in contents:
        (furnished.machine.home / name).hardlink_to(furnished.path / "large" / name)
    run = furnished.machine.run("--clear-thumb-cache", *words, user="ann", env={"HOME": "/home/ann"})
    assert (run, os.listdir(furnished.path / "large")) == result
    assert {name: (furnished.machine.home / name).read_bytes() for name in contents} == contents


@UNDISTURBED
@pytest.mark.parametrize("user", ["ann", "root"])
@pytest.mark.parametrize("kind", [stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFCHR], ids=["pipe", "socket", "device"])
def test_pipes_sockets_and_devices_survive_and_are_not_counted(furnished, kind, user, words, result):
    for directory in ("normal", "large/app"):
        try:
            os.mknod(furnished.directory(directory) / "m31.png", kind | 0o666, os.makedev(1, 3))
        except PermissionError as reason:
            pytest.skip(f"no devices can be made here: {reason}")
    assert furnished.clear(*words, user=user) == result


@clearing((report(1, 4), {FURNITURE[0]}), (report_all(2), set(FURNITURE)))
def test_the_kind_of_a_file_is_told_by_its_status_and_not_by_its_directory(furnished, words, result):
    # What is mounted over an entry has another kind than the directory says. Nobody can delete it.
    furnished.put(PHOTO, "../../harbour.png", "normal/file")
    furnished.put(FITS, "normal/hidden")
    for path, kind in {"normal/pipe": stat.S_IFIFO, "normal/socket": stat.S_IFSOCK, "../../pipe": stat.S_IFIFO}.items():
        os.mknod(furnished.at(path), kind | 0o666)
    mounts = f"""
        cd {CACHE}/normal
        mount -t tmpfs tmpfs /mnt
        cp /home/ann/harbour.png /mnt
        mount --bind /home/ann/pipe hidden
        for each in file pipe socket; do mount --bind /mnt/harbour.png $each; done
        exec "$@"
    """
    assert furnished.clear(*words, script=mounts) == result
