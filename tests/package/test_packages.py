"""What an installation puts in place, and the packages: as they come out of CMake, and in a Debian of their own.

The packages are built twice, from two copies of the sources that have nothing else in common. Debian is made afresh by
mmdebstrap; each test works on a copy of its own. Everything happens in private mount namespaces, so root is needed.
"""

import gzip
import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest
from machine import PROJECT, SUPPORT
from texts import HINT, listing, shown, stored

CHANGELOG = "data/package/changelog"
PREFERENCES = "usr/share/nebulark/preferences.conf"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent", "DEBIAN_FRONTEND": "noninteractive"}

SOMEBODY = 1000  # an ordinary user

PRESETS = ["package", "package-arm64"]

INSTALLED = {
    "usr/bin/nebulark-ctl": 0o755,
    "usr/share/bash-completion/completions/nebulark-ctl": 0o644,
    "usr/share/doc/nebulark/index.html": 0o644,
    "usr/share/fish/vendor_completions.d/nebulark-ctl.fish": 0o644,
    "usr/share/licenses/nebulark-ctl/LICENSE": 0o644,
    "usr/share/man/man1/nebulark-ctl.1": 0o644,
    "usr/share/man/man5/nebulark-preferences.5": 0o644,
    "usr/share/polkit-1/actions/nebulark.ctl.policy": 0o644,
    "usr/share/zsh/vendor-completions/_nebulark-ctl": 0o644,
}

ZIPPED = {name + ".gz" if "/man/" in name else name: mode for name, mode in INSTALLED.items()}

IN_RPM = {name.replace("vendor-completions", "site-functions"): mode for name, mode in ZIPPED.items()}

IN_DEB = {name: mode for name, mode in ZIPPED.items() if "/licenses/" not in name} | {
    "usr/share/doc/nebulark-ctl/changelog.Debian.gz": 0o644,
    "usr/share/doc/nebulark-ctl/changelog.gz": 0o644,
    "usr/share/doc/nebulark-ctl/copyright": 0o644,
    "usr/share/lintian/overrides/nebulark-ctl": 0o644,
}


def run(*command, check=True, env={}, **how) -> subprocess.CompletedProcess:
    done = subprocess.run(command, capture_output=True, env=ENVIRONMENT | env, **how)
    if check and done.returncode != 0:
        pytest.fail(f"{command}: {done.returncode}\n" + os.fsdecode(done.stdout + done.stderr), pytrace=False)
    return done


def text(*command, **how) -> str:
    return run(*command, **how).stdout.decode()


def mode(path: Path) -> int:
    return path.stat().st_mode & 0o7777


def tree(root: Path) -> dict[str, int]:
    """The modes of all files below a directory."""
    return {
        str(path.relative_to(root)): mode(path) for path in root.rglob("*") if path.is_file() and not path.is_symlink()
    }


def privately(directory: Path, script: str, *words, **how) -> subprocess.CompletedProcess:
    """Runs a shell script in mount, process and network namespaces of its own."""
    unshare = ["unshare", "--pid", "--net", "--fork", "--kill-child"]
    return run(SUPPORT / "private", *unshare, "sh", "-euc", script, "sh", *words, cwd=directory, **how)


@pytest.fixture(scope="session", autouse=True)
def namespaces(tmp_path_factory):
    """Skips, or under CI fails, everything where these cannot be had."""
    probe = tmp_path_factory.mktemp("probe")
    for name in ("upper", "work"):
        (probe / name).mkdir()
    done = privately(probe, "mount -t overlay -o lowerdir=/usr,upperdir=upper,workdir=work overlay /usr", check=False)
    if done.returncode != 0:
        (pytest.fail if "CI" in os.environ else pytest.skip)("no mount namespaces here: " + os.fsdecode(done.stderr))


def copy_of_project(directory: Path, **how) -> Path:
    ignored = shutil.ignore_patterns("build", ".git", "__pycache__")
    return Path(shutil.copytree(PROJECT, directory, ignore=ignored, **how))


def package(sources: Path, preset: str, **how) -> dict[str, Path]:
    """Builds the packages of a preset, by file name."""
    run("cmake", "--workflow", "--preset", preset, cwd=sources, **how)
    return {path.name: path for kind in ("deb", "rpm") for path in (sources / "build" / preset).glob("*." + kind)}


@pytest.fixture(scope="session")
def sources(tmp_path_factory):
    return copy_of_project(tmp_path_factory.mktemp("a") / "sources")


@pytest.fixture(scope="session")
def packages(sources):
    return {name: path for preset in PRESETS for name, path in package(sources, preset).items()}


