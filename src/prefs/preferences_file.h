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
// Reading is lenient. A line feed ends a line; the last line may lack it. Blanks at both ends of a line are dropped,
// carriage returns among them, and empty lines are skipped. A line that begins with "#" or ";" is a comment, and one
// that begins with "[" is a section header, which has no meaning. Every other line is an assignment as on the command
// line; one that would be rejected there is skipped. The last valid line for a name wins. Lines may hold any byte and
// have any length. One line is in memory at a time; a line too long for memory ends the reading.
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
// file. Where an error or a lack of memory ends the reading early, the complete lines before that point are applied.
[[nodiscard]] Preferences read_preferences(std::FILE* file);

// The text shown above, for these preferences. A value outside its enumeration is written as the default.
[[nodiscard]] std::string preferences_text(const Preferences& preferences);

// What the preferences file sets. A file that is absent or cannot be opened gives the defaults.
[[nodiscard]] Preferences load_preferences();

// Replaces the file by a new one, mode 0644, in one step: a reader sees the old text or the new one. Makes the file's
// directory, but not its parents, if it is missing. Returns false when that fails; the file is then unchanged.
//
// The new text is first written to PATH.tmp, which is created so that only its owner may write it. A save that fails
// may leave PATH.tmp in place; the next save writes to it again and keeps its owner. Two saves at the same moment share
// it without a lock. Nothing is forced to disk.
[[nodiscard]] bool save_preferences(const Preferences& preferences);

// Whether this process, by its real user and group, may write the file or, where there is no file, its directory.
// False where there is no directory either, for root too, although a save would make it.
[[nodiscard]] bool preferences_writable();

} // namespace nebulark
