"""What bash, zsh and fish offer to complete a nebulark-ctl command line, compared with the tool's own words. The shells
are real, and the completions are where an installation puts them."""

import shutil
import subprocess

import pexpect
import pytest

from machine import HANGS, PROJECT
from texts import DEFAULTS
from vocabulary import COMMANDS, WORDS

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
            command[0], command[1:], env=env, cwd=env["HOME"], dimensions=(24, 2000), encoding="utf-8", timeout=HANGS
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
        command = ["/usr/bin/fish", "--command", "cd; complete --do-complete $argv[1]", typed]
        said = subprocess.check_output(command, env=self.env, stderr=subprocess.STDOUT, text=True, timeout=HANGS)
        return [line.split("\t")[0] for line in said.splitlines()]


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


def names_without(*taken: str) -> list[str]:
    return [name for name in WORDS if name not in taken]


# The order is the tool's. Offers are compared without "=" and what comes before it: bash offers only what comes after.
OFFERED = {
    "": COMMANDS,
    "--": COMMANDS,
    "--set ": names_without(),
    "--set label": ["labelformat", "labelcorner"],
    "--set cfa": ["cfa"],
    **{f"--set {name}=": words for name, words in WORDS.items()},
    "--set labelcorner=bottom": ["bottomleft", "bottomright"],
    "--set brightness=d": ["darker"],
    "--set cfa=mono cfa=": WORDS["cfa"],
    "--set CFA=": WORDS["cfa"],
    "--set x Cfa=": WORDS["cfa"],
    "--set cfa=mono ": names_without("cfa"),
    "--set cfa=mono brightness=darker ": names_without("cfa", "brightness"),
    "--set CFA=Mono ": names_without("cfa"),
    "--set cfa= ": names_without("cfa"),
    "--set labelformat=on labelcorner=mid ": names_without("labelformat", "labelcorner"),
    "--clear-thumb-cache ": ["--all"],
    "--clear-thumb-cache --": ["--all"],
    **{typed: [] for typed in ["--set nothing=", "--set autostretches=", "--set x", "x", "--prefs --set "]},
    **{typed: [] for typed in ["--prefs ", "--prefs cfa=", "--unknown "]},
    **{f"--clear-thumb-cache {typed}": [] for typed in ["--all ", "cfa="]},
    "--set " + "".join(f"{name}={word} " for name, word in DEFAULTS.items()): [],
}


@pytest.mark.parametrize("typed", OFFERED)
def test_what_fits_is_offered(shell, typed):
    offered = [word.rstrip("=").rpartition("=")[2] for word in shell.offers(f"nebulark-ctl {typed}")]
    fish_sorts = isinstance(shell, Fish) and OFFERED[typed] == COMMANDS
    assert offered == (sorted(COMMANDS) if fish_sorts else OFFERED[typed])


@pytest.mark.parametrize("typed", ["", "--set ", "--set cfa="])
def test_the_same_is_offered_after_sudo(shell, typed):
    offered = shell.offers(f"nebulark-ctl {typed}")
    assert sorted(shell.offers(f"sudo nebulark-ctl {typed}")) == sorted(offered) != []


COMPLETED = {
    "nebulark-ctl \t": "nebulark-ctl --",
    "nebulark-ctl --set labelcorner=b\t": "nebulark-ctl --set labelcorner=bottom",
    "nebulark-ctl --set LabelCorner=b\t": "nebulark-ctl --set LabelCorner=bottom",
    "nebulark-ctl --c\t\t": "nebulark-ctl --clear-thumb-cache --all ",
    "nebulark-ctl --se\tbr\td\tcf\tm\tlabelf\tof\t": "nebulark-ctl --set brightness=darker cfa=mono labelformat=off ",
    "nebulark-ctl --set b cfa=mono" + BACK * 9 + "\t": "nebulark-ctl --set brightness= cfa=mono",
    "nebulark-ctl --set c cfa=mono" + BACK * 9 + "\t": "nebulark-ctl --set c cfa=mono",
}


@pytest.mark.parametrize("keys", COMPLETED, ids=repr)
@pytest.mark.parametrize("shell", EDITORS, indirect=True)
def test_keys_complete_the_line(shell, keys):
    assert shell.line(keys) == COMPLETED[keys]


@pytest.mark.parametrize("shell", ["bash", "bash, = breaking no words"], indirect=True)
def test_bash_does_not_repeat_the_equals_sign_after_the_cursor(shell):
    assert shell.line("nebulark-ctl --set bri=dim" + BACK * 4 + "\t") == "nebulark-ctl --set brightness=dim"


@pytest.mark.parametrize("shell", ["fish"], indirect=True)
def test_fish_replaces_whole_words(shell):
    assert shell.offers("nebulark-ctl --set labelf") == ["labelformat="]
    assert shell.offers("nebulark-ctl --set cfa=m") == ["cfa=mono"]