@pytest.fixture(scope="session")
def tool(packages) -> str:
    """The file name of this machine's Debian package."""
    (name,) = [name for name in packages if name.endswith(f"_{text('dpkg', '--print-architecture').strip()}.deb")]
    return name


# Debian


class Debian:
    """A copy, in a directory, of a Debian that has nothing but apt and man."""

    def __init__(self, original: Path, directory: Path):
        self.original, self.directory = original, directory
        self.files = directory / "changed"  # those that differ from the original
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

    def set_preferences(self):
        assert self.run("nebulark-ctl", "--set", "brightness=darker").stdout == listing(brightness="darker") + HINT

    def has_preferences(self) -> bool:
        return (self.files / PREFERENCES).read_bytes() == stored(brightness="darker")


@pytest.fixture(scope="session", params=["bookworm", "trixie"])
def fresh_debian(request, tmp_path_factory):
    root = tmp_path_factory.mktemp("debian") / "root"
    run("mmdebstrap", "--quiet", "--variant=apt", "--include=man-db", request.param, root)
    yield root
    shutil.rmtree(root)


@pytest.fixture
def debian(fresh_debian, tmp_path):
    return Debian(fresh_debian, tmp_path)


@pytest.fixture
def installed(debian, packages, tool):
    debian.install(packages[tool])
    return debian


def test_preferences_can_be_shown_and_changed_at_once(installed):
    assert installed.run("nebulark-ctl", "--prefs").stdout == shown()
    installed.set_preferences()
    assert installed.has_preferences()


def test_upgrade_keeps_preferences(installed, sources, tool, tmp_path):
    installed.set_preferences()
    newer = copy_of_project(tmp_path / "newer")
    latest = (newer / CHANGELOG).read_text()
    version = re.search(r"\((.+)\)", latest)[1]
    (newer / CHANGELOG).write_text(latest.replace(version, version + ".1", 1) + "\n" + latest)
    packages = package(newer, "package")
    installed.install(packages[tool.replace(version, version + ".1")])
    assert installed.run("dpkg-query", "--show", "nebulark-ctl").stdout.decode() == f"nebulark-ctl\t{version}.1\n"
    assert installed.has_preferences()


@pytest.mark.parametrize("removal", ["remove", "purge"])
def test_removal_leaves_nothing_but_preferences(installed, removal):
    installed.set_preferences()
    installed.run("apt-get", removal, "--yes", "nebulark-ctl")
    assert [name for name in IN_DEB if (installed.files / name).is_file()] == []
    assert installed.has_preferences()


def test_removal_leaves_nothing_where_nothing_was_set(installed):
    installed.run("apt-get", "remove", "--yes", "nebulark-ctl")
    assert installed.run("ls", "/usr/share/nebulark", "/usr/share/doc/nebulark", check=False).stdout == b""


@pytest.mark.parametrize("page", ["nebulark-ctl(1)", "nebulark-preferences(5)"])
def test_man_finds_and_shows_page(installed, page):
    name, section = page[:-1].split("(")
    found = installed.run("man", "--where", section, name).stdout.decode()
    assert found == f"/usr/share/man/man{section}/{name}.{section}.gz\n"
    shown = installed.run("man", section, name)
    assert shown.stdout.decode().split()[0] == page.upper() and shown.stderr == b""


def test_man_knows_pages_by_subject(installed):
    found = installed.run("apropos", "--long", "Nebulark").stdout.decode()
    assert [line.split(" - ")[0].split() for line in sorted(found.splitlines())] == [
        ["nebulark-ctl", "(1)"],
        ["nebulark-preferences", "(5)"],
    ]


def test_documentation_is_where_the_tool_says(installed, sources):
    path = installed.run("nebulark-ctl", "--help").stderr.decode().split()[-1]
    assert installed.run("cat", path).stdout == (sources / "build/package/docs/index.html").read_bytes()


def test_script_leaves_what_a_package_installed_alone(installed, sources):
    shutil.copytree(sources / "script", installed.files / "project/script")
    for name in ("install", "uninstall"):
        done = installed.run(f"/project/script/{name}", check=False)
        refusal = f"/project/script/{name}: the package nebulark-ctl is installed, and these are its files\n"
        refusal += "  To remove it:  sudo apt-get remove nebulark-ctl\n"
        assert (done.returncode, done.stdout, done.stderr.decode()) == (1, b"", refusal)


# The packages


def of_kind(packages, ending: str) -> Path:
    (path,) = [path for name, path in packages.items() if name.endswith(ending)]
    return path


def field(deb: Path, name: str) -> str:
    return text("dpkg-deb", "--field", deb, name).strip()


