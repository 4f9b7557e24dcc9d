"""The packages that script/package makes, also in a fresh Debian; and an installation without a package.

mmdebstrap makes the fresh Debian, and each test works on a copy. The private mount namespaces need root.
"""

import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest
from machine import PROJECT, SUPPORT, cannot_run, why_no_sandbox
from texts import HINT, listing, stored

VERSION = re.search(r"VERSION (\S+) LANGUAGES", (PROJECT / "CMakeLists.txt").read_text())[1]
PREFERENCES = "usr/share/nebulark/preferences.conf"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent", "DEBIAN_FRONTEND": "noninteractive"}
SOMEBODY = 1000  # an ordinary user
MACHINES = [("amd64", "x86_64", "Advanced Micro Devices X86-64"), ("arm64", "aarch64", "AArch64")]

INSTALLED = {
    "bin/nebulark-ctl": 0o755,
    "share/bash-completion/completions/nebulark-ctl": 0o644,
    "share/doc/nebulark/index.html": 0o644,
    "share/doc/nebulark/nebulark-ctl.1.html": 0o644,
    "share/doc/nebulark/nebulark-preferences.5.html": 0o644,
    "share/doc/nebulark/style.css": 0o644,
    "share/fish/vendor_completions.d/nebulark-ctl.fish": 0o644,
    "share/man/man1/nebulark-ctl.1": 0o644,
    "share/man/man5/nebulark-preferences.5": 0o644,
    "share/nebulark": 0o40755,
    "share/polkit-1/actions/nebulark.ctl.policy": 0o644,
    "share/zsh/site-functions/_nebulark-ctl": 0o644,
}
ZIPPED = {name + ".gz" if "/man/" in name else name: mode for name, mode in INSTALLED.items()}
IN_DEB = {name.replace("site-functions", "vendor-completions"): mode for name, mode in ZIPPED.items()} | {
    "share/doc-base/nebulark-ctl.nebulark-ctl": 0o644,
    "share/doc/nebulark-ctl/changelog.Debian.gz": 0o644,
    "share/doc/nebulark-ctl/changelog.gz": 0o644,
    "share/doc/nebulark-ctl/copyright": 0o644,
    "share/lintian/overrides/nebulark-ctl": 0o644,
}
IN_RPM = ZIPPED | {
    f"share/doc/nebulark-ctl-{VERSION}/CHANGELOG.md": 0o644,
    f"share/doc/nebulark-ctl-{VERSION}/README.md": 0o644,
    f"share/licenses/nebulark-ctl-{VERSION}/LICENSE": 0o644,
}
LEFT = {"share/nebulark": 0o40755, "share/nebulark/preferences.conf": 0o644}


def run(*command, check=True, env={}, **how) -> subprocess.CompletedProcess:
    done = subprocess.run(command, capture_output=True, env=ENVIRONMENT | env, **how)
    if check and done.returncode != 0:
        pytest.fail(f"{command}: {done.returncode}\n" + os.fsdecode(done.stdout + done.stderr), pytrace=False)
    return done


def text(*command, **how) -> str:
    return run(*command, **how).stdout.decode()


def tree(prefix: Path) -> dict[str, int]:
    """The modes of all files below a directory, and of the directory for the preferences."""
    paths = [path for path in prefix.rglob("*") if path.is_file() and not path.is_symlink()]
    paths += prefix.glob("share/nebulark")
    return {str(path.relative_to(prefix)): path.stat().st_mode & 0o47777 for path in paths}


def privately(directory: Path, script: str, *words, **how) -> subprocess.CompletedProcess:
    """Runs a shell script in new mount, process and network namespaces."""
    unshare = ["unshare", "--pid", "--net", "--fork", "--kill-child"]
    return run(SUPPORT / "private", *unshare, "sh", "-euc", script, "sh", *words, cwd=directory, **how)


@pytest.fixture(scope="session", autouse=True)
def namespaces():
    """Without them, skips everything, or fails under CI."""
    if reason := why_no_sandbox():
        cannot_run("no mount namespaces here: " + reason)


def copy_of_project(directory: Path, **how) -> Path:
    ignored = shutil.ignore_patterns("build", ".git", "__pycache__")
    return Path(shutil.copytree(PROJECT, directory, ignore=ignored, **how))


@pytest.fixture(scope="session")
def sources(tmp_path_factory):
    return copy_of_project(tmp_path_factory.mktemp("a") / "sources")


@pytest.fixture(scope="session")
def packages(sources) -> Path:
    """The directory that they are in."""
    run("script/package", cwd=sources)
    return sources / "build/packages"


