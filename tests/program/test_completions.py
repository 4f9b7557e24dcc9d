"""What bash, zsh and fish offer to complete a nebulark-ctl command line, compared with the tool's own words. The shells
are real, and the completions are where an installation puts them."""

import shutil
import subprocess

import pexpect
import pytest

from machine import PROJECT
from vocabulary import commands, preferences

TAB = "\t"
BACK = "\x02"  # one character to the left
SHOW = "\x18\x10"  # in the shells below: shows the line, and empties it
READY = "The shell is ready."

INSTALLED = {
    "nebulark-ctl": "bash-completion/completions",
    "_nebulark-ctl": "zsh/site-functions",
    "nebulark-ctl.fish": "fish/vendor_completions.d",
}

BASH = ["/usr/bin/bash", "--noprofile", "--norc", "-i"]
START_BASH = r"""
. /usr/share/bash-completion/bash_completion
show() { printf '\n<<%s>>\n' "$READLINE_LINE"; READLINE_LINE= READLINE_POINT=0; }
bind -x '"\C-x\C-p": show'
"""
START_ZSH = r"""
autoload -Uz compinit && compinit -u -D
show() { print; print -r -- "<<$BUFFER>>"; BUFFER= }
zle -N show
bindkey '^X^P' show
zle -C all complete-word _generic
zstyle ':completion:all:*' completer _all_matches _complete
zstyle ':completion:all:*' insert true
bindkey '^Xa' all
"""
# Each shell's command, its setup, and the keys that insert all offers.
EDITORS = {
    "bash": (BASH, START_BASH, "\x1b*"),
    "bash, = breaking no words": (BASH, START_BASH + "COMP_WORDBREAKS=${COMP_WORDBREAKS//=}", "\x1b*"),
    "zsh": (["/usr/bin/zsh", "-f", "-i"], START_ZSH, "\x18a"),
}


class Editor:
    """A shell at a terminal that is too wide for any line to wrap."""

    def __init__(self, name: str, env: dict[str, str]):
        command, start, self.insert_all = EDITORS[name]
        self.terminal = pexpect.spawn(
            command[0], command[1:], env=env, cwd=env["HOME"], dimensions=(24, 2000), encoding="utf-8", timeout=60
        )
        said = f"{READY[:3]}''{READY[3:]}"  # the terminal also shows this line, which must look different
        self.terminal.sendline("; ".join([*start.strip().splitlines(), f"echo '{said}'"]))
        self.terminal.expect_exact(READY)

    def line(self, keys: str) -> str:
        """The command line after these keys."""
        self.terminal.send(keys + SHOW)
        self.terminal.expect("<<(.*)>>")
        return self.terminal.match[1]

    def offers(self, typed: str) -> list[str]:
        completed = self.line(typed + self.insert_all)
        head = typed[: typed.rindex(" ") + 1]
        assert completed.startswith(head)
        return completed[len(head) :].split() if completed != typed else []


class Fish:
    def __init__(self, env: dict[str, str]):
        self.env = env

    def offers(self, typed: str) -> list[str]:
        command = ["/usr/bin/fish", "--command", "complete --do-complete $argv[1]", typed]
        done = subprocess.run(command, env=self.env, cwd=self.env["HOME"], capture_output=True, text=True, timeout=60)
        assert (done.returncode, done.stderr) == (0, "")
        return [line.split("\t")[0] for line in done.stdout.splitlines()]


@pytest.fixture(scope="module")
def environment(tmp_path_factory) -> dict[str, str]:
    """A home, two commands, and the completions, in addition to the real /usr/share."""
    root = tmp_path_factory.mktemp("completions")
    for file, place in INSTALLED.items():
        (root / place).mkdir(parents=True)
        shutil.copy(PROJECT / "data/completions" / file, root / place)
    (root / "home").mkdir()
    (root / "home/x").touch()  # a file, which must not be offered
    for command in ("nebulark-ctl", "sudo"):  # fish completes only what it could run; nothing is run
        (root / command).touch(mode=0o755)
    zsh_functions = subprocess.check_output(["/usr/bin/zsh", "-fc", "print -n $FPATH"], text=True)
    return {
        "HOME": str(root / "home"),
        "PATH": f"{root}:/usr/bin:/bin",
        "LC_ALL": "C.UTF-8",
        "TERM": "dumb",
        "INPUTRC": "/dev/null",
        "XDG_DATA_DIRS": f"{root}:/usr/share",
        "FPATH": f"{root}/zsh/site-functions:{zsh_functions}",
    }


@pytest.fixture(scope="module", params=[*EDITORS, "fish"])
def shell(request, environment):
    if request.param == "fish":
        yield Fish(environment)
        return
    editor = Editor(request.param, environment)
    yield editor
    editor.terminal.close(force=True)


def only(*names: str):
    """Runs a test in these shells only."""
    return pytest.mark.parametrize("shell", names, indirect=True)


def check(shell, typed: str, expected):
    """Compares names without their equals sign, and values without their name, which bash does not replace. The order
    must be the tool's, except in fish, which sorts some words."""
    offered = [word.rstrip("=").rpartition("=")[2] for word in shell.offers(typed)]
    if isinstance(shell, Fish):
        offered, expected = sorted(offered), sorted(expected)
    assert offered == list(expected)