def test_two_builds_give_the_same_bytes(packages):
    """By root; and by an ordinary user in another place who lets nobody see files, from sources of other dates on
    another file system."""
    somebody = {"user": SOMEBODY, "group": SOMEBODY, "extra_groups": [], "umask": 0o077}
    somebody["env"] = {"TZ": "Pacific/Chatham", "LC_ALL": "C.UTF-8", "HOME": "/"}
    with tempfile.TemporaryDirectory(dir="/dev/shm") as directory:
        sources = copy_of_project(Path(directory) / "elsewhere", copy_function=shutil.copy)
        run("chown", "--recursive", str(SOMEBODY), directory)
        again = {}
        for preset in PRESETS:
            again |= package(sources, preset, **somebody)
        assert sorted(again) == sorted(packages)
        assert [name for name in again if again[name].read_bytes() != packages[name].read_bytes()] == []


@pytest.mark.parametrize(
    "debian_name, rpm_name, elf_name",
    [("amd64", "x86_64", "Advanced Micro Devices X86-64"), ("arm64", "aarch64", "AArch64")],
)
def test_package_is_for_its_machine(packages, tmp_path, debian_name, rpm_name, elf_name):
    deb = of_kind(packages, f"_{debian_name}.deb")
    assert field(deb, "Architecture") == debian_name
    assert text("rpm", "-qp", "--queryformat", "%{ARCH}", of_kind(packages, f".{rpm_name}.rpm")) == rpm_name
    run("dpkg-deb", "--extract", deb, tmp_path)
    header = text("readelf", "--file-header", tmp_path / "usr/bin/nebulark-ctl")
    assert re.search(r"Machine: +(.+)", header)[1] == elf_name


@pytest.mark.parametrize("machine", ["amd64", "arm64"])
def test_debian_package_depends_on_the_c_library_that_the_tool_needs(packages, tmp_path, machine):
    deb = of_kind(packages, f"_{machine}.deb")
    run("dpkg-deb", "--extract", deb, tmp_path)
    needs = text("readelf", "--dynamic", "--version-info", tmp_path / "usr/bin/nebulark-ctl")
    assert {re.split("[-.]", name)[0] for name in re.findall(r"\(NEEDED\).*\[(.+)\]", needs)} == {"libc", "ld"}
    newest = max(int(minor) for minor in re.findall(r"GLIBC_2\.(\d+)", needs))
    assert (field(deb, "Depends"), field(deb, "Recommends")) == (f"libc6 (>= 2.{newest})", "pkexec")


@pytest.mark.parametrize("machine", ["x86_64", "aarch64"])
def test_rpm_depends_on_the_c_library_alone(packages, machine):
    rpm = of_kind(packages, f".{machine}.rpm")
    needs = {re.split("[-(.]", line)[0] for line in text("rpm", "-qp", "--requires", rpm).splitlines()}
    assert needs == {"libc", "ld", "rpmlib", "rtld"}
    assert text("rpm", "-qp", "--recommends", rpm) == "/usr/bin/pkexec\n"


class RpmSystem:
    """A directory with nothing in it but what the package manager puts there."""

    def __init__(self, root: Path):
        self.root = root
        root.mkdir()

    def run(self, *words):
        run("rpm", "--dbpath=/known", "--root", self.root, *words)

    def install(self, package: Path):
        self.run("--install", "--nodeps", "--ignorearch", package)

    def tree(self) -> dict[str, int]:
        return {name: mode for name, mode in tree(self.root).items() if not name.startswith("known/")}


@pytest.mark.parametrize("machine", ["amd64", "arm64"])
def test_debian_package_holds_exactly_what_belongs_there(packages, tmp_path, machine):
    run("dpkg-deb", "--extract", of_kind(packages, f"_{machine}.deb"), tmp_path)
    assert tree(tmp_path) == IN_DEB
    assert mode(tmp_path / "usr/share/nebulark") == 0o755


@pytest.mark.parametrize("machine", ["x86_64", "aarch64"])
def test_rpm_installs_exactly_what_belongs_there(packages, tmp_path, machine):
    system = RpmSystem(tmp_path / "root")
    system.install(of_kind(packages, f".{machine}.rpm"))
    assert system.tree() == IN_RPM
    assert mode(system.root / "usr/share/nebulark") == 0o755


def test_rpm_leaves_preferences_when_it_is_removed(packages, tmp_path):
    system = RpmSystem(tmp_path / "root")
    system.install(of_kind(packages, ".x86_64.rpm"))
    (system.root / PREFERENCES).write_bytes(stored(brightness="darker"))
    system.run("--erase", "nebulark-ctl")
    assert system.tree() == {PREFERENCES: 0o644}