@pytest.fixture(scope="session")
def deb(packages) -> Path:
    """This machine's Debian package."""
    return packages / f"nebulark-ctl_{VERSION}-1_{text('dpkg', '--print-architecture').strip()}.deb"


# Debian


class Debian:
    """A copy, in a directory, of a Debian that has only apt and man."""

    def __init__(self, original: Path, directory: Path):
        self.original, self.directory = original, directory
        self.files = directory / "changed"  # what differs from the original
        for name in ("changed", "work", "root"):
            (directory / name).mkdir()

    def run(self, *command, **how) -> subprocess.CompletedProcess:
        script = """
            original=$1; shift
            mount -t overlay -o "lowerdir=$original,upperdir=changed,workdir=work" overlay root
            mount -t proc proc root/proc
            exec chroot root "$@"
        """
        return privately(self.directory, script, self.original, *command, **how)

    def install(self, package: Path):
        shutil.copy(package, self.files)
        self.run("apt-get", "install", "--yes", f"/{package.name}")


@pytest.fixture(scope="session", params=["bookworm", "trixie"])
def fresh_debian(request, tmp_path_factory):
    root = tmp_path_factory.mktemp("debian") / "root"
    run("mmdebstrap", "--quiet", "--variant=apt", "--include=man-db", request.param, root)
    yield root
    shutil.rmtree(root)


@pytest.fixture
def installed(fresh_debian, deb, tmp_path):
    debian = Debian(fresh_debian, tmp_path)
    debian.install(deb)
    return debian


def test_installed_package_passes_its_own_tests(installed, sources):
    shutil.copytree(sources, installed.files / "sources", ignore=shutil.ignore_patterns("build"))
    done = installed.run("sh", "-c", "cd sources && debian/tests/installed")
    assert (done.stdout, done.stderr) == (b"", b"")


@pytest.mark.parametrize("removal", ["remove", "purge"])
def test_upgrade_and_removal_keep_preferences(installed, deb, tmp_path, removal):
    installed.run("nebulark-ctl", "--set", "brightness=darker")
    run("dpkg-deb", "--raw-extract", deb, tmp_path / "newer")
    run("sed", "--in-place", "s/^Version: .*/&.1/", tmp_path / "newer/DEBIAN/control")
    run("dpkg-deb", "--build", tmp_path / "newer", tmp_path / "newer.deb")
    installed.install(tmp_path / "newer.deb")
    assert installed.run("dpkg-query", "--show", "nebulark-ctl").stdout.decode() == f"nebulark-ctl\t{VERSION}-1.1\n"
    assert (installed.files / PREFERENCES).read_bytes() == stored(brightness="darker")
    installed.run("apt-get", removal, "--yes", "nebulark-ctl")
    assert [name for name in IN_DEB if (installed.files / "usr" / name).is_file()] == []
    assert (installed.files / PREFERENCES).read_bytes() == stored(brightness="darker")


def test_removal_leaves_nothing_if_nothing_was_set(installed):
    installed.run("apt-get", "remove", "--yes", "nebulark-ctl")
    assert installed.run("ls", "/usr/share/nebulark", "/usr/share/doc/nebulark", check=False).stdout == b""


# The packages


def test_two_builds_give_the_same_bytes(packages):
    """By root; and by an ordinary user with a strict umask, from sources of other dates on another file system."""
    somebody = {"user": SOMEBODY, "group": SOMEBODY, "extra_groups": [], "umask": 0o077}
    somebody["env"] = {"TZ": "Pacific/Chatham", "LC_ALL": "C.UTF-8", "HOME": "/"}
    with tempfile.TemporaryDirectory(dir="/dev/shm") as directory:
        elsewhere = copy_of_project(Path(directory) / "else where", copy_function=shutil.copy)
        run("chown", "--recursive", str(SOMEBODY), directory)
        run("script/package", cwd=elsewhere, **somebody)
        again = {path.name: path.read_bytes() for path in (elsewhere / "build/packages").iterdir()}
    first = {path.name: path.read_bytes() for path in packages.iterdir()}
    assert sorted(again) == sorted(first)
    of_the_build = (".buildinfo", ".changes", ".log")  # these name the place, the time and the user
    assert [name for name in first if again[name] != first[name] and not name.endswith(of_the_build)] == []


