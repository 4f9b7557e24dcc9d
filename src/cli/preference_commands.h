// The two commands that show and change the preferences. Both talk to the user, and return the exit status.

#pragma once

#include <span>

namespace nebulark {

// --prefs: lists the preferences in effect, where they are stored, and whether this user may change them there.
// Returns 0 always.
[[nodiscard]] int show_preferences();

// --set: applies every assignment to the preferences and replaces the file, with administrator rights by way of pkexec
// when this user may not write it. `words` is the command line from "--set" on. Nothing is written, and no password
// asked for, unless every assignment is good.
//
// Returns 0 when the file was written, 1 when it could not be, 2 when there is no assignment or a bad one.
[[nodiscard]] int set_preferences(std::span<char* const> words);

} // namespace nebulark
