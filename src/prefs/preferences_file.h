// The machine-wide preferences file.
//
// It is machine wide because desktops run thumbnailers in a sandbox that cannot read a user's own files. This tool and
// the renderer's settings window write it:
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
// Reading is lenient. A line ends in a line feed, which the last line may lack. Blanks and carriage returns at both
// ends of a line are dropped, and empty lines are skipped. A line that begins with "#" or ";" is a comment; "[" begins
// a section header, which has no meaning. Every other line is an assignment as on the command line, and is skipped if
// it would be rejected there. The last valid line for a name wins. Lines may hold any byte and have any length. One
// line is in memory at a time; a line too long for memory ends the reading.
//
// Nothing here prints. All paths are fixed: no environment variable changes them.

#pragma once

#include <cstdio>
#include <string>

#include "prefs/preferences.h"

namespace nebulark {

// The file's absolute path.
[[nodiscard]] std::string preferences_path();

// The preferences that an open file sets, over the defaults. Reads from the current position, and does not close the
// file. If an error or a lack of memory ends the reading, the complete lines before it count.
[[nodiscard]] Preferences read_preferences(std::FILE* file);

// The text shown above, for these preferences. A value outside its enumeration is written as the default.
[[nodiscard]] std::string preferences_text(const Preferences& preferences);

// The preferences that the file sets; the defaults if it is absent or cannot be opened.
[[nodiscard]] Preferences load_preferences();

// Replaces the file by a new one, mode 0644, in one step: a reader sees the old text or the new one. Makes the file's
// directory, but not its parents, if it is missing. Returns false on failure; the file is then unchanged. Errors in
// closing the new file or setting its mode are not noticed: on a full disk the file may end early, and true is
// returned.
//
// The text first goes to PATH.tmp, which is created so that only its owner may write it. A failed save may leave
// PATH.tmp; the next save uses it again and keeps its owner. Two saves at once share it without a lock. Nothing is
// forced to disk.
[[nodiscard]] bool save_preferences(const Preferences& preferences);

// Whether this process, by its real user and group, may write the file, or its directory if there is no file. False
// without a directory, even for root, although a save would make it.
[[nodiscard]] bool preferences_writable();

} // namespace nebulark
