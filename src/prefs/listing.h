// The preferences as a person reads them.

#pragma once

#include <string>

#include "prefs/preferences.h"

namespace nebulark {

// Five lines, "NAME = VALUE", each ended by a line feed, the values aligned. Switches read on and off; the brightness
// is followed by the target background level that it stands for. Every record has a listing: a value outside its
// enumeration is listed as the default. Prints nothing itself.
[[nodiscard]] std::string print_preferences(const Preferences& preferences);

} // namespace nebulark
