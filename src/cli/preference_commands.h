// The two commands that show and change the preferences. Both print their results and messages, and return the exit
// status.

#pragma once

#include "cli/words.h"

namespace nebulark {

// --prefs: lists the preferences in effect, where they are stored, and whether this user may change them there. Always
// returns 0.
[[nodiscard]] int show_preferences();

// --set: applies every assignment to the preferences and replaces the file, through pkexec when this user may not write
// it. `words` is the command line from "--set" on. One bad assignment, and nothing is written and no password asked
// for.
//
// Returns 0 when the file was written, 1 when it could not be, 2 when there is no assignment or a bad one.
[[nodiscard]] int set_preferences(Words words);

} // namespace nebulark
