// The listing: the preferences for people to read.

#pragma once

#include <string>

#include "prefs/preferences.h"

namespace nebulark {

// A line for each preference, "NAME = VALUE", with the values aligned. Every line ends in a line feed. Switches are on
// or off; the brightness also shows its target background. A value outside its enumeration is listed as the default.
// Prints nothing itself.
[[nodiscard]] std::string print_preferences(const Preferences& preferences);

} // namespace nebulark