@pytest.mark.parametrize("debian_name, rpm_name, elf_name", MACHINES)
def test_debian_package_has_all_files_for_its_processor(packages, tmp_path, debian_name, rpm_name, elf_name):
    package = packages / f"nebulark-ctl_{VERSION}-1_{debian_name}.deb"
    fields = text("dpkg-deb", "--show", "--showformat=${Architecture}, ${Recommends}, ${Depends}", package)
    assert re.fullmatch(rf"{debian_name}, pkexec, libc6(:{debian_name})? \(>= 2\.[0-9]+\)", fields)
    run("dpkg-deb", "--extract", package, tmp_path)
    assert tree(tmp_path / "usr") == IN_DEB
    assert elf_name in text("readelf", "--file-header", tmp_path / "usr/bin/nebulark-ctl")


@pytest.mark.parametrize("debian_name, rpm_name, elf_name", MACHINES)
def test_rpm_has_all_files_for_its_processor(packages, tmp_path, debian_name, rpm_name, elf_name):
    package = packages / f"nebulark-ctl-{VERSION}-1.{rpm_name}.rpm"
    assert text("rpm", "-qp", "--queryformat", "%{ARCH}\n", "--recommends", package) == f"{rpm_name}\n/usr/bin/pkexec\n"
    needs = {re.split("[-(.]", line)[0] for line in text("rpm", "-qp", "--requires", package).splitlines()}
    assert needs == {"libc", "ld", "rpmlib", "rtld"}
    rpm = ["rpm", "--dbpath=/known", "--root", tmp_path]
    run(*rpm, "--install", "--nodeps", "--ignorearch", package)
    assert tree(tmp_path / "usr") == IN_RPM
    assert elf_name in text("readelf", "--file-header", tmp_path / "usr/bin/nebulark-ctl")
    (tmp_path / PREFERENCES).touch()
    run(*rpm, "--erase", "nebulark-ctl")
    assert tree(tmp_path / "usr") == LEFT


@pytest.mark.parametrize("machine", ["amd64", "arm64"])
def test_lintian_finds_nothing(packages, machine):
    changes = packages / f"nebulark-ctl_{VERSION}-1_{machine}.changes"
    done = run("lintian", "--allow-root", "--display-info", "--pedantic", changes, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


def test_rpmlint_finds_nothing(packages, sources):
    packaging = sources / "packaging"
    for path in [packaging / "nebulark-ctl.spec", *packages.glob("*.rpm")]:
        said = text("rpmlint", "--strict", "--config", packaging / "rpmlint.toml", path).splitlines()
        assert [line for line in said if re.match(r"\S+ [EW]: ", line)] == []
        assert "; 0 errors, 0 warnings," in said[-1]


# Without packages


def tool_of_the_action(prefix: Path) -> str:
    policy = (prefix / "share/polkit-1/actions/nebulark.ctl.policy").read_text()
    return re.search('"org.freedesktop.policykit.exec.path">(.*)<', policy)[1]


def test_tool_installs_without_mandoc_below_any_prefix_and_destdir(sources, tmp_path):
    """Mounts a file that nobody can run over mandoc."""
    script = """
        [ ! -e /usr/bin/mandoc ] || mount --bind /dev/null /usr/bin/mandoc
        umask 077
        cmake -S "$1" -B build -D BUILD_TESTING=OFF -D CMAKE_BUILD_TYPE=Release
        cmake --build build
        DESTDIR=$PWD/root cmake --install build --prefix /opt/nebulark
    """
    privately(tmp_path, script, sources)
    installed = tmp_path / "root/opt/nebulark"
    assert tree(installed) == {name: mode for name, mode in INSTALLED.items() if "/doc/" not in name}
    assert tool_of_the_action(installed) == "/opt/nebulark/bin/nebulark-ctl"


def test_commands_of_readme_install_and_remove_all_but_preferences(tmp_path):
    readme = (PROJECT / "README.md").read_text()
    *install, remove = re.findall(r"^    ((?:sudo )?cmake .*|xargs .*)$", readme, re.MULTILINE)
    script = f"""
        mount -t overlay -o lowerdir=/usr,upperdir="$PWD/usr",workdir="$PWD/work" overlay /usr
        here=$PWD
        cd "$1"
        {'; '.join(install)}
        cp -a "$here/usr" "$here/installed"
        nebulark-ctl --set brightness=darker
        {remove}
    """
    for name in ("usr", "work"):
        (tmp_path / name).mkdir()
    done = privately(tmp_path, script.replace("sudo ", ""), copy_of_project(tmp_path / "sources"))
    assert tree(tmp_path / "installed") == INSTALLED
    assert tool_of_the_action(tmp_path / "installed") == "/usr/bin/nebulark-ctl"
    assert done.stdout.endswith(listing(brightness="darker") + HINT)
    assert tree(tmp_path / "usr") == LEFT