@pytest.mark.parametrize("typed", ["", "--"])
@pytest.mark.parametrize("before", ["", "sudo "])
def test_commands_are_offered_first(shell, machine, before, typed):
    check(shell, f"{before}nebulark-ctl {typed}", commands(machine))


@pytest.mark.parametrize("before", ["", "sudo "])
def test_names_are_offered_after_set(shell, machine, before):
    check(shell, f"{before}nebulark-ctl --set ", preferences(machine))


@pytest.mark.parametrize("typed, names", [("label", ["labelformat", "labelcorner"]), ("cfa", ["cfa"])])
def test_names_that_begin_as_typed_are_offered(shell, typed, names):
    check(shell, f"nebulark-ctl --set {typed}", names)


def test_values_are_offered_after_each_name(shell, machine):
    for name, preference in preferences(machine).items():
        check(shell, f"nebulark-ctl --set {name}=", preference.words)
        for begun in {word[:-1] for word in preference.words}:
            fitting = [word for word in preference.words if word.startswith(begun)]
            check(shell, f"sudo nebulark-ctl --set {name}={begun}", fitting)


@pytest.mark.parametrize("typed", ["cfa=mono cfa=", "CFA=", "x Cfa="])
def test_values_are_offered_for_a_name_that_is_repeated_or_in_capitals(shell, typed):
    check(shell, f"nebulark-ctl --set {typed}", ["auto", "color", "mono"])


@pytest.mark.parametrize(
    "assigned", ["cfa=mono", "cfa=mono brightness=darker", "CFA=Mono", "cfa=", "labelformat=on labelcorner=mid"]
)
def test_names_are_not_offered_twice(shell, machine, assigned):
    taken = [word.partition("=")[0].lower() for word in assigned.split()]
    check(shell, f"nebulark-ctl --set {assigned} ", [name for name in preferences(machine) if name not in taken])


def test_no_name_is_left_when_all_are_assigned(shell, machine):
    assigned = [f"{name}={preference.default}" for name, preference in preferences(machine).items()]
    check(shell, f"nebulark-ctl --set {' '.join(assigned)} ", [])


@pytest.mark.parametrize("typed", ["", "--"])
def test_all_is_offered_right_after_clearing(shell, typed):
    check(shell, f"nebulark-ctl --clear-thumb-cache {typed}", ["--all"])


@pytest.mark.parametrize(
    "words",
    [
        "--clear-thumb-cache --all ",
        "--clear-thumb-cache --verbose ",
        "--prefs ",
        "--version ",
        "--help ",
        "--unknown ",
        "--prefs --set ",
        "--prefs cfa=",
        "--clear-thumb-cache cfa=",
        "--set nothing=",
        "--set autostretches=",
        "--set x",
        "x",
    ],
)
def test_nothing_is_offered_if_nothing_fits(shell, words):
    check(shell, f"nebulark-ctl {words}", [])


COMPLETED = {
    "nebulark-ctl \t": "nebulark-ctl --",
    "nebulark-ctl --s\t": "nebulark-ctl --set ",
    "nebulark-ctl --set b\t": "nebulark-ctl --set brightness=",
    "nebulark-ctl --set brightness=\t": "nebulark-ctl --set brightness=",
    "nebulark-ctl --set brightness=d\t": "nebulark-ctl --set brightness=darker ",
    "nebulark-ctl --set labelcorner=b\t": "nebulark-ctl --set labelcorner=bottom",
    "nebulark-ctl --set LabelCorner=b\t": "nebulark-ctl --set LabelCorner=bottom",
    "nebulark-ctl --c\t\t": "nebulark-ctl --clear-thumb-cache --all ",
    "nebulark-ctl --se\tbr\td\tcf\tm\tlabelf\tof\t": "nebulark-ctl --set brightness=darker cfa=mono labelformat=off ",
    "nebulark-ctl --set b cfa=mono" + BACK * 9 + TAB: "nebulark-ctl --set brightness= cfa=mono",
    "nebulark-ctl --set c cfa=mono" + BACK * 9 + TAB: "nebulark-ctl --set c cfa=mono",
}


@only(*EDITORS)
@pytest.mark.parametrize("keys", COMPLETED, ids=repr)
def test_keys_complete_the_line(shell, keys):
    assert shell.line(keys) == COMPLETED[keys]


@only("bash", "bash, = breaking no words")
def test_bash_does_not_repeat_the_equals_sign_after_the_cursor(shell):
    assert shell.line("nebulark-ctl --set bri=dim" + BACK * 4 + TAB) == "nebulark-ctl --set brightness=dim"


@only("fish")
def test_fish_replaces_whole_words_and_keeps_their_order(shell, machine):
    known = preferences(machine)
    assert shell.offers("nebulark-ctl --set ") == [f"{name}=" for name in known]
    assert shell.offers("nebulark-ctl --set cfa=") == [f"cfa={word}" for word in known["cfa"].words]
    assert shell.offers("nebulark-ctl --set autostretch=") == ["autostretch=on", "autostretch=off"]
    assert shell.offers("nebulark-ctl --set labelf") == ["labelformat="]