def test_changelogs_and_manual_are_compressed_to_the_utmost_and_undated(packages, sources, tmp_path):
    run("dpkg-deb", "--extract", of_kind(packages, "_amd64.deb"), tmp_path)
    originals = {
        "doc/nebulark-ctl/changelog.Debian": CHANGELOG,
        "doc/nebulark-ctl/changelog": "CHANGELOG.md",
        "man/man1/nebulark-ctl.1": "data/man/nebulark-ctl.1",
        "man/man5/nebulark-preferences.5": "data/man/nebulark-preferences.5",
    }
    for name, original in originals.items():
        zipped = (tmp_path / f"usr/share/{name}.gz").read_bytes()
        assert gzip.decompress(zipped) == (sources / original).read_bytes()
        assert zipped[3:9] == bytes([0, 0, 0, 0, 0, 2])  # no name, no time; the best compression


def test_lintian_finds_nothing(packages):
    for name, path in packages.items():
        if name.endswith(".deb"):
            done = run("lintian", "--allow-root", path, check=False)
            assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


def test_rpmlint_finds_nothing(packages, sources):
    for name, path in packages.items():
        if name.endswith(".rpm"):
            said = text("rpmlint", "--strict", "--config", sources / "data/package/rpmlint.toml", path).splitlines()
            assert [line for line in said if re.match(r"\S+: [EW]: ", line)] == []
            assert re.match(r" 1 packages and 0 specfiles checked; 0 errors, 0 warnings,", said[-1])


# Without packages


def test_install_puts_everything_below_destdir_and_prefix(packages, sources, tmp_path):
    build = sources / "build/package"
    run("cmake", "--install", build, "--prefix", "/usr", env={"DESTDIR": str(tmp_path)}, umask=0o077)
    assert tree(tmp_path) == INSTALLED
    assert mode(tmp_path / "usr/share/nebulark") == 0o755


@pytest.mark.parametrize("prefix", ["/usr", "/opt/nebulark"])
def test_action_names_the_tool_where_it_is_installed(packages, sources, tmp_path, prefix):
    run("cmake", "--install", sources / "build/package", "--prefix", prefix, env={"DESTDIR": str(tmp_path)})
    policy = (tmp_path / prefix[1:] / "share/polkit-1/actions/nebulark.ctl.policy").read_text()
    template = (sources / "data/polkit/nebulark.ctl.policy.in").read_text()
    assert policy == template.replace("@CMAKE_INSTALL_FULL_BINDIR@", prefix + "/bin")


def test_default_prefix_is_usr(packages, sources, tmp_path):
    run("cmake", "--install", sources / "build/package", env={"DESTDIR": str(tmp_path)})
    assert tree(tmp_path) == INSTALLED


def test_tool_builds_and_installs_without_mandoc(sources, tmp_path):
    """Which is made a file that nobody can run."""
    script = """
        [ ! -e /usr/bin/mandoc ] || mount --bind /dev/null /usr/bin/mandoc
        cmake -S "$1" -B build -D BUILD_TESTING=OFF -D CMAKE_BUILD_TYPE=Release
        cmake --build build
        DESTDIR=$PWD/root cmake --install build
    """
    privately(tmp_path, script, sources)
    assert tree(tmp_path / "root") == {name: mode for name, mode in INSTALLED.items() if not name.endswith(".html")}


def test_scripts_install_and_uninstall_all_but_preferences(sources, tmp_path):
    for name in ("usr", "work"):
        (tmp_path / name).mkdir()
    script = """
        mount -t overlay -o lowerdir=/usr,upperdir=usr,workdir=work overlay /usr
        umask 077
        "$1/script/install" >install.log
        cp -a usr installed
        nebulark-ctl --set brightness=darker
        exec "$1/script/uninstall"
    """
    done = privately(tmp_path, script, sources)
    assert {"usr/" + name: mode for name, mode in tree(tmp_path / "installed").items()} == INSTALLED
    assert mode(tmp_path / "installed/share/doc/nebulark") == 0o755
    files = {re.sub("^", "  /", name) for name in INSTALLED}
    assert set((tmp_path / "install.log").read_text().splitlines()) == files | {
        "Building build/release",
        "Installing:",
        "  /usr/share/nebulark",
        "To remove it again: script/uninstall",
    }
    said = done.stdout.removeprefix(listing(brightness="darker") + HINT).decode().splitlines()
    assert said[0] == "Removing:" and set(said[1:-2]) == files
    assert said[-2:] == [
        "Your preferences stay in /usr/share/nebulark/preferences.conf. Nothing needs them now:",
        "  sudo rm -r /usr/share/nebulark",
    ]
    assert tree(tmp_path / "usr") == {PREFERENCES.removeprefix("usr/"): 0o644}
