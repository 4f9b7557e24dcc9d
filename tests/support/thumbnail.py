#!/usr/bin/python3
"""Has the desktop's own programs put thumbnails into the cache that the environment names.

    thumbnail.py tumbler SIZE PICTURE...     asks Tumbler, over the session bus, to draw them
    thumbnail.py gnome SIZE PICTURE DRAWN    has GNOME's library keep DRAWN as PICTURE's thumbnail
    thumbnail.py gnome-failed FILE...        has it note that FILE could not be drawn

SIZE is the name of a size directory. Start it under dbus-run-session, which gives it a new bus and Tumbler.
"""

import sys

import gi

gi.require_versions({"GdkPixbuf": "2.0", "Gio": "2.0", "GnomeDesktop": "4.0"})
from gi.repository import GdkPixbuf, Gio, GLib, GnomeDesktop  # noqa: E402

TUMBLER = "org.freedesktop.thumbnails.Thumbnailer1"
TUMBLER_PATH = "/org/freedesktop/thumbnails/Thumbnailer1"


def mime_type(picture):
    """What a file manager would say, from the name and the first bytes."""
    key = Gio.FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE
    return Gio.File.new_for_path(picture).query_info(key, Gio.FileQueryInfoFlags.NONE, None).get_content_type()


def uri(path):
    return Gio.File.new_for_path(path).get_uri()


def modified(path):
    return Gio.File.new_for_path(path).query_info("time::modified", 0, None).get_attribute_uint64("time::modified")


def tumbler(size, *pictures):
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    loop = GLib.MainLoop()
    failures = []

    def on_signal(_bus, _sender, _path, _interface, signal, arguments):
        if signal == "Error":
            failures.append(str(arguments))
        elif signal == "Finished":
            loop.quit()

    bus.signal_subscribe(None, TUMBLER, None, TUMBLER_PATH, None, Gio.DBusSignalFlags.NONE, on_signal)
    request = ([uri(p) for p in pictures], [mime_type(p) for p in pictures], size, "foreground", 0)
    queue = "Queue", GLib.Variant("(asasssu)", request)
    bus.call_sync(TUMBLER, TUMBLER_PATH, TUMBLER, *queue, None, Gio.DBusCallFlags.NONE, -1, None)
    loop.run()
    if failures:
        sys.exit("\n".join(failures))


def gnome(size, picture, drawn):
    drawing = GdkPixbuf.Pixbuf.new_from_file(drawn)
    factory(size).save_thumbnail(drawing, uri(picture), modified(picture))


def gnome_failed(*files):
    for file in files:
        factory("normal").create_failed_thumbnail(uri(file), modified(file))


def factory(size):
    return GnomeDesktop.DesktopThumbnailFactory.new(getattr(GnomeDesktop.DesktopThumbnailSize, size.upper()))


if __name__ == "__main__":
    command, *words = sys.argv[1:]
    if command == "tumbler":
        tumbler(*words)
    elif command == "gnome":
        gnome(*words)
    else:
        gnome_failed(*words)
