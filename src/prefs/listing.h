// The preferences as a person reads them.

#pragma once

#include <string>

#include "prefs/preferences.h"

namespace nebulark {

// One line for each preference, "NAME = VALUE", ended by a line feed, with the values aligned. Switches are on or off;
// the brightness is followed by its target background level. A value outside its enumeration is listed as the default.
// Prints nothing itself.
[[nodiscard]] std::string print_preferences(const Preferences& preferences);

} // namespace nebulark
