"""What the tool prints and writes, to the byte, and what polkit says."""

PATH = b"/usr/share/nebulark/preferences.conf"

USAGE = b"""\
nebulark-ctl: set how Nebulark draws thumbnails, and clear the cached ones

usage:
  nebulark-ctl --prefs             show rendering preferences
  nebulark-ctl --set NAME=VALUE... change them (asks for a password)

  Preferences: autostretch=on|off  brightness=darker|standard|brighter
               cfa=auto|color|mono  labelformat=on|off
               labelcorner=topleft|topright|bottomleft|bottomright
  They are machine wide: GNOME's thumbnail sandbox cannot read a per-user
  file, so a per-user setting would silently do nothing there.
  nebulark-ctl --clear-thumb-cache drop cached and failed thumbnails

  --version   version and exit
  --help      this text

Documentation: /usr/share/doc/nebulark/index.html
"""

HINT = b"\nAlready-cached thumbnails keep their old rendering. Use\n--clear-thumb-cache to redraw them.\n"
NOTICE = b"""\
Preferences are machine wide, so this needs administrator
rights. You may be asked for your password.

"""
COULD_NOT_WRITE = b"nebulark-ctl: could not write " + PATH + b"\n"
CANNOT_WRITE = b"nebulark-ctl: cannot write " + PATH + b"\n  Try:  sudo nebulark-ctl --set ...\n"

DEFAULTS = dict(autostretch="on", brightness="standard", cfa="auto", labelformat="off", labelcorner="bottomright")


def listing(**changed: str) -> bytes:
    """The five lines for the defaults with some changed."""
    shown = DEFAULTS | changed
    background = {"darker": "0.15", "standard": "0.25", "brighter": "0.35"}[shown["brightness"]]
    return f"""\
autostretch = {shown["autostretch"]}
brightness  = {shown["brightness"]}  (target background {background})
cfa         = {shown["cfa"]}
labelformat = {shown["labelformat"]}
labelcorner = {shown["labelcorner"]}
""".encode()


def stored(**changed: str) -> bytes:
    """The file that listing() with the same words shows."""
    switch = {"on": "true", "off": "false"}
    lines = [f"{name}={switch.get(word, word)}\n" for name, word in (DEFAULTS | changed).items()]
    head = "# Nebulark rendering preferences, machine wide.\n# Written by nebulark-ctl --set or the settings window.\n"
    return (head + "[General]\n" + "".join(lines)).encode()


def shown(suffix: bytes = b"", **changed: str) -> bytes:
    """What --prefs prints."""
    return listing(**changed) + b"\nstored in " + PATH + suffix + b"\n"


# What polkit and its agent say
ACTION = b"nebulark.ctl.set-preferences"
MESSAGE = b"Authentication is required to change how Nebulark draws thumbnails, for every user of this machine."


def question(action=ACTION, message=MESSAGE):
    return b"==== AUTHENTICATING FOR %s ====\n%s\nAuthenticating as: admin\nPassword: " % (action, message)


NO_SESSION = (
    b"\npolkit-agent-helper-1: error response to PolicyKit daemon: "
    b"GDBus.Error:org.freedesktop.PolicyKit1.Error.Failed: No session for cookie\n==== AUTHENTICATION FAILED ====\n"
)
NOT_AUTHORIZED = b"Error executing command as another user: Not authorized\n\nThis incident has been reported.\n"
