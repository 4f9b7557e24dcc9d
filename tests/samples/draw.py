#!/usr/bin/python3
"""Has programs that fill thumbnail caches on real desktops draw into one.

    draw.py HOMES PROGRAM...     PROGRAM is tumbler, gnome, imagemagick or qt

HOMES/ann is the home directory, which the programs see as /home/ann. Needs root, and the packages dbus, imagemagick,
tumbler, shared-mime-info, python3-gi and gir1.2-gnomedesktop-4.0; qt needs python3-pyqt5.
"""

import hashlib
import os
import subprocess
import sys
from pathlib import Path

import gi

gi.require_versions({"GdkPixbuf": "2.0", "Gio": "2.0", "GnomeDesktop": "4.0"})
from gi.repository import GdkPixbuf, Gio, GLib, GnomeDesktop  # noqa: E402

PRIVATE = Path(__file__).absolute().parents[1] / "support/private"
INSIDE = (
    'mkdir -p "$1/ann"; mount --bind "$1" /home; cd /home/ann; shift; exec dbus-run-session -- /usr/bin/python3 - "$@"'
)
ENVIRONMENT = {"HOME": "/home/ann", "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "GSETTINGS_BACKEND": "memory"}
PICTURES = Path("/home/ann/Pictures")
MTIME = 1710201600

# Names the program with which Tumbler draws FITS pictures.
THUMBNAILER = """\
[Thumbnailer Entry]
Exec=/usr/bin/convert fits:%i -thumbnail %sx%s png:%o
MimeType=application/fits;image/fits;
"""


def picture(name: str) -> str:
    """Makes a picture, and returns its URI."""
    path = PICTURES / name
    kind = "fits:" if path.suffix.lower() in (".fits", ".fit") else ""
    path.parent.mkdir(exist_ok=True)
    gradient = ["-size", "240x160", "gradient:navy-gold", "-colorspace", "gray", "-depth", "8"]
    subprocess.run(["convert", *gradient, kind + str(path)], check=True)
    os.utime(path, (MTIME, MTIME))
    return path.as_uri()


def cached(size: str, uri: str) -> str:
    """Where the thumbnail of a picture belongs."""
    path = Path(f"/home/ann/.cache/thumbnails/{size}/{hashlib.md5(uri.encode()).hexdigest()}.png")
    path.parent.mkdir(parents=True, exist_ok=True)
    return str(path)


def tumbler():
    """Asks it over the session bus, as file managers do."""
    thumbnailers = Path("/home/ann/.local/share/thumbnailers")
    thumbnailers.mkdir(parents=True, exist_ok=True)
    (thumbnailers / "fits.thumbnailer").write_text(THUMBNAILER)
    names = ["m31.fits", "harbour.jpg", "Orion Nebula.FIT", "lighthouse.png"]
    name, place = "org.freedesktop.thumbnails.Thumbnailer1", "/org/freedesktop/thumbnails/Thumbnailer1"
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    loop = GLib.MainLoop()
    bus.signal_subscribe(None, name, "Finished", place, None, Gio.DBusSignalFlags.NONE, lambda *told: loop.quit())
    for size, chosen in {"normal": names, "large": names[:2]}.items():
        kinds = [Gio.content_type_guess(name)[0] for name in chosen]
        request = GLib.Variant("(asasssu)", ([picture(name) for name in chosen], kinds, size, "foreground", 0))
        bus.call_sync(name, place, name, "Queue", request, None, Gio.DBusCallFlags.NONE, -1, None)
        loop.run()


def gnome():
    factory = GnomeDesktop.DesktopThumbnailFactory.new(GnomeDesktop.DesktopThumbnailSize.NORMAL)
    drawn = GdkPixbuf.Pixbuf.new(GdkPixbuf.Colorspace.RGB, False, 8, 128, 85)
    factory.save_thumbnail(drawn, (PICTURES / "pleiades.fts").as_uri(), MTIME)
    for name in ("Pictures/cut-short.fits", "Projects/stack.kxproj", "Videos/holiday.mp4"):
        factory.create_failed_thumbnail(f"file:///home/ann/{name}", MTIME)


def imagemagick():
    thumbnail = cached("large", picture("m13.fits"))
    without_today = ["-define", "png:exclude-chunks=date,tIME"]
    subprocess.run(["convert", PICTURES / "m13.fits", *without_today, "-thumbnail", "256x256", thumbnail], check=True)


def qt():
    """With the tags that KDE's file manager sets."""
    from PyQt5.QtGui import QImage  # the tests go without it

    uri = (PICTURES / "observatory/m51 whirlpool galaxy.fits").as_uri()
    image = QImage(128, 85, QImage.Format_RGB32)
    image.fill(0)
    for tag, text in {"URI": uri, "MTime": str(MTIME), "Mimetype": "application/fits"}.items():
        image.setText("Thumb::" + tag, text)
    assert image.save(cached("normal", uri))


if __name__ == "__main__" and sys.argv[0] == "-":
    for program in sys.argv[1:]:
        {"tumbler": tumbler, "gnome": gnome, "imagemagick": imagemagick, "qt": qt}[program]()
elif __name__ == "__main__":
    os.dup2(os.open(__file__, os.O_RDONLY), 0)  # /home hides the file if it is there
    os.execve(PRIVATE, ["private", "sh", "-euc", INSIDE, "sh", *sys.argv[1:]], ENVIRONMENT)
