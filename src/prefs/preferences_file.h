// The machine-wide preferences file.
//
// It is machine wide because the desktop runs thumbnailers in a sandbox that cannot read a user's own files. It is
// text, and written by this tool and by the renderer's settings window:
//
//     # Nebulark rendering preferences, machine wide.
//     # Written by nebulark-ctl --set or the settings window.
//     [General]
//     autostretch=true
//     brightness=standard
//     cfa=auto
//     labelformat=false
//     labelcorner=bottomright
//
// Reading is lenient. Lines end in a line feed, the last one with or without; blanks at either end of a line do not
// count (which takes care of carriage returns), and empty lines do not either. A line that begins with "#" or ";" is a
// comment, one that begins with "[" a section header; sections mean nothing. Every other line is an assignment as on
// the command line, and one that would be rejected there changes nothing here. The last good line for a name wins.
// Lines may hold any byte and be of any length. One line is in memory at a time; a line too long for memory ends the
// reading.
//
// Nothing here prints. All paths are fixed: no environment variable moves them.

#pragma once

#include <cstdio>
#include <string>

#include "prefs/preferences.h"

namespace nebulark {

// The file's absolute path.
[[nodiscard]] std::string preferences_path();

// The preferences that an open file sets, over the defaults. Reads from where the file stands, and does not close it.
// Where reading ends early, by an error or for want of memory, the whole lines before that point count.
[[nodiscard]] Preferences read_preferences(std::FILE* file);

// The eight lines shown above, with these preferences. A value outside its enumeration is written as the default.
[[nodiscard]] std::string preferences_text(const Preferences& preferences);

// What the preferences file sets, as above. A file that is absent or cannot be opened sets nothing.
[[nodiscard]] Preferences load_preferences();

// Replaces the file by a new one, mode 0644, in one step: a reader sees the old text or the new one. Makes the file's
// directory (not its parents) if it is missing. Returns false when that fails, and the file is then as it was.
//
// The new text is first in a temporary file beside it, PATH.tmp, made so that only its owner may write it. A save that
// fails may leave it there, and the next save uses it again, whatever its mode. Two saves at the same moment share it
// and are not guarded against each other. Nothing is forced to disk.
[[nodiscard]] bool save_preferences(const Preferences& preferences);

// Whether this process, by its real user and group, may write the file; or, where there is no file, its directory.
// Where there is no directory either the answer is false, for root too, although a save would make it.
[[nodiscard]] bool preferences_writable();

} // namespace nebulark
