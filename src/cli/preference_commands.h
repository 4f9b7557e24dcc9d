// The commands that show and change the preferences. Both print all messages and return the exit status.

#pragma once

#include "cli/words.h"

namespace nebulark {

// --prefs: lists the preferences in effect, where they are stored, and whether this user may change them there. Always
// returns 0.
[[nodiscard]] int show_preferences();

// --set: applies all assignments and replaces the file, through pkexec if this user may not write it. `words` is the
// command line, starting with "--set". If one assignment is bad, nothing is written and no password is asked for.
//
// Returns 0 if the file is written, 1 if it is not or the outcome is unknown, 2 if there is no assignment or a bad one.
[[nodiscard]] int set_preferences(Words words);

} // namespace nebulark
