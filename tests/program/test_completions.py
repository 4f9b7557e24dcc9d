"""What bash, zsh and fish offer when a nebulark-ctl command line is completed: these shells themselves, with the
completions where an installation would have them, and the tool's own words to compare with."""

import shutil
import subprocess

import pexpect
import pytest

from machine import PROJECT
from vocabulary import commands, preferences

COMPLETIONS = PROJECT / "data/completions"

TAB = "\t"
BACK = "\x02"  # one character to the left
SHOW = "\x18\x10"  # in the shells set up below: shows the line, and empties it
READY = "The shell is ready."

SET_UP = {
    # Readline itself inserts all that it would offer.
    "bash": (
        ["/usr/bin/bash", "--noprofile", "--norc", "-i"],
        "\x1b*",
        r"""
        . /usr/share/bash-completion/bash_completion
        show() { printf '\n<<%s>>\n' "$READLINE_LINE"; READLINE_LINE= READLINE_POINT=0; }
        bind -x '"\C-x\C-p": show'
        """,
    ),
    "zsh": (
        ["/usr/bin/zsh", "-f", "-i"],
        "\x18a",
        r"""
        autoload -Uz compinit && compinit -u -D
        show() { print; print -r -- "<<$BUFFER>>"; BUFFER= }
        zle -N show
        bindkey '^X^P' show
        zle -C all complete-word _generic
        zstyle ':completion:all:*' completer _all_matches _complete
        zstyle ':completion:all:*' insert true
        bindkey '^Xa' all
        """,
    ),
}
SET_UP["bash, = breaking no words"] = (*SET_UP["bash"][:2], SET_UP["bash"][2] + "COMP_WORDBREAKS=${COMP_WORDBREAKS//=}")


class Editor:
    """A shell at a terminal that is too wide for any line to wrap."""

    def __init__(self, shell: str, env: dict[str, str]):
        command, self.insert_all, set_up = SET_UP[shell]
        self.terminal = pexpect.spawn(
            command[0], command[1:], env=env, cwd=env["HOME"], dimensions=(24, 2000), encoding="utf-8", timeout=60
        )
        said = f"{READY[:3]}''{READY[3:]}"  # what is typed is shown too, and must not be mistaken for it
        self.terminal.sendline("; ".join([*set_up.strip().splitlines(), f"echo '{said}'"]))
        self.terminal.expect_exact(READY)

    def line(self, keys: str) -> str:
        """The command line when these keys have been pressed."""
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
    """A home, the two commands, and a /usr/share with the completions besides the real one."""
    root = tmp_path_factory.mktemp("completions")
    installed = {
        "nebulark-ctl": "share/bash-completion/completions",
        "_nebulark-ctl": "share/zsh/site-functions",
        "nebulark-ctl.fish": "share/fish/vendor_completions.d",
    }
    for file, place in installed.items():
        (root / place).mkdir(parents=True)
        shutil.copy(COMPLETIONS / file, root / place)
    (root / "home").mkdir()
    (root / "home/x").touch()  # a file, which is never what is wanted
    for command in ("nebulark-ctl", "sudo"):  # fish completes only what it could run; nothing is run
        (root / command).touch(mode=0o755)
    return {
        "HOME": str(root / "home"),
        "PATH": f"{root}:/usr/bin:/bin",
        "LC_ALL": "C.UTF-8",
        "TERM": "dumb",
        "INPUTRC": "/dev/null",
        "XDG_DATA_DIRS": f"{root}/share:/usr/share",
        "FPATH": f"{root}/share/zsh/site-functions:{zsh_functions()}",
    }


def zsh_functions() -> str:
    return subprocess.run(["/usr/bin/zsh", "-fc", "print -n $FPATH"], capture_output=True, text=True, check=True).stdout


def editors(*names):
    """Gives the fixture of this name a shell that is started once for the whole module."""

    @pytest.fixture(scope="module", params=names)
    def shell(request, environment):
        if request.param == "fish":
            yield Fish(environment)
            return
        editor = Editor(request.param, environment)
        yield editor
        editor.terminal.close(force=True)

    return shell


shell = editors(*SET_UP, "fish")
editor = editors(*SET_UP)
bash = editors(*(name for name in SET_UP if name.startswith("bash")))


def bare(words: list[str]) -> list[str]:
    """Names without their equals sign, values without their name: what readline replaces begins behind the sign."""
    return sorted(word.rstrip("=").rpartition("=")[2] for word in words)


def check(shell, typed: str, expected):
    assert bare(shell.offers(typed)) == sorted(expected)


@pytest.mark.parametrize("typed", ["", "--"])
@pytest.mark.parametrize("before", ["", "sudo "])
def test_commands_are_offered_first(shell, machine, before, typed):
    check(shell, f"{before}nebulark-ctl {typed}", commands(machine))


@pytest.mark.parametrize("before", ["", "sudo "])
def test_names_are_offered_behind_set(shell, machine, before):
    check(shell, f"{before}nebulark-ctl --set ", preferences(machine))


def test_names_that_begin_alike_are_offered_together(shell):
    check(shell, "nebulark-ctl --set label", ["labelformat", "labelcorner"])


def test_values_are_offered_behind_each_name(shell, machine):
    for name, preference in preferences(machine).items():
        check(shell, f"nebulark-ctl --set {name}=", preference.words)
        for begun in {word[:-1] for word in preference.words}:
            fitting = [word for word in preference.words if word.startswith(begun)]
            check(shell, f"sudo nebulark-ctl --set {name}={begun}", fitting)


@pytest.mark.parametrize(
    "assigned",
    [["cfa=mono"], ["cfa=mono", "brightness=darker"], ["CFA=Mono"], ["cfa="], ["labelformat=on", "labelcorner=mid"]],
    ids=" ".join,
)
def test_names_are_not_offered_twice(shell, machine, assigned):
    left = preferences(machine).keys() - {word.partition("=")[0].lower() for word in assigned}
    check(shell, f"nebulark-ctl --set {' '.join(assigned)} ", left)


def test_no_name_is_left_when_all_are_assigned(shell, machine):
    assigned = [f"{name}={preference.default}" for name, preference in preferences(machine).items()]
    check(shell, f"nebulark-ctl --set {' '.join(assigned)} ", [])


def test_a_name_that_is_typed_in_full_is_offered(shell):
    check(shell, "nebulark-ctl --set cfa", ["cfa"])


@pytest.mark.parametrize("typed", ["cfa=mono cfa=", "CFA=", "x Cfa="])
def test_values_are_offered_for_a_name_that_is_typed_again_or_in_capitals(shell, typed):
    check(shell, f"nebulark-ctl --set {typed}", ["auto", "color", "mono"])


@pytest.mark.parametrize("typed", ["", "--"])
def test_all_is_offered_right_behind_clearing(shell, typed):
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
def test_nothing_is_offered_where_nothing_fits(shell, words):
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


@pytest.mark.parametrize("keys", COMPLETED, ids=repr)
def test_line_grows_as_it_is_typed(editor, keys):
    assert editor.line(keys) == COMPLETED[keys]


def test_bash_does_not_repeat_the_sign_behind_the_cursor(bash):
    assert bash.line("nebulark-ctl --set bri=dim" + BACK * 4 + TAB) == "nebulark-ctl --set brightness=dim"


def test_fish_replaces_whole_words(environment):
    fish = Fish(environment)
    assert fish.offers("nebulark-ctl --set b") == ["brightness="]
    assert fish.offers("nebulark-ctl --set cfa=") == ["cfa=auto", "cfa=color", "cfa=mono"]
